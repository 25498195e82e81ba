#include "host_fixture.h"

#include <ctime>

namespace {

using testing::HasSubstr;
using testing::SizeIs;

const FakeDisk kSata{"SN-S", "sda", "SSD_SATA", "ATA", "VSSD-480"};

class AgentScheduleTest : public HostTest {
protected:
    void SetUp() override { StartQuiet(); }
    void TearDown() override { (void)lib::CancelAllQueryAgentScheduleTask(); }
};

class UnstartedAgentScheduleTest : public HostTest {};

TEST_F(UnstartedAgentScheduleTest, EverythingIs11)
{
    Open();
    lib::Global<lib::InitFiniStep[16]>("g_corvaneInitFiniSteps")[13].init = nullptr;
    StartQuiet();
    lib::DiskMgrObj record{};
    ClearHostLines();

    EXPECT_EQ(lib::SubmitQueryAgentScheduleTask(KernelAgent()), 11u);
    EXPECT_EQ(lib::CancelQueryAgentScheduleTask(KernelAgent()), 11u);
    EXPECT_EQ(lib::CancelAllQueryAgentScheduleTask(), 11u);
    EXPECT_EQ(lib::SubmitScanAllAgentDeviceListScheduleTask(), 11u);
    EXPECT_EQ(lib::CancelScanAllAgentDeviceListScheduleTask(), 11u);
    EXPECT_EQ(lib::FetchDiskBaseInfo(Sn("SN"), &record), 11u);

    EXPECT_EQ(HostLogged("[DCM]Invoker are never Init DCM or init fail but no retry."), 6u);
}

TEST_F(AgentScheduleTest, SecondInitIs114)
{
    EXPECT_EQ(lib::InitDataCollectMaster(), 114u);

    EXPECT_EQ(HostLogged(4, "[DCM]DataCollectMaster Already Initiated."), 1u);
}

TEST_F(AgentScheduleTest, EqualAgentIs114AndStartsNoSecondThread)
{
    kernel_ = std::make_unique<FakeAgent>(kKernelSocket);

    EXPECT_EQ(lib::SubmitQueryAgentScheduleTask(KernelAgent()), 0u);
    EXPECT_EQ(lib::SubmitQueryAgentScheduleTask(KernelAgent()), 114u);

    EXPECT_EQ(HostLogged("[DCM]Agent(unique_DCAK_agent) existed in queryTaskList"), 1u);
    EXPECT_EQ(HostLogged("[DCM]Submit query agent schedule task failed(ret:114)."), 1u);
    ASSERT_TRUE(WaitForHostLine("[DCM]query Agent(unique_DCAK_agent) failed(emptyList)."));
    EXPECT_THAT(kernel_->Requests(), SizeIs(1));
}

TEST_F(AgentScheduleTest, CancelOfAnUnknownAgentIs0)
{
    EXPECT_EQ(lib::CancelQueryAgentScheduleTask(SpdkAgent()), 0u);

    EXPECT_EQ(lib::SubmitQueryAgentScheduleTask(KernelAgent()), 0u);
    EXPECT_EQ(lib::CancelQueryAgentScheduleTask(SpdkAgent()), 0u);
    EXPECT_EQ(HostLogged(7, "[DCM]assert mismatch agent(unique_DCAK_agent)with(unique_SPDK_agent)."), 1u);
    EXPECT_EQ(lib::CancelQueryAgentScheduleTask(KernelAgent()), 0u);
    EXPECT_EQ(HostLogged("[DCM]cancel query agent (unique_DCAK_agent)"), 1u);
    // It may come back at once.
    EXPECT_EQ(lib::SubmitQueryAgentScheduleTask(KernelAgent()), 0u);
}

TEST_F(AgentScheduleTest, ScanRunsOnceAndIsCancelledOnce)
{
    EXPECT_EQ(lib::SubmitScanAllAgentDeviceListScheduleTask(), 0u);
    EXPECT_EQ(lib::SubmitScanAllAgentDeviceListScheduleTask(), 114u);
    EXPECT_EQ(HostLogged("[DCM]Global Scan All Agent ScheduleTask is Already Running."), 1u);

    EXPECT_EQ(lib::CancelScanAllAgentDeviceListScheduleTask(), 0u);
    EXPECT_EQ(HostLogged("[DCM]cancel scan all agent."), 1u);
    EXPECT_EQ(lib::CancelScanAllAgentDeviceListScheduleTask(), 114u);
    EXPECT_EQ(HostLogged(7, "[DCM]ScanAllAgentDeviceListScheduleTask is already canceled."), 1u);
}

TEST_F(AgentScheduleTest, FirstCycleAsksForEverythingAndTheSecondNotForBaseInformation)
{
    AddAgents();
    ServeDisks(*kernel_, {kSata});
    kernel_->Result("dca_get_disks_health_info",
                    R"({"disks":[{"serial_number":"SN-S","power_on_hours":1,"wear":0,"disk_type":"SSD_NVMe",)"
                    R"("vendor_id":"V","critical_warning":0}]})");
    kernel_->Result("dca_get_disks_iostat",
                    R"({"tick_rate":"1000","ticks":"0","disks":[{"serial_number":"SN-S","queue_depth":1,)"
                    R"("io_busy_num":0,"io_time":"0","bytes_read":"0","bytes_written":"0","num_read_ops":"0",)"
                    R"("num_write_ops":"0","read_latency_ticks":"0","write_latency_ticks":"0"}]})");
    Scan();
    lib::QueryAgentTaskContext context{};
    context.agent = KernelAgent();
    kernel_->ClearRequests();

    lib::QueryAgentScheduleTask(&context);

    EXPECT_THAT(kernel_->Requests("dca_get_disks_brief_info"), SizeIs(1));
    EXPECT_THAT(kernel_->Requests("dca_get_disks_base_info"), SizeIs(1));
    EXPECT_THAT(kernel_->Requests("dca_get_disks_health_info"), SizeIs(1));
    EXPECT_THAT(kernel_->Requests("dca_get_disks_iostat"), SizeIs(1));
    EXPECT_NE(context.last[0], 0);
    EXPECT_NE(context.last[1], 0);

    context.last[2] = context.last[3] = time(nullptr) - 100;
    kernel_->ClearRequests();
    lib::QueryAgentScheduleTask(&context);
    EXPECT_THAT(kernel_->Requests("dca_get_disks_base_info"), SizeIs(0));
    EXPECT_THAT(kernel_->Requests("dca_get_disks_health_info"), SizeIs(1));
    EXPECT_THAT(kernel_->Requests("dca_get_disks_iostat"), SizeIs(1));
}

TEST_F(AgentScheduleTest, FailedKindKeepsItsOldTimeAndTheCycleSleepsShort)
{
    AddAgents();
    ServeDisks(*kernel_, {kSata});
    Scan();
    kernel_->Bytes("dca_get_disks_health_info", "garbage");
    kernel_->Bytes("dca_get_disks_iostat", "garbage");
    lib::QueryAgentTaskContext context{};
    context.agent = KernelAgent();

    lib::QueryAgentScheduleTask(&context);

    EXPECT_EQ(context.last[2], 0);
    EXPECT_EQ(context.last[3], 0);
    EXPECT_NE(context.last[1], 0);
    EXPECT_EQ(HostLogged("[DCM]QueryMessageAndSave(dca_get_disks_health_info) failed(5)."), 1u);
    EXPECT_EQ(HostLogged("[DCM]QueryMessageAndSave(dca_get_disks_iostat) failed(5)."), 1u);
    EXPECT_EQ(HostLogged(7, "[DCM]agent(unique_DCAK_agent) timer sleepMs(500)."), 1u);
}

TEST_F(AgentScheduleTest, GoodCounterQueryGivesTheRestOfThreeSeconds)
{
    lib::QueryAgentTaskContext context{};
    context.agent = KernelAgent();
    context.last[3] = time(nullptr) - 1;

    lib::Call<void(lib::QueryAgentTaskContext *)>{"QueryAgentScheduleTaskSleepForIoStat"}(&context);

    // A second may have begun between the two looks at the clock.
    EXPECT_EQ(HostLogged(7, "[DCM]agent(unique_DCAK_agent) timer sleepMs(2000).") +
                  HostLogged(7, "[DCM]agent(unique_DCAK_agent) timer sleepMs(1000)."),
              1u);
}

TEST_F(AgentScheduleTest, EmptyListAsksForNothingElse)
{
    AddAgents();
    lib::QueryAgentTaskContext context{};
    context.agent = KernelAgent();

    lib::QueryAgentScheduleTask(&context);

    EXPECT_THAT(kernel_->Requests(), SizeIs(1));
    EXPECT_EQ(HostLogged(7, "[DCM]query Agent(unique_DCAK_agent) failed(emptyList)."), 1u);
    EXPECT_EQ(context.last[0], 0);
}

class FetchDiskBaseInfoTest : public AgentScheduleTest {};

TEST_F(FetchDiskBaseInfoTest, AsksTheKernelAgentFirstAndThenTheOther)
{
    AddAgents();
    const FakeDisk nvme{"SN-N", "nvme0", "SSD_NVMe", "VELMAR", "VN1", "FW1", "1000", "512", "TLC", "0000:81:00.0"};
    ServeDisks(*kernel_, {kSata});
    ServeDisks(*spdk_, {nvme});
    lib::DiskMgrObj record{};
    // The comparison covers the whole length, terminators included.
    char sn[40] = "SN-N";

    EXPECT_EQ(lib::FetchDiskBaseInfo({40, sn}, &record), 0u);

    EXPECT_STREQ(record.sn, "SN-N");
    EXPECT_STREQ(record.pciAddr, "0000:81:00.0");
    EXPECT_EQ(record.diskState, 5u);
    EXPECT_EQ(HostLogged(7, "[DCM]try to match agent(unique_DCAK_agent)."), 1u);
    EXPECT_EQ(HostLogged(7, "[DCM]try to match agent(unique_SPDK_agent)."), 1u);
    EXPECT_EQ(HostLogged(7, "[DCM]assert [SN-N] not memcmp [SN-S]") +
                  HostLogged(7, "[DCM]assert [SN-S] not memcmp [SN-N]"),
              1u);
}

TEST_F(FetchDiskBaseInfoTest, DiskOfNoAgentIs123)
{
    AddAgents();
    ServeDisks(*kernel_, {kSata});
    spdk_->Stop();
    lib::DiskMgrObj record{};
    char sn[40] = "SN-X";

    EXPECT_EQ(lib::FetchDiskBaseInfo({40, sn}, &record), 123u);

    EXPECT_EQ(HostLogged("[DCM]query agent(unique_SPDK_agent) device list Failed."), 1u);
}

} // namespace
