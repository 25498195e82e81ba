#include "data_mgr/data_mgr_master/data_mgr_white_list.h"

#include "unit/data_mgr/data_mgr_master/data_mgr_fixture.h"

using data_mgr_test::DataMgrBareTest;
using data_mgr_test::MakeRecord;
using data_mgr_test::Sn;

namespace {

struct Admission {
    uint32_t type;
    const char *vendor;
    const char *model;
    uint32_t ret;
};

/** Puts the table back after a test that breaks it. */
class TableRestorer {
public:
    TableRestorer() { std::memcpy(saved_, g_diskAdmissionTable, sizeof(saved_)); }
    ~TableRestorer() { std::memcpy(g_diskAdmissionTable, saved_, sizeof(saved_)); }
    TableRestorer(const TableRestorer &) = delete;
    TableRestorer &operator=(const TableRestorer &) = delete;

private:
    DiskAdmissionRow saved_[DISK_ADMISSION_ROWS];
};

} // namespace

class CheckInWhiteListTest : public CorvaneTest, public ::testing::WithParamInterface<Admission> {};
class BrokenPatternTest : public DataMgrBareTest {};
class AddSnToNonWhiteListTest : public DataMgrBareTest {};
class IsInWhiteListTest : public DataMgrBareTest {};

INSTANTIATE_TEST_SUITE_P(
    Rows, CheckInWhiteListTest,
    ::testing::Values(Admission{2, "ATA", "VSSD-1", 0}, Admission{2, "ATA", "VSSD-", 0}, Admission{2, "ATA", "VLR", 0},
                      Admission{2, "ATA", "VLR9000", 0}, Admission{2, "ATA", "VL-SAS7", 0},
                      Admission{2, "ATA", "VSSD", 1}, Admission{2, "ATA", "XVSSD-1", 1},
                      Admission{2, "ATA", "VL-SATA", 1}, Admission{2, "ATA", "", 1}, Admission{2, "ATA ", "VSSD-1", 1},
                      Admission{2, "ata", "VSSD-1", 1}, Admission{2, "VELMAR", "VSSD-1", 1},
                      Admission{0, "VELMAR", "anything", 0}, Admission{0, "0x1f7c", "", 0},
                      Admission{0, "0x1f7c1", "m", 1}, Admission{0, "VELMARX", "m", 1}, Admission{0, "ORSTAN", "m", 1},
                      Admission{0, "ATA", "VSSD-1", 1}, Admission{1, "VELMAR", "m", 0}, Admission{1, "0x1f7c", "m", 0},
                      Admission{1, "ORSTAN", "m", 0}, Admission{1, "ORSYL", "m", 0}, Admission{1, "ORSYLX", "m", 1},
                      Admission{1, "XORSYL", "m", 1}, Admission{1, "WD", "m", 1}, Admission{3, "WD", "m", 0},
                      Admission{3, "Western Digital", "m", 0}, Admission{3, "SEAGATE", "m", 0},
                      Admission{3, "TOSHIBA", "m", 0}, Admission{3, "WDC", "m", 1}, Admission{3, "Western", "m", 1},
                      Admission{3, "Seagate", "m", 1}, Admission{3, "VELMAR", "m", 1}, Admission{4, "ATA", "VSSD-1", 1},
                      Admission{4, "WD", "m", 1}, Admission{5, "SEAGATE", "m", 1}, Admission{5, "VELMAR", "m", 1},
                      Admission{6, "VELMAR", "m", 1}, Admission{0, "", "", 1}));

TEST_P(CheckInWhiteListTest, JudgesTypeVendorAndModel)
{
    const Admission &c = GetParam();

    EXPECT_EQ(CheckInWhiteList(c.vendor, c.model, c.type), c.ret) << c.type << " " << c.vendor << " " << c.model;
}

TEST_F(BrokenPatternTest, NullTextsMatchNothing)
{
    EXPECT_EQ(CheckInWhiteList(nullptr, "m", 0), WHITE_LIST_NO_MATCH);
    EXPECT_EQ(CheckInWhiteList("VELMAR", nullptr, 0), WHITE_LIST_NO_MATCH);
}

TEST_F(BrokenPatternTest, TableHasFourRowsOfEightyBytes)
{
    EXPECT_EQ(sizeof(g_diskAdmissionTable), 320u);
    EXPECT_STREQ(g_diskAdmissionTable[0].vendor, "^ATA$");
    EXPECT_STREQ(g_diskAdmissionTable[0].model, "^((VSSD-)|(VLR)|(VL-SAS)).*");
    EXPECT_STREQ(g_diskAdmissionTable[1].vendor, "^VELMAR$|^0x1f7c$");
    EXPECT_STREQ(g_diskAdmissionTable[2].vendor, "^VELMAR$|^0x1f7c$|^ORSTAN$|^ORSYL$");
    EXPECT_STREQ(g_diskAdmissionTable[3].vendor, "^WD$|^Western Digital$|^SEAGATE$|^TOSHIBA$");
}

TEST_F(BrokenPatternTest, EndsTheSearchWithoutCaching)
{
    const TableRestorer restorer;
    std::strcpy(g_diskAdmissionTable[1].model, "(");
    DiskMgrObj record = MakeRecord("SN-X", DISK_TYPE_SSD_SAS, "ORSYL");

    EXPECT_EQ(CheckInWhiteList("ATA", "VLR", DISK_TYPE_SSD_SATA), 0u); // a row before the broken one
    EXPECT_EQ(CheckInWhiteList("ORSYL", "m", DISK_TYPE_SSD_SAS), WHITE_LIST_BAD_PATTERN);
    EXPECT_FALSE(IsInWhiteList(Sn("SN-X"), &record, DISK_INFO_BASE));

    EXPECT_TRUE(LoggedText("Check whiteList unknown error."));
    EXPECT_FALSE(IsInNonWhiteListSn("SN-X"));
}

TEST_F(BrokenPatternTest, VendorPatternCountsAsWell)
{
    const TableRestorer restorer;
    std::strcpy(g_diskAdmissionTable[0].vendor, "[");

    EXPECT_EQ(CheckInWhiteList("VELMAR", "m", DISK_TYPE_SSD_NVME), WHITE_LIST_BAD_PATTERN);
}

TEST_F(AddSnToNonWhiteListTest, NewestStandsFirst)
{
    EXPECT_EQ(AddSnToNonWhiteList("A"), 0u);
    EXPECT_EQ(AddSnToNonWhiteList("B"), 0u);

    ASSERT_NE(g_nonWhiteListSnHead, nullptr);
    EXPECT_STREQ(g_nonWhiteListSnHead->sn, "B");
    EXPECT_STREQ(g_nonWhiteListSnHead->next->sn, "A");
    EXPECT_TRUE(IsInNonWhiteListSn("A"));
    EXPECT_TRUE(LoggedText("Current sn (A) in NonWhiteListSnNode"));
    EXPECT_FALSE(IsInNonWhiteListSn("AB"));
    EXPECT_FALSE(IsInNonWhiteListSn(""));
}

TEST_F(AddSnToNonWhiteListTest, TakesSixtyFour)
{
    for (int i = 0; i < 64; i++) {
        ASSERT_EQ(AddSnToNonWhiteList(("SN" + std::to_string(i)).c_str()), 0u);
    }

    EXPECT_EQ(AddSnToNonWhiteList("SN64"), WHITE_LIST_ERR_FAIL);

    EXPECT_TRUE(LoggedText("nonWhiteListSnNode cache is full"));
    EXPECT_TRUE(IsInNonWhiteListSn("SN0"));
    EXPECT_FALSE(IsInNonWhiteListSn("SN64"));
}

TEST_F(AddSnToNonWhiteListTest, TakesTwentyNineCharactersAtMost)
{
    const std::string longest(29, 'a');

    EXPECT_EQ(AddSnToNonWhiteList(longest.c_str()), 0u);
    EXPECT_EQ(AddSnToNonWhiteList((longest + "b").c_str()), WHITE_LIST_ERR_FAIL);

    EXPECT_TRUE(IsInNonWhiteListSn(longest.c_str()));
    EXPECT_EQ(TextCount("copy nonWhiteListSnNode sn failed"), 1u);
    EXPECT_EQ(g_nonWhiteListSnCount, 1u);
}

TEST_F(AddSnToNonWhiteListTest, ReportsLackOfMemory)
{
    doubles_.noMemory = true;

    ProcessNonWhitelist("SN", "V", "M", WHITE_LIST_NO_MATCH);

    EXPECT_TRUE(
        Logged(CORVANE_LOG_DEBUG, data_mgr_test::kModule, "Current sn (SN) not in whitelist. vendor(V), model(M)"));
    EXPECT_TRUE(LoggedText("malloc nonWhiteListSnNode failed"));
    EXPECT_TRUE(LoggedText("AddSnToNonWhiteList fail"));
}

TEST_F(IsInWhiteListTest, JudgesTheGivenBaseRecord)
{
    DiskMgrObj good = MakeRecord("SN-G");
    DiskMgrObj bad = MakeRecord("SN-B", DISK_TYPE_HDD_SATA, "ATA", "VSSD-1");

    EXPECT_TRUE(IsInWhiteList(Sn("SN-G"), &good, DISK_INFO_BASE));
    EXPECT_FALSE(IsInWhiteList(Sn("SN-B"), &bad, DISK_INFO_BASE));

    EXPECT_TRUE(LoggedText("Current sn (SN-G) in whitelist. vendor(VELMAR), model(MODEL)"));
    EXPECT_TRUE(LoggedText("Current sn (SN-B) not in whitelist. vendor(ATA), model(VSSD-1)"));
    EXPECT_TRUE(IsInNonWhiteListSn("SN-B"));
    EXPECT_TRUE(doubles_.fetches.empty());
}

TEST_F(IsInWhiteListTest, CachedSerialNumberIsRefusedUnseen)
{
    DiskMgrObj good = MakeRecord("SN-G");
    ASSERT_EQ(AddSnToNonWhiteList("SN-G"), 0u);

    EXPECT_FALSE(IsInWhiteList(Sn("SN-G"), &good, DISK_INFO_BASE));
    EXPECT_FALSE(IsInWhiteList(Sn("SN-G"), nullptr, DISK_INFO_HEALTH));

    EXPECT_TRUE(doubles_.fetches.empty());
}

TEST_F(IsInWhiteListTest, BaseRecordThatCannotBeCopiedIsRefused)
{
    EXPECT_FALSE(IsInWhiteList(Sn("SN-G"), nullptr, DISK_INFO_BASE));

    EXPECT_TRUE(LoggedText("IsInWhiteList copy baseInfo error"));
    EXPECT_EQ(g_nonWhiteListSnCount, 0u);
}

TEST_F(IsInWhiteListTest, OtherRecordsAskTheAgent)
{
    Offer(MakeRecord("SN-G"));

    EXPECT_TRUE(IsInWhiteList(Sn("SN-G"), nullptr, DISK_INFO_HEALTH));

    EXPECT_EQ(doubles_.fetches, std::vector<std::string>{"SN-G"});
}

TEST_F(IsInWhiteListTest, FailedFetchJudgesAnEmptyRecord)
{
    EXPECT_FALSE(IsInWhiteList(Sn("SN-?"), nullptr, DISK_INFO_IO));

    EXPECT_TRUE(LoggedText("Current sn (SN-?) not in whitelist. vendor(), model()"));
    EXPECT_TRUE(IsInNonWhiteListSn("SN-?"));
}

TEST_F(IsInWhiteListTest, TextsWithoutTerminatorAreBounded)
{
    DiskMgrObj record;
    std::memset(&record, 'v', sizeof(record));

    EXPECT_FALSE(IsInWhiteList({.len = DISK_SN_SIZE, .buf = record.sn}, &record, DISK_INFO_BASE));

    EXPECT_TRUE(LoggedText("Current sn (" + std::string(40, 'v') + ") not in whitelist. vendor(" +
                           std::string(10, 'v') + "), model(" + std::string(44, 'v') + ")"));
    EXPECT_TRUE(LoggedText("copy nonWhiteListSnNode sn failed"));
}
