#include "help.h"

#include <array>
#include <string_view>

const char *const kHelpText = R"(Usage: corvanectl [OPTION...] show COMMAND [KEY=VALUE...]
       corvanectl [OPTION...] change COMMAND KEY=VALUE...
       corvanectl [OPTION...] list
       corvanectl [OPTION...] watch
       corvanectl help [COMMAND]

Shows the disks that corvaned watches on this node, their verdicts and what to do about them, and changes
its settings. A change holds at once and after a restart.

  list                     a row for each disk: state, score, life that is left, what to do
  watch                    state, score, life that is left and utilisation, live; Ctrl-C ends
  show summary             identifiers and serial numbers of the disks
  show slowdisk            the slow disks
  show disk_info           identity of a disk: disk_id=N
  show iostat_info         I/O statistics of a disk: disk_id=N
  show smart_info          hours and wear of a disk: disk_id=N
  show drm_info            verdict on a disk: disk_id=N
  show config              the switches; change config sets them
  show slowdisk_detect_config, show dpr_smart, show disklife_prediction
                           how verdicts are reached; change COMMAND sets it
  help COMMAND             keys, ranges and examples of a command

  -p, --prefix DIR         corvaned's installation prefix (default: the folder above the one that holds this program)
  -s, --socket PATH        corvaned's socket (default: config/CLI_UDS.unix below the prefix)
  -t, --timeout SECONDS    wait this long for an answer, 1 to 3600 (default: 10)
  -j, --json               print JSON, for list, watch and every show
  -i, --interval SECONDS   pause of watch after each refresh, 1 to 3600 (default: 3)
  -n, --count N            end a watch after so many refreshes (default: never)
  -h, --help               print this text, or that of the command, and exit
  -V, --version            print the version and exit

Exit status: 0 done, 2 bad command line, 3 no connection, 4 no permission, 5 refused by the server, 6 no answer in
time, 1 any other failure. See corvanectl(1).
)";

namespace {

struct CommandHelp {
    std::string_view action;
    std::string_view command;
    const char *text;
};

constexpr std::array<CommandHelp, 16> kCommands{{
    {"list", "", R"(corvanectl list
  A row for each online disk: identifier, device, type, slot, model, serial number, state, health score (0 to 100,
  100 is best), months of life that are left, and what to do. "-" where a disk has no such value: only SAS SSDs and
  NVMe disks get a score and months. "?" where there is none yet, or no record of it. On a terminal that is too narrow
  the model is cut, marked "~", and what to do stands below the disks that are not normal. A disk with an identifier
  above 63 has only its serial number: see corvanectl(1), CAVEATS.
  Examples:
    corvanectl list
    corvanectl list --json
)"},
    {"watch", "", R"(corvanectl watch [--interval SECONDS] [--count N]
  A live table of the online disks, those in trouble first: state, health score, months of life that are left, and
  percent of the time with a request in flight, "?" without I/O statistics. Without a terminal it prints a table for
  each refresh. It pauses for SECONDS after each, 1 to 3600, 3 unless given: corvaned's records are not newer. N ends
  the watch after so many tables, up to 1000000; Ctrl-C and SIGTERM end it at any time, with status 0.
  Examples:
    corvanectl watch
    corvanectl watch --interval 10 --json
)"},
    {"show", "summary", R"(corvanectl show summary
  Identifiers and serial numbers of all online disks, at most 64.
  Example:
    corvanectl show summary
)"},
    {"show", "slowdisk", R"(corvanectl show slowdisk
  Serial numbers and slots of the disks that are slow compared with their peers.
  Example:
    corvanectl show slowdisk
)"},
    {"show", "disk_info", R"(corvanectl show disk_info disk_id=N
  Identity of a disk: state, capacity, vendor, model, firmware, serial number, device, PCI address, type, slot.
  N is the disk's identifier, 0 to 63; corvanectl list shows those there are.
  Example:
    corvanectl show disk_info disk_id=3
)"},
    {"show", "iostat_info", R"(corvanectl show iostat_info disk_id=N
  I/O of a disk in the last three seconds: operations and bandwidth, average delays, queue, utilisation. It is refused
  with code 0x4003690C until the disk's agent has sent two samples of its counters.
  N is the disk's identifier, 0 to 63; corvanectl list shows those there are.
  Example:
    corvanectl show iostat_info disk_id=3
)"},
    {"show", "smart_info", R"(corvanectl show smart_info disk_id=N
  Hours of power and percent of wear of a disk. The fraction of the percentage counts hundredths: 12.5 means 12.05.
  Both are 0 as long as there is no health record of the disk.
  N is the disk's identifier, 0 to 63; corvanectl list shows those there are.
  Example:
    corvanectl show smart_info disk_id=3
)"},
    {"show", "drm_info", R"(corvanectl show drm_info disk_id=N
  Verdict on a disk: health score, months of life that are left, state, what to do. Score and months are for SAS SSDs
  and NVMe disks; of SATA SSDs the text says "No predictions yet" for ever, and --json "none".
  N is the disk's identifier, 0 to 63; corvanectl list shows those there are.
  Example:
    corvanectl show drm_info disk_id=3
)"},
    {"show", "config", R"(corvanectl show config
  The two switches: feature_switch, whether disks are watched, and takeover_disk_switch, whether new NVMe disks are
  handed to the user-space storage service.
  Example:
    corvanectl show config
)"},
    {"show", "slowdisk_detect_config", R"(corvanectl show slowdisk_detect_config
  How slow disks are told from their peers, for each type of disk.
  Example:
    corvanectl show slowdisk_detect_config
)"},
    {"show", "dpr_smart", R"(corvanectl show dpr_smart
  Seconds between two looks for signs of failure, for each type of disk.
  Example:
    corvanectl show dpr_smart
)"},
    {"show", "disklife_prediction", R"(corvanectl show disklife_prediction
  Seconds between two predictions of the life that is left.
  Example:
    corvanectl show disklife_prediction
)"},
    {"change", "config", R"(corvanectl change config feature_switch=on|off
corvanectl change config takeover_disk_switch=on|off
  Turn watching disks, or handing new NVMe disks to the user-space storage service, on or off. One switch at a time.
  While feature_switch is off no disk is shown and there are no verdicts; the registry of disks stays, with identifiers
  and states, and with feature_switch=on the disks are shown again and their records collected anew.
  Examples:
    corvanectl change config feature_switch=on
    corvanectl change config takeover_disk_switch=off
)"},
    {"change", "slowdisk_detect_config", R"(corvanectl change slowdisk_detect_config disk_type=T min_threshold_value=N
corvanectl change slowdisk_detect_config disk_type=T min_slow_cycle=C
  When a disk counts as slow: at least N milliseconds for an operation, in C samples. One of the two at a time.
  T  0 SATA SSD, 1 SAS SSD, 2 NVMe, 3 SAS hard disks
  N  milliseconds: 1 to 10, for hard disks 1 to 255; numbers up to 500 are taken, but of those above 255 only the low
     8 bits act: 300 acts as 44, and 256, which has none, is refused
  C  samples, one every three seconds: 10 to 100
  Examples:
    corvanectl change slowdisk_detect_config disk_type=3 min_threshold_value=100
    corvanectl change slowdisk_detect_config disk_type=2 min_slow_cycle=50
)"},
    {"change", "dpr_smart", R"(corvanectl change dpr_smart disk_type=T task_cycle=S
  Look for signs of failure every S seconds.
  T  0 SATA SSD, 1 SAS SSD, 2 NVMe, 3 SAS hard disks
  S  seconds: 1 to 2592000, 30 days; looks are at least five seconds apart
  Example:
    corvanectl change dpr_smart disk_type=0 task_cycle=20
)"},
    {"change", "disklife_prediction", R"(corvanectl change disklife_prediction task_cycle=S
  Predict the life that is left every S seconds; one cycle for all types of disks.
  S  seconds: 60 to 7776000, 90 days
  Example:
    corvanectl change disklife_prediction task_cycle=86400
)"},
}};

bool Fits(const CommandHelp &command, const std::vector<std::string> &words)
{
    if (words[0] == command.command) {
        return true;
    }
    return words[0] == command.action && (command.command.empty() || words.size() == 1 || words[1] == command.command);
}

} // namespace

std::string HelpFor(const std::vector<std::string> &words)
{
    if (words.empty()) {
        return kHelpText;
    }
    std::string text;
    for (const CommandHelp &command : kCommands) {
        if (Fits(command, words)) {
            text += (text.empty() ? "" : "\n") + std::string(command.text);
        }
    }
    return text;
}
