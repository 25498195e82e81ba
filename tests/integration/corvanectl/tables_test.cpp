// What a person sees: tables on a terminal and elsewhere, and a watch while things happen.
#include "ctl_fixture.h"

#include <atomic>
#include <csignal>

#include "cli/common/CliResultCode.h"
#include "support/terminal.h"

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

const std::string kHome = "\033[H";
const std::string kNoDisk = "No disk: feature_switch is off (corvanectl show config) or no agent reports one\n";

} // namespace

using ListTest = CtlTest;

TEST_F(ListTest, HasARowForEachDiskAsWideAsItTakes)
{
    Serve(FiveDisks());

    const Finished run = Ctl({"list"});

    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(
        run.out,
        R"(ID DEVICE TYPE       SLOT MODEL                            SERIAL               STATE   SCORE LIFE mo SUGGESTION
 0 sda    SATA SSD      - VSSD-960G                        SN-A                 normal      -       - No action required
 3 nvme10 NVME SSD     12 A MODEL OF THIRTY-TWO CHARACTERS SN-WITH-TWENTY-CHARS fault      37      <1 Replace the hard disk
11 sdaa   NL SAS HDD    0 ST12000                          SN C                 slow        -       - Migrate data and replace the hard disk
12 sdab   SAS SSD       - -                                SN-D                 normal    100     >60
63 sdac   SAS SSD       7 VS-1600                          SN-E                 prefail    37       1 Migrate data and replace the hard disk
)");
}

TEST_F(ListTest, FoldsTheSuggestionAndCutsTheModelAtEightyColumns)
{
    Serve(FiveDisks());
    (void)setenv("NO_COLOR", "1", 1);
    Terminal terminal(Client({"list"}), 80);

    EXPECT_EQ(terminal.WaitForExit(), 0);

    EXPECT_EQ(OnScreen(terminal.Rest()),
              R"(ID DEVICE TYPE       SLOT MODEL       SERIAL               STATE   SCORE LIFE mo
 0 sda    SATA SSD      - VSSD-960G   SN-A                 normal      -       -
 3 nvme10 NVME SSD     12 A MODEL OF~ SN-WITH-TWENTY-CHARS fault      37      <1
    Replace the hard disk
11 sdaa   NL SAS HDD    0 ST12000     SN C                 slow        -       -
    Migrate data and replace the hard disk
12 sdab   SAS SSD       - -           SN-D                 normal    100     >60
63 sdac   SAS SSD       7 VS-1600     SN-E                 prefail    37       1
    Migrate data and replace the hard disk
)");
}

TEST_F(ListTest, KeepsTheSerialNumberWholeOnANarrowTerminal)
{
    Serve(FiveDisks());
    (void)setenv("NO_COLOR", "1", 1);
    Terminal terminal(Client({"list"}), 50);

    EXPECT_EQ(terminal.WaitForExit(), 0);

    EXPECT_THAT(OnScreen(terminal.Rest()),
                HasSubstr("\n 3 nvme10 NVME SSD     12 A MO~ SN-WITH-TWENTY-CHARS fault      37      <1\n"));
}

TEST_F(ListTest, IsColouredOnATerminal)
{
    Serve(FiveDisks());
    Terminal terminal(Client({"list"}), 200);

    EXPECT_EQ(terminal.WaitForExit(), 0);

    const std::string screen = OnScreen(terminal.Rest());
    EXPECT_THAT(screen, StartsWith("\033[1mID DEVICE"));
    EXPECT_THAT(screen, HasSubstr(" \033[31mfault\033[0m "));
    EXPECT_THAT(screen, HasSubstr(" \033[31mReplace the hard disk\033[0m\n"));
    EXPECT_THAT(screen, HasSubstr(" \033[33mslow\033[0m "));
    EXPECT_THAT(screen, HasSubstr(" \033[33mprefail\033[0m "));
    EXPECT_THAT(screen, HasSubstr(" normal "));
    EXPECT_EQ(WithoutEscapes(screen), Ctl({"list"}).out);
}

TEST_F(ListTest, OfNoDiskIsAHeadAndSaysWhyThatMayBe)
{
    Serve({{"show summary", "SummaryInfo:\nDiskId  DiskSn   \n---\n---\n"}});

    const Finished run = Ctl({"list"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "ID DEVICE TYPE SLOT MODEL SERIAL STATE SCORE LIFE mo SUGGESTION\n" + kNoDisk);
    EXPECT_EQ(Compact(Ctl({"list", "--json"}).out), R"({"disks":[]})");
}

TEST_F(ListTest, LeavesOutADiskThatLeavesMeanwhile)
{
    std::map<std::string, std::string> answers = FiveDisks();
    answers.erase("show drm_info disk_id=3");
    answers.erase("show disk_info disk_id=12");
    Serve(answers);

    const Finished run = Ctl({"list", "--json"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.out, Not(HasSubstr("nvme10")));
    EXPECT_THAT(run.out, Not(HasSubstr("SN-D")));
    EXPECT_THAT(run.out, HasSubstr("SN-E"));
}

TEST_F(ListTest, FailsIfOneOfTheAnswersDoes)
{
    const std::map<std::string, std::string> answers = FiveDisks();
    Serve([answers](const std::string &request) {
        return request == "show drm_info disk_id=63"
                   ? Reply{Reply::Kind::ANSWER, CORVANE_CLI::CLI_COMMAND_PARAM_INVALID, "null"}
                   : Reply{Reply::Kind::ANSWER, 0, answers.at(request)};
    });
    const Finished refused = Ctl({"list"});
    EXPECT_EQ(refused.exitCode, 5);
    EXPECT_EQ(refused.out, "");

    server_.reset();
    std::map<std::string, std::string> broken = answers;
    broken["show disk_info disk_id=11"] = "something else";
    Serve(broken);
    const Finished unreadable = Ctl({"list"});
    EXPECT_EQ(unreadable.exitCode, 1);
    EXPECT_THAT(unreadable.err, StartsWith("corvanectl: the answer to \"show disk_info disk_id=11\" cannot be read\n"));

    server_.reset();
    Serve([answers](const std::string &request) {
        return request.find("drm_info") != std::string::npos ? Reply{Reply::Kind::STALL, 0, ""}
                                                             : Reply{Reply::Kind::ANSWER, 0, answers.at(request)};
    });
    EXPECT_EQ(Ctl({"list", "--timeout", "1"}).exitCode, 6);
}

using WatchTest = CtlTest;

TEST_F(WatchTest, PrintsPlainTablesWithoutATerminal)
{
    Serve(FiveDisks());

    const Finished run = Ctl({"watch", "--count", "2", "--interval", "1"});

    EXPECT_EQ(run.exitCode, 0) << run.err;
    const std::string title = "YYYY-MM-DD hh:mm:ss";
    const std::string table = R"(  5 disks: 2 normal, 1 slow, 1 prefail, 1 fault
ID DEVICE TYPE       SERIAL               STATE   SCORE LIFE mo    UTIL
 3 nvme10 NVME SSD   SN-WITH-TWENTY-CHARS fault      37      <1 100.00%
63 sdac   SAS SSD    SN-E                 prefail    37       1   7.25%
11 sdaa   NL SAS HDD SN C                 slow        -       -  99.99%
 0 sda    SATA SSD   SN-A                 normal      -       -  12.05%
12 sdab   SAS SSD    SN-D                 normal    100     >60   0.00%

)";
    ASSERT_EQ(run.out.size(), 2 * (title.size() + table.size()));
    for (const size_t begin : {size_t{0}, run.out.size() / 2}) {
        EXPECT_THAT(run.out.substr(begin, title.size()), ::testing::MatchesRegex("[0-9-]{10} [0-9:]{8}"));
        EXPECT_EQ(run.out.substr(begin + title.size(), table.size()), table);
    }
}

TEST_F(WatchTest, OfNoDiskSaysWhyThatMayBe)
{
    Serve({{"show summary", "SummaryInfo:\nDiskId  DiskSn   \n---\n---\n"}});

    EXPECT_THAT(Ctl({"watch", "--count", "1"}).out,
                EndsWith("  0 disks\nID DEVICE TYPE SERIAL STATE SCORE LIFE mo    UTIL\n" + kNoDisk + "\n"));
    Terminal terminal(Client({"watch"}), 80);
    EXPECT_TRUE(terminal.WaitFor(kNoDisk.substr(0, kNoDisk.size() - 1)));
}

/** As long as a device name and a serial number can be. */
TEST_F(WatchTest, KeepsLifeAndUtilisationAtEightyColumns)
{
    std::map<std::string, std::string> answers = FiveDisks();
    std::string &summary = answers["show summary"];
    summary.replace(summary.find("SN-WITH-TWENTY-CHARS"), 39, "SERIAL-NUMBER-OF-THIRTY-NINE-CHARACTERS");
    std::string &identity = answers["show disk_info disk_id=3"];
    identity.replace(identity.find("SN-WITH-TWENTY-CHARS"), 20, "SERIAL-NUMBER-OF-THIRTY-NINE-CHARACTERS");
    identity.replace(identity.find("nvme10"), 6, "nineteen-characters");
    Serve(answers);
    (void)setenv("NO_COLOR", "1", 1);
    Terminal terminal(Client({"watch", "-n", "1"}), 80);

    EXPECT_EQ(terminal.WaitForExit(), 0);

    EXPECT_THAT(WithoutEscapes(OnScreen(terminal.Rest())), HasSubstr(R"(
ID DEVICE              TYPE SERIAL                 STATE   SCORE LIFE mo    UTIL
 3 nineteen-characters NVM~ ~HIRTY-NINE-CHARACTERS fault      37      <1 100.00%
63 sdac                SAS~ SN-E                   prefail    37       1   7.25%
)"));
}

TEST_F(WatchTest, AsksForTheIdentityOfADiskOnce)
{
    Serve(FiveDisks());

    EXPECT_EQ(Ctl({"watch", "--count", "2", "--interval", "1"}).exitCode, 0);

    std::map<std::string, int> counts;
    for (const std::string &request : server_->Requests()) {
        counts[request]++;
    }
    EXPECT_EQ(counts["show disk_info disk_id=3"], 1);
    EXPECT_EQ(counts["show drm_info disk_id=3"], 2);
    EXPECT_EQ(counts["show iostat_info disk_id=3"], 2);
}

TEST_F(WatchTest, ReplacesTheTableOnATerminalUntilItIsEnded)
{
    Serve(FiveDisks());
    Terminal terminal(Client({"watch", "--interval", "1"}), 80);

    ASSERT_TRUE(terminal.WaitFor("\033[?25l\033[?7l\033[2J" + kHome));
    ASSERT_TRUE(terminal.WaitFor(kHome)) << "a second frame";
    ASSERT_TRUE(terminal.WaitFor(kHome));
    std::string shown;
    ASSERT_TRUE(terminal.WaitFor("\033[J", &shown)) << "the end of the frame";
    terminal.Type("\003");
    EXPECT_EQ(terminal.WaitForExit(), 0);

    EXPECT_THAT(OnScreen(terminal.Rest()), ::testing::EndsWith("\033[K\033[?7h\033[?25h"));
    shown = OnScreen(shown);
    const std::string frame = WithoutEscapes(shown);
    EXPECT_EQ(frame.substr(frame.find("  ")), R"(  5 disks: 2 normal, 1 slow, 1 prefail, 1 fault
ID DEVICE TYPE       SERIAL               STATE   SCORE LIFE mo    UTIL
 3 nvme10 NVME SSD   SN-WITH-TWENTY-CHARS fault      37      <1 100.00%
63 sdac   SAS SSD    SN-E                 prefail    37       1   7.25%
11 sdaa   NL SAS HDD SN C                 slow        -       -  99.99%
 0 sda    SATA SSD   SN-A                 normal      -       -  12.05%
12 sdab   SAS SSD    SN-D                 normal    100     >60   0.00%
pauses 1 s after each refresh, Ctrl-C ends
)");
    EXPECT_THAT(shown, HasSubstr("\033[31mfault\033[0m"));
}

TEST_F(WatchTest, KeepsToTheWindowAndTellsWhatIsHidden)
{
    Serve(FiveDisks());
    Terminal terminal(Client({"watch", "--interval", "600"}), 80, 7);

    ASSERT_TRUE(terminal.WaitFor("2 more disks, normal ones last; pauses 600 s after each refresh, Ctrl-C ends"));
    terminal.Resize(80, 30);
    ASSERT_TRUE(terminal.WaitFor("SN-D")) << "the window is redrawn at once";
    terminal.Type("\003");
    EXPECT_EQ(terminal.WaitForExit(), 0);
}

TEST_F(WatchTest, IsPlainOnATerminalThatCannotReplace)
{
    Serve(FiveDisks());
    std::vector<std::string> words = Client({"watch", "-n", "1"});
    words.insert(words.begin(), {"/usr/bin/env", "TERM=dumb"});
    Terminal terminal(words, 80);

    EXPECT_EQ(terminal.WaitForExit(), 0);

    EXPECT_THAT(terminal.Rest(), Not(HasSubstr("\033")));
}

TEST_F(WatchTest, WaitsForAServerThatGoesAway)
{
    std::atomic<int> looks = 0;
    const std::map<std::string, std::string> answers = FiveDisks();
    Serve([&looks, answers](const std::string &request) {
        looks += request == "show summary" ? 1 : 0;
        return looks == 2 ? Reply{Reply::Kind::ANSWER, -1, "null"} : Reply{Reply::Kind::ANSWER, 0, answers.at(request)};
    });

    const Finished plain = Ctl({"watch", "-n", "3", "-i", "1"});
    EXPECT_EQ(plain.exitCode, 0);
    EXPECT_THAT(plain.err, StartsWith("corvanectl: the server refused, code 0xFFFFFFFF\nCause:"));

    looks = 0;
    Terminal terminal(Client({"watch", "-n", "3", "-i", "1"}), 80);
    ASSERT_TRUE(terminal.WaitFor("pauses 1 s after each refresh, Ctrl-C ends"));
    ASSERT_TRUE(terminal.WaitFor("SN-D")) << "the last table stays";
    ASSERT_TRUE(terminal.WaitFor("the server refused, code 0xFFFFFFFF"));
    ASSERT_TRUE(terminal.WaitFor("pauses 1 s after each refresh, Ctrl-C ends"));
    EXPECT_EQ(terminal.WaitForExit(), 0);
}

TEST_F(WatchTest, EndsAtOnceIfThereIsNoServer)
{
    const Finished run = Ctl({"watch"});

    EXPECT_EQ(run.exitCode, 3);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, StartsWith("corvanectl: no connection to "));
}

TEST_F(WatchTest, TellsTheLastFailureInItsStatus)
{
    std::atomic<int> looks = 0;
    const std::map<std::string, std::string> answers = FiveDisks();
    Serve([&looks, answers](const std::string &request) {
        looks += request == "show summary" ? 1 : 0;
        return looks == 2 ? Reply{Reply::Kind::STALL, 0, ""} : Reply{Reply::Kind::ANSWER, 0, answers.at(request)};
    });

    const Finished run = Ctl({"watch", "-n", "2", "-i", "1", "-t", "1"});

    EXPECT_EQ(run.exitCode, 6);
    EXPECT_THAT(run.err, StartsWith("corvanectl: no answer from "));
}
