#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_smart_info.h"

#include <array>

#include "unit/data_collect/dcak_fixture.h"

namespace {

void *NoMemory(size_t)
{
    return nullptr;
}

/** Ends an ATA command with this SCSI status. */
std::function<void(sg_io_hdr_t &)> Status(uint8_t status)
{
    return [status](sg_io_hdr_t &hdr) { hdr.status = status; };
}

Bytes MinutesPage(uint32_t minutes)
{
    return {0x15,
            0,
            0,
            0x14,
            0,
            0,
            3,
            0x10,
            static_cast<uint8_t>(minutes >> 24),
            static_cast<uint8_t>(minutes >> 16),
            static_cast<uint8_t>(minutes >> 8),
            static_cast<uint8_t>(minutes)};
}

Bytes WearPage(uint8_t percent)
{
    return {0x11, 0, 0, 8, 0, 1, 3, 4, 0, 0, 0, percent};
}

/** A page with these bytes at these places. */
Bytes PageWith(std::initializer_list<std::pair<size_t, uint8_t>> bytes, size_t size = 256)
{
    Bytes page(size, 0);
    for (const auto &[at, value] : bytes) {
        page[at] = value;
    }
    return page;
}

} // namespace

class DcakGetScsiPowerOnTimeTest : public DcakTest {
protected:
    DcakGetScsiPowerOnTimeTest() { AddSasSsd("sda"); }
    uint32_t hours_ = 1;
};

TEST_F(DcakGetScsiPowerOnTimeTest, TurnsMinutesIntoHours)
{
    PlanCommand({kCdbPoh, 256, 96, MinutesPage(180059), nullptr, 0});

    EXPECT_EQ(DcakGetScsiPowerOnTime("/dev/sda", &hours_), 0u);

    EXPECT_EQ(hours_, 3000u);
}

TEST_F(DcakGetScsiPowerOnTimeTest, TakesAllFourBytes)
{
    PlanCommand({kCdbPoh, 256, 96, MinutesPage(0xFFFFFFFFu), nullptr, 0});

    EXPECT_EQ(DcakGetScsiPowerOnTime("/dev/sda", &hours_), 0u);

    EXPECT_EQ(hours_, 0xFFFFFFFFu / 60);
}

TEST_F(DcakGetScsiPowerOnTimeTest, FailedIoctlGives65535)
{
    PlanCommand({kCdbPoh, 256, 96, {}, nullptr, EIO});

    EXPECT_EQ(DcakGetScsiPowerOnTime("/dev/sda", &hours_), 0xFFFFFFFFu);

    EXPECT_EQ(hours_, 65535u);
    EXPECT_TRUE(Logged(3, "DCAK", "OpenDevExecIoctl failed: /dev/sda"));
}

TEST_F(DcakGetScsiPowerOnTimeTest, FailedCompletionGives65535)
{
    PlanCommand({kCdbPoh, 256, 96, {}, Outcome(7, 0), 0});

    EXPECT_EQ(DcakGetScsiPowerOnTime("/dev/sda", &hours_), 0xFFFFFFFFu);

    EXPECT_EQ(hours_, 65535u);
    EXPECT_EQ(Logs().size(), 1u) << "only the completion's own line";
}

class DcakGetAtaPowerTimeTest : public DcakTest {
protected:
    DcakGetAtaPowerTimeTest() { AddSataSsd("sda"); }
    uint32_t hours_ = 1;
};

TEST_F(DcakGetAtaPowerTimeTest, TakesTheFirstAttribute9LittleEndian)
{
    const size_t second = 2 + 12;
    const size_t last = 2 + 29 * 12;
    PlanCommand({kCdbSmartData, 512, 96,
                 PageWith({{second, 9},
                           {second + 5, 0x78},
                           {second + 6, 0x56},
                           {second + 7, 0x34},
                           {second + 8, 0x12},
                           {second + 9, 0xFF},
                           {last, 9},
                           {last + 5, 1}},
                          512),
                 Status(0x80), 0});

    EXPECT_EQ(DcakGetAtaPowerTime("/dev/sda", &hours_), 0u);

    EXPECT_EQ(hours_, 0x12345678u);
}

TEST_F(DcakGetAtaPowerTimeTest, LooksAtThe30thEntryAndNoFurther)
{
    PlanCommand({kCdbSmartData, 512, 96, PageWith({{2 + 29 * 12, 9}, {2 + 29 * 12 + 5, 7}}, 512), nullptr, 0});
    PlanCommand({kCdbSmartData, 512, 96, PageWith({{2 + 30 * 12, 9}, {2 + 30 * 12 + 5, 7}}, 512), nullptr, 0});

    EXPECT_EQ(DcakGetAtaPowerTime("/dev/sda", &hours_), 0u);
    EXPECT_EQ(hours_, 7u);
    EXPECT_EQ(DcakGetAtaPowerTime("/dev/sda", &hours_), 0u);
    EXPECT_EQ(hours_, 0u);
}

TEST_F(DcakGetAtaPowerTimeTest, FailuresGiveZero)
{
    PlanCommand({kCdbSmartData, 512, 96, {}, nullptr, EIO});
    PlanCommand({kCdbSmartData, 512, 96, {}, Status(2), 0});

    EXPECT_EQ(DcakGetAtaPowerTime("/dev/sda", &hours_), 0xFFFFFFFFu);
    EXPECT_EQ(DcakGetAtaPowerTime("/dev/sda", &hours_), 0xFFFFFFFFu);
    g_osCalls.malloc = NoMemory;
    EXPECT_EQ(DcakGetAtaPowerTime("/dev/sda", &hours_), 0xFFFFFFFFu);

    EXPECT_EQ(hours_, 0u);
    EXPECT_EQ(LogCount(3, "DCAK", "exec ioctl failed, /dev/sda"), 2u);
    EXPECT_TRUE(Logged(3, "DCAK", "Alloc page failed.\n"));
}

using DcakGetDiskPowerTimeTest = DcakTest;

TEST_F(DcakGetDiskPowerTimeTest, UnknownDiskHasNone)
{
    uint32_t hours = 1;

    EXPECT_EQ(DcakGetDiskPowerTime("none", "/dev/none", &hours), 0u);

    EXPECT_EQ(hours, 0u);
    EXPECT_TRUE(Logged(3, "DCAK", "disk type ERR TYPE, can not call power time"));
}

struct WearCase {
    Bytes page;
    uint32_t result;
    uint8_t wear;
};

class DcakCalWearTest : public DcakTest, public ::testing::WithParamInterface<WearCase> {};

TEST_P(DcakCalWearTest, FindsTheFirstParameterOne)
{
    Bytes page = GetParam().page;
    page.resize(256);
    uint8_t wear = 77;

    EXPECT_EQ(DcakCalWear(page.data(), &wear), GetParam().result);

    EXPECT_EQ(wear, GetParam().wear);
    EXPECT_EQ(Logged(3, "DCAK", " mediaParaCnt error"), GetParam().result == 255);
}

INSTANTIATE_TEST_SUITE_P(
    Pages, DcakCalWearTest,
    ::testing::Values(WearCase{WearPage(37), 0, 37}, WearCase{{0x11, 0, 0, 7, 0, 1, 3, 4, 0, 0, 0, 37}, 255, 77},
                      WearCase{{}, 255, 77}, WearCase{{0x11, 0, 0, 8, 1, 1, 3, 4, 0, 0, 0, 37}, 255, 77},
                      WearCase{{0x11, 0, 0, 16, 0, 2, 3, 4, 0, 0, 0, 1, 0, 1, 3, 4, 0, 0, 0, 5}, 0, 5},
                      WearCase{{0x11, 0, 0, 16, 0, 1, 3, 4, 0, 0, 0, 1, 0, 1, 3, 4, 0, 0, 0, 5}, 0, 1},
                      // The 31st parameter is the last that the buffer holds, whatever the length says.
                      WearCase{PageWith({{2, 0xFF}, {3, 0xFF}, {4 + 30 * 8 + 1, 1}, {4 + 30 * 8 + 7, 9}}), 0, 9},
                      WearCase{PageWith({{2, 0xFF}, {3, 0xFF}, {4 + 31 * 8 + 1, 1}}), 255, 77}));

using DcakGetExDiskPercentageTest = DcakTest;

TEST_F(DcakGetExDiskPercentageTest, OnlySasSsdsAreAsked)
{
    AddSasHdd("sda");
    AddVssd("sdb");
    PlanCommand({kCdbWear, 256, 96, WearPage(37), nullptr, 0});
    uint32_t wear = 1;

    EXPECT_EQ(DcakGetExDiskPercentage("sda", "/dev/sda", &wear), 0u);
    EXPECT_EQ(wear, 0u);
    EXPECT_EQ(DcakGetExDiskPercentage("sdb", "/dev/sdb", &wear), 0u);
    EXPECT_EQ(wear, 3700u);

    EXPECT_TRUE(Logged(7, "DCAK", "disk type HDD_SAS, can not call wear"));
}

TEST_F(DcakGetExDiskPercentageTest, FailuresGiveZero)
{
    AddSasSsd("sda");
    PlanCommand({kCdbWear, 256, 96, {}, nullptr, EIO});
    PlanCommand({kCdbWear, 256, 96, {}, Outcome(3, 0), 0});
    PlanCommand({kCdbWear, 256, 96, {}, nullptr, 0});
    uint32_t wear = 1;

    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(DcakGetSasExDiskPercentage("/dev/sda", &wear), 0xFFFFFFFFu);
        EXPECT_EQ(wear, 0u);
    }

    EXPECT_TRUE(Logged(3, "DCAK", "OpenDevExecIoctl failed: /dev/sda"));
    EXPECT_EQ(LogCount(3, "DCAK", "cal wear err, /dev/sda"), 1u);
}

struct IeCase {
    Bytes page;
    uint32_t length;
    bool listed;
    const char *text;
};

class IsIeLogInLogPageTest : public DcakTest, public ::testing::WithParamInterface<IeCase> {};

TEST_P(IsIeLogInLogPageTest, LooksForThePageInsideTheList)
{
    Bytes page = GetParam().page;

    EXPECT_EQ(IsIeLogInLogPage(page.data(), GetParam().length), GetParam().listed);

    EXPECT_EQ(Logs().size(), *GetParam().text != '\0' ? 1u : 0u);
    EXPECT_TRUE(*GetParam().text == '\0' || Logged(3, "DCAK", GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(Lists, IsIeLogInLogPageTest,
                         ::testing::Values(IeCase{{0, 0, 0, 3, 0, 0x0D, 0x2F}, 7, true, ""},
                                           IeCase{{0, 0, 0, 3, 0, 0x0D, 0xEF}, 7, true, ""},
                                           IeCase{{0, 0, 0, 2, 0, 0x0D, 0x2F}, 7, false, ""},
                                           IeCase{{0, 0, 0, 4, 0, 0x0D, 0x2F}, 7, false, "buf can not get full page"},
                                           IeCase{{0, 0, 0, 0}, 4, false, ""},
                                           IeCase{{0, 0, 0}, 3, false, "buf len less than DCAK_SUPP_LOG_PAGE_S"}));

class DcakGetDiskHealthInfoTest : public DcakTest {
protected:
    static std::string Health(const std::string &devices) { return Answer(DcakGetDiskHealthInfo, devices); }
};

TEST_F(DcakGetDiskHealthInfoTest, SasSsd)
{
    AddSasSsd("sda");
    PlanTool(SasCommand("sda"), "SN1\n");
    PlanCommand({kCdbPoh, 256, 96, MinutesPage(180000), nullptr, 0});
    PlanCommand({kCdbWear, 256, 96, WearPage(37), nullptr, 0});
    PlanLogPage(0x35, {0x35, 0, 0, 8, 0, 0, 3, 4, 0x5D, 0x10});

    EXPECT_EQ(Health(R"(["sda"])"),
              R"({"disks":[{"serial_number":"SN1","power_on_hours":3000,"wear":3700,"disk_type":"SSD_SAS",)"
              R"("vendor_id":"SEAGATE","ASC":93,"ASCQ":16}]})");

    EXPECT_TRUE(Logged(7, "DCAK", "DcakGetDiskHealthInfo ok, devListLen is 1"));
    EXPECT_THAT(Opened(), ::testing::Each(Root() + "/dev/sda"));
}

TEST_F(DcakGetDiskHealthInfoTest, ListedVendorSendsItsCapacitance)
{
    AddVssd("sda");
    SetSwitches(1, 0);
    PlanTool(SasCommand("sda"), "SN1\n");
    PlanCommand({kCdbPoh, 256, 96, MinutesPage(0), nullptr, 0});
    PlanCommand({kCdbWear, 256, 96, WearPage(0), nullptr, 0});
    PlanLogPage(0x2F, PageWith({{160, 242}, {171, 3}}));

    EXPECT_EQ(Health(R"(["sda"])"),
              R"({"disks":[{"serial_number":"SN1","power_on_hours":0,"wear":0,"disk_type":"SSD_SAS",)"
              R"("vendor_id":"VELMAR","capacitance_id":242,"capacitance_status":3}]})");

    EXPECT_TRUE(Logged(7, "DCAK", "/dev/sda, capid:242, capStatus:3"));
    EXPECT_TRUE(Logged(7, "DCAK", "sda disk type is 3, vendorType: VELMAR"));
}

TEST_F(DcakGetDiskHealthInfoTest, HddWithLogPage)
{
    AddSasHdd("sda");
    PlanTool(SasCommand("sda"), "SN1\n");
    PlanCommand({kCdbPoh, 256, 96, MinutesPage(60), nullptr, 0});
    PlanLogPage(0, {0, 0, 0, 3, 0, 0x0D, 0x2F});
    PlanLogPage(0x2F, {0x2F, 0, 0, 7, 0, 0, 3, 3, 0x5D, 0xFF, 38});

    EXPECT_EQ(Health(R"(["sda"])"),
              R"({"disks":[{"serial_number":"SN1","power_on_hours":1,"wear":0,"disk_type":"HDD_SAS",)"
              R"("vendor_id":"TOSHIBA","is_support_ie_log":true,"ASC":93,"ASCQ":255}]})");
}

struct SenseCase {
    Bytes sense;
    const char *codes;
};

class HddSenseTest : public DcakGetDiskHealthInfoTest, public ::testing::WithParamInterface<SenseCase> {};

TEST_P(HddSenseTest, WithoutLogPageTheSenseCodeIsRead)
{
    AddSataHdd("sda");
    PlanTool(AtaCommand("sda"), "SN1\n");
    PlanCommand({kCdbSmartData, 512, 96, {}, nullptr, 0});
    PlanLogPage(0, {0, 0, 0, 2, 0, 0x0D});
    PlanCommand({kCdbRequestSense, 256, 96, GetParam().sense, nullptr, 0});

    EXPECT_EQ(Health(R"(["sda"])"),
              std::string(R"({"disks":[{"serial_number":"SN1","power_on_hours":0,"wear":0,"disk_type":"HDD_SATA",)") +
                  R"("vendor_id":"ATA","is_support_ie_log":false,)" + GetParam().codes + "}]}");
}

INSTANTIATE_TEST_SUITE_P(
    Formats, HddSenseTest,
    ::testing::Values(SenseCase{{0x70, 0, 6, 4, 0, 0, 0, 10, 0, 0, 0, 0, 0x5D, 0x6D}, R"("ASC":93,"ASCQ":109)"},
                      SenseCase{{0xF1, 0, 6, 4, 0, 0, 0, 10, 0, 0, 0, 0, 0x5D, 0x6D}, R"("ASC":93,"ASCQ":109)"},
                      SenseCase{{0x72, 6, 0x5D, 0x10, 0, 0, 0, 10, 0, 0, 0, 0, 1, 2}, R"("ASC":93,"ASCQ":16)"},
                      SenseCase{{0x73, 6, 0x5D, 0x10}, R"("ASC":93,"ASCQ":16)"}, SenseCase{{}, R"("ASC":0,"ASCQ":0)"}));

TEST_F(DcakGetDiskHealthInfoTest, SataSsdHas30EntriesPairedByPosition)
{
    AddSataSsd("sda");
    SetSwitches(1, 0);
    PlanTool(AtaCommand("sda"), "SN1\n");
    PlanCommand({kCdbSmartData, 512, 96, PageWith({{2, 9}, {7, 42}}, 512), nullptr, 0});
    PlanCommand(
        {kCdbThresholds, 512, 96, PageWith({{2, 1}, {3, 6}, {2 + 29 * 12, 233}, {3 + 29 * 12, 10}}, 512), nullptr, 0});
    // Another id at the same place: the ids of the data page do not matter.
    PlanCommand({kCdbSmartData, 512, 96,
                 PageWith({{2, 5}, {5, 100}, {6, 99}, {5 + 29 * 12, 10}, {6 + 29 * 12, 9}}, 512), nullptr, 0});

    const std::string answer = Health(R"(["sda"])");

    std::string zeros;
    for (int i = 0; i < 28; i++) {
        zeros += R"({"id":0,"threshold":0,"current_value":0,"worst":0},)";
    }
    EXPECT_EQ(answer, R"({"disks":[{"serial_number":"SN1","power_on_hours":42,"wear":0,"disk_type":"SSD_SATA",)"
                      R"("vendor_id":"ATA","smart_list":[{"id":1,"threshold":6,"current_value":100,"worst":99},)" +
                          zeros + R"({"id":233,"threshold":10,"current_value":10,"worst":9}]}]})");
    EXPECT_EQ(LogCount(7, "DCAK", "/dev/sda smart list is below"), 1u);
    EXPECT_EQ(LogCount(7, "DCAK", "id:0, threshold:0, cur_val:0, worst:0"), 28u);
    EXPECT_EQ(LogCount(7, "DCAK", "id:233, threshold:10, cur_val:10, worst:9"), 1u);
}

TEST_F(DcakGetDiskHealthInfoTest, FailedTimeAndWearKeepTheirDefaults)
{
    AddSasSsd("sda");
    PlanTool(SasCommand("sda"), "SN1\n");
    PlanCommand({kCdbPoh, 256, 96, {}, nullptr, EIO});
    PlanCommand({kCdbWear, 256, 96, {}, nullptr, 0});
    PlanLogPage(0x35, {}, Outcome(0, 8));

    EXPECT_EQ(Health(R"(["sda"])"),
              R"({"disks":[{"serial_number":"SN1","power_on_hours":65535,"wear":0,"disk_type":"SSD_SAS",)"
              R"("vendor_id":"SEAGATE","ASC":0,"ASCQ":0}]})");
}

TEST_F(DcakGetDiskHealthInfoTest, FailedSerialRepeatsTheOneBefore)
{
    AddSasHdd("sda");
    AddSasHdd("sdb");
    PlanTool(SasCommand("sda"), "SN1\n");
    PlanTool(SasCommand("sdb"), "");
    for (int i = 0; i < 2; i++) {
        PlanCommand({kCdbPoh, 256, 96, {}, nullptr, 0});
        PlanLogPage(0, {}, Outcome(7, 0));
        PlanCommand({kCdbRequestSense, 256, 96, {}, nullptr, 0});
    }

    const CJsonPtr answer(cJSON_Parse(Health(R"(["sda","sdb"])").c_str()));

    const cJSON *disks = cJSON_GetObjectItem(answer.get(), "disks");
    ASSERT_EQ(cJSON_GetArraySize(disks), 2);
    EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(cJSON_GetArrayItem(disks, 1), "serial_number")), "SN1");
}

TEST_F(DcakGetDiskHealthInfoTest, UnsafeNameEmptiesTheAnswer)
{
    AddSataSsd("sda;reboot"); // could be read in all else, but nothing is planned, so no command may be sent

    EXPECT_EQ(Health(R"(["sda;reboot"])"), "null");
    EXPECT_TRUE(Logged(3, "DCAK", "cmd str is not secure, sda;reboot"));
    EXPECT_FALSE(Logged(3, "DCAK", "dev is NULL.")) << "the look-ups have begun";

    EXPECT_EQ(Health("[5]"), "null");
    EXPECT_EQ(Health(R"([""])"), "null");
}

TEST_F(DcakGetDiskHealthInfoTest, MissingListIsAnEmptyList)
{
    EXPECT_EQ(Health(R"("sda")"), R"({"disks":[]})");
    EXPECT_EQ(Health("[]"), R"({"disks":[]})");
}

TEST_F(DcakGetDiskHealthInfoTest, PathThatDoesNotFitEndsTheRequest)
{
    const std::string name(123, 'a');

    EXPECT_EQ(Health("[\"" + name + "\"]"), "null");

    EXPECT_TRUE(Logged(3, "DCAK", "get dev path failed, " + name));
}

TEST_F(DcakGetDiskHealthInfoTest, UnknownTypeEndsTheRequest)
{
    EXPECT_EQ(Health(R"(["none"])"), "null");

    EXPECT_TRUE(Logged(3, "DCAK", "none get smart error"));
    EXPECT_TRUE(Logged(3, "DCAK", "DackSetSmartInfoByDiskType err, none"));
}

TEST_F(DcakGetDiskHealthInfoTest, FailedDetailEndsTheRequestForAllDisks)
{
    AddSasHdd("sda");
    AddSasSsd("sdb");
    PlanTool(SasCommand("sda"), "SN1\n");
    PlanTool(SasCommand("sdb"), "SN2\n");
    PlanCommand({kCdbPoh, 256, 96, {}, nullptr, 0});
    PlanLogPage(0, {});
    PlanCommand({kCdbRequestSense, 256, 96, {}, nullptr, 0});
    PlanCommand({kCdbPoh, 256, 96, {}, nullptr, 0});
    PlanCommand({kCdbWear, 256, 96, {}, nullptr, 0});
    PlanLogPage(0x35, {}, Outcome(7, 0));

    EXPECT_EQ(Health(R"(["sda","sdb"])"), "null");

    EXPECT_TRUE(Logged(3, "DCAK", "DcakScsiIoComplete failed, /dev/sdb"));
    EXPECT_TRUE(Logged(3, "DCAK", "DcakGetSasSsdSenseData ERR, /dev/sdb"));
    EXPECT_TRUE(Logged(3, "DCAK", "sdb get smart error"));
}

class SetSmartInfoFailureTest : public DcakTest {
protected:
    SetSmartInfoFailureTest() { AddDisk("sda", "X", 1); }
    CJsonPtr object_{cJSON_CreateObject()};
};

TEST_F(SetSmartInfoFailureTest, VssdTellsInTheWordsOfOld)
{
    PlanCommand({CdbLogSense(0x2F), 256, 96, {}, nullptr, EIO});

    EXPECT_EQ(SetVssdSasSmartInfo("/dev/sda", object_.get()), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "exec ioctl failed, /dev/sda"));
    EXPECT_TRUE(Logged(3, "DCAK", "DcakGetHddSmartInfoCommon ERR /dev/sda"));
}

TEST_F(SetSmartInfoFailureTest, HddLogPage)
{
    PlanLogPage(0, {0, 0, 0, 1, 0x2F});
    PlanLogPage(0x2F, {}, Outcome(7, 0));

    EXPECT_EQ(SetHddSmartInfo("/dev/sda", object_.get()), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "DcakGetHddSmartInfoIeLog ERR, /dev/sda"));
}

TEST_F(SetSmartInfoFailureTest, HddRequestSense)
{
    PlanLogPage(0, {});
    PlanCommand({kCdbRequestSense, 256, 96, {}, Outcome(7, 0), 0});

    EXPECT_EQ(SetHddSmartInfo("/dev/sda", object_.get()), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "DcakGetHddSmartInfoCommon ERR, /dev/sda"));
}

TEST_F(SetSmartInfoFailureTest, SataThresholdsDataAndMemory)
{
    PlanCommand({kCdbThresholds, 512, 96, {}, Status(2), 0});
    EXPECT_EQ(SetSsdSataSmartInfo("/dev/sda", object_.get()), 0xFFFFFFFFu);

    PlanCommand({kCdbThresholds, 512, 96, {}, nullptr, 0});
    PlanCommand({kCdbSmartData, 512, 96, {}, nullptr, EPERM});
    EXPECT_EQ(SetSsdSataSmartInfo("/dev/sda", object_.get()), 0xFFFFFFFFu);

    g_osCalls.malloc = NoMemory;
    EXPECT_EQ(SetSsdSataSmartInfo("/dev/sda", object_.get()), 0xFFFFFFFFu);

    EXPECT_EQ(LogCount(3, "DCAK", "exec ioctl failed, /dev/sda"), 2u);
    EXPECT_EQ(LogCount(3, "DCAK", "DcakGetSataSmartPageAndData ERR, /dev/sda"), 3u);
    EXPECT_TRUE(Logged(3, "DCAK", "Alloc page failed.\n"));
}
