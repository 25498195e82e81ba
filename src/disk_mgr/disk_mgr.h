/**
 * @file disk_mgr.h
 * @brief The registry: which disk has which identifier, kept across restarts.
 *
 * Owns g_diskMgrObj and every record in it, the cursor of identifier assignment and the path of the registry file.
 * Takes no lock: each call but DiskMgrInit() and DiskMgrDestroy() is made with g_dataMgrLock held, file saves
 * included. DiskMgrInit() runs on the starting thread before any other thread of the library.
 */
#ifndef DISK_MGR_H
#define DISK_MGR_H

#include <stdbool.h>
#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define DISK_MGR_ERR_FAIL 0xFFFFFFFFu /**< bad argument, failed copy, failed save */
#define DISK_MGR_ERR_NO_DISK 1u       /**< identifier out of range, or nobody has it */
#define DISK_MGR_ERR_DISK_LIMIT 2u    /**< DISK_ONLINE_MAX disks are registered */
#define DISK_MGR_ERR_UNKNOWN_SN 4u    /**< no disk with this serial number */
#define DISK_MGR_ERR_TOO_SMALL 6u     /**< the caller's arrays do not hold all disks */
#define DISK_MGR_ERR_PARAM 7u         /**< identifier out of range, or no record */

/** One record per registered disk at the index of its identifier; null where nobody has the identifier. */
extern CORVANE_API DiskMgrObj *g_diskMgrObj[DISK_ID_MAX];
/** Atomic of the adapter table: registered disks. Null unless the registry is initialised. */
extern CORVANE_API void *g_diskNumAtomic;
/** Cursor of identifier assignment, 0..127. */
extern CORVANE_API uint32_t g_nextUnusedDiskId;
/** Spinlock of the adapter table, made and destroyed with the registry; no operation takes it. */
extern CORVANE_API void *g_diskMgrLock;
/** Path of the registry file, in memory of the adapter table. */
extern CORVANE_API char *g_configFilePath;
/** True between DiskMgrInit() and DiskMgrDestroy(). */
extern CORVANE_API bool g_diskMgrInited;

/**
 * @brief Make the registry and fill it from its file.
 * @param[in] path  Registry file; null: "config/disk_mgr.config" below the prefix. Copied.
 * @retval 0                  Ready. A file that is missing or bad is no failure: what was loaded counts.
 * @retval DISK_MGR_ERR_FAIL  Already initialised, no memory, or the path is too long.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DiskMgrInit(const char *path) CORVANE_NOEXCEPT;

/**
 * @brief Give the registry's memory back. Records with identifiers from 64 stay in the table.
 * @return Always 0, also when there is nothing to destroy.
 */
CORVANE_API uint32_t DiskMgrDestroy(void) CORVANE_NOEXCEPT;

/**
 * @brief Find a disk by its serial number, which is compared over 40 characters whatever its length says.
 * @param[in]  sn      Terminated, or at least 40 bytes long.
 * @param[out] diskId  Untouched unless the disk is found.
 * @retval 0                        Found.
 * @retval DISK_MGR_ERR_UNKNOWN_SN  No such disk.
 * @retval DISK_MGR_ERR_FAIL        A length above 40, or a null pointer.
 */
CORVANE_NODISCARD CORVANE_API uint32_t GetDiskIdBySn(DiskSnRef sn, uint32_t *diskId) CORVANE_NOEXCEPT;

/**
 * @brief Whether a disk with this serial number is registered. The length is not looked at.
 * @retval 0                  It is: mind the sense.
 * @retval DISK_MGR_ERR_FAIL  It is not, or there is no serial number.
 */
CORVANE_NODISCARD CORVANE_API uint32_t IsSNExist(DiskSnRef sn) CORVANE_NOEXCEPT;

/**
 * @brief Propose an identifier for a new disk: the first free one at or behind the cursor, cyclically.
 *
 * Nothing is reserved: until DiskInfoUpdate() takes the identifier, the next call proposes it again.
 * @retval 0                        Proposed.
 * @retval DISK_MGR_ERR_DISK_LIMIT  DISK_ONLINE_MAX disks are registered.
 * @retval DISK_MGR_ERR_FAIL        A length above 40, a null pointer, no identifier free, or not initialised.
 */
CORVANE_NODISCARD CORVANE_API uint32_t GetNewDiskId(DiskSnRef sn, uint32_t *diskId) CORVANE_NOEXCEPT;

/**
 * @brief List identifiers and serial numbers of all disks, by rising identifier.
 * @param[out]    ids       @p capacity identifiers.
 * @param[in,out] sns       @p capacity references; each text goes to buf, whose size is len.
 * @param[in]     capacity  Entries of both arrays.
 * @param[out]    count     Number of registered disks, also with DISK_MGR_ERR_TOO_SMALL.
 * @retval 0                       Listed.
 * @retval DISK_MGR_ERR_TOO_SMALL  @p capacity is below the number of disks.
 * @retval DISK_MGR_ERR_FAIL       A serial number does not fit its buffer, a null pointer, or not initialised.
 */
CORVANE_NODISCARD CORVANE_API uint32_t GetAllSnAndDiskId(uint32_t *ids, DiskSnRef *sns, uint32_t capacity,
                                                         uint32_t *count) CORVANE_NOEXCEPT;

/**
 * @brief Add, change or remove a disk, and save the registry.
 *
 * A free identifier takes a copy of the record, as a disk in state 0. An identifier in use takes the record's content,
 * or, with state DISK_STATE_OFFLINE, loses its disk.
 * @param[in] diskId  0..127.
 * @param[in] obj     Stays the caller's. May be the stored record itself, which is gone after it went offline.
 * @retval 0                   Done and saved.
 * @retval DISK_MGR_ERR_PARAM  Identifier out of range, or no record.
 * @retval DISK_MGR_ERR_FAIL   Another disk has the identifier or the serial number, a disk nobody knows goes offline,
 *                             or the save failed. After a failed save of a change the new content stays in memory;
 *                             a disk that was to come or to go is as before, its state included.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DiskInfoUpdate(uint32_t diskId, DiskMgrObj *obj) CORVANE_NOEXCEPT;

/**
 * @brief Hand out the live record, not a copy. It stays the registry's, and valid until the disk goes offline.
 * @retval 0                     @p obj is set.
 * @retval DISK_MGR_ERR_NO_DISK  Nobody has the identifier; @p obj is untouched.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DiskInfoGet(uint32_t diskId, DiskMgrObj **obj) CORVANE_NOEXCEPT;

/**
 * @brief Whether the caller gave a path.
 * @retval 0                  There is one.
 * @retval DISK_MGR_ERR_FAIL  Null.
 */
CORVANE_NODISCARD CORVANE_API uint32_t ConfigFilePathCheck(const char *path) CORVANE_NOEXCEPT;

/**
 * @brief Make a copy of @p path the path of the registry file. The former path is freed.
 * @retval 0                  Set.
 * @retval DISK_MGR_ERR_FAIL  Null, or no memory; the former path stays.
 */
CORVANE_NODISCARD CORVANE_API uint32_t SetGConfigFilePath(const char *path) CORVANE_NOEXCEPT;

/**
 * @brief Write the whole table to the registry file.
 * @retval 0                  Saved.
 * @retval DISK_MGR_ERR_FAIL  No memory, no path, or a file operation failed.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DiskInfoSavetoConfig(void) CORVANE_NOEXCEPT;

/**
 * @brief Read the registry file into the table. Of two entries with one identifier the first wins.
 * @retval 0                  Loaded.
 * @retval DISK_MGR_ERR_FAIL  No file, more than DISK_ONLINE_MAX entries (none is taken), or a bad entry: then the
 *                            slots below 64 are emptied, the others and the disk count stay as they are.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DiskInfoLoadConfig(void) CORVANE_NOEXCEPT;

/**
 * @brief DiskInfoUpdate() for a free identifier.
 * @retval 0                  Stored and saved; the disk count is one higher.
 * @retval DISK_MGR_ERR_FAIL  Serial number known, state DISK_STATE_OFFLINE, no memory, or the save failed.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DiskMgrHandleNewDiskId(uint32_t diskId, DiskMgrObj *obj) CORVANE_NOEXCEPT;

/**
 * @brief DiskInfoUpdate() for a disk that goes offline. Frees the stored record.
 * @retval 0                  Removed and saved; the disk count is one lower.
 * @retval DISK_MGR_ERR_FAIL  Nobody has the identifier, or the save failed: the disk stays, in its former state.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DiskMgrHandleOfflineObj(uint32_t diskId) CORVANE_NOEXCEPT;

/** @brief Free the records of the identifiers 0 to 63 and empty their slots. The disk count stays. */
CORVANE_API void DiskMgrFreeAllObjs(void) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
