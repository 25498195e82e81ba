#include "misbehaviour.h"

#include "disk_model.h"

#include <algorithm>
#include <functional>

namespace corvane_sim {
namespace {

const std::vector<std::string_view> kModeNames = {
    "hang",       "delay",   "close",    "close_unread",   "garbage",  "truncate", "split",
    "wrong_type", "missing", "overlong", "too_many_disks", "oversize", "result"};
constexpr uint64_t kMostBytes = uint64_t{16} << 20U;
// One more than what a receiver takes in.
constexpr uint64_t kOversizeDefault = 8193;
constexpr uint64_t kOverlongDefault = 300;

// Every member of that name, at any depth.
void ForEachMember(cJSON *node, const std::string &name, const std::function<void(cJSON *parent, cJSON *member)> &act)
{
    for (cJSON *child = node->child; child != nullptr;) {
        cJSON *next = child->next;
        if (child->string != nullptr && name == child->string) {
            act(node, child);
        } else {
            ForEachMember(child, name, act);
        }
        child = next;
    }
}

void ReplaceMember(cJSON *parent, const std::string &name, CJsonPtr value)
{
    cJSON_ReplaceItemInObjectCaseSensitive(parent, name.c_str(), value.release());
}

void SetText(cJSON *object, const char *name, const std::string &text)
{
    if (cJSON_GetObjectItemCaseSensitive(object, name) != nullptr) {
        ReplaceMember(object, name, CJsonPtr(cJSON_CreateString(text.c_str())));
    }
}

void AddSurplusDisks(cJSON *answer, size_t wanted)
{
    ForEachMember(answer, "disks", [wanted](cJSON *, cJSON *disks) {
        for (auto size = static_cast<size_t>(cJSON_GetArraySize(disks)); size < wanted; size++) {
            CJsonPtr copy(disks->child != nullptr ? cJSON_Duplicate(disks->child, 1) : cJSON_CreateObject());
            if (disks->child == nullptr) {
                cJSON_AddStringToObject(copy.get(), "device_name", "");
                cJSON_AddStringToObject(copy.get(), "serial_number", "");
            }
            SetText(copy.get(), "device_name", "surplus" + std::to_string(size));
            SetText(copy.get(), "serial_number", "SURPLUS" + std::to_string(size));
            cJSON_AddItemToArray(disks, copy.release());
        }
    });
}

} // namespace

Misbehaviour ReadMisbehaviour(JsonObject &object)
{
    Misbehaviour out;
    out.mode = static_cast<Mode>(object.Choice("mode", kModeNames));
    out.method = object.OptionalText("method", 1, 64).value_or("");
    if (const auto count = object.OptionalInteger("count", 1, 1000000)) {
        out.count = static_cast<uint32_t>(*count);
    }
    switch (out.mode) {
    case Mode::kHang:
    case Mode::kClose:
        break;
    case Mode::kCloseUnread:
        if (!out.method.empty()) {
            object.Fail("method", "has no meaning here: the request is never read; remove it");
        }
        break;
    case Mode::kDelay:
        out.seconds = object.Number("seconds", 0, 86400);
        break;
    case Mode::kGarbage:
        out.text = object.OptionalText("text", 1, kMostBytes).value_or("<<< this is no JSON >>>");
        break;
    case Mode::kSplit:
        out.seconds = object.OptionalNumber("seconds", 0, 86400).value_or(0.2);
        [[fallthrough]];
    case Mode::kTruncate:
        out.bytes = object.OptionalInteger("bytes", 1, kMostBytes);
        break;
    case Mode::kWrongType:
    case Mode::kMissing:
        out.member = object.OptionalText("member", 1, 64).value_or("disks");
        break;
    case Mode::kOverlong:
        out.member = object.OptionalText("member", 1, 64).value_or("serial_number");
        out.bytes = object.OptionalInteger("bytes", 1, kMostBytes).value_or(kOverlongDefault);
        break;
    case Mode::kTooManyDisks:
        if (const auto disks = object.OptionalInteger("disks", 1, 10000)) {
            out.disks = static_cast<uint32_t>(*disks);
        }
        break;
    case Mode::kOversize:
        out.bytes = object.OptionalInteger("bytes", 1, kMostBytes).value_or(kOversizeDefault);
        break;
    case Mode::kResult:
        if (const cJSON *result = object.Find("result")) {
            out.resultJson = PrintJson(result);
        } else {
            object.Fail("result", "is missing; add the JSON value that shall stand in the answer");
        }
        break;
    }
    return out;
}

void BendAnswer(const Misbehaviour &misbehaviour, cJSON *answer, size_t asked)
{
    switch (misbehaviour.mode) {
    case Mode::kWrongType:
        ForEachMember(answer, misbehaviour.member, [&](cJSON *parent, cJSON *member) {
            const bool isText = cJSON_IsString(member) != 0;
            ReplaceMember(parent, misbehaviour.member,
                          CJsonPtr(isText ? cJSON_CreateNumber(1) : cJSON_CreateString("wrong type")));
        });
        break;
    case Mode::kMissing:
        ForEachMember(answer, misbehaviour.member, [&](cJSON *parent, cJSON *) {
            cJSON_DeleteItemFromObjectCaseSensitive(parent, misbehaviour.member.c_str());
        });
        break;
    case Mode::kOverlong:
        ForEachMember(answer, misbehaviour.member, [&](cJSON *parent, cJSON *) {
            const std::string text(misbehaviour.bytes.value_or(kOverlongDefault), 'X');
            ReplaceMember(parent, misbehaviour.member, CJsonPtr(cJSON_CreateString(text.c_str())));
        });
        break;
    case Mode::kTooManyDisks:
        // A device list may hold 64 disks, every other list as many as were asked for.
        AddSurplusDisks(answer, misbehaviour.disks.value_or(asked == 0 ? kMaxDisks + 1 : asked + 1));
        break;
    case Mode::kResult:
        ReplaceMember(answer, "result", CJsonPtr(cJSON_Parse(misbehaviour.resultJson.c_str())));
        break;
    default:
        break;
    }
}

std::string BendText(const Misbehaviour &misbehaviour, std::string text)
{
    switch (misbehaviour.mode) {
    case Mode::kGarbage:
        return misbehaviour.text;
    case Mode::kTruncate:
        text.resize(std::min<uint64_t>(misbehaviour.bytes.value_or(text.size() / 2), text.size()));
        return text;
    case Mode::kOversize: {
        // Blanks before the last bracket: whole it is good JSON, cut by a single byte it is none.
        const uint64_t wanted = misbehaviour.bytes.value_or(kOversizeDefault);
        if (text.size() < wanted) {
            text.insert(text.size() - 1, wanted - text.size(), ' ');
        }
        return text;
    }
    default:
        return text;
    }
}

} // namespace corvane_sim
