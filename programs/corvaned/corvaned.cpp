/**
 * @file corvaned.cpp
 * @brief The library in a process of its own.
 *
 * The main thread starts the library, then waits for signals and tells the service manager that the library works; it
 * never waits for the library. The status is printed by a thread of its own, and everything else happens on the
 * library's threads. Signals that end the process are blocked before the first thread exists, so that all threads
 * inherit that and only the wait below receives them.
 */
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <sched.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "cli/common/CLogger.h"
#include "cli/server/CliUdsServer.h"
#include "common/command_line.h"
#include "common/service_manager.h"
#include "config/corvane_prefix_path.h"
#include "exit_codes.h"
#include "init/corvane_init.h"
#include "init/corvane_signal_stash.h"
#include "library_pulse.h"
#include "options.h"
#include "start_failure.h"
#include "status.h"

namespace {

constexpr long kNanosecondsPerSecond = 1000000000L;
constexpr long kNanosecondsPerMillisecond = 1000000L;
constexpr long kMillisecondsPerSecond = 1000L;
/** As many as the library's own threads take between two that give the processor away. */
constexpr int kLooksBeforeYield = 64;

/** Sets the prefix by option or by the program's place. @return what is wrong, or nothing. */
std::string SetPrefix(const Options &options)
{
    if (options.prefix.empty()) {
        return InitCorvanePrefixPathInd() == 0
                   ? ""
                   : "the prefix cannot be found from the program's own path; give --prefix";
    }
    std::array<char, PATH_MAX> real{};
    if (realpath(options.prefix.c_str(), real.data()) == nullptr) {
        return "the prefix " + options.prefix + " does not exist; create it, or give the right one with --prefix";
    }
    // "/" joins with "/config" as well without its slash.
    const std::string path = real.data();
    return SetPrefixPath(path == "/" ? "" : path.c_str()) == 0 ? "" : "no memory for the prefix";
}

sigset_t EndSignals()
{
    sigset_t signals;
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGTERM);
    (void)sigaddset(&signals, SIGINT);
    return signals;
}

/** A moment that comes again and again. */
class Recurring {
public:
    explicit Recurring(long periodMs) : periodMs_(periodMs) { AfterNow(); }

    [[nodiscard]] bool IsDue() const
    {
        const struct timespec left = Left();
        return left.tv_sec == 0 && left.tv_nsec == 0;
    }
    /** Moments that have passed meanwhile are left out. */
    void Next()
    {
        Advance();
        if (IsDue()) {
            AfterNow();
        }
    }
    /** Time from now on the monotonic clock, not below zero. */
    [[nodiscard]] struct timespec Left() const
    {
        struct timespec now = {};
        (void)clock_gettime(CLOCK_MONOTONIC, &now);
        struct timespec left = {due_.tv_sec - now.tv_sec, due_.tv_nsec - now.tv_nsec};
        if (left.tv_nsec < 0) {
            left.tv_sec -= 1;
            left.tv_nsec += kNanosecondsPerSecond;
        }
        return left.tv_sec < 0 ? timespec{0, 0} : left;
    }

private:
    void AfterNow()
    {
        (void)clock_gettime(CLOCK_MONOTONIC, &due_);
        Advance();
    }
    void Advance()
    {
        due_.tv_sec += periodMs_ / kMillisecondsPerSecond;
        due_.tv_nsec += periodMs_ % kMillisecondsPerSecond * kNanosecondsPerMillisecond;
        if (due_.tv_nsec >= kNanosecondsPerSecond) {
            due_.tv_sec += 1;
            due_.tv_nsec -= kNanosecondsPerSecond;
        }
    }

    long periodMs_;
    struct timespec due_ = {};
};

/** For ever. On a thread of its own: the data store may be waited for as long as a peer is. */
void PrintStatusAgainAndAgain(uint32_t intervalSeconds, Options::Format format) noexcept
{
    Recurring status(static_cast<long>(intervalSeconds) * kMillisecondsPerSecond);
    while (true) {
        struct timespec left = status.Left();
        while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
        }
        status.Next();
        PrintStatus(stdout, format);
    }
}

void StartStatus(const Options &options)
{
    try {
        std::thread(PrintStatusAgainAndAgain, options.statusInterval, options.statusFormat).detach();
    } catch (const std::exception &problem) {
        (void)std::fprintf(stderr, "corvaned: no status will be printed: %s\n", problem.what());
    }
}

/** @return true when one of the signals has come, false when the time is over, or earlier. */
bool WaitForSignal(const sigset_t &signals, const struct timespec &time)
{
    return sigtimedwait(&signals, nullptr, &time) > 0;
}

/**
 * Waits until the library shows that it works; where it is stuck, that is until the service manager ends the process.
 * @return true when one of the signals has come before.
 */
bool WaitForPulse(const sigset_t &signals, LibraryPulse &pulse)
{
    // Others wait for the same locks in this way, and whoever sleeps in between comes too late for ever.
    for (int look = 1; !pulse.Beats(); look++) {
        if (look % kLooksBeforeYield != 0) {
            continue;
        }
        if (WaitForSignal(signals, {0, 0})) {
            return true;
        }
        (void)sched_yield();
    }
    return false;
}

/** Returns when one of the signals has come. */
void WaitForEnd(const sigset_t &signals)
{
    const long period = WatchdogPeriodMs();
    if (period == 0) {
        while (sigwaitinfo(&signals, nullptr) < 0 && errno == EINTR) {
        }
        return;
    }
    LibraryPulse pulse;
    Recurring beat(period);
    while (true) {
        do {
            if (WaitForSignal(signals, beat.Left())) {
                return;
            }
        } while (!beat.IsDue());
        if (WaitForPulse(signals, pulse)) {
            return;
        }
        (void)NotifyServiceManager("WATCHDOG=1");
        beat.Next();
    }
}

[[nodiscard]] int Fail(int exitCode, const std::string &message)
{
    (void)std::fflush(stdout);
    (void)std::fprintf(stderr, "corvaned: %s\n", message.c_str());
    return exitCode;
}

[[nodiscard]] int Print(const std::string &text)
{
    (void)std::fputs(text.c_str(), stdout);
    const std::string problem = FlushOutput();
    return problem.empty() ? EXIT_CODE_OK : Fail(EXIT_CODE_START_FAILED, problem);
}

/**
 * Leaves without the destructors of the process: the library's threads are still running, and what they save is safe
 * against an end at any moment.
 */
[[noreturn]] void Leave(int exitCode)
{
    (void)std::fflush(nullptr);
    _exit(exitCode);
}

int Run(const Options &options)
{
    const sigset_t signals = EndSignals();
    (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    (void)std::signal(SIGPIPE, SIG_IGN); // a reader of the table that leaves must not take the service with it
    (void)umask(0007);                   // what the library creates is for its user and group

    std::string problem = SetPrefix(options);
    if (!problem.empty()) {
        return Fail(EXIT_CODE_START_FAILED, problem);
    }
    const std::string prefix = GetPrefixPath();
    problem = CheckPrefix(prefix);
    if (!problem.empty()) {
        return Fail(EXIT_CODE_START_FAILED, problem);
    }

    // An answer is some KiB, and a live table asks for many of them every few seconds.
    g_iLogLevel = options.verbose ? CLI_LOG_LEVEL_DEBUG : CLI_LOG_LEVEL_INFO;
    g_cliRefuseActionMismatch = options.allowActionMismatch ? 0 : 1;

    // Host libraries install handlers of their own; the ones of this program are put back.
    if (StashProcessSignalHandler() != 0) {
        return Fail(EXIT_CODE_START_FAILED, "no memory to keep the signal handlers");
    }
    const uint32_t status = InitCorvane(CORVANE_START_INDEPENDENT);
    (void)StashPopProcessSignalHandler();
    if (status != 0) {
        const StartFailure failure = ExplainStartFailure(prefix, status);
        return Fail(failure.exitCode, failure.message);
    }

    if (!NotifyServiceManager("READY=1\nSTATUS=Watching disks")) {
        (void)std::fprintf(stderr, "corvaned: the service manager cannot be told that the start is complete; "
                                   "check NOTIFY_SOCKET\n");
    }
    if (options.statusInterval > 0) {
        StartStatus(options);
    }
    WaitForEnd(signals);
    (void)NotifyServiceManager("STOPPING=1\nSTATUS=Stopping");
    return EXIT_CODE_OK;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    std::string error;
    if (!ParseOptions(argc, argv, options, error)) {
        return Fail(EXIT_CODE_USAGE, error);
    }
    switch (options.action) {
    case Options::Action::HELP:
        return Print(kHelpText);
    case Options::Action::VERSION:
        return Print("corvaned " CORVANE_VERSION "\n");
    case Options::Action::RUN:
        break;
    }
    Leave(Run(options));
}
