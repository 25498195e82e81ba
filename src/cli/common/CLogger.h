/**
 * @file CLogger.h
 * @brief The command line's own log: text files that roll by size, with a fixed head per line.
 *
 * Owns one file per instance. Any thread; a mutex per instance is held for the file work, never while anything is
 * logged by another instance. Level, debug flag and head type are atomics.
 */
#ifndef CLI_CLOGGER_H
#define CLI_CLOGGER_H

#include <array>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <list>
#include <mutex>
#include <string>
#include <type_traits>

#include "infrastructure/common/corvane_export.h"

enum CliLogLevel {
    CLI_LOG_LEVEL_DEBUG = 0,
    CLI_LOG_LEVEL_INFO = 1,
    CLI_LOG_LEVEL_WARN = 2,
    CLI_LOG_LEVEL_ERROR = 3,
    CLI_LOG_LEVEL_FATAL = 4,
};

/** Forms of the head of a line. */
enum CliLogHead {
    CLI_LOG_HEAD_FULL = 0,   /**< time, level, module, file, line, function */
    CLI_LOG_HEAD_VALUE = 1,  /**< time, number, level; any other number means this one */
    CLI_LOG_HEAD_MODULE = 2, /**< time, module */
};

class CORVANE_API CLogger {
public:
    static constexpr size_t PATH_SIZE = 256;
    static constexpr size_t HEAD_SIZE = 256;     /**< a head of 255 characters */
    static constexpr size_t MESSAGE_SIZE = 1024; /**< a longer message is dropped */

    constexpr CLogger() = default;
    // No destructor: threads log until the process ends.
    CLogger(const CLogger &) = delete;
    CLogger &operator=(const CLogger &) = delete;

    /**
     * @brief Write one line: head, message, line feed. A line that cannot be written whole, or for want of memory, is
     *        dropped.
     * @param value  Shown by CLI_LOG_HEAD_VALUE only.
     * @param file   Base name of the source without its ending.
     */
    void Log(int level, int line, unsigned long value, const char *module, const char *file, const char *function,
             const char *format, ...) noexcept __attribute__((format(printf, 8, 9)));

    /** @param mode 1 by size, 0 by day. @retval -1  2 and above; nothing changes. */
    int SetRollingMode(int mode);
    /** @param bytes Size at which the file rolls. @retval -1  0 and below. */
    int SetFileSize(int bytes);
    void SetLevel(int level);
    void SetType(int type);
    /** @param on false drops every line. */
    void SetDbgFlg(bool on);
    /** @brief Close the file; the next line opens it anew. */
    void Close();
    /** @retval -1  Null, empty, or too long. */
    int SetFileName(const char *name);
    /** @param path Folder, with a slash at its end. @retval -1  Null, empty, or too long. */
    int SetFilePath(const char *path);

    /** @brief Mode and owner of the live file, by the user that the process runs as. @retval -1  Refused. */
    int SetLogFilePermision(char *file) noexcept;
    /** @brief 0640, root:root. @retval -1  Refused; told on standard error. */
    int SetLogFilePermisionRoot(char *file);
    /** @brief 0660, corvane_user:corvane_group. @retval -1  Refused; told on standard error. */
    int SetLogFilePermisionCorvane(char *file);
    /** @brief 0440 for a rolled file. @retval -1  Refused; told on standard error. */
    int SetBakLogFilePermision(char *file);

    /** @return whether a line of this level with these arguments is to be written. */
    bool CheckBeforeLog(int level, const char *module, const char *file, const char *function, const char *format);
    /** @brief Form the head. @retval -1  It does not fit. */
    int MkLogHead(char *head, size_t size, int level, int line, unsigned long value, const char *module,
                  const char *file, const char *function);
    /** @return the level's name; empty for a number without one. */
    const char *MkLogLevel(int level);
    /** @brief Form the name of the file to be open, and close another, or one that is no folder. @note Holds the lock.
     */
    void FormFileFullName();
    /**
     * @brief Roll the file if it has reached @p fileSize bytes.
     * @retval 1  Failed: drop the line.
     * @note The caller holds the lock, which is released with a result of 1.
     */
    int StorageLog(long fileSize) noexcept;
    /** @brief Delete the oldest rolled files above the limit, as far as memory allows. */
    void ProcessLogFile() noexcept;
    /** @brief List rolled files. @return how many. */
    int GetAllLogFile(const char *path, std::list<std::string> &list, bool withTime);
    /** @brief The oldest of a list. @retval -1  The list is empty. */
    int GetOldestLogFile(std::list<std::string> &list, std::string &name);

private:
    /** @return whether a file is open. @note Holds the lock. */
    bool OpenIfClosed() noexcept;
    void CloseFile();

    std::FILE *m_file = nullptr;
    std::atomic<bool> m_debugFlag = true;
    char m_path[PATH_SIZE] = {};
    int m_fileSize = 0x1E00000;
    int m_rollingMode = 1;
    char m_fullName[PATH_SIZE] = {};
    std::mutex m_lock;
    std::atomic<int> m_level = 0;
    std::atomic<int> m_headType = 0;
    int m_backups = 10;
    char m_name[PATH_SIZE] = "VelmarVssProvider.log"; // replaced by InitLog()
};

static_assert(std::is_trivially_destructible_v<CLogger>);

/** "cli.log", and "oper.log". */
extern CORVANE_API CLogger g_objLogger;
extern CORVANE_API CLogger g_objLoggerOpt;
/** What InitLog() gives both. */
extern CORVANE_API int g_iLogLevel;
extern CORVANE_API bool g_bDbgFlg;
/** Log folders of processes of root and of others. */
extern CORVANE_API const char *ROOT_LOG_PATH;
extern CORVANE_API const char *CORVANE_LOG_PATH;

/** @brief Configure both loggers for this process's user. @retval -1  A path or a name does not fit. */
CORVANE_API int InitLog();

/** @brief Base name of a source file without its ending. */
template <size_t N>
consteval std::array<char, N> CliFileStem(const char (&path)[N])
{
    size_t begin = 0;
    size_t end = N - 1;
    for (size_t i = 0; i < N; i++) {
        if (path[i] == '/') {
            begin = i + 1;
        }
    }
    for (size_t i = begin; i < N; i++) {
        if (path[i] == '.') {
            end = i;
        }
    }
    std::array<char, N> stem{};
    for (size_t i = begin; i < end; i++) {
        stem[i - begin] = path[i];
    }
    return stem;
}

#define CLI_LOG_FROM(logger, function, level, value, ...)                                                              \
    do {                                                                                                               \
        static constexpr auto stem_ = CliFileStem(__FILE__);                                                           \
        (logger).Log((level), __LINE__, (value), "CLI_LOG", stem_.data(), (function), __VA_ARGS__);                    \
    } while (false)
#define CLI_LOG_TO(logger, level, value, ...) CLI_LOG_FROM(logger, __func__, level, value, __VA_ARGS__)
#define CLI_LOG_DEBUG(...) CLI_LOG_TO(g_objLogger, CLI_LOG_LEVEL_DEBUG, 0, __VA_ARGS__)
#define CLI_LOG_INFO(...) CLI_LOG_TO(g_objLogger, CLI_LOG_LEVEL_INFO, 1, __VA_ARGS__)
#define CLI_LOG_WARN(...) CLI_LOG_TO(g_objLogger, CLI_LOG_LEVEL_WARN, 1, __VA_ARGS__)
#define CLI_LOG_ERROR(...) CLI_LOG_TO(g_objLogger, CLI_LOG_LEVEL_ERROR, 1, __VA_ARGS__)
/** @name For helpers: an operator reads the name of the operation that they serve. */
/** @{ */
#define CLI_LOG_INFO_FROM(function, ...) CLI_LOG_FROM(g_objLogger, function, CLI_LOG_LEVEL_INFO, 1, __VA_ARGS__)
#define CLI_LOG_ERROR_FROM(function, ...) CLI_LOG_FROM(g_objLogger, function, CLI_LOG_LEVEL_ERROR, 1, __VA_ARGS__)
/** @} */

#endif
