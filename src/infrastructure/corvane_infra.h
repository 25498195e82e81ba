/**
 * @file corvane_infra.h
 * @brief The adapter table: the one way from the library's code to memory, threads, locks and the log.
 *
 * Two registration functions fill the table once, at start-up and before any other thread runs; from then on it is
 * read without a lock. A host or a test may replace single slots after registration.
 */
#ifndef CORVANE_INFRA_H
#define CORVANE_INFRA_H

#include <stdbool.h>
#include <stdint.h>

#include "infrastructure/common/corvane_export.h"
#include "infrastructure/corvane_time/corvane_time.h"

CORVANE_BEGIN_DECLS

/** Levels of the log operation. A higher number is more talkative. */
enum CorvaneLogLevel {
    CORVANE_LOG_CRITICAL = 2,
    CORVANE_LOG_ERROR = 3,
    CORVANE_LOG_WARN = 4,
    CORVANE_LOG_EVENT = 5,
    CORVANE_LOG_INFO = 6,
    CORVANE_LOG_DEBUG = 7,
};

/** How a thread is to be made. Passed by value. */
typedef struct CorvaneThreadParam {
    uint32_t priority; /**< sched_priority; 0 for ordinary threads */
    uint8_t joinable;  /**< non-zero: the creator waits until the thread has ended */
    void *entryArg;    /**< argument of the entry */
    void *callbackArg; /**< argument of the callback, which runs on the new thread after the entry */
} CorvaneThreadParam;

typedef void *(*CorvaneThreadFunc)(void *arg);

/**
 * The 36 operations, slot n at offset 8n. No slot is null once a registration function has run.
 * Memory of memAlloc is released by memFree and by nothing else. None of the operations takes a lock of the library.
 */
typedef struct CorvaneInfra {
    void *(*memAlloc)(uint64_t size);
    void (*memFree)(void *ptr);
    /** @return thread handle, 0 on failure */
    uint64_t (*threadCreate)(CorvaneThreadFunc entry, CorvaneThreadFunc callback, CorvaneThreadParam param);
    void (*threadYield)(void);
    void (*threadSleep)(CorvaneTime time);
    void (*log)(uint32_t level, const char *module, const char *file, uint32_t line, const char *func, const char *fmt,
                ...) CORVANE_PRINTF(6, 7);
    void *(*semCreate)(uint32_t initial);
    void (*semDestroy)(void *sem);
    void (*semDown)(void *sem);
    void (*semUp)(void *sem);
    bool (*semTryDown)(void *sem);
    bool (*semTryDownWithinTimeout)(void *sem, CorvaneTime time);
    /* A second group of the same four operations: hosts may give it another meaning. */
    void (*sem2Down)(void *sem);
    void (*sem2Up)(void *sem);
    bool (*sem2TryDown)(void *sem);
    bool (*sem2TryDownWithinTimeout)(void *sem, CorvaneTime time);
    void *(*atomicCreate)(uint64_t initial);
    void (*atomicDestroy)(void *atomic);
    uint64_t (*atomicGet)(void *atomic);
    void (*atomicSet)(void *atomic, uint64_t value);
    bool (*atomicCompareAndSet)(void *atomic, uint64_t expected, uint64_t desired);
    uint64_t (*atomicAddAndGet)(void *atomic, uint64_t delta);
    uint64_t (*atomicIncrementAndGet)(void *atomic);
    uint64_t (*atomicDecrementAndGet)(void *atomic);
    void *(*spinlockCreate)(void);
    void (*spinlockDestroy)(void *lock);
    void (*spinlockLock)(void *lock);
    void (*spinlockUnlock)(void *lock);
    bool (*spinlockTryLock)(void *lock);
    void *(*rwlockCreate)(void);
    void (*rwlockDestroy)(void *lock);
    void (*rwlockWriteLock)(void *lock);
    bool (*rwlockTryWriteLock)(void *lock);
    void (*rwlockReadLock)(void *lock);
    bool (*rwlockTryReadLock)(void *lock);
    void (*rwlockUnlock)(void *lock);
} CorvaneInfra;

/** The table itself; all null until a registration function has run. */
extern CORVANE_API CorvaneInfra g_corvaneInfra;

CORVANE_END_DECLS

#endif
