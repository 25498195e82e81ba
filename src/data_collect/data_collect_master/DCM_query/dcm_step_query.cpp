#include "data_collect/data_collect_master/DCM_query/dcm_step_query.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>

#include "data_collect/data_collect_master/DCM_query/dcm_query.h"
#include "data_collect/data_collect_master/dcm_name_maps.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"

namespace {

void StoreResult(uint32_t *result, uint32_t value) noexcept
{
    std::atomic_ref<uint32_t>(*result).store(value);
}

void *FreeContext(void *context) noexcept
{
    g_corvaneInfra.memFree(context);
    return nullptr;
}

/** Starts the thread of one slice; the thread frees the context. */
bool StartSlice(StepQueryTaskContext *context) noexcept
{
    const CorvaneThreadParam param = {.priority = 0, .joinable = 0, .entryArg = context, .callbackArg = context};
    return g_corvaneInfra.threadCreate(StepQueryMessageAndSaveTask, FreeContext, param) != 0;
}

} // namespace

extern "C" CORVANE_API void *StepQueryMessageAndSaveTask(void *context) noexcept
{
    const auto *slice = static_cast<const StepQueryTaskContext *>(context);
    const uint32_t ret = QueryMessageAndSave(slice->messageType, slice->agent, slice->devices, slice->count);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM",
                    "Agent(%s) QueryMessageAndSave(message:%s) Failed(ret:%d)(offset:%d)(step:%d).",
                    BoundedText<sizeof(slice->agent->name)>(slice->agent->name).Get(),
                    g_queryMethodNameMap[slice->messageType].name, ret, slice->offset, slice->count);
        StoreResult(slice->result, ret);
    }
    // From here on the caller may be gone, and with it the result, the agent and the devices.
    g_corvaneInfra.sem2Up(slice->sem);
    return nullptr;
}

extern "C" CORVANE_API uint32_t StepQueryMessageAndSave(uint32_t type, const AgentInfo *agent,
                                                        DiskBriefInfo **deviceList, uint32_t deviceCount) noexcept
{
    if (type >= MESSAGE_TYPE_BUTT || agent == nullptr || (deviceList == nullptr && deviceCount > 0) ||
        g_queryMessageStepMap[type] == 0) {
        return DCM_ERR_BAD_INPUT;
    }
    const uint32_t step = g_queryMessageStepMap[type];
    const double threads = std::ceil(static_cast<double>(deviceCount) / step);
    if (threads > std::numeric_limits<uint8_t>::max()) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Calculated number of StepQueryThread even more than UINT8_MAX(num:%f).",
                    threads);
        return DCM_ERR_BAD_INPUT;
    }
    const BoundedText<sizeof(agent->name)> name(agent->name);
    const auto threadCount = static_cast<uint32_t>(threads);
    void *sem = g_corvaneInfra.semCreate(threadCount);
    if (sem == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Step query Agent(%s) create Sem Fail.", name.Get());
        return DCM_ERR_NO_MEMORY;
    }
    uint32_t result = DCM_OK;
    for (uint32_t offset = 0; offset < deviceCount; offset += step) {
        InfraPtr<StepQueryTaskContext> context = InfraNew<StepQueryTaskContext>();
        if (context == nullptr) {
            CORVANE_LOG(CORVANE_LOG_ERROR, "DCM",
                        "Agent(%s) QueryMessageAndSave(message:%s) malloc context Failed(offset:%d)(step:%d).",
                        name.Get(), g_queryMethodNameMap[type].name, offset, step);
            StoreResult(&result, DCM_ERR_NO_MEMORY);
            continue;
        }
        *context = {.result = &result,
                    .messageType = type,
                    .agent = agent,
                    .devices = deviceList + offset,
                    .count = std::min(step, deviceCount - offset),
                    .offset = offset,
                    .sem = sem};
        g_corvaneInfra.sem2Down(sem);
        if (StartSlice(context.get())) {
            (void)context.release(); // the thread owns it now
            continue;
        }
        g_corvaneInfra.sem2Up(sem);
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "StepQueryMessageAndSave Create WorkerThread failed.");
        StoreResult(&result, DCM_ERR_NO_MEMORY);
    }
    // Each slice's thread gives its unit back at its end: all units taken means that all threads are through.
    for (uint32_t i = 0; i < threadCount; i++) {
        g_corvaneInfra.sem2Down(sem);
    }
    g_corvaneInfra.semDestroy(sem);
    return std::atomic_ref<uint32_t>(result).load();
}
