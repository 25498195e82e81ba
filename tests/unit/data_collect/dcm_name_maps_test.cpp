#include "data_collect/data_collect_master/dcm_name_maps.h"

#include <string>

#include "support/corvane_fixture.h"
#include "unit/data_collect/dcm_objects.h"

namespace {

using dcm_objects::Parse;

using NameMapsTest = CorvaneTest;

TEST_F(NameMapsTest, MethodsStandAtTheirMessageType)
{
    const char *const names[] = {"dca_get_disks_brief_info", "dca_get_disks_base_info", "dca_get_disks_health_info",
                                 "dca_get_disks_iostat"};

    for (uint32_t type = 0; type < MESSAGE_TYPE_BUTT; type++) {
        EXPECT_EQ(g_queryMethodNameMap[type].messageType, type);
        EXPECT_STREQ(g_queryMethodNameMap[type].name, names[type]);
    }
}

TEST_F(NameMapsTest, PeriodIsTwenty)
{
    EXPECT_EQ(g_ioTimePeriod, 20u);
}

struct NameCase {
    const char *name;
    uint32_t value;
};

using ConvertDiskTypeStr2EnumTest = CorvaneTest;

TEST_F(ConvertDiskTypeStr2EnumTest, FindsEveryNameInAnyCase)
{
    const NameCase cases[] = {{"SSD_NVMe", 0}, {"SSD_NVME", 0}, {"ssd_nvme", 0},  {"SSD_SAS", 1},
                              {"ssd_sas", 1},  {"SSD_SATA", 2}, {"HDD_SAS", 3},   {"hdd_sas", 3},
                              {"HDD_SATA", 4}, {"Hdd_Sata", 4}, {"HDD_NL_SAS", 5}};

    for (const NameCase &c : cases) {
        EXPECT_EQ(ConvertDiskTypeStr2Enum(c.name), c.value) << c.name;
    }
    EXPECT_TRUE(Logs().empty());
}

TEST_F(ConvertDiskTypeStr2EnumTest, GivesSixForAnythingElse)
{
    size_t calls = 0;
    for (const char *name : {"", "ERR TYPE", "SSD", "SSD_NVMe ", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(ConvertDiskTypeStr2Enum(name), 6u);
        calls++;
    }

    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM",
                       "ConvertDiskTypeStr2Enum is called without checkList or IsValidDiskType validation."),
              calls);
}

using ConvertDiskMediaTypeStr2EnumTest = CorvaneTest;

TEST_F(ConvertDiskMediaTypeStr2EnumTest, FindsEveryNameInAnyCase)
{
    const NameCase cases[] = {{"SLC", 0}, {"MLC", 1}, {"TLC", 2},    {"QLC", 3},
                              {"PLC", 4}, {"tlc", 2}, {"MAGNET", 5}, {"Magnet", 5}};

    for (const NameCase &c : cases) {
        EXPECT_EQ(ConvertDiskMediaTypeStr2Enum(c.name), c.value) << c.name;
    }
    EXPECT_TRUE(Logs().empty());
}

TEST_F(ConvertDiskMediaTypeStr2EnumTest, GivesSixForAnythingElse)
{
    size_t calls = 0;
    for (const char *name : {"", "XLC", "TLC2", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(ConvertDiskMediaTypeStr2Enum(name), 6u);
        calls++;
    }

    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM",
                       "ConvertDiskMediaTypeStr2Enum is called without checkList or IsValidDiskMediaType validation."),
              calls);
}

using ParseDiskVendorTest = CorvaneTest;

TEST_F(ParseDiskVendorTest, KnowsTheListedVendorsInAnyCase)
{
    for (const char *name : {"VELMAR", "velmar", "ORSTAN", "Orstan", "ORSYL", "orsyl", "0x1f7c", "0X1F7C"}) {
        const CJsonPtr item = Parse('"' + std::string(name) + '"');

        EXPECT_EQ(ParseDiskVendor(item.get()), 0u) << name;
    }
    EXPECT_TRUE(Logs().empty());
}

TEST_F(ParseDiskVendorTest, GivesOneForOtherTexts)
{
    for (const char *name : {"", "VELMAR ", "VELMA", "ATA", "1f7c"}) {
        const CJsonPtr item = Parse('"' + std::string(name) + '"');

        EXPECT_EQ(ParseDiskVendor(item.get()), 1u) << name;
    }
    EXPECT_TRUE(Logs().empty());
}

TEST_F(ParseDiskVendorTest, GivesTwoForWhatIsNoString)
{
    EXPECT_EQ(ParseDiskVendor(nullptr), 2u);
    EXPECT_EQ(ParseDiskVendor(Parse("7").get()), 2u);
    EXPECT_EQ(ParseDiskVendor(Parse("{}").get()), 2u);

    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", "Cannot parse NotStringJson to DiskVendor Enum"), 3u);
}

} // namespace
