/**
 * @file strange_peer.h
 * @brief Somebody behind a debug shell's socket who answers as the test says, and not as an agent would.
 */
#ifndef STRANGE_PEER_H
#define STRANGE_PEER_H

#include <atomic>
#include <cstdint>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

constexpr uid_t kNobody = 65534;

/** One frame of the protocol. */
inline std::string Frame(char type, const std::string &payload)
{
    std::string frame = std::string("ND\1") + type;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        frame += static_cast<char>(payload.size() >> shift);
    }
    return frame + payload;
}

inline std::string Words(const std::vector<std::string> &words)
{
    std::string payload;
    for (const std::string &word : words) {
        payload += word + '\0';
    }
    return Frame('w', payload);
}

inline std::string End()
{
    return Frame('e', std::string(4, '\0'));
}

inline std::string Refused(const std::string &text)
{
    return Frame('x', '\2' + text);
}

/** @return a socket that listens at the path, as the user's. */
inline int ListenAs(uid_t user, const std::string &path)
{
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (void)path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const uid_t before = geteuid();
    // The kernel remembers who binds and listens.
    EXPECT_EQ(seteuid(user), 0);
    EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0) << path;
    EXPECT_EQ(listen(listener, 16), 0);
    EXPECT_EQ(seteuid(before), 0);
    return listener;
}

/** Its file stays when it ends. */
class StrangePeer {
public:
    /** @param answers By the type of the request; all other requests get an END. */
    StrangePeer(uid_t user, const std::string &path, std::map<char, std::string> answers = {})
        : answers_(std::move(answers)), listener_(ListenAs(user, path)), thread_([this] { Serve(); })
    {
    }
    ~StrangePeer()
    {
        (void)shutdown(listener_, SHUT_RDWR);
        thread_.join();
        (void)close(listener_);
    }
    StrangePeer(const StrangePeer &) = delete;
    StrangePeer &operator=(const StrangePeer &) = delete;

    /** Those that have been made of it. */
    [[nodiscard]] int Requests() const { return requests_; }

private:
    void Serve()
    {
        for (int client = 0; (client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; (void)close(client)) {
            unsigned char header[8];
            if (recv(client, header, sizeof(header), MSG_WAITALL) != sizeof(header)) {
                continue;
            }
            requests_++;
            std::string payload(header[4] + 256U * header[5], '\0');
            if (!payload.empty()) { // for no bytes recv() waits until there are some
                (void)recv(client, payload.data(), payload.size(), MSG_WAITALL);
            }
            const auto answer = answers_.find(static_cast<char>(header[3]));
            const std::string bytes = answer != answers_.end() ? answer->second : End();
            (void)send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        }
    }

    std::map<char, std::string> answers_;
    std::atomic<int> requests_{0};
    int listener_;
    std::thread thread_;
};

#endif
