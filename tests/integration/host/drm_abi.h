/**
 * @file drm_abi.h
 * @brief Names, signatures and record layouts of start-up of the analysis, analysis, tasks and diagnostics, written
 *        down a second time as in abi.h.
 */
#ifndef HOST_DRM_ABI_H
#define HOST_DRM_ABI_H

#include "abi.h"

namespace lib {

struct ListHead {
    ListHead *next;
    ListHead *prev;
};

struct ScheduleTask {
    const char *name;
    uint8_t forever;
    uint32_t repeatCount;
    uint32_t firstDelayMs;
    uint32_t periodMs;
    void *(*entry)(void *);
    void *entryArg;
    void *(*callback)(void *);
    void *callbackArg;
};
static_assert(sizeof(ScheduleTask) == 56 && offsetof(ScheduleTask, forever) == 8 &&
              offsetof(ScheduleTask, repeatCount) == 12 && offsetof(ScheduleTask, firstDelayMs) == 16 &&
              offsetof(ScheduleTask, periodMs) == 20 && offsetof(ScheduleTask, entry) == 24 &&
              offsetof(ScheduleTask, callback) == 40 && offsetof(ScheduleTask, callbackArg) == 48);

struct ScheduleTaskNode {
    ScheduleTaskNode *next;
    uint8_t stop;
    ScheduleTask *task;
};
static_assert(sizeof(ScheduleTaskNode) == 24 && offsetof(ScheduleTaskNode, task) == 16);

struct RebindContext {
    char pciAddr[256];
    AgentInfo *agent;
};
static_assert(sizeof(RebindContext) == 264);

struct EventPrefix {
    const char *prefix;
    uint32_t length;
};

using LocalAnalyser = uint32_t (*)(uint32_t);
using MasterAnalyser = uint32_t (*)(uint32_t, uint32_t);

struct DrmBaseScheduleTaskItem {
    uint32_t featureId;
    uint32_t scheduleMode;
    uint32_t localCycle;
    uint32_t masterCycle;
    LocalAnalyser localAnalyser;
    MasterAnalyser masterAnalyser;
};
static_assert(sizeof(DrmBaseScheduleTaskItem) == 32);

struct DrmLocalDiskData {
    uint32_t innerId;
    uint32_t invalid;
    void *featureData[32];
};
static_assert(sizeof(DrmLocalDiskData) == 264);

using ActionHandler = uint32_t (*)(void *in, uint32_t inLen, uint64_t *outData, uint64_t *outInfo);
using ActionCallback = void (*)(void *arg, uint64_t outData, uint64_t outInfo);

struct DrmActionHandlerRow {
    uint32_t opcode;
    ActionHandler handler;
};
static_assert(sizeof(DrmActionHandlerRow) == 16);

using DiskEventHandler = uint32_t (*)(uint32_t diskId, uint32_t event);

struct DrmDiskUpdateHandle {
    DiskEventHandler localHandler;
    DiskEventHandler masterHandler;
};

struct DrmSubModule {
    char name[128];
    uint32_t (*init)();
    uint32_t (*fin)();
};
static_assert(sizeof(DrmSubModule) == 144);

struct DrmDiagCmd {
    const char *name;
    uint32_t (*handler)(int argc, char **argv);
    const char *help;
};
static_assert(sizeof(DrmDiagCmd) == 24);

struct DrmDiagCmdCluster {
    struct {
        DrmDiagCmd *cmds;
        uint32_t count;
    } groups[3];
    char name[20];
};
static_assert(sizeof(DrmDiagCmdCluster) == 72 && offsetof(DrmDiagCmdCluster, name) == 48);

struct SlowDiskConfig {
    uint32_t diskType;
    uint8_t minThresholdValue;
    uint8_t minSlowCycle;
};
static_assert(sizeof(SlowDiskConfig) == 8);

struct DrmDiskIostatSample {
    uint64_t iops;
    uint64_t bandwidth;
    uint32_t svctm;
    uint16_t util;
    uint16_t busyNum;
};
static_assert(sizeof(DrmDiskIostatSample) == 24);

struct DrmDiskIostatWindow {
    uint8_t validBits[16];
    uint8_t slowBits[16];
    DrmDiskIostatSample samples[100];
};
static_assert(sizeof(DrmDiskIostatWindow) == 2432);

/** A node of the features' lists: slow disk zones, prefail groups, monitored disks. */
struct DrmDiskNode {
    ListHead links;
    uint32_t diskId;
    uint32_t word; /**< 0; of the life monitor: whether a prediction has succeeded */
};
static_assert(sizeof(DrmDiskNode) == 24);

struct DprCycle {
    uint32_t group;
    uint32_t cycle;
};

struct DprAction {
    uint32_t group;
    ListHead *list;
    uint32_t (*routine)(uint32_t diskId);
};

struct DprSwitchConfig {
    uint32_t startType;
    uint8_t on;
};
static_assert(sizeof(DprSwitchConfig) == 8 && offsetof(DprSwitchConfig, on) == 4);

struct DprCycleConfig {
    uint32_t startType;
    uint32_t diskTypeIndex;
    uint32_t cycleSeconds;
};
static_assert(sizeof(DprCycleConfig) == 12);

struct DrmDiskHealthBrief {
    uint64_t powerOnHours;
    uint32_t wearInt;
    uint32_t wearFrac;
};
static_assert(sizeof(DrmDiskHealthBrief) == 16);

struct DrmDiskIoStat {
    uint64_t readIops;
    uint64_t writeIops;
    uint64_t readIoBand;
    uint64_t writeIoBand;
    uint64_t readIoDelay;
    uint64_t writeIoDelay;
    uint32_t ioBusyNum;
    uint32_t avgServeTime;
    uint32_t utilization;
};
static_assert(sizeof(DrmDiskIoStat) == 64 && offsetof(DrmDiskIoStat, utilization) == 56);

struct CorvaneDbgCmd {
    const char *name;
    const char *usage;
    const char *description;
    int (*handler)(int argc, char **argv);
};
static_assert(sizeof(CorvaneDbgCmd) == 32);

inline constexpr Call<uint32_t()> CorvaneInitDrm{"CorvaneInitDrm"};
inline constexpr Call<uint32_t()> CorvaneExitDrm{"CorvaneExitDrm"};
inline constexpr Call<uint32_t()> CorvaneInitDrmFeatures{"CorvaneInitDrmFeatures"};
inline constexpr Call<void()> StartQueryAgentScheduleTask{"StartQueryAgentScheduleTask"};
inline constexpr Call<void()> StartFeature{"StartFeature"};
inline constexpr Call<void()> SetSlowDiskDetectConfig{"SetSlowDiskDetectConfig"};
inline constexpr Call<uint32_t(int32_t)> SetDprSmartSwitch{"SetDprSmartSwitch"};
inline constexpr Call<void()> SetDprSmartConfig{"SetDprSmartConfig"};
inline constexpr Call<void()> StartTakeOverDiskSwitch{"StartTakeOverDiskSwitch"};
inline constexpr Call<void(bool)> TakeOverDiskSwitch{"TakeOverDiskSwitch"};
inline constexpr Call<uint32_t(uint8_t)> DrmSetSwitch{"DrmSetSwitch"};
inline constexpr Call<uint32_t(const char *, const char *, int32_t)> SetChildNodeConfigInt{"SetChildNodeConfigInt"};

inline constexpr Call<uint32_t()> InitScheduleTask{"InitScheduleTask"};
inline constexpr Call<uint32_t(ScheduleTask)> SubmitScheduleTask{"SubmitScheduleTask"};
inline constexpr Call<uint32_t(const char *)> CancelScheduleTask{"CancelScheduleTask"};
inline constexpr Call<void()> StopAllScheduleTask{"StopAllScheduleTask"};
inline constexpr Call<uint32_t()> DestroyScheduleTask{"DestroyScheduleTask"};
inline constexpr Call<uint32_t(const char *)> RemoveTaskNodeByName{"RemoveTaskNodeByName"};

inline constexpr Call<uint32_t()> InitHotPlugLock{"InitHotPlugLock"};
inline constexpr Call<uint32_t(AgentInfo)> StartHotPlugListener{"StartHotPlugListener"};
inline constexpr Call<uint32_t(AgentInfo)> StopHotPlugListener{"StopHotPlugListener"};
inline constexpr Call<void(AgentInfo *, char *, uint32_t)> HandleSysHotPlugEventMsg{"HandleSysHotPlugEventMsg"};
inline constexpr Call<char *(const char *, char *, uint32_t)> FindPrefixInBuffer{"FindPrefixInBuffer"};
inline constexpr Call<bool(const char *)> IsDiskOnNvmeDriver{"IsDiskOnNvmeDriver"};
inline constexpr Call<void(AgentInfo *, const char *)> SendRebindPciAddrToAgent{"SendRebindPciAddrToAgent"};
inline constexpr Call<void(AgentInfo *, const char *)> CreateTaskForNotifyAgentNvmeDiskOn{
    "CreateTaskForNotifyAgentNvmeDiskOn"};
inline constexpr Call<void *(void *)> NotifyAgentNvmeDiskOnTaskFunc{"NotifyAgentNvmeDiskOnTaskFunc"};

inline constexpr Call<uint32_t(uint32_t, LocalAnalyser, uint32_t, MasterAnalyser, uint32_t, uint32_t)>
    DrmRegisterAnalyser{"DrmRegisterAnalyser"};
inline constexpr Call<uint32_t(uint32_t, uint32_t)> DrmTriggerLocalAnalysis{"DrmTriggerLocalAnalysis"};
inline constexpr Call<uint32_t(uint32_t, uint32_t)> DrmTriggerMasterAnalysis{"DrmTriggerMasterAnalysis"};
inline constexpr Call<uint32_t(uint32_t, uint32_t, uint32_t)> DrmTriggerSeperateSchedAnalysis{
    "DrmTriggerSeperateSchedAnalysis"};
inline constexpr Call<uint32_t(uint32_t, void (*)(uint32_t))> DrmRegisterPreprocessor{"DrmRegisterPreprocessor"};
inline constexpr Call<uint32_t(uint32_t, bool (*)())> DrmRegisterDemotingChecker{"DrmRegisterDemotingChecker"};
inline constexpr Call<void()> DrmPromoteMasterPreProc{"DrmPromoteMasterPreProc"};
inline constexpr Call<void()> DrmDemoteSlavePreProc{"DrmDemoteSlavePreProc"};
inline constexpr Call<bool()> DrmCheckDemotingComplete{"DrmCheckDemotingComplete"};
inline constexpr Call<uint32_t()> DrmTaskSchedulerInit{"DrmTaskSchedulerInit"};
inline constexpr Call<uint32_t()> DrmTaskSchedulerFin{"DrmTaskSchedulerFin"};
inline constexpr Call<void(void *)> DrmTaskSchedulerTimerHandler{"DrmTaskSchedulerTimerHandler"};
inline constexpr Call<uint32_t(DrmBaseScheduleTaskItem *)> DrmRegisterSeperateSchedTask{"DrmRegisterSeperateSchedTask"};
inline constexpr Call<void(uint32_t, uint64_t)> DrmSeperateSchedTickHandler{"DrmSeperateSchedTickHandler"};
inline constexpr Call<void(void *, uint32_t)> DrmSeperateSchedAnalysis{"DrmSeperateSchedAnalysis"};
inline constexpr Call<void(uint32_t, uint32_t, uint32_t)> DrmExecSeperateSchedAnalysis{"DrmExecSeperateSchedAnalysis"};

inline constexpr Call<uint32_t()> DrmMemMgrInit{"DrmMemMgrInit"};
inline constexpr Call<uint32_t()> DrmMemMgrFin{"DrmMemMgrFin"};
inline constexpr Call<void *(const char *, uint32_t, uint64_t)> DrmMemMallocLv{"DrmMemMallocLv"};
inline constexpr Call<void(const char *, uint32_t, void *, uint64_t)> DrmMemFreeLv{"DrmMemFreeLv"};
inline constexpr Call<void *(const char *, uint32_t, uint32_t)> DrmMallocUmmMem{"DrmMallocUmmMem"};
inline constexpr Call<void(const char *, uint32_t, void *, uint32_t)> DrmFreeUmmMem{"DrmFreeUmmMem"};
inline constexpr Call<void()> DrmDebugPrintMemInfo{"DrmDebugPrintMemInfo"};
inline constexpr Call<uint32_t()> DrmLocalDataMgrInit{"DrmLocalDataMgrInit"};
inline constexpr Call<uint32_t()> DrmLocalDataMgrFin{"DrmLocalDataMgrFin"};
inline constexpr Call<void(uint32_t)> LockFeatureData{"LOCK_DRM_FEATURE_DATA"};
inline constexpr Call<void(uint32_t)> UnlockFeatureData{"UNLOCK_DRM_FEATURE_DATA"};
inline constexpr Call<uint32_t(uint32_t, uint32_t, void **)> getFeatureLocPrivateData{"getFeatureLocPrivateData"};
inline constexpr Call<uint32_t(uint32_t, uint32_t, void *)> setFeatureLocPrivateData{"setFeatureLocPrivateData"};
inline constexpr Call<uint32_t(uint32_t, uint32_t *, uint32_t, uint32_t *)> getFeatureLocValidDataIndex{
    "getFeatureLocValidDataIndex"};

inline constexpr Call<uint32_t()> DrmActionHandleInit{"DrmActionHandleInit"};
inline constexpr Call<uint32_t()> DrmActionHandleFin{"DrmActionHandleFin"};
inline constexpr Call<uint32_t(uint32_t, ActionHandler)> DrmRegisterActionHandler{"DrmRegisterActionHandler"};
inline constexpr Call<uint32_t(uint32_t, void *, uint32_t, ActionCallback, void *)> DrmAsyncActionRequest{
    "DrmAsyncActionRequest"};
inline constexpr Call<uint32_t(uint32_t, void *, uint32_t, void *, uint32_t)> DrmSyncActionRequest{
    "DrmSyncActionRequest"};
inline constexpr Call<void(uint32_t, DiskEventHandler, DiskEventHandler)> DrmRegisterDiskEventHandler{
    "DrmRegisterDiskEventHandler"};
inline constexpr Call<void(uint32_t)> DrmUnRegisterDiskEventHandler{"DrmUnRegisterDiskEventHandler"};
inline constexpr Call<void(uint32_t, uint32_t)> DrmNotifyDiskEvent{"DrmNotifyDiskEvent"};
inline constexpr Call<void(void *)> drmQueueInit{"drmQueueInit"};
inline constexpr Call<void(void *)> drmQueueExit{"drmQueueExit"};
inline constexpr Call<uint32_t(void *, void *)> drmQueueQueue{"drmQueueQueue"};
inline constexpr Call<uint32_t(void *, void *)> drmQueueQueueHead{"drmQueueQueueHead"};
inline constexpr Call<void *(void *)> drmQueueDequeue{"drmQueueDequeue"};
inline constexpr Call<void()> DrmTaskSchInitTimer{"DrmTaskSchInitTimer"};
inline constexpr Call<void()> DrmTaskSchExitTimer{"DrmTaskSchExitTimer"};
inline constexpr Call<uint32_t(const char *, uint32_t, void (*)(void *), void *, uint32_t)> DrmRegTimer{"DrmRegTimer"};
inline constexpr Call<void(void *)> DrmFreeTimer{"DrmFreeTimer"};
inline constexpr Call<uint32_t(uint32_t, uint32_t)> DrmTimerCreateCheck{"DrmTimerCreateCheck"};
inline constexpr Call<uint32_t(uint32_t, void (*)(void *, uint32_t), void *, uint32_t)> DrmAsyncThreadCtxRun{
    "DrmAsyncThreadCtxRun"};

inline constexpr Call<uint32_t()> DrmFrameworkInit{"DrmFrameworkInit"};
inline constexpr Call<uint32_t()> DrmFrameworkExit{"DrmFrameworkExit"};
inline constexpr Call<uint32_t(DrmSubModule *, uint32_t)> DrmloadSubModule{"DrmloadSubModule"};
inline constexpr Call<void(DrmSubModule *, int32_t)> DrmUnloadSubModule{"DrmUnloadSubModule"};
inline constexpr Call<uint32_t(const char *, DrmDiagCmd *, uint32_t)> DrmDebugRegDiagCmdGroup{
    "DrmDebugRegDiagCmdGroup"};
inline constexpr Call<void(const char *, DrmDiagCmd *)> DrmDebugUnRegDiagCmdGroup{"DrmDebugUnRegDiagCmdGroup"};
inline constexpr Call<DrmDiagCmdCluster *(const char *)> DrmDebugGetDiagCmdClusterByName{
    "DrmDebugGetDiagCmdClusterByName"};

inline constexpr Call<uint32_t()> DrmClassicalSlowDiskDetectV2Init{"DrmClassicalSlowDiskDetectV2Init"};
inline constexpr Call<void()> DrmClassicalSlowDiskDetectV2Exit{"DrmClassicalSlowDiskDetectV2Exit"};
inline constexpr Call<uint32_t(SlowDiskConfig *)> DrmConfigClassicalSlowDiskDetectV2{
    "DrmConfigClassicalSlowDiskDetectV2"};
inline constexpr Call<uint32_t(uint8_t)> DrmSetClassicalSlowDiskDetectV2Switch{"DrmSetClassicalSlowDiskDetectV2Switch"};
inline constexpr Call<SlowDiskConfig *(uint32_t)> DrmGetSlowDiskDetectV2Config{"DrmGetSlowDiskDetectV2Config"};
inline constexpr Call<void *(uint32_t)> DrmGetSlowDiskDetectZone{"DrmGetSlowDiskDetectZone"};
inline constexpr Call<uint32_t(DrmDiskIostatWindow *)> DrmSlowDiskGetSlowCycleCnt{"DrmSlowDiskGetSlowCycleCnt"};
inline constexpr Call<uint32_t(uint32_t)> DrmSlowDiskDetectorLocalSchedule{"DrmSlowDiskDetectorLocalSchedule"};
inline constexpr Call<uint32_t(uint32_t)> DrmSlowDiskDetectorHandleDiskInEvent{"DrmSlowDiskDetectorHandleDiskInEvent"};
inline constexpr Call<uint32_t(uint32_t)> DrmSlowDiskDetectorHandleDiskOutEvent{
    "DrmSlowDiskDetectorHandleDiskOutEvent"};
inline constexpr Call<void()> DrmSlowDiskDetect{"DrmSlowDiskDetect"};
inline constexpr Call<void(void *, uint32_t)> DrmSlowDiskDetectInZone{"DrmSlowDiskDetectInZone"};

inline constexpr Call<uint32_t()> DrmPrefailRoutineInit{"DrmPrefailRoutineInit"};
inline constexpr Call<void()> DrmPrefailRoutineFin{"DrmPrefailRoutineFin"};
inline constexpr Call<uint32_t(void *)> DrmDprSetCycleConfig{"DrmDprSetCycleConfig"};
inline constexpr Call<uint32_t(void *)> DrmDprSetSwitchConfig{"DrmDprSetSwitchConfig"};
inline constexpr Call<uint32_t(uint32_t, uint32_t)> DrmDiskPrefailRoutineMasterSchedule{
    "DrmDiskPrefailRoutineMasterSchedule"};
inline constexpr Call<void()> DrmMasterDikePreFailRoutineForSmartType{"DrmMasterDikePreFailRoutineForSmartType"};
inline constexpr Call<void()> DrmDiskPrefailMasterScheByType{"DrmDiskPrefailMasterScheByType"};
inline constexpr Call<uint32_t(uint32_t)> DrmSATAPrefailRoutineForStartType{"DrmSATAPrefailRoutineForStartType"};
inline constexpr Call<uint32_t(uint32_t)> DrmSASPrefailRoutineForStartType{"DrmSASPrefailRoutineForStartType"};
inline constexpr Call<uint32_t(uint32_t)> DrmSASVSSDPrefailRoutineForStartType{"DrmSASVSSDPrefailRoutineForStartType"};
inline constexpr Call<uint32_t(uint32_t)> DrmNvmePrefailRoutineForStartType{"DrmNvmePrefailRoutineForStartType"};
inline constexpr Call<uint32_t(uint32_t)> DrmSasHddPrefailRoutineForStartType{"DrmSasHddPrefailRoutineForStartType"};
inline constexpr Call<uint32_t(uint32_t, uint32_t)> DrmDiskPrefailDiskEventHandle{"DrmDiskPrefailDiskEventHandle"};
inline constexpr Call<void()> DrmDiskPrefailMasterHandleDiskEvent{"DrmDiskPrefailMasterHandleDiskEvent"};
inline constexpr Call<uint32_t(uint32_t)> DrmDiskPrefailMasterHandleDiskInEvent{
    "DrmDiskPrefailMasterHandleDiskInEvent"};
inline constexpr Call<uint32_t(uint32_t)> DrmDiskPrefailMasterHandleDiskOutEvent{
    "DrmDiskPrefailMasterHandleDiskOutEvent"};

inline constexpr Call<uint32_t()> DrmDiskLifeMonitorInit{"DrmDiskLifeMonitorInit"};
inline constexpr Call<void()> DrmDiskLifeMonitorFin{"DrmDiskLifeMonitorFin"};
inline constexpr Call<void(uint32_t)> SetDiskLifeMonitorSchedulerCycle{"SetDiskLifeMonitorSchedulerCycle"};
inline constexpr Call<uint32_t(uint32_t, uint32_t)> DrmDiskLifeMonitorMasterSchedule{
    "DrmDiskLifeMonitorMasterSchedule"};
inline constexpr Call<void()> DrmDiskMonitorMasterMonitorDiskLife{"DrmDiskMonitorMasterMonitorDiskLife"};
inline constexpr Call<uint32_t(uint32_t, uint64_t)> DrmSetLifeMonitorResult{"DrmSetLifeMonitorResult"};
inline constexpr Call<uint32_t(uint32_t, uint32_t)> DrmDiskLifeMonitorDiskEventHandle{
    "DrmDiskLifeMonitorDiskEventHandle"};
inline constexpr Call<void()> DrmDiskMonitorMasterHandleDiskEvent{"DrmDiskMonitorMasterHandleDiskEvent"};
inline constexpr Call<uint32_t(uint32_t)> DrmDiskMonitorMasterHandleDiskInEvent{
    "DrmDiskMonitorMasterHandleDiskInEvent"};
inline constexpr Call<uint32_t(uint32_t)> DrmDiskMonitorMasterHandleDiskOutEvent{
    "DrmDiskMonitorMasterHandleDiskOutEvent"};

inline constexpr Call<uint32_t(uint32_t, DrmDiskHealthBrief *)> DrmGetHealthInfo{"DrmGetHealthInfo"};
inline constexpr Call<uint32_t(uint32_t, uint32_t *)> DrmGetPrefailDiskGroup{"DrmGetPrefailDiskGroup"};
inline constexpr Call<uint32_t(uint32_t, DiskHealthInfo *)> GetCorvaneInfo{"GetCorvaneInfo"};
inline constexpr Call<uint32_t(uint32_t, void *, uint32_t)> DrmAtaGetSmartInfo{"DrmAtaGetSmartInfo"};
inline constexpr Call<uint32_t(uint32_t, void *)> DrmSasSsdGetIElogInfo{"DrmSasSsdGetIElogInfo"};
inline constexpr Call<uint32_t(uint32_t, void *)> DrmSasVssdGetLogInfo{"DrmSasVssdGetLogInfo"};
inline constexpr Call<uint32_t(uint32_t, uint8_t *)> DrmNvmeGetICritWarning{"DrmNvmeGetICritWarning"};
inline constexpr Call<uint32_t(uint32_t, void *)> DrmSasHddGetSenseInfo{"DrmSasHddGetSenseInfo"};
inline constexpr Call<uint32_t(uint32_t, DrmDiskIoStat *)> DrmGetDiskIoStat{"DrmGetDiskIoStat"};
inline constexpr Call<uint32_t(uint32_t)> DrmReportSlowDisk{"DrmReportSlowDisk"};
inline constexpr Call<uint32_t(uint32_t)> DrmReportDiskPrefail{"DrmReportDiskPrefail"};
inline constexpr Call<uint32_t(uint32_t, uint32_t)> DrmSetDiskStat{"DrmSetDiskStat"};
inline constexpr Call<uint32_t(uint32_t, uint32_t *)> DrmGetDiskType{"DrmGetDiskType"};
inline constexpr Call<uint32_t(uint32_t, uint32_t *)> TransDiskType{"TransDiskType"};
inline constexpr Call<uint32_t(uint32_t, const char *, uint32_t *)> TransDiskGroup{"TransDiskGroup"};

inline constexpr Call<uint32_t()> CorvaneDiagnoseInit{"CorvaneDiagnoseInit"};
inline constexpr Call<uint32_t()> CorvaneDiagnoseExit{"CorvaneDiagnoseExit"};

} // namespace lib

#endif
