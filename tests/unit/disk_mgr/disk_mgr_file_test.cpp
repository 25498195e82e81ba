#include "unit/disk_mgr/registry_fixture.h"

#include "infrastructure/common/corvane_raii.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr uint32_t kFail = 0xFFFFFFFF;
constexpr const char *kModule = "DISK_MGR";

constexpr const char *kOneDisk = "[{\n"
                                 "\t\t\"diskId\":\t5,\n"
                                 "\t\t\"diskState\":\t0,\n"
                                 "\t\t\"frameId\":\t3,\n"
                                 "\t\t\"slotId\":\t7,\n"
                                 "\t\t\"sectorSize\":\t512,\n"
                                 "\t\t\"diskType\":\t2,\n"
                                 "\t\t\"mediaType\":\t2,\n"
                                 "\t\t\"diskCapacity\":\t\"960197124096\",\n"
                                 "\t\t\"vendor\":\t\"ATA\",\n"
                                 "\t\t\"model\":\t\"Model \\\"X\\\" 960\",\n"
                                 "\t\t\"sn\":\t\"SN-A\",\n"
                                 "\t\t\"pciAddr\":\t\"0000:3b:00.0\",\n"
                                 "\t\t\"firmware\":\t\"FW01\"\n"
                                 "\t}]";

class RegistryFileTest : public RegistryTest {
protected:
    /** An entry that passes, as a tree to spoil. */
    static CJsonPtr Entry(uint32_t id = 5, const std::string &sn = "SN-A")
    {
        DiskMgrObj obj = Record(id, sn);
        return CJsonPtr(ConvertSingleDiskMgrObj2cJSON(&obj));
    }
    /** Starts from a file with these entries. @return what the load gave */
    uint32_t Load(std::vector<CJsonPtr> entries)
    {
        const CJsonPtr root(cJSON_CreateArray());
        for (CJsonPtr &entry : entries) {
            cJSON_AddItemToArray(root.get(), entry.release());
        }
        char *text = cJSON_Print(root.get());
        WriteFile(Path(), text);
        cJSON_free(text);
        return LoadFile();
    }
    uint32_t LoadFile()
    {
        Start();
        return Logged(4, kModule, "DiskInfoLoadConfig fail , config file path = " + Path()) ? kFail : 0;
    }
    static std::vector<CJsonPtr> List(CJsonPtr first, CJsonPtr second = nullptr)
    {
        std::vector<CJsonPtr> list;
        list.push_back(std::move(first));
        if (second != nullptr) {
            list.push_back(std::move(second));
        }
        return list;
    }
};

/** One member replaced by a raw JSON value; null: removed. */
struct MemberCase {
    const char *name;
    const char *key;
    std::string value;
    bool passes;
};

std::string Text(size_t length)
{
    return "\"" + std::string(length, 'x') + "\"";
}

class RegistryMemberTest : public RegistryFileTest, public ::testing::WithParamInterface<MemberCase> {};

} // namespace

TEST_F(RegistryFileTest, HasTheExactTextForOneDisk)
{
    Start();

    ASSERT_EQ(Add(5, "SN-A"), 0u);

    EXPECT_EQ(ReadFile(Path()), kOneDisk);
}

TEST_F(RegistryFileTest, ReadsBackEveryField)
{
    WriteFile(Path(), kOneDisk);

    EXPECT_EQ(LoadFile(), 0u);

    DiskMgrObj expected = Record(5, "SN-A");
    std::memset(expected.deviceName, 0, sizeof(expected.deviceName));
    (void)std::snprintf(expected.deviceName, sizeof(expected.deviceName), "unknown");
    ASSERT_NE(g_diskMgrObj[5], nullptr);
    EXPECT_EQ(std::memcmp(g_diskMgrObj[5], &expected, sizeof(expected)), 0);
    EXPECT_EQ(Count(), 1u);
    EXPECT_TRUE(Logged(7, kModule, "load config file, disk info num = 1"));
}

TEST_F(RegistryFileTest, LoadsAnEmptyArrayAsNoDisks)
{
    WriteFile(Path(), "[]");

    EXPECT_EQ(LoadFile(), 0u);

    EXPECT_THAT(Table(), IsEmpty());
    EXPECT_EQ(Count(), 0u);
}

TEST_F(RegistryFileTest, Takes64EntriesAndRefuses65AsAWhole)
{
    for (const uint32_t entries : {64u, 65u}) {
        std::vector<CJsonPtr> list;
        for (uint32_t i = 0; i < entries; i++) {
            list.push_back(Entry(i, "SN-" + std::to_string(i)));
        }
        ClearLogs();

        EXPECT_EQ(Load(std::move(list)), entries == 64 ? 0u : kFail);

        EXPECT_EQ(Table().size(), entries == 64 ? 64u : 0u);
        Forget();
    }
    EXPECT_TRUE(Logged(7, kModule, "Too Many Disk Obj(65) in Config File"));
}

TEST_F(RegistryFileTest, DropsTheSecondEntryWithTheSameIdentifier)
{
    EXPECT_EQ(Load(List(Entry(5, "SN-A"), Entry(5, "SN-B"))), 0u);

    EXPECT_THAT(Table(), ElementsAre(Registered(5, "SN-A", 0)));
    EXPECT_EQ(Count(), 1u);
    EXPECT_TRUE(Logged(3, kModule, "Detected duplicate disk id: 5"));
}

TEST_F(RegistryFileTest, TakesTheSameSerialNumberTwice)
{
    EXPECT_EQ(Load(List(Entry(5, "SN-A"), Entry(6, "SN-A"))), 0u);

    EXPECT_EQ(Count(), 2u);
}

TEST_F(RegistryFileTest, PutsANegativeIdentifierIntoSlot0)
{
    CJsonPtr entry = Entry();
    cJSON_SetNumberValue(cJSON_GetObjectItem(entry.get(), "diskId"), -1);

    EXPECT_EQ(Load(List(std::move(entry))), 0u);

    EXPECT_THAT(Table(), ElementsAre(Registered(0, "SN-A", 0)));
}

TEST_F(RegistryFileTest, OneBadEntryRejectsTheFileAndEmptiesTheLowerHalf)
{
    std::vector<CJsonPtr> list = List(Entry(3, "SN-3"), Entry(64, "SN-64"));
    list.push_back(CJsonPtr(cJSON_CreateObject()));

    EXPECT_EQ(Load(std::move(list)), kFail);

    EXPECT_THAT(Table(), ElementsAre(Registered(64, "SN-64", 0)));
    EXPECT_EQ(Count(), 2u);
    EXPECT_TRUE(Logged(3, kModule, "log config file error at diskInfoCJson[2]"));
    EXPECT_TRUE(Logged(3, kModule, "Parse CJson to Disk Info fail, Vaild format (ret = -1)."));
}

TEST_F(RegistryFileTest, SaturatesNumbersAndCapacity)
{
    CJsonPtr entry = Entry();
    cJSON_SetNumberValue(cJSON_GetObjectItem(entry.get(), "frameId"), 5e9);
    cJSON_SetNumberValue(cJSON_GetObjectItem(entry.get(), "slotId"), -7);
    cJSON_SetNumberValue(cJSON_GetObjectItem(entry.get(), "sectorSize"), 512.9);
    cJSON_ReplaceItemInObject(entry.get(), "diskCapacity", cJSON_CreateString("99999999999999999999"));
    DiskMgrObj obj{};

    EXPECT_EQ(ParseCJson2DiskInfo(entry.get(), &obj), 0u);

    EXPECT_EQ(obj.frameId, 0xFFFFFFFFu);
    EXPECT_EQ(obj.slotId, 0u);
    EXPECT_EQ(obj.sectorSize, 512u);
    EXPECT_EQ(obj.diskCapacity, 0x7FFFFFFFFFFFFFFFu);
}

TEST_F(RegistryFileTest, WritesTheLargestCapacity)
{
    DiskMgrObj obj = Record(0, "SN");
    obj.diskCapacity = UINT64_MAX;
    const CJsonPtr entry(ConvertSingleDiskMgrObj2cJSON(&obj));

    EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(entry.get(), "diskCapacity")), "18446744073709551615");
}

TEST_F(RegistryFileTest, StaysInsideAFieldWithoutTerminator)
{
    DiskMgrObj obj = Record(0, "");
    std::memset(obj.sn, 'S', sizeof(obj.sn));
    const CJsonPtr entry(ConvertSingleDiskMgrObj2cJSON(&obj));

    EXPECT_EQ(std::string(cJSON_GetStringValue(cJSON_GetObjectItem(entry.get(), "sn"))), std::string(40, 'S'));
}

TEST_F(RegistryFileTest, RefusesNullPointers)
{
    DiskMgrObj obj{};
    DiskMgrObj *objs[1] = {nullptr};
    cJSON *json = nullptr;
    const CJsonPtr entry = Entry();

    EXPECT_EQ(ConvertSingleDiskMgrObj2cJSON(nullptr), nullptr);
    EXPECT_EQ(ConvertDiskMgrObjs2cJSON(nullptr, 1, &json), kFail);
    EXPECT_EQ(ConvertDiskMgrObjs2cJSON(objs, 1, nullptr), kFail);
    EXPECT_EQ(ParseCJson2DiskInfo(nullptr, &obj), kFail);
    EXPECT_EQ(ParseCJson2DiskInfo(entry.get(), nullptr), kFail);
    EXPECT_TRUE(Logged(3, kModule, "Check Disk Mgr Obj CJson Fail, Bad Param(NULL)."));
}

TEST_F(RegistryFileTest, AddStringComparesWhatItReadsBack)
{
    const CJsonPtr object(cJSON_CreateObject());
    ASSERT_EQ(DiskMgrAddStringToCJson(object.get(), "sn", "SN-A"), 0u);

    EXPECT_EQ(DiskMgrAddStringToCJson(object.get(), "SN", "SN-B"), kFail);
    EXPECT_EQ(DiskMgrAddStringToCJson(nullptr, "sn", "SN-B"), kFail);
    EXPECT_EQ(DiskMgrAddNumToCJson(nullptr, "diskId", 1), kFail);

    EXPECT_TRUE(Logged(3, kModule, "DiskMgrAddStringToCJson fail, valueName = SN value = SN-B"));
    EXPECT_TRUE(Logged(3, kModule, "DiskMgrAddStringToCJson fail, valueName = sn value = SN-B"));
    EXPECT_TRUE(Logged(3, kModule, "DiskMgrAddNumToCJson fail, cJSON_AddNumberToObject get NULL"));
}

TEST_F(RegistryFileTest, CheckListNamesEveryStepInOrder)
{
    const char *keys[] = {"diskId",     "diskState", "frameId",   "slotId",          "diskCapacity",
                          "sectorSize", "vendor",    "model",     "firmware",        "sn",
                          "pciAddr",    "diskType",  "mediaType", "Check Step Limit"};
    for (uint32_t step = 0; step < 14; step++) {
        EXPECT_EQ(g_diskConfigCjsonCheckList[step].step, step);
        EXPECT_STREQ(g_diskConfigCjsonCheckList[step].key, keys[step]);
    }
    EXPECT_EQ(g_diskConfigCjsonCheckList[13].check, CheckCJsonError);
}

TEST_F(RegistryFileTest, CheckFunctionsLogAndPassStepsThatAreNotTheirs)
{
    const CJsonPtr number(cJSON_CreateNumber(1e9));
    const CJsonPtr text(cJSON_CreateString("x"));

    EXPECT_EQ(CheckCJsonNumValue(number.get(), 13), 0u);
    EXPECT_EQ(CheckCJsonStrValue(text.get(), 13), 0u);
    EXPECT_EQ(CheckCJsonError(number.get(), 13), kFail);
    EXPECT_EQ(CheckCJsonNumValue(nullptr, 0), kFail);
    EXPECT_EQ(CheckCJsonStrValue(number.get(), 6), kFail);

    EXPECT_TRUE(Logged(4, kModule, "CheckCJsonNumValue Func input error param(13)."));
    EXPECT_TRUE(Logged(4, kModule, "CheckStrLenInLimit Func input error param(13)."));
    EXPECT_TRUE(Logged(4, kModule, "It Seem Check Step Not Match Number Need To Be Save"));
    EXPECT_TRUE(Logged(3, kModule, "Value number is not a number."));
    EXPECT_TRUE(Logged(3, kModule, "Value string not exist."));
}

TEST_F(RegistryFileTest, RangeExcludesItsUpperEnd)
{
    EXPECT_EQ(CheckUIntInRange(3, 3, 5), 0u);
    EXPECT_EQ(CheckUIntInRange(4, 3, 5), 0u);
    EXPECT_EQ(CheckUIntInRange(5, 3, 5), kFail);
    EXPECT_EQ(CheckUIntInRange(2, 3, 5), kFail);
    EXPECT_THAT(Logs(), IsEmpty());

    EXPECT_EQ(CheckUIntInRange(3, 3, 3), kFail);

    EXPECT_TRUE(Logged(4, kModule, "CheckUIntInRange Func input error param."));
}

TEST_F(RegistryFileTest, TextMustBeShorterThanItsLimit)
{
    EXPECT_EQ(CheckStrInLimitLength("abc", 4), 0u);
    EXPECT_EQ(CheckStrInLimitLength("abcd", 4), kFail);
    EXPECT_EQ(CheckStrInLimitLength(nullptr, 4), kFail);

    EXPECT_EQ(LogCount(3, kModule, "Value string len is beyond len limit."), 2u);
}

TEST_P(RegistryMemberTest, DecidesOverTheWholeFile)
{
    const MemberCase &member = GetParam();
    CJsonPtr entry = Entry();
    if (member.value.empty()) {
        cJSON_DeleteItemFromObject(entry.get(), member.key);
    } else {
        cJSON *value = cJSON_Parse(member.value.c_str());
        ASSERT_NE(value, nullptr);
        ASSERT_TRUE(cJSON_ReplaceItemInObject(entry.get(), member.key, value));
    }

    EXPECT_EQ(Load(List(std::move(entry))), member.passes ? 0u : kFail);

    EXPECT_EQ(Table().size(), member.passes ? 1u : 0u);
    const std::string failed = std::string("Check Disk Mgr Obj CJson Fail, (") + member.key + ").";
    EXPECT_EQ(Logged(3, kModule, failed), !member.passes);
    const std::string missing = std::string("Check Disk Mgr Obj CJson Fail, Member ") + member.key + " not exist.";
    EXPECT_EQ(Logged(3, kModule, missing), member.value.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Members, RegistryMemberTest,
    ::testing::Values(
        MemberCase{"DiskId127", "diskId", "127", true}, MemberCase{"DiskId128", "diskId", "128", false},
        MemberCase{"DiskIdFraction", "diskId", "127.9", true}, MemberCase{"DiskIdText", "diskId", "\"5\"", false},
        MemberCase{"DiskIdNull", "diskId", "null", false}, MemberCase{"DiskIdMissing", "diskId", "", false},
        MemberCase{"State1", "diskState", "1", true}, MemberCase{"State2", "diskState", "2", false},
        MemberCase{"State3", "diskState", "3", true}, MemberCase{"State4", "diskState", "4", true},
        MemberCase{"State5", "diskState", "5", false}, MemberCase{"StateMissing", "diskState", "", false},
        MemberCase{"FrameHuge", "frameId", "1e300", true}, MemberCase{"FrameText", "frameId", "\"1\"", false},
        MemberCase{"FrameMissing", "frameId", "", false}, MemberCase{"SlotNegative", "slotId", "-3", true},
        MemberCase{"SlotMissing", "slotId", "", false}, MemberCase{"SectorBool", "sectorSize", "true", false},
        MemberCase{"SectorMissing", "sectorSize", "", false}, MemberCase{"DiskType5", "diskType", "5", true},
        MemberCase{"DiskType6", "diskType", "6", false}, MemberCase{"DiskTypeMissing", "diskType", "", false},
        MemberCase{"MediaType5", "mediaType", "5", true}, MemberCase{"MediaType6", "mediaType", "6", false},
        MemberCase{"MediaTypeMissing", "mediaType", "", false},
        MemberCase{"CapacityTail", "diskCapacity", "\"12x\"", false},
        MemberCase{"CapacityEmpty", "diskCapacity", "\"\"", true},
        MemberCase{"CapacityNumber", "diskCapacity", "12", false},
        MemberCase{"Capacity29", "diskCapacity", "\"" + std::string(29, '0') + "\"", true},
        MemberCase{"Capacity30", "diskCapacity", "\"" + std::string(30, '0') + "\"", false},
        MemberCase{"CapacityMissing", "diskCapacity", "", false}, MemberCase{"Vendor9", "vendor", Text(9), true},
        MemberCase{"Vendor10", "vendor", Text(10), false}, MemberCase{"VendorMissing", "vendor", "", false},
        MemberCase{"Model43", "model", Text(43), true}, MemberCase{"Model44", "model", Text(44), false},
        MemberCase{"ModelMissing", "model", "", false}, MemberCase{"Firmware9", "firmware", Text(9), true},
        MemberCase{"Firmware10", "firmware", Text(10), false}, MemberCase{"FirmwareMissing", "firmware", "", false},
        MemberCase{"Sn39", "sn", Text(39), true}, MemberCase{"Sn40", "sn", Text(40), false},
        MemberCase{"SnNumber", "sn", "7", false}, MemberCase{"SnMissing", "sn", "", false},
        MemberCase{"Pci255", "pciAddr", Text(255), true}, MemberCase{"Pci256", "pciAddr", Text(256), false},
        MemberCase{"PciMissing", "pciAddr", "", false}),
    [](const ::testing::TestParamInfo<MemberCase> &param) { return param.param.name; });
