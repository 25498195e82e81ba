#include "drm_fixture.h"

#include <atomic>
#include <cstring>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

std::vector<std::string> g_calls;
uint32_t g_handlerResult = 0;

uint32_t Handler(void *in, uint32_t inLen, uint64_t *outData, uint64_t *outInfo)
{
    g_calls.push_back("handler " + std::to_string(*static_cast<int *>(in)) + " " + std::to_string(inLen));
    *outData = 0x1122334455667788;
    *outInfo = 0xAAAAAAAA00000009;
    return g_handlerResult;
}

void Callback(void *arg, uint64_t outData, uint64_t outInfo)
{
    char text[64];
    (void)std::snprintf(text, sizeof(text), "callback %s %llx %llx", static_cast<const char *>(arg),
                        static_cast<unsigned long long>(outData), static_cast<unsigned long long>(outInfo));
    g_calls.emplace_back(text);
}

std::string Pointer(const void *pointer)
{
    char text[32];
    (void)std::snprintf(text, sizeof(text), "%p", pointer);
    return text;
}

class DrmActionTest : public DrmTest {
protected:
    static lib::DrmActionHandlerRow *Rows() { return lib::Global<lib::DrmActionHandlerRow[128]>("g_drmActionHandler"); }
};

TEST_F(DrmActionTest, TheLifeMonitorHasTwoOpcodes)
{
    EXPECT_EQ(Rows()[0].opcode, 0x20f0001u);
    EXPECT_EQ(reinterpret_cast<void *>(Rows()[0].handler), lib::Address("DrmHandleGetDiskHealthInfoAction"));
    EXPECT_EQ(Rows()[1].opcode, 0x20f0101u);
    EXPECT_EQ(reinterpret_cast<void *>(Rows()[1].handler), lib::Address("DrmHandleSetLifeMonitorResultAction"));
    for (int i = 2; i < 128; i++) {
        EXPECT_EQ(Rows()[i].opcode, 0u);
        EXPECT_EQ(Rows()[i].handler, nullptr);
    }
    int in = 0;
    EXPECT_EQ(lib::DrmSyncActionRequest(0x20f0001, &in, 4, nullptr, 0), 0u);
    EXPECT_EQ(lib::DrmSyncActionRequest(0x20f0101, &in, 4, nullptr, 0), 0u);
}

TEST_F(DrmActionTest, RegistersInTheFirstFreeRow)
{
    EXPECT_EQ(lib::DrmRegisterActionHandler(0x20f0777, Handler), 0u);

    EXPECT_EQ(Rows()[2].opcode, 0x20f0777u);
    EXPECT_EQ(Logged(6, "Add Handler index(2),opcode(34539383),handler(0x" +
                            Pointer(reinterpret_cast<void *>(Handler)) + ")."),
              1u);
}

TEST_F(DrmActionTest, RefusesNullKnownOpcodesAndTheRowAfterTheLast)
{
    EXPECT_EQ(lib::DrmRegisterActionHandler(1, nullptr), kFail);
    EXPECT_EQ(Logged(3, "handler is NULL"), 1u);
    EXPECT_EQ(lib::DrmRegisterActionHandler(0x20f0001, Handler), kFail);
    EXPECT_EQ(Logged(3, "OpCode(0x20f0001) has already been registered."), 1u);
    for (uint32_t i = 2; i < 128; i++) {
        EXPECT_EQ(lib::DrmRegisterActionHandler(i, Handler), 0u) << i;
    }
    EXPECT_EQ(lib::DrmRegisterActionHandler(200, Handler), kFail);

    EXPECT_EQ(Logged(3, "Add Handler failed due to lack of index resource,opcode(200),handler(0x" +
                            Pointer(reinterpret_cast<void *>(Handler)) + ")."),
              1u);
    EXPECT_EQ(lib::DrmActionHandleFin(), 0u);
    EXPECT_EQ(Rows()[127].opcode, 127u) << "the end clears nothing";
    EXPECT_EQ(lib::DrmActionHandleInit(), 0u);
    EXPECT_EQ(Rows()[127].opcode, 0u);
}

TEST_F(DrmActionTest, AsyncRunsHandlerAndCallbackBeforeItReturns)
{
    int in = 41;
    ASSERT_EQ(lib::DrmRegisterActionHandler(7, Handler), 0u);

    EXPECT_EQ(lib::DrmAsyncActionRequest(7, &in, 4, Callback, const_cast<char *>("arg")), 0u);

    EXPECT_THAT(g_calls, ElementsAre("handler 41 4", "callback arg 1122334455667788 9"));
}

TEST_F(DrmActionTest, AsyncCallsBackAfterAFailureWithTheResultAbove)
{
    int in = 41;
    g_handlerResult = 0x77;
    ASSERT_EQ(lib::DrmRegisterActionHandler(7, Handler), 0u);

    EXPECT_EQ(lib::DrmAsyncActionRequest(7, &in, 4, Callback, const_cast<char *>("arg")), 0x77u);

    EXPECT_THAT(g_calls, ElementsAre("handler 41 4", "callback arg 1122334455667788 7700000009"));
    EXPECT_EQ(Logged(3, "Drm actionSubHandler handle failed, opcode(0x7)."), 1u);
}

TEST_F(DrmActionTest, UnknownOpcodeIs65206WithoutCallback)
{
    int in = 41;

    EXPECT_EQ(lib::DrmAsyncActionRequest(0xabc, &in, 4, Callback, nullptr), 65206u);
    EXPECT_EQ(lib::DrmSyncActionRequest(0xabc, &in, 4, nullptr, 0), 65206u);

    EXPECT_THAT(g_calls, IsEmpty());
    EXPECT_EQ(Logged(3, "Drm actionHandler is NULL, opcode(0xabc)."), 2u);
}

TEST_F(DrmActionTest, RowWithoutHandlerFails)
{
    int in = 41;
    Rows()[5].opcode = 0xdef;

    EXPECT_EQ(lib::DrmAsyncActionRequest(0xdef, &in, 4, Callback, nullptr), kFail);
    EXPECT_EQ(lib::DrmSyncActionRequest(0xdef, &in, 4, nullptr, 0), kFail);

    EXPECT_THAT(g_calls, IsEmpty());
    EXPECT_EQ(Logged(3, "Drm sub actionSubHandler is NULL, opcode(0xdef)."), 2u);
}

TEST_F(DrmActionTest, SyncCopiesNothingBack)
{
    int in = 41;
    uint64_t out = 5;
    ASSERT_EQ(lib::DrmRegisterActionHandler(7, Handler), 0u);

    EXPECT_EQ(lib::DrmSyncActionRequest(7, &in, 4, &out, 8), 0u);

    EXPECT_EQ(out, 5u);
    EXPECT_THAT(g_calls, ElementsAre("handler 41 4"));
}

template <int Feature>
uint32_t LocalEvent(uint32_t diskId, uint32_t event)
{
    g_calls.push_back("local " + std::to_string(Feature) + " " + std::to_string(diskId) + " " + std::to_string(event));
    return 9;
}

template <int Feature>
uint32_t MasterEvent(uint32_t diskId, uint32_t event)
{
    g_calls.push_back("master " + std::to_string(Feature) + " " + std::to_string(diskId) + " " + std::to_string(event));
    return 9;
}

class DrmDiskEventTest : public DrmTest {
protected:
    void SetUp() override
    {
        StartQuiet();
        spdk_ = std::make_unique<FakeAgent>(kSpdkSocket);
    }
    static lib::DrmDiskUpdateHandle *Rows()
    {
        return lib::Global<lib::DrmDiskUpdateHandle[32]>("g_drmLocalDiskUpdateHandle");
    }
    static void TakeFeaturesAway()
    {
        for (uint32_t feature : {3u, 15u, 16u}) {
            lib::DrmUnRegisterDiskEventHandler(feature);
        }
    }
};

TEST_F(DrmDiskEventTest, ThreeFeaturesListen)
{
    for (int i = 0; i < 32; i++) {
        EXPECT_EQ(reinterpret_cast<void *>(Rows()[i].localHandler),
                  i == 3 ? lib::Lookup("DrmSlowDiskDetectorDiskEventHandle") : nullptr);
        EXPECT_EQ(reinterpret_cast<void *>(Rows()[i].masterHandler),
                  i == 15   ? lib::Lookup("DrmDiskLifeMonitorDiskEventHandle")
                  : i == 16 ? lib::Lookup("DrmDiskPrefailDiskEventHandle")
                            : nullptr);
    }
    EXPECT_EQ(lib::Global<void *>("g_drmDiskEventNotifyFunc"), lib::Address("DrmEventNotifyFuc"));
}

TEST_F(DrmDiskEventTest, HandlersAreCalledInOrderLocalFirst)
{
    TakeFeaturesAway();
    lib::DrmRegisterDiskEventHandler(31, LocalEvent<31>, MasterEvent<31>);
    lib::DrmRegisterDiskEventHandler(0, nullptr, MasterEvent<0>);
    lib::DrmRegisterDiskEventHandler(4, LocalEvent<4>, nullptr);
    lib::DrmRegisterDiskEventHandler(32, LocalEvent<32>, nullptr);

    lib::DrmNotifyDiskEvent(77, 1);

    EXPECT_THAT(g_calls, ElementsAre("master 0 77 1", "local 4 77 1", "local 31 77 1", "master 31 77 1"));
    g_calls.clear();
    lib::DrmUnRegisterDiskEventHandler(31);
    lib::DrmUnRegisterDiskEventHandler(32);
    lib::DrmNotifyDiskEvent(5, 0);
    EXPECT_THAT(g_calls, ElementsAre("master 0 5 0", "local 4 5 0"));
}

TEST_F(DrmDiskEventTest, TheStoreSeesSuccessWhateverTheHandlersGive)
{
    TakeFeaturesAway();
    lib::DrmRegisterDiskEventHandler(4, LocalEvent<4>, nullptr);
    constexpr lib::Call<uint32_t(uint32_t, lib::DiskSnRef, uint32_t)> notify{"DrmEventNotifyFuc"};
    constexpr lib::Call<uint32_t(uint32_t, lib::DiskSnRef, uint32_t)> announce{"DataMgrNotifyDrmDiskEvent"};

    EXPECT_EQ(notify(12, Sn("SN-12"), 1), 0u);
    EXPECT_EQ(announce(13, Sn("SN-13"), 0), 0u);

    EXPECT_THAT(g_calls, ElementsAre("local 4 12 1", "local 4 13 0"));
}

TEST_F(DrmDiskEventTest, AnArrivingDiskReachesListsOnTheFeaturesThreadsAndADepartingLeavesThem)
{
    lib::DiskMgrObj record = Record("SN-0", 1);
    (void)std::snprintf(record.vendor, sizeof(record.vendor), "ORSYL");
    ASSERT_EQ(lib::DiskBaseInfoSet(Sn("SN-0"), &record), 0u);

    EXPECT_TRUE(WaitForHostLine("Handle disk(0) event(0) ret(0)"));
    ASSERT_EQ(lib::DiskStateSet(0, Sn("SN-0"), 2), 0u);
    EXPECT_TRUE(WaitForHostLine("Handle disk(0) event(1) ret(0)"));
    EXPECT_THAT(IdsOf(lib::Global<lib::ListHead>("g_drmDiskPrefailDiskListForSAS")), IsEmpty());
}

TEST_F(DrmDiskEventTest, PhaseTwoAsksTheStoreAndPhaseOneEmptiesTheActions)
{
    constexpr lib::Call<uint32_t()> init1{"DrmFrameworkAdapterInitPhase1"};
    constexpr lib::Call<uint32_t()> exit1{"DrmFrameworkAdapterExitPhase1"};
    constexpr lib::Call<uint32_t()> init2{"DrmFrameworkAdapterInitPhase2"};
    constexpr lib::Call<uint32_t()> exit2{"DrmFrameworkAdapterExitPhase2"};

    EXPECT_EQ(exit1(), 0u);
    EXPECT_EQ(lib::Global<lib::DrmActionHandlerRow[128]>("g_drmActionHandler")[0].opcode, 0x20f0001u);
    EXPECT_EQ(init1(), 0u);
    EXPECT_EQ(lib::Global<lib::DrmActionHandlerRow[128]>("g_drmActionHandler")[0].opcode, 0u);
    EXPECT_EQ(exit2(), 0u);
    EXPECT_NE(lib::Global<void *>("g_drmDiskEventNotifyFunc"), lib::Address("DrmEventNotifyFuc"));
    EXPECT_EQ(init2(), 0u);
    EXPECT_EQ(lib::Global<void *>("g_drmDiskEventNotifyFunc"), lib::Address("DrmEventNotifyFuc"));
}

TEST_F(DrmDiskEventTest, FactsOfThisDeployment)
{
    uint64_t map = 0x5555;

    EXPECT_TRUE((lib::Call<bool()>{"DrmIsMasterNodeId"}()));
    EXPECT_TRUE((lib::Call<bool()>{"DrmCheckLocalNodeNormal"}()));
    EXPECT_EQ((lib::Call<uint32_t(void *)>{"DrmGetOnlineNodeMap"}(&map)), 0u);
    EXPECT_EQ(map, 0x5555u);
    EXPECT_TRUE((lib::Call<bool(uint32_t)>{"DrmIsDataDisk"}(4711)));
    EXPECT_EQ((lib::Call<uint32_t()>{"DrmGetMinDiskId"}()), 0u);
    EXPECT_EQ((lib::Call<uint32_t()>{"DrmGetMaxLogicDiskNum"}()), 128u);
    EXPECT_FALSE((lib::Call<bool()>{"bdmIsProcessRestart"}()));
    EXPECT_EQ((lib::Call<uint32_t(uint32_t)>{"TransDiskIdToLogicId"}(99)), 99u);
    lib::Call<void()>{"DrmClsCheck2SendMasterEvt"}();
    for (const char *name : {"DrmClsMgrInit", "DrmClsMgrFin", "DrmTaskSchClsEvtInit", "DrmTaskSchClsEvtFin"}) {
        EXPECT_EQ((lib::Call<uint32_t()>{name}()), 0u) << name;
    }
}

class DrmQueueTest : public DrmTest {
protected:
    alignas(16) uint8_t queue_[256] = {};
};

TEST_F(DrmQueueTest, IsAQueueWithASecondDoor)
{
    int a = 0;
    int b = 0;
    int c = 0;
    lib::drmQueueInit(queue_);

    EXPECT_EQ(lib::drmQueueDequeue(queue_), nullptr);
    EXPECT_EQ(lib::drmQueueQueue(queue_, &a), 0u);
    EXPECT_EQ(lib::drmQueueQueue(queue_, &b), 0u);
    EXPECT_EQ(lib::drmQueueQueueHead(queue_, &c), 0u);

    EXPECT_EQ(lib::drmQueueDequeue(queue_), &c);
    EXPECT_EQ(lib::drmQueueDequeue(queue_), &a);
    EXPECT_EQ(lib::drmQueueDequeue(queue_), &b);
    EXPECT_EQ(lib::drmQueueDequeue(queue_), nullptr);
    lib::drmQueueExit(queue_);
}

TEST_F(DrmQueueTest, NullAndMissingMemoryFail)
{
    int a = 0;
    lib::drmQueueInit(queue_);

    EXPECT_EQ(lib::drmQueueQueue(nullptr, &a), kFail);
    EXPECT_EQ(lib::drmQueueQueueHead(nullptr, &a), kFail);
    EXPECT_EQ(lib::drmQueueDequeue(nullptr), nullptr);
    g_hostResults.allocStructure = 1;
    EXPECT_EQ(lib::drmQueueQueue(queue_, &a), kFail);
    EXPECT_EQ(lib::drmQueueQueueHead(queue_, &a), kFail);
    g_hostResults.allocStructure = 0;
    EXPECT_EQ(lib::drmQueueDequeue(queue_), nullptr);
}

class DrmTimerTest : public DrmTest {
protected:
    static void Count(void *arg) { ++*static_cast<int *>(arg); }

    int calls_ = 0;
};

TEST_F(DrmTimerTest, SixtyFourTimersAreTheLimit)
{
    for (int i = 1; i < 64; i++) { // the scheduler has one
        ASSERT_EQ(lib::DrmRegTimer("t", 10, Count, &calls_, 1), 0u) << i;
    }

    EXPECT_EQ(lib::DrmRegTimer("t", 10, Count, &calls_, 1), kFail);
    EXPECT_EQ(lib::DrmTimerCreateCheck(10, 1), kFail);
    EXPECT_EQ(Logged(3, "Timer cnt has been exhausted."), 2u);

    lib::DrmFreeTimer(HostTimers().back().context);
    EXPECT_EQ(lib::DrmRegTimer("t", 10, Count, &calls_, 1), 0u);
    EXPECT_EQ(lib::DrmRegTimer("t", 10, Count, &calls_, 1), kFail);
}

TEST_F(DrmTimerTest, ChecksTheTypeFirstAndTellsItInPlaceOfTheCycle)
{
    EXPECT_EQ(lib::DrmTimerCreateCheck(0x80000000, 2), kFail);
    EXPECT_EQ(Logged(3, "Invalid timer type: 2."), 1u);
    EXPECT_EQ(lib::DrmTimerCreateCheck(0x80000000, 1), kFail);
    EXPECT_EQ(Logged(3, "Invalid cycleMilliSec: 1, bigger than DRM_MAX_TIMEROUT_MS: 2147483647."), 1u);
    EXPECT_EQ(lib::DrmRegTimer("t", 10, Count, nullptr, 7), kFail);
    EXPECT_EQ(Logged(3, "Invalid timer type: 7."), 1u);

    EXPECT_EQ(lib::DrmTimerCreateCheck(0x7FFFFFFF, 0), 0u);
    EXPECT_EQ(lib::DrmTimerCreateCheck(0, 1), 0u);
    EXPECT_THAT(HostTimers(), SizeIs(1));
}

TEST_F(DrmTimerTest, CycleOf0IsPassedToTheHost)
{
    EXPECT_EQ(lib::DrmRegTimer("t", 0, Count, &calls_, 0), 0u);

    EXPECT_EQ(HostTimers().back().cycleMs, 0u);
    EXPECT_EQ(reinterpret_cast<void *>(HostTimers().back().procedure), lib::Address("DrmTimerProc"));
}

TEST_F(DrmTimerTest, PeriodicTimerIsArmedAgainAfterItsCallback)
{
    ASSERT_EQ(lib::DrmRegTimer("t", 250, Count, &calls_, 1), 0u);

    ExpireLastTimer();
    ExpireLastTimer();

    EXPECT_EQ(calls_, 2);
    EXPECT_THAT(HostTimers().back().modified, ElementsAre(250u, 250u));
    EXPECT_EQ(HostTimers().back().destroyed, 0u);
    g_hostResults.timerModify = 3;
    ExpireLastTimer();
    EXPECT_EQ(Logged(3, "ZOSA_ModTimer failed."), 1u);
}

TEST_F(DrmTimerTest, OneShotTimerIsGoneAfterItFired)
{
    ASSERT_EQ(lib::DrmRegTimer("t", 250, Count, &calls_, 0), 0u);

    ExpireLastTimer();

    EXPECT_EQ(calls_, 1);
    EXPECT_THAT(HostTimers().back().modified, IsEmpty());
    EXPECT_EQ(HostTimers().back().destroyed, 1u);
    for (int i = 1; i < 64; i++) {
        EXPECT_EQ(lib::DrmRegTimer("t", 10, Count, &calls_, 1), 0u) << i;
    }
}

TEST_F(DrmTimerTest, RecordHoldsNameCallbackArgumentCycleTypeAndCalls)
{
    const char *name = "a timer";
    ASSERT_EQ(lib::DrmRegTimer(name, 250, Count, &calls_, 1), 0u);
    ExpireLastTimer();
    ExpireLastTimer();

    const HostTimer timer = HostTimers().back();
    const auto *bytes = static_cast<const uint8_t *>(timer.context);
    const void *pointers[3];
    uint32_t words[3];
    std::memcpy(pointers, bytes + 16, sizeof(pointers));
    std::memcpy(words, bytes + 40, sizeof(words));
    EXPECT_EQ(pointers[0], name);
    EXPECT_EQ(pointers[1], reinterpret_cast<const void *>(Count));
    EXPECT_EQ(pointers[2], &calls_);
    EXPECT_THAT(words, ElementsAre(250u, 1u, 2u));
    EXPECT_EQ(static_cast<const uint8_t *>(timer.timer), bytes + 56);
}

TEST_F(DrmTimerTest, FailuresOfTheHostLeaveNoTimer)
{
    g_hostResults.heapUntilFailure = 0;
    EXPECT_EQ(lib::DrmRegTimer("t", 250, Count, &calls_, 0), kFail);
    EXPECT_EQ(Logged(3, "Alloc timer failed."), 1u);
    g_hostResults.timerSet = 11;
    EXPECT_EQ(lib::DrmRegTimer("t", 250, Count, &calls_, 0), kFail);
    EXPECT_EQ(Logged(3, "ZOSA_InitTimer failed, ret: 11."), 1u);
    g_hostResults.timerSet = 0;
    g_hostResults.timerAdd = 12;
    EXPECT_EQ(lib::DrmRegTimer("t", 250, Count, &calls_, 0), kFail);
    EXPECT_EQ(Logged(3, "ZOSA_AddTimer failed, ret: 12."), 1u);
    EXPECT_EQ(HostTimers().back().destroyed, 1u);
    g_hostResults.timerAdd = 0;

    for (int i = 1; i < 64; i++) {
        EXPECT_EQ(lib::DrmRegTimer("t", 10, Count, &calls_, 1), 0u) << i;
    }
}

TEST_F(DrmTimerTest, ATimerThatTheHostKeepsIsNotFreed)
{
    ASSERT_EQ(lib::DrmRegTimer("t", 250, Count, &calls_, 1), 0u);
    g_hostResults.timerDestroy = 4;
    const auto freed = [] {
        size_t count = 0;
        for (const std::string &call : HostCalls()) {
            count += call.rfind("normm_free(", 0) == 0 ? 1 : 0;
        }
        return count;
    };
    const size_t before = freed();

    lib::DrmFreeTimer(HostTimers().back().context);

    EXPECT_EQ(Logged(3, "Drm destroy timer, ret: 4."), 1u);
    EXPECT_EQ(freed(), before);
    lib::DrmTaskSchExitTimer();
    EXPECT_EQ(Logged(3, "Drm destroy timer failed, ret: 4."), 1u) << "the scheduler's";
    EXPECT_EQ(freed(), before);
}

TEST_F(DrmTimerTest, ExitEndsAllTimers)
{
    for (int i = 0; i < 3; i++) {
        ASSERT_EQ(lib::DrmRegTimer("t", 250, Count, &calls_, 1), 0u);
    }

    lib::DrmTaskSchExitTimer();

    for (const HostTimer &timer : HostTimers()) {
        EXPECT_EQ(timer.destroyed, 1u);
    }
    for (int i = 0; i < 64; i++) {
        EXPECT_EQ(lib::DrmRegTimer("t", 250, Count, &calls_, 1), 0u) << i;
    }
}

class DrmAsyncThreadTest : public DrmTest {};

std::atomic<int> g_ran{0};
std::string g_data;

void NoteRun(void *data, uint32_t dataLen)
{
    g_data = data == nullptr ? "" : std::string(static_cast<const char *>(data), dataLen);
    g_ran++;
}

TEST_F(DrmAsyncThreadTest, CarriesACopyOfTheData)
{
    char data[] = "twelve bytes";
    const size_t before = HostCalls().size();

    EXPECT_EQ(lib::DrmAsyncThreadCtxRun(99, NoteRun, data, 12), 0u);
    std::memset(data, 'x', 12);

    ASSERT_TRUE(Eventually([] { return g_ran == 1; }));
    EXPECT_EQ(g_data, "twelve bytes");
    const std::vector<std::string> calls = HostCalls();
    EXPECT_THAT(calls[before], StartsWith("normm_malloc(28,481,"));
    EXPECT_TRUE(Eventually([&] { return HostCalls().back().rfind("normm_free(481,", 0) == 0; }));
}

TEST_F(DrmAsyncThreadTest, NoDataIsFine)
{
    EXPECT_EQ(lib::DrmAsyncThreadCtxRun(0, NoteRun, nullptr, 0), 0u);

    EXPECT_TRUE(Eventually([] { return g_ran == 1; }));
}

TEST_F(DrmAsyncThreadTest, BadArgumentsLookLikeSuccess)
{
    constexpr lib::Call<bool(void (*)(void *, uint32_t), const void *, uint32_t)> valid{"IsDrmAsyncThreadParamValid"};

    EXPECT_EQ(lib::DrmAsyncThreadCtxRun(0, nullptr, nullptr, 0), 0u);
    EXPECT_EQ(lib::DrmAsyncThreadCtxRun(0, NoteRun, nullptr, 1), 0u);

    EXPECT_EQ(Logged(3, "func is NULL."), 1u);
    EXPECT_EQ(Logged(3, "data is NULL but len is than 0."), 1u);
    EXPECT_FALSE(valid(nullptr, nullptr, 0));
    EXPECT_FALSE(valid(NoteRun, nullptr, 1));
    EXPECT_TRUE(valid(NoteRun, nullptr, 0));
    EXPECT_EQ(g_ran, 0);
}

TEST_F(DrmAsyncThreadTest, WithoutMemoryItFails)
{
    g_hostResults.heapUntilFailure = 0;

    EXPECT_EQ(lib::DrmAsyncThreadCtxRun(0, NoteRun, nullptr, 0), kFail);

    EXPECT_EQ(Logged(3, "DrmAsyncThreadCtxRun alloc param failed."), 1u);
}

} // namespace
