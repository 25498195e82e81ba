/**
 * @file dcak_disk_info.h
 * @brief Methods "dca_get_disks_brief_info" and "dca_get_disks_base_info", from lsblk and what identifies a disk.
 *
 * Owns nothing that lasts; every function may be called from any thread and takes no lock.
 */
#ifndef DCAK_DISK_INFO_H
#define DCAK_DISK_INFO_H

#include <cjson/cJSON.h>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_types.h"

CORVANE_BEGIN_DECLS

/**
 * @brief Decide whether a row of lsblk is a disk that the system watches: a whole disk with a name of its own, no
 *        volume of an array controller.
 * @return 1 to keep it, else 0.
 */
CORVANE_API uint32_t DcakDevIsValid(cJSON *lsblkItem) CORVANE_NOEXCEPT;

/**
 * @brief Method "dca_get_disks_brief_info": all disks of the node.
 *
 * A disk whose serial number cannot be read repeats that of the disk before it, or has the empty text.
 * @param[out] resultOut  Owned by the caller; untouched on failure.
 */
CORVANE_API void DcakGetDevList(cJSON **resultOut) CORVANE_NOEXCEPT;

/**
 * @brief Method "dca_get_disks_base_info": identity of the disks that the request names.
 *
 * A disk that lsblk does not know ends the request without a result. A fact that cannot be read repeats that of the
 * disk before.
 * @param[out] resultOut  Owned by the caller; untouched on failure.
 */
CORVANE_API void DcakGetDiskBaseInfo(cJSON *request, cJSON **resultOut) CORVANE_NOEXCEPT;

/**
 * @brief Find the row of one disk in the list of facts.
 * @param deviceItem    The name, as a JSON string.
 * @param[out] infoOut  `name`, `serial`, `rev`, `vendor` as trimmed texts, `size`, `log-sec` as numbers; owned by the
 *                      caller, untouched on failure.
 * @retval 0, DCAK_FAIL
 */
CORVANE_API uint32_t GetDiskInfoByLsblkJson(cJSON *deviceItem, cJSON **infoOut) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
