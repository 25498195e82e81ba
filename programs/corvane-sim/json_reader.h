// Strict reading of JSON objects: every mistake is told with the place it was found at, and a member that nobody asked
// for is a mistake too, since in a hand-written file it is nearly always a misspelt name.
#pragma once

#include <cjson/cJSON.h>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace corvane_sim {

struct CJsonDelete {
    void operator()(cJSON *node) const noexcept { cJSON_Delete(node); }
};
using CJsonPtr = std::unique_ptr<cJSON, CJsonDelete>;

/** A mistake in a JSON text: where (a path such as $.disks[3].wear), and what is wrong and what to do about it. */
class JsonError : public std::runtime_error {
public:
    JsonError(const std::string &path, const std::string &problem) : std::runtime_error(path + ": " + problem) {}
};

/** Parse a whole text; a syntax error throws JsonError with line and column. */
CJsonPtr ParseJson(std::string_view text);

/** Print without formatting. */
std::string PrintJson(const cJSON *node);

/** The members of one object, read by name. Call Finish() when all names have been asked for. */
class JsonObject {
public:
    /** @throws JsonError if @p node is no object, or holds one name twice. */
    JsonObject(const cJSON *node, std::string path);

    [[nodiscard]] const std::string &Path() const { return path_; }
    [[nodiscard]] std::string PathOf(std::string_view name) const { return path_ + "." + std::string(name); }

    /** The raw member, or null; the name counts as known from now on. */
    const cJSON *Find(std::string_view name);
    bool Has(std::string_view name) { return Find(name) != nullptr; }

    /** A text of at least @p least and at most @p most bytes. */
    std::optional<std::string> OptionalText(std::string_view name, size_t least, size_t most);
    std::string Text(std::string_view name, size_t least, size_t most);
    /** One of @p choices, compared exactly; gives its index. */
    std::optional<size_t> OptionalChoice(std::string_view name, const std::vector<std::string_view> &choices);
    size_t Choice(std::string_view name, const std::vector<std::string_view> &choices);
    std::optional<double> OptionalNumber(std::string_view name, double least, double most);
    double Number(std::string_view name, double least, double most);
    /** A whole number; @p most may not exceed 2^53, up to which doubles hold every whole number. */
    std::optional<uint64_t> OptionalInteger(std::string_view name, uint64_t least, uint64_t most);
    uint64_t Integer(std::string_view name, uint64_t least, uint64_t most);
    /** A number of bytes: a whole number, or a text of decimal digits. */
    std::optional<uint64_t> OptionalBytes(std::string_view name);
    std::optional<bool> OptionalBool(std::string_view name);
    /** The elements of an array member of at most @p most elements. */
    std::optional<std::vector<const cJSON *>> OptionalArray(std::string_view name, size_t most);
    std::optional<JsonObject> OptionalObject(std::string_view name);

    /** The object as it was given, without formatting. */
    [[nodiscard]] std::string Print() const { return PrintJson(node_); }
    /** @throws JsonError for a member that was never asked for. "comment" is always allowed. */
    void Finish() const;
    [[noreturn]] void Fail(std::string_view name, const std::string &problem) const;

private:
    [[noreturn]] void FailMissing(std::string_view name, const std::string &what) const;

    const cJSON *node_;
    std::string path_;
    std::vector<std::string> known_;
};

} // namespace corvane_sim
