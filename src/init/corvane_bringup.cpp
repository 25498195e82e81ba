#include "init/corvane_bringup.h"

#include "config/corvane_config.h"
#include "data_collect/data_collect_master/DCM_listener/dcm_hot_plug.h"
#include "data_collect/data_collect_master/dcm_schedule.h"
#include "data_collect/data_collect_master/dcm_transport.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"
#include "ma/drm/feature/disk_life_monitor/drm_disk_life_monitor.h"
#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_routine.h"
#include "ma/drm/feature/slow_disk_detecter/slow_disk_detecter.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_data_mgr/drm_data_mgr_local.h"
#include "ma/drm/framework/drm_module_loader.h"
#include "ma/drm/framework/utils/drm_relaxed.h"
#include "ma/drm/framework_adapter_corvane/drm_event_center_adapter.h"

namespace {

constexpr uint32_t kSwitchOn = 1;
constexpr uint32_t kSwitchUnknown = 2;

// What is taken where the settings hold nothing.
constexpr uint32_t kDefaultThreshold = 1;
constexpr uint32_t kDefaultSlowCycle = 50;
constexpr uint32_t kDefaultPrefailCycle = 20;

/** Undoes a stage unless all stages after it came up as well; the last stage goes first. */
template <auto undo>
class StageUndo {
public:
    StageUndo() noexcept = default;
    StageUndo(const StageUndo &) = delete;
    StageUndo &operator=(const StageUndo &) = delete;
    ~StageUndo()
    {
        if (!kept_) {
            (void)undo();
        }
    }
    void Keep() noexcept { kept_ = true; }

private:
    bool kept_ = false;
};

void CancelSpdkAgent() noexcept
{
    const uint32_t result = CancelQueryAgentScheduleTask(g_uniqueSpdkAgent);
    CORVANE_LOG(CORVANE_LOG_WARN, "DCM", "Cancel Query UsrAgent ScheduleTask(ret:%d).", static_cast<int>(result));
}

} // namespace

extern "C" {

CORVANE_API uint32_t g_drmSwitch = 1;

CORVANE_API uint32_t CorvaneInitDrmFeatures(void) noexcept
{
    if (DrmDiskLifeMonitorInit() != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "init drm disk life monitor failed.");
        return DRM_ERR_FAIL;
    }
    StageUndo<DrmDiskLifeMonitorFin> lifeMonitor;

    if (DrmPrefailRoutineInit() != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "init drm prefail routinue failed.");
        return DRM_ERR_FAIL;
    }
    StageUndo<DrmPrefailRoutineFin> prefailRoutine;

    if (DrmClassicalSlowDiskDetectV2Init() != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "init drm classical slow disk detect v2 failed.");
        return DRM_ERR_FAIL;
    }
    lifeMonitor.Keep();
    prefailRoutine.Keep();
    return 0;
}

CORVANE_API void CorvaneExitDrmFeatures(void) noexcept
{
    DrmClassicalSlowDiskDetectV2Exit();
    DrmPrefailRoutineFin();
    DrmDiskLifeMonitorFin();
}

CORVANE_API uint32_t CorvaneInitDrm(void) noexcept
{
    if (DrmFrameworkAdapterInitPhase1() != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "init drm framework adpater phase1 failed.");
        return DRM_ERR_FAIL;
    }
    StageUndo<DrmFrameworkAdapterExitPhase1> phase1;

    if (DrmFrameworkInit() != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "init drm framework failed.");
        return DRM_ERR_FAIL;
    }
    StageUndo<DrmFrameworkExit> framework;

    if (DrmLocalDataMgrInit() != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "init drm local data mgr failed.");
        return DRM_ERR_FAIL;
    }
    StageUndo<DrmLocalDataMgrFin> localData;

    if (DrmFrameworkAdapterInitPhase2() != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "init drm framework adapter phase2 failed.");
        return DRM_ERR_FAIL;
    }
    StageUndo<DrmFrameworkAdapterExitPhase2> phase2;

    if (CorvaneInitDrmFeatures() != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "init drm features failed.");
        return DRM_ERR_FAIL;
    }
    phase1.Keep();
    framework.Keep();
    localData.Keep();
    phase2.Keep();
    return 0;
}

CORVANE_API uint32_t CorvaneExitDrm(void) noexcept
{
    CorvaneExitDrmFeatures();
    (void)DrmFrameworkAdapterExitPhase2();
    (void)DrmLocalDataMgrFin();
    (void)DrmFrameworkExit();
    (void)DrmFrameworkAdapterExitPhase1();
    return 0;
}

CORVANE_API void StartQueryAgentScheduleTask(void) noexcept
{
    uint32_t featureSwitch = kSwitchUnknown;
    if (GetConfigSwitchVal("feature_switch", &featureSwitch) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "get feature switch config failed");
        return;
    }
    if (featureSwitch != kSwitchOn) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "INIT", "feature switch is off, no need start query agent task");
        return;
    }

    uint32_t result = SubmitQueryAgentScheduleTask(g_uniqueSpdkAgent);
    if (result != 0) {
        CORVANE_LOG(CORVANE_LOG_WARN, "DCM", "Submit Query UsrAgent ScheduleTask failed(ret:%d).",
                    static_cast<int>(result));
        return;
    }
    result = SubmitQueryAgentScheduleTask(g_uniqueDcakAgent);
    if (result != 0) {
        CORVANE_LOG(CORVANE_LOG_WARN, "DCM", "Submit Query KernelAgent ScheduleTask failed(ret:%d).",
                    static_cast<int>(result));
        CancelSpdkAgent();
        return;
    }
    result = SubmitScanAllAgentDeviceListScheduleTask();
    if (result != 0) {
        CORVANE_LOG(CORVANE_LOG_WARN, "DCM", "Submit Scan All Agent ScheduleTask failed(ret:%d).",
                    static_cast<int>(result));
        CancelSpdkAgent();
        result = CancelQueryAgentScheduleTask(g_uniqueDcakAgent);
        CORVANE_LOG(CORVANE_LOG_WARN, "DCM", "Cancel Query KernelAgent ScheduleTask(ret:%d).",
                    static_cast<int>(result));
    }
}

CORVANE_API uint32_t DrmSetSwitch(uint8_t) noexcept
{
    DrmStoreRelaxed(g_drmSwitch, 0u);
    return 0;
}

CORVANE_API void SetSlowDiskDetectConfig(void) noexcept
{
    const MallocPtr<ClassicalSlowDiskDetectV2Config> record = MallocNew<ClassicalSlowDiskDetectV2Config>();
    if (record == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "StartSlowDiskDetect malloc memory failed");
        return;
    }
    uint32_t minThresholdValue = kDefaultThreshold;
    uint32_t minSlowCycle = kDefaultSlowCycle;
    for (uint32_t diskType = 0; diskType < CORVANE_CONFIG_DISK_TYPES; diskType++) {
        const char *section = g_diskTypeConfigNames[diskType];
        if (GetChildNodeConfigInt(section, "min_threshold_value", &minThresholdValue) != 0 ||
            GetChildNodeConfigInt(section, "min_slow_cycle", &minSlowCycle) != 0) {
            CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT",
                                "get disktype %s min_threshold_value or min_slow_cycle config failed", section);
            return;
        }
        record->diskType = diskType;
        record->minThresholdValue = static_cast<uint8_t>(minThresholdValue);
        record->minSlowCycle = static_cast<uint8_t>(minSlowCycle);
        if (DrmConfigClassicalSlowDiskDetectV2(record.get()) != 0) {
            CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "set slow disk detect config failed");
            return;
        }
    }
}

CORVANE_API uint32_t SetDprSmartSwitch(int32_t value) noexcept
{
    const MallocPtr<DrmDprSwitchConfig> record = MallocNew<DrmDprSwitchConfig>();
    if (record == nullptr) {
        return DRM_ERR_FAIL;
    }
    record->startType = DRM_DPR_START_SMART;
    record->on = value != 0 ? 1 : 0;
    if (DrmDprSetSwitchConfig(record.get()) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "set dpr smart config failed");
        return DRM_ERR_FAIL;
    }
    return 0;
}

CORVANE_API void SetDprSmartConfig(void) noexcept
{
    const MallocPtr<DrmDprCycleConfig> record = MallocNew<DrmDprCycleConfig>();
    if (record == nullptr) {
        return;
    }
    uint32_t taskCycle = kDefaultPrefailCycle;
    for (uint32_t diskType = 0; diskType < CORVANE_CONFIG_DISK_TYPES; diskType++) {
        const char *section = g_diskTypeConfigNames[diskType];
        if (GetChildNodeConfigInt(section, "task_cycle", &taskCycle) != 0) {
            CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "get dpr smart disktype %s taskCycle config failed",
                                section);
            return;
        }
        record->startType = DRM_DPR_START_SMART;
        record->diskType = diskType;
        record->cycle = taskCycle;
        if (DrmDprSetCycleConfig(record.get()) != 0) {
            CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "set dpr smart config failed");
            return;
        }
    }
}

CORVANE_API void StartFeature(void) noexcept
{
    uint32_t featureSwitch = kSwitchUnknown;
    if (GetConfigSwitchVal("feature_switch", &featureSwitch) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "get feature switch config failed");
        return;
    }
    const uint8_t on = featureSwitch != 0 ? 1 : 0;
    (void)DrmSetSwitch(on);
    if (DrmSetClassicalSlowDiskDetectV2Switch(on) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "set slow disk detect switch config failed");
        return;
    }
    SetSlowDiskDetectConfig();
    if (SetDprSmartSwitch(static_cast<int32_t>(featureSwitch)) != 0) {
        return;
    }
    SetDprSmartConfig();

    constexpr const char *kSection = "disklife_prediction";
    constexpr const char *kKey = "task_cycle";
    uint32_t lifeCycle = 0;
    if (GetChildNodeConfigInt(kSection, kKey, &lifeCycle) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "get config %s %s:%u failed", kSection, kKey, lifeCycle);
        return;
    }
    SetDiskLifeMonitorSchedulerCycle(lifeCycle);
}

CORVANE_API void TakeOverDiskSwitch(bool on) noexcept
{
    if (on) {
        (void)StartHotPlugListener(g_uniqueSpdkAgent);
    } else {
        (void)StopHotPlugListener(g_uniqueSpdkAgent);
    }
}

CORVANE_API void StartTakeOverDiskSwitch(void) noexcept
{
    uint32_t takeOver = kSwitchUnknown;
    if (GetConfigSwitchVal("takeover_disk_switch", &takeOver) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "get takeOverDiskSwitch config failed");
        return;
    }
    TakeOverDiskSwitch(takeOver != 0);
    CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "INIT", "set takeOverDiskSwitch:%d success.", static_cast<int>(takeOver));
}

} // extern "C"
