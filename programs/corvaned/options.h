/**
 * @file options.h
 * @brief corvaned's command line.
 */
#ifndef CORVANED_OPTIONS_H
#define CORVANED_OPTIONS_H

#include <cstdint>
#include <string>

struct Options {
    enum class Action { RUN, HELP, VERSION };
    enum class Format { TEXT, JSON };

    Action action = Action::RUN;
    std::string prefix;          /**< empty: from the program's own path */
    uint32_t statusInterval = 0; /**< seconds between two status tables; 0: none */
    Format statusFormat = Format::TEXT;
    bool verbose = false;             /**< the management log with its debug lines */
    bool allowActionMismatch = false; /**< run a request whose action is not the one that was authorised */
};

/**
 * @brief Read the command line.
 * @param[out] error  What is wrong with it and what to do, when the result is false.
 */
bool ParseOptions(int argc, char **argv, Options &options, std::string &error);

/** The text of --help. */
extern const char *const kHelpText;

#endif
