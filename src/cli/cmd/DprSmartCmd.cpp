#include "cli/cmd/DprSmartCmd.h"

#include <cstring>
#include <iomanip>
#include <sstream>

#include "cli/cmd/DiskClass.h"
#include "cli/common/CLogger.h"
#include "cli/common/CliResultCode.h"
#include "config/corvane_config.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"
#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_routine.h"

namespace CORVANE_CLI {

namespace {

constexpr const char *kTypeKey = "disk_type";
constexpr const char *kCycleKey = "task_cycle";
constexpr int kCycleMin = 1;
constexpr int kCycleMax = 2592000; // 30 days

} // namespace

DprSmartCmd::DprSmartCmd() = default;

int DprSmartCmd::Exec(std::string param, std::string &output)
{
    (void)ParseParam(param);
    const std::string action = GetAction();
    int result = CLI_COMMAND_FORMAT_ERROR;
    if (action == "change" && m_params.contains(kCycleKey) && m_params.contains(kTypeKey)) {
        result = SetDprSmartParam(output);
    } else if (action == "show") {
        result = ShowDprSmartParam(output);
    } else {
        CLI_LOG_ERROR("CLI_COMMAND_FORMAT_ERROR 0x%x.", static_cast<unsigned int>(CLI_COMMAND_FORMAT_ERROR));
    }
    if (result == CLI_OK) {
        m_params.clear();
    }
    return result;
}

int DprSmartCmd::SetDprSmartParam(std::string &output)
{
    const int result = ChangeDprSmartParam();
    output = std::string("change config ") + (result == CLI_OK ? "successfully\n" : "failed\n");
    return result == CLI_FAIL ? CLI_COMMAND_EXEC_FAILED : result;
}

int DprSmartCmd::GetValFromParam(int &type, int &cycle)
{
    std::string &typeText = m_params[kTypeKey];
    if (!IsStringFormatCorrect(typeText)) {
        return CLI_DPR_SMART_CONFIG_PARAM_INVALID;
    }
    type = std::stoi(typeText);
    if (type >= kDiskClasses) {
        CLI_LOG_ERROR("%s:CLI_DPR_SMART_CONFIG_PARAM_INVALID 0x%x.", kTypeKey,
                      static_cast<unsigned int>(CLI_DPR_SMART_CONFIG_PARAM_INVALID));
        return CLI_DPR_SMART_CONFIG_PARAM_INVALID;
    }
    std::string &cycleText = m_params[kCycleKey];
    if (!IsStringFormatCorrect(cycleText)) {
        return CLI_DPR_SMART_CONFIG_PARAM_INVALID;
    }
    cycle = std::stoi(cycleText);
    if (cycle < kCycleMin || cycle > kCycleMax) {
        CLI_LOG_ERROR("%s:CLI_DPR_SMART_CONFIG_PARAM_INVALID 0x%x.", kCycleKey,
                      static_cast<unsigned int>(CLI_DPR_SMART_CONFIG_PARAM_INVALID));
        return CLI_DPR_SMART_CONFIG_PARAM_INVALID;
    }
    return CLI_OK;
}

int DprSmartCmd::ChangeDprSmartParam()
{
    int type = 0;
    int cycle = 0;
    const int valid = GetValFromParam(type, cycle);
    if (valid != CLI_OK) {
        return valid;
    }
    const char *node = g_diskTypeConfigNames[type];
    if (SetChildNodeConfigInt(node, kCycleKey, cycle) != 0) {
        CLI_LOG_ERROR("change config %s %s:%d failed", node, kCycleKey, cycle);
        return CLI_OK; // operators are told of the success of the request, not of the save
    }
    const MallocPtr<DrmDprCycleConfig> record(
        static_cast<DrmDprCycleConfig *>(g_osCalls.malloc(sizeof(DrmDprCycleConfig))));
    if (record == nullptr) {
        return CLI_OK;
    }
    *record = {DRM_DPR_START_SMART, static_cast<uint32_t>(type), static_cast<uint32_t>(cycle)};
    const uint32_t result = DrmDprSetCycleConfig(record.get());
    if (result != 0) {
        CLI_LOG_ERROR("set min slow cycle failed, ret:%d.", static_cast<int>(result));
        return CLI_FAIL;
    }
    return CLI_OK;
}

int DprSmartCmd::ShowDprSmartParam(std::string &output)
{
    std::stringstream text;
    for (const char *node : g_diskTypeConfigNames) {
        uint32_t cycle = 0;
        if (GetChildNodeConfigInt(node, kCycleKey, &cycle) != 0) {
            CLI_LOG_ERROR("get %s config %s:%u failed", node, kCycleKey, cycle);
            output.clear();
            return CLI_FAIL;
        }
        text << std::left << std::setw(kDiskClassNodeWidth) << node << ": " << kCycleKey << "=" << cycle << "\n";
    }
    output = text.str();
    return CLI_OK;
}

} // namespace CORVANE_CLI
