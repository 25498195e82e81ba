/**
 * @file data_mgr_master_refresh.h
 * @brief Keeps the store's disks equal to those that the agents report; start, stop, enable and disable of the store.
 *
 * Owns nothing of its own: it makes and frees the objects of g_diskDataMgr. The scan thread enters through
 * DiskSerialNumberRefresh(), the start-up through DataMgrInit(), the feature switch through DataMgrEnable() and
 * DataMgrDisable(), the analysis framework through DataMgrSetDrmNotifyFunc(). These take g_dataMgrLock; the others
 * are called with it held. Under it a refresh waits for the collection agents, for the data agent and for the disk.
 */
#ifndef DATA_MGR_MASTER_REFRESH_H
#define DATA_MGR_MASTER_REFRESH_H

#include <stdint.h>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/**
 * @brief Take disks that are not in @p list offline, then bring unknown disks of @p list online. Also while disabled.
 * @param[in] list   Serial numbers, each terminated or at least 40 bytes long. May be null if @p count is 0.
 * @param[in] count  Entries; 0 takes every disk offline.
 * @retval 0                  Done. Disks that are not admitted are no failure.
 * @retval DATA_MGR_ERR_FAIL  Not initialised, no list, a fetch failed or a disk could not be created; what was done
 *                            before stays done.
 * @return Otherwise the registry's failure to let a disk go.
 * @note Takes g_dataMgrLock.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DiskSerialNumberRefresh(DiskSnRef *list, uint32_t count) CORVANE_NOEXCEPT;

/** @brief First pass of a refresh. Ends at the first failure. @return 0, DATA_MGR_ERR_FAIL or the registry's failure.
 */
CORVANE_NODISCARD CORVANE_API uint32_t OfflineDiskNotInSNList(DiskSnRef *list, uint32_t count) CORVANE_NOEXCEPT;

/** @brief Second pass of a refresh. Ends at the first failure. @return 0 or DATA_MGR_ERR_FAIL. */
CORVANE_NODISCARD CORVANE_API uint32_t OnLineDiskInSNList(DiskSnRef *list, uint32_t count) CORVANE_NOEXCEPT;

/**
 * @brief Register a disk, make its object, announce it and tell the data agent.
 * @param[in,out] record  Base record with the serial number; gets the identifier.
 * @retval 0                           The disk is online, whatever became of the announcement and the message.
 * @retval DATA_MGR_ERR_OBJECT_EXISTS  The proposed identifier has an object.
 * @retval DATA_MGR_ERR_FAIL           No record or no memory.
 * @return Otherwise the result of the registry.
 * @note The caller holds g_dataMgrLock.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrCreateNewDiskInfo(DiskMgrObj *record) CORVANE_NOEXCEPT;

/**
 * @brief Tell the features that a disk has come or gone.
 * @param[in] eventType  DISK_EVENT_E.
 * @retval 0                  Told.
 * @retval DATA_MGR_ERR_FAIL  There is no callback.
 * @return Otherwise the callback's result.
 * @note The caller holds g_dataMgrLock.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrNotifyDrmDiskEvent(uint32_t diskId, DiskSnRef sn,
                                                                 uint32_t eventType) CORVANE_NOEXCEPT;

/**
 * @brief Install the features' callback, or remove it with null. May come before DataMgrInit().
 * @return Always 0.
 * @note Takes g_dataMgrLock, and makes it if it is missing.
 */
CORVANE_API uint32_t DataMgrSetDrmNotifyFunc(DrmDiskEventNotifyFunc callback) CORVANE_NOEXCEPT;

/** @brief Tell the data agent; a failure is only logged. Arguments as DataMgrMasterSendRpcMsg2Agent(). */
CORVANE_API void SendMsgToDataMgrAgent(uint32_t type, DiskSnRef sn, void *data) CORVANE_NOEXCEPT;

/**
 * @brief Make an object for every registered disk.
 * @retval 0                  Made.
 * @retval DATA_MGR_ERR_FAIL  A disk has an object already, or no memory; objects made before stay.
 * @note The caller holds g_dataMgrLock.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CreateAllDataMgrObjsByDiskMgr(void) CORVANE_NOEXCEPT;

/**
 * @brief Announce every registered disk to the features, up to the first failure.
 * @return 0 or the result of DataMgrNotifyDrmDiskEvent().
 * @note The caller holds g_dataMgrLock.
 */
CORVANE_NODISCARD CORVANE_API uint32_t NotifyAllDiskFindInit(void) CORVANE_NOEXCEPT;

/**
 * @brief Start the store with the registry's disks, enabled, and announce them to the features.
 * @retval 0                  Started, whatever became of the announcements.
 * @retval DATA_MGR_ERR_FAIL  Started already, or no memory.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrInit(void) CORVANE_NOEXCEPT;

/** @brief Free all objects and stop the store; the lock stays. @return Always 0, also when the store is not started. */
CORVANE_API uint32_t DataMgrDestroy(void) CORVANE_NOEXCEPT;

/** @brief Allow sets again, with new objects for the registry's disks; the features are not told. */
CORVANE_API void DataMgrEnable(void) CORVANE_NOEXCEPT;

/** @brief Refuse sets and free all objects; the features are not told. */
CORVANE_API void DataMgrDisable(void) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
