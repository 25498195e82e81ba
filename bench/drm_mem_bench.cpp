// What a work item costs: a zeroed block of 24 bytes, taken and given back, from each allocator that could serve it.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_seperate.h"
#include "platform/normm.h"

namespace {

constexpr uint32_t kSize = sizeof(DrmSchedWorkItem);

void StartPools(const benchmark::State &)
{
    (void)nor_mm_pool_init();
    if (DrmMemMgrInit() != DRM_OK) {
        std::abort();
    }
}

void StopPools(const benchmark::State &)
{
    (void)DrmMemMgrFin();
    (void)nor_mm_pool_exit();
}

void PoolBlock(benchmark::State &state)
{
    for (auto _ : state) {
        void *block = DrmMemMallocLv(__func__, __LINE__, kSize);
        benchmark::DoNotOptimize(block);
        DrmMemFreeLv(__func__, __LINE__, block, kSize);
    }
}
BENCHMARK(PoolBlock)->Setup(StartPools)->Teardown(StopPools);
BENCHMARK(PoolBlock)->Setup(StartPools)->Teardown(StopPools)->Threads(2)->UseRealTime();

/** The framework's way to the host's heap. */
void HeapRecord(benchmark::State &state)
{
    for (auto _ : state) {
        void *block = DrmMallocUmmMem(__func__, DRM_HOST_MODULE, kSize);
        benchmark::DoNotOptimize(block);
        DrmFreeUmmMem(__func__, DRM_HOST_MODULE, block, kSize);
    }
}
BENCHMARK(HeapRecord);

/** The host's heap itself; not cleared. */
void HostHeap(benchmark::State &state)
{
    for (auto _ : state) {
        void *block = normm_malloc(kSize, DRM_HOST_MODULE, __func__);
        benchmark::DoNotOptimize(block);
        normm_free(block, DRM_HOST_MODULE, __func__);
    }
}
BENCHMARK(HostHeap);
BENCHMARK(HostHeap)->Threads(2)->UseRealTime();

/** The C library, cleared as the others are. */
void Calloc(benchmark::State &state)
{
    for (auto _ : state) {
        void *block = std::calloc(1, kSize);
        benchmark::DoNotOptimize(block);
        std::free(block);
    }
}
BENCHMARK(Calloc);

void Malloc(benchmark::State &state)
{
    for (auto _ : state) {
        void *block = std::malloc(kSize);
        benchmark::DoNotOptimize(block);
        std::free(block);
    }
}
BENCHMARK(Malloc);
BENCHMARK(Malloc)->Threads(2)->UseRealTime();

} // namespace
