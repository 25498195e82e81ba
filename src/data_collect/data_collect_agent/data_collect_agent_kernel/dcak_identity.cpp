#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_identity.h"

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

constexpr const char *kAtaSerialCommand =
    "udevadm info --query=property --name=/dev/%s 2>/dev/null | grep SERIAL_SHORT | awk -F'=' '{print$2}'";
constexpr const char *kSasSerialCommand =
    "udevadm info --query=property --name=/dev/%s 2>/dev/null | grep SCSI_SERIAL | awk -F'=' '{print$2}'";
constexpr const char *kVendorFile = "/sys/block/%s/device/vendor";

constexpr size_t kSysPathSize = 512;
constexpr uint32_t kSerialCommandSize = 512;
constexpr uint32_t kVendorSize = 50;
constexpr uint32_t kVendorMax = 512;
constexpr uint32_t kUdevPathSize = 50;
constexpr uint32_t kSplitMax = 10;

constexpr std::array<const char *, 3> kVssdVendors{"ORSYL", "ORSTAN", "VELMAR"};

/** Path of a file below the real or a test's root of sysfs. */
bool SysPath(const char *pathFormat, const char *deviceName, std::array<char, PATH_MAX> &path)
{
    std::array<char, kSysPathSize> below{};
    return snprintf_s(below.data(), below.size(), below.size() - 1, pathFormat, deviceName) >= 0 &&
           snprintf_s(path.data(), path.size(), path.size() - 1, "%s%s", g_osPaths.sys, below.data()) >= 0;
}

} // namespace

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
