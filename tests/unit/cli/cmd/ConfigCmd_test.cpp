#include "cli/cmd/ConfigCmd.h"

#include "cmd_test_support.h"
#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_routine.h"

using namespace CORVANE_CLI;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::vector<std::string> kTurnOn = {"DrmSetSwitch 1",
                                          "DataMgrEnable",
                                          "StartQueryAgentScheduleTask",
                                          "StartDmmSync2DmaScheduleTask",
                                          "StartConfigBackUpTask",
                                          "DrmDprSetSwitchConfig 0 1",
                                          "DrmSetClassicalSlowDiskDetectV2Switch 1"};
const std::vector<std::string> kTurnOff = {"DrmSetSwitch 0",
                                           "StopConfigBackUpTask",
                                           "CancelDmmSync2DmaScheduleTask",
                                           "CancelAllQueryAgentScheduleTask",
                                           "DataMgrDisable",
                                           "DrmDprSetSwitchConfig 0 0",
                                           "DrmSetClassicalSlowDiskDetectV2Switch 0"};

} // namespace

class ConfigCmdTest : public CmdTest {
protected:
    static Answer Request(const std::string &param) { return Run<ConfigCmd>("config", param); }
    static Answer Change(const std::string &pairs) { return Request("action=change " + pairs + " userName=root"); }
    static std::string SourceLine(const std::string &level, const std::string &function, const std::string &message)
    {
        return Line(level, "ConfigCmd", function, message);
    }
};

class ShowConfigTest : public ConfigCmdTest {};
class ChangeConfigTest : public ConfigCmdTest {};
class CliSetFeatureSwitchConfigTest : public ConfigCmdTest {};

TEST_F(ConfigCmdTest, RefusesOtherActions)
{
    LoadSettings();

    EXPECT_EQ(Request("action=help config userName=root"), (Answer{CLI_COMMAND_FORMAT_ERROR, "", "help"}));
    EXPECT_EQ(Request("userName=root"), (Answer{CLI_COMMAND_FORMAT_ERROR, "", ""}));

    const std::string line = SourceLine("ERROR", "Exec", "CLI_COMMAND_FORMAT_ERROR 0x40036904.");
    EXPECT_THAT(CliLog(), ElementsAre(line, line));
}

TEST_F(ShowConfigTest, PrintsBothSwitches)
{
    LoadSettings();

    EXPECT_EQ(Request("action=show config userName=root"), (Answer{0,
                                                                   "feature_switch        : on\n"
                                                                   "takeover_disk_switch  : off\n",
                                                                   "show"}));
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(ShowConfigTest, PrintsNothingWhenOneCannotBeRead)
{
    LoadSettings(R"({"feature_switch": 0})");

    EXPECT_EQ(Request("action=show config userName=root"), (Answer{-1, "", "show"}));

    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "ShowConfig", "get takeover_disk_switch config failed")));
}

TEST_F(ShowConfigTest, TakesNoOtherValueForASwitch)
{
    LoadSettings(R"({"feature_switch": 2, "takeover_disk_switch": 1})");

    EXPECT_EQ(Request("action=show config userName=root"), (Answer{-1, "", "show"}));

    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "ShowConfig", "get feature_switch config failed")));
}

TEST_F(ConfigCmdTest, NamesValues)
{
    ConfigCmd command;

    EXPECT_EQ(command.GetSwitchConfigStrVal(0), "off");
    EXPECT_EQ(command.GetSwitchConfigStrVal(1), "on");
    EXPECT_EQ(command.GetSwitchConfigStrVal(2), "internal error");
    EXPECT_EQ(command.GetSwitchConfigStrVal(0xFFFFFFFF), "internal error");
}

TEST_F(ChangeConfigTest, NeedsAKnownKey)
{
    LoadSettings();

    EXPECT_EQ(Change("switch=on"), (Answer{CLI_COMMAND_FORMAT_ERROR, "", "change"}));
    EXPECT_EQ(Request("action=change config userName=root"), (Answer{CLI_COMMAND_FORMAT_ERROR, "", "change"}));

    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
}

TEST_F(ChangeConfigTest, RefusesOtherValues)
{
    LoadSettings();
    for (const char *value : {"maybe", "", "1", "ON", "off "}) {
        WriteFile(LogPath(), "");
        ConfigCmd command;
        uint32_t number = 2;

        EXPECT_EQ(command.GetSwitchConfigIntVal("feature_switch", value, number), -1);

        EXPECT_EQ(number, 2u);
        EXPECT_THAT(CliLog(),
                    ElementsAre(SourceLine("ERROR", "GetSwitchConfigIntVal",
                                           std::string("get config feature_switch val ") + value + " failed")));
    }
    EXPECT_EQ(Change("feature_switch=maybe"),
              (Answer{CLI_COMMAND_EXEC_FAILED, "change config feature_switch failed\n", "change"}));
    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_EQ(Saved(nullptr, "feature_switch"), 1u);
}

TEST_F(ChangeConfigTest, DoesNothingForTheValueThatHolds)
{
    LoadSettings();

    EXPECT_EQ(Change("feature_switch=on"), (Answer{0, "change config feature_switch successfully\n", "change"}));
    EXPECT_EQ(Change("takeover_disk_switch=off"),
              (Answer{0, "change config takeover_disk_switch successfully\n", "change"}));

    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_THAT(CliLog(),
                ElementsAre(SourceLine("INFO", "ChangeSwitchConfig", "config feature_switch:1 is same"),
                            SourceLine("INFO", "ChangeSwitchConfig", "config takeover_disk_switch:0 is same")));
}

TEST_F(ChangeConfigTest, TurnsTheFeaturesOff)
{
    LoadSettings();

    EXPECT_EQ(Change("feature_switch=off"), (Answer{0, "change config feature_switch successfully\n", "change"}));

    EXPECT_EQ(CmdDoubles::calls, kTurnOff);
    EXPECT_EQ(Held(nullptr, "feature_switch"), 0u);
    EXPECT_EQ(Saved(nullptr, "feature_switch"), 0u);
    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("INFO", "CliSetFeatureSwitchConfig",
                                                 "change config feature_switch:0 successfully (on:1, off:0)")));
}

TEST_F(ChangeConfigTest, TurnsTheFeaturesOn)
{
    LoadSettings(R"({"feature_switch": 0, "takeover_disk_switch": 0})");

    EXPECT_EQ(Change("feature_switch=on"), (Answer{0, "change config feature_switch successfully\n", "change"}));

    EXPECT_EQ(CmdDoubles::calls, kTurnOn);
    EXPECT_EQ(Held(nullptr, "feature_switch"), 1u);
    EXPECT_EQ(Saved(nullptr, "feature_switch"), 1u);
    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("INFO", "CliSetFeatureSwitchConfig",
                                                 "change config feature_switch:1 successfully (on:1, off:0)")));
}

TEST_F(ChangeConfigTest, TurnsTheTakeOverOnAndOff)
{
    LoadSettings();
    const std::string output = "change config takeover_disk_switch successfully\n";

    EXPECT_EQ(Change("takeover_disk_switch=on"), (Answer{0, output, "change"}));
    EXPECT_EQ(Saved(nullptr, "takeover_disk_switch"), 1u);
    EXPECT_EQ(Change("takeover_disk_switch=off"), (Answer{0, output, "change"}));
    EXPECT_EQ(Saved(nullptr, "takeover_disk_switch"), 0u);

    EXPECT_THAT(CmdDoubles::calls, ElementsAre("TakeOverDiskSwitch 1", "TakeOverDiskSwitch 0"));
    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("INFO", "CliSetTakeOverSwitchConfig",
                                                 "change config takeover_disk_switch:1 successfully (on:1, off:0)"),
                                      SourceLine("INFO", "CliSetTakeOverSwitchConfig",
                                                 "change config takeover_disk_switch:0 successfully (on:1, off:0)")));
}

TEST_F(ChangeConfigTest, TakesTheFeatureSwitchOfTwo)
{
    LoadSettings();

    EXPECT_EQ(Change("takeover_disk_switch=on feature_switch=off").output,
              "change config feature_switch successfully\n");

    EXPECT_EQ(CmdDoubles::calls, kTurnOff);
    EXPECT_EQ(Held(nullptr, "takeover_disk_switch"), 0u);
}

TEST_F(ChangeConfigTest, TakesTheFirstOfTwoValues)
{
    LoadSettings();

    EXPECT_EQ(Change("takeover_disk_switch=on takeover_disk_switch=off").code, 0);

    EXPECT_EQ(Held(nullptr, "takeover_disk_switch"), 1u);
}

TEST_F(ChangeConfigTest, FailsWithoutAnOldValue)
{
    LoadSettings(R"({"takeover_disk_switch": 0})");

    EXPECT_EQ(Change("feature_switch=on"),
              (Answer{CLI_COMMAND_EXEC_FAILED, "change config feature_switch failed\n", "change"}));

    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "ChangeSwitchConfig", "get config feature_switch:2 failed")));
}

TEST_F(ChangeConfigTest, FailsWhenTheSettingIsNotSaved)
{
    LoadSettings();
    RefuseSaves();

    EXPECT_EQ(Change("feature_switch=off"),
              (Answer{CLI_COMMAND_EXEC_FAILED, "change config feature_switch failed\n", "change"}));

    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_THAT(CliLog(),
                ElementsAre(SourceLine("ERROR", "ChangeSwitchConfig", "change config feature_switch:0 failed")));
}

TEST_F(ChangeConfigTest, WritesTheOldValueBackWhenAFeatureRefuses)
{
    const std::pair<const char *, const char *> rows[] = {
        {"DrmDprSetSwitchConfig", "change dpr config 0 failed, ret:9."},
        {"DrmSetClassicalSlowDiskDetectV2Switch", "change SlowDiskDetect config 0 failed, ret:9."}};
    LoadSettings();
    for (const auto &[call, message] : rows) {
        CmdDoubles::Reset();
        CmdDoubles::results[call] = 9;
        WriteFile(LogPath(), "");

        EXPECT_EQ(Change("feature_switch=off"),
                  (Answer{CLI_COMMAND_EXEC_FAILED, "change config feature_switch failed\n", "change"}))
            << call;

        EXPECT_EQ(CmdDoubles::calls, kTurnOff) << "both features are told";
        EXPECT_EQ(Held(nullptr, "feature_switch"), 1u);
        EXPECT_EQ(Saved(nullptr, "feature_switch"), 1u);
        ASSERT_EQ(CliLog().size(), 1u);
        EXPECT_NE(CliLog()[0].find(std::string("]") + message), std::string::npos) << CliLog()[0];
    }
}

TEST_F(ChangeConfigTest, TellsWhenTheOldValueCannotBeWrittenBack)
{
    LoadSettings();
    CmdDoubles::results["DrmSetClassicalSlowDiskDetectV2Switch"] = 9;
    CmdDoubles::settingsAreNotSaved = true;

    EXPECT_EQ(Change("feature_switch=off"),
              (Answer{CLI_COMMAND_EXEC_FAILED, "change config feature_switch failed\n", "change"}));

    EXPECT_EQ(Saved(nullptr, "feature_switch"), 0xFFFFFFFFu) << "the save ended half-way";
    EXPECT_THAT(CliLog(),
                ElementsAre(SourceLine("ERROR", "CliSetSlowDiskDetectSwitchConfig",
                                       "change SlowDiskDetect config 0 failed, ret:9."),
                            SourceLine("ERROR", "ChangeSwitchConfig", "change config feature_switch:1 failed")));
}

TEST_F(ChangeConfigTest, HandsOutTheHandlersResult)
{
    LoadSettings();
    ConfigCmd command;
    std::vector<std::string> handled;

    const int result =
        command.ChangeSwitchConfig("takeover_disk_switch", "on", [&handled](const std::string &key, uint32_t value) {
            handled.push_back(key + std::to_string(value));
            return 17;
        });

    EXPECT_EQ(result, 17);
    EXPECT_THAT(handled, ElementsAre("takeover_disk_switch1"));
    EXPECT_EQ(Held(nullptr, "takeover_disk_switch"), 0u);
}

TEST_F(CliSetFeatureSwitchConfigTest, FailsWithoutMemory)
{
    ConfigCmd command;
    RefuseMalloc(sizeof(DrmDprSwitchConfig));

    EXPECT_EQ(command.CliSetFeatureSwitchConfig("feature_switch", 0), -1);
    EXPECT_EQ(command.CliSetDprSmartSwitchConfig(1), -1);

    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(CliSetFeatureSwitchConfigTest, TakesOtherValuesForOff)
{
    ConfigCmd command;

    EXPECT_EQ(command.CliSetFeatureSwitchConfig("feature_switch", 2), 0);

    EXPECT_THAT(CmdDoubles::calls,
                ElementsAre("DrmSetSwitch 1", "StopConfigBackUpTask", "CancelDmmSync2DmaScheduleTask",
                            "CancelAllQueryAgentScheduleTask", "DataMgrDisable", "DrmDprSetSwitchConfig 0 1",
                            "DrmSetClassicalSlowDiskDetectV2Switch 1"));
}

TEST_F(CliSetFeatureSwitchConfigTest, GoesOnWhenATaskCannotBeStarted)
{
    CmdDoubles::results["StartDmmSync2DmaScheduleTask"] = 0xFFFFFFFF;
    CmdDoubles::results["StartConfigBackUpTask"] = 1;
    ConfigCmd command;

    EXPECT_EQ(command.CliSetFeatureSwitchConfig("feature_switch", 1), 0);

    EXPECT_EQ(CmdDoubles::calls, kTurnOn);
}
