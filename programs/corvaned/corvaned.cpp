/**
 * @file corvaned.cpp
 * @brief The library in a process of its own.
 *
 * The main thread starts the library, then waits for signals and prints the status table; everything else happens on
 * the library's threads. Signals that end the process are blocked before the first thread exists, so that all threads
 * inherit that and only the wait below receives them.
 */
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/common/CLogger.h"
#include "cli/server/CliUdsServer.h"
#include "config/corvane_prefix_path.h"
#include "exit_codes.h"
#include "init/corvane_init.h"
#include "init/corvane_signal_stash.h"
#include "online_disks.h"
#include "options.h"
#include "service_manager.h"
#include "start_failure.h"
#include "status_json.h"
#include "status_table.h"

namespace {

constexpr long kNanosecondsPerSecond = 1000000000L;
constexpr long kNanosecondsPerMillisecond = 1000000L;
constexpr long kMillisecondsPerSecond = 1000L;

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

/** A moment that comes again and again; one with no period never comes. */
class Recurring {
public:
    explicit Recurring(long periodMs) : periodMs_(periodMs)
    {
        (void)clock_gettime(CLOCK_MONOTONIC, &due_);
        Next();
    }

    [[nodiscard]] bool Wanted() const { return periodMs_ > 0; }
    void Next()
    {
        due_.tv_sec += periodMs_ / kMillisecondsPerSecond;
        due_.tv_nsec += periodMs_ % kMillisecondsPerSecond * kNanosecondsPerMillisecond;
        if (due_.tv_nsec >= kNanosecondsPerSecond) {
            due_.tv_sec += 1;
            due_.tv_nsec -= kNanosecondsPerSecond;
        }
    }
    [[nodiscard]] bool IsBefore(const Recurring &other) const
    {
        return Wanted() && (!other.Wanted() || due_.tv_sec < other.due_.tv_sec ||
                            (due_.tv_sec == other.due_.tv_sec && due_.tv_nsec < other.due_.tv_nsec));
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
    long periodMs_;
    struct timespec due_ = {};
};

void PrintStatus(const Options &options)
{
    if (options.statusFormat == Options::Format::JSON) {
        PrintStatusJson(stdout);
    } else {
        PrintStatusTable(stdout);
    }
}

/** The list needs the lock that every part of the library takes sooner or later: where it is stuck, so is the service.
 */
void TellThatItWorks()
{
    std::vector<DiskMgrObj> disks;
    (void)ListOnlineDisks(
        disks); // that it returns is what counts: there is no list while the collection is switched off
    (void)NotifyServiceManager("WATCHDOG=1");
}

/** Returns when one of the signals has come; prints the status and tells the service manager in between. */
void WaitForEnd(const sigset_t &signals, const Options &options)
{
    Recurring status(static_cast<long>(options.statusInterval) * kMillisecondsPerSecond);
    Recurring watchdog(WatchdogPeriodMs());
    if (!status.Wanted() && !watchdog.Wanted()) {
        while (sigwaitinfo(&signals, nullptr) < 0 && errno == EINTR) {
        }
        return;
    }
    while (true) {
        const bool isWatchdog = watchdog.IsBefore(status);
        Recurring &next = isWatchdog ? watchdog : status;
        int result = 0;
        do {
            const struct timespec left = next.Left();
            result = sigtimedwait(&signals, nullptr, &left);
        } while (result < 0 && errno == EINTR);
        if (result > 0) {
            return;
        }
        next.Next();
        if (isWatchdog) {
            TellThatItWorks();
        } else {
            PrintStatus(options);
        }
    }
}

[[nodiscard]] int Fail(int exitCode, const std::string &message)
{
    (void)std::fflush(stdout);
    (void)std::fprintf(stderr, "corvaned: %s\n", message.c_str());
    return exitCode;
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
    WaitForEnd(signals, options);
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
        (void)std::fputs(kHelpText, stdout);
        return EXIT_CODE_OK;
    case Options::Action::VERSION:
        (void)std::puts("corvaned " CORVANE_VERSION);
        return EXIT_CODE_OK;
    case Options::Action::RUN:
        break;
    }
    Leave(Run(options));
}
