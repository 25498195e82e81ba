#include "cli/server/CliUdsServer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "bounded/bounded.h"
#include "cli/common/CLogger.h"
#include "cli/common/CliResultCode.h"
#include "cli/common/CliUdsComm.h"
#include "cli/common/XmlModule.h"
#include "cli/server/CliCmdHandler.h"
#include "config/corvane_prefix_path.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace CORVANE_CLI {

namespace {

constexpr size_t kPathSize = 4096;
constexpr size_t kSocketPathSize = 107; // with the terminator
constexpr const char *kSocketName = "config/CLI_UDS.unix";
constexpr mode_t kSocketMode = 0660;
constexpr int kBacklog = 1024;
constexpr time_t kReceiveTimeoutSeconds = 60;
constexpr useconds_t kIdlePauseUs = 100000;
constexpr useconds_t kStopPauseUs = 200000;
constexpr useconds_t kAcceptPauseUs = 10000;

bool SocketPath(std::array<char, kPathSize> &path)
{
    const char *prefix = GetPrefixPath();
    return prefix != nullptr &&
           snprintf_s(path.data(), path.size(), path.size() - 1, "%s/%s", prefix, kSocketName) >= 0;
}

void CloseSocket(int fd)
{
    (void)shutdown(fd, SHUT_RDWR);
    (void)close(fd);
}

/**
 * Splits a text at its first blank, with positions of 32 bits: without a blank the word is the whole text, and so is
 * the rest.
 */
struct Split {
    std::string word;
    std::string rest;

    explicit Split(const std::string &text)
    {
        const auto blank = static_cast<uint32_t>(text.find(' '));
        word = text.substr(0, blank);
        rest = text.substr(static_cast<uint32_t>(blank + 1));
    }
};

bool RefusesActionMismatch()
{
    return std::atomic_ref<uint32_t>(g_cliRefuseActionMismatch).load(std::memory_order_relaxed) == 1;
}

} // namespace

CliUdsServer::CliUdsServer() = default;

CliUdsServer &CliUdsServer::GetInstance()
{
    // Never destroyed: its threads may run until the process ends.
    static CliUdsServer *const instance = new CliUdsServer;
    return *instance;
}

int CliUdsServer::InitCliServer()
{
    (void)InitLog(); // a server without a log serves
    CLI_LOG_INFO("Init server log success.");
    CLI_LOG_TO(g_objLoggerOpt, CLI_LOG_LEVEL_INFO, 1, "Init server log success.");

    UniqueFd fd(g_osCalls.socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (fd.Get() < 0) {
        CLI_LOG_ERROR("Init accept socket failed.");
        return CLI_FAIL;
    }
    std::array<char, kPathSize> path{};
    if (!SocketPath(path)) {
        CLI_LOG_ERROR("Connect server fail due to concatenate config prefix error.");
        return CLI_FAIL;
    }
    (void)g_osCalls.unlink(path.data()); // left by an earlier run
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (strcpy_s(address.sun_path, kSocketPathSize, path.data()) != 0) {
        CLI_LOG_ERROR("strcpy failed.");
        return CLI_FAIL;
    }
    if (bind(fd.Get(), reinterpret_cast<const struct sockaddr *>(&address), sizeof(address)) != 0) {
        CLI_LOG_ERROR("Bind socket failed.");
        return CLI_FAIL;
    }
    if (listen(fd.Get(), kBacklog) != 0) {
        CLI_LOG_ERROR("Listen socket failed.");
        return CLI_FAIL;
    }
    if (g_osCalls.chmod(path.data(), kSocketMode) != 0) {
        CLI_LOG_ERROR("Chmod %s failed.", path.data());
        return CLI_FAIL;
    }
    m_listenFd = fd.Release();
    if (!StartThreads() || CliCmdHandler::GetInstance().Initialize() != CLI_OK) {
        CLI_LOG_ERROR("Init server failed.");
        CloseSocket(m_listenFd.exchange(-1));
        return CLI_FAIL;
    }
    return CLI_OK;
}

bool CliUdsServer::StartThreads()
{
    try {
        m_acceptThread = std::thread(&CliUdsServer::Run, this);
        m_acceptThread.detach();
        m_recvThread = std::thread(&CliUdsServer::InnerRecvThreadRun, this);
        m_recvThread.detach();
    } catch (const std::exception &error) {
        CLI_LOG_ERROR("no thread for the server: %s", error.what());
        return false;
    }
    return true;
}

void CliUdsServer::Run()
{
    CLI_LOG_INFO("Start accept thread.");
    while (m_stop == 0) {
        if (AcceptCliServer() != CLI_OK) {
            (void)usleep(kAcceptPauseUs); // no descriptor left, say: others must get on
        }
    }
    CLI_LOG_INFO("End accept thread.");
}

int CliUdsServer::AcceptCliServer()
{
    struct sockaddr_un address = {};
    socklen_t length = sizeof(address);
    const int fd = accept4(m_listenFd, reinterpret_cast<struct sockaddr *>(&address), &length, SOCK_CLOEXEC);
    if (fd < 0) {
        return CLI_FAIL;
    }
    const struct timeval timeout = {kReceiveTimeoutSeconds, 0};
    if (g_osCalls.setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) != 0) {
        CLI_LOG_ERROR("CLI_RECV_TRANSMISSION_ERROR 0x%x.", static_cast<unsigned int>(CLI_RECV_TRANSMISSION_ERROR));
        CloseSocket(fd);
        return CLI_RECV_TRANSMISSION_ERROR;
    }
    try {
        const std::lock_guard<std::mutex> guard(m_clientsMutex);
        m_clients.push_back(fd);
    } catch (const std::exception &error) {
        CLI_LOG_ERROR("No room for one more client, %s.", error.what());
        CloseSocket(fd);
        return CLI_FAIL;
    }
    CLI_LOG_INFO("Client connected.clientId(%d).", fd);
    return CLI_OK;
}

void CliUdsServer::InnerRecvThreadRun()
{
    CLI_LOG_INFO("Start recv thread.");
    size_t cursor = 0;
    while (m_stop == 0) {
        int fd = -1;
        {
            std::unique_lock<std::mutex> lock(m_clientsMutex);
            if (m_clients.empty()) {
                lock.unlock();
                (void)usleep(kIdlePauseUs);
                continue;
            }
            if (cursor >= m_clients.size()) {
                cursor = 0;
            }
            fd = m_clients[cursor];
            m_clients.erase(m_clients.begin() + static_cast<ptrdiff_t>(cursor));
        }
        if (fd != -1) {
            ServeClient(fd);
            cursor++;
        }
    }
    CLI_LOG_INFO("End recv thread.");
}

void CliUdsServer::ServeClient(int clientFd)
{
    try {
        InnerRecvTask(clientFd);
    } catch (const std::exception &error) {
        CLI_LOG_ERROR("request of client(%d) ended by an exception: %s", clientFd, error.what());
        CloseClient(clientFd);
    }
}

void CliUdsServer::InnerRecvTask(int clientFd)
{
    std::string text;
    std::string userName;
    std::string authorised;
    if (RecvMsg(text, clientFd, userName, authorised) != CLI_OK) {
        CLI_LOG_INFO("Recv failed err(%s), client(%d) disconnected.", ErrorText(errno).Get(), clientFd);
        CloseClient(clientFd);
        return;
    }

    XmlModule xml;
    CmdData data;
    data.name = xml.AnalysisXml(text, "cmd");
    const Split request(xml.AnalysisXml(text, "agrs"));
    const Split command(request.rest);
    // The second word counts, whatever the element "cmd" says.
    data.name = command.word;
    data.param = "action=" + request.word + " " + command.rest + " userName=" + userName;
    data.clientFd = clientFd;

    if (RefusesActionMismatch() && request.word != authorised) {
        CLI_LOG_ERROR("client(%d) asked for %s and was authorised for %s, refused 0x%x.", clientFd,
                      request.word.c_str(), authorised.c_str(), static_cast<unsigned int>(CLI_USER_PERMISSION_ERROR));
        std::string nothing = "null";
        (void)CliSendAnswer(clientFd, nothing, CLI_USER_PERMISSION_ERROR, authorised);
        CloseClient(clientFd);
        return;
    }
    const int result = CliCmdHandler::GetInstance().PushCmdTask(data, request.word);
    if (result != CLI_OK) {
        CLI_LOG_ERROR("push cmd task fail. clientFd:%d, ret:%d", clientFd, result);
        CloseClient(clientFd);
    }
}

void CliUdsServer::CloseClient(int clientFd)
{
    const std::lock_guard<std::mutex> guard(m_clientsMutex);
    const auto at = std::find(m_clients.begin(), m_clients.end(), clientFd);
    if (at != m_clients.end()) {
        m_clients.erase(at);
    }
    CloseSocket(clientFd);
}

void CliUdsServer::Stop()
{
    m_stop = 1;
    (void)usleep(kStopPauseUs);
}

int CliUdsServer::UnInitCliServer()
{
    Stop();
    const int fd = m_listenFd.exchange(-1);
    if (fd != -1) {
        CloseSocket(fd);
    }
    {
        const std::lock_guard<std::mutex> guard(m_clientsMutex);
        for (int &client : m_clients) {
            if (client != -1) {
                CloseSocket(client);
                client = -1;
            }
        }
        m_clients.clear();
    }
    for (std::thread *thread : {&m_acceptThread, &m_recvThread}) {
        if (thread->joinable()) {
            thread->join();
        }
    }
    std::array<char, kPathSize> path{};
    if (!SocketPath(path)) {
        CLI_LOG_ERROR("Concatenate config prefix failed.");
        return CLI_FAIL;
    }
    (void)g_osCalls.unlink(path.data());
    return CLI_OK;
}

int CliUdsServer::SendMsg(const std::string &text, int sockFd, const std::string &actionName)
{
    if (sockFd == -1) {
        CLI_LOG_ERROR("sockFd(%d) is invalid.", sockFd);
        return CLI_FAIL;
    }
    CliUdsComm comm;
    return comm.SendString(text, sockFd, CLI_SERVER_SIDE, actionName);
}

int CliUdsServer::RecvMsg(std::string &text, int sockFd, std::string &userName, std::string &actionName)
{
    if (sockFd == -1) {
        return CLI_FAIL;
    }
    CliUdsComm comm;
    return comm.RecvString(text, sockFd, CLI_SERVER_SIDE, userName, actionName);
}

} // namespace CORVANE_CLI

extern "C" {

CORVANE_API uint32_t g_cliRefuseActionMismatch = 0;

CORVANE_API int InitCliServertoC(void) noexcept
{
    try {
        return CORVANE_CLI::CliUdsServer::GetInstance().InitCliServer();
    } catch (const std::exception &error) {
        CLI_LOG_ERROR("Init server failed: %s", error.what()); // no memory, or no thread
        return CORVANE_CLI::CLI_FAIL;
    }
}

CORVANE_API int UnInitCliServertoC(void) noexcept
{
    try {
        return CORVANE_CLI::CliUdsServer::GetInstance().UnInitCliServer();
    } catch (const std::exception &error) {
        CLI_LOG_ERROR("Stop server failed: %s", error.what());
        return CORVANE_CLI::CLI_FAIL;
    }
}

} // extern "C"
