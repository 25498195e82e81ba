// The built programs on a live fleet, as a person would use them.
#include "ctl_fixture.h"

#include <csignal>

#include "support/terminal.h"

using ::testing::AllOf;
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

using FleetTest = NodeTest;

TEST_F(FleetTest, EveryShowAnswersAndEveryChangeHolds)
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

    EXPECT_EQ(Ctl({"change", "disklife_prediction", "task_cycle=3600"}).out,
              "change config disklife_prediction successfully.\n");
    EXPECT_EQ(Ctl({"show", "disklife_prediction"}).out, "task_cycle: 3600\n");
    EXPECT_EQ(Ctl({"change", "dpr_smart", "disk_type=1", "task_cycle=77"}).exitCode, 0);
    EXPECT_THAT(Ctl({"show", "dpr_smart"}).out, HasSubstr("sas_ssd_disk  : task_cycle=77\n"));
    EXPECT_EQ(Ctl({"change", "slowdisk_detect_config", "disk_type=3", "min_threshold_value=200"}).exitCode, 0);
    EXPECT_THAT(Ctl({"show", "slowdisk_detect_config"}).out, HasSubstr("sas_hdd       : min_threshold_value=200 "));
    EXPECT_EQ(Ctl({"change", "config", "takeover_disk_switch=on"}).out,
              "change config takeover_disk_switch successfully\n");
    EXPECT_THAT(Compact(Ctl({"show", "config", "--json"}).out),
                R"({"feature_switch":true,"takeover_disk_switch":true})");

    const Finished range = Ctl({"change", "disklife_prediction", "task_cycle=59"});
    EXPECT_EQ(range.exitCode, 5);
    EXPECT_THAT(range.err, HasSubstr("code 0x40036912\nCause:"));
    EXPECT_EQ(Ctl({"show", "disk_info", "disk_id=63"}).exitCode, 5);
    EXPECT_EQ(Ctl({"show", "disk_info"}).exitCode, 5);

    corvaned_->Signal(SIGTERM);
    EXPECT_EQ(corvaned_->WaitForExit(), 0);
    EXPECT_EQ(Ctl({"list"}).exitCode, 3);
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
 0 sda    SATA SSD    - VSSD-960G    DEMOSATA0000 normal      ?       ?
 1 sdb    SATA SSD    - VLR480S1     DEMOSATA0001 slow        ?       ?
    Migrate data and replace the hard disk
 2 sdc    SATA SSD    - VL-SAS960    DEMOSATA0002 normal      ?       ?
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
    ASSERT_TRUE(watch.WaitFor("every 1 s, Ctrl-C ends"));
    ASSERT_TRUE(watch.WaitFor("\033[H"));
    ASSERT_TRUE(watch.WaitFor("\033[H"));
    watch.Type("\003");
    EXPECT_EQ(watch.WaitForExit(), 0);
    EXPECT_EQ(Steady(WithoutEscapes(OnScreen(watch.Rest()))),
              R"(YYYY-MM-DD hh:mm:ss  12 disks: 9 normal, 1 slow, 1 prefail, 1 fault
ID DEVICE TYPE     SERIAL       STATE   SCORE LIFE mo    UTIL
 4 sde    SAS SSD  DEMOSASS0001 fault      37      <1 nnn.nn%
 6 sdg    SAS HDD  DEMOHDDS0000 prefail     -       - nnn.nn%
 1 sdb    SATA SSD DEMOSATA0001 slow        ?       ? nnn.nn%
 0 sda    SATA SSD DEMOSATA0000 normal      ?       ? nnn.nn%
 2 sdc    SATA SSD DEMOSATA0002 normal      ?       ? nnn.nn%
 3 sdd    SAS SSD  DEMOSASS0000 normal    100      60 nnn.nn%
 5 sdf    SAS SSD  DEMOSASS0002 normal    100      60 nnn.nn%
 7 sdh    SAS HDD  DEMOHDDS0001 normal      -       - nnn.nn%
 8 sdi    SAS HDD  DEMOHDDS0002 normal      -       - nnn.nn%
 9 nvme0  NVME SSD DEMONVME0000 normal    100      60 nnn.nn%
10 nvme1  NVME SSD DEMONVME0001 normal    100      60 nnn.nn%
11 nvme2  NVME SSD DEMONVME0002 normal    100      60 nnn.nn%
every 1 s, Ctrl-C ends
)");

    EXPECT_THAT(Compact(Ctl({"show", "slowdisk", "--json"}).out),
                R"({"disks":[{"sn":"DEMOSATA0001","slot":null,"state":"slow"}]})");
    EXPECT_THAT(Ctl({"show", "drm_info", "disk_id=4"}).out,
                AllOf(HasSubstr("DiskState         : Fault state\n"), HasSubstr("DiskLife          : <1\n")));
}
