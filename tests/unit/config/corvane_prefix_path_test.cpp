#include "config/corvane_prefix_path.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "support/corvane_fixture.h"

namespace {

int g_mallocsLeft = 0;

/** Gives memory for the first g_mallocsLeft calls. */
void *MallocUntil(size_t size)
{
    return g_mallocsLeft-- > 0 ? std::malloc(size) : nullptr;
}

} // namespace

TEST(PrefixPathTest, IsBuiltInUntilSet)
{
    EXPECT_STREQ(GetPrefixPath(), "/opt/corvane");
    EXPECT_EQ(GetPrefixPath(), g_prefixPath);
}

using SetPrefixPathTest = CorvaneTest;

TEST_F(SetPrefixPathTest, TakesACopy)
{
    char path[] = "/opt/x";

    EXPECT_EQ(SetPrefixPath(path), 0u);
    path[5] = 'y';

    EXPECT_STREQ(GetPrefixPath(), "/opt/x");
}

TEST_F(SetPrefixPathTest, KeepsFormerValuesForThoseWhoHoldThem)
{
    ASSERT_EQ(SetPrefixPath("/first"), 0u);
    const char *first = GetPrefixPath();

    EXPECT_EQ(SetPrefixPath("/second"), 0u);

    EXPECT_STREQ(first, "/first");
    EXPECT_STREQ(GetPrefixPath(), "/second");
}

TEST_F(SetPrefixPathTest, RefusesNull)
{
    EXPECT_EQ(SetPrefixPath(nullptr), 1u);

    EXPECT_EQ(GetPrefixPath(), Prefix());
}

TEST_F(SetPrefixPathTest, AcceptsAnEmptyText)
{
    EXPECT_EQ(SetPrefixPath(""), 0u);

    EXPECT_STREQ(GetPrefixPath(), "");
}

class SetPrefixPathMemoryTest : public CorvaneTest, public ::testing::WithParamInterface<int> {};

TEST_P(SetPrefixPathMemoryTest, LeavesThePrefixWhenThereIsNone)
{
    g_mallocsLeft = GetParam();
    g_osCalls.malloc = MallocUntil;

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(SetPrefixPath("/opt/x"), 1u);

    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[DISK_CONFIG_PREFIX] ERROR : malloc failed.\n");
    EXPECT_EQ(GetPrefixPath(), Prefix());
}

INSTANTIATE_TEST_SUITE_P(Calls, SetPrefixPathMemoryTest, ::testing::Values(0, 1));

struct CutCase {
    const char *path;
    const char *expected;
};

class CutLastPathComponentTest : public ::testing::TestWithParam<CutCase> {};

TEST_P(CutLastPathComponentTest, CutsAtTheLastSlash)
{
    char path[64];
    ASSERT_LT(std::snprintf(path, sizeof(path), "%s", GetParam().path), 64);

    CutLastPathComponent(path);

    EXPECT_STREQ(path, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Paths, CutLastPathComponentTest,
                         ::testing::Values(CutCase{"/opt/x/lib", "/opt/x"}, CutCase{"/opt/x/", "/opt/x"},
                                           CutCase{"/opt", ""}, CutCase{"no slash", "no slash"}, CutCase{"", ""}));

TEST(CutLastPathComponentNullTest, IgnoresNull)
{
    CutLastPathComponent(nullptr);
}

class ProcTest : public CorvaneTest {
protected:
    ProcTest() : root_(Prefix() + "/root")
    {
        std::filesystem::create_directories(root_ + "/proc/self");
        g_osPaths.proc = root_.c_str();
    }
    void WriteMaps(const std::string &text) { WriteFile(root_ + "/proc/self/maps", text); }
    /** Runs the call and gives what it printed. */
    std::string Output(uint32_t (*call)(), uint32_t expected)
    {
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(call(), expected);
        return ::testing::internal::GetCapturedStdout();
    }
    std::string root_;
};

using InitCorvanePrefixPathCombTest = ProcTest;

TEST_F(InitCorvanePrefixPathCombTest, TakesTheFolderAboveTheDiagnoseLibrarys)
{
    WriteMaps("55d0-55d1 r--p 00000000 fe:01 1  /usr/bin/host\n"
              "7f00-7f01 r-xp 00000000 fe:01 2  /opt/x/lib/libnordiagnose.so\n"
              "7f02-7f03 r-xp 00000000 fe:01 3  /opt/y/lib/libnordiagnose.so\n");

    EXPECT_EQ(Output(InitCorvanePrefixPathComb, 0), "");

    EXPECT_STREQ(GetPrefixPath(), "/opt/x");
}

TEST_F(InitCorvanePrefixPathCombTest, FindsTheLibraryByPartOfItsName)
{
    WriteMaps("7f00-7f01 r-xp 00000000 fe:01 2  /opt/x/lib/libnordiagnose.so.1\n");

    EXPECT_EQ(Output(InitCorvanePrefixPathComb, 0), "");

    EXPECT_STREQ(GetPrefixPath(), "/opt/x");
}

TEST_F(InitCorvanePrefixPathCombTest, CutsAPathWithBlanksAtTheLastOne)
{
    WriteMaps("7f00-7f01 r-xp 00000000 fe:01 2  /opt/my disk/lib/libnordiagnose.so\n");

    EXPECT_EQ(Output(InitCorvanePrefixPathComb, 0), "");

    EXPECT_STREQ(GetPrefixPath(), "disk");
}

TEST_F(InitCorvanePrefixPathCombTest, AcceptsAnEmptyPrefix)
{
    WriteMaps("7f00-7f01 r-xp 00000000 fe:01 2  /opt/a /libnordiagnose.so\n");

    EXPECT_EQ(Output(InitCorvanePrefixPathComb, 0), "");

    EXPECT_STREQ(GetPrefixPath(), "");
}

TEST_F(InitCorvanePrefixPathCombTest, SaysWhenTheMapIsMissing)
{
    EXPECT_EQ(Output(InitCorvanePrefixPathComb, 1),
              "[DISK_CONFIG_PREFIX] ERROR : open process maps infomation failed.\n");

    EXPECT_EQ(GetPrefixPath(), Prefix());
}

TEST_F(InitCorvanePrefixPathCombTest, SaysWhenNoLineNamesTheLibrary)
{
    WriteMaps("7f00-7f01 r-xp 00000000 fe:01 2  /opt/x/lib/libcorvane.so\n");

    EXPECT_EQ(Output(InitCorvanePrefixPathComb, 1),
              "[DISK_CONFIG_PREFIX] ERROR : find libcorvane.so from /proc/self/maps failed.\n");

    EXPECT_EQ(GetPrefixPath(), Prefix());
}

TEST_F(InitCorvanePrefixPathCombTest, SaysSoForAnEmptyMapToo)
{
    WriteMaps("");

    EXPECT_EQ(Output(InitCorvanePrefixPathComb, 1),
              "[DISK_CONFIG_PREFIX] ERROR : find libcorvane.so from /proc/self/maps failed.\n");
}

TEST_F(InitCorvanePrefixPathCombTest, SaysWhenTheLineHasNoBlank)
{
    WriteMaps("/opt/x/lib/libnordiagnose.so\n");

    EXPECT_EQ(Output(InitCorvanePrefixPathComb, 1),
              "[DISK_CONFIG_PREFIX] ERROR : resolve prefix from /proc/self/maps failed.\n");
}

TEST_F(InitCorvanePrefixPathCombTest, SurvivesABlankAtTheVeryEnd)
{
    WriteMaps("/opt/x/lib/libnordiagnose.so ");

    EXPECT_EQ(Output(InitCorvanePrefixPathComb, 0), "");

    EXPECT_STREQ(GetPrefixPath(), "");
}

TEST_F(InitCorvanePrefixPathCombTest, SaysWhenThePrefixCannotBeSet)
{
    WriteMaps("7f00-7f01 r-xp 00000000 fe:01 2  /opt/x/lib/libnordiagnose.so\n");
    g_mallocsLeft = 0;
    g_osCalls.malloc = MallocUntil;

    EXPECT_EQ(Output(InitCorvanePrefixPathComb, 1), "[DISK_CONFIG_PREFIX] ERROR : malloc failed.\n"
                                                    "[DISK_CONFIG_PREFIX] ERROR : set prefix path failed.\n");
}

namespace {

ssize_t ReadlinkFails(const char *, char *, size_t)
{
    errno = ENOENT;
    return -1;
}

/** A link whose text fills the whole buffer. */
ssize_t ReadlinkFills(const char *, char *buffer, size_t size)
{
    std::memset(buffer, 'a', size);
    return static_cast<ssize_t>(size);
}

/** The longest text that leaves room for a terminator; there is no such file. */
ssize_t ReadlinkOneLess(const char *, char *buffer, size_t size)
{
    std::memset(buffer, 'a', size);
    return static_cast<ssize_t>(size - 1);
}

} // namespace

using InitCorvanePrefixPathIndTest = ProcTest;

TEST_F(InitCorvanePrefixPathIndTest, TakesTheFolderAboveTheExecutables)
{
    std::filesystem::create_directories(root_ + "/inst/bin");
    WriteFile(root_ + "/inst/bin/corvaned", "");
    std::filesystem::create_symlink(root_ + "/inst/bin/corvaned", root_ + "/proc/self/exe");

    EXPECT_EQ(Output(InitCorvanePrefixPathInd, 0), "");

    EXPECT_EQ(std::string(GetPrefixPath()), std::filesystem::canonical(root_ + "/inst").string());
}

TEST_F(InitCorvanePrefixPathIndTest, TakesThisProcesssExecutable)
{
    g_osPaths.proc = "";

    EXPECT_EQ(Output(InitCorvanePrefixPathInd, 0), "");

    const std::filesystem::path exe = std::filesystem::canonical("/proc/self/exe");
    EXPECT_EQ(std::string(GetPrefixPath()), exe.parent_path().parent_path().string());
}

TEST_F(InitCorvanePrefixPathIndTest, SaysWhenTheLinkCannotBeRead)
{
    g_osCalls.readlink = ReadlinkFails;

    EXPECT_EQ(Output(InitCorvanePrefixPathInd, 1), "[DISK_CONFIG_PREFIX] ERROR : readlink fail, ret(-1)\n");
}

TEST_F(InitCorvanePrefixPathIndTest, RefusesAPathOf4096Characters)
{
    g_osCalls.readlink = ReadlinkFills;

    EXPECT_EQ(Output(InitCorvanePrefixPathInd, 1),
              "[DISK_CONFIG_PREFIX] ERROR : truncation occurred, corvane exe file path is great than 4096\n");
}

TEST_F(InitCorvanePrefixPathIndTest, LooksUpAPathOf4095Characters)
{
    g_osCalls.readlink = ReadlinkOneLess;

    EXPECT_EQ(Output(InitCorvanePrefixPathInd, 1),
              "[DISK_CONFIG_PREFIX] ERROR : get real executable file path failed.\n");
}

TEST_F(InitCorvanePrefixPathIndTest, SaysWhenTheExecutableIsGone)
{
    std::filesystem::create_symlink(root_ + "/gone/bin/corvaned", root_ + "/proc/self/exe");

    EXPECT_EQ(Output(InitCorvanePrefixPathInd, 1),
              "[DISK_CONFIG_PREFIX] ERROR : get real executable file path failed.\n");
}

TEST_F(InitCorvanePrefixPathIndTest, SaysWhenThePrefixCannotBeSet)
{
    g_osPaths.proc = "";
    g_mallocsLeft = 0;
    g_osCalls.malloc = MallocUntil;

    EXPECT_EQ(Output(InitCorvanePrefixPathInd, 1), "[DISK_CONFIG_PREFIX] ERROR : malloc failed.\n"
                                                   "[DISK_CONFIG_PREFIX] ERROR : set prefix path failed.\n");
}
