/**
 * @file notify_socket.h
 * @brief The service manager's side of a program that tells when it is ready.
 */
#ifndef NOTIFY_SOCKET_H
#define NOTIFY_SOCKET_H

#include <cstddef>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

/** The service manager's end of the notification socket. */
class NotifySocket {
public:
    explicit NotifySocket(bool abstract = false)
    {
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        name_ = abstract ? "@corvane-test-" + std::to_string(getpid()) : "/tmp/notify.sock";
        name_.copy(address.sun_path, sizeof(address.sun_path) - 1);
        if (abstract) {
            address.sun_path[0] = '\0';
        }
        (void)unlink(name_.c_str());
        EXPECT_EQ(bind(fd_, reinterpret_cast<struct sockaddr *>(&address),
                       static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + name_.size())),
                  0);
        const struct timeval patience = {60, 0};
        (void)setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    }
    ~NotifySocket() { (void)close(fd_); }
    NotifySocket(const NotifySocket &) = delete;
    NotifySocket &operator=(const NotifySocket &) = delete;

    std::string Environment() const { return "NOTIFY_SOCKET=" + name_; }
    /** The next message; empty after a minute without one. */
    std::string Receive() const
    {
        char buffer[512];
        const ssize_t count = recv(fd_, buffer, sizeof(buffer), 0);
        return count > 0 ? std::string(buffer, static_cast<size_t>(count)) : "";
    }

private:
    int fd_ = -1;
    std::string name_;
};

#endif
