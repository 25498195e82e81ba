#include "drm_abi.h"
#include "host_fixture.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <linux/netlink.h>
#include <sstream>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char *kTag = "[DCM]";

class HotPlugTest : public HostTest {
protected:
    void SetUp() override
    {
        StartQuiet();
        spdk_ = std::make_unique<FakeAgent>(kSpdkSocket);
        ClearHostLines();
    }

    /** Let the process see a kernel whose driver has these devices. */
    static void CoverDrivers(const std::vector<std::string> &devices)
    {
        ASSERT_EQ(mount("tmpfs", "/sys/bus/pci/drivers", "tmpfs", 0, nullptr), 0) << std::strerror(errno);
        std::filesystem::create_directory("/sys/bus/pci/drivers/nvme");
        for (const std::string &device : devices) {
            std::filesystem::create_directory("/sys/bus/pci/drivers/nvme/" + device);
        }
    }

    static std::string Event(const std::string &action, const std::string &path, const std::string &subsystem)
    {
        return action + "@" + path + std::string(1, '\0') + "ACTION=" + action + std::string(1, '\0') +
               "DEVPATH=" + path + std::string(1, '\0') + "SUBSYSTEM=" + subsystem + std::string(1, '\0') + "SEQNUM=1" +
               std::string(1, '\0');
    }

    void Handle(std::string event)
    {
        lib::AgentInfo agent = SpdkAgent();
        lib::HandleSysHotPlugEventMsg(&agent, event.data(), static_cast<uint32_t>(event.size()));
    }

    static size_t Told(const std::string &text) { return HostLogged(kTag + text); }
};

TEST_F(HotPlugTest, PrefixesAndTheirLengths)
{
    const auto *rows = lib::Global<lib::EventPrefix[3]>("g_eventPrefix");
    const char *texts[3] = {"ACTION=", "DEVPATH=", "SUBSYSTEM="};
    for (int i = 0; i < 3; i++) {
        EXPECT_STREQ(rows[i].prefix, texts[i]);
        EXPECT_EQ(rows[i].length, std::strlen(texts[i]));
    }
    EXPECT_EQ(lib::InitHotPlugLock(), 114u);
}

TEST_F(HotPlugTest, StartAndStopMoveTheFlags)
{
    EXPECT_EQ(lib::StopHotPlugListener(SpdkAgent()), 0u);
    EXPECT_EQ(lib::StartHotPlugListener(SpdkAgent()), 0u);
    EXPECT_EQ(lib::Global<uint8_t>("g_isShutDown"), 0u);
    EXPECT_EQ(lib::Global<uint8_t>("g_isThreadCreate"), 1u);
    EXPECT_EQ(lib::StartHotPlugListener(SpdkAgent()), 114u);
    EXPECT_EQ(lib::StopHotPlugListener(SpdkAgent()), 0u);
    EXPECT_EQ(lib::Global<uint8_t>("g_isShutDown"), 1u);
    EXPECT_EQ(lib::StartHotPlugListener(SpdkAgent()), 0u);

    // The first pass fails on no descriptor, which opens the socket: that is how the thread starts.
    ASSERT_TRUE(WaitForHostLine(std::string(kTag) + " HotPlugSocketListerHandler thread start"));
    ASSERT_TRUE(WaitForHostLine(std::string(kTag) + "recvmsg error: 9 - Bad file descriptor"));
    ASSERT_TRUE(WaitForHostLine(std::string(kTag) + "close sockopt error: 9 - Bad file descriptor"));
    EXPECT_TRUE(Eventually([] {
        for (const HostLine &line : HostLines()) {
            if (line.text.find("Hot plug socket receive buffer size: ") != std::string::npos) {
                return true;
            }
        }
        return false;
    }));
    EXPECT_EQ(Told(" HotPlugSocketListerHandler thread start"), 1u) << "one thread for both starts";
    EXPECT_EQ(HostLogged(7, std::string(kTag) + " HotPlugSocketListerHandler thread start"), 1u);
}

uint32_t NoThread()
{
    return 0;
}

TEST_F(HotPlugTest, AStartWithoutAThreadIsNoStart)
{
    void **slots = lib::Global<void *[36]>("g_corvaneInfra");
    for (int i = 0; i < 36; i++) {
        if (slots[i] == lib::Address("CorvaneOsThreadCreate")) {
            slots[i] = reinterpret_cast<void *>(NoThread);
        }
    }

    EXPECT_EQ(lib::StartHotPlugListener(SpdkAgent()), 11u);

    EXPECT_EQ(Told("StartHotPlugListener Create Timer failed."), 1u);
    EXPECT_EQ(lib::Global<uint8_t>("g_isShutDown"), 1u);
    EXPECT_EQ(lib::Global<uint8_t>("g_isThreadCreate"), 0u);
}

TEST_F(HotPlugTest, PrefixIsFoundBelowLengthMinusItsOwn)
{
    char text[] = "xxACTION=add";

    EXPECT_EQ(lib::FindPrefixInBuffer("ACTION=", text, 12), text + 2);
    EXPECT_EQ(lib::FindPrefixInBuffer("ACTION=", text, 10), text + 2);
    EXPECT_EQ(lib::FindPrefixInBuffer("ACTION=", text, 9), nullptr);
    EXPECT_EQ(lib::FindPrefixInBuffer("ACTION=", text, 3), nullptr);
    EXPECT_EQ(lib::FindPrefixInBuffer("DEVPATH=", text, 12), nullptr);
}

TEST_F(HotPlugTest, AddOfAnNvmeDeviceAsksTheAgent)
{
    CoverDrivers({"0000:82:00.0"});

    Handle(Event("add", "/devices/pci0000:80/0000:80:02.0/0000:82:00.0/nvme/nvme0", "nvme"));

    EXPECT_EQ(HostLogged(7, "[DCM]Handle Sys Event Msg start"), 1u);
    EXPECT_EQ(HostLogged(7, "[DCM]find nvme add msg, action=add,pci=0000:82:00.0,sys=nvme"), 1u);
    EXPECT_EQ(Told("create task to rebind pci 0000:82:00.0"), 1u);
    EXPECT_EQ(HostLogged(7, "[UTIL]Task 0000:82:00.0 submit success."), 1u);
    ASSERT_TRUE(spdk_->WaitForRequests("dca_rebind_nvme2uio", 1));
    EXPECT_THAT(
        WithoutId(spdk_->Requests()[0]),
        HasSubstr(R"({"jsonrpc":"2.0","method":"dca_rebind_nvme2uio","params":{"pci_address":"0000:82:00.0"}})"));
    EXPECT_TRUE(WaitForHostLine("[UTIL]Task 0000:82:00.0 end."));
}

TEST_F(HotPlugTest, ASecondAddOfTheSameAddressIsRefusedWhileTheFirstLives)
{
    CoverDrivers({"0000:82:00.0"});
    const std::string event = Event("add", "/devices/0000:82:00.0/nvme/nvme0", "nvme");

    Handle(event);
    Handle(event);

    EXPECT_EQ(Told("create task to rebind pci 0000:82:00.0"), 1u);
    EXPECT_EQ(HostLogged(6, "[DCM]create task fail,ret = 114"), 1u);
    EXPECT_TRUE(WaitForHostLine("[UTIL]Task 0000:82:00.0 end."));
}

TEST_F(HotPlugTest, OtherEventsAreIgnored)
{
    const std::string path = "/devices/0000:82:00.0/nvme/nvme0";

    Handle(Event("remove", path, "nvme"));
    Handle(Event("add", path, "block"));
    Handle(Event("add", path, "nvmex"));
    Handle(Event("add", "/devices/0000:82:00.0/nvm0", "nvme"));
    Handle("ACTION=add" + std::string(1, '\0') + "DEVPATH=" + path + std::string(1, '\0'));
    Handle("ACTION=ad"); // 9 bytes
    Handle("");
    lib::AgentInfo agent = SpdkAgent();
    lib::HandleSysHotPlugEventMsg(&agent, nullptr, 100);

    for (const HostLine &line : HostLines()) {
        EXPECT_EQ(line.text, "[DCM]Handle Sys Event Msg start");
        EXPECT_EQ(line.level, 7u);
    }
    EXPECT_EQ(HostLines().size(), 8u);
    EXPECT_THAT(spdk_->Requests(), IsEmpty());
}

TEST_F(HotPlugTest, AFieldOf79CharactersFitsAndALongerOneIsTold)
{
    const std::string tail = "/0000:82:00.0/nvme/nvme0";
    CoverDrivers({"0000:82:00.0"});

    Handle(Event("add", "/" + std::string(79 - 1 - tail.size(), 'd') + tail, "nvme"));
    EXPECT_EQ(Told("create task to rebind pci 0000:82:00.0"), 1u);
    EXPECT_EQ(Told("HandleSysHotPlugEventMsg parse fail"), 0u);
    ClearHostLines();
    Handle(Event("add", "/" + std::string(80 - 1 - tail.size(), 'd') + tail, "nvme"));
    EXPECT_EQ(HostLogged(7, "[DCM]HandleSysHotPlugEventMsg parse fail"), 1u);
    EXPECT_TRUE(WaitForHostLine("[UTIL]Task 0000:82:00.0 end."));
}

TEST_F(HotPlugTest, TheDriverIsAskedByAccess)
{
    CoverDrivers({"0000:82:00.0"});

    EXPECT_TRUE(lib::IsDiskOnNvmeDriver("0000:82:00.0"));
    EXPECT_FALSE(lib::IsDiskOnNvmeDriver("0000:83:00.0"));
    // 282 bytes hold a folder of 26 characters, a second slash, and 254 more.
    EXPECT_FALSE(lib::IsDiskOnNvmeDriver(std::string(254, 'x').c_str()));
    EXPECT_EQ(Told("Failed to build nvme device path"), 0u);
    EXPECT_FALSE(lib::IsDiskOnNvmeDriver(std::string(255, 'x').c_str()));
    EXPECT_EQ(Told("Failed to build nvme device path"), 1u);
}

TEST_F(HotPlugTest, AnAgentsFailureChangesNothing)
{
    lib::AgentInfo agent = SpdkAgent();
    spdk_->Bytes("dca_rebind_nvme2uio", "no json");

    lib::SendRebindPciAddrToAgent(&agent, "0000:82:00.0");
    EXPECT_THAT(spdk_->Requests("dca_rebind_nvme2uio"), testing::SizeIs(1));
    spdk_->Stop();
    lib::SendRebindPciAddrToAgent(&agent, "0000:82:00.0");
}

/** Ports of this process' sockets for kernel events. */
std::vector<uint32_t> EventPorts()
{
    std::vector<uint32_t> ports;
    std::ifstream in("/proc/net/netlink");
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string address;
        std::string protocol;
        uint64_t port = 0;
        words >> address >> protocol >> port;
        const auto pid = static_cast<uint32_t>(getpid());
        if (protocol == "15" && (port & pid) == pid && port != pid) {
            ports.push_back(static_cast<uint32_t>(port));
        }
    }
    return ports;
}

TEST_F(HotPlugTest, EventsComeByTheKernelsSocketAndAreDroppedAfterAStop)
{
    CoverDrivers({"0000:82:00.0", "0000:83:00.0"});
    ASSERT_EQ(lib::StartHotPlugListener(SpdkAgent()), 0u);
    std::vector<uint32_t> ports;
    ASSERT_TRUE(Eventually([&] {
        ports = EventPorts();
        return !ports.empty();
    }));
    const int fd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    sockaddr_nl to{};
    to.nl_family = AF_NETLINK;
    to.nl_pid = ports[0];
    const auto send = [&](const std::string &event) {
        return sendto(fd, event.data(), event.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof(to));
    };

    ASSERT_GT(send(Event("add", "/devices/0000:82:00.0/nvme/nvme0", "nvme")), 0) << std::strerror(errno);
    EXPECT_TRUE(spdk_->WaitForRequests("dca_rebind_nvme2uio", 1));
    EXPECT_EQ(lib::StopHotPlugListener(SpdkAgent()), 0u);
    ASSERT_GT(send(Event("add", "/devices/0000:83:00.0/nvme/nvme0", "nvme")), 0);
    EXPECT_TRUE(WaitForHostLine("[DCM] HotPlugSocketListerHandler get msg,but not parse"));
    EXPECT_EQ(HostLogged(7, "[DCM] HotPlugSocketListerHandler get msg,but not parse"), 1u);
    EXPECT_EQ(lib::StartHotPlugListener(SpdkAgent()), 0u);
    ASSERT_GT(send(Event("add", "/devices/0000:83:00.0/nvme/nvme0", "nvme")), 0);
    EXPECT_TRUE(spdk_->WaitForRequests("dca_rebind_nvme2uio", 2));
    (void)close(fd);
}

} // namespace
