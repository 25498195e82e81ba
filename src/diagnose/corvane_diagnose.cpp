#include "diagnose/corvane_diagnose.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "infrastructure/common/os_calls.h"
#include "ma/drm/feature/disk_life_monitor/drm_disk_life_monitor.h"
#include "ma/drm/framework/utils/drm_relaxed.h"
#include "platform/norax.h"
#include "platform/nordiagnose.h"

static_assert(sizeof(CorvaneRegCmd) == sizeof(DBG_CmdInfo) && offsetof(CorvaneRegCmd, name) == 0 &&
              offsetof(CorvaneRegCmd, description) == offsetof(DBG_CmdInfo, description) &&
              offsetof(CorvaneRegCmd, exec) == offsetof(DBG_CmdInfo, exec) &&
              offsetof(CorvaneRegCmd, help) == offsetof(DBG_CmdInfo, help));

namespace {

constexpr uint32_t kInitFailed = 1;
constexpr size_t kMib = size_t{1024} * 1024;

/** Lies at the start of each block of the memory test: the blocks stay reachable, so they are no leak to checkers. */
struct TestBlock {
    TestBlock *next;
};
std::atomic<TestBlock *> g_testBlocks{nullptr};

void Chain(TestBlock *block) noexcept
{
    block->next = g_testBlocks.load(std::memory_order_relaxed);
    while (
        !g_testBlocks.compare_exchange_weak(block->next, block, std::memory_order_release, std::memory_order_relaxed)) {
    }
}

int ExecGroup(int argc, char **argv) noexcept
{
    return CorvaneDbgExecCmd(argc, argv, g_corvaneDgbCmds, CORVANE_DBG_CMD_NUM);
}

void StartMallocThread() noexcept
{
    pthread_attr_t attributes;
    pthread_t thread{};
    (void)pthread_attr_init(&attributes);
    (void)pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    const int result = g_osCalls.threadCreate(&thread, &attributes, DiagMallocMemFun, nullptr);
    (void)pthread_attr_destroy(&attributes);
    if (result != 0) {
        (void)DBG_Print("ERROR creating thread");
    }
}

/**
 * @return what the host made of a text. Its result does not say whether that is a number, since hosts differ in it; an
 * untouched place does.
 */
std::optional<uint32_t> NumberOf(const char *text) noexcept
{
    constexpr uint64_t kUntouched = UINT64_MAX;
    uint64_t number = kUntouched;
    (void)norax_str_tou64(text, &number);
    return number == kUntouched ? std::nullopt : std::optional(static_cast<uint32_t>(number));
}

} // namespace

extern "C" {

CorvaneDbgCmd g_corvaneDgbCmds[CORVANE_DBG_CMD_NUM] = {
    {"list_data", "corvane list_data", "list all disk data", CorvaneDiagListDiskData},
    {"set_disk_life_monitor_schedule_time", "corvane set_disk_life_monitor_schedule_time [cycle_time]",
     "set disk life monitor schedule time", CorvaneDiagSetDiskLifeMoniterScheduleTime},
    {"test_mem", "corvane test_mem [malloc, free]", "valid corvane process if mem usage more than 4m", CorvaneGen4mMem},
};

CorvaneRegCmd g_corvaneRegCmd = {"corvane", "corvane debug command", ExecGroup, CorvaneDbgCmdHelper};

uint32_t g_mallocMemSize = 6;
void *g_MemStore[CORVANE_MEM_STORE_NUM];

uint32_t CorvaneDiagnoseInit(void) noexcept
{
    // The record itself, not a copy: other hosts' libraries may keep its address.
    return DBG_RegCmd(reinterpret_cast<const DBG_CmdInfo *>(&g_corvaneRegCmd)) == 0 ? 0 : kInitFailed;
}

uint32_t CorvaneDiagnoseExit(void) noexcept
{
    (void)DBG_UnRegCmdToCLI("corvane");
    return 0;
}

int CorvaneDbgExecCmd(int argc, char **argv, const CorvaneDbgCmd *table, uint32_t count) noexcept
{
    if (argc <= 1) {
        return DBG_ShowUsageAndErrMsg("Please input valid command.");
    }
    for (uint32_t row = 0; row < count; row++) {
        if (std::strcmp(argv[1], table[row].name) == 0) {
            return table[row].handler(argc - 1, argv + 1);
        }
    }
    return DBG_ShowUsageAndErrMsg("Input invalid command!");
}

void CorvaneListAllCmd(int verbose, const CorvaneDbgCmd *table, uint32_t count) noexcept
{
    for (uint32_t row = 0; row < count; row++) {
        (void)DBG_Print("\t%s", table[row].usage);
        if (verbose != 0) {
            (void)DBG_Print("\t:%s", table[row].description);
        }
        (void)DBG_Print("\n");
    }
}

void CorvaneDbgCmdHelper(const char *, int verbose) noexcept
{
    CorvaneListAllCmd(verbose, g_corvaneDgbCmds, CORVANE_DBG_CMD_NUM);
}

int CorvaneDiagListDiskData(int, char **) noexcept
{
    return 0;
}

int CorvaneDiagSetDiskLifeMoniterScheduleTime(int argc, char **argv) noexcept
{
    const std::optional<uint32_t> seconds = argc > 1 ? NumberOf(argv[1]) : std::nullopt;
    if (!seconds) {
        return DBG_ShowUsageAndErrMsg("Please input valid command, need param[cycle_time]");
    }
    SetDiskLifeMonitorSchedulerCycle(*seconds);
    (void)DBG_Print("Set disk life monitor schedule time %us\n", *seconds);
    return 0;
}

int CorvaneGen4mMem(int argc, char **argv) noexcept
{
    if (argc <= 1) {
        return DBG_ShowUsageAndErrMsg("Please input valid command, need [malloc, free]");
    }
    const std::string_view what(argv[1]);
    if (what == "malloc") {
        StartMallocThread();
    } else if (what == "free") {
        DiagFreeMemFun();
    } else if (what == "set_malloc_size" && argc == 3) {
        if (const std::optional<uint32_t> size = NumberOf(argv[2])) {
            DrmStoreRelaxed(g_mallocMemSize, *size);
        }
    }
    return 0;
}

void *DiagMallocMemFun(void *) noexcept
{
    while (true) {
        const size_t size = std::max(DrmLoadRelaxed(g_mallocMemSize) * kMib, sizeof(TestBlock));
        void *block = g_osCalls.malloc(size);
        if (block == nullptr) {
            break;
        }
        std::memset(block, 1, size); // touched, or it would not count
        Chain(static_cast<TestBlock *>(block));
    }
    (void)DBG_Print("malloc mem failed\n");
    return nullptr;
}

void DiagFreeMemFun(void) noexcept
{
    for (void *&block : g_MemStore) {
        std::free(block);
        block = nullptr;
    }
    (void)DBG_Print("free mem ok\n");
}

} // extern "C"
