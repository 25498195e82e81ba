#include "platform/nordiagnose.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform_test_support.h"

namespace {

int Exec(int, char **)
{
    return 0;
}

DBG_CmdInfo Command(const std::string &name, const std::string &description = "what it does")
{
    DBG_CmdInfo command{};
    EXPECT_LT(name.size(), sizeof(command.name));
    (void)name.copy(command.name, sizeof(command.name));
    (void)description.copy(command.description, sizeof(command.description));
    command.exec = Exec;
    return command;
}

std::string Numbered(std::string name, int number)
{
    name += std::to_string(number);
    return name;
}

template <typename Print>
std::string OutputOf(Print print)
{
    testing::internal::CaptureStdout();
    print();
    return testing::internal::GetCapturedStdout();
}

} // namespace

class DbgDiagnoseAgentInitTest : public ::testing::Test {
protected:
    void SetUp() override { (void)setenv("NORDIAG_DIR", folder_.Path().c_str(), 1); }
    void TearDown() override { (void)unsetenv("NORDIAG_DIR"); }

    TempFolder folder_;
};

TEST_F(DbgDiagnoseAgentInitTest, RegistersAProcessOnce)
{
    EXPECT_EQ(DBG_DiagnoseAgentInit(100, "corvane"), 0);
    EXPECT_EQ(DBG_DiagnoseAgentInit(100, "corvane"), EEXIST);

    EXPECT_EQ(DBG_DiagnoseAgentDestroy(100), 0);
    EXPECT_EQ(DBG_DiagnoseAgentDestroy(100), ENOENT);

    EXPECT_EQ(DBG_DiagnoseAgentInit(100, "corvane"), 0);
    EXPECT_EQ(DBG_DiagnoseAgentDestroy(100), 0);
}

TEST_F(DbgDiagnoseAgentInitTest, RefusesBadArgumentsAndAFullTable)
{
    EXPECT_EQ(DBG_DiagnoseAgentInit(0, "corvane"), EINVAL);
    EXPECT_EQ(DBG_DiagnoseAgentInit(-1, "corvane"), EINVAL);
    EXPECT_EQ(DBG_DiagnoseAgentInit(1, nullptr), EINVAL);
    EXPECT_EQ(DBG_DiagnoseAgentInit(1, ""), EINVAL);
    EXPECT_EQ(DBG_DiagnoseAgentDestroy(0), ENOENT);

    int registered = 0;
    while (registered < 100 && DBG_DiagnoseAgentInit(registered + 1, "agent") == 0) {
        registered++;
    }
    EXPECT_EQ(registered, 8);
    EXPECT_EQ(DBG_DiagnoseAgentInit(registered + 1, "agent"), ENOSPC);
    for (int i = 1; i <= registered; i++) {
        EXPECT_EQ(DBG_DiagnoseAgentDestroy(i), 0);
    }
}

TEST(DbgRegCmdTest, TakesANameOnceUntilItIsRemoved)
{
    const DBG_CmdInfo command = Command("drm");

    EXPECT_EQ(DBG_RegCmd(&command), 0);
    EXPECT_EQ(DBG_RegCmd(&command, 1, "more"), -1);

    EXPECT_EQ(DBG_UnRegCmd("drm"), 0);
    EXPECT_EQ(DBG_UnRegCmd("drm"), -1);
    EXPECT_EQ(DBG_RegCmd(&command), 0);
    EXPECT_EQ(DBG_UnRegCmdToCLI("drm", 1), 0);
    EXPECT_EQ(DBG_UnRegCmdToCLI("drm"), -1);
}

TEST(DbgRegCmdTest, RefusesBadRecords)
{
    DBG_CmdInfo unnamed = Command("x");
    unnamed.name[0] = '\0';
    DBG_CmdInfo withoutExec = Command("x");
    withoutExec.exec = nullptr;
    DBG_CmdInfo longName = Command("x");
    std::memset(longName.name, 'n', sizeof(longName.name));
    DBG_CmdInfo longDescription = Command("x");
    std::memset(longDescription.description, 'd', sizeof(longDescription.description));

    EXPECT_EQ(DBG_RegCmd(nullptr), -1);
    EXPECT_EQ(DBG_RegCmd(&unnamed), -1);
    EXPECT_EQ(DBG_RegCmd(&withoutExec), -1);
    EXPECT_EQ(DBG_RegCmd(&longName), -1);
    EXPECT_EQ(DBG_RegCmd(&longDescription), -1);
    EXPECT_EQ(DBG_UnRegCmd(nullptr), -1);
    EXPECT_EQ(DBG_UnRegCmd(""), -1);
}

TEST(DbgRegCmdTest, RefusesAFullTable)
{
    for (int i = 0; i < DBG_MAX_COMMANDS; i++) {
        const DBG_CmdInfo command = Command(Numbered("c", i));
        EXPECT_EQ(DBG_RegCmd(&command), 0) << i;
    }
    const DBG_CmdInfo surplus = Command("surplus");

    EXPECT_EQ(DBG_RegCmd(&surplus), -1);

    for (int i = 0; i < DBG_MAX_COMMANDS; i++) {
        EXPECT_EQ(DBG_UnRegCmd(Numbered("c", i).c_str()), 0);
    }
}

TEST(DbgRegCmdTest, ServesManyThreads)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([i] {
            const DBG_CmdInfo command = Command(Numbered("thread", i));
            for (int round = 0; round < 500; round++) {
                EXPECT_EQ(DBG_RegCmd(&command), 0);
                EXPECT_EQ(DBG_UnRegCmd(command.name), 0);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST(DbgPrintTest, PrintsToStandardOutput)
{
    const char *const noFormat = nullptr;

    EXPECT_EQ(OutputOf([] { EXPECT_EQ(DBG_Print("%-4s|%u\n", "ab", 7U), 7); }), "ab  |7\n");
    EXPECT_EQ(OutputOf([] { EXPECT_EQ(DBG_PrintBuf("%s", "piece"), 5); }), "piece");
    EXPECT_EQ(DBG_Print(noFormat), -1);
    EXPECT_EQ(DBG_PrintBuf(noFormat), -1);
}

TEST(DbgShowUsageAndErrMsgTest, PrintsMessageAndCommands)
{
    const DBG_CmdInfo command = Command("corvane", "corvane debug command");
    int (*const show)(const char *, ...) = DBG_ShowUsageAndErrMsg; // as a host's tools see it, without format checks
    ASSERT_EQ(DBG_RegCmd(&command), 0);

    EXPECT_EQ(OutputOf([] { EXPECT_GE(DBG_ShowUsageAndErrMsg("Input invalid %s!", "command"), 0); }),
              "Input invalid command!\n"
              "Usage: <group> <command> [arguments]\n"
              "  corvane             corvane debug command\n");
    EXPECT_EQ(OutputOf([show] { EXPECT_EQ(show(nullptr), 0); }), "Usage: <group> <command> [arguments]\n"
                                                                 "  corvane             corvane debug command\n");

    EXPECT_EQ(DBG_UnRegCmd("corvane"), 0);
}
