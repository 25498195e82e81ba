// Every way an agent can answer wrongly.
#include "sample_fleet.h"
#include "sim_process.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kOk = R"({"ok":true})";

class MisbehaviourTest : public SimTest {
protected:
    void SetUp() override
    {
        Start(Sample());
        right_ = Ask(Kernel(), kBrief);
        ASSERT_THAT(right_, HasSubstr("SATA1"));
    }

    void Misbehave(const std::string &more)
    {
        ASSERT_EQ(Control(R"({"do":"misbehave","agent":"kernel",)" + more + "}"), kOk);
    }

    const std::string kBrief = RequestOf("dca_get_disks_brief_info");
    std::string right_;
};

TEST_F(MisbehaviourTest, GarbageIsNoJson)
{
    Misbehave(R"("mode":"garbage")");

    const std::string answer = Ask(Kernel(), kBrief);

    EXPECT_FALSE(answer.empty());
    EXPECT_EQ(Json(cJSON_Parse(answer.c_str())), nullptr);
}

TEST_F(MisbehaviourTest, GarbageMayBeAGivenText)
{
    Misbehave(R"("mode":"garbage","text":"{\"jsonrpc\":\"1.0\"}")");

    EXPECT_EQ(Ask(Kernel(), kBrief), R"({"jsonrpc":"1.0"})");
}

TEST_F(MisbehaviourTest, TheOtherAgentStaysRight)
{
    Misbehave(R"("mode":"garbage")");

    EXPECT_THAT(Ask(Spdk(), kBrief), HasSubstr("NVME1"));
}

TEST_F(MisbehaviourTest, TruncateSendsTheFirstPart)
{
    Misbehave(R"("mode":"truncate")");
    EXPECT_EQ(Ask(Kernel(), kBrief), right_.substr(0, right_.size() / 2));

    Misbehave(R"("mode":"truncate","bytes":9)");
    EXPECT_EQ(Ask(Kernel(), kBrief), right_.substr(0, 9));

    Misbehave(R"("mode":"truncate","bytes":1000000)");
    EXPECT_EQ(Ask(Kernel(), kBrief), right_);
}

TEST_F(MisbehaviourTest, SplitArrivesInTwoReceives)
{
    Misbehave(R"("mode":"split","bytes":20,"seconds":0.05)");

    EXPECT_EQ(AskOnce(Kernel(), kBrief), right_.substr(0, 20));
    EXPECT_EQ(Ask(Kernel(), kBrief), right_);
}

TEST_F(MisbehaviourTest, CloseReadsAndSendsNothing)
{
    Misbehave(R"("mode":"close")");

    ssize_t result = -1;
    EXPECT_EQ(AskOnce(Kernel(), kBrief, &result), "");

    EXPECT_EQ(result, 0) << "an orderly end, since the request was read";
    EXPECT_EQ(Record(2).size(), 2U);
}

TEST_F(MisbehaviourTest, CloseUnreadFailsTheClientsExchange)
{
    Misbehave(R"("mode":"close_unread","count":1)");

    const int fd = Connect(Kernel());
    ASSERT_GE(fd, 0);
    // The far end is gone once this descriptor reports a hang-up; from then on nothing can be sent.
    pollfd wait{fd, POLLIN, 0};
    ASSERT_EQ(poll(&wait, 1, kBoundMs), 1);
    const ssize_t sent = send(fd, kBrief.data(), kBrief.size(), MSG_NOSIGNAL);
    const int error = errno;
    close(fd);

    EXPECT_EQ(sent, -1);
    EXPECT_EQ(error, EPIPE);
    EXPECT_EQ(Ask(Kernel(), kBrief), right_) << "one connection was meant, the next is served";
    EXPECT_EQ(Record(2).size(), 2U) << "what was not read cannot be recorded";
}

TEST_F(MisbehaviourTest, HangReadsAndStaysSilentUntilToldToBehave)
{
    Misbehave(R"("mode":"hang")");
    const int fd = Connect(Kernel());
    ASSERT_EQ(send(fd, kBrief.data(), kBrief.size(), 0), static_cast<ssize_t>(kBrief.size()));
    (void)Record(2);
    pollfd now{fd, POLLIN, 0};
    EXPECT_EQ(poll(&now, 1, 0), 0) << "the request was read, and no answer is there";

    EXPECT_EQ(Control(R"({"do":"behave","agent":"kernel"})"), kOk);

    char byte = 0;
    EXPECT_EQ(recv(fd, &byte, 1, 0), 0) << "the hung connection ends without an answer";
    close(fd);
    EXPECT_EQ(Ask(Kernel(), kBrief), right_);
}

TEST_F(MisbehaviourTest, HangForgetsAClientThatLeaves)
{
    Misbehave(R"("mode":"hang")");
    const int fd = Connect(Kernel());
    (void)send(fd, kBrief.data(), kBrief.size(), 0);
    (void)Record(2);

    close(fd);

    EXPECT_EQ(Control(R"({"do":"behave","agent":"kernel"})"), kOk);
    EXPECT_EQ(Ask(Kernel(), kBrief), right_);
}

TEST_F(MisbehaviourTest, DelayAnswersLateAndServesOthersMeanwhile)
{
    Misbehave(R"("mode":"delay","seconds":0.3,"method":"debug_switch")");
    const int fd = Connect(Kernel());
    const std::string slow = RequestOf("debug_switch");
    ASSERT_EQ(send(fd, slow.data(), slow.size(), 0), static_cast<ssize_t>(slow.size()));
    (void)Record(2);

    EXPECT_EQ(Ask(Kernel(), kBrief), right_);

    char answer[256] = {};
    EXPECT_GT(recv(fd, answer, sizeof(answer) - 1, 0), 0);
    EXPECT_THAT(std::string(answer), HasSubstr("debug stat change"));
    close(fd);
}

TEST_F(MisbehaviourTest, WrongTypeChangesTheDisksByDefault)
{
    Misbehave(R"("mode":"wrong_type")");

    EXPECT_EQ(Ask(Kernel(), kBrief), R"({"jsonrpc":"2.0","id":7,"result":{"disks":"wrong type"}})");
}

TEST_F(MisbehaviourTest, WrongTypeChangesAMemberOfEveryDisk)
{
    Misbehave(R"("mode":"wrong_type","member":"serial_number")");

    const std::string answer = Ask(Kernel(), kBrief);

    EXPECT_THAT(answer,
                HasSubstr(R"({"device_name":"sda","serial_number":1},{"device_name":"sdb","serial_number":1})"));
    EXPECT_THAT(answer, Not(HasSubstr("SATA1")));
}

TEST_F(MisbehaviourTest, MissingLeavesAMemberOut)
{
    Misbehave(R"("mode":"missing","member":"device_name")");
    EXPECT_THAT(Ask(Kernel(), kBrief), HasSubstr(R"("disks":[{"serial_number":"SATA1"},)"));

    Misbehave(R"("mode":"missing","member":"id")");
    EXPECT_THAT(Ask(Kernel(), kBrief), HasSubstr(R"({"jsonrpc":"2.0","result":)"));
}

TEST_F(MisbehaviourTest, OverlongFillsATextMember)
{
    Misbehave(R"("mode":"overlong","member":"device_name","bytes":20)");

    EXPECT_THAT(Ask(Kernel(), kBrief), HasSubstr(R"({"device_name":"XXXXXXXXXXXXXXXXXXXX","serial_number":"SATA1"})"));
}

int DisksIn(const std::string &answer)
{
    const Json tree(cJSON_Parse(answer.c_str()));
    return cJSON_GetArraySize(
        cJSON_GetObjectItemCaseSensitive(cJSON_GetObjectItemCaseSensitive(tree.get(), "result"), "disks"));
}

TEST_F(MisbehaviourTest, TooManyDisksInADeviceListAre65)
{
    Misbehave(R"("mode":"too_many_disks")");

    const std::string answer = Ask(Kernel(), kBrief);

    EXPECT_EQ(DisksIn(answer), 65);
    EXPECT_LE(answer.size(), 8192U) << "the number shall be what is wrong, not the size";
    EXPECT_THAT(answer, HasSubstr(R"({"device_name":"surplus64","serial_number":"SURPLUS64"})"));
}

TEST_F(MisbehaviourTest, TooManyDisksElsewhereAreOneMoreThanAsked)
{
    Misbehave(R"("mode":"too_many_disks")");
    EXPECT_EQ(DisksIn(Ask(Kernel(), RequestOf("dca_get_disks_base_info", R"({"devices":["sda","sdb"]})"))), 3);

    Misbehave(R"("mode":"too_many_disks","disks":10)");
    EXPECT_EQ(DisksIn(Ask(Kernel(), RequestOf("dca_get_disks_base_info", R"({"devices":["sda","sdb"]})"))), 10);
}

TEST_F(MisbehaviourTest, OversizeIsExactAndWholeJson)
{
    for (const size_t size : {size_t{8192}, size_t{8193}, size_t{500000}}) {
        Misbehave(R"("mode":"oversize","bytes":)" + std::to_string(size));

        const std::string answer = Ask(Kernel(), kBrief);

        EXPECT_EQ(answer.size(), size);
        EXPECT_EQ(DisksIn(answer), 6) << size;
    }
}

TEST_F(MisbehaviourTest, OversizeBeyondOneReceiveIsCutThere)
{
    Misbehave(R"("mode":"oversize","bytes":8192)");
    EXPECT_NE(Json(cJSON_Parse(AskOnce(Kernel(), kBrief).c_str())), nullptr);

    Misbehave(R"("mode":"oversize")");
    const std::string cut = AskOnce(Kernel(), kBrief);
    EXPECT_EQ(cut.size(), 8192U);
    EXPECT_EQ(Json(cJSON_ParseWithLength(cut.data(), cut.size())), nullptr);
}

TEST_F(MisbehaviourTest, ResultIsReplacedByAnyJson)
{
    for (const char *result :
         {R"({"disks":[{"device_name":"sdz","serial_number":""}]})", "null", "[1,2]", "\"text\""}) {
        Misbehave(std::string(R"("mode":"result","result":)") + result);

        EXPECT_EQ(Ask(Kernel(), kBrief), std::string(R"({"jsonrpc":"2.0","id":7,"result":)") + result + "}");
    }
}

TEST_F(MisbehaviourTest, AMethodsOwnMisbehaviourGoesBeforeTheGeneralOne)
{
    Misbehave(R"("mode":"garbage","text":"general")");
    Misbehave(R"("mode":"garbage","text":"own","method":"debug_switch")");

    EXPECT_EQ(Ask(Kernel(), RequestOf("debug_switch")), "own");
    EXPECT_EQ(Ask(Kernel(), kBrief), "general");

    EXPECT_EQ(Control(R"({"do":"behave","agent":"kernel","method":"debug_switch"})"), kOk);
    EXPECT_EQ(Ask(Kernel(), RequestOf("debug_switch")), "general");
    EXPECT_EQ(Control(R"({"do":"behave","agent":"kernel"})"), kOk);
    EXPECT_EQ(Ask(Kernel(), kBrief), right_);
}

TEST_F(MisbehaviourTest, CountEndsIt)
{
    Misbehave(R"("mode":"garbage","text":"bad","count":2,"method":"dca_get_disks_brief_info")");

    EXPECT_THAT(Ask(Kernel(), RequestOf("debug_switch")), HasSubstr("debug stat change"));
    EXPECT_EQ(Ask(Kernel(), kBrief), "bad");
    EXPECT_EQ(Ask(Kernel(), kBrief), "bad");
    EXPECT_EQ(Ask(Kernel(), kBrief), right_);
}

TEST_F(MisbehaviourTest, StoppedAgentHasNoSocketAndComesBack)
{
    const int waiting = Connect(Kernel());
    EXPECT_EQ(Control(R"({"do":"stop","agent":"kernel"})"), kOk);

    char byte = 0;
    EXPECT_EQ(recv(waiting, &byte, 1, 0), 0) << "open connections end";
    close(waiting);
    EXPECT_EQ(Connect(Kernel()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(Ask(Spdk(), kBrief), HasSubstr("NVME1"));
    EXPECT_THAT(Control(R"({"do":"stop","agent":"kernel"})"), HasSubstr("stopped already"));

    EXPECT_EQ(Control(R"({"do":"start","agent":"kernel"})"), kOk);
    EXPECT_EQ(Ask(Kernel(), kBrief), right_);
    EXPECT_THAT(Control(R"({"do":"start","agent":"kernel"})"), HasSubstr("serving already"));
}

TEST_F(MisbehaviourTest, StoppedAgentMayLeaveItsSocketFile)
{
    EXPECT_EQ(Control(R"({"do":"stop","agent":"kernel","keep_file":true})"), kOk);

    EXPECT_EQ(Connect(Kernel()), -1);
    EXPECT_EQ(errno, ECONNREFUSED);

    EXPECT_EQ(Control(R"({"do":"start","agent":"kernel"})"), kOk);
    EXPECT_EQ(Ask(Kernel(), kBrief), right_);
}

} // namespace
