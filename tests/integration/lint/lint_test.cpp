#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>

#include "support/child_process.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace fs = std::filesystem;

/** The script in a tree of one source and one completion, with no tools but those that a test puts there. */
class LintTest : public ::testing::Test {
protected:
    LintTest()
    {
        char name[] = "/tmp/corvane-lint.XXXXXX";
        tree_ = mkdtemp(name);
        fs::create_directories(tree_ + "/tools");
        fs::create_directories(tree_ + "/bin");
        fs::copy_file(LINT_SCRIPT, tree_ + "/tools/lint.sh");
        for (const char *tool : {"bash", "cat", "dirname", "grep", "mkdir", "nproc", "xargs"}) {
            fs::create_symlink(std::string("/usr/bin/") + tool, tree_ + "/bin/" + tool);
        }
        // Lists what fits the last pattern that it is asked for.
        AddTool("git", R"(for last; do :; done
case $last in
*completion*) printf 'packaging/completion/it\0' ;;
*) printf 'a.cpp\0' ;;
esac)");
        AddTool("cmake", "exit 0");
    }
    ~LintTest() override { fs::remove_all(tree_); }

    void AddTool(const std::string &name, const std::string &body) const
    {
        const std::string path = tree_ + "/bin/" + name;
        std::ofstream(path) << "#!/usr/bin/bash\n" << body << '\n';
        (void)chmod(path.c_str(), 0755);
    }
    /** @return the exit code. */
    int Lint(const std::string &check)
    {
        ChildProcess lint({"/usr/bin/bash", tree_ + "/tools/lint.sh", check}, {"PATH=" + tree_ + "/bin"});
        const int exitCode = lint.WaitForExit();
        output_ = lint.Output();
        EXPECT_EQ(lint.Errors(), "");
        return exitCode;
    }

    std::string output_;

private:
    std::string tree_;
};

TEST_F(LintTest, ClangTidyPassesWhenItFindsNothing)
{
    AddTool("clang-tidy", "echo '17 warnings generated.' >&2");

    EXPECT_EQ(Lint("clang_tidy"), 0);

    EXPECT_EQ(output_, "lint: clang_tidy ok\n");
}

TEST_F(LintTest, ClangTidyFailsWithWhatItFinds)
{
    // As it ends where warnings are errors, and where they are not.
    for (const char *end : {"; exit 1", ""}) {
        AddTool("clang-tidy", std::string("echo '/a.cpp:1:1: warning: this is odd [odd]'") + end);

        EXPECT_EQ(Lint("clang_tidy"), 1);

        EXPECT_THAT(output_, HasSubstr("a.cpp:1:1: warning: this is odd [odd]\n"));
        EXPECT_THAT(output_, HasSubstr("lint: clang_tidy FAILED\n"));
    }
}

TEST_F(LintTest, ClangTidyFailsWhenItIsMissing)
{
    EXPECT_EQ(Lint("clang_tidy"), 1);

    EXPECT_THAT(output_, HasSubstr("clang-tidy"));
    EXPECT_THAT(output_, HasSubstr("lint: clang_tidy FAILED\n"));
}

TEST_F(LintTest, ClangTidyFailsWhenItCrashes)
{
    AddTool("clang-tidy", "echo 'Stack dump:' >&2; kill -SEGV $$");

    EXPECT_EQ(Lint("clang_tidy"), 1);

    EXPECT_THAT(output_, HasSubstr("Stack dump:\n"));
    EXPECT_THAT(output_, HasSubstr("lint: clang_tidy FAILED\n"));
}

TEST_F(LintTest, CompletionsAreCheckedAsBash)
{
    AddTool("shellcheck", R"(case " $* " in
*" -s bash "*" packaging/completion/it "*) echo 'it: line 3: odd'; exit 1 ;;
esac)");

    EXPECT_EQ(Lint("shell_scripts"), 1);

    EXPECT_THAT(output_, HasSubstr("it: line 3: odd\n"));
}

TEST_F(LintTest, ScriptsAreCheckedBesideTheCompletions)
{
    AddTool("shellcheck", R"(case " $* " in
*" a.cpp "*) echo 'script: odd'; exit 1 ;;
esac)");

    EXPECT_EQ(Lint("shell_scripts"), 1);

    EXPECT_THAT(output_, HasSubstr("script: odd\n"));
    AddTool("shellcheck", "exit 0");
    EXPECT_EQ(Lint("shell_scripts"), 0);
    EXPECT_THAT(output_, Not(HasSubstr("odd")));
}
