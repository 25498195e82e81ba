#include "cli/cmd/DprSmartCmd.h"

#include "cmd_test_support.h"
#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_routine.h"

using namespace CORVANE_CLI;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DprSmartCmdTest : public CmdTest {
protected:
    static Answer Request(const std::string &param) { return Run<DprSmartCmd>("dpr_smart", param); }
    static Answer Change(const std::string &type, const std::string &cycle)
    {
        return Request("action=change disk_type=" + type + " task_cycle=" + cycle + " userName=root");
    }
    static Answer Failed(int code) { return {code, "change config failed\n", "change"}; }
    static inline const Answer kSucceeded = {0, "change config successfully\n", ""};
    static std::string SourceLine(const std::string &level, const std::string &function, const std::string &message)
    {
        return Line(level, "DprSmartCmd", function, message);
    }
};

class ShowDprSmartParamTest : public DprSmartCmdTest {};
class ChangeDprSmartParamTest : public DprSmartCmdTest {};

TEST_F(DprSmartCmdTest, RefusesOtherActionsAndMissingKeys)
{
    LoadSettings();
    const std::pair<const char *, const char *> rows[] = {{"action=help dpr_smart userName=root", "help"},
                                                          {"userName=root", ""},
                                                          {"action=change userName=root", "change"},
                                                          {"action=change disk_type=0 userName=root", "change"},
                                                          {"action=change task_cycle=5 userName=root", "change"}};
    for (const auto &[param, action] : rows) {
        EXPECT_EQ(Request(param), (Answer{CLI_COMMAND_FORMAT_ERROR, "", action})) << param;
    }
    EXPECT_EQ(CliLog(),
              std::vector<std::string>(5, SourceLine("ERROR", "Exec", "CLI_COMMAND_FORMAT_ERROR 0x40036904.")));
}

TEST_F(ShowDprSmartParamTest, PrintsEachClass)
{
    LoadSettings();

    EXPECT_EQ(Request("action=show dpr_smart userName=root"), (Answer{0,
                                                                      "sata_ssd_disk : task_cycle=20\n"
                                                                      "sas_ssd_disk  : task_cycle=21\n"
                                                                      "nvme_disk     : task_cycle=22\n"
                                                                      "sas_hdd       : task_cycle=2592000\n",
                                                                      ""}));
}

TEST_F(ShowDprSmartParamTest, PrintsNothingWhenOneCannotBeRead)
{
    LoadSettings(R"({"sata_ssd_disk": {"task_cycle": 20}})");

    EXPECT_EQ(Request("action=show dpr_smart userName=root"), (Answer{-1, "", "show"}));

    EXPECT_THAT(CliLog(),
                ElementsAre(SourceLine("ERROR", "ShowDprSmartParam", "get sas_ssd_disk config task_cycle:0 failed")));
}

TEST_F(ChangeDprSmartParamTest, RefusesOtherClasses)
{
    LoadSettings();
    for (const char *type : {"", "x", "01", "-1"}) {
        EXPECT_EQ(Change(type, "100"), Failed(CLI_DPR_SMART_CONFIG_PARAM_INVALID)) << type;
    }
    EXPECT_THAT(CliLog(), IsEmpty());

    EXPECT_EQ(Change("4", "100"), Failed(CLI_DPR_SMART_CONFIG_PARAM_INVALID));

    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "GetValFromParam",
                                                 "disk_type:CLI_DPR_SMART_CONFIG_PARAM_INVALID 0x40036911.")));
    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
}

TEST_F(ChangeDprSmartParamTest, RefusesOtherCycles)
{
    LoadSettings();
    for (const char *cycle : {"", "x", "01", "10000000"}) {
        EXPECT_EQ(Change("0", cycle), Failed(CLI_DPR_SMART_CONFIG_PARAM_INVALID)) << cycle;
    }
    EXPECT_THAT(CliLog(), IsEmpty());
    for (const char *cycle : {"0", "2592001", "9999999"}) {
        EXPECT_EQ(Change("0", cycle), Failed(CLI_DPR_SMART_CONFIG_PARAM_INVALID)) << cycle;
    }
    EXPECT_EQ(CliLog(),
              std::vector<std::string>(3, SourceLine("ERROR", "GetValFromParam",
                                                     "task_cycle:CLI_DPR_SMART_CONFIG_PARAM_INVALID 0x40036911.")));
    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_EQ(Held("sata_ssd_disk", "task_cycle"), 20u);
}

TEST_F(ChangeDprSmartParamTest, SavesAndTellsTheFeature)
{
    LoadSettings();
    const struct {
        const char *type;
        const char *node;
        const char *cycle;
    } rows[] = {{"0", "sata_ssd_disk", "1"},
                {"1", "sas_ssd_disk", "2592000"},
                {"2", "nvme_disk", "60"},
                {"3", "sas_hdd", "3600"},
                {"3", "sas_hdd", "3600"}};
    for (const auto &row : rows) {
        CmdDoubles::Reset();

        EXPECT_EQ(Change(row.type, row.cycle), kSucceeded) << row.node;

        EXPECT_THAT(CmdDoubles::calls,
                    ElementsAre(std::string("DrmDprSetCycleConfig 0 ") + row.type + " " + row.cycle));
        EXPECT_EQ(Held(row.node, "task_cycle"), static_cast<uint32_t>(std::stoi(row.cycle)));
        EXPECT_EQ(Saved(row.node, "task_cycle"), static_cast<uint32_t>(std::stoi(row.cycle)));
    }
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(ChangeDprSmartParamTest, CallsAFailedSaveASuccess)
{
    LoadSettings();
    RefuseSaves();

    EXPECT_EQ(Change("2", "60"), kSucceeded);

    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "ChangeDprSmartParam",
                                                 "change config nvme_disk task_cycle:60 failed")));
}

TEST_F(ChangeDprSmartParamTest, CallsMissingMemoryASuccess)
{
    LoadSettings();
    RefuseMalloc(sizeof(DrmDprCycleConfig));

    EXPECT_EQ(Change("2", "60"), kSucceeded);

    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_EQ(Saved("nvme_disk", "task_cycle"), 60u);
}

TEST_F(ChangeDprSmartParamTest, KeepsTheSettingWhenTheFeatureRefuses)
{
    LoadSettings();
    CmdDoubles::results["DrmDprSetCycleConfig"] = 0xFFFFFFFF;

    EXPECT_EQ(Change("2", "60"), Failed(CLI_COMMAND_EXEC_FAILED));

    EXPECT_EQ(Saved("nvme_disk", "task_cycle"), 60u);
    EXPECT_THAT(CliLog(),
                ElementsAre(SourceLine("ERROR", "ChangeDprSmartParam", "set min slow cycle failed, ret:-1.")));
}
