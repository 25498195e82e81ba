/**
 * @file shell.h
 * @brief Commands one after the other, from a terminal or from a pipe, and one command alone.
 */
#ifndef NORDIAG_SHELL_H
#define NORDIAG_SHELL_H

#include <string>
#include <vector>

#include "processes.h"

/** Runs one command, or help, and tells on standard error what went wrong. @return the exit status */
int RunCommand(const Process &process, const std::vector<std::string> &words);
/** Reads commands until the input ends or one says so. @return the exit status of the last one */
int RunShell(const Process &process);

#endif
