/**
 * @file pipeline_fixture.h
 * @brief Two agents with disks, and the whole way from their sockets to the store and the registry file.
 */
#ifndef PIPELINE_FIXTURE_H
#define PIPELINE_FIXTURE_H

#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "data_mgr/data_mgr_master/data_mgr_io_stat.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "data_mgr/data_mgr_master/data_mgr_master_rpc.h"
#include "data_mgr/data_mgr_master/data_mgr_white_list.h"
#include "disk_mgr/disk_mgr.h"
#include "scripted_agent.h"
#include "unit/data_collect/dcm_agent.h"

namespace pipeline_test {

inline constexpr uint32_t kNoId = 0xFFFFFFFFu;
inline constexpr std::array<const char *, 4> kMethods{{
    "dca_get_disks_brief_info",
    "dca_get_disks_base_info",
    "dca_get_disks_health_info",
    "dca_get_disks_iostat",
}};

/** A disk as its agent sees it. */
struct SimDisk {
    std::string device;
    std::string sn;
    std::string type; /**< "HDD_SAS", "SSD_SATA", "SSD_SAS" or "SSD_NVMe" */
};

/** Everything below is a function of the generation, so that a test knows from a record which answer it came from. */
inline std::string BaseOf(const SimDisk &disk, int generation)
{
    const std::string vendor = disk.type == "HDD_SAS" ? "SEAGATE" : disk.type == "SSD_SATA" ? "ATA" : "VELMAR";
    return R"({"device_name":")" + disk.device + R"(","serial_number":")" + disk.sn + R"(","vendor_id":")" + vendor +
           R"(","disk_type":")" + disk.type +
           R"(","disk_media_type":"TLC","model_number":"VSSD-1","firmware_revision":"G)" + std::to_string(generation) +
           R"(","disk_capacity":"1000","sector_size":512,"pci_address":"0000:01:00.0"})";
}
inline std::string HealthOf(const SimDisk &disk, int generation)
{
    std::string text = R"({"serial_number":")" + disk.sn + R"(","power_on_hours":)" + std::to_string(generation) +
                       R"(,"wear":250,"disk_type":")" + disk.type + R"(","vendor_id":"X")";
    if (disk.type == "SSD_NVMe") {
        return text + R"(,"critical_warning":4})";
    }
    if (disk.type != "SSD_SATA") {
        return text + R"(,"is_support_ie_log":true,"ASC":93,"ASCQ":1})";
    }
    text += R"(,"smart_list":[)";
    for (uint32_t i = 0; i < DISK_SMART_ATTR_NUM; i++) {
        text += (i == 0 ? "" : ",");
        text += R"({"id":)" + std::to_string(i + 1) + R"(,"threshold":1,"current_value":100,"worst":99})";
    }
    return text + "]}";
}
inline std::string FrameOf(const SimDisk &disk, int generation)
{
    const std::string ops = std::to_string(300 * generation * generation);
    return R"({"serial_number":")" + disk.sn +
           R"(","queue_depth":1,"io_busy_num":2,"io_time":"0","bytes_read":"0","bytes_written":"0","num_read_ops":")" +
           ops + R"(","num_write_ops":"0","read_latency_ticks":"0","write_latency_ticks":"0"})";
}
/** Reads per second between the frames of two generations, which are three seconds each. */
inline uint64_t ReadsPerSecond(int from, int to)
{
    return static_cast<uint64_t>(300 * (to * to - from * from) / (3 * (to - from)));
}

/** The disks of an agent, its right answers, and what it says instead of one of them. */
class SimAgent {
public:
    /** Turns a right answer into what is said instead. */
    using Spoiler = std::function<Reply(const AgentRequest &request, const std::string &right)>;

    SimAgent(const std::string &name, const std::string &path, std::vector<SimDisk> disks)
        : disks_(std::move(disks)), agent_(name, path, [this](const AgentRequest &request) { return Handle(request); })
    {
    }
    const AgentInfo &Info() const { return agent_.Info(); }
    void SetDisks(std::vector<SimDisk> disks)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        disks_ = std::move(disks);
    }
    std::vector<SimDisk> Disks()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return disks_;
    }
    void SetGeneration(int generation)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        generation_ = generation;
    }
    void Spoil(const std::string &method, Spoiler spoiler)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        spoiledMethod_ = method;
        spoiler_ = std::move(spoiler);
    }

private:
    Reply Handle(const AgentRequest &request)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const std::string right = dcm_test::Answer(Result(request));
        if (spoiler_ && request.method == spoiledMethod_) {
            return spoiler_(request, right);
        }
        return {.manner = Manner::Answer, .text = right};
    }
    std::string Result(const AgentRequest &request) const
    {
        std::vector<std::string> objects;
        if (request.method == "dca_get_disks_brief_info") {
            for (const SimDisk &disk : disks_) {
                objects.push_back(dcm_test::Brief(disk.device, disk.sn));
            }
            return dcm_test::Disks(objects);
        }
        if (request.method == "dca_get_disks_slotid") {
            for (size_t i = 0; i < request.devices.size(); i++) {
                objects.push_back(R"({"device_name":")" + request.devices[i] + R"(","slot_id":)" +
                                  std::to_string(10 + i) + "}");
            }
            return dcm_test::Disks(objects);
        }
        for (const std::string &device : request.devices) {
            for (const SimDisk &disk : disks_) {
                if (disk.device == device) {
                    objects.push_back(request.method == "dca_get_disks_base_info"     ? BaseOf(disk, generation_)
                                      : request.method == "dca_get_disks_health_info" ? HealthOf(disk, generation_)
                                                                                      : FrameOf(disk, generation_));
                }
            }
        }
        const std::string clock = R"("tick_rate":"100","ticks":")" + std::to_string(300 * generation_) + R"(",)";
        return dcm_test::Disks(objects, request.method == "dca_get_disks_iostat" ? clock : "");
    }

    std::mutex mutex_;
    std::vector<SimDisk> disks_;
    int generation_ = 1;
    std::string spoiledMethod_;
    Spoiler spoiler_;
    ScriptedAgent agent_; // last: its threads use all of the above
};

/** What the features were told: identifier, serial number, event. */
using DiskEvent = std::tuple<uint32_t, std::string, uint32_t>;

/** Real store, registry, transport, queries and schedule; clock, sleeps and threads are the base fixture's. */
class PipelineTest : public dcm_test::DcmTest {
protected:
    explicit PipelineTest(size_t kernelDisks = 5, size_t userDisks = 3)
    {
        self_ = this;
        for (size_t i = 0; i < kernelDisks; i++) {
            kernelDisks_.push_back(
                {"sd" + std::to_string(i), "KSN-" + std::to_string(i), i + 1 == kernelDisks ? "SSD_SATA" : "HDD_SAS"});
        }
        for (size_t i = 0; i < userDisks; i++) {
            userDisks_.push_back({"nvme" + std::to_string(i), "USN-" + std::to_string(i), "SSD_NVMe"});
        }
        kernel_ = std::make_unique<SimAgent>("sim_kernel", Path("k"), kernelDisks_);
        user_ = std::make_unique<SimAgent>("sim_user", Path("u"), userDisks_);
        g_dcmStore = {DiskBaseInfoSet, DiskHealthInfoSet, DiskIoStatInfoSet, DiskSerialNumberRefresh};
        g_osCalls.getpwnam_r = [](const char *, struct passwd *entry, char *, size_t, struct passwd **result) {
            entry->pw_uid = 0;
            *result = entry;
            return 0;
        };
        g_osCalls.getgrnam_r = [](const char *, struct group *entry, char *, size_t, struct group **result) {
            entry->gr_gid = 0;
            *result = entry;
            return 0;
        };
        g_osCalls.chown = [](const char *, uid_t, gid_t) { return 0; };
        g_dataMgrSendRpc = [](uint32_t, DiskSnRef, void *) -> uint32_t { return 0; };
        EXPECT_EQ(DiskMgrInit(nullptr), 0u);
        (void)DataMgrSetDrmNotifyFunc([](uint32_t diskId, DiskSnRef sn, uint32_t type) -> uint32_t {
            const std::lock_guard<std::mutex> guard(self_->eventMutex_);
            self_->events_.emplace_back(diskId, std::string(sn.buf, strnlen(sn.buf, DISK_SN_SIZE)), type);
            return 0;
        });
        EXPECT_EQ(DataMgrInit(), 0u);
        EXPECT_EQ(InitDataCollectMaster(), 0u);
        contexts_[0].agent = kernel_->Info();
        g_dcmSlotAgent = &contexts_[0].agent;
        contexts_[1].agent = user_->Info();
    }
    ~PipelineTest() override
    {
        (void)CancelAllQueryAgentScheduleTask();
        Join();
        (void)DataMgrDestroy();
        (void)DiskMgrDestroy();
        while (g_nonWhiteListSnHead != nullptr) {
            g_corvaneInfra.memFree(std::exchange(g_nonWhiteListSnHead, g_nonWhiteListSnHead->next));
        }
        g_nonWhiteListSnCount = 0;
        (void)DataMgrSetDrmNotifyFunc(nullptr);
        g_corvaneInfra.spinlockDestroy(std::exchange(g_dataMgrLock, nullptr));
        g_dataMgrSendRpc = DataMgrMasterSendRpcMsg2Agent;
        self_ = nullptr;
    }

    /** Known to scan and fetch, without a worker: the test runs the cycles itself. */
    void ListAgents()
    {
        ASSERT_EQ(UpdateUniqueAgentList(&contexts_[1].agent, &contexts_[1].cancelFlag), 0u);
        ASSERT_EQ(UpdateUniqueAgentList(&contexts_[0].agent, &contexts_[0].cancelFlag), 0u);
    }
    void SetGeneration(int generation)
    {
        kernel_->SetGeneration(generation);
        user_->SetGeneration(generation);
    }
    void KernelCycle() { QueryAgentScheduleTask(&contexts_[0]); }
    void UserCycle() { QueryAgentScheduleTask(&contexts_[1]); }
    /** All disks online, with the records of generation 2. */
    void BringUp()
    {
        ListAgents();
        ScanAllAgentDeviceListScheduleTask();
        for (const int generation : {1, 2}) {
            SetGeneration(generation);
            KernelCycle();
            UserCycle();
            now_ += 3;
        }
        // The base record is due once an hour only.
        for (QueryAgentTaskContext &context : contexts_) {
            context.last[MESSAGE_DISK_BASE_INFO] = 0;
        }
        KernelCycle();
        UserCycle();
        for (const SimDisk &disk : AllDisks()) {
            ASSERT_NE(IdOf(disk.sn), kNoId) << disk.sn;
        }
        ClearLogs();
        sleeps_.clear();
    }

    std::vector<SimDisk> AllDisks() const
    {
        std::vector<SimDisk> all = kernelDisks_;
        all.insert(all.end(), userDisks_.begin(), userDisks_.end());
        return all;
    }
    static uint32_t IdOf(const std::string &sn)
    {
        std::string text = sn;
        text.resize(DISK_SN_SIZE);
        uint32_t id = kNoId;
        return GetDiskIdBySn({.len = DISK_SN_SIZE, .buf = text.data()}, &id) == 0 ? id : kNoId;
    }
    static DiskMgrObj Base(const std::string &sn)
    {
        DiskMgrObj record{};
        EXPECT_EQ(DiskBaseInfoCliGet(IdOf(sn), &record, sizeof(record)), 0u) << sn;
        return record;
    }
    static DiskHealthInfo HealthInfo(const std::string &sn)
    {
        DiskHealthInfo health{};
        EXPECT_EQ(DiskSmartInfoCliGet(IdOf(sn), &health, sizeof(health)), 0u) << sn;
        return health;
    }
    static DiskIoStatInfo IoStat(const std::string &sn)
    {
        DiskIoStatInfo stat{};
        EXPECT_EQ(DiskIoStatInfoCliGet(IdOf(sn), &stat, sizeof(stat)), 0u) << sn;
        return stat;
    }
    /** The record of a message type as bytes, to see whether anything in it changed. */
    static std::string Bytes(uint32_t type, const std::string &sn)
    {
        const auto bytes = [](const auto &record) {
            return std::string(reinterpret_cast<const char *>(&record), sizeof(record));
        };
        return type == MESSAGE_DISK_BASE_INFO     ? bytes(Base(sn))
               : type == MESSAGE_DISK_HEALTH_INFO ? bytes(HealthInfo(sn))
                                                  : bytes(IoStat(sn));
    }
    /** The record of a message type comes from this generation; the frame before it was @p lastFrame. */
    static bool IsOf(uint32_t type, const std::string &sn, int generation, int lastFrame)
    {
        switch (type) {
        case MESSAGE_DISK_BASE_INFO:
            return Base(sn).firmware == "G" + std::to_string(generation);
        case MESSAGE_DISK_HEALTH_INFO:
            return HealthInfo(sn).powerOnHours == static_cast<uint64_t>(generation);
        default:
            return IoStat(sn).readIops == ReadsPerSecond(lastFrame, generation);
        }
    }
    std::vector<DiskEvent> Events()
    {
        const std::lock_guard<std::mutex> guard(eventMutex_);
        return events_;
    }
    void ForgetEvents()
    {
        const std::lock_guard<std::mutex> guard(eventMutex_);
        events_.clear();
    }

    std::vector<SimDisk> kernelDisks_;
    std::vector<SimDisk> userDisks_;
    std::unique_ptr<SimAgent> kernel_;
    std::unique_ptr<SimAgent> user_;
    std::array<QueryAgentTaskContext, 2> contexts_{}; /**< kernel, user */

private:
    inline static PipelineTest *self_ = nullptr;
    std::mutex eventMutex_;
    std::vector<DiskEvent> events_;
};

} // namespace pipeline_test

#endif
