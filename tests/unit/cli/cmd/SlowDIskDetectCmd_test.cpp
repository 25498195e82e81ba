#include "cli/cmd/SlowDIskDetectCmd.h"

#include "cmd_test_support.h"

using namespace CORVANE_CLI;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SlowDiskDetectCmdTest : public CmdTest {
protected:
    static constexpr const char *kThreshold = "min_threshold_value";
    static constexpr const char *kCycle = "min_slow_cycle";

    SlowDiskDetectCmdTest()
    {
        for (uint32_t type = 0; type < SLOW_DISK_ZONE_NUM; type++) {
            saved_[type] = *DrmGetSlowDiskDetectV2Config(type);
        }
    }
    ~SlowDiskDetectCmdTest() override
    {
        for (uint32_t type = 0; type < SLOW_DISK_ZONE_NUM; type++) {
            *DrmGetSlowDiskDetectV2Config(type) = saved_[type];
        }
    }

    static Answer Request(const std::string &param) { return Run<SlowDiskDetectCmd>("slowdisk_detect_config", param); }
    static Answer Change(const std::string &pairs) { return Request("action=change " + pairs + " userName=root"); }
    static Answer Failed(int code, const std::string &key)
    {
        return {code, "change config " + key + " failed\n", "change"};
    }
    static Answer Succeeded(const std::string &key) { return {0, "change config " + key + " successfully\n", ""}; }
    static std::string SourceLine(const std::string &level, const std::string &function, const std::string &message)
    {
        return Line(level, "SlowDIskDetectCmd", function, message);
    }

private:
    ClassicalSlowDiskDetectV2Config saved_[SLOW_DISK_ZONE_NUM];
};

class ShowSlowDiskDetectParamTest : public SlowDiskDetectCmdTest {};
class ChangeSlowDiskDetectParamTest : public SlowDiskDetectCmdTest {};

TEST_F(SlowDiskDetectCmdTest, RefusesOtherActionsAndMissingKeys)
{
    LoadSettings();
    const std::pair<const char *, const char *> rows[] = {
        {"action=help slowdisk_detect_config userName=root", "help"},
        {"userName=root", ""},
        {"action=change userName=root", "change"},
        {"action=change disk_type=0 userName=root", "change"},
        {"action=change min_threshold_value=5 userName=root", "change"},
        {"action=change min_slow_cycle=50 min_threshold_value=5 userName=root", "change"}};
    for (const auto &[param, action] : rows) {
        EXPECT_EQ(Request(param), (Answer{CLI_COMMAND_FORMAT_ERROR, "", action})) << param;
    }
    EXPECT_EQ(CliLog(),
              std::vector<std::string>(6, SourceLine("ERROR", "Exec", "CLI_COMMAND_FORMAT_ERROR 0x40036904.")));
    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
}

TEST_F(ShowSlowDiskDetectParamTest, PrintsEachClass)
{
    LoadSettings();

    EXPECT_EQ(Request("action=show slowdisk_detect_config userName=root"),
              (Answer{0,
                      "sata_ssd_disk : min_threshold_value=1      min_slow_cycle=50   \n"
                      "sas_ssd_disk  : min_threshold_value=2      min_slow_cycle=51   \n"
                      "nvme_disk     : min_threshold_value=3      min_slow_cycle=52   \n"
                      "sas_hdd       : min_threshold_value=100    min_slow_cycle=100  \n",
                      ""}));
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(ShowSlowDiskDetectParamTest, PrintsNothingWhenOneCannotBeRead)
{
    LoadSettings(R"({"sata_ssd_disk": {"min_threshold_value": 4, "min_slow_cycle": 50},
                     "sas_ssd_disk": {"min_threshold_value": 5}})");

    EXPECT_EQ(Request("action=show userName=root"), (Answer{-1, "", "show"}));

    EXPECT_THAT(CliLog(),
                ElementsAre(SourceLine("ERROR", "ShowSlowDiskDetectParam",
                                       "get sas_ssd_disk config min_threshold_value:5 min_slow_cycle:0 failed")));
}

TEST_F(ChangeSlowDiskDetectParamTest, RefusesOtherClasses)
{
    LoadSettings();
    for (const char *type : {"", "a", "00", "-1", "10000000"}) {
        EXPECT_EQ(Change(std::string("disk_type=") + type + " min_threshold_value=5"),
                  Failed(CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID, kThreshold))
            << type;
    }
    EXPECT_THAT(CliLog(), IsEmpty());
    for (const char *type : {"4", "9999999"}) {
        EXPECT_EQ(Change(std::string("disk_type=") + type + " min_slow_cycle=20"),
                  Failed(CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID, kCycle))
            << type;
    }
    const std::string line =
        SourceLine("ERROR", "GetDiskTypeFromParam", "disk_type:CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID 0x4003690e.");
    EXPECT_THAT(CliLog(), ElementsAre(line, line));
    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
}

TEST_F(ChangeSlowDiskDetectParamTest, RefusesWhatIsNoNumber)
{
    LoadSettings();
    for (const char *value : {"", "x", "07", "10000000", "5.0"}) {
        EXPECT_EQ(Change(std::string("disk_type=0 min_threshold_value=") + value),
                  Failed(CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID, kThreshold))
            << value;
    }
    EXPECT_THAT(CliLog(), IsEmpty());
    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
}

TEST_F(ChangeSlowDiskDetectParamTest, TakesThresholdsWithinTheRangeOfTheClass)
{
    LoadSettings();
    const struct {
        const char *type;
        const char *node;
        const char *value;
        const char *call; /**< empty: refused */
    } rows[] = {{"0", "sata_ssd_disk", "0", ""},
                {"0", "sata_ssd_disk", "10", "0 10 50"},
                {"0", "sata_ssd_disk", "11", ""},
                {"0", "sata_ssd_disk", "1", "0 1 50"},
                {"0", "sata_ssd_disk", "500", ""},
                {"1", "sas_ssd_disk", "10", "1 10 51"},
                {"1", "sas_ssd_disk", "11", ""},
                {"2", "nvme_disk", "10", "2 10 52"},
                {"2", "nvme_disk", "11", ""},
                {"3", "sas_hdd", "1", "3 1 100"},
                {"3", "sas_hdd", "500", "3 244 100"},
                {"3", "sas_hdd", "501", ""},
                {"3", "sas_hdd", "0", ""}};
    for (const auto &row : rows) {
        CmdDoubles::Reset();
        WriteFile(LogPath(), "");
        const uint32_t former = Held(row.node, kThreshold);

        const Answer answer = Change(std::string("disk_type=") + row.type + " min_threshold_value=" + row.value);

        if (*row.call == '\0') {
            EXPECT_EQ(answer, Failed(CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID, kThreshold)) << row.value;
            EXPECT_THAT(CmdDoubles::calls, IsEmpty());
            EXPECT_EQ(Held(row.node, kThreshold), former);
            EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "SetMinThresholdValue",
                                                         "min_threshold_value:CLI_SLOWDISK_DETECT_CONFIG_FORMAT_"
                                                         "INVALID 0x4003690e.")));
            continue;
        }
        EXPECT_EQ(answer, Succeeded(kThreshold)) << row.value;
        EXPECT_THAT(CmdDoubles::calls, ElementsAre(std::string("DrmConfigClassicalSlowDiskDetectV2 ") + row.call));
        EXPECT_EQ(Saved(row.node, kThreshold), static_cast<uint32_t>(std::stoi(row.value)));
        EXPECT_THAT(CliLog(), IsEmpty());
    }
    EXPECT_EQ(DrmGetSlowDiskDetectV2Config(3)->minThresholdValue, 500 % 256);
}

TEST_F(ChangeSlowDiskDetectParamTest, FailsForAThresholdWhoseByteIsZero)
{
    LoadSettings();

    EXPECT_EQ(Change("disk_type=3 min_threshold_value=256"), Failed(CLI_COMMAND_EXEC_FAILED, kThreshold));

    EXPECT_THAT(CmdDoubles::calls, ElementsAre("DrmConfigClassicalSlowDiskDetectV2 3 0 100"));
    EXPECT_EQ(Held("sas_hdd", kThreshold), 100u);
    EXPECT_EQ(Saved("sas_hdd", kThreshold), 100u);
    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "SetMinThresholdValue",
                                                 "set sas_hdd min threshold value failed, ret:-1.")));
}

TEST_F(ChangeSlowDiskDetectParamTest, TakesCyclesFrom10To100)
{
    LoadSettings();
    for (const char *value : {"10", "100"}) {
        CmdDoubles::Reset();

        EXPECT_EQ(Change(std::string("disk_type=1 min_slow_cycle=") + value), Succeeded(kCycle));

        EXPECT_THAT(CmdDoubles::calls, ElementsAre(std::string("DrmConfigClassicalSlowDiskDetectV2 1 2 ") + value));
        EXPECT_EQ(Saved("sas_ssd_disk", kCycle), static_cast<uint32_t>(std::stoi(value)));
        EXPECT_EQ(DrmGetSlowDiskDetectV2Config(1)->minSlowCycle, std::stoi(value));
    }
    CmdDoubles::Reset();
    EXPECT_THAT(CliLog(), IsEmpty());
    for (const char *value : {"9", "101", "0", "266"}) {
        EXPECT_EQ(Change(std::string("disk_type=1 min_slow_cycle=") + value),
                  Failed(CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID, kCycle));
    }
    EXPECT_EQ(Saved("sas_ssd_disk", kCycle), 100u);
    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_EQ(CliLog(), std::vector<std::string>(
                            4, SourceLine("ERROR", "SetMinSlowCycle",
                                          "min_slow_cycle:CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID 0x4003690e.")));
}

TEST_F(ChangeSlowDiskDetectParamTest, TakesTheCycleOfTwo)
{
    LoadSettings();

    EXPECT_EQ(Change("disk_type=0 min_threshold_value=7 min_slow_cycle=20"), Succeeded(kCycle));

    EXPECT_EQ(Held("sata_ssd_disk", kThreshold), 1u);
    EXPECT_EQ(Held("sata_ssd_disk", kCycle), 20u);
}

TEST_F(ChangeSlowDiskDetectParamTest, DoesNothingForTheValueThatHolds)
{
    LoadSettings();

    EXPECT_EQ(Change("disk_type=3 min_threshold_value=100"), Succeeded(kThreshold));

    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_THAT(CliLog(),
                ElementsAre(SourceLine("INFO", "ChangeSlowDiskDetectParam", "config min_threshold_value:100 is same")));
}

TEST_F(ChangeSlowDiskDetectParamTest, FailsWithoutAnOldValue)
{
    LoadSettings(R"({"nvme_disk": {"min_slow_cycle": 50}, "sas_hdd": {"min_threshold_value": 5}})");

    EXPECT_EQ(Change("disk_type=2 min_threshold_value=5"), Failed(CLI_COMMAND_EXEC_FAILED, kThreshold));
    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "ChangeSlowDiskDetectParam",
                                                 "get config nvme_disk min_threshold_value:0 failed")));
    WriteFile(LogPath(), "");
    EXPECT_EQ(Change("disk_type=2 min_slow_cycle=20"), Failed(CLI_COMMAND_EXEC_FAILED, kCycle));
    EXPECT_EQ(Change("disk_type=3 min_threshold_value=6"), Failed(CLI_COMMAND_EXEC_FAILED, kThreshold));
    EXPECT_THAT(
        CliLog(),
        ElementsAre(SourceLine("ERROR", "InitSlowDiskDetectConfigValue", "get config min_threshold_value:0 failed"),
                    SourceLine("ERROR", "InitSlowDiskDetectConfigValue", "get config min_slow_cycle:0 failed")));
    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
}

TEST_F(ChangeSlowDiskDetectParamTest, FailsWithoutMemory)
{
    LoadSettings();
    RefuseMalloc(sizeof(ClassicalSlowDiskDetectV2Config));

    EXPECT_EQ(Change("disk_type=0 min_threshold_value=5"), Failed(CLI_COMMAND_EXEC_FAILED, kThreshold));

    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_EQ(Held("sata_ssd_disk", kThreshold), 1u);
}

TEST_F(ChangeSlowDiskDetectParamTest, LeavesTheSettingWhenTheFeatureRefuses)
{
    LoadSettings();
    CmdDoubles::results["DrmConfigClassicalSlowDiskDetectV2"] = 5;

    EXPECT_EQ(Change("disk_type=0 min_threshold_value=5"), Failed(CLI_COMMAND_EXEC_FAILED, kThreshold));
    EXPECT_EQ(Change("disk_type=0 min_slow_cycle=60"), Failed(CLI_COMMAND_EXEC_FAILED, kCycle));

    EXPECT_EQ(Saved("sata_ssd_disk", kThreshold), 1u);
    EXPECT_EQ(Saved("sata_ssd_disk", kCycle), 50u);
    EXPECT_THAT(
        CliLog(),
        ElementsAre(SourceLine("ERROR", "SetMinThresholdValue", "set sata_ssd_disk min threshold value failed, ret:5."),
                    SourceLine("ERROR", "SetMinSlowCycle", "set sata_ssd_disk min slow cycle failed, ret:5.")));
}

TEST_F(ChangeSlowDiskDetectParamTest, UndoesTheFeaturesChangeWhenTheSettingIsNotSaved)
{
    LoadSettings();
    RefuseSaves();

    EXPECT_EQ(Change("disk_type=0 min_threshold_value=5"), Failed(CLI_COMMAND_EXEC_FAILED, kThreshold));

    EXPECT_THAT(CmdDoubles::calls,
                ElementsAre("DrmConfigClassicalSlowDiskDetectV2 0 5 50", "DrmConfigClassicalSlowDiskDetectV2 0 1 50"));
    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "ChangeSlowDiskDetectParam",
                                                 "change config min_threshold_value:5 failed")));
}

TEST_F(ChangeSlowDiskDetectParamTest, HandsTheFeatureTheLowByteOfTheOtherSetting)
{
    LoadSettings(R"({"sas_hdd": {"min_threshold_value": 300, "min_slow_cycle": 50}})");

    EXPECT_EQ(Change("disk_type=3 min_slow_cycle=60"), Succeeded(kCycle));

    EXPECT_THAT(CmdDoubles::calls, ElementsAre("DrmConfigClassicalSlowDiskDetectV2 3 44 60"));
}
