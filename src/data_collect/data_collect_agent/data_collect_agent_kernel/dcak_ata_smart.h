/**
 * @file dcak_ata_smart.h
 * @brief Health of SATA disks: power-on time and the SMART attributes.
 *
 * Owns nothing that lasts; every function may be called from any thread and takes no lock.
 */
#ifndef DCAK_ATA_SMART_H
#define DCAK_ATA_SMART_H

#include <cjson/cJSON.h>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_types.h"

CORVANE_BEGIN_DECLS

#define DCAK_SMART_ENTRIES 30u /**< attributes of a SMART page */

/** @brief Power-on hours from SMART attribute 9; 0 on failure or without it. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t DcakGetAtaPowerTime(const char *devicePath, uint32_t *hoursOut) CORVANE_NOEXCEPT;

/** @brief SATA SSD: add the SMART attributes. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t SetSsdSataSmartInfo(const char *devicePath, cJSON *diskObject) CORVANE_NOEXCEPT;

/**
 * @brief Read the SMART thresholds and the SMART data.
 * @param[out] bufferOut  1024 bytes for free(), thresholds first; untouched on failure.
 * @retval 0, DCAK_FAIL
 */
CORVANE_API uint32_t DcakGetSataSmartPageAndData(const char *devicePath, uint8_t **bufferOut) CORVANE_NOEXCEPT;

/**
 * @brief Pair thresholds and data by position into a list of 30 entries.
 * @param buffer        1024 bytes as DcakGetSataSmartPageAndData() gives them.
 * @param[out] jsonOut  Owned by the caller; untouched on failure.
 * @retval 0, DCAK_FAIL
 */
CORVANE_API uint32_t FormatSmartThresholdAndData(uint8_t *buffer, cJSON **jsonOut) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
