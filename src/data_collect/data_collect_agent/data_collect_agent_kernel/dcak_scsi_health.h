/**
 * @file dcak_scsi_health.h
 * @brief Health of SAS disks: power-on time, wear, sense codes and capacitance from their log pages.
 *
 * Owns nothing that lasts; every function may be called from any thread and takes no lock. Functions with
 * @p twoBytesOut store two bytes there, the first named first.
 */
#ifndef DCAK_SCSI_HEALTH_H
#define DCAK_SCSI_HEALTH_H

#include <cjson/cJSON.h>
#include <stdbool.h>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_types.h"

CORVANE_BEGIN_DECLS

#define DCAK_POWER_ON_UNKNOWN 65535u /**< hours of a SAS disk that does not tell */
#define DCAK_WEAR_NONE 255u          /**< DcakCalWear(): no such parameter */
#define DCAK_WEAR_PARAM_MAX 31u      /**< parameters that a page of 256 bytes holds */

/** @brief Power-on hours from the log page; DCAK_POWER_ON_UNKNOWN on failure. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t DcakGetScsiPowerOnTime(const char *devicePath, uint32_t *hoursOut) CORVANE_NOEXCEPT;

/** @brief Wear of a SAS SSD in hundredths of a percent; 0 on failure. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t DcakGetSasExDiskPercentage(const char *devicePath, uint32_t *wearOut) CORVANE_NOEXCEPT;

/**
 * @brief Find the percentage used in a Solid State Media page of 256 bytes.
 * @param[out] wearOut  Percent; untouched if there is none.
 * @retval 0
 * @retval DCAK_WEAR_NONE  No parameter with code 1.
 */
CORVANE_API uint32_t DcakCalWear(uint8_t *page, uint8_t *wearOut) CORVANE_NOEXCEPT;

/** @brief SAS SSD: add the sense code of the vendor page. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t SetSsdSasSmartInfo(const char *devicePath, cJSON *diskObject) CORVANE_NOEXCEPT;

/** @brief SAS SSD of a listed vendor: add the state of its capacitance. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t SetVssdSasSmartInfo(const char *devicePath, cJSON *diskObject) CORVANE_NOEXCEPT;

/** @brief Rotating disk: add the sense code of the log page, or of REQUEST SENSE without it. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t SetHddSmartInfo(const char *devicePath, cJSON *diskObject) CORVANE_NOEXCEPT;

/** @brief Capacitance id and status. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t DcakGetSasVssdSmartInfo(const char *devicePath, uint8_t *twoBytesOut) CORVANE_NOEXCEPT;

/** @brief ASC and ASCQ of the vendor page. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t DcakGetSasSsdSenseData(const char *devicePath, uint8_t *twoBytesOut) CORVANE_NOEXCEPT;

/** @brief ASC and ASCQ of the Informational Exceptions page. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t DcakGetHddSmartInfoIeLog(const char *devicePath, uint8_t *twoBytesOut) CORVANE_NOEXCEPT;

/** @brief ASC and ASCQ of REQUEST SENSE, in either sense format. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t DcakGetHddSmartInfoCommon(const char *devicePath, uint8_t *twoBytesOut) CORVANE_NOEXCEPT;

/** @return Whether the disk lists the Informational Exceptions page; false also if it cannot be asked. */
CORVANE_API bool IsSupportIeLog(const char *devicePath) CORVANE_NOEXCEPT;

/** @return Whether the list of log pages in @p buffer of @p length bytes names the Informational Exceptions page. */
CORVANE_API bool IsIeLogInLogPage(uint8_t *buffer, uint32_t length) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
