// Feeds any text to the lsblk table reader, and each row that comes out to the checks of the handlers.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_disk_info.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_lsblk.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_infra.h"

namespace {

std::string g_output; // what lsblk prints

void NoLog(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...) {}

/** lsblk as the input says; no command runs. */
std::FILE *FakePopen(const char *command, const char *)
{
    std::FILE *file = std::tmpfile();
    const bool asksVersion = std::strstr(command, "--version") != nullptr;
    const std::string &text = asksVersion ? "lsblk from util-linux 2.23.2\n" : g_output;
    (void)std::fwrite(text.data(), 1, text.size(), file);
    std::rewind(file);
    return file;
}

void Require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    g_corvaneInfra.log = NoLog;
    g_osCalls.popen = FakePopen;
    g_osCalls.pclose = std::fclose;
    g_osPaths = {.sys = "/nonexistent", .proc = "/nonexistent", .dev = "/nonexistent"};

    g_output.assign(reinterpret_cast<const char *>(data), size);
    std::string table = g_output;
    cJSON *tree = nullptr;
    const uint32_t result = DcakParseLsblkTable2Json(table.data(), &tree);
    const CJsonPtr owner(tree);
    Require((result == 0) == (tree != nullptr));
    if (tree == nullptr) {
        return 0;
    }
    cJSON *rows = cJSON_GetObjectItem(tree, "blockdevices");
    Require(cJSON_IsArray(rows));
    cJSON *row = nullptr;
    cJSON_ArrayForEach(row, rows)
    {
        Require(cJSON_GetArraySize(row) <= static_cast<int>(DCAK_TABLE_LABEL_MAX));
        Require(DcakDevIsValid(row) <= 1);
        (void)CheckCmdStrIsSecure(cJSON_GetStringValue(cJSON_GetObjectItem(row, "name")));
    }
    if (cJSON_GetArraySize(rows) > 0) {
        cJSON *info = nullptr;
        if (GetDiskInfoByLsblkJson(cJSON_GetObjectItem(cJSON_GetArrayItem(rows, 0), "name"), &info) == 0) {
            Require(cJSON_GetArraySize(info) == 6);
            cJSON_Delete(info);
        }
    }
    return 0;
}
