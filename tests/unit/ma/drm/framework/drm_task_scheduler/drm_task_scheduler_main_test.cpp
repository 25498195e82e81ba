#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_main.h"

#include "ma/drm/framework/drm_timer.h"
#include "unit/ma/drm/framework/drm_task_scheduler/scheduler_fixture.h"

using scheduler_test::AnalyserRun;
using scheduler_test::Local;
using scheduler_test::LocalRun;
using scheduler_test::Master;
using scheduler_test::MasterRun;
using scheduler_test::SchedulerTest;
using scheduler_test::TheJournal;
using scheduler_test::TheWorkers;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DrmRegisterAnalyserTest : public SchedulerTest {};
class DrmRegisterAnalyserModeTest : public SchedulerTest, public ::testing::WithParamInterface<uint32_t> {};
class DrmTriggerAnalysisTest : public SchedulerTest {};
class DrmTaskSchedulerTimerHandlerTest : public SchedulerTest {};
class DrmTaskSchedulerInitTest : public SchedulerTest {};
class DrmTaskSchedulerFinTest : public SchedulerTest {};

TEST_F(DrmRegisterAnalyserTest, TellsTheFeature)
{
    EXPECT_EQ(DrmRegisterAnalyser(31, Local<31>, 3, nullptr, DRM_INVALID, 0), DRM_OK);

    EXPECT_TRUE(HostLogged(CORVANE_LOG_INFO, "DRM_FRM: Register analyser for featureId(31)."));
    EXPECT_EQ(HostLog().size(), 1u);
    EXPECT_EQ(DrmTriggerLocalAnalysis(31, 0), DRM_OK);
    EXPECT_THAT(AllRuns(), ElementsAre(LocalRun(31, 0)));
}

TEST_F(DrmRegisterAnalyserTest, RefusesAnIdentifierWithoutARow)
{
    EXPECT_EQ(DrmRegisterAnalyser(32, Local<31>, 3, nullptr, DRM_INVALID, 0), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(CORVANE_LOG_INFO, "DRM_FRM: Register analyser for featureId(32)."));
    EXPECT_TRUE(HostLogged(CORVANE_LOG_ERROR, "DRM_FRM: Invalid featureId(32), max feature num(32)."));
}

TEST_F(DrmRegisterAnalyserTest, KeepsTheFirstFunctionsAndTheirCycles)
{
    Register(3, Local<3>, 3, Master<3>, 4);

    Register(3, Local<4>, 2, Master<4>, 2);

    EXPECT_THAT(Tick(), ElementsAre(LocalRun(3, 0)));
    EXPECT_THAT(Tick(), IsEmpty());
    EXPECT_THAT(Tick(), IsEmpty());
    EXPECT_EQ(Tick().size(), 2u);
    EXPECT_THAT(TheJournal().Runs(), ::testing::UnorderedElementsAre(LocalRun(3, 0), LocalRun(3, 0), MasterRun(3, 0)));
}

TEST_F(DrmRegisterAnalyserTest, AddsTheMissingAnalyserWithItsCycle)
{
    Register(3, Local<3>, 4, nullptr, 2);

    Register(3, nullptr, 2, Master<3>, 3);

    EXPECT_THAT(Tick(), ElementsAre(LocalRun(3, 0)));
    EXPECT_THAT(Tick(), IsEmpty());
    EXPECT_THAT(Tick(), ElementsAre(MasterRun(3, 0)));
}

TEST_F(DrmRegisterAnalyserTest, AddsALocalAnalyserToAMasterAnalyser)
{
    Register(15, nullptr, DRM_INVALID, Master<15>, 5);

    Register(15, Local<15>, 3, nullptr, 1);

    EXPECT_THAT(Tick(), ElementsAre(LocalRun(15, 0)));
    EXPECT_THAT(Tick(), IsEmpty());
}

TEST_F(DrmRegisterAnalyserTest, RefusesAnotherModeThanBefore)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);

    EXPECT_EQ(DrmRegisterAnalyser(3, nullptr, 0, Master<3>, 1, 2), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(CORVANE_LOG_ERROR, "DRM_FRM: Unsupport for different scheduler mode (2)."));
    EXPECT_EQ(DrmTriggerMasterAnalysis(3, 0), DRM_OK);
    EXPECT_THAT(AllRuns(), IsEmpty()) << "the tasks were not told";
}

TEST_F(DrmRegisterAnalyserTest, ASecondRegistrationLeavesWhatWaits)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    TheJournal().Hold(3, DRM_ANALYSER_LOCAL);
    EXPECT_EQ(DrmTriggerLocalAnalysis(3, 1), DRM_OK);
    ASSERT_TRUE(TheJournal().WaitForRuns(1));
    EXPECT_EQ(DrmTriggerLocalAnalysis(3, 2), DRM_OK);

    Register(3, nullptr, 0, Master<3>, 5);
    TheJournal().Release();

    EXPECT_THAT(AllRuns(), ElementsAre(LocalRun(3, 1), LocalRun(3, 2)));
    EXPECT_EQ(TheWorkers().Started(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Modes, DrmRegisterAnalyserModeTest, ::testing::Values(1u, 2u, 3u, 7u, 0xFFFFFFFFu));

TEST_P(DrmRegisterAnalyserModeTest, RefusesAModeWithoutFunctions)
{
    const uint32_t mode = GetParam();

    EXPECT_EQ(DrmRegisterAnalyser(5, Local<5>, 2, Master<5>, 1, mode), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(CORVANE_LOG_ERROR, "no scheduleMode matched input value [" +
                                                  std::to_string(static_cast<int32_t>(mode)) + "]."));
    EXPECT_EQ(DrmTriggerLocalAnalysis(5, 0), DRM_ERR_FAIL);
    EXPECT_EQ(DrmTriggerMasterAnalysis(5, 0), DRM_ERR_FAIL);
    EXPECT_THAT(AllRuns(), IsEmpty());
}

TEST_P(DrmRegisterAnalyserModeTest, TheTickPassesOverItOrTellsOfIt)
{
    const uint32_t mode = GetParam();
    EXPECT_EQ(DrmRegisterAnalyser(5, Local<5>, 2, Master<5>, 1, mode), DRM_ERR_FAIL);
    Register(6, Local<6>, 2, nullptr, DRM_INVALID);
    ClearHostLog();

    EXPECT_THAT(Tick(), ElementsAre(LocalRun(6, 0)));

    const std::string text =
        "invalid feature: featureId=[5] scheduleMode=[" + std::to_string(static_cast<int32_t>(mode)) + "].";
    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, text), mode < 3 ? 0u : 1u);
}

TEST_F(DrmRegisterAnalyserTest, AFailedModeStaysWithTheFeature)
{
    EXPECT_EQ(DrmRegisterAnalyser(5, Local<5>, 2, nullptr, 0, 1), DRM_ERR_FAIL);

    EXPECT_EQ(DrmRegisterAnalyser(5, Local<5>, 2, nullptr, 0, 0), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(CORVANE_LOG_ERROR, "DRM_FRM: Unsupport for different scheduler mode (0)."));
}

TEST_F(DrmTriggerAnalysisTest, RefusesAnIdentifierWithoutARow)
{
    EXPECT_EQ(DrmTriggerLocalAnalysis(32, 0), DRM_ERR_FAIL);
    EXPECT_EQ(DrmTriggerMasterAnalysis(0xFFFFFFFFu, 0), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "Invalid featureId(32)."), 1u);
    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "Invalid featureId(4294967295)."), 1u);
}

TEST_F(DrmTriggerAnalysisTest, RefusesAFeatureThatIsNotRegistered)
{
    EXPECT_EQ(DrmTriggerLocalAnalysis(3, 0), DRM_ERR_FAIL);
    EXPECT_EQ(DrmTriggerMasterAnalysis(3, 0), DRM_ERR_FAIL);

    EXPECT_EQ(TheWorkers().Started(), 0u);
}

TEST_F(DrmTriggerAnalysisTest, EachRunsItsAnalyserWithTheCode)
{
    Register(16, Local<16>, 0, Master<16>, 0);

    EXPECT_EQ(DrmTriggerLocalAnalysis(16, 0x00050040), DRM_OK);
    EXPECT_THAT(AllRuns(), ElementsAre(LocalRun(16, 0x00050040)));
    EXPECT_EQ(DrmTriggerMasterAnalysis(16, 0xFFFE0040), DRM_OK);

    EXPECT_THAT(AllRuns(),
                ElementsAre(LocalRun(16, 0x00050040), AnalyserRun{16, DRM_ANALYSER_MASTER, 0xFFFE, 0xFFFE0040}));
}

TEST_F(DrmTriggerAnalysisTest, AMissingAnalyserDropsTheRun)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    Register(15, nullptr, DRM_INVALID, Master<15>, 5);
    ClearHostLog();

    EXPECT_EQ(DrmTriggerMasterAnalysis(3, DRM_CODE_DISK_EVENT), DRM_OK);
    EXPECT_EQ(DrmTriggerLocalAnalysis(15, DRM_CODE_DISK_EVENT), DRM_OK);

    EXPECT_THAT(AllRuns(), IsEmpty());
    EXPECT_EQ(PoolItems(), 0);
    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, ""), 0u);
    for (const HostLine &line : HostLog()) {
        EXPECT_EQ(line.level, CORVANE_LOG_DEBUG) << line.text;
    }
}

TEST_F(DrmTaskSchedulerTimerHandlerTest, LocalRunsFollowTheMultiplesOfTheirCycle)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);

    EXPECT_THAT(BusyTicks(11), ElementsAre(1u, 4u, 7u, 10u));
    EXPECT_EQ(TheJournal().Runs().front(), LocalRun(3, DRM_CODE_SCHEDULE));
}

TEST_F(DrmTaskSchedulerTimerHandlerTest, MasterRunsFallOnTheMultiplesOfTheirCycle)
{
    Register(15, nullptr, DRM_INVALID, Master<15>, 5);
    Register(16, nullptr, DRM_INVALID, Master<16>, 5);

    EXPECT_THAT(BusyTicks(16), ElementsAre(5u, 10u, 15u));
    EXPECT_EQ(TheJournal().Runs().size(), 6u);
}

TEST_F(DrmTaskSchedulerTimerHandlerTest, ACycleOfOneIsEveryTickForMasterRunsAndNeverForLocalOnes)
{
    Register(7, Local<7>, 1, Master<7>, 1);

    for (int tick = 1; tick <= 4; tick++) {
        EXPECT_THAT(Tick(), ElementsAre(MasterRun(7, 0))) << tick;
    }
}

TEST_F(DrmTaskSchedulerTimerHandlerTest, WithoutACycleNothingRuns)
{
    Register(7, Local<7>, 0, Master<7>, 0);
    Register(8, Local<8>, DRM_INVALID, Master<8>, DRM_INVALID);

    EXPECT_THAT(BusyTicks(6), IsEmpty());
    EXPECT_EQ(TheWorkers().Started(), 0u);
}

TEST_F(DrmTaskSchedulerTimerHandlerTest, AsksEveryRow)
{
    Register(0, Local<0>, 2, nullptr, 0);
    Register(31, Local<31>, 2, nullptr, 0);

    EXPECT_THAT(Tick(), ::testing::UnorderedElementsAre(LocalRun(0, 0), LocalRun(31, 0)));
}

TEST_F(DrmTaskSchedulerTimerHandlerTest, AnAnalyserMayRegisterAndTrigger)
{
    const auto analyser = [](uint32_t code) -> uint32_t {
        TheJournal().Note(LocalRun(3, code));
        if (code == 0) {
            EXPECT_EQ(DrmRegisterAnalyser(4, Local<4>, 0, nullptr, 0, 0), DRM_OK);
            EXPECT_EQ(DrmTriggerLocalAnalysis(3, 9), DRM_OK);
        }
        return 0;
    };
    Register(3, analyser, 3, nullptr, DRM_INVALID);

    EXPECT_THAT(Tick(), ElementsAre(LocalRun(3, 0), LocalRun(3, 9)));
    EXPECT_EQ(DrmTriggerLocalAnalysis(4, 0), DRM_OK);
}

TEST_F(DrmTaskSchedulerInitTest, StartsOneTimerOfASecond)
{
    ASSERT_EQ(Timers().size(), 1u);
    EXPECT_EQ(Timers()[0].cycleMs, 1000u);
    EXPECT_TRUE(Timers()[0].armed);
    EXPECT_EQ(g_drmTimerMgr.count, 1u);
    const auto *timer = reinterpret_cast<DrmTimer *>(g_drmTimerMgr.timers.next);
    EXPECT_STREQ(timer->name, "DrmTaskScheduler");
    EXPECT_EQ(timer->type, static_cast<uint32_t>(DRM_TIMER_PERIODIC));
}

TEST_F(DrmTaskSchedulerInitTest, TheTimerTicks)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    const void *timer = Timers()[0].handle;

    for (int tick = 1; tick <= 4; tick++) {
        ASSERT_TRUE(Fire(timer)) << tick;
        ASSERT_TRUE(TheWorkers().WaitIdle());
    }

    EXPECT_EQ(TheJournal().Runs().size(), 2u);
}

TEST_F(DrmTaskSchedulerInitTest, StartsAnew)
{
    Register(3, Local<3>, 3, Master<3>, DRM_INVALID);
    EXPECT_EQ(DrmRegisterPreprocessor(3, [](uint32_t) { ADD_FAILURE() << "forgotten"; }), DRM_OK);
    EXPECT_EQ(DrmRegisterDemotingChecker(3, [] { return false; }), DRM_OK);
    EXPECT_THAT(Tick(), ElementsAre(LocalRun(3, 0)));
    EXPECT_EQ(DrmTaskSchedulerFin(), DRM_OK);
    ClearHostLog();

    EXPECT_EQ(DrmTaskSchedulerInit(), DRM_OK);

    EXPECT_TRUE(HostLogged(CORVANE_LOG_INFO, "Create TaskScheduler timer success."));
    EXPECT_EQ(DrmTriggerLocalAnalysis(3, 0), DRM_ERR_FAIL);
    DrmPromoteMasterPreProc();
    EXPECT_TRUE(DrmCheckDemotingComplete());
    Register(4, Local<4>, 3, nullptr, DRM_INVALID);
    EXPECT_THAT(Tick(), ElementsAre(LocalRun(4, 0))) << "this is the first tick again";
}

TEST_F(DrmTaskSchedulerInitTest, FailsWithoutATimer)
{
    EXPECT_EQ(DrmTaskSchedulerFin(), DRM_OK);
    ClearHostLog();
    Knobs().timerAdd = 1;

    EXPECT_EQ(DrmTaskSchedulerInit(), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(CORVANE_LOG_ERROR, "Create TaskScheduler timer failed."));
    EXPECT_FALSE(HostLogged(CORVANE_LOG_INFO, "Create TaskScheduler timer success."));
    EXPECT_THAT(Timers(), IsEmpty());
}

TEST_F(DrmTaskSchedulerFinTest, EndsTheTimerAndWaitsForNoWorker)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    TheJournal().Hold(3, DRM_ANALYSER_LOCAL);
    EXPECT_EQ(DrmTriggerLocalAnalysis(3, 0), DRM_OK);
    ASSERT_TRUE(TheJournal().WaitForRuns(1));

    EXPECT_EQ(DrmTaskSchedulerFin(), DRM_OK);

    EXPECT_THAT(Timers(), IsEmpty());
    EXPECT_EQ(DrmTriggerLocalAnalysis(3, 1), DRM_OK) << "the registrations stay";
    TheJournal().Release();
    EXPECT_THAT(AllRuns(), ElementsAre(LocalRun(3, 0), LocalRun(3, 1)));
}
