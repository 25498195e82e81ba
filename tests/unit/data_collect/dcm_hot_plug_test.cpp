#include "data_collect/data_collect_master/DCM_listener/dcm_hot_plug.h"

#include <cerrno>
#include <cstring>
#include <functional>
#include <pthread.h>
#include <sys/socket.h>

#include "data_collect/data_collect_master/DCM_query/dcm_request.h"
#include "data_collect/data_collect_master/dcm_transport.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/corvane_task_scheduler/corvane_task_scheduler.h"
#include "unit/data_collect/dcm_agent.h"

using ::testing::ElementsAre;

namespace {

constexpr uint32_t kError = 3;
constexpr uint32_t kInfo = 6;
constexpr uint32_t kDebug = 7;
constexpr int kSocket = 4711;
const std::string kPath = "/devices/pci0000:00/0000:00:1d.0/0000:3d:00.0/nvme/nvme0";

struct WantedThread {
    CorvaneThreadFunc entry;
    CorvaneThreadFunc callback;
    CorvaneThreadParam param;
};

/** What a call on the listener's socket gives: a message, or an error number. */
struct Received {
    std::string message;
    int error = 0;
    std::function<void()> before = {};
};

/** State of the doubles; one test runs at a time. */
struct Host {
    std::vector<WantedThread> threads;
    bool noThread = false;
    bool noMemory = false;
    size_t live = 0;
    std::vector<Received> script;
    std::vector<std::string> calls;
    int sockets = 1; ///< how many can be had
    int socketOptionError = 0;
    int bindError = 0;
    sockaddr_nl bound{};
    socklen_t boundLength = 0;
    std::vector<std::string> looked;
    size_t driverAfter = SIZE_MAX; ///< looks until the driver has the device
    std::vector<unsigned int> sleeps;
    void *(*realAlloc)(uint64_t) = nullptr;
    void (*realFree)(void *) = nullptr;
};
Host *g_host = nullptr;

void *HostAlloc(uint64_t size)
{
    if (g_host->noMemory) {
        return nullptr;
    }
    g_host->live++;
    return g_host->realAlloc(size);
}

void HostFree(void *memory)
{
    if (memory != nullptr) {
        g_host->live--;
    }
    g_host->realFree(memory);
}

uint64_t NoteThread(CorvaneThreadFunc entry, CorvaneThreadFunc callback, CorvaneThreadParam param)
{
    if (g_host->noThread) {
        return 0;
    }
    g_host->threads.push_back({entry, callback, param});
    return g_host->threads.size();
}

int Fail(int error)
{
    errno = error;
    return -1;
}

ssize_t ScriptedReceive(int fd, msghdr *message, int flags)
{
    g_host->calls.push_back("recvmsg " + std::to_string(fd));
    EXPECT_EQ(flags, 0);
    EXPECT_EQ(message->msg_iovlen, 1u);
    EXPECT_EQ(message->msg_iov->iov_len, 8192u);
    const auto *buffer = static_cast<const char *>(message->msg_iov->iov_base);
    EXPECT_EQ(std::string(buffer, 8192), std::string(8192, '\0')) << "left over from the message before";
    EXPECT_EQ(message->msg_namelen, sizeof(sockaddr_nl));
    std::memset(message->msg_name, 0, sizeof(sockaddr_nl)); // the sender: the kernel
    if (fd < 0) {
        return Fail(EBADF);
    }
    if (g_host->script.empty()) {
        return Fail(ENOBUFS);
    }
    const Received next = g_host->script.front();
    g_host->script.erase(g_host->script.begin());
    if (next.before) {
        next.before();
    }
    if (next.error != 0) {
        return Fail(next.error);
    }
    std::memcpy(message->msg_iov->iov_base, next.message.data(), next.message.size());
    return static_cast<ssize_t>(next.message.size());
}

/** An event as the kernel sends it: a head line, then the fields. */
std::string Event(const std::string &action, const std::string &path, const std::string &subsystem)
{
    const char end = '\0';
    return action + "@" + path + end + "ACTION=" + action + end + "DEVPATH=" + path + end + "SUBSYSTEM=" + subsystem +
           end + "SEQNUM=42" + end;
}

class HotPlugTest : public CorvaneTest {
protected:
    HotPlugTest()
    {
        g_host = &host_;
        Forget();
        host_.realAlloc = g_corvaneInfra.memAlloc;
        host_.realFree = g_corvaneInfra.memFree;
        EXPECT_EQ(InitScheduleTask(), 0u);
        cJSON_Delete(MakeRebindPciAddrCJson("any")); // the process's counter of requests stays
        g_corvaneInfra.memAlloc = HostAlloc;
        g_corvaneInfra.memFree = HostFree;
        g_corvaneInfra.threadCreate = NoteThread;
        g_corvaneInfra.threadSleep = [](CorvaneTime) {};
        g_osCalls.socket = [](int domain, int type, int protocol) {
            g_host->calls.push_back("socket");
            EXPECT_EQ(domain, AF_NETLINK);
            EXPECT_EQ(type & ~SOCK_CLOEXEC, SOCK_DGRAM);
            EXPECT_EQ(protocol, 15);
            return g_host->sockets-- > 0 ? kSocket : Fail(EMFILE);
        };
        g_osCalls.getsockopt = [](int fd, int level, int name, void *value, socklen_t *) {
            EXPECT_EQ(fd, kSocket);
            EXPECT_EQ(level, SOL_SOCKET);
            EXPECT_EQ(name, SO_RCVBUF);
            *static_cast<int *>(value) = 212992;
            return g_host->socketOptionError == 0 ? 0 : Fail(g_host->socketOptionError);
        };
        g_osCalls.bind = [](int fd, const sockaddr *address, socklen_t length) {
            EXPECT_EQ(fd, kSocket);
            std::memcpy(&g_host->bound, address, sizeof(sockaddr_nl));
            g_host->boundLength = length;
            return g_host->bindError == 0 ? 0 : Fail(g_host->bindError);
        };
        g_osCalls.recvmsg = ScriptedReceive;
        g_osCalls.close = [](int fd) {
            g_host->calls.push_back("close " + std::to_string(fd));
            return fd < 0 ? Fail(EBADF) : 0;
        };
        g_osCalls.access = [](const char *path, int mode) {
            EXPECT_EQ(mode, F_OK);
            g_host->looked.emplace_back(path);
            return g_host->looked.size() > g_host->driverAfter ? 0 : Fail(ENOENT);
        };
        g_osCalls.sleep = [](unsigned int seconds) {
            g_host->sleeps.push_back(seconds);
            return 0u;
        };
    }
    ~HotPlugTest() override
    {
        host_.driverAfter = 0;
        host_.sockets = 0;
        g_osCalls.socket = [](int, int, int) { return Fail(EMFILE); };
        for (const WantedThread &thread : host_.threads) {
            (void)thread.entry(thread.param.entryArg);
            if (thread.callback != nullptr) {
                (void)thread.callback(thread.param.callbackArg);
            }
        }
        if (g_HotPlugLock != nullptr) {
            g_corvaneInfra.spinlockDestroy(g_HotPlugLock);
        }
        if (g_scheduleTaskSpinLock != nullptr) {
            g_corvaneInfra.memFree = host_.realFree;
            g_corvaneInfra.spinlockDestroy(g_scheduleTaskSpinLock);
        }
        EXPECT_EQ(host_.live, 0u) << "something was not given back";
        Forget();
        g_host = nullptr;
    }
    static void Forget()
    {
        g_isShutDown = 1;
        g_isThreadCreate = 0;
        g_HotPlugLock = nullptr;
        g_scheduleTaskSpinLock = nullptr;
        g_scheduleTaskList.next = nullptr;
    }
    void Handle(const std::string &message)
    {
        std::vector<char> exact(message.begin(), message.end()); // nothing behind it may be read
        HandleSysHotPlugEventMsg(&agent_, exact.data(), static_cast<uint32_t>(exact.size()));
    }
    /** PCI addresses of the tasks that wait. */
    static std::vector<std::string> Waiting()
    {
        std::vector<std::string> names;
        for (const ScheduleTaskNode *node = g_scheduleTaskList.next; node != nullptr; node = node->next) {
            names.emplace_back(node->task->name);
        }
        return names;
    }
    /** Runs the listener on this thread until the script is over and no socket can be had. */
    void Listen()
    {
        auto *copy = static_cast<AgentInfo *>(g_corvaneInfra.memAlloc(sizeof(AgentInfo)));
        *copy = agent_;
        EXPECT_EQ(HotPlugSocketListerHandler(copy), nullptr);
    }

    Host host_;
    AgentInfo agent_ = g_uniqueSpdkAgent;
};

class ListenerTest : public HotPlugTest {
protected:
    ListenerTest() { EXPECT_EQ(InitHotPlugLock(), 0u); }
};

using InitHotPlugLockTest = HotPlugTest;
using StartHotPlugListenerTest = ListenerTest;
using HotPlugSocketListerHandlerTest = ListenerTest;
using GetSysHotPlugEventSocketFdTest = HotPlugTest;
using FindPrefixInBufferTest = HotPlugTest;
using HandleSysHotPlugEventMsgTest = HotPlugTest;
using CreateTaskForNotifyAgentNvmeDiskOnTest = HotPlugTest;
using NotifyAgentNvmeDiskOnTaskFuncTest = HotPlugTest;
using IsDiskOnNvmeDriverTest = HotPlugTest;

} // namespace

TEST_F(InitHotPlugLockTest, MakesTheLockOnce)
{
    EXPECT_EQ(InitHotPlugLock(), 0u);
    void *lock = g_HotPlugLock;

    EXPECT_EQ(InitHotPlugLock(), 114u);

    EXPECT_NE(lock, nullptr);
    EXPECT_EQ(g_HotPlugLock, lock);
}

TEST_F(InitHotPlugLockTest, FailsWithoutMemory)
{
    g_corvaneInfra.spinlockCreate = []() -> void * { return nullptr; };

    EXPECT_EQ(InitHotPlugLock(), 12u);

    EXPECT_EQ(g_HotPlugLock, nullptr);
}

TEST_F(InitHotPlugLockTest, NothingListensBeforeIt)
{
    EXPECT_EQ(StartHotPlugListener(agent_), 11u);
    EXPECT_EQ(StopHotPlugListener(agent_), 0u);

    EXPECT_EQ(g_isShutDown, 1u);
    EXPECT_TRUE(host_.threads.empty());
}

TEST_F(StartHotPlugListenerTest, MakesOneThreadForAllStarts)
{
    EXPECT_EQ(StartHotPlugListener(agent_), 0u);
    EXPECT_EQ(g_isShutDown, 0u);
    EXPECT_EQ(g_isThreadCreate, 1u);
    ASSERT_EQ(host_.threads.size(), 1u);
    EXPECT_EQ(host_.threads[0].entry, HotPlugSocketListerHandler);
    EXPECT_EQ(host_.threads[0].callback, nullptr);
    EXPECT_EQ(host_.threads[0].param.joinable, 0u);
    EXPECT_TRUE(IsAgentEqual(static_cast<AgentInfo *>(host_.threads[0].param.entryArg), &agent_));

    EXPECT_EQ(StartHotPlugListener(agent_), 114u) << "it is listening";
    EXPECT_EQ(StopHotPlugListener(agent_), 0u);
    EXPECT_EQ(g_isShutDown, 1u);
    EXPECT_EQ(g_isThreadCreate, 1u);
    EXPECT_EQ(StartHotPlugListener(agent_), 0u) << "the thread goes on";

    EXPECT_EQ(g_isShutDown, 0u);
    EXPECT_EQ(host_.threads.size(), 1u);
}

TEST_F(StartHotPlugListenerTest, StaysStoppedWithoutAThread)
{
    host_.noThread = true;

    EXPECT_EQ(StartHotPlugListener(agent_), 11u);

    EXPECT_EQ(g_isShutDown, 1u);
    EXPECT_EQ(g_isThreadCreate, 0u);
    EXPECT_EQ(LogCount(kError, "DCM", "StartHotPlugListener Create Timer failed."), 1u);
    host_.noThread = false;
    EXPECT_EQ(StartHotPlugListener(agent_), 0u);
}

TEST_F(StartHotPlugListenerTest, StaysStoppedWithoutMemory)
{
    host_.noMemory = true;

    EXPECT_EQ(StartHotPlugListener(agent_), 11u);

    EXPECT_EQ(g_isShutDown, 1u);
    EXPECT_EQ(LogCount(kError, "DCM", "malloc context failed."), 1u);
    EXPECT_EQ(LogCount(kError, "DCM", "StartHotPlugListener Create Timer failed."), 1u);
    host_.noMemory = false;
}

TEST_F(HotPlugSocketListerHandlerTest, OpensItsSocketAfterTheFirstFailureAndHandlesEvents)
{
    ASSERT_EQ(StartHotPlugListener(agent_), 0u);
    host_.script = {{Event("add", kPath, "nvme")}, {""}};

    const WantedThread thread = host_.threads.front();
    host_.threads.clear();
    EXPECT_EQ(thread.entry(thread.param.entryArg), nullptr);

    EXPECT_THAT(host_.calls, ElementsAre("recvmsg -1", "close -1", "socket", "recvmsg 4711", "recvmsg 4711",
                                         "recvmsg 4711", "close 4711", "socket"));
    EXPECT_THAT(Waiting(), ElementsAre("0000:3d:00.0"));
    EXPECT_EQ(LogCount(kDebug, "DCM", " HotPlugSocketListerHandler thread start"), 1u);
    EXPECT_EQ(LogCount(kError, "DCM", "recvmsg error: 9 - Bad file descriptor"), 1u);
    EXPECT_EQ(LogCount(kError, "DCM", "close sockopt error: 9 - Bad file descriptor"), 1u);
    EXPECT_EQ(LogCount(kError, "DCM", "recvmsg error: 105 - No buffer space available"), 1u);
    EXPECT_EQ(LogCount(kError, "DCM", "socket error: 24 - Too many open files"), 1u);
    EXPECT_EQ(LogCount(kError, "DCM", " Get Sys Hot Plug Event Socket Fd fail, close thread"), 1u);
    EXPECT_EQ(g_isShutDown, 1u);
    EXPECT_EQ(g_isThreadCreate, 0u);
}

TEST_F(HotPlugSocketListerHandlerTest, StartsAnewAfterItsSocketIsLostForGood)
{
    ASSERT_EQ(StartHotPlugListener(agent_), 0u);
    host_.sockets = 0;
    const WantedThread thread = host_.threads.front();
    host_.threads.clear();
    (void)thread.entry(thread.param.entryArg);

    EXPECT_EQ(StartHotPlugListener(agent_), 0u);

    EXPECT_EQ(host_.threads.size(), 1u);
    EXPECT_EQ(g_isThreadCreate, 1u);
}

TEST_F(HotPlugSocketListerHandlerTest, BindsToAllGroupsUnderANumberOfItsOwnEachTime)
{
    host_.sockets = 2;
    host_.script = {{"", ENOBUFS, nullptr}};

    Listen();

    EXPECT_EQ(host_.boundLength, 12u);
    EXPECT_EQ(host_.bound.nl_family, AF_NETLINK);
    EXPECT_EQ(host_.bound.nl_pid,
              static_cast<uint32_t>(static_cast<uint64_t>(getpid()) | static_cast<uint64_t>(pthread_self()) << 16))
        << "the sender of a message must not take its place";
    EXPECT_EQ(host_.bound.nl_groups, UINT32_MAX);
    EXPECT_EQ(LogCount(kInfo, "DCM", "Hot plug socket receive buffer size: 212992"), 2u);
}

TEST_F(HotPlugSocketListerHandlerTest, DropsEventsWhileItIsStopped)
{
    host_.script = {{Event("add", kPath, "nvme")},
                    {Event("add", kPath, "nvme"), 0, [] { g_isShutDown = 0; }},
                    {Event("add", "/devices/pci0000:00/0000:00:1e.0/nvme/nvme1", "nvme"), 0, [] { g_isShutDown = 1; }}};

    Listen();

    EXPECT_EQ(LogCount(kDebug, "DCM", " HotPlugSocketListerHandler get msg,but not parse"), 2u);
    EXPECT_EQ(LogCount(kDebug, "DCM", "Handle Sys Event Msg start"), 1u);
    EXPECT_THAT(Waiting(), ElementsAre("0000:3d:00.0"));
}

TEST_F(GetSysHotPlugEventSocketFdTest, TellsWhatFailedAndClosesTheSocket)
{
    sockaddr_nl address{};
    host_.sockets = 3;
    host_.socketOptionError = EINVAL;
    EXPECT_EQ(GetSysHotPlugEventSocketFd(&address), -1);
    EXPECT_EQ(LogCount(kError, "DCM", "getsockopt error: 22 - Invalid argument"), 1u);

    host_.socketOptionError = 0;
    host_.bindError = EADDRINUSE;
    EXPECT_EQ(GetSysHotPlugEventSocketFd(&address), -1);
    EXPECT_EQ(LogCount(kError, "DCM", "bind error: 98 - Address already in use"), 1u);

    host_.bindError = 0;
    EXPECT_EQ(GetSysHotPlugEventSocketFd(&address), kSocket);
    EXPECT_EQ(GetSysHotPlugEventSocketFd(&address), -1);
    EXPECT_EQ(LogCount(kError, "DCM", "socket error: 24 - Too many open files"), 1u);
    EXPECT_THAT(host_.calls, ElementsAre("socket", "close 4711", "socket", "close 4711", "socket", "socket"));
}

TEST_F(FindPrefixInBufferTest, FindsTheFirstPlaceThatHasSomethingBehindIt)
{
    char text[] = "xA=1\0A=2";

    EXPECT_EQ(FindPrefixInBuffer("A=", text, 8), text + 1);
    EXPECT_EQ(FindPrefixInBuffer("A=", text, 4), text + 1);
    EXPECT_EQ(FindPrefixInBuffer("A=", text, 3), nullptr) << "nothing behind it";
    EXPECT_EQ(FindPrefixInBuffer("A=", text, 1), nullptr) << "shorter than the prefix";
    EXPECT_EQ(FindPrefixInBuffer("A=", text, 0), nullptr);
    EXPECT_EQ(FindPrefixInBuffer("A=2", text, 8), nullptr);
    EXPECT_EQ(FindPrefixInBuffer("A=2", text, 9), text + 5) << "terminators do not end the search";
    EXPECT_EQ(FindPrefixInBuffer("B", text, 8), nullptr);
    EXPECT_EQ(FindPrefixInBuffer(nullptr, text, 8), nullptr);
    EXPECT_EQ(FindPrefixInBuffer("A=", nullptr, 8), nullptr);
}

TEST_F(HandleSysHotPlugEventMsgTest, WaitsForTheDriverOfANewNvmeDisk)
{
    Handle(Event("add", kPath, "nvme"));

    EXPECT_THAT(Waiting(), ElementsAre("0000:3d:00.0"));
    EXPECT_EQ(LogCount(kDebug, "DCM", "Handle Sys Event Msg start"), 1u);
    EXPECT_EQ(LogCount(kDebug, "DCM", "find nvme add msg, action=add,pci=0000:3d:00.0,sys=nvme"), 1u);
}

TEST_F(HandleSysHotPlugEventMsgTest, CutsThePathAtItsFirstNvme)
{
    Handle(Event("add", "/devices/0000:01:00.0/nvme/nvme3/nvme3n1", "nvme"));

    EXPECT_THAT(Waiting(), ElementsAre("0000:01:00.0"));
}

TEST_F(HandleSysHotPlugEventMsgTest, ReadsALastFieldWithoutTerminator)
{
    std::string event = Event("add", kPath, "nvme");
    event.resize(event.find("nvme", event.find("SUBSYSTEM=")) + 4);

    Handle(event);

    EXPECT_THAT(Waiting(), ElementsAre("0000:3d:00.0"));
}

struct IgnoredCase {
    const char *name;
    std::string message;
    bool parseFails = false;
};

class IgnoredEventTest : public HotPlugTest, public ::testing::WithParamInterface<IgnoredCase> {};

TEST_P(IgnoredEventTest, StartsNothing)
{
    Handle(GetParam().message);

    EXPECT_TRUE(Waiting().empty());
    EXPECT_EQ(LogCount(kDebug, "DCM", "HandleSysHotPlugEventMsg parse fail"), GetParam().parseFails ? 1u : 0u);
    EXPECT_EQ(Logs().size(), GetParam().parseFails ? 2u : 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Events, IgnoredEventTest,
    ::testing::Values(IgnoredCase{"Remove", Event("remove", kPath, "nvme")},
                      IgnoredCase{"ActionBeginsWithAdd", Event("added", kPath, "nvme")},
                      IgnoredCase{"Block", Event("add", kPath + "/nvme0n1", "block")},
                      IgnoredCase{"SubsystemBeginsWithNvme", Event("add", kPath, "nvme-generic")},
                      IgnoredCase{"NoNvmeInThePath", Event("add", "/devices/pci0000:00/0000:00:1d.0", "nvme")},
                      IgnoredCase{"NothingBeforeNvme", Event("add", "/nvme/nvme0", "nvme")},
                      IgnoredCase{"NoAction", std::string("x@y\0DEVPATH=/a/nvme\0SUBSYSTEM=nvme\0", 34)},
                      IgnoredCase{"PathOf80", Event("add", "/devices/" + std::string(66, 'p') + "/nvme", "nvme"), true},
                      IgnoredCase{"NineBytes", "ACTION=ad"}),
    [](const auto &test) { return test.param.name; });

TEST_F(HandleSysHotPlugEventMsgTest, TakesAPathOf79Characters)
{
    Handle(Event("add", "/devices/" + std::string(65, 'p') + "/nvme", "nvme"));

    EXPECT_THAT(Waiting(), ElementsAre(std::string(65, 'p')));
}

TEST_F(HandleSysHotPlugEventMsgTest, IgnoresNoMessage)
{
    HandleSysHotPlugEventMsg(&agent_, nullptr, 100);

    EXPECT_EQ(Logs().size(), 1u);
}

TEST_F(CreateTaskForNotifyAgentNvmeDiskOnTest, SubmitsOneRunWithAnAgentOfItsOwn)
{
    {
        AgentInfo passing = agent_;
        CreateTaskForNotifyAgentNvmeDiskOn(&passing, "0000:01:00.0");
        std::memset(&passing, 0, sizeof(passing));
    }

    ASSERT_NE(g_scheduleTaskList.next, nullptr);
    const ScheduleTask &task = *g_scheduleTaskList.next->task;
    EXPECT_STREQ(task.name, "0000:01:00.0");
    EXPECT_NE(task.forever, 1u);
    EXPECT_EQ(task.repeatCount, 1u);
    EXPECT_EQ(task.firstDelayMs, 100u);
    EXPECT_EQ(task.periodMs, 0u);
    EXPECT_EQ(task.entry, NotifyAgentNvmeDiskOnTaskFunc);
    EXPECT_EQ(task.callback, HostFree);
    EXPECT_EQ(task.callbackArg, task.entryArg);
    const auto *context = static_cast<DcmNvmeDiskOnContext *>(task.entryArg);
    EXPECT_STREQ(context->pciAddr, "0000:01:00.0");
    EXPECT_TRUE(IsAgentEqual(context->agent, &agent_));
    EXPECT_EQ(LogCount(kInfo, "DCM", "create task to rebind pci 0000:01:00.0"), 1u);
}

TEST_F(CreateTaskForNotifyAgentNvmeDiskOnTest, RefusesADiskThatIsWaitedForAlready)
{
    CreateTaskForNotifyAgentNvmeDiskOn(&agent_, "0000:01:00.0");
    const size_t live = host_.live;

    CreateTaskForNotifyAgentNvmeDiskOn(&agent_, "0000:01:00.0");

    EXPECT_EQ(host_.live, live) << "the second context was given back";
    EXPECT_EQ(LogCount(kInfo, "DCM", "create task fail,ret = 114"), 1u);
    EXPECT_EQ(Waiting().size(), 1u);
}

TEST_F(CreateTaskForNotifyAgentNvmeDiskOnTest, RefusesAnAddressThatIsTooLong)
{
    CreateTaskForNotifyAgentNvmeDiskOn(&agent_, std::string(256, 'p').c_str());
    CreateTaskForNotifyAgentNvmeDiskOn(&agent_, nullptr);
    EXPECT_EQ(LogCount(kError, "DCM", "copy pci fail"), 2u);
    EXPECT_TRUE(Waiting().empty());

    CreateTaskForNotifyAgentNvmeDiskOn(&agent_, std::string(255, 'p').c_str());
    EXPECT_EQ(Waiting().size(), 1u);
}

TEST_F(CreateTaskForNotifyAgentNvmeDiskOnTest, FailsWithoutMemory)
{
    host_.noMemory = true;

    CreateTaskForNotifyAgentNvmeDiskOn(&agent_, "0000:01:00.0");

    EXPECT_EQ(LogCount(kError, "DCM", "malloc for task context fail"), 1u);
    EXPECT_TRUE(Waiting().empty());
    host_.noMemory = false;
}

TEST_F(NotifyAgentNvmeDiskOnTaskFuncTest, GivesUpAfter600Times100Seconds)
{
    DcmNvmeDiskOnContext context = {"0000:01:00.0", &agent_};

    EXPECT_EQ(NotifyAgentNvmeDiskOnTaskFunc(&context), nullptr);

    EXPECT_EQ(host_.looked.size(), 600u);
    EXPECT_EQ(host_.sleeps, std::vector<unsigned int>(600, 100));
    EXPECT_EQ(LogCount(kError, "DCM", "Failed to detect nvme device,pci=0000:01:00.0"), 1u);
    EXPECT_EQ(Logs().size(), 1u) << "nothing was sent";
}

TEST_F(NotifyAgentNvmeDiskOnTaskFuncTest, TellsTheAgentOnceTheDriverHasTheDisk)
{
    host_.driverAfter = 2;
    g_osCalls.socket = socket;
    std::vector<std::string> requests;
    {
        const dcm_test::TestAgent agent("spdk", Prefix().substr(0, 25) + "/s", [&](const dcm_test::Request &request) {
            requests.push_back(request.method + " " + request.params);
            return std::string("no json");
        });
        AgentInfo info = agent.Info();
        DcmNvmeDiskOnContext context = {"0000:01:00.0", &info};

        EXPECT_EQ(NotifyAgentNvmeDiskOnTaskFunc(&context), nullptr);
    }

    EXPECT_EQ(host_.looked.size(), 3u);
    EXPECT_EQ(host_.sleeps.size(), 2u);
    EXPECT_THAT(requests, ElementsAre(R"(dca_rebind_nvme2uio {"pci_address":"0000:01:00.0"})"));
}

TEST_F(IsDiskOnNvmeDriverTest, LooksForTheDeviceInTheDriversFolder)
{
    EXPECT_FALSE(IsDiskOnNvmeDriver("0000:01:00.0"));
    host_.driverAfter = 0;
    EXPECT_TRUE(IsDiskOnNvmeDriver("0000:01:00.0"));

    EXPECT_EQ(host_.looked, std::vector<std::string>(2, "/sys/bus/pci/drivers/nvme//0000:01:00.0"));
    EXPECT_TRUE(Logs().empty());
}

TEST_F(IsDiskOnNvmeDriverTest, RefusesAPathThatDoesNotFit)
{
    host_.driverAfter = 0;

    EXPECT_TRUE(IsDiskOnNvmeDriver(std::string(254, 'p').c_str()));
    EXPECT_FALSE(IsDiskOnNvmeDriver(std::string(255, 'p').c_str()));
    EXPECT_FALSE(IsDiskOnNvmeDriver(nullptr));

    EXPECT_EQ(LogCount(kError, "DCM", "Failed to build nvme device path"), 2u);
}
