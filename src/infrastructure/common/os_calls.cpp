#include "infrastructure/common/os_calls.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

int RealIoctl(int fd, unsigned long request, void *arg)
{
    return ioctl(fd, request, arg);
}

int RealOpen(const char *path, int flags)
{
    return open(path, flags | O_CLOEXEC);
}

std::FILE *RealFopen(const char *path, const char *mode)
{
    // "e": a tool that another thread starts at this moment must not inherit the descriptor.
    char modeCloexec[8];
    if (std::snprintf(modeCloexec, sizeof(modeCloexec), "%se", mode) >= static_cast<int>(sizeof(modeCloexec))) {
        errno = EINVAL;
        return nullptr;
    }
    return std::fopen(path, modeCloexec);
}

std::FILE *RealPopen(const char *command, const char *mode)
{
    char modeCloexec[8];
    if (std::snprintf(modeCloexec, sizeof(modeCloexec), "%se", mode) >= static_cast<int>(sizeof(modeCloexec))) {
        errno = EINVAL;
        return nullptr;
    }
    return popen(command, modeCloexec);
}

int RealOpenMode(const char *path, int flags, mode_t mode)
{
    return open(path, flags | O_CLOEXEC, mode);
}

int RealSetLock(int fd, struct flock *lock)
{
    return fcntl(fd, F_SETLK, lock);
}

} // namespace

OsCalls g_osCalls = {
    .ioctl = RealIoctl,
    .open = RealOpen,
    .popen = RealPopen,
    .pclose = pclose,
    .fopen = RealFopen,
    .fread = std::fread,
    .fwrite = std::fwrite,
    .fflush = std::fflush,
    .fclose = std::fclose,
    .fseek = std::fseek,
    .remove = std::remove,
    .rename = std::rename,
    .unlink = unlink,
    .chmod = chmod,
    .chown = chown,
    .getpwnam_r = getpwnam_r,
    .getgrnam_r = getgrnam_r,
    .socket = socket,
    .setsockopt = setsockopt,
    .send = send,
    .recv = recv,
    .clockGettime = clock_gettime,
    .time = std::time,
    .malloc = std::malloc,
    .readlink = readlink,
    .openMode = RealOpenMode,
    .setLock = RealSetLock,
    .threadCreate = pthread_create,
    .sigaction = sigaction,
    .access = access,
    .ftell = std::ftell,
    .getsockopt = getsockopt,
    .bind = bind,
    .recvmsg = recvmsg,
    .close = close,
    .sleep = sleep,
};

OsPaths g_osPaths = {.sys = "", .proc = "", .dev = ""};
