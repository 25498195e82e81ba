#include "config/corvane_config_bak.h"

#include <functional>
#include <thread>

#include "infrastructure/corvane_task_scheduler/corvane_task_scheduler.h"
#include "unit/config/config_test_support.h"

namespace {

/** Releases a list as its callers do. */
class Names {
public:
    Names() : list_(GetALLBackupConfigNameList(&count_)) {}
    ~Names()
    {
        for (uint32_t i = 0; i < count_; i++) {
            std::free(list_[i]);
        }
        if (list_ != nullptr) {
            g_corvaneInfra.memFree(static_cast<void *>(list_));
        }
    }
    Names(const Names &) = delete;
    Names &operator=(const Names &) = delete;

    [[nodiscard]] char **List() const { return list_; }
    [[nodiscard]] uint32_t Count() const { return count_; }
    [[nodiscard]] std::vector<std::string> Texts() const { return {list_, list_ + count_}; }

private:
    uint32_t count_ = 77;
    char **list_;
};

FilePtr StreamOf(const std::string &text)
{
    FilePtr file(tmpfile());
    EXPECT_EQ(fwrite(text.data(), 1, text.size(), file.get()), text.size());
    rewind(file.get());
    return file;
}

std::string TimeName(std::time_t time)
{
    std::tm local{};
    char text[64];
    (void)strftime(text, sizeof(text), "corvane_config_bak__%Y-%m-%d-%H-%M-%S", localtime_r(&time, &local));
    return text;
}

class BakTest : public ConfigTest {
protected:
    /** Copies of rising time, all with other content than the configuration. */
    std::vector<std::string> MakeCopies(uint32_t count)
    {
        std::vector<std::string> names;
        for (uint32_t i = 0; i < count; i++) {
            char time[32];
            (void)snprintf(time, sizeof(time), "2001-01-%02u-00-00-00", i + 1);
            WriteFile(BakFile(time), "copy " + std::to_string(i));
            names.push_back(std::string("corvane_config_bak__") + time);
        }
        return names;
    }
};

class BackUpConfigFileTest : public BakTest {};
class RecoverConfigFromBakTest : public BakTest {};
class GetALLBackupConfigNameListTest : public BakTest {};
class GetNewBakConfigFileTest : public BakTest {};
class IsConfigNeedBackUpTest : public BakTest {};
class CopyConfigFileTest : public BakTest {};
class SetUsrConfigBakPermissionTest : public BakTest {};

} // namespace

TEST_F(BackUpConfigFileTest, MakesACopyWithModeAndOwner)
{
    Start(R"({"a": 1})");
    const mode_t former = umask(0);

    EXPECT_EQ(BackUpConfigFile(), 0U);

    (void)umask(former);
    const std::string name = TimeName(ConfigOs::now);
    EXPECT_EQ(BakNames(), std::vector<std::string>{name});
    EXPECT_EQ(ReadFile(BakFolder() + "/" + name), R"({"a": 1})");
    EXPECT_EQ(ModeOf(BakFolder() + "/" + name), 0640U);
    EXPECT_EQ(ConfigOs::owned, std::vector<std::string>{BakFolder() + "/" + name});
    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "Config file back up start"));
    EXPECT_TRUE(Logged(kLogDebug, "DISK_CONFIG", "there is 0 bak file in backup dir"));
    EXPECT_TRUE(Logged(kLogDebug, "DISK_CONFIG", "no bak config found need to update"));
    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "Config file back up successfully"));
}

TEST_F(BackUpConfigFileTest, TheSameContentMakesNoSecondCopy)
{
    Start(R"({"a": 1})");
    ASSERT_EQ(SetConfigInt("a", 2), 0U);
    ConfigOs::now++;
    ClearLogs();

    ASSERT_EQ(SetConfigInt("a", 2), 0U);

    EXPECT_EQ(BakNames().size(), 1U);
    EXPECT_TRUE(Logged(kLogDebug, "DISK_CONFIG", "Bak config file same as now config, don't need to update"));
    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "Config file back up successfully"));
}

TEST_F(BackUpConfigFileTest, OtherContentMakesACopy)
{
    Start(R"({"a": 1})");
    ASSERT_EQ(BackUpConfigFile(), 0U);
    ConfigOs::now++;
    WriteFile(ConfigFile(), R"({"a": 12})");

    EXPECT_EQ(BackUpConfigFile(), 0U);

    EXPECT_EQ(BakNames(), (std::vector<std::string>{TimeName(ConfigOs::now - 1), TimeName(ConfigOs::now)}));
    EXPECT_EQ(ReadFile(BakFolder() + "/" + TimeName(ConfigOs::now)), R"({"a": 12})");
    EXPECT_TRUE(Logged(kLogDebug, "DISK_CONFIG", "Bak config file not same as now config need to update"));
}

TEST_F(BackUpConfigFileTest, ASecondCopyOfTheSameSecondReplacesTheFirst)
{
    Start(R"({"a": 1})");
    ASSERT_EQ(SetConfigInt("a", 2), 0U);

    ASSERT_EQ(SetConfigInt("a", 3), 0U);

    ASSERT_EQ(BakNames().size(), 1U);
    EXPECT_EQ(ReadFile(BakFolder() + "/" + BakNames()[0]), "{\n\t\"a\":\t3\n}");
}

struct TrimCase {
    uint32_t before;
    uint32_t kept; ///< of the old ones
};

class BackUpTrimTest : public BakTest, public ::testing::WithParamInterface<TrimCase> {};

TEST_P(BackUpTrimTest, KeepsTheNewestFour)
{
    const std::vector<std::string> old = MakeCopies(GetParam().before);
    WriteFile(BakFolder() + "/corvane_other_file", "stays");
    Start(R"({"a": 1})");

    EXPECT_EQ(BackUpConfigFile(), 0U);

    std::vector<std::string> expected(old.end() - GetParam().kept, old.end());
    expected.push_back(TimeName(ConfigOs::now));
    expected.emplace_back("corvane_other_file");
    EXPECT_EQ(BakNames(), expected);
}

INSTANTIATE_TEST_SUITE_P(Numbers, BackUpTrimTest,
                         ::testing::Values(TrimCase{0, 0}, TrimCase{3, 3}, TrimCase{4, 4}, TrimCase{5, 4},
                                           TrimCase{6, 4}, TrimCase{12, 4}));

TEST_F(BackUpConfigFileTest, WithoutAConfigurationItFails)
{
    ASSERT_EQ(InitConfig(), 0U);
    ClearLogs();

    EXPECT_EQ(BackUpConfigFile(), 1U);

    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "file config/corvane_config.json not exist, continue"));
    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "Config file back up failed"));
    EXPECT_TRUE(BakNames().empty());
}

TEST_F(BackUpConfigFileTest, AnOpenThatFailsIsTold)
{
    Start("{}");
    ConfigOs::FailNth(1);

    EXPECT_EQ(BackUpConfigFile(), 1U);

    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "Error opening config file : errno(5) - Input/output error"));
}

TEST_F(BackUpConfigFileTest, WithoutTheFolderItFails)
{
    Start("{}");
    std::filesystem::remove(BakFolder());

    EXPECT_EQ(BackUpConfigFile(), 1U);

    EXPECT_TRUE(
        Logged(kLogError, "DISK_CONFIG", "open bak dir(" + BakFolder() + ") fail: 2 - No such file or directory"));
    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "Get bak config file list fail"));
    EXPECT_FALSE(Exists(BakFolder()));
}

TEST_F(BackUpConfigFileTest, BeforeInitConfigItFails)
{
    WriteFile(ConfigFile(), "{}");

    EXPECT_EQ(BackUpConfigFile(), 1U);

    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "Config file back up failed"));
    EXPECT_TRUE(BakNames().empty());
}

TEST_F(BackUpConfigFileTest, ANewestCopyThatCannotBeOpenedFails)
{
    MakeCopies(1);
    Start("{}");
    ConfigOs::FailNth(2);

    EXPECT_EQ(BackUpConfigFile(), 1U);

    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG",
                       "Get latest bak config file(corvane_config_bak__2001-01-01-00-00-00) fail: 5 - Input/output "
                       "error"));
    EXPECT_TRUE(Logged(kLogDebug, "DISK_CONFIG", "Bak config file same as now config, don't need to update"));
    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "Config file back up failed"));
}

struct FailureCase {
    const char *name;
    int call; ///< that fails, counted from the opening of the configuration
    uint32_t level;
    const char *text;
    bool copyStays;
};

class BackUpFailureTest : public BakTest, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(BackUpFailureTest, IsToldAndFails)
{
    MakeCopies(6);
    Start(std::string(5000, 'x').insert(0, "{}\n"));
    ConfigOs::FailNth(GetParam().call);

    EXPECT_EQ(BackUpConfigFile(), 1U);

    std::string text = GetParam().text;
    const std::string copy = BakFolder() + "/" + TimeName(ConfigOs::now);
    if (const size_t mark = text.find("<copy>"); mark != std::string::npos) {
        text.replace(mark, 6, copy);
    }
    EXPECT_TRUE(Logged(GetParam().level, "DISK_CONFIG", text)) << text;
    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "Bak config fail"));
    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "Config file back up failed"));
    EXPECT_EQ(Exists(copy), GetParam().copyStays);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, BackUpFailureTest,
    ::testing::Values(
        FailureCase{"create", 3, kLogError, "fail to create bak config file : errno(5) - Input/output error", false},
        FailureCase{"chmod", 4, kLogError, "chmod config file <copy> fail\n", false},
        FailureCase{"user", 5, kLogError, "user:corvane_user not exist\n", false},
        FailureCase{"group", 6, kLogError, "group:corvane_group not exist\n", false},
        FailureCase{"chown", 7, kLogError, "chown config file <copy> fail\n", false},
        FailureCase{"chown_and_step", 7, kLogInfo, "Error create config bak file", false},
        FailureCase{"write", 9, kLogInfo, "Error copy config bak file", true},
        FailureCase{"second_write", 11, kLogInfo, "Error copy config bak file", true},
        FailureCase{"flush", 15, kLogInfo, "Error copy config bak file", true},
        FailureCase{"close", 16, kLogInfo, "Error copy config bak file", true},
        FailureCase{"remove", 17, kLogError, "Delete excess backup files fail: 5 - Input/output error", true}),
    [](const auto &test) { return test.param.name; });

TEST_F(GetNewBakConfigFileTest, ACopyWithoutPermissionsThatCannotBeRemovedIsTold)
{
    g_osCalls.chmod = [](const char *, mode_t) { return -1; };
    g_osCalls.remove = [](const char *) { return -1; };

    EXPECT_EQ(GetNewBakConfigFile(), nullptr);

    EXPECT_TRUE(Logged(kLogWarn, "DISK_CONFIG", "error bak file delete fail"));
}

TEST_F(GetNewBakConfigFileTest, TellsAPathThatDoesNotFit)
{
    const std::string prefix(4096, 'p');
    UsePrefix(prefix);

    EXPECT_EQ(GetNewBakConfigFile(), nullptr);

    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG",
                       "concatenate config prefix:" + prefix + "_userconfig_bak with file:corvane_config_bak_/" +
                           TimeName(ConfigOs::now).substr(20) + " failed."));
}

TEST_F(GetALLBackupConfigNameListTest, ListsTheNewestFirstAndNothingElse)
{
    const std::vector<std::string> names = MakeCopies(3);
    WriteFile(BakFolder() + "/corvane_config_bak", "no underscore");
    WriteFile(BakFolder() + "/x_corvane_config_bak_", "not at the beginning");
    WriteFile(BakFolder() + "/corvane_config_bak_z", "only the beginning counts");

    const Names list;

    EXPECT_EQ(list.Texts(), (std::vector<std::string>{"corvane_config_bak_z", names[2], names[1], names[0]}));
    EXPECT_TRUE(Logged(kLogDebug, "DISK_CONFIG", "there is 4 bak file in backup dir"));
}

TEST_F(GetALLBackupConfigNameListTest, StopsAtFifty)
{
    for (int i = 0; i < 60; i++) {
        WriteFile(BakFile(std::to_string(i)), "x");
    }

    const Names list;

    EXPECT_EQ(list.Count(), 50U);
    const std::vector<std::string> texts = list.Texts();
    EXPECT_TRUE(std::is_sorted(texts.rbegin(), texts.rend()));
}

TEST_F(GetALLBackupConfigNameListTest, TellsItsFailures)
{
    EXPECT_EQ(GetALLBackupConfigNameList(nullptr), nullptr);

    const auto alloc = g_corvaneInfra.memAlloc;
    g_corvaneInfra.memAlloc = [](uint64_t) -> void * { return nullptr; };
    EXPECT_EQ(Names().Count(), 0U);
    g_corvaneInfra.memAlloc = alloc;
    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "malloc fail"));

    const std::string prefix(4096, 'p');
    UsePrefix(prefix);
    EXPECT_EQ(Names().List(), nullptr);
    EXPECT_TRUE(
        Logged(kLogError, "DISK_CONFIG", "concatenate config prefix:" + prefix + " with Dir:userconfig_bak failed."));
}

TEST_F(IsConfigNeedBackUpTest, RewindsTheConfigurationIfACopyIsNeeded)
{
    MakeCopies(1);
    const FilePtr config = StreamOf("copy and more");
    const Names list;
    uint8_t needed = 7;

    EXPECT_EQ(IsConfigNeedBackUp(&needed, list.Count(), list.List(), config.get()), 0U);

    EXPECT_EQ(needed, 1);
    EXPECT_EQ(ftell(config.get()), 0);
}

TEST_F(IsConfigNeedBackUpTest, LooksAtTheNewestCopyOnly)
{
    MakeCopies(3);
    const Names list;
    uint8_t needed = 7;

    const FilePtr newest = StreamOf("copy 2");
    EXPECT_EQ(IsConfigNeedBackUp(&needed, list.Count(), list.List(), newest.get()), 0U);
    EXPECT_EQ(needed, 0);

    const FilePtr older = StreamOf("copy 1");
    EXPECT_EQ(IsConfigNeedBackUp(&needed, list.Count(), list.List(), older.get()), 0U);
    EXPECT_EQ(needed, 1);
}

TEST_F(IsConfigNeedBackUpTest, RefusesBadArguments)
{
    const FilePtr config = StreamOf("");
    uint8_t needed = 7;

    EXPECT_EQ(IsConfigNeedBackUp(nullptr, 0, nullptr, config.get()), 1U);
    EXPECT_EQ(IsConfigNeedBackUp(&needed, 1, nullptr, config.get()), 1U);
    EXPECT_EQ(needed, 0);
    needed = 7;
    char name[] = "corvane_config_bak_x";
    char *list[] = {name};
    EXPECT_EQ(IsConfigNeedBackUp(&needed, 1, list, nullptr), 1U);
    EXPECT_EQ(needed, 0);
    EXPECT_EQ(GetLatestBakFile(0, nullptr), nullptr);
    EXPECT_EQ(GetLatestBakFile(1, nullptr), nullptr);
}

TEST_F(IsConfigNeedBackUpTest, WithoutCopiesNothingIsCompared)
{
    uint8_t needed = 7;

    EXPECT_EQ(IsConfigNeedBackUp(&needed, 0, nullptr, nullptr), 0U);

    EXPECT_EQ(needed, 1);
}

struct SameCase {
    std::string a;
    std::string b;
    uint32_t same;
};

class IsConfigFileSameTest : public ::testing::TestWithParam<SameCase> {};

TEST_P(IsConfigFileSameTest, ComparesEachByte)
{
    const FilePtr a = StreamOf(GetParam().a);
    const FilePtr b = StreamOf(GetParam().b);

    EXPECT_EQ(IsConfigFileSame(a.get(), b.get()), GetParam().same);
}

INSTANTIATE_TEST_SUITE_P(Contents, IsConfigFileSameTest,
                         ::testing::Values(SameCase{"", "", 1}, SameCase{"a", "", 0}, SameCase{"", "a", 0},
                                           SameCase{"abc", "abc", 1}, SameCase{"abc", "abd", 0},
                                           SameCase{"abc", "abcd", 0}, SameCase{std::string("a\0b", 3), "a", 0},
                                           SameCase{std::string("\xff", 1), "", 0},
                                           SameCase{std::string(9000, 'x'), std::string(9000, 'x'), 1},
                                           SameCase{std::string(9000, 'x'), std::string(8999, 'x') + "y", 0}));

TEST(IsConfigFileSameNullTest, NothingIsNotTheSame)
{
    const FilePtr a = StreamOf("");

    EXPECT_EQ(IsConfigFileSame(nullptr, a.get()), 0U);
    EXPECT_EQ(IsConfigFileSame(a.get(), nullptr), 0U);
}

class CopySizeTest : public ConfigTest, public ::testing::WithParamInterface<size_t> {};

TEST_P(CopySizeTest, CopiesEverySizeAroundTheChunk)
{
    std::string text(GetParam(), 'x');
    for (size_t i = 0; i < text.size(); i++) {
        text[i] = static_cast<char>(i * 7);
    }
    const FilePtr from = StreamOf(text);
    const FilePtr to(tmpfile());

    EXPECT_EQ(CopyConfigFile(from.get(), to.get()), 0U);

    rewind(from.get());
    rewind(to.get());
    EXPECT_EQ(IsConfigFileSame(from.get(), to.get()), 1U);
}

INSTANTIATE_TEST_SUITE_P(Sizes, CopySizeTest, ::testing::Values(0U, 1U, 2047U, 2048U, 2049U, 4096U, 10000U));

TEST_F(CopyConfigFileTest, FailsOnAFullDiskAndOnBadArguments)
{
    const FilePtr from = StreamOf("text");
    const FilePtr full(fopen("/dev/full", "w"));
    ASSERT_NE(full, nullptr);

    EXPECT_EQ(CopyConfigFile(from.get(), full.get()), 1U);
    EXPECT_EQ(CopyConfigFile(nullptr, full.get()), 1U);
    EXPECT_EQ(CopyConfigFile(from.get(), nullptr), 1U);
}

TEST_F(CopyConfigFileTest, FailsIfTheSourceCannotBeRead)
{
    const FilePtr folder(fopen("/proc/self", "r"));
    ASSERT_NE(folder, nullptr);
    const FilePtr to(tmpfile());

    EXPECT_EQ(CopyConfigFile(folder.get(), to.get()), 1U);
}

TEST_F(SetUsrConfigBakPermissionTest, ReturnsMinusOneOnFailure)
{
    const std::string file = Prefix() + "/file";
    WriteFile(file, "x");

    EXPECT_EQ(SetUsrConfigBakPermission(file.c_str()), 0U);
    EXPECT_EQ(ModeOf(file), 0640U);
    EXPECT_EQ(ConfigOs::owned, std::vector<std::string>{file});

    EXPECT_EQ(SetUsrConfigBakPermission((file + "x").c_str()), 0xFFFFFFFFU);
    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "chmod config file " + file + "x fail\n"));
    EXPECT_EQ(SetUsrConfigBakPermission(nullptr), 0xFFFFFFFFU);
}

TEST_F(SetUsrConfigBakPermissionTest, FindsAGroupWithVeryManyMembers)
{
    const std::string file = Prefix() + "/file";
    WriteFile(file, "x");
    g_osCalls.getgrnam_r = [](const char *, group *entry, char *, size_t size, group **result) {
        entry->gr_gid = kServiceGroup;
        *result = size < 100000 ? nullptr : entry;
        return *result == nullptr ? ERANGE : 0;
    };

    EXPECT_EQ(SetUsrConfigBakPermission(file.c_str()), 0U);

    EXPECT_EQ(ConfigOs::owned, std::vector<std::string>{file});
}

TEST(BakConfigFileNameCmpTest, OrdersDescending)
{
    const char *early = "corvane_config_bak__2026-01-01-00-00-00";
    const char *late = "corvane_config_bak__2026-01-01-00-00-01";

    EXPECT_GT(BakConfigFileNameCmp(&early, &late), 0);
    EXPECT_LT(BakConfigFileNameCmp(&late, &early), 0);
    EXPECT_EQ(BakConfigFileNameCmp(&late, &late), 0);
}

TEST_F(RecoverConfigFromBakTest, TakesTheNewestCopyOnly)
{
    MakeCopies(3);

    EXPECT_EQ(RecoverConfigFromBak(), 0U);

    EXPECT_EQ(ReadFile(ConfigFile()), "copy 2");
    EXPECT_EQ(ModeOf(ConfigFile()), 0640U);
    EXPECT_EQ(ConfigOs::owned, std::vector<std::string>{ConfigFile()});
}

TEST_F(RecoverConfigFromBakTest, WithoutCopiesFails)
{
    EXPECT_EQ(RecoverConfigFromBak(), 1U);
    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "Cant get bak file list, bakNum = 0"));

    std::filesystem::remove(BakFolder());
    EXPECT_EQ(RecoverConfigFromBak(), 1U);
    EXPECT_EQ(LogCount(kLogError, "DISK_CONFIG", "Cant get bak file list, bakNum = 0"), 2U);
    EXPECT_FALSE(Exists(ConfigFile()));
}

class RecoverFailureTest : public BakTest, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(RecoverFailureTest, IsToldAndFails)
{
    MakeCopies(1);
    ConfigOs::FailNth(GetParam().call);

    EXPECT_EQ(RecoverConfigFromBak(), 1U);

    std::string text = GetParam().text;
    if (const size_t mark = text.find("<copy>"); mark != std::string::npos) {
        text.replace(mark, 6, ConfigFile());
    }
    EXPECT_TRUE(Logged(GetParam().level, "DISK_CONFIG", text)) << text;
    EXPECT_EQ(Exists(ConfigFile()), GetParam().copyStays);
    EXPECT_EQ(BakNames().size(), 1U) << "the copy itself is never touched";
}

INSTANTIATE_TEST_SUITE_P(
    Calls, RecoverFailureTest,
    ::testing::Values(
        FailureCase{"open_copy", 1, kLogError, "Cant get latest bak file", false},
        FailureCase{"create", 2, kLogError, "Create new config file fail: 5 - Input/output error", false},
        FailureCase{"write", 4, kLogError, "Copy latest bak config file fail: 5 - Input/output error", true},
        FailureCase{"flush", 6, kLogError, "Copy latest bak config file fail: 5 - Input/output error", true},
        FailureCase{"close", 7, kLogError, "Copy latest bak config file fail: 5 - Input/output error", true},
        FailureCase{"chmod", 8, kLogError, "chmod config file <copy> fail\n", true},
        FailureCase{"user", 9, kLogError, "user:corvane_user not exist\n", true},
        FailureCase{"group", 10, kLogError, "group:corvane_group not exist\n", true},
        FailureCase{"chown", 11, kLogError, "chown config file <copy> fail\n", true},
        FailureCase{"permission", 11, kLogError, "Set config file:<copy> permission fail.", true}),
    [](const auto &test) { return test.param.name; });

TEST_F(RecoverConfigFromBakTest, TellsAPathThatDoesNotFit)
{
    const std::string prefix(4096, 'p');
    UsePrefix(prefix);

    EXPECT_EQ(RecoverConfigFromBak(), 1U);

    EXPECT_TRUE(
        Logged(kLogError, "DISK_CONFIG", "concatenate config prefix:" + prefix + " with Dir:userconfig_bak failed."));
}

TEST_F(BackUpConfigFileTest, TwoAtATimeMakeOneCopy)
{
    Start(R"({"a": 1})");
    std::vector<std::thread> threads;

    for (int i = 0; i < 4; i++) {
        threads.emplace_back([] { EXPECT_EQ(BackUpConfigFile(), 0U); });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }

    EXPECT_EQ(BakNames().size(), 1U);
    EXPECT_EQ(LogCount(kLogDebug, "DISK_CONFIG", "Bak config file same as now config, don't need to update"), 3U);
}

namespace {

CorvaneThreadFunc g_taskEntry;
CorvaneThreadFunc g_taskCallback;
CorvaneThreadParam g_taskParam;
int g_tasks = 0;

/** The task frame of this test alone; its one thread is run by hand. */
class ConfigBackUpTaskTest : public BakTest {
protected:
    ConfigBackUpTaskTest()
    {
        g_tasks = 0;
        g_configBackUpTaskRunning = false;
        g_scheduleTaskSpinLock = nullptr;
        g_scheduleTaskList.next = nullptr;
        EXPECT_EQ(InitScheduleTask(), 0U);
        g_corvaneInfra.threadCreate = [](CorvaneThreadFunc entry, CorvaneThreadFunc callback,
                                         CorvaneThreadParam param) -> uint64_t {
            g_taskEntry = entry;
            g_taskCallback = callback;
            g_taskParam = param;
            return ++g_tasks;
        };
    }
    ~ConfigBackUpTaskTest() override
    {
        g_corvaneInfra.threadSleep = [](CorvaneTime) {};
        StopAllScheduleTask();
        RunTask();
        g_corvaneInfra.spinlockDestroy(g_scheduleTaskSpinLock);
        g_scheduleTaskSpinLock = nullptr;
    }
    static void RunTask()
    {
        if (g_tasks == 0) {
            return;
        }
        g_tasks = 0;
        (void)g_taskEntry(g_taskParam.entryArg);
        (void)g_taskCallback(g_taskParam.callbackArg);
    }
};

} // namespace

TEST_F(ConfigBackUpTaskTest, RunsEveryTenMinutes)
{
    EXPECT_EQ(StartConfigBackUpTask(), 0U);

    EXPECT_TRUE(g_configBackUpTaskRunning);
    ASSERT_NE(g_scheduleTaskList.next, nullptr);
    const ScheduleTask &task = *g_scheduleTaskList.next->task;
    EXPECT_STREQ(task.name, "backup_user_config_task");
    EXPECT_EQ(task.forever, 1U);
    EXPECT_EQ(task.repeatCount, 0U);
    EXPECT_EQ(task.firstDelayMs, 600000U);
    EXPECT_EQ(task.periodMs, 600000U);
    EXPECT_EQ(task.entry, BackUpConfigFileTaskWarpFunc);
    EXPECT_EQ(task.entryArg, nullptr);
    EXPECT_EQ(task.callback, BackUpConfigFileTaskCBFunc);
    EXPECT_EQ(task.callbackArg, nullptr);
}

TEST_F(ConfigBackUpTaskTest, RefusesASecondStart)
{
    ASSERT_EQ(StartConfigBackUpTask(), 0U);

    EXPECT_EQ(StartConfigBackUpTask(), 114U);

    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "Start Config Back Up Task Fail, ret = 114"));
    EXPECT_TRUE(g_configBackUpTaskRunning);
}

TEST_F(ConfigBackUpTaskTest, RunsOnceMoreAfterAStop)
{
    Start(R"({"a": 1})");
    ASSERT_EQ(StartConfigBackUpTask(), 0U);

    StopConfigBackUpTask();

    EXPECT_EQ(StartConfigBackUpTask(), 114U) << "it has not ended";
    EXPECT_TRUE(g_configBackUpTaskRunning);
    g_corvaneInfra.threadSleep = [](CorvaneTime time) { EXPECT_EQ(time.value, 600000U); };
    RunTask();
    EXPECT_EQ(BakNames().size(), 1U);
    EXPECT_FALSE(g_configBackUpTaskRunning);
    EXPECT_EQ(StartConfigBackUpTask(), 0U);
}

TEST_F(ConfigBackUpTaskTest, CopiesOnlyWhatHasChanged)
{
    Start(R"({"a": 1})");
    static std::vector<size_t> copies;
    static std::function<size_t()> countCopies;
    static std::string file;
    copies.clear();
    countCopies = [this] { return BakNames().size(); };
    file = ConfigFile();
    ASSERT_EQ(StartConfigBackUpTask(), 0U);
    g_corvaneInfra.threadSleep = [](CorvaneTime) {
        copies.push_back(countCopies());
        ConfigOs::now += 600;
        if (copies.size() == 3) {
            WriteFile(file, R"({"a": 2})");
        }
        if (copies.size() == 4) {
            StopConfigBackUpTask();
        }
    };

    RunTask();

    EXPECT_THAT(copies, ::testing::ElementsAre(0U, 1U, 1U, 2U));
}

TEST_F(ConfigBackUpTaskTest, CannotStopWhatDoesNotRun)
{
    StopConfigBackUpTask();

    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "Cancel Config Back Up Task Fail, ret = 2"));
}

TEST_F(ConfigBackUpTaskTest, FailsWithoutTheTaskFrame)
{
    void *lock = g_scheduleTaskSpinLock;
    g_scheduleTaskSpinLock = nullptr;

    EXPECT_EQ(StartConfigBackUpTask(), 11U);
    StopConfigBackUpTask();

    EXPECT_FALSE(g_configBackUpTaskRunning);
    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "Start Config Back Up Task Fail, ret = 11"));
    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "Cancel Config Back Up Task Fail, ret = 11"));
    g_scheduleTaskSpinLock = lock;
}
