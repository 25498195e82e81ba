// Help, manual page and completion say the same.
#include "nordiag_fixture.h"

using ::testing::HasSubstr;

using NordiagPagesTest = NordiagTest;

TEST_F(NordiagPagesTest, EveryOptionStandsInManualPageAndCompletion)
{
    const std::string help = Nordiag({"--help"}).out;
    const std::string page = ReadAll(NORDIAG_PAGE);
    const std::string completion = ReadAll(NORDIAG_COMPLETION);

    for (const std::string option : {"help", "version"}) {
        EXPECT_THAT(help, HasSubstr("--" + option));
        EXPECT_THAT(page, HasSubstr("Fl -" + option));
        EXPECT_THAT(completion, HasSubstr("--" + option));
    }
    for (const char *status : {"0", "1", "2", "3", "4", "5", "130"}) {
        EXPECT_THAT(page, HasSubstr(std::string("\n.It ") + status + "\n"));
        EXPECT_THAT(help, HasSubstr(std::string(status) + " "));
    }
}

TEST_F(NordiagPagesTest, BashCompletesProcessesGroupsAndHelp)
{
    StartHost();

    EXPECT_EQ(BashCompletion("nordiag st", 1), "storage\n");
    EXPECT_EQ(BashCompletion("nordiag l", 1), "list\n");
    EXPECT_EQ(BashCompletion("nordiag storage di", 2), "disk dish\n");
    EXPECT_EQ(BashCompletion("nordiag storage help dis", 3), "disk dish\n");
    EXPECT_EQ(BashCompletion("nordiag storage disk x", 3), "\n");
    EXPECT_EQ(BashCompletion("nordiag list h", 2), "\n");
}
