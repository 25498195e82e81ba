// What the client sends, prints and ends with.
#include "ctl_fixture.h"

#include <atomic>

#include "cli/common/CliResultCode.h"

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace {

constexpr int kBusy = CORVANE_CLI::CLI_TASK_MAX_ERROR;

const std::string kOneVersion = "Suggestion:Try again. If it stays so, compare corvanectl --version with corvaned "
                                "--version: both must be of one version.\n";

} // namespace

using RequestTest = CtlTest;

TEST_F(RequestTest, SendsTheWordsAsTheyAreAndPrintsTheAnswer)
{
    Serve({Reply::Kind::ANSWER, 0, "Diskid          : 3\nModel           : a <b> & c\n"});

    const Finished run = Ctl({"show", "disk_info", "disk_id=3"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "Diskid          : 3\nModel           : a <b> & c\n");
    EXPECT_EQ(run.err, "");
    EXPECT_THAT(server_->Requests(), ElementsAre("show disk_info disk_id=3"));
    EXPECT_EQ(server_->LastAction(), "show");
}

TEST_F(RequestTest, LeavesUnknownCommandsToTheServer)
{
    Serve({Reply::Kind::ANSWER, CORVANE_CLI::CLI_COMMAND_PARAM_INVALID, "null"});

    const Finished run = Ctl({"ninechars", "what", "a=1", "b", "c=d"});

    EXPECT_EQ(run.exitCode, 5);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(server_->Requests(), ElementsAre("ninechars what a=1 b c=d"));
    EXPECT_EQ(server_->LastAction(), "ninechars");
}

TEST_F(RequestTest, PrintsNothingForAnAnswerOfNothing)
{
    Serve({Reply::Kind::ANSWER, 0, "null"});

    const Finished run = Ctl({"change", "disklife_prediction", "task_cycle=60"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out + run.err, "");
}

TEST_F(RequestTest, TakesTheSocketByItself)
{
    Serve({Reply::Kind::ANSWER, 0, "here\n"});

    const Finished run = RunToEnd({CORVANECTL_PATH, "-s", Socket(), "show", "summary"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "here\n");
}

TEST_F(RequestTest, KeepsBytesFromTheTerminalThatAreNoText)
{
    Serve({Reply::Kind::ANSWER, 0, "a\x7f\xc3\xa9\tb\n"});

    EXPECT_EQ(Ctl({"show", "x"}).out, "a???\tb\n");
}

struct CodeCase {
    int code;
    int exitCode;
};

class RefusalTest : public CtlTest, public ::testing::WithParamInterface<CodeCase> {};

TEST_P(RefusalTest, EndsWithItsStatusCauseAndSuggestion)
{
    Serve({Reply::Kind::ANSWER, GetParam().code, "change config feature_switch failed\n"});

    const Finished run = Ctl({"change", "config", "feature_switch=maybe", "--timeout", "1"});

    EXPECT_EQ(run.exitCode, GetParam().exitCode);
    EXPECT_EQ(run.out, "change config feature_switch failed\n");
    EXPECT_THAT(run.err, StartsWith("corvanectl: "));
    EXPECT_THAT(run.err, ::testing::ContainsRegex("\nCause:[^\n]{20,}\nSuggestion:[^\n]{20,}\n$"));
}

INSTANTIATE_TEST_SUITE_P(Codes, RefusalTest,
                         ::testing::Values(CodeCase{-1, 5}, CodeCase{0x40036901, 4}, CodeCase{0x40036903, 5},
                                           CodeCase{0x40036904, 5}, CodeCase{0x40036905, 5}, CodeCase{0x40036906, 5},
                                           CodeCase{0x40036907, 5}, CodeCase{0x4003690B, 5}, CodeCase{0x4003690C, 5},
                                           CodeCase{0x4003690D, 6}, CodeCase{0x4003690E, 5}, CodeCase{0x40036910, 5},
                                           CodeCase{0x40036911, 5}, CodeCase{0x40036912, 5}),
                         [](const auto &test) {
                             return test.param.code == -1 ? "Minus1" : "Code" + std::to_string(test.param.code);
                         });

TEST_F(RequestTest, NamesACodeThatNobodyKnows)
{
    Serve({Reply::Kind::ANSWER, 77, "null"});

    const Finished run = Ctl({"show", "summary"});

    EXPECT_EQ(run.exitCode, 5);
    EXPECT_EQ(run.err, "corvanectl: the server refused, code 0x0000004D\nno text for code 77; is "
                       "share/corvane/error_en.xml installed?\n");
}

TEST_F(RequestTest, SaysThatNobodyListens)
{
    const Finished missing = Ctl({"show", "summary"});
    EXPECT_EQ(missing.exitCode, 3);
    EXPECT_EQ(missing.err, "corvanectl: no connection to " + Socket() +
                               ": No such file or directory\nSuggestion:Start corvaned, or name its prefix with "
                               "--prefix.\n");

    Serve(Reply{});
    server_.reset(); // its socket file stays
    const Finished deserted = Ctl({"show", "summary"});
    EXPECT_EQ(deserted.exitCode, 3);
    EXPECT_THAT(deserted.err, HasSubstr(": Connection refused\n"));

    const Finished tooLong = RunToEnd({CORVANECTL_PATH, "-s", "/" + std::string(107, 'x'), "show", "summary"});
    EXPECT_EQ(tooLong.exitCode, 3);
    EXPECT_THAT(tooLong.err, HasSubstr(": File name too long\n"));
}

TEST_F(RequestTest, SaysThatTheConnectionEndedWithoutAnAnswer)
{
    Serve({Reply::Kind::CLOSE, 0, ""});

    const Finished run = Ctl({"show", "summary"});

    if (geteuid() == 0) { // who may do everything; others may not even ask
        EXPECT_EQ(run.exitCode, 3);
        EXPECT_THAT(run.err, HasSubstr(": the server closed the connection without an answer\nCause:"));
    } else {
        EXPECT_EQ(run.exitCode, 4);
    }
}

TEST_F(RequestTest, GivesUpOnAServerThatStalls)
{
    Serve({Reply::Kind::STALL, 0, ""});
    const Finished stalled = Ctl({"show", "summary", "--timeout", "1"});
    EXPECT_EQ(stalled.exitCode, 6);
    EXPECT_THAT(stalled.err, StartsWith("corvanectl: no answer from " + Socket() + " within 1 second\nSuggestion:"));

    server_.reset();
    Serve({Reply::Kind::PARTIAL, 0, ""});
    const Finished partial = Ctl({"show", "summary", "-t", "1"});
    EXPECT_EQ(partial.exitCode, 6);
}

TEST_F(RequestTest, SaysThatAnAnswerCannotBeRead)
{
    for (const char *document : {"nonsense", "<response><print_data>x</print_data></response>",
                                 "<response><error_code></error_code><print_data>x</print_data></response>",
                                 "<response><error_code>1x</error_code><print_data>x</print_data></response>"}) {
        server_.reset();
        Serve({Reply::Kind::RAW, 0, document});

        const Finished run = Ctl({"show", "summary"});

        EXPECT_EQ(run.exitCode, 1) << document;
        EXPECT_EQ(run.err, "corvanectl: the answer of the server cannot be read\n" + kOneVersion);
        EXPECT_EQ(run.out, "");
    }
}

TEST_F(RequestTest, SaysThatAnAnswerIsBrokenOff)
{
    Serve({Reply::Kind::BROKEN, 0, ""});

    const Finished run = Ctl({"show", "summary"});

    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "corvanectl: the answer of the server is broken off\n" + kOneVersion);
}

TEST_F(RequestTest, RepeatsWhileTheServerIsBusy)
{
    std::atomic<int> tries = 0;
    Serve([&tries](const std::string &) {
        return ++tries < 8 ? Reply{Reply::Kind::ANSWER, kBusy, "null"} : Reply{Reply::Kind::ANSWER, 0, "at last\n"};
    });

    const Finished run = Ctl({"show", "summary"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "at last\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(tries, 8);
}

TEST_F(RequestTest, GivesUpOnAServerThatStaysBusy)
{
    std::atomic<int> tries = 0;
    Serve([&tries](const std::string &) {
        tries++;
        return Reply{Reply::Kind::ANSWER, kBusy, "null"};
    });

    const Finished run = Ctl({"show", "summary", "--timeout", "1"});

    EXPECT_EQ(run.exitCode, 6);
    EXPECT_THAT(run.err, StartsWith("corvanectl: the server was busy for 1 second\nCause:"));
    EXPECT_GT(tries, 4);
    EXPECT_LT(tries, 20) << "it pauses longer and longer";
}

TEST_F(RequestTest, SaysThatTheServerWasBusyIfTheLastTryRunsOutOfTime)
{
    std::atomic<int> tries = 0;
    Serve([&tries](const std::string &) {
        return ++tries < 3 ? Reply{Reply::Kind::ANSWER, kBusy, "null"} : Reply{Reply::Kind::STALL, 0, ""};
    });

    const Finished run = Ctl({"show", "summary", "--timeout", "1"});

    EXPECT_EQ(run.exitCode, 6);
    EXPECT_THAT(run.err, StartsWith("corvanectl: the server was busy for 1 second\nCause:"));
}

TEST_F(RequestTest, FailsWithStandardOutput)
{
    Serve({Reply::Kind::ANSWER, 0, "text\n"});

    const Finished run =
        RunToEnd({"/bin/sh", "-c", std::string(CORVANECTL_PATH) + " -s " + Socket() + " show summary >/dev/full"});

    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "corvanectl: standard output: No space left on device\n");
}

struct UsageCase {
    const char *name;
    std::vector<std::string> words;
    std::string error;
};

class UsageTest : public CtlTest, public ::testing::WithParamInterface<UsageCase> {};

TEST_P(UsageTest, RefusesBeforeAnythingIsSent)
{
    Serve(Reply{});

    const Finished run = Ctl(GetParam().words);

    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "corvanectl: " + GetParam().error + "; see corvanectl --help\n");
    EXPECT_THAT(server_->Requests(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Lines, UsageTest,
    ::testing::Values(
        UsageCase{"Nothing", {}, "no command"},
        UsageCase{"OneWord", {"show"}, "show alone is no command: an action, what it is for, then KEY=VALUE pairs"},
        UsageCase{"EmptyWord", {"show", ""}, "a word of the command is empty"},
        UsageCase{"LongAction", {"tencharact", "x"}, "the action tencharact is longer than 9 characters"},
        UsageCase{"JsonOfAChange",
                  {"change", "config", "feature_switch=on", "--json"},
                  "--json goes with list, watch and the show commands, not with change config feature_switch=on"},
        UsageCase{"JsonOfTheUnknown",
                  {"--json", "show", "nothing"},
                  "--json goes with list, watch and the show commands, not with show nothing"},
        UsageCase{"WordBehindList", {"list", "all"}, "list takes no words behind it, but got all"},
        UsageCase{"WordBehindWatch", {"watch", "all"}, "watch takes no words behind it, but got all"},
        UsageCase{"IntervalOfAList", {"list", "-i", "3"}, "--interval and --count go with watch"},
        UsageCase{"CountOfAShow", {"show", "summary", "-n", "3"}, "--interval and --count go with watch"},
        UsageCase{"NoHelp", {"help", "nothing"}, "no help for nothing"},
        UsageCase{"UnknownOption", {"--frobnicate", "list"}, "The following argument was not expected: --frobnicate"},
        UsageCase{"NoTimeout", {"list", "--timeout"}, "--timeout: 1 required SECONDS:1 to 3600 missing"},
        UsageCase{"TimeoutTooShort", {"list", "--timeout", "0"}, "--timeout: Value 0 not in range 1 to 3600"},
        UsageCase{"TimeoutTooLong", {"list", "-t", "3601"}, "--timeout: Value 3601 not in range 1 to 3600"},
        UsageCase{"CountTooLarge", {"watch", "-n", "1000001"}, "--count: Value 1000001 not in range 1 to 1000000"},
        UsageCase{"IntervalZero", {"watch", "-i", "0"}, "--interval: Value 0 not in range 1 to 3600"}),
    [](const auto &test) { return test.param.name; });

TEST_F(RequestTest, RefusesEachCharacterThatIsNotSent)
{
    Serve(Reply{});
    for (const char letter : std::string("|;&$><`\\!\n\r\"")) {
        const Finished run = Ctl({"show", std::string("disk") + letter + "info"});

        EXPECT_EQ(run.exitCode, 2) << letter;
        EXPECT_THAT(run.err, HasSubstr("holds a character that is not sent"));
    }
    EXPECT_THAT(server_->Requests(), IsEmpty());
}

TEST_F(RequestTest, TellsItsVersion)
{
    EXPECT_THAT(Ctl({"--version"}).out, ::testing::MatchesRegex("corvanectl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}
