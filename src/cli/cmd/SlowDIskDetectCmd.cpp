#include "cli/cmd/SlowDIskDetectCmd.h"

#include <iomanip>
#include <sstream>

#include "cli/cmd/DiskClass.h"
#include "cli/common/CLogger.h"
#include "cli/common/CliResultCode.h"
#include "config/corvane_config.h"
#include "infrastructure/common/corvane_raii.h"

namespace CORVANE_CLI {

namespace {

constexpr const char *kThresholdKey = "min_threshold_value";
constexpr const char *kCycleKey = "min_slow_cycle";
constexpr int kThresholdMin = 1;
constexpr int kThresholdMaxHdd = 500;
constexpr int kThresholdMax = 10;
constexpr int kCycleMin = 10;
constexpr int kCycleMax = 100;
constexpr int kValueWidth = 5;

} // namespace

SlowDiskDetectCmd::SlowDiskDetectCmd()
{
    Init();
}

void SlowDiskDetectCmd::Init()
{
    m_handlers[kThresholdKey] = [this](ClassicalSlowDiskDetectV2Config *record, const std::string &node, int value) {
        return SetMinThresholdValue(record, node, value);
    };
    m_handlers[kCycleKey] = [this](ClassicalSlowDiskDetectV2Config *record, const std::string &node, int value) {
        return SetMinSlowCycle(record, node, value);
    };
}

int SlowDiskDetectCmd::Exec(std::string param, std::string &output)
{
    (void)ParseParam(param);
    const std::string action = GetAction();
    int result = CLI_COMMAND_FORMAT_ERROR;
    if (action == "change" && m_params.contains("disk_type") &&
        (m_params.contains(kThresholdKey) || m_params.contains(kCycleKey))) {
        result = SetSlowDiskDetectParam(output);
    } else if (action == "show") {
        result = ShowSlowDiskDetectParam(output);
    } else {
        CLI_LOG_ERROR("CLI_COMMAND_FORMAT_ERROR 0x%x.", static_cast<unsigned int>(CLI_COMMAND_FORMAT_ERROR));
    }
    if (result == CLI_OK) {
        m_params.clear();
    }
    return result;
}

int SlowDiskDetectCmd::SetSlowDiskDetectParam(std::string &output)
{
    for (const auto &[key, handler] : m_handlers) {
        const auto param = m_params.find(key);
        if (param == m_params.end()) {
            continue;
        }
        const int result = ChangeSlowDiskDetectParam(key, param->second, handler);
        output = "change config " + key + (result == CLI_OK ? " successfully\n" : " failed\n");
        return result == CLI_FAIL ? CLI_COMMAND_EXEC_FAILED : result;
    }
    return CLI_COMMAND_FORMAT_ERROR;
}

int SlowDiskDetectCmd::GetDiskTypeFromParam(int &type)
{
    std::string &text = m_params["disk_type"];
    if (!IsStringFormatCorrect(text)) {
        return CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID;
    }
    type = std::stoi(text);
    if (type >= kDiskClasses) {
        CLI_LOG_ERROR("%s:CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID 0x%x.", "disk_type",
                      static_cast<unsigned int>(CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID));
        return CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID;
    }
    return CLI_OK;
}

int SlowDiskDetectCmd::ChangeSlowDiskDetectParam(const std::string &key, std::string valueText, const Handler &handler)
{
    int type = 0;
    const int typeResult = GetDiskTypeFromParam(type);
    if (typeResult != CLI_OK) {
        return typeResult;
    }
    if (!IsStringFormatCorrect(valueText)) {
        return CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID;
    }
    const int value = std::stoi(valueText);
    const char *node = g_diskTypeConfigNames[type];

    uint32_t oldValue = 0;
    if (GetChildNodeConfigInt(node, key.c_str(), &oldValue) != 0) {
        CLI_LOG_ERROR("get config %s %s:%d failed", node, key.c_str(), static_cast<int>(oldValue));
        return CLI_FAIL;
    }
    if (value == static_cast<int>(oldValue)) {
        CLI_LOG_INFO("config %s:%d is same", key.c_str(), value);
        return CLI_OK;
    }
    const MallocPtr<ClassicalSlowDiskDetectV2Config> record = MallocNew<ClassicalSlowDiskDetectV2Config>();
    if (record == nullptr) {
        return CLI_FAIL;
    }
    if (InitSlowDiskDetectConfigValue(record.get(), type) != CLI_OK) {
        return CLI_FAIL;
    }
    // The feature checks the value, so it changes first.
    const int result = handler(record.get(), node, value);
    if (result != CLI_OK) {
        return result;
    }
    if (SetChildNodeConfigInt(node, key.c_str(), value) != 0) {
        CLI_LOG_ERROR("change config %s:%d failed", key.c_str(), value);
        (void)handler(record.get(), node, static_cast<int>(oldValue));
        return CLI_FAIL;
    }
    return CLI_OK;
}

int SlowDiskDetectCmd::InitSlowDiskDetectConfigValue(ClassicalSlowDiskDetectV2Config *record, int type)
{
    const char *node = g_diskTypeConfigNames[type];
    uint32_t threshold = 0;
    if (GetChildNodeConfigInt(node, kThresholdKey, &threshold) != 0) {
        CLI_LOG_ERROR("get config %s:%u failed", kThresholdKey, threshold);
        return CLI_FAIL;
    }
    uint32_t cycle = 0;
    if (GetChildNodeConfigInt(node, kCycleKey, &cycle) != 0) {
        CLI_LOG_ERROR("get config %s:%u failed", kCycleKey, cycle);
        return CLI_FAIL;
    }
    record->diskType = static_cast<uint32_t>(type);
    record->minThresholdValue = static_cast<uint8_t>(threshold); // the low 8 bits
    record->minSlowCycle = static_cast<uint8_t>(cycle);
    return CLI_OK;
}

int SlowDiskDetectCmd::SetMinThresholdValue(ClassicalSlowDiskDetectV2Config *record, const std::string &nodeName,
                                            int value)
{
    const int max = nodeName == g_diskTypeConfigNames[kDiskClassHdd] ? kThresholdMaxHdd : kThresholdMax;
    if (value < kThresholdMin || value > max) {
        CLI_LOG_ERROR("%s:CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID 0x%x.", kThresholdKey,
                      static_cast<unsigned int>(CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID));
        return CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID;
    }
    record->minThresholdValue = static_cast<uint8_t>(value); // the low 8 bits
    const uint32_t result = DrmConfigClassicalSlowDiskDetectV2(record);
    if (result != 0) {
        CLI_LOG_ERROR("set %s min threshold value failed, ret:%d.", nodeName.c_str(), static_cast<int>(result));
        return CLI_FAIL;
    }
    return CLI_OK;
}

int SlowDiskDetectCmd::SetMinSlowCycle(ClassicalSlowDiskDetectV2Config *record, const std::string &nodeName, int value)
{
    if (value < kCycleMin || value > kCycleMax) {
        CLI_LOG_ERROR("%s:CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID 0x%x.", kCycleKey,
                      static_cast<unsigned int>(CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID));
        return CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID;
    }
    record->minSlowCycle = static_cast<uint8_t>(value);
    const uint32_t result = DrmConfigClassicalSlowDiskDetectV2(record);
    if (result != 0) {
        CLI_LOG_ERROR("set %s min slow cycle failed, ret:%d.", nodeName.c_str(), static_cast<int>(result));
        return CLI_FAIL;
    }
    return CLI_OK;
}

int SlowDiskDetectCmd::ShowSlowDiskDetectParam(std::string &output)
{
    std::stringstream text;
    for (const char *node : g_diskTypeConfigNames) {
        uint32_t threshold = 0;
        uint32_t cycle = 0;
        if (GetChildNodeConfigInt(node, kThresholdKey, &threshold) != 0 ||
            GetChildNodeConfigInt(node, kCycleKey, &cycle) != 0) {
            CLI_LOG_ERROR("get %s config %s:%u %s:%u failed", node, kThresholdKey, threshold, kCycleKey, cycle);
            output.clear();
            return CLI_FAIL;
        }
        text << std::left << std::setw(kDiskClassNodeWidth) << node << ": " << kThresholdKey << "="
             << std::setw(kValueWidth) << threshold << "  " << kCycleKey << "=" << std::setw(kValueWidth) << cycle
             << "\n";
    }
    output = text.str();
    return CLI_OK;
}

} // namespace CORVANE_CLI
