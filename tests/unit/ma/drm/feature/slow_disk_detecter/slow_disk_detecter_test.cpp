#include "ma/drm/feature/slow_disk_detecter/slow_disk_detecter.h"

#include <atomic>
#include <thread>

#include "ma/drm/feature/slow_disk_detecter/slow_disk_detector_debug.h"
#include "ma/drm/framework/debug/drm_compact_debug.h"
#include "ma/drm/framework/drm_disk_event.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_seperate.h"
#include "ma/drm/framework/drm_timer.h"
#include "unit/ma/drm/feature/slow_disk_detecter/slow_disk_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr uint32_t kFail = 0xFFFFFFFFu;
constexpr uint64_t kServeTimeMax = 0xFFFFFFFFu;

} // namespace

class DrmClassicalSlowDiskDetectV2InitTest : public SlowDiskTest {};
class DrmConfigClassicalSlowDiskDetectV2Test : public SlowDiskTest {};
class DrmGetSlowDiskDetectZoneTest : public SlowDiskTest {};
class DrmSlowDiskGetSlowCycleCntTest : public SlowDiskTest {};
class DrmSlowDiskDetectorDiskEventHandleTest : public SlowDiskTest {};
class DrmSlowDiskDetectorHandleDiskEventTest : public SlowDiskTest {};
class DrmSlowDiskDetectorHandleDiskInEventTest : public SlowDiskTest {};
class DrmSlowDiskDetectorHandleDiskOutEventTest : public SlowDiskTest {};
class DrmSlowDiskDetectorLocalScheduleTest : public SlowDiskTest {};
class DrmSlowDiskDetectTest : public SlowDiskTest {};
class DrmSlowDiskDetectInZoneTest : public SlowDiskTest {};
class DrmSlowDiskDetectCollectDiskPerformaceTest : public SlowDiskTest {};
class DrmSlowDiskDetectFindSuspectedSlowDiskTest : public SlowDiskTest {};
class DrmSlowDiskDetectCheckIsSlowDiskTest : public SlowDiskTest {};
class SlowDiskThreadsTest : public SlowDiskTest {};

TEST_F(DrmClassicalSlowDiskDetectV2InitTest, RegistersAnalyserHandlerAndCommands)
{
    DrmClassicalSlowDiskDetectV2Exit();
    Zone().cycleIndex = 7;

    EXPECT_EQ(DrmClassicalSlowDiskDetectV2Init(), 0u);

    EXPECT_EQ(g_drmLocalDiskUpdateHandle[3].localHandler, DrmSlowDiskDetectorDiskEventHandle);
    EXPECT_EQ(g_drmLocalDiskUpdateHandle[3].masterHandler, nullptr);
    ASSERT_EQ(Commands().size(), 1u);
    EXPECT_STREQ(Commands()[0].name, "u_drm_slow_disk");
    EXPECT_NE(DrmDebugGetDiagCmdClusterByName("u_drm_slow_disk"), nullptr);
    EXPECT_EQ(Zone().cycleIndex, 0u);
    DrmExecSeperateSchedAnalysis(DRM_FEATURE_SLOW_DISK, DRM_ANALYSER_LOCAL, DRM_CODE_SCHEDULE);
    EXPECT_EQ(Zone().cycleIndex, 1u);
    DrmExecSeperateSchedAnalysis(DRM_FEATURE_SLOW_DISK, DRM_ANALYSER_MASTER, DRM_CODE_SCHEDULE);
    EXPECT_EQ(Zone().cycleIndex, 1u);
    ForgetRegistrations();
}

TEST_F(DrmClassicalSlowDiskDetectV2InitTest, RunsOneTickAfterEveryThird)
{
    DrmClassicalSlowDiskDetectV2Exit();
    EXPECT_EQ(DrmClassicalSlowDiskDetectV2Init(), 0u);
    std::vector<uint64_t> due;

    Knobs().itemFailAfter = 0; // a run that is due fails to be queued, and is told of by the pool
    for (uint64_t tick = 0; tick <= 7; tick++) {
        ClearHostLog();
        DrmSeperateSchedTickHandler(DRM_FEATURE_SLOW_DISK, tick);
        if (!HostLog().empty()) {
            due.push_back(tick);
        }
    }

    Knobs().itemFailAfter = -1;
    EXPECT_THAT(due, ElementsAre(1u, 4u, 7u));
    ForgetRegistrations();
}

TEST_F(DrmClassicalSlowDiskDetectV2InitTest, FailsOnlyWithoutAnalyser)
{
    DrmClassicalSlowDiskDetectV2Exit();
    EXPECT_NE(DrmRegisterAnalyser(DRM_FEATURE_SLOW_DISK, nullptr, 0, nullptr, 0, 7), 0u);

    EXPECT_EQ(DrmClassicalSlowDiskDetectV2Init(), kFail);

    EXPECT_TRUE(Told("Reigster drm slow disk detect analyzer fail"));
    EXPECT_THAT(Commands(), IsEmpty());
    ForgetRegistrations();
}

TEST_F(DrmClassicalSlowDiskDetectV2InitTest, ExitTakesHandlersAndCommandsBack)
{
    DrmClassicalSlowDiskDetectV2Exit();

    EXPECT_EQ(g_drmLocalDiskUpdateHandle[3].localHandler, nullptr);
    EXPECT_THAT(Commands(), IsEmpty());
    EXPECT_THAT(RemovedCommands(), ElementsAre("u_drm_slow_disk"));
    EXPECT_EQ(DrmDebugGetDiagCmdClusterByName("u_drm_slow_disk"), nullptr);
    EXPECT_EQ(DrmClassicalSlowDiskDetectV2Init(), 0u);
    ForgetRegistrations();
}

TEST_F(DrmConfigClassicalSlowDiskDetectV2Test, DefaultsDifferForHardDisks)
{
    for (uint32_t type = 0; type < 4; type++) {
        const ClassicalSlowDiskDetectV2Config *row = DrmGetSlowDiskDetectV2Config(type);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->diskType, type);
        EXPECT_EQ(row->minThresholdValue, type == 3 ? 100 : 1);
        EXPECT_EQ(row->minSlowCycle, 50);
    }
    EXPECT_EQ(DrmGetSlowDiskDetectV2Config(4), nullptr);
}

TEST_F(DrmConfigClassicalSlowDiskDetectV2Test, TakesTheBoundsAndRefusesWhatIsBeyond)
{
    struct Row {
        uint32_t type;
        uint8_t threshold;
        uint8_t slowCycle;
        uint32_t expected;
    };
    const Row rows[] = {{0, 1, 10, 0},     {1, 255, 100, 0}, {2, 7, 50, 0},    {3, 100, 11, 0},    {4, 1, 50, kFail},
                        {0, 0, 50, kFail}, {0, 1, 9, kFail}, {0, 1, 0, kFail}, {0, 1, 101, kFail}, {0, 1, 255, kFail}};

    for (const Row &row : rows) {
        ClassicalSlowDiskDetectV2Config config = {row.type, row.threshold, row.slowCycle};
        ClassicalSlowDiskDetectV2Config before = *DrmGetSlowDiskDetectV2Config(row.type & 3);

        EXPECT_EQ(DrmConfigClassicalSlowDiskDetectV2(&config), row.expected) << +row.threshold << +row.slowCycle;

        const ClassicalSlowDiskDetectV2Config *stored = DrmGetSlowDiskDetectV2Config(row.type & 3);
        const ClassicalSlowDiskDetectV2Config &expected = row.expected == 0 ? config : before;
        EXPECT_EQ(stored->diskType, row.type & 3);
        EXPECT_EQ(stored->minThresholdValue, expected.minThresholdValue);
        EXPECT_EQ(stored->minSlowCycle, expected.minSlowCycle);
    }
    EXPECT_EQ(DrmConfigClassicalSlowDiskDetectV2(nullptr), kFail);
}

TEST_F(DrmGetSlowDiskDetectZoneTest, FourZones)
{
    for (uint32_t type = 0; type < 4; type++) {
        EXPECT_EQ(DrmGetSlowDiskDetectZone(type), &g_drm_slow_disk_detecter_zones[type]);
    }
    EXPECT_EQ(DrmGetSlowDiskDetectZone(4), nullptr);
}

TEST_F(DrmSlowDiskGetSlowCycleCntTest, CountsTheFirstHundredBits)
{
    DrmDiskIostatWindow window{};
    EXPECT_EQ(DrmSlowDiskGetSlowCycleCnt(&window), 0u);

    window.slowBits[0] = 0x81;
    window.slowBits[12] = 0x08; // slot 99
    EXPECT_EQ(DrmSlowDiskGetSlowCycleCnt(&window), 3u);
    window.slowBits[12] = 0xF0; // no slots
    EXPECT_EQ(DrmSlowDiskGetSlowCycleCnt(&window), 2u);
    std::memset(window.slowBits, 0xFF, sizeof(window.slowBits));
    EXPECT_EQ(DrmSlowDiskGetSlowCycleCnt(&window), 100u);
}

TEST_F(DrmSlowDiskDetectorDiskEventHandleTest, OnlyQueues)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);

    EXPECT_EQ(DrmSlowDiskDetectorDiskEventHandle(5, DISK_EVENT_IN), 0u);

    EXPECT_THAT(Members(), IsEmpty());
    EXPECT_EQ(HeapBlocks(), 1);
    EXPECT_EQ(PoolItems(), 1);
    DrmSlowDiskDetectorHandleDiskEvent();
    EXPECT_THAT(Members(), ElementsAre(5u));
    EXPECT_EQ(PoolItems(), 0);
}

TEST_F(DrmSlowDiskDetectorDiskEventHandleTest, WithoutMemoryNothingIsQueued)
{
    Knobs().heapFailAfter = 0;
    EXPECT_EQ(DrmSlowDiskDetectorDiskEventHandle(5, DISK_EVENT_OUT), kFail);
    EXPECT_TRUE(Told("Handle disk event: disk(5) event(1) fail."));

    Knobs() = HostKnobs();
    Knobs().itemFailAfter = 0;
    EXPECT_EQ(DrmSlowDiskDetectorDiskEventHandle(6, DISK_EVENT_IN), kFail);
    EXPECT_TRUE(Told("queue disk(6) event(0) failed."));
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(DrmSlowDiskDetectorHandleDiskEventTest, HandlesAllInOrderAndFreesThem)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    AddDisk(6, DISK_TYPE_SSD_NVME);
    for (const auto &[diskId, event] : {std::pair(5u, 0u), {6u, 0u}, {5u, 1u}, {5u, 0u}}) {
        EXPECT_EQ(DrmSlowDiskDetectorDiskEventHandle(diskId, event), 0u);
    }

    DrmSlowDiskDetectorHandleDiskEvent();

    EXPECT_THAT(Members(), ElementsAre(6u, 5u));
    EXPECT_EQ(HeapBlocks(), 4); // two members with a window each
    EXPECT_EQ(PoolItems(), 0);
}

TEST_F(DrmSlowDiskDetectorHandleDiskEventTest, TellsOfBadEventsAndFailures)
{
    (void)DrmSlowDiskDetectorDiskEventHandle(5, 2);
    (void)DrmSlowDiskDetectorDiskEventHandle(9, DISK_EVENT_IN);

    DrmSlowDiskDetectorHandleDiskEvent();

    EXPECT_TRUE(Told("Invalid disk event(2) for disk(5)."));
    EXPECT_FALSE(Told("Handle disk(5) event(2) failed."));
    EXPECT_TRUE(Told("Get disk(9) type fail."));
    EXPECT_TRUE(Told("Handle disk(9) event(0) failed."));
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(DrmSlowDiskDetectorHandleDiskInEventTest, GoesToTheZoneOfItsType)
{
    Join(1, DISK_TYPE_SSD_SATA);
    Join(2, DISK_TYPE_SSD_SAS);
    Join(3, DISK_TYPE_SSD_NVME);
    Join(4, DISK_TYPE_HDD_SAS);
    Join(5, DISK_TYPE_HDD_NL_SAS);

    EXPECT_THAT(Members(0), ElementsAre(1u));
    EXPECT_THAT(Members(1), ElementsAre(2u));
    EXPECT_THAT(Members(2), ElementsAre(3u));
    EXPECT_THAT(Members(3), ElementsAre(4u, 5u));
    const DrmDiskIostatWindow zeroed{};
    EXPECT_EQ(std::memcmp(&Window(3), &zeroed, sizeof(zeroed)), 0);
    EXPECT_EQ(reinterpret_cast<DrmSlowDiskObj *>(Zone(2).disks.next)->reserved, 0u);
    EXPECT_TRUE(HostLog().empty());
}

TEST_F(DrmSlowDiskDetectorHandleDiskInEventTest, AMemberKeepsItsWindow)
{
    Join(5);
    void *window = PrivateData(5);
    Mark(5, 3);

    EXPECT_EQ(DrmSlowDiskDetectorHandleDiskInEvent(5), 0u);

    EXPECT_EQ(HostLogCount(CORVANE_LOG_INFO, "Disk(5) re in."), 1u);
    EXPECT_THAT(Members(), ElementsAre(5u));
    EXPECT_EQ(PrivateData(5), window);
    EXPECT_EQ(Marks(5), 3u);
    EXPECT_EQ(HeapBlocks(), 2);
}

TEST_F(DrmSlowDiskDetectorHandleDiskInEventTest, UnknownDisksAndTypesFail)
{
    AddDisk(5, DISK_TYPE_HDD_SATA);

    EXPECT_EQ(DrmSlowDiskDetectorHandleDiskInEvent(5), kFail);
    EXPECT_TRUE(Told("Get disk(5) type fail."));
    EXPECT_EQ(DrmSlowDiskDetectorHandleDiskInEvent(9), kFail);
    EXPECT_TRUE(Told("Get disk(9) type fail."));
    EXPECT_EQ(PrivateData(5), nullptr);
}

TEST_F(DrmSlowDiskDetectorHandleDiskInEventTest, WithoutMemoryNothingIsLeft)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);

    Knobs().heapFailAfter = 0;
    EXPECT_EQ(DrmSlowDiskDetectorHandleDiskInEvent(5), kFail);
    EXPECT_TRUE(Told("Malloc disk obj(5) fail."));
    Knobs().heapFailAfter = 1;
    EXPECT_EQ(DrmSlowDiskDetectorHandleDiskInEvent(5), kFail);
    EXPECT_TRUE(Told("create iostat fail for disk(5)."));

    EXPECT_THAT(Members(), IsEmpty());
    EXPECT_EQ(HeapBlocks(), 0);
    EXPECT_EQ(PrivateData(5), nullptr);
    Knobs().heapFailAfter = -1;
    EXPECT_EQ(DrmSlowDiskDetectorHandleDiskInEvent(5), 0u);
}

TEST_F(DrmSlowDiskDetectorHandleDiskInEventTest, ADiskWithoutARowIsNoMember)
{
    EXPECT_EQ(DrmSlowDiskDetectorAddDiskToZone(&Zone(), 128), kFail);

    EXPECT_TRUE(Told("set locale private data fail for disk(128)."));
    EXPECT_THAT(Members(), IsEmpty());
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(DrmSlowDiskDetectorHandleDiskOutEventTest, LeavesWithItsWindow)
{
    Join(5);
    Join(6);
    Join(7);

    EXPECT_EQ(DrmSlowDiskDetectorHandleDiskOutEvent(6), 0u);

    EXPECT_THAT(Members(), ElementsAre(5u, 7u));
    EXPECT_EQ(PrivateData(6), nullptr);
    EXPECT_EQ(HeapBlocks(), 4);
}

TEST_F(DrmSlowDiskDetectorHandleDiskOutEventTest, IsFoundInAnyZoneThoughTheStoreForgotIt)
{
    const uint32_t types[] = {DISK_TYPE_SSD_SATA, DISK_TYPE_SSD_SAS, DISK_TYPE_SSD_NVME, DISK_TYPE_HDD_SAS};
    for (uint32_t type = 0; type < 4; type++) {
        Join(10 + type, types[type]);
        DataMgrObj *obj = std::exchange(g_diskDataMgr[10 + type], nullptr);

        EXPECT_EQ(DrmSlowDiskDetectorHandleDiskOutEvent(10 + type), 0u);

        EXPECT_THAT(Members(type), IsEmpty());
        g_diskDataMgr[10 + type] = obj;
    }
    EXPECT_EQ(HeapBlocks(), 0);
    EXPECT_TRUE(HostLog().empty());
}

TEST_F(DrmSlowDiskDetectorHandleDiskOutEventTest, ADiskInNoZoneIsNoFailure)
{
    EXPECT_EQ(DrmSlowDiskDetectorHandleDiskOutEvent(6), 0u);

    EXPECT_TRUE(HostLog().empty());
}

TEST_F(DrmSlowDiskDetectorHandleDiskOutEventTest, ALostWindowIsTold)
{
    Join(5);
    void *window = std::exchange(g_drmAllLocalDiskInfo.disks[5].featureData[3], nullptr);

    EXPECT_EQ(DrmSlowDiskDetectorHandleDiskOutEvent(5), 0u);

    EXPECT_TRUE(Told("Get private data fail for disk(5)."));
    EXPECT_THAT(Members(), IsEmpty());
    DrmFreeUmmMem("test", 0, window, 0);
}

TEST_F(DrmSlowDiskDetectorHandleDiskOutEventTest, AReturningDiskStartsAnew)
{
    Join(5);
    Set(5, {.svctm = 5000});
    Sample(20);
    EXPECT_EQ(Marks(5), 20u);

    (void)DrmSlowDiskDetectorHandleDiskOutEvent(5);
    EXPECT_EQ(DrmSlowDiskDetectorHandleDiskInEvent(5), 0u);

    EXPECT_EQ(Marks(5), 0u);
    EXPECT_EQ(Window(5).samples[20].svctm, 0u);
}

TEST_F(DrmSlowDiskDetectorLocalScheduleTest, CodesDecideWhatRuns)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    (void)DrmSlowDiskDetectorDiskEventHandle(5, DISK_EVENT_IN);

    EXPECT_EQ(DrmSlowDiskDetectorLocalSchedule(1), 0u);
    EXPECT_EQ(DrmSlowDiskDetectorLocalSchedule(65), 0u);
    EXPECT_EQ(Zone().cycleIndex, 0u);
    EXPECT_THAT(Members(), IsEmpty());
    EXPECT_EQ(DrmSlowDiskDetectorLocalSchedule(64), 0u);
    EXPECT_EQ(Zone().cycleIndex, 0u);
    EXPECT_THAT(Members(), ElementsAre(5u));
    (void)DrmSlowDiskDetectorDiskEventHandle(5, DISK_EVENT_OUT);
    EXPECT_EQ(DrmSlowDiskDetectorLocalSchedule(0), 0u);
    EXPECT_EQ(Zone().cycleIndex, 1u);
    EXPECT_THAT(Members(), IsEmpty());
}

TEST_F(DrmSlowDiskDetectorLocalScheduleTest, SamplesBeforeItHandlesEvents)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    Set(5, {.svctm = 5});
    (void)DrmSlowDiskDetectorDiskEventHandle(5, DISK_EVENT_IN);

    Sample();

    EXPECT_FALSE(Bit(Window(5).validBits, 1));
    Sample();
    EXPECT_TRUE(Bit(Window(5).validBits, 2));
}

TEST_F(DrmSlowDiskDetectTest, TheSwitchStopsSamplesButNotEvents)
{
    Join(5);
    Set(5, {.svctm = 5000});
    EXPECT_EQ(DrmSetClassicalSlowDiskDetectV2Switch(0), 0u);
    AddDisk(6, DISK_TYPE_SSD_NVME);
    (void)DrmSlowDiskDetectorDiskEventHandle(6, DISK_EVENT_IN);

    Sample();

    EXPECT_EQ(Zone().cycleIndex, 0u);
    EXPECT_EQ(Marks(5), 0u);
    EXPECT_THAT(Members(), ElementsAre(5u, 6u));
    EXPECT_EQ(DrmSetClassicalSlowDiskDetectV2Switch(1), 0u);
    Sample();
    EXPECT_EQ(Zone().cycleIndex, 1u);
    EXPECT_EQ(Marks(5), 1u);
}

TEST_F(DrmSlowDiskDetectTest, EachZoneHasItsOwnComparison)
{
    const uint32_t types[] = {DISK_TYPE_SSD_SATA, DISK_TYPE_SSD_SAS, DISK_TYPE_SSD_NVME, DISK_TYPE_HDD_SAS};
    for (uint32_t type = 0; type < 4; type++) {
        Join(10 + type, types[type]);
        Set(10 + type, {.svctm = 100000});
    }

    Sample();

    for (uint32_t type = 0; type < 4; type++) {
        EXPECT_EQ(Zone(type).cycleIndex, 1u);
        EXPECT_TRUE(MarkedNow(10 + type, type)) << type;
    }
}

TEST_F(DrmSlowDiskDetectInZoneTest, SlotsRunRoundFromOne)
{
    Join(5);
    Set(5, {.svctm = 7});

    Sample();
    EXPECT_EQ(Zone().cycleIndex, 1u);
    EXPECT_FALSE(Bit(Window(5).validBits, 0));
    EXPECT_TRUE(Bit(Window(5).validBits, 1));
    Sample(98);
    EXPECT_EQ(Zone().cycleIndex, 99u);
    EXPECT_FALSE(Bit(Window(5).validBits, 0));
    EXPECT_TRUE(Bit(Window(5).validBits, 99));
    Sample();
    EXPECT_EQ(Zone().cycleIndex, 0u);
    EXPECT_TRUE(Bit(Window(5).validBits, 0));
    EXPECT_EQ(Window(5).validBits[12], 0x0F);
    Sample();
    EXPECT_EQ(Zone().cycleIndex, 1u);
}

TEST_F(DrmSlowDiskDetectInZoneTest, AMarkLeavesTheWindowAfterAHundredSamples)
{
    Join(5);
    Set(5, {.svctm = 5000});
    Sample(3);
    Set(5, {.svctm = 7});

    Sample(97);
    EXPECT_EQ(Marks(5), 3u);
    Sample();
    EXPECT_EQ(Marks(5), 2u);
    Sample(2);
    EXPECT_EQ(Marks(5), 0u);
}

TEST_F(DrmSlowDiskDetectInZoneTest, ADiskAloneIsReportedAfterTheMarksItNeeds)
{
    Join(5);
    Set(5, {.svctm = 5000});

    Sample(49);
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_NORMAL));
    Sample();

    EXPECT_EQ(Marks(5), 50u);
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_SLOW));
    EXPECT_TRUE(Failed("Find slow disk(5)."));
}

TEST_F(DrmSlowDiskDetectInZoneTest, LeastAndMostMarks)
{
    for (const uint32_t slowCycle : {10u, 100u}) {
        const uint32_t diskId = slowCycle == 10 ? 5 : 6;
        const std::string report = "Find slow disk(" + std::to_string(diskId) + ").";
        Join(diskId);
        Set(diskId, {.svctm = 5000});
        Configure(kNvme, 1, static_cast<uint8_t>(slowCycle));

        Sample(slowCycle - 1);
        EXPECT_FALSE(Failed(report));
        Sample();
        EXPECT_TRUE(Failed(report));
        (void)DrmSlowDiskDetectorHandleDiskOutEvent(diskId);
    }
}

TEST_F(DrmSlowDiskDetectInZoneTest, RepeatedReportsChangeTheStateOnce)
{
    Join(5);
    Set(5, {.svctm = 5000});
    Sample(60);
    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, kFeatureModule, "Find slow disk(5)."), 1u);
    EXPECT_EQ(doubles_.messages.size(), 2u); // state and strategy

    SetState(5, DISK_STATE_PREFAIL);
    Sample();

    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_SLOW));
    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, kFeatureModule, "Find slow disk(5)."), 2u);
}

TEST_F(DrmSlowDiskDetectInZoneTest, WithoutAMarkInThisSampleThereIsNoReport)
{
    Join(5);
    Mark(5, 99);
    Set(5, {.svctm = 7});

    Sample(10);

    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_NORMAL));
}

TEST_F(DrmSlowDiskDetectInZoneTest, ReportsOutsideTheLock)
{
    static uint32_t lockedAtReport;
    lockedAtReport = 77;
    g_dataMgrSendRpc = [](uint32_t, DiskSnRef, void *) -> uint32_t {
        lockedAtReport = g_drmAllLocalDiskInfo.locks[DRM_FEATURE_SLOW_DISK].lock;
        return 0;
    };
    Join(5);
    Mark(5, 60, 10);
    Set(5, {.svctm = 5000});

    Sample();

    EXPECT_EQ(lockedAtReport, 0u);
    g_dataMgrSendRpc = data_mgr_test::FakeSend;
}

TEST_F(DrmSlowDiskDetectInZoneTest, CollectsUnderTheLock)
{
    static uint32_t lockedAtRead;
    lockedAtRead = 77;
    Join(5);
    DataMgrInfoGetFunc row =
        std::exchange(g_diskInfoGetFunc[DISK_INFO_IO], [](uint32_t, DiskSnRef, void *, uint32_t) -> uint32_t {
            lockedAtRead = g_drmAllLocalDiskInfo.locks[DRM_FEATURE_SLOW_DISK].lock;
            return 1;
        });

    Sample();

    g_diskInfoGetFunc[DISK_INFO_IO] = row;
    EXPECT_EQ(lockedAtRead, 1u);
}

TEST_F(DrmSlowDiskDetectInZoneTest, NoZoneNoSample)
{
    DrmSlowDiskDetectInZone(nullptr, kNvme);
    DrmSlowDiskDetectInZone(&Zone(), 4);

    EXPECT_EQ(Zone().cycleIndex, 0u);
}

TEST_F(DrmSlowDiskDetectCollectDiskPerformaceTest, SumsBothDirectionsAndKeepsLowHalves)
{
    Join(5);
    SetStat(5, {.readIops = 100,
                .writeIops = 23,
                .readIoBand = 1000,
                .writeIoBand = 7,
                .readIoDelay = 8,
                .writeIoDelay = 9,
                .queueDepth = 10,
                .ioBusyNum = 0x10003,
                .avgServeTime = 70000,
                .utilizationInt = 99,
                .utilizationFrac = 12});

    Sample();

    const DrmDiskIostatSample &sample = Window(5).samples[1];
    EXPECT_EQ(sample.iops, 123u);
    EXPECT_EQ(sample.bandwidth, 1007u);
    EXPECT_EQ(sample.svctm, 70000u);
    EXPECT_EQ(sample.util, 99u);
    EXPECT_EQ(sample.busyNum, 3u);
    EXPECT_TRUE(Bit(Window(5).validBits, 1));
}

TEST_F(DrmSlowDiskDetectCollectDiskPerformaceTest, AFailedReadEmptiesTheSlot)
{
    Join(5);
    Set(5, {.svctm = 5000});
    Sample(100);
    EXPECT_EQ(Marks(5), 100u);
    ForgetStat(5);

    Sample();

    EXPECT_TRUE(Told("get disk(5) io stat fail."));
    EXPECT_FALSE(Bit(Window(5).validBits, 1));
    EXPECT_FALSE(Bit(Window(5).slowBits, 1));
    EXPECT_EQ(Window(5).samples[1].svctm, 0u);
    EXPECT_EQ(Window(5).samples[1].iops, 0u);
    EXPECT_EQ(Marks(5), 99u);
}

TEST_F(DrmSlowDiskDetectCollectDiskPerformaceTest, ADiskWithoutWindowIsPassedOver)
{
    Join(5);
    Join(6);
    Set(5, {.svctm = 7});
    Set(6, {.svctm = 8});
    void *window = std::exchange(g_drmAllLocalDiskInfo.disks[5].featureData[3], nullptr);

    Sample();

    g_drmAllLocalDiskInfo.disks[5].featureData[3] = window;
    EXPECT_TRUE(Told("Get private data for disk(5) fail."));
    EXPECT_TRUE(Told("Get private data fail for disk(5)."));
    EXPECT_FALSE(Bit(Window(5).validBits, 1));
    EXPECT_TRUE(Bit(Window(6).validBits, 1));
}

TEST_F(DrmSlowDiskDetectCollectDiskPerformaceTest, ADiskWithoutNewFramesRepeatsItsLastSample)
{
    Join(5);
    Set(5, {.svctm = 7});

    Sample(2);

    EXPECT_EQ(Window(5).samples[1].svctm, 7u);
    EXPECT_EQ(Window(5).samples[2].svctm, 7u);
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, EachConditionCounts)
{
    Join(5);
    const std::pair<Io, bool> rows[] = {
        {{.svctm = 1000, .busy = 30, .util = 90, .band = 307200}, true},
        {{.svctm = 999, .busy = 30, .util = 90, .band = 307200}, false},
        {{.svctm = 1000, .busy = 29, .util = 90, .band = 307200}, false},
        {{.svctm = 1000, .busy = 30, .util = 89, .band = 307200}, false},
        {{.svctm = 1000, .busy = 30, .util = 90, .band = 307201}, false},
        {{.svctm = 1000, .busy = 30, .util = 90, .band = 0, .iops = 1}, true},
        {{.svctm = 1000, .busy = 30, .util = 90, .band = 0, .iops = 0}, false},
    };

    for (const auto &[io, marked] : rows) {
        Set(5, io);
        Sample();
        EXPECT_EQ(MarkedNow(5), marked) << io.svctm << ' ' << io.busy << ' ' << io.util << ' ' << io.band;
    }
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, CeilingAndThresholdOfEveryZone)
{
    const uint32_t types[] = {DISK_TYPE_SSD_SATA, DISK_TYPE_SSD_SAS, DISK_TYPE_SSD_NVME, DISK_TYPE_HDD_SAS};
    for (uint32_t type = 0; type < 4; type++) {
        const uint64_t svctm = type == kHdd ? 100000 : 1000;
        const uint64_t ceiling = type == kHdd ? 15360 : 307200;
        Join(10 + type, types[type]);

        Set(10 + type, {.svctm = svctm, .band = ceiling});
        Sample();
        EXPECT_TRUE(MarkedNow(10 + type, type)) << type;
        Set(10 + type, {.svctm = svctm - 1, .band = ceiling});
        Sample();
        EXPECT_FALSE(MarkedNow(10 + type, type)) << type;
        Set(10 + type, {.svctm = svctm, .band = ceiling + 1});
        Sample();
        EXPECT_FALSE(MarkedNow(10 + type, type)) << type;
    }
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, GreatestThreshold)
{
    Join(5);
    Configure(kNvme, 255, 50);

    Set(5, {.svctm = 254999});
    Sample();
    EXPECT_FALSE(MarkedNow(5));
    Set(5, {.svctm = 255000});
    Sample();
    EXPECT_TRUE(MarkedNow(5));
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, FiveTimesTheMeanOfTheOthersIsEnough)
{
    for (const uint32_t diskId : {5, 6, 7}) {
        Join(diskId);
    }
    struct Row {
        uint64_t first;
        uint64_t second;
        uint64_t third;
        bool marked;
    };
    const Row rows[] = {{10000, 2000, 2000, true},  {10000, 1999, 2001, true},  {9999, 2000, 2000, false},
                        {10000, 2000, 2002, false}, {10000, 2000, 2001, true}, // the division drops a half
                        {10000, 0, 4000, true},     {10004, 2001, 2001, false}, {10005, 2001, 2001, true}};

    for (const Row &row : rows) {
        Set(5, {.svctm = row.first});
        Set(6, {.svctm = row.second, .busy = 1});
        Set(7, {.svctm = row.third, .busy = 1});
        ClearHostLog();
        Sample();
        EXPECT_EQ(MarkedNow(5), row.marked) << row.first << ' ' << row.second << ' ' << row.third;
        EXPECT_FALSE(MarkedNow(6));
        EXPECT_EQ(SuspectLines(1), 0u);
    }
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, TwoSuspectsMarkNobody)
{
    Join(5);
    Join(6);
    Set(5, {.svctm = 50000});
    Set(6, {.svctm = 1000});
    Configure(kNvme, 1, 10);

    Sample(20);

    EXPECT_EQ(Marks(5), 0u);
    EXPECT_EQ(Marks(6), 0u);
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_NORMAL));
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, TellsHowManySuspects)
{
    Join(5, DISK_TYPE_SSD_SATA); // the first zone
    Join(6, DISK_TYPE_SSD_SATA);
    Set(5, {.svctm = 50000});
    Set(6, {.svctm = 1000});

    Sample();

    EXPECT_EQ(SuspectLines(2), 1u);
    EXPECT_EQ(SuspectLines(0), 0u); // of the empty zones: kept back
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, TheMarkGoesToTheLongestServiceTime)
{
    Join(5);
    Join(6);
    Set(5, {.svctm = 1000});             // suspected
    Set(6, {.svctm = 50000, .util = 1}); // not
    Configure(kNvme, 1, 10);

    Sample(10);

    EXPECT_EQ(Marks(5), 0u);
    EXPECT_EQ(Marks(6), 10u);
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_NORMAL));
    EXPECT_EQ(StateOf(6), static_cast<uint32_t>(DISK_STATE_SLOW));
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, OnATieTheFirstInTheListIsTheLongest)
{
    // A tie of two never stands out; the others' sum must wrap for it to show.
    for (const uint32_t diskId : {8, 7, 9}) {
        Join(diskId);
    }
    Set(7, {.svctm = 0xC0000000});
    Set(8, {.svctm = 0xC0000000, .busy = 1});
    Set(9, {.svctm = 0x40000000, .busy = 1});

    Sample();

    EXPECT_THAT(MarkedNowIn(kNvme), ElementsAre(8u));
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, IdleAndInvalidDisksStayOutOfTheMean)
{
    for (const uint32_t diskId : {5, 6, 7, 8}) {
        Join(diskId);
    }
    Set(5, {.svctm = 10000});
    Set(6, {.svctm = 2001, .busy = 1});
    Set(7, {.svctm = 0, .iops = 0});
    ForgetStat(8);

    Sample();
    EXPECT_THAT(MarkedNowIn(kNvme), IsEmpty());
    Set(7, {.svctm = 0, .iops = 1}); // now in the mean
    Sample();
    EXPECT_THAT(MarkedNowIn(kNvme), ElementsAre(5u));
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, AnIdleDiskIsNeitherSuspectedNorLongest)
{
    Join(5);
    Join(6);
    Set(5, {.svctm = 10000});
    Set(6, {.svctm = 90000, .iops = 0});

    Sample();

    EXPECT_THAT(MarkedNowIn(kNvme), ElementsAre(5u));
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, SumsWrap)
{
    for (const uint32_t diskId : {5, 6, 7, 8}) {
        Join(diskId);
    }
    Set(5, {.svctm = 4000000000});
    for (const uint32_t diskId : {6, 7, 8}) {
        Set(diskId, {.svctm = 2000000000, .busy = 1}); // 6e9 in all, which is 1705032704
    }

    Sample();

    EXPECT_TRUE(MarkedNow(5));
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, FiveTimesALongTimeDoesNotWrap)
{
    Join(5);
    Join(6);
    Set(5, {.svctm = kServeTimeMax});
    Set(6, {.svctm = 1000000000, .busy = 1});

    Sample();
    EXPECT_FALSE(MarkedNow(5));
    Set(6, {.svctm = kServeTimeMax / 5, .busy = 1});
    Sample();
    EXPECT_TRUE(MarkedNow(5));
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, GivesTheMarkedDiskOrNone)
{
    Join(5);
    Set(5, {.svctm = 5000});
    const DrmFeatureDataGuard guard(DRM_FEATURE_SLOW_DISK);
    ClassicalSlowDiskDetectV2Config config = {kNvme, 1, 50};
    Zone().cycleIndex = 42;
    DrmSlowDiskDetectCollectDiskPerformace(&Zone());

    EXPECT_EQ(DrmSlowDiskDetectFindSuspectedSlowDisk(&Zone(), &config, 300), 5u);
    EXPECT_TRUE(Bit(Window(5).slowBits, 42));
    DrmSlowDiskDetectCollectDiskPerformace(&Zone());
    config.minThresholdValue = 6;
    EXPECT_EQ(DrmSlowDiskDetectFindSuspectedSlowDisk(&Zone(), &config, 300), kFail);
    EXPECT_FALSE(Bit(Window(5).slowBits, 42));
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, WithoutAnyServiceTimeNobodyIsLongest)
{
    Join(5);
    Set(5, {.svctm = 0});
    const DrmFeatureDataGuard guard(DRM_FEATURE_SLOW_DISK);
    ClassicalSlowDiskDetectV2Config config = {kNvme, 0, 50};
    DrmSlowDiskDetectCollectDiskPerformace(&Zone());

    EXPECT_EQ(DrmSlowDiskDetectFindSuspectedSlowDisk(&Zone(), &config, 300), kFail);

    EXPECT_TRUE(Told("Get private data fail for disk(4294967295)."));
    EXPECT_EQ(Marks(5), 0u);
}

TEST_F(DrmSlowDiskDetectFindSuspectedSlowDiskTest, TheLineOfNobodyIsLimited)
{
    const std::string kept = "print: ";
    const auto Reports = [&kept] {
        std::vector<std::string> texts;
        for (const HostLine &line : HostLog()) {
            if (line.text.starts_with(kept)) {
                texts.push_back(line.text.substr(0, line.text.find(",line=")));
            }
        }
        return texts;
    };
    ClassicalSlowDiskDetectV2Config config = {kNvme, 1, 50};
    const auto FindAt = [&](uint64_t jiffies) {
        SetJiffies(jiffies);
        ClearHostLog();
        EXPECT_EQ(DrmSlowDiskDetectFindSuspectedSlowDisk(&Zone(), &config, 300), kFail);
        return SuspectLines(0);
    };
    (void)FindAt(start_);
    (void)FindAt(start_ + 1); // one missed line, so that the next opening reports
    const uint64_t base = start_ + 1000000;
    EXPECT_EQ(FindAt(base), 1u);

    EXPECT_EQ(FindAt(base + 1), 0u);
    EXPECT_EQ(FindAt(base + 7499), 0u);
    EXPECT_EQ(FindAt(base + 7500), 1u);
    EXPECT_THAT(Reports(), IsEmpty());
    EXPECT_EQ(FindAt(base + 7501), 0u);
    EXPECT_EQ(FindAt(base + 74999), 1u);
    EXPECT_THAT(Reports(), IsEmpty());
    EXPECT_EQ(FindAt(base + 75000), 0u);
    EXPECT_EQ(FindAt(base + 82499), 1u);
    EXPECT_THAT(Reports(), ElementsAre("print: 4 messages suppressed.DrmSlowDiskDetectFindSuspectedSlowDisk"));

    const uint64_t report = base + 82499;
    EXPECT_EQ(FindAt(report + 1), 0u);
    EXPECT_EQ(FindAt(report + 67500), 1u);
    EXPECT_THAT(Reports(), IsEmpty());
    EXPECT_EQ(FindAt(report + 75000), 1u);
    EXPECT_THAT(Reports(), ElementsAre("print: 1 messages suppressed.DrmSlowDiskDetectFindSuspectedSlowDisk"));
}

TEST_F(DrmSlowDiskDetectCheckIsSlowDiskTest, TheCandidateNeedsItsMarks)
{
    Join(5);
    ClassicalSlowDiskDetectV2Config config = {kNvme, 1, 50};

    Mark(5, 49);
    EXPECT_FALSE(DrmSlowDiskDetectCheckIsSlowDisk(&Zone(), &config, 5));
    Mark(5, 50);
    EXPECT_TRUE(DrmSlowDiskDetectCheckIsSlowDisk(&Zone(), &config, 5));
    config.minSlowCycle = 100;
    EXPECT_FALSE(DrmSlowDiskDetectCheckIsSlowDisk(&Zone(), &config, 5));
    Mark(5, 100);
    EXPECT_TRUE(DrmSlowDiskDetectCheckIsSlowDisk(&Zone(), &config, 5));
}

TEST_F(DrmSlowDiskDetectCheckIsSlowDiskTest, OthersMayHaveFourMarks)
{
    for (const uint32_t diskId : {4, 5, 6}) {
        Join(diskId);
    }
    Mark(5, 50);
    ClassicalSlowDiskDetectV2Config config = {kNvme, 1, 50};

    Mark(4, 4);
    Mark(6, 4, 90);
    EXPECT_TRUE(DrmSlowDiskDetectCheckIsSlowDisk(&Zone(), &config, 5));
    Mark(6, 5, 90);
    EXPECT_FALSE(DrmSlowDiskDetectCheckIsSlowDisk(&Zone(), &config, 5));
}

TEST_F(DrmSlowDiskDetectCheckIsSlowDiskTest, DecidesTheReport)
{
    Join(5);
    Join(6);
    Mark(5, 60, 30);
    Mark(6, 5, 30);
    Set(5, {.svctm = 5000});
    Set(6, {.svctm = 7, .busy = 1});

    Sample();
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_NORMAL));
    Sample(29); // slot 30, where the other disk had its first mark

    EXPECT_EQ(Marks(6), 4u);
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_SLOW));
    EXPECT_EQ(StateOf(6), static_cast<uint32_t>(DISK_STATE_NORMAL));
}

TEST_F(DrmSlowDiskDetectCheckIsSlowDiskTest, ADiskWithoutWindowIsPassedOver)
{
    Join(4);
    Join(5);
    Mark(5, 50);
    ClassicalSlowDiskDetectV2Config config = {kNvme, 1, 50};
    Mark(4, 5);
    void *window = std::exchange(g_drmAllLocalDiskInfo.disks[4].featureData[3], nullptr);

    EXPECT_TRUE(DrmSlowDiskDetectCheckIsSlowDisk(&Zone(), &config, 5));

    g_drmAllLocalDiskInfo.disks[4].featureData[3] = window;
    EXPECT_TRUE(Told("Get private data fail for disk(4)."));
    EXPECT_FALSE(DrmSlowDiskDetectCheckIsSlowDisk(&Zone(), &config, 5));
}

TEST_F(SlowDiskThreadsTest, DetectorCommandsSettingsAndEventsTogether)
{
    constexpr uint32_t disks = 20; // of which the first stays
    constexpr uint32_t rounds = 2000;
    for (uint32_t diskId = 0; diskId < disks; diskId++) {
        Join(diskId);
        Set(diskId, diskId == 0 ? Io{.svctm = 300000} : Io{.svctm = 7, .busy = 1});
    }
    std::atomic<bool> stop = false;
    const auto Exec = [](std::string command, std::string argument) {
        std::string cluster = "u_drm_slow_disk";
        char *argv[] = {cluster.data(), command.data(), argument.data()};
        (void)DrmDebugExecDiagCmd(3, argv);
        return TakePrinted().size();
    };
    size_t listed = 0;
    size_t shown = 0;

    std::thread lister([&] {
        do {
            listed += Exec("showdiskinzone", "2");
        } while (!stop);
    });
    std::thread shower([&] {
        for (uint32_t i = 0; !stop || i == 0; i++) {
            shown += Exec("showdiskiostat", std::to_string(i % disks));
        }
    });
    std::thread counter([&] { // as the commands, without the time they take to print
        for (uint32_t i = 0; !stop; i++) {
            const DrmFeatureDataGuard guard(DRM_FEATURE_SLOW_DISK);
            void *window = PrivateData(i % disks);
            if (window != nullptr) {
                EXPECT_LE(DrmSlowDiskGetSlowCycleCnt(static_cast<DrmDiskIostatWindow *>(window)), 100u);
            }
        }
    });
    std::thread settings([&] {
        for (uint32_t i = 0; !stop; i++) {
            ClassicalSlowDiskDetectV2Config config = {kNvme, static_cast<uint8_t>(1 + i % 255),
                                                      static_cast<uint8_t>(10 + i % 91)};
            EXPECT_EQ(DrmConfigClassicalSlowDiskDetectV2(&config), 0u);
            EXPECT_EQ(DrmSetClassicalSlowDiskDetectV2Switch(i % 3 != 0), 0u);
        }
    });
    std::atomic<bool> storeDone = false;
    std::thread store([&] {
        for (uint32_t i = 0; i < rounds; i++) {
            const uint32_t diskId = 1 + i % (disks - 1);
            DrmNotifyDiskEvent(diskId, DISK_EVENT_OUT);
            DrmNotifyDiskEvent(diskId, DISK_EVENT_IN);
        }
        storeDone = true;
    });
    for (uint32_t i = 0; i < 200 || !storeDone; i++) {
        Sample();
    }
    stop = true;
    for (std::thread *thread : {&lister, &shower, &counter, &settings, &store}) {
        thread->join();
    }
    DrmSlowDiskDetectorHandleDiskEvent();

    EXPECT_GT(listed, 0u);
    EXPECT_GT(shown, 0u);
    EXPECT_EQ(Members().size(), disks);
    EXPECT_EQ(HeapBlocks(), 2 * disks);
    EXPECT_EQ(PoolItems(), 0);
}
