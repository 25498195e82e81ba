#include "norlog_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

// The logging library is not ours to fix.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wundef"
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#pragma GCC diagnostic pop

#include "platform/norlog.h"

namespace {

constexpr mode_t kFolderMode = 0750;
constexpr mode_t kFileMode = 0640;

/** Makes the folder and what stands above it. */
bool MakeFolder(std::string path) noexcept
{
    for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1)) {
        path[at] = '\0';
        const int status = mkdir(path.c_str(), kFolderMode);
        path[at] = '/';
        if (status != 0 && errno != EEXIST) {
            return false;
        }
    }
    return mkdir(path.c_str(), kFolderMode) == 0 || errno == EEXIST;
}

spdlog::file_event_handlers MakeHandlers()
{
    spdlog::file_event_handlers handlers;
    handlers.after_open = [](const spdlog::filename_t &, std::FILE *file) {
        // A tool that the process starts has no business with the log.
        (void)fcntl(fileno(file), F_SETFD, FD_CLOEXEC);
        struct stat status {};
        if (fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode)) {
            (void)fchmod(fileno(file), kFileMode);
        }
    };
    return handlers;
}

void SetReason(char *reason, size_t size, const char *text) noexcept
{
    (void)std::snprintf(reason, size, "%s", text);
}

} // namespace

struct LogFile::Sink {
    spdlog::sinks::rotating_file_sink_st file;

    Sink(const std::string &name, uint64_t maxBytes, uint32_t backups)
        : file(name, maxBytes, backups, false, MakeHandlers())
    {
        file.set_formatter(std::make_unique<spdlog::pattern_formatter>("[%Y-%m-%d %H:%M:%S.%f]%v"));
    }
};

LogFile::LogFile() noexcept = default;
LogFile::~LogFile() = default;

bool LogFile::Open(const char *folder, uint64_t maxBytes, uint32_t backups, char *reason, size_t reasonSize) noexcept
{
    Close();
    try {
        const std::string path(folder);
        if (!MakeFolder(path)) {
            SetReason(reason, reasonSize, std::strerror(errno));
            return false;
        }
        sink_ = std::make_unique<Sink>(path + "/" NORLOG_FILE_NAME, maxBytes, backups);
        return true;
    } catch (const std::exception &error) {
        SetReason(reason, reasonSize, error.what());
        return false;
    }
}

void LogFile::Close() noexcept
{
    sink_.reset();
}

bool LogFile::Write(std::string_view line, bool flush, char *reason, size_t reasonSize) noexcept
{
    if (sink_ == nullptr) {
        SetReason(reason, reasonSize, "no file");
        return false;
    }
    try {
        const spdlog::details::log_msg message(spdlog::string_view_t(), spdlog::level::info,
                                               spdlog::string_view_t(line.data(), line.size()));
        sink_->file.log(message);
        if (flush) {
            sink_->file.flush();
        }
        return true;
    } catch (const std::exception &error) {
        SetReason(reason, reasonSize, error.what());
        return false;
    }
}

void LogFile::Flush() noexcept
{
    if (sink_ == nullptr) {
        return;
    }
    try {
        sink_->file.flush();
    } catch (const std::exception &) {
        // The next line that is written tells.
        return;
    }
}
