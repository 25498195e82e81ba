#include "data_mgr/data_mgr_master/data_mgr_io_stat.h"

#include <cmath>
#include <limits>

#include "unit/data_mgr/data_mgr_master/data_mgr_fixture.h"

using data_mgr_test::DataMgrTest;
using data_mgr_test::kModule;
using ::testing::ElementsAre;

namespace {

constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();

/** A frame at @p seconds of a clock of 1000 ticks per second. */
DiskIoInfoFrame FrameAt(uint64_t seconds)
{
    DiskIoInfoFrame frame{};
    frame.ticks = seconds * 1000;
    frame.tickRate = 1000;
    return frame;
}

int64_t g_now = 0;
std::time_t FakeTime(std::time_t *)
{
    return g_now;
}

} // namespace

class DataMgrIoInfoSetInnerTest : public DataMgrTest {
protected:
    uint32_t Set(DiskIoInfoFrame frame) { return DiskIoStatInfoSet(sn_, &frame); }
    static DataMgrObj &Obj() { return *g_diskDataMgr[0]; }
};
class IoStatCheckTest : public CorvaneTest, public ::testing::WithParamInterface<uint64_t DiskIoInfoFrame::*> {};
class IoStatInfoCalTest : public CorvaneTest {};
class PrintIoCalTest : public CorvaneTest {};
class IoInfoFrameCopyTest : public CorvaneTest {};

TEST_F(DataMgrIoInfoSetInnerTest, FirstFrameOnlyPrimes)
{
    DiskIoStatInfo out{};

    EXPECT_EQ(Set(FrameAt(1)), 0u);

    EXPECT_EQ(Obj().lastFrame.ticks, 1000u);
    EXPECT_EQ(Obj().ioStatCount, 0u);
    EXPECT_EQ(DiskIoStatInfoGet(0, sn_, &out, sizeof(out)), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("Try get io info, but no io info to get"));
    EXPECT_TRUE(LoggedText("GET INFO FAIL, INFO TYPE = 1"));
}

TEST_F(DataMgrIoInfoSetInnerTest, SecondFrameGivesAStatisticAndItsTime)
{
    g_now = 1234567;
    g_osCalls.time = FakeTime;
    ASSERT_EQ(Set(FrameAt(1)), 0u);
    EXPECT_EQ(g_ioStatFreshTime, 0u);
    DiskIoInfoFrame second = FrameAt(2);
    second.numReadOps = 50;

    EXPECT_EQ(Set(second), 0u);

    DiskIoStatInfo out{};
    EXPECT_EQ(DiskIoStatInfoGet(0, sn_, &out, sizeof(out)), 0u);
    EXPECT_EQ(out.readIops, 50u);
    EXPECT_EQ(Obj().ioStatCount, 1u);
    EXPECT_EQ(g_ioStatFreshTime, 1234567u);
}

TEST_F(DataMgrIoInfoSetInnerTest, EqualTicksRestartFromTheSecondFrame)
{
    DiskIoInfoFrame second = FrameAt(1);
    second.numReadOps = 7;
    ASSERT_EQ(Set(FrameAt(1)), 0u);

    EXPECT_EQ(Set(second), DATA_MGR_ERR_FAIL);

    EXPECT_EQ(Obj().lastFrame.numReadOps, 7u);
    EXPECT_EQ(Obj().ioStatCount, 0u);
    EXPECT_TRUE(
        Logged(CORVANE_LOG_WARN, kModule, "IoStatCheck failed newFrame->ticks:[1000], lastFrame->ticks:[1000]"));
    EXPECT_TRUE(LoggedText("SET INFO FAIL, INFO TYPE = 1"));
}

TEST_F(DataMgrIoInfoSetInnerTest, BackwardCounterLosesOneInterval)
{
    DiskIoInfoFrame first = FrameAt(1);
    first.bytesRead = 4096;
    DiskIoInfoFrame second = FrameAt(2);
    second.bytesRead = 4095;
    DiskIoInfoFrame third = FrameAt(3);
    third.bytesRead = 4095 + 2048;
    ASSERT_EQ(Set(first), 0u);

    EXPECT_EQ(Set(second), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(Set(third), 0u);

    EXPECT_EQ(Obj().ioStatCount, 1u);
    EXPECT_EQ(Obj().ioStat[0].readIoBand, 2u);
}

TEST_F(DataMgrIoInfoSetInnerTest, RingFillsThenOverwritesTheOldest)
{
    // The statistic of step n has n operations per second, so a slot shows who wrote it.
    DiskIoInfoFrame frame = FrameAt(1);
    ASSERT_EQ(Set(frame), 0u);
    for (uint32_t step = 1; step <= 301; step++) {
        frame.ticks += 1000;
        frame.numReadOps += step;

        ASSERT_EQ(Set(frame), 0u);

        DiskIoStatInfo newest{};
        ASSERT_EQ(DiskIoStatInfoGet(0, sn_, &newest, sizeof(newest)), 0u);
        ASSERT_EQ(newest.readIops, step);
        ASSERT_EQ(Obj().ioStat[(step - 1) % 100].readIops, step);
        ASSERT_EQ(Obj().ioStatCount, std::min(step, 100u));
        ASSERT_EQ(Obj().ioStatHead, step <= 100 ? 0u : step % 100);
    }
}

TEST_F(DataMgrIoInfoSetInnerTest, NoFrameIsAFailure)
{
    EXPECT_EQ(DiskIoStatInfoSet(sn_, nullptr), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(DataMgrIoInfoSetInner(5, sn_, nullptr), DATA_MGR_ERR_NO_OBJECT);
    EXPECT_EQ(Obj().lastFrame.ticks, 0u);
}

INSTANTIATE_TEST_SUITE_P(Counters, IoStatCheckTest,
                         ::testing::Values(&DiskIoInfoFrame::bytesRead, &DiskIoInfoFrame::bytesWritten,
                                           &DiskIoInfoFrame::numReadOps, &DiskIoInfoFrame::numWriteOps,
                                           &DiskIoInfoFrame::readLatencyTicks, &DiskIoInfoFrame::writeLatencyTicks));

TEST_P(IoStatCheckTest, CounterMayStandButNotGoBack)
{
    DiskIoInfoFrame last = FrameAt(1);
    DiskIoInfoFrame next = FrameAt(2);
    last.*GetParam() = 10;

    next.*GetParam() = 10;
    EXPECT_EQ(IoStatCheck(&last, &next), 0u);
    next.*GetParam() = 9;
    EXPECT_EQ(IoStatCheck(&last, &next), DATA_MGR_ERR_FAIL);

    EXPECT_TRUE(
        Logged(CORVANE_LOG_WARN, kModule, "IoStatCheck failed newFrame->ticks:[2000], lastFrame->ticks:[1000]"));
}

TEST_F(IoStatInfoCalTest, ChecksTicksStrictlyAndIgnoresIoTime)
{
    DiskIoInfoFrame last = FrameAt(2);
    DiskIoInfoFrame next = FrameAt(2);
    last.ioTime = 5;

    EXPECT_EQ(IoStatCheck(&last, &next), DATA_MGR_ERR_FAIL);
    next.ticks = last.ticks - 1;
    EXPECT_EQ(IoStatCheck(&last, &next), DATA_MGR_ERR_FAIL);
    next.ticks = last.ticks + 1;
    EXPECT_EQ(IoStatCheck(&last, &next), 0u);
}

TEST_F(IoStatInfoCalTest, ComputesEveryField)
{
    DiskIoInfoFrame last = FrameAt(10);
    DiskIoInfoFrame next = FrameAt(12);
    next.numReadOps = 301;
    next.numWriteOps = 100;
    next.bytesRead = 3 * 1024 * 1024;
    next.bytesWritten = 1024 * 1024 + 1;
    next.readLatencyTicks = 602;
    next.writeLatencyTicks = 50;
    next.ioTime = 246800; // of 2000000 microseconds: 12.34 percent
    next.queueDepth = 9;
    next.ioBusyNum = 3;
    DiskIoStatInfo out{};

    EXPECT_EQ(IoStatInfoCal(&last, &next, &out), 0u);

    EXPECT_EQ(out.readIops, 150u); // 150.5, truncated
    EXPECT_EQ(out.writeIops, 50u);
    EXPECT_EQ(out.readIoBand, 1536u);
    EXPECT_EQ(out.writeIoBand, 512u);
    EXPECT_EQ(out.readIoDelay, 2000u);
    EXPECT_EQ(out.writeIoDelay, 500u);
    EXPECT_EQ(out.queueDepth, 9u);
    EXPECT_EQ(out.ioBusyNum, 3u);
    EXPECT_EQ(out.avgServeTime, 246800u / 401u);
    EXPECT_EQ(out.utilizationInt, 12u);
    EXPECT_EQ(out.utilizationFrac, 34u);
}

TEST_F(IoStatInfoCalTest, IdleIntervalGivesZeros)
{
    DiskIoInfoFrame last = FrameAt(1);
    DiskIoInfoFrame next = FrameAt(2);
    DiskIoStatInfo out;
    std::memset(&out, 0xFF, sizeof(out));

    EXPECT_EQ(IoStatInfoCal(&last, &next, &out), 0u);

    const DiskIoStatInfo zeros{};
    EXPECT_EQ(std::memcmp(&out, &zeros, sizeof(out)), 0);
}

TEST_F(IoStatInfoCalTest, MissingBusyNumberReadsAsZero)
{
    DiskIoInfoFrame last = FrameAt(1);
    DiskIoInfoFrame next = FrameAt(2);
    next.ioBusyNum = 0xFFFFFFFFu;
    DiskIoStatInfo out{};
    out.ioBusyNum = 5;

    (void)IoStatInfoCal(&last, &next, &out);

    EXPECT_EQ(out.ioBusyNum, 0u);
    next.ioBusyNum = 0xFFFFFFFEu;
    (void)IoStatInfoCal(&last, &next, &out);
    EXPECT_EQ(out.ioBusyNum, 0xFFFFFFFEu);
}

TEST_F(IoStatInfoCalTest, UtilizationSaturatesAboveTheWhole)
{
    struct Case {
        uint64_t ioTime;
        uint32_t whole;
        uint32_t frac;
    };
    for (const Case &c : {Case{999900, 99, 99}, Case{1000000, 100, 0}, Case{1000100, 100, 0}, Case{5000000, 100, 0}}) {
        DiskIoInfoFrame last = FrameAt(1);
        DiskIoInfoFrame next = FrameAt(2);
        next.ioTime = c.ioTime;
        DiskIoStatInfo out{};

        (void)IoStatInfoCal(&last, &next, &out);

        EXPECT_EQ(out.utilizationInt, c.whole) << c.ioTime;
        EXPECT_EQ(out.utilizationFrac, c.frac) << c.ioTime;
    }
}

TEST_F(IoStatInfoCalTest, LatencyWithoutOperationsSaturates)
{
    DiskIoInfoFrame last = FrameAt(1);
    DiskIoInfoFrame next = FrameAt(2);
    next.readLatencyTicks = 1;
    DiskIoStatInfo out{};

    (void)IoStatInfoCal(&last, &next, &out);

    EXPECT_EQ(out.readIoDelay, kMax);
    EXPECT_EQ(out.writeIoDelay, 0u);
}

TEST_F(IoStatInfoCalTest, TickRateZeroGivesRatesZero)
{
    DiskIoInfoFrame last = FrameAt(1);
    DiskIoInfoFrame next = FrameAt(2);
    next.tickRate = 0;
    next.numReadOps = next.numWriteOps = next.bytesRead = next.bytesWritten = kMax;
    next.ioTime = 12345;
    DiskIoStatInfo out{};

    (void)IoStatInfoCal(&last, &next, &out);

    EXPECT_EQ(out.readIops, 0u);
    EXPECT_EQ(out.writeIops, 0u);
    EXPECT_EQ(out.readIoBand, 0u);
    EXPECT_EQ(out.writeIoBand, 0u);
    EXPECT_EQ(out.utilizationInt, 0u);
    EXPECT_EQ(out.utilizationFrac, 0u);
}

TEST_F(IoStatInfoCalTest, HugeQuotientSaturatesAndNoTimeAtAllGivesZero)
{
    DiskIoInfoFrame last{};
    DiskIoInfoFrame next{};
    next.ticks = 1;
    next.tickRate = kMax;
    next.numReadOps = kMax;
    DiskIoStatInfo out{};

    (void)IoStatInfoCal(&last, &next, &out);
    EXPECT_EQ(out.readIops, kMax);

    next = {};
    (void)IoStatInfoCal(&last, &next, &out); // 0 / 0
    EXPECT_EQ(out.readIops, 0u);
    EXPECT_EQ(out.utilizationInt, 0u);
}

TEST_F(IoStatInfoCalTest, IoTimeThatWentBackIsModular)
{
    DiskIoInfoFrame last = FrameAt(1);
    DiskIoInfoFrame next = FrameAt(2);
    last.ioTime = 1;
    next.numReadOps = 1;
    DiskIoStatInfo out{};

    (void)IoStatInfoCal(&last, &next, &out);

    EXPECT_EQ(out.avgServeTime, kMax);
    EXPECT_EQ(out.utilizationInt, 100u);
    EXPECT_EQ(out.utilizationFrac, 0u);
}

TEST_F(PrintIoCalTest, WritesTheBlockLineByLine)
{
    DiskIoInfoFrame last = FrameAt(10);
    DiskIoInfoFrame next = FrameAt(12);
    last.ioTime = 100;
    next.ioTime = 246900;
    next.numReadOps = 300;
    next.numWriteOps = 100;
    next.bytesRead = 4096;
    next.bytesWritten = 2048;
    next.readLatencyTicks = 600;
    next.writeLatencyTicks = 50;
    next.ioBusyNum = 3;
    DiskIoStatInfo out{};

    (void)IoStatInfoCal(&last, &next, &out);

    std::vector<std::string> lines;
    for (const LogLine &line : Logs()) {
        EXPECT_EQ(line.level, static_cast<uint32_t>(CORVANE_LOG_DEBUG));
        EXPECT_EQ(line.module, kModule);
        lines.push_back(line.text);
    }
    EXPECT_THAT(
        lines,
        ElementsAre("IO STAT CAL RESULT {", "\tcpuTicksDiff    =2000\ttimeDiff    =2.000000",
                    "\tioTimeDiff    =246800(246900 -100)", "\tioBusyNum   =3", "\treadIops    =150(300 / 2.000000)",
                    "\twriteIops   =50(100 / 2.000000)", "\treadIoBand  =2(4096 / 2.000000 / 1024)",
                    "\twriteIoBand =1(2048 / 2.000000 / 1024)", "\treadIoDelay =2000(600 / 300 *1000000.0 /1000)",
                    "\twriteIoDelay =500(50 / 100 *1000000.0 /1000)", "\twriteIoDelay =500(50 / 100 *1000000.0 /1000)",
                    "\tutilization = 12.34%(246800 / (2.000000 * 1000000.0))", "\tavgServeTime =617(246800 / 400)",
                    "}"));
}

TEST_F(IoInfoFrameCopyTest, CopiesOrFails)
{
    DiskIoInfoFrame source = FrameAt(3);
    DiskIoInfoFrame target{};

    EXPECT_EQ(IoInfoFrameCopy(&target, &source), 0u);

    EXPECT_EQ(std::memcmp(&target, &source, sizeof(target)), 0);
    EXPECT_EQ(IoInfoFrameCopy(&target, nullptr), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(IoInfoFrameCopy(nullptr, &source), DATA_MGR_ERR_FAIL);
}
