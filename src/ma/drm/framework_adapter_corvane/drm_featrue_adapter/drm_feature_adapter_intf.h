/**
 * @file drm_feature_adapter_intf.h
 * @brief The features' view of a disk, and their verdicts' way back to the live records.
 *
 * A disk is a number, a type is the feature-side enumeration, data come in compact records. Holds no state. Takes
 * g_dataMgrLock through the live records' doors, so a caller may hold a feature's lock but not that one. Any thread.
 */
#ifndef DRM_FEATURE_ADAPTER_INTF_H
#define DRM_FEATURE_ADAPTER_INTF_H

#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** The features' disk type: the index of zones and settings. */
enum DrmDiskType {
    DRM_SATA_SSD_DISK = 0,
    DRM_SAS_SSD_DISK = 1,
    DRM_NVME_DISK = 2,
    DRM_SAS_HDD_DISK = 3,
    DRM_DISK_TYPE_BUTT = 4,
};

/** Newest statistics of a disk. 64 bytes. */
typedef struct DrmDiskIoStat {
    uint64_t readIops;
    uint64_t writeIops;
    uint64_t readIoBand;  /**< KiB per second */
    uint64_t writeIoBand; /**< KiB per second */
    uint64_t readIoDelay;
    uint64_t writeIoDelay;
    uint32_t ioBusyNum;
    uint32_t avgServeTime; /**< microseconds */
    uint32_t utilization;  /**< whole percent */
} DrmDiskIoStat;

/**
 * @brief The feature-side type of a disk.
 * @retval DRM_ERR_FAIL  No such disk, or a type that no feature knows.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmGetDiskType(uint32_t diskId, uint32_t *out) CORVANE_NOEXCEPT;
/** @brief The newest statistics of a disk. @retval DRM_ERR_FAIL  No such disk, or it has none. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmGetDiskIoStat(uint32_t diskId, DrmDiskIoStat *out) CORVANE_NOEXCEPT;
/**
 * @brief Set the state of a disk, whatever it is.
 * @param state DISK_STATE_E
 * @return 0, or the result of the read or the set.
 */
CORVANE_API uint32_t DrmSetDiskStat(uint32_t diskId, uint32_t state) CORVANE_NOEXCEPT;
/**
 * @brief Report a slow disk: normal and prefail disks become slow.
 * @retval 0             Also if the state could not be set.
 * @retval DRM_ERR_FAIL  No such disk.
 */
CORVANE_API uint32_t DrmReportSlowDisk(uint32_t diskId) CORVANE_NOEXCEPT;
/** @brief DISK_TYPE_E to enum DrmDiskType. @retval DRM_ERR_FAIL  No feature knows the type. */
CORVANE_NODISCARD CORVANE_API uint32_t TransDiskType(uint32_t diskType, uint32_t *out) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(DrmDiskIoStat) == 64 && offsetof(DrmDiskIoStat, ioBusyNum) == 48);

/** @brief Reads a disk's base record. A failure is logged. @return what the live records gave. */
[[nodiscard]] uint32_t DrmReadBaseInfo(uint32_t diskId, DiskMgrObj *out) noexcept;
/** @brief The record's serial number, by reference into the record. */
[[nodiscard]] DiskSnRef DrmSnOf(DiskMgrObj &baseInfo) noexcept;
#endif

#endif
