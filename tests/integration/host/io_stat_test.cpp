#include "host_fixture.h"

#include <ctime>
#include <limits>

namespace {

class IoStatTest : public HostTest {
protected:
    void SetUp() override
    {
        StartQuiet();
        AddAgents();
        lib::DiskMgrObj record = Record("SN-0");
        ASSERT_EQ(lib::DiskBaseInfoSet(Sn("SN-0"), &record), 0u);
        ClearHostLines();
    }

    /** Counters after @p steps intervals of one second, 10 reads of 1 MiB together in each. */
    static lib::DiskIoInfoFrame Frame(uint64_t steps)
    {
        lib::DiskIoInfoFrame frame{};
        frame.bytesRead = 1048576 * steps;
        frame.numReadOps = 10 * steps;
        frame.readLatencyTicks = 20 * steps;
        frame.queueDepth = 32;
        frame.ioBusyNum = static_cast<uint32_t>(steps);
        frame.ticks = 1000 + 1000 * steps;
        frame.tickRate = 1000;
        frame.ioTime = 5000 * steps;
        return frame;
    }

    static uint32_t Set(lib::DiskIoInfoFrame frame) { return lib::DiskIoStatInfoSet(Sn("SN-0"), &frame); }

    static lib::DiskIoStatInfo Get()
    {
        lib::DiskIoStatInfo stat{};
        EXPECT_EQ(lib::DiskIoStatInfoCliGet(0, &stat, sizeof(stat)), 0u);
        return stat;
    }
};

TEST_F(IoStatTest, OneFrameGivesNoStatistic)
{
    EXPECT_EQ(Set(Frame(0)), 0u);

    lib::DiskIoStatInfo stat{};
    EXPECT_EQ(lib::DiskIoStatInfoCliGet(0, &stat, sizeof(stat)), kFail);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]Try get io info, but no io info to get"), 1u);
    EXPECT_EQ(Object(0).ioStatCount, 0u);
    EXPECT_EQ(lib::Global<uint64_t>("g_ioStatFreshTime"), 0u);
}

TEST_F(IoStatTest, TwoFramesGiveOne)
{
    const auto before = static_cast<uint64_t>(time(nullptr));
    EXPECT_EQ(Set(Frame(0)), 0u);
    EXPECT_EQ(Set(Frame(1)), 0u);

    const lib::DiskIoStatInfo stat = Get();

    EXPECT_EQ(stat.readIops, 10u);
    EXPECT_EQ(stat.readIoBand, 1024u);
    EXPECT_EQ(stat.readIoDelay, 2000u);
    EXPECT_EQ(stat.writeIops + stat.writeIoBand + stat.writeIoDelay, 0u);
    EXPECT_EQ(stat.queueDepth, 32u);
    EXPECT_EQ(stat.ioBusyNum, 1u);
    EXPECT_EQ(stat.avgServeTime, 500u);
    EXPECT_EQ(stat.utilizationInt, 0u);
    EXPECT_EQ(stat.utilizationFrac, 50u);
    EXPECT_EQ(Object(0).ioStatCount, 1u);
    EXPECT_GE(lib::Global<uint64_t>("g_ioStatFreshTime"), before);
    EXPECT_EQ(lib::DiskIoStatInfoCliGet(0, nullptr, 0), kFail);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]IoInfo copy info fail,disk id = 0,buf size = 0"), 1u);
}

TEST_F(IoStatTest, CalculationIsLoggedLineByLine)
{
    (void)Set(Frame(0));
    (void)Set(Frame(1));

    for (const char *line :
         {"IO STAT CAL RESULT {", "\tcpuTicksDiff    =1000\ttimeDiff    =1.000000", "\tioTimeDiff    =5000(5000 -0)",
          "\tioBusyNum   =1", "\treadIops    =10(10 / 1.000000)", "\twriteIops   =0(0 / 1.000000)",
          "\treadIoBand  =1024(1048576 / 1.000000 / 1024)", "\twriteIoBand =0(0 / 1.000000 / 1024)",
          "\treadIoDelay =2000(20 / 10 *1000000.0 /1000)", "\tutilization = 0.50%(5000 / (1.000000 * 1000000.0))",
          "\tavgServeTime =500(5000 / 10)", "}"}) {
        EXPECT_EQ(HostLogged(7, std::string("[DATA_MGR_MASTER]") + line), 1u) << line;
    }
    EXPECT_EQ(HostLogged(7, "[DATA_MGR_MASTER]\twriteIoDelay =0(0 / 0 *1000000.0 /1000)"), 2u);
}

TEST_F(IoStatTest, RingHoldsAHundredAndThenOverwritesTheOldest)
{
    for (uint64_t step = 0; step <= 99; step++) {
        ASSERT_EQ(Set(Frame(step)), 0u);
    }
    EXPECT_EQ(Object(0).ioStatCount, 99u);
    ASSERT_EQ(Set(Frame(100)), 0u);
    EXPECT_EQ(Object(0).ioStatCount, 100u);
    EXPECT_EQ(Object(0).ioStatHead, 0u);
    EXPECT_EQ(Get().ioBusyNum, 100u);

    // The hundred-and-first frame of the ring.
    ASSERT_EQ(Set(Frame(101)), 0u);
    EXPECT_EQ(Object(0).ioStatCount, 100u);
    EXPECT_EQ(Object(0).ioStatHead, 1u);
    EXPECT_EQ(Object(0).ioStat[0].ioBusyNum, 101u);
    EXPECT_EQ(Object(0).ioStat[1].ioBusyNum, 2u);
    EXPECT_EQ(Get().ioBusyNum, 101u);

    for (uint64_t step = 102; step <= 200; step++) {
        ASSERT_EQ(Set(Frame(step)), 0u);
        ASSERT_EQ(Get().ioBusyNum, step);
    }
    EXPECT_EQ(Object(0).ioStatHead, 0u);
}

TEST_F(IoStatTest, EqualTicksRestartFromTheNewFrame)
{
    (void)Set(Frame(1));
    lib::DiskIoInfoFrame same = Frame(2);
    same.ticks = Frame(1).ticks;

    EXPECT_EQ(Set(same), kFail);

    EXPECT_EQ(HostLogged(4, "[DATA_MGR_MASTER]IoStatCheck failed newFrame->ticks:[2000], lastFrame->ticks:[2000]"), 1u);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]SET INFO FAIL, INFO TYPE = 1"), 1u);
    EXPECT_EQ(Object(0).ioStatCount, 0u);
    EXPECT_EQ(Object(0).lastFrame.numReadOps, 20u);
    EXPECT_EQ(Set(Frame(3)), 0u);
    EXPECT_EQ(Get().readIops, 5u); // 10 more reads in two seconds
}

TEST_F(IoStatTest, ACounterOneBackLosesThisIntervalOnly)
{
    uint64_t lib::DiskIoInfoFrame::*const counters[6] = {
        &lib::DiskIoInfoFrame::bytesRead,        &lib::DiskIoInfoFrame::bytesWritten,
        &lib::DiskIoInfoFrame::numReadOps,       &lib::DiskIoInfoFrame::numWriteOps,
        &lib::DiskIoInfoFrame::readLatencyTicks, &lib::DiskIoInfoFrame::writeLatencyTicks};
    for (uint64_t lib::DiskIoInfoFrame::*counter : counters) {
        lib::DiskIoInfoFrame last = Frame(1);
        last.*counter = 100000;
        lib::DiskIoInfoFrame next = Frame(2);
        next.*counter = 100000;
        EXPECT_EQ(lib::IoStatCheck(&last, &next), 0u);
        next.*counter = 99999;
        EXPECT_EQ(lib::IoStatCheck(&last, &next), kFail);
    }
    lib::DiskIoInfoFrame last = Frame(2);
    lib::DiskIoInfoFrame next = Frame(3);
    next.ioTime = 0; // this one may go back
    EXPECT_EQ(lib::IoStatCheck(&last, &next), 0u);
}

TEST_F(IoStatTest, NothingDoneGivesZeroes)
{
    lib::DiskIoInfoFrame last = Frame(5);
    lib::DiskIoInfoFrame next = last;
    next.ticks += 3000;
    lib::DiskIoStatInfo stat{};

    EXPECT_EQ(lib::IoStatInfoCal(&last, &next, &stat), 0u);

    EXPECT_EQ(
        stat.readIops + stat.writeIops + stat.readIoBand + stat.writeIoBand + stat.readIoDelay + stat.writeIoDelay, 0u);
    EXPECT_EQ(stat.avgServeTime, 0u);
    EXPECT_EQ(stat.utilizationInt + stat.utilizationFrac, 0u);
}

TEST_F(IoStatTest, BusierThanTimeAllowsIsAHundredPercent)
{
    lib::DiskIoInfoFrame last = Frame(0);
    lib::DiskIoInfoFrame next = Frame(1);
    lib::DiskIoStatInfo stat{};
    next.ioTime = 1000000;
    EXPECT_EQ(lib::IoStatInfoCal(&last, &next, &stat), 0u);
    EXPECT_EQ(stat.utilizationInt, 100u);
    EXPECT_EQ(stat.utilizationFrac, 0u);
    next.ioTime = 999950;
    EXPECT_EQ(lib::IoStatInfoCal(&last, &next, &stat), 0u);
    EXPECT_EQ(stat.utilizationInt, 99u);
    EXPECT_EQ(stat.utilizationFrac, 99u);
    next.ioTime = 1230000;
    EXPECT_EQ(lib::IoStatInfoCal(&last, &next, &stat), 0u);
    EXPECT_EQ(stat.utilizationInt, 100u);
    EXPECT_EQ(stat.utilizationFrac, 0u);
}

TEST_F(IoStatTest, LatencyWithoutOperationsSaturates)
{
    lib::DiskIoInfoFrame last = Frame(0);
    lib::DiskIoInfoFrame next = Frame(1);
    next.writeLatencyTicks = 5;
    lib::DiskIoStatInfo stat{};

    EXPECT_EQ(lib::IoStatInfoCal(&last, &next, &stat), 0u);

    EXPECT_EQ(stat.writeIoDelay, std::numeric_limits<uint64_t>::max());
}

TEST_F(IoStatTest, BusyNumberOfAllOnesReadsAs0)
{
    lib::DiskIoInfoFrame last = Frame(0);
    lib::DiskIoInfoFrame next = Frame(1);
    next.ioBusyNum = kFail;
    lib::DiskIoStatInfo stat{};

    EXPECT_EQ(lib::IoStatInfoCal(&last, &next, &stat), 0u);

    EXPECT_EQ(stat.ioBusyNum, 0u);
}

TEST_F(IoStatTest, TickRateOf0GivesRatesOf0)
{
    lib::DiskIoInfoFrame last = Frame(0);
    lib::DiskIoInfoFrame next = Frame(1);
    next.tickRate = 0;
    lib::DiskIoStatInfo stat{};

    EXPECT_EQ(lib::IoStatInfoCal(&last, &next, &stat), 0u);

    EXPECT_EQ(stat.readIops, 0u);
    EXPECT_EQ(stat.readIoBand, 0u);
}

} // namespace
