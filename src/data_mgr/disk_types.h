/**
 * @file disk_types.h
 * @brief Values and records of a disk that cross module borders; no state. Layouts are fixed (x86-64 System V).
 */
#ifndef CORVANE_DISK_TYPES_H
#define CORVANE_DISK_TYPES_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** Interface class of a disk. Names on the wire: see g_diskTypeNameMap. */
typedef enum {
    DISK_TYPE_SSD_NVME = 0,
    DISK_TYPE_SSD_SAS = 1,
    DISK_TYPE_SSD_SATA = 2,
    DISK_TYPE_HDD_SAS = 3,
    DISK_TYPE_HDD_SATA = 4,
    DISK_TYPE_HDD_NL_SAS = 5,
    DISK_TYPE_BUTT = 6,
} DISK_TYPE_E;

/** Storage medium. Names on the wire: see g_diskMediaTypeNameMap. */
typedef enum {
    DISK_MEDIA_TYPE_SLC = 0,
    DISK_MEDIA_TYPE_MLC = 1,
    DISK_MEDIA_TYPE_TLC = 2,
    DISK_MEDIA_TYPE_QLC = 3,
    DISK_MEDIA_TYPE_PLC = 4,
    DISK_MEDIA_TYPE_MAGNET = 5,
    DISK_MEDIA_TYPE_BUTT = 6,
} DISK_MEDIA_TYPE_E;

typedef enum {
    DISK_STATE_NORMAL = 0,  /**< healthy */
    DISK_STATE_FAULT = 1,   /**< failure expected within a day */
    DISK_STATE_OFFLINE = 2, /**< gone from the node; never stored in the registry file */
    DISK_STATE_PREFAIL = 3, /**< an indicator says that the disk is about to fail */
    DISK_STATE_SLOW = 4,    /**< slow compared with its peers */
    DISK_STATE_KEEP = 5,    /**< only in an incoming base record: the stored state stays */
    DISK_STATE_BUTT = 6,
} DISK_STATE_E;

#define DISK_ID_MAX 128u          /**< identifiers run from 0 to 127 */
#define DISK_ONLINE_MAX 64u       /**< disks registered at a time */
#define DISK_SN_SIZE 40u          /**< serial number buffer; comparisons look at 40 characters at most */
#define DISK_ID_BY_SN 0xFFFFFFFFu /**< in a set: find the disk by its serial number */

/** A serial number by reference, passed by value; @p buf need not be terminated within @p len. */
typedef struct DiskSnRef {
    uint32_t len; /**< at most 40; 0 on a get: any serial number will do */
    char *buf;
} DiskSnRef;

/** The base record of a disk, owned by the registry. */
typedef struct DiskMgrObj {
    uint32_t diskId;
    uint32_t diskState;    /**< DISK_STATE_E */
    uint32_t frameId;      /**< 0xFFFFFFFF: unknown */
    uint32_t slotId;       /**< 0xFFFFFFFF: unknown */
    uint64_t diskCapacity; /**< bytes */
    uint32_t sectorSize;   /**< bytes */
    char vendor[10];
    char model[44];
    char firmware[10];
    char sn[40];
    char deviceName[20]; /**< kernel name; not stored in the file, "unknown" after a load */
    char pciAddr[256];   /**< user-space NVMe only */
    uint32_t diskType;   /**< DISK_TYPE_E */
    uint32_t mediaType;  /**< DISK_MEDIA_TYPE_E */
} DiskMgrObj;

/** Cumulative counters of one agent sample. */
typedef struct DiskIoInfoFrame {
    uint64_t bytesRead;
    uint64_t bytesWritten;
    uint64_t numReadOps;
    uint64_t numWriteOps;
    uint64_t readLatencyTicks;  /**< in ticks of tickRate */
    uint64_t writeLatencyTicks; /**< in ticks of tickRate */
    uint32_t queueDepth;
    uint32_t ioBusyNum; /**< requests in flight; 0xFFFFFFFF: no value */
    uint64_t ticks;     /**< instant of the sample; 0: no sample yet */
    uint64_t tickRate;  /**< ticks per second */
    uint64_t ioTime;    /**< microseconds with at least one request in flight */
} DiskIoInfoFrame;

/** Statistics of one interval. */
typedef struct DiskIoStatInfo {
    uint64_t readIops;     /**< operations per second */
    uint64_t writeIops;    /**< operations per second */
    uint64_t readIoBand;   /**< KiB per second */
    uint64_t writeIoBand;  /**< KiB per second */
    uint64_t readIoDelay;  /**< microseconds per operation */
    uint64_t writeIoDelay; /**< microseconds per operation */
    uint32_t queueDepth;
    uint32_t ioBusyNum;
    uint64_t avgServeTime;    /**< microseconds of ioTime per operation */
    uint32_t utilizationInt;  /**< whole percent, 0..100 */
    uint32_t utilizationFrac; /**< hundredths of a percent, 0..99 */
} DiskIoStatInfo;

#define DISK_SMART_ATTR_NUM 30u /**< attribute entries of an ATA SMART page */

/** One SMART attribute of a SATA SSD. */
typedef struct DiskSmartAttr {
    uint8_t id;
    uint8_t threshold;
    uint8_t currentValue;
    uint8_t worst;
} DiskSmartAttr;

/** The health detail; which form holds depends on disk type and vendor. Zero-padded. */
typedef union DiskHealthDetail {
    struct {
        uint8_t criticalWarning; /**< NVMe critical warning byte */
    } nvme;
    struct {
        DiskSmartAttr attr[DISK_SMART_ATTR_NUM];
    } sataSsd;
    struct {
        uint8_t capacitanceId;
        uint8_t capacitanceStatus;
    } sasVssd; /**< SAS SSD of a listed vendor */
    struct {
        uint8_t asc;
        uint8_t ascq;
        uint8_t isSupportIeLog;
    } sas; /**< other SAS SSDs and SAS hard disks */
    uint8_t raw[120];
} DiskHealthDetail;

/** The health record of a disk. */
typedef struct DiskHealthInfo {
    uint64_t powerOnHours;
    uint32_t wearInt;  /**< whole percent of life used */
    uint32_t wearFrac; /**< hundredths of a percent */
    DiskHealthDetail detail;
} DiskHealthInfo;

#define DISK_LIFE_UNKNOWN 0xFFFFFFFFu

/** Results of the analyses. */
typedef struct DiskDrmInfo {
    uint32_t healthScore;
    uint32_t diskLife; /**< remaining hours; DISK_LIFE_UNKNOWN: no prediction yet */
} DiskDrmInfo;

/** Node record: stored and handed out whole, never looked into. */
typedef struct DiskNodeInfo {
    uint8_t opaque[64];
} DiskNodeInfo;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(DiskSnRef) == 16 && offsetof(DiskSnRef, buf) == 8);
static_assert(sizeof(DiskMgrObj) == 416 && offsetof(DiskMgrObj, diskCapacity) == 16);
static_assert(offsetof(DiskMgrObj, sectorSize) == 24 && offsetof(DiskMgrObj, vendor) == 28);
static_assert(offsetof(DiskMgrObj, model) == 38 && offsetof(DiskMgrObj, firmware) == 82);
static_assert(offsetof(DiskMgrObj, sn) == 92 && offsetof(DiskMgrObj, deviceName) == 132);
static_assert(offsetof(DiskMgrObj, pciAddr) == 152 && offsetof(DiskMgrObj, diskType) == 408);
static_assert(offsetof(DiskMgrObj, mediaType) == 412);
static_assert(sizeof(DiskIoInfoFrame) == 80 && offsetof(DiskIoInfoFrame, queueDepth) == 48);
static_assert(offsetof(DiskIoInfoFrame, ticks) == 56 && offsetof(DiskIoInfoFrame, ioTime) == 72);
static_assert(sizeof(DiskIoStatInfo) == 72 && offsetof(DiskIoStatInfo, avgServeTime) == 56);
static_assert(sizeof(DiskHealthInfo) == 136 && offsetof(DiskHealthInfo, detail) == 16);
static_assert(sizeof(DiskHealthDetail) == 120 && sizeof(DiskDrmInfo) == 8 && sizeof(DiskNodeInfo) == 64);
#endif

#endif
