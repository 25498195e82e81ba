/**
 * @file options.h
 * @brief The command line.
 */
#ifndef CORVANECTL_OPTIONS_H
#define CORVANECTL_OPTIONS_H

#include <string>
#include <vector>

struct Options {
    enum class Action { REQUEST, LIST, WATCH, HELP, VERSION };

    Action action = Action::REQUEST;
    std::string prefix;             ///< empty: from the program's own path
    std::string socket;             ///< empty: below the prefix
    int timeoutSeconds = 10;        ///< of one request, with its repetitions
    bool json = false;              ///< in place of text
    int intervalSeconds = 3;        ///< of a watch
    int count = 0;                  ///< refreshes of a watch; 0: until it is ended
    std::vector<std::string> words; ///< of REQUEST; of HELP what help is asked for
};

/** @return false with @p error set if the command line is wrong. */
bool ParseOptions(int argc, char **argv, Options &options, std::string &error);

#endif
