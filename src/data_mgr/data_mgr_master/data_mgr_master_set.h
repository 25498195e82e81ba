/**
 * @file data_mgr_master_set.h
 * @brief The rows of g_diskInfoSetFunc: how each kind of record enters the store.
 *
 * Owns the objects that a disk set to offline leaves behind. Every function is called by DataMgrDiskInfoSet(), with
 * g_dataMgrLock held and after CheckParamValid(); the messages to the data agent take g_dataMgrRpcLock inside it.
 * The row of the I/O frames is in data_mgr_io_stat.h.
 */
#ifndef DATA_MGR_MASTER_SET_H
#define DATA_MGR_MASTER_SET_H

#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/**
 * @brief Store a base record and save the registry; a record with DISK_STATE_OFFLINE removes the disk.
 * @param[in,out] value  DiskMgrObj; gets the identifier, and the stored state in place of DISK_STATE_KEEP.
 * @retval 0                       Stored, or equal to what is stored.
 * @retval DATA_MGR_ERR_FAIL       No record, or the registry refused it.
 * @retval DATA_MGR_ERR_NO_OBJECT  No such disk.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrBaseInfoSetInner(uint32_t diskId, DiskSnRef sn,
                                                               void *value) CORVANE_NOEXCEPT;

/** @param[in] value DiskHealthInfo. @return 0, DATA_MGR_ERR_NO_OBJECT, or the result of the copy. */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrSmartInfoSetInner(uint32_t diskId, DiskSnRef sn,
                                                                void *value) CORVANE_NOEXCEPT;

/** @param[in] value DiskDrmInfo. @return 0, DATA_MGR_ERR_NO_OBJECT, or the result of the copy. */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrDrmInfoSetInner(uint32_t diskId, DiskSnRef sn,
                                                              void *value) CORVANE_NOEXCEPT;

/** @param[in] value DiskNodeInfo. @return 0, DATA_MGR_ERR_NO_OBJECT, or the result of the copy. */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrNodeInfoSetInner(uint32_t diskId, DiskSnRef sn,
                                                               void *value) CORVANE_NOEXCEPT;

/**
 * @brief Store the strategy and tell the data agent its text. A failed message is no failure.
 * @param[in] value  Address of a uint32_t below DISK_STRATEGY_BUTT.
 * @retval 0                       Stored.
 * @retval DATA_MGR_ERR_FAIL       No value, or too high a one; nothing has changed.
 * @retval DATA_MGR_ERR_NO_OBJECT  No such disk.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrStrategySetInner(uint32_t diskId, DiskSnRef sn,
                                                               void *value) CORVANE_NOEXCEPT;

/**
 * @brief Store the state, save the registry, tell the data agent, and set the strategy that goes with the state.
 *
 * With DISK_STATE_OFFLINE the object leaves g_diskDataMgr but is not freed.
 * @param[in] value  Address of a uint32_t below DISK_STATE_KEEP.
 * @retval DATA_MGR_ERR_FAIL       No value, or too high a one; nothing has changed.
 * @retval DATA_MGR_ERR_NO_OBJECT  No such disk.
 * @return Otherwise the result of the message, for DISK_STATE_OFFLINE of the announcement.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrDiskStateSetInner(uint32_t diskId, DiskSnRef sn,
                                                                void *value) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
