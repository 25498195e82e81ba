/**
 * @file disk_mgr_file.h
 * @brief The registry file's content: one JSON array with an object of 13 members per disk, and the checks that an
 *        entry must pass at load.
 *
 * Owns the list of checks, which nothing changes. Takes no lock; any thread that owns the records it passes.
 */
#ifndef DISK_MGR_FILE_H
#define DISK_MGR_FILE_H

#include <cjson/cJSON.h>
#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define DISK_FILE_ERR_FAIL 0xFFFFFFFFu /**< failed check or conversion */

/** Steps of the check of one entry, and the index of g_diskConfigCjsonCheckList. */
enum DiskConfigCheckStep {
    DISK_CHECK_DISK_ID = 0,
    DISK_CHECK_DISK_STATE = 1,
    DISK_CHECK_FRAME_ID = 2,
    DISK_CHECK_SLOT_ID = 3,
    DISK_CHECK_DISK_CAPACITY = 4,
    DISK_CHECK_SECTOR_SIZE = 5,
    DISK_CHECK_VENDOR = 6,
    DISK_CHECK_MODEL = 7,
    DISK_CHECK_FIRMWARE = 8,
    DISK_CHECK_SN = 9,
    DISK_CHECK_PCI_ADDR = 10,
    DISK_CHECK_DISK_TYPE = 11,
    DISK_CHECK_MEDIA_TYPE = 12,
    DISK_CHECK_LIMIT = 13, /**< end mark */
};

#define DISK_CHECK_ROWS 14u

/** @return 0 if the item passes. @p item is null when the entry lacks the member. */
typedef uint32_t (*DiskConfigCheckFunc)(cJSON *item, uint32_t step);

/** A row of the check list: the member's key and its rule. */
typedef struct DiskConfigCheckRow {
    uint32_t step; /**< enum DiskConfigCheckStep, equals the index */
    const char *key;
    DiskConfigCheckFunc check; /**< never null */
} DiskConfigCheckRow;

extern CORVANE_API DiskConfigCheckRow g_diskConfigCjsonCheckList[DISK_CHECK_ROWS];

/** @return One entry of the file, the caller deletes it; null, with a log line, when there is no memory. */
CORVANE_NODISCARD CORVANE_API cJSON *ConvertSingleDiskMgrObj2cJSON(DiskMgrObj *obj) CORVANE_NOEXCEPT;

/**
 * @brief The whole file's tree: an array with one entry per disk, in the order of @p objs.
 * @param[in]  objs   @p count pointers, null where there is no disk.
 * @param[out] json   The array, which the caller deletes; null after a failure.
 * @retval 0                   Made.
 * @retval DISK_FILE_ERR_FAIL  Null pointer, or no memory.
 */
CORVANE_NODISCARD CORVANE_API uint32_t ConvertDiskMgrObjs2cJSON(DiskMgrObj **objs, int32_t count,
                                                                cJSON **json) CORVANE_NOEXCEPT;

/**
 * @brief Check one entry and fill a record from it.
 * @param[out] obj  Its device name becomes "unknown": the kernel names disks anew at each start.
 * @retval 0                   Filled.
 * @retval DISK_FILE_ERR_FAIL  The entry did not pass the check; @p obj is untouched.
 * @return Else the bitwise or of the failed copies.
 */
CORVANE_NODISCARD CORVANE_API uint32_t ParseCJson2DiskInfo(cJSON *json, DiskMgrObj *obj) CORVANE_NOEXCEPT;

/**
 * @brief Walk over the check list, up to the first failure.
 * @retval 0                   Every member passed.
 * @retval DISK_FILE_ERR_FAIL  A member is missing or breaks its rule, or there is no tree.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CheckCJsonIsValidDiskInfo(cJSON *json) CORVANE_NOEXCEPT;

/** @brief Rule of the numbers. A negative number counts as 0, a fraction is cut off. @return 0 or DISK_FILE_ERR_FAIL */
CORVANE_NODISCARD CORVANE_API uint32_t CheckCJsonNumValue(cJSON *item, uint32_t step) CORVANE_NOEXCEPT;

/** @brief Rule of the texts: shorter than the record's field. @return 0 or DISK_FILE_ERR_FAIL */
CORVANE_NODISCARD CORVANE_API uint32_t CheckCJsonStrValue(cJSON *item, uint32_t step) CORVANE_NOEXCEPT;

/** @brief Stands at the end mark; the walk does not reach it. @return DISK_FILE_ERR_FAIL */
CORVANE_NODISCARD CORVANE_API uint32_t CheckCJsonError(cJSON *item, uint32_t step) CORVANE_NOEXCEPT;

/** @return 0 if @p low <= @p value < @p high, else DISK_FILE_ERR_FAIL, as for an empty range. */
CORVANE_NODISCARD CORVANE_API uint32_t CheckUIntInRange(uint32_t value, uint32_t low, uint32_t high) CORVANE_NOEXCEPT;

/** @return 0 if @p text is shorter than @p limit characters, else DISK_FILE_ERR_FAIL. */
CORVANE_NODISCARD CORVANE_API uint32_t CheckStrInLimitLength(const char *text, uint32_t limit) CORVANE_NOEXCEPT;

/** @return 0 once @p obj has the member, DISK_FILE_ERR_FAIL without memory. */
CORVANE_NODISCARD CORVANE_API uint32_t DiskMgrAddNumToCJson(cJSON *obj, const char *name,
                                                            double value) CORVANE_NOEXCEPT;

/** @return 0 once @p obj has the member and reads back the same; else DISK_FILE_ERR_FAIL. */
CORVANE_NODISCARD CORVANE_API uint32_t DiskMgrAddStringToCJson(cJSON *obj, const char *name,
                                                               const char *value) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(DiskConfigCheckRow) == 24 && offsetof(DiskConfigCheckRow, key) == 8);
static_assert(offsetof(DiskConfigCheckRow, check) == 16);
#endif

#endif
