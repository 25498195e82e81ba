#include "service_manager.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

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

    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    const ssize_t sent =
        sendto(fd, state, std::strlen(state), MSG_NOSIGNAL, reinterpret_cast<const struct sockaddr *>(&address),
               static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + length));
    (void)close(fd);
    return sent == static_cast<ssize_t>(std::strlen(state));
}
