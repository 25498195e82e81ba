#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/child_process.h"
#include "support/mount_namespace.h"
#include "support/notify_socket.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace {

std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

class StartTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        static const std::string problem = EnterPrivateMounts(BUILD_DIR); // once for all suites
        problem_ = problem;
    }

    void SetUp() override
    {
        ASSERT_EQ(problem_, "");
        std::filesystem::remove_all(kPrefix);
        std::filesystem::create_directories(kPrefix + "/config");
        std::filesystem::create_directories(kPrefix + "/lib");
    }

    static std::vector<std::string> Corvaned(std::vector<std::string> more = {})
    {
        std::vector<std::string> arguments = {CORVANED_PATH, "--prefix", kPrefix};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
    static std::vector<std::string> Host() { return {COMBINED_HOST_PATH, kPrefix, LIBCORVANE_PATH}; }
    static void InstallDiagnoseLibrary()
    {
        std::filesystem::copy_file(LIBNORDIAGNOSE_PATH, kPrefix + "/lib/libnordiagnose.so");
    }

    static inline const std::string kPrefix = "/tmp/prefix";
    static inline const std::string kLockFile = "/tmp/prefix/config/corvane_master_process_lockfile";

private:
    static inline std::string problem_;
};

class CorvanedSignalTest : public StartTest, public ::testing::WithParamInterface<int> {};

TEST_P(CorvanedSignalTest, StartsSaysReadyAndEndsCleanly)
{
    const NotifySocket manager;
    ChildProcess corvaned(Corvaned(), {manager.Environment()});

    EXPECT_THAT(manager.Receive(), HasSubstr("READY=1"));
    EXPECT_TRUE(corvaned.Running());
    struct stat status = {};
    ASSERT_EQ(stat(kLockFile.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0660u);
    EXPECT_EQ(status.st_size, 0);

    corvaned.Signal(GetParam());
    EXPECT_THAT(manager.Receive(), HasSubstr("STOPPING=1"));
    EXPECT_EQ(corvaned.WaitForExit(), 0) << corvaned.Errors();

    // There is no log before the adapter step, and afterwards nothing else goes to standard output.
    EXPECT_THAT(corvaned.Output(), HasSubstr("[INIT] DEBUG : success lock file\n"));
    EXPECT_THAT(corvaned.Output(), HasSubstr("[INIT] DEBUG : Corvane step(nor_mm_pool) initialize success.\n"));
    EXPECT_THAT(corvaned.Output(), Not(HasSubstr("Corvane step(CONFIG)")));
    EXPECT_EQ(corvaned.Errors(), "");
    EXPECT_TRUE(std::filesystem::is_directory("/var/log/corvane"));
    EXPECT_FALSE(std::filesystem::exists("/var/log/corvane_super"));
}

INSTANTIATE_TEST_SUITE_P(Signals, CorvanedSignalTest, ::testing::Values(SIGTERM, SIGINT));

using CorvanedTest = StartTest;

TEST_F(CorvanedTest, TellsAServiceManagerWithAnAbstractSocket)
{
    const NotifySocket manager(true);
    ChildProcess corvaned(Corvaned(), {manager.Environment()});

    EXPECT_THAT(manager.Receive(), HasSubstr("READY=1"));

    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
}

class WatchdogTest : public StartTest, public ::testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(WatchdogTest, HearsThatTheServiceWorks)
{
    const NotifySocket manager;
    ChildProcess corvaned(Corvaned(GetParam()), {manager.Environment(), "WATCHDOG_USEC=200000"});
    ASSERT_THAT(manager.Receive(), HasSubstr("READY=1"));

    EXPECT_EQ(manager.Receive(), "WATCHDOG=1");
    EXPECT_EQ(manager.Receive(), "WATCHDOG=1");

    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
}

INSTANTIATE_TEST_SUITE_P(Status, WatchdogTest,
                         ::testing::Values(std::vector<std::string>{},
                                           std::vector<std::string>{"--status-interval", "1"}));

TEST_F(CorvanedTest, PrintsTheStatusBesideTheWatchdog)
{
    const NotifySocket manager;
    // Few enough signs of life to fit the manager's queue: nobody reads it here.
    ChildProcess corvaned(Corvaned({"--status-interval", "1"}), {manager.Environment(), "WATCHDOG_USEC=1600000"});

    EXPECT_TRUE(corvaned.WaitForOutput([](const std::string &output) {
        const size_t first = output.find(" online\n");
        return first != std::string::npos && output.find(" online\n", first + 1) != std::string::npos;
    }));

    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
}

TEST_F(CorvanedTest, StartsAlthoughTheServiceManagerIsGone)
{
    ChildProcess corvaned(Corvaned({"--status-interval", "1"}), {"NOTIFY_SOCKET=/tmp/nobody.sock"});

    EXPECT_TRUE(corvaned.WaitForOutput(" online\n"));

    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
    EXPECT_THAT(corvaned.Errors(), HasSubstr("check NOTIFY_SOCKET"));
}

TEST_F(CorvanedTest, RefusesASecondInstance)
{
    const NotifySocket manager;
    ChildProcess first(Corvaned(), {manager.Environment()});
    ASSERT_THAT(manager.Receive(), HasSubstr("READY=1"));

    ChildProcess second(Corvaned());

    EXPECT_EQ(second.WaitForExit(), 3);
    EXPECT_EQ(second.Errors(), "corvaned: already running on the prefix /tmp/prefix as process " +
                                   std::to_string(first.Pid()) +
                                   "; stop that process first, or give another --prefix\n");
    EXPECT_THAT(second.Output(), HasSubstr("process file has already locked (EAGAIN), maybe the process has started "
                                           "and conflict with this process start mode(1)."));
    EXPECT_THAT(second.Output(), Not(HasSubstr("finalize"))) << "the first step has nothing to undo";

    EXPECT_TRUE(first.Running());
    first.Signal(SIGTERM);
    EXPECT_EQ(first.WaitForExit(), 0);
}

TEST_F(CorvanedTest, StartsAgainAfterAKill)
{
    {
        const NotifySocket manager;
        ChildProcess killed(Corvaned(), {manager.Environment()});
        ASSERT_THAT(manager.Receive(), HasSubstr("READY=1"));
        killed.Signal(SIGKILL);
        ASSERT_EQ(killed.WaitForExit(), 128 + SIGKILL);
    }

    const NotifySocket manager;
    ChildProcess again(Corvaned(), {manager.Environment()});

    EXPECT_THAT(manager.Receive(), HasSubstr("READY=1"));
    again.Signal(SIGTERM);
    EXPECT_EQ(again.WaitForExit(), 0);
}

TEST_F(CorvanedTest, TakesThePrefixFromItsOwnPath)
{
    std::filesystem::create_directories(kPrefix + "/bin");
    std::filesystem::copy_file(CORVANED_PATH, kPrefix + "/bin/corvaned");
    const NotifySocket manager;
    ChildProcess corvaned({kPrefix + "/bin/corvaned"}, {manager.Environment()});

    EXPECT_THAT(manager.Receive(), HasSubstr("READY=1"));
    EXPECT_TRUE(std::filesystem::exists(kLockFile));

    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
}

TEST_F(CorvanedTest, IgnoresSigpipeWithTheHandlersPutBack)
{
    const NotifySocket manager;
    ChildProcess corvaned(Corvaned(), {manager.Environment()});
    ASSERT_THAT(manager.Receive(), HasSubstr("READY=1"));

    const std::string status = ReadFile("/proc/" + std::to_string(corvaned.Pid()) + "/status");
    const size_t at = status.find("SigIgn:");
    ASSERT_NE(at, std::string::npos);
    EXPECT_NE(std::stoull(status.substr(at + 7), nullptr, 16) & (1ull << (SIGPIPE - 1)), 0u);

    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
}

TEST_F(CorvanedTest, PrintsATableOfTheOnlineDisks)
{
    ChildProcess corvaned(Corvaned({"--status-interval", "1"}));

    EXPECT_TRUE(corvaned.WaitForOutput("  0 disks online\n"));
    EXPECT_TRUE(corvaned.WaitForOutput(
        " ID STATE    TYPE       VENDOR    MODEL                SERIAL               "
        "DEVICE    CAPACITY   HOURS    WEAR SCORE LIFE h      IOPS R/W         KiB/s R/W    UTIL  "
        "STRATEGY\n"));

    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
}

TEST_F(CorvanedTest, PrintsJsonForScripts)
{
    ChildProcess corvaned(Corvaned({"--status-interval", "1", "--status-format", "json"}));

    EXPECT_TRUE(corvaned.WaitForOutput("\",\"disks\":[]}\n")) << corvaned.Errors();

    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
}

TEST_F(CorvanedTest, SaysThatThePrefixIsMissing)
{
    ChildProcess corvaned({CORVANED_PATH, "--prefix", "/tmp/nowhere"});

    EXPECT_EQ(corvaned.WaitForExit(), 1);

    EXPECT_EQ(corvaned.Errors(), "corvaned: the prefix /tmp/nowhere does not exist; create it, or give the right one "
                                 "with --prefix\n");
}

TEST_F(CorvanedTest, SaysThatTheConfigFolderIsMissing)
{
    std::filesystem::remove_all(kPrefix + "/config");
    ChildProcess corvaned(Corvaned());

    EXPECT_EQ(corvaned.WaitForExit(), 1);

    EXPECT_EQ(corvaned.Errors(), "corvaned: the folder /tmp/prefix/config is missing; create it, or give the right "
                                 "prefix with --prefix\n");
}

TEST_F(CorvanedTest, SaysThatThePrefixIsAFile)
{
    std::ofstream("/tmp/prefix-file") << "x";
    ChildProcess corvaned({CORVANED_PATH, "--prefix", "/tmp/prefix-file"});

    EXPECT_EQ(corvaned.WaitForExit(), 1);

    EXPECT_THAT(corvaned.Errors(), HasSubstr("/tmp/prefix-file is no folder"));
}

TEST_F(CorvanedTest, SaysThatThePrefixIsTooLongForItsSocket)
{
    const std::string most = "/tmp/" + std::string(81, 'x');
    std::filesystem::create_directories(most + "/config");
    std::filesystem::create_directories(most + "x/config");

    ChildProcess refused({CORVANED_PATH, "--prefix", most + "x"});
    EXPECT_EQ(refused.WaitForExit(), 1);
    EXPECT_EQ(refused.Errors(), "corvaned: the prefix " + most +
                                    "x is too long for the path of a socket; give one of at most 86 characters with "
                                    "--prefix\n");

    const NotifySocket manager;
    ChildProcess corvaned({CORVANED_PATH, "--prefix", most}, {manager.Environment()});
    EXPECT_THAT(manager.Receive(), HasSubstr("READY=1"));
    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
}

TEST_F(CorvanedTest, TellsAnyOtherFailureWithItsStatus)
{
    std::filesystem::create_directory(kLockFile); // opening a folder for writing fails
    ChildProcess corvaned(Corvaned());

    EXPECT_EQ(corvaned.WaitForExit(), 1);

    EXPECT_THAT(corvaned.Errors(), HasSubstr("corvaned: start failed with status " + std::to_string(EISDIR) + ";"));
    EXPECT_THAT(corvaned.Errors(), Not(HasSubstr("corvane_user is missing")));
    EXPECT_THAT(corvaned.Output(), HasSubstr("[INIT] ERROR : fail open process lock file " + kLockFile +
                                             " (errno:" + std::to_string(EISDIR) + ")."));
}

TEST_F(CorvanedTest, NamesTheAccountsThatAreMissing)
{
    std::ofstream("/tmp/passwd") << "root:x:0:0::/root:/bin/sh\n";
    std::ofstream("/tmp/group") << "root:x:0:\n";
    ASSERT_EQ(mount("/tmp/passwd", "/etc/passwd", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount("/tmp/group", "/etc/group", nullptr, MS_BIND, nullptr), 0);
    std::filesystem::create_directory(kLockFile); // opening a folder for writing fails
    ChildProcess corvaned(Corvaned());

    EXPECT_EQ(corvaned.WaitForExit(), 1);

    EXPECT_EQ(umount2("/etc/passwd", MNT_DETACH), 0);
    EXPECT_EQ(umount2("/etc/group", MNT_DETACH), 0);
    EXPECT_THAT(corvaned.Errors(),
                HasSubstr("; the user corvane_user is missing: useradd --system --no-create-home corvane_user"
                          "; the group corvane_group is missing: groupadd --system corvane_group\n"));
}

struct UsageCase {
    const char *name;
    std::vector<std::string> arguments;
    const char *error;
};

class CorvanedUsageTest : public StartTest, public ::testing::WithParamInterface<UsageCase> {};

TEST_P(CorvanedUsageTest, RefusesABadCommandLine)
{
    std::vector<std::string> arguments = {CORVANED_PATH};
    arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    ChildProcess corvaned(arguments);

    EXPECT_EQ(corvaned.WaitForExit(), 2);

    EXPECT_EQ(corvaned.Errors(), std::string("corvaned: ") + GetParam().error + "\n");
    EXPECT_EQ(corvaned.Output(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Lines, CorvanedUsageTest,
    ::testing::Values(
        UsageCase{"UnknownOption", {"--frobnicate"}, "unknown option --frobnicate; see corvaned --help"},
        UsageCase{"UnknownLetter", {"-xh"}, "unknown option -x; see corvaned --help"},
        UsageCase{"UnknownLetterInside", {"--prefix", "/", "-vxh"}, "unknown option -x; see corvaned --help"},
        UsageCase{"UnknownLetterLast", {"-vx", "--help"}, "unknown option -x; see corvaned --help"},
        UsageCase{"ValueWhereNoneGoes",
                  {"--allow-action-mismatch=1"},
                  "unknown option --allow-action-mismatch=1; see corvaned --help"},
        UsageCase{"Argument", {"now"}, "unexpected argument now; see corvaned --help"},
        UsageCase{"NoPrefix", {"--prefix"}, "--prefix needs a value; see corvaned --help"},
        UsageCase{"EmptyPrefix", {"--prefix", ""}, "--prefix is empty; give the folder that holds \"config\""},
        UsageCase{"IntervalZero",
                  {"--status-interval", "0"},
                  "--status-interval 0 is no whole number from 1 to 86400; give the seconds between two tables"},
        UsageCase{"IntervalTooLong",
                  {"--status-interval", "86401"},
                  "--status-interval 86401 is no whole number from 1 to 86400; give the seconds between two tables"},
        UsageCase{"IntervalText",
                  {"-s", "5s"},
                  "--status-interval 5s is no whole number from 1 to 86400; give the seconds between two tables"},
        UsageCase{"Format", {"--status-format", "xml"}, "--status-format xml is unknown; give text or json"}),
    [](const auto &test) { return test.param.name; });

TEST_F(CorvanedTest, ExplainsItself)
{
    ChildProcess corvaned({CORVANED_PATH, "--help"});

    EXPECT_EQ(corvaned.WaitForExit(), 0);

    for (const char *option : {"--prefix DIR", "--status-interval SECONDS", "--status-format FORMAT",
                               "--allow-action-mismatch", "--verbose", "--help", "--version"}) {
        EXPECT_THAT(corvaned.Output(), HasSubstr(option));
    }
    EXPECT_EQ(corvaned.Errors(), "");
}

class ManagementLogTest : public StartTest, public ::testing::WithParamInterface<bool> {};

TEST_P(ManagementLogTest, HoldsAnswersOnlyIfAskedTo)
{
    const std::filesystem::path folder = "/var/log/corvane_super"; // root's
    std::filesystem::create_directories(folder);
    const NotifySocket manager;
    ChildProcess corvaned(Corvaned(GetParam() ? std::vector<std::string>{"--verbose"} : std::vector<std::string>{}),
                          {manager.Environment()});
    ASSERT_THAT(manager.Receive(), HasSubstr("READY=1"));

    ChildProcess client({CORVANECTL_PATH, "--prefix", kPrefix, "show", "summary"});
    EXPECT_EQ(client.WaitForExit(), 0) << client.Errors();
    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);

    const std::string log = ReadFile(folder / "cli_log/cli.log");
    EXPECT_THAT(log, HasSubstr("[INFO][CLI_LOG][CliCmdHandler,"));
    EXPECT_THAT(log, HasSubstr("Start exec cmd:summary.\n"));
    EXPECT_EQ(log.find("[DEBUG]") != std::string::npos, GetParam());
    EXPECT_EQ(log.find("SummaryInfo:") != std::string::npos, GetParam());
    std::filesystem::remove_all(folder);
}

INSTANTIATE_TEST_SUITE_P(Verbose, ManagementLogTest, ::testing::Bool());

TEST_F(CorvanedTest, TellsItsVersion)
{
    ChildProcess corvaned({CORVANED_PATH, "--version"});

    EXPECT_EQ(corvaned.WaitForExit(), 0);

    EXPECT_THAT(corvaned.Output(), ::testing::MatchesRegex("corvaned [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_F(CorvanedTest, SaysThatItsHelpCannotBeWritten)
{
    for (const std::string option : {" -h", " --version"}) {
        ChildProcess corvaned({"/bin/sh", "-c", CORVANED_PATH + option + " >/dev/full"});

        EXPECT_EQ(corvaned.WaitForExit(), 1);

        EXPECT_EQ(corvaned.Errors(), "corvaned: standard output: No space left on device\n");
    }
}

using CombinedHostTest = StartTest;

TEST_F(CombinedHostTest, FindsThePrefixAndLogsToTheHost)
{
    InstallDiagnoseLibrary();
    ChildProcess host(Host());

    ASSERT_TRUE(host.WaitForOutput("result ")) << host.Errors();

    EXPECT_TRUE(host.WaitForOutput("mode 0\nprefix /tmp/prefix\nresult 0\n")) << host.Output();
    EXPECT_THAT(host.Output(), HasSubstr("folder /var/log/corvane_super/ /var/log/corvane_super/\nlog started\n"
                                         "log keeps 100\n"));
    EXPECT_THAT(host.Output(), HasSubstr("[INIT] DEBUG : Corvane step(InfraAdapter_VELMAR-Lite) initialize start.\n"
                                         "log 999 7 [INIT]Corvane step(InfraAdapter_VELMAR-Lite) initialize "
                                         "success.\n"))
        << "from the adapter step on, messages reach the host's log";
    EXPECT_THAT(host.Output(), HasSubstr("log 999 7 [INIT]Corvane step(CONFIG) initialize success.\n"));
    EXPECT_TRUE(std::filesystem::exists(kLockFile));
    EXPECT_FALSE(std::filesystem::exists("/var/log/corvane_super")) << "the host's own log was asked, not the other";

    host.CloseInput();
    EXPECT_EQ(host.WaitForExit(), 0);
}

TEST_F(CombinedHostTest, RunsBesideAnotherAndKeepsAnIndependentProcessOut)
{
    InstallDiagnoseLibrary();
    ChildProcess first(Host());
    ASSERT_TRUE(first.WaitForOutput("result 0\n")) << first.Output() << first.Errors();
    ChildProcess second(Host());
    ASSERT_TRUE(second.WaitForOutput("result 0\n")) << second.Output() << second.Errors();

    ChildProcess refused(Corvaned());
    EXPECT_EQ(refused.WaitForExit(), 3);
    EXPECT_THAT(refused.Errors(), HasSubstr("already running on the prefix /tmp/prefix"));

    first.CloseInput();
    EXPECT_EQ(first.WaitForExit(), 0);
    ChildProcess stillRefused(Corvaned());
    EXPECT_EQ(stillRefused.WaitForExit(), 3) << "one host is enough";

    second.CloseInput();
    EXPECT_EQ(second.WaitForExit(), 0);
    const NotifySocket manager;
    ChildProcess corvaned(Corvaned(), {manager.Environment()});
    EXPECT_THAT(manager.Receive(), HasSubstr("READY=1"));
    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
}

TEST_F(CombinedHostTest, IsKeptOutByAnIndependentProcess)
{
    InstallDiagnoseLibrary();
    const NotifySocket manager;
    ChildProcess corvaned(Corvaned(), {manager.Environment()});
    ASSERT_THAT(manager.Receive(), HasSubstr("READY=1"));

    ChildProcess host(Host());

    EXPECT_TRUE(host.WaitForOutput("result " + std::to_string(EAGAIN) + "\n")) << host.Output();
    EXPECT_THAT(host.Output(), HasSubstr("conflict with this process start mode(0)."));
    EXPECT_THAT(host.Output(), Not(HasSubstr("folder "))) << "no step beyond the lock ran";

    host.CloseInput();
    EXPECT_EQ(host.WaitForExit(), 1);
    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
}
