/**
 * @file dcak_types.h
 * @brief Values and records of the kernel agent. Layouts are fixed (x86-64 System V).
 */
#ifndef DCAK_TYPES_H
#define DCAK_TYPES_H

#include <stddef.h>
#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define DCAK_OK 0u
#define DCAK_FAIL 0xFFFFFFFFu

#define DCAK_SERVER_NAME_SIZE 128u
#define DCAK_SERVER_ADDRESS_SIZE 32u

/** How the agent is reached. */
enum DcakServerType {
    DCAK_SERVER_FILE = 0, /**< a socket file */
    DCAK_SERVER_IPV4 = 1, /**< address and port */
};

/** Where the agent serves. */
typedef struct DcakServerInfo {
    char name[DCAK_SERVER_NAME_SIZE];
    uint32_t type;                          /**< enum DcakServerType */
    char address[DCAK_SERVER_ADDRESS_SIZE]; /**< socket path, or IPv4 address text */
    uint16_t port;                          /**< host byte order; IPv4 only */
} DcakServerInfo;

/** The agent's own disk classes. The numbers differ from those of the master; only the names cross the wire. */
enum DcakDiskType {
    DCAK_SSD_NVME = 0,   /**< never found by the classifier */
    DCAK_SSD_SATA = 1,   /**< vendor ATA, does not rotate */
    DCAK_SSD_SAS = 2,    /**< other vendor, does not rotate */
    DCAK_VSSD_SAS = 3,   /**< listed vendor, does not rotate */
    DCAK_HDD_SAS = 4,    /**< rotates, vendor not ATA */
    DCAK_HDD_SATA = 5,   /**< rotates, vendor ATA */
    DCAK_HDD_NL_SAS = 6, /**< never found by the classifier */
    DCAK_ERR_TYPE = 7,   /**< a read failed */
    DCAK_DISK_TYPE_BUTT = 8,
};

/** What one SCSI command needs. The memory is the caller's. */
typedef struct ScsiIoParam {
    uint8_t *cdb;         /**< room for 16 bytes */
    uint32_t cdbLength;   /**< bytes of the CDB that are sent */
    uint8_t *data;        /**< what the disk returns */
    uint32_t dataLength;  /**< room at @p data in bytes */
    uint8_t *sense;       /**< sense data of a failed command */
    uint32_t senseLength; /**< room at @p sense in bytes */
} ScsiIoParam;

#define DCAK_PROC_STAT_ROWS 128u
#define DCAK_PROC_STAT_NAME_SIZE 128u

/** One line of /proc/diskstats; the counters stand in the order of its columns and only grow. */
typedef struct ProcDiskStat {
    int32_t majorNumber;
    int32_t minorNumber;
    char name[DCAK_PROC_STAT_NAME_SIZE];
    uint64_t readsCompleted;
    uint64_t readsMerged;
    uint64_t sectorsRead; /**< of 512 bytes, whatever the disk's sector size */
    uint64_t msReading;
    uint64_t writesCompleted;
    uint64_t writesMerged;
    uint64_t sectorsWritten; /**< of 512 bytes */
    uint64_t msWriting;
    uint64_t iosInFlight; /**< at this moment; does not only grow */
    uint64_t msDoingIo;
    uint64_t msWeighted;
} ProcDiskStat;

#ifdef __cplusplus
#define DCAK_STATIC_ASSERT static_assert
#else
#define DCAK_STATIC_ASSERT _Static_assert
#endif
DCAK_STATIC_ASSERT(offsetof(DcakServerInfo, type) == 128, "layout");
DCAK_STATIC_ASSERT(offsetof(DcakServerInfo, address) == 132, "layout");
DCAK_STATIC_ASSERT(offsetof(DcakServerInfo, port) == 164, "layout");
DCAK_STATIC_ASSERT(sizeof(DcakServerInfo) == 168, "layout");
DCAK_STATIC_ASSERT(offsetof(ScsiIoParam, cdbLength) == 8, "layout");
DCAK_STATIC_ASSERT(offsetof(ScsiIoParam, data) == 16, "layout");
DCAK_STATIC_ASSERT(offsetof(ScsiIoParam, dataLength) == 24, "layout");
DCAK_STATIC_ASSERT(offsetof(ScsiIoParam, sense) == 32, "layout");
DCAK_STATIC_ASSERT(offsetof(ScsiIoParam, senseLength) == 40, "layout");
DCAK_STATIC_ASSERT(sizeof(ScsiIoParam) == 48, "layout");
DCAK_STATIC_ASSERT(offsetof(ProcDiskStat, name) == 8, "layout");
DCAK_STATIC_ASSERT(offsetof(ProcDiskStat, readsCompleted) == 136, "layout");
DCAK_STATIC_ASSERT(offsetof(ProcDiskStat, msWeighted) == 216, "layout");
DCAK_STATIC_ASSERT(sizeof(ProcDiskStat) == 224, "layout");
#undef DCAK_STATIC_ASSERT

CORVANE_END_DECLS

#endif
