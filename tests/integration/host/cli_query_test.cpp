#include "cli_client.h"

#include <cstring>

namespace {

using testing::SizeIs;

const std::string kRule(63, '-');

/** A label in its column and its value. */
std::string Line(const std::string &label, size_t width, const std::string &value)
{
    return label + std::string(width - label.size(), ' ') + ": " + value + "\n";
}

std::string Column(const std::string &text, size_t width)
{
    return text + std::string(text.size() < width ? width - text.size() : 0, ' ');
}

std::string SlowTable(const std::string &rows)
{
    return "SlowDiskInfo:\n" + Column("Sn", 42) + Column("Slot", 6) + Column("State", 10) + "\n" + kRule + "\n" + rows +
           kRule + "\n";
}

std::string SlowRow(const std::string &sn, const std::string &slot)
{
    return Column(sn, 42) + Column(slot, 6) + Column("Slow", 10) + "\n";
}

std::string SummaryTable(const std::string &rows)
{
    return "SummaryInfo:\n" + Column("DiskId", 8) + Column("DiskSn", 42) + "\n" + kRule + "\n" + rows + kRule + "\n";
}

std::string SummaryRow(uint32_t id, const std::string &sn)
{
    return Column(std::to_string(id), 8) + Column(sn, 42) + "\n";
}

class CliQueryTest : public CliTest {
protected:
    void SetUp() override
    {
        CliTest::SetUp();
        StartForDisks();
    }

    static lib::DiskMgrObj &Stored(uint32_t id) { return *Object(id).baseInfo; }

    static void Fill(char *field, size_t size, const std::string &text)
    {
        std::memset(field, 0, size);
        (void)text.copy(field, size);
    }

    CliAnswer Shown(const std::string &what, uint32_t id) const
    {
        return Ask("show " + what + " disk_id=" + std::to_string(id));
    }

    /** The text that stands behind a label of an answer. */
    std::string Value(const std::string &what, uint32_t id, const std::string &label, size_t width) const
    {
        const CliAnswer answer = Shown(what, id);
        EXPECT_EQ(answer.code, 0) << answer;
        const std::string key = label + std::string(width - label.size(), ' ') + ": ";
        const size_t at = answer.text.find(key);
        EXPECT_NE(at, std::string::npos) << answer;
        const size_t from = at + key.size();
        return answer.text.substr(from, answer.text.find('\n', from) - from);
    }
};

TEST_F(CliQueryTest, NodeWithoutDisks)
{
    EXPECT_EQ(Ask("show slowdisk"), (CliAnswer{false, 0, SlowTable(""), "show"}));
    EXPECT_EQ(Ask("show summary"), (CliAnswer{false, 0, SummaryTable(""), "show"}));
    for (const char *what : {"disk_info", "iostat_info", "smart_info", "drm_info"}) {
        EXPECT_EQ(Shown(what, 0), (CliAnswer{false, kCliNoDisk, "null", ""})) << what;
        EXPECT_EQ(Shown(what, 63), (CliAnswer{false, kCliNoDisk, "null", ""})) << what;
        EXPECT_EQ(Shown(what, 64), (CliAnswer{false, kCliNoDisk, "null", "show"})) << what;
    }
    EXPECT_THAT(CliLogLines("CLI_DB_ID_NOT_EXIST 0x40036910."), SizeIs(8));
    EXPECT_THAT(CliLogLines("disk_id is not correct 0x40036904."), SizeIs(4));
}

TEST_F(CliQueryTest, IdentifiersThatAreRefused)
{
    (void)AddSata("SN-0");
    for (const char *what : {"disk_info", "iostat_info", "smart_info", "drm_info"}) {
        const std::string request = std::string("show ") + what;
        for (const char *keys :
             {"", " disk_id", " disk_id=", " disk_id=00", " disk_id=007", " disk_id=-1", " disk_id=+1", " disk_id=1a",
              " disk_id=0x1", " disk_id=10000000", " disk_id=1.0", " DISK_ID=0", " disk_id=a disk_id=0", " diskid=0"}) {
            EXPECT_EQ(Ask(request + keys), (CliAnswer{false, kCliFormat, "null", "show"})) << request << keys;
        }
        EXPECT_EQ(Ask(request + " disk_id=9999999"), (CliAnswer{false, kCliNoDisk, "null", "show"}));
    }
    EXPECT_FALSE(CliLogLines("disk_id format is not correct 0x40036904.").empty());
}

TEST_F(CliQueryTest, OnlyTheFirstOfTwoIdentifiersCounts)
{
    (void)AddSata("SN-0");

    EXPECT_EQ(Ask("show disk_info disk_id=0 disk_id=63").code, 0);
    EXPECT_EQ(Ask("show disk_info disk_id=63 disk_id=0").code, kCliNoDisk);
    EXPECT_EQ(Ask("show disk_info disk_id=0 more=of everything").code, 0);
    EXPECT_EQ(Ask("show disk_info word disk_id=0").code, 0) << "a word without a value spoils nothing";
    EXPECT_EQ(Ask("show disk_info action=change disk_id=0").code, 0);
}

TEST_F(CliQueryTest, ActionsThatAreRefused)
{
    (void)AddSata("SN-0");
    for (const char *action : {"change", "help", "SHOW", "shown"}) {
        for (const char *what : {"disk_info", "iostat_info", "smart_info", "drm_info"}) {
            EXPECT_EQ(Ask(std::string(action) + " " + what + " disk_id=0"),
                      (CliAnswer{false, kCliFormat, "null", action}));
        }
        EXPECT_EQ(Ask(std::string(action) + " slowdisk"), (CliAnswer{false, kCliFormat, "null", action}));
        EXPECT_EQ(Ask(std::string(action) + " summary"), (CliAnswer{false, kCliFormat, "null", action}));
    }
    EXPECT_THAT(CliLogLines("only support 'show' command 0x40036904."), SizeIs(16));
    EXPECT_THAT(CliLogLines("CLI_COMMAND_FORMAT_ERROR not support change."), SizeIs(2));
    EXPECT_THAT(CliLogLines("CLI_COMMAND_FORMAT_ERROR 0x40036904."), SizeIs(6));
}

TEST_F(CliQueryTest, BaseInformationOfOneDisk)
{
    (void)AddSata("SN-0");
    const uint32_t id = AddNvme("SN-NVME");
    lib::DiskMgrObj &disk = Stored(id);
    disk.slotId = 21;
    disk.sectorSize = 4096;
    Fill(disk.pciAddr, sizeof(disk.pciAddr), "0000:82:00.0");
    Fill(disk.deviceName, sizeof(disk.deviceName), "nvme0");

    EXPECT_EQ(Shown("disk_info", id), (CliAnswer{false, 0,
                                                 "Diskid          : 1\n"
                                                 "DiskState       : Normal state\n"
                                                 "DiskCapacity    : 447.1GB\n"
                                                 "SectorSize      : 4096\n"
                                                 "Vendor          : VELMAR\n"
                                                 "Model           : VSSD-480\n"
                                                 "Firmware        : FW1\n"
                                                 "Sn              : SN-NVME\n"
                                                 "DeviceName      : nvme0\n"
                                                 "PciAddr         : 0000:82:00.0\n"
                                                 "IntfType        : NVME SSD\n"
                                                 "SlotId          : 21\n",
                                                 ""}));
    EXPECT_EQ(Value("disk_info", 0, "SlotId", 16), "NA");
    EXPECT_EQ(Value("disk_info", 0, "PciAddr", 16), "");
}

TEST_F(CliQueryTest, StatesAndTypes)
{
    const uint32_t id = AddSata("SN-0");
    const char *states[] = {"Normal state", "Fault state", "Off-line state", "Prefail state", "Slow state", "", ""};
    for (uint32_t state = 0; state < 7; state++) {
        Stored(id).diskState = state == 6 ? kFail : state;
        EXPECT_EQ(Value("disk_info", id, "DiskState", 16), states[state]);
        EXPECT_EQ(Value("drm_info", id, "DiskState", 18), states[state]);
    }
    const char *types[] = {"NVME SSD", "SAS SSD",    "SATA SSD",         "SAS HDD",
                           "SATA HDD", "NL SAS HDD", "UNKONW DISK TYPE", "UNKONW DISK TYPE"};
    for (uint32_t type = 0; type < 8; type++) {
        Stored(id).diskType = type == 7 ? kFail : type;
        EXPECT_EQ(Value("disk_info", id, "IntfType", 16), types[type]);
    }
}

TEST_F(CliQueryTest, Capacities)
{
    const uint32_t id = AddSata("SN-0");
    const struct {
        uint64_t bytes;
        const char *text;
    } cases[] = {{0, "0.0B"},
                 {1, "1.0B"},
                 {1023, "1023.0B"},
                 {1024, "1.0KB"},
                 {1536, "1.5KB"},
                 {1075, "1.0KB"}, // 1.0498
                 {1076, "1.1KB"}, // 1.0508
                 {1048575, "1024.0KB"},
                 {1048576, "1.0MB"},
                 {1073741824, "1.0GB"},
                 {480103981056, "447.1GB"},
                 {1099511627775, "1024.0GB"},
                 {1099511627776, "1.0TB"},
                 {4000787030016, "3.6TB"},
                 {1125899906842624, "1024.0TB"},
                 {11258999068426240, "10240.0TB"},
                 {UINT64_MAX, "16777216.0TB"}};
    for (const auto &item : cases) {
        Stored(id).diskCapacity = item.bytes;
        EXPECT_EQ(Value("disk_info", id, "DiskCapacity", 16), item.text) << item.bytes;
    }
}

TEST_F(CliQueryTest, FieldsWithoutATerminatorAndWithMarkup)
{
    const uint32_t id = AddSata("SN-0");
    lib::DiskMgrObj &disk = Stored(id);
    Fill(disk.vendor, sizeof(disk.vendor), "0123456789ABC");
    Fill(disk.model, sizeof(disk.model), std::string(60, 'm'));
    Fill(disk.firmware, sizeof(disk.firmware), std::string(60, 'f'));
    Fill(disk.deviceName, sizeof(disk.deviceName), std::string(60, 'd'));
    Fill(disk.pciAddr, sizeof(disk.pciAddr), std::string(300, 'p'));

    EXPECT_EQ(Value("disk_info", id, "Vendor", 16), "0123456789");
    EXPECT_EQ(Value("disk_info", id, "Model", 16), std::string(44, 'm'));
    EXPECT_EQ(Value("disk_info", id, "Firmware", 16), std::string(10, 'f'));
    EXPECT_EQ(Value("disk_info", id, "DeviceName", 16), std::string(20, 'd'));
    EXPECT_EQ(Value("disk_info", id, "PciAddr", 16), std::string(256, 'p'));

    Fill(disk.model, sizeof(disk.model), "a<b&c>d");
    EXPECT_EQ(Value("disk_info", id, "Model", 16), "a&lt;b&amp;c&gt;d");
}

TEST_F(CliQueryTest, ExpansionHasTwentyBytes)
{
    const uint32_t id = AddSata("SN-0");
    const auto documentWith = [&](const std::string &model) {
        Fill(Stored(id).model, sizeof(Stored(id).model), model);
        return CliDocument(AskRaw(CliRequest("show disk_info disk_id=" + std::to_string(id), "show")));
    };
    const auto endsWith = [](const std::string &text, const std::string &end) {
        return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
    };

    // Three bytes more for each of them; line feed and terminator take the last two.
    EXPECT_TRUE(endsWith(documentWith("<<<<<<"), "</print_data></response>\n"));
    EXPECT_TRUE(endsWith(documentWith("<<<<<<<"), "</print_data></respons"));
    EXPECT_TRUE(endsWith(documentWith("<<<<<<<<"), "</print_data></resp"));
    const std::string cut = documentWith(std::string(44, '<'));
    EXPECT_EQ(cut.find("</print_data>"), std::string::npos);
    EXPECT_EQ(cut.rfind("<response><error_code>0</error_code><print_data>Diskid          : 0\n", 0), 0u);
}

TEST_F(CliQueryTest, StatisticsComeWithTheSecondFrame)
{
    const uint32_t id = AddSata("SN-0");
    lib::DiskIoInfoFrame frame{};
    frame.ticks = 1000;
    frame.tickRate = 1000;
    EXPECT_EQ(Shown("iostat_info", id), (CliAnswer{false, kCliExecFailed, "null", ""}));
    EXPECT_EQ(lib::DiskIoStatInfoSet(Sn("SN-0"), &frame), 0u);
    EXPECT_EQ(Shown("iostat_info", id), (CliAnswer{false, kCliExecFailed, "null", ""}));
    EXPECT_THAT(CliLogLines("CLI_COMMAND_EXEC_FAILED 0x4003690c."), SizeIs(2));

    frame.ticks = 2000;
    frame.bytesRead = 1048576;
    frame.bytesWritten = 10240;
    frame.numReadOps = 100;
    frame.numWriteOps = 10;
    frame.readLatencyTicks = 100;
    frame.writeLatencyTicks = 100;
    frame.queueDepth = 32;
    frame.ioBusyNum = 2;
    EXPECT_EQ(lib::DiskIoStatInfoSet(Sn("SN-0"), &frame), 0u);

    const CliAnswer answer = Shown("iostat_info", id);
    EXPECT_EQ(answer.code, 0);
    EXPECT_EQ(answer.action, "");
    EXPECT_EQ(answer.text.rfind("ReadIops      : 100\n"
                                "WriteIops     : 10\n"
                                "ReadIoBand    : 1024kb/s\n"
                                "WriteIoBand   : 10kb/s\n"
                                "ReadIoDelay   : 1000us\n"
                                "WriteIoDelay  : 10000us\n"
                                "QueueDepth    : 32\n"
                                "ioBusyNum     : 2\n",
                                0),
              0u)
        << answer;
}

TEST_F(CliQueryTest, StatisticsOfTheWidestValues)
{
    const uint32_t id = AddSata("SN-0");
    lib::DataMgrObj &object = Object(id);
    object.ioStat[0] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 12, 5};
    object.ioStatCount = 1;
    EXPECT_EQ(Shown("iostat_info", id).text, "ReadIops      : 1\n"
                                             "WriteIops     : 2\n"
                                             "ReadIoBand    : 3kb/s\n"
                                             "WriteIoBand   : 4kb/s\n"
                                             "ReadIoDelay   : 5us\n"
                                             "WriteIoDelay  : 6us\n"
                                             "QueueDepth    : 7\n"
                                             "ioBusyNum     : 8\n"
                                             "svctm         : 9\n"
                                             "utilization   : 12.5%\n");

    object.ioStat[1] = {UINT64_MAX, UINT64_MAX, UINT64_MAX, UINT64_MAX, UINT64_MAX, UINT64_MAX,
                        UINT32_MAX, UINT32_MAX, UINT64_MAX, 100,        0};
    object.ioStatCount = 2;
    const std::string most = "18446744073709551615";
    EXPECT_EQ(Shown("iostat_info", id),
              (CliAnswer{false, 0,
                         Line("ReadIops", 14, most) + Line("WriteIops", 14, most) +
                             Line("ReadIoBand", 14, most + "kb/s") + Line("WriteIoBand", 14, most + "kb/s") +
                             Line("ReadIoDelay", 14, most + "us") + Line("WriteIoDelay", 14, most + "us") +
                             Line("QueueDepth", 14, "4294967295") + Line("ioBusyNum", 14, "4294967295") +
                             Line("svctm", 14, most) + Line("utilization", 14, "100.0%"),
                         ""}));
}

TEST_F(CliQueryTest, HealthRecords)
{
    const uint32_t id = AddSata("SN-0");
    EXPECT_EQ(Shown("smart_info", id), (CliAnswer{false, 0,
                                                  "PowerOnlineTime   : 0h\n"
                                                  "Degree of wear    : 0.0%\n",
                                                  ""}))
        << "no record has come yet";

    lib::DiskHealthInfo health{};
    health.powerOnHours = 17270;
    health.wearInt = 2;
    health.wearFrac = 5;
    ASSERT_EQ(lib::DiskHealthInfoSet(Sn("SN-0"), &health), 0u);
    EXPECT_EQ(Shown("smart_info", id).text, "PowerOnlineTime   : 17270h\nDegree of wear    : 2.5%\n");

    health.powerOnHours = UINT64_MAX;
    health.wearInt = 655;
    health.wearFrac = 35;
    ASSERT_EQ(lib::DiskHealthInfoSet(Sn("SN-0"), &health), 0u);
    EXPECT_EQ(Shown("smart_info", id).text, "PowerOnlineTime   : 18446744073709551615h\nDegree of wear    : 655.35%\n");
}

TEST_F(CliQueryTest, AnalysisOfASolidStateDisk)
{
    const uint32_t id = AddSas("SN-0");
    const std::string tail = "DiskState         : Normal state\nSuggestions       : No action required\n";
    EXPECT_EQ(Shown("drm_info", id), (CliAnswer{false, 0,
                                                "DiskHealthScore   : No predictions yet\n"
                                                "DiskLife          : No predictions yet\n" +
                                                    tail,
                                                ""}));

    const struct {
        uint32_t hours;
        const char *months;
    } cases[] = {{0, "&lt;1"},  {719, "&lt;1"}, {720, "1"},        {1439, "1"},   {1440, "2"},
                 {43200, "60"}, {43919, "60"},  {43920, "&gt;60"}, {43800, "60"}, {0xFFFFFFFE, "&gt;60"}};
    for (const auto &item : cases) {
        lib::DiskDrmInfo info{37, item.hours};
        ASSERT_EQ(lib::DiskDrmInfoSet(id, Sn("SN-0"), &info), 0u);
        EXPECT_EQ(Shown("drm_info", id).text,
                  "DiskHealthScore   : 37\nDiskLife          : " + std::string(item.months) + "\n" + tail)
            << item.hours;
    }
}

TEST_F(CliQueryTest, AnalysisOfEachTypeOfDisk)
{
    const uint32_t id = AddHdd("SN-0");
    lib::DiskDrmInfo info{100, 7200};
    ASSERT_EQ(lib::DiskDrmInfoSet(id, Sn("SN-0"), &info), 0u);
    const std::string tail = "DiskState         : Normal state\nSuggestions       : No action required\n";
    for (uint32_t type = 0; type < 7; type++) {
        Stored(id).diskType = type;
        const bool hard = type >= 3 && type <= 5;
        EXPECT_EQ(Shown("drm_info", id).text, (hard ? "DiskHealthScore   : N/A\nDiskLife          : N/A\n"
                                                    : "DiskHealthScore   : 100\nDiskLife          : 10\n") +
                                                  tail)
            << type;
    }
    Object(id).drmInfo.diskLife = kFail;
    Stored(id).diskType = 5;
    EXPECT_EQ(Shown("drm_info", id).text, "DiskHealthScore   : N/A\nDiskLife          : N/A\n" + tail);
}

TEST_F(CliQueryTest, Suggestions)
{
    const uint32_t id = AddSata("SN-0");
    const char *texts[] = {"No action required", "Migrate data and replace the hard disk", "Replace the hard disk", ""};
    for (uint32_t strategy = 0; strategy < 4; strategy++) {
        ASSERT_EQ(lib::DiskStrategySet(id, Sn("SN-0"), strategy), 0u);
        EXPECT_EQ(Value("drm_info", id, "Suggestions", 18), texts[strategy]);
    }

    ASSERT_EQ(lib::DiskStateSet(id, Sn("SN-0"), 1), 0u);
    EXPECT_EQ(Shown("drm_info", id).text, "DiskHealthScore   : No predictions yet\n"
                                          "DiskLife          : No predictions yet\n"
                                          "DiskState         : Fault state\n"
                                          "Suggestions       : Replace the hard disk\n");
    // The next state is better; the suggestion stays.
    ASSERT_EQ(lib::DiskStateSet(id, Sn("SN-0"), 0), 0u);
    EXPECT_EQ(Value("drm_info", id, "Suggestions", 18), "Replace the hard disk");
    EXPECT_EQ(Value("drm_info", id, "DiskState", 18), "Normal state");
}

TEST_F(CliQueryTest, TablesOfDisksInEveryState)
{
    const uint32_t ids[] = {AddSata("SN-SATA"), AddSas("SN-SAS"), AddNvme("SN-NVME"), AddHdd("SN-HDD")};
    Stored(ids[0]).diskState = 4;
    Stored(ids[1]).diskState = 3;
    Stored(ids[2]).diskState = 4;
    Stored(ids[2]).slotId = 21;
    Stored(ids[3]).diskState = 1;

    EXPECT_EQ(Ask("show slowdisk"),
              (CliAnswer{false, 0, SlowTable(SlowRow("SN-SATA", "NA") + SlowRow("SN-NVME", "21")), "show"}));
    EXPECT_EQ(Ask("show summary"), (CliAnswer{false, 0,
                                              SummaryTable(SummaryRow(0, "SN-SATA") + SummaryRow(1, "SN-SAS") +
                                                           SummaryRow(2, "SN-NVME") + SummaryRow(3, "SN-HDD")),
                                              "show"}));
    EXPECT_FALSE(CliLogLines("get online disk num 4").empty());
    EXPECT_THAT(CliLogLines("show result: successfully"), SizeIs(1));
}

TEST_F(CliQueryTest, FurtherWordsOfATableAreIgnored)
{
    EXPECT_EQ(Ask("show summary disk_id=700 word"), (CliAnswer{false, 0, SummaryTable(""), "show"}));
}

TEST_F(CliQueryTest, SixtyFourDisks)
{
    std::string rows;
    std::string slow;
    for (uint32_t i = 0; i < 64; i++) {
        std::string sn = "SN-" + std::to_string(i);
        sn += std::string(39 - sn.size(), 'x');
        ASSERT_EQ(AddSata(sn), i);
        Stored(i).diskState = 4;
        Stored(i).slotId = i == 63 ? 4294967294U : i;
        rows += SummaryRow(i, sn);
        slow += SlowRow(sn, std::to_string(Stored(i).slotId));
    }

    EXPECT_EQ(Ask("show summary"), (CliAnswer{false, 0, SummaryTable(rows), "show"}));
    const CliAnswer answer = Ask("show slowdisk");
    EXPECT_EQ(answer.code, 0);
    EXPECT_EQ(answer.text.substr(0, answer.text.find("SN-63")),
              SlowTable(slow).substr(0, SlowTable(slow).find("SN-63")));
    EXPECT_EQ(Value("disk_info", 63, "Diskid", 16), "63");
}

TEST_F(CliQueryTest, SerialNumberOfTheWholeField)
{
    const uint32_t id = AddSata("SN-0");
    const std::string sn(40, 's');
    (void)sn.copy(Stored(id).sn, 40);
    Stored(id).diskState = 4;

    EXPECT_EQ(Ask("show slowdisk").text, SlowTable(SlowRow(sn, "NA")));
    EXPECT_EQ(Ask("show summary").text, SummaryTable(SummaryRow(id, sn)));
    EXPECT_EQ(Value("disk_info", id, "Sn", 16), sn);
}

TEST_F(CliQueryTest, WalkThatFailsHandsOutWhatItGathered)
{
    for (const char *sn : {"SN-0", "SN-1", "SN-2"}) {
        Stored(AddSata(sn)).diskState = 4;
    }
    lib::DataMgrObj *&second = lib::Global<lib::DataMgrObj *[128]>("g_diskDataMgr")[1];
    lib::DataMgrObj *const kept = second;
    second = nullptr;

    EXPECT_EQ(Ask("show slowdisk"), (CliAnswer{false, kCliExecFailed, SlowTable(SlowRow("SN-0", "NA")), "show"}));
    EXPECT_EQ(Ask("show summary").code, 0) << "the registry still has all of them";

    second = kept;
    EXPECT_THAT(CliLogLines("get diskInfo failed: 1"), SizeIs(1));
    EXPECT_THAT(CliLogLines("show result: failed"), SizeIs(1));
}

TEST_F(CliQueryTest, DataManagerThatIsSwitchedOff)
{
    Stored(AddSata("SN-0")).diskState = 4;
    lib::DataMgrDisable();

    EXPECT_EQ(Ask("show slowdisk"), (CliAnswer{false, 0, SlowTable(""), "show"}));
    EXPECT_EQ(Ask("show summary"), (CliAnswer{false, 0, SummaryTable(""), "show"}));
    EXPECT_EQ(Shown("disk_info", 0), (CliAnswer{false, kCliNoDisk, "null", ""}));

    lib::DataMgrEnable();
}

TEST_F(CliQueryTest, DataManagerThatIsDown)
{
    (void)AddSata("SN-0");
    ASSERT_EQ(lib::DataMgrDestroy(), 0u);

    EXPECT_EQ(Ask("show slowdisk"), (CliAnswer{false, kCliExecFailed, "null", "show"}));
    EXPECT_EQ(Ask("show summary"), (CliAnswer{false, kCliExecFailed, "null", "show"}));
    EXPECT_EQ(Shown("disk_info", 0), (CliAnswer{false, kCliExecFailed, "null", ""}));
    EXPECT_THAT(CliLogLines("get online disk failed ret:4294967295, num:0"), SizeIs(2));
}

TEST_F(CliQueryTest, DiskThatLeaves)
{
    (void)AddSata("SN-0");
    const uint32_t id = AddSata("SN-1");
    lib::DiskSnRef left[] = {Sn("SN-0")};
    ASSERT_EQ(lib::DiskSerialNumberRefresh(left, 1), 0u);

    EXPECT_EQ(Ask("show summary").text, SummaryTable(SummaryRow(0, "SN-0")));
    EXPECT_EQ(Shown("disk_info", id), (CliAnswer{false, kCliNoDisk, "null", ""}));
}

} // namespace
