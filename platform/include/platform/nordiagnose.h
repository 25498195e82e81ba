/**
 * @file nordiagnose.h
 * @brief The host's diagnostic agent and the commands of its debug shell (libnordiagnose.so).
 *
 * A registered process can be reached with nordiag(1) over a local socket, by root and by its own user. Operators run
 * its registered commands there and read what these print. docs/debug-shell.md tells how.
 *
 * Every operation may be called from any thread. The agents have a lock and the commands have one; neither is held
 * while a command runs, prints, or is waited for.
 */
#ifndef PLATFORM_NORDIAGNOSE_H
#define PLATFORM_NORDIAGNOSE_H

#include <stdint.h>

#ifdef __cplusplus
#define DBG_NOEXCEPT noexcept
extern "C" {
#else
#define DBG_NOEXCEPT
#endif

/** Commands that can be registered at a time. */
#define DBG_MAX_COMMANDS 64

/**
 * A command of the debug shell: a first word under which a module answers. Copied at registration.
 *
 * Its functions run on threads of the debug shell, with all signals blocked: exec for one client at a time, help for
 * several and beside exec. What they print goes to that client.
 */
typedef struct DBG_CmdInfo {
    char name[20];        /**< terminated, not empty */
    char description[68]; /**< terminated */
    /**
     * Runs a command.
     * @param argc  1 to 64.
     * @param argv  Ends with null; argv[0] is the name. The words may be changed, and are gone after the call.
     * @return what the client is told; 0 is success.
     */
    int (*exec)(int argc, char **argv);
    /**
     * Prints the help; may be null. The shell completes sub-commands from it: the word after the name where a line
     * starts with the name, or where a line starts with blanks the first word that is not the name.
     * @param verbose  Not 0: with descriptions.
     */
    void (*help)(const char *name, int verbose);
} DBG_CmdInfo;

/**
 * Registers the process under a name, copied up to 31 characters, and opens its socket.
 *
 * The socket is a file PROCESS-ID.AGENT-NAME of mode 0600 in a folder of mode 0700: the one that the environment
 * variable NORDIAG_DIR names, else the first that can be used of /run/nordiag, $XDG_RUNTIME_DIR/nordiag and
 * /tmp/nordiag-UID. Sockets that ended processes left there are removed. Without a socket the process is registered
 * all the same, and standard error says once why nobody can reach it.
 * @return 0; EINVAL: id not above 0, or no name; EEXIST: the process is registered; ENOSPC: 8 are.
 */
int DBG_DiagnoseAgentInit(int processId, const char *agentName) DBG_NOEXCEPT;
/**
 * Removes the registration and the socket, and disconnects the clients. Waits for running commands and for all threads
 * of this registration, unless a command calls it: then they end on their own once the commands have.
 * @return 0, or ENOENT if the process is not registered.
 */
int DBG_DiagnoseAgentDestroy(int processId) DBG_NOEXCEPT;

/**
 * Registers a command; further arguments are ignored. Works before and after the agent's start.
 * @return 0, or -1: bad record, name taken, or no room.
 */
int DBG_RegCmd(const DBG_CmdInfo *command, ...) DBG_NOEXCEPT;
/**
 * Removes a command. Waits until none of its functions runs, so that their code can be unloaded; a command that calls
 * this, for itself or another one, does not wait. The caller must hold no lock that the command takes.
 * @return 0, or -1 if there is no such command.
 */
int DBG_UnRegCmd(const char *name) DBG_NOEXCEPT;
/** The same, for a command that the command line shows; further arguments are ignored. */
int DBG_UnRegCmdToCLI(const char *name, ...) DBG_NOEXCEPT;

/**
 * Prints to the client whose command runs on the calling thread. On any other thread, those that a command starts
 * included, it prints to standard output.
 * @return characters printed, or -1: no format, no memory, or the client is gone.
 */
int DBG_Print(const char *format, ...) DBG_NOEXCEPT __attribute__((format(printf, 1, 2)));
/** Prints to the same place as one piece: parallel output does not come between. @return as DBG_Print(). */
int DBG_PrintBuf(const char *format, ...) DBG_NOEXCEPT __attribute__((format(printf, 1, 2)));
/**
 * Prints to the same place the message on a line of its own, if there is one, and the registered commands with their
 * descriptions.
 * @return characters of the message, or -1 as DBG_Print().
 */
int DBG_ShowUsageAndErrMsg(const char *format, ...) DBG_NOEXCEPT __attribute__((format(printf, 1, 2)));

#ifdef __cplusplus
}
#endif

#endif
