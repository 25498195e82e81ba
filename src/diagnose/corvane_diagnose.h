/**
 * @file corvane_diagnose.h
 * @brief The command group "corvane" of the host's debug shell.
 *
 * Owns g_corvaneDgbCmds and the memory test's globals. Handlers run on the debug shell's thread; the memory test's
 * thread is detached. Takes no lock.
 */
#ifndef CORVANE_DIAGNOSE_H
#define CORVANE_DIAGNOSE_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define CORVANE_DBG_CMD_NUM 3u
#define CORVANE_MEM_STORE_NUM 1024u

/** A command of the group. 32 bytes. */
typedef struct CorvaneDbgCmd {
    const char *name; /**< the word that selects it */
    const char *usage;
    const char *description;
    int (*handler)(int argc, char **argv); /**< argv[0] is the command's own word */
} CorvaneDbgCmd;

/** What the host's debug library takes. 104 bytes. */
typedef struct CorvaneRegCmd {
    char name[20];
    char description[68];
    int (*exec)(int argc, char **argv); /**< argv[0] is the group's name */
    void (*help)(const char *name, int verbose);
} CorvaneRegCmd;

extern CORVANE_API CorvaneDbgCmd g_corvaneDgbCmds[CORVANE_DBG_CMD_NUM];
extern CORVANE_API CorvaneRegCmd g_corvaneRegCmd;
/** MiB that the memory test allocates at a time. */
extern CORVANE_API uint32_t g_mallocMemSize;
/** What "test_mem free" gives back. */
extern CORVANE_API void *g_MemStore[CORVANE_MEM_STORE_NUM];

/** @brief Start-up step "diagnose": register the group. @retval 1  Refused. */
CORVANE_NODISCARD CORVANE_API uint32_t CorvaneDiagnoseInit(void) CORVANE_NOEXCEPT;
/** @brief Take it away. @return always 0. */
CORVANE_API uint32_t CorvaneDiagnoseExit(void) CORVANE_NOEXCEPT;
/** @brief Run the command that argv[1] names, with its own word first. @return what it or the message's print gave. */
CORVANE_API int CorvaneDbgExecCmd(int argc, char **argv, const CorvaneDbgCmd *table, uint32_t count) CORVANE_NOEXCEPT;
/** @brief Print the commands of a table. @param verbose  Not 0: with their descriptions. */
CORVANE_API void CorvaneListAllCmd(int verbose, const CorvaneDbgCmd *table, uint32_t count) CORVANE_NOEXCEPT;
/** @brief The group's help. @param name  Not used. */
CORVANE_API void CorvaneDbgCmdHelper(const char *name, int verbose) CORVANE_NOEXCEPT;

/** @name Commands. @return 0, or what the message's print gave. */
/** @{ */
/** Does nothing. */
CORVANE_API int CorvaneDiagListDiskData(int argc, char **argv) CORVANE_NOEXCEPT;
/** Sets the life monitor's cycle, in seconds and unchecked, until the next start. */
CORVANE_API int CorvaneDiagSetDiskLifeMoniterScheduleTime(int argc, char **argv) CORVANE_NOEXCEPT;
/** Drives the process over its memory limit ("malloc"), says so ("free"), or sets the step ("set_malloc_size"). */
CORVANE_API int CorvaneGen4mMem(int argc, char **argv) CORVANE_NOEXCEPT;
/** @} */

/** @brief The memory test's thread: allocate and fill until there is no more, and keep it. @return null */
CORVANE_API void *DiagMallocMemFun(void *arg) CORVANE_NOEXCEPT;
/** @brief Free what g_MemStore holds. */
CORVANE_API void DiagFreeMemFun(void) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(CorvaneDbgCmd) == 32 && sizeof(CorvaneRegCmd) == 104 && offsetof(CorvaneRegCmd, exec) == 88);
#endif

#endif
