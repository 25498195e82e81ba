/**
 * @file config_test_support.h
 * @brief Fixture of the configuration's tests: accounts that need not exist, a manual clock, a backup folder, and
 *        system calls that fail in turn.
 */
#ifndef CONFIG_TEST_SUPPORT_H
#define CONFIG_TEST_SUPPORT_H

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "config/corvane_config.h"
#include "config/corvane_config_bak.h"
#include "config/corvane_prefix_path.h"
#include "infrastructure/common/corvane_raii.h"
#include "support/corvane_fixture.h"

constexpr uint32_t kLogError = 3;
constexpr uint32_t kLogWarn = 4;
constexpr uint32_t kLogInfo = 6;
constexpr uint32_t kLogDebug = 7;

/** The account that the faked look-ups give. */
constexpr uid_t kServiceUser = 4711;
constexpr gid_t kServiceGroup = 4712;

/** Replaces the system calls of a save. Each counts; the one with number failAt fails. */
struct ConfigOs {
    static inline int calls = 0;
    static inline int failAt = 0; ///< 0: none
    static inline std::time_t now = 0;
    static inline std::vector<std::string> owned; ///< paths that were given to the service

    static bool Fails()
    {
        if (++calls != failAt) {
            return false;
        }
        errno = EIO;
        return true;
    }
    static int FailNth(int number)
    {
        calls = 0;
        failAt = number;
        return number;
    }

    static void Install()
    {
        calls = 0;
        failAt = 0;
        now = 1700000000;
        owned.clear();
        static const OsCalls real = g_osCalls;
        g_osCalls.fopen = [](const char *path, const char *mode) { return Fails() ? nullptr : real.fopen(path, mode); };
        g_osCalls.fread = [](void *data, size_t size, size_t count, FILE *file) {
            return Fails() ? size_t{0} : real.fread(data, size, count, file);
        };
        g_osCalls.fwrite = [](const void *data, size_t size, size_t count, FILE *file) {
            // Half of the text arrives, as on a full disk.
            return Fails() ? real.fwrite(data, size, count / 2, file) : real.fwrite(data, size, count, file);
        };
        g_osCalls.fflush = [](FILE *file) { return Fails() ? EOF : real.fflush(file); };
        g_osCalls.fclose = [](FILE *file) {
            const bool fails = Fails();
            const int result = real.fclose(file);
            if (fails) {
                errno = EIO;
            }
            return fails ? EOF : result;
        };
        g_osCalls.remove = [](const char *path) { return Fails() ? -1 : real.remove(path); };
        g_osCalls.rename = [](const char *from, const char *to) { return Fails() ? -1 : real.rename(from, to); };
        g_osCalls.unlink = [](const char *path) { return Fails() ? -1 : real.unlink(path); };
        g_osCalls.chmod = [](const char *path, mode_t mode) { return Fails() ? -1 : real.chmod(path, mode); };
        g_osCalls.chown = [](const char *path, uid_t user, gid_t group) {
            if (Fails()) {
                return -1;
            }
            EXPECT_EQ(user, kServiceUser);
            EXPECT_EQ(group, kServiceGroup);
            owned.emplace_back(path);
            return 0;
        };
        g_osCalls.getpwnam_r = [](const char *name, passwd *entry, char *, size_t, passwd **result) {
            *result = nullptr;
            if (!Fails()) {
                EXPECT_STREQ(name, "corvane_user");
                entry->pw_uid = kServiceUser;
                *result = entry;
            }
            return 0;
        };
        g_osCalls.getgrnam_r = [](const char *name, group *entry, char *, size_t, group **result) {
            *result = nullptr;
            if (!Fails()) {
                EXPECT_STREQ(name, "corvane_group");
                entry->gr_gid = kServiceGroup;
                *result = entry;
            }
            return 0;
        };
        g_osCalls.time = [](std::time_t *) { return now; };
    }
};

class ConfigTest : public CorvaneTest {
protected:
    ConfigTest()
    {
        ConfigOs::Install();
        std::filesystem::create_directory(BakFolder());
    }
    ~ConfigTest() override
    {
        cJSON_Delete(g_configRoot);
        g_configRoot = nullptr;
        if (g_configLock != nullptr) {
            g_corvaneInfra.rwlockDestroy(g_configLock);
            g_configLock = nullptr;
        }
    }

    [[nodiscard]] std::string ConfigFile() const { return Prefix() + "/config/corvane_config.json"; }
    [[nodiscard]] std::string WalFile() const { return ConfigFile() + ".wal"; }
    [[nodiscard]] std::string UpgradeFile() const { return ConfigFile() + ".rpmnew"; }
    [[nodiscard]] std::string BakFolder() const { return Prefix() + "/userconfig_bak"; }
    [[nodiscard]] std::string BakFile(const std::string &time) const
    {
        return BakFolder() + "/corvane_config_bak__" + time;
    }
    /** Names in the backup folder, in rising order. */
    [[nodiscard]] std::vector<std::string> BakNames() const
    {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(BakFolder())) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    static bool Exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }
    static mode_t ModeOf(const std::string &path)
    {
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777;
    }
    /** A value that no setting has, where nothing was stored. */
    static constexpr uint32_t kUntouched = 123456789;
    static uint32_t Read(const char *name)
    {
        uint32_t value = kUntouched;
        (void)GetConfigInt(name, &value);
        return value;
    }
    static uint32_t Read(const char *parent, const char *child)
    {
        uint32_t value = kUntouched;
        (void)GetChildNodeConfigInt(parent, child, &value);
        return value;
    }
    static void UsePrefix(const std::string &prefix)
    {
        std::free(g_prefixPath);
        g_prefixPath = strdup(prefix.c_str());
    }
    void Start(const std::string &text)
    {
        WriteFile(ConfigFile(), text);
        ASSERT_EQ(InitConfig(), 0U);
        ClearLogs();
        ConfigOs::calls = 0;
    }
};

#endif
