#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_io_stat.h"

#include <array>

#include "unit/data_collect/dcak_fixture.h"

namespace {

ssize_t FailRead(void *, char *, size_t)
{
    errno = EIO;
    return -1;
}

std::FILE *UnreadableFile(const char *, const char *mode)
{
    return fopencookie(nullptr, mode, {FailRead, nullptr, nullptr, nullptr});
}

} // namespace

class GetProcStatInfoTest : public DcakTest {
protected:
    void WriteStat(const std::string &text) { WriteFile(Root() + "/proc/diskstats", text); }
    std::array<ProcDiskStat, DCAK_PROC_STAT_ROWS> table_{};
    uint32_t count_ = 99;
};

TEST_F(GetProcStatInfoTest, ReadsColumnsInOrderAndIgnoresFurtherOnes)
{
    WriteStat(
        "   8      16 sdb 1 2 3 4 5 6 7 8 9 10 11\n 259 0 nvme0n1 18446744073709551615 0 0 0 0 0 0 0 0 0 1 2 3 4\n");

    EXPECT_EQ(GetProcStatInfo(table_.data(), &count_), 0u);

    ASSERT_EQ(count_, 2u);
    const ProcDiskStat &row = table_[0];
    EXPECT_EQ(row.majorNumber, 8);
    EXPECT_EQ(row.minorNumber, 16);
    EXPECT_STREQ(row.name, "sdb");
    EXPECT_EQ(row.readsCompleted, 1u);
    EXPECT_EQ(row.readsMerged, 2u);
    EXPECT_EQ(row.sectorsRead, 3u);
    EXPECT_EQ(row.msReading, 4u);
    EXPECT_EQ(row.writesCompleted, 5u);
    EXPECT_EQ(row.writesMerged, 6u);
    EXPECT_EQ(row.sectorsWritten, 7u);
    EXPECT_EQ(row.msWriting, 8u);
    EXPECT_EQ(row.iosInFlight, 9u);
    EXPECT_EQ(row.msDoingIo, 10u);
    EXPECT_EQ(row.msWeighted, 11u);
    EXPECT_STREQ(table_[1].name, "nvme0n1");
    EXPECT_EQ(table_[1].readsCompleted, UINT64_MAX);
    EXPECT_EQ(table_[1].msWeighted, 1u);
}

TEST_F(GetProcStatInfoTest, ShortLineIsSkippedAndItsRowUsedAgain)
{
    WriteStat("8 0 sda 1 2 3 4 5 6 7 8 9 10\n\nx\n8 16 sdb 1 2 3 4 5 6 7 8 9 10 11\n");

    EXPECT_EQ(GetProcStatInfo(table_.data(), &count_), 0u);

    ASSERT_EQ(count_, 1u);
    EXPECT_STREQ(table_[0].name, "sdb");
}

TEST_F(GetProcStatInfoTest, NameOf127FitsAnd128IsSkipped)
{
    const std::string fits(127, 'f');
    WriteStat("8 0 " + std::string(128, 'x') + " 1 2 3 4 5 6 7 8 9 10 11\n8 1 " + fits + " 1 2 3 4 5 6 7 8 9 10 11\n");

    EXPECT_EQ(GetProcStatInfo(table_.data(), &count_), 0u);

    ASSERT_EQ(count_, 1u);
    EXPECT_EQ(table_[0].name, fits);
}

TEST_F(GetProcStatInfoTest, RowsBehindThe128thAreLost)
{
    std::string text;
    for (int i = 0; i < 129; i++) {
        text += "8 0 sd" + std::to_string(i) + " 1 2 3 4 5 6 7 8 9 10 11\n";
    }
    WriteStat(text);

    EXPECT_EQ(GetProcStatInfo(table_.data(), &count_), 0u);

    EXPECT_EQ(count_, 128u);
    EXPECT_STREQ(table_[127].name, "sd127");
}

TEST_F(GetProcStatInfoTest, MissingFileIsTold)
{
    EXPECT_EQ(GetProcStatInfo(table_.data(), &count_), 0xFFFFFFFFu);

    EXPECT_EQ(count_, 0u);
    EXPECT_TRUE(Logged(3, "DCAK", "fopen failed diskstats"));
}

TEST_F(GetProcStatInfoTest, ReadErrorIsTold)
{
    g_osCalls.fopen = UnreadableFile;

    EXPECT_EQ(GetProcStatInfo(table_.data(), &count_), 0xFFFFFFFFu);

    EXPECT_EQ(count_, 0u);
    EXPECT_TRUE(Logged(3, "DCAK", "ferror failed diskstats"));
}

using GetDevQueDepthTest = DcakTest;

TEST_F(GetDevQueDepthTest, ReadsSysfs)
{
    AddSasHdd("sda");
    SetSwitches(1, 0);

    EXPECT_EQ(GetDevQueDepth("sda"), 256u);
    EXPECT_EQ(GetDevQueDepth("sdz"), 0u);

    EXPECT_TRUE(Logged(7, "DCAK", "que depth is 256"));
    EXPECT_EQ(LogCount(3, "DCAK", "DcakGetSysInfo failed"), 1u);
}

class DcakGetDiskIoStatInfoTest : public GetProcStatInfoTest {
protected:
    /** The answer without its clock, which is checked to be digits. */
    static std::string Frames(const std::string &devices)
    {
        const std::string answer = Answer(DcakGetDiskIoStatInfo, devices);
        const CJsonPtr tree(cJSON_Parse(answer.c_str()));
        if (answer == "null") {
            return answer;
        }
        EXPECT_EQ(std::string(cJSON_GetStringValue(cJSON_GetObjectItem(tree.get(), "tick_rate"))),
                  std::to_string(sysconf(_SC_CLK_TCK)));
        EXPECT_THAT(cJSON_GetStringValue(cJSON_GetObjectItem(tree.get(), "ticks")), ::testing::MatchesRegex("[0-9]+"));
        EXPECT_STREQ(tree->child->string, "tick_rate");
        EXPECT_STREQ(tree->child->next->string, "ticks");
        EXPECT_STREQ(tree->child->next->next->string, "disks");
        return answer.substr(answer.find("\"disks\""));
    }
};

TEST_F(DcakGetDiskIoStatInfoTest, ConvertsEachCounter)
{
    ASSERT_EQ(sysconf(_SC_CLK_TCK), 100);
    AddSasHdd("sda");
    PlanTool(SasCommand("sda"), "SN1\n");
    WriteStat("8 0 sda 11 2 33 1500 55 6 77 2519 9 10007 11\n");
    SetSwitches(1, 0);

    EXPECT_EQ(Frames(R"(["sda"])"),
              R"("disks":[{"serial_number":"SN1","io_busy_num":9,"queue_depth":256,"bytes_read":"16896",)"
              R"("num_read_ops":"11","bytes_written":"39424","num_write_ops":"55","read_latency_ticks":"150",)"
              R"("write_latency_ticks":"251","io_time":"10007000"}]})");

    EXPECT_TRUE(Logged(7, "DCAK", "whole dev cnt is 1"));
    EXPECT_TRUE(Logged(7, "DCAK", "DcakGetDiskIoStatInfo devListLen: 1"));
}

TEST_F(DcakGetDiskIoStatInfoTest, TimesBeyond64BitsStayAtTheLimit)
{
    AddSasHdd("sda");
    PlanTool(SasCommand("sda"), "SN1\n");
    WriteStat("8 0 sda 0 0 0 0 0 0 0 0 0 18446744073709551615 0\n");

    EXPECT_THAT(Frames(R"(["sda"])"), ::testing::HasSubstr(R"("io_time":"18446744073709551615")"));
}

TEST_F(DcakGetDiskIoStatInfoTest, DeviceThatIsNotCountedIsLeftOut)
{
    AddSasHdd("sda");
    PlanTool(SasCommand("sda"), "SN1\n");
    WriteStat("8 1 sda1 1 2 3 4 5 6 7 8 9 10 11\n8 0 sda 1 2 3 4 5 6 7 8 9 10 11\n");

    const std::string frames = Frames(R"(["sdx", 7, "sda;", "sda"])");

    EXPECT_THAT(frames, ::testing::StartsWith(R"("disks":[{"serial_number":"SN1")"));
    EXPECT_TRUE(Logged(3, "DCAK", "dev not find, sdx"));
    EXPECT_TRUE(Logged(3, "DCAK", "dev not find, sda;"));
    EXPECT_EQ(Logs().back().text, "DcakGetDiskIoStatInfo devListLen: 1");
}

TEST_F(DcakGetDiskIoStatInfoTest, UnsafeNameThatIsCountedEndsTheRequest)
{
    WriteStat("8 0 sda;x 1 2 3 4 5 6 7 8 9 10 11\n");

    EXPECT_EQ(Frames(R"(["sda;x"])"), "null");

    EXPECT_TRUE(Logged(3, "DCAK", "cmd not secure, sda;x"));
}

TEST_F(DcakGetDiskIoStatInfoTest, UnreadableCountersGiveAnEmptyAnswerWithAClock)
{
    EXPECT_EQ(Frames(R"(["sda"])"), R"("disks":[]})");
    EXPECT_EQ(Frames("7"), R"("disks":[]})");
}

TEST_F(DcakGetDiskIoStatInfoTest, FailedSerialIsEmptyOrTheOneBefore)
{
    AddSasHdd("sda");
    AddSasHdd("sdb");
    PlanTool(SasCommand("sda"), "");
    PlanTool(SasCommand("sdb"), "SN2\n");
    WriteStat("8 0 sda 1 2 3 4 5 6 7 8 9 10 11\n8 16 sdb 1 2 3 4 5 6 7 8 9 10 11\n");

    const CJsonPtr tree(cJSON_Parse(("{" + Frames(R"(["sda","sdb","sda"])")).c_str()));

    const cJSON *disks = cJSON_GetObjectItem(tree.get(), "disks");
    ASSERT_EQ(cJSON_GetArraySize(disks), 3);
    const auto serial = [disks](int i) {
        return std::string(cJSON_GetStringValue(cJSON_GetObjectItem(cJSON_GetArrayItem(disks, i), "serial_number")));
    };
    EXPECT_EQ(serial(0), "");
    EXPECT_EQ(serial(1), "SN2");
    EXPECT_EQ(serial(2), "SN2");
}
