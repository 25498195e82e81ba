/**
 * @file debug_shell_client.h
 * @brief A client of the debug shell that knows the bytes of docs/wire-formats.md and nothing else.
 */
#ifndef DEBUG_SHELL_CLIENT_H
#define DEBUG_SHELL_CLIENT_H

#include <cerrno>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "platform_test_support.h"

struct DebugShellAnswer {
    std::string output;
    std::vector<std::string> words;
    int result = -1;
    int refusal = 0; ///< 0: none
    std::string text;
    bool complete = false; ///< the last frame came
};

class DebugShellClient {
public:
    explicit DebugShellClient(const std::string &path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (void)path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        const timeval limit{kPatienceSeconds, 0};
        (void)setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        connected_ = connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
    }
    ~DebugShellClient() { Close(); }
    DebugShellClient(const DebugShellClient &) = delete;
    DebugShellClient &operator=(const DebugShellClient &) = delete;

    [[nodiscard]] bool Connected() const { return connected_; }
    void Close()
    {
        if (fd_ >= 0) {
            (void)close(fd_);
            fd_ = -1;
        }
    }
    void SendRaw(const std::string &bytes) const { (void)!send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    static std::string Frame(char type, const std::string &payload)
    {
        std::string bytes = {'N', 'D', '\1', type};
        for (int shift = 0; shift < 32; shift += 8) {
            bytes += static_cast<char>(payload.size() >> shift);
        }
        return bytes + payload;
    }
    static std::string Words(const std::vector<std::string> &words)
    {
        std::string payload;
        for (const std::string &word : words) {
            payload += word + '\0';
        }
        return payload;
    }
    void Send(char type, const std::vector<std::string> &words = {}) const { SendRaw(Frame(type, Words(words))); }
    [[nodiscard]] DebugShellAnswer Receive() const
    {
        DebugShellAnswer answer;
        while (!answer.complete) {
            const std::string header = ReadExactly(8);
            if (header.size() < 8 || header.compare(0, 3, "ND\1") != 0) {
                break;
            }
            uint32_t size = 0;
            for (size_t i = 0; i < 4; i++) {
                size |= static_cast<uint32_t>(static_cast<unsigned char>(header[4 + i])) << (8 * i);
            }
            Take(header[3], ReadExactly(size), answer);
        }
        return answer;
    }
    [[nodiscard]] DebugShellAnswer Ask(char type, const std::vector<std::string> &words = {}) const
    {
        Send(type, words);
        return Receive();
    }
    /** Waits for the other side to end the connection. */
    [[nodiscard]] bool Ends() const
    {
        char rest[4096];
        ssize_t count = 0;
        while ((count = recv(fd_, rest, sizeof(rest), 0)) > 0) {
        }
        return count == 0 || (errno != EAGAIN && errno != EINTR);
    }

private:
    [[nodiscard]] std::string ReadExactly(size_t size) const
    {
        std::string bytes(size, '\0');
        size_t got = 0;
        while (got < size) {
            const ssize_t count = recv(fd_, &bytes[got], size - got, 0);
            if (count <= 0) {
                break;
            }
            got += static_cast<size_t>(count);
        }
        bytes.resize(got);
        return bytes;
    }
    static void Take(char type, const std::string &payload, DebugShellAnswer &answer)
    {
        switch (type) {
        case 'o':
            answer.output += payload;
            return;
        case 'w':
            for (size_t at = 0; at < payload.size(); at += answer.words.back().size() + 1) {
                answer.words.emplace_back(payload.c_str() + at);
            }
            return;
        case 'e':
            answer.result = payload.size() == 4 ? payload[0] + payload[1] * 256 : -1;
            answer.complete = payload.size() == 4;
            return;
        case 'x':
            answer.refusal = payload.empty() ? -1 : payload[0];
            answer.text = payload.empty() ? "" : payload.substr(1);
            answer.complete = true;
            return;
        default:
            ADD_FAILURE() << "frame of type " << type;
        }
    }

    int fd_;
    bool connected_ = false;
};

#endif
