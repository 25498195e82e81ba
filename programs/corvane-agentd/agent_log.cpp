#include "agent_log.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "infrastructure/corvane_adapter_os/corvane_adapter_os_log.h"
#include "infrastructure/corvane_infra.h"

namespace {

constexpr mode_t kFolderMode = 0750;
constexpr mode_t kFileMode = 0600; // until the library has set mode and owner
constexpr size_t kTextSize = 8192;

bool g_everything = false;
/** The stream of the last line. Guarded by g_osLogLock. */
std::FILE *g_stream = nullptr;
/** The rotation makes a thread, and that may log: the lock is held by this thread then. */
thread_local bool t_logging = false;

/**
 * The library's rotation renames the file and then makes a new one. Where that fails, and where somebody has taken the
 * file away, lines go on into what has lost its name, and no later rotation finds anything to rename. With g_osLogLock
 * held.
 * @return whether the file was missing and is there again.
 */
bool RestoreFile() noexcept
{
    if (g_osLogFile == nullptr || access(CORVANE_OS_LOG_FILE, F_OK) == 0 || errno != ENOENT) {
        return false;
    }
    // Else each line would try to rotate and tell that it cannot, or hand over a piece that is still written to.
    g_corvaneInfra.atomicSet(g_osLogWrittenBytes, 0);
    g_corvaneInfra.atomicSet(g_osLogBackupPending, 0);
    // CreateLogFile() tells each failure, and this may be one for each line.
    const int fd = open(CORVANE_OS_LOG_FILE, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
    if (fd < 0) {
        return false;
    }
    (void)close(fd);
    if (CreateLogFile(&g_osLogFile, CORVANE_OS_LOG_FILE) != 0) {
        (void)unlink(CORVANE_OS_LOG_FILE); // an empty one would be rotated over the piece that was put aside
        return false;
    }
    // The library starts the backup of the piece, if there is one, with the next line.
    g_corvaneInfra.atomicSet(g_osLogBackupPending, access(CORVANE_OS_LOG_ROTATED_FILE, F_OK) == 0 ? 1 : 0);
    return true;
}

/** @return whether the file was missing and is there again. */
bool BringToFile() noexcept
{
    g_corvaneInfra.spinlockLock(g_osLogLock);
    const bool restored = RestoreFile();
    if (g_osLogFile != g_stream) {
        if (g_stream != nullptr) {
            (void)std::fclose(g_stream); // of the file that was rotated away; nobody writes to it any more
        }
        g_stream = g_osLogFile;
    }
    if (g_stream != nullptr) {
        (void)std::fflush(g_stream);
    }
    g_corvaneInfra.spinlockUnlock(g_osLogLock);
    return restored;
}

__attribute__((format(printf, 6, 7))) void LogLine(uint32_t level, const char *module, const char *file, uint32_t line,
                                                   const char *func, const char *fmt, ...) noexcept
{
    if (level >= CORVANE_LOG_DEBUG && !g_everything) {
        return;
    }
    std::array<char, kTextSize> text{};
    va_list args;
    va_start(args, fmt);
    (void)std::vsnprintf(text.data(), text.size(), fmt, args);
    va_end(args);

    const bool outermost = !t_logging;
    t_logging = true;
    CorvaneOsLog(level, module, file, line, func, "%s", text.data());
    if (outermost) {
        if (BringToFile()) {
            CorvaneOsLog(CORVANE_LOG_EVENT, "AGENTD", "agent_log.cpp", __LINE__, __func__, "%s",
                         "the log file was missing and begins anew");
            (void)BringToFile();
        }
        t_logging = false;
    }
}

} // namespace

bool StartAgentLog(bool everything)
{
    // A line at a time, also where standard output is a pipe.
    (void)std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const mode_t mask = umask(0);
    const int made = mkdir(kAgentLogFolder, kFolderMode);
    (void)umask(mask);
    if (made != 0 && errno != EEXIST) {
        (void)std::fprintf(stderr, "corvane-agentd: %s cannot be made: %s\n", kAgentLogFolder, std::strerror(errno));
    }
    if (CorvaneInfraRegisterOsAdapter() != 0) {
        return false;
    }
    g_everything = everything;
    g_stream = g_osLogFile;
    g_corvaneInfra.log = LogLine;
    return true;
}

void NoteInAgentLog(const std::string &text)
{
    if (g_corvaneInfra.log != nullptr) {
        g_corvaneInfra.log(CORVANE_LOG_EVENT, "AGENTD", "agent_log.cpp", __LINE__, __func__, "%s", text.c_str());
    } else {
        (void)std::printf("[AGENTD] EVENT : %s\n", text.c_str());
    }
}
