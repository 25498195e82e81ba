#include "data_mgr/data_mgr_master/data_mgr_master_sync.h"

#include <functional>
#include <thread>

#include "unit/data_mgr/data_mgr_master/data_mgr_fixture.h"

using namespace data_mgr_test;
using ::testing::ElementsAre;

namespace {

constexpr uint32_t kFail = 0xFFFFFFFF;

struct WantedThread {
    CorvaneThreadFunc entry;
    CorvaneThreadFunc callback;
    CorvaneThreadParam param;
};

std::vector<WantedThread> g_threads;
bool g_noThread = false;
std::vector<CorvaneTime> g_sleeps;
std::function<void()> g_onSleep;
uint64_t g_failingAllocation = 0;
uint64_t g_allocations = 0;
size_t g_live = 0;

void *CountedAlloc(uint64_t size)
{
    if (++g_allocations == g_failingAllocation) {
        return nullptr;
    }
    g_live++;
    return g_doubles->realAlloc(size);
}

void CountedFree(void *memory)
{
    g_live -= memory != nullptr ? 1 : 0;
    g_doubles->realFree(memory);
}

class SyncTest : public DataMgrTest {
protected:
    SyncTest()
    {
        g_threads.clear();
        g_noThread = false;
        g_sleeps.clear();
        g_onSleep = nullptr;
        g_allocations = 0;
        g_failingAllocation = 0;
        g_live = 0;
        g_corvaneInfra.threadSleep = [](CorvaneTime time) {
            g_sleeps.push_back(time);
            if (g_onSleep) {
                g_onSleep();
            }
        };
        g_corvaneInfra.threadCreate = [](CorvaneThreadFunc entry, CorvaneThreadFunc callback,
                                         CorvaneThreadParam param) -> uint64_t {
            if (g_noThread) {
                return 0;
            }
            g_threads.push_back({entry, callback, param});
            return g_threads.size();
        };
    }
    ~SyncTest() override
    {
        if (g_dmmSync2DmaSwitch != nullptr) {
            (void)CancelDmmSync2DmaScheduleTask();
        }
        for (const WantedThread &thread : g_threads) {
            Finish(thread);
        }
        // The pointer's hold on the last cell ends with a start that gets no thread.
        g_noThread = true;
        (void)StartDmmSync2DmaScheduleTask();
        EXPECT_EQ(g_dmmSync2DmaSwitch, nullptr);
        g_masterToAgentSyncInterval = 300;
    }
    static void Finish(const WantedThread &thread)
    {
        EXPECT_EQ(thread.entry(thread.param.entryArg), nullptr);
        (void)thread.callback(thread.param.callbackArg);
    }
    static void FinishOldest()
    {
        const WantedThread thread = g_threads.front();
        g_threads.erase(g_threads.begin());
        Finish(thread);
    }
    static void CountMemory()
    {
        g_corvaneInfra.memAlloc = CountedAlloc;
        g_corvaneInfra.memFree = CountedFree;
    }
    /** The messages as "type serial text". */
    std::vector<std::string> Sent() const
    {
        std::vector<std::string> sent;
        for (const Message &message : doubles_.messages) {
            std::string line = std::to_string(message.type) + " ";
            line += message.sn;
            line += " ";
            line += message.text;
            sent.push_back(line);
        }
        return sent;
    }
};

using DataMgrMasterSyncAll2AgentTest = SyncTest;
using DataMgrAgentAllInfoGetTest = SyncTest;
using DmmSync2DmaScheduleTaskTest = SyncTest;
using DiskBaseInfoArrayMallocTest = SyncTest;

/** Room for a listing. */
struct Listing {
    Listing()
    {
        for (uint32_t i = 0; i < DISK_ONLINE_MAX; i++) {
            records[i] = &memory[i];
        }
    }
    std::vector<DiskMgrObj> memory{DISK_ONLINE_MAX};
    DiskMgrObj *records[DISK_ONLINE_MAX] = {};
    const char *texts[DISK_ONLINE_MAX] = {};
    uint32_t count = 77;
};

} // namespace

TEST_F(DataMgrMasterSyncAll2AgentTest, SendsRecordAndStrategyOfEachDisk)
{
    Offer(MakeRecord("SN-2"));
    ASSERT_EQ(Refresh({"SN-1", "SN-2"}), 0u);
    ASSERT_EQ(DiskStateSet(1, Sn("SN-2"), DISK_STATE_SLOW), 0u);
    ForgetCalls();

    EXPECT_EQ(DataMgrMasterSyncAll2Agent(), 0u);

    EXPECT_THAT(Sent(), ElementsAre("0 SN-1 ", "2 SN-1 No action required", "0 SN-2 ",
                                    "2 SN-2 Migrate data and replace the hard disk"));
    EXPECT_EQ(doubles_.messages[0].record.diskState, static_cast<uint32_t>(DISK_STATE_NORMAL)) << "the stored state";
    EXPECT_EQ(doubles_.messages[2].record.diskState, static_cast<uint32_t>(DISK_STATE_SLOW));
    EXPECT_EQ(doubles_.messages[2].record.diskCapacity, 1000u);
    EXPECT_TRUE(LoggedText("DMM sync to DMA..., arrayLen = 2"));
    EXPECT_TRUE(LoggedText("diskBaseInfoArray[1], sn = SN-2"));
    EXPECT_TRUE(LoggedText("diskStrategyStr[0] = No action required"));
}

TEST_F(DataMgrMasterSyncAll2AgentTest, FirstMessageOfANewDiskHasTheRecordAsItWasGiven)
{
    Offer(MakeRecord("SN-2"));

    ASSERT_EQ(Refresh({"SN-1", "SN-2"}), 0u);
    ASSERT_EQ(doubles_.messages.size(), 1u);
    EXPECT_EQ(doubles_.messages[0].record.diskState, static_cast<uint32_t>(DISK_STATE_KEEP));
    EXPECT_EQ(DataMgrMasterSyncAll2Agent(), 0u);

    EXPECT_EQ(doubles_.messages.at(3).sn, "SN-2");
    EXPECT_EQ(doubles_.messages.at(3).record.diskState, static_cast<uint32_t>(DISK_STATE_NORMAL));
}

TEST_F(DataMgrMasterSyncAll2AgentTest, SendsNothingWithoutDisks)
{
    ASSERT_EQ(Refresh({}), 0u);
    ForgetCalls();

    EXPECT_EQ(DataMgrMasterSyncAll2Agent(), 0u);

    EXPECT_TRUE(doubles_.messages.empty());
    EXPECT_TRUE(LoggedText("DMM sync to DMA..., arrayLen = 0"));
}

TEST_F(DataMgrMasterSyncAll2AgentTest, FailedMessagesDoNotEndIt)
{
    doubles_.sendRet = {{DATA_MGR_RPC_DISK_INFO, 32}, {DATA_MGR_RPC_HANDLE_STRATEGY, kFail}};
    Offer(MakeRecord("SN-2"));
    ASSERT_EQ(Refresh({"SN-1", "SN-2"}), 0u);
    ForgetCalls();

    EXPECT_EQ(DataMgrMasterSyncAll2Agent(), 0u);

    EXPECT_THAT(MessageTypes(), ElementsAre(0u, 2u, 0u, 2u));
    EXPECT_EQ(LogCount(3, kModule, "diskBaseInfoArray[1] send Rpc to agent failed! ret:[32]"), 1u);
    EXPECT_EQ(LogCount(3, kModule, "diskStrategyStr[1] send Rpc to agent failed! ret:[-1]"), 1u);
}

TEST_F(DataMgrMasterSyncAll2AgentTest, AStrategyWithoutATextIsSentAsNone)
{
    ASSERT_EQ(DiskStrategySet(0, sn_, DISK_STRATEGY_NO_TEXT), 0u);
    ForgetCalls();

    EXPECT_EQ(DataMgrMasterSyncAll2Agent(), 0u);

    EXPECT_THAT(Sent(), ElementsAre("0 SN-1 ", "2 SN-1 (null)"));
    EXPECT_TRUE(LoggedText("diskStrategyStr[0] = (null)"));
}

TEST_F(DataMgrMasterSyncAll2AgentTest, EndsAtASerialNumberOf39Characters)
{
    const std::string longest(38, 'B');
    Offer(MakeRecord(longest));
    Offer(MakeRecord("SN-4"));
    ASSERT_EQ(Refresh({"SN-1", longest, "SN-3", "SN-4"}), kFail); // SN-3 is nobody's
    ASSERT_EQ(Refresh({"SN-1", longest, "SN-4"}), 0u);
    std::memcpy(g_diskMgrObj[IdOf("SN-4")]->sn, std::string(39, 'C').data(), 40);
    ForgetCalls();

    EXPECT_EQ(DataMgrMasterSyncAll2Agent(), kFail);

    EXPECT_THAT(Sent(), ElementsAre("0 SN-1 ", "2 SN-1 No action required", "0 " + longest + " ",
                                    "2 " + longest + " No action required"));
    EXPECT_EQ(LogCount(3, kModule, "strncpy_s failed! ret = 34"), 1u);
}

TEST_F(DataMgrMasterSyncAll2AgentTest, DoesNotHoldTheStoreWhileItSends)
{
    static bool free;
    free = false;
    g_dataMgrSendRpc = [](uint32_t, DiskSnRef sn, void *) -> uint32_t {
        EXPECT_EQ(sn.len, 40u);
        free = g_corvaneInfra.spinlockTryLock(g_dataMgrLock);
        if (free) {
            g_corvaneInfra.spinlockUnlock(g_dataMgrLock);
        }
        return 0;
    };

    EXPECT_EQ(DataMgrMasterSyncAll2Agent(), 0u);

    EXPECT_TRUE(free);
}

TEST_F(DataMgrMasterSyncAll2AgentTest, GivesEverythingBackWhenMemoryIsShort)
{
    CountMemory();
    for (g_failingAllocation = 1; g_failingAllocation <= 65; g_failingAllocation++) {
        g_allocations = 0;

        EXPECT_EQ(DataMgrMasterSyncAll2Agent(), kFail);

        EXPECT_EQ(g_live, 0u);
    }

    EXPECT_TRUE(doubles_.messages.empty());
    EXPECT_EQ(LogCount(3, kModule, "diskBaseInfoArray[63] malloc failed!"), 1u);
    EXPECT_EQ(LogCount(3, kModule, "DiskBaseInfoArrayMalloc failed!"), 64u);
    EXPECT_EQ(LogCount(3, kModule, "sn.buf malloc failed!"), 1u);
    g_failingAllocation = 0;
    EXPECT_EQ(DataMgrMasterSyncAll2Agent(), 0u);
    EXPECT_EQ(g_live, 0u);
}

TEST_F(DataMgrMasterSyncAll2AgentTest, PassesAFailedCopyOn)
{
    DiskMgrObj *record = g_diskDataMgr[0]->baseInfo;
    g_diskDataMgr[0]->baseInfo = nullptr;

    const uint32_t result = DataMgrMasterSyncAll2Agent();

    g_diskDataMgr[0]->baseInfo = record;
    EXPECT_NE(result, 0u);
    const std::string number = std::to_string(static_cast<int32_t>(result));
    EXPECT_EQ(LogCount(3, kModule, "memcpy_s error, ret = " + number), 1u);
    EXPECT_EQ(LogCount(3, kModule, "Get all data from DataMgrMaster failed. ret = " + number), 1u);
    EXPECT_TRUE(doubles_.messages.empty());
    EXPECT_TRUE(g_corvaneInfra.spinlockTryLock(g_dataMgrLock)) << "left locked";
    g_corvaneInfra.spinlockUnlock(g_dataMgrLock);
}

TEST_F(DataMgrAgentAllInfoGetTest, ListsInTheOrderOfTheIdentifiers)
{
    Listing listing;

    EXPECT_EQ(DataMgrAgentAllInfoGet(listing.records, listing.texts, &listing.count), 0u);

    EXPECT_EQ(listing.count, 1u);
    EXPECT_EQ(std::memcmp(listing.records[0], g_diskMgrObj[0], sizeof(DiskMgrObj)), 0);
    EXPECT_STREQ(listing.texts[0], "No action required");
}

TEST_F(DataMgrAgentAllInfoGetTest, RefusesNullArguments)
{
    Listing listing;

    EXPECT_EQ(DataMgrAgentAllInfoGet(nullptr, listing.texts, &listing.count), kFail);
    EXPECT_EQ(DataMgrAgentAllInfoGet(listing.records, nullptr, &listing.count), kFail);
    EXPECT_EQ(DataMgrAgentAllInfoGet(listing.records, listing.texts, nullptr), kFail);

    EXPECT_EQ(LogCount(3, kModule, "Input param is NULL, please check!"), 3u);
}

TEST_F(DiskBaseInfoArrayMallocTest, LeavesNothingBehindWithoutMemory)
{
    CountMemory();
    g_failingAllocation = 3;
    DiskMgrObj *array[4] = {};

    EXPECT_EQ(DiskBaseInfoArrayMalloc(array, 4), kFail);

    EXPECT_EQ(g_live, 0u);
    EXPECT_THAT(array, ::testing::Each(nullptr));
    EXPECT_EQ(LogCount(3, kModule, "diskBaseInfoArray[2] malloc failed!"), 1u);
}

TEST_F(DmmSync2DmaScheduleTaskTest, SleepsOneIntervalBeforeEachSync)
{
    EXPECT_EQ(g_masterToAgentSyncInterval, 300u);
    ASSERT_EQ(StartDmmSync2DmaScheduleTask(), 0u);
    EXPECT_EQ(*g_dmmSync2DmaSwitch, 1u);
    EXPECT_TRUE(LoggedText("DmmSync2DmaScheduleTask start!"));
    ASSERT_EQ(g_threads.size(), 1u);
    EXPECT_EQ(g_threads[0].entry, DataMgrMasterSyncAll2AgentHandle);
    EXPECT_EQ(g_threads[0].param.joinable, 0u);
    EXPECT_EQ(g_threads[0].param.entryArg, g_dmmSync2DmaSwitch);
    EXPECT_EQ(g_threads[0].param.callbackArg, g_dmmSync2DmaSwitch);
    g_onSleep = [this] {
        EXPECT_EQ(doubles_.messages.size(), 2 * (g_sleeps.size() - 1)) << "sleep first";
        g_masterToAgentSyncInterval = 7;
        if (g_sleeps.size() == 2) {
            EXPECT_EQ(CancelDmmSync2DmaScheduleTask(), 0u);
        }
    };

    FinishOldest();

    ASSERT_EQ(g_sleeps.size(), 2u);
    EXPECT_EQ(g_sleeps[0].value, 300u);
    EXPECT_EQ(g_sleeps[0].timeUnit, static_cast<uint32_t>(CORVANE_TIME_SECOND));
    EXPECT_EQ(g_sleeps[1].value, 7u);
    EXPECT_EQ(doubles_.messages.size(), 4u) << "the sync after the sleep of the cancel still ran";
    EXPECT_EQ(TextCount("DMM Sync All to DMA task need to wait 300s, dmmSync2DmaSwitch=1"), 1u);
    EXPECT_EQ(TextCount("DMM Sync All to DMA task need to wait 7s, dmmSync2DmaSwitch=1"), 1u);
    EXPECT_EQ(TextCount("DMM Sync All to DMA task finish! ret = 0"), 2u);
    EXPECT_TRUE(LoggedText("CancelDmmSync2DmaScheduleTask finish!"));
}

TEST_F(DmmSync2DmaScheduleTaskTest, RefusesASecondStart)
{
    ASSERT_EQ(StartDmmSync2DmaScheduleTask(), 0u);

    EXPECT_EQ(StartDmmSync2DmaScheduleTask(), kFail);

    EXPECT_EQ(g_threads.size(), 1u);
    EXPECT_TRUE(LoggedText("DmmSync2DmaScheduleTask thread already exist!"));
}

TEST_F(DmmSync2DmaScheduleTaskTest, CancelNeedsAStart)
{
    EXPECT_EQ(CancelDmmSync2DmaScheduleTask(), kFail);
    EXPECT_TRUE(LoggedText("g_dmmSync2DmaSwitch is NULL!"));

    ASSERT_EQ(StartDmmSync2DmaScheduleTask(), 0u);
    EXPECT_EQ(CancelDmmSync2DmaScheduleTask(), 0u);
    FinishOldest();
    EXPECT_EQ(CancelDmmSync2DmaScheduleTask(), 0u) << "a second one finds the old switch";
}

TEST_F(DmmSync2DmaScheduleTaskTest, AStartAfterACancelMakesASecondLoop)
{
    ASSERT_EQ(StartDmmSync2DmaScheduleTask(), 0u);
    ASSERT_EQ(CancelDmmSync2DmaScheduleTask(), 0u);

    EXPECT_EQ(StartDmmSync2DmaScheduleTask(), 0u);

    EXPECT_EQ(g_threads.size(), 2u);
    FinishOldest();
    EXPECT_TRUE(g_sleeps.empty()) << "the first loop sees its own switch";
    EXPECT_EQ(*g_dmmSync2DmaSwitch, 1u);
}

TEST_F(DmmSync2DmaScheduleTaskTest, FreesTheSwitchWithTheLastOfItsTwoHolders)
{
    (void)CancelDmmSync2DmaScheduleTask(); // makes the lock
    CountMemory();
    ASSERT_EQ(StartDmmSync2DmaScheduleTask(), 0u);
    EXPECT_EQ(g_live, 1u);
    (void)CancelDmmSync2DmaScheduleTask();
    FinishOldest();
    EXPECT_EQ(g_live, 1u) << "the pointer holds it";

    ASSERT_EQ(StartDmmSync2DmaScheduleTask(), 0u);
    EXPECT_EQ(g_live, 1u) << "the old one has gone";

    (void)CancelDmmSync2DmaScheduleTask();
    g_noThread = true;
    EXPECT_EQ(StartDmmSync2DmaScheduleTask(), kFail);
    EXPECT_EQ(g_live, 1u) << "the thread holds it";
    FinishOldest();
    EXPECT_EQ(g_live, 0u);
}

TEST_F(DmmSync2DmaScheduleTaskTest, KeepsNoSwitchWithoutAThread)
{
    (void)CancelDmmSync2DmaScheduleTask(); // makes the lock
    CountMemory();
    g_noThread = true;

    EXPECT_EQ(StartDmmSync2DmaScheduleTask(), kFail);

    EXPECT_EQ(g_dmmSync2DmaSwitch, nullptr);
    EXPECT_EQ(g_live, 0u);
    EXPECT_TRUE(LoggedText("DmmSync2DmaScheduleTask thread create failed!"));
}

TEST_F(DmmSync2DmaScheduleTaskTest, TheLoopMayBeCancelledBeforeItsCreationHasReturned)
{
    g_onSleep = [] { EXPECT_EQ(CancelDmmSync2DmaScheduleTask(), 0u); };
    g_corvaneInfra.threadCreate = [](CorvaneThreadFunc entry, CorvaneThreadFunc callback,
                                     CorvaneThreadParam param) -> uint64_t {
        if (g_noThread) {
            return 0;
        }
        EXPECT_EQ(g_dmmSync2DmaSwitch, param.entryArg);
        EXPECT_EQ(*g_dmmSync2DmaSwitch, 1u);
        Finish({entry, callback, param});
        return 1;
    };

    EXPECT_EQ(StartDmmSync2DmaScheduleTask(), 0u);

    EXPECT_EQ(g_sleeps.size(), 1u);
    EXPECT_EQ(*g_dmmSync2DmaSwitch, 0u);
}

TEST_F(DmmSync2DmaScheduleTaskTest, AFailedStartLeavesTheOneThatCameInBetween)
{
    (void)CancelDmmSync2DmaScheduleTask(); // makes the lock
    CountMemory();
    g_corvaneInfra.threadCreate = [](CorvaneThreadFunc, CorvaneThreadFunc, CorvaneThreadParam) -> uint64_t {
        g_corvaneInfra.threadCreate = [](CorvaneThreadFunc entry, CorvaneThreadFunc callback,
                                         CorvaneThreadParam param) -> uint64_t {
            if (g_noThread) {
                return 0;
            }
            g_threads.push_back({entry, callback, param});
            return 1;
        };
        EXPECT_EQ(CancelDmmSync2DmaScheduleTask(), 0u);
        EXPECT_EQ(StartDmmSync2DmaScheduleTask(), 0u);
        return 0;
    };

    EXPECT_EQ(StartDmmSync2DmaScheduleTask(), kFail);

    ASSERT_EQ(g_threads.size(), 1u);
    EXPECT_EQ(g_dmmSync2DmaSwitch, g_threads[0].param.entryArg);
    EXPECT_EQ(*g_dmmSync2DmaSwitch, 1u);
    EXPECT_EQ(g_live, 1u);
}

TEST_F(DmmSync2DmaScheduleTaskTest, CancelSaysTheSameWithoutMemoryForItsLock)
{
    g_corvaneInfra.spinlockCreate = []() -> void * { return nullptr; };

    EXPECT_EQ(CancelDmmSync2DmaScheduleTask(), kFail);

    EXPECT_TRUE(LoggedText("g_dmmSync2DmaSwitch is NULL!"));
}

TEST_F(DmmSync2DmaScheduleTaskTest, FailsWithoutMemory)
{
    (void)CancelDmmSync2DmaScheduleTask(); // makes the lock
    CountMemory();
    g_failingAllocation = 1;

    EXPECT_EQ(StartDmmSync2DmaScheduleTask(), kFail);

    EXPECT_EQ(g_dmmSync2DmaSwitch, nullptr);
    EXPECT_TRUE(g_threads.empty());
}

TEST_F(DmmSync2DmaScheduleTaskTest, IsSafeToSwitchFromManyThreads)
{
    static std::mutex mutex;
    static std::vector<std::thread> loops;
    loops.clear();
    g_corvaneInfra.threadSleep = [](CorvaneTime) { std::this_thread::yield(); };
    g_corvaneInfra.threadCreate = [](CorvaneThreadFunc entry, CorvaneThreadFunc callback,
                                     CorvaneThreadParam param) -> uint64_t {
        const std::lock_guard<std::mutex> guard(mutex);
        loops.emplace_back([=] {
            (void)entry(param.entryArg);
            (void)callback(param.callbackArg);
        });
        return loops.size();
    };
    const auto toggle = [] {
        for (int i = 0; i < 20; i++) {
            (void)StartDmmSync2DmaScheduleTask();
            (void)CancelDmmSync2DmaScheduleTask();
        }
    };

    std::thread first(toggle);
    std::thread second(toggle);
    first.join();
    second.join();
    for (std::thread &loop : loops) {
        loop.join();
    }

    EXPECT_GE(loops.size(), 20u);
    EXPECT_EQ(*g_dmmSync2DmaSwitch, 0u);
    g_corvaneInfra.threadCreate = [](CorvaneThreadFunc, CorvaneThreadFunc, CorvaneThreadParam) -> uint64_t {
        return 0;
    };
}
