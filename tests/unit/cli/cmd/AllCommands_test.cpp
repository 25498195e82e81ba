// Every command as a client sees it: the request's words, and the answer byte for byte.
#include "cmd_test_support.h"
#include "unit/cli/server/cli_server_test_support.h"

using namespace CORVANE_CLI;

namespace {

const std::string kRule = "---------------------------------------------------------------\n"; // 63
const std::string kSlowHead = "SlowDiskInfo:\nSn                                        Slot  State     \n" + kRule;
const std::string kSummaryHead = "SummaryInfo:\nDiskId  DiskSn                                    \n" + kRule;

/** A request and its answer; @p printed as it stands in the document. */
struct Row {
    std::string agrs;
    int code;
    std::string printed;
    std::string action; /**< of the answer's head */
};

} // namespace

class AllCommandsTest : public CmdFixture<CliServerTest> {
protected:
    ~AllCommandsTest() override { Stop(); }

    void Expect(const std::vector<Row> &rows) const
    {
        for (const Row &row : rows) {
            EXPECT_EQ(Ask(row.agrs, row.agrs.substr(0, row.agrs.find(' '))),
                      AnswerBytes(row.code, row.printed, row.action))
                << row.agrs;
        }
    }
};

TEST_F(AllCommandsTest, AnswerWithoutDisks)
{
    StartStore();
    Start();

    Expect({{"show summary", 0, kSummaryHead + kRule, "show"},
            {"show slowdisk", 0, kSlowHead + kRule, "show"},
            {"show disk_info disk_id=0", 1073965328, "null", ""},
            {"show iostat_info disk_id=0", 1073965328, "null", ""},
            {"show smart_info disk_id=0", 1073965328, "null", ""},
            {"show drm_info disk_id=63", 1073965328, "null", ""},
            {"show drm_info disk_id=64", 1073965328, "null", "show"}});
}

TEST_F(AllCommandsTest, AnswerWithoutAStoreOrSettings)
{
    Start();

    Expect({{"show summary", 1073965324, "null", "show"},
            {"show slowdisk", 1073965324, "null", "show"},
            {"show disk_info disk_id=0", 1073965324, "null", ""},
            {"show config", -1, "null", "show"},
            {"change config feature_switch=on", 1073965324, "change config feature_switch failed\n", "change"},
            {"show slowdisk_detect_config", -1, "null", "show"},
            {"show dpr_smart", -1, "null", "show"},
            {"show disklife_prediction", -1, "null", "show"},
            {"change disklife_prediction task_cycle=60", -1, "null", "change"},
            {"change dpr_smart disk_type=0 task_cycle=60", 0, "change config successfully\n", ""}});
}

TEST_F(AllCommandsTest, AnswerWithOneDisk)
{
    AddDisk(5, DISK_TYPE_SSD_SAS);
    StartStore();
    DiskMgrObj &base = Base(5);
    base.diskState = DISK_STATE_SLOW;
    base.slotId = 0xFFFFFFFF;
    base.diskCapacity = 960197124096;
    base.sectorSize = 512;
    std::strcpy(base.vendor, "A&B");
    std::strcpy(base.model, "\"M\"");
    std::strcpy(base.firmware, "F1");
    std::strcpy(base.deviceName, "sda");
    Disk(5).strategy = DISK_STRATEGY_MIGRATE_REPLACE;
    Disk(5).ioStatCount = 1;
    Disk(5).ioStat[0].utilizationInt = 99;
    Disk(5).ioStat[0].utilizationFrac = 9;
    Disk(5).drmInfo = {.healthScore = 12, .diskLife = 719};
    Start();

    Expect({{"show summary", 0, kSummaryHead + "5       SERIAL-005                                \n" + kRule, "show"},
            {"show slowdisk", 0, kSlowHead + "SERIAL-005                                NA    Slow      \n" + kRule,
             "show"},
            {"show disk_info disk_id=5", 0,
             "Diskid          : 5\n"
             "DiskState       : Slow state\n"
             "DiskCapacity    : 894.3GB\n"
             "SectorSize      : 512\n"
             "Vendor          : A&amp;B\n"
             "Model           : &quot;M&quot;\n"
             "Firmware        : F1\n"
             "Sn              : SERIAL-005\n"
             "DeviceName      : sda\n"
             "PciAddr         : \n"
             "IntfType        : SAS SSD\n"
             "SlotId          : NA\n",
             ""},
            {"show iostat_info disk_id=5", 0,
             "ReadIops      : 0\n"
             "WriteIops     : 0\n"
             "ReadIoBand    : 0kb/s\n"
             "WriteIoBand   : 0kb/s\n"
             "ReadIoDelay   : 0us\n"
             "WriteIoDelay  : 0us\n"
             "QueueDepth    : 0\n"
             "ioBusyNum     : 0\n"
             "svctm         : 0\n"
             "utilization   : 99.9%\n",
             ""},
            {"show smart_info disk_id=5", 0, "PowerOnlineTime   : 0h\nDegree of wear    : 0.0%\n", ""},
            {"show drm_info disk_id=5", 0,
             "DiskHealthScore   : 12\n"
             "DiskLife          : &lt;1\n"
             "DiskState         : Slow state\n"
             "Suggestions       : Migrate data and replace the hard disk\n",
             ""},
            {"show disk_info", 1073965316, "null", "show"},
            {"change disk_info disk_id=5", 1073965316, "null", "change"},
            {"change summary", 1073965316, "null", "change"},
            {"help slowdisk", 1073965316, "null", "help"}});
    Disk(5).drmInfo.diskLife = 43920;
    Disk(5).strategy = DISK_STRATEGY_NO_TEXT;
    Expect({{"show drm_info disk_id=5", 0,
             "DiskHealthScore   : 12\n"
             "DiskLife          : &gt;60\n"
             "DiskState         : Slow state\n"
             "Suggestions       : \n",
             ""}});
}

TEST_F(AllCommandsTest, AnswerWith64Disks)
{
    std::string summary;
    std::string slow;
    for (uint32_t id = 0; id < 64; id++) {
        AddDisk(id, id % DISK_TYPE_BUTT);
        const std::string number = std::to_string(id);
        const std::string sn = SnOf(id) + std::string(42 - SnOf(id).size(), ' ');
        summary += number + std::string(8 - number.size(), ' ') + sn + "\n";
        slow += sn + number + std::string(6 - number.size(), ' ') + "Slow      \n";
    }
    StartStore();
    for (uint32_t id = 0; id < 64; id++) {
        Base(id).diskState = DISK_STATE_SLOW;
        Base(id).slotId = id;
    }
    Start();

    Expect({{"show summary", 0, kSummaryHead + summary + kRule, "show"},
            {"show slowdisk", 0, kSlowHead + slow + kRule, "show"}});
}

TEST_F(AllCommandsTest, ShowAndChangeSettings)
{
    LoadSettings();
    Start();

    Expect({{"show config", 0, "feature_switch        : on\ntakeover_disk_switch  : off\n", "show"},
            {"change config feature_switch=off", 0, "change config feature_switch successfully\n", "change"},
            {"change config feature_switch=maybe", 1073965324, "change config feature_switch failed\n", "change"},
            {"change config", 1073965316, "null", "change"},
            {"help config", 1073965316, "null", "help"},
            {"show config", 0, "feature_switch        : off\ntakeover_disk_switch  : off\n", "show"},
            {"show slowdisk_detect_config", 0,
             "sata_ssd_disk : min_threshold_value=1      min_slow_cycle=50   \n"
             "sas_ssd_disk  : min_threshold_value=2      min_slow_cycle=51   \n"
             "nvme_disk     : min_threshold_value=3      min_slow_cycle=52   \n"
             "sas_hdd       : min_threshold_value=100    min_slow_cycle=100  \n",
             ""},
            {"change slowdisk_detect_config disk_type=3 min_threshold_value=500", 0,
             "change config min_threshold_value successfully\n", ""},
            {"change slowdisk_detect_config disk_type=0 min_threshold_value=500", 1073965326,
             "change config min_threshold_value failed\n", "change"},
            {"change slowdisk_detect_config disk_type=3 min_threshold_value=256", 1073965324,
             "change config min_threshold_value failed\n", "change"},
            {"change slowdisk_detect_config disk_type=3", 1073965316, "null", "change"},
            {"show dpr_smart", 0,
             "sata_ssd_disk : task_cycle=20\n"
             "sas_ssd_disk  : task_cycle=21\n"
             "nvme_disk     : task_cycle=22\n"
             "sas_hdd       : task_cycle=2592000\n",
             ""},
            {"change dpr_smart disk_type=0 task_cycle=100", 0, "change config successfully\n", ""},
            {"change dpr_smart disk_type=4 task_cycle=100", 1073965329, "change config failed\n", "change"},
            {"change dpr_smart disk_type=0 task_cycle=2592001", 1073965329, "change config failed\n", "change"},
            {"change dpr_smart disk_type=0 task_cycle=10000000", 1073965329, "change config failed\n", "change"},
            {"show disklife_prediction", 0, "task_cycle: 86400\n", ""},
            {"change disklife_prediction task_cycle=86400", 0, "null", ""},
            {"change disklife_prediction task_cycle=59", 1073965330, "null", "change"},
            {"change disklife_prediction task_cycle=60", 0, "change config disklife_prediction successfully.\n", ""},
            {"show disklife_prediction", 0, "task_cycle: 60\n", ""}});
    EXPECT_EQ(Saved("sas_hdd", "min_threshold_value"), 500u);
    EXPECT_EQ(Saved("sata_ssd_disk", "task_cycle"), 100u);
    EXPECT_EQ(Saved("disklife_prediction", "task_cycle"), 60u);
    EXPECT_EQ(Saved(nullptr, "feature_switch"), 0u);
}
