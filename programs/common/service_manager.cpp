#include "common/service_manager.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr unsigned long long kMicrosecondsPerHalfPatience = 2000; // of one millisecond

/** A variable that is a number and nothing else. */
bool ReadNumber(const char *name, unsigned long long &number)
{
    const char *text = std::getenv(name);
    if (text == nullptr || *text < '0' || *text > '9') {
        return false;
    }
    char *end = nullptr;
    errno = 0;
    number = std::strtoull(text, &end, 10);
    return errno == 0 && *end == '\0';
}

/** @return the descriptor to send with, -1 if there is none. */
int OwnSocket()
{
    static int fd = -1;
    if (fd < 0) {
        fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    }
    return fd;
}

} // namespace

bool NotifyServiceManager(const char *state)
{
    const char *path = std::getenv("NOTIFY_SOCKET");
    if (path == nullptr || *path == '\0') {
        return true;
    }
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const size_t length = std::strlen(path);
    if ((*path != '/' && *path != '@') || length >= sizeof(address.sun_path)) {
        return false;
    }
    std::memcpy(address.sun_path, path, length);
    if (*path == '@') {
        address.sun_path[0] = '\0'; // an abstract name
    }

    const int fd = OwnSocket();
    if (fd < 0) {
        return false;
    }
    const ssize_t sent =
        sendto(fd, state, std::strlen(state), MSG_NOSIGNAL, reinterpret_cast<const struct sockaddr *>(&address),
               static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + length));
    return sent == static_cast<ssize_t>(std::strlen(state));
}

long WatchdogPeriodMs()
{
    unsigned long long microseconds = 0;
    if (!ReadNumber("WATCHDOG_USEC", microseconds) || microseconds == 0) {
        return 0;
    }
    unsigned long long process = 0;
    if (std::getenv("WATCHDOG_PID") != nullptr &&
        (!ReadNumber("WATCHDOG_PID", process) || process != static_cast<unsigned long long>(getpid()))) {
        return 0;
    }
    const unsigned long long period = microseconds / kMicrosecondsPerHalfPatience;
    return period == 0 ? 1 : period > LONG_MAX ? LONG_MAX : static_cast<long>(period);
}
