#include "data_collect/data_collect_master/DCM_validate/dcm_validate.h"

#include <array>
#include <cstring>
#include <span>
#include <strings.h>

#include "data_collect/data_collect_master/DCM_query/dcm_query.h"
#include "data_collect/data_collect_master/DCM_validate/dcm_check_list.h"
#include "data_collect/data_collect_master/DCM_validate/dcm_members.h"
#include "data_collect/data_collect_master/dcm_name_maps.h"
#include "infrastructure/common/corvane_log.h"

namespace {

/** The row that names @p item, or null. */
const DiskEnumNameRow *FindName(std::span<const DiskEnumNameRow> names, cJSON *item) noexcept
{
    const char *name = cJSON_GetStringValue(item);
    if (name == nullptr) {
        return nullptr;
    }
    for (const DiskEnumNameRow &row : names) {
        if (strcasecmp(name, row.name) == 0) {
            return &row;
        }
    }
    return nullptr;
}

bool HasDisksUpTo(cJSON *result, uint32_t requestedCount) noexcept
{
    const cJSON *disks = cJSON_GetObjectItem(result, "disks");
    return cJSON_IsArray(disks) && static_cast<uint32_t>(cJSON_GetArraySize(disks)) <= requestedCount;
}

} // namespace

bool IsStringAndNotNull(cJSON *item) noexcept
{
    return cJSON_GetStringValue(item) != nullptr;
}

bool IsJsonNumber(cJSON *item) noexcept
{
    return cJSON_IsNumber(item) != 0;
}

bool IsJsonBoolean(cJSON *item) noexcept
{
    return cJSON_IsBool(item) != 0;
}

bool IsDecimalUintString(cJSON *item) noexcept
{
    const char *text = cJSON_GetStringValue(item);
    if (text == nullptr || *text == '\0') {
        return false;
    }
    while (*text >= '0' && *text <= '9') {
        text++;
    }
    return *text == '\0';
}

bool IsValidDiskType(cJSON *item) noexcept
{
    return FindName(g_diskTypeNameMap, item) != nullptr;
}

bool IsValidDiskMediaType(cJSON *item) noexcept
{
    return FindName(g_diskMediaTypeNameMap, item) != nullptr;
}

bool IsValidPciAddress(cJSON *diskTypeItem, cJSON *pciItem) noexcept
{
    const DiskEnumNameRow *type = FindName(g_diskTypeNameMap, diskTypeItem);
    if (type == nullptr) {
        return false;
    }
    return type->value != DISK_TYPE_SSD_NVME || IsStringAndNotNull(pciItem);
}

bool IsValidJsonWithCheckList(cJSON *json, const CheckRow *list, uint32_t count) noexcept
{
    if (list == nullptr && count != 0) {
        return false;
    }
    return FindCheckedMembers(json, std::span<const CheckRow>(list, count), {});
}

bool IsValidJsonResponseHeader(cJSON *response) noexcept
{
    const char *version = cJSON_GetStringValue(cJSON_GetObjectItem(response, "jsonrpc"));
    return version != nullptr && std::strcmp(version, "2.0") == 0 &&
           IsJsonNumber(cJSON_GetObjectItem(response, "id")) && cJSON_GetObjectItem(response, "result") != nullptr;
}

bool IsValidResultJson(uint32_t messageType, cJSON *result, uint32_t requestedCount) noexcept
{
    if (messageType >= MESSAGE_TYPE_BUTT) {
        return false;
    }
    return g_validateResultJsonStrategyMap[messageType](result, requestedCount);
}

bool IsValidDiskBriefInfoResultJson(cJSON *result) noexcept
{
    const cJSON *disks = cJSON_GetObjectItem(result, "disks");
    if (!cJSON_IsArray(disks)) {
        return false;
    }
    const int size = cJSON_GetArraySize(disks);
    if (size > DCM_DEVICE_LIST_MAX) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "DiskList has too many items(target:%d)(max:%d).", size,
                    DCM_DEVICE_LIST_MAX);
        return false;
    }
    return true;
}

bool IsValidDiskBaseInfoResultJson(cJSON *result, uint32_t requestedCount) noexcept
{
    return HasDisksUpTo(result, requestedCount);
}

bool IsValidDiskHealthInfoResultJson(cJSON *result, uint32_t requestedCount) noexcept
{
    return HasDisksUpTo(result, requestedCount);
}

bool IsValidDiskIoInfoFrameResultJson(cJSON *result, uint32_t requestedCount) noexcept
{
    return HasDisksUpTo(result, requestedCount) && IsDecimalUintString(cJSON_GetObjectItem(result, "tick_rate")) &&
           IsDecimalUintString(cJSON_GetObjectItem(result, "ticks"));
}

bool IsValidDiskBaseInfoJSON(cJSON *item) noexcept
{
    DiskBaseMembers found;
    return FindDiskBaseMembers(item, found);
}

bool IsValidDiskHealthInfoJSON(cJSON *item) noexcept
{
    DiskHealthMembers found;
    return FindDiskHealthMembers(item, found);
}

bool IsValidSataSsdSmartAttrList(cJSON *item) noexcept
{
    std::array<DiskSmartAttr, DISK_SMART_ATTR_NUM> attrs;
    return ReadSmartAttrList(item, attrs);
}
