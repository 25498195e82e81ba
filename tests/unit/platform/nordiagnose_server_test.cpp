// The agent over real sockets, in a folder of the test's own.

#include "platform/nordiagnose.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

#include "debug_shell_client.h"
#include "platform_test_support.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

namespace fs = std::filesystem;

namespace {

constexpr int kProcess = 100;
constexpr uid_t kNobody = 65534;

constexpr int kBadRequest = 1;
constexpr int kNotPermitted = 2;
constexpr int kBusy = 3;
constexpr int kNoSuchGroup = 4;
constexpr int kNoHelp = 5;

/** A command that stands still until the test lets it go. */
struct Gate {
    Event entered;
    Event open;
    std::atomic<bool> finished{false};
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::atomic<int> runs{0};
    std::atomic<int> printed{0};
};
Gate *g_gate = nullptr;
std::atomic<bool> g_signalsBlocked{false};
std::atomic<int> g_nestedStatus{-1};

int Echo(int argc, char **argv)
{
    for (int i = 0; i < argc; i++) {
        EXPECT_EQ(DBG_Print("[%s]", argv[i]), static_cast<int>(std::strlen(argv[i]) + 2));
    }
    EXPECT_EQ(argv[argc], nullptr);
    return argc;
}

/** Its client may be gone. */
int PrintToWhoever(int, char **)
{
    return DBG_Print("anybody") > 0 ? 0 : 1;
}

int Stand(int, char **)
{
    Gate &gate = *g_gate;
    gate.runs++;
    gate.most = std::max(gate.most.load(), ++gate.inside);
    gate.entered.Signal();
    EXPECT_TRUE(gate.open.Wait());
    gate.inside--;
    gate.printed = DBG_Print("stood");
    gate.finished = true;
    return 0;
}

int Flood(int, char **)
{
    const std::string block(65536, 'f');
    while (DBG_Print("%s", block.c_str()) > 0) {
    }
    return 0;
}

int Big(int, char **)
{
    const std::string text(1000000, 'b');
    return DBG_Print("%s", text.c_str()) == 1000000 ? 0 : 1;
}

int Everything(int, char **)
{
    (void)DBG_PrintBuf("%s", "piece,");
    (void)DBG_ShowUsageAndErrMsg("wrong %d", 7);
    return 0;
}

int PrintOnAThread(int, char **)
{
    std::thread([] { (void)DBG_Print("from a thread"); }).join();
    return DBG_Print("from the command") > 0 ? 0 : 1;
}

int LookAtSignals(int, char **)
{
    sigset_t mask;
    (void)pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    g_signalsBlocked = sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGUSR1) == 1;
    return 0;
}

int RemoveItself(int, char **argv)
{
    g_nestedStatus = DBG_UnRegCmd(argv[0]);
    return DBG_Print("removed") > 0 ? 0 : 1;
}

int RemoveTheGate(int, char **)
{
    g_nestedStatus = DBG_UnRegCmd("gate");
    return 0;
}

int DestroyAgent(int, char **)
{
    g_nestedStatus = DBG_DiagnoseAgentDestroy(kProcess);
    return 0;
}

void EchoHelp(const char *name, int verbose)
{
    (void)DBG_Print("SYNOPSIS\n\t%s list\n\t%s set [value]%s\n%s show:what there is\nprose stays\n  indented words\n"
                    "\t%s list again\n\t[option]\n",
                    name, name, verbose != 0 ? "\t:sets it" : "", name, name);
}

DBG_CmdInfo Command(const std::string &name, int (*exec)(int, char **), void (*help)(const char *, int) = nullptr)
{
    DBG_CmdInfo command{};
    (void)name.copy(command.name, sizeof(command.name) - 1);
    (void)("about " + name).copy(command.description, sizeof(command.description) - 1);
    command.exec = exec;
    command.help = help;
    return command;
}

size_t Threads()
{
    // The thread sanitizer's own thread begins with the first of the process.
    static const bool begun = (std::thread([] {}).join(), true);
    (void)begun;
    return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

/** A socket whose process has gone. */
void LeaveSocket(const std::string &path, int listening = -1)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (void)path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0) << path;
    if (listening >= 0) {
        ASSERT_EQ(listen(fd, 1), 0);
        ASSERT_EQ(dup2(fd, listening), listening);
    }
    (void)close(fd);
}

/** Connects to a listener that accepts nobody until there is no room. @return the connections */
std::vector<int> FillQueue(const std::string &path)
{
    std::vector<int> connections;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (void)path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    int status = 0;
    while (status == 0 && connections.size() < 100) {
        connections.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        status = connect(connections.back(), reinterpret_cast<sockaddr *>(&address), sizeof(address));
    }
    EXPECT_EQ(errno, EAGAIN);
    return connections;
}

/** Runs @p body in a child. @return its exit code, or -1 */
template <typename Body>
int InChild(Body body)
{
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    int status = 0;
    (void)waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool BecomeNobody()
{
    return setgroups(0, nullptr) == 0 && setresgid(kNobody, kNobody, kNobody) == 0 &&
           setresuid(kNobody, kNobody, kNobody) == 0;
}

} // namespace

class DebugShellTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_gate = &gate_;
        (void)setenv("NORDIAG_DIR", Folder().c_str(), 1);
    }
    void TearDown() override
    {
        if (started_) {
            EXPECT_EQ(DBG_DiagnoseAgentDestroy(kProcess), 0);
        }
        for (const std::string &name : registered_) {
            (void)DBG_UnRegCmd(name.c_str());
        }
        (void)unsetenv("NORDIAG_DIR");
    }

    [[nodiscard]] std::string Folder() const { return temp_.Path() + "/sockets"; }
    [[nodiscard]] std::string Socket() const { return Folder() + "/100.corvane"; }
    void Start()
    {
        ASSERT_EQ(DBG_DiagnoseAgentInit(kProcess, "corvane"), 0);
        started_ = true;
    }
    void Register(const std::string &name, int (*exec)(int, char **), void (*help)(const char *, int) = nullptr)
    {
        const DBG_CmdInfo command = Command(name, exec, help);
        ASSERT_EQ(DBG_RegCmd(&command), 0);
        registered_.push_back(name);
    }
    [[nodiscard]] DebugShellAnswer Ask(char type, const std::vector<std::string> &words = {}) const
    {
        return DebugShellClient(Socket()).Ask(type, words);
    }

    TempFolder temp_;
    Gate gate_;
    bool started_ = false;
    std::vector<std::string> registered_;
};

using DbgDiagnoseAgentSocketTest = DebugShellTest;

TEST_F(DbgDiagnoseAgentSocketTest, IsForTheOwnerAloneAndGoesWithTheAgent)
{
    struct stat folder {};
    struct stat socket {};
    const mode_t before = umask(0);
    Start();
    (void)umask(before);

    ASSERT_EQ(stat(Folder().c_str(), &folder), 0);
    ASSERT_EQ(stat(Socket().c_str(), &socket), 0);
    EXPECT_EQ(folder.st_mode, S_IFDIR | 0700u);
    EXPECT_EQ(socket.st_mode, S_IFSOCK | 0600u);

    started_ = false;
    EXPECT_EQ(DBG_DiagnoseAgentDestroy(kProcess), 0);
    EXPECT_TRUE(fs::is_empty(Folder()));
}

TEST_F(DbgDiagnoseAgentSocketTest, NameHoldsNothingThatAFileNameMustNot)
{
    ASSERT_EQ(DBG_DiagnoseAgentInit(7, "a/b c\033"), 0);
    ASSERT_EQ(DBG_DiagnoseAgentInit(8, "0123456789012345678901234567890123456789"), 0);

    EXPECT_TRUE(fs::exists(Folder() + "/7.a_b_c_"));
    EXPECT_TRUE(fs::exists(Folder() + "/8.0123456789012345678901234567890"));

    EXPECT_EQ(DBG_DiagnoseAgentDestroy(7), 0);
    EXPECT_EQ(DBG_DiagnoseAgentDestroy(8), 0);
}

TEST_F(DbgDiagnoseAgentSocketTest, EachProcessHasItsOwn)
{
    Register("echo", Echo);
    Start();
    ASSERT_EQ(DBG_DiagnoseAgentInit(101, "other"), 0);

    EXPECT_THAT(DebugShellClient(Folder() + "/101.other").Ask('S').words, ElementsAre("other", "101", "0"));
    EXPECT_EQ(DBG_DiagnoseAgentDestroy(101), 0);

    EXPECT_FALSE(fs::exists(Folder() + "/101.other"));
    EXPECT_THAT(Ask('S').words, ElementsAre("corvane", "100", "0"));
}

TEST_F(DbgDiagnoseAgentSocketTest, StaleOnesAreRemovedAndNothingElse)
{
    const int listener = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int overrun = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_TRUE(fs::create_directory(Folder()));
    fs::permissions(Folder(), fs::perms::owner_all);
    const pid_t ended = fork();
    if (ended == 0) {
        _exit(0);
    }
    (void)waitpid(ended, nullptr, 0);
    LeaveSocket(Folder() + "/5.gone");
    LeaveSocket(Folder() + "/100.corvane"); // an earlier process of the same number
    LeaveSocket(Folder() + "/6.alive", listener);
    LeaveSocket(Folder() + "/." + std::to_string(ended) + ".gone");
    LeaveSocket(Folder() + "/8.overrun", overrun);
    const std::vector<int> waiting = FillQueue(Folder() + "/8.overrun");
    LeaveSocket(Folder() + "/." + std::to_string(getpid()) + ".starts");
    LeaveSocket(Folder() + "/other");
    std::ofstream(Folder() + "/7.file") << "text";

    Start();

    EXPECT_FALSE(fs::exists(Folder() + "/5.gone"));
    EXPECT_FALSE(fs::exists(Folder() + "/." + std::to_string(ended) + ".gone"));
    EXPECT_TRUE(fs::exists(Folder() + "/6.alive"));
    EXPECT_TRUE(fs::exists(Folder() + "/8.overrun"));
    EXPECT_TRUE(fs::exists(Folder() + "/." + std::to_string(getpid()) + ".starts"));
    EXPECT_TRUE(fs::exists(Folder() + "/other"));
    EXPECT_TRUE(fs::exists(Folder() + "/7.file"));
    EXPECT_TRUE(Ask('S').complete);
    for (const int fd : waiting) {
        (void)close(fd);
    }
    (void)close(overrun);
    (void)close(listener);
}

TEST_F(DbgDiagnoseAgentSocketTest, AnotherProcesssFileStays)
{
    Start();
    ASSERT_EQ(unlink(Socket().c_str()), 0);
    LeaveSocket(Socket());

    started_ = false;
    EXPECT_EQ(DBG_DiagnoseAgentDestroy(kProcess), 0);

    EXPECT_TRUE(fs::exists(Socket()));
}

TEST_F(DbgDiagnoseAgentSocketTest, FailureIsToldOnceAndNoFailureOfTheAgent)
{
    ASSERT_TRUE(fs::create_directory(Folder()));
    fs::permissions(Folder(), static_cast<fs::perms>(0750));

    EXPECT_EXIT(
        {
            const bool good = DBG_DiagnoseAgentInit(1, "one") == 0 && DBG_DiagnoseAgentInit(2, "two") == 0 &&
                              DBG_DiagnoseAgentInit(1, "one") == EEXIST && DBG_DiagnoseAgentDestroy(1) == 0 &&
                              DBG_DiagnoseAgentDestroy(2) == 0 && DBG_DiagnoseAgentDestroy(1) == ENOENT;
            _exit(good && fs::is_empty(Folder()) ? 0 : 1);
        },
        ::testing::ExitedWithCode(0),
        MatchesRegex(
            "nordiagnose: no debug shell for this process: [^\n]*sockets: is open to other users; chmod 700 makes "
            "it fit\n"));
}

TEST_F(DbgDiagnoseAgentSocketTest, FolderMustBeOne)
{
    std::ofstream(Folder()) << "text";
    EXPECT_EXIT(_exit(DBG_DiagnoseAgentInit(1, "one")), ::testing::ExitedWithCode(0), "is no folder");
    ASSERT_TRUE(fs::remove(Folder()));

    fs::create_directory_symlink(temp_.Path(), Folder());
    EXPECT_EXIT(_exit(DBG_DiagnoseAgentInit(1, "one")), ::testing::ExitedWithCode(0), "is no folder");
    ASSERT_TRUE(fs::remove(Folder()));

    (void)setenv("NORDIAG_DIR", (temp_.Path() + "/no/where").c_str(), 1);
    EXPECT_EXIT(_exit(DBG_DiagnoseAgentInit(1, "one")), ::testing::ExitedWithCode(0), "No such file or directory");

    (void)setenv("NORDIAG_DIR", (temp_.Path() + "/" + std::string(100, 'l')).c_str(), 1);
    EXPECT_EXIT(_exit(DBG_DiagnoseAgentInit(1, "one")), ::testing::ExitedWithCode(0), "File name too long");

    // The folder's name fits, a socket's in it does not.
    const std::string long1 = temp_.Path() + "/" + std::string(100 - temp_.Path().size(), 'l');
    (void)setenv("NORDIAG_DIR", long1.c_str(), 1);
    EXPECT_EXIT(_exit(DBG_DiagnoseAgentInit(1, "one-name")), ::testing::ExitedWithCode(0), "File name too long");
}

TEST_F(DbgDiagnoseAgentSocketTest, FolderOfAnotherUserIsNotUsed)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    ASSERT_TRUE(fs::create_directory(Folder()));
    fs::permissions(Folder(), fs::perms::owner_all);
    ASSERT_EQ(chown(Folder().c_str(), kNobody, kNobody), 0);

    EXPECT_EXIT(_exit(DBG_DiagnoseAgentInit(1, "one")), ::testing::ExitedWithCode(0), "belongs to another user");
}

TEST_F(DbgDiagnoseAgentSocketTest, OtherUsersProcessesUseTheRuntimeFolderOrOneInTmp)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    fs::permissions(temp_.Path(), static_cast<fs::perms>(0711));
    const std::string runtime = temp_.Path() + "/runtime";
    ASSERT_TRUE(fs::create_directory(runtime));
    ASSERT_EQ(chown(runtime.c_str(), kNobody, kNobody), 0);
    (void)unsetenv("NORDIAG_DIR");
    const auto socketIsThere = [](const char *runtimeFolder, const std::string &path) {
        (void)setenv("XDG_RUNTIME_DIR", runtimeFolder, 1);
        const bool there = BecomeNobody() && DBG_DiagnoseAgentInit(kProcess, "corvane") == 0 && fs::exists(path);
        return there && DBG_DiagnoseAgentDestroy(kProcess) == 0 && !fs::exists(path);
    };

    EXPECT_EQ(InChild([&] { return socketIsThere(runtime.c_str(), runtime + "/nordiag/100.corvane") ? 0 : 1; }), 0);
    EXPECT_EQ(InChild([&] { return socketIsThere("relative", "/tmp/nordiag-65534/100.corvane") ? 0 : 1; }), 0);

    std::error_code ignored;
    fs::remove("/tmp/nordiag-65534", ignored);
}

using DebugShellRunTest = DebugShellTest;

TEST_F(DebugShellRunTest, GivesTheCommandItsWordsAndTheClientItsOutputAndResult)
{
    Register("echo", Echo);
    Start();

    const DebugShellAnswer answer = Ask('R', {"echo", "two words", "", "%s"});

    EXPECT_EQ(answer.output, "[echo][two words][][%s]");
    EXPECT_EQ(answer.result, 4);
    EXPECT_EQ(answer.refusal, 0);
    std::vector<std::string> most(64, "w");
    most[0] = "echo";
    EXPECT_EQ(Ask('R', most).result, 64);
}

TEST_F(DebugShellRunTest, LargeOutputArrivesWhole)
{
    Register("big", Big);
    Start();

    const DebugShellAnswer answer = Ask('R', {"big"});

    EXPECT_EQ(answer.output.size(), 1000000u);
    EXPECT_EQ(answer.output.find_first_not_of('b'), std::string::npos);
    EXPECT_EQ(answer.result, 0);
}

TEST_F(DebugShellRunTest, EveryPrintGoesToTheClient)
{
    Register("all", Everything);
    Start();

    testing::internal::CaptureStdout();
    const DebugShellAnswer answer = Ask('R', {"all"});

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(answer.output, "piece,wrong 7\nUsage: <group> <command> [arguments]\n  all                 about all\n");
}

TEST_F(DebugShellRunTest, OtherThreadsOfACommandPrintToStandardOutput)
{
    Register("threads", PrintOnAThread);
    Start();

    testing::internal::CaptureStdout();
    const DebugShellAnswer answer = Ask('R', {"threads"});

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "from a thread");
    EXPECT_EQ(answer.output, "from the command");
}

TEST_F(DebugShellRunTest, SignalsAreForTheHostsThreads)
{
    Register("signals", LookAtSignals);
    Start();

    EXPECT_EQ(Ask('R', {"signals"}).result, 0);

    EXPECT_TRUE(g_signalsBlocked);
}

TEST_F(DebugShellRunTest, UnknownGroupIsRefused)
{
    Register("echo", Echo);
    Start();

    for (const char *name : {"ech", "echoo", "", "echo0123456789012345678901234567890"}) {
        EXPECT_EQ(Ask('R', {name}).refusal, kNoSuchGroup) << name;
    }
    EXPECT_EQ(Ask('H', {"nothing"}).refusal, kNoSuchGroup);
    EXPECT_EQ(Ask('C', {"nothing"}).refusal, kNoSuchGroup);
}

TEST_F(DebugShellRunTest, ClientsDoNotMix)
{
    constexpr int kClients = 8;
    constexpr int kRounds = 20;
    for (int i = 0; i < kClients; i++) {
        Register("echo" + std::to_string(i), Echo);
    }
    Start();

    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; i++) {
        clients.emplace_back([this, i] {
            const std::string name = "echo" + std::to_string(i);
            for (int round = 0; round < kRounds; round++) {
                const DebugShellAnswer answer = Ask('R', {name, "a", name, "b"});
                EXPECT_EQ(answer.output, "[" + name + "][a][" + name + "][b]");
            }
        });
    }
    for (std::thread &client : clients) {
        client.join();
    }
}

TEST_F(DebugShellRunTest, OneCommandOfAGroupAtATimeAndOthersBesideIt)
{
    Register("gate", Stand, EchoHelp);
    Register("echo", Echo);
    Start();
    const DebugShellClient first(Socket());
    const DebugShellClient second(Socket());

    first.Send('R', {"gate"});
    ASSERT_TRUE(gate_.entered.Wait());
    second.Send('R', {"gate"});

    EXPECT_EQ(Ask('R', {"echo"}).output, "[echo]");
    EXPECT_THAT(Ask('H', {"gate"}).output, HasSubstr("SYNOPSIS"));
    EXPECT_THAT(Ask('S').words, ElementsAre("corvane", "100", "1"));
    EXPECT_EQ(gate_.runs, 1);
    gate_.open.Signal();
    EXPECT_EQ(first.Receive().output, "stood");
    ASSERT_TRUE(gate_.entered.Wait());
    gate_.open.Signal();
    EXPECT_EQ(second.Receive().output, "stood");
    EXPECT_EQ(gate_.most, 1);
    EXPECT_THAT(Ask('S').words, ElementsAre("corvane", "100", "0"));
}

TEST_F(DebugShellRunTest, ClientThatLeavesTheLineIsNotRun)
{
    Register("gate", Stand);
    Start();
    const DebugShellClient first(Socket());
    DebugShellClient second(Socket());
    first.Send('R', {"gate"});
    ASSERT_TRUE(gate_.entered.Wait());
    second.Send('R', {"gate"});

    second.Close();
    gate_.open.Signal();
    EXPECT_TRUE(first.Receive().complete);

    started_ = false;
    EXPECT_EQ(DBG_DiagnoseAgentDestroy(kProcess), 0); // waits for all
    EXPECT_EQ(gate_.runs, 1);
}

TEST_F(DebugShellRunTest, PrintFailsWhenTheClientIsGone)
{
    Register("gate", Stand);
    Start();
    DebugShellClient client(Socket());
    client.Send('R', {"gate"});
    ASSERT_TRUE(gate_.entered.Wait());

    client.Close();
    gate_.open.Signal();

    EXPECT_TRUE(WaitFor([this] { return gate_.finished.load(); }));
    EXPECT_EQ(gate_.printed, -1);
}

using DebugShellHelpTest = DebugShellTest;

TEST_F(DebugShellHelpTest, ShowsHelpWithDescriptions)
{
    Register("echo", Echo, EchoHelp);
    Register("bare", Echo);
    Start();

    const DebugShellAnswer answer = Ask('H', {"echo"});

    EXPECT_THAT(answer.output, HasSubstr("\techo set [value]\t:sets it\n"));
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(Ask('H', {"bare"}).refusal, kNoHelp);
}

TEST_F(DebugShellHelpTest, ListsGroupsWithTheirDescriptions)
{
    Start();
    EXPECT_THAT(Ask('G').words, IsEmpty());

    Register("echo", Echo);
    Register("big", Big);

    EXPECT_THAT(Ask('G').words, ElementsAre("echo", "about echo", "big", "about big"));
}

TEST_F(DebugShellHelpTest, TakesSubCommandsFromTheHelp)
{
    Register("echo", Echo, EchoHelp);
    Register("bare", Echo);
    Start();

    const DebugShellAnswer answer = Ask('C', {"echo"});

    EXPECT_THAT(answer.words, ElementsAre("list", "set", "show", "indented"));
    EXPECT_EQ(answer.output, "");
    EXPECT_EQ(answer.result, 0);
    EXPECT_THAT(Ask('C', {"bare"}).words, IsEmpty());
}

struct BadRequest {
    const char *name;
    std::string bytes;
};

class DebugShellBadRequestTest : public DebugShellTest, public ::testing::WithParamInterface<BadRequest> {};

TEST_P(DebugShellBadRequestTest, IsRefusedAndHurtsNobody)
{
    Register("echo", Echo);
    Start();
    const DebugShellClient client(Socket());

    client.SendRaw(GetParam().bytes);
    const DebugShellAnswer answer = client.Receive();

    EXPECT_EQ(answer.refusal, kBadRequest);
    EXPECT_NE(answer.text, "");
    EXPECT_TRUE(client.Ends());
    EXPECT_EQ(Ask('R', {"echo"}).output, "[echo]");
}

std::string Repeated(const std::string &text, int times)
{
    std::string all;
    for (int i = 0; i < times; i++) {
        all += text;
    }
    return all;
}

const std::string kEchoWord = DebugShellClient::Words({"echo"});

INSTANTIATE_TEST_SUITE_P(
    Requests, DebugShellBadRequestTest,
    ::testing::Values(BadRequest{"Garbage", "GET / HTTP/1.0\r\n\r\n"},
                      BadRequest{"MuchGarbage", std::string(100000, 'g')},
                      BadRequest{"OtherVersion", std::string("ND\2R\5\0\0\0echo\0", 13)},
                      BadRequest{"OtherMagic", std::string("NX\1R\5\0\0\0echo\0", 13)},
                      BadRequest{
                          "TooLong",
                          DebugShellClient::Frame('R', DebugShellClient::Words({"echo", std::string(16384 - 5, 'l')}))},
                      BadRequest{"EnormousSize", std::string("ND\1R\xff\xff\xff\xff", 8)},
                      BadRequest{"WordWithoutEnd", DebugShellClient::Frame('R', "echo")},
                      BadRequest{"TooManyWords", DebugShellClient::Frame('R', Repeated(kEchoWord, 65))},
                      BadRequest{"NoWords", DebugShellClient::Frame('R', "")},
                      BadRequest{"HelpWithoutGroup", DebugShellClient::Frame('H', "")},
                      BadRequest{"HelpOfTwoGroups", DebugShellClient::Frame('H', kEchoWord + kEchoWord)},
                      BadRequest{"SubCommandsWithoutGroup", DebugShellClient::Frame('C', "")},
                      BadRequest{"GroupsOfAGroup", DebugShellClient::Frame('G', kEchoWord)},
                      BadRequest{"StateOfAGroup", DebugShellClient::Frame('S', kEchoWord)},
                      BadRequest{"UnknownType", DebugShellClient::Frame('Z', kEchoWord)},
                      BadRequest{"AnswerAsRequest", DebugShellClient::Frame('e', "")}),
    [](const auto &request) { return std::string(request.param.name); });

using DebugShellClientsTest = DebugShellTest;

TEST_F(DebugShellClientsTest, LongestRequestIsTaken)
{
    Register("echo", Echo);
    Start();
    const std::string word(16384 - 6, 'l');

    EXPECT_EQ(Ask('R', {"echo", word}).output, "[echo][" + word + "]");
}

TEST_F(DebugShellClientsTest, OneThatSendsNoRequestIsDroppedInTheEnd)
{
    Register("echo", Echo);
    Start();
    const DebugShellClient silent(Socket());
    const DebugShellClient half(Socket());
    half.SendRaw("ND\1R");

    EXPECT_EQ(Ask('R', {"echo"}).output, "[echo]");

    EXPECT_EQ(silent.Receive().refusal, kBadRequest);
    EXPECT_EQ(half.Receive().refusal, kBadRequest);
}

TEST_F(DebugShellClientsTest, OneThatTakesNothingIsGivenUp)
{
    Register("flood", Flood);
    Register("echo", Echo);
    Start();
    const DebugShellClient hanging(Socket());
    hanging.Send('R', {"flood"});
    ASSERT_TRUE(WaitFor([this] { return Ask('S').words.at(2) == "1"; }));

    EXPECT_EQ(Ask('R', {"echo"}).output, "[echo]");

    EXPECT_TRUE(WaitFor([this] { return Ask('S').words.at(2) == "0"; }));
    EXPECT_FALSE(hanging.Receive().complete);
}

TEST_F(DebugShellClientsTest, OneTooManyIsRefused)
{
    Register("gate", Stand);
    Start();
    std::vector<std::unique_ptr<DebugShellClient>> clients;
    for (int i = 0; i < 16; i++) {
        clients.push_back(std::make_unique<DebugShellClient>(Socket()));
        clients.back()->Send('R', {"gate"});
    }

    const DebugShellAnswer surplus = Ask('S');

    EXPECT_EQ(surplus.refusal, kBusy);
    EXPECT_THAT(surplus.text, HasSubstr("16 clients"));
    for (int i = 0; i < 16; i++) {
        gate_.open.Signal();
    }
    for (const auto &client : clients) {
        EXPECT_EQ(client->Receive().output, "stood");
    }
    EXPECT_TRUE(WaitFor([this] { return Ask('S').refusal == 0; }));
}

TEST_F(DebugShellClientsTest, UserOfAnotherNameIsRefused)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    Register("echo", Echo);
    Start();
    // The folder alone would keep the user out.
    ASSERT_EQ(chmod(temp_.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(Folder().c_str(), 0755), 0);
    ASSERT_EQ(chmod(Socket().c_str(), 0666), 0);

    const int refusal = InChild([this] {
        if (!BecomeNobody()) {
            return 99;
        }
        const DebugShellClient client(Socket());
        return client.Connected() ? client.Ask('R', {"echo"}).refusal : 98;
    });

    EXPECT_EQ(refusal, kNotPermitted);
    EXPECT_EQ(Ask('R', {"echo"}).output, "[echo]");
}

TEST_F(DebugShellClientsTest, RootAndTheProcesssOwnUserAreServed)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    ASSERT_TRUE(fs::create_directory(Folder()));
    ASSERT_EQ(chown(Folder().c_str(), kNobody, kNobody), 0);
    ASSERT_EQ(chmod(Folder().c_str(), 0700), 0);
    ASSERT_EQ(chmod(temp_.Path().c_str(), 0711), 0);
    int pipeOfChild[2];
    ASSERT_EQ(pipe(pipeOfChild), 0);
    const pid_t child = fork();
    if (child == 0) {
        const bool good = BecomeNobody() && DBG_DiagnoseAgentInit(kProcess, "corvane") == 0;
        const bool ownUser = Ask('S').complete;
        const char status = good && ownUser ? '1' : '0';
        (void)!write(pipeOfChild[1], &status, 1);
        (void)pause();
    }
    char status = '0';
    ASSERT_EQ(read(pipeOfChild[0], &status, 1), 1);

    EXPECT_EQ(status, '1');
    EXPECT_EQ(Ask('S').refusal, 0);

    (void)kill(child, SIGKILL);
    (void)waitpid(child, nullptr, 0);
    (void)close(pipeOfChild[0]);
    (void)close(pipeOfChild[1]);
}

using DbgUnRegCmdTest = DebugShellTest;

TEST_F(DbgUnRegCmdTest, WaitsForTheCommandThatRuns)
{
    Register("gate", Stand);
    Start();
    const DebugShellClient running(Socket());
    const DebugShellClient inLine(Socket());
    running.Send('R', {"gate"});
    ASSERT_TRUE(gate_.entered.Wait());
    inLine.Send('R', {"gate"});

    bool finishedBefore = false;
    std::thread remover([this, &finishedBefore] {
        EXPECT_EQ(DBG_UnRegCmd("gate"), 0);
        finishedBefore = gate_.finished;
    });
    ASSERT_TRUE(WaitFor([this] { return Ask('G').words.empty(); }));
    EXPECT_EQ(inLine.Receive().refusal, kNoSuchGroup);
    EXPECT_EQ(DBG_UnRegCmd("gate"), -1);
    const DBG_CmdInfo successor = Command("gate", Echo);
    EXPECT_EQ(DBG_RegCmd(&successor), 0); // the name is free, the row is not
    EXPECT_EQ(Ask('R', {"gate"}).output, "[gate]");
    gate_.open.Signal();
    remover.join();

    EXPECT_TRUE(finishedBefore);
    EXPECT_EQ(running.Receive().output, "stood");
    EXPECT_EQ(DBG_UnRegCmd("gate"), 0);
}

TEST_F(DbgUnRegCmdTest, WaitsForHelpAsWell)
{
    static Gate *gate = nullptr;
    gate = &gate_;
    Register("helper", Echo, [](const char *, int) {
        gate->entered.Signal();
        EXPECT_TRUE(gate->open.Wait());
        gate->finished = true;
    });
    Start();
    const DebugShellClient client(Socket());
    client.Send('H', {"helper"});
    ASSERT_TRUE(gate_.entered.Wait());

    bool finishedBefore = false;
    std::thread remover([this, &finishedBefore] {
        EXPECT_EQ(DBG_UnRegCmdToCLI("helper"), 0);
        finishedBefore = gate_.finished;
    });
    ASSERT_TRUE(WaitFor([this] { return Ask('G').words.empty(); }));
    gate_.open.Signal();
    remover.join();

    EXPECT_TRUE(finishedBefore);
}

TEST_F(DbgUnRegCmdTest, DoesNotWaitForItselfNorFromAnotherCommand)
{
    Register("once", RemoveItself);
    Register("gate", Stand);
    Register("remover", RemoveTheGate);
    Start();

    g_nestedStatus = -1;
    EXPECT_EQ(Ask('R', {"once"}).output, "removed");
    EXPECT_EQ(g_nestedStatus, 0);
    EXPECT_EQ(Ask('R', {"once"}).refusal, kNoSuchGroup);

    const DebugShellClient running(Socket());
    running.Send('R', {"gate"});
    ASSERT_TRUE(gate_.entered.Wait());
    g_nestedStatus = -1;
    EXPECT_EQ(Ask('R', {"remover"}).result, 0); // while the gate still stands
    EXPECT_EQ(g_nestedStatus, 0);
    gate_.open.Signal();
    EXPECT_EQ(running.Receive().output, "stood");
}

TEST_F(DbgUnRegCmdTest, RowsOfRemovedCommandsAreUsedAgain)
{
    Register("once", RemoveItself);
    Start();
    for (int round = 0; round < 2 * DBG_MAX_COMMANDS; round++) {
        ASSERT_EQ(Ask('R', {"once"}).output, "removed") << round;
        const DBG_CmdInfo again = Command("once", RemoveItself);
        ASSERT_EQ(DBG_RegCmd(&again), 0) << round;
    }
}

using DbgDiagnoseAgentDestroyTest = DebugShellTest;

TEST_F(DbgDiagnoseAgentDestroyTest, WaitsForCommandsAndEndsTheConnections)
{
    Register("gate", Stand);
    Start();
    const size_t threads = Threads();
    const DebugShellClient silent(Socket());
    const DebugShellClient running(Socket());
    const DebugShellClient inLine(Socket());
    running.Send('R', {"gate"});
    ASSERT_TRUE(gate_.entered.Wait());
    inLine.Send('R', {"gate"});

    bool finishedBefore = false;
    std::thread destroyer([this, &finishedBefore] {
        EXPECT_EQ(DBG_DiagnoseAgentDestroy(kProcess), 0);
        finishedBefore = gate_.finished;
    });
    EXPECT_FALSE(silent.Receive().complete); // cut, and not told at last that it was too slow
    EXPECT_TRUE(silent.Ends());
    EXPECT_TRUE(inLine.Ends());
    EXPECT_FALSE(fs::exists(Socket()));
    EXPECT_EQ(DBG_DiagnoseAgentDestroy(kProcess), ENOENT);
    EXPECT_EQ(DBG_DiagnoseAgentInit(kProcess, "corvane"), EEXIST);
    gate_.open.Signal();
    destroyer.join();
    started_ = false;

    EXPECT_TRUE(finishedBefore);
    EXPECT_EQ(gate_.runs, 1);
    EXPECT_TRUE(running.Ends());
    EXPECT_TRUE(WaitFor([threads] { return Threads() < threads; }));
}

TEST_F(DbgDiagnoseAgentDestroyTest, CutsClientsThatItNeverAccepted)
{
    Register("gate", Stand);
    Start();
    const DebugShellClient running(Socket());
    running.Send('R', {"gate"});
    ASSERT_TRUE(gate_.entered.Wait());
    std::vector<std::unique_ptr<DebugShellClient>> waiting;
    std::thread destroyer([] { EXPECT_EQ(DBG_DiagnoseAgentDestroy(kProcess), 0); });
    for (int i = 0; i < 64 && fs::exists(Socket()); i++) { // some of them come too late to be accepted
        waiting.push_back(std::make_unique<DebugShellClient>(Socket()));
    }

    for (const auto &client : waiting) {
        EXPECT_TRUE(client->Ends());
    }
    EXPECT_FALSE(gate_.finished);
    gate_.open.Signal();
    destroyer.join();
    started_ = false;
}

TEST_F(DbgDiagnoseAgentDestroyTest, CalledByACommandEndsTheAgentAllTheSame)
{
    const size_t threads = Threads();
    Register("destroy", DestroyAgent);
    Start();
    started_ = false;
    g_nestedStatus = -1;
    const DebugShellClient client(Socket());

    client.Send('R', {"destroy"});

    EXPECT_TRUE(client.Ends());
    EXPECT_TRUE(WaitFor([] { return g_nestedStatus == 0; }));
    EXPECT_FALSE(fs::exists(Socket()));
    EXPECT_TRUE(WaitFor([threads] { return Threads() == threads; }));
    Start();
    EXPECT_TRUE(Ask('S').complete);
}

TEST_F(DbgDiagnoseAgentDestroyTest, EndsAnotherAgentFromACommand)
{
    const size_t threads = Threads();
    Register("destroy", DestroyAgent);
    Start();
    started_ = false;
    ASSERT_EQ(DBG_DiagnoseAgentInit(101, "other"), 0);

    EXPECT_EQ(DebugShellClient(Folder() + "/101.other").Ask('R', {"destroy"}).result, 0);

    EXPECT_FALSE(fs::exists(Socket()));
    EXPECT_EQ(DBG_DiagnoseAgentDestroy(101), 0);
    EXPECT_TRUE(WaitFor([threads] { return Threads() == threads; }));
}

TEST_F(DbgDiagnoseAgentDestroyTest, MeetsClientsAtAnyMoment)
{
    Register("echo", PrintToWhoever, EchoHelp);
    std::atomic<bool> stop{false};
    std::vector<std::thread> clients;
    for (int i = 0; i < 3; i++) {
        clients.emplace_back([this, &stop, i] {
            while (!stop) {
                const DebugShellClient client(Socket());
                if (client.Connected()) {
                    (void)client.Ask("RHC" [i], { "echo" });
                }
            }
        });
    }

    for (int round = 0; round < 100; round++) {
        EXPECT_EQ(DBG_DiagnoseAgentInit(kProcess, "corvane"), 0);
        (void)DebugShellClient(Socket()).Ask('R', {"echo"});
        EXPECT_EQ(DBG_DiagnoseAgentDestroy(kProcess), 0);
    }
    stop = true;
    for (std::thread &client : clients) {
        client.join();
    }

    EXPECT_TRUE(fs::is_empty(Folder()));
}
