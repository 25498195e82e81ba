#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_disk_info.h"

#include <array>
#include <cstdlib>
#include <cstring>

#include "bounded/bounded.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_identity.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_log.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_lsblk.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_request.h"
#include "infrastructure/common/corvane_raii.h"

namespace {

constexpr const char *kListCommand = "lsblk -S -o NAME,SERIAL,TYPE,VENDOR,MODEL,WWN";
constexpr const char *kFactsCommand = "lsblk -S -o NAME,SERIAL,WWN,REV,SIZE,LOG-SEC,VENDOR -b";

constexpr uint32_t kVendorSize = 50;
constexpr uint32_t kModelSize = 128;
constexpr size_t kCapacitySize = 50;
constexpr size_t kWwnNaaIndex = 2; // "0x5...": the digit behind the prefix tells a registered name

/** Text of a member, or null. */
const char *TextOf(const cJSON *object, const char *name)
{
    return cJSON_GetStringValue(cJSON_GetObjectItem(object, name));
}

bool AddTrimmedText(cJSON *info, const cJSON *row, const char *name)
{
    const char *text = TextOf(row, name);
    cJSON *added = cJSON_AddStringToObject(info, name, text != nullptr ? text : "");
    if (added == nullptr) {
        return false;
    }
    EndTrim(added->valuestring, static_cast<uint32_t>(std::strlen(added->valuestring)));
    return true;
}

/** Some releases print numbers, others texts of digits. */
bool AddNumber(cJSON *info, const cJSON *row, const char *name)
{
    const cJSON *member = cJSON_GetObjectItem(row, name);
    double number = 0;
    if (cJSON_IsNumber(member)) {
        number = member->valuedouble;
    } else if (cJSON_IsString(member) && member->valuestring != nullptr) {
        number = static_cast<double>(std::strtoll(member->valuestring, nullptr, 10));
    }
    return cJSON_AddNumberToObject(info, name, number) != nullptr;
}

CJsonPtr MakeInfo(const cJSON *row)
{
    CJsonPtr info(cJSON_CreateObject());
    const bool added = AddTrimmedText(info.get(), row, "name") && AddTrimmedText(info.get(), row, "serial") &&
                       AddTrimmedText(info.get(), row, "rev") && AddTrimmedText(info.get(), row, "vendor") &&
                       AddNumber(info.get(), row, "size") && AddNumber(info.get(), row, "log-sec");
    return added ? std::move(info) : nullptr;
}

/** What a base request carries from one disk to the next. */
struct BaseBuffers {
    std::array<char, DCAK_SERIAL_SIZE> serial{};
    std::array<char, kVendorSize> vendor{};
    std::array<char, kModelSize> model{};
};

CJsonPtr MakeBase(const cJSON *info, BaseBuffers &buffers)
{
    const char *name = TextOf(info, "name");
    (void)DcakGetSerialNumByUdev(name, DCAK_SERIAL_SIZE, buffers.serial.data());
    std::array<char, kCapacitySize> capacity{};
    const double size = cJSON_GetNumberValue(cJSON_GetObjectItem(info, "size"));
    if (snprintf_s(capacity.data(), capacity.size(), capacity.size() - 1, "%.0f", size) < 0) {
        (void)strcpy_s(capacity.data(), capacity.size(), "0"); // no capacity that could be meant
    }
    std::array<char, DCAK_DEV_PATH_SIZE> path{};
    (void)DevNameToPath(name, DCAK_DEV_PATH_SIZE, path.data());
    (void)DcakGetVendorId(name, path.data(), kVendorSize, buffers.vendor.data());
    const uint32_t type = DcakGetDiskType(name, path.data());
    (void)DcakGetModelNum(name, kModelSize, buffers.model.data());

    CJsonPtr base(cJSON_CreateObject());
    cJSON *object = base.get();
    const bool added =
        cJSON_AddStringToObject(object, "device_name", name) != nullptr &&
        cJSON_AddStringToObject(object, "serial_number", buffers.serial.data()) != nullptr &&
        cJSON_AddStringToObject(object, "firmware_revision", TextOf(info, "rev")) != nullptr &&
        cJSON_AddStringToObject(object, "disk_capacity", capacity.data()) != nullptr &&
        cJSON_AddStringToObject(object, "vendor_id", buffers.vendor.data()) != nullptr &&
        cJSON_AddStringToObject(object, "disk_type", g_DiskTypeStrMap[type]) != nullptr &&
        cJSON_AddStringToObject(object, "model_number", buffers.model.data()) != nullptr &&
        cJSON_AddNumberToObject(object, "sector_size", cJSON_GetObjectItem(info, "log-sec")->valueint) != nullptr &&
        cJSON_AddStringToObject(object, "disk_media_type", "TLC") != nullptr;
    return added ? std::move(base) : nullptr;
}

CJsonPtr MakeBrief(const char *name, const char *serial)
{
    CJsonPtr brief(cJSON_CreateObject());
    const bool added = cJSON_AddStringToObject(brief.get(), "device_name", name) != nullptr &&
                       cJSON_AddStringToObject(brief.get(), "serial_number", serial) != nullptr;
    return added ? std::move(brief) : nullptr;
}

} // namespace

uint32_t DcakDevIsValid(cJSON *lsblkItem) noexcept
{
    const char *type = TextOf(lsblkItem, "type");
    if (type == nullptr || std::strcmp(type, "disk") != 0) {
        return 0;
    }
    const char *model = TextOf(lsblkItem, "model");
    if (model == nullptr || std::strstr(model, "Logical Volume") != nullptr) {
        return 0;
    }
    const char *vendor = TextOf(lsblkItem, "vendor");
    if (vendor == nullptr || std::strstr(vendor, "LSI") != nullptr) {
        return 0;
    }
    const char *wwn = TextOf(lsblkItem, "wwn");
    return wwn != nullptr && std::strlen(wwn) > kWwnNaaIndex && wwn[kWwnNaaIndex] == '5' ? 1 : 0;
}

void DcakGetDevList(cJSON **resultOut) noexcept
{
    // Cleared once: a disk without a serial number of its own repeats that of the disk before.
    std::array<char, DCAK_SERIAL_SIZE> serial{};
    cJSON *tree = nullptr;
    if (DcakExecLsblkCmd(kListCommand, &tree) != 0) {
        DCAK_LOG_FAILURE("exec lsblk cmd fail.");
        return;
    }
    const CJsonPtr owner(tree);
    CJsonPtr disks(cJSON_CreateArray());
    cJSON *row = nullptr;
    cJSON_ArrayForEach(row, cJSON_GetObjectItem(tree, "blockdevices"))
    {
        if (DcakDevIsValid(row) != 1) {
            continue;
        }
        const char *name = TextOf(row, "name");
        if (name == nullptr) {
            DCAK_LOG_FAILURE("device name is NULL.");
            continue;
        }
        (void)DcakGetSerialNumByUdev(name, DCAK_SERIAL_SIZE, serial.data());
        CJsonPtr brief = MakeBrief(name, serial.data());
        if (brief == nullptr || !cJSON_AddItemToArray(disks.get(), brief.get())) {
            return;
        }
        (void)brief.release();
    }
    DCAK_LOG_DETAIL("dev list size:%d", cJSON_GetArraySize(disks.get()));
    const int length = DcakMakeDisksResult(std::move(disks), resultOut);
    DCAK_LOG_DETAIL("DcakGetDevList over, devListLen is %d", length);
}

void DcakGetDiskBaseInfo(cJSON *request, cJSON **resultOut) noexcept
{
    CJsonPtr disks(cJSON_CreateArray());
    BaseBuffers buffers;
    cJSON *device = nullptr;
    cJSON_ArrayForEach(device, DcakRequestDevices(request))
    {
        cJSON *info = nullptr;
        if (GetDiskInfoByLsblkJson(device, &info) != 0) {
            DCAK_LOG_FAILURE("GetDiskInfoByLsblk ERR");
            return;
        }
        const CJsonPtr owner(info);
        CJsonPtr base = MakeBase(info, buffers);
        if (base == nullptr || !cJSON_AddItemToArray(disks.get(), base.get())) {
            return;
        }
        (void)base.release();
    }
    const int length = DcakMakeDisksResult(std::move(disks), resultOut);
    DCAK_LOG_COURSE("DcakGetDiskBaseInfo exec over, devListLen is %d", length);
}

uint32_t GetDiskInfoByLsblkJson(cJSON *deviceItem, cJSON **infoOut) noexcept
{
    const char *deviceName = cJSON_GetStringValue(deviceItem);
    if (CheckCmdStrIsSecure(deviceName) != 1) {
        DCAK_LOG_FAILURE("cmd [%s] contains injection char", deviceName != nullptr ? deviceName : "NULL");
        return DCAK_FAIL;
    }
    cJSON *tree = nullptr;
    if (DcakExecLsblkCmd(kFactsCommand, &tree) != 0) {
        DCAK_LOG_FAILURE("exec lsblk cmd failed.");
        return DCAK_FAIL;
    }
    const CJsonPtr owner(tree);
    const cJSON *row = nullptr;
    cJSON_ArrayForEach(row, cJSON_GetObjectItem(tree, "blockdevices"))
    {
        const char *name = TextOf(row, "name");
        if (name != nullptr && std::strcmp(name, deviceName) == 0) {
            cJSON *info = MakeInfo(row).release();
            if (info == nullptr) {
                return DCAK_FAIL;
            }
            *infoOut = info;
            return DCAK_OK;
        }
    }
    DCAK_LOG_FAILURE("json parse faild");
    return DCAK_FAIL;
}
