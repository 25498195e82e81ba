/**
 * @file dcm_copy.h
 * @brief Copies from the JSON of an agent's answer into the records of the collection master.
 *
 * Owns no data. Entered by the workers of the agents, the scan thread and whoever fetches a base record; the functions
 * write only the records they are given and take no lock. The caller owns tree and records.
 */
#ifndef DCM_COPY_H
#define DCM_COPY_H

#include <cjson/cJSON.h>
#include <stdint.h>

#include "data_collect/data_collect_master/dcm_error.h"
#include "data_collect/data_collect_master/dcm_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/**
 * @brief Copy one disk of a device list.
 * @param[in]  item  Element of "disks"; checked here.
 * @param[out] out   DiskBriefInfo, overwritten. After a failure its contents mean nothing.
 * @retval 0                  Copied. The serial number may be empty.
 * @retval DCM_ERR_BAD_INPUT  The object fails its check, or an argument is null.
 * @retval DCM_ERR_TOO_LONG   A text does not fit its field with the terminator.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CopyDiskBriefInfoFromJSON(cJSON *item, void *out) CORVANE_NOEXCEPT;

/**
 * @brief Copy one disk of a base answer.
 *
 * Identifier, frame and slot become all ones and the state DISK_STATE_KEEP: the agent does not know them. A number
 * "slot_id" is taken over; anything else of that name is ignored.
 * @param[in]  item  Element of "disks"; checked here.
 * @param[out] out   DiskMgrObj, overwritten. After a failure its contents mean nothing.
 * @retval 0                  Copied.
 * @retval DCM_ERR_BAD_INPUT  The object fails its check, or an argument is null.
 * @retval DCM_ERR_TOO_LONG   A text does not fit its field with the terminator.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CopyDiskBaseInfoFromJSON(cJSON *item, void *out) CORVANE_NOEXCEPT;

/**
 * @brief Copy one disk of a health answer; class and vendor choose the form of the detail, the rest of which is zero.
 *
 * The agent sends the wear as percent times 100: 12345 becomes 123 and 45.
 * @param[in]  item  Element of "disks"; checked here.
 * @param[out] out   DiskHealthInfoSnWrap, overwritten. After a failure its contents mean nothing.
 * @retval 0                  Copied.
 * @retval DCM_ERR_BAD_INPUT  The object fails its check, or an argument is null.
 * @retval DCM_ERR_TOO_LONG   The serial number does not fit its field with the terminator.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CopyDiskHealthInfoSnWrapFromJSON(cJSON *item, void *out) CORVANE_NOEXCEPT;

/**
 * @brief Copy one disk of an I/O counter answer. The clock of the answer is not part of it:
 *        CopyClockTicksInstantFromJSON reads that once, and the caller stamps it into each frame.
 * @param[in]  item  Element of "disks"; checked here.
 * @param[out] out   DiskIoInfoFrameSnWrap, overwritten but for ticks and tickRate.
 * @retval 0                  Copied.
 * @retval DCM_ERR_BAD_INPUT  The object fails its check, or an argument is null.
 * @retval DCM_ERR_TOO_LONG   The serial number does not fit its field with the terminator.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CopyDiskIoInfoFrameSnWrapFromJSON(cJSON *item, void *out) CORVANE_NOEXCEPT;

/**
 * @brief Copy element i of an array into record i, up to the first failure, which is logged.
 * @param[in] messageType  enum DcmMessageType: which row of g_copyStructFromJsonStrategyMap copies.
 * @param[in] disksArray   Member "disks" of a checked result; null counts as bad input.
 * @param[in] list         Pointers to records of that type, at least as many as the array has elements.
 * @retval 0                  All copied.
 * @retval DCM_ERR_BAD_INPUT  No such message type, or a null argument.
 * @return Otherwise the result of the failed copy. Records filled before stay as they are.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CopyBatchFromJSON(uint32_t messageType, cJSON *disksArray,
                                                         void **list) CORVANE_NOEXCEPT;

/**
 * @brief Read the clock of an I/O counter answer.
 * @param[in]  result    Member "result" of a checked response.
 * @param[out] tickRate  Ticks per second.
 * @param[out] ticks     Instant of the sample, in ticks.
 * @retval 0                  Both read.
 * @retval DCM_ERR_NO_MEMORY  A member is missing: the result was not checked. Logged; the outputs are untouched.
 * @retval DCM_ERR_BAD_INPUT  An output is null.
 */
CORVANE_NODISCARD CORVANE_API uint32_t CopyClockTicksInstantFromJSON(cJSON *result, uint64_t *tickRate,
                                                                     uint64_t *ticks) CORVANE_NOEXCEPT;

/**
 * @brief Value of a decimal string that has passed IsDecimalUintString.
 * @return The value modulo 2^64: there is no overflow check. 0 for a node that is no string; characters that are no
 *         digits end the number.
 */
CORVANE_API uint64_t ConvertDecimalStringJson2Uint64(cJSON *item) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
