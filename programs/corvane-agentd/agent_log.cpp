#include "agent_log.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "infrastructure/corvane_adapter_os/corvane_adapter_os_log.h"
#include "infrastructure/corvane_infra.h"

namespace {

constexpr mode_t kFolderMode = 0750;
constexpr size_t kTextSize = 8192;

bool g_everything = false;
/** The stream of the last line. Guarded by g_osLogLock. */
std::FILE *g_stream = nullptr;
/** The rotation makes a thread, and that may log: the lock is held by this thread then. */
thread_local bool t_logging = false;

void BringToFile() noexcept
{
    g_corvaneInfra.spinlockLock(g_osLogLock);
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
        BringToFile();
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
