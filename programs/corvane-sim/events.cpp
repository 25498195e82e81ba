#include "events.h"

#include <algorithm>

namespace corvane_sim {
namespace {

const std::vector<std::string_view> kActions = {"pull",      "plug",   "health", "smart", "io",       "base",
                                                "misbehave", "behave", "stop",   "start", "tick_rate"};

size_t ReadDiskReference(JsonObject &object, const std::vector<DiskSpec> &disks)
{
    const std::string name = object.Text("disk", 1, kMaxSerial);
    const auto found = std::find_if(disks.begin(), disks.end(), [&name](const DiskSpec &disk) {
        return disk.deviceName == name || disk.serial == name;
    });
    if (found == disks.end()) {
        object.Fail("disk",
                    "\"" + name +
                        "\" is neither a device_name nor a serial_number of the disks; correct it or add the disk");
    }
    return static_cast<size_t>(found - disks.begin());
}

JsonObject ReadSet(JsonObject &object)
{
    auto set = object.OptionalObject("set");
    if (!set) {
        object.Fail("set", "is missing; add an object with the members that change");
    }
    return *set;
}

} // namespace

Event ReadEvent(JsonObject object, const std::vector<DiskSpec> &disks, EventSource source)
{
    Event event;
    event.path = object.Path();
    const size_t action = object.Choice("do", kActions);
    if (source == EventSource::kScenario) {
        event.at = object.Number("at", 0, 1e9);
    } else if (object.Has("at")) {
        object.Fail("at", "an event of the control socket happens at once; remove \"at\"");
    }
    if (action < 6) {
        event.disk = ReadDiskReference(object, disks);
    } else {
        event.agent = static_cast<AgentKind>(object.Choice("agent", kAgentNames));
    }
    switch (action) {
    case 0:
        event.action = PullDisk{};
        break;
    case 1: {
        PlugDisk plug{object.OptionalText("device_name", 1, kMaxDeviceName).value_or("")};
        for (size_t i = 0; i < disks.size(); i++) {
            if (i != event.disk && disks[i].deviceName == plug.deviceName) {
                object.Fail("device_name",
                            "\"" + plug.deviceName + "\" is the name of another disk; choose a free one");
            }
        }
        event.action = plug;
        break;
    }
    case 2: {
        const DiskSpec &disk = disks[event.disk];
        event.action = ChangeHealth{ReadHealthPatch(ReadSet(object), HealthClassOf(disk.type, disk.vendor))};
        break;
    }
    case 3: {
        if (disks[event.disk].type != DiskType::kSataSsd) {
            object.Fail("disk", "is no SSD_SATA; only those report SMART attributes");
        }
        SmartAttribute &attribute = event.action.emplace<ChangeSmart>().attribute;
        attribute.id = static_cast<uint8_t>(object.Integer("id", 1, 255));
        attribute.threshold = static_cast<uint8_t>(object.Integer("threshold", 0, 255));
        attribute.currentValue = static_cast<uint8_t>(object.Integer("current_value", 0, 255));
        attribute.worst =
            static_cast<uint8_t>(object.OptionalInteger("worst", 0, 255).value_or(attribute.currentValue));
        break;
    }
    case 4:
        event.action = ChangeIo{ReadIoPatch(ReadSet(object))};
        break;
    case 5:
        event.action = ChangeBase{ReadBasePatch(ReadSet(object))};
        break;
    case 6:
        event.action = Misbehave{ReadMisbehaviour(object)};
        break;
    case 7:
        event.action = Behave{object.OptionalText("method", 1, 64).value_or("")};
        break;
    case 8:
        event.action = StopAgent{object.OptionalBool("keep_file").value_or(false)};
        break;
    case 9:
        event.action = StartAgent{};
        break;
    default:
        event.action = ChangeTickRate{object.Integer("value", 0, uint64_t{1} << 53U)};
        break;
    }
    object.Finish();
    return event;
}

} // namespace corvane_sim
