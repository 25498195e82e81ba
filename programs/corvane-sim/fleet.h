// The disks as they are now. One thread, no locks.
#pragma once

#include "events.h"
#include "io_counters.h"

#include <string>
#include <vector>

namespace corvane_sim {

class Fleet {
public:
    struct Disk {
        DiskSpec spec;
        bool present = true;
        IoCounters counters;
        double wearSince = 0; // scenario time at which spec.health.wear was the wear
    };

    /** @p now: monotonic seconds of the counters; scenario time starts at 0. */
    Fleet(const std::vector<DiskSpec> &disks, double now);

    /**
     * Apply a disk event.
     * @param scenarioTime seconds of scenario time, which wear goes by.
     * @param now          monotonic seconds, which counters go by.
     * @throws std::runtime_error if the disk is not in the state that the event needs.
     */
    void Apply(const Event &event, double scenarioTime, double now);

    /** A rebind makes the disks appear that wait for one at this address. */
    void Rebind(const std::string &pciAddress, double now);

    [[nodiscard]] const std::vector<Disk> &Disks() const { return disks_; }
    /** The plugged disk of an agent by device name, or null. */
    [[nodiscard]] const Disk *Find(AgentKind agent, const std::string &deviceName) const;
    /** Wear in hundredths of a percent. */
    [[nodiscard]] static uint32_t WearAt(const Disk &disk, double scenarioTime);
    /** Current identities, with device names as they are now. */
    [[nodiscard]] std::vector<DiskSpec> Specs() const;

private:
    std::vector<Disk> disks_;
};

} // namespace corvane_sim
