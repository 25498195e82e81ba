// Takes the connections of a listening socket, and pauses while the process has no descriptor for one.
#pragma once

#include "event_loop.h"
#include "unix_listener.h"

#include <functional>
#include <string>

namespace corvane_sim {

class Acceptor {
public:
    using Handler = std::function<void(int fd)>;

    /** @param handler gets each connection, non-blocking, and owns it. */
    Acceptor(EventLoop &loop, const std::string &path, Handler handler);
    ~Acceptor() { Stop(false); }
    Acceptor(const Acceptor &) = delete;
    Acceptor &operator=(const Acceptor &) = delete;

    void Start();
    /** @param keepFile as for UnixListener::Close(). */
    void Stop(bool keepFile);
    [[nodiscard]] bool IsServing() const { return listener_.IsOpen(); }

private:
    void OnConnect();

    EventLoop &loop_;
    UnixListener listener_;
    Handler handler_;
    uint64_t watch_ = 0;
    uint64_t resumeTimer_ = 0;
};

} // namespace corvane_sim
