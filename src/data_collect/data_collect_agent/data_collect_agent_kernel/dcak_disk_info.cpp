#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_disk_info.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "bounded/bounded.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_log.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_lsblk.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_scsi.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

// The index is an enum DcakDiskType. The master has more vendors for its class of the same name, on purpose.
const char *const g_DiskTypeStrMap[DCAK_DISK_TYPE_BUTT] = {"SSD_NVME", "SSD_SATA", "SSD_SAS",    "SSD_SAS",
                                                           "HDD_SAS",  "HDD_SATA", "HDD_NL_SAS", "ERR TYPE"};

namespace {

constexpr const char *kListCommand = "lsblk -S -o NAME,SERIAL,TYPE,VENDOR,MODEL,WWN";
constexpr const char *kFactsCommand = "lsblk -S -o NAME,SERIAL,WWN,REV,SIZE,LOG-SEC,VENDOR -b";
constexpr const char *kAtaSerialCommand =
    "udevadm info --query=property --name=/dev/%s 2>/dev/null | grep SERIAL_SHORT | awk -F'=' '{print$2}'";
constexpr const char *kSasSerialCommand =
    "udevadm info --query=property --name=/dev/%s 2>/dev/null | grep SCSI_SERIAL | awk -F'=' '{print$2}'";
constexpr const char *kVendorFile = "/sys/block/%s/device/vendor";

constexpr size_t kSysPathSize = 512;
constexpr uint32_t kSerialCommandSize = 512;
constexpr uint32_t kVendorSize = 50;
constexpr uint32_t kVendorMax = 512;
constexpr uint32_t kModelSize = 128;
constexpr uint32_t kUdevPathSize = 50;
constexpr size_t kCapacitySize = 50;
constexpr size_t kWwnNaaIndex = 2; // "0x5...": the digit behind the prefix tells a registered name
constexpr uint32_t kSplitMax = 10;

constexpr std::array<const char *, 3> kVssdVendors{"ORSYL", "ORSTAN", "VELMAR"};

/** Text of a member, or null. */
const char *TextOf(const cJSON *object, const char *name)
{
    return cJSON_GetStringValue(cJSON_GetObjectItem(object, name));
}

/** Path of a file below the real or a test's root of sysfs. */
bool SysPath(const char *pathFormat, const char *deviceName, std::array<char, PATH_MAX> &path)
{
    std::array<char, kSysPathSize> below{};
    return snprintf_s(below.data(), below.size(), below.size() - 1, pathFormat, deviceName) >= 0 &&
           snprintf_s(path.data(), path.size(), path.size() - 1, "%s%s", g_osPaths.sys, below.data()) >= 0;
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

/** Puts @p disks into a result. @return the number of disks, -1 without memory. */
int MakeResult(CJsonPtr disks, cJSON **resultOut)
{
    const int length = cJSON_GetArraySize(disks.get());
    CJsonPtr result(cJSON_CreateObject());
    if (!cJSON_AddItemToObject(result.get(), "disks", disks.get())) {
        return -1;
    }
    (void)disks.release();
    *resultOut = result.release();
    return length;
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

uint32_t DcakGetDiskType(const char *deviceName, const char *devicePath) noexcept
{
    int rotates = 0;
    if (DcakGetSysInfo("/sys/block/%s/queue/rotational", deviceName, "%d", 0, &rotates) != 0) {
        DCAK_LOG_FAILURE("DcakGetSysInfo failed, devName:%s", deviceName);
        return DCAK_ERR_TYPE;
    }
    std::array<char, kVendorSize> vendor{};
    if (DcakGetSysInfo(kVendorFile, deviceName, "%s", kVendorSize, vendor.data()) != 0) {
        DCAK_LOG_FAILURE("DcakGetSysInfo failed, devName:%s", deviceName);
        return DCAK_ERR_TYPE;
    }
    DCAK_LOG_DETAIL("vendorType is %s, %x, rot is %d", vendor.data(), static_cast<unsigned char>(vendor[0]), rotates);
    const bool isAta = std::strcmp(vendor.data(), "ATA") == 0;
    if (rotates == 1) {
        return isAta ? DCAK_HDD_SATA : DCAK_HDD_SAS;
    }
    if (isAta) {
        return DCAK_SSD_SATA;
    }
    if (DcakGetVendorId(deviceName, devicePath, kVendorSize, vendor.data()) != 0) {
        DCAK_LOG_FAILURE("DcakGetVendorId failed, devName:%s", deviceName);
        return DCAK_ERR_TYPE;
    }
    for (const char *vssdVendor : kVssdVendors) {
        if (strcasecmp(vendor.data(), vssdVendor) == 0) {
            return DCAK_VSSD_SAS;
        }
    }
    return DCAK_SSD_SAS;
}

uint32_t DcakGetVendorId(const char *deviceName, const char *devicePath, uint32_t size, char *output) noexcept
{
    // Into a buffer of its own: after a failure the caller's must hold what it held.
    std::array<char, kVendorMax> vendor{};
    const uint32_t room = size < kVendorMax ? size : kVendorMax;
    if (DcakGetSysInfo(kVendorFile, deviceName, "%s", room, vendor.data()) != 0) {
        DCAK_LOG_FAILURE("DcakGetSysInfo, GetVendor Failed %s", deviceName != nullptr ? deviceName : "NULL");
        if (DcakGetSasVendorId(devicePath, room, vendor.data()) != 0 || vendor[0] == '\0') {
            DCAK_LOG_FAILURE("%s is not sas", deviceName != nullptr ? deviceName : "NULL");
            return DCAK_FAIL;
        }
    }
    return strcpy_s(output, size, vendor.data()) == 0 ? DCAK_OK : DCAK_FAIL;
}

uint32_t DcakGetSysInfo(const char *pathFormat, const char *deviceName, const char *scanFormat, uint32_t size,
                        void *output) noexcept
{
    if (pathFormat == nullptr || deviceName == nullptr || scanFormat == nullptr || output == nullptr) {
        return DCAK_FAIL;
    }
    std::array<char, PATH_MAX> path{};
    if (!SysPath(pathFormat, deviceName, path)) {
        DCAK_LOG_FAILURE("%s sprintf_s failed:%s", deviceName, pathFormat);
        return DCAK_FAIL;
    }
    const FilePtr file(g_osCalls.fopen(path.data(), "r"));
    if (file == nullptr) {
        DCAK_LOG_FAILURE("Failed to run command, %s\n", path.data());
        return DCAK_FAIL;
    }
    const int fields = size != 0 ? fscanf_s(file.get(), scanFormat, output, static_cast<size_t>(size))
                                 : fscanf_s(file.get(), scanFormat, output);
    if (fields < 0) {
        DCAK_LOG_FAILURE("fscanf_s failed, %s", path.data());
        return DCAK_FAIL;
    }
    return DCAK_OK;
}

uint32_t DevNameToPath(const char *deviceName, uint32_t size, char *output) noexcept
{
    if (deviceName == nullptr || output == nullptr || size == 0) {
        return DCAK_FAIL;
    }
    return snprintf_s(output, size, size - 1, "/dev/%s", deviceName) >= 0 ? DCAK_OK : DCAK_FAIL;
}

uint32_t DcakGetModelNum(const char *deviceName, uint32_t size, char *output) noexcept
{
    std::array<char, PATH_MAX> path{};
    if (deviceName == nullptr || output == nullptr || size == 0 ||
        !SysPath("/sys/block/%s/device/model", deviceName, path)) {
        DCAK_LOG_FAILURE("snprintf_s ERR\n");
        return DCAK_FAIL;
    }
    const FilePtr file(g_osCalls.fopen(path.data(), "r"));
    if (file == nullptr) {
        DCAK_LOG_FAILURE("Failed to open file\n");
        return DCAK_FAIL;
    }
    if (std::fgets(output, static_cast<int>(size), file.get()) == nullptr) {
        DCAK_LOG_FAILURE("Failed to read file\n");
        return DCAK_FAIL;
    }
    size_t length = std::strlen(output);
    while (length > 0 && (output[length - 1] == '\n' || output[length - 1] == ' ')) {
        output[--length] = '\0';
    }
    return DCAK_OK;
}

uint32_t DcakGetSerialNumByUdev(const char *deviceName, uint32_t size, char *output) noexcept
{
    if (CheckCmdStrIsSecure(deviceName) != 1) {
        DCAK_LOG_FAILURE("dev is NULL.");
        return DCAK_FAIL;
    }
    std::array<char, kUdevPathSize> path{};
    if (DevNameToPath(deviceName, kUdevPathSize, path.data()) != 0) {
        DCAK_LOG_FAILURE("generate dev path failed.");
        return DCAK_FAIL;
    }
    const uint32_t type = DcakGetDiskType(deviceName, path.data());
    const char *format = nullptr;
    switch (type) {
    case DCAK_SSD_SATA:
    case DCAK_HDD_SATA:
        format = kAtaSerialCommand;
        break;
    case DCAK_SSD_SAS:
    case DCAK_VSSD_SAS:
    case DCAK_HDD_SAS:
    case DCAK_HDD_NL_SAS:
        format = kSasSerialCommand;
        break;
    default:
        DCAK_LOG_FAILURE("Disk type is not SATA or SAS.");
        return DCAK_FAIL;
    }
    std::array<char, kSerialCommandSize> command{};
    if (snprintf_s(command.data(), command.size(), command.size() - 1, format, deviceName) < 0) {
        DCAK_LOG_FAILURE("snprintf_s failed: %s, input: %s, disktype: %u.", format, deviceName, type);
        return DCAK_FAIL;
    }
    std::array<char, kSerialCommandSize> text{};
    if (DcakExecCmd(command.data(), kSerialCommandSize, text.data()) != 0) {
        DCAK_LOG_FAILURE("exec cmd failed, dev: %s, disktype: %u.", deviceName, type);
        return DCAK_FAIL;
    }
    char *rest = nullptr;
    const char *serial = strtok_r(text.data(), "\n", &rest);
    if (serial == nullptr) {
        DCAK_LOG_FAILURE("sn retrieved is NULL, disktype: %u.", type);
        return DCAK_FAIL;
    }
    // The length first, because a failed copy would clear what the caller wants kept.
    if (std::strlen(serial) >= size || strcpy_s(output, size, serial) != 0) {
        DCAK_LOG_FAILURE("strcpy_s failed, dev: %s, diskType: %u.", deviceName, type);
        return DCAK_FAIL;
    }
    return DCAK_OK;
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
    const int length = MakeResult(std::move(disks), resultOut);
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
    const int length = MakeResult(std::move(disks), resultOut);
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

uint32_t DcakGetSerialNum(const char *deviceName, uint32_t size, char *output) noexcept
{
    if (CheckCmdStrIsSecure(deviceName) != 1 || output == nullptr) {
        return DCAK_FAIL;
    }
    std::array<char, kSysPathSize> command{};
    const MallocPtr<char> text(static_cast<char *>(g_osCalls.malloc(DCAK_CMD_OUTPUT_SIZE)));
    if (text == nullptr ||
        snprintf_s(command.data(), command.size(), command.size() - 1, "lsblk -S -o NAME,SERIAL | grep %s",
                   deviceName) < 0 ||
        DcakExecCmd(command.data(), DCAK_CMD_OUTPUT_SIZE, text.get()) != 0) {
        DCAK_LOG_FAILURE("exec cmd failed, %s", deviceName);
        return DCAK_FAIL;
    }
    std::array<char *, kSplitMax> tokens{};
    const uint32_t count = StrSplit(text.get(), " ", kSplitMax, tokens.data());
    if (count < 2) {
        DCAK_LOG_FAILURE("StrSplit failed, %s", deviceName);
        StrTokensFree(tokens.data(), count);
        return DCAK_FAIL;
    }
    // The last column is not padded, so the line feed stays at the token; the next line, if any, hangs behind it.
    tokens[1][std::strcspn(tokens[1], "\n")] = '\0';
    const bool copied = strcpy_s(output, size, tokens[1]) == 0;
    StrTokensFree(tokens.data(), count);
    if (!copied) {
        DCAK_LOG_FAILURE("strcpy_s failed, %s", deviceName);
        return DCAK_FAIL;
    }
    return DCAK_OK;
}

cJSON *DcakRequestDevices(cJSON *request) noexcept
{
    cJSON *devices = cJSON_GetObjectItem(cJSON_GetObjectItem(request, "params"), "devices");
    return cJSON_IsArray(devices) ? devices : nullptr;
}
