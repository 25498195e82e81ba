// The built programs on a live fleet, as a person would use them.
#include "ctl_fixture.h"

#include <csignal>

#include "support/terminal.h"

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

namespace {

/** A frame whose moment and whose shares of time, which differ from run to run, are made the same. */
std::string Steady(std::string frame)
{
    EXPECT_THAT(frame.substr(0, 19), MatchesRegex("[0-9-]{10} [0-9:]{8}"));
    frame.replace(0, 19, "YYYY-MM-DD hh:mm:ss");
    for (size_t at = 0; (at = frame.find('%', at)) != std::string::npos; at++) {
        EXPECT_THAT(frame.substr(at - 6, 7), MatchesRegex("[ 1][ 0-9][0-9].[0-9][0-9]%"));
        frame.replace(at - 6, 7, "nnn.nn%");
    }
    return frame.substr(0, frame.find("^C"));
}

} // namespace

class FleetTest : public NodeTest {
protected:
    static Finished Change(std::vector<std::string> words)
    {
        words.insert(words.begin(), "change");
        return Ctl(words);
    }
};

TEST_F(FleetTest, EveryShowAnswers)
{
    ASSERT_NO_FATAL_FAILURE(StartFleet());

    EXPECT_THAT(Ctl({"show", "summary"}).out, HasSubstr("\n3       DEMOSASS0000                              \n"));
    EXPECT_THAT(Ctl({"show", "disk_info", "disk_id=9"}).out,
                AllOf(HasSubstr("Sn              : DEMONVME0000\n"), HasSubstr("SlotId          : 0\n")));
    EXPECT_THAT(Ctl({"show", "iostat_info", "disk_id=9"}).out, HasSubstr("QueueDepth    : 1023\n"));
    EXPECT_THAT(Compact(Ctl({"show", "smart_info", "disk_id=9", "--json"}).out),
                R"({"disk_id":9,"power_on_hours":6000,"wear_percent":0.8})");
    EXPECT_THAT(Compact(Ctl({"show", "drm_info", "disk_id=9", "--json"}).out),
                R"({"disk_id":9,"prediction":"done","score":100,"life_months":60,"state":"normal",)"
                R"("suggestion":"No action required"})");
    EXPECT_THAT(Ctl({"show", "slowdisk"}).out, HasSubstr("SlowDiskInfo:\n"));
    EXPECT_EQ(Ctl({"show", "config"}).out, "feature_switch        : on\ntakeover_disk_switch  : off\n");
    EXPECT_THAT(Ctl({"show", "slowdisk_detect_config"}).out,
                HasSubstr("sas_hdd       : min_threshold_value=100    min_slow_cycle=10   \n"));
    EXPECT_THAT(Ctl({"show", "dpr_smart"}).out, HasSubstr("sas_ssd_disk  : task_cycle=5\n"));
    EXPECT_EQ(Ctl({"show", "disklife_prediction"}).out, "task_cycle: 5\n");

    const Finished unknown = Ctl({"show", "disk_info", "disk_id=63"});
    EXPECT_EQ(unknown.exitCode, 5);
    EXPECT_THAT(unknown.err, HasSubstr("code 0x40036910\nCause:"));
    EXPECT_EQ(Ctl({"show", "disk_info"}).exitCode, 5);

    corvaned_->Signal(SIGTERM);
    EXPECT_EQ(corvaned_->WaitForExit(), 0);
    EXPECT_EQ(Ctl({"list"}).exitCode, 3);
}

TEST_F(FleetTest, EveryChangeHoldsAtOnceAndAfterARestart)
{
    ASSERT_NO_FATAL_FAILURE(StartFleet());
    const struct {
        std::vector<std::string> words;
        const char *answer;
    } changes[] = {
        {{"slowdisk_detect_config", "disk_type=0", "min_threshold_value=2"}, "min_threshold_value successfully\n"},
        {{"slowdisk_detect_config", "disk_type=1", "min_threshold_value=3"}, "min_threshold_value successfully\n"},
        {{"slowdisk_detect_config", "disk_type=2", "min_threshold_value=10"}, "min_threshold_value successfully\n"},
        {{"slowdisk_detect_config", "disk_type=3", "min_threshold_value=200"}, "min_threshold_value successfully\n"},
        {{"slowdisk_detect_config", "disk_type=0", "min_slow_cycle=11"}, "min_slow_cycle successfully\n"},
        {{"slowdisk_detect_config", "disk_type=1", "min_slow_cycle=12"}, "min_slow_cycle successfully\n"},
        {{"slowdisk_detect_config", "disk_type=2", "min_slow_cycle=13"}, "min_slow_cycle successfully\n"},
        {{"slowdisk_detect_config", "disk_type=3", "min_slow_cycle=100"}, "min_slow_cycle successfully\n"},
        {{"dpr_smart", "disk_type=0", "task_cycle=1"}, "successfully\n"},
        {{"dpr_smart", "disk_type=1", "task_cycle=77"}, "successfully\n"},
        {{"dpr_smart", "disk_type=2", "task_cycle=78"}, "successfully\n"},
        {{"dpr_smart", "disk_type=3", "task_cycle=2592000"}, "successfully\n"},
        {{"disklife_prediction", "task_cycle=3600"}, "disklife_prediction successfully.\n"},
        {{"config", "takeover_disk_switch=on"}, "takeover_disk_switch successfully\n"},
        {{"config", "takeover_disk_switch=off"}, "takeover_disk_switch successfully\n"},
        {{"config", "takeover_disk_switch=on"}, "takeover_disk_switch successfully\n"},
        {{"config", "feature_switch=off"}, "feature_switch successfully\n"},
    };
    const std::vector<std::pair<std::string, std::string>> settings = {
        {"slowdisk_detect_config", R"({"sata_ssd_disk":{"disk_type":0,"min_threshold_value":2,"min_slow_cycle":11},)"
                                   R"("sas_ssd_disk":{"disk_type":1,"min_threshold_value":3,"min_slow_cycle":12},)"
                                   R"("nvme_disk":{"disk_type":2,"min_threshold_value":10,"min_slow_cycle":13},)"
                                   R"("sas_hdd":{"disk_type":3,"min_threshold_value":200,"min_slow_cycle":100}})"},
        {"dpr_smart", R"({"sata_ssd_disk":{"disk_type":0,"task_cycle":1},"sas_ssd_disk":{"disk_type":1,)"
                      R"("task_cycle":77},"nvme_disk":{"disk_type":2,"task_cycle":78},)"
                      R"("sas_hdd":{"disk_type":3,"task_cycle":2592000}})"},
        {"disklife_prediction", R"({"task_cycle":3600})"},
        {"config", R"({"feature_switch":false,"takeover_disk_switch":true})"},
    };

    for (const auto &[words, answer] : changes) {
        const Finished run = Change(words);
        EXPECT_EQ(run.exitCode, 0) << words.back() << run.err;
        EXPECT_EQ(run.out, std::string("change config ") + answer) << words.back();
    }
    for (const auto &[command, json] : settings) {
        EXPECT_EQ(Compact(Ctl({"show", command, "--json"}).out), json);
    }

    corvaned_->Signal(SIGTERM);
    ASSERT_EQ(corvaned_->WaitForExit(), 0);
    StartService();
    ASSERT_NO_FATAL_FAILURE(WaitForStatus(HasSubstr("\"disks\":")));

    for (const auto &[command, json] : settings) {
        EXPECT_EQ(Compact(Ctl({"show", command, "--json"}).out), json) << "after a restart";
    }
}

TEST_F(FleetTest, AChangeThatIsRefusedChangesNothing)
{
    ASSERT_NO_FATAL_FAILURE(StartFleet());
    const std::vector<std::string> commands = {"slowdisk_detect_config", "dpr_smart", "disklife_prediction", "config"};
    std::vector<std::string> before;
    for (const std::string &command : commands) {
        before.push_back(Ctl({"show", command}).out);
    }
    const struct {
        std::vector<std::string> words;
        const char *code;
    } changes[] = {
        {{"slowdisk_detect_config", "disk_type=0", "min_threshold_value=0"}, "0x4003690E"},
        {{"slowdisk_detect_config", "disk_type=2", "min_threshold_value=11"}, "0x4003690E"},
        {{"slowdisk_detect_config", "disk_type=3", "min_threshold_value=501"}, "0x4003690E"},
        {{"slowdisk_detect_config", "disk_type=1", "min_slow_cycle=9"}, "0x4003690E"},
        {{"slowdisk_detect_config", "disk_type=3", "min_slow_cycle=101"}, "0x4003690E"},
        {{"slowdisk_detect_config", "disk_type=4", "min_slow_cycle=50"}, "0x4003690E"},
        {{"slowdisk_detect_config", "min_slow_cycle=50"}, "0x40036904"},
        {{"dpr_smart", "disk_type=0", "task_cycle=0"}, "0x40036911"},
        {{"dpr_smart", "disk_type=0", "task_cycle=2592001"}, "0x40036911"},
        {{"dpr_smart", "disk_type=4", "task_cycle=20"}, "0x40036911"},
        {{"disklife_prediction", "task_cycle=59"}, "0x40036912"},
        {{"disklife_prediction", "task_cycle=7776001"}, "0x40036912"},
        {{"config", "feature_switch=maybe"}, "0x4003690C"},
        {{"config", "takeover_disk_switch=1"}, "0x4003690C"},
        {{"config"}, "0x40036904"},
    };

    for (const auto &[words, code] : changes) {
        const Finished run = Change(words);
        EXPECT_EQ(run.exitCode, 5) << words.back();
        EXPECT_THAT(run.err, HasSubstr(std::string("code ") + code + "\nCause:")) << words.back();
    }

    for (size_t i = 0; i < commands.size(); i++) {
        EXPECT_EQ(Ctl({"show", commands[i]}).out, before[i]);
    }
}

/** With the settings that the service starts with none of the four verdicts comes before the patience ends. */
TEST_F(FleetTest, ChangesReachTheFeaturesThatRun)
{
    WriteSettings({.lifeCycle = 7776000, .prefailCycle = 2592000, .thresholdMs = 10, .minSlowCycle = 100});
    ASSERT_NO_FATAL_FAILURE(StartFleet());
    Event(R"({"do":"io","disk":"DEMOSATA0001","set":{"service_us":5000}})");
    Event(R"({"do":"io","disk":"DEMOSASS0001","set":{"service_us":5000}})");
    Event(R"({"do":"health","disk":"DEMOHDDS0000","set":{"ASC":93,"ASCQ":16}})");
    Event(R"({"do":"health","disk":"DEMONVME0000","set":{"wear":9900,"power_on_hours":1970}})");

    // A change tells the feature both values of the type: what comes last must reach it by itself.
    EXPECT_EQ(Change({"slowdisk_detect_config", "disk_type=0", "min_slow_cycle=10"}).exitCode, 0);
    EXPECT_EQ(Change({"slowdisk_detect_config", "disk_type=0", "min_threshold_value=1"}).exitCode, 0);
    EXPECT_EQ(Change({"slowdisk_detect_config", "disk_type=1", "min_threshold_value=1"}).exitCode, 0);
    EXPECT_EQ(Change({"slowdisk_detect_config", "disk_type=1", "min_slow_cycle=10"}).exitCode, 0);
    EXPECT_EQ(Change({"dpr_smart", "disk_type=3", "task_cycle=5"}).exitCode, 0);
    EXPECT_EQ(Change({"disklife_prediction", "task_cycle=60"}).exitCode, 0);

    (void)CtlUntil({"list"}, AllOf(ContainsRegex("DEMOSATA0001 +slow "), ContainsRegex("DEMOSASS0001 +slow "),
                                   ContainsRegex("DEMOHDDS0000 +prefail "), ContainsRegex("DEMONVME0000 +fault ")));
}

TEST_F(FleetTest, TheFeatureSwitchTakesTheDisksAwayAndBringsThemBack)
{
    ASSERT_NO_FATAL_FAILURE(StartFleet());

    const Finished off = Change({"config", "feature_switch=off"});

    EXPECT_EQ(off.exitCode, 0) << off.err;
    EXPECT_EQ(off.out, "change config feature_switch successfully\n");
    EXPECT_THAT(Ctl({"show", "config"}).out, HasSubstr("feature_switch        : off\n"));
    EXPECT_EQ(Compact(Ctl({"list", "--json"}).out), R"({"disks":[]})");
    EXPECT_THAT(Ctl({"list"}).out, HasSubstr("\nNo disk: feature_switch is off (corvanectl show config) or "));
    EXPECT_EQ(Compact(Ctl({"show", "summary", "--json"}).out), R"({"disks":[]})");
    EXPECT_EQ(Compact(Ctl({"show", "slowdisk", "--json"}).out), R"({"disks":[]})");
    for (const char *command : {"disk_info", "iostat_info", "smart_info", "drm_info"}) {
        EXPECT_EQ(Ctl({"show", command, "disk_id=0"}).exitCode, 5) << command;
    }
    ASSERT_NO_FATAL_FAILURE(WaitForStatus(EndsWith("\"disks\":[]}")));
    Event(R"({"do":"health","disk":"DEMOHDDS0000","set":{"ASC":93,"ASCQ":16}})");

    const Finished on = Change({"config", "feature_switch=on"});

    EXPECT_EQ(on.exitCode, 0) << on.err;
    EXPECT_EQ(on.out, "change config feature_switch successfully\n");
    EXPECT_THAT(Ctl({"show", "config"}).out, HasSubstr("feature_switch        : on\n"));
    ASSERT_NO_FATAL_FAILURE(WaitForRecords(12, 6));
    const std::string list = CtlUntil({"list"}, ContainsRegex("DEMOHDDS0000 +prefail ")).out;
    EXPECT_EQ(CountOf(list, " normal "), 11u) << list;
    EXPECT_EQ(CountOf(list, " DEMO"), 12u) << list;
    EXPECT_EQ(Change({"config", "feature_switch=on"}).out, on.out) << "it is on already";
    EXPECT_EQ(CountOf(Ctl({"list"}).out, " DEMO"), 12u);
}

/** From the moment it is plugged until its second sample, which here does not come before the test says so. */
TEST_F(FleetTest, AWatchGoesOnWhileADiskHasNoIoStatistics)
{
    ASSERT_NO_FATAL_FAILURE(StartFleet());
    Event(R"({"do":"pull","disk":"DEMONVME0001"})");
    (void)CtlUntil({"list"}, ::testing::Not(HasSubstr("DEMONVME0001")));
    Event(R"({"do":"misbehave","agent":"spdk","mode":"close","method":"dca_get_disks_iostat"})");
    Event(R"({"do":"plug","disk":"DEMONVME0001"})");
    (void)CtlUntil({"list"}, HasSubstr("DEMONVME0001"));

    const Finished watch = Ctl({"watch", "-n", "1"});

    EXPECT_EQ(watch.exitCode, 0) << watch.err;
    EXPECT_THAT(watch.out, ContainsRegex(" DEMONVME0001 normal .* \\?\n"));
    EXPECT_EQ(CountOf(watch.out, "%\n"), 11u) << watch.out;
    const Finished show = Ctl({"show", "iostat_info", "disk_id=12"});
    EXPECT_EQ(show.exitCode, 5);
    EXPECT_THAT(show.err, HasSubstr("code 0x4003690C\nCause:corvaned understood the command and could not carry it "
                                    "out: I/O statistics of a disk that has not sent two samples yet, "));

    Event(R"({"do":"behave","agent":"spdk"})");
    (void)CtlUntil({"watch", "-n", "1"}, ContainsRegex(" DEMONVME0001 normal .*%\n"));
}

TEST_F(FleetTest, ManyClientsAtOnceAreAllAnswered)
{
    ASSERT_NO_FATAL_FAILURE(StartFleet());
    const std::string summary = Ctl({"show", "summary"}).out;
    const std::string list = Ctl({"list", "--json"}).out;

    std::vector<std::unique_ptr<ChildProcess>> clients;
    for (int i = 0; i < 24; i++) {
        const bool lists = i % 3 == 0;
        clients.push_back(std::make_unique<ChildProcess>(
            lists ? std::vector<std::string>{kClient, "list", "--json", "--timeout", "60"}
                  : std::vector<std::string>{kClient, "show", "summary", "--timeout", "60"}));
    }

    for (size_t i = 0; i < clients.size(); i++) {
        EXPECT_EQ(clients[i]->WaitForExit(), 0) << clients[i]->Errors();
        EXPECT_EQ(clients[i]->Output(), i % 3 == 0 ? list : summary);
    }
}

TEST_F(FleetTest, TellsAPersonAtATerminalWhichDisksAreInTrouble)
{
    ASSERT_NO_FATAL_FAILURE(StartFleet());
    (void)setenv("NO_COLOR", "1", 1);
    Event(R"({"do":"io","disk":"DEMOSATA0001","set":{"service_us":20000}})");
    Event(R"({"do":"health","disk":"DEMOHDDS0000","set":{"ASC":93,"ASCQ":16}})");
    Event(R"({"do":"health","disk":"DEMOSASS0001","set":{"wear":9900,"power_on_hours":1970}})");
    (void)CtlUntil({"list"}, AllOf(HasSubstr(" fault "), HasSubstr(" prefail "), HasSubstr(" slow ")));

    Terminal list({kClient, "list"}, 80);
    EXPECT_EQ(list.WaitForExit(), 0);
    EXPECT_EQ(OnScreen(list.Rest()),
              R"(ID DEVICE TYPE     SLOT MODEL        SERIAL       STATE   SCORE LIFE mo
 0 sda    SATA SSD    - VSSD-960G    DEMOSATA0000 normal      -       -
 1 sdb    SATA SSD    - VLR480S1     DEMOSATA0001 slow        -       -
    Migrate data and replace the hard disk
 2 sdc    SATA SSD    - VL-SAS960    DEMOSATA0002 normal      -       -
 3 sdd    SAS SSD     - VS-1600      DEMOSASS0000 normal    100      60
 4 sde    SAS SSD     - OR-3840E     DEMOSASS0001 fault      37      <1
    Replace the hard disk
 5 sdf    SAS SSD     - SYL-7680     DEMOSASS0002 normal    100      60
 6 sdg    SAS HDD     - ST1200MM0009 DEMOHDDS0000 prefail     -       -
    Migrate data and replace the hard disk
 7 sdh    SAS HDD     - AL15SEB120N  DEMOHDDS0001 normal      -       -
 8 sdi    SAS HDD     - WD-SAS-12T   DEMOHDDS0002 normal      -       -
 9 nvme0  NVME SSD    0 VN-3200P     DEMONVME0000 normal    100      60
10 nvme1  NVME SSD    1 VN-7680P     DEMONVME0001 normal    100      60
11 nvme2  NVME SSD    2 VN-3200P     DEMONVME0002 normal    100      60
)");

    Terminal watch({kClient, "watch", "--interval", "1"}, 80);
    ASSERT_TRUE(watch.WaitFor("pauses 1 s after each refresh, Ctrl-C ends"));
    ASSERT_TRUE(watch.WaitFor("\033[H"));
    ASSERT_TRUE(watch.WaitFor("\033[H"));
    watch.Type("\003");
    EXPECT_EQ(watch.WaitForExit(), 0);
    EXPECT_EQ(Steady(WithoutEscapes(OnScreen(watch.Rest()))),
              R"(YYYY-MM-DD hh:mm:ss  12 disks: 9 normal, 1 slow, 1 prefail, 1 fault
ID DEVICE TYPE     SERIAL       STATE   SCORE LIFE mo    UTIL
 4 sde    SAS SSD  DEMOSASS0001 fault      37      <1 nnn.nn%
 6 sdg    SAS HDD  DEMOHDDS0000 prefail     -       - nnn.nn%
 1 sdb    SATA SSD DEMOSATA0001 slow        -       - nnn.nn%
 0 sda    SATA SSD DEMOSATA0000 normal      -       - nnn.nn%
 2 sdc    SATA SSD DEMOSATA0002 normal      -       - nnn.nn%
 3 sdd    SAS SSD  DEMOSASS0000 normal    100      60 nnn.nn%
 5 sdf    SAS SSD  DEMOSASS0002 normal    100      60 nnn.nn%
 7 sdh    SAS HDD  DEMOHDDS0001 normal      -       - nnn.nn%
 8 sdi    SAS HDD  DEMOHDDS0002 normal      -       - nnn.nn%
 9 nvme0  NVME SSD DEMONVME0000 normal    100      60 nnn.nn%
10 nvme1  NVME SSD DEMONVME0001 normal    100      60 nnn.nn%
11 nvme2  NVME SSD DEMONVME0002 normal    100      60 nnn.nn%
pauses 1 s after each refresh, Ctrl-C ends
)");

    EXPECT_THAT(Compact(Ctl({"show", "slowdisk", "--json"}).out),
                R"({"disks":[{"sn":"DEMOSATA0001","slot":null,"state":"slow"}]})");
    EXPECT_THAT(Ctl({"show", "drm_info", "disk_id=4"}).out,
                AllOf(HasSubstr("DiskState         : Fault state\n"), HasSubstr("DiskLife          : <1\n")));
}
