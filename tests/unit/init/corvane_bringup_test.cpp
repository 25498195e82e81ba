#include "init/corvane_bringup.h"

#include <cerrno>

#include "config/corvane_config.h"
#include "data_collect/data_collect_master/dcm_schedule.h"
#include "data_collect/data_collect_master/dcm_transport.h"
#include "infrastructure/common/corvane_raii.h"
#include "support/corvane_fixture.h"

namespace {

/** A thread that somebody wanted. */
struct WantedThread {
    CorvaneThreadFunc entry;
    CorvaneThreadFunc callback;
    CorvaneThreadParam param;
};
std::vector<WantedThread> g_wanted;
size_t g_failingThread = 0;
size_t g_asked = 0;

/** Notes the thread instead of running it; the one with number g_failingThread cannot be had. */
uint64_t NoteThread(CorvaneThreadFunc entry, CorvaneThreadFunc callback, CorvaneThreadParam param)
{
    if (++g_asked == g_failingThread) {
        return 0;
    }
    g_wanted.push_back({entry, callback, param});
    return g_asked;
}

/** Whether an agent is in the list: a second submission says so. Leaves the list as it is. */
bool IsSubmitted(const AgentInfo &agent)
{
    const uint32_t result = SubmitQueryAgentScheduleTask(agent);
    if (result == 0) {
        (void)CancelQueryAgentScheduleTask(agent);
    }
    return result == EALREADY;
}

} // namespace

class StartQueryAgentScheduleTaskTest : public CorvaneTest {
protected:
    StartQueryAgentScheduleTaskTest() : root_(g_configRoot), lock_(g_configLock)
    {
        g_configLock = g_corvaneInfra.rwlockCreate();
        Configure(R"({"feature_switch": 1})");
        (void)InitDataCollectMaster(); // once for the process
        g_wanted.clear();
        g_asked = 0;
        g_failingThread = 0;
        g_corvaneInfra.threadCreate = NoteThread;
        ClearLogs();
    }
    ~StartQueryAgentScheduleTaskTest() override
    {
        (void)CancelAllQueryAgentScheduleTask();
        // Cancelled workers end at once and give back what they were handed.
        for (const WantedThread &thread : g_wanted) {
            (void)thread.entry(thread.param.entryArg);
            (void)thread.callback(thread.param.callbackArg);
        }
        g_corvaneInfra.rwlockDestroy(g_configLock);
        g_configRoot = root_;
        g_configLock = lock_;
    }
    void Configure(const char *text)
    {
        tree_.reset(cJSON_Parse(text));
        g_configRoot = tree_.get();
    }

private:
    CJsonPtr tree_;
    cJSON *root_;
    void *lock_;
};

TEST_F(StartQueryAgentScheduleTaskTest, StartsBothAgentsAndTheScan)
{
    StartQueryAgentScheduleTask();

    EXPECT_EQ(g_wanted.size(), 3u);
    EXPECT_TRUE(Logs().empty());
    EXPECT_EQ(SubmitScanAllAgentDeviceListScheduleTask(), static_cast<uint32_t>(EALREADY));
    EXPECT_TRUE(IsSubmitted(g_uniqueSpdkAgent));
    AgentInfo kernel = {};
    (void)std::snprintf(kernel.name, sizeof(kernel.name), "unique_DCAK_agent");
    kernel.AgentType = AGENT_TYPE_SOCK_FILE;
    (void)std::snprintf(kernel.address.path, sizeof(kernel.address.path), "/tmp/dcak.sock");
    EXPECT_TRUE(IsSubmitted(kernel));
}

TEST_F(StartQueryAgentScheduleTaskTest, StartsNothingWithTheSwitchOff)
{
    Configure(R"({"feature_switch": 0})");

    StartQueryAgentScheduleTask();

    EXPECT_TRUE(g_wanted.empty());
    EXPECT_EQ(LogCount(6, "INIT", "feature switch is off, no need start query agent task"), 1u);
}

class UnreadableSwitchTest : public StartQueryAgentScheduleTaskTest,
                             public ::testing::WithParamInterface<const char *> {};

TEST_P(UnreadableSwitchTest, StartsNothing)
{
    Configure(GetParam());

    StartQueryAgentScheduleTask();

    EXPECT_TRUE(g_wanted.empty());
    EXPECT_EQ(LogCount(3, "INIT", "get feature switch config failed"), 1u);
}

INSTANTIATE_TEST_SUITE_P(Trees, UnreadableSwitchTest, ::testing::Values("{}", R"({"feature_switch": 2})"));

TEST_F(StartQueryAgentScheduleTaskTest, GivesUpWithoutTheFirstAgent)
{
    g_failingThread = 1;

    StartQueryAgentScheduleTask();

    EXPECT_EQ(g_asked, 1u);
    EXPECT_EQ(LogCount(4, "DCM", "Submit Query UsrAgent ScheduleTask failed(ret:12)."), 1u);
    EXPECT_FALSE(IsSubmitted(g_uniqueSpdkAgent));
}

TEST_F(StartQueryAgentScheduleTaskTest, LeavesNoTaskWithoutTheKernelAgent)
{
    g_failingThread = 2;

    StartQueryAgentScheduleTask();

    EXPECT_EQ(g_asked, 2u);
    EXPECT_EQ(LogCount(4, "DCM", "Submit Query KernelAgent ScheduleTask failed(ret:12)."), 1u);
    EXPECT_EQ(LogCount(4, "DCM", "Cancel Query UsrAgent ScheduleTask(ret:0)."), 1u);
    EXPECT_FALSE(IsSubmitted(g_uniqueSpdkAgent));
    EXPECT_FALSE(IsSubmitted(g_uniqueDcakAgent));
}

TEST_F(StartQueryAgentScheduleTaskTest, LeavesNoTaskWithoutTheScan)
{
    g_failingThread = 3;

    StartQueryAgentScheduleTask();

    EXPECT_EQ(g_asked, 3u);
    std::vector<std::string> warnings;
    for (const LogLine &line : Logs()) {
        if (line.level == 4) {
            warnings.push_back(line.module + " " + line.text);
        }
    }
    EXPECT_THAT(warnings, ::testing::ElementsAre("DCM Submit Scan All Agent ScheduleTask failed(ret:12).",
                                                 "DCM Cancel Query UsrAgent ScheduleTask(ret:0).",
                                                 "DCM Cancel Query KernelAgent ScheduleTask(ret:0)."));
    EXPECT_FALSE(IsSubmitted(g_uniqueSpdkAgent));
    EXPECT_FALSE(IsSubmitted(g_uniqueDcakAgent));
}
