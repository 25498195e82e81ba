#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_lsblk.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "bounded/bounded.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_log.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

const char *const g_lsblkNumLabel[DCAK_LSBLK_NUM_LABELS] = {"size", "log-sec"};

namespace {

constexpr size_t kCommandSize = 512;
constexpr const char *kVersionCommand = "export LANG=en_US.UTF-8 && lsblk --version 2>/dev/null";
constexpr const char *kCellDelimiters = "\t ";
/** What a shell gives a meaning that reaches beyond the word it stands in. */
constexpr const char *kInjectionChars = "|;&$><`\\!\n\r";

struct PipeClose {
    void operator()(std::FILE *pipe) const noexcept { (void)g_osCalls.pclose(pipe); }
};
using PipePtr = std::unique_ptr<std::FILE, PipeClose>;

using Label = std::array<char, DCAK_TABLE_LABEL_SIZE>;
struct Labels {
    std::array<Label, DCAK_TABLE_LABEL_MAX> names;
    size_t count;
};

bool ReadLabels(char *header, Labels &labels)
{
    labels.count = 0;
    char *rest = nullptr;
    for (char *cell = strtok_r(header, kCellDelimiters, &rest); cell != nullptr && labels.count < labels.names.size();
         cell = strtok_r(nullptr, kCellDelimiters, &rest)) {
        if (strcpy_s(labels.names[labels.count].data(), DCAK_TABLE_LABEL_SIZE, cell) != 0) {
            DCAK_LOG_FAILURE("strcpy_s label item failed.");
            return false;
        }
        labels.count++;
    }
    return true;
}

CJsonPtr ReadRow(char *line, const Labels &labels)
{
    CJsonPtr row(cJSON_CreateObject());
    char *rest = nullptr;
    char *cell = strtok_r(line, kCellDelimiters, &rest);
    for (size_t i = 0; row != nullptr && cell != nullptr && i < labels.count; i++) {
        const char *label = labels.names[i].data();
        const cJSON *added =
            DcakIsLabelNum(label) != 0
                ? cJSON_AddNumberToObject(row.get(), label, static_cast<double>(std::strtoll(cell, nullptr, 10)))
                : cJSON_AddStringToObject(row.get(), label, cell);
        if (added == nullptr) {
            return nullptr;
        }
        cell = strtok_r(nullptr, kCellDelimiters, &rest);
    }
    return row;
}

/** Reads all rows below the header. */
CJsonPtr ReadTable(char *tableText)
{
    CJsonPtr root(cJSON_CreateObject());
    // An empty output, which lsblk gives when there is no disk, has no header and becomes an empty list.
    cJSON *rows = cJSON_AddArrayToObject(root.get(), "blockdevices");
    if (rows == nullptr) {
        return nullptr;
    }
    char *rest = nullptr;
    char *line = strtok_r(tableText, "\n", &rest);
    Labels labels{};
    if (line != nullptr && !ReadLabels(line, labels)) {
        return nullptr;
    }
    while (line != nullptr && (line = strtok_r(nullptr, "\n", &rest)) != nullptr) {
        CJsonPtr row = ReadRow(line, labels);
        if (row == nullptr || !cJSON_AddItemToArray(rows, row.get())) {
            return nullptr;
        }
        (void)row.release();
    }
    return root;
}

/** The number at @p text, moved on behind the next point; 0 at the end of the text. */
unsigned long NextComponent(const char *&text)
{
    const unsigned long number = std::strtoul(text, nullptr, 10);
    const char *point = std::strchr(text, '.');
    text = point != nullptr ? point + 1 : text + std::strlen(text);
    return number;
}

} // namespace

uint32_t DcakExecCmd(const char *command, uint32_t outputSize, char *output) noexcept
{
    if (command == nullptr || output == nullptr || outputSize == 0) {
        return DCAK_FAIL;
    }
    (void)memset_s(output, outputSize, 0, outputSize);
    const PipePtr pipe(g_osCalls.popen(command, "r"));
    if (pipe == nullptr) {
        DCAK_LOG_FAILURE("Failed to run command\n");
        return DCAK_FAIL;
    }
    std::array<char, DCAK_CMD_OUTPUT_SIZE> line;
    size_t used = 0;
    while (std::fgets(line.data(), static_cast<int>(line.size()), pipe.get()) != nullptr) {
        // Behind the text so far, so that a line that does not fit is an error and not cut.
        const size_t left = outputSize - used - 1;
        const int result = strncat_s(output + used, left + 1, line.data(), line.size());
        if (result != 0) {
            DCAK_LOG_FAILURE("strncat_s err:%s\n", line.data());
            output[0] = '\0';
            return static_cast<uint32_t>(result);
        }
        used += std::strlen(output + used);
    }
    return DCAK_OK;
}

uint32_t DcakExecLsblkCmd(const char *command, cJSON **jsonOut) noexcept
{
    if (command == nullptr || jsonOut == nullptr) {
        DCAK_LOG_FAILURE("command or cmdJson is NULL.");
        return DCAK_FAIL;
    }
    *jsonOut = nullptr;
    std::array<char, kCommandSize> line{};
    if (strcpy_s(line.data(), line.size(), command) != 0) {
        DCAK_LOG_FAILURE("strcpy_s failed when copying command: %s.", command);
        return DCAK_FAIL;
    }
    const bool asJson = CheckLsblkVersionJsonValid() == 1;
    if (asJson && snprintf_s(line.data(), line.size(), line.size() - 1, "%s -J", command) < 0) {
        DCAK_LOG_FAILURE("snprintf_s failed: %s, input command: %s.", line.data(), command);
        return DCAK_FAIL;
    }
    const MallocPtr<char> output(static_cast<char *>(g_osCalls.malloc(DCAK_CMD_OUTPUT_SIZE)));
    if (output == nullptr) {
        DCAK_LOG_FAILURE("malloc failed");
        return DCAK_FAIL;
    }
    if (DcakExecCmd(line.data(), DCAK_CMD_OUTPUT_SIZE, output.get()) != 0) {
        DCAK_LOG_FAILURE("exec cmd failed, cmd is: %s.", line.data());
        return DCAK_FAIL;
    }
    if (asJson) {
        *jsonOut = cJSON_Parse(output.get());
        if (*jsonOut == nullptr) {
            DCAK_LOG_FAILURE("cmdJson is NULL.");
            return DCAK_FAIL;
        }
    } else if (DcakParseLsblkTable2Json(output.get(), jsonOut) != 0) {
        DCAK_LOG_FAILURE("parse lsblk table into json failed, cmdOut is %s.", output.get());
        return DCAK_FAIL;
    }
    if (DcakSwitchIsOn(&g_DCAK_DEBUG_SWITCH)) {
        const CJsonText text(cJSON_PrintUnformatted(*jsonOut));
        DCAK_LOG_COURSE("exec lsblk cmd success, cmdJson: %s", text != nullptr ? text.get() : "");
    }
    return DCAK_OK;
}

uint32_t DcakParseLsblkTable2Json(char *tableText, cJSON **jsonOut) noexcept
{
    if (tableText == nullptr || jsonOut == nullptr) {
        DCAK_LOG_FAILURE("tableStr or cmdJson is NULL.");
        return DCAK_FAIL;
    }
    *jsonOut = ReadTable(tableText).release();
    return *jsonOut != nullptr ? DCAK_OK : DCAK_FAIL;
}

uint32_t DcakIsLabelNum(const char *label) noexcept
{
    if (label == nullptr) {
        return 0;
    }
    for (const char *numLabel : g_lsblkNumLabel) {
        if (strcasecmp(label, numLabel) == 0) {
            return 1;
        }
    }
    return 0;
}

uint32_t GetLsblkVersion(char *versionOut) noexcept
{
    if (versionOut == nullptr) {
        return DCAK_FAIL;
    }
    const MallocPtr<char> output(static_cast<char *>(g_osCalls.malloc(DCAK_CMD_OUTPUT_SIZE)));
    if (output == nullptr) {
        DCAK_LOG_FAILURE("malloc failed");
        return DCAK_FAIL;
    }
    if (DcakExecCmd(kVersionCommand, DCAK_CMD_OUTPUT_SIZE, output.get()) != 0) {
        return DCAK_FAIL;
    }
    std::array<char, DCAK_VERSION_SIZE> tool{};
    std::array<char, DCAK_VERSION_SIZE> version{};
    if (sscanf_s(output.get(), "%s from util-linux %s", tool.data(), tool.size(), version.data(), version.size()) !=
        2) {
        DCAK_LOG_FAILURE("lsblk not exist\n");
        return DCAK_FAIL;
    }
    return strcpy_s(versionOut, DCAK_VERSION_SIZE, version.data()) == 0 ? DCAK_OK : DCAK_FAIL;
}

uint32_t CompareVersionValid(const char *version, const char *wanted) noexcept
{
    if (version == nullptr || wanted == nullptr) {
        return 0;
    }
    while (*version != '\0' || *wanted != '\0') {
        const unsigned long have = NextComponent(version);
        const unsigned long want = NextComponent(wanted);
        if (have != want) {
            return have > want ? 1 : 0;
        }
    }
    return 1;
}

uint32_t CheckLsblkVersionValid() noexcept
{
    std::array<char, DCAK_VERSION_SIZE> version{};
    if (GetLsblkVersion(version.data()) != 0) {
        DCAK_LOG_FAILURE("Get lsblk version failed.");
        return 0;
    }
    if (CompareVersionValid(version.data(), "2.23.2") == 0) {
        DCAK_LOG_FAILURE("lsblk is %s, less than 2.23.2\n", version.data());
        return 0;
    }
    return 1;
}

uint32_t CheckLsblkVersionJsonValid() noexcept
{
    std::array<char, DCAK_VERSION_SIZE> version{};
    if (GetLsblkVersion(version.data()) != 0) {
        DCAK_LOG_FAILURE("Get lsblk version failed.");
        return 0;
    }
    if (CompareVersionValid(version.data(), "2.24") == 0) {
        DCAK_LOG_FAILURE("lsblk is %s, less than 2.24\n", version.data());
        return 0;
    }
    return 1;
}

uint32_t CheckCmdStrIsSecure(const char *text) noexcept
{
    if (text == nullptr || *text == '\0') {
        return 0;
    }
    const char *found = std::strpbrk(text, kInjectionChars);
    if (found != nullptr) {
        DCAK_LOG_FAILURE("cmd [%s] contains injection char %c", text, *found);
        return 0;
    }
    return 1;
}

void EndTrim(char *text, uint32_t length) noexcept
{
    if (text == nullptr) {
        return;
    }
    while (length > 0 && std::strchr(" \t\n\v\f\r", text[length - 1]) != nullptr && text[length - 1] != '\0') {
        text[length - 1] = '\0';
        length--;
    }
}

uint32_t StrSplit(const char *text, const char *delimiters, uint32_t maxTokens, char **tokens) noexcept
{
    if (text == nullptr || delimiters == nullptr || tokens == nullptr) {
        return 0;
    }
    uint32_t count = 0;
    const char *at = text + std::strspn(text, delimiters);
    while (*at != '\0' && count < maxTokens) {
        const size_t length = std::strcspn(at, delimiters);
        auto *copy = static_cast<char *>(g_osCalls.malloc(length + 1));
        if (copy == nullptr) {
            StrTokensFree(tokens, count);
            return 0;
        }
        (void)memcpy_s(copy, length + 1, at, length);
        copy[length] = '\0';
        tokens[count++] = copy;
        at += length;
        at += std::strspn(at, delimiters);
    }
    return count;
}

void StrTokensFree(char **tokens, uint32_t count) noexcept
{
    for (uint32_t i = 0; tokens != nullptr && i < count; i++) {
        std::free(tokens[i]);
        tokens[i] = nullptr;
    }
}
