// The interactive shell, on a pseudo-terminal and on a pipe.
#include "nordiag_fixture.h"
#include "support/terminal.h"

#include <csignal>
#include <sys/stat.h>

using ::testing::HasSubstr;
using ::testing::Not;

class NordiagShellTest : public NordiagTest {
protected:
    [[nodiscard]] std::string Prompt() const { return "storage(" + HostNumber() + ")> "; }
    [[nodiscard]] static std::vector<std::string> Shell() { return {NORDIAG_PATH, "storage"}; }
};

TEST_F(NordiagShellTest, RunsCommandsUntilExit)
{
    StartHost();
    Terminal terminal(Shell());
    ASSERT_TRUE(terminal.WaitFor("Debug shell of storage (" + HostNumber() + ")")) << terminal.Rest();
    ASSERT_TRUE(terminal.WaitForPrompt(Prompt())) << terminal.Rest();

    terminal.Type("disk list\r");
    EXPECT_TRUE(terminal.WaitFor("sda\r\nsdb\r\n")) << terminal.Rest();
    ASSERT_TRUE(terminal.WaitForPrompt(Prompt()));
    terminal.Type("disk words 'two words' a\\ b \"\"\r");
    EXPECT_TRUE(terminal.WaitFor("[two words][a b][]\r\n")) << terminal.Rest();
    terminal.Type("help\r");
    EXPECT_TRUE(terminal.WaitFor("  disk                what the disks do\r\n")) << terminal.Rest();
    terminal.Type("help disk\r");
    EXPECT_TRUE(terminal.WaitFor(":does it")) << terminal.Rest();
    terminal.Type("\r  \rexit\r");

    EXPECT_EQ(terminal.WaitForExit(), 0) << terminal.Rest();
}

TEST_F(NordiagShellTest, ErrorsDoNotEndItAndTheLastStatusIsItsOwn)
{
    StartHost();
    Terminal terminal(Shell());

    terminal.Type("nothing here\r");
    EXPECT_TRUE(terminal.WaitFor("has no command group nothing")) << terminal.Rest();
    terminal.Type("disk 'open\r");
    EXPECT_TRUE(terminal.WaitFor("a quotation has no end")) << terminal.Rest();
    terminal.Type("disk fail 9\r");
    EXPECT_TRUE(terminal.WaitFor("the command returned 9")) << terminal.Rest();
    ASSERT_TRUE(terminal.WaitForPrompt(Prompt()));
    terminal.Type("\004");

    EXPECT_EQ(terminal.WaitForExit(), 1);
}

TEST_F(NordiagShellTest, TabCompletesGroupsAndSubCommands)
{
    StartHost();
    Terminal terminal(Shell());
    ASSERT_TRUE(terminal.WaitForPrompt(Prompt()));

    terminal.Type("d\t");
    EXPECT_TRUE(terminal.WaitFor("is")) << terminal.Rest(); // the letters that all share
    terminal.Type("\t");
    EXPECT_TRUE(terminal.WaitFor("dish  disk")) << terminal.Rest();
    EXPECT_TRUE(terminal.WaitFor(Prompt() + "dis")) << terminal.Rest();
    terminal.Type("k w\tone\r");

    EXPECT_TRUE(terminal.WaitFor("[one]\r\n")) << terminal.Rest();
}

TEST_F(NordiagShellTest, HistoryIsRecalledAlsoByTheNextShell)
{
    StartHost();
    {
        Terminal first(Shell());
        ASSERT_TRUE(first.WaitForPrompt(Prompt()));
        first.Type("disk words first\r");
        ASSERT_TRUE(first.WaitFor("[first]"));
        ASSERT_TRUE(first.WaitForPrompt(Prompt()));
        first.Type("disk words second\r");
        ASSERT_TRUE(first.WaitFor("[second]"));
        ASSERT_TRUE(first.WaitForPrompt(Prompt()));
        first.Type("\033[A\033[A\r");
        EXPECT_TRUE(first.WaitFor("[first]")) << first.Rest();
        ASSERT_TRUE(first.WaitForPrompt(Prompt()));
        first.Type("quit\r");
        EXPECT_EQ(first.WaitForExit(), 0);
    }
    struct stat file {};
    struct stat folder {};
    ASSERT_EQ(stat(HistoryFile().c_str(), &file), 0);
    ASSERT_EQ(stat((State() + "/nordiag").c_str(), &folder), 0);
    EXPECT_EQ(file.st_mode & 07777, 0600u);
    EXPECT_EQ(folder.st_mode & 07777, 0700u);

    Terminal second(Shell());
    ASSERT_TRUE(second.WaitForPrompt(Prompt()));
    second.Type("\022words second\r\r"); // found by searching backwards

    EXPECT_TRUE(second.WaitFor("[second]")) << second.Rest();
}

TEST_F(NordiagShellTest, CtrlCEmptiesTheLine)
{
    StartHost();
    Terminal terminal(Shell());
    ASSERT_TRUE(terminal.WaitForPrompt(Prompt()));

    terminal.Type("disk words wrong\003");
    EXPECT_TRUE(terminal.WaitFor("^C")) << terminal.Rest();
    terminal.Type("disk words right\r");

    EXPECT_TRUE(terminal.WaitFor("[right]\r\n")) << terminal.Rest();
    terminal.Type("exit\r");
    EXPECT_EQ(terminal.WaitForExit(), 0) << terminal.Rest();
    EXPECT_THAT(terminal.Rest(), Not(HasSubstr("[wrong]")));
}

TEST_F(NordiagShellTest, CtrlCAbandonsTheCommandAndKeepsTheShell)
{
    StartHost();
    Terminal terminal(Shell());
    ASSERT_TRUE(terminal.WaitForPrompt(Prompt()));
    terminal.Type("disk hang\r");
    ASSERT_TRUE(terminal.WaitFor("hanging"));

    terminal.Type("\003");

    EXPECT_TRUE(terminal.WaitFor("abandoned; the command runs on")) << terminal.Rest();
    ASSERT_TRUE(terminal.WaitForPrompt(Prompt()));
    EXPECT_TRUE(host_->WaitForOutput("left\n"));
    terminal.Type("disk w\tmore\r"); // completion works as before
    EXPECT_TRUE(terminal.WaitFor("[more]")) << terminal.Rest();
}

TEST_F(NordiagShellTest, EndsWithTheProcess)
{
    StartHost();
    Terminal terminal(Shell());
    ASSERT_TRUE(terminal.WaitForPrompt(Prompt()));

    terminal.Type("disk die\r");

    EXPECT_TRUE(terminal.WaitFor("the connection ended")) << terminal.Rest();
    EXPECT_EQ(terminal.WaitForExit(), 4);
}

TEST_F(NordiagShellTest, WithoutAHomeThereIsNoHistory)
{
    (void)unsetenv("XDG_STATE_HOME");
    (void)unsetenv("HOME");
    StartHost();
    Terminal terminal(Shell());

    terminal.Type("disk list\rexit\r");

    EXPECT_TRUE(terminal.WaitFor("sda")) << terminal.Rest();
    EXPECT_EQ(terminal.WaitForExit(), 0) << terminal.Rest();
    EXPECT_FALSE(std::filesystem::exists(State()));
}

using NordiagPipeTest = NordiagTest;

TEST_F(NordiagPipeTest, RunsTheLinesOfAPipeWithoutPromptOrHistory)
{
    StartHost();

    const Finished run =
        Sh("printf 'disk words one\\n\\ndisk words two\\nexit\\ndisk words three\\n' | " NORDIAG_PATH " storage");

    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "[one]\n[two]\n");
    EXPECT_EQ(run.err, "");
    EXPECT_FALSE(std::filesystem::exists(HistoryFile()));
}

TEST_F(NordiagPipeTest, StatusIsThatOfTheLastCommand)
{
    StartHost();

    EXPECT_EQ(Sh("printf 'disk list\\ndisk fail\\n' | " NORDIAG_PATH " storage").exitCode, 1);
    EXPECT_EQ(Sh("printf 'disk fail\\ndisk list' | " NORDIAG_PATH " storage").exitCode, 0);
    EXPECT_EQ(Sh("printf 'disk die\\ndisk list\\n' | " NORDIAG_PATH " storage").exitCode, 4);
}
