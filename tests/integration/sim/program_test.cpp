// The program itself: options, sockets, start and end.
#include "sample_fleet.h"
#include "sim_process.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(ProgramTest, HelpNamesEveryOption)
{
    const Finished help = RunSim({"--help"});

    EXPECT_EQ(help.exitCode, 0);
    for (const char *option :
         {"--scenario", "--check", "--judge", "--record", "--control", "--send", "--dcak-socket", "--spdk-socket",
          "--no-dcak", "--no-spdk", "--ready-fd", "--duration", "--speed", "--help", "--version"}) {
        EXPECT_THAT(help.out, HasSubstr(option));
    }
    EXPECT_EQ(help.err, "");
}

TEST(ProgramTest, VersionIsShort)
{
    const Finished version = RunSim({"--version"});

    EXPECT_EQ(version.exitCode, 0);
    EXPECT_THAT(version.out, testing::MatchesRegex("corvane-sim [0-9]+[.][0-9]+[.][0-9]+\n"));
}

class ProgramOutputTest : public SimTest, public testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(ProgramOutputTest, IsToldWhenItCannotBeWritten)
{
    std::vector<std::string> arguments = GetParam();
    if (arguments.front() == "--check") {
        arguments.insert(arguments.end(), {"--scenario", WriteFile("s.json", Sample())});
    }

    const Finished run = RunSim(arguments, "/dev/full");

    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "corvane-sim: standard output: No space left on device\n");
}

INSTANTIATE_TEST_SUITE_P(Texts, ProgramOutputTest,
                         testing::Values(std::vector<std::string>{"--help"}, std::vector<std::string>{"--version"},
                                         std::vector<std::string>{"--check"}));

struct WrongUse {
    std::vector<std::string> arguments;
    const char *error;
};

class ProgramUsageTest : public testing::TestWithParam<WrongUse> {};

TEST_P(ProgramUsageTest, IsToldWithExitCode2)
{
    const Finished run = RunSim(GetParam().arguments);

    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.err, HasSubstr(GetParam().error));
    EXPECT_THAT(run.err, HasSubstr("Try 'corvane-sim --help'."));
    EXPECT_EQ(run.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, ProgramUsageTest,
    testing::Values(WrongUse{{}, "--scenario : is missing"}, WrongUse{{"--nonsense"}, "nonsense"},
                    WrongUse{{"-s"}, "requires an argument"}, WrongUse{{"-s", "x", "y"}, "argument y: is not expected"},
                    WrongUse{{"-s", "x", "--duration", "0"}, "--duration 0: must be"},
                    WrongUse{{"-s", "x", "--duration", "3s"}, "--duration 3s: must be"},
                    WrongUse{{"-s", "x", "--speed", "-1"}, "--speed -1: must be"},
                    WrongUse{{"-s", "x", "--speed", "inf"}, "--speed inf: must be"},
                    WrongUse{{"-s", "x", "--ready-fd", "999"}, "--ready-fd 999: is no open descriptor"},
                    WrongUse{{"-s", "x", "--no-dcak", "--no-spdk"}, "leave nothing to serve"},
                    WrongUse{{"--send", "{}"}, "--send {}: needs --control"}));

class ProgramEndTest : public SimTest, public testing::WithParamInterface<int> {};

TEST_P(ProgramEndTest, SignalEndsItAndRemovesItsSockets)
{
    Start(Sample());
    const int open = Connect(Kernel());

    EXPECT_EQ(Stop(GetParam()), 0);

    close(open);
    EXPECT_FALSE(std::filesystem::exists(Kernel()));
    EXPECT_FALSE(std::filesystem::exists(Spdk()));
    EXPECT_FALSE(std::filesystem::exists(Folder() + "/control.sock"));
    EXPECT_EQ(Err(), "");
}

INSTANTIATE_TEST_SUITE_P(Signals, ProgramEndTest, testing::Values(SIGTERM, SIGINT));

TEST_F(SimTest, EndsByItselfAfterItsDuration)
{
    Start(Sample(), {"--duration", "0.05"});

    EXPECT_EQ(WaitForEnd(), 0);

    EXPECT_FALSE(std::filesystem::exists(Kernel()));
}

TEST_F(SimTest, OneAgentCanBeLeftOut)
{
    Start(Sample(), {"--no-dcak"});
    EXPECT_FALSE(std::filesystem::exists(Kernel()));
    EXPECT_TRUE(std::filesystem::exists(Spdk()));
    EXPECT_EQ(Stop(), 0);

    Start(Sample(), {"--no-spdk"});
    EXPECT_TRUE(std::filesystem::exists(Kernel()));
    EXPECT_FALSE(std::filesystem::exists(Spdk()));
}

TEST_F(SimTest, SocketsAreClosedToOthers)
{
    Start(Sample());

    struct stat status {};
    ASSERT_EQ(stat(Kernel().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0660U);
}

TEST_F(SimTest, ReadyGoesToADescriptorToo)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    Start(Sample(), {"--ready-fd", std::to_string(ends[1])});
    close(ends[1]);

    char text[16] = {};
    EXPECT_EQ(read(ends[0], text, sizeof(text)), 6);
    EXPECT_STREQ(text, "ready\n");
    EXPECT_EQ(read(ends[0], text, sizeof(text)), 0) << "and the descriptor is closed then";
    close(ends[0]);
}

TEST_F(SimTest, StaleSocketFileIsReplaced)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    Kernel().copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
    close(fd);

    Start(Sample());

    EXPECT_THAT(Ask(Kernel(), RequestOf("dca_get_disks_brief_info")), HasSubstr("SATA1"));
}

TEST_F(SimTest, SocketOfARunningProgramIsLeftAlone)
{
    Start(Sample());

    const Finished second = RunSim({"-s", WriteFile("s.json", Sample()), "--no-spdk", "--dcak-socket", Kernel()});

    EXPECT_EQ(second.exitCode, 1);
    EXPECT_EQ(second.err,
              "corvane-sim: " + Kernel() + ": is served by another program; stop that one or choose another path\n");
    EXPECT_THAT(Ask(Kernel(), RequestOf("dca_get_disks_brief_info")), HasSubstr("SATA1"));
}

TEST_F(SimTest, SocketFileOfASuccessorIsNotRemoved)
{
    Start(Sample());
    ASSERT_EQ(unlink(Kernel().c_str()), 0);
    std::ofstream(Kernel()) << "another file";

    EXPECT_EQ(Stop(), 0);

    EXPECT_TRUE(std::filesystem::exists(Kernel()));
    EXPECT_FALSE(std::filesystem::exists(Spdk()));
}

struct BadPath {
    std::string option;
    std::string path; // %s: the folder
    std::string error;
};

class ProgramPathTest : public SimTest, public testing::WithParamInterface<BadPath> {};

TEST_P(ProgramPathTest, IsToldWithExitCode1AndNothingIsLeft)
{
    std::string path = GetParam().path;
    if (path.rfind("%s", 0) == 0) {
        path.replace(0, 2, Folder());
    }
    WriteFile("plain", "text");
    std::vector<std::string> arguments = {"-s", WriteFile("s.json", Sample()), GetParam().option, path};
    if (GetParam().option != "--dcak-socket") {
        arguments.insert(arguments.end(), {"--dcak-socket", Kernel()});
    }
    arguments.insert(arguments.end(), {"--spdk-socket", Spdk()});

    const Finished run = RunSim(arguments);

    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, StartsWith("corvane-sim: " + path + ": " + GetParam().error));
    EXPECT_FALSE(std::filesystem::exists(Kernel()));
    EXPECT_FALSE(std::filesystem::exists(Spdk()));
}

INSTANTIATE_TEST_SUITE_P(
    Paths, ProgramPathTest,
    testing::Values(BadPath{"--dcak-socket", "%s/plain", "is there and is no socket"},
                    BadPath{"--dcak-socket", "%s/nosuch/x.sock", "cannot be served: No such file or directory"},
                    BadPath{"--dcak-socket", "/" + std::string(107, 'x'), "a socket path has 1 to 107 characters"},
                    BadPath{"--dcak-socket", "", "a socket path has 1 to 107 characters"},
                    BadPath{"--control", "%s/plain", "is there and is no socket"},
                    BadPath{"--record", "%s/nosuch/r.jsonl", "cannot be written: No such file or directory"}));

TEST_F(SimTest, SaysThatTheAnswerToAnEventCannotBeWritten)
{
    Start(Sample());

    const Finished sent =
        RunSim({"--control", Folder() + "/control.sock", "--send", R"({"do":"pull","disk":"nvme0"})"}, "/dev/full");

    EXPECT_EQ(sent.exitCode, 1);
    EXPECT_EQ(sent.err, "corvane-sim: standard output: No space left on device\n");
}

TEST_F(SimTest, SendsAnEventToARunningSimulation)
{
    Start(Sample());
    const std::string control = Folder() + "/control.sock";

    const Finished good = RunSim({"--control", control, "--send", "{\"do\":\"pull\",\n\"disk\":\"nvme0\"}"});
    const Finished refused = RunSim({"--control", control, "--send", R"({"do":"pull","disk":"nvme0"})"});
    const Finished nobody = RunSim({"--control", control + "x", "--send", R"({"do":"status"})"});

    EXPECT_EQ(good.out, "{\"ok\":true}\n") << good.err;
    EXPECT_EQ(good.exitCode, 0);
    EXPECT_THAT(refused.out, StartsWith(R"({"error":"disk nvme0 is out already)"));
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(nobody.err, StartsWith("corvane-sim: " + control + "x: cannot be reached: No such file or directory"));
    EXPECT_EQ(nobody.exitCode, 1);
}

TEST_F(SimTest, RecordThatCannotBeWrittenEndsTheRun)
{
    Start(Sample(), {"--record", "/dev/full"});

    (void)Ask(Kernel(), RequestOf("dca_get_disks_brief_info"));

    EXPECT_EQ(WaitForEnd(), 1);
    EXPECT_EQ(Err(), "corvane-sim: /dev/full: cannot be written any more: No space left on device\n");
    EXPECT_FALSE(std::filesystem::exists(Kernel()));
}

} // namespace
