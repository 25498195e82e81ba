/**
 * @file corvane_adapter_os.h
 * @brief The operating system's operations as the adapter table offers them.
 *
 * Owns nothing but what its callers create. Every function may be called by any thread and takes no lock of the
 * library. Handles are heap memory of table slot 0 and go back through slot 1; a null handle is ignored by the
 * destroying functions and makes every other function fail or do nothing.
 */
#ifndef CORVANE_ADAPTER_OS_H
#define CORVANE_ADAPTER_OS_H

#include "infrastructure/corvane_infra.h"

CORVANE_BEGIN_DECLS

/** @brief Memory of @p size bytes, not zeroed; null when there is none. */
CORVANE_API void *CorvaneOsMalloc(uint64_t size) CORVANE_NOEXCEPT;
/** @brief Releases memory of CorvaneOsMalloc(); null is ignored. */
CORVANE_API void CorvaneOsFree(void *ptr) CORVANE_NOEXCEPT;

/**
 * @brief Start a thread that runs @p entry, then @p callback.
 * @param[in] entry     Runs first with param.entryArg; may be null.
 * @param[in] callback  Runs on the same thread after the entry, with param.callbackArg; may be null.
 * @param[in] param     With joinable set the call returns only after the thread has ended; otherwise it is detached.
 * @return The thread's handle, or 0: no memory or no thread. Then neither function has run.
 */
CORVANE_API uint64_t CorvaneOsThreadCreate(CorvaneThreadFunc entry, CorvaneThreadFunc callback,
                                           CorvaneThreadParam param) CORVANE_NOEXCEPT;
CORVANE_API void CorvaneOsThreadYield(void) CORVANE_NOEXCEPT;
/** @brief Sleep once; a signal ends the sleep early. A bad unit is logged and does not sleep. */
CORVANE_API void CorvaneOsThreadSleep(CorvaneTime time) CORVANE_NOEXCEPT;

/** @return a semaphore with @p initial units, or null when there is no memory. */
CORVANE_API void *CorvaneOsSemCreate(uint32_t initial) CORVANE_NOEXCEPT;
CORVANE_API void CorvaneOsSemDestroy(void *sem) CORVANE_NOEXCEPT;
/** @brief Take one unit, waiting for it as long as it needs; signals do not end the wait. */
CORVANE_API void CorvaneOsSemDown(void *sem) CORVANE_NOEXCEPT;
CORVANE_API void CorvaneOsSemUp(void *sem) CORVANE_NOEXCEPT;
/** @return true if a unit was taken. */
CORVANE_API bool CorvaneOsSemTryDown(void *sem) CORVANE_NOEXCEPT;
/** @brief Take one unit, waiting for @p time at most, by the real-time clock. @return true if it was taken. */
CORVANE_API bool CorvaneOsSemTryDownWithinTimeout(void *sem, CorvaneTime time) CORVANE_NOEXCEPT;

/** @return a 64-bit cell, or null with a log line when there is no memory. All accesses are sequentially consistent. */
CORVANE_API void *CorvaneOsAtomicCreate(uint64_t initial) CORVANE_NOEXCEPT;
/** @brief Puts 0x7fffffffffffffff into the cell, then frees it. */
CORVANE_API void CorvaneOsAtomicDestroy(void *atomic) CORVANE_NOEXCEPT;
CORVANE_API uint64_t CorvaneOsAtomicGet(void *atomic) CORVANE_NOEXCEPT;
CORVANE_API void CorvaneOsAtomicSet(void *atomic, uint64_t value) CORVANE_NOEXCEPT;
/** @brief One weak compare-exchange. @return true if @p desired was stored; a spurious failure gives false as well. */
CORVANE_API bool CorvaneOsAtomicCompareAndSet(void *atomic, uint64_t expected, uint64_t desired) CORVANE_NOEXCEPT;
/** @return the new value, as do the next two. */
CORVANE_API uint64_t CorvaneOsAtomicAddAndGet(void *atomic, uint64_t delta) CORVANE_NOEXCEPT;
CORVANE_API uint64_t CorvaneOsAtomicIncrementAndGet(void *atomic) CORVANE_NOEXCEPT;
CORVANE_API uint64_t CorvaneOsAtomicDecrementAndGet(void *atomic) CORVANE_NOEXCEPT;

/** @return an unlocked spinlock, or null when there is no memory. */
CORVANE_API void *CorvaneOsSpinlockCreate(void) CORVANE_NOEXCEPT;
CORVANE_API void CorvaneOsSpinlockDestroy(void *lock) CORVANE_NOEXCEPT;
CORVANE_API void CorvaneOsSpinlockLock(void *lock) CORVANE_NOEXCEPT;
CORVANE_API void CorvaneOsSpinlockUnlock(void *lock) CORVANE_NOEXCEPT;
/** @return true if taken. */
CORVANE_API bool CorvaneOsSpinlockTryLock(void *lock) CORVANE_NOEXCEPT;

/** @return an unlocked read/write lock, or null when there is no memory. */
CORVANE_API void *CorvaneOsRwlockCreate(void) CORVANE_NOEXCEPT;
CORVANE_API void CorvaneOsRwlockDestroy(void *lock) CORVANE_NOEXCEPT;
CORVANE_API void CorvaneOsRwlockLockWriteLock(void *lock) CORVANE_NOEXCEPT;
/** @return true if taken. */
CORVANE_API bool CorvaneOsRwlockTryLockWriteLock(void *lock) CORVANE_NOEXCEPT;
CORVANE_API void CorvaneOsRwlockLockReadLock(void *lock) CORVANE_NOEXCEPT;
/** @return true if taken. */
CORVANE_API bool CorvaneOsRwlockTryLockReadLock(void *lock) CORVANE_NOEXCEPT;
/** @brief Releases either kind of hold. */
CORVANE_API void CorvaneOsRwlockUnlockRwlock(void *lock) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
/** @brief Puts the functions above into every slot of the table, and @p log into the log slot. */
void CorvaneOsFillTable(decltype(CorvaneInfra::log) log) noexcept;
#endif

#endif
