#include "host_fixture.h"

namespace {

using testing::ElementsAre;

class PostRequestWithJSONTest : public HostTest {
protected:
    void SetUp() override
    {
        StartQuiet();
        request_.reset(cJSON_Parse(R"({"jsonrpc":"2.0","method":"m","id":1})"));
        ClearHostLines();
    }

    bool Post()
    {
        const lib::AgentInfo agent = KernelAgent();
        const std::unique_ptr<cJSON, void (*)(cJSON *)> response(lib::PostRequestWithJSON(&agent, request_.get()),
                                                                 cJSON_Delete);
        return response != nullptr;
    }

    std::unique_ptr<cJSON, void (*)(cJSON *)> request_{nullptr, cJSON_Delete};
};

TEST_F(PostRequestWithJSONTest, SendsTheTextWithoutATerminatorAndLogsBothWays)
{
    kernel_ = std::make_unique<FakeAgent>(kKernelSocket);
    kernel_->Bytes("m", R"({"jsonrpc":"2.0","id":1,"result":{}})");

    EXPECT_TRUE(Post());

    EXPECT_THAT(kernel_->Requests(), ElementsAre(R"({"jsonrpc":"2.0","method":"m","id":1})"));
    EXPECT_EQ(HostLogged(7, R"([DCM]post agent(unique_DCAK_agent) request==>{"jsonrpc":"2.0","method":"m","id":1})"),
              1u);
    EXPECT_EQ(HostLogged(7, R"([DCM]send to /tmp/dcak.sock, message:{"jsonrpc":"2.0","method":"m","id":1})"), 1u);
    EXPECT_EQ(HostLogged(7, "[DCM]send request size(37)"), 1u);
    EXPECT_EQ(HostLogged(7, "[DCM]receive response size(36)"), 1u);
    EXPECT_EQ(HostLogged(7, R"([DCM]post agent(unique_DCAK_agent) response==>{"jsonrpc":"2.0","id":1,"result":{}})"),
              1u);
}

TEST_F(PostRequestWithJSONTest, MissingSocketIsOneConnectAnd22)
{
    EXPECT_FALSE(Post());

    EXPECT_EQ(HostLogged("[DCM]clientFd connect server failed, errno(2)"), 1u);
    EXPECT_EQ(HostLogged("[DCM]Post Request failed(22)."), 1u);
    EXPECT_EQ(HostLogged(7, "[DCM]retry 0 times."), 0u);
}

TEST_F(PostRequestWithJSONTest, PeerThatReadsAndClosesIsAParseFailureWithoutRetry)
{
    kernel_ = std::make_unique<FakeAgent>(kKernelSocket);
    kernel_->On("m", [](const std::string &) { return FakeReply{FakeReply::CLOSE, ""}; });

    EXPECT_FALSE(Post());

    EXPECT_EQ(HostLogged("[DCM]Response maybe not JSON, or malloc failed?"), 1u);
    EXPECT_EQ(HostLogged(7, "[DCM]retry 0 times."), 0u);
    EXPECT_EQ(kernel_->Requests().size(), 1u);
}

TEST_F(PostRequestWithJSONTest, PeerThatClosesBeforeItReadsIsFiveFailuresAnd32)
{
    kernel_ = std::make_unique<FakeAgent>(kKernelSocket);
    kernel_->RefuseAll();

    EXPECT_FALSE(Post());

    EXPECT_EQ(HostLogged(7, "[DCM]retry 4 times."), 1u);
    EXPECT_EQ(HostLogged("[DCM]retry 5 times, wait next timer period to retry."), 1u);
    EXPECT_EQ(HostLogged("[DCM]Post Request failed(32)."), 1u);
}

TEST_F(PostRequestWithJSONTest, FirstPartOfAnAnswerIsAllThatIsRead)
{
    kernel_ = std::make_unique<FakeAgent>(kKernelSocket);
    kernel_->On("m", [](const std::string &) { return FakeReply{FakeReply::HALF, R"({"jsonrpc":"2.0","id":1,)"}; });

    EXPECT_FALSE(Post());

    EXPECT_EQ(HostLogged("[DCM]Response maybe not JSON, or malloc failed?"), 1u);
    EXPECT_EQ(HostLogged(7, "[DCM]receive response size(24)"), 1u);
}

TEST_F(PostRequestWithJSONTest, SilentPeerIsAskedFiveTimes)
{
    kernel_ = std::make_unique<FakeAgent>(kKernelSocket);
    kernel_->On("m", [](const std::string &) { return FakeReply{FakeReply::SILENT, ""}; });

    EXPECT_FALSE(Post());

    EXPECT_EQ(HostLogged("[DCM]socket receive response from server failed, errno(11)"), 5u);
    for (const char *line : {"[DCM]retry 0 times.", "[DCM]retry 4 times."}) {
        EXPECT_EQ(HostLogged(7, line), 1u) << line;
    }
    EXPECT_EQ(HostLogged("[DCM]retry 5 times, wait next timer period to retry."), 1u);
    EXPECT_EQ(HostLogged("[DCM]Post Request failed(32)."), 1u);
    ASSERT_TRUE(Eventually([&] { return kernel_->Requests().size() == 5; }));
}

TEST_F(PostRequestWithJSONTest, TakesExactly8192Bytes)
{
    kernel_ = std::make_unique<FakeAgent>(kKernelSocket);
    const std::string head = R"({"jsonrpc":"2.0","id":1,"result":")";
    kernel_->Bytes("m", head + std::string(8192 - head.size() - 2, 'x') + "\"}");

    EXPECT_TRUE(Post());
    EXPECT_EQ(HostLogged(7, "[DCM]receive response size(8192)"), 1u);

    kernel_->Bytes("m", head + std::string(8193 - head.size() - 2, 'x') + "\"}");
    EXPECT_FALSE(Post());
    EXPECT_EQ(HostLogged("[DCM]Response maybe not JSON, or malloc failed?"), 1u);
}

TEST_F(PostRequestWithJSONTest, GarbageIsNoAnswer)
{
    kernel_ = std::make_unique<FakeAgent>(kKernelSocket);
    for (const std::string &text :
         {std::string("garbage"), std::string("{"), std::string(1, '\0'), std::string("\xff\xfe")}) {
        kernel_->Bytes("m", text);
        EXPECT_FALSE(Post());
    }
    EXPECT_EQ(HostLogged("[DCM]Response maybe not JSON, or malloc failed?"), 4u);
}

class PostRequestTest : public PostRequestWithJSONTest {};

TEST_F(PostRequestTest, PathOf32CharactersIsUsedWhole)
{
    const std::string path = "/tmp/" + std::string(27, 'p');
    kernel_ = std::make_unique<FakeAgent>(path);
    kernel_->Bytes("m", "{}");
    lib::AgentInfo agent{};
    (void)path.copy(agent.address.path, 32);
    std::vector<char> buffer(65);
    lib::ResponseBuffer response{64, buffer.data()};
    const std::string text = R"({"method":"m"})";

    EXPECT_EQ(lib::PostRequest(&agent, static_cast<uint32_t>(text.size()) + 1, text.c_str(), &response), 0u);

    EXPECT_STREQ(buffer.data(), "{}");
    EXPECT_THAT(kernel_->Requests(), ElementsAre(text));
}

TEST_F(PostRequestTest, UnknownTypeIs22)
{
    lib::AgentInfo agent = KernelAgent();
    agent.type = 2;
    std::vector<char> buffer(65);
    lib::ResponseBuffer response{64, buffer.data()};

    EXPECT_EQ(lib::PostRequest(&agent, 2, "x", &response), 22u);

    EXPECT_EQ(HostLogged("[DCM]AgentType do not match (2)."), 1u);
}

class IsAgentEqualTest : public HostTest {};

TEST_F(IsAgentEqualTest, ComparesNameTypeAndAddress)
{
    Open();
    const lib::AgentInfo agent = KernelAgent();
    lib::AgentInfo other = agent;

    EXPECT_TRUE(lib::IsAgentEqual(&agent, &other));
    other.address.path[31] = 'x';
    EXPECT_FALSE(lib::IsAgentEqual(&agent, &other));
    other = agent;
    other.type = 1;
    EXPECT_FALSE(lib::IsAgentEqual(&agent, &other));
    other = agent;
    other.name[0] = 'U';
    EXPECT_FALSE(lib::IsAgentEqual(&agent, &other));
    EXPECT_FALSE(lib::IsAgentEqual(nullptr, &agent));
    EXPECT_FALSE(lib::IsAgentEqual(&agent, nullptr));
}

class CastSizeToUint32Test : public HostTest {};

TEST_F(CastSizeToUint32Test, GivesAllOnesForWhatDoesNotFit)
{
    StartQuiet();

    EXPECT_EQ(lib::CastSizeToUint32(4294967295U), 4294967295U);
    EXPECT_EQ(lib::CastSizeToUint32(size_t{1} << 32), kFail);

    EXPECT_EQ(HostLogged(7, "[DCM]size_t(4294967296) cast to uint32 overflow"), 1u);
}

} // namespace
