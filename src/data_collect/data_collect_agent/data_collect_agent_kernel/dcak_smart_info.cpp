#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_smart_info.h"

#include <array>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_ata_smart.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_identity.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_log.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_lsblk.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_request.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_scsi_health.h"
#include "infrastructure/common/corvane_raii.h"

namespace {

constexpr uint32_t kVendorSize = 512;

/** One disk of a health request. @return null if the request is to end. */
CJsonPtr MakeHealth(const char *name, std::array<char, DCAK_SERIAL_SIZE> &serial)
{
    CJsonPtr disk(cJSON_CreateObject());
    if (CheckCmdStrIsSecure(name) != 1) {
        DCAK_LOG_FAILURE("cmd str is not secure, %s", name != nullptr ? name : "NULL");
        return nullptr;
    }
    (void)DcakGetSerialNumByUdev(name, DCAK_SERIAL_SIZE, serial.data());
    if (cJSON_AddStringToObject(disk.get(), "serial_number", serial.data()) == nullptr) {
        return nullptr;
    }
    std::array<char, DCAK_DEV_PATH_SIZE> path{};
    if (DevNameToPath(name, DCAK_DEV_PATH_SIZE, path.data()) != 0) {
        DCAK_LOG_FAILURE("get dev path failed, %s", name);
        return nullptr;
    }
    uint32_t hours = 0;
    (void)DcakGetDiskPowerTime(name, path.data(), &hours);
    uint32_t wear = 0;
    (void)DcakGetExDiskPercentage(name, path.data(), &wear);
    if (cJSON_AddNumberToObject(disk.get(), "power_on_hours", hours) == nullptr ||
        cJSON_AddNumberToObject(disk.get(), "wear", wear) == nullptr) {
        return nullptr;
    }
    if (DackSetSmartInfoByDiskType(name, path.data(), disk.get()) != 0) {
        DCAK_LOG_FAILURE("DackSetSmartInfoByDiskType err, %s", name);
        return nullptr;
    }
    return disk;
}

} // namespace

void DcakGetDiskHealthInfo(cJSON *request, cJSON **resultOut) noexcept
{
    CJsonPtr disks(cJSON_CreateArray());
    std::array<char, DCAK_SERIAL_SIZE> serial{}; // a failed look-up leaves that of the disk before
    const cJSON *device = nullptr;
    cJSON_ArrayForEach(device, DcakRequestDevices(request))
    {
        CJsonPtr disk = MakeHealth(cJSON_GetStringValue(device), serial);
        if (disk == nullptr || !cJSON_AddItemToArray(disks.get(), disk.get())) {
            return;
        }
        (void)disk.release();
    }
    const int length = DcakMakeDisksResult(std::move(disks), resultOut);
    if (length < 0) {
        return;
    }
    DCAK_LOG_COURSE("DcakGetDiskHealthInfo ok, devListLen is %d", length);
}

uint32_t DcakGetDiskPowerTime(const char *deviceName, const char *devicePath, uint32_t *hoursOut) noexcept
{
    const uint32_t type = DcakGetDiskType(deviceName, devicePath);
    switch (type) {
    case DCAK_SSD_SAS:
    case DCAK_VSSD_SAS:
    case DCAK_HDD_SAS:
    case DCAK_HDD_NL_SAS:
        return DcakGetScsiPowerOnTime(devicePath, hoursOut);
    case DCAK_SSD_SATA:
    case DCAK_HDD_SATA:
        return DcakGetAtaPowerTime(devicePath, hoursOut);
    default:
        DCAK_LOG_FAILURE("disk type %s, can not call power time", g_DiskTypeStrMap[type]);
        *hoursOut = 0;
        return DCAK_OK;
    }
}

uint32_t DcakGetExDiskPercentage(const char *deviceName, const char *devicePath, uint32_t *wearOut) noexcept
{
    const uint32_t type = DcakGetDiskType(deviceName, devicePath);
    if (type == DCAK_SSD_SAS || type == DCAK_VSSD_SAS) {
        return DcakGetSasExDiskPercentage(devicePath, wearOut);
    }
    DCAK_LOG_COURSE("disk type %s, can not call wear", g_DiskTypeStrMap[type]);
    *wearOut = 0;
    return DCAK_OK;
}

uint32_t DackSetSmartInfoByDiskType(const char *deviceName, const char *devicePath, cJSON *diskObject) noexcept
{
    const uint32_t type = DcakGetDiskType(deviceName, devicePath);
    std::array<char, kVendorSize> vendor{};
    (void)DcakGetVendorId(deviceName, devicePath, kVendorSize, vendor.data());
    if (cJSON_AddStringToObject(diskObject, "disk_type", g_DiskTypeStrMap[type]) == nullptr ||
        cJSON_AddStringToObject(diskObject, "vendor_id", vendor.data()) == nullptr) {
        return DCAK_FAIL;
    }
    DCAK_LOG_DETAIL("%s disk type is %d, vendorType: %s", deviceName, type, vendor.data());
    uint32_t result = DCAK_FAIL;
    switch (type) {
    case DCAK_SSD_SATA:
        result = SetSsdSataSmartInfo(devicePath, diskObject);
        break;
    case DCAK_SSD_SAS:
        result = SetSsdSasSmartInfo(devicePath, diskObject);
        break;
    case DCAK_VSSD_SAS:
        result = SetVssdSasSmartInfo(devicePath, diskObject);
        break;
    case DCAK_HDD_SAS:
    case DCAK_HDD_SATA:
    case DCAK_HDD_NL_SAS:
        result = SetHddSmartInfo(devicePath, diskObject);
        break;
    default:
        break;
    }
    if (result != 0) {
        DCAK_LOG_FAILURE("%s get smart error", deviceName);
    }
    return result;
}
