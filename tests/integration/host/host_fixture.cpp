#include "host_fixture.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

std::string BriefJson(const FakeDisk &disk)
{
    return R"({"device_name":")" + disk.device + R"(","serial_number":")" + disk.sn + "\"}";
}

std::string BaseJson(const FakeDisk &disk)
{
    std::string text = R"({"device_name":")" + disk.device + R"(","serial_number":")" + disk.sn + R"(","vendor_id":")" +
                       disk.vendor + R"(","disk_type":")" + disk.type + R"(","disk_media_type":")" + disk.media +
                       R"(","model_number":")" + disk.model + R"(","firmware_revision":")" + disk.firmware +
                       R"(","disk_capacity":")" + disk.capacity + R"(","sector_size":)" + disk.sector;
    if (!disk.pci.empty()) {
        text += R"(,"pci_address":")" + disk.pci + "\"";
    }
    return text + "}";
}

std::vector<std::string> DevicesOf(const std::string &request)
{
    std::vector<std::string> names;
    const std::unique_ptr<cJSON, void (*)(cJSON *)> root(cJSON_Parse(request.c_str()), cJSON_Delete);
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(cJSON_GetObjectItem(root.get(), "params"), "devices"))
    {
        names.emplace_back(item->valuestring == nullptr ? "" : item->valuestring);
    }
    return names;
}

std::string DisksJson(const std::vector<FakeDisk> &disks, const std::string &request,
                      const std::function<std::string(const FakeDisk &)> &one)
{
    std::string list;
    const auto add = [&](const FakeDisk &disk) { list += (list.empty() ? "" : ",") + one(disk); };
    if (request.find("\"devices\"") == std::string::npos) {
        for (const FakeDisk &disk : disks) {
            add(disk);
        }
    } else {
        for (const std::string &name : DevicesOf(request)) {
            for (const FakeDisk &disk : disks) {
                if (disk.device == name) {
                    add(disk);
                }
            }
        }
    }
    return "{\"disks\":[" + list + "]}";
}

std::string Envelope(const std::string &result)
{
    return R"({"jsonrpc":"2.0","id":1,"result":)" + result + "}";
}

std::string WithoutId(const std::string &request)
{
    const size_t from = request.find("\"id\":");
    return from == std::string::npos ? request : request.substr(0, from) + request.substr(request.find(',', from) + 1);
}

void ServeDisks(FakeAgent &agent, const std::vector<FakeDisk> &disks)
{
    for (const char *method : {"dca_get_disks_brief_info", "dca_get_disks_base_info"}) {
        const auto one = std::string(method) == "dca_get_disks_base_info" ? BaseJson : BriefJson;
        agent.On(method, [disks, one](const std::string &request) {
            return FakeReply{FakeReply::TEXT, Envelope(DisksJson(disks, request, one))};
        });
    }
}

lib::DiskSnRef Sn(const char *text)
{
    return {40, text};
}

lib::DiskMgrObj Record(const std::string &sn, uint32_t type)
{
    lib::DiskMgrObj record{};
    record.diskId = kById;
    record.frameId = kFail;
    record.slotId = kFail;
    record.diskCapacity = 480103981056;
    record.sectorSize = 512;
    (void)std::snprintf(record.vendor, sizeof(record.vendor), "%s", "ATA");
    (void)std::snprintf(record.model, sizeof(record.model), "%s", "VSSD-480");
    (void)std::snprintf(record.firmware, sizeof(record.firmware), "%s", "FW1");
    (void)std::snprintf(record.sn, sizeof(record.sn), "%s", sn.c_str());
    (void)std::snprintf(record.deviceName, sizeof(record.deviceName), "%s", "sda");
    record.diskType = type;
    record.mediaType = 2;
    return record;
}

namespace {

lib::AgentInfo Agent(const char *name, const char *path)
{
    lib::AgentInfo agent{};
    (void)std::snprintf(agent.name, sizeof(agent.name), "%s", name);
    (void)std::snprintf(agent.address.path, sizeof(agent.address.path), "%s", path);
    return agent;
}

} // namespace

lib::AgentInfo KernelAgent()
{
    return Agent("unique_DCAK_agent", kKernelSocket);
}

lib::AgentInfo SpdkAgent()
{
    return Agent("unique_SPDK_agent", kSpdkSocket);
}

std::string ReadText(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void WriteText(const std::string &path, const std::string &text)
{
    std::ofstream out(path, std::ios::binary);
    out << text;
}

std::string CaptureStdout(const std::function<void()> &action)
{
    (void)std::fflush(stdout);
    const int before = dup(STDOUT_FILENO);
    FILE *file = std::tmpfile();
    (void)dup2(fileno(file), STDOUT_FILENO);
    action();
    (void)std::fflush(stdout);
    (void)dup2(before, STDOUT_FILENO);
    (void)close(before);
    std::string text(static_cast<size_t>(lseek(fileno(file), 0, SEEK_END)), '\0');
    (void)!pread(fileno(file), text.data(), text.size(), 0);
    (void)std::fclose(file);
    return text;
}

bool Eventually(const std::function<bool()> &condition, int seconds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

HostTest::HostTest()
{
    fs::create_directories(prefix_ + "/config");
}

void HostTest::Open()
{
    lib::Open();
    ASSERT_EQ(lib::SetPrefixPath(prefix_.c_str()), 0u);
}

void HostTest::StartQuiet()
{
    WriteText(prefix_ + "/config/corvane_config.json", "{\n\t\"feature_switch\":\t0\n}");
    Open();
    uint32_t result = kFail;
    startOutput_ = CaptureStdout([&] { result = lib::InitCorvane(1); });
    ASSERT_EQ(result, 0u) << startOutput_;
    ASSERT_EQ(HostLogged(6, "[INIT]feature switch is off, no need start query agent task"), 1u);
}

void HostTest::AddAgents()
{
    spdk_ = std::make_unique<FakeAgent>(kSpdkSocket);
    kernel_ = std::make_unique<FakeAgent>(kKernelSocket);
    const lib::AgentInfo spdk = SpdkAgent();
    const lib::AgentInfo kernel = KernelAgent();
    ASSERT_EQ(lib::UpdateUniqueAgentList(&spdk, &cancelFlags_[0]), 0u);
    ASSERT_EQ(lib::UpdateUniqueAgentList(&kernel, &cancelFlags_[1]), 0u);
}

uint32_t HostTest::Query(uint32_t message, const lib::AgentInfo &agent, const std::vector<FakeDisk> &disks)
{
    std::vector<lib::DiskBriefInfo> records(disks.size());
    std::vector<lib::DiskBriefInfo *> list;
    for (size_t i = 0; i < disks.size(); i++) {
        (void)disks[i].sn.copy(records[i].serialNumber, sizeof(records[i].serialNumber) - 1);
        (void)disks[i].device.copy(records[i].deviceName, sizeof(records[i].deviceName) - 1);
        list.push_back(&records[i]);
    }
    return lib::StepQueryMessageAndSave(message, &agent, list.data(), static_cast<uint32_t>(list.size()));
}

lib::DiskMgrObj HostTest::Base(uint32_t diskId)
{
    lib::DiskMgrObj record{};
    EXPECT_EQ(lib::DiskBaseInfoCliGet(diskId, &record, sizeof(record)), 0u) << "disk " << diskId;
    return record;
}

void HostTest::BlockSaves() const
{
    // A folder in the place of the write-ahead copy stops root as well.
    fs::create_directory(RegistryPath() + ".wal");
}

void HostTest::UnblockSaves() const
{
    fs::remove(RegistryPath() + ".wal");
}
