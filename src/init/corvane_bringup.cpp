#include "init/corvane_bringup.h"

#include "config/corvane_config.h"
#include "data_collect/data_collect_master/dcm_schedule.h"
#include "data_collect/data_collect_master/dcm_transport.h"
#include "infrastructure/common/corvane_log.h"

namespace {

constexpr uint32_t kSwitchOn = 1;
constexpr uint32_t kSwitchUnknown = 2;

void CancelSpdkAgent() noexcept
{
    const uint32_t result = CancelQueryAgentScheduleTask(g_uniqueSpdkAgent);
    CORVANE_LOG(CORVANE_LOG_WARN, "DCM", "Cancel Query UsrAgent ScheduleTask(ret:%d).", static_cast<int>(result));
}

} // namespace

extern "C" CORVANE_API void StartQueryAgentScheduleTask(void) noexcept
{
    uint32_t featureSwitch = kSwitchUnknown;
    if (GetConfigSwitchVal("feature_switch", &featureSwitch) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "INIT", "get feature switch config failed");
        return;
    }
    if (featureSwitch != kSwitchOn) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "INIT", "feature switch is off, no need start query agent task");
        return;
    }

    uint32_t result = SubmitQueryAgentScheduleTask(g_uniqueSpdkAgent);
    if (result != 0) {
        CORVANE_LOG(CORVANE_LOG_WARN, "DCM", "Submit Query UsrAgent ScheduleTask failed(ret:%d).",
                    static_cast<int>(result));
        return;
    }
    result = SubmitQueryAgentScheduleTask(g_uniqueDcakAgent);
    if (result != 0) {
        CORVANE_LOG(CORVANE_LOG_WARN, "DCM", "Submit Query KernelAgent ScheduleTask failed(ret:%d).",
                    static_cast<int>(result));
        CancelSpdkAgent();
        return;
    }
    result = SubmitScanAllAgentDeviceListScheduleTask();
    if (result != 0) {
        CORVANE_LOG(CORVANE_LOG_WARN, "DCM", "Submit Scan All Agent ScheduleTask failed(ret:%d).",
                    static_cast<int>(result));
        CancelSpdkAgent();
        result = CancelQueryAgentScheduleTask(g_uniqueDcakAgent);
        CORVANE_LOG(CORVANE_LOG_WARN, "DCM", "Cancel Query KernelAgent ScheduleTask(ret:%d).",
                    static_cast<int>(result));
    }
}
