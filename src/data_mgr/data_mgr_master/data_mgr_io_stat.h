/**
 * @file data_mgr_io_stat.h
 * @brief Turns two successive samples of a disk's counters into statistics of the interval between them.
 *
 * Owns nothing; works on the ring and the last frame of a DataMgrObj. The row of the set table is called with
 * g_dataMgrLock held; the others touch only their arguments. No allocation, no lock.
 */
#ifndef DATA_MGR_IO_STAT_H
#define DATA_MGR_IO_STAT_H

#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** Intermediate values of one calculation, for the debug log. */
typedef struct IoStatWorking {
    uint64_t cpuTicksDiff;
    double timeDiff; /**< seconds */
    uint64_t bytesReadDiff;
    uint64_t bytesWrittenDiff;
    uint64_t numReadOpsDiff;
    uint64_t numWriteOpsDiff;
    uint64_t readLatencyTicksDiff;
    uint64_t writeLatencyTicksDiff;
    uint64_t ioTimeDiff;  /**< microseconds */
    uint64_t utilization; /**< hundredths of a percent */
} IoStatWorking;

/**
 * @brief The set row of the I/O frames: a first frame is only kept, a later one adds a statistic to the ring.
 * @param[in] value  DiskIoInfoFrame.
 * @retval 0                       Done.
 * @retval DATA_MGR_ERR_FAIL       No frame, or counters that went backwards: the next frame starts anew from this one.
 * @retval DATA_MGR_ERR_NO_OBJECT  No such disk.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DataMgrIoInfoSetInner(uint32_t diskId, DiskSnRef sn,
                                                             void *value) CORVANE_NOEXCEPT;

/** @return 0 if time has passed and no counter went backwards between the frames, else DATA_MGR_ERR_FAIL. */
CORVANE_NODISCARD CORVANE_API uint32_t IoStatCheck(DiskIoInfoFrame *lastFrame,
                                                   DiskIoInfoFrame *newFrame) CORVANE_NOEXCEPT;

/** @brief The statistics of the interval. A tick rate of 0 gives rates of 0. @return Always 0. */
CORVANE_NODISCARD CORVANE_API uint32_t IoStatInfoCal(DiskIoInfoFrame *lastFrame, DiskIoInfoFrame *newFrame,
                                                     DiskIoStatInfo *out) CORVANE_NOEXCEPT;

/** @return 0, or DATA_MGR_ERR_FAIL when a pointer is null. */
CORVANE_NODISCARD CORVANE_API uint32_t IoInfoFrameCopy(DiskIoInfoFrame *dest, DiskIoInfoFrame *src) CORVANE_NOEXCEPT;

/** @brief Write all inputs and results of one calculation to the debug log. @param[in] working IoStatWorking */
CORVANE_API void PrintIoCal(DiskIoInfoFrame *lastFrame, DiskIoInfoFrame *newFrame, DiskIoStatInfo *out,
                            void *working) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
