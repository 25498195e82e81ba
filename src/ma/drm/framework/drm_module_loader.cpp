#include "ma/drm/framework/drm_module_loader.h"

#include <array>

#include "infrastructure/common/bounded_text.h"
#include "ma/drm/framework/debug/drm_debug.h"
#include "ma/drm/framework/debug/drm_framework_trace_point.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_main.h"
#include "ma/drm/framework/utils/drm_log.h"

namespace {

// The scheduler's work items come from the pools, so these are there before it and after it.
std::array<DrmSubModule, 4> g_modules{{
    {"DrmMemMgr", DrmMemMgrInit, DrmMemMgrFin},
    {"DrmTaskScheduler", DrmTaskSchedulerInit, DrmTaskSchedulerFin},
    {"DrmDebug", DrmFrameworkDebugInit, DrmFrameworkDebugFinComm},
    {"DrmTracepoint", DrmFrameworkTracePointInit, DrmFrameworkTracePointFin},
}};

/** A name that fills its field has no terminator. */
using ModuleName = BoundedText<DRM_SUB_MODULE_NAME_SIZE>;

} // namespace

extern "C" {

uint32_t DrmFrameworkInit(void) noexcept
{
    return DrmloadSubModule(g_modules.data(), g_modules.size());
}

uint32_t DrmFrameworkExit(void) noexcept
{
    DrmUnloadSubModule(g_modules.data(), static_cast<int32_t>(g_modules.size()) - 1);
    return DRM_OK;
}

uint32_t DrmloadSubModule(DrmSubModule *table, uint32_t count) noexcept
{
    for (uint32_t index = 0; index < count; index++) {
        const DrmSubModule &module = table[index];
        if (module.init() != DRM_OK) {
            DRM_LOG(CORVANE_LOG_ERROR, "LoadSubModule %s failed.", ModuleName(module.name).Get());
            DrmUnloadSubModule(table, static_cast<int32_t>(index) - 1);
            return DRM_ERR_FAIL;
        }
        DRM_LOG(CORVANE_LOG_DEBUG, "Init drm (%s) success.", ModuleName(module.name).Get());
    }
    return DRM_OK;
}

void DrmUnloadSubModule(DrmSubModule *table, int32_t lastIndex) noexcept
{
    for (int32_t index = lastIndex; index >= 0; index--) {
        const DrmSubModule &module = table[index];
        if (module.fin != nullptr && module.fin() != DRM_OK) {
            DRM_LOG(CORVANE_LOG_ERROR, "UnloadSubModule %s failed.", ModuleName(module.name).Get());
        }
    }
}

} // extern "C"
