#include "start_failure.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "exit_codes.h"

namespace {

const char *const kLockFile = "/config/corvane_master_process_lockfile";
const char *const kSocket = "/config/CLI_UDS.unix";
constexpr size_t kSocketPathMax = 106; // of the management server

bool IsFolder(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/** Room for any account of this system's; a look-up that needs more has found its account as well. */
constexpr size_t kAccountSize = 65536;

// The reentrant forms: the library's threads may be looking accounts up at the same time.
bool UserExists(const char *name)
{
    std::vector<char> buffer(kAccountSize);
    struct passwd entry = {};
    struct passwd *found = nullptr;
    const int error = getpwnam_r(name, &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr || error == ERANGE;
}

bool GroupExists(const char *name)
{
    std::vector<char> buffer(kAccountSize);
    struct group entry = {};
    struct group *found = nullptr;
    const int error = getgrnam_r(name, &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr || error == ERANGE;
}

/** The process that holds the lock against a process of its own, 0 if none does. */
pid_t LockHolder(const std::string &prefix)
{
    const int fd = open((prefix + kLockFile).c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        return 0;
    }
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    const bool asked = fcntl(fd, F_GETLK, &lock) == 0;
    (void)close(fd);
    return asked && lock.l_type != F_UNLCK ? lock.l_pid : 0;
}

} // namespace

std::string CheckPrefix(const std::string &prefix)
{
    const std::string config = prefix + "/config";
    if (!IsFolder(prefix + "/")) { // the empty prefix is the root
        return "the prefix " + prefix + " is no folder; create it, or give the right one with --prefix";
    }
    if (!IsFolder(config)) {
        return "the folder " + config + " is missing; create it, or give the right prefix with --prefix";
    }
    if (access(config.c_str(), R_OK | W_OK | X_OK) != 0) {
        return "the folder " + config + " cannot be written (" + std::strerror(errno) +
               "); settings and the disk registry live there: make it writable, or run corvaned as root";
    }
    const size_t most = kSocketPathMax - std::strlen(kSocket);
    if (prefix.size() > most) {
        return "the prefix " + prefix + " is too long for the path of a socket; give one of at most " +
               std::to_string(most) + " characters with --prefix";
    }
    return "";
}

StartFailure ExplainStartFailure(const std::string &prefix, uint32_t status)
{
    // Step 0 gives the error of the lock. Later steps have codes of their own that may look the same, so ask the lock.
    if (status == EAGAIN || status == EACCES) {
        const pid_t holder = LockHolder(prefix);
        if (holder != 0) {
            return {EXIT_CODE_ALREADY_RUNNING, "already running on the prefix " + prefix + " as process " +
                                                   std::to_string(holder) +
                                                   "; stop that process first, or give another --prefix"};
        }
    }
    std::string message = "start failed with status " + std::to_string(static_cast<int32_t>(status)) +
                          "; the failed step is named on standard output or in /var/log/corvane/";
    if (!UserExists("corvane_user")) {
        message += "; the user corvane_user is missing: useradd --system --no-create-home corvane_user";
    }
    if (!GroupExists("corvane_group")) {
        message += "; the group corvane_group is missing: groupadd --system corvane_group";
    }
    return {EXIT_CODE_START_FAILED, message};
}
