#include "data_mgr/data_mgr_master/data_mgr_io_stat.h"

#include <bounded/bounded.h>
#include <limits>

#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/os_calls.h"

namespace {

constexpr uint32_t kNoBusyNum = 0xFFFFFFFFu;
constexpr double kMicrosPerSecond = 1000000.0;
constexpr double kBytesPerKib = 1024.0;
/** Hundredths of a percent in the whole. */
constexpr uint64_t kFullUtilization = 10000;
/** Hundredths of a percent in one percent. */
constexpr uint64_t kUtilizationPerPercent = 100;
/** 2^64, the first value that a uint64_t does not hold. */
constexpr double kUint64Limit = 18446744073709551616.0;

/** Truncates; converting what does not fit would be undefined, so it saturates, and a NaN gives 0. */
uint64_t ToUint64(double value) noexcept
{
    if (!(value > 0.0)) {
        return 0;
    }
    if (value >= kUint64Limit) {
        return std::numeric_limits<uint64_t>::max();
    }
    return static_cast<uint64_t>(value);
}

double ToDouble(uint64_t value) noexcept
{
    return static_cast<double>(value);
}

uint64_t DelayOf(uint64_t latencyTicks, uint64_t ops, uint64_t tickRate) noexcept
{
    const uint64_t delay = ToUint64(ToDouble(latencyTicks) / ToDouble(ops) * kMicrosPerSecond / ToDouble(tickRate));
    return latencyTicks == 0 ? 0 : delay;
}

void SetUtilization(uint64_t utilization, DiskIoStatInfo *out) noexcept
{
    // The kernel's busy time runs ahead of its clock now and then.
    if (utilization > kFullUtilization) {
        utilization = kFullUtilization;
    }
    out->utilizationInt = static_cast<uint32_t>(utilization / kUtilizationPerPercent);
    out->utilizationFrac = static_cast<uint32_t>(utilization % kUtilizationPerPercent);
}

IoStatWorking DifferenceOf(const DiskIoInfoFrame *last, const DiskIoInfoFrame *next) noexcept
{
    IoStatWorking working{};
    working.cpuTicksDiff = next->ticks - last->ticks;
    working.timeDiff = ToDouble(working.cpuTicksDiff) / ToDouble(next->tickRate);
    working.bytesReadDiff = next->bytesRead - last->bytesRead;
    working.bytesWrittenDiff = next->bytesWritten - last->bytesWritten;
    working.numReadOpsDiff = next->numReadOps - last->numReadOps;
    working.numWriteOpsDiff = next->numWriteOps - last->numWriteOps;
    working.readLatencyTicksDiff = next->readLatencyTicks - last->readLatencyTicks;
    working.writeLatencyTicksDiff = next->writeLatencyTicks - last->writeLatencyTicks;
    working.ioTimeDiff = next->ioTime - last->ioTime;
    working.utilization =
        ToUint64(ToDouble(working.ioTimeDiff * kFullUtilization) / (working.timeDiff * kMicrosPerSecond));
    return working;
}

uint64_t OpsOf(const IoStatWorking &working) noexcept
{
    return working.numReadOpsDiff + working.numWriteOpsDiff;
}

/** Put a statistic into the ring. @return 0 or DATA_MGR_ERR_FAIL */
uint32_t PushStat(DataMgrObj *obj, const DiskIoStatInfo &stat) noexcept
{
    const bool full = obj->ioStatCount >= DATA_MGR_IO_STAT_NUM;
    const uint32_t slot = full ? obj->ioStatHead % DATA_MGR_IO_STAT_NUM : obj->ioStatCount;
    if (memcpy_s(&obj->ioStat[slot], sizeof(obj->ioStat[slot]), &stat, sizeof(stat)) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DiskIoStatInfoSet copy info error");
        return DATA_MGR_ERR_FAIL;
    }
    __atomic_store_n(&g_ioStatFreshTime, static_cast<uint64_t>(g_osCalls.time(nullptr)), __ATOMIC_RELAXED);
    if (full) {
        obj->ioStatHead = (slot + 1) % DATA_MGR_IO_STAT_NUM;
    } else {
        obj->ioStatCount++;
    }
    return 0;
}

} // namespace

extern "C" {

uint32_t DataMgrIoInfoSetInner(uint32_t diskId, DiskSnRef /*sn*/, void *value) noexcept
{
    DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (value == nullptr) {
        return DATA_MGR_ERR_FAIL;
    }
    auto *frame = static_cast<DiskIoInfoFrame *>(value);
    DiskIoStatInfo stat{};
    if (obj->lastFrame.ticks == 0) {
        return IoInfoFrameCopy(&obj->lastFrame, frame);
    }
    if (IoStatCheck(&obj->lastFrame, frame) != 0) {
        (void)IoInfoFrameCopy(&obj->lastFrame, frame);
        return DATA_MGR_ERR_FAIL;
    }
    if (IoStatInfoCal(&obj->lastFrame, frame, &stat) != 0 || IoInfoFrameCopy(&obj->lastFrame, frame) != 0) {
        return DATA_MGR_ERR_FAIL;
    }
    return PushStat(obj, stat);
}

uint32_t IoStatCheck(DiskIoInfoFrame *lastFrame, DiskIoInfoFrame *newFrame) noexcept
{
    if (newFrame->ticks > lastFrame->ticks && newFrame->bytesRead >= lastFrame->bytesRead &&
        newFrame->bytesWritten >= lastFrame->bytesWritten && newFrame->numReadOps >= lastFrame->numReadOps &&
        newFrame->numWriteOps >= lastFrame->numWriteOps && newFrame->readLatencyTicks >= lastFrame->readLatencyTicks &&
        newFrame->writeLatencyTicks >= lastFrame->writeLatencyTicks) {
        return 0;
    }
    CORVANE_LOG(CORVANE_LOG_WARN, kDataMgrModule, "IoStatCheck failed newFrame->ticks:[%lu], lastFrame->ticks:[%lu]",
                newFrame->ticks, lastFrame->ticks);
    return DATA_MGR_ERR_FAIL;
}

uint32_t IoStatInfoCal(DiskIoInfoFrame *lastFrame, DiskIoInfoFrame *newFrame, DiskIoStatInfo *out) noexcept
{
    IoStatWorking working = DifferenceOf(lastFrame, newFrame);
    out->ioBusyNum = newFrame->ioBusyNum == kNoBusyNum ? 0 : newFrame->ioBusyNum;
    out->queueDepth = newFrame->queueDepth;
    out->readIops = ToUint64(ToDouble(working.numReadOpsDiff) / working.timeDiff);
    out->writeIops = ToUint64(ToDouble(working.numWriteOpsDiff) / working.timeDiff);
    out->readIoBand = ToUint64(ToDouble(working.bytesReadDiff) / working.timeDiff / kBytesPerKib);
    out->writeIoBand = ToUint64(ToDouble(working.bytesWrittenDiff) / working.timeDiff / kBytesPerKib);
    out->readIoDelay = DelayOf(working.readLatencyTicksDiff, working.numReadOpsDiff, newFrame->tickRate);
    out->writeIoDelay = DelayOf(working.writeLatencyTicksDiff, working.numWriteOpsDiff, newFrame->tickRate);
    SetUtilization(working.utilization, out);
    const uint64_t ops = OpsOf(working);
    out->avgServeTime = ops == 0 ? 0 : working.ioTimeDiff / ops;
    PrintIoCal(lastFrame, newFrame, out, &working);
    return 0;
}

uint32_t IoInfoFrameCopy(DiskIoInfoFrame *dest, DiskIoInfoFrame *src) noexcept
{
    return memcpy_s(dest, sizeof(*dest), src, sizeof(*src)) == 0 ? 0 : DATA_MGR_ERR_FAIL;
}

// The line of writeIoDelay stands twice: tools that cut the block out of a log count its lines.
void PrintIoCal(DiskIoInfoFrame *lastFrame, DiskIoInfoFrame *newFrame, DiskIoStatInfo *out, void *working) noexcept
{
    const auto *w = static_cast<const IoStatWorking *>(working);
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "IO STAT CAL RESULT {");
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "\tcpuTicksDiff    =%lu\ttimeDiff    =%f", w->cpuTicksDiff,
                w->timeDiff);
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "\tioTimeDiff    =%lu(%lu -%lu)", w->ioTimeDiff, newFrame->ioTime,
                lastFrame->ioTime);
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "\tioBusyNum   =%u", out->ioBusyNum);
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "\treadIops    =%lu(%lu / %f)", out->readIops, w->numReadOpsDiff,
                w->timeDiff);
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "\twriteIops   =%lu(%lu / %f)", out->writeIops, w->numWriteOpsDiff,
                w->timeDiff);
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "\treadIoBand  =%lu(%lu / %f / 1024)", out->readIoBand,
                w->bytesReadDiff, w->timeDiff);
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "\twriteIoBand =%lu(%lu / %f / 1024)", out->writeIoBand,
                w->bytesWrittenDiff, w->timeDiff);
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "\treadIoDelay =%lu(%lu / %lu *1000000.0 /%lu)", out->readIoDelay,
                w->readLatencyTicksDiff, w->numReadOpsDiff, newFrame->tickRate);
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "\twriteIoDelay =%lu(%lu / %lu *1000000.0 /%lu)", out->writeIoDelay,
                w->writeLatencyTicksDiff, w->numWriteOpsDiff, newFrame->tickRate);
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "\twriteIoDelay =%lu(%lu / %lu *1000000.0 /%lu)", out->writeIoDelay,
                w->writeLatencyTicksDiff, w->numWriteOpsDiff, newFrame->tickRate);
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "\tutilization = %d.%d%%(%lu / (%f * 1000000.0))",
                out->utilizationInt, out->utilizationFrac, w->ioTimeDiff, w->timeDiff);
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "\tavgServeTime =%lu(%lu / %lu)", out->avgServeTime, w->ioTimeDiff,
                OpsOf(*w));
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "}");
}

} // extern "C"
