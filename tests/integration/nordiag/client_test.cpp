// One command at a time, and the list.
#include "nordiag_fixture.h"

#include <csignal>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

constexpr const char *kListHead = "PROCESS  NAME                     USER             STATE\n";

} // namespace

using NordiagListTest = NordiagTest;

TEST_F(NordiagListTest, ShowsNumberNameUserAndState)
{
    StartHost({"storage", "second"});

    const Finished list = Nordiag({"list"});

    EXPECT_EQ(list.exitCode, 0);
    EXPECT_THAT(list.out, StartsWith(kListHead));
    EXPECT_THAT(list.out, HasSubstr(HostNumber() + std::string(9 - HostNumber().size(), ' ') +
                                    "storage                  " + (geteuid() == 0 ? "root             ready\n" : "")));
    EXPECT_THAT(list.out, HasSubstr("4000002  second "));
}

TEST_F(NordiagListTest, IsEmptyWithoutProcesses)
{
    const Finished list = Nordiag({"list"});

    EXPECT_EQ(list.exitCode, 0);
    EXPECT_EQ(list.out, kListHead);
    EXPECT_EQ(list.err, "");
}

TEST_F(NordiagListTest, SaysWhoIsBusyAndWhoDoesNotAnswer)
{
    StartHost();
    ChildProcess running({NORDIAG_PATH, "storage", "disk", "hang"});
    ASSERT_TRUE(running.WaitForOutput("hanging"));
    EXPECT_THAT(Nordiag({"list"}).out, HasSubstr(" busy\n"));

    host_->Signal(SIGSTOP);
    const Finished list = Nordiag({"list"});
    host_->Signal(SIGCONT);

    EXPECT_EQ(list.exitCode, 0);
    EXPECT_THAT(list.out, HasSubstr(" silent\n"));
}

TEST_F(NordiagListTest, EndedProcessesGoAndTheirSocketsToo)
{
    StartHost();
    host_->Signal(SIGKILL);
    ASSERT_EQ(host_->WaitForExit(), 128 + SIGKILL);
    ASSERT_FALSE(std::filesystem::is_empty(Sockets()));

    EXPECT_EQ(Nordiag({"list"}).out, kListHead);

    EXPECT_TRUE(std::filesystem::is_empty(Sockets()));
}

TEST_F(NordiagListTest, SaysWhyAProcessCannotBeAsked)
{
    ASSERT_TRUE(std::filesystem::create_directory(Sockets()));
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (void)(Sockets() + "/77.strange").copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    ChildProcess list({NORDIAG_PATH, "list"});
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ASSERT_EQ(send(client, "SSH-2.0-x", 9, MSG_NOSIGNAL), 9);

    EXPECT_EQ(list.WaitForExit(), 0);

    EXPECT_THAT(list.Output(), HasSubstr("another protocol"));
    (void)close(client);
    (void)close(listener);
}

using NordiagRunTest = NordiagTest;

TEST_F(NordiagRunTest, FindsTheProcessByNameAndByNumber)
{
    StartHost();

    for (const std::string &process : {std::string("storage"), HostNumber()}) {
        const Finished run = Nordiag({process, "disk", "list"});
        EXPECT_EQ(run.exitCode, 0) << process;
        EXPECT_EQ(run.out, "sda\nsdb\n");
        EXPECT_EQ(run.err, "");
    }
}

TEST_F(NordiagRunTest, WordsArriveAsTheyAreOptionsIncluded)
{
    StartHost();

    EXPECT_EQ(Nordiag({"storage", "disk", "words", "two words", "", "--help", "-V"}).out,
              "[two words][][--help][-V]\n");
}

TEST_F(NordiagRunTest, TellsWhatTheCommandReturned)
{
    StartHost();

    const Finished failed = Nordiag({"storage", "disk", "fail", "-3"});

    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_EQ(failed.err, "nordiag: the command returned -3\n");
    EXPECT_EQ(Nordiag({"storage", "disk", "fail", "0"}).exitCode, 0);
    EXPECT_THAT(Nordiag({"storage", "disk", "nonsense"}).out,
                StartsWith("Unknown command!\nUsage: <group> <command> [arguments]\n  disk "));
}

TEST_F(NordiagRunTest, AnUnknownProcessIsAnError)
{
    StartHost();

    for (const char *process : {"nobody", "1", "stor", ""}) {
        const Finished run = Nordiag({process, "disk", "list"});
        EXPECT_EQ(run.exitCode, 3) << process;
        EXPECT_THAT(run.err, HasSubstr("nordiag: no diagnosed process " + std::string(process) + "; 'nordiag list'"));
    }
}

TEST_F(NordiagRunTest, ANameOfSeveralProcessesIsAnError)
{
    StartHost({"storage", "storage"});

    const Finished run = Nordiag({"storage", "disk", "list"});

    EXPECT_EQ(run.exitCode, 3);
    EXPECT_THAT(run.err, HasSubstr("2 processes are called storage; name one of them by its number: "));
    EXPECT_THAT(run.err, AllOf(HasSubstr(HostNumber()), HasSubstr("4000002")));
    EXPECT_EQ(Nordiag({HostNumber(), "disk", "list"}).exitCode, 0);
}

TEST_F(NordiagRunTest, ANameOfDigitsIsFoundIfNoProcessHasThatNumber)
{
    StartHost({"storage", "12"});

    EXPECT_EQ(Nordiag({"12", "disk", "list"}).out, "sda\nsdb\n");
}

TEST_F(NordiagRunTest, AnUnknownGroupIsAnError)
{
    StartHost();

    const Finished run = Nordiag({"storage", "dis", "list"});

    EXPECT_EQ(run.exitCode, 5);
    EXPECT_EQ(run.err, "nordiag: storage (" + HostNumber() + ") has no command group dis; help lists those it has\n");
}

TEST_F(NordiagRunTest, AProcessThatEndsMeanwhileIsAnError)
{
    StartHost();

    const Finished run = Nordiag({"storage", "disk", "die"});

    EXPECT_EQ(run.exitCode, 4);
    EXPECT_EQ(run.err,
              "nordiag: storage (" + HostNumber() + "): the connection ended before the answer was complete\n");
}

TEST_F(NordiagRunTest, CtrlCAbandonsTheCommand)
{
    StartHost();
    ChildProcess client({NORDIAG_PATH, "storage", "disk", "hang"});
    ASSERT_TRUE(client.WaitForOutput("hanging"));

    client.Signal(SIGINT);

    EXPECT_EQ(client.WaitForExit(), 130);
    EXPECT_THAT(client.Errors(), HasSubstr("abandoned; the command runs on in storage"));
    EXPECT_TRUE(host_->WaitForOutput("left\n"));
}

TEST_F(NordiagRunTest, ASlowReaderHoldsTheProcessNotUp)
{
    StartHost();
    ChildProcess reader({"/bin/sh", "-c",
                         NORDIAG_PATH " storage disk much | { read first; echo $first; read wait </dev/fd/9; wc -l; }"
                                      " 9<&0"});

    ASSERT_TRUE(reader.WaitForOutput("mmm"));

    EXPECT_TRUE(host_->WaitForOutput("printed\n")); // two megabytes, of which the pipe took 64 KiB
}

TEST_F(NordiagRunTest, AReaderThatLeavesEndsTheClient)
{
    StartHost();

    EXPECT_EQ(Sh(NORDIAG_PATH " storage disk much | head -n1 | wc -l").out, "1\n");
}

TEST_F(NordiagRunTest, MuchOutputArrivesWhole)
{
    StartHost();

    EXPECT_EQ(Sh(NORDIAG_PATH " storage disk much | wc -c").out, "2000000\n");
}

TEST_F(NordiagRunTest, HelpListsGroupsAndShowsOne)
{
    StartHost();

    EXPECT_EQ(Nordiag({"storage", "help"}).out, "  disk                what the disks do\n"
                                                "  dish                quiet, without help\n");
    EXPECT_THAT(Nordiag({"storage", "help", "disk"}).out, StartsWith("\tdisk list\t:does it\n"));
    const Finished without = Nordiag({"storage", "help", "dish"});
    EXPECT_EQ(without.exitCode, 5);
    EXPECT_EQ(without.err, "nordiag: the command group dish has no help\n");
    EXPECT_EQ(Nordiag({"storage", "help", "nothing"}).exitCode, 5);
    EXPECT_EQ(Nordiag({"storage", "help", "disk", "list"}).exitCode, 2);
}

TEST_F(NordiagRunTest, ManyClientsAtOnceGetTheirOwnAnswers)
{
    StartHost();
    std::vector<std::unique_ptr<ChildProcess>> clients;
    for (int i = 0; i < 12; i++) {
        clients.push_back(std::make_unique<ChildProcess>(
            std::vector<std::string>{NORDIAG_PATH, "storage", "disk", "words", std::to_string(i)}));
    }

    for (int i = 0; i < 12; i++) {
        EXPECT_EQ(clients[static_cast<size_t>(i)]->WaitForExit(), 0);
        EXPECT_EQ(clients[static_cast<size_t>(i)]->Output(), "[" + std::to_string(i) + "]\n");
    }
}

using NordiagOptionsTest = NordiagTest;

TEST_F(NordiagOptionsTest, HelpAndVersion)
{
    EXPECT_THAT(Nordiag({"--help"}).out, StartsWith("Usage: nordiag list\n"));
    EXPECT_EQ(Nordiag({"-h"}).exitCode, 0);
    EXPECT_THAT(Nordiag({"--version"}).out, StartsWith("nordiag 0."));
    EXPECT_EQ(Nordiag({"-V"}).exitCode, 0);
}

TEST_F(NordiagOptionsTest, WrongCommandLines)
{
    const std::vector<std::string> many(65, "w");
    std::vector<std::string> tooMany = {"storage"};
    tooMany.insert(tooMany.end(), many.begin(), many.end());
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "nordiag: no process is named; 'nordiag list' shows those there are, see nordiag --help\n"},
        {{"--nonsense"}, "nordiag: unknown option --nonsense; see nordiag --help\n"},
        {{"-x"}, "nordiag: unknown option -x; see nordiag --help\n"},
        {{"list", "more"}, "nordiag: list takes no arguments; see nordiag --help\n"},
        {tooMany, "nordiag: the command is too long; it may have 64 words and 16384 characters\n"},
        {{"storage", "disk", std::string(16384, 'l')},
         "nordiag: the command is too long; it may have 64 words and 16384 characters\n"},
    };
    for (const auto &[words, error] : cases) {
        const Finished run = Nordiag(words);
        EXPECT_EQ(run.exitCode, 2) << error;
        EXPECT_EQ(run.err, error);
        EXPECT_EQ(run.out, "");
    }
}
