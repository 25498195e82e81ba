/**
 * @file failure.h
 * @brief What went wrong, why, and what to do about it.
 */
#ifndef CORVANECTL_FAILURE_H
#define CORVANECTL_FAILURE_H

#include <string>

#include "server.h"

/** Where causes and suggestions come from: the catalogue in config/ of the prefix, else the open copy in share/corvane/
 *  of the program's own. */
void SetCataloguePrefix(const std::string &prefix, const std::string &own);

/** Cause and suggestion of a code, a line each; a line that names the number if nobody knows it. */
std::string Explanation(int code);

/** @return the exit status, and in @p text what to print, in lines, for an answer that is not DONE. */
int ExplainFailure(const Answer &answer, const Server &server, std::string &text);

#endif
