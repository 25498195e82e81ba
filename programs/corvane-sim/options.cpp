#include "options.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <getopt.h>

namespace corvane_sim {
namespace {

constexpr int kUsageError = 2;

constexpr const char *kHelp =
    "Usage: corvane-sim --scenario FILE [OPTION]...\n"
    "       corvane-sim --scenario FILE --judge STATUS\n"
    "       corvane-sim --control PATH --send EVENT\n"
    "Serve simulated disks to the collection of disk health, as the kernel agent and the SPDK agent would.\n"
    "\n"
    "  -s, --scenario FILE     the fleet and what happens to it, in JSON (required)\n"
    "  -c, --check             check the scenario and end\n"
    "      --judge STATUS      compare the last line of a JSON status of corvaned with what the scenario expects,\n"
    "                          and end\n"
    "  -r, --record FILE       write every received request as a line of JSON\n"
    "      --control PATH      serve a control socket: one event a line, applied at once\n"
    "      --send EVENT        send an event to the control socket of a running simulation, and end\n"
    "      --dcak-socket PATH  socket of the kernel agent (default /tmp/dcak.sock)\n"
    "      --spdk-socket PATH  socket of the SPDK agent (default /var/tmp/spdk.sock)\n"
    "      --no-dcak           do not serve the kernel agent\n"
    "      --no-spdk           do not serve the SPDK agent\n"
    "      --ready-fd FD       also write the line \"ready\" to this descriptor, then close it\n"
    "      --duration SECONDS  end by itself after this time\n"
    "      --speed FACTOR      let the scenario's clock run faster or slower (default 1)\n"
    "  -h, --help              show this text and end\n"
    "  -V, --version           show the version and end\n"
    "\n"
    "Once both sockets listen, the line \"ready\" goes to standard output. SIGTERM and SIGINT end the program and\n"
    "remove its sockets.\n"
    "\n"
    "Exit status: 0 ended as asked; 1 could not serve, the event was refused, a verdict is not as expected, or\n"
    "standard output cannot be written; 2 wrong command line; 3 the scenario has a mistake.\n"
    "The scenario format is described in docs/simulator.md.\n";

enum LongOnly : int {
    kControl = 256,
    kJudge,
    kSend,
    kDcakSocket,
    kSpdkSocket,
    kNoDcak,
    kNoSpdk,
    kReadyFd,
    kDuration,
    kSpeed
};

constexpr option kLongOptions[] = {
    {"scenario", required_argument, nullptr, 's'},
    {"check", no_argument, nullptr, 'c'},
    {"record", required_argument, nullptr, 'r'},
    {"control", required_argument, nullptr, kControl},
    {"judge", required_argument, nullptr, kJudge},
    {"send", required_argument, nullptr, kSend},
    {"dcak-socket", required_argument, nullptr, kDcakSocket},
    {"spdk-socket", required_argument, nullptr, kSpdkSocket},
    {"no-dcak", no_argument, nullptr, kNoDcak},
    {"no-spdk", no_argument, nullptr, kNoSpdk},
    {"ready-fd", required_argument, nullptr, kReadyFd},
    {"duration", required_argument, nullptr, kDuration},
    {"speed", required_argument, nullptr, kSpeed},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

std::optional<double> PositiveNumber(const char *text)
{
    char *end = nullptr;
    const double value = std::strtod(text, &end);
    if (end == text || *end != '\0' || !std::isfinite(value) || value <= 0) {
        return std::nullopt;
    }
    return value;
}

std::nullopt_t UsageError(int &exitCode, const char *option, const char *value, const char *problem)
{
    (void)std::fprintf(stderr, "corvane-sim: %s %s: %s\nTry 'corvane-sim --help'.\n", option, value, problem);
    exitCode = kUsageError;
    return std::nullopt;
}

} // namespace

std::optional<Options> ParseOptions(int argc, char **argv, int &exitCode)
{
    Options options;
    for (int key = 0; (key = getopt_long(argc, argv, "s:cr:hV", kLongOptions, nullptr)) != -1;) {
        switch (key) {
        case 's':
            options.scenario = optarg;
            break;
        case 'c':
            options.checkOnly = true;
            break;
        case 'r':
            options.record = optarg;
            break;
        case kControl:
            options.control = optarg;
            break;
        case kJudge:
            options.judge = optarg;
            break;
        case kSend:
            options.send = optarg;
            break;
        case kDcakSocket:
            options.dcakSocket = optarg;
            break;
        case kSpdkSocket:
            options.spdkSocket = optarg;
            break;
        case kNoDcak:
            options.serveDcak = false;
            break;
        case kNoSpdk:
            options.serveSpdk = false;
            break;
        case kReadyFd: {
            const auto fd = PositiveNumber(optarg);
            if (!fd || *fd != std::floor(*fd) || *fd > 65535 || fcntl(static_cast<int>(*fd), F_GETFD) < 0) {
                return UsageError(exitCode, "--ready-fd", optarg, "is no open descriptor");
            }
            options.readyFd = static_cast<int>(*fd);
            break;
        }
        case kDuration:
            if (!(options.duration = PositiveNumber(optarg))) {
                return UsageError(exitCode, "--duration", optarg, "must be a number of seconds above 0");
            }
            break;
        case kSpeed: {
            const auto speed = PositiveNumber(optarg);
            if (!speed) {
                return UsageError(exitCode, "--speed", optarg, "must be a number above 0");
            }
            options.speed = *speed;
            break;
        }
        case 'h':
            (void)std::fputs(kHelp, stdout);
            exitCode = 0;
            return std::nullopt;
        case 'V':
            (void)std::printf("corvane-sim %s\n", CORVANE_VERSION);
            exitCode = 0;
            return std::nullopt;
        default:
            (void)std::fputs("Try 'corvane-sim --help'.\n", stderr);
            exitCode = kUsageError;
            return std::nullopt;
        }
    }
    if (optind < argc) {
        return UsageError(exitCode, "argument", argv[optind], "is not expected; all settings are options");
    }
    if (!options.send.empty()) {
        if (options.control.empty()) {
            return UsageError(exitCode, "--send", options.send.c_str(), "needs --control with the socket to send to");
        }
        return options;
    }
    if (options.scenario.empty()) {
        return UsageError(exitCode, "--scenario", "", "is missing; name a scenario file");
    }
    if (!options.checkOnly && options.judge.empty() && !options.serveDcak && !options.serveSpdk) {
        return UsageError(exitCode, "--no-dcak", "--no-spdk", "leave nothing to serve; remove one of the two");
    }
    return options;
}

} // namespace corvane_sim
