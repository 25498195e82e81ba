#include "platform/norlog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <utility>
#include <vector>

#include "unit/platform/platform_test_support.h"

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::SizeIs;

namespace {

constexpr uint32_t kError = 3;
constexpr uint32_t kInfo = 6;
constexpr uint32_t kDebug = 7;
constexpr uint32_t kModule = 999;

std::vector<std::string> LinesOf(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

class NorlogTest : public ::testing::Test {
protected:
    NorlogTest() { EXPECT_EQ(norlog_set_file_path_ext(Folder().c_str(), Folder().c_str()), 0); }
    ~NorlogTest() override
    {
        while (norlog_destroy() == 0) {
        }
        (void)norlog_set_file_size(4U << 20);
        (void)norlog_set_backup_num(10);
        (void)norlog_loglevel_set(kModule, NORLOG_DEFAULT_LEVEL);
    }

    [[nodiscard]] std::string Folder() const { return temp_.Path() + "/log/deep/"; }
    [[nodiscard]] std::string File() const { return Folder() + NORLOG_FILE_NAME; }
    [[nodiscard]] std::string Text() const { return ReadWhole(File()); }
    static void Log(uint32_t level, const char *text) { norlog(kModule, level, "file.cpp", 12, "Func", 0, "%s", text); }

    TempFolder temp_;
};

} // namespace

TEST_F(NorlogTest, WritesOneLinePerCallWithEverythingInIt)
{
    ASSERT_EQ(norlog_init(), 0);

    norlog(481, kError, "drm.cpp", 42, "DrmInit", 0, "failed, ret: %d", -1);
    ASSERT_EQ(norlog_destroy(), 0);

    EXPECT_THAT(Text(), MatchesRegex("\\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}\\]"
                                     "\\[ERROR\\]\\[481\\]\\[drm.cpp:42\\]\\[DrmInit\\] failed, ret: -1\n"));
}

TEST_F(NorlogTest, NamesEachLevel)
{
    ASSERT_EQ(norlog_loglevel_set(kModule, 9), 0);
    ASSERT_EQ(norlog_init(), 0);

    for (uint32_t level = 0; level <= 8; level++) {
        Log(level, "text");
    }
    ASSERT_EQ(norlog_destroy(), 0);

    const std::vector<std::string> lines = LinesOf(Text());
    ASSERT_EQ(lines.size(), 9U);
    const char *const names[] = {"N/A", "N/A", "CRITICAL", "ERROR", "WARN", "EVENT", "INFO", "DEBUG", "N/A"};
    for (size_t i = 0; i < lines.size(); i++) {
        EXPECT_THAT(lines[i], HasSubstr(std::string("][") + names[i] + "][999]"));
    }
}

TEST_F(NorlogTest, DropsLinesAboveTheModulesLevel)
{
    EXPECT_EQ(norlog_loglevel_get(kModule), 6U);
    EXPECT_EQ(norlog_loglevel_get(NORLOG_MODULES), 6U);
    ASSERT_EQ(norlog_init(), 0);

    Log(kDebug, "dropped");
    Log(kInfo, "kept");
    ASSERT_EQ(norlog_loglevel_set(kModule, kError), 0);
    Log(kInfo, "dropped");
    norlog(481, kInfo, "f", 1, "F", 0, "kept of 481");
    ASSERT_EQ(norlog_loglevel_set(kModule, kDebug), 0);
    Log(kDebug, "kept debug");
    ASSERT_EQ(norlog_destroy(), 0);

    EXPECT_EQ(norlog_loglevel_get(kModule), 7U);
    EXPECT_THAT(Text(), AllOf(HasSubstr("] kept\n"), HasSubstr("] kept of 481\n"), HasSubstr("] kept debug\n"),
                              Not(HasSubstr("dropped"))));
}

TEST_F(NorlogTest, RefusesALevelForNoModule)
{
    EXPECT_EQ(norlog_loglevel_set(NORLOG_MODULES, 3), EINVAL);
    EXPECT_EQ(norlog_loglevel_set(kModule, UINT32_MAX), EINVAL);
    EXPECT_EQ(norlog_loglevel_get(kModule), 6U);
}

TEST_F(NorlogTest, KeepsATextOfSeveralLinesOnOne)
{
    ASSERT_EQ(norlog_init(), 0);

    Log(kInfo, "first\nsecond\r\x1b[31m\ttab\n\n");
    ASSERT_EQ(norlog_destroy(), 0);

    EXPECT_THAT(Text(), EndsWith("] first second  [31m\ttab\n"));
    EXPECT_THAT(LinesOf(Text()), SizeIs(1));
}

TEST_F(NorlogTest, KeepsLongTextsWhole)
{
    const std::string text(8191, 'x');
    ASSERT_EQ(norlog_init(), 0);

    Log(kInfo, text.c_str());
    ASSERT_EQ(norlog_destroy(), 0);

    EXPECT_THAT(Text(), EndsWith("] " + text + "\n"));
}

TEST_F(NorlogTest, TakesMissingNames)
{
    const char *const noFormat = nullptr;
    ASSERT_EQ(norlog_init(), 0);

    norlog(kModule, kInfo, nullptr, 1, nullptr, 0, "text");
    norlog(kModule, kInfo, "f", 1, "F", 0, noFormat);
    ASSERT_EQ(norlog_destroy(), 0);

    EXPECT_THAT(LinesOf(Text()), SizeIs(1));
    EXPECT_THAT(Text(), EndsWith("[?:1][?] text\n"));
}

TEST_F(NorlogTest, WritesErrorsOutAtOnceAndTheRestWithinASecond)
{
    ASSERT_EQ(norlog_init(), 0);

    Log(kError, "error");
    EXPECT_THAT(Text(), HasSubstr("] error\n"));

    Log(kInfo, "info");
    EXPECT_TRUE(WaitFor([this] { return Text().find("] info\n") != std::string::npos; }));
}

TEST_F(NorlogTest, FilesAreForTheServiceAlone)
{
    ASSERT_EQ(norlog_init(), 0);
    Log(kError, "text");

    struct stat folder {};
    struct stat file {};
    ASSERT_EQ(stat(Folder().c_str(), &folder), 0);
    ASSERT_EQ(stat(File().c_str(), &file), 0);

    EXPECT_EQ(file.st_mode & 0777, 0640U);
    EXPECT_EQ(folder.st_mode & 0027, 0U);
}

struct RotationCase {
    uint32_t backups;
    uint32_t expected;
};

class NorlogRotationTest : public NorlogTest, public ::testing::WithParamInterface<RotationCase> {};

TEST_P(NorlogRotationTest, KeepsAsManyFilesAsAskedFor)
{
    ASSERT_EQ(norlog_set_file_size(1024), 0);
    ASSERT_EQ(norlog_init(), 0);
    ASSERT_EQ(norlog_set_backup_num(GetParam().backups), 0);
    const std::string text(300, 'r');

    for (int i = 0; i < 60; i++) {
        Log(kError, (std::to_string(i) + "-" + text).c_str());
    }
    ASSERT_EQ(norlog_destroy(), 0);

    uint32_t rotated = 0;
    for (const auto &entry : std::filesystem::directory_iterator(Folder())) {
        EXPECT_LE(entry.file_size(), 1024U) << entry.path();
        rotated += entry.path().filename() != NORLOG_FILE_NAME ? 1 : 0;
    }
    EXPECT_EQ(rotated, GetParam().expected);
    EXPECT_THAT(Text(), HasSubstr("] 59-rrr")) << "the newest line is in the file without a number";
    for (uint32_t i = 1; i <= GetParam().expected; i++) {
        EXPECT_TRUE(std::filesystem::exists(Folder() + "norlog." + std::to_string(i) + ".log")) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Numbers, NorlogRotationTest,
                         ::testing::Values(RotationCase{0, 0}, RotationCase{1, 1}, RotationCase{3, 3},
                                           RotationCase{100, 29}));

TEST_F(NorlogTest, RefusesLimitsOutOfRange)
{
    EXPECT_EQ(norlog_set_file_size(1023), EINVAL);
    EXPECT_EQ(norlog_set_backup_num(10001), EINVAL);
    EXPECT_EQ(norlog_set_file_path_ext(nullptr, nullptr), EINVAL);
    EXPECT_EQ(norlog_set_file_path_ext("", ""), EINVAL);
    EXPECT_EQ(norlog_set_file_path_ext(std::string(4096, 'a').c_str(), ""), EINVAL);
}

TEST_F(NorlogTest, GoesOnInTheSameFileAfterARestart)
{
    ASSERT_EQ(norlog_init(), 0);
    Log(kInfo, "before");
    ASSERT_EQ(norlog_destroy(), 0);

    ASSERT_EQ(norlog_init(), 0);
    Log(kInfo, "after");
    ASSERT_EQ(norlog_destroy(), 0);

    EXPECT_THAT(Text(), AllOf(HasSubstr("] before\n"), HasSubstr("] after\n")));
}

TEST_F(NorlogTest, MovesToAnotherFolderWhileItRuns)
{
    const std::string other = temp_.Path() + "/other";
    ASSERT_EQ(norlog_init(), 0);
    Log(kInfo, "here");

    ASSERT_EQ(norlog_set_file_path_ext(other.c_str(), other.c_str()), 0);
    Log(kInfo, "there");
    ASSERT_EQ(norlog_destroy(), 0);

    EXPECT_THAT(Text(), AllOf(HasSubstr("] here\n"), Not(HasSubstr("there"))));
    EXPECT_THAT(ReadWhole(other + "/" NORLOG_FILE_NAME), HasSubstr("] there\n"));
}

TEST_F(NorlogTest, CountsStarts)
{
    EXPECT_EQ(norlog_destroy(), ESRCH);
    ASSERT_EQ(norlog_init(), 0);
    ASSERT_EQ(norlog_init(), 0);

    ASSERT_EQ(norlog_destroy(), 0);
    Log(kInfo, "still there");
    ASSERT_EQ(norlog_destroy(), 0);

    EXPECT_THAT(Text(), HasSubstr("] still there\n"));
    EXPECT_EQ(norlog_destroy(), ESRCH);
}

TEST_F(NorlogTest, BeforeItsStartOnlyErrorsGoToStandardError)
{
    testing::internal::CaptureStderr();

    Log(kError, "early error");
    Log(kInfo, "early info");

    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                AllOf(HasSubstr("[ERROR][999][file.cpp:12][Func] early error\n"), Not(HasSubstr("early info"))));
    EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(NorlogTest, AFolderThatCannotBeMadeIsToldOnce)
{
    const std::string blocker = temp_.Path() + "/file";
    std::ofstream(blocker) << "x";
    const std::string folder = blocker + "/log";
    ASSERT_EQ(norlog_set_file_path_ext(folder.c_str(), folder.c_str()), 0);
    testing::internal::CaptureStderr();

    EXPECT_EQ(norlog_init(), 0);
    EXPECT_EQ(norlog_set_backup_num(5), 0);
    Log(kInfo, "one");
    Log(kError, "two");
    EXPECT_EQ(norlog_destroy(), 0);

    const std::vector<std::string> lines = LinesOf(testing::internal::GetCapturedStderr());
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0],
              "norlog: cannot write to log folder \"" + folder + "\": Not a directory; logging to standard error");
    EXPECT_THAT(lines[1], EndsWith("[INFO][999][file.cpp:12][Func] one"));
    EXPECT_THAT(lines[2], EndsWith("[ERROR][999][file.cpp:12][Func] two"));
}

TEST_F(NorlogTest, AFolderThatCanBeMadeLaterGetsTheLog)
{
    const std::string blocker = temp_.Path() + "/file";
    const std::string folder = blocker + "/log";
    std::ofstream(blocker) << "x";
    ASSERT_EQ(norlog_set_file_path_ext(folder.c_str(), folder.c_str()), 0);
    testing::internal::CaptureStderr();
    ASSERT_EQ(norlog_init(), 0);
    Log(kInfo, "early");

    ASSERT_TRUE(std::filesystem::remove(blocker));
    EXPECT_TRUE(WaitFor([&] { return std::filesystem::exists(folder + "/" NORLOG_FILE_NAME); }));
    Log(kInfo, "late");
    EXPECT_EQ(norlog_destroy(), 0);

    EXPECT_THAT(testing::internal::GetCapturedStderr(), AllOf(HasSubstr("] early\n"), Not(HasSubstr("late"))));
    EXPECT_THAT(ReadWhole(folder + "/" NORLOG_FILE_NAME), AllOf(HasSubstr("] late\n"), Not(HasSubstr("early"))));
}

TEST_F(NorlogTest, AFileThatCannotBeOpenedIsToldAndComesLater)
{
    ASSERT_TRUE(std::filesystem::create_directories(File()));
    testing::internal::CaptureStderr();
    ASSERT_EQ(norlog_init(), 0);

    ASSERT_TRUE(std::filesystem::remove(File()));
    EXPECT_TRUE(WaitFor([this] { return std::filesystem::is_regular_file(File()); }));
    Log(kInfo, "late");
    EXPECT_EQ(norlog_destroy(), 0);

    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "norlog: cannot write to log folder \"" + Folder() + "\": Is a directory; logging to standard error\n");
    EXPECT_THAT(Text(), HasSubstr("] late\n"));
}

/** What keeps a rotation from opening the new file, and how that ends. */
struct Trouble {
    const char *name;
    const char *reason;
    void (*begin)(const std::string &folder);
    void (*end)(const std::string &folder);
};

static void PrintTo(const Trouble &trouble, std::ostream *out)
{
    *out << trouble.name;
}

/** Allows no more descriptors, and the second time as many as before. */
[[maybe_unused]] static void SwapDescriptorLimit(const std::string &)
{
    static rlim_t other = 0;
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    std::swap(limit.rlim_cur, other);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

static void PutFileInPlaceOf(const std::string &folder)
{
    ASSERT_NE(std::filesystem::remove_all(folder), 0U);
    std::ofstream(folder.substr(0, folder.size() - 1)) << "x";
}

static void RemoveFileInPlaceOf(const std::string &folder)
{
    ASSERT_TRUE(std::filesystem::remove(folder.substr(0, folder.size() - 1)));
}

class NorlogTroubleTest : public NorlogTest, public ::testing::WithParamInterface<Trouble> {};

TEST_P(NorlogTroubleTest, ARotationThatFailsIsToldAndTheFileComesBack)
{
    constexpr int kRounds = 2;
    const std::string text(400, 't');
    ASSERT_EQ(norlog_set_file_size(1024), 0);
    ASSERT_EQ(norlog_init(), 0);
    testing::internal::CaptureStderr();

    for (int round = 0; round < kRounds; round++) {
        Log(kInfo, ("one " + text).c_str());
        Log(kInfo, ("two " + text).c_str());
        GetParam().begin(Folder());
        Log(kInfo, ("three " + text).c_str());
        Log(kInfo, "short");
        Log(kInfo, ("four " + text).c_str());
        GetParam().end(Folder());
        EXPECT_TRUE(WaitFor([this] { return std::filesystem::exists(File()); })) << "round " << round;
        Log(kInfo, "back");
    }
    ASSERT_EQ(norlog_destroy(), 0);

    const std::vector<std::string> lines = LinesOf(testing::internal::GetCapturedStderr());
    ASSERT_THAT(lines, SizeIs(4 * kRounds)) << "each failure is told once";
    for (size_t at = 0; at < lines.size(); at += 4) {
        EXPECT_THAT(lines[at], MatchesRegex("norlog: cannot write to log folder \".*/log/deep/\": .*" +
                                            std::string(GetParam().reason) + "; logging to standard error"));
        EXPECT_THAT(lines[at + 1], EndsWith("] three " + text));
        EXPECT_THAT(lines[at + 2], EndsWith("] short"));
        EXPECT_THAT(lines[at + 3], EndsWith("] four " + text));
    }
    EXPECT_THAT(Text(), EndsWith("] back\n"));
}

const Trouble kTroubles[] = {
#ifndef __SANITIZE_ADDRESS__ // whose look at the type of an exception takes a pipe
    {"NoDescriptor", "Too many open files", SwapDescriptorLimit, SwapDescriptorLimit},
#endif
    {"NoFolder", "Not a directory", PutFileInPlaceOf, RemoveFileInPlaceOf},
};

INSTANTIATE_TEST_SUITE_P(Causes, NorlogTroubleTest, ::testing::ValuesIn(kTroubles),
                         [](const auto &row) { return row.param.name; });

TEST_F(NorlogTest, ARemovedFolderIsMadeAnewForTheServiceAlone)
{
    const mode_t former = umask(022);
    const std::string text(600, 't');
    ASSERT_EQ(norlog_set_file_size(1024), 0);
    ASSERT_EQ(norlog_init(), 0);
    Log(kError, text.c_str());

    ASSERT_NE(std::filesystem::remove_all(Folder()), 0U);
    Log(kError, ("second " + text).c_str());
    (void)umask(former);

    struct stat folder {};
    ASSERT_EQ(stat(Folder().c_str(), &folder), 0);
    EXPECT_EQ(folder.st_mode & 0777, 0750U);
    EXPECT_THAT(Text(), HasSubstr("] second "));
}

TEST_F(NorlogTest, AFullDiskIsToldOnceAndTheLinesGoToStandardError)
{
    std::filesystem::create_directories(Folder());
    std::filesystem::create_symlink("/dev/full", File());
    testing::internal::CaptureStderr();

    ASSERT_EQ(norlog_init(), 0);
    Log(kError, "first");
    Log(kInfo, "kept back, which says nothing about the disk");
    Log(kError, "second");
    ASSERT_EQ(norlog_destroy(), 0);

    const std::vector<std::string> lines = LinesOf(testing::internal::GetCapturedStderr());
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[0], HasSubstr("norlog: cannot write to log folder"));
    EXPECT_THAT(lines[1], EndsWith("] first"));
    EXPECT_THAT(lines[2], EndsWith("] second"));
}

TEST_F(NorlogTest, LinesOfManyThreadsStayWhole)
{
    ASSERT_EQ(norlog_set_file_size(16384), 0);
    ASSERT_EQ(norlog_set_backup_num(1000), 0);
    ASSERT_EQ(norlog_init(), 0);
    std::vector<std::thread> threads;

    for (int i = 0; i < 4; i++) {
        threads.emplace_back([i] {
            const std::string text(50, static_cast<char>('a' + i));
            for (int round = 0; round < 500; round++) {
                Log(kInfo, text.c_str());
                if (round % 100 == 0) {
                    (void)norlog_loglevel_set(kModule, kInfo);
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    ASSERT_EQ(norlog_destroy(), 0);

    size_t lines = 0;
    for (const auto &entry : std::filesystem::directory_iterator(Folder())) {
        for (const std::string &line : LinesOf(ReadWhole(entry.path()))) {
            lines++;
            EXPECT_THAT(line, MatchesRegex(".*\\] (a{50}|b{50}|c{50}|d{50})"));
        }
    }
    EXPECT_EQ(lines, 2000U);
}
