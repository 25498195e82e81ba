#include "ma/drm/framework/debug/drm_compact_debug.h"

#include <cstring>
#include <string>
#include <vector>

#include "ma/drm/framework/drm_base.h"
#include "support/fake_host.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

/** Words of the commands that ran, in order. */
std::vector<std::string> g_ran;
int g_lastArgc = 0;
std::string g_lastArg;

uint32_t Works(int argc, char **argv)
{
    g_ran.emplace_back(argv[1]);
    g_lastArgc = argc;
    g_lastArg = argv[argc - 1];
    return 0;
}

uint32_t Fails(int, char **argv)
{
    g_ran.emplace_back(argv[1]);
    return 1;
}

DrmDiagCmd g_one[] = {{"first", Works, "first help\n"}, {"second", Fails, "second help\n"}};
DrmDiagCmd g_two[] = {{"third", Works, "third help\n"}, {"first", Fails, "other first help\n"}};
DrmDiagCmd g_three[] = {{"fourth", Works, "fourth help\n"}};
DrmDiagCmd g_four[] = {{"fifth", Works, "fifth help\n"}};
DrmDiagCmd g_odd[] = {
    {nullptr, Works, nullptr}, {"odd", nullptr, "no handler\n"}, {"odd", Fails, nullptr}, {"odd", Works, "hidden\n"}};

uint32_t RegistersMore(int, char **argv)
{
    g_ran.emplace_back(argv[1]);
    EXPECT_EQ(DrmDebugRegDiagCmdGroup(argv[0], g_one, 2), DRM_OK);
    return 0;
}

uint32_t TakesAllAway(int, char **argv)
{
    g_ran.emplace_back(argv[1]);
    DrmDebugUnRegDiagCmdGroup(argv[0], g_one);
    DrmDebugUnRegDiagCmdGroup(argv[0], g_two);
    return 1;
}

constexpr DrmDebugCmdInfo kWord = {"word", "what it is", DrmDebugExecDiagCmd, DrmDebugCmdHelp};

DrmDiagCmd g_registers[] = {{"more", RegistersMore, "more help\n"}};
DrmDiagCmd g_takes[] = {{"first", TakesAllAway, "gone\n"}};

} // namespace

class CompactDebugTest : public FakeHostTest {
protected:
    CompactDebugTest()
    {
        g_ran.clear();
        g_lastArgc = 0;
        g_lastArg.clear();
    }

    ~CompactDebugTest() override
    {
        for (const std::string &name : names_) {
            for (DrmDiagCmd *cmds : {g_one, g_two, g_three, g_four, g_odd, g_registers, g_takes}) {
                DrmDebugUnRegDiagCmdGroup(name.c_str(), cmds);
            }
            EXPECT_EQ(DrmDebugGetDiagCmdClusterByName(name.c_str()), nullptr) << name;
        }
    }

    /** Registers, and takes away at the end of the test. */
    uint32_t Add(const std::string &name, DrmDiagCmd *cmds, uint32_t count)
    {
        names_.push_back(name);
        return DrmDebugRegDiagCmdGroup(name.c_str(), cmds, count);
    }

    static int Exec(std::vector<std::string> words)
    {
        std::vector<char *> argv;
        for (std::string &word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        return DrmDebugExecDiagCmd(static_cast<int>(words.size()), argv.data());
    }

private:
    std::vector<std::string> names_;
};

class DrmDebugRegHostCmdTest : public CompactDebugTest {};
class DrmDebugRegDiagCmdGroupTest : public CompactDebugTest {};
class DrmDebugUnRegDiagCmdGroupTest : public CompactDebugTest {};
class DrmDebugExecDiagCmdTest : public CompactDebugTest {};
class DrmDebugCmdHelpTest : public CompactDebugTest {};
class DrmDebugClusterByNameTest : public CompactDebugTest {};

TEST_F(DrmDebugRegHostCmdTest, HandsTheCommandToTheHost)
{
    EXPECT_EQ(DrmDebugRegHostCmd(kWord), DRM_OK);

    ASSERT_EQ(Commands().size(), 1u);
    EXPECT_STREQ(Commands()[0].name, "word");
    EXPECT_STREQ(Commands()[0].description, "what it is");
    EXPECT_EQ(Commands()[0].exec, DrmDebugExecDiagCmd);
    EXPECT_EQ(Commands()[0].help, DrmDebugCmdHelp);
}

TEST_F(DrmDebugRegHostCmdTest, OnlyMinusOneIsARefusal)
{
    Knobs().regCmd = -1;
    EXPECT_EQ(DrmDebugRegHostCmd(kWord), DRM_ERR_FAIL);
    Knobs().regCmd = 1;
    EXPECT_EQ(DrmDebugRegHostCmd(kWord), DRM_OK);
}

TEST_F(DrmDebugRegDiagCmdGroupTest, RefusesNothing)
{
    EXPECT_EQ(DrmDebugRegDiagCmdGroup("", g_one, 2), DRM_ERR_FAIL);
    EXPECT_EQ(DrmDebugRegDiagCmdGroup(nullptr, g_one, 2), DRM_ERR_FAIL);
    EXPECT_EQ(DrmDebugRegDiagCmdGroup("alpha", nullptr, 2), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "DRM_DEBUG: Input is invalid, cmdOps is null.\n"), 3u);
    EXPECT_EQ(DrmDebugGetDiagCmdClusterByName("alpha"), nullptr);
}

TEST_F(DrmDebugRegDiagCmdGroupTest, RefusesTheFourthGroup)
{
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);
    EXPECT_EQ(Add("alpha", g_two, 2), DRM_OK);
    EXPECT_EQ(Add("alpha", g_three, 1), DRM_OK);
    EXPECT_EQ(Add("alpha", g_four, 1), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "DRM_DEBUG: register diagnose cmd array failed.\n"), 1u);
    DrmDebugUnRegDiagCmdGroup("alpha", g_two);
    EXPECT_EQ(Add("alpha", g_four, 1), DRM_OK);
    const DrmDiagCmdCluster *cluster = DrmDebugGetDiagCmdClusterByName("alpha");
    ASSERT_NE(cluster, nullptr);
    EXPECT_EQ(cluster->groups[0].cmds, g_one);
    EXPECT_EQ(cluster->groups[0].count, 2u);
    EXPECT_EQ(cluster->groups[1].cmds, g_four);
    EXPECT_EQ(cluster->groups[2].cmds, g_three);
}

TEST_F(DrmDebugRegDiagCmdGroupTest, RefusesTheThirtyThirdCluster)
{
    for (int number = 0; number < 32; number++) {
        EXPECT_EQ(Add("cluster" + std::to_string(number), g_one, 2), DRM_OK) << number;
    }

    EXPECT_EQ(DrmDebugRegDiagCmdGroup("late", g_one, 2), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "DRM_DEBUG: Cluster is full.\n"), 1u);
    EXPECT_EQ(Add("cluster31", g_two, 2), DRM_OK) << "a known cluster needs no row";
    DrmDebugUnRegDiagCmdGroup("cluster7", g_one);
    EXPECT_EQ(Add("late", g_one, 2), DRM_OK);
}

TEST_F(DrmDebugRegDiagCmdGroupTest, TwentyCharactersOfANameCount)
{
    const std::string twenty(20, 'x');
    EXPECT_EQ(Add(twenty, g_one, 2), DRM_OK);
    EXPECT_EQ(Add(twenty + "tail", g_two, 2), DRM_OK);

    const DrmDiagCmdCluster *cluster = DrmDebugGetDiagCmdClusterByName(twenty.c_str());
    ASSERT_NE(cluster, nullptr);
    EXPECT_EQ(std::string(cluster->name, sizeof(cluster->name)), twenty) << "no room for a terminator";
    EXPECT_EQ(cluster->groups[1].cmds, g_two);
    EXPECT_EQ(DrmDebugGetDiagCmdClusterByName(std::string(19, 'x').c_str()), nullptr);
    EXPECT_EQ(Exec({twenty, "third"}), 0);
    EXPECT_THAT(g_ran, ElementsAre("third"));
}

TEST_F(DrmDebugUnRegDiagCmdGroupTest, IgnoresNothing)
{
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);

    DrmDebugUnRegDiagCmdGroup("", g_one);
    DrmDebugUnRegDiagCmdGroup(nullptr, g_one);
    DrmDebugUnRegDiagCmdGroup("alpha", nullptr);

    EXPECT_THAT(HostLog(), IsEmpty());
    EXPECT_NE(DrmDebugGetDiagCmdClusterByName("alpha"), nullptr);
}

TEST_F(DrmDebugUnRegDiagCmdGroupTest, TellsOfAnUnknownClusterAndOfUnknownCommands)
{
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);

    DrmDebugUnRegDiagCmdGroup("beta", g_one);
    DrmDebugUnRegDiagCmdGroup("alpha", g_two);

    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "DRM_DEBUG: Not find cmd cluster, name(beta).\n"), 1u);
    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "DRM_DEBUG: unregister diagnose cmd array failed.\n"), 1u);
    EXPECT_NE(DrmDebugGetDiagCmdClusterByName("alpha"), nullptr);
}

TEST_F(DrmDebugUnRegDiagCmdGroupTest, ANameWithoutTerminatorIsBounded)
{
    char name[24];
    std::memset(name, 'y', sizeof(name));

    DrmDebugUnRegDiagCmdGroup(name, g_one);

    EXPECT_TRUE(
        HostLogged(CORVANE_LOG_ERROR, "DRM_DEBUG: Not find cmd cluster, name(" + std::string(20, 'y') + ").\n"));
}

TEST_F(DrmDebugUnRegDiagCmdGroupTest, ClearsEverySlotOfTheCommands)
{
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);
    EXPECT_EQ(Add("alpha", g_two, 2), DRM_OK);
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);

    DrmDebugUnRegDiagCmdGroup("alpha", g_one);

    const DrmDiagCmdCluster *cluster = DrmDebugGetDiagCmdClusterByName("alpha");
    ASSERT_NE(cluster, nullptr);
    EXPECT_EQ(cluster->groups[0].cmds, nullptr);
    EXPECT_EQ(cluster->groups[0].count, 0u);
    EXPECT_EQ(cluster->groups[1].cmds, g_two);
    EXPECT_EQ(cluster->groups[2].cmds, nullptr);
}

TEST_F(DrmDebugUnRegDiagCmdGroupTest, TheLastGroupTakesTheNameWithIt)
{
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);

    DrmDebugUnRegDiagCmdGroup("alpha", g_one);

    EXPECT_EQ(DrmDebugGetDiagCmdClusterByName("alpha"), nullptr);
    EXPECT_EQ(Add("alpha", g_two, 2), DRM_OK);
    EXPECT_EQ(Exec({"alpha", "third"}), 0);
    EXPECT_THAT(g_ran, ElementsAre("third"));
}

TEST_F(DrmDebugExecDiagCmdTest, WithoutACommandShowsTheUsage)
{
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);
    Knobs().printResult = 7;

    EXPECT_EQ(Exec({"alpha"}), 7);
    EXPECT_EQ(TakePrinted(), "USAGE:Please input valid command.\n");
    EXPECT_EQ(Exec({}), 7);
    EXPECT_EQ(TakePrinted(), "USAGE:Please input valid command.\n");

    EXPECT_THAT(g_ran, IsEmpty());
}

TEST_F(DrmDebugExecDiagCmdTest, AnUnknownClusterPrintsNothing)
{
    Knobs().printResult = 7;

    EXPECT_EQ(Exec({"beta", "first"}), 0);
    EXPECT_EQ(Exec({"", "first"}), 0) << "a free row has an empty name too";

    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "DRM_DEBUG: Not find cmd cluster, name(beta).\n"), 1u);
    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "DRM_DEBUG: Not find cmd cluster, name().\n"), 1u);
    EXPECT_EQ(TakePrinted(), "");
}

TEST_F(DrmDebugExecDiagCmdTest, RunsTheCommandWithAllWords)
{
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);
    Knobs().printResult = 7;

    EXPECT_EQ(Exec({"alpha", "first", "a", "b"}), 0);

    EXPECT_THAT(g_ran, ElementsAre("first"));
    EXPECT_EQ(g_lastArgc, 4);
    EXPECT_EQ(g_lastArg, "b");
    EXPECT_EQ(TakePrinted(), "");
}

TEST_F(DrmDebugExecDiagCmdTest, AFailedCommandPrintsItsHelpAndCountsAsFound)
{
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);
    Knobs().printResult = 7;

    EXPECT_EQ(Exec({"alpha", "second"}), 7);

    EXPECT_THAT(g_ran, ElementsAre("second"));
    EXPECT_EQ(TakePrinted(), "second help\n");
}

TEST_F(DrmDebugExecDiagCmdTest, ANameInTwoGroupsRunsTwice)
{
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);
    EXPECT_EQ(Add("alpha", g_two, 2), DRM_OK);

    (void)Exec({"alpha", "first"});

    EXPECT_THAT(g_ran, ElementsAre("first", "first"));
    EXPECT_EQ(TakePrinted(), "other first help\n");
}

TEST_F(DrmDebugExecDiagCmdTest, TellsIfThereIsNoSuchCommand)
{
    EXPECT_EQ(Add("alpha", g_one, 1), DRM_OK);
    EXPECT_EQ(Add("alpha", g_two, 2), DRM_OK);
    DrmDebugUnRegDiagCmdGroup("alpha", g_one);
    EXPECT_EQ(Add("alpha", g_one, 1), DRM_OK);
    Knobs().printResult = 7;

    for (const char *word : {"second", "firs", "first1", "FIRST", ""}) {
        EXPECT_EQ(Exec({"alpha", word}), 7) << word;
        EXPECT_EQ(TakePrinted(), "Can't Find The Diagnose Cmd\n") << word;
    }

    char cluster[] = "alpha";
    char *argv[] = {cluster, nullptr};
    EXPECT_EQ(DrmDebugExecDiagCmd(2, argv), 7);
    EXPECT_THAT(g_ran, IsEmpty());
}

TEST_F(DrmDebugExecDiagCmdTest, FindsCommandsBehindAFreeSlot)
{
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);
    EXPECT_EQ(Add("alpha", g_two, 2), DRM_OK);
    EXPECT_EQ(Add("alpha", g_three, 1), DRM_OK);
    DrmDebugUnRegDiagCmdGroup("alpha", g_one);
    DrmDebugUnRegDiagCmdGroup("alpha", g_two);

    EXPECT_EQ(Exec({"alpha", "fourth"}), 0);

    EXPECT_THAT(g_ran, ElementsAre("fourth"));
}

TEST_F(DrmDebugExecDiagCmdTest, PassesOverRowsWithoutNameOrHandler)
{
    EXPECT_EQ(Add("alpha", g_odd, 4), DRM_OK);

    EXPECT_EQ(Exec({"alpha", "odd"}), 0);

    EXPECT_THAT(g_ran, ElementsAre("odd")) << "the first that can run, and only that";
    EXPECT_EQ(TakePrinted(), "") << "it has no help";
}

TEST_F(DrmDebugExecDiagCmdTest, AHundredAndTwentyEightCharactersOfACommandCount)
{
    const std::string longName(128, 'c');
    DrmDiagCmd cmds[] = {{longName.c_str(), Works, nullptr}};
    EXPECT_EQ(DrmDebugRegDiagCmdGroup("alpha", cmds, 1), DRM_OK);

    (void)Exec({"alpha", longName + "tail"});
    EXPECT_EQ(g_ran.size(), 1u);
    (void)Exec({"alpha", std::string(127, 'c')});
    EXPECT_EQ(g_ran.size(), 1u);

    DrmDebugUnRegDiagCmdGroup("alpha", cmds);
}

TEST_F(DrmDebugExecDiagCmdTest, AHandlerMayRegisterCommands)
{
    EXPECT_EQ(Add("alpha", g_registers, 1), DRM_OK);

    EXPECT_EQ(Exec({"alpha", "more"}), 0);
    EXPECT_EQ(Exec({"alpha", "first"}), 0);

    EXPECT_THAT(g_ran, ElementsAre("more", "first"));
}

TEST_F(DrmDebugExecDiagCmdTest, AHandlerMayTakeGroupsAway)
{
    EXPECT_EQ(Add("alpha", g_takes, 1), DRM_OK);
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);
    EXPECT_EQ(Add("alpha", g_two, 2), DRM_OK);

    (void)Exec({"alpha", "first"});

    EXPECT_THAT(g_ran, ElementsAre("first")) << "what is gone does not run";
    EXPECT_EQ(TakePrinted(), "gone\n");
}

TEST_F(DrmDebugCmdHelpTest, PrintsTheHelpOfEveryGroup)
{
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);
    EXPECT_EQ(Add("alpha", g_two, 2), DRM_OK);
    EXPECT_EQ(Add("alpha", g_odd, 4), DRM_OK);

    DrmDebugCmdHelp("alpha", 0);

    EXPECT_EQ(TakePrinted(), "SYNOPSIS\nfirst help\nsecond help\nthird help\nother first help\nno handler\nhidden\n");
}

TEST_F(DrmDebugCmdHelpTest, AnUnknownClusterIsTold)
{
    DrmDebugCmdHelp("beta", 1);
    DrmDebugCmdHelp(nullptr, 1);

    EXPECT_EQ(TakePrinted(), "SYNOPSIS\nSYNOPSIS\n");
    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "DRM_DEBUG: Not find cmd cluster, name(beta).\n"), 1u);
}

TEST_F(DrmDebugClusterByNameTest, InsertsInTheFirstFreeRow)
{
    EXPECT_EQ(Add("alpha", g_one, 2), DRM_OK);
    EXPECT_EQ(Add("beta", g_one, 2), DRM_OK);
    DrmDiagCmdCluster *alpha = DrmDebugGetDiagCmdClusterByName("alpha");
    EXPECT_EQ(DrmDebugGetDiagCmdClusterByName("beta"), alpha + 1);
    DrmDebugUnRegDiagCmdGroup("alpha", g_one);

    DrmDiagCmdCluster *inserted = DrmDebugInsertDiagCmdClusterByName("gamma");

    EXPECT_EQ(inserted, alpha);
    EXPECT_STREQ(inserted->name, "gamma");
    EXPECT_EQ(DrmDebugGetDiagCmdClusterByName("gamma"), inserted);
    EXPECT_EQ(Add("gamma", g_two, 2), DRM_OK);
}

TEST_F(DrmDebugClusterByNameTest, AnEmptyNameIsNoCluster)
{
    EXPECT_EQ(DrmDebugGetDiagCmdClusterByName(""), nullptr);
    EXPECT_EQ(DrmDebugGetDiagCmdClusterByName(nullptr), nullptr);
    EXPECT_EQ(DrmDebugInsertDiagCmdClusterByName(""), nullptr);
    EXPECT_EQ(DrmDebugInsertDiagCmdClusterByName(nullptr), nullptr);
}

TEST_F(DrmDebugClusterByNameTest, WithoutAFreeRowThereIsNoInsertion)
{
    for (int number = 0; number < 32; number++) {
        EXPECT_EQ(Add("cluster" + std::to_string(number), g_one, 2), DRM_OK) << number;
    }

    EXPECT_EQ(DrmDebugInsertDiagCmdClusterByName("late"), nullptr);
}
