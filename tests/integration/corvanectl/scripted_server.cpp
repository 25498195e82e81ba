#include "scripted_server.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "cli/common/CliUdsComm.h"
#include "cli/common/XmlModule.h"

using CORVANE_CLI::CliUdsComm;
using CORVANE_CLI::XmlModule;

namespace {

constexpr int kUnchecked = 0; // the side whose packets are not checked for rights
constexpr auto kPatience = std::chrono::seconds(60);

} // namespace

ScriptedServer::ScriptedServer(std::string path, Script script) : path_(std::move(path)), script_(std::move(script))
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (void)path_.copy(address.sun_path, sizeof(address.sun_path) - 1);
    (void)unlink(path_.c_str());
    listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener_ < 0 || bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listener_, 64) != 0) {
        std::abort();
    }
    thread_ = std::thread(&ScriptedServer::Serve, this);
}

ScriptedServer::~ScriptedServer()
{
    (void)shutdown(listener_, SHUT_RDWR);
    thread_.join();
    (void)close(listener_);
    for (const int fd : stalled_) {
        (void)close(fd);
    }
}

void ScriptedServer::Serve()
{
    for (int client = 0; (client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        ServeClient(client);
    }
}

void ScriptedServer::ServeClient(int client)
{
    CliUdsComm comm;
    XmlModule xml;
    std::string document;
    std::string user;
    std::string action;
    if (comm.RecvString(document, client, kUnchecked, user, action) != 0) {
        (void)close(client);
        return;
    }
    const std::string request = xml.AnalysisXml(document, "agrs");
    Reply reply;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        requests_.push_back(request);
        lastAction_ = action;
        reply = script_(request);
    }
    changed_.notify_all();
    switch (reply.kind) {
    case Reply::Kind::ANSWER:
        (void)comm.SendString(xml.SvCMDtoXml(reply.text + " errorCode=" + std::to_string(reply.code)), client,
                              kUnchecked, "");
        break;
    case Reply::Kind::RAW:
        (void)comm.SendString(reply.text, client, kUnchecked, "");
        break;
    case Reply::Kind::PARTIAL:
    case Reply::Kind::BROKEN: {
        CORVANE_CLI::CliDataHead head = {};
        head.chunkCount = 2;
        head.totalLen = 100;
        (void)send(client, &head, sizeof(head), MSG_NOSIGNAL);
        if (reply.kind == Reply::Kind::BROKEN) {
            break;
        }
        stalled_.push_back(client);
        return;
    }
    case Reply::Kind::STALL:
        stalled_.push_back(client);
        return;
    case Reply::Kind::CLOSE:
        break;
    }
    (void)close(client);
}

std::vector<std::string> ScriptedServer::Requests()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return requests_;
}

bool ScriptedServer::WaitForRequests(size_t count)
{
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, kPatience, [&] { return requests_.size() >= count; });
}

std::string ScriptedServer::LastAction()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return lastAction_;
}
