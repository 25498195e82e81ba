#include "common/service_manager.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <unistd.h>

namespace {

struct WatchdogCase {
    const char *name;
    const char *microseconds;
    std::string process; // empty: not set
    long periodMs;
};

class WatchdogPeriodMsTest : public ::testing::TestWithParam<WatchdogCase> {
protected:
    ~WatchdogPeriodMsTest() override
    {
        (void)unsetenv("WATCHDOG_USEC");
        (void)unsetenv("WATCHDOG_PID");
    }
};

void PrintTo(const WatchdogCase &value, std::ostream *out)
{
    *out << value.name;
}

} // namespace

TEST_P(WatchdogPeriodMsTest, IsHalfOfWhatTheManagerAllows)
{
    if (GetParam().microseconds != nullptr) {
        (void)setenv("WATCHDOG_USEC", GetParam().microseconds, 1);
    }
    if (!GetParam().process.empty()) {
        (void)setenv("WATCHDOG_PID", GetParam().process.c_str(), 1);
    }

    EXPECT_EQ(WatchdogPeriodMs(), GetParam().periodMs);
}

INSTANTIATE_TEST_SUITE_P(Variables, WatchdogPeriodMsTest,
                         ::testing::Values(WatchdogCase{"Unset", nullptr, "", 0}, WatchdogCase{"Empty", "", "", 0},
                                           WatchdogCase{"Zero", "0", "", 0},
                                           WatchdogCase{"TwoMinutes", "120000000", "", 60000},
                                           WatchdogCase{"OneMicrosecond", "1", "", 1},
                                           WatchdogCase{"Negative", "-1", "", 0}, WatchdogCase{"Blank", " 5000", "", 0},
                                           WatchdogCase{"Tail", "5000x", "", 0},
                                           WatchdogCase{"TooLarge", "99999999999999999999", "", 0},
                                           WatchdogCase{"ThisProcess", "120000000", std::to_string(getpid()), 60000},
                                           WatchdogCase{"AnotherProcess", "120000000", "1", 0},
                                           WatchdogCase{"NoProcess", "120000000", "self", 0}),
                         [](const auto &test) { return std::string(test.param.name); });
