#include "diagnose/corvane_trace_point.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

TEST(CorvaneTpInitTest, DoesNothing)
{
    CorvaneTpInit();
}

TEST(DcmReturnLinkErrTest, GivesTheNumberOfTheFailingStep)
{
    EXPECT_EQ(DcmReturnLinkErr("connect"), 22);
    EXPECT_EQ(DcmReturnLinkErr("send"), 32);
    EXPECT_EQ(DcmReturnLinkErr("recv"), 32);
    EXPECT_EQ(DcmReturnLinkErr("set_param"), 38);
}

TEST(DcmReturnLinkErrTest, GivesMinusOneForOtherModes)
{
    for (const char *mode : {"", "connec", "connect2", "Send", "set"}) {
        EXPECT_EQ(DcmReturnLinkErr(mode), -1) << mode;
    }
    EXPECT_EQ(DcmReturnLinkErr(nullptr), -1);
    EXPECT_EQ(DcmReturnLinkErr("send", 1, "further"), 32) << "further arguments are not looked at";
}

TEST(DrmReturnErrTest, SetsMinusOne)
{
    uint32_t out = 0;

    DrmReturnErr(nullptr, &out);

    EXPECT_EQ(out, 0xFFFFFFFFu);
}

TEST(DmgChangeWearTest, AgesADisk)
{
    struct {
        const char *mode;
        uint32_t wearInt;
        uint64_t powerOnHours;
    } const cases[] = {{"normal", 10, 3000}, {"90d", 90, 17270}, {"30d", 90, 5390}, {"1d", 99, 1970}};
    for (const auto &expected : cases) {
        DiskHealthInfo info{};
        info.wearFrac = 77;
        info.detail.raw[0] = 5;

        DmgChangeWear(expected.mode, &info);

        EXPECT_EQ(info.wearInt, expected.wearInt) << expected.mode;
        EXPECT_EQ(info.wearFrac, 0u) << expected.mode;
        EXPECT_EQ(info.powerOnHours, expected.powerOnHours) << expected.mode;
        EXPECT_EQ(info.detail.raw[0], 5u) << expected.mode;
    }
}

TEST(DmgChangeWearTest, LeavesTheRecordForAnUnknownMode)
{
    for (const char *mode : {"2d", "", "1", "1d ", static_cast<const char *>(nullptr)}) {
        DiskHealthInfo info{};
        info.wearInt = 1;
        info.wearFrac = 2;
        info.powerOnHours = 3;

        DmgChangeWear(mode, &info);

        EXPECT_EQ(info.wearInt, 1u);
        EXPECT_EQ(info.wearFrac, 2u);
        EXPECT_EQ(info.powerOnHours, 3u);
    }
}

TEST(DmgChangeCheckWhitelistTest, PassesForTrueAndFailsForFalse)
{
    const std::pair<const char *, uint32_t> cases[] = {{"true", 0}, {"false", 1}, {"", 9}, {"True", 9}, {nullptr, 9}};
    for (const auto &[mode, expected] : cases) {
        uint32_t out = 9;

        DmgChangeCheckWhitelist(mode, &out);

        EXPECT_EQ(out, expected) << (mode == nullptr ? "(null)" : mode);
    }
}

TEST(DmgChangeCheckWhitelistCacheTest, HasTheOppositeSense)
{
    const std::pair<const char *, uint8_t> cases[] = {{"true", 1}, {"false", 0}, {"", 9}, {"True", 9}, {nullptr, 9}};
    for (const auto &[mode, expected] : cases) {
        uint8_t out[2] = {9, 9};

        DmgChangeCheckWhitelistCache(mode, out);

        EXPECT_EQ(out[0], expected) << (mode == nullptr ? "(null)" : mode);
        EXPECT_EQ(out[1], 9u) << "one byte only";
    }
}
