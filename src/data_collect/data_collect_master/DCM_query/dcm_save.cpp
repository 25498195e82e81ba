#include "data_collect/data_collect_master/DCM_query/dcm_save.h"

#include <cstring>

#include "data_collect/data_collect_master/DCM_copy/dcm_copy.h"
#include "data_collect/data_collect_master/DCM_query/dcm_query.h"
#include "data_collect/data_collect_master/DCM_validate/dcm_validate.h"
#include "data_collect/data_collect_master/dcm_transport.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"

DcmStoreCalls g_dcmStore = {.baseInfoSet = DiskBaseInfoSet,
                            .healthInfoSet = DiskHealthInfoSet,
                            .ioStatInfoSet = DiskIoStatInfoSet,
                            .serialNumberRefresh = DiskSerialNumberRefresh};
const AgentInfo *g_dcmSlotAgent = &g_uniqueDcakAgent;

namespace {

/** The store's word for a disk that the white list refuses; nothing to tell anyone about. */
constexpr uint32_t kRefusedByWhiteList = 8;
/** Result of a merge with a null argument. */
constexpr uint32_t kMergeNullArgument = 1;

DiskSnRef SnOf(char *serialNumber) noexcept
{
    return {.len = DISK_SN_SIZE, .buf = serialNumber};
}

bool IsStored(uint32_t ret) noexcept
{
    return ret == DCM_OK || ret == kRefusedByWhiteList;
}

/** The first slot element of a device, null if there is none. */
const cJSON *FindSlotOfDevice(const cJSON *slots, const char *deviceName) noexcept
{
    const cJSON *slot = nullptr;
    cJSON_ArrayForEach(slot, slots)
    {
        const char *name = cJSON_GetStringValue(cJSON_GetObjectItem(slot, "device_name"));
        if (name != nullptr && std::strcmp(name, deviceName) == 0) {
            return slot;
        }
    }
    return nullptr;
}

} // namespace

extern "C" CORVANE_API uint32_t SaveMessage(uint32_t type, cJSON *resultJson, void **records, uint32_t count) noexcept
{
    if (type >= MESSAGE_TYPE_BUTT) {
        return DCM_ERR_BAD_INPUT;
    }
    return g_saveMessageStrategyMap[type](resultJson, records, count);
}

extern "C" CORVANE_API uint32_t SaveBriefInfoInterceptor(cJSON * /*result*/, void ** /*records*/,
                                                         uint32_t /*count*/) noexcept
{
    // clang-format off
    CORVANE_LOG(CORVANE_LOG_ERROR, "DCM",
                "Access g_copyStructFromJsonStrategyMap MESSAGE_DISK_BRIEF_INFO config item. MESSAGE_DISK_BRIEF_INFO should not invoke in g_saveMessageStrategyMap. Check why invoked. In normal cases, correct func SaveDiskBriefInfo should invoked independently.");
    // clang-format on
    return DCM_ERR_NOT_PERMITTED;
}

extern "C" CORVANE_API uint32_t SaveDiskBriefInfo(DiskBriefInfo **records, uint32_t count) noexcept
{
    if (records == nullptr && count > 0) {
        return DCM_ERR_BAD_INPUT;
    }
    // A node without disks is news as well; the refresh gets an array then, too.
    const uint64_t size = uint64_t{count > 0 ? count : 1} * sizeof(DiskSnRef);
    const InfraPtr<DiskSnRef> snStrArray(static_cast<DiskSnRef *>(g_corvaneInfra.memAlloc(size)));
    if (snStrArray == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "malloc snStrArray failed.");
        return DCM_ERR_NO_MEMORY;
    }
    for (uint32_t i = 0; i < count; i++) {
        snStrArray.get()[i] = SnOf(records[i]->serialNumber);
    }
    return g_dcmStore.serialNumberRefresh(snStrArray.get(), count);
}

extern "C" CORVANE_API uint32_t SaveDiskBaseInfo(cJSON *result, void **records, uint32_t count) noexcept
{
    const uint32_t slotRet = QueryDiskSlotInfo(result, records);
    if (slotRet != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Query disk slot info failed, ret<%d>", slotRet);
    }
    uint32_t lastFailure = DCM_OK;
    for (uint32_t i = 0; i < count; i++) {
        auto *record = static_cast<DiskMgrObj *>(records[i]);
        const uint32_t ret = g_dcmStore.baseInfoSet(SnOf(record->sn), record);
        if (!IsStored(ret)) {
            CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "DiskBaseInfo Set(sn:%s) failed(ret:%d).",
                        BoundedText<DISK_SN_SIZE>(record->sn).Get(), ret);
            lastFailure = ret;
        }
    }
    return lastFailure;
}

extern "C" CORVANE_API uint32_t SaveDiskHealthInfo(cJSON * /*result*/, void **records, uint32_t count) noexcept
{
    uint32_t lastFailure = DCM_OK;
    for (uint32_t i = 0; i < count; i++) {
        auto *record = static_cast<DiskHealthInfoSnWrap *>(records[i]);
        const uint32_t ret = g_dcmStore.healthInfoSet(SnOf(record->serialNumber), &record->info);
        if (!IsStored(ret)) {
            CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "DiskHealthInfo Set(sn:%s) failed(ret:%d).",
                        BoundedText<DISK_SN_SIZE>(record->serialNumber).Get(), ret);
            lastFailure = ret;
        }
    }
    return lastFailure;
}

extern "C" CORVANE_API uint32_t SaveDiskIoInfoFrame(cJSON *result, void **records, uint32_t count) noexcept
{
    uint64_t tickRate = 0;
    uint64_t ticks = 0;
    const uint32_t clockRet = CopyClockTicksInstantFromJSON(result, &tickRate, &ticks);
    if (clockRet != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Copy clock ticks instant failed(%d)", clockRet);
        return clockRet;
    }
    uint32_t lastFailure = DCM_OK;
    for (uint32_t i = 0; i < count; i++) {
        auto *record = static_cast<DiskIoInfoFrameSnWrap *>(records[i]);
        record->frame.tickRate = tickRate;
        record->frame.ticks = ticks;
        const uint32_t ret = g_dcmStore.ioStatInfoSet(SnOf(record->serialNumber), &record->frame);
        if (!IsStored(ret)) {
            CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "DiskIoStatInfo Set(sn:%s) failed(ret:%d).",
                        BoundedText<DISK_SN_SIZE>(record->serialNumber).Get(), ret);
            lastFailure = ret;
        }
    }
    return lastFailure;
}

extern "C" CORVANE_API uint32_t MergeCJsonSlotIdIntoBaseInfo(cJSON *slotResult, cJSON *baseResult) noexcept
{
    if (slotResult == nullptr || baseResult == nullptr) {
        return kMergeNullArgument;
    }
    const cJSON *slots = cJSON_GetObjectItem(slotResult, "disks");
    if (cJSON_IsArray(slots) == 0) {
        return DCM_OK; // nothing checked the slot result before; nothing in it is nothing to merge
    }
    cJSON *disk = nullptr;
    cJSON_ArrayForEach(disk, cJSON_GetObjectItem(baseResult, "disks"))
    {
        const char *deviceName = cJSON_GetStringValue(cJSON_GetObjectItem(disk, "device_name"));
        const cJSON *slot = deviceName == nullptr ? nullptr : FindSlotOfDevice(slots, deviceName);
        const cJSON *slotId = cJSON_GetObjectItem(slot, "slot_id");
        if (cJSON_IsNumber(slotId) == 0) {
            continue;
        }
        if (cJSON_AddNumberToObject(disk, "slot_id", slotId->valuedouble) == nullptr) {
            return DCM_ERR_NO_MEMORY;
        }
    }
    return DCM_OK;
}

extern "C" CORVANE_API uint32_t QueryDiskSlotInfo(cJSON *baseResult, void **records) noexcept
{
    const CJsonPtr request(MakePciAddrCJson(baseResult));
    if (request == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Create Request failed, no memory.");
        return DCM_ERR_NO_MEMORY;
    }
    const CJsonPtr response(PostRequestWithJSON(g_dcmSlotAgent, request.get()));
    if (response == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "PostRequestWithJSON failed");
        return DCM_ERR_POST;
    }
    if (!IsValidJsonResponseHeader(response.get())) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Response(see in debug log) not IsValidJsonResponse.");
        return DCM_ERR_BAD_RESPONSE;
    }
    uint32_t ret = MergeCJsonSlotIdIntoBaseInfo(cJSON_GetObjectItem(response.get(), "result"), baseResult);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Merge slot id json into disk base info json Failed(%d).", ret);
        return DCM_ERR_BAD_RESPONSE;
    }
    ret = CopyBatchFromJSON(MESSAGE_DISK_BASE_INFO, cJSON_GetObjectItem(baseResult, "disks"), records);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM",
                    "Query Agent(unique_DCAK_agent) message(dca_get_disks_slotid) Batch Copy Failed(%d).", ret);
    }
    return ret;
}
