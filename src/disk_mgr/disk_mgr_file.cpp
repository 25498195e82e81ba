#include "disk_mgr/disk_mgr_file.h"

#include <array>
#include <cinttypes>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "bounded/bounded.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"

DiskConfigCheckRow g_diskConfigCjsonCheckList[DISK_CHECK_ROWS] = {
    {DISK_CHECK_DISK_ID, "diskId", CheckCJsonNumValue},
    {DISK_CHECK_DISK_STATE, "diskState", CheckCJsonNumValue},
    {DISK_CHECK_FRAME_ID, "frameId", CheckCJsonNumValue},
    {DISK_CHECK_SLOT_ID, "slotId", CheckCJsonNumValue},
    {DISK_CHECK_DISK_CAPACITY, "diskCapacity", CheckCJsonStrValue},
    {DISK_CHECK_SECTOR_SIZE, "sectorSize", CheckCJsonNumValue},
    {DISK_CHECK_VENDOR, "vendor", CheckCJsonStrValue},
    {DISK_CHECK_MODEL, "model", CheckCJsonStrValue},
    {DISK_CHECK_FIRMWARE, "firmware", CheckCJsonStrValue},
    {DISK_CHECK_SN, "sn", CheckCJsonStrValue},
    {DISK_CHECK_PCI_ADDR, "pciAddr", CheckCJsonStrValue},
    {DISK_CHECK_DISK_TYPE, "diskType", CheckCJsonNumValue},
    {DISK_CHECK_MEDIA_TYPE, "mediaType", CheckCJsonNumValue},
    {DISK_CHECK_LIMIT, "Check Step Limit", CheckCJsonError},
};

namespace {

constexpr const char *kModule = "DISK_MGR";
constexpr uint32_t kCapacityTextSize = 30;
constexpr const char *kUnknownDevice = "unknown";
/** States a file may hold; an offline disk never belongs in it. */
constexpr uint32_t kStoredStateLimit = DISK_STATE_KEEP;

/** A member of the registry file as the load reads it: below 0 counts as 0, a fraction is cut off. */
uint32_t SaturateToU32(double value) noexcept
{
    if (!(value > 0)) { // NaN as well
        return 0;
    }
    return value >= static_cast<double>(UINT32_MAX) ? UINT32_MAX : static_cast<uint32_t>(value);
}

uint32_t NumberOf(const cJSON *entry, const char *key) noexcept
{
    return SaturateToU32(cJSON_GetNumberValue(cJSON_GetObjectItem(entry, key)));
}

const char *TextOf(const cJSON *entry, const char *key) noexcept
{
    return cJSON_GetStringValue(cJSON_GetObjectItem(entry, key));
}

/** Adds a record's text. A field that is full has no terminator of its own. */
template <size_t N>
uint32_t AddField(cJSON *entry, const char *key, const char (&field)[N]) noexcept
{
    return DiskMgrAddStringToCJson(entry, key, BoundedText<N>(field).Get());
}

uint32_t AddCapacity(cJSON *entry, uint64_t capacity) noexcept
{
    std::array<char, kCapacityTextSize> text{};
    if (snprintf_s(text.data(), text.size(), text.size() - 1, "%" PRIu64, capacity) < 0) {
        return DISK_FILE_ERR_FAIL;
    }
    return DiskMgrAddStringToCJson(entry, "diskCapacity", text.data());
}

bool IsDecimal(const char *text) noexcept
{
    char *end = nullptr;
    (void)std::strtol(text, &end, 10);
    return *end == '\0';
}

} // namespace

uint32_t DiskMgrAddNumToCJson(cJSON *obj, const char *name, double value) noexcept
{
    if (cJSON_AddNumberToObject(obj, name, value) == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "DiskMgrAddNumToCJson fail, cJSON_AddNumberToObject get NULL");
        return DISK_FILE_ERR_FAIL;
    }
    return 0;
}

uint32_t DiskMgrAddStringToCJson(cJSON *obj, const char *name, const char *value) noexcept
{
    const char *stored = nullptr;
    if (value != nullptr && cJSON_AddStringToObject(obj, name, value) != nullptr) {
        stored = cJSON_GetStringValue(cJSON_GetObjectItem(obj, name));
    }
    if (stored == nullptr || std::strcmp(stored, value) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "DiskMgrAddStringToCJson fail, valueName = %s value = %s",
                    TextOrNull(name), TextOrNull(value));
        return DISK_FILE_ERR_FAIL;
    }
    return 0;
}

cJSON *ConvertSingleDiskMgrObj2cJSON(DiskMgrObj *obj) noexcept
{
    if (obj == nullptr) {
        return nullptr;
    }
    CJsonPtr entry(cJSON_CreateObject());
    if (entry == nullptr || DiskMgrAddNumToCJson(entry.get(), "diskId", obj->diskId) != 0 ||
        DiskMgrAddNumToCJson(entry.get(), "diskState", obj->diskState) != 0 ||
        DiskMgrAddNumToCJson(entry.get(), "frameId", obj->frameId) != 0 ||
        DiskMgrAddNumToCJson(entry.get(), "slotId", obj->slotId) != 0 ||
        DiskMgrAddNumToCJson(entry.get(), "sectorSize", obj->sectorSize) != 0 ||
        DiskMgrAddNumToCJson(entry.get(), "diskType", obj->diskType) != 0 ||
        DiskMgrAddNumToCJson(entry.get(), "mediaType", obj->mediaType) != 0 ||
        AddCapacity(entry.get(), obj->diskCapacity) != 0 || AddField(entry.get(), "vendor", obj->vendor) != 0 ||
        AddField(entry.get(), "model", obj->model) != 0 || AddField(entry.get(), "sn", obj->sn) != 0 ||
        AddField(entry.get(), "pciAddr", obj->pciAddr) != 0 || AddField(entry.get(), "firmware", obj->firmware) != 0) {
        return nullptr;
    }
    return entry.release();
}

uint32_t ConvertDiskMgrObjs2cJSON(DiskMgrObj **objs, int32_t count, cJSON **json) noexcept
{
    if (objs == nullptr || json == nullptr) {
        return DISK_FILE_ERR_FAIL;
    }
    *json = nullptr;
    CJsonPtr array(cJSON_CreateArray());
    if (array == nullptr) {
        return DISK_FILE_ERR_FAIL;
    }
    for (int32_t i = 0; i < count; i++) {
        if (objs[i] == nullptr) {
            continue;
        }
        CJsonPtr entry(ConvertSingleDiskMgrObj2cJSON(objs[i]));
        if (entry == nullptr) {
            CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "ConvertSingleDiskMgrObj2cJSON fail diskid = %d", objs[i]->diskId);
            return DISK_FILE_ERR_FAIL;
        }
        if (!cJSON_AddItemToArray(array.get(), entry.get())) {
            CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "cJSON_AddItemToArray fail");
            return DISK_FILE_ERR_FAIL;
        }
        (void)entry.release(); // the array owns it now
    }
    *json = array.release();
    return 0;
}

uint32_t CheckUIntInRange(uint32_t value, uint32_t low, uint32_t high) noexcept
{
    if (low >= high) {
        CORVANE_LOG(CORVANE_LOG_WARN, kModule, "CheckUIntInRange Func input error param.");
        return DISK_FILE_ERR_FAIL;
    }
    return value >= low && value < high ? 0 : DISK_FILE_ERR_FAIL;
}

uint32_t CheckStrInLimitLength(const char *text, uint32_t limit) noexcept
{
    if (text == nullptr || strnlen(text, limit) >= limit) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Value string len is beyond len limit.");
        return DISK_FILE_ERR_FAIL;
    }
    return 0;
}

uint32_t CheckCJsonNumValue(cJSON *item, uint32_t step) noexcept
{
    const double number = cJSON_GetNumberValue(item);
    if (std::isnan(number)) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Value number is not a number.");
        return DISK_FILE_ERR_FAIL;
    }
    const uint32_t value = SaturateToU32(number);
    switch (step) {
    case DISK_CHECK_DISK_ID:
        return CheckUIntInRange(value, 0, DISK_ID_MAX);
    case DISK_CHECK_DISK_STATE:
        return value == DISK_STATE_OFFLINE ? DISK_FILE_ERR_FAIL : CheckUIntInRange(value, 0, kStoredStateLimit);
    case DISK_CHECK_FRAME_ID:
    case DISK_CHECK_SLOT_ID:
    case DISK_CHECK_SECTOR_SIZE:
        return 0;
    case DISK_CHECK_DISK_TYPE:
        return CheckUIntInRange(value, 0, DISK_TYPE_BUTT);
    case DISK_CHECK_MEDIA_TYPE:
        return CheckUIntInRange(value, 0, DISK_MEDIA_TYPE_BUTT);
    default:
        CORVANE_LOG(CORVANE_LOG_WARN, kModule, "CheckCJsonNumValue Func input error param(%d).", step);
        return 0;
    }
}

uint32_t CheckCJsonStrValue(cJSON *item, uint32_t step) noexcept
{
    const char *text = cJSON_GetStringValue(item);
    if (text == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Value string not exist.");
        return DISK_FILE_ERR_FAIL;
    }
    switch (step) {
    case DISK_CHECK_DISK_CAPACITY:
        return CheckStrInLimitLength(text, kCapacityTextSize) == 0 && IsDecimal(text) ? 0 : DISK_FILE_ERR_FAIL;
    case DISK_CHECK_VENDOR:
        return CheckStrInLimitLength(text, sizeof(DiskMgrObj::vendor));
    case DISK_CHECK_MODEL:
        return CheckStrInLimitLength(text, sizeof(DiskMgrObj::model));
    case DISK_CHECK_FIRMWARE:
        return CheckStrInLimitLength(text, sizeof(DiskMgrObj::firmware));
    case DISK_CHECK_SN:
        return CheckStrInLimitLength(text, sizeof(DiskMgrObj::sn));
    case DISK_CHECK_PCI_ADDR:
        return CheckStrInLimitLength(text, sizeof(DiskMgrObj::pciAddr));
    default:
        CORVANE_LOG(CORVANE_LOG_WARN, kModule, "CheckStrLenInLimit Func input error param(%d).", step);
        return 0;
    }
}

uint32_t CheckCJsonError(cJSON *, uint32_t) noexcept
{
    CORVANE_LOG(CORVANE_LOG_WARN, kModule, "It Seem Check Step Not Match Number Need To Be Save");
    return DISK_FILE_ERR_FAIL;
}

uint32_t CheckCJsonIsValidDiskInfo(cJSON *json) noexcept
{
    if (json == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Check Disk Mgr Obj CJson Fail, Bad Param(NULL).");
        return DISK_FILE_ERR_FAIL;
    }
    for (uint32_t step = 0; step < DISK_CHECK_LIMIT; step++) {
        const DiskConfigCheckRow &row = g_diskConfigCjsonCheckList[step];
        cJSON *item = cJSON_GetObjectItem(json, row.key);
        if (item == nullptr) {
            CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Check Disk Mgr Obj CJson Fail, Member %s not exist.", row.key);
        }
        if (row.check(item, row.step) != 0) {
            CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Check Disk Mgr Obj CJson Fail, (%s).", row.key);
            return DISK_FILE_ERR_FAIL;
        }
    }
    return 0;
}

uint32_t ParseCJson2DiskInfo(cJSON *json, DiskMgrObj *obj) noexcept
{
    const uint32_t checked = obj != nullptr ? CheckCJsonIsValidDiskInfo(json) : DISK_FILE_ERR_FAIL;
    if (checked != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Parse CJson to Disk Info fail, Vaild format (ret = %d).",
                    static_cast<int32_t>(checked));
        return DISK_FILE_ERR_FAIL;
    }
    obj->diskId = NumberOf(json, "diskId");
    obj->diskState = NumberOf(json, "diskState");
    obj->frameId = NumberOf(json, "frameId");
    obj->slotId = NumberOf(json, "slotId");
    obj->sectorSize = NumberOf(json, "sectorSize");
    obj->diskType = NumberOf(json, "diskType");
    obj->mediaType = NumberOf(json, "mediaType");
    obj->diskCapacity = static_cast<uint64_t>(std::strtol(TextOf(json, "diskCapacity"), nullptr, 10));
    int failures = strcpy_s(obj->vendor, sizeof(obj->vendor), TextOf(json, "vendor"));
    failures |= strcpy_s(obj->model, sizeof(obj->model), TextOf(json, "model"));
    failures |= strcpy_s(obj->sn, sizeof(obj->sn), TextOf(json, "sn"));
    failures |= strcpy_s(obj->pciAddr, sizeof(obj->pciAddr), TextOf(json, "pciAddr"));
    failures |= strcpy_s(obj->firmware, sizeof(obj->firmware), TextOf(json, "firmware"));
    failures |= strcpy_s(obj->deviceName, sizeof(obj->deviceName), kUnknownDevice);
    return static_cast<uint32_t>(failures);
}
