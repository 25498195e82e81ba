#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_trace_point.h"

#include "ma/drm/feature/drm_trace_point_list.h"
#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/disk_prefail_routine_corvane_adapter.h"

namespace {

bool Hits(const char *list, uint32_t *hit, uint32_t diskId) noexcept
{
    if (DrmTracePointLookUp(list, diskId) == DrmTracePointMatch::NO) {
        return false;
    }
    *hit = 1;
    return true;
}

} // namespace

extern "C" {

void DrmDprTracePointInit(void) noexcept {}

void DrmDprTracePointExit(void) noexcept {}

void DrmDprSetSataSmartEntrysPrefail(const char *list, uint32_t *hit, uint32_t diskId, void *output) noexcept
{
    if (Hits(list, hit, diskId)) {
        *static_cast<DiskSmartAttr *>(output) = {.id = 1, .threshold = 1, .currentValue = 0, .worst = 0};
    }
}

void DrmDprSetSasSsdEntrysPrefail(const char *list, uint32_t *hit, uint32_t diskId, void *output) noexcept
{
    if (Hits(list, hit, diskId)) {
        *static_cast<DrmSasSenseInfo *>(output) = {.asc = DRM_ASC_FAILURE_PREDICTION, .ascq = 0, .isSupportIeLog = 1};
    }
}

void DrmDprSetSasVssdEntrysPrefail(const char *list, uint32_t *hit, uint32_t diskId, void *output) noexcept
{
    if (Hits(list, hit, diskId)) {
        *static_cast<DrmSasVssdLogInfo *>(output) = {.capacitanceId = DRM_CAPACITANCE_ID, .capacitanceStatus = 0};
    }
}

void DrmDprSetNvmeEntrysPrefail(const char *list, uint32_t *hit, uint32_t diskId, void *output) noexcept
{
    if (Hits(list, hit, diskId)) {
        static_cast<DrmNvmeCritWarning *>(output)->readOnly = 1;
    }
}

void DrmDprSetNlSasHddEntrysPrefail(const char *list, uint32_t *hit, uint32_t diskId, void *output) noexcept
{
    if (Hits(list, hit, diskId)) {
        *static_cast<DrmSasSenseInfo *>(output) = {.asc = DRM_ASC_FAILURE_PREDICTION, .ascq = 0, .isSupportIeLog = 0};
    }
}

void DrmDprDiskFailTp(const char *list, uint32_t *hit, uint32_t diskId, void *) noexcept
{
    (void)Hits(list, hit, diskId);
}

} // extern "C"
