#include "ma/drm/framework/utils/drm_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/fake_host.h"

using ::testing::ElementsAre;

namespace {

constexpr uint64_t kWindow = 100;
constexpr uint64_t kInterval = 1000;

class DrmLogLimitAskTest : public FakeHostTest {
protected:
    DrmLogVerdict AskAt(uint64_t jiffies)
    {
        SetJiffies(jiffies);
        return DrmLogLimitAsk(&limit_, kWindow, kInterval);
    }
    /** Whether the line is written at this time, and nothing is reported. */
    bool Prints(uint64_t jiffies)
    {
        const DrmLogVerdict verdict = AskAt(jiffies);
        EXPECT_EQ(verdict.suppressed, 0u) << jiffies;
        return verdict.print;
    }

    DrmLogLimit limit_;
};

using DrmLogTest = FakeHostTest;
using DrmLogLimitedTest = FakeHostTest;

} // namespace

TEST_F(DrmLogLimitAskTest, OneLinePerWindow)
{
    EXPECT_TRUE(Prints(0));
    EXPECT_FALSE(Prints(0));
    EXPECT_FALSE(Prints(99));
    EXPECT_TRUE(Prints(100)) << "at the window's end, counted from the line";
    EXPECT_FALSE(Prints(199));
    EXPECT_TRUE(Prints(250));
    EXPECT_FALSE(Prints(349));
    EXPECT_TRUE(Prints(350));
}

TEST_F(DrmLogLimitAskTest, ReportsMissedLinesAtTheIntervalWithTheNextLine)
{
    EXPECT_TRUE(Prints(0));
    EXPECT_FALSE(Prints(1));
    EXPECT_FALSE(Prints(2));
    EXPECT_TRUE(Prints(999));

    const DrmLogVerdict verdict = AskAt(1099);

    EXPECT_TRUE(verdict.print);
    EXPECT_EQ(verdict.suppressed, 2u);

    EXPECT_FALSE(Prints(1100));
    EXPECT_TRUE(Prints(2098)) << "one jiffy before the next report";
    EXPECT_EQ(AskAt(2199).suppressed, 1u);
}

TEST_F(DrmLogLimitAskTest, ReportsExactlyAtTheInterval)
{
    EXPECT_TRUE(Prints(0));
    EXPECT_FALSE(Prints(1));

    EXPECT_EQ(AskAt(1000).suppressed, 1u);

    EXPECT_FALSE(Prints(1001));
    EXPECT_EQ(AskAt(2000).suppressed, 1u);
}

TEST_F(DrmLogLimitAskTest, NothingMissedIsNothingToReport)
{
    EXPECT_TRUE(Prints(0));
    EXPECT_TRUE(Prints(5000));
    EXPECT_FALSE(Prints(5001));

    EXPECT_EQ(AskAt(5100).suppressed, 1u) << "no report has put it off";
}

TEST_F(DrmLogLimitAskTest, WithinAWindowNothingIsReported)
{
    EXPECT_TRUE(Prints(950));
    EXPECT_FALSE(Prints(951));

    EXPECT_FALSE(Prints(1049)) << "the report waits for the window";

    EXPECT_EQ(AskAt(1050).suppressed, 2u);
}

TEST_F(DrmLogLimitAskTest, TheClockMayWrap)
{
    constexpr uint64_t end = 0xFFFFFFFFFFFFFFFF;
    limit_.last = end - 200;
    limit_.lastReport = end - 200;

    EXPECT_TRUE(Prints(end - 50));
    EXPECT_FALSE(Prints(end));
    EXPECT_FALSE(Prints(48));
    EXPECT_TRUE(Prints(49));
    EXPECT_EQ(AskAt(799).suppressed, 2u);
}

TEST_F(DrmLogLimitAskTest, ASmallClockPrintsTheFirstLine)
{
    EXPECT_TRUE(Prints(5));
    EXPECT_FALSE(Prints(104));
    EXPECT_TRUE(Prints(105));
}

TEST_F(DrmLogTest, GoesToTheFrameworksModuleWithItsPlace)
{
    DRM_LOG(CORVANE_LOG_WARN, "value %u", 7u);

    const std::vector<HostLine> lines = HostLog();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].module, 481u);
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(lines[0].file, "drm_log_test.cpp");
    EXPECT_EQ(lines[0].text, "value 7");
    EXPECT_EQ(lines[0].func, "TestBody");
    EXPECT_GT(lines[0].line, 1u);
}

TEST_F(DrmLogLimitedTest, WritesTheReportBeforeTheLine)
{
    // The place's words outlive the test: each run starts beyond the former.
    static uint64_t start = 10 * kInterval;
    start += 10 * kInterval;
    int line = 0;
    for (const uint64_t jiffies : {start, start + 1, start + 2, start + kWindow}) {
        SetJiffies(jiffies);
        line = __LINE__ + 1;
        DRM_LOG_LIMITED(CORVANE_LOG_ERROR, kWindow, kInterval, "noise %u", static_cast<uint32_t>(jiffies - start));
    }

    std::vector<std::string> texts;
    for (const HostLine &each : HostLog()) {
        EXPECT_EQ(each.level, 3u);
        texts.push_back(each.text);
    }
    EXPECT_THAT(texts,
                ElementsAre("noise 0", "print: 2 messages suppressed.TestBody,line=" + std::to_string(line) + ".",
                            "noise 100"));
}
