#include "nordiagnose_socket.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "nordiagnose_socket_name.h"

namespace nordiag {
namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kSocketMode = 0600;
constexpr int kBacklog = 64;

using Path = std::array<char, sizeof(sockaddr_un::sun_path)>;

struct CloseFolder {
    void operator()(DIR *folder) const noexcept { (void)closedir(folder); }
};

/** @return false if the text was cut. */
template <size_t size, typename... Arguments>
__attribute__((format(printf, 2, 0))) bool Format(std::array<char, size> &to, const char *format,
                                                  Arguments... arguments) noexcept
{
    const int length = std::snprintf(to.data(), to.size(), format, arguments...);
    return length >= 0 && static_cast<size_t>(length) < to.size();
}

/** @return null if the folder is there and is the user's own, else what is wrong with it. */
const char *PrepareFolder(const char *path) noexcept
{
    if (mkdir(path, kFolderMode) != 0 && errno != EEXIST) {
        return std::strerror(errno);
    }
    struct stat status {};
    if (lstat(path, &status) != 0) {
        return std::strerror(errno);
    }
    if (!S_ISDIR(status.st_mode)) {
        return "is no folder; remove it, or name another one by NORDIAG_DIR";
    }
    if (status.st_uid != geteuid()) {
        return "belongs to another user; name a folder of this user by NORDIAG_DIR";
    }
    if ((status.st_mode & 077) != 0) {
        return "is open to other users; chmod 700 makes it fit";
    }
    return nullptr;
}

/** @return false if no folder can be used, which has been told. */
bool ChooseFolder(Path &folder) noexcept
{
    const char *named = secure_getenv(kFolderVariable);
    const char *runtime = secure_getenv("XDG_RUNTIME_DIR");
    if (named != nullptr && *named != '\0') {
        const char *problem = Format(folder, "%s", named) ? PrepareFolder(named) : std::strerror(ENAMETOOLONG);
        if (problem != nullptr) {
            TellNoDebugShell(named, problem);
        }
        return problem == nullptr;
    }
    if (Format(folder, "%s", kSystemFolder) && PrepareFolder(folder.data()) == nullptr) {
        return true;
    }
    if (runtime != nullptr && *runtime == '/' && Format(folder, "%s/nordiag", runtime) &&
        PrepareFolder(folder.data()) == nullptr) {
        return true;
    }
    (void)Format(folder, "/tmp/nordiag-%u", geteuid());
    const char *problem = PrepareFolder(folder.data());
    if (problem != nullptr) {
        TellNoDebugShell(folder.data(), problem);
    }
    return problem == nullptr;
}

bool MakeAddress(const char *path, sockaddr_un &address) noexcept
{
    address = {};
    address.sun_family = AF_UNIX;
    const size_t length = std::strlen(path);
    if (length >= sizeof(address.sun_path)) {
        return false;
    }
    std::memcpy(address.sun_path, path, length);
    return true;
}

/** Nobody listens there. Sockets get their names only when they listen, so this one's process has ended. */
bool IsDeserted(const char *path) noexcept
{
    sockaddr_un address;
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0) {
        return false;
    }
    const bool deserted = MakeAddress(path, address) &&
                          connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 &&
                          errno == ECONNREFUSED;
    (void)close(probe);
    return deserted;
}

void RemoveIfStale(const char *folder, const char *file) noexcept
{
    const bool unfinished = file[0] == '.';
    pid_t processId = 0;
    std::string_view agent;
    Path path;
    struct stat status {};
    if (!ParseSocketName(unfinished ? file + 1 : file, processId, agent) || !Format(path, "%s/%s", folder, file) ||
        lstat(path.data(), &status) != 0 || !S_ISSOCK(status.st_mode)) {
        return;
    }
    // An unfinished one does not listen yet: only its process's end tells.
    const bool stale = unfinished ? kill(processId, 0) != 0 && errno == ESRCH : IsDeserted(path.data());
    if (stale) {
        (void)unlink(path.data());
    }
}

void RemoveStale(const char *folder) noexcept
{
    const std::unique_ptr<DIR, CloseFolder> entries(opendir(folder));
    if (entries == nullptr) {
        return;
    }
    while (const dirent *entry = readdir(entries.get())) {
        RemoveIfStale(folder, entry->d_name);
    }
}

} // namespace

void TellNoDebugShell(const char *place, const char *problem) noexcept
{
    static std::atomic_flag told = ATOMIC_FLAG_INIT;
    if (!told.test_and_set()) {
        (void)std::fprintf(stderr, "nordiagnose: no debug shell for this process: %s: %s\n", place, problem);
    }
}

ListeningSocket::~ListeningSocket()
{
    RemoveFile();
    Close();
}

void ListeningSocket::Close() noexcept
{
    if (fd_ >= 0) {
        (void)close(fd_);
        fd_ = -1;
    }
}

bool ListeningSocket::Open(int processId, const char *agentName) noexcept
{
    Path folder;
    std::array<char, 64> file{};
    if (!ChooseFolder(folder)) {
        return false;
    }
    RemoveStale(folder.data());
    (void)Format(file, "%d.%s", processId, agentName);
    for (char *letter = std::strchr(file.data(), '.'); *letter != '\0'; letter++) {
        *letter = SocketNameLetter(*letter);
    }
    if (!Listen(folder.data(), file.data())) {
        TellNoDebugShell(folder.data(), std::strerror(errno));
        return false;
    }
    return true;
}

/** The socket gets its name when it listens already: a name that does not answer is one of an ended process. */
bool ListeningSocket::Listen(const char *folder, const char *file) noexcept
{
    Path unfinished;
    sockaddr_un address;
    struct stat status {};
    if (!Format(unfinished, "%s/.%s", folder, file) || !Format(path_, "%s/%s", folder, file) ||
        !MakeAddress(unfinished.data(), address)) {
        errno = ENAMETOOLONG;
        return false;
    }
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd_ < 0) {
        return false;
    }
    (void)unlink(unfinished.data()); // of an earlier process of this number
    if (bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        return false;
    }
    if (chmod(unfinished.data(), kSocketMode) != 0 || lstat(unfinished.data(), &status) != 0 ||
        listen(fd_, kBacklog) != 0 || rename(unfinished.data(), path_.data()) != 0) {
        const int problem = errno;
        (void)unlink(unfinished.data());
        errno = problem;
        return false;
    }
    device_ = status.st_dev;
    inode_ = status.st_ino;
    return true;
}

void ListeningSocket::RemoveFile() noexcept
{
    struct stat status {};
    if (inode_ != 0 && lstat(path_.data(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_) {
        (void)unlink(path_.data());
    }
    inode_ = 0;
}

} // namespace nordiag
