#include "cli/server/Semaphore.h"

#include <atomic>
#include <gtest/gtest.h>
#include <limits>
#include <sys/time.h>
#include <thread>
#include <vector>

#include "cli/server/UnlimitedQueue.h"

using CORVANE_CLI::Semaphore;
using CORVANE_CLI::UnlimitedQueue;

namespace {

/** Waits until the present second has enough of it left for a deadline in it. */
void WaitForTheEarlyPartOfASecond()
{
    timeval now = {};
    do {
        (void)gettimeofday(&now, nullptr);
    } while (now.tv_usec > 500000);
}

} // namespace

TEST(SemaphoreTest, GivesItsInitialCount)
{
    Semaphore semaphore(2);

    semaphore.Wait();
    semaphore.Wait();

    EXPECT_FALSE(semaphore.TimedWait(1));
}

TEST(SemaphoreTest, GivesOneForEachSignal)
{
    Semaphore semaphore(0);
    semaphore.Signal();
    semaphore.Signal();

    EXPECT_TRUE(semaphore.TimedWait(1));
    semaphore.Wait();
    EXPECT_FALSE(semaphore.TimedWait(1));
}

TEST(SemaphoreTest, PaysADebtFirst)
{
    Semaphore semaphore(-1);

    semaphore.Signal();
    EXPECT_FALSE(semaphore.TimedWait(1));
    semaphore.Signal();
    EXPECT_TRUE(semaphore.TimedWait(1));
}

TEST(SemaphoreTest, WakesWhoWaits)
{
    constexpr int waiters = 4;
    Semaphore semaphore(0);
    Semaphore woken(0);
    std::vector<std::thread> threads;
    for (int i = 0; i < waiters; i++) {
        threads.emplace_back([&] {
            semaphore.Wait();
            woken.Signal();
        });
    }
    for (int i = 0; i < waiters; i++) {
        semaphore.Signal();
        woken.Wait();
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(semaphore.TimedWait(1));
}

TEST(SemaphoreTest, TakesACountWithoutWaiting)
{
    Semaphore semaphore(3);

    EXPECT_TRUE(semaphore.TimedWait(0));
    EXPECT_TRUE(semaphore.TimedWait(1));
    EXPECT_TRUE(semaphore.TimedWait(std::numeric_limits<unsigned long>::max()));
}

TEST(SemaphoreTest, GivesUpAtAnInstantOfThePresentSecond)
{
    Semaphore semaphore(0);
    WaitForTheEarlyPartOfASecond();
    timeval before = {};
    (void)gettimeofday(&before, nullptr);

    EXPECT_FALSE(semaphore.TimedWait(50));

    timeval after = {};
    (void)gettimeofday(&after, nullptr);
    EXPECT_GE((after.tv_sec - before.tv_sec) * 1000000 + after.tv_usec - before.tv_usec, 50000);
}

TEST(SemaphoreTest, TakesAnInstantOfAnotherSecondForPassed)
{
    Semaphore semaphore(0);

    EXPECT_FALSE(semaphore.TimedWait(1000));
    EXPECT_FALSE(semaphore.TimedWait(3600000)) << "else the test would end in an hour";
    EXPECT_FALSE(semaphore.TimedWait(std::numeric_limits<unsigned long>::max() / 1000000 * 2 / 3));
}

TEST(UnlimitedQueueTest, GivesItemsInTheirOrder)
{
    UnlimitedQueue<int> queue;
    for (int i = 0; i < 1000; i++) {
        queue.Put(std::make_shared<int>(i));
    }
    for (int i = 0; i < 1000; i++) {
        std::shared_ptr<int> item;
        ASSERT_TRUE(queue.Get(item, 0));
        EXPECT_EQ(*item, i);
        EXPECT_EQ(item.use_count(), 1) << "the queue has let it go";
    }
}

TEST(UnlimitedQueueTest, GivesNothingWhenTimeIsUp)
{
    UnlimitedQueue<int> queue;
    auto item = std::make_shared<int>(7);

    EXPECT_FALSE(queue.Get(item, 1));

    EXPECT_EQ(*item, 7);
}

TEST(UnlimitedQueueTest, GivesWhatIsThereWithinATime)
{
    UnlimitedQueue<int> queue;
    queue.Put(std::make_shared<int>(1));
    std::shared_ptr<int> item;

    EXPECT_TRUE(queue.Get(item, 1));

    EXPECT_EQ(*item, 1);
}

TEST(UnlimitedQueueTest, GivesAnItemThatIsNone)
{
    UnlimitedQueue<int> queue;
    queue.Put(nullptr);
    auto item = std::make_shared<int>(1);

    EXPECT_TRUE(queue.Get(item, 0));

    EXPECT_EQ(item, nullptr);
}

TEST(UnlimitedQueueTest, LosesNothingBetweenThreads)
{
    constexpr int putters = 4;
    constexpr int each = 500;
    UnlimitedQueue<int> queue;
    std::atomic<int> sum = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < putters; i++) {
        threads.emplace_back([&queue] {
            for (int n = 1; n <= each; n++) {
                queue.Put(std::make_shared<int>(n));
            }
        });
        threads.emplace_back([&queue, &sum] {
            for (int n = 0; n < each; n++) {
                std::shared_ptr<int> item;
                if (queue.Get(item, 0)) {
                    sum += *item;
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(sum, putters * each * (each + 1) / 2);
}
