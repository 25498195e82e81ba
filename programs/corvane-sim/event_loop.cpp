#include "event_loop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <ctime>
#include <sys/epoll.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace corvane_sim {

double MonotonicSeconds()
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

EventLoop::EventLoop() : epoll_(epoll_create1(EPOLL_CLOEXEC))
{
    if (epoll_ < 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_create1");
    }
}

EventLoop::~EventLoop()
{
    close(epoll_);
}

uint64_t EventLoop::Watch(int fd, uint32_t epollEvents, FdHandler handler)
{
    const uint64_t watch = nextId_++;
    epoll_event event{};
    event.events = epollEvents;
    // Not the descriptor: its number may be in use again when a fetched event is looked at.
    event.data.u64 = watch;
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
    watches_[watch] = std::make_shared<WatchEntry>(WatchEntry{fd, std::move(handler)});
    return watch;
}

void EventLoop::ChangeWatch(uint64_t watch, uint32_t epollEvents)
{
    epoll_event event{};
    event.events = epollEvents;
    event.data.u64 = watch;
    (void)epoll_ctl(epoll_, EPOLL_CTL_MOD, watches_.at(watch)->fd, &event);
}

void EventLoop::Unwatch(uint64_t watch)
{
    const auto found = watches_.find(watch);
    if (found != watches_.end()) {
        (void)epoll_ctl(epoll_, EPOLL_CTL_DEL, found->second->fd, nullptr);
        watches_.erase(found);
    }
}

uint64_t EventLoop::After(double seconds, TimerHandler handler)
{
    const uint64_t timer = nextId_++;
    const double due = MonotonicSeconds() + seconds;
    timers_.emplace(std::pair{due, timer}, std::move(handler));
    timerDue_[timer] = due;
    return timer;
}

void EventLoop::Cancel(uint64_t timer)
{
    const auto found = timerDue_.find(timer);
    if (found != timerDue_.end()) {
        timers_.erase({found->second, timer});
        timerDue_.erase(found);
    }
}

int EventLoop::WaitMs() const
{
    if (timers_.empty()) {
        return -1;
    }
    const double seconds = timers_.begin()->first.first - MonotonicSeconds();
    return static_cast<int>(std::clamp(std::ceil(seconds * 1000), 0.0, 3600000.0));
}

void EventLoop::RunDueTimers()
{
    // What is registered meanwhile waits for the next round, so that a timer of zero seconds cannot starve descriptors.
    const double now = MonotonicSeconds();
    std::vector<uint64_t> due;
    for (const auto &[key, handler] : timers_) {
        if (key.first > now) {
            break;
        }
        due.push_back(key.second);
    }
    for (const uint64_t timer : due) {
        const auto found = timerDue_.find(timer);
        if (found != timerDue_.end()) {
            const auto node = timers_.extract({found->second, timer});
            timerDue_.erase(found);
            node.mapped()();
        }
    }
}

void EventLoop::Run()
{
    running_ = true;
    std::array<epoll_event, 64> events{};
    while (running_) {
        const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), WaitMs());
        if (count < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "epoll_wait");
        }
        for (int i = 0; i < count && running_; i++) {
            const auto found = watches_.find(events[static_cast<size_t>(i)].data.u64);
            if (found != watches_.end()) {
                // Kept alive: a handler may drop its own registration.
                const std::shared_ptr<WatchEntry> entry = found->second;
                entry->handler(events[static_cast<size_t>(i)].events);
            }
        }
        if (running_) {
            RunDueTimers();
        }
    }
}

} // namespace corvane_sim
