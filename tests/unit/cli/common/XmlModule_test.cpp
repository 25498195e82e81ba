#include "cli/common/XmlModule.h"

#include "cli_test_support.h"

using CORVANE_CLI::XmlModule;

namespace {

/** Bytes of "<req></req>", "<cmd></cmd>" and "<agrs></agrs>", and the terminator. */
constexpr size_t kRequestFrame = 11 + 11 + 13 + 1;
/** Bytes of the response's templates and the room for what the saver expands. */
constexpr size_t kResponseFrame = 21 + 25 + 25 + 20;

} // namespace

class XmlTest : public CliLogTest {
protected:
    static std::string ErrorLine(const std::string &function, const std::string &message)
    {
        return Line("ERROR", "XmlModule", function, message);
    }

    XmlModule xml_;
};

class CliCMDtoXmlTest : public XmlTest {};
class SvCMDtoXmlTest : public XmlTest {};
class AnalysisXmlTest : public XmlTest {};
class ToStringTest : public XmlTest {};

TEST_F(CliCMDtoXmlTest, BuildsARequest)
{
    EXPECT_EQ(xml_.CliCMDtoXml("disk_info", "show disk_info disk_id=3"),
              "<req><cmd>disk_info</cmd><agrs>show disk_info disk_id=3</agrs></req>");
    EXPECT_EQ(xml_.CliCMDtoXml("a", "b"), "<req><cmd>a</cmd><agrs>b</agrs></req>");
    EXPECT_THAT(CliLog(), ::testing::IsEmpty());
}

TEST_F(CliCMDtoXmlTest, RefusesEmptyTexts)
{
    EXPECT_EQ(xml_.CliCMDtoXml("", "show"), "");
    EXPECT_EQ(xml_.CliCMDtoXml("show", ""), "");

    EXPECT_THAT(CliLog(), ::testing::ElementsAre(ErrorLine("CliCMDtoXml", "input error, cmd:0 param:4."),
                                                 ErrorLine("CliCMDtoXml", "input error, cmd:4 param:0.")));
}

TEST_F(CliCMDtoXmlTest, TakesParametersUpToTheirLimit)
{
    const std::string longest(0x100000, 'p');

    EXPECT_EQ(xml_.CliCMDtoXml("c", longest), "<req><cmd>c</cmd><agrs>" + longest + "</agrs></req>");
    EXPECT_EQ(xml_.CliCMDtoXml("c", longest + "p"), "");

    EXPECT_THAT(CliLog(), ::testing::ElementsAre(ErrorLine("CliCMDtoXml", "input error, cmd:1 param:1048577.")));
}

TEST_F(CliCMDtoXmlTest, TakesCommandsUpToTheirLimit)
{
    std::string longest(0x2000000, 'c');

    EXPECT_TRUE(xml_.CliCMDtoXml(longest, "p") == "<req><cmd>" + longest + "</cmd><agrs>p</agrs></req>");
    longest += 'c';
    EXPECT_EQ(xml_.CliCMDtoXml(longest, "p"), "");

    EXPECT_THAT(CliLog(), ::testing::ElementsAre(ErrorLine("CliCMDtoXml", "input error, cmd:33554433 param:1.")));
}

TEST_F(CliCMDtoXmlTest, CutsWhatTheSaverExpands)
{
    EXPECT_EQ(xml_.CliCMDtoXml("c", "a<b"), "<req><cmd>c</cmd><agrs>a&lt;b</agrs></r");
}

TEST_F(CliCMDtoXmlTest, FailsWithoutMemory)
{
    RefuseMalloc(kRequestFrame + 3 + 5);

    EXPECT_EQ(xml_.CliCMDtoXml("cmd", "param"), "");

    EXPECT_THAT(CliLog(), ::testing::ElementsAre(ErrorLine("CliCMDtoXml", "malloc xmlinfo buf failed")));
}

TEST_F(SvCMDtoXmlTest, SplitsTheCodeOff)
{
    EXPECT_EQ(xml_.SvCMDtoXml("DiskId : 3\nnext errorCode=0"),
              "<response><error_code>0</error_code><print_data>DiskId : 3\nnext</print_data></response>\n");
    EXPECT_EQ(xml_.SvCMDtoXml("null errorCode=-1"),
              "<response><error_code>-1</error_code><print_data>null</print_data></response>\n");
    EXPECT_EQ(xml_.SvCMDtoXml("null errorCode=1073965313"),
              "<response><error_code>1073965313</error_code><print_data>null</print_data></response>\n");
    EXPECT_THAT(CliLog(), ::testing::IsEmpty());
}

TEST_F(SvCMDtoXmlTest, LeavesTheCodeEmptyWithoutTheMarker)
{
    const std::string document = xml_.SvCMDtoXml("text,errorCode=3");

    EXPECT_EQ(xml_.AnalysisXml(document, "error_code"), "");
    EXPECT_EQ(xml_.AnalysisXml(document, "print_data"), "text,errorCode=3");
    EXPECT_EQ(document, "<response><error_code></error_code><print_data>text,errorCode=3</print_data></response>\n");
}

TEST_F(SvCMDtoXmlTest, SplitsAtTheFirstMarker)
{
    EXPECT_EQ(xml_.SvCMDtoXml("a errorCode=1 b errorCode=2"),
              "<response><error_code>1 b errorCode=2</error_code><print_data>a</print_data></response>\n");
}

TEST_F(SvCMDtoXmlTest, RefusesAnEmptyText)
{
    EXPECT_EQ(xml_.SvCMDtoXml(""), "");

    EXPECT_THAT(CliLog(), ::testing::ElementsAre(ErrorLine("SvCMDtoXml", "callback is empty.")));
}

TEST_F(SvCMDtoXmlTest, KeepsBlanksAndLineFeedsOfTables)
{
    const std::string table = "  a   b\n" + std::string(300, '-') + "\n\n  c";

    EXPECT_EQ(xml_.AnalysisXml(xml_.SvCMDtoXml(table + " errorCode=0"), "print_data"), table);
}

TEST_F(SvCMDtoXmlTest, GivesBackWhatTheSaverExpands)
{
    const std::string document = xml_.SvCMDtoXml("DiskLife : <1 errorCode=0");

    EXPECT_EQ(document, "<response><error_code>0</error_code><print_data>DiskLife : &lt;1</print_data></response>\n");
    EXPECT_EQ(xml_.AnalysisXml(document, "print_data"), "DiskLife : <1");
}

TEST_F(SvCMDtoXmlTest, CutsWhatExpandsByMoreThanItsRoom)
{
    // 20 bytes of room hold the terminator and six "<", each three bytes longer; then the line feed fits too.
    EXPECT_EQ(xml_.SvCMDtoXml("<<<<<< errorCode=0"),
              "<response><error_code>0</error_code><print_data>&lt;&lt;&lt;&lt;&lt;&lt;</print_data></response>\n");
    EXPECT_EQ(xml_.SvCMDtoXml("<<<<<<< errorCode=0"),
              "<response><error_code>0</error_code><print_data>&lt;&lt;&lt;&lt;&lt;&lt;&lt;</print_data></respons");
}

TEST_F(SvCMDtoXmlTest, FailsWithoutMemory)
{
    RefuseMalloc(kResponseFrame + 4 + 1);

    EXPECT_EQ(xml_.SvCMDtoXml("null errorCode=0"), "");

    EXPECT_THAT(CliLog(), ::testing::ElementsAre(ErrorLine("ToString", "malloc xml buf failed.")));
}

TEST_F(ToStringTest, RefusesASizeOf0OrLess)
{
    mxml_node_t *node = mxmlNewElement(nullptr, "a");

    EXPECT_EQ(xml_.ToString(0, node), "");
    EXPECT_EQ(xml_.ToString(-5, node), "");

    EXPECT_THAT(CliLog(), ::testing::ElementsAre(ErrorLine("ToString", "xmlLen:0 is error"),
                                                 ErrorLine("ToString", "xmlLen:-5 is error")));
    mxmlDelete(node);
}

TEST_F(ToStringTest, CutsAtTheSize)
{
    mxml_node_t *node = mxmlNewElement(nullptr, "element");
    (void)mxmlNewOpaque(node, "text");

    EXPECT_EQ(xml_.ToString(64, node), "<element>text</element>\n");
    EXPECT_EQ(xml_.ToString(10, node), "<element>");
    EXPECT_EQ(xml_.ToString(1, node), "");

    mxmlDelete(node);
}

TEST_F(ToStringTest, AddsNoLineBreaksWhateverTheMarginWas)
{
    mxml_node_t *node = mxmlNewElement(nullptr, "element");
    for (int i = 0; i < 20; i++) {
        mxmlElementSetAttr(node, ("attribute" + std::to_string(i)).c_str(), "value of an attribute");
    }
    mxmlSetWrapMargin(40);

    const std::string text = xml_.ToString(4096, node);

    EXPECT_EQ(text.find('\n'), text.size() - 1);
    mxmlDelete(node);
}

TEST_F(AnalysisXmlTest, ReadsAChildOfTheRoot)
{
    const std::string request = "<req><cmd>disk_info</cmd><agrs>show disk_info disk_id=3</agrs></req>";

    EXPECT_EQ(xml_.AnalysisXml(request, "cmd"), "disk_info");
    EXPECT_EQ(xml_.AnalysisXml(request, "agrs"), "show disk_info disk_id=3");
    EXPECT_THAT(CliLog(), ::testing::IsEmpty());
}

TEST_F(AnalysisXmlTest, FindsNothingElsewhere)
{
    EXPECT_EQ(xml_.AnalysisXml("<req><cmd>x</cmd></req>", "agrs"), "");
    EXPECT_EQ(xml_.AnalysisXml("<req><a><agrs>x</agrs></a></req>", "agrs"), "") << "below a child";
    EXPECT_EQ(xml_.AnalysisXml("<agrs>x</agrs>", "agrs"), "") << "the root itself";

    EXPECT_THAT(CliLog(), ::testing::Each(ErrorLine("AnalysisXml", "Not found element agrs")));
    EXPECT_EQ(CliLog().size(), 3u);
}

TEST_F(AnalysisXmlTest, TakesTheFirstOfSeveral)
{
    EXPECT_EQ(xml_.AnalysisXml("<req><cmd>a</cmd><cmd>b</cmd></req>", "cmd"), "a");
}

TEST_F(AnalysisXmlTest, FindsNothingInWhatDoesNotParse)
{
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(xml_.AnalysisXml("", "cmd"), "");
    EXPECT_EQ(xml_.AnalysisXml("no document", "cmd"), "");
    EXPECT_EQ(xml_.AnalysisXml("<req><cmd>x</req>", "cmd"), "");

    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(CliLog(), ::testing::Each(ErrorLine("AnalysisXml", "Not found element cmd")));
    EXPECT_EQ(CliLog().size(), 3u);
}

TEST_F(AnalysisXmlTest, GivesAnEmptyTextForAnElementWithoutOne)
{
    EXPECT_EQ(xml_.AnalysisXml("<req><cmd/></req>", "cmd"), "");
    EXPECT_EQ(xml_.AnalysisXml("<req><cmd></cmd></req>", "cmd"), "");
    EXPECT_EQ(xml_.AnalysisXml("<req><cmd><a>x</a></cmd></req>", "cmd"), "");

    EXPECT_THAT(CliLog(), ::testing::IsEmpty());
}
