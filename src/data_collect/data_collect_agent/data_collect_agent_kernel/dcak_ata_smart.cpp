#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_ata_smart.h"

#include <array>

#include "bounded/bounded.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_command.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_log.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_scsi.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace {

// ATA SMART pages: 30 attributes of 12 bytes behind a two-byte revision.
constexpr uint32_t kSmartFirst = 2;
constexpr uint32_t kSmartEntrySize = 12;
constexpr uint8_t kSmartPowerOnHours = 9;
constexpr uint32_t kSmartRaw = 5;
constexpr uint8_t kScsiStatusMask = 0x7F;
constexpr uint16_t kOneSector = 1;
constexpr uint32_t kSmartPagesSize = 2 * DCAK_ATA_DATA_SIZE;

uint32_t LittleEndian32(const uint8_t *bytes)
{
    return static_cast<uint32_t>(bytes[3]) << 24 | static_cast<uint32_t>(bytes[2]) << 16 |
           static_cast<uint32_t>(bytes[1]) << 8 | bytes[0];
}

/** Runs an ATA command. Its success shows in the SCSI status alone: translated commands report differently else. */
uint32_t RunAta(const char *devicePath, DcakCommand &command)
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

} // namespace

uint32_t DcakGetAtaPowerTime(const char *devicePath, uint32_t *hoursOut) noexcept
{
    *hoursOut = 0;
    const MallocPtr<uint8_t> page(AllocPages(DCAK_ATA_DATA_SIZE));
    if (page == nullptr) {
        return DCAK_FAIL;
    }
    DcakCommand command(page.get());
    InitSmartDataParam(&command.param, kOneSector);
    if (RunAta(devicePath, command) != 0) {
        return DCAK_FAIL;
    }
    for (uint32_t i = 0; i < DCAK_SMART_ENTRIES; i++) {
        const uint8_t *entry = page.get() + kSmartFirst + size_t{i} * kSmartEntrySize;
        if (entry[0] == kSmartPowerOnHours) {
            *hoursOut = LittleEndian32(entry + kSmartRaw);
            break;
        }
    }
    return DCAK_OK;
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

uint32_t DcakGetSataSmartPageAndData(const char *devicePath, uint8_t **bufferOut) noexcept
{
    MallocPtr<uint8_t> pages(AllocPages(kSmartPagesSize));
    if (pages == nullptr) {
        return DCAK_FAIL;
    }
    DcakCommand thresholds(pages.get());
    InitSmartThresholdParam(&thresholds.param, kOneSector);
    if (RunAta(devicePath, thresholds) != 0) {
        return DCAK_FAIL;
    }
    DcakCommand data(pages.get() + DCAK_ATA_DATA_SIZE);
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
