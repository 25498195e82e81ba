#include "data_collect/data_collect_master/dcm_name_maps.h"

#include <strings.h>

#include "infrastructure/common/corvane_log.h"

QueryMethodNameRow g_queryMethodNameMap[4] = {
    {MESSAGE_DISK_BRIEF_INFO, "dca_get_disks_brief_info"},
    {MESSAGE_DISK_BASE_INFO, "dca_get_disks_base_info"},
    {MESSAGE_DISK_HEALTH_INFO, "dca_get_disks_health_info"},
    {MESSAGE_DISK_IO_INFO_FRAME, "dca_get_disks_iostat"},
};

uint32_t g_ioTimePeriod = 20;

DiskEnumNameRow g_diskTypeNameMap[6] = {
    {DISK_TYPE_SSD_NVME, "SSD_NVMe"}, {DISK_TYPE_SSD_SAS, "SSD_SAS"},   {DISK_TYPE_SSD_SATA, "SSD_SATA"},
    {DISK_TYPE_HDD_SAS, "HDD_SAS"},   {DISK_TYPE_HDD_SATA, "HDD_SATA"}, {DISK_TYPE_HDD_NL_SAS, "HDD_NL_SAS"},
};

DiskEnumNameRow g_diskMediaTypeNameMap[6] = {
    {DISK_MEDIA_TYPE_SLC, "SLC"}, {DISK_MEDIA_TYPE_MLC, "MLC"}, {DISK_MEDIA_TYPE_TLC, "TLC"},
    {DISK_MEDIA_TYPE_QLC, "QLC"}, {DISK_MEDIA_TYPE_PLC, "PLC"}, {DISK_MEDIA_TYPE_MAGNET, "MAGNET"},
};

// The last row is how drives that put their PCI vendor number into the vendor field say the same.
DiskVendorNameRow DiskVendorNameMap[4] = {
    {"VELMAR", DISK_VENDOR_OWN},
    {"ORSTAN", DISK_VENDOR_OWN},
    {"ORSYL", DISK_VENDOR_OWN},
    {"0x1f7c", DISK_VENDOR_OWN},
};

uint32_t ConvertDiskTypeStr2Enum(const char *name) noexcept
{
    for (const DiskEnumNameRow &row : g_diskTypeNameMap) {
        if (name != nullptr && strcasecmp(name, row.name) == 0) {
            return row.value;
        }
    }
    CORVANE_LOG(CORVANE_LOG_ERROR, "DCM",
                "ConvertDiskTypeStr2Enum is called without checkList or IsValidDiskType validation.");
    return DISK_TYPE_BUTT;
}

uint32_t ConvertDiskMediaTypeStr2Enum(const char *name) noexcept
{
    for (const DiskEnumNameRow &row : g_diskMediaTypeNameMap) {
        if (name != nullptr && strcasecmp(name, row.name) == 0) {
            return row.value;
        }
    }
    CORVANE_LOG(CORVANE_LOG_ERROR, "DCM",
                "ConvertDiskMediaTypeStr2Enum is called without checkList or IsValidDiskMediaType validation.");
    return DISK_MEDIA_TYPE_BUTT;
}

uint32_t ParseDiskVendor(cJSON *vendorItem) noexcept
{
    const char *name = cJSON_GetStringValue(vendorItem);
    if (name == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Cannot parse NotStringJson to DiskVendor Enum");
        return DISK_VENDOR_NOT_STRING;
    }
    for (const DiskVendorNameRow &row : DiskVendorNameMap) {
        if (strcasecmp(name, row.name) == 0) {
            return row.value;
        }
    }
    return DISK_VENDOR_OTHER;
}
