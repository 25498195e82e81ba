#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_main.h"

#include <array>

#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_seperate.h"
#include "ma/drm/framework/drm_timer.h"
#include "ma/drm/framework/utils/drm_lock.h"
#include "ma/drm/framework/utils/drm_log.h"

namespace {

/** What a mode does with a registration and with a tick. Both null: nothing can be registered for it. */
struct ScheduleMode {
    uint32_t mode;
    /** Called with g_registrationLock held, on the registering thread. */
    uint32_t (*registerTask)(DrmBaseScheduleTaskItem *item);
    /** Called on the timer's thread, without a lock. */
    void (*tick)(uint32_t featureId, uint64_t tick);
};

constexpr std::array<ScheduleMode, 2> kScheduleModes{{
    {DRM_SCHEDULE_SEPERATE, DrmRegisterSeperateSchedTask, DrmSeperateSchedTickHandler},
    {DRM_SCHEDULE_RESERVED, nullptr, nullptr},
}};

using Registrations = std::array<DrmBaseScheduleTaskItem, DRM_FEATURE_NUM>;

consteval Registrations NoRegistrations()
{
    Registrations registrations{};
    registrations.fill({DRM_INVALID, DRM_SCHEDULE_NONE, DRM_INVALID, DRM_INVALID, nullptr, nullptr});
    return registrations;
}

DrmSpinlock g_registrationLock = DRM_SPINLOCK_FREE;
constinit Registrations g_registrations CORVANE_GUARDED_BY(g_registrationLock) = NoRegistrations();
uint64_t g_tick CORVANE_GUARDED_BY(g_registrationLock) = 0;

/** A tick, and who was registered when it came. */
struct Tick {
    uint64_t number;
    Registrations registrations;
};

Tick NextTick()
{
    const DrmSpinGuard guard(g_registrationLock);
    g_tick++;
    return {g_tick, g_registrations};
}

/** @return the row of a mode that features can register for or, for any other mode, null. */
const ScheduleMode *FindMode(uint32_t mode)
{
    for (const ScheduleMode &row : kScheduleModes) {
        if (row.mode == mode && row.registerTask != nullptr) {
            return &row;
        }
    }
    return nullptr;
}

uint32_t RegisterLocked(uint32_t featureId, const DrmBaseScheduleTaskItem &wanted) CORVANE_REQUIRES(g_registrationLock)
{
    DrmBaseScheduleTaskItem &item = g_registrations[featureId];
    item.featureId = featureId;
    if (item.localAnalyser == nullptr) {
        item.localAnalyser = wanted.localAnalyser;
        item.localCycle = wanted.localCycle;
    }
    if (item.masterAnalyser == nullptr) {
        item.masterAnalyser = wanted.masterAnalyser;
        item.masterCycle = wanted.masterCycle;
    }
    if (item.scheduleMode == DRM_SCHEDULE_NONE) {
        item.scheduleMode = wanted.scheduleMode;
    }
    if (item.scheduleMode != wanted.scheduleMode) {
        DRM_LOG(CORVANE_LOG_ERROR, "DRM_FRM: Unsupport for different scheduler mode (%u).", wanted.scheduleMode);
        return DRM_ERR_FAIL;
    }
    const ScheduleMode *mode = FindMode(item.scheduleMode);
    if (mode == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "no scheduleMode matched input value [%d].",
                static_cast<int32_t>(item.scheduleMode));
        return DRM_ERR_FAIL;
    }
    return mode->registerTask(&item);
}

bool IsRegistered(uint32_t featureId)
{
    const DrmSpinGuard guard(g_registrationLock);
    const DrmBaseScheduleTaskItem &item = g_registrations[featureId];
    return item.featureId == featureId && item.scheduleMode == DRM_SCHEDULE_SEPERATE;
}

uint32_t TriggerAnalysis(uint32_t featureId, uint32_t nodeType, uint32_t code)
{
    if (featureId >= DRM_FEATURE_NUM) {
        DRM_LOG(CORVANE_LOG_ERROR, "Invalid featureId(%u).", featureId);
        return DRM_ERR_FAIL;
    }
    if (!IsRegistered(featureId)) {
        return DRM_ERR_FAIL;
    }
    return DrmTriggerSeperateSchedAnalysis(featureId, nodeType, code);
}

} // namespace

extern "C" {

uint32_t DrmTaskSchedulerInit(void) noexcept
{
    {
        const DrmSpinGuard guard(g_registrationLock);
        g_registrations = NoRegistrations();
        g_tick = 0;
    }
    (void)DrmTaskSeperateModeInit();
    (void)DrmTaskSchInitTimer();
    if (DrmRegTimer("DrmTaskScheduler", DRM_SCHEDULE_TICK_MS, DrmTaskSchedulerTimerHandler, nullptr,
                    DRM_TIMER_PERIODIC) != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Create TaskScheduler timer failed.");
        return DRM_ERR_FAIL;
    }
    DRM_LOG(CORVANE_LOG_INFO, "Create TaskScheduler timer success.");
    return DRM_OK;
}

uint32_t DrmTaskSchedulerFin(void) noexcept
{
    (void)DrmTaskSeperateModeFin();
    (void)DrmTaskSchExitTimer();
    return DRM_OK;
}

uint32_t DrmRegisterAnalyser(uint32_t featureId, DrmLocalAnalyserFunc localAnalyser, uint32_t localCycle,
                             DrmMasterAnalyserFunc masterAnalyser, uint32_t masterCycle, uint32_t scheduleMode) noexcept
{
    DRM_LOG(CORVANE_LOG_INFO, "DRM_FRM: Register analyser for featureId(%u).", featureId);
    if (featureId >= DRM_FEATURE_NUM) {
        DRM_LOG(CORVANE_LOG_ERROR, "DRM_FRM: Invalid featureId(%u), max feature num(%u).", featureId, DRM_FEATURE_NUM);
        return DRM_ERR_FAIL;
    }
    const DrmSpinGuard guard(g_registrationLock);
    return RegisterLocked(featureId, {featureId, scheduleMode, localCycle, masterCycle, localAnalyser, masterAnalyser});
}

uint32_t DrmTriggerLocalAnalysis(uint32_t featureId, uint32_t code) noexcept
{
    return TriggerAnalysis(featureId, DRM_ANALYSER_LOCAL, code);
}

uint32_t DrmTriggerMasterAnalysis(uint32_t featureId, uint32_t code) noexcept
{
    return TriggerAnalysis(featureId, DRM_ANALYSER_MASTER, code);
}

void DrmTaskSchedulerTimerHandler(void *) noexcept
{
    const Tick now = NextTick();
    for (uint32_t featureId = 0; featureId < now.registrations.size(); featureId++) {
        const DrmBaseScheduleTaskItem &item = now.registrations[featureId];
        if (item.featureId == DRM_INVALID) {
            continue;
        }
        if (item.featureId != featureId || item.scheduleMode >= DRM_SCHEDULE_NONE) {
            DRM_LOG(CORVANE_LOG_ERROR, "invalid feature: featureId=[%d] scheduleMode=[%d].",
                    static_cast<int32_t>(item.featureId), static_cast<int32_t>(item.scheduleMode));
            continue;
        }
        const ScheduleMode *mode = FindMode(item.scheduleMode);
        if (mode != nullptr) {
            mode->tick(featureId, now.number);
        }
    }
}

} // extern "C"
