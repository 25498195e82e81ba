#include "judge.h"

#include <cstdio>
#include <fstream>
#include <iostream>

namespace corvane_sim {
namespace {

// A line without its line feed is one that is being written.
CJsonPtr LastStatus(std::istream &lines)
{
    CJsonPtr last;
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
        CJsonPtr status(cJSON_Parse(line.c_str())); // before the log is up, corvaned's log lines stand there as well
        if (cJSON_IsArray(cJSON_GetObjectItemCaseSensitive(status.get(), "disks")) != 0) {
            last = std::move(status);
        }
    }
    return last;
}

const cJSON *FindDisk(const cJSON *status, const std::string &serial)
{
    const cJSON *disk = nullptr;
    cJSON_ArrayForEach(disk, cJSON_GetObjectItemCaseSensitive(status, "disks"))
    {
        const char *sn = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(disk, "sn"));
        if (sn != nullptr && serial == sn) {
            return disk;
        }
    }
    return nullptr;
}

} // namespace

bool JudgeStatus(const Scenario &scenario, const std::string &statusFile)
{
    std::ifstream file;
    if (statusFile != "-") {
        file.open(statusFile, std::ios::binary);
    }
    const CJsonPtr status = LastStatus(statusFile != "-" ? file : std::cin);
    if (status == nullptr) {
        throw std::runtime_error(statusFile + ": holds no status of corvaned; run it with --status-interval 1 "
                                              "--status-format json and keep what it prints");
    }
    size_t judged = 0;
    size_t right = 0;
    for (const DiskSpec &disk : scenario.disks) {
        if (!disk.expect) {
            continue;
        }
        const std::string differences = Differences(*disk.expect, FindDisk(status.get(), disk.serial));
        judged++;
        right += differences.empty() ? 1U : 0U;
        (void)std::printf("%-6s %-12s %-20s %s\n", differences.empty() ? "ok" : "WRONG", disk.deviceName.c_str(),
                          disk.serial.c_str(), differences.empty() ? disk.expect->text.c_str() : differences.c_str());
    }
    (void)std::printf("%zu of %zu disks as expected\n", right, judged);
    return right == judged;
}

} // namespace corvane_sim
