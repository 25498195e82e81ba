// I/O counters: rates, units, and how they go on over changes.
#include "sim_process.h"

#include <gmock/gmock.h>

namespace {

const std::string kOk = R"({"ok":true})";

std::string OneDisk(const std::string &io, const std::string &more = "")
{
    return R"({"disks":[{"device_name":"sda","serial_number":"S1","disk_type":"SSD_SATA","vendor_id":"ATA",)"
           R"("model_number":"VSSD-","disk_capacity":1,"io":)" +
           io + "}]" + more + "}";
}

struct Frame {
    uint64_t ticks, tickRate, reads, writes, bytesRead, bytesWritten, readTicks, writeTicks, ioTime, pendingOps, depth;
};

class CountersTest : public SimTest {
protected:
    Frame Take()
    {
        const Json result = ResultOf(Kernel(), "dca_get_disks_iostat", R"({"devices":["sda"],"period":"20"})");
        const auto number = [&result](const char *name) {
            return NumberAt(result.get(), std::string("disks.0.") + name);
        };
        return {NumberAt(result.get(), "ticks"),
                NumberAt(result.get(), "tick_rate"),
                number("num_read_ops"),
                number("num_write_ops"),
                number("bytes_read"),
                number("bytes_written"),
                number("read_latency_ticks"),
                number("write_latency_ticks"),
                number("io_time"),
                number("io_busy_num"),
                number("queue_depth")};
    }

    // A frame at least this many ticks later.
    Frame TakeAfter(const Frame &first, uint64_t ticks)
    {
        Frame frame = Take();
        while (frame.ticks < first.ticks + ticks) {
            frame = Take();
        }
        return frame;
    }
};

// The agent's clock in microseconds, so that a tick is a unit of everything.
const std::string kFineClock = R"(,"agents":{"kernel":{"tick_rate":1000000}})";

TEST_F(CountersTest, AllCountersAgreeWithTheProfile)
{
    Start(OneDisk(R"({"read_iops":2000,"write_iops":1000,"read_block_size":4096,"write_block_size":512,)"
                  R"("service_us":100,"read_latency_us":300,"write_latency_us":700,"queue_depth":32,"in_flight":5})",
                  kFineClock));
    const Frame a = Take();
    const Frame b = TakeAfter(a, 200000);

    const uint64_t reads = b.reads - a.reads;
    const uint64_t writes = b.writes - a.writes;
    const double seconds = static_cast<double>(b.ticks - a.ticks) / 1e6;
    EXPECT_NEAR(static_cast<double>(reads), 2000 * seconds, 1.01);
    EXPECT_NEAR(static_cast<double>(writes), 1000 * seconds, 1.01);
    EXPECT_EQ(b.bytesRead - a.bytesRead, reads * 4096);
    EXPECT_EQ(b.bytesWritten - a.bytesWritten, writes * 512);
    EXPECT_NEAR(static_cast<double>(b.readTicks - a.readTicks), static_cast<double>(reads) * 300, 1);
    EXPECT_NEAR(static_cast<double>(b.writeTicks - a.writeTicks), static_cast<double>(writes) * 700, 1);
    EXPECT_NEAR(static_cast<double>(b.ioTime - a.ioTime), static_cast<double>(reads + writes) * 100, 1);
    EXPECT_EQ(b.tickRate, 1000000U);
    EXPECT_EQ(b.pendingOps, 5U);
    EXPECT_EQ(b.depth, 32U);
}

TEST_F(CountersTest, CoarseClockGivesTheRatesOfTheProfileToo)
{
    Start(OneDisk(R"({"read_iops":20000,"write_iops":0,"service_us":10})"));
    const Frame a = TakeAfter(Take(), 1); // the first tick is the start's own, and no whole one
    const Frame b = TakeAfter(a, 7);

    EXPECT_EQ(b.tickRate, 100U);
    EXPECT_NEAR(static_cast<double>(b.reads - a.reads), static_cast<double>(b.ticks - a.ticks) * 200, 1.01)
        << "a tick is 200 operations long";
}

TEST_F(CountersTest, LatencyFollowsServiceTimeAndQueueUnlessGiven)
{
    Start(OneDisk(R"({"read_iops":1000,"write_iops":0,"service_us":100,"in_flight":4})", kFineClock));
    const Frame a = Take();
    const Frame b = TakeAfter(a, 50000);

    EXPECT_NEAR(static_cast<double>(b.readTicks - a.readTicks), static_cast<double>(b.reads - a.reads) * 400, 1);
    EXPECT_EQ(b.writeTicks, 0U);
}

TEST_F(CountersTest, DiskThatCannotKeepUpIsBusyAllTheTimeWithAFullQueue)
{
    Start(OneDisk(
        R"({"read_iops":5000,"write_iops":5000,"block_size":512,"service_us":1000,"queue_depth":32,"in_flight":2})",
        kFineClock));
    const Frame a = Take();
    const Frame b = TakeAfter(a, 200000);

    const double seconds = static_cast<double>(b.ticks - a.ticks) / 1e6;
    EXPECT_NEAR(static_cast<double>(b.reads - a.reads), 500 * seconds, 1.01) << "1000 operations fit a second";
    EXPECT_LE(b.ioTime - a.ioTime, b.ticks - a.ticks + 2000) << "no disk is busy longer than time passes";
    EXPECT_EQ((b.ioTime - a.ioTime) / (b.reads - a.reads + b.writes - a.writes), 1000U) << "the service time shows";
    EXPECT_EQ(b.pendingOps, 32U);
}

TEST_F(CountersTest, SlowerServiceShowsAndCountersGoOn)
{
    Start(OneDisk(R"({"read_iops":1000,"write_iops":0,"block_size":4096,"service_us":100})", kFineClock));
    const Frame a = TakeAfter(Take(), 20000);

    EXPECT_EQ(Control(R"({"do":"io","disk":"sda","set":{"service_us":10000,"block_size":8192}})"), kOk);
    const Frame b = Take();
    const Frame c = TakeAfter(b, 300000);

    EXPECT_GE(b.reads, a.reads);
    EXPECT_GE(b.bytesRead, a.bytesRead);
    EXPECT_EQ(c.bytesRead - b.bytesRead, (c.reads - b.reads) * 8192);
    EXPECT_EQ((c.ioTime - b.ioTime) / (c.reads - b.reads), 10000U);
    EXPECT_EQ(c.pendingOps, 32U);
}

TEST_F(CountersTest, CountersStartAgainWhenADiskComesBack)
{
    Start(OneDisk(R"({"read_iops":1000000,"write_iops":0,"service_us":0.5})", kFineClock));
    const Frame before = TakeAfter(Take(), 300000);
    ASSERT_GT(before.reads, 290000U);

    EXPECT_EQ(Control(R"({"do":"pull","disk":"sda"})"), kOk);
    EXPECT_EQ(Control(R"({"do":"plug","disk":"sda"})"), kOk);
    const Frame after = Take();

    EXPECT_GT(after.ticks, before.ticks) << "the agent's clock goes on";
    // Counted from the plug on: never more than the time since the frame before it allows.
    EXPECT_LE(after.reads, after.ticks - before.ticks + 2);
}

TEST_F(CountersTest, IdleDiskCountsNothing)
{
    Start(OneDisk(R"({"read_iops":0,"write_iops":0,"in_flight":0})", kFineClock));
    const Frame b = TakeAfter(Take(), 10000);

    EXPECT_EQ(b.reads + b.writes + b.bytesRead + b.bytesWritten + b.readTicks + b.writeTicks + b.ioTime, 0U);
    EXPECT_EQ(b.pendingOps, 0U);
}

TEST_F(CountersTest, AgentsHaveTheirUsualClocks)
{
    Start(R"({"disks":[]})");

    EXPECT_EQ(At(ResultOf(Kernel(), "dca_get_disks_iostat", R"({"devices":[]})").get(), "tick_rate"), "100");
    EXPECT_EQ(At(ResultOf(Spdk(), "dca_get_disks_iostat", R"({"devices":[]})").get(), "tick_rate"), "1000000000");
}

} // namespace
