// The control socket: one JSON object a line in, one a line out. Runs in the event loop's thread.
#pragma once

#include "acceptor.h"
#include "event_loop.h"

#include <functional>
#include <map>
#include <string>

namespace corvane_sim {

class ControlServer {
public:
    using Handler = std::function<std::string(const std::string &line)>;

    /** @param handler gives the answer to a line, without its line feed. */
    ControlServer(EventLoop &loop, const std::string &path, Handler handler);
    ~ControlServer();
    ControlServer(const ControlServer &) = delete;
    ControlServer &operator=(const ControlServer &) = delete;

private:
    struct Connection {
        int fd = -1;
        uint64_t watch = 0;
        std::string in;
        std::string out;
    };

    void OnConnect(int fd);
    /** Answers the whole lines. @return false if the client does not read what it asked for. */
    bool AnswerLines(Connection &connection);
    void OnActivity(uint64_t id, uint32_t events);
    bool Flush(Connection &connection);
    void Close(uint64_t id);

    EventLoop &loop_;
    Acceptor acceptor_;
    Handler handler_;
    uint64_t nextConnection_ = 1;
    std::map<uint64_t, Connection> connections_;
};

} // namespace corvane_sim
