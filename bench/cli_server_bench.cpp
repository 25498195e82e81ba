// What an operator's command costs: whole, as the client sees it, and in its parts. The server's threads look for work
// every 100 ms; that wait is most of the whole.
#include <benchmark/benchmark.h>

#include <array>
#include <filesystem>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "bench_store.h"
#include "cli/cmd/SlowDiskCmd.h"
#include "cli/common/CLogger.h"
#include "cli/common/CliResultCode.h"
#include "cli/common/CliUdsComm.h"
#include "cli/common/XmlModule.h"
#include "cli/server/CliUdsServer.h"
#include "config/corvane_prefix_path.h"
#include "infrastructure/common/corvane_raii.h"

namespace {

using namespace CORVANE_CLI;

constexpr const char *kRequest = "show summary";

/** A node with 64 disks and its management server, with the log that it keeps. Needs the rights to ask it. */
class Node {
public:
    Node() : store_([](uint32_t, DiskMgrObj &) {})
    {
        char folder[] = "/tmp/corvane-bench.XXXXXX";
        Require(mkdtemp(folder) != nullptr, "no temporary folder");
        folder_ = folder;
        logFolder_ = folder_ + "/log/";
        std::filesystem::create_directory(folder_ + "/config");
        std::filesystem::create_directory(logFolder_);
        Require(SetPrefixPath(folder_.data()) == 0, "no prefix");
        ROOT_LOG_PATH = logFolder_.c_str();
        CORVANE_LOG_PATH = logFolder_.c_str();
        Require(InitCliServertoC() == 0, "no server");
    }
    ~Node()
    {
        (void)UnInitCliServertoC();
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    Node(const Node &) = delete;
    Node &operator=(const Node &) = delete;

    [[nodiscard]] UniqueFd Connect() const
    {
        UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        (void)std::snprintf(address.sun_path, sizeof(address.sun_path), "%s/config/CLI_UDS.unix", folder_.c_str());
        Require(connect(fd.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0, "no connection");
        return fd;
    }

private:
    BenchStore store_;
    std::string folder_;
    std::string logFolder_;
};

const Node &TheNode()
{
    static const Node node;
    return node;
}

void SendRequest(int fd)
{
    XmlModule xml;
    CliUdsComm comm;
    Require(comm.SendString(xml.CliCMDtoXml("summary", kRequest), fd, 0, "show") == 0, "a request was not sent");
}

/** @return the code of the answer, whose text is as long as that of 64 disks if it is 0. */
std::string ReceiveAnswer(int fd)
{
    CliUdsComm comm;
    std::string text;
    std::string user;
    std::string action;
    Require(comm.RecvString(text, fd, 0, user, action) == 0, "no answer: this needs the rights of the service");
    XmlModule xml;
    const std::string code = xml.AnalysisXml(text, "error_code");
    Require(code != "0" || xml.AnalysisXml(text, "print_data").size() > size_t{50} * DISK_ONLINE_MAX,
            "an answer is short");
    char rest = 0;
    Require(recv(fd, &rest, sizeof(rest), 0) == 0, "the server did not close");
    return code;
}

const std::string &Summary()
{
    static const std::string text = [] {
        (void)TheNode();
        SlowDiskCmd command;
        command.SetData({"summary", "", -1});
        std::string output;
        Require(command.Exec("action=show summary userName=root", output) == CLI_OK, "no summary");
        return output;
    }();
    return text;
}

/** Connection, request, answer, end of the connection. */
void ShowSummary(benchmark::State &state)
{
    const Node &node = TheNode();
    for (auto _ : state) {
        const UniqueFd client = node.Connect();
        SendRequest(client.Get());
        Require(ReceiveAnswer(client.Get()) == "0", "a command failed");
    }
}
BENCHMARK(ShowSummary)->UseRealTime()->Unit(benchmark::kMillisecond);

/** Reads until the server closes. */
std::string ReadToTheEnd(int fd)
{
    std::string bytes;
    std::array<char, 16384> buffer{};
    ssize_t length = 0;
    while ((length = recv(fd, buffer.data(), buffer.size(), 0)) > 0) {
        bytes.append(buffer.data(), static_cast<size_t>(length));
    }
    return bytes;
}

/** From a request that has arrived to the end of the connection: receive, rights, worker, answer, log. */
void ServeSummary(benchmark::State &state)
{
    (void)TheNode();
    const std::string done = "<error_code>0</error_code>";
    const std::string busy = "<error_code>" + std::to_string(CLI_TASK_MAX_ERROR) + "</error_code>";
    CliUdsServer &server = CliUdsServer::GetInstance();
    for (auto _ : state) {
        std::string answer = busy; // the worker may still be at the end of the one before
        while (answer.find(busy) != std::string::npos) {
            state.PauseTiming();
            std::array<int, 2> fds{};
            Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds.data()) == 0, "no connection");
            const UniqueFd client(fds[0]);
            SendRequest(client.Get());
            state.ResumeTiming();
            server.InnerRecvTask(fds[1]);
            answer = ReadToTheEnd(client.Get());
        }
        Require(answer.find(done) != std::string::npos, "a command failed");
    }
}
BENCHMARK(ServeSummary)->UseRealTime()->Unit(benchmark::kMicrosecond);

/** The same without a log. */
void ServeSummaryWithoutLog(benchmark::State &state)
{
    (void)TheNode();
    g_objLogger.SetDbgFlg(false);
    ServeSummary(state);
    g_objLogger.SetDbgFlg(true);
}
BENCHMARK(ServeSummaryWithoutLog)->UseRealTime()->Unit(benchmark::kMicrosecond);

/** The command alone: list the disks, print the table. */
void RunSummary(benchmark::State &state)
{
    (void)TheNode();
    g_objLogger.SetDbgFlg(false);
    for (auto _ : state) {
        SlowDiskCmd command;
        command.SetData({"summary", "", -1});
        std::string output;
        Require(command.Exec("action=show summary userName=root", output) == CLI_OK, "no summary");
        benchmark::DoNotOptimize(output);
    }
    g_objLogger.SetDbgFlg(true);
}
BENCHMARK(RunSummary)->Unit(benchmark::kMicrosecond);

/** The document of a table with 64 disks. */
void BuildAnswer(benchmark::State &state)
{
    XmlModule xml;
    const std::string text = Summary() + " errorCode=0";
    for (auto _ : state) {
        benchmark::DoNotOptimize(xml.SvCMDtoXml(text));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BuildAnswer)->Unit(benchmark::kMicrosecond);

/** Both elements of it, as a client reads them. */
void ParseAnswer(benchmark::State &state)
{
    XmlModule xml;
    const std::string document = xml.SvCMDtoXml(Summary() + " errorCode=0");
    Require(xml.AnalysisXml(document, "print_data") == Summary(), "a document does not hold its text");
    for (auto _ : state) {
        benchmark::DoNotOptimize(xml.AnalysisXml(document, "error_code"));
        benchmark::DoNotOptimize(xml.AnalysisXml(document, "print_data"));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * document.size()));
}
BENCHMARK(ParseAnswer)->Unit(benchmark::kMicrosecond);

} // namespace
