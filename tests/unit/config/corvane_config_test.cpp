#include "config/corvane_config.h"

#include <thread>

#include "disk_mgr/disk_mgr_cjson_util.h"
#include "unit/config/config_test_support.h"

namespace {

constexpr const char *kDefaultText = "{\n"
                                     "\t\"feature_switch\":\t1,\n"
                                     "\t\"takeover_disk_switch\":\t0,\n"
                                     "\t\"disklife_prediction\":\t{\n"
                                     "\t\t\"task_cycle\":\t86400\n"
                                     "\t},\n"
                                     "\t\"sata_ssd_disk\":\t{\n"
                                     "\t\t\"task_cycle\":\t20,\n"
                                     "\t\t\"min_threshold_value\":\t1,\n"
                                     "\t\t\"min_slow_cycle\":\t50\n"
                                     "\t},\n"
                                     "\t\"sas_ssd_disk\":\t{\n"
                                     "\t\t\"task_cycle\":\t20,\n"
                                     "\t\t\"min_threshold_value\":\t1,\n"
                                     "\t\t\"min_slow_cycle\":\t50\n"
                                     "\t},\n"
                                     "\t\"nvme_disk\":\t{\n"
                                     "\t\t\"task_cycle\":\t20,\n"
                                     "\t\t\"min_threshold_value\":\t1,\n"
                                     "\t\t\"min_slow_cycle\":\t50\n"
                                     "\t},\n"
                                     "\t\"sas_hdd\":\t{\n"
                                     "\t\t\"task_cycle\":\t20,\n"
                                     "\t\t\"min_threshold_value\":\t100,\n"
                                     "\t\t\"min_slow_cycle\":\t50\n"
                                     "\t}\n"
                                     "}";

std::string Print(const cJSON *tree)
{
    const CJsonText text(cJSON_PrintUnformatted(tree));
    return text != nullptr ? text.get() : "";
}

class InitConfigTest : public ConfigTest {};
class LoadConfigFileNotExistTest : public ConfigTest {};
class LoadConfigFileExistTest : public ConfigTest {};
class ConfigUpgradeNodeTest : public ConfigTest {};
class GetConfigIntTest : public ConfigTest {};
class GetChildNodeConfigIntTest : public ConfigTest {};
class SetConfigIntTest : public ConfigTest {};
class SetChildNodeConfigIntTest : public ConfigTest {};
class ConfigSwitchTest : public ConfigTest {};

} // namespace

TEST_F(InitConfigTest, WithoutAnyFileTheDefaultsServeAndNoFileIsMade)
{
    EXPECT_EQ(InitConfig(), 0U);

    EXPECT_EQ(Read("feature_switch"), 1U);
    EXPECT_EQ(Read("takeover_disk_switch"), 0U);
    EXPECT_EQ(Read("disklife_prediction", "task_cycle"), 86400U);
    for (const char *section : g_diskTypeConfigNames) {
        EXPECT_EQ(Read(section, "task_cycle"), 20U) << section;
        EXPECT_EQ(Read(section, "min_threshold_value"), std::string(section) == "sas_hdd" ? 100U : 1U) << section;
        EXPECT_EQ(Read(section, "min_slow_cycle"), 50U) << section;
    }
    EXPECT_FALSE(Exists(ConfigFile()));
    EXPECT_TRUE(
        Logged(kLogInfo, "DISK_CONFIG", "file " + ConfigFile() + " not exist, try recover form back up config"));
    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "Config init successfully"));

    EXPECT_EQ(SetConfigInt("feature_switch", 1), 0U);
    EXPECT_EQ(ReadFile(ConfigFile()), kDefaultText) << "the first set writes the file";
}

TEST_F(InitConfigTest, AMissingBackupFolderLeadsToTheDefaults)
{
    std::filesystem::remove(BakFolder());

    EXPECT_EQ(InitConfig(), 0U);

    EXPECT_TRUE(
        Logged(kLogError, "DISK_CONFIG", "open bak dir(" + BakFolder() + ") fail: 2 - No such file or directory"));
    EXPECT_EQ(Read("feature_switch"), 1U);
}

TEST_F(InitConfigTest, RecoversTheNewestBackup)
{
    WriteFile(BakFile("2026-01-01-00-00-00"), R"({"feature_switch": 5})");
    WriteFile(BakFile("2026-01-02-00-00-00"), R"({"feature_switch": 7})");
    const mode_t former = umask(0);

    EXPECT_EQ(InitConfig(), 0U);

    (void)umask(former);
    EXPECT_EQ(Read("feature_switch"), 7U);
    EXPECT_EQ(ReadFile(ConfigFile()), R"({"feature_switch": 7})");
    EXPECT_EQ(ModeOf(ConfigFile()), 0640U);
    EXPECT_EQ(ConfigOs::owned, std::vector<std::string>{ConfigFile()});
    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "recover from bak"));
}

TEST_F(InitConfigTest, ARecoveryWithoutPermissionsLeadsToTheDefaults)
{
    WriteFile(BakFile("2026-01-01-00-00-00"), R"({"feature_switch": 5})");
    g_osCalls.chmod = [](const char *, mode_t) { return -1; };

    EXPECT_EQ(InitConfig(), 0U);

    EXPECT_EQ(Read("feature_switch"), 1U);
}

TEST_F(InitConfigTest, AFileThatIsNoJsonFailsTheStart)
{
    WriteFile(ConfigFile(), "{");
    WriteFile(BakFile("2026-01-01-00-00-00"), kDefaultText);

    EXPECT_EQ(InitConfig(), 1U);

    EXPECT_EQ(g_configRoot, nullptr);
    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "load file " + ConfigFile() + " failed"));
    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "Config init failed"));
    EXPECT_EQ(ReadFile(ConfigFile()), "{");
}

TEST_F(InitConfigTest, AWholeWriteAheadCopyServesForAMissingFile)
{
    WriteFile(WalFile(), R"({"feature_switch": 3})");

    EXPECT_EQ(InitConfig(), 0U);

    EXPECT_EQ(Read("feature_switch"), 3U);
    EXPECT_TRUE(Exists(ConfigFile()));
    EXPECT_FALSE(Exists(WalFile()));
}

TEST_F(InitConfigTest, APartialWriteAheadCopyDoesNot)
{
    WriteFile(WalFile(), R"({"feature_switch": )");

    EXPECT_EQ(InitConfig(), 0U);

    EXPECT_EQ(Read("feature_switch"), 1U);
    EXPECT_FALSE(Exists(ConfigFile()));
}

TEST_F(InitConfigTest, ASecondCallFailsAndChangesNothing)
{
    Start(R"({"feature_switch": 0})");
    WriteFile(ConfigFile(), R"({"feature_switch": 1})");

    EXPECT_EQ(InitConfig(), 1U);

    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "Config already inited"));
    EXPECT_EQ(Read("feature_switch"), 0U);
}

TEST_F(InitConfigTest, NeedsALock)
{
    g_corvaneInfra.rwlockCreate = []() -> void * { return nullptr; };

    EXPECT_EQ(InitConfig(), 1U);

    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "Config create lock failed"));
}

TEST_F(InitConfigTest, RefusesAPathThatDoesNotFit)
{
    const std::string prefix(4096, 'p');
    UsePrefix(prefix);

    EXPECT_EQ(InitConfig(), 1U);

    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG",
                       "concatenate config prefix:" + prefix + " with file:config/corvane_config.json failed."));
}

TEST_F(LoadConfigFileNotExistTest, BuildsTheKeysInOrder)
{
    const CJsonPtr tree(LoadConfigFileNotExist());

    const CJsonText text(cJSON_Print(tree.get()));
    EXPECT_STREQ(text.get(), kDefaultText);
    EXPECT_TRUE(Logs().empty());
}

TEST_F(LoadConfigFileNotExistTest, FailsWithOneTextWhateverAllocationFails)
{
    static int left;
    cJSON_Hooks hooks{[](size_t size) { return left-- == 0 ? nullptr : std::malloc(size); }, std::free};
    int failures = 0;

    for (CJsonPtr tree; tree == nullptr && failures < 1000;) {
        left = failures;
        ClearLogs();
        cJSON_InitHooks(&hooks);
        tree.reset(LoadConfigFileNotExist());
        cJSON_InitHooks(nullptr);
        if (tree != nullptr) {
            break;
        }
        failures++;
        const std::vector<LogLine> lines = Logs();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_EQ(lines[0].level, kLogError);
        EXPECT_EQ(lines[0].module, "DISK_CONFIG");
        EXPECT_THAT(lines[0].text, ::testing::AnyOf("create rootNode failed", "create config node failed",
                                                    "create parent failed", "create disk type config node failed"));
        EXPECT_EQ(lines[0].text == "create rootNode failed", failures == 1);
    }

    EXPECT_GT(failures, 36) << "20 items, of which 19 have a name";
    EXPECT_LT(failures, 1000);
}

TEST_F(LoadConfigFileExistTest, WithoutAnUpgradeFileTakesTheFile)
{
    WriteFile(ConfigFile(), R"({"a": 1})");

    const CJsonPtr tree(LoadConfigFileExist());

    EXPECT_EQ(Print(tree.get()), R"({"a":1})");
    EXPECT_TRUE(Logged(kLogInfo, "DISK_CONFIG", "upgrade file " + UpgradeFile() + " not exist, no need upgrade"));
}

TEST_F(LoadConfigFileExistTest, AnUpgradeAddsKeysAndKeepsTheUsersValues)
{
    WriteFile(ConfigFile(), R"({"feature_switch": 0, "own": 9, "sas_hdd": {"task_cycle": 33}})");
    WriteFile(UpgradeFile(), R"({"feature_switch": 1, "new_key": 5, "sas_hdd": {"task_cycle": 20, "new_in": 6}})");

    const CJsonPtr tree(LoadConfigFileExist());

    const std::string merged = R"({"feature_switch":0,"own":9,"sas_hdd":{"task_cycle":33,"new_in":6},"new_key":5})";
    EXPECT_EQ(Print(tree.get()), merged);
    EXPECT_EQ(Print(CJsonPtr(cJSON_Parse(ReadFile(ConfigFile()).c_str())).get()), merged);
    EXPECT_EQ(ModeOf(ConfigFile()), 0640U);
    EXPECT_FALSE(Exists(UpgradeFile()));
}

TEST_F(LoadConfigFileExistTest, AnUpgradeFileThatIsNoJsonStays)
{
    WriteFile(ConfigFile(), R"({"a": 1})");
    WriteFile(UpgradeFile(), "{");

    const CJsonPtr tree(LoadConfigFileExist());

    EXPECT_EQ(Print(tree.get()), R"({"a":1})");
    EXPECT_TRUE(Exists(UpgradeFile()));
    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "load upgrade file " + UpgradeFile() + " failed, but continue"));
}

TEST_F(LoadConfigFileExistTest, AMergeThatIsTooDeepLeavesBothFiles)
{
    const std::string deep = R"({"a":{"b":{"c":{"d":{"e":{"f":1}}}}}})";
    WriteFile(ConfigFile(), deep);
    WriteFile(UpgradeFile(), R"({"x":1,"a":{"b":{"c":{"d":{"e":{"g":1}}}}}})");

    const CJsonPtr tree(LoadConfigFileExist());

    EXPECT_EQ(Print(tree.get()), deep);
    EXPECT_EQ(ReadFile(ConfigFile()), deep);
    EXPECT_TRUE(Exists(UpgradeFile()));
    for (const char *name : {"a", "b", "c", "d", "e"}) {
        EXPECT_TRUE(Logged(kLogError, "DISK_MGR", std::string("upgrade node ") + name + " failed"));
    }
}

TEST_F(LoadConfigFileExistTest, AnUpgradeThatCannotBeSavedLeavesBothFiles)
{
    WriteFile(ConfigFile(), R"({"a":1})");
    WriteFile(UpgradeFile(), R"({"b":2})");
    g_osCalls.chown = [](const char *, uid_t, gid_t) { return -1; };

    const CJsonPtr tree(LoadConfigFileExist());

    EXPECT_EQ(Print(tree.get()), R"({"a":1})");
    EXPECT_EQ(ReadFile(ConfigFile()), R"({"a":1})");
    EXPECT_TRUE(Exists(UpgradeFile()));
    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "save upgrade config to file failed, but continue"));
}

TEST_F(LoadConfigFileExistTest, AnUpgradeFileThatCannotBeRemovedIsTold)
{
    WriteFile(ConfigFile(), R"({"a":1})");
    WriteFile(UpgradeFile(), R"({"b":2})");
    g_osCalls.unlink = [](const char *) {
        errno = EROFS;
        return -1;
    };

    const CJsonPtr tree(LoadConfigFileExist());

    EXPECT_EQ(Print(tree.get()), R"({"a":1,"b":2})");
    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "del upgrade config file failed 30, but continue"));
}

struct MergeCase {
    const char *node;
    const char *upgrade;
    uint32_t depth;
    uint32_t result;
    const char *merged; ///< null: not looked at
};

class ConfigUpgradeNodeMergeTest : public ConfigTest, public ::testing::WithParamInterface<MergeCase> {};

TEST_P(ConfigUpgradeNodeMergeTest, Merges)
{
    const CJsonPtr node(cJSON_Parse(GetParam().node));
    const CJsonPtr upgrade(cJSON_Parse(GetParam().upgrade));

    EXPECT_EQ(ConfigUpgradeNode(node.get(), upgrade.get(), GetParam().depth), GetParam().result);

    if (GetParam().merged != nullptr) {
        EXPECT_EQ(Print(node.get()), GetParam().merged);
    }
    EXPECT_EQ(Print(upgrade.get()), GetParam().upgrade);
}

INSTANTIATE_TEST_SUITE_P(Trees, ConfigUpgradeNodeMergeTest,
                         ::testing::Values(MergeCase{"{}", R"({"a":1})", 0, 0, R"({"a":1})"},
                                           MergeCase{R"({"A":2})", R"({"a":1})", 0, 0, R"({"A":2})"},
                                           MergeCase{R"({"a":1})", "{}", 0, 0, R"({"a":1})"},
                                           MergeCase{R"({"a":{}})", R"({"a":{"b":1}})", 0, 0, R"({"a":{"b":1}})"},
                                           MergeCase{R"({"a":{"b":1}})", R"({"a":{}})", 0, 0, R"({"a":{"b":1}})"},
                                           MergeCase{R"({"a":{"b":1}})", R"({"a":7})", 0, 0, R"({"a":{"b":1}})"},
                                           // Five levels in both trees are merged; a sixth is not.
                                           MergeCase{R"({"a":{"b":{"c":{"d":{"e":1}}}}})",
                                                     R"({"a":{"b":{"c":{"d":{"e":2,"f":3}}}}})", 0, 0,
                                                     R"({"a":{"b":{"c":{"d":{"e":1,"f":3}}}}})"},
                                           MergeCase{R"({"a":{"b":{"c":{"d":{"e":{}}}}}})",
                                                     R"({"a":{"b":{"c":{"d":{"e":{"f":3}}}}}})", 0, 1, nullptr},
                                           // What only the upgrade has is copied at whatever depth.
                                           MergeCase{"{}", R"({"a":{"b":{"c":{"d":{"e":{"f":{"g":1}}}}}}})", 0, 0,
                                                     R"({"a":{"b":{"c":{"d":{"e":{"f":{"g":1}}}}}}})"},
                                           MergeCase{"{}", R"({"a":1})", 4, 0, R"({"a":1})"},
                                           MergeCase{"{}", R"({"a":1})", 5, 1, "{}"},
                                           MergeCase{"{}", R"({"a":1})", 6, 1, "{}"},
                                           // Members of a list have no name.
                                           MergeCase{R"({"a":[1]})", R"({"a":[2]})", 0, 1, R"({"a":[1]})"}));

TEST_F(ConfigUpgradeNodeTest, TellsWhatCouldNotBeCopied)
{
    const CJsonPtr node(cJSON_Parse(R"({"section":{}})"));
    const CJsonPtr upgrade(cJSON_Parse(R"({"section":{"key":1}})"));
    cJSON_Hooks hooks{[](size_t) -> void * { return nullptr; }, std::free};

    cJSON_InitHooks(&hooks);
    const uint32_t result = ConfigUpgradeNode(node.get(), upgrade.get(), 0);
    cJSON_InitHooks(nullptr);

    EXPECT_EQ(result, 1U);
    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "copy upgrade node key to config node section failed"));
    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "upgrade node section failed"));
}

TEST_F(GetConfigIntTest, ReadsNumbersWithoutRegardToCase)
{
    Start(R"({"number": 42, "negative": -1})");

    EXPECT_EQ(Read("number"), 42U);
    EXPECT_EQ(Read("NUMBER"), 42U);
    EXPECT_EQ(Read("negative"), 0xFFFFFFFFU);
    EXPECT_TRUE(Logs().empty());
}

TEST_F(GetConfigIntTest, AMissingKeyLeavesTheVariable)
{
    Start(R"({"number": 42})");
    uint32_t value = kUntouched;

    EXPECT_EQ(GetConfigInt("other", &value), 1U);

    EXPECT_EQ(value, kUntouched);
    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "no such config other"));
}

TEST_F(GetConfigIntTest, RefusesNullPointers)
{
    Start("{}");
    uint32_t value = kUntouched;
    char expected[64];
    (void)snprintf(expected, sizeof(expected), "null input (nil):%p", static_cast<void *>(&value));

    EXPECT_EQ(GetConfigInt(nullptr, &value), 1U);
    EXPECT_EQ(GetConfigInt("name", nullptr), 1U);

    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", expected));
    EXPECT_EQ(Logs().size(), 2U);
    EXPECT_EQ(value, kUntouched);
}

TEST_F(GetConfigIntTest, BeforeInitConfigNothingIsFound)
{
    uint32_t value = kUntouched;

    EXPECT_EQ(GetConfigInt("feature_switch", &value), 1U);
    EXPECT_EQ(GetChildNodeConfigInt("sas_hdd", "task_cycle", &value), 1U);
    EXPECT_EQ(SetConfigInt("feature_switch", 1), 1U);
    EXPECT_EQ(SetChildNodeConfigInt("sas_hdd", "task_cycle", 1), 1U);

    EXPECT_EQ(value, kUntouched);
    EXPECT_EQ(LogCount(kLogError, "DISK_MGR", "no such config feature_switch"), 2U);
    EXPECT_EQ(LogCount(kLogError, "DISK_MGR", "no such config sas_hdd"), 2U);
}

TEST_F(GetChildNodeConfigIntTest, ReadsOneLevelDown)
{
    Start(R"({"section": {"number": 42}, "number": 1})");

    EXPECT_EQ(Read("section", "number"), 42U);
    EXPECT_EQ(Read("nowhere", "number"), kUntouched);
    EXPECT_EQ(Read("section", "nothing"), kUntouched);

    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "no such config nowhere"));
    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "no such config nothing"));
}

TEST_F(GetChildNodeConfigIntTest, RefusesNullPointers)
{
    Start("{}");
    uint32_t value = kUntouched;
    char expected[96];
    (void)snprintf(expected, sizeof(expected), "null input (nil):(nil):%p", static_cast<void *>(&value));

    EXPECT_EQ(GetChildNodeConfigInt(nullptr, nullptr, &value), 1U);
    EXPECT_EQ(GetChildNodeConfigInt("a", nullptr, &value), 1U);
    EXPECT_EQ(GetChildNodeConfigInt("a", "b", nullptr), 1U);

    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", expected));
    EXPECT_EQ(Logs().size(), 3U);
}

TEST_F(SetConfigIntTest, SavesAtOnceAndBacksUp)
{
    Start(R"({"feature_switch": 1, "section": {"a": 2}})");

    EXPECT_EQ(SetConfigInt("feature_switch", 0), 0U);

    EXPECT_EQ(Read("feature_switch"), 0U);
    EXPECT_EQ(ReadFile(ConfigFile()), "{\n\t\"feature_switch\":\t0,\n\t\"section\":\t{\n\t\t\"a\":\t2\n\t}\n}");
    EXPECT_EQ(ModeOf(ConfigFile()), 0640U);
    EXPECT_FALSE(Exists(WalFile()));
    ASSERT_EQ(BakNames().size(), 1U);
    EXPECT_EQ(ReadFile(BakFolder() + "/" + BakNames()[0]), ReadFile(ConfigFile()));
}

TEST_F(SetConfigIntTest, TakesAnyInteger)
{
    Start(R"({"a": 1})");

    for (const int32_t value : {INT32_MIN, -1, 0, INT32_MAX}) {
        EXPECT_EQ(SetConfigInt("a", value), 0U);
        EXPECT_EQ(Read("a"), static_cast<uint32_t>(value));
        EXPECT_EQ(ReadFile(ConfigFile()), "{\n\t\"a\":\t" + std::to_string(value) + "\n}");
    }
}

TEST_F(SetConfigIntTest, AMissingKeyFailsAndStillBacksUp)
{
    Start(R"({"a": 1})");

    EXPECT_EQ(SetConfigInt("b", 2), 1U);

    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "no such config b"));
    EXPECT_EQ(ReadFile(ConfigFile()), R"({"a": 1})");
    EXPECT_EQ(BakNames().size(), 1U);
}

TEST_F(SetConfigIntTest, AFailedBackupIsOnlyTold)
{
    Start(R"({"a": 1})");
    std::filesystem::remove(BakFolder());

    EXPECT_EQ(SetConfigInt("a", 2), 0U);

    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "bak config failed"));
}

TEST_F(SetConfigIntTest, RefusesNullAndAPathThatDoesNotFit)
{
    Start(R"({"a": 1})");

    EXPECT_EQ(SetConfigInt(nullptr, 5), 1U);
    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "null input (nil):5"));

    const std::string prefix(4096, 'p');
    UsePrefix(prefix);
    EXPECT_EQ(SetConfigInt("a", 5), 1U);
    EXPECT_EQ(SetChildNodeConfigInt("a", "b", 5), 1U);
    EXPECT_EQ(LogCount(kLogError, "DISK_CONFIG",
                       "concatenate config prefix:" + prefix + " with file:config/corvane_config.json failed."),
              2U);
    EXPECT_EQ(Read("a"), 1U);
    EXPECT_TRUE(BakNames().empty());
}

TEST_F(SetConfigIntTest, WithoutTheAccountNothingIsSaved)
{
    Start(R"({"a": 1})");
    g_osCalls.getpwnam_r = [](const char *, passwd *, char *, size_t, passwd **result) {
        *result = nullptr;
        return 0;
    };

    EXPECT_EQ(SetConfigInt("a", 2), 1U);

    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "save config a:2 to file failed: -1"));
    EXPECT_EQ(Read("a"), 2U) << "the tree has the new value";
    EXPECT_EQ(ReadFile(ConfigFile()), R"({"a": 1})") << "the file has the old one";
}

TEST_F(SetConfigIntTest, WhateverSystemCallFailsOneWholeFileRemains)
{
    Start(R"({"a": 0})");
    ASSERT_EQ(SetConfigInt("a", 1), 0U);
    int failed = 0;
    int failedSaves = 0;
    bool met = true;

    for (int number = 1; met && number < 100; number++) {
        const auto before = static_cast<uint32_t>(number);
        ASSERT_EQ(SetConfigInt("a", number), 0U);
        ConfigOs::now++;
        ConfigOs::FailNth(number);
        ClearLogs();

        const uint32_t result = SetConfigInt("a", number + 1);
        met = ConfigOs::calls >= number;
        ConfigOs::FailNth(0);

        failed += met ? 1 : 0;
        failedSaves += result != 0 ? 1 : 0;
        EXPECT_EQ(Read("a"), before + 1) << "the tree has the new value, call " << number;
        EXPECT_EQ(
            LogCount(kLogError, "DISK_MGR", "save config a:" + std::to_string(number + 1) + " to file failed: -1"),
            result);
        const CJsonPtr loaded(LoadCJsonFromFile(ConfigFile().c_str()));
        ASSERT_NE(loaded, nullptr) << "a whole file remains, call " << number;
        const cJSON *item = cJSON_GetObjectItem(loaded.get(), "a");
        ASSERT_NE(item, nullptr);
        EXPECT_TRUE(item->valueint == number + 1 || (result != 0 && item->valueint == number)) << "call " << number;
    }

    EXPECT_GE(failedSaves, 7) << "open, mode, user, group, owner, write and flush at least";
    EXPECT_GT(failed, failedSaves) << "calls of the removal and of the backup do not matter to the result";
}

TEST_F(SetChildNodeConfigIntTest, SetsOneLevelDown)
{
    Start(R"({"section": {"a": 1}, "a": 5})");

    EXPECT_EQ(SetChildNodeConfigInt("section", "a", 2), 0U);

    EXPECT_EQ(Read("section", "a"), 2U);
    EXPECT_EQ(Read("a"), 5U);
    EXPECT_EQ(ReadFile(ConfigFile()), "{\n\t\"section\":\t{\n\t\t\"a\":\t2\n\t},\n\t\"a\":\t5\n}");
    EXPECT_EQ(BakNames().size(), 1U);
}

TEST_F(SetChildNodeConfigIntTest, AnUnknownKeyFailsAndStillBacksUp)
{
    Start(R"({"section": {"a": 1}})");

    EXPECT_EQ(SetChildNodeConfigInt("nowhere", "a", 2), 1U);

    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "no such config nowhere"));
    EXPECT_EQ(BakNames().size(), 1U);
    EXPECT_EQ(SetChildNodeConfigInt("section", "nothing", 2), 1U);
    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "no such config nothing"));
    EXPECT_EQ(ReadFile(ConfigFile()), R"({"section": {"a": 1}})");
}

TEST_F(SetChildNodeConfigIntTest, TellsAFailedSaveAndABadArgument)
{
    Start(R"({"section": {"a": 1}})");
    g_osCalls.chmod = [](const char *, mode_t) { return -1; };

    EXPECT_EQ(SetChildNodeConfigInt("section", "a", 2), 1U);
    EXPECT_EQ(SetChildNodeConfigInt(nullptr, nullptr, 3), 1U);

    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "save config parent:section child:a val:2 to file failed: -1"));
    EXPECT_TRUE(Logged(kLogError, "DISK_MGR", "null input parent:(nil) child:(nil) val:3"));
}

struct SwitchCase {
    int32_t value;
    uint32_t result;
};

class CheckSwitchConfigTest : public ConfigTest, public ::testing::WithParamInterface<SwitchCase> {};

TEST_P(CheckSwitchConfigTest, TakesZeroAndOne)
{
    EXPECT_EQ(CheckSwitchConfig(GetParam().value), GetParam().result);

    EXPECT_EQ(LogCount(kLogError, "DISK_CONFIG", "invalid switch val: " + std::to_string(GetParam().value)),
              GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(Values, CheckSwitchConfigTest,
                         ::testing::Values(SwitchCase{0, 0}, SwitchCase{1, 0}, SwitchCase{2, 1}, SwitchCase{-1, 1},
                                           SwitchCase{INT32_MAX, 1}, SwitchCase{INT32_MIN, 1}));

TEST_F(ConfigSwitchTest, GetSetsTheVariableEvenIfTheValueIsNoSwitch)
{
    Start(R"({"good": 1, "bad": 2})");
    uint32_t value = kUntouched;

    EXPECT_EQ(GetConfigSwitchVal("good", &value), 0U);
    EXPECT_EQ(value, 1U);
    EXPECT_EQ(GetConfigSwitchVal("bad", &value), 1U);
    EXPECT_EQ(value, 2U);
    EXPECT_TRUE(Logged(kLogError, "DISK_CONFIG", "invalid switch val: 2"));

    value = kUntouched;
    EXPECT_EQ(GetConfigSwitchVal("missing", &value), 1U);
    EXPECT_EQ(value, kUntouched);
    EXPECT_EQ(GetConfigSwitchVal("good", nullptr), 1U);
}

TEST_F(ConfigSwitchTest, SetWritesNothingForAValueThatIsNoSwitch)
{
    Start(R"({"a": 1})");

    EXPECT_EQ(SetConfigSwitchVal("a", 2), 1U);

    EXPECT_EQ(ReadFile(ConfigFile()), R"({"a": 1})");
    EXPECT_TRUE(BakNames().empty());
    EXPECT_EQ(Read("a"), 1U);

    EXPECT_EQ(SetConfigSwitchVal("a", 0), 0U);
    EXPECT_EQ(Read("a"), 0U);
}

TEST_F(ConfigSwitchTest, GetConfigNodeOfNothingIsNothing)
{
    const CJsonPtr node(cJSON_Parse(R"({"a": 1})"));

    EXPECT_EQ(GetConfigNode(nullptr, "a"), nullptr);
    EXPECT_EQ(GetConfigNode(node.get(), nullptr), nullptr);
    EXPECT_EQ(GetConfigNode(node.get(), "b"), nullptr);
    EXPECT_EQ(GetConfigNode(node.get(), "A"), node->child);
}

TEST_F(ConfigSwitchTest, DiskTypesHaveTheirSectionsInOrder)
{
    EXPECT_STREQ(g_diskTypeConfigNames[0], "sata_ssd_disk");
    EXPECT_STREQ(g_diskTypeConfigNames[1], "sas_ssd_disk");
    EXPECT_STREQ(g_diskTypeConfigNames[2], "nvme_disk");
    EXPECT_STREQ(g_diskTypeConfigNames[3], "sas_hdd");
}

TEST_F(SetConfigIntTest, ReadersAndWritersMayMeet)
{
    Start(R"({"a": 0, "section": {"b": 0}})");
    std::vector<std::thread> threads;

    for (int i = 0; i < 2; i++) {
        threads.emplace_back([] {
            for (int round = 0; round < 20; round++) {
                EXPECT_EQ(SetConfigInt("a", round), 0U);
                EXPECT_EQ(SetChildNodeConfigInt("section", "b", round), 0U);
            }
        });
        threads.emplace_back([] {
            for (int round = 0; round < 200; round++) {
                EXPECT_LT(Read("a"), 20U);
                EXPECT_LT(Read("section", "b"), 20U);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }

    EXPECT_EQ(Read("a"), 19U);
}
