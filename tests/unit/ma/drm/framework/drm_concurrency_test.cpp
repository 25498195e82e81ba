// What many threads do at once to the queue, the pools, the timers and the private words: the sums must be right, and
// the thread sanitizer must have nothing to say.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ma/drm/framework/drm_data_mgr/drm_data_mgr_local.h"
#include "ma/drm/framework/drm_disk_event.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "ma/drm/framework/drm_timer.h"
#include "ma/drm/framework/utils/drm_log.h"
#include "ma/drm/framework/utils/drm_queue.h"
#include "support/fake_host.h"

using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

constexpr uint32_t kThreads = 4;

void OnThreads(uint32_t count, const std::function<void(uint32_t)> &work)
{
    std::vector<std::thread> threads;
    threads.reserve(count);
    for (uint32_t i = 0; i < count; i++) {
        threads.emplace_back(work, i);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

class DrmConcurrencyTest : public FakeHostTest {
protected:
    DrmConcurrencyTest()
    {
        EXPECT_EQ(DrmMemMgrInit(), DRM_OK);
        EXPECT_EQ(DrmLocalDataMgrInit(), DRM_OK);
        EXPECT_EQ(DrmTaskSchInitTimer(), DRM_OK);
    }
    ~DrmConcurrencyTest() override
    {
        (void)DrmTaskSchExitTimer();
        (void)DrmLocalDataMgrFin();
        (void)DrmMemMgrFin();
    }
};

std::atomic<uint32_t> g_timerCalls;

void CountTimer(void *)
{
    g_timerCalls++;
}

std::atomic<uint32_t> g_events;
std::array<uint32_t, 1> g_prepared;

uint32_t CountEvent(uint32_t, uint32_t)
{
    g_events += g_prepared[0];
    return 0;
}

} // namespace

TEST_F(DrmConcurrencyTest, TheQueueLosesAndInventsNothing)
{
    constexpr uint64_t perThread = 2000;
    DrmQueue queue;
    drmQueueInit(&queue);
    std::vector<uint64_t> values(kThreads * perThread);
    std::atomic<uint64_t> taken{0};
    std::atomic<uint64_t> outOfOrder{0};

    OnThreads(2 * kThreads, [&](uint32_t index) {
        if (index < kThreads) {
            for (uint64_t i = 0; i < perThread; i++) {
                uint64_t &value = values[index * perThread + i];
                value = index * perThread + i + 1;
                ASSERT_EQ(drmQueueQueue(&queue, &value), DRM_OK);
            }
            return;
        }
        std::array<uint64_t, kThreads> last{};
        while (taken < values.size()) {
            auto *value = static_cast<uint64_t *>(drmQueueDequeue(&queue));
            if (value == nullptr) {
                std::this_thread::yield();
                continue;
            }
            uint64_t &former = last[(*value - 1) / perThread];
            outOfOrder += *value > former ? 0 : 1;
            former = *value;
            *value = 0;
            taken++;
        }
    });

    EXPECT_EQ(taken, values.size());
    EXPECT_EQ(outOfOrder, 0u);
    EXPECT_EQ(drmQueueDequeue(&queue), nullptr);
    EXPECT_EQ(std::count(values.begin(), values.end(), 0u), static_cast<long>(values.size()));
    EXPECT_EQ(PoolItems(), 0);
}

TEST_F(DrmConcurrencyTest, ThePoolsCountEveryBlock)
{
    constexpr long rounds = 500;
    constexpr std::array<uint64_t, 3> sizes{32, 100, 4000};
    std::atomic<uint32_t> broken{0};

    OnThreads(kThreads, [&](uint32_t index) {
        for (long round = 0; round < rounds; round++) {
            std::array<void *, sizes.size()> blocks{};
            for (size_t i = 0; i < sizes.size(); i++) {
                blocks[i] = DrmMemMallocLv("test", 1, sizes[i]);
                ASSERT_NE(blocks[i], nullptr);
                std::memset(blocks[i], static_cast<int>(index + 1), sizes[i]);
            }
            for (size_t i = 0; i < sizes.size(); i++) {
                const auto *bytes = static_cast<const uint8_t *>(blocks[i]);
                broken += bytes[0] == index + 1 && bytes[sizes[i] - 1] == index + 1 ? 0 : 1;
                DrmMemFreeLv("test", 1, blocks[i], sizes[i]);
            }
            if (round % 100 == 0) {
                DrmDebugPrintMemInfo();
            }
        }
    });

    EXPECT_EQ(broken, 0u);
    EXPECT_EQ(PoolItems(), 0);
    (void)TakePrinted();
    DrmDebugPrintMemInfo();
    const std::string text = TakePrinted();
    for (const char *name : {"cm_size_32 ", "cm_size_128 ", "cm_size_4064 "}) {
        const size_t start = text.find(name);
        ASSERT_NE(start, std::string::npos);
        EXPECT_EQ(text.substr(start + 41, 22), "2000       0          ") << name;
    }
}

TEST_F(DrmConcurrencyTest, AtMost64TimersExist)
{
    std::atomic<uint32_t> made{0};
    g_timerCalls = 0;

    OnThreads(8, [&](uint32_t) {
        for (uint32_t i = 0; i < 20; i++) {
            made += DrmRegTimer("t", i, CountTimer, nullptr, DRM_TIMER_PERIODIC) == DRM_OK ? 1 : 0;
        }
    });

    EXPECT_EQ(made, 64u);
    EXPECT_EQ(g_drmTimerMgr.count, 64u);
    EXPECT_EQ(Timers().size(), 64u);
    EXPECT_EQ(HeapBlocks(), 64);
}

TEST_F(DrmConcurrencyTest, TimersExpireWhileOthersAreMade)
{
    constexpr uint32_t perThread = 200;
    std::atomic<uint32_t> made{0};
    std::atomic<uint32_t> makers{kThreads};
    g_timerCalls = 0;

    OnThreads(kThreads + 1, [&](uint32_t index) {
        if (index < kThreads) {
            for (uint32_t i = 0; i < perThread; i++) {
                while (DrmRegTimer("t", 0, CountTimer, nullptr, DRM_TIMER_ONE_SHOT) != DRM_OK) {
                    std::this_thread::yield();
                }
                made++;
            }
            makers--;
            return;
        }
        // One thread for all expiries, as the host has it.
        while (makers > 0 || !Timers().empty()) {
            for (const HostTimer &timer : Timers()) {
                (void)Fire(timer.handle);
            }
        }
    });

    EXPECT_EQ(made, kThreads * perThread);
    EXPECT_EQ(g_timerCalls, kThreads * perThread);
    EXPECT_EQ(g_drmTimerMgr.count, 0u);
    EXPECT_TRUE(DrmListEmpty(&g_drmTimerMgr.timers));
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(DrmConcurrencyTest, PrivateWordsAreGuardedByTheFeaturesLock)
{
    constexpr uint32_t featureId = 16;
    constexpr uint32_t rounds = 500;
    static uint64_t counter;
    counter = 0;
    ASSERT_EQ(setFeatureLocPrivateData(9, featureId, &counter), DRM_OK);

    OnThreads(kThreads, [&](uint32_t index) {
        for (uint32_t i = 0; i < rounds; i++) {
            {
                const DrmFeatureDataGuard guard(featureId);
                void *data = nullptr;
                ASSERT_EQ(getFeatureLocPrivateData(9, featureId, &data), DRM_OK);
                ++*static_cast<uint64_t *>(data);
                ASSERT_EQ(setFeatureLocPrivateData(20 + index, featureId, i % 2 == 0 ? &counter : nullptr), DRM_OK);
            }
            std::array<uint32_t, 128> ids{};
            uint32_t count = 0;
            ASSERT_EQ(getFeatureLocValidDataIndex(featureId, ids.data(), 128, &count), DRM_OK);
            ASSERT_GE(count, 1u);
            ASSERT_LE(count, 1 + kThreads);
        }
    });

    EXPECT_EQ(counter, kThreads * rounds);
}

TEST_F(DrmConcurrencyTest, OneLimiterServesAllThreads)
{
    constexpr uint64_t rounds = 500;
    DrmLogLimit limit;
    std::atomic<uint64_t> printed{0};
    SetJiffies(1);

    OnThreads(kThreads, [&](uint32_t) {
        for (uint64_t i = 0; i < rounds; i++) {
            printed += DrmLogLimitAsk(&limit, 100, 1000).print ? 1 : 0;
        }
    });

    EXPECT_EQ(printed, 1u);
    SetJiffies(1001);
    EXPECT_EQ(DrmLogLimitAsk(&limit, 100, 1000).suppressed, kThreads * rounds - 1);
}

TEST_F(DrmConcurrencyTest, AFeatureMayComeUpWhileDisksAreAnnounced)
{
    std::atomic<bool> registered{false};
    g_events = 0;
    g_prepared[0] = 0;

    OnThreads(2, [&](uint32_t index) {
        if (index == 0) {
            g_prepared[0] = 1; // without order of its own: the registration brings it along
            DrmRegisterDiskEventHandler(16, nullptr, CountEvent);
            registered = true;
            return;
        }
        for (bool last = false; !last;) {
            last = registered;
            DrmNotifyDiskEvent(1, 0);
        }
    });

    EXPECT_GE(g_events, 1u);
    DrmUnRegisterDiskEventHandler(16);
    const uint32_t before = g_events;
    DrmNotifyDiskEvent(1, 0);
    EXPECT_EQ(g_events, before);
}
