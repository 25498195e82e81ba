// How an agent can answer wrongly, and what that does to an answer that was right.
#pragma once

#include "json_reader.h"

#include <cstdint>
#include <optional>
#include <string>

namespace corvane_sim {

enum class Mode : uint8_t {
    kHang,         // reads the request and never answers
    kDelay,        // answers late
    kClose,        // reads the request, closes without an answer
    kCloseUnread,  // closes without reading
    kGarbage,      // answers a text that is no JSON, or a given one
    kTruncate,     // sends the first part of the answer and closes
    kSplit,        // sends the answer in two parts with a pause between
    kWrongType,    // a member gets another JSON type
    kMissing,      // a member is left out
    kOverlong,     // a text member is longer than any field
    kTooManyDisks, // more disks than asked for or allowed
    kOversize,     // the answer is padded with blanks to a number of bytes
    kResult,       // a given result replaces the right one
};

struct Misbehaviour {
    Mode mode = Mode::kHang;
    std::string method;            // empty: every method
    std::optional<uint32_t> count; // this many requests, then right again; unset: until told otherwise
    std::optional<uint64_t> bytes; // truncate, split, oversize, overlong
    std::optional<uint32_t> disks; // too_many_disks
    double seconds = 0;            // delay, split; of real time
    std::string text;              // garbage
    std::string member;            // wrong_type, missing, overlong
    std::string resultJson;        // result
};

/** Read the members that belong to a mode; "do", "at" and "agent" are the caller's. */
Misbehaviour ReadMisbehaviour(JsonObject &object);

/** Bend the tree of a right answer (envelope and result). @p asked is the number of devices the request named. */
void BendAnswer(const Misbehaviour &misbehaviour, cJSON *answer, size_t asked);
/** Bend the text of an answer. */
std::string BendText(const Misbehaviour &misbehaviour, std::string text);

} // namespace corvane_sim
