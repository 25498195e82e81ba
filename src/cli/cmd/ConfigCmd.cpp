#include "cli/cmd/ConfigCmd.h"

#include <iomanip>
#include <memory>
#include <sstream>

#include "cli/common/CLogger.h"
#include "cli/common/CliResultCode.h"
#include "config/corvane_config.h"
#include "config/corvane_config_bak.h"
#include "data_collect/data_collect_master/dcm_schedule.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "data_mgr/data_mgr_master/data_mgr_master_sync.h"
#include "infrastructure/common/corvane_raii.h"
#include "init/corvane_bringup.h"
#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_routine.h"
#include "ma/drm/feature/slow_disk_detecter/slow_disk_detecter.h"

namespace CORVANE_CLI {

namespace {

constexpr int kKeyWidth = 22;
constexpr uint32_t kOn = 1;
constexpr uint32_t kOff = 0;
constexpr uint32_t kUnknown = 2;

} // namespace

ConfigCmd::ConfigCmd()
{
    Init();
}

void ConfigCmd::Init()
{
    m_handlers["feature_switch"] = [this](const std::string &key, uint32_t value) {
        return CliSetFeatureSwitchConfig(key, value);
    };
    m_handlers["takeover_disk_switch"] = [this](const std::string &key, uint32_t value) {
        return CliSetTakeOverSwitchConfig(key, value);
    };
}

int ConfigCmd::Exec(std::string param, std::string &output)
{
    (void)ParseParam(param);
    const std::string action = GetAction();
    if (action == "change") {
        return ChangeConfig(output);
    }
    if (action == "show") {
        return ShowConfig(output);
    }
    CLI_LOG_ERROR("CLI_COMMAND_FORMAT_ERROR 0x%x.", static_cast<unsigned int>(CLI_COMMAND_FORMAT_ERROR));
    return CLI_COMMAND_FORMAT_ERROR;
}

int ConfigCmd::ShowConfig(std::string &output)
{
    std::stringstream text;
    for (const auto &[key, handler] : m_handlers) {
        uint32_t value = kUnknown;
        if (GetConfigSwitchVal(key.c_str(), &value) != 0) {
            CLI_LOG_ERROR("get %s config failed", key.c_str());
            return CLI_FAIL;
        }
        text << std::left << std::setw(kKeyWidth) << key << ": " << GetSwitchConfigStrVal(value) << "\n";
    }
    output = text.str();
    return CLI_OK;
}

int ConfigCmd::ChangeConfig(std::string &output)
{
    for (const auto &[key, handler] : m_handlers) {
        const auto param = m_params.find(key);
        if (param == m_params.end()) {
            continue;
        }
        const bool changed = ChangeSwitchConfig(key, param->second, handler) == CLI_OK;
        output = "change config " + key + (changed ? " successfully\n" : " failed\n");
        return changed ? CLI_OK : CLI_COMMAND_EXEC_FAILED;
    }
    return CLI_COMMAND_FORMAT_ERROR;
}

int ConfigCmd::ChangeSwitchConfig(const std::string &key, const std::string &valueText, const Handler &handler)
{
    uint32_t value = kUnknown;
    if (GetSwitchConfigIntVal(key, valueText, value) != CLI_OK) {
        return CLI_FAIL;
    }
    uint32_t oldValue = kUnknown;
    if (GetConfigSwitchVal(key.c_str(), &oldValue) != 0) {
        CLI_LOG_ERROR("get config %s:%d failed", key.c_str(), static_cast<int>(oldValue));
        return CLI_FAIL;
    }
    if (value == oldValue) {
        CLI_LOG_INFO("config %s:%d is same", key.c_str(), static_cast<int>(value));
        return CLI_OK;
    }
    if (SetConfigSwitchVal(key.c_str(), value) != 0) {
        CLI_LOG_ERROR("change config %s:%d failed", key.c_str(), static_cast<int>(value));
        return CLI_FAIL;
    }
    const int result = handler(key, value);
    if (result != CLI_OK && SetConfigSwitchVal(key.c_str(), oldValue) != 0) {
        CLI_LOG_ERROR("change config %s:%d failed", key.c_str(), static_cast<int>(oldValue));
        return CLI_FAIL;
    }
    return result;
}

std::string ConfigCmd::GetSwitchConfigStrVal(uint32_t value)
{
    switch (value) {
    case kOn:
        return "on";
    case kOff:
        return "off";
    default:
        return "internal error";
    }
}

int ConfigCmd::GetSwitchConfigIntVal(const std::string &key, const std::string &text, uint32_t &value)
{
    if (text == "on") {
        value = kOn;
        return CLI_OK;
    }
    if (text == "off") {
        value = kOff;
        return CLI_OK;
    }
    CLI_LOG_ERROR("get config %s val %s failed", key.c_str(), text.c_str());
    return CLI_FAIL;
}

int ConfigCmd::CliSetFeatureSwitchConfig(const std::string &key, uint32_t value)
{
    (void)DrmSetSwitch(value != 0 ? 1 : 0);
    // The data manager is there before what feeds it, and stays until that has ended. What fails has logged.
    if (value == kOn) {
        DataMgrEnable();
        StartQueryAgentScheduleTask();
        (void)StartDmmSync2DmaScheduleTask();
        (void)StartConfigBackUpTask();
    } else {
        StopConfigBackUpTask();
        (void)CancelDmmSync2DmaScheduleTask();
        (void)CancelAllQueryAgentScheduleTask();
        DataMgrDisable();
    }
    // Both are told, even if the first refuses.
    const int prefail = CliSetDprSmartSwitchConfig(value);
    const int slowDisk = CliSetSlowDiskDetectSwitchConfig(value);
    if (prefail != CLI_OK || slowDisk != CLI_OK) {
        return CLI_FAIL;
    }
    CLI_LOG_INFO("change config %s:%u successfully (on:%d, off:%d)", key.c_str(), value, static_cast<int>(kOn),
                 static_cast<int>(kOff));
    return CLI_OK;
}

int ConfigCmd::CliSetTakeOverSwitchConfig(const std::string &key, uint32_t value)
{
    TakeOverDiskSwitch(value != 0);
    CLI_LOG_INFO("change config %s:%u successfully (on:%d, off:%d)", key.c_str(), value, static_cast<int>(kOn),
                 static_cast<int>(kOff));
    return CLI_OK;
}

int ConfigCmd::CliSetDprSmartSwitchConfig(uint32_t value)
{
    const MallocPtr<DrmDprSwitchConfig> config = MallocNew<DrmDprSwitchConfig>();
    if (config == nullptr) {
        return CLI_FAIL;
    }
    config->startType = DRM_DPR_START_SMART;
    config->on = value != 0 ? 1 : 0;
    const uint32_t result = DrmDprSetSwitchConfig(config.get());
    if (result != 0) {
        CLI_LOG_ERROR("change dpr config %u failed, ret:%u.", value, result);
        return CLI_FAIL;
    }
    return CLI_OK;
}

int ConfigCmd::CliSetSlowDiskDetectSwitchConfig(uint32_t value)
{
    const uint32_t result = DrmSetClassicalSlowDiskDetectV2Switch(value != 0 ? 1 : 0);
    if (result != 0) {
        CLI_LOG_ERROR("change SlowDiskDetect config %u failed, ret:%u.", value, result);
        return CLI_FAIL;
    }
    return CLI_OK;
}

} // namespace CORVANE_CLI
