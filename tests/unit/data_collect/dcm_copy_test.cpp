#include "data_collect/data_collect_master/DCM_copy/dcm_copy.h"

#include <array>
#include <cmath>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "support/corvane_fixture.h"
#include "unit/data_collect/dcm_objects.h"

namespace {

using namespace dcm_objects;
using ::testing::Values;

using CopyFunc = uint32_t (*)(cJSON *item, void *out);

/** Room for any of the records. */
union AnyRecord {
    DiskBriefInfo brief;
    DiskMgrObj base;
    DiskHealthInfoSnWrap health;
    DiskIoInfoFrameSnWrap frame;
};

/** Garbage in every byte: what a copy does not set stays visible. */
template <typename T>
T Dirty()
{
    T record;
    std::memset(&record, 0xA5, sizeof(record));
    return record;
}

/** The check list of one kind of object, in its order, with a value of the wrong type for each member. */
struct CheckedMember {
    const char *name;
    const char *wrong;
};

struct ObjectKind {
    const char *name;
    CopyFunc copy;
    std::string good;
    std::vector<CheckedMember> members;
};

void PrintTo(const ObjectKind &kind, std::ostream *os)
{
    *os << kind.name;
}

class ObjectCheckTest : public CorvaneTest, public ::testing::WithParamInterface<ObjectKind> {
protected:
    static uint32_t Copy(cJSON *item)
    {
        AnyRecord record = {};
        return GetParam().copy(item, &record);
    }
    static bool OnlyLogged(const std::string &member)
    {
        return Logs().size() == 1 && Logged(CORVANE_LOG_DEBUG, "DCM", "CheckList validate " + member + " failed.");
    }
};

TEST_P(ObjectCheckTest, CopiesAGoodObject)
{
    EXPECT_EQ(Copy(Parse(GetParam().good).get()), 0u);
    EXPECT_TRUE(Logs().empty());
}

TEST_P(ObjectCheckTest, RefusesAMissingMember)
{
    for (const CheckedMember &member : GetParam().members) {
        ClearLogs();

        EXPECT_EQ(Copy(With(GetParam().good, member.name, nullptr).get()), 22u) << member.name;

        EXPECT_TRUE(OnlyLogged(member.name)) << member.name;
    }
}

TEST_P(ObjectCheckTest, RefusesAWrongType)
{
    for (const CheckedMember &member : GetParam().members) {
        for (const char *wrong : {member.wrong, "null", "[]", "{}", "true"}) {
            ClearLogs();

            EXPECT_EQ(Copy(With(GetParam().good, member.name, wrong).get()), 22u) << member.name << ' ' << wrong;

            EXPECT_TRUE(OnlyLogged(member.name)) << member.name;
        }
    }
}

TEST_P(ObjectCheckTest, ChecksTheMembersInTheirOrder)
{
    // given an object of which the members before row i are good and all others are missing
    for (size_t i = 0; i < GetParam().members.size(); i++) {
        const CJsonPtr item = Parse(GetParam().good);
        for (size_t missing = i; missing < GetParam().members.size(); missing++) {
            Set(item.get(), GetParam().members[missing].name, nullptr);
        }
        ClearLogs();

        EXPECT_EQ(Copy(item.get()), 22u);

        EXPECT_TRUE(OnlyLogged(GetParam().members[i].name)) << i;
    }
}

TEST_P(ObjectCheckTest, LooksMembersUpWithoutRegardToCase)
{
    const CJsonPtr item = Parse(GetParam().good);
    for (cJSON *member = item->child; member != nullptr; member = member->next) {
        for (char *c = member->string; *c != '\0'; c++) {
            *c = static_cast<char>(*c >= 'a' && *c <= 'z' ? *c - 'a' + 'A' : *c);
        }
    }

    EXPECT_EQ(Copy(item.get()), 0u);
}

TEST_P(ObjectCheckTest, RefusesNullAndWhatIsNoObject)
{
    AnyRecord record = {};

    EXPECT_EQ(GetParam().copy(nullptr, &record), 22u);
    EXPECT_EQ(GetParam().copy(Parse(GetParam().good).get(), nullptr), 22u);
    for (const char *json : {"7", "null", "[]", R"("x")", "[1,2,3]"}) {
        EXPECT_EQ(Copy(Parse(json).get()), 22u) << json;
    }
}

const std::vector<CheckedMember> kHealthMembers = {{"serial_number", "1"},
                                                   {"power_on_hours", R"("8760")"},
                                                   {"wear", R"("1")"},
                                                   {"disk_type", R"("ERR TYPE")"},
                                                   {"vendor_id", "1"}};

INSTANTIATE_TEST_SUITE_P(
    Kinds, ObjectCheckTest,
    Values(ObjectKind{"brief", CopyDiskBriefInfoFromJSON, kBrief, {{"device_name", "1"}, {"serial_number", "1"}}},
           ObjectKind{"base",
                      CopyDiskBaseInfoFromJSON,
                      kBase,
                      {{"device_name", "1"},
                       {"serial_number", "1"},
                       {"vendor_id", "1"},
                       {"disk_type", R"("SSD")"},
                       {"disk_media_type", R"("XLC")"},
                       {"model_number", "1"},
                       {"firmware_revision", "1"},
                       {"disk_capacity", "960197124096"},
                       {"sector_size", R"("512")"}}},
           ObjectKind{"nvme health", CopyDiskHealthInfoSnWrapFromJSON, NvmeHealth(), kHealthMembers},
           ObjectKind{"sata ssd health", CopyDiskHealthInfoSnWrapFromJSON, SataSsdHealth(), kHealthMembers},
           ObjectKind{"sas vssd health", CopyDiskHealthInfoSnWrapFromJSON, SasVssdHealth(), kHealthMembers},
           ObjectKind{"sas ssd health", CopyDiskHealthInfoSnWrapFromJSON, SasSsdHealth(), kHealthMembers},
           ObjectKind{"sas hdd health", CopyDiskHealthInfoSnWrapFromJSON, SasHddHealth(), kHealthMembers},
           ObjectKind{"frame",
                      CopyDiskIoInfoFrameSnWrapFromJSON,
                      kFrame,
                      {{"serial_number", "1"},
                       {"queue_depth", R"("32")"},
                       {"io_busy_num", R"("3")"},
                       {"io_time", "101"},
                       {"bytes_read", "102"},
                       {"bytes_written", R"("1.5")"},
                       {"num_read_ops", R"("")"},
                       {"num_write_ops", R"("-1")"},
                       {"read_latency_ticks", R"("1e3")"},
                       {"write_latency_ticks", R"("1 ")"}}}));

/** A text and the field it has to fit with its terminator. */
struct TextField {
    const char *name;
    CopyFunc copy;
    std::string good;
    const char *member;
    size_t size;
    size_t offset;
};

void PrintTo(const TextField &field, std::ostream *os)
{
    *os << field.name << '.' << field.member;
}

class TextFieldTest : public CorvaneTest, public ::testing::WithParamInterface<TextField> {};

TEST_P(TextFieldTest, TakesOneCharacterLessThanTheField)
{
    const TextField &f = GetParam();
    AnyRecord record = {};

    EXPECT_EQ(f.copy(With(f.good, f.member, TextOf(f.size - 1).c_str()).get(), &record), 0u);

    const char *stored = reinterpret_cast<const char *>(&record) + f.offset;
    EXPECT_EQ(std::string(stored), std::string(f.size - 1, 'x'));
}

TEST_P(TextFieldTest, RefusesATextThatFillsTheField)
{
    const TextField &f = GetParam();
    AnyRecord record = {};

    EXPECT_EQ(f.copy(With(f.good, f.member, TextOf(f.size).c_str()).get(), &record), 34u);
    EXPECT_EQ(f.copy(With(f.good, f.member, TextOf(4000).c_str()).get(), &record), 34u);
}

TEST_P(TextFieldTest, TakesTheEmptyText)
{
    const TextField &f = GetParam();
    auto record = Dirty<AnyRecord>();

    EXPECT_EQ(f.copy(With(f.good, f.member, R"("")").get(), &record), 0u);

    EXPECT_EQ(*(reinterpret_cast<const char *>(&record) + f.offset), '\0');
}

INSTANTIATE_TEST_SUITE_P(
    Fields, TextFieldTest,
    Values(TextField{"brief", CopyDiskBriefInfoFromJSON, kBrief, "serial_number", 40,
                     offsetof(DiskBriefInfo, serialNumber)},
           TextField{"brief", CopyDiskBriefInfoFromJSON, kBrief, "device_name", 20,
                     offsetof(DiskBriefInfo, deviceName)},
           TextField{"base", CopyDiskBaseInfoFromJSON, kBase, "serial_number", 40, offsetof(DiskMgrObj, sn)},
           TextField{"base", CopyDiskBaseInfoFromJSON, kBase, "device_name", 20, offsetof(DiskMgrObj, deviceName)},
           TextField{"base", CopyDiskBaseInfoFromJSON, kBase, "vendor_id", 10, offsetof(DiskMgrObj, vendor)},
           TextField{"base", CopyDiskBaseInfoFromJSON, kBase, "model_number", 44, offsetof(DiskMgrObj, model)},
           TextField{"base", CopyDiskBaseInfoFromJSON, kBase, "firmware_revision", 10, offsetof(DiskMgrObj, firmware)},
           TextField{"base", CopyDiskBaseInfoFromJSON, kNvmeBase, "pci_address", 256, offsetof(DiskMgrObj, pciAddr)},
           TextField{"health", CopyDiskHealthInfoSnWrapFromJSON, NvmeHealth(), "serial_number", 40,
                     offsetof(DiskHealthInfoSnWrap, serialNumber)},
           TextField{"frame", CopyDiskIoInfoFrameSnWrapFromJSON, kFrame, "serial_number", 40,
                     offsetof(DiskIoInfoFrameSnWrap, serialNumber)}));

using CopyDiskBriefInfoFromJSONTest = CorvaneTest;

TEST_F(CopyDiskBriefInfoFromJSONTest, StoresBothTexts)
{
    auto brief = Dirty<DiskBriefInfo>();

    ASSERT_EQ(CopyDiskBriefInfoFromJSON(Parse(kBrief).get(), &brief), 0u);

    EXPECT_STREQ(brief.serialNumber, "SN-1");
    EXPECT_STREQ(brief.deviceName, "sda");
}

using CopyDiskBaseInfoFromJSONTest = CorvaneTest;

TEST_F(CopyDiskBaseInfoFromJSONTest, StoresEveryMember)
{
    auto disk = Dirty<DiskMgrObj>();

    ASSERT_EQ(CopyDiskBaseInfoFromJSON(Parse(kBase).get(), &disk), 0u);

    EXPECT_STREQ(disk.sn, "SN-1");
    EXPECT_STREQ(disk.deviceName, "sda");
    EXPECT_STREQ(disk.vendor, "VELMAR");
    EXPECT_STREQ(disk.model, "MODEL 1");
    EXPECT_STREQ(disk.firmware, "FW1");
    EXPECT_EQ(disk.diskType, static_cast<uint32_t>(DISK_TYPE_SSD_SATA));
    EXPECT_EQ(disk.mediaType, static_cast<uint32_t>(DISK_MEDIA_TYPE_TLC));
    EXPECT_EQ(disk.diskCapacity, 960197124096u);
    EXPECT_EQ(disk.sectorSize, 512u);
}

TEST_F(CopyDiskBaseInfoFromJSONTest, LeavesIdentityAndStateToTheRegistry)
{
    auto disk = Dirty<DiskMgrObj>();

    ASSERT_EQ(CopyDiskBaseInfoFromJSON(Parse(kBase).get(), &disk), 0u);

    EXPECT_EQ(disk.diskId, 0xFFFFFFFFu);
    EXPECT_EQ(disk.diskState, 5u);
    EXPECT_EQ(disk.frameId, 0xFFFFFFFFu);
    EXPECT_EQ(disk.slotId, 0xFFFFFFFFu);
}

TEST_F(CopyDiskBaseInfoFromJSONTest, KeepsThePciAddressOfUserSpaceNvme)
{
    auto disk = Dirty<DiskMgrObj>();

    ASSERT_EQ(CopyDiskBaseInfoFromJSON(Parse(kNvmeBase).get(), &disk), 0u);

    EXPECT_STREQ(disk.pciAddr, "0000:3b:00.0");
    EXPECT_EQ(disk.diskType, static_cast<uint32_t>(DISK_TYPE_SSD_NVME));
}

TEST_F(CopyDiskBaseInfoFromJSONTest, ClearsThePciAddressOfOtherDisks)
{
    auto disk = Dirty<DiskMgrObj>();

    ASSERT_EQ(CopyDiskBaseInfoFromJSON(With(kBase, "pci_address", R"("0000:3b:00.0")").get(), &disk), 0u);

    EXPECT_THAT(disk.pciAddr, ::testing::Each('\0'));
}

TEST_F(CopyDiskBaseInfoFromJSONTest, StoresEveryTypeAndMedium)
{
    const char *const types[] = {R"("SSD_NVMe")", R"("SSD_SAS")",  R"("SSD_SATA")",
                                 R"("HDD_SAS")",  R"("hdd_sata")", R"("HDD_NL_SAS")"};
    const char *const media[] = {R"("SLC")", R"("mlc")", R"("TLC")", R"("QLC")", R"("PLC")", R"("MAGNET")"};

    for (uint32_t i = 0; i < 6; i++) {
        const CJsonPtr item = With(kNvmeBase, "disk_type", types[i]);
        Set(item.get(), "disk_media_type", media[i]);
        DiskMgrObj disk = {};

        ASSERT_EQ(CopyDiskBaseInfoFromJSON(item.get(), &disk), 0u);

        EXPECT_EQ(disk.diskType, i);
        EXPECT_EQ(disk.mediaType, i);
    }
}

TEST_F(CopyDiskBaseInfoFromJSONTest, StoresACapacityOfZero)
{
    auto disk = Dirty<DiskMgrObj>();

    ASSERT_EQ(CopyDiskBaseInfoFromJSON(With(kBase, "disk_capacity", R"("0")").get(), &disk), 0u);

    EXPECT_EQ(disk.diskCapacity, 0u);
}

TEST_F(CopyDiskBaseInfoFromJSONTest, RefusesACapacityThatIsNoDecimalNumber)
{
    DiskMgrObj disk = {};

    EXPECT_EQ(CopyDiskBaseInfoFromJSON(With(kBase, "disk_capacity", R"("")").get(), &disk), 22u);
    EXPECT_EQ(CopyDiskBaseInfoFromJSON(With(kBase, "disk_capacity", R"("96019a")").get(), &disk), 22u);
}

TEST_F(CopyDiskBaseInfoFromJSONTest, TakesTheLowBitsOfTheSectorSize)
{
    DiskMgrObj disk = {};

    ASSERT_EQ(CopyDiskBaseInfoFromJSON(With(kBase, "sector_size", "4294967295").get(), &disk), 0u);
    EXPECT_EQ(disk.sectorSize, 4294967295u);
    ASSERT_EQ(CopyDiskBaseInfoFromJSON(With(kBase, "sector_size", "-1").get(), &disk), 0u);
    EXPECT_EQ(disk.sectorSize, 0xFFFFFFFFu);
    ASSERT_EQ(CopyDiskBaseInfoFromJSON(With(kBase, "sector_size", "4294967808").get(), &disk), 0u);
    EXPECT_EQ(disk.sectorSize, 512u);
    ASSERT_EQ(CopyDiskBaseInfoFromJSON(With(kBase, "sector_size", "1e30").get(), &disk), 0u);
    EXPECT_EQ(disk.sectorSize, 0u);
}

TEST_F(CopyDiskBaseInfoFromJSONTest, TakesASlotThatIsANumber)
{
    DiskMgrObj disk = {};

    ASSERT_EQ(CopyDiskBaseInfoFromJSON(With(kBase, "slot_id", "7").get(), &disk), 0u);

    EXPECT_EQ(disk.slotId, 7u);
    EXPECT_TRUE(Logged(CORVANE_LOG_DEBUG, "DCM", "CopyDiskBaseInfoFromJSON saved slotId<7>"));
}

TEST_F(CopyDiskBaseInfoFromJSONTest, IgnoresASlotThatIsNoNumber)
{
    for (const char *slot : {R"("7")", "null", "true", "{}"}) {
        DiskMgrObj disk = {};

        ASSERT_EQ(CopyDiskBaseInfoFromJSON(With(kBase, "slot_id", slot).get(), &disk), 0u);

        EXPECT_EQ(disk.slotId, 0xFFFFFFFFu) << slot;
    }
    EXPECT_TRUE(Logs().empty());
}

using CopyDiskHealthInfoSnWrapFromJSONTest = CorvaneTest;

TEST_F(CopyDiskHealthInfoSnWrapFromJSONTest, StoresTheCommonMembers)
{
    auto health = Dirty<DiskHealthInfoSnWrap>();

    ASSERT_EQ(CopyDiskHealthInfoSnWrapFromJSON(Parse(NvmeHealth()).get(), &health), 0u);

    EXPECT_STREQ(health.serialNumber, "SN-1");
    EXPECT_EQ(health.info.powerOnHours, 8760u);
    EXPECT_EQ(health.info.wearInt, 123u);
    EXPECT_EQ(health.info.wearFrac, 45u);
}

struct WearCase {
    const char *wear;
    uint32_t whole;
    uint32_t fraction;
};

TEST_F(CopyDiskHealthInfoSnWrapFromJSONTest, CutsTheWearTo16Bits)
{
    const WearCase cases[] = {{"0", 0, 0},        {"1", 0, 1},          {"99", 0, 99},      {"100", 1, 0},
                              {"12345", 123, 45}, {"12345.9", 123, 45}, {"65535", 655, 35}, {"65536", 0, 0},
                              {"65636", 1, 0},    {"-1", 655, 35},      {"1e30", 0, 0},     {"1e999", 0, 0}};

    for (const WearCase &c : cases) {
        DiskHealthInfoSnWrap health = {};

        ASSERT_EQ(CopyDiskHealthInfoSnWrapFromJSON(With(NvmeHealth(), "wear", c.wear).get(), &health), 0u);

        EXPECT_EQ(health.info.wearInt, c.whole) << c.wear;
        EXPECT_EQ(health.info.wearFrac, c.fraction) << c.wear;
    }
}

TEST_F(CopyDiskHealthInfoSnWrapFromJSONTest, CutsTheHoursTo32Bits)
{
    const std::pair<const char *, uint64_t> cases[] = {
        {"0", 0},          {"3000000000", 3000000000u}, {"4294967295", 4294967295u},
        {"4294967296", 0}, {"4294967297", 1},           {"-1", 4294967295u},
        {"1e25", 0}};

    for (const auto &[hours, expected] : cases) {
        DiskHealthInfoSnWrap health = {};

        ASSERT_EQ(CopyDiskHealthInfoSnWrapFromJSON(With(NvmeHealth(), "power_on_hours", hours).get(), &health), 0u);

        EXPECT_EQ(health.info.powerOnHours, expected) << hours;
    }
}

TEST_F(CopyDiskHealthInfoSnWrapFromJSONTest, ReadsANumberThatIsNotANumberAsZero)
{
    const CJsonPtr item = Parse(NvmeHealth());
    cJSON_SetNumberHelper(cJSON_GetObjectItem(item.get(), "wear"), std::nan(""));
    cJSON_SetNumberHelper(cJSON_GetObjectItem(item.get(), "power_on_hours"), std::nan(""));
    cJSON_SetNumberHelper(cJSON_GetObjectItem(item.get(), "critical_warning"), std::nan(""));
    auto health = Dirty<DiskHealthInfoSnWrap>();

    ASSERT_EQ(CopyDiskHealthInfoSnWrapFromJSON(item.get(), &health), 0u);

    EXPECT_EQ(health.info.powerOnHours, 0u);
    EXPECT_EQ(health.info.wearInt, 0u);
    EXPECT_EQ(health.info.wearFrac, 0u);
    EXPECT_EQ(health.info.detail.nvme.criticalWarning, 0u);
}

/** One form of the detail: what it stores, as the first bytes of the union; the rest has to be zero. */
struct DetailCase {
    const char *name;
    std::string object;
    std::vector<uint8_t> expected;
};

void PrintTo(const DetailCase &c, std::ostream *os)
{
    *os << c.name;
}

std::vector<uint8_t> SmartBytes()
{
    std::vector<uint8_t> bytes;
    for (int i = 0; i < 30; i++) {
        for (const int value : {1 + i, 2 * i, 100 - i, 90 - i}) {
            bytes.push_back(static_cast<uint8_t>(value));
        }
    }
    return bytes;
}

std::string Replace(std::string text, const std::string &from, const std::string &to)
{
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

class HealthDetailTest : public CorvaneTest, public ::testing::WithParamInterface<DetailCase> {};

TEST_P(HealthDetailTest, StoresItsFormAndZerosBehindIt)
{
    auto health = Dirty<DiskHealthInfoSnWrap>();
    std::array<uint8_t, sizeof(DiskHealthDetail)> expected = {};
    std::copy(GetParam().expected.begin(), GetParam().expected.end(), expected.begin());

    ASSERT_EQ(CopyDiskHealthInfoSnWrapFromJSON(Parse(GetParam().object).get(), &health), 0u);

    EXPECT_EQ(std::memcmp(health.info.detail.raw, expected.data(), expected.size()), 0);
}

INSTANTIATE_TEST_SUITE_P(Forms, HealthDetailTest,
                         Values(DetailCase{"nvme", NvmeHealth(), {5}},
                                DetailCase{"nvme in capitals", Replace(NvmeHealth(), "SSD_NVMe", "SSD_NVME"), {5}},
                                DetailCase{"nvme of a listed vendor", Replace(NvmeHealth(), "ANY", "VELMAR"), {5}},
                                DetailCase{"nvme low byte", Replace(NvmeHealth(), ":5}", ":261}"), {5}},
                                DetailCase{"nvme negative", Replace(NvmeHealth(), ":5}", ":-1}"), {0xFF}},
                                DetailCase{"nvme huge", Replace(NvmeHealth(), ":5}", ":1e20}"), {0}},
                                DetailCase{"sata ssd", SataSsdHealth(), SmartBytes()},
                                DetailCase{"sata ssd of the kernel agent",
                                           Replace(SataSsdHealth(), "SMART_list", "smart_list"), SmartBytes()},
                                DetailCase{"sas ssd of a listed vendor", SasVssdHealth(), {7, 9}},
                                DetailCase{"sas ssd of a listed vendor by number", SasVssdHealth("0x1F7C"), {7, 9}},
                                DetailCase{"other sas ssd", SasSsdHealth(), {93, 16, 1}},
                                DetailCase{"other sas ssd that denies the log",
                                           Replace(SasSsdHealth(), R"("ASC")", R"("is_support_ie_log":false,"ASC")"),
                                           {93, 16, 1}},
                                DetailCase{"sas hdd", SasHddHealth(), {93, 16, 1}},
                                DetailCase{"sas hdd without the log", SasHddHealth("HDD_SAS", "false"), {93, 16, 0}},
                                DetailCase{"nl sas hdd", SasHddHealth("HDD_NL_SAS"), {93, 16, 1}},
                                DetailCase{
                                    "nl sas hdd without the log", SasHddHealth("hdd_nl_sas", "false"), {93, 16, 0}},
                                DetailCase{"sas hdd low bytes",
                                           Replace(SasHddHealth(), R"("ASC":93,"ASCQ":16)", R"("ASC":349,"ASCQ":-240)"),
                                           {93, 16, 1}}));

TEST_F(CopyDiskHealthInfoSnWrapFromJSONTest, RefusesSataHardDisks)
{
    DiskHealthInfoSnWrap health = {};

    EXPECT_EQ(CopyDiskHealthInfoSnWrapFromJSON(Parse(SasHddHealth("HDD_SATA")).get(), &health), 22u);

    EXPECT_TRUE(Logged(CORVANE_LOG_ERROR, "DCM", "Unprocessed (diskType,vendor) exist(HDD_SATA,ANY)."));
}

TEST_F(CopyDiskHealthInfoSnWrapFromJSONTest, RefusesASmartListOfAnotherLength)
{
    DiskHealthInfoSnWrap health = {};

    EXPECT_EQ(CopyDiskHealthInfoSnWrapFromJSON(Parse(SataSsdHealth(29)).get(), &health), 22u);
    EXPECT_EQ(CopyDiskHealthInfoSnWrapFromJSON(Parse(SataSsdHealth(31)).get(), &health), 22u);

    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", "sataSsdSmartAttrList length not equal 30."), 2u);
}

TEST_F(CopyDiskHealthInfoSnWrapFromJSONTest, RefusesAHardDiskWithoutQualifier)
{
    DiskHealthInfoSnWrap health = {};

    EXPECT_EQ(CopyDiskHealthInfoSnWrapFromJSON(With(SasHddHealth("HDD_SAS", "false"), "ASCQ", nullptr).get(), &health),
              22u);
}

using CopyDiskIoInfoFrameSnWrapFromJSONTest = CorvaneTest;

TEST_F(CopyDiskIoInfoFrameSnWrapFromJSONTest, StoresEveryCounterAndLeavesTheClock)
{
    DiskIoInfoFrameSnWrap wrap = {};
    wrap.frame.ticks = 11;
    wrap.frame.tickRate = 12;

    ASSERT_EQ(CopyDiskIoInfoFrameSnWrapFromJSON(Parse(kFrame).get(), &wrap), 0u);

    EXPECT_STREQ(wrap.serialNumber, "SN-1");
    EXPECT_EQ(wrap.frame.queueDepth, 32u);
    EXPECT_EQ(wrap.frame.ioBusyNum, 3u);
    EXPECT_EQ(wrap.frame.ioTime, 101u);
    EXPECT_EQ(wrap.frame.bytesRead, 102u);
    EXPECT_EQ(wrap.frame.bytesWritten, 103u);
    EXPECT_EQ(wrap.frame.numReadOps, 104u);
    EXPECT_EQ(wrap.frame.numWriteOps, 105u);
    EXPECT_EQ(wrap.frame.readLatencyTicks, 106u);
    EXPECT_EQ(wrap.frame.writeLatencyTicks, 107u);
    EXPECT_EQ(wrap.frame.ticks, 11u);
    EXPECT_EQ(wrap.frame.tickRate, 12u);
}

TEST_F(CopyDiskIoInfoFrameSnWrapFromJSONTest, KeepsAllOnesForNoValue)
{
    DiskIoInfoFrameSnWrap wrap = {};

    ASSERT_EQ(CopyDiskIoInfoFrameSnWrapFromJSON(With(kFrame, "io_busy_num", "4294967295").get(), &wrap), 0u);

    EXPECT_EQ(wrap.frame.ioBusyNum, 0xFFFFFFFFu);
}

TEST_F(CopyDiskIoInfoFrameSnWrapFromJSONTest, StoresFullCounters)
{
    DiskIoInfoFrameSnWrap wrap = {};

    ASSERT_EQ(CopyDiskIoInfoFrameSnWrapFromJSON(With(kFrame, "bytes_read", R"("18446744073709551615")").get(), &wrap),
              0u);

    EXPECT_EQ(wrap.frame.bytesRead, UINT64_MAX);
}

using CopyBatchFromJSONTest = CorvaneTest;

template <typename T, size_t n>
std::array<void *, n> Pointers(std::array<T, n> &records)
{
    std::array<void *, n> list;
    for (size_t i = 0; i < n; i++) {
        list[i] = &records[i];
    }
    return list;
}

std::string BriefOf(const std::string &sn)
{
    return R"({"device_name":"sda","serial_number":")" + sn + R"("})";
}

TEST_F(CopyBatchFromJSONTest, CopiesElementIToRecordI)
{
    std::array<DiskBriefInfo, 3> records = {};
    std::array<void *, 3> list = Pointers(records);
    const CJsonPtr disks = Parse('[' + BriefOf("A") + ',' + BriefOf("") + ',' + BriefOf("C") + ']');

    ASSERT_EQ(CopyBatchFromJSON(MESSAGE_DISK_BRIEF_INFO, disks.get(), list.data()), 0u);

    EXPECT_STREQ(records[0].serialNumber, "A");
    EXPECT_STREQ(records[1].serialNumber, "");
    EXPECT_STREQ(records[2].serialNumber, "C");
    EXPECT_TRUE(Logs().empty());
}

TEST_F(CopyBatchFromJSONTest, CopiesTheRecordOfEveryMessageType)
{
    const std::string objects[] = {kBrief, kBase, SataSsdHealth(), kFrame};
    const size_t serialOffset[] = {offsetof(DiskBriefInfo, serialNumber), offsetof(DiskMgrObj, sn),
                                   offsetof(DiskHealthInfoSnWrap, serialNumber),
                                   offsetof(DiskIoInfoFrameSnWrap, serialNumber)};

    for (uint32_t type = 0; type < MESSAGE_TYPE_BUTT; type++) {
        AnyRecord record = {};
        void *list[] = {&record};

        ASSERT_EQ(CopyBatchFromJSON(type, Parse('[' + objects[type] + ']').get(), list), 0u) << type;

        EXPECT_STREQ(reinterpret_cast<const char *>(&record) + serialOffset[type], "SN-1");
    }
}

TEST_F(CopyBatchFromJSONTest, CopiesNothingFromAnEmptyArray)
{
    auto record = Dirty<DiskBriefInfo>();
    const DiskBriefInfo before = record;
    void *list[] = {&record};

    EXPECT_EQ(CopyBatchFromJSON(MESSAGE_DISK_BRIEF_INFO, Parse("[]").get(), list), 0u);

    EXPECT_EQ(std::memcmp(&record, &before, sizeof(record)), 0);
}

TEST_F(CopyBatchFromJSONTest, StopsAtTheFirstFailureAndKeepsWhatIsFilled)
{
    std::array<DiskBriefInfo, 3> records = {};
    std::array<void *, 3> list = Pointers(records);
    const CJsonPtr disks = Parse('[' + BriefOf("A") + R"(,{"device_name":"sdb"},)" + BriefOf("C") + ']');

    EXPECT_EQ(CopyBatchFromJSON(MESSAGE_DISK_BRIEF_INFO, disks.get(), list.data()), 22u);

    EXPECT_STREQ(records[0].serialNumber, "A");
    EXPECT_STREQ(records[2].serialNumber, "");
    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", "Copy(MessageType:0) failed(22)"), 1u);
}

TEST_F(CopyBatchFromJSONTest, GivesTheErrorOfTheCopy)
{
    AnyRecord record = {};
    void *list[] = {&record};
    const CJsonPtr disk = With(kBase, "serial_number", TextOf(40).c_str());
    const CJsonPtr disks(cJSON_CreateArray());
    ASSERT_TRUE(cJSON_AddItemReferenceToArray(disks.get(), disk.get()));

    EXPECT_EQ(CopyBatchFromJSON(MESSAGE_DISK_BASE_INFO, disks.get(), list), 34u);

    EXPECT_TRUE(Logged(CORVANE_LOG_ERROR, "DCM", "Copy(MessageType:1) failed(34)"));
}

TEST_F(CopyBatchFromJSONTest, OneSataHardDiskFailsTheStep)
{
    std::array<DiskHealthInfoSnWrap, 2> records = {};
    std::array<void *, 2> list = Pointers(records);
    const CJsonPtr disks = Parse('[' + SataSsdHealth() + ',' + SasHddHealth("HDD_SATA") + ']');

    EXPECT_EQ(CopyBatchFromJSON(MESSAGE_DISK_HEALTH_INFO, disks.get(), list.data()), 22u);

    EXPECT_TRUE(Logged(CORVANE_LOG_ERROR, "DCM", "Copy(MessageType:2) failed(22)"));
}

TEST_F(CopyBatchFromJSONTest, RefusesNullArgumentsAndOtherTypes)
{
    AnyRecord record = {};
    void *list[] = {&record};
    const CJsonPtr disks = Parse('[' + kBrief + ']');

    EXPECT_EQ(CopyBatchFromJSON(MESSAGE_TYPE_BUTT, disks.get(), list), 22u);
    EXPECT_EQ(CopyBatchFromJSON(0xFFFFFFFFu, disks.get(), list), 22u);
    EXPECT_EQ(CopyBatchFromJSON(MESSAGE_DISK_BRIEF_INFO, nullptr, list), 22u);
    EXPECT_EQ(CopyBatchFromJSON(MESSAGE_DISK_BRIEF_INFO, disks.get(), nullptr), 22u);
}

using CopyClockTicksInstantFromJSONTest = CorvaneTest;

TEST_F(CopyClockTicksInstantFromJSONTest, ReadsBothNumbers)
{
    uint64_t tickRate = 0;
    uint64_t ticks = 0;

    EXPECT_EQ(CopyClockTicksInstantFromJSON(Parse(R"({"tick_rate":"1000","ticks":"98765432109876"})").get(), &tickRate,
                                            &ticks),
              0u);

    EXPECT_EQ(tickRate, 1000u);
    EXPECT_EQ(ticks, 98765432109876u);
}

TEST_F(CopyClockTicksInstantFromJSONTest, GivesTwelveForAMissingMember)
{
    uint64_t tickRate = 1;
    uint64_t ticks = 2;

    for (const char *json : {"{}", R"({"ticks":"1"})", R"({"tick_rate":"1"})", "7"}) {
        ClearLogs();

        EXPECT_EQ(CopyClockTicksInstantFromJSON(Parse(json).get(), &tickRate, &ticks), 12u) << json;

        EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", "Malloc failed."), 1u);
        EXPECT_EQ(
            LogCount(CORVANE_LOG_ERROR, "DCM", "Maybe the function is incorrectly used? (not verified in advance)."),
            1u);
    }
    EXPECT_EQ(CopyClockTicksInstantFromJSON(nullptr, &tickRate, &ticks), 12u);
    EXPECT_EQ(tickRate, 1u);
    EXPECT_EQ(ticks, 2u);
}

TEST_F(CopyClockTicksInstantFromJSONTest, RefusesNullOutputs)
{
    const CJsonPtr result = Parse(R"({"tick_rate":"1","ticks":"1"})");
    uint64_t value = 0;

    EXPECT_EQ(CopyClockTicksInstantFromJSON(result.get(), nullptr, &value), 22u);
    EXPECT_EQ(CopyClockTicksInstantFromJSON(result.get(), &value, nullptr), 22u);
}

using ConvertDecimalStringJson2Uint64Test = CorvaneTest;

TEST_F(ConvertDecimalStringJson2Uint64Test, AccumulatesWithoutOverflowCheck)
{
    const std::pair<const char *, uint64_t> cases[] = {{R"("0")", 0},
                                                       {R"("007")", 7},
                                                       {R"("18446744073709551615")", UINT64_MAX},
                                                       {R"("18446744073709551616")", 0},
                                                       {R"("18446744073709551617")", 1},
                                                       {R"("184467440737095516160")", 0}};

    for (const auto &[json, expected] : cases) {
        EXPECT_EQ(ConvertDecimalStringJson2Uint64(Parse(json).get()), expected) << json;
    }
}

TEST_F(ConvertDecimalStringJson2Uint64Test, StaysHarmlessOnUncheckedNodes)
{
    EXPECT_EQ(ConvertDecimalStringJson2Uint64(nullptr), 0u);
    EXPECT_EQ(ConvertDecimalStringJson2Uint64(Parse("12").get()), 0u);
    EXPECT_EQ(ConvertDecimalStringJson2Uint64(Parse(R"("12x3")").get()), 12u);
}

} // namespace
