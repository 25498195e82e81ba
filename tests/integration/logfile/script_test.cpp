#include "logfile_fixture.h"

#include <csignal>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/time.h>
#include <unistd.h>

#include "infrastructure/common/corvane_raii.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class LogFileOpTest : public LogfileTest {
protected:
    /** The arguments as the library gives them. */
    static std::vector<std::string> Arguments(const std::string &source, const std::string &limit = "50",
                                              const std::string &prefix = "log-")
    {
        return {SCRIPT_PATH,     "-s",
                source,          "-d",
                kFolder + "/",   "-l",
                limit,           "-p",
                prefix,          "-u",
                "root",          "-g",
                "corvane_group", "backupcntlimit"};
    }
    static int Run(const std::vector<std::string> &arguments, std::string *errors = nullptr)
    {
        ChildProcess script(arguments);
        const int code = script.WaitForExit();
        if (errors != nullptr) {
            *errors = script.Errors();
        } else {
            EXPECT_EQ(script.Errors(), "");
        }
        return code;
    }
    /** A file of the folder whose last line was written @p second seconds after some instant. */
    static void Backup(const std::string &name, long second)
    {
        const std::string path = kFolder + "/" + name;
        Write(path, name + "\n");
        const struct timeval times[2] = {{1700000000 + second, 0}, {1700000000 + second, 0}};
        ASSERT_EQ(utimes(path.c_str(), times), 0);
    }
};

TEST_F(LogFileOpTest, CompressesInPlace)
{
    Backup("log-1", 7);
    Write("/tmp/logfile/other", "not asked for");

    EXPECT_EQ(Run(Arguments(kFolder + "/log-1")), 0);

    EXPECT_THAT(NamesIn(kFolder), ElementsAre("log-1.gz"));
    EXPECT_EQ(Unpacked(kFolder + "/log-1.gz"), "log-1\n");
    const struct stat status = StatusOf(kFolder + "/log-1.gz");
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(status.st_uid, 0u);
    EXPECT_EQ(status.st_gid, 64901u);
    EXPECT_EQ(status.st_mtime, 1700000007) << "the time of the last line tells the age";
    EXPECT_TRUE(std::filesystem::exists("/tmp/logfile/other"));
}

TEST_F(LogFileOpTest, TakesAFileFromElsewhere)
{
    Write(kBase + "/log-here", "text");

    EXPECT_EQ(Run(Arguments(kBase + "/log-here")), 0);

    EXPECT_THAT(NamesIn(kFolder), ElementsAre("log-here.gz"));
    EXPECT_FALSE(std::filesystem::exists(kBase + "/log-here"));
}

TEST_F(LogFileOpTest, TheOldestGo)
{
    Backup("log-c.gz", 1);
    Backup("log-a.gz", 2);
    Backup("log-b.gz", 3);
    Backup("log-new", 4);
    Backup("other-oldest.gz", 0);
    Backup("my-log-x", 0);

    EXPECT_EQ(Run(Arguments(kFolder + "/log-new", "2")), 0);

    EXPECT_THAT(NamesIn(kFolder), ElementsAre("log-b.gz", "log-new.gz", "my-log-x", "other-oldest.gz"));
}

TEST_F(LogFileOpTest, OfOneAgeTheSmallerNameIsOlder)
{
    for (const char *name : {"log-2", "log-1", "log-3"}) {
        Backup(name, 5);
    }

    EXPECT_EQ(Run(Arguments(kFolder + "/log-3", "2")), 0);

    EXPECT_THAT(NamesIn(kFolder), ElementsAre("log-2", "log-3.gz"));
}

TEST_F(LogFileOpTest, ExactlyAsManyStayAsAllowed)
{
    for (int i = 10; i < 60; i++) {
        Backup("log-" + std::to_string(i), i);
    }
    Backup("log-9", 99);

    EXPECT_EQ(Run(Arguments(kFolder + "/log-9", "50")), 0);

    const auto names = NamesIn(kFolder);
    EXPECT_EQ(names.size(), 50u);
    EXPECT_EQ(names.front(), "log-11");
    EXPECT_EQ(names.back(), "log-9.gz");
}

TEST_F(LogFileOpTest, NoneMayStay)
{
    Backup("log-1", 1);

    EXPECT_EQ(Run(Arguments(kFolder + "/log-1", "0")), 0);

    EXPECT_THAT(NamesIn(kFolder), IsEmpty());
}

TEST_F(LogFileOpTest, ALimitMayHaveLeadingZeros)
{
    for (int i = 0; i < 12; i++) {
        Backup("log-" + std::to_string(10 + i), i);
    }

    EXPECT_EQ(Run(Arguments(kFolder + "/log-21", "010")), 0);

    EXPECT_EQ(NamesIn(kFolder).size(), 10u);
}

class LogFileOpNameTest : public LogFileOpTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(LogFileOpNameTest, OddNamesAreNames)
{
    const std::string name = GetParam();
    Backup(name, 2);
    Backup(name + "-old", 1);
    Backup("bystander", 0);

    EXPECT_EQ(Run(Arguments(kFolder + "/" + name, "1", name)), 0);

    EXPECT_THAT(NamesIn(kFolder), ::testing::UnorderedElementsAre(name + ".gz", "bystander"));
    EXPECT_EQ(Unpacked(kFolder + "/" + name + ".gz"), name + "\n");
    EXPECT_THAT(NamesIn(kBase), ElementsAre("bak"));
}

INSTANTIATE_TEST_SUITE_P(Names, LogFileOpNameTest,
                         ::testing::Values("with blank", " leading", "-rf", "--help", "*", "?[a-z]", "line\nbreak",
                                           "$(touch ${HOME}owned)", "`touch owned`", "a;touch owned", "quote'\"",
                                           "back\\slash", "tab\there", "ümlaut", ".hidden", "%s%n"));

TEST_F(LogFileOpTest, ARelativeNameIsNoOption)
{
    Write(kBase + "/-rf", "text");

    EXPECT_EQ(Run({"/bin/sh", "-c",
                   "cd " + kBase + " && exec " SCRIPT_PATH " -s -rf -d bak/ -l 9 -p - -u root -g root backupcntlimit"}),
              0);

    EXPECT_EQ(Unpacked(kFolder + "/-rf.gz"), "text");
    EXPECT_THAT(NamesIn(kBase), ElementsAre("bak"));
}

TEST_F(LogFileOpTest, APrefixIsNoPattern)
{
    Backup("log-1", 1);
    Backup("l*g-2", 2);
    Backup("l*g-3", 3);

    EXPECT_EQ(Run(Arguments(kFolder + "/l*g-3", "1", "l*g-")), 0);

    EXPECT_THAT(NamesIn(kFolder), ElementsAre("l*g-3.gz", "log-1"));
}

TEST_F(LogFileOpTest, FoldersAndLinksAreNotCounted)
{
    std::filesystem::create_directory(kFolder + "/log-folder");
    std::filesystem::create_symlink("/etc/passwd", kFolder + "/log-link");
    Backup("log-1", 1);

    EXPECT_EQ(Run(Arguments(kFolder + "/log-1", "1")), 0);

    EXPECT_THAT(NamesIn(kFolder), ElementsAre("log-1.gz", "log-folder", "log-link"));
}

TEST_F(LogFileOpTest, ALinkIsNotFollowed)
{
    Write(kBase + "/secret", "secret");
    std::filesystem::create_symlink(kBase + "/secret", kFolder + "/log-1");
    std::string errors;

    EXPECT_EQ(Run(Arguments(kFolder + "/log-1"), &errors), 1);

    EXPECT_THAT(errors, HasSubstr("is no plain file"));
    EXPECT_THAT(NamesIn(kFolder), ElementsAre("log-1"));
    EXPECT_EQ(Read(kBase + "/secret"), "secret");
}

TEST_F(LogFileOpTest, AMissingFileIsTold)
{
    std::string errors;

    EXPECT_EQ(Run(Arguments(kFolder + "/log-1"), &errors), 1);

    EXPECT_THAT(errors, HasSubstr("/log-1 is no plain file"));
}

TEST_F(LogFileOpTest, WhatAnotherRunHasDoneIsDone)
{
    Backup("log-1.gz", 1);

    EXPECT_EQ(Run(Arguments(kFolder + "/log-1")), 0);

    EXPECT_EQ(Read(kFolder + "/log-1.gz"), "log-1.gz\n") << "untouched";
}

TEST_F(LogFileOpTest, AnUnknownOwnerLeavesTheFile)
{
    Backup("log-1", 1);
    auto arguments = Arguments(kFolder + "/log-1");
    arguments[10] = "no_such_user";
    std::string errors;

    EXPECT_EQ(Run(arguments, &errors), 1);

    EXPECT_THAT(errors, HasSubstr("no_such_user"));
    EXPECT_THAT(NamesIn(kFolder), ElementsAre("log-1"));
}

TEST_F(LogFileOpTest, AFullFileSystemLeavesTheFileAndStillMakesRoom)
{
    ASSERT_EQ(mount("tmpfs", kFolder.c_str(), "tmpfs", 0, "size=256k"), 0);
    std::string noise;
    for (unsigned seed = 1; noise.size() < 150 * 1024;) {
        seed = seed * 1103515245u + 12345u;
        noise += static_cast<char>(seed >> 16);
    }
    Backup("log-1", 1);
    Backup("log-2", 2);
    Write(kFolder + "/log-3", noise);
    std::string errors;

    EXPECT_EQ(Run(Arguments(kFolder + "/log-3", "2"), &errors), 1);

    EXPECT_THAT(NamesIn(kFolder), ElementsAre("log-2", "log-3"));
    EXPECT_EQ(Read(kFolder + "/log-3"), noise);
    EXPECT_EQ(umount(kFolder.c_str()), 0);
}

TEST_F(LogFileOpTest, TwoRunsTakeTurns)
{
    Backup("log-1", 1);
    UniqueFd folder(open(kFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(flock(folder.Get(), LOCK_EX), 0);
    ChildProcess waiting(Arguments(kFolder + "/log-1"));

    // It waits: its child flock exists until the lock is free.
    const std::string children =
        "/proc/" + std::to_string(waiting.Pid()) + "/task/" + std::to_string(waiting.Pid()) + "/children";
    while (Read(children).empty()) {
        ASSERT_TRUE(waiting.Running());
    }
    EXPECT_THAT(NamesIn(kFolder), ElementsAre("log-1"));
    ASSERT_EQ(flock(folder.Get(), LOCK_UN), 0);

    EXPECT_EQ(waiting.WaitForExit(), 0);
    EXPECT_THAT(NamesIn(kFolder), ElementsAre("log-1.gz"));
}

TEST_F(LogFileOpTest, ManyRunsAtOnceLoseNothing)
{
    std::vector<std::unique_ptr<ChildProcess>> runs;
    for (int i = 10; i < 30; i++) {
        Backup("log-" + std::to_string(i), i);
    }
    for (int i = 10; i < 30; i++) {
        runs.push_back(std::make_unique<ChildProcess>(Arguments(kFolder + "/log-" + std::to_string(i))));
        runs.push_back(std::make_unique<ChildProcess>(Arguments(kFolder + "/log-" + std::to_string(i))));
    }

    for (const auto &run : runs) {
        EXPECT_EQ(run->WaitForExit(), 0) << run->Errors();
    }

    EXPECT_EQ(NamesIn(kFolder).size(), 20u);
    for (int i = 10; i < 30; i++) {
        const std::string name = "log-" + std::to_string(i);
        EXPECT_EQ(Unpacked(kFolder + "/" + name + ".gz"), name + "\n");
    }
}

TEST_F(LogFileOpTest, ALeftoverOfAKilledRunIsReplaced)
{
    Write(kFolder + "/.corvane_log_file_op.tmp", "half");
    Backup("log-1", 1);

    EXPECT_EQ(Run(Arguments(kFolder + "/log-1")), 0);

    EXPECT_THAT(NamesIn(kFolder), ElementsAre("log-1.gz"));
}

struct BadArguments {
    const char *name;
    size_t index;
    const char *value;
    const char *message;
};

class LogFileOpUsageTest : public LogFileOpTest, public ::testing::WithParamInterface<BadArguments> {};

TEST_P(LogFileOpUsageTest, ChangesNothing)
{
    Backup("log-1", 1);
    auto arguments = Arguments(kFolder + "/log-1");
    arguments[GetParam().index] = GetParam().value;
    std::string errors;

    EXPECT_EQ(Run(arguments, &errors), 2);

    EXPECT_THAT(errors, HasSubstr(GetParam().message));
    EXPECT_THAT(NamesIn(kFolder), ElementsAre("log-1"));
}

INSTANTIATE_TEST_SUITE_P(Arguments, LogFileOpUsageTest,
                         ::testing::Values(BadArguments{"NoSource", 2, "", "are all needed"},
                                           BadArguments{"NoSlash", 4, "/tmp/logfile/bak", "trailing slash"},
                                           BadArguments{"NoNumber", 6, "many", "-l takes a number"},
                                           BadArguments{"Negative", 6, "-1", "-l takes a number"},
                                           BadArguments{"NoPrefix", 8, "", "are all needed"},
                                           BadArguments{"PrefixWithFolder", 8, "../x", "beginning of a file name"},
                                           BadArguments{"NoGroup", 12, "", "are all needed"},
                                           BadArguments{"Operation", 13, "remove", "unknown operation remove"},
                                           BadArguments{"Option", 1, "-x", "unknown option -x"}),
                         [](const auto &test) { return test.param.name; });

TEST_F(LogFileOpTest, TheOperationIsNeeded)
{
    auto arguments = Arguments(kFolder + "/log-1");
    arguments.pop_back();
    std::string errors;

    EXPECT_EQ(Run(arguments, &errors), 2);

    EXPECT_THAT(errors, HasSubstr("the operation must be backupcntlimit"));
}

TEST_F(LogFileOpTest, AMissingFolderIsTold)
{
    std::filesystem::remove_all(kFolder);
    std::string errors;

    EXPECT_EQ(Run(Arguments("/tmp/logfile/log-1"), &errors), 1);

    EXPECT_THAT(errors, HasSubstr("is no folder"));
}
