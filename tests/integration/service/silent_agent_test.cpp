#include "service_fixture.h"

/** A data agent that takes every message and answers none, from the first one on. */
TEST_F(ServiceTest, ADataAgentThatNeverAnswersKeepsNoVerdictBack)
{
    std::string scenario = ScenarioOf({DiskText("sda", "MUTE-A", "HDD_SAS"),
                                       DiskText("81", "MUTE-N", "SSD_NVMe", R"(,"health":{"power_on_hours":7})")});
    scenario.pop_back();
    scenario += R"(,"events":[)";
    for (const char *method : {"dma_set_disk_info_inner", "dma_set_disk_state", "dma_set_disk_handle_strategy"}) {
        scenario += R"({"at":0,"do":"misbehave","agent":"spdk","mode":"hang","method":")";
        scenario += std::string(method) + R"("},)";
    }
    scenario.back() = ']';
    StartSim(scenario + "}");
    WriteText(kSettingsFile, SettingsText({{"sas_hdd.task_cycle", 5}}));
    Seams().syncInterval = 1;
    Seams().receiveTimeoutMs = 200; // five of them for each message
    StartService();

    // Disks come online all the same,
    ASSERT_TRUE(WaitForOnline(2));
    EXPECT_TRUE(WaitForLog("DiskHealthinfoInner send Rpc to agent failed! ret:[32]", 2));
    // syncs are tried again and again,
    EXPECT_TRUE(WaitForLog("DMM Sync All to DMA task finish! ret = 0", 2));
    // records arrive,
    EXPECT_TRUE(WaitForStatus([](const cJSON *status) {
        const cJSON *disk = nullptr;
        int complete = 0;
        cJSON_ArrayForEach(disk, cJSON_GetObjectItem(status, "disks"))
        {
            complete += cJSON_HasObjectItem(disk, "health") != 0 && cJSON_HasObjectItem(disk, "io") != 0 ? 1 : 0;
        }
        return complete == 2;
    }));
    // a verdict is reached and saved,
    Event(R"({"do":"health","disk":"sda","set":{"ASC":93,"ASCQ":0}})");
    EXPECT_TRUE(WaitForStatus([this](const cJSON *) { return StateOf("MUTE-A") == "prefail"; }));
    EXPECT_THAT(ReadText(kRegistryFile), ::testing::HasSubstr("\"diskState\":\t3"));
    // operators are served,
    EXPECT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=77").exitCode, 0);
    EXPECT_THAT(Ctl("list").output, ::testing::HasSubstr("MUTE-A"));
    // and the verdict is told once the agent answers.
    Event(R"({"do":"behave","agent":"spdk"})");
    EXPECT_TRUE(Eventually([] {
        const std::vector<Recorded> requests = Record();
        size_t told = 0;
        for (const Recorded &request : requests) {
            told += request.method == "dma_set_disk_info_inner" &&
                            request.params.find(R"("sn":"MUTE-A","disk_state":3)") != std::string::npos
                        ? 1U
                        : 0U;
        }
        return told >= 2;
    }));
    EXPECT_TRUE(WaitForRequests("spdk", "dma_set_disk_handle_strategy", 2));
}
