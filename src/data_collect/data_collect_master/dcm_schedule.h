/**
 * @file dcm_schedule.h
 * @brief The list of agents and the threads that collect from them.
 *
 * Each submitted agent has a worker thread that queries it until it is cancelled; one scan thread merges the device
 * lists of all agents and hands them to the refresh of the data store. Entered by the start-up, the switch command,
 * these threads, and the data store (FetchDiskBaseInfo).
 *
 * Three locks, made by InitDataCollectMaster(); of the three only the agent list's is taken inside another, the scan's
 * running lock, which the scan's thread holds for its life and g_dataMgrLock is taken inside of as well. The agent
 * list's lock is held over network I/O, so it is waited for by trying with short sleeps: whoever takes it may wait for
 * as long as the agents take to answer, 15 seconds for each that is silent. It is taken inside g_dataMgrLock by
 * FetchDiskBaseInfo() and therefore never held when the store is called.
 */
#ifndef DCM_SCHEDULE_H
#define DCM_SCHEDULE_H

#include <stdint.h>
#include <time.h>

#include "data_collect/data_collect_master/dcm_error.h"
#include "data_collect/data_collect_master/dcm_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

typedef struct AgentListNode {
    struct AgentListNode *next;
    AgentInfo agent;
    uint8_t *cancelFlag; /**< in the worker's context; not touched any more once it has been set */
} AgentListNode;

/** What a worker works on; freed at the worker's end. */
typedef struct QueryAgentTaskContext {
    AgentInfo agent;
    uint8_t cancelFlag;             /**< 1: end after this cycle; accessed as an atomic */
    time_t last[MESSAGE_TYPE_BUTT]; /**< last success of each message type, seconds; 0: never */
} QueryAgentTaskContext;

/** Period of each message type, milliseconds: scan and pause after a failed device list, base info, health, I/O. */
extern CORVANE_API uint32_t g_queryScheduledTaskConfigMap[MESSAGE_TYPE_BUTT];
/** Guards the agent list, also while the scan and FetchDiskBaseInfo() talk to the agents. Null before the init. */
extern CORVANE_API void *g_uniqueAgentListSpinLock;
/** Guards the pointer to the scan's running flag. Null before the init. */
extern CORVANE_API void *g_enableScanAllAgentDeviceListScheduleTaskSpinLock;
/** Held by the scan thread for its whole life. Null before the init. */
extern CORVANE_API void *g_uniqueScanAllAgentDeviceListScheduleTaskRunningSpinLock;

/**
 * @brief Make the locks.
 * @retval 0                  Made.
 * @retval DCM_ERR_ALREADY    They exist already.
 * @retval DCM_ERR_NO_MEMORY  No memory; nothing is left over and the call may be repeated.
 */
CORVANE_NODISCARD CORVANE_API uint32_t InitDataCollectMaster(void) CORVANE_NOEXCEPT;

/**
 * @brief Add an agent and start its worker.
 * @retval 0                  Started.
 * @retval DCM_ERR_NOT_INIT   InitDataCollectMaster() has not run.
 * @retval DCM_ERR_NO_MEMORY  No memory or no thread; the agent is not in the list.
 * @retval DCM_ERR_ALREADY    An equal agent is in the list.
 * @note Takes the agent list's lock. Any thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t SubmitQueryAgentScheduleTask(AgentInfo agent) CORVANE_NOEXCEPT;

/**
 * @brief Remove an agent; its worker ends after the cycle it is in. Does not wait for it.
 * @retval 0                 Removed, or not in the list.
 * @retval DCM_ERR_NOT_INIT  InitDataCollectMaster() has not run.
 * @note Takes the agent list's lock. Any thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CancelQueryAgentScheduleTask(AgentInfo agent) CORVANE_NOEXCEPT;

/**
 * @brief Remove all agents and cancel the scan.
 * @retval DCM_ERR_NOT_INIT  InitDataCollectMaster() has not run.
 * @return Otherwise the result of CancelScanAllAgentDeviceListScheduleTask().
 * @note Takes the agent list's lock, and after its release the one of the scan's flag. Any thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CancelAllQueryAgentScheduleTask(void) CORVANE_NOEXCEPT;

/**
 * @brief Start the scan thread. It waits until a cancelled scan before it has left.
 * @retval 0                  Started.
 * @retval DCM_ERR_NOT_INIT   InitDataCollectMaster() has not run.
 * @retval DCM_ERR_NO_MEMORY  No memory or no thread.
 * @retval DCM_ERR_ALREADY    A scan is running.
 * @note Takes the lock of the scan's flag. Any thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t SubmitScanAllAgentDeviceListScheduleTask(void) CORVANE_NOEXCEPT;

/**
 * @brief Cancel the scan; its thread ends after the round it is in. Does not wait for it.
 * @retval 0                 Cancelled.
 * @retval DCM_ERR_NOT_INIT  InitDataCollectMaster() has not run.
 * @retval DCM_ERR_ALREADY   No scan is running.
 * @note Takes the lock of the scan's flag. Any thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CancelScanAllAgentDeviceListScheduleTask(void) CORVANE_NOEXCEPT;

/**
 * @brief Find the agent that knows a disk and get the disk's base record from it.
 * @param[in]  sn      At most 40 bytes are compared; a text that ends before sn.len counts as zero-filled.
 * @param[out] record  Written on 0 only.
 * @retval 0                     Fetched.
 * @retval DCM_ERR_NOT_INIT      InitDataCollectMaster() has not run.
 * @retval DCM_ERR_BAD_INPUT     @p record or sn.buf is null.
 * @retval DCM_ERR_NO_SUCH_DISK  No agent knows the disk.
 * @return Otherwise the failure of the fetch.
 * @note May be called with g_dataMgrLock held. Takes the agent list's lock and waits for the agents under it.
 */
CORVANE_NODISCARD CORVANE_API uint32_t FetchDiskBaseInfo(DiskSnRef sn, DiskMgrObj *record) CORVANE_NOEXCEPT;

/**
 * @brief Link an agent at the head of the list.
 * @param[in] agent       Copied.
 * @param[in] cancelFlag  Set to 1 when the agent is cancelled, and not touched after that; stays the caller's.
 * @retval 0                  Linked.
 * @retval DCM_ERR_BAD_INPUT  A null argument.
 * @retval DCM_ERR_NOT_INIT   InitDataCollectMaster() has not run.
 * @retval DCM_ERR_ALREADY    An equal agent is in the list.
 * @retval DCM_ERR_NO_MEMORY  No memory.
 * @note Takes the agent list's lock. Any thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t UpdateUniqueAgentList(const AgentInfo *agent,
                                                             uint8_t *cancelFlag) CORVANE_NOEXCEPT;

/**
 * @brief One cycle of a worker: device list, the messages that are due, and the sleep after them. Without a device list
 *        the cycle is a sleep of 5 seconds.
 * @note Called without a lock; the saves take g_dataMgrLock.
 */
CORVANE_API void QueryAgentScheduleTask(QueryAgentTaskContext *context) CORVANE_NOEXCEPT;

/** @brief The sleep after a cycle: what is left of the I/O frames' period, or 500 ms when it has passed. */
CORVANE_API void QueryAgentScheduleTaskSleepForIoStat(QueryAgentTaskContext *context) CORVANE_NOEXCEPT;

/**
 * @brief One round of the scan: merge the device lists of all agents, 64 disks at most, and refresh the store. An agent
 *        that does not answer adds no disks, so that the refresh takes what it had offline.
 * @note Takes the agent list's lock over the queries, and after its release g_dataMgrLock.
 */
CORVANE_API void ScanAllAgentDeviceListScheduleTask(void) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
#include <atomic>
#include <cstddef>
/** 1 once the locks are being or have been made. Visible to tests, which start anew. */
extern std::atomic<uint32_t> g_dcmInitiated;
static_assert(sizeof(AgentListNode) == 88 && offsetof(AgentListNode, agent) == 8);
static_assert(offsetof(AgentListNode, cancelFlag) == 80);
static_assert(sizeof(QueryAgentTaskContext) == 104 && offsetof(QueryAgentTaskContext, cancelFlag) == 68);
static_assert(offsetof(QueryAgentTaskContext, last) == 72);
#endif

#endif
