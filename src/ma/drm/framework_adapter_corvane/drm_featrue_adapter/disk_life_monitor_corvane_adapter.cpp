#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/disk_life_monitor_corvane_adapter.h"

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/disk_prefail_routine_corvane_adapter.h"
#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/drm_feature_adapter_intf.h"

namespace {

constexpr const char *kModule = "DRM_FEATURE";

// Remaining hours below which a disk will fail within a day, within 30 days, and within 90.
constexpr uint64_t kFaultLife = 25;
constexpr uint64_t kPrefailLife = 720;
constexpr uint64_t kReplaceLife = 2160;

constexpr uint32_t kGoodScore = 100;
constexpr uint32_t kBadScore = 37;

/** Tell of a life that nears its end, and set the state of a disk that is about to fail. */
void ActOnLife(uint32_t diskId, DiskMgrObj &baseInfo, uint64_t life) noexcept
{
    const BoundedText<DISK_SN_SIZE> sn(baseInfo.sn);
    if (life < kFaultLife) {
        (void)DiskStateSet(diskId, DrmSnOf(baseInfo), DISK_STATE_FAULT); // a failure is logged there
        CORVANE_LOG(CORVANE_LOG_WARN, kModule, "Disk(%u) sn(%s) will be fault.", diskId, sn.Get());
        return;
    }
    if (life < kPrefailLife) {
        const uint32_t ret = DiskStateSet(diskId, DrmSnOf(baseInfo), DISK_STATE_PREFAIL);
        CORVANE_LOG(CORVANE_LOG_WARN, kModule, "Disk(%u) sn(%s) will be prefail, ret(%d).", diskId, sn.Get(),
                    static_cast<int>(ret));
        return;
    }
    if (life < kReplaceLife) {
        CORVANE_LOG(CORVANE_LOG_WARN, kModule, "Disk(%u) sn(%s) need be replaced.", diskId, sn.Get());
    }
}

} // namespace

extern "C" {

uint32_t DrmGetHealthInfo(uint32_t diskId, DrmDiskHealthBrief *out) noexcept
{
    DiskHealthInfo health{};
    const uint32_t ret = GetCorvaneInfo(diskId, &health);
    if (ret != 0) {
        return ret;
    }
    out->powerOnHours = health.powerOnHours;
    out->wearInt = health.wearInt;
    out->wearFrac = health.wearFrac;
    return DRM_OK;
}

uint32_t DrmSetLifeMonitorResult(uint32_t diskId, uint64_t life) noexcept
{
    DiskMgrObj baseInfo{};
    uint32_t ret = DrmReadBaseInfo(diskId, &baseInfo);
    if (ret != 0) {
        return ret;
    }
    DiskDrmInfo drmInfo = {.healthScore = life < kPrefailLife ? kBadScore : kGoodScore,
                           .diskLife = static_cast<uint32_t>(life)};
    ret = DiskDrmInfoSet(diskId, DrmSnOf(baseInfo), &drmInfo);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Set disk(%u) sn(%s) drm info fail, ret(%d).", diskId,
                    BoundedText<DISK_SN_SIZE>(baseInfo.sn).Get(), static_cast<int>(ret));
    }
    ActOnLife(diskId, baseInfo, life);
    return ret;
}

uint32_t DrmHandleGetDiskHealthInfoAction(void * /*in*/, uint32_t /*inLen*/, uint64_t * /*outData*/,
                                          uint64_t * /*outInfo*/) noexcept
{
    return DRM_OK;
}

uint32_t DrmHandleSetLifeMonitorResultAction(void * /*in*/, uint32_t /*inLen*/, uint64_t * /*outData*/,
                                             uint64_t * /*outInfo*/) noexcept
{
    return DRM_OK;
}

} // extern "C"
