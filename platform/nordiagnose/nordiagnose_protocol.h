/**
 * @file nordiagnose_protocol.h
 * @brief What goes over the debug shell's socket, for the agent and its clients. Described in docs/wire-formats.md.
 *         C++ sources only.
 *
 * One connection carries one request. The agent answers with any number of OUTPUT frames and, if the request asks for
 * words, one WORDS frame; then comes END or REFUSED, and the agent closes.
 */
#ifndef NORDIAGNOSE_PROTOCOL_H
#define NORDIAGNOSE_PROTOCOL_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <endian.h>

namespace nordiag {

constexpr unsigned char kProtocolVersion = 1;
constexpr size_t kHeaderSize = 8;
constexpr uint32_t kMaxRequest = 16384; ///< payload bytes of a request
constexpr uint32_t kMaxAnswer = 65536;  ///< payload bytes of one frame of an answer
constexpr size_t kMaxWords = 64;        ///< words of a command, its group included

enum class FrameType : unsigned char {
    RUN = 'R',      ///< request: words of a command, the group first
    HELP = 'H',     ///< request: one word, the group
    GROUPS = 'G',   ///< request, empty: the groups
    COMMANDS = 'C', ///< request: one word, the group whose sub-commands are wanted
    STATE = 'S',    ///< request, empty: who answers
    OUTPUT = 'o',   ///< answer: what a command printed
    WORDS = 'w',    ///< answer: words, each with a terminating zero
    END = 'e',      ///< last frame: what the command returned, 4 bytes
    REFUSED = 'x',  ///< last frame: a Refusal in one byte, then a text for people
};

enum class Refusal : unsigned char {
    BAD_REQUEST = 1,   ///< not understood, or too large
    NOT_PERMITTED = 2, ///< the client's user may not
    BUSY = 3,          ///< all places for clients are taken
    NO_SUCH_GROUP = 4,
    NO_HELP = 5, ///< the group has no help
    ENDING = 6,  ///< the agent ends
    NO_MEMORY = 7,
};

struct FrameHeader {
    FrameType type;
    uint32_t size; ///< payload bytes that follow
};

/** "ND", version, type, then the size with its lowest byte first. */
inline std::array<unsigned char, kHeaderSize> PackHeader(FrameHeader header) noexcept
{
    std::array<unsigned char, kHeaderSize> bytes{'N', 'D', kProtocolVersion, static_cast<unsigned char>(header.type)};
    const uint32_t size = htole32(header.size);
    std::memcpy(&bytes[4], &size, sizeof(size));
    return bytes;
}

/** @return false if this is the start of no frame of this version. */
inline bool UnpackHeader(const std::array<unsigned char, kHeaderSize> &bytes, FrameHeader &header) noexcept
{
    uint32_t size = 0;
    std::memcpy(&size, &bytes[4], sizeof(size));
    header = {static_cast<FrameType>(bytes[3]), le32toh(size)};
    return bytes[0] == 'N' && bytes[1] == 'D' && bytes[2] == kProtocolVersion;
}

} // namespace nordiag

#endif
