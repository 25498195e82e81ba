#include "host_fixture.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <grp.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

/** A client of the kernel agent that speaks in bytes. */
class DcakInitSocketSeverTest : public HostTest {
protected:
    void SetUp() override { StartQuiet(); }

    static int Connect()
    {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (void)std::string(kKernelSocket).copy(address.sun_path, sizeof(address.sun_path) - 1);
        if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
            (void)close(fd);
            return -1;
        }
        return fd;
    }

    static void Serve()
    {
        ASSERT_EQ(lib::Call<uint32_t()>{"DcakInitSocketSever"}(), 0u);
        ASSERT_TRUE(Eventually([] {
            const int fd = Connect();
            (void)close(fd);
            return fd >= 0;
        }));
    }

    static std::string Ask(const std::string &request)
    {
        const int fd = Connect();
        EXPECT_GE(fd, 0);
        EXPECT_EQ(send(fd, request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
        std::string answer;
        std::array<char, 16384> buffer{};
        for (ssize_t got = 1; got > 0;) {
            got = recv(fd, buffer.data(), buffer.size(), 0);
            answer.append(buffer.data(), got > 0 ? static_cast<size_t>(got) : 0);
        }
        (void)close(fd);
        return answer;
    }

    static std::string OfSize(size_t size)
    {
        const std::string head = R"({"id":7,"pad":")";
        return head + std::string(size - head.size() - 2, 'p') + "\"}";
    }
};

constexpr const char *kNoDisks7 = R"({"jsonrpc":"2.0","id":7,"result":{"disks":[]}})";

TEST_F(DcakInitSocketSeverTest, AnswersToTheByte)
{
    Serve();

    EXPECT_EQ(Ask(R"({"id":7})"), kNoDisks7);
    EXPECT_EQ(Ask(R"({"id":7,"method":5})"), kNoDisks7);
    EXPECT_EQ(Ask(R"({"method":"x"})"), R"({"jsonrpc":"2.0","id":0,"result":{"result":"sokect ok"}})");
    EXPECT_EQ(Ask(R"({"ID":7,"METHOD":"x"})"), R"({"jsonrpc":"2.0","id":0,"result":{"disks":[]}})");
    EXPECT_EQ(Ask("garbage"), "");
}

TEST_F(DcakInitSocketSeverTest, RequestOf3071BytesFitsAndOneMoreIsCut)
{
    Serve();

    EXPECT_EQ(Ask(OfSize(3071)), kNoDisks7);
    EXPECT_EQ(Ask(OfSize(3072)), "");
}

TEST_F(DcakInitSocketSeverTest, SwitchesFollowTheirOrder)
{
    Serve();
    const std::string head = R"({"jsonrpc":"2.0","id":1,"result":{"result":")";
    const std::string link = R"({"id":1,"method":"dcak_link_status_switch"})";
    const std::string debug = R"({"id":1,"method":"debug_switch"})";

    EXPECT_EQ(Ask(link), head + "link stat change\"}}");
    EXPECT_EQ(lib::Global<uint32_t>("g_dcakLinkErr"), 1u);
    EXPECT_EQ(Ask(debug), head + "link err\"}}");
    EXPECT_EQ(Ask(R"({"id":1,"method":"dca_get_disks_brief_info"})"), head + "link err\"}}");
    EXPECT_EQ(lib::Global<uint32_t>("g_DCAK_DEBUG_SWITCH"), 0u);
    EXPECT_EQ(Ask(link), head + "link stat change\"}}");
    EXPECT_EQ(lib::Global<uint32_t>("g_dcakLinkErr"), 0u);
    EXPECT_EQ(Ask(debug), head + "debug stat change\"}}");
    EXPECT_EQ(lib::Global<uint32_t>("g_DCAK_DEBUG_SWITCH"), 1u);
}

TEST_F(DcakInitSocketSeverTest, SocketBelongsToRootAndTheGroup)
{
    Serve();

    struct stat status {};
    ASSERT_EQ(stat(kKernelSocket, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0660u);
    EXPECT_EQ(status.st_uid, 0u);
    EXPECT_EQ(status.st_gid, getgrnam("corvane_group")->gr_gid);
}

TEST_F(DcakInitSocketSeverTest, WithoutTheGroupClientsFailAtOnce)
{
    // In this test's own mounts the system has no groups at all, whatever the machine has.
    ASSERT_EQ(mount("/dev/null", "/etc/group", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(getgrnam("corvane_group"), nullptr);

    EXPECT_EQ(lib::Call<uint32_t()>{"DcakInitSocketSever"}(), 0u);

    ASSERT_TRUE(WaitForHostLine("[DCAK]DcakSetGroupUserPermisson ERR"));
    EXPECT_EQ(HostLogged("[DCAK]get group_info faild usr:root, group:corvane_group, file:/tmp/dcak.sock"), 1u);
    ASSERT_TRUE(Eventually([] { return std::filesystem::exists(kKernelSocket) && Connect() == -1; }));
}

TEST_F(DcakInitSocketSeverTest, MasterReachesItOverItsSocket)
{
    Serve();
    uint16_t count = 7;
    const lib::AgentInfo agent = KernelAgent();

    lib::DiskBriefInfo **list = lib::QueryDeviceList(&agent, &count);

    EXPECT_NE(count, 65535u); // as many disks as this machine has, but an answer
    if (list != nullptr) {
        lib::FreeSeparateMemoryList(reinterpret_cast<void **>(list), count);
    }
}

} // namespace
