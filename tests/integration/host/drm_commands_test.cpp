#include "drm_fixture.h"

#include <algorithm>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> g_calls;
uint32_t g_results[4] = {0, 0, 0, 0};

template <int Module>
uint32_t Init()
{
    g_calls.push_back("init " + std::to_string(Module));
    return g_results[Module];
}

template <int Module>
uint32_t Fin()
{
    g_calls.push_back("fin " + std::to_string(Module));
    return Module == 1 ? 5 : 0;
}

class DrmSubModuleTest : public DrmTest {
protected:
    lib::DrmSubModule table_[4] = {
        {"zero", Init<0>, Fin<0>}, {"one", Init<1>, Fin<1>}, {"two", Init<2>, nullptr}, {"three", Init<3>, Fin<3>}};
};

TEST_F(DrmSubModuleTest, AreStartedInOrder)
{
    EXPECT_EQ(lib::DrmloadSubModule(table_, 4), 0u);

    EXPECT_THAT(g_calls, ElementsAre("init 0", "init 1", "init 2", "init 3"));
    EXPECT_EQ(Logged(7, "Init drm (zero) success."), 1u);
    EXPECT_EQ(Logged(7, "Init drm (three) success."), 1u);
}

TEST_F(DrmSubModuleTest, AFailureUnloadsThoseBeforeIt)
{
    g_results[3] = 1;

    EXPECT_EQ(lib::DrmloadSubModule(table_, 4), kFail);

    EXPECT_THAT(g_calls, ElementsAre("init 0", "init 1", "init 2", "init 3", "fin 1", "fin 0"));
    EXPECT_EQ(Logged(3, "LoadSubModule three failed."), 1u);
    EXPECT_EQ(Logged(3, "UnloadSubModule one failed."), 1u);
}

TEST_F(DrmSubModuleTest, AFailureOfTheFirstUnloadsNothing)
{
    g_results[0] = 1;

    EXPECT_EQ(lib::DrmloadSubModule(table_, 4), kFail);

    EXPECT_THAT(g_calls, ElementsAre("init 0"));
}

TEST_F(DrmSubModuleTest, UnloadGoesDownFromTheIndex)
{
    lib::DrmUnloadSubModule(table_, -1);
    EXPECT_THAT(g_calls, IsEmpty());

    lib::DrmUnloadSubModule(table_, 3);
    EXPECT_THAT(g_calls, ElementsAre("fin 3", "fin 1", "fin 0"));
}

TEST_F(DrmSubModuleTest, RefusedShellCommandStopsSchedulerThenMemory)
{
    g_hostResults.regCmd = -1;
    const size_t before = HostCalls().size();

    EXPECT_EQ(lib::DrmFrameworkInit(), kFail);

    EXPECT_EQ(Logged(3, "Drm debug registe failed."), 1u);
    EXPECT_EQ(Logged(3, "LoadSubModule DrmDebug failed."), 1u);
    std::vector<std::string> walk;
    const std::vector<std::string> calls = HostCalls();
    for (size_t i = before; i < calls.size(); i++) {
        const std::string name = calls[i].substr(0, calls[i].find('('));
        if ((name == "norax_timer_destroy" || name == "deletePartitionByID") && (walk.empty() || walk.back() != name)) {
            walk.push_back(name);
        }
    }
    EXPECT_THAT(walk, ElementsAre("norax_timer_destroy", "deletePartitionByID"));
    EXPECT_EQ(Logged(7, "Init drm (DrmMemMgr) success."), 1u);
    EXPECT_EQ(Logged(7, "Init drm (DrmTaskScheduler) success."), 1u);
}

TEST_F(DrmSubModuleTest, OnlyMinusOneIsARefusal)
{
    g_hostResults.regCmd = 1;

    EXPECT_EQ((lib::Call<uint32_t()>{"DrmFrameworkDebugFinComm"}()), 0u);
    EXPECT_EQ((lib::Call<uint32_t()>{"DrmFrameworkDebugInit"}()), 0u);
}

TEST_F(DrmSubModuleTest, FrameworkComesAndGoes)
{
    const size_t before = HostCalls().size();
    EXPECT_EQ(lib::DrmFrameworkExit(), 0u);
    const std::vector<std::string> calls = HostCalls();
    EXPECT_THAT(std::vector<std::string>(calls.begin() + static_cast<long>(before), calls.end()),
                testing::Contains("DBG_UnRegCmd(drm)"));
    ClearHostLines();

    EXPECT_EQ(lib::DrmFrameworkInit(), 0u);

    std::vector<std::string> walk;
    for (const HostLine &line : HostLines()) {
        if (line.text.rfind("Init drm (", 0) == 0 || line.text == "Drm trace point init succeed.") {
            walk.push_back(line.text);
        }
    }
    EXPECT_THAT(walk, ElementsAre("Init drm (DrmMemMgr) success.", "Init drm (DrmTaskScheduler) success.",
                                  "Init drm (DrmDebug) success.", "Drm trace point init succeed.",
                                  "Init drm (DrmTracepoint) success."));
}

uint32_t g_handlerResult = 0;

template <int Number>
uint32_t Handler(int argc, char **argv)
{
    std::string call = std::to_string(Number);
    for (int i = 0; i < argc; i++) {
        call += std::string(" ") + argv[i];
    }
    g_calls.push_back(call);
    return g_handlerResult;
}

class DrmDiagCmdTest : public DrmTest {
protected:
    static int Exec(const std::vector<std::string> &words)
    {
        std::vector<std::string> copy = words;
        std::vector<char *> argv;
        for (std::string &word : copy) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        return reinterpret_cast<int (*)(int, char **)>(lib::Address("DrmDebugExecDiagCmd"))(
            static_cast<int>(words.size()), argv.data());
    }
    static std::string Help(const char *cluster)
    {
        (void)TakeHostPrint();
        reinterpret_cast<void (*)(const char *, int)>(lib::Address("DrmDebugCmdHelp"))(cluster, 0);
        return TakeHostPrint();
    }

    lib::DrmDiagCmd first_[2] = {{"one", Handler<1>, "help one\n"}, {"two", Handler<2>, "help two\n"}};
    lib::DrmDiagCmd second_[1] = {{"one", Handler<3>, "help three\n"}};
    lib::DrmDiagCmd third_[1] = {{"none", nullptr, "help none\n"}};
    lib::DrmDiagCmd fourth_[1] = {{"four", Handler<4>, "help four\n"}};
};

TEST_F(DrmDiagCmdTest, DrmIsRegisteredWithTheShell)
{
    const HostCommand command = HostCommandOf("drm");

    EXPECT_STREQ(command.description, "diagnose function of DRM");
    EXPECT_EQ(reinterpret_cast<void *>(command.exec), lib::Address("DrmDebugExecDiagCmd"));
    EXPECT_EQ(reinterpret_cast<void *>(command.help), lib::Address("DrmDebugCmdHelp"));
    (void)TakeHostPrint();
    command.help("drm", 1);
    EXPECT_EQ(TakeHostPrint(), "SYNOPSIS\ndrm showmemalloc: show allocated mem size\n");
}

TEST_F(DrmDiagCmdTest, ShowMemAllocPrintsAPoolALine)
{
    int result = 99;

    const std::string text = Shell({"drm", "showmemalloc"}, &result);

    EXPECT_EQ(result, 0);
    EXPECT_THAT(text, testing::StartsWith("cm_size_32                               "));
    EXPECT_THAT(text, HasSubstr("\ncm_size_64                               0          0          0         \n"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 8);
}

TEST_F(DrmDiagCmdTest, RegistersUpToThreeGroups)
{
    EXPECT_EQ(lib::DrmDebugRegDiagCmdGroup("cluster", first_, 2), 0u);
    EXPECT_EQ(lib::DrmDebugRegDiagCmdGroup("cluster", second_, 1), 0u);
    EXPECT_EQ(lib::DrmDebugRegDiagCmdGroup("cluster", third_, 1), 0u);
    EXPECT_EQ(lib::DrmDebugRegDiagCmdGroup("cluster", fourth_, 1), kFail);

    EXPECT_EQ(Logged(3, "DRM_DEBUG: register diagnose cmd array failed.\n"), 1u);
    const lib::DrmDiagCmdCluster *cluster = lib::DrmDebugGetDiagCmdClusterByName("cluster");
    ASSERT_NE(cluster, nullptr);
    EXPECT_STREQ(cluster->name, "cluster");
    EXPECT_EQ(cluster->groups[0].cmds, first_);
    EXPECT_EQ(cluster->groups[0].count, 2u);
    EXPECT_EQ(cluster->groups[2].cmds, third_);
    EXPECT_EQ(Help("cluster"), "SYNOPSIS\nhelp one\nhelp two\nhelp three\nhelp none\n");
}

TEST_F(DrmDiagCmdTest, RefusesEmptyNamesNoCommandsAndThe33rdCluster)
{
    EXPECT_EQ(lib::DrmDebugRegDiagCmdGroup("", first_, 2), kFail);
    EXPECT_EQ(lib::DrmDebugRegDiagCmdGroup("cluster", nullptr, 2), kFail);
    EXPECT_EQ(Logged(3, "DRM_DEBUG: Input is invalid, cmdOps is null.\n"), 2u);
    for (int i = 0; i < 30; i++) { // "drm" and "u_drm_slow_disk" are there
        EXPECT_EQ(lib::DrmDebugRegDiagCmdGroup(("c" + std::to_string(i)).c_str(), first_, 2), 0u) << i;
    }

    EXPECT_EQ(lib::DrmDebugRegDiagCmdGroup("c30", first_, 2), kFail);

    EXPECT_EQ(Logged(3, "DRM_DEBUG: Cluster is full.\n"), 1u);
    lib::DrmDebugUnRegDiagCmdGroup("c7", first_);
    EXPECT_EQ(lib::DrmDebugRegDiagCmdGroup("c30", first_, 2), 0u);
    EXPECT_EQ(lib::DrmDebugGetDiagCmdClusterByName("c7"), nullptr);
}

TEST_F(DrmDiagCmdTest, NamesCountWith20Characters)
{
    const char *name = "a_name_of_twenty_cha_and_more";
    EXPECT_EQ(lib::DrmDebugRegDiagCmdGroup(name, first_, 2), 0u);

    const lib::DrmDiagCmdCluster *cluster = lib::DrmDebugGetDiagCmdClusterByName("a_name_of_twenty_cha");

    ASSERT_NE(cluster, nullptr);
    EXPECT_EQ(std::string(cluster->name, 20), "a_name_of_twenty_cha");
    EXPECT_EQ(lib::DrmDebugGetDiagCmdClusterByName("a_name_of_twenty_ch"), nullptr);
    lib::DrmDebugUnRegDiagCmdGroup(name, first_);
    EXPECT_EQ(lib::DrmDebugGetDiagCmdClusterByName(name), nullptr);
}

TEST_F(DrmDiagCmdTest, UnregisteringTellsWhatItDoesNotFind)
{
    ASSERT_EQ(lib::DrmDebugRegDiagCmdGroup("cluster", first_, 2), 0u);

    lib::DrmDebugUnRegDiagCmdGroup("cluster", nullptr);
    lib::DrmDebugUnRegDiagCmdGroup("", first_);
    EXPECT_THAT(HostLines(), IsEmpty());
    lib::DrmDebugUnRegDiagCmdGroup("unknown", first_);
    EXPECT_EQ(Logged(3, "DRM_DEBUG: Not find cmd cluster, name(unknown).\n"), 1u);
    lib::DrmDebugUnRegDiagCmdGroup("cluster", second_);
    EXPECT_EQ(Logged(3, "DRM_DEBUG: unregister diagnose cmd array failed.\n"), 1u);
    EXPECT_NE(lib::DrmDebugGetDiagCmdClusterByName("cluster"), nullptr);
}

TEST_F(DrmDiagCmdTest, RunsTheCommandWithAllItsWords)
{
    ASSERT_EQ(lib::DrmDebugRegDiagCmdGroup("cluster", first_, 2), 0u);

    EXPECT_EQ(Exec({"cluster", "two", "x", "y"}), 0);

    EXPECT_THAT(g_calls, ElementsAre("2 cluster two x y"));
    EXPECT_EQ(TakeHostPrint(), "");
}

TEST_F(DrmDiagCmdTest, ANameInTwoGroupsRunsTwice)
{
    ASSERT_EQ(lib::DrmDebugRegDiagCmdGroup("cluster", first_, 2), 0u);
    ASSERT_EQ(lib::DrmDebugRegDiagCmdGroup("cluster", second_, 1), 0u);

    EXPECT_EQ(Exec({"cluster", "one"}), 0);

    EXPECT_THAT(g_calls, ElementsAre("1 cluster one", "3 cluster one"));
}

TEST_F(DrmDiagCmdTest, AFailedCommandPrintsItsHelpAndStillCounts)
{
    g_handlerResult = 1;
    g_hostResults.print = 23;
    ASSERT_EQ(lib::DrmDebugRegDiagCmdGroup("cluster", first_, 2), 0u);

    EXPECT_EQ(Exec({"cluster", "one"}), 23);

    EXPECT_EQ(TakeHostPrint(), "help one\n");
}

TEST_F(DrmDiagCmdTest, AnUnknownCommandIsPrinted)
{
    g_hostResults.print = 23;
    ASSERT_EQ(lib::DrmDebugRegDiagCmdGroup("cluster", third_, 1), 0u);

    EXPECT_EQ(Exec({"cluster", "none"}), 23); // it has no handler
    EXPECT_EQ(TakeHostPrint(), "Can't Find The Diagnose Cmd\n");
    EXPECT_EQ(Exec({"cluster", "tw"}), 23);
    EXPECT_EQ(TakeHostPrint(), "Can't Find The Diagnose Cmd\n");
}

TEST_F(DrmDiagCmdTest, OneWordShowsTheUsage)
{
    EXPECT_THAT((Exec({"drm"}), TakeHostPrint()), "<Please input valid command.>");
}

TEST_F(DrmDiagCmdTest, AnUnknownClusterIsLogged)
{
    g_hostResults.print = 23;

    EXPECT_EQ(Exec({"unknown", "one"}), 0);

    EXPECT_EQ(Logged(3, "DRM_DEBUG: Not find cmd cluster, name(unknown).\n"), 1u);
    EXPECT_EQ(TakeHostPrint(), "");
    EXPECT_EQ(Help("unknown"), "SYNOPSIS\n");
    EXPECT_EQ(Logged(3, "DRM_DEBUG: Not find cmd cluster, name(unknown).\n"), 2u);
}

} // namespace
