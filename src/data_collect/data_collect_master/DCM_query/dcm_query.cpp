#include "data_collect/data_collect_master/DCM_query/dcm_query.h"

#include <array>
#include <limits>

#include "bounded/bounded.h"
#include "data_collect/data_collect_master/DCM_copy/dcm_copy.h"
#include "data_collect/data_collect_master/DCM_query/dcm_save.h"
#include "data_collect/data_collect_master/DCM_validate/dcm_validate.h"
#include "data_collect/data_collect_master/dcm_name_maps.h"
#include "data_collect/data_collect_master/dcm_transport.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"

namespace {

/** All that one message type needs; the exported maps below are its columns. */
struct QueryStrategy {
    uint32_t type;
    DcmConstructRequestFunc construct;
    DcmValidateResultFunc validate;
    DcmCopyFromJsonFunc copy;
    DcmSaveMessageFunc save;
    uint32_t step;
    uint32_t recordSize;
};

constexpr std::array<QueryStrategy, MESSAGE_TYPE_BUTT> kStrategies{{
    {MESSAGE_DISK_BRIEF_INFO, ConstructNoParamRequest, IsValidDiskBriefInfoResultJsonWrap, CopyDiskBriefInfoFromJSON,
     SaveBriefInfoInterceptor, 82, sizeof(DiskBriefInfo)},
    // The steps keep an answer below what one receive takes.
    {MESSAGE_DISK_BASE_INFO, ConstructOnlyDeviceListParamRequest, IsValidDiskBaseInfoResultJson,
     CopyDiskBaseInfoFromJSON, SaveDiskBaseInfo, 13, sizeof(DiskMgrObj)},
    {MESSAGE_DISK_HEALTH_INFO, ConstructOnlyDeviceListParamRequest, IsValidDiskHealthInfoResultJson,
     CopyDiskHealthInfoSnWrapFromJSON, SaveDiskHealthInfo, 4, sizeof(DiskHealthInfoSnWrap)},
    {MESSAGE_DISK_IO_INFO_FRAME, ConstructIoInfoFrameRequest, IsValidDiskIoInfoFrameResultJson,
     CopyDiskIoInfoFrameSnWrapFromJSON, SaveDiskIoInfoFrame, 20, sizeof(DiskIoInfoFrameSnWrap)},
}};

consteval bool RowsMatchIndex()
{
    for (uint32_t i = 0; i < kStrategies.size(); i++) {
        const QueryStrategy &row = kStrategies[i];
        // The functions are not compared with null: with the undefined-behaviour sanitizer g++ 12 takes that for no
        // constant. A row that lacks one ends in a record size of 0.
        if (row.type != i || row.step == 0 || row.recordSize == 0) {
            return false;
        }
    }
    return true;
}
static_assert(RowsMatchIndex(), "row i describes message type i");
static_assert(MESSAGE_TYPE_BUTT == 4, "the maps below name every row");

/** An array list that frees itself. */
class OwnedArrayList {
public:
    OwnedArrayList() noexcept = default;
    ~OwnedArrayList() { ArrayListDelete(&list_); }
    OwnedArrayList(const OwnedArrayList &) = delete;
    OwnedArrayList &operator=(const OwnedArrayList &) = delete;

    [[nodiscard]] ArrayList *Get() noexcept { return &list_; }
    [[nodiscard]] void **Records() const noexcept { return list_.list; }
    [[nodiscard]] void **Release() noexcept
    {
        void **records = list_.list;
        list_ = {};
        return records;
    }

private:
    ArrayList list_{};
};

const char *MethodName(uint32_t type) noexcept
{
    return g_queryMethodNameMap[type].name;
}

} // namespace

DcmConstructRequestFunc g_constructRequestStrategyMap[MESSAGE_TYPE_BUTT] = {
    kStrategies[0].construct, kStrategies[1].construct, kStrategies[2].construct, kStrategies[3].construct};
DcmValidateResultFunc g_validateResultJsonStrategyMap[MESSAGE_TYPE_BUTT] = {
    kStrategies[0].validate, kStrategies[1].validate, kStrategies[2].validate, kStrategies[3].validate};
DcmCopyFromJsonFunc g_copyStructFromJsonStrategyMap[MESSAGE_TYPE_BUTT] = {kStrategies[0].copy, kStrategies[1].copy,
                                                                          kStrategies[2].copy, kStrategies[3].copy};
DcmSaveMessageFunc g_saveMessageStrategyMap[MESSAGE_TYPE_BUTT] = {kStrategies[0].save, kStrategies[1].save,
                                                                  kStrategies[2].save, kStrategies[3].save};
uint32_t g_queryMessageStepMap[MESSAGE_TYPE_BUTT] = {kStrategies[0].step, kStrategies[1].step, kStrategies[2].step,
                                                     kStrategies[3].step};
uint32_t g_copyStructMemorySizeMap[MESSAGE_TYPE_BUTT] = {kStrategies[0].recordSize, kStrategies[1].recordSize,
                                                         kStrategies[2].recordSize, kStrategies[3].recordSize};

extern "C" CORVANE_API uint16_t CastUint32ToUint16(uint32_t value) noexcept
{
    constexpr uint16_t kMax = std::numeric_limits<uint16_t>::max();
    if (value > kMax) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "uint32(%u) cast to uint16 overflow", value);
        return kMax;
    }
    return static_cast<uint16_t>(value);
}

extern "C" CORVANE_API bool IsValidDiskBriefInfoResultJsonWrap(cJSON *result, uint32_t /*requestedCount*/) noexcept
{
    // clang-format off
    CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM",
                "You are advised to use the dedicated function IsValidDiskBriefInfoResultJson to judge Brief.");
    // clang-format on
    return IsValidDiskBriefInfoResultJson(result);
}

extern "C" CORVANE_API DiskBriefInfo **QueryDeviceList(const AgentInfo *agent, uint16_t *countOut) noexcept
{
    if (countOut == nullptr) {
        return nullptr;
    }
    *countOut = DCM_DEVICE_LIST_FAILED;
    const CJsonPtr request(g_constructRequestStrategyMap[MESSAGE_DISK_BRIEF_INFO](MethodName(MESSAGE_DISK_BRIEF_INFO),
                                                                                  nullptr, 0, g_ioTimePeriod));
    if (request == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Create Base Request failed. maybe malloc fail?");
        return nullptr;
    }
    const CJsonPtr response(PostRequestWithJSON(agent, request.get()));
    if (response == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "PostRequestWithJSON failed, maybe Offline response parse");
        return nullptr;
    }
    cJSON *result = cJSON_GetObjectItem(response.get(), "result");
    if (!IsValidJsonResponseHeader(response.get()) || !IsValidDiskBriefInfoResultJson(result)) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Response(see in debug log) not IsValidJsonResponse.");
        return nullptr;
    }
    cJSON *disks = cJSON_GetObjectItem(result, "disks");
    const auto count = static_cast<uint32_t>(cJSON_GetArraySize(disks));
    if (count == 0) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "query answer: empty device list.");
        *countOut = 0;
        return nullptr;
    }
    OwnedArrayList records;
    uint32_t ret = ArrayListCreate(records.Get(), count, g_copyStructMemorySizeMap[MESSAGE_DISK_BRIEF_INFO]);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "ArrayListCreate Failed(%d).", ret);
        return nullptr;
    }
    ret = CopyBatchFromJSON(MESSAGE_DISK_BRIEF_INFO, disks, records.Records());
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Batch Copy Failed(%d).", ret);
        return nullptr;
    }
    *countOut = CastUint32ToUint16(count);
    return reinterpret_cast<DiskBriefInfo **>(records.Release());
}

extern "C" CORVANE_API uint32_t QueryMessage(uint32_t type, const AgentInfo *agent, DiskBriefInfo **deviceList,
                                             uint32_t deviceCount, ArrayList *arrayList, cJSON **responseOut) noexcept
{
    if (responseOut != nullptr) {
        *responseOut = nullptr;
    }
    if (type >= MESSAGE_TYPE_BUTT || agent == nullptr || arrayList == nullptr || responseOut == nullptr ||
        arrayList->count < deviceCount) {
        return DCM_ERR_BAD_INPUT;
    }
    const CJsonPtr request(
        g_constructRequestStrategyMap[type](MethodName(type), deviceList, deviceCount, g_ioTimePeriod));
    if (request == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Create Request failed, no memory.");
        return DCM_ERR_NO_MEMORY;
    }
    CJsonPtr response(PostRequestWithJSON(agent, request.get()));
    if (response == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "PostRequestWithJSON failed");
        return DCM_ERR_POST;
    }
    cJSON *result = cJSON_GetObjectItem(response.get(), "result");
    if (!IsValidJsonResponseHeader(response.get()) || !IsValidResultJson(type, result, deviceCount)) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Response(see in debug log) not IsValidJsonResponse.");
        return DCM_ERR_BAD_RESPONSE;
    }
    // The device list's check knows no requested count; the records do.
    cJSON *disks = cJSON_GetObjectItem(result, "disks");
    if (static_cast<uint32_t>(cJSON_GetArraySize(disks)) > arrayList->count) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Response(see in debug log) not IsValidJsonResponse.");
        return DCM_ERR_BAD_RESPONSE;
    }
    const uint32_t ret = CopyBatchFromJSON(type, disks, arrayList->list);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Query Agent(%s) message(%s) Batch Copy Failed(%d).",
                    BoundedText<sizeof(agent->name)>(agent->name).Get(), MethodName(type), ret);
        return ret;
    }
    *responseOut = response.release();
    return DCM_OK;
}

extern "C" CORVANE_API uint32_t QueryMessageAndSave(uint32_t type, const AgentInfo *agent, DiskBriefInfo **deviceList,
                                                    uint32_t deviceCount) noexcept
{
    if (type >= MESSAGE_TYPE_BUTT || agent == nullptr) {
        return DCM_ERR_BAD_INPUT;
    }
    const BoundedText<sizeof(agent->name)> name(agent->name);
    OwnedArrayList records;
    uint32_t ret = ArrayListCreate(records.Get(), deviceCount, g_copyStructMemorySizeMap[type]);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "ArrayListCreate Failed(%d).", ret);
        return ret;
    }
    cJSON *answer = nullptr;
    ret = QueryMessage(type, agent, deviceList, deviceCount, records.Get(), &answer);
    const CJsonPtr response(answer);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "query agent(%s) message(%s) failed(ret:%d).", name.Get(),
                    MethodName(type), ret);
        return ret;
    }
    ret = SaveMessage(type, cJSON_GetObjectItem(response.get(), "result"), records.Records(), deviceCount);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "save agent(%s) message(%s) failed(ret:%d).", name.Get(),
                    MethodName(type), ret);
    }
    return ret;
}

extern "C" CORVANE_API uint32_t FetchDiskBaseInfoFromAgent(const AgentInfo *agent, DiskBriefInfo *briefRecord,
                                                           DiskMgrObj *outRecord) noexcept
{
    if (agent == nullptr || briefRecord == nullptr || outRecord == nullptr) {
        return DCM_ERR_BAD_INPUT;
    }
    OwnedArrayList records;
    uint32_t ret = ArrayListCreate(records.Get(), 1, g_copyStructMemorySizeMap[MESSAGE_DISK_BASE_INFO]);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "ArrayListCreate Failed(%d).", ret);
        return ret;
    }
    cJSON *answer = nullptr;
    ret = QueryMessage(MESSAGE_DISK_BASE_INFO, agent, &briefRecord, 1, records.Get(), &answer);
    const CJsonPtr response(answer);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "query agent(%s) message(%s) failed(ret:%d).",
                    BoundedText<sizeof(agent->name)>(agent->name).Get(), MethodName(MESSAGE_DISK_BASE_INFO), ret);
        return ret;
    }
    const uint32_t slotRet = QueryDiskSlotInfo(cJSON_GetObjectItem(response.get(), "result"), records.Records());
    if (slotRet != DCM_OK) {
        // A disk without a known slot is still a disk.
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Query disk slot info failed, ret<%d>", slotRet);
    }
    return static_cast<uint32_t>(memcpy_s(outRecord, sizeof(*outRecord), records.Records()[0], sizeof(DiskMgrObj)));
}
