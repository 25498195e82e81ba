#include "ma/drm/framework_adapter_corvane/drm_featrue_adapter/drm_feature_adapter_intf.h"

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "infrastructure/common/corvane_log.h"
#include "ma/drm/framework/drm_base.h"

namespace {

constexpr const char *kModule = "DRM_FEATURE";

} // namespace

uint32_t DrmReadBaseInfo(uint32_t diskId, DiskMgrObj *out) noexcept
{
    const uint32_t ret = DiskBaseInfoCliGet(diskId, out, sizeof(*out));
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Get disk(%u) baseinfo fail, ret(%d).", diskId, static_cast<int>(ret));
    }
    return ret;
}

DiskSnRef DrmSnOf(DiskMgrObj &baseInfo) noexcept
{
    // A serial number may use its whole field, without a terminator.
    return {.len = static_cast<uint32_t>(strnlen(baseInfo.sn, sizeof(baseInfo.sn))), .buf = baseInfo.sn};
}

extern "C" {

uint32_t TransDiskType(uint32_t diskType, uint32_t *out) noexcept
{
    switch (diskType) {
    case DISK_TYPE_SSD_NVME:
        *out = DRM_NVME_DISK;
        return DRM_OK;
    case DISK_TYPE_SSD_SAS:
        *out = DRM_SAS_SSD_DISK;
        return DRM_OK;
    case DISK_TYPE_SSD_SATA:
        *out = DRM_SATA_SSD_DISK;
        return DRM_OK;
    case DISK_TYPE_HDD_SAS:
    case DISK_TYPE_HDD_NL_SAS:
        *out = DRM_SAS_HDD_DISK;
        return DRM_OK;
    default:
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Drm featue didn't support disktype(%u)", diskType);
        return DRM_ERR_FAIL;
    }
}

uint32_t DrmGetDiskType(uint32_t diskId, uint32_t *out) noexcept
{
    DiskMgrObj baseInfo{};
    if (DrmReadBaseInfo(diskId, &baseInfo) != 0) {
        return DRM_ERR_FAIL;
    }
    const uint32_t ret = TransDiskType(baseInfo.diskType, out);
    if (ret != DRM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Disk(%u) type(%u) not support, ret(%d).", diskId, baseInfo.diskType,
                    static_cast<int>(ret));
    }
    return ret;
}

uint32_t DrmGetDiskIoStat(uint32_t diskId, DrmDiskIoStat *out) noexcept
{
    DiskMgrObj baseInfo{};
    if (DrmReadBaseInfo(diskId, &baseInfo) != 0) {
        return DRM_ERR_FAIL;
    }
    DiskIoStatInfo stat{};
    const uint32_t ret = DiskIoStatInfoGet(diskId, DrmSnOf(baseInfo), &stat, sizeof(stat));
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Get disk(%u) iostat info fail, ret(%d).", diskId,
                    static_cast<int>(ret));
        return DRM_ERR_FAIL;
    }
    out->readIops = stat.readIops;
    out->writeIops = stat.writeIops;
    out->readIoBand = stat.readIoBand;
    out->writeIoBand = stat.writeIoBand;
    out->readIoDelay = stat.readIoDelay;
    out->writeIoDelay = stat.writeIoDelay;
    out->ioBusyNum = stat.ioBusyNum;
    out->avgServeTime = static_cast<uint32_t>(stat.avgServeTime); // the low half
    out->utilization = stat.utilizationInt;
    return DRM_OK;
}

uint32_t DrmSetDiskStat(uint32_t diskId, uint32_t state) noexcept
{
    DiskMgrObj baseInfo{};
    uint32_t ret = DrmReadBaseInfo(diskId, &baseInfo);
    if (ret != 0) {
        return ret;
    }
    ret = DiskStateSet(diskId, DrmSnOf(baseInfo), state);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Set disk(%u) state prefail fail, ret(%d).", diskId,
                    static_cast<int>(ret));
    }
    return ret;
}

uint32_t DrmReportSlowDisk(uint32_t diskId) noexcept
{
    DiskMgrObj baseInfo{};
    if (DrmReadBaseInfo(diskId, &baseInfo) != 0) {
        return DRM_ERR_FAIL;
    }
    if (baseInfo.diskState != DISK_STATE_NORMAL && baseInfo.diskState != DISK_STATE_PREFAIL) {
        return DRM_OK;
    }
    CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Find slow disk(%u).", diskId);
    (void)DiskStateSet(diskId, DrmSnOf(baseInfo), DISK_STATE_SLOW); // reported again as long as the disk is slow
    return DRM_OK;
}

} // extern "C"
