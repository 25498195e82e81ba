/**
 * @file kill_test.cpp
 * @brief kill -9 of each process at random moments, 200 times in all, while disks come and go and settings change.
 */
#include "service_fixture.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using std::chrono::milliseconds;

namespace {

constexpr int kKilled = 128 + SIGKILL;
constexpr int kServiceKills = 120;
constexpr int kSimKills = 50;
constexpr int kKernelAgentKills = 30;
constexpr int kRoundsToAFullLook = 12;

const std::string kAcknowledged = "/tmp/acknowledged";
const std::string kAgentSocket = "/tmp/dcak.sock";
const std::string kTools = "/tmp/tools";

/** What a start would load: the write-ahead copy if it is whole, else the file. */
CJsonPtr LoadAsAStartDoes(const std::string &path)
{
    CJsonPtr tree;
    // A service that runs may begin a save between the two looks; then the copy is there at the next.
    for (int look = 0; look < 10 && tree == nullptr; look++) {
        tree.reset(cJSON_Parse(ReadText(path + ".wal").c_str()));
        if (tree == nullptr) {
            tree.reset(cJSON_Parse(ReadText(path).c_str()));
        }
    }
    return tree;
}

/** Identifiers by serial number. Fails unless every entry is whole and no identifier or serial number comes twice. */
std::map<std::string, int> IdsOf(const cJSON *registry)
{
    static constexpr std::array<const char *, 13> keys = {
        "diskId",       "diskState", "frameId", "slotId", "sectorSize", "diskType", "mediaType",
        "diskCapacity", "vendor",    "model",   "sn",     "pciAddr",    "firmware"};
    std::map<std::string, int> ids;
    std::set<int> used;
    EXPECT_TRUE(cJSON_IsArray(registry)) << "the registry is lost";
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, registry)
    {
        for (const char *key : keys) {
            EXPECT_TRUE(cJSON_HasObjectItem(entry, key)) << key;
        }
        const int id = cJSON_GetObjectItem(entry, "diskId")->valueint;
        EXPECT_TRUE(used.insert(id).second) << "identifier " << id << " twice";
        EXPECT_TRUE(ids.emplace(cJSON_GetStringValue(cJSON_GetObjectItem(entry, "sn")), id).second) << "a disk twice";
    }
    return ids;
}

} // namespace

class KillTest : public ServiceTest {
protected:
    KillTest()
    {
        seed_ = GTEST_FLAG_GET(random_seed);
        if (seed_ == 0) {
            seed_ = static_cast<int>(std::random_device{}() % 99999) + 1;
        }
        dice_.seed(static_cast<unsigned>(seed_));
        std::cout << "seed " << seed_ << " (again with --gtest_random_seed=" << seed_ << ")" << std::endl;
    }
    int Roll(int sides) { return std::uniform_int_distribution<int>(0, sides - 1)(dice_); }

    void StartFleet(const std::vector<std::string> &options = {})
    {
        std::vector<std::string> disks;
        for (int i = 0; i < 20; i++) {
            const std::string number = std::to_string(10 + i);
            const bool isNvme = i % 2 == 0;
            if (isNvme || options.empty()) {
                serials_.push_back("KILL-" + number);
                disks.push_back(
                    DiskText(isNvme ? number : "sd" + number, serials_.back(), isNvme ? "SSD_NVMe" : "HDD_SAS"));
            }
        }
        present_ = {serials_.begin(), serials_.end()};
        scenario_ = ScenarioOf(disks);
        options_ = options;
        StartSim(scenario_, options_);
        WriteText(kSettingsFile, SettingsText());
    }
    /** Clients that change a setting without end; each value is greater than the one before. */
    void StartChanges()
    {
        WriteText(kAcknowledged, "0");
        WriteText("/tmp/change.sh", std::string("n=100\nwhile [ ! -e /tmp/enough ]; do n=$((n + 1)); ") +
                                        CORVANECTL_PATH + " --socket " + kCommandSocket +
                                        " --timeout 2 change dpr_smart disk_type=3 task_cycle=$n >/dev/null 2>&1 && " +
                                        "echo $n >" + kAcknowledged + ".new && mv " + kAcknowledged + ".new " +
                                        kAcknowledged + "; sleep 0.02; done\n");
        fs::remove("/tmp/enough");
        changes_ = std::make_unique<ChildProcess>(std::vector<std::string>{"/bin/sh", "/tmp/change.sh"});
    }
    void EndChanges()
    {
        WriteText("/tmp/enough", "");
        EXPECT_EQ(changes_->WaitForExit(), 0);
    }
    /** Disks of the second half of the fleet come and go, unseen by a service that does not run. */
    void MoveDisks(int count)
    {
        for (int i = 0; i < count; i++) {
            const size_t half = serials_.size() / 2;
            const std::string &serial = serials_[half + static_cast<size_t>(Roll(static_cast<int>(half)))];
            const bool isPresent = present_.erase(serial) != 0;
            if (!isPresent) {
                present_.insert(serial);
            }
            Event(std::string(R"({"do":")") + (isPresent ? "pull" : "plug") + R"(","disk":")" + serial + R"("})");
        }
    }
    bool IsFixed(const std::string &serial) const
    {
        return std::find(serials_.begin(), serials_.begin() + static_cast<long>(serials_.size() / 2), serial) !=
               serials_.begin() + static_cast<long>(serials_.size() / 2);
    }
    /** Every disk that is plugged is online and in the registry, and no other. */
    bool WaitForAllPresent()
    {
        return WaitForStatus([this](const cJSON *status) {
            std::set<std::string> online;
            const cJSON *disk = nullptr;
            cJSON_ArrayForEach(disk, cJSON_GetObjectItem(status, "disks"))
            {
                online.insert(cJSON_GetStringValue(cJSON_GetObjectItem(disk, "sn")));
            }
            std::set<std::string> registered;
            const CJsonPtr registry = LoadAsAStartDoes(kRegistryFile);
            cJSON_ArrayForEach(disk, registry.get())
            {
                registered.insert(cJSON_GetStringValue(cJSON_GetObjectItem(disk, "sn")));
            }
            return online == present_ && registered == present_;
        });
    }
    /** The settings that a start would load are whole, and no change is lost that a client was told of. */
    static void ExpectWholeSettings()
    {
        const int acknowledged = std::atoi(ReadText(kAcknowledged).c_str());
        const CJsonPtr settings = LoadAsAStartDoes(kSettingsFile);
        ASSERT_NE(settings, nullptr) << "the settings are lost";
        const cJSON *cycle = cJSON_GetObjectItem(cJSON_GetObjectItem(settings.get(), "sas_hdd"), "task_cycle");
        ASSERT_NE(cycle, nullptr);
        EXPECT_GE(cycle->valueint, acknowledged) << "a change is lost";
        const CJsonPtr wanted(cJSON_Parse(SettingsText({{"sas_hdd.task_cycle", cycle->valueint}}).c_str()));
        for (cJSON *item = settings->child; item != nullptr;) {
            cJSON *next = item->next;
            if (std::string(item->string).rfind("added_", 0) == 0) { // what upgrades brought
                cJSON_Delete(cJSON_DetachItemViaPointer(settings.get(), item));
            }
            item = next;
        }
        EXPECT_TRUE(cJSON_Compare(settings.get(), wanted.get(), 1)) << Unformatted(settings.get());
    }
    void ExpectWholeRegistry() const
    {
        const CJsonPtr registry = LoadAsAStartDoes(kRegistryFile);
        const std::map<std::string, int> ids = IdsOf(registry.get());
        for (const auto &[serial, id] : ids) {
            EXPECT_NE(std::find(serials_.begin(), serials_.end(), serial), serials_.end()) << serial;
        }
        for (const auto &[serial, id] : fixed_) {
            const auto found = ids.find(serial);
            ASSERT_NE(found, ids.end()) << serial << " is lost";
            EXPECT_EQ(found->second, id) << serial << " has another identifier";
        }
    }
    /** Remembers the identifiers of the disks that never leave. */
    void RememberFixed()
    {
        const CJsonPtr registry = LoadAsAStartDoes(kRegistryFile);
        for (const auto &[serial, id] : IdsOf(registry.get())) {
            if (IsFixed(serial)) {
                fixed_[serial] = id;
            }
        }
        ASSERT_EQ(fixed_.size(), serials_.size() / 2);
    }
    void StartProgram()
    {
        service_ = std::make_unique<ChildProcess>(std::vector<std::string>{
            CORVANED_PATH, "--prefix", kPrefix, "--status-interval", "1", "--status-format", "json"});
    }
    static void Kill(ChildProcess &process)
    {
        process.Signal(SIGKILL);
        ASSERT_EQ(process.WaitForExit(), kKilled) << process.Errors();
    }
    void Pause(int upToMs) { std::this_thread::sleep_for(milliseconds(Roll(upToMs))); }
    /** Until a save is under way, but no longer than this. @return whether one is. */
    static bool WaitForSave(int upToMs)
    {
        const auto until = std::chrono::steady_clock::now() + milliseconds(upToMs);
        while (std::chrono::steady_clock::now() < until) {
            if (access((kRegistryFile + ".wal").c_str(), F_OK) == 0 ||
                access((kSettingsFile + ".wal").c_str(), F_OK) == 0) {
                return true;
            }
        }
        return false;
    }

    int seed_;
    std::mt19937 dice_;
    std::vector<std::string> serials_; ///< the disks of the first half never leave
    std::set<std::string> present_;
    std::map<std::string, int> fixed_;
    std::string scenario_;
    std::vector<std::string> options_;
    std::unique_ptr<ChildProcess> changes_;
};

TEST_F(KillTest, TheServiceLosesNothingThatItHasSaved)
{
    StartFleet();
    StartProgram();
    ASSERT_TRUE(WaitForAllPresent()) << service_->Errors();
    ASSERT_NO_FATAL_FAILURE(RememberFixed());
    StartChanges();
    ASSERT_NO_FATAL_FAILURE(Kill(*service_));

    int duringSaves = 0;
    for (int kill = 1; kill < kServiceKills && !HasFailure(); kill++) {
        SCOPED_TRACE("seed " + std::to_string(seed_) + ", kill " + std::to_string(kill));
        const bool isFullLook = kill % kRoundsToAFullLook == 0;
        const std::string added = "added_" + std::to_string(kill / kRoundsToAFullLook);
        if (kill % kRoundsToAFullLook == kRoundsToAFullLook - 2) {
            WriteText(kUpgradeFile, SettingsText({{added, 1}}));
        }
        MoveDisks(3);
        StartProgram();
        if (isFullLook) {
            ASSERT_TRUE(WaitForAllPresent()) << service_->Errors();
        }
        if (kill % 3 == 0) {
            (void)WaitForSave(Roll(800));
        } else {
            Pause(800);
        }
        ASSERT_NO_FATAL_FAILURE(Kill(*service_));

        duringSaves += WaitForSave(1) ? 1 : 0;
        ExpectWholeRegistry();
        ExpectWholeSettings();
        EXPECT_LE(History().size(), 6u);
        if (isFullLook) {
            EXPECT_FALSE(fs::exists(kUpgradeFile)) << "the upgrade was not merged";
            EXPECT_TRUE(cJSON_HasObjectItem(LoadAsAStartDoes(kSettingsFile).get(),
                                            ("added_" + std::to_string(kill / kRoundsToAFullLook - 1)).c_str()));
        }
    }
    EndChanges();
    std::cout << duringSaves << " of " << kServiceKills
              << " kills left a write-ahead copy, last change acknowledged: " << ReadText(kAcknowledged) << std::endl;

    StartProgram();
    EXPECT_TRUE(WaitForAllPresent()) << service_->Errors();
    ExpectWholeRegistry();
    ExpectWholeSettings();
    EXPECT_GT(std::atoi(ReadText(kAcknowledged).c_str()), 0) << "no change ever came through";
}

TEST_F(KillTest, AgentsThatDieAndReturnHarmNoFile)
{
    StartFleet();
    Seams().syncInterval = 0; // one sync behind the other
    StartService();
    ASSERT_TRUE(WaitForAllPresent());
    StartChanges();

    for (int kill = 1; kill <= kSimKills && !HasFailure(); kill++) {
        SCOPED_TRACE("seed " + std::to_string(seed_) + ", kill " + std::to_string(kill));
        Pause(400);
        ASSERT_NO_FATAL_FAILURE(Kill(*sim_));
        Pause(100);
        StartSim(scenario_, options_);

        EXPECT_TRUE(service_->Running()) << service_->Errors();
        ExpectWholeRegistry(); // disks may have left and come back: as many as there are, each once
        ExpectWholeSettings();
        if (kill % kRoundsToAFullLook == 0) {
            EXPECT_TRUE(GoesOn());
        }
    }
    EndChanges();
    EXPECT_TRUE(WaitForRequests("kernel", "dca_get_disks_brief_info", 1));
    EXPECT_TRUE(WaitForRequests("spdk", "dca_get_disks_brief_info", 1));

    // A disk whose agent died between a record and the question who it is counts as refused until the next start.
    StopService();
    StartService();
    EXPECT_TRUE(WaitForAllPresent());
    ExpectWholeRegistry();
    ExpectWholeSettings();
}

class KernelAgentKillTest : public KillTest {
protected:
    void StartAgent()
    {
        agent_ = std::make_unique<ChildProcess>(std::vector<std::string>{AGENTD_PATH},
                                                std::vector<std::string>{"PATH=" + kTools + ":/usr/bin:/bin"});
    }
    /** @return the connection, which has sent its request, or -1. */
    static int Ask()
    {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        kAgentSocket.copy(address.sun_path, sizeof(address.sun_path) - 1);
        const std::string request = R"({"jsonrpc":"2.0","method":"dca_get_disks_brief_info","id":1})";
        if (connect(fd, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) != 0 ||
            send(fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) {
            (void)close(fd);
            return -1;
        }
        return fd;
    }
    static std::string Answer(int fd)
    {
        std::string text(1024, '\0');
        const ssize_t count = recv(fd, text.data(), text.size(), 0);
        text.resize(count > 0 ? static_cast<size_t>(count) : 0);
        (void)close(fd);
        return text;
    }
    bool WaitForAnswer()
    {
        return Eventually([this] {
            const int fd = agent_->Running() ? Ask() : -1;
            return fd >= 0 && Answer(fd).find(R"("disks")") != std::string::npos;
        });
    }

    std::unique_ptr<ChildProcess> agent_;
};

TEST_F(KernelAgentKillTest, ServesAgainAfterEachAndTheServiceStandsStill)
{
    fs::create_directories(kTools);
    WriteText(kTools + "/lsblk", "#!/bin/sh\ncase \"$1\" in --version) echo 'lsblk from util-linux 2.38.1';;\n"
                                 "*) echo '{\"blockdevices\": []}';; esac\n");
    ASSERT_EQ(chmod((kTools + "/lsblk").c_str(), 0755), 0);
    StartFleet({"--no-dcak"});
    StartAgent();
    ASSERT_TRUE(WaitForAnswer()) << agent_->Errors();
    StartService();
    ASSERT_TRUE(WaitForAllPresent());
    StartChanges();
    const std::string registry = ReadText(kRegistryFile);

    for (int kill = 1; kill <= kKernelAgentKills && !HasFailure(); kill++) {
        SCOPED_TRACE("seed " + std::to_string(seed_) + ", kill " + std::to_string(kill));
        std::vector<int> waiting;
        for (int i = Roll(8); i > 0; i--) {
            waiting.push_back(Ask());
        }
        Pause(60);
        ASSERT_NO_FATAL_FAILURE(Kill(*agent_));
        for (const int fd : waiting) {
            (void)close(fd);
        }
        StartAgent();

        EXPECT_TRUE(WaitForAnswer()) << agent_->Errors();
        EXPECT_TRUE(service_->Running()) << service_->Errors();
        EXPECT_EQ(ReadText(kRegistryFile), registry);
        ExpectWholeSettings();
    }
    EndChanges();

    EXPECT_TRUE(WaitForAllPresent());
    agent_->Signal(SIGTERM);
    EXPECT_EQ(agent_->WaitForExit(), 0) << agent_->Errors();
}
