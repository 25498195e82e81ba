#include "host_fixture.h"

#include <filesystem>
#include <grp.h>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace {

using testing::HasSubstr;

/** One entry of the file, as an operator would write it. */
std::string Entry(uint32_t id, const std::string &sn, const std::string &change = "", const std::string &to = "")
{
    std::string text = "{\"diskId\":" + std::to_string(id) +
                       ",\"diskState\":0,\"frameId\":1,\"slotId\":2,\"sectorSize\":512,\"diskType\":2,\"mediaType\":2,"
                       "\"diskCapacity\":\"480103981056\",\"vendor\":\"ATA\",\"model\":\"VSSD-480\",\"sn\":\"" +
                       sn + "\",\"pciAddr\":\"\",\"firmware\":\"FW1\"}";
    if (!change.empty()) {
        const size_t at = text.find(change);
        EXPECT_NE(at, std::string::npos) << change;
        text.replace(at, change.size(), to);
    }
    return text;
}

class DiskInfoLoadConfigTest : public HostTest {
protected:
    void StartWith(const std::string &registry)
    {
        WriteText(RegistryPath(), registry);
        StartQuiet();
    }

    static size_t Registered()
    {
        size_t count = 0;
        for (uint32_t id = 0; id < 128; id++) {
            lib::DiskMgrObj *object = nullptr;
            count += lib::DiskInfoGet(id, &object) == 0 ? 1 : 0;
        }
        return count;
    }

    static uint64_t Counter() { return lib::CorvaneOsAtomicGet(lib::Global<void *>("g_diskNumAtomic")); }
};

TEST_F(DiskInfoLoadConfigTest, BringsBackEveryFieldButTheDeviceName)
{
    StartWith("[" + Entry(5, "SN-5") + "]");

    const lib::DiskMgrObj record = Base(5);

    EXPECT_EQ(record.diskId, 5u);
    EXPECT_EQ(record.diskState, 0u);
    EXPECT_EQ(record.frameId, 1u);
    EXPECT_EQ(record.slotId, 2u);
    EXPECT_EQ(record.sectorSize, 512u);
    EXPECT_EQ(record.diskType, 2u);
    EXPECT_EQ(record.mediaType, 2u);
    EXPECT_EQ(record.diskCapacity, 480103981056u);
    EXPECT_STREQ(record.vendor, "ATA");
    EXPECT_STREQ(record.model, "VSSD-480");
    EXPECT_STREQ(record.sn, "SN-5");
    EXPECT_STREQ(record.pciAddr, "");
    EXPECT_STREQ(record.firmware, "FW1");
    EXPECT_STREQ(record.deviceName, "unknown");
    EXPECT_EQ(HostLogged(7, "[DISK_MGR]load config file, disk info num = 1"), 1u);
}

TEST_F(DiskInfoLoadConfigTest, MissingFileIsNoFailureOfTheStart)
{
    StartQuiet();

    EXPECT_EQ(HostLogged(6, "[DISK_MGR]Disk Mgr Model Init start = (null)"), 1u);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]TryLoadCJsonFromFile " + RegistryPath() + " fail, file not exist"), 1u);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]cant load from config file, config file path = " + RegistryPath()), 1u);
    EXPECT_EQ(HostLogged(4, "[DISK_MGR]DiskInfoLoadConfig fail , config file path = " + RegistryPath()), 1u);
    EXPECT_EQ(HostLogged(6, "[DISK_MGR]Disk Mgr Model Init finish , config file path = " + RegistryPath()), 1u);
}

TEST_F(DiskInfoLoadConfigTest, EmptyArrayIsAnEmptyRegistry)
{
    StartWith("[]");

    EXPECT_EQ(HostLogged(7, "[DISK_MGR]load config file, disk info num = 0"), 1u);
    EXPECT_EQ(HostLogged(4, "[DISK_MGR]DiskInfoLoadConfig fail , config file path = " + RegistryPath()), 0u);
    EXPECT_EQ(Registered(), 0u);
}

TEST_F(DiskInfoLoadConfigTest, ArrayOf65IsRefusedAsAWhole)
{
    std::string text;
    for (uint32_t i = 0; i < 65; i++) {
        text += (i == 0 ? "[" : ",") + Entry(i, "SN-" + std::to_string(i));
    }

    StartWith(text + "]");

    EXPECT_EQ(HostLogged(7, "[DISK_MGR]Too Many Disk Obj(65) in Config File"), 1u);
    EXPECT_EQ(Registered(), 0u);
}

TEST_F(DiskInfoLoadConfigTest, ArrayOf64IsTakenAndLeavesNoRoom)
{
    std::string text;
    for (uint32_t i = 0; i < 64; i++) {
        text += (i == 0 ? "[" : ",") + Entry(i, "SN-" + std::to_string(i));
    }

    StartWith(text + "]");

    EXPECT_EQ(Registered(), 64u);
    EXPECT_EQ(Counter(), 64u);
    uint32_t id = 999;
    EXPECT_EQ(lib::GetNewDiskId(Sn("SN-NEW"), &id), 2u);
    EXPECT_EQ(id, 999u);
}

TEST_F(DiskInfoLoadConfigTest, FirstOfTwoEqualIdentifiersWins)
{
    StartWith("[" + Entry(3, "SN-A") + "," + Entry(3, "SN-B") + "]");

    EXPECT_STREQ(Base(3).sn, "SN-A");
    EXPECT_EQ(Registered(), 1u);
    EXPECT_EQ(Counter(), 1u);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]Detected duplicate disk id: 3"), 1u);
}

TEST_F(DiskInfoLoadConfigTest, NegativeIdentifierLandsInSlot0)
{
    StartWith("[" + Entry(0, "SN-N", "\"diskId\":0", "\"diskId\":-1") + "]");

    EXPECT_STREQ(Base(0).sn, "SN-N");
    EXPECT_EQ(Base(0).diskId, 0u);
}

TEST_F(DiskInfoLoadConfigTest, EmptyCapacityReadsAs0)
{
    StartWith("[" + Entry(0, "SN-0", "\"480103981056\"", "\"\"") + "]");

    EXPECT_EQ(Base(0).diskCapacity, 0u);
}

TEST_F(DiskInfoLoadConfigTest, BadEntryBehind64KeepsThoseFrom64)
{
    StartWith("[" + Entry(1, "SN-1") + "," + Entry(70, "SN-70") + "," +
              Entry(2, "SN-2", "\"diskState\":0", "\"diskState\":2") + "]");

    EXPECT_EQ(Registered(), 1u);
    EXPECT_STREQ(Base(70).sn, "SN-70");
    EXPECT_EQ(Counter(), 2u);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]log config file error at diskInfoCJson[2]"), 1u);
}

struct BadEntry {
    const char *name;
    const char *from;
    const char *to;
    const char *check; ///< the member that fails
    const char *log;   ///< what the check itself says; null for nothing
};

void PrintTo(const BadEntry &entry, std::ostream *out)
{
    *out << entry.name;
}

class BadRegistryEntryTest : public DiskInfoLoadConfigTest, public testing::WithParamInterface<BadEntry> {};

TEST_P(BadRegistryEntryTest, RejectsTheWholeFile)
{
    const BadEntry &bad = GetParam();

    StartWith("[" + Entry(0, "SN-0") + "," + Entry(1, "SN-1", bad.from, bad.to) + "]");

    EXPECT_EQ(Registered(), 0u);
    EXPECT_EQ(HostLogged(3, std::string("[DISK_MGR]Check Disk Mgr Obj CJson Fail, (") + bad.check + ")."), 1u);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]log config file error at diskInfoCJson[1]"), 1u);
    if (bad.log != nullptr) {
        EXPECT_EQ(HostLogged(3, std::string("[DISK_MGR]") + bad.log), 1u);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Members, BadRegistryEntryTest,
    testing::Values(BadEntry{"OfflineState", "\"diskState\":0", "\"diskState\":2", "diskState", nullptr},
                    BadEntry{"State5", "\"diskState\":0", "\"diskState\":5", "diskState", nullptr},
                    BadEntry{"Identifier128", "\"diskId\":1", "\"diskId\":128", "diskId", nullptr},
                    BadEntry{"Type6", "\"diskType\":2", "\"diskType\":6", "diskType", nullptr},
                    BadEntry{"Media6", "\"mediaType\":2", "\"mediaType\":6", "mediaType", nullptr},
                    BadEntry{"CapacityWithLetter", "\"480103981056\"", "\"12x\"", "diskCapacity", nullptr},
                    BadEntry{"CapacityOf30", "\"480103981056\"", "\"000000000000000000000000000001\"", "diskCapacity",
                             "Value string len is beyond len limit."},
                    BadEntry{"VendorOf10", "\"vendor\":\"ATA\"", "\"vendor\":\"0123456789\"", "vendor",
                             "Value string len is beyond len limit."},
                    BadEntry{"SerialOf40", "\"sn\":\"SN-1\"", "\"sn\":\"0123456789012345678901234567890123456789\"",
                             "sn", "Value string len is beyond len limit."},
                    BadEntry{"SlotText", "\"slotId\":2", "\"slotId\":\"2\"", "slotId", "Value number is not a number."},
                    BadEntry{"NoFirmware", ",\"firmware\":\"FW1\"", "", "firmware", "Value string not exist."},
                    BadEntry{"NoFrame", ",\"frameId\":1", "", "frameId",
                             "Check Disk Mgr Obj CJson Fail, Member frameId not exist."}),
    [](const auto &one) { return one.param.name; });

class LoadCJsonFromFileTest : public DiskInfoLoadConfigTest {};

TEST_F(LoadCJsonFromFileTest, TargetBeatsAPartialCopyWhichStaysUntilTheNextSave)
{
    WriteText(RegistryPath() + ".wal", "[" + Entry(1, "SN-NEW").substr(0, 80));
    StartWith("[" + Entry(0, "SN-OLD") + "]");

    EXPECT_STREQ(Base(0).sn, "SN-OLD");
    EXPECT_TRUE(std::filesystem::exists(RegistryPath() + ".wal"));

    EXPECT_EQ(lib::DiskInfoSavetoConfig(), 0u);
    EXPECT_FALSE(std::filesystem::exists(RegistryPath() + ".wal"));
    EXPECT_THAT(Registry(), HasSubstr("\"SN-OLD\""));
}

TEST_F(LoadCJsonFromFileTest, WholeCopyBeatsTheTarget)
{
    WriteText(RegistryPath() + ".wal", "[" + Entry(1, "SN-NEW") + "]");
    StartWith("[" + Entry(0, "SN-OLD") + "]");

    EXPECT_EQ(Registered(), 1u);
    EXPECT_STREQ(Base(1).sn, "SN-NEW");
    EXPECT_FALSE(std::filesystem::exists(RegistryPath() + ".wal"));
    EXPECT_THAT(Registry(), HasSubstr("SN-NEW"));
    EXPECT_EQ(HostLogged(7, "[DISK_MGR]Exisit wal file and read from = " + RegistryPath() + ".wal"), 1u);
}

TEST_F(LoadCJsonFromFileTest, WholeCopyWithoutATargetBecomesTheTarget)
{
    WriteText(RegistryPath() + ".wal", "[" + Entry(1, "SN-NEW") + "]");

    StartQuiet();

    EXPECT_STREQ(Base(1).sn, "SN-NEW");
    EXPECT_TRUE(std::filesystem::exists(RegistryPath()));
    EXPECT_FALSE(std::filesystem::exists(RegistryPath() + ".wal"));
}

TEST_F(LoadCJsonFromFileTest, BothBadGiveAnEmptyRegistry)
{
    WriteText(RegistryPath() + ".wal", "[{");

    StartWith("garbage");

    EXPECT_EQ(Registered(), 0u);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]cant load from config file, config file path = " + RegistryPath()), 1u);
}

TEST_F(LoadCJsonFromFileTest, FailedRenameReturnsTheTreeAndKeepsTheCopy)
{
    StartQuiet();
    std::filesystem::create_directories("/tmp/data/target");
    WriteText("/tmp/data/target/full", ""); // a folder that is not empty cannot be replaced
    WriteText("/tmp/data/target.wal", "[1,2]");

    cJSON *tree = lib::LoadCJsonFromFile("/tmp/data/target");

    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(cJSON_GetArraySize(tree), 2);
    cJSON_Delete(tree);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]Rename wal config File fail"), 1u);
    EXPECT_TRUE(std::filesystem::exists("/tmp/data/target.wal"));
}

class SaveCJsonToFileTest : public HostTest {
protected:
    void SetUp() override
    {
        StartQuiet();
        std::filesystem::create_directories("/tmp/data");
        tree_.reset(cJSON_Parse("[1]"));
    }

    uint32_t Save(const char *path, const char *user = "corvane_user", const char *group = "corvane_group")
    {
        return lib::SaveCJsonToFile(path, tree_.get(), 0640, user, group);
    }

    std::unique_ptr<cJSON, void (*)(cJSON *)> tree_{nullptr, cJSON_Delete};
};

TEST_F(SaveCJsonToFileTest, GivesTheFileItsModeAndOwner)
{
    EXPECT_EQ(Save("/tmp/data/file"), 0u);

    EXPECT_EQ(ReadText("/tmp/data/file"), "[1]");
    EXPECT_FALSE(std::filesystem::exists("/tmp/data/file.wal"));
    struct stat status {};
    ASSERT_EQ(stat("/tmp/data/file", &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(status.st_uid, getpwnam("corvane_user")->pw_uid);
    EXPECT_EQ(status.st_gid, getgrnam("corvane_group")->gr_gid);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]Remove old config fail"), 1u); // there was none yet
}

TEST_F(SaveCJsonToFileTest, MissingUserKeepsTheTargetAndLeavesNoCopy)
{
    WriteText("/tmp/data/file", "old");

    EXPECT_EQ(Save("/tmp/data/file", "nobody_here"), kFail);

    EXPECT_EQ(ReadText("/tmp/data/file"), "old");
    EXPECT_FALSE(std::filesystem::exists("/tmp/data/file.wal"));
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]user:nobody_here not exist\n"), 1u);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]config file permission set fail, file path = /tmp/data/file.wal"), 1u);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]Save to  tmp Config error"), 1u);
}

TEST_F(SaveCJsonToFileTest, MissingGroupKeepsTheTargetAndLeavesNoCopy)
{
    WriteText("/tmp/data/file", "old");

    EXPECT_EQ(Save("/tmp/data/file", "corvane_user", "no_group_here"), kFail);

    EXPECT_EQ(ReadText("/tmp/data/file"), "old");
    EXPECT_FALSE(std::filesystem::exists("/tmp/data/file.wal"));
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]group:no_group_here not exist\n"), 1u);
}

TEST_F(SaveCJsonToFileTest, UnopenedCopyKeepsTheTarget)
{
    WriteText("/tmp/data/file", "old");
    std::filesystem::create_directory("/tmp/data/file.wal");

    EXPECT_EQ(Save("/tmp/data/file"), kFail);

    EXPECT_EQ(ReadText("/tmp/data/file"), "old");
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]cant open config file, config file path = /tmp/data/file.wal"), 1u);
}

TEST_F(SaveCJsonToFileTest, FullDiskKeepsTheTarget)
{
    std::filesystem::create_directories("/tmp/small");
    ASSERT_EQ(mount("tmpfs", "/tmp/small", "tmpfs", 0, "size=8k"), 0);
    WriteText("/tmp/small/file", "old");
    cJSON *large = cJSON_CreateArray();
    (void)cJSON_AddItemToArray(large, cJSON_CreateString(std::string(20000, 'x').c_str()));

    const uint32_t result = lib::SaveCJsonToFile("/tmp/small/file", large, 0640, "corvane_user", "corvane_group");
    cJSON_Delete(large);

    EXPECT_EQ(result, kFail);
    EXPECT_EQ(ReadText("/tmp/small/file"), "old");
    EXPECT_TRUE(std::filesystem::exists("/tmp/small/file.wal"));
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]Save to  tmp Config error"), 1u);
}

TEST_F(SaveCJsonToFileTest, FailedRenameLeavesTheWholeCopyForTheNextLoad)
{
    std::filesystem::create_directories("/tmp/data/file");
    WriteText("/tmp/data/file/full", "");

    EXPECT_EQ(Save("/tmp/data/file"), kFail);

    EXPECT_EQ(HostLogged(3, "[DISK_MGR]Remove old config fail"), 1u);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]Rename new config fail"), 1u);
    EXPECT_EQ(ReadText("/tmp/data/file.wal"), "[1]");
}

TEST_F(SaveCJsonToFileTest, NullTreeIsRefused)
{
    EXPECT_EQ(lib::SaveCJsonToFile("/tmp/data/file", nullptr, 0640, "corvane_user", "corvane_group"), kFail);

    EXPECT_EQ(HostLogged(7, "[DISK_MGR]pCJson is null"), 1u);
    EXPECT_FALSE(std::filesystem::exists("/tmp/data/file"));
}

class TryLoadCJsonFromFileTest : public HostTest {};

TEST_F(TryLoadCJsonFromFileTest, SaysWhichFileIsMissingAndNothingAboutBadText)
{
    StartQuiet();
    WriteText("/tmp/bad.json", "{");
    ClearHostLines();

    EXPECT_EQ(lib::TryLoadCJsonFromFile("/tmp/none.json"), nullptr);
    EXPECT_EQ(HostLogged(3, "[DISK_MGR]TryLoadCJsonFromFile /tmp/none.json fail, file not exist"), 1u);
    ClearHostLines();
    EXPECT_EQ(lib::TryLoadCJsonFromFile("/tmp/bad.json"), nullptr);
    EXPECT_EQ(lib::LoadIfExisitAndVaild("/tmp/none.json"), nullptr);
    EXPECT_TRUE(HostLines().empty());
}

} // namespace
