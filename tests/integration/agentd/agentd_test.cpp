#include "agentd_fixture.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <vector>

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

TEST_F(ServingAgentdTest, SocketIsForRootAndTheGroup)
{
    struct stat status = {};
    ASSERT_EQ(stat(kSocket, &status), 0);

    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777, 0660u);
    EXPECT_EQ(status.st_uid, 0u);
    EXPECT_EQ(status.st_gid, 64901u);
}

TEST_F(ServingAgentdTest, LogsToAFileForRootAlone)
{
    struct stat status = {};
    ASSERT_EQ(stat("/var/log/corvane_super/corvane.os.log", &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(status.st_uid, 0u);
    EXPECT_EQ(status.st_gid, 0u);
    ASSERT_EQ(stat("/var/log/corvane_super", &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0750u);
    ASSERT_EQ(stat("/var/log/corvane_super/bak_os", &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0750u);
}

TEST_F(ServingAgentdTest, LinesAreInTheFileAtOnceAndOnTheConsoleToo)
{
    EXPECT_THAT(AskFor("dca_get_disks_iostat", R"({"devices":["sdzy"],"period":"20"})"), HasSubstr("SATA-X1"));

    ASSERT_TRUE(Agent().WaitForOutput("serving /tmp/dcak.sock"));
    const std::string log = ReadFile("/var/log/corvane_super/corvane.os.log");
    EXPECT_THAT(log,
                MatchesRegex("(.|\n)*\\[AGENTD    \\]\\[[0-9]+\\] EVENT \\[agent_log.cpp [0-9]+ NoteInAgentLog\\] : "
                             "serving /tmp/dcak.sock, version [0-9.]+\n"));
    EXPECT_THAT(log, Not(HasSubstr(" DEBUG "))) << "the course of requests is for --verbose";
}

TEST_F(ServingAgentdTest, TellsAWatchdogThatItServes)
{
    TearDown();
    const NotifySocket manager;
    ChildProcess agent({AGENTD_PATH}, {manager.Environment(), Path(), "WATCHDOG_USEC=200000"});

    EXPECT_EQ(manager.Receive(), "READY=1\nSTATUS=Serving");
    EXPECT_EQ(manager.Receive(), "WATCHDOG=1");
    EXPECT_EQ(manager.Receive(), "WATCHDOG=1");

    agent.Signal(SIGTERM);
    EXPECT_EQ(agent.WaitForExit(), 0);
    SetUp();
}

/** Whether a thread of the process waits in accept4, which has its descriptor already. */
static bool WaitsForClients(pid_t pid)
{
    for (const auto &task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::ifstream in(task.path() / "syscall");
        long number = -1;
        if (in >> number && number == SYS_accept4) {
            return true;
        }
    }
    return false;
}

TEST_F(ServingAgentdTest, IsAliveWithoutADescriptorForTheLook)
{
    TearDown();
    const NotifySocket manager;
    ChildProcess agent({AGENTD_PATH}, {manager.Environment(), Path(), "WATCHDOG_USEC=4000000"});
    ASSERT_EQ(manager.Receive(), "READY=1\nSTATUS=Serving");
    struct rlimit before = {};
    ASSERT_EQ(prlimit(agent.Pid(), RLIMIT_NOFILE, nullptr, &before), 0);
    const struct rlimit none = {0, before.rlim_max};
    // A look is over, and its connection taken: the next one comes in two seconds.
    ASSERT_EQ(manager.Receive(), "WATCHDOG=1");
    for (int i = 0; i < 6000 && !WaitsForClients(agent.Pid()); i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_EQ(prlimit(agent.Pid(), RLIMIT_NOFILE, &none, nullptr), 0);

    EXPECT_EQ(manager.Receive(), "WATCHDOG=1");
    EXPECT_EQ(manager.Receive(), "WATCHDOG=1");

    EXPECT_TRUE(agent.Running());
    ASSERT_EQ(prlimit(agent.Pid(), RLIMIT_NOFILE, &before, nullptr), 0);
    EXPECT_EQ(Ask(R"({"id":7})"), kNoDisks);
    agent.Signal(SIGTERM);
    EXPECT_EQ(agent.WaitForExit(), 0);
    SetUp();
}

class AgentdSignalTest : public ServingAgentdTest, public ::testing::WithParamInterface<int> {
protected:
    void TearDown() override {}
};

TEST_P(AgentdSignalTest, EndsCleanlyAndRemovesItsSocket)
{
    ASSERT_TRUE(std::filesystem::exists(kSocket));

    Agent().Signal(GetParam());

    EXPECT_THAT(Manager().Receive(), HasSubstr("STOPPING=1"));
    EXPECT_EQ(Agent().WaitForExit(), 0);
    EXPECT_EQ(Agent().Errors(), "");
    EXPECT_FALSE(std::filesystem::exists(kSocket));
    EXPECT_EQ(Client().Error(), ENOENT);
}

INSTANTIATE_TEST_SUITE_P(Signals, AgentdSignalTest, ::testing::Values(SIGTERM, SIGINT));

TEST_F(ServingAgentdTest, LeavesTheSocketOfAnotherInPlace)
{
    ASSERT_TRUE(std::filesystem::remove(kSocket));
    WriteFile(kSocket, "another's");

    TearDown();

    EXPECT_EQ(ReadFile(kSocket), "another's");
}

TEST_F(ServingAgentdTest, IsNotStartedTwice)
{
    ChildProcess second({AGENTD_PATH}, {Path()});

    EXPECT_EQ(second.WaitForExit(), 3);

    EXPECT_EQ(second.Errors(), "corvane-agentd: /tmp/dcak.sock is served already by process " +
                                   std::to_string(Agent().Pid()) + "; stop that process first\n");
    EXPECT_EQ(Ask(R"({"id":7})"), kNoDisks) << "the first is not disturbed";
}

TEST_F(ServingAgentdTest, StartsAgainAfterAKill)
{
    Agent().Signal(SIGKILL);
    ASSERT_EQ(Agent().WaitForExit(), 128 + SIGKILL);
    ASSERT_TRUE(std::filesystem::exists(kSocket));

    SetUp();

    EXPECT_EQ(Ask(R"({"id":7})"), kNoDisks);
}

/** Without an agent at first. */
class AgentdStartTest : public AgentdTest {
protected:
    ~AgentdStartTest() override
    {
        if (groupCovered_) {
            (void)umount("/etc/group");
        }
    }
    void RemoveGroup()
    {
        WriteFile("/mnt/no-group", "root:x:0:\n");
        ASSERT_EQ(mount("/mnt/no-group", "/etc/group", nullptr, MS_BIND, nullptr), 0);
        groupCovered_ = true;
    }

private:
    bool groupCovered_ = false;
};

TEST_F(AgentdStartTest, SaysThatTheGroupIsMissing)
{
    RemoveGroup();
    ChildProcess agent({AGENTD_PATH}, {Path()});

    EXPECT_EQ(agent.WaitForExit(), 5);

    EXPECT_EQ(agent.Errors(), "corvane-agentd: the group corvane_group is missing: groupadd --system corvane_group\n");
    EXPECT_EQ(Client().Error(), ENOENT) << "clients fail at once";
}

TEST_F(AgentdStartTest, SaysThatItCannotLookForAnother)
{
    WriteFile(kSocket, "another's");
    ChildProcess agent({NO_SOCKETS_AGENTD_PATH}, {Path()});

    EXPECT_EQ(agent.WaitForExit(), 1);

    EXPECT_EQ(agent.Errors(), "corvane-agentd: cannot look whether /tmp/dcak.sock is served already: no socket: Too "
                              "many open files\n");
    EXPECT_EQ(ReadFile(kSocket), "another's");
}

TEST_F(AgentdStartTest, SaysThatLsblkIsTooOld)
{
    InstallLsblk("2.23.1");
    ChildProcess agent({AGENTD_PATH}, {Path()});

    EXPECT_EQ(agent.WaitForExit(), 6);

    EXPECT_THAT(agent.Errors(),
                EndsWith("corvane-agentd: lsblk is 2.23.1, 2.23.2 or later is needed: upgrade util-linux\n"));
    EXPECT_EQ(Client().Error(), ENOENT);
}

TEST_F(AgentdStartTest, SaysThatLsblkIsMissing)
{
    ChildProcess agent({AGENTD_PATH}, {"PATH=/tmp/no-tools"});

    EXPECT_EQ(agent.WaitForExit(), 6);

    EXPECT_THAT(agent.Errors(),
                EndsWith("corvane-agentd: lsblk is missing or does not tell its version: install util-linux\n"));
}

TEST_F(AgentdStartTest, VerboseKeepsTheCourseOfRequests)
{
    const NotifySocket manager;
    ChildProcess agent({AGENTD_PATH, "--verbose"}, {manager.Environment(), Path()});
    ASSERT_EQ(manager.Receive(), "READY=1\nSTATUS=Serving");

    EXPECT_THAT(AskFor("dca_get_disks_iostat", R"({"devices":["sdzy"],"period":"20"})"), HasSubstr("SATA-X1"));

    EXPECT_TRUE(agent.WaitForOutput(" DEBUG "));
    EXPECT_THAT(ReadFile("/var/log/corvane_super/corvane.os.log"), HasSubstr(" DEBUG "));
    agent.Signal(SIGTERM);
    EXPECT_EQ(agent.WaitForExit(), 0);
}

TEST_F(AgentdStartTest, ARotatedLogIsBackedUpAndItsStreamClosed)
{
    const std::string folder = "/var/log/corvane_super";
    const std::string backups = folder + "/bak_os";
    std::filesystem::remove_all(folder);
    const NotifySocket manager;
    // To nowhere: this test does not read what an agent says.
    ChildProcess agent({"/bin/sh", "-c", "exec " AGENTD_PATH " >/dev/null 2>&1"}, {manager.Environment(), Path()});
    ASSERT_EQ(manager.Receive(), "READY=1\nSTATUS=Serving");
    const std::string garbage(3000, 'x'); // is repeated in the log
    const auto inFolder = [&backups] {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(backups)) {
            names.push_back(entry.path().extension());
        }
        return names;
    };

    for (size_t expected = 1; expected <= 2; expected++) {
        const std::vector<std::string> packed(expected, ".gz");
        for (int i = 0; i < 6000 && inFolder() != packed; i++) {
            EXPECT_EQ(Ask(garbage), "");
        }
        EXPECT_EQ(inFolder(), packed);
    }

    std::vector<std::string> open;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/" + std::to_string(agent.Pid()) + "/fd")) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(entry.path(), gone);
        if (target.rfind(folder, 0) == 0) {
            open.push_back(target);
        }
    }
    EXPECT_THAT(open, ::testing::ElementsAre(folder + "/corvane.os.log"));
    agent.Signal(SIGTERM);
    EXPECT_EQ(agent.WaitForExit(), 0);
}

/** With a log of its own file system, whose inodes are counted. */
class AgentdLogTest : public AgentdTest {
protected:
    void SetUp() override
    {
        AgentdTest::SetUp();
        std::filesystem::remove_all(kFolder);
        std::filesystem::create_directories(kFolder);
        ASSERT_EQ(mount("tmpfs", kFolder.c_str(), "tmpfs", 0, "mode=0750"), 0);
        mounted_ = true;
        // To files: what an agent says of its log is read there.
        agent_ = std::make_unique<ChildProcess>(
            std::vector<std::string>{"/bin/sh", "-c", "exec " AGENTD_PATH " >/dev/null 2>" + kErrors},
            std::vector<std::string>{manager_.Environment(), Path()});
        ASSERT_EQ(manager_.Receive(), "READY=1\nSTATUS=Serving");
    }
    void TearDown() override
    {
        if (agent_ != nullptr) {
            agent_->Signal(SIGTERM);
            EXPECT_EQ(agent_->WaitForExit(), 0);
        }
        if (mounted_) {
            EXPECT_EQ(umount2(kFolder.c_str(), MNT_DETACH), 0);
        }
    }

    static void AllowInodes(const char *count)
    {
        ASSERT_EQ(mount("tmpfs", kFolder.c_str(), "tmpfs", MS_REMOUNT, (std::string("nr_inodes=") + count).c_str()), 0);
    }
    /** Requests that are repeated in the log, until it holds. @return whether it came to hold. */
    static bool LogUntil(const std::function<bool()> &holds)
    {
        const std::string garbage(3000, 'x');
        for (int i = 0; i < 6000 && !holds(); i++) {
            EXPECT_EQ(Ask(garbage), "");
        }
        return holds();
    }
    static size_t Backups()
    {
        size_t count = 0;
        for (const auto &entry : std::filesystem::directory_iterator(kFolder + "/bak_os")) {
            count += entry.path().extension() == ".gz" ? 1 : 0;
        }
        return count;
    }
    /** How often the agent has said this on standard error. */
    static size_t Said(const std::string &text)
    {
        const std::string errors = ReadFile(kErrors);
        size_t count = 0;
        for (size_t at = errors.find(text); at != std::string::npos; at = errors.find(text, at + 1)) {
            count++;
        }
        return count;
    }

    static inline const std::string kFolder = "/var/log/corvane_super";
    static inline const std::string kLog = kFolder + "/corvane.os.log";
    static inline const std::string kAside = kLog + ".bak";
    static inline const std::string kErrors = "/tmp/agent-errors";

private:
    bool mounted_ = false;
    NotifySocket manager_;
    std::unique_ptr<ChildProcess> agent_;
};

TEST_F(AgentdLogTest, ARotationWithoutANewFileIsMadeGood)
{
    AllowInodes("3"); // as many as there are: the folder, the one of the backups, the file

    ASSERT_TRUE(LogUntil([] { return std::filesystem::exists(kAside); }));
    EXPECT_FALSE(std::filesystem::exists(kLog));
    const auto before = std::filesystem::file_size(kAside);
    for (int i = 0; i < 20; i++) {
        EXPECT_EQ(Ask(std::string(3000, 'x')), "");
    }
    EXPECT_GT(std::filesystem::file_size(kAside), before + 20U * 3000U) << "no line is lost";
    EXPECT_EQ(Said("can't create log file"), 1U);
    EXPECT_EQ(Said("can't open log file"), 1U);
    EXPECT_EQ(Said("can't rename log file"), 0U);

    AllowInodes("100");
    EXPECT_TRUE(LogUntil([] { return Backups() == 1; }));
    EXPECT_THAT(ReadFile(kLog), HasSubstr("the log file was missing and begins anew"));
    EXPECT_FALSE(std::filesystem::exists(kAside));
    struct stat status = {};
    ASSERT_EQ(stat(kLog.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);

    EXPECT_TRUE(LogUntil([] { return Backups() == 2; })) << "and rotation goes on";
    EXPECT_EQ(Said("can't"), 2U);
}

TEST_F(AgentdLogTest, AFileThatWasRemovedIsMadeAnew)
{
    ASSERT_TRUE(std::filesystem::remove(kLog));

    EXPECT_TRUE(LogUntil([] { return std::filesystem::exists(kLog); }));

    EXPECT_THAT(ReadFile(kLog), HasSubstr("the log file was missing and begins anew"));
    EXPECT_EQ(Said("LOGBAK"), 0U) << "there is no piece to back up";
    EXPECT_TRUE(LogUntil([] { return Backups() == 1; }));
}

TEST_F(AgentdStartTest, ServesWithoutALogFile)
{
    std::filesystem::remove_all("/var/log/corvane_super");
    WriteFile("/var/log/corvane_super", "no folder");
    const NotifySocket manager;
    ChildProcess agent({AGENTD_PATH}, {manager.Environment(), Path()});

    EXPECT_EQ(manager.Receive(), "READY=1\nSTATUS=Serving");

    EXPECT_TRUE(agent.WaitForOutput("serving /tmp/dcak.sock"));
    agent.Signal(SIGTERM);
    EXPECT_EQ(agent.WaitForExit(), 0);
    EXPECT_THAT(agent.Errors(), HasSubstr("no log file in /var/log/corvane_super/; logging to standard output"));
    std::filesystem::remove("/var/log/corvane_super");
}

TEST_F(AgentdStartTest, SaysThatItNeedsRoot)
{
    // A copy, since the build folder need not be open to others.
    std::filesystem::remove_all("/tmp/copy");
    std::filesystem::create_directories("/tmp/copy/bin");
    std::filesystem::copy(CORVANE_LIB_DIR, "/tmp/copy/lib", std::filesystem::copy_options::recursive);
    std::filesystem::copy_file(AGENTD_PATH, "/tmp/copy/bin/corvane-agentd");
    ChildProcess agent({"/usr/bin/setpriv", "--reuid=65534", "--clear-groups", "/tmp/copy/bin/corvane-agentd"},
                       {Path(), "LD_LIBRARY_PATH=/tmp/copy/lib"});

    EXPECT_EQ(agent.WaitForExit(), 4);

    EXPECT_EQ(agent.Errors(), "corvane-agentd: must run as root: it sends SCSI and ATA commands to the disks\n");
}

struct UsageCase {
    const char *name;
    const char *argument;
    int exitCode;
    const char *output;
    const char *errors;
};

class AgentdUsageTest : public AgentdTest, public ::testing::WithParamInterface<UsageCase> {};

TEST_P(AgentdUsageTest, CommandLine)
{
    ChildProcess agent({AGENTD_PATH, GetParam().argument}, {Path()});

    EXPECT_EQ(agent.WaitForExit(), GetParam().exitCode);

    EXPECT_THAT(agent.Output(), MatchesRegex(GetParam().output));
    EXPECT_EQ(agent.Errors(), GetParam().errors);
    EXPECT_FALSE(std::filesystem::exists(kSocket));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, AgentdUsageTest,
    ::testing::Values(
        UsageCase{"Help", "--help", 0, "Usage: corvane-agentd .--verbose.\n(.|\n)*5 the group corvane_group(.|\n)*",
                  ""},
        UsageCase{"Version", "--version", 0, "corvane-agentd [0-9]+\\.[0-9]+\\.[0-9]+\n", ""},
        UsageCase{"Option", "--frobnicate", 2, "",
                  "corvane-agentd: unknown option --frobnicate; see corvane-agentd --help\n"},
        UsageCase{"Letters", "-vxh", 2, "", "corvane-agentd: unknown option -x; see corvane-agentd --help\n"},
        UsageCase{"Value", "--verbose=3", 2, "",
                  "corvane-agentd: unknown option --verbose=3; see corvane-agentd --help\n"},
        UsageCase{"Argument", "now", 2, "", "corvane-agentd: unexpected argument now; see corvane-agentd --help\n"}),
    [](const auto &test) { return test.param.name; });

TEST_F(AgentdStartTest, SaysThatItsHelpCannotBeWritten)
{
    for (const std::string option : {" --help", " -V"}) {
        ChildProcess agent({"/bin/sh", "-c", AGENTD_PATH + option + " >/dev/full"}, {Path()});

        EXPECT_EQ(agent.WaitForExit(), 1);

        EXPECT_EQ(agent.Errors(), "corvane-agentd: standard output: No space left on device\n");
    }
}
