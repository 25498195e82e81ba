#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/drm_feature_adapter_intf.h"

#include "ma/drm/framework/drm_base.h"
#include "unit/ma/drm/feature_disks.h"

using data_mgr_test::Message;

class TransDiskTypeTest : public FeatureDisksTest {};
class DrmGetDiskTypeTest : public FeatureDisksTest {};
class DrmGetDiskIoStatTest : public FeatureDisksTest {};
class DrmReportSlowDiskTest : public FeatureDisksTest {};
class DrmSetDiskStatTest : public FeatureDisksTest {};
class DrmSnOfTest : public FeatureDisksTest {};

TEST_F(TransDiskTypeTest, EveryTypeButSataHardDisksHasItsOwn)
{
    const std::pair<uint32_t, uint32_t> rows[] = {{DISK_TYPE_SSD_NVME, 2},
                                                  {DISK_TYPE_SSD_SAS, 1},
                                                  {DISK_TYPE_SSD_SATA, 0},
                                                  {DISK_TYPE_HDD_SAS, 3},
                                                  {DISK_TYPE_HDD_NL_SAS, 3}};

    for (const auto &[diskType, expected] : rows) {
        uint32_t out = 77;
        EXPECT_EQ(TransDiskType(diskType, &out), 0u) << diskType;
        EXPECT_EQ(out, expected) << diskType;
    }
    EXPECT_EQ(FeatureLines(), 0u);
}

TEST_F(TransDiskTypeTest, OthersAreRefusedWithTheirNumber)
{
    uint32_t out = 77;

    EXPECT_EQ(TransDiskType(DISK_TYPE_HDD_SATA, &out), 0xFFFFFFFFu);
    EXPECT_EQ(TransDiskType(DISK_TYPE_BUTT, &out), 0xFFFFFFFFu);

    EXPECT_TRUE(Failed("Drm featue didn't support disktype(4)"));
    EXPECT_TRUE(Failed("Drm featue didn't support disktype(6)"));
    EXPECT_EQ(out, 77u);
}

TEST_F(DrmGetDiskTypeTest, GoesByTheBaseRecord)
{
    AddDisk(5, DISK_TYPE_SSD_SATA);
    AddDisk(6, DISK_TYPE_HDD_NL_SAS);
    uint32_t out = 77;

    EXPECT_EQ(DrmGetDiskType(5, &out), 0u);
    EXPECT_EQ(out, 0u);
    EXPECT_EQ(DrmGetDiskType(6, &out), 0u);
    EXPECT_EQ(out, 3u);
}

TEST_F(DrmGetDiskTypeTest, SataHardDiskIsNotSupported)
{
    AddDisk(5, DISK_TYPE_HDD_SATA);
    uint32_t out = 77;

    EXPECT_EQ(DrmGetDiskType(5, &out), 0xFFFFFFFFu);

    EXPECT_TRUE(Failed("Disk(5) type(4) not support, ret(-1)."));
}

TEST_F(DrmGetDiskTypeTest, UnknownDiskFails)
{
    uint32_t out = 77;

    EXPECT_EQ(DrmGetDiskType(9, &out), 0xFFFFFFFFu);

    EXPECT_TRUE(Failed("Get disk(9) baseinfo fail, ret(1)."));
    EXPECT_EQ(FeatureLines(), 1u);
}

TEST_F(DrmGetDiskIoStatTest, CopiesTheNewestFieldByField)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    SetStat(5, {.readIops = 1,
                .writeIops = 2,
                .readIoBand = 3,
                .writeIoBand = 4,
                .readIoDelay = 5,
                .writeIoDelay = 6,
                .queueDepth = 7,
                .ioBusyNum = 8,
                .avgServeTime = 0x300000009,
                .utilizationInt = 10,
                .utilizationFrac = 11});
    DrmDiskIoStat out{};

    EXPECT_EQ(DrmGetDiskIoStat(5, &out), 0u);

    EXPECT_EQ(out.readIops, 1u);
    EXPECT_EQ(out.writeIops, 2u);
    EXPECT_EQ(out.readIoBand, 3u);
    EXPECT_EQ(out.writeIoBand, 4u);
    EXPECT_EQ(out.readIoDelay, 5u);
    EXPECT_EQ(out.writeIoDelay, 6u);
    EXPECT_EQ(out.ioBusyNum, 8u);
    EXPECT_EQ(out.avgServeTime, 9u); // the low half
    EXPECT_EQ(out.utilization, 10u);
}

TEST_F(DrmGetDiskIoStatTest, FailsWithoutDiskAndWithoutStatistics)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    DrmDiskIoStat out{};

    EXPECT_EQ(DrmGetDiskIoStat(9, &out), 0xFFFFFFFFu);
    EXPECT_TRUE(Failed("Get disk(9) baseinfo fail, ret(1)."));
    EXPECT_EQ(DrmGetDiskIoStat(5, &out), 0xFFFFFFFFu);
    EXPECT_TRUE(Failed("Get disk(5) iostat info fail, ret(-1)."));
}

TEST_F(DrmReportSlowDiskTest, NormalAndPrefailDisksBecomeSlow)
{
    for (const uint32_t state : {DISK_STATE_NORMAL, DISK_STATE_PREFAIL}) {
        const uint32_t diskId = 5 + state;
        AddDisk(diskId, DISK_TYPE_SSD_NVME);
        SetState(diskId, state);

        EXPECT_EQ(DrmReportSlowDisk(diskId), 0u);

        EXPECT_EQ(StateOf(diskId), static_cast<uint32_t>(DISK_STATE_SLOW));
        EXPECT_TRUE(Failed("Find slow disk(" + std::to_string(diskId) + ")."));
        EXPECT_EQ(g_diskDataMgr[diskId]->strategy, static_cast<uint32_t>(DISK_STRATEGY_MIGRATE_REPLACE));
    }
    ASSERT_EQ(doubles_.messages.size(), 4u);
    EXPECT_EQ(doubles_.messages[0].sn, "SN-5");
    EXPECT_EQ(doubles_.messages[0].state, static_cast<uint32_t>(DISK_STATE_SLOW));
    EXPECT_EQ(doubles_.messages[1].text, "Migrate data and replace the hard disk");
}

TEST_F(DrmReportSlowDiskTest, LeavesOtherStatesAlone)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    for (const uint32_t state : {DISK_STATE_FAULT, DISK_STATE_SLOW, DISK_STATE_OFFLINE}) {
        SetState(5, state);

        EXPECT_EQ(DrmReportSlowDisk(5), 0u);

        EXPECT_EQ(StateOf(5), state);
    }
    EXPECT_TRUE(doubles_.messages.empty());
    EXPECT_EQ(FeatureLines(), 0u);
}

TEST_F(DrmReportSlowDiskTest, AStateThatCannotBeSetIsNoFailure)
{
    AddDisk(70, DISK_TYPE_SSD_NVME); // the sets end at 64

    EXPECT_EQ(DrmReportSlowDisk(70), 0u);

    EXPECT_EQ(StateOf(70), static_cast<uint32_t>(DISK_STATE_NORMAL));
    EXPECT_TRUE(Failed("Find slow disk(70)."));
}

TEST_F(DrmReportSlowDiskTest, UnknownDiskFails)
{
    EXPECT_EQ(DrmReportSlowDisk(9), 0xFFFFFFFFu);

    EXPECT_TRUE(Failed("Get disk(9) baseinfo fail, ret(1)."));
}

TEST_F(DrmSetDiskStatTest, SetsAnyStateWhateverItWas)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    SetState(5, DISK_STATE_SLOW);

    EXPECT_EQ(DrmSetDiskStat(5, DISK_STATE_PREFAIL), 0u);
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_PREFAIL));
    EXPECT_EQ(DrmSetDiskStat(5, DISK_STATE_NORMAL), 0u);
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_NORMAL));
    EXPECT_EQ(FeatureLines(), 0u);
}

TEST_F(DrmSetDiskStatTest, PassesOnWhatFailed)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    AddDisk(70, DISK_TYPE_SSD_NVME);

    EXPECT_EQ(DrmSetDiskStat(9, DISK_STATE_PREFAIL), 1u);
    EXPECT_TRUE(Failed("Get disk(9) baseinfo fail, ret(1)."));
    EXPECT_EQ(DrmSetDiskStat(70, DISK_STATE_PREFAIL), 1u);
    EXPECT_TRUE(Failed("Set disk(70) state prefail fail, ret(1)."));
    EXPECT_EQ(DrmSetDiskStat(5, DISK_STATE_KEEP), 0xFFFFFFFFu);
    EXPECT_TRUE(Failed("Set disk(5) state prefail fail, ret(-1)."));
}

TEST_F(DrmSnOfTest, EndsAtTheTerminatorOrTheField)
{
    DiskMgrObj record = data_mgr_test::MakeRecord("SN-5");
    std::memset(record.deviceName, 'd', sizeof(record.deviceName));

    EXPECT_EQ(DrmSnOf(record).len, 4u);
    EXPECT_EQ(DrmSnOf(record).buf, record.sn);
    std::memset(record.sn, 'x', sizeof(record.sn));
    EXPECT_EQ(DrmSnOf(record).len, 40u);
}

TEST_F(DrmSnOfTest, SerialNumberOfTheFullFieldReachesTheRecord)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    std::memset(g_diskMgrObj[5]->sn, 'x', DISK_SN_SIZE);

    EXPECT_EQ(DrmSetDiskStat(5, DISK_STATE_PREFAIL), 0u);

    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_PREFAIL));
}
