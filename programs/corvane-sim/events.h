// Events: what happens to disks and agents, by the scenario's clock or on demand over the control socket.
#pragma once

#include "disk_model.h"
#include "misbehaviour.h"

#include <string>
#include <variant>
#include <vector>

namespace corvane_sim {

struct PullDisk {};
struct PlugDisk {
    std::string deviceName; // empty: the name it had
};
struct ChangeHealth {
    HealthPatch patch;
};
struct ChangeSmart {
    SmartAttribute attribute;
};
struct ChangeIo {
    IoPatch patch;
};
struct ChangeBase {
    BasePatch patch;
};
struct Misbehave {
    Misbehaviour misbehaviour;
};
struct Behave {
    std::string method; // empty: all methods
};
struct StopAgent {
    bool keepFile = false;
};
struct StartAgent {};
struct ChangeTickRate {
    uint64_t tickRate = 0;
};

struct Event {
    double at = 0; // seconds of scenario time
    std::string path;
    size_t disk = 0;                      // for the first six
    AgentKind agent = AgentKind::kKernel; // for the others
    std::variant<PullDisk, PlugDisk, ChangeHealth, ChangeSmart, ChangeIo, ChangeBase, Misbehave, Behave, StopAgent,
                 StartAgent, ChangeTickRate>
        action;
};

enum class EventSource : uint8_t { kScenario, kControl };

/** Read one event; disks are known by device name or serial number. Only a scenario's events have a time. */
Event ReadEvent(JsonObject object, const std::vector<DiskSpec> &disks, EventSource source);

} // namespace corvane_sim
