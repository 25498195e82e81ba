#include "ma/drm/feature/slow_disk_detecter/slow_disk_detecter.h"

#include <array>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "ma/drm/feature/drm_feature_event_queue.h"
#include "ma/drm/feature/slow_disk_detecter/slow_disk_detector_debug.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_data_mgr/drm_data_mgr_local.h"
#include "ma/drm/framework/drm_disk_event.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_main.h"
#include "ma/drm/framework/utils/drm_log.h"
#include "ma/drm/framework/utils/drm_relaxed.h"
#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/drm_feature_adapter_intf.h"

namespace {

constexpr DrmSlowDiskZone EmptyZone(DrmSlowDiskZone &at) noexcept
{
    return {DRM_SPINLOCK_FREE, {&at.disks, &at.disks}, 0};
}

} // namespace

extern "C" {
DrmSlowDiskZone g_drm_slow_disk_detecter_zones[SLOW_DISK_ZONE_NUM] = {
    EmptyZone(g_drm_slow_disk_detecter_zones[0]), EmptyZone(g_drm_slow_disk_detecter_zones[1]),
    EmptyZone(g_drm_slow_disk_detecter_zones[2]), EmptyZone(g_drm_slow_disk_detecter_zones[3])};
}

namespace {

constexpr uint32_t kSampleSeconds = 3;

// A disk is suspected while it is busy, and slow, and yet moves little data.
constexpr uint16_t kBusyNumIdle = 29;     // requests in flight that do not make a disk busy
constexpr uint16_t kUtilizationIdle = 89; // nor does this share of the time
constexpr uint32_t kMicrosPerMilli = 1000;
constexpr uint64_t kKibPerMib = 1024;

constexpr uint64_t kOutlierFactor = 5;   // over the mean service time of the others
constexpr uint32_t kOthersSlowMax = 4;   // marks that every other disk may have
constexpr uint64_t kLogWindow = 7500;    // jiffies
constexpr uint64_t kLogInterval = 75000; // jiffies

using ConfigTable = std::array<ClassicalSlowDiskDetectV2Config, SLOW_DISK_ZONE_NUM>;

constexpr ConfigTable kDefaultConfig{{
    {DRM_SATA_SSD_DISK, 1, 50},
    {DRM_SAS_SSD_DISK, 1, 50},
    {DRM_NVME_DISK, 1, 50},
    {DRM_SAS_HDD_DISK, 100, 50},
}};
consteval bool RowsMatchIndex()
{
    for (uint32_t i = 0; i < kDefaultConfig.size(); i++) {
        if (kDefaultConfig[i].diskType != i) {
            return false;
        }
    }
    return true;
}
static_assert(RowsMatchIndex(), "row i holds the settings of zone i");

/** MiB per second that a suspected disk of a zone moves at most. */
constexpr std::array<uint32_t, SLOW_DISK_ZONE_NUM> kBandwidthCeiling{{300, 300, 300, 15}};

ConfigTable g_config = kDefaultConfig; // relaxed atomics
uint8_t g_switch = 0;                  // relaxed atomic
DrmQueue g_eventQueue = {DRM_SPINLOCK_FREE, {&g_eventQueue.nodes, &g_eventQueue.nodes}};

void WriteBit(uint8_t *bits, uint32_t index, bool value) noexcept
{
    const auto mask = static_cast<uint8_t>(1u << (index % 8));
    if (value) {
        bits[index / 8] |= mask;
    } else {
        bits[index / 8] &= static_cast<uint8_t>(~mask);
    }
}

/** The window of a disk, or null. The caller holds the feature's data lock and logs. */
DrmDiskIostatWindow *WindowLocked(uint32_t diskId) noexcept
{
    void *data = nullptr;
    if (getFeatureLocPrivateData(diskId, DRM_FEATURE_SLOW_DISK, &data) != DRM_OK) {
        return nullptr;
    }
    return static_cast<DrmDiskIostatWindow *>(data);
}

DrmSlowDiskObj *FindMember(DrmSlowDiskZone *zone, uint32_t diskId) noexcept
{
    return DrmListFind<DrmSlowDiskObj>(&zone->disks,
                                       [diskId](const DrmSlowDiskObj &member) { return member.diskId == diskId; });
}

DrmDiskIostatSample SampleOf(const DrmDiskIoStat &stat) noexcept
{
    return {
        .iops = stat.readIops + stat.writeIops,
        .bandwidth = stat.readIoBand + stat.writeIoBand,
        .svctm = stat.avgServeTime,
        .util = static_cast<uint16_t>(stat.utilization),
        .busyNum = static_cast<uint16_t>(stat.ioBusyNum),
    };
}

bool IsSuspected(const DrmDiskIostatSample &sample, uint32_t thresholdMs, uint32_t bandwidthCeiling) noexcept
{
    return sample.svctm >= thresholdMs * kMicrosPerMilli && sample.busyNum > kBusyNumIdle &&
           sample.bandwidth <= bandwidthCeiling * kKibPerMib && sample.util > kUtilizationIdle;
}

/** What one slot says about a zone. */
struct ZoneSlot {
    uint32_t suspected = 0; /**< disks that are slow, busy, and move little data */
    uint32_t count = 0;     /**< disks with I/O */
    uint32_t sum = 0;       /**< of their service times; wraps */
    uint32_t max = 0;
    uint32_t maxDisk = DRM_INVALID;
};

/** The caller holds the feature's data lock. */
ZoneSlot SurveyLocked(DrmSlowDiskZone *zone, uint32_t thresholdMs, uint32_t bandwidthCeiling) noexcept
{
    const uint32_t slot = zone->cycleIndex;
    ZoneSlot result;
    for (const DrmSlowDiskObj *member : DrmListView<DrmSlowDiskObj>(&zone->disks)) {
        const DrmDiskIostatWindow *window = WindowLocked(member->diskId);
        if (window == nullptr) {
            DRM_LOG(CORVANE_LOG_ERROR, "Get private data fail for disk(%u).", member->diskId);
            continue;
        }
        const DrmDiskIostatSample &sample = window->samples[slot];
        if (!DrmSlowDiskBitAt(window->validBits, slot) || sample.iops == 0) {
            continue; // an idle disk would make a busy one look slow
        }
        if (IsSuspected(sample, thresholdMs, bandwidthCeiling)) {
            result.suspected++;
        }
        result.count++;
        result.sum += sample.svctm;
        if (sample.svctm > result.max) {
            result.max = sample.svctm;
            result.maxDisk = member->diskId;
        }
    }
    return result;
}

/** Whether the longest service time stands out from the mean of the others. A disk that is alone always does. */
bool StandsOut(const ZoneSlot &survey) noexcept
{
    if (survey.count == 1) {
        return true;
    }
    const uint32_t others = (survey.sum - survey.max) / (survey.count - 1);
    return survey.max >= kOutlierFactor * others;
}

uint32_t HandleDiskEvent(const DrmDiskEvent &event) noexcept
{
    switch (event.event) {
    case DISK_EVENT_IN:
        return DrmSlowDiskDetectorHandleDiskInEvent(event.diskId);
    case DISK_EVENT_OUT:
        return DrmSlowDiskDetectorHandleDiskOutEvent(event.diskId);
    default:
        DRM_LOG(CORVANE_LOG_ERROR, "Invalid disk event(%d) for disk(%u).", static_cast<int>(event.event), event.diskId);
        return DRM_OK;
    }
}

void HandleQueuedEvent(const DrmDiskEvent &event) noexcept
{
    if (HandleDiskEvent(event) != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Handle disk(%u) event(%d) failed.", event.diskId, static_cast<int>(event.event));
    }
}

} // namespace

extern "C" {

uint32_t DrmClassicalSlowDiskDetectV2Init(void) noexcept
{
    drmQueueInit(&g_eventQueue);
    DrmInitSlowDiskDetecterZones();
    DrmRegisterDiskEventHandler(DRM_FEATURE_SLOW_DISK, DrmSlowDiskDetectorDiskEventHandle, nullptr);
    if (DrmRegisterAnalyser(DRM_FEATURE_SLOW_DISK, DrmSlowDiskDetectorLocalSchedule, kSampleSeconds, nullptr,
                            DRM_INVALID, DRM_SCHEDULE_SEPERATE) != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Reigster drm slow disk detect analyzer fail");
        return DRM_ERR_FAIL;
    }
    DrmSlowDiskDetectDebugRegTp();
    DrmSlowDiskDetectDebugInitDiag();
    return DRM_OK;
}

void DrmClassicalSlowDiskDetectV2Exit(void) noexcept
{
    DrmSlowDiskDetectDebugExitDiag();
    DrmUnRegisterDiskEventHandler(DRM_FEATURE_SLOW_DISK);
    drmQueueExit(&g_eventQueue);
}

uint32_t DrmConfigClassicalSlowDiskDetectV2(ClassicalSlowDiskDetectV2Config *config) noexcept
{
    if (config == nullptr || config->diskType >= SLOW_DISK_ZONE_NUM || config->minThresholdValue == 0 ||
        config->minSlowCycle < SLOW_DISK_MIN_CYCLE_MIN || config->minSlowCycle > SLOW_DISK_MIN_CYCLE_MAX) {
        return DRM_ERR_FAIL;
    }
    ClassicalSlowDiskDetectV2Config &row = g_config[config->diskType];
    DrmStoreRelaxed(row.minThresholdValue, config->minThresholdValue);
    DrmStoreRelaxed(row.minSlowCycle, config->minSlowCycle);
    return DRM_OK;
}

uint32_t DrmSetClassicalSlowDiskDetectV2Switch(uint8_t on) noexcept
{
    DrmStoreRelaxed(g_switch, on);
    return DRM_OK;
}

ClassicalSlowDiskDetectV2Config *DrmGetSlowDiskDetectV2Config(uint32_t diskType) noexcept
{
    return diskType < g_config.size() ? &g_config[diskType] : nullptr;
}

DrmSlowDiskZone *DrmGetSlowDiskDetectZone(uint32_t diskType) noexcept
{
    return diskType < SLOW_DISK_ZONE_NUM ? &g_drm_slow_disk_detecter_zones[diskType] : nullptr;
}

uint32_t DrmSlowDiskGetSlowCycleCnt(DrmDiskIostatWindow *window) noexcept
{
    uint32_t count = 0;
    for (uint32_t i = 0; i < SLOW_DISK_WINDOW_SIZE; i++) {
        count += DrmSlowDiskBitAt(window->slowBits, i) ? 1 : 0;
    }
    return count;
}

void DrmInitSlowDiskDetecterZones(void) noexcept
{
    for (DrmSlowDiskZone &zone : g_drm_slow_disk_detecter_zones) {
        DrmSpinInit(&zone.lock);
        DrmListInit(&zone.disks);
        zone.cycleIndex = 0;
    }
}

uint32_t DrmSlowDiskDetectorLocalSchedule(uint32_t code) noexcept
{
    if (code == DRM_CODE_SCHEDULE) {
        DrmSlowDiskDetect();
    }
    if (code == DRM_CODE_SCHEDULE || code == DRM_CODE_DISK_EVENT) {
        DrmSlowDiskDetectorHandleDiskEvent();
    }
    return DRM_OK;
}

uint32_t DrmSlowDiskDetectorDiskEventHandle(uint32_t diskId, uint32_t event) noexcept
{
    switch (DrmQueueDiskEvent(&g_eventQueue, diskId, event)) {
    case DrmEventQueued::NO_MEMORY:
        DRM_LOG(CORVANE_LOG_ERROR, "Handle disk event: disk(%u) event(%d) fail.", diskId, static_cast<int>(event));
        return DRM_ERR_FAIL;
    case DrmEventQueued::REFUSED:
        DRM_LOG(CORVANE_LOG_ERROR, "queue disk(%u) event(%d) failed.", diskId, static_cast<int>(event));
        return DRM_ERR_FAIL;
    case DrmEventQueued::YES:
        break;
    }
    // Without a master analyser nothing comes of it: the event waits for the next sample.
    (void)DrmTriggerMasterAnalysis(DRM_FEATURE_SLOW_DISK, DRM_CODE_DISK_EVENT);
    return DRM_OK;
}

void DrmSlowDiskDetectorHandleDiskEvent(void) noexcept
{
    DrmDrainDiskEvents(&g_eventQueue, HandleQueuedEvent);
}

uint32_t DrmSlowDiskDetectorHandleDiskInEvent(uint32_t diskId) noexcept
{
    uint32_t diskType = DRM_DISK_TYPE_BUTT;
    if (DrmGetDiskType(diskId, &diskType) != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Get disk(%u) type fail.", diskId);
        return DRM_ERR_FAIL;
    }
    DrmSlowDiskZone *zone = DrmGetSlowDiskDetectZone(diskType);
    if (zone == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Invalid disk type(%d) for disk(%u).", static_cast<int>(diskType), diskId);
        return DRM_OK;
    }
    const DrmSpinGuard guard(zone->lock);
    return DrmSlowDiskDetectorAddDiskToZone(zone, diskId);
}

uint32_t DrmSlowDiskDetectorHandleDiskOutEvent(uint32_t diskId) noexcept
{
    // By now nobody knows any more which type the disk had.
    for (DrmSlowDiskZone &zone : g_drm_slow_disk_detecter_zones) {
        const DrmSpinGuard guard(zone.lock);
        DrmSlowDiskDetectorRemoveDiskFromZone(&zone, diskId);
    }
    return DRM_OK;
}

uint32_t DrmSlowDiskDetectorAddDiskToZone(DrmSlowDiskZone *zone, uint32_t diskId) noexcept
{
    if (FindMember(zone, diskId) != nullptr) {
        DRM_LOG(CORVANE_LOG_INFO, "Disk(%u) re in.", diskId);
        return DRM_OK;
    }
    DrmUmmPtr<DrmSlowDiskObj> member = DrmUmmNew<DrmSlowDiskObj>();
    if (member == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Malloc disk obj(%u) fail.", diskId);
        return DRM_ERR_FAIL;
    }
    member->diskId = diskId;
    DrmUmmPtr<DrmDiskIostatWindow> window = DrmUmmNew<DrmDiskIostatWindow>();
    if (window == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "create iostat fail for disk(%u).", diskId);
        return DRM_ERR_FAIL;
    }
    {
        const DrmFeatureDataGuard guard(DRM_FEATURE_SLOW_DISK);
        if (setFeatureLocPrivateData(diskId, DRM_FEATURE_SLOW_DISK, window.get()) != DRM_OK) {
            DRM_LOG(CORVANE_LOG_ERROR, "set locale private data fail for disk(%u).", diskId);
            return DRM_ERR_FAIL;
        }
        (void)window.release(); // the disk's private data now
    }
    DrmListAddTail(&zone->disks, &member.release()->links);
    return DRM_OK;
}

void DrmSlowDiskDetectorRemoveDiskFromZone(DrmSlowDiskZone *zone, uint32_t diskId) noexcept
{
    DrmUmmPtr<DrmSlowDiskObj> member(FindMember(zone, diskId));
    if (member == nullptr) {
        return;
    }
    DrmListUnlink(&member->links);
    member.reset();
    const DrmFeatureDataGuard guard(DRM_FEATURE_SLOW_DISK);
    const DrmUmmPtr<DrmDiskIostatWindow> window(WindowLocked(diskId));
    if (window == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Get private data fail for disk(%u).", diskId);
        return;
    }
    (void)setFeatureLocPrivateData(diskId, DRM_FEATURE_SLOW_DISK, nullptr); // what could be read can be written
}

void DrmSlowDiskDetect(void) noexcept
{
    if (DrmLoadRelaxed(g_switch) == 0) {
        return;
    }
    for (uint32_t diskType = 0; diskType < SLOW_DISK_ZONE_NUM; diskType++) {
        DrmSlowDiskDetectInZone(&g_drm_slow_disk_detecter_zones[diskType], diskType);
    }
}

void DrmSlowDiskDetectInZone(DrmSlowDiskZone *zone, uint32_t diskType) noexcept
{
    ClassicalSlowDiskDetectV2Config *config = DrmGetSlowDiskDetectV2Config(diskType);
    if (zone == nullptr || config == nullptr) {
        return;
    }
    zone->cycleIndex = zone->cycleIndex + 1 < SLOW_DISK_WINDOW_SIZE ? zone->cycleIndex + 1 : 0;
    uint32_t disk = DRM_INVALID;
    bool slow = false;
    {
        const DrmFeatureDataGuard guard(DRM_FEATURE_SLOW_DISK);
        DrmSlowDiskDetectCollectDiskPerformace(zone);
        disk = DrmSlowDiskDetectFindSuspectedSlowDisk(zone, config, kBandwidthCeiling[diskType]);
        slow = disk != DRM_INVALID && DrmSlowDiskDetectCheckIsSlowDisk(zone, config, disk);
    }
    if (slow) {
        (void)DrmReportSlowDisk(disk); // saves a file and waits for an agent: not under the lock
    }
}

void DrmSlowDiskDetectCollectDiskPerformace(DrmSlowDiskZone *zone) noexcept
{
    const uint32_t slot = zone->cycleIndex;
    for (const DrmSlowDiskObj *member : DrmListView<DrmSlowDiskObj>(&zone->disks)) {
        DrmDiskIostatWindow *window = WindowLocked(member->diskId);
        if (window == nullptr) {
            DRM_LOG(CORVANE_LOG_ERROR, "Get private data for disk(%u) fail.", member->diskId);
            continue;
        }
        DrmDiskIoStat stat{};
        const bool valid = DrmGetDiskIoStat(member->diskId, &stat) == DRM_OK;
        if (!valid) {
            DRM_LOG(CORVANE_LOG_ERROR, "get disk(%u) io stat fail.", member->diskId);
        }
        window->samples[slot] = valid ? SampleOf(stat) : DrmDiskIostatSample{};
        WriteBit(window->validBits, slot, valid);
        WriteBit(window->slowBits, slot, false); // the mark of 100 samples ago leaves the window
    }
}

uint32_t DrmSlowDiskDetectFindSuspectedSlowDisk(DrmSlowDiskZone *zone, ClassicalSlowDiskDetectV2Config *config,
                                                uint32_t bandwidthCeiling) noexcept
{
    const ZoneSlot survey = SurveyLocked(zone, DrmLoadRelaxed(config->minThresholdValue), bandwidthCeiling);
    if (survey.suspected != 1) {
        DRM_LOG_LIMITED(CORVANE_LOG_INFO, kLogWindow, kLogInterval, "Find %u suspected disks, don't set slow cycle.",
                        survey.suspected);
        return DRM_INVALID;
    }
    // The mark goes to the longest service time, which need not be that of the suspected disk.
    DrmDiskIostatWindow *window = WindowLocked(survey.maxDisk);
    if (window == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Get private data fail for disk(%u).", survey.maxDisk);
        return DRM_INVALID;
    }
    if (!StandsOut(survey)) {
        return DRM_INVALID;
    }
    WriteBit(window->slowBits, zone->cycleIndex, true);
    return survey.maxDisk;
}

bool DrmSlowDiskDetectCheckIsSlowDisk(DrmSlowDiskZone *zone, ClassicalSlowDiskDetectV2Config *config,
                                      uint32_t candidate) noexcept
{
    const uint32_t minSlowCycle = DrmLoadRelaxed(config->minSlowCycle);
    for (const DrmSlowDiskObj *member : DrmListView<DrmSlowDiskObj>(&zone->disks)) {
        DrmDiskIostatWindow *window = WindowLocked(member->diskId);
        if (window == nullptr) {
            DRM_LOG(CORVANE_LOG_ERROR, "Get private data fail for disk(%u).", member->diskId);
            continue;
        }
        const uint32_t slowCycles = DrmSlowDiskGetSlowCycleCnt(window);
        if (member->diskId == candidate ? slowCycles < minSlowCycle : slowCycles > kOthersSlowMax) {
            return false;
        }
    }
    return true;
}

} // extern "C"
