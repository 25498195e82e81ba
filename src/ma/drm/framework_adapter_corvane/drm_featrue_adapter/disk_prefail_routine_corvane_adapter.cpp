#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/disk_prefail_routine_corvane_adapter.h"

#include <bounded/bounded.h>
#include <string_view>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/drm_feature_adapter_intf.h"

namespace {

constexpr const char *kModule = "DRM_FEATURE";
/** PCI vendor identifier of the SAS SSDs that report their capacitors, as they give it for a vendor. */
constexpr std::string_view kCapacitorVendor = "0x1f7c";

constexpr uint32_t kAvailableSpareBit = 0;
constexpr uint32_t kTemperatureBit = 1;
constexpr uint32_t kReliabilityBit = 2;
constexpr uint32_t kReadOnlyBit = 3;
constexpr uint32_t kVolatileMemoryBackupBit = 4;

uint32_t ReadHealth(uint32_t diskId, DiskHealthInfo *out) noexcept
{
    const uint32_t ret = GetCorvaneInfo(diskId, out);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Get disk(%u) info fail, ret(%d).", diskId, static_cast<int>(ret));
    }
    return ret;
}

uint32_t ReadSense(uint32_t diskId, void *out) noexcept
{
    DiskHealthInfo health{};
    const uint32_t ret = ReadHealth(diskId, &health);
    if (ret != 0) {
        return ret;
    }
    auto *sense = static_cast<DrmSasSenseInfo *>(out);
    sense->asc = health.detail.sas.asc;
    sense->ascq = health.detail.sas.ascq;
    sense->isSupportIeLog = health.detail.sas.isSupportIeLog;
    return DRM_OK;
}

uint32_t CapacitorGroup(uint32_t diskType, uint32_t *out) noexcept
{
    switch (diskType) {
    case DISK_TYPE_SSD_NVME:
        *out = DRM_PREFAIL_NVME;
        return DRM_OK;
    case DISK_TYPE_SSD_SAS:
        *out = DRM_PREFAIL_SAS_VSSD;
        return DRM_OK;
    default:
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Drm featue didn't support velmar disktyepe(%u)", diskType);
        return DRM_ERR_FAIL;
    }
}

} // namespace

extern "C" {

uint32_t TransDiskGroup(uint32_t diskType, const char *vendor, uint32_t *out) noexcept
{
    if (vendor != nullptr && kCapacitorVendor == vendor) {
        return CapacitorGroup(diskType, out);
    }
    switch (diskType) {
    case DISK_TYPE_SSD_NVME:
        *out = DRM_PREFAIL_NVME;
        return DRM_OK;
    case DISK_TYPE_SSD_SAS:
        *out = DRM_PREFAIL_SAS_SSD;
        return DRM_OK;
    case DISK_TYPE_SSD_SATA:
        *out = DRM_PREFAIL_SATA_SSD;
        return DRM_OK;
    case DISK_TYPE_HDD_SAS:
    case DISK_TYPE_HDD_NL_SAS:
        *out = DRM_PREFAIL_SAS_HDD;
        return DRM_OK;
    default:
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Drm featue didn't support disktyepe(%u)", diskType);
        return DRM_ERR_FAIL;
    }
}

uint32_t DrmGetPrefailDiskGroup(uint32_t diskId, uint32_t *out) noexcept
{
    DiskMgrObj baseInfo{};
    if (DrmReadBaseInfo(diskId, &baseInfo) != 0) {
        return DRM_ERR_FAIL;
    }
    const BoundedText<sizeof(baseInfo.vendor)> vendor(baseInfo.vendor);
    const uint32_t ret = TransDiskGroup(baseInfo.diskType, vendor.Get(), out);
    if (ret != DRM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Disk(%u) type(%u) not support, vender(%s), ret(%d).", diskId,
                    baseInfo.diskType, vendor.Get(), static_cast<int>(ret));
    }
    return ret;
}

uint32_t GetCorvaneInfo(uint32_t diskId, DiskHealthInfo *out) noexcept
{
    DiskMgrObj baseInfo{};
    if (DrmReadBaseInfo(diskId, &baseInfo) != 0) {
        return DRM_ERR_FAIL;
    }
    const uint32_t ret = DiskHealthInfoGet(diskId, DrmSnOf(baseInfo), out, sizeof(*out));
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Get disk(%u) sn(%s) health info fail, ret(%d).", diskId,
                    BoundedText<DISK_SN_SIZE>(baseInfo.sn).Get(), static_cast<int>(ret));
    }
    return ret;
}

uint32_t DrmAtaGetSmartInfo(uint32_t diskId, void *out, uint32_t entries) noexcept
{
    DiskHealthInfo health{};
    const uint32_t ret = ReadHealth(diskId, &health);
    if (ret != 0) {
        return ret;
    }
    constexpr auto expected = static_cast<uint32_t>(sizeof(health.detail.sataSsd.attr));
    if (entries != DISK_SMART_ATTR_NUM) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule,
                    "Sata smart log entry diffent disk(%u), expected size(%u), actuality size(%u)", diskId, expected,
                    entries * static_cast<uint32_t>(sizeof(DiskSmartAttr)));
        return DRM_ERR_FAIL;
    }
    return memcpy_s(out, expected, health.detail.sataSsd.attr, expected) == 0 ? DRM_OK : DRM_ERR_FAIL;
}

uint32_t DrmSasSsdGetIElogInfo(uint32_t diskId, void *out) noexcept
{
    return ReadSense(diskId, out);
}

uint32_t DrmSasVssdGetLogInfo(uint32_t diskId, void *out) noexcept
{
    DiskHealthInfo health{};
    const uint32_t ret = ReadHealth(diskId, &health);
    if (ret != 0) {
        return ret;
    }
    auto *capacitor = static_cast<DrmSasVssdLogInfo *>(out);
    capacitor->capacitanceId = health.detail.sasVssd.capacitanceId;
    capacitor->capacitanceStatus = health.detail.sasVssd.capacitanceStatus;
    return DRM_OK;
}

uint32_t DrmNvmeGetICritWarning(uint32_t diskId, DrmNvmeCritWarning *out) noexcept
{
    DiskHealthInfo health{};
    const uint32_t ret = ReadHealth(diskId, &health);
    if (ret != 0) {
        return ret;
    }
    const uint32_t warning = health.detail.nvme.criticalWarning;
    out->availableSpare = (warning >> kAvailableSpareBit) & 1u;
    out->temperature = (warning >> kTemperatureBit) & 1u;
    out->reliability = (warning >> kReliabilityBit) & 1u;
    out->readOnly = (warning >> kReadOnlyBit) & 1u;
    out->volatileMemoryBackup = (warning >> kVolatileMemoryBackupBit) & 1u;
    return DRM_OK;
}

uint32_t DrmSasHddGetSenseInfo(uint32_t diskId, void *out) noexcept
{
    return ReadSense(diskId, out);
}

uint32_t DrmReportDiskPrefail(uint32_t diskId) noexcept
{
    DiskMgrObj baseInfo{};
    if (DrmReadBaseInfo(diskId, &baseInfo) != 0) {
        return DRM_ERR_FAIL;
    }
    if (baseInfo.diskState != DISK_STATE_NORMAL) {
        return DRM_OK;
    }
    CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Find prefail disk(%u).", diskId);
    (void)DiskStateSet(diskId, DrmSnOf(baseInfo), DISK_STATE_PREFAIL); // a normal disk is reported again next time
    return DRM_OK;
}

} // extern "C"
