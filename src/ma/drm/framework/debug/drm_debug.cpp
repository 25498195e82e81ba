#include "ma/drm/framework/debug/drm_debug.h"

#include <array>

#include "ma/drm/framework/debug/drm_compact_debug.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "ma/drm/framework/utils/drm_log.h"
#include "platform/nordiagnose.h"

namespace {

constexpr const char *kCluster = "drm";
constexpr DrmDebugCmdInfo kHostCommand = {"drm", "diagnose function of DRM", DrmDebugExecDiagCmd, DrmDebugCmdHelp};

std::array<DrmDiagCmd, 1> g_commands{{
    {"showmemalloc", drmShowMemAlloc, "drm showmemalloc: show allocated mem size\n"},
}};

} // namespace

extern "C" {

uint32_t DrmFrameworkDebugInit(void) noexcept
{
    if (DrmDebugRegHostCmd(kHostCommand) != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Drm debug registe failed.");
        return DRM_ERR_FAIL;
    }
    if (DrmDebugRegDiagCmdGroup(kCluster, g_commands.data(), g_commands.size()) != DRM_OK) {
        (void)DBG_UnRegCmd(kCluster);
        DRM_LOG(CORVANE_LOG_ERROR, "Drm debug registe common cmd failed.");
        return DRM_ERR_FAIL;
    }
    return DRM_OK;
}

uint32_t DrmFrameworkDebugFinComm(void) noexcept
{
    DrmDebugUnRegDiagCmdGroup(kCluster, g_commands.data());
    (void)DBG_UnRegCmd(kCluster);
    return DRM_OK;
}

uint32_t drmShowMemAlloc(int, char **) noexcept
{
    DrmDebugPrintMemInfo();
    return DRM_OK;
}

} // extern "C"
