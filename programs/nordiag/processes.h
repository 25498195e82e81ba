/**
 * @file processes.h
 * @brief The diagnosed processes that this user can see.
 */
#ifndef NORDIAG_PROCESSES_H
#define NORDIAG_PROCESSES_H

#include <string>
#include <sys/types.h>
#include <vector>

#include "connection.h"

struct Process {
    pid_t id = 0;
    std::string name;
    Peer peer;
    std::string user;  ///< name of the peer's user
    std::string state; ///< "ready", "busy", "silent", or why it cannot be asked
};

/**
 * Sorted by number. A process counts if the folder of its socket is its user's own, as the agent makes it: others can
 * put there what they like. Sockets that ended processes left are not listed, and removed if the folder is this user's.
 */
std::vector<Process> DiagnosedProcesses();
/** Those whose number or name this is. */
std::vector<Process> ProcessesThatFit(const std::string &numberOrName);

#endif
