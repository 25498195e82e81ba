// Cumulative I/O counters of one disk, computed from its profile and the time that has passed. Counters never jump back
// while a disk stays plugged; a change of profile closes one stretch of constant rates and opens the next.
#pragma once

#include "disk_model.h"

#include <cstdint>

namespace corvane_sim {

struct CounterValues {
    uint64_t readOps = 0;
    uint64_t writeOps = 0;
    uint64_t bytesRead = 0;
    uint64_t bytesWritten = 0;
    double readLatencyUs = 0;
    double writeLatencyUs = 0;
    uint64_t ioTimeUs = 0;
    uint32_t pendingOps = 0;
};

class IoCounters {
public:
    /** Start from zero with @p io at @p now (seconds, monotonic). */
    void Reset(const IoProfile &io, double now);
    /** Go on from the present values with another profile. */
    void Change(const IoProfile &io, double now);
    [[nodiscard]] CounterValues At(double now) const;

private:
    // The share of the demand that the disk can serve: a busy disk does no more than 1 s of work in 1 s.
    [[nodiscard]] double ServedShare() const;
    [[nodiscard]] double OpsSince(double rate, double carry, double now) const;

    IoProfile io_;
    double since_ = 0;
    double readCarry_ = 0; // parts of an operation left over from earlier stretches
    double writeCarry_ = 0;
    double ioTimeBaseUs_ = 0;
    CounterValues base_;
};

} // namespace corvane_sim
