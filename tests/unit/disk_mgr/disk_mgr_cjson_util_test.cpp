#include "unit/disk_mgr/registry_fixture.h"

#include <filesystem>
#include <sys/stat.h>

#include "infrastructure/common/corvane_raii.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr uint32_t kFail = 0xFFFFFFFF;
constexpr const char *kModule = "DISK_MGR";

class CJsonFileTest : public RegistryTest {
protected:
    uint32_t Save(const char *json)
    {
        const CJsonPtr tree(cJSON_Parse(json));
        return SaveCJsonToFile(Path().c_str(), tree.get(), 0640, "corvane_user", "corvane_group");
    }
    std::string Load()
    {
        const CJsonPtr tree(LoadCJsonFromFile(Path().c_str()));
        const CJsonText text(cJSON_PrintUnformatted(tree.get()));
        return text != nullptr ? text.get() : "null";
    }
    bool HasWal() const { return std::filesystem::exists(WalPath()); }
};

using SaveCJsonToFileTest = CJsonFileTest;
using LoadCJsonFromFileTest = CJsonFileTest;
using SetFilePermissionTest = CJsonFileTest;

} // namespace

TEST_F(SaveCJsonToFileTest, CallsTheSystemInTheOrderThatIsSafe)
{
    EXPECT_EQ(Save("[1]"), 0u);

    EXPECT_THAT(FileCalls::Calls(), ElementsAre("fopen", "chmod", "getpwnam_r", "getgrnam_r", "chown", "fwrite",
                                                "fflush", "fclose", "remove", "rename"));
    EXPECT_EQ(ReadFile(Path()), "[1]");
    EXPECT_FALSE(HasWal());
    struct stat info {};
    ASSERT_EQ(stat(Path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_TRUE(Logged(3, kModule, "Remove old config fail")); // nothing to remove at the first save
}

TEST_F(SaveCJsonToFileTest, LogsEachFailureWithItsText)
{
    const std::vector<std::vector<std::string>> texts{
        {"cant open config file, config file path = " + WalPath(), "Save to  tmp Config error"},
        {"chmod " + WalPath() + " fail, mode = 416\n", "config file permission set fail, file path = " + WalPath()},
        {"user:corvane_user not exist\n", "config file permission set fail, file path = " + WalPath()},
        {"group:corvane_group not exist\n", "config file permission set fail, file path = " + WalPath()},
        {"chmown " + WalPath() + " fail, corvane_user:corvane_group\n", "Save to  tmp Config error"},
        {"Save to  tmp Config error"},
        {"Save to  tmp Config error"},
        {"Save to  tmp Config error"},
        {"Remove old config fail"},
        {"Rename new config fail"},
    };
    for (size_t at = 0; at < texts.size(); at++) {
        SCOPED_TRACE(at);
        FileCalls::Arm(FileCalls::Act::None, 0);
        ASSERT_EQ(Save("[\"old\"]"), 0u);
        ClearLogs();
        FileCalls::Arm(FileCalls::Act::Fail, at);

        EXPECT_EQ(Save("[\"new\"]"), at == 8 ? 0u : kFail);

        for (const std::string &text : texts[at]) {
            EXPECT_EQ(LogCount(3, kModule, text), 1u) << text;
        }
        if (at < 8) {
            EXPECT_EQ(ReadFile(Path()), "[\"old\"]");
        }
        // A file that could not get its owner goes; what was cut stays for the next save to overwrite.
        EXPECT_EQ(HasWal(), at >= 5 && at != 8);
    }
}

TEST_F(SaveCJsonToFileTest, RefusesNoTreeAndNoPath)
{
    EXPECT_EQ(SaveCJsonToFile(Path().c_str(), nullptr, 0640, "corvane_user", "corvane_group"), kFail);
    const CJsonPtr tree(cJSON_CreateArray());
    EXPECT_EQ(SaveCJsonToFile(nullptr, tree.get(), 0640, "corvane_user", "corvane_group"), kFail);

    EXPECT_TRUE(Logged(7, kModule, "pCJson is null"));
    EXPECT_TRUE(Logged(3, kModule, "make tmp Config File Path error"));
    EXPECT_THAT(FileCalls::Calls(), IsEmpty());
}

TEST_F(SetFilePermissionTest, GrowsItsBufferForALargeGroup)
{
    g_osCalls.getgrnam_r = [](const char *, struct group *entry, char *, size_t size, struct group **result) {
        *result = size < 100000 ? nullptr : entry;
        entry->gr_gid = getegid();
        return *result == nullptr ? ERANGE : 0;
    };
    WriteFile(Path(), "");

    EXPECT_EQ(SetFilePermission(Path().c_str(), 0600, "corvane_user", "corvane_group"), 0);
}

TEST_F(SetFilePermissionTest, FailsForAnAccountThatIsMissingOrNever)
{
    WriteFile(Path(), "");

    EXPECT_EQ(SetFilePermission(Path().c_str(), 0600, "nobody-here", "corvane_group"), -1);
    EXPECT_EQ(SetFilePermission(Path().c_str(), 0600, "corvane_user", "none-here"), -1);
    g_osCalls.getpwnam_r = [](const char *, struct passwd *, char *, size_t, struct passwd **) { return ERANGE; };
    EXPECT_EQ(SetFilePermission(Path().c_str(), 0600, "corvane_user", "corvane_group"), -1);

    EXPECT_TRUE(Logged(3, kModule, "user:nobody-here not exist\n"));
    EXPECT_TRUE(Logged(3, kModule, "group:none-here not exist\n"));
    EXPECT_TRUE(Logged(3, kModule, "user:corvane_user not exist\n"));
}

TEST_F(LoadCJsonFromFileTest, IgnoresAStaleBadWalUntilTheNextSave)
{
    WriteFile(Path(), "[\"good\"]");
    WriteFile(WalPath(), "[\"cut");

    EXPECT_EQ(Load(), "[\"good\"]");

    EXPECT_EQ(ReadFile(WalPath()), "[\"cut");
    EXPECT_EQ(Save("[\"next\"]"), 0u);
    EXPECT_FALSE(HasWal());
    EXPECT_EQ(Load(), "[\"next\"]");
}

TEST_F(LoadCJsonFromFileTest, TakesAWholeWalWithoutATarget)
{
    WriteFile(WalPath(), "[\"new\"]");

    EXPECT_EQ(Load(), "[\"new\"]");

    EXPECT_FALSE(HasWal());
    EXPECT_EQ(ReadFile(Path()), "[\"new\"]");
    EXPECT_TRUE(Logged(7, kModule, "Exisit wal file and read from = " + WalPath()));
}

TEST_F(LoadCJsonFromFileTest, PrefersAWholeWalToTheTargetEvenIfItCannotBeRenamed)
{
    WriteFile(Path(), "[\"old\"]");
    WriteFile(WalPath(), "[\"new\"]");
    g_osCalls.rename = [](const char *, const char *) { return -1; };

    EXPECT_EQ(Load(), "[\"new\"]");
    EXPECT_EQ(Load(), "[\"new\"]");

    EXPECT_TRUE(HasWal());
    EXPECT_EQ(LogCount(3, kModule, "Rename wal config File fail"), 2u);
}

TEST_F(LoadCJsonFromFileTest, GivesNullWhenNeitherFileIsGood)
{
    EXPECT_EQ(Load(), "null");
    EXPECT_TRUE(Logged(3, kModule, "TryLoadCJsonFromFile " + Path() + " fail, file not exist"));
    EXPECT_FALSE(Logged(3, kModule, "TryLoadCJsonFromFile " + WalPath() + " fail, file not exist"));

    WriteFile(Path(), "");
    WriteFile(WalPath(), "x");
    ClearLogs();
    EXPECT_EQ(Load(), "null");
    EXPECT_THAT(Logs(), IsEmpty());
    EXPECT_EQ(LoadCJsonFromFile(nullptr), nullptr);
}

TEST_F(LoadCJsonFromFileTest, LogsWhatFailsWhileReading)
{
    WriteFile(Path(), "[1]");
    for (const size_t at : {1u, 2u, 3u, 4u}) { // seek, tell, seek, read
        ClearLogs();
        FileCalls::Arm(FileCalls::Act::Fail, at);

        EXPECT_EQ(TryLoadCJsonFromFile(Path().c_str()), nullptr);

        EXPECT_TRUE(Logged(3, kModule,
                           at < 4 ? "TryLoadCJsonFromFile " + Path() + " fail, seek fail"
                                  : "TryLoadCJsonFromFile " + Path() + " fail, read size = 0,filesize = 3"));
        EXPECT_EQ(FileCalls::Calls().back(), "fclose");
    }
}

TEST_F(LoadCJsonFromFileTest, GivesNullForAFolder)
{
    std::filesystem::create_directory(Path());

    EXPECT_EQ(TryLoadCJsonFromFile(Path().c_str()), nullptr);
}

TEST_F(LoadCJsonFromFileTest, NamesTheWalInMemoryOfTheTable)
{
    const InfraPtr<char> name(GetWalFileName("/x/y"));
    EXPECT_STREQ(name.get(), "/x/y.wal");
    EXPECT_EQ(GetWalFileName(nullptr), nullptr);
}
