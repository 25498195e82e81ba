#include "ma/drm/framework/debug/drm_framework_trace_point.h"

#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/utils/drm_log.h"

extern "C" {

uint32_t DrmFrameworkTracePointInit(void) noexcept
{
    DRM_LOG(CORVANE_LOG_INFO, "Drm trace point init succeed.");
    return DRM_OK;
}

uint32_t DrmFrameworkTracePointFin(void) noexcept
{
    return DRM_OK;
}

} // extern "C"
