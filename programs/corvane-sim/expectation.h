// What a scenario expects the observer of its disks to say of one disk in the end.
#pragma once

#include "json_reader.h"

#include <cstdint>
#include <optional>
#include <string>

namespace corvane_sim {

struct Expectation {
    std::optional<std::string> state; // "offline": the disk is not among the online ones
    std::optional<uint32_t> score;
    std::optional<uint32_t> life; // hours
    bool noLife = false;          // "none": no prediction at all
    std::optional<std::string> strategy;
    std::string text; // as it stands in the scenario

    [[nodiscard]] bool IsOffline() const { return state == "offline"; }
};
Expectation ReadExpectation(JsonObject object);

/**
 * Compare with a disk of corvaned's JSON status.
 * @param disk null for a disk that is not in the status.
 * @return the differences in words; empty if there are none.
 */
std::string Differences(const Expectation &expected, const cJSON *disk);

} // namespace corvane_sim
