/**
 * @file corvane_log.h
 * @brief The two forms of the log statement. C++ sources only; any thread, whatever locks it holds.
 */
#ifndef CORVANE_LOG_H
#define CORVANE_LOG_H

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "infrastructure/corvane_infra.h"

/** @brief Name of a log level as output shows it; "N/A" for 0, 1 and anything above 7. */
const char *CorvaneLogLevelName(uint32_t level) noexcept;

/** Plain form: for code that runs only after the adapter table has been filled. */
#define CORVANE_LOG(level, module, ...)                                                                                \
    g_corvaneInfra.log((level), (module), basename(__FILE__), __LINE__, __func__, __VA_ARGS__)

/** Checked form: prints to standard output as long as there is no log. */
#ifdef __cppcheck__ // which does not know __VA_OPT__
#define CORVANE_LOG_CHECKED(level, module, ...) CORVANE_LOG(level, module, __VA_ARGS__)
#else
#define CORVANE_LOG_CHECKED(level, module, fmt, ...)                                                                   \
    do {                                                                                                               \
        if (g_corvaneInfra.log != nullptr) {                                                                           \
            CORVANE_LOG(level, module, fmt __VA_OPT__(, ) __VA_ARGS__);                                                \
        } else {                                                                                                       \
            (void)std::printf("[" module "] %s : " fmt "\n", CorvaneLogLevelName(level) __VA_OPT__(, ) __VA_ARGS__);   \
            (void)std::fflush(stdout);                                                                                 \
        }                                                                                                              \
    } while (false)
#endif

#endif
