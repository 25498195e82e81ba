#include "ma/drm/framework/drm_timer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "ma/drm/framework/drm_base.h"
#include "platform/normm.h"
#include "support/fake_host.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr uint32_t kError = 3;

/** What a callback is to do; its argument. */
struct Probe {
    uint32_t calls = 0;
    std::function<void()> more;

    static void Callback(void *arg)
    {
        auto &probe = *static_cast<Probe *>(arg);
        probe.calls++;
        if (probe.more) {
            probe.more();
        }
    }
};

class TimerTest : public FakeHostTest {
protected:
    TimerTest() { EXPECT_EQ(DrmTaskSchInitTimer(), DRM_OK); }
    ~TimerTest() override
    {
        Knobs() = HostKnobs();
        (void)DrmTaskSchExitTimer();
    }

    uint32_t Register(uint32_t cycleMs, uint32_t type)
    {
        return DrmRegTimer("t", cycleMs, Probe::Callback, &probe_, type);
    }
    static DrmTimer *First() { return reinterpret_cast<DrmTimer *>(g_drmTimerMgr.timers.next); }
    static DrmTimer *Last() { return reinterpret_cast<DrmTimer *>(g_drmTimerMgr.timers.prev); }
    static bool NoTimers() { return g_drmTimerMgr.count == 0 && DrmListEmpty(&g_drmTimerMgr.timers); }
    /** Expiry of a timer of the framework. */
    static bool Expire(DrmTimer *timer) { return Fire(&timer->timer); }

    Probe probe_;
};

using DrmTaskSchInitTimerTest = TimerTest;
using DrmTaskSchExitTimerTest = TimerTest;
using DrmTimerCreateCheckTest = TimerTest;
using DrmRegTimerTest = TimerTest;
using DrmTimerProcTest = TimerTest;
using DrmFreeTimerTest = TimerTest;

} // namespace

TEST_F(DrmTaskSchInitTimerTest, StartsWithoutTimers)
{
    g_drmTimerMgr.count = 5;
    g_drmTimerMgr.timers = {nullptr, nullptr};
    g_drmTimerMgr.lock.lock = 1;

    EXPECT_EQ(DrmTaskSchInitTimer(), DRM_OK);

    EXPECT_TRUE(NoTimers());
    EXPECT_EQ(g_drmTimerMgr.lock.lock, 0u);
}

TEST_F(DrmRegTimerTest, MakesLinksAndStartsTheTimer)
{
    ASSERT_EQ(Register(10, DRM_TIMER_ONE_SHOT), DRM_OK);
    EXPECT_EQ(DrmRegTimer("tick", 1000, Probe::Callback, &probe_, DRM_TIMER_PERIODIC), DRM_OK);

    EXPECT_EQ(g_drmTimerMgr.count, 2u);
    const DrmTimer *timer = Last();
    EXPECT_STREQ(timer->name, "tick");
    EXPECT_EQ(timer->callback, Probe::Callback);
    EXPECT_EQ(timer->arg, &probe_);
    EXPECT_EQ(timer->cycleMs, 1000u);
    EXPECT_EQ(timer->type, 1u);
    EXPECT_EQ(timer->fireCount, 0u);
    EXPECT_EQ(timer->links.prev, &First()->links) << "at the tail";
    ASSERT_THAT(Timers(), SizeIs(2));
    const HostTimer host = Timers()[1];
    EXPECT_EQ(host.handle, &timer->timer);
    EXPECT_EQ(host.cycleMs, 1000u);
    EXPECT_EQ(host.name, "(DrmTimerProc)");
    EXPECT_TRUE(host.armed);
    EXPECT_EQ(HeapBlocks(), 2) << "from the host's heap";
    EXPECT_EQ(PoolItems(), 0);
    EXPECT_EQ(g_drmTimerMgr.lock.lock, 0u);
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmRegTimerTest, TakesCyclesFromZeroToTheLimit)
{
    EXPECT_EQ(Register(0, DRM_TIMER_ONE_SHOT), DRM_OK);
    EXPECT_EQ(Register(0x7FFFFFFF, DRM_TIMER_PERIODIC), DRM_OK);

    EXPECT_EQ(Timers().at(0).cycleMs, 0u);
    EXPECT_EQ(Timers().at(1).cycleMs, 0x7FFFFFFFu);
}

TEST_F(DrmRegTimerTest, The65thFailsUntilOneIsFreed)
{
    for (uint32_t i = 0; i < 64; i++) {
        ASSERT_EQ(Register(i, DRM_TIMER_PERIODIC), DRM_OK) << i;
    }
    EXPECT_EQ(g_drmTimerMgr.count, 64u);
    EXPECT_THAT(HostLog(), IsEmpty());

    EXPECT_EQ(Register(64, DRM_TIMER_PERIODIC), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(kError, "Timer cnt has been exhausted."), 1u);
    EXPECT_EQ(HeapBlocks(), 64);
    DrmFreeTimer(First());
    EXPECT_EQ(Register(64, DRM_TIMER_PERIODIC), DRM_OK);
    EXPECT_EQ(Register(65, DRM_TIMER_PERIODIC), DRM_ERR_FAIL);
}

TEST_F(DrmRegTimerTest, FailsWhenAnotherTakesTheLastPlaceMeanwhile)
{
    for (uint32_t i = 0; i < 63; i++) {
        ASSERT_EQ(Register(i, DRM_TIMER_PERIODIC), DRM_OK) << i;
    }
    static uint32_t rival;
    Knobs().onTimerSetRaw = [] { rival = DrmRegTimer("rival", 5, Probe::Callback, nullptr, DRM_TIMER_PERIODIC); };

    EXPECT_EQ(Register(64, DRM_TIMER_PERIODIC), DRM_ERR_FAIL);

    EXPECT_EQ(rival, DRM_OK);
    EXPECT_EQ(g_drmTimerMgr.count, 64u);
    EXPECT_STREQ(Last()->name, "rival");
    EXPECT_EQ(HostLogCount(kError, "Timer cnt has been exhausted."), 1u);
    EXPECT_THAT(Timers(), SizeIs(64));
    EXPECT_EQ(HeapBlocks(), 64);
}

TEST_F(DrmRegTimerTest, FailsWithoutMemory)
{
    Knobs().heapFailAfter = 0;

    EXPECT_EQ(Register(1, DRM_TIMER_PERIODIC), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(kError, "Alloc timer failed."), 1u);
    EXPECT_TRUE(NoTimers());
}

TEST_F(DrmRegTimerTest, FreesTheRecordWhenTheHostMakesNoTimer)
{
    Knobs().timerSetRaw = 12;

    EXPECT_EQ(Register(1, DRM_TIMER_PERIODIC), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(kError, "ZOSA_InitTimer failed, ret: 12."), 1u);
    EXPECT_TRUE(NoTimers());
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(DrmRegTimerTest, TakesTheTimerBackWhenTheHostDoesNotStartIt)
{
    Knobs().timerAdd = -3;

    EXPECT_EQ(Register(1, DRM_TIMER_PERIODIC), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(kError, "ZOSA_AddTimer failed, ret: -3."), 1u);
    EXPECT_TRUE(NoTimers());
    EXPECT_THAT(Timers(), IsEmpty());
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(DrmRegTimerTest, RefusesWhatTheCheckRefuses)
{
    EXPECT_EQ(Register(1, 2), DRM_ERR_FAIL);
    EXPECT_EQ(Register(0x80000000, DRM_TIMER_PERIODIC), DRM_ERR_FAIL);

    EXPECT_THAT(Timers(), IsEmpty());
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(DrmTimerCreateCheckTest, LooksAtTypeThenCycleThenCount)
{
    g_drmTimerMgr.count = 64;

    EXPECT_EQ(DrmTimerCreateCheck(0x80000000, 2), DRM_ERR_FAIL);
    EXPECT_EQ(DrmTimerCreateCheck(0, 0xFFFFFFFF), DRM_ERR_FAIL);
    EXPECT_EQ(DrmTimerCreateCheck(0x80000000, 1), DRM_ERR_FAIL);
    EXPECT_EQ(DrmTimerCreateCheck(0xFFFFFFFF, 0), DRM_ERR_FAIL);
    EXPECT_EQ(DrmTimerCreateCheck(0x7FFFFFFF, 1), DRM_ERR_FAIL);
    g_drmTimerMgr.count = 63;
    EXPECT_EQ(DrmTimerCreateCheck(0x7FFFFFFF, 1), DRM_OK);
    EXPECT_EQ(DrmTimerCreateCheck(0, 0), DRM_OK);

    std::vector<std::string> texts;
    for (const HostLine &line : HostLog()) {
        EXPECT_EQ(line.level, kError);
        texts.push_back(line.text);
    }
    EXPECT_THAT(texts, ElementsAre("Invalid timer type: 2.", "Invalid timer type: 4294967295.",
                                   "Invalid cycleMilliSec: 1, bigger than DRM_MAX_TIMEROUT_MS: 2147483647.",
                                   "Invalid cycleMilliSec: 0, bigger than DRM_MAX_TIMEROUT_MS: 2147483647.",
                                   "Timer cnt has been exhausted."));
    g_drmTimerMgr.count = 0;
}

TEST_F(DrmTimerProcTest, APeriodicTimerIsArmedAgainAfterItsCallback)
{
    ASSERT_EQ(Register(700, DRM_TIMER_PERIODIC), DRM_OK);
    DrmTimer *timer = First();
    probe_.more = [] {
        EXPECT_FALSE(Timers().at(0).armed) << "the next period starts when the callback has returned";
        EXPECT_EQ(First()->fireCount + 1, static_cast<Probe *>(First()->arg)->calls) << "counted afterwards";
        EXPECT_EQ(g_drmTimerMgr.lock.lock, 0u);
    };

    for (uint32_t i = 1; i <= 3; i++) {
        ASSERT_TRUE(Expire(timer));
        EXPECT_EQ(probe_.calls, i);
        EXPECT_EQ(timer->fireCount, i);
        EXPECT_EQ(Timers().at(0).modified, i);
        EXPECT_EQ(Timers().at(0).cycleMs, 700u);
    }
    EXPECT_EQ(g_drmTimerMgr.count, 1u);
}

TEST_F(DrmTimerProcTest, TellsATimerThatTheHostDoesNotArmAgain)
{
    ASSERT_EQ(Register(700, DRM_TIMER_PERIODIC), DRM_OK);
    Knobs().timerModify = 1;

    ASSERT_TRUE(Expire(First()));

    EXPECT_EQ(HostLogCount(kError, "ZOSA_ModTimer failed."), 1u);
    EXPECT_EQ(First()->fireCount, 1u);
    EXPECT_EQ(g_drmTimerMgr.count, 1u);
}

TEST_F(DrmTimerProcTest, AOneShotTimerIsGoneAfterItFired)
{
    ASSERT_EQ(Register(5, DRM_TIMER_ONE_SHOT), DRM_OK);
    probe_.more = [] { EXPECT_EQ(g_drmTimerMgr.count, 1u) << "in the list while it runs"; };

    ASSERT_TRUE(Expire(First()));

    EXPECT_EQ(probe_.calls, 1u);
    EXPECT_TRUE(NoTimers());
    EXPECT_THAT(Timers(), IsEmpty());
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(DrmTimerProcTest, ATimerWithoutCallbackExpiresInSilence)
{
    ASSERT_EQ(DrmRegTimer("t", 1, nullptr, nullptr, DRM_TIMER_PERIODIC), DRM_OK);

    ASSERT_TRUE(Expire(First()));

    EXPECT_EQ(First()->fireCount, 1u);
    EXPECT_EQ(Timers().at(0).modified, 1u);
}

TEST_F(DrmTimerProcTest, ACallbackMayEndItsOwnTimer)
{
    for (const uint32_t type : {DRM_TIMER_ONE_SHOT, DRM_TIMER_PERIODIC}) {
        ASSERT_EQ(Register(5, type), DRM_OK);
        probe_.more = [] { EXPECT_EQ(DrmTaskSchExitTimer(), DRM_OK); };
        ASSERT_TRUE(Expire(First()));

        ASSERT_EQ(Register(5, type), DRM_OK);
        probe_.more = [] { DrmFreeTimer(First()); };
        ASSERT_TRUE(Expire(First()));
    }

    EXPECT_EQ(probe_.calls, 4u);
    EXPECT_TRUE(NoTimers());
    EXPECT_EQ(HeapBlocks(), 0);
    EXPECT_THAT(HostLog(), IsEmpty()) << "nothing is tried on what is gone";
}

TEST_F(DrmTimerProcTest, ACallbackThatReplacesItsTimerLeavesTheNewOneAlone)
{
    // The heap may give the new record the place of the old one.
    ASSERT_EQ(Register(5, DRM_TIMER_PERIODIC), DRM_OK);
    probe_.more = [this] {
        DrmFreeTimer(First());
        EXPECT_EQ(Register(6, DRM_TIMER_PERIODIC), DRM_OK);
    };

    ASSERT_TRUE(Expire(First()));

    EXPECT_EQ(First()->fireCount, 0u);
    EXPECT_EQ(Timers().at(0).modified, 0u);
    EXPECT_EQ(g_drmTimerMgr.count, 1u);
}

TEST_F(DrmTimerProcTest, ACallbackMayEndAnotherTimer)
{
    Probe other;
    ASSERT_EQ(DrmRegTimer("other", 5, Probe::Callback, &other, DRM_TIMER_PERIODIC), DRM_OK);
    ASSERT_EQ(Register(5, DRM_TIMER_PERIODIC), DRM_OK);
    probe_.more = [] { DrmFreeTimer(First()); };

    ASSERT_TRUE(Expire(Last()));

    ASSERT_EQ(g_drmTimerMgr.count, 1u);
    EXPECT_EQ(First()->arg, &probe_);
    EXPECT_EQ(First()->fireCount, 1u);
    EXPECT_TRUE(Timers().at(0).armed);
}

TEST_F(DrmFreeTimerTest, EndsOneTimer)
{
    for (uint32_t i = 0; i < 3; i++) {
        ASSERT_EQ(Register(i, DRM_TIMER_PERIODIC), DRM_OK);
    }
    auto *second = reinterpret_cast<DrmTimer *>(First()->links.next);

    DrmFreeTimer(second);
    DrmFreeTimer(nullptr);

    EXPECT_EQ(g_drmTimerMgr.count, 2u);
    EXPECT_EQ(First()->cycleMs, 0u);
    EXPECT_EQ(Last()->cycleMs, 2u);
    EXPECT_EQ(First()->links.next, &Last()->links);
    EXPECT_THAT(Timers(), SizeIs(2));
    EXPECT_EQ(HeapBlocks(), 2);
}

TEST_F(DrmFreeTimerTest, KeepsTheRecordOfATimerThatTheHostCannotEnd)
{
    ASSERT_EQ(Register(1, DRM_TIMER_PERIODIC), DRM_OK);
    DrmTimer *timer = First();
    Knobs().timerDestroy = 9;

    DrmFreeTimer(timer);

    EXPECT_EQ(HostLogCount(kError, "Drm destroy timer, ret: 9."), 1u);
    EXPECT_TRUE(NoTimers());
    EXPECT_EQ(HeapBlocks(), 1);
    EXPECT_EQ(timer->links.next, DRM_LIST_POISON_NEXT);
    EXPECT_EQ(timer->links.prev, DRM_LIST_POISON_PREV);

    DrmFreeTimer(timer);
    EXPECT_EQ(g_drmTimerMgr.count, 0u) << "what is in no list is not counted out again";
    normm_free(timer, 481, "test");
}

TEST_F(DrmTaskSchExitTimerTest, EndsAllTimers)
{
    for (uint32_t i = 0; i < 5; i++) {
        ASSERT_EQ(Register(i, i % 2), DRM_OK);
    }

    EXPECT_EQ(DrmTaskSchExitTimer(), DRM_OK);

    EXPECT_TRUE(NoTimers());
    EXPECT_THAT(Timers(), IsEmpty());
    EXPECT_EQ(HeapBlocks(), 0);
    EXPECT_EQ(g_drmTimerMgr.lock.lock, 0u);
    EXPECT_EQ(DrmTaskSchExitTimer(), DRM_OK);
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmTaskSchExitTimerTest, KeepsTheRecordsOfTimersThatTheHostCannotEnd)
{
    ASSERT_EQ(Register(1, DRM_TIMER_PERIODIC), DRM_OK);
    ASSERT_EQ(Register(2, DRM_TIMER_PERIODIC), DRM_OK);
    DrmTimer *first = First();
    DrmTimer *last = Last();
    Knobs().timerDestroy = 9;

    EXPECT_EQ(DrmTaskSchExitTimer(), DRM_OK);

    EXPECT_EQ(HostLogCount(kError, "Drm destroy timer failed, ret: 9."), 2u);
    EXPECT_TRUE(NoTimers());
    EXPECT_EQ(HeapBlocks(), 2);
    normm_free(first, 481, "test");
    normm_free(last, 481, "test");
}
