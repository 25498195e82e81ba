#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_trace_point.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/disk_prefail_routine_corvane_adapter.h"

namespace {

using TracePoint = void (*)(const char *list, uint32_t *hit, uint32_t diskId, void *output);

/** A trace point and what it makes of an output full of 0xFF. */
struct Case {
    const char *name;
    TracePoint function;
    std::array<uint8_t, 8> expected;
};

void PrintTo(const Case &value, std::ostream *out)
{
    *out << value.name;
}

constexpr std::array<uint8_t, 8> kUntouched = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

class DprTracePointTest : public ::testing::TestWithParam<Case> {
protected:
    /** What a call leaves in the flag. */
    uint32_t Call(const char *list, uint32_t diskId)
    {
        uint32_t hit = 0;
        output_ = kUntouched;
        GetParam().function(list, &hit, diskId, output_.data());
        return hit;
    }

    std::array<uint8_t, 8> output_{};
};

} // namespace

TEST_P(DprTracePointTest, BendsTheDataOfAListedDisk)
{
    for (const char *list : {"7", "1,7", "7,1", "70,7,17"}) {
        EXPECT_EQ(Call(list, 7), 1u) << list;
        EXPECT_EQ(output_, GetParam().expected) << list;
    }
}

TEST_P(DprTracePointTest, BendsTheDataOfEveryDiskForAnEmptyList)
{
    EXPECT_EQ(Call("", 7), 1u);

    EXPECT_EQ(output_, GetParam().expected);
}

TEST_P(DprTracePointTest, LeavesOtherDisksAlone)
{
    const std::string longest = "100,101,102,103,104,105,106,7,8";
    ASSERT_EQ(longest.size(), 31u);
    EXPECT_EQ(Call(longest.c_str(), 7), 1u);
    EXPECT_EQ(Call((longest + "9").c_str(), 7), 0u) << "too long";
    EXPECT_EQ(output_, kUntouched);
    for (const char *list : {"1", "70", "17", "1,2,3"}) {
        EXPECT_EQ(Call(list, 7), 0u) << list;
        EXPECT_EQ(output_, kUntouched) << list;
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, DprTracePointTest,
    ::testing::Values(Case{"SataSmart", DrmDprSetSataSmartEntrysPrefail, {1, 1, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}},
                      Case{"SasSsd", DrmDprSetSasSsdEntrysPrefail, {0x5D, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
                      Case{"SasVssd", DrmDprSetSasVssdEntrysPrefail, {242, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
                      Case{"Nvme", DrmDprSetNvmeEntrysPrefail, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
                      Case{"NlSasHdd", DrmDprSetNlSasHddEntrysPrefail, {0x5D, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
                      Case{"DiskFail", DrmDprDiskFailTp, kUntouched}),
    [](const auto &test) { return std::string(test.param.name); });

TEST(DrmDprSetNvmeEntrysPrefailTest, SetsTheReadOnlyBitAlone)
{
    uint32_t hit = 0;
    uint8_t warning = 0;

    DrmDprSetNvmeEntrysPrefail("", &hit, 7, &warning);

    EXPECT_EQ(warning, 1u << 3);
}

TEST(DrmDprDiskFailTpTest, NeedsNoOutput)
{
    uint32_t hit = 0;

    DrmDprDiskFailTp("7", &hit, 7, nullptr);

    EXPECT_EQ(hit, 1u);
}
