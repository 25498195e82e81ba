#include "json_answers.h"

#include <array>
#include <charconv>
#include <string_view>

#include "answer_text.h"

namespace {

using Words = std::vector<std::string>;

constexpr const char *kPrediction = "prediction";

/** Classes of disks in the settings, by the number that "change" takes. */
constexpr std::array<const char *, 4> kClasses = {"sata_ssd_disk", "sas_ssd_disk", "nvme_disk", "sas_hdd"};

void AddDiskId(cJSON *object, const Words &words)
{
    constexpr std::string_view key = "disk_id=";
    for (const std::string &word : words) {
        if (word.compare(0, key.size(), key) == 0) {
            AddOptional(object, "disk_id", NumberOf(std::string_view(word).substr(key.size())));
            return;
        }
    }
}

bool AddSummary(cJSON *object, const Words &, const std::string &text)
{
    const auto rows = ReadSummary(text);
    if (!rows) {
        return false;
    }
    cJSON *disks = cJSON_AddArrayToObject(object, "disks");
    for (const SummaryRow &row : *rows) {
        cJSON *disk = AddElement(disks);
        (void)cJSON_AddNumberToObject(disk, "disk_id", row.id);
        AddText(disk, "sn", row.serial);
    }
    return true;
}

bool AddSlowDisks(cJSON *object, const Words &, const std::string &text)
{
    const std::vector<std::string> lines = LinesOf(text);
    if (lines.size() < 2 || lines[0] != "SlowDiskInfo:") {
        return false;
    }
    // The columns stand where their heads stand; a serial number may hold blanks.
    const size_t slotAt = lines[1].find("Slot");
    const size_t stateAt = lines[1].find("State");
    if (slotAt == std::string::npos || stateAt == std::string::npos) {
        return false;
    }
    cJSON *disks = cJSON_AddArrayToObject(object, "disks");
    for (size_t i = 2; i < lines.size(); i++) {
        const std::string &line = lines[i];
        if (line.size() <= stateAt || line.find_first_not_of('-') == std::string::npos) {
            continue;
        }
        cJSON *disk = AddElement(disks);
        AddText(disk, "sn", Trimmed(line.substr(0, slotAt)));
        AddOptional(disk, "slot", NumberOf(Trimmed(line.substr(slotAt, stateAt - slotAt))));
        AddText(disk, "state", StateOf(Trimmed(line.substr(stateAt))));
    }
    return true;
}

bool AddDiskInfo(cJSON *object, const Words &words, const std::string &text)
{
    const auto disk = ReadDiskIdentity(text);
    if (!disk) {
        return false;
    }
    double capacity = 0;
    const char *end = disk->capacity.data() + disk->capacity.size();
    const auto [unit, failure] = std::from_chars(disk->capacity.data(), end, capacity);
    AddDiskId(object, words);
    AddText(object, "state", disk->state);
    if (failure == std::errc()) {
        (void)cJSON_AddNumberToObject(object, "capacity", capacity);
    } else {
        (void)cJSON_AddNullToObject(object, "capacity");
    }
    AddText(object, "capacity_unit", unit);
    AddOptional(object, "sector_size", disk->sectorSize);
    AddText(object, "vendor", disk->vendor);
    AddText(object, "model", disk->model);
    AddText(object, "firmware", disk->firmware);
    AddText(object, "sn", disk->serial);
    AddText(object, "device", disk->device);
    AddText(object, "pci_address", disk->pciAddress);
    AddText(object, "type", disk->type);
    AddOptional(object, "slot", disk->slot);
    return true;
}

bool AddIoStat(cJSON *object, const Words &words, const std::string &text)
{
    const auto fields = FieldsOf(text);
    if (fields.count("ReadIops") == 0) {
        return false;
    }
    struct Row {
        const char *key;
        const char *label;
        const char *unit;
    };
    constexpr std::array<Row, 9> rows{{
        {"read_iops", "ReadIops", ""},
        {"write_iops", "WriteIops", ""},
        {"read_kb_per_s", "ReadIoBand", "kb/s"},
        {"write_kb_per_s", "WriteIoBand", "kb/s"},
        {"read_delay_us", "ReadIoDelay", "us"},
        {"write_delay_us", "WriteIoDelay", "us"},
        {"queue_depth", "QueueDepth", ""},
        {"io_busy", "ioBusyNum", ""},
        {"service_time_us", "svctm", ""},
    }};
    AddDiskId(object, words);
    for (const Row &row : rows) {
        AddOptional(object, row.key, NumberOf(FieldOf(fields, row.label), row.unit));
    }
    AddOptional(object, "utilization_percent", PercentOf(FieldOf(fields, "utilization")));
    return true;
}

bool AddSmart(cJSON *object, const Words &words, const std::string &text)
{
    const auto fields = FieldsOf(text);
    if (fields.count("PowerOnlineTime") == 0) {
        return false;
    }
    AddDiskId(object, words);
    AddOptional(object, "power_on_hours", NumberOf(FieldOf(fields, "PowerOnlineTime"), "h"));
    AddOptional(object, "wear_percent", PercentOf(FieldOf(fields, "Degree of wear")));
    return true;
}

bool AddVerdict(cJSON *object, const Words &words, const std::string &text)
{
    const auto verdict = ReadDiskVerdict(text);
    if (!verdict) {
        return false;
    }
    AddDiskId(object, words);
    AddText(object, kPrediction, verdict->prediction);
    AddOptional(object, "score", verdict->score);
    AddOptional(object, "life_months", verdict->lifeMonths);
    AddText(object, "state", verdict->state);
    AddText(object, "suggestion", verdict->suggestion);
    return true;
}

bool AddSwitches(cJSON *object, const Words &, const std::string &text)
{
    const auto fields = FieldsOf(text);
    for (const char *key : {"feature_switch", "takeover_disk_switch"}) {
        const std::string value = FieldOf(fields, key);
        if (value.empty()) {
            return false;
        }
        if (value == "on" || value == "off") {
            (void)cJSON_AddBoolToObject(object, key, value == "on");
        } else {
            (void)cJSON_AddNullToObject(object, key);
        }
    }
    return true;
}

/** A line for each class: "CLASS : KEY=NUMBER KEY=NUMBER". */
bool AddClasses(cJSON *object, const Words &, const std::string &text)
{
    const auto fields = FieldsOf(text);
    for (size_t type = 0; type < kClasses.size(); type++) {
        const std::string values = FieldOf(fields, kClasses[type]);
        if (values.empty()) {
            return false;
        }
        cJSON *section = cJSON_AddObjectToObject(object, kClasses[type]);
        (void)cJSON_AddNumberToObject(section, "disk_type", static_cast<double>(type));
        for (const std::string &pair : WordsOf(values)) {
            const size_t equals = pair.find('=');
            if (equals == std::string::npos) {
                return false;
            }
            AddOptional(section, pair.substr(0, equals).c_str(), NumberOf(std::string_view(pair).substr(equals + 1)));
        }
    }
    return true;
}

bool AddLifeCycle(cJSON *object, const Words &, const std::string &text)
{
    const auto cycle = NumberOf(FieldOf(FieldsOf(text), "task_cycle"));
    AddOptional(object, "task_cycle", cycle);
    return cycle.has_value();
}

struct Form {
    std::string_view command;
    bool (*add)(cJSON *object, const Words &words, const std::string &text);
};

constexpr std::array<Form, 10> kForms{{
    {"summary", AddSummary},
    {"slowdisk", AddSlowDisks},
    {"disk_info", AddDiskInfo},
    {"iostat_info", AddIoStat},
    {"smart_info", AddSmart},
    {"drm_info", AddVerdict},
    {"config", AddSwitches},
    {"slowdisk_detect_config", AddClasses},
    {"dpr_smart", AddClasses},
    {"disklife_prediction", AddLifeCycle},
}};

const Form *FormOf(const Words &words)
{
    if (words.size() < 2 || words[0] != "show") {
        return nullptr;
    }
    for (const Form &form : kForms) {
        if (words[1] == form.command) {
            return &form;
        }
    }
    return nullptr;
}

} // namespace

bool HasJsonForm(const Words &words)
{
    return FormOf(words) != nullptr;
}

CJsonPtr JsonOf(const Words &words, const std::string &text)
{
    CJsonPtr object(cJSON_CreateObject());
    const Form *form = FormOf(words);
    return form != nullptr && form->add(object.get(), words, text) ? std::move(object) : nullptr;
}

bool TellsPending(const cJSON *answer)
{
    const char *prediction = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(answer, kPrediction));
    return prediction != nullptr && std::string_view(prediction) == "pending";
}

void TellNoPrediction(cJSON *answer)
{
    (void)cJSON_ReplaceItemInObjectCaseSensitive(answer, kPrediction, cJSON_CreateString("none"));
}

void AddOptional(cJSON *object, const char *key, const std::optional<uint64_t> &value)
{
    if (value) {
        // Not as a number of the tree: that is a double, which has no room for all digits above 2^53.
        (void)cJSON_AddRawToObject(object, key, std::to_string(*value).c_str());
    } else {
        (void)cJSON_AddNullToObject(object, key);
    }
}

void AddOptional(cJSON *object, const char *key, const std::optional<double> &value)
{
    if (value) {
        (void)cJSON_AddNumberToObject(object, key, *value);
    } else {
        (void)cJSON_AddNullToObject(object, key);
    }
}

void AddText(cJSON *object, const char *key, const std::string &text)
{
    if (text.empty()) {
        (void)cJSON_AddNullToObject(object, key);
    } else {
        (void)cJSON_AddStringToObject(object, key, text.c_str());
    }
}

cJSON *AddElement(cJSON *array)
{
    CJsonPtr element(cJSON_CreateObject());
    return cJSON_AddItemToArray(array, element.get()) != 0 ? element.release() : nullptr;
}

std::string PrintedOnALine(const cJSON *tree)
{
    const CJsonText text(cJSON_PrintUnformatted(tree));
    return text != nullptr ? text.get() + std::string("\n") : "";
}

std::string Printed(const cJSON *tree)
{
    const CJsonText text(cJSON_Print(tree));
    return text != nullptr ? text.get() + std::string("\n") : "";
}
