/**
 * @file drm_queue.h
 * @brief A queue of pointers between threads.
 *
 * Owns its nodes (from the memory pools), never what the pointers point to. Each queue has a lock of its own, held for
 * list work only. Any thread.
 */
#ifndef DRM_QUEUE_H
#define DRM_QUEUE_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"
#include "ma/drm/framework/utils/drm_list.h"
#include "ma/drm/framework/utils/drm_lock.h"

CORVANE_BEGIN_DECLS

/** 32 bytes; set up by drmQueueInit(). */
typedef struct DrmQueue {
    DrmSpinlock lock;
    DrmListHead nodes; /**< oldest first; guarded by lock */
} DrmQueue;

/** One entry. 24 bytes. */
typedef struct DrmQueueNode {
    DrmListHead links;
    void *data; /**< the caller's */
} DrmQueueNode;

/** @brief Make an empty queue of it. */
CORVANE_API void drmQueueInit(DrmQueue *queue) CORVANE_NOEXCEPT;
/** @brief End its lock. Entries that are left are not freed. */
CORVANE_API void drmQueueExit(DrmQueue *queue) CORVANE_NOEXCEPT;
/** @brief Append. @retval DRM_ERR_FAIL  Null queue, or no memory for the node. */
CORVANE_NODISCARD CORVANE_API uint32_t drmQueueQueue(DrmQueue *queue, void *data) CORVANE_NOEXCEPT;
/** @brief Put in front. @retval DRM_ERR_FAIL  Null queue, or no memory for the node. */
CORVANE_NODISCARD CORVANE_API uint32_t drmQueueQueueHead(DrmQueue *queue, void *data) CORVANE_NOEXCEPT;
/** @return the first entry's pointer, taken out; null for an empty or a null queue. */
CORVANE_NODISCARD CORVANE_API void *drmQueueDequeue(DrmQueue *queue) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
