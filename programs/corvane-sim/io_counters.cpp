#include "io_counters.h"

#include <algorithm>
#include <cmath>

namespace corvane_sim {

void IoCounters::Reset(const IoProfile &io, double now)
{
    *this = IoCounters();
    io_ = io;
    since_ = now;
}

double IoCounters::ServedShare() const
{
    const double busyShare = (io_.readIops + io_.writeIops) * io_.serviceUs / 1e6;
    return busyShare > 1 ? 1 / busyShare : 1;
}

double IoCounters::OpsSince(double rate, double carry, double now) const
{
    return std::max(0.0, now - since_) * rate * ServedShare() + carry;
}

CounterValues IoCounters::At(double now) const
{
    const double reads = std::floor(OpsSince(io_.readIops, readCarry_, now));
    const double writes = std::floor(OpsSince(io_.writeIops, writeCarry_, now));
    const bool saturated = ServedShare() < 1;
    CounterValues values = base_;
    // A disk that cannot keep up has its queue full.
    values.pendingOps = saturated ? std::max(io_.pendingOps, io_.queueDepth) : io_.pendingOps;
    const double waitUs = io_.serviceUs * std::max<uint32_t>(values.pendingOps, 1);
    values.readOps += static_cast<uint64_t>(reads);
    values.writeOps += static_cast<uint64_t>(writes);
    values.bytesRead += static_cast<uint64_t>(reads) * io_.readBlock;
    values.bytesWritten += static_cast<uint64_t>(writes) * io_.writeBlock;
    values.readLatencyUs += reads * io_.readLatencyUs.value_or(waitUs);
    values.writeLatencyUs += writes * io_.writeLatencyUs.value_or(waitUs);
    values.ioTimeUs = static_cast<uint64_t>(ioTimeBaseUs_ + (reads + writes) * io_.serviceUs);
    return values;
}

void IoCounters::Change(const IoProfile &io, double now)
{
    const double reads = OpsSince(io_.readIops, readCarry_, now);
    const double writes = OpsSince(io_.writeIops, writeCarry_, now);
    base_ = At(now);
    ioTimeBaseUs_ += (std::floor(reads) + std::floor(writes)) * io_.serviceUs;
    readCarry_ = reads - std::floor(reads);
    writeCarry_ = writes - std::floor(writes);
    io_ = io;
    since_ = now;
}

} // namespace corvane_sim
