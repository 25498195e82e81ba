#include "data_collect/data_collect_master/DCM_copy/dcm_copy.h"

#include "bounded/bounded.h"
#include "data_collect/data_collect_master/DCM_query/dcm_query.h"
#include "data_collect/data_collect_master/DCM_validate/dcm_members.h"
#include "data_collect/data_collect_master/DCM_validate/dcm_validate.h"
#include "data_collect/data_collect_master/dcm_json_number.h"
#include "data_collect/data_collect_master/dcm_name_maps.h"
#include "infrastructure/common/corvane_log.h"

namespace {

constexpr uint32_t kUnset = 0xFFFFFFFFu;
constexpr uint16_t kWearPerPercent = 100;

/** Copies the text of a checked member into a field of a record; a text too long for it is an error. */
template <size_t size>
uint32_t CopyText(char (&field)[size], const cJSON *member) noexcept
{
    return static_cast<uint32_t>(strcpy_s(field, size, member->valuestring));
}

uint32_t CopyBaseIdentity(const DiskBaseMembers &found, DiskMgrObj &disk) noexcept
{
    uint32_t ret = CopyText(disk.sn, found.listed[BASE_SERIAL_NUMBER]);
    if (ret != DCM_OK) {
        return ret;
    }
    ret = CopyText(disk.deviceName, found.listed[BASE_DEVICE_NAME]);
    if (ret != DCM_OK) {
        return ret;
    }
    return CopyText(disk.vendor, found.listed[BASE_VENDOR_ID]);
}

uint32_t CopyBaseTypeAndAddress(const DiskBaseMembers &found, DiskMgrObj &disk) noexcept
{
    disk.diskType = ConvertDiskTypeStr2Enum(found.listed[BASE_DISK_TYPE]->valuestring);
    if (disk.diskType == DISK_TYPE_SSD_NVME) {
        return CopyText(disk.pciAddr, found.pciAddress);
    }
    return static_cast<uint32_t>(memset_s(disk.pciAddr, sizeof(disk.pciAddr), 0, sizeof(disk.pciAddr)));
}

uint32_t CopyBaseModel(const DiskBaseMembers &found, DiskMgrObj &disk) noexcept
{
    disk.mediaType = ConvertDiskMediaTypeStr2Enum(found.listed[BASE_DISK_MEDIA_TYPE]->valuestring);
    const uint32_t ret = CopyText(disk.model, found.listed[BASE_MODEL_NUMBER]);
    if (ret != DCM_OK) {
        return ret;
    }
    return CopyText(disk.firmware, found.listed[BASE_FIRMWARE_REVISION]);
}

/** The agent knows neither identifier nor state; the slot comes from another method and is merged into the object. */
void SetBaseDefaults(cJSON *item, DiskMgrObj &disk) noexcept
{
    disk.diskId = kUnset;
    disk.diskState = DISK_STATE_KEEP;
    disk.frameId = kUnset;
    disk.slotId = kUnset;
    const cJSON *slotId = cJSON_GetObjectItem(item, "slot_id");
    if (cJSON_IsNumber(slotId)) {
        disk.slotId = JsonNumberToUint<uint32_t>(slotId);
        CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "CopyDiskBaseInfoFromJSON saved slotId<%u>", disk.slotId);
    }
}

} // namespace

uint32_t CopyDiskBriefInfoFromJSON(cJSON *item, void *out) noexcept
{
    DiskBriefMembers found;
    if (out == nullptr || !FindDiskBriefMembers(item, found)) {
        return DCM_ERR_BAD_INPUT;
    }
    auto *brief = static_cast<DiskBriefInfo *>(out);
    const uint32_t ret = CopyText(brief->serialNumber, found[BRIEF_SERIAL_NUMBER]);
    if (ret != DCM_OK) {
        return ret;
    }
    return CopyText(brief->deviceName, found[BRIEF_DEVICE_NAME]);
}

uint32_t CopyDiskBaseInfoFromJSON(cJSON *item, void *out) noexcept
{
    DiskBaseMembers found;
    if (out == nullptr || !FindDiskBaseMembers(item, found)) {
        return DCM_ERR_BAD_INPUT;
    }
    auto *disk = static_cast<DiskMgrObj *>(out);
    uint32_t ret = CopyBaseIdentity(found, *disk);
    if (ret != DCM_OK) {
        return ret;
    }
    ret = CopyBaseTypeAndAddress(found, *disk);
    if (ret != DCM_OK) {
        return ret;
    }
    ret = CopyBaseModel(found, *disk);
    if (ret != DCM_OK) {
        return ret;
    }
    disk->diskCapacity = ConvertDecimalStringJson2Uint64(found.listed[BASE_DISK_CAPACITY]);
    disk->sectorSize = JsonNumberToUint<uint32_t>(found.listed[BASE_SECTOR_SIZE]);
    SetBaseDefaults(item, *disk);
    return DCM_OK;
}

uint32_t CopyDiskHealthInfoSnWrapFromJSON(cJSON *item, void *out) noexcept
{
    DiskHealthMembers found;
    if (out == nullptr || !FindDiskHealthMembers(item, found)) {
        return DCM_ERR_BAD_INPUT;
    }
    auto *health = static_cast<DiskHealthInfoSnWrap *>(out);
    const uint32_t ret = CopyText(health->serialNumber, found.common[HEALTH_SERIAL_NUMBER]);
    if (ret != DCM_OK) {
        return ret;
    }
    const auto wear = JsonNumberToUint<uint16_t>(found.common[HEALTH_WEAR]);
    health->info.powerOnHours = JsonNumberToUint<uint32_t>(found.common[HEALTH_POWER_ON_HOURS]);
    health->info.wearInt = wear / kWearPerPercent;
    health->info.wearFrac = wear % kWearPerPercent;
    health->info.detail = found.detail;
    return DCM_OK;
}

uint32_t CopyDiskIoInfoFrameSnWrapFromJSON(cJSON *item, void *out) noexcept
{
    DiskFrameMembers found;
    if (out == nullptr || !FindDiskFrameMembers(item, found)) {
        return DCM_ERR_BAD_INPUT;
    }
    auto *wrap = static_cast<DiskIoInfoFrameSnWrap *>(out);
    const uint32_t ret = CopyText(wrap->serialNumber, found[FRAME_SERIAL_NUMBER]);
    if (ret != DCM_OK) {
        return ret;
    }
    DiskIoInfoFrame &frame = wrap->frame;
    frame.queueDepth = JsonNumberToUint<uint32_t>(found[FRAME_QUEUE_DEPTH]);
    frame.ioBusyNum = JsonNumberToUint<uint32_t>(found[FRAME_IO_BUSY_NUM]);
    frame.ioTime = ConvertDecimalStringJson2Uint64(found[FRAME_IO_TIME]);
    frame.bytesRead = ConvertDecimalStringJson2Uint64(found[FRAME_BYTES_READ]);
    frame.bytesWritten = ConvertDecimalStringJson2Uint64(found[FRAME_BYTES_WRITTEN]);
    frame.numReadOps = ConvertDecimalStringJson2Uint64(found[FRAME_NUM_READ_OPS]);
    frame.numWriteOps = ConvertDecimalStringJson2Uint64(found[FRAME_NUM_WRITE_OPS]);
    frame.readLatencyTicks = ConvertDecimalStringJson2Uint64(found[FRAME_READ_LATENCY_TICKS]);
    frame.writeLatencyTicks = ConvertDecimalStringJson2Uint64(found[FRAME_WRITE_LATENCY_TICKS]);
    return DCM_OK;
}

uint32_t CopyBatchFromJSON(uint32_t messageType, cJSON *disksArray, void **list) noexcept
{
    if (messageType >= MESSAGE_TYPE_BUTT || disksArray == nullptr || list == nullptr) {
        return DCM_ERR_BAD_INPUT;
    }
    uint16_t index = 0;
    for (cJSON *item = disksArray->child; item != nullptr; item = item->next) {
        const uint32_t ret = g_copyStructFromJsonStrategyMap[messageType](item, list[index]);
        if (ret != DCM_OK) {
            CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Copy(MessageType:%d) failed(%d)", static_cast<int>(messageType),
                        static_cast<int>(ret));
            return ret;
        }
        index++;
    }
    return DCM_OK;
}

uint32_t CopyClockTicksInstantFromJSON(cJSON *result, uint64_t *tickRate, uint64_t *ticks) noexcept
{
    if (tickRate == nullptr || ticks == nullptr) {
        return DCM_ERR_BAD_INPUT;
    }
    cJSON *rateItem = cJSON_GetObjectItem(result, "tick_rate");
    cJSON *ticksItem = cJSON_GetObjectItem(result, "ticks");
    if (rateItem == nullptr || ticksItem == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Malloc failed.");
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Maybe the function is incorrectly used? (not verified in advance).");
        return DCM_ERR_NO_MEMORY;
    }
    *tickRate = ConvertDecimalStringJson2Uint64(rateItem);
    *ticks = ConvertDecimalStringJson2Uint64(ticksItem);
    return DCM_OK;
}

uint64_t ConvertDecimalStringJson2Uint64(cJSON *item) noexcept
{
    const char *text = cJSON_GetStringValue(item);
    if (text == nullptr) {
        return 0;
    }
    uint64_t value = 0;
    for (; *text >= '0' && *text <= '9'; text++) {
        value = value * 10 + static_cast<uint64_t>(*text - '0');
    }
    return value;
}
