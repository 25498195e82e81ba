/**
 * @file corvane_time.h
 * @brief Time spans and instants. No state, no lock; any thread.
 */
#ifndef CORVANE_TIME_H
#define CORVANE_TIME_H

#include <stdint.h>
#include <sys/time.h>
#include <time.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

enum CorvaneTimeUnit {
    CORVANE_TIME_NANOSECOND,
    CORVANE_TIME_MICROSECOND,
    CORVANE_TIME_MILLISECOND,
    CORVANE_TIME_SECOND,
    CORVANE_TIME_MINUTE,
    CORVANE_TIME_HOUR,
    CORVANE_TIME_DAY,
    CORVANE_TIME_UNIT_BUTT,
};

/** A time span, passed by value in 64 bits. */
typedef struct CorvaneTime {
    uint32_t value;
    uint32_t timeUnit; /**< enum CorvaneTimeUnit */
} CorvaneTime;

/** @brief A span as seconds and nanoseconds; a bad unit is logged and gives zero. */
CORVANE_API struct timespec ConvertCorvaneTime2Timespec(CorvaneTime time) CORVANE_NOEXCEPT;
/** @brief A span as seconds and microseconds; a bad unit is logged and gives zero. */
CORVANE_API struct timeval ConvertCorvaneTime2Timeval(CorvaneTime time) CORVANE_NOEXCEPT;
/** @brief Now, on the real-time clock. */
CORVANE_API struct timespec GetCurrentInstantTimespec(void) CORVANE_NOEXCEPT;
/** @brief Now plus a span. A sum of exactly 1000000000 nanoseconds is not carried, see the source. */
CORVANE_API struct timespec GetFutureInstantTimespec(CorvaneTime time) CORVANE_NOEXCEPT;
/** @brief Now minus a span. */
CORVANE_API struct timespec GetPastInstantTimespec(CorvaneTime time) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
