/**
 * @file host_operations.h
 * @brief The operations that a host gives the library, in the plainest form, and what they were asked.
 */
#ifndef HOST_OPERATIONS_H
#define HOST_OPERATIONS_H

#include <cstdint>
#include <string>
#include <vector>

/** One call of the host's log. */
struct HostLine {
    uint32_t module;
    uint32_t level;
    std::string file;
    std::string func;
    uint32_t reserved;
    std::string text;
};

/** Every line logged so far, in order. */
std::vector<HostLine> HostLines();
/** Lines with this level and exact text, such as "[DISK_MGR]pCJson is null". */
size_t HostLogged(uint32_t level, const std::string &text);
/** Lines with this exact text at any level. */
size_t HostLogged(const std::string &text);
void ClearHostLines();
/** Wait until a line with this text has been logged @p count times. @return whether it was, within @p seconds. */
bool WaitForHostLine(const std::string &text, size_t count = 1, int seconds = 30);

/** The other operations called so far, as "name" or "name(arguments)". */
std::vector<std::string> HostCalls();
/** Add a line to that list. */
void RecordHostCall(const std::string &call);

/** What the next start gives; 0 each. */
struct HostResults {
    int noraxInit = 0;
    int diagnoseInit = 0;
    int poolInit = 0;
    uint32_t logLevel = 7;
};
extern HostResults g_hostResults;

#endif
