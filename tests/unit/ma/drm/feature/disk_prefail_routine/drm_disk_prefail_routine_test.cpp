#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_routine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <thread>

#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/drm_feature_adapter_intf.h"
#include "unit/ma/drm/feature/health_feature_fixture.h"

using namespace health_feature_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr uint32_t kRunsOfSataCycle = 120;
constexpr uint32_t kRunsOfOtherCycles = 4;

/** Every group's lists are empty and its run counter is 0 before and after each test. */
class PrefailTest : public HealthFeatureTest {
protected:
    ~PrefailTest() override
    {
        for (const DrmDprDiskListAction &action : g_diskListForDiskTypeAction) {
            for (const uint32_t diskId : DisksIn<DrmDprDiskNode>(*action.list)) {
                EXPECT_EQ(DrmDiskPrefailMasterHandleDiskOutEvent(diskId), DRM_OK);
            }
        }
        for (DrmDprGroupCycle &row : g_dprCycleConfig[0]) {
            row.cycle = 0;
        }
        DrmMasterDikePreFailRoutineForSmartType();
        for (uint32_t group = 0; group < DRM_PREFAIL_GROUPS; group++) {
            g_dprCycleConfig[0][group] = {group, group == DRM_PREFAIL_SATA_SSD ? 600u : 20u};
        }
        g_drmDprFeatureSwitch = 1;
        g_dprSwitchConfig[0] = 1;
    }

    /** A disk that the feature knows. */
    void Enter(uint32_t diskId, uint32_t diskType, const std::string &vendor = "MAKER")
    {
        AddDisk(diskId, diskType, vendor);
        ASSERT_EQ(DrmDiskPrefailMasterHandleDiskInEvent(diskId), DRM_OK);
    }
    void EnterFailing(uint32_t diskId, uint32_t diskType, const std::string &vendor = "MAKER")
    {
        Enter(diskId, diskType, vendor);
        MakeFailing(diskId);
    }
    void MakeFailing(uint32_t diskId)
    {
        DiskHealthDetail &detail = Health(diskId).detail;
        switch (records_.base[diskId].diskType) {
        case DISK_TYPE_SSD_NVME:
            detail.nvme.criticalWarning = 1 << 3;
            break;
        case DISK_TYPE_SSD_SATA:
            detail.sataSsd.attr[0] = {5, 10, 1, 1};
            break;
        case DISK_TYPE_SSD_SAS:
            if (std::string(records_.base[diskId].vendor) == "0x1f7c") {
                detail.sasVssd = {242, 0};
                break;
            }
            [[fallthrough]];
        default:
            detail.sas = {0x5D, 0, 0};
            break;
        }
    }
    void EnterOneOfEachGroup()
    {
        Enter(10, DISK_TYPE_SSD_SATA);
        Enter(11, DISK_TYPE_SSD_SAS);
        Enter(12, DISK_TYPE_SSD_SAS, "0x1f7c");
        Enter(13, DISK_TYPE_SSD_NVME);
        Enter(14, DISK_TYPE_HDD_SAS);
    }
    /** Runs, and which disks were looked at meanwhile. */
    std::vector<uint32_t> Visits(uint32_t runs)
    {
        records_.healthReads.clear();
        for (uint32_t i = 0; i < runs; i++) {
            DrmMasterDikePreFailRoutineForSmartType();
        }
        return records_.healthReads;
    }
    static void SetAllCycles(uint32_t seconds)
    {
        for (DrmDprGroupCycle &row : g_dprCycleConfig[0]) {
            row.cycle = seconds;
        }
    }
    static uint32_t SetCycle(uint32_t startType, uint32_t diskType, uint32_t seconds)
    {
        DrmDprCycleConfig config = {startType, diskType, seconds};
        return DrmDprSetCycleConfig(&config);
    }
    static std::vector<uint32_t> Cycles()
    {
        std::vector<uint32_t> cycles;
        for (const DrmDprGroupCycle &row : g_dprCycleConfig[0]) {
            cycles.push_back(row.cycle);
        }
        return cycles;
    }
    static uint32_t SetSwitch(uint32_t startType, uint8_t on)
    {
        DrmDprSwitchConfig config{};
        config.startType = startType;
        config.on = on;
        return DrmDprSetSwitchConfig(&config);
    }
    static void *PrivateWord(uint32_t diskId)
    {
        void *word = nullptr;
        const DrmFeatureDataGuard guard(DRM_FEATURE_PREFAIL);
        EXPECT_EQ(getFeatureLocPrivateData(diskId, DRM_FEATURE_PREFAIL, &word), DRM_OK);
        return word;
    }
    static std::vector<uint32_t> Group(uint32_t group)
    {
        return DisksIn<DrmDprDiskNode>(*g_diskListForDiskTypeAction[group].list);
    }
    static void ExpectOnlyPrefail(const Records &records, uint32_t diskId)
    {
        EXPECT_THAT(records.states, ElementsAre(StateSet(diskId, DISK_STATE_PREFAIL)));
    }
};

using DprTablesTest = PrefailTest;
using DrmDprSetCycleConfigTest = PrefailTest;
using DrmDprSetSwitchConfigTest = PrefailTest;
using DrmDiskPrefailMasterScheByTypeTest = PrefailTest;
using DrmMasterDikePreFailRoutineForSmartTypeTest = PrefailTest;
using DrmDiskPrefailMasterHandleDiskInEventTest = PrefailTest;
using DrmDiskPrefailMasterHandleDiskOutEventTest = PrefailTest;
using SetDprDiskDataTest = PrefailTest;

/** With the feature started. */
class StartedPrefailTest : public PrefailTest {
protected:
    StartedPrefailTest()
    {
        EXPECT_EQ(DrmPrefailRoutineInit(), DRM_OK);
        ClearHostLog();
    }
    ~StartedPrefailTest() override
    {
        g_osCalls.threadCreate = CountingCreate;
        EXPECT_TRUE(WaitForWorkers());
        DrmDiskPrefailMasterHandleDiskEvent();
        DrmPrefailRoutineFin();
    }
    /** Puts an event into the queue without starting a worker. */
    static void QueueEvent(uint32_t diskId, uint32_t event)
    {
        g_osCalls.threadCreate = FailingCreate;
        EXPECT_EQ(DrmDiskPrefailDiskEventHandle(diskId, event), DRM_OK);
        g_osCalls.threadCreate = CountingCreate;
        ClearHostLog();
    }
};

using DrmPrefailRoutineInitTest = PrefailTest;
using DrmPrefailRoutineFinTest = StartedPrefailTest;
using DrmDiskPrefailRoutineMasterScheduleTest = StartedPrefailTest;
using DrmDiskPrefailDiskEventHandleTest = StartedPrefailTest;
using DrmDiskPrefailMasterHandleDiskEventTest = StartedPrefailTest;

} // namespace

TEST_F(DprTablesTest, PairEachGroupWithItsListRoutineAndCycle)
{
    const DrmDprDiskListAction expected[] = {
        {0, &g_drmDiskPrefailDiskListForSATA, DrmSATAPrefailRoutineForStartType},
        {1, &g_drmDiskPrefailDiskListForSAS, DrmSASPrefailRoutineForStartType},
        {2, &g_drmDiskPrefailDiskListForSasVSSD, DrmSASVSSDPrefailRoutineForStartType},
        {3, &g_drmDiskPrefailDiskListForNvme, DrmNvmePrefailRoutineForStartType},
        {4, &g_drmDiskPrefailDiskListForSASHDD, DrmSasHddPrefailRoutineForStartType},
    };

    for (uint32_t group = 0; group < std::size(expected); group++) {
        EXPECT_EQ(g_diskListForDiskTypeAction[group].group, expected[group].group);
        EXPECT_EQ(g_diskListForDiskTypeAction[group].list, expected[group].list);
        EXPECT_EQ(g_diskListForDiskTypeAction[group].routine, expected[group].routine);
        EXPECT_TRUE(DrmListEmpty(g_diskListForDiskTypeAction[group].list));
        EXPECT_EQ(g_dprCycleConfig[0][group].group, group);
    }
    EXPECT_THAT(Cycles(), ElementsAre(600u, 20u, 20u, 20u, 20u));
    EXPECT_EQ(g_drmDprFeatureSwitch, 1u);
    EXPECT_EQ(g_dprSwitchConfig[0], 1u);
    EXPECT_EQ(g_drmDprMasterHandler[0], DrmMasterDikePreFailRoutineForSmartType);
}

TEST_F(DprTablesTest, LetTheAnalyserRunBeforeTheStart)
{
    EXPECT_EQ(DrmDiskPrefailRoutineMasterSchedule(0, DRM_CODE_SCHEDULE), 0u);
}

TEST_F(DrmPrefailRoutineInitTest, RegistersTheMasterEventHandler)
{
    EXPECT_EQ(DrmPrefailRoutineInit(), DRM_OK);

    EXPECT_EQ(g_drmLocalDiskUpdateHandle[16].localHandler, nullptr);
    EXPECT_EQ(g_drmLocalDiskUpdateHandle[16].masterHandler, DrmDiskPrefailDiskEventHandle);
    DrmPrefailRoutineFin();
}

TEST_F(DrmPrefailRoutineInitTest, RunsEveryFiveSeconds)
{
    EXPECT_EQ(DrmPrefailRoutineInit(), DRM_OK);

    Ticks(4);
    EXPECT_EQ(WorkersStarted(), 0u);
    Ticks(1);
    EXPECT_EQ(WorkersStarted(), 1u);
    EXPECT_TRUE(WaitForWorkers());
    Ticks(5);
    EXPECT_TRUE(WaitForWorkers());
    EXPECT_EQ(WorkersStarted(), 2u);
    DrmPrefailRoutineFin();
}

TEST_F(DrmPrefailRoutineInitTest, VisitsASataDiskForTheFirstTimeAtTick600)
{
    EXPECT_EQ(DrmPrefailRoutineInit(), DRM_OK);
    EnterFailing(10, DISK_TYPE_SSD_SATA);
    for (uint32_t tick = 1; tick < 600; tick++) {
        Ticks(1);
        ASSERT_TRUE(WaitForWorkers());
    }
    EXPECT_THAT(records_.healthReads, IsEmpty());

    Ticks(1);

    ASSERT_TRUE(WaitForWorkers());
    ExpectOnlyPrefail(records_, 10);
    DrmPrefailRoutineFin();
}

TEST_F(DrmPrefailRoutineInitTest, FailsWhenTheAnalyserIsRefused)
{
    (void)DrmRegisterAnalyser(DRM_FEATURE_PREFAIL, nullptr, DRM_INVALID, nullptr, DRM_INVALID, DRM_SCHEDULE_RESERVED);

    EXPECT_EQ(DrmPrefailRoutineInit(), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(kError, "register drm disk prefail routine analyzer fail(-1)."));
    DrmPrefailRoutineFin();
}

TEST_F(DrmPrefailRoutineFinTest, TakesTheEventHandlerAway)
{
    DrmPrefailRoutineFin();

    EXPECT_EQ(g_drmLocalDiskUpdateHandle[16].masterHandler, nullptr);
}

TEST(DrmTransDiskTypeToDprGroupTest, MapsEachTypeToItsGroup)
{
    const std::pair<uint32_t, uint32_t> cases[] = {{0, 0}, {1, 1}, {2, 3}, {3, 4}};
    for (const auto &[diskType, expected] : cases) {
        uint32_t group = 99;

        EXPECT_EQ(DrmTransDiskTypeToDprGroup(diskType, &group), DRM_OK);

        EXPECT_EQ(group, expected) << "type " << diskType;
    }
}

TEST_F(DrmDprSetCycleConfigTest, SetsTheCycleOfTheTypesGroup)
{
    EXPECT_EQ(SetCycle(0, DRM_SATA_SSD_DISK, 100), DRM_OK);
    EXPECT_THAT(Cycles(), ElementsAre(100u, 20u, 20u, 20u, 20u));
    EXPECT_EQ(SetCycle(0, DRM_NVME_DISK, 200), DRM_OK);
    EXPECT_THAT(Cycles(), ElementsAre(100u, 20u, 20u, 200u, 20u));
    EXPECT_EQ(SetCycle(0, DRM_SAS_HDD_DISK, 300), DRM_OK);
    EXPECT_THAT(Cycles(), ElementsAre(100u, 20u, 20u, 200u, 300u));
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmDprSetCycleConfigTest, SetsBothGroupsOfSasSsdsAtOnce)
{
    EXPECT_EQ(SetCycle(0, DRM_SAS_SSD_DISK, 40), DRM_OK);

    EXPECT_THAT(Cycles(), ElementsAre(600u, 40u, 40u, 20u, 20u));
}

TEST_F(DrmDprSetCycleConfigTest, RefusesAnUnknownDiskType)
{
    EXPECT_EQ(SetCycle(0, 4, 40), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(kError, "Drm featue didn't support disktyepe(4)"));
    EXPECT_TRUE(HostLogged(kError, "Transform disk type to drp group id failed(-1), diskType(4)"));
    EXPECT_THAT(Cycles(), ElementsAre(600u, 20u, 20u, 20u, 20u));
}

TEST_F(DrmDprSetCycleConfigTest, RefusesNullAndAnUnknownStartType)
{
    EXPECT_EQ(DrmDprSetCycleConfig(nullptr), DRM_ERR_FAIL);
    EXPECT_EQ(SetCycle(1, DRM_SATA_SSD_DISK, 40), DRM_ERR_FAIL);
    EXPECT_EQ(SetCycle(0xFFFFFFFF, DRM_SATA_SSD_DISK, 40), DRM_ERR_FAIL);

    EXPECT_THAT(Cycles(), ElementsAre(600u, 20u, 20u, 20u, 20u));
}

TEST_F(DrmDprSetSwitchConfigTest, TurnsTheRoutineOffAndOn)
{
    EnterFailing(13, DISK_TYPE_SSD_NVME);
    SetAllCycles(0);

    EXPECT_EQ(SetSwitch(0, 0), DRM_OK);
    DrmDiskPrefailMasterScheByType();
    EXPECT_THAT(records_.healthReads, IsEmpty());

    EXPECT_EQ(SetSwitch(0, 1), DRM_OK);
    DrmDiskPrefailMasterScheByType();
    EXPECT_THAT(records_.healthReads, ElementsAre(13u));
}

TEST_F(DrmDprSetSwitchConfigTest, TakesTheByteBehindTheStartType)
{
    uint8_t config[8] = {0, 0, 0, 0, 0, 1, 1, 1};

    EXPECT_EQ(DrmDprSetSwitchConfig(config), DRM_OK);

    EXPECT_EQ(g_dprSwitchConfig[0], 0u);
}

TEST_F(DrmDprSetSwitchConfigTest, SucceedsWithoutEffectOnNullAndAnUnknownStartType)
{
    EXPECT_EQ(DrmDprSetSwitchConfig(nullptr), DRM_OK);
    EXPECT_EQ(SetSwitch(1, 0), DRM_OK);
    EXPECT_EQ(SetSwitch(0xFFFFFFFF, 0), DRM_OK);

    EXPECT_EQ(g_dprSwitchConfig[0], 1u);
}

TEST_F(DrmDiskPrefailRoutineMasterScheduleTest, RunsTheRoutineAndThenHandlesEvents)
{
    SetAllCycles(0);
    Enter(20, DISK_TYPE_SSD_NVME);
    AddDisk(21, DISK_TYPE_SSD_NVME);
    QueueEvent(21, DISK_EVENT_IN);

    EXPECT_EQ(DrmDiskPrefailRoutineMasterSchedule(0, 0), 0u);

    EXPECT_THAT(records_.healthReads, ElementsAre(20u)) << "the new disk comes after the routine";
    EXPECT_THAT(Group(DRM_PREFAIL_NVME), ElementsAre(20u, 21u));
}

TEST_F(DrmDiskPrefailRoutineMasterScheduleTest, HandlesEventsAloneForCode64)
{
    SetAllCycles(0);
    Enter(20, DISK_TYPE_SSD_NVME);
    AddDisk(21, DISK_TYPE_SSD_NVME);
    QueueEvent(21, DISK_EVENT_IN);

    EXPECT_EQ(DrmDiskPrefailRoutineMasterSchedule(0, 64), 0u);

    EXPECT_THAT(records_.healthReads, IsEmpty());
    EXPECT_THAT(Group(DRM_PREFAIL_NVME), ElementsAre(20u, 21u));
}

TEST_F(DrmDiskPrefailRoutineMasterScheduleTest, DoesNothingForOtherCodes)
{
    SetAllCycles(0);
    Enter(20, DISK_TYPE_SSD_NVME);
    AddDisk(21, DISK_TYPE_SSD_NVME);
    QueueEvent(21, DISK_EVENT_IN);
    const std::pair<uint32_t, uint32_t> codes[] = {{0, 1}, {0, 65}, {1, 0}, {1, 64}};

    for (const auto &[high, low] : codes) {
        EXPECT_EQ(DrmDiskPrefailRoutineMasterSchedule(high, low), 0u);
    }

    EXPECT_THAT(records_.healthReads, IsEmpty());
    EXPECT_THAT(Group(DRM_PREFAIL_NVME), ElementsAre(20u));
}

TEST_F(DrmDiskPrefailMasterScheByTypeTest, RunsOnlyWhileBothSwitchesAreOne)
{
    SetAllCycles(0);
    Enter(20, DISK_TYPE_SSD_NVME);
    struct {
        uint32_t feature;
        uint8_t type;
        size_t visits;
    } const cases[] = {{1, 1, 1}, {0, 1, 0}, {2, 1, 0}, {1, 0, 0}, {1, 2, 0}};
    for (const auto &switches : cases) {
        g_drmDprFeatureSwitch = switches.feature;
        g_dprSwitchConfig[0] = switches.type;
        records_.healthReads.clear();

        DrmDiskPrefailMasterScheByType();

        EXPECT_EQ(records_.healthReads.size(), switches.visits) << switches.feature << " " << +switches.type;
    }
}

TEST_F(DrmMasterDikePreFailRoutineForSmartTypeTest, VisitsGroupsAtTheirCycles)
{
    EnterOneOfEachGroup();

    EXPECT_THAT(Visits(kRunsOfOtherCycles - 1), IsEmpty());
    EXPECT_THAT(Visits(1), ElementsAre(11u, 12u, 13u, 14u)) << "in the order of the groups";
    EXPECT_THAT(Visits(kRunsOfOtherCycles - 1), IsEmpty());
    EXPECT_THAT(Visits(1), ElementsAre(11u, 12u, 13u, 14u));
}

TEST_F(DrmMasterDikePreFailRoutineForSmartTypeTest, VisitsSataDisksEvery120Runs)
{
    Enter(10, DISK_TYPE_SSD_SATA);

    EXPECT_THAT(Visits(kRunsOfSataCycle - 1), IsEmpty());
    EXPECT_THAT(Visits(1), ElementsAre(10u));
    EXPECT_THAT(Visits(kRunsOfSataCycle - 1), IsEmpty());
    EXPECT_THAT(Visits(1), ElementsAre(10u));
}

TEST_F(DrmMasterDikePreFailRoutineForSmartTypeTest, RoundsTheCycleDownToWholeRuns)
{
    Enter(13, DISK_TYPE_SSD_NVME);
    ASSERT_EQ(SetCycle(0, DRM_NVME_DISK, 14), DRM_OK);

    EXPECT_THAT(Visits(1), IsEmpty());
    EXPECT_THAT(Visits(1), ElementsAre(13u));
}

TEST_F(DrmMasterDikePreFailRoutineForSmartTypeTest, VisitsAtEachRunBelowFiveSeconds)
{
    Enter(13, DISK_TYPE_SSD_NVME);
    for (const uint32_t cycle : {0u, 4u, 5u, 9u}) {
        ASSERT_EQ(SetCycle(0, DRM_NVME_DISK, cycle), DRM_OK);

        EXPECT_THAT(Visits(2), ElementsAre(13u, 13u)) << cycle;
    }
}

TEST_F(DrmMasterDikePreFailRoutineForSmartTypeTest, FollowsAChangedCycleAtOnce)
{
    EnterOneOfEachGroup();
    EXPECT_THAT(Visits(3), IsEmpty());

    ASSERT_EQ(SetCycle(0, DRM_SAS_SSD_DISK, 40), DRM_OK);

    EXPECT_THAT(Visits(1), ElementsAre(13u, 14u));
    EXPECT_THAT(Visits(3), IsEmpty());
    EXPECT_THAT(Visits(1), ElementsAre(11u, 12u, 13u, 14u));

    ASSERT_EQ(SetCycle(0, DRM_SAS_SSD_DISK, 10), DRM_OK);

    EXPECT_THAT(Visits(2), ElementsAre(11u, 12u));
}

TEST_F(DrmMasterDikePreFailRoutineForSmartTypeTest, GoesOnAfterADiskThatFails)
{
    Enter(22, DISK_TYPE_SSD_NVME);
    Enter(20, DISK_TYPE_SSD_NVME);
    EnterFailing(21, DISK_TYPE_SSD_NVME);
    records_.healthRet[20] = 7;

    EXPECT_THAT(Visits(kRunsOfOtherCycles), ElementsAre(22u, 20u, 21u)) << "in the order of arrival";

    EXPECT_TRUE(HostLogged(kError, "Get Disk(20) smart info event fail(7)."));
    EXPECT_EQ(HostLogCount(kError, "Handle monitor disk(20) life in event fail(7)."), 1u);
    ExpectOnlyPrefail(records_, 21);
}

TEST_F(DrmMasterDikePreFailRoutineForSmartTypeTest, ReportsADiskOnce)
{
    SetAllCycles(0);
    EnterFailing(13, DISK_TYPE_SSD_NVME);

    Visits(3);

    ExpectOnlyPrefail(records_, 13);
}

namespace {

/** A routine, a disk of its group, and its health record. */
class RoutineTest : public PrefailTest {
protected:
    DiskHealthDetail &Detail() { return Health(5).detail; }
    uint32_t Reported() const { return static_cast<uint32_t>(records_.states.size()); }
    /** What a routine makes of a record: 1 if the disk was reported. */
    uint32_t Verdict(uint32_t (*routine)(uint32_t))
    {
        records_.states.clear();
        State(5) = DISK_STATE_NORMAL;
        ClearHostLog();
        EXPECT_EQ(routine(5), DRM_OK);
        return Reported();
    }
    void ExpectFailureOfRead(uint32_t (*routine)(uint32_t))
    {
        MakeFailing(5);
        records_.healthRet[5] = 9;
        ClearHostLog();

        EXPECT_EQ(routine(5), 9u);

        EXPECT_TRUE(HostLogged(kError, "Get Disk(5) smart info event fail(9)."));
        EXPECT_EQ(Reported(), 0u);
        EXPECT_EQ(routine(6), DRM_ERR_FAIL) << "no such disk";
        EXPECT_TRUE(HostLogged(kError, "Get Disk(6) smart info event fail(-1)."));
    }
    /** The disk goes between the read and the report. */
    static uint32_t HealthAndGone(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen)
    {
        const uint32_t ret = g_records->realHealth(diskId, sn, buf, bufLen);
        g_records->baseRet[diskId] = 2;
        return ret;
    }
    void ExpectFailureOfReport(uint32_t (*routine)(uint32_t))
    {
        MakeFailing(5);
        g_diskInfoGetFunc[DISK_INFO_HEALTH] = HealthAndGone;

        EXPECT_EQ(routine(5), DRM_ERR_FAIL);

        EXPECT_EQ(Reported(), 0u);
    }
};

class DrmSATAPrefailRoutineForStartTypeTest : public RoutineTest {
protected:
    DrmSATAPrefailRoutineForStartTypeTest() { AddDisk(5, DISK_TYPE_SSD_SATA); }
    uint32_t VerdictOn(const DiskSmartAttr &attribute, uint32_t entry = 0)
    {
        Detail() = {};
        Detail().sataSsd.attr[entry] = attribute;
        return Verdict(DrmSATAPrefailRoutineForStartType);
    }
};

class DrmSASPrefailRoutineForStartTypeTest : public RoutineTest {
protected:
    DrmSASPrefailRoutineForStartTypeTest() { AddDisk(5, DISK_TYPE_SSD_SAS); }
};

class DrmSASVSSDPrefailRoutineForStartTypeTest : public RoutineTest {
protected:
    DrmSASVSSDPrefailRoutineForStartTypeTest() { AddDisk(5, DISK_TYPE_SSD_SAS, "0x1f7c"); }
};

class DrmNvmePrefailRoutineForStartTypeTest : public RoutineTest {
protected:
    DrmNvmePrefailRoutineForStartTypeTest() { AddDisk(5, DISK_TYPE_SSD_NVME); }
};

class DrmSasHddPrefailRoutineForStartTypeTest : public RoutineTest {
protected:
    DrmSasHddPrefailRoutineForStartTypeTest() { AddDisk(5, DISK_TYPE_HDD_SAS); }
};

} // namespace

TEST_F(DrmSATAPrefailRoutineForStartTypeTest, ReportsAnAttributeAtOrBelowItsThreshold)
{
    EXPECT_EQ(VerdictOn({5, 50, 1, 100}), 1u);
    EXPECT_EQ(VerdictOn({5, 50, 50, 100}), 1u) << "equal";
    EXPECT_EQ(VerdictOn({5, 50, 51, 100}), 0u);
    EXPECT_EQ(VerdictOn({5, 50, 100, 1}), 1u) << "the worst value counts too";
    EXPECT_EQ(VerdictOn({5, 50, 100, 50}), 1u);
    EXPECT_EQ(VerdictOn({5, 50, 100, 51}), 0u);
    EXPECT_EQ(VerdictOn({255, 255, 255, 255}), 1u);
}

TEST_F(DrmSATAPrefailRoutineForStartTypeTest, ExemptsTemperaturesUnusedEntriesAndThresholdZero)
{
    EXPECT_EQ(VerdictOn({194, 50, 1, 1}), 0u);
    EXPECT_EQ(VerdictOn({190, 50, 1, 1}), 0u);
    EXPECT_EQ(VerdictOn({0, 50, 1, 1}), 0u);
    EXPECT_EQ(VerdictOn({5, 0, 0, 0}), 0u);
    for (const uint8_t neighbour : {uint8_t{189}, uint8_t{191}, uint8_t{193}, uint8_t{195}, uint8_t{1}}) {
        EXPECT_EQ(VerdictOn({neighbour, 50, 1, 1}), 1u) << +neighbour;
    }
}

TEST_F(DrmSATAPrefailRoutineForStartTypeTest, LooksAtAllThirtyEntries)
{
    EXPECT_EQ(VerdictOn({5, 50, 1, 1}, 29), 1u);
}

TEST_F(DrmSATAPrefailRoutineForStartTypeTest, StopsAtTheFirstEntry)
{
    Detail().sataSsd.attr[2] = {194, 50, 1, 1};
    Detail().sataSsd.attr[3] = {7, 40, 30, 20};
    Detail().sataSsd.attr[4] = {8, 60, 50, 40};

    EXPECT_EQ(Verdict(DrmSATAPrefailRoutineForStartType), 1u);

    EXPECT_TRUE(HostLogged(kWarn, "Smart Info Item(7) threshold(40) current(30) worst(20)."));
    EXPECT_TRUE(HostLogged(kWarn, "DRM_SATA_SSD_DISK prefail, diskId: 5."));
    EXPECT_EQ(HostLog().size(), 2u);
    ExpectOnlyPrefail(records_, 5);
}

TEST_F(DrmSATAPrefailRoutineForStartTypeTest, ReturnsFailures)
{
    ExpectFailureOfRead(DrmSATAPrefailRoutineForStartType);
}

TEST_F(DrmSATAPrefailRoutineForStartTypeTest, ReturnsTheResultOfTheReport)
{
    ExpectFailureOfReport(DrmSATAPrefailRoutineForStartType);
}

TEST_F(DrmSASPrefailRoutineForStartTypeTest, ReportsAFailurePrediction)
{
    Detail().sas = {0x5D, 0x10, 0};

    EXPECT_EQ(Verdict(DrmSASPrefailRoutineForStartType), 1u);

    EXPECT_TRUE(HostLogged(kInfo, "DRM_SAS_SSD_DISK prefail, diskId:5, ascq:16."));
    ExpectOnlyPrefail(records_, 5);
}

TEST_F(DrmSASPrefailRoutineForStartTypeTest, ExceptsOneQualifierAndOtherCodes)
{
    for (const uint8_t ieLog : {uint8_t{0}, uint8_t{1}}) {
        Detail().sas = {0x5D, 0x6D, ieLog};
        EXPECT_EQ(Verdict(DrmSASPrefailRoutineForStartType), 0u);
        Detail().sas = {0x5C, 0, ieLog};
        EXPECT_EQ(Verdict(DrmSASPrefailRoutineForStartType), 0u);
    }
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmSASPrefailRoutineForStartTypeTest, ReturnsFailures)
{
    ExpectFailureOfRead(DrmSASPrefailRoutineForStartType);
}

TEST_F(DrmSASPrefailRoutineForStartTypeTest, ReturnsTheResultOfTheReport)
{
    ExpectFailureOfReport(DrmSASPrefailRoutineForStartType);
}

TEST_F(DrmSASVSSDPrefailRoutineForStartTypeTest, ReportsCapacitorsThatNoLongerHold)
{
    Detail().sasVssd = {242, 0};

    EXPECT_EQ(Verdict(DrmSASVSSDPrefailRoutineForStartType), 1u);

    EXPECT_TRUE(HostLogged(kInfo, "DRM_SAS_VSSD_DISK prefail, diskId: 5."));
    ExpectOnlyPrefail(records_, 5);
}

TEST_F(DrmSASVSSDPrefailRoutineForStartTypeTest, AcceptsGoodCapacitorsAndOtherParameters)
{
    Detail().sasVssd = {242, 1};
    EXPECT_EQ(Verdict(DrmSASVSSDPrefailRoutineForStartType), 0u);
    Detail().sasVssd = {241, 0};
    EXPECT_EQ(Verdict(DrmSASVSSDPrefailRoutineForStartType), 0u);
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmSASVSSDPrefailRoutineForStartTypeTest, ReturnsFailures)
{
    ExpectFailureOfRead(DrmSASVSSDPrefailRoutineForStartType);
}

TEST_F(DrmSASVSSDPrefailRoutineForStartTypeTest, ReturnsTheResultOfTheReport)
{
    ExpectFailureOfReport(DrmSASVSSDPrefailRoutineForStartType);
}

TEST_F(DrmNvmePrefailRoutineForStartTypeTest, ReportsThreeOfTheFiveBits)
{
    const std::pair<uint8_t, std::string> cases[] = {
        {1 << 0, "readOnly:0, availableSpare:1, volatileMemoryBackup:0."},
        {1 << 3, "readOnly:1, availableSpare:0, volatileMemoryBackup:0."},
        {1 << 4, "readOnly:0, availableSpare:0, volatileMemoryBackup:1."},
        {0xFF, "readOnly:1, availableSpare:1, volatileMemoryBackup:1."},
    };
    for (const auto &[warning, text] : cases) {
        Detail().nvme.criticalWarning = warning;

        EXPECT_EQ(Verdict(DrmNvmePrefailRoutineForStartType), 1u);

        EXPECT_TRUE(HostLogged(kInfo, "DRM_NVME_DISK prefail, diskId:5, " + text)) << text;
        ExpectOnlyPrefail(records_, 5);
    }
}

TEST_F(DrmNvmePrefailRoutineForStartTypeTest, AcceptsHeatAndLostReliability)
{
    for (const uint32_t warning : {0u, 1u << 1, 1u << 2, 7u << 5}) {
        Detail().nvme.criticalWarning = static_cast<uint8_t>(warning);

        EXPECT_EQ(Verdict(DrmNvmePrefailRoutineForStartType), 0u) << warning;
    }
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmNvmePrefailRoutineForStartTypeTest, ReturnsFailures)
{
    ExpectFailureOfRead(DrmNvmePrefailRoutineForStartType);
}

TEST_F(DrmNvmePrefailRoutineForStartTypeTest, ReturnsTheResultOfTheReport)
{
    ExpectFailureOfReport(DrmNvmePrefailRoutineForStartType);
}

TEST_F(DrmSasHddPrefailRoutineForStartTypeTest, ExceptsTheQualifierOnlyOfTheLogPage)
{
    struct {
        uint8_t asc;
        uint8_t ascq;
        uint8_t isSupportIeLog;
        uint32_t verdict;
    } const cases[] = {{0x5D, 0x6D, 0, 1}, {0x5D, 0x6D, 1, 0}, {0x5D, 0x6D, 2, 1}, {0x5D, 0x00, 0, 1},
                       {0x5D, 0x00, 1, 1}, {0x5C, 0x00, 0, 0}, {0x5C, 0x00, 1, 0}, {0x00, 0x6D, 0, 0}};
    for (const auto &sense : cases) {
        Detail().sas = {sense.asc, sense.ascq, sense.isSupportIeLog};

        EXPECT_EQ(Verdict(DrmSasHddPrefailRoutineForStartType), sense.verdict)
            << +sense.asc << " " << +sense.ascq << " " << +sense.isSupportIeLog;
    }
}

TEST_F(DrmSasHddPrefailRoutineForStartTypeTest, LogsWhatItFound)
{
    Detail().sas = {0x5D, 0x10, 1};

    EXPECT_EQ(Verdict(DrmSasHddPrefailRoutineForStartType), 1u);

    EXPECT_TRUE(HostLogged(kInfo, "DRM_SAS_HDD_DISK prefail, diskId:5, isSupportIELog:1, asc:93, ascq:16"));
    ExpectOnlyPrefail(records_, 5);
}

TEST_F(DrmSasHddPrefailRoutineForStartTypeTest, ReturnsFailures)
{
    ExpectFailureOfRead(DrmSasHddPrefailRoutineForStartType);
}

TEST_F(DrmSasHddPrefailRoutineForStartTypeTest, ReturnsTheResultOfTheReport)
{
    ExpectFailureOfReport(DrmSasHddPrefailRoutineForStartType);
}

TEST_F(DrmDiskPrefailDiskEventHandleTest, StartsTheHandlingAtOnce)
{
    AddDisk(20, DISK_TYPE_SSD_NVME);

    EXPECT_EQ(DrmDiskPrefailDiskEventHandle(20, DISK_EVENT_IN), DRM_OK);

    EXPECT_EQ(WorkersStarted(), 1u);
    EXPECT_TRUE(WaitForWorkers());
    EXPECT_THAT(Group(DRM_PREFAIL_NVME), ElementsAre(20u));
    EXPECT_THAT(records_.healthReads, IsEmpty());
}

TEST_F(DrmDiskPrefailDiskEventHandleTest, KeepsTheEventForTheNextRunWithoutAWorker)
{
    AddDisk(20, DISK_TYPE_SSD_NVME);
    g_osCalls.threadCreate = FailingCreate;

    EXPECT_EQ(DrmDiskPrefailDiskEventHandle(20, DISK_EVENT_IN), DRM_OK);

    EXPECT_THAT(Group(DRM_PREFAIL_NVME), IsEmpty());
    (void)DrmDiskPrefailRoutineMasterSchedule(0, DRM_CODE_SCHEDULE);
    EXPECT_THAT(Group(DRM_PREFAIL_NVME), ElementsAre(20u));
}

TEST_F(DrmDiskPrefailDiskEventHandleTest, FailsWithoutMemoryForTheEvent)
{
    Knobs().heapFailAfter = 0;

    EXPECT_EQ(DrmDiskPrefailDiskEventHandle(20, DISK_EVENT_OUT), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(kError, "Handle disk event: disk(20) event(1) fail."));
    EXPECT_EQ(WorkersStarted(), 0u);
}

TEST_F(DrmDiskPrefailDiskEventHandleTest, FreesTheEventThatTheQueueRefuses)
{
    Knobs().itemFailAfter = 0;
    const int64_t before = FeatureBlocks();

    EXPECT_EQ(DrmDiskPrefailDiskEventHandle(20, DISK_EVENT_IN), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(kError, "Queue disk(20) event(0) failed."));
    EXPECT_EQ(FeatureBlocks(), before);
    EXPECT_EQ(WorkersStarted(), 0u);
}

TEST_F(DrmDiskPrefailMasterHandleDiskEventTest, HandlesEveryEventInOrder)
{
    AddDisk(20, DISK_TYPE_SSD_NVME);
    AddDisk(21, DISK_TYPE_SSD_NVME);
    const int64_t before = FeatureBlocks();
    QueueEvent(20, DISK_EVENT_IN);
    QueueEvent(21, DISK_EVENT_IN);
    QueueEvent(20, DISK_EVENT_OUT);

    DrmDiskPrefailMasterHandleDiskEvent();

    EXPECT_THAT(Group(DRM_PREFAIL_NVME), ElementsAre(21u));
    EXPECT_TRUE(HostLogged(kDebug, "Handle disk(20) event(0) ret(0)"));
    EXPECT_TRUE(HostLogged(kDebug, "Handle disk(21) event(0) ret(0)"));
    EXPECT_TRUE(HostLogged(kDebug, "Handle disk(20) event(1) ret(0)"));
    EXPECT_EQ(HostLog().size(), 3u);
    EXPECT_EQ(FeatureBlocks(), before + 2) << "one disk with its private word";
}

TEST_F(DrmDiskPrefailMasterHandleDiskEventTest, LogsAnUnknownEvent)
{
    const int64_t before = FeatureBlocks();
    QueueEvent(20, 2);

    DrmDiskPrefailMasterHandleDiskEvent();

    EXPECT_TRUE(HostLogged(kError, "Invalid disk event(2) for disk(20)."));
    EXPECT_TRUE(HostLogged(kDebug, "Handle disk(20) event(2) ret(0)"));
    EXPECT_EQ(HostLog().size(), 2u);
    EXPECT_EQ(FeatureBlocks(), before);
}

TEST_F(DrmDiskPrefailMasterHandleDiskEventTest, LogsAFailureAndGoesOn)
{
    AddDisk(21, DISK_TYPE_SSD_NVME);
    QueueEvent(20, DISK_EVENT_IN);
    QueueEvent(21, DISK_EVENT_IN);

    DrmDiskPrefailMasterHandleDiskEvent();

    EXPECT_TRUE(HostLogged(kError, "Handle disk(20) event(0) failed, ret(-1)."));
    EXPECT_TRUE(HostLogged(kDebug, "Handle disk(20) event(0) ret(-1)"));
    EXPECT_THAT(Group(DRM_PREFAIL_NVME), ElementsAre(21u));
}

TEST_F(DrmDiskPrefailMasterHandleDiskInEventTest, PutsEachDiskIntoTheListOfItsGroup)
{
    EnterOneOfEachGroup();
    Enter(15, DISK_TYPE_SSD_NVME, "0x1f7c");
    Enter(16, DISK_TYPE_HDD_NL_SAS);

    EXPECT_THAT(DisksIn<DrmDprDiskNode>(g_drmDiskPrefailDiskListForSATA), ElementsAre(10u));
    EXPECT_THAT(DisksIn<DrmDprDiskNode>(g_drmDiskPrefailDiskListForSAS), ElementsAre(11u));
    EXPECT_THAT(DisksIn<DrmDprDiskNode>(g_drmDiskPrefailDiskListForSasVSSD), ElementsAre(12u));
    EXPECT_THAT(DisksIn<DrmDprDiskNode>(g_drmDiskPrefailDiskListForNvme), ElementsAre(13u, 15u));
    EXPECT_THAT(DisksIn<DrmDprDiskNode>(g_drmDiskPrefailDiskListForSASHDD), ElementsAre(14u, 16u));
    for (const uint32_t diskId : {10u, 11u, 12u, 13u, 14u}) {
        ASSERT_NE(PrivateWord(diskId), nullptr);
        EXPECT_EQ(*static_cast<uint32_t *>(PrivateWord(diskId)), diskId - 10);
    }
    const auto *node = reinterpret_cast<DrmDprDiskNode *>(g_drmDiskPrefailDiskListForNvme.next);
    EXPECT_EQ(node->reserved, 0u);
}

TEST_F(DrmDiskPrefailMasterHandleDiskInEventTest, FailsForADiskWithoutGroup)
{
    AddDisk(20, DISK_TYPE_HDD_SATA);

    EXPECT_EQ(DrmDiskPrefailMasterHandleDiskInEvent(20), DRM_ERR_FAIL);
    EXPECT_EQ(DrmDiskPrefailMasterHandleDiskInEvent(21), DRM_ERR_FAIL) << "no such disk";

    EXPECT_TRUE(HostLogged(kError, "Get disk type failed(-1) for disk(20)."));
    EXPECT_TRUE(HostLogged(kError, "Get disk type failed(-1) for disk(21)."));
    EXPECT_EQ(FeatureBlocks(), 0);
}

TEST_F(DrmDiskPrefailMasterHandleDiskInEventTest, KeepsADiskThatComesAgain)
{
    Enter(20, DISK_TYPE_SSD_NVME);
    const void *word = PrivateWord(20);
    const int64_t before = FeatureBlocks();

    EXPECT_EQ(DrmDiskPrefailMasterHandleDiskInEvent(20), DRM_OK);

    EXPECT_TRUE(HostLogged(kInfo, "Disk(20) rein."));
    EXPECT_THAT(Group(DRM_PREFAIL_NVME), ElementsAre(20u));
    EXPECT_EQ(PrivateWord(20), word);
    EXPECT_EQ(FeatureBlocks(), before);
}

TEST_F(DrmDiskPrefailMasterHandleDiskInEventTest, FailsWithoutMemoryForTheNode)
{
    AddDisk(20, DISK_TYPE_SSD_NVME);
    Knobs().heapFailAfter = 0;

    EXPECT_EQ(DrmDiskPrefailMasterHandleDiskInEvent(20), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(kError, "Handle Disk(20) in event fail."));
    EXPECT_THAT(Group(DRM_PREFAIL_NVME), IsEmpty());
    EXPECT_EQ(PrivateWord(20), nullptr);
}

TEST_F(DrmDiskPrefailMasterHandleDiskInEventTest, TakesTheNodeBackWithoutMemoryForTheWord)
{
    Enter(19, DISK_TYPE_SSD_NVME);
    AddDisk(20, DISK_TYPE_SSD_NVME);
    const int64_t before = FeatureBlocks();
    Knobs().heapFailAfter = 1;

    EXPECT_EQ(DrmDiskPrefailMasterHandleDiskInEvent(20), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(kError, "Malloc for disk(20) failed."));
    EXPECT_TRUE(HostLogged(kError, "Set locale private data fail for disk(20)."));
    EXPECT_THAT(Group(DRM_PREFAIL_NVME), ElementsAre(19u));
    EXPECT_EQ(FeatureBlocks(), before);
}

TEST_F(DrmDiskPrefailMasterHandleDiskInEventTest, TakesTheNodeBackWhenTheWordCannotBeStored)
{
    AddDisk(20, DISK_TYPE_SSD_NVME);
    (void)DrmLocalDataMgrFin();

    EXPECT_EQ(DrmDiskPrefailMasterHandleDiskInEvent(20), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(kError, "Set locale private data fail for disk(20)."));
    EXPECT_THAT(Group(DRM_PREFAIL_NVME), IsEmpty());
    EXPECT_EQ(FeatureBlocks(), 0);
}

TEST_F(SetDprDiskDataTest, FreesTheWordThatCannotBeStored)
{
    EXPECT_EQ(SetDprDiskData(128, DRM_PREFAIL_NVME), DRM_ERR_FAIL);

    EXPECT_EQ(FeatureBlocks(), 0);
    EXPECT_EQ(g_drmAllLocalDiskInfo.locks[DRM_FEATURE_PREFAIL].lock, 0u) << "released";
}

TEST_F(SetDprDiskDataTest, ChangesWordsUnderTheFeaturesLock)
{
    AddDisk(20, DISK_TYPE_SSD_NVME);
    uint32_t groups = 0;
    std::thread reader([&groups] {
        for (uint32_t i = 0; i < 1000; i++) {
            const DrmFeatureDataGuard guard(DRM_FEATURE_PREFAIL);
            void *word = nullptr;
            if (getFeatureLocPrivateData(20, DRM_FEATURE_PREFAIL, &word) == DRM_OK && word != nullptr) {
                groups += *static_cast<uint32_t *>(word);
            }
        }
    });

    for (uint32_t i = 0; i < 1000; i++) {
        EXPECT_EQ(DrmDiskPrefailMasterHandleDiskInEvent(20), DRM_OK);
        EXPECT_EQ(DrmDiskPrefailMasterHandleDiskOutEvent(20), DRM_OK);
    }

    reader.join();
    EXPECT_EQ(groups % DRM_PREFAIL_NVME, 0u);
}

TEST_F(DrmDiskPrefailMasterHandleDiskOutEventTest, TakesTheDiskOut)
{
    Enter(20, DISK_TYPE_SSD_NVME);
    Enter(21, DISK_TYPE_SSD_NVME);
    Enter(22, DISK_TYPE_SSD_NVME);

    EXPECT_EQ(DrmDiskPrefailMasterHandleDiskOutEvent(21), DRM_OK);

    EXPECT_THAT(Group(DRM_PREFAIL_NVME), ElementsAre(20u, 22u));
    EXPECT_EQ(PrivateWord(21), nullptr);
    EXPECT_EQ(FeatureBlocks(), 4);
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmDiskPrefailMasterHandleDiskOutEventTest, FailsForADiskWithoutGroup)
{
    EXPECT_EQ(DrmDiskPrefailMasterHandleDiskOutEvent(20), DRM_ERR_FAIL);
    EXPECT_EQ(DrmDiskPrefailMasterHandleDiskOutEvent(128), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(kError, "Get private data fail for disk(20), info((nil))."));
    EXPECT_TRUE(HostLogged(kError, "Get private data fail for disk(128), info((nil))."));
    EXPECT_EQ(g_drmAllLocalDiskInfo.locks[DRM_FEATURE_PREFAIL].lock, 0u) << "released";
}

TEST_F(DrmDiskPrefailMasterHandleDiskOutEventTest, SucceedsForADiskThatIsNotInTheList)
{
    Enter(21, DISK_TYPE_SSD_NVME);
    ASSERT_EQ(SetDprDiskData(20, DRM_PREFAIL_NVME), DRM_OK);
    ASSERT_EQ(SetDprDiskData(22, DRM_PREFAIL_GROUPS), DRM_OK);

    EXPECT_EQ(DrmDiskPrefailMasterHandleDiskOutEvent(20), DRM_OK);
    EXPECT_EQ(DrmDiskPrefailMasterHandleDiskOutEvent(22), DRM_OK) << "a group that does not exist";

    EXPECT_THAT(Group(DRM_PREFAIL_NVME), ElementsAre(21u));
    EXPECT_EQ(FeatureBlocks(), 2);
}
