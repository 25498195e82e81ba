/**
 * @file dcak_io_stat.h
 * @brief The kernel's cumulative I/O counters of the disks, as the frames that the master computes statistics from.
 *
 * Owns nothing that lasts; every function may be called from any thread and takes no lock.
 */
#ifndef DCAK_IO_STAT_H
#define DCAK_IO_STAT_H

#include <cjson/cJSON.h>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_types.h"

CORVANE_BEGIN_DECLS

/**
 * @brief Read /proc/diskstats.
 *
 * Columns behind the fourteenth are ignored, lines with fewer are skipped, lines behind the 128th row are lost.
 * @param[out] table     DCAK_PROC_STAT_ROWS rows.
 * @param[out] countOut  Rows filled; also set on failure.
 * @retval 0, DCAK_FAIL
 */
CORVANE_API uint32_t GetProcStatInfo(ProcDiskStat *table, uint32_t *countOut) CORVANE_NOEXCEPT;

/** @return Requests that the device's queue holds, 0 if sysfs does not tell. */
CORVANE_API uint32_t GetDevQueDepth(const char *deviceName) CORVANE_NOEXCEPT;

/**
 * @brief Method "dca_get_disks_iostat": counters of the disks that the request names; a disk that the kernel does not
 *        count is left out.
 * @param[out] resultOut  Owned by the caller; untouched on failure.
 */
CORVANE_API void DcakGetDiskIoStatInfo(cJSON *request, cJSON **resultOut) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
