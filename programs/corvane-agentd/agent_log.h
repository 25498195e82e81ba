/**
 * @file agent_log.h
 * @brief The log of the kernel agent's process: the library's log file, made fit for a process that runs for years.
 *
 * The library's file log keeps every level, leaves lines in the stream's buffer and leaves the old stream open at each
 * rotation. Here lines of a level that is not wanted are dropped before it, a line is on the file when the statement
 * returns, the stream of a rotated file is closed, and a file that a rotation could not make, or that somebody removed,
 * is made as soon as that is possible. Any thread may log.
 */
#ifndef CORVANE_AGENTD_AGENT_LOG_H
#define CORVANE_AGENTD_AGENT_LOG_H

#include <string>

inline constexpr const char *kAgentLogFolder = "/var/log/corvane_super/";

/**
 * @brief Fill the adapter table with the file log. Called once, before any other thread exists.
 * @param everything  Keep the lines of level DEBUG as well.
 * @return false if the log file cannot be had, which standard error tells; the table is as before, and the agent then
 *         logs to standard output.
 */
[[nodiscard]] bool StartAgentLog(bool everything);

/** @brief One line of level EVENT about the process itself. */
void NoteInAgentLog(const std::string &text);

#endif
