#include "service_fixture.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <sys/stat.h>

namespace {

/** JSON text in one form, whatever its blanks. */
std::string Compact(const std::string &text)
{
    const CJsonPtr tree(cJSON_Parse(text.c_str()));
    return tree != nullptr ? Unformatted(tree.get()) : "no JSON: " + text;
}

std::string Settings()
{
    return Compact(ReadText(kSettingsFile));
}

} // namespace

class SettingsHistoryTest : public ServiceTest {
protected:
    /** The next copy gets a name of its own, which tells the second. */
    void NextMinute() { Seams().clockOffset += 60; }
    static std::string Copy(const std::string &name) { return ReadText(kHistoryFolder + "/" + name); }
    /** One more look of the task at the settings has come to its end. */
    static bool WaitForLook()
    {
        const std::string end = "Config file back up successfully";
        return WaitForLog(end, Logged(end) + 1);
    }
};

TEST_F(SettingsHistoryTest, FollowsAnUpgradeAndEachChangeAndComesBackFromIt)
{
    // given: settings of a user, and the newer defaults that an upgrade has left
    StartSim(ScenarioOf({}));
    WriteText(kSettingsFile, SettingsText({{"sas_hdd.task_cycle", 33}, {"disklife_prediction.task_cycle", 7200}}));
    WriteText(kUpgradeFile,
              SettingsText({{"added_key", 7}, {"sas_hdd.added_in_section", 8}, {"sas_hdd.task_cycle", 30}}));
    Seams().longSleepMs = 300; // the ten minutes of the task

    // when: the service starts
    StartService();

    // then: new keys are there, the user's values stay, and the task has copied the result once
    const std::string merged = Compact(SettingsText({{"sas_hdd.task_cycle", 33},
                                                     {"disklife_prediction.task_cycle", 7200},
                                                     {"added_key", 7},
                                                     {"sas_hdd.added_in_section", 8}}));
    EXPECT_EQ(CJsonPtr(cJSON_Parse(Settings().c_str())) != nullptr, true);
    EXPECT_TRUE(
        cJSON_Compare(CJsonPtr(cJSON_Parse(Settings().c_str())).get(), CJsonPtr(cJSON_Parse(merged.c_str())).get(), 1))
        << Settings() << "\nwanted " << merged;
    EXPECT_FALSE(std::filesystem::exists(kUpgradeFile));
    ASSERT_TRUE(Eventually([] { return History().size() == 1; }));
    const std::string first = History().front();
    EXPECT_THAT(first, ::testing::MatchesRegex("corvane_config_bak__[0-9]+-[0-9]+-[0-9]+-[0-9]+-[0-9]+-[0-9]+"));
    struct stat status = {};
    ASSERT_EQ(stat((kHistoryFolder + "/" + first).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(status.st_uid, 64901u);
    EXPECT_EQ(status.st_gid, 64901u);

    // when: nothing changes, however often the task looks
    NextMinute();
    ASSERT_TRUE(WaitForLook());
    ASSERT_TRUE(WaitForLook());

    // then: no second copy
    EXPECT_EQ(Copy(first), ReadText(kSettingsFile));
    EXPECT_THAT(History(), ::testing::ElementsAre(first));

    // when: seven changes
    std::vector<std::string> contents = {Copy(first)};
    for (int cycle = 71; cycle <= 77; cycle++) {
        NextMinute();
        ASSERT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=" + std::to_string(cycle)).exitCode, 0);
        contents.push_back(ReadText(kSettingsFile));
        EXPECT_THAT(contents.back(), ::testing::HasSubstr("\"task_cycle\":\t" + std::to_string(cycle)));
        EXPECT_EQ(Copy(History().front()), contents.back());
    }

    // then: the newest five are left, newest first
    const std::vector<std::string> names = History();
    ASSERT_EQ(names.size(), 5u);
    for (size_t i = 0; i < names.size(); i++) {
        EXPECT_EQ(Copy(names[i]), contents[contents.size() - 1 - i]) << names[i];
    }

    // when: the settings are lost
    StopService();
    std::filesystem::remove(kSettingsFile);
    StartService();

    // then: the newest copy is in their place, and holds
    EXPECT_EQ(ReadText(kSettingsFile), contents.back());
    EXPECT_EQ(Logged("recover from bak"), 1u);
    EXPECT_THAT(Ctl("--json show dpr_smart").output, ::testing::HasSubstr("77"));
}

TEST_F(SettingsHistoryTest, AnUpgradeFileThatIsNoJsonStaysAndHarmsNothing)
{
    StartSim(ScenarioOf({}));
    const std::string settings = SettingsText({{"nvme_disk.min_slow_cycle", 44}});
    WriteText(kSettingsFile, settings);
    WriteText(kUpgradeFile, "{\"added_key\": 7, \"torn");

    StartService();

    EXPECT_EQ(ReadText(kSettingsFile), settings);
    EXPECT_TRUE(std::filesystem::exists(kUpgradeFile));
    EXPECT_EQ(Logged("load upgrade file " + kUpgradeFile + " failed, but continue"), 1u);
}
