#include "verdicts_fixture.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

#include "support/mount_namespace.h"

namespace {

const std::string kPrefix = "/tmp/prefix";
const std::string kScenario = "/tmp/prefix/scenario.json";
const std::string kControl = "/tmp/prefix/control.sock";
const std::string kRecord = "/tmp/prefix/record.jsonl";
const std::string kRegistry = "/tmp/prefix/config/disk_mgr.config";
const std::string kSeams = "/tmp/verdicts_seams";

/** Of the settings, and as the simulator calls them. */
constexpr std::array<const char *, 4> kSections = {"sata_ssd_disk", "sas_ssd_disk", "nvme_disk", "sas_hdd"};
constexpr std::array<const char *, 4> kTypes = {"SSD_SATA", "SSD_SAS", "SSD_NVMe", "HDD_SAS"};
constexpr std::array<const char *, 5> kStates = {"normal", "fault", "offline", "prefail", "slow"};
constexpr std::array<uint32_t, 4> kThresholds = {1, 1, 1, 100};

constexpr int kPatience = 120; // statuses, one a second; bounds a wait, decides nothing
constexpr int kTries = 60000;  // the same, of looks
constexpr std::chrono::milliseconds kLookAgain(1);

// What one request brought is stored when the next one comes; rates need the frames of two requests.
constexpr uint32_t kHealthRequests = 2;
constexpr uint32_t kFrameRequests = 3;

std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string Print(const cJSON *tree)
{
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(tree), &cJSON_free);
    return text.get();
}

void WriteSettings(const VerdictSettings &settings)
{
    std::ofstream out(kPrefix + "/config/corvane_config.json");
    out << R"({"feature_switch":1,"takeover_disk_switch":0,"disklife_prediction":{"task_cycle":)" << settings.lifeCycle
        << "}";
    for (size_t type = 0; type < kSections.size(); type++) {
        out << ",\"" << kSections[type] << R"(":{"task_cycle":)" << settings.prefailCycle[type]
            << R"(,"min_threshold_value":)" << kThresholds[type] << R"(,"min_slow_cycle":)"
            << settings.minSlowCycle[type] << "}";
    }
    out << "}";
}

/** Where the wear of a disk ends, as the status prints it. */
std::string WornOf(const cJSON *health)
{
    const cJSON *limit = cJSON_GetObjectItem(health, "wear_limit");
    if (cJSON_IsNumber(limit) == 0) {
        return "";
    }
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "%d.%02d", limit->valueint / 100, limit->valueint % 100);
    return text.data();
}

std::string RunToEnd(const std::vector<std::string> &arguments, int &exitCode)
{
    ChildProcess process(arguments);
    exitCode = process.WaitForExit();
    return process.Output() + process.Errors();
}

} // namespace

void VerdictsTest::SetUpTestSuite()
{
    // The tree may lie below a folder that is about to be covered.
    for (const auto &entry : std::filesystem::directory_iterator(CORVANE_SIM_SCENARIOS)) {
        scenarios_.emplace(entry.path().stem(), ReadFile(entry.path()));
    }
    static const std::string problem = EnterPrivateMounts(BUILD_DIR); // once for all suites
    problem_ = problem;
}

void VerdictsTest::SetUp()
{
    ASSERT_EQ(problem_, "");
    std::filesystem::remove_all(kPrefix);
    std::filesystem::create_directories(kPrefix + "/config");
    std::filesystem::create_directories(kPrefix + "/userconfig_bak");
    const UniqueFd file(open(kSeams.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    ASSERT_EQ(ftruncate(file.Get(), sizeof(VerdictsSeams)), 0);
    void *page = mmap(nullptr, sizeof(VerdictsSeams), PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    ASSERT_NE(page, MAP_FAILED);
    seams_ = new (page) VerdictsSeams{};
}

void VerdictsTest::TearDown()
{
    for (ChildProcess *process : {corvaned_.get(), sim_.get()}) {
        if (process != nullptr && process->Running()) {
            process->Signal(SIGTERM);
            EXPECT_EQ(process->WaitForExit(), 0) << process->Errors();
        }
    }
    if (HasFailure()) {
        std::ifstream log("/var/log/corvane/norlog.log");
        std::vector<std::string> lines;
        for (std::string line; std::getline(log, line);) {
            lines.push_back(line);
        }
        std::cout << "last lines of the log:\n";
        for (size_t i = lines.size() > 60 ? lines.size() - 60 : 0; i < lines.size(); i++) {
            std::cout << lines[i] << '\n';
        }
    }
    if (seams_ != nullptr) {
        (void)munmap(seams_, sizeof(VerdictsSeams));
    }
}

void VerdictsTest::ReadScenario(const std::string &name)
{
    const CJsonPtr tree(cJSON_Parse(scenarios_[name].c_str()));
    const cJSON *disk = nullptr;
    cJSON_ArrayForEach(disk, cJSON_GetObjectItem(tree.get(), "disks"))
    {
        const cJSON *expect = cJSON_GetObjectItem(disk, "expect");
        const cJSON *life = cJSON_GetObjectItem(expect, "life");
        const auto type = std::find(kTypes.begin(), kTypes.end(), TextOf(disk, "disk_type"));
        ASSERT_NE(type, kTypes.end()) << name;
        disks_.push_back({.serial = TextOf(disk, "serial_number"),
                          .type = static_cast<size_t>(type - kTypes.begin()),
                          .state = TextOf(expect, "state"),
                          .strategy = TextOf(expect, "strategy"),
                          .life = cJSON_IsNumber(life) != 0 ? std::optional(life->valueint) : std::nullopt,
                          .worn = WornOf(cJSON_GetObjectItem(disk, "health")),
                          .device = TextOf(disk, "device_name")});
    }
    ASSERT_FALSE(disks_.empty()) << name;
    const CJsonPtr events(cJSON_DetachItemFromObject(tree.get(), "events"));
    cJSON *event = nullptr;
    cJSON_ArrayForEach(event, events.get())
    {
        cJSON_DeleteItemFromObject(event, "at");
        events_.push_back(Print(event));
    }
    ASSERT_FALSE(events_.empty()) << name;
    std::ofstream(kScenario) << Print(tree.get());
}

void VerdictsTest::Start(const std::string &scenario, const VerdictSettings *settings, Clock clock)
{
    ASSERT_NO_FATAL_FAILURE(ReadScenario(scenario));
    if (settings != nullptr) {
        WriteSettings(*settings);
    }
    sim_ = std::make_unique<ChildProcess>(std::vector<std::string>{CORVANE_SIM_PATH, "--scenario", kScenario,
                                                                   "--control", kControl, "--record", kRecord});
    ASSERT_TRUE(sim_->WaitForOutput("ready\n")) << sim_->Errors();
    StartService(clock);

    // Without ticks there is no life yet.
    const bool awaitsLife = clock == Clock::PROGRAM;
    CJsonPtr status;
    int statuses = 0;
    do {
        ASSERT_LT(statuses++, kPatience) << "not every disk came online with all its records: " << Print(status.get());
        status = NextStatus();
        ASSERT_NE(status, nullptr);
    } while (!AllFit(status.get(), [awaitsLife](const cJSON *disk, const ExpectedDisk &expected) {
        return TextOf(disk, "state") == "normal" && cJSON_HasObjectItem(disk, "io") != 0 &&
               (!awaitsLife || !expected.life.has_value() || cJSON_HasObjectItem(disk, "life") != 0);
    }));
    ASSERT_NO_FATAL_FAILURE(WaitForAnswers()); // the status does not tell a health record of zeros from none
    for (const ExpectedDisk &disk : disks_) {
        ids_[disk.serial] = cJSON_GetObjectItem(FindDisk(status.get(), disk.serial), "id")->valueint;
    }
}

void VerdictsTest::StartService(Clock clock)
{
    const bool isTest = clock == Clock::TEST;
    std::vector<std::string> environment;
    if (isTest) {
        environment.push_back(std::string(kVerdictsSeamsVariable) + "=" + kSeams);
    }
    corvaned_ = std::make_unique<ChildProcess>(std::vector<std::string>{isTest ? VERDICTS_CORVANED_PATH : CORVANED_PATH,
                                                                        "--prefix", kPrefix, "--status-interval", "1",
                                                                        "--status-format", "json"},
                                               environment);
}

bool VerdictsTest::AllFit(const cJSON *status,
                          const std::function<bool(const cJSON *disk, const ExpectedDisk &expected)> &fits)
{
    return std::all_of(disks_.begin(), disks_.end(), [&](const ExpectedDisk &expected) {
        const cJSON *disk = FindDisk(status, expected.serial);
        return disk != nullptr && fits(disk, expected);
    });
}

void VerdictsTest::BeginTrouble()
{
    for (const std::string &event : events_) {
        int exitCode = -1;
        const std::string answer = RunToEnd({CORVANE_SIM_PATH, "--control", kControl, "--send", event}, exitCode);
        ASSERT_EQ(exitCode, 0) << event << ": " << answer;
    }
}

void VerdictsTest::WaitUntilCollected()
{
    CJsonPtr status;
    int statuses = 0;
    do {
        ASSERT_LT(statuses++, kPatience) << "wear goes on: " << Print(status.get());
        status = NextStatus();
        ASSERT_NE(status, nullptr);
    } while (!AllFit(status.get(), [](const cJSON *disk, const ExpectedDisk &expected) {
        return expected.worn.empty() || TextOf(cJSON_GetObjectItem(disk, "health"), "wear") == expected.worn;
    }));

    WaitForAnswers();
}

void VerdictsTest::WaitForAnswers()
{
    const auto more = [this](const char *method, std::map<std::string, uint32_t> before, uint32_t requests) {
        std::map<std::string, uint32_t> now = RequestsOf(method);
        return std::all_of(disks_.begin(), disks_.end(), [&](const ExpectedDisk &disk) {
            return now[disk.device] >= before[disk.device] + requests;
        });
    };
    const auto health = RequestsOf("dca_get_disks_health_info");
    const auto frames = RequestsOf("dca_get_disks_iostat");
    int statuses = 0;
    while (!more("dca_get_disks_health_info", health, kHealthRequests) ||
           !more("dca_get_disks_iostat", frames, kFrameRequests)) {
        ASSERT_LT(statuses++, kPatience) << "the agents are not asked";
        ASSERT_NE(NextStatus(), nullptr);
    }
}

void VerdictsTest::Ticks(uint64_t count)
{
    const uint64_t wanted = seams_->wanted += count;
    while (seams_->given != wanted) {
        ASSERT_TRUE(corvaned_->Running()) << corvaned_->Errors();
        std::this_thread::sleep_for(kLookAgain);
    }
}

std::map<std::string, std::string> VerdictsTest::StoredStates()
{
    std::map<std::string, std::string> states;
    CJsonPtr registry;
    for (int tries = 0; registry == nullptr && tries < kTries; tries++) {
        registry.reset(cJSON_Parse(ReadFile(kRegistry).c_str())); // null: the collection saves at this moment
        if (registry == nullptr) {
            std::this_thread::sleep_for(kLookAgain);
        }
    }
    EXPECT_NE(registry, nullptr);
    const cJSON *disk = nullptr;
    cJSON_ArrayForEach(disk, registry.get())
    {
        const auto state = static_cast<size_t>(cJSON_GetObjectItem(disk, "diskState")->valueint);
        states[TextOf(disk, "sn")] = state < kStates.size() ? kStates[state] : "unknown";
    }
    return states;
}

std::map<std::string, uint32_t> VerdictsTest::RequestsOf(const std::string &method)
{
    std::map<std::string, uint32_t> requests;
    std::ifstream record(kRecord);
    for (std::string line; std::getline(record, line);) {
        const CJsonPtr request(cJSON_Parse(line.c_str()));
        if (TextOf(request.get(), "method") != method) {
            continue;
        }
        const cJSON *device = nullptr;
        cJSON_ArrayForEach(device, cJSON_GetObjectItem(cJSON_GetObjectItem(request.get(), "params"), "devices"))
        {
            requests[cJSON_GetStringValue(device)]++;
        }
    }
    return requests;
}

CJsonPtr VerdictsTest::NextStatus()
{
    const size_t seen = corvaned_->Output().rfind('\n');
    const bool more =
        corvaned_->WaitForOutput([seen](const std::string &output) { return output.rfind('\n') != seen; });
    EXPECT_TRUE(more) << "corvaned ended or fell silent: " << corvaned_->Errors();
    const std::string &output = corvaned_->Output();
    const size_t end = output.rfind('\n');
    if (!more) {
        return nullptr;
    }
    const size_t before = end == 0 ? std::string::npos : output.rfind('\n', end - 1);
    const size_t begin = before == std::string::npos ? 0 : before + 1;
    CJsonPtr status(cJSON_Parse(output.substr(begin, end - begin).c_str()));
    // Lines of the start come before the first status.
    return status != nullptr ? std::move(status) : CJsonPtr(cJSON_CreateObject());
}

void VerdictsTest::ExpectVerdictsOfTheScenario()
{
    // The status lags behind the registry, and a reader that was away finds old ones first.
    bool isShown = false;
    for (int statuses = 0; !isShown && statuses < kPatience; statuses++) {
        const CJsonPtr status = NextStatus();
        ASSERT_NE(status, nullptr);
        isShown = AllFit(status.get(), [](const cJSON *disk, const ExpectedDisk &expected) {
            const cJSON *life = cJSON_GetObjectItem(cJSON_GetObjectItem(disk, "life"), "diskLife");
            return TextOf(disk, "state") == expected.state &&
                   (!expected.life.has_value() || (life != nullptr && life->valueint == *expected.life));
        });
    }
    corvaned_->Signal(SIGTERM);
    EXPECT_EQ(corvaned_->WaitForExit(), 0);
    EXPECT_EQ(corvaned_->Errors(), "");
    const std::string status = kPrefix + "/status.jsonl";
    const std::string &output = corvaned_->Output();
    std::ofstream(status) << output.substr(0, output.rfind('\n') + 1); // the end may have cut a line
    int exitCode = -1;
    const std::string judged = RunToEnd({CORVANE_SIM_PATH, "--scenario", kScenario, "--judge", status}, exitCode);
    EXPECT_EQ(exitCode, 0) << judged;
    EXPECT_THAT(judged, ::testing::EndsWith("\n" + std::to_string(disks_.size()) + " of " +
                                            std::to_string(disks_.size()) + " disks as expected\n"));
}

uint32_t VerdictsTest::MarkedSamples(const std::string &serial)
{
    int exitCode = -1;
    const std::string window = RunToEnd({NORDIAG_PATH, std::to_string(corvaned_->Pid()), "u_drm_slow_disk",
                                         "showdiskiostat", std::to_string(ids_[serial])},
                                        exitCode);
    EXPECT_EQ(exitCode, 0) << window;
    uint32_t rows = 0;
    uint32_t marked = 0;
    std::istringstream lines(window);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream cells(line);
        std::string cell;
        cells >> cell;
        if (cell == "isslow:") {
            rows++;
            while (cells >> cell) {
                marked += cell == "1" ? 1U : 0U;
            }
        }
    }
    EXPECT_EQ(rows, 4u) << window;
    return marked;
}

std::vector<std::string> VerdictsTest::ToldToTheDataAgent(const std::string &serial)
{
    std::vector<std::string> told;
    std::ifstream record(kRecord);
    for (std::string line; std::getline(record, line);) {
        const CJsonPtr request(cJSON_Parse(line.c_str()));
        const cJSON *params = cJSON_GetObjectItem(request.get(), "params");
        const std::string method = TextOf(request.get(), "method");
        if (TextOf(params, "sn") != serial) {
            continue;
        }
        if (method == "dma_set_disk_state") {
            told.push_back("state " + Print(cJSON_GetObjectItem(params, "disk_state")));
        } else if (method == "dma_set_disk_handle_strategy") {
            told.push_back(Print(params));
        }
    }
    return told;
}

const cJSON *VerdictsTest::FindDisk(const cJSON *status, const std::string &serial)
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

std::string VerdictsTest::TextOf(const cJSON *object, const char *name)
{
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItem(object, name));
    return text != nullptr ? text : "";
}
