/**
 * @file corvane_bringup.h
 * @brief Turns configured switches into running tasks, after the last start-up step and when an operator turns one.
 *
 * Owns nothing. Runs on the thread that called InitCorvane() or on a command worker; takes no lock of its own.
 */
#ifndef CORVANE_BRINGUP_H
#define CORVANE_BRINGUP_H

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/**
 * @brief Start collecting from the SPDK agent and the kernel agent and scanning for disks, if "feature_switch" is 1.
 *
 * Reports in the log only. If one of the three cannot be started, none of them keeps running.
 */
CORVANE_API void StartQueryAgentScheduleTask(void) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
