#include "cli/cmd/SlowDiskCmd.h"

#include "cmd_test_support.h"

using namespace CORVANE_CLI;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string kRule = "---------------------------------------------------------------\n"; // 63
const std::string kSlowHead = "SlowDiskInfo:\n"
                              "Sn                                        Slot  State     \n" +
                              kRule;
const std::string kSummaryHead = "SummaryInfo:\n"
                                 "DiskId  DiskSn                                    \n" +
                                 kRule;

std::string Padded(const std::string &text, size_t width)
{
    return text + std::string(width > text.size() ? width - text.size() : 0, ' ');
}

} // namespace

class SlowDiskCmdTest : public CmdTest {
protected:
    static Answer Show(const std::string &name)
    {
        return Run<SlowDiskCmd>(name, "action=show " + name + " userName=root");
    }
    static std::string SourceLine(const std::string &level, const std::string &function, const std::string &message)
    {
        return Line(level, "SlowDiskCmd", function, message);
    }
};

class GetAllOnlineDiskTest : public SlowDiskCmdTest {};
class ShowSlowDiskCmdTest : public SlowDiskCmdTest {};
class ShowSummaryCmdTest : public SlowDiskCmdTest {};

TEST_F(SlowDiskCmdTest, DoesNotChangeAnything)
{
    EXPECT_EQ(Run<SlowDiskCmd>("slowdisk", "action=change userName=root"),
              (Answer{CLI_COMMAND_FORMAT_ERROR, "", "change"}));

    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "Exec", "CLI_COMMAND_FORMAT_ERROR not support change.")));
}

TEST_F(SlowDiskCmdTest, RefusesOtherActions)
{
    EXPECT_EQ(Run<SlowDiskCmd>("summary", "action=help userName=root"), (Answer{CLI_COMMAND_FORMAT_ERROR, "", "help"}));
    EXPECT_EQ(Run<SlowDiskCmd>("summary", "userName=root"), (Answer{CLI_COMMAND_FORMAT_ERROR, "", ""}));

    const std::string line = SourceLine("ERROR", "Exec", "CLI_COMMAND_FORMAT_ERROR 0x40036904.");
    EXPECT_THAT(CliLog(), ElementsAre(line, line));
}

TEST_F(SlowDiskCmdTest, RefusesOtherNames)
{
    EXPECT_EQ(Show("disk_info"), (Answer{CLI_COMMAND_FORMAT_ERROR, "", "show"}));

    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("INFO", "ShowCmd", "error cmd name: disk_info")));
}

TEST_F(ShowSlowDiskCmdTest, PrintsAnEmptyTableWithoutDisks)
{
    StartStore();

    EXPECT_EQ(Show("slowdisk"), (Answer{0, kSlowHead + kRule, "show"}));

    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("INFO", "GetAllOnlineDisk", "get online disk num 0"),
                                      SourceLine("INFO", "ShowSlowDiskCmd", "show result: successfully")));
}

TEST_F(ShowSlowDiskCmdTest, PrintsAnEmptyTableWithoutSlowDisks)
{
    AddDisk(0);
    AddDisk(1);
    StartStore();
    for (const uint32_t state : {0u, 1u, 2u, 3u, 5u, 0xFFFFFFFFu}) {
        Base(0).diskState = state;

        EXPECT_EQ(Show("slowdisk"), (Answer{0, kSlowHead + kRule, "show"})) << state;
    }
}

TEST_F(ShowSlowDiskCmdTest, PrintsSlowDisksOnly)
{
    for (uint32_t id = 0; id < 4; id++) {
        AddDisk(id);
    }
    StartStore();
    Base(1).diskState = DISK_STATE_SLOW;
    Base(1).slotId = 12;
    Base(3).diskState = DISK_STATE_SLOW;
    Base(3).slotId = 0xFFFFFFFF;

    EXPECT_EQ(Show("slowdisk"), (Answer{0,
                                        kSlowHead +
                                            "SERIAL-001                                12    Slow      \n"
                                            "SERIAL-003                                NA    Slow      \n" +
                                            kRule,
                                        "show"}));
}

TEST_F(ShowSlowDiskCmdTest, PrintsSerialNumbersOf40Characters)
{
    AddDisk(0);
    StartStore();
    Base(0).diskState = DISK_STATE_SLOW;
    Base(0).slotId = 4294967294;
    std::memset(Base(0).sn, 'S', sizeof(Base(0).sn));

    EXPECT_EQ(Show("slowdisk").output, kSlowHead + std::string(40, 'S') + "  4294967294" + "Slow      \n" + kRule);
}

TEST_F(ShowSlowDiskCmdTest, Prints64Disks)
{
    std::string rows;
    for (uint32_t id = 0; id < 64; id++) {
        AddDisk(id);
        rows += Padded(SnOf(id), 42) + Padded(std::to_string(id), 6) + "Slow      \n";
    }
    StartStore();
    for (uint32_t id = 0; id < 64; id++) {
        Base(id).diskState = DISK_STATE_SLOW;
        Base(id).slotId = id;
    }

    EXPECT_EQ(Show("slowdisk"), (Answer{0, kSlowHead + rows + kRule, "show"}));
    EXPECT_THAT(CliLog(), ::testing::Contains(SourceLine("INFO", "GetAllOnlineDisk", "get online disk num 64")));
}

TEST_F(ShowSlowDiskCmdTest, HandsOutWhatItGatheredBeforeAFailure)
{
    for (uint32_t id = 0; id < 3; id++) {
        AddDisk(id);
    }
    StartStore();
    for (uint32_t id = 0; id < 3; id++) {
        Base(id).diskState = DISK_STATE_SLOW;
    }
    static DataMgrInfoGetFunc real;
    real = g_diskInfoGetFunc[DISK_INFO_BASE];
    g_diskInfoGetFunc[DISK_INFO_BASE] = [](uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen) {
        return diskId == 1 ? DATA_MGR_ERR_FAIL : real(diskId, sn, buf, bufLen);
    };

    EXPECT_EQ(Show("slowdisk"),
              (Answer{CLI_COMMAND_EXEC_FAILED,
                      kSlowHead + "SERIAL-000                                0     Slow      \n" + kRule, "show"}));

    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("INFO", "GetAllOnlineDisk", "get online disk num 3"),
                                      SourceLine("ERROR", "ShowSlowDiskCmd", "get diskInfo failed: 1"),
                                      SourceLine("INFO", "ShowSlowDiskCmd", "show result: failed")));
}

TEST_F(SlowDiskCmdTest, FailsWithoutAStore)
{
    for (const char *name : {"slowdisk", "summary"}) {
        EXPECT_EQ(Show(name), (Answer{CLI_COMMAND_EXEC_FAILED, "", "show"})) << name;
    }
    const std::string text = "get online disk failed ret:4294967295, num:0";
    EXPECT_THAT(CliLog(),
                ElementsAre(SourceLine("INFO", "GetAllOnlineDisk", text), SourceLine("INFO", "ShowSummaryCmd", text)));
}

TEST_F(SlowDiskCmdTest, FailsWithMoreDisksThanATableTakes)
{
    StartStore();
    CmdDoubles::listCount = 65;
    for (const char *name : {"slowdisk", "summary"}) {
        EXPECT_EQ(Show(name), (Answer{CLI_COMMAND_EXEC_FAILED, "", "show"})) << name;
    }
    const std::string text = "get online disk failed ret:0, num:65";
    EXPECT_THAT(CliLog(),
                ElementsAre(SourceLine("INFO", "GetAllOnlineDisk", text), SourceLine("INFO", "ShowSummaryCmd", text)));
}

TEST_F(SlowDiskCmdTest, FailsWhenTheListFails)
{
    AddDisk(0);
    StartStore();
    CmdDoubles::listResult = 7;
    for (const char *name : {"slowdisk", "summary"}) {
        EXPECT_EQ(Show(name), (Answer{CLI_COMMAND_EXEC_FAILED, "", "show"})) << name;
    }
    const std::string text = "get online disk failed ret:7, num:1";
    EXPECT_THAT(CliLog(),
                ElementsAre(SourceLine("INFO", "GetAllOnlineDisk", text), SourceLine("INFO", "ShowSummaryCmd", text)));
}

TEST_F(SlowDiskCmdTest, PrintsEmptyTablesWhileTheStoreIsDisabled)
{
    AddDisk(0);
    StartStore();
    g_dataMgrEnable = false;

    EXPECT_EQ(Show("slowdisk"), (Answer{0, kSlowHead + kRule, "show"}));
    EXPECT_EQ(Show("summary"), (Answer{0, kSummaryHead + kRule, "show"}));
}

TEST_F(SlowDiskCmdTest, FailsWithoutMemory)
{
    StartStore();
    for (const size_t size : {size_t{64 * 41}, 64 * sizeof(DiskSnRef)}) {
        RefuseMalloc(size);
        for (const char *name : {"slowdisk", "summary"}) {
            WriteFile(LogPath(), "");

            EXPECT_EQ(Show(name), (Answer{CLI_COMMAND_EXEC_FAILED, "", "show"})) << name;

            const std::string function = std::string(name) == "summary" ? "ShowSummaryCmd" : "GetAllOnlineDisk";
            EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", function, "malloc failed")));
        }
    }
}

TEST_F(ShowSummaryCmdTest, PrintsAnEmptyTableWithoutDisks)
{
    StartStore();

    EXPECT_EQ(Show("summary"), (Answer{0, kSummaryHead + kRule, "show"}));

    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("INFO", "ShowSummaryCmd", "get online disk num 0")));
}

TEST_F(ShowSummaryCmdTest, PrintsOneDisk)
{
    AddDisk(7);
    StartStore();

    EXPECT_EQ(Show("summary"),
              (Answer{0, kSummaryHead + "7       SERIAL-007                                \n" + kRule, "show"}));
}

TEST_F(ShowSummaryCmdTest, PrintsSerialNumbersOf40Characters)
{
    DiskMgrObj record{};
    std::memset(record.sn, 'S', sizeof(record.sn));
    ASSERT_EQ(DiskInfoUpdate(0, &record), 0u);
    AddDisk(1);
    StartStore();

    EXPECT_EQ(Show("summary").output, kSummaryHead + "0       " + std::string(40, 'S') + "  \n" +
                                          "1       SERIAL-001                                \n" + kRule);
}

TEST_F(ShowSummaryCmdTest, Prints64Disks)
{
    std::string rows;
    for (uint32_t id = 0; id < 64; id++) {
        AddDisk(id);
        rows += Padded(std::to_string(id), 8) + Padded(SnOf(id), 42) + "\n";
    }
    StartStore();

    EXPECT_EQ(Show("summary"), (Answer{0, kSummaryHead + rows + kRule, "show"}));
    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("INFO", "ShowSummaryCmd", "get online disk num 64")));
}

TEST_F(ShowSummaryCmdTest, PrintsIdentifiersAbove63)
{
    AddDisk(127);
    StartStore();

    EXPECT_EQ(Show("summary").output, kSummaryHead + "127     SERIAL-127                                \n" + kRule);
}

TEST_F(GetAllOnlineDiskTest, ListsWhatFits)
{
    AddDisk(2);
    AddDisk(9);
    StartStore();
    SlowDiskCmd command;
    unsigned int ids[3] = {77, 77, 77};
    unsigned int count = 77;

    EXPECT_EQ(command.GetAllOnlineDisk(ids, 2, count), 0);

    EXPECT_EQ(count, 2u);
    EXPECT_THAT(ids, ElementsAre(2u, 9u, 77u));
}

TEST_F(GetAllOnlineDiskTest, CountsNothingWhileTheStoreIsDisabled)
{
    AddDisk(2);
    StartStore();
    g_dataMgrEnable = false;
    SlowDiskCmd command;
    unsigned int ids[3] = {77, 77, 77};
    unsigned int count = 77;

    EXPECT_EQ(command.GetAllOnlineDisk(ids, 3, count), 0);

    EXPECT_EQ(count, 0u);
}

TEST_F(GetAllOnlineDiskTest, RefusesBadArguments)
{
    SlowDiskCmd command;
    unsigned int id = 0;
    unsigned int count = 0;

    EXPECT_EQ(command.GetAllOnlineDisk(nullptr, 64, count), -1);
    EXPECT_EQ(command.GetAllOnlineDisk(&id, 0, count), -1);

    const std::string line = SourceLine("ERROR", "GetAllOnlineDisk", "input error");
    EXPECT_THAT(CliLog(), ElementsAre(line, line));
}
