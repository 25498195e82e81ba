#include "acceptor.h"

#include <cerrno>
#include <sys/epoll.h>

namespace corvane_sim {
namespace {

// Out of descriptors: wait for connections to end.
constexpr double kAcceptPause = 0.1;

} // namespace

Acceptor::Acceptor(EventLoop &loop, const std::string &path, Handler handler)
    : loop_(loop), listener_(path), handler_(std::move(handler))
{
}

void Acceptor::Start()
{
    listener_.Open();
    watch_ = loop_.Watch(listener_.Fd(), EPOLLIN, [this](uint32_t) { OnConnect(); });
}

void Acceptor::Stop(bool keepFile)
{
    loop_.Cancel(resumeTimer_);
    loop_.Unwatch(watch_);
    listener_.Close(keepFile);
}

void Acceptor::OnConnect()
{
    for (;;) {
        const int fd = listener_.Accept();
        if (fd >= 0) {
            handler_(fd);
        } else if (errno != EINTR && errno != ECONNABORTED) {
            break;
        }
    }
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
        loop_.ChangeWatch(watch_, 0);
        resumeTimer_ = loop_.After(kAcceptPause, [this] { loop_.ChangeWatch(watch_, EPOLLIN); });
    }
}

} // namespace corvane_sim
