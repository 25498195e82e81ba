#include "agentd_fixture.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sys/mount.h>
#include <sys/stat.h>

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

TEST_F(ServingAgentdTest, SocketIsForRootAndTheGroup)
{
    struct stat status = {};
    ASSERT_EQ(stat(kSocket, &status), 0);

    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777, 0660u);
    EXPECT_EQ(status.st_uid, 0u);
    EXPECT_EQ(status.st_gid, 64901u);
    EXPECT_TRUE(std::filesystem::is_directory("/var/log/corvane/agentd"));
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

TEST_F(AgentdStartTest, SaysThatLsblkIsTooOld)
{
    InstallLsblk("2.23.1");
    ChildProcess agent({AGENTD_PATH}, {Path()});

    EXPECT_EQ(agent.WaitForExit(), 6);

    EXPECT_EQ(agent.Errors(), "corvane-agentd: lsblk is 2.23.1, 2.23.2 or later is needed: upgrade util-linux\n");
    EXPECT_EQ(Client().Error(), ENOENT);
}

TEST_F(AgentdStartTest, SaysThatLsblkIsMissing)
{
    ChildProcess agent({AGENTD_PATH}, {"PATH=/tmp/no-tools"});

    EXPECT_EQ(agent.WaitForExit(), 6);

    EXPECT_EQ(agent.Errors(), "corvane-agentd: lsblk is missing or does not tell its version: install util-linux\n");
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
        UsageCase{"Help", "--help", 0, "Usage: corvane-agentd\n(.|\n)*5 the group corvane_group(.|\n)*", ""},
        UsageCase{"Version", "--version", 0, "corvane-agentd [0-9]+\\.[0-9]+\\.[0-9]+\n", ""},
        UsageCase{"Option", "--frobnicate", 2, "",
                  "corvane-agentd: unknown option --frobnicate; see corvane-agentd --help\n"},
        UsageCase{"Argument", "now", 2, "", "corvane-agentd: unexpected argument now; see corvane-agentd --help\n"}),
    [](const auto &test) { return test.param.name; });
