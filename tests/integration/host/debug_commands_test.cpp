#include "drm_fixture.h"

#include <cstring>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;

class DebugCommandsTest : public DrmTest {
protected:
    static lib::CorvaneDbgCmd *Commands() { return lib::Global<lib::CorvaneDbgCmd[3]>("g_corvaneDgbCmds"); }
};

TEST_F(DebugCommandsTest, TheTable)
{
    const char *rows[3][4] = {{"list_data", "corvane list_data", "list all disk data", "CorvaneDiagListDiskData"},
                              {"set_disk_life_monitor_schedule_time",
                               "corvane set_disk_life_monitor_schedule_time [cycle_time]",
                               "set disk life monitor schedule time", "CorvaneDiagSetDiskLifeMoniterScheduleTime"},
                              {"test_mem", "corvane test_mem [malloc, free]",
                               "valid corvane process if mem usage more than 4m", "CorvaneGen4mMem"}};
    for (int i = 0; i < 3; i++) {
        EXPECT_STREQ(Commands()[i].name, rows[i][0]);
        EXPECT_STREQ(Commands()[i].usage, rows[i][1]);
        EXPECT_STREQ(Commands()[i].description, rows[i][2]);
        EXPECT_EQ(reinterpret_cast<void *>(Commands()[i].handler), lib::Address(rows[i][3]));
    }
}

TEST_F(DebugCommandsTest, TheGroupIsRegistered)
{
    const HostCommand command = HostCommandOf("corvane");

    EXPECT_STREQ(command.description, "corvane debug command");
    EXPECT_EQ(std::memcmp(&command, lib::Address("g_corvaneRegCmd"), sizeof(command)), 0);
    EXPECT_EQ(reinterpret_cast<void *>(command.help), lib::Address("CorvaneDbgCmdHelper"));
}

TEST_F(DebugCommandsTest, AnyRefusalIs1)
{
    for (const int refusal : {-1, 1, 77}) {
        g_hostResults.regCmd = refusal;
        EXPECT_EQ(lib::CorvaneDiagnoseInit(), 1u) << refusal;
    }
    g_hostResults.regCmd = 0;
    EXPECT_EQ(lib::CorvaneDiagnoseInit(), 0u);
    EXPECT_EQ(lib::CorvaneDiagnoseExit(), 0u);
    EXPECT_EQ(HostCalls().back(), "DBG_UnRegCmdToCLI(corvane)");
}

TEST_F(DebugCommandsTest, HelpListsUsagesAndDescriptions)
{
    const HostCommand command = HostCommandOf("corvane");
    (void)TakeHostPrint();

    command.help("corvane", 0);
    EXPECT_EQ(TakeHostPrint(), "\tcorvane list_data\n"
                               "\tcorvane set_disk_life_monitor_schedule_time [cycle_time]\n"
                               "\tcorvane test_mem [malloc, free]\n");
    command.help("corvane", 1);
    EXPECT_EQ(TakeHostPrint(),
              "\tcorvane list_data\t:list all disk data\n"
              "\tcorvane set_disk_life_monitor_schedule_time [cycle_time]\t:set disk life monitor schedule time\n"
              "\tcorvane test_mem [malloc, free]\t:valid corvane process if mem usage more than 4m\n");
}

TEST_F(DebugCommandsTest, WordsSelectARow)
{
    EXPECT_EQ(Shell({"corvane"}), "<Please input valid command.>");
    EXPECT_EQ(Shell({"corvane", "list"}), "<Input invalid command!>");
    EXPECT_EQ(Shell({"corvane", "list_dataa"}), "<Input invalid command!>");
    int result = 9;
    EXPECT_EQ(Shell({"corvane", "list_data"}, &result), "");
    EXPECT_EQ(result, 0);
}

std::vector<std::string> g_words;

int Handler(int argc, char **argv)
{
    g_words.assign(argv, argv + argc);
    return 33;
}

TEST_F(DebugCommandsTest, TheHandlerGetsItsOwnWordFirst)
{
    const auto exec =
        reinterpret_cast<int (*)(int, char **, lib::CorvaneDbgCmd *, uint32_t)>(lib::Address("CorvaneDbgExecCmd"));
    lib::CorvaneDbgCmd table[2] = {{"a", "", "", nullptr}, {"b", "", "", Handler}};
    std::string words[4] = {"group", "b", "x", "y"};
    char *argv[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), nullptr};

    EXPECT_EQ(exec(4, argv, table, 2), 33);
    EXPECT_THAT(g_words, ElementsAre("b", "x", "y"));
    (void)TakeHostPrint();
    (void)exec(4, argv, table, 1);
    EXPECT_EQ(TakeHostPrint(), "<Input invalid command!>");
}

TEST_F(DebugCommandsTest, LifeCycleIsSetUncheckedAndNotSaved)
{
    const std::string before = ReadText(prefix_ + "/config/corvane_config.json");

    EXPECT_EQ(Shell({"corvane", "set_disk_life_monitor_schedule_time"}),
              "<Please input valid command, need param[cycle_time]>");
    EXPECT_EQ(Shell({"corvane", "set_disk_life_monitor_schedule_time", "7"}),
              "Set disk life monitor schedule time 7s\n");
    EXPECT_EQ(lib::Global<uint32_t>("g_diskLifeMonitorSchedulerCycle"), 7u);
    EXPECT_EQ(Shell({"corvane", "set_disk_life_monitor_schedule_time", "0"}),
              "Set disk life monitor schedule time 0s\n");
    EXPECT_EQ(lib::Global<uint32_t>("g_diskLifeMonitorSchedulerCycle"), 0u);
    EXPECT_EQ(Shell({"corvane", "set_disk_life_monitor_schedule_time", "4294967295"}),
              "Set disk life monitor schedule time 4294967295s\n");
    EXPECT_EQ(ReadText(prefix_ + "/config/corvane_config.json"), before);
    EXPECT_THAT(HostCalls(), testing::Contains("norax_str_tou64(7)"));
}

TEST_F(DebugCommandsTest, MemoryTestTakesItsSizeFromExactlyThreeWords)
{
    EXPECT_EQ(lib::Global<uint32_t>("g_mallocMemSize"), 6u);
    EXPECT_EQ(Shell({"corvane", "test_mem"}), "<Please input valid command, need [malloc, free]>");
    EXPECT_EQ(Shell({"corvane", "test_mem", "set_malloc_size"}), "");
    EXPECT_EQ(Shell({"corvane", "test_mem", "set_malloc_size", "9", "9"}), "");
    EXPECT_EQ(Shell({"corvane", "test_mem", "other"}), "");
    EXPECT_EQ(lib::Global<uint32_t>("g_mallocMemSize"), 6u);
    EXPECT_EQ(Shell({"corvane", "test_mem", "set_malloc_size", "9"}), "");
    EXPECT_EQ(lib::Global<uint32_t>("g_mallocMemSize"), 9u);
}

TEST_F(DebugCommandsTest, FreeGivesBackWhatIsStored)
{
    void **store = lib::Global<void *[1024]>("g_MemStore");
    for (int i = 0; i < 1024; i++) {
        EXPECT_EQ(store[i], nullptr);
    }
    store[0] = std::malloc(8);
    store[1023] = std::malloc(8);

    EXPECT_EQ(Shell({"corvane", "test_mem", "free"}), "free mem ok\n");

    EXPECT_EQ(store[0], nullptr);
    EXPECT_EQ(store[1023], nullptr);
}

#if !defined(__SANITIZE_ADDRESS__) // which reserves the addresses that the limit would have to leave
TEST_F(DebugCommandsTest, MallocEndsWithAMessageWhenThereIsNoMore)
{
    const pid_t child = HostFork();
    if (child == 0) {
        const rlimit limit{1536UL << 20, 1536UL << 20};
        (void)setrlimit(RLIMIT_AS, &limit);
        lib::Global<uint32_t>("g_mallocMemSize") = 64;
        const lib::Call<void *(void *)> fill{"DiagMallocMemFun"};
        (void)TakeHostPrint();
        const bool ended = fill(nullptr) == nullptr;
        bool empty = true;
        for (int i = 0; i < 1024; i++) {
            empty = empty && lib::Global<void *[1024]>("g_MemStore")[i] == nullptr;
        }
        _exit(ended && empty && TakeHostPrint() == "malloc mem failed\n" ? 0 : 1);
    }
    int status = 1;
    (void)waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}
#endif

TEST_F(DebugCommandsTest, HooksOfLinkErrors)
{
    const auto hook = reinterpret_cast<int (*)(const char *, ...)>(lib::Address("DcmReturnLinkErr"));
    EXPECT_EQ(hook("connect"), 22);
    EXPECT_EQ(hook("send"), 32);
    EXPECT_EQ(hook("recv"), 32);
    EXPECT_EQ(hook("set_param"), 38);
    EXPECT_EQ(hook(""), -1);
    EXPECT_EQ(hook("Connect"), -1);
    EXPECT_EQ(hook("connect "), -1);
}

TEST_F(DebugCommandsTest, HooksThatBendValues)
{
    const auto failure = reinterpret_cast<void (*)(const char *, uint32_t *)>(lib::Address("DrmReturnErr"));
    const auto list = reinterpret_cast<void (*)(const char *, uint32_t *)>(lib::Address("DmgChangeCheckWhitelist"));
    const auto cache =
        reinterpret_cast<void (*)(const char *, uint8_t *)>(lib::Address("DmgChangeCheckWhitelistCache"));
    uint32_t word = 7;
    failure("any", &word);
    EXPECT_EQ(word, kFail);
    list("true", &(word = 7));
    EXPECT_EQ(word, 0u);
    list("false", &(word = 7));
    EXPECT_EQ(word, 1u);
    list("TRUE", &(word = 7));
    EXPECT_EQ(word, 7u);
    uint8_t byte[2] = {7, 7};
    cache("true", byte);
    EXPECT_THAT(byte, ElementsAre(1, 7));
    cache("false", byte);
    EXPECT_THAT(byte, ElementsAre(0, 7));
    byte[0] = 7;
    cache("", byte);
    EXPECT_THAT(byte, ElementsAre(7, 7));
}

TEST_F(DebugCommandsTest, HookOfWear)
{
    const auto hook = reinterpret_cast<void (*)(const char *, lib::DiskHealthInfo *)>(lib::Address("DmgChangeWear"));
    const struct {
        const char *mode;
        uint32_t wear;
        uint64_t hours;
        uint32_t fraction;
    } cases[] = {{"normal", 10, 3000, 0}, {"90d", 90, 17270, 0}, {"30d", 90, 5390, 0},
                 {"1d", 99, 1970, 0},     {"2d", 1, 2, 3},       {"", 1, 2, 3}};
    for (const auto &item : cases) {
        lib::DiskHealthInfo info{};
        info.powerOnHours = 2;
        info.wearInt = 1;
        info.wearFrac = 3;
        info.detail[0] = 4;
        hook(item.mode, &info);
        EXPECT_EQ(info.wearInt, item.wear) << item.mode;
        EXPECT_EQ(info.powerOnHours, item.hours) << item.mode;
        EXPECT_EQ(info.wearFrac, item.fraction) << item.mode;
        EXPECT_EQ(info.detail[0], 4) << item.mode;
    }
    lib::Call<void()>{"CorvaneTpInit"}();
}

} // namespace
