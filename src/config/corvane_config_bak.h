/**
 * @file corvane_config_bak.h
 * @brief The history of the configuration file: at most five copies, named by time, in "userconfig_bak" below the
 *        prefix.
 *
 * Owns the files of that folder whose names begin with "corvane_config_bak_"; the folder itself belongs to the
 * installation. BackUpConfigFile() may be called from any thread and takes g_configLock for writing, and the
 * task that calls it every ten minutes may be started and stopped from any thread; everything else here takes no lock
 * and relies on the caller to hold it.
 */
#ifndef CORVANE_CONFIG_BAK_H
#define CORVANE_CONFIG_BAK_H

#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** Whether the task was started and has not ended. Accessed as an atomic. */
extern CORVANE_API bool g_configBackUpTaskRunning;

/**
 * @brief Copy the configuration into the history, if it differs from the newest copy.
 * @retval 0 Copied, or the newest copy is the same.
 * @retval 1 No configuration file, no folder, or a failure while comparing, copying or removing old copies.
 * @note Takes g_configLock for writing.
 */
CORVANE_NODISCARD CORVANE_API uint32_t BackUpConfigFile(void) CORVANE_NOEXCEPT;

/**
 * @brief Start the task that calls BackUpConfigFile() in ten minutes and every ten minutes from then on.
 * @return as SubmitScheduleTask(); SCHEDULE_TASK_ERR_EXISTS also while a stopped task has not ended.
 */
CORVANE_NODISCARD CORVANE_API uint32_t StartConfigBackUpTask(void) CORVANE_NOEXCEPT;
/** @brief Let the task end after its next run. */
CORVANE_API void StopConfigBackUpTask(void) CORVANE_NOEXCEPT;
/** @brief One run of the task. @return null */
CORVANE_API void *BackUpConfigFileTaskWarpFunc(void *arg) CORVANE_NOEXCEPT;
/** @brief The task's end. */
CORVANE_API void BackUpConfigFileTaskCBFunc(void *arg) CORVANE_NOEXCEPT;

/**
 * @brief Put the newest copy in place of the configuration file. No other copy is tried.
 * @retval 0 Restored, with mode and owner.
 * @retval 1 Not; a partial file may be left.
 */
CORVANE_NODISCARD CORVANE_API uint32_t RecoverConfigFromBak(void) CORVANE_NOEXCEPT;

/**
 * @brief List the copies, the newest first; at most 50.
 * @param[out] count Number of names.
 * @return the list, whose names are released with free() and itself through the adapter table; null on failure.
 */
CORVANE_NODISCARD CORVANE_API char **GetALLBackupConfigNameList(uint32_t *count) CORVANE_NOEXCEPT;

/** @brief Open the configuration for reading. @return the stream, closed by the caller; null on failure. */
CORVANE_NODISCARD CORVANE_API FILE *GetConfigFileFd(void) CORVANE_NOEXCEPT;

/** @brief Open entry 0 of a list for reading. @return the stream, closed by the caller; null for an empty list or on
 *         failure, with errno. */
CORVANE_NODISCARD CORVANE_API FILE *GetLatestBakFile(uint32_t count, char **list) CORVANE_NOEXCEPT;

/** @brief Make a copy's file, named by the local time, with mode and owner. @return the stream, closed by the caller;
 *         null on failure. A file of the same second is overwritten. */
CORVANE_NODISCARD CORVANE_API FILE *GetNewBakConfigFile(void) CORVANE_NOEXCEPT;

/**
 * @brief Compare the configuration with the newest copy.
 * @param[out] needed 1 if a copy is to be made, else 0.
 * @param[in]  config At its beginning; there again if a copy is needed.
 * @retval 0 Compared, or there is no copy yet.
 * @retval 1 The newest copy cannot be opened.
 */
CORVANE_NODISCARD CORVANE_API uint32_t IsConfigNeedBackUp(uint8_t *needed, uint32_t count, char **list,
                                                          FILE *config) CORVANE_NOEXCEPT;

/**
 * @brief Write a new copy and remove the oldest, so that the new one and the four newest of the list remain.
 * @retval 0 Done.
 * @retval 1 The copy could not be made or is partial, or an old one could not be removed.
 */
CORVANE_NODISCARD CORVANE_API uint32_t BackUpConfigToNewBakFile(FILE *config, uint32_t count,
                                                                char **list) CORVANE_NOEXCEPT;

/** @brief Compare two streams from where they stand. @retval 1 The same. @retval 0 Different, or not readable. */
CORVANE_NODISCARD CORVANE_API uint32_t IsConfigFileSame(FILE *a, FILE *b) CORVANE_NOEXCEPT;

/** @brief Copy a stream from where it stands. @retval 0 All of it is written out. @retval 1 Not, with errno. */
CORVANE_NODISCARD CORVANE_API uint32_t CopyConfigFile(FILE *from, FILE *to) CORVANE_NOEXCEPT;

/** @brief Give a file mode 0640 and the service's owner and group. @retval 0 Done. @retval 0xFFFFFFFF Not. */
CORVANE_NODISCARD CORVANE_API uint32_t SetUsrConfigBakPermission(const char *file) CORVANE_NOEXCEPT;

/** @brief qsort() order of a list of names: descending, which is from the newest to the oldest. */
CORVANE_NODISCARD CORVANE_API int BakConfigFileNameCmp(const void *a, const void *b) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
