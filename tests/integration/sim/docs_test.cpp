// What the pages say can be done as they say it.
#include "sim_process.h"

#include <fstream>
#include <gmock/gmock.h>
#include <regex>
#include <sstream>

namespace {

std::string ReadAll(const std::string &path)
{
    std::ifstream stream(path);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

TEST_F(SimTest, FirstScenarioOfThePageIsGood)
{
    const std::string page = ReadAll(CORVANE_SIM_PAGE);
    const size_t begin = page.find("```json\n");
    ASSERT_NE(begin, std::string::npos);
    const std::string scenario = page.substr(begin + 8, page.find("```", begin + 8) - begin - 8);

    const Finished check = RunSim({"--check", "--scenario", WriteFile("first.json", scenario)});

    EXPECT_EQ(check.exitCode, 0) << check.err;
    EXPECT_THAT(check.out, testing::HasSubstr("good, 2 disks, 3 events"));
}

TEST_F(SimTest, RecipesOfThePageWorkOnTheDemoFleet)
{
    const std::string page = ReadAll(CORVANE_SIM_PAGE);
    const std::string recipes = page.substr(page.find("\n## Recipes"));
    Start(ReadAll(CORVANE_SIM_SCENARIOS "/demo.json"));
    const std::regex event("`(\\{\"do\".*?\\})`");

    int tried = 0;
    for (std::sregex_iterator i(recipes.begin(), recipes.end(), event), end; i != end; ++i, tried++) {
        EXPECT_EQ(Control((*i)[1]), R"({"ok":true})") << (*i)[1];
    }

    EXPECT_EQ(tried, 13);
}

TEST(SimPagesTest, EveryOptionStandsInManPageAndCompletion)
{
    const std::string help = RunSim({"--help"}).out;
    std::string man = ReadAll(CORVANE_SIM_MAN);
    man.erase(std::remove(man.begin(), man.end(), '\\'), man.end());
    const std::string completion = ReadAll(CORVANE_SIM_COMPLETION);
    const std::regex option("\n  (?:-., |    )(--[a-z-]+)");

    int found = 0;
    for (std::sregex_iterator i(help.begin(), help.end(), option), end; i != end; ++i, found++) {
        EXPECT_THAT(man, testing::HasSubstr((*i)[1]));
        EXPECT_THAT(completion, testing::HasSubstr((*i)[1]));
    }

    EXPECT_EQ(found, 15);
}

} // namespace
