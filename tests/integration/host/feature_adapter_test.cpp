#include "drm_fixture.h"

#include <cstring>

namespace {

constexpr const char *kTag = "[DRM_FEATURE]";

class FeatureAdapterTest : public DrmTest {
protected:
    static size_t Told(const std::string &text) { return HostLogged(3, kTag + text); }
};

TEST_F(FeatureAdapterTest, TypesOfTheFeatures)
{
    const uint32_t expected[6] = {2, 1, 0, 3, kFail, 3};
    for (uint32_t type = 0; type < 6; type++) {
        uint32_t out = 77;
        EXPECT_EQ(lib::TransDiskType(type, &out), expected[type] == kFail ? kFail : 0) << type;
        if (expected[type] != kFail) {
            EXPECT_EQ(out, expected[type]) << type;
        }
    }
    uint32_t out = 77;
    EXPECT_EQ(lib::TransDiskType(6, &out), kFail);
    EXPECT_EQ(Told("Drm featue didn't support disktype(4)"), 1u);
    EXPECT_EQ(Told("Drm featue didn't support disktype(6)"), 1u);
}

TEST_F(FeatureAdapterTest, GroupsOfThePrefailRoutine)
{
    const uint32_t others[6] = {3, 1, 0, 4, kFail, 4};
    const uint32_t own[6] = {3, 2, kFail, kFail, kFail, kFail};
    for (uint32_t type = 0; type < 6; type++) {
        for (const char *vendor : {"VELMAR", "0x1F7C", "0x1f7", "0x1f7cc", ""}) {
            uint32_t out = 77;
            EXPECT_EQ(lib::TransDiskGroup(type, vendor, &out), others[type] == kFail ? kFail : 0) << type << vendor;
            EXPECT_EQ(out, others[type] == kFail ? 77 : others[type]) << type << vendor;
        }
        uint32_t out = 77;
        EXPECT_EQ(lib::TransDiskGroup(type, "0x1f7c", &out), own[type] == kFail ? kFail : 0) << type;
        EXPECT_EQ(out, own[type] == kFail ? 77 : own[type]) << type;
    }
    EXPECT_EQ(Told("Drm featue didn't support disktyepe(4)"), 5u);
    EXPECT_EQ(Told("Drm featue didn't support velmar disktyepe(2)"), 1u);
    EXPECT_EQ(Told("Drm featue didn't support velmar disktyepe(5)"), 1u);
}

TEST_F(FeatureAdapterTest, UnknownDisksFailEveryCall)
{
    lib::DrmDiskHealthBrief brief{};
    lib::DiskHealthInfo health{};
    lib::DrmDiskIoStat stat{};
    uint8_t bytes[120];
    uint32_t word = 0;
    const std::string base = "Get disk(9) baseinfo fail, ret(1).";

    EXPECT_EQ(lib::DrmGetHealthInfo(9, &brief), kFail);
    EXPECT_EQ(lib::DrmGetPrefailDiskGroup(9, &word), kFail);
    EXPECT_EQ(lib::GetCorvaneInfo(9, &health), kFail);
    EXPECT_EQ(Told("Get disk(9) info fail, ret(-1)."), 0u);
    EXPECT_EQ(lib::DrmAtaGetSmartInfo(9, bytes, 30), kFail);
    EXPECT_EQ(lib::DrmSasSsdGetIElogInfo(9, bytes), kFail);
    EXPECT_EQ(lib::DrmSasVssdGetLogInfo(9, bytes), kFail);
    EXPECT_EQ(lib::DrmNvmeGetICritWarning(9, bytes), kFail);
    EXPECT_EQ(lib::DrmSasHddGetSenseInfo(9, bytes), kFail);
    EXPECT_EQ(Told("Get disk(9) info fail, ret(-1)."), 5u);
    EXPECT_EQ(lib::DrmGetDiskIoStat(9, &stat), kFail);
    EXPECT_EQ(lib::DrmReportSlowDisk(9), kFail);
    EXPECT_EQ(lib::DrmReportDiskPrefail(9), kFail);
    EXPECT_EQ(lib::DrmSetDiskStat(9, 3), 1u);
    EXPECT_EQ(lib::DrmGetDiskType(9, &word), kFail);

    EXPECT_EQ(Told(base), 13u);
}

TEST_F(FeatureAdapterTest, RecordsAreCopiedFieldByField)
{
    const uint32_t id = AddSas("SN-0");
    lib::DataMgrObj &object = Object(id);
    object.healthInfo.powerOnHours = 0x1122334455667788;
    object.healthInfo.wearInt = 12;
    object.healthInfo.wearFrac = 34;
    for (uint8_t i = 0; i < 120; i++) {
        object.healthInfo.detail[i] = static_cast<uint8_t>(i + 100);
    }
    object.ioStat[0] = {1, 2, 3, 4, 5, 6, 7, 8, 0x900000009ULL, 10, 11};
    object.ioStatCount = 1;

    lib::DrmDiskHealthBrief brief{};
    EXPECT_EQ(lib::DrmGetHealthInfo(id, &brief), 0u);
    EXPECT_EQ(brief.powerOnHours, 0x1122334455667788u);
    EXPECT_EQ(brief.wearInt, 12u);
    EXPECT_EQ(brief.wearFrac, 34u);
    lib::DiskHealthInfo health{};
    EXPECT_EQ(lib::GetCorvaneInfo(id, &health), 0u);
    EXPECT_EQ(std::memcmp(&health, &object.healthInfo, sizeof(health)), 0);
    uint8_t bytes[121];
    std::memset(bytes, 7, sizeof(bytes));
    EXPECT_EQ(lib::DrmAtaGetSmartInfo(id, bytes, 30), 0u);
    EXPECT_EQ(std::memcmp(bytes, object.healthInfo.detail, 120), 0);
    EXPECT_EQ(bytes[120], 7);
    std::memset(bytes, 7, sizeof(bytes));
    EXPECT_EQ(lib::DrmSasSsdGetIElogInfo(id, bytes), 0u);
    EXPECT_EQ((std::vector<uint8_t>(bytes, bytes + 4)), (std::vector<uint8_t>{100, 101, 102, 7}));
    std::memset(bytes, 7, sizeof(bytes));
    EXPECT_EQ(lib::DrmSasHddGetSenseInfo(id, bytes), 0u);
    EXPECT_EQ((std::vector<uint8_t>(bytes, bytes + 4)), (std::vector<uint8_t>{100, 101, 102, 7}));
    std::memset(bytes, 7, sizeof(bytes));
    EXPECT_EQ(lib::DrmSasVssdGetLogInfo(id, bytes), 0u);
    EXPECT_EQ((std::vector<uint8_t>(bytes, bytes + 3)), (std::vector<uint8_t>{100, 101, 7}));
    lib::DrmDiskIoStat stat{};
    EXPECT_EQ(lib::DrmGetDiskIoStat(id, &stat), 0u);
    EXPECT_EQ(stat.readIops, 1u);
    EXPECT_EQ(stat.writeIops, 2u);
    EXPECT_EQ(stat.readIoBand, 3u);
    EXPECT_EQ(stat.writeIoBand, 4u);
    EXPECT_EQ(stat.readIoDelay, 5u);
    EXPECT_EQ(stat.writeIoDelay, 6u);
    EXPECT_EQ(stat.ioBusyNum, 8u);
    EXPECT_EQ(stat.avgServeTime, 9u);
    EXPECT_EQ(stat.utilization, 10u);
    uint32_t word = 99;
    EXPECT_EQ(lib::DrmGetDiskType(id, &word), 0u);
    EXPECT_EQ(word, 1u);
    EXPECT_EQ(lib::DrmGetPrefailDiskGroup(id, &word), 0u);
    EXPECT_EQ(word, 1u);
}

TEST_F(FeatureAdapterTest, OnlyFiveBitsOfTheWarningAreWritten)
{
    const uint32_t id = AddNvme("SN-0");
    uint8_t out = 0xFF;

    SetDetail(id, {0x00});
    EXPECT_EQ(lib::DrmNvmeGetICritWarning(id, &out), 0u);
    EXPECT_EQ(out, 0xE0);
    SetDetail(id, {0xFF});
    out = 0;
    EXPECT_EQ(lib::DrmNvmeGetICritWarning(id, &out), 0u);
    EXPECT_EQ(out, 0x1F);
    SetDetail(id, {0x0A});
    EXPECT_EQ(lib::DrmNvmeGetICritWarning(id, &out), 0u);
    EXPECT_EQ(out, 0x0A);
}

TEST_F(FeatureAdapterTest, SmartEntriesMustBe30)
{
    const uint32_t id = AddSata("SN-0");
    uint8_t bytes[128] = {};

    EXPECT_EQ(lib::DrmAtaGetSmartInfo(id, bytes, 29), kFail);
    EXPECT_EQ(lib::DrmAtaGetSmartInfo(id, bytes, 31), kFail);

    EXPECT_EQ(Told("Sata smart log entry diffent disk(0), expected size(120), actuality size(116)"), 1u);
    EXPECT_EQ(Told("Sata smart log entry diffent disk(0), expected size(120), actuality size(124)"), 1u);
}

TEST_F(FeatureAdapterTest, WithoutStatisticsThereIsNoIoStat)
{
    const uint32_t id = AddSata("SN-0");
    lib::DrmDiskIoStat stat{};

    EXPECT_EQ(lib::DrmGetDiskIoStat(id, &stat), kFail);

    EXPECT_EQ(Told("Get disk(0) iostat info fail, ret(-1)."), 1u);
}

TEST_F(FeatureAdapterTest, UnsupportedTypesAreTold)
{
    const uint32_t id = AddSata("SN-0");
    uint32_t out = 0;
    Object(id).baseInfo->diskType = 4;

    EXPECT_EQ(lib::DrmGetDiskType(id, &out), kFail);
    EXPECT_EQ(Told("Disk(0) type(4) not support, ret(-1)."), 1u);
    EXPECT_EQ(lib::DrmGetPrefailDiskGroup(id, &out), kFail);
    EXPECT_EQ(Told("Disk(0) type(4) not support, vender(ATA), ret(-1)."), 1u);
    Object(id).baseInfo->diskType = 5;
    EXPECT_EQ(lib::DrmGetDiskType(id, &out), 0u);
    EXPECT_EQ(out, 3u);
    EXPECT_EQ(lib::DrmGetPrefailDiskGroup(id, &out), 0u);
    EXPECT_EQ(out, 4u);
}

TEST_F(FeatureAdapterTest, AVerdictNeverLowersAState)
{
    const uint32_t id = AddSata("SN-0");
    const struct {
        uint32_t state;
        uint32_t slow;
        uint32_t prefail;
    } cases[] = {{0, 4, 3}, {1, 1, 1}, {3, 4, 3}, {4, 4, 4}};
    for (const auto &item : cases) {
        ClearHostLines();
        Object(id).baseInfo->diskState = item.state;
        EXPECT_EQ(lib::DrmReportSlowDisk(id), 0u);
        EXPECT_EQ(State(id), item.slow) << item.state;
        EXPECT_EQ(Told("Find slow disk(0)."), item.slow == item.state ? 0u : 1u);
        Object(id).baseInfo->diskState = item.state;
        EXPECT_EQ(lib::DrmReportDiskPrefail(id), 0u);
        EXPECT_EQ(State(id), item.prefail) << item.state;
        EXPECT_EQ(Told("Find prefail disk(0)."), item.prefail == item.state ? 0u : 1u);
    }
}

TEST_F(FeatureAdapterTest, StateSetTakesAnyStateAndTellsAFailure)
{
    const uint32_t id = AddSata("SN-0");

    EXPECT_EQ(lib::DrmSetDiskStat(id, 1), 0u);
    EXPECT_EQ(State(id), 1u);
    EXPECT_EQ(lib::DrmSetDiskStat(id, 0), 0u);
    EXPECT_EQ(State(id), 0u);
    EXPECT_EQ(lib::DrmSetDiskStat(id, 5), kFail);

    EXPECT_EQ(Told("Set disk(0) state prefail fail, ret(-1)."), 1u);
}

TEST_F(FeatureAdapterTest, ReportsSucceedThoughTheStateCannotBeSet)
{
    lib::Global<uint32_t>("g_nextUnusedDiskId") = 70;
    const uint32_t id = AddSata("SN-70");

    EXPECT_EQ(lib::DrmReportDiskPrefail(id), 0u);
    EXPECT_EQ(lib::DrmReportSlowDisk(id), 0u);

    EXPECT_EQ(State(id), 0u);
    EXPECT_EQ(Told("Find prefail disk(70)."), 1u);
    EXPECT_EQ(Told("Find slow disk(70)."), 1u);
}

TEST_F(FeatureAdapterTest, ALongSerialNumberIsFine)
{
    const std::string sn(39, 'S');
    const uint32_t id = AddSas(sn);
    SetWear(id, 3, 4);
    lib::DrmDiskHealthBrief brief{};

    EXPECT_EQ(lib::DrmGetHealthInfo(id, &brief), 0u);

    EXPECT_EQ(brief.powerOnHours, 3u);
    EXPECT_EQ(lib::DrmReportDiskPrefail(id), 0u);
    EXPECT_EQ(State(id), 3u);
}

} // namespace
