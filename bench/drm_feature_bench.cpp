// What one run of an analysis costs on a node with 64 disks. A run of the slow disk detection comes every 3 seconds, a
// visit of the prefail routine every 20.
#include <benchmark/benchmark.h>

#include "bench_store.h"
#include "ma/drm/feature/disk_life_monitor/drm_disk_life_monitor.h"
#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_routine.h"
#include "ma/drm/feature/slow_disk_detecter/slow_disk_detecter.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_data_mgr/drm_data_mgr_local.h"
#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/drm_feature_adapter_intf.h"
#include "platform/normm.h"

namespace {

constexpr uint32_t kHours = 1000;

struct Kind {
    uint32_t type;
    const char *vendor;
};
constexpr std::array<Kind, 4> kKinds{{{DISK_TYPE_SSD_SATA, "ATA"},
                                      {DISK_TYPE_SSD_SAS, "VELMAR"},
                                      {DISK_TYPE_SSD_NVME, "VELMAR"},
                                      {DISK_TYPE_HDD_SAS, "SEAGATE"}}};

/** 16 disks of each kind, healthy, with statistics. */
class Node {
public:
    Node() : store_(Describe)
    {
        (void)nor_mm_pool_init();
        Require(DrmLocalDataMgrInit() == DRM_OK, "no feature data");
        DrmInitSlowDiskDetecterZones();
        for (uint32_t id = 0; id < DISK_ONLINE_MAX; id++) {
            DiskHealthInfo health{};
            health.powerOnHours = kHours;
            health.wearInt = 1;
            if (kKinds[id % kKinds.size()].type == DISK_TYPE_SSD_SATA) {
                for (uint8_t attr = 0; attr < DISK_SMART_ATTR_NUM; attr++) {
                    health.detail.sataSsd.attr[attr] = {static_cast<uint8_t>(attr + 1), 10, 100, 100};
                }
            }
            Require(DiskHealthInfoSet(store_.List()[id], &health) == 0, "no health");
            (void)DrmSlowDiskDetectorHandleDiskInEvent(id);
            (void)DrmDiskPrefailMasterHandleDiskInEvent(id);
            (void)DrmDiskMonitorMasterHandleDiskInEvent(id);
        }
        for (const uint32_t feature : {DRM_FEATURE_SLOW_DISK, DRM_FEATURE_PREFAIL}) {
            std::array<uint32_t, DISK_ID_MAX> ids{};
            uint32_t count = 0;
            Require(getFeatureLocValidDataIndex(feature, ids.data(), DISK_ID_MAX, &count) == DRM_OK &&
                        count == DISK_ONLINE_MAX,
                    "a feature does not know all disks");
        }
        NextFrames(0);
        NextFrames(0);
        for (uint32_t type = 0; type < DRM_DISK_TYPE_BUTT; type++) {
            DrmDprCycleConfig everyRun = {DRM_DPR_START_SMART, type, DRM_DPR_RUN_CYCLE};
            Require(DrmDprSetCycleConfig(&everyRun) == DRM_OK, "no cycle");
        }
        (void)DrmSetClassicalSlowDiskDetectV2Switch(1);
        SetDiskLifeMonitorSchedulerCycle(0);
    }

    /** Three seconds later. @param slow  How many disks, one a kind, now look slow beside their peers. */
    void NextFrames(uint32_t slow)
    {
        frame_.ticks += 3000;
        frame_.tickRate = 1000;
        frame_.ioBusyNum = 64;
        for (uint32_t id = 0; id < DISK_ONLINE_MAX; id++) {
            DiskIoInfoFrame frame = frame_;
            frame.ioTime = frame.ticks * 1000;
            ops_[id] += id < slow ? 15 : 30000;
            frame.numReadOps = ops_[id];
            (void)DiskIoStatInfoSet(store_.List()[id], &frame);
        }
    }

private:
    static void Describe(uint32_t diskId, DiskMgrObj &record)
    {
        const Kind &kind = kKinds[diskId % kKinds.size()];
        record.diskType = kind.type;
        std::strcpy(record.vendor, kind.vendor);
        std::strcpy(record.model, "VSSD-1");
    }

    BenchStore store_;
    DiskIoInfoFrame frame_{};
    std::array<uint64_t, DISK_ONLINE_MAX> ops_{};
};

Node &TheNode()
{
    static Node node;
    return node;
}

void SlowDiskRun(benchmark::State &state)
{
    TheNode().NextFrames(0);
    for (auto _ : state) {
        DrmSlowDiskDetect();
    }
}
BENCHMARK(SlowDiskRun);

/** The same with a suspect in each of the four zones, so that marks are set and counted. */
void SlowDiskRunWithSuspects(benchmark::State &state)
{
    TheNode().NextFrames(static_cast<uint32_t>(kKinds.size()));
    for (auto _ : state) {
        DrmSlowDiskDetect();
    }
    for (uint32_t id = 0; id < kKinds.size(); id++) {
        void *window = nullptr;
        Require(getFeatureLocPrivateData(id, DRM_FEATURE_SLOW_DISK, &window) == DRM_OK && window != nullptr &&
                    DrmSlowDiskGetSlowCycleCnt(static_cast<DrmDiskIostatWindow *>(window)) > 0,
                "a suspect was not marked");
    }
}
BENCHMARK(SlowDiskRunWithSuspects);

/** All five groups due. */
void PrefailRun(benchmark::State &state)
{
    (void)TheNode();
    for (auto _ : state) {
        DrmDiskPrefailMasterScheByType();
    }
    for (uint32_t id = 0; id < DISK_ONLINE_MAX; id++) {
        DiskMgrObj record{};
        Require(DiskBaseInfoCliGet(id, &record, sizeof(record)) == 0 && record.diskState != DISK_STATE_PREFAIL,
                "a healthy disk was found prefail");
    }
}
BENCHMARK(PrefailRun);

/** A prediction for each of the 32 disks that have one. */
void LifeRun(benchmark::State &state)
{
    (void)TheNode();
    for (auto _ : state) {
        DrmDiskMonitorMasterMonitorDiskLife();
    }
}
BENCHMARK(LifeRun);

} // namespace
