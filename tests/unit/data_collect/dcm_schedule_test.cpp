#include "data_collect/data_collect_master/dcm_schedule.h"

#include "dcm_agent.h"

using namespace dcm_test;

namespace {

const char kNeverInit[] = "Invoker are never Init DCM or init fail but no retry.";

int g_locksLeft;

/** Seconds between "now" and the last success of I/O, and the sleep that follows. */
struct Elapsed {
    time_t seconds;
    uint32_t sleepMs;
};

class InitDataCollectMasterTest : public DcmTest {};
class NotInitialisedTest : public DcmTest {};
class ScheduleTest : public DcmTest {
protected:
    ScheduleTest() { EXPECT_EQ(InitDataCollectMaster(), 0u); }

    QueryAgentTaskContext ContextOf(const TestAgent &agent)
    {
        QueryAgentTaskContext context = {};
        context.agent = agent.Info();
        return context;
    }
    void Shut()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        gateOpen_ = false;
    }
};
class QueryAgentScheduleTaskTest : public ScheduleTest {};
class SleepForIoStatTest : public ScheduleTest, public ::testing::WithParamInterface<Elapsed> {};
class SubmitQueryAgentTest : public ScheduleTest {};
class CancelQueryAgentTest : public ScheduleTest {};
class ScanTest : public ScheduleTest {};
class FetchDiskBaseInfoTest : public ScheduleTest {
protected:
    DiskSnRef Sn(const char *text)
    {
        std::strncpy(sn_, text, sizeof(sn_) - 1);
        return {.len = 40, .buf = sn_};
    }
    void Add(const TestAgent &agent) { EXPECT_EQ(UpdateUniqueAgentList(&agent.Info(), &flags_[added_++]), 0u); }

    char sn_[41] = {};
    uint8_t flags_[4] = {};
    size_t added_ = 0;
};

} // namespace

TEST_F(InitDataCollectMasterTest, MakesTheLocksOnce)
{
    EXPECT_EQ(InitDataCollectMaster(), 0u);
    EXPECT_NE(g_uniqueAgentListSpinLock, nullptr);
    EXPECT_NE(g_enableScanAllAgentDeviceListScheduleTaskSpinLock, nullptr);
    EXPECT_NE(g_uniqueScanAllAgentDeviceListScheduleTaskRunningSpinLock, nullptr);

    EXPECT_EQ(InitDataCollectMaster(), 114u);

    EXPECT_TRUE(Logged(4, "DCM", "DataCollectMaster Already Initiated."));
}

TEST_F(InitDataCollectMasterTest, AFailedLockLeavesNothingAndMayBeRepeated)
{
    const char *names[] = {"g_uniqueAgentListSpinLock Create Failed.",
                           "g_enableScanAllAgentDeviceListScheduleTaskSpinLock Create Failed.",
                           "g_uniqueScanAllAgentDeviceListScheduleTaskRunningSpinLock Create Failed."};
    const auto realCreate = g_corvaneInfra.spinlockCreate;
    for (int made = 0; made < 3; made++) {
        g_locksLeft = made;
        static auto create = realCreate;
        g_corvaneInfra.spinlockCreate = []() -> void * { return g_locksLeft-- > 0 ? create() : nullptr; };

        EXPECT_EQ(InitDataCollectMaster(), 12u);

        EXPECT_EQ(LogCount(3, "DCM", names[made]), 1u);
        EXPECT_EQ(g_uniqueAgentListSpinLock, nullptr);
        EXPECT_EQ(g_enableScanAllAgentDeviceListScheduleTaskSpinLock, nullptr);
    }
    g_corvaneInfra.spinlockCreate = realCreate;
    EXPECT_EQ(InitDataCollectMaster(), 0u);
}

TEST_F(NotInitialisedTest, EveryEntryGives11)
{
    char sn[40] = "SN";
    DiskMgrObj record = {};
    uint8_t flag = 0;

    EXPECT_EQ(SubmitQueryAgentScheduleTask(Nobody()), 11u);
    EXPECT_EQ(CancelQueryAgentScheduleTask(Nobody()), 11u);
    EXPECT_EQ(CancelAllQueryAgentScheduleTask(), 11u);
    EXPECT_EQ(SubmitScanAllAgentDeviceListScheduleTask(), 11u);
    EXPECT_EQ(CancelScanAllAgentDeviceListScheduleTask(), 11u);
    EXPECT_EQ(FetchDiskBaseInfo({.len = 40, .buf = sn}, &record), 11u);
    EXPECT_EQ(UpdateUniqueAgentList(&Nobody(), &flag), 11u);

    EXPECT_EQ(LogCount(3, "DCM", kNeverInit), 7u);
    EXPECT_EQ(spawned_, 0u);
}

TEST_F(QueryAgentScheduleTaskTest, TheFirstCycleQueriesAllMessages)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 1));
    QueryAgentTaskContext context = ContextOf(agent);

    QueryAgentScheduleTask(&context);

    std::vector<std::string> methods;
    for (const Request &request : agent.Requests()) {
        methods.push_back(request.method);
    }
    EXPECT_THAT(methods, ::testing::ElementsAre("dca_get_disks_brief_info", "dca_get_disks_base_info",
                                                "dca_get_disks_health_info", "dca_get_disks_iostat"));
    EXPECT_THAT(context.last, ::testing::ElementsAre(1000000, 1000000, 1000000, 1000000));
    EXPECT_THAT(Sleeps(), ::testing::ElementsAre(3000u));
    EXPECT_TRUE(Logged(7, "DCM", "agent(agent) timer sleepMs(3000)."));
}

TEST_F(QueryAgentScheduleTaskTest, MessagesAreDueByTheirPeriods)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 1));
    QueryAgentTaskContext context = ContextOf(agent);
    QueryAgentScheduleTask(&context);

    now_ += 2;
    QueryAgentScheduleTask(&context);
    EXPECT_EQ(agent.Count("dca_get_disks_health_info"), 1u);
    EXPECT_EQ(agent.Count("dca_get_disks_iostat"), 1u);
    now_ += 1;
    QueryAgentScheduleTask(&context);
    EXPECT_EQ(agent.Count("dca_get_disks_health_info"), 2u);
    EXPECT_EQ(agent.Count("dca_get_disks_iostat"), 2u);
    now_ += 3596;
    QueryAgentScheduleTask(&context);
    EXPECT_EQ(agent.Count("dca_get_disks_base_info"), 1u);
    now_ += 1;
    QueryAgentScheduleTask(&context);

    EXPECT_EQ(agent.Count("dca_get_disks_base_info"), 2u);
}

TEST_F(QueryAgentScheduleTaskTest, AClockThatWasSetBackMakesAllMessagesDueOnce)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 1));
    QueryAgentTaskContext context = ContextOf(agent);
    QueryAgentScheduleTask(&context);

    now_ -= 86400;
    QueryAgentScheduleTask(&context);
    EXPECT_EQ(agent.Count("dca_get_disks_base_info"), 2u);
    EXPECT_EQ(agent.Count("dca_get_disks_health_info"), 2u);
    EXPECT_EQ(agent.Count("dca_get_disks_iostat"), 2u);
    now_ += 2;
    QueryAgentScheduleTask(&context);

    EXPECT_EQ(agent.Count("dca_get_disks_base_info"), 2u);
    EXPECT_EQ(agent.Count("dca_get_disks_health_info"), 2u);
    EXPECT_EQ(agent.Count("dca_get_disks_iostat"), 2u);
}

TEST_F(QueryAgentScheduleTaskTest, AFailedMessageStaysDueAndTheSleepIsShort)
{
    const TestAgent::Handler good = GoodAgent("d", 1);
    TestAgent agent("agent", Path("a"), [&](const Request &request) {
        if (request.method == "dca_get_disks_iostat") {
            now_ += 4;
            return std::string("hello");
        }
        return good(request);
    });
    QueryAgentTaskContext context = ContextOf(agent);

    QueryAgentScheduleTask(&context);
    QueryAgentScheduleTask(&context);

    EXPECT_EQ(context.last[3], 0);
    EXPECT_EQ(agent.Count("dca_get_disks_iostat"), 2u);
    EXPECT_THAT(Sleeps(), ::testing::ElementsAre(500u, 500u));
    EXPECT_EQ(LogCount(3, "DCM", "QueryMessageAndSave(dca_get_disks_iostat) failed(5)."), 2u);
}

TEST_F(QueryAgentScheduleTaskTest, ASlowSuccessCountsFromItsEnd)
{
    const TestAgent::Handler good = GoodAgent("d", 1);
    TestAgent agent("agent", Path("a"), [&](const Request &request) {
        now_ += request.method == "dca_get_disks_iostat" ? 4 : 0;
        return good(request);
    });
    QueryAgentTaskContext context = ContextOf(agent);

    QueryAgentScheduleTask(&context);

    EXPECT_EQ(context.last[3], 1000004);
    EXPECT_THAT(Sleeps(), ::testing::ElementsAre(3000u));
}

TEST_F(QueryAgentScheduleTaskTest, AnEmptyListQueriesNothingElse)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 0));
    QueryAgentTaskContext context = ContextOf(agent);

    QueryAgentScheduleTask(&context);

    EXPECT_EQ(agent.Requests().size(), 1u);
    EXPECT_THAT(Sleeps(), ::testing::ElementsAre(5000u));
    EXPECT_TRUE(Logged(7, "DCM", "query Agent(agent) failed(emptyList)."));
}

TEST_F(QueryAgentScheduleTaskTest, AFailedListSleepsFiveSeconds)
{
    QueryAgentTaskContext context = {};
    context.agent = Nobody();

    QueryAgentScheduleTask(&context);

    EXPECT_THAT(Sleeps(), ::testing::ElementsAre(5000u));
    EXPECT_EQ(context.last[0], 0);
    EXPECT_TRUE(Logged(7, "DCM", "query Agent(nobody) failed(networkFail)."));
}

TEST_P(SleepForIoStatTest, FollowsTheLastSuccess)
{
    QueryAgentTaskContext context = {};
    context.last[3] = now_ - GetParam().seconds;

    QueryAgentScheduleTaskSleepForIoStat(&context);

    EXPECT_THAT(Sleeps(), ::testing::ElementsAre(GetParam().sleepMs));
}
// The last row: a clock that was set back an hour.
INSTANTIATE_TEST_SUITE_P(Spans, SleepForIoStatTest,
                         ::testing::Values(Elapsed{0, 3000}, Elapsed{1, 2000}, Elapsed{2, 1000}, Elapsed{3, 0},
                                           Elapsed{4, 500}, Elapsed{1000000, 500}, Elapsed{-3600, 3000}));

TEST_F(SubmitQueryAgentTest, AnAgentHasOneWorker)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 0));
    Shut();

    EXPECT_EQ(SubmitQueryAgentScheduleTask(agent.Info()), 0u);
    ASSERT_TRUE(WaitForSleeps(1));
    EXPECT_EQ(SubmitQueryAgentScheduleTask(agent.Info()), 114u);

    EXPECT_EQ(spawned_, 1u);
    EXPECT_TRUE(Logged(3, "DCM", "Agent(agent) existed in queryTaskList"));
    EXPECT_TRUE(Logged(3, "DCM", "Submit query agent schedule task failed(ret:114)."));
}

TEST_F(SubmitQueryAgentTest, ACancelledWorkerEndsAfterItsCycle)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 0));
    Shut();
    ASSERT_EQ(SubmitQueryAgentScheduleTask(agent.Info()), 0u);
    ASSERT_TRUE(WaitForSleeps(1));

    EXPECT_EQ(CancelQueryAgentScheduleTask(agent.Info()), 0u);
    EXPECT_EQ(SubmitQueryAgentScheduleTask(agent.Info()), 0u); // at once, beside the old worker
    ASSERT_TRUE(WaitForSleeps(2));
    EXPECT_EQ(CancelAllQueryAgentScheduleTask(), 114u);
    Open();
    Join();

    EXPECT_EQ(agent.Requests().size(), 2u);
    EXPECT_EQ(LogCount(6, "DCM", "cancel query agent (agent)"), 2u);
}

TEST_F(SubmitQueryAgentTest, NoMemoryOrThreadGives12AndLeavesTheList)
{
    failSize_ = sizeof(QueryAgentTaskContext);
    EXPECT_EQ(SubmitQueryAgentScheduleTask(Nobody()), 12u);
    EXPECT_TRUE(Logged(3, "DCM", "malloc SubmitQueryAgentScheduleTask context failed."));
    failSize_ = sizeof(AgentListNode);
    EXPECT_EQ(SubmitQueryAgentScheduleTask(Nobody()), 12u);
    EXPECT_TRUE(Logged(3, "DCM", "malloc AgentListNode failed"));
    failSize_ = 0;
    failSpawn_ = true;
    EXPECT_EQ(SubmitQueryAgentScheduleTask(Nobody()), 12u);
    EXPECT_TRUE(Logged(3, "DCM", "SubmitQueryAgentScheduleTask Create TimerThread failed."));
    failSpawn_ = false;
    Shut();

    EXPECT_EQ(SubmitQueryAgentScheduleTask(Nobody()), 0u); // none of the failures left an entry
}

TEST_F(CancelQueryAgentTest, AnUnknownAgentGives0)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 0));
    Shut();
    ASSERT_EQ(SubmitQueryAgentScheduleTask(agent.Info()), 0u);

    EXPECT_EQ(CancelQueryAgentScheduleTask(Nobody()), 0u);

    EXPECT_TRUE(Logged(7, "DCM", "assert mismatch agent(agent)with(nobody)."));
    EXPECT_EQ(SubmitQueryAgentScheduleTask(agent.Info()), 114u);
}

TEST_F(CancelQueryAgentTest, AStormOfSubmitsAndCancelsEndsClean)
{
    TestAgent a("a", Path("a"), GoodAgent("d", 1));
    TestAgent b("b", Path("b"), GoodAgent("e", 0));
    std::vector<std::thread> storm;
    for (int i = 0; i < 4; i++) {
        storm.emplace_back([&, i] {
            const AgentInfo &info = i % 2 == 0 ? a.Info() : b.Info();
            for (int k = 0; k < 20; k++) {
                (void)SubmitQueryAgentScheduleTask(info);
                if (k % 5 == i) {
                    (void)CancelAllQueryAgentScheduleTask();
                }
                (void)CancelQueryAgentScheduleTask(info);
            }
        });
    }
    for (std::thread &thread : storm) {
        thread.join();
    }

    (void)CancelAllQueryAgentScheduleTask();
    Join(); // every worker has seen its cancel

    EXPECT_EQ(SubmitQueryAgentScheduleTask(a.Info()), 0u);
}

TEST_F(ScanTest, MergesTheAgentsFromTheHead)
{
    TestAgent spdk("spdk", Path("s"), GoodAgent("n", 2));
    TestAgent kernel("kernel", Path("k"), GoodAgent("s", 1));
    uint8_t flags[2] = {};
    ASSERT_EQ(UpdateUniqueAgentList(&spdk.Info(), &flags[0]), 0u);
    ASSERT_EQ(UpdateUniqueAgentList(&kernel.Info(), &flags[1]), 0u);

    ScanAllAgentDeviceListScheduleTask();

    EXPECT_EQ(Refreshes(), (std::vector<std::vector<std::string>>{{"SN-s0", "SN-n0", "SN-n1"}}));
    (void)CancelAllQueryAgentScheduleTask();
    EXPECT_EQ(flags[0], 1);
    EXPECT_EQ(flags[1], 1);
}

TEST_F(ScanTest, TakesTheFirst64Disks)
{
    TestAgent spdk("spdk", Path("s"), GoodAgent("n", 40));
    TestAgent kernel("kernel", Path("k"), GoodAgent("s", 40));
    uint8_t flags[2] = {};
    ASSERT_EQ(UpdateUniqueAgentList(&spdk.Info(), &flags[0]), 0u);
    ASSERT_EQ(UpdateUniqueAgentList(&kernel.Info(), &flags[1]), 0u);

    ScanAllAgentDeviceListScheduleTask();

    ASSERT_EQ(Refreshes().size(), 1u);
    ASSERT_EQ(Refreshes()[0].size(), 64u);
    EXPECT_EQ(Refreshes()[0][0], "SN-s0");
    EXPECT_EQ(Refreshes()[0][63], "SN-n23");
    (void)CancelAllQueryAgentScheduleTask();
}

TEST_F(ScanTest, AFailedAgentLeavesTheOthersDisks)
{
    TestAgent bad("bad", Path("s"), [](const Request &) { return std::string("hello"); });
    TestAgent kernel("kernel", Path("k"), GoodAgent("s", 1));
    uint8_t flags[2] = {};
    ASSERT_EQ(UpdateUniqueAgentList(&kernel.Info(), &flags[0]), 0u);
    ASSERT_EQ(UpdateUniqueAgentList(&bad.Info(), &flags[1]), 0u);

    ScanAllAgentDeviceListScheduleTask();

    EXPECT_EQ(Refreshes(), (std::vector<std::vector<std::string>>{{"SN-s0"}}));
    (void)CancelAllQueryAgentScheduleTask();
}

TEST_F(ScanTest, NoDisksReachTheRefreshAndItsFailureIsLogged)
{
    storeResult_ = [](const std::string &, const std::string &) { return 1u; };

    ScanAllAgentDeviceListScheduleTask();

    EXPECT_EQ(Refreshes(), (std::vector<std::vector<std::string>>{{}}));
    EXPECT_TRUE(Logged(7, "DCM", "Flush SN list to MGR failed."));
}

TEST_F(ScanTest, TheRefreshMayFetch)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 1));
    uint8_t flag = 0;
    ASSERT_EQ(UpdateUniqueAgentList(&agent.Info(), &flag), 0u);
    uint32_t ret = 1;
    onRefresh_ = [&ret] {
        char sn[40] = "SN-d0";
        DiskMgrObj record = {};
        ret = FetchDiskBaseInfo({.len = 40, .buf = sn}, &record); // waits for ever if the list is still locked
    };

    ScanAllAgentDeviceListScheduleTask();

    EXPECT_EQ(ret, 0u);
    (void)CancelAllQueryAgentScheduleTask();
}

TEST_F(ScanTest, RunsUntilItIsCancelled)
{
    EXPECT_EQ(SubmitScanAllAgentDeviceListScheduleTask(), 0u);
    EXPECT_EQ(SubmitScanAllAgentDeviceListScheduleTask(), 114u);
    ASSERT_TRUE(WaitForSleeps(2));
    EXPECT_EQ(CancelScanAllAgentDeviceListScheduleTask(), 0u);
    EXPECT_EQ(CancelScanAllAgentDeviceListScheduleTask(), 114u);
    Join();

    EXPECT_EQ(Sleeps()[0], 5000u);
    EXPECT_GE(Refreshes().size(), 2u);
    EXPECT_TRUE(Logged(3, "DCM", "Global Scan All Agent ScheduleTask is Already Running."));
    EXPECT_EQ(LogCount(6, "DCM", "cancel scan all agent."), 2u);
    EXPECT_EQ(LogCount(7, "DCM", "ScanAllAgentDeviceListScheduleTask is already canceled."), 1u);
}

TEST_F(ScanTest, ANewScanWaitsForTheOldOne)
{
    Shut();
    ASSERT_EQ(SubmitScanAllAgentDeviceListScheduleTask(), 0u);
    ASSERT_TRUE(WaitForSleeps(1));
    ASSERT_EQ(CancelScanAllAgentDeviceListScheduleTask(), 0u);

    EXPECT_EQ(SubmitScanAllAgentDeviceListScheduleTask(), 0u);
    ASSERT_TRUE(WaitFor([this] { return lockRetry_.load(); }));
    EXPECT_EQ(Refreshes().size(), 1u);
    Open();
    ASSERT_TRUE(WaitForSleeps(2));

    EXPECT_EQ(CancelAllQueryAgentScheduleTask(), 0u);
    Join();
    EXPECT_GE(Refreshes().size(), 2u);
}

TEST_F(ScanTest, NoMemoryOrThreadGives12AndMayBeRepeated)
{
    failSize_ = 1;
    EXPECT_EQ(SubmitScanAllAgentDeviceListScheduleTask(), 12u);
    EXPECT_TRUE(Logged(3, "DCM", "SubmitScanAllAgentDeviceListScheduleTask malloc context failed."));
    failSize_ = 0;
    failSpawn_ = true;
    EXPECT_EQ(SubmitScanAllAgentDeviceListScheduleTask(), 12u);
    EXPECT_TRUE(Logged(3, "DCM", "SubmitScanAllAgentDeviceListScheduleTask Create TimerThread failed."));
    EXPECT_EQ(CancelScanAllAgentDeviceListScheduleTask(), 114u);
    failSpawn_ = false;

    EXPECT_EQ(SubmitScanAllAgentDeviceListScheduleTask(), 0u);
}

TEST_F(ScanTest, AStormOfRestartsLeavesNoScan)
{
    std::atomic<int> inside{0};
    onRefresh_ = [&inside] {
        EXPECT_EQ(inside.fetch_add(1), 0); // at most one scan runs
        inside.fetch_sub(1);
    };
    std::vector<std::thread> storm;
    for (int i = 0; i < 4; i++) {
        storm.emplace_back([] {
            for (int k = 0; k < 20; k++) {
                (void)SubmitScanAllAgentDeviceListScheduleTask();
                (void)CancelScanAllAgentDeviceListScheduleTask();
            }
        });
    }
    for (std::thread &thread : storm) {
        thread.join();
    }

    (void)CancelScanAllAgentDeviceListScheduleTask();
    Join();

    EXPECT_EQ(CancelScanAllAgentDeviceListScheduleTask(), 114u);
}

TEST_F(FetchDiskBaseInfoTest, FindsTheAgentThatKnowsTheDisk)
{
    TestAgent first("first", Path("f"), GoodAgent("f", 2));
    TestAgent head("head", Path("h"), GoodAgent("h", 1));
    Add(first);
    Add(head);
    DiskMgrObj record = {};

    EXPECT_EQ(FetchDiskBaseInfo(Sn("SN-f1"), &record), 0u);

    EXPECT_STREQ(record.deviceName, "f1");
    EXPECT_TRUE(Logged(7, "DCM", "try to match agent(head)."));
    EXPECT_TRUE(Logged(7, "DCM", "try to match agent(first)."));
    EXPECT_TRUE(Logged(7, "DCM", "assert [SN-h0] not memcmp [SN-f1]"));
    EXPECT_TRUE(Logged(7, "DCM", "assert [SN-f0] not memcmp [SN-f1]"));
    (void)CancelAllQueryAgentScheduleTask();
}

TEST_F(FetchDiskBaseInfoTest, AnUnknownDiskGives123)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 1));
    Add(agent);
    DiskMgrObj record = {};

    EXPECT_EQ(FetchDiskBaseInfo(Sn("SN-x"), &record), 123u);

    EXPECT_EQ(agent.Count("dca_get_disks_base_info"), 0u);
    (void)CancelAllQueryAgentScheduleTask();
}

TEST_F(FetchDiskBaseInfoTest, WithoutAgentsEveryDiskIsUnknown)
{
    DiskMgrObj record = {};

    EXPECT_EQ(FetchDiskBaseInfo(Sn("SN"), &record), 123u);
}

TEST_F(FetchDiskBaseInfoTest, APrefixIsNoMatch)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 1));
    Add(agent);
    DiskMgrObj record = {};

    EXPECT_EQ(FetchDiskBaseInfo(Sn("SN-d"), &record), 123u);

    (void)CancelAllQueryAgentScheduleTask();
}

TEST_F(FetchDiskBaseInfoTest, ALongLengthAndAShortTextStayInBounds)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 1));
    Add(agent);
    DiskMgrObj record = {};
    char text[] = "SN-d0"; // six bytes, whatever the length says

    EXPECT_EQ(FetchDiskBaseInfo({.len = 4000, .buf = text}, &record), 0u);

    EXPECT_STREQ(record.sn, "SN-d0");
    (void)CancelAllQueryAgentScheduleTask();
}

TEST_F(FetchDiskBaseInfoTest, AFailedListGoesOnWithTheNextAgent)
{
    TestAgent agent("agent", Path("a"), GoodAgent("d", 1));
    TestAgent bad("bad", Path("b"), [](const Request &) { return kClose; });
    Add(agent);
    Add(bad);
    DiskMgrObj record = {};

    EXPECT_EQ(FetchDiskBaseInfo(Sn("SN-d0"), &record), 0u);

    EXPECT_TRUE(Logged(3, "DCM", "query agent(bad) device list Failed."));
    (void)CancelAllQueryAgentScheduleTask();
}

TEST_F(FetchDiskBaseInfoTest, AFailedFetchIsTheResult)
{
    const TestAgent::Handler good = GoodAgent("d", 1);
    TestAgent agent("agent", Path("a"), [&](const Request &request) {
        return request.method == "dca_get_disks_base_info" ? Answer("{}") : good(request);
    });
    Add(agent);
    DiskMgrObj record = {};

    EXPECT_EQ(FetchDiskBaseInfo(Sn("SN-d0"), &record), 74u);

    (void)CancelAllQueryAgentScheduleTask();
}

TEST_F(FetchDiskBaseInfoTest, RefusesNull)
{
    DiskMgrObj record = {};

    EXPECT_EQ(FetchDiskBaseInfo({.len = 40, .buf = nullptr}, &record), 22u);
    EXPECT_EQ(FetchDiskBaseInfo(Sn("SN"), nullptr), 22u);
}
