// The linker takes these for the functions of the same name without "__wrap_".
#include "cli_server_test_support.h"

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

// Visible: a sanitizer's library refers to both as well.

int __real_usleep(useconds_t microseconds);
CORVANE_API int __wrap_usleep(useconds_t microseconds)
{
    {
        const std::lock_guard<std::mutex> guard(ServerDoubles::mutex);
        ServerDoubles::sleeps.push_back(microseconds);
    }
    return __real_usleep(microseconds);
}

int __real_listen(int fd, int backlog);
CORVANE_API int __wrap_listen(int fd, int backlog)
{
    if (ServerDoubles::listenFails) {
        errno = EOPNOTSUPP;
        return -1;
    }
    ServerDoubles::backlog = backlog;
    return __real_listen(fd, backlog);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
