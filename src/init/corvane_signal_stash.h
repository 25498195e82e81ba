/**
 * @file corvane_signal_stash.h
 * @brief Keeps a process's signal dispositions over the start of the library.
 *
 * Owns the stack g_signalHandlerStack. For one thread, the one that starts the library; takes no lock. May run before
 * there is a log.
 */
#ifndef CORVANE_SIGNAL_STASH_H
#define CORVANE_SIGNAL_STASH_H

#include <signal.h>
#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** One stashed disposition. 168 bytes. */
typedef struct SignalHandlerItem {
    struct SignalHandlerItem *next;
    int32_t signal;
    struct sigaction saved;
} SignalHandlerItem;

/** Last stashed first; null when nothing is stashed. */
extern CORVANE_API SignalHandlerItem *g_signalHandlerStack;

/**
 * @brief Remember what the process does on each signal. Signals that cannot be asked about are skipped.
 * @retval 0       Stashed.
 * @retval ENOMEM  No memory; what was stashed so far stays stashed.
 */
CORVANE_API int64_t StashProcessSignalHandler(void) CORVANE_NOEXCEPT;

/** @brief Put everything stashed back and empty the stack. @return always 0. */
CORVANE_API int64_t StashPopProcessSignalHandler(void) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
