// Brings the parts together: the scenario's clock, its events, the agents and the control socket.
#pragma once

#include "agent_server.h"
#include "control_server.h"
#include "options.h"
#include "scenario.h"

#include <array>
#include <memory>

namespace corvane_sim {

class Simulation {
public:
    Simulation(const Options &options, Scenario scenario);

    /** Serve until a signal or the end of the duration. SIGTERM and SIGINT have to be blocked. */
    void Run();

private:
    [[nodiscard]] Clock Now() const;
    void Apply(const Event &event);
    void ScheduleNextEvent();
    std::string OnControlLine(const std::string &line);
    [[nodiscard]] CJsonPtr Status() const;
    AgentServer &Agent(AgentKind kind);
    void ReportReady() const;

    Options options_;
    Scenario scenario_;
    double startedAt_;
    EventLoop loop_;
    Fleet fleet_;
    Recorder recorder_;
    std::array<std::unique_ptr<AgentServer>, kAgentCount> agents_; // null: not served
    std::unique_ptr<ControlServer> control_;
    size_t nextEvent_ = 0;
};

} // namespace corvane_sim
