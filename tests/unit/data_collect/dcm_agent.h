/**
 * @file dcm_agent.h
 * @brief Agents that live inside a test, and a fixture with a clock, threads and a store that the test controls.
 */
#ifndef DCM_AGENT_H
#define DCM_AGENT_H

#include <cjson/cJSON.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "data_collect/data_collect_master/DCM_query/dcm_array_list.h"
#include "data_collect/data_collect_master/DCM_query/dcm_query.h"
#include "data_collect/data_collect_master/DCM_query/dcm_save.h"
#include "data_collect/data_collect_master/dcm_name_maps.h"
#include "data_collect/data_collect_master/dcm_schedule.h"
#include "infrastructure/common/corvane_raii.h"
#include "support/corvane_fixture.h"

namespace dcm_test {

/** Answers this text instead of writing anything: the peer closes. */
inline const std::string kClose = "\x01close";
/** The peer says nothing until the master has given up. */
inline const std::string kSilent = "\x01silent";

struct Request {
    std::string method;
    std::string params; /**< printed; "" without */
    std::vector<std::string> devices;
};

/** Serves a socket file, one thread for each connection, with whatever the test's handler answers. */
class TestAgent {
public:
    using Handler = std::function<std::string(const Request &)>;

    TestAgent(const char *name, std::string path, Handler handler)
        : path_(std::move(path)), handler_(std::move(handler))
    {
        std::strncpy(info_.name, name, sizeof(info_.name) - 1);
        info_.AgentType = AGENT_TYPE_SOCK_FILE;
        EXPECT_LE(path_.size(), sizeof(info_.address.path));
        std::memcpy(info_.address.path, path_.data(), path_.size());
        listener_ = UniqueFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
        EXPECT_EQ(bind(listener_.Get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(listener_.Get(), 128), 0);
        acceptor_ = std::thread([this] { Accept(); });
    }
    ~TestAgent()
    {
        (void)shutdown(listener_.Get(), SHUT_RDWR);
        acceptor_.join();
        for (std::thread &thread : connections_) {
            thread.join();
        }
    }
    TestAgent(const TestAgent &) = delete;
    TestAgent &operator=(const TestAgent &) = delete;

    const AgentInfo &Info() const { return info_; }
    std::vector<Request> Requests()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return requests_;
    }
    size_t Count(const std::string &method)
    {
        size_t count = 0;
        for (const Request &request : Requests()) {
            count += request.method == method ? 1 : 0;
        }
        return count;
    }

private:
    void Accept()
    {
        for (;;) {
            const int fd = accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) {
                return;
            }
            connections_.emplace_back([this, fd] { Serve(UniqueFd(fd)); });
        }
    }
    void Serve(const UniqueFd &fd)
    {
        char text[65536] = {};
        if (recv(fd.Get(), text, sizeof(text) - 1, 0) <= 0) {
            return;
        }
        const CJsonPtr json(cJSON_Parse(text));
        Request request;
        const char *method = cJSON_GetStringValue(cJSON_GetObjectItem(json.get(), "method"));
        request.method = method == nullptr ? "" : method;
        cJSON *params = cJSON_GetObjectItem(json.get(), "params");
        if (params != nullptr) {
            const CJsonText printed(cJSON_PrintUnformatted(params));
            request.params = printed.get();
        }
        const cJSON *device = nullptr;
        cJSON_ArrayForEach(device, cJSON_GetObjectItem(params, "devices"))
        {
            const char *name = cJSON_GetStringValue(device);
            request.devices.push_back(name == nullptr ? "" : name);
        }
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            requests_.push_back(request);
        }
        const std::string answer = handler_(request);
        if (answer == kClose) {
            return;
        }
        if (answer == kSilent) {
            while (recv(fd.Get(), text, sizeof(text), 0) > 0) {
            }
            return;
        }
        (void)send(fd.Get(), answer.data(), answer.size(), MSG_NOSIGNAL);
    }

    std::string path_;
    Handler handler_;
    AgentInfo info_{};
    UniqueFd listener_;
    std::thread acceptor_;
    std::vector<std::thread> connections_;
    std::mutex mutex_;
    std::vector<Request> requests_;
};

inline std::string Answer(const std::string &result)
{
    return R"({"jsonrpc":"2.0","id":1,"result":)" + result + "}";
}
inline std::string Disks(const std::vector<std::string> &disks, const std::string &before = "")
{
    std::string text = "{" + before + "\"disks\":[";
    for (size_t i = 0; i < disks.size(); i++) {
        text += (i == 0 ? "" : ",") + disks[i];
    }
    return text + "]}";
}
inline std::string Brief(const std::string &device, const std::string &sn)
{
    return R"({"device_name":")" + device + R"(","serial_number":")" + sn + "\"}";
}
inline std::string Base(const std::string &device, const std::string &sn)
{
    return R"({"device_name":")" + device + R"(","serial_number":")" + sn +
           R"(","vendor_id":"ATA","disk_type":"SSD_SATA","disk_media_type":"TLC","model_number":"M",)"
           R"("firmware_revision":"F","disk_capacity":"1000","sector_size":512})";
}
inline std::string NvmeBase(const std::string &device, const std::string &sn)
{
    return R"({"device_name":")" + device + R"(","serial_number":")" + sn +
           R"(","vendor_id":"V","disk_type":"SSD_NVMe","disk_media_type":"TLC","model_number":"M",)"
           R"("firmware_revision":"F","disk_capacity":"1000","sector_size":512,"pci_address":"0000:01:00.0"})";
}
inline std::string Health(const std::string &sn)
{
    return R"({"serial_number":")" + sn +
           R"(","power_on_hours":7,"wear":12345,"disk_type":"SSD_NVMe","vendor_id":"V","critical_warning":4})";
}
inline std::string Frame(const std::string &sn)
{
    return R"({"serial_number":")" + sn +
           R"(","queue_depth":1,"io_busy_num":2,"io_time":"3","bytes_read":"4","bytes_written":"5",)"
           R"("num_read_ops":"6","num_write_ops":"7","read_latency_ticks":"8","write_latency_ticks":"9"})";
}
inline const std::string kClock = R"("tick_rate":"100","ticks":"4242",)";

/** An agent in good health: knows disks named prefix0, prefix1, ... with the serial numbers "SN-" + name. */
inline TestAgent::Handler GoodAgent(const std::string &prefix, size_t count)
{
    return [prefix, count](const Request &request) {
        std::vector<std::string> disks;
        if (request.method == "dca_get_disks_brief_info") {
            for (size_t i = 0; i < count; i++) {
                disks.push_back(Brief(prefix + std::to_string(i), "SN-" + prefix + std::to_string(i)));
            }
            return Answer(Disks(disks));
        }
        for (const std::string &device : request.devices) {
            const std::string sn = "SN-" + device;
            disks.push_back(request.method == "dca_get_disks_base_info"     ? Base(device, sn)
                            : request.method == "dca_get_disks_health_info" ? Health(sn)
                                                                            : Frame(sn));
        }
        return Answer(Disks(disks, request.method == "dca_get_disks_iostat" ? kClock : ""));
    };
}

/** What the store was given. */
struct Stored {
    std::string kind; /**< "base", "health", "io" */
    std::string sn;
    uint32_t snLength = 0;
    uint32_t slotId = 0;
    uint64_t ticks = 0;
    uint64_t tickRate = 0;
    uint32_t wearInt = 0;
};

class DcmTest : public CorvaneTest {
protected:
    DcmTest() : savedStore_(g_dcmStore), savedSlotAgent_(g_dcmSlotAgent)
    {
        current_ = this;
        char name[] = "/tmp/dq.XXXXXX";
        folder_ = mkdtemp(name);
        std::strncpy(nobody_.name, "nobody", sizeof(nobody_.name) - 1);
        std::strncpy(nobody_.address.path, Path("none").c_str(), sizeof(nobody_.address.path) - 1);
        g_dcmSlotAgent = &nobody_;
        g_dcmStore = {BaseSet, HealthSet, IoSet, Refresh};
        g_corvaneInfra.threadCreate = Spawn;
        g_corvaneInfra.threadSleep = Sleep;
        g_corvaneInfra.memAlloc = Alloc;
        g_osCalls.time = Now;
        g_osCalls.setsockopt = ShortTimeOut;
        Forget();
    }
    ~DcmTest() override
    {
        failSpawn_ = false;
        failSize_ = 0;
        if (g_uniqueAgentListSpinLock != nullptr) {
            (void)CancelAllQueryAgentScheduleTask();
        }
        Open();
        Join();
        Forget();
        g_dcmStore = savedStore_;
        g_dcmSlotAgent = savedSlotAgent_;
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
        current_ = nullptr;
    }

    std::string Path(const std::string &name) const { return folder_ + "/" + name; }
    const AgentInfo &Nobody() const { return nobody_; }

    /** Wait for every thread that the library has started. */
    void Join()
    {
        for (;;) {
            std::vector<std::thread> threads;
            {
                const std::lock_guard<std::mutex> guard(mutex_);
                threads.swap(threads_);
            }
            if (threads.empty()) {
                return;
            }
            for (std::thread &thread : threads) {
                thread.join();
            }
        }
    }
    /** Sleeps of the library, but for those between two tries for a lock. */
    std::vector<uint32_t> Sleeps()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return sleeps_;
    }
    std::vector<Stored> StoredRecords()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return stored_;
    }
    std::vector<std::vector<std::string>> Refreshes()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return refreshes_;
    }
    template <typename Condition>
    bool WaitFor(Condition condition)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(60), condition);
    }
    bool WaitForSleeps(size_t count)
    {
        return WaitFor([this, count] { return sleeps_.size() >= count; });
    }
    /** Sleeps end at once, which they do not while the gate is shut. */
    void Open()
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        gateOpen_ = true;
        changed_.notify_all();
    }
    /** One device list record for each name. */
    ArrayList Devices(size_t count, const std::string &prefix = "d")
    {
        ArrayList list{};
        EXPECT_EQ(ArrayListCreate(&list, static_cast<uint32_t>(count), sizeof(DiskBriefInfo)), 0u);
        for (size_t i = 0; i < count; i++) {
            auto *brief = static_cast<DiskBriefInfo *>(list.list[i]);
            const std::string device = prefix + std::to_string(i);
            std::strncpy(brief->deviceName, device.c_str(), sizeof(brief->deviceName) - 1);
            std::strncpy(brief->serialNumber, ("SN-" + device).c_str(), sizeof(brief->serialNumber) - 1);
        }
        return list;
    }
    static DiskBriefInfo **Briefs(const ArrayList &list) { return reinterpret_cast<DiskBriefInfo **>(list.list); }

    std::atomic<time_t> now_{1000000};
    std::atomic<bool> failSpawn_{false};
    std::atomic<uint64_t> failSize_{0}; /**< allocations of this size fail */
    std::atomic<uint32_t> spawned_{0};
    std::atomic<bool> lockRetry_{false}; /**< somebody has waited for a lock */
    std::function<uint32_t(const std::string &kind, const std::string &sn)> storeResult_;
    std::function<void()> onRefresh_;
    std::function<void(uint32_t ms)> onSleep_;
    bool gateOpen_ = true;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<uint32_t> sleeps_;
    std::vector<Stored> stored_;
    std::vector<std::vector<std::string>> refreshes_;

private:
    static void Forget()
    {
        for (void **lock : {&g_uniqueAgentListSpinLock, &g_enableScanAllAgentDeviceListScheduleTaskSpinLock,
                            &g_uniqueScanAllAgentDeviceListScheduleTaskRunningSpinLock}) {
            if (*lock != nullptr) {
                g_corvaneInfra.spinlockDestroy(*lock);
                *lock = nullptr;
            }
        }
        g_dcmInitiated = 0;
    }
    static void *Alloc(uint64_t size)
    {
        const uint64_t bad = current_ == nullptr ? 0 : current_->failSize_.load();
        return bad != 0 && size == bad ? nullptr : std::malloc(size);
    }
    static uint64_t Spawn(CorvaneThreadFunc entry, CorvaneThreadFunc callback, CorvaneThreadParam param)
    {
        EXPECT_EQ(param.joinable, 0);
        EXPECT_EQ(param.priority, 0u);
        if (current_->failSpawn_) {
            return 0;
        }
        const std::lock_guard<std::mutex> guard(current_->mutex_);
        current_->spawned_++;
        current_->threads_.emplace_back([entry, callback, param] {
            (void)entry(param.entryArg);
            (void)callback(param.callbackArg);
        });
        return 1;
    }
    static void Sleep(CorvaneTime time)
    {
        EXPECT_EQ(time.timeUnit, static_cast<uint32_t>(CORVANE_TIME_MILLISECOND));
        if (time.value == 5) { // between two tries for a lock
            current_->lockRetry_ = true;
            const std::lock_guard<std::mutex> guard(current_->mutex_);
            current_->changed_.notify_all();
            std::this_thread::yield();
            return;
        }
        if (current_->onSleep_) {
            current_->onSleep_(time.value);
        }
        std::unique_lock<std::mutex> lock(current_->mutex_);
        current_->sleeps_.push_back(time.value);
        current_->changed_.notify_all();
        current_->changed_.wait(lock, [] { return current_->gateOpen_; });
    }
    static time_t Now(time_t *out)
    {
        const time_t now = current_->now_;
        if (out != nullptr) {
            *out = now;
        }
        return now;
    }
    // A silent agent is given up after this much instead of three seconds, five times over.
    static int ShortTimeOut(int fd, int level, int name, const void *value, socklen_t length)
    {
        (void)value;
        const timeval span = {.tv_sec = current_->timeOutMs_ / 1000, .tv_usec = current_->timeOutMs_ % 1000 * 1000};
        return setsockopt(fd, level, name, &span, length);
    }
    static uint32_t Keep(Stored stored)
    {
        const std::lock_guard<std::mutex> guard(current_->mutex_);
        current_->stored_.push_back(stored);
        current_->changed_.notify_all();
        return current_->storeResult_ ? current_->storeResult_(stored.kind, stored.sn) : 0;
    }
    static uint32_t BaseSet(DiskSnRef sn, void *buf)
    {
        Stored stored{.kind = "base", .sn = sn.buf, .snLength = sn.len};
        stored.slotId = static_cast<DiskMgrObj *>(buf)->slotId;
        return Keep(stored);
    }
    static uint32_t HealthSet(DiskSnRef sn, void *buf)
    {
        Stored stored{.kind = "health", .sn = sn.buf, .snLength = sn.len};
        stored.wearInt = static_cast<DiskHealthInfo *>(buf)->wearInt;
        return Keep(stored);
    }
    static uint32_t IoSet(DiskSnRef sn, void *buf)
    {
        Stored stored{.kind = "io", .sn = sn.buf, .snLength = sn.len};
        stored.ticks = static_cast<DiskIoInfoFrame *>(buf)->ticks;
        stored.tickRate = static_cast<DiskIoInfoFrame *>(buf)->tickRate;
        return Keep(stored);
    }
    static uint32_t Refresh(DiskSnRef *list, uint32_t count)
    {
        std::vector<std::string> sns;
        for (uint32_t i = 0; i < count; i++) {
            EXPECT_EQ(list[i].len, 40u);
            sns.emplace_back(list[i].buf);
        }
        EXPECT_NE(list, nullptr);
        if (current_->onRefresh_) {
            current_->onRefresh_();
        }
        const std::lock_guard<std::mutex> guard(current_->mutex_);
        current_->refreshes_.push_back(sns);
        current_->changed_.notify_all();
        return current_->storeResult_ ? current_->storeResult_("refresh", "") : 0;
    }

    inline static DcmTest *current_ = nullptr;
    std::string folder_;
    AgentInfo nobody_{};
    DcmStoreCalls savedStore_;
    const AgentInfo *savedSlotAgent_;
    std::vector<std::thread> threads_;

protected:
    long timeOutMs_ = 20000;
};

} // namespace dcm_test

#endif
