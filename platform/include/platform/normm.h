/**
 * @file normm.h
 * @brief The host's memory (libnormm.so): a heap accounted by module, pools of fixed items, contiguous blocks.
 *
 * Every operation may be called from any thread.
 */
#ifndef PLATFORM_NORMM_H
#define PLATFORM_NORMM_H

#include <stdint.h>

#ifdef __cplusplus
#define NORMM_NOEXCEPT noexcept
extern "C" {
#else
#define NORMM_NOEXCEPT
#endif

/** Modules with an account of their own; the last row counts for all identifiers from there on. */
#define NORMM_MODULES 1024U

/**
 * Heap memory, aligned for any type and not cleared, counted to the module. Needs no start.
 * @param name Who asks, for messages.
 * @return the block, or null. Released by normm_free() only.
 */
void *normm_malloc(uint64_t size, uint32_t module, const char *name) NORMM_NOEXCEPT;
/** Releases a block; null does nothing. What is no block of the heap is told on standard error and left alone. */
void normm_free(void *ptr, uint32_t module, const char *name) NORMM_NOEXCEPT;
/** What a module holds at present, in bytes as asked for and in blocks. Either pointer may be null. */
void normm_usage(uint32_t module, uint64_t *bytes, uint64_t *blocks) NORMM_NOEXCEPT;

/** Starts pools and partitions. Calls are counted. @return 0. */
int nor_mm_pool_init(void) NORMM_NOEXCEPT;
/** Takes back one start; the last one releases every pool and partition that is left. @return 0, or ESRCH. */
int nor_mm_pool_exit(void) NORMM_NOEXCEPT;

/**
 * Makes a pool of items of @p fixSize bytes.
 * @param minNum     Items made at once.
 * @param maxNum     Items that can be out at the same time, from max(1, minNum) up.
 * @param name       Name for messages, copied up to 63 characters.
 * @param pid        Module whose account is charged for what the pool has made.
 * @param poolId     Receives the identifier, never 0.
 * @param extendFlag 0 keeps the pool at minNum items, else it grows to maxNum as needed.
 * @return 0, EINVAL, ENOMEM, ENOSPC if there are too many, or ESRCH while the pools are not started.
 */
uint32_t createExpStructurePartition(uint32_t minNum, uint32_t maxNum, const char *name, uint32_t pid,
                                     uint32_t reserved, uint32_t fixSize, uint32_t *poolId, uint32_t reserved2,
                                     uint32_t reserved3, uint32_t extendFlag) NORMM_NOEXCEPT;
/** Takes an item, not cleared. @return 0, ENOENT if there is no such pool, ENOMEM if it is empty, EINVAL. */
uint32_t allocStructure(uint32_t pid, uint32_t poolId, void **item, const char *function, uint32_t line) NORMM_NOEXCEPT;
/**
 * Gives an item back. What is not an item of this pool that is out is told on standard error and left alone.
 * @return 0, ENOENT if there is no such pool, EINVAL.
 */
uint32_t freeStructure(void *item, uint32_t poolId, uint32_t pid, const char *function, uint32_t line) NORMM_NOEXCEPT;
/** One zeroed block. @return as createExpStructurePartition(). */
uint32_t createContinuousPartition(uint64_t bytes, const char *name, uint32_t pid, uint32_t reserved,
                                   uint32_t *partitionId, void **block, const char *function) NORMM_NOEXCEPT;
/**
 * Ends a pool or a contiguous partition with all its items; further arguments are ignored.
 * @return 0, or ENOENT if there is none.
 */
uint32_t deletePartitionByID(uint32_t id, ...) NORMM_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
