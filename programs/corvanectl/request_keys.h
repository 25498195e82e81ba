/**
 * @file request_keys.h
 * @brief The KEY=VALUE pairs that commands take. The server takes those that it has a use for and drops the rest in
 * silence, so they are checked before anything is sent.
 */
#ifndef CORVANECTL_REQUEST_KEYS_H
#define CORVANECTL_REQUEST_KEYS_H

#include <string>
#include <vector>

/** The text that is sent. */
std::string RequestText(const std::vector<std::string> &words);
/** The words of a request as the server will split it; one argument may hold several. */
std::vector<std::string> WordsOfRequest(const std::vector<std::string> &arguments);

/** Whether action and command are ones whose keys are known; others are the server's affair. */
bool KnowsKeys(const std::vector<std::string> &words);

/** @return what is wrong with the pairs of a command whose keys are known, and what to do, or nothing. Keys that are
 *  missing are left to the server, whose code scripts know. */
std::string CheckKeys(const std::vector<std::string> &words);

#endif
