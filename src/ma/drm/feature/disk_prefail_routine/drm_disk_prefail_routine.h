/**
 * @file drm_disk_prefail_routine.h
 * @brief Tests the health record of each disk for signs that it is about to fail, by a rule for each disk group.
 *
 * Owns the five lists of disks and each disk's group (its private data of DRM_FEATURE_PREFAIL). The lists are used on
 * the feature's worker only and have no lock; the feature's data lock guards the private data. Cycles and switches may
 * be written by any thread.
 */
#ifndef DRM_DISK_PREFAIL_ROUTINE_H
#define DRM_DISK_PREFAIL_ROUTINE_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"
#include "ma/drm/framework/utils/drm_list.h"
#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/disk_prefail_routine_corvane_adapter.h"

CORVANE_BEGIN_DECLS

/** Kinds of routine. There is one. */
enum DrmDprStartType {
    DRM_DPR_START_SMART = 0, /**< tests what the disk says of itself */
    DRM_DPR_START_TYPES = 1,
};

/** Seconds between two runs of the feature. */
#define DRM_DPR_RUN_CYCLE 5u

/** A disk in a group's list. 24 bytes. */
typedef struct DrmDprDiskNode {
    DrmListHead links;
    uint32_t diskId;
    uint32_t reserved; /**< 0 */
} DrmDprDiskNode;

/** What is done for a group. 24 bytes. */
typedef struct DrmDprDiskListAction {
    uint32_t group; /**< enum DrmPrefailGroup */
    DrmListHead *list;
    uint32_t (*routine)(uint32_t diskId);
} DrmDprDiskListAction;

/** How often a group is visited. 8 bytes. */
typedef struct DrmDprGroupCycle {
    uint32_t group;
    uint32_t cycle; /**< seconds; atomic */
} DrmDprGroupCycle;

/** 8 bytes, to be zeroed before it is filled. */
typedef struct DrmDprSwitchConfig {
    uint32_t startType; /**< enum DrmDprStartType */
    uint8_t on;         /**< 0 or 1 */
} DrmDprSwitchConfig;

/** 12 bytes. */
typedef struct DrmDprCycleConfig {
    uint32_t startType; /**< enum DrmDprStartType */
    uint32_t diskType;  /**< enum DrmDiskType */
    uint32_t cycle;     /**< seconds */
} DrmDprCycleConfig;

/** Row n is group n. */
extern CORVANE_API DrmDprDiskListAction g_diskListForDiskTypeAction[DRM_PREFAIL_GROUPS];
extern CORVANE_API DrmListHead g_drmDiskPrefailDiskListForSATA;
extern CORVANE_API DrmListHead g_drmDiskPrefailDiskListForSAS;
extern CORVANE_API DrmListHead g_drmDiskPrefailDiskListForSasVSSD;
extern CORVANE_API DrmListHead g_drmDiskPrefailDiskListForNvme;
extern CORVANE_API DrmListHead g_drmDiskPrefailDiskListForSASHDD;
/** Five rows for each start type; row n is group n. */
extern CORVANE_API DrmDprGroupCycle g_dprCycleConfig[DRM_DPR_START_TYPES][DRM_PREFAIL_GROUPS];
/** 1: the routines run. Read as an atomic; nothing here changes it. */
extern CORVANE_API uint32_t g_drmDprFeatureSwitch;
/** One for each start type. Atomic. */
extern CORVANE_API uint8_t g_dprSwitchConfig[DRM_DPR_START_TYPES];
/** One run of each start type. */
extern CORVANE_API void (*g_drmDprMasterHandler[DRM_DPR_START_TYPES])(void);

/** @brief Start the feature. @retval DRM_ERR_FAIL  The analyser could not be registered. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmPrefailRoutineInit(void) CORVANE_NOEXCEPT;
/** @brief Stop it. The lists stay. */
CORVANE_API void DrmPrefailRoutineFin(void) CORVANE_NOEXCEPT;
/**
 * @brief Set how often disks of a type are visited; both groups of SAS SSDs share a cycle.
 * @param[in] config  DrmDprCycleConfig; not kept.
 * @retval DRM_ERR_FAIL  Null, or a bad start type or disk type.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmDprSetCycleConfig(void *config) CORVANE_NOEXCEPT;
/** @brief Turn the routine on or off. @param[in] config  DrmDprSwitchConfig; not kept. @return always 0. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmDprSetSwitchConfig(void *config) CORVANE_NOEXCEPT;
/** @brief enum DrmDiskType to enum DrmPrefailGroup. @retval DRM_ERR_FAIL  No such type. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmTransDiskTypeToDprGroup(uint32_t diskType, uint32_t *group) CORVANE_NOEXCEPT;

/** @brief The master analyser. @return always 0. */
CORVANE_API uint32_t DrmDiskPrefailRoutineMasterSchedule(uint32_t codeHigh, uint32_t code) CORVANE_NOEXCEPT;
/** @brief One run, if the switches are on. */
CORVANE_API void DrmDiskPrefailMasterScheByType(void) CORVANE_NOEXCEPT;
/** @brief One run: visit the groups whose cycle has come round. */
CORVANE_API void DrmMasterDikePreFailRoutineForSmartType(void) CORVANE_NOEXCEPT;

/** @name The rule of each group. @return 0, or the failure to read or report the disk. */
/** @{ */
CORVANE_API uint32_t DrmSATAPrefailRoutineForStartType(uint32_t diskId) CORVANE_NOEXCEPT;
CORVANE_API uint32_t DrmSASPrefailRoutineForStartType(uint32_t diskId) CORVANE_NOEXCEPT;
CORVANE_API uint32_t DrmSASVSSDPrefailRoutineForStartType(uint32_t diskId) CORVANE_NOEXCEPT;
CORVANE_API uint32_t DrmNvmePrefailRoutineForStartType(uint32_t diskId) CORVANE_NOEXCEPT;
CORVANE_API uint32_t DrmSasHddPrefailRoutineForStartType(uint32_t diskId) CORVANE_NOEXCEPT;
/** @} */

/** @brief Queue a disk event and start a worker for it. @retval DRM_ERR_FAIL  No memory. */
CORVANE_API uint32_t DrmDiskPrefailDiskEventHandle(uint32_t diskId, uint32_t event) CORVANE_NOEXCEPT;
/** @brief Handle what is queued. */
CORVANE_API void DrmDiskPrefailMasterHandleDiskEvent(void) CORVANE_NOEXCEPT;
/** @brief A disk has come. @retval DRM_ERR_FAIL  Unknown disk, no group, or no memory. */
CORVANE_API uint32_t DrmDiskPrefailMasterHandleDiskInEvent(uint32_t diskId) CORVANE_NOEXCEPT;
/** @brief A disk has gone. @retval DRM_ERR_FAIL  It was in no group. */
CORVANE_API uint32_t DrmDiskPrefailMasterHandleDiskOutEvent(uint32_t diskId) CORVANE_NOEXCEPT;
/** @brief Remember a disk's group. @retval DRM_ERR_FAIL  No memory, or no such disk. @note Takes the feature's lock. */
CORVANE_NODISCARD CORVANE_API uint32_t SetDprDiskData(uint32_t diskId, uint32_t group) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(DrmDprDiskNode) == 24 && sizeof(DrmDprDiskListAction) == 24 && sizeof(DrmDprGroupCycle) == 8);
static_assert(sizeof(DrmDprSwitchConfig) == 8 && offsetof(DrmDprSwitchConfig, on) == 4);
static_assert(sizeof(DrmDprCycleConfig) == 12);
#endif

#endif
