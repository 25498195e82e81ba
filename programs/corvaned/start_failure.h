/**
 * @file start_failure.h
 * @brief Why the start failed, for the operator: before the library touches anything, and after it gave up.
 */
#ifndef CORVANED_START_FAILURE_H
#define CORVANED_START_FAILURE_H

#include <cstdint>
#include <string>

/** @brief Look at the prefix before the start. @return what is wrong with it and what to do; empty if it will do. */
std::string CheckPrefix(const std::string &prefix);

/** A failed start. */
struct StartFailure {
    int exitCode;
    std::string message;
};

/**
 * @brief Explain a failed InitCorvane().
 * @note Looks at the process lock, which drops this process's own hold of it: only for a process that is about to end.
 */
StartFailure ExplainStartFailure(const std::string &prefix, uint32_t status);

#endif
