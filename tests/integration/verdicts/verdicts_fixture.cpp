#include "verdicts_fixture.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/mount_namespace.h"

namespace {

const std::string kPrefix = "/tmp/prefix";
const std::string kScenario = "/tmp/prefix/scenario.json";
const std::string kControl = "/tmp/prefix/control.sock";
const std::string kRecord = "/tmp/prefix/record.jsonl";

constexpr double kStartBound = 90;

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

std::string Section(const char *name, const VerdictSettings &settings, uint32_t threshold)
{
    return std::string(",\"") + name + R"(":{"task_cycle":)" + std::to_string(settings.prefailCycle) +
           R"(,"min_threshold_value":)" + std::to_string(threshold) + R"(,"min_slow_cycle":)" +
           std::to_string(settings.minSlowCycle) + "}";
}

void WriteSettings(const VerdictSettings &settings)
{
    std::ofstream(kPrefix + "/config/corvane_config.json")
        << R"({"feature_switch":1,"takeover_disk_switch":0,"disklife_prediction":{"task_cycle":)" << settings.lifeCycle
        << "}" << Section("sata_ssd_disk", settings, 1) << Section("sas_ssd_disk", settings, 1)
        << Section("nvme_disk", settings, 1) << Section("sas_hdd", settings, 100) << "}";
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
}

void VerdictsTest::ReadScenario(const std::string &name)
{
    const CJsonPtr tree(cJSON_Parse(scenarios_[name].c_str()));
    const cJSON *disk = nullptr;
    cJSON_ArrayForEach(disk, cJSON_GetObjectItem(tree.get(), "disks"))
    {
        const cJSON *expect = cJSON_GetObjectItem(disk, "expect");
        disks_.push_back({TextOf(disk, "serial_number"), TextOf(disk, "disk_type"), TextOf(expect, "state"),
                          TextOf(expect, "strategy"), cJSON_IsNumber(cJSON_GetObjectItem(expect, "life")) != 0});
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

void VerdictsTest::Start(const std::string &scenario, const VerdictSettings &settings)
{
    ASSERT_NO_FATAL_FAILURE(ReadScenario(scenario));
    WriteSettings(settings);
    sim_ = std::make_unique<ChildProcess>(std::vector<std::string>{CORVANE_SIM_PATH, "--scenario", kScenario,
                                                                   "--control", kControl, "--record", kRecord});
    ASSERT_TRUE(sim_->WaitForOutput("ready\n")) << sim_->Errors();
    corvaned_ = std::make_unique<ChildProcess>(std::vector<std::string>{
        CORVANED_PATH, "--prefix", kPrefix, "--status-interval", "1", "--status-format", "json"});

    const auto isComplete = [this](const cJSON *status) {
        return std::all_of(disks_.begin(), disks_.end(), [status](const ExpectedDisk &expected) {
            const cJSON *disk = FindDisk(status, expected.serial);
            return TextOf(disk, "state") == "normal" && cJSON_HasObjectItem(disk, "io") != 0 &&
                   (!expected.hasLife || cJSON_HasObjectItem(disk, "life") != 0);
        });
    };
    CJsonPtr status;
    const auto start = std::chrono::steady_clock::now();
    do {
        ASSERT_LT(Seconds(std::chrono::steady_clock::now() - start).count(), kStartBound)
            << "not every disk came online with all its records: " << Print(status.get());
        status = NextStatus();
        ASSERT_NE(status, nullptr);
    } while (!isComplete(status.get()));
    for (const ExpectedDisk &disk : disks_) {
        ids_[disk.serial] = cJSON_GetObjectItem(FindDisk(status.get(), disk.serial), "id")->valueint;
    }
}

void VerdictsTest::BeginTrouble()
{
    for (const std::string &event : events_) {
        int exitCode = -1;
        const std::string answer = RunToEnd({CORVANE_SIM_PATH, "--control", kControl, "--send", event}, exitCode);
        ASSERT_EQ(exitCode, 0) << event << ": " << answer;
    }
    began_ = std::chrono::steady_clock::now();
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
    corvaned_->Signal(SIGTERM);
    EXPECT_EQ(corvaned_->WaitForExit(), 0);
    EXPECT_EQ(corvaned_->Errors(), "");
    const std::string status = kPrefix + "/status.jsonl";
    std::ofstream(status) << corvaned_->Output();
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
