#include "cli/common/CLogger.h"

#include <array>
#include <atomic>
#include <limits>
#include <list>
#include <memory>
#include <new>
#include <set>
#include <thread>

#include "cli_test_support.h"
#include "infrastructure/common/corvane_raii.h"

namespace {

constexpr std::time_t kInstant = 1767609151; // 2026-01-05 10:32:31 UTC
constexpr const char *kTime = "[2026-01-05 10:32:31]";
constexpr const char *kStamp = "20260105103231";
constexpr int kDefaultSize = 0x1E00000;

std::time_t AnInstant(std::time_t *)
{
    return kInstant;
}

/** A year that no local time has. */
std::time_t NoLocalTime(std::time_t *)
{
    return std::numeric_limits<std::time_t>::max();
}

std::atomic<int> g_timesLeft = 0;
/** So many good answers, then none. */
std::time_t TimeThatEnds(std::time_t *)
{
    return g_timesLeft-- > 0 ? kInstant : NoLocalTime(nullptr);
}

std::atomic<int> g_opensLeft = 0;
std::FILE *OpenThatEnds(const char *path, const char *mode)
{
    return g_opensLeft-- > 0 ? std::fopen(path, mode) : nullptr;
}

std::atomic<int> g_chmodsLeft = 0;
int ChmodThatEnds(const char *path, mode_t mode)
{
    return g_chmodsLeft-- > 0 ? chmod(path, mode) : -1;
}

/** How many allocations of this thread are still granted. */
thread_local size_t t_newsLeft = std::numeric_limits<size_t>::max();

void *Allocate(size_t size)
{
    if (t_newsLeft == 0) {
        return nullptr;
    }
    t_newsLeft -= t_newsLeft != std::numeric_limits<size_t>::max() ? 1 : 0;
    return std::malloc(size != 0 ? size : 1);
}

std::string Stderr(const std::function<void()> &body)
{
    ::testing::internal::CaptureStderr();
    body();
    return ::testing::internal::GetCapturedStderr();
}

} // namespace

void *operator new(size_t size)
{
    void *memory = Allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void *operator new(size_t size, const std::nothrow_t &) noexcept
{
    return Allocate(size);
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, size_t) noexcept
{
    std::free(memory);
}

/** A logger of the test's own in a folder that is there, a fixed clock in UTC. Needs root. */
class LoggerTest : public CorvaneTest {
protected:
    LoggerTest() : folder_(Prefix() + "/log"), path_(folder_ + "/test.log"), fullName_(folder_ + "//test.log")
    {
        const char *zone = std::getenv("TZ");
        hadZone_ = zone != nullptr;
        savedZone_ = hadZone_ ? zone : "";
        (void)setenv("TZ", "UTC", 1);
        tzset();
        std::filesystem::create_directory(folder_);
        g_osCalls.time = AnInstant;
        (void)logger_->SetFilePath((folder_ + "/").c_str());
        (void)logger_->SetFileName("test.log");
    }
    ~LoggerTest() override
    {
        logger_->Close();
        (void)(hadZone_ ? setenv("TZ", savedZone_.c_str(), 1) : unsetenv("TZ"));
        tzset();
    }
    void SetUp() override { ASSERT_EQ(getuid(), 0u) << "needs root"; }

    void Line(const std::string &text, int level = CLI_LOG_LEVEL_INFO)
    {
        logger_->Log(level, 157, 1, "CLI_LOG", "File", "Function", "%s", text.c_str());
    }
    std::string Text() const { return ReadFile(path_); }
    static std::string FullLine(const std::string &text, const std::string &level = "INFO")
    {
        return kTime + ("[" + level + "][CLI_LOG][File,157,Function]" + text + "\n");
    }
    std::string RolledPath() const { return path_ + "." + kStamp; }
    size_t Files() const
    {
        return static_cast<size_t>(
            std::distance(std::filesystem::directory_iterator(folder_), std::filesystem::directory_iterator()));
    }

    std::string folder_;
    std::string path_;
    std::string fullName_; /**< as the logger forms it */
    std::unique_ptr<CLogger> logger_ = std::make_unique<CLogger>();

private:
    bool hadZone_;
    std::string savedZone_;
};

class CLoggerLogTest : public LoggerTest {};
class CLoggerHeadTest : public LoggerTest {};
class CLoggerSettersTest : public LoggerTest {};
class CLoggerRollTest : public LoggerTest {};
class CLoggerPermissionTest : public LoggerTest {};
class CLoggerPruneTest : public LoggerTest {};
class CLoggerThreadsTest : public LoggerTest {};
class CLoggerMemoryTest : public LoggerTest {
protected:
    /** One line while so many allocations are granted. @return whether some were left. */
    bool LineWith(size_t allocations)
    {
        t_newsLeft = allocations;
        logger_->Log(CLI_LOG_LEVEL_INFO, 157, 1, "CLI_LOG", "File", "Function", "%s", "next");
        return std::exchange(t_newsLeft, std::numeric_limits<size_t>::max()) != 0;
    }
};
/** The accounts come first: they cover the folder of the prefix. */
class InitLogTest : private CliAccountsInPlace, public LoggerTest {};

TEST_F(CLoggerHeadTest, HasTimeLevelModuleAndPlace)
{
    Line("Client connected.clientId(12).");

    EXPECT_EQ(Text(), "[2026-01-05 10:32:31][INFO][CLI_LOG][File,157,Function]Client connected.clientId(12).\n");
}

TEST_F(CLoggerHeadTest, HasTimeAndModuleForType2)
{
    logger_->SetType(2);

    Line("Init server log success.");

    EXPECT_EQ(Text(), "[2026-01-05 10:32:31][CLI_LOG]Init server log success.\n");
}

TEST_F(CLoggerHeadTest, HasNumberAndLevelForEveryOtherType)
{
    for (const int type : {1, 3, -1}) {
        logger_->SetType(type);
        logger_->Log(3, 1, 0xABCDEF0123UL, "M", "F", "f", "text");
    }

    const std::string line = "[2026-01-05 10:32:31][0x000000abcdef0123][3]text\n";
    EXPECT_EQ(Text(), line + line + line);
}

TEST_F(CLoggerHeadTest, NamesLevels)
{
    EXPECT_STREQ(logger_->MkLogLevel(0), "DEBUG");
    EXPECT_STREQ(logger_->MkLogLevel(1), "INFO");
    EXPECT_STREQ(logger_->MkLogLevel(2), "WARN");
    EXPECT_STREQ(logger_->MkLogLevel(3), "ERROR");
    EXPECT_STREQ(logger_->MkLogLevel(4), "FATAL");
    EXPECT_STREQ(logger_->MkLogLevel(5), "");
    EXPECT_STREQ(logger_->MkLogLevel(-1), "");

    Line("text", 5);
    EXPECT_EQ(Text(), FullLine("text", ""));
}

TEST_F(CLoggerHeadTest, IsLocalTime)
{
    (void)setenv("TZ", "XYZ-3", 1);

    Line("text");

    EXPECT_THAT(Text(), ::testing::StartsWith("[2026-01-05 13:32:31]"));
}

TEST_F(CLoggerHeadTest, EndsAt255Characters)
{
    const std::string frame = std::string(kTime) + "[INFO][CLI_LOG][F,1,f]";
    const std::string longest(255 - frame.size() + 1, 'F');

    logger_->Log(1, 1, 1, "CLI_LOG", longest.c_str(), "f", "text");
    EXPECT_EQ(Text(), std::string(kTime) + "[INFO][CLI_LOG][" + longest + ",1,f]text\n");

    logger_->Log(1, 1, 1, "CLI_LOG", (longest + "F").c_str(), "f", "text");
    EXPECT_EQ(Text().size(), 255u + 5) << "the second line is dropped";
}

TEST_F(CLoggerHeadTest, NeedsALocalTime)
{
    g_osCalls.time = NoLocalTime;

    Line("text");

    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(CLoggerLogTest, DropsAMessageOf1024Characters)
{
    const std::string longest(1023, 'm');

    Line(longest);
    Line(longest + "m");
    Line("after");

    EXPECT_EQ(Text(), FullLine(longest) + FullLine("after"));
}

TEST_F(CLoggerLogTest, FormatsItsArguments)
{
    logger_->Log(1, 157, 1, "CLI_LOG", "File", "Function", "%s is %d, 0x%x %%", "a", -5, 255u);

    EXPECT_EQ(Text(), FullLine("a is -5, 0xff %"));
}

TEST_F(CLoggerLogTest, DropsLinesBelowItsLevel)
{
    Line("debug is written by default", 0);
    logger_->SetLevel(CLI_LOG_LEVEL_WARN);
    Line("info", 1);
    Line("warn", 2);
    Line("fatal", 4);

    EXPECT_EQ(Text(),
              FullLine("debug is written by default", "DEBUG") + FullLine("warn", "WARN") + FullLine("fatal", "FATAL"));
}

TEST_F(CLoggerLogTest, DropsEveryLineWithAClearFlag)
{
    logger_->SetDbgFlg(false);
    Line("fatal", 4);
    EXPECT_FALSE(std::filesystem::exists(path_));

    logger_->SetDbgFlg(true);
    Line("on again", 4);
    EXPECT_EQ(Text(), FullLine("on again", "FATAL"));
}

TEST_F(CLoggerLogTest, ChecksItsArguments)
{
    EXPECT_TRUE(logger_->CheckBeforeLog(0, "m", "f", "n", "%s"));
    EXPECT_FALSE(logger_->CheckBeforeLog(0, nullptr, "f", "n", "%s"));
    EXPECT_FALSE(logger_->CheckBeforeLog(0, "m", nullptr, "n", "%s"));
    EXPECT_FALSE(logger_->CheckBeforeLog(0, "m", "f", nullptr, "%s"));
    EXPECT_FALSE(logger_->CheckBeforeLog(0, "m", "f", "n", nullptr));
    EXPECT_FALSE(logger_->CheckBeforeLog(-1, "m", "f", "n", "%s"));
    logger_->SetDbgFlg(false);
    EXPECT_FALSE(logger_->CheckBeforeLog(4, "m", "f", "n", "%s"));

    logger_->Log(4, 1, 1, nullptr, "f", "n", "text");
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(CLoggerLogTest, WritesNothingBeforeItHasAPath)
{
    CLogger fresh;
    EXPECT_FALSE(fresh.CheckBeforeLog(4, "m", "f", "n", "%s"));
    ASSERT_EQ(fresh.SetFilePath((folder_ + "/").c_str()), 0);
    EXPECT_TRUE(fresh.CheckBeforeLog(4, "m", "f", "n", "%s"));

    fresh.Log(4, 1, 1, "m", "f", "n", "text");

    EXPECT_TRUE(std::filesystem::exists(folder_ + "/VelmarVssProvider.log")) << "the default name";
    fresh.Close();
}

TEST_F(CLoggerLogTest, MakesTheFileAnewWhenItIsGone)
{
    Line("first");
    std::filesystem::rename(path_, path_ + ".moved");

    Line("second");
    EXPECT_EQ(ReadFile(path_ + ".moved"), FullLine("first"));
    EXPECT_EQ(Text(), FullLine("second"));

    std::filesystem::remove(path_);
    Line("third");
    EXPECT_EQ(Text(), FullLine("third"));
    EXPECT_EQ(ModeOf(path_), 0640u);
}

TEST_F(CLoggerLogTest, AppendsToAFileThatIsThereAndLeavesItsMode)
{
    WriteFile(path_, "old\n");
    ASSERT_EQ(chmod(path_.c_str(), 0604), 0);

    Line("new");

    EXPECT_EQ(Text(), "old\n" + FullLine("new"));
    EXPECT_EQ(ModeOf(path_), 0604u);
}

TEST_F(CLoggerLogTest, MakesItsFolderWithMode0)
{
    std::filesystem::remove(folder_);

    Line("root writes all the same");

    EXPECT_EQ(ModeOf(folder_), 0u);
    EXPECT_EQ(Text(), FullLine("root writes all the same"));
}

TEST_F(CLoggerLogTest, DropsTheLineWithoutParentsOfItsFolder)
{
    (void)logger_->SetFilePath((Prefix() + "/a/b/").c_str());

    Line("lost");

    EXPECT_FALSE(std::filesystem::exists(Prefix() + "/a"));
}

TEST_F(CLoggerLogTest, DropsTheLineWhenTheFileDoesNotOpen)
{
    g_opensLeft = 0;
    g_osCalls.fopen = OpenThatEnds;
    Line("lost");
    g_osCalls.fopen = std::fopen;
    Line("after");

    EXPECT_EQ(Text(), FullLine("after"));
}

TEST_F(CLoggerLogTest, KeepsNoDescriptorForChildren)
{
    static std::set<std::string> modes;
    modes.clear();
    g_osCalls.fopen = [](const char *path, const char *mode) {
        modes.insert(mode);
        return std::fopen(path, mode);
    };

    Line("text");

    EXPECT_THAT(modes, ::testing::ElementsAre("a+e"));
}

TEST_F(CLoggerSettersTest, RefuseWhatTheyCannotUse)
{
    EXPECT_EQ(logger_->SetFileName(nullptr), -1);
    EXPECT_EQ(logger_->SetFileName(""), -1);
    EXPECT_EQ(logger_->SetFileName(std::string(256, 'n').c_str()), -1);
    EXPECT_EQ(logger_->SetFilePath(nullptr), -1);
    EXPECT_EQ(logger_->SetFilePath(""), -1);
    EXPECT_EQ(logger_->SetFilePath(std::string(256, 'n').c_str()), -1);
    EXPECT_EQ(logger_->SetFileSize(0), -1);
    EXPECT_EQ(logger_->SetFileSize(-1), -1);
    EXPECT_EQ(logger_->SetRollingMode(2), -1);
    EXPECT_EQ(logger_->SetRollingMode(3), -1);

    Line("nothing changed");
    EXPECT_EQ(Text(), FullLine("nothing changed"));
    EXPECT_EQ(Files(), 1u) << "still by size, and not at the first byte";
}

TEST_F(CLoggerSettersTest, TakeTheLongestNames)
{
    EXPECT_EQ(logger_->SetFileName(std::string(255, 'n').c_str()), 0);
    EXPECT_EQ(logger_->SetFilePath(std::string(255, 'p').c_str()), 0);

    Line("no full name holds both");

    EXPECT_EQ(Files(), 0u);
}

TEST_F(CLoggerSettersTest, MoveToAnotherFile)
{
    Line("one");
    EXPECT_EQ(logger_->SetFileName("other.log"), 0);
    Line("two");
    std::filesystem::create_directory(Prefix() + "/log2");
    EXPECT_EQ(logger_->SetFilePath((Prefix() + "/log2/").c_str()), 0);
    Line("three");

    EXPECT_EQ(Text(), FullLine("one"));
    EXPECT_EQ(ReadFile(folder_ + "/other.log"), FullLine("two"));
    EXPECT_EQ(ReadFile(Prefix() + "/log2/other.log"), FullLine("three"));
}

TEST_F(CLoggerRollTest, MovesTheFileAtItsSize)
{
    const std::string full(200, 'x');
    WriteFile(path_, full);
    ASSERT_EQ(chmod(path_.c_str(), 0666), 0);
    ASSERT_EQ(chown(path_.c_str(), 64913, 64912), 0);
    ASSERT_EQ(logger_->SetFileSize(200), 0);

    Line("next");

    EXPECT_EQ(ReadFile(RolledPath()), full);
    EXPECT_EQ(ModeOf(RolledPath()), 0440u);
    EXPECT_EQ(OwnerOf(RolledPath()), 64913u) << "unchanged";
    EXPECT_EQ(GroupOf(RolledPath()), 64912u);
    EXPECT_EQ(Text(), FullLine("next"));
    EXPECT_EQ(ModeOf(path_), 0640u);
    EXPECT_EQ(OwnerOf(path_), 0u);
    EXPECT_EQ(GroupOf(path_), 0u);
    EXPECT_EQ(Files(), 2u);
}

TEST_F(CLoggerRollTest, StaysBelowItsSize)
{
    WriteFile(path_, std::string(199, 'x'));
    ASSERT_EQ(logger_->SetFileSize(200), 0);

    Line("next");

    EXPECT_EQ(Text(), std::string(199, 'x') + FullLine("next"));
    EXPECT_EQ(Files(), 1u);
}

TEST_F(CLoggerRollTest, Has30MebibytesByDefault)
{
    WriteFile(path_, "");
    std::filesystem::resize_file(path_, kDefaultSize - 1);
    Line("still there");
    EXPECT_EQ(std::filesystem::file_size(path_), kDefaultSize - 1 + FullLine("still there").size());
    EXPECT_EQ(Files(), 1u);

    std::filesystem::resize_file(path_, kDefaultSize);
    Line("next");
    EXPECT_EQ(std::filesystem::file_size(RolledPath()), static_cast<uintmax_t>(kDefaultSize));
    EXPECT_EQ(Text(), FullLine("next"));
}

TEST_F(CLoggerRollTest, IsByDayInMode0)
{
    ASSERT_EQ(logger_->SetRollingMode(0), 0);
    ASSERT_EQ(logger_->SetFileSize(1), 0);

    Line("one");
    Line("two");

    EXPECT_EQ(ReadFile(path_ + ".20260105"), FullLine("one") + FullLine("two")) << "whatever its size";
    EXPECT_EQ(ModeOf(path_ + ".20260105"), 0640u);
    EXPECT_EQ(Files(), 1u);

    g_osCalls.time = [](std::time_t *) { return kInstant + 86400; };
    Line("three");
    EXPECT_THAT(ReadFile(path_ + ".20260106"), ::testing::EndsWith("three\n"));
    EXPECT_EQ(Files(), 2u);

    ASSERT_EQ(logger_->SetRollingMode(1), 0);
    ASSERT_EQ(logger_->SetFileSize(1000), 0);
    g_osCalls.time = AnInstant;
    Line("four");
    EXPECT_EQ(Text(), FullLine("four"));
}

TEST_F(CLoggerRollTest, DropsTheLineWithoutALocalTime)
{
    WriteFile(path_, std::string(200, 'x'));
    ASSERT_EQ(logger_->SetFileSize(200), 0);
    g_timesLeft = 1; // for the head
    g_osCalls.time = TimeThatEnds;

    Line("lost");
    EXPECT_EQ(Files(), 1u);

    g_osCalls.time = AnInstant;
    Line("next");
    EXPECT_EQ(Text(), FullLine("next")) << "the lock was released";
}

TEST_F(CLoggerRollTest, DropsTheLineWhenTheNewFileDoesNotOpen)
{
    WriteFile(path_, std::string(200, 'x'));
    ASSERT_EQ(logger_->SetFileSize(200), 0);
    g_opensLeft = 1;
    g_osCalls.fopen = OpenThatEnds;

    Line("lost");
    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_TRUE(std::filesystem::exists(RolledPath()));

    g_osCalls.fopen = std::fopen;
    Line("next");
    EXPECT_EQ(Text(), FullLine("next"));
}

TEST_F(CLoggerRollTest, DropsTheLineWhenTheRolledFileKeepsItsMode)
{
    WriteFile(path_, std::string(200, 'x'));
    ASSERT_EQ(logger_->SetFileSize(200), 0);
    g_chmodsLeft = 0;
    g_osCalls.chmod = ChmodThatEnds;

    EXPECT_EQ(Stderr([this] { Line("lost"); }), "chmod bak log file " + fullName_ + "." + kStamp + " fail\n");

    EXPECT_EQ(Text(), "");
    g_osCalls.chmod = chmod;
    Line("next");
    EXPECT_EQ(Text(), FullLine("next"));
}

TEST_F(CLoggerRollTest, DropsTheLineWhenTheFileDoesNotMove)
{
    WriteFile(path_, std::string(200, 'x'));
    ASSERT_EQ(logger_->SetFileSize(200), 0);
    g_osCalls.rename = [](const char *, const char *) { return -1; };

    EXPECT_EQ(Stderr([this] { Line("lost"); }), "chmod bak log file " + fullName_ + "." + kStamp + " fail\n");

    EXPECT_EQ(Text(), std::string(200, 'x'));
}

TEST_F(CLoggerRollTest, RemovesANewFileWithoutItsMode)
{
    WriteFile(path_, std::string(200, 'x'));
    ASSERT_EQ(logger_->SetFileSize(200), 0);
    g_chmodsLeft = 1; // the rolled file's
    g_osCalls.chmod = ChmodThatEnds;

    EXPECT_EQ(Stderr([this] { Line("lost"); }), "chmod log file " + fullName_ + " fail\n");

    EXPECT_FALSE(std::filesystem::exists(path_));
    g_osCalls.chmod = chmod;
    Line("next");
    EXPECT_EQ(Text(), FullLine("next"));
}

TEST_F(CLoggerRollTest, DropsTheLineWhenTheRolledNameDoesNotFit)
{
    const std::string name(255 - (folder_ + "//").size(), 'n');
    ASSERT_EQ(logger_->SetFileName(name.c_str()), 0);
    ASSERT_EQ(logger_->SetFileSize(1), 0);

    Line("one");
    Line("lost");

    EXPECT_EQ(ReadFile(folder_ + "/" + name), FullLine("one")) << "a new file is below any size";
    EXPECT_EQ(Files(), 1u);
}

TEST_F(CLoggerPermissionTest, GivesRootTheNewFile)
{
    Line("text");

    EXPECT_EQ(ModeOf(path_), 0640u);
    EXPECT_EQ(OwnerOf(path_), 0u);
    EXPECT_EQ(GroupOf(path_), 0u);
}

TEST_F(CLoggerPermissionTest, RemovesANewFileWithoutItsMode)
{
    g_osCalls.chmod = [](const char *, mode_t) { return -1; };

    EXPECT_EQ(Stderr([this] { Line("lost"); }), "chmod log file " + fullName_ + " fail\n");

    EXPECT_EQ(Files(), 0u);
    g_osCalls.chmod = chmod;
    Line("next");
    EXPECT_EQ(Text(), FullLine("next"));
}

TEST_F(CLoggerPermissionTest, RemovesANewFileWithoutItsOwner)
{
    g_osCalls.chown = [](const char *, uid_t, gid_t) { return -1; };

    EXPECT_EQ(Stderr([this] { Line("lost"); }), "chmown log file " + fullName_ + " fail\n");

    EXPECT_EQ(Files(), 0u);
}

TEST_F(CLoggerPermissionTest, TellsWhichAccountIsMissing)
{
    WriteFile(path_, "");
    g_osCalls.getpwnam_r = [](const char *, struct passwd *, char *, size_t, struct passwd **found) {
        *found = nullptr;
        return 0;
    };
    EXPECT_EQ(Stderr([this] { EXPECT_EQ(logger_->SetLogFilePermisionRoot(path_.data()), -1); }),
              "user:root not exist\n");
    EXPECT_EQ(Stderr([this] { EXPECT_EQ(logger_->SetLogFilePermisionCorvane(path_.data()), -1); }),
              "user:corvane_user not exist\n");

    g_osCalls.getpwnam_r = [](const char *, struct passwd *entry, char *, size_t, struct passwd **found) {
        entry->pw_uid = 64901;
        *found = entry;
        return 0;
    };
    g_osCalls.getgrnam_r = [](const char *, struct group *, char *, size_t, struct group **found) {
        *found = nullptr;
        return 0;
    };
    EXPECT_EQ(Stderr([this] { EXPECT_EQ(logger_->SetLogFilePermisionRoot(path_.data()), -1); }),
              "group:root not exist\n");
    EXPECT_EQ(Stderr([this] { EXPECT_EQ(logger_->SetLogFilePermisionCorvane(path_.data()), -1); }),
              "group:corvane_group not exist\n");
}

TEST_F(CLoggerPermissionTest, TellsAMissingFile)
{
    std::string missing = folder_ + "/missing";

    EXPECT_EQ(Stderr([&] { EXPECT_EQ(logger_->SetLogFilePermision(missing.data()), -1); }),
              "chmod log file " + missing + " fail\n");
    EXPECT_EQ(Stderr([&] { EXPECT_EQ(logger_->SetBakLogFilePermision(missing.data()), -1); }),
              "chmod bak log file " + missing + " fail\n");
}

TEST_F(CLoggerPermissionTest, GivesTheServiceItsModeAndOwner)
{
    WriteFile(path_, "");
    static uid_t owner;
    static gid_t group;
    g_osCalls.getpwnam_r = [](const char *name, struct passwd *entry, char *, size_t, struct passwd **found) {
        entry->pw_uid = 64901;
        *found = std::string(name) == "corvane_user" ? entry : nullptr;
        return 0;
    };
    g_osCalls.getgrnam_r = [](const char *name, struct group *entry, char *, size_t, struct group **found) {
        entry->gr_gid = 64902;
        *found = std::string(name) == "corvane_group" ? entry : nullptr;
        return 0;
    };
    g_osCalls.chown = [](const char *, uid_t uid, gid_t gid) {
        owner = uid;
        group = gid;
        return 0;
    };

    EXPECT_EQ(logger_->SetLogFilePermisionCorvane(path_.data()), 0);

    EXPECT_EQ(ModeOf(path_), 0660u);
    EXPECT_EQ(owner, 64901u);
    EXPECT_EQ(group, 64902u);
    EXPECT_EQ(logger_->SetBakLogFilePermision(path_.data()), 0);
    EXPECT_EQ(ModeOf(path_), 0440u);
}

TEST_F(CLoggerPruneTest, LeavesRolledFiles)
{
    for (int i = 10; i < 30; i++) {
        WriteFile(path_ + ".202601010000" + std::to_string(i), "");
    }

    logger_->ProcessLogFile();

    EXPECT_EQ(Files(), 20u);
    std::list<std::string> list = {"old"};
    EXPECT_EQ(logger_->GetAllLogFile(folder_.c_str(), list, true), 0);
    EXPECT_TRUE(list.empty());
}

/** The folder whose name is the search text, so that the list is not empty. */
TEST_F(CLoggerPruneTest, ListsRolledFilesOfTheSearchText)
{
    const std::string search = folder_ + "/\\*.*";
    std::filesystem::create_directory(search);
    for (const char *name : {"test.log", "test.log.20260101000000", "test.log.2026010100000", "test.log.20260102",
                             "old-test.log.20260103000000", "other.log.20260101000000"}) {
        WriteFile(search + "/" + name, "");
    }
    std::filesystem::create_directory(search + "/test.log.20260104000000");
    std::list<std::string> list = {"old"};

    EXPECT_EQ(logger_->GetAllLogFile((folder_ + "/").c_str(), list, true), 2);
    EXPECT_THAT(list, ::testing::UnorderedElementsAre("test.log.20260101000000", "old-test.log.20260103000000"));
    EXPECT_EQ(logger_->GetAllLogFile((folder_ + "/").c_str(), list, false), 1);
    EXPECT_THAT(list, ::testing::ElementsAre("test.log.20260102"));
}

TEST_F(CLoggerPruneTest, RemovesTheOldestAboveTheLimit)
{
    std::filesystem::create_directory(Prefix() + "/target");
    for (int i = 10; i < 23; i++) { // what counts as there, and is no folder in the list
        std::filesystem::create_symlink(Prefix() + "/target", path_ + ".202601010000" + std::to_string(32 - i));
    }
    std::filesystem::create_symlink(".", folder_ + "/\\*.*");

    logger_->ProcessLogFile();

    std::list<std::string> list;
    EXPECT_EQ(logger_->GetAllLogFile((folder_ + "/").c_str(), list, true), 10);
    list.sort();
    EXPECT_EQ(list.front(), "test.log.20260101000013");
    EXPECT_EQ(list.back(), "test.log.20260101000022");
}

TEST_F(CLoggerPruneTest, EndsWhenTheOldestStays)
{
    for (int i = 10; i < 23; i++) { // plain files, which count as absent
        WriteFile(path_ + ".202601010000" + std::to_string(i), "");
    }
    std::filesystem::create_symlink(".", folder_ + "/\\*.*");

    logger_->ProcessLogFile();

    std::list<std::string> list;
    EXPECT_EQ(logger_->GetAllLogFile((folder_ + "/").c_str(), list, true), 13);
}

TEST_F(CLoggerPruneTest, FindsTheOldest)
{
    std::list<std::string> list = {"b.log.20260103000000", "a.log.20260101000000", "c.log.20260102000000"};
    std::string name = "old";

    EXPECT_EQ(logger_->GetOldestLogFile(list, name), 0);
    EXPECT_EQ(name, "a.log.20260101000000");

    list.clear();
    EXPECT_EQ(logger_->GetOldestLogFile(list, name), -1);
    EXPECT_EQ(name, "a.log.20260101000000");
    list = {"no-suffix"};
    EXPECT_EQ(logger_->GetOldestLogFile(list, name), -1);
}

TEST_F(CLoggerThreadsTest, WritesWholeLinesWhileSettingsChange)
{
    constexpr int threads = 4;
    constexpr int lines = 150;
    std::atomic<bool> stop = false;
    std::thread changer([&] {
        for (int i = 0; !stop; i++) {
            logger_->SetLevel(i % 3);
            logger_->SetType(i % 4);
            logger_->SetDbgFlg(i % 5 != 0);
            (void)logger_->SetFileSize(kDefaultSize - i % 2);
            (void)logger_->SetRollingMode(1);
            if (i % 64 == 0) {
                (void)logger_->SetFileName("test.log");
                logger_->Close();
            }
        }
    });
    std::vector<std::thread> writers;
    for (int t = 0; t < threads; t++) {
        writers.emplace_back([this, t] {
            for (int i = 0; i < lines; i++) {
                logger_->Log(i % 3, i, 7, "CLI_LOG", "File", "Function", "line %d of %d", i, t);
            }
        });
    }
    for (std::thread &writer : writers) {
        writer.join();
    }
    stop = true;
    changer.join();

    std::set<std::string> seen;
    std::istringstream text(Text());
    for (std::string line; std::getline(text, line);) {
        int i = 0;
        int t = 0;
        const size_t at = line.rfind("line ");
        ASSERT_NE(at, std::string::npos) << line;
        const std::string message = line.substr(at);
        ASSERT_EQ(std::sscanf(message.c_str(), "line %d of %d", &i, &t), 2) << line;
        EXPECT_EQ(message, "line " + std::to_string(i) + " of " + std::to_string(t));
        EXPECT_THAT(line.substr(0, at),
                    ::testing::AnyOf(std::string(kTime) + "[" + logger_->MkLogLevel(i % 3) + "][CLI_LOG][File," +
                                         std::to_string(i) + ",Function]",
                                     std::string(kTime) + "[CLI_LOG]",
                                     std::string(kTime) + "[0x0000000000000007][" + std::to_string(i % 3) + "]"));
        EXPECT_TRUE(seen.insert(message).second) << line;
    }
    EXPECT_LE(seen.size(), static_cast<size_t>(threads * lines));
}

TEST_F(CLoggerMemoryTest, DropsTheLineAndTheNewFileWhoseOwnerIsUnknown)
{
    RefuseMalloc(1024); // the look-up's

    Line("lost");

    EXPECT_EQ(Files(), 0u);
    g_osCalls.malloc = std::malloc;
    Line("next");
    EXPECT_EQ(Text(), FullLine("next")) << "the lock was released";
    EXPECT_EQ(ModeOf(path_), 0640u);
}

/** Root's file must not become the service's because nobody could tell who runs. */
TEST_F(CLoggerMemoryTest, DropsTheLineThoughThereIsMemoryAgain)
{
    static bool refused;
    refused = false;
    g_osCalls.malloc = [](size_t size) { return std::exchange(refused, true) ? std::malloc(size) : nullptr; };

    EXPECT_EQ(Stderr([this] { Line("lost"); }), "");

    EXPECT_EQ(Files(), 0u);
}

TEST_F(CLoggerMemoryTest, NeedsNoneForALineOfAFileThatIsThere)
{
    Line("first");
    RefuseMalloc(1024);

    EXPECT_FALSE(LineWith(0));

    EXPECT_EQ(Text(), FullLine("first") + FullLine("next"));
}

TEST_F(CLoggerMemoryTest, DropsTheLineThatRollsTheFile)
{
    WriteFile(path_, std::string(200, 'x'));
    ASSERT_EQ(logger_->SetFileSize(200), 0);
    RefuseMalloc(1024);

    Line("lost");

    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_TRUE(std::filesystem::exists(RolledPath()));
    g_osCalls.malloc = std::malloc;
    Line("next");
    EXPECT_EQ(Text(), FullLine("next")) << "the lock was released";
}

/** Each allocation of a line that rolls the file and prunes rolled ones fails once, until none is left. */
TEST_F(CLoggerMemoryTest, WritesTheLineWhetherOrNotRolledFilesArePruned)
{
    constexpr size_t allocationsMax = 1000;
    const std::string search = folder_ + "/\\*.*";
    std::filesystem::create_directory(search);
    for (int i = 10; i < 22; i++) {
        WriteFile(search + "/test.log.202601010000" + std::to_string(i), "");
    }
    ASSERT_EQ(logger_->SetFileSize(200), 0);

    bool left = false;
    size_t allocations = 0;
    for (; !left && allocations < allocationsMax; allocations++) {
        WriteFile(path_, std::string(200, 'x'));

        left = LineWith(allocations);

        EXPECT_EQ(Text(), FullLine("next")) << allocations;
        EXPECT_EQ(ModeOf(path_), 0640u) << allocations;
        EXPECT_EQ(ModeOf(RolledPath()), 0440u) << allocations;
    }
    EXPECT_TRUE(left);
    EXPECT_GT(allocations, 12u) << "the rolled files' names";
}

TEST_F(CLoggerThreadsTest, LosesNoLine)
{
    constexpr int threads = 4;
    constexpr int lines = 100;
    std::vector<std::thread> writers;
    for (int t = 0; t < threads; t++) {
        writers.emplace_back([this, t] {
            for (int i = 0; i < lines; i++) {
                Line(std::to_string(t) + "-" + std::to_string(i));
            }
        });
    }
    for (std::thread &writer : writers) {
        writer.join();
    }

    const std::string text = Text();
    for (int t = 0; t < threads; t++) {
        size_t at = 0;
        for (int i = 0; i < lines; i++) { // in the order of their thread
            at = text.find("]" + std::to_string(t) + "-" + std::to_string(i) + "\n", at);
            ASSERT_NE(at, std::string::npos) << t << "-" << i;
        }
    }
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), threads * lines);
}

namespace {

/** Logs one line to each of the two loggers of the process, configured anew. */
int InitAndLog()
{
    if (InitLog() != 0) {
        return 1;
    }
    g_objLogger.Log(CLI_LOG_LEVEL_INFO, 157, 1, "CLI_LOG", "File", "Function", "cli");
    g_objLoggerOpt.Log(CLI_LOG_LEVEL_INFO, 157, 1, "CLI_LOG", "File", "Function", "oper");
    return 0;
}

} // namespace

TEST_F(InitLogTest, HasItsGlobals)
{
    EXPECT_EQ(g_iLogLevel, 0);
    EXPECT_TRUE(g_bDbgFlg);
    EXPECT_STREQ(ROOT_LOG_PATH, "/var/log/corvane_super/cli_log/");
    EXPECT_STREQ(CORVANE_LOG_PATH, "/var/log/corvane/cli_log/");
}

TEST_F(InitLogTest, WritesBothFilesOfRoot)
{
    std::filesystem::remove_all("/var/log/corvane_super");
    std::filesystem::create_directory("/var/log/corvane_super");

    ASSERT_EQ(InChild(InitAndLog), 0);

    const std::string folder = "/var/log/corvane_super/cli_log";
    EXPECT_EQ(ModeOf(folder), 0u);
    EXPECT_EQ(ReadFile(folder + "/cli.log"), FullLine("cli"));
    EXPECT_EQ(ReadFile(folder + "/oper.log"), std::string(kTime) + "[CLI_LOG]oper\n");
    for (const char *name : {"/cli.log", "/oper.log"}) {
        EXPECT_EQ(ModeOf(folder + name), 0640u);
        EXPECT_EQ(OwnerOf(folder + name), 0u);
        EXPECT_EQ(GroupOf(folder + name), 0u);
    }
}

TEST_F(InitLogTest, WritesBothFilesOfTheService)
{
    const std::string folder = "/var/log/corvane/cli_log";
    std::filesystem::remove_all("/var/log/corvane");
    std::filesystem::create_directories(folder);
    ASSERT_EQ(chown(folder.c_str(), kServiceAccount.uid, kServiceAccount.gid), 0);

    ASSERT_EQ(InChild([&] {
                  if (!Become(kServiceAccount) || InitAndLog() != 0 || g_objLogger.SetFileSize(10) != 0) {
                      return 1;
                  }
                  g_objLogger.Log(CLI_LOG_LEVEL_INFO, 157, 1, "CLI_LOG", "File", "Function", "next");
                  return 0;
              }),
              0);

    EXPECT_EQ(ReadFile(folder + "/cli.log." + kStamp), FullLine("cli"));
    EXPECT_EQ(ReadFile(folder + "/cli.log"), FullLine("next"));
    EXPECT_EQ(ReadFile(folder + "/oper.log"), std::string(kTime) + "[CLI_LOG]oper\n");
    EXPECT_EQ(ModeOf(folder + "/cli.log." + kStamp), 0440u);
    EXPECT_EQ(ModeOf(folder + "/cli.log"), 0660u);
    EXPECT_EQ(ModeOf(folder + "/oper.log"), 0660u);
    for (const char *name : {"/cli.log", "/oper.log", "/cli.log.20260105103231"}) {
        EXPECT_EQ(OwnerOf(folder + name), kServiceAccount.uid) << name;
        EXPECT_EQ(GroupOf(folder + name), kServiceAccount.gid) << name;
    }
}

TEST_F(InitLogTest, LosesTheLinesOfTheServiceWithoutAFolder)
{
    std::filesystem::remove_all("/var/log/corvane");
    std::filesystem::create_directory("/var/log/corvane");
    ASSERT_EQ(chmod("/var/log/corvane", 0777), 0);

    ASSERT_EQ(InChild([] { return Become(kServiceAccount) ? InitAndLog() : 1; }), 0);

    EXPECT_EQ(ModeOf("/var/log/corvane/cli_log"), 0u);
    EXPECT_TRUE(std::filesystem::is_empty("/var/log/corvane/cli_log"));
}

TEST_F(InitLogTest, LogsAsTheServiceForAUserWithoutRecord)
{
    const std::string folder = "/var/log/corvane/cli_log";
    std::filesystem::remove_all("/var/log/corvane");
    std::filesystem::create_directories(folder);
    ASSERT_EQ(chmod(folder.c_str(), 0777), 0);

    // It may not give its file away: told on standard error, and the file is removed.
    ASSERT_EQ(InChild([&] {
                  if (!Become(kUnknown)) { // before the capture's file is made, which it must read
                      return 1;
                  }
                  int result = 2;
                  const std::string told = Stderr([&] { result = InitAndLog(); });
                  return told == "chmown log file " + folder + "//cli.log fail\nchmown log file " + folder +
                                     "//oper.log fail\n"
                             ? result
                             : 3;
              }),
              0);

    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(InitLogTest, TakesLevelAndFlagOfItsGlobals)
{
    std::filesystem::remove_all("/var/log/corvane_super");
    std::filesystem::create_directory("/var/log/corvane_super");

    ASSERT_EQ(InChild([] {
                  g_iLogLevel = CLI_LOG_LEVEL_WARN;
                  return InitAndLog();
              }),
              0);
    ASSERT_EQ(InChild([] {
                  g_bDbgFlg = false;
                  return InitAndLog();
              }),
              0);

    EXPECT_FALSE(std::filesystem::exists("/var/log/corvane_super/cli_log"));
}
