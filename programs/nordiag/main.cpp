/**
 * @file main.cpp
 * @brief nordiag: debug commands inside a running process.
 */
#include <cstdio>

#include "common/command_line.h"
#include "exit_codes.h"
#include "options.h"
#include "processes.h"
#include "shell.h"

namespace {

int Fail(int exitCode, const std::string &message)
{
    (void)std::fprintf(stderr, "nordiag: %s\n", message.c_str());
    return exitCode;
}

/** Ends with what was printed. */
int Printed()
{
    const std::string problem = FlushOutput();
    return problem.empty() ? EXIT_CODE_OK : Fail(EXIT_CODE_NO_ANSWER, problem);
}

int List()
{
    (void)std::printf("%-8s %-24s %-16s %s\n", "PROCESS", "NAME", "USER", "STATE");
    for (const Process &process : DiagnosedProcesses()) {
        (void)std::printf("%-8d %-24s %-16s %s\n", process.id, process.name.c_str(), process.user.c_str(),
                          process.state.c_str());
    }
    return Printed();
}

int WithProcess(const Options &options)
{
    const std::vector<Process> fit = ProcessesThatFit(options.process);
    if (fit.empty()) {
        return Fail(EXIT_CODE_NO_PROCESS, "no diagnosed process " + options.process +
                                              "; 'nordiag list' shows those of this user, as root those of all");
    }
    if (fit.size() > 1) {
        std::string numbers;
        for (const Process &process : fit) {
            numbers += " " + std::to_string(process.id);
        }
        return Fail(EXIT_CODE_NO_PROCESS, std::to_string(fit.size()) + " processes are called " + options.process +
                                              "; name one of them by its number:" + numbers);
    }
    return options.action == Options::Action::RUN ? RunCommand(fit.front(), options.command) : RunShell(fit.front());
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
        return Printed();
    case Options::Action::VERSION:
        (void)std::puts("nordiag " CORVANE_VERSION);
        return Printed();
    case Options::Action::LIST:
        return List();
    default:
        return WithProcess(options);
    }
}
