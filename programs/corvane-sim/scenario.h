// A scenario file: the fleet, the agents' settings and the events over time, checked as a whole.
#pragma once

#include "events.h"

#include <array>
#include <string>
#include <vector>

namespace corvane_sim {

struct Scenario {
    std::string name;
    std::vector<DiskSpec> disks;
    std::array<uint64_t, kAgentCount> tickRate = {100, 1000000000};
    std::vector<Event> events; // in order of time
};

/** @throws JsonError, its text beginning with the place of the mistake. */
Scenario ReadScenario(std::string_view text);
/** @throws std::runtime_error with "FILE: PLACE: what is wrong; what to do". */
Scenario LoadScenario(const std::string &file);

} // namespace corvane_sim
