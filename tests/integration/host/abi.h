/**
 * @file abi.h
 * @brief The library as an operator's tool knows it: names, signatures and record layouts, written down a second
 *        time, so that a change of the library's own headers does not go unnoticed.
 */
#ifndef HOST_ABI_H
#define HOST_ABI_H

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace lib {

/** Open the library. Everything below works from then on. */
void Open();
/** Address of a symbol of the library; null if it has none of that name. */
void *Lookup(const char *name);
/** The same, but ends the process if there is none. */
void *Address(const char *name);

struct DiskMgrObj {
    uint32_t diskId;
    uint32_t diskState;
    uint32_t frameId;
    uint32_t slotId;
    uint64_t diskCapacity;
    uint32_t sectorSize;
    char vendor[10];
    char model[44];
    char firmware[10];
    char sn[40];
    char deviceName[20];
    char pciAddr[256];
    uint32_t diskType;
    uint32_t mediaType;
};
static_assert(sizeof(DiskMgrObj) == 416 && offsetof(DiskMgrObj, vendor) == 28 && offsetof(DiskMgrObj, model) == 38 &&
              offsetof(DiskMgrObj, firmware) == 82 && offsetof(DiskMgrObj, sn) == 92 &&
              offsetof(DiskMgrObj, deviceName) == 132 && offsetof(DiskMgrObj, pciAddr) == 152 &&
              offsetof(DiskMgrObj, diskType) == 408);

struct DiskSnRef {
    uint32_t len;
    const char *buf;
};
static_assert(sizeof(DiskSnRef) == 16);

struct DiskIoInfoFrame {
    uint64_t bytesRead;
    uint64_t bytesWritten;
    uint64_t numReadOps;
    uint64_t numWriteOps;
    uint64_t readLatencyTicks;
    uint64_t writeLatencyTicks;
    uint32_t queueDepth;
    uint32_t ioBusyNum;
    uint64_t ticks;
    uint64_t tickRate;
    uint64_t ioTime;
};
static_assert(sizeof(DiskIoInfoFrame) == 80 && offsetof(DiskIoInfoFrame, ticks) == 56);

struct DiskIoStatInfo {
    uint64_t readIops;
    uint64_t writeIops;
    uint64_t readIoBand;
    uint64_t writeIoBand;
    uint64_t readIoDelay;
    uint64_t writeIoDelay;
    uint32_t queueDepth;
    uint32_t ioBusyNum;
    uint64_t avgServeTime;
    uint32_t utilizationInt;
    uint32_t utilizationFrac;
};
static_assert(sizeof(DiskIoStatInfo) == 72 && offsetof(DiskIoStatInfo, utilizationFrac) == 68);

struct DiskHealthInfo {
    uint64_t powerOnHours;
    uint32_t wearInt;
    uint32_t wearFrac;
    uint8_t detail[120];
};
static_assert(sizeof(DiskHealthInfo) == 136);

struct DiskDrmInfo {
    uint32_t healthScore;
    uint32_t diskLife;
};

struct DiskNodeInfo {
    uint8_t bytes[64];
};

struct DataMgrObj {
    uint32_t diskId;
    DiskMgrObj *baseInfo;
    DiskIoStatInfo ioStat[100];
    uint32_t ioStatHead;
    uint32_t ioStatCount;
    DiskIoInfoFrame lastFrame;
    DiskHealthInfo healthInfo;
    DiskNodeInfo nodeInfo;
    DiskDrmInfo drmInfo;
    uint32_t strategy;
};
static_assert(offsetof(DataMgrObj, ioStatHead) == 7216 && offsetof(DataMgrObj, lastFrame) == 7224 &&
              offsetof(DataMgrObj, healthInfo) == 7304 && offsetof(DataMgrObj, nodeInfo) == 7440);

struct DiskBriefInfo {
    char serialNumber[40];
    char deviceName[20];
};
static_assert(sizeof(DiskBriefInfo) == 60);

struct DiskHealthInfoSnWrap {
    char serialNumber[40];
    DiskHealthInfo health;
};
static_assert(sizeof(DiskHealthInfoSnWrap) == 176);

struct DiskIoInfoFrameSnWrap {
    char serialNumber[40];
    DiskIoInfoFrame frame;
};
static_assert(sizeof(DiskIoInfoFrameSnWrap) == 120);

struct AgentInfo {
    char name[32];
    uint32_t type;
    union {
        char path[32];
        struct {
            char ip[16];
            uint16_t port;
        } ipv4;
    } address;
};
static_assert(sizeof(AgentInfo) == 68 && offsetof(AgentInfo, address) == 36);

struct ResponseBuffer {
    int32_t capacity;
    char *buffer;
};
static_assert(sizeof(ResponseBuffer) == 16);

struct ArrayList {
    void **list;
    uint32_t count;
    uint32_t size;
};
static_assert(sizeof(ArrayList) == 16);

struct QueryAgentTaskContext {
    AgentInfo agent;
    uint8_t cancel;
    time_t last[4];
};
static_assert(sizeof(QueryAgentTaskContext) == 104 && offsetof(QueryAgentTaskContext, cancel) == 68 &&
              offsetof(QueryAgentTaskContext, last) == 72);

struct InitFiniStep {
    char name[32];
    uint32_t (*init)();
    uint32_t (*fini)();
};
static_assert(sizeof(InitFiniStep) == 48);

struct CorvaneTime {
    uint32_t value;
    uint32_t timeUnit;
};

struct CorvaneThreadParam {
    uint32_t priority;
    uint8_t joinable;
    void *entryArg;
    void *callbackArg;
};
static_assert(sizeof(CorvaneThreadParam) == 24);

/** A global of the library. */
template <typename T>
T &Global(const char *name)
{
    return *static_cast<T *>(Address(name));
}

template <typename Signature>
struct Call;
/** A function of the library, looked up by its name at each call. */
template <typename R, typename... A>
struct Call<R(A...)> {
    const char *name;
    R operator()(A... args) const { return reinterpret_cast<R (*)(A...)>(Address(name))(args...); }
};

inline constexpr Call<uint32_t(uint32_t)> InitCorvane{"InitCorvane"};
inline constexpr Call<uint32_t(uint32_t)> initCorvane{"initCorvane"};
inline constexpr Call<uint32_t *()> GetCorvaneStartMode{"GetCorvaneStartMode"};
inline constexpr Call<char *()> GetPrefixPath{"GetPrefixPath"};
inline constexpr Call<uint32_t(const char *)> SetPrefixPath{"SetPrefixPath"};
inline constexpr Call<int64_t()> StashProcessSignalHandler{"StashProcessSignalHandler"};
inline constexpr Call<int64_t()> StashPopProcessSignalHandler{"StashPopProcessSignalHandler"};
inline constexpr Call<uint32_t(uint16_t)> CorvaneTryLockFile{"CorvaneTryLockFile"};

inline constexpr Call<uint32_t(const char *, uint32_t *)> GetConfigInt{"GetConfigInt"};
inline constexpr Call<uint32_t(const char *, int32_t)> SetConfigInt{"SetConfigInt"};
inline constexpr Call<uint32_t(const char *, uint32_t)> SetConfigSwitchVal{"SetConfigSwitchVal"};
inline constexpr Call<uint32_t(const char *, const char *, uint32_t *)> GetChildNodeConfigInt{"GetChildNodeConfigInt"};

inline constexpr Call<uint32_t(const char *)> DiskMgrInit{"DiskMgrInit"};
inline constexpr Call<uint32_t()> DiskMgrDestroy{"DiskMgrDestroy"};
inline constexpr Call<uint32_t(DiskSnRef, uint32_t *)> GetDiskIdBySn{"GetDiskIdBySn"};
inline constexpr Call<uint32_t(DiskSnRef)> IsSNExist{"IsSNExist"};
inline constexpr Call<uint32_t(DiskSnRef, uint32_t *)> GetNewDiskId{"GetNewDiskId"};
inline constexpr Call<uint32_t(uint32_t *, DiskSnRef *, uint32_t, uint32_t *)> GetAllSnAndDiskId{"GetAllSnAndDiskId"};
inline constexpr Call<uint32_t(uint32_t, DiskMgrObj *)> DiskInfoUpdate{"DiskInfoUpdate"};
inline constexpr Call<uint32_t(uint32_t, DiskMgrObj **)> DiskInfoGet{"DiskInfoGet"};
inline constexpr Call<uint32_t()> DiskInfoSavetoConfig{"DiskInfoSavetoConfig"};
inline constexpr Call<uint64_t(void *)> CorvaneOsAtomicGet{"CorvaneOsAtomicGet"};

inline constexpr Call<uint32_t(const char *, cJSON *, uint32_t, const char *, const char *)> SaveCJsonToFile{
    "SaveCJsonToFile"};
inline constexpr Call<cJSON *(const char *)> LoadCJsonFromFile{"LoadCJsonFromFile"};
inline constexpr Call<cJSON *(const char *)> TryLoadCJsonFromFile{"TryLoadCJsonFromFile"};
inline constexpr Call<cJSON *(const char *)> LoadIfExisitAndVaild{"LoadIfExisitAndVaild"};

inline constexpr Call<bool(cJSON *)> IsStringAndNotNull{"IsStringAndNotNull"};
inline constexpr Call<bool(cJSON *)> IsDecimalUintString{"IsDecimalUintString"};
inline constexpr Call<bool(cJSON *)> IsValidDiskType{"IsValidDiskType"};
inline constexpr Call<bool(cJSON *)> IsValidJsonResponseHeader{"IsValidJsonResponseHeader"};
inline constexpr Call<bool(cJSON *)> IsValidDiskBriefInfoResultJson{"IsValidDiskBriefInfoResultJson"};
inline constexpr Call<bool(cJSON *, uint32_t)> IsValidDiskBaseInfoResultJson{"IsValidDiskBaseInfoResultJson"};
inline constexpr Call<bool(cJSON *)> IsValidDiskHealthInfoJSON{"IsValidDiskHealthInfoJSON"};
inline constexpr Call<bool(cJSON *)> IsValidSataSsdSmartAttrList{"IsValidSataSsdSmartAttrList"};
inline constexpr Call<uint32_t(cJSON *, DiskBriefInfo *)> CopyDiskBriefInfoFromJSON{"CopyDiskBriefInfoFromJSON"};
inline constexpr Call<uint32_t(cJSON *, DiskMgrObj *)> CopyDiskBaseInfoFromJSON{"CopyDiskBaseInfoFromJSON"};
inline constexpr Call<uint32_t(cJSON *, DiskHealthInfoSnWrap *)> CopyDiskHealthInfoSnWrapFromJSON{
    "CopyDiskHealthInfoSnWrapFromJSON"};
inline constexpr Call<uint32_t(cJSON *, DiskIoInfoFrameSnWrap *)> CopyDiskIoInfoFrameSnWrapFromJSON{
    "CopyDiskIoInfoFrameSnWrapFromJSON"};
inline constexpr Call<uint32_t(cJSON *)> ParseDiskVendor{"ParseDiskVendor"};

inline constexpr Call<cJSON *(const AgentInfo *, cJSON *)> PostRequestWithJSON{"PostRequestWithJSON"};
inline constexpr Call<uint32_t(const AgentInfo *, uint32_t, const char *, ResponseBuffer *)> PostRequest{"PostRequest"};
inline constexpr Call<bool(const AgentInfo *, const AgentInfo *)> IsAgentEqual{"IsAgentEqual"};
inline constexpr Call<uint32_t(size_t)> CastSizeToUint32{"CastSizeToUint32"};

inline constexpr Call<DiskBriefInfo **(const AgentInfo *, uint16_t *)> QueryDeviceList{"QueryDeviceList"};
inline constexpr Call<uint32_t(uint32_t, const AgentInfo *, DiskBriefInfo **, uint32_t)> QueryMessageAndSave{
    "QueryMessageAndSave"};
inline constexpr Call<uint32_t(uint32_t, const AgentInfo *, DiskBriefInfo **, uint32_t)> StepQueryMessageAndSave{
    "StepQueryMessageAndSave"};
inline constexpr Call<uint32_t(const AgentInfo *, DiskBriefInfo *, DiskMgrObj *)> FetchDiskBaseInfoFromAgent{
    "FetchDiskBaseInfoFromAgent"};
inline constexpr Call<uint32_t(cJSON *, cJSON *)> MergeCJsonSlotIdIntoBaseInfo{"MergeCJsonSlotIdIntoBaseInfo"};
inline constexpr Call<void(void **, uint32_t)> FreeSeparateMemoryList{"FreeSeparateMemoryList"};

inline constexpr Call<uint32_t()> InitDataCollectMaster{"InitDataCollectMaster"};
inline constexpr Call<uint32_t(AgentInfo)> SubmitQueryAgentScheduleTask{"SubmitQueryAgentScheduleTask"};
inline constexpr Call<uint32_t(AgentInfo)> CancelQueryAgentScheduleTask{"CancelQueryAgentScheduleTask"};
inline constexpr Call<uint32_t()> CancelAllQueryAgentScheduleTask{"CancelAllQueryAgentScheduleTask"};
inline constexpr Call<uint32_t()> SubmitScanAllAgentDeviceListScheduleTask{"SubmitScanAllAgentDeviceListScheduleTask"};
inline constexpr Call<uint32_t()> CancelScanAllAgentDeviceListScheduleTask{"CancelScanAllAgentDeviceListScheduleTask"};
inline constexpr Call<uint32_t(DiskSnRef, DiskMgrObj *)> FetchDiskBaseInfo{"FetchDiskBaseInfo"};
inline constexpr Call<uint32_t(const AgentInfo *, uint8_t *)> UpdateUniqueAgentList{"UpdateUniqueAgentList"};
inline constexpr Call<void(QueryAgentTaskContext *)> QueryAgentScheduleTask{"QueryAgentScheduleTask"};
inline constexpr Call<void()> ScanAllAgentDeviceListScheduleTask{"ScanAllAgentDeviceListScheduleTask"};

inline constexpr Call<uint32_t(uint32_t, DiskSnRef, void *, uint32_t)> DataMgrDiskInfoSet{"DataMgrDiskInfoSet"};
inline constexpr Call<uint32_t(uint32_t, DiskSnRef, void *, uint32_t, uint32_t)> DataMgrDiskInfoGet{
    "DataMgrDiskInfoGet"};
inline constexpr Call<uint32_t(DiskSnRef, void *)> DiskBaseInfoSet{"DiskBaseInfoSet"};
inline constexpr Call<uint32_t(DiskSnRef, void *)> DiskIoStatInfoSet{"DiskIoStatInfoSet"};
inline constexpr Call<uint32_t(DiskSnRef, void *)> DiskHealthInfoSet{"DiskHealthInfoSet"};
inline constexpr Call<uint32_t(DiskSnRef, void *)> DiskNodeInfoSet{"DiskNodeInfoSet"};
inline constexpr Call<uint32_t(uint32_t, DiskSnRef, void *)> DiskDrmInfoSet{"DiskDrmInfoSet"};
inline constexpr Call<uint32_t(uint32_t, DiskSnRef, uint32_t)> DiskStrategySet{"DiskStrategySet"};
inline constexpr Call<uint32_t(uint32_t, DiskSnRef, uint32_t)> DiskStateSet{"DiskStateSet"};
inline constexpr Call<uint32_t(uint32_t, DiskSnRef, void *, uint32_t)> DiskBaseInfoGet{"DiskBaseInfoGet"};
inline constexpr Call<uint32_t(uint32_t, DiskSnRef, void *, uint32_t)> DiskNodeInfoGet{"DiskNodeInfoGet"};
inline constexpr Call<uint32_t(uint32_t, DiskSnRef, uint32_t *)> DiskStrategyGet{"DiskStrategyGet"};
inline constexpr Call<uint32_t(uint32_t, DiskSnRef, uint32_t *)> DiskDiskStateInfoCliGet{"DiskDiskStateInfoCliGet"};
inline constexpr Call<uint32_t(uint32_t, void *, uint32_t)> DiskBaseInfoCliGet{"DiskBaseInfoCliGet"};
inline constexpr Call<uint32_t(uint32_t, void *, uint32_t)> DiskIoStatInfoCliGet{"DiskIoStatInfoCliGet"};
inline constexpr Call<uint32_t(uint32_t, void *, uint32_t)> DiskSmartInfoCliGet{"DiskSmartInfoCliGet"};
inline constexpr Call<uint32_t(uint32_t, void *, uint32_t)> DiskDrmInfoCliGet{"DiskDrmInfoCliGet"};
inline constexpr Call<const char *(uint32_t)> DiskStrategyStrGet{"DiskStrategyStrGet"};
inline constexpr Call<uint32_t(uint32_t *, DiskSnRef *, uint32_t, uint32_t *)> ListAllOnlineDisk{"ListAllOnlineDisk"};

inline constexpr Call<uint32_t(DiskSnRef *, uint32_t)> DiskSerialNumberRefresh{"DiskSerialNumberRefresh"};
inline constexpr Call<uint32_t(const char *, const char *, uint32_t)> CheckInWhiteList{"CheckInWhiteList"};
inline constexpr Call<uint32_t(uint32_t (*)(uint32_t, DiskSnRef, uint32_t))> DataMgrSetDrmNotifyFunc{
    "DataMgrSetDrmNotifyFunc"};
inline constexpr Call<uint32_t()> DataMgrInit{"DataMgrInit"};
inline constexpr Call<uint32_t()> DataMgrDestroy{"DataMgrDestroy"};
inline constexpr Call<void()> DataMgrEnable{"DataMgrEnable"};
inline constexpr Call<void()> DataMgrDisable{"DataMgrDisable"};

inline constexpr Call<uint32_t(DiskIoInfoFrame *, DiskIoInfoFrame *)> IoStatCheck{"IoStatCheck"};
inline constexpr Call<uint32_t(DiskIoInfoFrame *, DiskIoInfoFrame *, DiskIoStatInfo *)> IoStatInfoCal{"IoStatInfoCal"};

} // namespace lib

#endif
