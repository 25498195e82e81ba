#include "service_fixture.h"

#include <ctime>

namespace {

constexpr int64_t kDay = 86400;

} // namespace

class ClockStepTest : public ServiceTest, public ::testing::WithParamInterface<int64_t> {
protected:
    void StartNode()
    {
        StartSim(ScenarioOf({DiskText("sda", "STEP-A", "HDD_SAS"), DiskText("81", "STEP-N", "SSD_NVMe")}));
        WriteText(kSettingsFile, SettingsText({{"sas_hdd.task_cycle", 5}}));
        Seams().syncInterval = 1;
        StartService();
        ASSERT_TRUE(WaitForOnline(2));
        ASSERT_TRUE(Eventually([] {
            return RequestCount("kernel", "dca_get_disks_iostat") >= 2 &&
                   RequestCount("spdk", "dca_get_disks_iostat") >= 2;
        }));
    }
};

/** Whatever the clock says, disks stay watched, records arrive and verdicts are reached. */
TEST_P(ClockStepTest, DisturbsNothing)
{
    StartNode();
    const size_t kernelBase = RequestCount("kernel", "dca_get_disks_base_info");
    const size_t spdkBase = RequestCount("spdk", "dca_get_disks_base_info");

    Seams().clockOffset = GetParam();

    // The hour until the next base record is over, or cannot be told: it is asked for.
    EXPECT_TRUE(Eventually([=] {
        return RequestCount("kernel", "dca_get_disks_base_info") > kernelBase &&
               RequestCount("spdk", "dca_get_disks_base_info") > spdkBase;
    }));
    EXPECT_TRUE(WaitForRequests("kernel", "dca_get_disks_iostat", 2));
    EXPECT_TRUE(WaitForRequests("kernel", "dca_get_disks_health_info", 1));
    EXPECT_TRUE(WaitForRequests("spdk", "dca_get_disks_iostat", 1));
    EXPECT_TRUE(WaitForRequests("spdk", "dma_set_disk_handle_strategy", 4)) << "no more syncs";
    EXPECT_TRUE(GoesOn());
    EXPECT_EQ(RequestCount("spdk", "dma_poweroff_disk"), 0u) << "a disk was taken offline";
    EXPECT_EQ(Logged("IoStatCheck failed"), 0u) << "rates go by the agent's clock";

    Event(R"({"do":"health","disk":"sda","set":{"ASC":93,"ASCQ":0}})");
    EXPECT_TRUE(WaitForStatus([this](const cJSON *) { return StateOf("STEP-A") == "prefail"; }));

    // Copies of the settings are named by the clock as it is now.
    ASSERT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=77").exitCode, 0);
    const std::vector<std::string> copies = History();
    ASSERT_EQ(copies.size(), 1u);
    const time_t now = std::time(nullptr) + GetParam();
    std::tm local{};
    char day[16] = "";
    (void)localtime_r(&now, &local);
    (void)std::strftime(day, sizeof(day), "%Y-%m-%d", &local);
    EXPECT_THAT(copies.front(), ::testing::StartsWith(std::string("corvane_config_bak__") + day));
}

INSTANTIATE_TEST_SUITE_P(Steps, ClockStepTest, ::testing::Values(2 * kDay, -2 * kDay, -3600 * 24 * 400L),
                         [](const auto &test) {
                             return std::string(test.param > 0 ? "Ahead" : "Back") +
                                    std::to_string((test.param > 0 ? test.param : -test.param) / kDay) + "Days";
                         });

/** A copy from a clock that was ahead keeps the newest name; the settings themselves are safe. */
TEST_F(ClockStepTest, CopiesOfAClockThatWasAheadStayTheNewest)
{
    StartNode();
    Seams().clockOffset = kDay;
    ASSERT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=70").exitCode, 0);
    const std::string ahead = History().front();

    Seams().clockOffset = 0;
    for (int cycle = 71; cycle <= 78; cycle++) {
        Seams().clockOffset += 60;
        ASSERT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=" + std::to_string(cycle)).exitCode, 0);
    }

    EXPECT_EQ(History().size(), 5u);
    EXPECT_EQ(History().front(), ahead);
    EXPECT_THAT(ReadText(kSettingsFile), ::testing::HasSubstr("\"task_cycle\":\t78"));
    EXPECT_EQ(ReadText(kHistoryFolder + "/" + History()[1]), ReadText(kSettingsFile));
}
