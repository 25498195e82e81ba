// Help, manual page, completion, catalogue and the pages of the documentation say the same.
#include "ctl_fixture.h"

#include <filesystem>
#include <fstream>
#include <set>

#include "cli/common/CliResultCode.h"

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

const std::string kPage = ReadAll(SOURCE_DIR "/packaging/man/corvanectl.1");
const std::string kCompletion = SOURCE_DIR "/packaging/completion/corvanectl";
const std::string kManual = ReadAll(SOURCE_DIR "/docs/corvanectl.md");

const std::vector<std::string> kCommands = {"summary",    "slowdisk",           "disk_info", "iostat_info",
                                            "smart_info", "drm_info",           "config",    "slowdisk_detect_config",
                                            "dpr_smart",  "disklife_prediction"};

} // namespace

using PagesTest = CtlTest;

TEST_F(PagesTest, EveryOptionAndStatusStandsOnEachPage)
{
    const std::string help = Ctl({"--help"}).out;
    for (const std::string option : {"prefix", "socket", "timeout", "json", "interval", "count", "help", "version"}) {
        EXPECT_THAT(help, HasSubstr(", --" + option));
        EXPECT_THAT(kPage, HasSubstr(", Fl -" + option));
        EXPECT_THAT(ReadAll(kCompletion), HasSubstr("--" + option));
    }
    for (const char *status : {"0", "1", "2", "3", "4", "5", "6"}) {
        EXPECT_THAT(kPage, HasSubstr(std::string("\n.It ") + status + "\n"));
        EXPECT_THAT(help, HasSubstr(std::string(status) + " "));
        EXPECT_THAT(kManual, HasSubstr(std::string("\n| ") + status + " |"));
    }
}

TEST_F(PagesTest, EveryCommandHasHelpWithAnExample)
{
    const std::string help = Ctl({"help"}).out;
    EXPECT_EQ(help, Ctl({"-h"}).out);
    for (const std::string &command : kCommands) {
        const Finished run = Ctl({"help", command});
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_THAT(run.out, StartsWith("corvanectl show " + command));
        EXPECT_THAT(run.out, ::testing::ContainsRegex("Examples?:\n    corvanectl show " + command));
        EXPECT_THAT(help, HasSubstr("show " + command));
        EXPECT_THAT(kPage, HasSubstr(command));
        EXPECT_THAT(kManual, HasSubstr(command));
    }
    EXPECT_THAT(Ctl({"help", "list"}).out, StartsWith("corvanectl list\n"));
    EXPECT_THAT(Ctl({"watch", "--help"}).out, StartsWith("corvanectl watch "));
    EXPECT_THAT(Ctl({"help", "show"}).out, Not(HasSubstr("corvanectl change ")));
}

TEST_F(PagesTest, HelpOfACommandNeedsNoServerAndIgnoresItsKeys)
{
    const Finished run = Ctl({"change", "dpr_smart", "disk_type=9", "--help"});

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.out, StartsWith("corvanectl change dpr_smart disk_type=T task_cycle=S\n"));
    EXPECT_THAT(run.out, HasSubstr("1 to 2592000"));
    EXPECT_THAT(run.out, Not(HasSubstr("show")));
}

TEST_F(PagesTest, HelpNamesTheRangesOfEveryKey)
{
    const std::string slow = Ctl({"help", "change", "slowdisk_detect_config"}).out;
    for (const char *text : {"0 SATA SSD, 1 SAS SSD, 2 NVMe, 3 SAS hard disks", "1 to 10", "1 to 255", "10 to 100"}) {
        EXPECT_THAT(slow, HasSubstr(text));
    }
    EXPECT_THAT(Ctl({"help", "change", "disklife_prediction"}).out, HasSubstr("60 to 7776000"));
    EXPECT_THAT(Ctl({"help", "show", "drm_info"}).out, HasSubstr("0 to 63"));
    EXPECT_THAT(Ctl({"help", "change", "config"}).out, HasSubstr("takeover_disk_switch=on|off"));
}

TEST_F(PagesTest, AllAdviseTheThresholdsThatAct)
{
    EXPECT_THAT(Ctl({"help", "change", "slowdisk_detect_config"}).out, HasSubstr("for hard disks 1 to 255; "));
    EXPECT_THAT(kPage, HasSubstr("1 to 10, or 1 to 255 for hard disks.\n"));
    EXPECT_THAT(ReadAll(folder_ + "/config/error_en.xml"), HasSubstr("for disk_type 3 1 to 255;"));
}

TEST_F(PagesTest, BothTellWhatBecomesOfTheDisksWhileTheyAreNotWatched)
{
    for (const std::string &page : {Ctl({"help", "change", "config"}).out, kPage}) {
        EXPECT_THAT(page, HasSubstr("no disk is shown"));
        EXPECT_THAT(page, ::testing::ContainsRegex("registry of disks stays, with identifiers\\s+and states"));
    }
}

TEST_F(PagesTest, TheManualPageNamesEveryType)
{
    for (const char *type : {"NVME SSD", "SAS SSD", "SATA SSD", "SAS HDD", "SATA HDD", "NL SAS HDD"}) {
        EXPECT_THAT(kPage, HasSubstr(type));
    }
}

TEST_F(PagesTest, TheCatalogueHasEveryCodeOnceAndNoParameter)
{
    const std::string catalogue = ReadAll(folder_ + "/config/error_en.xml");
    EXPECT_THAT(catalogue, Not(HasSubstr("%")));
    EXPECT_THAT(catalogue, Not(HasSubstr("{0}")));
    std::multiset<int> codes;
    for (size_t at = 0; (at = catalogue.find("<error id=\"", at)) != std::string::npos; at++) {
        codes.insert(std::stoi(catalogue.substr(at + 11)));
    }
    EXPECT_EQ(codes,
              (std::multiset<int>{-1, 1073965313, 1073965315, 1073965316, 1073965317, 1073965318, 1073965319,
                                  1073965323, 1073965324, 1073965325, 1073965326, 1073965328, 1073965329, 1073965330}));
}

TEST_F(PagesTest, TheCopyBesideTheProgramHelpsOut)
{
    const std::string shipped = ReadAll(folder_ + "/config/error_en.xml");
    std::filesystem::create_directories(folder_ + "/own/bin");
    std::filesystem::create_directories(folder_ + "/own/share/corvane");
    std::filesystem::copy(CORVANECTL_PATH, folder_ + "/own/bin");
    (void)setenv("LD_LIBRARY_PATH", CORVANE_LIB_DIR, 1);
    Serve({Reply::Kind::ANSWER, CORVANE_CLI::CLI_DB_ID_NOT_EXIST, "null"});
    const std::vector<std::string> ask = {folder_ + "/own/bin/corvanectl", "-p", folder_, "show", "smart_info"};

    std::filesystem::remove(folder_ + "/config/error_en.xml");
    EXPECT_THAT(RunToEnd(ask).err,
                EndsWith("\nno text for code 1073965328; is share/corvane/error_en.xml installed?\n"));

    std::ofstream(folder_ + "/own/share/corvane/error_en.xml") << shipped;
    EXPECT_THAT(RunToEnd(ask).err, HasSubstr("\nCause:There is no online disk with this identifier.\nSuggestion:See "));

    std::ofstream(folder_ + "/config/error_en.xml")
        << R"(<?xml version="1.0"?><root><errors><error id="1073965328"><reason description="Ours."/><suggestions>)"
        << R"(<suggestion description="Do."/></suggestions></error></errors></root>)";
    EXPECT_THAT(RunToEnd(ask).err, EndsWith("\nCause:Ours.\nSuggestion:Do.\n"));
}

class CompletionTest : public CtlTest {
protected:
    /** What bash offers for the last of these words. */
    std::string Complete(const std::string &words) const
    {
        const std::string folder = std::filesystem::path(CORVANECTL_PATH).parent_path();
        const int at = static_cast<int>(std::count(words.begin(), words.end(), ' '));
        const Finished run =
            RunToEnd({"/bin/bash", "-c",
                      "PATH=" + folder + ":$PATH; source " + kCompletion + "; COMP_WORDBREAKS=' '; COMP_WORDS=(" +
                          words + "); " + (words.back() == ' ' ? "COMP_WORDS+=(''); " : "") +
                          "COMP_CWORD=" + std::to_string(at) + "; _corvanectl; echo ${COMPREPLY[*]}"});
        EXPECT_EQ(run.err, "");
        return run.out;
    }
};

TEST_F(CompletionTest, KnowsCommandsAndKeys)
{
    EXPECT_EQ(Complete("corvanectl "), "show change list watch help\n");
    EXPECT_EQ(Complete("corvanectl sh"), "show\n");
    EXPECT_EQ(Complete("corvanectl show d"), "disk_info drm_info dpr_smart disklife_prediction\n");
    EXPECT_EQ(Complete("corvanectl change "), "config slowdisk_detect_config dpr_smart disklife_prediction\n");
    EXPECT_EQ(Complete("corvanectl change config "), "feature_switch=on feature_switch=off takeover_disk_switch=on "
                                                     "takeover_disk_switch=off\n");
    EXPECT_EQ(Complete("corvanectl change dpr_smart "),
              "disk_type=0 disk_type=1 disk_type=2 disk_type=3 task_cycle=\n");
    EXPECT_EQ(Complete("corvanectl change slowdisk_detect_config min"), "min_threshold_value= min_slow_cycle=\n");
    EXPECT_EQ(Complete("corvanectl change disklife_prediction t"), "task_cycle=\n");
    EXPECT_EQ(Complete("corvanectl show summary "), "\n");
    EXPECT_EQ(Complete("corvanectl --js"), "--json\n");
    EXPECT_EQ(Complete("corvanectl --timeout 5 show sl"), "slowdisk slowdisk_detect_config\n");
}

TEST_F(CompletionTest, OffersEachKeyOnceAndOneSetting)
{
    EXPECT_EQ(Complete("corvanectl change config feature_switch=on "), "\n");
    EXPECT_EQ(Complete("corvanectl change slowdisk_detect_config min_slow_cycle=50 "),
              "disk_type=0 disk_type=1 disk_type=2 disk_type=3\n");
    EXPECT_EQ(Complete("corvanectl change slowdisk_detect_config disk_type=0 "),
              "min_threshold_value= min_slow_cycle=\n");
    EXPECT_EQ(Complete("corvanectl change slowdisk_detect_config disk_type = 0 "),
              "min_threshold_value= min_slow_cycle=\n");
    EXPECT_EQ(Complete("corvanectl change slowdisk_detect_config disk_type = "), "0 1 2 3\n");
    EXPECT_EQ(Complete("corvanectl change dpr_smart task_cycle = "), "\n");
}

TEST_F(CompletionTest, KnowsEveryCommandThatHasHelp)
{
    const std::string shows = Complete("corvanectl show ");
    for (const std::string &command : kCommands) {
        EXPECT_THAT(shows, HasSubstr(command));
    }
    EXPECT_EQ(Complete("corvanectl help "), "list watch show change\n");
    EXPECT_EQ(Complete("corvanectl help show "), shows);
}

TEST_F(CompletionTest, KnowsTheDisksThatAreOnline)
{
    Serve(FiveDisks());

    EXPECT_EQ(Complete("corvanectl -p " + folder_ + " show drm_info "),
              "disk_id=0 disk_id=3 disk_id=11 disk_id=12 disk_id=63\n");
    EXPECT_EQ(Complete("corvanectl --socket " + Socket() + " show disk_info disk_id=1"), "disk_id=11 disk_id=12\n");
    EXPECT_EQ(Complete("corvanectl --prefix=" + folder_ + " show disk_info disk_id=6"), "disk_id=63\n");
}

TEST_F(CompletionTest, IsSilentWithoutAServer)
{
    EXPECT_EQ(Complete("corvanectl -p " + folder_ + " show drm_info "), "\n");
}

TEST_F(CompletionTest, KnowsDisksWhereBashSplitsAtTheEqualsSign)
{
    Serve(FiveDisks());
    const std::string folder = std::filesystem::path(CORVANECTL_PATH).parent_path();

    const Finished run =
        RunToEnd({"/bin/bash", "-c",
                  "PATH=" + folder + ":$PATH; source " + kCompletion + "; COMP_WORDS=(corvanectl -p " + folder_ +
                      " show drm_info disk_id = 1); COMP_CWORD=7; _corvanectl; echo ${COMPREPLY[*]}"});

    EXPECT_EQ(run.out, "11 12\n");
}
