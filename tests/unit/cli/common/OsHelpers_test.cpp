#include "cli/common/OsHelpers.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "cli_test_support.h"

namespace {

constexpr std::time_t kInstant = 1767609151; // 2026-01-05 10:32:31 UTC

/** Whether another thread finds the mutex taken. */
bool IsTaken(pthread_mutex_t &mutex)
{
    bool taken = false;
    std::thread([&] {
        taken = pthread_mutex_trylock(&mutex) != 0;
        if (!taken) {
            (void)pthread_mutex_unlock(&mutex);
        }
    }).join();
    return taken;
}

} // namespace

class OsMutexTest : public CorvaneTest {};
class OsFileExistsTest : public CorvaneTest {};
class OsFileDeleteTest : public CorvaneTest {};
class OsNowTest : public CorvaneTest {};
class OsLocalTimeTest : public CorvaneTest {};
class FindOrCreateLogDirectoryTest : public CorvaneTest {};

TEST_F(OsMutexTest, RefusesNull)
{
    EXPECT_EQ(OS_MutexInit(nullptr), -1);
    EXPECT_EQ(OS_MutexDestroy(nullptr), -1);
    EXPECT_EQ(OS_TimeLock(nullptr), -1);
    EXPECT_EQ(OS_TimeUnlock(nullptr), -1);
    EXPECT_EQ(OS_Lock(nullptr), -1);
    EXPECT_EQ(OS_Unlock(nullptr), -1);
}

TEST_F(OsMutexTest, LocksAndUnlocksByBothNames)
{
    pthread_mutex_t mutex;
    ASSERT_EQ(OS_MutexInit(&mutex), 0);

    EXPECT_EQ(OS_TimeLock(&mutex), 0);
    EXPECT_TRUE(IsTaken(mutex));
    EXPECT_EQ(OS_TimeUnlock(&mutex), 0);
    EXPECT_FALSE(IsTaken(mutex));
    EXPECT_EQ(OS_Lock(&mutex), 0);
    EXPECT_TRUE(IsTaken(mutex));
    EXPECT_EQ(OS_Unlock(&mutex), 0);
    EXPECT_FALSE(IsTaken(mutex));

    EXPECT_EQ(OS_MutexDestroy(&mutex), 0);
}

#if !defined(__SANITIZE_THREAD__) // which reports such a use itself
TEST_F(OsMutexTest, TellsWhatTheSystemRefuses)
{
    pthread_mutexattr_t checking;
    ASSERT_EQ(pthread_mutexattr_init(&checking), 0);
    ASSERT_EQ(pthread_mutexattr_settype(&checking, PTHREAD_MUTEX_ERRORCHECK), 0);
    pthread_mutex_t mutex;
    ASSERT_EQ(pthread_mutex_init(&mutex, &checking), 0);

    EXPECT_EQ(OS_TimeUnlock(&mutex), -1);
    EXPECT_EQ(OS_Unlock(&mutex), -1);
    ASSERT_EQ(OS_Lock(&mutex), 0);
    EXPECT_EQ(OS_TimeLock(&mutex), -1);
    EXPECT_EQ(OS_Lock(&mutex), -1);
    EXPECT_EQ(OS_MutexDestroy(&mutex), -1);

    ASSERT_EQ(OS_Unlock(&mutex), 0);
    EXPECT_EQ(OS_MutexDestroy(&mutex), 0);
    (void)pthread_mutexattr_destroy(&checking);
}
#endif

TEST_F(OsFileExistsTest, SeesFoldersAlone)
{
    WriteFile(Prefix() + "/file", "text");

    EXPECT_TRUE(OS_FileExists(Prefix().c_str()));
    EXPECT_FALSE(OS_FileExists((Prefix() + "/file").c_str()));
    EXPECT_FALSE(OS_FileExists((Prefix() + "/missing").c_str()));
    EXPECT_FALSE(OS_FileExists(""));
    EXPECT_FALSE(OS_FileExists(nullptr));
}

TEST_F(OsFileDeleteTest, RemovesAnEmptyFolder)
{
    const std::string folder = Prefix() + "/folder";
    std::filesystem::create_directory(folder);

    EXPECT_EQ(OS_FileDelete(folder.c_str()), 0);

    EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST_F(OsFileDeleteTest, LeavesAPlainFile)
{
    const std::string file = Prefix() + "/file";
    WriteFile(file, "text");

    EXPECT_EQ(OS_FileDelete(file.c_str()), -1);

    EXPECT_TRUE(std::filesystem::exists(file));
}

TEST_F(OsFileDeleteTest, FailsWhenTheSystemRefuses)
{
    EXPECT_EQ(OS_FileDelete(Prefix().c_str()), -1) << "it is not empty";
    EXPECT_TRUE(std::filesystem::exists(Prefix()));
    EXPECT_EQ(OS_FileDelete((Prefix() + "/missing").c_str()), -1);
    EXPECT_EQ(OS_FileDelete(nullptr), -1);
}

TEST_F(OsNowTest, GivesTheTimeAndReadsTheZoneAnew)
{
    const char *former = std::getenv("TZ");
    const std::string saved = former != nullptr ? former : "";
    g_osCalls.time = [](std::time_t *) { return kInstant; };
    (void)setenv("TZ", "XYZ-3", 1);

    EXPECT_EQ(OS_Now(), kInstant);

    EXPECT_STREQ(tzname[0], "XYZ");
    (void)(former != nullptr ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ"));
    tzset();
}

TEST_F(OsLocalTimeTest, FillsAndReturnsTheRecord)
{
    const char *former = std::getenv("TZ");
    const std::string saved = former != nullptr ? former : "";
    (void)setenv("TZ", "XYZ-3", 1); // three hours east
    struct tm local = {};

    EXPECT_EQ(OS_LocalTime(&kInstant, &local), &local);

    EXPECT_EQ(local.tm_year, 126);
    EXPECT_EQ(local.tm_mon, 0);
    EXPECT_EQ(local.tm_mday, 5);
    EXPECT_EQ(local.tm_hour, 13);
    EXPECT_EQ(local.tm_min, 32);
    EXPECT_EQ(local.tm_sec, 31);
    (void)(former != nullptr ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ"));
    tzset();
}

TEST_F(OsLocalTimeTest, GivesNullForNull)
{
    struct tm local = {};

    EXPECT_EQ(OS_LocalTime(nullptr, &local), nullptr);
    EXPECT_EQ(OS_LocalTime(&kInstant, nullptr), nullptr);
    EXPECT_EQ(OS_LocalTime(nullptr, nullptr), nullptr);
}

TEST_F(FindOrCreateLogDirectoryTest, MakesItWithMode0)
{
    const std::string folder = Prefix() + "/log";

    FindOrCreateLogDirectory((folder + "/").c_str());

    ASSERT_TRUE(std::filesystem::is_directory(folder));
    EXPECT_EQ(ModeOf(folder), 0u);
}

TEST_F(FindOrCreateLogDirectoryTest, LeavesOneThatIsThere)
{
    const std::string folder = Prefix() + "/log";
    ASSERT_EQ(mkdir(folder.c_str(), 0750), 0);
    ASSERT_EQ(chmod(folder.c_str(), 0751), 0);

    FindOrCreateLogDirectory(folder.c_str());

    EXPECT_EQ(ModeOf(folder), 0751u);
}

TEST_F(FindOrCreateLogDirectoryTest, MakesNoParents)
{
    FindOrCreateLogDirectory((Prefix() + "/a/b").c_str());
    FindOrCreateLogDirectory(nullptr);

    EXPECT_FALSE(std::filesystem::exists(Prefix() + "/a"));
}
