#include "cli/common/ConfigMgr.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include "cli_test_support.h"
#include "infrastructure/common/corvane_raii.h"

using CORVANE_CLI::ConfigMgr;
using CORVANE_CLI::ConfigNode;
using CORVANE_CLI::InfCfgMakeBakPath;
using CORVANE_CLI::InfCfgRename;
using CORVANE_CLI::IntCfgSaveInner;
using CORVANE_CLI::XmlFormat;

namespace {

constexpr const char *kDocument = "<?xml version=\"1.0\"?><settings><disk slot=\"1\"><size type=\"int\">42</size>"
                                  "<name type=\"string\">left one</name><on type=\"bool\">True</on></disk>"
                                  "<disk slot=\"2\"><size>7</size></disk><disk><empty/></disk></settings>";
/** The text that a tree is saved into. */
constexpr size_t kSaveSize = 32768;

/** Closes the file, and says that it did not. */
int CloseAndFail(std::FILE *file)
{
    (void)std::fclose(file);
    errno = ENOSPC;
    return EOF;
}

std::FILE *NoFile(const char *, const char *)
{
    errno = EMFILE;
    return nullptr;
}

} // namespace

class ConfigTest : public CorvaneTest {
protected:
    ConfigTest() : path_(Prefix() + "/config/settings.xml") {}

    /** Loads a document. */
    ConfigNode Load(const std::string &text)
    {
        WriteFile(path_, text);
        EXPECT_EQ(config_.ReadConfig(path_), 0);
        return config_.GetConfig();
    }
    ConfigNode LoadDisks() { return Load(kDocument).Get("settings").Get("disk"); }
    /** The first disk of the document. */
    ConfigNode FirstDisk() { return LoadDisks().WithAttr("slot", "1"); }

    std::string path_;
    ConfigMgr config_;
};

class ReadConfigTest : public ConfigTest {};
class ConfigNodeTest : public ConfigTest {};
class SaveConfigTest : public ConfigTest {};
class SaveConfigDirectTest : public ConfigTest {};
class InfCfgTest : public ConfigTest {};

TEST_F(ReadConfigTest, LoadsAFileOnce)
{
    WriteFile(path_, "<?xml version=\"1.0\"?><a>1</a>");
    WriteFile(path_ + "2", "<?xml version=\"1.0\"?><a>2</a>");

    EXPECT_EQ(config_.ReadConfig(path_), 0);
    EXPECT_EQ(config_.ReadConfig(path_ + "2"), 0) << "a tree is there";

    EXPECT_EQ(config_.GetConfig().Get("a").GetInt(), 1);
    config_.Release();
    EXPECT_EQ(config_.GetConfig().Size(), 0);
    EXPECT_EQ(config_.ReadConfig(path_ + "2"), 0);
    EXPECT_EQ(config_.GetConfig().Get("a").GetInt(), 2);
}

TEST_F(ReadConfigTest, GivesErrnoForAFileThatDoesNotOpen)
{
    EXPECT_EQ(config_.ReadConfig(path_), ENOENT);
    g_osCalls.fopen = NoFile;
    EXPECT_EQ(config_.ReadConfig(path_), EMFILE);

    EXPECT_EQ(config_.GetConfig().Size(), 0);
}

TEST_F(ReadConfigTest, KeepsNoTreeOfAFileThatDoesNotParse)
{
    ::testing::internal::CaptureStderr();
    const ConfigNode none = Load("<a><b></a>");
    (void)::testing::internal::GetCapturedStderr();

    EXPECT_EQ(none.Size(), 0);
    WriteFile(path_, "<?xml version=\"1.0\"?><a>1</a>");
    EXPECT_EQ(config_.ReadConfig(path_), 0);
    EXPECT_EQ(config_.GetConfig().Size(), 1);
}

TEST_F(ReadConfigTest, EndsWithATreeThatNestsDeeperThanTheStack)
{
    constexpr int depth = 300000;
    std::string document = "<?xml version=\"1.0\"?>";
    for (int i = 0; i < depth; i++) {
        document += "<a>";
    }
    for (int i = 0; i < depth; i++) {
        document += "</a>";
    }

    EXPECT_EQ(Load(document).Get("a").Size(), 1);
    config_.Release();

    EXPECT_EQ(config_.GetConfig().Size(), 0);
}

TEST_F(ReadConfigTest, MakesATreeOnRequest)
{
    EXPECT_EQ(config_.GetConfig().Size(), 0);

    ConfigNode root = config_.CreateConfig();

    EXPECT_EQ(root.Size(), 1);
    ASSERT_EQ(root.Create("a").SetInt(3), 0);
    EXPECT_EQ(config_.CreateConfig().Get("a").GetInt(), 3) << "the same tree";
    EXPECT_EQ(config_.GetConfig().Get("a").GetInt(), 3);
}

TEST_F(ConfigNodeTest, IsHarmlessWhenEmpty)
{
    ConfigNode none;
    std::string text = "old";
    int number = 5;
    bool flag = true;

    EXPECT_EQ(none.Size(), 0);
    EXPECT_EQ(none.Get("a").Size(), 0);
    EXPECT_EQ(none[0].Size(), 0);
    EXPECT_EQ(none[-1].Size(), 0);
    EXPECT_EQ(none.WithAttr("a", "").Size(), 0);
    EXPECT_EQ(none.GetAttr("a"), "");
    EXPECT_EQ(none.GetString(), "");
    EXPECT_FALSE(none.GetBool());
    EXPECT_EQ(none.GetInt(), 0);
    EXPECT_EQ(none.GetString(text), -1);
    EXPECT_EQ(none.GetInt(number), -1);
    EXPECT_EQ(none.GetBool(flag), -1);
    EXPECT_EQ(none.SetAttr("a", "b"), 0);
    EXPECT_EQ(none.SetString("a"), 0);
    EXPECT_EQ(none.SetInt(1), 0);
    EXPECT_EQ(none.SetBool(true), 0);
    EXPECT_EQ(none.Delete(), 0);
    EXPECT_EQ(none.Create("a").Size(), 0);
    EXPECT_EQ(ConfigNode(static_cast<mxml_node_t *>(nullptr)).Size(), 0);
    EXPECT_EQ(text, "old");
    EXPECT_EQ(number, 5);
    EXPECT_TRUE(flag);
}

TEST_F(ConfigNodeTest, FindsDirectChildrenOfTheFirstNode)
{
    const ConfigNode disks = LoadDisks();

    EXPECT_EQ(disks.Size(), 3);
    EXPECT_EQ(config_.GetConfig().Get("disk").Size(), 0) << "not below a child";
    EXPECT_EQ(config_.GetConfig().Get("settings").Get("size").Size(), 0);
    EXPECT_EQ(disks[0].Get("missing").Size(), 0);
}

TEST_F(ConfigNodeTest, OrdersChildrenByAddress)
{
    mxml_node_t *root = mxmlNewElement(nullptr, "root");
    std::vector<mxml_node_t *> children;
    for (int i = 0; i < 8; i++) {
        children.push_back(mxmlNewElement(nullptr, "child"));
    }
    std::sort(children.begin(), children.end());
    for (const size_t i : {3, 1, 7, 0, 2, 6, 5, 4}) { // the order of the document
        mxmlElementSetAttr(children[i], "rank", std::to_string(i).c_str());
        mxmlAdd(root, MXML_ADD_AFTER, MXML_ADD_TO_PARENT, children[i]);
    }

    const ConfigNode found = ConfigNode(root).Get("child");

    ASSERT_EQ(found.Size(), 8);
    for (int i = 0; i < found.Size(); i++) {
        EXPECT_EQ(found[i].GetAttr("rank"), std::to_string(i));
    }
    CORVANE_CLI::MymxmlDelete(root);
}

TEST_F(ConfigNodeTest, PicksOneByIndex)
{
    const ConfigNode disks = LoadDisks();

    EXPECT_EQ(disks[0].Size(), 1);
    EXPECT_EQ(disks[2].Size(), 1);
    EXPECT_EQ(disks[3].Size(), 0);
    EXPECT_EQ(disks[-1].Size(), 0);
}

TEST_F(ConfigNodeTest, FiltersByAttribute)
{
    ConfigNode disks = LoadDisks();

    EXPECT_EQ(disks.WithAttr("slot", "2").Size(), 1);
    EXPECT_EQ(disks.WithAttr("slot", "2").Get("size").GetInt(), 7);
    EXPECT_EQ(disks.WithAttr("slot", "3").Size(), 0);
    EXPECT_EQ(disks.WithAttr("other", "").Size(), 0) << "a missing attribute is no empty one";
    EXPECT_EQ(disks.WithAttr("slot", "1").GetAttr("slot"), "1");
    EXPECT_EQ(disks.WithAttr("slot", "1").GetAttr("other"), "");
    EXPECT_EQ(disks.Size(), 3);
}

TEST_F(ConfigNodeTest, ReadsTexts)
{
    const ConfigNode disk = FirstDisk();

    EXPECT_EQ(disk.Get("name").GetString(), "left one");
    EXPECT_EQ(disk.Get("size").GetString(), "42");
    EXPECT_EQ(disk.GetString(), "") << "its first child is an element";
    EXPECT_EQ(disk.Get("size").GetInt(), 42);
    EXPECT_EQ(disk.Get("name").GetInt(), 0);
    EXPECT_TRUE(disk.Get("on").GetBool());
    EXPECT_FALSE(disk.Get("size").GetBool());
}

TEST_F(ConfigNodeTest, ReadsNumbersAndSwitchesWithoutThrowing)
{
    const ConfigNode root =
        Load("<?xml version=\"1.0\"?><r><a>TRUE</a><b>false</b><c/><d>-12x</d><e>x</e><f>1</f><g></g></r>").Get("r");

    EXPECT_TRUE(root.Get("a").GetBool());
    EXPECT_FALSE(root.Get("b").GetBool());
    EXPECT_FALSE(root.Get("c").GetBool());
    EXPECT_FALSE(root.Get("f").GetBool());
    EXPECT_EQ(root.Get("c").GetInt(), 0);
    EXPECT_EQ(root.Get("d").GetInt(), -12);
    EXPECT_EQ(root.Get("e").GetInt(), 0);
    EXPECT_EQ(root.Get("g").GetInt(), 0);
    EXPECT_EQ(root.Get("g").GetString(), "");
}

TEST_F(ConfigNodeTest, ChecksTheType)
{
    const ConfigNode disk = FirstDisk();
    std::string text = "old";
    int number = -5;
    bool flag = false;

    EXPECT_EQ(disk.Get("name").GetInt(number), -1);
    EXPECT_EQ(disk.Get("on").GetInt(number), -1);
    EXPECT_EQ(disk.Get("size").GetString(text), -1);
    EXPECT_EQ(disk.Get("size").GetBool(flag), -1);
    EXPECT_EQ(number, -5);
    EXPECT_EQ(text, "old");
    EXPECT_FALSE(flag);

    EXPECT_EQ(disk.Get("size").GetInt(number), 0);
    EXPECT_EQ(disk.Get("name").GetString(text), 0);
    EXPECT_EQ(disk.Get("on").GetBool(flag), 0);
    EXPECT_EQ(number, 42);
    EXPECT_EQ(text, "left one");
    EXPECT_TRUE(flag);
}

TEST_F(ConfigNodeTest, ChecksWhatHasNoType)
{
    const ConfigNode root =
        Load("<?xml version=\"1.0\"?><r><a>12</a><b>FALSE</b><c/><d>yes</d><e>x</e><f>TrUe</f></r>").Get("r");
    std::string text = "old";
    int number = -5;
    bool flag = true;

    EXPECT_EQ(root.Get("a").GetInt(number), 0);
    EXPECT_EQ(number, 12);
    EXPECT_EQ(root.Get("e").GetInt(number), 0) << "converted all the same";
    EXPECT_EQ(number, 0);
    EXPECT_EQ(root.Get("a").GetString(text), 0);
    EXPECT_EQ(text, "12");
    EXPECT_EQ(root.Get("b").GetBool(flag), 0);
    EXPECT_FALSE(flag);
    EXPECT_EQ(root.Get("f").GetBool(flag), 0);
    EXPECT_TRUE(flag);
    EXPECT_EQ(root.Get("d").GetBool(flag), -1);
    EXPECT_EQ(root.Get("c").GetInt(number), -1);
    EXPECT_EQ(root.Get("c").GetString(text), -1);
    EXPECT_EQ(root.Get("c").GetBool(flag), -1);
    EXPECT_TRUE(flag);
}

TEST_F(ConfigNodeTest, SetsTypedValues)
{
    ConfigNode root = config_.CreateConfig().Create("r");
    ConfigNode text = root.Create("text");
    ConfigNode number = root.Create("number");
    ConfigNode flag = root.Create("flag");

    EXPECT_EQ(text.SetString("a b"), 0);
    EXPECT_EQ(number.SetInt(INT_MIN), 0);
    EXPECT_EQ(flag.SetBool(true), 0);

    EXPECT_EQ(text.GetAttr("type"), "string");
    EXPECT_EQ(text.GetString(), "a b");
    EXPECT_EQ(number.GetAttr("type"), "int");
    EXPECT_EQ(number.GetString(), "-2147483648");
    EXPECT_EQ(number.GetInt(), INT_MIN);
    EXPECT_EQ(flag.GetAttr("type"), "bool");
    EXPECT_EQ(flag.GetString(), "true");
    EXPECT_EQ(flag.SetBool(false), 0);
    EXPECT_EQ(flag.GetString(), "false");
}

TEST_F(ConfigNodeTest, ChangesATextBehindAnElement)
{
    WriteFile(path_, "<r><a><b/>old</a></r>");
    ConfigMgr config;
    ASSERT_EQ(config.ReadConfig(path_), 0);

    EXPECT_EQ(config.GetConfig().Get("a").SetString("new"), 0);

    ASSERT_EQ(config.SaveConfigDirect(path_), 0);
    EXPECT_THAT(ReadFile(path_), ::testing::HasSubstr("<b />new</a>"));
    EXPECT_THAT(ReadFile(path_), ::testing::Not(::testing::HasSubstr("old")));
}

TEST_F(ConfigNodeTest, ChangesTheTextThatIsThere)
{
    const ConfigNode disk = FirstDisk();

    EXPECT_EQ(disk.Get("size").SetString("new"), 0);

    EXPECT_EQ(disk.Get("size").GetString(), "new");
    EXPECT_EQ(disk.Get("size").GetAttr("type"), "string");
    ASSERT_EQ(config_.SaveConfigDirect(path_), 0);
    EXPECT_THAT(ReadFile(path_), ::testing::HasSubstr("<size type=\"string\">new</size>")) << "and no second one";
}

TEST_F(ConfigNodeTest, SetsAttributes)
{
    ConfigNode disk = FirstDisk();

    EXPECT_EQ(disk.SetAttr("slot", "9"), 0);
    EXPECT_EQ(disk.SetAttr("new", "x"), 0);

    EXPECT_EQ(LoadDisks().WithAttr("slot", "9").GetAttr("new"), "x");
}

TEST_F(ConfigNodeTest, DeletesTheFirstNode)
{
    ConfigNode disks = LoadDisks();
    const std::string second = disks[1].GetAttr("slot");

    EXPECT_EQ(disks.Delete(), 0);

    EXPECT_EQ(disks.Size(), 2);
    EXPECT_EQ(disks.GetAttr("slot"), second);
    EXPECT_EQ(config_.GetConfig().Get("settings").Get("disk").Size(), 2);
    EXPECT_EQ(disks.Delete(), 0);
    EXPECT_EQ(disks.Delete(), 0);
    EXPECT_EQ(disks.Delete(), 0);
    EXPECT_EQ(disks.Size(), 0);
    EXPECT_EQ(config_.GetConfig().Get("settings").Get("disk").Size(), 0);
}

TEST(MymxmlDeleteTest, TakesANodeOutOfItsTree)
{
    mxml_node_t *root = mxmlLoadString(nullptr, "<a><b><c>x</c><d/></b><e/></a>", MXML_OPAQUE_CALLBACK);

    CORVANE_CLI::MymxmlDelete(mxmlGetFirstChild(root));

    EXPECT_STREQ(mxmlGetElement(mxmlGetFirstChild(root)), "e");
    CORVANE_CLI::MymxmlDelete(root);
    CORVANE_CLI::MymxmlDelete(nullptr);
}

struct FormatCase {
    const char *name;
    const char *text;
    const char *formatted;
};

class XmlFormatTest : public ::testing::TestWithParam<FormatCase> {};

TEST_P(XmlFormatTest, WritesLinesAndBlanks)
{
    EXPECT_EQ(XmlFormat(GetParam().text), GetParam().formatted);
}

INSTANTIATE_TEST_SUITE_P(
    Documents, XmlFormatTest,
    ::testing::Values(FormatCase{"Empty", "", ""}, FormatCase{"TextAlone", "a b", "ab"},
                      FormatCase{"OneElement", "<a/>", "<a/>\n"},
                      FormatCase{"ElementWithText", "<a>1</a>", "<a>1</a>\n"},
                      FormatCase{"BlanksInTextGo", "<a x=\"1 2\"> b\tc\nd </a>", "<a x=\"1 2\">bcd</a>\n"},
                      FormatCase{"LineFeedInATagStays", "<a\nx=\"1\"/>", "<a\nx=\"1\"/>\n"},
                      // The first bracket leaves the depth at 0.
                      FormatCase{"Nested", "<a><b><c/></b></a>", "<a>\n<b>\n    <c/>\n</b>\n</a>\n"},
                      FormatCase{"Declaration", "<?xml version=\"1.0\"?>\n<a>\n<b/>\n</a>\n",
                                 "<?xml version=\"1.0\"?>\n<a>\n    <b/>\n</a>\n"},
                      FormatCase{"Siblings", "<r><a/><b/></r>", "<r>\n<a/>\n<b/>\n</r>\n"},
                      // A closing tag behind a text leaves the depth one higher.
                      FormatCase{"TextsIndentMoreAndMore", "<?xml?><r><a>1</a><b>2</b><c/></r>",
                                 "<?xml?>\n<r>\n    <a>1</a>\n        <b>2</b>\n            <c/>\n        </r>\n"},
                      FormatCase{"NegativeDepth", "<a></a></b></c><d/>", "<a>\n</a>\n</b>\n</c>\n<d/>\n"},
                      FormatCase{"TextBehindATag", "<a>x<b/>y</a>", "<a>x<b/>y</a>\n"}),
    [](const ::testing::TestParamInfo<FormatCase> &param) { return param.param.name; });

TEST(XmlFormatPartsTest, RemoveSpaceOutsideOfTags)
{
    EXPECT_EQ(CORVANE_CLI::XmlRmSpace(" \t\n<a b = \"c\td\"> e \n f\r</a> "), "<a b = \"c\td\">ef\r</a>");
}

TEST(XmlFormatPartsTest, SeeTheEndsOfElements)
{
    EXPECT_TRUE(CORVANE_CLI::IsXmlLastNodeInOneLine("/><", 2));
    EXPECT_FALSE(CORVANE_CLI::IsXmlLastNodeInOneLine("a><", 2));
    EXPECT_FALSE(CORVANE_CLI::IsXmlLastNodeInOneLine("><", 1));
    EXPECT_TRUE(CORVANE_CLI::IsXmlNodeEndStr("</", 0));
    EXPECT_FALSE(CORVANE_CLI::IsXmlNodeEndStr("<a", 0));
    EXPECT_FALSE(CORVANE_CLI::IsXmlNodeEndStr("<", 0));
}

TEST(XmlFormatPartsTest, IndentByFour)
{
    std::string out = "x";

    CORVANE_CLI::XmlAddSpace(2, out);
    CORVANE_CLI::XmlAddSpace(0, out);
    CORVANE_CLI::XmlAddSpace(-3, out);

    EXPECT_EQ(out, "x        ");
}

TEST_F(InfCfgTest, MakesABackupNameOf1024Bytes)
{
    const std::string longest(1020, 'p');

    const MallocPtr<char> name(InfCfgMakeBakPath(longest.c_str()));
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(std::string(name.get()), longest + ".bak");
    EXPECT_EQ(InfCfgMakeBakPath((longest + "p").c_str()), nullptr);
    EXPECT_EQ(InfCfgMakeBakPath(nullptr), nullptr);
    const MallocPtr<char> shortest(InfCfgMakeBakPath(""));
    EXPECT_STREQ(shortest.get(), ".bak");
}

TEST_F(InfCfgTest, MakesNoBackupNameWithoutMemory)
{
    RefuseMalloc(6); // "a.bak"

    EXPECT_EQ(InfCfgMakeBakPath("a"), nullptr);
}

TEST_F(InfCfgTest, CarriesTheModeOver)
{
    const std::string from = Prefix() + "/from";
    const std::string to = Prefix() + "/to";
    WriteFile(from, "new");
    WriteFile(to, "old");
    ASSERT_EQ(chmod(to.c_str(), 0604), 0);

    EXPECT_EQ(InfCfgRename(from.c_str(), to.c_str()), 0);

    EXPECT_EQ(ReadFile(to), "new");
    EXPECT_EQ(ModeOf(to), 0604u);
    EXPECT_FALSE(std::filesystem::exists(from));
}

TEST_F(InfCfgTest, NeedsATarget)
{
    const std::string from = Prefix() + "/from";
    WriteFile(from, "new");

    EXPECT_EQ(InfCfgRename(from.c_str(), (Prefix() + "/missing").c_str()), -1);
    EXPECT_EQ(InfCfgRename(nullptr, from.c_str()), -1);
    EXPECT_EQ(InfCfgRename(from.c_str(), nullptr), -1);

    EXPECT_TRUE(std::filesystem::exists(from));
}

TEST_F(InfCfgTest, FailsWhenTheSystemRefuses)
{
    const std::string from = Prefix() + "/from";
    const std::string to = Prefix() + "/to";
    WriteFile(from, "new");
    WriteFile(to, "old");

    g_osCalls.chmod = [](const char *, mode_t) { return -1; };
    EXPECT_EQ(InfCfgRename(from.c_str(), to.c_str()), -1);
    g_osCalls.chmod = chmod;
    g_osCalls.rename = [](const char *, const char *) { return -1; };
    EXPECT_EQ(InfCfgRename(from.c_str(), to.c_str()), -1);

    EXPECT_EQ(ReadFile(to), "old");
}

TEST_F(SaveConfigTest, ReplacesTheFileAndKeepsItsMode)
{
    ConfigNode disk = FirstDisk();
    ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
    (void)disk.Get("size").SetInt(43);

    EXPECT_EQ(config_.SaveConfig(path_), 0);

    EXPECT_EQ(ReadFile(path_), "<?xml version=\"1.0\"?>\n"
                               "<settings>\n"
                               "    <disk slot=\"1\">\n"
                               "        <size type=\"int\">43</size>\n"
                               "            <name type=\"string\">leftone</name>\n"
                               "                <on type=\"bool\">True</on>\n"
                               "                </disk>\n"
                               "                <disk slot=\"2\">\n"
                               "                    <size>7</size>\n"
                               "                    </disk>\n"
                               "                    <disk>\n"
                               "                        <empty />\n"
                               "                    </disk>\n"
                               "                </settings>\n");
    EXPECT_EQ(ModeOf(path_), 0640u);
    EXPECT_FALSE(std::filesystem::exists(path_ + ".bak"));
}

TEST_F(SaveConfigTest, FailsForAPathThatDoesNotExistYet)
{
    (void)FirstDisk();
    const std::string other = Prefix() + "/config/other.xml";

    EXPECT_EQ(config_.SaveConfig(other), -1);

    EXPECT_FALSE(std::filesystem::exists(other));
    EXPECT_FALSE(std::filesystem::exists(other + ".bak"));
}

TEST_F(SaveConfigTest, GivesTheNegatedErrno)
{
    (void)FirstDisk();

    EXPECT_EQ(config_.SaveConfig(Prefix() + "/missing/settings.xml"), -ENOENT);
    EXPECT_EQ(config_.SaveConfig(std::string(1021, 'p')), -1) << "no backup name";
    EXPECT_EQ(config_.SaveConfig(std::string(1020, 'p')), -ENAMETOOLONG);
}

TEST_F(SaveConfigTest, RemovesABackupThatDoesNotClose)
{
    (void)FirstDisk();
    g_osCalls.fclose = CloseAndFail;

    EXPECT_EQ(config_.SaveConfig(path_), -ENOSPC);

    EXPECT_EQ(ReadFile(path_), kDocument) << "whole";
    EXPECT_FALSE(std::filesystem::exists(path_ + ".bak"));
}

TEST_F(SaveConfigTest, RemovesABackupThatIsNotWhole)
{
    (void)FirstDisk();
    g_osCalls.fwrite = [](const void *, size_t, size_t, std::FILE *) -> size_t {
        errno = EDQUOT;
        return 0;
    };

    EXPECT_EQ(config_.SaveConfig(path_), -EDQUOT);

    EXPECT_EQ(ReadFile(path_), kDocument);
    EXPECT_FALSE(std::filesystem::exists(path_ + ".bak"));
}

TEST_F(SaveConfigTest, RemovesABackupThatDoesNotMove)
{
    (void)FirstDisk();
    g_osCalls.rename = [](const char *, const char *) { return -1; };

    EXPECT_EQ(config_.SaveConfig(path_), -1);

    EXPECT_EQ(ReadFile(path_), kDocument);
    EXPECT_FALSE(std::filesystem::exists(path_ + ".bak"));
}

TEST_F(SaveConfigTest, FailsWithoutMemory)
{
    (void)FirstDisk();
    RefuseMalloc(kSaveSize);
    EXPECT_EQ(config_.SaveConfig(path_), -1);
    EXPECT_EQ(config_.SaveConfigDirect(path_), ENOMEM);
    RefuseMalloc(path_.size() + 5);
    EXPECT_EQ(config_.SaveConfig(path_), -1);

    EXPECT_EQ(ReadFile(path_), kDocument);
}

TEST_F(SaveConfigTest, LeavesTheFileWithoutATree)
{
    WriteFile(path_, "text");

    EXPECT_NE(config_.SaveConfig(path_), 0);

    EXPECT_EQ(ReadFile(path_), "text");
    EXPECT_FALSE(std::filesystem::exists(path_ + ".bak"));
}

TEST_F(SaveConfigTest, CutsWhatDoesNotFit)
{
    ConfigNode root = config_.CreateConfig().Create("r");
    (void)root.SetString(std::string(40000, 'x'));
    WriteFile(path_, "");

    ASSERT_EQ(config_.SaveConfig(path_), 0);

    const std::string text = ReadFile(path_);
    EXPECT_THAT(text, ::testing::HasSubstr("<r type=\"string\">xxx"));
    EXPECT_EQ(text.find("</r>"), std::string::npos);
    EXPECT_LE(text.size(), kSaveSize);
    EXPECT_GE(text.size(), kSaveSize - 2) << "the declaration's line feed goes, the one of the format comes";
}

TEST_F(SaveConfigTest, AddsNoLineBreaksWhateverTheMarginWas)
{
    ConfigNode root = config_.CreateConfig().Create("r");
    for (int i = 0; i < 20; i++) {
        (void)root.SetAttr("attribute" + std::to_string(i), "value of an attribute");
    }
    WriteFile(path_, "");
    mxmlSetWrapMargin(40);

    ASSERT_EQ(config_.SaveConfig(path_), 0);

    const std::string text = ReadFile(path_);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << text;
}

TEST_F(SaveConfigDirectTest, WritesTheFileItself)
{
    (void)Load("<?xml version=\"1.0\"?><a><b>1</b></a>");
    const std::string other = Prefix() + "/config/other.xml";

    EXPECT_EQ(config_.SaveConfigDirect(other), 0);

    EXPECT_EQ(ReadFile(other), "<?xml version=\"1.0\"?>\n<a>\n    <b>1</b>\n    </a>\n");
    EXPECT_FALSE(std::filesystem::exists(other + ".bak"));
}

TEST_F(SaveConfigDirectTest, DoesNothingWithoutATree)
{
    EXPECT_EQ(config_.SaveConfigDirect(path_), 0);

    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(SaveConfigDirectTest, GivesErrno)
{
    (void)FirstDisk();

    EXPECT_EQ(config_.SaveConfigDirect(Prefix() + "/missing/settings.xml"), ENOENT);
    g_osCalls.fclose = CloseAndFail;
    EXPECT_EQ(config_.SaveConfigDirect(path_), ENOSPC);
}
