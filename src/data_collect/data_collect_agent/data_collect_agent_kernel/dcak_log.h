/**
 * @file dcak_log.h
 * @brief Log statements of the kernel agent. C++ sources only.
 *
 * The agent may be started by a process that has not filled the adapter table, so all of them are the checked form.
 */
#ifndef DCAK_LOG_H
#define DCAK_LOG_H

#include "infrastructure/common/corvane_log.h"

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_server.h"

/** A failure. */
#define DCAK_LOG_FAILURE(...) CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DCAK", __VA_ARGS__)
/** An operator has changed how the agent behaves. */
#define DCAK_LOG_SWITCH(...) CORVANE_LOG_CHECKED(CORVANE_LOG_EVENT, "DCAK", __VA_ARGS__)
/** Course of the work, once for each request or command. */
#define DCAK_LOG_COURSE(...) CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "DCAK", __VA_ARGS__)
/** Details that are logged only while the agent's debug switch is on. */
#define DCAK_LOG_DETAIL(...)                                                                                           \
    do {                                                                                                               \
        if (DcakSwitchIsOn(&g_DCAK_DEBUG_SWITCH)) {                                                                    \
            CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "DCAK", __VA_ARGS__);                                               \
        }                                                                                                              \
    } while (false)

/** @brief Read a switch that any thread may flip at this moment. */
inline bool DcakSwitchIsOn(const uint32_t *state) noexcept
{
    return __atomic_load_n(state, __ATOMIC_RELAXED) != 0;
}

#endif
