#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"

#include <array>
#include <atomic>
#include <cstring>

#include "ma/drm/framework/utils/drm_log.h"
#include "ma/drm/framework/utils/drm_relaxed.h"
#include "platform/nordiagnose.h"
#include "platform/normm.h"

namespace {

constexpr DrmMemPool Row(uint32_t index, const char *name, uint32_t fixSize, uint32_t minNum, uint32_t maxNum) noexcept
{
    return {0, index, name, fixSize, minNum, maxNum, 1, 0, 0, 0, 0};
}

/**
 * Smallest first: a request takes the first row that holds it. The second row has the size of the first, so nothing
 * reaches it; it keeps its place because the row number is part of what operators read.
 */
constinit std::array<DrmMemPool, DRM_MEM_POOL_NUM> g_pools{{
    Row(0, "cm_size_32", 40, 64, 30000),
    Row(1, "cm_size_64", 40, 64, 30000),
    Row(2, "cm_size_128", 136, 64, 30000),
    Row(3, "cm_size_256", 264, 64, 10000),
    Row(4, "cm_size_512", 520, 32, 5000),
    Row(5, "cm_size_1K", 1032, 16, 2500),
    Row(6, "cm_size_2K", 2056, 16, 2500),
    Row(7, "cm_size_4064", 4008, 16, 1000),
}};

void LogDemand() noexcept
{
    uint64_t atOnce = 0;
    uint64_t atMost = 0;
    for (const DrmMemPool &pool : g_pools) {
        const uint64_t poolAtOnce = static_cast<uint64_t>(pool.fixSize) * pool.minNum;
        const uint64_t poolAtMost = static_cast<uint64_t>(pool.fixSize) * pool.maxNum;
        DRM_LOG(CORVANE_LOG_DEBUG, "BDM:%s fixsize=%u, minnum=%u, maxnum=%u, malloc mem = %llu, max mem=%llu.",
                pool.name, pool.fixSize, pool.minNum, pool.maxNum, static_cast<unsigned long long>(poolAtOnce),
                static_cast<unsigned long long>(poolAtMost));
        atOnce += poolAtOnce;
        atMost += poolAtMost;
    }
    DRM_LOG(CORVANE_LOG_INFO, "Total malloc mem = %lu byte.", atOnce);
    DRM_LOG(CORVANE_LOG_INFO, "Need max mem = %lu byte.", atMost);
}

/** @return 0, or what the host said to the first that it refused; the others are deleted all the same. */
uint32_t DeletePools() noexcept
{
    uint32_t result = 0;
    for (DrmMemPool &pool : g_pools) {
        if (pool.poolId == 0) {
            continue;
        }
        const uint32_t deleted = deletePartitionByID(pool.poolId);
        DrmStoreRelaxed(pool.poolId, 0u);
        if (result == 0) {
            result = deleted;
        }
    }
    return result;
}

uint32_t CreatePool(DrmMemPool &pool) noexcept
{
    uint32_t poolId = 0;
    const uint32_t result = createExpStructurePartition(pool.minNum, pool.maxNum, pool.name, DRM_HOST_MODULE,
                                                        pool.reserved, pool.fixSize, &poolId, 0, 0, pool.extendFlag);
    if (result != 0) {
        return result;
    }
    DrmStoreRelaxed(pool.poolId, poolId);
    DrmStoreRelaxed(pool.allocCount, int64_t{0});
    DrmStoreRelaxed(pool.inUse, int64_t{0});
    DrmStoreRelaxed(pool.burstMax, int64_t{0});
    return 0;
}

/** The pool for a request, or null if none is large enough. */
DrmMemPool *PoolFor(uint64_t size) noexcept
{
    for (DrmMemPool &pool : g_pools) {
        if (pool.fixSize - DRM_MEM_HEADER_SIZE >= size) {
            return &pool;
        }
    }
    return nullptr;
}

void CountAllocation(DrmMemPool &pool) noexcept
{
    std::atomic_ref<int64_t>(pool.allocCount).fetch_add(1, std::memory_order_relaxed);
    const int64_t inUse = std::atomic_ref<int64_t>(pool.inUse).fetch_add(1, std::memory_order_relaxed) + 1;
    // Two threads may overwrite each other's peak: good enough for a statistic.
    if (inUse > DrmLoadRelaxed(pool.burstMax)) {
        DrmStoreRelaxed(pool.burstMax, inUse);
        DRM_LOG(CORVANE_LOG_DEBUG, "BDM: %s burstMax=%ld.", pool.name, inUse);
    }
}

} // namespace

extern "C" {

uint32_t DrmMemMgrInit(void) noexcept
{
    LogDemand();
    if (DrmInitMemPool() != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Create mempool failed.");
        return DRM_ERR_FAIL;
    }
    DRM_LOG(CORVANE_LOG_INFO, "DrmMemMgrInit init ok.");
    return DRM_OK;
}

uint32_t DrmMemMgrFin(void) noexcept
{
    const uint32_t result = DeletePools();
    if (result != 0) {
        DRM_LOG(CORVANE_LOG_ERROR, "DrmFiniMpool failed ret=%u", result);
        return DRM_ERR_FAIL;
    }
    DRM_LOG(CORVANE_LOG_INFO, "DrmMemMgrFin finish,ret=%u", result);
    return DRM_OK;
}

uint32_t DrmInitMemPool(void) noexcept
{
    for (DrmMemPool &pool : g_pools) {
        if (CreatePool(pool) != 0) {
            DRM_LOG(CORVANE_LOG_ERROR, "create mem pool name(%s) failed, size(%u) min(%u) max(%u).", pool.name,
                    pool.fixSize, pool.minNum, pool.maxNum);
            (void)DeletePools();
            return DRM_ERR_FAIL;
        }
    }
    return DRM_OK;
}

void *DrmMemMallocLv(const char *name, uint32_t line, uint64_t size) noexcept
{
    DrmMemPool *pool = PoolFor(size);
    if (pool == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "alloc fail,%s:%d:%ld", name, static_cast<int>(line), static_cast<long>(size));
        return nullptr;
    }
    void *item = nullptr;
    if (allocStructure(DRM_HOST_MODULE, DrmLoadRelaxed(pool->poolId), &item, name, line) != 0 || item == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "alloc mem fail, %s:%d", name, static_cast<int>(line));
        return nullptr;
    }
    std::memset(item, 0, pool->fixSize);
    const uint64_t header = pool->index;
    std::memcpy(item, &header, sizeof(header));
    CountAllocation(*pool);
    return static_cast<uint8_t *>(item) + DRM_MEM_HEADER_SIZE;
}

void DrmMemFreeLv(const char *name, uint32_t line, void *ptr, uint64_t /*size*/) noexcept
{
    if (ptr == nullptr) {
        DRM_LOG_LIMITED(CORVANE_LOG_ERROR, kDrmLogWindow, kDrmLogReportInterval, "Free invalid LV mem.");
        return;
    }
    uint8_t *item = static_cast<uint8_t *>(ptr) - DRM_MEM_HEADER_SIZE;
    uint64_t header = 0;
    std::memcpy(&header, item, sizeof(header));
    if (header >= g_pools.size()) {
        DRM_LOG(CORVANE_LOG_ERROR, "invalid pool_id, %s:%d.", name, static_cast<int>(line));
        return;
    }
    DrmMemPool &pool = g_pools[header];
    std::atomic_ref<int64_t>(pool.inUse).fetch_sub(1, std::memory_order_relaxed);
    (void)freeStructure(item, DrmLoadRelaxed(pool.poolId), DRM_HOST_MODULE, name, line);
}

void *DrmMallocUmmMem(const char *name, uint32_t pid, uint32_t size) noexcept
{
    if (size == 0) {
        return nullptr;
    }
    void *block = normm_malloc(size, DRM_HOST_MODULE, name);
    if (block == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "alloc mem fail, input pid(%u), used pid(%u)", pid, DRM_HOST_MODULE);
        return nullptr;
    }
    std::memset(block, 0, size);
    return block;
}

void DrmFreeUmmMem(const char *name, uint32_t pid, void *ptr, uint32_t /*size*/) noexcept
{
    if (ptr == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Free invalid umm mem, input pid(%u), used pid(%u)", pid, DRM_HOST_MODULE);
        return;
    }
    normm_free(ptr, DRM_HOST_MODULE, name);
}

void DrmDebugPrintMemInfo(void) noexcept
{
    for (DrmMemPool &pool : g_pools) {
        (void)DBG_Print("%-40s %-10ld %-10ld %-10ld\n", pool.name, DrmLoadRelaxed(pool.allocCount),
                        DrmLoadRelaxed(pool.inUse), DrmLoadRelaxed(pool.burstMax));
    }
}

} // extern "C"
