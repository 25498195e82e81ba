#include "status_json.h"

#include <array>
#include <cinttypes>
#include <cjson/cJSON.h>
#include <memory>
#include <string>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "online_disks.h"

namespace {

struct Delete {
    void operator()(cJSON *node) const noexcept { cJSON_Delete(node); }
    void operator()(char *text) const noexcept { cJSON_free(text); }
};

void AddText(cJSON *object, const char *name, const std::string &text)
{
    (void)cJSON_AddStringToObject(object, name, text.c_str());
}

void AddNumber(cJSON *object, const char *name, uint64_t value)
{
    (void)cJSON_AddNumberToObject(object, name, static_cast<double>(value));
}

std::string Hundredths(uint32_t whole, uint32_t fraction)
{
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), "%" PRIu32 ".%02" PRIu32, whole, fraction);
    return text.data();
}

std::string Hex(const DiskHealthDetail &detail)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * sizeof(detail.raw));
    for (const uint8_t byte : detail.raw) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

void AddHealth(cJSON *disk, uint32_t diskId)
{
    DiskHealthInfo health = {};
    if (!ReadHealth(diskId, health)) {
        return;
    }
    cJSON *object = cJSON_AddObjectToObject(disk, "health");
    AddNumber(object, "powerOnHours", health.powerOnHours);
    AddText(object, "wear", Hundredths(health.wearInt, health.wearFrac));
    AddText(object, "detail", Hex(health.detail));
}

void AddStrategy(cJSON *disk, uint32_t diskId)
{
    const char *strategy = DiskStrategyStrGet(diskId);
    if (strategy != nullptr) {
        AddText(disk, "strategy", strategy);
    }
}

void AddLife(cJSON *disk, uint32_t diskId)
{
    DiskDrmInfo life = {};
    if (DiskDrmInfoCliGet(diskId, &life, sizeof(life)) != 0 || life.diskLife == DISK_LIFE_UNKNOWN) {
        return;
    }
    cJSON *object = cJSON_AddObjectToObject(disk, "life");
    AddNumber(object, "healthScore", life.healthScore);
    AddNumber(object, "diskLife", life.diskLife);
}

void AddIo(cJSON *disk, uint32_t diskId)
{
    DiskIoStatInfo io = {};
    if (DiskIoStatInfoCliGet(diskId, &io, sizeof(io)) != 0) {
        return;
    }
    cJSON *object = cJSON_AddObjectToObject(disk, "io");
    AddNumber(object, "readIops", io.readIops);
    AddNumber(object, "writeIops", io.writeIops);
    AddNumber(object, "readIoBand", io.readIoBand);
    AddNumber(object, "writeIoBand", io.writeIoBand);
    AddNumber(object, "readIoDelay", io.readIoDelay);
    AddNumber(object, "writeIoDelay", io.writeIoDelay);
    AddNumber(object, "queueDepth", io.queueDepth);
    AddNumber(object, "ioBusyNum", io.ioBusyNum);
    AddNumber(object, "avgServeTime", io.avgServeTime);
    AddText(object, "utilization", Hundredths(io.utilizationInt, io.utilizationFrac));
}

void AddDisk(cJSON *disks, const DiskMgrObj &base)
{
    cJSON *disk = cJSON_CreateObject();
    if (cJSON_AddItemToArray(disks, disk) == 0) {
        cJSON_Delete(disk);
        return;
    }
    AddNumber(disk, "id", base.diskId);
    AddText(disk, "state", DiskStateName(base.diskState));
    AddText(disk, "type", DiskTypeName(base.diskType));
    AddText(disk, "vendor", FieldText(base.vendor));
    AddText(disk, "model", FieldText(base.model));
    AddText(disk, "firmware", FieldText(base.firmware));
    AddText(disk, "sn", FieldText(base.sn));
    AddText(disk, "device", FieldText(base.deviceName));
    AddText(disk, "capacity", std::to_string(base.diskCapacity));
    AddNumber(disk, "sectorSize", base.sectorSize);
    AddStrategy(disk, base.diskId);
    AddHealth(disk, base.diskId);
    AddLife(disk, base.diskId);
    AddIo(disk, base.diskId);
}

} // namespace

void PrintStatusJson(std::FILE *out)
{
    const std::unique_ptr<cJSON, Delete> root(cJSON_CreateObject());
    AddText(root.get(), "time", LocalTimeText());
    std::vector<DiskMgrObj> online;
    if (!ListOnlineDisks(online)) {
        AddText(root.get(), "error", "The disks cannot be listed at this moment.");
    }
    cJSON *disks = cJSON_AddArrayToObject(root.get(), "disks");
    for (const DiskMgrObj &base : online) {
        AddDisk(disks, base);
    }
    const std::unique_ptr<char, Delete> text(cJSON_PrintUnformatted(root.get()));
    if (text != nullptr) {
        (void)std::fprintf(out, "%s\n", text.get());
    }
    (void)std::fflush(out);
}
