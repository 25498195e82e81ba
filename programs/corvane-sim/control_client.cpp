#include "control_client.h"

#include "json_reader.h"
#include "unix_listener.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace corvane_sim {
namespace {

constexpr time_t kAnswerSeconds = 10;

struct Descriptor {
    int fd;
    explicit Descriptor(int value) : fd(value) {}
    ~Descriptor() { close(fd); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
};

} // namespace

bool SendControlLine(const std::string &path, const std::string &line)
{
    const sockaddr_un address = UnixAddressOf(path);
    const Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval limit{kAnswerSeconds, 0};
    (void)setsockopt(connection.fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    (void)setsockopt(connection.fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    if (connect(connection.fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        throw std::runtime_error(path + ": cannot be reached: " + std::strerror(errno) +
                                 "; check that a simulation runs with this --control");
    }
    // A line feed within would make two lines of it.
    std::string out = line;
    for (char &letter : out) {
        letter = letter == '\n' ? ' ' : letter;
    }
    out += '\n';
    for (size_t sent = 0; sent < out.size();) {
        const ssize_t wrote = send(connection.fd, out.data() + sent, out.size() - sent, MSG_NOSIGNAL);
        if (wrote < 0) {
            throw std::runtime_error(path + ": does not take the event: " + std::strerror(errno));
        }
        sent += static_cast<size_t>(wrote);
    }
    std::string answer;
    char buffer[4096];
    while (answer.find('\n') == std::string::npos) {
        const ssize_t got = recv(connection.fd, buffer, sizeof(buffer), 0);
        if (got <= 0) {
            throw std::runtime_error(path + ": gives no answer");
        }
        answer.append(buffer, static_cast<size_t>(got));
    }
    (void)std::fputs(answer.c_str(), stdout);
    const CJsonPtr tree = ParseJson(answer);
    return cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(tree.get(), "ok")) != 0;
}

} // namespace corvane_sim
