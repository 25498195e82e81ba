#include "host_fixture.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

uint32_t g_stepStatus = 0;
std::vector<std::string> g_finalized;

uint32_t FailedStep()
{
    return g_stepStatus;
}

template <int Row>
uint32_t Finalize()
{
    g_finalized.push_back(std::to_string(Row));
    return Row == 9 ? 5 : 0; // a finalizer that fails does not stop the others
}

lib::InitFiniStep *Steps()
{
    return lib::Global<lib::InitFiniStep[16]>("g_corvaneInitFiniSteps");
}

class InitCorvaneTest : public HostTest {
protected:
    /** Start in a process of its own and tell the result. */
    uint32_t StartInChild(uint32_t mode)
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            uint32_t result = 0;
            (void)CaptureStdout([&] { result = lib::InitCorvane(mode); });
            (void)!write(ends[1], &result, sizeof(result));
            _exit(0);
        }
        uint32_t result = 12345;
        EXPECT_EQ(read(ends[0], &result, sizeof(result)), static_cast<ssize_t>(sizeof(result)));
        (void)waitpid(child, nullptr, 0);
        return result;
    }
};

/** A host of mode 0: its diagnose library lies in the prefix's lib folder and was there before the library. */
class InitCorvaneCombinedTest : public HostTest {
protected:
    void LoadDiagnose(const std::string &prefix)
    {
        std::filesystem::create_directories(prefix + "/lib");
        std::filesystem::create_directories(prefix + "/config");
        const std::string path = prefix + "/lib/libnordiagnose.so";
        std::filesystem::copy_file(LIBNORDIAGNOSE_PATH, path, std::filesystem::copy_options::overwrite_existing);
        ASSERT_NE(dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL), nullptr) << dlerror();
        lib::Open();
    }

    uint32_t Start()
    {
        uint32_t result = 0;
        startOutput_ = CaptureStdout([&] { result = lib::InitCorvane(0); });
        return result;
    }

    /** Let the process see this as its map, until it has started. */
    uint32_t StartWithMap(const std::string &text)
    {
        WriteText("/tmp/maps", text);
        const std::string map = "/proc/" + std::to_string(getpid()) + "/maps";
        EXPECT_EQ(mount("/tmp/maps", map.c_str(), nullptr, MS_BIND, nullptr), 0) << std::strerror(errno);
        const uint32_t result = Start();
        EXPECT_EQ(umount(map.c_str()), 0);
        return result;
    }
};

TEST_F(InitCorvaneTest, Mode1RunsTheStepsWithTheHostsOperations)
{
    const std::string pid = std::to_string(getpid());

    StartQuiet();

    EXPECT_EQ(*lib::GetCorvaneStartMode(), 1u);
    EXPECT_EQ(lib::Global<uint32_t>("g_corvaneStartMode"), 1u);
    EXPECT_STREQ(lib::GetPrefixPath(), prefix_.c_str());
    const std::vector<std::string> calls = HostCalls();
    ASSERT_GE(calls.size(), 7u);
    EXPECT_THAT(std::vector<std::string>(calls.begin(), calls.begin() + 7),
                ElementsAre("norax_Init", "norlog_set_file_path_ext(/var/log/corvane/,/var/log/corvane/)",
                            "norlog_init", "norlog_set_backup_num(100)", "DBG_DiagnoseAgentInit(" + pid + ",corvane)",
                            "nor_mm_pool_init", "norlog_loglevel_get(999)"));
    EXPECT_THAT(calls, testing::Contains("DBG_RegCmd(corvane)"));
}

TEST_F(InitCorvaneTest, MessagesGoToStandardOutputUntilTheTableIsFilled)
{
    StartQuiet();

    EXPECT_THAT(startOutput_, HasSubstr("[INIT] DEBUG : Corvane step(Process_Check) initialize start.\n"
                                        "[INIT] DEBUG : success lock file\n"
                                        "[INIT] DEBUG : Corvane step(Process_Check) initialize success.\n"));
    for (const char *step : {"norax", "norlog", "DBG_DiagnoseAgent", "nor_mm_pool"}) {
        EXPECT_THAT(startOutput_,
                    HasSubstr(std::string("[INIT] DEBUG : Corvane step(") + step + ") initialize start.\n" +
                              "[INIT] DEBUG : Corvane step(" + step + ") initialize success.\n"));
    }
    EXPECT_THAT(startOutput_, HasSubstr("[INIT] DEBUG : Corvane step(InfraAdapter_VELMAR-Lite) initialize start.\n"));
    EXPECT_THAT(startOutput_, Not(HasSubstr("step(InfraAdapter_VELMAR-Lite) initialize success.")));
    EXPECT_EQ(HostLogged(7, "[INIT]Corvane step(InfraAdapter_VELMAR-Lite) initialize success."), 1u);
    for (const char *step : {"schedule_task_frame", "CONFIG", "DISK_MGR", "DRM", "DATA_MGR", "HOT_PLUG", "DCM",
                             "TracePoint", "diagnose"}) {
        EXPECT_EQ(HostLogged(7, std::string("[INIT]Corvane step(") + step + ") initialize start."), 1u);
        EXPECT_EQ(HostLogged(7, std::string("[INIT]Corvane step(") + step + ") initialize success."), 1u);
    }
}

TEST_F(InitCorvaneTest, LogLinesReachTheHostAsModule999WithTheirPlace)
{
    StartQuiet();

    bool found = false;
    for (const HostLine &line : HostLines()) {
        EXPECT_TRUE(line.module == 999u || line.module == 481u) << line.module; // 481: the analysis framework
        EXPECT_EQ(line.reserved, 0u);
        EXPECT_EQ(line.file.find('/'), std::string::npos) << line.file;
        if (line.text.rfind("[DISK_MGR]Disk Mgr Model Init start", 0) == 0) {
            found = true;
            EXPECT_EQ(line.module, 999u);
            EXPECT_EQ(line.level, 6u);
            EXPECT_EQ(line.func, "DiskMgrInit");
        }
    }
    EXPECT_TRUE(found);
}

TEST_F(InitCorvaneTest, TheTableNamesSixteenStepsInOrder)
{
    Open();

    const char *names[16] = {"Process_Check",
                             "norax",
                             "norlog",
                             "DBG_DiagnoseAgent",
                             "nor_mm_pool",
                             "InfraAdapter_VELMAR-Lite",
                             "schedule_task_frame",
                             "CONFIG",
                             "DISK_MGR",
                             "DRM",
                             "DATA_MGR",
                             "HOT_PLUG",
                             "Cli-Server",
                             "DCM",
                             "TracePoint",
                             "diagnose"};

    for (int i = 0; i < 16; i++) {
        EXPECT_STREQ(Steps()[i].name, names[i]);
    }
    EXPECT_EQ(Steps()[0].fini, nullptr);
    EXPECT_EQ(Steps()[5].fini, nullptr);
    for (const int i : {7, 8, 10, 11, 12, 13, 14, 15}) {
        EXPECT_EQ(Steps()[i].fini, nullptr) << names[i];
    }
}

TEST_F(InitCorvaneTest, StartsTheTasksThatRunWithTheSwitchOffToo)
{
    StartQuiet();

    EXPECT_EQ(HostLogged(6, "[DATA_MGR_MASTER]DmmSync2DmaScheduleTask start!"), 1u);
    EXPECT_EQ(HostLogged(7, "[UTIL]Task backup_user_config_task submit success."), 1u);
    EXPECT_EQ(HostLogged(3, "[INIT]get takeOverDiskSwitch config failed"), 1u) << "the settings have none";
    EXPECT_EQ(lib::Global<uint32_t>("g_drmSwitch"), 0u);
    EXPECT_TRUE(lib::Global<bool>("g_configBackUpTaskRunning"));
    EXPECT_EQ(lib::Global<uint8_t>("g_isShutDown"), 1u);
}

TEST_F(InitCorvaneTest, LowerCaseEntryIsTheSame)
{
    Open();
    uint32_t result = 0;

    const std::string output = CaptureStdout([&] { result = lib::initCorvane(2); });

    EXPECT_EQ(result, kFail);
    EXPECT_EQ(output, "[INIT] DEBUG : Error start mode (2)\n");
}

TEST_F(InitCorvaneTest, Mode2LeavesTheModeAndStartsNothing)
{
    Open();
    lib::Global<uint32_t>("g_corvaneStartMode") = 1;
    uint32_t result = 0;

    const std::string output = CaptureStdout([&] { result = lib::InitCorvane(2); });

    EXPECT_EQ(result, kFail);
    EXPECT_EQ(*lib::GetCorvaneStartMode(), 1u);
    EXPECT_EQ(output, "[INIT] DEBUG : Error start mode (2)\n");
    EXPECT_TRUE(HostCalls().empty());
}

TEST_F(InitCorvaneTest, LockFileHasMode0660AndStaysEmpty)
{
    const mode_t mask = umask(0);

    StartQuiet();

    (void)umask(mask);
    struct stat status {};
    ASSERT_EQ(stat((prefix_ + "/config/corvane_master_process_lockfile").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0660u);
    EXPECT_EQ(status.st_size, 0);
}

TEST_F(InitCorvaneTest, ModesExcludeEachOtherAsTheirLocksDo)
{
    Open();
    const std::string lock = prefix_ + "/config/corvane_master_process_lockfile";
    const int fd = open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660);
    struct flock shared = {};
    shared.l_type = F_RDLCK;
    ASSERT_EQ(fcntl(fd, F_SETLK, &shared), 0);

    // Another process holds the lock of mode 0.
    const uint32_t independent = StartInChild(1);

    EXPECT_TRUE(independent == EAGAIN || independent == EACCES) << independent;
}

TEST_F(InitCorvaneTest, FailureInTheLockStepCallsNoFinalizer)
{
    Open();
    ASSERT_EQ(lib::SetPrefixPath("/tmp/nothing-here"), 0u);
    for (int i = 0; i < 16; i++) {
        Steps()[i].fini = Finalize<1>;
    }
    uint32_t result = 0;

    const std::string output = CaptureStdout([&] { result = lib::InitCorvane(1); });

    EXPECT_EQ(result, static_cast<uint32_t>(ENOENT));
    EXPECT_TRUE(g_finalized.empty());
    EXPECT_TRUE(HostCalls().empty());
    EXPECT_THAT(output, HasSubstr("[INIT] ERROR : fail open process lock file "
                                  "/tmp/nothing-here/config/corvane_master_process_lockfile (errno:2)."));
    EXPECT_THAT(output, HasSubstr("[INIT] ERROR : Corvane step(Process_Check) initialize failed(ret:2).\n"));
}

TEST_F(InitCorvaneTest, FailureInStep10FinalizesNineSixFourThreeTwoOne)
{
    Open();
    g_stepStatus = 77;
    Steps()[10].init = FailedStep;
    Steps()[9].fini = Finalize<9>;
    Steps()[6].fini = Finalize<6>;
    const std::string pid = std::to_string(getpid());
    uint32_t result = 0;
    WriteText(prefix_ + "/config/corvane_config.json", "{}");

    startOutput_ = CaptureStdout([&] { result = lib::InitCorvane(1); });

    EXPECT_EQ(result, 77u);
    EXPECT_EQ(HostLogged(3, "[INIT]Corvane step(DATA_MGR) initialize failed(ret:77)."), 1u);
    std::vector<std::string> walk;
    for (const HostLine &line : HostLines()) {
        if (line.text.find("finalize") != std::string::npos) {
            EXPECT_EQ(line.level, 7u);
            walk.push_back(line.text);
        }
    }
    EXPECT_THAT(
        walk, ElementsAre("[INIT]Corvane step(DRM) finalize start. ", "[INIT]Corvane step(DRM) finalized(ret:5).",
                          "[INIT]Corvane step(schedule_task_frame) finalize start. ",
                          "[INIT]Corvane step(schedule_task_frame) finalized(ret:0).",
                          "[INIT]Corvane step(nor_mm_pool) finalize start. ",
                          "[INIT]Corvane step(nor_mm_pool) finalized(ret:0).",
                          "[INIT]Corvane step(DBG_DiagnoseAgent) finalize start. ",
                          "[INIT]Corvane step(DBG_DiagnoseAgent) finalized(ret:0).",
                          "[INIT]Corvane step(norlog) finalize start. ", "[INIT]Corvane step(norlog) finalized(ret:0).",
                          "[INIT]Corvane step(norax) finalize start. ", "[INIT]Corvane step(norax) finalized(ret:0)."));
    const std::vector<std::string> calls = HostCalls();
    ASSERT_GE(calls.size(), 4u);
    EXPECT_THAT(
        std::vector<std::string>(calls.end() - 4, calls.end()),
        ElementsAre("nor_mm_pool_exit", "DBG_DiagnoseAgentDestroy(" + pid + ")", "norlog_destroy", "norax_destory"));
}

TEST_F(InitCorvaneTest, HostStepsPassTheirStatusOn)
{
    Open();
    g_hostResults.diagnoseInit = 31;
    uint32_t result = 0;

    const std::string output = CaptureStdout([&] { result = lib::InitCorvane(1); });

    EXPECT_EQ(result, 31u);
    EXPECT_THAT(output, HasSubstr("[INIT] ERROR : Corvane step(DBG_DiagnoseAgent) initialize failed(ret:31).\n"
                                  "[INIT] DEBUG : Corvane step(norlog) finalize start. \n"
                                  "[INIT] DEBUG : Corvane step(norlog) finalized(ret:0).\n"
                                  "[INIT] DEBUG : Corvane step(norax) finalize start. \n"
                                  "[INIT] DEBUG : Corvane step(norax) finalized(ret:0).\n"));
}

TEST_F(InitCorvaneTest, SecondCallStopsAtTheConfiguration)
{
    StartQuiet();
    uint32_t result = 0;

    (void)CaptureStdout([&] { result = lib::InitCorvane(1); });

    EXPECT_EQ(result, 1u);
    EXPECT_EQ(HostLogged(3, "[DISK_CONFIG]Config already inited"), 1u);
    EXPECT_EQ(HostLogged(3, "[INIT]Corvane step(CONFIG) initialize failed(ret:1)."), 1u);
}

TEST_F(InitCorvaneTest, BadConfigurationFileEndsTheStart)
{
    WriteText(prefix_ + "/config/corvane_config.json", "{");
    Open();
    uint32_t result = 0;

    (void)CaptureStdout([&] { result = lib::InitCorvane(1); });

    EXPECT_EQ(result, 1u);
    EXPECT_EQ(HostLogged(6, "[DISK_CONFIG]Config init failed"), 1u);
    EXPECT_EQ(HostLogged(3, "[INIT]Corvane step(CONFIG) initialize failed(ret:1)."), 1u);
}

TEST_F(InitCorvaneTest, WithoutConfigurationTheDefaultsReadAndNoFileExistsUntilASet)
{
    Open();
    Steps()[13].init = nullptr; // the default is to collect, which this test does not want
    uint32_t result = kFail;

    (void)CaptureStdout([&] { result = lib::InitCorvane(1); });

    ASSERT_EQ(result, 0u);
    uint32_t value = 9;
    EXPECT_EQ(lib::GetConfigInt("feature_switch", &value), 0u);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(lib::GetConfigInt("takeover_disk_switch", &value), 0u);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(lib::GetChildNodeConfigInt("sas_hdd", "min_threshold_value", &value), 0u);
    EXPECT_EQ(value, 100u);
    EXPECT_FALSE(std::filesystem::exists(prefix_ + "/config/corvane_config.json"));
    EXPECT_EQ(lib::SetConfigSwitchVal("feature_switch", 2), 1u);
    EXPECT_FALSE(std::filesystem::exists(prefix_ + "/config/corvane_config.json"));
    EXPECT_EQ(lib::SetConfigInt("takeover_disk_switch", 1), 0u);
    EXPECT_THAT(ReadText(prefix_ + "/config/corvane_config.json"),
                testing::StartsWith("{\n\t\"feature_switch\":\t1,\n\t\"takeover_disk_switch\":\t1,\n"
                                    "\t\"disklife_prediction\":\t{\n\t\t\"task_cycle\":\t86400\n\t},\n"
                                    "\t\"sata_ssd_disk\":\t{\n\t\t\"task_cycle\":\t20,\n"
                                    "\t\t\"min_threshold_value\":\t1,\n\t\t\"min_slow_cycle\":\t50\n\t},\n"));
}

TEST_F(InitCorvaneCombinedTest, FindsThePrefixAndTheFolderOfThatMode)
{
    LoadDiagnose("/tmp/opt/x");
    WriteText("/tmp/opt/x/config/corvane_config.json", "{\"feature_switch\":0}");

    ASSERT_EQ(Start(), 0u) << startOutput_;

    EXPECT_STREQ(lib::GetPrefixPath(), "/tmp/opt/x");
    EXPECT_EQ(*lib::GetCorvaneStartMode(), 0u);
    EXPECT_THAT(HostCalls(),
                testing::Contains("norlog_set_file_path_ext(/var/log/corvane_super/,/var/log/corvane_super/)"));
    EXPECT_TRUE(std::filesystem::exists("/tmp/opt/x/config/corvane_master_process_lockfile"));
}

TEST_F(InitCorvaneCombinedTest, RunsBesideAnotherOfItsMode)
{
    LoadDiagnose("/tmp/opt/x");
    WriteText("/tmp/opt/x/config/corvane_config.json", "{\"feature_switch\":0}");
    // The other one holds its lock until this process closes the pipe.
    int ready[2];
    int hold[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(hold), 0);
    const pid_t other = fork();
    if (other == 0) {
        (void)close(hold[1]);
        uint32_t result = Start();
        (void)!write(ready[1], &result, sizeof(result));
        char end = 0;
        (void)!read(hold[0], &end, 1);
        _exit(0);
    }
    (void)close(hold[0]);
    uint32_t first = kFail;
    ASSERT_EQ(read(ready[0], &first, sizeof(first)), static_cast<ssize_t>(sizeof(first)));

    const uint32_t second = Start();
    const uint32_t exclusive = lib::CorvaneTryLockFile(F_WRLCK);
    (void)close(hold[1]);
    (void)waitpid(other, nullptr, 0);

    EXPECT_EQ(first, 0u);
    EXPECT_EQ(second, 0u);
    EXPECT_TRUE(exclusive == EAGAIN || exclusive == EACCES) << exclusive;
    EXPECT_EQ(HostLogged(3, "[INIT]process file has already locked (EAGAIN), maybe the process has started and "
                            "conflict with this process start mode(0)."),
              1u);
}

TEST_F(InitCorvaneCombinedTest, MapWithoutTheDiagnoseLibraryEndsTheStart)
{
    lib::Open();

    const uint32_t result = StartWithMap("7f00-7f01 r-xp 00000000 08:01 1 /usr/lib/libc.so.6\n");

    EXPECT_EQ(result, kFail);

    EXPECT_EQ(startOutput_, "[DISK_CONFIG_PREFIX] ERROR : find libcorvane.so from /proc/self/maps failed.\n"
                            "[INIT] DEBUG : Init corvane prefix path failed.\n");
    EXPECT_TRUE(HostCalls().empty());
}

TEST_F(InitCorvaneCombinedTest, MapLineIsCutAtItsLastBlank)
{
    lib::Open();

    const uint32_t result = StartWithMap("7f00-7f01 r-xp 00000000 08:01 1 /opt/my disks/lib/libnordiagnose.so\n");

    EXPECT_NE(result, 0u);

    EXPECT_STREQ(lib::GetPrefixPath(), "disks");
}

TEST_F(InitCorvaneCombinedTest, MapLineWithoutBlankIsNotResolved)
{
    lib::Open();

    const uint32_t result = StartWithMap("/opt/x/lib/libnordiagnose.so\n");

    EXPECT_EQ(result, kFail);

    EXPECT_EQ(startOutput_, "[DISK_CONFIG_PREFIX] ERROR : resolve prefix from /proc/self/maps failed.\n"
                            "[INIT] DEBUG : Init corvane prefix path failed.\n");
}

void OnSignal(int) {}

class StashPopProcessSignalHandlerTest : public HostTest {};

TEST_F(StashPopProcessSignalHandlerTest, PutsTheHostsHandlersBack)
{
    Open();
    (void)std::signal(SIGUSR1, OnSignal);

    EXPECT_EQ(lib::StashProcessSignalHandler(), 0);
    EXPECT_NE(lib::Global<void *>("g_signalHandlerStack"), nullptr);
    (void)std::signal(SIGUSR1, SIG_IGN);
    EXPECT_EQ(lib::StashPopProcessSignalHandler(), 0);

    struct sigaction now {};
    ASSERT_EQ(sigaction(SIGUSR1, nullptr, &now), 0);
    EXPECT_EQ(now.sa_handler, OnSignal);
    EXPECT_EQ(lib::Global<void *>("g_signalHandlerStack"), nullptr);
}

TEST_F(StashPopProcessSignalHandlerTest, DoesNothingOnAnEmptyStack)
{
    Open();

    EXPECT_EQ(lib::StashPopProcessSignalHandler(), 0);

    EXPECT_EQ(lib::Global<void *>("g_signalHandlerStack"), nullptr);
}

class SetPrefixPathTest : public HostTest {};

TEST_F(SetPrefixPathTest, RefusesNull)
{
    lib::Open();

    EXPECT_STREQ(lib::GetPrefixPath(), "/opt/corvane");
    EXPECT_EQ(lib::SetPrefixPath(nullptr), 1u);
    EXPECT_STREQ(lib::GetPrefixPath(), "/opt/corvane");
}

} // namespace
