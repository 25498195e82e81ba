#include "agent_server.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace corvane_sim {
namespace {

// The kernel agent reads once, this many bytes at most; what is longer arrives cut and cannot be read.
constexpr size_t kKernelRequest = 3071;
constexpr size_t kSpdkRequest = 65536;

} // namespace

AgentServer::AgentServer(AgentKind kind, const std::string &path, uint64_t tickRate, const Shared &shared)
    : kind_(kind), shared_(shared), acceptor_(shared.loop, path, [this](int fd) { OnConnect(fd); })
{
    state_.tickRate = tickRate;
}

AgentServer::~AgentServer()
{
    Stop(false);
}

void AgentServer::Stop(bool keepFile)
{
    while (!connections_.empty()) {
        Close(connections_.begin()->first);
    }
    acceptor_.Stop(keepFile);
}

void AgentServer::Behave(const std::string &method)
{
    if (method.empty()) {
        misbehaviours_.clear();
    } else {
        misbehaviours_.erase(method);
    }
    std::vector<uint64_t> hanging;
    for (const auto &[id, connection] : connections_) {
        if (connection.hanging && (method.empty() || connection.method == method)) {
            hanging.push_back(id);
        }
    }
    for (const uint64_t id : hanging) {
        Close(id);
    }
}

std::optional<Misbehaviour> AgentServer::TakeMisbehaviour(const std::string &method)
{
    auto found = misbehaviours_.find(method);
    if (found == misbehaviours_.end()) {
        found = misbehaviours_.find("");
    }
    if (found == misbehaviours_.end()) {
        return std::nullopt;
    }
    const Misbehaviour misbehaviour = found->second;
    if (found->second.count && --*found->second.count == 0) {
        misbehaviours_.erase(found);
    }
    return misbehaviour;
}

void AgentServer::OnConnect(int fd)
{
    const auto general = misbehaviours_.find("");
    if (general != misbehaviours_.end() && general->second.mode == Mode::kCloseUnread) {
        (void)TakeMisbehaviour("");
        close(fd);
        return;
    }
    const uint64_t id = nextConnection_++;
    Connection &connection = connections_[id];
    connection.fd = fd;
    connection.watch = shared_.loop.Watch(fd, EPOLLIN, [this, id](uint32_t events) { OnActivity(id, events); });
}

void AgentServer::OnActivity(uint64_t id, uint32_t events)
{
    Connection &connection = connections_.at(id);
    if (!connection.answering) {
        Read(id, connection);
    } else if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
        Close(id);
    } else if ((events & EPOLLOUT) != 0) {
        SendOn(id);
    }
}

void AgentServer::Read(uint64_t id, Connection &connection)
{
    std::array<char, kSpdkRequest> buffer{};
    const size_t room = kind_ == AgentKind::kKernel ? kKernelRequest : kSpdkRequest - connection.in.size();
    const ssize_t got = read(connection.fd, buffer.data(), room);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    connection.in.append(buffer.data(), got > 0 ? static_cast<size_t>(got) : 0);
    if (connection.in.empty()) {
        Close(id);
        return;
    }
    // Until its first bracket is closed a text does not parse.
    const CJsonPtr tree(cJSON_ParseWithLength(connection.in.c_str(), connection.in.size() + 1));
    const bool mayGrow = kind_ == AgentKind::kSpdk && got > 0 && connection.in.size() < kSpdkRequest;
    if (tree == nullptr && mayGrow) {
        return;
    }
    requests_++;
    if (tree == nullptr) {
        shared_.recorder.WriteUnreadable(MonotonicSeconds() - shared_.startedAt, kind_, connection.in);
        Close(id);
        return;
    }
    OnRequest(id, connection, tree.get());
}

void AgentServer::OnRequest(uint64_t id, Connection &connection, const cJSON *tree)
{
    const Request request = Request::From(tree);
    shared_.recorder.Write(MonotonicSeconds() - shared_.startedAt, kind_, request);
    connection.answering = true;
    connection.method = request.method;
    shared_.loop.ChangeWatch(connection.watch, 0);

    const auto misbehaviour = TakeMisbehaviour(request.method);
    if (!misbehaviour) {
        connection.out = PrintJson(Answer(kind_, state_, shared_.fleet, request, shared_.clock()).get());
        connection.sendUpTo = connection.out.size();
        SendOn(id);
        return;
    }
    if (misbehaviour->mode == Mode::kHang) {
        connection.hanging = true;
        return;
    }
    if (misbehaviour->mode == Mode::kClose) {
        Close(id);
        return;
    }
    const CJsonPtr answer = Answer(kind_, state_, shared_.fleet, request, shared_.clock());
    BendAnswer(*misbehaviour, answer.get(), request.asked);
    connection.out = BendText(*misbehaviour, PrintJson(answer.get()));
    connection.sendUpTo = connection.out.size();
    if (misbehaviour->mode == Mode::kDelay) {
        connection.timer = shared_.loop.After(misbehaviour->seconds, [this, id] { SendOn(id); });
        return;
    }
    if (misbehaviour->mode == Mode::kSplit) {
        const uint64_t wanted = misbehaviour->bytes.value_or(connection.out.size() / 2);
        connection.sendUpTo = std::min<uint64_t>(wanted, connection.out.size());
        connection.pause = misbehaviour->seconds;
    }
    SendOn(id);
}

void AgentServer::SendOn(uint64_t id)
{
    Connection &connection = connections_.at(id);
    while (connection.sent < connection.sendUpTo) {
        const ssize_t wrote = send(connection.fd, connection.out.data() + connection.sent,
                                   connection.sendUpTo - connection.sent, MSG_NOSIGNAL);
        if (wrote >= 0) {
            connection.sent += static_cast<size_t>(wrote);
        } else if (errno == EAGAIN) {
            shared_.loop.ChangeWatch(connection.watch, EPOLLOUT);
            return;
        } else if (errno != EINTR) {
            Close(id);
            return;
        }
    }
    if (connection.sent == connection.out.size()) {
        Close(id);
        return;
    }
    connection.sendUpTo = connection.out.size();
    shared_.loop.ChangeWatch(connection.watch, 0);
    connection.timer = shared_.loop.After(connection.pause, [this, id] { SendOn(id); });
}

void AgentServer::Close(uint64_t id)
{
    const auto found = connections_.find(id);
    if (found != connections_.end()) {
        shared_.loop.Cancel(found->second.timer);
        shared_.loop.Unwatch(found->second.watch);
        close(found->second.fd);
        connections_.erase(found);
    }
}

} // namespace corvane_sim
