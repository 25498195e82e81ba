#include "service_fixture.h"

#include <filesystem>

namespace {

bool IsWholeRegistry(int disks)
{
    const CJsonPtr registry(cJSON_Parse(ReadText(kRegistryFile).c_str()));
    return cJSON_IsArray(registry.get()) != 0 && cJSON_GetArraySize(registry.get()) == disks;
}

bool HasSetting(const std::string &path, const std::string &text)
{
    const CJsonPtr settings(cJSON_Parse(ReadText(path).c_str()));
    return settings != nullptr && Unformatted(settings.get()).find(text) != std::string::npos;
}

} // namespace

class FullDiskTest : public ServiceTest {
protected:
    void StartNode()
    {
        StartSim(ScenarioOf({DiskText("sda", "FULL-A", "HDD_SAS"), DiskText("sdb", "FULL-B", "SSD_SATA"),
                             DiskText("sdc", "FULL-C", "HDD_SAS", R"(,"present":false)"),
                             DiskText("81", "FULL-N", "SSD_NVMe")}));
        WriteText(kSettingsFile, SettingsText());
        StartService();
        ASSERT_TRUE(WaitForOnline(3));
    }
};

TEST_F(FullDiskTest, SettingsAndRegistryStayAsTheyWereUntilThereIsRoom)
{
    MountSmall(kConfigFolder, "256k");
    StartNode();
    const std::string settings = ReadText(kSettingsFile);
    const std::string registry = ReadText(kRegistryFile);
    ASSERT_TRUE(IsWholeRegistry(3));

    // when: full
    Fill(kConfigFolder);
    const Finished refused = Ctl("change config takeover_disk_switch=on");
    const Finished notTold = Ctl("change dpr_smart disk_type=3 task_cycle=77");
    Event(R"({"do":"plug","disk":"sdc"})");
    ASSERT_TRUE(WaitForLog("DiskSerialNumberRefresh init disk fail"));
    Event(R"({"do":"pull","disk":"sdb"})");
    ASSERT_TRUE(WaitForLog("DiskSerialNumberRefresh delete offline disk fail, sn = FULL-B"));

    // then: the log tells, and the files are those of before
    EXPECT_EQ(refused.exitCode, 5) << refused.output << refused.errors;
    EXPECT_EQ(Logged("save config takeover_disk_switch:1 to file failed: -1"), 1u);
    EXPECT_EQ(notTold.exitCode, 0) << "this command answers whether the request was right, not whether it was saved";
    EXPECT_EQ(Logged("save config parent:sas_hdd child:task_cycle val:77 to file failed: -1"), 1u);
    EXPECT_GE(Logged("Save to  tmp Config error"), 3u);
    EXPECT_EQ(ReadText(kSettingsFile), settings);
    EXPECT_EQ(ReadText(kRegistryFile), registry);
    EXPECT_TRUE(GoesOn());
    EXPECT_TRUE(WaitForRequests("kernel", "dca_get_disks_iostat", 1));

    // when: there is room
    MakeRoom(kConfigFolder);

    // then: the next scan and the next change take
    EXPECT_TRUE(WaitForStatus([this](const cJSON *) {
        return StateOf("FULL-A") == "normal" && StateOf("FULL-B").empty() && StateOf("FULL-C") == "normal" &&
               StateOf("FULL-N") == "normal";
    }));
    EXPECT_TRUE(IsWholeRegistry(3));
    EXPECT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=78").exitCode, 0);
    EXPECT_TRUE(HasSetting(kSettingsFile, R"("sas_hdd":{"task_cycle":78)"));
    EXPECT_FALSE(std::filesystem::exists(kSettingsFile + ".wal"));
    EXPECT_FALSE(std::filesystem::exists(kRegistryFile + ".wal"));
}

TEST_F(FullDiskTest, AFullHistoryKeepsNoChangeBack)
{
    MountSmall(kHistoryFolder, "64k");
    StartNode();
    ASSERT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=70").exitCode, 0);
    const std::string whole = ReadText(kHistoryFolder + "/" + History().front());
    ASSERT_EQ(whole, ReadText(kSettingsFile));

    Fill(kHistoryFolder);
    Seams().clockOffset += 60;
    EXPECT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=71").exitCode, 0);

    EXPECT_TRUE(HasSetting(kSettingsFile, R"("sas_hdd":{"task_cycle":71)"));
    EXPECT_EQ(Logged("bak config failed"), 1u);
    EXPECT_EQ(Logged("Error copy config bak file"), 1u);

    MakeRoom(kHistoryFolder);
    Seams().clockOffset += 60;
    EXPECT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=72").exitCode, 0);

    EXPECT_EQ(Logged("bak config failed"), 1u);
    EXPECT_EQ(ReadText(kHistoryFolder + "/" + History().front()), ReadText(kSettingsFile));
    EXPECT_EQ(ReadText(kHistoryFolder + "/" + History().back()), whole) << "an older copy was harmed";
}

TEST_F(FullDiskTest, AFullLogFolderStopsNothingAndTheLogReturns)
{
    MountSmall(kLogFolder, "256k");
    StartNode();
    // Lines come twice a second: the counters of one agent cannot be read.
    Event(R"({"do":"misbehave","agent":"spdk","mode":"garbage","method":"dca_get_disks_iostat"})");
    const std::string failure = "QueryMessageAndSave(dca_get_disks_iostat) failed";
    ASSERT_TRUE(WaitForLog(failure));

    // when: full
    Fill(kLogFolder);
    const std::string told = "norlog: cannot write to log folder \"" + kLogFolder + "/\": ";
    ASSERT_TRUE(WaitForStatus([&](const cJSON *) {
        const size_t at = Service().Errors().find(told);
        return at != std::string::npos && Service().Errors().find(failure, at) != std::string::npos;
    })) << "the log is lost: "
        << Service().Errors();

    // then: everything else goes on
    EXPECT_TRUE(WaitForRequests("kernel", "dca_get_disks_iostat", 2));
    EXPECT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=77").exitCode, 0);
    Event(R"({"do":"plug","disk":"sdc"})");
    EXPECT_TRUE(WaitForOnline(4));

    // when: there is room
    MakeRoom(kLogFolder);

    // then: the log goes to its file again
    EXPECT_TRUE(WaitForLog(failure, Logged(failure) + 2));
}
