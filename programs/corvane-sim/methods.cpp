#include "methods.h"

#include <cmath>
#include <functional>
#include <map>

namespace corvane_sim {
namespace {

struct Context {
    AgentKind kind;
    AgentState &state;
    Fleet &fleet;
    const Request &request;
    const Clock &clock;
};

CJsonPtr Object()
{
    return CJsonPtr(cJSON_CreateObject());
}

CJsonPtr ListResult(CJsonPtr list)
{
    CJsonPtr result = Object();
    cJSON_AddItemToObject(result.get(), "disks", list.release());
    return result;
}

CJsonPtr NoDisks()
{
    return ListResult(CJsonPtr(cJSON_CreateArray()));
}

CJsonPtr TextResult(const char *text)
{
    CJsonPtr result = Object();
    cJSON_AddStringToObject(result.get(), "result", text);
    return result;
}

void AddDecimal(cJSON *object, const char *name, uint64_t value)
{
    cJSON_AddStringToObject(object, name, std::to_string(value).c_str());
}

const cJSON *Params(const Request &request)
{
    return cJSON_GetObjectItemCaseSensitive(request.tree, "params");
}

const cJSON *Devices(const Request &request)
{
    return cJSON_GetObjectItemCaseSensitive(Params(request), "devices");
}

CJsonPtr Brief(const Context &context)
{
    CJsonPtr list(cJSON_CreateArray());
    for (const Fleet::Disk &disk : context.fleet.Disks()) {
        if (disk.present && disk.spec.agent == context.kind) {
            cJSON *item = cJSON_CreateObject();
            cJSON_AddItemToArray(list.get(), item);
            cJSON_AddStringToObject(item, "device_name", disk.spec.deviceName.c_str());
            cJSON_AddStringToObject(item, "serial_number", disk.spec.serial.c_str());
        }
    }
    return ListResult(std::move(list));
}

// One object for each named device. The kernel agent gives no disk at all when one of base or health is unknown.
CJsonPtr ForDevices(const Context &context, bool skipUnknown,
                    const std::function<void(cJSON *item, const Fleet::Disk &disk)> &fill)
{
    CJsonPtr list(cJSON_CreateArray());
    const cJSON *name = nullptr;
    cJSON_ArrayForEach(name, Devices(context.request))
    {
        const Fleet::Disk *disk =
            cJSON_IsString(name) != 0 ? context.fleet.Find(context.kind, name->valuestring) : nullptr;
        if (disk != nullptr) {
            cJSON *item = cJSON_CreateObject();
            cJSON_AddItemToArray(list.get(), item);
            fill(item, *disk);
        } else if (!skipUnknown) {
            return NoDisks();
        }
    }
    return ListResult(std::move(list));
}

CJsonPtr Base(const Context &context)
{
    return ForDevices(context, context.kind == AgentKind::kSpdk, [](cJSON *item, const Fleet::Disk &disk) {
        const DiskSpec &spec = disk.spec;
        cJSON_AddStringToObject(item, "device_name", spec.deviceName.c_str());
        cJSON_AddStringToObject(item, "serial_number", spec.serial.c_str());
        cJSON_AddStringToObject(item, "firmware_revision", spec.firmware.c_str());
        AddDecimal(item, "disk_capacity", spec.capacity);
        cJSON_AddStringToObject(item, "vendor_id", spec.vendor.c_str());
        cJSON_AddStringToObject(item, "disk_type", std::string(kDiskTypeNames[static_cast<size_t>(spec.type)]).c_str());
        cJSON_AddStringToObject(item, "model_number", spec.model.c_str());
        cJSON_AddNumberToObject(item, "sector_size", spec.sectorSize);
        cJSON_AddStringToObject(item, "disk_media_type", spec.mediaType.c_str());
        if (spec.type == DiskType::kNvme) {
            cJSON_AddStringToObject(item, "pci_address", spec.pciAddress.c_str());
        }
    });
}

void AddSmartList(cJSON *item, AgentKind kind, std::vector<SmartAttribute> attributes)
{
    attributes.resize(kSmartEntries);
    // The two agents spell it differently; receivers do not look at the case.
    cJSON *list = cJSON_AddArrayToObject(item, kind == AgentKind::kKernel ? "smart_list" : "SMART_list");
    for (const SmartAttribute &attribute : attributes) {
        cJSON *entry = cJSON_CreateObject();
        cJSON_AddItemToArray(list, entry);
        cJSON_AddNumberToObject(entry, "id", attribute.id);
        cJSON_AddNumberToObject(entry, "threshold", attribute.threshold);
        cJSON_AddNumberToObject(entry, "current_value", attribute.currentValue);
        cJSON_AddNumberToObject(entry, "worst", attribute.worst);
    }
}

CJsonPtr HealthInfo(const Context &context)
{
    return ForDevices(context, context.kind == AgentKind::kSpdk, [&context](cJSON *item, const Fleet::Disk &disk) {
        const DiskSpec &spec = disk.spec;
        const Health &health = spec.health;
        cJSON_AddStringToObject(item, "serial_number", spec.serial.c_str());
        cJSON_AddNumberToObject(item, "power_on_hours", static_cast<double>(health.powerOnHours));
        cJSON_AddNumberToObject(item, "wear", Fleet::WearAt(disk, context.clock.scenario));
        cJSON_AddStringToObject(item, "disk_type", std::string(kDiskTypeNames[static_cast<size_t>(spec.type)]).c_str());
        cJSON_AddStringToObject(item, "vendor_id", spec.vendor.c_str());
        switch (HealthClassOf(spec.type, spec.vendor)) {
        case HealthClass::kCriticalWarning:
            cJSON_AddNumberToObject(item, "critical_warning", health.criticalWarning);
            break;
        case HealthClass::kSmartList:
            AddSmartList(item, context.kind, health.smart);
            break;
        case HealthClass::kCapacitance:
            cJSON_AddNumberToObject(item, "capacitance_id", health.capacitanceId);
            cJSON_AddNumberToObject(item, "capacitance_status", health.capacitanceStatus);
            break;
        case HealthClass::kSenseWithIeLog:
            cJSON_AddBoolToObject(item, "is_support_ie_log", health.isSupportIeLog ? 1 : 0);
            [[fallthrough]];
        case HealthClass::kSense:
            cJSON_AddNumberToObject(item, "ASC", health.asc);
            cJSON_AddNumberToObject(item, "ASCQ", health.ascq);
            break;
        }
    });
}

CJsonPtr IoStat(const Context &context)
{
    const auto tickRate = static_cast<double>(context.state.tickRate);
    // Counters of the moment that the ticks tell, so that rates come out as the profile says even with a coarse clock.
    const double ticks = std::floor(context.clock.monotonic * tickRate);
    const double moment = tickRate > 0 ? ticks / tickRate : context.clock.monotonic;
    CJsonPtr list = ForDevices(context, true, [&](cJSON *item, const Fleet::Disk &disk) {
        const CounterValues values = disk.counters.At(moment);
        const auto latency = [tickRate](double us) { return static_cast<uint64_t>(us * tickRate / 1e6); };
        cJSON_AddStringToObject(item, "serial_number", disk.spec.serial.c_str());
        cJSON_AddNumberToObject(item, "io_busy_num", values.pendingOps);
        cJSON_AddNumberToObject(item, "queue_depth", disk.spec.io.queueDepth);
        AddDecimal(item, "bytes_read", values.bytesRead);
        AddDecimal(item, "num_read_ops", values.readOps);
        AddDecimal(item, "bytes_written", values.bytesWritten);
        AddDecimal(item, "num_write_ops", values.writeOps);
        AddDecimal(item, "read_latency_ticks", latency(values.readLatencyUs));
        AddDecimal(item, "write_latency_ticks", latency(values.writeLatencyUs));
        AddDecimal(item, "io_time", values.ioTimeUs);
    });
    CJsonPtr result = Object();
    AddDecimal(result.get(), "tick_rate", context.state.tickRate);
    AddDecimal(result.get(), "ticks", static_cast<uint64_t>(ticks));
    cJSON_AddItemToObject(result.get(), "disks", cJSON_DetachItemFromObjectCaseSensitive(list.get(), "disks"));
    return result;
}

// Slots are chassis knowledge of the kernel agent, for the NVMe disks of the other agent too. One unknown disk, or one
// without a slot, empties the answer.
CJsonPtr SlotIds(const Context &context)
{
    CJsonPtr list(cJSON_CreateArray());
    const cJSON *device = nullptr;
    cJSON_ArrayForEach(device, Devices(context.request))
    {
        const cJSON *name = cJSON_GetObjectItemCaseSensitive(device, "device_name");
        const cJSON *address = cJSON_GetObjectItemCaseSensitive(device, "pci_address");
        const DiskSpec *found = nullptr;
        for (const Fleet::Disk &disk : context.fleet.Disks()) {
            if (cJSON_IsString(name) != 0 && cJSON_IsString(address) != 0 && disk.present &&
                !disk.spec.pciAddress.empty() && disk.spec.pciAddress == address->valuestring && disk.spec.slotId) {
                found = &disk.spec;
            }
        }
        if (found == nullptr) {
            return NoDisks();
        }
        cJSON *item = cJSON_CreateObject();
        cJSON_AddItemToArray(list.get(), item);
        cJSON_AddStringToObject(item, "device_name", name->valuestring);
        cJSON_AddNumberToObject(item, "slot_id", *found->slotId);
    }
    return ListResult(std::move(list));
}

CJsonPtr Rebind(const Context &context)
{
    const cJSON *address = cJSON_GetObjectItemCaseSensitive(Params(context.request), "pci_address");
    if (cJSON_IsString(address) != 0) {
        context.fleet.Rebind(address->valuestring, context.clock.monotonic);
    }
    return CJsonPtr(cJSON_CreateTrue());
}

CJsonPtr Accept(const Context &)
{
    return CJsonPtr(cJSON_CreateTrue());
}

using Handler = CJsonPtr (*)(const Context &);

const std::map<std::string, Handler> &HandlersOf(AgentKind kind)
{
    static const std::map<std::string, Handler> kernel = {
        {"dca_get_disks_brief_info", Brief},       {"dca_get_disks_base_info", Base},
        {"dca_get_disks_health_info", HealthInfo}, {"dca_get_disks_iostat", IoStat},
        {"dca_get_disks_slotid", SlotIds},
    };
    // The data agent's methods come to the same socket.
    static const std::map<std::string, Handler> spdk = {
        {"dca_get_disks_brief_info", Brief},
        {"dca_get_disks_base_info", Base},
        {"dca_get_disks_health_info", HealthInfo},
        {"dca_get_disks_iostat", IoStat},
        {"dca_rebind_nvme2uio", Rebind},
        {"dma_set_disk_info_inner", Accept},
        {"dma_set_disk_state", Accept},
        {"dma_set_disk_handle_strategy", Accept},
        {"dma_poweroff_disk", Accept},
    };
    return kind == AgentKind::kKernel ? kernel : spdk;
}

CJsonPtr Result(const Context &context)
{
    const std::string &method = context.request.method;
    if (!context.request.hasMethod) {
        return NoDisks();
    }
    if (context.kind == AgentKind::kKernel) {
        AgentState &state = context.state;
        if (method == "dcak_link_status_switch") {
            state.linkError = !state.linkError;
            return TextResult("link stat change");
        }
        if (state.linkError) {
            return TextResult("link err");
        }
        if (method == "debug_switch") {
            state.debug = !state.debug;
            return TextResult("debug stat change");
        }
    }
    const auto &handlers = HandlersOf(context.kind);
    const auto handler = handlers.find(method);
    return handler != handlers.end() ? handler->second(context) : TextResult("sokect ok");
}

} // namespace

Request Request::From(const cJSON *tree)
{
    Request request;
    request.tree = tree;
    const cJSON *method = cJSON_GetObjectItemCaseSensitive(tree, "method");
    const cJSON *id = cJSON_GetObjectItemCaseSensitive(tree, "id");
    request.hasMethod = cJSON_IsString(method) != 0;
    request.method = cJSON_IsString(method) != 0 ? method->valuestring : "";
    request.id = cJSON_IsNumber(id) != 0 ? id->valuedouble : 0;
    request.asked = static_cast<size_t>(cJSON_GetArraySize(Devices(request)));
    return request;
}

CJsonPtr Answer(AgentKind kind, AgentState &state, Fleet &fleet, const Request &request, const Clock &clock)
{
    CJsonPtr answer = Object();
    cJSON_AddStringToObject(answer.get(), "jsonrpc", "2.0");
    cJSON_AddNumberToObject(answer.get(), "id", request.id);
    CJsonPtr result = Result(Context{kind, state, fleet, request, clock});
    cJSON_AddItemToObject(answer.get(), "result", result.release());
    return answer;
}

} // namespace corvane_sim
