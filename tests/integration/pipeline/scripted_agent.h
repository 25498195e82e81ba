/**
 * @file scripted_agent.h
 * @brief An agent that lives inside a test and answers wrongly when it is told to.
 */
#ifndef SCRIPTED_AGENT_H
#define SCRIPTED_AGENT_H

#include <cjson/cJSON.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "data_collect/data_collect_master/dcm_types.h"
#include "infrastructure/common/corvane_raii.h"

namespace pipeline_test {

/** What an agent does with one request. */
enum class Manner {
    Answer,      /**< one write */
    CloseUnread, /**< closes while the request lies unread */
    CloseRead,   /**< reads the request and closes */
    Silent,      /**< reads, and says nothing until the peer gives up */
    Slow,        /**< answers when the request has come a second time */
};

struct Reply {
    Manner manner = Manner::Answer;
    std::string text;
};

struct AgentRequest {
    std::string method;
    std::vector<std::string> devices;
};

/** Serves a socket file, one thread for each connection. */
class ScriptedAgent {
public:
    using Handler = std::function<Reply(const AgentRequest &)>;

    ScriptedAgent(const std::string &name, const std::string &path, Handler handler) : handler_(std::move(handler))
    {
        EXPECT_LT(name.size(), sizeof(info_.name));
        std::memcpy(info_.name, name.data(), name.size());
        info_.AgentType = AGENT_TYPE_SOCK_FILE;
        EXPECT_LE(path.size(), sizeof(info_.address.path));
        std::memcpy(info_.address.path, path.data(), path.size());
        listener_.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.data(), path.size());
        EXPECT_EQ(bind(listener_.Get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(listener_.Get(), 128), 0);
        acceptor_ = std::thread([this] { Accept(); });
    }
    ~ScriptedAgent()
    {
        (void)shutdown(listener_.Get(), SHUT_RDWR);
        acceptor_.join();
        for (std::thread &connection : connections_) {
            connection.join();
        }
    }
    ScriptedAgent(const ScriptedAgent &) = delete;
    ScriptedAgent &operator=(const ScriptedAgent &) = delete;

    const AgentInfo &Info() const { return info_; }

private:
    void Accept()
    {
        for (;;) {
            const int fd = accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) {
                return;
            }
            connections_.emplace_back([this, fd] { Serve(UniqueFd(fd)); });
        }
    }
    static AgentRequest Read(const char *text)
    {
        AgentRequest request;
        const CJsonPtr json(cJSON_Parse(text));
        const char *method = cJSON_GetStringValue(cJSON_GetObjectItem(json.get(), "method"));
        request.method = method == nullptr ? "" : method;
        const cJSON *device = nullptr;
        cJSON_ArrayForEach(device, cJSON_GetObjectItem(cJSON_GetObjectItem(json.get(), "params"), "devices"))
        {
            const cJSON *name = cJSON_IsObject(device) ? cJSON_GetObjectItem(device, "device_name") : device;
            const char *text2 = cJSON_GetStringValue(name);
            request.devices.emplace_back(text2 == nullptr ? "" : text2);
        }
        return request;
    }
    void Serve(const UniqueFd &fd)
    {
        std::vector<char> text(16384);
        // A look before the request is taken: whether it may lie unread is decided by what it asks for.
        if (recv(fd.Get(), text.data(), text.size() - 1, MSG_PEEK) <= 0) {
            return;
        }
        const Reply reply = handler_(Read(text.data()));
        if (reply.manner == Manner::CloseUnread) {
            return;
        }
        if (recv(fd.Get(), text.data(), text.size(), 0) <= 0 || reply.manner == Manner::CloseRead) {
            return;
        }
        if (reply.manner == Manner::Silent) {
            while (recv(fd.Get(), text.data(), text.size(), 0) > 0) {
            }
            return;
        }
        if (reply.manner == Manner::Slow && recv(fd.Get(), text.data(), text.size(), 0) <= 0) {
            return;
        }
        (void)send(fd.Get(), reply.text.data(), reply.text.size(), MSG_NOSIGNAL);
    }

    Handler handler_;
    AgentInfo info_{};
    UniqueFd listener_;
    std::thread acceptor_;
    std::vector<std::thread> connections_;
};

} // namespace pipeline_test

#endif
