// Completion as a person at the keyboard meets it: in bash, with its own way to split words.
#include "ctl_fixture.h"

#include <fstream>

#include <filesystem>

#include "support/terminal.h"

namespace {

const std::string kTab = "\t";

} // namespace

/** A shell in which the client shows its arguments, each in brackets, and only lists disks. */
class BashTest : public CtlTest {
protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        const std::string folder = folder_ + "/bin";
        std::filesystem::create_directory(folder);
        std::ofstream(folder + "/corvanectl") << "#!/bin/bash\n"
                                                 "case $* in *'show summary') exec "
                                              << CORVANECTL_PATH
                                              << " \"$@\" ;; esac\n"
                                                 "printf '<%s>' \"$@\"; echo .\n";
        std::filesystem::permissions(folder + "/corvanectl", std::filesystem::perms::owner_all);
        std::ofstream(folder_ + "/bashrc") << "PS1='ready> '; PATH=" << folder << ":$PATH; unset HISTFILE\n"
                                           << "source " << SOURCE_DIR << "/packaging/completion/corvanectl\n"
                                           << "bind 'set bell-style none'; bind 'set enable-bracketed-paste off'\n";
        (void)unsetenv("INPUTRC");
        shell_ = std::make_unique<Terminal>(
            std::vector<std::string>{"/bin/bash", "--noprofile", "--rcfile", folder_ + "/bashrc", "-i"});
        ASSERT_TRUE(shell_->WaitForPrompt("ready> "));
    }

    void TearDown() override
    {
        shell_.reset();
        CtlTest::TearDown();
    }

    /** @return the arguments of the line that these keys make. */
    std::string Arguments(const std::string &keys)
    {
        shell_->Type("corvanectl " + keys + "\r");
        std::string shown;
        EXPECT_TRUE(shell_->WaitFor("\n<")) << keys;
        EXPECT_TRUE(shell_->WaitFor(">.", &shown)) << keys;
        EXPECT_TRUE(shell_->WaitForPrompt("ready> "));
        return "<" + shown + ">";
    }

    std::unique_ptr<Terminal> shell_;
};

TEST_F(BashTest, AddsNothingToAKeyWhoseValueIsFree)
{
    EXPECT_EQ(Arguments("change disklife_prediction task_cycle=" + kTab + "3600"),
              "<change><disklife_prediction><task_cycle=3600>");
    EXPECT_EQ(Arguments("change slowdisk_detect_config min_slow_cycle=" + kTab + "50 disk_t" + kTab + "1"),
              "<change><slowdisk_detect_config><min_slow_cycle=50><disk_type=1>");
    EXPECT_EQ(Arguments("change dpr_smart disk_type=2 t" + kTab + kTab + "9"),
              "<change><dpr_smart><disk_type=2><task_cycle=9>");
}

TEST_F(BashTest, CompletesAValueThatIsOneOfFewAndEndsTheWord)
{
    EXPECT_EQ(Arguments("ch" + kTab + "config feature_switch=of" + kTab + "x"),
              "<change><config><feature_switch=off><x>");
}

TEST_F(BashTest, GoesOnInAFolder)
{
    std::filesystem::create_directories(folder_ + "/one folder/inner");

    EXPECT_EQ(Arguments("--prefix " + folder_ + "/one" + kTab + "in" + kTab + "x"),
              "<--prefix><" + folder_ + "/one folder/inner/x>");
    EXPECT_EQ(Arguments("--prefix=" + folder_ + "/one" + kTab + "x"), "<--prefix=" + folder_ + "/one folder/x>");
    EXPECT_EQ(Arguments("-s " + folder_ + "/one" + kTab + "in" + kTab + "x"),
              "<-s><" + folder_ + "/one folder/inner/x>");
    std::ofstream(folder_ + "/socket");
    EXPECT_EQ(Arguments("--socket " + folder_ + "/so" + kTab + "list"), "<--socket><" + folder_ + "/socket><list>");
}

TEST_F(BashTest, AsksTheServerThatTheLineNames)
{
    Serve(FiveDisks());

    EXPECT_EQ(Arguments("--timeout=5 --socket=" + Socket() + " show drm_info disk_id=6" + kTab + "x"),
              "<--timeout=5><--socket=" + Socket() + "><show><drm_info><disk_id=63><x>");
}
