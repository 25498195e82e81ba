/**
 * @file drm_mem_mgr.h
 * @brief The framework's two allocators: pools of fixed items for what the scheduling path needs, the host's heap for
 *        the rest.
 *
 * Owns the table of pools. Takes no lock of the library; any thread, once DrmMemMgrInit() has run.
 */
#ifndef DRM_MEM_MGR_H
#define DRM_MEM_MGR_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define DRM_MEM_POOL_NUM 8u
/** In front of each block: the number of its pool, so that a release needs no size. */
#define DRM_MEM_HEADER_SIZE 8u

/** A pool. 64 bytes. */
typedef struct DrmMemPool {
    uint32_t poolId; /**< the host's identifier; 0: not created */
    uint32_t index;  /**< row number */
    const char *name;
    uint32_t fixSize;    /**< bytes of an item, with its header */
    uint32_t minNum;     /**< items made at creation */
    uint32_t maxNum;     /**< items at most */
    uint32_t extendFlag; /**< handed to the host */
    uint32_t reserved;   /**< handed to the host */
    int64_t allocCount;  /**< allocations so far; atomic */
    int64_t inUse;       /**< items out at present; atomic */
    int64_t burstMax;    /**< highest inUse seen; may miss a peak */
} DrmMemPool;

/**
 * @brief Create the pools.
 * @retval DRM_ERR_FAIL  One could not be created; none exists.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmMemMgrInit(void) CORVANE_NOEXCEPT;
/** @brief Delete the pools, with whatever is out. @retval DRM_ERR_FAIL  The host refused one. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmMemMgrFin(void) CORVANE_NOEXCEPT;
/** @brief Create all pools or none; statistics start at 0. @retval DRM_ERR_FAIL  One could not be created. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmInitMemPool(void) CORVANE_NOEXCEPT;

/**
 * @brief A zeroed block of the smallest pool whose items hold it; a larger pool does not help out an empty one.
 * @param name, line  The caller's place, for messages.
 * @param size        Bytes, 4000 at most.
 * @return the block, or null. Released by DrmMemFreeLv() only.
 */
CORVANE_NODISCARD CORVANE_API void *DrmMemMallocLv(const char *name, uint32_t line, uint64_t size) CORVANE_NOEXCEPT;
/** @brief Return a block to its pool. Null, or a block whose header was overwritten, is logged. @p size is not used. */
CORVANE_API void DrmMemFreeLv(const char *name, uint32_t line, void *ptr, uint64_t size) CORVANE_NOEXCEPT;

/**
 * @brief A zeroed block of the host's heap.
 * @param pid  Module that asks, for messages; the heap counts everything to the framework's own.
 * @return the block, or null, also for size 0. Released by DrmFreeUmmMem() only.
 */
CORVANE_NODISCARD CORVANE_API void *DrmMallocUmmMem(const char *name, uint32_t pid, uint32_t size) CORVANE_NOEXCEPT;
/** @brief Release such a block; null is logged. @p size is not used. */
CORVANE_API void DrmFreeUmmMem(const char *name, uint32_t pid, void *ptr, uint32_t size) CORVANE_NOEXCEPT;

/** @brief Print one line per pool to the debug shell: name, allocations, items out, their peak. */
CORVANE_API void DrmDebugPrintMemInfo(void) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
#include <memory>
static_assert(sizeof(DrmMemPool) == 64 && offsetof(DrmMemPool, name) == 8 && offsetof(DrmMemPool, fixSize) == 16);
static_assert(offsetof(DrmMemPool, reserved) == 32 && offsetof(DrmMemPool, allocCount) == 40);
static_assert(offsetof(DrmMemPool, inUse) == 48 && offsetof(DrmMemPool, burstMax) == 56);

struct DrmUmmFree {
    void operator()(void *ptr) const noexcept { DrmFreeUmmMem("DrmUmmFree", 0, ptr, 0); }
};
/** A record on the host's heap. */
template <typename T>
using DrmUmmPtr = std::unique_ptr<T, DrmUmmFree>;

/** @brief A zeroed record on the host's heap, or null. @param name The caller. */
template <typename T>
[[nodiscard]] DrmUmmPtr<T> DrmUmmNew(const char *name = __builtin_FUNCTION()) noexcept
{
    return DrmUmmPtr<T>(static_cast<T *>(DrmMallocUmmMem(name, 481, sizeof(T))));
}
#endif

#endif
