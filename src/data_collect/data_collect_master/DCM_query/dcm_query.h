/**
 * @file dcm_query.h
 * @brief The query pipeline: from one message type to records.
 *
 * Owns the strategy maps, which say for each message type how its request is built, its answer checked and copied and
 * its records saved. Entered by the agents' workers, their query threads, the scan and the data store's refresh; takes
 * no lock itself, but holds a caller for as long as an agent takes to answer.
 */
#ifndef DCM_QUERY_H
#define DCM_QUERY_H

#include <cjson/cJSON.h>
#include <stdbool.h>
#include <stdint.h>

#include "data_collect/data_collect_master/DCM_query/dcm_array_list.h"
#include "data_collect/data_collect_master/DCM_query/dcm_request.h"
#include "data_collect/data_collect_master/dcm_error.h"
#include "data_collect/data_collect_master/dcm_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** Checks the "result" of an answer for at most @p requestedCount disks. */
typedef bool (*DcmValidateResultFunc)(cJSON *result, uint32_t requestedCount);
/** Copies one element of "disks" into the record of its message type; 0 or an error number. */
typedef uint32_t (*DcmCopyFromJsonFunc)(cJSON *item, void *record);
/** Hands @p count records to the data store; 0 or the last error. */
typedef uint32_t (*DcmSaveMessageFunc)(cJSON *result, void **records, uint32_t count);

/* The strategy maps: index is the message type. No row is null. Rows run on the thread of the query, without locks. */
extern CORVANE_API DcmConstructRequestFunc g_constructRequestStrategyMap[MESSAGE_TYPE_BUTT];
extern CORVANE_API DcmValidateResultFunc g_validateResultJsonStrategyMap[MESSAGE_TYPE_BUTT];
extern CORVANE_API DcmCopyFromJsonFunc g_copyStructFromJsonStrategyMap[MESSAGE_TYPE_BUTT];
extern CORVANE_API DcmSaveMessageFunc g_saveMessageStrategyMap[MESSAGE_TYPE_BUTT];
/** Disks of one request. Row 0 is not used: device lists are not stepped. */
extern CORVANE_API uint32_t g_queryMessageStepMap[MESSAGE_TYPE_BUTT];
/** Bytes of the record that the copy function of the row fills. */
extern CORVANE_API uint32_t g_copyStructMemorySizeMap[MESSAGE_TYPE_BUTT];

/** What QueryDeviceList() counts when the query failed, as opposed to an agent without disks. */
#define DCM_DEVICE_LIST_FAILED 65535u

/**
 * @brief Ask an agent which disks it has.
 * @param[out] countOut  The number of records; 0: the agent has no disks; DCM_DEVICE_LIST_FAILED: the query failed.
 * @return the records, freed by FreeSeparateMemoryList() with the count; null unless the count is 1..64.
 */
CORVANE_NODISCARD CORVANE_API DiskBriefInfo **QueryDeviceList(const AgentInfo *agent,
                                                              uint16_t *countOut) CORVANE_NOEXCEPT;

/**
 * @brief Ask an agent for one message about some disks and copy the answer into records.
 * @param[in]  type         Message type.
 * @param[in]  deviceList   The disks; only their names are sent.
 * @param[in]  deviceCount  Their number.
 * @param[out] arrayList    At least deviceCount records of the type's size; the first ones are filled, as many as the
 *                          agent answered. Records filled before a failure stay filled.
 * @param[out] responseOut  On 0 the whole answer, deleted by the caller; otherwise null.
 * @retval 0                     Queried.
 * @retval DCM_ERR_BAD_INPUT     A null argument, a bad type or too few records.
 * @retval DCM_ERR_NO_MEMORY     No memory for the request.
 * @retval DCM_ERR_POST          No answer, or one that is no JSON.
 * @retval DCM_ERR_BAD_RESPONSE  The answer failed a check.
 * @return Any other value is the copy function's.
 */
CORVANE_NODISCARD CORVANE_API uint32_t QueryMessage(uint32_t type, const AgentInfo *agent, DiskBriefInfo **deviceList,
                                                    uint32_t deviceCount, ArrayList *arrayList,
                                                    cJSON **responseOut) CORVANE_NOEXCEPT;

/**
 * @brief QueryMessage() and then the save function of the type, over as many records as disks were asked for.
 * @return 0 or the first failure.
 * @note The save functions take g_dataMgrLock.
 */
CORVANE_NODISCARD CORVANE_API uint32_t QueryMessageAndSave(uint32_t type, const AgentInfo *agent,
                                                           DiskBriefInfo **deviceList,
                                                           uint32_t deviceCount) CORVANE_NOEXCEPT;

/**
 * @brief The base record of one disk, with its slot if the kernel agent knows it.
 * @param[in]  briefRecord  The disk, from the agent's device list.
 * @param[out] outRecord    Written on 0 only.
 * @return 0, DCM_ERR_BAD_INPUT, DCM_ERR_NO_MEMORY, or what QueryMessage() gave. A failed look-up of the slot is no
 * failure.
 */
CORVANE_NODISCARD CORVANE_API uint32_t FetchDiskBaseInfoFromAgent(const AgentInfo *agent, DiskBriefInfo *briefRecord,
                                                                  DiskMgrObj *outRecord) CORVANE_NOEXCEPT;

/** @brief @p value, or 65535 with a log line if it is larger. */
CORVANE_API uint16_t CastUint32ToUint16(uint32_t value) CORVANE_NOEXCEPT;

/** @brief The guard in row 0 of the check map: says that it should not be used, and checks all the same. */
CORVANE_API bool IsValidDiskBriefInfoResultJsonWrap(cJSON *result, uint32_t requestedCount) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
