#include "infrastructure/corvane_time/corvane_time.h"

#include "support/corvane_fixture.h"

namespace {

struct timespec g_now;

int FixedClock(clockid_t clock, struct timespec *out)
{
    EXPECT_EQ(clock, CLOCK_REALTIME);
    *out = g_now;
    return 0;
}

struct SpanCase {
    const char *name;
    CorvaneTime span;
    time_t seconds;
    long nanoseconds;
};

void PrintTo(const SpanCase &value, std::ostream *out)
{
    *out << value.name;
}

} // namespace

class ConvertCorvaneTimeTest : public CorvaneTest, public ::testing::WithParamInterface<SpanCase> {};

TEST_P(ConvertCorvaneTimeTest, GivesSecondsAndNanoseconds)
{
    const SpanCase &expected = GetParam();

    const struct timespec result = ConvertCorvaneTime2Timespec(expected.span);

    EXPECT_EQ(result.tv_sec, expected.seconds);
    EXPECT_EQ(result.tv_nsec, expected.nanoseconds);
    EXPECT_TRUE(Logs().empty());
}

TEST_P(ConvertCorvaneTimeTest, GivesSecondsAndMicroseconds)
{
    const SpanCase &expected = GetParam();

    const struct timeval result = ConvertCorvaneTime2Timeval(expected.span);

    EXPECT_EQ(result.tv_sec, expected.seconds);
    EXPECT_EQ(result.tv_usec, expected.nanoseconds / 1000);
}

INSTANTIATE_TEST_SUITE_P(
    Units, ConvertCorvaneTimeTest,
    ::testing::Values(SpanCase{"Nanoseconds", {1500000001, CORVANE_TIME_NANOSECOND}, 1, 500000001},
                      SpanCase{"JustBelowASecond", {999999999, CORVANE_TIME_NANOSECOND}, 0, 999999999},
                      SpanCase{"Microseconds", {2000003, CORVANE_TIME_MICROSECOND}, 2, 3000},
                      SpanCase{"Milliseconds", {1500, CORVANE_TIME_MILLISECOND}, 1, 500000000},
                      SpanCase{"MaxMilliseconds", {UINT32_MAX, CORVANE_TIME_MILLISECOND}, 4294967, 295000000},
                      SpanCase{"Seconds", {90, CORVANE_TIME_SECOND}, 90, 0},
                      SpanCase{"Minutes", {3, CORVANE_TIME_MINUTE}, 180, 0},
                      SpanCase{"Hours", {2, CORVANE_TIME_HOUR}, 7200, 0},
                      SpanCase{"Days", {2, CORVANE_TIME_DAY}, 172800, 0},
                      SpanCase{"MaxDays", {UINT32_MAX, CORVANE_TIME_DAY}, 4294967295L * 86400L, 0},
                      SpanCase{"Zero", {0, CORVANE_TIME_MILLISECOND}, 0, 0}),
    [](const auto &test) { return test.param.name; });

class BadTimeUnitTest : public CorvaneTest, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(BadTimeUnitTest, IsLoggedAndGivesZero)
{
    const CorvaneTime span = {5, GetParam()};
    const std::string text = "Input timeUnit(" + std::to_string(static_cast<int>(GetParam())) + ") >= BUTT";

    const struct timespec result = ConvertCorvaneTime2Timespec(span);

    EXPECT_EQ(result.tv_sec, 0);
    EXPECT_EQ(result.tv_nsec, 0);
    EXPECT_EQ(LogCount(3, "Time", text), 1u);

    const struct timeval microseconds = ConvertCorvaneTime2Timeval(span);

    EXPECT_EQ(microseconds.tv_sec, 0);
    EXPECT_EQ(microseconds.tv_usec, 0);
    EXPECT_EQ(LogCount(3, "Time", text), 2u);
}

TEST_P(BadTimeUnitTest, IsPrintedWithoutALog)
{
    g_corvaneInfra = {};
    const std::string unit = std::to_string(static_cast<int>(GetParam()));

    ::testing::internal::CaptureStdout();
    const struct timespec result = ConvertCorvaneTime2Timespec({5, GetParam()});
    const std::string output = ::testing::internal::GetCapturedStdout();

    EXPECT_EQ(result.tv_sec, 0);
    EXPECT_EQ(result.tv_nsec, 0);
    EXPECT_EQ(output, "[Time] ERROR : Input timeUnit(" + unit + ") >= BUTT\n");
}

INSTANTIATE_TEST_SUITE_P(Units, BadTimeUnitTest, ::testing::Values(7u, 9u, UINT32_MAX));

class InstantTest : public CorvaneTest {
protected:
    InstantTest() { g_osCalls.clockGettime = FixedClock; }
};

TEST_F(InstantTest, CurrentIsTheRealTimeClock)
{
    g_now = {1700000000, 123456789};

    const struct timespec now = GetCurrentInstantTimespec();

    EXPECT_EQ(now.tv_sec, 1700000000);
    EXPECT_EQ(now.tv_nsec, 123456789);
}

TEST_F(InstantTest, FutureAddsWithoutCarry)
{
    g_now = {100, 400000000};

    const struct timespec result = GetFutureInstantTimespec({1599, CORVANE_TIME_MILLISECOND});

    EXPECT_EQ(result.tv_sec, 101);
    EXPECT_EQ(result.tv_nsec, 999000000);
}

TEST_F(InstantTest, FutureCarriesAboveOneSecond)
{
    g_now = {100, 400000001};

    const struct timespec result = GetFutureInstantTimespec({600, CORVANE_TIME_MILLISECOND});

    EXPECT_EQ(result.tv_sec, 101);
    EXPECT_EQ(result.tv_nsec, 1);
}

TEST_F(InstantTest, FutureLeavesASumOfExactlyOneSecondUncarried)
{
    g_now = {100, 400000000};

    const struct timespec result = GetFutureInstantTimespec({600, CORVANE_TIME_MILLISECOND});

    EXPECT_EQ(result.tv_sec, 100);
    EXPECT_EQ(result.tv_nsec, 1000000000);
}

TEST_F(InstantTest, PastSubtracts)
{
    g_now = {100, 400000000};

    const struct timespec result = GetPastInstantTimespec({1400, CORVANE_TIME_MILLISECOND});

    EXPECT_EQ(result.tv_sec, 99);
    EXPECT_EQ(result.tv_nsec, 0);
}

TEST_F(InstantTest, PastBorrowsASecond)
{
    g_now = {100, 400000000};

    const struct timespec result = GetPastInstantTimespec({1401, CORVANE_TIME_MILLISECOND});

    EXPECT_EQ(result.tv_sec, 98);
    EXPECT_EQ(result.tv_nsec, 999000000);
}
