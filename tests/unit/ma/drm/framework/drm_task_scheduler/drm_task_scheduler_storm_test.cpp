#include <array>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "unit/ma/drm/framework/drm_task_scheduler/scheduler_fixture.h"

using scheduler_test::Local;
using scheduler_test::SchedulerTest;
using scheduler_test::TheJournal;
using scheduler_test::TheWorkers;

namespace {

constexpr uint32_t kFeatures = 4;
constexpr uint32_t kCodes = 3;
constexpr uint32_t kThreads = 4;
constexpr uint32_t kRounds = 60;
/** A run that is lost shows only until the next trigger of its queue: the storm stops often to look. */
constexpr uint32_t kGusts = 60;
constexpr uint32_t kTriggersAtTheEnd = 3000;

/** What is known of the runs of one feature, kind and code. Moments are numbers of one global counter. */
struct Trace {
    std::atomic<uint64_t> lastAccepted{0}; /**< the latest moment before a trigger that was accepted */
    std::atomic<uint64_t> lastBegun{0};    /**< the latest begin of a run */
};

struct Storm {
    std::atomic<uint64_t> moment{0};
    std::array<std::array<std::array<Trace, kCodes>, DRM_ANALYSER_KINDS>, kFeatures> traces;
    std::array<std::array<std::atomic<uint32_t>, DRM_ANALYSER_KINDS>, kFeatures> inside{};
    std::atomic<uint32_t> together{0}; /**< runs that found another of their feature and kind */

    Storm() : traces() {}
};

Storm *g_storm = nullptr;

void RaiseTo(std::atomic<uint64_t> &value, uint64_t moment)
{
    uint64_t old = value.load();
    while (old < moment && !value.compare_exchange_weak(old, moment)) {
    }
}

void NoteRun(uint32_t featureId, uint32_t kind, uint32_t code)
{
    RaiseTo(g_storm->traces[featureId][kind][code].lastBegun, ++g_storm->moment);
    if (g_storm->inside[featureId][kind].fetch_add(1) != 0) {
        g_storm->together++;
    }
    std::this_thread::yield();
    g_storm->inside[featureId][kind].fetch_sub(1);
}

template <uint32_t FeatureId>
uint32_t StormLocal(uint32_t code)
{
    NoteRun(FeatureId, DRM_ANALYSER_LOCAL, code);
    return 0;
}

template <uint32_t FeatureId>
uint32_t StormMaster(uint32_t, uint32_t code)
{
    NoteRun(FeatureId, DRM_ANALYSER_MASTER, code);
    return 0;
}

constexpr std::array<DrmLocalAnalyserFunc, kFeatures> kLocals = {StormLocal<0>, StormLocal<1>, StormLocal<2>,
                                                                 StormLocal<3>};
constexpr std::array<DrmMasterAnalyserFunc, kFeatures> kMasters = {StormMaster<0>, StormMaster<1>, StormMaster<2>,
                                                                   StormMaster<3>};

void Trigger(uint32_t featureId, uint32_t kind, uint32_t code)
{
    const uint64_t before = ++g_storm->moment;
    const uint32_t result = kind == DRM_ANALYSER_LOCAL ? DrmTriggerLocalAnalysis(featureId, code)
                                                       : DrmTriggerMasterAnalysis(featureId, code);
    if (result == DRM_OK) {
        RaiseTo(g_storm->traces[featureId][kind][code].lastAccepted, before);
    }
}

void Blow(uint32_t seed)
{
    std::minstd_rand random(seed);
    for (uint32_t round = 0; round < kRounds; round++) {
        const auto featureId = static_cast<uint32_t>(random() % kFeatures);
        switch (random() % 8) {
        case 0:
            EXPECT_EQ(DrmRegisterAnalyser(featureId, kLocals[featureId], 2, kMasters[featureId], 3, 0), DRM_OK);
            break;
        case 1:
            DrmTaskSchedulerTimerHandler(nullptr);
            break;
        case 2:
            (void)DrmCheckDemotingComplete();
            break;
        default:
            Trigger(featureId, static_cast<uint32_t>(random() % DRM_ANALYSER_KINDS),
                    static_cast<uint32_t>(random() % kCodes));
            break;
        }
    }
}

} // namespace

class DrmTaskSchedulerStormTest : public SchedulerTest {
protected:
    ~DrmTaskSchedulerStormTest() override { g_storm = nullptr; }

    static void BlowFromAllSides(uint32_t gust)
    {
        std::vector<std::thread> threads;
        for (uint32_t number = 1; number <= kThreads; number++) {
            threads.emplace_back(Blow, gust * kThreads + number);
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
    }

    /** Every accepted trigger was followed by a run that began after it. */
    static void ExpectNothingLost(const Storm &storm)
    {
        for (uint32_t featureId = 0; featureId < kFeatures; featureId++) {
            for (uint32_t kind = 0; kind < DRM_ANALYSER_KINDS; kind++) {
                for (uint32_t code = 0; code < kCodes; code++) {
                    const Trace &trace = storm.traces[featureId][kind][code];
                    EXPECT_GE(trace.lastBegun.load(), trace.lastAccepted.load())
                        << featureId << " " << kind << " " << code;
                }
            }
        }
    }
};

TEST_F(DrmTaskSchedulerStormTest, NoAcceptedTriggerIsLost)
{
    Storm storm;
    g_storm = &storm;

    for (uint32_t gust = 0; gust < kGusts && !HasFailure(); gust++) {
        BlowFromAllSides(gust);
        ASSERT_TRUE(TheWorkers().WaitIdle());
        ExpectNothingLost(storm);
    }

    for (const auto &feature : storm.traces) {
        for (const auto &kind : feature) {
            for (const Trace &trace : kind) {
                EXPECT_GT(trace.lastAccepted.load(), 0u) << "the storm left something out";
            }
        }
    }
    EXPECT_EQ(storm.together.load(), 0u);
    EXPECT_EQ(PoolItems(), 0);
}

TEST_F(DrmTaskSchedulerStormTest, ATriggerThatMeetsAWorkerAtItsEndIsNotLost)
{
    Register(3, Local<3>, 0, nullptr, 0);

    for (uint32_t count = 1; count <= kTriggersAtTheEnd; count++) {
        ASSERT_EQ(DrmTriggerLocalAnalysis(3, DRM_CODE_DISK_EVENT), DRM_OK);
        ASSERT_TRUE(TheJournal().WaitForRuns(count)) << count;
    }

    EXPECT_EQ(AllRuns().size(), kTriggersAtTheEnd);
}
