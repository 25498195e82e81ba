#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_lsblk.h"

#include <array>

#include "unit/data_collect/dcak_fixture.h"

namespace {

std::FILE *NoPipe(const char *, const char *)
{
    return nullptr;
}

void *NoMemory(size_t)
{
    return nullptr;
}

} // namespace

using DcakExecCmdTest = DcakTest;

TEST_F(DcakExecCmdTest, CollectsAllLines)
{
    PlanTool("tool", "one\ntwo");
    std::array<char, 8> output;
    output.fill('x');

    EXPECT_EQ(DcakExecCmd("tool", output.size(), output.data()), 0u);

    EXPECT_STREQ(output.data(), "one\ntwo");
}

TEST_F(DcakExecCmdTest, NoOutputIsSuccess)
{
    PlanTool("tool", "");
    std::array<char, 8> output;
    output.fill('x');

    EXPECT_EQ(DcakExecCmd("tool", output.size(), output.data()), 0u);

    EXPECT_EQ(output, (std::array<char, 8>{}));
}

TEST_F(DcakExecCmdTest, OutputOneByteTooLongFails)
{
    PlanTool("tool", "one\ntwo\n");
    std::array<char, 8> output{};

    const uint32_t result = DcakExecCmd("tool", output.size(), output.data());

    EXPECT_NE(result, 0u);
    EXPECT_TRUE(Logged(3, "DCAK", "strncat_s err:two\n\n"));
}

TEST_F(DcakExecCmdTest, FailedStartIsTold)
{
    g_osCalls.popen = NoPipe;
    std::array<char, 8> output{};

    EXPECT_EQ(DcakExecCmd("tool", output.size(), output.data()), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "Failed to run command\n"));
}

TEST_F(DcakExecCmdTest, RefusesNullAndZero)
{
    std::array<char, 8> output{};

    EXPECT_EQ(DcakExecCmd(nullptr, output.size(), output.data()), 0xFFFFFFFFu);
    EXPECT_EQ(DcakExecCmd("tool", 0, output.data()), 0xFFFFFFFFu);
    EXPECT_EQ(DcakExecCmd("tool", output.size(), nullptr), 0xFFFFFFFFu);
}

class CheckCmdStrIsSecureTest : public DcakTest, public ::testing::WithParamInterface<char> {};

TEST_P(CheckCmdStrIsSecureTest, RefusesInjectionCharacter)
{
    const std::string text = std::string("sd") + GetParam() + "a";

    EXPECT_EQ(CheckCmdStrIsSecure(text.c_str()), 0u);

    EXPECT_TRUE(Logged(3, "DCAK", "cmd [" + text + "] contains injection char " + GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Characters, CheckCmdStrIsSecureTest,
                         ::testing::Values('|', ';', '&', '$', '>', '<', '`', '\\', '!', '\n', '\r'));

using CheckCmdStrTest = DcakTest;

TEST_F(CheckCmdStrTest, RefusesEmptyAndNullWithoutLog)
{
    EXPECT_EQ(CheckCmdStrIsSecure(""), 0u);
    EXPECT_EQ(CheckCmdStrIsSecure(nullptr), 0u);

    EXPECT_TRUE(Logs().empty());
}

TEST_F(CheckCmdStrTest, EverythingElseIsSafe)
{
    EXPECT_EQ(CheckCmdStrIsSecure("sda (1)*?'\"#~{}[]=%/.. \t"), 1u);
}

struct VersionCase {
    const char *version;
    const char *wanted;
    uint32_t valid;
};

class CompareVersionValidTest : public ::testing::TestWithParam<VersionCase> {};

TEST_P(CompareVersionValidTest, FirstDifferenceDecides)
{
    EXPECT_EQ(CompareVersionValid(GetParam().version, GetParam().wanted), GetParam().valid)
        << GetParam().version << " against " << GetParam().wanted;
}

INSTANTIATE_TEST_SUITE_P(Versions, CompareVersionValidTest,
                         ::testing::Values(VersionCase{"2.23.1", "2.23.2", 0}, VersionCase{"2.23.2", "2.23.2", 1},
                                           VersionCase{"2.23", "2.23.2", 0}, VersionCase{"2.23.2.1", "2.23.2", 1},
                                           VersionCase{"2.24", "2.23.2", 1}, VersionCase{"2.24.1", "2.24", 1},
                                           VersionCase{"2.24", "2.24.0", 1}, VersionCase{"2.23.9", "2.24", 0},
                                           VersionCase{"2.9", "2.24", 0}, VersionCase{"3", "2.24", 1},
                                           VersionCase{"1.99.9", "2.24", 0}, VersionCase{"", "2.24", 0},
                                           VersionCase{"2.38.1", "2.24", 1}, VersionCase{"x", "0", 1}));

struct ModeCase {
    const char *version;
    uint32_t serves;
    uint32_t json;
};

class CheckLsblkVersionTest : public DcakTest, public ::testing::WithParamInterface<ModeCase> {};

TEST_P(CheckLsblkVersionTest, DecidesServiceAndMode)
{
    const std::string version = GetParam().version;
    PlanVersion(version);

    EXPECT_EQ(CheckLsblkVersionValid(), GetParam().serves);
    EXPECT_EQ(CheckLsblkVersionJsonValid(), GetParam().json);

    EXPECT_EQ(LogCount(3, "DCAK", "lsblk is " + version + ", less than 2.23.2\n"), 1 - GetParam().serves);
    EXPECT_EQ(LogCount(3, "DCAK", "lsblk is " + version + ", less than 2.24\n"), 1 - GetParam().json);
}

INSTANTIATE_TEST_SUITE_P(Versions, CheckLsblkVersionTest,
                         ::testing::Values(ModeCase{"2.23.1", 0, 0}, ModeCase{"2.23.2", 1, 0}, ModeCase{"2.24", 1, 1},
                                           ModeCase{"2.24.1", 1, 1}, ModeCase{"2.38.1", 1, 1}));

TEST_F(CheckCmdStrTest, UnreadableVersionIsNoVersion)
{
    for (const char *output : {"", "bash: lsblk: not found\n", "lsblk from util-linux 2.38.1-rc1+dirty\n"}) {
        ClearLogs();
        PlanTool(kVersionCommand, output);

        EXPECT_EQ(CheckLsblkVersionValid(), 0u) << output;
        EXPECT_EQ(CheckLsblkVersionJsonValid(), 0u) << output;

        EXPECT_EQ(LogCount(3, "DCAK", "lsblk not exist\n"), 2u);
        EXPECT_EQ(LogCount(3, "DCAK", "Get lsblk version failed."), 2u);
    }
}

class DcakParseLsblkTable2JsonTest : public DcakTest {
protected:
    static std::string Parse(std::string table)
    {
        cJSON *tree = nullptr;
        const uint32_t result = DcakParseLsblkTable2Json(table.data(), &tree);
        EXPECT_EQ(result == 0, tree != nullptr);
        return Printed(tree);
    }
};

TEST_F(DcakParseLsblkTable2JsonTest, RowsBecomeObjectsAndNumbersNumbers)
{
    EXPECT_EQ(Parse("NAME SERIAL   SIZE LOG-SEC\nsda  S1\t 4096 512\nsdb S2 8001563222016 4096\n"),
              R"({"blockdevices":[{"NAME":"sda","SERIAL":"S1","SIZE":4096,"LOG-SEC":512},)"
              R"({"NAME":"sdb","SERIAL":"S2","SIZE":8001563222016,"LOG-SEC":4096}]})");
}

TEST_F(DcakParseLsblkTable2JsonTest, EmptyCellShiftsToTheLeft)
{
    EXPECT_EQ(Parse("NAME SERIAL TYPE\nsda         disk\n"), R"({"blockdevices":[{"NAME":"sda","SERIAL":"disk"}]})");
}

TEST_F(DcakParseLsblkTable2JsonTest, TokensBehindTheLastLabelAreDropped)
{
    EXPECT_EQ(Parse("NAME MODEL\nsda TWO WORDS\n"), R"({"blockdevices":[{"NAME":"sda","MODEL":"TWO"}]})");
}

TEST_F(DcakParseLsblkTable2JsonTest, NoOutputIsNoDisk)
{
    EXPECT_EQ(Parse(""), R"({"blockdevices":[]})");
    EXPECT_EQ(Parse("NAME\n"), R"({"blockdevices":[]})");
}

TEST_F(DcakParseLsblkTable2JsonTest, LabelOf19CharactersFitsAnd20Fail)
{
    EXPECT_EQ(Parse(std::string(19, 'L') + "\nv\n"), R"({"blockdevices":[{"LLLLLLLLLLLLLLLLLLL":"v"}]})");
    EXPECT_EQ(Parse(std::string(20, 'L') + "\nv\n"), "null");

    EXPECT_EQ(LogCount(3, "DCAK", "strcpy_s label item failed."), 1u);
}

TEST_F(DcakParseLsblkTable2JsonTest, Holds32Labels)
{
    std::string header;
    std::string row;
    for (int i = 1; i <= 33; i++) {
        header += "L" + std::to_string(i) + " ";
        row += std::to_string(i) + " ";
    }

    const std::string text = Parse(header + "\n" + row + "\n");

    EXPECT_THAT(text, ::testing::HasSubstr(R"("L32":"32"})"));
    EXPECT_THAT(text, ::testing::Not(::testing::HasSubstr("L33")));
}

TEST_F(DcakParseLsblkTable2JsonTest, NullArgumentsAreTold)
{
    cJSON *tree = nullptr;
    char text[] = "NAME\n";

    EXPECT_EQ(DcakParseLsblkTable2Json(nullptr, &tree), 0xFFFFFFFFu);
    EXPECT_EQ(DcakParseLsblkTable2Json(text, nullptr), 0xFFFFFFFFu);

    EXPECT_EQ(LogCount(3, "DCAK", "tableStr or cmdJson is NULL."), 2u);
}

TEST(DcakIsLabelNumTest, KnowsSizeAndSectorInAnyCase)
{
    EXPECT_EQ(DcakIsLabelNum("SIZE"), 1u);
    EXPECT_EQ(DcakIsLabelNum("log-SEC"), 1u);
    EXPECT_EQ(DcakIsLabelNum("PHY-SEC"), 0u);
    EXPECT_EQ(DcakIsLabelNum(""), 0u);
    EXPECT_EQ(DcakIsLabelNum(nullptr), 0u);
    EXPECT_STREQ(g_lsblkNumLabel[0], "size");
    EXPECT_STREQ(g_lsblkNumLabel[1], "log-sec");
}

class DcakExecLsblkCmdTest : public DcakTest {
protected:
    static std::string Run(const char *command)
    {
        cJSON *tree = nullptr;
        const uint32_t result = DcakExecLsblkCmd(command, &tree);
        EXPECT_EQ(result == 0, tree != nullptr);
        return Printed(tree);
    }
};

TEST_F(DcakExecLsblkCmdTest, AddsJsonOptionFrom224Up)
{
    PlanVersion("2.24");
    PlanTool("lsblk -S -J", R"({"blockdevices": []})");

    EXPECT_EQ(Run("lsblk -S"), R"({"blockdevices":[]})");
    EXPECT_EQ(Run("lsblk -S"), R"({"blockdevices":[]})");

    EXPECT_EQ(TimesRun(kVersionCommand), 2u) << "the version is asked at each call";
}

TEST_F(DcakExecLsblkCmdTest, ReadsTheTableBelow224)
{
    PlanVersion("2.23.2");
    PlanTool("lsblk -S", "NAME\nsda\n");

    EXPECT_EQ(Run("lsblk -S"), R"({"blockdevices":[{"NAME":"sda"}]})");
}

TEST_F(DcakExecLsblkCmdTest, FailuresAreTold)
{
    PlanVersion("2.38.1");
    PlanTool("lsblk -J", "{\"blockdevices\": [");
    PlanTool("long -J", std::string(15360, 'x'));
    const std::string tooLong(512, 'c');
    const std::string tooLongWithOption(509, 'c');

    EXPECT_EQ(Run("lsblk"), "null");
    EXPECT_EQ(Run("long"), "null");
    EXPECT_EQ(Run(nullptr), "null");
    EXPECT_EQ(DcakExecLsblkCmd("lsblk", nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(Run(tooLong.c_str()), "null");
    EXPECT_EQ(Run(tooLongWithOption.c_str()), "null");

    EXPECT_EQ(LogCount(3, "DCAK", "cmdJson is NULL."), 1u);
    EXPECT_TRUE(Logged(3, "DCAK", "exec cmd failed, cmd is: long -J."));
    EXPECT_EQ(LogCount(3, "DCAK", "command or cmdJson is NULL."), 2u);
    EXPECT_TRUE(Logged(3, "DCAK", "strcpy_s failed when copying command: " + tooLong + "."));
    EXPECT_TRUE(Logged(
        3, "DCAK", "snprintf_s failed: " + tooLongWithOption + " -" + ", input command: " + tooLongWithOption + "."));
}

TEST_F(DcakExecLsblkCmdTest, BrokenTableIsTold)
{
    PlanVersion("2.23.2");
    const std::string table = "A_LABEL_OF_TWENTY_CH\nx\n";
    PlanTool("lsblk", table);

    EXPECT_EQ(Run("lsblk"), "null");

    EXPECT_TRUE(Logged(3, "DCAK", "strcpy_s label item failed."));
    EXPECT_THAT(Logs().back().text, ::testing::StartsWith("parse lsblk table into json failed, cmdOut is A_LABEL"));
}

TEST_F(DcakExecLsblkCmdTest, NoMemoryIsTold)
{
    PlanVersion("2.38.1");
    g_osCalls.malloc = NoMemory;

    EXPECT_EQ(Run("lsblk"), "null");

    EXPECT_TRUE(Logged(3, "DCAK", "malloc failed"));
}

TEST_F(DcakExecLsblkCmdTest, DebugSwitchShowsTheTree)
{
    PlanVersion("2.24");
    PlanTool("lsblk -J", R"({"blockdevices": []})");
    (void)Run("lsblk");
    EXPECT_EQ(Logs().size(), 0u);
    SetSwitches(1, 0);

    (void)Run("lsblk");

    EXPECT_TRUE(Logged(7, "DCAK", R"(exec lsblk cmd success, cmdJson: {"blockdevices":[]})"));
}

TEST(EndTrimTest, ClearsWhiteSpaceFromTheEnd)
{
    char text[] = " a b \t\n\v\f\r";

    EndTrim(text, sizeof(text) - 1);

    EXPECT_EQ(std::string(text, sizeof(text)), std::string(" a b\0\0\0\0\0\0\0", sizeof(text)));
}

TEST(EndTrimTest, ClearsATextOfBlanksWhole)
{
    char text[] = "   ";

    EndTrim(text, 3);
    EndTrim(text, 0);
    EndTrim(nullptr, 3);

    EXPECT_STREQ(text, "");
}

TEST(StrSplitTest, GivesCopiesUpToTheLimit)
{
    std::array<char *, 2> tokens{};

    const uint32_t count = StrSplit("  one two  three", " ", 2, tokens.data());

    ASSERT_EQ(count, 2u);
    EXPECT_STREQ(tokens[0], "one");
    EXPECT_STREQ(tokens[1], "two");
    StrTokensFree(tokens.data(), count);
    EXPECT_EQ(tokens[0], nullptr);
    EXPECT_EQ(tokens[1], nullptr);
}

TEST(StrSplitTest, NothingToSplitGivesNone)
{
    std::array<char *, 2> tokens{};

    EXPECT_EQ(StrSplit("   ", " ", 2, tokens.data()), 0u);
    EXPECT_EQ(StrSplit(nullptr, " ", 2, tokens.data()), 0u);
    EXPECT_EQ(StrSplit("a", " ", 2, nullptr), 0u);
}
