#include "cli/common/CliUdsComm.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <thread>

#include "cli/common/CliResultCode.h"
#include "cli_test_support.h"
#include "infrastructure/common/corvane_raii.h"

using CORVANE_CLI::CliDataHead;
using CORVANE_CLI::CliMsg;
using CORVANE_CLI::CliUdsComm;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

constexpr int kExceed = 0x40036905;
constexpr int kClosed = 0x40036903;
constexpr int kRecvError = 0x40036906;
constexpr int kRefused = 0x40036901;

constexpr int kServer = 1;
constexpr int kClient = 0; // whose peers are not checked
constexpr int kAnySocket = 777;

constexpr size_t kMebibyte = 0x100000;
constexpr size_t kImageMax = 0x2000000;
constexpr size_t kImageHead = 40;
constexpr size_t kPacketHead = 50;
constexpr size_t kPacketMax = kMebibyte + 52;

std::string LittleEndian(uint32_t value)
{
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(value >> shift);
    }
    return bytes;
}

std::string Padded(std::string text, size_t size)
{
    text.resize(size);
    return text;
}

/** The image of a message. */
std::string Image(const std::string &text)
{
    return std::string("\0\0\1", 3) + std::string(37, '\0') + text + '\0';
}

/** A packet, byte by byte. */
struct Packet {
    uint8_t count = 1;
    uint8_t index = 0;
    uint32_t totalLen = 0;
    std::string user = "root";
    std::string action = "show";
    std::string piece = {};

    std::string Bytes() const
    {
        return std::string{static_cast<char>(count), static_cast<char>(index), '\0', '\0'} + LittleEndian(totalLen) +
               Padded(user, 32) + Padded(action, 10) + piece + std::string(2, '\0');
    }
};

/** The only packet of a message. */
Packet Whole(const std::string &image, const std::string &action = "show")
{
    return {.totalLen = static_cast<uint32_t>(image.size()), .action = action, .piece = image};
}

/** What send() was given, one entry for each call; and what recv() gives, one for each call. */
std::vector<std::string> g_sent;
std::vector<int> g_sendFlags;
std::vector<std::string> g_incoming;
size_t g_incomingAt = 0;
int g_recvErrno = 0; // when nothing is left: 0 means that the peer has closed

ssize_t RecordSend(int, const void *data, size_t size, int flags)
{
    g_sent.emplace_back(static_cast<const char *>(data), size);
    g_sendFlags.push_back(flags);
    return static_cast<ssize_t>(size);
}

ssize_t ScriptedRecv(int, void *data, size_t size, int flags)
{
    EXPECT_EQ(size, kPacketMax);
    EXPECT_EQ(flags, 0);
    if (g_incomingAt == g_incoming.size()) {
        errno = g_recvErrno;
        return g_recvErrno == 0 ? 0 : -1;
    }
    const std::string &packet = g_incoming[g_incomingAt++];
    EXPECT_LE(packet.size(), size);
    std::memcpy(data, packet.data(), packet.size());
    return static_cast<ssize_t>(packet.size());
}

/** Two connected stream sockets. */
class SocketPair {
public:
    SocketPair()
    {
        std::array<int, 2> fds{};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds.data()) != 0) {
            throw std::runtime_error("socketpair");
        }
        near_ = UniqueFd(fds[0]);
        far_ = UniqueFd(fds[1]);
        const struct timeval patience = {60, 0}; // what never comes is a failure, and no endless test
        for (const int fd : fds) {
            EXPECT_EQ(setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)), 0);
        }
    }
    int Near() const { return near_.Get(); }
    int Far() const { return far_.Get(); }
    void CloseNear() { near_ = UniqueFd(); }
    void CloseFar() { far_ = UniqueFd(); }
    /** All that comes from the near end until that is closed. */
    std::string ReadFar() const
    {
        std::string all;
        std::vector<char> buffer(kMebibyte);
        for (ssize_t count = 0; (count = read(Far(), buffer.data(), buffer.size())) > 0;) {
            all.append(buffer.data(), static_cast<size_t>(count));
        }
        return all;
    }

private:
    UniqueFd near_;
    UniqueFd far_;
};

} // namespace

class CommTest : public CliLogTest {
protected:
    CommTest()
    {
        g_sent.clear();
        g_sendFlags.clear();
        g_incoming.clear();
        g_incomingAt = 0;
        g_recvErrno = 0;
    }
    ~CommTest() override
    {
        g_sent = {};
        g_incoming = {};
    }
    void SetUp() override { ASSERT_EQ(getuid(), 0u) << "needs root"; }

    static std::string Error(const std::string &function, const std::string &message)
    {
        return Line("ERROR", "CliUdsComm", function, message);
    }
    static std::string Info(const std::string &function, const std::string &message)
    {
        return Line("INFO", "CliUdsComm", function, message);
    }
    static std::string SendSuccess(size_t length)
    {
        return Info("SendPacket", "Send success.sendLen:" + std::to_string(length) + ".");
    }

    /** Sends to a recorder. */
    int Send(const std::string &text, const std::string &action = "show")
    {
        g_osCalls.send = RecordSend;
        return comm_.SendString(text, kAnySocket, kServer, action);
    }
    /** Receives what a script gives. */
    int Receive(const std::vector<std::string> &packets, int srvId = kClient)
    {
        g_incoming = packets;
        g_incomingAt = 0;
        g_osCalls.recv = ScriptedRecv;
        return comm_.RecvString(text_, kAnySocket, srvId, user_, action_);
    }
    int Receive(const std::vector<Packet> &packets)
    {
        std::vector<std::string> bytes;
        for (const Packet &packet : packets) {
            bytes.push_back(packet.Bytes());
        }
        return Receive(bytes);
    }

    CliUdsComm comm_;
    std::string text_;
    std::string user_;
    std::string action_;
};

class InnerInitCliMsgTest : public CommTest {};
class SendStringTest : public CommTest {};
class SendPacketTest : public CommTest {};
class SendPacketProcessTest : public CommTest {};
class RecvPacketTest : public CommTest {};
class RecvLimitsTest : public CommTest {};
class RecvOddHeadsTest : public CommTest {};
class RecvPeerTest : public CommTest {};
class CommRoundTripTest : public CommTest {};
class IsCmdStrSecurityTest : public CommTest {};
class CliUserNameCntStrToIntTest : public CommTest {};

TEST_F(InnerInitCliMsgTest, WritesFiveFields)
{
    std::array<unsigned char, 40> bytes;
    bytes.fill(0xAB);
    CliMsg msg = {};
    std::memcpy(&msg, bytes.data(), bytes.size());

    CORVANE_CLI::InnerInitCliMsg(msg);

    std::array<unsigned char, 40> expected;
    expected.fill(0xAB);
    for (const size_t zero : {0, 1, 32, 33, 34, 35, 36, 37, 38, 39}) {
        expected[zero] = 0;
    }
    expected[2] = 1;
    EXPECT_EQ(std::memcmp(&msg, expected.data(), expected.size()), 0);
}

TEST_F(SendStringTest, SendsOnePacket)
{
    EXPECT_EQ(Send("abc"), 0);

    ASSERT_EQ(g_sent.size(), 1u);
    EXPECT_EQ(g_sent[0], std::string("\1\0\0\0\x2C\0\0\0root", 12) + std::string(28, '\0') +
                             std::string("show\0\0\0\0\0\0\0\0\1", 13) + std::string(37, '\0') +
                             std::string("abc\0\0\0", 6));
    EXPECT_EQ(g_sent[0].size(), 3u + 41 + 52);
    EXPECT_THAT(g_sendFlags, ElementsAre(MSG_NOSIGNAL));
    EXPECT_THAT(CliLog(), ElementsAre(SendSuccess(44)));
}

TEST_F(SendStringTest, SendsAnEmptyText)
{
    EXPECT_EQ(Send(""), 0);

    EXPECT_THAT(g_sent, ElementsAre(Whole(Image("")).Bytes()));
    EXPECT_EQ(g_sent[0].size(), 41u + 52);
}

TEST_F(SendStringTest, SendsTheSameBytesOverASocket)
{
    SocketPair sockets;

    EXPECT_EQ(comm_.SendString("a text", sockets.Near(), kServer, "change"), 0);

    sockets.CloseNear();
    EXPECT_EQ(sockets.ReadFar(), Whole(Image("a text"), "change").Bytes());
}

TEST_F(SendStringTest, SendsActionsOfUpTo9Characters)
{
    EXPECT_EQ(Send("x", "ninechars"), 0);
    EXPECT_EQ(Send("x", ""), 0);

    EXPECT_THAT(g_sent, ElementsAre(Whole(Image("x"), "ninechars").Bytes(), Whole(Image("x"), "").Bytes()));
}

TEST_F(SendStringTest, FailsForAnActionOf10CharactersBeforeAnythingIsSent)
{
    SocketPair sockets;

    EXPECT_EQ(comm_.SendString("x", sockets.Near(), kServer, "ten--chars"), -1);

    sockets.CloseNear();
    EXPECT_EQ(sockets.ReadFar(), "");
    EXPECT_THAT(CliLog(),
                ElementsAre(Error("PrepareSendPacket", "Packet preparing fail due to actionName copying error."),
                            Error("SendPacket", "Packet initialization fail.")));
}

TEST_F(SendStringTest, SendsOneMebibyteInOnePacket)
{
    const std::string text(kMebibyte - 41, 't');

    EXPECT_EQ(Send(text), 0);

    ASSERT_EQ(g_sent.size(), 1u);
    EXPECT_TRUE(g_sent[0] == Whole(Image(text)).Bytes());
    EXPECT_EQ(g_sent[0].size(), kPacketMax);
}

TEST_F(SendStringTest, SendsOneByteLessInOnePacket)
{
    const std::string text(kMebibyte - 42, 't');

    EXPECT_EQ(Send(text), 0);

    ASSERT_EQ(g_sent.size(), 1u);
    EXPECT_TRUE(g_sent[0] == Whole(Image(text)).Bytes());
}

TEST_F(SendStringTest, SendsOneByteMoreInAPacketOf53Bytes)
{
    const std::string image = Image(std::string(kMebibyte - 40, 't'));

    EXPECT_EQ(Send(std::string(kMebibyte - 40, 't')), 0);

    ASSERT_EQ(g_sent.size(), 2u);
    Packet packet = {.count = 2, .totalLen = kMebibyte + 1, .piece = image.substr(0, kMebibyte)};
    EXPECT_TRUE(g_sent[0] == packet.Bytes());
    packet.index = 1;
    packet.piece = image.substr(kMebibyte);
    EXPECT_EQ(g_sent[1].size(), 53u);
    EXPECT_EQ(g_sent[1].substr(0, 51), packet.Bytes().substr(0, 51)) << "the filler is whatever it was";
    EXPECT_THAT(CliLog(), ElementsAre(SendSuccess(kMebibyte + 1)));
}

TEST_F(SendStringTest, Sends32MebibytesIn32Packets)
{
    std::string text(kImageMax - 41, 't');
    for (size_t i = 0; i < text.size(); i += 4099) {
        text[i] = static_cast<char>('a' + i % 26);
    }

    EXPECT_EQ(Send(text), 0);

    const std::string image = Image(text);
    ASSERT_EQ(g_sent.size(), 32u);
    for (uint8_t i = 0; i < 32; i++) {
        const Packet packet = {
            .count = 32, .index = i, .totalLen = kImageMax, .piece = image.substr(i * kMebibyte, kMebibyte)};
        EXPECT_TRUE(g_sent[i] == packet.Bytes()) << int{i};
    }
    EXPECT_THAT(CliLog(), ElementsAre(SendSuccess(kImageMax)));
}

TEST_F(SendStringTest, RefusesOneByteMoreThan32Mebibytes)
{
    EXPECT_EQ(Send(std::string(kImageMax - 40, 't')), kExceed);

    EXPECT_THAT(g_sent, IsEmpty());
    EXPECT_THAT(CliLog(), ElementsAre(Error("SendString", "CLI_SEND_DATA_EXCEED 0x40036905.")));
}

TEST_F(SendStringTest, FailsSilentlyWithoutMemoryForTheImage)
{
    RefuseMalloc(44);

    EXPECT_EQ(Send("abc"), -1);

    EXPECT_THAT(g_sent, IsEmpty());
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(SendStringTest, TellsWhatItWroteAtDebugLevel)
{
    g_objLogger.SetLevel(CLI_LOG_LEVEL_DEBUG);

    EXPECT_EQ(Send("abc"), 0);

    EXPECT_THAT(CliLog(), ElementsAre(Line("DEBUG", "CliUdsComm", "PrepareSendPacket",
                                           "srvId: 1, username:root, dataHead->username:root, actionName:show, "
                                           "dataHead->actionName:show."),
                                      SendSuccess(44)));
}

TEST_F(SendPacketTest, NeedsASocket)
{
    EXPECT_EQ(comm_.SendString("abc", -1, kServer, "show"), -1);

    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(SendPacketTest, FailsWithoutMemoryForThePacket)
{
    RefuseMalloc(kPacketMax);

    EXPECT_EQ(Send("abc"), -1);

    EXPECT_THAT(g_sent, IsEmpty());
    EXPECT_THAT(CliLog(), ElementsAre(Error("SendPacket", "data is NULL.")));
}

TEST_F(SendPacketTest, StopsAtTheFirstFailure)
{
    static int calls;
    calls = 0;
    g_osCalls.send = [](int, const void *, size_t size, int) -> ssize_t {
        calls++;
        return calls < 2 ? static_cast<ssize_t>(size) : 0;
    };

    EXPECT_EQ(comm_.SendString(std::string(3 * kMebibyte, 't'), kAnySocket, kServer, "show"), -1);

    EXPECT_EQ(calls, 2);
    EXPECT_THAT(CliLog(), ElementsAre(Error("SendPacketProcess", "Send fail.sendLen:3145769.")));
}

TEST_F(SendPacketTest, SendsNoRemainderAfterAFailure)
{
    static int calls;
    calls = 0;
    g_osCalls.send = [](int, const void *, size_t, int) -> ssize_t {
        calls++;
        errno = ECONNRESET;
        return -1;
    };

    EXPECT_EQ(comm_.SendString(std::string(kMebibyte, 't'), kAnySocket, kServer, "show"), -1);

    EXPECT_EQ(calls, 1);
}

TEST_F(SendPacketTest, TakesAShortCountForASuccess)
{
    g_osCalls.send = [](int, const void *, size_t, int) -> ssize_t { return 1; };

    EXPECT_EQ(comm_.SendString("abc", kAnySocket, kServer, "show"), 0);

    EXPECT_THAT(CliLog(), ElementsAre(SendSuccess(44)));
}

TEST_F(SendPacketTest, TellsAPeerThatIsGone)
{
    SocketPair sockets;
    sockets.CloseFar();

    EXPECT_EQ(comm_.SendString("abc", sockets.Near(), kServer, "show"), kClosed);

    EXPECT_THAT(CliLog(), ElementsAre(Error("SendPacketProcess", "Send fail. Socket closed by remote, errno{32}.")));
}

TEST_F(SendPacketTest, TellsAnErrnoThatIsLeftFromEarlier)
{
    g_osCalls.send = [](int, const void *, size_t size, int) {
        errno = EPIPE;
        return static_cast<ssize_t>(size);
    };

    EXPECT_EQ(comm_.SendString("abc", kAnySocket, kServer, "show"), kClosed);
}

TEST_F(SendPacketProcessTest, LooksAtErrnoFirst)
{
    SocketPair sockets;
    const std::unique_ptr<char[]> packet(new char[kPacketMax]());
    auto *head = reinterpret_cast<CliDataHead *>(packet.get());

    errno = EPIPE;
    EXPECT_EQ(comm_.SendPacketProcess(head, "piece", 5, sockets.Near()), kClosed);
    errno = 0;
    EXPECT_EQ(comm_.SendPacketProcess(head, "other", 5, sockets.Near()), 0);

    sockets.CloseNear();
    EXPECT_EQ(sockets.ReadFar(),
              std::string(50, '\0') + std::string("piece\0\0", 7) + std::string(50, '\0') + std::string("other\0\0", 7))
        << "sent all the same";
}

TEST_F(SendPacketProcessTest, RefusesAPieceAboveOneMebibyte)
{
    g_osCalls.send = RecordSend;
    const std::unique_ptr<char[]> packet(new char[kPacketMax]());
    const std::string piece(kMebibyte + 1, 'p');

    EXPECT_EQ(
        comm_.SendPacketProcess(reinterpret_cast<CliDataHead *>(packet.get()), piece.data(), kMebibyte + 1, kAnySocket),
        -1);

    EXPECT_THAT(g_sent, IsEmpty());
    EXPECT_THAT(CliLog(),
                ElementsAre(Error("SendPacketProcess", "Packet preparing fail due to string copying error.")));
}

TEST_F(RecvPacketTest, TakesTextUserAndActionOfOnePacket)
{
    EXPECT_EQ(Receive({Whole(Image("a text"), "change")}), 0);

    EXPECT_EQ(text_, "a text");
    EXPECT_EQ(user_, "root");
    EXPECT_EQ(action_, "change");
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(RecvPacketTest, SkipsWhatIsInTheHeadOfTheImage)
{
    EXPECT_EQ(Receive({Whole(std::string(40, '\xFF') + "text" + '\0')}), 0);

    EXPECT_EQ(text_, "text");
}

TEST_F(RecvPacketTest, JoinsPacketsOfAnyLength)
{
    const std::string image = Image("joined text");

    EXPECT_EQ(Receive({{.count = 4, .index = 0, .totalLen = 52, .piece = image.substr(0, 3)},
                       {.count = 4, .index = 1, .totalLen = 52, .piece = ""},
                       {.count = 4, .index = 2, .totalLen = 52, .piece = image.substr(3, 42)},
                       {.count = 4, .index = 3, .totalLen = 52, .piece = image.substr(45)}}),
              0);

    EXPECT_EQ(text_, "joined text");
    EXPECT_EQ(g_incomingAt, 4u);
}

TEST_F(RecvPacketTest, EndsTheTextAtItsTerminator)
{
    EXPECT_EQ(Receive({Whole(Image(std::string("one\0two", 7)))}), 0);

    EXPECT_EQ(text_, "one");
}

TEST_F(RecvPacketTest, EndsATextWithoutTerminator)
{
    EXPECT_EQ(Receive({Whole(std::string(40, '\0') + "text")}), 0);

    EXPECT_EQ(text_, "text");
}

TEST_F(RecvPacketTest, TellsWhatItReceivedAtDebugLevel)
{
    g_objLogger.SetLevel(CLI_LOG_LEVEL_DEBUG);

    EXPECT_EQ(Receive({Whole(Image("abc"))}), 0);

    EXPECT_THAT(CliLog(), ElementsAre(Line("DEBUG", "CliUdsComm", "ProcessRecvPacket", "Recv success.recvLen:44.")));
}

TEST_F(RecvPacketTest, NeedsASocket)
{
    EXPECT_EQ(comm_.RecvString(text_, -1, kServer, user_, action_), -1);

    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "connect is not success.")));
}

TEST_F(RecvPacketTest, FailsWithoutMemoryForThePacket)
{
    RefuseMalloc(kPacketMax);

    EXPECT_EQ(Receive({Whole(Image("abc"))}), -1);

    EXPECT_EQ(g_incomingAt, 0u);
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "data is NULL.")));
}

TEST_F(RecvPacketTest, FailsWithoutMemoryForTheImage)
{
    RefuseMalloc(44 + 1);

    EXPECT_EQ(Receive({Whole(Image("abc"))}), -1);

    EXPECT_EQ(text_, "");
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "pRecvBuf is null")));
}

TEST_F(RecvLimitsTest, LeavesTheTextForAnImageOf40Bytes)
{
    text_ = "before";

    EXPECT_EQ(Receive({Whole(std::string(40, '\0'))}), 0);
    EXPECT_EQ(text_, "before");

    EXPECT_EQ(Receive({Whole(std::string(1, '\0'))}), 0);
    EXPECT_EQ(text_, "before");

    EXPECT_EQ(Receive({Whole(std::string(41, '\0'))}), 0);
    EXPECT_EQ(text_, "");

    EXPECT_EQ(Receive({Whole(std::string(40, '\0') + "x")}), 0);
    EXPECT_EQ(text_, "x");
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(RecvLimitsTest, TakesFullPackets)
{
    const std::string text(kMebibyte - 41, 't');

    EXPECT_EQ(Receive({Whole(Image(text))}), 0);
    EXPECT_TRUE(text_ == text);

    const std::string image = Image(text + "u");
    EXPECT_EQ(Receive({{.count = 2, .index = 0, .totalLen = kMebibyte + 1, .piece = image.substr(0, kMebibyte)},
                       {.count = 2, .index = 1, .totalLen = kMebibyte + 1, .piece = image.substr(kMebibyte)}}),
              0);
    EXPECT_TRUE(text_ == text + "u");
}

TEST_F(RecvLimitsTest, TakesALengthOf32Mebibytes)
{
    EXPECT_EQ(Receive({{.totalLen = kImageMax, .piece = Image("x")}}), 0);

    EXPECT_EQ(text_, "x");
}

TEST_F(RecvLimitsTest, RefusesALengthAbove32Mebibytes)
{
    EXPECT_EQ(Receive({{.totalLen = kImageMax + 1, .piece = Image("x")}}), kRecvError);
    EXPECT_EQ(Receive({{.totalLen = 0xFFFFFFFF, .piece = Image("x")}}), kRecvError);

    EXPECT_EQ(text_, "");
    EXPECT_EQ(user_, "") << "not looked at";
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Recv fail.recvlen:94, totallen:33554433"),
                                      Error("RecvPacket", "Recv fail.recvlen:94, totallen:-1")));
}

TEST_F(RecvLimitsTest, RefusesALengthOf0)
{
    EXPECT_EQ(Receive({Whole("")}), kRecvError);

    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Recv fail.recvlen:52, totallen:0")));
}

TEST_F(RecvLimitsTest, RefusesAPieceLongerThanTheMessage)
{
    EXPECT_EQ(Receive({{.totalLen = 44, .piece = Image("abcd")}}), 0) << "a failed copy is no failure";

    EXPECT_EQ(text_, "");
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Packet receiving problem due to string copying error.")));
}

TEST_F(RecvLimitsTest, RefusesMorePiecesThanTheMessageHolds)
{
    EXPECT_EQ(Receive({{.count = 3, .index = 0, .totalLen = 44, .piece = Image("abc")},
                       {.count = 3, .index = 1, .totalLen = 44, .piece = "d"}}),
              kRecvError);

    EXPECT_EQ(text_, "");
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Recv fail.recvlen:53, totallen:44")));
}

TEST_F(RecvOddHeadsTest, EndAtAnotherUser)
{
    const std::string image = Image("abc");

    EXPECT_EQ(Receive({{.count = 2, .index = 0, .totalLen = 44, .piece = image.substr(0, 42)},
                       {.count = 2, .index = 1, .totalLen = 44, .user = "roots", .piece = image.substr(42)}}),
              kRefused);

    EXPECT_EQ(text_, "");
    EXPECT_THAT(CliLog(),
                ElementsAre(Error("CheckUserPermission", "recv different username, old: root, new: roots.\n")));
}

TEST_F(RecvOddHeadsTest, EndAtAnotherAction)
{
    const std::string image = Image("abc");

    EXPECT_EQ(Receive({{.count = 2, .index = 0, .totalLen = 44, .piece = image.substr(0, 42)},
                       {.count = 2, .index = 1, .totalLen = 44, .action = "change", .piece = image.substr(42)}}),
              kRefused);

    EXPECT_EQ(text_, "");
    EXPECT_THAT(CliLog(),
                ElementsAre(Error("CheckUserPermission", "recv different actionName, old: show, new: change.\n")));
}

TEST_F(RecvOddHeadsTest, EndAtAnEmptyNameBehindAnother)
{
    const std::string image = Image("abc");

    EXPECT_EQ(Receive({{.count = 2, .index = 0, .totalLen = 44, .piece = image.substr(0, 42)},
                       {.count = 2, .index = 1, .totalLen = 44, .user = "", .piece = image.substr(42)}}),
              kRefused);
}

TEST_F(RecvOddHeadsTest, MayNameTheUserLater)
{
    const std::string image = Image("abc");

    EXPECT_EQ(Receive({{.count = 2, .index = 0, .totalLen = 44, .user = "", .piece = image.substr(0, 42)},
                       {.count = 2, .index = 1, .totalLen = 44, .user = "late", .piece = image.substr(42)}}),
              0);

    EXPECT_EQ(text_, "abc");
    EXPECT_EQ(user_, "late");
}

TEST_F(RecvOddHeadsTest, AreHeldAgainstWhatTheCallerKnows)
{
    user_ = "other";

    EXPECT_EQ(Receive({Whole(Image("abc"))}), kRefused);

    EXPECT_THAT(CliLog(),
                ElementsAre(Error("CheckUserPermission", "recv different username, old: other, new: root.\n")));
}

TEST_F(RecvOddHeadsTest, AreReadWithABound)
{
    Packet packet = Whole(Image("abc"));
    packet.user = std::string(32, 'u');
    packet.action = std::string(10, 'a');

    EXPECT_EQ(Receive({packet}), 0);

    EXPECT_EQ(user_, std::string(32, 'u'));
    EXPECT_EQ(action_, std::string(10, 'a'));
}

/** The room is what the smaller of the two lengths leaves. */
TEST_F(RecvOddHeadsTest, CannotMakeTheMessageLonger)
{
    EXPECT_EQ(Receive({{.count = 2, .index = 0, .totalLen = 50, .piece = Image("abcd")},
                       {.count = 2, .index = 1, .totalLen = 100, .piece = "123456"}}),
              0);

    EXPECT_EQ(text_, "abcd") << "what came before the piece that does not fit";
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Packet receiving problem due to string copying error.")));
}

TEST_F(RecvOddHeadsTest, CanFillTheMessageUnderALongerLength)
{
    EXPECT_EQ(Receive({{.count = 2, .index = 0, .totalLen = 50, .piece = std::string(40, '\0') + "abcde"},
                       {.count = 2, .index = 1, .totalLen = 100, .piece = "12345"}}),
              0);

    EXPECT_EQ(text_, "abcde12345");
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(RecvOddHeadsTest, CanMakeTheMessageShorter)
{
    const std::string first = std::string(40, '\0') + "abcde";

    EXPECT_EQ(Receive({{.count = 2, .index = 0, .totalLen = 50, .piece = first},
                       {.count = 2, .index = 1, .totalLen = 46, .piece = "1"}}),
              0);
    EXPECT_EQ(text_, "abcde1");
    EXPECT_THAT(CliLog(), IsEmpty());

    EXPECT_EQ(Receive({{.count = 2, .index = 0, .totalLen = 50, .piece = first},
                       {.count = 2, .index = 1, .totalLen = 46, .piece = "12"}}),
              0);
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Packet receiving problem due to string copying error.")));

    EXPECT_EQ(Receive({{.count = 2, .index = 0, .totalLen = 50, .piece = first},
                       {.count = 2, .index = 1, .totalLen = 45, .piece = "1"}}),
              kRecvError);
}

TEST_F(RecvOddHeadsTest, GiveNoTextForACountOf0)
{
    Packet packet = Whole(Image("abc"));
    packet.count = 0;

    EXPECT_EQ(Receive({packet}), 0);

    EXPECT_EQ(text_, "");
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(RecvOddHeadsTest, GiveNoTextForAnIndexBehindTheLast)
{
    for (const uint8_t index : {uint8_t{1}, uint8_t{255}}) {
        Packet packet = Whole(Image("abc"));
        packet.index = index;

        EXPECT_EQ(Receive({packet}), 0);

        EXPECT_EQ(text_, "");
    }
}

TEST_F(RecvOddHeadsTest, GoByTheLastPacketsCount)
{
    const std::string image = Image("abc");

    EXPECT_EQ(Receive({{.count = 9, .index = 0, .totalLen = 44, .piece = image.substr(0, 42)},
                       {.count = 9, .index = 0, .totalLen = 44, .piece = image.substr(42, 1)},
                       {.count = 3, .index = 2, .totalLen = 44, .piece = image.substr(43)}}),
              0);

    EXPECT_EQ(text_, "abc");
}

TEST_F(RecvOddHeadsTest, WaitForMoreThanCome)
{
    EXPECT_EQ(Receive({{.count = 255, .index = 253, .totalLen = 100, .piece = Image("abc")}}), kRecvError);

    EXPECT_EQ(text_, "") << "nothing of it survives";
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Recv fail.recvlen:0, totallen:100")));
}

TEST_F(RecvOddHeadsTest, MayBeShort)
{
    const std::string packet = Packet{.totalLen = 44}.Bytes();

    EXPECT_EQ(Receive({packet.substr(0, 51)}), 0);
    EXPECT_EQ(text_, "");
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Packet receiving problem due to string copying error.")));

    EXPECT_EQ(Receive({packet}), 0) << "a piece of no bytes is none too short";
    EXPECT_EQ(text_, "");
    EXPECT_EQ(CliLog().size(), 1u);
}

TEST_F(RecvOddHeadsTest, OfOneByteHaveNoLength)
{
    EXPECT_EQ(Receive({std::string("\1")}), kRecvError);

    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Recv fail.recvlen:1, totallen:0")));
}

TEST_F(RecvOddHeadsTest, OfAServerNeedAUser)
{
    EXPECT_EQ(Receive({Whole(Image("abc")).Bytes().substr(0, 8)}, kServer), kRefused);

    EXPECT_THAT(CliLog(), ElementsAre(Error("GetUserinWhiteList", "Username is empty; 0x40036901."),
                                      Error("CheckUserPermission", "compare fail\n.")));
}

TEST_F(RecvOddHeadsTest, OfAServerNeedAnAction)
{
    EXPECT_EQ(Receive({Whole(Image("abc"), "").Bytes()}, kServer), kRefused);

    EXPECT_THAT(CliLog(), ElementsAre(Error("GetUserinWhiteList", "ActionName is empty; 0x40036901."),
                                      Error("CheckUserPermission", "compare fail\n.")));
}

/** What is short takes the rest of its head from the packet before. */
TEST_F(RecvOddHeadsTest, MayBeShortBehindAnother)
{
    const Packet first = {.count = 2, .index = 0, .totalLen = 60, .piece = Image("abc")};
    Packet second = first;
    second.index = 1;

    EXPECT_EQ(Receive({first.Bytes(), second.Bytes().substr(0, 8)}), 0);

    EXPECT_EQ(text_, "abc");
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Packet receiving problem due to string copying error.")));
}

TEST_F(RecvPeerTest, MayCloseAtOnce)
{
    SocketPair sockets;
    sockets.CloseFar();
    errno = EINVAL;

    EXPECT_EQ(comm_.RecvString(text_, sockets.Near(), kServer, user_, action_), kRecvError);

    EXPECT_EQ(errno, 0) << "no system call failed";
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Recv fail.recvlen:0, totallen:0")));
}

TEST_F(RecvPeerTest, MayCloseWithinAMessage)
{
    SocketPair sockets;
    const std::string packet = Packet{.count = 2, .index = 0, .totalLen = 100, .piece = Image("abc")}.Bytes();
    ASSERT_EQ(write(sockets.Far(), packet.data(), packet.size()), static_cast<ssize_t>(packet.size()));
    sockets.CloseFar();

    EXPECT_EQ(comm_.RecvString(text_, sockets.Near(), kServer, user_, action_), kRecvError);

    EXPECT_EQ(text_, "");
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Recv fail.recvlen:0, totallen:100")));
}

TEST_F(RecvPeerTest, MayStall)
{
    SocketPair sockets;
    const struct timeval patience = {0, 20000};
    ASSERT_EQ(setsockopt(sockets.Near(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)), 0);
    const std::string packet = Packet{.count = 2, .index = 0, .totalLen = 100, .piece = Image("abc")}.Bytes();
    ASSERT_EQ(write(sockets.Far(), packet.data(), packet.size()), static_cast<ssize_t>(packet.size()));

    EXPECT_EQ(comm_.RecvString(text_, sockets.Near(), kServer, user_, action_), kRecvError);

    EXPECT_EQ(errno, EAGAIN) << "which the caller tells";
    EXPECT_EQ(text_, "");
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Recv fail.recvlen:-1, totallen:100")));
}

TEST_F(RecvPeerTest, MayFloodWithGarbage)
{
    SocketPair sockets;
    std::thread flood([&sockets] {
        const std::string garbage(64 * 1024, 'G');
        while (send(sockets.Far(), garbage.data(), garbage.size(), MSG_NOSIGNAL) > 0) {
        }
    });

    EXPECT_EQ(comm_.RecvString(text_, sockets.Near(), kServer, user_, action_), kRecvError);

    (void)shutdown(sockets.Near(), SHUT_RDWR);
    flood.join();
    EXPECT_EQ(text_, "");
    EXPECT_THAT(CliLog(), ElementsAre(HasSubstr("totallen:1195853639"))); // "GGGG"
}

TEST_F(RecvPeerTest, MayFloodWithPacketsThatNeverEnd)
{
    const std::string piece(kMebibyte, 'p');
    const std::vector<std::string> flood(
        40, Packet{.count = 255, .index = 0, .totalLen = kImageMax, .piece = piece}.Bytes());

    EXPECT_EQ(Receive(flood), kRecvError);

    EXPECT_EQ(g_incomingAt, 33u) << "the message is full after 32";
    EXPECT_EQ(text_, "");
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Recv fail.recvlen:1048628, totallen:33554432")));
}

TEST_F(RecvPeerTest, MayFloodWithEmptyPackets)
{
    const std::vector<std::string> flood(1000, Packet{.count = 2, .index = 0, .totalLen = 44}.Bytes());

    EXPECT_EQ(Receive(flood), kRecvError);

    EXPECT_EQ(g_incomingAt, 1000u);
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Recv fail.recvlen:0, totallen:44")));
}

TEST_F(RecvPeerTest, TellsTheSystemsError)
{
    g_recvErrno = ECONNRESET;

    EXPECT_EQ(Receive(std::vector<std::string>()), kRecvError);

    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_THAT(CliLog(), ElementsAre(Error("RecvPacket", "Recv fail.recvlen:-1, totallen:0")));
}

/** Over sockets that hold a whole message, so that each recv() gives a packet. */
TEST_F(CommRoundTripTest, CarriesEveryLength)
{
    for (const size_t length : {size_t{0}, size_t{1}, kMebibyte - 42, kMebibyte - 41, kMebibyte - 40,
                                5 * kMebibyte - 41, kImageMax - 42, kImageMax - 41}) {
        SocketPair sockets;
        const int room = 256 * 1024 * 1024;
        ASSERT_EQ(setsockopt(sockets.Near(), SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof(room)), 0);
        std::string text(length, 't');
        for (size_t i = 0; i < length; i += 65537) {
            text[i] = static_cast<char>('a' + i % 26);
        }
        std::string received;
        std::string user;
        std::string action;

        ASSERT_EQ(comm_.SendString(text, sockets.Near(), kClient, "show"), 0) << length;
        ASSERT_EQ(comm_.RecvString(received, sockets.Far(), kServer, user, action), 0) << length;

        EXPECT_TRUE(received == text) << length;
        EXPECT_EQ(user, "root");
        EXPECT_EQ(action, "show");
    }
}

TEST_F(CommRoundTripTest, PutsTheSameBytesOnASocketThatIsDrainedSlowly)
{
    const std::string text(2 * kMebibyte, 't');
    EXPECT_EQ(Send(text), 0);
    g_osCalls.send = send;
    SocketPair sockets;
    std::string bytes;
    std::thread reader([&] { bytes = sockets.ReadFar(); });

    EXPECT_EQ(comm_.SendString(text, sockets.Near(), kServer, "show"), 0);

    sockets.CloseNear();
    reader.join();
    EXPECT_EQ(g_sent.size(), 3u);
    EXPECT_TRUE(bytes == g_sent[0] + g_sent[1] + g_sent[2]);
}

TEST_F(IsCmdStrSecurityTest, TakesPlainTexts)
{
    for (const char *text : {"show", "show disk_info disk_id=3", "a'b", "(a)", "[a]{b}*?~#%^+,.:@/-_=", "\t", " "}) {
        EXPECT_TRUE(IsCmdStrSecurity(text)) << text;
    }
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(IsCmdStrSecurityTest, RefusesAnEmptyText)
{
    EXPECT_FALSE(IsCmdStrSecurity(""));

    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(IsCmdStrSecurityTest, RefusesTheStandardSet)
{
    for (const char c : std::string("|;&$><`\\!\n")) {
        WriteFile(LogPath(), "");
        const std::string text = std::string("show ") + c + "x";

        EXPECT_FALSE(IsCmdStrSecurity(text)) << text;
        EXPECT_FALSE(IsCmdStrSecurity(std::string(1, c))) << text;

        EXPECT_THAT(
            CliLog(),
            ElementsAre(Error("IsCmdStrSecurity", "cmd [" + text + "] contains standard injection char"),
                        Error("IsCmdStrSecurity", "cmd [" + std::string(1, c) + "] contains standard injection char")));
    }
}

TEST_F(IsCmdStrSecurityTest, RefusesTheSecondSet)
{
    for (const char c : std::string("\r\"")) {
        WriteFile(LogPath(), "");
        const std::string text = std::string("show ") + c + "x";

        EXPECT_FALSE(IsCmdStrSecurity(text)) << text;

        EXPECT_THAT(CliLog(), ElementsAre(Error("IsCmdStrSecurity", "cmd [" + text + "] contains injection char")));
    }
}

TEST_F(CliUserNameCntStrToIntTest, ConvertsDecimalNumbers)
{
    EXPECT_EQ(CliUserNameCntStrToInt("0"), 0);
    EXPECT_EQ(CliUserNameCntStrToInt("12"), 12);
    EXPECT_EQ(CliUserNameCntStrToInt("-12"), -12);
    EXPECT_EQ(CliUserNameCntStrToInt("010"), 10);
    EXPECT_EQ(CliUserNameCntStrToInt("2147483647"), 2147483647);
    EXPECT_EQ(CliUserNameCntStrToInt("12 users"), 12);
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(CliUserNameCntStrToIntTest, TellsWhatIsNone)
{
    EXPECT_EQ(CliUserNameCntStrToInt("users"), 0);
    EXPECT_EQ(CliUserNameCntStrToInt(""), 0);
    EXPECT_EQ(CliUserNameCntStrToInt("2147483648"), 0);

    EXPECT_THAT(CliLog(), ElementsAre(Error("CliUserNameCntStrToInt", "str [users] param err"),
                                      Error("CliUserNameCntStrToInt", "str [] param err"),
                                      Error("CliUserNameCntStrToInt", "str [2147483648] out of range")));
}
