#include "cli/common/ErrorCode.h"

#include "cli/common/CliResultCode.h"
#include "cli_test_support.h"
#include "config/corvane_prefix_path.h"

using CORVANE_CLI::ErrorCode;
using CORVANE_CLI::Format;

static_assert(CORVANE_CLI::CLI_OK == 0 && CORVANE_CLI::CLI_FAIL == -1);
static_assert(CORVANE_CLI::CLI_USER_PERMISSION_ERROR == 1073965313);
static_assert(CORVANE_CLI::CLI_SOCKET_CLOSED_ERROR == 1073965315);
static_assert(CORVANE_CLI::CLI_COMMAND_FORMAT_ERROR == 1073965316);
static_assert(CORVANE_CLI::CLI_SEND_DATA_EXCEED == 1073965317);
static_assert(CORVANE_CLI::CLI_RECV_TRANSMISSION_ERROR == 1073965318);
static_assert(CORVANE_CLI::CLI_ERROR_NOT_FOUND == 1073965319);
static_assert(CORVANE_CLI::CLI_COMMAND_PARAM_INVALID == 1073965323);
static_assert(CORVANE_CLI::CLI_COMMAND_EXEC_FAILED == 1073965324);
static_assert(CORVANE_CLI::CLI_TASK_MAX_ERROR == 1073965325);
static_assert(CORVANE_CLI::CLI_SLOWDISK_DETECT_CONFIG_FORMAT_INVALID == 1073965326);
static_assert(CORVANE_CLI::CLI_DB_ID_NOT_EXIST == 1073965328);
static_assert(CORVANE_CLI::CLI_DPR_SMART_CONFIG_PARAM_INVALID == 1073965329);
static_assert(CORVANE_CLI::CLI_DISKLIFE_PRE_PARAM_INVALID == 1073965330);
static_assert(CORVANE_CLI::CLI_MULTI_ERROR_CODE == 1111111111);

namespace {

constexpr int kMulti = 1111111111;
constexpr int kNotFound = 0x40036907;

std::string Entry(const std::string &id, const std::string &reason, const std::string &suggestion)
{
    return "<error" + (id.empty() ? "" : " id=\"" + id + "\"") + "><reason description=\"" + reason +
           "\"/><suggestions><suggestion description=\"" + suggestion + "\"/></suggestions></error>";
}

} // namespace

class CatalogueTest : public CorvaneTest {
protected:
    CatalogueTest() { Forget(); }
    ~CatalogueTest() override { Forget(); }

    static void Forget()
    {
        ErrorCode::m_errorCode.clear();
        ErrorCode::m_hasInit = false;
    }
    /** Loads a catalogue of these entries. */
    void Load(const std::string &entries)
    {
        WriteFile(Prefix() + "/config/error_en.xml",
                  "<?xml version=\"1.0\" encoding=\"utf-8\"?><root><errors>" + entries + "</errors></root>");
        ASSERT_EQ(ErrorCode::LoadConfigFile(), 0);
    }
    static std::string Message(int code, const std::string &param)
    {
        return ErrorCode::m_errorCode.at(code).GetMessage(param);
    }
    static std::string Template(int code) { return ErrorCode::m_errorCode.at(code).GetMessageTemp(); }
};

class LoadConfigFileTest : public CatalogueTest {};
class GetErrorCodeTest : public CatalogueTest {};
class ErrorMessageTest : public CatalogueTest {};
class PrintErrorCodeTest : public CatalogueTest {};
class GetMessageOfSeveralTest : public CatalogueTest {};

TEST_F(LoadConfigFileTest, ReadsEveryEntry)
{
    Load(Entry("1073965316", "Bad command.", "See the help.") + Entry("12", "Second.", "Do it.") +
         Entry("-1", "Failed.", "Look at the log."));

    EXPECT_TRUE(ErrorCode::m_hasInit);
    ASSERT_EQ(ErrorCode::m_errorCode.size(), 5u);
    EXPECT_EQ(Message(1073965316, "unused"), "Cause:Bad command.\nSuggestion:See the help.\n");
    EXPECT_EQ(Message(12, ""), "Cause:Second.\nSuggestion:Do it.\n");
    EXPECT_EQ(Message(-1, ""), "Cause:Failed.\nSuggestion:Look at the log.\n");
}

TEST_F(LoadConfigFileTest, AddsTheTwoEntriesOfItsOwn)
{
    Load("");

    EXPECT_EQ(ErrorCode::m_errorCode.size(), 2u);
    EXPECT_EQ(Message(0, "abc"), "abc");
    EXPECT_EQ(Message(kMulti, "abc"), "abc");
    EXPECT_EQ(Template(0), "%s");
    EXPECT_EQ(Template(kMulti), "%s");
}

TEST_F(LoadConfigFileTest, TakesAMissingFileForAnEmptyCatalogue)
{
    EXPECT_EQ(ErrorCode::LoadConfigFile(), 0);

    EXPECT_TRUE(ErrorCode::m_hasInit);
    EXPECT_EQ(ErrorCode::m_errorCode.size(), 2u);
}

TEST_F(LoadConfigFileTest, TakesABrokenFileForAnEmptyCatalogue)
{
    WriteFile(Prefix() + "/config/error_en.xml", "<?xml version=\"1.0\"?><root><errors>");

    ::testing::internal::CaptureStderr();
    EXPECT_EQ(ErrorCode::LoadConfigFile(), 0);
    (void)::testing::internal::GetCapturedStderr();

    EXPECT_EQ(ErrorCode::m_errorCode.size(), 2u);
}

TEST_F(LoadConfigFileTest, WantsTheDeclaration)
{
    WriteFile(Prefix() + "/config/error_en.xml", "<root><errors>" + Entry("5", "a", "b") + "</errors></root>");

    EXPECT_EQ(ErrorCode::LoadConfigFile(), 0);

    EXPECT_EQ(ErrorCode::m_errorCode.count(5), 0u);
}

TEST_F(LoadConfigFileTest, ReadsAFileThatIsIndented)
{
    WriteFile(Prefix() + "/config/error_en.xml",
              "<?xml version=\"1.0\"?>\n<root>\n  <errors>\n    <error id=\"5\">\n      <reason description=\"a\"/>\n"
              "      <suggestions>\n        <suggestion description=\"b\"/>\n      </suggestions>\n    </error>\n"
              "  </errors>\n</root>\n");

    EXPECT_EQ(ErrorCode::LoadConfigFile(), 0);

    EXPECT_EQ(Message(5, ""), "Cause:a\nSuggestion:b\n");
}

TEST_F(LoadConfigFileTest, FailsWhenThePathDoesNotFit)
{
    char *saved = g_prefixPath;
    const size_t longest = 4096 - 1 - std::string("/config/error_en.xml").size();
    std::string prefix(longest + 1, 'p');

    g_prefixPath = prefix.data();
    EXPECT_EQ(ErrorCode::LoadConfigFile(), -1);
    EXPECT_FALSE(ErrorCode::m_hasInit);
    EXPECT_TRUE(ErrorCode::m_errorCode.empty());

    prefix.pop_back();
    g_prefixPath = prefix.data();
    EXPECT_EQ(ErrorCode::LoadConfigFile(), 0);
    g_prefixPath = saved;
}

TEST_F(LoadConfigFileTest, GivesAnEntryWithoutNumberTheCode0)
{
    Load(Entry("", "Cause {0}", "b"));

    EXPECT_EQ(ErrorCode::m_errorCode.size(), 2u);
    EXPECT_EQ(Message(0, "abc"), "abc");
    std::vector<std::pair<int, std::string>> errors = {{0, "x"}, {0, "y"}};
    std::string out;
    EXPECT_EQ(ErrorCode::GetMessage(errors, out), kMulti);
    EXPECT_EQ(out, "Cause:\n1. Cause {x}\n2. Cause {y}\nSuggestion:\n1. b\n2. b\n") << "the first entry stays";
}

TEST_F(LoadConfigFileTest, KeepsTheEntryThatIsThere)
{
    Load(Entry("5", "first", "a"));

    Load(Entry("5", "second", "b"));

    EXPECT_EQ(Message(5, ""), "Cause:first\nSuggestion:a\n");
}

TEST_F(LoadConfigFileTest, TakesMissingTextsForEmptyOnes)
{
    Load("<error id=\"5\"/><error id=\"6\"><reason/><suggestion description=\"x\"/></error>");

    EXPECT_EQ(Message(5, ""), "Cause:\nSuggestion:\n");
    EXPECT_EQ(Message(6, ""), "Cause:\nSuggestion:\n");
}

TEST_F(GetErrorCodeTest, LoadsOnce)
{
    WriteFile(Prefix() + "/config/error_en.xml",
              "<?xml version=\"1.0\"?><root><errors>" + Entry("5", "a", "b") + "</errors></root>");

    EXPECT_EQ(ErrorCode::GetErrorCode().count(5), 1u);
    EXPECT_EQ(&ErrorCode::GetErrorCode(), &ErrorCode::m_errorCode);

    ErrorCode::m_errorCode.clear();
    EXPECT_TRUE(ErrorCode::GetErrorCode().empty()) << "not loaded again";
}

TEST_F(ErrorMessageTest, TakesNoParameterBeforeTheCatalogueSaysSo)
{
    const ErrorCode entry(5, "disk {0} failed", "replace {0}");

    EXPECT_EQ(entry.GetMessageTemp(), "Cause:disk {0} failed\nSuggestion:replace {0}\n");
    EXPECT_EQ(entry.GetMessage("3"), "Cause:disk {0} failed\nSuggestion:replace {0}\n");
    EXPECT_EQ(ErrorCode(0, "a", "b").GetMessage("3"), "%s");
    EXPECT_EQ(ErrorCode(kMulti, "a", "b").GetMessageTemp(), "%s");
}

TEST_F(ErrorMessageTest, KeepsTheBraces)
{
    Load(Entry("5", "disk {0} failed", "Replace it.") + Entry("6", "A disk failed.", "Replace {0}."));

    EXPECT_EQ(Template(5), "Cause:disk {%s} failed\nSuggestion:Replace it.\n");
    EXPECT_EQ(Message(5, "3"), "Cause:disk {3} failed\nSuggestion:Replace it.\n");
    EXPECT_EQ(Message(6, "3"), "Cause:A disk failed.\nSuggestion:Replace {3}.\n");
}

TEST_F(ErrorMessageTest, ReplacesTheFirstPlaceholderAlone)
{
    Load(Entry("5", "{0} {0}", "{0}"));

    EXPECT_EQ(Message(5, "x"), "Cause:{x} {0}\nSuggestion:{0}\n");
}

TEST_F(ErrorMessageTest, DoesNotReadTheParameterAsAFormat)
{
    Load(Entry("5", "disk {0}", "b"));

    EXPECT_EQ(Message(5, "%n%s%d"), "Cause:disk {%n%s%d}\nSuggestion:b\n");
    EXPECT_EQ(Message(0, "100%"), "100%");
}

TEST_F(ErrorMessageTest, GivesNothingForAnotherPercentSequence)
{
    Load(Entry("5", "disk {0} 100%", "b") + Entry("6", "%d disk {0}", "b") + Entry("7", "100%", "b"));

    EXPECT_EQ(Message(5, "3"), "");
    EXPECT_EQ(Message(6, "3"), "");
    EXPECT_EQ(Message(7, "3"), "Cause:100%\nSuggestion:b\n") << "it takes no parameter";
}

TEST_F(ErrorMessageTest, PrintsWhatItReturns)
{
    Load(Entry("5", "disk {0} 1", "b") + Entry("7", "100%d", "b"));

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(ErrorCode::m_errorCode.at(5).PrintMessage("3"), "Cause:disk {3} 1\nSuggestion:b\n");
    EXPECT_EQ(ErrorCode::m_errorCode.at(7).PrintMessage(""), "Cause:100%d\nSuggestion:b\n");

    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Cause:disk {3} 1\nSuggestion:b\nCause:100%d\nSuggestion:b\n");
}

TEST_F(PrintErrorCodeTest, LooksTheNumberUp)
{
    WriteFile(Prefix() + "/config/error_en.xml",
              "<?xml version=\"1.0\"?><root><errors>" + Entry("5", "disk {0}", "b") + "</errors></root>");

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(ErrorCode::PrintErrorCode(5, "3"), "Cause:disk {3}\nSuggestion:b\n");
    EXPECT_EQ(ErrorCode::PrintErrorCode(0, "done"), "done");

    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Cause:disk {3}\nSuggestion:b\ndone");
}

TEST_F(PrintErrorCodeTest, PrintsNothingForAnUnknownNumber)
{
    Load("");

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(ErrorCode::PrintErrorCode(77, "3"), "");

    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST_F(GetMessageOfSeveralTest, KnowsNothingOfAnEmptyList)
{
    std::vector<std::pair<int, std::string>> errors;
    std::string out;

    EXPECT_EQ(ErrorCode::GetMessage(errors, out), kNotFound);

    EXPECT_EQ(out, "null");
}

TEST_F(GetMessageOfSeveralTest, PassesOneThrough)
{
    Load(Entry("5", "disk {0}", "b"));
    std::vector<std::pair<int, std::string>> errors = {{77, "its parameter"}};
    std::string out = "old";

    EXPECT_EQ(ErrorCode::GetMessage(errors, out), 77);

    EXPECT_EQ(out, "its parameter");
}

TEST_F(GetMessageOfSeveralTest, NumbersCausesAndSuggestions)
{
    Load(Entry("5", "disk {0} failed", "Replace {0}.") + Entry("6", "Other.", "Wait.") + Entry("7", "Fine", "See {0}"));
    std::vector<std::pair<int, std::string>> errors = {{5, "3"}, {6, "x"}, {7, "y"}};
    std::string out = "old";

    EXPECT_EQ(ErrorCode::GetMessage(errors, out), kMulti);

    EXPECT_EQ(out, "Cause:\n1. disk {3} failed\n2. Other.\n3. Fine\n"
                   "Suggestion:\n1. Replace {0}.\n2. Wait.\n3. See {0}\n");
}

TEST_F(GetMessageOfSeveralTest, StopsAtAnUnknownOne)
{
    Load(Entry("5", "a", "b"));
    std::vector<std::pair<int, std::string>> errors = {{5, ""}, {77, ""}, {5, ""}};
    std::string out;

    EXPECT_EQ(ErrorCode::GetMessage(errors, out), kNotFound);

    EXPECT_EQ(out, "Cause:\n1. a\n2. ");
}

TEST_F(GetMessageOfSeveralTest, LeavesACauseEmptyThatDoesNotFormat)
{
    Load(Entry("5", "{0} 5%", "b"));
    std::vector<std::pair<int, std::string>> errors = {{5, "x"}, {0, "y"}};
    std::string out;

    EXPECT_EQ(ErrorCode::GetMessage(errors, out), kMulti);

    EXPECT_EQ(out, "Cause:\n1. \n2. \nSuggestion:\n1. b\n2. \n");
}

TEST(FormatTest, ReplacesOneText)
{
    EXPECT_EQ(Format("a {%s} b", "x"), "a {x} b");
    EXPECT_EQ(Format("%s", "x%sy%"), "x%sy%");
    EXPECT_EQ(Format("plain", "x"), "plain");
    EXPECT_EQ(Format("", "x"), "");
}

TEST(FormatTest, RefusesEveryOtherPercent)
{
    for (const char *format : {"%", "%d", "%%", "%s %s", "%s %", "% s", "%n", "a%", "%s%%", "%5s"}) {
        EXPECT_EQ(Format(format, "x"), "") << format;
    }
}

TEST(FormatTest, EndsAt2047Characters)
{
    EXPECT_EQ(Format("%s", std::string(2047, 'x')), std::string(2047, 'x'));
    EXPECT_EQ(Format("%s", std::string(2048, 'x')), "");
    EXPECT_EQ(Format("{%s}", std::string(2045, 'x')), "{" + std::string(2045, 'x') + "}");
    EXPECT_EQ(Format("{%s}", std::string(2046, 'x')), "");
    EXPECT_EQ(Format(std::string(2047, 'f'), ""), std::string(2047, 'f'));
    EXPECT_EQ(Format(std::string(2048, 'f'), ""), "");
}
