#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <mutex>
#include <random>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include "config/corvane_prefix_path.h"
#include "data_collect/data_collect_master/DCM_listener/dcm_hot_plug.h"
#include "data_collect/data_collect_master/dcm_schedule.h"
#include "data_collect/data_collect_master/dcm_transport.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "data_mgr/data_mgr_master/data_mgr_master_rpc.h"
#include "data_mgr/data_mgr_master/data_mgr_master_sync.h"
#include "disk_mgr/disk_mgr.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/corvane_adapter_infra_lite/corvane_adapter_infra_lite.h"
#include "infrastructure/corvane_task_scheduler/corvane_task_scheduler.h"
#include "support/corvane_fixture.h"

using namespace std::chrono_literals;

namespace {

constexpr int kThreads = 4;

void DropLog(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...) {}

std::mutex g_threadsMutex;
std::vector<std::thread> g_threads;

/** The library's threads are the system's, kept so that the test can see their end. */
uint64_t StartThread(CorvaneThreadFunc entry, CorvaneThreadFunc callback, CorvaneThreadParam param)
{
    const std::lock_guard<std::mutex> guard(g_threadsMutex);
    g_threads.emplace_back([=] {
        (void)entry(param.entryArg);
        if (callback != nullptr) {
            (void)callback(param.callbackArg);
        }
    });
    return g_threads.size();
}

/** Returns when no thread of the library is left; one that never ends is the runner's to tell. */
void JoinAll()
{
    for (;;) {
        std::vector<std::thread> threads;
        {
            const std::lock_guard<std::mutex> guard(g_threadsMutex);
            threads.swap(g_threads);
        }
        if (threads.empty()) {
            return;
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
    }
}

int Fail(int error)
{
    errno = error;
    return -1;
}

/** An event as the kernel sends it. */
std::string Event(unsigned number)
{
    const std::string path = "/devices/pci0000:00/0000:00:" + std::to_string(10 + number) + ".0/nvme/nvme0";
    const char end = '\0';
    return "add@" + path + end + "ACTION=add" + end + "DEVPATH=" + path + end + "SUBSYSTEM=nvme" + end;
}

std::atomic<uint64_t> g_runs;
std::atomic<uint64_t> g_ends;
std::atomic<uint64_t> g_sent;
std::atomic<int> g_receiving;
std::atomic<bool> g_twoListeners;
std::atomic<uint64_t> g_events;
std::atomic<bool> g_noSocket;
std::atomic<unsigned> g_turn;

} // namespace

/** Real threads and the adapter's own locks and sleeps; nothing is scripted but the system's answers. */
class StormTest : public CorvaneTest {
protected:
    StormTest()
    {
        g_corvaneInfra.log = DropLog; // a lock in the log would order what must be in order without it
        g_runs = g_ends = g_sent = g_events = 0;
        g_receiving = 0;
        g_twoListeners = g_noSocket = false;
        EXPECT_EQ(InitScheduleTask(), 0u);
        g_osCalls.getpwnam_r = [](const char *, struct passwd *entry, char *, size_t, struct passwd **result) {
            entry->pw_uid = geteuid();
            *result = entry;
            return 0;
        };
        g_osCalls.getgrnam_r = [](const char *, struct group *entry, char *, size_t, struct group **result) {
            entry->gr_gid = getegid();
            *result = entry;
            return 0;
        };
        g_corvaneInfra.threadCreate = StartThread;
    }
    ~StormTest() override
    {
        JoinAll();
        EXPECT_EQ(g_scheduleTaskList.next, nullptr);
        g_corvaneInfra.spinlockDestroy(std::exchange(g_scheduleTaskSpinLock, nullptr));
    }
    /** The same on several threads at once, each with dice of its own. */
    static void FromAllSides(const std::function<void(std::mt19937 &dice)> &action)
    {
        std::vector<std::thread> threads;
        for (unsigned seed = 0; seed < kThreads; seed++) {
            threads.emplace_back([seed, &action] {
                std::mt19937 dice(seed);
                action(dice);
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
    }
};

/** What a second start does to words that the threads of the first are reading. */
TEST_F(StormTest, EqualWordsAreNotStoredAgain)
{
    ASSERT_EQ(CorvaneInfraRegisterInfraAdapter(), 0u);
    const std::string prefix = GetPrefixPath();
    std::atomic<bool> over{false};
    std::thread reader([&] {
        while (!over) {
            g_corvaneInfra.memFree(g_corvaneInfra.memAlloc(std::strlen(GetPrefixPath())));
            g_corvaneInfra.log(CORVANE_LOG_DEBUG + 1, "INIT", __FILE__, __LINE__, __func__, "above every level");
        }
    });

    for (int i = 0; i < 100; i++) {
        EXPECT_EQ(CorvaneInfraRegisterInfraAdapter(), 0u);
        EXPECT_EQ(SetPrefixPath(prefix.c_str()), 0u);
    }
    over = true;
    reader.join();

    EXPECT_EQ(GetPrefixPath(), Prefix());
}

TEST_F(StormTest, ScheduleTasksAreSubmittedCancelledAndStopped)
{
    static constexpr std::array<const char *, 6> names{"one", "two", "three", "four", "five", "six"};
    std::atomic<uint64_t> submitted{0};
    std::atomic<uint64_t> refused{0};

    FromAllSides([&](std::mt19937 &dice) {
        for (int i = 0; i < 300; i++) {
            const char *name = names[dice() % names.size()];
            const auto forever = static_cast<uint8_t>(dice() % 2);
            const ScheduleTask task = {.name = name,
                                       .forever = forever,
                                       .repeatCount = 1 + static_cast<uint32_t>(dice() % 3),
                                       .firstDelayMs = static_cast<uint32_t>(dice() % 2),
                                       .periodMs = static_cast<uint32_t>(dice() % 2),
                                       .entry = [](void *) -> void * {
                                           g_runs++;
                                           return nullptr;
                                       },
                                       .entryArg = nullptr,
                                       .callback = [](void *) { g_ends++; },
                                       .callbackArg = nullptr};
            const uint32_t ret = SubmitScheduleTask(task);
            EXPECT_TRUE(ret == 0 || ret == SCHEDULE_TASK_ERR_EXISTS) << ret;
            (ret == 0 ? submitted : refused)++;
            (void)CancelScheduleTask(names[dice() % names.size()]);
            if (dice() % 16 == 0) {
                StopAllScheduleTask();
            }
            std::this_thread::sleep_for(100us);
        }
    });
    (void)DestroyScheduleTask();
    JoinAll();

    EXPECT_EQ(submitted + refused, static_cast<uint64_t>(kThreads) * 300);
    EXPECT_GT(submitted.load(), 100u);
    EXPECT_EQ(g_ends.load(), submitted.load()) << "each task has one end";
    EXPECT_GE(g_runs.load(), submitted.load()) << "each task runs at least once";
}

TEST_F(StormTest, TheSyncIsStartedAndCancelledWhileDisksChange)
{
    g_dataMgrSendRpc = [](uint32_t, DiskSnRef, void *) -> uint32_t {
        g_sent++;
        return 0;
    };
    g_dataMgrFetchBaseInfo = [](const DiskSnRef sn, DiskMgrObj *record) -> uint32_t {
        *record = {};
        std::memcpy(record->sn, sn.buf, sizeof(record->sn) - 1);
        std::strcpy(record->vendor, "SEAGATE");
        std::strcpy(record->model, "ST1");
        record->diskType = DISK_TYPE_HDD_SAS;
        record->diskState = DISK_STATE_NORMAL;
        return 0;
    };
    ASSERT_EQ(DiskMgrInit(nullptr), 0u);
    ASSERT_EQ(DataMgrInit(), 0u);
    std::array<char, DISK_SN_SIZE> first = {"STORM-1"};
    std::array<char, DISK_SN_SIZE> second = {"STORM-2"};
    std::array<DiskSnRef, 2> disks{{{DISK_SN_SIZE, first.data()}, {DISK_SN_SIZE, second.data()}}};
    ASSERT_EQ(DiskSerialNumberRefresh(disks.data(), 2), 0u);
    std::atomic_ref<uint32_t>(g_masterToAgentSyncInterval).store(0);
    const uint64_t before = g_sent;

    std::atomic<bool> done{false};
    std::thread refresh([&] { // the second disk comes and goes
        for (uint32_t i = 0; !done; i++) {
            (void)DiskSerialNumberRefresh(disks.data(), 1 + i % 2);
            std::this_thread::sleep_for(1ms);
        }
    });
    std::atomic<uint32_t> starts{0};
    FromAllSides([&](std::mt19937 &dice) {
        for (int i = 0; i < 100; i++) {
            if (dice() % 2 == 0) {
                starts += StartDmmSync2DmaScheduleTask() == 0 ? 1U : 0U;
            } else {
                (void)CancelDmmSync2DmaScheduleTask();
            }
            std::this_thread::sleep_for(200us);
        }
    });
    done = true;
    refresh.join();
    EXPECT_EQ(CancelDmmSync2DmaScheduleTask(), 0u);
    JoinAll();

    EXPECT_GT(starts.load(), 10u);
    EXPECT_GT(g_sent.load(), before);
    EXPECT_EQ(*g_dmmSync2DmaSwitch, 0u);
    // The pointer's hold on the last cell ends with a start that gets no thread.
    g_corvaneInfra.threadCreate = [](CorvaneThreadFunc, CorvaneThreadFunc, CorvaneThreadParam) -> uint64_t {
        return 0;
    };
    EXPECT_NE(StartDmmSync2DmaScheduleTask(), 0u);
    EXPECT_EQ(g_dmmSync2DmaSwitch, nullptr);
    g_masterToAgentSyncInterval = 300;
    EXPECT_EQ(DiskSerialNumberRefresh(disks.data(), 0), 0u);
    (void)DataMgrDestroy();
    (void)DiskMgrDestroy();
    g_corvaneInfra.spinlockDestroy(std::exchange(g_dataMgrLock, nullptr));
    g_dataMgrSendRpc = DataMgrMasterSendRpcMsg2Agent;
    g_dataMgrFetchBaseInfo = FetchDiskBaseInfo;
}

TEST_F(StormTest, TheListenerIsStartedAndStoppedWhileEventsComeAndItsSocketFails)
{
    g_isShutDown = 1;
    g_isThreadCreate = 0;
    ASSERT_EQ(InitHotPlugLock(), 0u);
    g_osCalls.socket = [](int domain, int type, int protocol) {
        if (domain != AF_NETLINK) {
            return socket(domain, type, protocol); // towards the agent
        }
        return g_noSocket || ++g_turn % 5 == 0 ? Fail(EMFILE) : 4711;
    };
    g_osCalls.getsockopt = [](int, int, int, void *, socklen_t *) { return 0; };
    g_osCalls.bind = [](int, const sockaddr *, socklen_t) { return 0; };
    g_osCalls.close = [](int fd) { return fd < 0 || fd == 4711 ? 0 : close(fd); };
    g_osCalls.access = [](const char *, int) { return 0; }; // the driver has every disk
    g_osCalls.recvmsg = [](int fd, msghdr *message, int) -> ssize_t {
        if (g_receiving++ != 0) {
            g_twoListeners = true;
        }
        std::this_thread::sleep_for(100us);
        ssize_t length = Fail(fd < 0 ? EBADF : ENOBUFS);
        const unsigned turn = ++g_turn;
        if (fd >= 0 && turn % 8 != 0 && !g_noSocket) {
            const std::string text = Event(turn % 4);
            std::memcpy(message->msg_iov->iov_base, text.data(), text.size());
            length = static_cast<ssize_t>(text.size());
            g_events++;
        }
        const int error = errno;
        g_receiving--;
        errno = error;
        return length;
    };
    AgentInfo agent = g_uniqueSpdkAgent;
    std::memset(agent.address.path, 0, sizeof(agent.address.path));
    std::strcpy(agent.address.path, "/nonexistent/agent"); // each call of it ends at once
    std::atomic<uint32_t> starts{0};

    FromAllSides([&](std::mt19937 &dice) {
        for (int i = 0; i < 200; i++) {
            if (dice() % 2 == 0) {
                starts += StartHotPlugListener(agent) == 0 ? 1U : 0U;
            } else {
                EXPECT_EQ(StopHotPlugListener(agent), 0u);
            }
            std::this_thread::sleep_for(200us);
        }
    });
    g_noSocket = true; // the next failure is the listener's last
    JoinAll();

    EXPECT_GT(starts.load(), 10u);
    EXPECT_GT(g_events.load(), 10u);
    EXPECT_FALSE(g_twoListeners.load());
    EXPECT_EQ(g_isShutDown, 1u);
    EXPECT_EQ(g_isThreadCreate, 0u);
    g_corvaneInfra.spinlockDestroy(std::exchange(g_HotPlugLock, nullptr));
}
