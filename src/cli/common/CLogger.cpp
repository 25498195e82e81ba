#include "cli/common/CLogger.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <dirent.h>
#include <exception>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "bounded/bounded.h"
#include "cli/common/CliAccounts.h"
#include "cli/common/CliUdsComm.h"
#include "cli/common/OsHelpers.h"
#include "infrastructure/common/accounts.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace {

constexpr int kOk = 0;
constexpr int kFail = -1;
constexpr int kDropLine = 1;

constexpr int kRollByDay = 0;
constexpr int kRollBySize = 1;
constexpr int kRollingModes = 2;

constexpr mode_t kRootLogMode = 0640;
constexpr mode_t kCorvaneLogMode = 0660;
constexpr mode_t kRolledLogMode = 0440;

constexpr size_t kRolledSuffixLength = 14; // YYYYMMDDhhmmss
constexpr size_t kDaySuffixLength = 8;     // YYYYMMDD
constexpr int kFirstYear = 1900;

constexpr std::array<const char *, 5> kLevelNames = {"DEBUG", "INFO", "WARN", "ERROR", "FATAL"};

/** Local time of now. @return false if the system has none. */
bool LocalNow(struct tm &local)
{
    const time_t now = OS_Now();
    return OS_LocalTime(&now, &local) != nullptr;
}

/** Mode and owner of a log file; this logger cannot log what fails. */
int SetModeAndOwner(const char *file, mode_t mode, const char *user, const char *group)
{
    if (g_osCalls.chmod(file, mode) != 0) {
        (void)std::fprintf(stderr, "chmod log file %s fail\n", file);
        return kFail;
    }
    uid_t uid = 0;
    if (!FindUserId(user, uid)) {
        (void)std::fprintf(stderr, "user:%s not exist\n", user);
        return kFail;
    }
    gid_t gid = 0;
    if (!FindGroupId(group, gid)) {
        (void)std::fprintf(stderr, "group:%s not exist\n", group);
        return kFail;
    }
    if (g_osCalls.chown(file, uid, gid) != 0) {
        (void)std::fprintf(stderr, "chmown log file %s fail\n", file);
        return kFail;
    }
    return kOk;
}

bool IsMissing(const char *text)
{
    return text == nullptr || text[0] == '\0';
}

/** Releases a mutex early, or at the end of the scope. */
using Lock = std::unique_lock<std::mutex>;

} // namespace

constinit CLogger g_objLogger;
constinit CLogger g_objLoggerOpt;
int g_iLogLevel = CLI_LOG_LEVEL_DEBUG;
bool g_bDbgFlg = true;
const char *ROOT_LOG_PATH = "/var/log/corvane_super/cli_log/";
const char *CORVANE_LOG_PATH = "/var/log/corvane/cli_log/";

int InitLog()
{
    std::string user;
    CORVANE_CLI::CliUdsComm comm;
    (void)comm.GetUsersName(user); // a process without a name is not root
    const char *path = user == "root" ? ROOT_LOG_PATH : CORVANE_LOG_PATH;
    if (g_objLogger.SetFilePath(path) != kOk || g_objLogger.SetFileName("cli.log") != kOk ||
        g_objLoggerOpt.SetFilePath(path) != kOk || g_objLoggerOpt.SetFileName("oper.log") != kOk) {
        return kFail;
    }
    for (CLogger *logger : {&g_objLogger, &g_objLoggerOpt}) {
        logger->SetLevel(g_iLogLevel);
        logger->SetDbgFlg(g_bDbgFlg);
    }
    g_objLoggerOpt.SetType(CLI_LOG_HEAD_MODULE);
    return kOk;
}

void CLogger::Log(int level, int line, unsigned long value, const char *module, const char *file, const char *function,
                  const char *format, ...) noexcept
{
    if (!CheckBeforeLog(level, module, file, function, format)) {
        return;
    }
    std::array<char, HEAD_SIZE> head{};
    if (MkLogHead(head.data(), head.size(), level, line, value, module, file, function) != kOk) {
        return;
    }
    std::array<char, MESSAGE_SIZE> message{};
    va_list args;
    va_start(args, format);
    const int length = vsnprintf_s(message.data(), message.size(), message.size() - 1, format, args);
    va_end(args);
    if (length < 0) {
        return;
    }

    Lock lock(m_lock);
    FormFileFullName();
    if (!OpenIfClosed()) {
        return;
    }
    if (m_rollingMode == kRollBySize && StorageLog(m_fileSize) == kDropLine) {
        (void)lock.release(); // which has unlocked
        return;
    }
    (void)std::fprintf(m_file, "%s%s\n", head.data(), message.data());
    (void)std::fflush(m_file);
}

bool CLogger::OpenIfClosed() noexcept
{
    if (m_file != nullptr) {
        return true;
    }
    FindOrCreateLogDirectory(m_path);
    const bool isNew = access(m_fullName, F_OK) != 0;
    m_file = g_osCalls.fopen(m_fullName, "a+e");
    if (m_file == nullptr) {
        return false;
    }
    if (isNew && SetLogFilePermision(m_fullName) != kOk) {
        CloseFile();
        (void)g_osCalls.remove(m_fullName);
        return false;
    }
    return true;
}

void CLogger::CloseFile()
{
    if (m_file != nullptr) {
        (void)g_osCalls.fclose(m_file);
        m_file = nullptr;
    }
}

void CLogger::Close()
{
    const Lock lock(m_lock);
    CloseFile();
}

int CLogger::SetRollingMode(int mode)
{
    if (mode >= kRollingModes) {
        return kFail;
    }
    const Lock lock(m_lock);
    m_rollingMode = mode;
    return kOk;
}

int CLogger::SetFileSize(int bytes)
{
    if (bytes <= 0) {
        return kFail;
    }
    const Lock lock(m_lock);
    m_fileSize = bytes;
    return kOk;
}

void CLogger::SetLevel(int level)
{
    m_level = level;
}

void CLogger::SetType(int type)
{
    m_headType = type;
}

void CLogger::SetDbgFlg(bool on)
{
    m_debugFlag = on;
}

int CLogger::SetFileName(const char *name)
{
    if (IsMissing(name) || std::strlen(name) >= PATH_SIZE) {
        return kFail;
    }
    const Lock lock(m_lock);
    (void)strcpy_s(m_name, PATH_SIZE, name);
    CloseFile();
    return kOk;
}

int CLogger::SetFilePath(const char *path)
{
    if (IsMissing(path) || std::strlen(path) >= PATH_SIZE) {
        return kFail;
    }
    const Lock lock(m_lock);
    (void)strcpy_s(m_path, PATH_SIZE, path);
    CloseFile();
    return kOk;
}

int CLogger::SetLogFilePermision(char *file) noexcept
{
    // Not by GetUsersName(), which logs: the lock of this logger may be held.
    CORVANE_CLI::UserRecord user;
    const bool isRoot = CORVANE_CLI::FindUser(getuid(), user) && std::string_view(user.entry.pw_name) == "root";
    if (user.texts == nullptr) {
        return kFail; // no memory, which does not make root's file the service's
    }
    return isRoot ? SetLogFilePermisionRoot(file) : SetLogFilePermisionCorvane(file);
}

int CLogger::SetLogFilePermisionRoot(char *file)
{
    return SetModeAndOwner(file, kRootLogMode, "root", "root");
}

int CLogger::SetLogFilePermisionCorvane(char *file)
{
    return SetModeAndOwner(file, kCorvaneLogMode, "corvane_user", "corvane_group");
}

int CLogger::SetBakLogFilePermision(char *file)
{
    if (g_osCalls.chmod(file, kRolledLogMode) != 0) {
        (void)std::fprintf(stderr, "chmod bak log file %s fail\n", file);
        return kFail;
    }
    return kOk;
}

bool CLogger::CheckBeforeLog(int level, const char *module, const char *file, const char *function, const char *format)
{
    if (module == nullptr || file == nullptr || function == nullptr || format == nullptr) {
        return false;
    }
    if (!m_debugFlag || level < m_level) {
        return false;
    }
    const Lock lock(m_lock);
    return m_name[0] != '\0' && m_path[0] != '\0';
}

int CLogger::MkLogHead(char *head, size_t size, int level, int line, unsigned long value, const char *module,
                       const char *file, const char *function)
{
    struct tm now = {};
    if (!LocalNow(now)) {
        return kFail;
    }
    const int year = now.tm_year + kFirstYear;
    const int month = now.tm_mon + 1;
    int length = 0;
    switch (m_headType) {
    case CLI_LOG_HEAD_FULL:
        length = snprintf_s(head, size, size - 1, "[%4d-%02d-%02d %02d:%02d:%02d][%s][%s][%s,%d,%s]", year, month,
                            now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec, MkLogLevel(level), module, file, line,
                            function);
        break;
    case CLI_LOG_HEAD_MODULE:
        length = snprintf_s(head, size, size - 1, "[%4d-%02d-%02d %02d:%02d:%02d][%s]", year, month, now.tm_mday,
                            now.tm_hour, now.tm_min, now.tm_sec, module);
        break;
    default:
        length = snprintf_s(head, size, size - 1, "[%4d-%02d-%02d %02d:%02d:%02d][0x%016lx][%d]", year, month,
                            now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec, value, level);
        break;
    }
    return length < 0 ? kFail : kOk;
}

const char *CLogger::MkLogLevel(int level)
{
    return level >= 0 && static_cast<size_t>(level) < kLevelNames.size() ? kLevelNames[static_cast<size_t>(level)] : "";
}

void CLogger::FormFileFullName()
{
    std::array<char, PATH_SIZE> name{};
    int length = snprintf_s(name.data(), name.size(), name.size() - 1, "%s/%s", m_path, m_name);
    struct tm now = {};
    if (length >= 0 && m_rollingMode == kRollByDay && LocalNow(now)) {
        length = snprintf_s(name.data(), name.size(), name.size() - 1, "%s/%s.%4d%02d%02d", m_path, m_name,
                            now.tm_year + kFirstYear, now.tm_mon + 1, now.tm_mday);
    }
    // A log file is no folder: it is closed and opened anew for each line, so
    // that one that was moved or deleted is made anew.
    if (!OS_FileExists(name.data())) {
        CloseFile();
    }
    if (std::strcmp(name.data(), m_fullName) != 0) {
        CloseFile();
        (void)strcpy_s(m_fullName, PATH_SIZE, length < 0 ? "" : name.data());
    }
}

int CLogger::StorageLog(long fileSize) noexcept
{
    Lock lock(m_lock, std::adopt_lock);
    (void)g_osCalls.fseek(m_file, 0, SEEK_END);
    if (g_osCalls.ftell(m_file) < fileSize) {
        (void)lock.release(); // stays the caller's
        return kOk;
    }
    struct tm now = {};
    if (!LocalNow(now)) {
        return kDropLine;
    }
    std::array<char, PATH_SIZE> rolled{};
    if (snprintf_s(rolled.data(), rolled.size(), rolled.size() - 1, "%s.%4d%02d%02d%02d%02d%02d", m_fullName,
                   now.tm_year + kFirstYear, now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec) < 0) {
        return kDropLine;
    }
    CloseFile();
    (void)g_osCalls.rename(m_fullName, rolled.data());
    ProcessLogFile();

    m_file = g_osCalls.fopen(m_fullName, "a+e");
    if (m_file == nullptr) {
        return kDropLine;
    }
    if (SetBakLogFilePermision(rolled.data()) != kOk) {
        return kDropLine;
    }
    if (SetLogFilePermision(m_fullName) != kOk) {
        CloseFile();
        (void)g_osCalls.remove(m_fullName);
        return kDropLine;
    }
    (void)lock.release(); // stays the caller's
    return kOk;
}

void CLogger::ProcessLogFile() noexcept
{
    try {
        std::list<std::string> rolled;
        while (GetAllLogFile(m_path, rolled, true) > m_backups) {
            std::string oldest;
            if (GetOldestLogFile(rolled, oldest) != kOk) {
                return;
            }
            const std::string path = std::string(m_path) + "/" + oldest;
            if (OS_FileDelete(path.c_str()) != kOk) {
                return; // it would be the oldest again
            }
        }
    } catch (const std::exception &) {
        return; // no memory: they stay until the next time, and the line is written all the same
    }
}

int CLogger::GetAllLogFile(const char *path, std::list<std::string> &list, bool withTime)
{
    list.clear();
    // The search text is no folder's name on Linux, so that rolled files stay
    // until somebody removes them.
    const std::string search = std::string(path) + "\\*.*";
    const DirPtr folder(opendir(search.c_str()));
    if (folder == nullptr) {
        return 0;
    }
    const std::string prefix = std::string(m_name) + ".";
    const size_t suffixLength = withTime ? kRolledSuffixLength : kDaySuffixLength;
    while (const struct dirent *entry = readdir(folder.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == ".." || entry->d_type == DT_DIR) {
            continue;
        }
        const size_t at = name.find(prefix);
        if (at != std::string::npos && name.size() - at - prefix.size() == suffixLength) {
            list.push_back(name);
        }
    }
    return static_cast<int>(list.size());
}

int CLogger::GetOldestLogFile(std::list<std::string> &list, std::string &name)
{
    constexpr std::string_view marker = ".log.";
    std::vector<std::string> suffixes;
    for (const std::string &entry : list) {
        const size_t at = entry.find(marker);
        if (at != std::string::npos) {
            suffixes.push_back(entry.substr(at + marker.size()));
        }
    }
    if (suffixes.empty()) {
        return kFail;
    }
    const std::string oldest = *std::min_element(suffixes.begin(), suffixes.end());
    for (const std::string &entry : list) {
        if (entry.find(oldest) != std::string::npos) {
            name = entry;
            return kOk;
        }
    }
    return kFail;
}
