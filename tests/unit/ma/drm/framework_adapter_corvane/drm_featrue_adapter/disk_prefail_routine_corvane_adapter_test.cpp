#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/disk_prefail_routine_corvane_adapter.h"

#include <array>

#include "ma/drm/framework/drm_base.h"
#include "unit/ma/drm/feature_disks.h"

class TransDiskGroupTest : public FeatureDisksTest {};
class DrmGetPrefailDiskGroupTest : public FeatureDisksTest {};
class DrmReportDiskPrefailTest : public FeatureDisksTest {};

/** One disk, number 5, whose health detail reads 0, 1, 2 and so on. */
class PrefailHealthTest : public FeatureDisksTest {
protected:
    PrefailHealthTest()
    {
        AddDisk(5, DISK_TYPE_SSD_SAS);
        DiskHealthInfo &health = g_diskDataMgr[5]->healthInfo;
        health.powerOnHours = 1000;
        for (size_t i = 0; i < sizeof(health.detail.raw); i++) {
            health.detail.raw[i] = static_cast<uint8_t>(i + 1);
        }
    }
};
class GetCorvaneInfoTest : public PrefailHealthTest {};
class DrmAtaGetSmartInfoTest : public PrefailHealthTest {};
class DrmSasSsdGetIElogInfoTest : public PrefailHealthTest {};
class DrmSasVssdGetLogInfoTest : public PrefailHealthTest {};
class DrmNvmeGetICritWarningTest : public PrefailHealthTest {};
class DrmSasHddGetSenseInfoTest : public PrefailHealthTest {};

TEST_F(TransDiskGroupTest, OrdinaryVendorsGoByType)
{
    const std::pair<uint32_t, uint32_t> rows[] = {{DISK_TYPE_SSD_NVME, 3},
                                                  {DISK_TYPE_SSD_SAS, 1},
                                                  {DISK_TYPE_SSD_SATA, 0},
                                                  {DISK_TYPE_HDD_SAS, 4},
                                                  {DISK_TYPE_HDD_NL_SAS, 4}};

    for (const char *vendor : {"VELMAR", "", "0x1f7", "0x1f7cc", "0x1F7C", " 0x1f7c"}) {
        for (const auto &[diskType, expected] : rows) {
            uint32_t out = 77;
            EXPECT_EQ(TransDiskGroup(diskType, vendor, &out), 0u) << vendor << diskType;
            EXPECT_EQ(out, expected) << vendor << diskType;
        }
    }
    EXPECT_EQ(FeatureLines(), 0u);
}

TEST_F(TransDiskGroupTest, OrdinaryVendorsHaveNoGroupForSataHardDisks)
{
    uint32_t out = 77;

    EXPECT_EQ(TransDiskGroup(DISK_TYPE_HDD_SATA, "VELMAR", &out), 0xFFFFFFFFu);
    EXPECT_EQ(TransDiskGroup(DISK_TYPE_BUTT, nullptr, &out), 0xFFFFFFFFu);

    EXPECT_TRUE(Failed("Drm featue didn't support disktyepe(4)"));
    EXPECT_TRUE(Failed("Drm featue didn't support disktyepe(6)"));
    EXPECT_EQ(out, 77u);
}

TEST_F(TransDiskGroupTest, OneVendorMakesNvmeAndCapacitorDisksOnly)
{
    uint32_t out = 77;

    EXPECT_EQ(TransDiskGroup(DISK_TYPE_SSD_NVME, "0x1f7c", &out), 0u);
    EXPECT_EQ(out, 3u);
    EXPECT_EQ(TransDiskGroup(DISK_TYPE_SSD_SAS, "0x1f7c", &out), 0u);
    EXPECT_EQ(out, 2u);
    for (uint32_t diskType = DISK_TYPE_SSD_SATA; diskType <= DISK_TYPE_BUTT; diskType++) {
        EXPECT_EQ(TransDiskGroup(diskType, "0x1f7c", &out), 0xFFFFFFFFu) << diskType;
        EXPECT_TRUE(Failed("Drm featue didn't support velmar disktyepe(" + std::to_string(diskType) + ")"));
    }
}

TEST_F(DrmGetPrefailDiskGroupTest, GoesByTypeAndVendorOfTheRecord)
{
    AddDisk(5, DISK_TYPE_SSD_SAS, "0x1f7c");
    AddDisk(6, DISK_TYPE_SSD_SAS, "VELMAR");
    uint32_t out = 77;

    EXPECT_EQ(DrmGetPrefailDiskGroup(5, &out), 0u);
    EXPECT_EQ(out, 2u);
    EXPECT_EQ(DrmGetPrefailDiskGroup(6, &out), 0u);
    EXPECT_EQ(out, 1u);
}

TEST_F(DrmGetPrefailDiskGroupTest, TellsVendorOfADiskWithoutGroup)
{
    AddDisk(5, DISK_TYPE_HDD_SATA, "VENDOR-TEN"); // fills its field
    uint32_t out = 77;

    EXPECT_EQ(DrmGetPrefailDiskGroup(5, &out), 0xFFFFFFFFu);
    EXPECT_TRUE(Failed("Disk(5) type(4) not support, vender(VENDOR-TEN), ret(-1)."));
    EXPECT_EQ(DrmGetPrefailDiskGroup(9, &out), 0xFFFFFFFFu);
    EXPECT_TRUE(Failed("Get disk(9) baseinfo fail, ret(1)."));
}

TEST_F(GetCorvaneInfoTest, GivesTheHealthRecord)
{
    DiskHealthInfo out{};

    EXPECT_EQ(GetCorvaneInfo(5, &out), 0u);

    EXPECT_EQ(std::memcmp(&out, &g_diskDataMgr[5]->healthInfo, sizeof(out)), 0);
}

TEST_F(GetCorvaneInfoTest, UnknownDiskFails)
{
    DiskHealthInfo out{};

    EXPECT_EQ(GetCorvaneInfo(9, &out), 0xFFFFFFFFu);

    EXPECT_TRUE(Failed("Get disk(9) baseinfo fail, ret(1)."));
    EXPECT_EQ(FeatureLines(), 1u);
}

TEST_F(GetCorvaneInfoTest, FailedReadGivesItsResult)
{
    DataMgrInfoGetFunc row = std::exchange(g_diskInfoGetFunc[DISK_INFO_HEALTH],
                                           [](uint32_t, DiskSnRef, void *, uint32_t) -> uint32_t { return 42; });
    DiskHealthInfo out{};

    EXPECT_EQ(GetCorvaneInfo(5, &out), 42u);

    g_diskInfoGetFunc[DISK_INFO_HEALTH] = row;
    EXPECT_TRUE(Failed("Get disk(5) sn(SN-5) health info fail, ret(42)."));
}

TEST_F(GetCorvaneInfoTest, SerialNumberOfTheFullFieldIsToldWhole)
{
    std::memset(g_diskMgrObj[5]->sn, 'x', DISK_SN_SIZE);
    DataMgrInfoGetFunc row = std::exchange(g_diskInfoGetFunc[DISK_INFO_HEALTH],
                                           [](uint32_t, DiskSnRef, void *, uint32_t) -> uint32_t { return 42; });
    DiskHealthInfo out{};

    EXPECT_EQ(GetCorvaneInfo(5, &out), 42u);

    g_diskInfoGetFunc[DISK_INFO_HEALTH] = row;
    EXPECT_TRUE(Failed("Get disk(5) sn(" + std::string(40, 'x') + ") health info fail, ret(42)."));
}

TEST_F(DrmAtaGetSmartInfoTest, CopiesThirtyEntries)
{
    std::array<DiskSmartAttr, DISK_SMART_ATTR_NUM> out{};

    EXPECT_EQ(DrmAtaGetSmartInfo(5, out.data(), 30), 0u);

    EXPECT_EQ(out[0].id, 1u);
    EXPECT_EQ(out[0].threshold, 2u);
    EXPECT_EQ(out[0].currentValue, 3u);
    EXPECT_EQ(out[0].worst, 4u);
    EXPECT_EQ(out[29].worst, 120u);
}

TEST_F(DrmAtaGetSmartInfoTest, AnotherNumberOfEntriesFails)
{
    std::array<DiskSmartAttr, DISK_SMART_ATTR_NUM + 1> out{};

    EXPECT_EQ(DrmAtaGetSmartInfo(5, out.data(), 29), 0xFFFFFFFFu);
    EXPECT_TRUE(Failed("Sata smart log entry diffent disk(5), expected size(120), actuality size(116)"));
    EXPECT_EQ(DrmAtaGetSmartInfo(5, out.data(), 31), 0xFFFFFFFFu);
    EXPECT_TRUE(Failed("Sata smart log entry diffent disk(5), expected size(120), actuality size(124)"));
    EXPECT_EQ(out[0].id, 0u);
}

TEST_F(DrmAtaGetSmartInfoTest, UnknownDiskFails)
{
    std::array<DiskSmartAttr, DISK_SMART_ATTR_NUM> out{};

    EXPECT_EQ(DrmAtaGetSmartInfo(9, out.data(), 30), 0xFFFFFFFFu);

    EXPECT_TRUE(Failed("Get disk(9) baseinfo fail, ret(1)."));
    EXPECT_TRUE(Failed("Get disk(9) info fail, ret(-1)."));
}

TEST_F(DrmSasSsdGetIElogInfoTest, CopiesSense)
{
    DrmSasSenseInfo out{};

    EXPECT_EQ(DrmSasSsdGetIElogInfo(5, &out), 0u);

    EXPECT_EQ(out.asc, 1u);
    EXPECT_EQ(out.ascq, 2u);
    EXPECT_EQ(out.isSupportIeLog, 3u);
    EXPECT_EQ(DrmSasSsdGetIElogInfo(9, &out), 0xFFFFFFFFu);
    EXPECT_TRUE(Failed("Get disk(9) info fail, ret(-1)."));
}

TEST_F(DrmSasVssdGetLogInfoTest, CopiesCapacitorState)
{
    DrmSasVssdLogInfo out{};

    EXPECT_EQ(DrmSasVssdGetLogInfo(5, &out), 0u);

    EXPECT_EQ(out.capacitanceId, 1u);
    EXPECT_EQ(out.capacitanceStatus, 2u);
    EXPECT_EQ(DrmSasVssdGetLogInfo(9, &out), 0xFFFFFFFFu);
    EXPECT_TRUE(Failed("Get disk(9) info fail, ret(-1)."));
}

TEST_F(DrmNvmeGetICritWarningTest, CopiesEachBitAndNoOther)
{
    for (uint32_t bit = 0; bit < 8; bit++) {
        g_diskDataMgr[5]->healthInfo.detail.nvme.criticalWarning = static_cast<uint8_t>(1u << bit);
        for (const uint32_t before : {0x00u, 0xFFu}) {
            DrmNvmeCritWarning out{};
            std::memcpy(&out, &before, sizeof(out)); // the low byte

            EXPECT_EQ(DrmNvmeGetICritWarning(5, &out), 0u);

            uint8_t byte = 0;
            std::memcpy(&byte, &out, 1);
            const unsigned copied = bit < 5 ? 1u << bit : 0;
            EXPECT_EQ(byte, (before & 0xE0u) | copied) << bit;
        }
    }
}

TEST_F(DrmNvmeGetICritWarningTest, BitsHaveTheNamesOfTheStandard)
{
    DrmNvmeCritWarning out{};

    g_diskDataMgr[5]->healthInfo.detail.nvme.criticalWarning = 0x01;
    EXPECT_EQ(DrmNvmeGetICritWarning(5, &out), 0u);
    EXPECT_EQ(out.availableSpare, 1u);
    g_diskDataMgr[5]->healthInfo.detail.nvme.criticalWarning = 0x08;
    EXPECT_EQ(DrmNvmeGetICritWarning(5, &out), 0u);
    EXPECT_EQ(out.availableSpare, 0u);
    EXPECT_EQ(out.readOnly, 1u);
    g_diskDataMgr[5]->healthInfo.detail.nvme.criticalWarning = 0x10;
    EXPECT_EQ(DrmNvmeGetICritWarning(5, &out), 0u);
    EXPECT_EQ(out.volatileMemoryBackup, 1u);
    EXPECT_EQ(DrmNvmeGetICritWarning(9, &out), 0xFFFFFFFFu);
    EXPECT_TRUE(Failed("Get disk(9) info fail, ret(-1)."));
}

TEST_F(DrmSasHddGetSenseInfoTest, CopiesSense)
{
    DrmSasSenseInfo out{};

    EXPECT_EQ(DrmSasHddGetSenseInfo(5, &out), 0u);

    EXPECT_EQ(out.asc, 1u);
    EXPECT_EQ(out.ascq, 2u);
    EXPECT_EQ(out.isSupportIeLog, 3u);
    EXPECT_EQ(DrmSasHddGetSenseInfo(9, &out), 0xFFFFFFFFu);
    EXPECT_TRUE(Failed("Get disk(9) info fail, ret(-1)."));
}

TEST_F(DrmReportDiskPrefailTest, NormalDiskBecomesPrefail)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);

    EXPECT_EQ(DrmReportDiskPrefail(5), 0u);

    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_PREFAIL));
    EXPECT_TRUE(Failed("Find prefail disk(5)."));
    ASSERT_EQ(doubles_.messages.size(), 2u);
    EXPECT_EQ(doubles_.messages[1].text, "Migrate data and replace the hard disk");
}

TEST_F(DrmReportDiskPrefailTest, NoOtherStateIsLowered)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    for (const uint32_t state : {DISK_STATE_FAULT, DISK_STATE_OFFLINE, DISK_STATE_PREFAIL, DISK_STATE_SLOW}) {
        SetState(5, state);

        EXPECT_EQ(DrmReportDiskPrefail(5), 0u);

        EXPECT_EQ(StateOf(5), state);
    }
    EXPECT_TRUE(doubles_.messages.empty());
    EXPECT_EQ(FeatureLines(), 0u);
}

TEST_F(DrmReportDiskPrefailTest, AStateThatCannotBeSetIsReportedAgain)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);
    DataMgrInfoSetFunc row =
        std::exchange(g_diskInfoSetFunc[DISK_INFO_STATE], [](uint32_t, DiskSnRef, void *) -> uint32_t { return 42; });

    EXPECT_EQ(DrmReportDiskPrefail(5), 0u);
    EXPECT_EQ(StateOf(5), static_cast<uint32_t>(DISK_STATE_NORMAL));
    EXPECT_EQ(DrmReportDiskPrefail(5), 0u);

    g_diskInfoSetFunc[DISK_INFO_STATE] = row;
    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, kFeatureModule, "Find prefail disk(5)."), 2u);
}

TEST_F(DrmReportDiskPrefailTest, UnknownDiskFails)
{
    EXPECT_EQ(DrmReportDiskPrefail(9), 0xFFFFFFFFu);

    EXPECT_TRUE(Failed("Get disk(9) baseinfo fail, ret(1)."));
}
