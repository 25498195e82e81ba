#include "data_collect/data_collect_master/DCM_validate/dcm_members.h"

#include <span>

#include "data_collect/data_collect_master/DCM_validate/dcm_check_list.h"
#include "data_collect/data_collect_master/DCM_validate/dcm_validate.h"
#include "data_collect/data_collect_master/dcm_json_number.h"
#include "data_collect/data_collect_master/dcm_name_maps.h"
#include "infrastructure/common/corvane_log.h"

namespace {

// The order of the rows is the order of the checks: the log names the first member that is wrong. It is also the
// order of the enumerations that index what was found.
constexpr std::array<CheckRow, BRIEF_MEMBER_NUM> kBriefCheckList{{
    {"device_name", IsStringAndNotNull},
    {"serial_number", IsStringAndNotNull},
}};

constexpr std::array<CheckRow, BASE_MEMBER_NUM> kBaseCheckList{{
    {"device_name", IsStringAndNotNull},
    {"serial_number", IsStringAndNotNull},
    {"vendor_id", IsStringAndNotNull},
    {"disk_type", IsValidDiskType},
    {"disk_media_type", IsValidDiskMediaType},
    {"model_number", IsStringAndNotNull},
    {"firmware_revision", IsStringAndNotNull},
    {"disk_capacity", IsDecimalUintString},
    {"sector_size", IsJsonNumber},
}};

constexpr std::array<CheckRow, HEALTH_MEMBER_NUM> kHealthCheckList{{
    {"serial_number", IsStringAndNotNull},
    {"power_on_hours", IsJsonNumber},
    {"wear", IsJsonNumber},
    {"disk_type", IsValidDiskType},
    {"vendor_id", IsStringAndNotNull},
}};

constexpr std::array<CheckRow, 1> kNvmeHealthCheckList{{{"critical_warning", IsJsonNumber}}};
constexpr std::array<CheckRow, 2> kSasVssdHealthCheckList{{
    {"capacitance_id", IsJsonNumber},
    {"capacitance_status", IsJsonNumber},
}};
constexpr std::array<CheckRow, 2> kSasSsdHealthCheckList{{{"ASC", IsJsonNumber}, {"ASCQ", IsJsonNumber}}};
constexpr std::array<CheckRow, 3> kSasHddHealthCheckList{{
    {"is_support_ie_log", IsJsonBoolean},
    {"ASC", IsJsonNumber},
    {"ASCQ", IsJsonNumber},
}};
constexpr std::array<CheckRow, 4> kSmartAttrCheckList{{
    {"id", IsJsonNumber},
    {"threshold", IsJsonNumber},
    {"current_value", IsJsonNumber},
    {"worst", IsJsonNumber},
}};

constexpr std::array<CheckRow, FRAME_MEMBER_NUM> kFrameCheckList{{
    {"serial_number", IsStringAndNotNull},
    {"queue_depth", IsJsonNumber},
    {"io_busy_num", IsJsonNumber},
    {"io_time", IsDecimalUintString},
    {"bytes_read", IsDecimalUintString},
    {"bytes_written", IsDecimalUintString},
    {"num_read_ops", IsDecimalUintString},
    {"num_write_ops", IsDecimalUintString},
    {"read_latency_ticks", IsDecimalUintString},
    {"write_latency_ticks", IsDecimalUintString},
}};

/** Which form of the health detail a disk reports. */
enum class DiskHealthForm { Nvme, SataSsd, SasVssd, SasSsd, SasHdd, None };

uint8_t ToByte(const cJSON *number) noexcept
{
    return JsonNumberToUint<uint8_t>(number);
}

DiskHealthForm HealthForm(uint32_t diskType, cJSON *vendorItem) noexcept
{
    switch (diskType) {
    case DISK_TYPE_SSD_NVME:
        return DiskHealthForm::Nvme;
    case DISK_TYPE_SSD_SATA:
        return DiskHealthForm::SataSsd;
    case DISK_TYPE_SSD_SAS:
        return ParseDiskVendor(vendorItem) == DISK_VENDOR_OWN ? DiskHealthForm::SasVssd : DiskHealthForm::SasSsd;
    case DISK_TYPE_HDD_SAS:
    case DISK_TYPE_HDD_NL_SAS:
        return DiskHealthForm::SasHdd;
    default:
        return DiskHealthForm::None;
    }
}

bool ReadNvmeDetail(cJSON *item, DiskHealthDetail &detail) noexcept
{
    std::array<cJSON *, kNvmeHealthCheckList.size()> found;
    if (!FindCheckedMembers(item, kNvmeHealthCheckList, found)) {
        return false;
    }
    detail.nvme.criticalWarning = ToByte(found[0]);
    return true;
}

bool ReadSataSsdDetail(cJSON *item, DiskHealthDetail &detail) noexcept
{
    // Agents write "smart_list" or "SMART_list"; the lookup does not mind.
    constexpr const char *kMember = "SMART_list";
    if (!ReadSmartAttrList(cJSON_GetObjectItem(item, kMember), detail.sataSsd.attr)) {
        LogCheckListFailure(kMember);
        return false;
    }
    return true;
}

bool ReadSasVssdDetail(cJSON *item, DiskHealthDetail &detail) noexcept
{
    std::array<cJSON *, kSasVssdHealthCheckList.size()> found;
    if (!FindCheckedMembers(item, kSasVssdHealthCheckList, found)) {
        return false;
    }
    detail.sasVssd.capacitanceId = ToByte(found[0]);
    detail.sasVssd.capacitanceStatus = ToByte(found[1]);
    return true;
}

bool ReadSasSsdDetail(cJSON *item, DiskHealthDetail &detail) noexcept
{
    std::array<cJSON *, kSasSsdHealthCheckList.size()> found;
    if (!FindCheckedMembers(item, kSasSsdHealthCheckList, found)) {
        return false;
    }
    detail.sas.asc = ToByte(found[0]);
    detail.sas.ascq = ToByte(found[1]);
    // Every SAS SSD has the informational exceptions log page; agents do not say so.
    detail.sas.isSupportIeLog = 1;
    return true;
}

bool ReadSasHddDetail(cJSON *item, DiskHealthDetail &detail) noexcept
{
    std::array<cJSON *, kSasHddHealthCheckList.size()> found;
    if (!FindCheckedMembers(item, kSasHddHealthCheckList, found)) {
        return false;
    }
    detail.sas.isSupportIeLog = cJSON_IsTrue(found[0]) ? 1 : 0;
    detail.sas.asc = ToByte(found[1]);
    detail.sas.ascq = ToByte(found[2]);
    return true;
}

} // namespace

bool ReadSmartAttrList(cJSON *list, std::span<DiskSmartAttr, DISK_SMART_ATTR_NUM> attrs) noexcept
{
    if (!cJSON_IsArray(list)) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "sataSsdSmartAttrList is not JSON Array.");
        return false;
    }
    if (cJSON_GetArraySize(list) != static_cast<int>(DISK_SMART_ATTR_NUM)) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "sataSsdSmartAttrList length not equal %d.",
                    static_cast<int>(DISK_SMART_ATTR_NUM));
        return false;
    }
    cJSON *entry = list->child;
    for (DiskSmartAttr &attr : attrs) {
        std::array<cJSON *, kSmartAttrCheckList.size()> found;
        if (!FindCheckedMembers(entry, kSmartAttrCheckList, found)) {
            return false;
        }
        attr = {ToByte(found[0]), ToByte(found[1]), ToByte(found[2]), ToByte(found[3])};
        entry = entry->next;
    }
    return true;
}

bool FindDiskBriefMembers(cJSON *item, DiskBriefMembers &found) noexcept
{
    return FindCheckedMembers(item, kBriefCheckList, found);
}

bool FindDiskBaseMembers(cJSON *item, DiskBaseMembers &found) noexcept
{
    if (!FindCheckedMembers(item, kBaseCheckList, found.listed)) {
        return false;
    }
    found.pciAddress = cJSON_GetObjectItem(item, "pci_address");
    return IsValidPciAddress(found.listed[BASE_DISK_TYPE], found.pciAddress);
}

bool FindDiskHealthMembers(cJSON *item, DiskHealthMembers &found) noexcept
{
    if (!FindCheckedMembers(item, kHealthCheckList, found.common)) {
        return false;
    }
    found.detail = {};
    cJSON *vendor = found.common[HEALTH_VENDOR_ID];
    const char *diskType = found.common[HEALTH_DISK_TYPE]->valuestring;
    switch (HealthForm(ConvertDiskTypeStr2Enum(diskType), vendor)) {
    case DiskHealthForm::Nvme:
        return ReadNvmeDetail(item, found.detail);
    case DiskHealthForm::SataSsd:
        return ReadSataSsdDetail(item, found.detail);
    case DiskHealthForm::SasVssd:
        return ReadSasVssdDetail(item, found.detail);
    case DiskHealthForm::SasSsd:
        return ReadSasSsdDetail(item, found.detail);
    case DiskHealthForm::SasHdd:
        return ReadSasHddDetail(item, found.detail);
    case DiskHealthForm::None:
        break;
    }
    CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Unprocessed (diskType,vendor) exist(%s,%s).", diskType, vendor->valuestring);
    return false;
}

bool FindDiskFrameMembers(cJSON *item, DiskFrameMembers &found) noexcept
{
    return FindCheckedMembers(item, kFrameCheckList, found);
}
