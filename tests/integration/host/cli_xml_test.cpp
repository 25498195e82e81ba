#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>

#include "cli_names.h"
#include "host_fixture.h"

namespace {

namespace fs = std::filesystem;

/** A handle of nodes: its list is all it has. */
struct Nodes {
    std::vector<void *> list;
};

class CliXmlTest : public HostTest {
protected:
    void SetUp() override { Open(); }

    std::string Request(const std::string &cmd, const std::string &param)
    {
        return CliFunction<std::string(void *, const std::string &, const std::string &)>(
            "C::XmlModule::CliCMDtoXml(S const&, S const&)")(&module_, cmd, param);
    }
    std::string Response(const std::string &text)
    {
        return CliFunction<std::string(void *, const std::string &)>("C::XmlModule::SvCMDtoXml(S const&)")(&module_,
                                                                                                           text);
    }
    std::string Text(const std::string &xml, const std::string &key)
    {
        return CliFunction<std::string(void *, const std::string &, const std::string &)>(
            "C::XmlModule::AnalysisXml(S const&, S const&)")(&module_, xml, key);
    }
    static std::string Formatted(const std::string &text)
    {
        return CliFunction<std::string(std::string)>("C::XmlFormat(S)")(text);
    }

    uint64_t module_ = 0;
};

TEST_F(CliXmlTest, RequestDocuments)
{
    EXPECT_EQ(Request("any", "show disk_info disk_id=3").substr(0, 65),
              "<req><cmd>any</cmd><agrs>show disk_info disk_id=3</agrs></req>");
    EXPECT_EQ(Request("", "x"), "");
    EXPECT_EQ(Request("x", ""), "");
    EXPECT_EQ(Request("x", std::string(0x100001, 'p')), "");
    const std::string longest(0x100000, 'p');
    EXPECT_EQ(Text(Request("x", longest), "agrs"), longest);
    EXPECT_EQ(Request(std::string(0x2000001, 'c'), "x"), "");
    EXPECT_GE(Request(std::string(0x2000000, 'c'), "x").size(), 0x2000000u);
}

TEST_F(CliXmlTest, ResponseDocuments)
{
    EXPECT_EQ(Response("text errorCode=7"),
              "<response><error_code>7</error_code><print_data>text</print_data></response>\n");
    EXPECT_EQ(Response(" errorCode=-1"), "<response><error_code>-1</error_code><print_data></print_data></response>\n");
    EXPECT_EQ(Response("a errorCode=1 errorCode=2"),
              "<response><error_code>1 errorCode=2</error_code><print_data>a</print_data></response>\n");
    EXPECT_EQ(Response("no marker"),
              "<response><error_code></error_code><print_data>no marker</print_data></response>\n");
    EXPECT_EQ(Response("errorCode=1"),
              "<response><error_code></error_code><print_data>errorCode=1</print_data></response>\n");
    EXPECT_EQ(Response(""), "");
}

TEST_F(CliXmlTest, WhatIsWrittenIsReadAgain)
{
    for (const std::string text : {"DiskLife : <1", "a & b", "> \"quoted\" '", "line\nline\n", "  blanks  ", "\t"}) {
        EXPECT_EQ(Text(Response(text + " errorCode=0"), "print_data"), text);
    }
    EXPECT_EQ(Text("<a><b>1</b><c>2</c></a>", "c"), "2");
    EXPECT_EQ(Text("<a><b>1</b><b>2</b></a>", "b"), "1") << "the first of two";
    EXPECT_EQ(Text("<a><b><c>1</c></b></a>", "c"), "") << "one level only";
    EXPECT_EQ(Text("<a><b/></a>", "b"), "");
    EXPECT_EQ(Text("<a><b></b></a>", "b"), "");
    EXPECT_EQ(Text("<a>1</a>", "a"), "") << "the root is not its own child";
    EXPECT_EQ(Text("", "a"), "");
    EXPECT_EQ(Text("not xml", "a"), "");
    EXPECT_EQ(Text("<a><b>1</b>", "c"), "");
}

TEST_F(CliXmlTest, IndentationAsItIs)
{
    EXPECT_EQ(Formatted(""), "");
    EXPECT_EQ(Formatted("<a><b>1 2\t3\n</b></a>"), "<a>\n<b>123</b>\n</a>\n");
    EXPECT_EQ(Formatted("<a><b x=\"1 2\"/><c/></a>"), "<a>\n<b x=\"1 2\"/>\n<c/>\n</a>\n");
    EXPECT_EQ(Formatted("<a><b><c><d/></c></b></a>"), "<a>\n<b>\n    <c>\n        <d/>\n    </c>\n</b>\n</a>\n");
    EXPECT_EQ(Formatted("<a>1</a><b>2</b><c>3</c>"), "<a>1</a>\n<b>2</b>\n    <c>3</c>\n");
    EXPECT_EQ(Formatted(" text "), "text");
    EXPECT_EQ(Formatted("</a></b></c>"), "</a>\n</b>\n</c>\n") << "never less than no blanks";
}

TEST_F(CliXmlTest, BackupNames)
{
    const CliFunction<char *(const char *)> make("C::InfCfgMakeBakPath(char const*)");
    char *name = make("/tmp/a.xml");
    EXPECT_STREQ(name, "/tmp/a.xml.bak");
    std::free(name);
    name = make(std::string(1020, 'p').c_str());
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(std::string(name), std::string(1020, 'p') + ".bak");
    std::free(name);
    EXPECT_EQ(make(std::string(1021, 'p').c_str()), nullptr);
}

TEST_F(CliXmlTest, RenameCarriesTheModeOver)
{
    const CliFunction<int(const char *, const char *)> rename("C::InfCfgRename(char const*, char const*)");
    WriteText("/tmp/from", "new");
    EXPECT_EQ(rename("/tmp/from", "/tmp/to"), -1) << "there is nothing to replace";
    EXPECT_TRUE(fs::exists("/tmp/from"));
    WriteText("/tmp/to", "old");
    ASSERT_EQ(chmod("/tmp/to", 0601), 0);

    EXPECT_EQ(rename("/tmp/from", "/tmp/to"), 0);

    struct stat seen {};
    ASSERT_EQ(stat("/tmp/to", &seen), 0);
    EXPECT_EQ(seen.st_mode & 07777U, 0601U);
    EXPECT_EQ(ReadText("/tmp/to"), "new");
    EXPECT_EQ(rename("/tmp/none", "/tmp/to"), -1);
}

class CliConfigMgrTest : public CliXmlTest {
protected:
    int Read(const std::string &path)
    {
        return CliFunction<int(void *, std::string)>("C::ConfigMgr::ReadConfig(S)")(&root_, path);
    }
    Nodes Tree() { return CliFunction<Nodes(void *)>("C::ConfigMgr::GetConfig()")(&root_); }
    Nodes Create() { return CliFunction<Nodes(void *)>("C::ConfigMgr::CreateConfig()")(&root_); }
    int Save(const std::string &path)
    {
        return CliFunction<int(const void *, std::string)>("C::ConfigMgr::SaveConfig(S) const")(&root_, path);
    }
    int SaveDirect(const std::string &path)
    {
        return CliFunction<int(void *, std::string)>("C::ConfigMgr::SaveConfigDirect(S)")(&root_, path);
    }
    void TearDown() override { CliFunction<void(void *)>("C::ConfigMgr::Release()")(&root_); }

    static Nodes Get(const Nodes &nodes, const std::string &name)
    {
        return CliFunction<Nodes(const Nodes *, const std::string &)>("C::ConfigNode::Get(S const&) const")(&nodes,
                                                                                                            name);
    }
    static Nodes At(const Nodes &nodes, int index)
    {
        return CliFunction<Nodes(const Nodes *, int)>("C::ConfigNode::operator[](int) const")(&nodes, index);
    }
    static std::string String(const Nodes &nodes)
    {
        return CliFunction<std::string(const Nodes *)>("C::ConfigNode::GetString() const")(&nodes);
    }
    static int Int(const Nodes &nodes)
    {
        return CliFunction<int(const Nodes *)>("C::ConfigNode::GetInt() const")(&nodes);
    }
    static bool Bool(const Nodes &nodes)
    {
        return CliFunction<bool(const Nodes *)>("C::ConfigNode::GetBool() const")(&nodes);
    }
    static int CheckedString(const Nodes &nodes, std::string &out)
    {
        return CliFunction<int(const Nodes *, std::string &)>("C::ConfigNode::GetString(S&) const")(&nodes, out);
    }
    static int CheckedInt(const Nodes &nodes, int &out)
    {
        return CliFunction<int(const Nodes *, int &)>("C::ConfigNode::GetInt(int&) const")(&nodes, out);
    }
    static int CheckedBool(const Nodes &nodes, bool &out)
    {
        return CliFunction<int(const Nodes *, bool &)>("C::ConfigNode::GetBool(bool&) const")(&nodes, out);
    }
    static std::string Attribute(const Nodes &nodes, const std::string &name)
    {
        return CliFunction<std::string(const Nodes *, const std::string &)>("C::ConfigNode::GetAttr(S const&) const")(
            &nodes, name);
    }

    void Load(const std::string &inner)
    {
        WriteText("/tmp/in.xml", "<?xml version=\"1.0\"?>\n<r>" + inner + "</r>\n");
        EXPECT_EQ(Read("/tmp/in.xml"), 0);
        top_ = Get(Tree(), "r");
        EXPECT_EQ(top_.list.size(), 1u);
    }

    void *root_ = nullptr;
    Nodes top_;
};

TEST_F(CliConfigMgrTest, ReadsAFileOnce)
{
    EXPECT_EQ(Read("/tmp/none.xml"), ENOENT);
    EXPECT_TRUE(Tree().list.empty());
    WriteText("/tmp/bad.xml", "<a><b>");
    EXPECT_EQ(Read("/tmp/bad.xml"), 0);
    EXPECT_TRUE(Tree().list.empty());
    Load("<a>1</a>");
    EXPECT_EQ(Read("/tmp/none.xml"), 0) << "a tree is there";
    EXPECT_EQ(String(Get(top_, "a")), "1");
}

TEST_F(CliConfigMgrTest, TypedValues)
{
    Load("<s type=\"string\">12</s><i type=\"int\">12</i><b type=\"bool\">TRUE</b><n>-7</n><f>False</f><e/><w>word</w>"
         "<x type=\"other\">1</x>");
    const Nodes s = Get(top_, "s");
    const Nodes i = Get(top_, "i");
    const Nodes b = Get(top_, "b");
    const Nodes n = Get(top_, "n");
    const Nodes f = Get(top_, "f");
    const Nodes e = Get(top_, "e");
    const Nodes w = Get(top_, "w");
    const Nodes none = Get(top_, "none");
    std::string text;
    int number = 99;
    bool flag = true;

    EXPECT_EQ(CheckedInt(s, number), -1);
    EXPECT_EQ(number, 99);
    EXPECT_EQ(CheckedInt(i, number), 0);
    EXPECT_EQ(number, 12);
    EXPECT_EQ(CheckedInt(n, number), 0);
    EXPECT_EQ(number, -7);
    EXPECT_EQ(CheckedInt(w, number), 0) << "a word converts to 0";
    EXPECT_EQ(number, 0);
    EXPECT_EQ(CheckedInt(e, number), -1);
    EXPECT_EQ(CheckedInt(none, number), -1);
    EXPECT_EQ(CheckedString(s, text), 0);
    EXPECT_EQ(text, "12");
    EXPECT_EQ(CheckedString(i, text), -1);
    EXPECT_EQ(CheckedString(n, text), 0);
    EXPECT_EQ(text, "-7");
    EXPECT_EQ(CheckedString(e, text), -1);
    EXPECT_EQ(CheckedBool(f, flag), 0);
    EXPECT_FALSE(flag);
    EXPECT_EQ(CheckedBool(b, flag), 0);
    EXPECT_TRUE(flag);
    EXPECT_EQ(CheckedBool(w, flag), -1);
    EXPECT_EQ(CheckedBool(i, flag), -1);
    EXPECT_EQ(CheckedBool(none, flag), -1);

    EXPECT_TRUE(Bool(b));
    EXPECT_FALSE(Bool(f));
    EXPECT_FALSE(Bool(e));
    EXPECT_FALSE(Bool(none));
    EXPECT_EQ(Int(s), 12);
    EXPECT_EQ(Int(e), 0);
    EXPECT_EQ(Int(w), 0);
    EXPECT_EQ(Int(none), 0);
    EXPECT_EQ(String(e), "");
    EXPECT_EQ(String(none), "");
    EXPECT_EQ(Attribute(s, "type"), "string");
    EXPECT_EQ(Attribute(n, "type"), "");
    EXPECT_EQ(Attribute(none, "type"), "");
}

TEST_F(CliConfigMgrTest, ListsOfNodes)
{
    Load("<a k=\"1\">x</a><b/><a k=\"2\">y</a><c><a k=\"3\"/></c>");
    Nodes all = Get(top_, "a");
    ASSERT_EQ(all.list.size(), 2u) << "direct children only";
    EXPECT_LT(all.list[0], all.list[1]);
    EXPECT_EQ(CliFunction<int(const Nodes *)>("C::ConfigNode::Size() const")(&all), 2);
    const auto with = [&](const char *value) {
        return CliFunction<Nodes(Nodes *, const std::string &, const std::string &)>(
            "C::ConfigNode::WithAttr(S const&, S const&)")(&all, "k", value);
    };

    EXPECT_EQ(String(with("2")), "y");
    EXPECT_TRUE(with("3").list.empty());
    EXPECT_EQ(At(all, 1).list, (std::vector<void *>{all.list[1]}));
    EXPECT_TRUE(At(all, 2).list.empty());
    EXPECT_TRUE(At(all, -1).list.empty());
    EXPECT_TRUE(Get(Nodes{}, "a").list.empty());
    EXPECT_TRUE(At(Nodes{}, 0).list.empty());
}

TEST_F(CliConfigMgrTest, WritesAndSaves)
{
    Nodes tree = Create();
    const CliFunction<Nodes(Nodes *, const std::string &)> create("C::ConfigNode::Create(S const&)");
    Nodes top = create(&tree, "top");
    Nodes text = create(&top, "text");
    Nodes number = create(&top, "number");
    Nodes flag = create(&top, "flag");
    Nodes gone = create(&top, "gone");
    Nodes none;
    EXPECT_TRUE(create(&none, "x").list.empty());
    const CliFunction<int(Nodes *, const std::string &)> setString("C::ConfigNode::SetString(S const&)");
    const CliFunction<int(Nodes *, int)> setInt("C::ConfigNode::SetInt(int)");
    const CliFunction<int(Nodes *, bool)> setBool("C::ConfigNode::SetBool(bool)");
    EXPECT_EQ(setString(&text, "first"), 0);
    EXPECT_EQ(setString(&text, "second"), 0);
    EXPECT_EQ(setInt(&number, -5), 0);
    EXPECT_EQ(setBool(&flag, true), 0);
    EXPECT_EQ(setInt(&none, 5), 0);
    EXPECT_EQ(CliFunction<int(Nodes *)>("C::ConfigNode::Delete()")(&gone), 0);
    EXPECT_TRUE(gone.list.empty());
    EXPECT_EQ(CliFunction<int(Nodes *)>("C::ConfigNode::Delete()")(&none), 0);
    EXPECT_EQ(Int(number), -5);
    EXPECT_TRUE(Bool(flag));
    EXPECT_NE(Save("/tmp/out.xml"), 0);
    EXPECT_FALSE(fs::exists("/tmp/out.xml"));
    EXPECT_FALSE(fs::exists("/tmp/out.xml.bak"));
    WriteText("/tmp/out.xml", "old");
    ASSERT_EQ(chmod("/tmp/out.xml", 0600), 0);
    EXPECT_EQ(Save("/tmp/out.xml"), 0);
    EXPECT_FALSE(fs::exists("/tmp/out.xml.bak"));
    const std::string saved = ReadText("/tmp/out.xml");
    EXPECT_EQ(saved.rfind("<?xml version=\"1.0\"", 0), 0u) << saved;
    EXPECT_THAT(saved, testing::HasSubstr("<text type=\"string\">second</text>\n"));
    EXPECT_THAT(saved, testing::HasSubstr("<number type=\"int\">-5</number>\n"));
    EXPECT_THAT(saved, testing::HasSubstr("<flag type=\"bool\">true</flag>\n"));
    EXPECT_THAT(saved, testing::Not(testing::HasSubstr("gone")));
    EXPECT_EQ(SaveDirect("/tmp/direct.xml"), 0);
    EXPECT_EQ(ReadText("/tmp/direct.xml"), saved);
    EXPECT_EQ(Save("/tmp/none/out.xml"), -ENOENT);
    EXPECT_EQ(SaveDirect("/tmp/none/out.xml"), ENOENT);
}

TEST_F(CliConfigMgrTest, SaveHasRoomFor32KiB)
{
    Load("<a>" + std::string(40000, 'x') + "</a>");
    WriteText("/tmp/out.xml", "old");

    EXPECT_EQ(Save("/tmp/out.xml"), 0);

    const std::string saved = ReadText("/tmp/out.xml");
    EXPECT_LE(saved.size(), 32767u + 5u) << "line feeds come afterwards";
    EXPECT_GE(saved.size(), 32760u);
    EXPECT_EQ(saved.back(), 'x');
}

TEST_F(CliConfigMgrTest, SaveWithoutATree)
{
    EXPECT_EQ(SaveDirect("/tmp/direct.xml"), 0);
    EXPECT_FALSE(fs::exists("/tmp/direct.xml"));
}

} // namespace
