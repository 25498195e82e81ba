#include "diagnose/corvane_diagnose.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <semaphore.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include "ma/drm/feature/disk_life_monitor/drm_disk_life_monitor.h"
#include "support/child_process.h"
#include "support/fake_host.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr size_t kMib = 1024 * 1024;

/** What a handler of a test's own table was called with. */
std::vector<std::string> g_called;

int Remember(int argc, char **argv)
{
    g_called.assign(argv, argv + argc);
    return 42;
}

int Never(int, char **)
{
    ADD_FAILURE() << "not this one";
    return 0;
}

const CorvaneDbgCmd kTable[] = {
    {"one", "usage one", "first", Never},
    {"two", "usage two", "second", Remember},
    {"two", "usage of another two", "third", Never},
    {"beyond", "usage beyond", "fourth", Never},
};

/** Blocks that the memory test asked for; the doubled allocator gives this many. */
struct Block {
    size_t size;
    uint8_t *data;
};
std::vector<Block> g_blocks;
size_t g_blocksLeft = 0;

void *FewBlocks(size_t size)
{
    if (g_blocksLeft == 0) {
        return nullptr;
    }
    g_blocksLeft--;
    auto *data = static_cast<uint8_t *>(std::malloc(size));
    g_blocks.push_back({size, data});
    return data;
}

sem_t g_threadDone;
void *(*g_threadEntry)(void *) = nullptr;
int g_threadDetach = -1;

struct ThreadStart {
    void *(*entry)(void *);
    void *arg;
};

void *RunAndTell(void *start)
{
    const ThreadStart todo = *static_cast<ThreadStart *>(start);
    delete static_cast<ThreadStart *>(start);
    void *result = todo.entry(todo.arg);
    (void)sem_post(&g_threadDone);
    return result;
}

int TellingCreate(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg)
{
    g_threadEntry = entry;
    (void)pthread_attr_getdetachstate(attributes, &g_threadDetach);
    auto *start = new ThreadStart{entry, arg};
    const int result = pthread_create(thread, attributes, RunAndTell, start);
    if (result != 0) {
        delete start;
    }
    return result;
}

int FailingCreate(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)
{
    return EAGAIN;
}

/** Set in the environment of a test that runs once more, as the child of itself. */
constexpr const char *kChildMark = "CORVANE_TEST_MEMORY_CHILD";

size_t AddressSpaceInUse()
{
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

class DiagnoseTest : public FakeHostTest {
protected:
    DiagnoseTest()
    {
        g_called.clear();
        (void)sem_init(&g_threadDone, 0, 0);
        g_osCalls.malloc = FewBlocks;
        g_blocksLeft = 0;
    }
    ~DiagnoseTest() override
    {
        for (const Block &block : g_blocks) {
            std::free(block.data);
        }
        g_blocks.clear();
        g_mallocMemSize = 6;
        SetDiskLifeMonitorSchedulerCycle(86400);
        (void)sem_destroy(&g_threadDone);
    }

    /** Calls with a vector of words as the debug shell hands it over: changeable, and null at the end. */
    template <typename Function>
    static int Call(Function function, std::vector<std::string> words)
    {
        std::vector<char *> argv;
        for (std::string &word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        return function(static_cast<int>(words.size()), argv.data());
    }
    static int Exec(const std::vector<std::string> &words, uint32_t count = 3)
    {
        return Call([count](int argc, char **argv) { return CorvaneDbgExecCmd(argc, argv, kTable, count); }, words);
    }
    /** A line as an operator types it, by way of the registered record. */
    static int Shell(const std::vector<std::string> &words) { return Call(g_corvaneRegCmd.exec, words); }
    static bool WaitForThread()
    {
        struct timespec until {};
        (void)clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += 60;
        int status = 0;
        while ((status = sem_timedwait(&g_threadDone, &until)) != 0 && errno == EINTR) {
        }
        return status == 0;
    }
};

class DiagMallocMemFunTest : public DiagnoseTest {
protected:
    /** The memory test against a limit; only in a process of its own. */
    static void ExhaustMemory()
    {
        g_osCalls.malloc = std::malloc;
        // Two blocks fit, and what is left serves everybody else in the process.
        constexpr size_t room = 64 * kMib;
        g_mallocMemSize = 24;
        const size_t before = AddressSpaceInUse();
        struct rlimit limit {};
        ASSERT_EQ(getrlimit(RLIMIT_AS, &limit), 0);
        limit.rlim_cur = before + room;
        ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);

        (void)DiagMallocMemFun(nullptr);

        limit.rlim_cur = limit.rlim_max; // a leak checker needs memory at the end
        ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
        EXPECT_EQ(TakePrinted(), "malloc mem failed\n");
        EXPECT_GE(AddressSpaceInUse() - before, 48 * kMib) << "it gives no memory back by itself";
    }
};

using CorvaneRegCmdTest = DiagnoseTest;
using CorvaneDiagnoseInitTest = DiagnoseTest;
using CorvaneDiagnoseExitTest = DiagnoseTest;
using CorvaneDbgExecCmdTest = DiagnoseTest;
using CorvaneListAllCmdTest = DiagnoseTest;
using CorvaneDbgCmdHelperTest = DiagnoseTest;
using CorvaneDiagListDiskDataTest = DiagnoseTest;
using CorvaneDiagSetDiskLifeMoniterScheduleTimeTest = DiagnoseTest;
using CorvaneGen4mMemTest = DiagnoseTest;
using DiagFreeMemFunTest = DiagnoseTest;

} // namespace

TEST_F(CorvaneRegCmdTest, DescribesTheGroup)
{
    EXPECT_STREQ(g_corvaneRegCmd.name, "corvane");
    EXPECT_STREQ(g_corvaneRegCmd.description, "corvane debug command");
    EXPECT_EQ(g_corvaneRegCmd.help, CorvaneDbgCmdHelper);
}

TEST_F(CorvaneRegCmdTest, HasThreeCommands)
{
    const CorvaneDbgCmd expected[] = {
        {"list_data", "corvane list_data", "list all disk data", CorvaneDiagListDiskData},
        {"set_disk_life_monitor_schedule_time", "corvane set_disk_life_monitor_schedule_time [cycle_time]",
         "set disk life monitor schedule time", CorvaneDiagSetDiskLifeMoniterScheduleTime},
        {"test_mem", "corvane test_mem [malloc, free]", "valid corvane process if mem usage more than 4m",
         CorvaneGen4mMem},
    };
    for (size_t row = 0; row < 3; row++) {
        EXPECT_STREQ(g_corvaneDgbCmds[row].name, expected[row].name);
        EXPECT_STREQ(g_corvaneDgbCmds[row].usage, expected[row].usage);
        EXPECT_STREQ(g_corvaneDgbCmds[row].description, expected[row].description);
        EXPECT_EQ(g_corvaneDgbCmds[row].handler, expected[row].handler);
    }
}

TEST_F(CorvaneRegCmdTest, ExecutesTheGroupsCommands)
{
    EXPECT_EQ(Shell({"corvane", "set_disk_life_monitor_schedule_time", "30"}), 0);
    EXPECT_EQ(g_diskLifeMonitorSchedulerCycle, 30u);

    EXPECT_EQ(Shell({"corvane", "test_mem", "free"}), 0);
    EXPECT_EQ(Shell({"corvane", "list_data"}), 0);
    EXPECT_EQ(TakePrinted(), "Set disk life monitor schedule time 30s\nfree mem ok\n");

    (void)Shell({"corvane"});
    EXPECT_EQ(TakePrinted(), "USAGE:Please input valid command.\n");
    (void)Shell({"corvane", "test"});
    EXPECT_EQ(TakePrinted(), "USAGE:Input invalid command!\n");
}

TEST_F(CorvaneDiagnoseInitTest, RegistersTheGroup)
{
    EXPECT_EQ(CorvaneDiagnoseInit(), 0u);

    ASSERT_THAT(Commands(), SizeIs(1));
    EXPECT_STREQ(Commands()[0].name, "corvane");
    EXPECT_STREQ(Commands()[0].description, "corvane debug command");
    EXPECT_EQ(Commands()[0].exec, g_corvaneRegCmd.exec);
    EXPECT_EQ(Commands()[0].help, CorvaneDbgCmdHelper);
}

TEST_F(CorvaneDiagnoseInitTest, FailsWithOneWhateverTheHostSays)
{
    for (const int answer : {-1, 1, 17}) {
        Knobs().regCmd = answer;

        EXPECT_EQ(CorvaneDiagnoseInit(), 1u) << answer;
    }
}

TEST_F(CorvaneDiagnoseExitTest, TakesTheGroupAway)
{
    ASSERT_EQ(CorvaneDiagnoseInit(), 0u);

    EXPECT_EQ(CorvaneDiagnoseExit(), 0u);

    EXPECT_THAT(RemovedCommands(), ElementsAre("CLI:corvane"));
    Knobs().unRegCmd = -1;
    EXPECT_EQ(CorvaneDiagnoseExit(), 0u);
}

TEST_F(CorvaneDbgExecCmdTest, WantsACommand)
{
    Knobs().printResult = 7;

    EXPECT_EQ(Exec({"group"}), 7);
    EXPECT_EQ(TakePrinted(), "USAGE:Please input valid command.\n");
    EXPECT_EQ(Exec({}), 7);
    EXPECT_EQ(TakePrinted(), "USAGE:Please input valid command.\n");
}

TEST_F(CorvaneDbgExecCmdTest, CallsTheFirstMatchWithItsOwnWordFirst)
{
    EXPECT_EQ(Exec({"group", "two", "a", "b"}), 42);

    EXPECT_THAT(g_called, ElementsAre("two", "a", "b"));
    EXPECT_EQ(TakePrinted(), "");
}

TEST_F(CorvaneDbgExecCmdTest, RefusesWhatIsNotInTheTable)
{
    Knobs().printResult = 7;
    for (const char *word : {"three", "tw", "two2", "Two", "", "beyond"}) {
        EXPECT_EQ(Exec({"group", word}), 7) << word;

        EXPECT_EQ(TakePrinted(), "USAGE:Input invalid command!\n") << word;
    }
}

TEST_F(CorvaneListAllCmdTest, PrintsUsages)
{
    CorvaneListAllCmd(0, kTable, 2);

    EXPECT_EQ(TakePrinted(), "\tusage one\n\tusage two\n");
}

TEST_F(CorvaneListAllCmdTest, AddsDescriptions)
{
    for (const int verbose : {1, 2, -1}) {
        CorvaneListAllCmd(verbose, kTable, 2);

        EXPECT_EQ(TakePrinted(), "\tusage one\t:first\n\tusage two\t:second\n");
    }
}

TEST_F(CorvaneDbgCmdHelperTest, ListsTheGroup)
{
    CorvaneDbgCmdHelper("corvane", 0);
    EXPECT_EQ(TakePrinted(), "\tcorvane list_data\n"
                             "\tcorvane set_disk_life_monitor_schedule_time [cycle_time]\n"
                             "\tcorvane test_mem [malloc, free]\n");

    CorvaneDbgCmdHelper(nullptr, 1);
    EXPECT_EQ(TakePrinted(), "\tcorvane list_data\t:list all disk data\n"
                             "\tcorvane set_disk_life_monitor_schedule_time [cycle_time]"
                             "\t:set disk life monitor schedule time\n"
                             "\tcorvane test_mem [malloc, free]\t:valid corvane process if mem usage more than 4m\n");
}

TEST_F(CorvaneDiagListDiskDataTest, IsSilent)
{
    EXPECT_EQ(Call(CorvaneDiagListDiskData, {"list_data"}), 0);

    EXPECT_EQ(TakePrinted(), "");
}

TEST_F(CorvaneDiagSetDiskLifeMoniterScheduleTimeTest, WantsANumber)
{
    Knobs().printResult = 7;
    const std::vector<std::vector<std::string>> lines = {{"set"}, {"set", "soon"}, {"set", ""}, {"set", "-1"}};
    for (const auto &words : lines) {
        EXPECT_EQ(Call(CorvaneDiagSetDiskLifeMoniterScheduleTime, words), 7);

        EXPECT_EQ(TakePrinted(), "USAGE:Please input valid command, need param[cycle_time]\n");
        EXPECT_EQ(g_diskLifeMonitorSchedulerCycle, 86400u);
    }
}

TEST_F(CorvaneDiagSetDiskLifeMoniterScheduleTimeTest, SetsTheCycleWithoutARange)
{
    struct {
        const char *text;
        uint32_t cycle;
        const char *printed;
    } const cases[] = {
        {"3600", 3600, "Set disk life monitor schedule time 3600s\n"},
        {"0", 0, "Set disk life monitor schedule time 0s\n"},
        {"0x10", 16, "Set disk life monitor schedule time 16s\n"},
        {"4294967295", 0xFFFFFFFF, "Set disk life monitor schedule time 4294967295s\n"},
        {"4294967297", 1, "Set disk life monitor schedule time 1s\n"},
    };
    for (const auto &value : cases) {
        EXPECT_EQ(Call(CorvaneDiagSetDiskLifeMoniterScheduleTime, {"set", value.text}), 0);

        EXPECT_EQ(g_diskLifeMonitorSchedulerCycle, value.cycle);
        EXPECT_EQ(TakePrinted(), value.printed);
    }
}

TEST_F(CorvaneGen4mMemTest, WantsAWord)
{
    Knobs().printResult = 7;

    EXPECT_EQ(Call(CorvaneGen4mMem, {"test_mem"}), 7);

    EXPECT_EQ(TakePrinted(), "USAGE:Please input valid command, need [malloc, free]\n");
}

TEST_F(CorvaneGen4mMemTest, StartsADetachedThread)
{
    g_osCalls.threadCreate = TellingCreate;
    g_blocksLeft = 2;

    EXPECT_EQ(Call(CorvaneGen4mMem, {"test_mem", "malloc"}), 0);

    ASSERT_TRUE(WaitForThread());
    EXPECT_EQ(g_threadEntry, DiagMallocMemFun);
    EXPECT_EQ(g_threadDetach, PTHREAD_CREATE_DETACHED);
    EXPECT_THAT(g_blocks, SizeIs(2));
    EXPECT_EQ(TakePrinted(), "malloc mem failed\n");
}

TEST_F(CorvaneGen4mMemTest, StartsAnotherThreadEachTime)
{
    g_osCalls.threadCreate = TellingCreate;

    EXPECT_EQ(Call(CorvaneGen4mMem, {"test_mem", "malloc"}), 0);
    EXPECT_EQ(Call(CorvaneGen4mMem, {"test_mem", "malloc"}), 0);

    EXPECT_TRUE(WaitForThread());
    EXPECT_TRUE(WaitForThread());
    EXPECT_EQ(TakePrinted(), "malloc mem failed\nmalloc mem failed\n");
}

TEST_F(CorvaneGen4mMemTest, TellsOfAThreadThatDoesNotStart)
{
    g_osCalls.threadCreate = FailingCreate;

    EXPECT_EQ(Call(CorvaneGen4mMem, {"test_mem", "malloc"}), 0);

    EXPECT_EQ(TakePrinted(), "ERROR creating thread");
}

TEST_F(CorvaneGen4mMemTest, FreesWhatIsStored)
{
    g_MemStore[0] = std::malloc(1);

    EXPECT_EQ(Call(CorvaneGen4mMem, {"test_mem", "free"}), 0);

    EXPECT_EQ(g_MemStore[0], nullptr);
    EXPECT_EQ(TakePrinted(), "free mem ok\n");
}

TEST_F(CorvaneGen4mMemTest, SetsTheSize)
{
    EXPECT_EQ(g_mallocMemSize, 6u);

    EXPECT_EQ(Call(CorvaneGen4mMem, {"test_mem", "set_malloc_size", "9"}), 0);

    EXPECT_EQ(g_mallocMemSize, 9u);
    EXPECT_EQ(TakePrinted(), "");
}

TEST_F(CorvaneGen4mMemTest, DoesNothingElse)
{
    g_osCalls.threadCreate = FailingCreate;
    const std::vector<std::vector<std::string>> lines = {
        {"test_mem", "set_malloc_size"},
        {"test_mem", "set_malloc_size", "9", "9"},
        {"test_mem", "set_malloc_size", "nine"},
        {"test_mem", "set_malloc_sizes", "9"},
        {"test_mem", "mallo"},
        {"test_mem", "mallocs"},
        {"test_mem", "frees"},
        {"test_mem", ""},
    };
    for (const auto &words : lines) {
        EXPECT_EQ(Call(CorvaneGen4mMem, words), 0);

        EXPECT_EQ(g_mallocMemSize, 6u) << words[1];
        EXPECT_EQ(TakePrinted(), "") << words[1];
    }
}

TEST_F(DiagMallocMemFunTest, FillsBlocksUntilThereAreNoMore)
{
    g_mallocMemSize = 2;
    g_blocksLeft = 3;

    EXPECT_EQ(DiagMallocMemFun(nullptr), nullptr);

    ASSERT_THAT(g_blocks, SizeIs(3));
    for (const Block &block : g_blocks) {
        EXPECT_EQ(block.size, 2 * kMib);
        // The start holds what keeps the block reachable.
        EXPECT_TRUE(
            std::all_of(block.data + sizeof(void *), block.data + block.size, [](uint8_t byte) { return byte == 1; }));
    }
    EXPECT_EQ(TakePrinted(), "malloc mem failed\n");
}

TEST_F(DiagMallocMemFunTest, StoresNothing)
{
    g_blocksLeft = 1;

    (void)DiagMallocMemFun(nullptr);

    EXPECT_TRUE(
        std::all_of(std::begin(g_MemStore), std::end(g_MemStore), [](void *entry) { return entry == nullptr; }));
}

TEST_F(DiagMallocMemFunTest, TakesSixMibAtATimeByDefaultAndSmallStepsForSizeZero)
{
    g_blocksLeft = 1;
    (void)DiagMallocMemFun(nullptr);
    g_mallocMemSize = 0;
    g_blocksLeft = 1;
    (void)DiagMallocMemFun(nullptr);

    ASSERT_THAT(g_blocks, SizeIs(2));
    EXPECT_EQ(g_blocks[0].size, 6 * kMib);
    EXPECT_EQ(g_blocks[1].size, sizeof(void *));
}

TEST_F(DiagMallocMemFunTest, DrivesAProcessToItsLimitAndIsNoLeak)
{
    if (std::getenv(kChildMark) != nullptr) {
        ExhaustMemory();
        return;
    }

    ChildProcess child({"/proc/self/exe", "--gtest_filter=DiagMallocMemFunTest.DrivesAProcessToItsLimitAndIsNoLeak"},
                       {std::string(kChildMark) + "=1", "ASAN_OPTIONS=allocator_may_return_null=1:detect_leaks=1",
                        "TSAN_OPTIONS=allocator_may_return_null=1", "GTEST_OUTPUT="});

    EXPECT_EQ(child.WaitForExit(), 0) << child.Output() << child.Errors();
}

TEST_F(DiagFreeMemFunTest, FreesEveryEntry)
{
    for (const size_t entry : {size_t{0}, size_t{1}, size_t{500}, size_t{1023}}) {
        g_MemStore[entry] = std::malloc(10);
    }

    DiagFreeMemFun();

    EXPECT_TRUE(
        std::all_of(std::begin(g_MemStore), std::end(g_MemStore), [](void *entry) { return entry == nullptr; }));
    EXPECT_EQ(TakePrinted(), "free mem ok\n");
}

TEST_F(DiagFreeMemFunTest, GivesNothingOfTheMemoryTestBack)
{
    g_blocksLeft = 1;
    (void)DiagMallocMemFun(nullptr);

    DiagFreeMemFun();

    EXPECT_EQ(g_blocks.at(0).data[kMib], 1u) << "still there";
}
