// The keys are an interface: what is told under which, for every show.
#include "ctl_fixture.h"

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct JsonCase {
    const char *name;
    std::vector<std::string> words;
    std::string text;
    std::string json;
};

class JsonTest : public CtlTest, public ::testing::WithParamInterface<JsonCase> {};

TEST_P(JsonTest, TellsTheAnswerUnderItsKeys)
{
    Serve({Reply::Kind::ANSWER, 0, GetParam().text});
    std::vector<std::string> words = GetParam().words;
    words.push_back("--json");

    const Finished run = Ctl(words);

    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(Compact(run.out), GetParam().json);
}

TEST_P(JsonTest, RefusesAnAnswerOfAnotherKind)
{
    Serve({Reply::Kind::ANSWER, 0, "something else\n"});
    std::vector<std::string> words = GetParam().words;
    words.push_back("--json");

    const Finished run = Ctl(words);

    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, StartsWith("corvanectl: the answer to \"show "));
}

INSTANTIATE_TEST_SUITE_P(
    Shows, JsonTest,
    ::testing::Values(
        JsonCase{"Summary",
                 {"show", "summary"},
                 FiveDisks()["show summary"],
                 R"({"disks":[{"disk_id":0,"sn":"SN-A"},{"disk_id":3,"sn":"SN-WITH-TWENTY-CHARS"},)"
                 R"({"disk_id":11,"sn":"SN C"},{"disk_id":12,"sn":"SN-D"},{"disk_id":63,"sn":"SN-E"}]})"},
        JsonCase{"NoSummary", {"show", "summary"}, "SummaryInfo:\nDiskId  DiskSn   \n---\n---\n", R"({"disks":[]})"},
        JsonCase{"SlowDisks",
                 {"show", "slowdisk"},
                 "SlowDiskInfo:\nSn                                        Slot  State     \n" + std::string(63, '-') +
                     "\nSN ONE Slow                               NA    Slow      \n"
                     "4                                         4     Slow      \n" +
                     std::string(63, '-') + "\n",
                 R"({"disks":[{"sn":"SN ONE Slow","slot":null,"state":"slow"},{"sn":"4","slot":4,"state":"slow"}]})"},
        JsonCase{"Identity",
                 {"show", "disk_info", "disk_id=3"},
                 FiveDisks()["show disk_info disk_id=3"],
                 R"({"disk_id":3,"state":"normal","capacity":1.8,"capacity_unit":"TB","sector_size":512,)"
                 R"("vendor":"VELMAR","model":"A MODEL OF THIRTY-TWO CHARACTERS","firmware":"A103",)"
                 R"("sn":"SN-WITH-TWENTY-CHARS","device":"nvme10","pci_address":null,"type":"NVME SSD","slot":12})"},
        JsonCase{"Io",
                 {"show", "iostat_info", "disk_id=0"},
                 FiveDisks()["show iostat_info disk_id=0"],
                 R"({"disk_id":0,"read_iops":1500,"write_iops":800,"read_kb_per_s":24000,"write_kb_per_s":12800,)"
                 R"("read_delay_us":320,"write_delay_us":310,"queue_depth":254,"io_busy":4,"service_time_us":80,)"
                 R"("utilization_percent":12.05})"},
        JsonCase{"Health",
                 {"show", "smart_info", "disk_id=7"},
                 "PowerOnlineTime   : 4511h\nDegree of wear    : 99.99%\n",
                 R"({"disk_id":7,"power_on_hours":4511,"wear_percent":99.99})"},
        JsonCase{"HoursWithMoreDigitsThanADouble",
                 {"show", "smart_info", "disk_id=7"},
                 "PowerOnlineTime   : 9007199254740993h\nDegree of wear    : 0.8%\n",
                 R"({"disk_id":7,"power_on_hours":9007199254740993,"wear_percent":0.08})"},
        JsonCase{"HoursOf64Bits",
                 {"show", "smart_info", "disk_id=7"},
                 "PowerOnlineTime   : 18446744073709551615h\nDegree of wear    : 100.0%\n",
                 R"({"disk_id":7,"power_on_hours":18446744073709551615,"wear_percent":100})"},
        JsonCase{"HoursBeyond64Bits",
                 {"show", "smart_info", "disk_id=7"},
                 "PowerOnlineTime   : 18446744073709551616h\nDegree of wear    : 33.33%\n",
                 R"({"disk_id":7,"power_on_hours":null,"wear_percent":33.33})"},
        JsonCase{"IoOf64Bits",
                 {"show", "iostat_info", "disk_id=18446744073709551615"},
                 "ReadIops      : 18446744073709551615\nWriteIops     : 9007199254740993\n"
                 "ReadIoBand    : 18446744073709551614kb/s\nWriteIoBand   : 9007199254740992kb/s\n"
                 "ReadIoDelay   : 18446744073709551613us\nWriteIoDelay  : 0us\n"
                 "QueueDepth    : 4294967295\nioBusyNum     : 007\nsvctm         : 10000000000000001\n"
                 "utilization   : 12.5%\n",
                 R"({"disk_id":18446744073709551615,"read_iops":18446744073709551615,"write_iops":9007199254740993,)"
                 R"("read_kb_per_s":18446744073709551614,"write_kb_per_s":9007199254740992,)"
                 R"("read_delay_us":18446744073709551613,"write_delay_us":0,"queue_depth":4294967295,"io_busy":7,)"
                 R"("service_time_us":10000000000000001,"utilization_percent":12.05})"},
        JsonCase{"Worn",
                 {"show", "drm_info", "disk_id=3"},
                 FiveDisks()["show drm_info disk_id=3"],
                 R"({"disk_id":3,"prediction":"done","score":37,"life_months":0,"state":"fault",)"
                 R"("suggestion":"Replace the hard disk"})"},
        JsonCase{"HardDisk",
                 {"show", "drm_info", "disk_id=11"},
                 FiveDisks()["show drm_info disk_id=11"],
                 R"({"disk_id":11,"prediction":"none","score":null,"life_months":null,"state":"slow",)"
                 R"("suggestion":"Migrate data and replace the hard disk"})"},
        JsonCase{"LongLife",
                 {"show", "drm_info", "disk_id=12"},
                 FiveDisks()["show drm_info disk_id=12"],
                 R"({"disk_id":12,"prediction":"done","score":100,"life_months":61,"state":"normal",)"
                 R"("suggestion":null})"},
        JsonCase{"Offline",
                 {"show", "drm_info", "disk_id=1"},
                 "DiskHealthScore   : 100\nDiskLife          : 60\nDiskState         : Off-line state\n"
                 "Suggestions       : \n",
                 R"({"disk_id":1,"prediction":"done","score":100,"life_months":60,"state":"offline",)"
                 R"("suggestion":null})"},
        JsonCase{"Switches",
                 {"show", "config"},
                 "feature_switch        : on\ntakeover_disk_switch  : off\n",
                 R"({"feature_switch":true,"takeover_disk_switch":false})"},
        JsonCase{"BrokenSwitch",
                 {"show", "config"},
                 "feature_switch        : internal error\ntakeover_disk_switch  : on\n",
                 R"({"feature_switch":null,"takeover_disk_switch":true})"},
        JsonCase{"SlowDiskDetection",
                 {"show", "slowdisk_detect_config"},
                 "sata_ssd_disk : min_threshold_value=1      min_slow_cycle=50   \n"
                 "sas_ssd_disk  : min_threshold_value=2      min_slow_cycle=51   \n"
                 "nvme_disk     : min_threshold_value=3      min_slow_cycle=52   \n"
                 "sas_hdd       : min_threshold_value=500    min_slow_cycle=100  \n",
                 R"({"sata_ssd_disk":{"disk_type":0,"min_threshold_value":1,"min_slow_cycle":50},)"
                 R"("sas_ssd_disk":{"disk_type":1,"min_threshold_value":2,"min_slow_cycle":51},)"
                 R"("nvme_disk":{"disk_type":2,"min_threshold_value":3,"min_slow_cycle":52},)"
                 R"("sas_hdd":{"disk_type":3,"min_threshold_value":500,"min_slow_cycle":100}})"},
        JsonCase{"Prefail",
                 {"show", "dpr_smart"},
                 "sata_ssd_disk : task_cycle=20\nsas_ssd_disk  : task_cycle=21\nnvme_disk     : task_cycle=22\n"
                 "sas_hdd       : task_cycle=2592000\n",
                 R"({"sata_ssd_disk":{"disk_type":0,"task_cycle":20},"sas_ssd_disk":{"disk_type":1,"task_cycle":21},)"
                 R"("nvme_disk":{"disk_type":2,"task_cycle":22},"sas_hdd":{"disk_type":3,"task_cycle":2592000}})"},
        JsonCase{"Life", {"show", "disklife_prediction"}, "task_cycle: 86400\n", R"({"task_cycle":86400})"}),
    [](const auto &test) { return test.param.name; });

/** The text of the server is the same of both. */
TEST_F(CtlTest, JsonOfAVerdictTellsByTheTypeWhetherALifeWillBePredicted)
{
    std::map<std::string, std::string> answers = FiveDisks();
    answers["show drm_info disk_id=12"] = answers["show drm_info disk_id=0"];
    Serve(answers);

    EXPECT_EQ(Compact(Ctl({"show", "drm_info", "disk_id=0", "--json"}).out),
              R"({"disk_id":0,"prediction":"none","score":null,"life_months":null,"state":"normal",)"
              R"("suggestion":"No action required"})");
    EXPECT_EQ(Compact(Ctl({"show", "drm_info", "disk_id=12", "--json"}).out),
              R"({"disk_id":12,"prediction":"pending","score":null,"life_months":null,"state":"normal",)"
              R"("suggestion":"No action required"})");
    EXPECT_THAT(Compact(Ctl({"list", "--json"}).out),
                AllOf(HasSubstr(R"("sn":"SN-A","watched":true,"state":"normal","prediction":"none")"),
                      HasSubstr(R"("sn":"SN-D","watched":true,"state":"normal","prediction":"pending")")));
}

TEST_F(CtlTest, JsonOfAVerdictFailsIfTheTypeCannotBeTold)
{
    std::map<std::string, std::string> answers = FiveDisks();
    answers["show disk_info disk_id=0"] = "something else";
    Serve(answers);
    const Finished unreadable = Ctl({"show", "drm_info", "disk_id=0", "--json"});
    EXPECT_EQ(unreadable.exitCode, 1);
    EXPECT_EQ(unreadable.out, "");
    EXPECT_THAT(unreadable.err, StartsWith("corvanectl: the answer to \"show disk_info disk_id=0\" cannot be read\n"));

    server_.reset();
    answers.erase("show disk_info disk_id=0");
    Serve(answers);
    const Finished left = Ctl({"show", "drm_info", "disk_id=0", "--json"});
    EXPECT_EQ(left.exitCode, 5);
    EXPECT_EQ(left.out, "");
}

TEST_F(CtlTest, JsonOfListAndWatchKeepsDigits)
{
    std::map<std::string, std::string> answers = FiveDisks();
    std::string &identity = answers["show disk_info disk_id=3"];
    identity.replace(identity.rfind("12"), 2, "9007199254740993");
    std::string &verdict = answers["show drm_info disk_id=3"];
    verdict.replace(verdict.find("37"), 2, "18446744073709551615");
    Serve(answers);

    EXPECT_THAT(Compact(Ctl({"list", "--json"}).out),
                AllOf(HasSubstr(R"("slot":9007199254740993,)"), HasSubstr(R"("score":18446744073709551615,)")));
    EXPECT_THAT(Ctl({"watch", "--json", "-n", "1"}).out, HasSubstr(R"("score":18446744073709551615,)"));
}

TEST_F(CtlTest, JsonOfAListHoldsEachDisk)
{
    Serve(FiveDisks());

    const Finished run = Ctl({"list", "--json"});

    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(
        Compact(run.out),
        R"({"disks":[{"disk_id":0,"device":"sda","type":"SATA SSD","slot":null,"model":"VSSD-960G","sn":"SN-A",)"
        R"("watched":true,"state":"normal","prediction":"none","score":null,"life_months":null,)"
        R"("suggestion":"No action required"},)"
        R"({"disk_id":3,"device":"nvme10","type":"NVME SSD","slot":12,"model":"A MODEL OF THIRTY-TWO CHARACTERS",)"
        R"("sn":"SN-WITH-TWENTY-CHARS","watched":true,"state":"fault","prediction":"done","score":37,"life_months":0,)"
        R"("suggestion":"Replace the hard disk"},)"
        R"({"disk_id":11,"device":"sdaa","type":"NL SAS HDD","slot":0,"model":"ST12000","sn":"SN C","watched":true,)"
        R"("state":"slow",)"
        R"("prediction":"none","score":null,"life_months":null,)"
        R"("suggestion":"Migrate data and replace the hard disk"},)"
        R"({"disk_id":12,"device":"sdab","type":"SAS SSD","slot":null,"model":null,"sn":"SN-D","watched":true,)"
        R"("state":"normal",)"
        R"("prediction":"done","score":100,"life_months":61,"suggestion":null},)"
        R"({"disk_id":63,"device":"sdac","type":"SAS SSD","slot":7,"model":"VS-1600","sn":"SN-E","watched":true,)"
        R"("state":"prefail",)"
        R"("prediction":"done","score":37,"life_months":1,)"
        R"("suggestion":"Migrate data and replace the hard disk"}]})");
}

TEST_F(CtlTest, JsonOfAWatchIsALineForEachRefresh)
{
    Serve(FiveDisks());

    const Finished run = Ctl({"watch", "--json", "-n", "2", "-i", "1"});

    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 2);
    const std::string line = run.out.substr(0, run.out.find('\n'));
    const size_t disks = line.find("\"disks\"");
    EXPECT_THAT(line.substr(0, disks), ::testing::MatchesRegex(R"(\{"time":"[0-9-]{10} [0-9:]{8}",)"));
    EXPECT_EQ(line.substr(disks),
              R"("disks":[{"disk_id":3,"device":"nvme10","type":"NVME SSD","sn":"SN-WITH-TWENTY-CHARS","watched":true,)"
              R"("state":"fault",)"
              R"("prediction":"done","score":37,"life_months":0,"utilization_percent":100},)"
              R"({"disk_id":63,"device":"sdac","type":"SAS SSD","sn":"SN-E","watched":true,)"
              R"("state":"prefail","prediction":"done",)"
              R"("score":37,"life_months":1,"utilization_percent":7.25},)"
              R"({"disk_id":11,"device":"sdaa","type":"NL SAS HDD","sn":"SN C","watched":true,)"
              R"("state":"slow","prediction":"none",)"
              R"("score":null,"life_months":null,"utilization_percent":99.99},)"
              R"({"disk_id":0,"device":"sda","type":"SATA SSD","sn":"SN-A","watched":true,)"
              R"("state":"normal","prediction":"none",)"
              R"("score":null,"life_months":null,"utilization_percent":12.05},)"
              R"({"disk_id":12,"device":"sdab","type":"SAS SSD","sn":"SN-D","watched":true,)"
              R"("state":"normal","prediction":"done",)"
              R"("score":100,"life_months":61,"utilization_percent":0}]})");
}
