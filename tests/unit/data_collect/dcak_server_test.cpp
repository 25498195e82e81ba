#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_server.h"

#include <array>
#include <condition_variable>
#include <grp.h>
#include <mutex>
#include <netinet/in.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

#include "unit/data_collect/dcak_fixture.h"

namespace {

void *NoMemory(size_t)
{
    return nullptr;
}

int ThreadAgain(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)
{
    return EAGAIN;
}

int ThreadNegative(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)
{
    return -1;
}

void *(*g_startedBody)(void *) = nullptr;
int g_detachState = -1;
int RecordThread(pthread_t *, const pthread_attr_t *attributes, void *(*body)(void *), void *)
{
    g_startedBody = body;
    (void)pthread_attr_getdetachstate(attributes, &g_detachState);
    return 0;
}

int NoSocket(int, int, int)
{
    errno = EMFILE;
    return -1;
}

int ChownFails(const char *, uid_t, gid_t)
{
    return -1;
}

int ChmodFails(const char *, mode_t)
{
    return -1;
}

int UserIsRoot(const char *, struct passwd *entry, char *, size_t, struct passwd **result)
{
    *entry = {};
    *result = entry;
    return 0;
}

int GroupIsOurs(const char *, struct group *entry, char *, size_t, struct group **result)
{
    *entry = {};
    entry->gr_gid = getgid();
    *result = entry;
    return 0;
}

int NoUser(const char *, struct passwd *, char *, size_t, struct passwd **result)
{
    *result = nullptr;
    return 0;
}

int NoGroup(const char *, struct group *, char *, size_t, struct group **result)
{
    *result = nullptr;
    return 0;
}

std::string ReadAll(int fd)
{
    std::string text;
    std::array<char, 4096> buffer;
    ssize_t got;
    while ((got = read(fd, buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<size_t>(got));
    }
    return text;
}

int Connect(const char *path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    if (connect(fd, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) != 0) {
        (void)close(fd);
        return -1;
    }
    return fd;
}

/** Waits until @p holds is true; at most ten seconds. */
bool Eventually(const std::function<bool()> &holds)
{
    for (int i = 0; i < 1000; i++) {
        if (holds()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

} // namespace

class ParseReqAndResponseTest : public DcakTest {
protected:
    static std::string Respond(const std::string &request)
    {
        char *text = nullptr;
        const uint32_t result = ParseReqAndResponse(request.c_str(), &text);
        const CJsonText owner(text);
        EXPECT_EQ(result == 0, text != nullptr);
        return text != nullptr ? text : "none";
    }
};

TEST_F(ParseReqAndResponseTest, NoMethodGivesNoDisks)
{
    EXPECT_EQ(Respond(R"({"id":7})"), R"({"jsonrpc":"2.0","id":7,"result":{"disks":[]}})");
    EXPECT_EQ(Respond(R"({"id":7,"method":5})"), R"({"jsonrpc":"2.0","id":7,"result":{"disks":[]}})");
    EXPECT_EQ(Respond("[]"), R"({"jsonrpc":"2.0","id":0,"result":{"disks":[]}})");
}

TEST_F(ParseReqAndResponseTest, UnknownMethodAnswersInItsOwnWords)
{
    EXPECT_EQ(Respond(R"({"method":"x"})"), R"({"jsonrpc":"2.0","id":0,"result":{"result":"sokect ok"}})");

    EXPECT_TRUE(Logged(3, "DCAK", "Error: no matched method"));
}

TEST_F(ParseReqAndResponseTest, IdAndMethodAreFoundByExactNameOnly)
{
    EXPECT_EQ(Respond(R"({"ID":7,"Method":"x"})"), R"({"jsonrpc":"2.0","id":0,"result":{"disks":[]}})");
    EXPECT_EQ(Respond(R"({"id":"7"})"), R"({"jsonrpc":"2.0","id":0,"result":{"disks":[]}})");
    EXPECT_EQ(Respond(R"({"id":7.9})"), R"({"jsonrpc":"2.0","id":7,"result":{"disks":[]}})");
    EXPECT_EQ(Respond(R"({"id":4294967295})"), R"({"jsonrpc":"2.0","id":4294967295,"result":{"disks":[]}})");
    EXPECT_EQ(Respond(R"({"id":1e300})"), R"({"jsonrpc":"2.0","id":0,"result":{"disks":[]}})");
}

TEST_F(ParseReqAndResponseTest, UnparsableRequestHasNoResponse)
{
    EXPECT_EQ(Respond(R"({"id":x})"), "none");
    EXPECT_EQ(Respond(""), "none");

    EXPECT_TRUE(Logged(3, "DCAK", "Error before: x}\n"));
}

TEST_F(ParseReqAndResponseTest, EachMethodReachesItsHandler)
{
    PlanVersion("2.38.1");
    PlanTool(std::string(kListCommand) + " -J", R"({"blockdevices":[]})");

    EXPECT_EQ(Respond(R"({"id":1,"method":"dca_get_disks_brief_info"})"),
              R"({"jsonrpc":"2.0","id":1,"result":{"disks":[]}})");
    EXPECT_EQ(TimesRun(std::string(kListCommand) + " -J"), 1u);
    (void)Respond(R"({"id":1,"method":"dca_get_disks_base_info","params":{"devices":[]}})");
    EXPECT_TRUE(Logged(7, "DCAK", "DcakGetDiskBaseInfo exec over, devListLen is 0"));
    (void)Respond(R"({"id":1,"method":"dca_get_disks_health_info","params":{"devices":[]}})");
    EXPECT_TRUE(Logged(7, "DCAK", "DcakGetDiskHealthInfo ok, devListLen is 0"));
    EXPECT_THAT(Respond(R"({"id":1,"method":"dca_get_disks_iostat","params":{"devices":[],"period":"20"}})"),
                ::testing::HasSubstr(R"("result":{"tick_rate":")"));
    EXPECT_EQ(Respond(R"({"id":1,"method":"dca_get_disks_slotid"})"),
              R"({"jsonrpc":"2.0","id":1,"result":{"disks":[]}})");
}

TEST_F(ParseReqAndResponseTest, FailedHandlerLooksLikeNoDisks)
{
    EXPECT_EQ(Respond(R"({"id":1,"method":"dca_get_disks_health_info","params":{"devices":["a;b"]}})"),
              R"({"jsonrpc":"2.0","id":1,"result":{"disks":[]}})");
}

TEST_F(ParseReqAndResponseTest, DebugSwitchShowsTheResponse)
{
    EXPECT_EQ(Respond(R"({"method":"debug_switch"})"),
              R"({"jsonrpc":"2.0","id":0,"result":{"result":"debug stat change"}})");
    EXPECT_TRUE(Logged(5, "DCAK", "debug status is 1"));

    const std::string response = Respond(R"({"id":7})");

    EXPECT_TRUE(Logged(7, "DCAK", "ParseReqAndResponse over resLen is " + std::to_string(response.size())));
    EXPECT_TRUE(Logged(7, "DCAK", "res is " + response));
    (void)Respond(R"({"method":"debug_switch"})");
    EXPECT_TRUE(Logged(5, "DCAK", "debug status is 0"));
    EXPECT_EQ(g_DCAK_DEBUG_SWITCH, 0u);
}

TEST_F(ParseReqAndResponseTest, LinkErrorAnswersEveryMethodUntilItIsSwitchedBack)
{
    const std::string linkErr = R"({"jsonrpc":"2.0","id":0,"result":{"result":"link err"}})";

    EXPECT_EQ(Respond(R"({"method":"dcak_link_status_switch"})"),
              R"({"jsonrpc":"2.0","id":0,"result":{"result":"link stat change"}})");
    EXPECT_EQ(g_dcakLinkErr, 1u);
    EXPECT_EQ(Respond(R"({"method":"dca_get_disks_brief_info"})"), linkErr);
    EXPECT_EQ(Respond(R"({"method":"x"})"), linkErr);
    EXPECT_EQ(Respond(R"({"method":"debug_switch"})"), linkErr);
    EXPECT_EQ(g_DCAK_DEBUG_SWITCH, 0u);
    EXPECT_EQ(Respond("{}"), R"({"jsonrpc":"2.0","id":0,"result":{"disks":[]}})");
    (void)Respond(R"({"method":"dcak_link_status_switch"})");

    EXPECT_EQ(g_dcakLinkErr, 0u);
    EXPECT_THAT(Respond(R"({"method":"x"})"), ::testing::HasSubstr("sokect ok"));
    EXPECT_TRUE(Logged(5, "DCAK", "link status is 1"));
    EXPECT_TRUE(Logged(5, "DCAK", "link status is 0"));
    EXPECT_EQ(LogCount(5, "DCAK", "link err open"), 3u);
}

TEST_F(ParseReqAndResponseTest, DebugProcessLeavesOthersUnanswered)
{
    const CJsonPtr method(cJSON_CreateString("x"));
    cJSON *result = nullptr;

    EXPECT_EQ(DcakDebugProcess(method.get(), &result), 0u);

    EXPECT_EQ(result, nullptr);
}

class DcakHandleClientTest : public DcakTest {
protected:
    /** Sends @p request to a handler on a connected pair. */
    static std::string Exchange(const std::string &request)
    {
        int pair[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
        EXPECT_EQ(send(pair[0], request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
        auto *pointer = static_cast<int *>(std::malloc(sizeof(int)));
        *pointer = pair[1];
        EXPECT_EQ(DcakHandleClient(pointer), nullptr);
        std::string answer = ReadAll(pair[0]);
        (void)close(pair[0]);
        return answer;
    }
    static std::string RequestOf(size_t size)
    {
        std::string request = R"({"id":7,"pad":""})";
        request.insert(request.size() - 2, size - request.size(), 'x');
        return request;
    }
};

TEST_F(DcakHandleClientTest, RequestOf3071BytesFits)
{
    const std::string request = RequestOf(3071);
    ASSERT_EQ(request.size(), 3071u);

    EXPECT_EQ(Exchange(request), R"({"jsonrpc":"2.0","id":7,"result":{"disks":[]}})");
}

TEST_F(DcakHandleClientTest, RequestOf3072BytesIsCutAndNotAnswered)
{
    EXPECT_EQ(Exchange(RequestOf(3072)), "");

    EXPECT_TRUE(Logged(3, "DCAK", "responseStr is null"));
}

TEST_F(DcakHandleClientTest, PeerThatHasGoneIsHarmless)
{
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    ASSERT_EQ(send(pair[0], "{}", 2, 0), 2);
    (void)close(pair[0]);
    auto *pointer = static_cast<int *>(std::malloc(sizeof(int)));
    *pointer = pair[1];

    EXPECT_EQ(DcakHandleClient(pointer), nullptr);

    EXPECT_EQ(fcntl(pair[1], F_GETFD), -1) << "the connection stays open";
}

class DcakSockProcessTest : public DcakTest {
protected:
    DcakSockProcessTest() : path_(Root() + "/s")
    {
        listener_.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        address_.sun_family = AF_UNIX;
        std::strncpy(address_.sun_path, path_.c_str(), sizeof(address_.sun_path) - 1);
        EXPECT_EQ(bind(listener_.Get(), reinterpret_cast<struct sockaddr *>(&address_), sizeof(address_)), 0);
        EXPECT_EQ(listen(listener_.Get(), 5), 0);
        client_.Reset(Connect(path_.c_str()));
    }
    void Process()
    {
        struct sockaddr_un peer = {};
        DcakSockProcess(listener_.Get(), reinterpret_cast<struct sockaddr *>(&peer), sizeof(peer));
    }
    std::string path_;
    struct sockaddr_un address_ = {};
    UniqueFd listener_;
    UniqueFd client_;
};

TEST_F(DcakSockProcessTest, FailedAcceptEndsTheLoop)
{
    listener_.Reset();

    Process();

    EXPECT_TRUE(Logged(3, "DCAK", "ERROR on accept"));
}

TEST_F(DcakSockProcessTest, NoMemoryClosesTheClientAndEndsTheLoop)
{
    g_osCalls.malloc = NoMemory;

    Process();

    EXPECT_TRUE(Logged(3, "DCAK", "malloc mem failed"));
    EXPECT_EQ(ReadAll(client_.Get()), "");
}

TEST_F(DcakSockProcessTest, RefusedThreadClosesTheClientAndEndsTheLoop)
{
    g_osCalls.threadCreate = ThreadAgain;

    Process();

    EXPECT_TRUE(Logged(3, "DCAK", "ERROR creating thread"));
    EXPECT_EQ(ReadAll(client_.Get()), "");
}

using DcakSetGroupUserPermissonTest = DcakTest;

TEST_F(DcakSetGroupUserPermissonTest, EachFailureHasItsText)
{
    const std::string file = Root() + "/f";
    WriteFile(file, "");
    const std::string rest = " usr:u, group:g, file:" + file;

    g_osCalls.getpwnam_r = NoUser;
    EXPECT_EQ(DcakSetGroupUserPermisson(file.c_str(), "g", "u"), -1);
    EXPECT_TRUE(Logged(3, "DCAK", "get user_info faild" + rest));
    g_osCalls.getpwnam_r = UserIsRoot;
    g_osCalls.getgrnam_r = NoGroup;
    EXPECT_EQ(DcakSetGroupUserPermisson(file.c_str(), "g", "u"), -1);
    EXPECT_TRUE(Logged(3, "DCAK", "get group_info faild" + rest));
    g_osCalls.getgrnam_r = GroupIsOurs;
    g_osCalls.chown = ChownFails;
    EXPECT_EQ(DcakSetGroupUserPermisson(file.c_str(), "g", "u"), -1);
    EXPECT_TRUE(Logged(3, "DCAK", "chown faild" + rest));
    g_osCalls.chown = chown;
    g_osCalls.chmod = ChmodFails;
    EXPECT_EQ(DcakSetGroupUserPermisson(file.c_str(), "g", "u"), -1);
    EXPECT_TRUE(Logged(3, "DCAK", "chmod faild" + rest));
    g_osCalls.chmod = chmod;
    EXPECT_EQ(DcakSetGroupUserPermisson(file.c_str(), "g", "u"), 0);
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & ALLPERMS, 0660u);
}

class DcakInitSocketSeverTest : public DcakTest {
protected:
    DcakInitSocketSeverTest()
    {
        PlanVersion("2.38.1");
        g_startedBody = nullptr;
        g_osCalls.threadCreate = RecordThread;
        g_osCalls.unlink = RecordUnlink;
        unlinked_.clear();
    }
    static int RecordUnlink(const char *path)
    {
        unlinked_ = path;
        return 0;
    }
    static inline std::string unlinked_;
};

TEST_F(DcakInitSocketSeverTest, ServesTheSocketFileByDefault)
{
    EXPECT_EQ(DcakInitSocketSever(), 0u);

    EXPECT_STREQ(g_DCAK_SERVER.name, "DCAK_SERVER");
    EXPECT_EQ(g_DCAK_SERVER.type, 0u);
    EXPECT_STREQ(g_DCAK_SERVER.address, "/tmp/dcak.sock");
    EXPECT_EQ(unlinked_, "/tmp/dcak.sock");
    EXPECT_EQ(g_startedBody, DcakSocketServerRunWithFile);
    EXPECT_EQ(g_detachState, PTHREAD_CREATE_DETACHED);
}

TEST_F(DcakInitSocketSeverTest, ServesIpv4AndLeavesOtherTypesAlone)
{
    g_DCAK_SERVER.type = DCAK_SERVER_IPV4;
    EXPECT_EQ(DcakInitSocketSever(), 0u);
    EXPECT_EQ(g_startedBody, DcakSocketServerRun);

    g_startedBody = nullptr;
    g_DCAK_SERVER.type = 2;
    EXPECT_EQ(DcakInitSocketSever(), 0u);
    EXPECT_EQ(g_startedBody, nullptr);
    EXPECT_EQ(unlinked_, "");
}

TEST_F(DcakInitSocketSeverTest, OldLsblkIsRefused)
{
    PlanVersion("2.23.1");

    EXPECT_EQ(DcakInitSocketSever(), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "lsblk verison not match"));
    EXPECT_EQ(g_startedBody, nullptr);
}

TEST_F(DcakInitSocketSeverTest, OnlyANegativeThreadResultCounts)
{
    g_osCalls.threadCreate = ThreadNegative;
    EXPECT_EQ(DcakInitSocketSever(), 0xFFFFFFFFu);
    EXPECT_TRUE(Logged(3, "DCAK", "ERROR creating thread"));

    g_osCalls.threadCreate = ThreadAgain;
    EXPECT_EQ(DcakInitSocketSever(), 0u);
}

using DcakSocketServerTest = DcakTest;

TEST_F(DcakSocketServerTest, FailuresOfTheSocketAreTold)
{
    DcakServerInfo info = {};
    std::strcpy(info.address, "/nowhere/dcak.sock");
    EXPECT_EQ(DcakSocketServerRunWithFile(&info), nullptr);
    std::strcpy(info.address, "203.0.113.1"); // no address of this machine
    EXPECT_EQ(DcakSocketServerRun(&info), nullptr);
    EXPECT_EQ(LogCount(3, "DCAK", "ERROR on binding"), 2u);

    g_osCalls.socket = NoSocket;
    EXPECT_EQ(DcakSocketServerRunWithFile(&info), nullptr);
    EXPECT_EQ(DcakSocketServerRun(&info), nullptr);
    EXPECT_EQ(LogCount(3, "DCAK", "ERROR opening socket"), 2u);
}

/**
 * The real socket path, in a mount namespace of one thread: /tmp is empty there and the accounts are chosen. The
 * listener that this thread starts inherits the namespace.
 */
class DcakServeTest : public DcakTest {
protected:
    DcakServeTest() { PlanVersion("2.38.1"); }

    void InNamespace(bool withGroup, const std::function<void()> &body)
    {
        std::string group = ReadFile("/etc/group");
        std::string kept;
        for (size_t at = 0; at < group.size();) {
            const size_t end = std::min(group.find('\n', at), group.size() - 1) + 1;
            const std::string line = group.substr(at, end - at);
            kept += line.starts_with("corvane_group:") ? "" : line;
            at = end;
        }
        kept += withGroup ? "corvane_group:x:54321:\n" : "";
        std::thread thread([&] {
            ASSERT_EQ(unshare(CLONE_NEWNS), 0) << "needs root";
            ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
            ASSERT_EQ(mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777"), 0);
            WriteFile("/tmp/group", kept);
            ASSERT_EQ(mount("/tmp/group", "/etc/group", nullptr, MS_BIND, nullptr), 0);
            body();
        });
        thread.join();
    }
    static bool Accepts()
    {
        struct stat status = {};
        return stat("/tmp/dcak.sock", &status) == 0 && (status.st_mode & ALLPERMS) == 0660 && status.st_gid == 54321;
    }
    static std::string Ask(const std::string &request)
    {
        const UniqueFd fd(Connect("/tmp/dcak.sock"));
        EXPECT_TRUE(fd.Valid());
        EXPECT_EQ(send(fd.Get(), request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
        return ReadAll(fd.Get());
    }
};

TEST_F(DcakServeTest, AnswersOnTheSocketOfRightModeAndOwner)
{
    InNamespace(true, [] {
        WriteFile("/tmp/dcak.sock", "left by a former run");

        ASSERT_EQ(DcakInitSocketSever(), 0u);

        ASSERT_TRUE(Eventually(Accepts));
        struct stat status = {};
        ASSERT_EQ(stat("/tmp/dcak.sock", &status), 0);
        EXPECT_TRUE(S_ISSOCK(status.st_mode));
        EXPECT_EQ(status.st_uid, 0u);
        EXPECT_EQ(Ask(R"({"id":7})"), R"({"jsonrpc":"2.0","id":7,"result":{"disks":[]}})");
        EXPECT_EQ(Ask(R"({"id":8,"method":"x"})"), R"({"jsonrpc":"2.0","id":8,"result":{"result":"sokect ok"}})");
        EXPECT_EQ(Ask(R"({"id":)"), "");
        // The handler tells so after it has closed.
        EXPECT_TRUE(Eventually([] { return Logged(3, "DCAK", "responseStr is null"); }));
    });
}

TEST_F(DcakServeTest, ManyClientsAtATime)
{
    InNamespace(true, [] {
        ASSERT_EQ(DcakInitSocketSever(), 0u);
        ASSERT_TRUE(Eventually(Accepts));
        std::vector<UniqueFd> clients;
        for (int i = 0; i < 16; i++) {
            clients.emplace_back(Connect("/tmp/dcak.sock"));
            ASSERT_TRUE(clients.back().Valid());
        }

        // The last one is served first: each has a thread of its own.
        for (int i = 15; i >= 0; i--) {
            const std::string request =
                i % 2 == 0 ? R"({"method":"debug_switch"})" : R"({"method":"dcak_link_status_switch"})";
            ASSERT_EQ(send(clients[i].Get(), request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
        }
        for (const UniqueFd &client : clients) {
            EXPECT_THAT(ReadAll(client.Get()),
                        ::testing::StartsWith(R"({"jsonrpc":"2.0","id":0,"result":{"result":")"));
        }

        EXPECT_EQ(__atomic_load_n(&g_dcakLinkErr, __ATOMIC_RELAXED), 0u) << "eight flips";
    });
}

TEST_F(DcakServeTest, WithoutTheGroupClientsFailAtOnce)
{
    InNamespace(false, [] {
        ASSERT_EQ(DcakInitSocketSever(), 0u);

        EXPECT_TRUE(Eventually([] { return Logged(3, "DCAK", "DcakSetGroupUserPermisson ERR"); }));
        EXPECT_TRUE(Logged(3, "DCAK", "get group_info faild usr:root, group:corvane_group, file:/tmp/dcak.sock"));
        EXPECT_TRUE(Eventually([] {
            const UniqueFd fd(Connect("/tmp/dcak.sock"));
            return !fd.Valid() && errno == ECONNREFUSED;
        }));
    });
}

TEST_F(DcakServeTest, Ipv4ServerAnswers)
{
    // A port that is free at this moment.
    UniqueFd probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ASSERT_EQ(bind(probe.Get(), reinterpret_cast<struct sockaddr *>(&address), length), 0);
    ASSERT_EQ(getsockname(probe.Get(), reinterpret_cast<struct sockaddr *>(&address), &length), 0);
    static DcakServerInfo info = {};
    std::strcpy(info.address, "127.0.0.1");
    info.port = ntohs(address.sin_port);
    probe.Reset();

    std::thread(DcakSocketServerRun, &info).detach();

    UniqueFd client;
    ASSERT_TRUE(Eventually([&] {
        client.Reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        return connect(client.Get(), reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) == 0;
    }));
    ASSERT_EQ(send(client.Get(), "{\"id\":3}", 8, 0), 8);
    EXPECT_EQ(ReadAll(client.Get()), R"({"jsonrpc":"2.0","id":3,"result":{"disks":[]}})");
}
