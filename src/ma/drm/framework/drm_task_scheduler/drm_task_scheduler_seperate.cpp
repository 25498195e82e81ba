#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_seperate.h"

#include <array>
#include <atomic>
#include <cstring>

#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "ma/drm/framework/drm_thread.h"
#include "ma/drm/framework/utils/drm_log.h"
#include "ma/drm/framework_adapter_corvane/drm_event_center_adapter.h"

namespace {

constexpr uint32_t kGateFree = 1;

constexpr DrmBaseScheduleTaskItem kUnregistered = {DRM_INVALID, DRM_SCHEDULE_NONE, DRM_INVALID,
                                                   DRM_INVALID, nullptr,           nullptr};

/** What a worker is started with. */
struct WorkerData {
    uint32_t featureId;
    uint32_t nodeType;
};
static_assert(sizeof(WorkerData) == 8);

/** The tasks, usable from the load of the library on: a feature may be triggered before the scheduler starts. */
struct TaskTable {
    constexpr TaskTable() noexcept : rows{}
    {
        for (DrmSeperateSchedTask &task : rows) {
            task.base = kUnregistered;
            for (DrmSchedQueue &queue : task.queues) {
                queue.gate = kGateFree;
                queue.lock = DRM_SPINLOCK_FREE;
                queue.pending = {&queue.pending, &queue.pending};
            }
        }
    }
    std::array<DrmSeperateSchedTask, DRM_FEATURE_NUM> rows;
};

/** Guards of each task all but its queues. */
DrmSpinlock g_taskLock = DRM_SPINLOCK_FREE;
constinit TaskTable g_tasks;

std::atomic_ref<uint32_t> Gate(DrmSchedQueue &queue)
{
    return std::atomic_ref<uint32_t>(queue.gate);
}

bool IsValid(uint32_t featureId, uint32_t nodeType)
{
    return featureId < DRM_FEATURE_NUM && nodeType < DRM_ANALYSER_KINDS;
}

DrmSchedQueue &QueueOf(const WorkerData &worker)
{
    return g_tasks.rows[worker.featureId].queues[worker.nodeType];
}

/** A copy of everything but the queues; analysers and the other functions are called without the lock. */
struct Task {
    DrmBaseScheduleTaskItem base;
    void (*preprocessor)(uint32_t);
    bool (*demotingChecker)(void);
};

Task CopyTask(uint32_t featureId)
{
    const DrmSpinGuard guard(g_taskLock);
    const DrmSeperateSchedTask &task = g_tasks.rows[featureId];
    return {task.base, task.preprocessor, task.demotingChecker};
}

/** @return the task of a registered feature, or null. */
DrmSeperateSchedTask *FindTaskLocked(uint32_t featureId) CORVANE_REQUIRES(g_taskLock)
{
    if (featureId >= DRM_FEATURE_NUM) {
        return nullptr;
    }
    DrmSeperateSchedTask &task = g_tasks.rows[featureId];
    const bool registered = task.base.featureId == featureId && task.base.scheduleMode == DRM_SCHEDULE_SEPERATE;
    return registered ? &task : nullptr;
}

void ResetQueue(DrmSchedQueue &queue)
{
    const DrmSpinGuard guard(queue.lock);
    queue.running = 0;
    Gate(queue).store(kGateFree);
    DrmListInit(&queue.pending);
}

bool IsPendingLocked(DrmSchedQueue &queue, uint32_t code) CORVANE_REQUIRES(queue.lock)
{
    const auto hasCode = [code](const DrmSchedWorkItem &item) { return item.code == code; };
    return DrmListFind<DrmSchedWorkItem>(&queue.pending, hasCode) != nullptr;
}

bool AppendLocked(DrmSchedQueue &queue, uint32_t code) CORVANE_REQUIRES(queue.lock)
{
    // the name that an operator finds in the host's books is that of the operation
    void *memory = DrmMemMallocLv("DrmTriggerSeperateSchedAnalysis", __LINE__, sizeof(DrmSchedWorkItem));
    auto *item = static_cast<DrmSchedWorkItem *>(memory);
    if (item == nullptr) {
        return false;
    }
    item->code = code;
    DrmListAddTail(&queue.pending, &item->links);
    return true;
}

/**
 * Queues a run, unless one with this code waits, and starts a worker if there is none: also for a run that waits since
 * a start failed. @return false if there is no memory for the work item.
 */
bool QueueRun(WorkerData worker, uint32_t code)
{
    DrmSchedQueue &queue = QueueOf(worker);
    const DrmSpinGuard guard(queue.lock);
    if (!IsPendingLocked(queue, code) && !AppendLocked(queue, code)) {
        return false;
    }
    if (queue.running != 1 && DrmAsyncThreadCtxRun(0, DrmSeperateSchedAnalysis, &worker, sizeof(worker)) == DRM_OK) {
        queue.running = 1;
    }
    return true;
}

/** Lets one worker in. */
bool EnterGate(DrmSchedQueue &queue)
{
    if (Gate(queue).fetch_sub(1) == kGateFree) {
        return true;
    }
    Gate(queue).fetch_add(1);
    return false;
}

/**
 * Takes everything that waits, for the worker that is past the gate. If nothing waits the worker is let out, under the
 * same lock: whoever queues after that finds no worker and starts one.
 */
bool TakeBatchOrLeave(DrmSchedQueue &queue, DrmListHead *batch)
{
    const DrmSpinGuard guard(queue.lock);
    if (DrmListEmpty(&queue.pending)) {
        queue.running = 0;
        Gate(queue).fetch_add(1);
        return false;
    }
    DrmListMoveAll(&queue.pending, batch);
    return true;
}

void RunBatch(const WorkerData &worker, DrmListHead *batch)
{
    for (DrmSchedWorkItem *item : DrmListView<DrmSchedWorkItem>(batch)) {
        DrmListUnlink(&item->links);
        DrmExecSeperateSchedAnalysis(worker.featureId, worker.nodeType, item->code);
        DrmMemFreeLv("DrmSeperateSchedAnalysis", __LINE__, item, sizeof(*item));
    }
}

void PreprocessAll(uint32_t role)
{
    for (uint32_t featureId = 0; featureId < DRM_FEATURE_NUM; featureId++) {
        const Task task = CopyTask(featureId);
        if (task.preprocessor != nullptr) {
            task.preprocessor(role);
        }
    }
}

} // namespace

extern "C" {

uint32_t DrmTaskSeperateModeInit(void) noexcept
{
    for (DrmSeperateSchedTask &task : g_tasks.rows) {
        for (DrmSchedQueue &queue : task.queues) {
            ResetQueue(queue);
        }
        const DrmSpinGuard guard(g_taskLock);
        task.base = kUnregistered;
        task.preprocessor = nullptr;
        task.demotingChecker = nullptr;
    }
    return DRM_OK;
}

uint32_t DrmTaskSeperateModeFin(void) noexcept
{
    return DRM_OK;
}

uint32_t DrmRegisterSeperateSchedTask(DrmBaseScheduleTaskItem *task) noexcept
{
    if (task == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "task is NULL");
        return DRM_ERR_FAIL;
    }
    if (task->featureId >= DRM_FEATURE_NUM) {
        DRM_LOG(CORVANE_LOG_ERROR, "Invalid featureId(%u).", task->featureId);
        return DRM_ERR_FAIL;
    }
    const DrmSpinGuard guard(g_taskLock);
    g_tasks.rows[task->featureId].base = *task;
    return DRM_OK;
}

uint32_t DrmRegisterPreprocessor(uint32_t featureId, void (*preprocessor)(uint32_t)) noexcept
{
    const DrmSpinGuard guard(g_taskLock);
    DrmSeperateSchedTask *task = FindTaskLocked(featureId);
    if (task == nullptr || preprocessor == nullptr) {
        return DRM_ERR_FAIL;
    }
    task->preprocessor = preprocessor;
    return DRM_OK;
}

uint32_t DrmRegisterDemotingChecker(uint32_t featureId, bool (*checker)(void)) noexcept
{
    const DrmSpinGuard guard(g_taskLock);
    DrmSeperateSchedTask *task = FindTaskLocked(featureId);
    if (task == nullptr || checker == nullptr) {
        return DRM_ERR_FAIL;
    }
    task->demotingChecker = checker;
    return DRM_OK;
}

void DrmPromoteMasterPreProc(void) noexcept
{
    PreprocessAll(0);
}

void DrmDemoteSlavePreProc(void) noexcept
{
    PreprocessAll(1);
}

bool DrmCheckDemotingComplete(void) noexcept
{
    for (uint32_t featureId = 0; featureId < DRM_FEATURE_NUM; featureId++) {
        const Task task = CopyTask(featureId);
        if (task.demotingChecker != nullptr && !task.demotingChecker()) {
            return false;
        }
    }
    return true;
}

void DrmSeperateSchedTickHandler(uint32_t featureId, uint64_t tick) noexcept
{
    if (featureId >= DRM_FEATURE_NUM) {
        return;
    }
    const DrmBaseScheduleTaskItem base = CopyTask(featureId).base;
    if (base.masterCycle != 0 && base.masterCycle != DRM_INVALID && tick % base.masterCycle == 0) {
        (void)DrmTriggerSeperateSchedAnalysis(featureId, DRM_ANALYSER_MASTER, DRM_CODE_SCHEDULE);
    }
    // One tick behind the multiples. Without a cycle there is no run, not even at the first tick.
    if (base.localCycle != 0 && base.localCycle != DRM_INVALID && tick % base.localCycle == 1) {
        (void)DrmTriggerSeperateSchedAnalysis(featureId, DRM_ANALYSER_LOCAL, DRM_CODE_SCHEDULE);
    }
}

uint32_t DrmTriggerSeperateSchedAnalysis(uint32_t featureId, uint32_t nodeType, uint32_t code) noexcept
{
    if (!DrmCheckLocalNodeNormal() || !IsValid(featureId, nodeType)) {
        DRM_LOG_LIMITED(CORVANE_LOG_ERROR, kDrmLogWindow, kDrmLogReportInterval,
                        "Node is not in normal stat, skip schedule.");
        return DRM_ERR_FAIL;
    }
    if (!QueueRun({featureId, nodeType}, code)) {
        DRM_LOG_LIMITED(CORVANE_LOG_ERROR, kDrmLogWindow, kDrmLogReportInterval, "Alloc mem failed!.");
        return DRM_ERR_FAIL;
    }
    return DRM_OK;
}

void DrmSeperateSchedAnalysis(void *data, uint32_t dataLen) noexcept
{
    WorkerData worker = {};
    if (dataLen != sizeof(worker)) {
        DRM_LOG(CORVANE_LOG_ERROR, "BITE:Invlid dataLen %u compare with stuSize %u.", dataLen,
                static_cast<uint32_t>(sizeof(worker)));
        return;
    }
    if (data == nullptr) {
        return;
    }
    std::memcpy(&worker, data, sizeof(worker));
    if (!IsValid(worker.featureId, worker.nodeType)) {
        return;
    }
    DrmSchedQueue &queue = QueueOf(worker);
    if (!EnterGate(queue)) {
        return;
    }
    DrmListHead batch;
    while (TakeBatchOrLeave(queue, &batch)) {
        RunBatch(worker, &batch);
    }
}

void DrmExecSeperateSchedAnalysis(uint32_t featureId, uint32_t nodeType, uint32_t code) noexcept
{
    if (!IsValid(featureId, nodeType)) {
        return;
    }
    const DrmBaseScheduleTaskItem base = CopyTask(featureId).base;
    if (nodeType == DRM_ANALYSER_MASTER && base.masterAnalyser != nullptr) {
        (void)base.masterAnalyser(code >> 16, code);
    }
    if (nodeType == DRM_ANALYSER_LOCAL && base.localAnalyser != nullptr) {
        (void)base.localAnalyser(code);
    }
}

} // extern "C"
