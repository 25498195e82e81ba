#include "data_collect/data_collect_master/dcm_transport.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include "bounded/bounded.h"
#include "data_collect/data_collect_master/DCM_query/dcm_request.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

const AgentInfo g_uniqueSpdkAgent = {"unique_SPDK_agent", AGENT_TYPE_SOCK_FILE, {"/var/tmp/spdk.sock"}};
const AgentInfo g_uniqueDcakAgent = {"unique_DCAK_agent", AGENT_TYPE_SOCK_FILE, {"/tmp/dcak.sock"}};
const AgentInfo g_uniqueDmaAgent = {"unique_DMA_agent", AGENT_TYPE_SOCK_FILE, {"/var/tmp/spdk.sock"}};

namespace {

constexpr uint32_t kExchangeTries = 5;
constexpr timeval kSocketTimeout = {.tv_sec = 3, .tv_usec = 0};

bool IsUsableResponse(const ResponseBuffer *response) noexcept
{
    return response != nullptr && response->buffer != nullptr;
}

/** An old answer must not be taken for a new one. A capacity of 0 or below leaves nothing to clear. */
uint32_t ClearResponse(ResponseBuffer *response) noexcept
{
    if (response->capacity <= 0) {
        return DCM_OK;
    }
    const auto capacity = static_cast<size_t>(response->capacity);
    return static_cast<uint32_t>(memset_s(response->buffer, capacity, 0, capacity));
}

/** A stream socket with both time-outs. On a failure of the options the descriptor stays open and belongs to nobody. */
uint32_t CreateClientSocket(int domain, UniqueFd &clientFd) noexcept
{
    clientFd.Reset(g_osCalls.socket(domain, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!clientFd.Valid()) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "create client_fd failed.");
        return DCM_ERR_BAD_INPUT;
    }
    const int fd = clientFd.Get();
    if (g_osCalls.setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &kSocketTimeout, sizeof(kSocketTimeout)) != 0 ||
        g_osCalls.setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &kSocketTimeout, sizeof(kSocketTimeout)) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "setSockOption failed.");
        (void)clientFd.Release();
        return DCM_ERR_SOCKET_OPTION;
    }
    return DCM_OK;
}

uint32_t Connect(int fd, const void *address, socklen_t length) noexcept
{
    if (connect(fd, static_cast<const sockaddr *>(address), length) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "clientFd connect server failed, errno(%d)", errno);
        return DCM_ERR_BAD_INPUT;
    }
    return DCM_OK;
}

/** The exchange on a connected socket, and an orderly end of the connection. */
uint32_t RunSession(int fd, uint32_t requestLength, const char *requestText, ResponseBuffer *response) noexcept
{
    const uint32_t ret = SendAndReceiveRetryWithSocketSession(fd, requestLength, requestText, response);
    (void)shutdown(fd, SHUT_RDWR);
    return ret;
}

uint32_t PostToIpv4(const AgentIpv4Address &address, uint32_t requestLength, const char *requestText,
                    ResponseBuffer *response) noexcept
{
    CorvaneStr portText = {};
    const uint32_t ret = ConvertUint2DecimalString(address.port, &portText);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Convert uint to string failed.");
        return ret;
    }
    const InfraPtr<char> portOwner(portText.buf);
    const BoundedText<sizeof(address.ip)> ip(address.ip);
    const uint32_t addressLength = CastSizeToUint32(std::strlen(ip.Get()) + std::strlen(portText.buf));
    return PostRequestWithIpv4(requestLength, requestText, addressLength, ip.Get(), address.port, response);
}

uint32_t PostByType(const AgentInfo *agent, uint32_t requestLength, const char *requestText,
                    ResponseBuffer *response) noexcept
{
    switch (agent->AgentType) {
    case AGENT_TYPE_SOCK_FILE: {
        const char *path = agent->address.path;
        const uint32_t pathLength = CastSizeToUint32(strnlen(path, sizeof(agent->address.path)));
        return PostRequestWithSockFile(requestLength, requestText, pathLength, path, response);
    }
    case AGENT_TYPE_IPV4:
        return PostToIpv4(agent->address.ipv4, requestLength, requestText, response);
    default:
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "AgentType do not match (%d).", static_cast<int>(agent->AgentType));
        return DCM_ERR_BAD_INPUT;
    }
}

} // namespace

bool IsAgentEqual(const AgentInfo *a, const AgentInfo *b) noexcept
{
    if (a == nullptr || b == nullptr) {
        return false;
    }
    return std::memcmp(a->name, b->name, sizeof(a->name)) == 0 && a->AgentType == b->AgentType &&
           std::memcmp(a->address.raw, b->address.raw, sizeof(a->address.raw)) == 0;
}

uint32_t CastSizeToUint32(size_t size) noexcept
{
    if (size > UINT32_MAX) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "size_t(%zu) cast to uint32 overflow", size);
        return UINT32_MAX;
    }
    return static_cast<uint32_t>(size);
}

cJSON *PostRequestWithJSON(const AgentInfo *agent, cJSON *requestJson) noexcept
{
    CJsonText requestText(cJSON_PrintUnformatted(requestJson));
    if (requestText == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Create requestJSON String failed. maybe malloc fail?");
        return nullptr;
    }
    const uint32_t requestLength = CastSizeToUint32(std::strlen(requestText.get()) + 1);
    // One byte more than is taken from the socket: the zero behind a full answer.
    const InfraPtr<char> buffer(static_cast<char *>(g_corvaneInfra.memAlloc(DCM_RESPONSE_CAPACITY + 1)));
    if (buffer == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "malloc response memory failed.");
        return nullptr;
    }
    ResponseBuffer response = {.capacity = DCM_RESPONSE_CAPACITY, .buffer = buffer.get()};
    const uint32_t ret = PostRequest(agent, requestLength, requestText.get(), &response);
    requestText.reset();
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Post Request failed(%d).", static_cast<int>(ret));
        return nullptr;
    }
    cJSON *answer = cJSON_Parse(buffer.get());
    if (answer == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Response maybe not JSON, or malloc failed?");
    }
    return answer;
}

uint32_t PostRequest(const AgentInfo *agent, uint32_t requestLength, const char *requestText,
                     ResponseBuffer *response) noexcept
{
    if (agent == nullptr || requestText == nullptr || !IsUsableResponse(response)) {
        return DCM_ERR_BAD_INPUT;
    }
    const BoundedText<sizeof(agent->name)> name(agent->name);
    CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "post agent(%s) request==>%s", name.Get(), requestText);
    const uint32_t ret = PostByType(agent, requestLength, requestText, response);
    if (ret == DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "post agent(%s) response==>%s", name.Get(), response->buffer);
    }
    return ret;
}

uint32_t PostRequestWithSockFile(uint32_t requestLength, const char *requestText, uint32_t pathLength, const char *path,
                                 ResponseBuffer *response) noexcept
{
    if (requestText == nullptr || !IsUsableResponse(response)) {
        return DCM_ERR_BAD_INPUT;
    }
    uint32_t ret = ClearResponse(response);
    if (ret != DCM_OK) {
        return ret;
    }
    UniqueFd clientFd;
    ret = CreateClientSocket(AF_UNIX, clientFd);
    if (ret != DCM_OK) {
        return ret;
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ret = static_cast<uint32_t>(strncpy_s(address.sun_path, sizeof(address.sun_path), path, pathLength));
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "copy filed, errno(%d)", static_cast<int>(ret));
        (void)shutdown(clientFd.Get(), SHUT_RDWR);
        return ret;
    }
    ret = Connect(clientFd.Get(), &address, sizeof(address));
    if (ret != DCM_OK) {
        return ret;
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "send to %s, message:%s", address.sun_path, requestText);
    return RunSession(clientFd.Get(), requestLength, requestText, response);
}

uint32_t PostRequestWithIpv4(uint32_t requestLength, const char *requestText, uint32_t addressLength,
                             const char *address, uint16_t port, ResponseBuffer *response) noexcept
{
    (void)addressLength;
    if (requestText == nullptr || address == nullptr || !IsUsableResponse(response)) {
        return DCM_ERR_BAD_INPUT;
    }
    uint32_t ret = ClearResponse(response);
    if (ret != DCM_OK) {
        return ret;
    }
    UniqueFd clientFd;
    ret = CreateClientSocket(AF_INET, clientFd);
    if (ret != DCM_OK) {
        return ret;
    }
    sockaddr_in server = {};
    server.sin_family = AF_INET;
    server.sin_addr.s_addr = inet_addr(address);
    server.sin_port = htons(port);
    ret = Connect(clientFd.Get(), &server, sizeof(server));
    if (ret != DCM_OK) {
        return ret;
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "send to %s:%d, message:%s", address, static_cast<int>(port), requestText);
    return RunSession(clientFd.Get(), requestLength, requestText, response);
}

uint32_t SendAndReceiveRetryWithSocketSession(int fd, uint32_t requestLength, const char *requestText,
                                              ResponseBuffer *response) noexcept
{
    uint32_t ret = DCM_OK;
    for (uint32_t i = 0; i < kExchangeTries; i++) {
        ret = SendAndReceiveWithSocketSession(fd, requestLength, requestText, response);
        if (ret == DCM_OK) {
            return DCM_OK;
        }
        CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "retry %u times.", i);
    }
    CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "retry %u times, wait next timer period to retry.", kExchangeTries);
    return ret;
}

uint32_t SendAndReceiveWithSocketSession(int fd, uint32_t requestLength, const char *requestText,
                                         ResponseBuffer *response) noexcept
{
    if (requestText == nullptr || !IsUsableResponse(response)) {
        return DCM_ERR_BAD_INPUT;
    }
    // An agent that went away must not end the host with a signal.
    const ssize_t sent = g_osCalls.send(fd, requestText, strnlen(requestText, requestLength), MSG_NOSIGNAL);
    if (sent < 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "socket send request to server failed, errno(%d)", errno);
        return DCM_ERR_TRANSFER;
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "send request size(%zd)", sent);

    const int32_t capacity = response->capacity < 0 ? INT32_MAX : response->capacity;
    const ssize_t received = g_osCalls.recv(fd, response->buffer, static_cast<size_t>(capacity), 0);
    if (received < 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "socket receive response from server failed, errno(%d)", errno);
        return DCM_ERR_TRANSFER;
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, "DCM", "receive response size(%zd)", received);
    response->buffer[received] = '\0';
    return DCM_OK;
}
