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

/** @param isOpen Kept up to date for as long as the handlers are used. */
spdlog::file_event_handlers MakeHandlers(bool &isOpen)
{
    spdlog::file_event_handlers handlers;
    // The folder may have gone since, and the sink would make one that everybody may look into.
    handlers.before_open = [](const spdlog::filename_t &name) { (void)MakeFolder(name.substr(0, name.rfind('/'))); };
    handlers.after_close = [&isOpen](const spdlog::filename_t &) { isOpen = false; };
    handlers.after_open = [&isOpen](const spdlog::filename_t &, std::FILE *file) {
        isOpen = true;
        // A tool that the process starts has no business with the log.
        (void)fcntl(fileno(file), F_SETFD, FD_CLOEXEC);
        struct stat status {};
        if (fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode)) {
            (void)fchmod(fileno(file), kFileMode);
        }
    };
    return handlers;
}

/** Tried here first: the sink would try five times, with pauses, and the log's lock is held. @return 0 or an errno. */
int TryFile(const std::string &name) noexcept
{
    const int fd = open(name.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, kFileMode);
    return fd >= 0 && close(fd) == 0 ? 0 : errno;
}

void SetReason(char *reason, size_t size, const char *text) noexcept
{
    (void)std::snprintf(reason, size, "%s", text);
}

} // namespace

struct LogFile::Sink {
    bool isOpen = false; ///< a rotation that fails can leave it closed, and then nothing more may be asked of it
    spdlog::sinks::rotating_file_sink_st file;

    Sink(const std::string &name, uint64_t maxBytes, uint32_t backups)
        : file(name, maxBytes, backups, false, MakeHandlers(isOpen))
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
        const std::string name = path + "/" NORLOG_FILE_NAME;
        const int problem = TryFile(name);
        if (problem != 0) {
            SetReason(reason, reasonSize, std::strerror(problem));
            return false;
        }
        sink_ = std::make_unique<Sink>(name, maxBytes, backups);
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
        if (!sink_->isOpen) {
            Close();
        }
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
