/**
 * @file main.cpp
 * @brief The process that hosts the kernel agent.
 *
 * The main thread starts the agent, waits until it accepts, and then for a signal; between signals it looks whether
 * the agent still listens, since the agent's thread has nobody else to tell that it has ended. Signals that end the
 * process are blocked before the first thread exists, so that only the wait below receives them.
 */
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <getopt.h>
#include <grp.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "agent_log.h"
#include "common/command_line.h"
#include "common/service_manager.h"
#include "config/corvane_prefix_path.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_lsblk.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_server.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_slot.h"

namespace {

/** What the exit status says. Service files and scripts rely on the numbers. */
enum ExitCode {
    EXIT_CODE_OK = 0,           /**< ended by SIGTERM or SIGINT, or --help or --version */
    EXIT_CODE_START_FAILED = 1, /**< the agent does not serve, or no longer, or the text of --help or --version cannot
                                     be written; standard error says why */
    EXIT_CODE_USAGE = 2,        /**< bad command line */
    EXIT_CODE_ALREADY_RUNNING = 3, /**< somebody serves the socket already */
    EXIT_CODE_NOT_ROOT = 4,        /**< not started as root */
    EXIT_CODE_NO_GROUP = 5,        /**< the group of the socket is missing */
    EXIT_CODE_LSBLK = 6,           /**< lsblk is missing or too old */
};

const char *const kHelpText = R"(Usage: corvane-agentd [--verbose]

Answers the collection requests of corvaned on /tmp/dcak.sock: lists this node's SATA and SAS disks, their
identity, health and I/O counters. Runs in the foreground, as root, until SIGTERM or SIGINT.

  -v, --verbose  log the course of every request, not only what fails
  -h, --help     print this text and exit
  -V, --version  print the version and exit

Exit status: 0 ended on request, 1 start failed, the agent stopped serving, or standard output cannot be written,
2 bad command line, 3 the socket is served already, 4 not root, 5 the group corvane_group is missing, 6 lsblk is
missing or older than 2.23.2.
Log: /var/log/corvane_super/corvane.os.log. See corvane-agentd(8).
)";

const char *const kLetters = ":vhV";
const char *const kGroup = "corvane_group";
constexpr mode_t kSocketMode = 0660;
constexpr long kPollNs = 20000000L; // 20 ms
constexpr int kStartPolls = 500;    // 10 s
constexpr long kWatchMs = 30000;    // at most; the service manager may want to hear more often
constexpr long kMillisecondsPerSecond = 1000;
constexpr long kNanosecondsPerMillisecond = 1000000;

[[nodiscard]] int Fail(int exitCode, const std::string &message)
{
    (void)std::fflush(stdout);
    (void)std::fprintf(stderr, "corvane-agentd: %s\n", message.c_str());
    return exitCode;
}

[[nodiscard]] int Print(const std::string &text)
{
    (void)std::fputs(text.c_str(), stdout);
    const std::string problem = FlushOutput();
    return problem.empty() ? EXIT_CODE_OK : Fail(EXIT_CODE_START_FAILED, problem);
}

enum class Listener { SERVES, REFUSES, ABSENT, UNKNOWN };

/**
 * Asks an empty request of whoever listens, which an agent answers without a line in its log.
 * @param[out] pid  The process that listens.
 * @return UNKNOWN, with errno set, if this process cannot ask: that says nothing of the other.
 */
Listener Probe(const char *path, pid_t &pid)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return Listener::UNKNOWN;
    }
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, strnlen(path, DCAK_SERVER_ADDRESS_SIZE));
    Listener found = Listener::SERVES;
    if (connect(fd, reinterpret_cast<const struct sockaddr *>(&address), sizeof(address)) != 0) {
        // A full backlog is somebody's, too.
        found = errno == EAGAIN ? Listener::SERVES : errno == ECONNREFUSED ? Listener::REFUSES : Listener::ABSENT;
    } else {
        struct ucred peer = {};
        socklen_t length = sizeof(peer);
        pid = getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 ? peer.pid : 0;
        (void)send(fd, "{}", 2, MSG_NOSIGNAL);
    }
    (void)close(fd);
    return found;
}

/** Giving the socket its group and mode is the agent's last step before it accepts. */
bool WaitUntilServing(gid_t group, struct stat &socketFile)
{
    for (int i = 0; i < kStartPolls; i++) {
        if (stat(g_DCAK_SERVER.address, &socketFile) == 0 && S_ISSOCK(socketFile.st_mode) &&
            (socketFile.st_mode & ALLPERMS) == kSocketMode && socketFile.st_gid == group) {
            pid_t pid = 0;
            if (Probe(g_DCAK_SERVER.address, pid) == Listener::SERVES) {
                return pid == getpid();
            }
            // The file of an agent that was killed: ours is not there yet.
        }
        const struct timespec pause = {0, kPollNs};
        (void)nanosleep(&pause, nullptr);
    }
    return false;
}

/** Unlinks the socket, unless another agent has put its own there. */
void RemoveSocket(const struct stat &ours)
{
    struct stat now = {};
    if (stat(g_DCAK_SERVER.address, &now) == 0 && now.st_dev == ours.st_dev && now.st_ino == ours.st_ino) {
        (void)unlink(g_DCAK_SERVER.address);
    }
}

/** @return true when a signal has come, false when the agent no longer serves. */
bool WaitForEnd(const sigset_t &signals)
{
    const long wanted = WatchdogPeriodMs();
    const long period = wanted > 0 ? std::min(wanted, kWatchMs) : kWatchMs;
    while (true) {
        const struct timespec pause = {period / kMillisecondsPerSecond,
                                       period % kMillisecondsPerSecond * kNanosecondsPerMillisecond};
        if (sigtimedwait(&signals, nullptr, &pause) > 0) {
            return true;
        }
        if (errno != EAGAIN) {
            continue;
        }
        pid_t pid = 0;
        const Listener found = Probe(g_DCAK_SERVER.address, pid);
        // Busy agents run out of descriptors, too; one that is gone has given its own back.
        if (found != Listener::SERVES && found != Listener::UNKNOWN) {
            return false;
        }
        if (wanted > 0) {
            (void)NotifyServiceManager("WATCHDOG=1");
        }
    }
}

int Run(bool verbose)
{
    sigset_t signals;
    (void)sigemptyset(&signals);
    (void)sigaddset(&signals, SIGTERM);
    (void)sigaddset(&signals, SIGINT);
    (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    (void)umask(0117); // nobody else may connect before the socket has got its group

    if (geteuid() != 0) {
        return Fail(EXIT_CODE_NOT_ROOT, "must run as root: it sends SCSI and ATA commands to the disks");
    }
    const struct group *group = getgrnam(kGroup);
    if (group == nullptr) {
        return Fail(EXIT_CODE_NO_GROUP, "the group corvane_group is missing: groupadd --system corvane_group");
    }
    const gid_t groupId = group->gr_gid;
    (void)DcakServerInit();
    pid_t other = 0;
    const Listener present = Probe(g_DCAK_SERVER.address, other);
    if (present == Listener::UNKNOWN) {
        return Fail(EXIT_CODE_START_FAILED, std::string("cannot look whether ") + g_DCAK_SERVER.address +
                                                " is served already: no socket: " + std::strerror(errno));
    }
    if (present == Listener::SERVES) {
        return Fail(EXIT_CODE_ALREADY_RUNNING, std::string(g_DCAK_SERVER.address) + " is served already by process " +
                                                   std::to_string(other) + "; stop that process first");
    }
    // The script that takes rotated logs away lies below the prefix.
    if (InitCorvanePrefixPathInd() != 0) {
        (void)std::fprintf(stderr,
                           "corvane-agentd: the prefix cannot be found from the program's own path; %s is used\n",
                           GetPrefixPath());
    }
    if (!StartAgentLog(verbose)) {
        (void)std::fprintf(stderr, "corvane-agentd: no log file in %s; logging to standard output\n", kAgentLogFolder);
    }
    g_dcakCheckPciAddress = 1;

    if (DcakInitSocketSever() != 0) {
        std::array<char, DCAK_VERSION_SIZE> version{};
        if (GetLsblkVersion(version.data()) != 0) {
            return Fail(EXIT_CODE_LSBLK, "lsblk is missing or does not tell its version: install util-linux");
        }
        if (CompareVersionValid(version.data(), "2.23.2") == 0) {
            return Fail(EXIT_CODE_LSBLK,
                        std::string("lsblk is ") + version.data() + ", 2.23.2 or later is needed: upgrade util-linux");
        }
        return Fail(EXIT_CODE_START_FAILED, std::string("the agent did not start; see ") + kAgentLogFolder);
    }
    struct stat socketFile = {};
    if (!WaitUntilServing(groupId, socketFile)) {
        return Fail(EXIT_CODE_START_FAILED, std::string("the agent does not serve ") + g_DCAK_SERVER.address +
                                                "; the failed step is named in " + kAgentLogFolder);
    }
    if (!NotifyServiceManager("READY=1\nSTATUS=Serving")) {
        (void)std::fprintf(stderr, "corvane-agentd: the service manager cannot be told that the start is complete; "
                                   "check NOTIFY_SOCKET\n");
    }
    NoteInAgentLog(std::string("serving ") + g_DCAK_SERVER.address + ", version " + CORVANE_VERSION);
    const bool asked = WaitForEnd(signals);
    (void)NotifyServiceManager("STOPPING=1\nSTATUS=Stopping");
    RemoveSocket(socketFile);
    NoteInAgentLog(asked ? "stopping on request" : "stopping: the agent serves no longer");
    // The log stays open: connections may still be served and write to it. What it holds is flushed by the end of main.
    return asked ? EXIT_CODE_OK
                 : Fail(EXIT_CODE_START_FAILED, std::string("the agent has stopped serving; see ") + kAgentLogFolder);
}

} // namespace

int main(int argc, char **argv)
{
    static const option longOptions[] = {{"verbose", no_argument, nullptr, 'v'},
                                         {"help", no_argument, nullptr, 'h'},
                                         {"version", no_argument, nullptr, 'V'},
                                         {nullptr, 0, nullptr, 0}};
    bool verbose = false;
    opterr = 0;
    for (int letter = 0; (letter = getopt_long(argc, argv, kLetters, longOptions, nullptr)) != -1;) {
        switch (letter) {
        case 'v':
            verbose = true;
            break;
        case 'h':
            return Print(kHelpText);
        case 'V':
            return Print("corvane-agentd " CORVANE_VERSION "\n");
        default:
            return Fail(EXIT_CODE_USAGE,
                        "unknown option " + RefusedOption(argv, kLetters) + "; see corvane-agentd --help");
        }
    }
    if (optind < argc) {
        return Fail(EXIT_CODE_USAGE,
                    std::string("unexpected argument ") + argv[optind] + "; see corvane-agentd --help");
    }
    const int exitCode = Run(verbose);
    // Without the destructors of the process: the agent's threads may still be running.
    (void)std::fflush(nullptr);
    _exit(exitCode);
}
