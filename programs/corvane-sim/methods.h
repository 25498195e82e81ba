// The right answer to every method of the two agents.
#pragma once

#include "fleet.h"

#include <array>

namespace corvane_sim {

/** What an agent keeps beside its disks. */
struct AgentState {
    uint64_t tickRate = 100;
    bool linkError = false;
    bool debug = false;
};

struct Request {
    std::string method;
    bool hasMethod = false; // false: the member is missing or no text
    double id = 0;
    const cJSON *tree = nullptr;
    size_t asked = 0; // number of params.devices

    static Request From(const cJSON *tree);
};

struct Clock {
    double scenario = 0;  // seconds of scenario time
    double monotonic = 0; // seconds
};

/** The whole answer, envelope and result. May change the state: switches flip, a rebind brings disks. */
CJsonPtr Answer(AgentKind kind, AgentState &state, Fleet &fleet, const Request &request, const Clock &clock);

} // namespace corvane_sim
