#include "completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const CompletionSource kSource = {
    [] {
        return std::vector<std::string>{"drm", "disk", "dish"};
    },
    [](const std::string &group) {
        return group == "disk" ? std::vector<std::string>{"list", "line", "set"} : std::vector<std::string>{};
    }};

std::string Insertion(const char *line)
{
    return Complete(line, kSource).insertion;
}

} // namespace

TEST(CompleteTest, CompletesGroupsAndTheShellsOwnWords)
{
    EXPECT_EQ(Insertion("dr"), "m ");
    EXPECT_EQ(Insertion("  dr"), "m ");
    EXPECT_EQ(Insertion("h"), "elp ");
    EXPECT_EQ(Insertion("ex"), "it ");
    EXPECT_EQ(Insertion("q"), "uit ");
    EXPECT_EQ(Insertion("x"), "");
}

TEST(CompleteTest, AddsWhatAllCandidatesShare)
{
    const Completion completion = Complete("di", kSource);

    EXPECT_EQ(completion.insertion, "s");
    EXPECT_THAT(completion.candidates, ElementsAre("dish", "disk"));
    EXPECT_EQ(Insertion("dis"), "");
    EXPECT_THAT(Complete("", kSource).candidates, ElementsAre("dish", "disk", "drm", "exit", "help", "quit"));
}

TEST(CompleteTest, CompletesSubCommandsOfTheGroup)
{
    EXPECT_EQ(Insertion("disk s"), "et ");
    EXPECT_EQ(Insertion("disk\tli"), "");
    EXPECT_THAT(Complete("disk ", kSource).candidates, ElementsAre("line", "list", "set"));
    EXPECT_EQ(Insertion("disk  list"), " ");
    EXPECT_THAT(Complete("drm ", kSource).candidates, IsEmpty());
}

TEST(CompleteTest, CompletesGroupsAfterHelpAndNothingFurther)
{
    EXPECT_EQ(Insertion("help dr"), "m ");
    EXPECT_EQ(Insertion("help e"), "");
    EXPECT_THAT(Complete("disk list ", kSource).candidates, IsEmpty());
    EXPECT_THAT(Complete("help disk l", kSource).candidates, IsEmpty());
}

TEST(CompleteTest, ListsACandidateOnce)
{
    const CompletionSource twice = {[] { return std::vector<std::string>{"help"}; }, {}};

    EXPECT_THAT(Complete("he", twice).candidates, ElementsAre("help"));
    EXPECT_EQ(Complete("he", twice).insertion, "lp ");
}
