#include "cli/server/CliCmdHandler.h"

#include "cli_server_test_support.h"

using namespace CORVANE_CLI;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

constexpr std::array<const char *, 10> kNames = {
    "slowdisk",   "summary",  "config",    "slowdisk_detect_config", "disk_info", "iostat_info",
    "smart_info", "drm_info", "dpr_smart", "disklife_prediction"};

} // namespace

class CliCmdHandlerTest : public CliServerTest {
protected:
    static std::string HandlerLine(const std::string &level, const std::string &function, const std::string &message)
    {
        return Line(level, "CliCmdHandler", function, message);
    }
    std::vector<std::string> HandlerLog() const
    {
        std::vector<std::string> lines;
        for (const std::string &line : CliLog()) {
            if (line.find("[CliCmdHandler,") != std::string::npos) {
                lines.push_back(line);
            }
        }
        return lines;
    }
    /** Starts the handler with its probe and forgets what it logged. */
    void StartHandler()
    {
        ASSERT_EQ(handler_.Initialize(), 0);
        AddProbe();
        WriteFile(LogPath(), "");
    }
    /** Pushes a request. @return its result, and what the client saw after this end was closed. */
    std::pair<int, std::string> Push(const std::string &name, const std::string &action = "show")
    {
        auto [client, served] = ConnectedPair();
        CmdData data = {name, "action=" + action + " userName=root", served.Get()};
        const int result = handler_.PushCmdTask(data, action);
        if (result == 0) {
            (void)served.Release(); // the worker's
        }
        served.Reset();
        return {result, ReceiveAll(client.Get())};
    }

    CliCmdHandler &handler_ = CliCmdHandler::GetInstance();
};

TEST_F(CliCmdHandlerTest, IsOneInAProcess)
{
    EXPECT_EQ(&CliCmdHandler::GetInstance(), &handler_);
}

TEST_F(CliCmdHandlerTest, RegistersTheCommandsInTheirOrder)
{
    IN_A_PROCESS_OF_ITS_OWN();

    ASSERT_EQ(handler_.Initialize(), 0);

    std::vector<std::string> expected;
    for (const char *name : kNames) {
        expected.push_back(HandlerLine("INFO", "RegisterCmd", std::string("Command:") + name + " add success."));
    }
    EXPECT_THAT(HandlerLog(), ElementsAreArray(expected));
    EXPECT_THAT(Messages("create worker thread"), ElementsAre("create worker thread 1."));
}

TEST_F(CliCmdHandlerTest, StartsAgainWithTheSameCommands)
{
    StartHandler();

    EXPECT_EQ(handler_.Initialize(), 0);

    std::vector<std::string> expected;
    for (const char *name : kNames) {
        expected.push_back(HandlerLine("ERROR", "RegisterCmd", std::string("Command:") + name + " already exist."));
    }
    EXPECT_THAT(HandlerLog(), ElementsAreArray(expected));
    EXPECT_EQ(LineCount("]Received halt task, all worker threads will be stoped."), 1u) << "the former worker ended";
    EXPECT_EQ(Push("probe").second, AnswerBytes(0, "probe|action=show userName=root", "show"));
}

TEST_F(CliCmdHandlerTest, RefusesANameThatIsTaken)
{
    StartHandler();
    static int made = 0;
    made = 0;

    EXPECT_EQ(handler_.RegisterCmd("probe",
                                   [] {
                                       made++;
                                       return nullptr;
                                   }),
              -1);

    EXPECT_THAT(HandlerLog(), ElementsAre(HandlerLine("ERROR", "RegisterCmd", "Command:probe already exist.")));
    EXPECT_EQ(Push("probe").first, 0);
    EXPECT_EQ(made, 0);
}

TEST_F(CliCmdHandlerTest, MakesANewCommandForEachRequest)
{
    StartHandler();

    EXPECT_EQ(Push("probe").second, AnswerBytes(0, "probe|action=show userName=root", "show"));
    EXPECT_TRUE(WaitFor([this] { return Push("probe").first == 0; }));

    EXPECT_GE(ProbeCmd::Runs(), 2);
    EXPECT_EQ(HandlerLog()[0], HandlerLine("INFO", "PushCmdTask", "Start exec cmd:probe."));
}

TEST_F(CliCmdHandlerTest, AnswersAnUnknownCommand)
{
    StartHandler();
    for (const char *name : {"foo", "", "SUMMARY", "summary "}) {
        EXPECT_EQ(Push(name), std::make_pair(CLI_COMMAND_PARAM_INVALID, AnswerBytes(1073965323, "null", "show")))
            << name;
    }
    EXPECT_EQ(HandlerLog(), std::vector<std::string>(
                                4, HandlerLine("ERROR", "PushCmdTask", "CLI_COMMAND_PARAM_INVALID 0x4003690b.")));
}

TEST_F(CliCmdHandlerTest, TakesAFactoryWithoutACommandForUnknown)
{
    StartHandler();
    (void)handler_.RegisterCmd("no_command", [] { return nullptr; });
    WriteFile(LogPath(), "");

    EXPECT_EQ(Push("no_command"), std::make_pair(CLI_COMMAND_PARAM_INVALID, AnswerBytes(1073965323, "null", "show")));

    EXPECT_THAT(HandlerLog(),
                ElementsAre(HandlerLine("INFO", "PushCmdTask", "Start exec cmd:no_command."),
                            HandlerLine("ERROR", "PushCmdTask", "CLI_COMMAND_PARAM_INVALID 0x4003690b.")));
}

TEST_F(CliCmdHandlerTest, RefusesASecondCommandWhileOneRuns)
{
    StartHandler();
    ProbeCmd::Hold();
    auto [client, served] = ConnectedPair();
    CmdData data = {"probe", "action=show userName=root", served.Release()};
    ASSERT_EQ(handler_.PushCmdTask(data, "show"), 0);
    ASSERT_TRUE(ProbeCmd::WaitUntilItRuns());

    EXPECT_EQ(Push("probe"), std::make_pair(CLI_TASK_MAX_ERROR, AnswerBytes(1073965325, "null", "show")));
    EXPECT_EQ(Push("summary", "change"), std::make_pair(CLI_TASK_MAX_ERROR, AnswerBytes(1073965325, "null", "change")));
    EXPECT_EQ(Push("foo").first, CLI_COMMAND_PARAM_INVALID) << "an unknown command is told first";
    ProbeCmd::Release();

    EXPECT_EQ(ReceiveAll(client.Get()), AnswerBytes(0, "probe|action=show userName=root", "show"));
    EXPECT_EQ(ProbeCmd::Runs(), 1);
    EXPECT_EQ(LineCount("]CLI_TASK_MAX_ERROR 0x4003690d."), 2u);
    EXPECT_TRUE(WaitFor([this] { return Push("probe").first == 0; })) << "it is free again";
}

TEST_F(CliCmdHandlerTest, CannotTellALongAction)
{
    StartHandler();

    EXPECT_EQ(Push("foo", "123456789"),
              std::make_pair(CLI_COMMAND_PARAM_INVALID, AnswerBytes(1073965323, "null", "123456789")));
    EXPECT_EQ(Push("foo", "1234567890"), std::make_pair(CLI_COMMAND_PARAM_INVALID, std::string()));
}

TEST_F(CliCmdHandlerTest, KnowsNoCommandBeforeItsStart)
{
    IN_A_PROCESS_OF_ITS_OWN();

    EXPECT_EQ(Push("summary"), std::make_pair(CLI_COMMAND_PARAM_INVALID, AnswerBytes(1073965323, "null", "show")));
    AddProbe();
    EXPECT_EQ(Push("probe"), std::make_pair(CLI_COMMAND_PARAM_INVALID, AnswerBytes(1073965323, "null", "show")))
        << "there is no worker yet";
    EXPECT_EQ(LineCount("]Start exec cmd:"), 0u);
    ASSERT_EQ(handler_.Initialize(), 0);
    EXPECT_EQ(Push("probe").first, 0);
}

TEST_F(CliCmdHandlerTest, FailsWithoutAThread)
{
    IN_A_PROCESS_OF_ITS_OWN();
    {
        const NoMoreThreads limit({Prefix(), folder_, LogPath()}, 0);

        EXPECT_EQ(handler_.Initialize(), -1);
    }
    EXPECT_EQ(HandlerLog(), (std::vector<std::string>{HandlerLine("ERROR", "Initialize", "Init job pool failed.")}));
    EXPECT_EQ(Push("summary").first, CLI_COMMAND_PARAM_INVALID) << "nothing is registered";
}
