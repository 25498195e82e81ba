/**
 * @file corvane_task_scheduler.h
 * @brief Runs a function again and again, or a number of times, on a thread of its own under a name of its own.
 *
 * Owns the list of tasks and g_scheduleTaskSpinLock, which guards it, is held for walks and for the creation of a
 * thread, and has none taken after it. InitScheduleTask() runs once, on the starting thread; then any thread may submit
 * and cancel. There is no timer: a task's thread sleeps between its runs, and nothing wakes it early.
 */
#ifndef CORVANE_TASK_SCHEDULER_H
#define CORVANE_TASK_SCHEDULER_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define SCHEDULE_TASK_ERR_NO_TASK 2u    /**< ENOENT: no task of this name */
#define SCHEDULE_TASK_ERR_NOT_INIT 11u  /**< EAGAIN: InitScheduleTask() has not run */
#define SCHEDULE_TASK_ERR_NO_MEMORY 12u /**< ENOMEM: no memory or no thread */
#define SCHEDULE_TASK_ERR_BAD_TASK 22u  /**< EINVAL: not a task that could run */
#define SCHEDULE_TASK_ERR_EXISTS 114u   /**< EALREADY: a task of this name is in the list */

/** What to run. Passed by value. 56 bytes. */
typedef struct ScheduleTask {
    const char *name;          /**< not empty; copied */
    uint8_t forever;           /**< 1: until it is cancelled; else repeatCount times */
    uint32_t repeatCount;      /**< runs; not 0 unless forever is 1 */
    uint32_t firstDelayMs;     /**< before the first run; 0: none */
    uint32_t periodMs;         /**< from the end of a run to the beginning of the next */
    void *(*entry)(void *arg); /**< one run, on the task's thread, without a lock of the frame; its result is ignored */
    void *entryArg;
    void (*callback)(void *arg); /**< once, after the last run, on the task's thread; may be null */
    void *callbackArg;
} ScheduleTask;

/** A task in the list. 24 bytes. Node, task and name are table memory, freed by the task's thread. */
typedef struct ScheduleTaskNode {
    struct ScheduleTaskNode *next;
    uint8_t stop;       /**< 1: this run was the last; accessed as an atomic */
    ScheduleTask *task; /**< the frame's copy, with its own copy of the name */
} ScheduleTaskNode;

/** The head of the list; only its link is used. Guarded by g_scheduleTaskSpinLock. */
extern CORVANE_API ScheduleTaskNode g_scheduleTaskList;
/** Spinlock of the adapter table; null before InitScheduleTask(). */
extern CORVANE_API void *g_scheduleTaskSpinLock;

/** @brief Make the lock. @retval 0 Made, now or before. @retval SCHEDULE_TASK_ERR_NO_MEMORY Not. */
CORVANE_NODISCARD CORVANE_API uint32_t InitScheduleTask(void) CORVANE_NOEXCEPT;

/**
 * @brief Start a task.
 * @param[in] task  Copied with its name. The arguments must live until the callback has run.
 * @retval 0                            Started.
 * @retval SCHEDULE_TASK_ERR_BAD_TASK   No name, no entry, or neither forever nor a number of runs.
 * @retval SCHEDULE_TASK_ERR_NOT_INIT   InitScheduleTask() has not run.
 * @retval SCHEDULE_TASK_ERR_EXISTS     The name is taken, maybe by a cancelled task that has not ended yet.
 * @retval SCHEDULE_TASK_ERR_NO_MEMORY  No memory or no thread; the callback does not run.
 * @note Takes g_scheduleTaskSpinLock. Any thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t SubmitScheduleTask(ScheduleTask task) CORVANE_NOEXCEPT;

/**
 * @brief Let a task end after its next run, or after the one it is in. Does not wait, and interrupts no sleep.
 * @retval 0                           It will end.
 * @retval SCHEDULE_TASK_ERR_NO_TASK   No such task.
 * @retval SCHEDULE_TASK_ERR_NOT_INIT  InitScheduleTask() has not run.
 * @note Takes g_scheduleTaskSpinLock. Any thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CancelScheduleTask(const char *name) CORVANE_NOEXCEPT;

/** @brief CancelScheduleTask() for every task; nothing before InitScheduleTask(). */
CORVANE_API void StopAllScheduleTask(void) CORVANE_NOEXCEPT;

/** @brief Finalizer of the start-up step: StopAllScheduleTask(). Threads and lock stay. @return always 0. */
CORVANE_API uint32_t DestroyScheduleTask(void) CORVANE_NOEXCEPT;

/**
 * @brief Unlink a task; nothing is freed.
 * @retval 0                           Unlinked.
 * @retval SCHEDULE_TASK_ERR_NO_TASK   No such task.
 * @retval SCHEDULE_TASK_ERR_NOT_INIT  InitScheduleTask() has not run.
 * @note Takes g_scheduleTaskSpinLock.
 */
CORVANE_NODISCARD CORVANE_API uint32_t RemoveTaskNodeByName(const char *name) CORVANE_NOEXCEPT;

/** @brief A task's thread: all its runs, then out of the list. @param node ScheduleTaskNode. @return null */
CORVANE_API void *WarpedEntryFunc(void *node) CORVANE_NOEXCEPT;
/** @brief What follows on the same thread: the task's callback, then the end of its memory. @return null */
CORVANE_API void *warpedCallBackFunc(void *node) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(ScheduleTask) == 56 && offsetof(ScheduleTask, repeatCount) == 12);
static_assert(offsetof(ScheduleTask, entry) == 24 && offsetof(ScheduleTask, callback) == 40);
static_assert(sizeof(ScheduleTaskNode) == 24 && offsetof(ScheduleTaskNode, stop) == 8);
static_assert(offsetof(ScheduleTaskNode, task) == 16);
#endif

#endif
