#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "config/corvane_config.h"
#include "data_collect/data_collect_master/dcm_schedule.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "data_mgr/data_mgr_master/data_mgr_master_rpc.h"
#include "debug_client.h"
#include "diagnose/corvane_diagnose.h"
#include "disk_mgr/disk_mgr.h"
#include "init/corvane_bringup.h"
#include "ma/drm/feature/disk_life_monitor/drm_disk_life_monitor.h"
#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_routine.h"
#include "ma/drm/feature/slow_disk_detecter/slow_disk_detecter.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_data_mgr/drm_data_mgr_local.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_main.h"
#include "ma/drm/framework/drm_timer.h"
#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/drm_feature_adapter_intf.h"
#include "platform/norax.h"
#include "platform/nordiagnose.h"
#include "platform/norlog.h"
#include "platform/normm.h"
#include "support/corvane_fixture.h"

namespace {

using namespace std::chrono_literals;

constexpr uint32_t kFleet = 48;
constexpr int kRounds = 200;
constexpr auto kPatience = 60s; // bounds a wait, decides nothing

/** Each thread has its own, and its choices repeat from run to run. */
class Dice {
public:
    explicit Dice(uint32_t seed) : engine_(seed) {}
    /** 0 to @p faces - 1. */
    uint32_t Roll(uint32_t faces) { return static_cast<uint32_t>(engine_() % faces); }
    bool OneIn(uint32_t faces) { return Roll(faces) == 0; }

private:
    std::mt19937 engine_;
};

struct Kind {
    uint32_t type;
    const char *vendor;
    uint32_t zone;
    uint32_t group;
    bool aged; ///< the life monitor looks after it
};
constexpr std::array<Kind, 4> kKinds{{
    {DISK_TYPE_SSD_SATA, "ATA", DRM_SATA_SSD_DISK, DRM_PREFAIL_SATA_SSD, false},
    {DISK_TYPE_SSD_SAS, "ORSTAN", DRM_SAS_SSD_DISK, DRM_PREFAIL_SAS_SSD, true},
    {DISK_TYPE_SSD_NVME, "VELMAR", DRM_NVME_DISK, DRM_PREFAIL_NVME, true},
    {DISK_TYPE_HDD_SAS, "SEAGATE", DRM_SAS_HDD_DISK, DRM_PREFAIL_SAS_HDD, false},
}};

const Kind &KindOf(uint32_t number)
{
    return kKinds[number % kKinds.size()];
}

std::array<std::array<char, DISK_SN_SIZE>, kFleet> g_serials;

DiskSnRef SerialOf(uint32_t number)
{
    return {.len = DISK_SN_SIZE, .buf = g_serials[number].data()};
}

uint32_t FetchRecord(DiskSnRef sn, DiskMgrObj *record)
{
    uint32_t number = 0;
    if (std::sscanf(sn.buf, "SOAK-%u", &number) != 1) {
        return 1;
    }
    const Kind &kind = KindOf(number);
    *record = {};
    record->diskType = kind.type;
    record->mediaType = DISK_MEDIA_TYPE_TLC;
    record->diskCapacity = 1000;
    record->sectorSize = 512;
    std::strcpy(record->vendor, kind.vendor);
    std::strcpy(record->model, "VSSD-1");
    std::memcpy(record->sn, sn.buf, sizeof(record->sn));
    return 0;
}

/** Well, or unwell in the way of its kind, and worn by any measure. */
DiskHealthInfo AnyHealth(uint32_t number, Dice &dice)
{
    DiskHealthInfo health{};
    health.powerOnHours = dice.Roll(50000);
    health.wearInt = dice.Roll(101);
    const bool bad = dice.OneIn(8);
    switch (KindOf(number).type) {
    case DISK_TYPE_SSD_SATA:
        for (uint8_t i = 0; i < DISK_SMART_ATTR_NUM; i++) {
            health.detail.sataSsd.attr[i] = {static_cast<uint8_t>(i + 1), 10, static_cast<uint8_t>(bad ? 9 : 90), 90};
        }
        break;
    case DISK_TYPE_SSD_NVME:
        health.detail.nvme.criticalWarning = bad ? 8 : 0;
        break;
    default:
        health.detail.sas = {static_cast<uint8_t>(bad ? 0x5D : 0), 0x10, 1};
        break;
    }
    return health;
}

size_t Threads()
{
    const auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}

bool Eventually(const std::function<bool()> &condition)
{
    const auto until = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until) {
            return false;
        }
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

template <typename Element>
std::multiset<uint32_t> Members(DrmListHead *list)
{
    std::multiset<uint32_t> ids;
    for (const Element *element : DrmListView<Element>(list)) {
        ids.insert(element->diskId);
    }
    return ids;
}

void DropLog(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...) {}

/** Blocks and bytes that framework and features hold. */
struct Usage {
    uint64_t bytes = 0;
    uint64_t blocks = 0;
    bool operator==(const Usage &) const = default;
};

Usage HostUsage()
{
    Usage usage;
    normm_usage(DRM_HOST_MODULE, &usage.bytes, &usage.blocks);
    return usage;
}

std::ostream &operator<<(std::ostream &out, const Usage &usage)
{
    return out << usage.bytes << " bytes in " << usage.blocks << " blocks";
}

} // namespace

/** The analysis as it runs in a node: real platform, store, registry, settings and debug shell. No agents: threads of
 * the test report the disks. */
class SoakTest : public CorvaneTest {
protected:
    SoakTest()
    {
        // A lock in the log would order what must be in order without it.
        g_corvaneInfra.log = DropLog;
        (void)norlog_loglevel_set(DRM_HOST_MODULE, CORVANE_LOG_CRITICAL);
        for (uint32_t number = 0; number < kFleet; number++) {
            (void)std::snprintf(g_serials[number].data(), DISK_SN_SIZE, "SOAK-%02u", number);
        }
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
        g_dataMgrSendRpc = [](uint32_t, DiskSnRef, void *) -> uint32_t { return 0; };
        g_dataMgrFetchBaseInfo = FetchRecord;
        (void)setenv("NORDIAG_DIR", Prefix().c_str(), 1);
        EXPECT_EQ(norax_Init(), 0);
        EXPECT_EQ(DBG_DiagnoseAgentInit(getpid(), "soak"), 0);
        shell_ = OnlySocketIn(Prefix());
        EXPECT_NE(shell_, "");
        EXPECT_EQ(nor_mm_pool_init(), 0);
        before_ = HostUsage();
        threads_ = Threads();
        EXPECT_EQ(InitConfig(), 0u);
        EXPECT_EQ(DiskMgrInit(nullptr), 0u);
        EXPECT_EQ(CorvaneInitDrm(), 0u);
        EXPECT_EQ(DataMgrInit(), 0u);
        EXPECT_EQ(CorvaneDiagnoseInit(), 0u);
        StartFeature();
    }
    ~SoakTest() override
    {
        (void)CorvaneDiagnoseExit();
        (void)DataMgrDestroy();
        (void)CorvaneExitDrm();
        (void)DiskMgrDestroy();
        cJSON_Delete(std::exchange(g_configRoot, nullptr));
        g_corvaneInfra.rwlockDestroy(std::exchange(g_configLock, nullptr));
        g_corvaneInfra.spinlockDestroy(std::exchange(g_dataMgrLock, nullptr));
        // What features keep of a disk that has gone would still be there: their end frees no disk.
        EXPECT_EQ(HostUsage(), before_) << "framework and features keep memory";
        EXPECT_EQ(nor_mm_pool_exit(), 0);
        EXPECT_EQ(DBG_DiagnoseAgentDestroy(getpid()), 0);
        norax_destory();
        (void)unsetenv("NORDIAG_DIR");
        g_dataMgrSendRpc = DataMgrMasterSendRpcMsg2Agent;
        g_dataMgrFetchBaseInfo = FetchDiskBaseInfo;
    }

    /** Runs it over and over on a thread of its own while the soak lasts. */
    void Meanwhile(std::function<void(Dice &)> action)
    {
        const auto seed = static_cast<uint32_t>(busy_.size());
        busy_.emplace_back([this, seed, action = std::move(action)] {
            Dice dice(seed);
            while (!done_.load(std::memory_order_relaxed)) {
                action(dice);
                std::this_thread::sleep_for(100us); // most locks are spinlocks, and cores are few
            }
        });
    }
    void End()
    {
        done_.store(true, std::memory_order_relaxed);
        for (std::thread &thread : busy_) {
            thread.join();
        }
        (void)DrmTaskSchExitTimer(); // no more ticks
    }
    /** Every event that was announced is handled, and no worker is at work. The second round only takes the locks that
     * the workers of the first released, so that this thread may look at their lists. */
    void Settle() const
    {
        for (int round = 0; round < 2; round++) {
            ASSERT_EQ(DrmTriggerLocalAnalysis(DRM_FEATURE_SLOW_DISK, DRM_CODE_DISK_EVENT), DRM_OK);
            ASSERT_EQ(DrmTriggerMasterAnalysis(DRM_FEATURE_DISK_LIFE, DRM_CODE_DISK_EVENT), DRM_OK);
            ASSERT_EQ(DrmTriggerMasterAnalysis(DRM_FEATURE_PREFAIL, DRM_CODE_DISK_EVENT), DRM_OK);
            ASSERT_TRUE(Eventually([this] { return Threads() == threads_; })) << Threads() << " threads";
        }
    }
    static void Refresh(const std::vector<uint32_t> &numbers)
    {
        std::vector<DiskSnRef> list;
        for (const uint32_t number : numbers) {
            list.push_back(SerialOf(number));
        }
        EXPECT_EQ(DiskSerialNumberRefresh(list.data(), static_cast<uint32_t>(list.size())), 0u);
    }
    static std::vector<DiskMgrObj> Online()
    {
        std::array<uint32_t, DISK_ONLINE_MAX> ids{};
        std::array<std::array<char, DISK_SN_SIZE + 1>, DISK_ONLINE_MAX> texts{};
        std::array<DiskSnRef, DISK_ONLINE_MAX> sns{};
        for (size_t i = 0; i < sns.size(); i++) {
            sns[i] = {static_cast<uint32_t>(texts[i].size()), texts[i].data()};
        }
        uint32_t count = 0;
        EXPECT_EQ(ListAllOnlineDisk(ids.data(), sns.data(), DISK_ONLINE_MAX, &count), 0u);
        std::vector<DiskMgrObj> disks(count);
        for (uint32_t i = 0; i < count; i++) {
            EXPECT_EQ(DiskBaseInfoCliGet(ids[i], &disks[i], sizeof(disks[i])), 0u);
        }
        return disks;
    }
    /** Every list of every feature holds the disks that are online, each once. */
    static void ExpectListsAsOnline(size_t count)
    {
        std::map<uint32_t, std::multiset<uint32_t>> zones;
        std::map<uint32_t, std::multiset<uint32_t>> groups;
        std::multiset<uint32_t> aged;
        std::vector<uint32_t> all;
        for (const DiskMgrObj &disk : Online()) {
            const auto kind = std::find_if(kKinds.begin(), kKinds.end(),
                                           [&disk](const Kind &row) { return row.type == disk.diskType; });
            ASSERT_NE(kind, kKinds.end());
            zones[kind->zone].insert(disk.diskId);
            groups[kind->group].insert(disk.diskId);
            if (kind->aged) {
                aged.insert(disk.diskId);
            }
            all.push_back(disk.diskId);
        }
        std::sort(all.begin(), all.end());

        EXPECT_EQ(all.size(), count);
        for (uint32_t zone = 0; zone < SLOW_DISK_ZONE_NUM; zone++) {
            EXPECT_EQ(Members<DrmSlowDiskObj>(&DrmGetSlowDiskDetectZone(zone)->disks), zones[zone]) << "zone " << zone;
        }
        for (uint32_t group = 0; group < DRM_PREFAIL_GROUPS; group++) {
            EXPECT_EQ(Members<DrmDprDiskNode>(g_diskListForDiskTypeAction[group].list), groups[group])
                << "group " << group;
        }
        EXPECT_EQ(Members<DrmLifeMonitorDisk>(&g_drmDiskLifeMonitorDiskList), aged);
        for (const uint32_t feature : {DRM_FEATURE_SLOW_DISK, DRM_FEATURE_PREFAIL}) {
            std::vector<uint32_t> ids(DISK_ID_MAX);
            uint32_t found = 0;
            EXPECT_EQ(getFeatureLocValidDataIndex(feature, ids.data(), DISK_ID_MAX, &found), DRM_OK);
            ids.resize(found);
            EXPECT_EQ(ids, all) << "private data of feature " << feature;
        }
    }
    /** Items of the memory pools that are out, as the debug shell tells. */
    uint64_t PoolItemsOut() const
    {
        const DebugAnswer answer = RunDebugCommand(shell_, {"drm", "showmemalloc"});
        EXPECT_TRUE(answer.complete);
        std::istringstream text(answer.output);
        std::string line;
        uint64_t out = 0;
        size_t pools = 0;
        while (std::getline(text, line)) {
            std::array<char, 64> name{};
            uint64_t taken = 0;
            uint64_t inUse = 0;
            if (std::sscanf(line.c_str(), "cm_size_%63s %lu %lu", name.data(), &taken, &inUse) == 3) {
                out += inUse;
                pools++;
            }
        }
        EXPECT_EQ(pools, 8u) << answer.output;
        return out;
    }

    Usage before_;
    size_t threads_ = 0; ///< while no worker and no client is at work
    std::string shell_;  ///< socket of the debug shell

private:
    std::atomic<bool> done_{false};
    std::vector<std::thread> busy_;
};

TEST_F(SoakTest, DisksComeAndGoWhileEverythingRuns)
{
    std::atomic<uint64_t> ticks{0};
    std::atomic<uint64_t> commands{0};
    std::atomic<uint64_t> marks{0};

    // ticks, much faster than once a second, beside those of the timer
    Meanwhile([&ticks](Dice &) {
        DrmTaskSchedulerTimerHandler(nullptr);
        ticks.fetch_add(1, std::memory_order_relaxed);
    });
    // collection: health, and counters of which some look slow
    Meanwhile([](Dice &dice) {
        const uint32_t number = dice.Roll(kFleet);
        DiskHealthInfo health = AnyHealth(number, dice);
        (void)DiskHealthInfoSet(SerialOf(number), &health);
    });
    Meanwhile([frames = std::map<uint32_t, DiskIoInfoFrame>()](Dice &dice) mutable {
        const uint32_t number = dice.Roll(kFleet);
        DiskIoInfoFrame &frame = frames[number];
        frame.tickRate = 100;
        frame.ticks += 300;
        frame.ioTime += 3000000;
        frame.ioBusyNum = 32;
        frame.numReadOps += number < kKinds.size() ? 5 : 50000; // the first of each kind is the slow one
        (void)DiskIoStatInfoSet(SerialOf(number), &frame);
    });
    // the debug shell, two clients at once
    for (int client = 0; client < 2; client++) {
        Meanwhile([&](Dice &dice) {
            const std::string disk = std::to_string(dice.Roll(DISK_ID_MAX));
            const std::string zone = std::to_string(dice.Roll(5));
            const std::array<std::vector<std::string>, 5> all{{
                {"u_drm_slow_disk", "showdiskinzone", zone},
                {"u_drm_slow_disk", "showdiskiostat", disk},
                {"drm", "showmemalloc"},
                {"corvane", "list_data"},
                {"corvane", "set_disk_life_monitor_schedule_time", std::to_string(dice.Roll(20))},
            }};
            EXPECT_TRUE(RunDebugCommand(shell_, all[dice.Roll(static_cast<uint32_t>(all.size()))]).complete);
            commands.fetch_add(1, std::memory_order_relaxed);
        });
    }
    // switches and settings
    Meanwhile([](Dice &dice) {
        const uint32_t type = dice.Roll(DRM_DISK_TYPE_BUTT);
        ClassicalSlowDiskDetectV2Config slow = {type, static_cast<uint8_t>(1 + dice.Roll(200)),
                                                static_cast<uint8_t>(10 + dice.Roll(20))};
        EXPECT_EQ(DrmConfigClassicalSlowDiskDetectV2(&slow), DRM_OK);
        EXPECT_EQ(DrmSetClassicalSlowDiskDetectV2Switch(!dice.OneIn(4)), DRM_OK);
        DrmDprCycleConfig cycle = {DRM_DPR_START_SMART, type, dice.Roll(30)};
        EXPECT_EQ(DrmDprSetCycleConfig(&cycle), DRM_OK);
        EXPECT_EQ(SetDprSmartSwitch(!dice.OneIn(4)), 0u);
        SetDiskLifeMonitorSchedulerCycle(dice.Roll(30));
    });
    Meanwhile([](Dice &dice) {
        EXPECT_EQ(SetChildNodeConfigInt("sas_hdd", "min_slow_cycle", static_cast<int32_t>(10 + dice.Roll(20))), 0u);
        StartFeature();
        std::this_thread::sleep_for(5ms); // each set is a save and a copy of the file
    });
    // readers, and triggers and timers of others
    Meanwhile([&](Dice &dice) {
        const uint32_t diskId = dice.Roll(DISK_ID_MAX);
        DiskDrmInfo life{};
        if (DiskDrmInfoCliGet(diskId, &life, sizeof(life)) == 0 && life.diskLife != DISK_LIFE_UNKNOWN) {
            EXPECT_LE(life.diskLife, DRM_DISK_LIFE_CEILING);
        }
        (void)DiskStrategyStrGet(diskId);
        const DrmFeatureDataGuard guard(DRM_FEATURE_SLOW_DISK);
        void *window = nullptr;
        if (getFeatureLocPrivateData(diskId, DRM_FEATURE_SLOW_DISK, &window) == DRM_OK && window != nullptr) {
            marks.fetch_add(DrmSlowDiskGetSlowCycleCnt(static_cast<DrmDiskIostatWindow *>(window)),
                            std::memory_order_relaxed);
        }
    });
    Meanwhile([](Dice &dice) {
        for (const uint32_t feature : {DRM_FEATURE_SLOW_DISK, DRM_FEATURE_DISK_LIFE, DRM_FEATURE_PREFAIL}) {
            EXPECT_EQ(DrmTriggerMasterAnalysis(feature, dice.OneIn(2) ? DRM_CODE_SCHEDULE : DRM_CODE_DISK_EVENT),
                      DRM_OK);
        }
        EXPECT_EQ(DrmTriggerLocalAnalysis(DRM_FEATURE_SLOW_DISK, DRM_CODE_DISK_EVENT), DRM_OK);
        (void)DrmRegTimer(
            "soak", 1, [](void *) {}, nullptr, DRM_TIMER_ONE_SHOT); // refused while 64 are there
        std::this_thread::sleep_for(1ms);
    });

    // hot plug
    Dice dice(2026);
    const auto enough = [&] { return ticks > 1000 && commands > 100 && marks > 0; };
    const auto until = std::chrono::steady_clock::now() + kPatience;
    for (int round = 0; round < kRounds || (!enough() && std::chrono::steady_clock::now() < until); round++) {
        std::vector<uint32_t> present;
        for (uint32_t number = 0; number < kFleet; number++) {
            const bool slow = number < kKinds.size(); // stays long enough to be found so
            if (!dice.OneIn(slow ? 16 : 4)) {
                present.push_back(number);
            }
        }
        Refresh(present);
        std::this_thread::sleep_for(std::chrono::milliseconds(dice.Roll(20)));
    }
    End();

    EXPECT_GT(ticks.load(), 1000u);
    EXPECT_GT(commands.load(), 100u);
    EXPECT_GT(marks.load(), 0u) << "no sample was ever marked slow";
    Refresh({0, 1, 2, 3, 4, 5, 6, 7, 20, 21, 33, 47});
    Settle();
    ExpectListsAsOnline(12);
    Refresh({});
    Settle();
    ExpectListsAsOnline(0);
    EXPECT_EQ(PoolItemsOut(), 0u);
}
