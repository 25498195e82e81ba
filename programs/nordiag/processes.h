/**
 * @file processes.h
 * @brief The diagnosed processes that this user can see.
 */
#ifndef NORDIAG_PROCESSES_H
#define NORDIAG_PROCESSES_H

#include <string>
#include <sys/types.h>
#include <vector>

struct Process {
    pid_t id = 0;
    std::string name;
    std::string socket;
    std::string user;
    std::string state; ///< "ready", "busy", "silent", or why it cannot be asked
};

/** Sorted by number. Sockets that ended processes left are removed, where that is permitted, and not listed. */
std::vector<Process> DiagnosedProcesses();
/** Those whose number or name this is. */
std::vector<Process> ProcessesThatFit(const std::string &numberOrName);

#endif
