/**
 * @file OsHelpers.h
 * @brief Small wrappers over the system for the command line's logger. No state; any thread.
 */
#ifndef CLI_OS_HELPERS_H
#define CLI_OS_HELPERS_H

#include <ctime>
#include <pthread.h>

#include "infrastructure/common/corvane_export.h"

/** @name Mutexes. @retval -1  Null, or the system refused. */
/** @{ */
CORVANE_API int OS_MutexInit(pthread_mutex_t *mutex);
CORVANE_API int OS_MutexDestroy(pthread_mutex_t *mutex);
CORVANE_API int OS_TimeLock(pthread_mutex_t *mutex);
CORVANE_API int OS_TimeUnlock(pthread_mutex_t *mutex);
CORVANE_API int OS_Lock(pthread_mutex_t *mutex);
CORVANE_API int OS_Unlock(pthread_mutex_t *mutex);
/** @} */

/** @return whether a folder can be opened at the path; a plain file does not count. */
CORVANE_API bool OS_FileExists(const char *path);
/** @brief Remove what OS_FileExists() finds. @retval -1  It finds nothing, or it cannot be removed. */
CORVANE_API int OS_FileDelete(const char *path);
/** @return seconds since 1970, the time zone having been read anew. */
CORVANE_API time_t OS_Now();
/** @return @p local, filled with local time; null for a null argument. */
CORVANE_API struct tm *OS_LocalTime(const time_t *time, struct tm *local);
/** @brief Make a folder that is absent, with mode 0: only root can write into it. */
CORVANE_API void FindOrCreateLogDirectory(const char *path);

#endif
