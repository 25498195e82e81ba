#include "cli_client.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <linux/sockios.h>
#include <memory>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char kNoise = '\x5a';

void PutLittle(std::string &bytes, size_t at, uint32_t value)
{
    for (size_t i = 0; i < 4; i++) {
        bytes[at + i] = static_cast<char>(value >> (8 * i) & 0xFF);
    }
}

uint32_t GetLittle(const std::string &bytes, size_t at)
{
    uint32_t value = 0;
    for (size_t i = 4; i-- > 0;) {
        value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
    }
    return value;
}

/** A text and its terminator, as far as both fit. */
void PutText(std::string &bytes, size_t at, size_t room, const std::string &text)
{
    const std::string whole = (text + '\0').substr(0, room);
    bytes.replace(at, whole.size(), whole);
}

sockaddr_un AddressOf(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (void)path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

int Connect(const std::string &path, int &error)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = AddressOf(path);
    error = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 ? 0 : errno;
    return fd;
}

} // namespace

std::string CliPacket::Bytes() const
{
    std::string bytes(50, kNoise);
    bytes[0] = static_cast<char>(count);
    bytes[1] = static_cast<char>(index);
    PutLittle(bytes, 4, total);
    PutText(bytes, 8, 32, user);
    PutText(bytes, 40, 10, action);
    return bytes + piece + std::string(2, kNoise);
}

std::string CliImage(const std::string &text)
{
    return std::string(40, kNoise) + text + '\0';
}

std::string CliRequestText(const std::string &agrs, const std::string &cmd)
{
    return "<req><cmd>" + cmd + "</cmd><agrs>" + agrs + "</agrs></req>";
}

std::string CliRequest(const std::string &agrs, const std::string &action, const std::string &user)
{
    CliPacket packet;
    packet.user = user;
    packet.action = action;
    packet.piece = CliImage(CliRequestText(agrs));
    packet.total = static_cast<uint32_t>(packet.piece.size());
    return packet.Bytes();
}

CliSocket::CliSocket(const std::string &path) : fd_(Connect(path, error_)) {}

CliSocket::~CliSocket()
{
    (void)close(fd_);
}

bool CliSocket::Send(const std::string &bytes) const
{
    return send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

bool CliSocket::WaitUntilRead() const
{
    return Eventually([this] {
        int unread = 0;
        return ioctl(fd_, SIOCOUTQ, &unread) == 0 && unread == 0;
    });
}

std::string CliSocket::ReadAll(int seconds) const
{
    std::string all;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < end) {
        pollfd look{fd_, POLLIN, 0};
        if (poll(&look, 1, 100) == 0) {
            continue;
        }
        char piece[65536];
        const ssize_t got = recv(fd_, piece, sizeof(piece), 0);
        if (got <= 0) {
            return all;
        }
        all.append(piece, static_cast<size_t>(got));
    }
    ADD_FAILURE() << "the server keeps the connection, " << all.size() << " bytes came";
    return all;
}

void CliSocket::CloseWriting() const
{
    (void)shutdown(fd_, SHUT_WR);
}

std::string CliExchange(const std::string &path, const std::vector<std::string> &packets, int &error)
{
    const std::string busy = "<error_code>" + std::to_string(kCliBusy) + "</error_code>";
    std::string answer;
    (void)Eventually([&] {
        const CliSocket client(path);
        error = client.Error();
        if (error != 0) {
            return true;
        }
        for (const std::string &packet : packets) {
            (void)client.Send(packet);
            if (&packet != &packets.back()) {
                (void)client.WaitUntilRead();
            }
        }
        answer = client.ReadAll();
        return answer.find(busy) == std::string::npos;
    });
    return answer;
}

std::ostream &operator<<(std::ostream &out, const CliAnswer &answer)
{
    if (answer.closed) {
        return out << "closed without an answer";
    }
    return out << "code 0x" << std::hex << answer.code << std::dec << " action '" << answer.action << "' text:\n"
               << answer.text;
}

std::string CliDocument(const std::string &raw, const std::string &sender)
{
    if (raw.size() < 52 + 41) {
        ADD_FAILURE() << "an answer of " << raw.size() << " bytes";
        return "";
    }
    EXPECT_EQ(raw[0], 1);
    EXPECT_EQ(raw[1], 0);
    const size_t piece = raw.size() - 52;
    EXPECT_EQ(GetLittle(raw, 4), piece);
    EXPECT_STREQ(raw.substr(8, 32).c_str(), sender.c_str());
    const std::string image = raw.substr(50, piece);
    EXPECT_EQ(image.substr(0, 3), std::string("\0\0\1", 3));
    EXPECT_EQ(image.substr(32, 8), std::string(8, '\0'));
    EXPECT_EQ(image.find('\0', 40), piece - 1) << "one terminator, at the end";
    return image.substr(40, piece - 41);
}

CliAnswer CliParse(const std::string &raw, const std::string &sender)
{
    if (raw.empty()) {
        return kCliClosed;
    }
    const std::string document = CliDocument(raw, sender);
    const std::string parts[] = {"<response><error_code>", "</error_code><print_data>", "</print_data></response>\n"};
    const size_t middle = document.find(parts[1]);
    const size_t last = document.rfind(parts[2]);
    if (document.rfind(parts[0], 0) != 0 || middle == std::string::npos || last == std::string::npos ||
        last + parts[2].size() != document.size()) {
        ADD_FAILURE() << "not an answer: " << document;
        return {};
    }
    const std::string code = document.substr(parts[0].size(), middle - parts[0].size());
    EXPECT_EQ(std::to_string(std::atoi(code.c_str())), code);
    const size_t from = middle + parts[1].size();
    return {false, std::atoi(code.c_str()), document.substr(from, last - from), raw.substr(40, 10).c_str()};
}

std::string CliConfig(int featureSwitch, int takeOver)
{
    const auto section = [](const char *name, int threshold) {
        return std::string(",\"") + name + R"(":{"task_cycle":20,"min_threshold_value":)" + std::to_string(threshold) +
               R"(,"min_slow_cycle":50})";
    };
    return "{\"feature_switch\":" + std::to_string(featureSwitch) +
           ",\"takeover_disk_switch\":" + std::to_string(takeOver) + R"(,"disklife_prediction":{"task_cycle":86400})" +
           section("sata_ssd_disk", 1) + section("sas_ssd_disk", 1) + section("nvme_disk", 1) +
           section("sas_hdd", 100) + "}";
}

void CliTest::SetUp()
{
    std::filesystem::create_directories(kCliLogFolder);
    std::filesystem::create_directories(prefix_ + "/userconfig_bak");
}

void CliTest::StartWith(const std::string &config)
{
    if (!config.empty()) {
        WriteText(ConfigPath(), config);
    }
    Open();
    uint32_t result = kFail;
    startOutput_ = CaptureStdout([&] { result = lib::InitCorvane(1); });
    ASSERT_EQ(result, 0u) << startOutput_;
}

void CliTest::StartForDisks()
{
    StartWith(CliConfig(0));
    spdk_ = std::make_unique<FakeAgent>(kSpdkSocket);
    // Their workers would run beside the test's own thread, on lists that have no lock.
    lib::DrmUnRegisterDiskEventHandler(15);
    lib::DrmUnRegisterDiskEventHandler(16);
}

std::string CliTest::AskRaw(const std::string &bytes) const
{
    int error = 0;
    const std::string answer = CliExchange(SocketPath(), {bytes}, error);
    EXPECT_EQ(error, 0);
    return answer;
}

CliAnswer CliTest::Ask(const std::string &agrs) const
{
    return Ask(agrs, agrs.substr(0, agrs.find(' ')));
}

CliAnswer CliTest::Ask(const std::string &agrs, const std::string &action) const
{
    return CliParse(AskRaw(CliRequest(agrs, action)));
}

int CliTest::Saved(const std::string &section, const std::string &key) const
{
    const std::unique_ptr<cJSON, void (*)(cJSON *)> root(cJSON_Parse(ReadText(ConfigPath()).c_str()), cJSON_Delete);
    const cJSON *node = section.empty() ? root.get() : cJSON_GetObjectItem(root.get(), section.c_str());
    const cJSON *item = cJSON_GetObjectItem(node, key.c_str());
    return item == nullptr ? -1 : item->valueint;
}

std::vector<std::string> CliLogLines(const std::string &text, const std::string &folder)
{
    std::vector<std::string> lines;
    std::ifstream in(folder + "/cli.log", std::ios::binary);
    std::string line;
    while (std::getline(in, line)) {
        const std::string ending = "]" + text;
        if (line.size() >= ending.size() && line.compare(line.size() - ending.size(), ending.size(), ending) == 0) {
            lines.push_back(line);
        }
    }
    return lines;
}

bool WaitForCliLog(const std::string &text, size_t count, const std::string &folder)
{
    return Eventually([&] { return CliLogLines(text, folder).size() >= count; });
}

CliPeer::CliPeer(uid_t uid, gid_t gid, const std::vector<gid_t> &groups, const std::string &socketPath,
                 const std::string &request)
    : pid_(-1), go_(-1), result_(-1)
{
    int go[2];
    int result[2];
    if (pipe2(go, O_CLOEXEC) != 0 || pipe2(result, O_CLOEXEC) != 0) {
        std::abort();
    }
    pid_ = fork();
    if (pid_ == 0) {
        (void)close(go[1]);
        (void)close(result[0]);
        char token = 0;
        std::string answer = "no privileges to give up";
        if (read(go[0], &token, 1) == 1 && setgroups(groups.size(), groups.data()) == 0 && setgid(gid) == 0 &&
            setuid(uid) == 0) {
            int error = 0;
            answer = CliExchange(socketPath, {request}, error);
            if (error != 0) {
                answer = "errno " + std::to_string(error);
            }
        }
        (void)!write(result[1], answer.data(), answer.size());
        _exit(0);
    }
    (void)close(go[0]);
    (void)close(result[1]);
    go_ = go[1];
    result_ = result[0];
}

CliPeer::~CliPeer()
{
    if (go_ >= 0) {
        (void)close(go_);
    }
    (void)close(result_);
    (void)waitpid(pid_, nullptr, 0);
}

std::string CliPeer::Go()
{
    (void)!write(go_, "g", 1);
    std::string all;
    char piece[4096];
    ssize_t got = 0;
    while ((got = read(result_, piece, sizeof(piece))) > 0) {
        all.append(piece, static_cast<size_t>(got));
    }
    return all;
}

void AddAccounts(const std::string &passwd, const std::string &group)
{
    // Never the machine's own files: those of this process lie on its private /mnt.
    struct stat seen {};
    struct stat own {};
    if (stat("/etc/passwd", &seen) != 0 || stat("/mnt/passwd", &own) != 0 || seen.st_ino != own.st_ino ||
        seen.st_dev != own.st_dev) {
        std::abort();
    }
    std::ofstream("/etc/passwd", std::ios::app) << passwd;
    std::ofstream("/etc/group", std::ios::app) << group;
}
