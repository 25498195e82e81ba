/**
 * @file completion.h
 * @brief What the word at the end of a line can become.
 */
#ifndef NORDIAG_COMPLETION_H
#define NORDIAG_COMPLETION_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

/** Where the words come from. */
struct CompletionSource {
    std::function<std::vector<std::string>()> groups;
    std::function<std::vector<std::string>(const std::string &group)> subCommands;
};

struct Completion {
    std::string insertion;               ///< what can be added to the line
    std::vector<std::string> candidates; ///< sorted; those the word can become
};

/** @param line  The line up to the cursor. */
Completion Complete(std::string_view line, const CompletionSource &source);

#endif
