#include "infrastructure/corvane_adapter_os/corvane_adapter_os_log_backup.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/wait.h>
#include <unistd.h>

#include "bounded/bounded.h"
#include "config/corvane_prefix_path.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_adapter_os/corvane_adapter_os_log.h"
#include "infrastructure/corvane_infra.h"

namespace {

constexpr uint32_t kFailed = 1;
constexpr int32_t kRefused = 1;
constexpr int32_t kNoProcess = -1;
/** Raw wait status that counts as a success beside 0. */
constexpr int32_t kAcceptedStatus = 10;
constexpr uint32_t kBackupLimit = 50;
constexpr size_t kPathSize = 4096;
constexpr long kNanosecondsPerMillisecond = 1000000;
constexpr const char *kBackupPrefix = "log-corvane.os.log";
constexpr const char *kScript = "scripts/corvane_log_file_op.sh";
constexpr const char *kDangerous = "|;&$<>!\n`";

bool IsDangerous(const char *text, const char *allowed) noexcept
{
    for (const char *at = std::strpbrk(text, kDangerous); at != nullptr; at = std::strpbrk(at + 1, kDangerous)) {
        if (allowed == nullptr || std::strchr(allowed, *at) == nullptr) {
            return true;
        }
    }
    return false;
}

/** Gives the rotated file its backup name. @return false, told, if that failed. */
bool MoveToBackupFolder(char *name) noexcept
{
    if (CorvaneOsGenerateBackupFileName(name) != 0 || g_osCalls.rename(CORVANE_OS_LOG_ROTATED_FILE, name) != 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] rename failed: oldname<%s> newname<%s> errno<%d>\n",
                           CORVANE_OS_LOG_ROTATED_FILE, name, errno);
        return false;
    }
    return true;
}

} // namespace

int32_t CorvaneOsBuildBackupCommand(const char *source, CorvaneOsCommand &command) noexcept
{
    // Only what varies is held to the strict check; the rest of the command needs "&" and ">" itself.
    std::array<char, CORVANE_OS_LOG_COMMAND_SIZE> parts{};
    int32_t result = snprintf_s(parts.data(), parts.size(), parts.size() - 1, "%s %s %s", source,
                                CORVANE_OS_LOG_BACKUP_FOLDER, kBackupPrefix);
    if (result < 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] log backup cmd sprintf failed, ret(%d).\n", result);
        return result;
    }
    if (IsDangerous(parts.data(), nullptr)) {
        (void)std::fprintf(stderr,
                           "[LOGBAK] [ERROR] Command injection: log backup message(%s) is dangerous, ret(%d).\n",
                           parts.data(), kRefused);
        return kRefused;
    }

    std::array<char, kPathSize> path{};
    result = snprintf_s(path.data(), path.size(), path.size() - 1, "%s/%s", GetPrefixPath(), kScript);
    if (result < 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] , concatenate script path with prefix error.\n");
        return result;
    }
    std::array<char, CORVANE_OS_LOG_COMMAND_SIZE> script{};
    result = strcpy_s(script.data(), script.size(), path.data());
    if (result != 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] log backup cmd strcpy failed, cmd:%s ret:%d.\n", script.data(),
                           result);
        return result;
    }

    result = snprintf_s(command.data(), command.size(), command.size() - 1,
                        "%s %s %s %s %s/ %s %u %s %s %s %s %s %s %s 2>/dev/null &", script.data(), "-s", source, "-d",
                        CORVANE_OS_LOG_BACKUP_FOLDER, "-l", kBackupLimit, "-p", kBackupPrefix, "-u", "root", "-g",
                        "root", "backupcntlimit");
    if (result < 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] log backup cmd sprintf failed, cmd:%s ret:%d.\n", command.data(),
                           result);
        return result;
    }
    return 0;
}

extern "C" {

CORVANE_API void CorvaneOsCreateBackupThread(void) noexcept
{
    if (g_corvaneInfra.threadCreate(CorvaneOsLogCompressAndBakup, nullptr, {0, 0, nullptr, nullptr}) == 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] CorvaneOsCreateBackupThread create backup thread failed.");
        return;
    }
    g_corvaneInfra.atomicSet(g_osLogBackupPending, 0);
}

CORVANE_API void *CorvaneOsLogCompressAndBakup(void *arg) noexcept
{
    (void)arg;
    if (access(CORVANE_OS_LOG_ROTATED_FILE, F_OK) != 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] CorvaneOsLogCompressAndBakup bak file not exist: %s\n",
                           CORVANE_OS_LOG_ROTATED_FILE);
        return nullptr;
    }
    if (access(CORVANE_OS_LOG_BACKUP_FOLDER, F_OK) != 0 && CreateLogFolder(CORVANE_OS_LOG_BACKUP_FOLDER) != 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] CorvaneOsLogCompressAndBakup bak folder create failed: %s\n",
                           CORVANE_OS_LOG_BACKUP_FOLDER);
        return nullptr;
    }
    std::array<char, CORVANE_OS_LOG_BACKUP_NAME_SIZE> name{};
    if (!MoveToBackupFolder(name.data())) {
        return nullptr;
    }
    CorvaneOsCommand command{};
    int32_t result = CorvaneOsBuildBackupCommand(name.data(), command);
    if (result != 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] log backup dump cmd sprintf failed, cmd<%s> ret<%d> errno<%d>\n",
                           command.data(), result, errno);
        return nullptr;
    }
    (void)std::fprintf(stderr, "[LOGBAK] [INFO] cmd:<%s>\n", command.data());
    result = CorvaneOsExecuteCmd(command.data(), "&>");
    if (result != 0 && result != kAcceptedStatus) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] log backup dump cmd exec failed, cmd<%s> ret<%d> errno<%d>\n",
                           command.data(), result, errno);
        return nullptr;
    }
    (void)std::fprintf(stderr, "[LOGBAK] [INFO] CorvaneOsLogCompressAndBakup success.\n");
    return nullptr;
}

CORVANE_API uint32_t CorvaneOsLogFillTimeInfo(char *buffer) noexcept
{
    struct timespec now = {};
    if (g_osCalls.clockGettime(CLOCK_REALTIME, &now) != 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] CorvaneOsLogFillTimeInfo clock_gettime failed\n");
        return kFailed;
    }
    tzset();
    struct tm local = {};
    const struct tm *broken = localtime_r(&now.tv_sec, &local);
    size_t used = strnlen(buffer, CORVANE_OS_LOG_BACKUP_NAME_SIZE);
    const size_t added = broken == nullptr ? 0
                                           : std::strftime(buffer + used, CORVANE_OS_LOG_BACKUP_NAME_SIZE - used,
                                                           ".%F_%H-%M-%S", broken);
    if (added == 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] CorvaneOsLogFillTimeInfo strftime failed\n");
        return kFailed;
    }
    used += added;
    if (sprintf_s(buffer + used, CORVANE_OS_LOG_BACKUP_NAME_SIZE - used, ".%03d",
                  static_cast<int>(now.tv_nsec / kNanosecondsPerMillisecond)) < 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] CorvaneOsLogFillTimeInfo sprintf_s failed\n");
        return kFailed;
    }
    return 0;
}

CORVANE_API uint32_t CorvaneOsGenerateBackupFileName(char *buffer) noexcept
{
    if (snprintf_s(buffer, CORVANE_OS_LOG_BACKUP_NAME_SIZE, CORVANE_OS_LOG_BACKUP_NAME_SIZE - 1, "%s/%s",
                   CORVANE_OS_LOG_BACKUP_FOLDER, kBackupPrefix) < 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] sprintf <%s/%s> failed\n", CORVANE_OS_LOG_BACKUP_FOLDER,
                           kBackupPrefix);
        return kFailed;
    }
    if (CorvaneOsLogFillTimeInfo(buffer) != 0) {
        (void)std::fprintf(stderr, "[LOGBAK] [ERROR] fill timeInfo failed\n");
        return kFailed;
    }
    return 0;
}

CORVANE_API int32_t CorvaneOsExecuteCmd(const char *cmd, const char *allowed) noexcept
{
    if (cmd == nullptr || IsDangerous(cmd, allowed)) {
        return kRefused;
    }
    const pid_t child = vfork();
    if (child == 0) {
        (void)execl("/bin/sh", "sh", "-c", cmd, static_cast<char *>(nullptr));
        _exit(127);
    }
    if (child < 0) {
        return kNoProcess;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return kNoProcess;
        }
    }
    return status;
}

} // extern "C"
