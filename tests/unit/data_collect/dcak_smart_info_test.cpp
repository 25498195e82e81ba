#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_smart_info.h"

#include <array>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_scsi_health.h"
#include "unit/data_collect/dcak_fixture.h"

using DcakGetDiskPowerTimeTest = DcakTest;

TEST_F(DcakGetDiskPowerTimeTest, UnknownDiskHasNone)
{
    uint32_t hours = 1;

    EXPECT_EQ(DcakGetDiskPowerTime("none", "/dev/none", &hours), 0u);

    EXPECT_EQ(hours, 0u);
    EXPECT_TRUE(Logged(3, "DCAK", "disk type ERR TYPE, can not call power time"));
}

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
