#include "data_mgr/data_mgr_master/data_mgr_master_rpc.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "infrastructure/common/corvane_raii.h"
#include "support/corvane_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr uint32_t kFail = 0xFFFFFFFF;
constexpr const char *kModule = "DATA_MGR_MASTER";

class DataMgrMasterRpcTest : public CorvaneTest {
protected:
    DataMgrMasterRpcTest()
    {
        // No agent: the request is seen in the log, and nothing leaves the process.
        g_osCalls.socket = [](int, int, int) {
            errno = EMFILE;
            return -1;
        };
        DropHandles();
    }
    ~DataMgrMasterRpcTest() override { DropHandles(); }

    static void DropHandles()
    {
        if (g_dataMgrRpcLock != nullptr) {
            g_corvaneInfra.spinlockDestroy(g_dataMgrRpcLock);
            g_dataMgrRpcLock = nullptr;
        }
        if (g_dataMgrRpcIdAtomic != nullptr) {
            g_corvaneInfra.atomicDestroy(g_dataMgrRpcIdAtomic);
            g_dataMgrRpcIdAtomic = nullptr;
        }
    }
    static std::vector<std::string> Requests()
    {
        const std::string mark = "reqJsonStr = ";
        std::vector<std::string> requests;
        for (const LogLine &line : Logs()) {
            if (line.level == 7 && line.module == kModule && line.text.rfind(mark, 0) == 0) {
                requests.push_back(line.text.substr(mark.size()));
            }
        }
        return requests;
    }
    DiskSnRef Sn() { return {4, sn_}; }

    char sn_[40] = "SN-A";
    uint32_t state_ = DISK_STATE_SLOW;
    char strategy_[40] = "replace it";
};

class CJsonOutOfMemory {
public:
    explicit CJsonOutOfMemory(int count)
    {
        left_ = count;
        cJSON_Hooks hooks{[](size_t size) -> void * { return left_-- > 0 ? std::malloc(size) : nullptr; }, std::free};
        cJSON_InitHooks(&hooks);
    }
    ~CJsonOutOfMemory() { cJSON_InitHooks(nullptr); }
    CJsonOutOfMemory(const CJsonOutOfMemory &) = delete;
    CJsonOutOfMemory &operator=(const CJsonOutOfMemory &) = delete;

private:
    static inline int left_ = 0;
};

using DataMgrMasterSendRpcMsg2AgentTest = DataMgrMasterRpcTest;

} // namespace

TEST_F(DataMgrMasterSendRpcMsg2AgentTest, PrintsEachMessageExactly)
{
    DiskMgrObj obj{};
    obj.diskState = DISK_STATE_FAULT;
    obj.diskCapacity = 960197124096;
    std::memcpy(obj.vendor, "0123456789", 10); // full: no terminator
    std::strcpy(obj.model, "M1");
    std::strcpy(obj.deviceName, "sda");
    obj.diskType = DISK_TYPE_HDD_SAS;

    EXPECT_EQ(DataMgrMasterSendRpcMsg2Agent(0, Sn(), &obj), 22u);
    EXPECT_EQ(DataMgrMasterSendRpcMsg2Agent(1, Sn(), &state_), 22u);
    EXPECT_EQ(DataMgrMasterSendRpcMsg2Agent(2, Sn(), strategy_), 22u);
    EXPECT_EQ(DataMgrMasterSendRpcMsg2Agent(3, Sn(), nullptr), 22u);

    EXPECT_THAT(
        Requests(),
        ElementsAre("{\"jsonrpc\":\"2.0\",\"method\":\"dma_set_disk_info_inner\",\"id\":2,\"params\":{\"sn\":\"SN-A\","
                    "\"disk_state\":1,\"disk_capacity\":960197124096,\"vendor\":\"0123456789\",\"model\":\"M1\","
                    "\"device_name\":\"sda\",\"disk_type\":3}}",
                    "{\"jsonrpc\":\"2.0\",\"method\":\"dma_set_disk_state\",\"id\":3,\"params\":{\"sn\":\"SN-A\","
                    "\"disk_state\":4}}",
                    "{\"jsonrpc\":\"2.0\",\"method\":\"dma_set_disk_handle_strategy\",\"id\":4,\"params\":{"
                    "\"sn\":\"SN-A\",\"disk_handle_strategy\":\"replace it\"}}",
                    "{\"jsonrpc\":\"2.0\",\"method\":\"dma_poweroff_disk\",\"id\":5,\"params\":{\"sn\":\"SN-A\"}}"));
    EXPECT_EQ(LogCount(3, kModule, "RPC request post failed. ret = 22"), 4u);
}

TEST_F(DataMgrMasterSendRpcMsg2AgentTest, RefusesMessageType4BeforeTheLockIsMade)
{
    EXPECT_EQ(DataMgrMasterSendRpcMsg2Agent(4, Sn(), nullptr), kFail);

    EXPECT_TRUE(Logged(3, kModule, "RPC msgType error, msgType=4."));
    EXPECT_EQ(g_dataMgrRpcLock, nullptr);
    EXPECT_EQ(g_dataMgrRpcIdAtomic, nullptr);
}

TEST_F(DataMgrMasterSendRpcMsg2AgentTest, WrapsTheIdentifierTo1)
{
    g_dataMgrRpcIdAtomic = g_corvaneInfra.atomicCreate(65533);

    (void)DataMgrMasterSendRpcMsg2Agent(3, Sn(), nullptr);
    (void)DataMgrMasterSendRpcMsg2Agent(3, Sn(), nullptr);

    const std::vector<std::string> requests = Requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_NE(requests[0].find("\"id\":65535,"), std::string::npos);
    EXPECT_NE(requests[1].find("\"id\":1,"), std::string::npos);
}

TEST_F(DataMgrMasterSendRpcMsg2AgentTest, FailsInTheBuilderWithoutData)
{
    EXPECT_EQ(DataMgrMasterSendRpcMsg2Agent(0, Sn(), nullptr), kFail);
    EXPECT_EQ(DataMgrMasterSendRpcMsg2Agent(1, Sn(), nullptr), kFail);
    EXPECT_EQ(DataMgrMasterSendRpcMsg2Agent(2, Sn(), nullptr), kFail);

    EXPECT_THAT(Requests(), IsEmpty());
    EXPECT_TRUE(Logged(3, kModule, "RPC diskHealthInfoInner params is NULL"));
    EXPECT_TRUE(Logged(3, kModule, "RPC diskState params is NULL"));
    EXPECT_TRUE(Logged(3, kModule, "RPC diskHandleStrategy params is NULL"));
    EXPECT_EQ(LogCount(3, kModule, "RPC params add disk info failed."), 3u);
    EXPECT_TRUE(Logged(3, kModule, "RPC msg add params failed. msgType = 1, sn = SN-A"));
    EXPECT_EQ(LogCount(3, kModule, "Construct Json param failed! ret = -1"), 3u);
    EXPECT_TRUE(g_corvaneInfra.spinlockTryLock(g_dataMgrRpcLock)) << "left locked";
    g_corvaneInfra.spinlockUnlock(g_dataMgrRpcLock);
}

TEST_F(DataMgrMasterSendRpcMsg2AgentTest, TakesAtMost40CharactersOfASerialNumber)
{
    const std::unique_ptr<char[]> sn(new char[40]);
    std::memset(sn.get(), 'S', 40);

    (void)DataMgrMasterSendRpcMsg2Agent(3, {40, sn.get()}, nullptr);

    ASSERT_EQ(Requests().size(), 1u);
    EXPECT_NE(Requests()[0].find("\"sn\":\"" + std::string(40, 'S') + "\""), std::string::npos);
}

TEST_F(DataMgrMasterSendRpcMsg2AgentTest, FailsWithoutASerialNumber)
{
    EXPECT_EQ(DataMgrMasterSendRpcMsg2Agent(3, {0, nullptr}, nullptr), kFail);

    EXPECT_TRUE(Logged(3, kModule, "RPC params add sn failed. sn = "));
}

TEST_F(DataMgrMasterSendRpcMsg2AgentTest, FailsCleanlyAtEveryAllocationOfTheRequest)
{
    int limit = 0;
    for (;; limit++) {
        const CJsonOutOfMemory memory(limit);
        const uint32_t result = DataMgrMasterSendRpcMsg2Agent(1, Sn(), &state_);
        if (result == 22) {
            break;
        }
        ASSERT_EQ(result, kFail) << limit;
    }

    EXPECT_GT(limit, 10);
    EXPECT_EQ(Requests().size(), 1u);
    EXPECT_TRUE(Logged(3, kModule, "RPC msg construct base request failed. method is dma_set_disk_state"));
    EXPECT_TRUE(Logged(3, kModule, "RPC params create failed."));
    EXPECT_TRUE(Logged(3, kModule, "RPC params add sn failed. sn = SN-A"));
    EXPECT_TRUE(Logged(3, kModule, "RPC params add disk info failed."));
    EXPECT_TRUE(Logged(3, kModule, "RPC add params to request failed."));
    EXPECT_TRUE(Logged(3, kModule, "RPC create Unformatted reqJsonStr failed!"));
}

TEST_F(DataMgrMasterSendRpcMsg2AgentTest, FailsWithoutMemoryForTheAnswer)
{
    (void)DataMgrMasterSendRpcMsg2Agent(3, Sn(), nullptr); // makes the handles
    static uint64_t asked;
    asked = 0;
    g_corvaneInfra.memAlloc = [](uint64_t size) -> void * {
        asked = size;
        return nullptr;
    };

    EXPECT_EQ(DataMgrMasterSendRpcMsg2Agent(3, Sn(), nullptr), kFail);

    EXPECT_EQ(asked, 8193u);
    EXPECT_TRUE(Logged(3, kModule, "RPC rspJsonStr malloc failed!"));
}

TEST_F(DataMgrMasterSendRpcMsg2AgentTest, MakesItsLockOnceForManyThreads)
{
    static std::atomic<int> alive;
    static void *(*realCreate)();
    static void (*realDestroy)(void *);
    alive = 0;
    realCreate = g_corvaneInfra.spinlockCreate;
    realDestroy = g_corvaneInfra.spinlockDestroy;
    g_corvaneInfra.spinlockCreate = []() {
        alive++;
        return realCreate();
    };
    g_corvaneInfra.spinlockDestroy = [](void *lock) {
        alive--;
        realDestroy(lock);
    };
    {
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; i++) {
            threads.emplace_back([this] { (void)DataMgrMasterSendRpcMsg2Agent(3, Sn(), nullptr); });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
    }

    EXPECT_EQ(alive, 1);
    EXPECT_EQ(g_corvaneInfra.atomicGet(g_dataMgrRpcIdAtomic), 8u);
}

TEST_F(DataMgrMasterSendRpcMsg2AgentTest, ReachesTheDataAgentAndIgnoresWhatItAnswers)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "mounting needs root";
    }
    const pid_t child = fork();
    if (child == 0) {
        // The agent's path is fixed; this child has a folder of its own there.
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", "/var/tmp", "tmpfs", 0, "size=64k") != 0) {
            std::perror("private /var/tmp");
            _exit(1);
        }
        g_osCalls.socket = socket;
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, "/var/tmp/spdk.sock");
        const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(listener, 1), 0);
        std::string received;
        std::thread agent([&] {
            const int peer = accept(listener, nullptr, nullptr);
            char buffer[1024];
            const ssize_t size = recv(peer, buffer, sizeof(buffer), 0);
            received.assign(buffer, size > 0 ? static_cast<size_t>(size) : 0);
            (void)send(peer, "no json", 7, MSG_NOSIGNAL);
            (void)close(peer);
        });

        EXPECT_EQ(DataMgrMasterSendRpcMsg2Agent(3, Sn(), nullptr), 0u);

        agent.join();
        EXPECT_EQ(received,
                  "{\"jsonrpc\":\"2.0\",\"method\":\"dma_poweroff_disk\",\"id\":2,\"params\":{\"sn\":\"SN-A\"}}");
        _exit(HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}
