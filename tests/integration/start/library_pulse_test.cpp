#include "library_pulse.h"

#include <utility>

#include "data_collect/data_collect_master/dcm_schedule.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_rpc.h"
#include "disk_mgr/disk_mgr.h"
#include "support/corvane_fixture.h"

/** The library's locks and its count of disks, in the test's hand. */
class LibraryPulseTest : public CorvaneTest {
protected:
    LibraryPulseTest()
    {
        for (void **lock : {&g_dataMgrLock, &g_dataMgrRpcLock, &g_uniqueAgentListSpinLock}) {
            saved_.emplace_back(lock, *lock);
            *lock = g_corvaneInfra.spinlockCreate();
        }
        saved_.emplace_back(&g_diskNumAtomic, g_diskNumAtomic);
        g_diskNumAtomic = g_corvaneInfra.atomicCreate(3);
    }
    ~LibraryPulseTest() override
    {
        for (void **lock : {&g_dataMgrLock, &g_dataMgrRpcLock, &g_uniqueAgentListSpinLock}) {
            g_corvaneInfra.spinlockDestroy(*lock);
        }
        g_corvaneInfra.atomicDestroy(g_diskNumAtomic);
        for (const auto &[place, value] : saved_) {
            *place = value;
        }
    }
    static void Take(void *lock) { g_corvaneInfra.spinlockLock(lock); }
    static void Release(void *lock) { g_corvaneInfra.spinlockUnlock(lock); }

private:
    std::vector<std::pair<void **, void *>> saved_;
};

TEST_F(LibraryPulseTest, BeatsWhileTheStoreIsFree)
{
    LibraryPulse pulse;

    EXPECT_TRUE(pulse.Beats());
    EXPECT_TRUE(pulse.Beats());

    Take(g_dataMgrLock); // it was not kept
    Release(g_dataMgrLock);
}

TEST_F(LibraryPulseTest, BeatsBeforeThereAreLocks)
{
    void *lock = std::exchange(g_dataMgrLock, nullptr);
    LibraryPulse pulse;

    EXPECT_TRUE(pulse.Beats());

    g_dataMgrLock = lock;
}

TEST_F(LibraryPulseTest, IsStillWhileTheStoreIsHeldAndNothingMoves)
{
    LibraryPulse pulse;
    EXPECT_TRUE(pulse.Beats());
    Take(g_dataMgrLock);

    EXPECT_FALSE(pulse.Beats());
    EXPECT_FALSE(pulse.Beats());

    Release(g_dataMgrLock);
    EXPECT_TRUE(pulse.Beats());
}

TEST_F(LibraryPulseTest, IsStillFromTheFirstLookOn)
{
    Take(g_dataMgrLock);
    LibraryPulse pulse;

    EXPECT_FALSE(pulse.Beats());

    Release(g_dataMgrLock);
}

TEST_F(LibraryPulseTest, BeatsOnceForEachMoveOfTheDisks)
{
    LibraryPulse pulse;
    Take(g_dataMgrLock);

    (void)g_corvaneInfra.atomicDecrementAndGet(g_diskNumAtomic);
    EXPECT_TRUE(pulse.Beats());
    EXPECT_FALSE(pulse.Beats());
    (void)g_corvaneInfra.atomicIncrementAndGet(g_diskNumAtomic);
    EXPECT_TRUE(pulse.Beats());
    EXPECT_FALSE(pulse.Beats());

    Release(g_dataMgrLock);
}

class LibraryPulseExchangeTest : public LibraryPulseTest, public ::testing::WithParamInterface<void **> {};

TEST_P(LibraryPulseExchangeTest, BeatsOnceForEachOneThatEnds)
{
    void *exchange = *GetParam();
    LibraryPulse pulse;
    Take(g_dataMgrLock);
    EXPECT_FALSE(pulse.Beats()) << "none was under way";

    for (int i = 0; i < 2; i++) {
        Take(exchange);
        EXPECT_FALSE(pulse.Beats());
        EXPECT_FALSE(pulse.Beats());
        Release(exchange);
        EXPECT_TRUE(pulse.Beats());
        EXPECT_FALSE(pulse.Beats());
    }

    Release(g_dataMgrLock);
}

TEST_P(LibraryPulseExchangeTest, WhatWasBeforeTheHangSaysNothing)
{
    void *exchange = *GetParam();
    LibraryPulse pulse;
    Take(g_dataMgrLock);
    Take(exchange);
    EXPECT_FALSE(pulse.Beats());
    Release(g_dataMgrLock);
    EXPECT_TRUE(pulse.Beats());
    Release(exchange);

    Take(g_dataMgrLock);
    EXPECT_FALSE(pulse.Beats());

    Release(g_dataMgrLock);
}

TEST_P(LibraryPulseExchangeTest, IsStillBeforeItsLockIsMade)
{
    void *exchange = std::exchange(*GetParam(), nullptr);
    LibraryPulse pulse;
    Take(g_dataMgrLock);

    EXPECT_FALSE(pulse.Beats());
    EXPECT_FALSE(pulse.Beats());

    Release(g_dataMgrLock);
    *GetParam() = exchange;
}

INSTANTIATE_TEST_SUITE_P(Locks, LibraryPulseExchangeTest,
                         ::testing::Values(&g_dataMgrRpcLock, &g_uniqueAgentListSpinLock),
                         [](const auto &test) { return test.index == 0 ? "Message" : "Fetch"; });
