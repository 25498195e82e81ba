#include "init/corvane_init.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "config/corvane_prefix_path.h"
#include "data_collect/data_collect_master/DCM_listener/dcm_hot_plug.h"
#include "diagnose/corvane_diagnose.h"
#include "infrastructure/corvane_task_scheduler/corvane_task_scheduler.h"
#include "init/corvane_bringup.h"
#include "support/corvane_fixture.h"

namespace {

/** What the host was asked to do, in order, and how it answers. */
std::vector<std::string> g_hostCalls;
int g_hostAnswer = 0;

void HostCall(const std::string &call)
{
    g_hostCalls.push_back(call);
}

} // namespace

// The host's libraries, as this process brings them.
extern "C" {

int norax_Init(void) noexcept
{
    HostCall("norax_Init");
    return g_hostAnswer;
}

void norax_destory(void) noexcept
{
    HostCall("norax_destory");
}

int norlog_set_file_path_ext(const char *path, const char *backupPath)
{
    HostCall(std::string("norlog_set_file_path_ext ") + path + " " + backupPath);
    return g_hostAnswer;
}

int norlog_init(void)
{
    HostCall("norlog_init");
    return g_hostAnswer;
}

int norlog_set_backup_num(uint32_t count)
{
    HostCall("norlog_set_backup_num " + std::to_string(count));
    return g_hostAnswer;
}

int norlog_destroy(void)
{
    HostCall("norlog_destroy");
    return g_hostAnswer;
}

int DBG_DiagnoseAgentInit(int processId, const char *agentName) noexcept
{
    HostCall("DBG_DiagnoseAgentInit " + std::to_string(processId) + " " + agentName);
    return g_hostAnswer;
}

int DBG_DiagnoseAgentDestroy(int processId) noexcept
{
    HostCall("DBG_DiagnoseAgentDestroy " + std::to_string(processId));
    return g_hostAnswer;
}

int nor_mm_pool_init(void) noexcept
{
    HostCall("nor_mm_pool_init");
    return g_hostAnswer;
}

int nor_mm_pool_exit(void) noexcept
{
    HostCall("nor_mm_pool_exit");
    return g_hostAnswer;
}
}

class InitTest : public CorvaneTest {
protected:
    InitTest() : mode_(g_corvaneStartMode)
    {
        std::copy(std::begin(g_corvaneInitFiniSteps), std::end(g_corvaneInitFiniSteps), rows_);
        g_hostCalls.clear();
        g_hostAnswer = 0;
    }
    ~InitTest() override
    {
        std::copy(std::begin(rows_), std::end(rows_), g_corvaneInitFiniSteps);
        g_corvaneStartMode = mode_;
    }
    std::string LockPath() const { return Prefix() + "/config/corvane_master_process_lockfile"; }

private:
    CorvaneInitFiniStep rows_[CORVANE_INIT_STEP_COUNT];
    uint32_t mode_;
};

using StepTableTest = InitTest;

TEST_F(StepTableTest, HasItsRowsInOrder)
{
    std::vector<std::string> names;
    for (const CorvaneInitFiniStep &step : g_corvaneInitFiniSteps) {
        names.emplace_back(step.name);
    }

    EXPECT_THAT(names,
                ::testing::ElementsAre("Process_Check", "norax", "norlog", "DBG_DiagnoseAgent", "nor_mm_pool",
                                       "InfraAdapter_VELMAR-Lite", "schedule_task_frame", "CONFIG", "DISK_MGR", "DRM",
                                       "DATA_MGR", "HOT_PLUG", "Cli-Server", "DCM", "TracePoint", "diagnose"));
}

TEST_F(StepTableTest, OnlyTheHostsLibrariesAndTheTwoFrameworksAreUndone)
{
    for (const size_t row : {0, 5, 7, 8, 10, 11, 12, 13, 14, 15}) {
        EXPECT_EQ(g_corvaneInitFiniSteps[row].fini, nullptr) << row;
    }
    for (const size_t row : {1, 2, 3, 4, 6, 9}) {
        EXPECT_NE(g_corvaneInitFiniSteps[row].fini, nullptr) << row;
    }
    for (const size_t row : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}) {
        EXPECT_NE(g_corvaneInitFiniSteps[row].init, nullptr) << row;
    }
}

TEST_F(StepTableTest, NoraxStepAsksTheHost)
{
    EXPECT_EQ(g_corvaneInitFiniSteps[1].init(), 0u);
    EXPECT_EQ(g_corvaneInitFiniSteps[1].fini(), 0u);

    EXPECT_THAT(g_hostCalls, ::testing::ElementsAre("norax_Init", "norax_destory"));

    g_hostAnswer = 7;
    EXPECT_EQ(g_corvaneInitFiniSteps[1].init(), 7u);
    EXPECT_EQ(g_corvaneInitFiniSteps[1].fini(), 0u);
}

struct LogFolderCase {
    uint32_t mode;
    const char *folder;
};

class NorlogStepTest : public InitTest, public ::testing::WithParamInterface<LogFolderCase> {};

TEST_P(NorlogStepTest, LogsToTheFolderOfTheStartMode)
{
    g_corvaneStartMode = GetParam().mode;
    const std::string folder = GetParam().folder;

    EXPECT_EQ(g_corvaneInitFiniSteps[2].init(), 0u);

    EXPECT_THAT(g_hostCalls, ::testing::ElementsAre("norlog_set_file_path_ext " + folder + " " + folder, "norlog_init",
                                                    "norlog_set_backup_num 100"));
}

TEST_P(NorlogStepTest, SucceedsWhateverTheHostAnswers)
{
    g_corvaneStartMode = GetParam().mode;
    g_hostAnswer = 5;

    EXPECT_EQ(g_corvaneInitFiniSteps[2].init(), 0u);
    EXPECT_EQ(g_hostCalls.size(), 3u);

    EXPECT_EQ(g_corvaneInitFiniSteps[2].fini(), 5u);
    EXPECT_EQ(g_hostCalls.back(), "norlog_destroy");
}

INSTANTIATE_TEST_SUITE_P(Modes, NorlogStepTest,
                         ::testing::Values(LogFolderCase{0, "/var/log/corvane_super/"},
                                           LogFolderCase{1, "/var/log/corvane/"}));

TEST_F(StepTableTest, DiagnoseAgentStepRegistersTheProcess)
{
    const std::string pid = std::to_string(getpid());

    EXPECT_EQ(g_corvaneInitFiniSteps[3].init(), 0u);
    EXPECT_EQ(g_corvaneInitFiniSteps[3].fini(), 0u);

    EXPECT_THAT(g_hostCalls,
                ::testing::ElementsAre("DBG_DiagnoseAgentInit " + pid + " corvane", "DBG_DiagnoseAgentDestroy " + pid));

    g_hostAnswer = 9;
    EXPECT_EQ(g_corvaneInitFiniSteps[3].init(), 9u);
    EXPECT_EQ(g_corvaneInitFiniSteps[3].fini(), 9u);
}

TEST_F(StepTableTest, MemoryPoolStepAsksTheHost)
{
    EXPECT_EQ(g_corvaneInitFiniSteps[4].init(), 0u);
    EXPECT_EQ(g_corvaneInitFiniSteps[4].fini(), 0u);

    EXPECT_THAT(g_hostCalls, ::testing::ElementsAre("nor_mm_pool_init", "nor_mm_pool_exit"));

    g_hostAnswer = 3;
    EXPECT_EQ(g_corvaneInitFiniSteps[4].init(), 3u);
    EXPECT_EQ(g_corvaneInitFiniSteps[4].fini(), 3u);
}

TEST_F(StepTableTest, AdapterStepFillsTheTable)
{
    g_corvaneInfra = {};

    EXPECT_EQ(g_corvaneInitFiniSteps[5].init(), 0u);

    EXPECT_NE(g_corvaneInfra.log, nullptr);
    EXPECT_NE(g_corvaneInfra.rwlockUnlock, nullptr);
}

TEST_F(StepTableTest, RowsOfTheFrameworksCallTheirFunctions)
{
    EXPECT_EQ(g_corvaneInitFiniSteps[6].init, InitScheduleTask);
    EXPECT_EQ(g_corvaneInitFiniSteps[6].fini, DestroyScheduleTask);
    EXPECT_EQ(g_corvaneInitFiniSteps[9].init, CorvaneInitDrm);
    EXPECT_EQ(g_corvaneInitFiniSteps[9].fini, CorvaneExitDrm);
    EXPECT_EQ(g_corvaneInitFiniSteps[11].init, InitHotPlugLock);
    EXPECT_EQ(g_corvaneInitFiniSteps[15].init, CorvaneDiagnoseInit);

    EXPECT_EQ(g_corvaneInitFiniSteps[14].init(), 0u);
}

using GetCorvaneStartModeTest = InitTest;

TEST_F(GetCorvaneStartModeTest, GivesTheAddressOfTheMode)
{
    EXPECT_EQ(GetCorvaneStartMode(), &g_corvaneStartMode);
}

namespace {

constexpr size_t kRows = CORVANE_INIT_STEP_COUNT;

std::vector<std::string> g_ran;
size_t g_failingRow = kRows;
constexpr uint32_t kFailure = 77;
constexpr uint32_t kFiniResult = 5;

template <size_t Row>
uint32_t RecordInit()
{
    g_ran.push_back("init " + std::to_string(Row));
    return Row == g_failingRow ? kFailure : 0;
}

template <size_t Row>
uint32_t RecordFini()
{
    g_ran.push_back("fini " + std::to_string(Row));
    return kFiniResult; // a failing one does not stop the walk
}

template <size_t... Rows>
void PatchRows(std::index_sequence<Rows...>)
{
    ((g_corvaneInitFiniSteps[Rows].init = RecordInit<Rows>), ...);
    // As the finished table has them.
    ((g_corvaneInitFiniSteps[Rows].fini =
          (Rows >= 1 && Rows <= 4) || Rows == 6 || Rows == 9 ? RecordFini<Rows> : nullptr),
     ...);
}

} // namespace

class InitCorvaneTest : public InitTest {
protected:
    InitCorvaneTest()
    {
        g_ran.clear();
        g_failingRow = kRows;
        PatchRows(std::make_index_sequence<kRows>());
    }
    static std::vector<std::string> Messages()
    {
        std::vector<std::string> messages;
        for (const LogLine &line : Logs()) {
            messages.push_back(std::to_string(line.level) + line.module + " " + line.text);
        }
        return messages;
    }
};

TEST_F(InitCorvaneTest, RunsAllStepsInOrder)
{
    std::vector<std::string> expected;
    for (size_t row = 0; row < kRows; row++) {
        expected.push_back("init " + std::to_string(row));
    }

    EXPECT_EQ(InitCorvane(1), 0u);

    EXPECT_EQ(g_ran, expected);
    EXPECT_EQ(g_corvaneStartMode, 1u);
    EXPECT_EQ(LogCount(7, "INIT", "Corvane step(Process_Check) initialize start."), 1u);
    EXPECT_EQ(LogCount(7, "INIT", "Corvane step(diagnose) initialize success."), 1u);
}

TEST_F(InitCorvaneTest, StartsTheTasksInOrderAfterTheLastStep)
{
    // No settings: those that read some say so.
    EXPECT_EQ(InitCorvane(1), 0u);

    std::vector<std::string> after = Messages();
    const auto last = std::find(after.begin(), after.end(), "7INIT Corvane step(diagnose) initialize success.");
    ASSERT_NE(last, after.end());
    after.erase(after.begin(), last + 1);
    std::erase_if(after, [](const std::string &line) { return line.find("no such config") != std::string::npos; });
    EXPECT_THAT(after,
                ::testing::ElementsAre("3INIT get feature switch config failed", "7DOUBLE StartDmmSync2DmaScheduleTask",
                                       "7DOUBLE StartConfigBackUpTask", "3INIT get feature switch config failed",
                                       "3INIT get takeOverDiskSwitch config failed"));
}

TEST_F(InitCorvaneTest, StartsNoTaskAfterAFailedStep)
{
    g_failingRow = kRows - 1;

    EXPECT_EQ(InitCorvane(1), kFailure);

    EXPECT_EQ(LogCount(7, "DOUBLE", "StartConfigBackUpTask"), 0u);
    EXPECT_EQ(LogCount(3, "INIT", "get feature switch config failed"), 0u);
}

TEST_F(InitCorvaneTest, OlderNameForwards)
{
    g_failingRow = 3;

    EXPECT_EQ(initCorvane(1), kFailure);

    EXPECT_EQ(g_corvaneStartMode, 1u);
    EXPECT_EQ(g_ran[0], "init 0");
}

TEST_F(InitCorvaneTest, SkipsRowsWithoutAFunctionSilently)
{
    for (size_t row = 1; row < kRows; row++) {
        g_corvaneInitFiniSteps[row].init = nullptr;
    }

    EXPECT_EQ(InitCorvane(1), 0u);

    EXPECT_THAT(g_ran, ::testing::ElementsAre("init 0"));
    EXPECT_EQ(LogCount(7, "INIT", "Corvane step(norax) initialize start."), 0u);
}

class FailingStepTest : public InitCorvaneTest, public ::testing::WithParamInterface<size_t> {};

TEST_P(FailingStepTest, UndoesTheStepsBeforeItLastFirst)
{
    g_failingRow = GetParam();
    std::vector<std::string> expected;
    for (size_t row = 0; row <= g_failingRow; row++) {
        expected.push_back("init " + std::to_string(row));
    }
    for (const size_t row : {9, 6, 4, 3, 2, 1}) {
        if (row < g_failingRow) {
            expected.push_back("fini " + std::to_string(row));
        }
    }

    EXPECT_EQ(InitCorvane(1), kFailure);

    EXPECT_EQ(g_ran, expected);
    EXPECT_EQ(LogCount(3, "INIT",
                       std::string("Corvane step(") + g_corvaneInitFiniSteps[g_failingRow].name +
                           ") initialize failed(ret:77)."),
              1u);
    EXPECT_EQ(
        LogCount(7, "INIT",
                 std::string("Corvane step(") + g_corvaneInitFiniSteps[g_failingRow].name + ") initialize success."),
        0u);
}

INSTANTIATE_TEST_SUITE_P(Rows, FailingStepTest, ::testing::Range<size_t>(0, kRows));

TEST_F(InitCorvaneTest, TellsEveryStepOfAFailedStart)
{
    g_failingRow = 2;

    EXPECT_EQ(InitCorvane(1), kFailure);

    EXPECT_THAT(Messages(), ::testing::ElementsAre("7INIT Corvane step(Process_Check) initialize start.",
                                                   "7INIT Corvane step(Process_Check) initialize success.",
                                                   "7INIT Corvane step(norax) initialize start.",
                                                   "7INIT Corvane step(norax) initialize success.",
                                                   "7INIT Corvane step(norlog) initialize start.",
                                                   "3INIT Corvane step(norlog) initialize failed(ret:77).",
                                                   "7INIT Corvane step(norax) finalize start. ",
                                                   "7INIT Corvane step(norax) finalized(ret:5)."));
}

TEST_F(InitCorvaneTest, PrintsWhileThereIsNoLog)
{
    g_corvaneInfra.log = nullptr;
    g_failingRow = 2;

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(InitCorvane(1), kFailure);

    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "[INIT] DEBUG : Corvane step(Process_Check) initialize start.\n"
              "[INIT] DEBUG : Corvane step(Process_Check) initialize success.\n"
              "[INIT] DEBUG : Corvane step(norax) initialize start.\n"
              "[INIT] DEBUG : Corvane step(norax) initialize success.\n"
              "[INIT] DEBUG : Corvane step(norlog) initialize start.\n"
              "[INIT] ERROR : Corvane step(norlog) initialize failed(ret:77).\n"
              "[INIT] DEBUG : Corvane step(norax) finalize start. \n"
              "[INIT] DEBUG : Corvane step(norax) finalized(ret:5).\n");
}

class BadStartModeTest : public InitCorvaneTest, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(BadStartModeTest, IsRefusedAndNotStored)
{
    g_corvaneStartMode = 1;

    EXPECT_EQ(InitCorvane(GetParam()), 0xFFFFFFFFu);

    EXPECT_EQ(g_corvaneStartMode, 1u);
    EXPECT_TRUE(g_ran.empty());
    EXPECT_EQ(LogCount(7, "INIT", "Error start mode (" + std::to_string(static_cast<int>(GetParam())) + ")"), 1u);
}

INSTANTIATE_TEST_SUITE_P(Modes, BadStartModeTest, ::testing::Values(2u, 3u, UINT32_MAX));

TEST_F(InitCorvaneTest, IndependentKeepsThePrefix)
{
    EXPECT_EQ(InitCorvane(1), 0u);

    EXPECT_EQ(GetPrefixPath(), Prefix());
}

TEST_F(InitCorvaneTest, CombinedTakesThePrefixFromTheMappedFiles)
{
    const std::string root = Prefix() + "/root";
    std::filesystem::create_directories(root + "/proc/self");
    WriteFile(root + "/proc/self/maps", "7f00-7f01 r-xp 00000000 fe:01 2  /opt/x/lib/libnordiagnose.so\n");
    g_osPaths.proc = root.c_str();

    EXPECT_EQ(InitCorvane(0), 0u);

    EXPECT_STREQ(GetPrefixPath(), "/opt/x");
    EXPECT_EQ(g_corvaneStartMode, 0u);
}

TEST_F(InitCorvaneTest, CombinedFailsWithoutTheDiagnoseLibrary)
{
    const std::string root = Prefix() + "/root";
    std::filesystem::create_directories(root + "/proc/self");
    WriteFile(root + "/proc/self/maps", "7f00-7f01 r-xp 00000000 fe:01 2  /opt/x/lib/libcorvane.so\n");
    g_osPaths.proc = root.c_str();
    g_corvaneInfra.log = nullptr;

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(InitCorvane(0), 0xFFFFFFFFu);

    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "[DISK_CONFIG_PREFIX] ERROR : find libcorvane.so from /proc/self/maps failed.\n"
              "[INIT] DEBUG : Init corvane prefix path failed.\n");
    EXPECT_TRUE(g_ran.empty());
    EXPECT_EQ(g_corvaneStartMode, 0u) << "the mode is stored before the prefix is looked for";
}

namespace {

struct flock g_askedLock;
int g_lockFd = -1;
int g_lockError = 0;

int RecordLock(int fd, struct flock *lock)
{
    g_lockFd = fd;
    g_askedLock = *lock;
    errno = g_lockError;
    return g_lockError == 0 ? 0 : -1;
}

bool IsOpen(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

/** What another process sees on the lock file: F_UNLCK, F_RDLCK or F_WRLCK. */
int LockSeenByAnother(const std::string &path)
{
    const pid_t child = fork();
    if (child == 0) {
        const int fd = open(path.c_str(), O_RDWR);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        _exit(fd >= 0 && fcntl(fd, F_GETLK, &lock) == 0 ? lock.l_type : 99);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WEXITSTATUS(status);
}

} // namespace

class CorvaneTryLockFileTest : public InitTest {
protected:
    CorvaneTryLockFileTest() : umask_(umask(0)) { g_lockError = 0; }
    ~CorvaneTryLockFileTest() override { (void)umask(umask_); }
    static std::string Number(int value) { return std::to_string(value); }

private:
    mode_t umask_;
};

TEST_F(CorvaneTryLockFileTest, MakesAnEmptyFileForUserAndGroup)
{
    EXPECT_EQ(CorvaneTryLockFile(F_WRLCK), 0u);

    struct stat status = {};
    ASSERT_EQ(stat(LockPath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0660u);
    EXPECT_EQ(status.st_size, 0);
    EXPECT_EQ(LogCount(7, "INIT", "success lock file"), 1u);
    EXPECT_EQ(Logs().size(), 1u);
}

TEST_F(CorvaneTryLockFileTest, KeepsAnExistingFileAsItIs)
{
    WriteFile(LockPath(), "text");
    ASSERT_EQ(chmod(LockPath().c_str(), 0600), 0);

    EXPECT_EQ(CorvaneTryLockFile(F_WRLCK), 0u);

    struct stat status = {};
    ASSERT_EQ(stat(LockPath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    EXPECT_EQ(ReadFile(LockPath()), "text");
}

TEST_F(CorvaneTryLockFileTest, PrintsWhileThereIsNoLog)
{
    g_corvaneInfra.log = nullptr;

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(CorvaneTryLockFile(F_WRLCK), 0u);

    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[INIT] DEBUG : success lock file\n");
}

TEST_F(CorvaneTryLockFileTest, HoldsTheLockUntilTheProcessEnds)
{
    ASSERT_EQ(CorvaneTryLockFile(F_RDLCK), 0u);
    EXPECT_EQ(LockSeenByAnother(LockPath()), F_RDLCK);

    ASSERT_EQ(CorvaneTryLockFile(F_WRLCK), 0u) << "a process is not in its own way";
    EXPECT_EQ(LockSeenByAnother(LockPath()), F_WRLCK);
}

TEST_F(CorvaneTryLockFileTest, LocksTheWholeFile)
{
    g_osCalls.setLock = RecordLock;

    EXPECT_EQ(CorvaneTryLockFile(F_WRLCK), 0u);

    EXPECT_EQ(g_askedLock.l_type, F_WRLCK);
    EXPECT_EQ(g_askedLock.l_whence, SEEK_SET);
    EXPECT_EQ(g_askedLock.l_start, 0);
    EXPECT_EQ(g_askedLock.l_len, 0);
    EXPECT_TRUE(IsOpen(g_lockFd));
    EXPECT_EQ(fcntl(g_lockFd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << "a tool that is started must not hold the lock";
}

TEST_F(CorvaneTryLockFileTest, LockTypeIsTakenAsItStands)
{
    EXPECT_EQ(CorvaneTryLockFile(999), static_cast<uint32_t>(EINVAL));

    EXPECT_EQ(LogCount(3, "INIT", "failed to lock process file(errno:" + Number(EINVAL) + ")."), 1u);
}

TEST_F(CorvaneTryLockFileTest, NeverLooksTakenWhenThePathDoesNotFit)
{
    // 1023 characters fit with the terminator.
    const std::string rest = "/config/corvane_master_process_lockfile";
    const std::string tooLong = "/" + std::string(1024 - rest.size() - 1, 'x');
    ASSERT_EQ(tooLong.size() + rest.size(), 1024u);
    ASSERT_EQ(SetPrefixPath(tooLong.c_str()), 0u);

    const uint32_t result = CorvaneTryLockFile(F_WRLCK);

    EXPECT_NE(result, 0u);
    EXPECT_EQ(LogCount(3, "INIT", "get lock file failed(errno:" + Number(static_cast<int>(result)) + ")."), 1u);
    EXPECT_EQ(Logs().size(), 1u);
}

TEST_F(CorvaneTryLockFileTest, TriesThePathThatJustFits)
{
    const std::string rest = "/config/corvane_master_process_lockfile";
    const std::string fits = "/" + std::string(1023 - rest.size() - 1, 'x');
    ASSERT_EQ(SetPrefixPath(fits.c_str()), 0u);

    const uint32_t result = CorvaneTryLockFile(F_WRLCK);

    EXPECT_EQ(result, static_cast<uint32_t>(ENAMETOOLONG)) << "the folder's name is too long for the file system";
    EXPECT_EQ(
        LogCount(3, "INIT", "fail open process lock file " + fits + rest + " (errno:" + Number(ENAMETOOLONG) + ")."),
        1u);
}

TEST_F(CorvaneTryLockFileTest, SaysWhichFileCannotBeOpened)
{
    std::filesystem::remove(Prefix() + "/config");

    EXPECT_EQ(CorvaneTryLockFile(F_WRLCK), static_cast<uint32_t>(ENOENT));

    EXPECT_EQ(LogCount(3, "INIT", "fail open process lock file " + LockPath() + " (errno:" + Number(ENOENT) + ")."),
              1u);
}

struct LockErrorCase {
    int error;
    const char *text;
};

class LockErrorTest : public CorvaneTryLockFileTest, public ::testing::WithParamInterface<LockErrorCase> {};

TEST_P(LockErrorTest, IsToldAndReturnedWithTheFileClosed)
{
    g_osCalls.setLock = RecordLock;
    g_lockError = GetParam().error;
    g_corvaneStartMode = 1;

    EXPECT_EQ(CorvaneTryLockFile(F_WRLCK), static_cast<uint32_t>(GetParam().error));

    EXPECT_EQ(LogCount(3, "INIT", GetParam().text), 1u);
    EXPECT_EQ(Logs().size(), 1u);
    EXPECT_FALSE(IsOpen(g_lockFd));
}

INSTANTIATE_TEST_SUITE_P(
    Errors, LockErrorTest,
    ::testing::Values(
        LockErrorCase{EACCES, "get process file lock fail, maybe the permission has been set error."},
        LockErrorCase{EAGAIN, "process file has already locked (EAGAIN), maybe the process has started and conflict "
                              "with this process start mode(1)."},
        LockErrorCase{ENOLCK, "failed to lock process file(errno:37)."}));

struct SharingCase {
    const char *name;
    uint32_t first;
    uint32_t second;
    bool both;
};

class SharingTest : public CorvaneTryLockFileTest, public ::testing::WithParamInterface<SharingCase> {};

TEST_P(SharingTest, OnlyCombinedProcessesRunSideBySide)
{
    // The other process takes the lock first and holds it until its standard input, a pipe, is closed.
    int ready[2];
    int hold[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(hold), 0);
    const pid_t other = fork();
    if (other == 0) {
        (void)close(hold[1]);
        g_corvaneStartMode = GetParam().first;
        const uint8_t taken = CorvaneInitProcessCheck() == 0;
        (void)!write(ready[1], &taken, 1);
        char end = 0;
        (void)!read(hold[0], &end, 1);
        _exit(0);
    }
    (void)close(hold[0]);
    uint8_t taken = 0;
    ASSERT_EQ(read(ready[0], &taken, 1), 1);
    ASSERT_EQ(taken, 1);

    g_corvaneStartMode = GetParam().second;
    const uint32_t result = CorvaneInitProcessCheck();

    if (GetParam().both) {
        EXPECT_EQ(result, 0u);
    } else {
        EXPECT_TRUE(result == EAGAIN || result == EACCES) << result;
    }
    (void)close(hold[1]);
    EXPECT_EQ(waitpid(other, nullptr, 0), other);
    (void)close(ready[0]);
    (void)close(ready[1]);
}

INSTANTIATE_TEST_SUITE_P(Modes, SharingTest,
                         ::testing::Values(SharingCase{"TwoCombined", 0, 0, true},
                                           SharingCase{"IndependentAfterCombined", 0, 1, false},
                                           SharingCase{"CombinedAfterIndependent", 1, 0, false},
                                           SharingCase{"TwoIndependent", 1, 1, false}),
                         [](const auto &test) { return test.param.name; });

using CorvaneInitProcessCheckTest = CorvaneTryLockFileTest;

TEST_F(CorvaneInitProcessCheckTest, RefusesAnUnknownMode)
{
    g_corvaneStartMode = 2;

    EXPECT_EQ(CorvaneInitProcessCheck(), 0xFFFFFFFFu);

    EXPECT_FALSE(std::filesystem::exists(LockPath()));
}
