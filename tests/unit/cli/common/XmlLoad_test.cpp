#include "cli/common/XmlLoad.h"

#include <cstring>
#include <memory>

#include "infrastructure/common/corvane_raii.h"
#include "support/corvane_fixture.h"

using CORVANE_CLI::LoadXmlFile;
using CORVANE_CLI::LoadXmlText;

namespace {

struct MxmlDelete {
    void operator()(mxml_node_t *node) const noexcept { mxmlDelete(node); }
};
using MxmlPtr = std::unique_ptr<mxml_node_t, MxmlDelete>;

/** A tree in one line: elements with what is in them, texts in quotes. */
std::string Shown(mxml_node_t *node)
{
    if (node == nullptr) {
        return "nothing";
    }
    if (mxmlGetType(node) == MXML_OPAQUE) {
        return std::string("'") + mxmlGetOpaque(node) + "'";
    }
    std::string text = std::string(mxmlGetElement(node)) + "(";
    for (mxml_node_t *child = mxmlGetFirstChild(node); child != nullptr; child = mxmlGetNextSibling(child)) {
        text += Shown(child);
    }
    return text + ")";
}

/** In memory of its own, so that a sanitizer sees what is read behind its end. */
std::string Loaded(const std::string &text)
{
    const std::unique_ptr<char[]> copy(new char[text.size() + 1]);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    mxmlSetErrorCallback([](const char *) {});
    return Shown(MxmlPtr(LoadXmlText(copy.get())).get());
}

} // namespace

class LoadXmlFileTest : public CorvaneTest {
protected:
    std::string Loaded(const std::string &text)
    {
        WriteFile(Prefix() + "/file.xml", text);
        const FilePtr file(std::fopen((Prefix() + "/file.xml").c_str(), "re"));
        mxmlSetErrorCallback([](const char *) {});
        return Shown(MxmlPtr(LoadXmlFile(file.get())).get());
    }
};

TEST(LoadXmlTextTest, GivesTheRoot)
{
    EXPECT_EQ(Loaded("<a><b>1</b><c x=\"y\"/></a>"), "a(b('1')c())");
    EXPECT_EQ(Loaded("<a/>"), "a()");
    EXPECT_EQ(Loaded("<a><!-- x --><b/></a>"), "a(!-- x --()b())");
}

TEST(LoadXmlTextTest, GivesNothingForWhatDoesNotParse)
{
    for (const char *text : {"", "text", " <a/>", "x<a/>", "<a><b></a>", "</a>", "<a></a></a>", "<a x='1' &></a>",
                             "<a b", "<a b='1", "<a><b>", "&lt;"}) {
        EXPECT_EQ(Loaded(text), "nothing") << text;
    }
}

TEST(LoadXmlTextTest, ARootNeedNotBeClosed)
{
    EXPECT_EQ(Loaded("<a>"), "a()");
    EXPECT_EQ(Loaded("<a x=\"y\"><b>1</b>\n"), "a(b('1'))");
    EXPECT_EQ(Loaded("<a>1<b/>"), "a('1'b())");
    for (const char *text : {"<?xml version=\"1.0\"?><a>", "<!DOCTYPE x><a><b/>", "x<a>", " <a>", "<a><!-- x", "<a>1<",
                             "<a b", "<a b='1", "<a><b/></", "<a>&bad;", "<a><![CDATA[x", "<a/><b>"}) {
        EXPECT_EQ(Loaded(text), "nothing") << text;
    }
}

TEST(LoadXmlTextTest, GivesNothingForASecondRoot)
{
    EXPECT_EQ(Loaded("<a/><b/>"), "nothing");
    EXPECT_EQ(Loaded("<a>1</a> and <b/>"), "nothing");
    EXPECT_EQ(Loaded("<!-- x --><a/>"), "nothing");
    EXPECT_EQ(Loaded("<a/><!-- x -->"), "nothing");
    EXPECT_EQ(Loaded("<![CDATA[x]]><a/>"), "nothing");
}

TEST(LoadXmlTextTest, PutsEverythingBelowADeclaration)
{
    EXPECT_EQ(Loaded("<?xml version=\"1.0\"?><a>1</a>"), "?xml version=\"1.0\"?(a('1'))");
    EXPECT_EQ(Loaded("<?xml?>\n<!-- x -->\n<a/> b <c/>\n"), "?xml?('\n'!-- x --()'\n'a()' b 'c())");
    EXPECT_EQ(Loaded("<!DOCTYPE x><a/>"), "!DOCTYPE x(a())");
    EXPECT_EQ(Loaded("<?other?><a/>"), "?other?(a())");
}

TEST(LoadXmlTextTest, DropsTextBehindTheRoot)
{
    EXPECT_EQ(Loaded("<a>1</a>\n"), "a('1')");
    EXPECT_EQ(Loaded("<a>1</a>" + std::string(100000, 'x')), "a('1')");
}

/** The library would go on in two-byte characters, behind the end of the text. */
TEST(LoadXmlTextTest, GivesNothingForBytesOfOtherEncodings)
{
    for (const char *text : {"\xFF\xFE<a/>", "\xFE\xFF<a/>", "<a>\xFF\xFE</a>", "<a>\xFE\xFF", "<a x='\xFF\xFE'/>",
                             "<a/>\xFF\xFE", "\xFF", "\xFE", "<a>\xFF</a>"}) {
        EXPECT_EQ(Loaded(text), "nothing");
    }
    EXPECT_EQ(Loaded("<a>\xC3\xBC</a>"), "a('\xC3\xBC')") << "two bytes of UTF-8";
}

TEST_F(LoadXmlFileTest, LoadsTheSame)
{
    EXPECT_EQ(Loaded("<?xml version=\"1.0\"?>\n<a>1</a>\n"), "?xml version=\"1.0\"?('\n'a('1'))");
    EXPECT_EQ(Loaded("<a>1</a>\n"), "a('1')");
    EXPECT_EQ(Loaded("<a><b>1</b>"), "a(b('1'))");
    EXPECT_EQ(Loaded("<a><b>"), "nothing");
    EXPECT_EQ(Loaded("<a/><b/>"), "nothing");
    EXPECT_EQ(Loaded(""), "nothing");
}

TEST_F(LoadXmlFileTest, ReadsTwoByteCharacters)
{
    EXPECT_EQ(Loaded(std::string("\xFF\xFE<\0a\0/\0>\0", 10)), "a()");
    EXPECT_EQ(Loaded(std::string("\xFF\xFE<\0a\0/\0", 8)), "nothing");
}
