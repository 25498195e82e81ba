#include "ma/drm/framework/drm_disk_event.h"

#include <atomic>

#include "ma/drm/framework_adapter_corvane/drm_event_center_adapter.h"

namespace {

using Slot = std::atomic_ref<DrmDiskEventHandlerFunc>;

// A feature may come up while disks are announced already: with its handler, the announcing thread sees its queue.
void SetHandlers(uint32_t featureId, DrmDiskEventHandlerFunc localHandler,
                 DrmDiskEventHandlerFunc masterHandler) noexcept
{
    if (featureId >= DRM_FEATURE_NUM) {
        return;
    }
    DrmDiskUpdateHandle &row = g_drmLocalDiskUpdateHandle[featureId];
    Slot(row.localHandler).store(localHandler, std::memory_order_release);
    Slot(row.masterHandler).store(masterHandler, std::memory_order_release);
}

} // namespace

extern "C" {

DrmDiskUpdateHandle g_drmLocalDiskUpdateHandle[DRM_FEATURE_NUM] = {};

void DrmRegisterDiskEventHandler(uint32_t featureId, DrmDiskEventHandlerFunc localHandler,
                                 DrmDiskEventHandlerFunc masterHandler) noexcept
{
    SetHandlers(featureId, localHandler, masterHandler);
}

void DrmUnRegisterDiskEventHandler(uint32_t featureId) noexcept
{
    SetHandlers(featureId, nullptr, nullptr);
}

void DrmNotifyDiskEvent(uint32_t logicId, uint32_t event) noexcept
{
    for (DrmDiskUpdateHandle &row : g_drmLocalDiskUpdateHandle) {
        const DrmDiskEventHandlerFunc localHandler = Slot(row.localHandler).load(std::memory_order_acquire);
        if (localHandler != nullptr) {
            (void)localHandler(logicId, event);
        }
        const DrmDiskEventHandlerFunc masterHandler = Slot(row.masterHandler).load(std::memory_order_acquire);
        if (masterHandler != nullptr && DrmIsMasterNodeId()) {
            (void)masterHandler(logicId, event);
        }
    }
}

} // extern "C"
