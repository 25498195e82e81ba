/**
 * @file CliUdsComm.h
 * @brief Messages between the management client and the server, cut into packets, and who may send them.
 *
 * Keeps no state but the list of users with full rights, which is constant. Each call has buffers of its own. Any
 * thread, one per socket and direction; blocks on the socket.
 */
#ifndef CLI_UDS_COMM_H
#define CLI_UDS_COMM_H

#include <cstddef>
#include <cstdint>
#include <pwd.h>
#include <string>

#include "infrastructure/common/corvane_export.h"

namespace CORVANE_CLI {

constexpr uint32_t CLI_MSG_HEAD_LEN = 40;          /**< bytes in front of the text */
constexpr uint32_t CLI_MSG_LEN_MAX = 0x2000000;    /**< bytes of a message with its head: 32 MiB */
constexpr uint32_t CLI_PACKET_DATA_MAX = 0x100000; /**< bytes of a message in one packet: 1 MiB */
constexpr uint32_t CLI_PACKET_HEAD_LEN = 50;
constexpr uint32_t CLI_PACKET_OVERHEAD = 52; /**< head and two bytes of filler */
constexpr uint32_t CLI_PACKET_LEN_MAX = CLI_PACKET_DATA_MAX + CLI_PACKET_OVERHEAD;
constexpr size_t CLI_USER_NAME_SIZE = 32;
constexpr size_t CLI_ACTION_NAME_SIZE = 10;

constexpr int CLI_SERVER_SIDE = 1; /**< the `srvId` whose packets are checked for the peer's rights */
constexpr int CLI_NO_SOCKET = -2;  /**< rights of a user by name instead of a peer */

enum CliPermission {
    CLI_PERMISSION_NONE = 0,
    CLI_PERMISSION_FULL = 1, /**< a listed user */
    CLI_PERMISSION_READ = 2, /**< a member of the group, for "show" and "help" */
};

/** A message: this head, then the text with its terminator. */
struct CliMsg {
    uint8_t zero0;
    uint8_t zero1;
    uint8_t one;
    uint8_t unused[29]; /**< no receiver reads them */
    uint32_t zero32;
    uint32_t zero36;
};
static_assert(sizeof(CliMsg) == CLI_MSG_HEAD_LEN && offsetof(CliMsg, zero32) == 32);

/** Head of a packet; the data follow at byte CLI_PACKET_HEAD_LEN. */
struct CliDataHead {
    uint8_t chunkCount;
    uint8_t chunkIndex;
    uint8_t unused[2];
    uint32_t totalLen; /**< of the message with its head; little-endian */
    char username[CLI_USER_NAME_SIZE];
    char actionName[CLI_ACTION_NAME_SIZE];
    char data[2]; /**< where the data begin; fills the record up to its alignment */
};
static_assert(sizeof(CliDataHead) == CLI_PACKET_OVERHEAD && offsetof(CliDataHead, totalLen) == 4);
static_assert(offsetof(CliDataHead, actionName) == 40 && offsetof(CliDataHead, data) == CLI_PACKET_HEAD_LEN);

class CORVANE_API CliUdsComm {
public:
    CliUdsComm();
    ~CliUdsComm(); // NOLINT(performance-trivially-destructible): hosts call it by name

    /** @brief Send a text. @return 0, -1, CLI_SEND_DATA_EXCEED, CLI_SOCKET_CLOSED_ERROR. */
    int SendString(const std::string &text, int sockFd, int srvId, const std::string &actionName);
    /** @brief Receive a text. @see RecvPacket */
    int RecvString(std::string &text, int sockFd, int srvId, std::string &userName, std::string &actionName);
    /** @brief Send a message of @p length bytes. @return 0, -1, CLI_SOCKET_CLOSED_ERROR. */
    int SendPacket(CliMsg *msg, unsigned int length, int sockFd, int srvId, const std::string &actionName);
    /**
     * @brief Receive the packets of one message and join them.
     * @param[in,out] userName, actionName  Empty: taken from the first packet. Every packet must carry the same.
     * @return 0, -1, CLI_RECV_TRANSMISSION_ERROR, CLI_USER_PERMISSION_ERROR.
     */
    int RecvPacket(std::string &text, int sockFd, int srvId, std::string &userName, std::string &actionName);
    /** @brief Fill a packet's head. @param[out] lastLen  Length of the last, short piece; 0 if there is none. */
    int PrepareSendPacket(CliDataHead *head, unsigned int length, int srvId, const std::string &actionName,
                          unsigned int &lastLen);
    /** @brief Send one piece behind the head. @param packet CLI_PACKET_LEN_MAX bytes. */
    int SendPacketProcess(CliDataHead *packet, const char *piece, unsigned int pieceLen, int sockFd);
    /** @brief Hand over the joined text, if the message is complete. @return @p status */
    int ProcessRecvPacket(std::string &text, const CliDataHead *head, const char *joined, unsigned int received,
                          int status);
    /** @brief Check one packet. @return 0, -1, CLI_USER_PERMISSION_ERROR. */
    int CheckUserPermission(std::string &userName, int sockFd, std::string &actionName, int srvId,
                            const CliDataHead *head);
    /** @brief Name of the process's own user. @return 0 or CLI_USER_PERMISSION_ERROR. */
    int GetUsersName(std::string &name);
    /**
     * @brief Decide what the peer of a socket, or with CLI_NO_SOCKET a user, may do.
     * @param[out] permission enum CliPermission
     * @return 0 or CLI_USER_PERMISSION_ERROR.
     */
    int GetUserinWhiteList(std::string userName, int &permission, const std::string &actionName, int sockFd);
    /** @brief The part of that decision that goes by groups. */
    void CheckUserGroup(struct passwd *user, int &permission, const std::string &actionName);
};

/** @brief Fill the head of a message. */
CORVANE_API void InnerInitCliMsg(CliMsg &msg);

} // namespace CORVANE_CLI

/** @return whether the text is not empty and holds nothing that a shell would take for more than a word. */
CORVANE_API bool IsCmdStrSecurity(std::string cmd);
/** @return the decimal number, or 0 for a text that is none, which is logged. */
CORVANE_API int CliUserNameCntStrToInt(std::string text);

#endif
