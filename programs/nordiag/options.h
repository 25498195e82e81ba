/**
 * @file options.h
 * @brief The command line.
 */
#ifndef NORDIAG_OPTIONS_H
#define NORDIAG_OPTIONS_H

#include <string>
#include <vector>

struct Options {
    enum class Action { LIST, RUN, SHELL, HELP, VERSION };

    Action action = Action::SHELL;
    std::string process;              ///< number or name
    std::vector<std::string> command; ///< of RUN
};

extern const char *const kHelpText;

/** @return false with @p error set if the command line is wrong. */
bool ParseOptions(int argc, char **argv, Options &options, std::string &error);

#endif
