#include "host_operations.h"

#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#define HOST_EXPORT extern "C" __attribute__((visibility("default")))

HostResults g_hostResults;

namespace {

std::mutex g_lock;
std::condition_variable g_logged;
std::vector<HostLine> g_lines;
std::vector<std::string> g_calls;

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
    return std::malloc(size);
}

HOST_EXPORT void normm_free(void *ptr, uint32_t module, const char *name)
{
    RecordHostCall("normm_free(" + std::to_string(module) + "," + name + ")");
    std::free(ptr);
}

HOST_EXPORT void do_norax_spinlock_lock(void *, const char *function, uint32_t)
{
    RecordHostCall(std::string("do_norax_spinlock_lock(") + function + ")");
}

HOST_EXPORT void do_norax_spinlock_unlock(void *, const char *function, uint32_t)
{
    RecordHostCall(std::string("do_norax_spinlock_unlock(") + function + ")");
}

HOST_EXPORT int do_norax_tspinlock_trylock(void *, const char *function, uint32_t)
{
    RecordHostCall(std::string("do_norax_tspinlock_trylock(") + function + ")");
    return 1;
}
