#include "json_reader.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace corvane_sim {
namespace {

// A number as a person writes it: without a fraction when there is none.
std::string Shown(double value)
{
    CJsonPtr node(cJSON_CreateNumber(value));
    return PrintJson(node.get());
}

std::string ListOf(const std::vector<std::string_view> &names)
{
    std::string list;
    for (const std::string_view name : names) {
        list += list.empty() ? "" : ", ";
        list += name;
    }
    return list;
}

} // namespace

CJsonPtr ParseJson(std::string_view text)
{
    const char *end = nullptr;
    const std::string copy(text);
    CJsonPtr root(cJSON_ParseWithLengthOpts(copy.c_str(), copy.size() + 1, &end, 1));
    if (root != nullptr) {
        return root;
    }
    const size_t offset = end == nullptr ? 0 : std::min(static_cast<size_t>(end - copy.c_str()), copy.size());
    const auto before = std::string_view(copy).substr(0, offset);
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const size_t lineStart = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
    throw JsonError("line " + std::to_string(line) + ", column " + std::to_string(offset - lineStart + 1),
                    "this is no valid JSON; look for a missing comma, quote or bracket here or just before");
}

std::string PrintJson(const cJSON *node)
{
    std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(node), &cJSON_free);
    if (text == nullptr) {
        throw std::bad_alloc();
    }
    return text.get();
}

JsonObject::JsonObject(const cJSON *node, std::string path) : node_(node), path_(std::move(path)), known_{"comment"}
{
    if (cJSON_IsObject(node_) == 0) {
        throw JsonError(path_, "must be an object, written in { }");
    }
    for (const cJSON *a = node_->child; a != nullptr; a = a->next) {
        for (const cJSON *b = a->next; b != nullptr; b = b->next) {
            if (std::string_view(a->string) == b->string) {
                Fail(a->string, "is given twice; remove one of the two");
            }
        }
    }
}

const cJSON *JsonObject::Find(std::string_view name)
{
    if (std::find(known_.begin(), known_.end(), name) == known_.end()) {
        known_.emplace_back(name);
    }
    return cJSON_GetObjectItemCaseSensitive(node_, std::string(name).c_str());
}

void JsonObject::Fail(std::string_view name, const std::string &problem) const
{
    throw JsonError(PathOf(name), problem);
}

void JsonObject::FailMissing(std::string_view name, const std::string &what) const
{
    Fail(name, "is missing; add it as " + what);
}

std::optional<std::string> JsonObject::OptionalText(std::string_view name, size_t least, size_t most)
{
    const cJSON *item = Find(name);
    if (item == nullptr) {
        return std::nullopt;
    }
    if (cJSON_IsString(item) == 0) {
        Fail(name, "must be a text in double quotes");
    }
    const std::string text = item->valuestring;
    if (text.size() < least) {
        Fail(name, least == 1 ? "must not be empty" : "must have at least " + std::to_string(least) + " characters");
    }
    if (text.size() > most) {
        Fail(name, "has " + std::to_string(text.size()) + " characters and at most " + std::to_string(most) +
                       " fit; shorten it");
    }
    return text;
}

std::string JsonObject::Text(std::string_view name, size_t least, size_t most)
{
    auto text = OptionalText(name, least, most);
    if (!text) {
        FailMissing(name, "a text of at most " + std::to_string(most) + " characters");
    }
    return *text;
}

std::optional<size_t> JsonObject::OptionalChoice(std::string_view name, const std::vector<std::string_view> &choices)
{
    const auto text = OptionalText(name, 0, 4096);
    if (!text) {
        return std::nullopt;
    }
    const auto found = std::find(choices.begin(), choices.end(), *text);
    if (found == choices.end()) {
        Fail(name, "\"" + *text + "\" is not known; choose one of " + ListOf(choices));
    }
    return static_cast<size_t>(found - choices.begin());
}

size_t JsonObject::Choice(std::string_view name, const std::vector<std::string_view> &choices)
{
    const auto choice = OptionalChoice(name, choices);
    if (!choice) {
        FailMissing(name, "one of " + ListOf(choices));
    }
    return *choice;
}

std::optional<double> JsonObject::OptionalNumber(std::string_view name, double least, double most)
{
    const cJSON *item = Find(name);
    if (item == nullptr) {
        return std::nullopt;
    }
    if (cJSON_IsNumber(item) == 0) {
        Fail(name, "must be a number, without quotes");
    }
    if (!(item->valuedouble >= least && item->valuedouble <= most)) {
        Fail(name, "is " + Shown(item->valuedouble) + "; it must lie between " + Shown(least) + " and " + Shown(most));
    }
    return item->valuedouble;
}

double JsonObject::Number(std::string_view name, double least, double most)
{
    const auto number = OptionalNumber(name, least, most);
    if (!number) {
        FailMissing(name, "a number between " + Shown(least) + " and " + Shown(most));
    }
    return *number;
}

std::optional<uint64_t> JsonObject::OptionalInteger(std::string_view name, uint64_t least, uint64_t most)
{
    const auto number = OptionalNumber(name, static_cast<double>(least), static_cast<double>(most));
    if (!number) {
        return std::nullopt;
    }
    if (std::floor(*number) != *number) {
        Fail(name, "is " + Shown(*number) + "; it must be a whole number");
    }
    return static_cast<uint64_t>(*number);
}

uint64_t JsonObject::Integer(std::string_view name, uint64_t least, uint64_t most)
{
    const auto number = OptionalInteger(name, least, most);
    if (!number) {
        FailMissing(name, "a whole number between " + std::to_string(least) + " and " + std::to_string(most));
    }
    return *number;
}

std::optional<uint64_t> JsonObject::OptionalBytes(std::string_view name)
{
    const cJSON *item = Find(name);
    if (item == nullptr || cJSON_IsString(item) == 0) {
        return OptionalInteger(name, 0, uint64_t{1} << 53U);
    }
    const std::string_view digits = item->valuestring;
    uint64_t value = 0;
    for (const char c : digits) {
        const auto digit = static_cast<uint64_t>(c - '0');
        if (c < '0' || c > '9' || value > (std::numeric_limits<uint64_t>::max() - digit) / 10) {
            Fail(name, "must be a number of bytes below 2^64, in decimal digits alone");
        }
        value = value * 10 + digit;
    }
    if (digits.empty()) {
        Fail(name, "must not be empty; write a number of bytes");
    }
    return value;
}

std::optional<bool> JsonObject::OptionalBool(std::string_view name)
{
    const cJSON *item = Find(name);
    if (item == nullptr) {
        return std::nullopt;
    }
    if (cJSON_IsBool(item) == 0) {
        Fail(name, "must be true or false, without quotes");
    }
    return cJSON_IsTrue(item) != 0;
}

std::optional<std::vector<const cJSON *>> JsonObject::OptionalArray(std::string_view name, size_t most)
{
    const cJSON *item = Find(name);
    if (item == nullptr) {
        return std::nullopt;
    }
    if (cJSON_IsArray(item) == 0) {
        Fail(name, "must be a list, written in [ ]");
    }
    std::vector<const cJSON *> elements;
    for (const cJSON *element = item->child; element != nullptr; element = element->next) {
        elements.push_back(element);
    }
    if (elements.size() > most) {
        Fail(name, "has " + std::to_string(elements.size()) + " entries and at most " + std::to_string(most) +
                       " are allowed; remove some");
    }
    return elements;
}

std::optional<JsonObject> JsonObject::OptionalObject(std::string_view name)
{
    const cJSON *item = Find(name);
    if (item == nullptr) {
        return std::nullopt;
    }
    return JsonObject(item, PathOf(name));
}

void JsonObject::Finish() const
{
    for (const cJSON *item = node_->child; item != nullptr; item = item->next) {
        if (std::find(known_.begin(), known_.end(), item->string) == known_.end()) {
            std::vector<std::string_view> names(known_.begin(), known_.end());
            std::sort(names.begin(), names.end());
            Fail(item->string, "is not known here; remove it or use one of " + ListOf(names));
        }
    }
}

} // namespace corvane_sim
