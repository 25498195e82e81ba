#include "agentd_fixture.h"

#include <fcntl.h>
#include <filesystem>
#include <list>
#include <sys/stat.h>
#include <thread>

using ::testing::MatchesRegex;

namespace {

const char *const kBrief = R"({"disks":[{"device_name":"sdzy","serial_number":"SATA-X1"},)"
                           R"({"device_name":"sdzz","serial_number":"SAS-X2"}]})";

std::string Envelope(const std::string &result, int id = 7)
{
    return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"result":)" + result + "}";
}

/** A valid request of this many bytes. */
std::string RequestOf(size_t size)
{
    std::string request = R"({"id":7,"pad":""})";
    request.insert(request.size() - 2, size - request.size(), 'x');
    return request;
}

} // namespace

TEST_F(ServingAgentdTest, ListsTheDisks)
{
    EXPECT_EQ(AskFor("dca_get_disks_brief_info"), Envelope(kBrief));
}

class AgentdLsblkModeTest : public ServingAgentdTest, public ::testing::WithParamInterface<const char *> {};

TEST_P(AgentdLsblkModeTest, TellsWhatTheDisksAre)
{
    InstallLsblk(GetParam());

    EXPECT_EQ(AskFor("dca_get_disks_brief_info"), Envelope(kBrief));
    EXPECT_EQ(AskFor("dca_get_disks_base_info", R"({"devices":["sdzz","sdzy"]})"),
              Envelope(R"({"disks":[{"device_name":"sdzz","serial_number":"SAS-X2","firmware_revision":"0104",)"
                       R"("disk_capacity":"4000787030016","vendor_id":"TOSHIBA","disk_type":"HDD_SAS",)"
                       R"("model_number":"MG04SCA40EA","sector_size":4096,"disk_media_type":"TLC"},)"
                       R"({"device_name":"sdzy","serial_number":"SATA-X1","firmware_revision":"2.5+",)"
                       R"("disk_capacity":"1600321314816","vendor_id":"ATA","disk_type":"SSD_SATA",)"
                       R"("model_number":"VSSD-1600","sector_size":512,"disk_media_type":"TLC"}]})"));
}

INSTANTIATE_TEST_SUITE_P(Modes, AgentdLsblkModeTest, ::testing::Values("2.23.2", "2.24", "2.38.1"),
                         [](const auto &test) { return "Lsblk" + std::to_string(test.index); });

TEST_F(ServingAgentdTest, TellsTheCounters)
{
    SetCounters(11, 55);

    EXPECT_THAT(
        AskFor("dca_get_disks_iostat", R"({"devices":["sdzz","sdza","sdzy"],"period":"20"})"),
        MatchesRegex(R"(\{"jsonrpc":"2.0","id":7,"result":\{"tick_rate":"[0-9]+","ticks":"[0-9]+","disks":\[)"
                     R"(\{"serial_number":"SAS-X2","io_busy_num":3,"queue_depth":256,"bytes_read":"0",)"
                     R"("num_read_ops":"0","bytes_written":"450560","num_write_ops":"55","read_latency_ticks":"0",)"
                     R"("write_latency_ticks":"250","io_time":"4000000"\},)"
                     R"(\{"serial_number":"SATA-X1","io_busy_num":9,"queue_depth":64,"bytes_read":"45056",)"
                     R"("num_read_ops":"11","bytes_written":"0","num_write_ops":"0","read_latency_ticks":"150",)"
                     R"("write_latency_ticks":"0","io_time":"2000000"\}\]\}\})"));
}

TEST_F(ServingAgentdTest, DisksThatCannotBeAskedHaveNoHealth)
{
    EXPECT_EQ(AskFor("dca_get_disks_health_info", R"({"devices":["sdzy","sdzz"]})"), kNoDisks);
}

TEST_F(ServingAgentdTest, OtherRequestsHaveTheirAnswers)
{
    EXPECT_EQ(Ask(R"({"id":7})"), kNoDisks);
    EXPECT_EQ(Ask(R"({"method":"x"})"), R"({"jsonrpc":"2.0","id":0,"result":{"result":"sokect ok"}})");
    EXPECT_EQ(AskFor("dca_get_disks_slotid", R"({"devices":[]})"), kNoDisks);
}

TEST_F(ServingAgentdTest, RequestOf3071BytesFitsAndOneMoreDoesNot)
{
    EXPECT_EQ(Ask(RequestOf(3071)), kNoDisks);
    EXPECT_EQ(Ask(RequestOf(3072)), "");
    EXPECT_EQ(Ask(RequestOf(100000)), "");

    EXPECT_EQ(Ask(R"({"id":7})"), kNoDisks);
}

TEST_F(ServingAgentdTest, GarbageIsNotAnswered)
{
    const std::vector<std::string> garbage{"x",
                                           "{",
                                           R"({"id":)",
                                           R"({"id":7,})",
                                           std::string(3071, '['),
                                           std::string(100, '\0'),
                                           "\xff\xfe{}",
                                           "\"" + std::string(3070, 'x')};
    for (const std::string &request : garbage) {
        EXPECT_EQ(Ask(request), "") << request;
    }

    EXPECT_EQ(Ask(R"({"id":7})"), kNoDisks);
}

TEST_F(ServingAgentdTest, NamesDoNotReachTheShell)
{
    for (const char *name : {"sdzy;touch /tmp/owned", "$(touch /tmp/owned)", "`touch /tmp/owned`",
                             "sdzy|touch /tmp/owned", "sdzy\\ntouch /tmp/owned", "sdzy&touch /tmp/owned"}) {
        const std::string params = std::string(R"({"devices":[")") + name + "\"]}";

        EXPECT_EQ(AskFor("dca_get_disks_base_info", params), kNoDisks) << name;
        EXPECT_EQ(AskFor("dca_get_disks_health_info", params), kNoDisks) << name;
        EXPECT_THAT(AskFor("dca_get_disks_iostat", params), ::testing::EndsWith(R"("disks":[]}})")) << name;
    }

    EXPECT_FALSE(std::filesystem::exists("/tmp/owned"));
}

TEST_F(ServingAgentdTest, LinkSwitchTwiceBringsTheLinkBack)
{
    const std::string linkErr = Envelope(R"({"result":"link err"})");

    EXPECT_EQ(AskFor("dcak_link_status_switch"), Envelope(R"({"result":"link stat change"})"));
    EXPECT_EQ(AskFor("dca_get_disks_brief_info"), linkErr);
    EXPECT_EQ(AskFor("debug_switch"), linkErr);
    EXPECT_EQ(AskFor("dcak_link_status_switch"), Envelope(R"({"result":"link stat change"})"));

    EXPECT_EQ(AskFor("dca_get_disks_brief_info"), Envelope(kBrief));
}

TEST_F(ServingAgentdTest, DebugSwitchAnswers)
{
    EXPECT_EQ(AskFor("debug_switch"), Envelope(R"({"result":"debug stat change"})"));
    EXPECT_EQ(AskFor("dca_get_disks_brief_info"), Envelope(kBrief));
    EXPECT_EQ(AskFor("debug_switch"), Envelope(R"({"result":"debug stat change"})"));
}

TEST_F(ServingAgentdTest, FiftyClientsAtATimeGetTheirOwnAnswers)
{
    constexpr int kClients = 50;
    std::vector<std::string> answers(kClients);
    std::vector<std::thread> threads;
    for (int i = 0; i < kClients; i++) {
        threads.emplace_back([&answers, i] {
            answers[static_cast<size_t>(i)] =
                Ask(R"({"id":)" + std::to_string(i) + R"(,"method":"dca_get_disks_brief_info"})");
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }

    for (int i = 0; i < kClients; i++) {
        EXPECT_EQ(answers[static_cast<size_t>(i)], Envelope(kBrief, i));
    }
}

TEST_F(ServingAgentdTest, SilentClientsKeepNobodyWaiting)
{
    long busy = 0;
    {
        const std::list<Client> silent(20);
        for (const Client &client : silent) {
            ASSERT_EQ(client.Error(), 0);
        }

        EXPECT_EQ(AskFor("dca_get_disks_brief_info"), Envelope(kBrief));

        busy = Threads(); // the last request was accepted after all of them
        silent.back().Send(R"({"id":7})");
        EXPECT_EQ(silent.back().Receive(), kNoDisks) << "a silent one may still ask";
    }

    EXPECT_TRUE(WaitForThreads(busy - 19)) << "clients that have gone keep their threads";
}

TEST_F(ServingAgentdTest, OutlivesAClientThatGivesUpBeforeTheAnswer)
{
    ASSERT_EQ(mkfifo("/tmp/gate", 0600), 0);
    {
        const Client client;
        client.Send(R"({"id":7,"method":"dca_get_disks_brief_info"})");
    }

    UniqueFd gate; // can be opened once the tool has, so the request is being handled
    for (int i = 0; i < 6000 && !gate.Valid() && Agent().Running(); i++) {
        gate.Reset(open("/tmp/gate", O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(gate.Valid()) << "no request has arrived";
    (void)std::filesystem::remove("/tmp/gate");
    const long busy = Threads();
    gate.Reset();

    EXPECT_TRUE(WaitForThreads(busy - 1)) << "the answer is not sent";
    ASSERT_TRUE(Agent().Running());
    EXPECT_EQ(AskFor("dca_get_disks_brief_info"), Envelope(kBrief));
}
