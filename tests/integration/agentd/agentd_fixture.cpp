#include "agentd_fixture.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>

#include "support/mount_namespace.h"

namespace {

const char *const kTools = "/tmp/tools";
const char *const kCounters = "/tmp/diskstats";

std::string HideRealDisks()
{
    std::ofstream(kCounters).flush();
    if (mount("tmpfs", "/sys", "tmpfs", 0, nullptr) != 0 ||
        mount(kCounters, "/proc/diskstats", nullptr, MS_BIND, nullptr) != 0) {
        return std::string("hiding the real disks: ") + std::strerror(errno);
    }
    return "";
}

void AddDisk(const std::string &name, const char *vendor, const char *model, int rotational)
{
    const std::string base = "/sys/block/" + name;
    std::filesystem::create_directories(base + "/queue");
    std::filesystem::create_directories(base + "/device");
    std::ofstream(base + "/queue/rotational") << rotational << '\n';
    std::ofstream(base + "/queue/nr_requests") << (rotational == 1 ? 256 : 64) << '\n';
    std::ofstream(base + "/device/vendor") << vendor << '\n';
    std::ofstream(base + "/device/model") << model << '\n';
}

} // namespace

Client::Client() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, kSocket, sizeof(address.sun_path) - 1);
    const struct timeval patience = {60, 0};
    (void)setsockopt(fd_.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    error_ = connect(fd_.Get(), reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) == 0 ? 0 : errno;
}

void Client::Send(const std::string &request) const
{
    EXPECT_EQ(send(fd_.Get(), request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
}

std::string Client::Receive() const
{
    std::string text;
    std::array<char, 4096> buffer;
    ssize_t count = 0;
    while ((count = recv(fd_.Get(), buffer.data(), buffer.size(), 0)) > 0) {
        text.append(buffer.data(), static_cast<size_t>(count));
    }
    // A peer that closes before it has read all resets the connection.
    EXPECT_TRUE(count == 0 || errno == ECONNRESET) << "no end of the answer: " << std::strerror(errno);
    return text;
}

void AgentdTest::SetUpTestSuite()
{
    static const std::string problem = [] { // once for all suites
        const std::string failure = EnterPrivateMounts(BUILD_DIR);
        return failure.empty() ? HideRealDisks() : failure;
    }();
    problem_ = problem;
}

void AgentdTest::SetUp()
{
    ASSERT_EQ(problem_, "");
    std::filesystem::remove(kSocket);
    std::filesystem::remove("/tmp/gate");
    std::filesystem::create_directories(kTools);
    AddDisk("sdzy", "ATA     ", "VSSD-1600       ", 0);
    AddDisk("sdzz", "TOSHIBA ", "MG04SCA40EA     ", 1);
    AddTool("udevadm", R"(case "$*" in
'info --query=property --name=/dev/sdzy') printf 'DEVNAME=/dev/sdzy\nID_SERIAL=VSSD_X1\nID_SERIAL_SHORT=SATA-X1\n';;
'info --query=property --name=/dev/sdzz') printf 'ID_SERIAL_SHORT=5000c500b0000001\nID_SCSI_SERIAL=SAS-X2\n';;
esac
)");
    InstallLsblk("2.38.1");
    SetCounters(1000, 2000);
}

std::string AgentdTest::Path()
{
    return std::string("PATH=") + kTools + ":/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
}

void AgentdTest::InstallLsblk(const std::string &version)
{
    // A pipe at /tmp/gate holds the list back until somebody has opened it for writing and closed it.
    AddTool("lsblk", "case \"$*\" in *TYPE*) if [ -p /tmp/gate ]; then cat /tmp/gate; fi;; esac\n"
                     "case \"$*\" in\n--version) echo 'lsblk from util-linux " +
                         version + R"(';;
'-S -o NAME,SERIAL,TYPE,VENDOR,MODEL,WWN -J') echo '{"blockdevices": [
{"name":"sdzx", "serial":"V1", "type":"disk", "vendor":"LSI     ", "model":"RAID", "wwn":"0x5000c500a0000000"},
{"name":"sdzy", "serial":"X1", "type":"disk", "vendor":"ATA     ", "model":"VSSD-1600", "wwn":"0x5000c500a0000001"},
{"name":"sdzz", "serial":"X2", "type":"disk", "vendor":"TOSHIBA ", "model":"MG04SCA40EA", "wwn":"0x5000c500b0000001"},
{"name":"srz0", "serial":"R1", "type":"rom", "vendor":"QEMU    ", "model":"DVD", "wwn":null}]}';;
'-S -o NAME,SERIAL,TYPE,VENDOR,MODEL,WWN') echo 'NAME SERIAL TYPE VENDOR  MODEL       WWN
sdzx V1     disk LSI     RAID        0x5000c500a0000000
sdzy X1     disk ATA     VSSD-1600   0x5000c500a0000001
sdzz X2     disk TOSHIBA MG04SCA40EA 0x5000c500b0000001
srz0 R1     rom  QEMU    DVD';;
'-S -o NAME,SERIAL,WWN,REV,SIZE,LOG-SEC,VENDOR -b -J') echo '{"blockdevices": [
{"name":"sdzy", "serial":"X1", "wwn":"0x5", "rev":"2.5+", "size":1600321314816, "log-sec":512, "vendor":"ATA     "},
{"name":"sdzz", "serial":"X2", "wwn":"0x5", "rev":"0104", "size":"4000787030016", "log-sec":"4096", "vendor":"T "}]}';;
'-S -o NAME,SERIAL,WWN,REV,SIZE,LOG-SEC,VENDOR -b') echo 'NAME SERIAL WWN REV           SIZE LOG-SEC VENDOR
sdzy X1     0x5 2.5+ 1600321314816     512 ATA
sdzz X2     0x5 0104 4000787030016    4096 TOSHIBA';;
*) echo "unknown arguments: $*" >&2;;
esac
)");
}

void AgentdTest::SetCounters(unsigned long sataReads, unsigned long sasWrites)
{
    std::array<char, 256> text{};
    const int length = std::snprintf(text.data(), text.size(),
                                     " 65 0 sdzy %012lu 0 %012lu 1500 0 0 0 0 9 2000 0\n"
                                     " 65 16 sdzz 0 0 0 0 %012lu 0 %012lu 2500 3 4000 0 11 12 13 14\n",
                                     sataReads, sataReads * 8, sasWrites, sasWrites * 16);
    const UniqueFd file(open(kCounters, O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(pwrite(file.Get(), text.data(), static_cast<size_t>(length), 0), length);
}

void AgentdTest::AddTool(const std::string &name, const std::string &body)
{
    const std::string path = std::string(kTools) + "/" + name;
    std::ofstream(path + ".new") << "#!/bin/sh\n" << body;
    (void)chmod((path + ".new").c_str(), 0755);
    std::filesystem::rename(path + ".new", path);
}

void AgentdTest::WriteFile(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string AgentdTest::ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string AgentdTest::Ask(const std::string &request)
{
    const Client client;
    EXPECT_EQ(client.Error(), 0);
    client.Send(request);
    return client.Receive();
}

std::string AgentdTest::AskFor(const std::string &method, const std::string &params)
{
    return Ask(R"({"jsonrpc":"2.0","id":7,"method":")" + method + R"(","params":)" + params + "}");
}

void ServingAgentdTest::SetUp()
{
    AgentdTest::SetUp();
    if (HasFatalFailure()) {
        return;
    }
    manager_ = std::make_unique<NotifySocket>();
    agent_ = std::make_unique<ChildProcess>(std::vector<std::string>{AGENTD_PATH},
                                            std::vector<std::string>{manager_->Environment(), Path()});
    ASSERT_EQ(manager_->Receive(), "READY=1\nSTATUS=Serving") << agent_->Errors();
}

void ServingAgentdTest::TearDown()
{
    if (agent_ == nullptr) {
        return;
    }
    EXPECT_TRUE(agent_->Running());
    agent_->Signal(SIGTERM);
    EXPECT_EQ(agent_->WaitForExit(), 0);
    EXPECT_THAT(agent_->Errors(), ::testing::Not(::testing::HasSubstr("corvane-agentd:"))); // log lines come there, too
    agent_.reset();
}

long ServingAgentdTest::Threads() const
{
    const std::string tasks = "/proc/" + std::to_string(agent_->Pid()) + "/task";
    return std::distance(std::filesystem::directory_iterator(tasks), std::filesystem::directory_iterator());
}

bool ServingAgentdTest::WaitForThreads(long atMost)
{
    for (int i = 0; i < 6000; i++) {
        if (!agent_->Running()) {
            return false;
        }
        if (Threads() <= atMost) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}
