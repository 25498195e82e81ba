#include "infrastructure/corvane_task_scheduler/corvane_task_scheduler.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"

static_assert(SCHEDULE_TASK_ERR_NO_TASK == ENOENT && SCHEDULE_TASK_ERR_NOT_INIT == EAGAIN);
static_assert(SCHEDULE_TASK_ERR_NO_MEMORY == ENOMEM && SCHEDULE_TASK_ERR_BAD_TASK == EINVAL);
static_assert(SCHEDULE_TASK_ERR_EXISTS == EALREADY);

ScheduleTaskNode g_scheduleTaskList = {};
void *g_scheduleTaskSpinLock = nullptr;

namespace {

constexpr uint8_t kForever = 1;

LockToken g_listToken;

/** Copies of tasks that got no thread, linked by their callbackArg. */
ScheduleTask *g_unstartedTasks CORVANE_GUARDED_BY(g_listToken) = nullptr;

/** The handle of the lock: users may look for it while the init publishes it. */
std::atomic_ref<void *> Lock() noexcept
{
    return std::atomic_ref<void *>(g_scheduleTaskSpinLock);
}

bool Ready() noexcept
{
    return Lock().load(std::memory_order_acquire) != nullptr;
}

/** Set under the lock, read by the task's thread without it. */
std::atomic_ref<uint8_t> StopFlag(ScheduleTaskNode *node) noexcept
{
    return std::atomic_ref<uint8_t>(node->stop);
}

void SleepMs(uint32_t ms) noexcept
{
    g_corvaneInfra.threadSleep({.value = ms, .timeUnit = CORVANE_TIME_MILLISECOND});
}

bool IsRunnable(const ScheduleTask &task) noexcept
{
    return task.name != nullptr && task.entry != nullptr && task.name[0] != '\0' &&
           (task.forever == kForever || task.repeatCount != 0);
}

/** The link to the task of this name, or the null link at the tail. */
ScheduleTaskNode **FindLinkLocked(const char *name) noexcept CORVANE_REQUIRES(g_listToken)
{
    ScheduleTaskNode **link = &g_scheduleTaskList.next;
    while (*link != nullptr && std::strcmp((*link)->task->name, name) != 0) {
        link = &(*link)->next;
    }
    return link;
}

InfraPtr<char> CopyText(const char *text) noexcept
{
    const size_t size = std::strlen(text) + 1;
    InfraPtr<char> copy(static_cast<char *>(g_corvaneInfra.memAlloc(size)));
    if (copy != nullptr) {
        std::memcpy(copy.get(), text, size);
    }
    return copy;
}

/** A node with copies of its own of the task and the name; null without memory. */
InfraPtr<ScheduleTaskNode> MakeNode(const ScheduleTask &task) noexcept
{
    InfraPtr<ScheduleTask> copy = InfraNew<ScheduleTask>();
    if (copy == nullptr) {
        return nullptr;
    }
    InfraPtr<char> name = CopyText(task.name);
    if (name == nullptr) {
        return nullptr;
    }
    InfraPtr<ScheduleTaskNode> node = InfraNew<ScheduleTaskNode>();
    if (node == nullptr) {
        return nullptr;
    }
    *copy = task;
    copy->name = name.release();
    node->task = copy.release();
    return node;
}

uint32_t SubmitLocked(const ScheduleTask &task) noexcept CORVANE_REQUIRES(g_listToken)
{
    ScheduleTaskNode **link = FindLinkLocked(task.name);
    if (*link != nullptr) {
        return SCHEDULE_TASK_ERR_EXISTS;
    }
    InfraPtr<ScheduleTaskNode> node = MakeNode(task);
    if (node == nullptr) {
        return SCHEDULE_TASK_ERR_NO_MEMORY;
    }
    // Under the lock: the thread cannot look for its node before it is in the list.
    const CorvaneThreadParam param = {.priority = 0, .joinable = 0, .entryArg = node.get(), .callbackArg = node.get()};
    if (g_corvaneInfra.threadCreate(WarpedEntryFunc, warpedCallBackFunc, param) == 0) {
        // The node alone goes back, straight to the system. The copies are kept, where a leak checker finds them.
        node->task->callbackArg = std::exchange(g_unstartedTasks, node->task);
        std::free(node.release());
        return SCHEDULE_TASK_ERR_NO_MEMORY;
    }
    *link = node.release(); // its thread frees it
    CORVANE_LOG(CORVANE_LOG_DEBUG, "UTIL", "Task %s submit success.", (*link)->task->name);
    return 0;
}

} // namespace

uint32_t InitScheduleTask(void) noexcept
{
    if (Ready()) {
        CORVANE_LOG(CORVANE_LOG_WARN, "UTIL", "Schedule Task Util Already Initiated.");
        return 0;
    }
    void *lock = g_corvaneInfra.spinlockCreate();
    if (lock == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "UTIL", "g_scheduleTaskSpinLock SpinLock Create Failed.");
        return SCHEDULE_TASK_ERR_NO_MEMORY;
    }
    Lock().store(lock, std::memory_order_release);
    return 0;
}

uint32_t SubmitScheduleTask(ScheduleTask task) noexcept
{
    if (!IsRunnable(task)) {
        return SCHEDULE_TASK_ERR_BAD_TASK;
    }
    if (!Ready()) {
        return SCHEDULE_TASK_ERR_NOT_INIT;
    }
    const SpinGuard guard(g_scheduleTaskSpinLock, g_listToken);
    return SubmitLocked(task);
}

uint32_t CancelScheduleTask(const char *name) noexcept
{
    if (!Ready()) {
        return SCHEDULE_TASK_ERR_NOT_INIT;
    }
    if (name == nullptr) {
        return SCHEDULE_TASK_ERR_NO_TASK;
    }
    const SpinGuard guard(g_scheduleTaskSpinLock, g_listToken);
    ScheduleTaskNode *node = *FindLinkLocked(name);
    if (node == nullptr) {
        return SCHEDULE_TASK_ERR_NO_TASK;
    }
    StopFlag(node).store(1);
    return 0;
}

void StopAllScheduleTask(void) noexcept
{
    if (!Ready()) {
        return;
    }
    const SpinGuard guard(g_scheduleTaskSpinLock, g_listToken);
    for (ScheduleTaskNode *node = g_scheduleTaskList.next; node != nullptr; node = node->next) {
        StopFlag(node).store(1);
    }
}

uint32_t DestroyScheduleTask(void) noexcept
{
    StopAllScheduleTask();
    return 0;
}

uint32_t RemoveTaskNodeByName(const char *name) noexcept
{
    if (!Ready()) {
        return SCHEDULE_TASK_ERR_NOT_INIT;
    }
    if (name == nullptr) {
        return SCHEDULE_TASK_ERR_NO_TASK;
    }
    const SpinGuard guard(g_scheduleTaskSpinLock, g_listToken);
    ScheduleTaskNode **link = FindLinkLocked(name);
    if (*link == nullptr) {
        return SCHEDULE_TASK_ERR_NO_TASK;
    }
    *link = (*link)->next;
    return 0;
}

void *WarpedEntryFunc(void *node) noexcept
{
    auto *self = static_cast<ScheduleTaskNode *>(node);
    ScheduleTask *task = self->task;
    if (task->firstDelayMs != 0) {
        SleepMs(task->firstDelayMs);
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, "UTIL", "Task %s Start.", task->name);
    for (;;) {
        (void)task->entry(task->entryArg);
        if (task->forever != kForever && --task->repeatCount == 0) {
            StopFlag(self).store(1);
        }
        if (StopFlag(self).load() != 0) {
            break;
        }
        SleepMs(task->periodMs);
    }
    const uint32_t ret = RemoveTaskNodeByName(task->name);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "UTIL", "Remove Task Node from list Failed, ret = (%d).", ret);
    }
    return nullptr;
}

void *warpedCallBackFunc(void *node) noexcept
{
    const InfraPtr<ScheduleTaskNode> self(static_cast<ScheduleTaskNode *>(node));
    const InfraPtr<ScheduleTask> task(self->task);
    const InfraPtr<char> name(const_cast<char *>(task->name));
    if (task->callback != nullptr) {
        task->callback(task->callbackArg);
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, "UTIL", "Task %s end.", name.get());
    return nullptr;
}
