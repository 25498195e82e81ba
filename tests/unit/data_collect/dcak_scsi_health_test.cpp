#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_scsi_health.h"

#include <array>

#include "unit/data_collect/dcak_fixture.h"

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

class SetSasSmartInfoTest : public DcakTest {
protected:
    SetSasSmartInfoTest() { AddDisk("sda", "X", 1); }
    CJsonPtr object_{cJSON_CreateObject()};
};

TEST_F(SetSasSmartInfoTest, VssdTellsInTheWordsOfOld)
{
    PlanCommand({CdbLogSense(0x2F), 256, 96, {}, nullptr, EIO});

    EXPECT_EQ(SetVssdSasSmartInfo("/dev/sda", object_.get()), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "exec ioctl failed, /dev/sda"));
    EXPECT_TRUE(Logged(3, "DCAK", "DcakGetHddSmartInfoCommon ERR /dev/sda"));
}

TEST_F(SetSasSmartInfoTest, HddLogPage)
{
    PlanLogPage(0, {0, 0, 0, 1, 0x2F});
    PlanLogPage(0x2F, {}, Outcome(7, 0));

    EXPECT_EQ(SetHddSmartInfo("/dev/sda", object_.get()), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "DcakGetHddSmartInfoIeLog ERR, /dev/sda"));
}

TEST_F(SetSasSmartInfoTest, HddRequestSense)
{
    PlanLogPage(0, {});
    PlanCommand({kCdbRequestSense, 256, 96, {}, Outcome(7, 0), 0});

    EXPECT_EQ(SetHddSmartInfo("/dev/sda", object_.get()), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "DcakGetHddSmartInfoCommon ERR, /dev/sda"));
}
