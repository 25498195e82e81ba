#include "options.h"

#include <getopt.h>

#include "connection.h"

const char *const kHelpText = R"(Usage: nordiag list
       nordiag PROCESS COMMAND [ARG...]
       nordiag PROCESS

Runs debug commands inside a running process that offers them. PROCESS is its number or its name; root
reaches the processes of all users, others reach their own.

  list                      list the processes that can be diagnosed: number, name, user and state
  PROCESS GROUP [WORD...]   run a command of a group
  PROCESS help              list the command groups of the process
  PROCESS help GROUP        show the commands of a group
  PROCESS                   open a shell with history and completion; reads lines from a pipe as well

  -h, --help                print this text and exit
  -V, --version             print the version and exit

Exit status: 0 done, 1 the command returned other than 0, 2 bad command line, 3 no such process or several,
4 no answer from the process or output that cannot be written, 5 no such command group or no help for it,
130 abandoned with Ctrl-C.
See nordiag(1).
)";

bool ParseOptions(int argc, char **argv, Options &options, std::string &error)
{
    static const option longOptions[] = {
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'V'},
        {nullptr, 0, nullptr, 0},
    };
    opterr = 0;
    // Options end at the first word: what follows belongs to the command.
    switch (getopt_long(argc, argv, "+hV", longOptions, nullptr)) {
    case 'h':
        options.action = Options::Action::HELP;
        return true;
    case 'V':
        options.action = Options::Action::VERSION;
        return true;
    case '?':
        error = std::string("unknown option ") + argv[optind > 1 ? optind - 1 : 1] + "; see nordiag --help";
        return false;
    default:
        break;
    }
    if (optind == argc) {
        error = "no process is named; 'nordiag list' shows those there are, see "
                "nordiag --help";
        return false;
    }
    options.process = argv[optind++];
    options.command.assign(argv + optind, argv + argc);
    if (options.process == "list") {
        options.action = Options::Action::LIST;
        error = options.command.empty() ? "" : "list takes no arguments; see nordiag --help";
        return options.command.empty();
    }
    if (options.command.empty()) {
        options.action = Options::Action::SHELL;
        return true;
    }
    options.action = Options::Action::RUN;
    if (IsTooLong(options.command)) {
        error = "the command is too long; it may have 64 words and 16384 characters";
        return false;
    }
    return true;
}
