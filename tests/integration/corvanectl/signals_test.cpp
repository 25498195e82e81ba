// A watch that is ended from outside: at any time, with status 0, and without half of a table.
#include "ctl_fixture.h"

#include <csignal>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "support/terminal.h"

using ::testing::HasSubstr;

namespace {

/** As a shell starts a job in the foreground, whoever has started the test. */
std::vector<std::string> Foreground(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"/usr/bin/env", "--default-signal=INT,TERM"});
    return arguments;
}

} // namespace

class SignalTest : public CtlTest, public ::testing::WithParamInterface<int> {};

TEST_P(SignalTest, EndsAWatchThatPrintsTables)
{
    Serve(FiveDisks());
    ChildProcess watch(Foreground(Client({"watch", "-i", "3600"})));
    ASSERT_TRUE(watch.WaitForOutput(" SN-D ")) << watch.Errors();

    watch.Signal(GetParam());

    EXPECT_EQ(watch.WaitForExit(), 0);
    EXPECT_THAT(watch.Output(), ::testing::EndsWith("0.00%\n\n"));
    EXPECT_EQ(watch.Errors(), "");
}

TEST_P(SignalTest, EndsAWatchThatPrintsJson)
{
    Serve(FiveDisks());
    ChildProcess watch(Foreground(Client({"watch", "--json", "-i", "3600"})));
    ASSERT_TRUE(watch.WaitForOutput("\n")) << watch.Errors();

    watch.Signal(GetParam());

    EXPECT_EQ(watch.WaitForExit(), 0);
}

TEST_P(SignalTest, EndsAWatchBeforeItsFirstTable)
{
    for (const char *form : {"--json", "--interval=1"}) {
        Serve({Reply::Kind::STALL, 0, ""});
        ChildProcess watch(Foreground(Client({"watch", form, "--timeout", "3600"})));
        ASSERT_TRUE(server_->WaitForRequests(1));

        watch.Signal(GetParam());

        EXPECT_EQ(watch.WaitForExit(), 0) << form;
        EXPECT_EQ(watch.Output() + watch.Errors(), "");
        server_.reset();
    }
}

TEST_P(SignalTest, EndsAWatchOnATerminalBeforeItsFirstTable)
{
    Serve({Reply::Kind::STALL, 0, ""});
    Terminal terminal(Foreground(Client({"watch", "--timeout", "3600"})), 80);
    ASSERT_TRUE(server_->WaitForRequests(1));

    if (GetParam() == SIGINT) {
        terminal.Type("\003");
    } else {
        ASSERT_EQ(kill(terminal.Pid(), GetParam()), 0);
    }

    EXPECT_EQ(terminal.WaitForExit(), 0);
    EXPECT_THAT(terminal.Rest(), ::testing::Not(HasSubstr("\033")));
}

INSTANTIATE_TEST_SUITE_P(Signals, SignalTest, ::testing::Values(SIGINT, SIGTERM),
                         [](const auto &test) { return test.param == SIGINT ? "Int" : "Term"; });

using WatchEndTest = CtlTest;

TEST_F(WatchEndTest, FromTheKeyboardDoesNotReachAJobInTheBackground)
{
    Serve(FiveDisks());
    std::vector<std::string> arguments = Client({"watch", "--json", "-i", "1"});
    arguments.insert(arguments.begin(), {"/usr/bin/env", "--default-signal=TERM", "--ignore-signal=INT"});
    ChildProcess watch(arguments);
    ASSERT_TRUE(watch.WaitForOutput("\n"));

    watch.Signal(SIGINT);

    const auto lines = [](const std::string &out) { return std::count(out.begin(), out.end(), '\n'); };
    const auto before = lines(watch.Output());
    EXPECT_TRUE(watch.WaitForOutput([&](const std::string &out) { return lines(out) > before; }));
    watch.Signal(SIGTERM);
    EXPECT_EQ(watch.WaitForExit(), 0);
}

/** Each write is one datagram, and so is all that a signal can come between. */
TEST_F(WatchEndTest, FindsEachRefreshWrittenInOnePiece)
{
    std::map<std::string, std::string> answers = FiveDisks();
    std::string &summary = answers["show summary"];
    const std::string last = "63      SN-E                                      \n";
    std::string more;
    for (int id = 64; id < 128; id++) { // of some kilobytes
        more += std::to_string(id) + "      A-SERIAL-NUMBER-THAT-TAKES-SOME-SPACE\n";
    }
    summary.insert(summary.find(last) + last.size(), more);
    Serve(answers);
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    const UniqueFd reader(ends[0]);
    UniqueFd writer(ends[1]);
    const std::vector<std::string> words = Client({"watch", "--json", "-n", "2", "-i", "1"});
    std::vector<char *> argv;
    for (const std::string &word : words) {
        argv.push_back(const_cast<char *>(word.c_str()));
    }
    argv.push_back(nullptr);

    const pid_t pid = fork();
    if (pid == 0) {
        (void)dup2(writer.Get(), STDOUT_FILENO);
        (void)execv(argv[0], argv.data());
        _exit(127);
    }
    writer.Reset();

    std::vector<std::string> pieces;
    std::string piece(1 << 20, '\0');
    for (ssize_t count = 0; (count = recv(reader.Get(), piece.data(), piece.size(), 0)) > 0;) {
        pieces.push_back(piece.substr(0, static_cast<size_t>(count)));
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
    ASSERT_EQ(pieces.size(), 2u);
    for (const std::string &line : pieces) {
        EXPECT_GT(line.size(), 8192u);
        EXPECT_EQ(line.back(), '\n');
    }
}
