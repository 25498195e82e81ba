// Who may do what, with peers that are processes of other users, at a server that runs as the service's account.
#include <sys/wait.h>

#include "cli_server_test_support.h"

using namespace CORVANE_CLI;
using ::testing::Contains;

namespace {

constexpr gid_t kServiceGroupId = 64901;

bool WriteAll(int fd, const std::string &bytes)
{
    const auto size = static_cast<uint32_t>(bytes.size());
    return SendAll(fd, std::string(reinterpret_cast<const char *>(&size), sizeof(size)) + bytes);
}

bool ReadAll(int fd, std::string &bytes)
{
    uint32_t size = 0;
    if (recv(fd, &size, sizeof(size), MSG_WAITALL) != static_cast<ssize_t>(sizeof(size))) {
        return false;
    }
    bytes.resize(size);
    return size == 0 || recv(fd, bytes.data(), size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

/** A process of another user that talks to the server when it is told to. Made before any thread. */
class Peer {
public:
    /** @param groups Its supplementary groups, which decide whether it reaches the socket. */
    Peer(const TestAccount &user, const std::vector<gid_t> &groups)
    {
        int fds[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
        pid_ = fork();
        if (pid_ == 0) {
            (void)close(fds[0]);
            const bool is =
                setgroups(groups.size(), groups.data()) == 0 && setgid(user.gid) == 0 && setuid(user.uid) == 0;
            _exit(is && Serve(fds[1]) ? 0 : 1);
        }
        (void)close(fds[1]);
        control_ = UniqueFd(fds[0]);
    }
    ~Peer()
    {
        (void)shutdown(control_.Get(), SHUT_RDWR); // closing alone would not do: later peers have a copy
        int status = -1;
        EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
        EXPECT_EQ(status, 0);
    }
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    /** Connects and sends. @return what came back; "(no connection)" if there was none. */
    std::string Ask(const std::string &path, const std::string &first, const std::string &second = "") const
    {
        EXPECT_TRUE(WriteAll(control_.Get(), path) && WriteAll(control_.Get(), first) &&
                    WriteAll(control_.Get(), second));
        std::string answer;
        EXPECT_TRUE(ReadAll(control_.Get(), answer));
        return answer;
    }

private:
    static bool Serve(int control)
    {
        std::string path;
        while (ReadAll(control, path)) {
            std::string first;
            std::string second;
            if (!ReadAll(control, first) || !ReadAll(control, second)) {
                return false;
            }
            const UniqueFd client = Connect(path);
            std::string answer = "(no connection)";
            if (client.Valid()) {
                (void)SendAll(client.Get(), first);
                (void)SendAll(client.Get(), second); // which the server may not wait for
                (void)shutdown(client.Get(), SHUT_WR);
                answer = ReceiveAll(client.Get());
            }
            if (!WriteAll(control, answer)) {
                return false;
            }
        }
        return true;
    }

    pid_t pid_ = -1;
    UniqueFd control_;
};

} // namespace

class CliRightsTest : public CliServerTest {
protected:
    static void SetUpTestSuite()
    {
        if (std::getenv("CLI_TEST_FRESH") != nullptr) {
            ASSERT_EQ(EnterCliAccounts(), "");
        }
    }
    /** From here on this process is the service. */
    void StartAsService()
    {
        ASSERT_EQ(chown(Prefix().c_str(), kServiceAccount.uid, kServiceAccount.gid), 0);
        ASSERT_EQ(chown("/tmp/accounts-group", kServiceAccount.uid, kServiceAccount.gid), 0);
        for (const auto &entry : std::filesystem::recursive_directory_iterator(Prefix())) {
            ASSERT_EQ(chown(entry.path().c_str(), kServiceAccount.uid, kServiceAccount.gid), 0);
        }
        ASSERT_EQ(chmod(Prefix().c_str(), 0755), 0);
        ASSERT_TRUE(Become(kServiceAccount));
        Start();
    }
    static std::string Probed(const std::string &action, const std::string &user)
    {
        return AnswerBytes(0, "probe|action=" + action + " a=1 userName=" + user, action, kServiceAccount.name);
    }
    /** Asks the probe; again while another command runs. */
    std::string AskProbe(const Peer &peer, const std::string &action, const std::string &user) const
    {
        const std::string busy = AnswerXml(CLI_TASK_MAX_ERROR, "null");
        std::string answer;
        (void)WaitFor([&] {
            answer = peer.Ask(SocketPath(), Message(RequestXml(action + " probe a=1"), action, user));
            return DocumentOf(answer) != busy;
        });
        return answer;
    }
    /** A request that takes two packets. */
    static std::string LongRequest() { return Image(RequestXml("show probe a=" + std::string(0x100000, 'v'))); }
    static std::string FirstPacket(const std::string &user, const std::string &action)
    {
        const std::string image = LongRequest();
        return Packet(2, 0, static_cast<uint32_t>(image.size()), user, action, image.substr(0, 0x100000));
    }
    static std::string SecondPacket(const std::string &user, const std::string &action)
    {
        const std::string image = LongRequest();
        return Packet(2, 1, static_cast<uint32_t>(image.size()), user, action, image.substr(0x100000));
    }
};

TEST_F(CliRightsTest, GoByTheAccountOfThePeer)
{
    IN_A_PROCESS_OF_ITS_OWN();
    const struct {
        const TestAccount &user;
        std::vector<gid_t> groups;
        bool reads;
        bool changes;
    } rows[] = {{kRootAccount, {}, true, true},
                {kServiceAccount, {}, true, true},
                {kPrimaryMember, {}, true, false},
                {kExtraMember, {kServiceGroupId}, true, false},
                // Their processes reach the socket, their accounts have no rights.
                {kStranger, {kServiceGroupId}, false, false},
                {kGroupless, {kServiceGroupId}, false, false},
                {kUnknown, {kServiceGroupId}, false, false}};
    std::vector<std::unique_ptr<Peer>> peers;
    for (const auto &row : rows) {
        peers.push_back(std::make_unique<Peer>(row.user, row.groups));
    }
    StartAsService();
    ASSERT_EQ(ModeOf(SocketPath()), 0660u);
    ASSERT_EQ(OwnerOf(SocketPath()), kServiceAccount.uid);
    ASSERT_EQ(GroupOf(SocketPath()), kServiceAccount.gid);

    int runs = 0;
    for (size_t i = 0; i < std::size(rows); i++) {
        const std::string name = rows[i].user.name;
        for (const char *action : {"show", "help", "change", "shows", "sho"}) {
            const bool isRead = std::string(action) == "show" || std::string(action) == "help";
            const bool allowed = isRead ? rows[i].reads : rows[i].changes;
            // What the peer calls itself counts for nothing but the text of the request.
            for (const std::string &claimed : {name.empty() ? "nobody" : name, std::string("root")}) {
                EXPECT_EQ(AskProbe(*peers[i], action, claimed), allowed ? Probed(action, claimed) : "")
                    << name << " " << action << " as " << claimed;
                runs += allowed ? 1 : 0;
            }
        }
    }
    EXPECT_EQ(ProbeCmd::Runs(), runs);
    EXPECT_EQ(LineCount("]Get clientUserInfo failed; 0x40036901."), 10u) << "the account without a record";
}

TEST_F(CliRightsTest, DoNotLetAStrangerReachTheSocket)
{
    IN_A_PROCESS_OF_ITS_OWN();
    const Peer stranger(kStranger, {});
    const Peer unknown(kUnknown, {});
    StartAsService();

    EXPECT_EQ(AskProbe(stranger, "show", "root"), "(no connection)");
    EXPECT_EQ(AskProbe(unknown, "show", "root"), "(no connection)");

    ASSERT_EQ(chmod(SocketPath().c_str(), 0666), 0);
    EXPECT_EQ(AskProbe(stranger, "show", "root"), "");
    EXPECT_EQ(AskProbe(unknown, "show", "root"), "");
    EXPECT_EQ(ProbeCmd::Runs(), 0);
}

TEST_F(CliRightsTest, LetAMemberAskForAChangeWithAnotherHeadUnlessTold)
{
    IN_A_PROCESS_OF_ITS_OWN();
    const Peer member(kPrimaryMember, {});
    StartAsService();
    const std::string request = Message(RequestXml("change probe a=1"), "show", kPrimaryMember.name);

    EXPECT_EQ(member.Ask(SocketPath(), request), Probed("change", kPrimaryMember.name));
    RefuseActionMismatch(1);
    EXPECT_EQ(member.Ask(SocketPath(), request), AnswerBytes(1073965313, "null", "show", kServiceAccount.name));

    EXPECT_EQ(ProbeCmd::Runs(), 1);
}

TEST_F(CliRightsTest, AreCheckedForEveryPacket)
{
    IN_A_PROCESS_OF_ITS_OWN();
    const Peer member(kExtraMember, {kServiceGroupId});
    const std::string name = kExtraMember.name;
    static std::atomic<int> packets;
    static std::atomic<int> leavesBefore; // the packet before which the member leaves the group
    packets = 0;
    leavesBefore = 0;
    g_osCalls.recv = [](int fd, void *data, size_t size, int) {
        const ssize_t length = recv(fd, data, size, MSG_WAITALL);
        if (++packets == leavesBefore) {
            std::ofstream("/tmp/accounts-group") << "root:x:0:\ncorvane_group:x:64901:\nreader_extra:x:64912:\n";
        }
        return length;
    };
    StartAsService();

    EXPECT_NE(member.Ask(SocketPath(), FirstPacket(name, "show"), SecondPacket(name, "show")), "");
    EXPECT_EQ(packets, 2);
    EXPECT_EQ(ProbeCmd::Runs(), 1);

    EXPECT_EQ(member.Ask(SocketPath(), FirstPacket(name, "show"), SecondPacket("root", "show")), "");
    EXPECT_THAT(CliLog(), Contains(Line("ERROR", "CliUdsComm", "CheckUserPermission",
                                        "recv different username, old: reader_extra, new: root.\n")));
    EXPECT_EQ(member.Ask(SocketPath(), FirstPacket(name, "show"), SecondPacket(name, "change")), "");
    EXPECT_THAT(CliLog(), Contains(Line("ERROR", "CliUdsComm", "CheckUserPermission",
                                        "recv different actionName, old: show, new: change.\n")));
    EXPECT_EQ(packets, 6);

    leavesBefore = 8;
    EXPECT_EQ(member.Ask(SocketPath(), FirstPacket(name, "show"), SecondPacket(name, "show")), "");
    EXPECT_EQ(packets, 8);
    EXPECT_THAT(CliLog(),
                Contains(Line("ERROR", "CliUdsComm", "CheckUserPermission", "CLI_USER_PERMISSION_ERROR 0x40036901.")));
    EXPECT_EQ(ProbeCmd::Runs(), 1);
}
