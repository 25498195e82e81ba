#include "options.h"

#include <charconv>
#include <cstring>
#include <getopt.h>
#include <string_view>

#include "common/command_line.h"

const char *const kHelpText = R"(Usage: corvaned [--prefix DIR] [--status-interval SECONDS [--status-format text|json]]
                [--allow-action-mismatch] [--verbose]

Watches the health of this node's disks: reads them through the collection agents, keeps a registry of
disks by serial number and live records of their health and I/O, and answers corvanectl. Runs in the
foreground until SIGTERM or SIGINT.

  -p, --prefix DIR               installation prefix; its folder "config" holds settings and registry
                                 (default: the folder above the one that holds this program)
  -s, --status-interval SECONDS  print a table of the online disks this often, 1 to 86400
                                 (default: no table)
  -f, --status-format FORMAT     "text" prints a table, "json" one JSON object a line (default: text)
      --allow-action-mismatch    run a management request whose action differs from the one that its sender
                                 was found to have the right for (default: refuse it)
  -v, --verbose                  write each management request and its answer to cli.log as well
  -h, --help                     print this text and exit
  -V, --version                  print the version and exit

Exit status: 0 ended on request, 1 start failed or standard output cannot be written, 2 bad command line,
3 already running on this prefix.
Log: /var/log/corvane/. See corvaned(8).
)";

namespace {

constexpr uint32_t kMaxStatusInterval = 86400;
constexpr const char *kLetters = ":p:s:f:vhV";

bool ParseInterval(std::string_view text, uint32_t &seconds)
{
    const char *end = text.data() + text.size();
    const auto [rest, failure] = std::from_chars(text.data(), end, seconds);
    return failure == std::errc() && rest == end && seconds >= 1 && seconds <= kMaxStatusInterval;
}

} // namespace

bool ParseOptions(int argc, char **argv, Options &options, std::string &error)
{
    constexpr int allowActionMismatch = 256; // no letter
    static const option longOptions[] = {
        {"prefix", required_argument, nullptr, 'p'},
        {"status-interval", required_argument, nullptr, 's'},
        {"status-format", required_argument, nullptr, 'f'},
        {"allow-action-mismatch", no_argument, nullptr, allowActionMismatch},
        {"verbose", no_argument, nullptr, 'v'},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'V'},
        {nullptr, 0, nullptr, 0},
    };
    opterr = 0;
    int letter = 0;
    while ((letter = getopt_long(argc, argv, kLetters, longOptions, nullptr)) != -1) {
        switch (letter) {
        case 'p':
            if (*optarg == '\0') {
                error = "--prefix is empty; give the folder that holds \"config\"";
                return false;
            }
            options.prefix = optarg;
            break;
        case 's':
            if (!ParseInterval(optarg, options.statusInterval)) {
                error = std::string("--status-interval ") + optarg + " is no whole number from 1 to " +
                        std::to_string(kMaxStatusInterval) + "; give the seconds between two tables";
                return false;
            }
            break;
        case 'f':
            if (std::strcmp(optarg, "text") != 0 && std::strcmp(optarg, "json") != 0) {
                error = std::string("--status-format ") + optarg + " is unknown; give text or json";
                return false;
            }
            options.statusFormat = *optarg == 'j' ? Options::Format::JSON : Options::Format::TEXT;
            break;
        case allowActionMismatch:
            options.allowActionMismatch = true;
            break;
        case 'v':
            options.verbose = true;
            break;
        case 'h':
            options.action = Options::Action::HELP;
            return true;
        case 'V':
            options.action = Options::Action::VERSION;
            return true;
        case ':':
            error = std::string(argv[optind - 1]) + " needs a value; see corvaned --help";
            return false;
        default:
            error = "unknown option " + RefusedOption(argv, kLetters) + "; see corvaned --help";
            return false;
        }
    }
    if (optind < argc) {
        error = std::string("unexpected argument ") + argv[optind] + "; see corvaned --help";
        return false;
    }
    return true;
}
