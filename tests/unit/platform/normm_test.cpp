#include "platform/normm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

using ::testing::HasSubstr;

namespace {

struct Usage {
    uint64_t bytes = 0;
    uint64_t blocks = 0;
};

Usage UsageOf(uint32_t module)
{
    Usage usage;
    normm_usage(module, &usage.bytes, &usage.blocks);
    return usage;
}

class NormmPoolTest : public ::testing::Test {
protected:
    NormmPoolTest() { EXPECT_EQ(nor_mm_pool_init(), 0); }
    ~NormmPoolTest() override { EXPECT_EQ(nor_mm_pool_exit(), 0); }

    static uint32_t MakePool(uint32_t minNum, uint32_t maxNum, uint32_t fixSize, uint32_t *id, uint32_t extend = 1)
    {
        return createExpStructurePartition(minNum, maxNum, "pool", 481, 0, fixSize, id, 0, 0, extend);
    }
    static void *Take(uint32_t id)
    {
        void *item = nullptr;
        return allocStructure(481, id, &item, __func__, 1) == 0 ? item : nullptr;
    }
    static uint32_t Give(void *item, uint32_t id) { return freeStructure(item, id, 481, "Give", 7); }
};

} // namespace

TEST(NormmMallocTest, ChargesTheModule)
{
    const Usage before = UsageOf(481);

    void *block = normm_malloc(100, 481, "test");
    ASSERT_NE(block, nullptr);
    std::memset(block, 0xff, 100);

    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0U);
    EXPECT_EQ(UsageOf(481).bytes, before.bytes + 100);
    EXPECT_EQ(UsageOf(481).blocks, before.blocks + 1);
    EXPECT_EQ(UsageOf(482).blocks, 0U);

    normm_free(block, 999, "another module");

    EXPECT_EQ(UsageOf(481).bytes, before.bytes);
    EXPECT_EQ(UsageOf(481).blocks, before.blocks);
    EXPECT_EQ(UsageOf(999).blocks, 0U);
}

TEST(NormmMallocTest, SharesTheLastAccountAmongLargeIdentifiers)
{
    void *block = normm_malloc(10, 0xffffffff, "test");

    EXPECT_EQ(UsageOf(NORMM_MODULES - 1).bytes, 10U);
    EXPECT_EQ(UsageOf(NORMM_MODULES + 5).bytes, 10U);

    normm_free(block, 0, "test");
    EXPECT_EQ(UsageOf(NORMM_MODULES - 1).bytes, 0U);
}

TEST(NormmMallocTest, ServesSizeZeroAndRefusesTheImpossible)
{
    void *empty = normm_malloc(0, 481, "test");

    EXPECT_NE(empty, nullptr);
    EXPECT_EQ(normm_malloc(UINT64_MAX, 481, "test"), nullptr);
    EXPECT_EQ(normm_malloc(UINT64_MAX - 8, 481, "test"), nullptr);

    normm_free(empty, 481, "test");
    EXPECT_EQ(UsageOf(481).blocks, 0U);
}

TEST(NormmFreeTest, LeavesForeignMemoryAlone)
{
    alignas(16) std::array<uint64_t, 8> foreign{};
    testing::internal::CaptureStderr();

    normm_free(&foreign[2], 481, "Whoever");
    normm_free(nullptr, 481, "Whoever");

    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_THAT(text, HasSubstr("is no block of the heap, module 481, Whoever\n"));
}

TEST_F(NormmPoolTest, GivesMaxNumItemsAndNoMore)
{
    uint32_t id = 0;
    ASSERT_EQ(MakePool(2, 50, 40, &id), 0U);
    std::set<void *> items;

    for (int i = 0; i < 50; i++) {
        void *item = Take(id);
        ASSERT_NE(item, nullptr) << i;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(item) % alignof(std::max_align_t), 0U);
        std::memset(item, 0xee, 40);
        items.insert(item);
    }
    void *surplus = &id;

    EXPECT_EQ(items.size(), 50U);
    EXPECT_EQ(allocStructure(481, id, &surplus, "f", 1), static_cast<uint32_t>(ENOMEM));
    EXPECT_EQ(surplus, &id);

    EXPECT_EQ(Give(*items.begin(), id), 0U);
    EXPECT_EQ(Take(id), *items.begin()) << "a free item serves again";
}

TEST_F(NormmPoolTest, MakesMinNumItemsAtOnce)
{
    const Usage before = UsageOf(481);
    uint32_t id = 0;

    ASSERT_EQ(MakePool(64, 30000, 40, &id), 0U);

    EXPECT_GE(UsageOf(481).bytes, before.bytes + 64 * 40);
    const uint64_t made = UsageOf(481).bytes;
    for (int i = 0; i < 64; i++) {
        ASSERT_NE(Take(id), nullptr);
    }
    EXPECT_EQ(UsageOf(481).bytes, made) << "the first minNum items need no more memory";
    EXPECT_NE(Take(id), nullptr);
    EXPECT_GT(UsageOf(481).bytes, made);

    EXPECT_EQ(deletePartitionByID(id), 0U);
    EXPECT_EQ(UsageOf(481).bytes, before.bytes);
    EXPECT_EQ(UsageOf(481).blocks, before.blocks);
}

TEST_F(NormmPoolTest, StaysAtMinNumWithoutExtension)
{
    uint32_t id = 0;
    ASSERT_EQ(MakePool(2, 10, 8, &id, 0), 0U);

    EXPECT_NE(Take(id), nullptr);
    EXPECT_NE(Take(id), nullptr);

    EXPECT_EQ(Take(id), nullptr);
}

TEST_F(NormmPoolTest, StartsEmptyWithMinNumZero)
{
    uint32_t id = 0;
    ASSERT_EQ(MakePool(0, 1, 1, &id), 0U);

    EXPECT_NE(Take(id), nullptr);

    EXPECT_EQ(Take(id), nullptr);
}

TEST_F(NormmPoolTest, LeavesWhatIsNoItemThatIsOutAlone)
{
    uint32_t id = 0;
    uint32_t other = 0;
    ASSERT_EQ(MakePool(2, 2, 64, &id), 0U);
    ASSERT_EQ(MakePool(2, 2, 64, &other), 0U);
    auto *item = static_cast<std::byte *>(Take(id));
    testing::internal::CaptureStderr();

    EXPECT_EQ(Give(item + 8, id), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(Give(item, other), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(Give(&id, id), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(Give(item, id), 0U);
    EXPECT_EQ(Give(item, id), static_cast<uint32_t>(EINVAL)) << "given twice";
    EXPECT_EQ(Give(nullptr, id), static_cast<uint32_t>(EINVAL));

    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("is no item of pool pool that is out, Give:7\n"));
    EXPECT_NE(Take(id), Take(id)) << "the pool is whole";
}

TEST_F(NormmPoolTest, ADeletedPoolIsGoneForItsOldIdentifier)
{
    uint32_t id = 0;
    uint32_t next = 0;
    ASSERT_EQ(MakePool(1, 1, 8, &id), 0U);
    void *item = Take(id);

    EXPECT_EQ(deletePartitionByID(id, 481U, "more"), 0U);
    ASSERT_EQ(MakePool(1, 1, 8, &next), 0U);

    EXPECT_NE(next, id);
    EXPECT_NE(next, 0U);
    EXPECT_EQ(deletePartitionByID(id), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(allocStructure(481, id, &item, "f", 1), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(Give(item, id), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(Give(item, 0), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(deletePartitionByID(0), static_cast<uint32_t>(ENOENT));
}

TEST_F(NormmPoolTest, RefusesBadArguments)
{
    uint32_t id = 77;
    constexpr auto kInvalid = static_cast<uint32_t>(EINVAL);

    EXPECT_EQ(MakePool(1, 1, 8, nullptr), kInvalid);
    EXPECT_EQ(MakePool(1, 1, 0, &id), kInvalid);
    EXPECT_EQ(MakePool(0, 0, 8, &id), kInvalid);
    EXPECT_EQ(MakePool(2, 1, 8, &id), kInvalid);
    EXPECT_EQ(MakePool(0, 1, 8, &id, 0), kInvalid);
    EXPECT_EQ(allocStructure(481, id, nullptr, "f", 1), kInvalid);

    EXPECT_EQ(id, 77U);
}

TEST_F(NormmPoolTest, RefusesAFullTable)
{
    std::vector<uint32_t> ids;
    uint32_t id = 0;
    uint32_t status = 0;
    while ((status = MakePool(1, 1, 8, &id)) == 0 && ids.size() < 1000) {
        ids.push_back(id);
    }

    EXPECT_EQ(status, static_cast<uint32_t>(ENOSPC));
    EXPECT_EQ(std::set<uint32_t>(ids.begin(), ids.end()).size(), ids.size());

    EXPECT_EQ(deletePartitionByID(ids.front()), 0U);
    EXPECT_EQ(MakePool(1, 1, 8, &id), 0U);
}

TEST_F(NormmPoolTest, ContinuousPartitionIsOneZeroedBlock)
{
    const Usage before = UsageOf(481);
    uint32_t id = 0;
    void *block = nullptr;

    ASSERT_EQ(createContinuousPartition(33792, "BLOCK", 481, 0, &id, &block, "f"), 0U);

    const std::vector<uint8_t> zeros(33792, 0);
    EXPECT_EQ(std::memcmp(block, zeros.data(), zeros.size()), 0);
    EXPECT_EQ(UsageOf(481).bytes, before.bytes + 33792);
    void *item = nullptr;
    EXPECT_EQ(allocStructure(481, id, &item, "f", 1), static_cast<uint32_t>(ENOENT)) << "it is no pool";
    EXPECT_EQ(deletePartitionByID(id), 0U);
    EXPECT_EQ(UsageOf(481).bytes, before.bytes);
}

TEST_F(NormmPoolTest, ContinuousPartitionRefusesBadArguments)
{
    uint32_t id = 77;
    void *block = &id;

    EXPECT_EQ(createContinuousPartition(0, "B", 481, 0, &id, &block, "f"), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(createContinuousPartition(8, "B", 481, 0, nullptr, &block, "f"), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(createContinuousPartition(8, "B", 481, 0, &id, nullptr, "f"), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(createContinuousPartition(UINT64_MAX, "B", 481, 0, &id, &block, "f"), static_cast<uint32_t>(ENOMEM));

    EXPECT_EQ(id, 77U);
    EXPECT_EQ(block, &id);
}

TEST_F(NormmPoolTest, ServesManyThreads)
{
    uint32_t id = 0;
    ASSERT_EQ(MakePool(1, 64, sizeof(uint64_t), &id), 0U);
    std::atomic<uint32_t> broken{0};
    std::vector<std::thread> threads;

    for (uint64_t i = 1; i <= 4; i++) {
        threads.emplace_back([id, i, &broken] {
            for (int round = 0; round < 2000; round++) {
                std::array<void *, 16> items{};
                for (void *&item : items) {
                    item = Take(id);
                    if (item == nullptr) {
                        broken++;
                        return;
                    }
                    std::memcpy(item, &i, sizeof(i));
                }
                for (void *item : items) {
                    broken += std::memcmp(item, &i, sizeof(i)) != 0 || Give(item, id) != 0 ? 1 : 0;
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }

    EXPECT_EQ(broken, 0U);
}

TEST(NorMmPoolInitTest, PoolsNeedAStartAndEndWithIt)
{
    uint32_t id = 0;
    void *block = nullptr;
    EXPECT_EQ(createContinuousPartition(8, "B", 481, 0, &id, &block, "f"), static_cast<uint32_t>(ESRCH));
    EXPECT_EQ(nor_mm_pool_exit(), ESRCH);
    ASSERT_EQ(nor_mm_pool_init(), 0);
    ASSERT_EQ(nor_mm_pool_init(), 0);
    ASSERT_EQ(createContinuousPartition(8, "B", 481, 0, &id, &block, "f"), 0U);

    EXPECT_EQ(nor_mm_pool_exit(), 0);
    EXPECT_EQ(UsageOf(481).bytes, 8U) << "one start is left";
    EXPECT_EQ(nor_mm_pool_exit(), 0);

    EXPECT_EQ(UsageOf(481).bytes, 0U);
    EXPECT_EQ(deletePartitionByID(id), static_cast<uint32_t>(ENOENT));
}
