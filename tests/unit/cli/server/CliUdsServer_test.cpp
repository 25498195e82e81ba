#include "cli/server/CliUdsServer.h"

#include <atomic>
#include <cerrno>
#include <thread>

#include "cli_server_test_support.h"
#include "config/corvane_prefix_path.h"

using namespace CORVANE_CLI;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

/** What a probe prints for a request. */
std::string Probed(const std::string &param, const std::string &name = "probe")
{
    return name + "|" + param;
}

int DescriptorCount()
{
    g_objLogger.Close();
    g_objLoggerOpt.Close();
    int count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        count++;
    }
    return count;
}

/** The number behind "clientId(" or "clientFd:" of a message. */
int ClientOf(const std::string &message)
{
    return std::stoi(message.substr(message.find_first_of("(:") + 1));
}

} // namespace

class CliUdsServerTest : public CliServerTest {
protected:
    static std::string ServerLine(const std::string &level, const std::string &function, const std::string &message)
    {
        return Line(level, "CliUdsServer", function, message);
    }
    void UsePrefix(const std::string &prefix)
    {
        std::free(g_prefixPath);
        g_prefixPath = strdup(prefix.c_str());
    }
    /** A folder below the prefix whose path has this length, with its "config". */
    std::string FolderOfLength(size_t length) const
    {
        const std::string path = Prefix() + "/" + std::string(length - Prefix().size() - 1, 'p');
        std::filesystem::create_directories(path + "/config");
        return path;
    }
    /** A client that the receive thread waits for, so that others stay in the list. */
    UniqueFd HoldReceiveThread()
    {
        UniqueFd silent = Connect(SocketPath());
        EXPECT_TRUE(WaitFor([this] { return LineCount("]Client connected.clientId(") == 1; }));
        return silent;
    }
};

class InitCliServerTest : public CliUdsServerTest {};
class UnInitCliServerTest : public CliUdsServerTest {};
class AcceptCliServerTest : public CliUdsServerTest {};
class InnerRecvTaskTest : public CliUdsServerTest {};
class RefuseActionMismatchTest : public CliUdsServerTest {};

TEST_F(InitCliServerTest, ServesAtTheSocketBelowThePrefix)
{
    Start();

    EXPECT_EQ(ModeOf(SocketPath()), 0660u);
    EXPECT_EQ(ServerDoubles::backlog, 1024);
    EXPECT_EQ(Ask("show probe a=1"), AnswerBytes(0, Probed("action=show a=1 userName=root"), "show"));
    EXPECT_TRUE(WaitFor([this] { return LineCount("]Start accept thread.") + LineCount("]Start recv thread.") == 2; }));
}

TEST_F(InitCliServerTest, TellsBothLogs)
{
    Start();

    EXPECT_THAT(CliLog(), Contains(ServerLine("INFO", "InitCliServer", "Init server log success.")));
    const std::string oper = ReadFile(folder_ + "/oper.log");
    EXPECT_NE(oper.find("[CLI_LOG]Init server log success.\n"), std::string::npos) << oper;
    EXPECT_EQ(std::count(oper.begin(), oper.end(), '\n'), 1);
}

TEST_F(InitCliServerTest, ReplacesASocketOfAnEarlierRun)
{
    {
        const UniqueFd earlier(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, SocketPath().c_str());
        ASSERT_EQ(bind(earlier.Get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    }
    ASSERT_FALSE(Connect(SocketPath()).Valid());

    Start();

    EXPECT_NE(Ask("show probe"), "");
}

TEST_F(InitCliServerTest, TakesASocketPathOf106Characters)
{
    const std::string prefix = FolderOfLength(106 - std::string("/config/CLI_UDS.unix").size());
    UsePrefix(prefix);
    Start();

    EXPECT_EQ(ModeOf(prefix + "/config/CLI_UDS.unix"), 0660u);
    const UniqueFd client = Connect(prefix + "/config/CLI_UDS.unix");
    EXPECT_TRUE(client.Valid());
}

TEST_F(InitCliServerTest, RefusesASocketPathOf107Characters)
{
    const std::string prefix = FolderOfLength(107 - std::string("/config/CLI_UDS.unix").size());
    UsePrefix(prefix);
    WriteFile(prefix + "/config/CLI_UDS.unix", "in the way");
    const int descriptors = DescriptorCount();

    EXPECT_EQ(NewServer().InitCliServer(), -1);

    EXPECT_THAT(CliLog(), Contains(ServerLine("ERROR", "InitCliServer", "strcpy failed.")));
    EXPECT_EQ(access((prefix + "/config/CLI_UDS.unix").c_str(), F_OK), -1) << "what lay there is gone before";
    EXPECT_EQ(DescriptorCount(), descriptors);
}

TEST_F(InitCliServerTest, RefusesAPrefixThatDoesNotFit)
{
    const int descriptors = DescriptorCount();
    UsePrefix(std::string(4096 - std::string("/config/CLI_UDS.unix").size(), 'p'));

    EXPECT_EQ(NewServer().InitCliServer(), -1);

    EXPECT_THAT(CliLog(), Contains(ServerLine("ERROR", "InitCliServer",
                                              "Connect server fail due to concatenate config prefix error.")));
    EXPECT_EQ(DescriptorCount(), descriptors);
}

TEST_F(InitCliServerTest, FailsWithoutASocket)
{
    g_osCalls.socket = [](int, int, int) {
        errno = EMFILE;
        return -1;
    };

    EXPECT_EQ(NewServer().InitCliServer(), -1);

    EXPECT_THAT(CliLog(), ElementsAre(ServerLine("INFO", "InitCliServer", "Init server log success."),
                                      ServerLine("ERROR", "InitCliServer", "Init accept socket failed.")));
}

TEST_F(InitCliServerTest, FailsWithoutAPlaceForTheSocket)
{
    std::filesystem::remove(Prefix() + "/config");
    const int descriptors = DescriptorCount();

    EXPECT_EQ(NewServer().InitCliServer(), -1);

    EXPECT_THAT(CliLog(), Contains(ServerLine("ERROR", "InitCliServer", "Bind socket failed.")));
    EXPECT_EQ(DescriptorCount(), descriptors);
}

TEST_F(InitCliServerTest, FailsWithASocketThatDoesNotListen)
{
    ServerDoubles::listenFails = true;
    const int descriptors = DescriptorCount();

    EXPECT_EQ(NewServer().InitCliServer(), -1);

    EXPECT_THAT(CliLog(), Contains(ServerLine("ERROR", "InitCliServer", "Listen socket failed.")));
    EXPECT_EQ(DescriptorCount(), descriptors);
}

TEST_F(InitCliServerTest, FailsWithoutTheSocketsMode)
{
    g_osCalls.chmod = [](const char *path, mode_t mode) {
        const std::string name = path;
        const bool isSocket = name.substr(name.find_last_of('.')) == ".unix";
        errno = EPERM;
        return isSocket ? -1 : chmod(path, mode);
    };
    const int descriptors = DescriptorCount();

    EXPECT_EQ(NewServer().InitCliServer(), -1);

    EXPECT_THAT(CliLog(), Contains(ServerLine("ERROR", "InitCliServer", "Chmod " + SocketPath() + " failed.")));
    EXPECT_EQ(DescriptorCount(), descriptors);
}

TEST_F(InitCliServerTest, ServesWithoutALog)
{
    const std::string longPath(300, 'p');
    ROOT_LOG_PATH = longPath.c_str();
    CORVANE_LOG_PATH = longPath.c_str();
    Start();

    EXPECT_NE(Ask("show probe"), "");
}

TEST_F(InitCliServerTest, FailsWithoutThreads)
{
    IN_A_PROCESS_OF_ITS_OWN();
    const int descriptors = DescriptorCount();
    CliUdsServer &server = NewServer();
    {
        const NoMoreThreads limit({Prefix(), folder_, LogPath(), Prefix() + "/config"}, 0);

        EXPECT_EQ(server.InitCliServer(), -1);
    }
    EXPECT_THAT(CliLog(), Contains(ServerLine("ERROR", "InitCliServer", "Init server failed.")));
    EXPECT_EQ(DescriptorCount(), descriptors);
    server.Stop(); // one thread may have been there
}

TEST_F(InitCliServerTest, FailsWithoutAWorker)
{
    IN_A_PROCESS_OF_ITS_OWN();
    CliUdsServer &server = NewServer();
    {
        const NoMoreThreads limit({Prefix(), folder_, LogPath(), Prefix() + "/config"}, 2);

        EXPECT_EQ(server.InitCliServer(), -1);
    }
    EXPECT_EQ(LineCount("]Init job pool failed."), 1u);
    EXPECT_EQ(LineCount("]Init server failed."), 1u);
    EXPECT_FALSE(Connect(SocketPath()).Valid()) << "nobody listens";
    EXPECT_EQ(server.AcceptCliServer(), -1);
    server_ = &server; // whose threads run until it is stopped
}

TEST_F(InitCliServerTest, StaysStopped)
{
    Start();
    CliUdsServer &server = *server_;
    Stop();
    const size_t connected = LineCount("]Client connected.clientId(");

    EXPECT_EQ(server.InitCliServer(), 0);

    EXPECT_TRUE(WaitForThreadsToEnd(2)) << "the stop flag is still set";
    const UniqueFd client = Connect(SocketPath());
    EXPECT_TRUE(client.Valid());
    EXPECT_EQ(LineCount("]Client connected.clientId("), connected);
    EXPECT_EQ(server.UnInitCliServer(), 0);
    EXPECT_EQ(ReceiveAll(client.Get()), "");
}

TEST_F(InitCliServerTest, CountsForTheProcessWideInstance)
{
    IN_A_PROCESS_OF_ITS_OWN();

    EXPECT_EQ(InitCliServertoC(), 0);
    AddProbe();
    EXPECT_EQ(&CliUdsServer::GetInstance(), &CliUdsServer::GetInstance());
    EXPECT_EQ(Ask("show probe"), AnswerBytes(0, Probed("action=show probe userName=root"), "show"));
    EXPECT_EQ(UnInitCliServertoC(), 0);

    EXPECT_EQ(access(SocketPath().c_str(), F_OK), -1);
    EXPECT_TRUE(WaitForThreadsToEnd());
}

TEST_F(InitCliServerTest, TakesRequestsWhileItStarts)
{
    IN_A_PROCESS_OF_ITS_OWN();
    CliUdsServer &server = NewServer();
    std::atomic<bool> stop = false;
    std::vector<std::string> answers;
    std::thread early([&] {
        while (!stop) {
            const UniqueFd client = Connect(SocketPath());
            if (client.Valid() && SendAll(client.Get(), Message(RequestXml("help summary"), "help"))) {
                answers.push_back(ReceiveAll(client.Get()));
            }
        }
    });
    EXPECT_EQ(server.InitCliServer(), 0);
    server_ = &server;
    EXPECT_TRUE(WaitFor([this] { return LineCount("]Start exec cmd:summary.") > 0; }));
    stop = true;
    early.join();

    const std::string served = AnswerBytes(CLI_COMMAND_FORMAT_ERROR, "null", "help");
    EXPECT_THAT(answers, Each(::testing::AnyOf(AnswerBytes(CLI_COMMAND_PARAM_INVALID, "null", "help"), served,
                                               AnswerBytes(CLI_TASK_MAX_ERROR, "null", "help"))));
    EXPECT_THAT(answers, Contains(served));
}

TEST_F(UnInitCliServerTest, RemovesTheSocket)
{
    Start();
    CliUdsServer &server = *server_;

    EXPECT_EQ(server.UnInitCliServer(), 0);

    EXPECT_EQ(access(SocketPath().c_str(), F_OK), -1);
    EXPECT_FALSE(Connect(SocketPath()).Valid());
    EXPECT_TRUE(WaitForThreadsToEnd());
    EXPECT_EQ(server.AcceptCliServer(), -1);
}

TEST_F(UnInitCliServerTest, WaitsForTheLoopsToSeeIt)
{
    Start();
    server_->Stop();

    EXPECT_THAT(ServerDoubles::Sleeps(), Contains(200000u));
    EXPECT_TRUE(WaitFor([this] { return LineCount("]End recv thread.") == 1; }));
}

TEST_F(UnInitCliServerTest, ClosesWhoWaits)
{
    Start();
    UniqueFd silent = HoldReceiveThread();
    const UniqueFd waiting = Connect(SocketPath());
    ASSERT_TRUE(WaitFor([this] { return LineCount("]Client connected.clientId(") == 2; }));

    EXPECT_EQ(server_->UnInitCliServer(), 0);

    EXPECT_EQ(ReceiveAll(waiting.Get()), "");
    silent.Reset(); // the thread reads it to its end
    EXPECT_TRUE(WaitForThreadsToEnd());
    server_ = nullptr;
}

TEST_F(UnInitCliServerTest, IsNoHarmWithoutAStart)
{
    WriteFile(SocketPath(), "left");

    EXPECT_EQ(NewServer().UnInitCliServer(), 0);

    EXPECT_EQ(access(SocketPath().c_str(), F_OK), -1);
}

TEST_F(UnInitCliServerTest, FailsWithAPrefixThatDoesNotFit)
{
    Start();
    CliUdsServer &server = *server_;
    const std::string prefix = Prefix();
    UsePrefix(std::string(5000, 'p'));

    EXPECT_EQ(server.UnInitCliServer(), -1);

    EXPECT_THAT(CliLog(), Contains(ServerLine("ERROR", "UnInitCliServer", "Concatenate config prefix failed.")));
    UsePrefix(prefix);
    EXPECT_EQ(access(SocketPath().c_str(), F_OK), 0);
    EXPECT_FALSE(Connect(SocketPath()).Valid()) << "but nobody listens";
    EXPECT_TRUE(WaitForThreadsToEnd());
    server_ = nullptr;
}

TEST_F(AcceptCliServerTest, FailsWithoutASocket)
{
    EXPECT_EQ(NewServer().AcceptCliServer(), -1);

    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(AcceptCliServerTest, RefusesAClientThatCannotBeBounded)
{
    g_osCalls.setsockopt = [](int, int, int, const void *, socklen_t) {
        errno = EDOM;
        return -1;
    };
    Start();

    const UniqueFd client = Connect(SocketPath());

    EXPECT_EQ(ReceiveAll(client.Get()), "");
    EXPECT_TRUE(WaitFor([] { return ::testing::Matches(Contains(10000u))(ServerDoubles::Sleeps()); }))
        << "a failed accept is followed by a pause";
    EXPECT_THAT(CliLog(), Contains(ServerLine("ERROR", "AcceptCliServer", "CLI_RECV_TRANSMISSION_ERROR 0x40036906.")));
    EXPECT_EQ(LineCount("]Client connected."), 0u);
    const UniqueFd next = Connect(SocketPath());
    EXPECT_EQ(ReceiveAll(next.Get()), "") << "the thread goes on";
}

TEST_F(AcceptCliServerTest, BoundsTheWaitFor60Seconds)
{
    static std::atomic<time_t> seconds;
    static std::atomic<int> calls;
    seconds = 0;
    calls = 0;
    g_osCalls.setsockopt = [](int fd, int level, int name, const void *value, socklen_t length) {
        if (level == SOL_SOCKET && name == SO_RCVTIMEO && length == sizeof(timeval)) {
            seconds = static_cast<const timeval *>(value)->tv_sec;
            EXPECT_EQ(static_cast<const timeval *>(value)->tv_usec, 0);
        }
        calls++;
        return setsockopt(fd, level, name, value, length);
    };
    Start();

    EXPECT_NE(Ask("show probe"), "");

    EXPECT_EQ(seconds, 60);
    EXPECT_EQ(calls, 1);
}

TEST_F(CliUdsServerTest, PausesWhileNobodyAsks)
{
    Start();

    EXPECT_TRUE(WaitFor([] { return ::testing::Matches(Contains(100000u))(ServerDoubles::Sleeps()); }));
}

TEST_F(CliUdsServerTest, DropsAClientThatSendsNothingWhileOthersWait)
{
    // The 60 seconds pass in a moment for the first client.
    static std::atomic<int> calls;
    calls = 0;
    g_osCalls.setsockopt = [](int fd, int level, int name, const void *value, socklen_t length) {
        timeval soon = {0, 500000};
        return setsockopt(fd, level, name, ++calls == 1 ? &soon : value, length);
    };
    Start();
    const UniqueFd silent = HoldReceiveThread();
    std::vector<UniqueFd> others;
    for (int i = 0; i < 3; i++) {
        others.push_back(Connect(SocketPath()));
        ASSERT_TRUE(SendAll(others.back().Get(), Message(RequestXml("show foo"), "show")));
    }

    for (const UniqueFd &other : others) {
        EXPECT_EQ(ReceiveAll(other.Get()), AnswerBytes(CLI_COMMAND_PARAM_INVALID, "null", "show"));
    }
    EXPECT_EQ(ReceiveAll(silent.Get()), "");

    const int silentId = ClientOf(Messages("Client connected.")[0]);
    const std::vector<std::string> lines = CliLog();
    const auto dropped = std::find(lines.begin(), lines.end(),
                                   ServerLine("INFO", "InnerRecvTask",
                                              "Recv failed err(Resource temporarily unavailable), client(" +
                                                  std::to_string(silentId) + ") disconnected."));
    const auto served =
        std::find(lines.begin(), lines.end(),
                  Line("ERROR", "CliCmdHandler", "PushCmdTask", "CLI_COMMAND_PARAM_INVALID 0x4003690b."));
    ASSERT_NE(dropped, lines.end());
    ASSERT_NE(served, lines.end());
    EXPECT_LT(dropped, served) << "the others wait until then";
}

TEST_F(CliUdsServerTest, ServesTheListWithACursorThatMovesOn)
{
    Start();
    UniqueFd silent = HoldReceiveThread();
    std::vector<UniqueFd> clients;
    for (size_t i = 0; i < 5; i++) {
        clients.push_back(Connect(SocketPath()));
        ASSERT_TRUE(SendAll(clients.back().Get(), Message(RequestXml("show foo"), "show")));
        ASSERT_TRUE(WaitFor([this, i] { return LineCount("]Client connected.clientId(") == i + 2; }));
    }
    silent.Reset();
    for (const UniqueFd &client : clients) {
        EXPECT_EQ(ReceiveAll(client.Get()), AnswerBytes(CLI_COMMAND_PARAM_INVALID, "null", "show"));
    }

    ASSERT_TRUE(WaitFor([this] { return Messages("push cmd task fail. ").size() == 5; }));
    const std::vector<std::string> connected = Messages("Client connected.");
    std::vector<size_t> order;
    for (const std::string &message : Messages("push cmd task fail. ")) {
        for (size_t i = 1; i < connected.size(); i++) {
            if (ClientOf(connected[i]) == ClientOf(message)) {
                order.push_back(i);
            }
        }
    }
    EXPECT_THAT(order, ElementsAre(2, 4, 1, 5, 3));
}

TEST_F(CliUdsServerTest, DropsAClientThatCloses)
{
    Start();
    {
        const UniqueFd client = Connect(SocketPath());
    }

    EXPECT_TRUE(WaitFor([this] { return LineCount("disconnected.") == 1; }));
    EXPECT_EQ(Messages("Recv fail.recvlen:").size(), 1u);
    EXPECT_EQ(Messages("Recv fail.recvlen:")[0], "Recv fail.recvlen:0, totallen:0");
    EXPECT_NE(Ask("show probe"), "");
}

TEST_F(CliUdsServerTest, ServesManyClientsAtOnce)
{
    Start();
    constexpr int clients = 12;
    constexpr int requests = 4;
    std::atomic<int> answered = 0;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; c++) {
        threads.emplace_back([&, c] {
            for (int r = 0; r < requests; r++) {
                const std::string key = "client=" + std::to_string(c * requests + r);
                const std::string request = Message(RequestXml("show probe " + key), "show");
                const std::string right = AnswerBytes(0, Probed("action=show " + key + " userName=root"), "show");
                (AskBytes(request) == right ? answered : wrong)++;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(answered, clients * requests);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(ProbeCmd::Runs(), clients * requests);
}

TEST_F(CliUdsServerTest, TakesManyClientsBeforeItServesThem)
{
    Start();
    UniqueFd silent = HoldReceiveThread();
    std::vector<UniqueFd> clients;
    for (int i = 0; i < 100; i++) {
        clients.push_back(Connect(SocketPath()));
        ASSERT_TRUE(clients.back().Valid());
        ASSERT_TRUE(SendAll(clients.back().Get(), Message(RequestXml("show foo"), "show")));
    }
    silent.Reset();
    for (const UniqueFd &client : clients) {
        ASSERT_EQ(ReceiveAll(client.Get()), AnswerBytes(CLI_COMMAND_PARAM_INVALID, "null", "show"));
    }
}

TEST_F(CliUdsServerTest, RefusesASecondCommandWhileOneRuns)
{
    Start();
    ProbeCmd::Hold();
    const UniqueFd first = Connect(SocketPath());
    ASSERT_TRUE(SendAll(first.Get(), Message(RequestXml("show probe a=1"), "show")));
    ASSERT_TRUE(ProbeCmd::WaitUntilItRuns());

    EXPECT_EQ(AskOnce(Message(RequestXml("show probe a=2"), "show")), AnswerBytes(1073965325, "null", "show"));
    EXPECT_EQ(AskOnce(Message(RequestXml("change config feature_switch=off"), "change")),
              AnswerBytes(1073965325, "null", "change"));
    ProbeCmd::Release();

    EXPECT_EQ(ReceiveAll(first.Get()), AnswerBytes(0, Probed("action=show a=1 userName=root"), "show"));
    EXPECT_EQ(ProbeCmd::Runs(), 1);
}

TEST_F(CliUdsServerTest, EndsWhileACommandRuns)
{
    Start();
    ProbeCmd::Hold();
    const UniqueFd client = Connect(SocketPath());
    ASSERT_TRUE(SendAll(client.Get(), Message(RequestXml("show probe"), "show")));
    ASSERT_TRUE(ProbeCmd::WaitUntilItRuns());

    EXPECT_EQ(server_->UnInitCliServer(), 0);
    EXPECT_TRUE(WaitForThreadsToEnd());
    server_ = nullptr;
    ProbeCmd::Release();

    EXPECT_EQ(ReceiveAll(client.Get()), AnswerBytes(0, Probed("action=show probe userName=root"), "show"))
        << "the worker still answers";
}

TEST_F(InnerRecvTaskTest, FormsTheCommandOfTheWords)
{
    IN_A_PROCESS_OF_ITS_OWN();
    Start();
    (void)CliCmdHandler::GetInstance().RegisterCmd("", [] { return std::make_shared<ProbeCmd>(); });
    (void)CliCmdHandler::GetInstance().RegisterCmd("a=1", [] { return std::make_shared<ProbeCmd>(); });
    const struct {
        const char *agrs;
        const char *name;
        const char *param;
        const char *action;
    } rows[] = {{"show probe disk_id=3", "probe", "action=show disk_id=3 userName=root", "show"},
                {"show probe", "probe", "action=show probe userName=root", "show"},
                {"show probe a=1 b=2  c", "probe", "action=show a=1 b=2  c userName=root", "show"},
                {"show probe ", "probe", "action=show  userName=root", "show"},
                {"show  probe", "", "action=show probe userName=root", "show"},
                {"show ", "", "action=show  userName=root", "show"},
                {" probe", "probe", "action= probe userName=root", ""},
                {"probe", "probe", "action=probe probe userName=root", "probe"},
                {"a=1", "a=1", "action=a=1 a=1 userName=root", "a=1"},
                {"", "", "action=  userName=root", ""}};
    for (const auto &row : rows) {
        EXPECT_EQ(Ask(row.agrs), AnswerBytes(0, Probed(row.param, row.name), row.action)) << row.agrs;
    }
}

TEST_F(InnerRecvTaskTest, TakesTheNameOfTheHeadForTheUser)
{
    Start();

    EXPECT_EQ(Ask("show probe", "show", "somebody"),
              AnswerBytes(0, Probed("action=show probe userName=somebody"), "show"));
}

TEST_F(InnerRecvTaskTest, IgnoresTheElementCmd)
{
    Start();

    EXPECT_EQ(AskBytes(Message(RequestXml("show probe a=1", "summary"), "show")),
              AnswerBytes(0, Probed("action=show a=1 userName=root"), "show"));
    EXPECT_EQ(AskBytes(Message("<req><agrs>show probe a=1</agrs></req>", "show")),
              AnswerBytes(0, Probed("action=show a=1 userName=root"), "show"));
}

TEST_F(InnerRecvTaskTest, ReadsEntitiesOfARequest)
{
    Start();

    EXPECT_EQ(Ask("show probe a=&lt;&amp;&gt;"),
              AnswerBytes(0, Probed("action=show a=&lt;&amp;&gt; userName=root"), "show"));
}

TEST_F(InnerRecvTaskTest, TakesOneWordForActionAndCommand)
{
    Start();

    EXPECT_EQ(Ask("foo"), AnswerBytes(CLI_COMMAND_PARAM_INVALID, "null", "foo"));
}

TEST_F(InnerRecvTaskTest, AnswersWhatIsNoRequest)
{
    Start();
    for (const char *text : {"", "no xml", "<req>", "<req></req>", "<req><cmd>probe</cmd></req>",
                             "<req><cmd>probe</cmd><agrs></agrs></req>", "<agrs>show probe</agrs>"}) {
        EXPECT_EQ(AskBytes(Message(text, "show")), AnswerBytes(CLI_COMMAND_PARAM_INVALID, "null", "")) << text;
    }
    EXPECT_EQ(AskBytes(Packet(1, 0, 40, "root", "show", std::string(40, '\0'))),
              AnswerBytes(CLI_COMMAND_PARAM_INVALID, "null", ""))
        << "an image without a text";
}

TEST_F(InnerRecvTaskTest, LogsWhatIsNoRequest)
{
    Start();

    (void)AskBytes(Message("no xml", "show"));

    EXPECT_THAT(CliLog(), AllOf(Contains(Line("ERROR", "XmlModule", "AnalysisXml", "Not found element cmd")),
                                Contains(Line("ERROR", "XmlModule", "AnalysisXml", "Not found element agrs"))));
    ASSERT_EQ(Messages("push cmd task fail. ").size(), 1u);
    EXPECT_EQ(Messages("push cmd task fail. ")[0],
              "push cmd task fail. clientFd:" + std::to_string(ClientOf(Messages("Client connected.")[0])) +
                  ", ret:1073965323");
}

TEST_F(InnerRecvTaskTest, ClosesWithoutAnAnswerWhenTheActionDoesNotFitTheHead)
{
    Start();

    EXPECT_EQ(Ask("1234567890 foo"), "");
    EXPECT_EQ(Ask("123456789 foo"), AnswerBytes(CLI_COMMAND_PARAM_INVALID, "null", "123456789"));
    EXPECT_EQ(Ask("1234567890 probe"), "");

    EXPECT_EQ(ProbeCmd::Runs(), 1) << "the command runs all the same";
    EXPECT_EQ(LineCount("]Packet preparing fail due to actionName copying error."), 2u);
}

TEST_F(InnerRecvTaskTest, ClosesOnABadPacketWithoutAnAnswer)
{
    Start();
    const std::string image = Image(RequestXml("show probe"));
    const auto length = static_cast<uint32_t>(image.size());
    const struct {
        const char *what;
        std::string bytes;
        const char *message;
    } rows[] = {
        {"no user", Packet(1, 0, length, "", "show", image), "Username is empty; 0x40036901."},
        {"no action", Packet(1, 0, length, "root", "", image), "ActionName is empty; 0x40036901."},
        {"no length", Packet(1, 0, 0, "root", "show", image), "Recv fail.recvlen:"},
        {"more than 32 MiB", Packet(1, 0, 0x2000001, "root", "show", image), "Recv fail.recvlen:"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(AskBytes(row.bytes), "") << row.what;
        EXPECT_EQ(Messages(row.message).size(), 1u) << row.what;
        WriteFile(LogPath(), "");
    }
    EXPECT_EQ(ProbeCmd::Runs(), 0);
}

TEST_F(InnerRecvTaskTest, JoinsTheMessageOfTwoPackets)
{
    ReceiveWholePackets();
    Start();
    const std::string value(0x100000, 'v');
    const std::string image = Image(RequestXml("show probe a=" + value));
    const auto length = static_cast<uint32_t>(image.size());
    const UniqueFd client = Connect(SocketPath());
    std::thread reader([&client, &value] {
        const std::string bytes = ReceiveAll(client.Get());
        // The answer takes two packets as well.
        const std::string whole = Image(AnswerXml(0, Probed("action=show a=" + value + " userName=root")));
        const auto wholeLength = static_cast<uint32_t>(whole.size());
        const std::string first = Packet(2, 0, wholeLength, "root", "show", whole.substr(0, 0x100000));
        const std::string second = Packet(2, 1, wholeLength, "root", "show", whole.substr(0x100000));
        ASSERT_EQ(bytes.size(), first.size() + second.size());
        EXPECT_TRUE(bytes.substr(0, first.size()) == first);
        // Its filler is what the first packet left there.
        EXPECT_TRUE(bytes.substr(first.size(), second.size() - 2) == second.substr(0, second.size() - 2));
    });
    ASSERT_TRUE(SendAll(client.Get(), Packet(2, 0, length, "root", "show", image.substr(0, 0x100000))));
    ASSERT_TRUE(SendAll(client.Get(), Packet(2, 1, length, "root", "show", image.substr(0x100000))));
    ASSERT_EQ(shutdown(client.Get(), SHUT_WR), 0);
    reader.join();
}

TEST_F(CliUdsServerTest, SendsAndReceivesOnNothingButSockets)
{
    CliUdsServer &server = NewServer();
    std::string text;
    std::string user;
    std::string action;

    EXPECT_EQ(server.SendMsg("text", -1, "show"), -1);
    EXPECT_EQ(server.RecvMsg(text, -1, user, action), -1);

    EXPECT_THAT(CliLog(), ElementsAre(ServerLine("ERROR", "SendMsg", "sockFd(-1) is invalid.")));
}

TEST_F(CliUdsServerTest, SendsAndReceivesAsTheServer)
{
    CliUdsServer &server = NewServer();
    auto [client, served] = ConnectedPair();
    std::string text;
    std::string user;
    std::string action;

    EXPECT_EQ(server.SendMsg("text", served.Get(), "show"), 0);
    served.Reset();
    EXPECT_EQ(ReceiveAll(client.Get()), Message("text", "show"));

    auto [peer, mine] = ConnectedPair();
    ASSERT_TRUE(SendAll(peer.Get(), Message("request", "help", "name")));
    EXPECT_EQ(server.RecvMsg(text, mine.Get(), user, action), 0);
    EXPECT_EQ(text, "request");
    EXPECT_EQ(user, "name");
    EXPECT_EQ(action, "help");
    ASSERT_TRUE(SendAll(peer.Get(), Message("request", "", "name")));
    action.clear();
    EXPECT_EQ(server.RecvMsg(text, mine.Get(), user, action), CLI_USER_PERMISSION_ERROR) << "rights are checked";
}

TEST_F(CliUdsServerTest, ClosesAClientThatIsNotInItsList)
{
    CliUdsServer &server = NewServer();
    auto [client, served] = ConnectedPair();

    server.CloseClient(served.Release());

    EXPECT_EQ(ReceiveAll(client.Get()), "");
}

TEST_F(RefuseActionMismatchTest, RunsTheActionOfTheRequestByDefault)
{
    Start();
    for (const uint32_t value : {0u, 2u}) {
        RefuseActionMismatch(value);

        EXPECT_EQ(Ask("change probe a=1", "show"), AnswerBytes(0, Probed("action=change a=1 userName=root"), "change"));
    }
    EXPECT_EQ(ProbeCmd::Runs(), 2);
}

TEST_F(RefuseActionMismatchTest, RefusesAnotherActionThanTheAuthorisedOne)
{
    RefuseActionMismatch(1);
    Start();
    for (const char *agrs : {"change probe a=1", "help probe", "shows probe", "sho probe", " probe", "probe", "",
                             "averylongaction probe", "change foo"}) {
        EXPECT_EQ(Ask(agrs, "show"), AnswerBytes(1073965313, "null", "show")) << agrs;
    }
    EXPECT_EQ(AskBytes(Message("no xml", "show")), AnswerBytes(1073965313, "null", "show"));
    EXPECT_EQ(ProbeCmd::Runs(), 0);
    EXPECT_EQ(LineCount("]Start exec cmd:"), 0u);
    EXPECT_EQ(Messages("client(")[0], "client(" + std::to_string(ClientOf(Messages("Client connected.")[0])) +
                                          ") asked for change and was authorised for show, refused 0x40036901.");

    EXPECT_EQ(Ask("show probe a=1", "show"), AnswerBytes(0, Probed("action=show a=1 userName=root"), "show"));
    EXPECT_EQ(Ask("change foo", "change"), AnswerBytes(CLI_COMMAND_PARAM_INVALID, "null", "change"));
}
