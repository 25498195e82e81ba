#include "fake_agent.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

std::string MethodOf(const std::string &request)
{
    const std::string mark = "\"method\":\"";
    const size_t start = request.find(mark);
    if (start == std::string::npos) {
        return "";
    }
    const size_t from = start + mark.size();
    return request.substr(from, request.find('"', from) - from);
}

void Die(const char *what)
{
    std::perror(what);
    std::abort();
}

} // namespace

FakeAgent::FakeAgent(const std::string &path) : path_(path), listenFd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (void)path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    (void)unlink(path.c_str());
    if (listenFd_ < 0 || bind(listenFd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listenFd_, 128) != 0 || pipe(stopPipe_) != 0) {
        Die(path.c_str());
    }
    thread_ = std::thread([this] { Accept(); });
}

FakeAgent::~FakeAgent()
{
    Stop();
}

void FakeAgent::Stop()
{
    if (!thread_.joinable()) {
        return;
    }
    (void)unlink(path_.c_str());
    (void)!write(stopPipe_[1], "x", 1);
    thread_.join();
    for (std::thread &connection : connections_) {
        connection.join();
    }
    (void)close(listenFd_);
    (void)close(stopPipe_[0]);
    (void)close(stopPipe_[1]);
}

void FakeAgent::On(const std::string &method, const Handler &handler)
{
    const std::lock_guard guard(lock_);
    handlers_[method] = handler;
}

void FakeAgent::Result(const std::string &method, const std::string &result)
{
    Bytes(method, R"({"jsonrpc":"2.0","id":1,"result":)" + result + "}");
}

void FakeAgent::Bytes(const std::string &method, const std::string &text)
{
    On(method, [text](const std::string &) { return FakeReply{FakeReply::TEXT, text}; });
}

std::vector<std::string> FakeAgent::RequestsLocked(const std::string &method) const
{
    std::vector<std::string> found;
    for (const std::string &request : requests_) {
        if (method.empty() || MethodOf(request) == method) {
            found.push_back(request);
        }
    }
    return found;
}

std::vector<std::string> FakeAgent::Requests(const std::string &method) const
{
    const std::lock_guard guard(lock_);
    return RequestsLocked(method);
}

bool FakeAgent::WaitForRequests(const std::string &method, size_t count, int seconds) const
{
    std::unique_lock guard(lock_);
    return arrived_.wait_for(guard, std::chrono::seconds(seconds),
                             [&] { return RequestsLocked(method).size() >= count; });
}

void FakeAgent::ClearRequests()
{
    const std::lock_guard guard(lock_);
    requests_.clear();
}

void FakeAgent::Accept()
{
    for (;;) {
        std::array<pollfd, 2> waits{{{listenFd_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}}};
        (void)poll(waits.data(), waits.size(), -1);
        if (waits[1].revents != 0) {
            return;
        }
        const int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0 && refuse_) {
            (void)close(fd);
        } else if (fd >= 0) {
            connections_.emplace_back([this, fd] { Serve(fd); });
        }
    }
}

void FakeAgent::Serve(int fd)
{
    std::array<char, 65536> buffer{};
    const ssize_t got = recv(fd, buffer.data(), buffer.size(), 0);
    const std::string request(buffer.data(), got > 0 ? static_cast<size_t>(got) : 0);
    Handler handler;
    {
        const std::lock_guard guard(lock_);
        const auto found = handlers_.find(MethodOf(request));
        if (found != handlers_.end()) {
            handler = found->second;
        }
        requests_.push_back(request);
        arrived_.notify_all();
    }
    // An agent that knows nothing of the method answers like one without disks.
    const FakeReply reply =
        handler ? handler(request) : FakeReply{FakeReply::TEXT, R"({"jsonrpc":"2.0","id":1,"result":{"disks":[]}})"};
    if (reply.kind == FakeReply::TEXT || reply.kind == FakeReply::HALF) {
        (void)send(fd, reply.text.data(), reply.text.size(), MSG_NOSIGNAL);
    }
    if (reply.kind == FakeReply::SILENT || reply.kind == FakeReply::HALF) {
        for (ssize_t more = 1; more > 0;) {
            more = recv(fd, buffer.data(), buffer.size(), 0);
            if (more > 0) {
                const std::lock_guard guard(lock_);
                requests_.emplace_back(buffer.data(), static_cast<size_t>(more));
                arrived_.notify_all();
            }
        }
    }
    (void)close(fd);
}
