/**
 * @file corvane_adapter_os_log_backup.h
 * @brief Takes a rotated log file away: a thread gives it its backup name, a script compresses it and limits the count.
 *
 * Owns nothing. The thread takes no lock: it works on the rotated file, which no writer touches. Messages go to
 * standard error.
 */
#ifndef CORVANE_ADAPTER_OS_LOG_BACKUP_H
#define CORVANE_ADAPTER_OS_LOG_BACKUP_H

#include <stddef.h>
#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define CORVANE_OS_LOG_BACKUP_NAME_SIZE 256
#define CORVANE_OS_LOG_COMMAND_SIZE 1024

/** @brief Start the backup thread and clear g_osLogBackupPending; the flag stays if there is no thread. */
CORVANE_API void CorvaneOsCreateBackupThread(void) CORVANE_NOEXCEPT;
/** @brief The thread: move the rotated file into the folder, start the script on it. @return always null. */
CORVANE_API void *CorvaneOsLogCompressAndBakup(void *arg) CORVANE_NOEXCEPT;
/**
 * @brief The path of a backup made now: folder, "log-corvane.os.log", local time with milliseconds.
 * @param[out] buffer  CORVANE_OS_LOG_BACKUP_NAME_SIZE bytes.
 * @return 0, or 1 with the reason on standard error.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CorvaneOsGenerateBackupFileName(char *buffer) CORVANE_NOEXCEPT;
/** @brief Append the time to the text in @p buffer, of CORVANE_OS_LOG_BACKUP_NAME_SIZE bytes. @return 0 or 1. */
CORVANE_NODISCARD CORVANE_API uint32_t CorvaneOsLogFillTimeInfo(char *buffer) CORVANE_NOEXCEPT;
/**
 * @brief Run a shell command and wait for the shell.
 * @param[in] cmd      Refused if it holds one of | ; & $ < > ! newline ` that @p allowed does not hold.
 * @param[in] allowed  Null allows none.
 * @return the wait status; 1 if refused or null, and then no shell ran; -1 if there was no process.
 */
CORVANE_API int32_t CorvaneOsExecuteCmd(const char *cmd, const char *allowed) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <array>

using CorvaneOsCommand = std::array<char, CORVANE_OS_LOG_COMMAND_SIZE>;

/** @brief The command that compresses @p source. @return 0, or the failed part's result, told on standard error. */
int32_t CorvaneOsBuildBackupCommand(const char *source, CorvaneOsCommand &command) noexcept;
#endif

#endif
