#include "data_collect/data_collect_master/DCM_listener/dcm_hot_plug.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <pthread.h>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

#include "bounded/bounded.h"
#include "data_collect/data_collect_master/DCM_query/dcm_request.h"
#include "data_collect/data_collect_master/dcm_transport.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"
#include "infrastructure/corvane_task_scheduler/corvane_task_scheduler.h"

uint8_t g_isShutDown = 1;
uint8_t g_isThreadCreate = 0;
void *g_HotPlugLock = nullptr;

DcmEventPrefix g_eventPrefix[HOT_PLUG_FIELD_BUTT] = {
    {"ACTION=", 7},
    {"DEVPATH=", 8},
    {"SUBSYSTEM=", 10},
};

namespace {

constexpr size_t kFieldSize = 80;
constexpr size_t kEventBufferSize = 8192;
/** Shorter messages hold no event. */
constexpr uint32_t kMinMessage = 9;
constexpr uint32_t kThreadShift = 16;

constexpr uint32_t kFirstDelayMs = 100;
constexpr uint32_t kDriverTries = 600;
/** Seconds. A device that is not on its driver at once is being repaired by hand: there is no hurry. */
constexpr unsigned int kDriverPause = 100;
/** Room for the driver's folder and an address; longer ones are no address of a device. */
constexpr size_t kDriverPathSize = 282;

using EventFields = std::array<std::array<char, kFieldSize>, HOT_PLUG_FIELD_BUTT>;

/** A task's context with an agent of its own: the listener's may be gone before the task is done. */
struct NvmeDiskOnTask {
    DcmNvmeDiskOnContext context;
    AgentInfo agent;
};

LockToken g_flagToken;

/** The handle of the lock: users may look for it while the init publishes it. */
std::atomic_ref<void *> Lock() noexcept
{
    return std::atomic_ref<void *>(g_HotPlugLock);
}

bool Ready() noexcept
{
    return Lock().load(std::memory_order_acquire) != nullptr;
}

std::atomic_ref<uint8_t> ShutDown() noexcept
{
    return std::atomic_ref<uint8_t>(g_isShutDown);
}

/** An address no other socket of the host has, in all groups of events. */
sockaddr_nl ListenerAddress() noexcept
{
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_pid =
        static_cast<uint32_t>(static_cast<uint64_t>(getpid()) | static_cast<uint64_t>(pthread_self()) << kThreadShift);
    address.nl_groups = UINT32_MAX;
    return address;
}

/** Receives one message. @return its length, or -1 with errno. */
ssize_t ReceiveEvent(int fd, std::array<char, kEventBufferSize> &buffer) noexcept
{
    // The kernel writes the sender here; the address that the socket is bound to is kept apart from it.
    sockaddr_nl sender = {};
    iovec vector = {.iov_base = buffer.data(), .iov_len = buffer.size()};
    msghdr message = {};
    message.msg_name = &sender;
    message.msg_namelen = sizeof(sender);
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    return g_osCalls.recvmsg(fd, &message, 0);
}

/** Closes what failed, which is nothing at the first time, and opens anew. @return the descriptor, or -1. */
int Reopen(int fd) noexcept
{
    if (g_osCalls.close(fd) != 0) {
        const int error = errno;
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "close sockopt error: %d - %s", error, ErrorText(error).Get());
    }
    sockaddr_nl address = ListenerAddress();
    return GetSysHotPlugEventSocketFd(&address);
}

/** Reads events until the socket cannot be had any more. */
void Listen(AgentInfo *agent) noexcept
{
    std::array<char, kEventBufferSize> buffer;
    int fd = -1; // the first pass fails on it and opens the socket
    for (;;) {
        if (memset_s(buffer.data(), buffer.size(), 0, buffer.size()) != 0) {
            CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", " HotPlugSocketListerHandler memset fail");
            continue;
        }
        const ssize_t length = ReceiveEvent(fd, buffer);
        if (length < 0) {
            const int error = errno;
            CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "recvmsg error: %d - %s", error, ErrorText(error).Get());
            fd = Reopen(fd);
            if (fd < 0) {
                return;
            }
            continue;
        }
        if (ShutDown().load() == 1) {
            CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", " HotPlugSocketListerHandler get msg,but not parse");
            continue;
        }
        HandleSysHotPlugEventMsg(agent, buffer.data(), static_cast<uint32_t>(length));
    }
}

/** Takes the three fields from a message. @return false if one is missing or too long. */
bool ParseEvent(char *buffer, uint32_t length, EventFields &fields) noexcept
{
    for (uint32_t i = 0; i < HOT_PLUG_FIELD_BUTT; i++) {
        const char *found = FindPrefixInBuffer(g_eventPrefix[i].prefix, buffer, length);
        if (found == nullptr) {
            return false;
        }
        const char *value = found + g_eventPrefix[i].length;
        const size_t valueLength = strnlen(value, static_cast<size_t>(buffer + length - value));
        if (snprintf_s(fields[i].data(), kFieldSize, kFieldSize - 1, "%.*s", static_cast<int>(valueLength), value) <
            0) {
            CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "HandleSysHotPlugEventMsg parse fail");
            return false;
        }
    }
    return true;
}

/** The PCI address in the path of an NVMe device, which is cut; null if it has none. */
const char *PciAddressOf(char *devicePath) noexcept
{
    char *device = std::strstr(devicePath, "/nvme");
    if (device == nullptr) {
        return nullptr;
    }
    *device = '\0';
    const char *slash = std::strrchr(devicePath, '/');
    return slash != nullptr ? slash + 1 : nullptr;
}

} // namespace

uint32_t InitHotPlugLock(void) noexcept
{
    if (Ready()) {
        return DCM_ERR_ALREADY;
    }
    void *lock = g_corvaneInfra.spinlockCreate();
    if (lock == nullptr) {
        return DCM_ERR_NO_MEMORY;
    }
    Lock().store(lock, std::memory_order_release);
    return DCM_OK;
}

uint32_t CreateAndStartListenerThread(AgentInfo agent) noexcept
{
    InfraPtr<AgentInfo> copy = InfraNew<AgentInfo>();
    if (copy == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "malloc context failed.");
        return DCM_ERR_NO_MEMORY;
    }
    *copy = agent;
    const CorvaneThreadParam param = {.priority = 0, .joinable = 0, .entryArg = copy.get(), .callbackArg = nullptr};
    if (g_corvaneInfra.threadCreate(HotPlugSocketListerHandler, nullptr, param) == 0) {
        return DCM_ERR_NO_MEMORY;
    }
    (void)copy.release(); // the thread frees it
    return DCM_OK;
}

uint32_t StartHotPlugListener(AgentInfo agent) noexcept
{
    if (!Ready()) {
        return DCM_ERR_NOT_INIT;
    }
    const SpinGuard guard(g_HotPlugLock, g_flagToken);
    if (ShutDown().load() != 1) {
        return DCM_ERR_ALREADY;
    }
    ShutDown().store(0);
    if (g_isThreadCreate != 0) {
        return DCM_OK;
    }
    if (CreateAndStartListenerThread(agent) != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "StartHotPlugListener Create Timer failed.");
        ShutDown().store(1);
        return DCM_ERR_NOT_INIT;
    }
    g_isThreadCreate = 1;
    return DCM_OK;
}

uint32_t StopHotPlugListener(AgentInfo) noexcept
{
    if (!Ready()) {
        return DCM_OK; // nothing was ever started
    }
    const SpinGuard guard(g_HotPlugLock, g_flagToken);
    ShutDown().store(1);
    return DCM_OK;
}

int GetSysHotPlugEventSocketFd(struct sockaddr_nl *address) noexcept
{
    const int fd = g_osCalls.socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    if (fd < 0) {
        const int error = errno;
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "socket error: %d - %s", error, ErrorText(error).Get());
        return -1;
    }
    int receiveBuffer = 0;
    socklen_t size = sizeof(receiveBuffer);
    if (g_osCalls.getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, &size) != 0) {
        const int error = errno;
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "getsockopt error: %d - %s", error, ErrorText(error).Get());
        (void)g_osCalls.close(fd);
        return -1;
    }
    CORVANE_LOG(CORVANE_LOG_INFO, "DCM", "Hot plug socket receive buffer size: %d", receiveBuffer);
    if (g_osCalls.bind(fd, reinterpret_cast<const sockaddr *>(address), sizeof(*address)) != 0) {
        const int error = errno;
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "bind error: %d - %s", error, ErrorText(error).Get());
        (void)g_osCalls.close(fd);
        return -1;
    }
    return fd;
}

void *HotPlugSocketListerHandler(void *agent) noexcept
{
    CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", " HotPlugSocketListerHandler thread start");
    const InfraPtr<AgentInfo> copy(static_cast<AgentInfo *>(agent));
    Listen(copy.get());
    CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", " Get Sys Hot Plug Event Socket Fd fail, close thread");
    const SpinGuard guard(g_HotPlugLock, g_flagToken);
    ShutDown().store(1);
    g_isThreadCreate = 0;
    return nullptr;
}

char *FindPrefixInBuffer(const char *prefix, char *buffer, uint32_t length) noexcept
{
    if (prefix == nullptr || buffer == nullptr) {
        return nullptr;
    }
    const std::string_view text(buffer, length);
    const size_t place = text.find(prefix);
    return place != std::string_view::npos && place + std::strlen(prefix) < length ? buffer + place : nullptr;
}

void HandleSysHotPlugEventMsg(AgentInfo *agent, char *buffer, uint32_t length) noexcept
{
    CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "Handle Sys Event Msg start");
    if (buffer == nullptr || length <= kMinMessage) {
        return;
    }
    EventFields fields{};
    if (!ParseEvent(buffer, length, fields)) {
        return;
    }
    const char *action = fields[HOT_PLUG_ACTION].data();
    const char *subsystem = fields[HOT_PLUG_SUBSYSTEM].data();
    if (std::strcmp(action, "add") != 0 || std::strcmp(subsystem, "nvme") != 0) {
        return;
    }
    const char *pciAddress = PciAddressOf(fields[HOT_PLUG_DEVPATH].data());
    if (pciAddress == nullptr) {
        return;
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "find nvme add msg, action=%s,pci=%s,sys=%s", action, pciAddress, subsystem);
    CreateTaskForNotifyAgentNvmeDiskOn(agent, pciAddress);
}

void CreateTaskForNotifyAgentNvmeDiskOn(AgentInfo *agent, const char *pciAddress) noexcept
{
    InfraPtr<NvmeDiskOnTask> task = InfraNew<NvmeDiskOnTask>();
    if (task == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "malloc for task context fail");
        return;
    }
    if (agent == nullptr || strcpy_s(task->context.pciAddr, sizeof(task->context.pciAddr), pciAddress) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "copy pci fail");
        return;
    }
    task->agent = *agent;
    task->context.agent = &task->agent;
    const ScheduleTask description = {
        .name = task->context.pciAddr,
        .forever = 0,
        .repeatCount = 1,
        .firstDelayMs = kFirstDelayMs,
        .periodMs = 0,
        .entry = NotifyAgentNvmeDiskOnTaskFunc,
        .entryArg = task.get(),
        .callback = g_corvaneInfra.memFree,
        .callbackArg = task.get(),
    };
    const uint32_t ret = SubmitScheduleTask(description);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_INFO, "DCM", "create task fail,ret = %d", ret);
        return;
    }
    (void)task.release(); // its callback frees it
    CORVANE_LOG(CORVANE_LOG_INFO, "DCM", "create task to rebind pci %s", pciAddress);
}

void *NotifyAgentNvmeDiskOnTaskFunc(void *context) noexcept
{
    auto *disk = static_cast<DcmNvmeDiskOnContext *>(context);
    for (uint32_t i = 0; i < kDriverTries; i++) {
        if (IsDiskOnNvmeDriver(disk->pciAddr)) {
            SendRebindPciAddrToAgent(disk->agent, disk->pciAddr);
            return nullptr;
        }
        (void)g_osCalls.sleep(kDriverPause);
    }
    CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Failed to detect nvme device,pci=%s", disk->pciAddr);
    return nullptr;
}

bool IsDiskOnNvmeDriver(const char *pciAddress) noexcept
{
    std::array<char, kDriverPathSize> path{};
    if (pciAddress == nullptr ||
        snprintf_s(path.data(), path.size(), path.size() - 1, "%s/%s", "/sys/bus/pci/drivers/nvme/", pciAddress) < 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Failed to build nvme device path");
        return false;
    }
    return g_osCalls.access(path.data(), F_OK) == 0;
}

void SendRebindPciAddrToAgent(AgentInfo *agent, const char *pciAddress) noexcept
{
    const CJsonPtr request(MakeRebindPciAddrCJson(pciAddress));
    if (request == nullptr) {
        return;
    }
    const CJsonPtr answer(PostRequestWithJSON(agent, request.get()));
}
