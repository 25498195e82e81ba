#include "ma/drm/feature/disk_life_monitor/drm_disk_life_monitor.h"

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "ma/drm/feature/drm_feature_event_queue.h"
#include "ma/drm/framework/drm_action_handle.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_main.h"
#include "ma/drm/framework/utils/drm_log.h"
#include "ma/drm/framework/utils/drm_relaxed.h"
#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/disk_life_monitor_corvane_adapter.h"
#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/drm_feature_adapter_intf.h"

extern "C" {

DrmListHead g_drmDiskLifeMonitorDiskList = {&g_drmDiskLifeMonitorDiskList, &g_drmDiskLifeMonitorDiskList};
uint32_t g_diskLifeMonitorSchedulerCycle = 86400;

} // extern "C"

namespace {

/** Hundredths of a percent in one percent, and in the whole life. */
constexpr uint64_t kWearPerPercent = 100;
constexpr uint64_t kWholeLife = 10000;
/** Added to the age: the first hours of a young disk would say nothing about its rate of wear. */
constexpr uint64_t kYoungDiskHours = 10;

DrmQueue g_eventQueue = {DRM_SPINLOCK_FREE, {&g_eventQueue.nodes, &g_eventQueue.nodes}};
/** Runs since all disks were last due. The feature's worker only. */
uint32_t g_runs = 0;

/** Remaining hours if wear goes on at the rate so far. Wear beyond the whole life wraps, and ends at the ceiling. */
uint64_t PredictLife(const DrmDiskHealthBrief &health) noexcept
{
    const uint64_t wear = health.wearInt * kWearPerPercent + health.wearFrac;
    if (wear == 0) {
        return DRM_DISK_LIFE_CEILING;
    }
    const uint64_t life = (health.powerOnHours + kYoungDiskHours) * (kWholeLife - wear) / wear;
    return life >= DRM_DISK_LIFE_CEILING ? DRM_DISK_LIFE_CEILING : life;
}

/** Counts a run. @return whether every disk is due in it. */
bool CycleHasComeRound() noexcept
{
    g_runs++;
    if (DrmLoadRelaxed(g_diskLifeMonitorSchedulerCycle) / DRM_DISK_LIFE_RUN_CYCLE > g_runs) {
        return false;
    }
    g_runs = 0;
    return true;
}

void MonitorDisk(DrmLifeMonitorDisk *disk) noexcept
{
    DrmDiskHealthBrief health{};
    uint32_t ret = DrmGetHealthInfo(disk->diskId, &health);
    if (ret != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Query disk(%u) health info life in event fail(%d).", disk->diskId,
                static_cast<int32_t>(ret));
        return;
    }
    ret = DrmSetLifeMonitorResult(disk->diskId, PredictLife(health));
    if (ret != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Handle monitor disk(%u) life in event fail(%d).", disk->diskId,
                static_cast<int32_t>(ret));
        return;
    }
    disk->checked = 1;
}

DrmLifeMonitorDisk *FindDisk(uint32_t diskId) noexcept
{
    return DrmListFind<DrmLifeMonitorDisk>(&g_drmDiskLifeMonitorDiskList,
                                           [diskId](const DrmLifeMonitorDisk &disk) { return disk.diskId == diskId; });
}

void HandleEvent(const DrmDiskEvent &event) noexcept
{
    uint32_t ret = DRM_OK;
    if (event.event == DISK_EVENT_IN) {
        ret = DrmDiskMonitorMasterHandleDiskInEvent(event.diskId);
    } else if (event.event == DISK_EVENT_OUT) {
        ret = DrmDiskMonitorMasterHandleDiskOutEvent(event.diskId);
    } else {
        DRM_LOG(CORVANE_LOG_ERROR, "Invalid disk event(%d) for disk(%u).", static_cast<int32_t>(event.event),
                event.diskId);
    }
    if (ret != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Handle disk(%u) event(%d) failed.", event.diskId,
                static_cast<int32_t>(event.event));
    }
}

} // namespace

extern "C" {

uint32_t DrmDiskLifeMonitorInit(void) noexcept
{
    drmQueueInit(&g_eventQueue);
    DrmRegisterDiskEventHandler(DRM_FEATURE_DISK_LIFE, nullptr, DrmDiskLifeMonitorDiskEventHandle);
    if (DrmRegisterAnalyser(DRM_FEATURE_DISK_LIFE, nullptr, DRM_INVALID, DrmDiskLifeMonitorMasterSchedule,
                            DRM_DISK_LIFE_RUN_CYCLE, DRM_SCHEDULE_SEPERATE) != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "register drm disk life monitor analyzer fail.");
        return DRM_ERR_FAIL;
    }
    (void)DrmRegisterActionHandler(DRM_OPCODE_GET_DISK_HEALTH_INFO, DrmHandleGetDiskHealthInfoAction);
    if (DrmRegisterActionHandler(DRM_OPCODE_SET_LIFE_MONITOR_RESULT, DrmHandleSetLifeMonitorResultAction) != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "register drm disk life monitor action handle fail.");
        return DRM_ERR_FAIL;
    }
    return DRM_OK;
}

void DrmDiskLifeMonitorFin(void) noexcept
{
    DrmUnRegisterDiskEventHandler(DRM_FEATURE_DISK_LIFE);
    drmQueueExit(&g_eventQueue);
}

void SetDiskLifeMonitorSchedulerCycle(uint32_t seconds) noexcept
{
    DrmStoreRelaxed(g_diskLifeMonitorSchedulerCycle, seconds);
}

uint32_t DrmDiskLifeMonitorMasterSchedule(uint32_t codeHigh, uint32_t code) noexcept
{
    switch (codeHigh << 16 | code) {
    case DRM_CODE_SCHEDULE:
        DrmDiskMonitorMasterMonitorDiskLife();
        DrmDiskMonitorMasterHandleDiskEvent();
        break;
    case DRM_CODE_DISK_EVENT:
        DrmDiskMonitorMasterHandleDiskEvent();
        break;
    default:
        break;
    }
    return DRM_OK;
}

void DrmDiskMonitorMasterMonitorDiskLife(void) noexcept
{
    const bool due = CycleHasComeRound();
    for (DrmLifeMonitorDisk *disk : DrmListView<DrmLifeMonitorDisk>(&g_drmDiskLifeMonitorDiskList)) {
        if (due || disk->checked == 0) {
            MonitorDisk(disk);
        }
    }
}

uint32_t DrmDiskLifeMonitorDiskEventHandle(uint32_t diskId, uint32_t event) noexcept
{
    const DrmEventQueued queued = DrmQueueDiskEvent(&g_eventQueue, diskId, event);
    if (queued == DrmEventQueued::NO_MEMORY) {
        DRM_LOG(CORVANE_LOG_ERROR, "Handle disk event: disk(%u) event(%d) fail.", diskId, static_cast<int32_t>(event));
        return DRM_ERR_FAIL;
    }
    if (queued == DrmEventQueued::REFUSED) {
        DRM_LOG(CORVANE_LOG_ERROR, "queue disk(%u) event(%d) failed.", diskId, static_cast<int32_t>(event));
        return DRM_ERR_FAIL;
    }
    // Without a worker the event waits for the next scheduled run.
    (void)DrmTriggerMasterAnalysis(DRM_FEATURE_DISK_LIFE, DRM_CODE_DISK_EVENT);
    return DRM_OK;
}

void DrmDiskMonitorMasterHandleDiskEvent(void) noexcept
{
    DrmDrainDiskEvents(&g_eventQueue, HandleEvent);
}

uint32_t DrmDiskMonitorMasterHandleDiskInEvent(uint32_t diskId) noexcept
{
    uint32_t diskType = DRM_DISK_TYPE_BUTT;
    if (DrmGetDiskType(diskId, &diskType) != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Get disk(%u) type fail.", diskId);
        return DRM_ERR_FAIL;
    }
    if (diskType != DRM_SAS_SSD_DISK && diskType != DRM_NVME_DISK) {
        DRM_LOG(CORVANE_LOG_INFO, "Disk(%u) diskType(%d) not support life monitor.", diskId,
                static_cast<int32_t>(diskType));
        return DRM_OK;
    }
    if (FindDisk(diskId) != nullptr) {
        DRM_LOG(CORVANE_LOG_INFO, "Disk(%u) rein.", diskId);
        return DRM_OK;
    }
    DrmUmmPtr<DrmLifeMonitorDisk> disk = DrmUmmNew<DrmLifeMonitorDisk>();
    if (disk == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Handle Disk(%u) in event fail.", diskId);
        return DRM_ERR_FAIL;
    }
    disk->diskId = diskId;
    DrmListAddTail(&g_drmDiskLifeMonitorDiskList, &disk->links);
    (void)disk.release(); // the list's now
    return DRM_OK;
}

uint32_t DrmDiskMonitorMasterHandleDiskOutEvent(uint32_t diskId) noexcept
{
    const DrmUmmPtr<DrmLifeMonitorDisk> disk(FindDisk(diskId));
    if (disk != nullptr) {
        DrmListUnlink(&disk->links);
    }
    return DRM_OK;
}

} // extern "C"
