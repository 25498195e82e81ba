// Disks whose identifiers are online but take no records: the server shows nothing of them except in its summary.
#include "ctl_fixture.h"

#include <algorithm>

#include "support/terminal.h"

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

const std::string kTwoNotWatched = "2 disks are not watched: identifiers above 63 get no records, no verdict\n";

/** The five disks, and two more. */
std::map<std::string, std::string> SevenDisks()
{
    std::map<std::string, std::string> answers = FiveDisks();
    std::string &summary = answers["show summary"];
    const std::string last = "63      SN-E                                      \n";
    summary.insert(summary.find(last) + last.size(), "64      SN 64                                     \n"
                                                     "127     SN-127                                    \n");
    return answers;
}

} // namespace

class UnwatchedTest : public CtlTest {
protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        Serve(SevenDisks());
    }

    void TearDown() override
    {
        for (const std::string &request : server_->Requests()) {
            EXPECT_THAT(request, Not(EndsWith("=64")));
            EXPECT_THAT(request, Not(EndsWith("=127")));
        }
        CtlTest::TearDown();
    }
};

TEST_F(UnwatchedTest, ListKeepsTheirRowsAndSaysWhyTheyAreEmpty)
{
    const Finished run = Ctl({"list"});

    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(
        run.out,
        R"( ID DEVICE TYPE       SLOT MODEL                            SERIAL               STATE   SCORE LIFE mo SUGGESTION
  0 sda    SATA SSD      - VSSD-960G                        SN-A                 normal      -       - No action required
  3 nvme10 NVME SSD     12 A MODEL OF THIRTY-TWO CHARACTERS SN-WITH-TWENTY-CHARS fault      37      <1 Replace the hard disk
 11 sdaa   NL SAS HDD    0 ST12000                          SN C                 slow        -       - Migrate data and replace the hard disk
 12 sdab   SAS SSD       - -                                SN-D                 normal    100     >60
 63 sdac   SAS SSD       7 VS-1600                          SN-E                 prefail    37       1 Migrate data and replace the hard disk
 64 ?      ?             ? ?                                SN 64                ?           ?       ? ?
127 ?      ?             ? ?                                SN-127               ?           ?       ? ?
)" + kTwoNotWatched);
}

TEST_F(UnwatchedTest, ListFoldsNothingBelowTheirRows)
{
    (void)setenv("NO_COLOR", "1", 1);
    Terminal terminal(Client({"list"}), 82);

    EXPECT_EQ(terminal.WaitForExit(), 0);

    EXPECT_THAT(OnScreen(terminal.Rest()),
                EndsWith(R"( 63 sdac   SAS SSD       7 VS-1600      SN-E                 prefail    37       1
    Migrate data and replace the hard disk
 64 ?      ?             ? ?            SN 64                ?           ?       ?
127 ?      ?             ? ?            SN-127               ?           ?       ?
)" + kTwoNotWatched));
}

TEST_F(UnwatchedTest, ListOfOneSuchDiskSpeaksOfOne)
{
    server_.reset();
    Serve({{"show summary", "SummaryInfo:\nDiskId  DiskSn   \n---\n64      SN 64   \n---\n"}});

    const Finished run = Ctl({"list"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, R"(ID DEVICE TYPE SLOT MODEL SERIAL STATE SCORE LIFE mo SUGGESTION
64 ?      ?       ? ?     SN 64  ?         ?       ? ?
1 disk is not watched: identifiers above 63 get no records, no verdict
)");
}

TEST_F(UnwatchedTest, WatchHasThemAboveTheNormalDisks)
{
    const Finished run = Ctl({"watch", "--count", "2", "--interval", "1"});

    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    const std::string end = R"(  7 disks: 2 normal, 1 slow, 1 prefail, 1 fault
 ID DEVICE TYPE       SERIAL               STATE   SCORE LIFE mo    UTIL
  3 nvme10 NVME SSD   SN-WITH-TWENTY-CHARS fault      37      <1 100.00%
 63 sdac   SAS SSD    SN-E                 prefail    37       1   7.25%
 11 sdaa   NL SAS HDD SN C                 slow        -       -  99.99%
 64 ?      ?          SN 64                ?           ?       ?       ?
127 ?      ?          SN-127               ?           ?       ?       ?
  0 sda    SATA SSD   SN-A                 normal      -       -  12.05%
 12 sdab   SAS SSD    SN-D                 normal    100     >60   0.00%
)" + kTwoNotWatched + "\n";
    EXPECT_THAT(run.out, EndsWith(end));
    EXPECT_THAT(run.out.substr(0, run.out.size() / 2), EndsWith(end));
}

TEST_F(UnwatchedTest, WatchKeepsTheLineBelowTheTableInTheWindow)
{
    Terminal terminal(Client({"watch", "--interval", "600"}), 80, 8);

    std::string frame;
    ASSERT_TRUE(terminal.WaitFor("\033[H"));
    ASSERT_TRUE(terminal.WaitFor("\033[J", &frame));
    terminal.Type("\003");
    EXPECT_EQ(terminal.WaitForExit(), 0);

    frame = WithoutEscapes(OnScreen(frame));
    EXPECT_EQ(std::count(frame.begin(), frame.end(), '\n'), 7) << "and the cursor's line";
    EXPECT_THAT(frame, HasSubstr("\n 11 sdaa "));
    EXPECT_THAT(frame, EndsWith("\n" + kTwoNotWatched +
                                "4 more disks, normal ones last; pauses 600 s after each refresh, Ctrl-C ends\n"));
}

TEST_F(UnwatchedTest, JsonTellsThatTheyAreNotWatched)
{
    EXPECT_THAT(Compact(Ctl({"list", "--json"}).out),
                EndsWith(R"({"disk_id":64,"device":null,"type":null,"slot":null,"model":null,"sn":"SN 64",)"
                         R"("watched":false,"state":null,"prediction":null,"score":null,"life_months":null,)"
                         R"("suggestion":null},)"
                         R"({"disk_id":127,"device":null,"type":null,"slot":null,"model":null,"sn":"SN-127",)"
                         R"("watched":false,"state":null,"prediction":null,"score":null,"life_months":null,)"
                         R"("suggestion":null}]})"));
    EXPECT_THAT(Ctl({"watch", "--json", "-n", "1"}).out,
                HasSubstr(R"({"disk_id":64,"device":null,"type":null,"sn":"SN 64","watched":false,"state":null,)"
                          R"("prediction":null,"score":null,"life_months":null,"utilization_percent":null})"));
}
