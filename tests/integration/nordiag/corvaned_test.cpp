// The commands of the library itself, in a real service with disks.
#include "nordiag_fixture.h"

#include <chrono>
#include <csignal>

#include "support/mount_namespace.h"
#include "support/notify_socket.h"

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

namespace {

const std::string kPrefix = "/tmp/prefix";
const std::string kScenario = "/tmp/prefix/scenario.json";
constexpr auto kPatience = std::chrono::seconds(120);

std::vector<std::string> LinesOf(const std::string &text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

} // namespace

/** Two SATA SSDs, which get the identifiers 0 and 1, and a hard disk. */
class NordiagCorvanedTest : public NordiagTest {
protected:
    void SetUp() override
    {
        static const std::string problem = EnterPrivateMounts(BUILD_DIR);
        ASSERT_EQ(problem, "");
        NordiagTest::SetUp();
        std::filesystem::remove_all(kPrefix);
        ASSERT_TRUE(std::filesystem::create_directories(kPrefix + "/config"));
        std::ofstream(kScenario) << R"({"disks":[
            {"device_name":"sda","serial_number":"ZONESATA0000","disk_type":"SSD_SATA","vendor_id":"ATA",
             "model_number":"VSSD-960G","disk_capacity":960197124096},
            {"device_name":"sdb","serial_number":"ZONESATA0001","disk_type":"SSD_SATA","vendor_id":"ATA",
             "model_number":"VSSD-960G","disk_capacity":960197124096},
            {"device_name":"sdc","serial_number":"ZONEHDDS0000","disk_type":"HDD_SAS","vendor_id":"SEAGATE",
             "model_number":"ST1200MM0009","disk_capacity":1200243695616}]})";
        sim_ = std::make_unique<ChildProcess>(
            std::vector<std::string>{CORVANE_SIM_PATH, "--scenario", kScenario, "--no-spdk"});
        ASSERT_TRUE(sim_->WaitForOutput("ready\n")) << sim_->Errors();
        const NotifySocket manager;
        corvaned_ = std::make_unique<ChildProcess>(
            std::vector<std::string>{CORVANED_PATH, "--prefix", kPrefix, "--status-interval", "1"},
            std::vector<std::string>{manager.Environment()});
        ASSERT_THAT(manager.Receive(), HasSubstr("READY=1"));
    }
    void TearDown() override
    {
        for (ChildProcess *process : {corvaned_.get(), sim_.get()}) {
            if (process != nullptr && process->Running()) {
                process->Signal(SIGTERM);
                EXPECT_EQ(process->WaitForExit(), 0);
                EXPECT_EQ(process->Errors(), "");
            }
        }
        NordiagTest::TearDown();
    }

    /** @return what a command of the service printed; it must have returned 0. */
    static std::string Run(std::vector<std::string> words)
    {
        words.insert(words.begin(), "corvane");
        const Finished run = Nordiag(words);
        EXPECT_EQ(run.exitCode, 0) << words.back() << run.out << run.err;
        EXPECT_EQ(run.err, "");
        return run.out;
    }
    /** Runs it with each status that the service prints, until it prints this. */
    void RunUntil(const std::vector<std::string> &words, const std::string &output)
    {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        std::string printed = Run(words);
        while (printed != output && std::chrono::steady_clock::now() < end) {
            const size_t seen = corvaned_->Output().size();
            ASSERT_TRUE(corvaned_->WaitForOutput([seen](const std::string &text) { return text.size() > seen; }));
            printed = Run(words);
        }
        EXPECT_EQ(printed, output);
    }

    std::unique_ptr<ChildProcess> sim_;
    std::unique_ptr<ChildProcess> corvaned_;
};

TEST_F(NordiagCorvanedTest, FindsTheServiceAndItsEnd)
{
    EXPECT_THAT(Nordiag({"list"}).out, HasSubstr("corvane                  root             ready\n"));
    EXPECT_EQ(Nordiag({"corvane", "help"}).exitCode, 0);
    EXPECT_EQ(Nordiag({"corvane", "nothing"}).exitCode, 5);

    corvaned_->Signal(SIGTERM);

    EXPECT_EQ(corvaned_->WaitForExit(), 0);
    EXPECT_EQ(corvaned_->Errors(), "");
    EXPECT_EQ(Nordiag({"corvane", "help"}).exitCode, 3);
}

TEST_F(NordiagCorvanedTest, HelpListsTheGroupsAndTheirCommands)
{
    EXPECT_EQ(Run({"help"}), "  drm                 diagnose function of DRM\n"
                             "  u_drm_slow_disk     diagnose function of slow disk detection\n"
                             "  corvane             corvane debug command\n");

    EXPECT_EQ(Run({"help", "drm"}), "SYNOPSIS\n"
                                    "drm showmemalloc: show allocated mem size\n");
    EXPECT_EQ(Run({"help", "u_drm_slow_disk"}),
              "SYNOPSIS\n"
              "u_drm_slow_disk showdisk disktype: show disk list in zone, disktype[0-3]\n"
              "u_drm_slow_disk showdiskiostat diskid: show disk iostat\n");
    EXPECT_EQ(Run({"help", "corvane"}),
              "\tcorvane list_data\t:list all disk data\n"
              "\tcorvane set_disk_life_monitor_schedule_time [cycle_time]\t:set disk life monitor schedule time\n"
              "\tcorvane test_mem [malloc, free]\t:valid corvane process if mem usage more than 4m\n");
}

TEST_F(NordiagCorvanedTest, ShowMemAllocPrintsARowForEachPool)
{
    const std::vector<std::string> pools = {"cm_size_32",  "cm_size_64", "cm_size_128", "cm_size_256",
                                            "cm_size_512", "cm_size_1K", "cm_size_2K",  "cm_size_4064"};

    const std::vector<std::string> rows = LinesOf(Run({"drm", "showmemalloc"}));

    ASSERT_EQ(rows.size(), pools.size());
    for (size_t i = 0; i < rows.size(); i++) {
        EXPECT_THAT(rows[i], AllOf(StartsWith(pools[i] + " "), MatchesRegex("[^ ]+ +[0-9]+ +[0-9]+ +[0-9]+ *")));
        EXPECT_EQ(rows[i].size(), 73u) << "columns of 40, 10, 10 and 10, and the blanks between them";
    }
}

TEST_F(NordiagCorvanedTest, ShowDiskInZoneListsTheDisksOfAType)
{
    RunUntil({"u_drm_slow_disk", "showdiskinzone", "0"}, "0,1\n");
    RunUntil({"u_drm_slow_disk", "showdiskinzone", "3"}, "2\n");

    EXPECT_EQ(Run({"u_drm_slow_disk", "showdiskinzone", "1"}), "");
    EXPECT_EQ(Run({"u_drm_slow_disk", "showdiskinzone", "2"}), "");
    EXPECT_EQ(Run({"u_drm_slow_disk", "showdiskinzone", "4"}), "invalid disk type: 4.\n");
    EXPECT_EQ(Run({"u_drm_slow_disk", "showdiskinzone"}), "lack param.\n");
}

TEST_F(NordiagCorvanedTest, ShowDiskIostatPrintsTheWindowOfADisk)
{
    RunUntil({"u_drm_slow_disk", "showdiskinzone", "0"}, "0,1\n");

    const std::vector<std::string> rows = LinesOf(Run({"u_drm_slow_disk", "showdiskiostat", "1"}));

    ASSERT_EQ(rows.size(), 32u) << "eight rows for each 25 samples of 100";
    EXPECT_THAT(rows[0], StartsWith("    index:         0         1         2 "));
    EXPECT_THAT(rows[24], ::testing::EndsWith("        97        98        99"));
    const char *const labels[] = {
        "index:", "isvalid:", "isslow:", "svctm:", "iops:", "bandwidth:", "util:", "busynum:"};
    for (size_t i = 0; i < rows.size(); i++) {
        EXPECT_THAT(rows[i], MatchesRegex(std::string(" *") + labels[i % 8] + "( +[0-9]+)+"));
        EXPECT_EQ(rows[i].size(), 260u) << rows[i];
    }
    EXPECT_EQ(Run({"u_drm_slow_disk", "showdiskiostat", "77"}), "disk(77) iostat not exist.\n");
    EXPECT_EQ(Run({"u_drm_slow_disk", "showdiskiostat", "128"}), "disk(128) iostat not exist.\n");
    EXPECT_EQ(Run({"u_drm_slow_disk", "showdiskiostat", "sda"}), "disk(4294967295) iostat not exist.\n");
    EXPECT_EQ(Run({"u_drm_slow_disk", "showdiskiostat"}), "lack param.\n");
}

TEST_F(NordiagCorvanedTest, RunsTheCommandsOfTheLibrary)
{
    EXPECT_EQ(Run({"corvane", "list_data"}), "");
    EXPECT_EQ(Run({"corvane", "set_disk_life_monitor_schedule_time", "7"}), "Set disk life monitor schedule time 7s\n");
    EXPECT_EQ(Run({"corvane", "test_mem", "free"}), "free mem ok\n");

    for (const auto &[words, message] :
         {std::pair<std::vector<std::string>, const char *>{{}, "Please input valid command.\n"},
          {{"list_dataa"}, "Input invalid command!\n"},
          {{"set_disk_life_monitor_schedule_time"}, "Please input valid command, need param[cycle_time]\n"}}) {
        std::vector<std::string> command = {"corvane", "corvane"};
        command.insert(command.end(), words.begin(), words.end());
        EXPECT_THAT(Nordiag(command).out, StartsWith(message));
    }
}
