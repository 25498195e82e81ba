#include <cstring>
#include <filesystem>
#include <utility>

#include "cli_names.h"
#include "host_fixture.h"

namespace {

constexpr int kUnknown = 0x40036907;
constexpr int kSeveral = 1111111111;

/** Read before the test's own mounts cover sources that lie below /tmp. */
const std::string kShipped = ReadText(CORVANE_CATALOGUE);

class CliCatalogueTest : public HostTest {
protected:
    void Load(const std::string &document)
    {
        if (!document.empty()) {
            WriteText(prefix_ + "/config/error_en.xml", document);
        }
        Open();
        EXPECT_EQ(CliFunction<int()>("C::ErrorCode::LoadConfigFile()")(), 0);
        EXPECT_TRUE(*static_cast<bool *>(CliAddress("C::ErrorCode::m_hasInit")));
    }

    static std::string Entry(const std::string &id, const std::string &reason, const std::string &suggestion)
    {
        return "<error id=\"" + id + "\"><reason description=\"" + reason +
               "\"/><suggestions><suggestion description=\"" + suggestion + "\"/></suggestions></error>";
    }

    static std::string Document(const std::string &entries)
    {
        return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<root><errors>" + entries + "</errors></root>\n";
    }

    /** Text of a code, which must also have been printed. */
    static std::string Text(int code, const std::string &param = "")
    {
        const CliFunction<std::string(int, const std::string &)> print("C::ErrorCode::PrintErrorCode(int, S const&)");
        std::string text;
        const std::string printed = CaptureStdout([&] { text = print(code, param); });
        EXPECT_EQ(printed, text);
        return text;
    }

    static std::pair<int, std::string> Several(std::vector<std::pair<int, std::string>> errors)
    {
        const CliFunction<int(std::vector<std::pair<int, std::string>> &, std::string &)> get(
            "C::ErrorCode::GetMessage(std::vector<std::pair<int, S>>&, S&)");
        std::string text = "before";
        const int code = get(errors, text);
        return {code, text};
    }

    static std::string Format(const std::string &format, const std::string &param)
    {
        return CliFunction<std::string(const std::string &, const std::string &)>("C::Format(S const&, S const&)")(
            format, param);
    }
};

TEST_F(CliCatalogueTest, ShippedTextsCoverEveryCode)
{
    ASSERT_FALSE(kShipped.empty());
    Load(kShipped);

    for (const int code : {0x40036901, 0x40036903, 0x40036904, 0x40036905, 0x40036906, 0x40036907, 0x4003690B,
                           0x4003690C, 0x4003690D, 0x4003690E, 0x40036910, 0x40036911, 0x40036912}) {
        const std::string text = Text(code);
        EXPECT_EQ(text.rfind("Cause:", 0), 0u) << text;
        const size_t second = text.find("\nSuggestion:");
        ASSERT_NE(second, std::string::npos) << text;
        EXPECT_GT(second, 20u) << text;
        EXPECT_GT(text.size(), second + 32) << text;
        EXPECT_EQ(text.back(), '\n');
        EXPECT_EQ(text.find('%'), std::string::npos) << text;
    }
    for (const int code : {0x40036902, 0x40036908, 0x40036909, 0x4003690A, 0x4003690F, 1, 77}) {
        EXPECT_EQ(Text(code), "") << code;
    }
}

TEST_F(CliCatalogueTest, WithoutAFileThereAreTwoEntries)
{
    Load("");

    EXPECT_EQ(Text(0, "abc"), "abc");
    EXPECT_EQ(Text(kSeveral, "abc"), "abc");
    EXPECT_EQ(Text(0, ""), "");
    EXPECT_EQ(Text(0, "100% %s %n {0}"), "100% %s %n {0}") << "a parameter is no format";
    EXPECT_EQ(Text(0x40036904, "abc"), "");
}

TEST_F(CliCatalogueTest, CatalogueIsLoadedWithItsFirstUse)
{
    Open();
    EXPECT_FALSE(*static_cast<bool *>(CliAddress("C::ErrorCode::m_hasInit")));

    EXPECT_EQ(Text(0, "abc"), "abc");

    EXPECT_TRUE(*static_cast<bool *>(CliAddress("C::ErrorCode::m_hasInit")));
}

TEST_F(CliCatalogueTest, Parameters)
{
    Load(Document(Entry("5", "disk {0} failed", "replace it") + Entry("6", "it failed", "replace {0} or {0}") +
                  Entry("7", "both {0}", "and {0}") + Entry("8", "plain", "text") +
                  Entry("9", "half 50% and {0}", "x") + Entry("10", "%s {0}", "x") + Entry("11", "100%", "x")));

    EXPECT_EQ(Text(5, "3"), "Cause:disk {3} failed\nSuggestion:replace it\n");
    EXPECT_EQ(Text(6, "3"), "Cause:it failed\nSuggestion:replace {3} or {0}\n");
    EXPECT_EQ(Text(7, "3"), "Cause:both {3}\nSuggestion:and {0}\n");
    EXPECT_EQ(Text(8, "3"), "Cause:plain\nSuggestion:text\n");
    EXPECT_EQ(Text(5, "%s{0}"), "Cause:disk {%s{0}} failed\nSuggestion:replace it\n");
    EXPECT_EQ(Text(9, "3"), "") << "no text of the catalogue is a format";
    EXPECT_EQ(Text(10, "3"), "");
    EXPECT_EQ(Text(11, "3"), "Cause:100%\nSuggestion:x\n") << "without a parameter nothing is formatted";
}

TEST_F(CliCatalogueTest, SeveralErrors)
{
    Load(Document(Entry("5", "disk {0} failed", "replace it") + Entry("6", "it failed", "replace {0}") +
                  Entry("8", "plain", "text")));

    EXPECT_EQ(Several({}), (std::pair<int, std::string>{kUnknown, "null"}));
    EXPECT_EQ(Several({{5, "as it is"}}), (std::pair<int, std::string>{5, "as it is"}));
    EXPECT_EQ(Several({{99, "as it is"}}), (std::pair<int, std::string>{99, "as it is"}));
    EXPECT_EQ(Several({{5, "3"}, {8, "4"}, {5, "7"}}),
              (std::pair<int, std::string>{kSeveral, "Cause:\n1. disk {3} failed\n2. plain\n3. disk {7} failed\n"
                                                     "Suggestion:\n1. replace it\n2. text\n3. replace it\n"}));
    EXPECT_EQ(Several({{6, "3"}, {8, ""}}),
              (std::pair<int, std::string>{kSeveral, "Cause:\n1. it failed\n2. plain\n"
                                                     "Suggestion:\n1. replace {0}\n2. text\n"}));
    EXPECT_EQ(Several({{5, "3"}, {99, ""}}),
              (std::pair<int, std::string>{kUnknown, "Cause:\n1. disk {3} failed\n2. "}));
    EXPECT_EQ(Several({{99, ""}, {5, "3"}}), (std::pair<int, std::string>{kUnknown, "Cause:\n1. "}));
}

TEST_F(CliCatalogueTest, LongTextsFormatToNothing)
{
    const std::string longest(2000, 'x');
    Load(Document(Entry("5", "{0}" + longest, "y")));

    // "Cause:{", "}", line feed, "Suggestion:y" and line feed take 22 characters.
    EXPECT_EQ(Text(5, std::string(25, 'p')).size(), 2047u);
    EXPECT_EQ(Text(5, std::string(26, 'p')), "");
    EXPECT_EQ(Format("%s", std::string(2047, 'p')).size(), 2047u);
    EXPECT_EQ(Format("%s", std::string(2048, 'p')), "");
    EXPECT_EQ(Format("a%sb", "-"), "a-b");
    EXPECT_EQ(Format("plain", "-"), "plain");
    for (const char *format : {"%d", "%s%s", "%%", "%", "%5s", "%n", "%s %d"}) {
        EXPECT_EQ(Format(format, "-"), "") << format;
    }
}

TEST_F(CliCatalogueTest, FilesThatAreNotAsExpected)
{
    Load(Document(Entry("5", "first", "a") + Entry("5", "second", "b") +
                  "<error id=\"6\"/><error id=\"7\"><reason/>"
                  "</error><error id=\"x\"/><error id=\"99999999999\"/><other id=\"8\"/>" +
                  Entry("-1", "minus", "c")));

    EXPECT_EQ(Text(5), "Cause:first\nSuggestion:a\n");
    EXPECT_EQ(Text(6), "Cause:\nSuggestion:\n");
    EXPECT_EQ(Text(7), "Cause:\nSuggestion:\n");
    EXPECT_EQ(Text(8), "");
    EXPECT_EQ(Text(-1), "Cause:minus\nSuggestion:c\n");
}

TEST_F(CliCatalogueTest, RootMustStandBelowADeclaration)
{
    Load("<root><errors>" + Entry("5", "first", "a") + "</errors></root>");

    EXPECT_EQ(Text(5), "");
    EXPECT_EQ(Text(0, "x"), "x");
}

TEST_F(CliCatalogueTest, FileThatDoesNotParse)
{
    Load("<?xml version=\"1.0\"?><root><errors><error id=");

    EXPECT_EQ(Text(5), "");
    EXPECT_EQ(Text(0, "x"), "x");
}

} // namespace
