#include "infrastructure/corvane_adapter_os/corvane_adapter_os.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <semaphore.h>
#include <thread>
#include <unistd.h>

#include "support/corvane_fixture.h"

namespace {

void *NoMemory(size_t)
{
    return nullptr;
}

int NoThread(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)
{
    return EAGAIN;
}

/** What a thread did, in order. */
struct Trace {
    std::vector<std::string> steps;
    pid_t entryThread = 0;
    pid_t callbackThread = 0;
};

sem_t g_freed;

/** A thread's last use of the table is to free its context. */
void FreeAndPost(void *ptr)
{
    std::free(ptr);
    (void)sem_post(&g_freed);
}

void *Entry(void *arg)
{
    auto *trace = static_cast<Trace *>(arg);
    trace->steps.push_back("entry");
    trace->entryThread = gettid();
    return nullptr;
}

void *Callback(void *arg)
{
    auto *trace = static_cast<Trace *>(arg);
    trace->steps.push_back("callback");
    trace->callbackThread = gettid();
    return nullptr;
}

void *SlowEntry(void *arg)
{
    for (int i = 0; i < 1000; i++) {
        CorvaneOsThreadYield();
    }
    return Entry(arg);
}

} // namespace

using CorvaneOsThreadCreateTest = CorvaneTest;

TEST_F(CorvaneOsThreadCreateTest, RunsEntryThenCallbackOnANewThread)
{
    Trace trace;
    ASSERT_EQ(sem_init(&g_freed, 0, 0), 0);
    g_corvaneInfra.memFree = FreeAndPost;

    const uint64_t handle = CorvaneOsThreadCreate(Entry, Callback, {0, 0, &trace, &trace});

    EXPECT_NE(handle, 0u);
    ASSERT_EQ(sem_wait(&g_freed), 0);
    EXPECT_THAT(trace.steps, ::testing::ElementsAre("entry", "callback"));
    EXPECT_NE(trace.entryThread, gettid());
    EXPECT_EQ(trace.entryThread, trace.callbackThread);
}

TEST_F(CorvaneOsThreadCreateTest, JoinableReturnsOnlyAfterEntryAndCallback)
{
    Trace trace;

    const uint64_t handle = CorvaneOsThreadCreate(SlowEntry, Callback, {0, 1, &trace, &trace});

    EXPECT_NE(handle, 0u);
    EXPECT_THAT(trace.steps, ::testing::ElementsAre("entry", "callback"));
}

TEST_F(CorvaneOsThreadCreateTest, EntryAndCallbackMayBeNull)
{
    Trace trace;

    EXPECT_NE(CorvaneOsThreadCreate(Entry, nullptr, {0, 1, &trace, nullptr}), 0u);
    EXPECT_NE(CorvaneOsThreadCreate(nullptr, Callback, {0, 1, nullptr, &trace}), 0u);
    EXPECT_NE(CorvaneOsThreadCreate(nullptr, nullptr, {0, 1, nullptr, nullptr}), 0u);

    EXPECT_THAT(trace.steps, ::testing::ElementsAre("entry", "callback"));
}

TEST_F(CorvaneOsThreadCreateTest, NoMemoryGivesZeroAndRunsNothing)
{
    g_osCalls.malloc = NoMemory;
    Trace trace;

    EXPECT_EQ(CorvaneOsThreadCreate(Entry, Callback, {0, 1, &trace, &trace}), 0u);

    EXPECT_TRUE(trace.steps.empty());
    EXPECT_EQ(LogCount(3, "OS_ADAPTER", "malloc thread context failed"), 1u);
}

TEST_F(CorvaneOsThreadCreateTest, NoThreadGivesZeroAndRunsNothing)
{
    g_osCalls.threadCreate = NoThread;
    Trace trace;

    EXPECT_EQ(CorvaneOsThreadCreate(Entry, Callback, {0, 1, &trace, &trace}), 0u);

    EXPECT_TRUE(trace.steps.empty());
    EXPECT_EQ(LogCount(3, "OS_ADAPTER", "thread create failed(" + std::to_string(EAGAIN) + ")."), 1u);
}

using CorvaneOsThreadSleepTest = CorvaneTest;

TEST_F(CorvaneOsThreadSleepTest, SleepsAtLeastTheSpan)
{
    struct timespec before = {};
    struct timespec after = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &before);

    CorvaneOsThreadSleep({20, CORVANE_TIME_MILLISECOND});

    (void)clock_gettime(CLOCK_MONOTONIC, &after);
    const long elapsed = (after.tv_sec - before.tv_sec) * 1000000000L + (after.tv_nsec - before.tv_nsec);
    EXPECT_GE(elapsed, 20000000L);
    EXPECT_TRUE(Logs().empty());
}

TEST_F(CorvaneOsThreadSleepTest, ABadUnitIsLoggedAndSleepsForNoTime)
{
    // A sleep of 100 years in any unit would not come back.
    CorvaneOsThreadSleep({UINT32_MAX, 9});

    EXPECT_EQ(LogCount(3, "Time", "Input timeUnit(9) >= BUTT"), 1u);
}

using CorvaneOsSemTest = CorvaneTest;

TEST_F(CorvaneOsSemTest, CountsUnits)
{
    void *sem = CorvaneOsSemCreate(2);
    ASSERT_NE(sem, nullptr);

    CorvaneOsSemDown(sem);
    EXPECT_TRUE(CorvaneOsSemTryDown(sem));
    EXPECT_FALSE(CorvaneOsSemTryDown(sem));

    CorvaneOsSemUp(sem);
    EXPECT_TRUE(CorvaneOsSemTryDown(sem));

    CorvaneOsSemDestroy(sem);
}

TEST_F(CorvaneOsSemTest, DownWaitsForUp)
{
    void *sem = CorvaneOsSemCreate(0);
    ASSERT_NE(sem, nullptr);
    std::atomic<bool> raised = false;

    std::thread other([&] {
        raised = true;
        CorvaneOsSemUp(sem);
    });
    CorvaneOsSemDown(sem);

    EXPECT_TRUE(raised);
    other.join();
    CorvaneOsSemDestroy(sem);
}

TEST_F(CorvaneOsSemTest, TimedDownTakesAUnit)
{
    void *sem = CorvaneOsSemCreate(1);
    ASSERT_NE(sem, nullptr);

    EXPECT_TRUE(CorvaneOsSemTryDownWithinTimeout(sem, {1, CORVANE_TIME_DAY}));
    EXPECT_FALSE(CorvaneOsSemTryDown(sem));

    CorvaneOsSemDestroy(sem);
}

TEST_F(CorvaneOsSemTest, TimedDownGivesUp)
{
    void *sem = CorvaneOsSemCreate(0);
    ASSERT_NE(sem, nullptr);

    EXPECT_FALSE(CorvaneOsSemTryDownWithinTimeout(sem, {5, CORVANE_TIME_MILLISECOND}));

    CorvaneOsSemDestroy(sem);
}

TEST_F(CorvaneOsSemTest, TimedDownRefusesAnUncarriedInstantAtOnce)
{
    g_osCalls.clockGettime = [](clockid_t, struct timespec *out) {
        *out = {4000000000, 400000000}; // far off: waiting for it would hang the test
        return 0;
    };
    void *sem = CorvaneOsSemCreate(0);
    ASSERT_NE(sem, nullptr);

    EXPECT_FALSE(CorvaneOsSemTryDownWithinTimeout(sem, {600, CORVANE_TIME_MILLISECOND}));

    CorvaneOsSemDestroy(sem);
}

TEST_F(CorvaneOsSemTest, NullIsRefused)
{
    g_osCalls.malloc = NoMemory;

    EXPECT_EQ(CorvaneOsSemCreate(1), nullptr);

    CorvaneOsSemDown(nullptr);
    CorvaneOsSemUp(nullptr);
    CorvaneOsSemDestroy(nullptr);
    EXPECT_FALSE(CorvaneOsSemTryDown(nullptr));
    EXPECT_FALSE(CorvaneOsSemTryDownWithinTimeout(nullptr, {1, CORVANE_TIME_DAY}));
}

using CorvaneOsAtomicTest = CorvaneTest;

TEST_F(CorvaneOsAtomicTest, HoldsA64BitValue)
{
    void *cell = CorvaneOsAtomicCreate(0xFFFFFFFFFFFFFFFE);
    ASSERT_NE(cell, nullptr);

    EXPECT_EQ(CorvaneOsAtomicGet(cell), 0xFFFFFFFFFFFFFFFE);
    CorvaneOsAtomicSet(cell, 40);
    EXPECT_EQ(CorvaneOsAtomicGet(cell), 40u);

    CorvaneOsAtomicDestroy(cell);
}

TEST_F(CorvaneOsAtomicTest, ArithmeticGivesTheNewValue)
{
    void *cell = CorvaneOsAtomicCreate(10);
    ASSERT_NE(cell, nullptr);

    EXPECT_EQ(CorvaneOsAtomicAddAndGet(cell, 5), 15u);
    EXPECT_EQ(CorvaneOsAtomicIncrementAndGet(cell), 16u);
    EXPECT_EQ(CorvaneOsAtomicDecrementAndGet(cell), 15u);
    CorvaneOsAtomicSet(cell, 0);
    EXPECT_EQ(CorvaneOsAtomicDecrementAndGet(cell), UINT64_MAX);

    CorvaneOsAtomicDestroy(cell);
}

TEST_F(CorvaneOsAtomicTest, CompareAndSetRefusesAnotherValue)
{
    void *cell = CorvaneOsAtomicCreate(10);
    ASSERT_NE(cell, nullptr);

    EXPECT_FALSE(CorvaneOsAtomicCompareAndSet(cell, 11, 20));
    EXPECT_EQ(CorvaneOsAtomicGet(cell), 10u);

    // A weak exchange may fail without a reason, so ask until it does not.
    int tries = 0;
    while (!CorvaneOsAtomicCompareAndSet(cell, 10, 20)) {
        ASSERT_LT(++tries, 1000000);
    }
    EXPECT_EQ(CorvaneOsAtomicGet(cell), 20u);

    CorvaneOsAtomicDestroy(cell);
}

TEST_F(CorvaneOsAtomicTest, CountsFromManyThreads)
{
    void *cell = CorvaneOsAtomicCreate(0);
    ASSERT_NE(cell, nullptr);

    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([cell] {
            for (int count = 0; count < 10000; count++) {
                (void)CorvaneOsAtomicIncrementAndGet(cell);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }

    EXPECT_EQ(CorvaneOsAtomicGet(cell), 40000u);
    CorvaneOsAtomicDestroy(cell);
}

namespace {
uint64_t g_valueAtFree = 0;
} // namespace

TEST_F(CorvaneOsAtomicTest, DestroyLeavesAValueThatNoCounterReaches)
{
    void *cell = CorvaneOsAtomicCreate(3);
    ASSERT_NE(cell, nullptr);
    g_corvaneInfra.memFree = [](void *ptr) {
        std::memcpy(&g_valueAtFree, ptr, sizeof(g_valueAtFree));
        CorvaneOsFree(ptr);
    };

    CorvaneOsAtomicDestroy(cell);

    EXPECT_EQ(g_valueAtFree, 0x7fffffffffffffffu);
}

TEST_F(CorvaneOsAtomicTest, NoMemoryIsLogged)
{
    g_osCalls.malloc = NoMemory;

    EXPECT_EQ(CorvaneOsAtomicCreate(1), nullptr);

    EXPECT_EQ(LogCount(3, "OS_ADAPTER", "malloc semaphore failed."), 1u);
}

TEST_F(CorvaneOsAtomicTest, NullIsRefused)
{
    CorvaneOsAtomicSet(nullptr, 1);
    CorvaneOsAtomicDestroy(nullptr);
    EXPECT_EQ(CorvaneOsAtomicGet(nullptr), 0u);
    EXPECT_FALSE(CorvaneOsAtomicCompareAndSet(nullptr, 0, 1));
    EXPECT_EQ(CorvaneOsAtomicAddAndGet(nullptr, 1), 0u);
    EXPECT_EQ(CorvaneOsAtomicIncrementAndGet(nullptr), 0u);
    EXPECT_EQ(CorvaneOsAtomicDecrementAndGet(nullptr), 0u);
}

using CorvaneOsSpinlockTest = CorvaneTest;

TEST_F(CorvaneOsSpinlockTest, ExcludesWhileHeld)
{
    void *lock = CorvaneOsSpinlockCreate();
    ASSERT_NE(lock, nullptr);

    CorvaneOsSpinlockLock(lock);
    EXPECT_FALSE(CorvaneOsSpinlockTryLock(lock));
    CorvaneOsSpinlockUnlock(lock);
    EXPECT_TRUE(CorvaneOsSpinlockTryLock(lock));

    CorvaneOsSpinlockUnlock(lock);
    CorvaneOsSpinlockDestroy(lock);
}

TEST_F(CorvaneOsSpinlockTest, NullIsRefused)
{
    g_osCalls.malloc = NoMemory;

    EXPECT_EQ(CorvaneOsSpinlockCreate(), nullptr);

    CorvaneOsSpinlockLock(nullptr);
    CorvaneOsSpinlockUnlock(nullptr);
    CorvaneOsSpinlockDestroy(nullptr);
    EXPECT_FALSE(CorvaneOsSpinlockTryLock(nullptr));
}

using CorvaneOsRwlockTest = CorvaneTest;

TEST_F(CorvaneOsRwlockTest, ReadersShareAndWritersExclude)
{
    void *lock = CorvaneOsRwlockCreate();
    ASSERT_NE(lock, nullptr);

    CorvaneOsRwlockLockReadLock(lock);
    EXPECT_TRUE(CorvaneOsRwlockTryLockReadLock(lock));
    EXPECT_FALSE(CorvaneOsRwlockTryLockWriteLock(lock));
    CorvaneOsRwlockUnlockRwlock(lock);
    CorvaneOsRwlockUnlockRwlock(lock);

    CorvaneOsRwlockLockWriteLock(lock);
    EXPECT_FALSE(CorvaneOsRwlockTryLockReadLock(lock));
    EXPECT_FALSE(CorvaneOsRwlockTryLockWriteLock(lock));
    CorvaneOsRwlockUnlockRwlock(lock);

    EXPECT_TRUE(CorvaneOsRwlockTryLockWriteLock(lock));
    CorvaneOsRwlockUnlockRwlock(lock);
    CorvaneOsRwlockDestroy(lock);
}

TEST_F(CorvaneOsRwlockTest, NullIsRefused)
{
    g_osCalls.malloc = NoMemory;

    EXPECT_EQ(CorvaneOsRwlockCreate(), nullptr);

    CorvaneOsRwlockLockReadLock(nullptr);
    CorvaneOsRwlockLockWriteLock(nullptr);
    CorvaneOsRwlockUnlockRwlock(nullptr);
    CorvaneOsRwlockDestroy(nullptr);
    EXPECT_FALSE(CorvaneOsRwlockTryLockReadLock(nullptr));
    EXPECT_FALSE(CorvaneOsRwlockTryLockWriteLock(nullptr));
}
