#include "views.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <utility>

#include "json_answers.h"

namespace {

/** In the order in which a watch counts and sorts them; an unknown state comes first. */
constexpr std::array<std::string_view, 5> kStates = {"fault", "prefail", "slow", "offline", "normal"};

size_t RankOf(const std::string &state)
{
    const auto at = std::find(kStates.begin(), kStates.end(), state);
    return at != kStates.end() ? static_cast<size_t>(at - kStates.begin()) + 1 : 0;
}

Cell Text(const Disk &disk, const std::string &text)
{
    // Every disk has a type: without one nothing is known of it.
    return {!text.empty() ? text : disk.identity.type.empty() ? "?" : "-", Colour::NONE};
}

Cell State(const Disk &disk)
{
    const std::string &state = disk.verdict.state;
    const Colour colour = state == "fault"                        ? Colour::RED
                          : state == "prefail" || state == "slow" ? Colour::YELLOW
                          : state == "offline"                    ? Colour::GREY
                                                                  : Colour::NONE;
    return {state.empty() ? "?" : state, colour};
}

Cell Suggestion(const Disk &disk)
{
    if (disk.verdict.prediction.empty()) { // there is no verdict
        return {"?", Colour::NONE, true};
    }
    return {disk.verdict.suggestion, State(disk).colour, disk.verdict.state == "normal"};
}

Cell Predicted(const Disk &disk, const std::string &text)
{
    return {disk.verdict.prediction == "done" ? text : disk.verdict.prediction == "none" ? "-" : "?", Colour::NONE};
}

Cell Score(const Disk &disk)
{
    return Predicted(disk, std::to_string(disk.verdict.score.value_or(0)));
}

Cell Life(const Disk &disk)
{
    const uint64_t months = disk.verdict.lifeMonths.value_or(0);
    return Predicted(disk, months == 0 ? "<1" : months > 60 ? ">60" : std::to_string(months));
}

Cell Utilization(const Disk &disk)
{
    if (!disk.utilization) {
        return {"?", Colour::NONE};
    }
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "%.2f%%", *disk.utilization);
    return {text.data(), Colour::NONE};
}

void AddId(cJSON *object, const Disk &disk)
{
    (void)cJSON_AddNumberToObject(object, "disk_id", disk.id);
    AddText(object, "device", disk.identity.device);
    AddText(object, "type", disk.identity.type);
}

void AddVerdict(cJSON *object, const Disk &disk)
{
    (void)cJSON_AddBoolToObject(object, "watched", static_cast<cJSON_bool>(disk.watched));
    AddText(object, "state", disk.verdict.state);
    AddText(object, "prediction", disk.verdict.prediction);
    AddOptional(object, "score", disk.verdict.score);
    AddOptional(object, "life_months", disk.verdict.lifeMonths);
}

} // namespace

std::vector<std::string> ListTable(const std::vector<Disk> &disks, const Page &page)
{
    static const std::vector<Column> columns = {{"ID", true, false, false},      {"DEVICE", false, false, false},
                                                {"TYPE", false, false, false},   {"SLOT", true, false, false},
                                                {"MODEL", false, true, false},   {"SERIAL", false, false, false},
                                                {"STATE", false, false, false},  {"SCORE", true, false, false},
                                                {"LIFE mo", true, false, false}, {"SUGGESTION", false, false, true}};
    std::vector<std::vector<Cell>> rows;
    rows.reserve(disks.size());
    for (const Disk &disk : disks) {
        const DiskIdentity &identity = disk.identity;
        rows.push_back({{std::to_string(disk.id), Colour::NONE},
                        Text(disk, identity.device),
                        Text(disk, identity.type),
                        Text(disk, identity.slot ? std::to_string(*identity.slot) : ""),
                        Text(disk, identity.model),
                        Text(disk, identity.serial),
                        State(disk),
                        Score(disk),
                        Life(disk),
                        Suggestion(disk)});
    }
    return LayOut(columns, rows, page);
}

CJsonPtr ListJson(const std::vector<Disk> &disks)
{
    CJsonPtr root(cJSON_CreateObject());
    cJSON *array = cJSON_AddArrayToObject(root.get(), "disks");
    for (const Disk &disk : disks) {
        cJSON *object = AddElement(array);
        AddId(object, disk);
        AddOptional(object, "slot", disk.identity.slot);
        AddText(object, "model", disk.identity.model);
        AddText(object, "sn", disk.identity.serial);
        AddVerdict(object, disk);
        AddText(object, "suggestion", disk.verdict.suggestion);
    }
    return root;
}

std::vector<std::string> WatchTable(const std::vector<Disk> &disks, const Page &page)
{
    // The last column has room for all of a hundred percent: the table must not jump. Serial numbers of one batch
    // differ in their last digits.
    static const std::vector<Column> columns = {{"ID", true, false, false},      {"DEVICE", false, false, false},
                                                {"TYPE", false, true, false},    {"SERIAL", false, true, false, true},
                                                {"STATE", false, false, false},  {"SCORE", true, false, false},
                                                {"LIFE mo", true, false, false}, {"   UTIL", true, false, false}};
    std::vector<std::vector<Cell>> rows;
    rows.reserve(disks.size());
    for (const Disk &disk : disks) {
        rows.push_back({{std::to_string(disk.id), Colour::NONE},
                        Text(disk, disk.identity.device),
                        Text(disk, disk.identity.type),
                        Text(disk, disk.identity.serial),
                        State(disk),
                        Score(disk),
                        Life(disk),
                        Utilization(disk)});
    }
    return LayOut(columns, rows, page);
}

CJsonPtr WatchJson(const std::vector<Disk> &disks, const std::string &time)
{
    CJsonPtr root(cJSON_CreateObject());
    AddText(root.get(), "time", time);
    cJSON *array = cJSON_AddArrayToObject(root.get(), "disks");
    for (const Disk &disk : disks) {
        cJSON *object = AddElement(array);
        AddId(object, disk);
        AddText(object, "sn", disk.identity.serial);
        AddVerdict(object, disk);
        AddOptional(object, "utilization_percent", disk.utilization);
    }
    return root;
}

std::string Counts(const std::vector<Disk> &disks)
{
    std::string text = std::to_string(disks.size()) + (disks.size() == 1 ? " disk" : " disks");
    const char *separator = ": ";
    for (auto state = kStates.rbegin(); state != kStates.rend(); ++state) {
        const auto count =
            std::count_if(disks.begin(), disks.end(), [&](const Disk &disk) { return disk.verdict.state == *state; });
        if (count > 0) {
            text += separator + std::to_string(count) + " " + std::string(*state);
            separator = ", ";
        }
    }
    return text;
}

std::string TableNote(const std::vector<Disk> &disks)
{
    if (disks.empty()) {
        return "No disk: feature_switch is off (corvanectl show config) or no agent reports one";
    }
    const auto count = std::count_if(disks.begin(), disks.end(), [](const Disk &disk) { return !disk.watched; });
    if (count == 0) {
        return "";
    }
    return std::to_string(count) + (count == 1 ? " disk is" : " disks are") +
           " not watched: identifiers above 63 get no records, no verdict";
}

void SortByTrouble(std::vector<Disk> &disks)
{
    const auto rank = [](const Disk &disk) {
        return std::pair(RankOf(disk.watched ? disk.verdict.state : "normal"), disk.watched);
    };
    std::stable_sort(disks.begin(), disks.end(), [&](const Disk &a, const Disk &b) { return rank(a) < rank(b); });
}
