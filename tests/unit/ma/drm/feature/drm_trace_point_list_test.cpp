#include "ma/drm/feature/drm_trace_point_list.h"

#include <gtest/gtest.h>
#include <string>

TEST(DrmTracePointLookUpTest, FindsADiskAnywhereInTheList)
{
    for (const char *list : {"5", "5,6", "6,5", "6,5,7", "6,,5", ",5", "5,", "x,5", "005"}) {
        EXPECT_EQ(DrmTracePointLookUp(list, 5), DrmTracePointMatch::LISTED) << list;
    }
}

TEST(DrmTracePointLookUpTest, PassesOverOtherWords)
{
    for (const char *list : {"6", "55", "15", "5x", "x5", "-5", "+5", "5.0", ",", "x", "4294967301", " "}) {
        EXPECT_EQ(DrmTracePointLookUp(list, 5), DrmTracePointMatch::NO) << list;
    }
    EXPECT_EQ(DrmTracePointLookUp("x,", 0), DrmTracePointMatch::NO);
    EXPECT_EQ(DrmTracePointLookUp("4294967295", 0xFFFFFFFFu), DrmTracePointMatch::LISTED);
}

TEST(DrmTracePointLookUpTest, AnEmptyListIsNotAMissingOne)
{
    EXPECT_EQ(DrmTracePointLookUp("", 5), DrmTracePointMatch::EMPTY);
    EXPECT_EQ(DrmTracePointLookUp(nullptr, 5), DrmTracePointMatch::NO);
}

TEST(DrmTracePointLookUpTest, TakesThirtyOneCharacters)
{
    const std::string longest = "5," + std::string(29, '1');
    ASSERT_EQ(longest.size(), 31u);

    EXPECT_EQ(DrmTracePointLookUp(longest.c_str(), 5), DrmTracePointMatch::LISTED);
    EXPECT_EQ(DrmTracePointLookUp((longest + "1").c_str(), 5), DrmTracePointMatch::NO);
}
