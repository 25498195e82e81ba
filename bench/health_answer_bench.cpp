// The work of a health request after the socket: every node does it every three seconds, for every four of its disks.

#include <array>
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <cstdint>
#include <string>

#include "data_collect/data_collect_master/DCM_copy/dcm_copy.h"
#include "data_collect/data_collect_master/DCM_validate/dcm_validate.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/corvane_infra.h"

namespace {

constexpr uint32_t kDisks = 4;

/** The answer of the kernel agent for four SATA SSDs, about 7 KB. */
std::string FullAnswer()
{
    std::string text = R"({"jsonrpc":"2.0","id":4711,"result":{"disks":[)";
    for (uint32_t disk = 0; disk < kDisks; disk++) {
        text += disk == 0 ? "" : ",";
        text += R"({"serial_number":"S45PNA0M52046)" + std::to_string(disk) +
                R"(","power_on_hours":26280,"wear":1250,"disk_type":"SSD_SATA","vendor_id":"ATA","smart_list":[)";
        for (int attr = 0; attr < 30; attr++) {
            text += attr == 0 ? "" : ",";
            text += R"({"id":)" + std::to_string(160 + attr) + R"(,"threshold":50,"current_value":)" +
                    std::to_string(70 + attr) + R"(,"worst":65})";
        }
        text += "]}";
    }
    return text + "]}}";
}

void IgnoreLog(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...) {}

struct Records {
    std::array<DiskHealthInfoSnWrap, kDisks> health{};
    std::array<void *, kDisks> list{&health[0], &health[1], &health[2], &health[3]};
};

bool CheckAndCopy(cJSON *response, Records &records)
{
    cJSON *result = cJSON_GetObjectItem(response, "result");
    return IsValidJsonResponseHeader(response) && IsValidResultJson(MESSAGE_DISK_HEALTH_INFO, result, kDisks) &&
           CopyBatchFromJSON(MESSAGE_DISK_HEALTH_INFO, cJSON_GetObjectItem(result, "disks"), records.list.data()) == 0;
}

/** From the text of the socket to the records, as a query does it. */
void HealthAnswerTextToRecords(benchmark::State &state)
{
    g_corvaneInfra.log = IgnoreLog;
    const std::string text = FullAnswer();
    Records records;
    for (auto _ : state) {
        const CJsonPtr response(cJSON_Parse(text.c_str()));
        if (!CheckAndCopy(response.get(), records)) {
            state.SkipWithError("the answer was refused");
            break;
        }
        benchmark::DoNotOptimize(records);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(HealthAnswerTextToRecords);

/** The same without parsing: what checking and copying cost. */
void HealthAnswerTreeToRecords(benchmark::State &state)
{
    g_corvaneInfra.log = IgnoreLog;
    const CJsonPtr response(cJSON_Parse(FullAnswer().c_str()));
    Records records;
    for (auto _ : state) {
        if (!CheckAndCopy(response.get(), records)) {
            state.SkipWithError("the answer was refused");
            break;
        }
        benchmark::DoNotOptimize(records);
    }
}
BENCHMARK(HealthAnswerTreeToRecords);

} // namespace
