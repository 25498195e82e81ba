// The framework's timers and pools on the libraries of the host themselves; what they do to a host held in the hand is
// tested with the framework.

#include "ma/drm/framework/drm_timer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "ma/drm/framework/utils/drm_lock.h"
#include "platform/norax.h"
#include "platform/normm.h"
#include "unit/platform/platform_test_support.h"

namespace {

class DrmTimerOnHostTest : public ::testing::Test {
protected:
    DrmTimerOnHostTest()
    {
        EXPECT_EQ(norax_Init(), 0);
        EXPECT_EQ(DrmTaskSchInitTimer(), DRM_OK);
        before_ = Blocks();
    }
    ~DrmTimerOnHostTest() override
    {
        (void)DrmTaskSchExitTimer();
        norax_destory();
    }

    static uint32_t TimerCount()
    {
        const DrmSpinGuard guard(g_drmTimerMgr.lock);
        return g_drmTimerMgr.count;
    }
    /** Waits until no record of a timer is left. */
    bool AllFreed() const
    {
        return WaitFor([this] { return TimerCount() == 0 && Blocks() == before_; });
    }

private:
    static uint64_t Blocks()
    {
        uint64_t blocks = 0;
        normm_usage(DRM_HOST_MODULE, nullptr, &blocks);
        return blocks;
    }

    uint64_t before_ = 0;
};

struct Probe {
    std::atomic<uint32_t> calls{0};
    Event called;
    Event go;
    std::atomic<bool> finished{false};
};

void CountCall(void *arg)
{
    auto &probe = *static_cast<Probe *>(arg);
    probe.calls++;
    probe.called.Signal();
}

} // namespace

TEST_F(DrmTimerOnHostTest, APeriodicTimerComesAgainUntilItIsEnded)
{
    Probe probe;
    ASSERT_EQ(DrmRegTimer("periodic", 1, CountCall, &probe, DRM_TIMER_PERIODIC), DRM_OK);

    for (int i = 0; i < 3; i++) {
        ASSERT_TRUE(probe.called.Wait());
    }
    EXPECT_EQ(DrmTaskSchExitTimer(), DRM_OK);

    const uint32_t calls = probe.calls;
    EXPECT_GE(calls, 3u);
    EXPECT_TRUE(AllFreed());
    // A timer behind the old period: had that one been alive, it would have been called before.
    Probe later;
    ASSERT_EQ(DrmRegTimer("later", 20, CountCall, &later, DRM_TIMER_ONE_SHOT), DRM_OK);
    ASSERT_TRUE(later.called.Wait());
    EXPECT_EQ(probe.calls, calls);
    EXPECT_TRUE(AllFreed());
}

TEST_F(DrmTimerOnHostTest, AOneShotTimerIsCalledOnceAndGone)
{
    for (const uint32_t cycleMs : {0u, 1u}) {
        Probe probe;
        ASSERT_EQ(DrmRegTimer("once", cycleMs, CountCall, &probe, DRM_TIMER_ONE_SHOT), DRM_OK);

        ASSERT_TRUE(probe.called.Wait());

        EXPECT_TRUE(AllFreed());
        EXPECT_EQ(probe.calls, 1u);
    }
}

TEST_F(DrmTimerOnHostTest, TheEndOfAllTimersWaitsForACallbackWhoseTimerEndsItself)
{
    Probe probe;
    const auto callback = [](void *arg) {
        auto &self = *static_cast<Probe *>(arg);
        self.called.Signal();
        EXPECT_TRUE(self.go.Wait());
        self.finished = true;
    };
    ASSERT_EQ(DrmRegTimer("once", 0, callback, &probe, DRM_TIMER_ONE_SHOT), DRM_OK);
    ASSERT_TRUE(probe.called.Wait());
    std::atomic<bool> finishedAtReturn{false};

    std::thread stopper([&] {
        EXPECT_EQ(DrmTaskSchExitTimer(), DRM_OK);
        finishedAtReturn = probe.finished.load();
    });
    EXPECT_TRUE(WaitFor([] { return TimerCount() == 0; })) << "the stopper has the timer in hand";
    probe.go.Signal();
    stopper.join();

    EXPECT_TRUE(finishedAtReturn);
    EXPECT_TRUE(AllFreed());
}

TEST_F(DrmTimerOnHostTest, ACallbackMayEndAllTimers)
{
    Probe probe;
    const auto callback = [](void *arg) {
        EXPECT_EQ(DrmTaskSchExitTimer(), DRM_OK);
        static_cast<Probe *>(arg)->called.Signal();
    };
    ASSERT_EQ(DrmRegTimer("far", 3600000, CountCall, nullptr, DRM_TIMER_PERIODIC), DRM_OK);
    ASSERT_EQ(DrmRegTimer("ends", 0, callback, &probe, DRM_TIMER_PERIODIC), DRM_OK);

    ASSERT_TRUE(probe.called.Wait());

    EXPECT_TRUE(AllFreed());
}

TEST_F(DrmTimerOnHostTest, ManyThreadsMakeTimersThatExpireAtOnce)
{
    constexpr uint32_t threadCount = 4;
    constexpr uint32_t perThread = 100;
    static std::atomic<uint32_t> calls;
    calls = 0;
    std::vector<std::thread> threads;

    for (uint32_t i = 0; i < threadCount; i++) {
        threads.emplace_back([] {
            for (uint32_t round = 0; round < perThread; round++) {
                // At most 64 exist; a place comes free when one has expired.
                while (TimerCount() >= 48) {
                    std::this_thread::yield();
                }
                ASSERT_EQ(DrmRegTimer(
                              "once", round % 2, [](void *) { calls++; }, nullptr, DRM_TIMER_ONE_SHOT),
                          DRM_OK);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }

    EXPECT_TRUE(WaitFor([] { return calls == threadCount * perThread; }));
    EXPECT_TRUE(AllFreed());
}

TEST(DrmMemMgrOnHostTest, APoolGivesItsLimitAndNoMore)
{
    ASSERT_EQ(nor_mm_pool_init(), 0);
    ASSERT_EQ(DrmMemMgrInit(), DRM_OK);
    std::vector<void *> blocks;

    for (void *block = nullptr; (block = DrmMemMallocLv("test", 1, 32)) != nullptr && blocks.size() <= 30000;) {
        blocks.push_back(block);
    }

    EXPECT_EQ(blocks.size(), 30000u);
    for (void *block : blocks) {
        DrmMemFreeLv("test", 1, block, 32);
    }
    void *again = DrmMemMallocLv("test", 1, 32);
    EXPECT_NE(again, nullptr);
    EXPECT_EQ(DrmMemMgrFin(), DRM_OK);
    EXPECT_EQ(nor_mm_pool_exit(), 0);
}
