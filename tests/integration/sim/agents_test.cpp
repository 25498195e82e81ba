// The right answers of both agents.
#include "sample_fleet.h"
#include "sim_process.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;

std::vector<std::string> All(const cJSON *result, const std::string &member)
{
    std::vector<std::string> values;
    for (int i = 0; i < cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(result, "disks")); i++) {
        values.push_back(At(result, "disks." + std::to_string(i) + "." + member));
    }
    return values;
}

class AgentsTest : public SimTest {
protected:
    void SetUp() override { Start(Sample()); }
};

TEST_F(AgentsTest, EachAgentListsItsOwnDisks)
{
    const Json kernel = ResultOf(Kernel(), "dca_get_disks_brief_info");
    const Json spdk = ResultOf(Spdk(), "dca_get_disks_brief_info");

    EXPECT_THAT(All(kernel.get(), "device_name"), ElementsAre("sda", "sdb", "sdc", "sdd", "sde", "sdf"));
    EXPECT_THAT(All(kernel.get(), "serial_number"),
                ElementsAre("SATA1", "SASOWN1", "SASFOREIGN1", "HDD1", "NL1", "SATAHDD1"));
    EXPECT_THAT(All(spdk.get(), "serial_number"), ElementsAre("NVME1", "NVME2"));
}

TEST_F(AgentsTest, BaseInfoCarriesAllMembers)
{
    const Json result = ResultOf(Kernel(), "dca_get_disks_base_info", R"({"devices":["sda","sdb","sdd"]})");

    EXPECT_EQ(
        At(result.get(), "disks.0"),
        R"({"device_name":"sda","serial_number":"SATA1","firmware_revision":"FW1","disk_capacity":"480103981056",)"
        R"("vendor_id":"ATA","disk_type":"SSD_SATA","model_number":"VSSD-1","sector_size":512,)"
        R"("disk_media_type":"TLC"})");
    EXPECT_EQ(At(result.get(), "disks.1.disk_capacity"), "18446744073709551615");
    EXPECT_EQ(At(result.get(), "disks.1.disk_media_type"), "MLC");
    EXPECT_EQ(At(result.get(), "disks.2.disk_media_type"), "MAGNET");
    EXPECT_EQ(At(result.get(), "disks.2.sector_size"), "4096");
}

TEST_F(AgentsTest, BaseInfoOfNvmeHasItsPciAddress)
{
    const Json result = ResultOf(Spdk(), "dca_get_disks_base_info", R"({"devices":["nvme0"]})");

    EXPECT_EQ(At(result.get(), "disks.0.disk_type"), "SSD_NVMe");
    EXPECT_EQ(At(result.get(), "disks.0.pci_address"), "0000:81:00.0");
    EXPECT_EQ(At(result.get(), "disks.0.slot_id"), "") << "slots are told by the kernel agent alone";
}

struct HealthCase {
    const char *device;
    const char *expected;
};

class AgentsHealthTest : public SimTest, public testing::WithParamInterface<HealthCase> {};

TEST_P(AgentsHealthTest, ReportsTheMembersOfItsClass)
{
    Start(Sample());
    const bool isNvme = std::string(GetParam().device).rfind("nvme", 0) == 0;

    const Json result = ResultOf(isNvme ? Spdk() : Kernel(), "dca_get_disks_health_info",
                                 std::string(R"({"devices":[")") + GetParam().device + "\"]}");

    EXPECT_EQ(At(result.get(), "disks.0"), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Classes, AgentsHealthTest,
    testing::Values(
        HealthCase{"sdb", R"({"serial_number":"SASOWN1","power_on_hours":12,"wear":1234,"disk_type":"SSD_SAS",)"
                          R"("vendor_id":"velmar","capacitance_id":242,"capacitance_status":3})"},
        HealthCase{"sdc", R"({"serial_number":"SASFOREIGN1","power_on_hours":0,"wear":0,"disk_type":"SSD_SAS",)"
                          R"("vendor_id":"OTHER","ASC":93,"ASCQ":16})"},
        HealthCase{"sdd", R"({"serial_number":"HDD1","power_on_hours":0,"wear":0,"disk_type":"HDD_SAS",)"
                          R"("vendor_id":"SEAGATE","is_support_ie_log":false,"ASC":1,"ASCQ":2})"},
        HealthCase{"sde", R"({"serial_number":"NL1","power_on_hours":0,"wear":0,"disk_type":"HDD_NL_SAS",)"
                          R"("vendor_id":"TOSHIBA","is_support_ie_log":true,"ASC":3,"ASCQ":4})"},
        HealthCase{"sdf", R"({"serial_number":"SATAHDD1","power_on_hours":0,"wear":0,"disk_type":"HDD_SATA",)"
                          R"("vendor_id":"ATA","is_support_ie_log":true,"ASC":5,"ASCQ":6})"},
        HealthCase{"nvme0", R"({"serial_number":"NVME1","power_on_hours":0,"wear":777,"disk_type":"SSD_NVMe",)"
                            R"("vendor_id":"0x1f7c","critical_warning":5})"}));

TEST_F(AgentsTest, SataSsdReportsThirtySmartEntries)
{
    const Json result = ResultOf(Kernel(), "dca_get_disks_health_info", R"({"devices":["sda"]})");

    EXPECT_EQ(At(result.get(), "disks.0.power_on_hours"), "11");
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(
                  cJSON_GetArrayItem(cJSON_GetObjectItemCaseSensitive(result.get(), "disks"), 0), "smart_list")),
              30);
    EXPECT_EQ(At(result.get(), "disks.0.smart_list.0"), R"({"id":5,"threshold":10,"current_value":90,"worst":80})");
    EXPECT_EQ(At(result.get(), "disks.0.smart_list.1"), R"({"id":9,"threshold":0,"current_value":70,"worst":70})");
    EXPECT_EQ(At(result.get(), "disks.0.smart_list.29"), R"({"id":0,"threshold":0,"current_value":0,"worst":0})");
}

TEST_F(AgentsTest, UnknownDeviceEmptiesBaseAndHealthOfTheKernelAgent)
{
    for (const char *method : {"dca_get_disks_base_info", "dca_get_disks_health_info"}) {
        for (const char *devices : {R"({"devices":["sda","nosuch"]})", R"({"devices":["sda",5]})"}) {
            const Json result = ResultOf(Kernel(), method, devices);

            EXPECT_EQ(At(result.get(), ""), R"({"disks":[]})") << method << devices;
        }
    }
}

TEST_F(AgentsTest, UnknownDeviceIsLeftOutElsewhere)
{
    const Json frames = ResultOf(Kernel(), "dca_get_disks_iostat", R"({"devices":["nosuch",5,"sda"],"period":"20"})");
    const Json base = ResultOf(Spdk(), "dca_get_disks_base_info", R"({"devices":["nosuch","nvme1"]})");

    EXPECT_THAT(All(frames.get(), "serial_number"), ElementsAre("SATA1"));
    EXPECT_THAT(All(base.get(), "serial_number"), ElementsAre("NVME2"));
}

TEST_F(AgentsTest, KernelAgentKnowsSlotsOfNvmeDisks)
{
    const Json known = ResultOf(Kernel(), "dca_get_disks_slotid",
                                R"({"devices":[{"device_name":"nvme0","pci_address":"0000:81:00.0"}]})");
    const Json withUnknown = ResultOf(Kernel(), "dca_get_disks_slotid",
                                      R"({"devices":[{"device_name":"nvme0","pci_address":"0000:81:00.0"},)"
                                      R"({"device_name":"nvme1","pci_address":"0000:82:00.0"}]})");
    const Json none = ResultOf(Kernel(), "dca_get_disks_slotid", R"({"devices":[]})");

    EXPECT_EQ(At(known.get(), ""), R"({"disks":[{"device_name":"nvme0","slot_id":4}]})");
    EXPECT_EQ(At(withUnknown.get(), ""), R"({"disks":[]})");
    EXPECT_EQ(At(none.get(), ""), R"({"disks":[]})");
}

TEST_F(AgentsTest, LinkSwitchMakesEveryMethodFailUntilFlippedBack)
{
    const auto answer = [this](const char *method) { return At(ResultOf(Kernel(), method).get(), ""); };

    EXPECT_EQ(answer("dcak_link_status_switch"), R"({"result":"link stat change"})");
    EXPECT_EQ(answer("dca_get_disks_brief_info"), R"({"result":"link err"})");
    EXPECT_EQ(answer("debug_switch"), R"({"result":"link err"})");
    EXPECT_EQ(answer("dcak_link_status_switch"), R"({"result":"link stat change"})");
    EXPECT_EQ(answer("debug_switch"), R"({"result":"debug stat change"})");
    EXPECT_NE(answer("dca_get_disks_brief_info"), R"({"result":"link err"})");
}

struct OddRequest {
    const char *request;
    const char *answer;
};

class AgentsOddRequestTest : public SimTest, public testing::WithParamInterface<OddRequest> {};

TEST_P(AgentsOddRequestTest, KernelAgentAnswers)
{
    Start(Sample());

    EXPECT_EQ(Ask(Kernel(), GetParam().request), GetParam().answer);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, AgentsOddRequestTest,
    testing::Values(OddRequest{R"({"id":7})", R"({"jsonrpc":"2.0","id":7,"result":{"disks":[]}})"},
                    OddRequest{R"({"id":8,"method":5})", R"({"jsonrpc":"2.0","id":8,"result":{"disks":[]}})"},
                    OddRequest{R"({"method":"x"})", R"({"jsonrpc":"2.0","id":0,"result":{"result":"sokect ok"}})"},
                    OddRequest{R"({"id":"9","method":""})",
                               R"({"jsonrpc":"2.0","id":0,"result":{"result":"sokect ok"}})"},
                    OddRequest{R"({"ID":1,"METHOD":"x"})", R"({"jsonrpc":"2.0","id":0,"result":{"disks":[]}})"},
                    OddRequest{"this is no JSON", ""}));

TEST_F(AgentsTest, KernelAgentTakesARequestOf3071BytesAndNoMore)
{
    const std::string request = RequestOf("dca_get_disks_brief_info");
    const auto padded = [&request](size_t size) {
        return "{" + std::string(size - request.size(), ' ') + request.substr(1);
    };

    EXPECT_NE(Ask(Kernel(), padded(3071)), "");
    EXPECT_EQ(Ask(Kernel(), padded(3072)), "");
}

TEST_F(AgentsTest, SpdkAgentTakesARequestInParts)
{
    const std::string request = RequestOf("dca_get_disks_brief_info");
    const int fd = Connect(Spdk());
    ASSERT_EQ(send(fd, request.data(), 10, 0), 10);
    // Another exchange in between proves that the first part has been looked at.
    (void)ResultOf(Spdk(), "dca_get_disks_brief_info");
    ASSERT_EQ(send(fd, request.data() + 10, request.size() - 10, 0), static_cast<ssize_t>(request.size() - 10));

    char answer[4096] = {};
    const ssize_t got = recv(fd, answer, sizeof(answer) - 1, 0);
    close(fd);

    ASSERT_GT(got, 0);
    EXPECT_THAT(std::string(answer), testing::HasSubstr("NVME2"));
}

TEST_F(AgentsTest, AnswerArrivesWholeInOneReceive)
{
    const std::string once = AskOnce(Kernel(), RequestOf("dca_get_disks_health_info", R"({"devices":["sda"]})"));

    EXPECT_GT(once.size(), 1500U);
    EXPECT_NE(Json(cJSON_Parse(once.c_str())), nullptr);
}

class AgentsMirrorTest : public SimTest, public testing::WithParamInterface<const char *> {};

TEST_P(AgentsMirrorTest, SpdkSocketAcceptsTheDataAgentsMethods)
{
    Start(Sample());

    const Json result = ResultOf(Spdk(), GetParam(), R"({"sn":"NVME1"})");

    EXPECT_EQ(At(result.get(), ""), "true");
}

INSTANTIATE_TEST_SUITE_P(Methods, AgentsMirrorTest,
                         testing::Values("dma_set_disk_info_inner", "dma_set_disk_state",
                                         "dma_set_disk_handle_strategy", "dma_poweroff_disk", "dca_rebind_nvme2uio"));

TEST_F(SimTest, RebindBringsADiskThatAwaitsIt)
{
    Start(R"({"disks":[{"device_name":"nvme0","serial_number":"N1","disk_type":"SSD_NVMe","vendor_id":"VELMAR",)"
          R"("model_number":"M","disk_capacity":1,"pci_address":"0000:81:00.0","awaits_rebind":true}]})");
    const Json before = ResultOf(Spdk(), "dca_get_disks_brief_info");

    (void)ResultOf(Spdk(), "dca_rebind_nvme2uio", R"({"pci_address":"0000:99:00.0"})");
    const Json afterOther = ResultOf(Spdk(), "dca_get_disks_brief_info");
    (void)ResultOf(Spdk(), "dca_rebind_nvme2uio", R"({"pci_address":"0000:81:00.0"})");
    const Json after = ResultOf(Spdk(), "dca_get_disks_brief_info");

    EXPECT_EQ(At(before.get(), "disks"), "[]");
    EXPECT_EQ(At(afterOther.get(), "disks"), "[]");
    EXPECT_EQ(At(after.get(), "disks.0.serial_number"), "N1");
}

TEST_F(SimTest, AgentOfADiskCanBeChosen)
{
    Start(R"({"disks":[{"device_name":"sda","serial_number":"S1","disk_type":"SSD_SATA","vendor_id":"ATA",)"
          R"("model_number":"VSSD-","disk_capacity":1,"agent":"spdk"}]})");

    const Json health = ResultOf(Spdk(), "dca_get_disks_health_info", R"({"devices":["sda"]})");

    EXPECT_EQ(At(ResultOf(Kernel(), "dca_get_disks_brief_info").get(), "disks"), "[]");
    EXPECT_EQ(At(health.get(), "disks.0.SMART_list.0.id"), "0");
}

TEST_F(AgentsTest, EveryRequestIsRecorded)
{
    (void)Ask(Kernel(), RequestOf("dca_get_disks_base_info", R"({"devices":["sda"]})", 41));
    (void)Ask(Spdk(), RequestOf("dma_poweroff_disk", R"({"sn":"NVME1"})", 42));
    (void)Ask(Kernel(), R"({"id":43})");
    (void)Ask(Spdk(), RequestOf("dca_get_disks_brief_info"));
    (void)Ask(Kernel(), "no \"JSON\"");

    const auto lines = Record(5);

    ASSERT_EQ(lines.size(), 5U);
    const auto without = [&lines](size_t i) {
        cJSON_DeleteItemFromObjectCaseSensitive(lines[i].get(), "time");
        return At(lines[i].get(), "");
    };
    EXPECT_GE(cJSON_GetObjectItemCaseSensitive(lines[1].get(), "time")->valuedouble,
              cJSON_GetObjectItemCaseSensitive(lines[0].get(), "time")->valuedouble);
    EXPECT_EQ(without(0),
              R"({"socket":"kernel","method":"dca_get_disks_base_info","id":41,"params":{"devices":["sda"]}})");
    EXPECT_EQ(without(1), R"({"socket":"spdk","method":"dma_poweroff_disk","id":42,"params":{"sn":"NVME1"}})");
    EXPECT_EQ(without(2), R"({"socket":"kernel","method":null,"id":43,"params":null})");
    EXPECT_EQ(without(3), R"({"socket":"spdk","method":"dca_get_disks_brief_info","id":7,"params":null})");
    EXPECT_EQ(without(4), R"({"socket":"kernel","method":null,"id":null,"params":null,"unreadable":"no \"JSON\""})");
}

TEST_F(AgentsTest, ServesHundredsOfConnectionsAtOnce)
{
    std::vector<int> open;
    for (int i = 0; i < 400; i++) {
        open.push_back(Connect(Kernel()));
        ASSERT_GE(open.back(), 0) << i;
    }
    const std::string request = RequestOf("dca_get_disks_brief_info");
    for (const int fd : open) {
        ASSERT_EQ(send(fd, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    }

    for (const int fd : open) {
        char answer[8192];
        const ssize_t got = recv(fd, answer, sizeof(answer), 0);
        EXPECT_GT(got, 100);
        close(fd);
    }
}

TEST_F(AgentsTest, ClientsThatGoAwayDoNoHarm)
{
    for (int i = 0; i < 50; i++) {
        close(Connect(Kernel()));
        const int fd = Connect(Spdk());
        const std::string request = RequestOf("dca_get_disks_brief_info");
        (void)send(fd, request.data(), request.size(), MSG_NOSIGNAL);
        close(fd);
    }

    EXPECT_NE(Ask(Kernel(), RequestOf("dca_get_disks_brief_info")), "");
    EXPECT_NE(Ask(Spdk(), RequestOf("dca_get_disks_brief_info")), "");
}

} // namespace
