#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_smart_info.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>

#include "bounded/bounded.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_disk_info.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_log.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_lsblk.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_scsi.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace {

constexpr uint32_t kVendorSize = 512;
constexpr uint32_t kMinutesPerHour = 60;
constexpr uint32_t kLogPageHeader = 4;
constexpr uint32_t kMinutesOffset = 8; // first parameter of page 0x15, behind page and parameter header

// SPC: each parameter of page 0x11 is 8 bytes, code 1 is the percentage used endurance indicator in its last byte.
constexpr uint32_t kWearParamSize = 8;
constexpr uint16_t kWearParamCode = 1;
constexpr uint32_t kWearByte = 7;
constexpr uint32_t kHundredths = 100;

// Page 0x2F: sense codes of the first parameter; the listed vendors keep their capacitance further behind.
constexpr uint32_t kAscOffset = 8;
constexpr uint32_t kAscqOffset = 9;
constexpr uint32_t kCapacitanceIdOffset = 160;
constexpr uint32_t kCapacitanceStatusOffset = 171;
constexpr uint8_t kPageCodeMask = 0x3F;

// SPC sense data: response codes 0x70 and 0x71 are the fixed format.
constexpr uint8_t kResponseMask = 0x7F;
constexpr uint8_t kResponseFixed = 0x70;
constexpr uint8_t kResponseFixedDeferred = 0x71;
constexpr uint32_t kFixedAsc = 12;
constexpr uint32_t kFixedAscq = 13;
constexpr uint32_t kDescriptorAsc = 2;
constexpr uint32_t kDescriptorAscq = 3;

// ATA SMART pages: 30 attributes of 12 bytes behind a two-byte revision.
constexpr uint32_t kSmartFirst = 2;
constexpr uint32_t kSmartEntrySize = 12;
constexpr uint8_t kSmartPowerOnHours = 9;
constexpr uint32_t kSmartRaw = 5;
constexpr uint8_t kScsiStatusMask = 0x7F;
constexpr uint16_t kOneSector = 1;
constexpr uint32_t kSmartPagesSize = 2 * DCAK_ATA_DATA_SIZE;

using LogPage = std::array<uint8_t, DCAK_SCSI_DATA_SIZE>;

/** The buffers of one command. The data is cleared: what a disk does not return must not be stray memory. */
struct Command {
    std::array<uint8_t, DCAK_CDB_SIZE> cdb{};
    std::array<uint8_t, DCAK_SENSE_SIZE> sense{};
    ScsiIoParam param{};
    sg_io_hdr_t hdr{};

    explicit Command(uint8_t *data) noexcept
    {
        param.cdb = cdb.data();
        param.data = data;
        param.sense = sense.data();
    }
};

uint32_t BigEndian16(const uint8_t *bytes)
{
    return static_cast<uint32_t>(bytes[0]) << 8 | bytes[1];
}

uint32_t BigEndian32(const uint8_t *bytes)
{
    return BigEndian16(bytes) << 16 | BigEndian16(bytes + 2);
}

uint32_t LittleEndian32(const uint8_t *bytes)
{
    return static_cast<uint32_t>(bytes[3]) << 24 | static_cast<uint32_t>(bytes[2]) << 16 |
           static_cast<uint32_t>(bytes[1]) << 8 | bytes[0];
}

/** Runs a command whose builder has filled @p command; for the detail of a class. */
uint32_t RunForDetail(const char *devicePath, Command &command)
{
    InitIoHdrComPara(&command.hdr, &command.param);
    if (OpenDevExecIoctl(devicePath, &command.hdr) != 0) {
        DCAK_LOG_FAILURE("exec ioctl failed, %s", devicePath);
        return DCAK_FAIL;
    }
    if (DcakScsiIoComplete(devicePath, &command.hdr) != 0) {
        DCAK_LOG_FAILURE("DcakScsiIoComplete failed, %s", devicePath);
        return DCAK_FAIL;
    }
    return DCAK_OK;
}

uint32_t ReadLogPage(const char *devicePath, uint8_t page, LogPage &data)
{
    Command command(data.data());
    InitLogSensePara(&command.param, page);
    return RunForDetail(devicePath, command);
}

/** Runs a command whose builder has filled @p command; for power-on time and wear. */
uint32_t RunForCounter(const char *devicePath, Command &command)
{
    InitIoHdrComPara(&command.hdr, &command.param);
    if (OpenDevExecIoctl(devicePath, &command.hdr) != 0) {
        DCAK_LOG_FAILURE("OpenDevExecIoctl failed: %s", devicePath);
        return DCAK_FAIL;
    }
    return DcakScsiIoComplete(devicePath, &command.hdr) == 0 ? DCAK_OK : DCAK_FAIL;
}

/** Runs an ATA command. Its success shows in the SCSI status alone: translated commands report differently else. */
uint32_t RunAta(const char *devicePath, Command &command)
{
    InitIoHdrComPara(&command.hdr, &command.param);
    if (OpenDevExecIoctl(devicePath, &command.hdr) != 0 || (command.hdr.status & kScsiStatusMask) != 0) {
        DCAK_LOG_FAILURE("exec ioctl failed, %s", devicePath);
        return DCAK_FAIL;
    }
    return DCAK_OK;
}

uint8_t *AllocPages(uint32_t size)
{
    auto *pages = static_cast<uint8_t *>(g_osCalls.malloc(size));
    if (pages == nullptr) {
        DCAK_LOG_FAILURE("Alloc page failed.\n");
        return nullptr;
    }
    (void)memset_s(pages, size, 0, size);
    return pages;
}

uint32_t AddTwoNumbers(cJSON *diskObject, const char *first, const char *second, const std::array<uint8_t, 2> &values)
{
    const bool added = cJSON_AddNumberToObject(diskObject, first, values[0]) != nullptr &&
                       cJSON_AddNumberToObject(diskObject, second, values[1]) != nullptr;
    return added ? DCAK_OK : DCAK_FAIL;
}

CJsonPtr MakeAttribute(uint8_t id, uint8_t threshold, uint8_t current, uint8_t worst)
{
    CJsonPtr attribute(cJSON_CreateObject());
    const bool added = cJSON_AddNumberToObject(attribute.get(), "id", id) != nullptr &&
                       cJSON_AddNumberToObject(attribute.get(), "threshold", threshold) != nullptr &&
                       cJSON_AddNumberToObject(attribute.get(), "current_value", current) != nullptr &&
                       cJSON_AddNumberToObject(attribute.get(), "worst", worst) != nullptr;
    DCAK_LOG_DETAIL("id:%d, threshold:%d, cur_val:%d, worst:%d", id, threshold, current, worst);
    return added ? std::move(attribute) : nullptr;
}

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
    const int length = cJSON_GetArraySize(disks.get());
    CJsonPtr result(cJSON_CreateObject());
    if (!cJSON_AddItemToObject(result.get(), "disks", disks.get())) {
        return;
    }
    (void)disks.release();
    *resultOut = result.release();
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

uint32_t DcakGetScsiPowerOnTime(const char *devicePath, uint32_t *hoursOut) noexcept
{
    *hoursOut = DCAK_POWER_ON_UNKNOWN;
    LogPage page{};
    Command command(page.data());
    InitPohParm(&command.param);
    if (RunForCounter(devicePath, command) != 0) {
        return DCAK_FAIL;
    }
    *hoursOut = BigEndian32(page.data() + kMinutesOffset) / kMinutesPerHour;
    return DCAK_OK;
}

uint32_t DcakGetAtaPowerTime(const char *devicePath, uint32_t *hoursOut) noexcept
{
    *hoursOut = 0;
    const MallocPtr<uint8_t> page(AllocPages(DCAK_ATA_DATA_SIZE));
    if (page == nullptr) {
        return DCAK_FAIL;
    }
    Command command(page.get());
    InitSmartDataParam(&command.param, kOneSector);
    if (RunAta(devicePath, command) != 0) {
        return DCAK_FAIL;
    }
    for (uint32_t i = 0; i < DCAK_SMART_ENTRIES; i++) {
        const uint8_t *entry = page.get() + kSmartFirst + i * kSmartEntrySize;
        if (entry[0] == kSmartPowerOnHours) {
            *hoursOut = LittleEndian32(entry + kSmartRaw);
            break;
        }
    }
    return DCAK_OK;
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

uint32_t DcakGetSasExDiskPercentage(const char *devicePath, uint32_t *wearOut) noexcept
{
    *wearOut = 0;
    LogPage page{};
    Command command(page.data());
    InitDiskWearParam(&command.param);
    if (RunForCounter(devicePath, command) != 0) {
        return DCAK_FAIL;
    }
    uint8_t percent = 0;
    if (DcakCalWear(page.data(), &percent) != 0) {
        DCAK_LOG_FAILURE("cal wear err, %s", devicePath);
        return DCAK_FAIL;
    }
    *wearOut = percent * kHundredths;
    return DCAK_OK;
}

uint32_t DcakCalWear(uint8_t *page, uint8_t *wearOut) noexcept
{
    const uint32_t count = std::min(BigEndian16(page + 2) / kWearParamSize, DCAK_WEAR_PARAM_MAX);
    for (uint32_t i = 0; i < count; i++) {
        const uint8_t *param = page + kLogPageHeader + i * kWearParamSize;
        if (BigEndian16(param) == kWearParamCode) {
            *wearOut = param[kWearByte];
            return DCAK_OK;
        }
    }
    DCAK_LOG_FAILURE(" mediaParaCnt error");
    return DCAK_WEAR_NONE;
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

uint32_t SetSsdSataSmartInfo(const char *devicePath, cJSON *diskObject) noexcept
{
    uint8_t *pages = nullptr;
    if (DcakGetSataSmartPageAndData(devicePath, &pages) != 0) {
        DCAK_LOG_FAILURE("DcakGetSataSmartPageAndData ERR, %s", devicePath);
        return DCAK_FAIL;
    }
    const MallocPtr<uint8_t> owner(pages);
    DCAK_LOG_DETAIL("%s smart list is below", devicePath);
    cJSON *list = nullptr;
    if (FormatSmartThresholdAndData(pages, &list) != 0) {
        return DCAK_FAIL;
    }
    if (!cJSON_AddItemToObject(diskObject, "smart_list", list)) {
        cJSON_Delete(list);
        return DCAK_FAIL;
    }
    return DCAK_OK;
}

uint32_t SetSsdSasSmartInfo(const char *devicePath, cJSON *diskObject) noexcept
{
    std::array<uint8_t, 2> sense{};
    if (DcakGetSasSsdSenseData(devicePath, sense.data()) != 0) {
        DCAK_LOG_FAILURE("DcakGetSasSsdSenseData ERR, %s", devicePath);
        return DCAK_FAIL;
    }
    return AddTwoNumbers(diskObject, "ASC", "ASCQ", sense);
}

uint32_t SetVssdSasSmartInfo(const char *devicePath, cJSON *diskObject) noexcept
{
    std::array<uint8_t, 2> capacitance{};
    if (DcakGetSasVssdSmartInfo(devicePath, capacitance.data()) != 0) {
        DCAK_LOG_FAILURE("DcakGetHddSmartInfoCommon ERR %s", devicePath);
        return DCAK_FAIL;
    }
    DCAK_LOG_DETAIL("%s, capid:%d, capStatus:%d", devicePath, capacitance[0], capacitance[1]);
    return AddTwoNumbers(diskObject, "capacitance_id", "capacitance_status", capacitance);
}

uint32_t SetHddSmartInfo(const char *devicePath, cJSON *diskObject) noexcept
{
    std::array<uint8_t, 2> sense{};
    const bool supported = IsSupportIeLog(devicePath);
    if (supported) {
        if (DcakGetHddSmartInfoIeLog(devicePath, sense.data()) != 0) {
            DCAK_LOG_FAILURE("DcakGetHddSmartInfoIeLog ERR, %s", devicePath);
            return DCAK_FAIL;
        }
    } else if (DcakGetHddSmartInfoCommon(devicePath, sense.data()) != 0) {
        DCAK_LOG_FAILURE("DcakGetHddSmartInfoCommon ERR, %s", devicePath);
        return DCAK_FAIL;
    }
    if (cJSON_AddBoolToObject(diskObject, "is_support_ie_log", supported ? 1 : 0) == nullptr) {
        return DCAK_FAIL;
    }
    return AddTwoNumbers(diskObject, "ASC", "ASCQ", sense);
}

uint32_t DcakGetSataSmartPageAndData(const char *devicePath, uint8_t **bufferOut) noexcept
{
    MallocPtr<uint8_t> pages(AllocPages(kSmartPagesSize));
    if (pages == nullptr) {
        return DCAK_FAIL;
    }
    Command thresholds(pages.get());
    InitSmartThresholdParam(&thresholds.param, kOneSector);
    if (RunAta(devicePath, thresholds) != 0) {
        return DCAK_FAIL;
    }
    Command data(pages.get() + DCAK_ATA_DATA_SIZE);
    InitSmartDataParam(&data.param, kOneSector);
    if (RunAta(devicePath, data) != 0) {
        return DCAK_FAIL;
    }
    *bufferOut = pages.release();
    return DCAK_OK;
}

uint32_t FormatSmartThresholdAndData(uint8_t *buffer, cJSON **jsonOut) noexcept
{
    CJsonPtr list(cJSON_CreateArray());
    if (list == nullptr) {
        DCAK_LOG_FAILURE("create jsonArray failed");
        return DCAK_FAIL;
    }
    const uint8_t *data = buffer + DCAK_ATA_DATA_SIZE;
    for (uint32_t i = 0; i < DCAK_SMART_ENTRIES; i++) {
        const uint32_t at = kSmartFirst + i * kSmartEntrySize;
        CJsonPtr attribute = MakeAttribute(buffer[at], buffer[at + 1], data[at + 3], data[at + 4]);
        if (attribute == nullptr || !cJSON_AddItemToArray(list.get(), attribute.get())) {
            return DCAK_FAIL;
        }
        (void)attribute.release();
    }
    *jsonOut = list.release();
    return DCAK_OK;
}

uint32_t DcakGetSasVssdSmartInfo(const char *devicePath, uint8_t *twoBytesOut) noexcept
{
    LogPage page{};
    if (ReadLogPage(devicePath, DCAK_LOG_PAGE_IE, page) != 0) {
        return DCAK_FAIL;
    }
    twoBytesOut[0] = page[kCapacitanceIdOffset];
    twoBytesOut[1] = page[kCapacitanceStatusOffset];
    return DCAK_OK;
}

uint32_t DcakGetSasSsdSenseData(const char *devicePath, uint8_t *twoBytesOut) noexcept
{
    LogPage page{};
    if (ReadLogPage(devicePath, DCAK_LOG_PAGE_VENDOR, page) != 0) {
        return DCAK_FAIL;
    }
    twoBytesOut[0] = page[kAscOffset];
    twoBytesOut[1] = page[kAscqOffset];
    return DCAK_OK;
}

uint32_t DcakGetHddSmartInfoIeLog(const char *devicePath, uint8_t *twoBytesOut) noexcept
{
    LogPage page{};
    if (ReadLogPage(devicePath, DCAK_LOG_PAGE_IE, page) != 0) {
        return DCAK_FAIL;
    }
    twoBytesOut[0] = page[kAscOffset];
    twoBytesOut[1] = page[kAscqOffset];
    return DCAK_OK;
}

uint32_t DcakGetHddSmartInfoCommon(const char *devicePath, uint8_t *twoBytesOut) noexcept
{
    LogPage data{};
    Command command(data.data());
    InitHddCommonParams(&command.param);
    if (RunForDetail(devicePath, command) != 0) {
        return DCAK_FAIL;
    }
    const uint8_t response = data[0] & kResponseMask;
    const bool fixed = response == kResponseFixed || response == kResponseFixedDeferred;
    twoBytesOut[0] = data[fixed ? kFixedAsc : kDescriptorAsc];
    twoBytesOut[1] = data[fixed ? kFixedAscq : kDescriptorAscq];
    return DCAK_OK;
}

bool IsSupportIeLog(const char *devicePath) noexcept
{
    LogPage page{};
    return ReadLogPage(devicePath, DCAK_LOG_PAGE_LIST, page) == 0 && IsIeLogInLogPage(page.data(), DCAK_SCSI_DATA_SIZE);
}

bool IsIeLogInLogPage(uint8_t *buffer, uint32_t length) noexcept
{
    if (length < kLogPageHeader) {
        DCAK_LOG_FAILURE("buf len less than DCAK_SUPP_LOG_PAGE_S");
        return false;
    }
    const uint32_t count = BigEndian16(buffer + 2);
    if (count > length - kLogPageHeader) {
        DCAK_LOG_FAILURE("buf can not get full page");
        return false;
    }
    return std::any_of(buffer + kLogPageHeader, buffer + kLogPageHeader + count,
                       [](uint8_t page) { return (page & kPageCodeMask) == DCAK_LOG_PAGE_IE; });
}
