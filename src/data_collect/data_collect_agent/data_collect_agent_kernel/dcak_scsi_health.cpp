#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_scsi_health.h"

#include <algorithm>
#include <array>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_command.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_log.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_scsi.h"
#include "infrastructure/common/corvane_raii.h"

namespace {

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

using LogPage = std::array<uint8_t, DCAK_SCSI_DATA_SIZE>;

uint32_t BigEndian16(const uint8_t *bytes)
{
    return static_cast<uint32_t>(bytes[0]) << 8 | bytes[1];
}

uint32_t BigEndian32(const uint8_t *bytes)
{
    return BigEndian16(bytes) << 16 | BigEndian16(bytes + 2);
}

/** Runs a command whose builder has filled @p command; for the detail of a class. */
uint32_t RunForDetail(const char *devicePath, DcakCommand &command)
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
    DcakCommand command(data.data());
    InitLogSensePara(&command.param, page);
    return RunForDetail(devicePath, command);
}

/** Runs a command whose builder has filled @p command; for power-on time and wear. */
uint32_t RunForCounter(const char *devicePath, DcakCommand &command)
{
    InitIoHdrComPara(&command.hdr, &command.param);
    if (OpenDevExecIoctl(devicePath, &command.hdr) != 0) {
        DCAK_LOG_FAILURE("OpenDevExecIoctl failed: %s", devicePath);
        return DCAK_FAIL;
    }
    return DcakScsiIoComplete(devicePath, &command.hdr) == 0 ? DCAK_OK : DCAK_FAIL;
}

uint32_t AddTwoNumbers(cJSON *diskObject, const char *first, const char *second, const std::array<uint8_t, 2> &values)
{
    const bool added = cJSON_AddNumberToObject(diskObject, first, values[0]) != nullptr &&
                       cJSON_AddNumberToObject(diskObject, second, values[1]) != nullptr;
    return added ? DCAK_OK : DCAK_FAIL;
}

} // namespace

uint32_t DcakGetScsiPowerOnTime(const char *devicePath, uint32_t *hoursOut) noexcept
{
    *hoursOut = DCAK_POWER_ON_UNKNOWN;
    LogPage page{};
    DcakCommand command(page.data());
    InitPohParm(&command.param);
    if (RunForCounter(devicePath, command) != 0) {
        return DCAK_FAIL;
    }
    *hoursOut = BigEndian32(page.data() + kMinutesOffset) / kMinutesPerHour;
    return DCAK_OK;
}

uint32_t DcakGetSasExDiskPercentage(const char *devicePath, uint32_t *wearOut) noexcept
{
    *wearOut = 0;
    LogPage page{};
    DcakCommand command(page.data());
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
        const uint8_t *param = page + kLogPageHeader + size_t{i} * kWearParamSize;
        if (BigEndian16(param) == kWearParamCode) {
            *wearOut = param[kWearByte];
            return DCAK_OK;
        }
    }
    DCAK_LOG_FAILURE(" mediaParaCnt error");
    return DCAK_WEAR_NONE;
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
    DcakCommand command(data.data());
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
