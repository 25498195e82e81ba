// One simulated agent: its socket, its connections, and its present misbehaviour. Runs in the event loop's thread.
#pragma once

#include "acceptor.h"
#include "event_loop.h"
#include "methods.h"
#include "misbehaviour.h"
#include "recorder.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace corvane_sim {

class AgentServer {
public:
    struct Shared {
        EventLoop &loop;
        Fleet &fleet;
        Recorder &recorder;
        std::function<Clock()> clock;
        double startedAt; // monotonic seconds
    };

    AgentServer(AgentKind kind, const std::string &path, uint64_t tickRate, const Shared &shared);
    ~AgentServer();
    AgentServer(const AgentServer &) = delete;
    AgentServer &operator=(const AgentServer &) = delete;

    void Start() { acceptor_.Start(); }
    /** Drop all connections and stop listening. */
    void Stop(bool keepFile);
    [[nodiscard]] bool IsServing() const { return acceptor_.IsServing(); }
    void Misbehave(const Misbehaviour &misbehaviour) { misbehaviours_[misbehaviour.method] = misbehaviour; }
    /** Right again: for one method, or with an empty text for all. Connections that hang are closed. */
    void Behave(const std::string &method);
    void SetTickRate(uint64_t tickRate) { state_.tickRate = tickRate; }
    [[nodiscard]] uint64_t Requests() const { return requests_; }

private:
    struct Connection {
        int fd = -1;
        uint64_t watch = 0;
        uint64_t timer = 0;
        bool answering = false; // the request is complete; nothing more is read
        bool hanging = false;
        std::string method;
        std::string in;
        std::string out;
        size_t sent = 0;
        size_t sendUpTo = 0; // a split answer pauses here
        double pause = 0;
    };

    void OnConnect(int fd);
    void OnActivity(uint64_t id, uint32_t events);
    void Read(uint64_t id, Connection &connection);
    void OnRequest(uint64_t id, Connection &connection, const cJSON *tree);
    void SendOn(uint64_t id);
    void Close(uint64_t id);
    /** The misbehaviour that this request meets; uses up one of its count. */
    std::optional<Misbehaviour> TakeMisbehaviour(const std::string &method);

    AgentKind kind_;
    Shared shared_;
    Acceptor acceptor_;
    AgentState state_;
    uint64_t nextConnection_ = 1;
    uint64_t requests_ = 0;
    std::map<uint64_t, Connection> connections_;
    std::map<std::string, Misbehaviour> misbehaviours_; // by method, "" for all others
};

} // namespace corvane_sim
