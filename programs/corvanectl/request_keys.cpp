#include "request_keys.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <tuple>

namespace {

/** Of each row of keys a request takes one. */
struct Keys {
    std::string_view action;
    std::string_view command;
    std::array<std::array<std::string_view, 2>, 2> rows;
};

constexpr std::array<Keys, 14> kKeys{{
    {"show", "summary", {}},
    {"show", "slowdisk", {}},
    {"show", "disk_info", {{{"disk_id"}}}},
    {"show", "iostat_info", {{{"disk_id"}}}},
    {"show", "smart_info", {{{"disk_id"}}}},
    {"show", "drm_info", {{{"disk_id"}}}},
    {"show", "config", {}},
    {"show", "slowdisk_detect_config", {}},
    {"show", "dpr_smart", {}},
    {"show", "disklife_prediction", {}},
    {"change", "config", {{{"feature_switch", "takeover_disk_switch"}}}},
    {"change", "slowdisk_detect_config", {{{"disk_type"}, {"min_threshold_value", "min_slow_cycle"}}}},
    {"change", "dpr_smart", {{{"disk_type"}, {"task_cycle"}}}},
    {"change", "disklife_prediction", {{{"task_cycle"}}}},
}};

const Keys *KeysOf(const std::vector<std::string> &words)
{
    const auto row = std::find_if(kKeys.begin(), kKeys.end(), [&](const Keys &keys) {
        return words.size() >= 2 && words[0] == keys.action && words[1] == keys.command;
    });
    return row != kKeys.end() ? &*row : nullptr;
}

/** "A and B", "A and one of B and C". */
std::string Named(const Keys &keys)
{
    std::string text;
    for (const auto &[first, second] : keys.rows) {
        if (!first.empty()) {
            text += text.empty() ? "" : " and ";
            text +=
                second.empty() ? std::string(first) : "one of " + std::string(first) + " and " + std::string(second);
        }
    }
    return text;
}

/** The keys so far, by the rows. */
using Given = std::array<std::string, std::tuple_size_v<decltype(Keys::rows)>>;

/** @return what is wrong with the next pair. */
std::string CheckPair(const Keys &keys, const std::string &word, Given &given)
{
    const std::string name = std::string(keys.action) + " " + std::string(keys.command);
    const std::string named = Named(keys);
    if (named.empty()) {
        return name + " takes nothing behind it, but got " + word + ": leave it out";
    }
    const size_t equals = word.find('=');
    if (equals == std::string::npos || equals == 0) {
        return word + " is no KEY=VALUE pair: write key, equals sign and value without blanks between them";
    }
    const std::string key = word.substr(0, equals);
    const auto row = std::find_if(keys.rows.begin(), keys.rows.end(), [&](const auto &choices) {
        return std::find(choices.begin(), choices.end(), key) != choices.end();
    });
    if (row == keys.rows.end()) {
        return name + " does not take the key " + key + ": give it " + named;
    }
    std::string &before = given[static_cast<size_t>(row - keys.rows.begin())];
    if (before == key) {
        return name + " takes " + key + " once: use a command for each value";
    }
    if (!before.empty()) {
        return name + " takes one of " + before + " and " + key + " at a time: use a command for each";
    }
    before = key;
    return "";
}

} // namespace

std::string RequestText(const std::vector<std::string> &words)
{
    std::string request;
    for (const std::string &word : words) {
        request += (request.empty() ? "" : " ") + word;
    }
    return request;
}

std::vector<std::string> WordsOfRequest(const std::vector<std::string> &arguments)
{
    std::vector<std::string> words;
    for (const std::string &argument : arguments) {
        for (size_t at = 0, end = 0; end != std::string::npos; at = end + 1) {
            end = argument.find(' ', at);
            words.push_back(argument.substr(at, end == std::string::npos ? end : end - at));
        }
    }
    return words;
}

bool KnowsKeys(const std::vector<std::string> &words)
{
    return KeysOf(words) != nullptr;
}

std::string CheckKeys(const std::vector<std::string> &words)
{
    const Keys *keys = KeysOf(words);
    Given given;
    std::string problem;
    for (size_t i = 2; keys != nullptr && i < words.size() && problem.empty(); i++) {
        problem = CheckPair(*keys, words[i], given);
    }
    return problem;
}
