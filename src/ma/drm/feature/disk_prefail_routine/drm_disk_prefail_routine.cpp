#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_routine.h"

#include <array>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_trace_point.h"
#include "ma/drm/feature/drm_feature_event_queue.h"
#include "ma/drm/framework/drm_data_mgr/drm_data_mgr_local.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_main.h"
#include "ma/drm/framework/utils/drm_log.h"
#include "ma/drm/framework/utils/drm_relaxed.h"
#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/drm_feature_adapter_intf.h"

extern "C" {

DrmListHead g_drmDiskPrefailDiskListForSATA = {&g_drmDiskPrefailDiskListForSATA, &g_drmDiskPrefailDiskListForSATA};
DrmListHead g_drmDiskPrefailDiskListForSAS = {&g_drmDiskPrefailDiskListForSAS, &g_drmDiskPrefailDiskListForSAS};
DrmListHead g_drmDiskPrefailDiskListForSasVSSD = {&g_drmDiskPrefailDiskListForSasVSSD,
                                                  &g_drmDiskPrefailDiskListForSasVSSD};
DrmListHead g_drmDiskPrefailDiskListForNvme = {&g_drmDiskPrefailDiskListForNvme, &g_drmDiskPrefailDiskListForNvme};
DrmListHead g_drmDiskPrefailDiskListForSASHDD = {&g_drmDiskPrefailDiskListForSASHDD,
                                                 &g_drmDiskPrefailDiskListForSASHDD};

DrmDprDiskListAction g_diskListForDiskTypeAction[DRM_PREFAIL_GROUPS] = {
    {DRM_PREFAIL_SATA_SSD, &g_drmDiskPrefailDiskListForSATA, DrmSATAPrefailRoutineForStartType},
    {DRM_PREFAIL_SAS_SSD, &g_drmDiskPrefailDiskListForSAS, DrmSASPrefailRoutineForStartType},
    {DRM_PREFAIL_SAS_VSSD, &g_drmDiskPrefailDiskListForSasVSSD, DrmSASVSSDPrefailRoutineForStartType},
    {DRM_PREFAIL_NVME, &g_drmDiskPrefailDiskListForNvme, DrmNvmePrefailRoutineForStartType},
    {DRM_PREFAIL_SAS_HDD, &g_drmDiskPrefailDiskListForSASHDD, DrmSasHddPrefailRoutineForStartType},
};

DrmDprGroupCycle g_dprCycleConfig[DRM_DPR_START_TYPES][DRM_PREFAIL_GROUPS] = {{
    {DRM_PREFAIL_SATA_SSD, 600},
    {DRM_PREFAIL_SAS_SSD, 20},
    {DRM_PREFAIL_SAS_VSSD, 20},
    {DRM_PREFAIL_NVME, 20},
    {DRM_PREFAIL_SAS_HDD, 20},
}};

uint32_t g_drmDprFeatureSwitch = 1;
uint8_t g_dprSwitchConfig[DRM_DPR_START_TYPES] = {1};

void (*g_drmDprMasterHandler[DRM_DPR_START_TYPES])(void) = {DrmMasterDikePreFailRoutineForSmartType};

} // extern "C"

namespace {

/** Temperature attributes: crossing their threshold says that it is hot, not that the disk wears out. */
constexpr uint8_t kAirflowTemperature = 190;
constexpr uint8_t kTemperature = 194;

/** The one qualifier of DRM_ASC_FAILURE_PREDICTION that is not taken for a failing disk. */
constexpr uint8_t kAscqExcepted = 0x6D;

/** State of the back-up capacitors when they no longer hold. */
constexpr uint8_t kCapacitanceBad = 0;

DrmQueue g_eventQueue = {DRM_SPINLOCK_FREE, {&g_eventQueue.nodes, &g_eventQueue.nodes}};
/** Runs of each group since its last visit. The feature's worker only. */
std::array<uint32_t, DRM_PREFAIL_GROUPS> g_runs{};

bool CrossedThreshold(const DiskSmartAttr &attribute) noexcept
{
    if (attribute.id == 0 || attribute.threshold == 0) {
        return false;
    }
    if (attribute.id == kTemperature || attribute.id == kAirflowTemperature) {
        return false;
    }
    return attribute.currentValue <= attribute.threshold || attribute.worst <= attribute.threshold;
}

bool PredictsFailure(const DrmSasSenseInfo &sense) noexcept
{
    return sense.asc == DRM_ASC_FAILURE_PREDICTION && sense.ascq != kAscqExcepted;
}

DrmDprDiskNode *FindDisk(DrmListHead *list, uint32_t diskId) noexcept
{
    return DrmListFind<DrmDprDiskNode>(list, [diskId](const DrmDprDiskNode &node) { return node.diskId == diskId; });
}

void VisitGroup(const DrmDprDiskListAction &action) noexcept
{
    for (const DrmDprDiskNode *node : DrmListView<DrmDprDiskNode>(action.list)) {
        const uint32_t ret = action.routine(node->diskId);
        if (ret != DRM_OK) {
            DRM_LOG(CORVANE_LOG_ERROR, "Handle monitor disk(%u) life in event fail(%d).", node->diskId,
                    static_cast<int32_t>(ret));
        }
    }
}

void HandleEvent(const DrmDiskEvent &event) noexcept
{
    uint32_t ret = DRM_OK;
    if (event.event == DISK_EVENT_IN) {
        ret = DrmDiskPrefailMasterHandleDiskInEvent(event.diskId);
    } else if (event.event == DISK_EVENT_OUT) {
        ret = DrmDiskPrefailMasterHandleDiskOutEvent(event.diskId);
    } else {
        DRM_LOG(CORVANE_LOG_ERROR, "Invalid disk event(%d) for disk(%u).", static_cast<int32_t>(event.event),
                event.diskId);
    }
    if (ret != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Handle disk(%u) event(%d) failed, ret(%d).", event.diskId,
                static_cast<int32_t>(event.event), static_cast<int32_t>(ret));
    }
    DRM_LOG(CORVANE_LOG_DEBUG, "Handle disk(%u) event(%d) ret(%d)", event.diskId, static_cast<int32_t>(event.event),
            static_cast<int32_t>(ret));
}

/** Takes the disk's private word away. */
uint32_t TakeDprDiskData(uint32_t diskId, uint32_t *group) noexcept
{
    const DrmFeatureDataGuard guard(DRM_FEATURE_PREFAIL);
    void *info = nullptr;
    if (getFeatureLocPrivateData(diskId, DRM_FEATURE_PREFAIL, &info) != DRM_OK || info == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Get private data fail for disk(%u), info(%p).", diskId, info);
        return DRM_ERR_FAIL;
    }
    const DrmUmmPtr<uint32_t> word(static_cast<uint32_t *>(info));
    *group = *word;
    (void)setFeatureLocPrivateData(diskId, DRM_FEATURE_PREFAIL, nullptr);
    return DRM_OK;
}

} // namespace

extern "C" {

uint32_t DrmPrefailRoutineInit(void) noexcept
{
    drmQueueInit(&g_eventQueue);
    DrmRegisterDiskEventHandler(DRM_FEATURE_PREFAIL, nullptr, DrmDiskPrefailDiskEventHandle);
    const uint32_t ret =
        DrmRegisterAnalyser(DRM_FEATURE_PREFAIL, nullptr, DRM_INVALID, DrmDiskPrefailRoutineMasterSchedule,
                            DRM_DPR_RUN_CYCLE, DRM_SCHEDULE_SEPERATE);
    if (ret != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "register drm disk prefail routine analyzer fail(%d).", static_cast<int32_t>(ret));
        return DRM_ERR_FAIL;
    }
    DrmDprTracePointInit();
    return DRM_OK;
}

void DrmPrefailRoutineFin(void) noexcept
{
    DrmUnRegisterDiskEventHandler(DRM_FEATURE_PREFAIL);
    drmQueueExit(&g_eventQueue);
    DrmDprTracePointExit();
}

uint32_t DrmTransDiskTypeToDprGroup(uint32_t diskType, uint32_t *group) noexcept
{
    switch (diskType) {
    case DRM_SATA_SSD_DISK:
        *group = DRM_PREFAIL_SATA_SSD;
        return DRM_OK;
    case DRM_SAS_SSD_DISK:
        *group = DRM_PREFAIL_SAS_SSD;
        return DRM_OK;
    case DRM_NVME_DISK:
        *group = DRM_PREFAIL_NVME;
        return DRM_OK;
    case DRM_SAS_HDD_DISK:
        *group = DRM_PREFAIL_SAS_HDD;
        return DRM_OK;
    default:
        DRM_LOG(CORVANE_LOG_ERROR, "Drm featue didn't support disktyepe(%u)", diskType);
        return DRM_ERR_FAIL;
    }
}

uint32_t DrmDprSetCycleConfig(void *config) noexcept
{
    const auto *cycleConfig = static_cast<const DrmDprCycleConfig *>(config);
    if (cycleConfig == nullptr || cycleConfig->startType >= DRM_DPR_START_TYPES) {
        return DRM_ERR_FAIL;
    }
    uint32_t group = 0;
    const uint32_t ret = DrmTransDiskTypeToDprGroup(cycleConfig->diskType, &group);
    if (ret != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Transform disk type to drp group id failed(%d), diskType(%d)",
                static_cast<int32_t>(ret), static_cast<int32_t>(cycleConfig->diskType));
        return DRM_ERR_FAIL;
    }
    DrmDprGroupCycle *rows = g_dprCycleConfig[cycleConfig->startType];
    DrmStoreRelaxed(rows[group].cycle, cycleConfig->cycle);
    if (cycleConfig->diskType == DRM_SAS_SSD_DISK) {
        DrmStoreRelaxed(rows[DRM_PREFAIL_SAS_VSSD].cycle, cycleConfig->cycle);
    }
    return DRM_OK;
}

uint32_t DrmDprSetSwitchConfig(void *config) noexcept
{
    const auto *switchConfig = static_cast<const DrmDprSwitchConfig *>(config);
    if (switchConfig != nullptr && switchConfig->startType < DRM_DPR_START_TYPES) {
        DrmStoreRelaxed(g_dprSwitchConfig[switchConfig->startType], switchConfig->on);
    }
    return DRM_OK;
}

uint32_t DrmDiskPrefailRoutineMasterSchedule(uint32_t codeHigh, uint32_t code) noexcept
{
    switch (codeHigh << 16 | code) {
    case DRM_CODE_SCHEDULE:
        DrmDiskPrefailMasterScheByType();
        DrmDiskPrefailMasterHandleDiskEvent();
        break;
    case DRM_CODE_DISK_EVENT:
        DrmDiskPrefailMasterHandleDiskEvent();
        break;
    default:
        break;
    }
    return DRM_OK;
}

void DrmDiskPrefailMasterScheByType(void) noexcept
{
    if (DrmLoadRelaxed(g_drmDprFeatureSwitch) != 1) {
        return;
    }
    for (uint32_t type = 0; type < DRM_DPR_START_TYPES; type++) {
        if (DrmLoadRelaxed(g_dprSwitchConfig[type]) == 1) {
            g_drmDprMasterHandler[type]();
        }
    }
}

void DrmMasterDikePreFailRoutineForSmartType(void) noexcept
{
    for (uint32_t group = 0; group < DRM_PREFAIL_GROUPS; group++) {
        const uint32_t cycle = DrmLoadRelaxed(g_dprCycleConfig[DRM_DPR_START_SMART][group].cycle);
        g_runs[group]++;
        if (g_runs[group] >= cycle / DRM_DPR_RUN_CYCLE) {
            g_runs[group] = 0;
            VisitGroup(g_diskListForDiskTypeAction[group]);
        }
    }
}

uint32_t DrmSATAPrefailRoutineForStartType(uint32_t diskId) noexcept
{
    std::array<DiskSmartAttr, DISK_SMART_ATTR_NUM> attributes{};
    const uint32_t ret = DrmAtaGetSmartInfo(diskId, attributes.data(), DISK_SMART_ATTR_NUM);
    if (ret != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Get Disk(%u) smart info event fail(%d).", diskId, static_cast<int32_t>(ret));
        return ret;
    }
    for (const DiskSmartAttr &attribute : attributes) {
        if (CrossedThreshold(attribute)) {
            DRM_LOG(CORVANE_LOG_WARN, "Smart Info Item(%u) threshold(%u) current(%u) worst(%u).", attribute.id,
                    attribute.threshold, attribute.currentValue, attribute.worst);
            DRM_LOG(CORVANE_LOG_WARN, "DRM_SATA_SSD_DISK prefail, diskId: %u.", diskId);
            return DrmReportDiskPrefail(diskId);
        }
    }
    return DRM_OK;
}

uint32_t DrmSASPrefailRoutineForStartType(uint32_t diskId) noexcept
{
    DrmSasSenseInfo sense{};
    const uint32_t ret = DrmSasSsdGetIElogInfo(diskId, &sense);
    if (ret != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Get Disk(%u) smart info event fail(%d).", diskId, static_cast<int32_t>(ret));
        return ret;
    }
    if (!PredictsFailure(sense)) {
        return DRM_OK;
    }
    DRM_LOG(CORVANE_LOG_INFO, "DRM_SAS_SSD_DISK prefail, diskId:%u, ascq:%u.", diskId, sense.ascq);
    return DrmReportDiskPrefail(diskId);
}

uint32_t DrmSASVSSDPrefailRoutineForStartType(uint32_t diskId) noexcept
{
    DrmSasVssdLogInfo log{};
    const uint32_t ret = DrmSasVssdGetLogInfo(diskId, &log);
    if (ret != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Get Disk(%u) smart info event fail(%d).", diskId, static_cast<int32_t>(ret));
        return ret;
    }
    if (log.capacitanceId != DRM_CAPACITANCE_ID || log.capacitanceStatus != kCapacitanceBad) {
        return DRM_OK;
    }
    DRM_LOG(CORVANE_LOG_INFO, "DRM_SAS_VSSD_DISK prefail, diskId: %u.", diskId);
    return DrmReportDiskPrefail(diskId);
}

uint32_t DrmNvmePrefailRoutineForStartType(uint32_t diskId) noexcept
{
    DrmNvmeCritWarning warning{};
    const uint32_t ret = DrmNvmeGetICritWarning(diskId, &warning);
    if (ret != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Get Disk(%u) smart info event fail(%d).", diskId, static_cast<int32_t>(ret));
        return ret;
    }
    // A hot disk and one that lost reliability may recover; the other three will not.
    if (warning.readOnly == 0 && warning.availableSpare == 0 && warning.volatileMemoryBackup == 0) {
        return DRM_OK;
    }
    DRM_LOG(CORVANE_LOG_INFO,
            "DRM_NVME_DISK prefail, diskId:%u, readOnly:%u, availableSpare:%u, volatileMemoryBackup:%u.", diskId,
            warning.readOnly, warning.availableSpare, warning.volatileMemoryBackup);
    return DrmReportDiskPrefail(diskId);
}

uint32_t DrmSasHddPrefailRoutineForStartType(uint32_t diskId) noexcept
{
    DrmSasSenseInfo sense{};
    const uint32_t ret = DrmSasHddGetSenseInfo(diskId, &sense);
    if (ret != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Get Disk(%u) smart info event fail(%d).", diskId, static_cast<int32_t>(ret));
        return ret;
    }
    // Only the log page knows the excepted qualifier; sense data name a failing disk whatever it is.
    const bool prefail = sense.isSupportIeLog == 1 ? PredictsFailure(sense) : sense.asc == DRM_ASC_FAILURE_PREDICTION;
    if (!prefail) {
        return DRM_OK;
    }
    DRM_LOG(CORVANE_LOG_INFO, "DRM_SAS_HDD_DISK prefail, diskId:%u, isSupportIELog:%u, asc:%u, ascq:%u", diskId,
            sense.isSupportIeLog, sense.asc, sense.ascq);
    return DrmReportDiskPrefail(diskId);
}

uint32_t DrmDiskPrefailDiskEventHandle(uint32_t diskId, uint32_t event) noexcept
{
    const DrmEventQueued queued = DrmQueueDiskEvent(&g_eventQueue, diskId, event);
    if (queued == DrmEventQueued::NO_MEMORY) {
        DRM_LOG(CORVANE_LOG_ERROR, "Handle disk event: disk(%u) event(%d) fail.", diskId, static_cast<int32_t>(event));
        return DRM_ERR_FAIL;
    }
    if (queued == DrmEventQueued::REFUSED) {
        DRM_LOG(CORVANE_LOG_ERROR, "Queue disk(%u) event(%d) failed.", diskId, static_cast<int32_t>(event));
        return DRM_ERR_FAIL;
    }
    // Without a worker the event waits for the next scheduled run.
    (void)DrmTriggerMasterAnalysis(DRM_FEATURE_PREFAIL, DRM_CODE_DISK_EVENT);
    return DRM_OK;
}

void DrmDiskPrefailMasterHandleDiskEvent(void) noexcept
{
    DrmDrainDiskEvents(&g_eventQueue, HandleEvent);
}

uint32_t SetDprDiskData(uint32_t diskId, uint32_t group) noexcept
{
    DrmUmmPtr<uint32_t> word = DrmUmmNew<uint32_t>();
    if (word == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Malloc for disk(%u) failed.", diskId);
        return DRM_ERR_FAIL;
    }
    *word = group;
    const DrmFeatureDataGuard guard(DRM_FEATURE_PREFAIL);
    if (setFeatureLocPrivateData(diskId, DRM_FEATURE_PREFAIL, word.get()) != DRM_OK) {
        return DRM_ERR_FAIL;
    }
    (void)word.release(); // the disk's now
    return DRM_OK;
}

uint32_t DrmDiskPrefailMasterHandleDiskInEvent(uint32_t diskId) noexcept
{
    uint32_t group = 0;
    const uint32_t ret = DrmGetPrefailDiskGroup(diskId, &group);
    if (ret != DRM_OK || group >= DRM_PREFAIL_GROUPS) {
        DRM_LOG(CORVANE_LOG_ERROR, "Get disk type failed(%d) for disk(%u).", static_cast<int32_t>(ret), diskId);
        return DRM_ERR_FAIL;
    }
    DrmListHead *list = g_diskListForDiskTypeAction[group].list;
    if (FindDisk(list, diskId) != nullptr) {
        DRM_LOG(CORVANE_LOG_INFO, "Disk(%u) rein.", diskId);
        return DRM_OK;
    }
    DrmUmmPtr<DrmDprDiskNode> node = DrmUmmNew<DrmDprDiskNode>();
    if (node == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Handle Disk(%u) in event fail.", diskId);
        return DRM_ERR_FAIL;
    }
    node->diskId = diskId;
    DrmListAddTail(list, &node->links);
    if (SetDprDiskData(diskId, group) != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Set locale private data fail for disk(%u).", diskId);
        DrmListUnlink(&node->links);
        return DRM_ERR_FAIL;
    }
    (void)node.release(); // the list's now
    return DRM_OK;
}

uint32_t DrmDiskPrefailMasterHandleDiskOutEvent(uint32_t diskId) noexcept
{
    uint32_t group = 0;
    if (TakeDprDiskData(diskId, &group) != DRM_OK) {
        return DRM_ERR_FAIL;
    }
    if (group >= DRM_PREFAIL_GROUPS) {
        return DRM_OK;
    }
    const DrmUmmPtr<DrmDprDiskNode> node(FindDisk(g_diskListForDiskTypeAction[group].list, diskId));
    if (node != nullptr) {
        DrmListUnlink(&node->links);
    }
    return DRM_OK;
}

} // extern "C"
