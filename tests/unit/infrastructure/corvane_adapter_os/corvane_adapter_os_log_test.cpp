#include "infrastructure/corvane_adapter_os/corvane_adapter_os_log.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "config/corvane_prefix_path.h"
#include "infrastructure/corvane_adapter_os/corvane_adapter_os.h"
#include "infrastructure/corvane_adapter_os/corvane_adapter_os_log_backup.h"
#include "support/corvane_fixture.h"

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

namespace {

const std::string kFolder = "/var/log/corvane_super";
const std::string kFile = "/var/log/corvane_super/corvane.os.log";
const std::string kRotated = "/var/log/corvane_super/corvane.os.log.bak";
const std::string kBackups = "/var/log/corvane_super/bak_os";

constexpr std::time_t kInstant = 1700000000; // 2023-11-14 22:13:20 UTC

CorvaneThreadFunc g_threadEntry = nullptr;
CorvaneThreadFunc g_threadCallback = nullptr;
CorvaneThreadParam g_threadParam;
size_t g_threads = 0;
bool g_threadsFail = false;

uint64_t NoteThread(CorvaneThreadFunc entry, CorvaneThreadFunc callback, CorvaneThreadParam param)
{
    g_threads++;
    g_threadEntry = entry;
    g_threadCallback = callback;
    g_threadParam = param;
    return g_threadsFail ? 0 : 1;
}

int FailingRename(const char *, const char *)
{
    errno = EIO;
    return -1;
}

std::FILE *FailingFopen(const char *, const char *)
{
    errno = EMFILE;
    return nullptr;
}

mode_t ModeOf(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0xFFFF;
}

std::string Stderr(const std::function<void()> &body)
{
    ::testing::internal::CaptureStderr();
    body();
    return ::testing::internal::GetCapturedStderr();
}

} // namespace

/** A private /var/log, a fixed clock in UTC, and threads that are noted instead of run. */
class OsLogTest : public CorvaneTest {
protected:
    static void SetUpTestSuite()
    {
        static const bool mounted = unshare(CLONE_NEWNS) == 0 &&
                                    mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                                    mount("tmpfs", "/var/log", "tmpfs", 0, nullptr) == 0;
        mounted_ = mounted;
    }
    void SetUp() override
    {
        ASSERT_TRUE(mounted_) << "a mount namespace needs root";
        std::filesystem::remove_all(kFolder);
        std::filesystem::create_directory(kFolder);
        (void)setenv("TZ", "UTC", 1);
        tzset();
        g_osCalls.time = [](std::time_t *) { return kInstant; };
        g_osCalls.clockGettime = [](clockid_t, struct timespec *out) {
            *out = {kInstant, 7999999};
            return 0;
        };
        g_threads = 0;
        g_threadsFail = false;
    }
    void TearDown() override
    {
        CorvaneInfraFreeLogFileVars();
        if (g_osLogFile != nullptr) {
            (void)std::fclose(g_osLogFile);
            g_osLogFile = nullptr;
        }
    }
    void Register()
    {
        ASSERT_EQ(CorvaneInfraRegisterOsAdapter(), 0u);
        g_corvaneInfra.threadCreate = NoteThread;
    }
    /** Logs one line without showing it on the console. */
    static void Log(uint32_t level, const char *text)
    {
        ::testing::internal::CaptureStdout();
        CorvaneOsLog(level, "DCM", "file.cpp", 42, "Func", "%s", text);
        (void)::testing::internal::GetCapturedStdout();
    }
    static std::string LogText()
    {
        (void)std::fflush(g_osLogFile);
        return ReadFile(kFile);
    }
    static std::string Line(const std::string &level, const std::string &text)
    {
        return "2023-11-14 22:13:20 [DCM       ][" + std::to_string(pthread_self()) + "] " + level +
               " [file.cpp 42 Func] : " + text + "\n";
    }
    static uint64_t Written() { return g_corvaneInfra.atomicGet(g_osLogWrittenBytes); }
    static uint64_t Pending() { return g_corvaneInfra.atomicGet(g_osLogBackupPending); }

private:
    static inline bool mounted_ = false;
};

using CorvaneInfraRegisterOsAdapterTest = OsLogTest;

TEST_F(CorvaneInfraRegisterOsAdapterTest, FillsTheTableWithTheFileLog)
{
    g_corvaneInfra = {};

    EXPECT_EQ(CorvaneInfraRegisterOsAdapter(), 0u);

    EXPECT_EQ(g_corvaneInfra.log, CorvaneOsLog);
    EXPECT_EQ(g_corvaneInfra.memAlloc, CorvaneOsMalloc);
    EXPECT_EQ(g_corvaneInfra.rwlockUnlock, CorvaneOsRwlockUnlockRwlock);
    EXPECT_EQ(Written(), 0u);
    EXPECT_EQ(Pending(), 0u);
    EXPECT_NE(g_osLogLock, nullptr);
    EXPECT_EQ(ModeOf(kFile), 0640u);
    EXPECT_EQ(ModeOf(kBackups), 0750u);
}

TEST_F(CorvaneInfraRegisterOsAdapterTest, LeavesTheTableEmptyWithoutALogFile)
{
    std::filesystem::remove(kFolder);
    g_corvaneInfra = {};

    const std::string errors = Stderr([] { EXPECT_EQ(CorvaneInfraRegisterOsAdapter(), 1u); });

    EXPECT_EQ(errors, "[INIT] [ERROR] CorvaneInfraRegisterOsAdapter can't open log file " + kFile +
                          "\n[INIT] [ERROR] CorvaneInfraRegisterOsAdapter create log file fail\n");
    EXPECT_EQ(g_corvaneInfra.log, nullptr);
    EXPECT_EQ(g_corvaneInfra.memAlloc, nullptr);
}

TEST_F(CorvaneInfraRegisterOsAdapterTest, FailsWithoutTheBackupFolder)
{
    static int calls = 0;
    calls = 0;
    g_osCalls.chmod = [](const char *path, mode_t mode) { return ++calls == 1 ? chmod(path, mode) : -1; };

    const std::string errors = Stderr([] { EXPECT_EQ(CorvaneInfraRegisterOsAdapter(), 1u); });

    EXPECT_EQ(errors, "[INIT] [ERROR] CorvaneInfraRegisterOsAdapter chmod log folder " + kBackups +
                          " fail\n[INIT] [ERROR] log folder permission set fail, file path = " + kBackups +
                          "[LOGBAK] [ERROR] CorvaneOsLogCompressAndBakup bak folder create failed: " + kBackups + "\n");
    EXPECT_FALSE(std::filesystem::exists(kBackups));
}

TEST_F(CorvaneInfraRegisterOsAdapterTest, FreedVariablesAreGone)
{
    Register();

    CorvaneInfraFreeLogFileVars();

    EXPECT_EQ(g_osLogWrittenBytes, nullptr);
    EXPECT_EQ(g_osLogBackupPending, nullptr);
    EXPECT_EQ(g_osLogLock, nullptr);
    CorvaneInfraFreeLogFileVars();
}

struct PermissionCase {
    const char *name;
    void (*breakIt)();
    const char *message; /**< the path is put in place of % */
};

class LogPermissionTest : public OsLogTest, public ::testing::WithParamInterface<PermissionCase> {
protected:
    static std::string Message(const std::string &path)
    {
        std::string text = GetParam().message;
        const size_t at = text.find('%');
        return at == std::string::npos ? text : text.replace(at, 1, path);
    }
};

TEST_P(LogPermissionTest, RemovesTheFileThatCannotBeProtected)
{
    GetParam().breakIt();
    FILE *stream = nullptr;

    const std::string errors = Stderr([&] { EXPECT_EQ(CreateLogFile(&stream, kFile.c_str()), 1u); });

    EXPECT_EQ(errors, "[INIT] [ERROR] CorvaneInfraRegisterOsAdapter " + Message(kFile) +
                          "\n[INIT] [ERROR] log permission set fail, file path = " + kFile);
    EXPECT_FALSE(std::filesystem::exists(kFile));
    EXPECT_EQ(stream, nullptr);
}

TEST_P(LogPermissionTest, RemovesTheFolderThatCannotBeProtected)
{
    GetParam().breakIt();

    const std::string errors = Stderr([] { EXPECT_EQ(CreateLogFolder(kBackups.c_str()), 1u); });

    EXPECT_EQ(errors, "[INIT] [ERROR] CorvaneInfraRegisterOsAdapter " + Message(kBackups) +
                          "\n[INIT] [ERROR] log folder permission set fail, file path = " + kBackups);
    EXPECT_FALSE(std::filesystem::exists(kBackups));
}

INSTANTIATE_TEST_SUITE_P(
    Calls, LogPermissionTest,
    ::testing::Values(PermissionCase{"Chmod", [] { g_osCalls.chmod = [](const char *, mode_t) { return -1; }; },
                                     "chmod log folder % fail"},
                      PermissionCase{"User",
                                     [] {
                                         g_osCalls.getpwnam_r = [](const char *, struct passwd *, char *, size_t,
                                                                   struct passwd **found) {
                                             *found = nullptr;
                                             return 0;
                                         };
                                     },
                                     "user:root not exist"},
                      PermissionCase{"Group",
                                     [] {
                                         g_osCalls.getgrnam_r = [](const char *, struct group *, char *, size_t,
                                                                   struct group **found) {
                                             *found = nullptr;
                                             return 0;
                                         };
                                     },
                                     "group:root not exist"},
                      PermissionCase{"Chown", [] { g_osCalls.chown = [](const char *, uid_t, gid_t) { return -1; }; },
                                     "chmown log folder % fail"}),
    [](const auto &test) { return test.param.name; });

using CreateLogFolderTest = OsLogTest;

TEST_F(CreateLogFolderTest, ProtectsAFolderThatExisted)
{
    std::filesystem::create_directory(kBackups);
    ASSERT_EQ(chmod(kBackups.c_str(), 0777), 0);

    EXPECT_EQ(CreateLogFolder(kBackups.c_str()), 0u);

    EXPECT_EQ(ModeOf(kBackups), 0750u);
}

TEST_F(CreateLogFolderTest, SaysThatItCannotBeMade)
{
    const std::string errors = Stderr([] { EXPECT_EQ(CreateLogFolder("/var/log/no/folder"), 1u); });

    EXPECT_EQ(errors, "[INIT] [ERROR] CorvaneOsLogCompressAndBakup can't create bak folder: /var/log/no/folder\n");
}

struct LevelCase {
    uint32_t level;
    const char *name; /**< padded to five characters */
    bool toErrors;
};

class OsLogLevelTest : public OsLogTest, public ::testing::WithParamInterface<LevelCase> {};

TEST_P(OsLogLevelTest, GoesToTheFileAndToTheConsole)
{
    Register();
    const std::string expected = Line(GetParam().name, "value 5");

    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    CorvaneOsLog(GetParam().level, "DCM", "file.cpp", 42, "Func", "value %d", 5);
    const std::string errors = ::testing::internal::GetCapturedStderr();
    const std::string output = ::testing::internal::GetCapturedStdout();

    EXPECT_EQ(LogText(), expected);
    EXPECT_EQ(errors, GetParam().toErrors ? expected : "");
    EXPECT_EQ(output, GetParam().toErrors ? "" : expected);
    EXPECT_EQ(Written(), expected.size());
}

INSTANTIATE_TEST_SUITE_P(Levels, OsLogLevelTest,
                         ::testing::Values(LevelCase{0, "N/A  ", false}, LevelCase{2, "CRITICAL", true},
                                           LevelCase{3, "ERROR", true}, LevelCase{4, "WARN ", false},
                                           LevelCase{5, "EVENT", false}, LevelCase{6, "INFO ", false},
                                           LevelCase{7, "DEBUG", false}, LevelCase{99, "N/A  ", false}));

using CorvaneOsLogTest = OsLogTest;

TEST_F(CorvaneOsLogTest, CutsTheModuleAtTenCharacters)
{
    Register();

    ::testing::internal::CaptureStdout();
    CorvaneOsLog(6, "DATA_MGR_MASTER", "f", 1, "g", "x");

    EXPECT_THAT(::testing::internal::GetCapturedStdout(), HasSubstr("[DATA_MGR_M]["));
}

TEST_F(CorvaneOsLogTest, ReachesTheConsoleBeforeThereIsAFile)
{
    ASSERT_EQ(g_osLogLock, nullptr);

    ::testing::internal::CaptureStdout();
    CorvaneOsLog(6, "DCM", "file.cpp", 42, "Func", "early");

    EXPECT_EQ(::testing::internal::GetCapturedStdout(), Line("INFO ", "early"));
}

TEST_F(CorvaneOsLogTest, WritesWithoutItsLockAndCountsNothing)
{
    Register();
    CorvaneInfraFreeLogFileVars();
    ASSERT_EQ(g_osLogLock, nullptr);

    ::testing::internal::CaptureStdout();
    CorvaneOsLog(6, "DCM", "file.cpp", 42, "Func", "late");

    EXPECT_EQ(::testing::internal::GetCapturedStdout(), Line("INFO ", "late"));
    EXPECT_EQ(LogText(), Line("INFO ", "late"));
    EXPECT_EQ(g_osLogWrittenBytes, nullptr);
}

TEST_F(CorvaneOsLogTest, LinesOfManyThreadsStayWhole)
{
    Register();
    constexpr int threadCount = 4;
    constexpr int lineCount = 200;

    ::testing::internal::CaptureStdout();
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; i++) {
        threads.emplace_back([] {
            for (int line = 0; line < lineCount; line++) {
                CorvaneOsLog(6, "DCM", "file.cpp", 42, "Func", "%s", "a line of text");
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    (void)::testing::internal::GetCapturedStdout();

    std::istringstream text(LogText());
    std::string line;
    int count = 0;
    while (std::getline(text, line)) {
        ASSERT_THAT(line, MatchesRegex("2023-11-14 22:13:20 \\[DCM       \\]\\[[0-9]+\\] INFO  \\[file.cpp 42 Func\\] "
                                       ": a line of text"));
        count++;
    }
    EXPECT_EQ(count, threadCount * lineCount);
}

using CorvaneOsPrintStreamTest = OsLogTest;

TEST_F(CorvaneOsPrintStreamTest, TellsAWriteThatFailed)
{
    Register();
    (void)std::fclose(g_osLogFile);
    g_osLogFile = std::fopen("/dev/full", "w");
    ASSERT_NE(g_osLogFile, nullptr);
    (void)std::setvbuf(g_osLogFile, nullptr, _IONBF, 0);

    const std::string errors = Stderr([] { Log(6, "lost"); });

    EXPECT_EQ(errors, "[LOG] [ERROR] CorvaneOsPrintStream print to file stream failed, ret<-1>.");
    EXPECT_EQ(Written(), 0u);
}

class RotationTest : public OsLogTest {
protected:
    void SetUp() override
    {
        OsLogTest::SetUp();
        Register();
        lineLength_ = Line("INFO ", "x").size();
    }
    /** Sets the count so that the next line brings it to this. */
    void NextLineReaches(uint64_t total) { g_corvaneInfra.atomicSet(g_osLogWrittenBytes, total - lineLength_); }

    size_t lineLength_ = 0;
};

TEST_F(RotationTest, DoesNotHappenOneByteBelow)
{
    NextLineReaches(3999999);

    Log(6, "x");

    EXPECT_EQ(Written(), 3999999u);
    EXPECT_FALSE(std::filesystem::exists(kRotated));
    EXPECT_EQ(g_threads, 0u);
}

TEST_F(RotationTest, HappensWithTheLineThatFillsTheFile)
{
    NextLineReaches(4000000);
    FILE *before = g_osLogFile;

    Log(6, "x");

    EXPECT_EQ(Written(), 0u);
    EXPECT_EQ(Pending(), 0u);
    EXPECT_TRUE(std::filesystem::exists(kRotated));
    EXPECT_EQ(LogText(), "");
    EXPECT_EQ(ModeOf(kFile), 0640u);
    EXPECT_NE(g_osLogFile, before);
    EXPECT_EQ(g_threads, 1u);
    EXPECT_EQ(g_threadEntry, CorvaneOsLogCompressAndBakup);
    EXPECT_EQ(g_threadCallback, nullptr);
    EXPECT_EQ(g_threadParam.priority, 0u);
    EXPECT_EQ(g_threadParam.joinable, 0u);
}

TEST_F(RotationTest, OldStreamStaysOpen)
{
    NextLineReaches(4000000);
    FILE *before = g_osLogFile;

    Log(6, "x");

    EXPECT_EQ(std::fflush(before), 0); // nothing was lost in its buffer
    EXPECT_EQ(ReadFile(kRotated), Line("INFO ", "x"));
    (void)std::fclose(before);
}

TEST_F(RotationTest, OverwritesARotatedFileThatWasLeft)
{
    WriteFile(kRotated, "old");
    NextLineReaches(4000000);
    FILE *before = g_osLogFile;

    Log(6, "x");

    (void)std::fclose(before);
    EXPECT_EQ(ReadFile(kRotated), Line("INFO ", "x"));
}

TEST_F(RotationTest, CountStartsAtZeroWhateverTheFileHolds)
{
    (void)std::fclose(g_osLogFile);
    CorvaneInfraFreeLogFileVars();
    WriteFile(kFile, std::string(5000000, 'x'));
    Register();

    Log(6, "x");

    EXPECT_EQ(Written(), lineLength_);
    EXPECT_FALSE(std::filesystem::exists(kRotated));
    EXPECT_EQ(LogText().size(), 5000000 + lineLength_) << "lines are appended";
}

TEST_F(RotationTest, IsTriedAgainAfterAFailedRename)
{
    NextLineReaches(4000000);
    g_osCalls.rename = FailingRename;

    const std::string errors = Stderr([] { Log(6, "x"); });

    EXPECT_EQ(errors, "[LOGBAK] [ERROR] CorvaneInfraRegisterOsAdapter can't rename log file " + kFile +
                          "\n[LOGBAK] [ERROR] CorvaneOsLogHandleFileSize Backup log file failed.");
    EXPECT_EQ(Written(), 4000000u);
    EXPECT_EQ(Pending(), 0u);
    EXPECT_EQ(g_threads, 0u);

    g_osCalls.rename = std::rename;
    Log(6, "x");

    EXPECT_TRUE(std::filesystem::exists(kRotated));
    EXPECT_EQ(Written(), 0u);
}

TEST_F(RotationTest, KeepsTheOldStreamWithoutANewFile)
{
    NextLineReaches(4000000);
    FILE *before = g_osLogFile;
    g_osCalls.fopen = FailingFopen;

    const std::string errors = Stderr([] { Log(6, "x"); });

    EXPECT_EQ(errors, "[INIT] [ERROR] CorvaneInfraRegisterOsAdapter can't open log file " + kFile +
                          "\n[LOGBAK] [ERROR] CorvaneInfraRegisterOsAdapter can't create log file " + kFile +
                          "\n[LOGBAK] [ERROR] CorvaneOsLogHandleFileSize Backup log file failed.");
    EXPECT_EQ(g_osLogFile, before);
    EXPECT_EQ(Pending(), 1u);
    EXPECT_EQ(g_threads, 0u);
}

TEST_F(RotationTest, ThreadIsTriedAgainAtTheNextLine)
{
    NextLineReaches(4000000);
    g_threadsFail = true;

    const std::string errors = Stderr([] { Log(6, "x"); });

    EXPECT_EQ(errors, "[LOGBAK] [ERROR] CorvaneOsCreateBackupThread create backup thread failed.");
    EXPECT_EQ(Written(), 0u);
    EXPECT_EQ(Pending(), 1u);

    g_threadsFail = false;
    Log(6, "x");

    EXPECT_EQ(g_threads, 2u);
    EXPECT_EQ(Pending(), 0u);

    Log(6, "x");
    EXPECT_EQ(g_threads, 2u);
}

TEST_F(RotationTest, AThreadThatCannotBeHadDoesNotLockTheLogForItself)
{
    // The real operation logs its failure, under the lock that the rotation holds.
    NextLineReaches(4000000);
    g_corvaneInfra.threadCreate = CorvaneOsThreadCreate;
    g_osCalls.threadCreate = [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return EAGAIN; };

    const std::string errors = Stderr([] { Log(6, "x"); });

    EXPECT_THAT(errors, HasSubstr("] : thread create failed(11).\n"));
    EXPECT_THAT(errors, HasSubstr("create backup thread failed."));
    EXPECT_THAT(LogText(), HasSubstr("] : thread create failed(11).\n"));
    EXPECT_EQ(Written(), 0u);
    EXPECT_EQ(Pending(), 1u);
    EXPECT_TRUE(g_corvaneInfra.spinlockTryLock(g_osLogLock));
    g_corvaneInfra.spinlockUnlock(g_osLogLock);
}

TEST_F(RotationTest, ANegativeCountIsIgnored)
{
    g_corvaneInfra.atomicSet(g_osLogWrittenBytes, 4000000);

    CorvaneOsLogHandleFileSize(-1);

    EXPECT_EQ(Written(), 4000000u);
    EXPECT_EQ(g_threads, 0u);
}

using CorvaneOsGenerateBackupFileNameTest = OsLogTest;

TEST_F(CorvaneOsGenerateBackupFileNameTest, HoldsLocalTimeAndMilliseconds)
{
    char name[256];

    EXPECT_EQ(CorvaneOsGenerateBackupFileName(name), 0u);

    EXPECT_EQ(std::string(name), kBackups + "/log-corvane.os.log.2023-11-14_22-13-20.007");
}

TEST_F(CorvaneOsGenerateBackupFileNameTest, SaysThatThereIsNoClock)
{
    g_osCalls.clockGettime = [](clockid_t, struct timespec *) { return -1; };
    char name[256];

    const std::string errors = Stderr([&] { EXPECT_EQ(CorvaneOsGenerateBackupFileName(name), 1u); });

    EXPECT_EQ(errors, "[LOGBAK] [ERROR] CorvaneOsLogFillTimeInfo clock_gettime failed\n"
                      "[LOGBAK] [ERROR] fill timeInfo failed\n");
}

TEST_F(CorvaneOsGenerateBackupFileNameTest, RefusesNull)
{
    const std::string errors = Stderr([] { EXPECT_EQ(CorvaneOsGenerateBackupFileName(nullptr), 1u); });

    EXPECT_EQ(errors, "[LOGBAK] [ERROR] sprintf <" + kBackups + "/log-corvane.os.log> failed\n");
}

struct FillCase {
    size_t used;
    const char *message;
};

class CorvaneOsLogFillTimeInfoTest : public OsLogTest, public ::testing::WithParamInterface<FillCase> {};

TEST_P(CorvaneOsLogFillTimeInfoTest, SaysWhatDoesNotFit)
{
    char name[256] = {};
    std::memset(name, 'x', GetParam().used);

    const std::string errors =
        Stderr([&] { EXPECT_EQ(CorvaneOsLogFillTimeInfo(name), GetParam().message[0] == '\0' ? 0u : 1u); });

    EXPECT_EQ(errors, GetParam().message);
}

// The time takes 20 characters, the milliseconds 4.
INSTANTIATE_TEST_SUITE_P(
    Rooms, CorvaneOsLogFillTimeInfoTest,
    ::testing::Values(FillCase{231, ""}, FillCase{232, "[LOGBAK] [ERROR] CorvaneOsLogFillTimeInfo sprintf_s failed\n"},
                      FillCase{235, "[LOGBAK] [ERROR] CorvaneOsLogFillTimeInfo sprintf_s failed\n"},
                      FillCase{236, "[LOGBAK] [ERROR] CorvaneOsLogFillTimeInfo strftime failed\n"}));

using CorvaneOsBuildBackupCommandTest = OsLogTest;

TEST_F(CorvaneOsBuildBackupCommandTest, HandsTheScriptItsArguments)
{
    CorvaneOsCommand command{};

    EXPECT_EQ(CorvaneOsBuildBackupCommand("/a/b", command), 0);

    EXPECT_EQ(std::string(command.data()), Prefix() + "/scripts/corvane_log_file_op.sh -s /a/b -d " + kBackups +
                                               "/ -l 50 -p log-corvane.os.log -u root -g root backupcntlimit "
                                               "2>/dev/null &");
}

TEST_F(CorvaneOsBuildBackupCommandTest, RefusesADangerousName)
{
    CorvaneOsCommand command{};

    const std::string errors = Stderr([&] { EXPECT_EQ(CorvaneOsBuildBackupCommand("/a/b;reboot", command), 1); });

    EXPECT_EQ(errors, "[LOGBAK] [ERROR] Command injection: log backup message(/a/b;reboot " + kBackups +
                          " log-corvane.os.log) is dangerous, ret(1).\n");
    EXPECT_STREQ(command.data(), "");
}

struct TooLongCase {
    const char *name;
    size_t prefix;
    size_t source;
    const char *message;
};

class CommandTooLongTest : public OsLogTest, public ::testing::WithParamInterface<TooLongCase> {};

TEST_P(CommandTooLongTest, IsToldByItsPart)
{
    ASSERT_EQ(SetPrefixPath(std::string(GetParam().prefix, 'p').c_str()), 0u);
    const std::string source(GetParam().source, 's');
    CorvaneOsCommand command{};

    const std::string errors = Stderr([&] { EXPECT_NE(CorvaneOsBuildBackupCommand(source.c_str(), command), 0); });

    EXPECT_THAT(errors, ::testing::StartsWith(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    Parts, CommandTooLongTest,
    ::testing::Values(TooLongCase{"Source", 5, 1024, "[LOGBAK] [ERROR] log backup cmd sprintf failed, ret(-1).\n"},
                      TooLongCase{"Script", 4096, 5, "[LOGBAK] [ERROR] , concatenate script path with prefix error.\n"},
                      TooLongCase{"Copy", 1024, 5, "[LOGBAK] [ERROR] log backup cmd strcpy failed, cmd: ret:34.\n"},
                      TooLongCase{"Whole", 900, 100, "[LOGBAK] [ERROR] log backup cmd sprintf failed, cmd:ppp"}),
    [](const auto &test) { return test.param.name; });

class CorvaneOsExecuteCmdTest : public OsLogTest {};

TEST_F(CorvaneOsExecuteCmdTest, GivesTheRawWaitStatus)
{
    EXPECT_EQ(CorvaneOsExecuteCmd("true", nullptr), 0);
    EXPECT_EQ(CorvaneOsExecuteCmd("exit 3", nullptr), 3 << 8);
    EXPECT_EQ(CorvaneOsExecuteCmd("kill -9 $$", "$"), 9);
}

TEST_F(CorvaneOsExecuteCmdTest, RefusesNull)
{
    EXPECT_EQ(CorvaneOsExecuteCmd(nullptr, "&>"), 1);
}

TEST_F(CorvaneOsExecuteCmdTest, LooksBehindAnAllowedCharacter)
{
    const std::string marker = Prefix() + "/ran";

    EXPECT_EQ(CorvaneOsExecuteCmd(("true & touch " + marker + "; true").c_str(), "&"), 1);

    EXPECT_FALSE(std::filesystem::exists(marker)) << "no shell was started";
}

TEST_F(CorvaneOsExecuteCmdTest, SaysThatThereIsNoProcessToWaitFor)
{
    struct sigaction former = {};
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN; // children are not kept for their parent
    ASSERT_EQ(sigaction(SIGCHLD, &ignore, &former), 0);

    EXPECT_EQ(CorvaneOsExecuteCmd("true", nullptr), -1);

    (void)sigaction(SIGCHLD, &former, nullptr);
}

class DangerousCharacterTest : public OsLogTest, public ::testing::WithParamInterface<char> {};

TEST_P(DangerousCharacterTest, IsRefusedUnlessAllowed)
{
    const std::string marker = Prefix() + "/ran";
    const std::string command = "touch " + marker + " #" + GetParam();
    const std::string allowed = std::string("x") + GetParam();
    const std::string others = GetParam() == '&' ? ";" : "&";

    EXPECT_EQ(CorvaneOsExecuteCmd(command.c_str(), nullptr), 1);
    EXPECT_EQ(CorvaneOsExecuteCmd(command.c_str(), ""), 1);
    EXPECT_EQ(CorvaneOsExecuteCmd(command.c_str(), others.c_str()), 1);
    EXPECT_FALSE(std::filesystem::exists(marker)) << "no shell was started";

    EXPECT_EQ(CorvaneOsExecuteCmd(command.c_str(), allowed.c_str()), 0);
    EXPECT_TRUE(std::filesystem::exists(marker));
}

INSTANTIATE_TEST_SUITE_P(Characters, DangerousCharacterTest,
                         ::testing::Values('|', ';', '&', '$', '<', '>', '!', '\n', '`'));

class CorvaneOsLogCompressAndBakupTest : public OsLogTest {
protected:
    /** A script that writes its arguments to a pipe. */
    void InstallScript(int status)
    {
        pipe_ = Prefix() + "/pipe";
        ASSERT_EQ(mkfifo(pipe_.c_str(), 0600), 0);
        std::filesystem::create_directory(Prefix() + "/scripts");
        const std::string script = Prefix() + "/scripts/corvane_log_file_op.sh";
        WriteFile(script, "#!/bin/sh\necho \"$@\" > " + pipe_ + "\nexit " + std::to_string(status) + "\n");
        ASSERT_EQ(chmod(script.c_str(), 0755), 0);
    }
    /** What the script was called with; it runs in the background. */
    std::string ScriptArguments()
    {
        const int fd = open(pipe_.c_str(), O_RDWR | O_CLOEXEC);
        struct pollfd readable = {fd, POLLIN, 0};
        std::string text;
        if (fd >= 0 && poll(&readable, 1, 60000) == 1) {
            char buffer[1024];
            const ssize_t count = read(fd, buffer, sizeof(buffer));
            text.assign(buffer, count > 0 ? static_cast<size_t>(count) : 0);
        }
        (void)close(fd);
        return text;
    }
    static std::string Run()
    {
        return Stderr([] { EXPECT_EQ(CorvaneOsLogCompressAndBakup(nullptr), nullptr); });
    }
    static inline const std::string kName = kBackups + "/log-corvane.os.log.2023-11-14_22-13-20.007";

private:
    std::string pipe_;
};

TEST_F(CorvaneOsLogCompressAndBakupTest, MovesTheFileAndStartsTheScript)
{
    InstallScript(1); // its own result is nobody's: it runs behind the shell
    WriteFile(kRotated, "lines");

    const std::string errors = Run();

    EXPECT_EQ(ScriptArguments(),
              "-s " + kName + " -d " + kBackups + "/ -l 50 -p log-corvane.os.log -u root -g root backupcntlimit\n");
    EXPECT_EQ(errors, "[LOGBAK] [INFO] cmd:<" + Prefix() + "/scripts/corvane_log_file_op.sh -s " + kName + " -d " +
                          kBackups +
                          "/ -l 50 -p log-corvane.os.log -u root -g root backupcntlimit 2>/dev/null &>\n"
                          "[LOGBAK] [INFO] CorvaneOsLogCompressAndBakup success.\n");
    EXPECT_EQ(ReadFile(kName), "lines");
    EXPECT_FALSE(std::filesystem::exists(kRotated));
    EXPECT_EQ(ModeOf(kBackups), 0750u);
}

TEST_F(CorvaneOsLogCompressAndBakupTest, TakesAStatusOf10AsSuccess)
{
    // The command runs behind the shell, so only another shell can end with anything but 0.
    const std::string shell = Prefix() + "/shell";
    WriteFile(shell, "#!/bin/bash\nkill -10 $$\n");
    ASSERT_EQ(chmod(shell.c_str(), 0755), 0);
    WriteFile(kRotated, "lines");
    ASSERT_EQ(mount(shell.c_str(), "/bin/sh", nullptr, MS_BIND, nullptr), 0);

    const int32_t status = CorvaneOsExecuteCmd("true", nullptr);
    const std::string errors = Run();

    ASSERT_EQ(umount2("/bin/sh", MNT_DETACH), 0);
    EXPECT_EQ(status, 10);
    EXPECT_THAT(errors, ::testing::EndsWith("[LOGBAK] [INFO] CorvaneOsLogCompressAndBakup success.\n"));
}

TEST_F(CorvaneOsLogCompressAndBakupTest, SaysThatThereIsNoFile)
{
    EXPECT_EQ(Run(), "[LOGBAK] [ERROR] CorvaneOsLogCompressAndBakup bak file not exist: " + kRotated + "\n");
}

TEST_F(CorvaneOsLogCompressAndBakupTest, SaysThatThereIsNoFolder)
{
    WriteFile(kRotated, "lines");
    g_osCalls.chmod = [](const char *, mode_t) { return -1; };

    EXPECT_THAT(Run(), ::testing::EndsWith("[LOGBAK] [ERROR] CorvaneOsLogCompressAndBakup bak folder create failed: " +
                                           kBackups + "\n"));
    EXPECT_TRUE(std::filesystem::exists(kRotated));
}

TEST_F(CorvaneOsLogCompressAndBakupTest, SaysThatTheFileCannotBeMoved)
{
    WriteFile(kRotated, "lines");
    g_osCalls.rename = FailingRename;

    EXPECT_EQ(Run(), "[LOGBAK] [ERROR] rename failed: oldname<" + kRotated + "> newname<" + kName + "> errno<" +
                         std::to_string(EIO) + ">\n");
    EXPECT_TRUE(std::filesystem::exists(kRotated));
}

TEST_F(CorvaneOsLogCompressAndBakupTest, LeavesTheFileUncompressedWhenTheCommandIsRefused)
{
    WriteFile(kRotated, "lines");
    ASSERT_EQ(SetPrefixPath("/opt/a;b"), 0u); // not among the checked parts, but in the whole command

    const std::string errors = Run();

    EXPECT_THAT(errors, HasSubstr("[LOGBAK] [ERROR] log backup dump cmd exec failed, cmd</opt/a;b/scripts/"));
    EXPECT_THAT(errors, HasSubstr("> ret<1> errno<"));
    EXPECT_EQ(ReadFile(kName), "lines");
}

TEST_F(CorvaneOsLogCompressAndBakupTest, LeavesTheFileUncompressedWithoutACommand)
{
    const std::string told = "[LOGBAK] [ERROR] log backup dump cmd sprintf failed, cmd<> ret<";
    // The builder's failures have either sign; a refused name is one of those above 0.
    for (const auto &[prefix, ret] : {std::pair{5000, "-1> errno<"}, std::pair{1024, "34> errno<"}}) {
        WriteFile(kRotated, "lines");
        ASSERT_EQ(SetPrefixPath(std::string(prefix, 'p').c_str()), 0u);

        const std::string errors = Run();

        EXPECT_THAT(errors, HasSubstr(told + ret));
        EXPECT_THAT(errors, ::testing::Not(HasSubstr("[INFO]")));
        EXPECT_EQ(ReadFile(kName), "lines");
    }
}
