#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/disk_life_monitor_corvane_adapter.h"

#include "ma/drm/framework/drm_base.h"
#include "unit/ma/drm/feature_disks.h"

class DrmGetHealthInfoTest : public FeatureDisksTest {};
class LifeMonitorActionTest : public FeatureDisksTest {};

/** Disk 5 with a score and a life that no prediction gives. */
class DrmSetLifeMonitorResultTest : public FeatureDisksTest {
protected:
    DrmSetLifeMonitorResultTest()
    {
        AddDisk(5, DISK_TYPE_SSD_NVME);
        g_diskDataMgr[5]->drmInfo = {.healthScore = 1, .diskLife = 1};
    }
    static DiskDrmInfo Stored() { return g_diskDataMgr[5]->drmInfo; }
};

TEST_F(DrmGetHealthInfoTest, CopiesAgeAndWear)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    g_diskDataMgr[5]->healthInfo = {.powerOnHours = 0x100000001, .wearInt = 2, .wearFrac = 3, .detail = {}};
    DrmDiskHealthBrief out{};

    EXPECT_EQ(DrmGetHealthInfo(5, &out), 0u);

    EXPECT_EQ(out.powerOnHours, 0x100000001u);
    EXPECT_EQ(out.wearInt, 2u);
    EXPECT_EQ(out.wearFrac, 3u);
}

TEST_F(DrmGetHealthInfoTest, FailuresAreTold)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    DrmDiskHealthBrief out{};

    EXPECT_EQ(DrmGetHealthInfo(9, &out), 0xFFFFFFFFu);
    EXPECT_TRUE(Failed("Get disk(9) baseinfo fail, ret(1)."));

    DataMgrInfoGetFunc row = std::exchange(g_diskInfoGetFunc[DISK_INFO_HEALTH],
                                           [](uint32_t, DiskSnRef, void *, uint32_t) -> uint32_t { return 42; });
    EXPECT_EQ(DrmGetHealthInfo(5, &out), 42u);
    g_diskInfoGetFunc[DISK_INFO_HEALTH] = row;
    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, kFeatureModule, "Get disk(5) sn(SN-5) health info fail, ret(42)."), 1u);
}

TEST_F(DrmSetLifeMonitorResultTest, LessThanADayIsFault)
{
    for (const uint64_t life : {0, 20, 24}) {
        SetState(5, DISK_STATE_NORMAL);
        ClearLogs();
        doubles_.messages.clear();

        EXPECT_EQ(DrmSetLifeMonitorResult(5, life), 0u);

        EXPECT_EQ(Stored().healthScore, 37u);
        EXPECT_EQ(Stored().diskLife, life);
        EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_FAULT));
        EXPECT_TRUE(Warned("Disk(5) sn(SN-5) will be fault."));
        EXPECT_EQ(FeatureLines(), 1u);
        ASSERT_EQ(doubles_.messages.size(), 2u);
        EXPECT_EQ(doubles_.messages[1].text, "Replace the hard disk");
    }
}

TEST_F(DrmSetLifeMonitorResultTest, LessThanAMonthIsPrefail)
{
    for (const uint64_t life : {25, 600, 719}) {
        SetState(5, DISK_STATE_NORMAL);
        ClearLogs();

        EXPECT_EQ(DrmSetLifeMonitorResult(5, life), 0u);

        EXPECT_EQ(Stored().healthScore, 37u);
        EXPECT_EQ(Stored().diskLife, life);
        EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_PREFAIL));
        EXPECT_TRUE(Warned("Disk(5) sn(SN-5) will be prefail, ret(0)."));
        EXPECT_EQ(FeatureLines(), 1u);
    }
}

TEST_F(DrmSetLifeMonitorResultTest, LessThanAQuarterIsOnlyTold)
{
    for (const uint64_t life : {720, 1920, 2159}) {
        ClearLogs();

        EXPECT_EQ(DrmSetLifeMonitorResult(5, life), 0u);

        EXPECT_EQ(Stored().healthScore, 100u);
        EXPECT_EQ(Stored().diskLife, life);
        EXPECT_TRUE(Warned("Disk(5) sn(SN-5) need be replaced."));
        EXPECT_EQ(FeatureLines(), 1u);
    }
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_NORMAL));
    EXPECT_TRUE(doubles_.messages.empty());
}

TEST_F(DrmSetLifeMonitorResultTest, MoreIsNotEvenTold)
{
    for (const uint64_t life : {2160, 27090, 43800}) {
        EXPECT_EQ(DrmSetLifeMonitorResult(5, life), 0u);

        EXPECT_EQ(Stored().healthScore, 100u);
        EXPECT_EQ(Stored().diskLife, life);
    }
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_NORMAL));
    EXPECT_EQ(FeatureLines(), 0u);
}

TEST_F(DrmSetLifeMonitorResultTest, StoresTheLowHalfAndJudgesTheWhole)
{
    EXPECT_EQ(DrmSetLifeMonitorResult(5, 0x100000007), 0u);

    EXPECT_EQ(Stored().diskLife, 7u);
    EXPECT_EQ(Stored().healthScore, 100u);
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_NORMAL));
}

TEST_F(DrmSetLifeMonitorResultTest, ReplacesAnyState)
{
    SetState(5, DISK_STATE_SLOW);
    EXPECT_EQ(DrmSetLifeMonitorResult(5, 100), 0u);
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_PREFAIL));

    SetState(5, DISK_STATE_FAULT);
    EXPECT_EQ(DrmSetLifeMonitorResult(5, 100), 0u);
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_PREFAIL));

    SetState(5, DISK_STATE_SLOW);
    EXPECT_EQ(DrmSetLifeMonitorResult(5, 10), 0u);
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_FAULT));
}

TEST_F(DrmSetLifeMonitorResultTest, ChangesTheStateAlsoWhenTheStoreFailed)
{
    DataMgrInfoSetFunc row =
        std::exchange(g_diskInfoSetFunc[DISK_INFO_DRM], [](uint32_t, DiskSnRef, void *) -> uint32_t { return 42; });

    EXPECT_EQ(DrmSetLifeMonitorResult(5, 100), 42u);

    g_diskInfoSetFunc[DISK_INFO_DRM] = row;
    EXPECT_TRUE(Failed("Set disk(5) sn(SN-5) drm info fail, ret(42)."));
    EXPECT_TRUE(Warned("Disk(5) sn(SN-5) will be prefail, ret(0)."));
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_PREFAIL));
}

TEST_F(DrmSetLifeMonitorResultTest, AFailedChangeOfStateIsToldAndNoFailure)
{
    DataMgrInfoSetFunc row =
        std::exchange(g_diskInfoSetFunc[DISK_INFO_STATE], [](uint32_t, DiskSnRef, void *) -> uint32_t { return 42; });

    EXPECT_EQ(DrmSetLifeMonitorResult(5, 100), 0u);
    EXPECT_TRUE(Warned("Disk(5) sn(SN-5) will be prefail, ret(42)."));
    EXPECT_EQ(DrmSetLifeMonitorResult(5, 10), 0u);
    EXPECT_TRUE(Warned("Disk(5) sn(SN-5) will be fault."));

    g_diskInfoSetFunc[DISK_INFO_STATE] = row;
}

TEST_F(DrmSetLifeMonitorResultTest, UnknownDiskGivesTheResultOfTheRead)
{
    EXPECT_EQ(DrmSetLifeMonitorResult(9, 100), 1u);

    EXPECT_TRUE(Failed("Get disk(9) baseinfo fail, ret(1)."));
    EXPECT_EQ(FeatureLines(), 1u);
}

TEST_F(LifeMonitorActionTest, DoNothing)
{
    uint64_t data = 11;
    uint64_t info = 22;
    uint32_t in = 33;

    EXPECT_EQ(DrmHandleGetDiskHealthInfoAction(&in, sizeof(in), &data, &info), 0u);
    EXPECT_EQ(DrmHandleSetLifeMonitorResultAction(nullptr, 0, &data, &info), 0u);

    EXPECT_EQ(data, 11u);
    EXPECT_EQ(info, 22u);
    EXPECT_EQ(in, 33u);
}
