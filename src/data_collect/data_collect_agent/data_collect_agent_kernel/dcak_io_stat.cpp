#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_io_stat.h"

#include <array>
#include <climits>
#include <cstring>
#include <sys/times.h>
#include <unistd.h>

#include "bounded/bounded.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_identity.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_log.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_lsblk.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_request.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace {

constexpr size_t kLineSize = 1024;
constexpr size_t kTextSize = 512;
constexpr int kColumns = 14;
constexpr uint32_t kSectorShift = 9; // the kernel counts sectors of 512 bytes
constexpr double kMsPerSecond = 1000.0;
constexpr double kUsPerMs = 1000.0;

/** Cuts to a whole number; what is beyond 64 bits stays at the limit. */
uint64_t ToWhole(double value)
{
    constexpr double kLimit = 18446744073709551616.0; // 2^64
    if (!(value > 0)) {
        return 0;
    }
    return value < kLimit ? static_cast<uint64_t>(value) : UINT64_MAX;
}

uint64_t MsToTicks(uint64_t milliseconds)
{
    return ToWhole(static_cast<double>(milliseconds) / kMsPerSecond * static_cast<double>(sysconf(_SC_CLK_TCK)));
}

/** Decimal texts, since a JSON number is exact up to 2^53 only. */
bool AddCounter(cJSON *object, const char *name, uint64_t value)
{
    std::array<char, kTextSize> text{};
    return snprintf_s(text.data(), text.size(), text.size() - 1, "%lu", value) >= 0 &&
           cJSON_AddStringToObject(object, name, text.data()) != nullptr;
}

bool AddLong(cJSON *object, const char *name, long value)
{
    std::array<char, kTextSize> text{};
    return snprintf_s(text.data(), text.size(), text.size() - 1, "%ld", value) >= 0 &&
           cJSON_AddStringToObject(object, name, text.data()) != nullptr;
}

const ProcDiskStat *FindRow(const ProcDiskStat *table, uint32_t count, const char *name)
{
    for (uint32_t i = 0; name != nullptr && i < count; i++) {
        if (std::strcmp(table[i].name, name) == 0) {
            return &table[i];
        }
    }
    return nullptr;
}

CJsonPtr MakeFrame(const ProcDiskStat &row, const char *serial)
{
    CJsonPtr frame(cJSON_CreateObject());
    cJSON *object = frame.get();
    const bool added =
        cJSON_AddStringToObject(object, "serial_number", serial) != nullptr &&
        cJSON_AddNumberToObject(object, "io_busy_num", static_cast<double>(row.iosInFlight)) != nullptr &&
        cJSON_AddNumberToObject(object, "queue_depth", GetDevQueDepth(row.name)) != nullptr &&
        AddCounter(object, "bytes_read", row.sectorsRead << kSectorShift) &&
        AddCounter(object, "num_read_ops", row.readsCompleted) &&
        AddCounter(object, "bytes_written", row.sectorsWritten << kSectorShift) &&
        AddCounter(object, "num_write_ops", row.writesCompleted) &&
        AddCounter(object, "read_latency_ticks", MsToTicks(row.msReading)) &&
        AddCounter(object, "write_latency_ticks", MsToTicks(row.msWriting)) &&
        // Microseconds on the wire.
        AddCounter(object, "io_time", ToWhole(static_cast<double>(row.msDoingIo) * kUsPerMs));
    return added ? std::move(frame) : nullptr;
}

} // namespace

uint32_t GetProcStatInfo(ProcDiskStat *table, uint32_t *countOut) noexcept
{
    *countOut = 0;
    std::array<char, PATH_MAX> path{};
    if (snprintf_s(path.data(), path.size(), path.size() - 1, "%s/proc/diskstats", g_osPaths.proc) < 0) {
        DCAK_LOG_FAILURE("fopen failed diskstats");
        return DCAK_FAIL;
    }
    const FilePtr file(g_osCalls.fopen(path.data(), "r"));
    if (file == nullptr) {
        DCAK_LOG_FAILURE("fopen failed diskstats");
        return DCAK_FAIL;
    }
    std::array<char, kLineSize> line{};
    uint32_t count = 0;
    while (count < DCAK_PROC_STAT_ROWS &&
           std::fgets(line.data(), static_cast<int>(line.size()), file.get()) != nullptr) {
        ProcDiskStat *row = &table[count];
        const int fields =
            sscanf_s(line.data(), "%d %d %s %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu", &row->majorNumber,
                     &row->minorNumber, row->name, static_cast<size_t>(DCAK_PROC_STAT_NAME_SIZE), &row->readsCompleted,
                     &row->readsMerged, &row->sectorsRead, &row->msReading, &row->writesCompleted, &row->writesMerged,
                     &row->sectorsWritten, &row->msWriting, &row->iosInFlight, &row->msDoingIo, &row->msWeighted);
        count += fields == kColumns ? 1 : 0; // else the row is used again
    }
    *countOut = count;
    if (std::ferror(file.get()) != 0) {
        DCAK_LOG_FAILURE("ferror failed diskstats");
        return DCAK_FAIL;
    }
    return DCAK_OK;
}

uint32_t GetDevQueDepth(const char *deviceName) noexcept
{
    int depth = 0;
    if (DcakGetSysInfo("/sys/block/%s/queue/nr_requests", deviceName, "%d", 0, &depth) != 0) {
        DCAK_LOG_FAILURE("DcakGetSysInfo failed");
        return 0;
    }
    DCAK_LOG_DETAIL("que depth is %d", depth);
    return static_cast<uint32_t>(depth);
}

void DcakGetDiskIoStatInfo(cJSON *request, cJSON **resultOut) noexcept
{
    const cJSON *devices = DcakRequestDevices(request);
    std::array<ProcDiskStat, DCAK_PROC_STAT_ROWS> table;
    uint32_t count = 0;
    (void)GetProcStatInfo(table.data(), &count);
    DCAK_LOG_DETAIL("whole dev cnt is %d", count);

    CJsonPtr frames(cJSON_CreateArray());
    // Cleared once: a failed look-up leaves the serial number of the disk before, or no text at all.
    std::array<char, DCAK_SERIAL_SIZE> serial{};
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, devices)
    {
        const char *name = cJSON_GetStringValue(item);
        const ProcDiskStat *row = FindRow(table.data(), count, name);
        if (row == nullptr) {
            DCAK_LOG_FAILURE("dev not find, %s", name != nullptr ? name : "NULL");
            continue;
        }
        if (CheckCmdStrIsSecure(name) != 1) {
            DCAK_LOG_FAILURE("cmd not secure, %s", name);
            return;
        }
        (void)DcakGetSerialNumByUdev(name, DCAK_SERIAL_SIZE, serial.data());
        CJsonPtr frame = MakeFrame(*row, serial.data());
        if (frame == nullptr || !cJSON_AddItemToArray(frames.get(), frame.get())) {
            return;
        }
        (void)frame.release();
    }

    const int length = cJSON_GetArraySize(frames.get());
    CJsonPtr result(cJSON_CreateObject());
    if (!AddLong(result.get(), "tick_rate", sysconf(_SC_CLK_TCK)) || !AddLong(result.get(), "ticks", times(nullptr)) ||
        !cJSON_AddItemToObject(result.get(), "disks", frames.get())) {
        return;
    }
    (void)frames.release();
    *resultOut = result.release();
    DCAK_LOG_COURSE("DcakGetDiskIoStatInfo devListLen: %d", length);
}
