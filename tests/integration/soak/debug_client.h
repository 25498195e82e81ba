/**
 * @file debug_client.h
 * @brief Runs commands of the debug shell over its socket, as nordiag does.
 */
#ifndef SOAK_DEBUG_CLIENT_H
#define SOAK_DEBUG_CLIENT_H

#include <string>
#include <vector>

/** How a command ended, and what it printed. */
struct DebugAnswer {
    bool complete = false; /**< the answer came to its end */
    int result = 0;
    std::string output;
};

/** @param socketPath  Of the agent. @param words  The group first. */
DebugAnswer RunDebugCommand(const std::string &socketPath, const std::vector<std::string> &words);

/** @return the only socket in this folder, or an empty text. */
std::string OnlySocketIn(const std::string &folder);

#endif
