#include "config/corvane_config_bak.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <unistd.h>

#include "bounded/bounded.h"
#include "config/corvane_config.h"
#include "config/corvane_config_files.h"
#include "config/corvane_prefix_path.h"
#include "infrastructure/common/accounts.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_task_scheduler/corvane_task_scheduler.h"

namespace {

constexpr uint32_t kOk = 0;
constexpr uint32_t kFail = 1;
constexpr uint32_t kPermissionFail = 0xFFFFFFFF;

constexpr uint32_t kMaxNames = 50;
/** Copies that stay beside a new one. */
constexpr uint32_t kKeptCopies = 4;
constexpr size_t kCopyChunk = 2048;
constexpr const char *kBackUpTask = "backup_user_config_task";
constexpr uint32_t kBackUpPeriodMs = 600000;
constexpr const char *kBakNamePrefix = "corvane_config_bak_";

/** Set by the starters, cleared by the task's thread. */
std::atomic_ref<bool> TaskRunning() noexcept
{
    return std::atomic_ref<bool>(g_configBackUpTaskRunning);
}

/** Releases what GetALLBackupConfigNameList() gave. */
class NameList {
public:
    NameList() noexcept : names_(GetALLBackupConfigNameList(&count_)) {}
    ~NameList()
    {
        if (names_ == nullptr) {
            return;
        }
        for (uint32_t i = 0; i < count_; i++) {
            std::free(names_[i]);
        }
        g_corvaneInfra.memFree(static_cast<void *>(names_));
    }
    NameList(const NameList &) = delete;
    NameList &operator=(const NameList &) = delete;

    [[nodiscard]] char **Names() const noexcept { return names_; }
    [[nodiscard]] uint32_t Count() const noexcept { return count_; }

private:
    uint32_t count_ = 0;
    char **names_;
};

/** The registry has a function of this name with other messages; this one is the store's own. */
bool SetFilePermission(const char *file) noexcept
{
    if (g_osCalls.chmod(file, kConfigFileMode) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "chmod config file %s fail\n", file);
        return false;
    }
    uid_t user = 0;
    if (!FindUserId(kConfigFileUser, user)) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "user:%s not exist\n", kConfigFileUser);
        return false;
    }
    gid_t group = 0;
    if (!FindGroupId(kConfigFileGroup, group)) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "group:%s not exist\n", kConfigFileGroup);
        return false;
    }
    if (g_osCalls.chown(file, user, group) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "chown config file %s fail\n", file);
        return false;
    }
    return true;
}

/** Path of an entry of the backup folder. */
bool JoinBakPath(ConfigPath &path, const char *name) noexcept
{
    const char *prefix = GetPrefixPath();
    return prefix != nullptr &&
           snprintf_s(path.data(), path.size(), path.size() - 1, "%s/%s/%s", prefix, kConfigBakFolder, name) >= 0;
}

/** Collects the folder's copies. @return false without memory. */
bool ReadNames(DIR *folder, char **names, uint32_t &count) noexcept
{
    const size_t prefixLength = std::strlen(kBakNamePrefix);
    while (count < kMaxNames) {
        const dirent *entry = readdir(folder); // NOLINT(concurrency-mt-unsafe): the stream is this thread's own
        if (entry == nullptr) {
            return true;
        }
        if (std::strncmp(entry->d_name, kBakNamePrefix, prefixLength) != 0) {
            continue;
        }
        names[count] = strdup(entry->d_name);
        if (names[count] == nullptr) {
            return false;
        }
        count++;
    }
    return true;
}

/** Formats the path of a new copy from the local time. */
bool BuildNewBakPath(ConfigPath &path) noexcept
{
    const time_t now = g_osCalls.time(nullptr);
    std::tm local{};
    std::array<char, 64> timeText{};
    const char *prefix = GetPrefixPath();
    const bool formatted = localtime_r(&now, &local) != nullptr &&
                           std::strftime(timeText.data(), timeText.size(), "%Y-%m-%d-%H-%M-%S", &local) != 0 &&
                           prefix != nullptr &&
                           snprintf_s(path.data(), path.size(), path.size() - 1, "%s/%s/%s_%s", prefix,
                                      kConfigBakFolder, kBakNamePrefix, timeText.data()) >= 0;
    if (!formatted) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "concatenate config prefix:%s_%s with file:%s/%s failed.",
                            prefix, kConfigBakFolder, kBakNamePrefix, timeText.data());
    }
    return formatted;
}

/** Removes the oldest copies of a list in descending order of time. */
uint32_t TrimBakFolder(uint32_t count, char **list) noexcept
{
    const uint32_t surplus = count > kKeptCopies ? count - kKeptCopies : 0;
    for (uint32_t i = 0; i < surplus; i++) {
        const char *name = list[count - 1 - i];
        ConfigPath path;
        if (!JoinBakPath(path, name)) {
            CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "concatenate config prefix:%s with Dir:%s failed.",
                                GetPrefixPath(), kConfigBakFolder);
            return kFail;
        }
        if (g_osCalls.remove(path.data()) != 0) {
            const int error = errno;
            CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Delete excess backup files fail: %d - %s", error,
                                ErrorText(error).Get());
            return kFail;
        }
    }
    return kOk;
}

uint32_t BackUpLocked(std::FILE *config) noexcept CORVANE_REQUIRES(g_configLockToken)
{
    const NameList list;
    if (list.Names() == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Get bak config file list fail");
        return kFail;
    }
    uint8_t needed = 0;
    const uint32_t compared = IsConfigNeedBackUp(&needed, list.Count(), list.Names(), config);
    if (compared != kOk || needed == 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "DISK_CONFIG",
                            "Bak config file same as now config, don't need to update");
        return compared;
    }
    const uint32_t result = BackUpConfigToNewBakFile(config, list.Count(), list.Names());
    if (result != kOk) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Bak config fail");
    }
    return result;
}

void LogBackUpEnd(uint32_t result) noexcept
{
    CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "DISK_CONFIG", "Config file back up %s",
                        result == kOk ? "successfully" : "failed");
}

/** Writes the copy to the configuration's path, which is given back. The file may stay partial. */
uint32_t RestoreCopy(std::FILE *latest, ConfigPath &path) noexcept
{
    if (!BuildConfigPath(path, kConfigFile)) {
        return kFail;
    }
    std::FILE *config = g_osCalls.fopen(path.data(), "w+");
    if (config == nullptr) {
        const int error = errno;
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Create new config file fail: %d - %s", error,
                            ErrorText(error).Get());
        return kFail;
    }
    bool copied = CopyConfigFile(latest, config) == kOk;
    int error = errno;
    if (g_osCalls.fclose(config) != 0 && copied) {
        copied = false;
        error = errno;
    }
    if (!copied) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Copy latest bak config file fail: %d - %s", error,
                            ErrorText(error).Get());
    }
    return copied ? kOk : kFail;
}

uint32_t RestoreLatest(ConfigPath &path) noexcept
{
    const NameList list;
    if (list.Names() == nullptr || list.Count() == 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Cant get bak file list, bakNum = %d", list.Count());
        return kFail;
    }
    const FilePtr latest(GetLatestBakFile(list.Count(), list.Names()));
    if (latest == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Cant get latest bak file");
        return kFail;
    }
    return RestoreCopy(latest.get(), path);
}

} // namespace

extern "C" {

CORVANE_API bool g_configBackUpTaskRunning = false;

CORVANE_API void *BackUpConfigFileTaskWarpFunc(void *) noexcept
{
    (void)BackUpConfigFile(); // it has logged
    return nullptr;
}

CORVANE_API void BackUpConfigFileTaskCBFunc(void *) noexcept
{
    TaskRunning().store(false);
}

CORVANE_API uint32_t StartConfigBackUpTask(void) noexcept
{
    const ScheduleTask task = {
        .name = kBackUpTask,
        .forever = 1,
        .repeatCount = 0,
        .firstDelayMs = kBackUpPeriodMs,
        .periodMs = kBackUpPeriodMs,
        .entry = BackUpConfigFileTaskWarpFunc,
        .entryArg = nullptr,
        .callback = BackUpConfigFileTaskCBFunc,
        .callbackArg = nullptr,
    };
    const uint32_t ret = SubmitScheduleTask(task);
    if (ret != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Start Config Back Up Task Fail, ret = %d", ret);
        return ret;
    }
    TaskRunning().store(true);
    return 0;
}

CORVANE_API void StopConfigBackUpTask(void) noexcept
{
    const uint32_t ret = CancelScheduleTask(kBackUpTask);
    if (ret != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Cancel Config Back Up Task Fail, ret = %d", ret);
    }
}

CORVANE_API uint32_t BackUpConfigFile(void) noexcept
{
    if (g_configLock == nullptr) {
        // Before the store is initialised there is no configuration to copy.
        LogBackUpEnd(kFail);
        return kFail;
    }
    const WriteGuard guard(g_configLock, g_configLockToken);
    CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "DISK_CONFIG", "Config file back up start");
    const FilePtr config(GetConfigFileFd());
    const uint32_t result = config != nullptr ? BackUpLocked(config.get()) : kFail;
    LogBackUpEnd(result);
    return result;
}

CORVANE_API uint32_t RecoverConfigFromBak(void) noexcept
{
    ConfigPath path;
    if (RestoreLatest(path) != kOk) {
        return kFail;
    }
    if (!SetFilePermission(path.data())) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Set config file:%s permission fail.", path.data());
        return kFail;
    }
    return kOk;
}

CORVANE_API char **GetALLBackupConfigNameList(uint32_t *count) noexcept
{
    if (count == nullptr) {
        return nullptr;
    }
    *count = 0;
    using Names = std::array<char *, kMaxNames>;
    InfraPtr<Names> names = InfraNew<Names>();
    if (names == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "malloc fail");
        return nullptr;
    }
    ConfigPath path;
    if (!JoinConfigPath(path, kConfigBakFolder)) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "concatenate config prefix:%s with Dir:%s failed.",
                            GetPrefixPath(), kConfigBakFolder);
        return nullptr;
    }
    const DirPtr folder(opendir(path.data()));
    if (folder == nullptr) {
        const int error = errno;
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "open bak dir(%s) fail: %d - %s", path.data(), error,
                            ErrorText(error).Get());
        return nullptr;
    }
    uint32_t found = 0;
    if (!ReadNames(folder.get(), names->data(), found)) {
        std::for_each(names->begin(), names->begin() + found, [](char *name) { std::free(name); });
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "malloc fail");
        return nullptr;
    }
    CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "DISK_CONFIG", "there is %d bak file in backup dir", found);
    std::qsort(static_cast<void *>(names->data()), found, sizeof(char *), BakConfigFileNameCmp);
    *count = found;
    return names.release()->data();
}

CORVANE_API FILE *GetConfigFileFd(void) noexcept
{
    ConfigPath path;
    if (!BuildConfigPath(path, kConfigFile)) {
        return nullptr;
    }
    if (access(path.data(), F_OK) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "DISK_CONFIG", "file %s not exist, continue", kConfigFile);
        return nullptr;
    }
    std::FILE *config = g_osCalls.fopen(path.data(), "r");
    if (config == nullptr) {
        const int error = errno;
        CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "DISK_CONFIG", "Error opening config file : errno(%d) - %s", error,
                            ErrorText(error).Get());
    }
    return config;
}

CORVANE_API FILE *GetLatestBakFile(uint32_t count, char **list) noexcept
{
    if (count == 0 || list == nullptr) {
        return nullptr;
    }
    ConfigPath path;
    if (!JoinBakPath(path, list[0])) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "concatenate config prefix:%s with file:%s failed.",
                            GetPrefixPath(), list[0]);
        errno = ENAMETOOLONG;
        return nullptr;
    }
    return g_osCalls.fopen(path.data(), "r");
}

CORVANE_API FILE *GetNewBakConfigFile(void) noexcept
{
    ConfigPath path;
    if (!BuildNewBakPath(path)) {
        return nullptr;
    }
    FilePtr copy(g_osCalls.fopen(path.data(), "w"));
    if (copy == nullptr) {
        const int error = errno;
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "fail to create bak config file : errno(%d) - %s", error,
                            ErrorText(error).Get());
        return nullptr;
    }
    if (SetUsrConfigBakPermission(path.data()) != kOk) {
        copy.reset();
        if (g_osCalls.remove(path.data()) != 0) {
            CORVANE_LOG_CHECKED(CORVANE_LOG_WARN, "DISK_CONFIG", "error bak file delete fail");
        }
        return nullptr;
    }
    return copy.release();
}

CORVANE_API uint32_t IsConfigNeedBackUp(uint8_t *needed, uint32_t count, char **list, FILE *config) noexcept
{
    if (needed == nullptr) {
        return kFail;
    }
    *needed = 0;
    if (count == 0) {
        *needed = 1;
        CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "DISK_CONFIG", "no bak config found need to update");
        return kOk;
    }
    if (config == nullptr || list == nullptr) {
        return kFail;
    }
    const FilePtr latest(GetLatestBakFile(count, list));
    if (latest == nullptr) {
        const int error = errno;
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Get latest bak config file(%s) fail: %d - %s", list[0],
                            error, ErrorText(error).Get());
        return kFail;
    }
    if (IsConfigFileSame(config, latest.get()) != 0) {
        return kOk;
    }
    std::rewind(config);
    *needed = 1;
    CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "DISK_CONFIG", "Bak config file not same as now config need to update");
    return kOk;
}

CORVANE_API uint32_t BackUpConfigToNewBakFile(FILE *config, uint32_t count, char **list) noexcept
{
    std::FILE *copy = GetNewBakConfigFile();
    if (copy == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "DISK_CONFIG", "Error create config bak file");
        return kFail;
    }
    const uint32_t copied = CopyConfigFile(config, copy);
    // The close of a stream can be the first to meet a full disk.
    if (g_osCalls.fclose(copy) != 0 || copied != kOk) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "DISK_CONFIG", "Error copy config bak file");
        return kFail;
    }
    return TrimBakFolder(list != nullptr ? count : 0, list);
}

CORVANE_API uint32_t IsConfigFileSame(FILE *a, FILE *b) noexcept
{
    if (a == nullptr || b == nullptr) {
        return 0;
    }
    int left = 0;
    int right = 0;
    do {
        left = std::fgetc(a);
        right = std::fgetc(b);
    } while (left == right && left != EOF);
    return left == right && std::ferror(a) == 0 && std::ferror(b) == 0 ? 1 : 0;
}

CORVANE_API uint32_t CopyConfigFile(FILE *from, FILE *to) noexcept
{
    if (from == nullptr || to == nullptr) {
        errno = EINVAL;
        return kFail;
    }
    std::array<char, kCopyChunk> chunk;
    size_t length = 0;
    while ((length = g_osCalls.fread(chunk.data(), 1, chunk.size(), from)) != 0) {
        if (g_osCalls.fwrite(chunk.data(), 1, length, to) != length) {
            return kFail;
        }
    }
    return std::ferror(from) == 0 && g_osCalls.fflush(to) == 0 ? kOk : kFail;
}

CORVANE_API uint32_t SetUsrConfigBakPermission(const char *file) noexcept
{
    return file != nullptr && SetFilePermission(file) ? kOk : kPermissionFail;
}

CORVANE_API int BakConfigFileNameCmp(const void *a, const void *b) noexcept
{
    const char *left = *static_cast<const char *const *>(a);
    const char *right = *static_cast<const char *const *>(b);
    return std::strcmp(right, left);
}

} // extern "C"
