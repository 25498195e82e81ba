#include "ctl_fixture.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include "cli/common/CliResultCode.h"
#include "support/mount_namespace.h"

namespace fs = std::filesystem;

namespace {

const std::string kPrefix = "/tmp/opt";
constexpr auto kPatience = std::chrono::seconds(120);

constexpr std::array<const char *, 3> kNvmeDisks = {"DEMONVME0000", "DEMONVME0001", "DEMONVME0002"};

std::string Line(const std::string &label, size_t width, const std::string &value)
{
    return label + std::string(width - label.size(), ' ') + ": " + value + "\n";
}

std::string Identity(int id, const std::string &device, const std::string &type, const std::string &model,
                     const std::string &serial, const std::string &slot)
{
    return Line("Diskid", 16, std::to_string(id)) + Line("DiskState", 16, "Normal state") +
           Line("DiskCapacity", 16, "1.8TB") + Line("SectorSize", 16, "512") + Line("Vendor", 16, "VELMAR") +
           Line("Model", 16, model) + Line("Firmware", 16, "A103") + Line("Sn", 16, serial) +
           Line("DeviceName", 16, device) + Line("PciAddr", 16, "") + Line("IntfType", 16, type) +
           Line("SlotId", 16, slot);
}

std::string Verdict(const std::string &score, const std::string &life, const std::string &state,
                    const std::string &suggestion)
{
    return Line("DiskHealthScore", 18, score) + Line("DiskLife", 18, life) + Line("DiskState", 18, state) +
           Line("Suggestions", 18, suggestion);
}

std::string Io(const std::string &utilization)
{
    return Line("ReadIops", 14, "1500") + Line("WriteIops", 14, "800") + Line("ReadIoBand", 14, "24000kb/s") +
           Line("WriteIoBand", 14, "12800kb/s") + Line("ReadIoDelay", 14, "320us") + Line("WriteIoDelay", 14, "310us") +
           Line("QueueDepth", 14, "254") + Line("ioBusyNum", 14, "4") + Line("svctm", 14, "80") +
           Line("utilization", 14, utilization);
}

/** Adds a line to an account file of this mount namespace. */
void AddAccount(const std::string &file, const std::string &line)
{
    std::ofstream(file, std::ios::app) << line << '\n';
}

} // namespace

Finished RunToEnd(const std::vector<std::string> &arguments)
{
    ChildProcess process(arguments);
    process.CloseInput();
    Finished run;
    run.exitCode = process.WaitForExit();
    run.out = process.Output();
    run.err = process.Errors();
    return run;
}

std::string ReadAll(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string Compact(const std::string &json)
{
    if (const CJsonPtr tree(cJSON_Parse(json.c_str())); tree == nullptr) {
        return json;
    }
    std::string text = json;
    cJSON_Minify(text.data());
    text.resize(std::strlen(text.c_str()));
    return text;
}

size_t CountOf(const std::string &text, const std::string &part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        count++;
    }
    return count;
}

std::string OnScreen(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

std::map<std::string, std::string> FiveDisks()
{
    const std::string rule(63, '-');
    return {
        {"show summary", "SummaryInfo:\nDiskId  DiskSn                                    \n" + rule +
                             "\n"
                             "0       SN-A                                      \n"
                             "3       SN-WITH-TWENTY-CHARS                      \n"
                             "11      SN C                                      \n"
                             "12      SN-D                                      \n"
                             "63      SN-E                                      \n" +
                             rule + "\n"},
        {"show disk_info disk_id=0", Identity(0, "sda", "SATA SSD", "VSSD-960G", "SN-A", "NA")},
        {"show drm_info disk_id=0",
         Verdict("No predictions yet", "No predictions yet", "Normal state", "No action required")},
        {"show iostat_info disk_id=0", Io("12.5%")},
        {"show disk_info disk_id=3",
         Identity(3, "nvme10", "NVME SSD", "A MODEL OF THIRTY-TWO CHARACTERS", "SN-WITH-TWENTY-CHARS", "12")},
        {"show drm_info disk_id=3", Verdict("37", "<1", "Fault state", "Replace the hard disk")},
        {"show iostat_info disk_id=3", Io("100.0%")},
        {"show disk_info disk_id=11", Identity(11, "sdaa", "NL SAS HDD", "ST12000", "SN C", "0")},
        {"show drm_info disk_id=11", Verdict("N/A", "N/A", "Slow state", "Migrate data and replace the hard disk")},
        {"show iostat_info disk_id=11", Io("99.99%")},
        {"show disk_info disk_id=12", Identity(12, "sdab", "SAS SSD", "", "SN-D", "NA")},
        {"show drm_info disk_id=12", Verdict("100", ">60", "Normal state", "")},
        {"show iostat_info disk_id=12", Io("0.0%")},
        {"show disk_info disk_id=63", Identity(63, "sdac", "SAS SSD", "VS-1600", "SN-E", "7")},
        {"show drm_info disk_id=63", Verdict("37", "1", "Prefail state", "Migrate data and replace the hard disk")},
        {"show iostat_info disk_id=63", Io("7.25%")},
    };
}

std::string WithoutEscapes(const std::string &text)
{
    std::string shown;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] != '\033') {
            shown += text[i];
            continue;
        }
        while (i < text.size() && isalpha(static_cast<unsigned char>(text[i])) == 0) {
            i++;
        }
    }
    return shown;
}

void CtlTest::SetUp()
{
    char name[] = "/tmp/ctl-test.XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
    fs::create_directory(folder_ + "/config");
    fs::copy_file(SOURCE_DIR "/packaging/config/error_en.xml", folder_ + "/config/error_en.xml");
    (void)unsetenv("NO_COLOR");
}

void CtlTest::TearDown()
{
    server_.reset();
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

std::vector<std::string> CtlTest::Client(const std::vector<std::string> &words) const
{
    std::vector<std::string> arguments = {CORVANECTL_PATH, "--prefix", folder_};
    arguments.insert(arguments.end(), words.begin(), words.end());
    return arguments;
}

void CtlTest::Serve(const std::map<std::string, std::string> &answers)
{
    Serve([answers](const std::string &request) {
        const auto answer = answers.find(request);
        return answer != answers.end() ? Reply{Reply::Kind::ANSWER, 0, answer->second}
                                       : Reply{Reply::Kind::ANSWER, CORVANE_CLI::CLI_DB_ID_NOT_EXIST, "null"};
    });
}

void NodeTest::SetUpTestSuite()
{
    // The tree may lie below a folder that is about to be covered.
    static const std::string problem = [] {
        // What happens here happens when a test says so, not by the scenario's own clock.
        const CJsonPtr scenario(cJSON_Parse(ReadAll(SOURCE_DIR "/programs/corvane-sim/scenarios/demo.json").c_str()));
        cJSON_DeleteItemFromObject(scenario.get(), "events");
        const CJsonText text(cJSON_Print(scenario.get()));
        scenario_ = text.get();
        catalogue_ = ReadAll(SOURCE_DIR "/packaging/config/error_en.xml");
        return EnterPrivateMounts(BUILD_DIR);
    }();
    problem_ = problem;
}

void NodeTest::SetUp()
{
    ASSERT_EQ(problem_, "");
    fs::remove_all(kPrefix);
    for (const char *folder : {"/bin", "/lib", "/config", "/userconfig_bak"}) {
        fs::create_directories(kPrefix + folder);
    }
    // As it is installed, where every user reaches it.
    for (const char *program : {CORVANECTL_PATH, CORVANED_PATH, CORVANE_SIM_PATH}) {
        fs::copy(program, kPrefix + "/bin");
    }
    for (const fs::directory_entry &entry : fs::directory_iterator(CORVANE_LIB_DIR)) {
        if (entry.path().string().find(".so") != std::string::npos) {
            fs::copy(entry.path(), kPrefix + "/lib", fs::copy_options::copy_symlinks);
        }
    }
    (void)setenv("LD_LIBRARY_PATH", (kPrefix + "/lib").c_str(), 1);
    // Without it each tzset() of the service reads the zone again, under a lock that the thread sanitizer does not see.
    (void)setenv("TZ", ":/etc/localtime", 1);
    std::ofstream(kPrefix + "/config/error_en.xml") << catalogue_;
    std::ofstream("/tmp/scenario.json") << scenario_;
    WriteSettings({});
    AddAccount("/etc/passwd", "reader:x:64902:64902::/nonexistent:/usr/sbin/nologin");
    AddAccount("/etc/passwd", "stranger:x:64903:64903::/nonexistent:/usr/sbin/nologin");
    AddAccount("/etc/group", "reader:x:64902:\nstranger:x:64903:");
    std::string groups = ReadAll("/etc/group");
    const std::string line = "corvane_group:x:64901:\n";
    if (groups.find(line) != std::string::npos) {
        groups.replace(groups.find(line), line.size(), "corvane_group:x:64901:reader\n");
        std::ofstream("/etc/group") << groups;
    }
}

void NodeTest::WriteSettings(const NodeSettings &settings)
{
    std::ofstream file(kPrefix + "/config/corvane_config.json");
    file << R"({"feature_switch":1,"takeover_disk_switch":0,"disklife_prediction":{"task_cycle":)" << settings.lifeCycle
         << "}";
    for (const char *section : {"sata_ssd_disk", "sas_ssd_disk", "nvme_disk", "sas_hdd"}) {
        const bool rotates = std::string(section) == "sas_hdd";
        file << ",\"" << section << R"(":{"task_cycle":)" << settings.prefailCycle << R"(,"min_threshold_value":)"
             << (rotates ? 100 : settings.thresholdMs) << R"(,"min_slow_cycle":)" << settings.minSlowCycle << "}";
    }
    file << "}";
}

void NodeTest::TearDown()
{
    for (ChildProcess *process : {corvaned_.get(), sim_.get()}) {
        if (process != nullptr && process->Running()) {
            process->Signal(SIGTERM);
            EXPECT_EQ(process->WaitForExit(), 0) << process->Errors();
        }
    }
}

std::vector<std::string> NodeTest::As(const std::string &user, std::vector<std::string> arguments)
{
    if (user != "root") {
        const std::vector<std::string> change = {"/usr/bin/setpriv", "--reuid=" + user,
                                                 "--regid=" + (user == "corvane_user" ? "corvane_group" : user),
                                                 "--init-groups", "--"};
        arguments.insert(arguments.begin(), change.begin(), change.end());
    }
    return arguments;
}

void NodeTest::StartFleet(const std::string &user, const std::vector<std::string> &options)
{
    if (user != "root") {
        for (const fs::directory_entry &entry : fs::recursive_directory_iterator(kPrefix)) {
            ASSERT_EQ(lchown(entry.path().c_str(), 64901, 64901), 0);
        }
        ASSERT_EQ(chown(kPrefix.c_str(), 64901, 64901), 0);
    }
    (void)unlink("/tmp/control.sock");
    (void)unlink("/tmp/dcak.sock");
    (void)unlink("/var/tmp/spdk.sock");
    sim_ = std::make_unique<ChildProcess>(
        As(user, {kPrefix + "/bin/corvane-sim", "--scenario", "/tmp/scenario.json", "--control", "/tmp/control.sock"}));
    ASSERT_TRUE(sim_->WaitForOutput("ready\n")) << sim_->Errors();
    for (const char *serial : kNvmeDisks) {
        Event(std::string(R"({"do":"pull","disk":")") + serial + "\"}");
    }
    StartService(user, options);
    // The kernel's disks first: which agent is asked first is a matter of luck, and with it who gets which identifier.
    ASSERT_NO_FATAL_FAILURE(WaitForRecords(9, 3));
    for (const char *serial : kNvmeDisks) {
        Event(std::string(R"({"do":"plug","disk":")") + serial + "\"}");
    }
    WaitForRecords(12, 6);
}

void NodeTest::StartService(const std::string &user, const std::vector<std::string> &options)
{
    std::vector<std::string> service = {kPrefix + "/bin/corvaned", "--status-interval", "1", "--status-format", "json"};
    service.insert(service.end(), options.begin(), options.end());
    corvaned_ = std::make_unique<ChildProcess>(As(user, service));
}

void NodeTest::WaitForStatus(const ::testing::Matcher<std::string> &fits)
{
    ASSERT_TRUE(corvaned_->WaitForOutput([&fits](const std::string &output) {
        const size_t end = output.rfind('\n');
        const size_t begin = output.rfind("{\"time\"", end);
        return end != std::string::npos && begin != std::string::npos &&
               fits.Matches(output.substr(begin, end - begin));
    })) << corvaned_->Errors()
        << corvaned_->Output();
}

void NodeTest::WaitForRecords(size_t disks, size_t lives)
{
    WaitForStatus(::testing::Truly([=](const std::string &status) {
        return CountOf(status, "\"utilization\"") == disks && CountOf(status, "\"healthScore\"") == lives;
    }));
}

void NodeTest::Event(const std::string &event)
{
    const Finished run = RunToEnd({kPrefix + "/bin/corvane-sim", "--control", "/tmp/control.sock", "--send", event});
    ASSERT_EQ(run.exitCode, 0) << event << run.err;
}

Finished NodeTest::Ctl(const std::vector<std::string> &words, const std::string &user)
{
    std::vector<std::string> arguments = {kClient};
    arguments.insert(arguments.end(), words.begin(), words.end());
    return RunToEnd(As(user, arguments));
}

Finished NodeTest::CtlUntil(const std::vector<std::string> &words, const ::testing::Matcher<std::string> &fits)
{
    const auto end = std::chrono::steady_clock::now() + kPatience;
    Finished run;
    do {
        run = Ctl(words);
    } while (!fits.Matches(run.out) && std::chrono::steady_clock::now() < end);
    EXPECT_THAT(run.out, fits);
    return run;
}
