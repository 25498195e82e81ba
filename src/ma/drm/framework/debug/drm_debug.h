/**
 * @file drm_debug.h
 * @brief The framework's own diagnostic command, "drm showmemalloc". Start and stop on one thread.
 */
#ifndef DRM_DEBUG_H
#define DRM_DEBUG_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** @brief Register "drm" with the host's debug shell. @retval DRM_ERR_FAIL  Refused; nothing is registered. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmFrameworkDebugInit(void) CORVANE_NOEXCEPT;
/** @brief Take it away. @return always 0. */
CORVANE_API uint32_t DrmFrameworkDebugFinComm(void) CORVANE_NOEXCEPT;
/** @brief The command: the state of the memory pools. @return always 0. */
CORVANE_API uint32_t drmShowMemAlloc(int argc, char **argv) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
