#include "drm_fixture.h"

#include <cstring>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char *kTag = "[DRM_FEATURE]";

class LifeTest : public DrmTest {
protected:
    static lib::ListHead &List() { return lib::Global<lib::ListHead>("g_drmDiskLifeMonitorDiskList"); }
    static void Run() { EXPECT_EQ(lib::DrmDiskLifeMonitorMasterSchedule(0, 0), 0u); }
    static uint32_t Checked(size_t index)
    {
        const lib::ListHead *at = List().next;
        for (; index != 0; index--) {
            at = at->next;
        }
        return reinterpret_cast<const lib::DrmDiskNode *>(at)->word;
    }
};

TEST_F(LifeTest, WorkedNumbers)
{
    const uint32_t id = AddSas("SN-0");
    lib::SetDiskLifeMonitorSchedulerCycle(0);
    const struct {
        uint64_t hours;
        uint32_t wear;
        uint32_t life;
        uint32_t score;
        uint32_t state;
    } cases[] = {
        {3000, 1000, 27090, 100, 0},
        {17270, 9000, 1920, 100, 0},
        {5390, 9000, 600, 37, 3},
        {1970, 9900, 20, 37, 1},
        {123456, 10000, 0, 37, 1},
        {0, 0, 43800, 100, 0},
        {99999, 0, 43800, 100, 0},
        {43790, 5000, 43800, 100, 0},        // exactly
        {43789, 5000, 43799, 100, 0},        // one below the ceiling
        {43791, 5000, 43800, 100, 0},        // one above
        {715, 5000, 725, 100, 0},            // 720 to 2159
        {710, 5000, 720, 100, 0},            // the lower end
        {709, 5000, 719, 37, 3},             //
        {15, 5000, 25, 37, 3},               // the upper end of prefail
        {14, 5000, 24, 37, 1},               //
        {0, 1, 43800, 100, 0},               // 10 * 9999 hours
        {0, 9999, 0, 37, 1},                 //
        {100, 10001, 43800, 100, 0},         // wraps
        {100, 0xFFFF, 43800, 100, 0},        // the widest wear there is
        {2149, 5000, 2159, 100, 0},          //
        {2150, 5000, 2160, 100, 0},          //
        {1000000000000ULL, 1, 43800, 100, 0} //
    };
    for (const auto &item : cases) {
        Object(id).baseInfo->diskState = 0;
        SetWear(id, item.hours, item.wear);

        Run();

        EXPECT_EQ(Drm(id).diskLife, item.life) << item.hours << " " << item.wear;
        EXPECT_EQ(Drm(id).healthScore, item.score) << item.hours << " " << item.wear;
        EXPECT_EQ(State(id), item.state) << item.hours << " " << item.wear;
    }
}

TEST_F(LifeTest, MessagesAndVerdicts)
{
    const uint32_t id = AddSas("SN-0");
    lib::SetDiskLifeMonitorSchedulerCycle(0);
    const std::string disk = std::string(kTag) + "Disk(0) sn(SN-0) ";
    spdk_->ClearRequests();

    SetWear(id, 2150, 5000);
    Run();
    EXPECT_EQ(HostLogged(disk + "need be replaced."), 0u);
    SetWear(id, 2149, 5000);
    Run();
    EXPECT_EQ(HostLogged(4, disk + "need be replaced."), 1u);
    EXPECT_THAT(spdk_->Requests(), IsEmpty());
    SetWear(id, 709, 5000);
    Run();
    EXPECT_EQ(HostLogged(4, disk + "will be prefail, ret(0)."), 1u);
    EXPECT_EQ(HostLogged(4, disk + "need be replaced."), 1u);
    ASSERT_THAT(spdk_->Requests(), SizeIs(2));
    EXPECT_THAT(spdk_->Requests()[0], HasSubstr(R"("params":{"sn":"SN-0","disk_state":3})"));
    EXPECT_THAT(spdk_->Requests()[1], HasSubstr(R"("disk_handle_strategy":"Migrate data and replace the hard disk"})"));
    SetWear(id, 14, 5000);
    Run();
    EXPECT_EQ(HostLogged(4, disk + "will be fault."), 1u);
    ASSERT_THAT(spdk_->Requests(), SizeIs(4));
    EXPECT_THAT(spdk_->Requests()[2], HasSubstr(R"("params":{"sn":"SN-0","disk_state":1})"));
    EXPECT_THAT(spdk_->Requests()[3], HasSubstr(R"("disk_handle_strategy":"Replace the hard disk"})"));
}

TEST_F(LifeTest, LifeReplacesAnyState)
{
    const uint32_t id = AddNvme("SN-0");

    Object(id).baseInfo->diskState = 4;
    EXPECT_EQ(lib::DrmSetLifeMonitorResult(id, 100), 0u);
    EXPECT_EQ(State(id), 3u);
    Object(id).baseInfo->diskState = 1;
    EXPECT_EQ(lib::DrmSetLifeMonitorResult(id, 719), 0u);
    EXPECT_EQ(State(id), 3u);
    EXPECT_EQ(lib::DrmSetLifeMonitorResult(id, 43800), 0u);
    EXPECT_EQ(State(id), 3u) << "nothing sets a disk back";
}

TEST_F(LifeTest, TheLow32BitsAreStoredAndTheWholeIsJudged)
{
    const uint32_t id = AddNvme("SN-0");

    EXPECT_EQ(lib::DrmSetLifeMonitorResult(id, 0x100000005ULL), 0u);

    EXPECT_EQ(Drm(id).diskLife, 5u);
    EXPECT_EQ(Drm(id).healthScore, 100u);
    EXPECT_EQ(State(id), 0u);
}

TEST_F(LifeTest, ADiskThatCannotBeStoredStillChangesItsState)
{
    lib::Global<uint32_t>("g_nextUnusedDiskId") = 70;
    const uint32_t id = AddNvme("SN-70");
    ASSERT_EQ(id, 70u);

    EXPECT_EQ(lib::DrmSetLifeMonitorResult(id, 24), 1u);

    EXPECT_EQ(HostLogged(3, std::string(kTag) + "Set disk(70) sn(SN-70) drm info fail, ret(1)."), 1u);
    EXPECT_EQ(HostLogged(4, std::string(kTag) + "Disk(70) sn(SN-70) will be fault."), 1u);
    EXPECT_EQ(HostLogged(4, std::string(kTag) + "Disk(70) sn(SN-70) will be prefail, ret(1)."), 0u);
    EXPECT_EQ(lib::DrmSetLifeMonitorResult(id, 25), 1u);
    EXPECT_EQ(HostLogged(4, std::string(kTag) + "Disk(70) sn(SN-70) will be prefail, ret(1)."), 1u);
    Run();
    EXPECT_EQ(Logged(3, "Handle monitor disk(70) life in event fail(1)."), 1u);
    EXPECT_EQ(Checked(0), 0u);
}

TEST_F(LifeTest, OfAnUnknownDiskTheReadsResultIsTheResult)
{
    EXPECT_EQ(lib::DrmSetLifeMonitorResult(99, 24), 1u);
    EXPECT_EQ(HostLogged(3, std::string(kTag) + "Get disk(99) baseinfo fail, ret(1)."), 1u);
}

TEST_F(LifeTest, ANewDiskIsPredictedAtOnceAndOthersOncePerCycle)
{
    lib::SetDiskLifeMonitorSchedulerCycle(24); // 4 runs
    const uint32_t first = AddSas("SN-0");
    Run(); // 1
    EXPECT_EQ(Drm(first).diskLife, 43800u);
    EXPECT_EQ(Checked(0), 1u);
    SetWear(first, 3000, 1000);
    Run(); // 2
    EXPECT_EQ(Drm(first).diskLife, 43800u);
    const uint32_t second = AddNvme("SN-1");
    SetWear(second, 17270, 9000);
    EXPECT_EQ(Drm(second).diskLife, kFail);
    Run(); // 3
    EXPECT_EQ(Drm(second).diskLife, 1920u);
    EXPECT_EQ(Drm(first).diskLife, 43800u);
    Run(); // 4: due
    EXPECT_EQ(Drm(first).diskLife, 27090u);
    SetWear(first, 0, 0);
    for (int i = 0; i < 3; i++) {
        Run();
        EXPECT_EQ(Drm(first).diskLife, 27090u);
    }
    Run(); // 8
    EXPECT_EQ(Drm(first).diskLife, 43800u);
}

TEST_F(LifeTest, TheDayHas17280Runs)
{
    EXPECT_EQ(lib::Global<uint32_t>("g_diskLifeMonitorSchedulerCycle"), 86400u);
    const uint32_t id = AddSas("SN-0");
    Run();
    SetWear(id, 3000, 1000);

    for (int run = 2; run < 17280; run++) {
        (void)lib::DrmDiskLifeMonitorMasterSchedule(0, 0);
    }
    EXPECT_EQ(Drm(id).diskLife, 43800u);
    Run();
    EXPECT_EQ(Drm(id).diskLife, 27090u);
}

TEST_F(LifeTest, OnlyCodeZeroPredicts)
{
    const uint32_t id = AddSas("SN-0");

    EXPECT_EQ(lib::DrmDiskLifeMonitorMasterSchedule(0, 64), 0u);
    EXPECT_EQ(lib::DrmDiskLifeMonitorMasterSchedule(1, 0), 0u);
    EXPECT_EQ(lib::DrmDiskLifeMonitorMasterSchedule(0, 1), 0u);

    EXPECT_EQ(Drm(id).diskLife, kFail);
}

TEST_F(LifeTest, ADiskThatCannotBeReadIsTriedAtEachRun)
{
    const uint32_t id = AddSas("SN-0");
    ASSERT_EQ(lib::DiskStateSet(id, Sn("SN-0"), 2), 0u);
    ClearHostLines();

    Run();
    Run();

    EXPECT_EQ(Logged(3, "Query disk(0) health info life in event fail(-1)."), 2u);
    EXPECT_EQ(Checked(0), 0u);
}

TEST_F(LifeTest, OnlySasSsdsAndNvmeDisksAreMonitored)
{
    const uint32_t sata = AddSata("SN-0");
    const uint32_t sas = AddSas("SN-1");
    const uint32_t nvme = AddNvme("SN-2");
    const uint32_t hdd = AddHdd("SN-3");

    EXPECT_THAT(IdsOf(List()), ElementsAre(sas, nvme));
    EXPECT_EQ(HostLogged("Disk(0) diskType(0) not support life monitor."), 1u);
    EXPECT_EQ(HostLogged("Disk(3) diskType(3) not support life monitor."), 1u);
    Run();
    EXPECT_EQ(Drm(sata).diskLife, kFail);
    EXPECT_EQ(Drm(hdd).diskLife, kFail);
    EXPECT_EQ(Drm(sata).healthScore, 0u);
}

TEST_F(LifeTest, DisksComeAndGo)
{
    const uint32_t id = AddSas("SN-0");
    Run();
    ClearHostLines();
    EXPECT_EQ(lib::DrmDiskMonitorMasterHandleDiskInEvent(id), 0u);
    EXPECT_EQ(HostLogged("Disk(0) rein."), 1u);
    EXPECT_THAT(IdsOf(List()), ElementsAre(id));
    EXPECT_EQ(Checked(0), 1u);

    EXPECT_EQ(lib::DrmDiskMonitorMasterHandleDiskOutEvent(id), 0u);
    EXPECT_THAT(IdsOf(List()), IsEmpty());
    EXPECT_EQ(lib::DrmDiskMonitorMasterHandleDiskOutEvent(id), 0u);
    EXPECT_EQ(lib::DrmDiskMonitorMasterHandleDiskInEvent(99), kFail);
    EXPECT_EQ(Logged(3, "Get disk(99) type fail."), 1u);
    g_hostResults.heapUntilFailure = 0;
    EXPECT_EQ(lib::DrmDiskMonitorMasterHandleDiskInEvent(id), kFail);
    EXPECT_EQ(Logged(3, "Handle Disk(0) in event fail."), 1u);
    EXPECT_EQ(lib::DrmDiskMonitorMasterHandleDiskInEvent(id), 0u);
    EXPECT_EQ(Checked(0), 0u);
}

TEST_F(LifeTest, EventsReachTheWorkerAtOnce)
{
    EXPECT_EQ(lib::DrmDiskLifeMonitorDiskEventHandle(7, 9), 0u);
    EXPECT_TRUE(WaitForHostLine("Invalid disk event(9) for disk(7)."));
    EXPECT_EQ(lib::DrmDiskLifeMonitorDiskEventHandle(99, 0), 0u);
    EXPECT_TRUE(WaitForHostLine("Handle disk(99) event(0) failed."));
}

TEST_F(LifeTest, AnEventThatCannotBeQueuedIsTold)
{
    g_hostResults.heapUntilFailure = 0;
    EXPECT_EQ(lib::DrmDiskLifeMonitorDiskEventHandle(5, 0), kFail);
    EXPECT_EQ(Logged(3, "Handle disk event: disk(5) event(0) fail."), 1u);
    g_hostResults.allocStructure = 1;
    EXPECT_EQ(lib::DrmDiskLifeMonitorDiskEventHandle(6, 1), kFail);
    EXPECT_EQ(Logged(3, "queue disk(6) event(1) failed."), 1u);
}

TEST_F(LifeTest, SecondInitFailsAtTheSecondActionOnly)
{
    EXPECT_EQ(lib::DrmDiskLifeMonitorInit(), kFail);

    EXPECT_EQ(Logged(3, "OpCode(0x20f0001) has already been registered."), 1u);
    EXPECT_EQ(Logged(3, "OpCode(0x20f0101) has already been registered."), 1u);
    EXPECT_EQ(Logged(3, "register drm disk life monitor action handle fail."), 1u);
}

TEST_F(LifeTest, InitFailsIfItsSlotIsTaken)
{
    ASSERT_EQ(lib::DrmTaskSchedulerInit(), 0u);
    ASSERT_EQ(lib::DrmActionHandleInit(), 0u);
    (void)lib::DrmRegisterAnalyser(15, nullptr, kFail, nullptr, kFail, 1);

    EXPECT_EQ(lib::DrmDiskLifeMonitorInit(), kFail);

    EXPECT_EQ(Logged(3, "register drm disk life monitor analyzer fail."), 1u);
}

/** Everything as a host has it: events reach the workers, and only the tick comes from the test. */
class FeatureRoadTest : public DrmTest {
protected:
    void SetUp() override { spdk_ = std::make_unique<FakeAgent>(kSpdkSocket); }

    static std::string Entry(const std::string &id, const std::string &sn, const std::string &vendor)
    {
        return R"({"diskId":)" + id + R"(,"diskState":0,"frameId":1,"slotId":2,"sectorSize":512,"diskType":1,)" +
               R"("mediaType":2,"diskCapacity":"480103981056","vendor":")" + vendor + R"(","model":"M","sn":")" + sn +
               R"(","pciAddr":"","firmware":"FW1"})";
    }

    static bool Handled(const std::string &disk)
    {
        return WaitForHostLine("Handle disk(" + disk + ") event(0) ret(0)");
    }
};

TEST_F(FeatureRoadTest, RegisteredDisksAreAnnouncedAtTheStart)
{
    WriteText(RegistryPath(), "[" + Entry("5", "SN-5", "ORSYL") + "," + Entry("9", "SN-9", "0x1f7c") + "]");

    StartQuiet();

    EXPECT_TRUE(Handled("5"));
    EXPECT_TRUE(Handled("9"));
    for (const uint32_t disk : {5u, 9u}) {
        void *group = nullptr;
        lib::LockFeatureData(16);
        ASSERT_EQ(lib::getFeatureLocPrivateData(disk, 16, &group), 0u);
        ASSERT_NE(group, nullptr);
        EXPECT_EQ(*static_cast<uint32_t *>(group), disk == 5 ? 1u : 2u);
        lib::UnlockFeatureData(16);
    }
}

TEST_F(FeatureRoadTest, TicksBringVerdicts)
{
    WriteText(RegistryPath(), "[" + Entry("5", "SN-5", "ORSYL") + "," + Entry("9", "SN-9", "0x1f7c") + "]");
    StartQuiet();
    ASSERT_TRUE(Handled("5"));
    ASSERT_TRUE(Handled("9"));
    lib::DprSwitchConfig on{0, 1};
    ASSERT_EQ(lib::DrmDprSetSwitchConfig(&on), 0u);
    lib::DiskHealthInfo health{};
    health.powerOnHours = 3000;
    health.wearInt = 10;
    ASSERT_EQ(lib::DiskHealthInfoSet(Sn("SN-5"), &health), 0u);
    health.detail[0] = 242;
    ASSERT_EQ(lib::DiskHealthInfoSet(Sn("SN-9"), &health), 0u);

    for (int tick = 1; tick <= 5; tick++) {
        ExpireLastTimer();
    }
    EXPECT_TRUE(Eventually([] { return Drm(5).diskLife == 27090 && Drm(9).diskLife == 27090; }));
    EXPECT_EQ(State(9), 0u) << "its group comes at tick 20";
    // Runs that find the one before waiting coalesce with it, so their number is not to be told.
    EXPECT_TRUE(Eventually([] {
        ExpireLastTimer();
        return State(9) == 3;
    }));
    EXPECT_TRUE(WaitForHostLine("[DRM_FEATURE]Find prefail disk(9)."));
    EXPECT_EQ(State(5), 0u);
}

} // namespace
