/**
 * @file dcm_validate.h
 * @brief Checks of what agents answer. Nothing is copied from an answer that has not passed them.
 *
 * Owns no data. Entered by the workers of the agents, the scan thread and whoever fetches a base record; all functions
 * only read the tree they are given and take no lock. Member names are looked up without regard to case. Every
 * function accepts a null node and answers false.
 */
#ifndef DCM_VALIDATE_H
#define DCM_VALIDATE_H

#include <cjson/cJSON.h>
#include <stdbool.h>
#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** Most disks in one device list. */
#define DCM_DEVICE_LIST_MAX 64

/** One row of a check list: the member of that name must pass the check. A missing member is handed on as null. */
typedef struct CheckRow {
    const char *member;
    bool (*check)(cJSON *item); /**< never null; called on the checking thread, no lock held by this module */
} CheckRow;

/** @brief True for a string with a value; the empty string passes. */
CORVANE_API bool IsStringAndNotNull(cJSON *item) CORVANE_NOEXCEPT;

/** @brief True for a number, whatever its value. */
CORVANE_API bool IsJsonNumber(cJSON *item) CORVANE_NOEXCEPT;

/** @brief True for true and false. */
CORVANE_API bool IsJsonBoolean(cJSON *item) CORVANE_NOEXCEPT;

/** @brief True for a non-empty string of the characters 0 to 9 only; no sign, no space, any length. */
CORVANE_API bool IsDecimalUintString(cJSON *item) CORVANE_NOEXCEPT;

/** @brief True for a string that is one of the six names of g_diskTypeNameMap, without regard to case. */
CORVANE_API bool IsValidDiskType(cJSON *item) CORVANE_NOEXCEPT;

/** @brief True for a string that is one of the six names of g_diskMediaTypeNameMap, without regard to case. */
CORVANE_API bool IsValidDiskMediaType(cJSON *item) CORVANE_NOEXCEPT;

/**
 * @brief Check the PCI address of a base object, which only user-space NVMe disks have.
 * @param[in] diskTypeItem  Must be a valid disk type.
 * @param[in] pciItem       Must be a string for "SSD_NVMe"; anything, also null, for the other types.
 */
CORVANE_API bool IsValidPciAddress(cJSON *diskTypeItem, cJSON *pciItem) CORVANE_NOEXCEPT;

/**
 * @brief Check the members of an object in the order of a list, up to the first failure, which is logged.
 * @param[in] json   The object; null fails.
 * @param[in] list   @p count rows.
 * @param[in] count  Rows; 0 passes.
 */
CORVANE_API bool IsValidJsonWithCheckList(cJSON *json, const CheckRow *list, uint32_t count) CORVANE_NOEXCEPT;

/**
 * @brief Check the envelope of a response: "jsonrpc" is "2.0" to the letter, "id" is a number, "result" exists.
 *
 * The identifier is not compared with the one that was sent: a connection carries one exchange only.
 */
CORVANE_API bool IsValidJsonResponseHeader(cJSON *response) CORVANE_NOEXCEPT;

/**
 * @brief Check a result as a whole with the row of g_validateResultJsonStrategyMap.
 * @param[in] messageType     enum DcmMessageType; others fail.
 * @param[in] result          Member "result" of the response.
 * @param[in] requestedCount  Disks that were asked for.
 */
CORVANE_API bool IsValidResultJson(uint32_t messageType, cJSON *result, uint32_t requestedCount) CORVANE_NOEXCEPT;

/** @brief True when "disks" is an array of at most DCM_DEVICE_LIST_MAX items; more are logged. */
CORVANE_API bool IsValidDiskBriefInfoResultJson(cJSON *result) CORVANE_NOEXCEPT;

/** @brief True when "disks" is an array of at most @p requestedCount items. An agent may answer fewer than asked. */
CORVANE_API bool IsValidDiskBaseInfoResultJson(cJSON *result, uint32_t requestedCount) CORVANE_NOEXCEPT;

/** @brief True when "disks" is an array of at most @p requestedCount items. */
CORVANE_API bool IsValidDiskHealthInfoResultJson(cJSON *result, uint32_t requestedCount) CORVANE_NOEXCEPT;

/** @brief As IsValidDiskBaseInfoResultJson, and "tick_rate" and "ticks" are decimal strings. */
CORVANE_API bool IsValidDiskIoInfoFrameResultJson(cJSON *result, uint32_t requestedCount) CORVANE_NOEXCEPT;

/** @brief Check one disk of a base answer: nine members, and the PCI address where one is needed. */
CORVANE_API bool IsValidDiskBaseInfoJSON(cJSON *item) CORVANE_NOEXCEPT;

/**
 * @brief Check one disk of a health answer: five members, then those of its class.
 *
 * SATA hard disks have no form of the record and are refused with a log line.
 */
CORVANE_API bool IsValidDiskHealthInfoJSON(cJSON *item) CORVANE_NOEXCEPT;

/** @brief True for an array of exactly DISK_SMART_ATTR_NUM entries of four numbers; the first fault is logged. */
CORVANE_API bool IsValidSataSsdSmartAttrList(cJSON *item) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
