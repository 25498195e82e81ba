#include "cli_client.h"
#include "cli_names.h"

#include <filesystem>
#include <regex.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using testing::IsEmpty;
using testing::SizeIs;

namespace fs = std::filesystem;

constexpr int64_t kRollSize = 0x1E00000;

const std::string kStamp = R"(\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\])";

/** Whether the whole text is of this form. */
bool Matches(const std::string &text, const std::string &form)
{
    regex_t compiled{};
    EXPECT_EQ(regcomp(&compiled, ("^(" + form + ")$").c_str(), REG_EXTENDED | REG_NOSUB), 0) << form;
    const bool matches = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return matches;
}

class CliLogTest : public CliTest {
protected:
    static std::string Path(const std::string &name) { return std::string(kCliLogFolder) + "/" + name; }

    static std::vector<std::string> Rolled(const std::string &name)
    {
        std::vector<std::string> found;
        const std::string form = name + "\\.[0-9]{14}";
        for (const auto &entry : fs::directory_iterator(kCliLogFolder)) {
            if (Matches(entry.path().filename().string(), form)) {
                found.push_back(entry.path());
            }
        }
        return found;
    }

    static uint32_t Mode(const std::string &path)
    {
        struct stat seen {};
        EXPECT_EQ(stat(path.c_str(), &seen), 0) << path;
        return seen.st_mode & 07777U;
    }

    int StartServer()
    {
        Open();
        return lib::Call<int()>{"InitCliServertoC"}();
    }
};

TEST_F(CliLogTest, LinesOfBothForms)
{
    ASSERT_EQ(StartServer(), 0);
    ASSERT_TRUE(WaitForCliLog("Start recv thread."));
    EXPECT_EQ(CliParse(AskRaw(CliRequest("show nothing", "show"))).code, kCliUnknown);

    const std::string oper = ReadText(Path("oper.log"));
    EXPECT_TRUE(Matches(oper, kStamp + R"(\[CLI_LOG\]Init server log success\.)" + "\n")) << oper;
    const std::vector<std::string> first = CliLogLines("Init server log success.");
    ASSERT_THAT(first, SizeIs(1));
    EXPECT_TRUE(Matches(first[0], kStamp + R"(\[INFO\]\[CLI_LOG\]\[CliUdsServer,[0-9]+,InitCliServer\])" +
                                      R"(Init server log success\.)"))
        << first[0];
    std::vector<std::string> accepted;
    std::istringstream lines(ReadText(Path("cli.log")));
    for (std::string line; std::getline(lines, line);) {
        if (Matches(line, kStamp + R"(\[[A-Z]+\]\[CLI_LOG\]\[CliUdsServer,[0-9]+,AcceptCliServer\])" +
                              R"(Client connected\.clientId\([0-9]+\)\.)")) {
            accepted.push_back(line);
        }
    }
    EXPECT_THAT(accepted, SizeIs(1));
    const std::vector<std::string> unknown = CliLogLines("CLI_COMMAND_PARAM_INVALID 0x4003690b.");
    ASSERT_THAT(unknown, SizeIs(1));
    EXPECT_TRUE(Matches(unknown[0], kStamp + R"(\[ERROR\]\[CLI_LOG\]\[CliCmdHandler,[0-9]+,PushCmdTask\])" +
                                        R"(CLI_COMMAND_PARAM_INVALID 0x4003690b\.)"))
        << unknown[0];
    for (const char *command : {"slowdisk", "summary", "config", "slowdisk_detect_config", "disk_info", "iostat_info",
                                "smart_info", "drm_info", "dpr_smart", "disklife_prediction"}) {
        EXPECT_THAT(CliLogLines("Command:" + std::string(command) + " add success."), SizeIs(1)) << command;
    }
    EXPECT_THAT(CliLogLines("create worker thread 1."), SizeIs(1));
    // Every line has a head of this form; none of these texts has a line feed of its own.
    std::istringstream all(ReadText(Path("cli.log")));
    const std::string head = kStamp + R"(\[(DEBUG|INFO|WARN|ERROR|FATAL)\]\[CLI_LOG\]\[[A-Za-z]+,[0-9]+,[A-Za-z]+\].+)";
    for (std::string line; std::getline(all, line);) {
        EXPECT_TRUE(Matches(line, head)) << line;
    }
}

TEST_F(CliLogTest, FilesOfRoot)
{
    ASSERT_EQ(StartServer(), 0);

    for (const char *name : {"cli.log", "oper.log"}) {
        struct stat seen {};
        ASSERT_EQ(stat(Path(name).c_str(), &seen), 0);
        EXPECT_EQ(seen.st_mode & 07777U, 0640U) << name;
        EXPECT_EQ(seen.st_uid + seen.st_gid, 0u) << name;
    }
}

TEST_F(CliLogTest, FileThatStandsKeepsItsRightsAndItsLines)
{
    WriteText(Path("cli.log"), "before\n");
    ASSERT_EQ(chmod(Path("cli.log").c_str(), 0604), 0);

    ASSERT_EQ(StartServer(), 0);

    EXPECT_EQ(Mode(Path("cli.log")), 0604u);
    EXPECT_EQ(ReadText(Path("cli.log")).rfind("before\n[", 0), 0u);
    EXPECT_THAT(CliLogLines("Init server log success."), SizeIs(1));
}

TEST_F(CliLogTest, FullFileIsRolled)
{
    for (const char *name : {"cli.log", "oper.log"}) {
        WriteText(Path(name), "old");
        fs::resize_file(Path(name), kRollSize);
        ASSERT_EQ(chown(Path(name).c_str(), 64901, 64901), 0);
    }

    ASSERT_EQ(StartServer(), 0);

    for (const char *name : {"cli.log", "oper.log"}) {
        const std::vector<std::string> rolled = Rolled(name);
        ASSERT_THAT(rolled, SizeIs(1)) << name;
        struct stat seen {};
        ASSERT_EQ(stat(rolled[0].c_str(), &seen), 0);
        EXPECT_EQ(seen.st_mode & 07777U, 0440U);
        EXPECT_EQ(seen.st_uid, 64901u) << "its owner stays";
        EXPECT_EQ(seen.st_size, kRollSize);
        ASSERT_EQ(stat(Path(name).c_str(), &seen), 0);
        EXPECT_EQ(seen.st_mode & 07777U, 0640U);
        EXPECT_EQ(seen.st_uid, 0u);
        EXPECT_NE(ReadText(Path(name)).find("Init server log success."), std::string::npos);
    }
}

TEST_F(CliLogTest, FileOfOneByteLessIsWrittenOn)
{
    WriteText(Path("oper.log"), "");
    fs::resize_file(Path("oper.log"), kRollSize - 1);

    ASSERT_EQ(StartServer(), 0);

    EXPECT_THAT(Rolled("oper.log"), IsEmpty());
    EXPECT_GT(fs::file_size(Path("oper.log")), static_cast<uintmax_t>(kRollSize));
}

TEST_F(CliLogTest, RolledFilesAreNotPruned)
{
    for (int i = 10; i < 30; i++) {
        WriteText(Path("oper.log.201001010000" + std::to_string(i)), "x");
    }
    WriteText(Path("oper.log"), "");
    fs::resize_file(Path("oper.log"), kRollSize);

    ASSERT_EQ(StartServer(), 0);

    EXPECT_THAT(Rolled("oper.log"), SizeIs(21));
}

TEST_F(CliLogTest, FileThatWasRemovedIsMadeAnew)
{
    ASSERT_EQ(StartServer(), 0);
    ASSERT_TRUE(WaitForCliLog("Start recv thread."));
    ASSERT_TRUE(WaitForCliLog("Start accept thread."));
    fs::remove(Path("cli.log"));

    EXPECT_EQ(CliParse(AskRaw(CliRequest("show nothing", "show"))).code, kCliUnknown);

    EXPECT_THAT(CliLogLines("CLI_COMMAND_PARAM_INVALID 0x4003690b."), SizeIs(1));
    EXPECT_THAT(CliLogLines("Init server log success."), IsEmpty());
    EXPECT_EQ(Mode(Path("cli.log")), 0640u);
}

TEST_F(CliLogTest, LongMessagesAreDroppedAndTheAnswerIsNot)
{
    StartForDisks();
    std::string sn;
    for (int i = 0; i < 30; i++) {
        sn = "SN-" + std::to_string(i);
        ASSERT_EQ(AddSata(sn), static_cast<uint32_t>(i));
    }

    EXPECT_EQ(Ask("show summary").code, 0);
    EXPECT_EQ(ReadText(Path("cli.log")).find("msg:SummaryInfo"), std::string::npos);
    EXPECT_EQ(Ask("show disk_info disk_id=0").code, 0);
    EXPECT_NE(ReadText(Path("cli.log")).find("[DEBUG][CLI_LOG][CliCmdPool,"), std::string::npos);
    EXPECT_NE(ReadText(Path("cli.log")).find(", msg:Diskid          : 0\n"), std::string::npos);
}

TEST_F(CliLogTest, LevelIsTakenAtTheStart)
{
    Open();
    lib::Global<int>("g_iLogLevel") = 3;

    ASSERT_EQ(lib::Call<int()>{"InitCliServertoC"}(), 0);
    EXPECT_EQ(CliParse(AskRaw(CliRequest("show nothing", "show"))).code, kCliUnknown);

    EXPECT_FALSE(fs::exists(Path("oper.log")));
    EXPECT_THAT(CliLogLines("CLI_COMMAND_PARAM_INVALID 0x4003690b."), SizeIs(1));
    EXPECT_THAT(CliLogLines("Init server log success."), IsEmpty());
    EXPECT_EQ(ReadText(Path("cli.log")).find("[INFO]"), std::string::npos);
}

TEST_F(CliLogTest, FlagDropsEveryLine)
{
    Open();
    lib::Global<bool>("g_bDbgFlg") = false;

    ASSERT_EQ(lib::Call<int()>{"InitCliServertoC"}(), 0);
    EXPECT_EQ(CliParse(AskRaw(CliRequest("show nothing", "show"))).code, kCliUnknown);

    EXPECT_FALSE(fs::exists(Path("oper.log")));
    EXPECT_FALSE(fs::exists(Path("cli.log")));
}

TEST_F(CliLogTest, FolderIsMadeWithoutRights)
{
    fs::remove_all(kCliLogFolder);

    ASSERT_EQ(StartServer(), 0);

    EXPECT_EQ(Mode(kCliLogFolder), 0u);
    EXPECT_TRUE(fs::exists(Path("cli.log"))) << "root may write for all that";
}

TEST_F(CliLogTest, WithoutAParentFolderThereIsNoLogAndTheServerRuns)
{
    fs::remove_all("/var/log/corvane_super");

    ASSERT_EQ(StartServer(), 0);

    EXPECT_EQ(CliParse(AskRaw(CliRequest("show nothing", "show"))).code, kCliUnknown);
    EXPECT_FALSE(fs::exists("/var/log/corvane_super"));
}

TEST_F(CliLogTest, DefaultsOfTheGlobals)
{
    lib::Open();

    EXPECT_EQ(lib::Global<int>("g_iLogLevel"), 0);
    EXPECT_TRUE(lib::Global<bool>("g_bDbgFlg"));
    EXPECT_STREQ(lib::Global<const char *>("ROOT_LOG_PATH"), "/var/log/corvane_super/cli_log/");
    EXPECT_STREQ(lib::Global<const char *>("CORVANE_LOG_PATH"), "/var/log/corvane/cli_log/");
}

/** The logger itself, called as the library's own modules call it. */
class CliLoggerTest : public CliLogTest {
protected:
    void SetUp() override
    {
        CliTest::SetUp();
        lib::Open();
        logger_ = lib::Address("g_objLogger");
        log_ = reinterpret_cast<LogFunction>(CliAddress(
            "CLogger::Log(int, int, unsigned long, char const*, char const*, char const*, char const*, ...)"));
        EXPECT_EQ(SetText("CLogger::SetFilePath(char const*)", (std::string(kCliLogFolder) + "/").c_str()), 0);
        EXPECT_EQ(SetText("CLogger::SetFileName(char const*)", "own.log"), 0);
    }

    int SetText(const char *function, const char *text) const
    {
        return CliFunction<int(void *, const char *)>(function)(logger_, text);
    }
    int SetInt(const char *function, int value) const
    {
        return CliFunction<int(void *, int)>(function)(logger_, value);
    }
    void Set(const char *function, int value) const { CliFunction<void(void *, int)>{function}(logger_, value); }

    void Write(int level, const std::string &text) const
    {
        log_(logger_, level, 157, 0xABCUL, "TAG", "File", "Function", "%s", text.c_str());
    }

    /** The last line, with its time replaced. */
    static std::string Last(const std::string &name = "own.log")
    {
        const std::string text = ReadText(Path(name));
        if (text.empty()) {
            return "";
        }
        const size_t from = text.rfind('\n', text.size() - 2) + 1;
        const std::string line = text.substr(from, text.size() - 1 - from);
        return Matches(line.substr(0, 21), kStamp) ? "[T]" + line.substr(21) : line;
    }

    using LogFunction = void (*)(void *, int, int, unsigned long, const char *, const char *, const char *,
                                 const char *, ...);
    void *logger_ = nullptr;
    LogFunction log_ = nullptr;
};

TEST_F(CliLoggerTest, HeadsAndLevels)
{
    const char *const levels[] = {"DEBUG", "INFO", "WARN", "ERROR", "FATAL", "", ""};
    for (int level = 0; level < 7; level++) {
        Write(level, "text");
        EXPECT_EQ(Last(), "[T][" + std::string(levels[level]) + "][TAG][File,157,Function]text");
    }
    Set("CLogger::SetType(int)", 2);
    Write(3, "text");
    EXPECT_EQ(Last(), "[T][TAG]text");
    for (const int type : {1, 3, -1}) {
        Set("CLogger::SetType(int)", type);
        Write(3, "text");
        EXPECT_EQ(Last(), "[T][0x0000000000000abc][3]text");
    }
}

TEST_F(CliLoggerTest, LevelAndFlag)
{
    Set("CLogger::SetLevel(int)", 3);
    Write(2, "below");
    EXPECT_FALSE(fs::exists(Path("own.log")));
    Write(3, "at");
    EXPECT_EQ(Last(), "[T][ERROR][TAG][File,157,Function]at");
    CliFunction<void(void *, bool)> flag("CLogger::SetDbgFlg(bool)");
    flag(logger_, false);
    Write(4, "dropped");
    EXPECT_EQ(Last(), "[T][ERROR][TAG][File,157,Function]at");
    flag(logger_, true);
    Write(4, "again");
    EXPECT_EQ(Last(), "[T][FATAL][TAG][File,157,Function]again");
}

TEST_F(CliLoggerTest, MessageOf1024CharactersIsDropped)
{
    Write(1, std::string(1023, 'x'));
    EXPECT_EQ(Last(), "[T][INFO][TAG][File,157,Function]" + std::string(1023, 'x'));
    Write(1, std::string(1024, 'y'));
    Write(1, std::string(5000, 'y'));
    EXPECT_EQ(ReadText(Path("own.log")).find('y'), std::string::npos);
}

TEST_F(CliLoggerTest, ArgumentsThatAreMissing)
{
    log_(logger_, 1, 1, 1UL, nullptr, "File", "Function", "text");
    log_(logger_, 1, 1, 1UL, "TAG", nullptr, "Function", "text");
    log_(logger_, 1, 1, 1UL, "TAG", "File", nullptr, "text");
    log_(logger_, 1, 1, 1UL, "TAG", "File", "Function", nullptr);
    EXPECT_FALSE(fs::exists(Path("own.log")));

    for (const char *setter : {"CLogger::SetFilePath(char const*)", "CLogger::SetFileName(char const*)"}) {
        EXPECT_EQ(SetText(setter, nullptr), -1);
        EXPECT_EQ(SetText(setter, ""), -1);
    }
    Write(1, "text");
    EXPECT_EQ(Last(), "[T][INFO][TAG][File,157,Function]text") << "the refused ones changed nothing";
    EXPECT_EQ(SetInt("CLogger::SetFileSize(int)", 0), -1);
    EXPECT_EQ(SetInt("CLogger::SetFileSize(int)", -5), -1);
    EXPECT_EQ(SetInt("CLogger::SetRollingMode(int)", 2), -1);
    EXPECT_EQ(SetInt("CLogger::SetRollingMode(int)", 77), -1);
}

TEST_F(CliLoggerTest, RollsAtItsSize)
{
    EXPECT_EQ(SetInt("CLogger::SetFileSize(int)", 60), 0);
    Write(1, "first");
    EXPECT_EQ(fs::file_size(Path("own.log")), 57u);
    Write(1, "second");
    EXPECT_EQ(Rolled("own.log").size(), 0u);
    Write(1, "third");

    const std::vector<std::string> rolled = Rolled("own.log");
    ASSERT_THAT(rolled, SizeIs(1));
    EXPECT_EQ(Mode(rolled[0]), 0440u);
    EXPECT_NE(ReadText(rolled[0]).find("second"), std::string::npos);
    EXPECT_EQ(ReadText(rolled[0]).find("third"), std::string::npos);
    EXPECT_EQ(Mode(Path("own.log")), 0640u);
    EXPECT_EQ(Last(), "[T][INFO][TAG][File,157,Function]third");
}

TEST_F(CliLoggerTest, RollsByDay)
{
    EXPECT_EQ(SetInt("CLogger::SetRollingMode(int)", 0), 0);
    EXPECT_EQ(SetInt("CLogger::SetFileSize(int)", 10), 0);
    Write(1, "first");
    Write(1, "second");

    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(kCliLogFolder)) {
        names.push_back(entry.path().filename());
    }
    ASSERT_THAT(names, SizeIs(1)) << "no size counts";
    EXPECT_TRUE(Matches(names[0], R"(own\.log\.20[0-9]{6})")) << names[0];
    EXPECT_EQ(Last(names[0]), "[T][INFO][TAG][File,157,Function]second");
}

TEST_F(CliLoggerTest, NewFileWhoseRightsCannotBeSetIsRemoved)
{
    // Another user than root or the service's own cannot give its file away.
    ASSERT_EQ(chown(kCliLogFolder, 64950, 64950), 0);
    AddAccounts("cli_writer:x:64950:64950::/nonexistent:/bin/false\n", "");
    ASSERT_EQ(setgid(64950), 0);
    ASSERT_EQ(setuid(64950), 0);
    (void)prctl(PR_SET_DUMPABLE, 1);

    testing::internal::CaptureStderr();
    Write(1, "lost");

    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "chmown log file " + std::string(kCliLogFolder) + "//own.log fail\n");
    EXPECT_FALSE(fs::exists(Path("own.log")));
}

TEST_F(CliLoggerTest, MissingAccountsAreTold)
{
    const CliFunction<int(void *, char *)> set("CLogger::SetLogFilePermisionCorvane(char*)");
    const CliFunction<int(void *, char *)> setBackup("CLogger::SetBakLogFilePermision(char*)");
    std::string file = Path("some.log");
    const auto told = [&](const auto &function) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(function(logger_, file.data()), -1);
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(told(set), "chmod log file " + file + " fail\n");
    EXPECT_EQ(told(setBackup), "chmod bak log file " + file + " fail\n");
    WriteText(file, "x");
    AddAccounts("", ""); // these files are the process's own
    WriteText("/etc/group", "root:x:0:\n");
    EXPECT_EQ(told(set), "group:corvane_group not exist\n");
    WriteText("/etc/passwd", "root:x:0:0::/root:/bin/sh\n");
    EXPECT_EQ(told(set), "user:corvane_user not exist\n");
}

} // namespace
