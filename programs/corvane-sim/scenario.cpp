#include "scenario.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

namespace corvane_sim {
namespace {

void ReadDisks(JsonObject &root, Scenario &scenario)
{
    const auto list = root.OptionalArray("disks", kMaxDisks);
    if (!list) {
        root.Fail("disks", "is missing; add the list of disks, which may be empty");
    }
    // Serial numbers tell disks apart, device names address them: neither may repeat.
    std::map<std::string, std::string> seen;
    for (size_t i = 0; i < list->size(); i++) {
        const std::string path = root.PathOf("disks") + "[" + std::to_string(i) + "]";
        DiskSpec disk = ReadDisk(JsonObject((*list)[i], path));
        for (const auto &[member, value] : {std::pair{"device_name", disk.deviceName},
                                            {"serial_number", disk.serial},
                                            {"pci_address", disk.pciAddress}}) {
            if (value.empty()) {
                continue;
            }
            const auto [first, isNew] = seen.emplace(std::string(member) + " " + value, path);
            if (!isNew) {
                throw JsonError(path + "." + member,
                                "\"" + value + "\" is that of " + first->second + " already; give each disk its own");
            }
        }
        scenario.disks.push_back(std::move(disk));
    }
}

void ReadAgents(JsonObject &root, Scenario &scenario)
{
    auto agents = root.OptionalObject("agents");
    if (!agents) {
        return;
    }
    for (size_t i = 0; i < kAgentCount; i++) {
        if (auto agent = agents->OptionalObject(kAgentNames[i])) {
            scenario.tickRate[i] =
                agent->OptionalInteger("tick_rate", 0, uint64_t{1} << 53U).value_or(scenario.tickRate[i]);
            agent->Finish();
        }
    }
    agents->Finish();
}

// A pull of what is out, or a plug of what is in, shows that the author lost count.
void CheckTimeline(const Scenario &scenario)
{
    std::vector<bool> present;
    for (const DiskSpec &disk : scenario.disks) {
        present.push_back(disk.present);
    }
    for (const Event &event : scenario.events) {
        const bool plugs = std::holds_alternative<PlugDisk>(event.action);
        if ((!plugs && !std::holds_alternative<PullDisk>(event.action)) || scenario.disks[event.disk].awaitsRebind) {
            continue;
        }
        if (present[event.disk] == plugs) {
            throw JsonError(event.path, std::string("the disk is ") + (plugs ? "plugged" : "out") +
                                            " at this time already; remove the event or correct \"at\"");
        }
        present[event.disk] = plugs;
    }
}

} // namespace

Scenario ReadScenario(std::string_view text)
{
    const CJsonPtr tree = ParseJson(text);
    JsonObject root(tree.get(), "$");
    Scenario scenario;
    scenario.name = root.OptionalText("name", 0, 200).value_or("");
    ReadDisks(root, scenario);
    ReadAgents(root, scenario);
    if (const auto list = root.OptionalArray("events", 100000)) {
        for (size_t i = 0; i < list->size(); i++) {
            scenario.events.push_back(ReadEvent(JsonObject((*list)[i], "$.events[" + std::to_string(i) + "]"),
                                                scenario.disks, EventSource::kScenario));
        }
    }
    root.Finish();
    std::stable_sort(scenario.events.begin(), scenario.events.end(),
                     [](const Event &a, const Event &b) { return a.at < b.at; });
    CheckTimeline(scenario);
    return scenario;
}

Scenario LoadScenario(const std::string &file)
{
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    // An empty file leaves the target stream in a failed state, without being a failure to read.
    if (!stream || (stream.peek() != std::ifstream::traits_type::eof() && !(text << stream.rdbuf())) || stream.bad()) {
        throw std::runtime_error(file + ": cannot be read: " + std::strerror(errno) +
                                 "; check the path and its permissions");
    }
    try {
        return ReadScenario(text.str());
    } catch (const JsonError &error) {
        throw std::runtime_error(file + ": " + error.what());
    }
}

} // namespace corvane_sim
