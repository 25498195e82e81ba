/**
 * @file dcak_scsi.h
 * @brief SCSI and ATA commands through SG_IO: the command blocks, their execution and the reading of their outcome.
 *
 * Every command reads from the disk. Each opens a descriptor of its own, so any thread may call, also for one disk at
 * a time; no lock is taken. A command may last up to its time-out of 20 seconds.
 */
#ifndef DCAK_SCSI_H
#define DCAK_SCSI_H

#include <scsi/sg.h>
#include <stdbool.h>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_types.h"

CORVANE_BEGIN_DECLS

#define DCAK_CDB_SIZE 16u        /**< room that every builder needs at ScsiIoParam.cdb */
#define DCAK_SCSI_DATA_SIZE 256u /**< data of a SCSI command */
#define DCAK_ATA_DATA_SIZE 512u  /**< data of an ATA command: one sector */
#define DCAK_SENSE_SIZE 96u
#define DCAK_SENSE_SIZE_SHORT 32u  /**< of the serial number inquiry */
#define DCAK_LOG_PAGE_IE 0x2Fu     /**< Informational Exceptions log page */
#define DCAK_LOG_PAGE_VENDOR 0x35u /**< vendor page with the sense code of an SSD */
#define DCAK_LOG_PAGE_LIST 0x00u   /**< Supported Log Pages */

/** @brief Fill a cleared @p hdr for one reading command. */
CORVANE_API void InitIoHdrComPara(sg_io_hdr_t *hdr, ScsiIoParam *param) CORVANE_NOEXCEPT;

/*
 * The builders. Each clears the 16 bytes at param->cdb, writes the command and sets the three lengths; the buffers are
 * the caller's and must have room for them. InitInquiryCommonParams() alone takes dataLength and senseLength as set.
 */

/** @brief LOG SENSE of the Background Scan page, for the power-on minutes. */
CORVANE_API void InitPohParm(ScsiIoParam *param) CORVANE_NOEXCEPT;
/** @brief LOG SENSE of the Solid State Media page. */
CORVANE_API void InitDiskWearParam(ScsiIoParam *param) CORVANE_NOEXCEPT;
/** @brief LOG SENSE of the cumulative values of any page. */
CORVANE_API void InitLogSensePara(ScsiIoParam *param, uint8_t page) CORVANE_NOEXCEPT;
/** @brief INQUIRY; @p evpd 1 for the vital product data @p page. */
CORVANE_API void InitInquiryCommonParams(ScsiIoParam *param, uint8_t page, uint8_t evpd) CORVANE_NOEXCEPT;
/** @brief REQUEST SENSE. */
CORVANE_API void InitHddCommonParams(ScsiIoParam *param) CORVANE_NOEXCEPT;
/** @brief ATA PASS-THROUGH of SMART READ THRESHOLDS, @p count sectors. */
CORVANE_API void InitSmartThresholdParam(ScsiIoParam *param, uint16_t count) CORVANE_NOEXCEPT;
/** @brief ATA PASS-THROUGH of SMART READ DATA, @p count sectors. */
CORVANE_API void InitSmartDataParam(ScsiIoParam *param, uint16_t count) CORVANE_NOEXCEPT;

/** @brief Open the device read-write, run the command, close. @retval 0 @retval DCAK_FAIL It was not run. */
CORVANE_API uint32_t OpenDevExecIoctl(const char *devicePath, sg_io_hdr_t *hdr) CORVANE_NOEXCEPT;

/**
 * @brief Judge what SG_IO has left in @p hdr. A SCSI error status alone does not count as a failure.
 * @retval 0     Good, or ended with sense data.
 * @retval -5    Failed (EIO).
 * @retval -110  Timed out, or the bus was busy or gone (ETIMEDOUT).
 */
CORVANE_API int32_t DcakScsiIoComplete(const char *devicePath, sg_io_hdr_t *hdr) CORVANE_NOEXCEPT;

/**
 * @brief Read the vendor by INQUIRY.
 * @param[out] output  At most eight characters; empty if the disk returned none. Untouched if the command failed.
 * @retval 0, DCAK_FAIL
 */
CORVANE_API uint32_t DcakGetSasVendorId(const char *devicePath, uint32_t size, char *output) CORVANE_NOEXCEPT;

/** @brief Read the serial number by INQUIRY. Outside the data path. @retval 0, DCAK_FAIL */
CORVANE_API uint32_t DcakGetSerialNumByIoCtl(const char *devicePath, uint32_t size, char *output) CORVANE_NOEXCEPT;

/**
 * @brief Take the serial number from the Unit Serial Number page: without blanks and control characters, colons as
 *        semicolons, the last 36 characters.
 * @param page  256 bytes; a longer length in it is cut to what they hold.
 * @retval 0
 * @retval DCAK_FAIL  The page is empty, or the serial number does not fit @p size bytes.
 */
CORVANE_API uint32_t DcakCalSerial(uint8_t *page, uint32_t size, char *output) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
