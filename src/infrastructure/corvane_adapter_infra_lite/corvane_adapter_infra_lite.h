/**
 * @file corvane_adapter_infra_lite.h
 * @brief The adapter table for a process whose log is the host's, and the operations on the host's memory and locks.
 *
 * Owns the table g_corvaneInfra and the log level. Registration runs once on the starting thread; everything else may
 * be called by any thread. No lock is taken: one line of log is one call of the host's log, which serialises them.
 */
#ifndef CORVANE_ADAPTER_INFRA_LITE_H
#define CORVANE_ADAPTER_INFRA_LITE_H

#include "infrastructure/corvane_infra.h"

CORVANE_BEGIN_DECLS

/** Lines above this level are dropped unformatted. 7 until registration asks the host. */
extern CORVANE_API uint32_t g_infraLogLevel;
/**
 * Lets long messages through, in lines of 300 characters. Never written by the library: a host or a debugger sets it,
 * so it is read as an atomic.
 */
extern CORVANE_API bool g_debugLogSwitch;

/**
 * @brief Fill the table with the operating system's operations and the host's log.
 * @return Always 0.
 * @note Called once, before any other thread uses the table.
 */
CORVANE_API uint32_t CorvaneInfraRegisterInfraAdapter(void) CORVANE_NOEXCEPT;

/**
 * @brief One line to the host's log as "[module]message".
 *
 * A message of more than 510 characters, or of more than 8191 with g_debugLogSwitch set, is lost: a line at level 3
 * stands in its place.
 * @param[in] level   Above g_infraLogLevel nothing happens at all.
 * @param[in] module  Tag of the subsystem.
 */
CORVANE_API void CorvaneInfraLog(uint32_t level, const char *module, const char *file, uint32_t line, const char *func,
                                 const char *fmt, ...) CORVANE_NOEXCEPT CORVANE_PRINTF(6, 7);

/** @brief Memory of the host's heap, counted to module 999; null when there is none. */
CORVANE_API void *CorvaneInfraMalloc(uint64_t size) CORVANE_NOEXCEPT;
/** @brief Releases memory of CorvaneInfraMalloc(); null is ignored. */
CORVANE_API void CorvaneInfraFree(void *ptr) CORVANE_NOEXCEPT;

/** @return a checked spinlock of the host, or null with a log line when there is no memory. */
CORVANE_API void *CorvaneInfraSpinlockCreate(void) CORVANE_NOEXCEPT;
/** @brief Frees the lock; null is ignored. */
CORVANE_API void CorvaneInfraSpinlockDestroy(void *lock) CORVANE_NOEXCEPT;
/** @brief Null is ignored here and by the unlock. */
CORVANE_API void CorvaneInfraSpinlockLock(void *lock) CORVANE_NOEXCEPT;
CORVANE_API void CorvaneInfraSpinlockUnlock(void *lock) CORVANE_NOEXCEPT;
/** @return true if taken; false for null. */
CORVANE_API bool CorvaneInfraSpinlockTryLock(void *lock) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
