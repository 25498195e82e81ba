#include "platform/norax.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "unit/platform/platform_test_support.h"

namespace {

uint64_t NowMs()
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

/** A timer that counts its calls, and does more if told. */
struct Probe {
    NoraxTimer timer{};
    std::atomic<uint32_t> calls{0};
    Event called;
    uint64_t calledMs = 0;
    void (*more)(Probe &) = nullptr;

    static void Procedure(void *context)
    {
        auto &probe = *static_cast<Probe *>(context);
        probe.calledMs = NowMs();
        probe.calls++;
        if (probe.more != nullptr) {
            probe.more(probe);
        }
        probe.called.Signal();
    }
    int Set(uint32_t cycleMs)
    {
        return norax_timer_set_raw(&timer, cycleMs, this, Procedure, "(Procedure)", "norax_timer_test.cpp", 1);
    }
};

class NoraxTimerTest : public ::testing::Test {
protected:
    NoraxTimerTest() { EXPECT_EQ(norax_Init(), 0); }
    ~NoraxTimerTest() override { norax_destory(); }

    /** Everything that was due by now has been called when this returns: timers are called in order of time. */
    static void LetExpire(uint32_t milliseconds)
    {
        Probe probe;
        ASSERT_EQ(probe.Set(milliseconds), 0);
        ASSERT_EQ(norax_timer_add(&probe.timer), 0);
        ASSERT_TRUE(probe.called.Wait());
        ASSERT_EQ(norax_timer_destroy(&probe.timer), 0);
    }
};

} // namespace

TEST_F(NoraxTimerTest, CallsOnceAndNotBeforeItsTime)
{
    Probe probe;
    ASSERT_EQ(probe.Set(30), 0);
    const uint64_t start = NowMs();

    ASSERT_EQ(norax_timer_add(&probe.timer), 0);
    ASSERT_TRUE(probe.called.Wait());
    LetExpire(60);

    EXPECT_GE(probe.calledMs, start + 30);
    EXPECT_EQ(probe.calls, 1U);
    EXPECT_EQ(norax_timer_destroy(&probe.timer), 0);
}

TEST_F(NoraxTimerTest, DoesNotRunUntilItIsAdded)
{
    Probe probe;
    ASSERT_EQ(probe.Set(0), 0);

    LetExpire(10);

    EXPECT_EQ(probe.calls, 0U);
    EXPECT_EQ(norax_timer_destroy(&probe.timer), 0);
}

TEST_F(NoraxTimerTest, TakesACycleOfZero)
{
    Probe probe;
    ASSERT_EQ(probe.Set(0), 0);

    ASSERT_EQ(norax_timer_add(&probe.timer), 0);

    EXPECT_TRUE(probe.called.Wait());
    EXPECT_EQ(norax_timer_destroy(&probe.timer), 0);
}

TEST_F(NoraxTimerTest, RearmsFromItsProcedure)
{
    Probe probe;
    probe.more = [](Probe &self) {
        if (self.calls < 3) {
            EXPECT_EQ(norax_timer_modify(&self.timer, 1), 0);
        }
    };
    ASSERT_EQ(probe.Set(1), 0);

    ASSERT_EQ(norax_timer_add(&probe.timer), 0);
    for (int i = 0; i < 3; i++) {
        ASSERT_TRUE(probe.called.Wait());
    }
    LetExpire(20);

    EXPECT_EQ(probe.calls, 3U);
    EXPECT_EQ(norax_timer_destroy(&probe.timer), 0);
}

TEST_F(NoraxTimerTest, ModifyStartsAnewWithTheNewTime)
{
    Probe probe;
    ASSERT_EQ(probe.Set(3600000), 0);
    ASSERT_EQ(norax_timer_add(&probe.timer), 0);

    EXPECT_EQ(norax_timer_add(&probe.timer), EBUSY);
    EXPECT_EQ(norax_timer_modify(&probe.timer, 1), 0);

    EXPECT_TRUE(probe.called.Wait());
    EXPECT_EQ(norax_timer_add(&probe.timer), 0) << "runs no more, so it can be added again";
    EXPECT_EQ(norax_timer_destroy(&probe.timer), 0);
}

TEST_F(NoraxTimerTest, ADestroyedTimerIsNotCalled)
{
    Probe probe;
    ASSERT_EQ(probe.Set(20), 0);
    ASSERT_EQ(norax_timer_add(&probe.timer), 0);

    ASSERT_EQ(norax_timer_destroy(&probe.timer), 0);
    LetExpire(40);

    EXPECT_EQ(probe.calls, 0U);
    EXPECT_EQ(norax_timer_destroy(&probe.timer), ENOENT);
    EXPECT_EQ(norax_timer_add(&probe.timer), ENOENT);
    EXPECT_EQ(norax_timer_modify(&probe.timer, 1), ENOENT);
}

TEST_F(NoraxTimerTest, DestroyWaitsForARunningProcedure)
{
    struct Shared {
        Event entered;
        Event go;
        std::atomic<bool> finished{false};
    } shared;
    NoraxTimer timer{};
    ASSERT_EQ(norax_timer_set_raw(
                  &timer, 0, &shared,
                  [](void *context) {
                      auto &state = *static_cast<Shared *>(context);
                      state.entered.Signal();
                      EXPECT_TRUE(state.go.Wait());
                      state.finished = true;
                  },
                  "waits", "f", 1),
              0);
    ASSERT_EQ(norax_timer_add(&timer), 0);
    ASSERT_TRUE(shared.entered.Wait());
    std::atomic<int> destroyer{0};
    std::atomic<bool> finishedAtReturn{false};

    std::thread thread([&] {
        destroyer = CurrentThreadNumber();
        EXPECT_EQ(norax_timer_destroy(&timer), 0);
        finishedAtReturn = shared.finished.load();
    });
    EXPECT_TRUE(WaitFor([&] {
        const int number = destroyer;
        return number != 0 && (ThreadState(number) == 'S' || ThreadState(number) == 'X');
    }));
    shared.go.Signal();
    thread.join();

    EXPECT_TRUE(finishedAtReturn);
}

TEST_F(NoraxTimerTest, DestroyFromItsProcedureReturnsAndTheMemoryMayGo)
{
    struct OneShot {
        NoraxTimer timer{};
        Event *gone = nullptr;
    };
    Event gone;
    auto *shot = new OneShot;
    shot->gone = &gone;
    ASSERT_EQ(norax_timer_set_raw(
                  &shot->timer, 1, shot,
                  [](void *context) {
                      auto *self = static_cast<OneShot *>(context);
                      EXPECT_EQ(norax_timer_destroy(&self->timer), 0);
                      Event *done = self->gone;
                      delete self;
                      done->Signal();
                  },
                  "one shot", "f", 1),
              0);

    ASSERT_EQ(norax_timer_add(&shot->timer), 0);

    EXPECT_TRUE(gone.Wait());
    LetExpire(5);
}

TEST_F(NoraxTimerTest, ManyThreadsMakeAndEndTimers)
{
    struct Use {
        NoraxTimer timer{};
        std::atomic<bool> alive{true};
        std::atomic<uint32_t> *callsWhenDead = nullptr;
    };
    std::atomic<uint32_t> callsWhenDead{0};
    std::vector<std::thread> threads;

    for (int i = 0; i < 4; i++) {
        threads.emplace_back([&callsWhenDead] {
            for (uint32_t round = 0; round < 200; round++) {
                Use use;
                use.callsWhenDead = &callsWhenDead;
                const auto procedure = [](void *context) {
                    auto &self = *static_cast<Use *>(context);
                    if (!self.alive) {
                        (*self.callsWhenDead)++;
                    }
                    (void)norax_timer_modify(&self.timer, 0);
                };
                ASSERT_EQ(norax_timer_set_raw(&use.timer, round % 2, &use, procedure, "n", "f", 1), 0);
                ASSERT_EQ(norax_timer_add(&use.timer), 0);
                (void)norax_timer_modify(&use.timer, round % 3);
                ASSERT_EQ(norax_timer_destroy(&use.timer), 0);
                use.alive = false;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }

    EXPECT_EQ(callsWhenDead, 0U);
}

TEST_F(NoraxTimerTest, RefusesBadArguments)
{
    NoraxTimer timer{};

    EXPECT_EQ(norax_timer_set_raw(nullptr, 1, nullptr, Probe::Procedure, "n", "f", 1), EINVAL);
    EXPECT_EQ(norax_timer_set_raw(&timer, 1, nullptr, nullptr, "n", "f", 1), EINVAL);
    EXPECT_EQ(norax_timer_add(nullptr), ENOENT);
    EXPECT_EQ(norax_timer_add(&timer), ENOENT);
    EXPECT_EQ(norax_timer_destroy(nullptr), ENOENT);
}

TEST(NoraxInitTest, TimersNeedAStart)
{
    Probe probe;

    EXPECT_EQ(probe.Set(1), ESRCH);
}

TEST(NoraxInitTest, CountsStarts)
{
    ASSERT_EQ(norax_Init(), 0);
    ASSERT_EQ(norax_Init(), 0);
    Probe probe;

    norax_destory();
    EXPECT_EQ(probe.Set(1), 0) << "one start is left";
    norax_destory();

    EXPECT_EQ(norax_timer_add(&probe.timer), ENOENT) << "the stop drops what is left";
    norax_destory(); // one too many is harmless
    ASSERT_EQ(norax_Init(), 0);
    EXPECT_EQ(probe.Set(0), 0);
    EXPECT_EQ(norax_timer_add(&probe.timer), 0);
    EXPECT_TRUE(probe.called.Wait());
    norax_destory();
}

TEST(NoraxDestoryTest, WaitsForARunningProcedure)
{
    static Event entered;
    static std::atomic<bool> finished;
    static int stopper;
    finished = false;
    stopper = CurrentThreadNumber();
    ASSERT_EQ(norax_Init(), 0);
    Probe probe;
    probe.more = [](Probe &) {
        entered.Signal();
        EXPECT_TRUE(WaitFor([] { return ThreadState(stopper) == 'S'; }));
        finished = true;
    };
    ASSERT_EQ(probe.Set(0), 0);
    ASSERT_EQ(norax_timer_add(&probe.timer), 0);
    ASSERT_TRUE(entered.Wait());

    norax_destory();

    EXPECT_TRUE(finished);
}

TEST(NoraxDestoryTest, MayBeCalledFromAProcedure)
{
    ASSERT_EQ(norax_Init(), 0);
    Probe probe;
    probe.more = [](Probe &) { norax_destory(); };
    ASSERT_EQ(probe.Set(0), 0);
    ASSERT_EQ(norax_timer_add(&probe.timer), 0);

    EXPECT_TRUE(probe.called.Wait());
    EXPECT_EQ(norax_timer_add(&probe.timer), ENOENT);
}
