#include "cli_client.h"

#include <filesystem>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::SizeIs;

const char *const kSections[] = {"sata_ssd_disk", "sas_ssd_disk", "nvme_disk", "sas_hdd"};
constexpr uint32_t kGroups[] = {0, 1, 3, 4}; // of the prefail routine, by class

CliAnswer Changed(const std::string &what, const std::string &action = "")
{
    return {false, 0, "change config " + what + "successfully\n", action};
}

CliAnswer Failed(const std::string &what, int code)
{
    return {false, code, "change config " + what + "failed\n", "change"};
}

CliAnswer Refused(int code, const std::string &action = "change")
{
    return {false, code, "null", action};
}

std::string SwitchLines(const std::string &feature, const std::string &takeOver)
{
    return "feature_switch        : " + feature + "\ntakeover_disk_switch  : " + takeOver + "\n";
}

std::string Padded(int value)
{
    const std::string text = std::to_string(value);
    return text + std::string(5 - text.size(), ' ');
}

std::string SlowLine(const std::string &name, int threshold, int cycle)
{
    return name + std::string(14 - name.size(), ' ') + ": min_threshold_value=" + Padded(threshold) +
           "  min_slow_cycle=" + Padded(cycle) + "\n";
}

std::string CycleLine(const std::string &name, int cycle)
{
    return name + std::string(14 - name.size(), ' ') + ": task_cycle=" + std::to_string(cycle) + "\n";
}

class CliConfigTest : public CliTest {
protected:
    void SetUp() override
    {
        CliTest::SetUp();
        StartForDisks();
    }

    static lib::SlowDiskConfig Slow(uint32_t index) { return *lib::DrmGetSlowDiskDetectV2Config(index); }
    static uint32_t Cycle(uint32_t group) { return lib::Global<lib::DprCycle[5]>("g_dprCycleConfig")[group].cycle; }
    static uint32_t LifeCycle() { return lib::Global<uint32_t>("g_diskLifeMonitorSchedulerCycle"); }
    static uint8_t PrefailSwitch() { return lib::Global<uint8_t>("g_dprSwitchConfig"); }
    static bool Listening() { return lib::Global<uint8_t>("g_isShutDown") == 0; }

    /** While it stands no save of the settings succeeds. */
    void BlockConfigSaves() const { std::filesystem::create_directory(ConfigPath() + ".wal"); }
    void UnblockConfigSaves() const { std::filesystem::remove(ConfigPath() + ".wal"); }

    size_t Backups() const
    {
        size_t count = 0;
        for (const auto &entry : std::filesystem::directory_iterator(prefix_ + "/userconfig_bak")) {
            count += entry.path().filename().string().rfind("corvane_config_bak_", 0) == 0 ? 1 : 0;
        }
        return count;
    }
};

TEST_F(CliConfigTest, ShowsEverySetting)
{
    EXPECT_EQ(Ask("show config"), (CliAnswer{false, 0, SwitchLines("off", "off"), "show"}));
    EXPECT_EQ(Ask("show slowdisk_detect_config"),
              (CliAnswer{false, 0,
                         "sata_ssd_disk : min_threshold_value=1      min_slow_cycle=50   \n"
                         "sas_ssd_disk  : min_threshold_value=1      min_slow_cycle=50   \n"
                         "nvme_disk     : min_threshold_value=1      min_slow_cycle=50   \n"
                         "sas_hdd       : min_threshold_value=100    min_slow_cycle=50   \n",
                         ""}));
    EXPECT_EQ(Ask("show dpr_smart"), (CliAnswer{false, 0,
                                                "sata_ssd_disk : task_cycle=20\n"
                                                "sas_ssd_disk  : task_cycle=20\n"
                                                "nvme_disk     : task_cycle=20\n"
                                                "sas_hdd       : task_cycle=20\n",
                                                ""}));
    EXPECT_EQ(Ask("show disklife_prediction"), (CliAnswer{false, 0, "task_cycle: 86400\n", ""}));
}

TEST_F(CliConfigTest, OtherActionsAreRefused)
{
    const size_t before = CliLogLines("CLI_COMMAND_FORMAT_ERROR 0x40036904.").size();
    for (const char *command : {"config", "slowdisk_detect_config", "dpr_smart", "disklife_prediction"}) {
        for (const char *action : {"help", "set", "Change"}) {
            EXPECT_EQ(Ask(std::string(action) + " " + command + " disk_type=0 task_cycle=100 min_slow_cycle=60"),
                      Refused(kCliFormat, action));
        }
    }
    EXPECT_THAT(CliLogLines("CLI_COMMAND_FORMAT_ERROR 0x40036904."), SizeIs(before + 12));
    EXPECT_EQ(Saved("sata_ssd_disk", "task_cycle"), 20);
}

TEST_F(CliConfigTest, FeatureSwitchStartsAndStopsWhatRuns)
{
    kernel_ = std::make_unique<FakeAgent>(kKernelSocket);
    ServeDisks(*kernel_, {{"SN-SATA", "sda", "SSD_SATA", "ATA", "VLR-1"}});
    // In a live system the features' own workers take the disks in.
    EXPECT_EQ(PrefailSwitch(), 0u);

    EXPECT_EQ(Ask("change config feature_switch=on"), Changed("feature_switch ", "change"));

    EXPECT_EQ(PrefailSwitch(), 1u);
    EXPECT_EQ(lib::Global<uint32_t>("g_drmSwitch"), 0u) << "whatever the switch";
    EXPECT_EQ(Saved("feature_switch"), 1);
    EXPECT_EQ(Ask("show config").text, SwitchLines("on", "off"));
    ASSERT_TRUE(Eventually([] { return Online(0); })) << "collection runs";
    EXPECT_THAT(CliLogLines("change config feature_switch:1 successfully (on:1, off:0)"), SizeIs(1));

    EXPECT_EQ(Ask("change config feature_switch=off"), Changed("feature_switch ", "change"));

    EXPECT_EQ(PrefailSwitch(), 0u);
    EXPECT_EQ(Saved("feature_switch"), 0);
    EXPECT_FALSE(Online(0)) << "the store is emptied";
    EXPECT_EQ(Ask("show disk_info disk_id=0").code, kCliNoDisk);
    EXPECT_THAT(CliLogLines("change config feature_switch:0 successfully (on:1, off:0)"), SizeIs(1));
    EXPECT_EQ(Ask("show config").text, SwitchLines("off", "off"));
}

TEST_F(CliConfigTest, SlowDiskDetectionFollowsTheFeatureSwitch)
{
    const uint32_t id = AddSata("SN-0");
    EXPECT_EQ(lib::DrmSlowDiskDetectorLocalSchedule(64), 0u);
    // It has no statistics yet, and only a run that takes samples tells so.
    const auto samples = [id] {
        const std::string line = "get disk(" + std::to_string(id) + ") io stat fail.";
        const size_t before = HostLogged(line);
        g_hostResults.jiffies += 10000;
        EXPECT_EQ(lib::DrmSlowDiskDetectorLocalSchedule(0), 0u);
        return HostLogged(line) > before;
    };
    EXPECT_FALSE(samples());

    EXPECT_EQ(Ask("change config feature_switch=on").code, 0);

    EXPECT_TRUE(samples());
}

TEST_F(CliConfigTest, SameSwitchCallsNothing)
{
    lib::Global<uint8_t>("g_dprSwitchConfig") = 7;

    EXPECT_EQ(Ask("change config feature_switch=off"), Changed("feature_switch ", "change"));

    EXPECT_EQ(PrefailSwitch(), 7u);
    EXPECT_THAT(CliLogLines("config feature_switch:0 is same"), SizeIs(1));
}

TEST_F(CliConfigTest, TakeOverSwitchMovesTheListener)
{
    EXPECT_FALSE(Listening());
    EXPECT_EQ(Ask("change config takeover_disk_switch=on"), Changed("takeover_disk_switch ", "change"));
    EXPECT_TRUE(Listening());
    EXPECT_EQ(Saved("takeover_disk_switch"), 1);
    EXPECT_EQ(Ask("show config").text, SwitchLines("off", "on"));

    EXPECT_EQ(Ask("change config takeover_disk_switch=off"), Changed("takeover_disk_switch ", "change"));
    EXPECT_FALSE(Listening());
    EXPECT_EQ(Saved("takeover_disk_switch"), 0);
    EXPECT_THAT(CliLogLines("change config takeover_disk_switch:1 successfully (on:1, off:0)"), SizeIs(1));
}

TEST_F(CliConfigTest, FirstKeyOfTheAlphabetWins)
{
    EXPECT_EQ(Ask("change config takeover_disk_switch=on feature_switch=off"), Changed("feature_switch ", "change"));
    EXPECT_FALSE(Listening());

    EXPECT_EQ(Ask("change slowdisk_detect_config disk_type=1 min_threshold_value=5 min_slow_cycle=70"),
              Changed("min_slow_cycle "));
    EXPECT_EQ(Saved("sas_ssd_disk", "min_slow_cycle"), 70);
    EXPECT_EQ(Saved("sas_ssd_disk", "min_threshold_value"), 1);
}

TEST_F(CliConfigTest, SwitchesThatAreRefused)
{
    for (const char *key : {"feature_switch", "takeover_disk_switch"}) {
        for (const char *value : {"maybe", "", "ON", "1", "onn"}) {
            EXPECT_EQ(Ask(std::string("change config ") + key + "=" + value),
                      Failed(std::string(key) + " ", kCliExecFailed));
        }
    }
    EXPECT_THAT(CliLogLines("get config feature_switch val maybe failed"), SizeIs(1));
    EXPECT_EQ(Ask("change config"), Refused(kCliFormat));
    EXPECT_EQ(Ask("change config other=on"), Refused(kCliFormat));
    EXPECT_EQ(Ask("change config Feature_switch=on"), Refused(kCliFormat));
    EXPECT_EQ(PrefailSwitch(), 0u);
    EXPECT_FALSE(Listening());
}

TEST_F(CliConfigTest, ThresholdsReachTheFeatureAndTheFile)
{
    for (uint32_t type = 0; type < 4; type++) {
        const int most = type == 3 ? 255 : 10;
        for (const int value : {2, most, 1}) {
            EXPECT_EQ(Ask("change slowdisk_detect_config disk_type=" + std::to_string(type) +
                          " min_threshold_value=" + std::to_string(value)),
                      Changed("min_threshold_value "));
            EXPECT_EQ(Slow(type).diskType, type);
            EXPECT_EQ(Slow(type).minThresholdValue, value);
            EXPECT_EQ(Slow(type).minSlowCycle, 50u);
            EXPECT_EQ(Saved(kSections[type], "min_threshold_value"), value);
        }
    }
    EXPECT_EQ(Ask("change slowdisk_detect_config disk_type=3 min_threshold_value=500"),
              Changed("min_threshold_value "));
    EXPECT_EQ(Slow(3).minThresholdValue, 500 % 256);
    EXPECT_EQ(Saved("sas_hdd", "min_threshold_value"), 500);
    EXPECT_EQ(Ask("show slowdisk_detect_config").text, SlowLine("sata_ssd_disk", 1, 50) +
                                                           SlowLine("sas_ssd_disk", 1, 50) +
                                                           SlowLine("nvme_disk", 1, 50) + SlowLine("sas_hdd", 500, 50));
}

TEST_F(CliConfigTest, ThresholdThatTheFeatureRefuses)
{
    EXPECT_EQ(Ask("change slowdisk_detect_config disk_type=3 min_threshold_value=256"),
              Failed("min_threshold_value ", kCliExecFailed));

    EXPECT_EQ(Slow(3).minThresholdValue, 100u);
    EXPECT_EQ(Saved("sas_hdd", "min_threshold_value"), 100);
    EXPECT_THAT(CliLogLines("set sas_hdd min threshold value failed, ret:-1."), SizeIs(1));
}

TEST_F(CliConfigTest, ThresholdsOutOfRange)
{
    const std::string head = "change slowdisk_detect_config disk_type=";
    for (const char *rest :
         {"0 min_threshold_value=0", "0 min_threshold_value=11", "1 min_threshold_value=11",
          "2 min_threshold_value=500", "3 min_threshold_value=0", "3 min_threshold_value=501",
          "3 min_threshold_value=9999999", "4 min_threshold_value=5", "9999999 min_threshold_value=5",
          "a min_threshold_value=5", "03 min_threshold_value=5", " min_threshold_value=5", "-1 min_threshold_value=5",
          "0 min_threshold_value=05", "0 min_threshold_value=x",
          "0 min_threshold_value=", "0 min_threshold_value=10000000", "0 min_threshold_value=-1"}) {
        EXPECT_EQ(Ask(head + rest), Failed("min_threshold_value ", kCliSlowConfig)) << rest;
    }
    EXPECT_THAT(CliLogLines("min_threshold_value:CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID 0x4003690e."), SizeIs(7));
    EXPECT_THAT(CliLogLines("disk_type:CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID 0x4003690e."), SizeIs(2));
    for (const char *request :
         {"change slowdisk_detect_config", "change slowdisk_detect_config disk_type=0",
          "change slowdisk_detect_config min_slow_cycle=60", "change slowdisk_detect_config min_threshold_value=6",
          "change slowdisk_detect_config disk_type=0 min_slow=60"}) {
        EXPECT_EQ(Ask(request), Refused(kCliFormat)) << request;
    }
}

TEST_F(CliConfigTest, SlowCyclesReachTheFeatureAndTheFile)
{
    for (uint32_t type = 0; type < 4; type++) {
        const std::string head = "change slowdisk_detect_config disk_type=" + std::to_string(type) + " min_slow_cycle=";
        for (const int value : {10, 100}) {
            EXPECT_EQ(Ask(head + std::to_string(value)), Changed("min_slow_cycle "));
            EXPECT_EQ(Slow(type).minSlowCycle, value);
            EXPECT_EQ(Slow(type).minThresholdValue, type == 3 ? 100u : 1u);
            EXPECT_EQ(Saved(kSections[type], "min_slow_cycle"), value);
        }
        for (const char *value : {"9", "101", "0", "010"}) {
            EXPECT_EQ(Ask(head + value), Failed("min_slow_cycle ", kCliSlowConfig));
        }
    }
    EXPECT_THAT(CliLogLines("min_slow_cycle:CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID 0x4003690e."), SizeIs(12));
    EXPECT_EQ(Ask("change slowdisk_detect_config disk_type=0 min_slow_cycle=100"), Changed("min_slow_cycle "));
    EXPECT_THAT(CliLogLines("config min_slow_cycle:100 is same"), SizeIs(1));
}

TEST_F(CliConfigTest, SlowDiskSettingThatCannotBeSavedIsTakenBack)
{
    BlockConfigSaves();

    EXPECT_EQ(Ask("change slowdisk_detect_config disk_type=2 min_slow_cycle=77"),
              Failed("min_slow_cycle ", kCliExecFailed));

    EXPECT_EQ(Slow(2).minSlowCycle, 50u);
    EXPECT_THAT(CliLogLines("change config min_slow_cycle:77 failed"), SizeIs(1));
}

TEST_F(CliConfigTest, PrefailCyclesReachTheFeatureAndTheFile)
{
    for (uint32_t type = 0; type < 4; type++) {
        for (const int value : {1, 2592000}) {
            EXPECT_EQ(
                Ask("change dpr_smart disk_type=" + std::to_string(type) + " task_cycle=" + std::to_string(value)),
                Changed(""));
            EXPECT_EQ(Cycle(kGroups[type]), static_cast<uint32_t>(value));
            EXPECT_EQ(Saved(kSections[type], "task_cycle"), value);
        }
    }
    EXPECT_EQ(Cycle(2), 2592000u) << "the two SAS groups share theirs";
    EXPECT_EQ(Ask("show dpr_smart").text, CycleLine("sata_ssd_disk", 2592000) + CycleLine("sas_ssd_disk", 2592000) +
                                              CycleLine("nvme_disk", 2592000) + CycleLine("sas_hdd", 2592000));
}

TEST_F(CliConfigTest, PrefailCyclesThatAreRefused)
{
    for (const char *rest :
         {"disk_type=4 task_cycle=100", "disk_type=9999999 task_cycle=100", "disk_type= task_cycle=100",
          "disk_type=x task_cycle=100", "disk_type=0 task_cycle=0", "disk_type=0 task_cycle=2592001",
          "disk_type=0 task_cycle=10000000", "disk_type=0 task_cycle=x", "disk_type=00 task_cycle=5"}) {
        EXPECT_EQ(Ask(std::string("change dpr_smart ") + rest), Failed("", kCliDprParam)) << rest;
    }
    EXPECT_THAT(CliLogLines("disk_type:CLI_DPR_SMART_CONFIG_PARAM_INVALID 0x40036911."), SizeIs(2));
    EXPECT_THAT(CliLogLines("task_cycle:CLI_DPR_SMART_CONFIG_PARAM_INVALID 0x40036911."), SizeIs(2));
    for (const char *request : {"change dpr_smart", "change dpr_smart disk_type=0", "change dpr_smart task_cycle=5"}) {
        EXPECT_EQ(Ask(request), Refused(kCliFormat)) << request;
    }
    EXPECT_EQ(Cycle(0), 20u);
}

TEST_F(CliConfigTest, PrefailCycleThatCannotBeSavedIsToldAsASuccess)
{
    BlockConfigSaves();

    EXPECT_EQ(Ask("change dpr_smart disk_type=0 task_cycle=33"), Changed(""));

    EXPECT_EQ(Cycle(0), 20u) << "and does not reach the feature";
    EXPECT_THAT(CliLogLines("change config sata_ssd_disk task_cycle:33 failed"), SizeIs(1));
}

TEST_F(CliConfigTest, LifeCycleReachesTheFeatureAndTheFile)
{
    const CliAnswer changed{false, 0, "change config disklife_prediction successfully.\n", ""};
    for (const int value : {60, 7776000}) {
        EXPECT_EQ(Ask("change disklife_prediction task_cycle=" + std::to_string(value)), changed);
        EXPECT_EQ(LifeCycle(), static_cast<uint32_t>(value));
        EXPECT_EQ(Saved("disklife_prediction", "task_cycle"), value);
    }
    EXPECT_EQ(Ask("show disklife_prediction").text, "task_cycle: 7776000\n");
    EXPECT_EQ(Ask("change disklife_prediction task_cycle=7776000"), (CliAnswer{false, 0, "null", ""})) << "the same";
    EXPECT_THAT(CliLogLines("config disklife_prediction task_cycle:7776000 is same"), SizeIs(1));

    for (const char *value : {"0", "59", "7776001", "9999999", "10000000", "060", "", "1h"}) {
        EXPECT_EQ(Ask(std::string("change disklife_prediction task_cycle=") + value), Refused(kCliLifeParam)) << value;
    }
    EXPECT_THAT(CliLogLines("task_cycle:CLI_DISKLIFE_PRE_PARAM_INVALID 0x40036912."), SizeIs(4));
    EXPECT_EQ(Ask("change disklife_prediction"), Refused(kCliFormat));
    EXPECT_EQ(Ask("change disklife_prediction cycle=60"), Refused(kCliFormat));
    EXPECT_EQ(LifeCycle(), 7776000u);
}

TEST_F(CliConfigTest, LifeCycleThatCannotBeSavedIsTakenBack)
{
    BlockConfigSaves();

    EXPECT_EQ(Ask("change disklife_prediction task_cycle=61"), Refused(-1));

    EXPECT_EQ(LifeCycle(), 86400u);
    EXPECT_THAT(CliLogLines("change config disklife_prediction task_cycle:61 failed"), SizeIs(1));
}

TEST_F(CliConfigTest, SwitchThatCannotBeSavedCallsNothing)
{
    BlockConfigSaves();

    EXPECT_EQ(Ask("change config takeover_disk_switch=on"), Failed("takeover_disk_switch ", kCliExecFailed));

    EXPECT_FALSE(Listening());
    EXPECT_THAT(CliLogLines("change config takeover_disk_switch:1 failed"), SizeIs(1));
    // The settings in memory have the new value, and the file has not.
    EXPECT_EQ(Ask("show config").text, SwitchLines("off", "on"));
    EXPECT_EQ(Saved("takeover_disk_switch"), 0);
    UnblockConfigSaves();
}

TEST_F(CliConfigTest, ChangedSettingsAreSavedAndBackedUp)
{
    EXPECT_EQ(Backups(), 0u);

    EXPECT_EQ(Ask("change dpr_smart disk_type=0 task_cycle=33").code, 0);

    EXPECT_EQ(Backups(), 1u);
    struct stat seen {};
    ASSERT_EQ(stat(ConfigPath().c_str(), &seen), 0);
    EXPECT_EQ(seen.st_mode & 07777U, 0640U);
    EXPECT_EQ(seen.st_uid, 64901u);
    EXPECT_EQ(seen.st_gid, 64901u);
    EXPECT_FALSE(std::filesystem::exists(ConfigPath() + ".wal"));
    EXPECT_EQ(Ask("show dpr_smart").code, 0);
    EXPECT_EQ(Backups(), 1u) << "a look at the settings leaves no copy";
}

class CliSettingsFileTest : public CliTest {};

TEST_F(CliSettingsFileTest, ChangesHoldAfterARestart)
{
    const pid_t child = fork();
    if (child == 0) {
        StartWith(CliConfig(0));
        bool good = true;
        for (const char *request :
             {"change config takeover_disk_switch=on", "change config feature_switch=on",
              "change slowdisk_detect_config disk_type=2 min_threshold_value=7",
              "change slowdisk_detect_config disk_type=2 min_slow_cycle=33",
              "change dpr_smart disk_type=1 task_cycle=44", "change disklife_prediction task_cycle=555"}) {
            good = Ask(request).code == 0 && good;
        }
        _exit(good && !HasFailure() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);

    StartWith("");

    EXPECT_EQ(Ask("show config").text, SwitchLines("on", "on"));
    EXPECT_EQ(Ask("show slowdisk_detect_config").text, SlowLine("sata_ssd_disk", 1, 50) +
                                                           SlowLine("sas_ssd_disk", 1, 50) +
                                                           SlowLine("nvme_disk", 7, 33) + SlowLine("sas_hdd", 100, 50));
    EXPECT_EQ(lib::DrmGetSlowDiskDetectV2Config(2)->minThresholdValue, 7u);
    EXPECT_EQ(lib::DrmGetSlowDiskDetectV2Config(2)->minSlowCycle, 33u);
    EXPECT_EQ(lib::Global<lib::DprCycle[5]>("g_dprCycleConfig")[1].cycle, 44u);
    EXPECT_EQ(lib::Global<lib::DprCycle[5]>("g_dprCycleConfig")[2].cycle, 44u);
    EXPECT_EQ(lib::Global<uint32_t>("g_diskLifeMonitorSchedulerCycle"), 555u);
    EXPECT_EQ(lib::Global<uint8_t>("g_dprSwitchConfig"), 1u);
    EXPECT_EQ(lib::Global<uint8_t>("g_isShutDown"), 0u);
}

TEST_F(CliSettingsFileTest, NodeWithoutASettingFileGetsOneWithTheFirstChange)
{
    StartWith("");
    EXPECT_FALSE(std::filesystem::exists(ConfigPath()));
    EXPECT_EQ(Ask("show config").text, SwitchLines("on", "off"));

    EXPECT_EQ(Ask("change disklife_prediction task_cycle=100").code, 0);

    EXPECT_EQ(Saved("disklife_prediction", "task_cycle"), 100);
    EXPECT_EQ(Saved("sas_hdd", "min_threshold_value"), 100);
    EXPECT_EQ(Saved("feature_switch"), 1);
}

TEST_F(CliSettingsFileTest, MissingSettings)
{
    StartWith(R"({"feature_switch":0})");

    EXPECT_EQ(Ask("show config"), Refused(-1, "show"));
    EXPECT_EQ(Ask("show slowdisk_detect_config"), Refused(-1, "show"));
    EXPECT_EQ(Ask("show dpr_smart"), Refused(-1, "show"));
    EXPECT_EQ(Ask("show disklife_prediction"), Refused(-1, "show"));
    EXPECT_THAT(CliLogLines("get takeover_disk_switch config failed"), SizeIs(1));

    EXPECT_EQ(Ask("change config takeover_disk_switch=on"), Failed("takeover_disk_switch ", kCliExecFailed));
    EXPECT_EQ(Ask("change slowdisk_detect_config disk_type=0 min_slow_cycle=60"),
              Failed("min_slow_cycle ", kCliExecFailed));
    EXPECT_EQ(Ask("change dpr_smart disk_type=0 task_cycle=60"), Changed(""));
    EXPECT_EQ(Ask("change disklife_prediction task_cycle=60"), Refused(-1));
    EXPECT_EQ(lib::DrmGetSlowDiskDetectV2Config(0)->minSlowCycle, 50u);
}

TEST_F(CliSettingsFileTest, OneOfTwoSlowDiskSettingsIsMissing)
{
    StartWith(R"({"feature_switch":0,"takeover_disk_switch":7,"sata_ssd_disk":{"min_slow_cycle":50}})");

    EXPECT_EQ(Ask("change slowdisk_detect_config disk_type=0 min_slow_cycle=60"),
              Failed("min_slow_cycle ", kCliExecFailed));
    EXPECT_EQ(Saved("sata_ssd_disk", "min_slow_cycle"), 50);
    EXPECT_EQ(Ask("show config"), Refused(-1, "show")) << "a switch of 7 is none";
    EXPECT_EQ(Ask("change config takeover_disk_switch=on"), Failed("takeover_disk_switch ", kCliExecFailed));
}

TEST_F(CliSettingsFileTest, StoredLifeCycleOutOfRangeIsTheSame)
{
    StartWith(R"({"feature_switch":0,"takeover_disk_switch":0,"disklife_prediction":{"task_cycle":59}})");

    EXPECT_EQ(Ask("change disklife_prediction task_cycle=59"), (CliAnswer{false, 0, "null", ""}));
    EXPECT_EQ(Ask("change disklife_prediction task_cycle=58"), Refused(kCliLifeParam));
}

} // namespace
