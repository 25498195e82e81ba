#include "fleet.h"

#include <algorithm>
#include <stdexcept>

namespace corvane_sim {
namespace {

double ExactWear(const Fleet::Disk &disk, double scenarioTime)
{
    const Health &health = disk.spec.health;
    const double grown = health.wear + health.wearRate * std::max(0.0, scenarioTime - disk.wearSince);
    return std::min(grown, std::max(health.wearLimit, health.wear)); // a wear that was set beyond the limit stays
}

void SetSmart(std::vector<SmartAttribute> &list, const SmartAttribute &attribute)
{
    const auto found = std::find_if(list.begin(), list.end(), [&](const auto &a) { return a.id == attribute.id; });
    if (found != list.end()) {
        *found = attribute;
    } else if (list.size() < kSmartEntries) {
        list.push_back(attribute);
    } else {
        throw std::runtime_error("the SMART list has 30 attributes already; change one of those");
    }
}

} // namespace

Fleet::Fleet(const std::vector<DiskSpec> &disks, double now)
{
    for (const DiskSpec &spec : disks) {
        Disk disk{spec, spec.present, {}, 0};
        disk.counters.Reset(spec.io, now);
        disks_.push_back(std::move(disk));
    }
}

void Fleet::Apply(const Event &event, double scenarioTime, double now)
{
    Disk &disk = disks_.at(event.disk);
    if (std::holds_alternative<PullDisk>(event.action)) {
        if (!disk.present) {
            throw std::runtime_error("disk " + disk.spec.deviceName + " is out already; plug it first");
        }
        disk.present = false;
    } else if (const auto *plug = std::get_if<PlugDisk>(&event.action)) {
        if (disk.present) {
            throw std::runtime_error("disk " + disk.spec.deviceName + " is plugged already; pull it first");
        }
        disk.present = true;
        if (!plug->deviceName.empty()) {
            disk.spec.deviceName = plug->deviceName;
        }
        // A disk that comes back is a new device to its agent.
        disk.counters.Reset(disk.spec.io, now);
    } else if (const auto *health = std::get_if<ChangeHealth>(&event.action)) {
        disk.spec.health.wear = ExactWear(disk, scenarioTime);
        disk.wearSince = scenarioTime;
        health->patch.ApplyTo(disk.spec.health);
    } else if (const auto *smart = std::get_if<ChangeSmart>(&event.action)) {
        SetSmart(disk.spec.health.smart, smart->attribute);
    } else if (const auto *io = std::get_if<ChangeIo>(&event.action)) {
        io->patch.ApplyTo(disk.spec.io);
        disk.counters.Change(disk.spec.io, now);
    } else if (const auto *base = std::get_if<ChangeBase>(&event.action)) {
        disk.spec.Apply(base->patch);
    }
}

void Fleet::Rebind(const std::string &pciAddress, double now)
{
    for (Disk &disk : disks_) {
        if (disk.spec.awaitsRebind && !disk.present && disk.spec.pciAddress == pciAddress) {
            disk.present = true;
            disk.counters.Reset(disk.spec.io, now);
        }
    }
}

const Fleet::Disk *Fleet::Find(AgentKind agent, const std::string &deviceName) const
{
    for (const Disk &disk : disks_) {
        if (disk.present && disk.spec.agent == agent && disk.spec.deviceName == deviceName) {
            return &disk;
        }
    }
    return nullptr;
}

uint32_t Fleet::WearAt(const Disk &disk, double scenarioTime)
{
    return static_cast<uint32_t>(ExactWear(disk, scenarioTime));
}

std::vector<DiskSpec> Fleet::Specs() const
{
    std::vector<DiskSpec> specs;
    for (const Disk &disk : disks_) {
        specs.push_back(disk.spec);
    }
    return specs;
}

} // namespace corvane_sim
