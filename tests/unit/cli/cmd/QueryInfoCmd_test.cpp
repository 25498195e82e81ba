#include "cli/cmd/QueryInfoCmd.h"

#include "cmd_test_support.h"

using namespace CORVANE_CLI;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

std::string Lines(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines) {
        text += line + "\n";
    }
    return text;
}

} // namespace

class QueryInfoCmdTest : public CmdTest {
protected:
    static Answer Show(const std::string &name, const std::string &disk)
    {
        return Run<QueryInfoCmd>(name, "action=show disk_id=" + disk + " userName=root");
    }
    static std::string ErrorLine(const std::string &function, const std::string &message)
    {
        return Line("ERROR", "QueryInfoCmd", function, message);
    }
    /** One disk with every field set. */
    static void OneDisk(uint32_t diskId, uint32_t type = DISK_TYPE_SSD_NVME)
    {
        AddDisk(diskId, type);
        StartStore();
        DiskMgrObj &base = Base(diskId);
        base.slotId = 7;
        base.diskCapacity = 1099511627776;
        base.sectorSize = 4096;
        std::strcpy(base.vendor, "VELMAR");
        std::strcpy(base.model, "MODEL X");
        std::strcpy(base.firmware, "FW1");
        std::strcpy(base.deviceName, "nvme0n1");
        std::strcpy(base.pciAddr, "0000:3b:00.0");
    }
    static std::string DrmInfo(uint32_t diskId) { return Show("drm_info", std::to_string(diskId)).output; }

    QueryInfoCmd cmd_;
};

class ShowDiskBaseInfoTest : public QueryInfoCmdTest {};
class ShowDiskIoStatInfoTest : public QueryInfoCmdTest {};
class ShowDiskHealthInfoTest : public QueryInfoCmdTest {};
class ShowDiskDrmInfoTest : public QueryInfoCmdTest {};
class TransDiskCapacityUnitTest : public QueryInfoCmdTest {};

TEST_F(QueryInfoCmdTest, RefusesOtherActions)
{
    for (const char *action : {"change", "help", "SHOW", ""}) {
        const Answer answer =
            Run<QueryInfoCmd>("disk_info", std::string("action=") + action + " disk_id=0 userName=root");

        EXPECT_EQ(answer, (Answer{CLI_COMMAND_FORMAT_ERROR, "", action}));
    }
    const std::string line = ErrorLine("Exec", "only support 'show' command 0x40036904.");
    EXPECT_THAT(CliLog(), ElementsAre(line, line, line, line));
}

TEST_F(QueryInfoCmdTest, RefusesARequestWithoutADisk)
{
    const Answer answer = Run<QueryInfoCmd>("disk_info", "action=show disk_info userName=root");

    EXPECT_EQ(answer, (Answer{CLI_COMMAND_FORMAT_ERROR, "", "show"}));
    EXPECT_THAT(CliLog(), ElementsAre(ErrorLine("Exec", "disk_id format is not correct 0x40036904.")));
}

TEST_F(QueryInfoCmdTest, RefusesADiskThatIsNoNumber)
{
    const std::vector<std::string> texts = {"", "007", "00", "-1", "1a", "a", "10000000", "+1"};
    for (const std::string &text : texts) {
        EXPECT_EQ(Show("disk_info", text), (Answer{CLI_COMMAND_FORMAT_ERROR, "", "show"})) << text;
    }
    EXPECT_EQ(CliLog(),
              std::vector<std::string>(texts.size(), ErrorLine("Exec", "disk_id format is not correct 0x40036904.")));
}

TEST_F(QueryInfoCmdTest, KnowsDisksUpTo63)
{
    AddDisk(0);
    AddDisk(63);
    StartStore();

    EXPECT_EQ(Show("disk_info", "0").code, 0);
    EXPECT_EQ(Show("disk_info", "63").code, 0);
    EXPECT_THAT(CliLog(), IsEmpty());
    EXPECT_EQ(Show("disk_info", "64"), (Answer{CLI_DB_ID_NOT_EXIST, "", "show"}));
    EXPECT_EQ(Show("disk_info", "9999999"), (Answer{CLI_DB_ID_NOT_EXIST, "", "show"}));

    const std::string line = ErrorLine("Exec", "disk_id is not correct 0x40036904.");
    EXPECT_THAT(CliLog(), ElementsAre(line, line));
}

TEST_F(QueryInfoCmdTest, RefusesOtherNames)
{
    OneDisk(0);

    EXPECT_EQ(Show("disk_infos", "0"), (Answer{CLI_COMMAND_FORMAT_ERROR, "", "show"}));

    EXPECT_THAT(CliLog(), ElementsAre(ErrorLine("Exec", "queried info is not correct 0x40036904.")));
}

TEST_F(QueryInfoCmdTest, TellsOfADiskThatIsNotThere)
{
    OneDisk(3);

    for (const char *name : {"disk_info", "iostat_info", "smart_info", "drm_info"}) {
        EXPECT_EQ(Show(name, "63"), (Answer{CLI_DB_ID_NOT_EXIST, "", ""})) << name;
    }
    EXPECT_EQ(CliLog(), std::vector<std::string>(4, ErrorLine("Exec", "CLI_DB_ID_NOT_EXIST 0x40036910.")));
}

TEST_F(QueryInfoCmdTest, FailsWithAStoreThatIsNotStarted)
{
    for (const char *name : {"disk_info", "iostat_info", "smart_info", "drm_info"}) {
        EXPECT_EQ(Show(name, "0"), (Answer{CLI_COMMAND_EXEC_FAILED, "", ""})) << name;
    }
    EXPECT_EQ(CliLog(), std::vector<std::string>(4, ErrorLine("Exec", "CLI_COMMAND_EXEC_FAILED 0x4003690c.")));
}

TEST_F(QueryInfoCmdTest, FailsWithARecordThatCannotBeRead)
{
    OneDisk(0);
    Disk(0).ioStatCount = 1;
    const struct {
        const char *name;
        DISK_INFO_TYPE_E record;
    } rows[] = {{"disk_info", DISK_INFO_BASE},
                {"iostat_info", DISK_INFO_IO},
                {"smart_info", DISK_INFO_HEALTH},
                {"drm_info", DISK_INFO_DRM}};
    for (const auto &row : rows) {
        EXPECT_EQ(Show(row.name, "0").code, 0) << row.name;
        const DataMgrInfoGetFunc real = g_diskInfoGetFunc[row.record];

        FailGet<DATA_MGR_ERR_FAIL>(row.record);
        EXPECT_EQ(Show(row.name, "0"), (Answer{CLI_COMMAND_EXEC_FAILED, "", ""})) << row.name;
        FailGet<DATA_MGR_ERR_NO_OBJECT>(row.record);
        EXPECT_EQ(Show(row.name, "0"), (Answer{CLI_DB_ID_NOT_EXIST, "", ""})) << row.name;
        FailGet<2>(row.record);
        EXPECT_EQ(Show(row.name, "0"), (Answer{CLI_COMMAND_EXEC_FAILED, "", ""})) << row.name;

        g_diskInfoGetFunc[row.record] = real;
    }
}

TEST_F(QueryInfoCmdTest, FailsWithoutMemory)
{
    OneDisk(0);
    Disk(0).ioStatCount = 1;
    const struct {
        const char *name;
        const char *function;
        size_t size;
    } rows[] = {{"disk_info", "ShowDiskBaseInfo", sizeof(DiskMgrObj)},
                {"iostat_info", "ShowDiskIoStatInfo", sizeof(DiskIoStatInfo)},
                {"smart_info", "ShowDiskHealthInfo", sizeof(DiskHealthInfo)},
                {"drm_info", "ShowDiskDrmInfo", sizeof(DiskMgrObj)},
                {"drm_info", "DrmInfoHealthInfo", sizeof(DiskDrmInfo)}};
    for (const auto &row : rows) {
        WriteFile(LogPath(), "");
        RefuseMalloc(row.size);

        EXPECT_EQ(Show(row.name, "0"), (Answer{CLI_COMMAND_EXEC_FAILED, "", ""})) << row.function;

        const std::vector<std::string> log = CliLog();
        ASSERT_EQ(log.size(), 2u) << row.function;
        EXPECT_EQ(log[0], ErrorLine(row.function, "malloc failed 0x4003690c."));
        EXPECT_EQ(log[1], ErrorLine("Exec", "CLI_COMMAND_EXEC_FAILED 0x4003690c."));
    }
}

TEST_F(QueryInfoCmdTest, ForgetsTheRequestAfterAShow)
{
    OneDisk(0);

    EXPECT_EQ(Show("disk_info", "0").action, "");
    EXPECT_EQ(Show("disk_info", "5").action, "");
}

TEST_F(ShowDiskBaseInfoTest, PrintsTheRecord)
{
    OneDisk(5);

    const Answer answer = Show("disk_info", "5");

    EXPECT_EQ(answer.code, 0);
    EXPECT_EQ(answer.output,
              Lines({"Diskid          : 5", "DiskState       : Normal state", "DiskCapacity    : 1.0TB",
                     "SectorSize      : 4096", "Vendor          : VELMAR", "Model           : MODEL X",
                     "Firmware        : FW1", "Sn              : SERIAL-005", "DeviceName      : nvme0n1",
                     "PciAddr         : 0000:3b:00.0", "IntfType        : NVME SSD", "SlotId          : 7"}));
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(ShowDiskBaseInfoTest, PrintsAnEmptyRecord)
{
    AddDisk(0);
    StartStore();
    const std::string sn = SnOf(0);
    Base(0) = {};
    std::strcpy(Base(0).sn, sn.c_str());
    Base(0).slotId = 0xFFFFFFFF;

    EXPECT_EQ(
        Show("disk_info", "0").output,
        Lines({"Diskid          : 0", "DiskState       : Normal state", "DiskCapacity    : 0.0B", "SectorSize      : 0",
               "Vendor          : ", "Model           : ", "Firmware        : ", "Sn              : SERIAL-000",
               "DeviceName      : ", "PciAddr         : ", "IntfType        : NVME SSD", "SlotId          : NA"}));
}

TEST_F(ShowDiskBaseInfoTest, PrintsTextsThatFillTheirFields)
{
    OneDisk(0);
    DiskMgrObj &base = Base(0);
    std::memset(base.vendor, 'v', sizeof(base.vendor));
    std::memset(base.model, 'm', sizeof(base.model));
    std::memset(base.firmware, 'f', sizeof(base.firmware));
    std::memset(base.sn, 's', sizeof(base.sn));
    std::memset(base.deviceName, 'd', sizeof(base.deviceName));
    std::memset(base.pciAddr, 'p', sizeof(base.pciAddr));

    const std::string output = Show("disk_info", "0").output;

    EXPECT_NE(output.find("Vendor          : " + std::string(10, 'v') + "\n"), std::string::npos);
    EXPECT_NE(output.find("Model           : " + std::string(44, 'm') + "\n"), std::string::npos);
    EXPECT_NE(output.find("Firmware        : " + std::string(10, 'f') + "\n"), std::string::npos);
    EXPECT_NE(output.find("Sn              : " + std::string(40, 's') + "\n"), std::string::npos);
    EXPECT_NE(output.find("DeviceName      : " + std::string(20, 'd') + "\n"), std::string::npos);
    EXPECT_NE(output.find("PciAddr         : " + std::string(256, 'p') + "\n"), std::string::npos);
}

TEST_F(ShowDiskBaseInfoTest, NamesEachState)
{
    OneDisk(0);
    const std::pair<uint32_t, const char *> rows[] = {{0, "Normal state"},
                                                      {1, "Fault state"},
                                                      {2, "Off-line state"},
                                                      {3, "Prefail state"},
                                                      {4, "Slow state"},
                                                      {5, ""},
                                                      {6, ""},
                                                      {0xFFFFFFFF, ""}};
    for (const auto &[state, text] : rows) {
        Base(0).diskState = state;

        const std::string line = std::string("\nDiskState       : ") + text + "\n";
        EXPECT_NE(Show("disk_info", "0").output.find(line), std::string::npos) << state;
        const std::string drmLine = std::string("\nDiskState         : ") + text + "\n";
        EXPECT_NE(DrmInfo(0).find(drmLine), std::string::npos) << state;
    }
}

TEST_F(ShowDiskBaseInfoTest, NamesEachType)
{
    OneDisk(0);
    const std::pair<uint32_t, const char *> rows[] = {
        {0, "NVME SSD"}, {1, "SAS SSD"},    {2, "SATA SSD"},         {3, "SAS HDD"},
        {4, "SATA HDD"}, {5, "NL SAS HDD"}, {6, "UNKONW DISK TYPE"}, {0xFFFFFFFF, "UNKONW DISK TYPE"}};
    for (const auto &[type, text] : rows) {
        Base(0).diskType = type;

        const std::string line = std::string("\nIntfType        : ") + text + "\n";
        EXPECT_NE(Show("disk_info", "0").output.find(line), std::string::npos) << type;
    }
}

TEST_F(QueryInfoCmdTest, NamesWhatIsNoEnumerator)
{
    EXPECT_EQ(cmd_.GetDiskState(DISK_STATE_SLOW), "Slow state");
    EXPECT_EQ(cmd_.GetDiskState(DISK_STATE_KEEP), "");
    EXPECT_EQ(cmd_.GetDiskState(DISK_STATE_BUTT), "");
    EXPECT_EQ(cmd_.GetIntfType(DISK_TYPE_HDD_NL_SAS), "NL SAS HDD");
    EXPECT_EQ(cmd_.GetIntfType(DISK_TYPE_BUTT), "UNKONW DISK TYPE");
}

TEST_F(ShowDiskBaseInfoTest, PrintsSlots)
{
    OneDisk(0);
    const std::pair<uint32_t, const char *> rows[] = {{0, "0"}, {0xFFFFFFFE, "4294967294"}, {0xFFFFFFFF, "NA"}};
    for (const auto &[slot, text] : rows) {
        Base(0).slotId = slot;

        const std::string output = Show("disk_info", "0").output;
        const std::string line = std::string("\nSlotId          : ") + text + "\n";
        EXPECT_EQ(output.substr(output.size() - line.size()), line);
    }
}

TEST_F(TransDiskCapacityUnitTest, ChoosesTheUnit)
{
    constexpr unsigned long k = 1024;
    const std::pair<unsigned long, const char *> rows[] = {
        {0, "0.0B"},
        {1, "1.0B"},
        {1023, "1023.0B"},
        {1024, "1.0KB"},
        {1536, "1.5KB"},
        {k * k - 1, "1024.0KB"}, // rounded after the unit was chosen
        {k * k, "1.0MB"},
        {k * k * k - 1, "1024.0MB"},
        {k * k * k, "1.0GB"},
        {k * k * k * k - 1, "1024.0GB"},
        {k * k * k * k, "1.0TB"},
        {1099511627776, "1.0TB"},
        {3840755982336, "3.5TB"},
        {k * k * k * k * k, "1024.0TB"},
        {k * k * k * k * k * 2, "2048.0TB"},
        {0xFFFFFFFFFFFFFFFF, "16777216.0TB"},
        {1126, "1.1KB"}, // 1.0996
        {1075, "1.0KB"}, // 1.0498
        {1076, "1.1KB"}, // 1.0508
    };
    for (const auto &[bytes, text] : rows) {
        EXPECT_EQ(cmd_.TransDiskCapacityUnit(bytes), text) << bytes;
    }
}

TEST_F(ShowDiskIoStatInfoTest, PrintsTheNewestStatistics)
{
    OneDisk(2);
    Disk(2).ioStatCount = 2;
    Disk(2).ioStat[1] = {.readIops = 100,
                         .writeIops = 200,
                         .readIoBand = 300,
                         .writeIoBand = 400,
                         .readIoDelay = 500,
                         .writeIoDelay = 600,
                         .queueDepth = 32,
                         .ioBusyNum = 4,
                         .avgServeTime = 70,
                         .utilizationInt = 12,
                         .utilizationFrac = 5};

    const Answer answer = Show("iostat_info", "2");

    EXPECT_EQ(answer,
              (Answer{0,
                      Lines({"ReadIops      : 100", "WriteIops     : 200", "ReadIoBand    : 300kb/s",
                             "WriteIoBand   : 400kb/s", "ReadIoDelay   : 500us", "WriteIoDelay  : 600us",
                             "QueueDepth    : 32", "ioBusyNum     : 4", "svctm         : 70", "utilization   : 12.5%"}),
                      ""}));
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(ShowDiskIoStatInfoTest, PrintsTheGreatestNumbers)
{
    OneDisk(0);
    Disk(0).ioStatCount = 1;
    std::memset(&Disk(0).ioStat[0], 0xFF, sizeof(DiskIoStatInfo));
    Disk(0).ioStat[0].utilizationInt = 100;
    Disk(0).ioStat[0].utilizationFrac = 0;

    EXPECT_EQ(Show("iostat_info", "0").output,
              Lines({"ReadIops      : 18446744073709551615", "WriteIops     : 18446744073709551615",
                     "ReadIoBand    : 18446744073709551615kb/s", "WriteIoBand   : 18446744073709551615kb/s",
                     "ReadIoDelay   : 18446744073709551615us", "WriteIoDelay  : 18446744073709551615us",
                     "QueueDepth    : 4294967295", "ioBusyNum     : 4294967295", "svctm         : 18446744073709551615",
                     "utilization   : 100.0%"}));
}

TEST_F(ShowDiskIoStatInfoTest, FailsWithoutStatistics)
{
    OneDisk(0);

    EXPECT_EQ(Show("iostat_info", "0"), (Answer{CLI_COMMAND_EXEC_FAILED, "", ""}));

    EXPECT_THAT(CliLog(), ElementsAre(ErrorLine("Exec", "CLI_COMMAND_EXEC_FAILED 0x4003690c.")));
}

TEST_F(ShowDiskHealthInfoTest, PrintsAgeAndWear)
{
    OneDisk(0);
    Disk(0).healthInfo.powerOnHours = 12345;
    Disk(0).healthInfo.wearInt = 3;
    Disk(0).healthInfo.wearFrac = 7;

    EXPECT_EQ(Show("smart_info", "0"),
              (Answer{0, Lines({"PowerOnlineTime   : 12345h", "Degree of wear    : 3.7%"}), ""}));
}

TEST_F(ShowDiskHealthInfoTest, PrintsAnEmptyRecord)
{
    OneDisk(0);

    EXPECT_EQ(Show("smart_info", "0").output, Lines({"PowerOnlineTime   : 0h", "Degree of wear    : 0.0%"}));
}

TEST_F(ShowDiskDrmInfoTest, PrintsScoreLifeStateAndSuggestion)
{
    OneDisk(0);
    Disk(0).drmInfo = {.healthScore = 87, .diskLife = 720 * 36};

    EXPECT_EQ(Show("drm_info", "0"),
              (Answer{0,
                      Lines({"DiskHealthScore   : 87", "DiskLife          : 36", "DiskState         : Normal state",
                             "Suggestions       : No action required"}),
                      ""}));
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(ShowDiskDrmInfoTest, PrintsLifeInMonths)
{
    OneDisk(0);
    const std::pair<uint32_t, const char *> rows[] = {{0, "<1"},      {719, "<1"},        {720, "1"},    {1439, "1"},
                                                      {1440, "2"},    {43199, "59"},      {43200, "60"}, {43919, "60"},
                                                      {43920, ">60"}, {0xFFFFFFFE, ">60"}};
    for (const auto &[hours, months] : rows) {
        Disk(0).drmInfo = {.healthScore = 1, .diskLife = hours};

        EXPECT_EQ(DrmInfo(0), Lines({"DiskHealthScore   : 1", std::string("DiskLife          : ") + months,
                                     "DiskState         : Normal state", "Suggestions       : No action required"}))
            << hours;
    }
}

TEST_F(ShowDiskDrmInfoTest, PrintsWhatBelongsToTheType)
{
    OneDisk(0);
    for (uint32_t type = 0; type < 8; type++) {
        const bool isHdd = type >= 3 && type <= 5;
        Base(0).diskType = type;
        Disk(0).drmInfo = {.healthScore = 0, .diskLife = DISK_LIFE_UNKNOWN};
        const std::string none = isHdd ? "N/A" : "No predictions yet";

        EXPECT_EQ(DrmInfo(0), Lines({"DiskHealthScore   : " + none, "DiskLife          : " + none,
                                     "DiskState         : Normal state", "Suggestions       : No action required"}))
            << type;

        Disk(0).drmInfo = {.healthScore = 99, .diskLife = 7200};
        EXPECT_EQ(DrmInfo(0), Lines({"DiskHealthScore   : " + std::string(isHdd ? "N/A" : "99"),
                                     "DiskLife          : " + std::string(isHdd ? "N/A" : "10"),
                                     "DiskState         : Normal state", "Suggestions       : No action required"}))
            << type;
    }
}

TEST_F(ShowDiskDrmInfoTest, PrintsEachSuggestion)
{
    OneDisk(0);
    const std::pair<uint32_t, const char *> rows[] = {
        {DISK_STRATEGY_NONE, "No action required"},
        {DISK_STRATEGY_MIGRATE_REPLACE, "Migrate data and replace the hard disk"},
        {DISK_STRATEGY_REPLACE, "Replace the hard disk"},
        {DISK_STRATEGY_NO_TEXT, ""}};
    for (const auto &[strategy, text] : rows) {
        Disk(0).strategy = strategy;

        const Answer answer = Show("drm_info", "0");

        EXPECT_EQ(answer.code, 0);
        const std::string line = std::string("\nSuggestions       : ") + text + "\n";
        EXPECT_EQ(answer.output.substr(answer.output.size() - line.size()), line);
    }
}

TEST_F(ShowDiskDrmInfoTest, TakesAMissingSuggestionForAnEmptyOne)
{
    OneDisk(0);
    FailGet<DATA_MGR_ERR_FAIL>(DISK_INFO_STRATEGY_STR);

    const Answer answer = Show("drm_info", "0");

    EXPECT_EQ(answer.code, 0);
    EXPECT_NE(answer.output.find("\nSuggestions       : \n"), std::string::npos);
}

TEST_F(ShowDiskDrmInfoTest, NeedsTheBaseRecord)
{
    OneDisk(0);
    FailGet<DATA_MGR_ERR_FAIL>(DISK_INFO_BASE);

    EXPECT_EQ(Show("drm_info", "0"), (Answer{CLI_COMMAND_EXEC_FAILED, "", ""}));
}

TEST_F(QueryInfoCmdTest, ReadsADisabledStore)
{
    OneDisk(0);
    g_dataMgrEnable = false;

    EXPECT_EQ(Show("smart_info", "0").code, 0);
}
