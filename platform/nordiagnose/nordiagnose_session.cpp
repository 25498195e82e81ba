#include "nordiagnose_session.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

namespace nordiag {
namespace {

thread_local Session *t_session = nullptr;

/** The socket has a send timeout. @return false if not all of it went out. */
bool SendAll(int socket, iovec first, iovec second) noexcept
{
    std::array<iovec, 2> parts{first, second};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    while (parts[0].iov_len + parts[1].iov_len > 0) {
        const ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        size_t left = static_cast<size_t>(sent);
        for (iovec &part : parts) {
            const size_t step = std::min(left, part.iov_len);
            part.iov_base = static_cast<char *>(part.iov_base) + step;
            part.iov_len -= step;
            left -= step;
        }
    }
    return true;
}

} // namespace

bool Session::Send(FrameType type, const void *payload, size_t size) noexcept
{
    if (lost_ || socket_ < 0) {
        return false;
    }
    auto header = PackHeader({type, static_cast<uint32_t>(size)});
    if (!SendAll(socket_, {header.data(), header.size()}, {const_cast<void *>(payload), size})) {
        // Half a frame may be out: nothing that follows would be understood.
        lost_ = true;
        (void)shutdown(socket_, SHUT_RDWR);
    }
    return !lost_;
}

bool Session::Print(std::string_view text) noexcept
{
    if (socket_ < 0) {
        const size_t count = std::min(text.size(), capacity_ - kept_);
        (void)text.copy(text_ + kept_, count);
        kept_ += count;
        return true;
    }
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, kMaxAnswer);
        if (!Send(FrameType::OUTPUT, piece.data(), piece.size())) {
            return false;
        }
        text.remove_prefix(piece.size());
    }
    return !lost_;
}

bool Session::End(int result) noexcept
{
    const uint32_t bytes = htole32(static_cast<uint32_t>(result));
    return Send(FrameType::END, &bytes, sizeof(bytes));
}

bool Session::Refuse(Refusal reason, std::string_view text) noexcept
{
    std::array<char, 256> payload{static_cast<char>(reason)};
    const size_t length = text.copy(&payload[1], payload.size() - 1);
    return Send(FrameType::REFUSED, payload.data(), length + 1);
}

bool Session::Lost() noexcept
{
    if (!lost_ && socket_ >= 0) {
        pollfd end{socket_, POLLRDHUP, 0};
        lost_ = poll(&end, 1, 0) > 0 && (end.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
    }
    return lost_;
}

Session *CurrentSession() noexcept
{
    return t_session;
}

SessionScope::SessionScope(Session &session) noexcept : outer_(t_session)
{
    t_session = &session;
}

SessionScope::~SessionScope()
{
    t_session = outer_;
}

} // namespace nordiag
