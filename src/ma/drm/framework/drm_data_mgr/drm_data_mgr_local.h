/**
 * @file drm_data_mgr_local.h
 * @brief One private pointer for each disk and feature, and a lock for each feature.
 *
 * Owns the table; what the pointers point to is the feature's. Any thread.
 */
#ifndef DRM_DATA_MGR_LOCAL_H
#define DRM_DATA_MGR_LOCAL_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/utils/drm_lock.h"

CORVANE_BEGIN_DECLS

/** The row of one disk. 264 bytes. */
typedef struct DrmLocalDiskData {
    uint32_t innerId;                   /**< the row's index */
    uint32_t invalid;                   /**< DRM_INVALID; not read */
    void *featureData[DRM_FEATURE_NUM]; /**< null: none; each guarded by its feature's lock */
} DrmLocalDiskData;

typedef struct DrmAllLocalDiskInfo {
    uint32_t diskNum;                   /**< rows */
    DrmSpinlock locks[DRM_FEATURE_NUM]; /**< one per feature */
    DrmLocalDiskData *disks;            /**< one block of the host; null before DrmLocalDataMgrInit() */
} DrmAllLocalDiskInfo;

extern CORVANE_API DrmAllLocalDiskInfo g_drmAllLocalDiskInfo;

/** @brief Make the table. @retval DRM_ERR_FAIL  No memory. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmLocalDataMgrInit(void) CORVANE_NOEXCEPT;
/** @brief Give the table back. What features still keep in it is theirs. @return always 0. */
CORVANE_API uint32_t DrmLocalDataMgrFin(void) CORVANE_NOEXCEPT;

/** @brief Take the feature's lock. Does nothing for identifiers of 32 and above. */
CORVANE_API void LOCK_DRM_FEATURE_DATA(uint32_t featureId) CORVANE_NOEXCEPT;
/** @brief Release it. */
CORVANE_API void UNLOCK_DRM_FEATURE_DATA(uint32_t featureId) CORVANE_NOEXCEPT;

/**
 * @brief Read a disk's pointer of a feature.
 * @param[out] out  The pointer, null if there is none.
 * @retval DRM_ERR_FAIL  No such disk or feature.
 * @note The caller holds LOCK_DRM_FEATURE_DATA(featureId).
 */
CORVANE_NODISCARD CORVANE_API uint32_t getFeatureLocPrivateData(uint32_t diskId, uint32_t featureId,
                                                                void **out) CORVANE_NOEXCEPT;
/**
 * @brief Write it; null clears it.
 * @retval DRM_ERR_FAIL  No such disk or feature.
 * @note The caller holds LOCK_DRM_FEATURE_DATA(featureId).
 */
CORVANE_NODISCARD CORVANE_API uint32_t setFeatureLocPrivateData(uint32_t diskId, uint32_t featureId,
                                                                void *data) CORVANE_NOEXCEPT;
/**
 * @brief List the disks that have a pointer of this feature, in the order of their identifiers.
 * @param[out] array     @p capacity identifiers.
 * @param[out] countOut  How many; not set on failure.
 * @retval DRM_ERR_FAIL  No such feature, a null output, no table, or more disks than fit.
 * @note Takes the feature's lock.
 */
CORVANE_NODISCARD CORVANE_API uint32_t getFeatureLocValidDataIndex(uint32_t featureId, uint32_t *array,
                                                                   uint32_t capacity,
                                                                   uint32_t *countOut) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(DrmLocalDiskData) == 264 && offsetof(DrmLocalDiskData, featureData) == 8);

/** Holds a feature's lock for a scope. */
class DrmFeatureDataGuard {
public:
    explicit DrmFeatureDataGuard(uint32_t featureId) noexcept : featureId_(featureId)
    {
        LOCK_DRM_FEATURE_DATA(featureId_);
    }
    ~DrmFeatureDataGuard() { UNLOCK_DRM_FEATURE_DATA(featureId_); }
    DrmFeatureDataGuard(const DrmFeatureDataGuard &) = delete;
    DrmFeatureDataGuard &operator=(const DrmFeatureDataGuard &) = delete;

private:
    uint32_t featureId_;
};
#endif

#endif
