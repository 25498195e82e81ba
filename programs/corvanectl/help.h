/**
 * @file help.h
 * @brief What the commands do, with their ranges. The server holds no help text.
 */
#ifndef CORVANECTL_HELP_H
#define CORVANECTL_HELP_H

#include <string>
#include <vector>

extern const char *const kHelpText;

/**
 * Help for an action ("show"), a command ("disk_info"), both ("show disk_info", whatever follows), or with no words
 * for all of the program.
 * @return nothing if there is no such command.
 */
std::string HelpFor(const std::vector<std::string> &words);

#endif
