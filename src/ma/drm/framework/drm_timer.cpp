#include "ma/drm/framework/drm_timer.h"

#include <cstddef>
#include <cstring>
#include <utility>

#include "ma/drm/framework/utils/drm_log.h"
#include "platform/norax.h"
#include "platform/normm.h"

static_assert(offsetof(DrmTimer, links) == 0 && offsetof(DrmTimer, name) == 16 && offsetof(DrmTimer, callback) == 24 &&
              offsetof(DrmTimer, arg) == 32 && offsetof(DrmTimer, cycleMs) == 40 && offsetof(DrmTimer, type) == 44 &&
              offsetof(DrmTimer, fireCount) == 48 && offsetof(DrmTimer, timer) == 56);
static_assert(sizeof(DrmHostTimer) >= sizeof(NoraxTimer));
static_assert(alignof(DrmHostTimer) >= alignof(NoraxTimer));

namespace {

/** The timer whose callback runs on this thread; null again once the callback has ended that timer itself. */
thread_local DrmTimer *g_runningTimer = nullptr;

NoraxTimer *HostTimerOf(DrmTimer *timer) noexcept
{
    return reinterpret_cast<NoraxTimer *>(&timer->timer);
}

void ReleaseRecord(DrmTimer *timer) noexcept
{
    if (g_runningTimer == timer) {
        g_runningTimer = nullptr;
    }
    normm_free(timer, DRM_HOST_MODULE, __func__);
}

DrmTimer *NewRecord(const char *name, uint32_t cycleMs, void (*callback)(void *arg), void *arg, uint32_t type) noexcept
{
    auto *timer = static_cast<DrmTimer *>(normm_malloc(sizeof(DrmTimer), DRM_HOST_MODULE, __func__));
    if (timer == nullptr) {
        return nullptr;
    }
    std::memset(timer, 0, sizeof(*timer));
    DrmListPoison(&timer->links);
    timer->name = name;
    timer->callback = callback;
    timer->arg = arg;
    timer->cycleMs = cycleMs;
    timer->type = type;
    return timer;
}

bool HasRoom() noexcept
{
    const DrmSpinGuard guard(g_drmTimerMgr.lock);
    return g_drmTimerMgr.count < DRM_TIMER_MAX;
}

/** @return false if other threads took the last places since HasRoom(). */
bool Link(DrmTimer *timer) noexcept
{
    const DrmSpinGuard guard(g_drmTimerMgr.lock);
    if (g_drmTimerMgr.count >= DRM_TIMER_MAX) {
        return false;
    }
    DrmListAddTail(&g_drmTimerMgr.timers, &timer->links);
    g_drmTimerMgr.count++;
    return true;
}

/** @return false if the timer is in no list. Who takes it out is the one to end it. */
bool Unlink(DrmTimer *timer) noexcept
{
    const DrmSpinGuard guard(g_drmTimerMgr.lock);
    if (timer->links.next == DRM_LIST_POISON_NEXT) {
        return false;
    }
    DrmListUnlink(&timer->links);
    g_drmTimerMgr.count--;
    return true;
}

/** The first timer, taken out, or null. */
DrmTimer *UnlinkFirst() noexcept
{
    const DrmSpinGuard guard(g_drmTimerMgr.lock);
    if (DrmListEmpty(&g_drmTimerMgr.timers)) {
        return nullptr;
    }
    DrmListHead *links = g_drmTimerMgr.timers.next;
    DrmListUnlink(links);
    g_drmTimerMgr.count--;
    return reinterpret_cast<DrmTimer *>(links);
}

/** Runs the callback. @return whether the record is still there. */
bool CallBack(DrmTimer *timer) noexcept
{
    DrmTimer *outer = std::exchange(g_runningTimer, timer);
    if (timer->callback != nullptr) {
        timer->callback(timer->arg);
    }
    return std::exchange(g_runningTimer, outer) == timer;
}

} // namespace

extern "C" {

DrmTimerMgr g_drmTimerMgr = {{&g_drmTimerMgr.timers, &g_drmTimerMgr.timers}, DRM_SPINLOCK_FREE, 0};

uint32_t DrmTaskSchInitTimer(void) noexcept
{
    DrmListInit(&g_drmTimerMgr.timers);
    DrmSpinInit(&g_drmTimerMgr.lock);
    g_drmTimerMgr.count = 0;
    return DRM_OK;
}

uint32_t DrmTaskSchExitTimer(void) noexcept
{
    while (DrmTimer *timer = UnlinkFirst()) {
        const int result = norax_timer_destroy(HostTimerOf(timer));
        if (result != 0) {
            DRM_LOG(CORVANE_LOG_ERROR, "Drm destroy timer failed, ret: %d.", result);
            continue;
        }
        ReleaseRecord(timer);
    }
    return DRM_OK;
}

uint32_t DrmTimerCreateCheck(uint32_t cycleMs, uint32_t type) noexcept
{
    if (type >= DRM_TIMER_BUTT) {
        DRM_LOG(CORVANE_LOG_ERROR, "Invalid timer type: %u.", type);
        return DRM_ERR_FAIL;
    }
    if (static_cast<int32_t>(cycleMs) < 0) {
        // The first value has always been the type; tools that read the log know it so.
        DRM_LOG(CORVANE_LOG_ERROR, "Invalid cycleMilliSec: %u, bigger than DRM_MAX_TIMEROUT_MS: %u.", type,
                DRM_MAX_TIMEROUT_MS);
        return DRM_ERR_FAIL;
    }
    if (!HasRoom()) {
        DRM_LOG(CORVANE_LOG_ERROR, "Timer cnt has been exhausted.");
        return DRM_ERR_FAIL;
    }
    return DRM_OK;
}

uint32_t DrmRegTimer(const char *name, uint32_t cycleMs, void (*callback)(void *arg), void *arg, uint32_t type) noexcept
{
    if (DrmTimerCreateCheck(cycleMs, type) != DRM_OK) {
        return DRM_ERR_FAIL;
    }
    DrmTimer *timer = NewRecord(name, cycleMs, callback, arg, type);
    if (timer == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Alloc timer failed.");
        return DRM_ERR_FAIL;
    }
    const int set = norax_timer_set_raw(HostTimerOf(timer), cycleMs, timer, DrmTimerProc, "(DrmTimerProc)",
                                        basename(__FILE__), __LINE__);
    if (set != 0) {
        DRM_LOG(CORVANE_LOG_ERROR, "ZOSA_InitTimer failed, ret: %d.", set);
        ReleaseRecord(timer);
        return DRM_ERR_FAIL;
    }
    if (!Link(timer)) {
        DRM_LOG(CORVANE_LOG_ERROR, "Timer cnt has been exhausted.");
        (void)norax_timer_destroy(HostTimerOf(timer));
        ReleaseRecord(timer);
        return DRM_ERR_FAIL;
    }
    // A one-shot timer may have come and gone when this returns.
    const int added = norax_timer_add(HostTimerOf(timer));
    if (added != 0) {
        DRM_LOG(CORVANE_LOG_ERROR, "ZOSA_AddTimer failed, ret: %d.", added);
        DrmFreeTimer(timer);
        return DRM_ERR_FAIL;
    }
    return DRM_OK;
}

void DrmFreeTimer(DrmTimer *timer) noexcept
{
    if (timer == nullptr || !Unlink(timer)) {
        return;
    }
    const int result = norax_timer_destroy(HostTimerOf(timer));
    if (result != 0) {
        DRM_LOG(CORVANE_LOG_ERROR, "Drm destroy timer, ret: %d.", result);
        return;
    }
    ReleaseRecord(timer);
}

void DrmTimerProc(void *context) noexcept
{
    auto *timer = static_cast<DrmTimer *>(context);
    const uint32_t type = timer->type;
    if (!CallBack(timer)) {
        return;
    }
    timer->fireCount++;
    if (type != DRM_TIMER_PERIODIC) {
        DrmFreeTimer(timer);
        return;
    }
    if (norax_timer_modify(HostTimerOf(timer), timer->cycleMs) != 0) {
        DRM_LOG(CORVANE_LOG_ERROR, "ZOSA_ModTimer failed.");
    }
}

} // extern "C"
