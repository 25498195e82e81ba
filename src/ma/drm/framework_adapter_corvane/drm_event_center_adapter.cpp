#include "ma/drm/framework_adapter_corvane/drm_event_center_adapter.h"

#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "ma/drm/framework/drm_action_handle.h"
#include "ma/drm/framework/drm_disk_event.h"
#include "ma/drm/framework/utils/drm_log.h"

namespace {

constexpr uint32_t kMinDiskId = 0;
constexpr uint32_t kMaxLogicDiskNum = 128;

} // namespace

extern "C" {

uint32_t DrmFrameworkAdapterInitPhase1(void) noexcept
{
    (void)DrmActionHandleInit();
    (void)DrmClsMgrInit();
    return DRM_OK;
}

uint32_t DrmFrameworkAdapterExitPhase1(void) noexcept
{
    (void)DrmClsMgrFin();
    (void)DrmActionHandleFin();
    return DRM_OK;
}

uint32_t DrmFrameworkAdapterInitPhase2(void) noexcept
{
    if (DrmDiskEventAdapterInit() != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Init disk event adapter fail.");
        return DRM_ERR_FAIL;
    }
    return DRM_OK;
}

uint32_t DrmFrameworkAdapterExitPhase2(void) noexcept
{
    (void)DrmDiskEventAdapterFin();
    return DRM_OK;
}

uint32_t DrmDiskEventAdapterInit(void) noexcept
{
    return DataMgrSetDrmNotifyFunc(DrmEventNotifyFuc);
}

uint32_t DrmDiskEventAdapterFin(void) noexcept
{
    return DataMgrSetDrmNotifyFunc(nullptr);
}

uint32_t DrmEventNotifyFuc(uint32_t diskId, DiskSnRef sn, uint32_t event) noexcept
{
    DrmDiskEventCenterAdapter(diskId, sn, event);
    return DRM_OK;
}

void DrmDiskEventCenterAdapter(uint32_t diskId, DiskSnRef /*sn*/, uint32_t event) noexcept
{
    DrmNotifyDiskEvent(TransDiskIdToLogicId(diskId), event);
}

uint32_t TransDiskIdToLogicId(uint32_t diskId) noexcept
{
    return diskId;
}

bool DrmIsMasterNodeId(void) noexcept
{
    return true;
}

bool DrmCheckLocalNodeNormal(void) noexcept
{
    return true;
}

uint32_t DrmGetOnlineNodeMap(void * /*map*/) noexcept
{
    return DRM_OK;
}

bool DrmIsDataDisk(uint32_t /*diskId*/) noexcept
{
    return true;
}

uint32_t DrmGetMinDiskId(void) noexcept
{
    return kMinDiskId;
}

uint32_t DrmGetMaxLogicDiskNum(void) noexcept
{
    return kMaxLogicDiskNum;
}

bool bdmIsProcessRestart(void) noexcept
{
    return false;
}

void DrmClsCheck2SendMasterEvt(void) noexcept {}

uint32_t DrmClsMgrInit(void) noexcept
{
    return DRM_OK;
}

uint32_t DrmClsMgrFin(void) noexcept
{
    return DRM_OK;
}

uint32_t DrmTaskSchClsEvtInit(void) noexcept
{
    return DRM_OK;
}

uint32_t DrmTaskSchClsEvtFin(void) noexcept
{
    return DRM_OK;
}

} // extern "C"
