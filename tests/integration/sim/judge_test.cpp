// The comparison of a scenario's expectations with a status of corvaned.
#include "sim_process.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::string Expecting(const std::string &expectation)
{
    return R"({"disks":[{"device_name":"sda","serial_number":"S1","disk_type":"SSD_SAS","vendor_id":"ORSTAN",)"
           R"("model_number":"M","disk_capacity":1)" +
           (expectation.empty() ? "" : ",\"expect\":" + expectation) + "}]}";
}

const std::string kFound = R"({"time":"t","disks":[{"id":0,"state":"normal","sn":"S0"},)"
                           R"({"id":3,"state":"prefail","sn":"S1","strategy":"Migrate",)"
                           R"("life":{"healthScore":37,"diskLife":600}}]})"
                           "\n";

class JudgeTest : public SimTest {
protected:
    Finished Judge(const std::string &expectation, const std::string &status = kFound)
    {
        return RunSim(
            {"--scenario", WriteFile("s.json", Expecting(expectation)), "--judge", WriteFile("status.jsonl", status)});
    }
};

TEST_F(JudgeTest, AllAsExpectedIsExitCode0)
{
    const std::string all = R"({"state":"prefail","score":37,"life":600,"strategy":"Migrate"})";

    const Finished judged = Judge(all);

    EXPECT_EQ(judged.exitCode, 0) << judged.err;
    EXPECT_EQ(judged.out, "ok     sda          S1                   " + all + "\n1 of 1 disks as expected\n");
}

struct Difference {
    const char *expectation;
    const char *text;
};

class JudgeDifferenceTest : public JudgeTest, public testing::WithParamInterface<Difference> {};

TEST_P(JudgeDifferenceTest, IsToldWithExitCode1)
{
    const Finished judged = Judge(GetParam().expectation);

    EXPECT_EQ(judged.exitCode, 1);
    EXPECT_EQ(judged.out, std::string("WRONG  sda          S1                   ") + GetParam().text +
                              "\n0 of 1 disks as expected\n");
}

INSTANTIATE_TEST_SUITE_P(Members, JudgeDifferenceTest,
                         testing::Values(Difference{R"({"state":"slow"})", "state is prefail, expected slow"},
                                         Difference{R"({"state":"offline"})", "state is prefail, expected offline"},
                                         Difference{R"({"score":100})", "score is 37, expected 100"},
                                         Difference{R"({"life":601})", "life is 600, expected 601"},
                                         Difference{R"({"life":"none"})", "life is 600, expected missing"},
                                         Difference{R"({"strategy":"None"})", "strategy is Migrate, expected None"},
                                         Difference{R"({"state":"slow","life":0})",
                                                    "state is prefail, expected slow; life is 600, expected 0"}));

TEST_F(JudgeTest, WhatTheStatusLacksIsMissing)
{
    const std::string bare = "{\"disks\":[{\"sn\":\"S1\"}]}\n";

    EXPECT_THAT(
        Judge(R"({"state":"normal","score":100,"life":1,"strategy":"x"})", bare).out,
        HasSubstr("state is missing, expected normal; score is missing, expected 100; life is missing, expected "
                  "1; strategy is missing, expected x\n"));
    EXPECT_EQ(Judge(R"({"life":"none"})", bare).exitCode, 0);
}

TEST_F(JudgeTest, DiskThatIsNotOnlineIsWrongUnlessItIsExpectedToBeOffline)
{
    const std::string none = "{\"disks\":[]}\n";

    EXPECT_THAT(Judge(R"({"state":"normal"})", none).out,
                HasSubstr("WRONG  sda          S1                   is not online\n"));
    EXPECT_EQ(Judge(R"({"state":"offline"})", none).exitCode, 0);
}

TEST_F(JudgeTest, DiskWithoutExpectationIsNotJudged)
{
    const Finished judged = Judge("");

    EXPECT_EQ(judged.out, "0 of 0 disks as expected\n");
    EXPECT_EQ(judged.exitCode, 0);
}

TEST_F(JudgeTest, LastWholeLineCountsAndLogLinesDoNot)
{
    const std::string old = R"({"disks":[{"sn":"S1","state":"slow"}]})";

    const Finished judged =
        Judge(R"({"state":"prefail"})", "[INIT] DEBUG\n" + old + "\n" + kFound + "{\"error\":1}\n" + old);

    EXPECT_EQ(judged.exitCode, 0) << judged.out;
}

TEST_F(JudgeTest, FileWithoutAStatusIsTold)
{
    const std::string scenario = WriteFile("s.json", Expecting(R"({"state":"slow"})"));

    const Finished none = RunSim({"--scenario", scenario, "--judge", WriteFile("log", "starting\n")});
    const Finished missing = RunSim({"--scenario", scenario, "--judge", Folder() + "/nosuch"});

    EXPECT_EQ(none.exitCode, 1);
    EXPECT_THAT(none.err, StartsWith("corvane-sim: " + Folder() + "/log: holds no status of corvaned; run it with"));
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_THAT(missing.err, StartsWith("corvane-sim: " + Folder() + "/nosuch: holds no status"));
}

} // namespace
