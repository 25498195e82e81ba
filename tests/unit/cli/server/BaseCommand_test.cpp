#include "cli/server/BaseCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace CORVANE_CLI;
using ::testing::ElementsAre;
using ::testing::Pair;

namespace {

class AnyCommand : public BaseCommand {
public:
    int Exec(std::string, std::string &) override { return 0; }
    const std::map<std::string, std::string> &Parse(std::string param)
    {
        EXPECT_EQ(ParseParam(param), 0);
        return m_params;
    }
};

} // namespace

TEST(ParseParamTest, ReadsPairs)
{
    EXPECT_THAT(AnyCommand().Parse("action=show disk_id=3 userName=root"),
                ElementsAre(Pair("action", "show"), Pair("disk_id", "3"), Pair("userName", "root")));
}

TEST(ParseParamTest, ReadsOnePair)
{
    EXPECT_THAT(AnyCommand().Parse("key=value"), ElementsAre(Pair("key", "value")));
}

TEST(ParseParamTest, MergesAWordWithWhatFollows)
{
    EXPECT_THAT(AnyCommand().Parse("action=show slowdisk userName=root"),
                ElementsAre(Pair("action", "show"), Pair("slowdisk userName", "root"), Pair("userName", "root")));
}

TEST(ParseParamTest, KeepsTheFirstValueOfAKey)
{
    EXPECT_THAT(AnyCommand().Parse("disk_id=1 disk_id=2"), ElementsAre(Pair("disk_id", "1")));
}

TEST(ParseParamTest, CutsAtTheFirstEqualsSign)
{
    EXPECT_THAT(AnyCommand().Parse("a=b=c d==e"), ElementsAre(Pair("a", "b=c"), Pair("d", "=e")));
}

TEST(ParseParamTest, TakesEmptyKeysAndValues)
{
    EXPECT_THAT(AnyCommand().Parse("=x y= z=1"), ElementsAre(Pair("", "x"), Pair("y", ""), Pair("z", "1")));
}

TEST(ParseParamTest, EndsWithATrailingBlank)
{
    EXPECT_THAT(AnyCommand().Parse("a=1 "), ElementsAre(Pair("", ""), Pair("a", "1")));
}

TEST(ParseParamTest, EndsWithAWordAlone)
{
    EXPECT_THAT(AnyCommand().Parse("word"), ElementsAre(Pair("word", "word")));
    EXPECT_THAT(AnyCommand().Parse(""), ElementsAre(Pair("", "")));
}

TEST(ParseParamTest, LeavesTheLastPairInItsArgument)
{
    AnyCommand command;
    std::string param = "a=1 b=2 c=3";

    EXPECT_EQ(command.ParseParam(param), 0);

    EXPECT_EQ(param, "c=3");
}

TEST(IsStringFormatCorrectTest, TakesNumbersOfSevenDigits)
{
    AnyCommand command;
    for (std::string text : {"0", "1", "9", "10", "9999999", "1000000"}) {
        EXPECT_TRUE(command.IsStringFormatCorrect(text)) << text;
    }
    for (std::string text : {"", "00", "07", "007", "10000000", "99999999", "1a", "a1", "-1", "+1", " 1", "1 ", "1.0",
                             "0x1", "\xD9\xA1"}) {
        EXPECT_FALSE(command.IsStringFormatCorrect(text)) << text;
    }
}

TEST(GetActionTest, CreatesTheEntry)
{
    AnyCommand command;

    EXPECT_EQ(command.GetAction(), "");

    EXPECT_THAT(command.Parse("action=show"), ElementsAre(Pair("action", "")));
}

TEST(SetDataTest, CopiesTheRequest)
{
    AnyCommand command;
    CmdData data = {"name", "param", 5};
    command.SetData(data);
    data = {};

    const CmdData held = command.GetData();

    EXPECT_EQ(held.name, "name");
    EXPECT_EQ(held.param, "param");
    EXPECT_EQ(held.clientFd, 5);
    EXPECT_EQ(AnyCommand().GetData().clientFd, -1);
}

TEST(ExitCommandTest, DoesNothing)
{
    ExitCommand command;
    std::string output = "untouched";

    EXPECT_EQ(command.Exec("action=show", output), 0);

    EXPECT_EQ(output, "untouched");
}
