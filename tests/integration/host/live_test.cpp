#include "host_fixture.h"

#include <atomic>
#include <cstring>

namespace {

using testing::HasSubstr;

const FakeDisk kSata{"SN-SATA", "sda", "SSD_SATA", "ATA", "VLR-1"};
const FakeDisk kOwn{"SN-OWN", "sdb", "SSD_SAS", "VELMAR", "V1"};
const FakeDisk kOther{"SN-OTHER", "sdc", "SSD_SAS", "ORSYL", "V2"};
const FakeDisk kHdd{"SN-HDD", "sdd", "HDD_SAS", "TOSHIBA", "T1", "FW1", "4000787030016", "4096", "MAGNET"};
const FakeDisk kNvme{"SN-NVME", "nvme0",         "SSD_NVMe", "0x1f7c", "N1",
                     "FW1",     "1000204886016", "4096",     "QLC",    "0000:82:00.0"};

std::string Smart()
{
    std::string list;
    for (int i = 1; i <= 30; i++) {
        list += (i == 1 ? "" : ",") + std::string("{\"id\":") + std::to_string(i) +
                ",\"threshold\":10,\"current_value\":100,\"worst\":99}";
    }
    return list;
}

std::string Health(const FakeDisk &disk)
{
    const std::string head = R"({"serial_number":")" + disk.sn + R"(","power_on_hours":100,"wear":250,"disk_type":")";
    if (disk.sn == "SN-SATA") {
        return head + R"(SSD_SATA","vendor_id":"ATA","smart_list":[)" + Smart() + "]}";
    }
    if (disk.sn == "SN-OWN") {
        return head + R"(SSD_SAS","vendor_id":"VELMAR","capacitance_id":6,"capacitance_status":1})";
    }
    if (disk.sn == "SN-OTHER") {
        return head + R"(SSD_SAS","vendor_id":"ANOTHER","ASC":93,"ASCQ":16})";
    }
    if (disk.sn == "SN-HDD") {
        return head + R"(HDD_SAS","vendor_id":"TOSHIBA","is_support_ie_log":false,"ASC":11,"ASCQ":2})";
    }
    return head + R"(SSD_NVMe","vendor_id":"0x1f7c","critical_warning":4})";
}

/** A whole start with everything running on the library's own threads. */
class LiveCollectionTest : public HostTest {
protected:
    void SetUp() override
    {
        spdk_ = std::make_unique<FakeAgent>(kSpdkSocket);
        kernel_ = std::make_unique<FakeAgent>(kKernelSocket);
    }

    void TearDown() override { (void)lib::CancelAllQueryAgentScheduleTask(); }

    void Serve(FakeAgent &agent, const std::vector<FakeDisk> &disks)
    {
        ServeDisks(agent, disks);
        agent.On("dca_get_disks_health_info", [disks](const std::string &request) {
            return FakeReply{FakeReply::TEXT, Envelope(DisksJson(disks, request, Health))};
        });
        agent.On("dca_get_disks_iostat", [this, disks](const std::string &request) {
            const std::string second = std::to_string(++seconds_);
            const std::string list = DisksJson(disks, request, [&](const FakeDisk &disk) {
                return R"({"serial_number":")" + disk.sn + R"(","queue_depth":32,"io_busy_num":2,"io_time":")" +
                       second + R"(00000","bytes_read":")" + second + R"(048576","bytes_written":")" + second +
                       R"(000","num_read_ops":")" + second + R"(00","num_write_ops":")" + second +
                       R"(0","read_latency_ticks":")" + second + R"(00","write_latency_ticks":")" + second + "00\"}";
            });
            return FakeReply{FakeReply::TEXT,
                             Envelope(R"({"tick_rate":"1000","ticks":")" + second + R"(000",)" + list.substr(1))};
        });
    }

    void Start()
    {
        Open();
        uint32_t result = kFail;
        startOutput_ = CaptureStdout([&] { result = lib::InitCorvane(1); });
        ASSERT_EQ(result, 0u) << startOutput_;
    }

    static bool Is(uint32_t id, const char *sn)
    {
        lib::DiskMgrObj record{};
        return lib::DiskBaseInfoCliGet(id, &record, sizeof(record)) == 0 && std::strcmp(record.sn, sn) == 0;
    }

    static lib::DiskHealthInfo WaitForHealth(uint32_t id)
    {
        lib::DiskHealthInfo health{};
        EXPECT_TRUE(Eventually([&] {
            return lib::DiskSmartInfoCliGet(id, &health, sizeof(health)) == 0 && health.powerOnHours == 100;
        })) << id;
        EXPECT_EQ(health.wearInt, 2u);
        EXPECT_EQ(health.wearFrac, 50u);
        return health;
    }

    std::atomic<int> seconds_{10};
};

TEST_F(LiveCollectionTest, DisksOfBothAgentsArriveWithTheirRecords)
{
    Serve(*kernel_, {kSata, kOwn, kOther, kHdd});
    Start();
    ASSERT_TRUE(Eventually([] { return Is(3, "SN-HDD"); }));
    EXPECT_TRUE(Is(0, "SN-SATA"));
    EXPECT_TRUE(Is(1, "SN-OWN"));
    EXPECT_TRUE(Is(2, "SN-OTHER"));

    Serve(*spdk_, {kNvme});
    kernel_->Result("dca_get_disks_slotid", R"({"disks":[{"device_name":"nvme0","slot_id":21}]})");
    ASSERT_TRUE(Eventually([] { return Is(4, "SN-NVME"); }));

    const lib::DiskHealthInfo sata = WaitForHealth(0);
    for (int i = 0; i < 30; i++) {
        EXPECT_EQ(sata.detail[4 * i], i + 1);
        EXPECT_EQ(sata.detail[4 * i + 1], 10);
        EXPECT_EQ(sata.detail[4 * i + 2], 100);
        EXPECT_EQ(sata.detail[4 * i + 3], 99);
    }
    const lib::DiskHealthInfo own = WaitForHealth(1);
    EXPECT_EQ(own.detail[0], 6);
    EXPECT_EQ(own.detail[1], 1);
    const lib::DiskHealthInfo other = WaitForHealth(2);
    EXPECT_EQ(other.detail[0], 93);
    EXPECT_EQ(other.detail[1], 16);
    EXPECT_EQ(other.detail[2], 1);
    const lib::DiskHealthInfo hdd = WaitForHealth(3);
    EXPECT_EQ(hdd.detail[0], 11);
    EXPECT_EQ(hdd.detail[1], 2);
    EXPECT_EQ(hdd.detail[2], 0);
    EXPECT_EQ(WaitForHealth(4).detail[0], 4);
    EXPECT_EQ(Base(4).slotId, 21u);
    EXPECT_STREQ(Base(4).pciAddr, "0000:82:00.0");
    EXPECT_EQ(Base(4).mediaType, 3u);
}

TEST_F(LiveCollectionTest, StatisticsComeWithTheSecondSample)
{
    Serve(*kernel_, {kSata});
    Start();

    lib::DiskIoStatInfo stat{};
    ASSERT_TRUE(Eventually([&] { return lib::DiskIoStatInfoCliGet(0, &stat, sizeof(stat)) == 0; }));

    // Each sample stands for one second.
    EXPECT_EQ(stat.readIops, 100u);
    EXPECT_EQ(stat.writeIops, 10u);
    EXPECT_EQ(stat.readIoBand, 976u); // 1000000 bytes
    EXPECT_EQ(stat.writeIoBand, 0u);  // 1000 bytes
    EXPECT_EQ(stat.readIoDelay, 1000u);
    EXPECT_EQ(stat.writeIoDelay, 10000u);
    EXPECT_EQ(stat.queueDepth, 32u);
    EXPECT_EQ(stat.ioBusyNum, 2u);
    EXPECT_EQ(stat.avgServeTime, 909u);
    EXPECT_EQ(stat.utilizationInt, 10u);
    EXPECT_EQ(stat.utilizationFrac, 0u);
    EXPECT_GT(lib::Global<uint64_t>("g_ioStatFreshTime"), 0u);
    // Base information was asked for once, the rest again and again.
    ASSERT_TRUE(kernel_->WaitForRequests("dca_get_disks_iostat", 3));
    size_t ofWorker = 0;
    for (const std::string &request : kernel_->Requests("dca_get_disks_base_info")) {
        ofWorker += request.empty() ? 0 : 1;
    }
    EXPECT_LE(ofWorker, 2u); // the worker's, and the scan's if that came first
}

TEST_F(LiveCollectionTest, ADiskLeavesAndReturnsAndTheOtherStays)
{
    Serve(*kernel_, {kSata, kOwn});
    Start();
    ASSERT_TRUE(Eventually([] { return Is(0, "SN-SATA") && Is(1, "SN-OWN"); }));

    Serve(*kernel_, {kOwn});
    ASSERT_TRUE(kernel_->WaitForRequests("dca_get_disks_brief_info", 3));
    ASSERT_TRUE(Eventually([] { return !Online(0); }));
    EXPECT_TRUE(Is(1, "SN-OWN"));
    ASSERT_TRUE(WaitForHostLine("[DATA_MGR_MASTER]offline disk (disk id = 0) success"));

    Serve(*kernel_, {kSata, kOwn});
    ASSERT_TRUE(Eventually([] { return Is(2, "SN-SATA"); }));
    EXPECT_TRUE(Is(1, "SN-OWN"));
    ASSERT_TRUE(Eventually([this] { return Registry().find("SN-SATA") != std::string::npos; }));
}

TEST_F(LiveCollectionTest, WithoutAgentsTheLibraryWaitsForThem)
{
    kernel_->Stop();
    spdk_->Stop();
    Start();
    ASSERT_TRUE(WaitForHostLine("[DCM]query Agent(unique_DCAK_agent) failed(networkFail)."));
    ASSERT_TRUE(WaitForHostLine("[DCM]query Agent(unique_SPDK_agent) failed(networkFail)."));

    kernel_ = std::make_unique<FakeAgent>(kKernelSocket);
    Serve(*kernel_, {kSata});

    ASSERT_TRUE(Eventually([] { return Is(0, "SN-SATA"); }));
}

TEST_F(LiveCollectionTest, IdentifiersSurviveARestart)
{
    WriteText(RegistryPath(),
              "[{\"diskId\":9,\"diskState\":0,\"frameId\":4294967295,\"slotId\":4294967295,\"sectorSize\":512,"
              "\"diskType\":2,\"mediaType\":2,\"diskCapacity\":\"480103981056\",\"vendor\":\"ATA\",\"model\":\"VLR-1\","
              "\"sn\":\"SN-SATA\",\"pciAddr\":\"\",\"firmware\":\"FW1\"}]");
    Serve(*kernel_, {kSata, kOwn});

    Start();

    ASSERT_TRUE(Eventually([] { return Is(0, "SN-OWN"); }));
    EXPECT_TRUE(Is(9, "SN-SATA"));
    // The first base record of the worker brings the device's name back.
    EXPECT_TRUE(Eventually([] { return std::strcmp(Base(9).deviceName, "sda") == 0; }));
    EXPECT_THAT(Registry(), HasSubstr("\"diskId\":\t9,"));
}

} // namespace
