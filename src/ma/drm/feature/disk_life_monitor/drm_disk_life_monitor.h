/**
 * @file drm_disk_life_monitor.h
 * @brief Predicts the remaining life of solid state disks from their wear and their age.
 *
 * Owns the list of monitored disks, which is used on the feature's worker only and has no lock. The cycle may be
 * written by any thread.
 */
#ifndef DRM_DISK_LIFE_MONITOR_H
#define DRM_DISK_LIFE_MONITOR_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"
#include "ma/drm/framework/utils/drm_list.h"

CORVANE_BEGIN_DECLS

/** Hours that are never exceeded, and the life of a disk without wear: five years of 8760 hours. */
#define DRM_DISK_LIFE_CEILING 43800u
/** Seconds between two runs of the feature. */
#define DRM_DISK_LIFE_RUN_CYCLE 5u

/** A monitored disk. 24 bytes. */
typedef struct DrmLifeMonitorDisk {
    DrmListHead links;
    uint32_t diskId;
    uint32_t checked; /**< 0 until a prediction has succeeded */
} DrmLifeMonitorDisk;

/** DrmLifeMonitorDisk in the order of arrival. */
extern CORVANE_API DrmListHead g_drmDiskLifeMonitorDiskList;
/** Seconds between two predictions of a disk. Atomic. */
extern CORVANE_API uint32_t g_diskLifeMonitorSchedulerCycle;

/** @brief Start the feature. @retval DRM_ERR_FAIL  The analyser or the action could not be registered. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmDiskLifeMonitorInit(void) CORVANE_NOEXCEPT;
/** @brief Stop it. The list stays. */
CORVANE_API void DrmDiskLifeMonitorFin(void) CORVANE_NOEXCEPT;
/** @brief Set the time between two predictions; holds from the next run on. @param seconds  Below 5: every run. */
CORVANE_API void SetDiskLifeMonitorSchedulerCycle(uint32_t seconds) CORVANE_NOEXCEPT;

/** @brief The master analyser. @return always 0. */
CORVANE_API uint32_t DrmDiskLifeMonitorMasterSchedule(uint32_t codeHigh, uint32_t code) CORVANE_NOEXCEPT;
/** @brief One run: predict for new disks, and for all when the cycle has come round. */
CORVANE_API void DrmDiskMonitorMasterMonitorDiskLife(void) CORVANE_NOEXCEPT;
/** @brief Queue a disk event and start a worker for it. @retval DRM_ERR_FAIL  No memory. */
CORVANE_API uint32_t DrmDiskLifeMonitorDiskEventHandle(uint32_t diskId, uint32_t event) CORVANE_NOEXCEPT;
/** @brief Handle what is queued. */
CORVANE_API void DrmDiskMonitorMasterHandleDiskEvent(void) CORVANE_NOEXCEPT;
/** @brief A disk has come; only SAS SSDs and NVMe disks are monitored. @retval DRM_ERR_FAIL  Unknown, or no memory. */
CORVANE_API uint32_t DrmDiskMonitorMasterHandleDiskInEvent(uint32_t diskId) CORVANE_NOEXCEPT;
/** @brief A disk has gone. @return always 0. */
CORVANE_API uint32_t DrmDiskMonitorMasterHandleDiskOutEvent(uint32_t diskId) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
static_assert(sizeof(DrmLifeMonitorDisk) == 24);
#endif

#endif
