#include "status_table.h"

#include <array>
#include <cinttypes>
#include <string>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "online_disks.h"

namespace {

/** What stands in a cell that has nothing to show. */
std::string Cell(const std::string &text)
{
    return text.empty() ? "-" : text;
}

/** Decimal units, as disks are sold. */
std::string Capacity(uint64_t bytes)
{
    constexpr std::array<const char *, 5> units{"B", "kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 1000 && unit + 1 < units.size()) {
        value /= 1000;
        unit++;
    }
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f%s" : "%.1f%s", value, units[unit]);
    return text.data();
}

void PrintRow(std::FILE *out, const DiskMgrObj &disk)
{
    std::string hours = "-";
    std::string wear = "-";
    DiskHealthInfo health = {};
    if (ReadHealth(disk.diskId, health)) {
        hours = std::to_string(health.powerOnHours);
        std::array<char, 32> text{};
        (void)std::snprintf(text.data(), text.size(), "%" PRIu32 ".%02" PRIu32 "%%", health.wearInt, health.wearFrac);
        wear = text.data();
    }
    std::string score = "-";
    std::string life = "-";
    DiskDrmInfo prediction = {};
    if (DiskDrmInfoCliGet(disk.diskId, &prediction, sizeof(prediction)) == 0 &&
        prediction.diskLife != DISK_LIFE_UNKNOWN) {
        score = std::to_string(prediction.healthScore);
        life = std::to_string(prediction.diskLife);
    }
    const char *strategy = DiskStrategyStrGet(disk.diskId);
    std::string iops = "-";
    std::string bandwidth = "-";
    std::string utilization = "-";
    DiskIoStatInfo io = {};
    if (DiskIoStatInfoCliGet(disk.diskId, &io, sizeof(io)) == 0) {
        iops = std::to_string(io.readIops) + "/" + std::to_string(io.writeIops);
        bandwidth = std::to_string(io.readIoBand) + "/" + std::to_string(io.writeIoBand);
        std::array<char, 32> text{};
        (void)std::snprintf(text.data(), text.size(), "%" PRIu32 ".%02" PRIu32 "%%", io.utilizationInt,
                            io.utilizationFrac);
        utilization = text.data();
    }
    (void)std::fprintf(out, "%3" PRIu32 " %-8s %-10s %-9s %-20s %-20s %-8s %9s %7s %7s %5s %6s %13s %17s %7s  %s\n",
                       disk.diskId, DiskStateName(disk.diskState), DiskTypeName(disk.diskType),
                       Cell(FieldText(disk.vendor)).c_str(), Cell(FieldText(disk.model)).c_str(),
                       Cell(FieldText(disk.sn)).c_str(), Cell(FieldText(disk.deviceName)).c_str(),
                       Capacity(disk.diskCapacity).c_str(), hours.c_str(), wear.c_str(), score.c_str(), life.c_str(),
                       iops.c_str(), bandwidth.c_str(), utilization.c_str(), strategy == nullptr ? "-" : strategy);
}

} // namespace

void PrintStatusTable(std::FILE *out)
{
    std::vector<DiskMgrObj> disks;
    if (!ListOnlineDisks(disks)) {
        (void)std::fprintf(out, "The disks cannot be listed at this moment.\n");
        (void)std::fflush(out);
        return;
    }
    (void)std::fprintf(out, "%s  %zu disk%s online\n", LocalTimeText().c_str(), disks.size(),
                       disks.size() == 1 ? "" : "s");
    (void)std::fprintf(out, "%3s %-8s %-10s %-9s %-20s %-20s %-8s %9s %7s %7s %5s %6s %13s %17s %7s  %s\n", "ID",
                       "STATE", "TYPE", "VENDOR", "MODEL", "SERIAL", "DEVICE", "CAPACITY", "HOURS", "WEAR", "SCORE",
                       "LIFE h", "IOPS R/W", "KiB/s R/W", "UTIL", "STRATEGY");
    for (const DiskMgrObj &disk : disks) {
        PrintRow(out, disk);
    }
    (void)std::fflush(out);
}
