#include "host_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

const FakeDisk kSata{"SN-S", "sda", "SSD_SATA", "ATA", "VSSD-480"};
const FakeDisk kNvme{"SN-N", "nvme0", "SSD_NVMe", "VELMAR", "VN1", "FW1", "1000", "512", "TLC", "0000:81:00.0"};

FakeDisk With40(FakeDisk disk)
{
    disk.sn = std::string(40, 's');
    return disk;
}

std::vector<FakeDisk> Fleet(size_t count)
{
    std::vector<FakeDisk> disks;
    for (size_t i = 0; i < count; i++) {
        FakeDisk disk = kSata;
        disk.sn = "SN-" + std::to_string(i);
        disk.device = "sd" + std::to_string(i);
        disks.push_back(disk);
    }
    return disks;
}

std::string NvmeHealth(const FakeDisk &disk)
{
    return R"({"serial_number":")" + disk.sn +
           R"(","power_on_hours":1,"wear":0,"disk_type":"SSD_NVMe","vendor_id":"V","critical_warning":3})";
}

class QueryPipelineTest : public HostTest {
protected:
    void SetUp() override
    {
        StartQuiet();
        AddAgents();
    }

    uint16_t DeviceList(size_t *given = nullptr)
    {
        const lib::AgentInfo agent = KernelAgent();
        uint16_t count = 7;
        lib::DiskBriefInfo **list = lib::QueryDeviceList(&agent, &count);
        if (given != nullptr) {
            *given = list == nullptr ? 0 : count;
        }
        if (list != nullptr) {
            lib::FreeSeparateMemoryList(reinterpret_cast<void **>(list), count);
        }
        return count;
    }
};

TEST_F(QueryPipelineTest, RequestsAreWrittenToTheByteAndNumberedFrom2)
{
    ServeDisks(*kernel_, {kSata, kNvme});
    kernel_->Result("dca_get_disks_iostat", R"({"tick_rate":"1000","ticks":"5","disks":[]})");

    EXPECT_EQ(DeviceList(), 2u);
    const lib::AgentInfo agent = KernelAgent();
    EXPECT_EQ(Query(2, agent, {kSata, kNvme}), 0u);
    (void)Query(3, agent, {kSata, kNvme});
    (void)Query(1, agent, {kSata, kNvme});

    const std::vector<std::string> requests = kernel_->Requests();
    ASSERT_GE(requests.size(), 5u);
    EXPECT_EQ(requests[0], R"({"jsonrpc":"2.0","method":"dca_get_disks_brief_info","id":2})");
    EXPECT_EQ(requests[1],
              R"({"jsonrpc":"2.0","method":"dca_get_disks_health_info","id":3,"params":{"devices":["sda","nvme0"]}})");
    EXPECT_EQ(
        WithoutId(kernel_->Requests("dca_get_disks_iostat").at(0)),
        R"({"jsonrpc":"2.0","method":"dca_get_disks_iostat","params":{"devices":["sda","nvme0"],"period":"20"}})");
    EXPECT_EQ(WithoutId(kernel_->Requests("dca_get_disks_base_info").at(0)),
              R"({"jsonrpc":"2.0","method":"dca_get_disks_base_info","params":{"devices":["sda","nvme0"]}})");
    EXPECT_EQ(WithoutId(kernel_->Requests("dca_get_disks_slotid").at(0)),
              R"({"jsonrpc":"2.0","method":"dca_get_disks_slotid","params":{"devices":[)"
              R"({"device_name":"nvme0","pci_address":"0000:81:00.0"}]}})");
}

TEST_F(QueryPipelineTest, DeviceListTellsAFailedAgentFromAnEmptyOne)
{
    EXPECT_EQ(DeviceList(), 0u);
    EXPECT_EQ(HostLogged(7, "[DCM]query answer: empty device list."), 1u);

    for (const char *answer :
         {"{}", R"({"jsonrpc":"2.0","id":1,"result":{}})", R"({"jsonrpc":"2.0","id":1,"result":{"disks":[]},"x":1})"}) {
        kernel_->Bytes("dca_get_disks_brief_info", answer);
        EXPECT_EQ(DeviceList(), std::string(answer).find("\"x\"") == std::string::npos ? 65535u : 0u) << answer;
    }
    EXPECT_EQ(HostLogged("[DCM]Response(see in debug log) not IsValidJsonResponse."), 2u);

    ServeDisks(*kernel_, {With40(kSata)});
    EXPECT_EQ(DeviceList(), 65535u);
    kernel_->Stop();
    EXPECT_EQ(DeviceList(), 65535u);
    EXPECT_EQ(HostLogged("[DCM]PostRequestWithJSON failed, maybe Offline response parse"), 1u);
}

TEST_F(QueryPipelineTest, DeviceListOf64IsTakenAnd65Refused)
{
    std::vector<FakeDisk> disks = Fleet(64);
    ServeDisks(*kernel_, disks);
    size_t given = 0;
    EXPECT_EQ(DeviceList(&given), 64u);
    EXPECT_EQ(given, 64u);

    disks = Fleet(65);
    ServeDisks(*kernel_, disks);
    EXPECT_EQ(DeviceList(), 65535u);
    EXPECT_EQ(HostLogged("[DCM]DiskList has too many items(target:65)(max:64)."), 1u);
}

TEST_F(QueryPipelineTest, BaseInformationGoesOutInSlicesOf13)
{
    ServeDisks(*kernel_, Fleet(14));

    EXPECT_EQ(Query(1, KernelAgent(), Fleet(13)), 0u);
    EXPECT_THAT(kernel_->Requests("dca_get_disks_base_info"), SizeIs(1));
    kernel_->ClearRequests();
    EXPECT_EQ(Query(1, KernelAgent(), Fleet(14)), 0u);

    std::vector<size_t> sizes;
    for (const std::string &request : kernel_->Requests("dca_get_disks_base_info")) {
        sizes.push_back(DevicesOf(request).size());
    }
    EXPECT_THAT(sizes, testing::UnorderedElementsAre(13u, 1u));
}

TEST_F(QueryPipelineTest, HealthGoesOutInSlicesOf4AndCountersInSlicesOf20)
{
    (void)Query(2, KernelAgent(), Fleet(64));
    (void)Query(3, KernelAgent(), Fleet(64));

    EXPECT_THAT(kernel_->Requests("dca_get_disks_health_info"), SizeIs(16));
    EXPECT_THAT(kernel_->Requests("dca_get_disks_iostat"), SizeIs(4));
}

TEST_F(QueryPipelineTest, OneBadDiskFailsOnlyItsSlice)
{
    std::vector<FakeDisk> disks = Fleet(8);
    ServeDisks(*kernel_, disks);
    Scan();
    kernel_->On("dca_get_disks_health_info", [disks](const std::string &request) {
        return FakeReply{FakeReply::TEXT, Envelope(DisksJson(disks, request, [](const FakeDisk &disk) {
                             return disk.device == "sd5" ? std::string("{}") : NvmeHealth(disk);
                         }))};
    });

    EXPECT_EQ(Query(2, KernelAgent(), disks), 22u);

    lib::DiskHealthInfo health{};
    ASSERT_EQ(lib::DiskSmartInfoCliGet(3, &health, sizeof(health)), 0u);
    EXPECT_EQ(health.detail[0], 3u);
    ASSERT_EQ(lib::DiskSmartInfoCliGet(4, &health, sizeof(health)), 0u);
    EXPECT_EQ(health.detail[0], 0u);
    EXPECT_EQ(HostLogged("[DCM]Copy(MessageType:2) failed(22)"), 1u);
    EXPECT_EQ(HostLogged("[DCM]Query Agent(unique_DCAK_agent) message(dca_get_disks_health_info) Batch Copy "
                         "Failed(22)."),
              1u);
    EXPECT_EQ(HostLogged("[DCM]query agent(unique_DCAK_agent) message(dca_get_disks_health_info) failed(ret:22)."), 1u);
    EXPECT_EQ(HostLogged("[DCM]Agent(unique_DCAK_agent) QueryMessageAndSave(message:dca_get_disks_health_info) "
                         "Failed(ret:22)(offset:4)(step:4)."),
              1u);
}

TEST_F(QueryPipelineTest, FewerDisksThanAskedAreStored)
{
    const std::vector<FakeDisk> disks = Fleet(3);
    ServeDisks(*kernel_, disks);
    Scan();
    kernel_->Result("dca_get_disks_health_info", "{\"disks\":[" + NvmeHealth(disks[1]) + "]}");

    (void)Query(2, KernelAgent(), disks);

    lib::DiskHealthInfo health{};
    ASSERT_EQ(lib::DiskSmartInfoCliGet(1, &health, sizeof(health)), 0u);
    EXPECT_EQ(health.detail[0], 3u);
    EXPECT_FALSE(Online(3));
}

TEST_F(QueryPipelineTest, MoreDisksThanAskedAre74)
{
    const std::vector<FakeDisk> disks = Fleet(2);
    kernel_->Result("dca_get_disks_health_info",
                    "{\"disks\":[" + NvmeHealth(disks[0]) + "," + NvmeHealth(disks[1]) + "]}");

    EXPECT_EQ(Query(2, KernelAgent(), {disks[0]}), 74u);

    EXPECT_EQ(HostLogged("[DCM]Response(see in debug log) not IsValidJsonResponse."), 1u);
}

TEST_F(QueryPipelineTest, NoAnswerIs5)
{
    kernel_->Stop();

    EXPECT_EQ(Query(2, KernelAgent(), {kSata}), 5u);

    EXPECT_EQ(HostLogged("[DCM]PostRequestWithJSON failed"), 1u);
}

TEST_F(QueryPipelineTest, SlotsOfSpdkDisksComeFromTheKernelAgent)
{
    ServeDisks(*spdk_, {kNvme});
    kernel_->Result("dca_get_disks_slotid", R"({"disks":[{"device_name":"nvme0","slot_id":5}]})");

    EXPECT_EQ(Query(1, SpdkAgent(), {kNvme}), 0u);

    EXPECT_EQ(Base(0).slotId, 5u);
    EXPECT_THAT(spdk_->Requests("dca_get_disks_slotid"), SizeIs(0));
    EXPECT_THAT(Registry(), HasSubstr("\"slotId\":\t5,"));
}

TEST_F(QueryPipelineTest, KernelAgentDownLeavesTheSlotOpen)
{
    ServeDisks(*spdk_, {kNvme});
    kernel_->Stop();

    EXPECT_EQ(Query(1, SpdkAgent(), {kNvme}), 0u);

    EXPECT_EQ(Base(0).slotId, kFail);
    EXPECT_STREQ(Base(0).pciAddr, "0000:81:00.0");
    EXPECT_EQ(HostLogged("[DCM]Query disk slot info failed, ret<5>"), 1u);
}

TEST_F(QueryPipelineTest, MergeTakesTheFirstOfTheSameNameAndOnlyNumbers)
{
    cJSON *slots = cJSON_Parse(R"({"disks":[{"device_name":"a","slot_id":"x"},{"device_name":"b","slot_id":4},)"
                               R"({"device_name":"b","slot_id":9}]})");
    cJSON *base = cJSON_Parse(R"({"disks":[{"device_name":"a"},{"device_name":"b"},{"device_name":"B"}]})");

    EXPECT_EQ(lib::MergeCJsonSlotIdIntoBaseInfo(slots, base), 0u);
    char *text = cJSON_PrintUnformatted(base);

    EXPECT_STREQ(text, R"({"disks":[{"device_name":"a"},{"device_name":"b","slot_id":4},{"device_name":"B"}]})");
    cJSON_free(text);
    EXPECT_EQ(lib::MergeCJsonSlotIdIntoBaseInfo(nullptr, base), 1u);
    EXPECT_EQ(lib::MergeCJsonSlotIdIntoBaseInfo(slots, nullptr), 1u);
    cJSON_Delete(slots);
    cJSON_Delete(base);
}

TEST_F(QueryPipelineTest, SaveMapRefusesBriefRecords)
{
    const lib::Call<uint32_t(uint32_t, cJSON *, void **, uint32_t)> save{"SaveMessage"};

    EXPECT_EQ(save(0, nullptr, nullptr, 0), 13u);

    EXPECT_EQ(HostLogged("[DCM]Access g_copyStructFromJsonStrategyMap MESSAGE_DISK_BRIEF_INFO config item. "
                         "MESSAGE_DISK_BRIEF_INFO should not invoke in g_saveMessageStrategyMap. Check why invoked. In "
                         "normal cases, correct func SaveDiskBriefInfo should invoked independently."),
              1u);
}

TEST_F(QueryPipelineTest, IostatNeedsItsTwoClocks)
{
    kernel_->Result("dca_get_disks_iostat", R"({"ticks":"5","disks":[]})");
    EXPECT_EQ(Query(3, KernelAgent(), {kSata}), 74u);
    kernel_->Result("dca_get_disks_iostat", R"({"tick_rate":1000,"ticks":"5","disks":[]})");
    EXPECT_EQ(Query(3, KernelAgent(), {kSata}), 74u);
}

} // namespace
