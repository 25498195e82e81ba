#include "cli/cmd/DiskLifePredictionCmd.h"

#include "cmd_test_support.h"

using namespace CORVANE_CLI;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DiskLifePredictionCmdTest : public CmdTest {
protected:
    static Answer Request(const std::string &param) { return Run<DiskLifePredictionCmd>("disklife_prediction", param); }
    static Answer Change(const std::string &cycle)
    {
        return Request("action=change task_cycle=" + cycle + " userName=root");
    }
    static inline const Answer kRefused = {CLI_DISKLIFE_PRE_PARAM_INVALID, "", "change"};
    static uint32_t Cycle() { return Held("disklife_prediction", "task_cycle"); }
    static std::string SourceLine(const std::string &level, const std::string &function, const std::string &message)
    {
        return Line(level, "DiskLifePredictionCmd", function, message);
    }
};

TEST_F(DiskLifePredictionCmdTest, RefusesOtherActionsAndMissingKeys)
{
    LoadSettings();
    const std::pair<const char *, const char *> rows[] = {{"action=help disklife_prediction userName=root", "help"},
                                                          {"userName=root", ""},
                                                          {"action=change userName=root", "change"}};
    for (const auto &[param, action] : rows) {
        EXPECT_EQ(Request(param), (Answer{CLI_COMMAND_FORMAT_ERROR, "", action})) << param;
    }
    EXPECT_EQ(CliLog(),
              std::vector<std::string>(3, SourceLine("ERROR", "Exec", "CLI_COMMAND_FORMAT_ERROR 0x40036904.")));
}

TEST_F(DiskLifePredictionCmdTest, ShowsTheCycle)
{
    LoadSettings();

    EXPECT_EQ(Request("action=show disklife_prediction userName=root"), (Answer{0, "task_cycle: 86400\n", ""}));
}

TEST_F(DiskLifePredictionCmdTest, ShowsNothingWithoutACycle)
{
    LoadSettings("{}");

    EXPECT_EQ(Request("action=show disklife_prediction userName=root"), (Answer{-1, "", "show"}));

    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "ShowDiskLifePredictionParam",
                                                 "get config disklife_prediction task_cycle:0 failed")));
}

TEST_F(DiskLifePredictionCmdTest, RefusesWhatIsNoNumber)
{
    LoadSettings();
    for (const char *cycle : {"", "x", "060", "10000000", "-60"}) {
        EXPECT_EQ(Change(cycle), kRefused) << cycle;
    }
    EXPECT_THAT(CliLog(), IsEmpty());
    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
}

TEST_F(DiskLifePredictionCmdTest, RefusesOtherCycles)
{
    LoadSettings();
    for (const char *cycle : {"0", "59", "7776001", "9999999"}) {
        EXPECT_EQ(Change(cycle), kRefused) << cycle;
    }
    EXPECT_EQ(CliLog(),
              std::vector<std::string>(4, SourceLine("ERROR", "SetDiskLifePredictionParam",
                                                     "task_cycle:CLI_DISKLIFE_PRE_PARAM_INVALID 0x40036912.")));
    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_EQ(Cycle(), 86400u);
}

TEST_F(DiskLifePredictionCmdTest, TellsTheFeatureAndSaves)
{
    LoadSettings();
    for (const char *cycle : {"60", "7776000"}) {
        CmdDoubles::Reset();

        EXPECT_EQ(Change(cycle), (Answer{0, "change config disklife_prediction successfully.\n", ""}));

        EXPECT_THAT(CmdDoubles::calls, ElementsAre(std::string("SetDiskLifeMonitorSchedulerCycle ") + cycle));
        EXPECT_EQ(Cycle(), static_cast<uint32_t>(std::stoi(cycle)));
        EXPECT_EQ(Saved("disklife_prediction", "task_cycle"), static_cast<uint32_t>(std::stoi(cycle)));
    }
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(DiskLifePredictionCmdTest, AppendsToTheOutput)
{
    LoadSettings();
    DiskLifePredictionCmd command;
    std::string output = "before ";

    EXPECT_EQ(command.Exec("action=change task_cycle=60", output), 0);

    EXPECT_EQ(output, "before change config disklife_prediction successfully.\n");
}

TEST_F(DiskLifePredictionCmdTest, PrintsNothingForTheValueThatHolds)
{
    LoadSettings();

    EXPECT_EQ(Change("86400"), (Answer{0, "", ""}));

    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("INFO", "SetDiskLifePredictionParam",
                                                 "config disklife_prediction task_cycle:86400 is same")));
}

TEST_F(DiskLifePredictionCmdTest, TakesTheValueThatHoldsEvenOutOfRange)
{
    LoadSettings(R"({"disklife_prediction": {"task_cycle": 5}})");

    EXPECT_EQ(Change("5"), (Answer{0, "", ""}));
    EXPECT_EQ(Change("6"), kRefused);
}

TEST_F(DiskLifePredictionCmdTest, FailsWithoutAnOldValue)
{
    LoadSettings("{}");

    EXPECT_EQ(Change("60"), (Answer{-1, "", "change"}));

    EXPECT_THAT(CmdDoubles::calls, IsEmpty());
    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "SetDiskLifePredictionParam",
                                                 "get config disklife_prediction task_cycle:0 failed")));
}

TEST_F(DiskLifePredictionCmdTest, TellsTheFeatureTheOldCycleWhenTheSettingIsNotSaved)
{
    LoadSettings();
    RefuseSaves();

    EXPECT_EQ(Change("60"), (Answer{-1, "", "change"}));

    EXPECT_THAT(CmdDoubles::calls,
                ElementsAre("SetDiskLifeMonitorSchedulerCycle 60", "SetDiskLifeMonitorSchedulerCycle 86400"));
    EXPECT_THAT(CliLog(), ElementsAre(SourceLine("ERROR", "SetDiskLifePredictionParam",
                                                 "change config disklife_prediction task_cycle:60 failed")));
}
