#include "ma/drm/framework/drm_data_mgr/drm_data_mgr_local.h"

#include "ma/drm/framework/utils/drm_log.h"
#include "ma/drm/framework_adapter_corvane/drm_event_center_adapter.h"
#include "platform/normm.h"

namespace {

uint32_t g_partitionId = 0; ///< of the block of rows; 0: none

uint32_t CreateRows(DrmAllLocalDiskInfo &info) noexcept
{
    void *block = nullptr;
    if (createContinuousPartition(info.diskNum * sizeof(DrmLocalDiskData), "BDM_DRM_LOCAL_DISK_POOL", DRM_HOST_MODULE,
                                  0, &g_partitionId, &block, "DrmLocalDataMgrInit") != 0 ||
        block == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Create BDM_DRM_LOCAL_DISK_POOL failed.");
        return DRM_ERR_FAIL;
    }
    info.disks = static_cast<DrmLocalDiskData *>(block);
    return DRM_OK;
}

/** The word of a feature for a disk, or null, which is logged. */
void **SlotOf(uint32_t diskId, uint32_t featureId) noexcept
{
    const DrmAllLocalDiskInfo &info = g_drmAllLocalDiskInfo;
    const uint32_t innerId = diskId - DrmGetMinDiskId();
    // The number of disks is set even where the rows could not be made.
    if (!DrmIsDataDisk(diskId) || innerId >= info.diskNum || featureId >= DRM_FEATURE_NUM || info.disks == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Para is invalid: disk ID(%u), inner ID(%u), feature ID(%u).", diskId, innerId,
                featureId);
        return nullptr;
    }
    return &info.disks[innerId].featureData[featureId];
}

} // namespace

extern "C" {

DrmAllLocalDiskInfo g_drmAllLocalDiskInfo = {};

uint32_t DrmLocalDataMgrInit(void) noexcept
{
    DrmAllLocalDiskInfo &info = g_drmAllLocalDiskInfo;
    info.diskNum = DrmGetMaxLogicDiskNum();
    for (DrmSpinlock &lock : info.locks) {
        DrmSpinInit(&lock);
    }
    if (CreateRows(info) != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Drm local alloc partition failed.");
        return DRM_ERR_FAIL;
    }
    for (uint32_t i = 0; i < info.diskNum; i++) {
        info.disks[i] = {i, DRM_INVALID, {}};
    }
    return DRM_OK;
}

uint32_t DrmLocalDataMgrFin(void) noexcept
{
    if (g_partitionId != 0) {
        (void)deletePartitionByID(g_partitionId);
    }
    g_partitionId = 0;
    g_drmAllLocalDiskInfo.disks = nullptr;
    return DRM_OK;
}

void LOCK_DRM_FEATURE_DATA(uint32_t featureId) noexcept
{
    if (featureId < DRM_FEATURE_NUM) {
        do_norax_spinlock_lock(&g_drmAllLocalDiskInfo.locks[featureId], __func__, __LINE__);
    }
}

void UNLOCK_DRM_FEATURE_DATA(uint32_t featureId) noexcept
{
    if (featureId < DRM_FEATURE_NUM) {
        do_norax_spinlock_unlock(&g_drmAllLocalDiskInfo.locks[featureId], __func__, __LINE__);
    }
}

uint32_t getFeatureLocPrivateData(uint32_t diskId, uint32_t featureId, void **out) noexcept
{
    if (out == nullptr) {
        return DRM_ERR_FAIL;
    }
    void *const *slot = SlotOf(diskId, featureId);
    if (slot == nullptr) {
        return DRM_ERR_FAIL;
    }
    *out = *slot;
    return DRM_OK;
}

uint32_t setFeatureLocPrivateData(uint32_t diskId, uint32_t featureId, void *data) noexcept
{
    void **slot = SlotOf(diskId, featureId);
    if (slot == nullptr) {
        return DRM_ERR_FAIL;
    }
    *slot = data;
    return DRM_OK;
}

uint32_t getFeatureLocValidDataIndex(uint32_t featureId, uint32_t *array, uint32_t capacity,
                                     uint32_t *countOut) noexcept
{
    if (featureId >= DRM_FEATURE_NUM || array == nullptr || countOut == nullptr) {
        return DRM_ERR_FAIL;
    }
    const DrmFeatureDataGuard guard(featureId);
    const DrmAllLocalDiskInfo &info = g_drmAllLocalDiskInfo;
    if (info.disks == nullptr) {
        return DRM_ERR_FAIL;
    }
    uint32_t count = 0;
    for (uint32_t i = 0; i < info.diskNum; i++) {
        if (info.disks[i].featureData[featureId] == nullptr) {
            continue;
        }
        if (count == capacity) {
            return DRM_ERR_FAIL;
        }
        array[count++] = info.disks[i].innerId + DrmGetMinDiskId();
    }
    *countOut = count;
    return DRM_OK;
}

} // extern "C"
