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
    bool aged;     ///< the life monitor looks after it
    bool admitted; ///< else reported over and over, and never online
};
/** One of each zone first. */
constexpr std::array<Kind, 6> kKinds{{
    {DISK_TYPE_SSD_SATA, "ATA", DRM_SATA_SSD_DISK, DRM_PREFAIL_SATA_SSD, false, true},
    {DISK_TYPE_SSD_SAS, "ORSTAN", DRM_SAS_SSD_DISK, DRM_PREFAIL_SAS_SSD, true, true},
    {DISK_TYPE_SSD_NVME, "VELMAR", DRM_NVME_DISK, DRM_PREFAIL_NVME, true, true},
    {DISK_TYPE_HDD_SAS, "SEAGATE", DRM_SAS_HDD_DISK, DRM_PREFAIL_SAS_HDD, false, true},
    {DISK_TYPE_SSD_SAS, "0x1f7c", DRM_SAS_SSD_DISK, DRM_PREFAIL_SAS_VSSD, true, true},
    {DISK_TYPE_HDD_NL_SAS, "SEAGATE", DRM_SAS_HDD_DISK, DRM_PREFAIL_SAS_HDD, false, false},
}};

const Kind &KindOf(uint32_t number)
{
    return kKinds[number % kKinds.size()];
}

/** The first disk of each zone is the slow one: two in a zone would not be blamed. */
bool IsSlow(uint32_t number)
{
    return number < SLOW_DISK_ZONE_NUM;
}

bool Wears(uint32_t number)
{
    return number / kKinds.size() % 2 == 1;
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

/** Well, or unwell in the way of its kind, and perhaps worn by any measure. */
DiskHealthInfo AnyHealth(uint32_t number, Dice &dice)
{
    DiskHealthInfo health{};
    health.powerOnHours = dice.Roll(50000);
    health.wearInt = Wears(number) ? dice.Roll(101) : 0;
    const bool bad = dice.OneIn(8);
    switch (KindOf(number).group) {
    case DRM_PREFAIL_SATA_SSD:
        for (uint8_t i = 0; i < DISK_SMART_ATTR_NUM; i++) {
            health.detail.sataSsd.attr[i] = {static_cast<uint8_t>(i + 1), 10, static_cast<uint8_t>(bad ? 9 : 90), 90};
        }
        break;
    case DRM_PREFAIL_NVME:
        health.detail.nvme.criticalWarning = bad ? 8 : 0;
        break;
    case DRM_PREFAIL_SAS_VSSD:
        health.detail.sasVssd = {242, static_cast<uint8_t>(bad ? 0 : 1)};
        break;
    default:
        health.detail.sas = {static_cast<uint8_t>(bad ? 0x5D : 0), 0x10, 1};
        break;
    }
    return health;
}

/** States that the data agent was told. */
std::array<std::atomic<uint64_t>, DISK_STATE_BUTT> g_told;
/** Of those the prefail ones of disks that do not wear, by kind: nothing but the test of their group finds them. */
std::array<std::atomic<uint64_t>, kKinds.size()> g_toldBySign;

uint64_t Told(uint32_t state)
{
    return g_told[state].load(std::memory_order_relaxed);
}

bool EveryGroupHadAVerdict()
{
    for (size_t kind = 0; kind < kKinds.size(); kind++) {
        if (kKinds[kind].admitted && g_toldBySign[kind].load(std::memory_order_relaxed) == 0) {
            return false;
        }
    }
    return true;
}

uint32_t TellTheDataAgent(uint32_t message, DiskSnRef sn, void *data)
{
    uint32_t number = 0;
    if (message == DATA_MGR_RPC_DISK_STATE && std::sscanf(sn.buf, "SOAK-%u", &number) == 1) {
        uint32_t state = 0;
        std::memcpy(&state, data, sizeof(state));
        g_told[state].fetch_add(1, std::memory_order_relaxed);
        if (state == DISK_STATE_PREFAIL && !Wears(number)) {
            g_toldBySign[number % kKinds.size()].fetch_add(1, std::memory_order_relaxed);
        }
    }
    return 0;
}

/** How long disks come and go at least; a test run is content with some rounds. */
std::chrono::seconds WantedTime()
{
    const char *seconds = std::getenv("CORVANE_SOAK_SECONDS");
    return std::chrono::seconds(seconds != nullptr ? std::atoi(seconds) : 0);
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
        g_dataMgrSendRpc = TellTheDataAgent;
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
    void Refresh(const std::vector<uint32_t> &numbers)
    {
        std::vector<DiskSnRef> list;
        std::set<uint32_t> present;
        for (const uint32_t number : numbers) {
            list.push_back(SerialOf(number));
            if (KindOf(number).admitted) {
                present.insert(number);
            }
        }
        EXPECT_EQ(DiskSerialNumberRefresh(list.data(), static_cast<uint32_t>(list.size())), 0u);
        const auto without = [](const std::set<uint32_t> &all, const std::set<uint32_t> &others) {
            return std::count_if(all.begin(), all.end(), [&](uint32_t number) { return others.count(number) == 0; });
        };
        in_ += without(present, present_);
        out_ += without(present_, present);
        present_ = std::move(present);
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
    void ExpectListsAsOnline() const
    {
        std::map<uint32_t, std::multiset<uint32_t>> zones;
        std::map<uint32_t, std::multiset<uint32_t>> groups;
        std::multiset<uint32_t> aged;
        std::vector<uint32_t> all;
        for (const DiskMgrObj &disk : Online()) {
            uint32_t number = 0;
            ASSERT_EQ(std::sscanf(disk.sn, "SOAK-%u", &number), 1);
            ASSERT_EQ(present_.count(number), 1u) << number;
            const Kind &kind = KindOf(number);
            zones[kind.zone].insert(disk.diskId);
            groups[kind.group].insert(disk.diskId);
            if (kind.aged) {
                aged.insert(disk.diskId);
            }
            all.push_back(disk.diskId);
        }
        std::sort(all.begin(), all.end());

        EXPECT_EQ(all.size(), present_.size());
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
    std::set<uint32_t> present_;
    int64_t in_ = 0; ///< arrivals so far
    int64_t out_ = 0;

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
        frame.numReadOps += IsSlow(number) ? 5 : 50000;
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
    const auto enough = [&] {
        return ticks > 1000 && commands > 100 && marks > 0 && EveryGroupHadAVerdict() && Told(DISK_STATE_SLOW) > 0 &&
               Told(DISK_STATE_FAULT) > 0;
    };
    const auto start = std::chrono::steady_clock::now();
    const auto lasts = [start](std::chrono::seconds span) { return std::chrono::steady_clock::now() - start < span; };
    for (int round = 0; round < kRounds || lasts(WantedTime()) || (!enough() && lasts(kPatience)); round++) {
        std::vector<uint32_t> present;
        for (uint32_t number = 0; number < kFleet; number++) {
            if (!dice.OneIn(IsSlow(number) ? 16 : 4)) { // slow ones stay long enough to be found so
                present.push_back(number);
            }
        }
        Refresh(present);
        std::this_thread::sleep_for(std::chrono::milliseconds(dice.Roll(20)));
    }
    End();

    std::printf("disks in %ld, out %ld; ticks %lu, commands %lu; told prefail %lu, slow %lu, fault %lu\n", in_, out_,
                ticks.load(), commands.load(), Told(DISK_STATE_PREFAIL), Told(DISK_STATE_SLOW), Told(DISK_STATE_FAULT));
    EXPECT_GT(ticks.load(), 1000u);
    EXPECT_GT(commands.load(), 100u);
    EXPECT_GT(marks.load(), 0u) << "no sample was ever marked slow";
    EXPECT_TRUE(EveryGroupHadAVerdict());
    EXPECT_GT(Told(DISK_STATE_SLOW), 0u);
    EXPECT_GT(Told(DISK_STATE_FAULT), 0u);
    Refresh({0, 1, 2, 3, 4, 5, 6, 7, 20, 21, 33, 47});
    ASSERT_EQ(present_.size(), 10u) << "two of them are of a kind that is refused";
    Settle();
    ExpectListsAsOnline();
    Refresh({});
    Settle();
    ExpectListsAsOnline();
    EXPECT_EQ(PoolItemsOut(), 0u);
}
