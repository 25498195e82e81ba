/**
 * @file data_mgr_master.h
 * @brief The live picture of every disk of the node, and the one pair of doors to it.
 *
 * Owns g_diskDataMgr, every DataMgrObj in it and g_dataMgrLock. The collectors write, the features and the command
 * line read: DataMgrDiskInfoSet() and DataMgrDiskInfoGet() check, lock and pass on to a row of a table, indexed by the
 * information type. Any thread may call both and their wrappers; none may hold g_dataMgrLock.
 *
 * g_dataMgrLock is a spinlock of the adapter table and is held over the rows, and with them over saves of the
 * registry file, the wait for the data agent and for the collection agents, and the announcement to the features.
 */
#ifndef DATA_MGR_MASTER_H
#define DATA_MGR_MASTER_H

#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define DATA_MGR_ERR_FAIL 0xFFFFFFFFu    /**< bad argument, not ready, or a failed row */
#define DATA_MGR_ERR_NO_OBJECT 1u        /**< no such disk */
#define DATA_MGR_ERR_OBJECT_EXISTS 3u    /**< the identifier of a new disk has an object already */
#define DATA_MGR_ERR_SN_MISMATCH 4u      /**< the serial number is another disk's */
#define DATA_MGR_ERR_NOT_IN_WHITELIST 8u /**< an unknown disk that is not admitted */

#define DATA_MGR_IO_STAT_NUM 100u /**< statistics kept of each disk */
#define DATA_MGR_SET_ID_LIMIT 64u /**< sets refuse identifiers from here on, gets from DISK_ID_MAX on */

/** Which of a disk's records a set or a get is about: the index of both dispatch tables. */
typedef enum {
    DISK_INFO_BASE = 0,         /**< DiskMgrObj */
    DISK_INFO_IO = 1,           /**< a set takes a DiskIoInfoFrame, a get gives a DiskIoStatInfo */
    DISK_INFO_HEALTH = 2,       /**< DiskHealthInfo */
    DISK_INFO_DRM = 3,          /**< DiskDrmInfo */
    DISK_INFO_NODE = 4,         /**< DiskNodeInfo */
    DISK_INFO_STRATEGY = 5,     /**< uint32_t, DISK_STRATEGY_E */
    DISK_INFO_STATE = 6,        /**< uint32_t, DISK_STATE_E */
    DISK_INFO_STRATEGY_STR = 7, /**< a pointer to a fixed text; cannot be set */
    DISK_INFO_BUTT = 8,
} DISK_INFO_TYPE_E;

/** What an operator should do about a disk. */
typedef enum {
    DISK_STRATEGY_NONE = 0,
    DISK_STRATEGY_MIGRATE_REPLACE = 1,
    DISK_STRATEGY_REPLACE = 2,
    DISK_STRATEGY_NO_TEXT = 3, /**< stored like the others, but has no text */
    DISK_STRATEGY_BUTT = 4,
} DISK_STRATEGY_E;

/** What the features are told about a disk. */
typedef enum {
    DISK_EVENT_IN = 0,
    DISK_EVENT_OUT = 1,
} DISK_EVENT_E;

/** Everything known about one disk that is online. */
typedef struct DataMgrObj {
    uint32_t diskId;
    DiskMgrObj *baseInfo;                        /**< the registry's record, not owned */
    DiskIoStatInfo ioStat[DATA_MGR_IO_STAT_NUM]; /**< ring */
    uint32_t ioStatHead;                         /**< slot to overwrite next, once the ring is full */
    uint32_t ioStatCount;                        /**< slots in use; below 100 the next one goes to this slot */
    DiskIoInfoFrame lastFrame;                   /**< ticks 0: there has been none */
    DiskHealthInfo healthInfo;
    DiskNodeInfo nodeInfo;
    DiskDrmInfo drmInfo;
    uint32_t strategy; /**< DISK_STRATEGY_E */
} DataMgrObj;

/** A row of g_diskInfoSetFunc. Called with g_dataMgrLock held, on the thread of the set, after CheckParamValid(). */
typedef uint32_t (*DataMgrInfoSetFunc)(uint32_t diskId, DiskSnRef sn, void *value);
/** A row of g_diskInfoGetFunc. Called with g_dataMgrLock held, on the thread of the get, for a disk that exists. */
typedef uint32_t (*DataMgrInfoGetFunc)(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen);
/** Told of disks that come and go, with g_dataMgrLock held: may queue work, must not call the store. */
typedef uint32_t (*DrmDiskEventNotifyFunc)(uint32_t diskId, DiskSnRef sn, uint32_t eventType);

/** One object per disk at the index of its identifier, else null. Guarded by g_dataMgrLock. */
extern CORVANE_API DataMgrObj *g_diskDataMgr[DISK_ID_MAX];
/** Row n serves information type n; the last is null, since nobody sets a text. */
extern CORVANE_API DataMgrInfoSetFunc g_diskInfoSetFunc[DISK_INFO_BUTT];
/** Row n serves information type n; none is null. */
extern CORVANE_API DataMgrInfoGetFunc g_diskInfoGetFunc[DISK_INFO_BUTT];
/** Guards the whole store and the registry. Made once, at the first need, and never given back. */
extern CORVANE_API void *g_dataMgrLock;
/** The features' callback, or null. */
extern CORVANE_API DrmDiskEventNotifyFunc g_drmDiskEventNotifyFunc;
/** Wall clock, seconds: when a statistics record last entered a ring. Written as an atomic. */
extern CORVANE_API uint64_t g_ioStatFreshTime;

/**
 * @brief Store one record of a disk.
 *
 * A base record whose serial number is unknown makes a new disk, if it is admitted.
 * @param[in] diskId    0..63, or DISK_ID_BY_SN to find the disk by @p sn.
 * @param[in] sn        Terminated, or at least 40 bytes long; not kept.
 * @param[in] buf       The record; not kept. Of a base record the identifier is written, and a state to keep replaced.
 * @param[in] infoType  DISK_INFO_TYPE_E.
 * @retval 0                              Stored.
 * @retval DATA_MGR_ERR_FAIL              Bad argument, not initialised, disabled, or the row failed.
 * @retval DATA_MGR_ERR_NO_OBJECT         No such disk, or an identifier of 64 and above.
 * @retval DATA_MGR_ERR_SN_MISMATCH       @p sn is not this disk's, or no disk has it.
 * @retval DATA_MGR_ERR_NOT_IN_WHITELIST  An unknown disk that is not admitted.
 * @return Otherwise what DataMgrCreateNewDiskInfo() or the row gave.
 * @note Takes g_dataMgrLock. Any thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrDiskInfoSet(uint32_t diskId, DiskSnRef sn, void *buf,
                                                          uint32_t infoType) CORVANE_NOEXCEPT;

/**
 * @brief Read one record of a disk. Works while the store is disabled.
 * @param[in]  diskId    0..127.
 * @param[in]  sn        As for the set; with a length of 0 any serial number will do.
 * @param[out] buf       The record.
 * @param[in]  bufLen    Bytes at @p buf; fewer than the record needs is a failure.
 * @param[in]  infoType  DISK_INFO_TYPE_E.
 * @retval 0                         Read.
 * @retval DATA_MGR_ERR_FAIL         Bad argument, not initialised, or the row failed.
 * @retval DATA_MGR_ERR_NO_OBJECT    No such disk.
 * @retval DATA_MGR_ERR_SN_MISMATCH  @p sn is not this disk's.
 * @note Takes g_dataMgrLock. Any thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrDiskInfoGet(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen,
                                                          uint32_t infoType) CORVANE_NOEXCEPT;

/**
 * @brief Whether a set may go to this disk.
 * @retval 0                         It may.
 * @retval DATA_MGR_ERR_NO_OBJECT    Identifier of 64 and above, or no such disk.
 * @retval DATA_MGR_ERR_SN_MISMATCH  The stored serial number differs in the first 40 characters.
 * @note The caller holds g_dataMgrLock.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CheckParamValid(uint32_t diskId, DiskSnRef sn,
                                                       uint32_t infoType) CORVANE_NOEXCEPT;

/** @return A zeroed object without prediction, to be freed through slot 1 of the adapter table; null without memory. */
CORVANE_NODISCARD CORVANE_API DataMgrObj *DataMgrCreateEmptyDataMgrObj(uint32_t diskId) CORVANE_NOEXCEPT;

/** @return g_diskDataMgr: DISK_ID_MAX entries, to be looked at with g_dataMgrLock held. */
CORVANE_NODISCARD CORVANE_API DataMgrObj **GetDataMgrObjs(void) CORVANE_NOEXCEPT;

/** @name Sets that find the disk by its serial number. Results as DataMgrDiskInfoSet(). */
/** @{ */
/** @param[in,out] buf DiskMgrObj */
CORVANE_NODISCARD CORVANE_API uint32_t DiskBaseInfoSet(DiskSnRef sn, void *buf) CORVANE_NOEXCEPT;
/** @param[in] buf DiskIoInfoFrame */
CORVANE_NODISCARD CORVANE_API uint32_t DiskIoStatInfoSet(DiskSnRef sn, void *buf) CORVANE_NOEXCEPT;
/** @param[in] buf DiskHealthInfo */
CORVANE_NODISCARD CORVANE_API uint32_t DiskHealthInfoSet(DiskSnRef sn, void *buf) CORVANE_NOEXCEPT;
/** @param[in] buf DiskNodeInfo */
CORVANE_NODISCARD CORVANE_API uint32_t DiskNodeInfoSet(DiskSnRef sn, void *buf) CORVANE_NOEXCEPT;
/** @} */

/** @name Sets by identifier. Results as DataMgrDiskInfoSet(). */
/** @{ */
/** @param[in] buf DiskDrmInfo */
CORVANE_NODISCARD CORVANE_API uint32_t DiskDrmInfoSet(uint32_t diskId, DiskSnRef sn, void *buf) CORVANE_NOEXCEPT;
/** @param[in] strategy DISK_STRATEGY_E; DATA_MGR_ERR_FAIL from DISK_STRATEGY_BUTT on. */
CORVANE_NODISCARD CORVANE_API uint32_t DiskStrategySet(uint32_t diskId, DiskSnRef sn,
                                                       uint32_t strategy) CORVANE_NOEXCEPT;
/**
 * @brief Set the state, and with it the strategy; tell the data agent of both.
 * @param[in] state  DISK_STATE_E below DISK_STATE_KEEP, else DATA_MGR_ERR_FAIL.
 * @return Otherwise the result of the last message or announcement: it may be a failure though the state has changed.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DiskStateSet(uint32_t diskId, DiskSnRef sn, uint32_t state) CORVANE_NOEXCEPT;
/** @} */

/** @name Gets. Results as DataMgrDiskInfoGet(). */
/** @{ */
/** @param[out] buf DiskMgrObj */
CORVANE_NODISCARD CORVANE_API uint32_t DiskBaseInfoGet(uint32_t diskId, DiskSnRef sn, void *buf,
                                                       uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf DiskIoStatInfo, the newest */
CORVANE_NODISCARD CORVANE_API uint32_t DiskIoStatInfoGet(uint32_t diskId, DiskSnRef sn, void *buf,
                                                         uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf DiskHealthInfo */
CORVANE_NODISCARD CORVANE_API uint32_t DiskHealthInfoGet(uint32_t diskId, DiskSnRef sn, void *buf,
                                                         uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf DiskNodeInfo */
CORVANE_NODISCARD CORVANE_API uint32_t DiskNodeInfoGet(uint32_t diskId, DiskSnRef sn, void *buf,
                                                       uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf DiskDrmInfo */
CORVANE_NODISCARD CORVANE_API uint32_t DiskDrmInfoGet(uint32_t diskId, DiskSnRef sn, void *buf,
                                                      uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf DISK_STRATEGY_E */
CORVANE_NODISCARD CORVANE_API uint32_t DiskStrategyGet(uint32_t diskId, DiskSnRef sn, uint32_t *buf) CORVANE_NOEXCEPT;
/** @param[out] buf DISK_STATE_E */
CORVANE_NODISCARD CORVANE_API uint32_t DiskDiskStateInfoCliGet(uint32_t diskId, DiskSnRef sn,
                                                               uint32_t *buf) CORVANE_NOEXCEPT;
/** @} */

/** @name Gets without a serial number. Results as DataMgrDiskInfoGet(). */
/** @{ */
/** @param[out] buf DiskMgrObj */
CORVANE_NODISCARD CORVANE_API uint32_t DiskBaseInfoCliGet(uint32_t diskId, void *buf, uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf DiskIoStatInfo, the newest */
CORVANE_NODISCARD CORVANE_API uint32_t DiskIoStatInfoCliGet(uint32_t diskId, void *buf,
                                                            uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf DiskHealthInfo */
CORVANE_NODISCARD CORVANE_API uint32_t DiskSmartInfoCliGet(uint32_t diskId, void *buf,
                                                           uint32_t bufLen) CORVANE_NOEXCEPT;
/** @param[out] buf DiskDrmInfo */
CORVANE_NODISCARD CORVANE_API uint32_t DiskDrmInfoCliGet(uint32_t diskId, void *buf, uint32_t bufLen) CORVANE_NOEXCEPT;
/** @return The fixed text of the disk's strategy; null for DISK_STRATEGY_NO_TEXT, and when the get fails. */
CORVANE_NODISCARD CORVANE_API const char *DiskStrategyStrGet(uint32_t diskId) CORVANE_NOEXCEPT;
/** @} */

/**
 * @brief List the registered disks. Arguments and further results as GetAllSnAndDiskId().
 * @retval 0                  Listed; or the store is disabled and nothing has been written.
 * @retval DATA_MGR_ERR_FAIL  Not initialised, or a copy failed.
 * @note Takes g_dataMgrLock. Any thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t ListAllOnlineDisk(uint32_t *ids, DiskSnRef *sns, uint32_t capacity,
                                                         uint32_t *count) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <cstddef>
static_assert(offsetof(DataMgrObj, baseInfo) == 8 && offsetof(DataMgrObj, ioStat) == 16);
static_assert(offsetof(DataMgrObj, ioStatHead) == 7216 && offsetof(DataMgrObj, ioStatCount) == 7220);
static_assert(offsetof(DataMgrObj, lastFrame) == 7224 && offsetof(DataMgrObj, healthInfo) == 7304);
static_assert(offsetof(DataMgrObj, nodeInfo) == 7440 && offsetof(DataMgrObj, drmInfo) == 7504);
static_assert(offsetof(DataMgrObj, strategy) == 7512);
#endif

#endif
