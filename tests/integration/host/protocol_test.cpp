#include "host_fixture.h"

#include <cstring>

namespace {

using CJson = std::unique_ptr<cJSON, void (*)(cJSON *)>;

CJson Json(const std::string &text)
{
    CJson json(cJSON_Parse(text.c_str()), cJSON_Delete);
    EXPECT_NE(json, nullptr) << text;
    return json;
}

std::string Health(const std::string &type, const std::string &vendor, const std::string &more,
                   const std::string &wear = "12345", const std::string &hours = "17270")
{
    return R"({"serial_number":"SN-H","power_on_hours":)" + hours + R"(,"wear":)" + wear + R"(,"disk_type":")" + type +
           R"(","vendor_id":")" + vendor + "\"" + (more.empty() ? "" : "," + more) + "}";
}

std::string SmartList(int entries)
{
    std::string list;
    for (int i = 0; i < entries; i++) {
        list += (i == 0 ? "" : ",") + std::string(R"({"id":)") + std::to_string(i + 1) + R"(,"threshold":)" +
                std::to_string(i + 50) + R"(,"current_value":)" + std::to_string(i + 100) + R"(,"worst":)" +
                std::to_string(i + 150) + "}";
    }
    return "\"SMART_list\":[" + list + "]";
}

class ProtocolTest : public HostTest {
protected:
    void SetUp() override { StartQuiet(); }
};

struct BaseCase {
    const char *name;
    FakeDisk disk;
    bool good;
};

void PrintTo(const BaseCase &one, std::ostream *out)
{
    *out << one.name;
}

class CopyDiskBaseInfoFromJSONTest : public ProtocolTest, public testing::WithParamInterface<BaseCase> {};

TEST_P(CopyDiskBaseInfoFromJSONTest, TakesWhatFitsAndNothingElse)
{
    const CJson json = Json(BaseJson(GetParam().disk));
    lib::DiskMgrObj record{};

    EXPECT_EQ(lib::CopyDiskBaseInfoFromJSON(json.get(), &record) == 0, GetParam().good);
}

const FakeDisk kSata{"SN-S", "sda", "SSD_SATA", "ATA", "VSSD-480"};

FakeDisk With(const std::function<void(FakeDisk &)> &change)
{
    FakeDisk disk = kSata;
    change(disk);
    return disk;
}

INSTANTIATE_TEST_SUITE_P(
    Members, CopyDiskBaseInfoFromJSONTest,
    testing::Values(
        BaseCase{"Plain", kSata, true}, BaseCase{"EmptySerial", With([](auto &d) { d.sn = ""; }), true},
        BaseCase{"SerialOf39", With([](auto &d) { d.sn = std::string(39, 's'); }), true},
        BaseCase{"SerialOf40", With([](auto &d) { d.sn = std::string(40, 's'); }), false},
        BaseCase{"VendorOf9", With([](auto &d) { d.vendor = "123456789"; }), true},
        BaseCase{"VendorOf10", With([](auto &d) { d.vendor = "1234567890"; }), false},
        BaseCase{"FirmwareOf9", With([](auto &d) { d.firmware = "123456789"; }), true},
        BaseCase{"FirmwareOf10", With([](auto &d) { d.firmware = "1234567890"; }), false},
        BaseCase{"ModelOf43", With([](auto &d) { d.model = std::string(43, 'm'); }), true},
        BaseCase{"ModelOf44", With([](auto &d) { d.model = std::string(44, 'm'); }), false},
        BaseCase{"DeviceOf19", With([](auto &d) { d.device = std::string(19, 'd'); }), true},
        BaseCase{"DeviceOf20", With([](auto &d) { d.device = std::string(20, 'd'); }), false},
        BaseCase{"CapacityOf0", With([](auto &d) { d.capacity = "0"; }), true},
        BaseCase{"CapacityEmpty", With([](auto &d) { d.capacity = ""; }), false},
        BaseCase{"CapacityWithLetter", With([](auto &d) { d.capacity = "48G0"; }), false},
        BaseCase{"CapacityNegative", With([](auto &d) { d.capacity = "-1"; }), false},
        BaseCase{"SectorText", With([](auto &d) { d.sector = "\"512\""; }), false},
        BaseCase{"TypeInAnyCase", With([](auto &d) { d.type = "ssd_SATA"; }), true},
        BaseCase{"TypeUnknown", With([](auto &d) { d.type = "ERR TYPE"; }), false},
        BaseCase{"MediaUnknown", With([](auto &d) { d.media = "XLC"; }), false},
        BaseCase{"NvmeWithoutAddress", With([](auto &d) { d.type = "SSD_NVMe"; }), false},
        BaseCase{"NvmeInTheAgentsSpelling", With([](auto &d) { d.type = "SSD_NVME", d.pci = "0000:81:00.0"; }), true},
        BaseCase{"NvmeAddressOf256", With([](auto &d) { d.type = "SSD_NVMe", d.pci = std::string(256, 'p'); }), false}),
    [](const auto &one) { return one.param.name; });

TEST_F(ProtocolTest, BaseRecordGetsItsFieldsAndDefaults)
{
    FakeDisk disk = With([](auto &d) { d.pci = "0000:81:00.0"; });
    disk.media = "magnet";
    const CJson json = Json(BaseJson(disk));
    lib::DiskMgrObj record{};
    std::memset(&record, 0x5A, sizeof(record));

    ASSERT_EQ(lib::CopyDiskBaseInfoFromJSON(json.get(), &record), 0u);

    EXPECT_EQ(record.diskId, kFail);
    EXPECT_EQ(record.diskState, 5u);
    EXPECT_EQ(record.frameId, kFail);
    EXPECT_EQ(record.slotId, kFail);
    EXPECT_EQ(record.diskCapacity, 480103981056u);
    EXPECT_EQ(record.sectorSize, 512u);
    EXPECT_STREQ(record.vendor, "ATA");
    EXPECT_STREQ(record.model, "VSSD-480");
    EXPECT_STREQ(record.firmware, "FW1");
    EXPECT_STREQ(record.sn, "SN-S");
    EXPECT_STREQ(record.deviceName, "sda");
    EXPECT_EQ(record.diskType, 2u);
    EXPECT_EQ(record.mediaType, 5u);
    // Only NVMe disks keep an address.
    EXPECT_EQ(std::string(record.pciAddr, sizeof(record.pciAddr)), std::string(256, '\0'));
}

TEST_F(ProtocolTest, SlotNumberIsTakenAndOtherSlotsAreNot)
{
    CJson json = Json(BaseJson(kSata));
    (void)cJSON_AddNumberToObject(json.get(), "slot_id", 7);
    lib::DiskMgrObj record{};
    ASSERT_EQ(lib::CopyDiskBaseInfoFromJSON(json.get(), &record), 0u);
    EXPECT_EQ(record.slotId, 7u);
    EXPECT_EQ(HostLogged(7, "[DCM]CopyDiskBaseInfoFromJSON saved slotId<7>"), 1u);

    json = Json(BaseJson(kSata));
    (void)cJSON_AddStringToObject(json.get(), "slot_id", "7");
    ASSERT_EQ(lib::CopyDiskBaseInfoFromJSON(json.get(), &record), 0u);
    EXPECT_EQ(record.slotId, kFail);
}

struct HealthCase {
    const char *name;
    std::string json;
    std::vector<uint8_t> detail; ///< empty: refused
};

void PrintTo(const HealthCase &one, std::ostream *out)
{
    *out << one.name;
}

class CopyDiskHealthInfoSnWrapFromJSONTest : public ProtocolTest, public testing::WithParamInterface<HealthCase> {};

TEST_P(CopyDiskHealthInfoSnWrapFromJSONTest, PicksTheFormOfTheClass)
{
    const HealthCase &one = GetParam();
    const CJson json = Json(one.json);
    lib::DiskHealthInfoSnWrap record{};

    const uint32_t result = lib::CopyDiskHealthInfoSnWrapFromJSON(json.get(), &record);

    EXPECT_EQ(lib::IsValidDiskHealthInfoJSON(json.get()), !one.detail.empty());
    if (one.detail.empty()) {
        EXPECT_EQ(result, 22u);
        return;
    }
    ASSERT_EQ(result, 0u);
    EXPECT_STREQ(record.serialNumber, "SN-H");
    EXPECT_EQ(record.health.powerOnHours, 17270u);
    EXPECT_EQ(record.health.wearInt, 123u);
    EXPECT_EQ(record.health.wearFrac, 45u);
    std::vector<uint8_t> expected = one.detail;
    expected.resize(120);
    EXPECT_EQ(std::vector<uint8_t>(record.health.detail, record.health.detail + 120), expected);
}

std::vector<uint8_t> SmartBytes()
{
    std::vector<uint8_t> bytes;
    for (int i = 0; i < 30; i++) {
        for (const int value : {i + 1, i + 50, i + 100, i + 150}) {
            bytes.push_back(static_cast<uint8_t>(value));
        }
    }
    return bytes;
}

INSTANTIATE_TEST_SUITE_P(
    Forms, CopyDiskHealthInfoSnWrapFromJSONTest,
    testing::Values(
        HealthCase{"Nvme", Health("SSD_NVMe", "VELMAR", R"("critical_warning":5)"), {5}},
        HealthCase{"NvmeWithoutWarning", Health("SSD_NVMe", "VELMAR", ""), {}},
        HealthCase{"Sata", Health("SSD_SATA", "ATA", SmartList(30)), SmartBytes()},
        HealthCase{"Sata29", Health("SSD_SATA", "ATA", SmartList(29)), {}},
        HealthCase{"Sata31", Health("SSD_SATA", "ATA", SmartList(31)), {}},
        HealthCase{"SataNoArray", Health("SSD_SATA", "ATA", R"("SMART_list":{})"), {}},
        HealthCase{"OwnSas", Health("SSD_SAS", "VELMAR", R"("capacitance_id":7,"capacitance_status":9)"), {7, 9}},
        HealthCase{
            "OwnSasInAnyCase", Health("SSD_SAS", "orstan", R"("capacitance_id":7,"capacitance_status":9)"), {7, 9}},
        HealthCase{
            "OwnSasByNumber", Health("SSD_SAS", "0X1F7C", R"("capacitance_id":7,"capacitance_status":9)"), {7, 9}},
        HealthCase{"OwnSasWithSenseOnly", Health("SSD_SAS", "ORSYL", R"("ASC":93,"ASCQ":16)"), {}},
        HealthCase{"OtherSas", Health("SSD_SAS", "OTHER", R"("ASC":93,"ASCQ":16)"), {93, 16, 1}},
        HealthCase{"OtherSasWithoutAscq", Health("SSD_SAS", "OTHER", R"("ASC":93)"), {}},
        HealthCase{"HddTrue", Health("HDD_SAS", "WD", R"("is_support_ie_log":true,"ASC":93,"ASCQ":16)"), {93, 16, 1}},
        HealthCase{"HddFalse", Health("HDD_SAS", "WD", R"("is_support_ie_log":false,"ASC":93,"ASCQ":16)"), {93, 16, 0}},
        HealthCase{"HddNoBoolean", Health("HDD_SAS", "WD", R"("is_support_ie_log":1,"ASC":93,"ASCQ":16)"), {}},
        HealthCase{"HddWithoutAscq", Health("HDD_SAS", "WD", R"("is_support_ie_log":false,"ASC":93)"), {}},
        HealthCase{"NlSas", Health("HDD_NL_SAS", "WD", R"("is_support_ie_log":true,"ASC":1,"ASCQ":2)"), {1, 2, 1}},
        HealthCase{"SataHdd", Health("HDD_SATA", "WD", R"("is_support_ie_log":true,"ASC":1,"ASCQ":2)"), {}}),
    [](const auto &one) { return one.param.name; });

TEST_F(ProtocolTest, HealthRefusalsAreLogged)
{
    lib::DiskHealthInfoSnWrap record{};

    EXPECT_EQ(lib::CopyDiskHealthInfoSnWrapFromJSON(Json(Health("HDD_SATA", "WD", "")).get(), &record), 22u);
    EXPECT_GE(HostLogged("[DCM]Unprocessed (diskType,vendor) exist(HDD_SATA,WD)."), 1u);
    EXPECT_EQ(lib::CopyDiskHealthInfoSnWrapFromJSON(Json(Health("SSD_SATA", "ATA", SmartList(29))).get(), &record),
              22u);
    EXPECT_GE(HostLogged("[DCM]sataSsdSmartAttrList length not equal 30."), 1u);
    EXPECT_EQ(
        lib::CopyDiskHealthInfoSnWrapFromJSON(Json(Health("SSD_SATA", "ATA", R"("SMART_list":3)")).get(), &record),
        22u);
    EXPECT_GE(HostLogged("[DCM]sataSsdSmartAttrList is not JSON Array."), 1u);
    EXPECT_EQ(lib::ParseDiskVendor(Json("5").get()), 2u);
    EXPECT_EQ(HostLogged("[DCM]Cannot parse NotStringJson to DiskVendor Enum"), 1u);
}

TEST_F(ProtocolTest, WearAndHoursAreCutToTheirWidths)
{
    lib::DiskHealthInfoSnWrap record{};

    ASSERT_EQ(lib::CopyDiskHealthInfoSnWrapFromJSON(
                  Json(Health("SSD_NVMe", "V", R"("critical_warning":257)", "65636", "4294967297")).get(), &record),
              0u);

    EXPECT_EQ(record.health.wearInt, 1u); // 65636 modulo 65536 is 100
    EXPECT_EQ(record.health.wearFrac, 0u);
    EXPECT_EQ(record.health.powerOnHours, 1u);
    EXPECT_EQ(record.health.detail[0], 1u);
}

std::string ManyDisks(int count)
{
    std::string list;
    for (int i = 0; i < count; i++) {
        list += (i == 0 ? "" : ",") + std::string("{}");
    }
    return "{\"disks\":[" + list + "]}";
}

TEST_F(ProtocolTest, BriefResultHoldsAtMost64)
{
    EXPECT_TRUE(lib::IsValidDiskBriefInfoResultJson(Json(ManyDisks(64)).get()));
    EXPECT_FALSE(lib::IsValidDiskBriefInfoResultJson(Json(ManyDisks(65)).get()));
    EXPECT_EQ(HostLogged("[DCM]DiskList has too many items(target:65)(max:64)."), 1u);
    EXPECT_FALSE(lib::IsValidDiskBriefInfoResultJson(Json(R"({"disks":{}})").get()));
    EXPECT_FALSE(lib::IsValidDiskBriefInfoResultJson(nullptr));
}

TEST_F(ProtocolTest, BaseResultHoldsAtMostWhatWasAsked)
{
    EXPECT_TRUE(lib::IsValidDiskBaseInfoResultJson(Json(ManyDisks(3)).get(), 3));
    EXPECT_FALSE(lib::IsValidDiskBaseInfoResultJson(Json(ManyDisks(4)).get(), 3));
    EXPECT_TRUE(lib::IsValidDiskBaseInfoResultJson(Json(ManyDisks(0)).get(), 3));
}

TEST_F(ProtocolTest, HeaderNeedsVersionNumberAndResult)
{
    const std::vector<std::pair<const char *, bool>> cases = {
        {R"({"jsonrpc":"2.0","id":9,"result":{}})", true},
        {R"({"jsonrpc":"2.1","id":9,"result":{}})", false},
        {R"({"jsonrpc":2.0,"id":9,"result":{}})", false},
        {R"({"jsonrpc":"2.0","id":"9","result":{}})", false},
        {R"({"jsonrpc":"2.0","id":9})", false},
        {R"({"jsonrpc":"2.0","id":9,"result":null})", true},
        {R"({"jsonrpc":"2.0","result":{}})", false},
        {"[]", false},
    };
    for (const auto &[text, good] : cases) {
        EXPECT_EQ(lib::IsValidJsonResponseHeader(Json(text).get()), good) << text;
    }
}

TEST_F(ProtocolTest, FailedMemberIsNamedInTheDebugLog)
{
    lib::DiskBriefInfo record{};

    EXPECT_EQ(lib::CopyDiskBriefInfoFromJSON(Json(R"({"device_name":"sda"})").get(), &record), 22u);

    EXPECT_EQ(HostLogged(7, "[DCM]CheckList validate serial_number failed."), 1u);
    EXPECT_EQ(lib::CopyDiskBriefInfoFromJSON(Json(R"({"device_name":"sda","serial_number":""})").get(), &record), 0u);
    EXPECT_STREQ(record.serialNumber, "");
    EXPECT_STREQ(record.deviceName, "sda");
}

} // namespace
