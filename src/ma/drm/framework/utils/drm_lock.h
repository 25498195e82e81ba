/**
 * @file drm_lock.h
 * @brief The framework's spinlock: the host's checked spinlock, in place, usable from the start of the process.
 */
#ifndef DRM_LOCK_H
#define DRM_LOCK_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

/** As the host's spinlock operations know it. 16 bytes. */
typedef struct CORVANE_CAPABILITY("spinlock") DrmSpinlock {
    uint32_t lock;       /**< 0 free, 1 taken */
    uint32_t magic;      /**< DRM_SPINLOCK_MAGIC */
    int32_t ownerThread; /**< kernel thread identifier of the holder, -1 if free */
    int32_t ownerLine;   /**< source line at which it was taken, -1 if free */
} DrmSpinlock;

#define DRM_SPINLOCK_MAGIC 0xdead4eadU
/** Initial value of a free lock. */
#define DRM_SPINLOCK_FREE                                                                                              \
    {                                                                                                                  \
        0, DRM_SPINLOCK_MAGIC, -1, -1                                                                                  \
    }

#ifdef __cplusplus

#include "platform/norax.h"

inline void DrmSpinInit(DrmSpinlock *lock) noexcept
{
    *lock = DRM_SPINLOCK_FREE;
}

/** Holds a lock for a scope; misuse is told with the caller's function and line. */
class CORVANE_SCOPED_CAPABILITY DrmSpinGuard {
public:
    explicit DrmSpinGuard(DrmSpinlock &lock, const char *function = __builtin_FUNCTION(),
                          uint32_t line = __builtin_LINE()) noexcept CORVANE_ACQUIRE(lock)
        : lock_(&lock), function_(function)
    {
        do_norax_spinlock_lock(lock_, function, line);
    }
    ~DrmSpinGuard() CORVANE_RELEASE() { do_norax_spinlock_unlock(lock_, function_, __builtin_LINE()); }
    DrmSpinGuard(const DrmSpinGuard &) = delete;
    DrmSpinGuard &operator=(const DrmSpinGuard &) = delete;

private:
    DrmSpinlock *lock_;
    const char *function_;
};

#endif

#endif
