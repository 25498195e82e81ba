/**
 * @file drm_timer.h
 * @brief Timers on top of the host's: periodic ones re-arm themselves, one-shot ones free themselves.
 *
 * Owns g_drmTimerMgr and every timer in it. The list's lock is held for list work only. Any thread; callbacks run on
 * the host's timer thread, without a lock.
 */
#ifndef DRM_TIMER_H
#define DRM_TIMER_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"
#include "ma/drm/framework/utils/drm_list.h"
#include "ma/drm/framework/utils/drm_lock.h"

CORVANE_BEGIN_DECLS

#define DRM_TIMER_MAX 64u
#define DRM_MAX_TIMEROUT_MS 0x7FFFFFFFu

enum DrmTimerType {
    DRM_TIMER_ONE_SHOT = 0,
    DRM_TIMER_PERIODIC = 1,
    DRM_TIMER_BUTT,
};

/** Room for the host's timer, whose size is the host's affair. */
typedef union DrmHostTimer {
    uint64_t words[16];
    void *pointer;
} DrmHostTimer;

typedef struct DrmTimer {
    DrmListHead links;
    const char *name; /**< the caller's; stays valid as long as the timer */
    void (*callback)(void *arg);
    void *arg;
    uint32_t cycleMs;
    uint32_t type;      /**< enum DrmTimerType */
    uint32_t fireCount; /**< calls so far */
    DrmHostTimer timer;
} DrmTimer;

typedef struct DrmTimerMgr {
    DrmListHead timers; /**< in the order of registration; guarded by lock */
    DrmSpinlock lock;
    uint32_t count; /**< timers in the list; guarded by lock */
} DrmTimerMgr;

extern CORVANE_API DrmTimerMgr g_drmTimerMgr;

/** @brief Start with no timers. @return always 0. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmTaskSchInitTimer(void) CORVANE_NOEXCEPT;
/**
 * @brief End all timers. Waits for running callbacks, unless called from one.
 * @return always 0.
 * @note Not while a DrmRegTimer() is under way.
 */
CORVANE_API uint32_t DrmTaskSchExitTimer(void) CORVANE_NOEXCEPT;

/**
 * @brief Make and start a timer.
 * @param cycleMs  Milliseconds to the first call and between the end of a call and the next; 0..0x7FFFFFFF.
 * @param type     enum DrmTimerType.
 * @retval DRM_ERR_FAIL  Bad type or cycle, 64 timers exist, no memory, or the host refused.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmRegTimer(const char *name, uint32_t cycleMs, void (*callback)(void *arg),
                                                   void *arg, uint32_t type) CORVANE_NOEXCEPT;
/**
 * @brief End a timer and free it. If the host cannot end it the record stays allocated, out of the list.
 * @param timer  Null, or a timer that someone is ending already, does nothing.
 */
CORVANE_API void DrmFreeTimer(DrmTimer *timer) CORVANE_NOEXCEPT;
/** @brief Whether DrmRegTimer() would take these. @retval DRM_ERR_FAIL  Bad type or cycle, or 64 timers exist. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmTimerCreateCheck(uint32_t cycleMs, uint32_t type) CORVANE_NOEXCEPT;
/** @brief The procedure that the host calls at expiry, once. @param timer  DrmTimer; its callback may end it. */
CORVANE_API void DrmTimerProc(void *timer) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
