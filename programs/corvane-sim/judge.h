// The verdict on the verdicts: a scenario's expectations against what corvaned printed.
#pragma once

#include "scenario.h"

#include <string>

namespace corvane_sim {

/**
 * Print a line for each disk of which the scenario expects something, and a last one with the sum.
 * @param statusFile JSON status of corvaned, one object a line; the last whole line counts. "-" is standard input.
 * @return whether every disk is as expected.
 * @throws std::runtime_error if there is no status to compare with.
 */
bool JudgeStatus(const Scenario &scenario, const std::string &statusFile);

} // namespace corvane_sim
