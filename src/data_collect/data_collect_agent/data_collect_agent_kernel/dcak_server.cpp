#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_server.h"

#include <arpa/inet.h>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <sys/un.h>
#include <unistd.h>

#include "bounded/bounded.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_disk_info.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_io_stat.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_log.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_lsblk.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_slot.h"
#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_smart_info.h"
#include "infrastructure/common/accounts.h"
#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

DcakServerInfo g_DCAK_SERVER;
uint32_t g_DCAK_DEBUG_SWITCH = 0;
uint32_t g_dcakLinkErr = 0;

namespace {

constexpr const char *kServerName = "DCAK_SERVER";
constexpr const char *kSocketFile = "/tmp/dcak.sock";
constexpr const char *kSocketGroup = "corvane_group";
constexpr const char *kSocketUser = "root";
constexpr mode_t kSocketMode = 0660;
constexpr int kBacklog = 5;
constexpr size_t kRequestSize = 3072;

static_assert(sizeof(struct sockaddr_un) == 110);
static_assert(sizeof(struct sockaddr_in) == 16);

using Handler = void (*)(cJSON *request, cJSON **resultOut);

void DevListOf(cJSON *, cJSON **resultOut)
{
    DcakGetDevList(resultOut);
}

struct Method {
    const char *name;
    Handler handler;
};
constexpr std::array<Method, 5> kMethods{{
    {"dca_get_disks_brief_info", DevListOf},
    {"dca_get_disks_base_info", DcakGetDiskBaseInfo},
    {"dca_get_disks_health_info", DcakGetDiskHealthInfo},
    {"dca_get_disks_iostat", DcakGetDiskIoStatInfo},
    {"dca_get_disks_slotid", DcakGetDiskSlotId},
}};

/** `{"result":text}`, which stands inside the response's own result. */
cJSON *MakeTextResult(const char *text)
{
    CJsonPtr result(cJSON_CreateObject());
    return cJSON_AddStringToObject(result.get(), "result", text) != nullptr ? result.release() : nullptr;
}

/** Flips a switch that other threads read and flip. @return its new value. */
uint32_t FlipSwitch(uint32_t *state)
{
    uint32_t former = __atomic_load_n(state, __ATOMIC_RELAXED);
    uint32_t flipped;
    do {
        flipped = former == 0 ? 1 : 0;
    } while (!__atomic_compare_exchange_n(state, &former, flipped, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED));
    return flipped;
}

void Dispatch(cJSON *request, const char *method, cJSON **resultOut)
{
    for (const Method &row : kMethods) {
        if (std::strcmp(row.name, method) == 0) {
            row.handler(request, resultOut);
            return;
        }
    }
    DCAK_LOG_FAILURE("Error: no matched method");
    *resultOut = MakeTextResult("sokect ok");
}

/** What a request without a result gets. */
CJsonPtr MakeEmptyResult()
{
    CJsonPtr result(cJSON_CreateObject());
    return cJSON_AddArrayToObject(result.get(), "disks") != nullptr ? std::move(result) : nullptr;
}

/** The whole part of a number; the integer member of cJSON would stop at INT_MAX. What no 64-bit integer holds is 0. */
double IntegerOf(double number)
{
    constexpr double kLimit = 9223372036854775808.0; // 2^63
    return number > -kLimit && number < kLimit ? static_cast<double>(static_cast<int64_t>(number)) : 0;
}

/** The text of a response. Takes the result over. */
CJsonText MakeResponse(double id, CJsonPtr result)
{
    if (result == nullptr) {
        result = MakeEmptyResult();
    }
    const CJsonPtr response(cJSON_CreateObject());
    if (cJSON_AddStringToObject(response.get(), "jsonrpc", "2.0") == nullptr ||
        cJSON_AddNumberToObject(response.get(), "id", id) == nullptr ||
        !cJSON_AddItemToObject(response.get(), "result", result.get())) {
        return nullptr;
    }
    (void)result.release();
    return CJsonText(cJSON_PrintUnformatted(response.get()));
}

/** Detached attributes for a scope. */
class DetachedAttributes {
public:
    DetachedAttributes() noexcept
    {
        (void)pthread_attr_init(&attributes_);
        (void)pthread_attr_setdetachstate(&attributes_, PTHREAD_CREATE_DETACHED);
    }
    ~DetachedAttributes() { (void)pthread_attr_destroy(&attributes_); }
    DetachedAttributes(const DetachedAttributes &) = delete;
    DetachedAttributes &operator=(const DetachedAttributes &) = delete;
    [[nodiscard]] const pthread_attr_t *Get() const noexcept { return &attributes_; }

private:
    pthread_attr_t attributes_;
};

/** Hands one accepted connection to a thread of its own. */
bool StartClient(int clientFd)
{
    UniqueFd client(clientFd);
    const DetachedAttributes attributes;
    MallocPtr<int> pointer(static_cast<int *>(g_osCalls.malloc(sizeof(int))));
    if (pointer == nullptr) {
        DCAK_LOG_FAILURE("malloc mem failed");
        return false;
    }
    *pointer = clientFd;
    pthread_t thread;
    if (g_osCalls.threadCreate(&thread, attributes.Get(), DcakHandleClient, pointer.get()) != 0) {
        DCAK_LOG_FAILURE("ERROR creating thread");
        return false;
    }
    (void)pointer.release(); // both are the thread's now
    (void)client.Release();
    return true;
}

} // namespace

uint32_t DcakInitSocketSever() noexcept
{
    (void)DcakServerInit();
    if (CheckLsblkVersionValid() != 1) {
        DCAK_LOG_FAILURE("lsblk verison not match");
        return DCAK_FAIL;
    }
    void *(*body)(void *) = nullptr;
    switch (g_DCAK_SERVER.type) {
    case DCAK_SERVER_FILE:
        (void)g_osCalls.unlink(g_DCAK_SERVER.address);
        body = DcakSocketServerRunWithFile;
        break;
    case DCAK_SERVER_IPV4:
        body = DcakSocketServerRun;
        break;
    default:
        return DCAK_OK;
    }
    const DetachedAttributes attributes;
    pthread_t thread;
    // Only a negative result counts, so a refused thread shows by nobody serving.
    if (g_osCalls.threadCreate(&thread, attributes.Get(), body, &g_DCAK_SERVER) < 0) {
        DCAK_LOG_FAILURE("ERROR creating thread");
        return DCAK_FAIL;
    }
    return DCAK_OK;
}

uint32_t DcakServerInit() noexcept
{
    if (strcpy_s(g_DCAK_SERVER.name, sizeof(g_DCAK_SERVER.name), kServerName) != 0) {
        DCAK_LOG_FAILURE("DcakServerInit Failed, copy name failed");
        return DCAK_FAIL;
    }
    if (g_DCAK_SERVER.type == DCAK_SERVER_IPV4) {
        return DCAK_OK; // the host has chosen address and port
    }
    if (strcpy_s(g_DCAK_SERVER.address, sizeof(g_DCAK_SERVER.address), kSocketFile) != 0) {
        DCAK_LOG_FAILURE("DcakServerInit Failed, copy sock file failed");
        return DCAK_FAIL;
    }
    return DCAK_OK;
}

void *DcakSocketServerRunWithFile(void *server) noexcept
{
    const auto *info = static_cast<const DcakServerInfo *>(server);
    const UniqueFd listener(g_osCalls.socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener.Valid()) {
        DCAK_LOG_FAILURE("ERROR opening socket");
        return nullptr;
    }
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (strncpy_s(address.sun_path, DCAK_SERVER_ADDRESS_SIZE, info->address, DCAK_SERVER_ADDRESS_SIZE) != 0 ||
        bind(listener.Get(), reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) != 0) {
        DCAK_LOG_FAILURE("ERROR on binding");
        return nullptr;
    }
    (void)listen(listener.Get(), kBacklog);
    if (DcakSetGroupUserPermisson(address.sun_path, kSocketGroup, kSocketUser) != 0) {
        DCAK_LOG_FAILURE("DcakSetGroupUserPermisson ERR");
        return nullptr;
    }
    struct sockaddr_un peer = {};
    DcakSockProcess(listener.Get(), reinterpret_cast<struct sockaddr *>(&peer), sizeof(peer));
    return nullptr;
}

void *DcakSocketServerRun(void *server) noexcept
{
    const auto *info = static_cast<const DcakServerInfo *>(server);
    const UniqueFd listener(g_osCalls.socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener.Valid()) {
        DCAK_LOG_FAILURE("ERROR opening socket");
        return nullptr;
    }
    std::array<char, DCAK_SERVER_ADDRESS_SIZE> text{};
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(info->port);
    if (strncpy_s(text.data(), text.size(), info->address, text.size()) == 0) {
        address.sin_addr.s_addr = inet_addr(text.data());
    }
    if (bind(listener.Get(), reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) != 0) {
        DCAK_LOG_FAILURE("ERROR on binding");
        return nullptr;
    }
    (void)listen(listener.Get(), kBacklog);
    struct sockaddr_in peer = {};
    DcakSockProcess(listener.Get(), reinterpret_cast<struct sockaddr *>(&peer), sizeof(peer));
    return nullptr;
}

void DcakSockProcess(int listenFd, struct sockaddr *address, socklen_t addressLength) noexcept
{
    while (true) {
        socklen_t length = addressLength;
        // Close-on-exec: the tools that other connections run must not hold this one open.
        const int client = accept4(listenFd, address, &length, SOCK_CLOEXEC);
        if (client < 0) {
            DCAK_LOG_FAILURE("ERROR on accept");
            return;
        }
        if (!StartClient(client)) {
            return;
        }
    }
}

void *DcakHandleClient(void *clientFdPointer) noexcept
{
    const MallocPtr<int> pointer(static_cast<int *>(clientFdPointer));
    UniqueFd client(*pointer);
    std::array<char, kRequestSize> request;
    if (memset_s(request.data(), request.size(), 0, request.size()) != 0) {
        DCAK_LOG_FAILURE("memset_s err");
        return nullptr;
    }
    // Neither the result nor a partial read matters: what has come is parsed, and an incomplete text does not parse.
    const ssize_t received = read(client.Get(), request.data(), request.size() - 1);
    (void)received;
    char *text = nullptr;
    (void)ParseReqAndResponse(request.data(), &text);
    const CJsonText response(text);
    if (response == nullptr) {
        client.Reset();
        DCAK_LOG_FAILURE("responseStr is null");
        return nullptr;
    }
    // A peer that has given up must not raise SIGPIPE in the process that hosts the agent.
    (void)g_osCalls.send(client.Get(), response.get(), std::strlen(response.get()), MSG_NOSIGNAL);
    return nullptr;
}

uint32_t ParseReqAndResponse(const char *requestText, char **responseTextOut) noexcept
{
    if (requestText == nullptr || responseTextOut == nullptr) {
        return DCAK_FAIL;
    }
    // The position comes back by argument: the library's own is one for all threads.
    const char *errorAt = "";
    const CJsonPtr request(cJSON_ParseWithOpts(requestText, &errorAt, 0));
    if (request == nullptr) {
        DCAK_LOG_FAILURE("Error before: %s\n", errorAt);
        return DCAK_FAIL;
    }
    const cJSON *idItem = cJSON_GetObjectItemCaseSensitive(request.get(), "id");
    const double id = cJSON_IsNumber(idItem) ? IntegerOf(idItem->valuedouble) : 0;
    cJSON *methodItem = cJSON_GetObjectItemCaseSensitive(request.get(), "method");
    cJSON *result = nullptr;
    if (cJSON_IsString(methodItem) && methodItem->valuestring != nullptr &&
        DcakDebugProcess(methodItem, &result) == 0) {
        Dispatch(request.get(), methodItem->valuestring, &result);
    }
    CJsonText text = MakeResponse(id, CJsonPtr(result));
    if (text == nullptr) {
        return DCAK_FAIL;
    }
    DCAK_LOG_DETAIL("ParseReqAndResponse over resLen is %lu", std::strlen(text.get()));
    DCAK_LOG_DETAIL("res is %s", text.get());
    *responseTextOut = text.release();
    return DCAK_OK;
}

uint32_t DcakDebugProcess(cJSON *methodItem, cJSON **resultOut) noexcept
{
    const char *method = cJSON_GetStringValue(methodItem);
    if (method == nullptr) {
        return 0;
    }
    if (std::strcmp(method, "dcak_link_status_switch") == 0) {
        const uint32_t state = FlipSwitch(&g_dcakLinkErr);
        DCAK_LOG_SWITCH("link status is %d", state);
        *resultOut = MakeTextResult("link stat change");
        return 1;
    }
    if (DcakSwitchIsOn(&g_dcakLinkErr)) {
        DCAK_LOG_SWITCH("link err open");
        *resultOut = MakeTextResult("link err");
        return 1;
    }
    if (std::strcmp(method, "debug_switch") == 0) {
        const uint32_t state = FlipSwitch(&g_DCAK_DEBUG_SWITCH);
        DCAK_LOG_SWITCH("debug status is %d", state);
        *resultOut = MakeTextResult("debug stat change");
        return 1;
    }
    return 0;
}

int32_t DcakSetGroupUserPermisson(const char *file, const char *group, const char *user) noexcept
{
    if (file == nullptr || group == nullptr || user == nullptr) {
        return -1;
    }
    uid_t uid = 0;
    if (!FindUserId(user, uid)) {
        DCAK_LOG_FAILURE("get user_info faild usr:%s, group:%s, file:%s", user, group, file);
        return -1;
    }
    gid_t gid = 0;
    if (!FindGroupId(group, gid)) {
        DCAK_LOG_FAILURE("get group_info faild usr:%s, group:%s, file:%s", user, group, file);
        return -1;
    }
    if (g_osCalls.chown(file, uid, gid) != 0) {
        DCAK_LOG_FAILURE("chown faild usr:%s, group:%s, file:%s", user, group, file);
        return -1;
    }
    if (g_osCalls.chmod(file, kSocketMode) != 0) {
        DCAK_LOG_FAILURE("chmod faild usr:%s, group:%s, file:%s", user, group, file);
        return -1;
    }
    return 0;
}
