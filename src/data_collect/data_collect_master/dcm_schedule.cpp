#include "data_collect/data_collect_master/dcm_schedule.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "data_collect/data_collect_master/DCM_query/dcm_array_list.h"
#include "data_collect/data_collect_master/DCM_query/dcm_query.h"
#include "data_collect/data_collect_master/DCM_query/dcm_save.h"
#include "data_collect/data_collect_master/DCM_query/dcm_step_query.h"
#include "data_collect/data_collect_master/dcm_name_maps.h"
#include "data_collect/data_collect_master/dcm_transport.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

uint32_t g_queryScheduledTaskConfigMap[MESSAGE_TYPE_BUTT] = {5000, 3600000, 3000, 3000};
void *g_uniqueAgentListSpinLock = nullptr;
void *g_enableScanAllAgentDeviceListScheduleTaskSpinLock = nullptr;
void *g_uniqueScanAllAgentDeviceListScheduleTaskRunningSpinLock = nullptr;
std::atomic<uint32_t> g_dcmInitiated{0};

namespace {

/** Pause of a worker whose I/O frames are overdue. */
constexpr uint32_t kOverdueSleepMs = 500;
/** Between two tries for a lock that may be held over network I/O for many seconds: spinning would take the core. */
constexpr uint32_t kLockRetryMs = 5;
constexpr double kMsPerSecond = 1000.0;

LockToken g_listToken;
LockToken g_enableToken;

AgentListNode *g_agentListHead CORVANE_GUARDED_BY(g_listToken) = nullptr;
/** The running flag of the scan that has not been cancelled; the scan's thread frees it. */
uint8_t *g_scanRunningFlag CORVANE_GUARDED_BY(g_enableToken) = nullptr;

void SleepMs(uint32_t ms) noexcept
{
    g_corvaneInfra.threadSleep({.value = ms, .timeUnit = CORVANE_TIME_MILLISECOND});
}

std::atomic_ref<uint8_t> Flag(uint8_t *flag) noexcept
{
    return std::atomic_ref<uint8_t>(*flag);
}

/** The handle of a lock: users may look for it while the init publishes it. */
std::atomic_ref<void *> Handle(void *&lock) noexcept
{
    return std::atomic_ref<void *>(lock);
}

void LockWithSleeps(void *lock) noexcept
{
    while (!g_corvaneInfra.spinlockTryLock(lock)) {
        SleepMs(kLockRetryMs);
    }
}

/** Holds the agent list's lock for a scope. */
class CORVANE_SCOPED_CAPABILITY AgentListGuard {
public:
    explicit AgentListGuard(LockToken &token) noexcept CORVANE_ACQUIRE(token)
    {
        (void)token;
        LockWithSleeps(g_uniqueAgentListSpinLock);
    }
    ~AgentListGuard() CORVANE_RELEASE() { g_corvaneInfra.spinlockUnlock(g_uniqueAgentListSpinLock); }
    AgentListGuard(const AgentListGuard &) = delete;
    AgentListGuard &operator=(const AgentListGuard &) = delete;
};

using AgentName = BoundedText<sizeof(AgentInfo::name)>;

bool AgentListReady() noexcept
{
    return Handle(g_uniqueAgentListSpinLock).load(std::memory_order_acquire) != nullptr;
}

bool ScanReady() noexcept
{
    return Handle(g_enableScanAllAgentDeviceListScheduleTaskSpinLock).load(std::memory_order_acquire) != nullptr;
}

void *FreeContext(void *context) noexcept
{
    g_corvaneInfra.memFree(context);
    return nullptr;
}

void *QueryAgentWorker(void *arg) noexcept
{
    auto *context = static_cast<QueryAgentTaskContext *>(arg);
    while (Flag(&context->cancelFlag).load() != 1) {
        QueryAgentScheduleTask(context);
    }
    return nullptr;
}

void *ScanWorker(void *arg) noexcept
{
    auto *running = static_cast<uint8_t *>(arg);
    void *lock = g_uniqueScanAllAgentDeviceListScheduleTaskRunningSpinLock;
    while (!g_corvaneInfra.spinlockTryLock(lock)) {
        if (Flag(running).load() == 0) {
            return nullptr; // cancelled before the scan ahead of it has left
        }
        SleepMs(kLockRetryMs);
    }
    while (Flag(running).load() != 0) {
        ScanAllAgentDeviceListScheduleTask();
        SleepMs(g_queryScheduledTaskConfigMap[MESSAGE_DISK_BRIEF_INFO]);
    }
    g_corvaneInfra.spinlockUnlock(lock);
    return nullptr;
}

/** Ends the worker of a node and forgets the agent. Setting the flag hands the context to the worker for good. */
void CancelNodeLocked(AgentListNode **link) noexcept CORVANE_REQUIRES(g_listToken)
{
    const InfraPtr<AgentListNode> node(*link);
    Flag(std::exchange(node->cancelFlag, nullptr)).store(1);
    *link = node->next;
    CORVANE_LOG(CORVANE_LOG_INFO, "DCM", "cancel query agent (%s)", AgentName(node->agent.name).Get());
}

/** @param[in] flag  Cancel the agent only while its worker has this flag; null: any. */
void CancelAgent(const AgentInfo &agent, const uint8_t *flag) noexcept
{
    const AgentListGuard guard(g_listToken);
    for (AgentListNode **link = &g_agentListHead; *link != nullptr; link = &(*link)->next) {
        const AgentListNode *node = *link;
        if (!IsAgentEqual(&node->agent, &agent)) {
            CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "assert mismatch agent(%s)with(%s).",
                        AgentName(node->agent.name).Get(), AgentName(agent.name).Get());
            continue;
        }
        if (flag == nullptr || flag == node->cancelFlag) {
            CancelNodeLocked(link);
        }
        return; // no two equal agents are in the list
    }
}

bool IsDue(uint32_t type, time_t last) noexcept
{
    const double elapsed = difftime(g_osCalls.time(nullptr), last);
    // A clock that was set back must not keep the disks unwatched until it has caught up.
    return elapsed < 0 || elapsed * kMsPerSecond >= g_queryScheduledTaskConfigMap[type];
}

void QueryDueMessages(QueryAgentTaskContext *context, DiskBriefInfo **devices, uint32_t count) noexcept
{
    for (const uint32_t type : {MESSAGE_DISK_BASE_INFO, MESSAGE_DISK_HEALTH_INFO, MESSAGE_DISK_IO_INFO_FRAME}) {
        if (!IsDue(type, context->last[type])) {
            continue;
        }
        const uint32_t ret = StepQueryMessageAndSave(type, &context->agent, devices, count);
        if (ret != DCM_OK) {
            CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "QueryMessageAndSave(%s) failed(%d).",
                        g_queryMethodNameMap[type].name, ret);
            continue; // the old time makes it due again in the next cycle
        }
        context->last[type] = g_osCalls.time(nullptr);
    }
}

/** The device lists of all agents, in list order; disks beyond the room are left out. */
uint32_t MergeDeviceLists(std::array<DiskBriefInfo *, DISK_ONLINE_MAX> &merged) noexcept
{
    uint32_t mergedCount = 0;
    const AgentListGuard guard(g_listToken);
    for (const AgentListNode *node = g_agentListHead; node != nullptr; node = node->next) {
        uint16_t count = 0;
        DiskBriefInfo **list = QueryDeviceList(&node->agent, &count);
        if (list == nullptr) {
            continue;
        }
        for (uint32_t i = 0; i < count && mergedCount < merged.size(); i++) {
            merged[mergedCount++] = std::exchange(list[i], nullptr);
        }
        FreeSeparateMemoryList(reinterpret_cast<void **>(list), count);
    }
    return mergedCount;
}

/** The record of a disk in an agent's list, null if the agent does not know it. @param[in] sn  Zero-filled. */
DiskBriefInfo *FindDisk(DiskBriefInfo **list, uint32_t count, const BoundedText<DISK_SN_SIZE> &sn,
                        uint32_t length) noexcept
{
    for (uint32_t i = 0; i < count; i++) {
        if (std::memcmp(list[i]->serialNumber, sn.Get(), length) == 0) {
            return list[i];
        }
        CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "assert [%s] not memcmp [%s]",
                    BoundedText<DISK_SN_SIZE>(list[i]->serialNumber).Get(), sn.Get());
    }
    return nullptr;
}

} // namespace

extern "C" CORVANE_API uint32_t InitDataCollectMaster(void) noexcept
{
    uint32_t expected = 0;
    if (!g_dcmInitiated.compare_exchange_strong(expected, 1)) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_WARN, "DCM", "DataCollectMaster Already Initiated.");
        return DCM_ERR_ALREADY;
    }
    void *listLock = g_corvaneInfra.spinlockCreate();
    if (listLock == nullptr) {
        g_dcmInitiated.store(0);
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DCM", "g_uniqueAgentListSpinLock Create Failed.");
        return DCM_ERR_NO_MEMORY;
    }
    void *enableLock = g_corvaneInfra.spinlockCreate();
    if (enableLock == nullptr) {
        g_corvaneInfra.spinlockDestroy(listLock);
        g_dcmInitiated.store(0);
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DCM",
                            "g_enableScanAllAgentDeviceListScheduleTaskSpinLock Create Failed.");
        return DCM_ERR_NO_MEMORY;
    }
    void *runningLock = g_corvaneInfra.spinlockCreate();
    if (runningLock == nullptr) {
        g_corvaneInfra.spinlockDestroy(enableLock);
        g_corvaneInfra.spinlockDestroy(listLock);
        g_dcmInitiated.store(0);
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DCM",
                            "g_uniqueScanAllAgentDeviceListScheduleTaskRunningSpinLock Create Failed.");
        return DCM_ERR_NO_MEMORY;
    }
    // Published once all three exist, so that nobody uses one that is taken back. The running lock goes first: the
    // scan's callers look at the other two only.
    Handle(g_uniqueScanAllAgentDeviceListScheduleTaskRunningSpinLock).store(runningLock, std::memory_order_release);
    Handle(g_enableScanAllAgentDeviceListScheduleTaskSpinLock).store(enableLock, std::memory_order_release);
    Handle(g_uniqueAgentListSpinLock).store(listLock, std::memory_order_release);
    return DCM_OK;
}

extern "C" CORVANE_API uint32_t UpdateUniqueAgentList(const AgentInfo *agent, uint8_t *cancelFlag) noexcept
{
    if (agent == nullptr || cancelFlag == nullptr) {
        return DCM_ERR_BAD_INPUT;
    }
    if (!AgentListReady()) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DCM", "Invoker are never Init DCM or init fail but no retry.");
        return DCM_ERR_NOT_INIT;
    }
    const AgentListGuard guard(g_listToken);
    for (const AgentListNode *node = g_agentListHead; node != nullptr; node = node->next) {
        if (IsAgentEqual(&node->agent, agent)) {
            CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Agent(%s) existed in queryTaskList", AgentName(agent->name).Get());
            return DCM_ERR_ALREADY;
        }
    }
    InfraPtr<AgentListNode> node = InfraNew<AgentListNode>();
    if (node == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "malloc AgentListNode failed");
        return DCM_ERR_NO_MEMORY;
    }
    *node = {.next = g_agentListHead, .agent = *agent, .cancelFlag = cancelFlag};
    g_agentListHead = node.release();
    return DCM_OK;
}

extern "C" CORVANE_API uint32_t SubmitQueryAgentScheduleTask(AgentInfo agent) noexcept
{
    if (!AgentListReady()) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DCM", "Invoker are never Init DCM or init fail but no retry.");
        return DCM_ERR_NOT_INIT;
    }
    InfraPtr<QueryAgentTaskContext> context = InfraNew<QueryAgentTaskContext>();
    if (context == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "malloc SubmitQueryAgentScheduleTask context failed.");
        return DCM_ERR_NO_MEMORY;
    }
    context->last[MESSAGE_DISK_BRIEF_INFO] = g_osCalls.time(nullptr);
    context->agent = agent;
    context->cancelFlag = 0;
    const uint32_t ret = UpdateUniqueAgentList(&agent, &context->cancelFlag);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Submit query agent schedule task failed(ret:%d).", ret);
        return ret;
    }
    const CorvaneThreadParam param = {
        .priority = 0, .joinable = 0, .entryArg = context.get(), .callbackArg = context.get()};
    if (g_corvaneInfra.threadCreate(QueryAgentWorker, FreeContext, param) == 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "SubmitQueryAgentScheduleTask Create TimerThread failed.");
        // Only this submission's entry: somebody may have cancelled it and submitted an equal agent meanwhile.
        CancelAgent(agent, &context->cancelFlag);
        return DCM_ERR_NO_MEMORY;
    }
    (void)context.release(); // the worker owns it now
    return DCM_OK;
}

extern "C" CORVANE_API uint32_t CancelQueryAgentScheduleTask(AgentInfo agent) noexcept
{
    if (!AgentListReady()) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DCM", "Invoker are never Init DCM or init fail but no retry.");
        return DCM_ERR_NOT_INIT;
    }
    CancelAgent(agent, nullptr);
    return DCM_OK;
}

extern "C" CORVANE_API uint32_t CancelAllQueryAgentScheduleTask(void) noexcept
{
    if (!AgentListReady()) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DCM", "Invoker are never Init DCM or init fail but no retry.");
        return DCM_ERR_NOT_INIT;
    }
    {
        const AgentListGuard guard(g_listToken);
        while (g_agentListHead != nullptr) {
            CancelNodeLocked(&g_agentListHead);
        }
    }
    return CancelScanAllAgentDeviceListScheduleTask();
}

extern "C" CORVANE_API uint32_t SubmitScanAllAgentDeviceListScheduleTask(void) noexcept
{
    if (!AgentListReady() || !ScanReady()) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DCM", "Invoker are never Init DCM or init fail but no retry.");
        return DCM_ERR_NOT_INIT;
    }
    const SpinGuard guard(g_enableScanAllAgentDeviceListScheduleTaskSpinLock, g_enableToken);
    if (g_scanRunningFlag != nullptr && Flag(g_scanRunningFlag).load() != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Global Scan All Agent ScheduleTask is Already Running.");
        return DCM_ERR_ALREADY;
    }
    InfraPtr<uint8_t> flag = InfraNew<uint8_t>();
    if (flag == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "SubmitScanAllAgentDeviceListScheduleTask malloc context failed.");
        return DCM_ERR_NO_MEMORY;
    }
    *flag = 1;
    const CorvaneThreadParam param = {.priority = 0, .joinable = 0, .entryArg = flag.get(), .callbackArg = flag.get()};
    if (g_corvaneInfra.threadCreate(ScanWorker, FreeContext, param) == 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "SubmitScanAllAgentDeviceListScheduleTask Create TimerThread failed.");
        return DCM_ERR_NO_MEMORY;
    }
    g_scanRunningFlag = flag.release(); // the thread frees it, and not before it is cleared
    return DCM_OK;
}

extern "C" CORVANE_API uint32_t CancelScanAllAgentDeviceListScheduleTask(void) noexcept
{
    if (!ScanReady()) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DCM", "Invoker are never Init DCM or init fail but no retry.");
        return DCM_ERR_NOT_INIT;
    }
    CORVANE_LOG(CORVANE_LOG_INFO, "DCM", "cancel scan all agent.");
    const SpinGuard guard(g_enableScanAllAgentDeviceListScheduleTaskSpinLock, g_enableToken);
    uint8_t *flag = std::exchange(g_scanRunningFlag, nullptr);
    if (flag == nullptr) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "ScanAllAgentDeviceListScheduleTask is already canceled.");
        return DCM_ERR_ALREADY;
    }
    Flag(flag).store(0); // from here on it is the thread's alone
    return DCM_OK;
}

extern "C" CORVANE_API void QueryAgentScheduleTaskSleepForIoStat(QueryAgentTaskContext *context) noexcept
{
    const double periodMs = g_queryScheduledTaskConfigMap[MESSAGE_DISK_IO_INFO_FRAME];
    // A clock that was set back must not turn into a sleep of that length.
    const double elapsed = std::max(0.0, difftime(g_osCalls.time(nullptr), context->last[MESSAGE_DISK_IO_INFO_FRAME]));
    uint32_t sleepMs = kOverdueSleepMs;
    if (elapsed * kMsPerSecond <= periodMs) {
        sleepMs = static_cast<uint32_t>(periodMs - elapsed * kMsPerSecond);
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "agent(%s) timer sleepMs(%d).", AgentName(context->agent.name).Get(),
                sleepMs);
    SleepMs(sleepMs);
}

extern "C" CORVANE_API void QueryAgentScheduleTask(QueryAgentTaskContext *context) noexcept
{
    uint16_t count = 0;
    DiskBriefInfo **devices = QueryDeviceList(&context->agent, &count);
    if (devices == nullptr) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "query Agent(%s) failed(%s).", AgentName(context->agent.name).Get(),
                    count != 0 ? "networkFail" : "emptyList");
        SleepMs(g_queryScheduledTaskConfigMap[MESSAGE_DISK_BRIEF_INFO]);
        return;
    }
    context->last[MESSAGE_DISK_BRIEF_INFO] = g_osCalls.time(nullptr);
    QueryDueMessages(context, devices, count);
    FreeSeparateMemoryList(reinterpret_cast<void **>(devices), count);
    QueryAgentScheduleTaskSleepForIoStat(context);
}

extern "C" CORVANE_API void ScanAllAgentDeviceListScheduleTask(void) noexcept
{
    std::array<DiskBriefInfo *, DISK_ONLINE_MAX> merged{};
    const uint32_t count = MergeDeviceLists(merged);
    // The list's lock is free again: the refresh takes it while it holds the store's.
    if (SaveDiskBriefInfo(merged.data(), count) != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "Flush SN list to MGR failed.");
    }
    for (uint32_t i = 0; i < count; i++) {
        g_corvaneInfra.memFree(merged[i]);
    }
}

extern "C" CORVANE_API uint32_t FetchDiskBaseInfo(DiskSnRef sn, DiskMgrObj *record) noexcept
{
    if (!AgentListReady()) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DCM", "Invoker are never Init DCM or init fail but no retry.");
        return DCM_ERR_NOT_INIT;
    }
    if (sn.buf == nullptr || record == nullptr) {
        return DCM_ERR_BAD_INPUT;
    }
    const uint32_t length = std::min(sn.len, DISK_SN_SIZE);
    const BoundedText<DISK_SN_SIZE> serial(sn.buf, length);
    const AgentListGuard guard(g_listToken);
    for (const AgentListNode *node = g_agentListHead; node != nullptr; node = node->next) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "try to match agent(%s).", AgentName(node->agent.name).Get());
        uint16_t count = 0;
        DiskBriefInfo **list = QueryDeviceList(&node->agent, &count);
        if (list == nullptr) {
            CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "query agent(%s) device list Failed.",
                        AgentName(node->agent.name).Get());
            continue;
        }
        DiskBriefInfo *disk = FindDisk(list, count, serial, length);
        const uint32_t ret =
            disk == nullptr ? DCM_ERR_NO_SUCH_DISK : FetchDiskBaseInfoFromAgent(&node->agent, disk, record);
        FreeSeparateMemoryList(reinterpret_cast<void **>(list), count);
        if (disk != nullptr) {
            return ret;
        }
    }
    return DCM_ERR_NO_SUCH_DISK;
}
