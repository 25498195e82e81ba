#include "platform/norax.h"

#include <cstddef>
#include <cstdio>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

static_assert(sizeof(NoraxSpinlock) == 16);
static_assert(offsetof(NoraxSpinlock, magic) == 4 && offsetof(NoraxSpinlock, ownerThread) == 8 &&
              offsetof(NoraxSpinlock, ownerLine) == 12);

namespace {

/** Rounds of looking before the processor is given away: the holder may wait for one. */
constexpr uint32_t kSpinsBeforeYield = 64;

int32_t CurrentThread() noexcept
{
    // The system call once per thread; locks are taken far too often for more.
    static thread_local const auto thread = static_cast<int32_t>(syscall(SYS_gettid));
    return thread;
}

void Report(const char *what, const NoraxSpinlock *lock, const char *function, uint32_t line) noexcept
{
    (void)std::fprintf(stderr, "norax: spinlock %p %s, %s:%u\n", static_cast<const void *>(lock), what,
                       function != nullptr ? function : "?", line);
}

bool IsLock(const NoraxSpinlock *lock, const char *function, uint32_t line) noexcept
{
    if (lock == nullptr || __atomic_load_n(&lock->magic, __ATOMIC_RELAXED) != NORAX_SPINLOCK_MAGIC) {
        Report("is not set up", lock, function, line);
        return false;
    }
    return true;
}

bool TryTake(NoraxSpinlock *lock, uint32_t line) noexcept
{
    if (__atomic_load_n(&lock->lock, __ATOMIC_RELAXED) != 0 ||
        __atomic_exchange_n(&lock->lock, 1U, __ATOMIC_ACQUIRE) != 0) {
        return false;
    }
    __atomic_store_n(&lock->ownerThread, CurrentThread(), __ATOMIC_RELAXED);
    __atomic_store_n(&lock->ownerLine, static_cast<int32_t>(line), __ATOMIC_RELAXED);
    return true;
}

bool IsMine(const NoraxSpinlock *lock) noexcept
{
    return __atomic_load_n(&lock->lock, __ATOMIC_RELAXED) != 0 &&
           __atomic_load_n(&lock->ownerThread, __ATOMIC_RELAXED) == CurrentThread();
}

} // namespace

#define NORAX_API __attribute__((visibility("default")))

extern "C" {

NORAX_API void do_norax_spinlock_lock(void *lock, const char *function, uint32_t line) noexcept
{
    auto *record = static_cast<NoraxSpinlock *>(lock);
    if (!IsLock(record, function, line)) {
        return;
    }
    if (IsMine(record)) {
        // Going on would let two owners in. The thread stays here, and the line tells the operator why.
        Report("taken twice by one thread", record, function, line);
    }
    for (uint32_t round = 1; !TryTake(record, line); round++) {
        if (round % kSpinsBeforeYield == 0) {
            (void)sched_yield();
        }
    }
}

NORAX_API void do_norax_spinlock_unlock(void *lock, const char *function, uint32_t line) noexcept
{
    auto *record = static_cast<NoraxSpinlock *>(lock);
    if (!IsLock(record, function, line)) {
        return;
    }
    if (!IsMine(record)) {
        Report("released by a thread that does not hold it", record, function, line);
        return;
    }
    __atomic_store_n(&record->ownerThread, -1, __ATOMIC_RELAXED);
    __atomic_store_n(&record->ownerLine, -1, __ATOMIC_RELAXED);
    __atomic_store_n(&record->lock, 0U, __ATOMIC_RELEASE);
}

NORAX_API int do_norax_tspinlock_trylock(void *lock, const char *function, uint32_t line) noexcept
{
    auto *record = static_cast<NoraxSpinlock *>(lock);
    return IsLock(record, function, line) && TryTake(record, line) ? 1 : 0;
}

} // extern "C"
