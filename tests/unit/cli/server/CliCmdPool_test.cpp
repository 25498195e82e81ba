#include "cli/server/CliCmdPool.h"

#include <poll.h>
#include <thread>

#include "cli_server_test_support.h"

using namespace CORVANE_CLI;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CliCmdPoolTest : public CliServerTest {
protected:
    static std::string PoolLine(const std::string &level, const std::string &function, const std::string &message)
    {
        return Line(level, "CliCmdPool", function, message);
    }
    /** A probe that answers on this socket. */
    static std::shared_ptr<ProbeCmd> Probe(int fd, const std::string &param = "action=show userName=root")
    {
        auto command = std::make_shared<ProbeCmd>();
        command->SetData({"probe", param, fd});
        return command;
    }
    std::vector<std::string> PoolLog() const
    {
        std::vector<std::string> lines;
        for (const std::string &line : CliLog()) {
            if (line.find("[CliCmdPool,") != std::string::npos) {
                lines.push_back(line);
            }
        }
        return lines;
    }
};

class DBPrintTest : public CliCmdPoolTest {};

TEST_F(CliCmdPoolTest, AnswersAndClosesEachConnection)
{
    CliCmdPool pool;
    pool.CreatePool(1);
    for (int i = 0; i < 5; i++) {
        auto [client, served] = ConnectedPair();
        const int fd = served.Release();
        pool.PushCmdTask(Probe(fd));

        EXPECT_EQ(ReceiveAll(client.Get()), AnswerBytes(0, "probe|action=show userName=root", "show"));

        EXPECT_TRUE(WaitFor([&pool] { return pool.GetTaskCnt() == 0; }));
        EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "the worker has closed its end";
    }
    pool.DestroyPool();
}

TEST_F(CliCmdPoolTest, HasAsManyWorkersAsAsked)
{
    CliCmdPool pool;
    pool.CreatePool(1);
    ProbeCmd::Hold();
    auto [first, firstServed] = ConnectedPair();
    auto [second, secondServed] = ConnectedPair();
    pool.PushCmdTask(Probe(firstServed.Release()));
    pool.PushCmdTask(Probe(secondServed.Release()));

    EXPECT_TRUE(ProbeCmd::WaitUntilItRuns());
    EXPECT_EQ(pool.GetTaskCnt(), 2);
    EXPECT_EQ(ProbeCmd::Runs(), 1);
    ProbeCmd::Release();

    EXPECT_NE(ReceiveAll(first.Get()), "");
    EXPECT_NE(ReceiveAll(second.Get()), "");
    EXPECT_EQ(ProbeCmd::Runs(), 2);
    pool.DestroyPool();
    EXPECT_EQ(PoolLog()[0], PoolLine("INFO", "CreatePool", "create worker thread 1."));
}

TEST_F(CliCmdPoolTest, CountsWhatWaitsAndRuns)
{
    CliCmdPool pool;

    EXPECT_EQ(pool.GetTaskCnt(), 0);
    pool.PushCmdTask(Probe(-1));
    pool.PushCmdTask(Probe(-1));
    EXPECT_EQ(pool.GetTaskCnt(), 2);
    pool.CreatePool(1);
    EXPECT_TRUE(WaitFor([&pool] { return pool.GetTaskCnt() == 0; }));
}

TEST_F(CliCmdPoolTest, PassesOverACommandThatIsNone)
{
    CliCmdPool pool;
    auto [client, served] = ConnectedPair();
    pool.PushCmdTask(nullptr);
    pool.PushCmdTask(Probe(served.Release()));

    pool.CreatePool(1);

    EXPECT_NE(ReceiveAll(client.Get()), "");
    EXPECT_TRUE(WaitFor([&pool] { return pool.GetTaskCnt() == 0; }));
    EXPECT_EQ(LineCount("[WARN][CLI_LOG][CliCmdPool,WorkerLoop]pBaseCmd is null."), 1u);
    pool.DestroyPool();
}

TEST_F(CliCmdPoolTest, EndsBehindWhatWaits)
{
    CliCmdPool pool;
    auto [client, served] = ConnectedPair();
    pool.CreatePool(1);
    pool.PushCmdTask(Probe(served.Release()));

    pool.DestroyPool();

    EXPECT_NE(ReceiveAll(client.Get()), "");
    EXPECT_THAT(PoolLog(),
                ElementsAre(PoolLine("INFO", "CreatePool", "create worker thread 1."),
                            PoolLine("WARN", "WorkerLoop", "Received halt task, all worker threads will be stoped.")));
}

TEST_F(CliCmdPoolTest, EndsWithoutWorkers)
{
    {
        CliCmdPool pool;
        pool.DestroyPool();
    }
    EXPECT_THAT(CliLog(), IsEmpty());
}

TEST_F(CliCmdPoolTest, EndsItsWorkerWhenItGoes)
{
    {
        CliCmdPool pool;
        pool.CreatePool(1);
    }
    EXPECT_EQ(LineCount("Received halt task, all worker threads will be stoped."), 1u);
}

TEST_F(CliCmdPoolTest, HandsOutResultAndOutput)
{
    CliCmdPool pool;
    pool.CreatePool(1);
    const struct {
        int result;
        const char *output;
        const char *printed;
    } rows[] = {{0, "", "null"},
                {0, "text\n", "text\n"},
                {-1, "", "null"},
                {CLI_COMMAND_EXEC_FAILED, "failed\n", "failed\n"},
                {CLI_DB_ID_NOT_EXIST, "", "null"},
                {0, "DiskLife          : <1\n", "DiskLife          : &lt;1\n"},
                {0, "a<b", "a&lt;b"}};
    for (const auto &row : rows) {
        ProbeCmd::Reset();
        {
            const std::lock_guard<std::mutex> guard(ProbeCmd::Shared().mutex);
            ProbeCmd::Shared().echo = false;
            ProbeCmd::Shared().result = row.result;
            ProbeCmd::Shared().output = row.output;
        }
        auto [client, served] = ConnectedPair();
        pool.PushCmdTask(Probe(served.Release()));

        EXPECT_EQ(ReceiveAll(client.Get()), AnswerBytes(row.result, row.printed, "show")) << row.output;
    }
}

TEST_F(CliCmdPoolTest, NamesTheActionThatTheCommandLeft)
{
    CliCmdPool pool;
    pool.CreatePool(1);
    {
        const std::lock_guard<std::mutex> guard(ProbeCmd::Shared().mutex);
        ProbeCmd::Shared().clears = true;
    }
    auto [client, served] = ConnectedPair();
    pool.PushCmdTask(Probe(served.Release()));

    EXPECT_EQ(ReceiveAll(client.Get()), AnswerBytes(0, "probe|action=show userName=root", ""));
}

TEST_F(CliCmdPoolTest, ClosesWithoutAnAnswerWhenTheActionDoesNotFitTheHead)
{
    CliCmdPool pool;
    pool.CreatePool(1);
    auto [fits, fitsServed] = ConnectedPair();
    auto [long10, longServed] = ConnectedPair();
    pool.PushCmdTask(Probe(fitsServed.Release(), "action=123456789"));
    EXPECT_EQ(ReceiveAll(fits.Get()), AnswerBytes(0, "probe|action=123456789", "123456789"));

    pool.PushCmdTask(Probe(longServed.Release(), "action=1234567890"));
    EXPECT_EQ(ReceiveAll(long10.Get()), "");

    EXPECT_EQ(LineCount("]Packet preparing fail due to actionName copying error."), 1u);
    EXPECT_EQ(LineCount("]Packet initialization fail."), 1u);
}

TEST_F(CliCmdPoolTest, GoesOnAfterACommandWithoutMemory)
{
    CliCmdPool pool;
    pool.CreatePool(1);
    {
        const std::lock_guard<std::mutex> guard(ProbeCmd::Shared().mutex);
        ProbeCmd::Shared().throws = true;
    }
    auto [client, served] = ConnectedPair();
    pool.PushCmdTask(Probe(served.Release()));
    EXPECT_EQ(ReceiveAll(client.Get()), AnswerBytes(CLI_COMMAND_EXEC_FAILED, "null", "show"));

    ProbeCmd::Reset();
    auto [next, nextServed] = ConnectedPair();
    pool.PushCmdTask(Probe(nextServed.Release()));
    EXPECT_EQ(ReceiveAll(next.Get()), AnswerBytes(0, "probe|action=show userName=root", "show"));
}

TEST_F(CliCmdPoolTest, GoesOnAfterAClientThatIsGone)
{
    CliCmdPool pool;
    pool.CreatePool(1);
    auto [client, served] = ConnectedPair();
    client.Reset();
    pool.PushCmdTask(Probe(served.Release()));
    EXPECT_TRUE(WaitFor([&pool] { return pool.GetTaskCnt() == 0; }));

    // The answer of one packet arrives, though the earlier failure's error number is still there.
    auto [next, nextServed] = ConnectedPair();
    pool.PushCmdTask(Probe(nextServed.Release()));
    EXPECT_EQ(ReceiveAll(next.Get()), AnswerBytes(0, "probe|action=show userName=root", "show"));
    EXPECT_GE(LineCount("]Send fail. Socket closed by remote, errno{32}."), 1u);
}

TEST_F(DBPrintTest, AnswersTheGivenClient)
{
    const CliCmdPool pool;
    auto [client, served] = ConnectedPair();
    std::string msg = "text";

    EXPECT_EQ(pool.DBPrint(served.Get(), msg, 5, "show"), 0);
    served.Reset();

    EXPECT_EQ(ReceiveAll(client.Get()), AnswerBytes(5, "text", "show"));
    EXPECT_EQ(msg, AnswerXml(5, "text"));
}

TEST_F(DBPrintTest, AnswersThisThreadsClient)
{
    const CliCmdPool pool;
    auto [client, served] = ConnectedPair();
    clientId = served.Get();
    std::thread([] { EXPECT_EQ(clientId, -1) << "each thread has its own"; }).join();
    std::string msg;

    EXPECT_EQ(pool.DBPrint(msg, -1, "change"), 0);
    served.Reset();
    clientId = -1;

    EXPECT_EQ(ReceiveAll(client.Get()), AnswerBytes(-1, "null", "change"));
}

TEST_F(DBPrintTest, LogsWhatItSends)
{
    g_objLogger.SetLevel(CLI_LOG_LEVEL_DEBUG);
    const CliCmdPool pool;
    std::string text = "text";
    std::string none;
    clientId = -1;

    EXPECT_EQ(pool.DBPrint(-1, text, 5, "show"), 0);
    EXPECT_EQ(pool.DBPrint(none, -1, "change"), 0);

    EXPECT_THAT(
        PoolLog(),
        ElementsAre(PoolLine("DEBUG", "DBPrint", "DBPrint, clientFd:-1, msg:text, errorCode:5, actionName:show."),
                    PoolLine("DEBUG", "DBPrint", "DBPrint, clientId:-1, msg:null, errorCode:-1, actionName:change.")));
    EXPECT_EQ(Messages("sockFd").size(), 2u);
    EXPECT_EQ(Messages("sockFd")[0], "sockFd(-1) is invalid.");
}

TEST_F(DBPrintTest, SplitsAtTheFirstErrorCode)
{
    const CliCmdPool pool;
    auto [client, served] = ConnectedPair();
    std::string msg = "a errorCode=7 b";

    (void)pool.DBPrint(served.Get(), msg, 0, "show");
    served.Reset();

    EXPECT_EQ(DocumentOf(ReceiveAll(client.Get())), "<response><error_code>7 b errorCode=0</error_code>"
                                                    "<print_data>a</print_data></response>\n");
}

TEST_F(DBPrintTest, CutsAnAnswerThatTheSaverExpandsTooMuch)
{
    const CliCmdPool pool;
    auto [client, served] = ConnectedPair();
    std::string msg(40, '<');

    (void)pool.DBPrint(served.Get(), msg, 0, "show");
    served.Reset();

    const size_t room = 40 + 21 + 25 + 25 + 1 + 20 - 1; // texts, templates, what the saver may add; the terminator
    std::string whole = "<response><error_code>0</error_code><print_data>";
    for (int i = 0; i < 40; i++) {
        whole += "&lt;";
    }
    EXPECT_EQ(DocumentOf(ReceiveAll(client.Get())), whole.substr(0, room));
}
