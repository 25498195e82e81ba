/**
 * @file disk_prefail_routine_corvane_adapter.h
 * @brief What the prefail routine reads of a disk and how it reports it. As drm_feature_adapter_intf.h.
 */
#ifndef DISK_PREFAIL_ROUTINE_CORVANE_ADAPTER_H
#define DISK_PREFAIL_ROUTINE_CORVANE_ADAPTER_H

#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** Disks of a group are tested alike. */
enum DrmPrefailGroup {
    DRM_PREFAIL_SATA_SSD = 0,
    DRM_PREFAIL_SAS_SSD = 1,
    DRM_PREFAIL_SAS_VSSD = 2, /**< SAS SSDs that report their back-up capacitors */
    DRM_PREFAIL_NVME = 3,
    DRM_PREFAIL_SAS_HDD = 4,
    DRM_PREFAIL_GROUPS = 5,
};

/** The critical warning byte of an NVMe disk (NVMe base specification, SMART / Health Information log, byte 0). */
typedef struct DrmNvmeCritWarning {
    uint8_t availableSpare : 1;
    uint8_t temperature : 1;
    uint8_t reliability : 1;
    uint8_t readOnly : 1;
    uint8_t volatileMemoryBackup : 1;
    uint8_t reserved : 3;
} DrmNvmeCritWarning;

/** SPC-5: the additional sense code "failure prediction threshold exceeded". */
#define DRM_ASC_FAILURE_PREDICTION 0x5Du
/** The vendor's log parameter of the back-up capacitors. */
#define DRM_CAPACITANCE_ID 242u

/** Additional sense code and qualifier (SPC-5, informational exceptions). 3 bytes. */
typedef struct DrmSasSenseInfo {
    uint8_t asc;
    uint8_t ascq;
    uint8_t isSupportIeLog; /**< 1: from the informational exceptions log page */
} DrmSasSenseInfo;

/** State of the back-up capacitors. 2 bytes. */
typedef struct DrmSasVssdLogInfo {
    uint8_t capacitanceId;
    uint8_t capacitanceStatus;
} DrmSasVssdLogInfo;

/**
 * @brief The group of a disk, enum DrmPrefailGroup.
 * @retval DRM_ERR_FAIL  No such disk, or a type without a group.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmGetPrefailDiskGroup(uint32_t diskId, uint32_t *out) CORVANE_NOEXCEPT;
/** @brief A disk's health record. @return 0, DRM_ERR_FAIL for an unknown disk, or the result of the read. */
CORVANE_NODISCARD CORVANE_API uint32_t GetCorvaneInfo(uint32_t diskId, DiskHealthInfo *out) CORVANE_NOEXCEPT;
/**
 * @brief The SMART attributes of a SATA SSD.
 * @param[out] out      DISK_SMART_ATTR_NUM records DiskSmartAttr.
 * @param[in]  entries  How many @p out holds; must be DISK_SMART_ATTR_NUM.
 * @return 0, DRM_ERR_FAIL for another number, or the result of GetCorvaneInfo().
 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmAtaGetSmartInfo(uint32_t diskId, void *out,
                                                          uint32_t entries) CORVANE_NOEXCEPT;
/** @brief Sense of a SAS SSD. @param[out] out DrmSasSenseInfo. @return as GetCorvaneInfo(). */
CORVANE_NODISCARD CORVANE_API uint32_t DrmSasSsdGetIElogInfo(uint32_t diskId, void *out) CORVANE_NOEXCEPT;
/** @brief Capacitor state of a SAS SSD. @param[out] out DrmSasVssdLogInfo. @return as GetCorvaneInfo(). */
CORVANE_NODISCARD CORVANE_API uint32_t DrmSasVssdGetLogInfo(uint32_t diskId, void *out) CORVANE_NOEXCEPT;
/** @brief Warnings of an NVMe disk. @param[out] out Its reserved bits are not written. @return as GetCorvaneInfo(). */
CORVANE_NODISCARD CORVANE_API uint32_t DrmNvmeGetICritWarning(uint32_t diskId,
                                                              DrmNvmeCritWarning *out) CORVANE_NOEXCEPT;
/** @brief Sense of a SAS hard disk. @param[out] out DrmSasSenseInfo. @return as GetCorvaneInfo(). */
CORVANE_NODISCARD CORVANE_API uint32_t DrmSasHddGetSenseInfo(uint32_t diskId, void *out) CORVANE_NOEXCEPT;
/**
 * @brief Report a disk that is about to fail: normal disks become prefail.
 * @retval 0             Also if the state could not be set.
 * @retval DRM_ERR_FAIL  No such disk.
 */
CORVANE_API uint32_t DrmReportDiskPrefail(uint32_t diskId) CORVANE_NOEXCEPT;
/** @brief DISK_TYPE_E and vendor to enum DrmPrefailGroup. @retval DRM_ERR_FAIL  No group for the type. */
CORVANE_NODISCARD CORVANE_API uint32_t TransDiskGroup(uint32_t diskType, const char *vendor,
                                                      uint32_t *out) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
static_assert(sizeof(DrmNvmeCritWarning) == 1 && sizeof(DrmSasSenseInfo) == 3 && sizeof(DrmSasVssdLogInfo) == 2);
#endif

#endif
