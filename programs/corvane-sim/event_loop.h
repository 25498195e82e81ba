// One thread that waits for descriptors and timers and calls what was registered for them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

namespace corvane_sim {

/** Seconds of the monotonic clock. */
double MonotonicSeconds();

class EventLoop {
public:
    using FdHandler = std::function<void(uint32_t epollEvents)>;
    using TimerHandler = std::function<void()>;

    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop &) = delete;
    EventLoop &operator=(const EventLoop &) = delete;

    /** Watch @p fd; the result names this registration. EPOLLHUP and EPOLLERR are always reported. */
    uint64_t Watch(int fd, uint32_t epollEvents, FdHandler handler);
    void ChangeWatch(uint64_t watch, uint32_t epollEvents);
    /** Before the descriptor is closed. The handler is not called again, not even for events already fetched. */
    void Unwatch(uint64_t watch);

    /** Call once, @p seconds from now. */
    uint64_t After(double seconds, TimerHandler handler);
    void Cancel(uint64_t timer);

    void Run();
    void Stop() { running_ = false; }

private:
    struct WatchEntry {
        int fd;
        FdHandler handler;
    };

    [[nodiscard]] int WaitMs() const;
    void RunDueTimers();

    int epoll_;
    bool running_ = false;
    uint64_t nextId_ = 1;
    std::map<uint64_t, std::shared_ptr<WatchEntry>> watches_;
    std::map<std::pair<double, uint64_t>, TimerHandler> timers_; // by due time, then by age
    std::map<uint64_t, double> timerDue_;
};

} // namespace corvane_sim
