/**
 * @file corvane_adapter_os_log.h
 * @brief The log of a process that has no host log: a file of its own, echoed to the console, rotated by size.
 *
 * Owns the open file, its byte count, the backup flag and g_osLogLock. Any thread may log; the lock makes lines of the
 * file whole and is held over the write and the rotation, not over the console. What goes wrong in here is told on
 * standard error, since this is the log.
 */
#ifndef CORVANE_ADAPTER_OS_LOG_H
#define CORVANE_ADAPTER_OS_LOG_H

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define CORVANE_OS_LOG_FILE "/var/log/corvane_super/corvane.os.log"
#define CORVANE_OS_LOG_ROTATED_FILE "/var/log/corvane_super/corvane.os.log.bak"
#define CORVANE_OS_LOG_BACKUP_FOLDER "/var/log/corvane_super/bak_os"
/** The count of bytes from which a line rotates the file. */
#define CORVANE_OS_LOG_FILE_SIZE 4000000u

/** One log statement. */
typedef struct CorvaneOsLogRecord {
    uint32_t level;
    const char *module;
    const char *file;
    uint32_t line;
    const char *func;
    const char *fmt;
    va_list args; /**< copied for each target; the owner ends it */
} CorvaneOsLogRecord;

/** The open log file; null before CorvaneOsInitLogFileAndFolder(). Guarded by g_osLogLock. */
extern CORVANE_API FILE *g_osLogFile;
/** Atomic: bytes written since the start or the last rotation, whatever the file held before. */
extern CORVANE_API void *g_osLogWrittenBytes;
/** Atomic: 1 from a rotation until its backup thread exists. */
extern CORVANE_API void *g_osLogBackupPending;
extern CORVANE_API void *g_osLogLock;

/**
 * @brief Fill the adapter table for a process that logs to a file of its own.
 * @retval 0 Filled.
 * @retval 1 No log file or no backup folder; the table is as before.
 * @note Called once, before any other thread uses the table.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CorvaneInfraRegisterOsAdapter(void) CORVANE_NOEXCEPT;
/** @brief Destroy the two atomics and the lock; nobody may log any more. The file stays open. */
CORVANE_API void CorvaneInfraFreeLogFileVars(void) CORVANE_NOEXCEPT;

/** @brief One line to the file and to the console: standard error for levels 2 and 3, else standard output. No level
 *         is dropped. */
CORVANE_API void CorvaneOsLog(uint32_t level, const char *module, const char *file, uint32_t line, const char *func,
                              const char *fmt, ...) CORVANE_NOEXCEPT CORVANE_PRINTF(6, 7);
/** @brief Write one line. @return its bytes, or the negative count of the write that failed. */
CORVANE_API int64_t CorvaneOsPrintStream(FILE *stream, CorvaneOsLogRecord *record) CORVANE_NOEXCEPT;

/** @brief Open the log file and make the backup folder. @return 0, or 1 with the reason on standard error. */
CORVANE_NODISCARD CORVANE_API uint32_t CorvaneOsInitLogFileAndFolder(void) CORVANE_NOEXCEPT;
/**
 * @brief Open a file for appending, with mode 0640 and owner and group root.
 * @param[out] stream  The open file; untouched on failure.
 * @retval 0 Opened.
 * @retval 1 Not; a file whose permissions could not be set is removed.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CreateLogFile(FILE **stream, const char *path) CORVANE_NOEXCEPT;
/**
 * @brief Make a folder if it is absent, and set mode 0750 and owner and group root.
 * @retval 0 It is there.
 * @retval 1 Not; a folder whose permissions could not be set is removed if it is empty.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CreateLogFolder(const char *path) CORVANE_NOEXCEPT;

/**
 * @brief Rename the log file and open a new one. The old stream is not closed.
 * @param[in,out] stream  The open file; on success the new one.
 * @retval 0 Done; a backup is pending.
 * @retval 1 The rename or the new file failed.
 * @note With g_osLogLock held.
 */
CORVANE_NODISCARD CORVANE_API uint32_t BackupLogFile(FILE **stream, const char *path,
                                                     const char *backup) CORVANE_NOEXCEPT;
/** @brief Count the bytes of a line, rotate if that fills the file. @note With g_osLogLock held. */
CORVANE_API void CorvaneOsLogHandleFileSize(int64_t written) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
