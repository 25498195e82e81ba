/**
 * @file norax.h
 * @brief The host's abstraction layer (libnorax.so): start and stop, clock, timers, checked spinlocks, numbers.
 *
 * Owns the timer thread. Every operation may be called from any thread.
 */
#ifndef PLATFORM_NORAX_H
#define PLATFORM_NORAX_H

#include <stdint.h>

#ifdef __cplusplus
#define NORAX_NOEXCEPT noexcept
extern "C" {
#else
#define NORAX_NOEXCEPT
#endif

/** Jiffies of one second. */
#define NORAX_HZ 250

/**
 * Starts the layer. Calls are counted, so that a host and a library in it can both start it.
 * @return 0, or an errno number if the timer thread cannot be started.
 */
int norax_Init(void) NORAX_NOEXCEPT;
/**
 * Takes back one start. The last one stops the timer thread, after a running procedure has returned, and drops every
 * timer that is left; from the timer thread itself it does not wait.
 */
void norax_destory(void) NORAX_NOEXCEPT;

/** Time since an arbitrary point in jiffies of 4 ms, from the monotonic clock. Needs no start. */
uint64_t norax_get_jiffies(void) NORAX_NOEXCEPT;

/**
 * Reads a whole text as an unsigned number: decimal, or hexadecimal behind "0x".
 * @return 0, EINVAL for a null pointer or anything that is no such number, ERANGE above 64 bits. @p value is set on
 *         success only.
 */
int norax_str_tou64(const char *text, uint64_t *value) NORAX_NOEXCEPT;

#define NORAX_SPINLOCK_MAGIC 0xdead4eadU

/** A spinlock that notices misuse: not set up, taken twice by one thread, released by another. */
typedef struct NoraxSpinlock {
    uint32_t lock;       /**< 0 free, 1 taken */
    uint32_t magic;      /**< NORAX_SPINLOCK_MAGIC */
    int32_t ownerThread; /**< kernel thread identifier of the holder, -1 if free */
    int32_t ownerLine;   /**< source line at which it was taken, -1 if free */
} NoraxSpinlock;

/**
 * Takes the lock, waiting for it. Misuse is told once per event on standard error with the caller's function and line:
 * a lock without its magic number is left alone, a second lock of one thread waits for ever as it must.
 */
void do_norax_spinlock_lock(void *lock, const char *function, uint32_t line) NORAX_NOEXCEPT;
/** Releases the lock. A lock that the calling thread does not hold is left alone and told on standard error. */
void do_norax_spinlock_unlock(void *lock, const char *function, uint32_t line) NORAX_NOEXCEPT;
/** @return 1 if the lock was taken, 0 if not. */
int do_norax_tspinlock_trylock(void *lock, const char *function, uint32_t line) NORAX_NOEXCEPT;

/** A timer, in the caller's memory; set by norax_timer_set_raw() and opaque. */
typedef struct NoraxTimer {
    void *record;
    uint64_t number;
} NoraxTimer;

/** Called once per expiry on the timer thread, which serves all timers: it must not wait long. */
typedef void (*NoraxTimerProc)(void *context);

/**
 * Makes a timer that is not running yet.
 * @param cycleMs Time from norax_timer_add() to the call in milliseconds; 0 calls at once.
 * @param name, file, line Not used.
 * @return 0, EINVAL for a null timer or procedure, ENOMEM, ESRCH while the layer is not started.
 */
int norax_timer_set_raw(NoraxTimer *timer, uint32_t cycleMs, void *context, NoraxTimerProc procedure, const char *name,
                        const char *file, uint32_t line) NORAX_NOEXCEPT;
/** Starts the timer. @return 0, EBUSY if it runs already, ENOENT if there is no such timer. */
int norax_timer_add(NoraxTimer *timer) NORAX_NOEXCEPT;
/** Starts the timer anew with this time, whether it runs or not; also from its own procedure. @return 0 or ENOENT. */
int norax_timer_modify(NoraxTimer *timer, uint32_t cycleMs) NORAX_NOEXCEPT;
/**
 * Ends the timer. If its procedure runs at this moment, waits until it has returned, unless called from it. After the
 * call the procedure is not called again and nothing reads @p timer.
 * @return 0, or ENOENT if there is no such timer (any more).
 */
int norax_timer_destroy(NoraxTimer *timer) NORAX_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
