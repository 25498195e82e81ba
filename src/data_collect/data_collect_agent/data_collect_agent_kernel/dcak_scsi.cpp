#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_scsi.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>

#include "bounded/bounded.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_log.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace {

constexpr uint32_t kTimeoutMs = 20000;
constexpr uint32_t kCdbLengthLogSense = 10;

// SPC operation codes.
constexpr uint8_t kOpRequestSense = 0x03;
constexpr uint8_t kOpInquiry = 0x12;
constexpr uint8_t kOpLogSense = 0x4D;
constexpr uint8_t kPageControlCumulative = 0x40;
constexpr uint8_t kLogPageSolidState = 0x11;
constexpr uint8_t kLogPageBackgroundScan = 0x15;
constexpr uint8_t kVpdUnitSerial = 0x80;

// The kernel's outcome codes of a host adapter and of the driver above it.
constexpr uint16_t kHostNoConnect = 1;
constexpr uint16_t kHostBusBusy = 2;
constexpr uint16_t kHostTimeOut = 3;
constexpr uint16_t kHostError = 7;
constexpr uint16_t kDriverMask = 0x0f;
constexpr uint16_t kDriverTimeout = 6;
constexpr uint16_t kDriverSense = 8;
constexpr int32_t kResultFailed = -EIO;
constexpr int32_t kResultTimedOut = -ETIMEDOUT;

constexpr uint32_t kSerialPageHeader = 4;
constexpr size_t kSerialMax = 36;
constexpr uint32_t kVendorOffset = 8;
constexpr size_t kVendorSize = 8;

/** Clears the command and sets the lengths. */
void StartCommand(ScsiIoParam *param, uint32_t cdbLength, uint32_t dataLength, uint32_t senseLength)
{
    (void)memset_s(param->cdb, DCAK_CDB_SIZE, 0, DCAK_CDB_SIZE);
    param->cdbLength = cdbLength;
    param->dataLength = dataLength;
    param->senseLength = senseLength;
}

/** The shorter LOG SENSE: current cumulative values are not asked for, 252 bytes at most. */
void LogSenseShort(ScsiIoParam *param, uint8_t page)
{
    StartCommand(param, kCdbLengthLogSense, DCAK_SCSI_DATA_SIZE, DCAK_SENSE_SIZE);
    param->cdb[0] = kOpLogSense;
    param->cdb[2] = page;
    param->cdb[8] = 0xFC;
}

/** What both SMART reads share: the transfer of sectors and the signature that ATA wants for SMART commands. */
void SmartRead(ScsiIoParam *param, uint8_t protocol, uint8_t feature, uint16_t count, uint8_t device)
{
    StartCommand(param, DCAK_CDB_SIZE, DCAK_ATA_DATA_SIZE, DCAK_SENSE_SIZE);
    param->cdb[0] = 0x85; // ATA PASS-THROUGH (16)
    param->cdb[1] = protocol;
    param->cdb[2] = 0x0E; // from the device, in sectors, as many as the count says
    param->cdb[4] = feature;
    param->cdb[5] = static_cast<uint8_t>(count >> CHAR_BIT);
    param->cdb[6] = static_cast<uint8_t>(count & UCHAR_MAX);
    param->cdb[8] = 0x01;
    param->cdb[10] = 0x4F;
    param->cdb[12] = 0xC2;
    param->cdb[13] = device;
    param->cdb[14] = 0xB0; // SMART
}

/** INQUIRY into @p data. */
uint32_t Inquire(const char *devicePath, uint8_t page, uint8_t evpd, uint32_t senseLength,
                 std::array<uint8_t, DCAK_SCSI_DATA_SIZE> &data)
{
    std::array<uint8_t, DCAK_CDB_SIZE> cdb{};
    std::array<uint8_t, DCAK_SENSE_SIZE> sense{};
    ScsiIoParam param = {cdb.data(), 0, data.data(), DCAK_SCSI_DATA_SIZE, sense.data(), senseLength};
    InitInquiryCommonParams(&param, page, evpd);
    sg_io_hdr_t hdr;
    InitIoHdrComPara(&hdr, &param);
    if (OpenDevExecIoctl(devicePath, &hdr) != 0) {
        DCAK_LOG_FAILURE("exec ioctl failed %s", devicePath);
        return DCAK_FAIL;
    }
    if (DcakScsiIoComplete(devicePath, &hdr) != 0) {
        DCAK_LOG_FAILURE("DcakScsiIoComplete failed, %s", devicePath);
        return DCAK_FAIL;
    }
    return DCAK_OK;
}

} // namespace

void InitIoHdrComPara(sg_io_hdr_t *hdr, ScsiIoParam *param) noexcept
{
    (void)memset_s(hdr, sizeof(*hdr), 0, sizeof(*hdr));
    hdr->interface_id = 'S';
    hdr->dxfer_direction = SG_DXFER_FROM_DEV;
    hdr->cmd_len = static_cast<unsigned char>(param->cdbLength);
    hdr->mx_sb_len = static_cast<unsigned char>(param->senseLength);
    hdr->dxfer_len = param->dataLength;
    hdr->dxferp = param->data;
    hdr->cmdp = param->cdb;
    hdr->sbp = param->sense;
    hdr->timeout = kTimeoutMs;
}

void InitPohParm(ScsiIoParam *param) noexcept
{
    LogSenseShort(param, kLogPageBackgroundScan);
}

void InitDiskWearParam(ScsiIoParam *param) noexcept
{
    LogSenseShort(param, kLogPageSolidState);
}

void InitLogSensePara(ScsiIoParam *param, uint8_t page) noexcept
{
    // Ten bytes sent as sixteen, with an allocation length of 0x2080: drives in the field have been read so for years.
    StartCommand(param, DCAK_CDB_SIZE, DCAK_SCSI_DATA_SIZE, DCAK_SENSE_SIZE);
    param->cdb[0] = kOpLogSense;
    param->cdb[2] = page | kPageControlCumulative;
    param->cdb[7] = 0x20;
    param->cdb[8] = 0x80;
}

void InitInquiryCommonParams(ScsiIoParam *param, uint8_t page, uint8_t evpd) noexcept
{
    StartCommand(param, DCAK_CDB_SIZE, param->dataLength, param->senseLength);
    param->cdb[0] = kOpInquiry;
    param->cdb[1] = evpd;
    param->cdb[2] = page;
    param->cdb[4] = static_cast<uint8_t>(param->dataLength & UCHAR_MAX);
}

void InitHddCommonParams(ScsiIoParam *param) noexcept
{
    StartCommand(param, DCAK_CDB_SIZE, DCAK_SCSI_DATA_SIZE, DCAK_SENSE_SIZE);
    param->cdb[0] = kOpRequestSense;
    param->cdb[4] = 0xFF;
}

void InitSmartThresholdParam(ScsiIoParam *param, uint16_t count) noexcept
{
    SmartRead(param, 0x08, 0xD1, count, 0x00);
}

void InitSmartDataParam(ScsiIoParam *param, uint16_t count) noexcept
{
    // Bytes 1 and 13 differ from the thresholds on purpose.
    SmartRead(param, 0x09, 0xD0, count, 0xA0);
}

uint32_t OpenDevExecIoctl(const char *devicePath, sg_io_hdr_t *hdr) noexcept
{
    std::array<char, PATH_MAX> path{};
    if (devicePath == nullptr || hdr == nullptr ||
        snprintf_s(path.data(), path.size(), path.size() - 1, "%s%s", g_osPaths.dev, devicePath) < 0) {
        DCAK_LOG_FAILURE("open dev failed: %s", devicePath != nullptr ? devicePath : "");
        return DCAK_FAIL;
    }
    const UniqueFd fd(g_osCalls.open(path.data(), O_RDWR | O_CLOEXEC));
    if (!fd.Valid()) {
        DCAK_LOG_FAILURE("open dev failed: %s", devicePath);
        return DCAK_FAIL;
    }
    if (g_osCalls.ioctl(fd.Get(), SG_IO, hdr) < 0) {
        const int error = errno;
        std::array<char, 128> buffer{};
        const char *text = strerror_r(error, buffer.data(), buffer.size());
        DCAK_LOG_FAILURE("%s: SG_IO ioctl failed, errno: %d, errstr: %s", devicePath, error, text);
        return DCAK_FAIL;
    }
    return DCAK_OK;
}

int32_t DcakScsiIoComplete(const char *devicePath, sg_io_hdr_t *hdr) noexcept
{
    if ((hdr->info & SG_INFO_OK_MASK) == SG_INFO_OK) {
        return 0;
    }
    const int host = hdr->host_status;
    const int driver = hdr->driver_status & kDriverMask;
    if (host == kHostNoConnect || host == kHostBusBusy || host == kHostTimeOut || driver == kDriverTimeout) {
        DCAK_LOG_FAILURE("%s: IO timed out ", devicePath);
        return kResultTimedOut;
    }
    if (host != kHostError && (driver == kDriverSense || driver == 0)) {
        if (driver == kDriverSense) {
            DCAK_LOG_COURSE("%s: IO check condition", devicePath);
        }
        return 0;
    }
    DCAK_LOG_FAILURE("%s: IO error: host_status: %d, drv_status: %d ", devicePath, host, driver);
    return kResultFailed;
}

uint32_t DcakGetSasVendorId(const char *devicePath, uint32_t size, char *output) noexcept
{
    std::array<uint8_t, DCAK_SCSI_DATA_SIZE> data{};
    if (Inquire(devicePath, 0, 0, DCAK_SENSE_SIZE, data) != 0) {
        return DCAK_FAIL;
    }
    std::array<char, kVendorSize + 1> vendor{};
    (void)memcpy_s(vendor.data(), vendor.size(), data.data() + kVendorOffset, kVendorSize);
    if (snprintf_s(output, size, size - 1, "%.8s", vendor.data()) < 0) {
        return DCAK_FAIL;
    }
    DCAK_LOG_DETAIL("%s venderId:%s", devicePath, output);
    return DCAK_OK;
}

uint32_t DcakGetSerialNumByIoCtl(const char *devicePath, uint32_t size, char *output) noexcept
{
    std::array<uint8_t, DCAK_SCSI_DATA_SIZE> data{};
    if (Inquire(devicePath, kVpdUnitSerial, 1, DCAK_SENSE_SIZE_SHORT, data) != 0) {
        return DCAK_FAIL;
    }
    return DcakCalSerial(data.data(), size, output);
}

uint32_t DcakCalSerial(uint8_t *page, uint32_t size, char *output) noexcept
{
    const uint32_t length = std::min<uint32_t>(page[3], DCAK_SCSI_DATA_SIZE - kSerialPageHeader);
    if (length == 0) {
        DCAK_LOG_FAILURE("serial len less than 0");
        return DCAK_FAIL;
    }
    std::array<char, DCAK_SCSI_DATA_SIZE> serial{};
    size_t count = 0;
    for (uint32_t i = 0; i < length; i++) {
        const uint8_t byte = page[kSerialPageHeader + i];
        if (byte > ' ') {
            serial[count++] = byte == ':' ? ';' : static_cast<char>(byte);
        }
    }
    const char *start = serial.data() + (count > kSerialMax ? count - kSerialMax : 0);
    if (strncpy_s(output, size, start, kSerialMax) != 0) {
        DCAK_LOG_FAILURE("strncpy_s failed");
        return DCAK_FAIL;
    }
    return DCAK_OK;
}
