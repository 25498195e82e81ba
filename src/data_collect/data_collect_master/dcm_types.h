/**
 * @file dcm_types.h
 * @brief Records of the data collection master; no state. Layouts are fixed (x86-64 System V).
 */
#ifndef DCM_TYPES_H
#define DCM_TYPES_H

#include <cjson/cJSON.h>
#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** Message types: the index of all strategy maps. */
enum DcmMessageType {
    MESSAGE_DISK_BRIEF_INFO = 0,
    MESSAGE_DISK_BASE_INFO = 1,
    MESSAGE_DISK_HEALTH_INFO = 2,
    MESSAGE_DISK_IO_INFO_FRAME = 3,
    MESSAGE_TYPE_BUTT = 4,
};

enum AgentTransport {
    AGENT_TYPE_SOCK_FILE = 0,
    AGENT_TYPE_IPV4 = 1,
};

/** Address of an IPv4 agent. */
typedef struct AgentIpv4Address {
    char ip[16];
    uint16_t port; /**< host byte order */
} AgentIpv4Address;

/** An agent. Passed by value and by address; compared by IsAgentEqual. */
typedef struct AgentInfo {
    char name[32];      /**< for the log and the comparison; 32 characters need no terminator */
    uint32_t AgentType; /**< enum AgentTransport */
    union {
        char path[32]; /**< socket file; 32 characters need no terminator */
        AgentIpv4Address ipv4;
        char raw[32];
    } address;
} AgentInfo;

/** Where a response goes. The caller owns the buffer, which has room for capacity + 1 bytes. */
typedef struct ResponseBuffer {
    int32_t capacity; /**< bytes taken from the socket at most */
    char *buffer;
} ResponseBuffer;

typedef struct DiskBriefInfo {
    char serialNumber[40];
    char deviceName[20];
} DiskBriefInfo;

typedef struct DiskHealthInfoSnWrap {
    char serialNumber[40];
    DiskHealthInfo info;
} DiskHealthInfoSnWrap;

typedef struct DiskIoInfoFrameSnWrap {
    char serialNumber[40];
    DiskIoInfoFrame frame;
} DiskIoInfoFrameSnWrap;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(AgentInfo) == 68 && alignof(AgentInfo) == 4 && offsetof(AgentInfo, AgentType) == 32);
static_assert(offsetof(AgentInfo, address) == 36 && offsetof(AgentInfo, address.ipv4.port) == 52);
static_assert(sizeof(ResponseBuffer) == 16 && offsetof(ResponseBuffer, buffer) == 8);
static_assert(sizeof(DiskBriefInfo) == 60);
static_assert(sizeof(DiskHealthInfoSnWrap) == 176 && offsetof(DiskHealthInfoSnWrap, info) == 40);
static_assert(sizeof(DiskIoInfoFrameSnWrap) == 120 && offsetof(DiskIoInfoFrameSnWrap, frame) == 40);
#endif

#endif
