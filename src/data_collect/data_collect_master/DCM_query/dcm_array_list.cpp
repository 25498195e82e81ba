#include "data_collect/data_collect_master/DCM_query/dcm_array_list.h"

#include <cstring>

#include "infrastructure/common/corvane_log.h"

extern "C" CORVANE_API void FreeSeparateMemoryList(void **list, uint32_t count) noexcept
{
    if (list == nullptr) {
        return;
    }
    for (uint32_t i = 0; i < count; i++) {
        if (list[i] != nullptr) {
            g_corvaneInfra.memFree(list[i]);
        }
    }
    g_corvaneInfra.memFree(list);
}

extern "C" CORVANE_API void **AllocSeparateMemoryList(uint32_t count, uint32_t size) noexcept
{
    auto **list = static_cast<void **>(g_corvaneInfra.memAlloc(uint64_t{count} * sizeof(void *)));
    if (list == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "malloc failed");
        return nullptr;
    }
    for (uint32_t i = 0; i < count; i++) {
        list[i] = g_corvaneInfra.memAlloc(size);
        if (list[i] == nullptr) {
            CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "malloc failed");
            FreeSeparateMemoryList(list, i);
            return nullptr;
        }
        std::memset(list[i], 0, size);
    }
    return list;
}

extern "C" CORVANE_API uint32_t ArrayListCreate(ArrayList *list, uint32_t count, uint32_t size) noexcept
{
    if (list != nullptr) {
        *list = {};
    }
    if (list == nullptr || count == 0 || size == 0) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "Check whether the value of ArrayList is initialized.");
        return DCM_ERR_BAD_INPUT;
    }
    void **records = AllocSeparateMemoryList(count, size);
    if (records == nullptr) {
        return DCM_ERR_NO_MEMORY;
    }
    *list = {.list = records, .count = count, .elementSize = size};
    return DCM_OK;
}

extern "C" CORVANE_API void ArrayListDelete(ArrayList *list) noexcept
{
    if (list != nullptr) {
        FreeSeparateMemoryList(list->list, list->count);
        *list = {};
    }
}
