#include "infrastructure/corvane_adapter_os/corvane_adapter_os.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>

#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/os_calls.h"

static_assert(sizeof(CorvaneThreadParam) == 24);
static_assert(offsetof(CorvaneThreadParam, priority) == 0 && offsetof(CorvaneThreadParam, joinable) == 4 &&
              offsetof(CorvaneThreadParam, entryArg) == 8 && offsetof(CorvaneThreadParam, callbackArg) == 16);
static_assert(sizeof(pthread_t) == sizeof(uint64_t), "a thread handle is 64 bits");
static_assert(std::atomic_ref<uint64_t>::is_always_lock_free);

namespace {

/** A reader that is too late sees a value which no counter reaches. */
constexpr uint64_t kDeadAtomic = 0x7fffffffffffffff;

/** What a new thread runs; made by the creator, freed by the thread. */
struct ThreadContext {
    CorvaneThreadFunc entry;
    void *entryArg;
    CorvaneThreadFunc callback;
    void *callbackArg;
};
static_assert(sizeof(ThreadContext) == 32);

void *ThreadMain(void *arg)
{
    auto *context = static_cast<ThreadContext *>(arg);
    if (context->entry != nullptr) {
        (void)context->entry(context->entryArg);
    }
    if (context->callback != nullptr) {
        (void)context->callback(context->callbackArg);
    }
    g_corvaneInfra.memFree(context);
    return nullptr;
}

/** Room for one object of the system's, from the table; null when there is no memory. */
template <typename T>
T *Allocate() noexcept
{
    void *memory = g_corvaneInfra.memAlloc(sizeof(T));
    return memory == nullptr ? nullptr : new (memory) T{};
}

std::atomic_ref<uint64_t> Cell(void *atomic) noexcept
{
    return std::atomic_ref<uint64_t>(*static_cast<uint64_t *>(atomic));
}

sem_t *Sem(void *sem) noexcept
{
    return static_cast<sem_t *>(sem);
}

// pthread_spinlock_t is volatile.
pthread_spinlock_t *Spin(void *lock) noexcept
{
    return static_cast<pthread_spinlock_t *>(lock);
}

pthread_rwlock_t *Rwlock(void *lock) noexcept
{
    return static_cast<pthread_rwlock_t *>(lock);
}

} // namespace

extern "C" CORVANE_API void *CorvaneOsMalloc(uint64_t size) noexcept
{
    return g_osCalls.malloc(size);
}

extern "C" CORVANE_API void CorvaneOsFree(void *ptr) noexcept
{
    std::free(ptr);
}

extern "C" CORVANE_API uint64_t CorvaneOsThreadCreate(CorvaneThreadFunc entry, CorvaneThreadFunc callback,
                                                      CorvaneThreadParam param) noexcept
{
    pthread_attr_t attributes;
    (void)pthread_attr_init(&attributes);
    struct sched_param schedule = {};
    schedule.sched_priority = static_cast<int>(param.priority);
    (void)pthread_attr_setschedparam(&attributes, &schedule);

    auto *context = Allocate<ThreadContext>();
    if (context == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "OS_ADAPTER", "malloc thread context failed");
        (void)pthread_attr_destroy(&attributes);
        return 0;
    }
    *context = {entry, param.entryArg, callback, param.callbackArg};

    pthread_t thread = 0;
    const int result = g_osCalls.threadCreate(&thread, &attributes, ThreadMain, context);
    (void)pthread_attr_destroy(&attributes);
    if (result != 0) {
        g_corvaneInfra.memFree(context);
        CORVANE_LOG(CORVANE_LOG_ERROR, "OS_ADAPTER", "thread create failed(%d).", result);
        return 0;
    }
    if (param.joinable != 0) {
        (void)pthread_join(thread, nullptr);
    } else {
        (void)pthread_detach(thread);
    }
    return thread;
}

extern "C" CORVANE_API void CorvaneOsThreadYield(void) noexcept
{
    (void)sched_yield();
}

extern "C" CORVANE_API void CorvaneOsThreadSleep(CorvaneTime time) noexcept
{
    const struct timespec span = ConvertCorvaneTime2Timespec(time);
    (void)nanosleep(&span, nullptr);
}

extern "C" CORVANE_API void *CorvaneOsSemCreate(uint32_t initial) noexcept
{
    auto *sem = Allocate<sem_t>();
    if (sem != nullptr) {
        (void)sem_init(sem, 0, initial);
    }
    return sem;
}

extern "C" CORVANE_API void CorvaneOsSemDestroy(void *sem) noexcept
{
    if (sem != nullptr) {
        (void)sem_destroy(Sem(sem));
        g_corvaneInfra.memFree(sem);
    }
}

extern "C" CORVANE_API void CorvaneOsSemDown(void *sem) noexcept
{
    if (sem == nullptr) {
        return;
    }
    // A caller takes the return for a unit taken, so a signal must not end the wait.
    while (sem_wait(Sem(sem)) != 0 && errno == EINTR) {
    }
}

extern "C" CORVANE_API void CorvaneOsSemUp(void *sem) noexcept
{
    if (sem != nullptr) {
        (void)sem_post(Sem(sem));
    }
}

extern "C" CORVANE_API bool CorvaneOsSemTryDown(void *sem) noexcept
{
    return sem != nullptr && sem_trywait(Sem(sem)) == 0;
}

extern "C" CORVANE_API bool CorvaneOsSemTryDownWithinTimeout(void *sem, CorvaneTime time) noexcept
{
    if (sem == nullptr) {
        return false;
    }
    const struct timespec until = GetFutureInstantTimespec(time);
    int result = 0;
    do {
        result = sem_timedwait(Sem(sem), &until);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

extern "C" CORVANE_API void *CorvaneOsAtomicCreate(uint64_t initial) noexcept
{
    auto *cell = Allocate<uint64_t>();
    if (cell == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "OS_ADAPTER", "malloc semaphore failed.");
        return nullptr;
    }
    Cell(cell).store(initial);
    return cell;
}

extern "C" CORVANE_API void CorvaneOsAtomicDestroy(void *atomic) noexcept
{
    if (atomic != nullptr) {
        Cell(atomic).store(kDeadAtomic);
        g_corvaneInfra.memFree(atomic);
    }
}

extern "C" CORVANE_API uint64_t CorvaneOsAtomicGet(void *atomic) noexcept
{
    return atomic == nullptr ? 0 : Cell(atomic).load();
}

extern "C" CORVANE_API void CorvaneOsAtomicSet(void *atomic, uint64_t value) noexcept
{
    if (atomic != nullptr) {
        Cell(atomic).store(value);
    }
}

extern "C" CORVANE_API bool CorvaneOsAtomicCompareAndSet(void *atomic, uint64_t expected, uint64_t desired) noexcept
{
    return atomic != nullptr && Cell(atomic).compare_exchange_weak(expected, desired);
}

extern "C" CORVANE_API uint64_t CorvaneOsAtomicAddAndGet(void *atomic, uint64_t delta) noexcept
{
    return atomic == nullptr ? 0 : Cell(atomic).fetch_add(delta) + delta;
}

extern "C" CORVANE_API uint64_t CorvaneOsAtomicIncrementAndGet(void *atomic) noexcept
{
    return CorvaneOsAtomicAddAndGet(atomic, 1);
}

extern "C" CORVANE_API uint64_t CorvaneOsAtomicDecrementAndGet(void *atomic) noexcept
{
    return atomic == nullptr ? 0 : Cell(atomic).fetch_sub(1) - 1;
}

extern "C" CORVANE_API void *CorvaneOsSpinlockCreate(void) noexcept
{
    void *lock = g_corvaneInfra.memAlloc(sizeof(pthread_spinlock_t));
    if (lock != nullptr) {
        (void)pthread_spin_init(Spin(lock), PTHREAD_PROCESS_PRIVATE);
    }
    return lock;
}

extern "C" CORVANE_API void CorvaneOsSpinlockDestroy(void *lock) noexcept
{
    if (lock != nullptr) {
        (void)pthread_spin_destroy(Spin(lock));
        g_corvaneInfra.memFree(lock);
    }
}

extern "C" CORVANE_API void CorvaneOsSpinlockLock(void *lock) noexcept
{
    if (lock != nullptr) {
        (void)pthread_spin_lock(Spin(lock));
    }
}

extern "C" CORVANE_API void CorvaneOsSpinlockUnlock(void *lock) noexcept
{
    if (lock != nullptr) {
        (void)pthread_spin_unlock(Spin(lock));
    }
}

extern "C" CORVANE_API bool CorvaneOsSpinlockTryLock(void *lock) noexcept
{
    return lock != nullptr && pthread_spin_trylock(Spin(lock)) == 0;
}

extern "C" CORVANE_API void *CorvaneOsRwlockCreate(void) noexcept
{
    auto *lock = Allocate<pthread_rwlock_t>();
    if (lock != nullptr) {
        (void)pthread_rwlock_init(lock, nullptr);
    }
    return lock;
}

extern "C" CORVANE_API void CorvaneOsRwlockDestroy(void *lock) noexcept
{
    if (lock != nullptr) {
        (void)pthread_rwlock_destroy(Rwlock(lock));
        g_corvaneInfra.memFree(lock);
    }
}

extern "C" CORVANE_API void CorvaneOsRwlockLockWriteLock(void *lock) noexcept
{
    if (lock != nullptr) {
        (void)pthread_rwlock_wrlock(Rwlock(lock));
    }
}

extern "C" CORVANE_API bool CorvaneOsRwlockTryLockWriteLock(void *lock) noexcept
{
    return lock != nullptr && pthread_rwlock_trywrlock(Rwlock(lock)) == 0;
}

extern "C" CORVANE_API void CorvaneOsRwlockLockReadLock(void *lock) noexcept
{
    if (lock != nullptr) {
        (void)pthread_rwlock_rdlock(Rwlock(lock));
    }
}

extern "C" CORVANE_API bool CorvaneOsRwlockTryLockReadLock(void *lock) noexcept
{
    return lock != nullptr && pthread_rwlock_tryrdlock(Rwlock(lock)) == 0;
}

extern "C" CORVANE_API void CorvaneOsRwlockUnlockRwlock(void *lock) noexcept
{
    if (lock != nullptr) {
        (void)pthread_rwlock_unlock(Rwlock(lock));
    }
}

void CorvaneOsFillTable(decltype(CorvaneInfra::log) log) noexcept
{
    const CorvaneInfra table = {
        .memAlloc = CorvaneOsMalloc,
        .memFree = CorvaneOsFree,
        .threadCreate = CorvaneOsThreadCreate,
        .threadYield = CorvaneOsThreadYield,
        .threadSleep = CorvaneOsThreadSleep,
        .log = log,
        .semCreate = CorvaneOsSemCreate,
        .semDestroy = CorvaneOsSemDestroy,
        .semDown = CorvaneOsSemDown,
        .semUp = CorvaneOsSemUp,
        .semTryDown = CorvaneOsSemTryDown,
        .semTryDownWithinTimeout = CorvaneOsSemTryDownWithinTimeout,
        .sem2Down = CorvaneOsSemDown,
        .sem2Up = CorvaneOsSemUp,
        .sem2TryDown = CorvaneOsSemTryDown,
        .sem2TryDownWithinTimeout = CorvaneOsSemTryDownWithinTimeout,
        .atomicCreate = CorvaneOsAtomicCreate,
        .atomicDestroy = CorvaneOsAtomicDestroy,
        .atomicGet = CorvaneOsAtomicGet,
        .atomicSet = CorvaneOsAtomicSet,
        .atomicCompareAndSet = CorvaneOsAtomicCompareAndSet,
        .atomicAddAndGet = CorvaneOsAtomicAddAndGet,
        .atomicIncrementAndGet = CorvaneOsAtomicIncrementAndGet,
        .atomicDecrementAndGet = CorvaneOsAtomicDecrementAndGet,
        .spinlockCreate = CorvaneOsSpinlockCreate,
        .spinlockDestroy = CorvaneOsSpinlockDestroy,
        .spinlockLock = CorvaneOsSpinlockLock,
        .spinlockUnlock = CorvaneOsSpinlockUnlock,
        .spinlockTryLock = CorvaneOsSpinlockTryLock,
        .rwlockCreate = CorvaneOsRwlockCreate,
        .rwlockDestroy = CorvaneOsRwlockDestroy,
        .rwlockWriteLock = CorvaneOsRwlockLockWriteLock,
        .rwlockTryWriteLock = CorvaneOsRwlockTryLockWriteLock,
        .rwlockReadLock = CorvaneOsRwlockLockReadLock,
        .rwlockTryReadLock = CorvaneOsRwlockTryLockReadLock,
        .rwlockUnlock = CorvaneOsRwlockUnlockRwlock,
    };
    if (std::memcmp(&g_corvaneInfra, &table, sizeof(table)) != 0) { // at a second start others are reading it
        g_corvaneInfra = table;
    }
}
