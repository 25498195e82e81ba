/**
 * @file drm_framework_trace_point.h
 * @brief The place of the framework's trace points, of which there are none at present.
 */
#ifndef DRM_FRAMEWORK_TRACE_POINT_H
#define DRM_FRAMEWORK_TRACE_POINT_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** @return always 0. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmFrameworkTracePointInit(void) CORVANE_NOEXCEPT;
/** @return always 0. */
CORVANE_API uint32_t DrmFrameworkTracePointFin(void) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
