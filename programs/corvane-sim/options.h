// The command line.
#pragma once

#include <optional>
#include <string>

namespace corvane_sim {

struct Options {
    std::string scenario;
    std::string record;
    std::string control;
    std::string judge; // a status of corvaned to compare with the scenario; nothing is served then
    std::string send;  // a line for the control socket of another run; this one then serves nothing
    std::string dcakSocket = "/tmp/dcak.sock";
    std::string spdkSocket = "/var/tmp/spdk.sock";
    bool serveDcak = true;
    bool serveSpdk = true;
    bool checkOnly = false;
    int readyFd = -1;
    std::optional<double> duration; // seconds of real time
    double speed = 1;
};

/**
 * @param[out] exitCode set when there is nothing to run: 0 after --help or --version, 2 after a mistake that was told
 * on standard error.
 */
std::optional<Options> ParseOptions(int argc, char **argv, int &exitCode);

} // namespace corvane_sim
