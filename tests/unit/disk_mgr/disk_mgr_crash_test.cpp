#include "unit/disk_mgr/registry_fixture.h"

#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>

using ::testing::ElementsAre;

namespace {

constexpr uint32_t kFail = 0xFFFFFFFF;
const std::vector<Registered> kOld{{0, "SN-0", 0}, {70, "SN-70", 0}};

/** A change of the registry, and what it leaves. */
struct Change {
    const char *name;
    uint32_t (*apply)();
    std::vector<Registered> result;
};

uint32_t AddOne()
{
    DiskMgrObj obj{};
    (void)std::snprintf(obj.sn, sizeof(obj.sn), "SN-1");
    return DiskInfoUpdate(1, &obj);
}

uint32_t ChangeState()
{
    g_diskMgrObj[0]->diskState = DISK_STATE_SLOW;
    return DiskInfoUpdate(0, g_diskMgrObj[0]);
}

uint32_t RemoveOne()
{
    g_diskMgrObj[70]->diskState = DISK_STATE_OFFLINE;
    return DiskInfoUpdate(70, g_diskMgrObj[70]);
}

const std::vector<Change> kChanges{
    {"Add", AddOne, {{0, "SN-0", 0}, {1, "SN-1", 0}, {70, "SN-70", 0}}},
    {"ChangeState", ChangeState, {{0, "SN-0", DISK_STATE_SLOW}, {70, "SN-70", 0}}},
    {"Remove", RemoveOne, {{0, "SN-0", 0}}},
};

std::string ChangeName(const ::testing::TestParamInfo<Change> &param)
{
    return param.param.name;
}

/** Runs in a child what may end it. @return true if the child was killed, false if it came to its end. */
template <typename Body>
bool KilledIn(Body body)
{
    const pid_t child = fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE((WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) || (WIFEXITED(status) && WEXITSTATUS(status) == 0))
        << status;
    return WIFSIGNALED(status);
}

class RegistryCrashTest : public RegistryTest, public ::testing::WithParamInterface<Change> {
protected:
    void SaveOld()
    {
        Start();
        ASSERT_EQ(Add(0, "SN-0"), 0u);
        ASSERT_EQ(Add(70, "SN-70"), 0u);
    }
};

class RegistryFailureTest : public RegistryCrashTest {};
class RegistryDiskFullTest : public RegistryTest, public ::testing::WithParamInterface<uint32_t> {};

} // namespace

TEST_P(RegistryCrashTest, LoadsTheOldOrTheNewRegistryAfterAKillAtAnyCallOfTheSave)
{
    const std::vector<std::string> save{"fopen",  "chmod",  "getpwnam_r", "getgrnam_r", "chown",
                                        "fwrite", "fflush", "fclose",     "remove",     "rename"};
    for (const FileCalls::Act act : {FileCalls::Act::DieBefore, FileCalls::Act::DieMidway, FileCalls::Act::DieAfter}) {
        for (size_t at = 0; at < save.size(); at++) {
            SCOPED_TRACE(save[at] + " act " + std::to_string(static_cast<int>(act)));
            SaveOld();

            const bool killed = KilledIn([&] {
                FileCalls::Arm(act, at);
                (void)GetParam().apply();
            });

            ASSERT_TRUE(killed);
            Restart();
            // From the flush on the write-ahead file is whole.
            const bool whole = at > 6 || (at == 6 && act == FileCalls::Act::DieAfter);
            EXPECT_EQ(Table(), whole ? GetParam().result : kOld);
            EXPECT_EQ(Count(), Table().size());
            Forget();
            std::filesystem::remove(Path());
            std::filesystem::remove(WalPath());
        }
    }
    SaveOld();
    EXPECT_FALSE(KilledIn([&] {
        FileCalls::Arm(FileCalls::Act::DieBefore, save.size());
        (void)GetParam().apply();
    })) << "the save makes a call that the loop above does not end";
}

TEST_P(RegistryCrashTest, LoadsTheNewRegistryAfterAKillAtAnyCallOfTheRecovery)
{
    SaveOld();
    ASSERT_TRUE(KilledIn([&] {
        FileCalls::Arm(FileCalls::Act::DieBefore, 8); // before the remove
        (void)GetParam().apply();
    }));
    const std::string target = ReadFile(Path());
    const std::string wal = ReadFile(WalPath());
    size_t at = 0;

    for (;; at++) {
        Forget();
        WriteFile(Path(), target);
        WriteFile(WalPath(), wal);
        const bool killed = KilledIn([&] {
            FileCalls::Arm(at % 2 == 0 ? FileCalls::Act::DieBefore : FileCalls::Act::DieAfter, at / 2);
            (void)DiskMgrInit(Path().c_str());
        });
        FileCalls::Arm(FileCalls::Act::None, 0);
        Start();
        ASSERT_EQ(Table(), GetParam().result) << at;
        if (!killed) {
            break;
        }
    }

    EXPECT_GT(at / 2, 6u); // access, open, seek, tell, seek, read, close, rename
    EXPECT_FALSE(std::filesystem::exists(WalPath()));
}

INSTANTIATE_TEST_SUITE_P(Changes, RegistryCrashTest, ::testing::ValuesIn(kChanges), ChangeName);

TEST_P(RegistryFailureTest, LeavesALoadableRegistryWhicheverCallOfTheSaveFails)
{
    size_t failures = 0;
    size_t calls = 0;
    for (size_t at = 0;; at++) {
        SCOPED_TRACE(at);
        SaveOld();
        FileCalls::Arm(FileCalls::Act::Fail, at);
        const uint32_t result = GetParam().apply();
        calls = FileCalls::Calls().size();
        FileCalls::Arm(FileCalls::Act::None, 0);
        failures += result != 0 ? 1 : 0;

        Restart();

        if (result == 0) {
            EXPECT_EQ(Table(), GetParam().result);
        } else {
            // After a failed rename the write-ahead copy holds the new registry. So it does after a flush or a close
            // that reports a failure and has lost nothing, as the doubles here do; else the old file is taken.
            EXPECT_EQ(Table(), at == 6 || at == 7 || at == 9 ? GetParam().result : kOld);
        }
        Forget();
        std::filesystem::remove(Path());
        std::filesystem::remove(WalPath());
        if (at >= calls) {
            break;
        }
    }

    EXPECT_EQ(calls, 10u);
    EXPECT_EQ(failures, 9u); // a failed remove alone is no failure of the save
}

INSTANTIATE_TEST_SUITE_P(Changes, RegistryFailureTest, ::testing::ValuesIn(kChanges), ChangeName);

TEST_P(RegistryDiskFullTest, KeepsTheOldFile)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "mounting needs root";
    }
    const std::string folder = Prefix() + "/config";

    const bool killed = KilledIn([&] {
        // The mount is the child's own and goes with it.
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=1m") != 0) {
            std::perror("private tmpfs");
            _exit(1);
        }
        Start();
        for (uint32_t i = 0; i < GetParam(); i++) {
            EXPECT_EQ(Add(i, "SN-" + std::to_string(i)), 0u);
        }
        const std::string before = ReadFile(Path());
        const std::vector<Registered> table = Table();
        const int filler = open((folder + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        const std::string page(4096, 'x');
        while (write(filler, page.data(), page.size()) > 0) {
        }
        EXPECT_EQ(errno, ENOSPC);
        ClearLogs();

        EXPECT_EQ(Add(100, "SN-100"), kFail);

        EXPECT_TRUE(Logged(3, "DISK_MGR", "Save to  tmp Config error"));
        EXPECT_EQ(ReadFile(Path()), before);
        EXPECT_TRUE(std::filesystem::exists(WalPath()));
        Restart();
        EXPECT_EQ(Table(), table);
        EXPECT_EQ(ftruncate(filler, 0), 0);
        EXPECT_EQ(Add(100, "SN-100"), 0u);
        EXPECT_FALSE(std::filesystem::exists(WalPath()));
        _exit(HasFailure() ? 1 : 0);
    });

    EXPECT_FALSE(killed);
}

INSTANTIATE_TEST_SUITE_P(Disks, RegistryDiskFullTest, ::testing::Values(1u, 63u));
