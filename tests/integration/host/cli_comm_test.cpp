#include <cstring>
#include <filesystem>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "cli_client.h"
#include "cli_names.h"

namespace {

constexpr uint32_t kPiece = 0x100000;
constexpr int kTooLong = 0x40036905;

/** Both ends of a connection and the protocol's own operations on them. */
class CliCommTest : public CliTest {
protected:
    void SetUp() override
    {
        CliTest::SetUp();
        Open();
    }

    void TearDown() override { CloseEnds(); }

    void CloseEnds()
    {
        for (int &end : ends_) {
            (void)shutdown(end, SHUT_RDWR);
            (void)close(end);
            end = -1;
        }
    }

    void Connect(int type) { ASSERT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends_), 0); }

    int Send(const std::string &text, const std::string &action)
    {
        return CliFunction<int(void *, const std::string &, int, int, const std::string &)>(
            "C::CliUdsComm::SendString(S const&, int, int, S const&)")(&comm_, text, ends_[0], 1, action);
    }

    int Receive(std::string &text, std::string &user, std::string &action)
    {
        return CliFunction<int(void *, std::string &, int, int, std::string &, std::string &)>(
            "C::CliUdsComm::RecvString(S&, int, int, S&, S&)")(&comm_, text, ends_[1], 1, user, action);
    }

    int Permission(const std::string &user, const std::string &action, int &permission)
    {
        // -2 stands for no socket: the name decides.
        return CliFunction<int(void *, std::string, int &, const std::string &, int)>(
            "C::CliUdsComm::GetUserinWhiteList(S, int&, S const&, int)")(&comm_, user, permission, action, -2);
    }

    bool ReadExactly(char *bytes, size_t size) const
    {
        for (size_t done = 0; done < size;) {
            const ssize_t got = recv(ends_[1], bytes + done, size - done, 0);
            if (got <= 0) {
                return false;
            }
            done += static_cast<size_t>(got);
        }
        return true;
    }

    /** Lengths of the pieces in which a text of this length goes, as read from the wire. */
    std::vector<uint32_t> Pieces(size_t length)
    {
        Connect(SOCK_STREAM);
        int sent = -1;
        std::thread sender([&] { sent = Send(std::string(length, 't'), "show"); });
        const auto image = static_cast<uint32_t>(length + 41);
        std::vector<uint32_t> pieces;
        std::vector<char> bytes(kPiece + 2);
        for (uint32_t left = image; left != 0;) {
            char head[50];
            if (!ReadExactly(head, sizeof(head))) {
                break;
            }
            const uint32_t piece = left < kPiece ? left : kPiece;
            uint32_t total = 0;
            std::memcpy(&total, head + 4, 4);
            EXPECT_EQ(total, image);
            EXPECT_EQ(static_cast<uint8_t>(head[0]), (image + kPiece - 1) / kPiece);
            EXPECT_EQ(static_cast<uint8_t>(head[1]), pieces.size());
            EXPECT_STREQ(head + 8, "root");
            EXPECT_STREQ(head + 40, "show");
            EXPECT_TRUE(ReadExactly(bytes.data(), piece + 2));
            left -= piece;
            pieces.push_back(piece);
            EXPECT_EQ(bytes[piece - 1], left == 0 ? '\0' : 't');
        }
        char more = 0;
        EXPECT_EQ(recv(ends_[1], &more, 1, MSG_DONTWAIT), -1) << "and nothing more";
        CloseEnds(); // so that a sender never waits
        sender.join();
        EXPECT_EQ(sent, 0);
        return pieces;
    }

    int ends_[2] = {-1, -1};
    uint64_t comm_[16] = {};
};

TEST_F(CliCommTest, EmptyTextIsOneSmallPacket)
{
    EXPECT_EQ(Pieces(0), std::vector<uint32_t>{41});
}

TEST_F(CliCommTest, ImageOfExactlyOnePiece)
{
    EXPECT_EQ(Pieces(kPiece - 41), std::vector<uint32_t>{kPiece});
}

TEST_F(CliCommTest, ImageOfOneByteMore)
{
    EXPECT_EQ(Pieces(kPiece - 40), (std::vector<uint32_t>{kPiece, 1}));
}

TEST_F(CliCommTest, LargestImage)
{
    EXPECT_EQ(Pieces(0x2000000 - 41), std::vector<uint32_t>(32, kPiece));
}

TEST_F(CliCommTest, TextThatIsTooLongSendsNothing)
{
    Connect(SOCK_STREAM);

    EXPECT_EQ(Send(std::string(0x2000000 - 40, 't'), "show"), kTooLong);

    char byte = 0;
    EXPECT_EQ(recv(ends_[1], &byte, 1, MSG_DONTWAIT), -1);
}

TEST_F(CliCommTest, ActionNamesOfTenCharactersSendNothing)
{
    Connect(SOCK_STREAM);
    char byte = 0;

    EXPECT_EQ(Send("text", "0123456789"), -1);
    EXPECT_EQ(recv(ends_[1], &byte, 1, MSG_DONTWAIT), -1);
    EXPECT_EQ(Send("text", "012345678"), 0);
    EXPECT_EQ(recv(ends_[1], &byte, 1, MSG_DONTWAIT), 1);
}

TEST_F(CliCommTest, PeerThatIsGone)
{
    Connect(SOCK_STREAM);
    (void)shutdown(ends_[1], SHUT_RDWR);

    EXPECT_EQ(Send("text", "show"), 0x40036903);
}

TEST_F(CliCommTest, PacketsThatKeepTheirBoundsAreJoined)
{
    // With messages that stay whole, even those of the largest size arrive as they were sent.
    for (const size_t length :
         {size_t{0}, size_t{1}, size_t{kPiece - 41}, size_t{kPiece - 40}, size_t{5 * kPiece}, size_t{0x2000000 - 41}}) {
        Connect(SOCK_SEQPACKET);
        const int room = 8 * 1024 * 1024;
        ASSERT_EQ(setsockopt(ends_[0], SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof(room)), 0);
        std::string text(length, 'a');
        for (size_t i = 0; i < length; i++) {
            text[i] = static_cast<char>('a' + i % 23);
        }
        int sent = -1;
        std::thread sender([&] { sent = Send(text, "show"); });
        std::string got = "before";
        std::string user;
        std::string action;

        const int received = Receive(got, user, action);
        (void)shutdown(ends_[1], SHUT_RD);
        sender.join();

        EXPECT_EQ(sent, 0);
        EXPECT_EQ(received, 0);
        EXPECT_TRUE(got == text) << length << " gave " << got.size();
        EXPECT_EQ(user, "root");
        EXPECT_EQ(action, "show");
        CloseEnds();
    }
}

TEST_F(CliCommTest, RightsByName)
{
    AddAccounts("cli_member:x:64902:64901::/nonexistent:/bin/false\ncli_other:x:64904:64904::/nonexistent:/bin/false\n",
                "cli_other:x:64904:\n");
    const struct {
        const char *user;
        const char *action;
        int result;
        int permission;
    } cases[] = {{"root", "change", 0, 1},         {"corvane_user", "change", 0, 1},
                 {"cli_member", "show", 0, 2},     {"cli_member", "help", 0, 2},
                 {"cli_member", "change", 0, 0},   {"cli_member", "showing", 0, 0},
                 {"cli_other", "show", 0, 0},      {"cli_nobody_of_this_name", "show", kCliPermission, -5},
                 {"", "show", kCliPermission, -5}, {"root", "", kCliPermission, -5}};
    for (const auto &item : cases) {
        int permission = -5;
        EXPECT_EQ(Permission(item.user, item.action, permission), item.result) << item.user << " " << item.action;
        if (item.result == 0) {
            EXPECT_EQ(permission, item.permission) << item.user << " " << item.action;
        }
    }
}

} // namespace
