// What one simulated disk is: identity, health, I/O profile, and how each is written in JSON. No state over time.
#pragma once

#include "expectation.h"
#include "json_reader.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvane_sim {

enum class AgentKind : uint8_t { kKernel, kSpdk };
constexpr size_t kAgentCount = 2;
extern const std::vector<std::string_view> kAgentNames; // index: AgentKind

enum class DiskType : uint8_t { kNvme, kSasSsd, kSataSsd, kSasHdd, kSataHdd, kNlSasHdd };
extern const std::vector<std::string_view> kDiskTypeNames; // index: DiskType

/** Which set of health members a disk reports; follows from type and vendor. */
enum class HealthClass : uint8_t { kCriticalWarning, kSmartList, kCapacitance, kSense, kSenseWithIeLog };
HealthClass HealthClassOf(DiskType type, std::string_view vendor);

constexpr size_t kMaxDisks = 64;
constexpr size_t kSmartEntries = 30;
// Room of the receiver's records, less the terminator.
constexpr size_t kMaxDeviceName = 19;
constexpr size_t kMaxSerial = 39;
constexpr size_t kMaxVendor = 9;
constexpr size_t kMaxModel = 43;
constexpr size_t kMaxFirmware = 9;
constexpr size_t kMaxPciAddress = 255;

struct SmartAttribute {
    uint8_t id = 0;
    uint8_t threshold = 0;
    uint8_t currentValue = 0;
    uint8_t worst = 0;
};

struct Health {
    uint64_t powerOnHours = 0;
    double wear = 0;          // hundredths of a percent of life used
    double wearRate = 0;      // the same per second of scenario time
    double wearLimit = 10000; // growth ends here: all life used, unless the scenario says less
    std::vector<SmartAttribute> smart;
    uint8_t asc = 0;
    uint8_t ascq = 0;
    bool isSupportIeLog = true;
    uint8_t capacitanceId = 242; // present, with a status other than 0: charged
    uint8_t capacitanceStatus = 1;
    uint8_t criticalWarning = 0;
};

/** Changes to a Health: only what is set. */
struct HealthPatch {
    std::optional<uint64_t> powerOnHours;
    std::optional<double> wear;
    std::optional<double> wearRate;
    std::optional<double> wearLimit;
    std::optional<std::vector<SmartAttribute>> smart;
    std::optional<uint8_t> asc;
    std::optional<uint8_t> ascq;
    std::optional<bool> isSupportIeLog;
    std::optional<uint8_t> capacitanceId;
    std::optional<uint8_t> capacitanceStatus;
    std::optional<uint8_t> criticalWarning;

    void ApplyTo(Health &health) const;
};
HealthPatch ReadHealthPatch(JsonObject object, HealthClass healthClass);
SmartAttribute ReadSmartAttribute(JsonObject object);

/** What is asked of a disk, and how fast it serves. */
struct IoProfile {
    double readIops = 0;
    double writeIops = 0;
    uint32_t readBlock = 4096;
    uint32_t writeBlock = 4096;
    double serviceUs = 100;               // the disk is busy this long with one operation
    std::optional<double> readLatencyUs;  // unset: service time times the operations in flight
    std::optional<double> writeLatencyUs; // unset: as above
    uint32_t queueDepth = 32;
    uint32_t pendingOps = 1;
};

struct IoPatch {
    std::optional<double> readIops;
    std::optional<double> writeIops;
    std::optional<uint32_t> readBlock;
    std::optional<uint32_t> writeBlock;
    std::optional<double> serviceUs;
    std::optional<double> readLatencyUs;
    std::optional<double> writeLatencyUs;
    std::optional<uint32_t> queueDepth;
    std::optional<uint32_t> pendingOps;

    void ApplyTo(IoProfile &io) const;
};
IoPatch ReadIoPatch(JsonObject object);

/** Identity members that may change while a disk stays the same disk. */
struct BasePatch {
    std::optional<std::string> model;
    std::optional<std::string> firmware;
    std::optional<uint64_t> capacity;
    std::optional<uint32_t> sectorSize;
    std::optional<uint32_t> slotId;
};

struct DiskSpec {
    std::string deviceName;
    std::string serial;
    DiskType type = DiskType::kSataSsd;
    std::string vendor;
    std::string model;
    std::string firmware;
    uint64_t capacity = 0;
    uint32_t sectorSize = 512;
    std::string mediaType;
    std::string pciAddress;
    std::optional<uint32_t> slotId;
    AgentKind agent = AgentKind::kKernel;
    bool present = true;
    bool awaitsRebind = false;
    Health health;
    IoProfile io;
    std::optional<Expectation> expect;

    void Apply(const BasePatch &patch);
};
BasePatch ReadBasePatch(JsonObject object);
DiskSpec ReadDisk(JsonObject object);

} // namespace corvane_sim
