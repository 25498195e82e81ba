// Which pairs the commands take: the server would drop what it has no use for, and report success.
#include "ctl_fixture.h"

#include "cli/common/CliResultCode.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct KeysCase {
    const char *name;
    std::vector<std::string> words;
    std::string error;
};

class RefusedKeysTest : public CtlTest, public ::testing::WithParamInterface<KeysCase> {};

TEST_P(RefusedKeysTest, AreNotSent)
{
    Serve(Reply{});

    const Finished run = Ctl(GetParam().words);

    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "corvanectl: " + GetParam().error + "\n");
    EXPECT_THAT(server_->Requests(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Commands, RefusedKeysTest,
    ::testing::Values(
        KeysCase{
            "TwoSwitches",
            {"change", "config", "feature_switch=on", "takeover_disk_switch=on"},
            "change config takes one of feature_switch and takeover_disk_switch at a time: use a command for each; "
            "see corvanectl help change config"},
        KeysCase{
            "TwoSwitchesInOneArgument",
            {"change", "config", "takeover_disk_switch=on feature_switch=on"},
            "change config takes one of takeover_disk_switch and feature_switch at a time: use a command for each; "
            "see corvanectl help change config"},
        KeysCase{"CommandAndPairsInOneArgument",
                 {"change", "config takeover_disk_switch=on takeover_disk_switch=off"},
                 "change config takes takeover_disk_switch once: use a command for each value; see corvanectl help "
                 "change config"},
        KeysCase{"ThresholdAndCycle",
                 {"change", "slowdisk_detect_config", "min_slow_cycle=50", "disk_type=3", "min_threshold_value=100"},
                 "change slowdisk_detect_config takes one of min_slow_cycle and min_threshold_value at a time: use a "
                 "command for each; see corvanectl help change slowdisk_detect_config"},
        KeysCase{"TypeOfALifePrediction",
                 {"change", "disklife_prediction", "disk_type=0", "task_cycle=60"},
                 "change disklife_prediction does not take the key disk_type: give it task_cycle; see corvanectl help "
                 "change disklife_prediction"},
        KeysCase{"UnknownSwitch",
                 {"change", "config", "other_switch=on"},
                 "change config does not take the key other_switch: give it one of feature_switch and "
                 "takeover_disk_switch; see corvanectl help change config"},
        KeysCase{"UnknownKey",
                 {"change", "slowdisk_detect_config", "disk_type=0", "min_slow_cycles=50"},
                 "change slowdisk_detect_config does not take the key min_slow_cycles: give it disk_type and one of "
                 "min_threshold_value and min_slow_cycle; see corvanectl help change slowdisk_detect_config"},
        KeysCase{"KeyOfTheServersOwn",
                 {"change", "dpr_smart", "action=show", "disk_type=0", "task_cycle=20"},
                 "change dpr_smart does not take the key action: give it disk_type and task_cycle; see corvanectl help "
                 "change dpr_smart"},
        KeysCase{"RepeatedKey",
                 {"change", "dpr_smart", "disk_type=0", "task_cycle=20", "disk_type=1"},
                 "change dpr_smart takes disk_type once: use a command for each value; see corvanectl help change "
                 "dpr_smart"},
        KeysCase{"TwoDisks",
                 {"show", "drm_info", "disk_id=3", "disk_id=4"},
                 "show drm_info takes disk_id once: use a command for each value; see corvanectl help show drm_info"},
        KeysCase{"TwoDisksAsJson",
                 {"--json", "show", "iostat_info", "disk_id=3 disk_id=4"},
                 "show iostat_info takes disk_id once: use a command for each value; see corvanectl help show "
                 "iostat_info"},
        KeysCase{"NoPair",
                 {"show", "disk_info", "3"},
                 "3 is no KEY=VALUE pair: write key, equals sign and value without blanks between them; see "
                 "corvanectl help show disk_info"},
        KeysCase{"NoKey",
                 {"show", "smart_info", "=3"},
                 "=3 is no KEY=VALUE pair: write key, equals sign and value without blanks between them; see "
                 "corvanectl help show smart_info"},
        KeysCase{"BlanksAroundTheEqualsSign",
                 {"change", "disklife_prediction", "task_cycle", "=", "60"},
                 "task_cycle is no KEY=VALUE pair: write key, equals sign and value without blanks between them; see "
                 "corvanectl help change disklife_prediction"},
        KeysCase{"WordsBehindASummary",
                 {"show", "summary", "disk_id=3"},
                 "show summary takes nothing behind it, but got disk_id=3: leave it out; see corvanectl help show "
                 "summary"},
        KeysCase{"WordsBehindAShowOfSettings",
                 {"show", "dpr_smart", "disk_type=0"},
                 "show dpr_smart takes nothing behind it, but got disk_type=0: leave it out; see corvanectl help show "
                 "dpr_smart"},
        KeysCase{"EmptyWordInAnArgument",
                 {"change", "config", "feature_switch=on  takeover_disk_switch=on"},
                 "a word of the command is empty; see corvanectl --help"}),
    [](const auto &test) { return test.param.name; });

class SentKeysTest : public CtlTest, public ::testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(SentKeysTest, GoThroughAsTheyAre)
{
    Serve(Reply{});
    std::string request;
    for (const std::string &word : GetParam()) {
        request += (request.empty() ? "" : " ") + word;
    }

    const Finished run = Ctl(GetParam());

    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(server_->Requests(), ElementsAre(request));
}

INSTANTIATE_TEST_SUITE_P(
    Commands, SentKeysTest,
    ::testing::Values(
        std::vector<std::string>{"show", "summary"}, std::vector<std::string>{"show", "slowdisk"},
        std::vector<std::string>{"show", "disk_info", "disk_id=3"},
        std::vector<std::string>{"show", "iostat_info", "disk_id=3"},
        std::vector<std::string>{"show", "smart_info", "disk_id=3"},
        std::vector<std::string>{"show drm_info", "disk_id=3"}, std::vector<std::string>{"show", "config"},
        std::vector<std::string>{"show", "dpr_smart"}, std::vector<std::string>{"show", "slowdisk_detect_config"},
        std::vector<std::string>{"show", "disklife_prediction"},
        std::vector<std::string>{"change", "config", "feature_switch=on"},
        std::vector<std::string>{"change", "config takeover_disk_switch=off"},
        std::vector<std::string>{"change", "slowdisk_detect_config", "min_slow_cycle=10", "disk_type=0"},
        std::vector<std::string>{"change", "slowdisk_detect_config", "disk_type=0", "min_threshold_value=1"},
        std::vector<std::string>{"change", "dpr_smart", "task_cycle=20", "disk_type=1"},
        std::vector<std::string>{"change", "disklife_prediction", "task_cycle=60"},
        // Keys that are missing, and values, are the server's affair.
        std::vector<std::string>{"show", "disk_info"}, std::vector<std::string>{"show", "disk_info", "disk_id="},
        std::vector<std::string>{"change", "config"},
        std::vector<std::string>{"change", "config", "feature_switch=a=b"},
        // So is all of a command that the client does not know.
        std::vector<std::string>{"change", "summary", "a=1", "a=1", "b"},
        std::vector<std::string>{"show", "other", "disk_id=1", "disk_id=2", "c  d"},
        std::vector<std::string>{"reset", "config", "feature_switch=on", "takeover_disk_switch=on"}));

using PathsTest = CtlTest;

TEST_F(PathsTest, AreNotEmpty)
{
    Serve(Reply{});
    const std::vector<std::vector<std::string>> lines = {
        {"--prefix", "", "-s", Socket()}, {"-p", "", "-s", Socket()}, {"--prefix=", "-s", Socket()},
        {"--socket", "", "-p", folder_},  {"-s", "", "-p", folder_},  {"--socket=", "-p", folder_},
    };
    for (const std::vector<std::string> &line : lines) {
        std::vector<std::string> arguments = {CORVANECTL_PATH};
        arguments.insert(arguments.end(), line.begin(), line.end());
        arguments.push_back("list");
        const std::string option = line[0].find('p') != std::string::npos ? "--prefix" : "--socket";

        const Finished run = RunToEnd(arguments);

        EXPECT_EQ(run.exitCode, 2) << line[0];
        EXPECT_EQ(run.err, "corvanectl: " + option + ": the path is empty; see corvanectl --help\n") << line[0];
    }
    EXPECT_THAT(server_->Requests(), IsEmpty());
}

TEST_F(PathsTest, MayBeGivenWithAnEqualsSign)
{
    Serve({Reply::Kind::ANSWER, 0, "here\n"});

    EXPECT_EQ(RunToEnd({CORVANECTL_PATH, "--socket=" + Socket(), "show", "summary"}).out, "here\n");
}

using LengthTest = CtlTest;

TEST_F(LengthTest, OfACommandHasALimit)
{
    Serve(Reply{});
    std::vector<std::string> words = {"show", "other"};
    words.resize(11, std::string(120000, 'x'));

    const Finished run = Ctl(words);

    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.err, HasSubstr("the command is longer than 1 MiB; "));
    EXPECT_THAT(server_->Requests(), IsEmpty());
}
