// What a changed setting puts to work. The linker takes these for the functions of the same name without "__wrap_".
#include "cmd_test_support.h"
#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_routine.h"
#include "ma/drm/feature/slow_disk_detecter/slow_disk_detecter.h"

namespace {

uint32_t Called(const std::string &call, const std::string &values = "")
{
    CmdDoubles::calls.push_back(values.empty() ? call : call + " " + values);
    const auto result = CmdDoubles::results.find(call);
    return result == CmdDoubles::results.end() ? 0 : result->second;
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier)
#define DOUBLE_OF(name)                                                                                                \
    uint32_t __wrap_##name()                                                                                           \
    {                                                                                                                  \
        return Called(#name);                                                                                          \
    }
#define SILENT_DOUBLE_OF(name)                                                                                         \
    void __wrap_##name()                                                                                               \
    {                                                                                                                  \
        (void)Called(#name);                                                                                           \
    }

extern "C" {

SILENT_DOUBLE_OF(DataMgrEnable)
SILENT_DOUBLE_OF(DataMgrDisable)
SILENT_DOUBLE_OF(StartQueryAgentScheduleTask)
DOUBLE_OF(CancelAllQueryAgentScheduleTask)
DOUBLE_OF(StartDmmSync2DmaScheduleTask)
DOUBLE_OF(CancelDmmSync2DmaScheduleTask)
DOUBLE_OF(StartConfigBackUpTask)
SILENT_DOUBLE_OF(StopConfigBackUpTask)

uint32_t __wrap_DrmSetSwitch(uint8_t on)
{
    return Called("DrmSetSwitch", std::to_string(on));
}

void __wrap_TakeOverDiskSwitch(bool on)
{
    (void)Called("TakeOverDiskSwitch", std::to_string(static_cast<int>(on)));
}

uint32_t __wrap_DrmDprSetSwitchConfig(void *config)
{
    uint32_t words[2];
    std::memcpy(words, config, sizeof(words));
    if (CmdDoubles::settingsAreNotSaved) {
        RefuseSaves();
    }
    return Called("DrmDprSetSwitchConfig", std::to_string(words[0]) + " " + std::to_string(words[1]));
}

uint32_t __wrap_DrmDprSetCycleConfig(void *config)
{
    uint32_t words[3];
    std::memcpy(words, config, sizeof(words));
    return Called("DrmDprSetCycleConfig",
                  std::to_string(words[0]) + " " + std::to_string(words[1]) + " " + std::to_string(words[2]));
}

uint32_t __wrap_DrmSetClassicalSlowDiskDetectV2Switch(uint8_t on)
{
    return Called("DrmSetClassicalSlowDiskDetectV2Switch", std::to_string(on));
}

uint32_t __real_DrmConfigClassicalSlowDiskDetectV2(ClassicalSlowDiskDetectV2Config *config);
uint32_t __wrap_DrmConfigClassicalSlowDiskDetectV2(ClassicalSlowDiskDetectV2Config *config)
{
    const uint32_t result = Called("DrmConfigClassicalSlowDiskDetectV2",
                                   std::to_string(config->diskType) + " " + std::to_string(config->minThresholdValue) +
                                       " " + std::to_string(config->minSlowCycle));
    return result != 0 ? result : __real_DrmConfigClassicalSlowDiskDetectV2(config);
}

void __wrap_SetDiskLifeMonitorSchedulerCycle(uint32_t seconds)
{
    (void)Called("SetDiskLifeMonitorSchedulerCycle", std::to_string(seconds));
}

uint32_t __real_ListAllOnlineDisk(uint32_t *ids, DiskSnRef *sns, uint32_t capacity, uint32_t *count);
uint32_t __wrap_ListAllOnlineDisk(uint32_t *ids, DiskSnRef *sns, uint32_t capacity, uint32_t *count)
{
    for (uint32_t i = 0; i < capacity; i++) {
        EXPECT_EQ(sns[i].len, 41u);
    }
    const uint32_t result = __real_ListAllOnlineDisk(ids, sns, capacity, count);
    if (CmdDoubles::listCount != 0) {
        *count = CmdDoubles::listCount;
    }
    return CmdDoubles::listResult != 0 ? CmdDoubles::listResult : result;
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
