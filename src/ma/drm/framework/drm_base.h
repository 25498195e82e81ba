/**
 * @file drm_base.h
 * @brief Numbers that the analysis framework and its features share; no state.
 */
#ifndef DRM_BASE_H
#define DRM_BASE_H

#include <stdint.h>

/** Results of the framework and the features. */
#define DRM_OK 0u
#define DRM_ERR_FAIL 0xFFFFFFFFu

/** No disk, no feature, no cycle. */
#define DRM_INVALID 0xFFFFFFFFu

#define DRM_FEATURE_NUM 32u /**< feature identifiers run from 0 to 31 */

/** The features in use. */
enum DrmFeatureId {
    DRM_FEATURE_SLOW_DISK = 3,
    DRM_FEATURE_DISK_LIFE = 15,
    DRM_FEATURE_PREFAIL = 16,
};

/** What an analyser is called for. */
enum DrmAnalysisCode {
    DRM_CODE_SCHEDULE = 0,    /**< its cycle has come round */
    DRM_CODE_DISK_EVENT = 64, /**< disk events wait in its queue */
};

/** Module number of the framework and the features in the host's log, heap and pools. */
#define DRM_HOST_MODULE 481u

#endif
