// Everybody can make a folder for sockets, and say there what he likes.
#include "nordiag_fixture.h"
#include "strange_peer.h"
#include "support/terminal.h"

#include <sys/stat.h>

using ::testing::HasSubstr;

namespace {

constexpr const char *kListHead = "PROCESS  NAME                     USER             STATE\n";

} // namespace

class NordiagStrangersTest : public NordiagTest {
protected:
    void SetUp() override
    {
        NordiagTest::SetUp();
        ASSERT_EQ(chmod(folder_.c_str(), 0755), 0);
        ASSERT_EQ(mkdir(Sockets().c_str(), 0700), 0);
    }
    [[nodiscard]] std::string Path() const { return Sockets() + "/77.evil"; }
    void GiveFolderTo(uid_t user) const { ASSERT_EQ(chown(Sockets().c_str(), user, user), 0); }
};

TEST_F(NordiagStrangersTest, RootReachesTheProcessesOfOthersInTheirFolders)
{
    GiveFolderTo(kNobody);
    const StrangePeer peer(kNobody, Path(), {{'G', Words({"group", "does it"}) + End()}});

    EXPECT_THAT(Nordiag({"list"}).out, HasSubstr("77       evil                     nobody           ready\n"));
    EXPECT_EQ(Nordiag({"evil", "help"}).out, "  group               does it\n");
}

TEST_F(NordiagStrangersTest, WhoIsNotTheFoldersOwnerIsNotAsked)
{
    ASSERT_EQ(chmod(Sockets().c_str(), 01777), 0);
    const StrangePeer peer(kNobody, Path());

    EXPECT_EQ(Nordiag({"list"}).out, kListHead);
    EXPECT_EQ(Nordiag({"evil", "disk", "list"}).exitCode, 3);

    // The file may be the owner's and he who listens another one.
    ASSERT_EQ(chown(Path().c_str(), 0, 0), 0);
    EXPECT_EQ(Nordiag({"list"}).out, kListHead);
    EXPECT_EQ(Nordiag({"77", "disk", "list"}).exitCode, 3);
    EXPECT_EQ(peer.Requests(), 0);
    EXPECT_TRUE(std::filesystem::exists(Path()));
}

TEST_F(NordiagStrangersTest, AStrangersFolderDoesNotLendItselfToTheOwnersProcess)
{
    GiveFolderTo(kNobody);
    const StrangePeer peer(0, Path());

    EXPECT_EQ(Nordiag({"list"}).out, kListHead);
    ASSERT_EQ(chown(Path().c_str(), kNobody, kNobody), 0);
    EXPECT_EQ(Nordiag({"list"}).out, kListHead);

    EXPECT_EQ(peer.Requests(), 0);
}

TEST_F(NordiagStrangersTest, ALinkIsNoFolder)
{
    StartHost();
    const std::string link = folder_ + "/link";
    std::filesystem::create_directory_symlink(Sockets(), link);
    ASSERT_THAT(Nordiag({"list"}).out, HasSubstr(" storage "));

    (void)setenv("NORDIAG_DIR", link.c_str(), 1);

    EXPECT_EQ(Nordiag({"list"}).out, kListHead);
}

TEST_F(NordiagStrangersTest, NothingIsRemovedFromTheFolderOfAnother)
{
    GiveFolderTo(kNobody);
    (void)close(ListenAs(kNobody, Path()));

    EXPECT_EQ(Nordiag({"list"}).out, kListHead);
    EXPECT_TRUE(std::filesystem::exists(Path()));

    GiveFolderTo(0);
    ASSERT_EQ(chown(Path().c_str(), 0, 0), 0);
    EXPECT_EQ(Nordiag({"list"}).out, kListHead);
    EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST_F(NordiagStrangersTest, OnlyRootLooksIntoFoldersOfOthers)
{
    const std::string program = folder_ + "/nordiag"; // where everybody can get at it
    std::filesystem::copy_file(NORDIAG_PATH, program);
    const StrangePeer peer(0, Path());
    ASSERT_EQ(chmod(Sockets().c_str(), 0755), 0);
    ASSERT_EQ(chmod(Path().c_str(), 0777), 0);
    ASSERT_THAT(Nordiag({"list"}).out, HasSubstr(" evil "));
    const int before = peer.Requests();

    ChildProcess list({"/usr/bin/setpriv", "--reuid=65534", "--clear-groups", program, "list"});

    EXPECT_EQ(list.WaitForExit(), 0) << list.Errors();
    EXPECT_EQ(list.Output(), kListHead);
    EXPECT_EQ(peer.Requests(), before);
}

TEST_F(NordiagStrangersTest, TextsComeWithoutControlCharacters)
{
    const std::string text = "\033]0;title\a\033[2J\xc2\x9b\n";
    const std::string harmless = "?]0;title??[2J\xc2??";
    const StrangePeer peer(
        0, Path(),
        {{'S', Refused(text)}, {'R', Refused(text)}, {'G', Words({"na\033me", "one\ntwo\t" + text}) + End()}});

    EXPECT_THAT(Nordiag({"list"}).out, HasSubstr(" " + harmless + "\n"));
    EXPECT_THAT(Nordiag({"evil", "group"}).err, HasSubstr("refuses: " + harmless + "; become "));
    EXPECT_EQ(Nordiag({"evil", "help"}).out, "  na?me               one?two?" + harmless + "\n");
}

TEST_F(NordiagStrangersTest, TheShellCompletesWithoutControlCharacters)
{
    const StrangePeer peer(0, Path(), {{'G', Words({"dis\033[2J", "one", "dit\n", "two"}) + End()}});
    Terminal terminal({NORDIAG_PATH, "evil"});
    ASSERT_TRUE(terminal.WaitForPrompt("evil(77)> "));

    terminal.Type("\t");

    EXPECT_TRUE(terminal.WaitFor("dis?[2J  dit?  exit")) << terminal.Rest();
}

TEST_F(NordiagStrangersTest, ATerminalGetsOutputWithoutControlCharacters)
{
    StartHost();
    const std::string word = "\033[2J\tj\xc3\xbc\xc2\x9b\r\n.";

    Terminal terminal({NORDIAG_PATH, "storage", "disk", "words", word});
    EXPECT_TRUE(terminal.WaitFor("[?[2J\tj\xc3\xbc\xc2??\r\n.]")) << terminal.Rest();

    EXPECT_EQ(Nordiag({"storage", "disk", "words", word}).out, "[" + word + "]\n") << "a file gets it as it is";
}

TEST_F(NordiagStrangersTest, BashCompletionRunsNothingThatAProcessSays)
{
    const std::string proof = folder_ + "/proof";
    const std::string command = "$(touch${IFS}" + proof + ")";
    const StrangePeer peer(0, Path(),
                           {{'S', Refused("\n" + command + " " + command)},
                            {'G', Words({command, "one", "`touch " + proof + "`", "two", "group", command}) + End()}});

    EXPECT_EQ(BashCompletion(R"(nordiag "")", 1), "list --help --version 77 evil\n");
    EXPECT_EQ(BashCompletion(R"(nordiag evil "")", 2), "help group\n");
    EXPECT_EQ(BashCompletion(R"(nordiag evil help "")", 3), "group\n");

    EXPECT_FALSE(std::filesystem::exists(proof));
    EXPECT_GT(peer.Requests(), 0);
}
