/**
 * @file cli_test_support.h
 * @brief The command line's log in a file of the test's own, children with other users, and failures on request.
 */
#ifndef CLI_TEST_SUPPORT_H
#define CLI_TEST_SUPPORT_H

#include <cctype>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <grp.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "cli/common/CLogger.h"
#include "support/corvane_fixture.h"
#include "support/mount_namespace.h"

/** An account of the test's own /etc/passwd. */
struct TestAccount {
    const char *name;
    uid_t uid;
    gid_t gid;
};

inline constexpr TestAccount kRootAccount = {"root", 0, 0};
inline constexpr TestAccount kServiceAccount = {"corvane_user", 64901, 64901};
/** Its primary group is corvane_group. */
inline constexpr TestAccount kPrimaryMember = {"reader_primary", 64911, 64901};
/** Its supplementary group is corvane_group. */
inline constexpr TestAccount kExtraMember = {"reader_extra", 64912, 64912};
inline constexpr TestAccount kStranger = {"stranger", 64913, 64913};
/** A member of corvane_group whose primary group has no record. */
inline constexpr TestAccount kGroupless = {"groupless", 64914, 64914};
inline constexpr TestAccount kName31 = {"name-of-thirty-one-characters-x", 64915, 64913};
inline constexpr TestAccount kName32 = {"name-of-thirty-two-characters-xy", 64916, 64913};
static_assert(std::string_view(kName31.name).size() == 31 && std::string_view(kName32.name).size() == 32);
/** Its record is longer than the first buffer that anybody would give. */
inline constexpr TestAccount kWordy = {"wordy", 64917, 64913};
/** A group with thousands of members. */
inline constexpr gid_t kCrowdGroup = 64920;
/** There is no record for it. */
inline constexpr TestAccount kUnknown = {"", 64999, 64999};

/** A private /tmp and /var/log with the accounts above, for the rest of the process. @return what went wrong. */
inline const std::string &EnterCliAccounts()
{
    static const std::string problem = [] {
        std::string failure = EnterPrivateMounts(std::filesystem::path(CORVANE_BIN_DIR).parent_path());
        if (!failure.empty()) {
            return failure;
        }
        std::filesystem::copy_file("/etc/passwd", "/tmp/accounts-passwd");
        std::ofstream users("/tmp/accounts-passwd", std::ios::app);
        for (const TestAccount &user : {kPrimaryMember, kExtraMember, kStranger, kGroupless, kName31, kName32}) {
            users << user.name << ":x:" << user.uid << ':' << user.gid << "::/nonexistent:/bin/sh\n";
        }
        users << kWordy.name << ":x:" << kWordy.uid << ':' << kWordy.gid << ':' << std::string(5000, 'w')
              << ":/nonexistent:/bin/sh\n";
        users.close();
        std::ofstream groups("/tmp/accounts-group");
        groups << "root:x:0:\ncorvane_group:x:64901:reader_extra,groupless\nreader_extra:x:64912:\nstranger:x:64913:\n";
        groups << "crowd:x:" << kCrowdGroup << ":first";
        for (int i = 0; i < 3000; i++) {
            groups << ",member" << i;
        }
        groups << '\n';
        groups.close();
        if (mount("/tmp/accounts-passwd", "/etc/passwd", nullptr, MS_BIND, nullptr) != 0 ||
            mount("/tmp/accounts-group", "/etc/group", nullptr, MS_BIND, nullptr) != 0) {
            failure = "accounts";
        }
        return failure;
    }();
    return problem;
}

/**
 * EnterCliAccounts() before what is made in /tmp: the first base of a fixture. A test that cannot have them does not
 * run, because it would touch the machine's own folders.
 */
class CliAccountsInPlace {
protected:
    CliAccountsInPlace()
    {
        if (!EnterCliAccounts().empty()) {
            throw std::runtime_error(EnterCliAccounts());
        }
    }
};

/** Becomes another user for good. */
inline bool Become(const TestAccount &user)
{
    return setgroups(0, nullptr) == 0 && setgid(user.gid) == 0 && setuid(user.uid) == 0;
}

/** @return what @p body returned in a child, 0 to 255; 1000 + n if signal n ended it. */
inline int InChild(const std::function<int()> &body)
{
    (void)std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int result = body();
        (void)std::fflush(stderr);
        _exit(result);
    }
    int status = 0;
    (void)waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

inline mode_t ModeOf(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0xFFFF;
}

inline uid_t OwnerOf(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_uid : 0xFFFFFFFE;
}

inline gid_t GroupOf(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_gid : 0xFFFFFFFE;
}

/** A malloc that refuses one size. */
inline size_t g_refusedSize = 0;
inline void *MallocButOneSize(size_t size)
{
    return size == g_refusedSize ? nullptr : std::malloc(size);
}
inline void RefuseMalloc(size_t size)
{
    g_refusedSize = size;
    g_osCalls.malloc = MallocButOneSize;
}

/** Points the command line's log at a file below the prefix; the file is there, so that only lines are written. */
class CliLogTest : public CorvaneTest {
protected:
    CliLogTest() : folder_(Prefix() + "/log")
    {
        std::filesystem::create_directory(folder_);
        WriteFile(LogPath(), "");
        (void)g_objLogger.SetFilePath((folder_ + "/").c_str());
        (void)g_objLogger.SetFileName("cli.log");
        (void)g_objLogger.SetRollingMode(1);
        (void)g_objLogger.SetFileSize(0x1E00000);
        g_objLogger.SetLevel(CLI_LOG_LEVEL_INFO);
        g_objLogger.SetType(CLI_LOG_HEAD_FULL);
        g_objLogger.SetDbgFlg(true);
    }
    ~CliLogTest() override
    {
        g_objLogger.Close();
        g_objLogger.SetDbgFlg(false); // its folder goes away
        g_objLogger.SetLevel(CLI_LOG_LEVEL_DEBUG);
    }

    std::string LogPath() const { return folder_ + "/cli.log"; }
    /** The lines without time and line number: "[ERROR][CLI_LOG][File,Function]message". A line feed in a message
     * stays one. */
    std::vector<std::string> CliLog() const { return Simplified(ReadFile(LogPath())); }

    static std::vector<std::string> Simplified(const std::string &text)
    {
        constexpr size_t timeLength = 21; // "[YYYY-MM-DD hh:mm:ss]"
        std::vector<std::string> lines;
        size_t begin = 0;
        while (begin < text.size()) {
            const size_t end = std::min(text.find('\n', begin), text.size());
            std::string line = text.substr(begin, end - begin);
            begin = end + 1;
            const bool isHead = line.size() > timeLength && line[0] == '[' && line[timeLength - 1] == ']';
            if (!isHead) { // the rest of a message
                if (!lines.empty()) {
                    lines.back() += "\n" + line;
                }
                continue;
            }
            line.erase(0, timeLength);
            const size_t comma = line.find(',');
            size_t digits = comma + 1;
            while (digits < line.size() && std::isdigit(static_cast<unsigned char>(line[digits])) != 0) {
                digits++;
            }
            line.erase(comma, digits - comma);
            lines.push_back(line);
        }
        return lines;
    }

    static std::string Line(const std::string &level, const std::string &file, const std::string &function,
                            const std::string &message)
    {
        return "[" + level + "][CLI_LOG][" + file + "," + function + "]" + message;
    }

    std::string folder_;
};

#endif
