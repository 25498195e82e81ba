#include "expectation.h"

#include <vector>

namespace corvane_sim {
namespace {

const std::vector<std::string_view> kStates = {"normal", "fault", "offline", "prefail", "slow"};
constexpr uint64_t kMostLife = 43800; // five years: predictions end there
constexpr size_t kMaxStrategy = 100;

std::string TextOf(const cJSON *object, const char *name)
{
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, name));
    return text != nullptr ? text : "missing";
}

std::string NumberOf(const cJSON *object, const char *name)
{
    const cJSON *number = cJSON_GetObjectItemCaseSensitive(object, name);
    return cJSON_IsNumber(number) != 0 ? PrintJson(number) : "missing";
}

void Compare(const char *what, const std::string &found, const std::string &expected, std::string &differences)
{
    if (found != expected) {
        differences +=
            (differences.empty() ? "" : "; ") + std::string(what) + " is " + found + ", expected " + expected;
    }
}

} // namespace

Expectation ReadExpectation(JsonObject object)
{
    Expectation expectation;
    if (const auto state = object.OptionalChoice("state", kStates)) {
        expectation.state = kStates[*state];
    }
    if (const auto score = object.OptionalInteger("score", 0, 100)) {
        expectation.score = static_cast<uint32_t>(*score);
    }
    const cJSON *life = object.Find("life");
    if (cJSON_IsString(life) != 0) {
        (void)object.Choice("life", {"none"});
        expectation.noLife = true;
    } else if (const auto hours = object.OptionalInteger("life", 0, kMostLife)) {
        expectation.life = static_cast<uint32_t>(*hours);
    }
    expectation.strategy = object.OptionalText("strategy", 1, kMaxStrategy);
    if (expectation.IsOffline() && (expectation.score || life != nullptr || expectation.strategy)) {
        object.Fail("state", "nothing more is said of a disk that is offline; remove the other members");
    }
    if (expectation.noLife && expectation.score) {
        object.Fail("score", "comes with a predicted life; remove one of the two");
    }
    object.Finish();
    expectation.text = object.Print();
    return expectation;
}

std::string Differences(const Expectation &expected, const cJSON *disk)
{
    if (disk == nullptr) {
        return expected.IsOffline() ? "" : "is not online";
    }
    const cJSON *prediction = cJSON_GetObjectItemCaseSensitive(disk, "life");
    std::string differences;
    if (expected.state) {
        Compare("state", TextOf(disk, "state"), *expected.state, differences);
    }
    if (expected.score) {
        Compare("score", NumberOf(prediction, "healthScore"), std::to_string(*expected.score), differences);
    }
    if (expected.life || expected.noLife) {
        Compare("life", NumberOf(prediction, "diskLife"), expected.life ? std::to_string(*expected.life) : "missing",
                differences);
    }
    if (expected.strategy) {
        Compare("strategy", TextOf(disk, "strategy"), *expected.strategy, differences);
    }
    return differences;
}

} // namespace corvane_sim
