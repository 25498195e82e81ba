#include "platform/norlog.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <new>
#include <pthread.h>
#include <string_view>

#include "mutex_guard.h"
#include "norlog_file.h"

namespace {

constexpr uint32_t kErrorLevel = 3;
constexpr uint64_t kDefaultFileSize = 4ULL << 20;
constexpr uint64_t kMinFileSize = 1024;
constexpr uint32_t kDefaultBackups = 10;
constexpr uint32_t kMaxBackups = 10000;
constexpr uint64_t kFlushPeriodSeconds = 1;
constexpr size_t kPathSize = 4096;
/** Longer lines are formatted on the heap. */
constexpr size_t kUsualLine = 1024;
constexpr std::array<const char *, 8> kLevelNames{"N/A", "N/A", "CRITICAL", "ERROR", "WARN", "EVENT", "INFO", "DEBUG"};

/** Level + 1 of each module; 0 is "never set", so that the array needs no initial values. */
std::array<std::atomic<uint32_t>, NORLOG_MODULES> g_levels;

/** All that the lock guards. Never released: a thread may log while the process ends. */
struct Log {
    uint32_t starts = 0;
    std::array<char, kPathSize> folder{};
    uint64_t fileSize = kDefaultFileSize;
    uint32_t backups = kDefaultBackups;
    LogFile file;
    bool failureTold = false; ///< the folder's failure stands on standard error already
    pthread_t flusher{};
};

pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t g_flusherWakeUp;
/** Serialises start and stop, which join the flushing thread without g_lock. Before g_lock. */
pthread_mutex_t g_startLock = PTHREAD_MUTEX_INITIALIZER;
Log *g_log = nullptr;

Log *LogLocked() noexcept
{
    if (g_log == nullptr) {
        pthread_condattr_t attributes;
        if (pthread_condattr_init(&attributes) != 0) {
            return nullptr;
        }
        (void)pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        const int status = pthread_cond_init(&g_flusherWakeUp, &attributes);
        (void)pthread_condattr_destroy(&attributes);
        g_log = status == 0 ? new (std::nothrow) Log : nullptr;
    }
    return g_log;
}

void TellFailureLocked(Log &log, const char *reason) noexcept
{
    if (!log.failureTold) {
        log.failureTold = true;
        (void)std::fprintf(stderr, "norlog: cannot write to log folder \"%s\": %s; logging to standard error\n",
                           log.folder.data(), reason);
    }
}

void OpenLocked(Log &log) noexcept
{
    std::array<char, 256> reason{"no folder was chosen"};
    const bool open = log.folder[0] != '\0' &&
                      log.file.Open(log.folder.data(), log.fileSize, log.backups, reason.data(), reason.size());
    if (!open) {
        TellFailureLocked(log, reason.data());
    }
}

/** After a change of path, size or number. */
void ReopenLocked(Log &log) noexcept
{
    if (log.starts != 0) {
        OpenLocked(log);
    }
}

/** Whatever kept the file from being opened may be over. */
void MendLocked(Log &log) noexcept
{
    OpenLocked(log);
    if (log.file.IsOpen()) {
        log.failureTold = false; // the next failure is news
    }
}

void *FlushEverySecond(void *)
{
    const MutexGuard guard(g_lock);
    while (g_log->starts != 0) {
        timespec until{};
        (void)clock_gettime(CLOCK_MONOTONIC, &until);
        until.tv_sec += kFlushPeriodSeconds;
        (void)pthread_cond_timedwait(&g_flusherWakeUp, &g_lock, &until);
        if (g_log->file.IsOpen()) {
            g_log->file.Flush();
        } else if (g_log->starts != 0) {
            MendLocked(*g_log);
        }
    }
    return nullptr;
}

int StartFlusherLocked(Log &log) noexcept
{
    sigset_t all;
    sigset_t former;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &former);
    const int status = pthread_create(&log.flusher, nullptr, FlushEverySecond, nullptr);
    (void)pthread_sigmask(SIG_SETMASK, &former, nullptr);
    return status;
}

const char *LevelName(uint32_t level) noexcept
{
    return level < kLevelNames.size() ? kLevelNames[level] : kLevelNames[0];
}

struct MallocFree {
    void operator()(char *text) const noexcept { std::free(text); }
};

/** One formatted line: in place where it is short, on the heap where it is long, cut where there is no memory. */
class Line {
public:
    /** Call once, first. */
    void Format(const char *fmt, va_list args) noexcept
    {
        va_list again;
        va_copy(again, args);
        const int length = std::vsnprintf(usual_.data(), usual_.size(), fmt, args);
        size_ = length < 0 ? 0 : std::min(static_cast<size_t>(length), usual_.size() - 1);
        if (length >= static_cast<int>(usual_.size())) {
            char *text = nullptr;
            const int fullLength = vasprintf(&text, fmt, again);
            if (fullLength >= 0) {
                heap_.reset(text);
                size_ = static_cast<size_t>(fullLength);
            }
        }
        va_end(again);
    }

    /** A text of several lines must not look like several calls. */
    void MakeOneLine() noexcept
    {
        char *text = Text();
        while (size_ > 0 && (text[size_ - 1] == '\n' || text[size_ - 1] == '\r')) {
            size_--;
        }
        std::replace_if(
            text, text + size_,
            [](char c) { return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f'; }, ' ');
        text[size_] = '\0';
    }

    [[nodiscard]] char *Text() noexcept { return heap_ != nullptr ? heap_.get() : usual_.data(); }
    [[nodiscard]] size_t Size() const noexcept { return size_; }

private:
    std::array<char, kUsualLine> usual_;
    std::unique_ptr<char, MallocFree> heap_;
    size_t size_ = 0;
};

__attribute__((format(printf, 2, 3))) void FormatLine(Line &line, const char *fmt, ...) noexcept
{
    va_list args;
    va_start(args, fmt);
    line.Format(fmt, args);
    va_end(args);
}

void WriteLine(uint32_t level, Line &line) noexcept
{
    const MutexGuard guard(g_lock);
    Log *log = g_log;
    if (log == nullptr || log->starts == 0) {
        if (level <= kErrorLevel) {
            (void)std::fprintf(stderr, "%s\n", line.Text());
        }
        return;
    }
    std::array<char, 256> reason{};
    const std::string_view text(line.Text(), line.Size());
    if (log->file.IsOpen()) {
        if (log->file.Write(text, level <= kErrorLevel, reason.data(), reason.size())) {
            if (level <= kErrorLevel) {
                // Written through to the file after a failure, such as a disk that was full: the next failure is news.
                log->failureTold = false;
            }
            return;
        }
        TellFailureLocked(*log, reason.data());
    }
    (void)std::fprintf(stderr, "%s\n", line.Text());
}

} // namespace

#define NORLOG_API __attribute__((visibility("default")))

extern "C" {

NORLOG_API int norlog_set_file_path_ext(const char *path, const char *)
{
    if (path == nullptr || path[0] == '\0' || std::string_view(path).size() >= kPathSize) {
        return EINVAL;
    }
    const MutexGuard guard(g_lock);
    Log *log = LogLocked();
    if (log == nullptr) {
        return ENOMEM;
    }
    (void)std::snprintf(log->folder.data(), log->folder.size(), "%s", path);
    log->failureTold = false;
    ReopenLocked(*log);
    return 0;
}

NORLOG_API int norlog_init(void)
{
    const MutexGuard start(g_startLock);
    const MutexGuard guard(g_lock);
    Log *log = LogLocked();
    if (log == nullptr) {
        return ENOMEM;
    }
    if (log->starts++ == 0) {
        log->failureTold = false;
        const int status = StartFlusherLocked(*log);
        if (status != 0) {
            log->starts = 0;
            return status;
        }
        OpenLocked(*log);
    }
    return 0;
}

NORLOG_API int norlog_set_backup_num(uint32_t count)
{
    if (count > kMaxBackups) {
        return EINVAL;
    }
    const MutexGuard guard(g_lock);
    Log *log = LogLocked();
    if (log == nullptr) {
        return ENOMEM;
    }
    log->backups = count;
    ReopenLocked(*log);
    return 0;
}

NORLOG_API int norlog_set_file_size(uint64_t bytes)
{
    if (bytes < kMinFileSize) {
        return EINVAL;
    }
    const MutexGuard guard(g_lock);
    Log *log = LogLocked();
    if (log == nullptr) {
        return ENOMEM;
    }
    log->fileSize = bytes;
    ReopenLocked(*log);
    return 0;
}

NORLOG_API int norlog_destroy(void)
{
    const MutexGuard start(g_startLock);
    pthread_t flusher{};
    {
        const MutexGuard guard(g_lock);
        Log *log = g_log;
        if (log == nullptr || log->starts == 0) {
            return ESRCH;
        }
        if (--log->starts != 0) {
            return 0;
        }
        log->file.Flush();
        log->file.Close();
        flusher = log->flusher;
        (void)pthread_cond_signal(&g_flusherWakeUp);
    }
    (void)pthread_join(flusher, nullptr);
    return 0;
}

NORLOG_API void norlog(uint32_t module, uint32_t level, const char *file, uint32_t line, const char *func, uint32_t,
                       const char *fmt, ...)
{
    if (level > norlog_loglevel_get(module) || fmt == nullptr) {
        return;
    }
    Line text;
    va_list args;
    va_start(args, fmt);
    text.Format(fmt, args);
    va_end(args);
    text.MakeOneLine();

    Line whole;
    FormatLine(whole, "[%s][%u][%s:%u][%s] %s", LevelName(level), module, file != nullptr ? file : "?", line,
               func != nullptr ? func : "?", text.Text());
    WriteLine(level, whole);
}

NORLOG_API uint32_t norlog_loglevel_get(uint32_t module)
{
    const uint32_t stored = module < NORLOG_MODULES ? g_levels[module].load(std::memory_order_relaxed) : 0;
    return stored == 0 ? NORLOG_DEFAULT_LEVEL : stored - 1;
}

NORLOG_API int norlog_loglevel_set(uint32_t module, uint32_t level)
{
    if (module >= NORLOG_MODULES || level == UINT32_MAX) {
        return EINVAL;
    }
    g_levels[module].store(level + 1, std::memory_order_relaxed);
    return 0;
}

} // extern "C"
