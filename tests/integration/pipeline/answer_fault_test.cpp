#include "pipeline_fixture.h"

using namespace pipeline_test;

namespace {

/** Replaces the first @p from of a text. */
std::string Replaced(std::string text, const std::string &from, const std::string &to)
{
    const size_t place = text.find(from);
    EXPECT_NE(place, std::string::npos) << from;
    return place == std::string::npos ? text : text.replace(place, from.size(), to);
}

/** A right answer blown up to this many bytes; one write. */
std::string Padded(const std::string &right, size_t size)
{
    EXPECT_LE(right.size(), size);
    return "{" + std::string(size - right.size(), ' ') + right.substr(1);
}

/** The first disk once more behind the last, until there are more than were asked for, or fit into a list. */
std::string WithTooManyDisks(const std::string &right, size_t most)
{
    const CJsonPtr answer(cJSON_Parse(right.c_str()));
    cJSON *disks = cJSON_GetObjectItem(cJSON_GetObjectItem(answer.get(), "result"), "disks");
    while (cJSON_GetArraySize(disks) <= static_cast<int>(most)) {
        cJSON_AddItemToArray(disks, cJSON_Duplicate(cJSON_GetArrayItem(disks, 0), 1));
    }
    const CJsonText text(cJSON_PrintUnformatted(answer.get()));
    return text.get();
}

/** A way in which an answer is wrong, and what comes of it. */
struct Wrong {
    const char *name;
    uint32_t code;    /**< of a query; 0: the answer is good enough */
    const char *text; /**< logged at error level, and "" for the texts of the copy */
    std::function<Reply(const AgentRequest &, const std::string &right)> spoil;
    /** Of each of the five tries, for all requests of a cycle: the right answers must come within five. */
    long timeOutMs = 20000;
};
void PrintTo(const Wrong &wrong, std::ostream *out)
{
    *out << wrong.name;
}

Reply Say(std::string text)
{
    return {.manner = Manner::Answer, .text = std::move(text)};
}

std::vector<Wrong> Wrongs()
{
    const char *noJson = "Response maybe not JSON, or malloc failed?";
    const char *noPost = "Post Request failed(32).";
    const char *bad = "Response(see in debug log) not IsValidJsonResponse.";
    const char *copy = "";
    using Request = AgentRequest;
    using Text = std::string;
    return {
        {"NotJson", 5, noJson, [](const Request &, const Text &) { return Say("hello"); }},
        {"Empty", 5, noJson, [](const Request &, const Text &) { return Say(Text(1, '\0')); }},
        {"Cut", 5, noJson, [](const Request &, const Text &right) { return Say(right.substr(0, right.size() / 2)); }},
        {"LastByteMissing", 5, noJson,
         [](const Request &, const Text &right) { return Say(right.substr(0, right.size() - 1)); }},
        {"Fills8192Bytes", 0, "", [](const Request &, const Text &right) { return Say(Padded(right, 8192)); }},
        {"Fills8193Bytes", 5, noJson, [](const Request &, const Text &right) { return Say(Padded(right, 8193)); }},
        {"Fills20000Bytes", 5, noJson, [](const Request &, const Text &right) { return Say(Padded(right, 20000)); }},
        {"ClosesBeforeReading", 5, noPost,
         [](const Request &, const Text &) {
             return Reply{Manner::CloseUnread, ""};
         }},
        {"ClosesAfterReading", 5, noJson,
         [](const Request &, const Text &) {
             return Reply{Manner::CloseRead, ""};
         }},
        {"Silent", 5, noPost,
         [](const Request &, const Text &) {
             return Reply{Manner::Silent, ""};
         },
         300},
        // The second try comes after one time-out; the agent has four more of them to answer it.
        {"Slow", 0, "",
         [](const Request &, const Text &right) {
             return Reply{Manner::Slow, right};
         },
         700},
        {"OtherVersion", 74, bad,
         [](const Request &, const Text &right) { return Say(Replaced(right, R"("2.0")", R"("2.1")")); }},
        {"IdIsText", 74, bad,
         [](const Request &, const Text &right) { return Say(Replaced(right, R"("id":1)", R"("id":"1")")); }},
        {"NoResult", 74, bad,
         [](const Request &, const Text &right) { return Say(Replaced(right, R"("result")", R"("error")")); }},
        {"UnknownMethod", 74, bad,
         [](const Request &, const Text &) { return Say(dcm_test::Answer(R"({"result":"sokect ok"})")); }},
        {"DisksAreNoArray", 74, bad,
         [](const Request &, const Text &) {
             return Say(dcm_test::Answer(R"({"tick_rate":"1","ticks":"1","disks":{"a":1}})"));
         }},
        {"TooManyDisks", 74, bad,
         [](const Request &request, const Text &right) {
             return Say(WithTooManyDisks(right, request.devices.empty() ? 64 : request.devices.size()));
         }},
        {"DiskIsNumber", 22, copy,
         [](const Request &, const Text &) {
             return Say(dcm_test::Answer(R"({"tick_rate":"1","ticks":"1","disks":[5]})"));
         }},
        {"SerialNumberIsNumber", 22, copy,
         [](const Request &, const Text &right) {
             return Say(Replaced(right, R"("serial_number":")", R"("serial_number":5,"was":")"));
         }},
        {"TooLongSerialNumber", 34, copy,
         [](const Request &, const Text &right) {
             return Say(Replaced(right, R"("serial_number":")", R"("serial_number":")" + Text(40, 'S')));
         }},
    };
}

/** Seconds until a message is due again. */
uint32_t PeriodOf(uint32_t type)
{
    return type == MESSAGE_DISK_BASE_INFO ? 3600 : 3;
}

class WrongAnswerTest : public PipelineTest, public ::testing::WithParamInterface<std::tuple<Wrong, uint32_t>> {
protected:
    const Wrong &wrong_ = std::get<0>(GetParam());
    const uint32_t type_ = std::get<1>(GetParam());
    const std::string method_ = kMethods[type_];

    void SpoilKernelAnswers() { kernel_->Spoil(method_, wrong_.spoil); }
    void CycleOfKernel()
    {
        timeOutMs_ = wrong_.timeOutMs;
        KernelCycle();
        timeOutMs_ = 20000;
    }
    void ExpectTextsOfTheAnswer() const
    {
        if (*wrong_.text != '\0') {
            EXPECT_TRUE(Logged(3, "DCM", wrong_.text));
        }
        if (wrong_.text == std::string("Post Request failed(32).")) {
            EXPECT_TRUE(Logged(7, "DCM", "retry 4 times."));
            EXPECT_TRUE(Logged(3, "DCM", "retry 5 times, wait next timer period to retry."));
        }
    }
};

class WrongRecordsTest : public WrongAnswerTest {};
class WrongListTest : public WrongAnswerTest {};

std::string NameOf(const ::testing::TestParamInfo<std::tuple<Wrong, uint32_t>> &info)
{
    constexpr std::array<const char *, 4> kinds{{"List", "Base", "Health", "IoStat"}};
    return std::string(std::get<0>(info.param).name) + "In" + kinds[std::get<1>(info.param)];
}

} // namespace

TEST_P(WrongRecordsTest, HasItsNumberLosesNothingAndLeavesTheOtherAgentAlone)
{
    BringUp();
    std::map<std::string, std::string> known;
    for (const SimDisk &disk : kernelDisks_) {
        known[disk.sn] = Bytes(type_, disk.sn);
    }
    const time_t lastSuccess = contexts_[0].last[type_];
    SetGeneration(3);
    now_ += PeriodOf(type_);
    SpoilKernelAnswers();

    CycleOfKernel();
    UserCycle();

    for (const SimDisk &disk : kernelDisks_) {
        if (wrong_.code == 0) {
            EXPECT_TRUE(IsOf(type_, disk.sn, 3, 2)) << disk.sn;
        } else {
            EXPECT_EQ(Bytes(type_, disk.sn), known[disk.sn]) << disk.sn;
        }
        for (const uint32_t other : {MESSAGE_DISK_HEALTH_INFO, MESSAGE_DISK_IO_INFO_FRAME}) {
            EXPECT_TRUE(other == type_ || IsOf(other, disk.sn, 3, 2)) << disk.sn << " kind " << other;
        }
    }
    for (const SimDisk &disk : userDisks_) {
        EXPECT_TRUE(IsOf(type_, disk.sn, 3, 2)) << disk.sn;
    }
    const std::string code = std::to_string(wrong_.code);
    const bool failed = wrong_.code != 0;
    EXPECT_EQ(Logged(3, "DCM", "QueryMessageAndSave(" + method_ + ") failed(" + code + ")."), failed);
    EXPECT_EQ(Logged(3, "DCM", "query agent(sim_kernel) message(" + method_ + ") failed(ret:" + code + ")."), failed);
    EXPECT_EQ(Logged(3, "DCM", "PostRequestWithJSON failed"), wrong_.code == 5);
    EXPECT_EQ(Logged(3, "DCM", "Query Agent(sim_kernel) message(" + method_ + ") Batch Copy Failed(" + code + ")."),
              wrong_.code == 22 || wrong_.code == 34);
    ExpectTextsOfTheAnswer();
    EXPECT_EQ(contexts_[0].last[type_], failed ? lastSuccess : now_.load());
    EXPECT_EQ(contexts_[1].last[type_], now_.load());

    // Due again at once, and the interval of the counters spans the gap.
    kernel_->Spoil("", nullptr);
    SetGeneration(4);
    now_ += 3;
    const bool due = failed || type_ != MESSAGE_DISK_BASE_INFO;

    KernelCycle();

    for (const SimDisk &disk : kernelDisks_) {
        EXPECT_TRUE(IsOf(type_, disk.sn, due ? 4 : 3, failed ? 2 : 3)) << disk.sn;
    }
}
INSTANTIATE_TEST_SUITE_P(Answers, WrongRecordsTest,
                         ::testing::Combine(::testing::ValuesIn(Wrongs()),
                                            ::testing::Values(MESSAGE_DISK_BASE_INFO, MESSAGE_DISK_HEALTH_INFO,
                                                              MESSAGE_DISK_IO_INFO_FRAME)),
                         NameOf);

TEST_P(WrongListTest, KeepsTheRecordsAndTakesNoDiskOfTheOtherAgent)
{
    BringUp();
    std::map<std::string, std::string> known;
    for (const SimDisk &disk : kernelDisks_) {
        for (const uint32_t type : {1u, 2u, 3u}) {
            known[disk.sn] += Bytes(type, disk.sn);
        }
    }
    SetGeneration(3);
    now_ += 3;
    SpoilKernelAnswers();
    sleeps_.clear();

    CycleOfKernel();

    const bool failed = wrong_.code != 0;
    for (const SimDisk &disk : kernelDisks_) {
        std::string after;
        for (const uint32_t type : {1u, 2u, 3u}) {
            after += Bytes(type, disk.sn);
        }
        EXPECT_EQ(after == known[disk.sn], failed) << disk.sn;
    }
    EXPECT_EQ(Logged(7, "DCM", "query Agent(sim_kernel) failed(networkFail)."), failed);
    EXPECT_EQ(Sleeps(), std::vector<uint32_t>{failed ? 5000u : 3000u});
    EXPECT_EQ(Logged(3, "DCM", "PostRequestWithJSON failed, maybe Offline response parse"), wrong_.code == 5);
    EXPECT_EQ(Logged(3, "DCM", "Batch Copy Failed(" + std::to_string(wrong_.code) + ")."),
              wrong_.code == 22 || wrong_.code == 34);
    ExpectTextsOfTheAnswer();

    // To the scan an agent without a list has no disks; the other agent's stay what they are.
    ForgetEvents();
    std::map<std::string, uint32_t> ids;
    for (const SimDisk &disk : userDisks_) {
        ids[disk.sn] = IdOf(disk.sn);
    }
    timeOutMs_ = wrong_.timeOutMs;

    ScanAllAgentDeviceListScheduleTask();

    timeOutMs_ = 20000;
    for (const SimDisk &disk : kernelDisks_) {
        EXPECT_EQ(IdOf(disk.sn) == kNoId, failed) << disk.sn;
    }
    EXPECT_EQ(Events().size(), failed ? kernelDisks_.size() : 0u);
    UserCycle();
    for (const SimDisk &disk : userDisks_) {
        EXPECT_EQ(IdOf(disk.sn), ids[disk.sn]);
        EXPECT_TRUE(IsOf(MESSAGE_DISK_HEALTH_INFO, disk.sn, 3, 2));
        EXPECT_TRUE(IsOf(MESSAGE_DISK_IO_INFO_FRAME, disk.sn, 3, 2));
    }

    // They come back as new disks as soon as the agent says so again.
    kernel_->Spoil("", nullptr);

    ScanAllAgentDeviceListScheduleTask();

    for (const SimDisk &disk : kernelDisks_) {
        EXPECT_NE(IdOf(disk.sn), kNoId) << disk.sn;
    }
}
INSTANTIATE_TEST_SUITE_P(Answers, WrongListTest,
                         ::testing::Combine(::testing::ValuesIn(Wrongs()), ::testing::Values(MESSAGE_DISK_BRIEF_INFO)),
                         NameOf);
