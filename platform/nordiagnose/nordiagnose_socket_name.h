/**
 * @file nordiagnose_socket_name.h
 * @brief Names of the debug shell's sockets, PROCESS-ID.AGENT-NAME, for the agent and its clients. C++ sources only.
 */
#ifndef NORDIAGNOSE_SOCKET_NAME_H
#define NORDIAGNOSE_SOCKET_NAME_H

#include <charconv>
#include <string_view>
#include <sys/types.h>

namespace nordiag {

/** Where sockets stand when the process may write there: root's processes, as a rule. */
constexpr const char *kSystemFolder = "/run/nordiag";
/** Replaces every other folder. */
constexpr const char *kFolderVariable = "NORDIAG_DIR";

/** What a letter of an agent's name becomes in the file name: no separators, nothing that a terminal acts on. */
inline char SocketNameLetter(char letter) noexcept
{
    const bool plain = (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
                       (letter >= '0' && letter <= '9') || letter == '-' || letter == '_' || letter == '.';
    return plain ? letter : '_';
}

/** @return false if the file name is not one of a debug shell's socket. */
inline bool ParseSocketName(std::string_view file, pid_t &processId, std::string_view &agent) noexcept
{
    const char *end = file.data() + file.size();
    const auto [rest, failure] = std::from_chars(file.data(), end, processId);
    if (failure != std::errc() || processId <= 0 || rest == end || *rest != '.' || rest + 1 == end) {
        return false;
    }
    agent = file.substr(static_cast<size_t>(rest + 1 - file.data()));
    for (const char letter : agent) {
        if (SocketNameLetter(letter) != letter) {
            return false;
        }
    }
    return true;
}

} // namespace nordiag

#endif
