#include "host_operations.h"

#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <unistd.h>

#define HOST_EXPORT extern "C" __attribute__((visibility("default")))

HostResults g_hostResults;

namespace {

std::mutex g_lock;
std::condition_variable g_logged;
std::vector<HostLine> g_lines;
std::vector<std::string> g_calls;
std::vector<uint32_t> g_poolSizes;                ///< bytes of an item
std::map<uint32_t, std::set<void *>> g_poolItems; ///< what is out, by pool
std::vector<std::string> g_pools;
std::vector<HostTimer> g_timers;
std::vector<const HostCommand *> g_commands; // as registered: this host keeps no copies
std::string g_print;
std::mutex g_spinlocksLock;
std::map<void *, std::unique_ptr<std::mutex>> g_spinlocks;

// A lock is known by its address only: what lies there is the library's.
std::mutex &SpinlockAt(void *address)
{
    const std::lock_guard guard(g_spinlocksLock);
    std::unique_ptr<std::mutex> &lock = g_spinlocks[address];
    if (lock == nullptr) {
        lock = std::make_unique<std::mutex>();
    }
    return *lock;
}

HostTimer *FindTimerLocked(void *timer)
{
    for (auto it = g_timers.rbegin(); it != g_timers.rend(); ++it) {
        if (it->timer == timer) {
            return &*it;
        }
    }
    return nullptr;
}

size_t CountLocked(const std::string &text)
{
    size_t count = 0;
    for (const HostLine &line : g_lines) {
        count += line.text == text ? 1 : 0;
    }
    return count;
}

} // namespace

std::vector<HostLine> HostLines()
{
    const std::lock_guard guard(g_lock);
    return g_lines;
}

size_t HostLogged(uint32_t level, const std::string &text)
{
    const std::lock_guard guard(g_lock);
    size_t count = 0;
    for (const HostLine &line : g_lines) {
        count += line.level == level && line.text == text ? 1 : 0;
    }
    return count;
}

size_t HostLogged(const std::string &text)
{
    const std::lock_guard guard(g_lock);
    return CountLocked(text);
}

void ClearHostLines()
{
    const std::lock_guard guard(g_lock);
    g_lines.clear();
}

bool WaitForHostLine(const std::string &text, size_t count, int seconds)
{
    std::unique_lock guard(g_lock);
    return g_logged.wait_for(guard, std::chrono::seconds(seconds), [&] { return CountLocked(text) >= count; });
}

std::vector<std::string> HostCalls()
{
    const std::lock_guard guard(g_lock);
    return g_calls;
}

void RecordHostCall(const std::string &call)
{
    const std::lock_guard guard(g_lock);
    g_calls.push_back(call);
}

HOST_EXPORT int norax_Init(void)
{
    RecordHostCall("norax_Init");
    return g_hostResults.noraxInit;
}

HOST_EXPORT void norax_destory(void)
{
    RecordHostCall("norax_destory");
}

HOST_EXPORT int norlog_set_file_path_ext(const char *path, const char *backupPath)
{
    RecordHostCall(std::string("norlog_set_file_path_ext(") + path + "," + backupPath + ")");
    return 0;
}

HOST_EXPORT int norlog_init(void)
{
    RecordHostCall("norlog_init");
    return 0;
}

HOST_EXPORT int norlog_set_backup_num(uint32_t count)
{
    RecordHostCall("norlog_set_backup_num(" + std::to_string(count) + ")");
    return 0;
}

HOST_EXPORT int norlog_destroy(void)
{
    RecordHostCall("norlog_destroy");
    return 0;
}

HOST_EXPORT uint32_t norlog_loglevel_get(uint32_t module)
{
    RecordHostCall("norlog_loglevel_get(" + std::to_string(module) + ")");
    return g_hostResults.logLevel;
}

HOST_EXPORT __attribute__((format(printf, 7, 8))) void norlog(uint32_t module, uint32_t level, const char *file,
                                                              uint32_t, const char *func, uint32_t reserved,
                                                              const char *fmt, ...)
{
    char text[16384];
    va_list args;
    va_start(args, fmt);
    (void)std::vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    if (g_hostResults.onLog) {
        g_hostResults.onLog(text);
    }
    const std::lock_guard guard(g_lock);
    g_lines.push_back({module, level, file, func, reserved, text});
    g_logged.notify_all();
}

HOST_EXPORT int DBG_DiagnoseAgentInit(int processId, const char *agentName)
{
    RecordHostCall("DBG_DiagnoseAgentInit(" + std::to_string(processId) + "," + agentName + ")");
    return g_hostResults.diagnoseInit;
}

HOST_EXPORT int DBG_DiagnoseAgentDestroy(int processId)
{
    RecordHostCall("DBG_DiagnoseAgentDestroy(" + std::to_string(processId) + ")");
    return 0;
}

HOST_EXPORT int nor_mm_pool_init(void)
{
    RecordHostCall("nor_mm_pool_init");
    return g_hostResults.poolInit;
}

HOST_EXPORT int nor_mm_pool_exit(void)
{
    RecordHostCall("nor_mm_pool_exit");
    return 0;
}

HOST_EXPORT void *normm_malloc(uint64_t size, uint32_t module, const char *name)
{
    RecordHostCall("normm_malloc(" + std::to_string(size) + "," + std::to_string(module) + "," + name + ")");
    if (g_hostResults.heapUntilFailure >= 0 && g_hostResults.heapUntilFailure-- == 0) {
        return nullptr;
    }
    return std::malloc(size);
}

HOST_EXPORT void normm_free(void *ptr, uint32_t module, const char *name)
{
    RecordHostCall("normm_free(" + std::to_string(module) + "," + name + ")");
    std::free(ptr);
}

HOST_EXPORT void do_norax_spinlock_lock(void *lock, const char *function, uint32_t)
{
    RecordHostCall(std::string("do_norax_spinlock_lock(") + function + ")");
    SpinlockAt(lock).lock();
}

HOST_EXPORT void do_norax_spinlock_unlock(void *lock, const char *function, uint32_t)
{
    RecordHostCall(std::string("do_norax_spinlock_unlock(") + function + ")");
    SpinlockAt(lock).unlock();
}

HOST_EXPORT int do_norax_tspinlock_trylock(void *lock, const char *function, uint32_t)
{
    RecordHostCall(std::string("do_norax_tspinlock_trylock(") + function + ")");
    return SpinlockAt(lock).try_lock() ? 1 : 0;
}

HOST_EXPORT uint64_t norax_get_jiffies(void)
{
    return g_hostResults.jiffies;
}

HOST_EXPORT int norax_str_tou64(const char *text, uint64_t *value)
{
    RecordHostCall(std::string("norax_str_tou64(") + text + ")");
    *value = std::strtoull(text, nullptr, 10);
    return 0;
}

// Timers that never come round of themselves: a test asks for each step.
HOST_EXPORT int norax_timer_set_raw(void *timer, uint32_t cycleMs, void *context, void (*procedure)(void *),
                                    const char *name, const char *, uint32_t)
{
    RecordHostCall("norax_timer_set_raw(" + std::to_string(cycleMs) + "," + name + ")");
    if (g_hostResults.timerSet == 0) {
        const std::lock_guard guard(g_lock);
        g_timers.push_back({timer, cycleMs, context, procedure, name, 0, {}, 0});
    }
    return g_hostResults.timerSet;
}

HOST_EXPORT int norax_timer_add(void *timer)
{
    RecordHostCall("norax_timer_add");
    const std::lock_guard guard(g_lock);
    FindTimerLocked(timer)->added++;
    return g_hostResults.timerAdd;
}

HOST_EXPORT int norax_timer_modify(void *timer, uint32_t cycleMs)
{
    const std::lock_guard guard(g_lock);
    FindTimerLocked(timer)->modified.push_back(cycleMs);
    return g_hostResults.timerModify;
}

HOST_EXPORT int norax_timer_destroy(void *timer)
{
    RecordHostCall("norax_timer_destroy");
    const std::lock_guard guard(g_lock);
    FindTimerLocked(timer)->destroyed++;
    return g_hostResults.timerDestroy;
}

std::vector<HostTimer> HostTimers()
{
    const std::lock_guard guard(g_lock);
    return g_timers;
}

void ExpireLastTimer()
{
    const HostTimer timer = HostTimers().back();
    timer.procedure(timer.context);
}

HOST_EXPORT int DBG_RegCmd(const void *record, ...)
{
    const auto *command = static_cast<const HostCommand *>(record);
    const std::string name(command->name, strnlen(command->name, sizeof(command->name)));
    RecordHostCall("DBG_RegCmd(" + name + ")");
    if (g_hostResults.regCmdOf.empty() || g_hostResults.regCmdOf == name) {
        if (g_hostResults.regCmd != 0) {
            return g_hostResults.regCmd;
        }
    }
    const std::lock_guard guard(g_lock);
    g_commands.push_back(command);
    return 0;
}

HOST_EXPORT int DBG_UnRegCmd(const char *name)
{
    RecordHostCall(std::string("DBG_UnRegCmd(") + name + ")");
    return 0;
}

HOST_EXPORT int DBG_UnRegCmdToCLI(const char *name, ...)
{
    RecordHostCall(std::string("DBG_UnRegCmdToCLI(") + name + ")");
    return 0;
}

HostCommand HostCommandOf(const std::string &name)
{
    const std::lock_guard guard(g_lock);
    for (auto it = g_commands.rbegin(); it != g_commands.rend(); ++it) {
        const HostCommand &command = **it;
        if (std::string(command.name, strnlen(command.name, sizeof(command.name))) == name) {
            return command;
        }
    }
    (void)std::fprintf(stderr, "no command %s is registered\n", name.c_str());
    std::abort();
}

namespace {

int Print(const char *before, const char *format, va_list args, const char *after)
{
    char text[16384];
    (void)std::vsnprintf(text, sizeof(text), format, args);
    const std::lock_guard guard(g_lock);
    g_print += std::string(before) + text + after;
    return g_hostResults.print;
}

} // namespace

HOST_EXPORT __attribute__((format(printf, 1, 2))) int DBG_Print(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = Print("", format, args, "");
    va_end(args);
    return result;
}

HOST_EXPORT __attribute__((format(printf, 1, 2))) int DBG_PrintBuf(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = Print("", format, args, "");
    va_end(args);
    return result;
}

HOST_EXPORT __attribute__((format(printf, 1, 2))) int DBG_ShowUsageAndErrMsg(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = Print("<", format, args, ">");
    va_end(args);
    return result;
}

pid_t HostFork()
{
    const std::lock_guard guard(g_lock);
    return fork();
}

std::string TakeHostPrint()
{
    const std::lock_guard guard(g_lock);
    std::string text;
    text.swap(g_print);
    return text;
}

// Pools: an identifier is a place in the list of sizes. What is out of a pool goes with it.
HOST_EXPORT uint32_t createExpStructurePartition(uint32_t minNum, uint32_t maxNum, const char *name, uint32_t,
                                                 uint32_t reserved, uint32_t fixSize, uint32_t *poolId, uint32_t third,
                                                 uint32_t fourth, uint32_t extendFlag)
{
    const std::lock_guard guard(g_lock);
    if (g_hostResults.failedPool == name) {
        return 1;
    }
    g_pools.push_back("(" + std::string(name) + ", " + std::to_string(fixSize) + ", " + std::to_string(minNum) + ", " +
                      std::to_string(maxNum) + ", " + std::to_string(reserved + third + fourth) + ", " +
                      std::to_string(extendFlag) + ")");
    g_poolSizes.push_back(fixSize);
    *poolId = static_cast<uint32_t>(g_poolSizes.size());
    return 0;
}

std::vector<std::string> HostPools()
{
    const std::lock_guard guard(g_lock);
    return g_pools;
}

HOST_EXPORT uint32_t createContinuousPartition(uint64_t bytes, const char *name, uint32_t, uint32_t,
                                               uint32_t *partitionId, void **block, const char *)
{
    RecordHostCall("createContinuousPartition(" + std::to_string(bytes) + "," + name + ")");
    if (g_hostResults.contiguous != 0) {
        return g_hostResults.contiguous;
    }
    const std::lock_guard guard(g_lock);
    g_poolSizes.push_back(0);
    *partitionId = static_cast<uint32_t>(g_poolSizes.size());
    *block = std::malloc(bytes);
    if (*block != nullptr) {
        std::memset(*block, 0xA5, bytes); // a host promises nothing of its contents
        g_poolItems[*partitionId].insert(*block);
    }
    return 0;
}

HOST_EXPORT uint32_t deletePartitionByID(uint32_t id, ...)
{
    RecordHostCall("deletePartitionByID(" + std::to_string(id) + ")");
    const std::lock_guard guard(g_lock);
    if (g_hostResults.deletePartition == 0) {
        for (void *item : g_poolItems[id]) {
            std::free(item);
        }
        g_poolItems.erase(id);
    }
    return g_hostResults.deletePartition;
}

HOST_EXPORT uint32_t allocStructure(uint32_t, uint32_t poolId, void **item, const char *, uint32_t)
{
    if (g_hostResults.allocStructure != 0) {
        return g_hostResults.allocStructure;
    }
    const std::lock_guard guard(g_lock);
    const uint32_t size = g_poolSizes.at(poolId - 1);
    *item = std::malloc(size);
    if (*item != nullptr) {
        std::memset(*item, 0xA5, size);
        g_poolItems[poolId].insert(*item);
    }
    return 0;
}

HOST_EXPORT uint32_t freeStructure(void *item, uint32_t poolId, uint32_t, const char *, uint32_t)
{
    RecordHostCall("freeStructure(" + std::to_string(poolId) + ")");
    const std::lock_guard guard(g_lock);
    if (g_poolItems[poolId].erase(item) != 0) {
        std::free(item);
    }
    return 0;
}
