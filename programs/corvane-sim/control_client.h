// The other end of the control socket, for scripts.
#pragma once

#include <string>

namespace corvane_sim {

/**
 * Send one line to a running simulation and print its answer on standard output.
 * @return true if the answer says ok. @throws std::runtime_error if there is no answer.
 */
bool SendControlLine(const std::string &path, const std::string &line);

} // namespace corvane_sim
