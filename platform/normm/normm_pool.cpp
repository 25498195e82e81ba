// A partition is one slot of a fixed table. The identifier names the slot and how often it was used, so an identifier
// that outlived its partition finds nothing. Each slot has its own lock, held for a few instructions.

#include "mutex_guard.h"
#include "normm_account.h"
#include "platform/normm.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>

namespace {

constexpr uint32_t kSlotBits = 8;
constexpr uint32_t kSlots = 1U << kSlotBits;
/** Chunks double, so this many hold any number of items. */
constexpr uint32_t kMaxChunks = 34;
/** First growth of a pool that was made empty. */
constexpr uint32_t kFirstChunk = 16;

enum ItemState : uint8_t { ITEM_FREE = 0, ITEM_OUT = 1 };

struct Chunk {
    std::byte *items;
    uint8_t *states;
    uint32_t count;
};

struct Partition {
    pthread_mutex_t lock;
    uint32_t id; ///< 0: the slot is free
    uint32_t useCount;
    std::array<char, 64> name;
    uint32_t module;     ///< whose account is charged
    void *block;         ///< of a contiguous partition
    uint64_t blockBytes; ///< its size
    // The rest describes a pool.
    uint64_t itemSize; ///< rounded up for alignment
    uint32_t limit;
    uint32_t made;
    void *freeItems; ///< the first word of a free item points to the next
    uint32_t chunkCount;
    std::array<Chunk, kMaxChunks> chunks;
};

pthread_mutex_t g_startLock = PTHREAD_MUTEX_INITIALIZER; ///< before a slot's lock
uint32_t g_starts = 0;
std::array<Partition, kSlots> g_partitions;
pthread_once_t g_locksOnce = PTHREAD_ONCE_INIT;

void MakeLocks() noexcept
{
    for (Partition &partition : g_partitions) {
        (void)pthread_mutex_init(&partition.lock, nullptr);
    }
}

Partition &SlotOf(uint32_t id) noexcept
{
    (void)pthread_once(&g_locksOnce, MakeLocks);
    return g_partitions[id & (kSlots - 1)];
}

void ReleaseLocked(Partition &partition) noexcept
{
    for (uint32_t i = 0; i < partition.chunkCount; i++) {
        AccountGive(partition.module, partition.chunks[i].count * partition.itemSize);
        std::free(partition.chunks[i].items);
        std::free(partition.chunks[i].states);
    }
    if (partition.block != nullptr) {
        AccountGive(partition.module, partition.blockBytes);
        std::free(partition.block);
    }
    partition.id = 0;
    partition.block = nullptr;
    partition.chunkCount = 0;
    partition.made = 0;
    partition.freeItems = nullptr;
}

bool GrowLocked(Partition &pool, uint32_t count) noexcept
{
    if (count == 0 || pool.chunkCount == kMaxChunks || count > PTRDIFF_MAX / pool.itemSize) {
        return false;
    }
    // malloc aligns for any type, and so do items whose size is a multiple of that.
    Chunk chunk{static_cast<std::byte *>(std::malloc(count * pool.itemSize)),
                static_cast<uint8_t *>(std::calloc(count, sizeof(uint8_t))), count};
    if (chunk.items == nullptr || chunk.states == nullptr) {
        std::free(chunk.items);
        std::free(chunk.states);
        return false;
    }
    // From behind, so that items go out in the order of their addresses.
    for (uint32_t i = count; i > 0; i--) {
        void *item = chunk.items + (i - 1) * pool.itemSize;
        std::memcpy(item, &pool.freeItems, sizeof(void *));
        pool.freeItems = item;
    }
    pool.chunks[pool.chunkCount++] = chunk;
    pool.made += count;
    AccountTake(pool.module, count * pool.itemSize);
    return true;
}

/** The state of an item of the pool, or null if there is no item at this address. */
uint8_t *StateOfLocked(Partition &pool, const void *item) noexcept
{
    const auto address = reinterpret_cast<uintptr_t>(item);
    for (uint32_t i = 0; i < pool.chunkCount; i++) {
        const Chunk &chunk = pool.chunks[i];
        const auto start = reinterpret_cast<uintptr_t>(chunk.items);
        if (address >= start && address < start + chunk.count * pool.itemSize) {
            return (address - start) % pool.itemSize == 0 ? &chunk.states[(address - start) / pool.itemSize] : nullptr;
        }
    }
    return nullptr;
}

/** Takes a free slot and gives it an identifier. @return 0, ESRCH or ENOSPC. */
template <typename Fill>
uint32_t CreatePartition(const char *name, uint32_t *id, Fill fill) noexcept
{
    const MutexGuard start(g_startLock);
    if (g_starts == 0) {
        return ESRCH;
    }
    for (uint32_t i = 0; i < kSlots; i++) {
        Partition &partition = SlotOf(i);
        const MutexGuard guard(partition.lock);
        if (partition.id != 0) {
            continue;
        }
        if (!fill(partition)) {
            ReleaseLocked(partition);
            return ENOMEM;
        }
        // The use count starts at 1, so that no identifier is 0.
        partition.useCount = partition.useCount % ((1U << (32 - kSlotBits)) - 1) + 1;
        partition.id = partition.useCount << kSlotBits | i;
        (void)std::snprintf(partition.name.data(), partition.name.size(), "%s", name != nullptr ? name : "");
        *id = partition.id;
        return 0;
    }
    return ENOSPC;
}

} // namespace

#define NORMM_API __attribute__((visibility("default")))

extern "C" {

NORMM_API int nor_mm_pool_init(void) noexcept
{
    const MutexGuard guard(g_startLock);
    g_starts++;
    return 0;
}

NORMM_API int nor_mm_pool_exit(void) noexcept
{
    const MutexGuard start(g_startLock);
    if (g_starts == 0) {
        return ESRCH;
    }
    if (--g_starts == 0) {
        for (uint32_t i = 0; i < kSlots; i++) {
            Partition &partition = SlotOf(i);
            const MutexGuard guard(partition.lock);
            ReleaseLocked(partition);
        }
    }
    return 0;
}

NORMM_API uint32_t createExpStructurePartition(uint32_t minNum, uint32_t maxNum, const char *name, uint32_t pid,
                                               uint32_t, uint32_t fixSize, uint32_t *poolId, uint32_t, uint32_t,
                                               uint32_t extendFlag) noexcept
{
    if (poolId == nullptr || fixSize == 0 || maxNum == 0 || minNum > maxNum || (extendFlag == 0 && minNum == 0)) {
        return EINVAL;
    }
    return CreatePartition(name, poolId, [=](Partition &pool) noexcept {
        constexpr uint64_t kAlignment = alignof(std::max_align_t);
        pool.module = pid;
        pool.itemSize = (fixSize + kAlignment - 1) / kAlignment * kAlignment;
        pool.limit = extendFlag == 0 ? minNum : maxNum;
        return minNum == 0 || GrowLocked(pool, minNum);
    });
}

NORMM_API uint32_t allocStructure(uint32_t, uint32_t poolId, void **item, const char *, uint32_t) noexcept
{
    if (item == nullptr) {
        return EINVAL;
    }
    Partition &pool = SlotOf(poolId);
    const MutexGuard guard(pool.lock);
    if (poolId == 0 || pool.id != poolId || pool.block != nullptr) {
        return ENOENT;
    }
    if (pool.freeItems == nullptr &&
        !GrowLocked(pool, std::min(pool.limit - pool.made, std::max(pool.made, kFirstChunk)))) {
        return ENOMEM;
    }
    void *taken = pool.freeItems;
    std::memcpy(&pool.freeItems, taken, sizeof(void *));
    *StateOfLocked(pool, taken) = ITEM_OUT;
    *item = taken;
    return 0;
}

NORMM_API uint32_t freeStructure(void *item, uint32_t poolId, uint32_t, const char *function, uint32_t line) noexcept
{
    if (item == nullptr) {
        return EINVAL;
    }
    Partition &pool = SlotOf(poolId);
    const MutexGuard guard(pool.lock);
    if (poolId == 0 || pool.id != poolId || pool.block != nullptr) {
        return ENOENT;
    }
    uint8_t *state = StateOfLocked(pool, item);
    if (state == nullptr || *state != ITEM_OUT) {
        (void)std::fprintf(stderr, "normm: %p is no item of pool %s that is out, %s:%u\n", item, pool.name.data(),
                           function != nullptr ? function : "?", line);
        return EINVAL;
    }
    *state = ITEM_FREE;
    std::memcpy(item, &pool.freeItems, sizeof(void *));
    pool.freeItems = item;
    return 0;
}

NORMM_API uint32_t createContinuousPartition(uint64_t bytes, const char *name, uint32_t pid, uint32_t,
                                             uint32_t *partitionId, void **block, const char *) noexcept
{
    if (partitionId == nullptr || block == nullptr || bytes == 0) {
        return EINVAL;
    }
    return CreatePartition(name, partitionId, [=](Partition &partition) noexcept {
        partition.block = bytes <= PTRDIFF_MAX ? std::calloc(1, bytes) : nullptr;
        if (partition.block == nullptr) {
            return false;
        }
        partition.module = pid;
        partition.blockBytes = bytes;
        AccountTake(pid, bytes);
        *block = partition.block;
        return true;
    });
}

NORMM_API uint32_t deletePartitionByID(uint32_t id, ...) noexcept
{
    Partition &partition = SlotOf(id);
    const MutexGuard guard(partition.lock);
    if (id == 0 || partition.id != id) {
        return ENOENT;
    }
    ReleaseLocked(partition);
    return 0;
}

} // extern "C"
