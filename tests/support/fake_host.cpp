#include "support/fake_host.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <utility>

#include "platform/norax.h"
#include "platform/norlog.h"
#include "platform/normm.h"

namespace {

struct Timer : HostTimer {
    void *context;
    NoraxTimerProc procedure;
};

struct Host {
    std::mutex mutex;
    HostKnobs knobs;
    uint64_t jiffies = 0;
    std::vector<HostLine> log;
    std::vector<Timer> timers;
    std::string printed;
    std::vector<DBG_CmdInfo> commands;
    std::vector<std::string> removed;
    int64_t heapBlocks = 0;
    int64_t poolItems = 0;
    std::vector<HostPool> pools;
    std::vector<uint32_t> deleted;
};

Host &TheHost()
{
    static Host host;
    return host;
}

using Guard = std::lock_guard<std::mutex>;

/** Counts a knob down. @return whether the operation is to fail. */
bool Fails(int64_t &failAfter)
{
    if (failAfter < 0) {
        return false;
    }
    if (failAfter == 0) {
        return true;
    }
    failAfter--;
    return false;
}

template <typename Function>
Function *Real(const char *name, Function *)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

std::string Format(const char *format, va_list args)
{
    char *text = nullptr;
    if (vasprintf(&text, format, args) < 0) {
        return "";
    }
    std::string result = text;
    std::free(text);
    return result;
}

int Print(const std::string &text)
{
    Host &host = TheHost();
    const Guard guard(host.mutex);
    host.printed += text;
    return host.knobs.printResult != 0 ? host.knobs.printResult : static_cast<int>(text.size());
}

Timer *Find(const void *handle)
{
    for (Timer &timer : TheHost().timers) {
        if (timer.handle == handle) {
            return &timer;
        }
    }
    return nullptr;
}

} // namespace

extern "C" {

void norlog(uint32_t module, uint32_t level, const char *file, uint32_t line, const char *func, uint32_t,
            const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    std::string text = Format(fmt, args);
    va_end(args);
    Host &host = TheHost();
    const Guard guard(host.mutex);
    host.log.push_back({module, level, file, line, func, std::move(text)});
}

uint64_t norax_get_jiffies(void) noexcept
{
    Host &host = TheHost();
    const Guard guard(host.mutex);
    return host.jiffies;
}

int norax_timer_set_raw(NoraxTimer *timer, uint32_t cycleMs, void *context, NoraxTimerProc procedure, const char *name,
                        const char *, uint32_t) noexcept
{
    Host &host = TheHost();
    void (*hook)() = nullptr;
    {
        const Guard guard(host.mutex);
        hook = std::exchange(host.knobs.onTimerSetRaw, nullptr);
    }
    if (hook != nullptr) {
        hook(); // may come back here
    }
    const Guard guard(host.mutex);
    if (host.knobs.timerSetRaw != 0) {
        return host.knobs.timerSetRaw;
    }
    Timer made;
    made.handle = timer;
    made.cycleMs = cycleMs;
    made.name = name;
    made.armed = false;
    made.modified = 0;
    made.context = context;
    made.procedure = procedure;
    host.timers.push_back(made);
    return 0;
}

int norax_timer_add(NoraxTimer *timer) noexcept
{
    Host &host = TheHost();
    const Guard guard(host.mutex);
    Timer *found = Find(timer);
    if (host.knobs.timerAdd != 0 || found == nullptr) {
        return host.knobs.timerAdd != 0 ? host.knobs.timerAdd : -1;
    }
    found->armed = true;
    return 0;
}

int norax_timer_modify(NoraxTimer *timer, uint32_t cycleMs) noexcept
{
    Host &host = TheHost();
    const Guard guard(host.mutex);
    Timer *found = Find(timer);
    if (host.knobs.timerModify != 0 || found == nullptr) {
        return host.knobs.timerModify != 0 ? host.knobs.timerModify : -1;
    }
    found->armed = true;
    found->cycleMs = cycleMs;
    found->modified++;
    return 0;
}

int norax_timer_destroy(NoraxTimer *timer) noexcept
{
    Host &host = TheHost();
    const Guard guard(host.mutex);
    if (host.knobs.timerDestroy != 0) {
        return host.knobs.timerDestroy;
    }
    for (auto at = host.timers.begin(); at != host.timers.end(); ++at) {
        if (at->handle == timer) {
            host.timers.erase(at);
            return 0;
        }
    }
    return -1;
}

void *normm_malloc(uint64_t size, uint32_t module, const char *name) noexcept
{
    Host &host = TheHost();
    {
        const Guard guard(host.mutex);
        if (Fails(host.knobs.heapFailAfter)) {
            return nullptr;
        }
        host.heapBlocks++;
    }
    static auto *real = Real("normm_malloc", &normm_malloc);
    return real(size, module, name);
}

void normm_free(void *ptr, uint32_t module, const char *name) noexcept
{
    Host &host = TheHost();
    if (ptr != nullptr) {
        const Guard guard(host.mutex);
        host.heapBlocks--;
    }
    static auto *real = Real("normm_free", &normm_free);
    real(ptr, module, name);
}

uint32_t createExpStructurePartition(uint32_t minNum, uint32_t maxNum, const char *name, uint32_t pid,
                                     uint32_t reserved, uint32_t fixSize, uint32_t *poolId, uint32_t reserved2,
                                     uint32_t reserved3, uint32_t extendFlag) noexcept
{
    Host &host = TheHost();
    {
        const Guard guard(host.mutex);
        host.pools.push_back({minNum, maxNum, name, fixSize, extendFlag});
        if (Fails(host.knobs.poolFailAfter)) {
            return 1;
        }
    }
    static auto *real = Real("createExpStructurePartition", &createExpStructurePartition);
    return real(minNum, maxNum, name, pid, reserved, fixSize, poolId, reserved2, reserved3, extendFlag);
}

uint32_t createContinuousPartition(uint64_t bytes, const char *name, uint32_t pid, uint32_t reserved,
                                   uint32_t *partitionId, void **block, const char *function) noexcept
{
    Host &host = TheHost();
    {
        const Guard guard(host.mutex);
        if (Fails(host.knobs.blockFailAfter)) {
            return 1;
        }
    }
    static auto *real = Real("createContinuousPartition", &createContinuousPartition);
    return real(bytes, name, pid, reserved, partitionId, block, function);
}

uint32_t allocStructure(uint32_t pid, uint32_t poolId, void **item, const char *function, uint32_t line) noexcept
{
    Host &host = TheHost();
    {
        const Guard guard(host.mutex);
        if (Fails(host.knobs.itemFailAfter)) {
            return 1;
        }
    }
    static auto *real = Real("allocStructure", &allocStructure);
    const uint32_t result = real(pid, poolId, item, function, line);
    if (result == 0) {
        const Guard guard(host.mutex);
        host.poolItems++;
    }
    return result;
}

uint32_t freeStructure(void *item, uint32_t poolId, uint32_t pid, const char *function, uint32_t line) noexcept
{
    static auto *real = Real("freeStructure", &freeStructure);
    const uint32_t result = real(item, poolId, pid, function, line);
    if (result == 0) {
        Host &host = TheHost();
        const Guard guard(host.mutex);
        host.poolItems--;
    }
    return result;
}

uint32_t deletePartitionByID(uint32_t id, ...) noexcept
{
    static auto *real = Real("deletePartitionByID", &deletePartitionByID);
    const uint32_t result = real(id);
    Host &host = TheHost();
    const Guard guard(host.mutex);
    host.deleted.push_back(id);
    return host.knobs.deleteResult != 0 ? host.knobs.deleteResult : result;
}

int DBG_RegCmd(const DBG_CmdInfo *command, ...) noexcept
{
    Host &host = TheHost();
    const Guard guard(host.mutex);
    if (host.knobs.regCmd != 0) {
        return host.knobs.regCmd;
    }
    host.commands.push_back(*command);
    return 0;
}

static int Remove(const char *name, const char *prefix)
{
    Host &host = TheHost();
    const Guard guard(host.mutex);
    host.removed.push_back(std::string(prefix) + name);
    for (auto at = host.commands.begin(); at != host.commands.end(); ++at) {
        if (std::strcmp(at->name, name) == 0) {
            host.commands.erase(at);
            break;
        }
    }
    return host.knobs.unRegCmd;
}

int DBG_UnRegCmd(const char *name) noexcept
{
    return Remove(name, "");
}

int DBG_UnRegCmdToCLI(const char *name, ...) noexcept
{
    return Remove(name, "CLI:");
}

int DBG_Print(const char *format, ...) noexcept
{
    va_list args;
    va_start(args, format);
    const std::string text = Format(format, args);
    va_end(args);
    return Print(text);
}

int DBG_PrintBuf(const char *format, ...) noexcept
{
    va_list args;
    va_start(args, format);
    const std::string text = Format(format, args);
    va_end(args);
    return Print(text);
}

int DBG_ShowUsageAndErrMsg(const char *format, ...) noexcept
{
    std::string text;
    if (format != nullptr) {
        va_list args;
        va_start(args, format);
        text = Format(format, args);
        va_end(args);
    }
    return Print("USAGE:" + text + "\n");
}

} // extern "C"

FakeHostTest::FakeHostTest()
{
    Host &host = TheHost();
    {
        const Guard guard(host.mutex);
        host.knobs = HostKnobs();
        host.jiffies = 0;
        host.log.clear();
        host.timers.clear();
        host.printed.clear();
        host.commands.clear();
        host.removed.clear();
        host.heapBlocks = 0;
        host.poolItems = 0;
        host.pools.clear();
        host.deleted.clear();
    }
    (void)nor_mm_pool_init();
}

FakeHostTest::~FakeHostTest()
{
    TheHost().knobs = HostKnobs();
    (void)nor_mm_pool_exit();
}

HostKnobs &FakeHostTest::Knobs()
{
    return TheHost().knobs;
}

std::vector<HostLine> FakeHostTest::HostLog()
{
    const Guard guard(TheHost().mutex);
    return TheHost().log;
}

void FakeHostTest::ClearHostLog()
{
    const Guard guard(TheHost().mutex);
    TheHost().log.clear();
}

size_t FakeHostTest::HostLogCount(uint32_t level, const std::string &text)
{
    constexpr uint32_t frameworkModule = 481;
    size_t count = 0;
    for (const HostLine &line : HostLog()) {
        if (line.module == frameworkModule && line.level == level && line.text == text) {
            count++;
        }
    }
    return count;
}

void FakeHostTest::SetJiffies(uint64_t jiffies)
{
    const Guard guard(TheHost().mutex);
    TheHost().jiffies = jiffies;
}

std::vector<HostTimer> FakeHostTest::Timers()
{
    const Guard guard(TheHost().mutex);
    return {TheHost().timers.begin(), TheHost().timers.end()};
}

bool FakeHostTest::Fire(const void *handle)
{
    void *context = nullptr;
    NoraxTimerProc procedure = nullptr;
    {
        const Guard guard(TheHost().mutex);
        Timer *timer = Find(handle);
        if (timer == nullptr || !timer->armed) {
            return false;
        }
        timer->armed = false;
        context = timer->context;
        procedure = timer->procedure;
    }
    procedure(context);
    return true;
}

std::string FakeHostTest::TakePrinted()
{
    const Guard guard(TheHost().mutex);
    return std::exchange(TheHost().printed, "");
}

std::vector<DBG_CmdInfo> FakeHostTest::Commands()
{
    const Guard guard(TheHost().mutex);
    return TheHost().commands;
}

std::vector<std::string> FakeHostTest::RemovedCommands()
{
    const Guard guard(TheHost().mutex);
    return TheHost().removed;
}

int64_t FakeHostTest::HeapBlocks()
{
    const Guard guard(TheHost().mutex);
    return TheHost().heapBlocks;
}

int64_t FakeHostTest::PoolItems()
{
    const Guard guard(TheHost().mutex);
    return TheHost().poolItems;
}

std::vector<HostPool> FakeHostTest::PoolsMade()
{
    const Guard guard(TheHost().mutex);
    return TheHost().pools;
}

std::vector<uint32_t> FakeHostTest::PoolsDeleted()
{
    const Guard guard(TheHost().mutex);
    return TheHost().deleted;
}
