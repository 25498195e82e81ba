// corvane-sim: simulated collection agents, for machines without disks, for tests and for load.
#include "common/command_line.h"
#include "control_client.h"
#include "judge.h"
#include "simulation.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <sys/resource.h>

namespace {

constexpr int kFailed = 1;
constexpr int kBadScenario = 3;

void PrepareProcess()
{
    // Peers may go away at any moment.
    (void)std::signal(SIGPIPE, SIG_IGN);
    // Blocked before any socket file exists, so that none is left behind by an early signal.
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGTERM);
    sigaddset(&endSignals, SIGINT);
    (void)sigprocmask(SIG_BLOCK, &endSignals, nullptr);
    // Connections that hang by order add up.
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0) {
        files.rlim_cur = files.rlim_max;
        (void)setrlimit(RLIMIT_NOFILE, &files);
    }
}

/** @return @p exitCode, or that of a failure if the text that was asked for has not arrived. */
int Finish(int exitCode)
{
    const std::string problem = FlushOutput();
    if (problem.empty()) {
        return exitCode;
    }
    (void)std::fprintf(stderr, "corvane-sim: %s\n", problem.c_str());
    return exitCode == 0 ? kFailed : exitCode;
}

int Run(int argc, char **argv)
{
    int exitCode = 0;
    const auto options = corvane_sim::ParseOptions(argc, argv, exitCode);
    if (!options) {
        return Finish(exitCode);
    }
    if (!options->send.empty()) {
        return Finish(corvane_sim::SendControlLine(options->control, options->send) ? 0 : kFailed);
    }
    corvane_sim::Scenario scenario;
    try {
        scenario = corvane_sim::LoadScenario(options->scenario);
    } catch (const std::exception &error) {
        (void)std::fprintf(stderr, "corvane-sim: %s\n", error.what());
        return kBadScenario;
    }
    if (options->checkOnly) {
        (void)std::printf("%s: good, %zu disks, %zu events\n", options->scenario.c_str(), scenario.disks.size(),
                          scenario.events.size());
        return Finish(0);
    }
    if (!options->judge.empty()) {
        return Finish(corvane_sim::JudgeStatus(scenario, options->judge) ? 0 : kFailed);
    }
    PrepareProcess();
    corvane_sim::Simulation(*options, std::move(scenario)).Run();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return Run(argc, argv);
    } catch (const std::exception &error) {
        (void)std::fprintf(stderr, "corvane-sim: %s\n", error.what());
        return kFailed;
    }
}
