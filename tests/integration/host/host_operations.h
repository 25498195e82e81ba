/**
 * @file host_operations.h
 * @brief The operations that a host gives the library, in the plainest form, and what they were asked.
 */
#ifndef HOST_OPERATIONS_H
#define HOST_OPERATIONS_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>
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

/** What the operations give; 0 each. */
struct HostResults {
    int noraxInit = 0;
    int diagnoseInit = 0;
    int poolInit = 0;
    uint32_t logLevel = 7;
    int timerSet = 0;
    int timerAdd = 0;
    int timerModify = 0;
    int timerDestroy = 0;
    int regCmd = 0;
    std::string regCmdOf;         /**< the only word that is refused with regCmd; empty: every one */
    int print = 0;                /**< DBG_Print and the like */
    std::string failedPool;       /**< name of a pool that cannot be made */
    uint32_t contiguous = 0;      /**< createContinuousPartition */
    uint32_t deletePartition = 0; /**< deletePartitionByID */
    std::atomic<uint32_t> allocStructure{0};
    std::atomic<int> heapUntilFailure{-1}; /**< blocks that normm_malloc still gives before it fails; -1: all */
    std::atomic<uint64_t> jiffies{100000000};
    /** Called with each line that is logged, on its thread, before it can be found. */
    std::function<void(const std::string &text)> onLog;
};
extern HostResults g_hostResults;

/** A timer as the library asked for it. */
struct HostTimer {
    void *timer;
    uint32_t cycleMs;
    void *context;
    void (*procedure)(void *);
    std::string name;
    uint32_t added;                 /**< calls of norax_timer_add */
    std::vector<uint32_t> modified; /**< cycles given to norax_timer_modify */
    uint32_t destroyed;             /**< calls of norax_timer_destroy */
};
/** Every timer so far, in the order in which they were set. */
std::vector<HostTimer> HostTimers();
/** Let the last timer set expire once, on this thread. */
void ExpireLastTimer();

/** A command as it was registered with the debug shell. */
struct HostCommand {
    char name[20];
    char description[68];
    int (*exec)(int argc, char **argv);
    void (*help)(const char *name, int verbose);
};
static_assert(sizeof(HostCommand) == 104);
/** What was last registered under a name; ends the process if there is none. */
HostCommand HostCommandOf(const std::string &name);

/** fork() at a moment when no thread is inside one of these operations: the child has a host that works. */
pid_t HostFork();

/** What was printed to the debug shell, and forget it. A message with usage stands as "<message>". */
std::string TakeHostPrint();

/** Pools as they were asked for: "(name, fixSize, minNum, maxNum, reserved, extendFlag)". */
std::vector<std::string> HostPools();

#endif
