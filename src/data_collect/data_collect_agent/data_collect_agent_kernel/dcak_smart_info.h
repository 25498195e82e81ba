/**
 * @file dcak_smart_info.h
 * @brief Method "dca_get_disks_health_info": what is asked of each class of disk.
 *
 * Owns nothing that lasts; every function may be called from any thread and takes no lock. A class is an
 * enum DcakDiskType.
 */
#ifndef DCAK_SMART_INFO_H
#define DCAK_SMART_INFO_H

#include <cjson/cJSON.h>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_types.h"

CORVANE_BEGIN_DECLS

/**
 * @brief Method "dca_get_disks_health_info": health of the disks that the request names.
 *
 * Power-on time and wear that cannot be read keep their defaults; a detail that cannot be read ends the request.
 * @param[out] resultOut  Owned by the caller; untouched on failure.
 */
CORVANE_API void DcakGetDiskHealthInfo(cJSON *request, cJSON **resultOut) CORVANE_NOEXCEPT;

/** @brief Power-on time in hours by the way of the disk's class; 0 for an unknown class. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t DcakGetDiskPowerTime(const char *deviceName, const char *devicePath,
                                          uint32_t *hoursOut) CORVANE_NOEXCEPT;

/** @brief Wear in hundredths of a percent; 0 for all but SAS SSDs. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t DcakGetExDiskPercentage(const char *deviceName, const char *devicePath,
                                             uint32_t *wearOut) CORVANE_NOEXCEPT;

/** @brief Add class, vendor and the detail of the class. @retval 0, or what the detail gave */
CORVANE_API uint32_t DackSetSmartInfoByDiskType(const char *deviceName, const char *devicePath,
                                                cJSON *diskObject) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
