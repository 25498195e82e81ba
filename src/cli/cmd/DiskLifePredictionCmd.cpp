#include "cli/cmd/DiskLifePredictionCmd.h"

#include "cli/common/CLogger.h"
#include "cli/common/CliResultCode.h"
#include "config/corvane_config.h"
#include "ma/drm/feature/disk_life_monitor/drm_disk_life_monitor.h"

namespace CORVANE_CLI {

namespace {

constexpr const char *kNode = "disklife_prediction";
constexpr const char *kCycleKey = "task_cycle";
constexpr int kCycleMin = 60;
constexpr int kCycleMax = 7776000; // 90 days

} // namespace

DiskLifePredictionCmd::DiskLifePredictionCmd() = default;

int DiskLifePredictionCmd::Exec(std::string param, std::string &output)
{
    (void)ParseParam(param);
    const std::string action = GetAction();
    int result = CLI_COMMAND_FORMAT_ERROR;
    if (action == "change" && m_params.contains(kCycleKey)) {
        result = SetDiskLifePredictionParam(output);
    } else if (action == "show") {
        result = ShowDiskLifePredictionParam(output);
    } else {
        CLI_LOG_ERROR("CLI_COMMAND_FORMAT_ERROR 0x%x.", static_cast<unsigned int>(CLI_COMMAND_FORMAT_ERROR));
    }
    if (result == CLI_OK) {
        m_params.clear();
    }
    return result;
}

int DiskLifePredictionCmd::SetDiskLifePredictionParam(std::string &output)
{
    std::string &text = m_params[kCycleKey];
    if (!IsStringFormatCorrect(text)) {
        return CLI_DISKLIFE_PRE_PARAM_INVALID;
    }
    const int value = std::stoi(text);
    uint32_t oldValue = 0;
    if (GetChildNodeConfigInt(kNode, kCycleKey, &oldValue) != 0) {
        CLI_LOG_ERROR("get config %s %s:%d failed", kNode, kCycleKey, static_cast<int>(oldValue));
        return CLI_FAIL;
    }
    if (value == static_cast<int>(oldValue)) {
        CLI_LOG_INFO("config %s %s:%d is same", kNode, kCycleKey, value);
        return CLI_OK;
    }
    if (value < kCycleMin || value > kCycleMax) {
        CLI_LOG_ERROR("%s:CLI_DISKLIFE_PRE_PARAM_INVALID 0x%x.", kCycleKey,
                      static_cast<unsigned int>(CLI_DISKLIFE_PRE_PARAM_INVALID));
        return CLI_DISKLIFE_PRE_PARAM_INVALID;
    }
    SetDiskLifeMonitorSchedulerCycle(static_cast<uint32_t>(value));
    if (SetChildNodeConfigInt(kNode, kCycleKey, value) != 0) {
        CLI_LOG_ERROR("change config %s %s:%d failed", kNode, kCycleKey, value);
        SetDiskLifeMonitorSchedulerCycle(oldValue);
        return CLI_FAIL;
    }
    output += "change config disklife_prediction successfully.\n";
    return CLI_OK;
}

int DiskLifePredictionCmd::ShowDiskLifePredictionParam(std::string &output)
{
    uint32_t cycle = 0;
    if (GetChildNodeConfigInt(kNode, kCycleKey, &cycle) != 0) {
        CLI_LOG_ERROR("get config %s %s:%u failed", kNode, kCycleKey, cycle);
        return CLI_FAIL;
    }
    output = std::string(kCycleKey) + ": " + std::to_string(cycle) + "\n";
    return CLI_OK;
}

} // namespace CORVANE_CLI
