#include "unix_listener.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvane_sim {
namespace {

// A fan-out of the receiver opens dozens of connections at once.
constexpr int kBacklog = 1024;
constexpr mode_t kSocketMode = 0660;

int MakeSocket()
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        throw std::runtime_error(std::string("no socket can be made: ") + std::strerror(errno));
    }
    return fd;
}

} // namespace

sockaddr_un UnixAddressOf(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        throw std::runtime_error(path + ": a socket path has 1 to " + std::to_string(sizeof(address.sun_path) - 1) +
                                 " characters; choose another one");
    }
    path.copy(address.sun_path, path.size());
    return address;
}

void UnixListener::RemoveStaleFile() const
{
    struct stat status {};
    if (lstat(path_.c_str(), &status) != 0) {
        return;
    }
    if (!S_ISSOCK(status.st_mode)) {
        throw std::runtime_error(path_ + ": is there and is no socket; remove it or choose another path");
    }
    const sockaddr_un address = UnixAddressOf(path_);
    const int probe = MakeSocket();
    const int result = connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    const int error = errno;
    close(probe);
    if (result == 0 || error != ECONNREFUSED) {
        throw std::runtime_error(path_ + ": is served by another program; stop that one or choose another path");
    }
    (void)unlink(path_.c_str());
}

void UnixListener::Open()
{
    const sockaddr_un address = UnixAddressOf(path_);
    RemoveStaleFile();
    const int fd = MakeSocket();
    fd_ = fd;
    inode_ = 0;
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 || !RememberFile() ||
        chmod(path_.c_str(), kSocketMode) != 0 || listen(fd, kBacklog) != 0) {
        const int error = errno;
        Close(false);
        throw std::runtime_error(path_ + ": cannot be served: " + std::strerror(error) +
                                 "; check that its folder exists and may be written");
    }
}

bool UnixListener::RememberFile()
{
    struct stat status {};
    if (lstat(path_.c_str(), &status) != 0) {
        return false;
    }
    device_ = status.st_dev;
    inode_ = status.st_ino;
    return true;
}

void UnixListener::RemoveOwnFile() const
{
    struct stat status {};
    // The number of a file that is gone may be another's now.
    if (inode_ != 0 && lstat(path_.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) && status.st_dev == device_ &&
        status.st_ino == inode_) {
        (void)unlink(path_.c_str());
    }
}

void UnixListener::Close(bool keepFile)
{
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
    if (!keepFile) {
        RemoveOwnFile();
        inode_ = 0;
    }
}

int UnixListener::Accept() const
{
    return accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
}

} // namespace corvane_sim
