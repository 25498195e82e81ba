#include "agentd_fixture.h"

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <sys/mount.h>
#include <unistd.h>

namespace {

constexpr off_t kRegisters = 0x80000000;
const char *const kDev = "/tmp/dev";

bool WriteConfig(uint32_t id)
{
    const UniqueFd memory(open("/tmp/dev/mem", O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    const std::array<uint8_t, 3> bytes{static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8),
                                       static_cast<uint8_t>(id >> 16)};
    return ftruncate(memory.Get(), kRegisters + 4096) == 0 && // sparse
           pwrite(memory.Get(), bytes.data(), bytes.size(), kRegisters + 0x10A) == 3;
}

} // namespace

/** On a board whose slots are known: dmidecode, lspci and the register page are the test's. */
class SlotsTest : public ServingAgentdTest {
protected:
    void SetUp() override
    {
        ServingAgentdTest::SetUp();
        AddTool("dmidecode", "echo '\tProduct Name: QXR4BDMZ32'\n");
        AddTool("lspci", "echo \"$*\" >>/tmp/lspci.log\ncase $3 in 0000:3b:00.0) echo '80:07.0/81:00.0 NVM';;\n"
                         "0000:3c:00.0) echo '00:0a.0/01:00.0 NVM';; esac\n");
        std::filesystem::create_directory(kDev);
        WriteFile("/tmp/dev/null", "");
        ASSERT_TRUE(WriteConfig(0x120401));
        ASSERT_EQ(mount("/dev/null", "/tmp/dev/null", nullptr, MS_BIND, nullptr), 0);
        ASSERT_EQ(mount(kDev, "/dev", nullptr, MS_BIND | MS_REC, nullptr), 0);
    }
    void TearDown() override
    {
        EXPECT_EQ(umount2("/dev", MNT_DETACH), 0);
        EXPECT_EQ(umount2("/tmp/dev/null", MNT_DETACH), 0);
        ServingAgentdTest::TearDown();
    }
    static std::string Slots(const std::string &devices)
    {
        return AskFor("dca_get_disks_slotid", "{\"devices\":[" + devices + "]}");
    }
    static inline const std::string kFirst = R"({"device_name":"nvme0","pci_address":"0000:3b:00.0"})";
    static inline const std::string kSecond = R"({"device_name":"nvme1 ","pci_address":"0000:3c:00.0"})";
};

TEST_F(SlotsTest, FollowFromTheRootPortAndTheBoard)
{
    EXPECT_EQ(Slots(kFirst + "," + kSecond),
              R"({"jsonrpc":"2.0","id":7,"result":{"disks":[{"device_name":"nvme0","slot_id":0},)"
              R"({"device_name":"nvme1","slot_id":15}]}})");

    ASSERT_TRUE(WriteConfig(0x120600));
    EXPECT_EQ(Slots(kSecond), R"({"jsonrpc":"2.0","id":7,"result":{"disks":[{"device_name":"nvme1","slot_id":0}]}})");
    EXPECT_EQ(Slots(kFirst + "," + kSecond), kNoDisks) << "the first is in no slot of this board";
    EXPECT_EQ(ReadFile("/tmp/lspci.log").substr(0, 21), "-PP -s 0000:3b:00.0\n-");
}

TEST_F(SlotsTest, AnAddressForTheShellIsRefused)
{
    EXPECT_EQ(Slots(R"({"device_name":"nvme0","pci_address":"0000:3b:00.0; touch /tmp/injected"})"), kNoDisks);
    EXPECT_EQ(Slots(R"({"device_name":"nvme0","pci_address":"`touch /tmp/injected`"})"), kNoDisks);

    EXPECT_FALSE(std::filesystem::exists("/tmp/injected"));
    EXPECT_FALSE(std::filesystem::exists("/tmp/lspci.log"));
}

TEST_F(SlotsTest, AnotherBoardHasNone)
{
    AddTool("dmidecode", "echo 'Product Name: OTHER'\n");

    EXPECT_EQ(Slots(kFirst), kNoDisks);
    EXPECT_FALSE(std::filesystem::exists("/tmp/lspci.log"));
}
