/**
 * @file drm_feature_event_queue.h
 * @brief The two halves of a feature's disk events: queued on the thread that announces them, handled on its worker.
 */
#ifndef DRM_FEATURE_EVENT_QUEUE_H
#define DRM_FEATURE_EVENT_QUEUE_H

#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_disk_event.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "ma/drm/framework/utils/drm_queue.h"

enum class DrmEventQueued {
    YES,
    NO_MEMORY, /**< for the event */
    REFUSED,   /**< by the queue */
};

/** @brief Queues a copy of the event; whoever dequeues it frees it. */
[[nodiscard]] inline DrmEventQueued DrmQueueDiskEvent(DrmQueue *queue, uint32_t diskId, uint32_t event) noexcept
{
    DrmUmmPtr<DrmDiskEvent> record = DrmUmmNew<DrmDiskEvent>();
    if (record == nullptr) {
        return DrmEventQueued::NO_MEMORY;
    }
    record->diskId = diskId;
    record->event = event;
    if (drmQueueQueue(queue, record.get()) != DRM_OK) {
        return DrmEventQueued::REFUSED;
    }
    (void)record.release(); // the queue's now
    return DrmEventQueued::YES;
}

/** @brief Calls @p handle for each event, oldest first, until the queue is empty, and frees it. */
template <typename Handle>
void DrmDrainDiskEvents(DrmQueue *queue, Handle handle) noexcept
{
    while (void *data = drmQueueDequeue(queue)) {
        const DrmUmmPtr<DrmDiskEvent> record(static_cast<DrmDiskEvent *>(data));
        handle(*record);
    }
}

#endif
