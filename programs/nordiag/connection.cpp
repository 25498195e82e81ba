#include "connection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "output.h"

using nordiag::FrameHeader;
using nordiag::FrameType;

namespace {

constexpr size_t kReadSize = 65536;
/** Of output that nobody takes; then the process waits, and soon gives this client up. */
constexpr size_t kMaxKept = 64 << 20;
constexpr time_t kConnectSeconds = 2;

long NowMs()
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

class Socket {
public:
    Socket() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    ~Socket() { (void)close(fd_); }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;
    [[nodiscard]] int Fd() const { return fd_; }

private:
    int fd_;
};

std::string Pack(const std::vector<std::string> &words)
{
    std::string payload;
    for (const std::string &word : words) {
        payload.append(word.c_str(), word.size() + 1);
    }
    return payload;
}

std::vector<std::string> Unpack(std::string_view payload)
{
    std::vector<std::string> words;
    while (!payload.empty()) {
        const std::string_view word = payload.substr(0, payload.find('\0'));
        words.push_back(OnePlainLine(word));
        payload.remove_prefix(std::min(word.size() + 1, payload.size()));
    }
    return words;
}

class Exchange {
public:
    Exchange(int socket, const Request &request, Answer &answer) : socket_(socket), request_(request), answer_(answer)
    {
    }
    void Send();
    void TakeAnswer();

private:
    void Fail(std::string problem)
    {
        answer_.outcome = Answer::Outcome::FAILED;
        answer_.problem = std::move(problem);
        finished_ = true;
    }
    void ReadSome();
    void TakeFrames();
    void TakeFrame(FrameType type, std::string_view payload);
    [[nodiscard]] int WaitForSomething(pollfd *events, nfds_t count, long deadlineMs) const;

    int socket_;
    const Request &request_;
    Answer &answer_;
    std::string received_;
    OutputQueue output_{STDOUT_FILENO};
    bool finished_ = false;
};

void Exchange::Send()
{
    const std::string payload = Pack(request_.words);
    const auto header = nordiag::PackHeader({request_.type, static_cast<uint32_t>(payload.size())});
    std::string bytes(reinterpret_cast<const char *>(header.data()), header.size());
    bytes += payload;
    // Who refuses at once has closed already; what it had to say is read all the same.
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return;
        }
        sent += static_cast<size_t>(count);
    }
}

int Exchange::WaitForSomething(pollfd *events, nfds_t count, long deadlineMs) const
{
    timespec left{};
    if (deadlineMs >= 0) {
        const long ms = std::max(0L, deadlineMs - NowMs());
        left = {ms / 1000, ms % 1000 * 1000000};
    }
    sigset_t open;
    (void)sigprocmask(SIG_SETMASK, nullptr, &open);
    (void)sigdelset(&open, SIGINT);
    return ppoll(events, count, deadlineMs >= 0 ? &left : nullptr, &open);
}

void Exchange::TakeAnswer()
{
    const long deadline = request_.patienceMs >= 0 ? NowMs() + request_.patienceMs : -1;
    while (!finished_ || !output_.Empty()) {
        pollfd events[2] = {{finished_ || output_.Size() > kMaxKept ? -1 : socket_, POLLIN, 0},
                            {output_.Empty() ? -1 : STDOUT_FILENO, POLLOUT, 0}};
        const int ready = WaitForSomething(events, 2, deadline);
        if (request_.abandon != nullptr && *request_.abandon != 0) {
            answer_.outcome = Answer::Outcome::ABANDONED;
            return;
        }
        if (ready == 0) {
            answer_.outcome = Answer::Outcome::SILENT;
            return;
        }
        if (ready < 0) {
            continue;
        }
        if (events[0].revents != 0) {
            ReadSome();
        }
        if (events[1].revents != 0 && !output_.WriteSome()) {
            Fail(std::string("standard output: ") + std::strerror(errno));
            return;
        }
    }
}

void Exchange::ReadSome()
{
    const size_t before = received_.size();
    received_.resize(before + kReadSize);
    const ssize_t count = recv(socket_, received_.data() + before, kReadSize, MSG_DONTWAIT);
    const int problem = errno;
    received_.resize(before + (count > 0 ? static_cast<size_t>(count) : 0));
    if (count > 0) {
        TakeFrames();
    } else if (count == 0 || (problem != EAGAIN && problem != EINTR)) {
        Fail("the connection ended before the answer was complete");
    }
}

void Exchange::TakeFrames()
{
    size_t at = 0;
    while (!finished_ && received_.size() - at >= nordiag::kHeaderSize) {
        std::array<unsigned char, nordiag::kHeaderSize> bytes{};
        FrameHeader header{};
        std::memcpy(bytes.data(), received_.data() + at, bytes.size());
        if (!nordiag::UnpackHeader(bytes, header) || header.size > nordiag::kMaxAnswer) {
            Fail("the process speaks another protocol");
            break;
        }
        if (received_.size() - at < nordiag::kHeaderSize + header.size) {
            break;
        }
        TakeFrame(header.type, std::string_view(received_).substr(at + nordiag::kHeaderSize, header.size));
        at += nordiag::kHeaderSize + header.size;
    }
    received_.erase(0, at);
}

void Exchange::TakeFrame(FrameType type, std::string_view payload)
{
    uint32_t result = 0;
    switch (type) {
    case FrameType::OUTPUT:
        if (request_.printsOutput) {
            output_.Add(payload);
        }
        return;
    case FrameType::WORDS:
        answer_.words = Unpack(payload);
        return;
    case FrameType::END:
        if (payload.size() == sizeof(result)) {
            std::memcpy(&result, payload.data(), sizeof(result));
            answer_.result = static_cast<int>(le32toh(result));
            answer_.outcome = Answer::Outcome::DONE;
            finished_ = true;
            return;
        }
        break;
    case FrameType::REFUSED:
        if (!payload.empty()) {
            answer_.refusal = static_cast<nordiag::Refusal>(payload.front());
            answer_.problem = OnePlainLine(payload.substr(1));
            answer_.outcome = Answer::Outcome::REFUSED;
            finished_ = true;
            return;
        }
        break;
    default:
        break;
    }
    Fail("the process speaks another protocol");
}

} // namespace

bool IsTooLong(const std::vector<std::string> &words)
{
    return words.size() > nordiag::kMaxWords || Pack(words).size() > nordiag::kMaxRequest;
}

Answer Ask(const Peer &peer, const Request &request)
{
    Answer answer;
    const Socket socket;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket.Fd() < 0 || peer.socket.size() >= sizeof(address.sun_path)) {
        answer.problem = std::strerror(socket.Fd() < 0 ? errno : ENAMETOOLONG);
        return answer;
    }
    (void)peer.socket.copy(address.sun_path, peer.socket.size());
    const timeval limit{kConnectSeconds, 0};
    (void)setsockopt(socket.Fd(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    if (connect(socket.Fd(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        answer.outcome = errno == ECONNREFUSED || errno == ENOENT ? Answer::Outcome::DESERTED
                         : errno == EAGAIN                        ? Answer::Outcome::SILENT
                                                                  : Answer::Outcome::FAILED;
        answer.problem = std::strerror(errno);
        return answer;
    }
    ucred listener{};
    socklen_t size = sizeof(listener);
    if (getsockopt(socket.Fd(), SOL_SOCKET, SO_PEERCRED, &listener, &size) != 0 || listener.uid != peer.user) {
        answer.outcome = Answer::Outcome::STRANGER;
        answer.problem = "a process of another user listens in its place";
        return answer;
    }
    Exchange exchange(socket.Fd(), request, answer);
    exchange.Send();
    exchange.TakeAnswer();
    return answer;
}
