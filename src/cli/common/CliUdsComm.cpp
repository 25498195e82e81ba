#include "cli/common/CliUdsComm.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "bounded/bounded.h"
#include "cli/common/CLogger.h"
#include "cli/common/CliAccounts.h"
#include "cli/common/CliResultCode.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace CORVANE_CLI {

namespace {

constexpr const char *kGroup = "corvane_group";
constexpr unsigned int kPacketShift = 20; // CLI_PACKET_DATA_MAX is 1 << 20
constexpr int kGroupsMax = 0x10000;

const std::array<std::string_view, 2> g_cliWhiteList = {"root", "corvane_user"};

/** A text field of a packet's head, which a peer may send without its
 * terminator. */
template <size_t N>
std::string HeadText(const char (&field)[N])
{
    return std::string(field, strnlen(field, N));
}

/** Zeroed memory, or null. */
MallocPtr<char> ZeroedBuffer(size_t size)
{
    MallocPtr<char> buffer(static_cast<char *>(g_osCalls.malloc(size)));
    if (buffer != nullptr) {
        std::memset(buffer.get(), 0, size);
    }
    return buffer;
}

bool IsReadAction(const std::string &actionName)
{
    return actionName == "help" || actionName == "show";
}

/** The image of a message while its packets come in. */
struct Joined {
    MallocPtr<char> image;
    unsigned int size = 0;     /**< as the first packet says */
    unsigned int received = 0; /**< bytes so far */
};

/** Appends one packet's piece. @return false if it does not fit, or is shorter
 * than a head. */
bool AppendPiece(Joined &joined, const CliDataHead *head, ssize_t packetLen)
{
    const unsigned int end = std::min(joined.size, head->totalLen);
    const unsigned int room = end > joined.received ? end - joined.received : 0;
    const auto pieceLen = static_cast<size_t>(packetLen) - CLI_PACKET_OVERHEAD;
    if (packetLen < static_cast<ssize_t>(CLI_PACKET_OVERHEAD) || pieceLen > room) {
        return false;
    }
    // A piece of no bytes is no failure.
    if (pieceLen != 0) {
        std::memcpy(joined.image.get() + joined.received, head->data, pieceLen);
    }
    joined.received += static_cast<unsigned int>(pieceLen);
    return true;
}

} // namespace

void InnerInitCliMsg(CliMsg &msg)
{
    msg.zero0 = 0;
    msg.zero1 = 0;
    msg.one = 1;
    msg.zero32 = 0;
    msg.zero36 = 0;
}

CliUdsComm::CliUdsComm() = default;
CliUdsComm::~CliUdsComm() = default;

int CliUdsComm::SendString(const std::string &text, int sockFd, int srvId, const std::string &actionName)
{
    const size_t length = text.size() + CLI_MSG_HEAD_LEN + 1;
    if (length > CLI_MSG_LEN_MAX) {
        CLI_LOG_ERROR("CLI_SEND_DATA_EXCEED 0x%x.", static_cast<unsigned int>(CLI_SEND_DATA_EXCEED));
        return CLI_SEND_DATA_EXCEED;
    }
    const MallocPtr<char> image = ZeroedBuffer(length);
    if (image == nullptr) {
        return CLI_FAIL;
    }
    auto *msg = reinterpret_cast<CliMsg *>(image.get());
    InnerInitCliMsg(*msg);
    if (memcpy_s(image.get() + CLI_MSG_HEAD_LEN, length - CLI_MSG_HEAD_LEN, text.c_str(), text.size() + 1) != 0) {
        CLI_LOG_ERROR("String sending fail due to string copying error.");
        return CLI_FAIL;
    }
    return SendPacket(msg, static_cast<unsigned int>(length), sockFd, srvId, actionName);
}

int CliUdsComm::RecvString(std::string &text, int sockFd, int srvId, std::string &userName, std::string &actionName)
{
    return RecvPacket(text, sockFd, srvId, userName, actionName);
}

int CliUdsComm::SendPacket(CliMsg *msg, unsigned int length, int sockFd, int srvId, const std::string &actionName)
{
    if (sockFd == -1) {
        return CLI_FAIL;
    }
    const MallocPtr<char> packet = ZeroedBuffer(CLI_PACKET_LEN_MAX);
    if (packet == nullptr) {
        CLI_LOG_ERROR("data is NULL.");
        return CLI_FAIL;
    }
    auto *head = reinterpret_cast<CliDataHead *>(packet.get());
    unsigned int lastLen = 0;
    if (PrepareSendPacket(head, length, srvId, actionName, lastLen) != CLI_OK) {
        CLI_LOG_ERROR("Packet initialization fail.");
        return CLI_FAIL;
    }

    const char *image = reinterpret_cast<const char *>(msg);
    const unsigned int fullPackets = length >> kPacketShift;
    int result = CLI_OK;
    for (unsigned int i = 0; i < fullPackets && result == CLI_OK; i++) {
        head->chunkIndex = static_cast<uint8_t>(i);
        result = SendPacketProcess(head, image + (size_t{i} << kPacketShift), CLI_PACKET_DATA_MAX, sockFd);
    }
    if (result == CLI_OK && lastLen != 0) {
        head->chunkIndex = static_cast<uint8_t>(fullPackets);
        result = SendPacketProcess(head, image + (size_t{fullPackets} << kPacketShift), lastLen, sockFd);
    }
    if (result == CLI_OK) {
        CLI_LOG_INFO("Send success.sendLen:%d.", static_cast<int>(length));
    }
    return result;
}

int CliUdsComm::PrepareSendPacket(CliDataHead *head, unsigned int length, int srvId, const std::string &actionName,
                                  unsigned int &lastLen)
{
    std::string userName;
    (void)GetUsersName(userName); // without a name the peer decides
    if (strcpy_s(head->username, sizeof(head->username), userName.c_str()) != 0) {
        CLI_LOG_ERROR("Packet preparing fail due to usersname copying error.");
        return CLI_FAIL;
    }
    if (strcpy_s(head->actionName, sizeof(head->actionName), actionName.c_str()) != 0) {
        CLI_LOG_ERROR("Packet preparing fail due to actionName copying error.");
        return CLI_FAIL;
    }
    CLI_LOG_DEBUG("srvId: %d, username:%s, dataHead->username:%s, actionName:%s, "
                  "dataHead->actionName:%s.",
                  srvId, userName.c_str(), head->username, actionName.c_str(), head->actionName);

    head->totalLen = length;
    const unsigned int fullPackets = length >> kPacketShift;
    lastLen = length & (CLI_PACKET_DATA_MAX - 1);
    head->chunkCount = static_cast<uint8_t>(fullPackets + (lastLen != 0 ? 1 : 0));
    return CLI_OK;
}

int CliUdsComm::SendPacketProcess(CliDataHead *packet, const char *piece, unsigned int pieceLen, int sockFd)
{
    if (memcpy_s(packet->data, CLI_PACKET_DATA_MAX, piece, pieceLen) != 0) {
        CLI_LOG_ERROR("Packet preparing fail due to string copying error.");
        return CLI_FAIL;
    }
    const ssize_t sent = g_osCalls.send(sockFd, packet, size_t{pieceLen} + CLI_PACKET_OVERHEAD, MSG_NOSIGNAL);
    // Looked at whatever send() returned: a peer that went away earlier counts as
    // gone.
    if (errno == EPIPE) {
        CLI_LOG_ERROR("Send fail. Socket closed by remote, errno{%d}.", EPIPE);
        return CLI_SOCKET_CLOSED_ERROR;
    }
    if (sent < 1) {
        CLI_LOG_ERROR("Send fail.sendLen:%d.", static_cast<int>(packet->totalLen));
        return CLI_FAIL;
    }
    return CLI_OK;
}

int CliUdsComm::RecvPacket(std::string &text, int sockFd, int srvId, std::string &userName, std::string &actionName)
{
    if (sockFd == -1) {
        CLI_LOG_ERROR("connect is not success.");
        return CLI_FAIL;
    }
    const MallocPtr<char> packet = ZeroedBuffer(CLI_PACKET_LEN_MAX);
    if (packet == nullptr) {
        CLI_LOG_ERROR("data is NULL.");
        return CLI_FAIL;
    }
    const auto *head = reinterpret_cast<const CliDataHead *>(packet.get());

    Joined joined;
    int status = CLI_OK;
    int recvError = 0;
    while (true) {
        const ssize_t packetLen = g_osCalls.recv(sockFd, packet.get(), CLI_PACKET_LEN_MAX, 0);
        recvError = packetLen < 0 ? errno : 0;
        if (packetLen <= 0 || joined.received >= head->totalLen || head->totalLen > CLI_MSG_LEN_MAX) {
            CLI_LOG_ERROR("Recv fail.recvlen:%d, totallen:%d", static_cast<int>(packetLen),
                          static_cast<int>(head->totalLen));
            status = CLI_RECV_TRANSMISSION_ERROR;
            break;
        }
        if (CheckUserPermission(userName, sockFd, actionName, srvId, head) != CLI_OK) {
            status = CLI_USER_PERMISSION_ERROR;
            break;
        }
        if (joined.image == nullptr) {
            joined.size = head->totalLen;
            // One byte more: the text ends there at the latest.
            joined.image = ZeroedBuffer(size_t{joined.size} + 1);
            if (joined.image == nullptr) {
                CLI_LOG_ERROR("pRecvBuf is null");
                status = CLI_FAIL;
                break;
            }
        }
        if (!AppendPiece(joined, head, packetLen)) {
            CLI_LOG_ERROR("Packet receiving problem due to string copying error.");
            break;
        }
        if (int{head->chunkIndex} >= int{head->chunkCount} - 1) {
            break;
        }
    }
    (void)ProcessRecvPacket(text, head, joined.image.get(), joined.received, status);
    if (status == CLI_RECV_TRANSMISSION_ERROR) {
        errno = recvError; // the caller tells it; our log lines have written over it
    }
    return status;
}

int CliUdsComm::ProcessRecvPacket(std::string &text, const CliDataHead *head, const char *joined, unsigned int received,
                                  int status)
{
    CLI_LOG_DEBUG("Recv success.recvLen:%d.", static_cast<int>(received));
    if (int{head->chunkIndex} == int{head->chunkCount} - 1 && status == CLI_OK && received > CLI_MSG_HEAD_LEN) {
        text = joined + CLI_MSG_HEAD_LEN;
    }
    return status;
}

int CliUdsComm::CheckUserPermission(std::string &userName, int sockFd, std::string &actionName, int srvId,
                                    const CliDataHead *head)
{
    const std::string headUser = HeadText(head->username);
    const std::string headAction = HeadText(head->actionName);
    if (userName.empty()) {
        userName = headUser;
    }
    if (actionName.empty()) {
        actionName = headAction;
    }
    if (userName != headUser) {
        CLI_LOG_ERROR("recv different username, old: %s, new: %s.\n", userName.c_str(), headUser.c_str());
        return CLI_FAIL;
    }
    if (actionName != headAction) {
        CLI_LOG_ERROR("recv different actionName, old: %s, new: %s.\n", actionName.c_str(), headAction.c_str());
        return CLI_FAIL;
    }
    if (srvId != CLI_SERVER_SIDE) {
        return CLI_OK;
    }

    int permission = CLI_PERMISSION_NONE;
    if (GetUserinWhiteList(userName, permission, actionName, sockFd) != CLI_OK) {
        CLI_LOG_ERROR("compare fail\n.");
        return CLI_USER_PERMISSION_ERROR;
    }
    if (permission == CLI_PERMISSION_NONE) {
        CLI_LOG_ERROR("CLI_USER_PERMISSION_ERROR 0x%x.", static_cast<unsigned int>(CLI_USER_PERMISSION_ERROR));
        return CLI_USER_PERMISSION_ERROR;
    }
    return CLI_OK;
}

int CliUdsComm::GetUsersName(std::string &name)
{
    UserRecord user;
    if (!FindUser(getuid(), user)) {
        CLI_LOG_ERROR("Getpwuid failed; 0x%x.", static_cast<unsigned int>(CLI_USER_PERMISSION_ERROR));
        return CLI_USER_PERMISSION_ERROR;
    }
    name = user.entry.pw_name;
    return CLI_OK;
}

int CliUdsComm::GetUserinWhiteList(std::string userName, int &permission, const std::string &actionName, int sockFd)
{
    constexpr auto refused = static_cast<unsigned int>(CLI_USER_PERMISSION_ERROR);
    if (userName.empty()) {
        CLI_LOG_ERROR("Username is empty; 0x%x.", refused);
        return CLI_USER_PERMISSION_ERROR;
    }
    if (actionName.empty()) {
        CLI_LOG_ERROR("ActionName is empty; 0x%x.", refused);
        return CLI_USER_PERMISSION_ERROR;
    }

    UserRecord user;
    bool found = false;
    if (sockFd != CLI_NO_SOCKET) {
        // The kernel's word on the peer decides, not the name that it sent.
        struct ucred peer = {};
        socklen_t length = sizeof(peer);
        if (getsockopt(sockFd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) {
            CLI_LOG_ERROR("Getsockopt failed; 0x%x.", refused);
            return CLI_USER_PERMISSION_ERROR;
        }
        found = FindUser(peer.uid, user);
    } else {
        found = FindUser(userName, user);
    }
    if (!found) {
        CLI_LOG_ERROR("Get clientUserInfo failed; 0x%x.", refused);
        return CLI_USER_PERMISSION_ERROR;
    }

    if (std::find(g_cliWhiteList.begin(), g_cliWhiteList.end(), user.entry.pw_name) != g_cliWhiteList.end()) {
        permission = CLI_PERMISSION_FULL;
        return CLI_OK;
    }
    CheckUserGroup(&user.entry, permission, actionName);
    return CLI_OK;
}

void CliUdsComm::CheckUserGroup(struct passwd *user, int &permission, const std::string &actionName)
{
    permission = CLI_PERMISSION_NONE;
    std::string name;
    if (!FindGroupName(user->pw_gid, name)) {
        return; // an account without a group record gets nothing
    }
    const bool readAction = IsReadAction(actionName);
    if (name == kGroup && readAction) {
        permission = CLI_PERMISSION_READ;
        return;
    }

    std::vector<gid_t> groups(kGroupsMax);
    int count = kGroupsMax;
    if (getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count) == -1) {
        return;
    }
    groups.resize(static_cast<size_t>(count));
    for (const gid_t gid : groups) {
        if (FindGroupName(gid, name) && name == kGroup && readAction) {
            permission = CLI_PERMISSION_READ;
            return;
        }
    }
}

} // namespace CORVANE_CLI

bool IsCmdStrSecurity(std::string cmd)
{
    if (cmd.empty()) {
        return false;
    }
    if (cmd.find_first_of("|;&$><`\\!\n") != std::string::npos) {
        CLI_LOG_ERROR("cmd [%s] contains standard injection char", cmd.c_str());
        return false;
    }
    if (cmd.find_first_of("\r\"") != std::string::npos) {
        CLI_LOG_ERROR("cmd [%s] contains injection char", cmd.c_str());
        return false;
    }
    return true;
}

int CliUserNameCntStrToInt(std::string text)
{
    try {
        return std::stoi(text);
    } catch (const std::invalid_argument &) {
        CLI_LOG_ERROR("str [%s] param err", text.c_str());
    } catch (const std::out_of_range &) {
        CLI_LOG_ERROR("str [%s] out of range", text.c_str());
    }
    return 0;
}
