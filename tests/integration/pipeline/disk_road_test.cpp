#include <algorithm>

#include "pipeline_fixture.h"

using namespace pipeline_test;

namespace {

/** Holds the library's sleeping threads and lets each of them go for one cycle at a time. */
class Turnstile {
public:
    void Wait()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        const size_t ticket = ++arrived_;
        changed_.notify_all();
        changed_.wait(lock, [this, ticket] { return open_ || ticket <= allowed_; });
    }
    /** Until this many threads sleep that were not let go yet. */
    bool WaitForSleepers(size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(60),
                                 [this, count] { return arrived_ - allowed_ == count; });
    }
    void LetGo()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        allowed_ = arrived_;
        changed_.notify_all();
    }
    void Open()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        open_ = true;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    size_t arrived_ = 0;
    size_t allowed_ = 0;
    bool open_ = false;
};

/** Two workers and the scan on their own threads, held at their sleeps. */
class DiskRoadTest : public PipelineTest {
protected:
    DiskRoadTest()
    {
        onSleep_ = [this](uint32_t) { turnstile_.Wait(); };
    }
    ~DiskRoadTest() override
    {
        (void)CancelAllQueryAgentScheduleTask();
        turnstile_.Open();
        Join();
    }
    void Start()
    {
        ASSERT_EQ(SubmitQueryAgentScheduleTask(user_->Info()), 0u);
        ASSERT_EQ(SubmitQueryAgentScheduleTask(kernel_->Info()), 0u);
        ASSERT_EQ(SubmitScanAllAgentDeviceListScheduleTask(), 0u);
        ASSERT_TRUE(turnstile_.WaitForSleepers(kThreads));
    }
    /** One round of all three, three seconds later. */
    void Round(int generation)
    {
        SetGeneration(generation);
        now_ += 3;
        turnstile_.LetGo();
        ASSERT_TRUE(turnstile_.WaitForSleepers(kThreads));
    }

    static constexpr size_t kThreads = 3;
    Turnstile turnstile_;
};

class RefusedDiskTest : public PipelineTest {};
class RestartTest : public PipelineTest {};

} // namespace

TEST_F(DiskRoadTest, AListBecomesDisksWithRecords)
{
    Start();
    Round(2);
    Round(3);

    std::map<uint32_t, std::string> ids;
    for (const SimDisk &disk : AllDisks()) {
        const uint32_t id = IdOf(disk.sn);
        ids[id] = disk.sn;
        EXPECT_LT(id, 64u) << disk.sn;
        const DiskMgrObj base = Base(disk.sn);
        EXPECT_EQ(base.diskId, id);
        EXPECT_EQ(base.diskState, static_cast<uint32_t>(DISK_STATE_NORMAL));
        EXPECT_EQ(base.deviceName, disk.device);
        EXPECT_TRUE(IsOf(MESSAGE_DISK_HEALTH_INFO, disk.sn, 3, 2)) << disk.sn;
        EXPECT_TRUE(IsOf(MESSAGE_DISK_IO_INFO_FRAME, disk.sn, 3, 2)) << disk.sn;
        EXPECT_NE(ReadFile(Prefix() + "/config/disk_mgr.config").find(disk.sn), std::string::npos);
    }
    EXPECT_EQ(ids.size(), AllDisks().size()) << "two disks share an identifier";
    EXPECT_EQ(HealthInfo("KSN-4").detail.sataSsd.attr[29].id, 30);
    EXPECT_EQ(HealthInfo("KSN-0").detail.sas.asc, 93);
    EXPECT_EQ(HealthInfo("USN-0").detail.nvme.criticalWarning, 4);
    const std::vector<DiskEvent> events = Events();
    EXPECT_EQ(events.size(), AllDisks().size());
    for (const auto &[id, sn] : ids) {
        EXPECT_EQ(std::count(events.begin(), events.end(), DiskEvent{id, sn, DISK_EVENT_IN}), 1) << sn;
    }
}

TEST_F(DiskRoadTest, APulledDiskGoesAndComesBackAsNew)
{
    Start();
    Round(2);
    ForgetEvents();
    const uint32_t pulledId = IdOf("KSN-2");
    std::vector<SimDisk> left = kernelDisks_;
    left.erase(left.begin() + 2);
    kernel_->SetDisks(left);

    Round(3);

    EXPECT_EQ(IdOf("KSN-2"), kNoId);
    EXPECT_EQ(Events(), (std::vector<DiskEvent>{{pulledId, "KSN-2", DISK_EVENT_OUT}}));
    EXPECT_EQ(ReadFile(Prefix() + "/config/disk_mgr.config").find("KSN-2"), std::string::npos);
    DiskHealthInfo health{};
    EXPECT_EQ(DiskSmartInfoCliGet(pulledId, &health, sizeof(health)), 1u);
    EXPECT_TRUE(IsOf(MESSAGE_DISK_IO_INFO_FRAME, "KSN-1", 3, 2));

    ForgetEvents();
    kernel_->SetDisks(kernelDisks_);
    Round(4);

    const uint32_t newId = IdOf("KSN-2");
    EXPECT_NE(newId, kNoId);
    EXPECT_EQ(Events(), (std::vector<DiskEvent>{{newId, "KSN-2", DISK_EVENT_IN}}));
    DiskIoStatInfo stat{};
    EXPECT_EQ(DiskIoStatInfoCliGet(newId, &stat, sizeof(stat)), 0xFFFFFFFFu) << "no statistic of its former life";
}

TEST_F(DiskRoadTest, ACancelEndsAllThreads)
{
    Start();

    EXPECT_EQ(CancelAllQueryAgentScheduleTask(), 0u);
    turnstile_.Open();
    Join(); // hangs if one of them goes on

    EXPECT_EQ(CancelScanAllAgentDeviceListScheduleTask(), 114u);
    EXPECT_NE(IdOf("KSN-0"), kNoId) << "a cancel takes no disk offline";
}

TEST_F(RefusedDiskTest, IsNeverOnlineAndItsRecordsHarmNobody)
{
    kernel_->SetDisks({{"sd0", "KSN-0", "HDD_SAS"}, {"sd1", "BAD-1", "SSD_SAS"}});
    kernel_->Spoil("dca_get_disks_base_info", [](const AgentRequest &, std::string right) -> Reply {
        const size_t place = right.find("VELMAR");
        return {.manner = Manner::Answer,
                .text = place == std::string::npos ? right : right.replace(place, 6, "OTHER")};
    });
    ListAgents();

    ScanAllAgentDeviceListScheduleTask();
    KernelCycle();

    EXPECT_NE(IdOf("KSN-0"), kNoId);
    EXPECT_EQ(IdOf("BAD-1"), kNoId);
    EXPECT_EQ(g_nonWhiteListSnCount, 1u);
    EXPECT_EQ(HealthInfo("KSN-0").powerOnHours, 1u);
    for (const uint32_t type : {1u, 2u, 3u}) {
        EXPECT_EQ(contexts_[0].last[type], now_.load()) << "kind " << type;
    }
}

TEST_F(RestartTest, IdentifiersSurvive)
{
    BringUp();
    std::map<std::string, uint32_t> ids;
    for (const SimDisk &disk : AllDisks()) {
        ids[disk.sn] = IdOf(disk.sn);
    }
    ASSERT_EQ(DataMgrDestroy(), 0u);
    ASSERT_EQ(DiskMgrDestroy(), 0u);

    ASSERT_EQ(DiskMgrInit(nullptr), 0u);
    ASSERT_EQ(DataMgrInit(), 0u);
    ForgetEvents();
    ScanAllAgentDeviceListScheduleTask();

    for (const SimDisk &disk : AllDisks()) {
        EXPECT_EQ(IdOf(disk.sn), ids[disk.sn]);
    }
    EXPECT_TRUE(Events().empty()) << "known disks are no news";
}
