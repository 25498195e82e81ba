/**
 * @file dcm_check_list.h
 * @brief The check lists' engine: runs the rows and hands back the members it found on the way.
 *
 * Owns no data, takes no lock, entered by the same threads as dcm_validate.h. C++ only; hidden in the library.
 */
#ifndef DCM_CHECK_LIST_H
#define DCM_CHECK_LIST_H

#include <cjson/cJSON.h>
#include <span>

#include "data_collect/data_collect_master/DCM_validate/dcm_validate.h"

/** @brief Say in the log, at debug level, which member of an object is missing or wrong. */
void LogCheckListFailure(const char *member) noexcept;

/**
 * @brief IsValidJsonWithCheckList that keeps the members.
 * @param[in]  json   The object; null fails.
 * @param[in]  list   Rows, taken in order up to the first failure, which is logged.
 * @param[out] found  Member of row i at i, for as many rows as there is room; may be empty. The nodes stay the tree's.
 */
[[nodiscard]] bool FindCheckedMembers(cJSON *json, std::span<const CheckRow> list, std::span<cJSON *> found) noexcept;

#endif
