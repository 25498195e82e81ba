/**
 * @file disk_life_monitor_corvane_adapter.h
 * @brief What the life monitor reads of a disk and how its prediction is stored. As drm_feature_adapter_intf.h.
 */
#ifndef DISK_LIFE_MONITOR_CORVANE_ADAPTER_H
#define DISK_LIFE_MONITOR_CORVANE_ADAPTER_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** Age and wear of a disk. 16 bytes. */
typedef struct DrmDiskHealthBrief {
    uint64_t powerOnHours;
    uint32_t wearInt;  /**< whole percent of life used */
    uint32_t wearFrac; /**< hundredths of a percent */
} DrmDiskHealthBrief;

/** @brief Age and wear. @return 0, DRM_ERR_FAIL for an unknown disk, or the result of the read. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmGetHealthInfo(uint32_t diskId, DrmDiskHealthBrief *out) CORVANE_NOEXCEPT;
/**
 * @brief Store a prediction and its score; near the end set the disk's state, whatever it is.
 * @param life  Remaining hours.
 * @return the result of the read or of the store, not that of the change of state.
 */
CORVANE_API uint32_t DrmSetLifeMonitorResult(uint32_t diskId, uint64_t life) CORVANE_NOEXCEPT;
/** @brief Action DRM_OPCODE_GET_DISK_HEALTH_INFO: nothing. @return always 0. */
CORVANE_API uint32_t DrmHandleGetDiskHealthInfoAction(void *in, uint32_t inLen, uint64_t *outData,
                                                      uint64_t *outInfo) CORVANE_NOEXCEPT;
/** @brief Action DRM_OPCODE_SET_LIFE_MONITOR_RESULT: nothing. @return always 0. */
CORVANE_API uint32_t DrmHandleSetLifeMonitorResultAction(void *in, uint32_t inLen, uint64_t *outData,
                                                         uint64_t *outInfo) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
static_assert(sizeof(DrmDiskHealthBrief) == 16);
#endif

#endif
