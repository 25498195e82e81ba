// Disks of which a record is missing, and values that will never come: no disk takes the table away from the others.
#include "ctl_fixture.h"

#include "cli/common/CliResultCode.h"

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;

class RecordsTest : public CtlTest {
protected:
    /** As corvaned does for a disk that is online while this record of it is not there. */
    void ServeWithout(const std::string &missing)
    {
        Serve([this, missing](const std::string &request) {
            return request == missing ? Reply{Reply::Kind::ANSWER, CORVANE_CLI::CLI_COMMAND_EXEC_FAILED, "null"}
                                      : Reply{Reply::Kind::ANSWER, 0, answers_.at(request)};
        });
    }

    std::map<std::string, std::string> answers_ = FiveDisks();
};

TEST_F(RecordsTest, ADiskWithoutIoStatisticsHasNoUtilisation)
{
    ServeWithout("show iostat_info disk_id=12");

    const Finished run = Ctl({"watch", "-n", "2", "-i", "1"});

    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(CountOf(run.out, "\n12 sdab   SAS SSD    SN-D                 normal    100     >60       ?\n"), 2u)
        << run.out;
    EXPECT_EQ(CountOf(run.out, " 7.25%\n"), 2u);
    EXPECT_THAT(Ctl({"watch", "-n", "1", "--json"}).out,
                AllOf(HasSubstr(R"("sn":"SN-D","watched":true,"state":"normal","prediction":"done","score":100,)"
                                R"("life_months":61,"utilization_percent":null})"),
                      HasSubstr(R"("utilization_percent":7.25})")));
}

TEST_F(RecordsTest, ADiskWithoutAVerdictKeepsItsRow)
{
    ServeWithout("show drm_info disk_id=12");

    const Finished list = Ctl({"list"});
    EXPECT_EQ(list.exitCode, 0) << list.err;
    EXPECT_THAT(list.out,
                HasSubstr("\n12 sdab   SAS SSD       - -                                SN-D                 ?"
                          "           ?       ? ?\n63 "));
    EXPECT_THAT(Compact(Ctl({"list", "--json"}).out),
                HasSubstr(R"("model":null,"sn":"SN-D","watched":true,"state":null,"prediction":null,"score":null,)"
                          R"("life_months":null,"suggestion":null})"));
    EXPECT_THAT(Ctl({"watch", "-n", "1"}).out,
                HasSubstr("    UTIL\n12 sdab   SAS SSD    SN-D                 ?           ?       ?   0.00%\n 3 "));
}

TEST_F(RecordsTest, ADiskWithoutAnIdentityKeepsItsRowAndIsAskedAgain)
{
    ServeWithout("show disk_info disk_id=63");

    const Finished list = Ctl({"list"});
    EXPECT_EQ(list.exitCode, 0) << list.err;
    EXPECT_THAT(list.out, EndsWith("\n63 ?      ?             ? ?                                SN-E                 "
                                   "prefail    37       1 Migrate data and replace the hard disk\n"));
    EXPECT_THAT(Compact(Ctl({"list", "--json"}).out),
                HasSubstr(R"({"disk_id":63,"device":null,"type":null,"slot":null,"model":null,"sn":"SN-E",)"
                          R"("watched":true,"state":"prefail",)"));

    const size_t before = server_->Requests().size();
    EXPECT_EQ(Ctl({"watch", "-n", "2", "-i", "1"}).exitCode, 0);
    size_t unknown = 0;
    size_t known = 0;
    const std::vector<std::string> requests = server_->Requests();
    for (size_t i = before; i < requests.size(); i++) {
        unknown += requests[i] == "show disk_info disk_id=63" ? 1 : 0;
        known += requests[i] == "show disk_info disk_id=12" ? 1 : 0;
    }
    EXPECT_EQ(unknown, 2u);
    EXPECT_EQ(known, 1u);
}

TEST_F(RecordsTest, OneDiskOfWhichNothingIsThereLeavesTheOthers)
{
    Serve([this](const std::string &request) {
        return request.find("disk_id=3") != std::string::npos
                   ? Reply{Reply::Kind::ANSWER, CORVANE_CLI::CLI_COMMAND_EXEC_FAILED, "null"}
                   : Reply{Reply::Kind::ANSWER, 0, answers_.at(request)};
    });

    const Finished watch = Ctl({"watch", "-n", "1"});

    EXPECT_EQ(watch.exitCode, 0) << watch.err;
    EXPECT_THAT(watch.out, AllOf(HasSubstr("  5 disks: "), HasSubstr("\n 3 ?      ?          SN-WITH-TWENTY-CHARS ? "),
                                 HasSubstr(" SN-E "), HasSubstr(" SN-D "), HasSubstr(" SN C "), HasSubstr(" SN-A ")));
}

TEST_F(RecordsTest, AnotherRefusalStillFails)
{
    Serve([this](const std::string &request) {
        return request == "show iostat_info disk_id=3" ? Reply{Reply::Kind::ANSWER, CORVANE_CLI::CLI_FAIL, "null"}
                                                       : Reply{Reply::Kind::ANSWER, 0, answers_.at(request)};
    });

    EXPECT_EQ(Ctl({"watch", "-n", "1"}).exitCode, 5);
}

TEST_F(RecordsTest, ALifeThatIsNeverPredictedIsNotAwaited)
{
    const std::string notYet = answers_["show drm_info disk_id=0"];
    for (const char *disk : {"3", "12"}) {
        answers_[std::string("show drm_info disk_id=") + disk] = notYet;
    }
    Serve(answers_);

    const std::string list = Ctl({"list"}).out;

    EXPECT_THAT(list, AllOf(::testing::ContainsRegex("SATA SSD .* SN-A +normal +- +- No action"),
                            ::testing::ContainsRegex("NVME SSD .* SN-WITH-TWENTY-CHARS +normal +\\? +\\? No action"),
                            ::testing::ContainsRegex("SAS SSD .* SN-D +normal +\\? +\\? No action")));
    EXPECT_THAT(Ctl({"watch", "-n", "1"}).out,
                AllOf(::testing::ContainsRegex("SN-A +normal +- +- "), ::testing::ContainsRegex("SN-D +normal +\\? ")));
}
