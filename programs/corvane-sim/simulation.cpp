#include "simulation.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace corvane_sim {

Simulation::Simulation(const Options &options, Scenario scenario)
    : options_(options), scenario_(std::move(scenario)), startedAt_(MonotonicSeconds()),
      fleet_(scenario_.disks, startedAt_), recorder_(options.record)
{
    const AgentServer::Shared shared{loop_, fleet_, recorder_, [this] { return Now(); }, startedAt_};
    const std::array<std::pair<bool, const std::string &>, kAgentCount> wanted{
        {{options_.serveDcak, options_.dcakSocket}, {options_.serveSpdk, options_.spdkSocket}}};
    for (size_t i = 0; i < kAgentCount; i++) {
        if (wanted[i].first) {
            agents_[i] = std::make_unique<AgentServer>(static_cast<AgentKind>(i), wanted[i].second,
                                                       scenario_.tickRate[i], shared);
            agents_[i]->Start();
        }
    }
    if (!options_.control.empty()) {
        control_ = std::make_unique<ControlServer>(loop_, options_.control,
                                                   [this](const std::string &line) { return OnControlLine(line); });
    }
}

Clock Simulation::Now() const
{
    const double now = MonotonicSeconds();
    return {(now - startedAt_) * options_.speed, now};
}

AgentServer &Simulation::Agent(AgentKind kind)
{
    const auto &agent = agents_[static_cast<size_t>(kind)];
    if (agent == nullptr) {
        throw std::runtime_error("the agent " + std::string(kAgentNames[static_cast<size_t>(kind)]) +
                                 " is not served by this run; start without its --no option");
    }
    return *agent;
}

void Simulation::Apply(const Event &event)
{
    if (const auto *misbehave = std::get_if<Misbehave>(&event.action)) {
        Agent(event.agent).Misbehave(misbehave->misbehaviour);
    } else if (const auto *behave = std::get_if<Behave>(&event.action)) {
        Agent(event.agent).Behave(behave->method);
    } else if (const auto *stop = std::get_if<StopAgent>(&event.action)) {
        if (!Agent(event.agent).IsServing()) {
            throw std::runtime_error("the agent is stopped already; start it first");
        }
        Agent(event.agent).Stop(stop->keepFile);
    } else if (std::holds_alternative<StartAgent>(event.action)) {
        if (Agent(event.agent).IsServing()) {
            throw std::runtime_error("the agent is serving already; stop it first");
        }
        Agent(event.agent).Start();
    } else if (const auto *rate = std::get_if<ChangeTickRate>(&event.action)) {
        Agent(event.agent).SetTickRate(rate->tickRate);
    } else {
        const Clock clock = Now();
        fleet_.Apply(event, clock.scenario, clock.monotonic);
    }
}

void Simulation::ScheduleNextEvent()
{
    if (nextEvent_ >= scenario_.events.size()) {
        return;
    }
    const double wait = scenario_.events[nextEvent_].at / options_.speed - (MonotonicSeconds() - startedAt_);
    loop_.After(std::max(0.0, wait), [this] {
        const Event &event = scenario_.events[nextEvent_++];
        try {
            Apply(event);
        } catch (const std::runtime_error &error) {
            // The rest of the scenario still has its worth.
            (void)std::fprintf(stderr, "corvane-sim: %s: %s\n", event.path.c_str(), error.what());
        }
        ScheduleNextEvent();
    });
}

CJsonPtr Simulation::Status() const
{
    CJsonPtr status(cJSON_CreateObject());
    cJSON_AddBoolToObject(status.get(), "ok", 1);
    cJSON_AddNumberToObject(status.get(), "time", std::round(Now().scenario * 1000) / 1000);
    cJSON_AddNumberToObject(status.get(), "events_done", static_cast<double>(nextEvent_));
    cJSON *agents = cJSON_AddObjectToObject(status.get(), "agents");
    for (size_t i = 0; i < kAgentCount; i++) {
        if (agents_[i] != nullptr) {
            cJSON *agent = cJSON_AddObjectToObject(agents, std::string(kAgentNames[i]).c_str());
            cJSON_AddBoolToObject(agent, "serving", agents_[i]->IsServing() ? 1 : 0);
            cJSON_AddNumberToObject(agent, "requests", static_cast<double>(agents_[i]->Requests()));
        }
    }
    cJSON *disks = cJSON_AddArrayToObject(status.get(), "disks");
    for (const Fleet::Disk &disk : fleet_.Disks()) {
        cJSON *item = cJSON_CreateObject();
        cJSON_AddItemToArray(disks, item);
        cJSON_AddStringToObject(item, "device_name", disk.spec.deviceName.c_str());
        cJSON_AddStringToObject(item, "serial_number", disk.spec.serial.c_str());
        cJSON_AddBoolToObject(item, "present", disk.present ? 1 : 0);
        if (disk.spec.expect) {
            cJSON_AddRawToObject(item, "expect", disk.spec.expect->text.c_str());
        }
    }
    return status;
}

std::string Simulation::OnControlLine(const std::string &line)
{
    CJsonPtr answer(cJSON_CreateObject());
    try {
        const CJsonPtr tree = ParseJson(line);
        const cJSON *action = cJSON_GetObjectItemCaseSensitive(tree.get(), "do");
        if (cJSON_IsString(action) != 0 && std::string_view(action->valuestring) == "status") {
            return PrintJson(Status().get());
        }
        Apply(ReadEvent(JsonObject(tree.get(), "$"), fleet_.Specs(), EventSource::kControl));
        cJSON_AddBoolToObject(answer.get(), "ok", 1);
    } catch (const std::runtime_error &error) {
        cJSON_AddStringToObject(answer.get(), "error", error.what());
    }
    return PrintJson(answer.get());
}

void Simulation::ReportReady() const
{
    (void)std::puts("ready");
    (void)std::fflush(stdout);
    if (options_.readyFd >= 0) {
        constexpr std::string_view kReady = "ready\n";
        if (write(options_.readyFd, kReady.data(), kReady.size()) < 0) {
            std::perror("corvane-sim: --ready-fd");
        }
        close(options_.readyFd);
    }
}

void Simulation::Run()
{
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGTERM);
    sigaddset(&endSignals, SIGINT);
    const int signals = signalfd(-1, &endSignals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (signals < 0) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    loop_.Watch(signals, EPOLLIN, [this](uint32_t) { loop_.Stop(); });
    if (options_.duration) {
        loop_.After(*options_.duration, [this] { loop_.Stop(); });
    }
    ScheduleNextEvent();
    ReportReady();
    loop_.Run();
    close(signals);
}

} // namespace corvane_sim
