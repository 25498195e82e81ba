#include "infrastructure/corvane_time/corvane_time.h"

#include <array>
#include <cstddef>

#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/os_calls.h"

static_assert(sizeof(CorvaneTime) == 8 && offsetof(CorvaneTime, timeUnit) == 4, "passed by value in 64 bits");

namespace {

constexpr long kNanosecondsPerSecond = 1000000000L;

/** How a value of one unit becomes seconds and nanoseconds. Exactly one of the two factors is above 1. */
struct UnitScale {
    uint32_t unit;
    uint32_t perSecond;      /**< units in a second; 1 for units of a second and longer */
    uint32_t secondsPerUnit; /**< seconds in a unit; 1 for units of a second and shorter */
};

constexpr std::array<UnitScale, CORVANE_TIME_UNIT_BUTT> kUnitScales{{
    {CORVANE_TIME_NANOSECOND, 1000000000, 1},
    {CORVANE_TIME_MICROSECOND, 1000000, 1},
    {CORVANE_TIME_MILLISECOND, 1000, 1},
    {CORVANE_TIME_SECOND, 1, 1},
    {CORVANE_TIME_MINUTE, 1, 60},
    {CORVANE_TIME_HOUR, 1, 3600},
    {CORVANE_TIME_DAY, 1, 86400},
}};

consteval bool RowsMatchIndex()
{
    for (uint32_t i = 0; i < kUnitScales.size(); i++) {
        if (kUnitScales[i].unit != i || kUnitScales[i].perSecond == 0) {
            return false;
        }
    }
    return true;
}
static_assert(RowsMatchIndex(), "row i describes unit i");

} // namespace

extern "C" CORVANE_API struct timespec ConvertCorvaneTime2Timespec(CorvaneTime time) noexcept
{
    struct timespec result = {};
    if (time.timeUnit >= CORVANE_TIME_UNIT_BUTT) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "Time", "Input timeUnit(%d) >= BUTT", static_cast<int>(time.timeUnit));
        return result;
    }
    const UnitScale &scale = kUnitScales[time.timeUnit];
    result.tv_sec = static_cast<time_t>(time.value / scale.perSecond) * static_cast<time_t>(scale.secondsPerUnit);
    result.tv_nsec =
        static_cast<long>(time.value % scale.perSecond) * (kNanosecondsPerSecond / static_cast<long>(scale.perSecond));
    return result;
}

extern "C" CORVANE_API struct timeval ConvertCorvaneTime2Timeval(CorvaneTime time) noexcept
{
    const struct timespec span = ConvertCorvaneTime2Timespec(time);
    struct timeval result = {};
    result.tv_sec = span.tv_sec;
    result.tv_usec = span.tv_nsec / 1000;
    return result;
}

extern "C" CORVANE_API struct timespec GetCurrentInstantTimespec(void) noexcept
{
    struct timespec now = {};
    (void)g_osCalls.clockGettime(CLOCK_REALTIME, &now);
    return now;
}

extern "C" CORVANE_API struct timespec GetFutureInstantTimespec(CorvaneTime time) noexcept
{
    const struct timespec now = GetCurrentInstantTimespec();
    const struct timespec span = ConvertCorvaneTime2Timespec(time);
    struct timespec result = {};
    result.tv_sec = now.tv_sec + span.tv_sec;
    // Strictly greater: callers know a sum of exactly one second as an instant that timed waits refuse at once.
    if (span.tv_nsec > kNanosecondsPerSecond - now.tv_nsec) {
        result.tv_sec += 1;
        result.tv_nsec = now.tv_nsec + span.tv_nsec - kNanosecondsPerSecond;
    } else {
        result.tv_nsec = now.tv_nsec + span.tv_nsec;
    }
    return result;
}

extern "C" CORVANE_API struct timespec GetPastInstantTimespec(CorvaneTime time) noexcept
{
    const struct timespec now = GetCurrentInstantTimespec();
    const struct timespec span = ConvertCorvaneTime2Timespec(time);
    struct timespec result = {};
    result.tv_sec = now.tv_sec - span.tv_sec;
    result.tv_nsec = now.tv_nsec - span.tv_nsec;
    if (result.tv_nsec < 0) {
        result.tv_sec -= 1;
        result.tv_nsec += kNanosecondsPerSecond;
    }
    return result;
}
