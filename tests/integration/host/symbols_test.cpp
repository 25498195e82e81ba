#include "host_fixture.h"

#include <cstring>
#include <elf.h>
#include <map>

namespace {

using testing::IsEmpty;

const char *const kFunctions[] = {"InitCorvane",
                                  "initCorvane",
                                  "GetCorvaneStartMode",
                                  "GetPrefixPath",
                                  "SetPrefixPath",
                                  "InitCorvanePrefixPathInd",
                                  "InitCorvanePrefixPathComb",
                                  "StashProcessSignalHandler",
                                  "StashPopProcessSignalHandler",
                                  "CorvaneInitProcessCheck",
                                  "CorvaneTryLockFile",
                                  "CutLastPathComponent",
                                  "CorvaneOsMalloc",
                                  "CorvaneOsFree",
                                  "CorvaneOsThreadCreate",
                                  "CorvaneOsThreadYield",
                                  "CorvaneOsThreadSleep",
                                  "CorvaneInfraLog",
                                  "CorvaneOsSemCreate",
                                  "CorvaneOsSemDestroy",
                                  "CorvaneOsSemDown",
                                  "CorvaneOsSemUp",
                                  "CorvaneOsSemTryDown",
                                  "CorvaneOsSemTryDownWithinTimeout",
                                  "CorvaneOsAtomicCreate",
                                  "CorvaneOsAtomicDestroy",
                                  "CorvaneOsAtomicGet",
                                  "CorvaneOsAtomicSet",
                                  "CorvaneOsAtomicCompareAndSet",
                                  "CorvaneOsAtomicAddAndGet",
                                  "CorvaneOsAtomicIncrementAndGet",
                                  "CorvaneOsAtomicDecrementAndGet",
                                  "CorvaneOsSpinlockCreate",
                                  "CorvaneOsSpinlockDestroy",
                                  "CorvaneOsSpinlockLock",
                                  "CorvaneOsSpinlockUnlock",
                                  "CorvaneOsSpinlockTryLock",
                                  "CorvaneOsRwlockCreate",
                                  "CorvaneOsRwlockDestroy",
                                  "CorvaneOsRwlockLockWriteLock",
                                  "CorvaneOsRwlockTryLockWriteLock",
                                  "CorvaneOsRwlockLockReadLock",
                                  "CorvaneOsRwlockTryLockReadLock",
                                  "CorvaneOsRwlockUnlockRwlock",
                                  "CorvaneOsLog",
                                  "CorvaneInfraRegisterInfraAdapter",
                                  "CorvaneInfraRegisterOsAdapter",
                                  "CorvaneInfraFreeLogFileVars",
                                  "CorvaneInfraMalloc",
                                  "CorvaneInfraFree",
                                  "CorvaneInfraSpinlockCreate",
                                  "CorvaneInfraSpinlockDestroy",
                                  "CorvaneInfraSpinlockLock",
                                  "CorvaneInfraSpinlockUnlock",
                                  "CorvaneInfraSpinlockTryLock",
                                  "ConvertCorvaneTime2Timespec",
                                  "ConvertCorvaneTime2Timeval",
                                  "GetCurrentInstantTimespec",
                                  "GetFutureInstantTimespec",
                                  "GetPastInstantTimespec",
                                  "InitConfig",
                                  "GetConfigInt",
                                  "SetConfigInt",
                                  "GetChildNodeConfigInt",
                                  "SetChildNodeConfigInt",
                                  "GetConfigSwitchVal",
                                  "SetConfigSwitchVal",
                                  "CheckSwitchConfig",
                                  "GetConfigNode",
                                  "LoadConfigFileExist",
                                  "LoadConfigFileNotExist",
                                  "ConfigUpgradeNode",
                                  "DiskMgrInit",
                                  "DiskMgrDestroy",
                                  "GetDiskIdBySn",
                                  "IsSNExist",
                                  "GetNewDiskId",
                                  "GetAllSnAndDiskId",
                                  "DiskInfoUpdate",
                                  "DiskInfoGet",
                                  "ConfigFilePathCheck",
                                  "SetGConfigFilePath",
                                  "DiskInfoSavetoConfig",
                                  "DiskInfoLoadConfig",
                                  "DiskMgrHandleNewDiskId",
                                  "DiskMgrHandleOfflineObj",
                                  "DiskMgrFreeAllObjs",
                                  "SaveCJsonToFile",
                                  "LoadCJsonFromFile",
                                  "TryLoadCJsonFromFile",
                                  "TrySaveCJsonToFile",
                                  "LoadIfExisitAndVaild",
                                  "GetWalFileName",
                                  "SetFilePermission",
                                  "ConvertSingleDiskMgrObj2cJSON",
                                  "ConvertDiskMgrObjs2cJSON",
                                  "ParseCJson2DiskInfo",
                                  "CheckCJsonIsValidDiskInfo",
                                  "CheckCJsonNumValue",
                                  "CheckCJsonStrValue",
                                  "CheckCJsonError",
                                  "CheckUIntInRange",
                                  "CheckStrInLimitLength",
                                  "DiskMgrAddNumToCJson",
                                  "DiskMgrAddStringToCJson",
                                  "IsStringAndNotNull",
                                  "IsJsonNumber",
                                  "IsJsonBoolean",
                                  "IsDecimalUintString",
                                  "IsValidDiskType",
                                  "IsValidDiskMediaType",
                                  "IsValidPciAddress",
                                  "IsValidJsonWithCheckList",
                                  "IsValidJsonResponseHeader",
                                  "IsValidResultJson",
                                  "IsValidDiskBriefInfoResultJson",
                                  "IsValidDiskBaseInfoResultJson",
                                  "IsValidDiskHealthInfoResultJson",
                                  "IsValidDiskIoInfoFrameResultJson",
                                  "IsValidDiskBaseInfoJSON",
                                  "IsValidDiskHealthInfoJSON",
                                  "IsValidSataSsdSmartAttrList",
                                  "CopyDiskBriefInfoFromJSON",
                                  "CopyDiskBaseInfoFromJSON",
                                  "CopyDiskHealthInfoSnWrapFromJSON",
                                  "CopyDiskIoInfoFrameSnWrapFromJSON",
                                  "CopyBatchFromJSON",
                                  "CopyClockTicksInstantFromJSON",
                                  "ConvertDiskTypeStr2Enum",
                                  "ConvertDiskMediaTypeStr2Enum",
                                  "ConvertDecimalStringJson2Uint64",
                                  "ParseDiskVendor",
                                  "MakePciAddrCJson",
                                  "PostRequestWithJSON",
                                  "PostRequest",
                                  "PostRequestWithSockFile",
                                  "PostRequestWithIpv4",
                                  "SendAndReceiveWithSocketSession",
                                  "SendAndReceiveRetryWithSocketSession",
                                  "CastSizeToUint32",
                                  "IsAgentEqual",
                                  "QueryDeviceList",
                                  "QueryMessage",
                                  "QueryMessageAndSave",
                                  "StepQueryMessageAndSave",
                                  "StepQueryMessageAndSaveTask",
                                  "SaveMessage",
                                  "SaveBriefInfoInterceptor",
                                  "SaveDiskBriefInfo",
                                  "SaveDiskBaseInfo",
                                  "SaveDiskHealthInfo",
                                  "SaveDiskIoInfoFrame",
                                  "FetchDiskBaseInfoFromAgent",
                                  "QueryDiskSlotInfo",
                                  "MergeCJsonSlotIdIntoBaseInfo",
                                  "CreateBaseRequest",
                                  "CreateDeviceListParam",
                                  "ConstructNoParamRequest",
                                  "ConstructOnlyDeviceListParamRequest",
                                  "ConstructIoInfoFrameRequest",
                                  "ConvertUint2DecimalString",
                                  "CastUint32ToUint16",
                                  "IsValidDiskBriefInfoResultJsonWrap",
                                  "ArrayListCreate",
                                  "ArrayListDelete",
                                  "AllocSeparateMemoryList",
                                  "FreeSeparateMemoryList",
                                  "InitDataCollectMaster",
                                  "SubmitQueryAgentScheduleTask",
                                  "CancelQueryAgentScheduleTask",
                                  "CancelAllQueryAgentScheduleTask",
                                  "SubmitScanAllAgentDeviceListScheduleTask",
                                  "CancelScanAllAgentDeviceListScheduleTask",
                                  "FetchDiskBaseInfo",
                                  "UpdateUniqueAgentList",
                                  "QueryAgentScheduleTask",
                                  "QueryAgentScheduleTaskSleepForIoStat",
                                  "ScanAllAgentDeviceListScheduleTask",
                                  "DcakInitSocketSever",
                                  "DcakServerInit",
                                  "DcakSocketServerRunWithFile",
                                  "DcakSocketServerRun",
                                  "DcakSockProcess",
                                  "DcakHandleClient",
                                  "ParseReqAndResponse",
                                  "DcakDebugProcess",
                                  "DcakSetGroupUserPermisson",
                                  "DcakExecCmd",
                                  "DcakExecLsblkCmd",
                                  "DcakParseLsblkTable2Json",
                                  "DcakIsLabelNum",
                                  "GetLsblkVersion",
                                  "CompareVersionValid",
                                  "CheckLsblkVersionValid",
                                  "CheckLsblkVersionJsonValid",
                                  "CheckCmdStrIsSecure",
                                  "DcakDevIsValid",
                                  "DcakGetDiskType",
                                  "DcakGetVendorId",
                                  "DcakGetSysInfo",
                                  "DevNameToPath",
                                  "DcakGetModelNum",
                                  "DcakGetSerialNumByUdev",
                                  "DcakGetDevList",
                                  "DcakGetDiskBaseInfo",
                                  "GetDiskInfoByLsblkJson",
                                  "EndTrim",
                                  "DcakGetSerialNum",
                                  "StrSplit",
                                  "StrTokensFree",
                                  "DcakGetDiskHealthInfo",
                                  "InitIoHdrComPara",
                                  "InitPohParm",
                                  "InitDiskWearParam",
                                  "InitLogSensePara",
                                  "InitInquiryCommonParams",
                                  "InitHddCommonParams",
                                  "InitSmartThresholdParam",
                                  "InitSmartDataParam",
                                  "OpenDevExecIoctl",
                                  "DcakScsiIoComplete",
                                  "DcakGetDiskPowerTime",
                                  "DcakGetScsiPowerOnTime",
                                  "DcakGetAtaPowerTime",
                                  "DcakGetExDiskPercentage",
                                  "DcakGetSasExDiskPercentage",
                                  "DcakCalWear",
                                  "DackSetSmartInfoByDiskType",
                                  "SetSsdSataSmartInfo",
                                  "SetSsdSasSmartInfo",
                                  "SetVssdSasSmartInfo",
                                  "SetHddSmartInfo",
                                  "DcakGetSataSmartPageAndData",
                                  "FormatSmartThresholdAndData",
                                  "DcakGetSasVssdSmartInfo",
                                  "DcakGetSasSsdSenseData",
                                  "DcakGetHddSmartInfoIeLog",
                                  "DcakGetHddSmartInfoCommon",
                                  "IsSupportIeLog",
                                  "IsIeLogInLogPage",
                                  "DcakGetSasVendorId",
                                  "DcakGetSerialNumByIoCtl",
                                  "DcakCalSerial",
                                  "GetProcStatInfo",
                                  "GetDevQueDepth",
                                  "DcakGetDiskIoStatInfo",
                                  "DataMgrDiskInfoSet",
                                  "DataMgrDiskInfoGet",
                                  "CheckParamValid",
                                  "DataMgrCreateEmptyDataMgrObj",
                                  "GetDataMgrObjs",
                                  "DiskBaseInfoSet",
                                  "DiskIoStatInfoSet",
                                  "DiskHealthInfoSet",
                                  "DiskNodeInfoSet",
                                  "DiskDrmInfoSet",
                                  "DiskStrategySet",
                                  "DiskStateSet",
                                  "DiskBaseInfoGet",
                                  "DiskIoStatInfoGet",
                                  "DiskHealthInfoGet",
                                  "DiskNodeInfoGet",
                                  "DiskDrmInfoGet",
                                  "DiskStrategyGet",
                                  "DiskDiskStateInfoCliGet",
                                  "DiskBaseInfoCliGet",
                                  "DiskIoStatInfoCliGet",
                                  "DiskSmartInfoCliGet",
                                  "DiskDrmInfoCliGet",
                                  "DiskStrategyStrGet",
                                  "ListAllOnlineDisk",
                                  "DataMgrBaseInfoSetInner",
                                  "DataMgrIoInfoSetInner",
                                  "DataMgrSmartInfoSetInner",
                                  "DataMgrDrmInfoSetInner",
                                  "DataMgrNodeInfoSetInner",
                                  "DataMgrStrategySetInner",
                                  "DataMgrDiskStateSetInner",
                                  "DataMgrBaseInfoGetInner",
                                  "DataMgrIoInfoGetInner",
                                  "DataMgrSmartInfoGetInner",
                                  "DataMgrDrmInfoGetInner",
                                  "DataMgrNodeInfoGetInner",
                                  "DataMgrStrategyGetInner",
                                  "DataMgrDiskStateGetInner",
                                  "DataMgrStrategyStrGetInner",
                                  "DiskSerialNumberRefresh",
                                  "OfflineDiskNotInSNList",
                                  "OnLineDiskInSNList",
                                  "DataMgrCreateNewDiskInfo",
                                  "DataMgrNotifyDrmDiskEvent",
                                  "DataMgrSetDrmNotifyFunc",
                                  "IsInWhiteList",
                                  "CheckInWhiteList",
                                  "IsInNonWhiteListSn",
                                  "AddSnToNonWhiteList",
                                  "ProcessNonWhitelist",
                                  "CreateAllDataMgrObjsByDiskMgr",
                                  "NotifyAllDiskFindInit",
                                  "DataMgrInit",
                                  "DataMgrDestroy",
                                  "DataMgrEnable",
                                  "DataMgrDisable",
                                  "SendMsgToDataMgrAgent",
                                  "IoStatCheck",
                                  "IoStatInfoCal",
                                  "IoInfoFrameCopy",
                                  "PrintIoCal",
                                  "CancelScheduleTask",
                                  "CorvaneDbgCmdHelper",
                                  "CorvaneDbgExecCmd",
                                  "CorvaneDiagListDiskData",
                                  "CorvaneDiagSetDiskLifeMoniterScheduleTime",
                                  "CorvaneDiagnoseExit",
                                  "CorvaneDiagnoseInit",
                                  "CorvaneExitDrm",
                                  "CorvaneExitDrmFeatures",
                                  "CorvaneGen4mMem",
                                  "CorvaneInitDrm",
                                  "CorvaneInitDrmFeatures",
                                  "CorvaneListAllCmd",
                                  "CorvaneTpInit",
                                  "CreateAndStartListenerThread",
                                  "CreateTaskForNotifyAgentNvmeDiskOn",
                                  "DcmReturnLinkErr",
                                  "DestroyScheduleTask",
                                  "DiagFreeMemFun",
                                  "DiagMallocMemFun",
                                  "DmgChangeCheckWhitelist",
                                  "DmgChangeCheckWhitelistCache",
                                  "DmgChangeWear",
                                  "DrmActionHandleFin",
                                  "DrmActionHandleInit",
                                  "DrmAsyncActionRequest",
                                  "DrmAsyncThreadCtxRun",
                                  "DrmAtaGetSmartInfo",
                                  "DrmCheckDemotingComplete",
                                  "DrmCheckLocalNodeNormal",
                                  "DrmClassicalSlowDiskDetectV2Exit",
                                  "DrmClassicalSlowDiskDetectV2Init",
                                  "DrmClsCheck2SendMasterEvt",
                                  "DrmClsMgrFin",
                                  "DrmClsMgrInit",
                                  "DrmConfigClassicalSlowDiskDetectV2",
                                  "DrmDebugCmdHelp",
                                  "DrmDebugExecDiagCmd",
                                  "DrmDebugGetDiagCmdClusterByName",
                                  "DrmDebugInsertDiagCmdClusterByName",
                                  "DrmDebugPrintMemInfo",
                                  "DrmDebugRegDiagCmdGroup",
                                  "DrmDebugUnRegDiagCmdGroup",
                                  "DrmDemoteSlavePreProc",
                                  "DrmDiskEventAdapterFin",
                                  "DrmDiskEventAdapterInit",
                                  "DrmDiskEventCenterAdapter",
                                  "DrmDiskLifeMonitorDiskEventHandle",
                                  "DrmDiskLifeMonitorFin",
                                  "DrmDiskLifeMonitorInit",
                                  "DrmDiskLifeMonitorMasterSchedule",
                                  "DrmDiskMonitorMasterHandleDiskEvent",
                                  "DrmDiskMonitorMasterHandleDiskInEvent",
                                  "DrmDiskMonitorMasterHandleDiskOutEvent",
                                  "DrmDiskMonitorMasterMonitorDiskLife",
                                  "DrmDiskPrefailDiskEventHandle",
                                  "DrmDiskPrefailMasterHandleDiskEvent",
                                  "DrmDiskPrefailMasterHandleDiskInEvent",
                                  "DrmDiskPrefailMasterHandleDiskOutEvent",
                                  "DrmDiskPrefailMasterScheByType",
                                  "DrmDiskPrefailRoutineMasterSchedule",
                                  "DrmDprDiskFailTp",
                                  "DrmDprSetCycleConfig",
                                  "DrmDprSetNlSasHddEntrysPrefail",
                                  "DrmDprSetNvmeEntrysPrefail",
                                  "DrmDprSetSasSsdEntrysPrefail",
                                  "DrmDprSetSasVssdEntrysPrefail",
                                  "DrmDprSetSataSmartEntrysPrefail",
                                  "DrmDprSetSwitchConfig",
                                  "DrmDprTracePointExit",
                                  "DrmDprTracePointInit",
                                  "DrmEventNotifyFuc",
                                  "DrmExecSeperateSchedAnalysis",
                                  "DrmFrameworkAdapterExitPhase1",
                                  "DrmFrameworkAdapterExitPhase2",
                                  "DrmFrameworkAdapterInitPhase1",
                                  "DrmFrameworkAdapterInitPhase2",
                                  "DrmFrameworkDebugFinComm",
                                  "DrmFrameworkDebugInit",
                                  "DrmFrameworkExit",
                                  "DrmFrameworkInit",
                                  "DrmFrameworkTracePointFin",
                                  "DrmFrameworkTracePointInit",
                                  "DrmFreeTimer",
                                  "DrmFreeUmmMem",
                                  "DrmGetDiskIoStat",
                                  "DrmGetDiskType",
                                  "DrmGetHealthInfo",
                                  "DrmGetMaxLogicDiskNum",
                                  "DrmGetMinDiskId",
                                  "DrmGetOnlineNodeMap",
                                  "DrmGetPrefailDiskGroup",
                                  "DrmGetSlowDiskDetectV2Config",
                                  "DrmGetSlowDiskDetectZone",
                                  "DrmHandleGetDiskHealthInfoAction",
                                  "DrmHandleSetLifeMonitorResultAction",
                                  "DrmInitMemPool",
                                  "DrmInitSlowDiskDetecterZones",
                                  "DrmIsDataDisk",
                                  "DrmIsMasterNodeId",
                                  "DrmLocalDataMgrFin",
                                  "DrmLocalDataMgrInit",
                                  "DrmMallocUmmMem",
                                  "DrmMasterDikePreFailRoutineForSmartType",
                                  "DrmMemFreeLv",
                                  "DrmMemMallocLv",
                                  "DrmMemMgrFin",
                                  "DrmMemMgrInit",
                                  "DrmNotifyDiskEvent",
                                  "DrmNvmeGetICritWarning",
                                  "DrmNvmePrefailRoutineForStartType",
                                  "DrmPrefailRoutineFin",
                                  "DrmPrefailRoutineInit",
                                  "DrmPromoteMasterPreProc",
                                  "DrmPthreadFuncProc",
                                  "DrmRegTimer",
                                  "DrmRegisterActionHandler",
                                  "DrmRegisterAnalyser",
                                  "DrmRegisterDemotingChecker",
                                  "DrmRegisterDiskEventHandler",
                                  "DrmRegisterPreprocessor",
                                  "DrmRegisterSeperateSchedTask",
                                  "DrmReportDiskPrefail",
                                  "DrmReportSlowDisk",
                                  "DrmReturnErr",
                                  "DrmSASPrefailRoutineForStartType",
                                  "DrmSASVSSDPrefailRoutineForStartType",
                                  "DrmSATAPrefailRoutineForStartType",
                                  "DrmSasHddGetSenseInfo",
                                  "DrmSasHddPrefailRoutineForStartType",
                                  "DrmSasSsdGetIElogInfo",
                                  "DrmSasVssdGetLogInfo",
                                  "DrmSeperateSchedAnalysis",
                                  "DrmSeperateSchedTickHandler",
                                  "DrmSetClassicalSlowDiskDetectV2Switch",
                                  "DrmSetDiskStat",
                                  "DrmSetLifeMonitorResult",
                                  "DrmSetSwitch",
                                  "DrmSlowDiskDetect",
                                  "DrmSlowDiskDetectCheckIsSlowDisk",
                                  "DrmSlowDiskDetectCollectDiskPerformace",
                                  "DrmSlowDiskDetectCreateDiskObjFailTp",
                                  "DrmSlowDiskDetectDebugInitDiag",
                                  "DrmSlowDiskDetectDebugRegTp",
                                  "DrmSlowDiskDetectFindSuspectedSlowDisk",
                                  "DrmSlowDiskDetectGetIostatFailTp",
                                  "DrmSlowDiskDetectInZone",
                                  "DrmSlowDiskDetectSkipUpdateDiskPerfTp",
                                  "DrmSlowDiskDetectorAddDiskToZone",
                                  "DrmSlowDiskDetectorDiskEventHandle",
                                  "DrmSlowDiskDetectorHandleDiskEvent",
                                  "DrmSlowDiskDetectorHandleDiskInEvent",
                                  "DrmSlowDiskDetectorHandleDiskOutEvent",
                                  "DrmSlowDiskDetectorLocalSchedule",
                                  "DrmSlowDiskDetectorRemoveDiskFromZone",
                                  "DrmSlowDiskGetSlowCycleCnt",
                                  "DrmSyncActionRequest",
                                  "DrmTaskSchClsEvtFin",
                                  "DrmTaskSchClsEvtInit",
                                  "DrmTaskSchExitTimer",
                                  "DrmTaskSchInitTimer",
                                  "DrmTaskSchedulerFin",
                                  "DrmTaskSchedulerInit",
                                  "DrmTaskSchedulerTimerHandler",
                                  "DrmTaskSeperateModeFin",
                                  "DrmTaskSeperateModeInit",
                                  "DrmTimerCreateCheck",
                                  "DrmTimerProc",
                                  "DrmTransDiskTypeToDprGroup",
                                  "DrmTriggerLocalAnalysis",
                                  "DrmTriggerMasterAnalysis",
                                  "DrmTriggerSeperateSchedAnalysis",
                                  "DrmUnRegisterDiskEventHandler",
                                  "DrmUnloadSubModule",
                                  "DrmloadSubModule",
                                  "FindPrefixInBuffer",
                                  "GetCorvaneInfo",
                                  "GetSysHotPlugEventSocketFd",
                                  "HandleSysHotPlugEventMsg",
                                  "HotPlugSocketListerHandler",
                                  "InitHotPlugLock",
                                  "InitScheduleTask",
                                  "IsDiskOnNvmeDriver",
                                  "IsDrmAsyncThreadParamValid",
                                  "LOCK_DRM_FEATURE_DATA",
                                  "MakeRebindPciAddrCJson",
                                  "NotifyAgentNvmeDiskOnTaskFunc",
                                  "RemoveTaskNodeByName",
                                  "SendRebindPciAddrToAgent",
                                  "SetDiskLifeMonitorSchedulerCycle",
                                  "SetDprDiskData",
                                  "SetDprSmartConfig",
                                  "SetDprSmartSwitch",
                                  "SetSlowDiskDetectConfig",
                                  "StartConfigBackUpTask",
                                  "StartDmmSync2DmaScheduleTask",
                                  "StartFeature",
                                  "StartHotPlugListener",
                                  "StartQueryAgentScheduleTask",
                                  "StartTakeOverDiskSwitch",
                                  "StopAllScheduleTask",
                                  "StopHotPlugListener",
                                  "SubmitScheduleTask",
                                  "TakeOverDiskSwitch",
                                  "TransDiskGroup",
                                  "TransDiskIdToLogicId",
                                  "TransDiskType",
                                  "UNLOCK_DRM_FEATURE_DATA",
                                  "WarpedEntryFunc",
                                  "bdmIsProcessRestart",
                                  "drmQueueDequeue",
                                  "drmQueueExit",
                                  "drmQueueInit",
                                  "drmQueueQueue",
                                  "drmQueueQueueHead",
                                  "drmShowMemAlloc",
                                  "getFeatureLocPrivateData",
                                  "getFeatureLocValidDataIndex",
                                  "setFeatureLocPrivateData",
                                  "warpedCallBackFunc"};

const char *const kGlobals[] = {"g_corvaneStartMode",
                                "g_corvaneInitFiniSteps",
                                "g_prefixPath",
                                "g_signalHandlerStack",
                                "g_corvaneInfra",
                                "g_infraLogLevel",
                                "g_debugLogSwitch",
                                "g_configRoot",
                                "g_configLock",
                                "g_diskTypeConfigNames",
                                "g_diskMgrObj",
                                "g_diskNumAtomic",
                                "g_nextUnusedDiskId",
                                "g_diskMgrLock",
                                "g_configFilePath",
                                "g_diskMgrInited",
                                "g_diskConfigCjsonCheckList",
                                "g_queryMethodNameMap",
                                "g_ioTimePeriod",
                                "g_diskTypeNameMap",
                                "g_diskMediaTypeNameMap",
                                "DiskVendorNameMap",
                                "g_uniqueSpdkAgent",
                                "g_uniqueDmaAgent",
                                "g_uniqueDcakAgent",
                                "g_constructRequestStrategyMap",
                                "g_validateResultJsonStrategyMap",
                                "g_copyStructFromJsonStrategyMap",
                                "g_saveMessageStrategyMap",
                                "g_queryMessageStepMap",
                                "g_copyStructMemorySizeMap",
                                "g_queryScheduledTaskConfigMap",
                                "g_uniqueAgentListSpinLock",
                                "g_enableScanAllAgentDeviceListScheduleTaskSpinLock",
                                "g_uniqueScanAllAgentDeviceListScheduleTaskRunningSpinLock",
                                "g_DCAK_SERVER",
                                "g_DCAK_DEBUG_SWITCH",
                                "g_dcakLinkErr",
                                "g_DiskTypeStrMap",
                                "g_lsblkNumLabel",
                                "g_diskDataMgr",
                                "g_diskInfoSetFunc",
                                "g_diskInfoGetFunc",
                                "g_dataMgrLock",
                                "g_drmDiskEventNotifyFunc",
                                "g_ioStatFreshTime",
                                "g_nonWhiteListSnHead",
                                "g_HotPlugLock",
                                "g_MemStore",
                                "g_corvaneDgbCmds",
                                "g_corvaneRegCmd",
                                "g_diskLifeMonitorSchedulerCycle",
                                "g_diskListForDiskTypeAction",
                                "g_dprCycleConfig",
                                "g_dprSwitchConfig",
                                "g_drmActionHandler",
                                "g_drmAllLocalDiskInfo",
                                "g_drmDiskLifeMonitorDiskList",
                                "g_drmDiskPrefailDiskListForNvme",
                                "g_drmDiskPrefailDiskListForSAS",
                                "g_drmDiskPrefailDiskListForSASHDD",
                                "g_drmDiskPrefailDiskListForSATA",
                                "g_drmDiskPrefailDiskListForSasVSSD",
                                "g_drmDprFeatureSwitch",
                                "g_drmDprMasterHandler",
                                "g_drmLocalDiskUpdateHandle",
                                "g_drmSwitch",
                                "g_drmTimerMgr",
                                "g_drm_slow_disk_detecter_zones",
                                "g_eventPrefix",
                                "g_isShutDown",
                                "g_isThreadCreate",
                                "g_mallocMemSize",
                                "g_scheduleTaskList",
                                "g_scheduleTaskSpinLock"};

// What the library calls in its host.
const char *const kHostOperations[] = {"norax_Init",
                                       "norax_destory",
                                       "norlog_set_file_path_ext",
                                       "norlog_init",
                                       "norlog_set_backup_num",
                                       "norlog_destroy",
                                       "norlog",
                                       "norlog_loglevel_get",
                                       "DBG_DiagnoseAgentInit",
                                       "DBG_DiagnoseAgentDestroy",
                                       "nor_mm_pool_init",
                                       "nor_mm_pool_exit",
                                       "normm_malloc",
                                       "normm_free",
                                       "do_norax_spinlock_lock",
                                       "do_norax_spinlock_unlock",
                                       "do_norax_tspinlock_trylock",
                                       "norax_get_jiffies",
                                       "norax_str_tou64",
                                       "norax_timer_set_raw",
                                       "norax_timer_add",
                                       "norax_timer_modify",
                                       "norax_timer_destroy",
                                       "allocStructure",
                                       "freeStructure",
                                       "createExpStructurePartition",
                                       "createContinuousPartition",
                                       "deletePartitionByID",
                                       "DBG_RegCmd",
                                       "DBG_UnRegCmd",
                                       "DBG_UnRegCmdToCLI",
                                       "DBG_Print",
                                       "DBG_ShowUsageAndErrMsg"};

// What a host may have besides, and what it has of its own under the same names.
const char *const kForeignNames[] = {"DBG_PrintBuf", "memcpy_s",  "memset_s",   "strcpy_s",    "strncpy_s", "strcat_s",
                                     "strncat_s",    "sprintf_s", "snprintf_s", "vsnprintf_s", "sscanf_s",  "fscanf_s"};

/** Dynamic symbols of the library's file; true for those that it defines. */
std::map<std::string, bool> DynamicSymbols()
{
    std::map<std::string, bool> symbols;
    const std::string file = ReadText(CORVANE_LIB_DIR "/libcorvane.so");
    Elf64_Ehdr header{};
    std::memcpy(&header, file.data(), sizeof(header));
    std::vector<Elf64_Shdr> sections(header.e_shnum);
    std::memcpy(sections.data(), file.data() + header.e_shoff, sections.size() * sizeof(Elf64_Shdr));
    for (const Elf64_Shdr &section : sections) {
        for (size_t at = 0; section.sh_type == SHT_DYNSYM && at < section.sh_size; at += sizeof(Elf64_Sym)) {
            Elf64_Sym symbol{};
            std::memcpy(&symbol, file.data() + section.sh_offset + at, sizeof(symbol));
            symbols[file.data() + sections[section.sh_link].sh_offset + symbol.st_name] = symbol.st_shndx != SHN_UNDEF;
        }
    }
    return symbols;
}

class LibrarySymbolsTest : public HostTest {};

TEST_F(LibrarySymbolsTest, EveryFunctionIsFoundByName)
{
    lib::Open();
    std::vector<std::string> missing;

    for (const char *name : kFunctions) {
        if (lib::Lookup(name) == nullptr) {
            missing.emplace_back(name);
        }
    }

    EXPECT_THAT(missing, IsEmpty());
}

TEST_F(LibrarySymbolsTest, EveryGlobalIsFoundByName)
{
    lib::Open();
    std::vector<std::string> missing;

    for (const char *name : kGlobals) {
        if (lib::Lookup(name) == nullptr) {
            missing.emplace_back(name);
        }
    }

    EXPECT_THAT(missing, IsEmpty());
}

TEST_F(LibrarySymbolsTest, AllOfThemAreTheLibrarysOwn)
{
    const std::map<std::string, bool> symbols = DynamicSymbols();
    std::vector<std::string> foreign;

    for (const auto &names : {std::vector<std::string>(std::begin(kFunctions), std::end(kFunctions)),
                              std::vector<std::string>(std::begin(kGlobals), std::end(kGlobals))}) {
        for (const std::string &name : names) {
            const auto found = symbols.find(name);
            if (found == symbols.end() || !found->second) {
                foreign.push_back(name);
            }
        }
    }

    EXPECT_THAT(foreign, IsEmpty());
}

TEST_F(LibrarySymbolsTest, TheHostsOperationsStayUndefined)
{
    const std::map<std::string, bool> symbols = DynamicSymbols();

    for (const char *name : kHostOperations) {
        const auto found = symbols.find(name);
        ASSERT_NE(found, symbols.end()) << name << " is not asked of the host";
        EXPECT_FALSE(found->second) << name << " is defined";
    }
    for (const char *name : kForeignNames) {
        const auto found = symbols.find(name);
        EXPECT_TRUE(found == symbols.end() || !found->second) << name << " is defined";
    }
}

TEST_F(LibrarySymbolsTest, ConstantTablesHoldTheirRows)
{
    lib::Open();
    struct TypeName {
        uint32_t type;
        const char *name;
    };

    const auto *methods = lib::Global<TypeName[4]>("g_queryMethodNameMap");
    const auto *periods = static_cast<const uint32_t *>(lib::Address("g_queryScheduledTaskConfigMap"));
    const auto *steps = static_cast<const uint32_t *>(lib::Address("g_queryMessageStepMap"));
    const auto *sizes = static_cast<const uint32_t *>(lib::Address("g_copyStructMemorySizeMap"));

    const char *names[4] = {"dca_get_disks_brief_info", "dca_get_disks_base_info", "dca_get_disks_health_info",
                            "dca_get_disks_iostat"};
    for (uint32_t i = 0; i < 4; i++) {
        EXPECT_EQ(methods[i].type, i);
        EXPECT_STREQ(methods[i].name, names[i]);
    }
    EXPECT_EQ(std::vector<uint32_t>(steps, steps + 4), (std::vector<uint32_t>{82, 13, 4, 20}));
    EXPECT_EQ(std::vector<uint32_t>(sizes, sizes + 4), (std::vector<uint32_t>{60, 416, 176, 120}));
    EXPECT_EQ(std::vector<uint32_t>(periods, periods + 4), (std::vector<uint32_t>{5000, 3600000, 3000, 3000}));
    EXPECT_EQ(lib::Global<uint32_t>("g_ioTimePeriod"), 20u);
}

TEST_F(LibrarySymbolsTest, AgentRecordsNameTheirSockets)
{
    lib::Open();

    const auto &spdk = lib::Global<lib::AgentInfo>("g_uniqueSpdkAgent");
    const auto &data = lib::Global<lib::AgentInfo>("g_uniqueDmaAgent");
    const auto &kernel = lib::Global<lib::AgentInfo>("g_uniqueDcakAgent");

    EXPECT_STREQ(spdk.name, "unique_SPDK_agent");
    EXPECT_STREQ(spdk.address.path, "/var/tmp/spdk.sock");
    EXPECT_STREQ(data.name, "unique_DMA_agent");
    EXPECT_STREQ(data.address.path, "/var/tmp/spdk.sock");
    EXPECT_STREQ(kernel.name, "unique_DCAK_agent");
    EXPECT_STREQ(kernel.address.path, "/tmp/dcak.sock");
    EXPECT_EQ(spdk.type + data.type + kernel.type, 0u);
}

TEST_F(LibrarySymbolsTest, TableOfThirtySixSlotsIsFilledByRegistration)
{
    Open();
    void **slots = lib::Global<void *[36]>("g_corvaneInfra");
    for (int i = 0; i < 36; i++) {
        ASSERT_EQ(slots[i], nullptr) << i;
    }

    StartQuiet();

    const char *installed[36] = {"CorvaneOsMalloc",
                                 "CorvaneOsFree",
                                 "CorvaneOsThreadCreate",
                                 "CorvaneOsThreadYield",
                                 "CorvaneOsThreadSleep",
                                 "CorvaneInfraLog",
                                 "CorvaneOsSemCreate",
                                 "CorvaneOsSemDestroy",
                                 "CorvaneOsSemDown",
                                 "CorvaneOsSemUp",
                                 "CorvaneOsSemTryDown",
                                 "CorvaneOsSemTryDownWithinTimeout",
                                 "CorvaneOsSemDown",
                                 "CorvaneOsSemUp",
                                 "CorvaneOsSemTryDown",
                                 "CorvaneOsSemTryDownWithinTimeout",
                                 "CorvaneOsAtomicCreate",
                                 "CorvaneOsAtomicDestroy",
                                 "CorvaneOsAtomicGet",
                                 "CorvaneOsAtomicSet",
                                 "CorvaneOsAtomicCompareAndSet",
                                 "CorvaneOsAtomicAddAndGet",
                                 "CorvaneOsAtomicIncrementAndGet",
                                 "CorvaneOsAtomicDecrementAndGet",
                                 "CorvaneOsSpinlockCreate",
                                 "CorvaneOsSpinlockDestroy",
                                 "CorvaneOsSpinlockLock",
                                 "CorvaneOsSpinlockUnlock",
                                 "CorvaneOsSpinlockTryLock",
                                 "CorvaneOsRwlockCreate",
                                 "CorvaneOsRwlockDestroy",
                                 "CorvaneOsRwlockLockWriteLock",
                                 "CorvaneOsRwlockTryLockWriteLock",
                                 "CorvaneOsRwlockLockReadLock",
                                 "CorvaneOsRwlockTryLockReadLock",
                                 "CorvaneOsRwlockUnlockRwlock"};
    for (int i = 0; i < 36; i++) {
        EXPECT_EQ(slots[i], lib::Lookup(installed[i])) << i;
    }
}

class CorvaneInfraLogTest : public HostTest {
protected:
    void Log(uint32_t level, const std::string &text)
    {
        reinterpret_cast<void (*)(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...)>(
            lib::Address("CorvaneInfraLog"))(level, "HOST", "tool.cpp", 7, "main", "%s", text.c_str());
    }
};

TEST_F(CorvaneInfraLogTest, CutsNothingBut511CharactersAndMore)
{
    StartQuiet();
    ClearHostLines();

    Log(3, std::string(510, 'x'));
    Log(3, std::string(511, 'y'));

    const std::vector<HostLine> lines = HostLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, "[HOST]" + std::string(510, 'x'));
    EXPECT_THAT(lines[1].text, testing::StartsWith("vsnprintf_s fail. ret:-"));
    EXPECT_EQ(lines[1].level, 3u);
}

TEST_F(CorvaneInfraLogTest, DebugSwitchSlicesAt300)
{
    StartQuiet();
    ClearHostLines();
    lib::Global<bool>("g_debugLogSwitch") = true;

    Log(7, std::string(301, 'x'));
    Log(7, "");

    const std::vector<HostLine> lines = HostLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, "[HOST]" + std::string(300, 'x'));
    EXPECT_EQ(lines[1].text, "[HOST]x");
}

TEST_F(CorvaneInfraLogTest, HostsLevelDropsLines)
{
    g_hostResults.logLevel = 4;
    WriteText(prefix_ + "/config/corvane_config.json", "{\"feature_switch\":0}");
    Open();
    (void)CaptureStdout([] { EXPECT_EQ(lib::InitCorvane(1), 0u); });
    ClearHostLines();

    Log(4, "kept");
    Log(5, "dropped");

    EXPECT_EQ(HostLogged(4, "[HOST]kept"), 1u);
    EXPECT_EQ(HostLines().size(), 1u);
}

class CorvaneInfraMallocTest : public HostTest {};

TEST_F(CorvaneInfraMallocTest, AsksTheHostsHeapAndLocks)
{
    Open();
    const lib::Call<void *(uint64_t)> allocate{"CorvaneInfraMalloc"};
    const lib::Call<void(void *)> release{"CorvaneInfraFree"};
    const lib::Call<void(void *)> lock{"CorvaneInfraSpinlockLock"};

    release(allocate(48));
    release(nullptr);
    lock(nullptr);

    EXPECT_THAT(HostCalls(),
                testing::ElementsAre("normm_malloc(48,999,CorvaneInfraMalloc)", "normm_free(999,CorvaneInfraFree)"));
}

} // namespace
