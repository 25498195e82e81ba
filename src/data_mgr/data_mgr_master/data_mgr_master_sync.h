/**
 * @file data_mgr_master_sync.h
 * @brief Repeats everything about all disks to the data agent now and then, in case it missed a message.
 *
 * Owns g_dmmSync2DmaSwitch and the thread that it stops. Start and cancel may be called from any thread. The copy of
 * the records is made with g_dataMgrLock held; it is sent without, one message at a time.
 */
#ifndef DATA_MGR_MASTER_SYNC_H
#define DATA_MGR_MASTER_SYNC_H

#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** 1 while the task should run; null before the first start and after a failed one. The byte is an atomic. */
extern CORVANE_API uint8_t *g_dmmSync2DmaSwitch;
/** Seconds before each sync. Read as an atomic. */
extern CORVANE_API uint32_t g_masterToAgentSyncInterval;

/**
 * @brief Send base record and strategy of each disk that is online. Messages that fail are not repeated.
 * @retval 0           Every disk's messages were tried.
 * @retval 0xFFFFFFFF  No memory, or a serial number of more than 38 characters: the disks behind it were left out.
 * @return otherwise the result of DataMgrAgentAllInfoGet().
 * @note Takes g_dataMgrLock, and after its release g_dataMgrRpcLock for each message.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrMasterSyncAll2Agent(void) CORVANE_NOEXCEPT;

/**
 * @brief Copy what the sync sends, in the order of the identifiers.
 * @param[out] records  DISK_ONLINE_MAX pointers to records.
 * @param[out] texts    DISK_ONLINE_MAX fixed texts; null for a disk whose strategy has none.
 * @param[out] count    Disks.
 * @retval 0           Copied.
 * @retval 0xFFFFFFFF  A null argument, or no memory.
 * @return otherwise the error of the copy.
 * @note Takes g_dataMgrLock.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrAgentAllInfoGet(DiskMgrObj **records, const char **texts,
                                                              uint32_t *count) CORVANE_NOEXCEPT;

/**
 * @brief Allocate records.
 * @param[out] array  @p count pointers to zeroed table memory.
 * @retval 0           All there.
 * @retval 0xFFFFFFFF  No memory; none is left over, and the pointers are null.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DiskBaseInfoArrayMalloc(DiskMgrObj **array, uint32_t count) CORVANE_NOEXCEPT;

/** @brief Start the task; its first sync comes after one interval. @retval 0xFFFFFFFF  It runs, or cannot be made. */
CORVANE_NODISCARD CORVANE_API uint32_t StartDmmSync2DmaScheduleTask(void) CORVANE_NOEXCEPT;
/** @brief Let it end after the sleep and the sync that it is in. @retval 0xFFFFFFFF  There never was one. */
CORVANE_NODISCARD CORVANE_API uint32_t CancelDmmSync2DmaScheduleTask(void) CORVANE_NOEXCEPT;
/** @brief The task: sleep and sync until the byte is 0. @return null */
CORVANE_API void *DataMgrMasterSyncAll2AgentHandle(void *switchByte) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
