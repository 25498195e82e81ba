/**
 * @file dcm_array_list.h
 * @brief Record lists of the data collection master: an array of pointers to records of one size, each on its own.
 *
 * The records are separate pieces of table memory so that single ones can change their owner (the scan moves them
 * from the agents' lists into its own). No state, no lock; a list belongs to the thread that made it.
 */
#ifndef DCM_ARRAY_LIST_H
#define DCM_ARRAY_LIST_H

#include <stdint.h>

#include "data_collect/data_collect_master/dcm_error.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

typedef struct ArrayList {
    void **list;          /**< count pointers; null when there is no list */
    uint32_t count;       /**< records */
    uint32_t elementSize; /**< bytes of one record */
} ArrayList;

/**
 * @brief Make a list of zeroed records.
 * @param[out] list   Overwritten; holds no list after a failure.
 * @param[in]  count  Records, at least 1.
 * @param[in]  size   Bytes of one record, at least 1.
 * @retval 0                  Made; ArrayListDelete() frees it.
 * @retval DCM_ERR_BAD_INPUT  @p list is null, or @p count or @p size is 0.
 * @retval DCM_ERR_NO_MEMORY  No memory; nothing is left over.
 */
CORVANE_NODISCARD CORVANE_API uint32_t ArrayListCreate(ArrayList *list, uint32_t count, uint32_t size) CORVANE_NOEXCEPT;

/** @brief Free the records and the array; the list is empty afterwards. Null and an empty list are ignored. */
CORVANE_API void ArrayListDelete(ArrayList *list) CORVANE_NOEXCEPT;

/**
 * @brief @p count separate zeroed records of @p size bytes and the array of pointers to them.
 * @return the array, freed by FreeSeparateMemoryList(); null when there is no memory, with nothing left over.
 */
CORVANE_NODISCARD CORVANE_API void **AllocSeparateMemoryList(uint32_t count, uint32_t size) CORVANE_NOEXCEPT;

/** @brief Free @p count records (null entries are skipped) and the array. A null array is ignored. */
CORVANE_API void FreeSeparateMemoryList(void **list, uint32_t count) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(ArrayList) == 16 && offsetof(ArrayList, count) == 8 && offsetof(ArrayList, elementSize) == 12);
#endif

#endif
