#include "data_collect/data_collect_master/dcm_transport.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "support/corvane_fixture.h"
#include "unit/data_collect/dcm_objects.h"

namespace {

using dcm_objects::Parse;
using ::testing::Values;

constexpr int kCapacity = DCM_RESPONSE_CAPACITY;
constexpr std::chrono::seconds kBound{60};
const std::string kParseFailure = "Response maybe not JSON, or malloc failed?";
const std::string kAllTriesFailed = "retry 5 times, wait next timer period to retry.";

// What the seams below saw or are to do; each test starts with the defaults.
struct Seams {
    std::atomic<int> socketFd{-1};
    std::atomic<int> failOption{0};    ///< the option of that name fails
    std::atomic<int> timeoutMs{30000}; ///< instead of the 3 seconds, so that a loaded machine does not matter
    std::atomic<size_t> recvLimit{0};
    std::function<void()> beforeSend;
    std::function<void()> beforeRecv;
    std::function<void()> afterRecv;
    std::vector<std::pair<int, timeval>> options;
};
std::unique_ptr<Seams> g_seams;

int SeamSocket(int domain, int type, int protocol)
{
    const int fd = socket(domain, type, protocol);
    g_seams->socketFd = fd;
    return fd;
}

int SeamSetsockopt(int fd, int level, int name, const void *value, socklen_t length)
{
    EXPECT_EQ(level, SOL_SOCKET);
    EXPECT_EQ(length, sizeof(timeval));
    timeval time = {};
    std::memcpy(&time, value, sizeof(time));
    g_seams->options.emplace_back(name, time);
    if (name == g_seams->failOption) {
        errno = EDOM;
        return -1;
    }
    const int ms = g_seams->timeoutMs;
    time = {.tv_sec = ms / 1000, .tv_usec = ms % 1000 * 1000};
    return setsockopt(fd, level, name, &time, sizeof(time));
}

ssize_t SeamSend(int fd, const void *data, size_t size, int flags)
{
    if (g_seams->beforeSend) {
        g_seams->beforeSend();
    }
    return send(fd, data, size, flags);
}

ssize_t SeamRecv(int fd, void *data, size_t size, int flags)
{
    g_seams->recvLimit = size;
    if (g_seams->beforeRecv) {
        g_seams->beforeRecv();
    }
    const ssize_t received = recv(fd, data, size, flags);
    if (g_seams->afterRecv) {
        g_seams->afterRecv();
    }
    return received;
}

/** Reads until @p size bytes or the peer's end. */
std::string ReadUpTo(int fd, size_t size)
{
    std::string text;
    char buffer[16384];
    while (text.size() < size) {
        const ssize_t got = read(fd, buffer, std::min(sizeof(buffer), size - text.size()));
        if (got <= 0) {
            break;
        }
        text.append(buffer, static_cast<size_t>(got));
    }
    return text;
}

void WriteAll(int fd, const std::string &text)
{
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t sent = send(fd, text.data() + done, text.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) {
            return;
        }
        done += static_cast<size_t>(sent);
    }
}

/** Listens and serves a number of connections on a thread of its own; the handler closes what it is given. */
class Server {
public:
    using Handler = std::function<void(int fd)>;

    Server(const std::string &path, Handler handler, int connections = 1) : handler_(std::move(handler))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        EXPECT_LT(path.size(), sizeof(address.sun_path));
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        Listen(AF_UNIX, &address, sizeof(address), connections);
    }
    explicit Server(Handler handler, int connections = 1) : handler_(std::move(handler))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        Listen(AF_INET, &address, sizeof(address), connections);
        socklen_t length = sizeof(address);
        EXPECT_EQ(getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &length), 0);
        port_ = ntohs(address.sin_port);
    }
    ~Server() { Join(); }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    void Join()
    {
        if (thread_.joinable()) {
            thread_.join();
            close(fd_);
        }
    }
    [[nodiscard]] uint16_t Port() const { return port_; }

private:
    void Listen(int domain, const void *address, socklen_t length, int connections)
    {
        fd_ = socket(domain, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_GE(fd_, 0);
        ASSERT_EQ(bind(fd_, static_cast<const sockaddr *>(address), length), 0) << std::strerror(errno);
        ASSERT_EQ(listen(fd_, connections), 0);
        thread_ = std::thread([this, connections] {
            for (int i = 0; i < connections; i++) {
                pollfd event = {.fd = fd_, .events = POLLIN, .revents = 0};
                const int ready = poll(&event, 1, static_cast<int>(std::chrono::milliseconds(kBound).count()));
                if (ready != 1) {
                    ADD_FAILURE() << "nobody connected";
                    return;
                }
                handler_(accept(fd_, nullptr, nullptr));
            }
        });
    }

    Handler handler_;
    int fd_ = -1;
    uint16_t port_ = 0;
    std::thread thread_;
};

/** A server's handler that reads one request, answers with one write and closes. */
Server::Handler Answer(std::string response, std::string *request = nullptr)
{
    return [response = std::move(response), request](int fd) {
        char buffer[16384];
        const ssize_t got = read(fd, buffer, sizeof(buffer));
        if (request != nullptr && got > 0) {
            request->assign(buffer, static_cast<size_t>(got));
        }
        WriteAll(fd, response);
        close(fd);
    };
}

class TransportTest : public CorvaneTest {
protected:
    TransportTest()
    {
        g_seams = std::make_unique<Seams>();
        g_osCalls.socket = SeamSocket;
        g_osCalls.setsockopt = SeamSetsockopt;
        g_osCalls.send = SeamSend;
        g_osCalls.recv = SeamRecv;
    }
    ~TransportTest() override { g_seams.reset(); }

    [[nodiscard]] std::string Path() const { return Prefix() + "/s"; }
    [[nodiscard]] AgentInfo Agent() const
    {
        AgentInfo agent = {};
        std::strcpy(agent.name, "test_agent");
        const std::string path = Path();
        EXPECT_LE(path.size(), sizeof(agent.address.path));
        path.copy(agent.address.path, sizeof(agent.address.path));
        return agent;
    }
    static AgentInfo Ipv4Agent(const char *address, uint16_t port)
    {
        AgentInfo agent = {};
        std::strcpy(agent.name, "net_agent");
        agent.AgentType = AGENT_TYPE_IPV4;
        std::string_view(address).copy(agent.address.ipv4.ip, sizeof(agent.address.ipv4.ip));
        agent.address.ipv4.port = port;
        return agent;
    }
    static bool Error(const std::string &text) { return Logged(CORVANE_LOG_ERROR, "DCM", text); }
    static bool Debug(const std::string &text) { return Logged(CORVANE_LOG_DEBUG, "DCM", text); }
    static size_t Retries()
    {
        size_t count = 0;
        for (int i = 0; i < 10; i++) {
            count += LogCount(CORVANE_LOG_DEBUG, "DCM", "retry " + std::to_string(i) + " times.");
        }
        return count;
    }
    static bool IsOpen(int fd) { return fcntl(fd, F_GETFD) >= 0; }

    uint32_t Post(const AgentInfo &agent, const std::string &text)
    {
        return PostRequest(&agent, static_cast<uint32_t>(text.size() + 1), text.c_str(), &response_);
    }

    // One byte for the zero behind a full answer, and one that nobody may touch.
    std::vector<char> buffer_ = std::vector<char>(kCapacity + 2, '#');
    ResponseBuffer response_ = {.capacity = kCapacity, .buffer = buffer_.data()};
};

using AgentRecordsTest = CorvaneTest;

TEST_F(AgentRecordsTest, NameTheThreeAgents)
{
    EXPECT_STREQ(g_uniqueSpdkAgent.name, "unique_SPDK_agent");
    EXPECT_EQ(g_uniqueSpdkAgent.AgentType, 0u);
    EXPECT_STREQ(g_uniqueSpdkAgent.address.path, "/var/tmp/spdk.sock");
    EXPECT_STREQ(g_uniqueDcakAgent.name, "unique_DCAK_agent");
    EXPECT_EQ(g_uniqueDcakAgent.AgentType, 0u);
    EXPECT_STREQ(g_uniqueDcakAgent.address.path, "/tmp/dcak.sock");
    EXPECT_STREQ(g_uniqueDmaAgent.name, "unique_DMA_agent");
    EXPECT_EQ(g_uniqueDmaAgent.AgentType, 0u);
    EXPECT_STREQ(g_uniqueDmaAgent.address.path, "/var/tmp/spdk.sock");
}

using IsAgentEqualTest = CorvaneTest;

TEST_F(IsAgentEqualTest, ComparesNameTypeAndAddress)
{
    const AgentInfo agent = g_uniqueDcakAgent;
    AgentInfo otherName = agent;
    otherName.name[0] = 'U';
    AgentInfo otherLastOfName = agent;
    otherLastOfName.name[31] = 'x';
    AgentInfo otherType = agent;
    otherType.AgentType = AGENT_TYPE_IPV4;
    AgentInfo otherPath = agent;
    otherPath.address.path[0] = '.';
    AgentInfo otherLastOfAddress = agent;
    otherLastOfAddress.address.raw[31] = 1;
    const AgentInfo copy = agent;

    EXPECT_TRUE(IsAgentEqual(&agent, &agent));
    EXPECT_TRUE(IsAgentEqual(&agent, &copy));
    EXPECT_FALSE(IsAgentEqual(&agent, &otherName));
    EXPECT_FALSE(IsAgentEqual(&agent, &otherLastOfName));
    EXPECT_FALSE(IsAgentEqual(&agent, &otherType));
    EXPECT_FALSE(IsAgentEqual(&agent, &otherPath));
    EXPECT_FALSE(IsAgentEqual(&agent, &otherLastOfAddress));
    EXPECT_FALSE(IsAgentEqual(&g_uniqueSpdkAgent, &g_uniqueDmaAgent));
}

TEST_F(IsAgentEqualTest, NullIsUnequal)
{
    EXPECT_FALSE(IsAgentEqual(nullptr, &g_uniqueDcakAgent));
    EXPECT_FALSE(IsAgentEqual(&g_uniqueDcakAgent, nullptr));
    EXPECT_FALSE(IsAgentEqual(nullptr, nullptr));
}

using CastSizeToUint32Test = CorvaneTest;

TEST_F(CastSizeToUint32Test, KeepsWhatFits)
{
    EXPECT_EQ(CastSizeToUint32(0), 0u);
    EXPECT_EQ(CastSizeToUint32(4294967295u), 4294967295u);
    EXPECT_TRUE(Logs().empty());
}

TEST_F(CastSizeToUint32Test, GivesAllOnesForMore)
{
    EXPECT_EQ(CastSizeToUint32(4294967296u), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(CORVANE_LOG_DEBUG, "DCM", "size_t(4294967296) cast to uint32 overflow"));
}

using PostRequestTest = TransportTest;

TEST_F(PostRequestTest, BringsTheAnswerAndLogsBothWays)
{
    std::string request;
    Server server(Path(), Answer(R"({"answer":1})", &request));

    ASSERT_EQ(Post(Agent(), R"({"ask":1})"), 0u);
    server.Join();

    EXPECT_STREQ(response_.buffer, R"({"answer":1})");
    EXPECT_EQ(request, R"({"ask":1})") << "the terminator must not travel";
    EXPECT_TRUE(Debug(R"(post agent(test_agent) request==>{"ask":1})"));
    EXPECT_TRUE(Debug("send to " + Path() + R"(, message:{"ask":1})"));
    EXPECT_TRUE(Debug("send request size(9)"));
    EXPECT_TRUE(Debug("receive response size(12)"));
    EXPECT_TRUE(Debug(R"(post agent(test_agent) response==>{"answer":1})"));
    EXPECT_EQ(Retries(), 0u);
    EXPECT_FALSE(IsOpen(g_seams->socketFd));
}

TEST_F(PostRequestTest, ClearsTheBufferFirst)
{
    Server server(Path(), Answer("ab"));

    ASSERT_EQ(Post(Agent(), "x"), 0u);

    EXPECT_EQ(std::string(buffer_.data() + 2, kCapacity - 2), std::string(kCapacity - 2, '\0'));
    EXPECT_EQ(buffer_[kCapacity + 1], '#');
}

TEST_F(PostRequestTest, SetsBothTimeoutsToThreeSeconds)
{
    Server server(Path(), Answer("ab"));

    ASSERT_EQ(Post(Agent(), "x"), 0u);

    ASSERT_EQ(g_seams->options.size(), 2u);
    EXPECT_EQ(g_seams->options[0].first, SO_RCVTIMEO);
    EXPECT_EQ(g_seams->options[1].first, SO_SNDTIMEO);
    for (const auto &[name, time] : g_seams->options) {
        EXPECT_EQ(time.tv_sec, 3) << name;
        EXPECT_EQ(time.tv_usec, 0) << name;
    }
}

TEST_F(PostRequestTest, OpensTheSocketCloseOnExec)
{
    Server server(Path(), Answer("ab"));
    int flags = -1;
    g_seams->beforeSend = [&flags] { flags = fcntl(g_seams->socketFd, F_GETFD); };

    ASSERT_EQ(Post(Agent(), "x"), 0u);

    EXPECT_EQ(flags, FD_CLOEXEC);
}

TEST_F(PostRequestTest, GivesUpAtOnceWithoutASocketFile)
{
    EXPECT_EQ(Post(Agent(), "x"), 22u);

    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", "clientFd connect server failed, errno(2)"), 1u);
    EXPECT_EQ(Retries(), 0u);
    EXPECT_FALSE(IsOpen(g_seams->socketFd));
}

TEST_F(PostRequestTest, GivesUpAtOnceWhenNobodyListens)
{
    // given a socket file that outlived its server
    {
        Server server(Path(), Answer(""));
        EXPECT_EQ(Post(Agent(), "x"), 0u);
    }
    ClearLogs();

    EXPECT_EQ(Post(Agent(), "x"), 22u);

    EXPECT_TRUE(Error("clientFd connect server failed, errno(111)"));
    EXPECT_EQ(Retries(), 0u);
}

TEST_F(PostRequestTest, UsesAPathOfThirtyTwoCharactersWhole)
{
    const std::string path = Prefix() + "/" + std::string(31 - Prefix().size(), 'p');
    ASSERT_EQ(path.size(), 32u);
    AgentInfo agent = Agent();
    std::memcpy(agent.address.path, path.data(), path.size());
    Server server(path, Answer("ok"));

    ASSERT_EQ(Post(agent, "x"), 0u);

    EXPECT_TRUE(Debug("send to " + path + ", message:x"));
    EXPECT_STREQ(response_.buffer, "ok");
}

TEST_F(PostRequestTest, LogsANameOfThirtyTwoCharactersWithinItsBounds)
{
    AgentInfo agent = Agent();
    std::memset(agent.name, 'n', sizeof(agent.name));
    agent.AgentType = 7;

    EXPECT_EQ(Post(agent, "x"), 22u);

    EXPECT_TRUE(Debug("post agent(" + std::string(32, 'n') + ") request==>x"));
}

TEST_F(PostRequestTest, RefusesAnUnknownAgentType)
{
    AgentInfo agent = Agent();
    agent.AgentType = 2;

    EXPECT_EQ(Post(agent, "x"), 22u);

    EXPECT_TRUE(Error("AgentType do not match (2)."));
    EXPECT_EQ(g_seams->socketFd, -1);
}

TEST_F(PostRequestTest, RefusesNullArguments)
{
    const AgentInfo agent = Agent();
    ResponseBuffer none = {.capacity = 10, .buffer = nullptr};

    EXPECT_EQ(PostRequest(nullptr, 2, "x", &response_), 22u);
    EXPECT_EQ(PostRequest(&agent, 2, nullptr, &response_), 22u);
    EXPECT_EQ(PostRequest(&agent, 2, "x", nullptr), 22u);
    EXPECT_EQ(PostRequest(&agent, 2, "x", &none), 22u);
}

TEST_F(PostRequestTest, TakesAFullBufferAndPutsTheZeroBehindIt)
{
    const std::string text(kCapacity, 'r');
    Server server(Path(), Answer(text));

    ASSERT_EQ(Post(Agent(), "x"), 0u);

    EXPECT_EQ(std::string(response_.buffer), text);
    EXPECT_EQ(buffer_[kCapacity], '\0');
    EXPECT_EQ(buffer_[kCapacity + 1], '#');
    EXPECT_EQ(g_seams->recvLimit, static_cast<size_t>(kCapacity));
}

TEST_F(PostRequestTest, CutsALongerAnswerAtTheCapacity)
{
    Server server(Path(), Answer(std::string(kCapacity + 1000, 'r')));

    ASSERT_EQ(Post(Agent(), "x"), 0u);

    EXPECT_EQ(std::strlen(response_.buffer), static_cast<size_t>(kCapacity));
    EXPECT_TRUE(Debug("receive response size(8192)"));
    EXPECT_EQ(buffer_[kCapacity + 1], '#');
}

TEST_F(PostRequestTest, WaitsOutEveryTryOfASilentServer)
{
    // given a server that reads everything and never answers
    g_seams->timeoutMs = 20;
    std::string received;
    Server server(Path(), [&received](int fd) {
        received = ReadUpTo(fd, SIZE_MAX);
        close(fd);
    });

    EXPECT_EQ(Post(Agent(), "ask"), 32u);
    server.Join();

    EXPECT_EQ(received, "askaskaskaskask");
    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", "socket receive response from server failed, errno(11)"), 5u);
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(LogCount(CORVANE_LOG_DEBUG, "DCM", "retry " + std::to_string(i) + " times."), 1u) << i;
    }
    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", kAllTriesFailed), 1u);
    EXPECT_EQ(Retries(), 5u);
    EXPECT_FALSE(IsOpen(g_seams->socketFd));
}

TEST_F(PostRequestTest, SucceedsWhenALaterTryIsAnswered)
{
    // given a server that answers only after the second request, and four more time-outs to do so
    g_seams->timeoutMs = 500;
    Server server(Path(), [](int fd) {
        EXPECT_EQ(ReadUpTo(fd, 6), "askask");
        WriteAll(fd, "late");
        (void)ReadUpTo(fd, SIZE_MAX);
        close(fd);
    });

    EXPECT_EQ(Post(Agent(), "ask"), 0u);

    EXPECT_STREQ(response_.buffer, "late");
    EXPECT_GE(Retries(), 1u);
    EXPECT_FALSE(Error(kAllTriesFailed));
}

TEST_F(PostRequestTest, AServerThatClosesBeforeTheRequestGivesFiveFailures)
{
    std::promise<void> closed;
    Server server(Path(), [&closed](int fd) {
        close(fd);
        closed.set_value();
    });
    const std::shared_future<void> done = closed.get_future().share();
    g_seams->beforeSend = [done] { EXPECT_EQ(done.wait_for(kBound), std::future_status::ready); };

    EXPECT_EQ(Post(Agent(), "ask"), 32u);

    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", "socket send request to server failed, errno(32)"), 5u);
    EXPECT_EQ(Retries(), 5u);
    EXPECT_TRUE(Error(kAllTriesFailed));
    EXPECT_FALSE(IsOpen(g_seams->socketFd));
}

TEST_F(PostRequestTest, AServerThatClosesWithoutReadingGivesFiveFailures)
{
    // given a server that closes when the request lies unread in its socket
    std::promise<void> closed;
    Server server(Path(), [&closed](int fd) {
        pollfd event = {.fd = fd, .events = POLLIN, .revents = 0};
        EXPECT_EQ(poll(&event, 1, static_cast<int>(std::chrono::milliseconds(kBound).count())), 1);
        close(fd);
        closed.set_value();
    });
    const std::shared_future<void> done = closed.get_future().share();
    g_seams->beforeRecv = [done] { EXPECT_EQ(done.wait_for(kBound), std::future_status::ready); };

    EXPECT_EQ(Post(Agent(), "ask"), 32u);

    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", "socket receive response from server failed, errno(104)"), 1u);
    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", "socket send request to server failed, errno(32)"), 4u);
    EXPECT_EQ(Retries(), 5u);
    EXPECT_TRUE(Error(kAllTriesFailed));
}

TEST_F(PostRequestTest, AServerThatReadsAndClosesGivesTheEmptyAnswer)
{
    Server server(Path(), Answer(""));

    EXPECT_EQ(Post(Agent(), "ask"), 0u);

    EXPECT_STREQ(response_.buffer, "");
    EXPECT_TRUE(Debug("receive response size(0)"));
    EXPECT_EQ(Retries(), 0u);
}

TEST_F(PostRequestTest, ReportsAMissingSocket)
{
    g_osCalls.socket = [](int, int, int) {
        errno = EMFILE;
        return -1;
    };

    EXPECT_EQ(Post(Agent(), "x"), 22u);

    EXPECT_TRUE(Error("create client_fd failed."));
}

class SocketOptionTest : public TransportTest, public ::testing::WithParamInterface<int> {};

TEST_P(SocketOptionTest, AFailureLeavesTheDescriptorOpen)
{
    g_seams->failOption = GetParam();

    EXPECT_EQ(Post(Agent(), "x"), 38u);

    EXPECT_TRUE(Error("setSockOption failed."));
    ASSERT_TRUE(IsOpen(g_seams->socketFd));
    close(g_seams->socketFd);
}

INSTANTIATE_TEST_SUITE_P(Both, SocketOptionTest, Values(SO_RCVTIMEO, SO_SNDTIMEO));

using PostRequestWithSockFileTest = TransportTest;

TEST_F(PostRequestWithSockFileTest, TakesNoMoreOfThePathThanItsLength)
{
    Server server(Path(), Answer("ok"));
    const std::string longer = Path() + "-and-more";

    EXPECT_EQ(PostRequestWithSockFile(2, "x", static_cast<uint32_t>(Path().size()), longer.c_str(), &response_), 0u);

    EXPECT_STREQ(response_.buffer, "ok");
}

TEST_F(PostRequestWithSockFileTest, TakesTheLongestPathOfASocketAddress)
{
    const std::string path = Prefix() + "/" + std::string(106 - Prefix().size(), 'p');
    ASSERT_EQ(path.size(), 107u);
    Server server(path, Answer("ok"));

    EXPECT_EQ(PostRequestWithSockFile(2, "x", 107, path.c_str(), &response_), 0u);
}

TEST_F(PostRequestWithSockFileTest, RefusesALongerPath)
{
    const std::string path = Prefix() + "/" + std::string(107 - Prefix().size(), 'p');
    ASSERT_EQ(path.size(), 108u);

    EXPECT_EQ(PostRequestWithSockFile(2, "x", 108, path.c_str(), &response_), 34u);

    EXPECT_TRUE(Error("copy filed, errno(34)"));
    EXPECT_GE(g_seams->socketFd, 0);
    EXPECT_FALSE(IsOpen(g_seams->socketFd));
}

TEST_F(PostRequestWithSockFileTest, RefusesANullPath)
{
    EXPECT_EQ(PostRequestWithSockFile(2, "x", 1, nullptr, &response_), 22u);

    EXPECT_TRUE(Error("copy filed, errno(22)"));
    EXPECT_FALSE(IsOpen(g_seams->socketFd));
}

TEST_F(PostRequestWithSockFileTest, RefusesNullArguments)
{
    EXPECT_EQ(PostRequestWithSockFile(2, nullptr, 1, "/", &response_), 22u);
    EXPECT_EQ(PostRequestWithSockFile(2, "x", 1, "/", nullptr), 22u);
}

using PostRequestIpv4Test = TransportTest;

TEST_F(PostRequestIpv4Test, PassesTheAddressOfTheRecord)
{
    std::string request;
    Server server(Answer(R"({"answer":1})", &request));

    ASSERT_EQ(Post(Ipv4Agent("127.0.0.1", server.Port()), "ask"), 0u);
    server.Join();

    EXPECT_STREQ(response_.buffer, R"({"answer":1})");
    EXPECT_EQ(request, "ask");
    EXPECT_TRUE(Debug("send to 127.0.0.1:" + std::to_string(server.Port()) + ", message:ask"));
    EXPECT_TRUE(Debug(R"(post agent(net_agent) response==>{"answer":1})"));
    EXPECT_FALSE(IsOpen(g_seams->socketFd));
}

TEST_F(PostRequestIpv4Test, GivesUpAtOnceWhenNobodyListens)
{
    uint16_t port = 0;
    {
        Server server(Answer(""));
        port = server.Port();
        EXPECT_EQ(Post(Ipv4Agent("127.0.0.1", port), "x"), 0u);
    }

    EXPECT_EQ(Post(Ipv4Agent("127.0.0.1", port), "x"), 22u);

    EXPECT_TRUE(Error("clientFd connect server failed, errno(111)"));
    EXPECT_EQ(Retries(), 0u);
    EXPECT_FALSE(IsOpen(g_seams->socketFd));
}

TEST_F(PostRequestIpv4Test, RefusesWhatIsNoAddress)
{
    EXPECT_EQ(Post(Ipv4Agent("no address", 80), "x"), 22u);
    EXPECT_EQ(Post(Ipv4Agent("sixteen--letters", 80), "x"), 22u);
    EXPECT_FALSE(IsOpen(g_seams->socketFd));
}

TEST_F(PostRequestIpv4Test, ReportsMissingMemoryForThePort)
{
    g_corvaneInfra.memAlloc = [](uint64_t) -> void * { return nullptr; };

    EXPECT_EQ(Post(Ipv4Agent("127.0.0.1", 80), "x"), 12u);

    EXPECT_TRUE(Error("Convert uint to string failed."));
    EXPECT_EQ(g_seams->socketFd, -1);
}

TEST_F(PostRequestIpv4Test, FailsInTheStepsOfASocketFile)
{
    EXPECT_EQ(PostRequestWithIpv4(2, "x", 0, nullptr, 80, &response_), 22u);
    EXPECT_EQ(PostRequestWithIpv4(2, nullptr, 11, "127.0.0.1", 80, &response_), 22u);
    EXPECT_EQ(PostRequestWithIpv4(2, "x", 11, "127.0.0.1", 80, nullptr), 22u);

    g_seams->failOption = SO_SNDTIMEO;
    EXPECT_EQ(PostRequestWithIpv4(2, "x", 11, "127.0.0.1", 80, &response_), 38u);
    EXPECT_TRUE(Error("setSockOption failed."));
    ASSERT_TRUE(IsOpen(g_seams->socketFd));
    close(g_seams->socketFd);

    g_osCalls.socket = [](int, int, int) { return -1; };
    EXPECT_EQ(PostRequestWithIpv4(2, "x", 11, "127.0.0.1", 80, &response_), 22u);
    EXPECT_TRUE(Error("create client_fd failed."));
}

/** An exchange on one end of a pair; the test holds the other end. */
class SendAndReceiveWithSocketSessionTest : public TransportTest {
protected:
    SendAndReceiveWithSocketSessionTest()
    {
        int fds[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
        fd_.Reset(fds[0]);
        peer_.Reset(fds[1]);
    }
    UniqueFd fd_;
    UniqueFd peer_;
};

TEST_F(SendAndReceiveWithSocketSessionTest, SendsNoMoreThanTheRequestLength)
{
    WriteAll(peer_.Get(), "answer");

    ASSERT_EQ(SendAndReceiveWithSocketSession(fd_.Get(), 3, "request", &response_), 0u);
    shutdown(fd_.Get(), SHUT_WR);

    EXPECT_EQ(ReadUpTo(peer_.Get(), SIZE_MAX), "req");
    EXPECT_TRUE(Debug("send request size(3)"));
    EXPECT_STREQ(response_.buffer, "answer");
}

TEST_F(SendAndReceiveWithSocketSessionTest, SendsNoMoreThanTheText)
{
    WriteAll(peer_.Get(), "answer");

    ASSERT_EQ(SendAndReceiveWithSocketSession(fd_.Get(), 1000, "request", &response_), 0u);
    shutdown(fd_.Get(), SHUT_WR);

    EXPECT_EQ(ReadUpTo(peer_.Get(), SIZE_MAX), "request");
}

TEST_F(SendAndReceiveWithSocketSessionTest, TakesANegativeCapacityAsTheLargest)
{
    WriteAll(peer_.Get(), "answer");
    response_.capacity = -1;

    ASSERT_EQ(SendAndReceiveWithSocketSession(fd_.Get(), 2, "x", &response_), 0u);

    EXPECT_EQ(g_seams->recvLimit, 2147483647u);
    EXPECT_STREQ(response_.buffer, "answer");
}

TEST_F(SendAndReceiveWithSocketSessionTest, ReceivesOnce)
{
    WriteAll(peer_.Get(), "answer");
    response_.capacity = 3;

    ASSERT_EQ(SendAndReceiveWithSocketSession(fd_.Get(), 2, "x", &response_), 0u);

    EXPECT_STREQ(response_.buffer, "ans");
    EXPECT_EQ(buffer_[4], '#');
}

TEST_F(SendAndReceiveWithSocketSessionTest, FailsWithoutASignalWhenThePeerIsGone)
{
    peer_.Reset();

    EXPECT_EQ(SendAndReceiveWithSocketSession(fd_.Get(), 2, "x", &response_), 32u);

    EXPECT_TRUE(Error("socket send request to server failed, errno(32)"));
    EXPECT_EQ(Retries(), 0u);
}

TEST_F(SendAndReceiveWithSocketSessionTest, RefusesNullArguments)
{
    EXPECT_EQ(SendAndReceiveWithSocketSession(fd_.Get(), 2, nullptr, &response_), 22u);
    EXPECT_EQ(SendAndReceiveWithSocketSession(fd_.Get(), 2, "x", nullptr), 22u);
}

TEST_F(SendAndReceiveWithSocketSessionTest, RetriesFiveTimesOnTheSameSocket)
{
    peer_.Reset();

    EXPECT_EQ(SendAndReceiveRetryWithSocketSession(fd_.Get(), 2, "x", &response_), 32u);

    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", "socket send request to server failed, errno(32)"), 5u);
    EXPECT_EQ(Retries(), 5u);
    EXPECT_TRUE(Error(kAllTriesFailed));
    EXPECT_TRUE(IsOpen(fd_.Get()));
}

class PostRequestWithJSONTest : public TransportTest {
protected:
    CJsonPtr PostJson()
    {
        const AgentInfo agent = Agent();
        return CJsonPtr(PostRequestWithJSON(&agent, request_.get()));
    }
    CJsonPtr request_ = Parse(R"({ "jsonrpc" : "2.0", "method" : "m", "id" : 1 })");
};

TEST_F(PostRequestWithJSONTest, SendsTheRequestUnformattedAndParsesTheAnswer)
{
    std::string request;
    Server server(Path(), Answer(R"({"jsonrpc":"2.0","id":1,"result":{"disks":[]}})", &request));

    const CJsonPtr answer = PostJson();
    server.Join();

    ASSERT_NE(answer, nullptr);
    EXPECT_NE(cJSON_GetObjectItem(answer.get(), "result"), nullptr);
    EXPECT_EQ(request, R"({"jsonrpc":"2.0","method":"m","id":1})");
}

/** An answer of exactly @p size bytes. */
std::string JsonOfSize(size_t size)
{
    const std::string head = R"({"text":")";
    const std::string tail = R"("})";
    return head + std::string(size - head.size() - tail.size(), 'x') + tail;
}

TEST_F(PostRequestWithJSONTest, TakesAnAnswerOf8192Bytes)
{
    Server server(Path(), Answer(JsonOfSize(8192)));

    EXPECT_NE(PostJson(), nullptr);
}

TEST_F(PostRequestWithJSONTest, CannotParseAnAnswerOf8193Bytes)
{
    Server server(Path(), Answer(JsonOfSize(8193)));

    EXPECT_EQ(PostJson(), nullptr);

    EXPECT_TRUE(Error(kParseFailure));
    EXPECT_EQ(Retries(), 0u);
}

struct BadAnswer {
    const char *name;
    std::string text;
};

void PrintTo(const BadAnswer &c, std::ostream *os)
{
    *os << c.name;
}

class PostRequestWithJSONBadAnswerTest : public PostRequestWithJSONTest,
                                         public ::testing::WithParamInterface<BadAnswer> {};

TEST_P(PostRequestWithJSONBadAnswerTest, GivesNullWithoutARetry)
{
    Server server(Path(), Answer(GetParam().text));

    EXPECT_EQ(PostJson(), nullptr);

    EXPECT_EQ(LogCount(CORVANE_LOG_ERROR, "DCM", kParseFailure), 1u);
    EXPECT_EQ(Retries(), 0u);
    EXPECT_FALSE(IsOpen(g_seams->socketFd));
}

INSTANTIATE_TEST_SUITE_P(Answers, PostRequestWithJSONBadAnswerTest,
                         Values(BadAnswer{"empty", ""}, BadAnswer{"no json", "sokect ok"},
                                BadAnswer{"cut", R"({"jsonrpc":"2.0","id":1,"res)"},
                                BadAnswer{"zero byte first", std::string("\0{}", 3)},
                                BadAnswer{"binary", std::string("\xff\xfe\x00\x01\x80", 5)},
                                BadAnswer{"nested too deeply", std::string(8000, '[')},
                                BadAnswer{"far too long", JsonOfSize(100000)}));

TEST_F(PostRequestWithJSONTest, CannotParseAnAnswerThatArrivesInTwoPieces)
{
    // given a server whose second write comes after the one receive
    const std::string text = R"({"jsonrpc":"2.0","id":1,"result":{"disks":[]}})";
    std::promise<void> received;
    std::shared_future<void> afterRecv = received.get_future().share();
    Server server(Path(), [&text, afterRecv](int fd) {
        char request[64];
        EXPECT_GT(read(fd, request, sizeof(request)), 0);
        WriteAll(fd, text.substr(0, 20));
        EXPECT_EQ(afterRecv.wait_for(kBound), std::future_status::ready);
        WriteAll(fd, text.substr(20));
        close(fd);
    });
    g_seams->afterRecv = [&received] { received.set_value(); };

    EXPECT_EQ(PostJson(), nullptr);

    EXPECT_TRUE(Debug("receive response size(20)"));
    EXPECT_TRUE(Error(kParseFailure));
    EXPECT_EQ(Retries(), 0u);
}

TEST_F(PostRequestWithJSONTest, ReportsAFailedPost)
{
    EXPECT_EQ(PostJson(), nullptr);

    EXPECT_TRUE(Error("Post Request failed(22)."));
    EXPECT_FALSE(Error(kParseFailure));
}

TEST_F(PostRequestWithJSONTest, ReportsARequestThatCannotBePrinted)
{
    request_.reset();

    EXPECT_EQ(PostJson(), nullptr);

    EXPECT_TRUE(Error("Create requestJSON String failed. maybe malloc fail?"));
}

TEST_F(PostRequestWithJSONTest, ReportsMissingMemoryForTheAnswer)
{
    g_corvaneInfra.memAlloc = [](uint64_t) -> void * { return nullptr; };

    EXPECT_EQ(PostJson(), nullptr);

    EXPECT_TRUE(Error("malloc response memory failed."));
    EXPECT_EQ(g_seams->socketFd, -1);
}

TEST_F(PostRequestWithJSONTest, ServesManyThreadsAtOnce)
{
    // given a server that answers each request with itself
    constexpr int kThreads = 8;
    constexpr int kRequests = 10;
    g_osCalls.setsockopt = [](int, int, int, const void *, socklen_t) { return 0; };
    Server server(
        Path(),
        [](int fd) {
            char request[64];
            const ssize_t got = read(fd, request, sizeof(request));
            EXPECT_GT(got, 0);
            WriteAll(fd, std::string(request, static_cast<size_t>(std::max<ssize_t>(got, 0))));
            close(fd);
        },
        kThreads * kRequests);
    const AgentInfo agent = Agent();
    std::atomic<int> matched{0};

    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; t++) {
        threads.emplace_back([&agent, &matched, t] {
            for (int i = 0; i < kRequests; i++) {
                const CJsonPtr request(cJSON_CreateNumber(t * 100 + i));
                const CJsonPtr answer(PostRequestWithJSON(&agent, request.get()));
                matched += cJSON_Compare(request.get(), answer.get(), 1);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }

    EXPECT_EQ(matched, kThreads * kRequests);
}

} // namespace
