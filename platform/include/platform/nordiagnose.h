/**
 * @file nordiagnose.h
 * @brief The host's diagnostic agent and the commands of its debug shell (libnordiagnose.so).
 *
 * Every operation may be called from any thread. The command table has a lock of its own.
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

/** A command of the debug shell: a first word under which a module answers. Copied at registration. */
typedef struct DBG_CmdInfo {
    char name[20];                               /**< terminated, not empty */
    char description[68];                        /**< terminated */
    int (*exec)(int argc, char **argv);          /**< argv[0] is the name */
    void (*help)(const char *name, int verbose); /**< may be null */
} DBG_CmdInfo;

/** Registers the process under a name, copied up to 31 characters. @return 0, EINVAL, or EEXIST. */
int DBG_DiagnoseAgentInit(int processId, const char *agentName) DBG_NOEXCEPT;
/** @return 0, or ENOENT if the process is not registered. */
int DBG_DiagnoseAgentDestroy(int processId) DBG_NOEXCEPT;

/**
 * Registers a command; further arguments are ignored. Works before and after the agent's start.
 * @return 0, or -1: bad record, name taken, or no room.
 */
int DBG_RegCmd(const DBG_CmdInfo *command, ...) DBG_NOEXCEPT;
/** @return 0, or -1 if there is no such command. */
int DBG_UnRegCmd(const char *name) DBG_NOEXCEPT;
/** The same, for a command that the command line shows; further arguments are ignored. */
int DBG_UnRegCmdToCLI(const char *name, ...) DBG_NOEXCEPT;

/** Prints to the operator. @return characters printed, or -1. */
int DBG_Print(const char *format, ...) DBG_NOEXCEPT __attribute__((format(printf, 1, 2)));
/** Prints to the operator as one piece: parallel output does not come between. @return as DBG_Print(). */
int DBG_PrintBuf(const char *format, ...) DBG_NOEXCEPT __attribute__((format(printf, 1, 2)));
/** Prints the message on a line of its own, if there is one, and the registered commands with their descriptions. */
int DBG_ShowUsageAndErrMsg(const char *format, ...) DBG_NOEXCEPT __attribute__((format(printf, 1, 2)));

#ifdef __cplusplus
}
#endif

#endif
