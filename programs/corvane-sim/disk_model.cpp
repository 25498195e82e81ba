#include "disk_model.h"

#include <algorithm>
#include <strings.h>

namespace corvane_sim {

const std::vector<std::string_view> kAgentNames = {"kernel", "spdk"};
const std::vector<std::string_view> kDiskTypeNames = {"SSD_NVMe", "SSD_SAS",  "SSD_SATA",
                                                      "HDD_SAS",  "HDD_SATA", "HDD_NL_SAS"};

namespace {

const std::vector<std::string_view> kMediaNames = {"SLC", "MLC", "TLC", "QLC", "PLC", "MAGNET"};

struct TypeDefaults {
    DiskType type;
    const char *media;
    double readIops;
    double writeIops;
    uint32_t block;
    double serviceUs;
    uint32_t queueDepth;
};

// A moderate load for each type, far from saturation.
constexpr std::array<TypeDefaults, 6> kTypeDefaults{{
    {DiskType::kNvme, "TLC", 4000, 2000, 16384, 20, 1023},
    {DiskType::kSasSsd, "TLC", 1500, 800, 16384, 80, 254},
    {DiskType::kSataSsd, "TLC", 800, 400, 16384, 120, 32},
    {DiskType::kSasHdd, "MAGNET", 60, 30, 65536, 4000, 64},
    {DiskType::kSataHdd, "MAGNET", 40, 20, 65536, 6000, 32},
    {DiskType::kNlSasHdd, "MAGNET", 45, 20, 65536, 5500, 64},
}};

constexpr uint32_t kU32Max = 0xFFFFFFFF;

std::optional<uint8_t> ReadU8(JsonObject &object, std::string_view name)
{
    const auto value = object.OptionalInteger(name, 0, 255);
    return value ? std::optional<uint8_t>(static_cast<uint8_t>(*value)) : std::nullopt;
}

std::optional<uint32_t> ReadU32(JsonObject &object, std::string_view name, uint32_t least)
{
    const auto value = object.OptionalInteger(name, least, kU32Max);
    return value ? std::optional<uint32_t>(static_cast<uint32_t>(*value)) : std::nullopt;
}

template <typename T>
void Take(const std::optional<T> &from, T &to)
{
    if (from) {
        to = *from;
    }
}

} // namespace

HealthClass HealthClassOf(DiskType type, std::string_view vendor)
{
    switch (type) {
    case DiskType::kNvme:
        return HealthClass::kCriticalWarning;
    case DiskType::kSataSsd:
        return HealthClass::kSmartList;
    case DiskType::kSasSsd: {
        const std::string name(vendor);
        for (const char *own : {"VELMAR", "ORSTAN", "ORSYL", "0x1f7c"}) {
            if (strcasecmp(name.c_str(), own) == 0) {
                return HealthClass::kCapacitance;
            }
        }
        return HealthClass::kSense;
    }
    default:
        return HealthClass::kSenseWithIeLog;
    }
}

void HealthPatch::ApplyTo(Health &health) const
{
    Take(powerOnHours, health.powerOnHours);
    Take(wear, health.wear);
    Take(wearRate, health.wearRate);
    Take(wearLimit, health.wearLimit);
    Take(smart, health.smart);
    Take(asc, health.asc);
    Take(ascq, health.ascq);
    Take(isSupportIeLog, health.isSupportIeLog);
    Take(capacitanceId, health.capacitanceId);
    Take(capacitanceStatus, health.capacitanceStatus);
    Take(criticalWarning, health.criticalWarning);
}

SmartAttribute ReadSmartAttribute(JsonObject object)
{
    SmartAttribute attribute;
    attribute.id = static_cast<uint8_t>(object.Integer("id", 0, 255));
    Take(ReadU8(object, "threshold"), attribute.threshold);
    attribute.currentValue = static_cast<uint8_t>(object.Integer("current_value", 0, 255));
    attribute.worst = attribute.currentValue;
    Take(ReadU8(object, "worst"), attribute.worst);
    object.Finish();
    return attribute;
}

HealthPatch ReadHealthPatch(JsonObject object, HealthClass healthClass)
{
    HealthPatch patch;
    patch.powerOnHours = object.OptionalInteger("power_on_hours", 0, kU32Max);
    patch.wear = object.OptionalNumber("wear", 0, 65535);
    patch.wearRate = object.OptionalNumber("wear_rate", 0, 65535);
    patch.wearLimit = object.OptionalNumber("wear_limit", 0, 10000);
    // Each class knows its own members only: a sense code on an NVMe disk is a mistake of the scenario.
    switch (healthClass) {
    case HealthClass::kCriticalWarning:
        patch.criticalWarning = ReadU8(object, "critical_warning");
        break;
    case HealthClass::kSmartList:
        if (const auto list = object.OptionalArray("SMART_list", kSmartEntries)) {
            patch.smart.emplace();
            for (size_t i = 0; i < list->size(); i++) {
                patch.smart->push_back(ReadSmartAttribute(
                    JsonObject((*list)[i], object.PathOf("SMART_list") + "[" + std::to_string(i) + "]")));
            }
        }
        break;
    case HealthClass::kCapacitance:
        patch.capacitanceId = ReadU8(object, "capacitance_id");
        patch.capacitanceStatus = ReadU8(object, "capacitance_status");
        break;
    case HealthClass::kSenseWithIeLog:
        patch.isSupportIeLog = object.OptionalBool("is_support_ie_log");
        [[fallthrough]];
    case HealthClass::kSense:
        patch.asc = ReadU8(object, "ASC");
        patch.ascq = ReadU8(object, "ASCQ");
        break;
    }
    object.Finish();
    return patch;
}

void IoPatch::ApplyTo(IoProfile &io) const
{
    Take(readIops, io.readIops);
    Take(writeIops, io.writeIops);
    Take(readBlock, io.readBlock);
    Take(writeBlock, io.writeBlock);
    Take(serviceUs, io.serviceUs);
    if (readLatencyUs) {
        io.readLatencyUs = readLatencyUs;
    }
    if (writeLatencyUs) {
        io.writeLatencyUs = writeLatencyUs;
    }
    Take(queueDepth, io.queueDepth);
    Take(pendingOps, io.pendingOps);
}

IoPatch ReadIoPatch(JsonObject object)
{
    constexpr double kMaxIops = 1e8;
    constexpr double kMaxUs = 1e9;
    constexpr uint64_t kMaxBlock = uint64_t{1} << 30U;

    IoPatch patch;
    patch.readIops = object.OptionalNumber("read_iops", 0, kMaxIops);
    patch.writeIops = object.OptionalNumber("write_iops", 0, kMaxIops);
    const auto block = object.OptionalInteger("block_size", 1, kMaxBlock);
    for (const auto &[name, field] :
         {std::pair{"read_block_size", &patch.readBlock}, {"write_block_size", &patch.writeBlock}}) {
        const auto own = object.OptionalInteger(name, 1, kMaxBlock);
        if (own || block) {
            *field = static_cast<uint32_t>(own ? *own : *block);
        }
    }
    patch.serviceUs = object.OptionalNumber("service_us", 0.001, kMaxUs);
    patch.readLatencyUs = object.OptionalNumber("read_latency_us", 0, kMaxUs);
    patch.writeLatencyUs = object.OptionalNumber("write_latency_us", 0, kMaxUs);
    patch.queueDepth = ReadU32(object, "queue_depth", 1);
    patch.pendingOps = ReadU32(object, "in_flight", 0);
    object.Finish();
    return patch;
}

BasePatch ReadBasePatch(JsonObject object)
{
    BasePatch patch;
    patch.model = object.OptionalText("model_number", 0, kMaxModel);
    patch.firmware = object.OptionalText("firmware_revision", 0, kMaxFirmware);
    patch.capacity = object.OptionalBytes("disk_capacity");
    patch.sectorSize = ReadU32(object, "sector_size", 1);
    patch.slotId = ReadU32(object, "slot_id", 0);
    object.Finish();
    return patch;
}

void DiskSpec::Apply(const BasePatch &patch)
{
    Take(patch.model, model);
    Take(patch.firmware, firmware);
    Take(patch.capacity, capacity);
    Take(patch.sectorSize, sectorSize);
    if (patch.slotId) {
        slotId = patch.slotId;
    }
}

DiskSpec ReadDisk(JsonObject object)
{
    DiskSpec disk;
    disk.deviceName = object.Text("device_name", 1, kMaxDeviceName);
    disk.serial = object.Text("serial_number", 1, kMaxSerial);
    disk.type = static_cast<DiskType>(object.Choice("disk_type", kDiskTypeNames));
    disk.vendor = object.Text("vendor_id", 1, kMaxVendor);
    disk.model = object.Text("model_number", 1, kMaxModel);
    disk.firmware = object.OptionalText("firmware_revision", 0, kMaxFirmware).value_or("SIM1");
    const auto capacity = object.OptionalBytes("disk_capacity");
    if (!capacity) {
        object.Fail("disk_capacity", "is missing; add it as a number of bytes");
    }
    disk.capacity = *capacity;
    Take(ReadU32(object, "sector_size", 1), disk.sectorSize);

    const TypeDefaults &defaults = kTypeDefaults[static_cast<size_t>(disk.type)];
    const auto media = object.OptionalChoice("disk_media_type", kMediaNames);
    disk.mediaType = media ? std::string(kMediaNames[*media]) : defaults.media;
    const bool isNvme = disk.type == DiskType::kNvme;
    if (isNvme) {
        disk.pciAddress = object.Text("pci_address", 1, kMaxPciAddress);
        disk.slotId = ReadU32(object, "slot_id", 0);
        disk.awaitsRebind = object.OptionalBool("awaits_rebind").value_or(false);
    }
    disk.agent = isNvme ? AgentKind::kSpdk : AgentKind::kKernel;
    if (const auto agent = object.OptionalChoice("agent", kAgentNames)) {
        disk.agent = static_cast<AgentKind>(*agent);
    }
    disk.present = object.OptionalBool("present").value_or(!disk.awaitsRebind);
    if (disk.present && disk.awaitsRebind) {
        object.Fail("present", "a disk that awaits its rebind cannot be present; remove one of the two");
    }

    if (const auto health = object.OptionalObject("health")) {
        ReadHealthPatch(*health, HealthClassOf(disk.type, disk.vendor)).ApplyTo(disk.health);
    }
    disk.io.readIops = defaults.readIops;
    disk.io.writeIops = defaults.writeIops;
    disk.io.readBlock = defaults.block;
    disk.io.writeBlock = defaults.block;
    disk.io.serviceUs = defaults.serviceUs;
    disk.io.queueDepth = defaults.queueDepth;
    if (const auto io = object.OptionalObject("io")) {
        ReadIoPatch(*io).ApplyTo(disk.io);
    }
    if (const auto expect = object.OptionalObject("expect")) {
        disk.expect = ReadExpectation(*expect);
    }
    object.Finish();
    return disk;
}

} // namespace corvane_sim
