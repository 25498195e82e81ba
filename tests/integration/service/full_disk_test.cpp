#include "service_fixture.h"

#include <array>
#include <csignal>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

const std::string kErrors = "/tmp/service.errors"; // a log without room goes to standard error
const std::string kTools = "/tmp/tools";
const std::string kAgentSocket = "/tmp/dcak.sock";
const std::string kAgentLog = kRootLogFolder + "/corvane.os.log";
const std::string kCommandLog = kRootLogFolder + "/cli_log/cli.log";

bool IsWholeRegistry(int disks)
{
    const CJsonPtr registry(cJSON_Parse(ReadText(kRegistryFile).c_str()));
    return cJSON_IsArray(registry.get()) != 0 && cJSON_GetArraySize(registry.get()) == disks;
}

bool HasSetting(const std::string &path, const std::string &text)
{
    const CJsonPtr settings(cJSON_Parse(ReadText(path).c_str()));
    return settings != nullptr && Unformatted(settings.get()).find(text) != std::string::npos;
}

} // namespace

class FullDiskTest : public ServiceTest {
protected:
    void StartNode()
    {
        StartSim(ScenarioOf({DiskText("sda", "FULL-A", "HDD_SAS"), DiskText("sdb", "FULL-B", "SSD_SATA"),
                             DiskText("sdc", "FULL-C", "HDD_SAS", R"(,"present":false)"),
                             DiskText("81", "FULL-N", "SSD_NVMe")}));
        WriteText(kSettingsFile, SettingsText());
        StartService(kErrors);
        ASSERT_TRUE(WaitForOnline(3));
    }
};

TEST_F(FullDiskTest, SettingsAndRegistryStayAsTheyWereUntilThereIsRoom)
{
    MountSmall(kConfigFolder, "256k");
    StartNode();
    const std::string settings = ReadText(kSettingsFile);
    const std::string registry = ReadText(kRegistryFile);
    ASSERT_TRUE(IsWholeRegistry(3));

    // when: full
    ASSERT_NO_FATAL_FAILURE(Fill(kConfigFolder));
    const Finished refused = Ctl("change config takeover_disk_switch=on");
    const Finished notTold = Ctl("change dpr_smart disk_type=3 task_cycle=77");
    Event(R"({"do":"plug","disk":"sdc"})");
    ASSERT_TRUE(WaitForLog("DiskSerialNumberRefresh init disk fail"));
    Event(R"({"do":"pull","disk":"sdb"})");
    ASSERT_TRUE(WaitForLog("DiskSerialNumberRefresh delete offline disk fail, sn = FULL-B"));

    // then: the log tells, and the files are those of before
    EXPECT_EQ(refused.exitCode, 5) << refused.output << refused.errors;
    EXPECT_EQ(Logged("save config takeover_disk_switch:1 to file failed: -1"), 1u);
    EXPECT_EQ(notTold.exitCode, 0) << "this command answers whether the request was right, not whether it was saved";
    EXPECT_EQ(Logged("save config parent:sas_hdd child:task_cycle val:77 to file failed: -1"), 1u);
    EXPECT_GE(Logged("Save to  tmp Config error"), 3u);
    EXPECT_EQ(ReadText(kSettingsFile), settings);
    EXPECT_EQ(ReadText(kRegistryFile), registry);
    EXPECT_TRUE(GoesOn());
    EXPECT_TRUE(WaitForRequests("kernel", "dca_get_disks_iostat", 1));

    // when: there is room
    MakeRoom(kConfigFolder);

    // then: the next scan and the next change take
    EXPECT_TRUE(WaitForStatus([this](const cJSON *) {
        return StateOf("FULL-A") == "normal" && StateOf("FULL-B").empty() && StateOf("FULL-C") == "normal" &&
               StateOf("FULL-N") == "normal";
    }));
    EXPECT_TRUE(IsWholeRegistry(3));
    EXPECT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=78").exitCode, 0);
    EXPECT_TRUE(HasSetting(kSettingsFile, R"("sas_hdd":{"task_cycle":78)"));
    EXPECT_FALSE(std::filesystem::exists(kSettingsFile + ".wal"));
    EXPECT_FALSE(std::filesystem::exists(kRegistryFile + ".wal"));
}

TEST_F(FullDiskTest, AFullHistoryKeepsNoChangeBack)
{
    MountSmall(kHistoryFolder, "64k");
    StartNode();
    ASSERT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=70").exitCode, 0);
    const std::string whole = ReadText(kHistoryFolder + "/" + History().front());
    ASSERT_EQ(whole, ReadText(kSettingsFile));

    ASSERT_NO_FATAL_FAILURE(Fill(kHistoryFolder));
    Seams().clockOffset += 60;
    EXPECT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=71").exitCode, 0);

    EXPECT_TRUE(HasSetting(kSettingsFile, R"("sas_hdd":{"task_cycle":71)"));
    EXPECT_EQ(Logged("bak config failed"), 1u);
    EXPECT_EQ(Logged("Error copy config bak file"), 1u);

    MakeRoom(kHistoryFolder);
    Seams().clockOffset += 60;
    EXPECT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=72").exitCode, 0);

    EXPECT_EQ(Logged("bak config failed"), 1u);
    EXPECT_EQ(ReadText(kHistoryFolder + "/" + History().front()), ReadText(kSettingsFile));
    EXPECT_EQ(ReadText(kHistoryFolder + "/" + History().back()), whole) << "an older copy was harmed";
}

TEST_F(FullDiskTest, AFullLogFolderStopsNothingAndTheLogReturns)
{
    MountSmall(kLogFolder, "1m");
    StartNode();
    // Lines come every three seconds: no disk's health can be read.
    Event(R"({"do":"misbehave","agent":"spdk","mode":"garbage","method":"dca_get_disks_health_info"})");
    Event(R"({"do":"misbehave","agent":"kernel","mode":"garbage","method":"dca_get_disks_health_info"})");
    const std::string failure = "QueryMessageAndSave(dca_get_disks_health_info) failed";
    ASSERT_TRUE(WaitForLog(failure));

    // when: full
    ASSERT_NO_FATAL_FAILURE(Fill(kLogFolder));
    const std::string told = "norlog: cannot write to log folder \"" + kLogFolder + "/\": ";
    ASSERT_TRUE(Eventually([&] {
        const std::string errors = ReadText(kErrors);
        const size_t at = errors.find(told);
        return at != std::string::npos && errors.find(failure, at) != std::string::npos;
    })) << "the log is lost: "
        << ReadText(kErrors);

    // then: everything else goes on
    EXPECT_TRUE(WaitForRequests("kernel", "dca_get_disks_iostat", 2));
    EXPECT_EQ(Ctl("change dpr_smart disk_type=3 task_cycle=77").exitCode, 0);
    Event(R"({"do":"plug","disk":"sdc"})");
    EXPECT_TRUE(WaitForOnline(4));

    // when: there is room
    MakeRoom(kLogFolder);

    // then: the log goes to its file again
    EXPECT_TRUE(WaitForLog(failure, Logged(failure) + 2));
}

/** The service and the kernel agent itself, whose log and the one of the management commands share a folder. */
class FullLogFoldersTest : public ServiceTest {
protected:
    void TearDown() override
    {
        if (agent_ != nullptr) {
            agent_->Signal(SIGTERM);
            EXPECT_EQ(agent_->WaitForExit(), 0) << agent_->Errors();
        }
        ServiceTest::TearDown();
    }
    void StartNode()
    {
        std::filesystem::create_directories(kRootLogFolder + "/cli_log"); // else there is no log of commands
        std::filesystem::create_directories(kTools);
        WriteText(kTools + "/lsblk", "#!/bin/sh\ncase \"$1\" in --version) echo 'lsblk from util-linux 2.38.1';;\n"
                                     "*) echo '{\"blockdevices\": []}';; esac\n");
        ASSERT_EQ(chmod((kTools + "/lsblk").c_str(), 0755), 0);
        agent_ = std::make_unique<ChildProcess>(std::vector<std::string>{AGENTD_PATH},
                                                std::vector<std::string>{"PATH=" + kTools + ":/usr/bin:/bin"});
        ASSERT_TRUE(agent_->WaitForOutput("serving " + kAgentSocket)) << agent_->Errors();
        StartSim(ScenarioOf({DiskText("81", "FULL-N", "SSD_NVMe"),
                             DiskText("82", "FULL-O", "SSD_NVMe", R"(,"present":false)")}),
                 {"--no-dcak"});
        StartService(kErrors);
        ASSERT_TRUE(WaitForOnline(1));
    }
    /** @return the agent's answer. */
    static std::string Ask(const std::string &method)
    {
        const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        kAgentSocket.copy(address.sun_path, sizeof(address.sun_path) - 1);
        const std::string request = R"({"jsonrpc":"2.0","id":7,"method":")" + method + "\"}";
        EXPECT_EQ(connect(fd.Get(), reinterpret_cast<struct sockaddr *>(&address), sizeof(address)), 0);
        EXPECT_EQ(send(fd.Get(), request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
        std::string answer;
        std::array<char, 1024> part;
        for (ssize_t count = 0; (count = recv(fd.Get(), part.data(), part.size(), 0)) > 0;) {
            answer.append(part.data(), static_cast<size_t>(count));
        }
        return answer;
    }
    /** A command and two requests, all answered as ever. The second request leaves a line in the agent's log. */
    void ExpectAnswers()
    {
        const Finished shown = Ctl("show dpr_smart");
        EXPECT_EQ(shown.exitCode, 0) << shown.errors;
        EXPECT_THAT(shown.output, ::testing::HasSubstr("task_cycle"));
        EXPECT_EQ(Ask("dca_get_disks_brief_info"), R"({"jsonrpc":"2.0","id":7,"result":{"disks":[]}})");
        EXPECT_EQ(Ask("unheard_of"), R"({"jsonrpc":"2.0","id":7,"result":{"result":"sokect ok"}})");
    }
    /** Requests until no line reaches a file any more: the last block of a file takes some. */
    void WriteUntilFull()
    {
        for (const auto &[path, write] : std::initializer_list<std::pair<std::string, std::function<void()>>>{
                 {kAgentLog, [] { (void)Ask("unheard_of"); }}, {kCommandLog, [] { (void)Ctl("show dpr_smart"); }}}) {
            size_t size = 0;
            int requests = 0;
            do {
                ASSERT_LT(requests++, 200) << path << " grows without room";
                size = std::filesystem::file_size(path);
                write();
            } while (std::filesystem::file_size(path) > size);
        }
    }
    /** Of the agent, as far as they have been read. */
    size_t LinesOnStandardError() const
    {
        size_t count = 0;
        for (size_t at = 0; (at = agent_->Errors().find(kAgentLine, at)) != std::string::npos; at++) {
            count++;
        }
        return count;
    }
    /** @return whether the file ends with a whole line. */
    static bool IsWhole(const std::string &path)
    {
        const std::string text = ReadText(path);
        return !text.empty() && text.back() == '\n';
    }

    std::unique_ptr<ChildProcess> agent_;
    static inline const std::string kAgentLine = "Error: no matched method";
    static inline const std::string kCommandLine = "Start exec cmd:";
};

TEST_F(FullLogFoldersTest, NobodyNoticesAndEachLogReturns)
{
    std::filesystem::create_directories(kRootLogFolder);
    ASSERT_NO_FATAL_FAILURE(MountSmall(kLogFolder, "1m"));
    ASSERT_NO_FATAL_FAILURE(MountSmall(kRootLogFolder, "1m"));
    ASSERT_NO_FATAL_FAILURE(StartNode());
    Event(R"({"do":"misbehave","agent":"spdk","mode":"garbage","method":"dca_get_disks_health_info"})");
    const std::string failure = "QueryMessageAndSave(dca_get_disks_health_info) failed"; // every three seconds
    ASSERT_TRUE(WaitForLog(failure));
    ExpectAnswers();
    ASSERT_EQ(CountIn(kAgentLog, kAgentLine), 1u);
    ASSERT_GE(CountIn(kCommandLog, kCommandLine), 1u);

    // when: full
    ASSERT_NO_FATAL_FAILURE(Fill(kLogFolder));
    ASSERT_NO_FATAL_FAILURE(Fill(kRootLogFolder));
    ASSERT_NO_FATAL_FAILURE(WriteUntilFull());
    const size_t agentLines = CountIn(kAgentLog, kAgentLine);
    const size_t commandLines = CountIn(kCommandLog, kCommandLine);

    // then: the answers are the same, the agent's lines are on standard error, and the node works
    const size_t told = LinesOnStandardError();
    ExpectAnswers();
    EXPECT_TRUE(agent_->WaitForOutput([&](const std::string &) { return LinesOnStandardError() > told; }));
    EXPECT_EQ(CountIn(kAgentLog, kAgentLine), agentLines);
    EXPECT_EQ(CountIn(kCommandLog, kCommandLine), commandLines);
    EXPECT_TRUE(agent_->Running());
    Event(R"({"do":"plug","disk":"82"})");
    EXPECT_TRUE(WaitForOnline(2));
    EXPECT_TRUE(Eventually([&] { return CountIn(kErrors, "norlog: cannot write to log folder \"" + kLogFolder) > 0; }));

    // when: there is room
    MakeRoom(kLogFolder);
    MakeRoom(kRootLogFolder);

    // then: the next line of each log is in its file
    ExpectAnswers();
    EXPECT_EQ(CountIn(kAgentLog, kAgentLine), agentLines + 1);
    EXPECT_GE(CountIn(kCommandLog, kCommandLine), commandLines + 1);
    EXPECT_TRUE(IsWhole(kAgentLog));
    EXPECT_TRUE(IsWhole(kCommandLog));
    EXPECT_TRUE(WaitForLog(failure, Logged(failure) + 2));
}
