// Who may do what: peers on real sockets, whose users are the kernel's word.

#include <cerrno>
#include <fstream>
#include <memory>
#include <ostream>
#include <sys/socket.h>
#include <sys/un.h>

#include "cli/common/CliResultCode.h"
#include "cli/common/CliUdsComm.h"
#include "cli_test_support.h"
#include "infrastructure/common/corvane_raii.h"

using CORVANE_CLI::CLI_NO_SOCKET;
using CORVANE_CLI::CLI_PERMISSION_FULL;
using CORVANE_CLI::CLI_PERMISSION_NONE;
using CORVANE_CLI::CLI_PERMISSION_READ;
using CORVANE_CLI::CliDataHead;
using CORVANE_CLI::CliUdsComm;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

constexpr int kRefused = 0x40036901;
constexpr int kServer = 1;
constexpr int kClient = 0;

/** A packet with a whole message that says who sends it, whoever that is. */
std::string PacketFrom(const std::string &user, const std::string &action, const std::string &text)
{
    CliDataHead head = {};
    head.chunkCount = 1;
    head.totalLen = static_cast<uint32_t>(text.size() + 41);
    (void)user.copy(head.username, sizeof(head.username));
    (void)action.copy(head.actionName, sizeof(head.actionName));
    return std::string(reinterpret_cast<const char *>(&head), 50) + std::string(40, '\0') + text + std::string(3, '\0');
}

/** Connects to a socket and sends some bytes. @return 0 if it did. */
int ConnectAndSend(const std::string &path, const std::string &bytes)
{
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (void)path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<const struct sockaddr *>(&address), sizeof(address)) != 0) {
        return 2;
    }
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()) ? 0 : 3;
}

} // namespace

/** A socket that anybody may connect to, and a log that anybody may write. */
class RightsTest : private CliAccountsInPlace, public CliLogTest {
protected:
    RightsTest() : path_(Prefix() + "/server.unix"), listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        (void)path_.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(listener_.Get(), reinterpret_cast<const struct sockaddr *>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(listener_.Get(), 1024), 0);
        EXPECT_EQ(chmod(Prefix().c_str(), 0755), 0);
        EXPECT_EQ(chmod(folder_.c_str(), 0777), 0);
        EXPECT_EQ(chmod(LogPath().c_str(), 0666), 0);
        EXPECT_EQ(chmod(path_.c_str(), 0666), 0);
    }

    /** What a server makes of a packet from this user. */
    int ReceiveFrom(const TestAccount &peer, const std::string &packet)
    {
        const int sent = InChild([&] { return Become(peer) ? ConnectAndSend(path_, packet) : 1; });
        EXPECT_EQ(sent, 0);
        const UniqueFd client(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        text_.clear();
        user_.clear();
        action_.clear();
        return comm_.RecvString(text_, client.Get(), kServer, user_, action_);
    }
    bool MayDo(const TestAccount &peer, const std::string &action)
    {
        WriteFile(LogPath(), "");
        const int result = ReceiveFrom(peer, PacketFrom("root", action, "the request"));
        EXPECT_EQ(text_, result == 0 ? "the request" : "");
        EXPECT_TRUE(result == 0 || result == kRefused) << result;
        return result == 0;
    }

    static std::string Error(const std::string &function, const std::string &message)
    {
        return Line("ERROR", "CliUdsComm", function, message);
    }

    std::string path_;
    UniqueFd listener_;
    CliUdsComm comm_;
    std::string text_;
    std::string user_;
    std::string action_;
};

class PeerRightsTest : public RightsTest {};
class GetUserinWhiteListTest : public RightsTest {};
class CheckUserGroupTest : public RightsTest {};
class GetUsersNameTest : public RightsTest {};
class SenderNameTest : public RightsTest {};

TEST_F(PeerRightsTest, RootMayDoEverything)
{
    for (const char *action : {"show", "help", "change", "anything"}) {
        EXPECT_TRUE(MayDo(kRootAccount, action)) << action;
        EXPECT_THAT(CliLog(), IsEmpty());
    }
}

TEST_F(PeerRightsTest, TheServiceMayDoEverything)
{
    for (const char *action : {"show", "help", "change", "anything"}) {
        EXPECT_TRUE(MayDo(kServiceAccount, action)) << action;
    }
}

TEST_F(PeerRightsTest, AMemberByPrimaryGroupMayLook)
{
    EXPECT_TRUE(MayDo(kPrimaryMember, "show"));
    EXPECT_TRUE(MayDo(kPrimaryMember, "help"));
    EXPECT_FALSE(MayDo(kPrimaryMember, "change"));
    EXPECT_THAT(CliLog(), ElementsAre(Error("CheckUserPermission", "CLI_USER_PERMISSION_ERROR 0x40036901.")));
    EXPECT_FALSE(MayDo(kPrimaryMember, "showx"));
    EXPECT_FALSE(MayDo(kPrimaryMember, "Show"));
    EXPECT_FALSE(MayDo(kPrimaryMember, "sho"));
}

TEST_F(PeerRightsTest, AMemberBySupplementaryGroupMayLook)
{
    EXPECT_TRUE(MayDo(kExtraMember, "show"));
    EXPECT_TRUE(MayDo(kExtraMember, "help"));
    EXPECT_FALSE(MayDo(kExtraMember, "change"));
    EXPECT_THAT(CliLog(), ElementsAre(Error("CheckUserPermission", "CLI_USER_PERMISSION_ERROR 0x40036901.")));
}

TEST_F(PeerRightsTest, AStrangerMayDoNothing)
{
    for (const char *action : {"show", "help", "change"}) {
        EXPECT_FALSE(MayDo(kStranger, action)) << action;
        EXPECT_THAT(CliLog(), ElementsAre(Error("CheckUserPermission", "CLI_USER_PERMISSION_ERROR 0x40036901.")));
    }
}

TEST_F(PeerRightsTest, AnAccountWithoutGroupRecordMayDoNothing)
{
    for (const char *action : {"show", "help", "change"}) {
        EXPECT_FALSE(MayDo(kGroupless, action)) << action << ", although it is a member";
        EXPECT_THAT(CliLog(), ElementsAre(Error("CheckUserPermission", "CLI_USER_PERMISSION_ERROR 0x40036901.")));
    }
}

TEST_F(PeerRightsTest, AUserWithoutRecordMayDoNothing)
{
    EXPECT_FALSE(MayDo(kUnknown, "show"));

    EXPECT_THAT(CliLog(), ElementsAre(Error("GetUserinWhiteList", "Get clientUserInfo failed; 0x40036901."),
                                      Error("CheckUserPermission", "compare fail\n.")));
}

TEST_F(PeerRightsTest, TheNameInThePacketPlaysNoPart)
{
    EXPECT_EQ(ReceiveFrom(kStranger, PacketFrom("root", "show", "x")), kRefused);
    EXPECT_EQ(ReceiveFrom(kStranger, PacketFrom("corvane_user", "show", "x")), kRefused);
    EXPECT_EQ(ReceiveFrom(kRootAccount, PacketFrom("stranger", "change", "x")), 0);

    EXPECT_EQ(user_, "stranger") << "as it was sent";
    EXPECT_EQ(text_, "x");
}

/** A process may have a group that its account has not. */
TEST_F(PeerRightsTest, TheGroupsOfTheProcessPlayNoPart)
{
    const std::string packet = PacketFrom("stranger", "show", "x");
    ASSERT_EQ(InChild([&] {
                  const gid_t group = kServiceAccount.gid;
                  const bool became = setgroups(1, &group) == 0 && setgid(group) == 0 && setuid(kStranger.uid) == 0;
                  return became ? ConnectAndSend(path_, packet) : 1;
              }),
              0);
    const UniqueFd client(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));

    EXPECT_EQ(comm_.RecvString(text_, client.Get(), kServer, user_, action_), kRefused);

    EXPECT_EQ(text_, "");
}

TEST_F(PeerRightsTest, AreNotAskedOnTheClientsSide)
{
    ASSERT_EQ(
        InChild([&] { return Become(kStranger) ? ConnectAndSend(path_, PacketFrom("stranger", "", "an answer")) : 1; }),
        0);
    const UniqueFd client(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));

    EXPECT_EQ(comm_.RecvString(text_, client.Get(), kClient, user_, action_), 0);

    EXPECT_EQ(text_, "an answer");
}

TEST_F(PeerRightsTest, NeedASocket)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const UniqueFd in(ends[0]);
    const UniqueFd out(ends[1]);
    int permission = 77;

    EXPECT_EQ(comm_.GetUserinWhiteList("root", permission, "show", in.Get()), kRefused);

    EXPECT_EQ(permission, 77);
    EXPECT_THAT(CliLog(), ElementsAre(Error("GetUserinWhiteList", "Getsockopt failed; 0x40036901.")));
}

TEST_F(GetUserinWhiteListTest, LooksUpANameWithoutASocket)
{
    struct Row {
        const char *user;
        const char *action;
        int permission;
    };
    for (const Row &row :
         {Row{"root", "change", CLI_PERMISSION_FULL}, Row{"root", "show", CLI_PERMISSION_FULL},
          Row{"corvane_user", "change", CLI_PERMISSION_FULL}, Row{"reader_primary", "show", CLI_PERMISSION_READ},
          Row{"reader_primary", "help", CLI_PERMISSION_READ}, Row{"reader_primary", "change", CLI_PERMISSION_NONE},
          Row{"reader_extra", "help", CLI_PERMISSION_READ}, Row{"reader_extra", "change", CLI_PERMISSION_NONE},
          Row{"stranger", "show", CLI_PERMISSION_NONE}, Row{"groupless", "show", CLI_PERMISSION_NONE}}) {
        int permission = 77;

        EXPECT_EQ(comm_.GetUserinWhiteList(row.user, permission, row.action, CLI_NO_SOCKET), 0) << row.user;

        EXPECT_EQ(permission, row.permission) << row.user << " " << row.action;
    }
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(GetUserinWhiteListTest, RefusesANameWithoutARecord)
{
    int permission = 77;

    EXPECT_EQ(comm_.GetUserinWhiteList("rootx", permission, "show", CLI_NO_SOCKET), kRefused);

    EXPECT_EQ(permission, 77);
    EXPECT_THAT(CliLog(), ElementsAre(Error("GetUserinWhiteList", "Get clientUserInfo failed; 0x40036901.")));
}

TEST_F(GetUserinWhiteListTest, RefusesEmptyNames)
{
    int permission = 77;

    EXPECT_EQ(comm_.GetUserinWhiteList("", permission, "", CLI_NO_SOCKET), kRefused);
    EXPECT_EQ(comm_.GetUserinWhiteList("root", permission, "", CLI_NO_SOCKET), kRefused);

    EXPECT_EQ(permission, 77);
    EXPECT_THAT(CliLog(), ElementsAre(Error("GetUserinWhiteList", "Username is empty; 0x40036901."),
                                      Error("GetUserinWhiteList", "ActionName is empty; 0x40036901.")));
}

TEST_F(CheckUserGroupTest, TakesBackAnEarlierPermission)
{
    struct passwd stranger = {};
    std::string name = "stranger";
    stranger.pw_name = name.data();
    stranger.pw_gid = kStranger.gid;
    int permission = CLI_PERMISSION_FULL;

    comm_.CheckUserGroup(&stranger, permission, "show");

    EXPECT_EQ(permission, CLI_PERMISSION_NONE);
}

/** As many groups as there is room for are looked at; a member of more gets nothing. */
TEST_F(CheckUserGroupTest, HasRoomForSoManyGroups)
{
    const std::string saved = ReadFile("/etc/group");
    std::string groups = saved;
    for (int i = 0; i < 0x10000; i++) {
        groups += "g" + std::to_string(i) + ":x:" + std::to_string(100000 + i) + ":reader_extra\n";
    }
    struct passwd member = {};
    std::string name = "reader_extra";
    member.pw_name = name.data();
    member.pw_gid = kExtraMember.gid;
    int permission = CLI_PERMISSION_READ;

    WriteFile("/etc/group", groups);
    comm_.CheckUserGroup(&member, permission, "show");
    WriteFile("/etc/group", saved);

    EXPECT_EQ(permission, CLI_PERMISSION_NONE);
    comm_.CheckUserGroup(&member, permission, "show");
    EXPECT_EQ(permission, CLI_PERMISSION_READ) << "in the same account's few groups it is found";
}

TEST_F(CheckUserGroupTest, LooksAtEveryGroup)
{
    const std::string saved = ReadFile("/etc/group");
    WriteFile("/etc/group", "root:x:0:\nreader_extra:x:64912:\nother:x:64930:reader_extra\n"
                            "corvane_group:x:64901:reader_extra\n");
    struct passwd member = {};
    std::string name = "reader_extra";
    member.pw_name = name.data();
    member.pw_gid = kExtraMember.gid;
    int permission = CLI_PERMISSION_NONE;

    comm_.CheckUserGroup(&member, permission, "help");
    WriteFile("/etc/group", saved);

    EXPECT_EQ(permission, CLI_PERMISSION_READ) << "the last of three";
}

TEST_F(GetUsersNameTest, NamesTheProcess)
{
    std::string name;

    EXPECT_EQ(comm_.GetUsersName(name), 0);

    EXPECT_EQ(name, "root");
    EXPECT_EQ(InChild([this] {
                  std::string child;
                  return Become(kExtraMember) && comm_.GetUsersName(child) == 0 && child == "reader_extra" ? 0 : 1;
              }),
              0);
}

TEST_F(GetUsersNameTest, TellsAProcessWithoutName)
{
    EXPECT_EQ(InChild([this] {
                  std::string name = "before";
                  return Become(kUnknown) && comm_.GetUsersName(name) == kRefused && name == "before" ? 0 : 1;
              }),
              0);

    EXPECT_THAT(CliLog(), ElementsAre(Error("GetUsersName", "Getpwuid failed; 0x40036901.")));
}

TEST_F(SenderNameTest, StandsInEveryPacket)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const UniqueFd in(ends[0]);
    const UniqueFd out(ends[1]);

    ASSERT_EQ(
        InChild([&] { return Become(kName31) && comm_.SendString("x", out.Get(), kClient, "show") == 0 ? 0 : 1; }), 0);

    char packet[200];
    ASSERT_EQ(read(in.Get(), packet, sizeof(packet)), 42 + 52);
    EXPECT_EQ(std::string(packet + 8, 32), std::string("name-of-thirty-one-characters-x\0", 32));
}

TEST_F(SenderNameTest, DoesNotFitWith32Characters)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const UniqueFd in(ends[0]);
    UniqueFd out(ends[1]);

    ASSERT_EQ(
        InChild([&] { return Become(kName32) && comm_.SendString("x", out.Get(), kClient, "show") == -1 ? 0 : 1; }), 0);

    out = UniqueFd();
    char packet[200];
    EXPECT_EQ(read(in.Get(), packet, sizeof(packet)), 0) << "nothing was sent";
    EXPECT_THAT(CliLog(),
                ElementsAre(Error("PrepareSendPacket", "Packet preparing fail due to usersname copying error."),
                            Error("SendPacket", "Packet initialization fail.")));
}

TEST_F(SenderNameTest, IsEmptyForAProcessWithoutName)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const UniqueFd in(ends[0]);
    const UniqueFd out(ends[1]);

    ASSERT_EQ(
        InChild([&] { return Become(kUnknown) && comm_.SendString("x", out.Get(), kClient, "show") == 0 ? 0 : 1; }), 0);

    char packet[200];
    ASSERT_EQ(read(in.Get(), packet, sizeof(packet)), 42 + 52);
    EXPECT_EQ(std::string(packet + 8, 32), std::string(32, '\0'));
    EXPECT_THAT(CliLog(), ElementsAre(Error("GetUsersName", "Getpwuid failed; 0x40036901."),
                                      HasSubstr("Send success.sendLen:42.")));
}
