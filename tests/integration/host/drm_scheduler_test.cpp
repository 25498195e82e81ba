#include "drm_fixture.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::mutex g_runsLock;
std::vector<std::string> g_runs;

void AddRun(const std::string &run)
{
    const std::lock_guard guard(g_runsLock);
    g_runs.push_back(run);
}

std::vector<std::string> Runs()
{
    const std::lock_guard guard(g_runsLock);
    return g_runs;
}

bool WaitForRuns(size_t count)
{
    return Eventually([&] { return Runs().size() >= count; });
}

uint32_t Local(uint32_t code)
{
    AddRun("local " + std::to_string(code));
    return 0;
}

uint32_t Master(uint32_t codeHigh, uint32_t code)
{
    AddRun("master " + std::to_string(codeHigh) + " " + std::to_string(code));
    return 0;
}

uint32_t OtherLocal(uint32_t)
{
    AddRun("other");
    return 0;
}

class DrmRegisterAnalyserTest : public DrmTest {};

TEST_F(DrmRegisterAnalyserTest, RefusesIdentifiersFrom32On)
{
    EXPECT_EQ(lib::DrmRegisterAnalyser(31, Local, 3, nullptr, kFail, 0), 0u);
    EXPECT_EQ(lib::DrmRegisterAnalyser(32, Local, 3, nullptr, kFail, 0), kFail);

    EXPECT_EQ(Logged(6, "DRM_FRM: Register analyser for featureId(31)."), 1u);
    EXPECT_EQ(Logged(6, "DRM_FRM: Register analyser for featureId(32)."), 1u);
    EXPECT_EQ(Logged(3, "DRM_FRM: Invalid featureId(32), max feature num(32)."), 1u);
}

TEST_F(DrmRegisterAnalyserTest, KeepsWhatIsThereAndAddsWhatIsMissing)
{
    ASSERT_EQ(lib::DrmRegisterAnalyser(9, Local, 3, nullptr, kFail, 0), 0u);
    ASSERT_EQ(lib::DrmRegisterAnalyser(9, OtherLocal, 7, Master, 5, 0), 0u);

    EXPECT_EQ(lib::DrmTriggerLocalAnalysis(9, 1), 0u);
    ASSERT_TRUE(WaitForRuns(1));
    EXPECT_EQ(lib::DrmTriggerMasterAnalysis(9, 0x50002), 0u);
    ASSERT_TRUE(WaitForRuns(2));

    EXPECT_THAT(Runs(), ElementsAre("local 1", "master 5 327682"));
}

TEST_F(DrmRegisterAnalyserTest, RefusesAnotherModeAndModesWithoutFunctions)
{
    ASSERT_EQ(lib::DrmRegisterAnalyser(9, Local, 3, nullptr, kFail, 0), 0u);

    EXPECT_EQ(lib::DrmRegisterAnalyser(9, Local, 3, nullptr, kFail, 1), kFail);
    EXPECT_EQ(lib::DrmRegisterAnalyser(10, Local, 3, nullptr, kFail, 1), kFail);
    EXPECT_EQ(lib::DrmRegisterAnalyser(11, Local, 3, nullptr, kFail, 7), kFail);

    EXPECT_EQ(Logged(3, "DRM_FRM: Unsupport for different scheduler mode (1)."), 1u);
    EXPECT_EQ(Logged(3, "no scheduleMode matched input value [1]."), 1u);
    EXPECT_EQ(Logged(3, "no scheduleMode matched input value [7]."), 1u);
}

TEST_F(DrmRegisterAnalyserTest, TaskTableRefusesNullAndBadIdentifiers)
{
    lib::DrmBaseScheduleTaskItem item{32, 0, 3, kFail, Local, nullptr};

    EXPECT_EQ(lib::DrmRegisterSeperateSchedTask(nullptr), kFail);
    EXPECT_EQ(lib::DrmRegisterSeperateSchedTask(&item), kFail);

    EXPECT_EQ(Logged(3, "task is NULL"), 1u);
    EXPECT_EQ(Logged(3, "Invalid featureId(32)."), 1u);
}

class DrmTickTest : public DrmTest {
protected:
    static void Tick(int count)
    {
        for (int i = 0; i < count; i++) {
            lib::DrmTaskSchedulerTimerHandler(nullptr);
        }
    }
};

TEST_F(DrmTickTest, TheTimerIsPeriodicOf1000Milliseconds)
{
    const std::vector<HostTimer> timers = HostTimers();

    ASSERT_THAT(timers, SizeIs(1));
    EXPECT_EQ(timers[0].cycleMs, 1000u);
    EXPECT_EQ(timers[0].name, "(DrmTimerProc)");
    EXPECT_EQ(timers[0].added, 1u);
    ExpireLastTimer();
    ExpireLastTimer();
    EXPECT_THAT(HostTimers()[0].modified, ElementsAre(1000u, 1000u));
}

TEST_F(DrmTickTest, LocalRunsComeAtTicks147AndMasterRunsAt51015)
{
    ASSERT_EQ(lib::DrmRegisterAnalyser(20, Local, 3, nullptr, kFail, 0), 0u);
    ASSERT_EQ(lib::DrmRegisterAnalyser(21, nullptr, kFail, Master, 5, 0), 0u);
    std::vector<int> local;
    std::vector<int> master;

    for (int tick = 1; tick <= 15; tick++) {
        ExpireLastTimer();
        const bool due = tick % 3 == 1 || tick % 5 == 0;
        const size_t expected = local.size() + master.size() + (tick % 3 == 1 ? 1u : 0u) + (tick % 5 == 0 ? 1u : 0u);
        ASSERT_TRUE(!due || WaitForRuns(expected)) << tick;
        for (size_t i = local.size() + master.size(), n = Runs().size(); i < n; i++) {
            (Runs()[i] == "local 0" ? local : master).push_back(tick);
            EXPECT_TRUE(Runs()[i] == "local 0" || Runs()[i] == "master 0 0") << Runs()[i];
        }
    }

    EXPECT_THAT(local, ElementsAre(1, 4, 7, 10, 13));
    EXPECT_THAT(master, ElementsAre(5, 10, 15));
}

TEST_F(DrmTickTest, CycleOf1HasNoLocalRunsAndCycle0NoneAtAll)
{
    ASSERT_EQ(lib::DrmRegisterAnalyser(20, Local, 1, Master, 0, 0), 0u);
    ASSERT_EQ(lib::DrmRegisterAnalyser(21, OtherLocal, 0, Master, 1, 0), 0u);

    Tick(4);

    ASSERT_TRUE(WaitForRuns(1));
    for (const std::string &run : Runs()) {
        EXPECT_EQ(run, "master 0 0"); // of feature 21
    }
}

TEST_F(DrmTickTest, AModeWithoutFunctionsIsPassedOver)
{
    ASSERT_EQ(lib::DrmRegisterAnalyser(10, Local, 3, nullptr, kFail, 1), kFail);
    ASSERT_EQ(lib::DrmRegisterAnalyser(11, Local, 3, nullptr, kFail, 7), kFail);

    Tick(1);

    EXPECT_EQ(Logged(3, "invalid feature: featureId=[11] scheduleMode=[7]."), 1u);
    EXPECT_THAT(Runs(), IsEmpty());
}

TEST_F(DrmTickTest, TheHandlerOfOneFeatureTakesAnyTick)
{
    ASSERT_EQ(lib::DrmRegisterAnalyser(20, Local, 100, Master, 100, 0), 0u);

    lib::DrmSeperateSchedTickHandler(20, 0x100000000ULL * 100 + 1);
    ASSERT_TRUE(WaitForRuns(1));
    lib::DrmSeperateSchedTickHandler(20, 0x100000000ULL * 100);
    ASSERT_TRUE(WaitForRuns(2));

    EXPECT_THAT(Runs(), ElementsAre("local 0", "master 0 0"));
}

class DrmTriggerTest : public DrmTest {
protected:
    void TearDown() override { Release(); }

    static uint32_t Held(uint32_t code)
    {
        AddRun("begin " + std::to_string(code));
        while (hold_ && code == 1) {
            std::this_thread::yield();
        }
        return 0;
    }
    static void Release() { hold_ = false; }

    static inline std::atomic<bool> hold_{true};
};

TEST_F(DrmTriggerTest, NeedsARegisteredFeature)
{
    EXPECT_EQ(lib::DrmTriggerLocalAnalysis(32, 0), kFail);
    EXPECT_EQ(lib::DrmTriggerMasterAnalysis(33, 0), kFail);
    EXPECT_EQ(lib::DrmTriggerLocalAnalysis(9, 0), kFail);
    EXPECT_EQ(lib::DrmTriggerMasterAnalysis(9, 0), kFail);

    EXPECT_EQ(Logged(3, "Invalid featureId(32)."), 1u);
    EXPECT_EQ(Logged(3, "Invalid featureId(33)."), 1u);
    EXPECT_THAT(HostLines(), SizeIs(2));
}

TEST_F(DrmTriggerTest, BadQueuesAreLoggedOnceInAWhile)
{
    const char *text = "Node is not in normal stat, skip schedule.";

    EXPECT_EQ(lib::DrmTriggerSeperateSchedAnalysis(3, 2, 0), kFail);
    EXPECT_EQ(lib::DrmTriggerSeperateSchedAnalysis(32, 0, 0), kFail);
    EXPECT_EQ(HostLogged(text), 1u);

    g_hostResults.jiffies += 899999; // the window counts from the last line
    EXPECT_EQ(lib::DrmTriggerSeperateSchedAnalysis(3, 2, 0), kFail);
    EXPECT_EQ(HostLogged(text), 1u);
    g_hostResults.jiffies += 1;
    EXPECT_EQ(lib::DrmTriggerSeperateSchedAnalysis(3, 2, 0), kFail);
    EXPECT_EQ(HostLogged(text), 2u);
}

TEST_F(DrmTriggerTest, ItemsOfOneCodeCoalesceAndTheRunningWorkerTakesLaterOnes)
{
    ASSERT_EQ(lib::DrmRegisterAnalyser(20, Held, 3, nullptr, kFail, 0), 0u);
    ASSERT_EQ(lib::DrmTriggerLocalAnalysis(20, 1), 0u);
    ASSERT_TRUE(WaitForRuns(1));

    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(lib::DrmTriggerLocalAnalysis(20, 64), 0u);
        EXPECT_EQ(lib::DrmTriggerLocalAnalysis(20, 0), 0u);
    }
    EXPECT_THAT(Runs(), SizeIs(1));
    Release();

    ASSERT_TRUE(WaitForRuns(3));
    EXPECT_EQ(lib::DrmTriggerLocalAnalysis(20, 5), 0u);
    ASSERT_TRUE(WaitForRuns(4));
    EXPECT_THAT(Runs(), ElementsAre("begin 1", "begin 64", "begin 0", "begin 5"));
}

TEST_F(DrmTriggerTest, FeaturesRunBesideEachOtherAndSoDoTheTwoKinds)
{
    ASSERT_EQ(lib::DrmRegisterAnalyser(20, Held, 3, Master, 5, 0), 0u);
    ASSERT_EQ(lib::DrmRegisterAnalyser(21, Local, 3, nullptr, kFail, 0), 0u);
    ASSERT_EQ(lib::DrmTriggerLocalAnalysis(20, 1), 0u);
    ASSERT_TRUE(WaitForRuns(1));

    EXPECT_EQ(lib::DrmTriggerMasterAnalysis(20, 0), 0u);
    EXPECT_EQ(lib::DrmTriggerLocalAnalysis(21, 0), 0u);

    EXPECT_TRUE(WaitForRuns(3));
}

TEST_F(DrmTriggerTest, MissingAnalyserDropsTheItem)
{
    ASSERT_EQ(lib::DrmRegisterAnalyser(20, Local, 3, nullptr, kFail, 0), 0u);

    EXPECT_EQ(lib::DrmTriggerMasterAnalysis(20, 64), 0u);
    lib::DrmExecSeperateSchedAnalysis(20, 0, 64);
    lib::DrmExecSeperateSchedAnalysis(20, 1, 64);

    EXPECT_THAT(Runs(), ElementsAre("local 64"));
}

TEST_F(DrmTriggerTest, WithoutMemoryForTheItemItFails)
{
    ASSERT_EQ(lib::DrmRegisterAnalyser(20, Local, 3, nullptr, kFail, 0), 0u);
    g_hostResults.allocStructure = 1;

    EXPECT_EQ(lib::DrmTriggerLocalAnalysis(20, 1), kFail);
    EXPECT_EQ(lib::DrmTriggerLocalAnalysis(20, 1), kFail);

    EXPECT_EQ(HostLogged("Alloc mem failed!."), 1u);
    EXPECT_EQ(HostLogged("Node is not in normal stat, skip schedule."), 0u);
}

TEST_F(DrmTriggerTest, AWorkerThatDoesNotStartLeavesTheItemForTheNextTrigger)
{
    ASSERT_EQ(lib::DrmRegisterAnalyser(20, Local, 3, nullptr, kFail, 0), 0u);
    g_hostResults.heapUntilFailure = 0;

    EXPECT_EQ(lib::DrmTriggerLocalAnalysis(20, 1), 0u);
    EXPECT_EQ(Logged(3, "DrmAsyncThreadCtxRun alloc param failed."), 1u);
    EXPECT_THAT(Runs(), IsEmpty());
    EXPECT_EQ(lib::DrmTriggerLocalAnalysis(20, 1), 0u); // coalesces: nobody starts a worker
    EXPECT_EQ(lib::DrmTriggerLocalAnalysis(20, 2), 0u);

    ASSERT_TRUE(WaitForRuns(2));
    EXPECT_THAT(Runs(), ElementsAre("local 1", "local 2"));
}

TEST_F(DrmTriggerTest, WorkerTakesEightBytesOnly)
{
    uint32_t data[2] = {20, 1};
    ASSERT_EQ(lib::DrmRegisterAnalyser(20, Local, 3, nullptr, kFail, 0), 0u);

    lib::DrmSeperateSchedAnalysis(data, 12);
    EXPECT_EQ(Logged(3, "BITE:Invlid dataLen 12 compare with stuSize 8."), 1u);
    ClearHostLines();
    data[1] = 2;
    lib::DrmSeperateSchedAnalysis(data, 8);
    data[0] = 32;
    data[1] = 1;
    lib::DrmSeperateSchedAnalysis(data, 8);

    EXPECT_THAT(HostLines(), IsEmpty());
}

std::vector<std::string> g_roles;
bool g_complete = true;

template <int Feature>
void Preprocess(uint32_t role)
{
    g_roles.push_back(std::to_string(Feature) + ":" + std::to_string(role));
}

bool Check()
{
    return g_complete;
}

class DrmRoleTest : public DrmTest {};

TEST_F(DrmRoleTest, PreprocessorsAreCalledInOrderAndACheckerCanSayNo)
{
    EXPECT_EQ(lib::DrmRegisterPreprocessor(16, Preprocess<16>), 0u);
    EXPECT_EQ(lib::DrmRegisterPreprocessor(3, Preprocess<3>), 0u);
    EXPECT_EQ(lib::DrmRegisterPreprocessor(3, nullptr), kFail);
    EXPECT_EQ(lib::DrmRegisterPreprocessor(4, Preprocess<4>), kFail);
    EXPECT_EQ(lib::DrmRegisterPreprocessor(32, Preprocess<4>), kFail);
    EXPECT_TRUE(lib::DrmCheckDemotingComplete());
    EXPECT_EQ(lib::DrmRegisterDemotingChecker(15, Check), 0u);
    EXPECT_EQ(lib::DrmRegisterDemotingChecker(15, nullptr), kFail);
    EXPECT_EQ(lib::DrmRegisterDemotingChecker(4, Check), kFail);

    lib::DrmPromoteMasterPreProc();
    lib::DrmDemoteSlavePreProc();

    EXPECT_THAT(g_roles, ElementsAre("3:0", "16:0", "3:1", "16:1"));
    EXPECT_TRUE(lib::DrmCheckDemotingComplete());
    g_complete = false;
    EXPECT_FALSE(lib::DrmCheckDemotingComplete());
}

class DrmTaskSchedulerInitTest : public DrmTest {};

TEST_F(DrmTaskSchedulerInitTest, FailsWithoutATimer)
{
    g_hostResults.timerSet = 5;

    EXPECT_EQ(lib::DrmTaskSchedulerInit(), kFail);

    EXPECT_EQ(Logged(3, "ZOSA_InitTimer failed, ret: 5."), 1u);
    EXPECT_EQ(Logged(3, "Create TaskScheduler timer failed."), 1u);
}

TEST_F(DrmTaskSchedulerInitTest, FinEndsTheTimerAndInitForgetsTheFeatures)
{
    ASSERT_EQ(lib::DrmRegisterAnalyser(20, Local, 3, nullptr, kFail, 0), 0u);

    EXPECT_EQ(lib::DrmTaskSchedulerFin(), 0u);
    EXPECT_EQ(HostTimers().back().destroyed, 1u);
    EXPECT_EQ(lib::DrmTaskSchedulerInit(), 0u);

    EXPECT_EQ(Logged(6, "Create TaskScheduler timer success."), 1u);
    EXPECT_THAT(HostTimers(), SizeIs(2));
    EXPECT_EQ(lib::DrmTriggerLocalAnalysis(20, 0), kFail);
}

} // namespace
