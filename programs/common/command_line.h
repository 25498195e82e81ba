/**
 * @file command_line.h
 * @brief What the programs' command lines share.
 */
#ifndef COMMON_COMMAND_LINE_H
#define COMMON_COMMAND_LINE_H

#include <string>

/**
 * @brief Name the option that getopt_long() has just refused with '?'.
 * @param letters  The list of letters that it was given.
 */
std::string RefusedOption(char *const *argv, const char *letters);

/** @brief Make sure that what was printed has arrived. @return what is wrong with standard output, or nothing. */
std::string FlushOutput();

#endif
