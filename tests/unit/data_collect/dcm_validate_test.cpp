#include "data_collect/data_collect_master/DCM_validate/dcm_validate.h"

#include <ostream>
#include <string>

#include "data_collect/data_collect_master/dcm_types.h"
#include "support/corvane_fixture.h"
#include "unit/data_collect/dcm_objects.h"

namespace {

using namespace dcm_objects;
using ::testing::Values;

bool LoggedCheckListFailure(const std::vector<LogLine> &lines, const std::string &member)
{
    return lines.size() == 1 && lines[0].level == CORVANE_LOG_DEBUG && lines[0].module == "DCM" &&
           lines[0].text == "CheckList validate " + member + " failed.";
}

/** One value and what a check of a single node says to it; a null text stands for a missing member. */
struct NodeCase {
    const char *name;
    bool (*check)(cJSON *item);
    const char *json;
    bool expected;
};

void PrintTo(const NodeCase &c, std::ostream *os)
{
    *os << c.name << '(' << (c.json == nullptr ? "missing" : c.json) << ')';
}

class NodeCheckTest : public CorvaneTest, public ::testing::WithParamInterface<NodeCase> {};

TEST_P(NodeCheckTest, AcceptsAndRefuses)
{
    const NodeCase &c = GetParam();
    const CJsonPtr node = c.json == nullptr ? nullptr : Parse(c.json);

    EXPECT_EQ(c.check(node.get()), c.expected);
    EXPECT_TRUE(Logs().empty());
}

#define NODE_CASE(check, json, expected)                                                                               \
    NodeCase                                                                                                           \
    {                                                                                                                  \
#check, check, json, expected                                                                                  \
    }

INSTANTIATE_TEST_SUITE_P(
    IsStringAndNotNull, NodeCheckTest,
    Values(NODE_CASE(IsStringAndNotNull, R"("text")", true), NODE_CASE(IsStringAndNotNull, R"("")", true),
           NODE_CASE(IsStringAndNotNull, "null", false), NODE_CASE(IsStringAndNotNull, "1", false),
           NODE_CASE(IsStringAndNotNull, "true", false), NODE_CASE(IsStringAndNotNull, "{}", false),
           NODE_CASE(IsStringAndNotNull, R"(["text"])", false), NODE_CASE(IsStringAndNotNull, nullptr, false)));

INSTANTIATE_TEST_SUITE_P(IsJsonNumber, NodeCheckTest,
                         Values(NODE_CASE(IsJsonNumber, "0", true), NODE_CASE(IsJsonNumber, "-1.5", true),
                                NODE_CASE(IsJsonNumber, "1e300", true), NODE_CASE(IsJsonNumber, "1e999", true),
                                NODE_CASE(IsJsonNumber, R"("1")", false), NODE_CASE(IsJsonNumber, "true", false),
                                NODE_CASE(IsJsonNumber, "null", false), NODE_CASE(IsJsonNumber, "[1]", false),
                                NODE_CASE(IsJsonNumber, nullptr, false)));

INSTANTIATE_TEST_SUITE_P(IsJsonBoolean, NodeCheckTest,
                         Values(NODE_CASE(IsJsonBoolean, "true", true), NODE_CASE(IsJsonBoolean, "false", true),
                                NODE_CASE(IsJsonBoolean, "0", false), NODE_CASE(IsJsonBoolean, "1", false),
                                NODE_CASE(IsJsonBoolean, R"("true")", false), NODE_CASE(IsJsonBoolean, "null", false),
                                NODE_CASE(IsJsonBoolean, nullptr, false)));

INSTANTIATE_TEST_SUITE_P(
    IsDecimalUintString, NodeCheckTest,
    Values(NODE_CASE(IsDecimalUintString, R"("0")", true), NODE_CASE(IsDecimalUintString, R"("0123456789")", true),
           NODE_CASE(IsDecimalUintString, R"("99999999999999999999999999")", true),
           NODE_CASE(IsDecimalUintString, R"("")", false), NODE_CASE(IsDecimalUintString, R"("12a4")", false),
           NODE_CASE(IsDecimalUintString, R"("-1")", false), NODE_CASE(IsDecimalUintString, R"("+1")", false),
           NODE_CASE(IsDecimalUintString, R"(" 1")", false), NODE_CASE(IsDecimalUintString, R"("1 ")", false),
           NODE_CASE(IsDecimalUintString, R"("1.0")", false), NODE_CASE(IsDecimalUintString, R"("0x1f")", false),
           NODE_CASE(IsDecimalUintString, "1", false), NODE_CASE(IsDecimalUintString, nullptr, false)));

INSTANTIATE_TEST_SUITE_P(
    IsValidDiskType, NodeCheckTest,
    Values(NODE_CASE(IsValidDiskType, R"("SSD_NVMe")", true), NODE_CASE(IsValidDiskType, R"("SSD_NVME")", true),
           NODE_CASE(IsValidDiskType, R"("SSD_SAS")", true), NODE_CASE(IsValidDiskType, R"("ssd_sata")", true),
           NODE_CASE(IsValidDiskType, R"("HDD_SAS")", true), NODE_CASE(IsValidDiskType, R"("HDD_SATA")", true),
           NODE_CASE(IsValidDiskType, R"("HDD_NL_SAS")", true), NODE_CASE(IsValidDiskType, R"("ERR TYPE")", false),
           NODE_CASE(IsValidDiskType, R"("")", false), NODE_CASE(IsValidDiskType, R"("SSD_SAS ")", false),
           NODE_CASE(IsValidDiskType, "1", false), NODE_CASE(IsValidDiskType, nullptr, false)));

INSTANTIATE_TEST_SUITE_P(
    IsValidDiskMediaType, NodeCheckTest,
    Values(NODE_CASE(IsValidDiskMediaType, R"("SLC")", true), NODE_CASE(IsValidDiskMediaType, R"("MLC")", true),
           NODE_CASE(IsValidDiskMediaType, R"("tlc")", true), NODE_CASE(IsValidDiskMediaType, R"("QLC")", true),
           NODE_CASE(IsValidDiskMediaType, R"("PLC")", true), NODE_CASE(IsValidDiskMediaType, R"("Magnet")", true),
           NODE_CASE(IsValidDiskMediaType, R"("XLC")", false), NODE_CASE(IsValidDiskMediaType, R"("")", false),
           NODE_CASE(IsValidDiskMediaType, "2", false), NODE_CASE(IsValidDiskMediaType, nullptr, false)));

using IsStringAndNotNullTest = CorvaneTest;

TEST_F(IsStringAndNotNullTest, RefusesAStringWithoutValue)
{
    cJSON node = {};
    node.type = cJSON_String;

    EXPECT_FALSE(IsStringAndNotNull(&node));
    EXPECT_FALSE(IsDecimalUintString(&node));
    EXPECT_FALSE(IsValidDiskType(&node));
    EXPECT_FALSE(IsValidDiskMediaType(&node));
}

using IsValidPciAddressTest = CorvaneTest;

TEST_F(IsValidPciAddressTest, IsNeededForUserSpaceNvmeOnly)
{
    const CJsonPtr nvme = Parse(R"("ssd_nvme")");
    const CJsonPtr text = Parse(R"("0000:3b:00.0")");
    const CJsonPtr empty = Parse(R"("")");
    const CJsonPtr number = Parse("7");

    EXPECT_TRUE(IsValidPciAddress(nvme.get(), text.get()));
    EXPECT_TRUE(IsValidPciAddress(nvme.get(), empty.get()));
    EXPECT_FALSE(IsValidPciAddress(nvme.get(), number.get()));
    EXPECT_FALSE(IsValidPciAddress(nvme.get(), nullptr));
    for (const char *type : {"SSD_SAS", "SSD_SATA", "HDD_SAS", "HDD_SATA", "HDD_NL_SAS"}) {
        const CJsonPtr other = Parse('"' + std::string(type) + '"');
        EXPECT_TRUE(IsValidPciAddress(other.get(), nullptr)) << type;
        EXPECT_TRUE(IsValidPciAddress(other.get(), number.get())) << type;
    }
}

TEST_F(IsValidPciAddressTest, NeedsAValidType)
{
    const CJsonPtr text = Parse(R"("0000:3b:00.0")");

    EXPECT_FALSE(IsValidPciAddress(nullptr, text.get()));
    EXPECT_FALSE(IsValidPciAddress(Parse(R"("ERR TYPE")").get(), text.get()));
    EXPECT_FALSE(IsValidPciAddress(Parse("0").get(), text.get()));
}

using IsValidJsonWithCheckListTest = CorvaneTest;

constexpr CheckRow kRows[] = {{"first", IsJsonNumber}, {"second", IsStringAndNotNull}};

TEST_F(IsValidJsonWithCheckListTest, PassesWhenEveryRowPasses)
{
    EXPECT_TRUE(IsValidJsonWithCheckList(Parse(R"({"second":"x","first":1,"more":[]})").get(), kRows, 2));
    EXPECT_TRUE(Logs().empty());
}

TEST_F(IsValidJsonWithCheckListTest, LooksMembersUpWithoutRegardToCase)
{
    EXPECT_TRUE(IsValidJsonWithCheckList(Parse(R"({"FIRST":1,"Second":"x"})").get(), kRows, 2));
}

TEST_F(IsValidJsonWithCheckListTest, NamesTheFirstFailureOnly)
{
    EXPECT_FALSE(IsValidJsonWithCheckList(Parse(R"({"first":"1"})").get(), kRows, 2));

    EXPECT_TRUE(LoggedCheckListFailure(Logs(), "first"));
}

TEST_F(IsValidJsonWithCheckListTest, FailsForAMissingMember)
{
    EXPECT_FALSE(IsValidJsonWithCheckList(Parse(R"({"first":1})").get(), kRows, 2));

    EXPECT_TRUE(LoggedCheckListFailure(Logs(), "second"));
}

TEST_F(IsValidJsonWithCheckListTest, ChecksNoMoreRowsThanCounted)
{
    EXPECT_TRUE(IsValidJsonWithCheckList(Parse(R"({"first":1})").get(), kRows, 1));
    EXPECT_TRUE(IsValidJsonWithCheckList(Parse("{}").get(), kRows, 0));
}

TEST_F(IsValidJsonWithCheckListTest, FailsForNullArguments)
{
    EXPECT_FALSE(IsValidJsonWithCheckList(nullptr, kRows, 2));
    EXPECT_FALSE(IsValidJsonWithCheckList(nullptr, kRows, 0));
    EXPECT_FALSE(IsValidJsonWithCheckList(Parse("{}").get(), nullptr, 1));
}

TEST_F(IsValidJsonWithCheckListTest, FailsForWhatIsNoObject)
{
    for (const char *json : {"[]", "[1,2]", "7", "null", R"("first")"}) {
        EXPECT_FALSE(IsValidJsonWithCheckList(Parse(json).get(), kRows, 2)) << json;
    }
}

struct HeaderCase {
    const char *json;
    bool expected;
};

class IsValidJsonResponseHeaderTest : public CorvaneTest, public ::testing::WithParamInterface<HeaderCase> {};

TEST_P(IsValidJsonResponseHeaderTest, AcceptsAndRefuses)
{
    EXPECT_EQ(IsValidJsonResponseHeader(Parse(GetParam().json).get()), GetParam().expected) << GetParam().json;
}

INSTANTIATE_TEST_SUITE_P(Headers, IsValidJsonResponseHeaderTest,
                         Values(HeaderCase{R"({"jsonrpc":"2.0","id":1,"result":{}})", true},
                                HeaderCase{R"({"result":null,"id":-7.5,"jsonrpc":"2.0"})", true},
                                HeaderCase{R"({"JSONRPC":"2.0","ID":1,"Result":7})", true},
                                HeaderCase{R"({"id":1,"result":{}})", false},
                                HeaderCase{R"({"jsonrpc":"2.0","result":{}})", false},
                                HeaderCase{R"({"jsonrpc":"2.0","id":1})", false},
                                HeaderCase{R"({"jsonrpc":"2.0","id":1,"error":{}})", false},
                                HeaderCase{R"({"jsonrpc":"1.0","id":1,"result":{}})", false},
                                HeaderCase{R"({"jsonrpc":"2.0 ","id":1,"result":{}})", false},
                                HeaderCase{R"({"jsonrpc":"","id":1,"result":{}})", false},
                                HeaderCase{R"({"jsonrpc":2.0,"id":1,"result":{}})", false},
                                HeaderCase{R"({"jsonrpc":"2.0","id":"1","result":{}})", false},
                                HeaderCase{R"({"jsonrpc":"2.0","id":null,"result":{}})", false},
                                HeaderCase{"[]", false}, HeaderCase{R"(["2.0",1,{}])", false}, HeaderCase{"7", false}));

using IsValidJsonResponseHeaderNullTest = CorvaneTest;

TEST_F(IsValidJsonResponseHeaderNullTest, RefusesNull)
{
    EXPECT_FALSE(IsValidJsonResponseHeader(nullptr));
}

using IsValidDiskBriefInfoResultJsonTest = CorvaneTest;

TEST_F(IsValidDiskBriefInfoResultJsonTest, AcceptsUpTo64Disks)
{
    EXPECT_TRUE(IsValidDiskBriefInfoResultJson(Parse(Disks(kBrief, 0)).get()));
    EXPECT_TRUE(IsValidDiskBriefInfoResultJson(Parse(Disks(kBrief, 1)).get()));
    EXPECT_TRUE(IsValidDiskBriefInfoResultJson(Parse(Disks(kBrief, 64)).get()));
    EXPECT_TRUE(Logs().empty());
}

TEST_F(IsValidDiskBriefInfoResultJsonTest, RefusesMoreAndSaysHowMany)
{
    EXPECT_FALSE(IsValidDiskBriefInfoResultJson(Parse(Disks(kBrief, 65)).get()));
    EXPECT_TRUE(Logged(CORVANE_LOG_ERROR, "DCM", "DiskList has too many items(target:65)(max:64)."));

    EXPECT_FALSE(IsValidDiskBriefInfoResultJson(Parse(Disks("7", 300)).get()));
    EXPECT_TRUE(Logged(CORVANE_LOG_ERROR, "DCM", "DiskList has too many items(target:300)(max:64)."));
}

TEST_F(IsValidDiskBriefInfoResultJsonTest, NeedsAnArray)
{
    for (const char *json : {"{}", R"({"disks":null})", R"({"disks":{}})", R"({"disks":"none"})", R"({"disks":0})",
                             R"({"result":"sokect ok"})", "[]", "7"}) {
        EXPECT_FALSE(IsValidDiskBriefInfoResultJson(Parse(json).get())) << json;
    }
    EXPECT_FALSE(IsValidDiskBriefInfoResultJson(nullptr));
}

/** The checks that hold the number of disks against the number asked for. */
struct CountedCheck {
    const char *name;
    bool (*check)(cJSON *result, uint32_t requestedCount);
};

void PrintTo(const CountedCheck &c, std::ostream *os)
{
    *os << c.name;
}

class CountedResultTest : public CorvaneTest, public ::testing::WithParamInterface<CountedCheck> {
protected:
    /** A result that lacks nothing for any of the checks. */
    static CJsonPtr Result(int disks)
    {
        CJsonPtr result = Parse(Disks("{}", disks));
        Set(result.get(), "tick_rate", R"("1000")");
        Set(result.get(), "ticks", R"("123456")");
        return result;
    }
};

TEST_P(CountedResultTest, AcceptsAsManyAsAskedForAndFewer)
{
    EXPECT_TRUE(GetParam().check(Result(13).get(), 13));
    EXPECT_TRUE(GetParam().check(Result(1).get(), 13));
    EXPECT_TRUE(GetParam().check(Result(0).get(), 13));
    EXPECT_TRUE(GetParam().check(Result(0).get(), 0));
}

TEST_P(CountedResultTest, RefusesOneMore)
{
    EXPECT_FALSE(GetParam().check(Result(14).get(), 13));
    EXPECT_FALSE(GetParam().check(Result(1).get(), 0));
}

TEST_P(CountedResultTest, NeedsAnArray)
{
    for (const char *value : {static_cast<const char *>(nullptr), "null", "{}", "3", R"("disks")"}) {
        const CJsonPtr result = Result(0);
        Set(result.get(), "disks", value);

        EXPECT_FALSE(GetParam().check(result.get(), 13));
    }
    EXPECT_FALSE(GetParam().check(nullptr, 13));
}

INSTANTIATE_TEST_SUITE_P(
    Results, CountedResultTest,
    Values(CountedCheck{"IsValidDiskBaseInfoResultJson", IsValidDiskBaseInfoResultJson},
           CountedCheck{"IsValidDiskHealthInfoResultJson", IsValidDiskHealthInfoResultJson},
           CountedCheck{"IsValidDiskIoInfoFrameResultJson", IsValidDiskIoInfoFrameResultJson},
           CountedCheck{"IsValidResultJson 1",
                        [](cJSON *result, uint32_t count) { return IsValidResultJson(1, result, count); }},
           CountedCheck{"IsValidResultJson 2",
                        [](cJSON *result, uint32_t count) { return IsValidResultJson(2, result, count); }},
           CountedCheck{"IsValidResultJson 3",
                        [](cJSON *result, uint32_t count) { return IsValidResultJson(3, result, count); }}));

using IsValidDiskIoInfoFrameResultJsonTest = CorvaneTest;

TEST_F(IsValidDiskIoInfoFrameResultJsonTest, NeedsTheClockAsDecimalStrings)
{
    const std::string good = R"({"tick_rate":"1000","ticks":"1","disks":[]})";

    EXPECT_TRUE(IsValidDiskIoInfoFrameResultJson(Parse(good).get(), 20));
    for (const char *member : {"tick_rate", "ticks"}) {
        for (const char *bad : {static_cast<const char *>(nullptr), R"("")", R"("1x")", R"("-1")", "1000", "null"}) {
            EXPECT_FALSE(IsValidDiskIoInfoFrameResultJson(With(good, member, bad).get(), 20)) << member;
        }
    }
}

using IsValidResultJsonTest = CorvaneTest;

TEST_F(IsValidResultJsonTest, LimitsADeviceListWhateverWasAskedFor)
{
    EXPECT_TRUE(IsValidResultJson(MESSAGE_DISK_BRIEF_INFO, Parse(Disks(kBrief, 64)).get(), 1));
    EXPECT_FALSE(IsValidResultJson(MESSAGE_DISK_BRIEF_INFO, Parse(Disks(kBrief, 65)).get(), 100));
}

TEST_F(IsValidResultJsonTest, AsksForTheClockOfCountersOnly)
{
    const CJsonPtr result = Parse(R"({"disks":[]})");

    EXPECT_TRUE(IsValidResultJson(MESSAGE_DISK_BASE_INFO, result.get(), 1));
    EXPECT_TRUE(IsValidResultJson(MESSAGE_DISK_HEALTH_INFO, result.get(), 1));
    EXPECT_FALSE(IsValidResultJson(MESSAGE_DISK_IO_INFO_FRAME, result.get(), 1));
}

TEST_F(IsValidResultJsonTest, RefusesOtherMessageTypes)
{
    const CJsonPtr result = Parse(R"({"disks":[],"tick_rate":"1","ticks":"1"})");

    EXPECT_FALSE(IsValidResultJson(MESSAGE_TYPE_BUTT, result.get(), 1));
    EXPECT_FALSE(IsValidResultJson(0xFFFFFFFFu, result.get(), 1));
}

using IsValidDiskBaseInfoJSONTest = CorvaneTest;

TEST_F(IsValidDiskBaseInfoJSONTest, AcceptsBothKindsOfDisks)
{
    EXPECT_TRUE(IsValidDiskBaseInfoJSON(Parse(kBase).get()));
    EXPECT_TRUE(IsValidDiskBaseInfoJSON(Parse(kNvmeBase).get()));
    EXPECT_TRUE(Logs().empty());
}

TEST_F(IsValidDiskBaseInfoJSONTest, NeedsThePciAddressOfUserSpaceNvme)
{
    EXPECT_FALSE(IsValidDiskBaseInfoJSON(With(kNvmeBase, "pci_address", nullptr).get()));
    EXPECT_FALSE(IsValidDiskBaseInfoJSON(With(kNvmeBase, "pci_address", "7").get()));
    EXPECT_TRUE(IsValidDiskBaseInfoJSON(With(kBase, "pci_address", "7").get()));
}

TEST_F(IsValidDiskBaseInfoJSONTest, DoesNotCheckTheSlot)
{
    EXPECT_TRUE(IsValidDiskBaseInfoJSON(With(kBase, "slot_id", R"("seven")").get()));
}

TEST_F(IsValidDiskBaseInfoJSONTest, RefusesNullAndOtherTypes)
{
    EXPECT_FALSE(IsValidDiskBaseInfoJSON(nullptr));
    EXPECT_FALSE(IsValidDiskBaseInfoJSON(Parse("[]").get()));
    EXPECT_FALSE(IsValidDiskBaseInfoJSON(Parse("7").get()));
}

using IsValidDiskHealthInfoJSONTest = CorvaneTest;

TEST_F(IsValidDiskHealthInfoJSONTest, AcceptsEveryForm)
{
    const std::string forms[] = {NvmeHealth(),
                                 SataSsdHealth(),
                                 SasVssdHealth("VELMAR"),
                                 SasVssdHealth("orstan"),
                                 SasVssdHealth("ORSYL"),
                                 SasVssdHealth("0X1F7C"),
                                 SasSsdHealth(),
                                 SasHddHealth("HDD_SAS"),
                                 SasHddHealth("HDD_NL_SAS"),
                                 SasHddHealth("HDD_SAS", "false")};

    for (const std::string &form : forms) {
        EXPECT_TRUE(IsValidDiskHealthInfoJSON(Parse(form).get())) << form;
    }
    EXPECT_TRUE(Logs().empty());
}

TEST_F(IsValidDiskHealthInfoJSONTest, RefusesSataHardDisks)
{
    EXPECT_FALSE(IsValidDiskHealthInfoJSON(Parse(SasHddHealth("HDD_SATA")).get()));

    EXPECT_TRUE(Logged(CORVANE_LOG_ERROR, "DCM", "Unprocessed (diskType,vendor) exist(HDD_SATA,ANY)."));
}

TEST_F(IsValidDiskHealthInfoJSONTest, RefusesUnclassifiedDisks)
{
    EXPECT_FALSE(IsValidDiskHealthInfoJSON(Parse(SasHddHealth("ERR TYPE")).get()));

    EXPECT_TRUE(LoggedCheckListFailure(Logs(), "disk_type"));
}

TEST_F(IsValidDiskHealthInfoJSONTest, ChoosesTheFormOfSasSsdsByVendor)
{
    // given the members of the one form and the vendor of the other
    const CJsonPtr ownWithSense = With(SasSsdHealth(), "vendor_id", R"("VELMAR")");
    const CJsonPtr otherWithCapacitance = With(SasVssdHealth(), "vendor_id", R"("OTHER")");

    EXPECT_FALSE(IsValidDiskHealthInfoJSON(ownWithSense.get()));
    EXPECT_TRUE(LoggedCheckListFailure(Logs(), "capacitance_id"));
    ClearLogs();
    EXPECT_FALSE(IsValidDiskHealthInfoJSON(otherWithCapacitance.get()));
    EXPECT_TRUE(LoggedCheckListFailure(Logs(), "ASC"));
}

TEST_F(IsValidDiskHealthInfoJSONTest, RefusesNullAndOtherTypes)
{
    EXPECT_FALSE(IsValidDiskHealthInfoJSON(nullptr));
    EXPECT_FALSE(IsValidDiskHealthInfoJSON(Parse("[]").get()));
    EXPECT_FALSE(IsValidDiskHealthInfoJSON(Parse(R"("x")").get()));
}

/** A member that only one form of the detail has. */
struct VariantMember {
    const char *form;
    std::string object;
    const char *member;
    const char *wrongType;
};

void PrintTo(const VariantMember &c, std::ostream *os)
{
    *os << c.form << '.' << c.member;
}

class HealthVariantTest : public CorvaneTest, public ::testing::WithParamInterface<VariantMember> {};

TEST_P(HealthVariantTest, NeedsTheMember)
{
    const VariantMember &c = GetParam();

    EXPECT_FALSE(IsValidDiskHealthInfoJSON(With(c.object, c.member, nullptr).get()));
    EXPECT_TRUE(Logged(CORVANE_LOG_DEBUG, "DCM", "CheckList validate " + std::string(c.member) + " failed."));
}

TEST_P(HealthVariantTest, NeedsTheRightType)
{
    const VariantMember &c = GetParam();

    EXPECT_FALSE(IsValidDiskHealthInfoJSON(With(c.object, c.member, c.wrongType).get()));
    EXPECT_TRUE(Logged(CORVANE_LOG_DEBUG, "DCM", "CheckList validate " + std::string(c.member) + " failed."));
}

INSTANTIATE_TEST_SUITE_P(Members, HealthVariantTest,
                         Values(VariantMember{"nvme", NvmeHealth(), "critical_warning", R"("5")"},
                                VariantMember{"sata", SataSsdHealth(), "SMART_list", R"({})"},
                                VariantMember{"vssd", SasVssdHealth(), "capacitance_id", "true"},
                                VariantMember{"vssd", SasVssdHealth(), "capacitance_status", R"("9")"},
                                VariantMember{"sas", SasSsdHealth(), "ASC", "null"},
                                VariantMember{"sas", SasSsdHealth(), "ASCQ", "false"},
                                VariantMember{"hdd", SasHddHealth(), "is_support_ie_log", "1"},
                                VariantMember{"hdd", SasHddHealth(), "ASC", R"("93")"},
                                VariantMember{"hdd", SasHddHealth(), "ASCQ", "[]"},
                                VariantMember{"hdd without log", SasHddHealth("HDD_SAS", "false"), "ASCQ", "{}"},
                                VariantMember{"nl", SasHddHealth("HDD_NL_SAS"), "is_support_ie_log", R"("true")"}));

using IsValidSataSsdSmartAttrListTest = CorvaneTest;

TEST_F(IsValidSataSsdSmartAttrListTest, AcceptsThirtyEntries)
{
    EXPECT_TRUE(IsValidSataSsdSmartAttrList(Parse(SmartList(30)).get()));
    EXPECT_TRUE(Logs().empty());
}

TEST_F(IsValidSataSsdSmartAttrListTest, RefusesAnyOtherLength)
{
    size_t refused = 0;
    for (const int entries : {0, 1, 29, 31, 60}) {
        EXPECT_FALSE(IsValidSataSsdSmartAttrList(Parse(SmartList(entries)).get())) << entries;
        refused++;
    }

    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", "sataSsdSmartAttrList length not equal 30."), refused);
}

TEST_F(IsValidSataSsdSmartAttrListTest, RefusesWhatIsNoArray)
{
    EXPECT_FALSE(IsValidSataSsdSmartAttrList(nullptr));
    EXPECT_FALSE(IsValidSataSsdSmartAttrList(Parse("{}").get()));
    EXPECT_FALSE(IsValidSataSsdSmartAttrList(Parse("30").get()));

    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", "sataSsdSmartAttrList is not JSON Array."), 3u);
}

TEST_F(IsValidSataSsdSmartAttrListTest, ChecksEveryMemberOfEveryEntry)
{
    for (const char *member : {"id", "threshold", "current_value", "worst"}) {
        for (const int entry : {0, 17, 29}) {
            for (const char *value : {static_cast<const char *>(nullptr), R"("1")"}) {
                const CJsonPtr list = Parse(SmartList(30));
                Set(cJSON_GetArrayItem(list.get(), entry), member, value);
                ClearLogs();

                EXPECT_FALSE(IsValidSataSsdSmartAttrList(list.get())) << member << ' ' << entry;
                EXPECT_TRUE(LoggedCheckListFailure(Logs(), member));
            }
        }
    }
}

TEST_F(IsValidSataSsdSmartAttrListTest, RefusesEntriesThatAreNoObjects)
{
    const CJsonPtr list = Parse(SmartList(30));
    ASSERT_TRUE(cJSON_ReplaceItemInArray(list.get(), 29, cJSON_CreateNumber(7)));

    EXPECT_FALSE(IsValidSataSsdSmartAttrList(list.get()));
}

} // namespace
