#include "logfile_fixture.h"

#include <array>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "config/corvane_prefix_path.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/corvane_adapter_os/corvane_adapter_os_log.h"
#include "infrastructure/corvane_infra.h"

using ::testing::MatchesRegex;
using ::testing::StartsWith;

/** The library's log file with the real script below the prefix. */
class RotationTest : public LogfileTest {
protected:
    void SetUp() override
    {
        LogfileTest::SetUp();
        if (HasFatalFailure()) {
            return;
        }
        std::filesystem::create_directories(kBase + "/scripts");
        std::filesystem::copy_file(SCRIPT_PATH, kBase + "/scripts/corvane_log_file_op.sh");
        ASSERT_EQ(SetPrefixPath(kBase.c_str()), 0u);
        std::filesystem::create_directories("/var/log/corvane_super");
        ASSERT_EQ(CorvaneInfraRegisterOsAdapter(), 0u);
    }
    /** Logs whole lines until the counter holds exactly @p bytes since the last rotation. */
    static void FillTo(uint64_t bytes)
    {
        const std::string text(900, 'x');
        while (Written() + 2000 < bytes) {
            Log(text);
        }
        const uint64_t before = Written();
        Log("y");
        const uint64_t overhead = Written() - before - 1;
        ASSERT_GT(bytes, Written() + overhead);
        Log(std::string(bytes - Written() - overhead, 'z'));
    }
    static void Log(const std::string &text)
    {
        CorvaneOsLog(CORVANE_LOG_INFO, "TEST", "file.cpp", 1, "Func", "%s", text.c_str());
    }
    static uint64_t Written() { return g_corvaneInfra.atomicGet(g_osLogWrittenBytes); }
    /** Waits until the folder of the backups holds this many compressed files and nothing else. */
    static std::vector<std::string> WaitForBackups(size_t count)
    {
        UniqueFd watch(inotify_init1(IN_CLOEXEC));
        EXPECT_GE(inotify_add_watch(watch.Get(), "/var/log/corvane_super/bak_os",
                                    IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE),
                  0);
        const auto done = [count](const std::vector<std::string> &names) {
            return names.size() == count &&
                   std::all_of(names.begin(), names.end(), [](const auto &name) { return name.ends_with(".gz"); });
        };
        std::vector<std::string> names;
        while (!done(names = NamesIn("/var/log/corvane_super/bak_os"))) {
            struct pollfd waiting = {watch.Get(), POLLIN, 0};
            if (poll(&waiting, 1, 60000) <= 0) {
                break;
            }
            std::array<char, 4096> events;
            (void)!read(watch.Get(), events.data(), events.size());
        }
        return names;
    }
};

TEST_F(RotationTest, AFullFileBecomesACompressedBackup)
{
    ::testing::internal::CaptureStdout();
    FillTo(3999999);
    const std::filesystem::path file = "/var/log/corvane_super/corvane.os.log";
    const auto inode = StatusOf(file).st_ino;
    EXPECT_EQ(Written(), 3999999u);

    Log("the line that fills it");
    Log("the first line of the new file");
    (void)std::fflush(g_osLogFile);
    (void)::testing::internal::GetCapturedStdout();

    const auto names = WaitForBackups(1);
    ASSERT_EQ(names.size(), 1u);
    EXPECT_THAT(names[0], MatchesRegex("log-corvane\\.os\\.log\\.[0-9]{4}-[0-9]{2}-[0-9]{2}_[0-9]{2}-[0-9]{2}-[0-9]{2}"
                                       "\\.[0-9]{3}\\.gz"));
    const std::string backup = "/var/log/corvane_super/bak_os/" + names[0];
    const struct stat status = StatusOf(backup);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(status.st_uid, 0u);
    EXPECT_EQ(status.st_gid, 0u);
    // Whole lines but for what the abandoned stream still held.
    const std::string text = Unpacked(backup);
    EXPECT_GT(text.size(), 3990000u);
    EXPECT_LE(text.size(), 4000000u + 200u);
    EXPECT_NE(StatusOf(file).st_ino, inode);
    EXPECT_THAT(Read(file), ::testing::EndsWith(" : the first line of the new file\n"));
    EXPECT_FALSE(std::filesystem::exists("/var/log/corvane_super/corvane.os.log.bak"));
}

TEST_F(RotationTest, TheFiftyNewestBackupsStay)
{
    for (int i = 0; i < 50; i++) {
        Write("/var/log/corvane_super/bak_os/log-corvane.os.log.2001-01-01_00-00-" + std::to_string(10 + i) + ".000.gz",
              "old");
    }
    ::testing::internal::CaptureStdout();

    FillTo(3999999);
    Log("the line that fills it");

    (void)::testing::internal::GetCapturedStdout();
    const std::string oldest = "log-corvane.os.log.2001-01-01_00-00-10.000.gz";
    std::vector<std::string> names;
    // Fifty before and after: the new one has come and the oldest has gone.
    do {
        names = WaitForBackups(50);
    } while (names.size() == 50 && names[0] == oldest);
    ASSERT_EQ(names.size(), 50u);
    EXPECT_EQ(names[0], "log-corvane.os.log.2001-01-01_00-00-11.000.gz");
    EXPECT_THAT(names.back(), StartsWith("log-corvane.os.log.20"));
}
