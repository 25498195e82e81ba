// What the analysis costs while nothing happens, and how soon it starts when something does.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "ma/drm/feature/disk_life_monitor/drm_disk_life_monitor.h"
#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_routine.h"
#include "ma/drm/feature/slow_disk_detecter/slow_disk_detecter.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_main.h"
#include "platform/norax.h"
#include "platform/normm.h"

namespace {

using Clock = std::chrono::steady_clock;

/** A cycle that no benchmark reaches. */
constexpr uint32_t kNever = 0x7FFFFFFF;
constexpr uint32_t kOwnFeature = 0;
constexpr uint32_t kHeldFeature = 1;

/** When the analyser below was last entered; 0: not since it was asked for. */
std::atomic<Clock::rep> g_entered{0};

uint32_t NoteEntry(uint32_t, uint32_t)
{
    g_entered.store(Clock::now().time_since_epoch().count());
    return DRM_OK;
}

void Require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

size_t Threads()
{
    size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task")) {
        (void)entry;
        count++;
    }
    return count;
}

/** Until the workers are gone. */
void WaitForThreads(size_t count)
{
    while (Threads() != count) {
        std::this_thread::yield();
    }
}

/** The three features and one of our own, on a scheduler whose ticks come from the benchmark. */
class Scheduler {
public:
    Scheduler()
    {
        (void)norax_Init();
        (void)nor_mm_pool_init();
        Require(DrmMemMgrInit() == DRM_OK && DrmTaskSchedulerInit() == DRM_OK);
        (void)DrmTaskSchedulerFin(); // ends the timer
        // What is registered first stays, so the features keep these cycles.
        Register(DRM_FEATURE_SLOW_DISK, DrmSlowDiskDetectorLocalSchedule, nullptr);
        Register(DRM_FEATURE_DISK_LIFE, nullptr, DrmDiskLifeMonitorMasterSchedule);
        Register(DRM_FEATURE_PREFAIL, nullptr, DrmDiskPrefailRoutineMasterSchedule);
        Register(kOwnFeature, nullptr, NoteEntry);
        Require(DrmDiskLifeMonitorInit() == DRM_OK && DrmPrefailRoutineInit() == DRM_OK &&
                DrmClassicalSlowDiskDetectV2Init() == DRM_OK);
        threads_ = Threads();
        DrmTaskSchedulerTimerHandler(nullptr); // the first tick is one behind a multiple of every cycle
        WaitForThreads(threads_);
    }
    /** With no worker at work. */
    size_t IdleThreads() const { return threads_; }
    static void Register(uint32_t featureId, DrmLocalAnalyserFunc local, DrmMasterAnalyserFunc master)
    {
        Require(DrmRegisterAnalyser(featureId, local, kNever, master, kNever, DRM_SCHEDULE_SEPERATE) == DRM_OK);
    }

private:
    size_t threads_ = 0;
};

Scheduler &TheScheduler()
{
    static Scheduler scheduler;
    return scheduler;
}

void TickWithNothingDue(benchmark::State &state)
{
    (void)TheScheduler();
    for (auto _ : state) {
        DrmTaskSchedulerTimerHandler(nullptr);
    }
}
BENCHMARK(TickWithNothingDue);

/** From the trigger to the analyser's first instruction, through the start of a worker thread. */
void TriggerToAnalyser(benchmark::State &state)
{
    const size_t idle = TheScheduler().IdleThreads();
    for (auto _ : state) {
        g_entered.store(0);
        const Clock::time_point start = Clock::now();
        (void)DrmTriggerMasterAnalysis(kOwnFeature, DRM_CODE_SCHEDULE);
        while (g_entered.load() == 0) {
            std::this_thread::yield();
        }
        const Clock::duration took = Clock::duration(g_entered.load()) - start.time_since_epoch();
        state.SetIterationTime(std::chrono::duration<double>(took).count());
        WaitForThreads(idle); // so that the next trigger starts a worker too
    }
}
BENCHMARK(TriggerToAnalyser)->UseManualTime();

std::atomic<bool> g_hold{true};
std::atomic<bool> g_held{false};

uint32_t HoldWorker(uint32_t, uint32_t)
{
    g_held = true;
    g_hold.wait(true);
    return DRM_OK;
}

/** What a trigger costs its caller, who may hold the lock of the live records, while such a run waits already. */
void TriggerThatCoalesces(benchmark::State &state)
{
    const size_t idle = TheScheduler().IdleThreads();
    Scheduler::Register(kHeldFeature, nullptr, HoldWorker);
    g_hold = true;
    g_held = false;
    (void)DrmTriggerMasterAnalysis(kHeldFeature, DRM_CODE_DISK_EVENT); // the worker is busy with this one
    while (!g_held) {
        std::this_thread::yield();
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(DrmTriggerMasterAnalysis(kHeldFeature, DRM_CODE_DISK_EVENT));
    }
    g_hold = false;
    g_hold.notify_all();
    WaitForThreads(idle);
}
BENCHMARK(TriggerThatCoalesces);

} // namespace
