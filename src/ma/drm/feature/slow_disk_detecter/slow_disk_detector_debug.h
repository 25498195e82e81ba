/**
 * @file slow_disk_detector_debug.h
 * @brief The debug shell's view of zones and windows ("u_drm_slow_disk"), and fault injection for tests.
 *
 * Commands run on the debug shell's thread and take the zone's lock or the feature's data lock. The fault injection
 * functions hold no state.
 */
#ifndef SLOW_DISK_DETECTOR_DEBUG_H
#define SLOW_DISK_DETECTOR_DEBUG_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** Lists of disk identifiers given to fault injection have at most this many characters. */
#define DRM_TRACE_POINT_LIST_MAX 31u

/** @brief Register "u_drm_slow_disk". A refusal is logged. */
CORVANE_API void DrmSlowDiskDetectDebugInitDiag(void) CORVANE_NOEXCEPT;
/** @brief Nothing: the functions below are found by name. */
CORVANE_API void DrmSlowDiskDetectDebugRegTp(void) CORVANE_NOEXCEPT;

/**
 * @name Fault injection. @p list holds disk identifiers between commas, 31 characters at most; @p hit is set to 1 if
 *       the disk is in it, and otherwise left alone.
 */
/** @{ */
CORVANE_API void DrmSlowDiskDetectSkipUpdateDiskPerfTp(const char *list, uint32_t diskId,
                                                       uint32_t *hit) CORVANE_NOEXCEPT;
/** An empty list stands for every disk. */
CORVANE_API void DrmSlowDiskDetectCreateDiskObjFailTp(const char *list, uint32_t *hit,
                                                      uint32_t diskId) CORVANE_NOEXCEPT;
/** An empty list stands for every disk. With the hit goes DRM_ERR_FAIL in @p result. */
CORVANE_API void DrmSlowDiskDetectGetIostatFailTp(const char *list, uint32_t *hit, uint32_t diskId,
                                                  uint32_t *result) CORVANE_NOEXCEPT;
/** @} */

CORVANE_END_DECLS

#ifdef __cplusplus
/** @brief Takes "u_drm_slow_disk" back. */
void DrmSlowDiskDetectDebugExitDiag() noexcept;
#endif

#endif
