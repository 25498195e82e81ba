#include "ma/drm/feature/disk_life_monitor/drm_disk_life_monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/disk_life_monitor_corvane_adapter.h"
#include "unit/ma/drm/feature/health_feature_fixture.h"

using namespace health_feature_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr uint32_t kDefaultCycle = 86400;
constexpr uint32_t kRunsOfADay = 17280;

/** The list is empty and the run counter is 0 before and after each test. */
class LifeMonitorTest : public HealthFeatureTest {
protected:
    ~LifeMonitorTest() override
    {
        for (const uint32_t diskId : Monitored()) {
            EXPECT_EQ(DrmDiskMonitorMasterHandleDiskOutEvent(diskId), DRM_OK);
        }
        SetDiskLifeMonitorSchedulerCycle(0);
        DrmDiskMonitorMasterMonitorDiskLife();
        SetDiskLifeMonitorSchedulerCycle(kDefaultCycle);
    }

    static std::vector<uint32_t> Monitored() { return DisksIn<DrmLifeMonitorDisk>(g_drmDiskLifeMonitorDiskList); }
    /** A disk that is monitored. */
    void Enter(uint32_t diskId, uint32_t diskType = DISK_TYPE_SSD_NVME)
    {
        AddDisk(diskId, diskType);
        ASSERT_EQ(DrmDiskMonitorMasterHandleDiskInEvent(diskId), DRM_OK);
    }
    static uint32_t Checked(uint32_t diskId)
    {
        for (const DrmLifeMonitorDisk *disk : DrmListView<DrmLifeMonitorDisk>(&g_drmDiskLifeMonitorDiskList)) {
            if (disk->diskId == diskId) {
                return disk->checked;
            }
        }
        ADD_FAILURE() << "disk " << diskId << " is not monitored";
        return 0;
    }
    /** Runs, and which disks were looked at meanwhile. */
    std::vector<uint32_t> Visits(uint32_t runs)
    {
        records_.healthReads.clear();
        for (uint32_t i = 0; i < runs; i++) {
            DrmDiskMonitorMasterMonitorDiskLife();
        }
        return records_.healthReads;
    }
    /** What a run stores for a disk of this age and wear. */
    DiskDrmInfo Predict(uint64_t powerOnHours, uint32_t wearInt, uint32_t wearFrac)
    {
        Health(5).powerOnHours = powerOnHours;
        Health(5).wearInt = wearInt;
        Health(5).wearFrac = wearFrac;
        State(5) = DISK_STATE_NORMAL;
        records_.predictions.clear();
        records_.states.clear();
        ClearLogs();
        SetDiskLifeMonitorSchedulerCycle(0);
        DrmDiskMonitorMasterMonitorDiskLife();
        EXPECT_EQ(records_.predictions.size(), 1u);
        return records_.predictions.empty() ? DiskDrmInfo{} : records_.predictions.front().second;
    }
};

using LifeMonitorGlobalsTest = LifeMonitorTest;
using SetDiskLifeMonitorSchedulerCycleTest = LifeMonitorTest;
using DrmDiskMonitorMasterMonitorDiskLifeTest = LifeMonitorTest;
using DrmDiskMonitorMasterHandleDiskInEventTest = LifeMonitorTest;
using DrmDiskMonitorMasterHandleDiskOutEventTest = LifeMonitorTest;

class StartedLifeMonitorTest : public LifeMonitorTest {
protected:
    StartedLifeMonitorTest()
    {
        EXPECT_EQ(DrmDiskLifeMonitorInit(), DRM_OK);
        ClearHostLog();
    }
    ~StartedLifeMonitorTest() override
    {
        g_osCalls.threadCreate = CountingCreate;
        EXPECT_TRUE(WaitForWorkers());
        DrmDiskMonitorMasterHandleDiskEvent();
        DrmDiskLifeMonitorFin();
    }
    /** Puts an event into the queue without starting a worker. */
    static void QueueEvent(uint32_t diskId, uint32_t event)
    {
        g_osCalls.threadCreate = FailingCreate;
        EXPECT_EQ(DrmDiskLifeMonitorDiskEventHandle(diskId, event), DRM_OK);
        g_osCalls.threadCreate = CountingCreate;
        ClearHostLog();
    }
};

using DrmDiskLifeMonitorInitTest = LifeMonitorTest;
using DrmDiskLifeMonitorFinTest = StartedLifeMonitorTest;
using DrmDiskLifeMonitorMasterScheduleTest = StartedLifeMonitorTest;
using DrmDiskLifeMonitorDiskEventHandleTest = StartedLifeMonitorTest;
using DrmDiskMonitorMasterHandleDiskEventTest = StartedLifeMonitorTest;

} // namespace

TEST_F(LifeMonitorGlobalsTest, StartEmptyWithACycleOfADay)
{
    EXPECT_TRUE(DrmListEmpty(&g_drmDiskLifeMonitorDiskList));
    EXPECT_EQ(g_diskLifeMonitorSchedulerCycle, 86400u);
    EXPECT_EQ(DrmDiskLifeMonitorMasterSchedule(0, DRM_CODE_SCHEDULE), 0u) << "before the start";
}

TEST_F(DrmDiskLifeMonitorInitTest, RegistersHandlerAnalyserAndActions)
{
    EXPECT_EQ(DrmDiskLifeMonitorInit(), DRM_OK);

    EXPECT_EQ(g_drmLocalDiskUpdateHandle[15].localHandler, nullptr);
    EXPECT_EQ(g_drmLocalDiskUpdateHandle[15].masterHandler, DrmDiskLifeMonitorDiskEventHandle);
    EXPECT_EQ(g_drmActionHandler[0].opcode, 0x20f0001u);
    EXPECT_EQ(g_drmActionHandler[0].handler, DrmHandleGetDiskHealthInfoAction);
    EXPECT_EQ(g_drmActionHandler[1].opcode, 0x20f0101u);
    EXPECT_EQ(g_drmActionHandler[1].handler, DrmHandleSetLifeMonitorResultAction);
    DrmDiskLifeMonitorFin();
}

TEST_F(DrmDiskLifeMonitorInitTest, RunsEveryFiveSeconds)
{
    EXPECT_EQ(DrmDiskLifeMonitorInit(), DRM_OK);
    Enter(5);

    Ticks(4);
    EXPECT_EQ(WorkersStarted(), 0u);
    Ticks(1);

    EXPECT_EQ(WorkersStarted(), 1u);
    EXPECT_TRUE(WaitForWorkers());
    EXPECT_THAT(records_.healthReads, ElementsAre(5u));
    DrmDiskLifeMonitorFin();
}

TEST_F(DrmDiskLifeMonitorInitTest, FailsWhenTheAnalyserIsRefused)
{
    (void)DrmRegisterAnalyser(DRM_FEATURE_DISK_LIFE, nullptr, DRM_INVALID, nullptr, DRM_INVALID, DRM_SCHEDULE_RESERVED);

    EXPECT_EQ(DrmDiskLifeMonitorInit(), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(kError, "register drm disk life monitor analyzer fail."));
    EXPECT_EQ(g_drmActionHandler[0].opcode, DRM_ACTION_FREE);
    DrmDiskLifeMonitorFin();
}

TEST_F(DrmDiskLifeMonitorInitTest, FailsWhenTheSecondActionIsRefused)
{
    ASSERT_EQ(DrmRegisterActionHandler(DRM_OPCODE_SET_LIFE_MONITOR_RESULT, DrmHandleSetLifeMonitorResultAction),
              DRM_OK);

    EXPECT_EQ(DrmDiskLifeMonitorInit(), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(kError, "register drm disk life monitor action handle fail."));
    DrmDiskLifeMonitorFin();
}

TEST_F(DrmDiskLifeMonitorInitTest, SucceedsWhenOnlyTheFirstActionIsRefused)
{
    ASSERT_EQ(DrmRegisterActionHandler(DRM_OPCODE_GET_DISK_HEALTH_INFO, DrmHandleGetDiskHealthInfoAction), DRM_OK);

    EXPECT_EQ(DrmDiskLifeMonitorInit(), DRM_OK);

    DrmDiskLifeMonitorFin();
}

TEST_F(DrmDiskLifeMonitorFinTest, TakesTheEventHandlerAway)
{
    DrmDiskLifeMonitorFin();

    EXPECT_EQ(g_drmLocalDiskUpdateHandle[15].masterHandler, nullptr);
}

TEST_F(DrmDiskLifeMonitorMasterScheduleTest, PredictsAndThenHandlesEvents)
{
    Enter(5);
    AddDisk(6, DISK_TYPE_SSD_NVME);
    QueueEvent(6, DISK_EVENT_IN);

    EXPECT_EQ(DrmDiskLifeMonitorMasterSchedule(0, 0), 0u);

    EXPECT_THAT(records_.healthReads, ElementsAre(5u)) << "the new disk comes after the prediction";
    EXPECT_THAT(Monitored(), ElementsAre(5u, 6u));
}

TEST_F(DrmDiskLifeMonitorMasterScheduleTest, HandlesEventsAloneForCode64)
{
    Enter(5);
    AddDisk(6, DISK_TYPE_SSD_NVME);
    QueueEvent(6, DISK_EVENT_IN);

    EXPECT_EQ(DrmDiskLifeMonitorMasterSchedule(0, 64), 0u);

    EXPECT_THAT(records_.healthReads, IsEmpty());
    EXPECT_THAT(Monitored(), ElementsAre(5u, 6u));
}

TEST_F(DrmDiskLifeMonitorMasterScheduleTest, DoesNothingForOtherCodes)
{
    Enter(5);
    AddDisk(6, DISK_TYPE_SSD_NVME);
    QueueEvent(6, DISK_EVENT_IN);
    const std::pair<uint32_t, uint32_t> codes[] = {{0, 1}, {0, 65}, {1, 0}, {1, 64}};

    for (const auto &[high, low] : codes) {
        EXPECT_EQ(DrmDiskLifeMonitorMasterSchedule(high, low), 0u);
    }

    EXPECT_THAT(records_.healthReads, IsEmpty());
    EXPECT_THAT(Monitored(), ElementsAre(5u));
}

TEST_F(DrmDiskMonitorMasterMonitorDiskLifeTest, TakesADiskWithoutWearToTheCeiling)
{
    Enter(5);

    const DiskDrmInfo info = Predict(3000, 0, 0);

    EXPECT_EQ(info.diskLife, 43800u);
    EXPECT_EQ(info.healthScore, 100u);
    EXPECT_THAT(records_.states, IsEmpty());
}

TEST_F(DrmDiskMonitorMasterMonitorDiskLifeTest, PredictsFromAgeAndWear)
{
    Enter(5);
    struct {
        uint64_t powerOnHours;
        uint32_t wearInt;
        uint32_t wearFrac;
        uint32_t life;
    } const cases[] = {
        {3000, 10, 0, 27090},
        {17270, 90, 0, 1920},
        {5390, 90, 0, 600},
        {1970, 99, 0, 20},
        {0, 1, 0, 990},
        {0, 0, 1, 43800},      // 99990 hours
        {0, 0, 3, 33323},      // rounded down from 33323.3
        {3000, 100, 0, 0},     // the whole life
        {3000, 99, 99, 0},     // 0.3 hours
        {3000, 3, 33, 43800},  // 87381 hours
        {43790, 50, 0, 43800}, // just the ceiling
        {43789, 50, 0, 43799}, // just below it
        {43791, 50, 0, 43800}, // just above it
        {1500, 0, 250, 43800}, // hundredths carry over: 58890 hours
        {1000, 9, 150, 8609},  // 10.50 percent
        // Intermediate results beyond 32 bits.
        {0xFFFFFFFFu, 99, 99, 43800},
        {430000000, 99, 99, 43004},
    };
    for (const auto &wear : cases) {
        EXPECT_EQ(Predict(wear.powerOnHours, wear.wearInt, wear.wearFrac).diskLife, wear.life)
            << wear.powerOnHours << " " << wear.wearInt << "." << wear.wearFrac;
    }
}

TEST_F(DrmDiskMonitorMasterMonitorDiskLifeTest, EndsAtTheCeilingForWearBeyondTheWholeLife)
{
    Enter(5);

    EXPECT_EQ(Predict(3000, 100, 1).diskLife, 43800u);
    EXPECT_EQ(Predict(3000, 255, 0).diskLife, 43800u);
    EXPECT_EQ(Predict(3000, 0xFFFFFFFFu, 0xFFFFFFFFu).diskLife, 43800u);
    EXPECT_EQ(Predict(0, 42949672, 96).diskLife, 43800u) << "2^32 hundredths";
    EXPECT_EQ(Predict(0, 42949673, 0).diskLife, 43800u) << "just above 2^32 hundredths";
}

TEST_F(DrmDiskMonitorMasterMonitorDiskLifeTest, ActsOnALifeThatEnds)
{
    Enter(5);

    EXPECT_EQ(Predict(17270, 90, 0).healthScore, 100u);
    EXPECT_TRUE(Logged(kWarn, "DRM_FEATURE", "Disk(5) sn(SN-5) need be replaced."));
    EXPECT_THAT(records_.states, IsEmpty());

    EXPECT_EQ(Predict(5390, 90, 0).healthScore, 37u);
    EXPECT_THAT(records_.states, ElementsAre(StateSet(5, DISK_STATE_PREFAIL)));

    EXPECT_EQ(Predict(1970, 99, 0).healthScore, 37u);
    EXPECT_THAT(records_.states, ElementsAre(StateSet(5, DISK_STATE_FAULT)));

    EXPECT_EQ(Predict(1970, 100, 0).diskLife, 0u);
    EXPECT_THAT(records_.states, ElementsAre(StateSet(5, DISK_STATE_FAULT)));
}

TEST_F(DrmDiskMonitorMasterMonitorDiskLifeTest, TakesANewDiskInItsFirstRunAndThenOncePerCycle)
{
    Enter(5);

    EXPECT_THAT(Visits(1), ElementsAre(5u));
    EXPECT_EQ(Checked(5), 1u);
    EXPECT_EQ(records_.predictions.at(0).second.diskLife, 43800u) << "no health record yet";
    EXPECT_THAT(Visits(kRunsOfADay - 2), IsEmpty());
    EXPECT_THAT(Visits(1), ElementsAre(5u)) << "run 17280";
    EXPECT_THAT(Visits(kRunsOfADay - 1), IsEmpty());
    EXPECT_THAT(Visits(1), ElementsAre(5u));
}

TEST_F(DrmDiskMonitorMasterMonitorDiskLifeTest, CountsTheCycleForAllDisks)
{
    SetDiskLifeMonitorSchedulerCycle(20);
    Enter(6);
    EXPECT_THAT(Visits(2), ElementsAre(6u));
    Enter(5);

    EXPECT_THAT(Visits(1), ElementsAre(5u));
    EXPECT_THAT(Visits(1), ElementsAre(6u, 5u)) << "in the order of arrival";
}

TEST_F(DrmDiskMonitorMasterMonitorDiskLifeTest, TriesAgainAtOnceAfterAFailedRead)
{
    Enter(5);
    Enter(6);
    records_.healthRet[5] = 9;

    EXPECT_THAT(Visits(2), ElementsAre(5u, 6u, 5u));

    EXPECT_EQ(HostLogCount(kError, "Query disk(5) health info life in event fail(9)."), 2u);
    EXPECT_EQ(Checked(5), 0u);
    EXPECT_EQ(Checked(6), 1u);
    records_.healthRet.clear();
    EXPECT_THAT(Visits(2), ElementsAre(5u));
}

TEST_F(DrmDiskMonitorMasterMonitorDiskLifeTest, TriesAgainAtOnceAfterAFailedStore)
{
    Enter(5);
    Enter(6);
    records_.drmRet[5] = 9;

    EXPECT_THAT(Visits(2), ElementsAre(5u, 6u, 5u));

    EXPECT_EQ(HostLogCount(kError, "Handle monitor disk(5) life in event fail(9)."), 2u);
    EXPECT_EQ(Checked(5), 0u);
    EXPECT_EQ(Checked(6), 1u);
}

TEST_F(DrmDiskMonitorMasterMonitorDiskLifeTest, KeepsADiskCheckedWhenALaterReadFails)
{
    Enter(5);
    SetDiskLifeMonitorSchedulerCycle(10);
    EXPECT_THAT(Visits(1), ElementsAre(5u));
    records_.healthRet[5] = 9;
    EXPECT_THAT(Visits(1), ElementsAre(5u));

    EXPECT_THAT(Visits(1), IsEmpty()) << "not before the next cycle";
}

TEST_F(SetDiskLifeMonitorSchedulerCycleTest, HoldsFromTheNextRunOn)
{
    Enter(5);
    EXPECT_THAT(Visits(3), ElementsAre(5u));

    SetDiskLifeMonitorSchedulerCycle(20);

    EXPECT_EQ(g_diskLifeMonitorSchedulerCycle, 20u);
    EXPECT_THAT(Visits(1), ElementsAre(5u)) << "the fourth run";
    SetDiskLifeMonitorSchedulerCycle(14);
    EXPECT_THAT(Visits(1), IsEmpty());
    EXPECT_THAT(Visits(1), ElementsAre(5u)) << "rounded down to two runs";
}

TEST_F(SetDiskLifeMonitorSchedulerCycleTest, MakesEveryRunDueBelowFiveSeconds)
{
    Enter(5);
    for (const uint32_t seconds : {0u, 4u, 5u, 9u}) {
        SetDiskLifeMonitorSchedulerCycle(seconds);

        EXPECT_THAT(Visits(2), ElementsAre(5u, 5u)) << seconds;
    }
}

TEST_F(SetDiskLifeMonitorSchedulerCycleTest, MayBeCalledBesideARun)
{
    Enter(5);
    std::thread writer([] {
        for (uint32_t i = 0; i < 1000; i++) {
            SetDiskLifeMonitorSchedulerCycle(i);
        }
    });

    Visits(1000);

    writer.join();
    EXPECT_EQ(g_diskLifeMonitorSchedulerCycle, 999u);
}

TEST_F(DrmDiskLifeMonitorDiskEventHandleTest, StartsTheHandlingAtOnce)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);

    EXPECT_EQ(DrmDiskLifeMonitorDiskEventHandle(5, DISK_EVENT_IN), DRM_OK);

    EXPECT_EQ(WorkersStarted(), 1u);
    EXPECT_TRUE(WaitForWorkers());
    EXPECT_THAT(Monitored(), ElementsAre(5u));
    EXPECT_THAT(records_.healthReads, IsEmpty());
}

TEST_F(DrmDiskLifeMonitorDiskEventHandleTest, KeepsTheEventForTheNextRunWithoutAWorker)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    g_osCalls.threadCreate = FailingCreate;

    EXPECT_EQ(DrmDiskLifeMonitorDiskEventHandle(5, DISK_EVENT_IN), DRM_OK);

    EXPECT_THAT(Monitored(), IsEmpty());
    (void)DrmDiskLifeMonitorMasterSchedule(0, DRM_CODE_SCHEDULE);
    EXPECT_THAT(Monitored(), ElementsAre(5u));
}

TEST_F(DrmDiskLifeMonitorDiskEventHandleTest, FailsWithoutMemoryForTheEvent)
{
    Knobs().heapFailAfter = 0;

    EXPECT_EQ(DrmDiskLifeMonitorDiskEventHandle(5, DISK_EVENT_OUT), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(kError, "Handle disk event: disk(5) event(1) fail."));
    EXPECT_EQ(WorkersStarted(), 0u);
}

TEST_F(DrmDiskLifeMonitorDiskEventHandleTest, FreesTheEventThatTheQueueRefuses)
{
    Knobs().itemFailAfter = 0;
    const int64_t before = FeatureBlocks();

    EXPECT_EQ(DrmDiskLifeMonitorDiskEventHandle(5, DISK_EVENT_IN), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(kError, "queue disk(5) event(0) failed."));
    EXPECT_EQ(FeatureBlocks(), before);
    EXPECT_EQ(WorkersStarted(), 0u);
}

TEST_F(DrmDiskMonitorMasterHandleDiskEventTest, HandlesEveryEventInOrder)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    AddDisk(6, DISK_TYPE_SSD_SAS);
    const int64_t before = FeatureBlocks();
    QueueEvent(5, DISK_EVENT_IN);
    QueueEvent(6, DISK_EVENT_IN);
    QueueEvent(5, DISK_EVENT_OUT);

    DrmDiskMonitorMasterHandleDiskEvent();

    EXPECT_THAT(Monitored(), ElementsAre(6u));
    EXPECT_EQ(FeatureBlocks(), before + 1);
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmDiskMonitorMasterHandleDiskEventTest, LogsAnUnknownEvent)
{
    const int64_t before = FeatureBlocks();
    QueueEvent(5, 2);

    DrmDiskMonitorMasterHandleDiskEvent();

    EXPECT_TRUE(HostLogged(kError, "Invalid disk event(2) for disk(5)."));
    EXPECT_EQ(HostLog().size(), 1u);
    EXPECT_EQ(FeatureBlocks(), before);
}

TEST_F(DrmDiskMonitorMasterHandleDiskEventTest, LogsAFailureAndGoesOn)
{
    AddDisk(6, DISK_TYPE_SSD_NVME);
    QueueEvent(5, DISK_EVENT_IN);
    QueueEvent(6, DISK_EVENT_IN);

    DrmDiskMonitorMasterHandleDiskEvent();

    EXPECT_TRUE(HostLogged(kError, "Handle disk(5) event(0) failed."));
    EXPECT_THAT(Monitored(), ElementsAre(6u));
}

TEST_F(DrmDiskMonitorMasterHandleDiskInEventTest, TakesSasSsdsAndNvmeDisks)
{
    Enter(7, DISK_TYPE_SSD_SAS);
    Enter(5, DISK_TYPE_SSD_NVME);

    EXPECT_THAT(Monitored(), ElementsAre(7u, 5u)) << "in the order of arrival";
    EXPECT_EQ(Checked(7), 0u);
    EXPECT_EQ(Checked(5), 0u);
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmDiskMonitorMasterHandleDiskInEventTest, LeavesOtherTypesWithoutPrediction)
{
    Enter(5, DISK_TYPE_SSD_SATA);
    Enter(6, DISK_TYPE_HDD_SAS);

    EXPECT_TRUE(HostLogged(kInfo, "Disk(5) diskType(0) not support life monitor."));
    EXPECT_TRUE(HostLogged(kInfo, "Disk(6) diskType(3) not support life monitor."));
    EXPECT_THAT(Visits(1), IsEmpty());
    EXPECT_EQ(g_diskDataMgr[5]->drmInfo.diskLife, DISK_LIFE_UNKNOWN);
}

TEST_F(DrmDiskMonitorMasterHandleDiskInEventTest, FailsForADiskWithoutType)
{
    AddDisk(5, DISK_TYPE_HDD_SATA);

    EXPECT_EQ(DrmDiskMonitorMasterHandleDiskInEvent(5), 0xFFFFFFFFu);
    EXPECT_EQ(DrmDiskMonitorMasterHandleDiskInEvent(6), 0xFFFFFFFFu) << "no such disk";

    EXPECT_TRUE(HostLogged(kError, "Get disk(5) type fail."));
    EXPECT_TRUE(HostLogged(kError, "Get disk(6) type fail."));
    EXPECT_THAT(Monitored(), IsEmpty());
}

TEST_F(DrmDiskMonitorMasterHandleDiskInEventTest, KeepsADiskThatComesAgain)
{
    Enter(5);
    Visits(1);

    EXPECT_EQ(DrmDiskMonitorMasterHandleDiskInEvent(5), DRM_OK);

    EXPECT_TRUE(HostLogged(kInfo, "Disk(5) rein."));
    EXPECT_THAT(Monitored(), ElementsAre(5u));
    EXPECT_EQ(Checked(5), 1u);
    EXPECT_EQ(FeatureBlocks(), 1);
}

TEST_F(DrmDiskMonitorMasterHandleDiskInEventTest, FailsWithoutMemory)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    Knobs().heapFailAfter = 0;

    EXPECT_EQ(DrmDiskMonitorMasterHandleDiskInEvent(5), 0xFFFFFFFFu);

    EXPECT_TRUE(HostLogged(kError, "Handle Disk(5) in event fail."));
    EXPECT_THAT(Monitored(), IsEmpty());
}

TEST_F(DrmDiskMonitorMasterHandleDiskOutEventTest, ForgetsTheDisk)
{
    Enter(5);
    Enter(6);
    Enter(7);
    Visits(1);

    EXPECT_EQ(DrmDiskMonitorMasterHandleDiskOutEvent(6), DRM_OK);

    EXPECT_THAT(Monitored(), ElementsAre(5u, 7u));
    EXPECT_EQ(FeatureBlocks(), 2);
    EXPECT_EQ(DrmDiskMonitorMasterHandleDiskInEvent(6), DRM_OK);
    EXPECT_EQ(Checked(6), 0u);
}

TEST_F(DrmDiskMonitorMasterHandleDiskOutEventTest, SucceedsForADiskThatIsNotMonitored)
{
    Enter(5);
    ClearHostLog();

    EXPECT_EQ(DrmDiskMonitorMasterHandleDiskOutEvent(6), DRM_OK);

    EXPECT_THAT(Monitored(), ElementsAre(5u));
    EXPECT_THAT(HostLog(), IsEmpty());
}
