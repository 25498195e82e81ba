/**
 * @file data_mgr_white_list.h
 * @brief Which disks are admitted, and a memory of those that were refused.
 *
 * Owns the admission table and the list of refused serial numbers, which only grows: a refused disk is not examined
 * again while the process runs. Entered by the sets and the refresh, with g_dataMgrLock held; takes no lock itself.
 */
#ifndef DATA_MGR_WHITE_LIST_H
#define DATA_MGR_WHITE_LIST_H

#include <stdbool.h>
#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define DISK_ADMISSION_ROWS 4u
#define NON_WHITE_LIST_MAX 64u      /**< serial numbers remembered */
#define NON_WHITE_LIST_SN_LIMIT 30u /**< room for a remembered serial number, terminator included */

#define WHITE_LIST_NO_MATCH 1u          /**< no row admits the disk */
#define WHITE_LIST_BAD_PATTERN 2u       /**< a pattern did not compile */
#define WHITE_LIST_ERR_FAIL 0xFFFFFFFFu /**< the cache is full, no memory, or the serial number is too long */

/** A kind of disk that is admitted. Both patterns are POSIX extended regular expressions. */
typedef struct DiskAdmissionRow {
    uint32_t diskType; /**< DISK_TYPE_E */
    char vendor[45];
    char model[31];
} DiskAdmissionRow;

/** A disk that was refused. */
typedef struct NonWhiteListSnNode {
    struct NonWhiteListSnNode *next;
    char sn[DISK_SN_SIZE];
} NonWhiteListSnNode;

/** Searched from the first row on. Not exported. */
extern DiskAdmissionRow g_diskAdmissionTable[DISK_ADMISSION_ROWS];
/** The refused disks, the last first. */
extern CORVANE_API NonWhiteListSnNode *g_nonWhiteListSnHead;
/** Length of that list. Not exported. */
extern uint32_t g_nonWhiteListSnCount;

/**
 * @brief Whether a disk of which only a set knows may be created.
 *
 * A disk that is not is remembered and refused from then on.
 * @param[in] buf       For DISK_INFO_BASE the DiskMgrObj to judge; else not looked at, the agent is asked.
 * @param[in] infoType  DISK_INFO_TYPE_E.
 */
CORVANE_NODISCARD CORVANE_API bool IsInWhiteList(DiskSnRef sn, void *buf, uint32_t infoType) CORVANE_NOEXCEPT;

/**
 * @brief Search the admission table.
 * @retval 0                       A row admits the disk.
 * @retval WHITE_LIST_NO_MATCH     None does.
 * @retval WHITE_LIST_BAD_PATTERN  The search met a pattern that does not compile.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CheckInWhiteList(const char *vendor, const char *model,
                                                        uint32_t diskType) CORVANE_NOEXCEPT;

/** @return Whether the disk was refused before. At most 40 characters are looked at. */
CORVANE_NODISCARD CORVANE_API bool IsInNonWhiteListSn(const char *sn) CORVANE_NOEXCEPT;

/**
 * @brief Remember a refused disk.
 * @retval 0                    Remembered.
 * @retval WHITE_LIST_ERR_FAIL  NON_WHITE_LIST_MAX are, no memory, or NON_WHITE_LIST_SN_LIMIT characters and more.
 */
CORVANE_NODISCARD CORVANE_API uint32_t AddSnToNonWhiteList(const char *sn) CORVANE_NOEXCEPT;

/** @brief Log a refusal, and remember the disk unless @p result is WHITE_LIST_BAD_PATTERN. */
CORVANE_API void ProcessNonWhitelist(const char *sn, const char *vendor, const char *model,
                                     uint32_t result) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
static_assert(sizeof(DiskAdmissionRow) == 80 && sizeof(NonWhiteListSnNode) == 48);
#endif

#endif
