/**
 * @file dcm_save.h
 * @brief Hands queried records to the data store, and looks up the slots of user-space NVMe disks.
 *
 * No state. Entered by the query threads and the scan; the save functions take g_dataMgrLock inside the store's calls
 * and must be called without it. Records stay with the caller.
 */
#ifndef DCM_SAVE_H
#define DCM_SAVE_H

#include <cjson/cJSON.h>
#include <stdint.h>

#include "data_collect/data_collect_master/dcm_error.h"
#include "data_collect/data_collect_master/dcm_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/**
 * @brief Run the save function of a message type.
 * @retval DCM_ERR_BAD_INPUT  @p type is not one of the message types.
 * @return Otherwise the save function's result.
 */
CORVANE_NODISCARD CORVANE_API uint32_t SaveMessage(uint32_t type, cJSON *resultJson, void **records,
                                                   uint32_t count) CORVANE_NOEXCEPT;

/** @brief The guard in row 0 of the save map. @retval DCM_ERR_NOT_PERMITTED  Always: device lists go to
 * SaveDiskBriefInfo(). */
CORVANE_NODISCARD CORVANE_API uint32_t SaveBriefInfoInterceptor(cJSON *result, void **records,
                                                                uint32_t count) CORVANE_NOEXCEPT;

/**
 * @brief Hand the node's device list to the refresh, which takes other disks offline and brings new ones online.
 * @param[in] count  0 is passed on: the node has no disks.
 * @retval DCM_ERR_NO_MEMORY  No memory; the refresh has not been called.
 * @return Otherwise the refresh's result.
 * @note Takes g_dataMgrLock; must not be called with the agent list's lock held, which the refresh takes inside.
 */
CORVANE_NODISCARD CORVANE_API uint32_t SaveDiskBriefInfo(DiskBriefInfo **records, uint32_t count) CORVANE_NOEXCEPT;

/*
 * Each of the three stores every record. A store's refusal by the white list counts as success; any other failure is
 * logged, the next record is tried, and the last failure is the result.
 */

/** @brief Store DiskMgrObj records, with the slots of NVMe disks as far as the kernel agent knows them. */
CORVANE_NODISCARD CORVANE_API uint32_t SaveDiskBaseInfo(cJSON *result, void **records, uint32_t count) CORVANE_NOEXCEPT;
/** @brief Store DiskHealthInfoSnWrap records. */
CORVANE_NODISCARD CORVANE_API uint32_t SaveDiskHealthInfo(cJSON *result, void **records,
                                                          uint32_t count) CORVANE_NOEXCEPT;
/** @brief Stamp the answer's clock into DiskIoInfoFrameSnWrap records and store them. An answer without a clock ends
 * it. */
CORVANE_NODISCARD CORVANE_API uint32_t SaveDiskIoInfoFrame(cJSON *result, void **records,
                                                           uint32_t count) CORVANE_NOEXCEPT;

/**
 * @brief Ask the kernel agent for the slots of the NVMe disks in a base info result and fill the records again.
 * @param[in,out] baseResult  "result" of a base info answer; gets "slot_id" members.
 * @param[in,out] records     DiskMgrObj records, as many as the result has disks.
 * @retval 0        Asked; disks that the agent does not know keep slot 0xFFFFFFFF.
 * @retval DCM_ERR_NO_MEMORY   No memory for the request.
 * @retval DCM_ERR_POST      No answer.
 * @retval DCM_ERR_BAD_RESPONSE  The answer has no valid header, or could not be merged.
 * @return Any other value is the copy function's.
 */
CORVANE_NODISCARD CORVANE_API uint32_t QueryDiskSlotInfo(cJSON *baseResult, void **records) CORVANE_NOEXCEPT;

/**
 * @brief Add the "slot_id" numbers of a slot result to the disks of a base info result, matched by "device_name".
 * @retval 0       Merged; a disk without a number in the slot result stays as it is.
 * @retval 1       A null argument.
 * @retval DCM_ERR_NO_MEMORY  No memory; disks before it are merged.
 */
CORVANE_NODISCARD CORVANE_API uint32_t MergeCJsonSlotIdIntoBaseInfo(cJSON *slotResult,
                                                                    cJSON *baseResult) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
/** The calls into the data store, which take g_dataMgrLock. No slot is null. Set by tests only. */
struct DcmStoreCalls {
    uint32_t (*baseInfoSet)(DiskSnRef sn, void *buf);
    uint32_t (*healthInfoSet)(DiskSnRef sn, void *buf);
    uint32_t (*ioStatInfoSet)(DiskSnRef sn, void *buf);
    uint32_t (*serialNumberRefresh)(DiskSnRef *list, uint32_t count);
};
extern DcmStoreCalls g_dcmStore;

/** The agent that knows slots, whichever agent reported the disk. The kernel agent; set by tests only. */
extern const AgentInfo *g_dcmSlotAgent;
#endif

#endif
