/**
 * @file fake_host.h
 * @brief A host whose clock, timers, log, memory and debug shell a test holds in its hand.
 *
 * Linked into the test program, its operations come before those of the platform libraries; spinlocks, and the memory
 * behind the knobs, are the platform's. Everything is guarded by one lock; the timer procedures run without it.
 */
#ifndef FAKE_HOST_H
#define FAKE_HOST_H

#include <cstdint>
#include <string>
#include <vector>

#include "platform/nordiagnose.h"
#include "support/corvane_fixture.h"

/** One line that went straight to the host's log. */
struct HostLine {
    uint32_t module;
    uint32_t level;
    std::string file;
    uint32_t line;
    std::string func;
    std::string text;
};

/** A timer of the host. */
struct HostTimer {
    void *handle; /**< the caller's memory */
    uint32_t cycleMs;
    std::string name;
    bool armed;
    uint32_t modified; /**< calls of norax_timer_modify */
};

/** One call of createExpStructurePartition. */
struct HostPool {
    uint32_t minNum;
    uint32_t maxNum;
    std::string name;
    uint32_t fixSize;
    uint32_t extendFlag;
};

/** What a host operation is to answer; 0 and -1 stand for doing its work. */
struct HostKnobs {
    int timerSetRaw = 0;
    void (*onTimerSetRaw)() = nullptr; /**< called once, before the next norax_timer_set_raw does its work */
    int timerAdd = 0;
    int timerModify = 0;
    int timerDestroy = 0;
    int regCmd = 0;              /**< DBG_RegCmd answers this */
    int unRegCmd = 0;            /**< both removals answer this */
    int printResult = 0;         /**< not 0: DBG_Print, DBG_PrintBuf and DBG_ShowUsageAndErrMsg answer this */
    int64_t heapFailAfter = -1;  /**< so many more normm_malloc succeed, then all fail; -1: none fails */
    int64_t itemFailAfter = -1;  /**< the same for allocStructure */
    int64_t poolFailAfter = -1;  /**< the same for createExpStructurePartition */
    int64_t blockFailAfter = -1; /**< the same for createContinuousPartition */
    uint32_t deleteResult = 0;   /**< not 0: deletePartitionByID deletes and answers this */
};

class FakeHostTest : public CorvaneTest {
protected:
    FakeHostTest();
    ~FakeHostTest() override;

    static HostKnobs &Knobs();

    /** Lines that the framework and the features wrote (module 481), and all others. */
    static std::vector<HostLine> HostLog();
    static void ClearHostLog();
    /** How many lines of the framework's module have this level and exact text. */
    static size_t HostLogCount(uint32_t level, const std::string &text);
    static bool HostLogged(uint32_t level, const std::string &text) { return HostLogCount(level, text) > 0; }

    /** The clock; 0 at the start of a test. */
    static void SetJiffies(uint64_t jiffies);

    /** In the order of their making. */
    static std::vector<HostTimer> Timers();
    /** Calls the procedure of an armed timer on this thread, as the host does once at expiry. @return whether it was
     * armed. */
    static bool Fire(const void *handle);

    /** Everything printed to the debug shell since the start of the test, or the last call. */
    static std::string TakePrinted();
    static std::vector<DBG_CmdInfo> Commands();
    /** Names given to DBG_UnRegCmd and, behind "CLI:", to DBG_UnRegCmdToCLI. */
    static std::vector<std::string> RemovedCommands();

    /** Blocks of the host's heap that are out, counted from the start of the test. */
    static int64_t HeapBlocks();
    /** Items of pools that are out. */
    static int64_t PoolItems();
    static std::vector<HostPool> PoolsMade();
    /** Identifiers of partitions deleted, in order. */
    static std::vector<uint32_t> PoolsDeleted();
};

#endif
