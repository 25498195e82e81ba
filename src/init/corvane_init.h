/**
 * @file corvane_init.h
 * @brief The library's entry: the table of start-up steps, the start mode and the process lock.
 *
 * Owns g_corvaneStartMode, g_corvaneInitFiniSteps and the descriptor of the process lock, which stays open until the
 * process ends. Everything runs on the thread that calls InitCorvane(); it is not reentrant and takes no lock of the
 * library. Runs partly before there is a log: messages then go to standard output.
 */
#ifndef CORVANE_INIT_H
#define CORVANE_INIT_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

enum CorvaneStartMode {
    CORVANE_START_COMBINED = 0,    /**< inside a host process, beside other such processes */
    CORVANE_START_INDEPENDENT = 1, /**< a process of the library's own, the only one of the installation */
    CORVANE_START_MODE_BUTT,
};

#define CORVANE_INIT_STEP_COUNT 16
#define CORVANE_INIT_STEP_NAME_SIZE 32
/** No such start mode, or no prefix. */
#define CORVANE_INIT_ERR_FAIL 0xFFFFFFFFu

/** One row of the table. 48 bytes. */
typedef struct CorvaneInitFiniStep {
    char name[CORVANE_INIT_STEP_NAME_SIZE]; /**< printed in the step messages */
    uint32_t (*init)(void);                 /**< runs the step on the starting thread; 0 is success; may be null */
    uint32_t (*fini)(void);                 /**< undoes it after a later step's failure; may be null */
} CorvaneInitFiniStep;

/** The start mode of the running library; written by InitCorvane(). */
extern CORVANE_API uint32_t g_corvaneStartMode;
/** The steps in their order. Hosts may patch a row before InitCorvane(). */
extern CORVANE_API CorvaneInitFiniStep g_corvaneInitFiniSteps[CORVANE_INIT_STEP_COUNT];

/**
 * @brief Start the library: run the steps in order, then start the background tasks. The work goes on on threads.
 *
 * A failed step ends the start: the finalizers of the steps before it run in reverse order.
 * @param[in] startMode  enum CorvaneStartMode. With CORVANE_START_COMBINED the prefix is taken from the host's mapped
 *                       libraries, otherwise it is what SetPrefixPath() set before.
 * @retval 0                      All steps succeeded. Says nothing about the background tasks.
 * @retval CORVANE_INIT_ERR_FAIL  Bad start mode or no prefix; nothing was started.
 * @return otherwise the failed step's status.
 */
CORVANE_NODISCARD CORVANE_API uint32_t InitCorvane(uint32_t startMode) CORVANE_NOEXCEPT;
/** @brief The same under the name that older hosts call. */
CORVANE_NODISCARD CORVANE_API uint32_t initCorvane(uint32_t startMode) CORVANE_NOEXCEPT;

/** @return the address of g_corvaneStartMode. */
CORVANE_API uint32_t *GetCorvaneStartMode(void) CORVANE_NOEXCEPT;

/**
 * @brief Step "Process_Check": take the process lock, shared in start mode 0 and exclusive in start mode 1.
 * @retval CORVANE_INIT_ERR_FAIL  The start mode is neither.
 * @return otherwise the result of CorvaneTryLockFile().
 */
CORVANE_NODISCARD CORVANE_API uint32_t CorvaneInitProcessCheck(void) CORVANE_NOEXCEPT;

/**
 * @brief Lock "config/corvane_master_process_lockfile" below the prefix for the life of the process; does not wait.
 *        The file is made with mode 0660 if it does not exist.
 * @param[in] lockType  As in struct flock: F_RDLCK (0) or F_WRLCK (1).
 * @retval 0             Locked.
 * @retval ENAMETOOLONG  The path does not fit.
 * @retval EAGAIN,EACCES Another process holds a conflicting lock.
 * @return otherwise the errno of the failed call.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CorvaneTryLockFile(uint16_t lockType) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
