#include "infrastructure/corvane_adapter_os/corvane_adapter_os_log.h"

#include <ctime>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "infrastructure/common/accounts.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_adapter_os/corvane_adapter_os.h"
#include "infrastructure/corvane_adapter_os/corvane_adapter_os_log_backup.h"

namespace {

constexpr uint32_t kFailed = 1;
constexpr uint64_t kPending = 1;
constexpr mode_t kLogFileMode = 0640;
constexpr mode_t kLogFolderMode = 0750;
constexpr const char *kLogOwner = "root";

/** Set while this thread holds g_osLogLock: an operation under it that fails logs, and must not wait for itself. */
thread_local bool t_holdsLogLock = false;

/** Mode and owner of a log file or folder. */
bool SetLogPermission(const char *path, mode_t mode) noexcept
{
    if (g_osCalls.chmod(path, mode) != 0) {
        (void)std::fprintf(stderr, "[INIT] [ERROR] CorvaneInfraRegisterOsAdapter chmod log folder %s fail\n", path);
        return false;
    }
    uid_t owner = 0;
    if (!FindUserId(kLogOwner, owner)) {
        (void)std::fprintf(stderr, "[INIT] [ERROR] CorvaneInfraRegisterOsAdapter user:%s not exist\n", kLogOwner);
        return false;
    }
    gid_t group = 0;
    if (!FindGroupId(kLogOwner, group)) {
        (void)std::fprintf(stderr, "[INIT] [ERROR] CorvaneInfraRegisterOsAdapter group:%s not exist\n", kLogOwner);
        return false;
    }
    if (g_osCalls.chown(path, owner, group) != 0) {
        (void)std::fprintf(stderr, "[INIT] [ERROR] CorvaneInfraRegisterOsAdapter chmown log folder %s fail\n", path);
        return false;
    }
    return true;
}

/** The line's part before the message. @return bytes written, or a negative count. */
int PrintHead(FILE *stream, const CorvaneOsLogRecord &record) noexcept
{
    const std::time_t now = g_osCalls.time(nullptr);
    struct tm local = {};
    (void)localtime_r(&now, &local);
    return std::fprintf(stream, "%4d-%02d-%02d %02d:%02d:%02d [%-10.10s][%lu] %-5s [%s %d %s] : ", local.tm_year + 1900,
                        local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, record.module,
                        static_cast<unsigned long>(pthread_self()), CorvaneLogLevelName(record.level), record.file,
                        static_cast<int>(record.line), record.func);
}

int64_t PrintFailed(int64_t count) noexcept
{
    (void)std::fprintf(stderr, "[LOG] [ERROR] CorvaneOsPrintStream print to file stream failed, ret<%ld>.",
                       static_cast<long>(count));
    return count;
}

void WriteToFile(CorvaneOsLogRecord &record) noexcept
{
    if (t_holdsLogLock || g_osLogLock == nullptr) { // the line counts, its bytes cannot be counted
        if (g_osLogFile != nullptr) {
            (void)CorvaneOsPrintStream(g_osLogFile, &record);
        }
        return;
    }
    g_corvaneInfra.spinlockLock(g_osLogLock);
    t_holdsLogLock = true;
    if (g_osLogFile != nullptr) {
        CorvaneOsLogHandleFileSize(CorvaneOsPrintStream(g_osLogFile, &record));
    }
    t_holdsLogLock = false;
    g_corvaneInfra.spinlockUnlock(g_osLogLock);
}

} // namespace

extern "C" {

CORVANE_API FILE *g_osLogFile = nullptr;
CORVANE_API void *g_osLogWrittenBytes = nullptr;
CORVANE_API void *g_osLogBackupPending = nullptr;
CORVANE_API void *g_osLogLock = nullptr;

CORVANE_API uint32_t CorvaneInfraRegisterOsAdapter(void) noexcept
{
    if (CorvaneOsInitLogFileAndFolder() != 0) {
        return kFailed;
    }
    CorvaneOsFillTable(CorvaneOsLog);
    g_osLogWrittenBytes = g_corvaneInfra.atomicCreate(0);
    g_osLogBackupPending = g_corvaneInfra.atomicCreate(0);
    g_osLogLock = g_corvaneInfra.spinlockCreate();
    return 0;
}

CORVANE_API void CorvaneInfraFreeLogFileVars(void) noexcept
{
    if (g_osLogWrittenBytes != nullptr) {
        g_corvaneInfra.atomicDestroy(g_osLogWrittenBytes);
        g_osLogWrittenBytes = nullptr;
    }
    if (g_osLogBackupPending != nullptr) {
        g_corvaneInfra.atomicDestroy(g_osLogBackupPending);
        g_osLogBackupPending = nullptr;
    }
    if (g_osLogLock != nullptr) {
        g_corvaneInfra.spinlockDestroy(g_osLogLock);
        g_osLogLock = nullptr;
    }
}

CORVANE_API int64_t CorvaneOsPrintStream(FILE *stream, CorvaneOsLogRecord *record) noexcept
{
    const int head = PrintHead(stream, *record);
    if (head < 0) {
        return PrintFailed(head);
    }
    va_list args;
    va_copy(args, record->args);
    const int message = std::vfprintf(stream, record->fmt, args);
    va_end(args);
    if (message < 0) {
        return PrintFailed(message);
    }
    const int newline = std::fprintf(stream, "%s", "\n");
    if (newline < 0) {
        return PrintFailed(newline);
    }
    return static_cast<int64_t>(head) + message + newline;
}

CORVANE_API void CorvaneOsLog(uint32_t level, const char *module, const char *file, uint32_t line, const char *func,
                              const char *fmt, ...) noexcept
{
    CorvaneOsLogRecord record = {level, module, file, line, func, fmt, {}};
    va_start(record.args, fmt);
    WriteToFile(record);
    (void)CorvaneOsPrintStream(level == CORVANE_LOG_CRITICAL || level == CORVANE_LOG_ERROR ? stderr : stdout, &record);
    va_end(record.args);
}

CORVANE_API uint32_t CreateLogFile(FILE **stream, const char *path) noexcept
{
    FilePtr file(g_osCalls.fopen(path, "a"));
    if (file == nullptr) {
        (void)std::fprintf(stderr, "[INIT] [ERROR] CorvaneInfraRegisterOsAdapter can't open log file %s\n", path);
        return kFailed;
    }
    if (!SetLogPermission(path, kLogFileMode)) {
        file.reset();
        (void)g_osCalls.remove(path);
        (void)std::fprintf(stderr, "[INIT] [ERROR] log permission set fail, file path = %s", path);
        return kFailed;
    }
    *stream = file.release();
    return 0;
}

CORVANE_API uint32_t CreateLogFolder(const char *path) noexcept
{
    if (access(path, F_OK) != 0 && mkdir(path, kLogFolderMode) != 0) {
        (void)std::fprintf(stderr, "[INIT] [ERROR] CorvaneOsLogCompressAndBakup can't create bak folder: %s\n", path);
        return kFailed;
    }
    if (!SetLogPermission(path, kLogFolderMode)) {
        (void)rmdir(path);
        (void)std::fprintf(stderr, "[INIT] [ERROR] log folder permission set fail, file path = %s", path);
        return kFailed;
    }
    return 0;
}

CORVANE_API uint32_t CorvaneOsInitLogFileAndFolder(void) noexcept
{
    if (CreateLogFile(&g_osLogFile, CORVANE_OS_LOG_FILE) != 0) {
        (void)std::fprintf(stderr, "[INIT] [ERROR] CorvaneInfraRegisterOsAdapter create log file fail\n");
        return kFailed;
    }
    if (CreateLogFolder(CORVANE_OS_LOG_BACKUP_FOLDER) != 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] CorvaneOsLogCompressAndBakup bak folder create failed: %s\n",
                           CORVANE_OS_LOG_BACKUP_FOLDER);
        return kFailed;
    }
    return 0;
}

CORVANE_API uint32_t BackupLogFile(FILE **stream, const char *path, const char *backup) noexcept
{
    if (g_osCalls.rename(path, backup) != 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] CorvaneInfraRegisterOsAdapter can't rename log file %s\n", path);
        return kFailed;
    }
    g_corvaneInfra.atomicSet(g_osLogBackupPending, kPending);
    // The old stream is left as it is: a writer may have lines in its buffer.
    if (CreateLogFile(stream, path) != 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] CorvaneInfraRegisterOsAdapter can't create log file %s\n", path);
        return kFailed;
    }
    return 0;
}

CORVANE_API void CorvaneOsLogHandleFileSize(int64_t written) noexcept
{
    if (written < 0 || g_osLogWrittenBytes == nullptr) {
        return;
    }
    const uint64_t total = g_corvaneInfra.atomicAddAndGet(g_osLogWrittenBytes, static_cast<uint64_t>(written));
    if (total < CORVANE_OS_LOG_FILE_SIZE) {
        if (g_corvaneInfra.atomicGet(g_osLogBackupPending) == kPending) {
            CorvaneOsCreateBackupThread(); // the thread could not be had at the rotation
        }
        return;
    }
    if (BackupLogFile(&g_osLogFile, CORVANE_OS_LOG_FILE, CORVANE_OS_LOG_ROTATED_FILE) != 0) {
        // The count stays, so the next line tries again.
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] CorvaneOsLogHandleFileSize Backup log file failed.");
        return;
    }
    g_corvaneInfra.atomicSet(g_osLogWrittenBytes, 0);
    CorvaneOsCreateBackupThread();
}

} // extern "C"
