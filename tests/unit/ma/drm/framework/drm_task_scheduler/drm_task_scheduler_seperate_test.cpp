#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_seperate.h"

#include <cstdlib>

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

namespace {

uint32_t TriggerLocal(uint32_t featureId, uint32_t code)
{
    return DrmTriggerSeperateSchedAnalysis(featureId, DRM_ANALYSER_LOCAL, code);
}

uint32_t TriggerMaster(uint32_t featureId, uint32_t code)
{
    return DrmTriggerSeperateSchedAnalysis(featureId, DRM_ANALYSER_MASTER, code);
}

/** What the analysers were told of the role, in order. */
std::vector<std::pair<uint32_t, uint32_t>> g_roles;
bool g_demoted = false;
uint32_t g_asked = 0;

template <uint32_t FeatureId>
void NoteRole(uint32_t role)
{
    g_roles.emplace_back(FeatureId, role);
}

/** A rate-limited place, made to speak once. */
struct LimitedPlace {
    const char *text;
    uint32_t (*use)(HostKnobs &knobs);
};

uint32_t UseWithoutMemory(HostKnobs &knobs)
{
    knobs.itemFailAfter = 0;
    const uint32_t result = TriggerLocal(3, 77);
    knobs.itemFailAfter = -1;
    return result;
}

uint32_t UseWithBadKind(HostKnobs &)
{
    return DrmTriggerSeperateSchedAnalysis(3, 2, 0);
}

/** A moment later than any other test has seen: the places remember when they spoke. */
uint64_t LaterMoment()
{
    static uint64_t moment = uint64_t{1} << 40;
    moment += uint64_t{1} << 30;
    return moment;
}

} // namespace

class DrmRegisterSeperateSchedTaskTest : public SchedulerTest {};
class DrmRegisterPreprocessorTest : public SchedulerTest {
protected:
    DrmRegisterPreprocessorTest()
    {
        g_roles.clear();
        g_demoted = false;
        g_asked = 0;
    }
};
class DrmSeperateSchedTickHandlerTest : public SchedulerTest {};
class DrmTriggerSeperateSchedAnalysisTest : public SchedulerTest {};
class DrmTriggerLimitTest : public SchedulerTest, public ::testing::WithParamInterface<LimitedPlace> {
protected:
    size_t Said() const { return HostLogCount(CORVANE_LOG_ERROR, GetParam().text); }
    /** Whatever the place remembers of other tests, it reports at this moment; then one line more is missed. */
    static void MissOneAfterAReportAt(uint64_t moment)
    {
        SetJiffies(moment - 9000000);
        (void)GetParam().use(Knobs());
        (void)GetParam().use(Knobs());
        SetJiffies(moment);
        (void)GetParam().use(Knobs());
        (void)GetParam().use(Knobs());
        ClearHostLog();
    }
    /** How many reports of so many missed lines there are. */
    static size_t Reported(uint32_t missed)
    {
        const std::string start = "print: " + std::to_string(missed) + " messages suppressed.";
        size_t count = 0;
        for (const HostLine &line : HostLog()) {
            if (line.level == CORVANE_LOG_ERROR &&
                line.text == start + line.func + ",line=" + std::to_string(line.line) + ".") {
                count++;
            }
        }
        return count;
    }
};
class DrmSeperateSchedAnalysisTest : public SchedulerTest {};
class DrmExecSeperateSchedAnalysisTest : public SchedulerTest {};

TEST_F(DrmRegisterSeperateSchedTaskTest, RefusesNothingAndABadIdentifier)
{
    DrmBaseScheduleTaskItem item = {32, DRM_SCHEDULE_SEPERATE, 0, 0, nullptr, nullptr};

    EXPECT_EQ(DrmRegisterSeperateSchedTask(nullptr), DRM_ERR_FAIL);
    EXPECT_EQ(DrmRegisterSeperateSchedTask(&item), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "task is NULL"), 1u);
    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "Invalid featureId(32)."), 1u);
}

TEST_F(DrmRegisterSeperateSchedTaskTest, CopiesTheItem)
{
    DrmBaseScheduleTaskItem item = {9, DRM_SCHEDULE_SEPERATE, 0, 0, Local<9>, nullptr};

    EXPECT_EQ(DrmRegisterSeperateSchedTask(&item), DRM_OK);
    item.localAnalyser = nullptr;

    EXPECT_EQ(TriggerLocal(9, 5), DRM_OK);
    EXPECT_THAT(AllRuns(), ElementsAre(LocalRun(9, 5)));
}

TEST_F(DrmRegisterPreprocessorTest, NeedsARegisteredFeatureAndAFunction)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    EXPECT_EQ(DrmRegisterAnalyser(4, Local<4>, 3, nullptr, DRM_INVALID, DRM_SCHEDULE_RESERVED), DRM_ERR_FAIL);
    DrmBaseScheduleTaskItem reserved = {6, DRM_SCHEDULE_RESERVED, 0, 0, nullptr, nullptr};
    EXPECT_EQ(DrmRegisterSeperateSchedTask(&reserved), DRM_OK);

    for (const uint32_t featureId : {4u, 5u, 6u, 32u, 0xFFFFFFFFu}) {
        EXPECT_EQ(DrmRegisterPreprocessor(featureId, NoteRole<5>), DRM_ERR_FAIL) << featureId;
        EXPECT_EQ(DrmRegisterDemotingChecker(featureId, [] { return false; }), DRM_ERR_FAIL) << featureId;
    }
    EXPECT_EQ(DrmRegisterPreprocessor(3, nullptr), DRM_ERR_FAIL);
    EXPECT_EQ(DrmRegisterDemotingChecker(3, nullptr), DRM_ERR_FAIL);

    DrmPromoteMasterPreProc();
    EXPECT_THAT(g_roles, IsEmpty());
    EXPECT_TRUE(DrmCheckDemotingComplete());
}

TEST_F(DrmRegisterPreprocessorTest, AreCalledInTheOrderOfTheIdentifiers)
{
    for (const uint32_t featureId : {31u, 0u, 16u}) {
        Register(featureId, nullptr, 0, Master<0>, 5);
    }
    EXPECT_EQ(DrmRegisterPreprocessor(31, NoteRole<31>), DRM_OK);
    EXPECT_EQ(DrmRegisterPreprocessor(16, NoteRole<16>), DRM_OK);
    EXPECT_EQ(DrmRegisterPreprocessor(0, NoteRole<0>), DRM_OK);

    DrmPromoteMasterPreProc();
    DrmDemoteSlavePreProc();

    using Role = std::pair<uint32_t, uint32_t>;
    EXPECT_THAT(g_roles, ElementsAre(Role(0, 0), Role(16, 0), Role(31, 0), Role(0, 1), Role(16, 1), Role(31, 1)));
}

TEST_F(DrmRegisterPreprocessorTest, SurvivesASecondRegistrationOfTheFeature)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    EXPECT_EQ(DrmRegisterPreprocessor(3, NoteRole<3>), DRM_OK);

    Register(3, nullptr, 0, Master<3>, 5);
    DrmDemoteSlavePreProc();

    EXPECT_EQ(g_roles.size(), 1u);
}

TEST_F(DrmRegisterPreprocessorTest, MayUseTheScheduler)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    EXPECT_EQ(DrmRegisterPreprocessor(
                  3, [](uint32_t role) { EXPECT_EQ(DrmRegisterPreprocessor(3, NoteRole<3>), DRM_OK) << role; }),
              DRM_OK);

    DrmPromoteMasterPreProc();
    DrmPromoteMasterPreProc();

    EXPECT_EQ(g_roles.size(), 1u);
}

TEST_F(DrmRegisterPreprocessorTest, DemotionIsCompleteUnlessACheckerSaysNo)
{
    EXPECT_TRUE(DrmCheckDemotingComplete());
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    Register(15, nullptr, DRM_INVALID, Master<15>, 5);
    EXPECT_EQ(DrmRegisterDemotingChecker(3,
                                         [] {
                                             g_asked++;
                                             return true;
                                         }),
              DRM_OK);
    EXPECT_EQ(DrmRegisterDemotingChecker(15, [] { return g_demoted; }), DRM_OK);

    EXPECT_FALSE(DrmCheckDemotingComplete());
    g_demoted = true;
    EXPECT_TRUE(DrmCheckDemotingComplete());

    EXPECT_EQ(g_asked, 2u);
}

TEST_F(DrmSeperateSchedTickHandlerTest, CountsBeyondThirtyTwoBits)
{
    Register(3, Local<3>, 5, Master<3>, 5);

    DrmSeperateSchedTickHandler(3, (uint64_t{1} << 32) + 4); // 2^32 is one more than a multiple of 5

    EXPECT_THAT(AllRuns(), ElementsAre(MasterRun(3, 0)));
    DrmSeperateSchedTickHandler(3, uint64_t{1} << 32);
    EXPECT_THAT(AllRuns(), ElementsAre(MasterRun(3, 0), LocalRun(3, 0)));
}

TEST_F(DrmSeperateSchedTickHandlerTest, LeavesABadIdentifierAlone)
{
    DrmSeperateSchedTickHandler(32, 1);
    DrmSeperateSchedTickHandler(DRM_INVALID, 1);
    DrmSeperateSchedTickHandler(4, 1);

    EXPECT_EQ(TheWorkers().Started(), 0u);
}

TEST_F(DrmTriggerSeperateSchedAnalysisTest, OneItemWaitsForEachCode)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    TheWorkers().Hold(true);

    EXPECT_EQ(TriggerLocal(3, DRM_CODE_DISK_EVENT), DRM_OK);
    EXPECT_EQ(TriggerLocal(3, DRM_CODE_DISK_EVENT), DRM_OK);
    EXPECT_EQ(TriggerLocal(3, DRM_CODE_SCHEDULE), DRM_OK);
    EXPECT_EQ(TriggerLocal(3, 5), DRM_OK);
    EXPECT_EQ(TriggerLocal(3, DRM_CODE_SCHEDULE), DRM_OK);

    EXPECT_EQ(PoolItems(), 3);
    EXPECT_EQ(TheWorkers().Started(), 1u);
    TheWorkers().Hold(false);
    EXPECT_THAT(AllRuns(), ElementsAre(LocalRun(3, 64), LocalRun(3, 0), LocalRun(3, 5)));
    EXPECT_EQ(PoolItems(), 0);
}

TEST_F(DrmTriggerSeperateSchedAnalysisTest, AWaitingCodeNeedsNoMemory)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    TheWorkers().Hold(true);
    EXPECT_EQ(TriggerLocal(3, 64), DRM_OK);
    Knobs().itemFailAfter = 0;

    EXPECT_EQ(TriggerLocal(3, 64), DRM_OK);
    EXPECT_EQ(TriggerLocal(3, 65), DRM_ERR_FAIL);
}

TEST_F(DrmTriggerSeperateSchedAnalysisTest, WithoutMemoryTheQueueGoesOn)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    Knobs().itemFailAfter = 0;
    EXPECT_EQ(TriggerLocal(3, 1), DRM_ERR_FAIL);
    EXPECT_EQ(TheWorkers().Started(), 0u);
    Knobs().itemFailAfter = -1;

    EXPECT_EQ(TriggerLocal(3, 2), DRM_OK);

    EXPECT_THAT(AllRuns(), ElementsAre(LocalRun(3, 2)));
}

TEST_F(DrmTriggerSeperateSchedAnalysisTest, ATriggerDuringARunIsServedByTheSameWorker)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    TheJournal().Hold(3, DRM_ANALYSER_LOCAL);
    EXPECT_EQ(TriggerLocal(3, 64), DRM_OK);
    ASSERT_TRUE(TheJournal().WaitForRuns(1));
    EXPECT_EQ(PoolItems(), 1) << "the item lives as long as its run";

    EXPECT_EQ(TriggerLocal(3, 64), DRM_OK);
    EXPECT_EQ(PoolItems(), 2) << "the running item waits no more";
    TheJournal().Release();

    EXPECT_THAT(AllRuns(), ElementsAre(LocalRun(3, 64), LocalRun(3, 64)));
    EXPECT_EQ(TheWorkers().Started(), 1u);
}

TEST_F(DrmTriggerSeperateSchedAnalysisTest, TheWorkerFinishesItsBatchFirst)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    TheJournal().Hold(3, DRM_ANALYSER_LOCAL);
    TheWorkers().Hold(true);
    EXPECT_EQ(TriggerLocal(3, 1), DRM_OK);
    EXPECT_EQ(TriggerLocal(3, 2), DRM_OK);
    TheWorkers().Hold(false);
    ASSERT_TRUE(TheJournal().WaitForRuns(1));

    EXPECT_EQ(TriggerLocal(3, 3), DRM_OK);
    EXPECT_EQ(TriggerLocal(3, 2), DRM_OK);
    EXPECT_EQ(TriggerLocal(3, 1), DRM_OK);
    TheJournal().Release();

    EXPECT_THAT(AllRuns(), ElementsAre(LocalRun(3, 1), LocalRun(3, 2), LocalRun(3, 3), LocalRun(3, 2), LocalRun(3, 1)));
}

TEST_F(DrmTriggerSeperateSchedAnalysisTest, AnEmptyQueueGetsANewWorker)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);

    for (uint32_t round = 1; round <= 3; round++) {
        EXPECT_EQ(TriggerLocal(3, 64), DRM_OK);
        EXPECT_EQ(AllRuns().size(), round);
        EXPECT_EQ(TheWorkers().Started(), round);
    }
}

TEST_F(DrmTriggerSeperateSchedAnalysisTest, ARunWhoseWorkerDidNotStartWaitsForTheNextTrigger)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    TheWorkers().Refuse(true);
    EXPECT_EQ(TriggerLocal(3, 64), DRM_OK);
    EXPECT_EQ(PoolItems(), 1);
    EXPECT_TRUE(HostLogged(CORVANE_LOG_ERROR, "Create pthread failed."));
    TheWorkers().Refuse(false);
    EXPECT_THAT(AllRuns(), IsEmpty());

    EXPECT_EQ(TriggerLocal(3, 0), DRM_OK);

    EXPECT_THAT(AllRuns(), ElementsAre(LocalRun(3, 64), LocalRun(3, 0)));
    EXPECT_EQ(TheWorkers().Started(), 1u);
}

TEST_F(DrmTriggerSeperateSchedAnalysisTest, TheNextTriggerMayHaveTheSameCode)
{
    Register(15, nullptr, DRM_INVALID, Master<15>, 1);
    TheWorkers().Refuse(true);
    DrmTaskSchedulerTimerHandler(nullptr);
    TheWorkers().Refuse(false);

    EXPECT_THAT(Tick(), ElementsAre(MasterRun(15, 0)));
}

TEST_F(DrmTriggerSeperateSchedAnalysisTest, FeaturesAndKindsRunSideBySide)
{
    Register(3, Local<3>, 3, Master<3>, 5);
    Register(15, Local<15>, 3, nullptr, DRM_INVALID);
    TheJournal().Hold(3, DRM_ANALYSER_LOCAL);
    EXPECT_EQ(TriggerLocal(3, 1), DRM_OK);
    ASSERT_TRUE(TheJournal().WaitForRuns(1));

    EXPECT_EQ(TriggerMaster(3, 1), DRM_OK);
    ASSERT_TRUE(TheJournal().WaitForRuns(2)) << "the master run waits for the local one";
    EXPECT_EQ(TriggerLocal(15, 1), DRM_OK);
    ASSERT_TRUE(TheJournal().WaitForRuns(3)) << "one feature waits for another";

    EXPECT_THAT(TheJournal().Runs(), ElementsAre(LocalRun(3, 1), MasterRun(3, 1), LocalRun(15, 1)));
}

TEST_F(DrmTriggerSeperateSchedAnalysisTest, RefusesABadKindAndABadIdentifier)
{
    EXPECT_EQ(DrmTriggerSeperateSchedAnalysis(3, 2, 0), DRM_ERR_FAIL);
    EXPECT_EQ(DrmTriggerSeperateSchedAnalysis(32, 0, 0), DRM_ERR_FAIL);

    EXPECT_EQ(PoolItems(), 0);
    EXPECT_EQ(TheWorkers().Started(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Places, DrmTriggerLimitTest,
                         ::testing::Values(LimitedPlace{"Node is not in normal stat, skip schedule.", UseWithBadKind},
                                           LimitedPlace{"Alloc mem failed!.", UseWithoutMemory}));

TEST_P(DrmTriggerLimitTest, SpeaksOncePerWindow)
{
    const uint64_t start = LaterMoment();
    SetJiffies(start);
    EXPECT_EQ(GetParam().use(Knobs()), DRM_ERR_FAIL);
    EXPECT_EQ(Said(), 1u);

    EXPECT_EQ(GetParam().use(Knobs()), DRM_ERR_FAIL);
    SetJiffies(start + 899999);
    EXPECT_EQ(GetParam().use(Knobs()), DRM_ERR_FAIL);
    EXPECT_EQ(Said(), 1u);

    SetJiffies(start + 900000);
    EXPECT_EQ(GetParam().use(Knobs()), DRM_ERR_FAIL);
    EXPECT_EQ(Said(), 2u);
}

TEST_P(DrmTriggerLimitTest, ReportsMissedLinesOncePerInterval)
{
    const uint64_t start = LaterMoment();
    MissOneAfterAReportAt(start);

    SetJiffies(start + 8999999 - 900000);
    (void)GetParam().use(Knobs());
    SetJiffies(start + 8999999);
    (void)GetParam().use(Knobs());
    EXPECT_EQ(Said(), 2u);
    EXPECT_EQ(Reported(1), 0u);

    SetJiffies(start + 8999999 + 900000);
    (void)GetParam().use(Knobs());
    EXPECT_EQ(Said(), 3u);
    EXPECT_EQ(Reported(1), 1u);
}

TEST_P(DrmTriggerLimitTest, TheIntervalEndsToTheJiffy)
{
    const uint64_t start = LaterMoment();
    MissOneAfterAReportAt(start);

    SetJiffies(start + 9000000);
    (void)GetParam().use(Knobs());

    EXPECT_EQ(Reported(1), 1u);
}

TEST_F(DrmSeperateSchedAnalysisTest, RefusesDataOfAnotherLength)
{
    uint32_t data[3] = {3, DRM_ANALYSER_LOCAL, 0};

    DrmSeperateSchedAnalysis(data, 4);
    DrmSeperateSchedAnalysis(data, 12);
    DrmSeperateSchedAnalysis(nullptr, 0);

    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "BITE:Invlid dataLen 4 compare with stuSize 8."), 1u);
    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "BITE:Invlid dataLen 12 compare with stuSize 8."), 1u);
    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "BITE:Invlid dataLen 0 compare with stuSize 8."), 1u);
}

TEST_F(DrmSeperateSchedAnalysisTest, EndsSilentlyOnBadData)
{
    uint32_t badFeature[2] = {32, DRM_ANALYSER_LOCAL};
    uint32_t badKind[2] = {3, 2};

    DrmSeperateSchedAnalysis(badFeature, 8);
    DrmSeperateSchedAnalysis(badKind, 8);
    DrmSeperateSchedAnalysis(nullptr, 8);

    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmSeperateSchedAnalysisTest, DrainsTheQueueOnTheCallersThread)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    TheWorkers().Refuse(true);
    EXPECT_EQ(TriggerLocal(3, 1), DRM_OK);
    EXPECT_EQ(TriggerLocal(3, 2), DRM_OK);
    uint32_t data[2] = {3, DRM_ANALYSER_LOCAL};

    DrmSeperateSchedAnalysis(data, 8);

    EXPECT_THAT(TheJournal().Runs(), ElementsAre(LocalRun(3, 1), LocalRun(3, 2)));
    EXPECT_EQ(PoolItems(), 0);
}

TEST_F(DrmSeperateSchedAnalysisTest, TheGateLetsOneWorkerIn)
{
    Register(3, Local<3>, 3, nullptr, DRM_INVALID);
    TheJournal().Hold(3, DRM_ANALYSER_LOCAL);
    EXPECT_EQ(TriggerLocal(3, 1), DRM_OK);
    ASSERT_TRUE(TheJournal().WaitForRuns(1));
    EXPECT_EQ(TriggerLocal(3, 2), DRM_OK);
    uint32_t data[2] = {3, DRM_ANALYSER_LOCAL};

    DrmSeperateSchedAnalysis(data, 8);
    DrmSeperateSchedAnalysis(data, 8);

    EXPECT_EQ(TheJournal().Runs().size(), 1u) << "the second worker ends at once";
    TheJournal().Release();
    EXPECT_EQ(AllRuns().size(), 2u);
    EXPECT_EQ(TriggerLocal(3, 3), DRM_OK);
    EXPECT_THAT(AllRuns(), ElementsAre(LocalRun(3, 1), LocalRun(3, 2), LocalRun(3, 3))) << "the gate is free again";
}

TEST_F(DrmExecSeperateSchedAnalysisTest, RunsTheAnalyserOfTheKind)
{
    Register(3, Local<3>, 3, Master<3>, 5);

    DrmExecSeperateSchedAnalysis(3, DRM_ANALYSER_MASTER, 0x00020001);
    DrmExecSeperateSchedAnalysis(3, DRM_ANALYSER_LOCAL, 0x00020001);
    DrmExecSeperateSchedAnalysis(3, 2, 0);
    DrmExecSeperateSchedAnalysis(32, 0, 0);
    DrmExecSeperateSchedAnalysis(4, 0, 0);

    EXPECT_THAT(TheJournal().Runs(),
                ElementsAre(AnalyserRun{3, DRM_ANALYSER_MASTER, 2, 0x00020001}, LocalRun(3, 0x00020001)));
}
