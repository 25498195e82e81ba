#include "debug_client.h"

#include <array>
#include <cstring>
#include <filesystem>
#include <sys/socket.h>
#include <sys/un.h>

#include "infrastructure/common/corvane_raii.h"
#include "nordiagnose/nordiagnose_protocol.h"

namespace {

bool ReadAll(int fd, void *buffer, size_t size)
{
    auto *at = static_cast<char *>(buffer);
    while (size > 0) {
        const ssize_t got = recv(fd, at, size, 0);
        if (got <= 0) {
            return false;
        }
        at += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

bool SendRun(int fd, const std::vector<std::string> &words)
{
    std::string payload;
    for (const std::string &word : words) {
        payload.append(word.c_str(), word.size() + 1);
    }
    const auto header = nordiag::PackHeader({nordiag::FrameType::RUN, static_cast<uint32_t>(payload.size())});
    const std::string bytes = std::string(header.begin(), header.end()) + payload;
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

} // namespace

DebugAnswer RunDebugCommand(const std::string &socketPath, const std::vector<std::string> &words)
{
    DebugAnswer answer;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof(address.sun_path)) {
        return answer;
    }
    std::memcpy(address.sun_path, socketPath.data(), socketPath.size());
    const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(fd.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        !SendRun(fd.Get(), words)) {
        return answer;
    }
    std::array<unsigned char, nordiag::kHeaderSize> bytes{};
    nordiag::FrameHeader header{};
    while (ReadAll(fd.Get(), bytes.data(), bytes.size()) && nordiag::UnpackHeader(bytes, header)) {
        std::string payload(header.size, '\0');
        if (!ReadAll(fd.Get(), payload.data(), payload.size())) {
            break;
        }
        if (header.type == nordiag::FrameType::OUTPUT) {
            answer.output += payload;
        }
        if (header.type == nordiag::FrameType::END && payload.size() == sizeof(answer.result)) {
            std::memcpy(&answer.result, payload.data(), payload.size());
            answer.complete = true;
            break;
        }
    }
    return answer;
}

std::string OnlySocketIn(const std::string &folder)
{
    std::string found;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        if (entry.is_socket()) {
            if (!found.empty()) {
                return "";
            }
            found = entry.path();
        }
    }
    return found;
}
