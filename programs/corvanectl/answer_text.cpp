#include "answer_text.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr uint64_t kLifeAbove = 61;

} // namespace

std::string Trimmed(std::string_view text)
{
    const size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) {
        return "";
    }
    return std::string(text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1));
}

std::vector<std::string> LinesOf(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        if (!Trimmed(line).empty()) {
            lines.emplace_back(line);
        }
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

std::vector<std::string> WordsOf(std::string_view line)
{
    std::vector<std::string> words;
    for (size_t at = line.find_first_not_of(kBlanks); at != std::string_view::npos;) {
        const size_t end = std::min(line.find_first_of(kBlanks, at), line.size());
        words.emplace_back(line.substr(at, end - at));
        at = line.find_first_not_of(kBlanks, end);
    }
    return words;
}

std::map<std::string, std::string> FieldsOf(std::string_view text)
{
    std::map<std::string, std::string> fields;
    for (const std::string &line : LinesOf(text)) {
        const size_t colon = line.find(": ");
        if (colon != std::string::npos) {
            const std::string_view whole = line;
            fields.emplace(Trimmed(whole.substr(0, colon)), Trimmed(whole.substr(colon + 2)));
        }
    }
    return fields;
}

std::string FieldOf(const std::map<std::string, std::string> &fields, const std::string &label)
{
    const auto field = fields.find(label);
    return field != fields.end() ? field->second : "";
}

std::optional<uint64_t> NumberOf(std::string_view text, std::string_view unit)
{
    uint64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [rest, failure] = std::from_chars(text.data(), end, number);
    if (failure != std::errc() || std::string_view(rest, static_cast<size_t>(end - rest)) != unit) {
        return std::nullopt;
    }
    return number;
}

std::optional<double> PercentOf(std::string_view text)
{
    const size_t dot = text.find('.');
    if (dot == std::string_view::npos) {
        return std::nullopt;
    }
    const auto whole = NumberOf(text.substr(0, dot));
    const auto hundredths = NumberOf(text.substr(dot + 1), "%");
    if (!whole || !hundredths) {
        return std::nullopt;
    }
    // Of one number, so that two decimals print as they stand.
    return static_cast<double>(*whole * 100 + *hundredths) / 100;
}

std::string StateOf(std::string_view text)
{
    static const std::map<std::string_view, const char *> names = {
        {"Normal state", "normal"},   {"Fault state", "fault"}, {"Off-line state", "offline"},
        {"Prefail state", "prefail"}, {"Slow state", "slow"},   {"Slow", "slow"}};
    const auto name = names.find(text);
    return name != names.end() ? name->second : "";
}

std::optional<std::vector<SummaryRow>> ReadSummary(std::string_view text)
{
    const std::vector<std::string> lines = LinesOf(text);
    if (lines.empty() || lines.front() != "SummaryInfo:") {
        return std::nullopt;
    }
    std::vector<SummaryRow> rows;
    for (const std::string &line : lines) {
        const size_t end = std::min(line.find(' '), line.size());
        const auto id = NumberOf(std::string_view(line).substr(0, end));
        if (id) { // not the heads and rules
            rows.push_back({static_cast<int>(*id), Trimmed(std::string_view(line).substr(end))});
        }
    }
    return rows;
}

std::optional<DiskIdentity> ReadDiskIdentity(std::string_view text)
{
    const auto fields = FieldsOf(text);
    if (fields.count("Diskid") == 0 || fields.count("SlotId") == 0) {
        return std::nullopt;
    }
    DiskIdentity disk;
    disk.state = StateOf(FieldOf(fields, "DiskState"));
    disk.capacity = FieldOf(fields, "DiskCapacity");
    disk.sectorSize = NumberOf(FieldOf(fields, "SectorSize"));
    disk.vendor = FieldOf(fields, "Vendor");
    disk.model = FieldOf(fields, "Model");
    disk.firmware = FieldOf(fields, "Firmware");
    disk.serial = FieldOf(fields, "Sn");
    disk.device = FieldOf(fields, "DeviceName");
    disk.pciAddress = FieldOf(fields, "PciAddr");
    disk.type = FieldOf(fields, "IntfType");
    disk.slot = NumberOf(FieldOf(fields, "SlotId")); // "NA" is none
    return disk;
}

std::optional<DiskVerdict> ReadDiskVerdict(std::string_view text)
{
    const auto fields = FieldsOf(text);
    const std::string score = FieldOf(fields, "DiskHealthScore");
    const std::string life = FieldOf(fields, "DiskLife");
    if (score.empty() || life.empty()) {
        return std::nullopt;
    }
    DiskVerdict verdict;
    verdict.score = NumberOf(score);
    verdict.lifeMonths = life == "<1" ? 0 : life == ">60" ? kLifeAbove : NumberOf(life);
    verdict.prediction = verdict.score && verdict.lifeMonths ? "done" : score == "N/A" ? "none" : "pending";
    verdict.state = StateOf(FieldOf(fields, "DiskState"));
    verdict.suggestion = FieldOf(fields, "Suggestions");
    return verdict;
}

bool IsLifePredicted(std::string_view type)
{
    return type == "SAS SSD" || type == "NVME SSD";
}
