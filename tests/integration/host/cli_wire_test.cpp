#include "cli_client.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <sys/socket.h>
#include <sys/stat.h>

namespace {

using testing::SizeIs;

const std::string kRule(63, '-');
const std::string kNoSlowDisk =
    "SlowDiskInfo:\nSn                                        Slot  State     \n" + kRule + "\n" + kRule + "\n";
const CliAnswer kTable{false, 0, kNoSlowDisk, "show"};
const CliAnswer kNothingRead{false, kCliUnknown, "null", ""}; // no text, no action

/** Only the server, without a store: what is sent is judged, not what a command says. */
class CliWireTest : public CliTest {
protected:
    void SetUp() override
    {
        CliTest::SetUp();
        StartForDisks();
    }

    static CliPacket Packet(const std::string &piece, uint8_t count = 1, uint8_t index = 0, uint32_t total = 0)
    {
        CliPacket packet;
        packet.count = count;
        packet.index = index;
        packet.piece = piece;
        packet.total = total == 0 ? static_cast<uint32_t>(piece.size()) : total;
        return packet;
    }

    /** Packets of which each is sent when the one before has been taken. */
    CliAnswer AskInTurn(const std::vector<std::string> &packets) const
    {
        int error = 0;
        const CliAnswer answer = CliParse(CliExchange(SocketPath(), packets, error));
        EXPECT_EQ(error, 0);
        return answer;
    }

    CliAnswer AskPacket(const CliPacket &packet) const { return CliParse(AskRaw(packet.Bytes())); }

    const std::string image_ = CliImage(CliRequestText("show slowdisk"));
    const uint32_t size_ = static_cast<uint32_t>(image_.size());
};

TEST_F(CliWireTest, AnswerIsOnePacketThatEndsTheConnection)
{
    EXPECT_EQ(AskPacket(Packet(image_)), kTable);

    const std::string document = CliDocument(AskRaw(CliRequest("show slowdisk", "show")));

    EXPECT_EQ(document, "<response><error_code>0</error_code><print_data>" + kNoSlowDisk +
                            "</print_data></response>\n"); // the saver's own line feed
    const std::string length = std::to_string(document.size() + 41);
    EXPECT_GE(
        CliLogLines("srvId: 1, username:root, dataHead->username:root, actionName:show, dataHead->actionName:show.")
            .size(),
        2u);
    EXPECT_GE(CliLogLines("Send success.sendLen:" + length + ".").size(), 2u);
    EXPECT_GE(CliLogLines("Recv success.recvLen:" + std::to_string(size_) + ".").size(), 2u);
    EXPECT_GE(CliLogLines("Start exec cmd:slowdisk.").size(), 2u);
}

TEST_F(CliWireTest, TextOfALargeElementCountsForNothing)
{
    const std::string text = CliRequestText("show slowdisk", std::string(100000, 'x'));

    EXPECT_EQ(AskPacket(Packet(CliImage(text))), kTable);
}

TEST_F(CliWireTest, PiecesOfAnyLengthAreJoined)
{
    for (const size_t cut : {size_t{0}, size_t{1}, size_t{39}, size_t{40}, size_t{41}, image_.size() - 1}) {
        EXPECT_EQ(AskInTurn({Packet(image_.substr(0, cut), 2, 0, size_).Bytes(),
                             Packet(image_.substr(cut), 2, 1, size_).Bytes()}),
                  kTable)
            << cut;
    }
    std::vector<std::string> packets;
    const uint8_t pieces = 32;
    for (uint8_t i = 0; i < pieces; i++) {
        const size_t from = image_.size() * i / pieces;
        const size_t to = image_.size() * (i + 1U) / pieces;
        packets.push_back(Packet(image_.substr(from, to - from), pieces, i, size_).Bytes());
    }
    EXPECT_EQ(AskInTurn(packets), kTable);
}

TEST_F(CliWireTest, IndexesAreNotCheckedForTheirOrder)
{
    // The last index ends the message, whatever came before it.
    EXPECT_EQ(AskPacket(Packet(image_, 2, 1)), kTable);
    EXPECT_EQ(AskPacket(Packet(image_, 255, 254)), kTable);
    EXPECT_EQ(
        AskInTurn({Packet(image_.substr(0, 50), 9, 3, size_).Bytes(), Packet(image_.substr(50), 9, 8, size_).Bytes()}),
        kTable);
}

TEST_F(CliWireTest, WrongCountsGiveNoText)
{
    EXPECT_EQ(AskPacket(Packet(image_, 0, 0)), kNothingRead);
    EXPECT_EQ(AskPacket(Packet(image_, 0, 255)), kNothingRead);
    EXPECT_EQ(AskPacket(Packet(image_, 1, 1)), kNothingRead);
    EXPECT_EQ(AskPacket(Packet(image_, 2, 200)), kNothingRead);
}

TEST_F(CliWireTest, TwoPacketsInOneReadAreOneThatDoesNotFit)
{
    const std::string both =
        Packet(image_.substr(0, 50), 2, 0, size_).Bytes() + Packet(image_.substr(50), 2, 1, size_).Bytes();

    EXPECT_EQ(CliParse(AskRaw(both)), kNothingRead);

    EXPECT_TRUE(WaitForCliLog("Packet receiving problem due to string copying error."));
}

TEST_F(CliWireTest, PacketThatComesInTwoReadsIsNotJoined)
{
    const std::string whole = Packet(image_).Bytes();
    const CliSocket client(SocketPath());
    ASSERT_TRUE(client.Send(whole.substr(0, 95)));

    // Its last two bytes are taken for the filler; the document ends in the middle.
    const CliAnswer answer = CliParse(client.ReadAll());

    EXPECT_EQ(answer, kNothingRead);
}

TEST_F(CliWireTest, TotalLengthMayBeMoreThanCame)
{
    EXPECT_EQ(AskPacket(Packet(image_, 1, 0, size_ + 1000)), kTable);
    EXPECT_EQ(AskPacket(Packet(image_, 1, 0, 0x2000000)), kTable) << "the largest";
    EXPECT_EQ(AskPacket(Packet(image_.substr(0, image_.size() - 1), 1, 0, size_)), kTable) << "no terminator came";
}

TEST_F(CliWireTest, TotalLengthBelowWhatCame)
{
    for (const uint32_t total : {1u, 40u, 41u, size_ - 1}) {
        EXPECT_EQ(AskPacket(Packet(image_, 1, 0, total)), kNothingRead) << total;
    }
    EXPECT_THAT(CliLogLines("Packet receiving problem due to string copying error."), SizeIs(4));
}

TEST_F(CliWireTest, TotalLengthThatIsRefused)
{
    CliPacket none = Packet(image_);
    none.total = 0;
    EXPECT_EQ(AskPacket(none), kCliClosed);
    EXPECT_TRUE(WaitForCliLog("Recv fail.recvlen:" + std::to_string(size_ + 52) + ", totallen:0"));

    EXPECT_EQ(AskPacket(Packet(image_, 1, 0, 0x2000001)), kCliClosed);
    EXPECT_TRUE(WaitForCliLog("Recv fail.recvlen:" + std::to_string(size_ + 52) + ", totallen:33554433"));
    EXPECT_EQ(AskPacket(Packet(image_, 1, 0, 0xFFFFFFFF)), kCliClosed);
}

TEST_F(CliWireTest, SecondPacketWithAnotherTotalLength)
{
    const std::string first = image_.substr(0, 50);
    const std::string second = image_.substr(50);

    EXPECT_EQ(AskInTurn({Packet(first, 2, 0, size_).Bytes(), Packet(second, 2, 1, size_ + 9999).Bytes()}), kTable);
    EXPECT_EQ(AskInTurn({Packet(first, 2, 0, size_).Bytes(),
                         Packet(second + std::string(5000, 'x'), 2, 1, size_ + 9999).Bytes()}),
              kNothingRead)
        << "there is room for the first only";
    EXPECT_EQ(AskInTurn({Packet(first, 2, 0, size_).Bytes(), Packet(second, 2, 1, size_ - 1).Bytes()}), kNothingRead);
    EXPECT_EQ(AskInTurn({Packet(first, 2, 0, size_).Bytes(), Packet(second, 2, 1, 50).Bytes()}), kCliClosed)
        << "50 bytes are not below a length of 50";
    EXPECT_EQ(AskInTurn({Packet(first, 2, 0, size_).Bytes(), Packet(second, 2, 1, 0x2000001).Bytes()}), kCliClosed);
}

TEST_F(CliWireTest, MoreThanTheTotalLengthInFurtherPackets)
{
    const std::string first = Packet(image_, 3, 0).Bytes();

    EXPECT_EQ(AskInTurn({first, Packet("x", 3, 1, size_).Bytes()}), kCliClosed);

    EXPECT_TRUE(WaitForCliLog("Recv fail.recvlen:53, totallen:" + std::to_string(size_)));
}

TEST_F(CliWireTest, ImageOfItsHeadOnlyIsAnEmptyText)
{
    EXPECT_EQ(AskPacket(Packet(image_.substr(0, 1))), kNothingRead);
    EXPECT_EQ(AskPacket(Packet(image_.substr(0, 40))), kNothingRead);
    EXPECT_EQ(AskPacket(Packet(CliImage(""))), kNothingRead);
    EXPECT_EQ(AskPacket(Packet("", 1, 0, 41)), kNothingRead) << "a packet of 52 bytes";
    EXPECT_TRUE(WaitForCliLog("Not found element cmd"));
    EXPECT_TRUE(WaitForCliLog("Not found element agrs"));
}

TEST_F(CliWireTest, ShortReads)
{
    const std::string whole = Packet(image_).Bytes();

    EXPECT_EQ(CliParse(AskRaw(whole.substr(0, 51))), kNothingRead) << "its head is there";
    EXPECT_EQ(CliParse(AskRaw(whole.substr(0, 50))), kNothingRead);
    EXPECT_THAT(CliLogLines("Packet receiving problem due to string copying error."), SizeIs(2));
    for (const size_t length : {1u, 4u, 7u}) {
        EXPECT_EQ(CliParse(AskRaw(whole.substr(0, length))), kCliClosed) << length;
    }
    EXPECT_EQ(CliParse(AskRaw(whole.substr(0, 8))), kCliClosed) << "no user";
    EXPECT_EQ(CliParse(AskRaw(whole.substr(0, 40))), kCliClosed) << "no action";
    EXPECT_EQ(Ask("show slowdisk"), kTable);
}

TEST_F(CliWireTest, PeerThatSendsNothingAndLeaves)
{
    {
        const CliSocket client(SocketPath());
        ASSERT_EQ(client.Error(), 0);
        client.CloseWriting();
        EXPECT_EQ(client.ReadAll(), "");
    }

    EXPECT_TRUE(WaitForCliLog("Recv fail.recvlen:0, totallen:0"));
    EXPECT_EQ(Ask("show slowdisk"), kTable);
}

TEST_F(CliWireTest, PeerThatLeavesBetweenPackets)
{
    {
        const CliSocket client(SocketPath());
        ASSERT_TRUE(client.Send(Packet(image_.substr(0, 50), 2, 0, size_).Bytes()));
        ASSERT_TRUE(client.WaitUntilRead());
    }

    EXPECT_TRUE(WaitForCliLog("Recv fail.recvlen:0, totallen:" + std::to_string(size_)));
    EXPECT_EQ(Ask("show slowdisk"), kTable);
}

TEST_F(CliWireTest, PeerThatDoesNotWaitForItsAnswer)
{
    {
        const CliSocket client(SocketPath());
        ASSERT_TRUE(client.Send(Packet(image_).Bytes()));
    }

    EXPECT_TRUE(Eventually([] { return !CliLogLines("Send fail. Socket closed by remote, errno{32}.").empty(); }));
    EXPECT_EQ(Ask("show slowdisk"), kTable);
}

TEST_F(CliWireTest, PeerThatFloods)
{
    const std::string noise(150000, '\xEE');
    {
        const CliSocket client(SocketPath());
        for (int i = 0; i < 100 && client.Send(noise); i++) {
        }
        EXPECT_EQ(client.ReadAll(), "");
    }

    EXPECT_EQ(Ask("show slowdisk"), kTable);
}

TEST_F(CliWireTest, HeadsMustNotChange)
{
    CliPacket first = Packet(image_.substr(0, 50), 2, 0, size_);
    CliPacket other = Packet(image_.substr(50), 2, 1, size_);
    other.user = "toor";
    EXPECT_EQ(AskInTurn({first.Bytes(), other.Bytes()}), kCliClosed);
    other = Packet(image_.substr(50), 2, 1, size_);
    other.action = "help";
    EXPECT_EQ(AskInTurn({first.Bytes(), other.Bytes()}), kCliClosed);
    other.action = "";
    EXPECT_EQ(AskInTurn({first.Bytes(), other.Bytes()}), kCliClosed);

    // Their texts end in a line feed of their own.
    EXPECT_TRUE(WaitForCliLog("recv different username, old: root, new: toor."));
    EXPECT_TRUE(WaitForCliLog("recv different actionName, old: show, new: help."));
    EXPECT_TRUE(WaitForCliLog("recv different actionName, old: show, new: ."));
    const std::string log = ReadText(std::string(kCliLogFolder) + "/cli.log");
    EXPECT_NE(log.find("old: root, new: toor.\n\n"), std::string::npos);
}

TEST_F(CliWireTest, CountMayChange)
{
    // Only the packet at hand says whether another follows.
    EXPECT_EQ(AskInTurn({Packet(image_.substr(0, 50), 200, 0, size_).Bytes(),
                         Packet(image_.substr(50), 1, 0, size_).Bytes()}),
              kTable);
}

TEST_F(CliWireTest, UserAndActionMustBeThere)
{
    CliPacket packet = Packet(image_);
    packet.user = "";
    EXPECT_EQ(AskPacket(packet), kCliClosed);
    EXPECT_TRUE(WaitForCliLog("Username is empty; 0x40036901."));
    EXPECT_TRUE(WaitForCliLog("compare fail")); // and a line feed of its own

    packet = Packet(image_);
    packet.action = "";
    EXPECT_EQ(AskPacket(packet), kCliClosed);
    EXPECT_TRUE(WaitForCliLog("ActionName is empty; 0x40036901."));
}

TEST_F(CliWireTest, FieldsOfTheHeadWithoutATerminator)
{
    CliPacket packet = Packet(image_);
    packet.user = std::string(40, 'u');
    packet.action = std::string(10, 'a');

    EXPECT_EQ(AskPacket(packet), kTable) << "the peer is root, and its head counts for nothing more";
}

TEST_F(CliWireTest, AnswersNameTheActionOfTheRequest)
{
    EXPECT_EQ(Ask("123456789 slowdisk", "show"), (CliAnswer{false, kCliFormat, "null", "123456789"}));
    EXPECT_EQ(Ask("1234567890 slowdisk", "show"), kCliClosed) << "a name of 10 characters cannot be sent";
    EXPECT_EQ(Ask("123456789 nothing", "show"), (CliAnswer{false, kCliUnknown, "null", "123456789"}));
    EXPECT_EQ(Ask("1234567890 nothing", "show"), kCliClosed);
    EXPECT_TRUE(WaitForCliLog("Packet preparing fail due to actionName copying error."));
    EXPECT_TRUE(WaitForCliLog("Packet initialization fail."));
}

TEST_F(CliWireTest, RequestsThatNameNoCommand)
{
    for (const char *text : {"", "no document", "<req>", "<req><cmd>a</cmd></req>", "<req><agrs></agrs></req>",
                             "<req><agrs/></req>", "<other><agrs>x y</agrs></other>", "<a/>", "<<<<", "<req",
                             "<req><in><agrs>show slowdisk</agrs></in></req>"}) {
        const std::string image = CliImage(text);
        const CliAnswer answer = AskPacket(Packet(image));
        EXPECT_EQ(answer.code, kCliUnknown) << text;
        EXPECT_EQ(answer.text, "null") << text;
        EXPECT_FALSE(answer.closed) << text;
    }
    for (const char *agrs : {"show", "foo", "show nothing", "show  slowdisk", " show slowdisk", "show slowdisk\t",
                             "show SLOWDISK", "slowdisk show"}) {
        const CliAnswer answer = Ask(agrs, "show");
        EXPECT_EQ(answer.code, kCliUnknown) << agrs;
        EXPECT_FALSE(answer.closed) << agrs;
    }
    EXPECT_FALSE(CliLogLines("CLI_COMMAND_PARAM_INVALID 0x4003690b.").empty());
}

TEST_F(CliWireTest, RequestOfOneWordIsItsOwnAction)
{
    EXPECT_EQ(Ask("slowdisk", "slowdisk"), (CliAnswer{false, kCliFormat, "null", "slowdisk"}));
}

TEST_F(CliWireTest, DocumentMayStandAnywhereInItsText)
{
    EXPECT_EQ(AskPacket(Packet(CliImage("<?xml version=\"1.0\"?>\n<req><agrs>show slowdisk</agrs></req>"))).closed,
              false);
    EXPECT_EQ(AskPacket(Packet(CliImage("<any><agrs>show slowdisk</agrs></any>"))), kTable)
        << "the root may have any name";
}

class CliBusyTest : public CliTest {
protected:
    void SetUp() override
    {
        CliTest::SetUp();
        g_hostResults.onLog = [this](const std::string &text) {
            if (hold_ && text.find("GET INFO START, INFO TYPE = 0") != std::string::npos) {
                std::unique_lock guard(lock_);
                held_ = true;
                changed_.notify_all();
                changed_.wait(guard, [this] { return !hold_; });
            }
        };
        StartForDisks();
    }

    bool WaitUntilHeld()
    {
        std::unique_lock guard(lock_);
        return changed_.wait_for(guard, std::chrono::seconds(30), [this] { return held_; });
    }

    void Release()
    {
        const std::lock_guard guard(lock_);
        hold_ = false;
        changed_.notify_all();
    }

    std::atomic<bool> hold_{false};
    bool held_ = false;
    std::mutex lock_;
    std::condition_variable changed_;
};

TEST_F(CliBusyTest, SecondCommandIsRefusedWhileOneRuns)
{
    hold_ = true;
    const CliSocket first(SocketPath());
    ASSERT_TRUE(first.Send(CliRequest("show disk_info disk_id=1", "show")));
    ASSERT_TRUE(WaitUntilHeld());

    for (int i = 0; i < 3; i++) {
        const CliSocket second(SocketPath());
        ASSERT_TRUE(second.Send(CliRequest("show slowdisk", "show")));
        EXPECT_EQ(CliParse(second.ReadAll()), (CliAnswer{false, kCliBusy, "null", "show"}));
    }
    EXPECT_EQ(Ask("show nothing"), (CliAnswer{false, kCliUnknown, "null", "show"})) << "this comes first";
    EXPECT_EQ(Ask("change nothing"), (CliAnswer{false, kCliUnknown, "null", "change"}));
    Release();

    EXPECT_EQ(CliParse(first.ReadAll()), (CliAnswer{false, kCliNoDisk, "null", ""}));
    EXPECT_THAT(CliLogLines("CLI_TASK_MAX_ERROR 0x4003690d."), SizeIs(testing::Ge(3u)));
    EXPECT_EQ(Ask("show slowdisk"), kTable) << "and the next one runs";
}

TEST_F(CliBusyTest, ManyClientsAtOnceAreAllAnswered)
{
    std::vector<std::unique_ptr<CliSocket>> clients;
    for (int i = 0; i < 100; i++) {
        clients.push_back(std::make_unique<CliSocket>(SocketPath()));
        ASSERT_EQ(clients.back()->Error(), 0);
        ASSERT_TRUE(clients.back()->Send(CliRequest("show slowdisk", "show")));
    }

    size_t tables = 0;
    for (const auto &client : clients) {
        const CliAnswer answer = CliParse(client->ReadAll());
        EXPECT_TRUE(answer == kTable || answer == (CliAnswer{false, kCliBusy, "null", "show"})) << answer;
        tables += answer == kTable ? 1 : 0;
    }
    EXPECT_GE(tables, 1u);
}

class CliServerTest : public CliTest {};

TEST_F(CliServerTest, SilentClientIsDroppedAfterAMinuteAndTheOthersWait)
{
    StartForDisks();
    const auto before = std::chrono::steady_clock::now();
    const CliSocket silent(SocketPath());
    ASSERT_EQ(silent.Error(), 0);
    const CliSocket waiting(SocketPath());
    ASSERT_TRUE(waiting.Send(CliRequest("show slowdisk", "show")));

    EXPECT_EQ(silent.ReadAll(), "");
    const auto silence = std::chrono::steady_clock::now() - before;
    EXPECT_EQ(CliParse(waiting.ReadAll()), kTable);

    EXPECT_GE(silence, std::chrono::seconds(59));
    EXPECT_TRUE(WaitForCliLog("Recv fail.recvlen:-1, totallen:0"));
    const std::string log = ReadText(std::string(kCliLogFolder) + "/cli.log");
    EXPECT_THAT(log, testing::ContainsRegex("\\]Recv failed err\\([^)]+\\), client\\([0-9]+\\) disconnected\\.\n"));
}

TEST_F(CliServerTest, SocketFileAndItsRights)
{
    WriteText(SocketPath(), "left by a crash");
    StartForDisks();

    struct stat seen {};
    ASSERT_EQ(lstat(SocketPath().c_str(), &seen), 0);
    EXPECT_TRUE(S_ISSOCK(seen.st_mode));
    EXPECT_EQ(seen.st_mode & 07777U, 0660U);
    EXPECT_EQ(seen.st_uid + seen.st_gid, 0u);
    EXPECT_TRUE(WaitForCliLog("Start accept thread."));
    EXPECT_TRUE(WaitForCliLog("Start recv thread."));
}

TEST_F(CliServerTest, StopRemovesTheFileAndClosesTheClients)
{
    StartForDisks();
    EXPECT_EQ(Ask("show slowdisk"), kTable);

    EXPECT_EQ(lib::Call<int()>{"UnInitCliServertoC"}(), 0);

    EXPECT_FALSE(std::filesystem::exists(SocketPath()));
    const CliSocket late(SocketPath());
    EXPECT_EQ(late.Error(), ENOENT);
    EXPECT_TRUE(WaitForCliLog("End accept thread."));
    EXPECT_TRUE(WaitForCliLog("End recv thread."));
}

TEST_F(CliServerTest, StopClosesThoseWhoWait)
{
    StartForDisks();
    const CliSocket first(SocketPath());
    ASSERT_TRUE(Eventually([] {
        return ReadText(std::string(kCliLogFolder) + "/cli.log").find("Client connected.") != std::string::npos;
    }));
    const CliSocket second(SocketPath());
    const CliSocket third(SocketPath());

    EXPECT_EQ(lib::Call<int()>{"UnInitCliServertoC"}(), 0);

    EXPECT_EQ(second.ReadAll(10), "");
    EXPECT_EQ(third.ReadAll(10), "");
}

TEST_F(CliServerTest, LongestSocketPath)
{
    // "/config/CLI_UDS.unix" takes 20 characters of at most 106.
    const auto start = [](size_t length) {
        const std::string prefix = "/tmp/" + std::string(length - 20 - 5, 'p');
        std::filesystem::create_directories(prefix + "/config");
        lib::Open();
        EXPECT_EQ(lib::SetPrefixPath(prefix.c_str()), 0u);
        const int result = lib::Call<int()>{"InitCliServertoC"}();
        EXPECT_EQ(std::filesystem::exists(prefix + "/config/CLI_UDS.unix"), result == 0);
        return result;
    };

    EXPECT_EQ(start(107), -1);
    EXPECT_THAT(CliLogLines("strcpy failed."), SizeIs(1));
    EXPECT_EQ(start(200), -1);
    EXPECT_EQ(start(106), 0);
}

TEST_F(CliServerTest, FolderThatIsNotThere)
{
    std::filesystem::remove_all(prefix_ + "/config");
    Open();

    EXPECT_EQ(lib::Call<int()>{"InitCliServertoC"}(), -1);

    EXPECT_THAT(CliLogLines("Bind socket failed."), SizeIs(1));
}

} // namespace
