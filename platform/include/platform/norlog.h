/**
 * @file norlog.h
 * @brief The host's log (libnorlog.so): one file in a chosen folder, rotated by size, one line per call.
 *
 * Every operation may be called from any thread, at any time. Levels: 2 CRITICAL, 3 ERROR, 4 WARN, 5 EVENT, 6 INFO,
 * 7 DEBUG. Before norlog_init() lines of level 3 and below go to standard error. While the folder cannot be written,
 * all lines do. If the file cannot be opened, at the start or after a rotation, that is tried again every second.
 */
#ifndef PLATFORM_NORLOG_H
#define PLATFORM_NORLOG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Name of the log file. Rotated files are "norlog.1.log" (the newest), "norlog.2.log" and so on. */
#define NORLOG_FILE_NAME "norlog.log"
/** Modules with a level of their own. */
#define NORLOG_MODULES 1024U
/** Level of a module that was never set. */
#define NORLOG_DEFAULT_LEVEL 6U

/**
 * Selects the log folder, for now if the log runs, or for the next norlog_init(). It is made if it is absent.
 * @param backupPath Not used: rotated files stay in the log folder.
 * @return 0; EINVAL for a null or empty path, or one of 4096 characters and more; ENOMEM.
 */
int norlog_set_file_path_ext(const char *path, const char *backupPath);
/**
 * Starts the log. Calls are counted. A folder that cannot be written is told on standard error, once until the log has
 * its file again.
 * @return 0, also if lines go to standard error; ENOMEM; EAGAIN if there is no thread for the flushing.
 */
int norlog_init(void);
/** Number of rotated files to keep, at most 10000; 10 before the first call. @return 0, or EINVAL. */
int norlog_set_backup_num(uint32_t count);
/** Size at which the file is rotated, in bytes, from 1024 up; 4 MiB before the first call. @return 0, or EINVAL. */
int norlog_set_file_size(uint64_t bytes);
/** Takes back one start; the last one writes out and closes the file. @return 0, or ESRCH. */
int norlog_destroy(void);
/**
 * Writes one line: time, level name, module, file and line, function, text. Control characters in the text become
 * blanks, newlines at its end are dropped. Lines of level 3 and below are written out at once, others within a second.
 * @p reserved is always 0.
 */
void norlog(uint32_t module, uint32_t level, const char *file, uint32_t line, const char *func, uint32_t reserved,
            const char *fmt, ...) __attribute__((format(printf, 7, 8)));
/** The level above which lines of the module are dropped. */
uint32_t norlog_loglevel_get(uint32_t module);
/** Sets it. @return 0, or EINVAL for a module of NORLOG_MODULES or above. */
int norlog_loglevel_set(uint32_t module, uint32_t level);

#ifdef __cplusplus
}
#endif

#endif
