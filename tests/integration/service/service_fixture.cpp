#include "service_fixture.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "support/mount_namespace.h"

namespace fs = std::filesystem;

namespace {

const std::string kScenario = "/tmp/scenario.json";
const std::string kControl = "/tmp/control.sock";
const std::string kRecord = "/tmp/record.jsonl";
const std::string kSeams = "/tmp/seams";
constexpr const char *kFiller = "/filler";

Finished RunToEnd(const std::vector<std::string> &arguments)
{
    ChildProcess process(arguments);
    const int exitCode = process.WaitForExit();
    return {exitCode, process.Output(), process.Errors()};
}

std::string TextOf(const cJSON *object, const char *name)
{
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItem(object, name));
    return text != nullptr ? text : "";
}

const cJSON *FindDisk(const cJSON *status, const std::string &serial)
{
    const cJSON *disk = nullptr;
    cJSON_ArrayForEach(disk, cJSON_GetObjectItem(status, "disks"))
    {
        if (TextOf(disk, "sn") == serial) {
            return disk;
        }
    }
    return nullptr;
}

} // namespace

std::string ReadText(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

size_t CountIn(const std::string &path, const std::string &text)
{
    size_t count = 0;
    const std::string all = ReadText(path);
    for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
        count++;
    }
    return count;
}

void WriteText(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string Unformatted(const cJSON *tree)
{
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(tree), &cJSON_free);
    return text != nullptr ? text.get() : "";
}

bool Eventually(const std::function<bool()> &condition, int seconds)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

std::string DiskText(const std::string &device, const std::string &serial, const std::string &type,
                     const std::string &more)
{
    const std::string vendor = type == "SSD_SATA" ? "ATA" : type == "HDD_SAS" ? "SEAGATE" : "VELMAR";
    const std::string address = type == "SSD_NVMe" ? R"(,"pci_address":"0000:)" + device + R"(:00.0")" : "";
    return R"({"device_name":")" + device + R"(","serial_number":")" + serial + R"(","disk_type":")" + type +
           R"(","vendor_id":")" + vendor + R"(","model_number":"VSSD-960G","disk_capacity":960197124096)" + address +
           more + "}";
}

std::string ScenarioOf(const std::vector<std::string> &disks)
{
    std::string text = R"({"disks":[)";
    for (const std::string &disk : disks) {
        text += (&disk == disks.data() ? "" : ",") + disk;
    }
    return text + "]}";
}

std::string SettingsText(const std::map<std::string, int> &changes)
{
    const CJsonPtr root(
        cJSON_Parse(R"({"feature_switch":1,"takeover_disk_switch":0,"disklife_prediction":{"task_cycle":86400}})"));
    for (const char *section : {"sata_ssd_disk", "sas_ssd_disk", "nvme_disk", "sas_hdd"}) {
        cJSON *object = cJSON_AddObjectToObject(root.get(), section);
        cJSON_AddNumberToObject(object, "task_cycle", 20);
        cJSON_AddNumberToObject(object, "min_threshold_value", std::strcmp(section, "sas_hdd") == 0 ? 100 : 1);
        cJSON_AddNumberToObject(object, "min_slow_cycle", 50);
    }
    for (const auto &[name, value] : changes) {
        const size_t dot = name.find('.');
        cJSON *parent =
            dot == std::string::npos ? root.get() : cJSON_GetObjectItem(root.get(), name.substr(0, dot).c_str());
        const std::string key = dot == std::string::npos ? name : name.substr(dot + 1);
        if (cJSON_HasObjectItem(parent, key.c_str()) != 0) {
            (void)cJSON_SetNumberHelper(cJSON_GetObjectItem(parent, key.c_str()), value);
        } else {
            cJSON_AddNumberToObject(parent, key.c_str(), value);
        }
    }
    return Unformatted(root.get());
}

void ServiceTest::SetUpTestSuite()
{
    static const std::string problem = EnterPrivateMounts(BUILD_DIR); // once for all suites
    problem_ = problem;
}

void ServiceTest::SetUp()
{
    ASSERT_EQ(problem_, "");
    for (const std::string &folder : {kPrefix, kLogFolder, kRootLogFolder}) {
        fs::remove_all(folder);
    }
    for (const std::string &folder : {kConfigFolder, kHistoryFolder, kLogFolder}) {
        fs::create_directories(folder);
    }
    const UniqueFd file(open(kSeams.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    ASSERT_EQ(ftruncate(file.Get(), sizeof(ServiceSeams)), 0);
    void *page = mmap(nullptr, sizeof(ServiceSeams), PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    ASSERT_NE(page, MAP_FAILED);
    seams_ = new (page) ServiceSeams{};
    seams_->syncInterval = 300;
}

void ServiceTest::TearDown()
{
    for (ChildProcess *process : {service_.get(), sim_.get()}) {
        if (process != nullptr && process->Running()) {
            process->Signal(SIGTERM);
            EXPECT_EQ(process->WaitForExit(), 0) << process->Errors();
        }
    }
    if (HasFailure()) {
        // Lines that only say how a sync went would hide the rest.
        std::istringstream log(ReadText(kLogFolder + "/norlog.log"));
        std::vector<std::string> lines;
        for (std::string line; std::getline(log, line);) {
            if (line.find("DMM") == std::string::npos) {
                lines.push_back(line);
            }
        }
        std::cout << "end of the log:\n";
        for (size_t i = lines.size() > 60 ? lines.size() - 60 : 0; i < lines.size(); i++) {
            std::cout << lines[i] << '\n';
        }
    }
    for (const std::string &folder : mounts_) {
        EXPECT_EQ(umount2(folder.c_str(), MNT_DETACH), 0);
    }
    if (seams_ != nullptr) {
        (void)munmap(seams_, sizeof(ServiceSeams));
    }
}

void ServiceTest::StartSim(const std::string &scenario, const std::vector<std::string> &options)
{
    WriteText(kScenario, scenario);
    std::vector<std::string> arguments = {CORVANE_SIM_PATH, "--scenario", kScenario, "--control",
                                          kControl,         "--record",   kRecord};
    arguments.insert(arguments.end(), options.begin(), options.end());
    sim_ = std::make_unique<ChildProcess>(arguments);
    ASSERT_TRUE(sim_->WaitForOutput("ready\n")) << sim_->Errors();
}

void ServiceTest::StartService(const std::string &errors)
{
    std::vector<std::string> arguments = {SERVICE_CORVANED_PATH, "--prefix", kPrefix, "--status-interval", "1",
                                          "--status-format",     "json"};
    if (!errors.empty()) {
        const std::vector<std::string> shell = {"/bin/sh", "-c", R"(exec "$@" 2>)" + errors, "sh"};
        arguments.insert(arguments.begin(), shell.begin(), shell.end());
    }
    service_ =
        std::make_unique<ChildProcess>(arguments, std::vector<std::string>{std::string(kSeamsVariable) + "=" + kSeams});
    ASSERT_TRUE(WaitForStatus([](const cJSON *) { return true; })) << service_->Errors();
}

void ServiceTest::StopService()
{
    service_->Signal(SIGTERM);
    EXPECT_EQ(service_->WaitForExit(), 0) << service_->Errors();
}

CJsonPtr ServiceTest::LastStatus() const
{
    const std::string &output = service_->Output();
    const size_t end = output.rfind('\n');
    if (end == std::string::npos || end == 0) {
        return nullptr;
    }
    const size_t before = output.rfind('\n', end - 1);
    const size_t begin = before == std::string::npos ? 0 : before + 1;
    CJsonPtr status(cJSON_Parse(output.substr(begin, end - begin).c_str())); // null: a line of the start
    return cJSON_HasObjectItem(status.get(), "disks") != 0 ? std::move(status) : nullptr;
}

bool ServiceTest::WaitForStatus(const std::function<bool(const cJSON *status)> &fits)
{
    size_t seen = std::string::npos;
    return service_->WaitForOutput([&](const std::string &output) {
        const size_t end = output.rfind('\n');
        if (end == seen) {
            return false;
        }
        seen = end;
        const CJsonPtr status = LastStatus();
        return status != nullptr && fits(status.get());
    });
}

bool ServiceTest::WaitForOnline(size_t count)
{
    return WaitForStatus([count](const cJSON *status) {
        return static_cast<size_t>(cJSON_GetArraySize(cJSON_GetObjectItem(status, "disks"))) == count;
    });
}

std::string ServiceTest::StateOf(const std::string &serial)
{
    const CJsonPtr status = LastStatus();
    return TextOf(FindDisk(status.get(), serial), "state");
}

bool ServiceTest::GoesOn()
{
    const size_t length = service_->Output().size();
    return service_->WaitForOutput([length](const std::string &output) { return output.size() > length; });
}

void ServiceTest::Event(const std::string &event)
{
    const Finished sent = RunToEnd({CORVANE_SIM_PATH, "--control", kControl, "--send", event});
    EXPECT_EQ(sent.exitCode, 0) << event << ": " << sent.output << sent.errors;
}

Finished ServiceTest::Ctl(const std::string &words)
{
    std::vector<std::string> arguments = {CORVANECTL_PATH, "--socket", kCommandSocket, "--timeout", "60"};
    std::istringstream text(words);
    for (std::string word; text >> word;) {
        arguments.push_back(word);
    }
    return RunToEnd(arguments);
}

std::vector<Recorded> ServiceTest::Record()
{
    std::vector<Recorded> requests;
    std::istringstream lines(ReadText(kRecord));
    for (std::string line; std::getline(lines, line);) {
        const CJsonPtr tree(cJSON_Parse(line.c_str()));
        if (tree == nullptr) {
            continue; // being written
        }
        const cJSON *id = cJSON_GetObjectItem(tree.get(), "id");
        requests.push_back({TextOf(tree.get(), "socket"), TextOf(tree.get(), "method"),
                            cJSON_IsNumber(id) != 0 ? id->valueint : -1,
                            Unformatted(cJSON_GetObjectItem(tree.get(), "params"))});
    }
    return requests;
}

size_t ServiceTest::RequestCount(const std::string &socket, const std::string &method)
{
    const std::vector<Recorded> requests = Record();
    return static_cast<size_t>(std::count_if(requests.begin(), requests.end(), [&](const Recorded &request) {
        return request.socket == socket && request.method == method;
    }));
}

bool ServiceTest::WaitForRequests(const std::string &socket, const std::string &method, size_t more)
{
    const size_t enough = RequestCount(socket, method) + more;
    return Eventually([&] { return RequestCount(socket, method) >= enough; });
}

size_t ServiceTest::Logged(const std::string &text)
{
    return CountIn(kLogFolder + "/norlog.log", text);
}

bool ServiceTest::WaitForLog(const std::string &text, size_t times)
{
    return Eventually([&] { return Logged(text) >= times; });
}

std::vector<std::string> ServiceTest::History()
{
    std::vector<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(kHistoryFolder)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.rbegin(), names.rend());
    return names;
}

void ServiceTest::MountSmall(const std::string &folder, const char *size)
{
    ASSERT_EQ(mount("tmpfs", folder.c_str(), "tmpfs", 0, (std::string("size=") + size).c_str()), 0)
        << std::strerror(errno);
    mounts_.push_back(folder);
}

void ServiceTest::Fill(const std::string &folder)
{
    const UniqueFd file(open((folder + kFiller).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    const std::string page(4096, 'x');
    int pages = 0;
    while (write(file.Get(), page.data(), page.size()) > 0) {
        pages++;
    }
    ASSERT_EQ(errno, ENOSPC);
    ASSERT_GT(pages, 0) << folder << " was full before, and taking the filler away will make no room";
}

void ServiceTest::MakeRoom(const std::string &folder)
{
    fs::remove(folder + kFiller);
}
