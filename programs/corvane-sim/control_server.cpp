#include "control_server.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace corvane_sim {
namespace {

constexpr size_t kMostLine = size_t{1} << 20U;
// What waits for a client that does not read, beside what the kernel holds for it.
constexpr size_t kMostUnread = size_t{1} << 20U;

} // namespace

ControlServer::ControlServer(EventLoop &loop, const std::string &path, Handler handler)
    : loop_(loop), acceptor_(loop, path, [this](int fd) { OnConnect(fd); }), handler_(std::move(handler))
{
    acceptor_.Start();
}

ControlServer::~ControlServer()
{
    while (!connections_.empty()) {
        Close(connections_.begin()->first);
    }
}

void ControlServer::OnConnect(int fd)
{
    const uint64_t id = nextConnection_++;
    Connection &connection = connections_[id];
    connection.fd = fd;
    connection.watch = loop_.Watch(fd, EPOLLIN, [this, id](uint32_t events) { OnActivity(id, events); });
}

void ControlServer::OnActivity(uint64_t id, uint32_t events)
{
    Connection &connection = connections_.at(id);
    bool ended = (events & EPOLLERR) != 0;
    if (!ended && (events & (EPOLLIN | EPOLLHUP)) != 0) {
        std::array<char, 4096> buffer{};
        const ssize_t got = read(connection.fd, buffer.data(), buffer.size());
        ended = got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR);
        connection.in.append(buffer.data(), got > 0 ? static_cast<size_t>(got) : 0);
        // The last line counts without its line feed too, as `printf` into a client leaves it.
        if (got == 0 && !connection.in.empty()) {
            connection.in += '\n';
        }
    }
    if (!AnswerLines(connection) || !Flush(connection) || ended || connection.in.size() > kMostLine) {
        Close(id);
    }
}

bool ControlServer::AnswerLines(Connection &connection)
{
    for (size_t end = connection.in.find('\n'); end != std::string::npos; end = connection.in.find('\n')) {
        const std::string line = connection.in.substr(0, end);
        connection.in.erase(0, end + 1);
        if (line.find_first_not_of(" \t\r") != std::string::npos) {
            connection.out += handler_(line) + "\n";
        }
        if (connection.out.size() > kMostUnread && (!Flush(connection) || connection.out.size() > kMostUnread)) {
            return false;
        }
    }
    return true;
}

bool ControlServer::Flush(Connection &connection)
{
    while (!connection.out.empty()) {
        const ssize_t wrote = send(connection.fd, connection.out.data(), connection.out.size(), MSG_NOSIGNAL);
        if (wrote > 0) {
            connection.out.erase(0, static_cast<size_t>(wrote));
        } else if (errno == EAGAIN) {
            loop_.ChangeWatch(connection.watch, EPOLLIN | EPOLLOUT);
            return true;
        } else if (errno != EINTR) {
            return false;
        }
    }
    loop_.ChangeWatch(connection.watch, EPOLLIN);
    return true;
}

void ControlServer::Close(uint64_t id)
{
    const auto found = connections_.find(id);
    if (found != connections_.end()) {
        loop_.Unwatch(found->second.watch);
        close(found->second.fd);
        connections_.erase(found);
    }
}

} // namespace corvane_sim
