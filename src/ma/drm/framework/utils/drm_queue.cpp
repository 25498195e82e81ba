#include "ma/drm/framework/utils/drm_queue.h"

#include <cstddef>

#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"

static_assert(sizeof(DrmQueueNode) == 24 && offsetof(DrmQueueNode, links) == 0);

namespace {

using AddFunc = void (*)(DrmListHead *head, DrmListHead *links) noexcept;

uint32_t Add(DrmQueue *queue, void *data, AddFunc add, const char *function, uint32_t line) noexcept
{
    if (queue == nullptr) {
        return DRM_ERR_FAIL;
    }
    auto *node = static_cast<DrmQueueNode *>(DrmMemMallocLv(function, line, sizeof(DrmQueueNode)));
    if (node == nullptr) {
        return DRM_ERR_FAIL;
    }
    node->data = data;
    const DrmSpinGuard guard(queue->lock);
    add(&queue->nodes, &node->links);
    return DRM_OK;
}

DrmQueueNode *TakeFirst(DrmQueue *queue) noexcept
{
    const DrmSpinGuard guard(queue->lock);
    if (DrmListEmpty(&queue->nodes)) {
        return nullptr;
    }
    DrmListHead *links = queue->nodes.next;
    DrmListUnlink(links);
    return reinterpret_cast<DrmQueueNode *>(links);
}

} // namespace

extern "C" {

void drmQueueInit(DrmQueue *queue) noexcept
{
    if (queue == nullptr) {
        return;
    }
    DrmSpinInit(&queue->lock);
    DrmListInit(&queue->nodes);
}

void drmQueueExit(DrmQueue * /*queue*/) noexcept
{
    // The lock lies in the queue and owns nothing. It stays usable: a detached worker may still be draining.
}

uint32_t drmQueueQueue(DrmQueue *queue, void *data) noexcept
{
    return Add(queue, data, DrmListAddTail, __func__, __LINE__);
}

uint32_t drmQueueQueueHead(DrmQueue *queue, void *data) noexcept
{
    return Add(queue, data, DrmListAddHead, __func__, __LINE__);
}

void *drmQueueDequeue(DrmQueue *queue) noexcept
{
    if (queue == nullptr) {
        return nullptr;
    }
    DrmQueueNode *node = TakeFirst(queue);
    if (node == nullptr) {
        return nullptr;
    }
    void *data = node->data;
    DrmMemFreeLv(__func__, __LINE__, node, sizeof(*node));
    return data;
}

} // extern "C"
