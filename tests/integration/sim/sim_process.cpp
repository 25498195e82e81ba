#include "sim_process.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

const std::string kProgram = CORVANE_BIN_DIR "/corvane-sim";

std::vector<char *> ArgumentsOf(std::vector<std::string> &texts)
{
    std::vector<char *> arguments;
    for (std::string &text : texts) {
        arguments.push_back(text.data());
    }
    arguments.push_back(nullptr);
    return arguments;
}

std::string ReadFile(const std::string &path)
{
    std::ifstream stream(path);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

bool WaitReadable(int fd)
{
    pollfd wait{fd, POLLIN, 0};
    return poll(&wait, 1, kBoundMs) == 1;
}

int ExitCodeOf(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

pid_t Spawn(std::vector<std::string> texts, int out, int err)
{
    texts.insert(texts.begin(), kProgram);
    std::vector<char *> arguments = ArgumentsOf(texts);
    const pid_t pid = fork();
    if (pid == 0) {
        (void)dup2(out, STDOUT_FILENO);
        (void)dup2(err, STDERR_FILENO);
        execv(kProgram.c_str(), arguments.data());
        _exit(127);
    }
    return pid;
}

std::string MakeFolder()
{
    std::string folder = (std::filesystem::temp_directory_path() / "corvane-sim-test-XXXXXX").string();
    return mkdtemp(folder.data()) != nullptr ? folder : "";
}

} // namespace

Finished RunSim(const std::vector<std::string> &arguments, const std::string &output)
{
    const std::string folder = MakeFolder();
    const int out = open((output.empty() ? folder + "/out" : output).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    const int err = open((folder + "/err").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    const pid_t pid = Spawn(arguments, out, err);
    int status = 0;
    (void)waitpid(pid, &status, 0);
    close(out);
    close(err);
    Finished finished{ExitCodeOf(status), ReadFile(folder + "/out"), ReadFile(folder + "/err")};
    std::filesystem::remove_all(folder);
    return finished;
}

SimTest::SimTest() : folder_(MakeFolder()) {}

SimTest::~SimTest()
{
    if (control_ >= 0) {
        close(control_);
    }
    if (pid_ > 0) {
        EXPECT_EQ(Stop(), 0) << Err();
    }
    std::filesystem::remove_all(folder_);
}

std::string SimTest::WriteFile(const std::string &name, const std::string &text) const
{
    const std::string path = folder_ + "/" + name;
    std::ofstream(path) << text;
    return path;
}

void SimTest::Start(const std::string &scenario, const std::vector<std::string> &more)
{
    std::vector<std::string> arguments = {"--scenario",    WriteFile("scenario.json", scenario),
                                          "--record",      folder_ + "/record.jsonl",
                                          "--control",     folder_ + "/control.sock",
                                          "--dcak-socket", Kernel(),
                                          "--spdk-socket", Spdk()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int err = open((folder_ + "/err").c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
    pid_ = Spawn(arguments, ends[1], err);
    close(ends[1]);
    close(err);
    stdout_ = ends[0];
    std::string text;
    char byte = 0;
    while (text.find('\n') == std::string::npos && WaitReadable(stdout_) && read(stdout_, &byte, 1) == 1) {
        text += byte;
    }
    ASSERT_EQ(text, "ready\n") << Err();
}

int SimTest::Stop(int signal)
{
    (void)kill(pid_, signal != 0 ? signal : SIGTERM);
    return WaitForEnd();
}

int SimTest::WaitForEnd()
{
    // Its end of the pipe closes when it ends.
    char rest[256];
    while (WaitReadable(stdout_) && read(stdout_, rest, sizeof(rest)) > 0) {
    }
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == 0) {
        // The pipe closes a moment before the process can be waited for; a hung one is killed after the bound.
        for (int waited = 0; waitpid(pid_, &status, WNOHANG) == 0; waited++) {
            if (waited == kBoundMs) {
                (void)kill(pid_, SIGKILL);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    close(stdout_);
    pid_ = -1;
    return ExitCodeOf(status);
}

std::string SimTest::Err() const
{
    return ReadFile(folder_ + "/err");
}

int SimTest::Connect(const std::string &path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

std::string SimTest::Ask(const std::string &path, const std::string &request)
{
    const int fd = Connect(path);
    if (fd < 0) {
        ADD_FAILURE() << path << ": " << std::strerror(errno);
        return "";
    }
    (void)send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    std::string answer;
    char buffer[65536];
    ssize_t got = 0;
    while (WaitReadable(fd) && (got = recv(fd, buffer, sizeof(buffer), 0)) > 0) {
        answer.append(buffer, static_cast<size_t>(got));
    }
    close(fd);
    return answer;
}

std::string SimTest::AskOnce(const std::string &path, const std::string &request, ssize_t *result)
{
    const int fd = Connect(path);
    EXPECT_GE(fd, 0);
    ssize_t got = send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    char buffer[8192];
    if (got >= 0) {
        EXPECT_TRUE(WaitReadable(fd));
        got = recv(fd, buffer, sizeof(buffer), 0);
    }
    if (result != nullptr) {
        *result = got < 0 ? -errno : got;
    }
    close(fd);
    return std::string(buffer, got > 0 ? static_cast<size_t>(got) : 0);
}

std::string SimTest::RequestOf(const std::string &method, const std::string &params, int id)
{
    return R"({"jsonrpc":"2.0","method":")" + method + R"(","id":)" + std::to_string(id) +
           (params.empty() ? "" : ",\"params\":" + params) + "}";
}

Json SimTest::ResultOf(const std::string &path, const std::string &method, const std::string &params)
{
    const std::string text = Ask(path, RequestOf(method, params));
    Json answer(cJSON_Parse(text.c_str()));
    EXPECT_EQ(At(answer.get(), "jsonrpc"), "2.0") << text;
    EXPECT_EQ(At(answer.get(), "id"), "7") << text;
    EXPECT_EQ(text.rfind(R"({"jsonrpc":"2.0","id":7,"result":)", 0), 0U) << text;
    return Json(cJSON_DetachItemFromObjectCaseSensitive(answer.get(), "result"));
}

std::string SimTest::Control(const std::string &line)
{
    if (control_ < 0) {
        control_ = Connect(folder_ + "/control.sock");
    }
    const std::string out = line + "\n";
    EXPECT_EQ(send(control_, out.data(), out.size(), MSG_NOSIGNAL), static_cast<ssize_t>(out.size()));
    std::string answer;
    char byte = 0;
    while (WaitReadable(control_) && recv(control_, &byte, 1, 0) == 1 && byte != '\n') {
        answer += byte;
    }
    return answer;
}

std::vector<Json> SimTest::Record(size_t count) const
{
    std::vector<Json> lines;
    for (int waited = 0; waited < kBoundMs; waited++) {
        lines.clear();
        std::ifstream stream(folder_ + "/record.jsonl");
        for (std::string line; std::getline(stream, line);) {
            lines.emplace_back(cJSON_Parse(line.c_str()));
        }
        if (lines.size() >= count) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_GE(lines.size(), count);
    return lines;
}

std::string At(const cJSON *tree, const std::string &path)
{
    std::istringstream parts(path);
    for (std::string part; tree != nullptr && std::getline(parts, part, '.');) {
        tree = cJSON_IsArray(tree) != 0 ? cJSON_GetArrayItem(tree, std::atoi(part.c_str()))
                                        : cJSON_GetObjectItemCaseSensitive(tree, part.c_str());
    }
    if (tree == nullptr) {
        return "";
    }
    if (cJSON_IsString(tree) != 0) {
        return tree->valuestring;
    }
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(tree), &cJSON_free);
    return text.get();
}

uint64_t NumberAt(const cJSON *tree, const std::string &path)
{
    return std::strtoull(At(tree, path).c_str(), nullptr, 10);
}
