#include "data_mgr/data_mgr_master/data_mgr_master_rpc.h"

#include <cstring>

#include "data_collect/data_collect_master/dcm_transport.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"

const char *g_rpcMethodNameMap[DATA_MGR_RPC_BUTT] = {
    "dma_set_disk_info_inner",
    "dma_set_disk_state",
    "dma_set_disk_handle_strategy",
    "dma_poweroff_disk",
};

DataMgrRpcParamFunc g_paramConstructMethodMap[DATA_MGR_RPC_BUTT] = {
    ConstructDiskInfoInnerParam,
    ConstructDiskStateParam,
    ConstructDiskHandleStrategyParam,
    ConstructDiskPowerOffParam,
};

void *g_dataMgrRpcLock;
void *g_dataMgrRpcIdAtomic;

namespace {

constexpr const char *kModule = "DATA_MGR_MASTER";
constexpr uint64_t kIdModulus = 65535; // identifiers run from 1 to 65535

LockToken g_rpcToken;

void *RpcLock() noexcept
{
    return MakeOnce(g_dataMgrRpcLock, g_corvaneInfra.spinlockCreate, g_corvaneInfra.spinlockDestroy);
}

/** The next identifier, or 0 if there is no counter. */
uint16_t NextRequestId() noexcept
{
    void *counter = MakeOnce(
        g_dataMgrRpcIdAtomic, [] { return g_corvaneInfra.atomicCreate(0); }, g_corvaneInfra.atomicDestroy);
    if (counter == nullptr) {
        return 0;
    }
    return static_cast<uint16_t>(g_corvaneInfra.atomicIncrementAndGet(counter) % kIdModulus + 1);
}

CJsonPtr ConstructBaseRequest(const char *method) noexcept
{
    CJsonPtr request(cJSON_CreateObject());
    const uint16_t id = NextRequestId();
    if (id == 0 || cJSON_AddStringToObject(request.get(), "jsonrpc", "2.0") == nullptr ||
        cJSON_AddStringToObject(request.get(), "method", method) == nullptr ||
        cJSON_AddNumberToObject(request.get(), "id", id) == nullptr) {
        return nullptr;
    }
    return request;
}

/** Prints the whole request. @return 0 or DATA_MGR_RPC_ERR_FAIL */
uint32_t ConstructRequestText(uint32_t msgType, DiskSnRef sn, void *data, CJsonText &text) noexcept
{
    const char *method = g_rpcMethodNameMap[msgType];
    const CJsonPtr request = ConstructBaseRequest(method);
    if (request == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC msg construct base request failed. method is %s", method);
        return DATA_MGR_RPC_ERR_FAIL;
    }
    const uint32_t ret = DataMgrMasterAddParam(msgType, sn, data, request.get());
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC msg add params failed. msgType = %d, sn = %s", msgType,
                    SnText(sn.buf).Get());
        return ret;
    }
    text.reset(cJSON_PrintUnformatted(request.get()));
    if (text == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC create Unformatted reqJsonStr failed!");
        return DATA_MGR_RPC_ERR_FAIL;
    }
    return 0;
}

/** One exchange. The lock is held: a second request must not overtake this one. */
uint32_t SendLocked(uint32_t msgType, DiskSnRef sn, void *data) noexcept CORVANE_REQUIRES(g_rpcToken)
{
    CJsonText request;
    const uint32_t constructed = ConstructRequestText(msgType, sn, data, request);
    if (constructed != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Construct Json param failed! ret = %d",
                    static_cast<int32_t>(constructed));
        return constructed;
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, kModule, "reqJsonStr = %s", request.get());
    // One byte more than is received: the transport ends the answer with a zero.
    const InfraPtr<char> answer(static_cast<char *>(g_corvaneInfra.memAlloc(DCM_RESPONSE_CAPACITY + 1)));
    if (answer == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC rspJsonStr malloc failed!");
        return DATA_MGR_RPC_ERR_FAIL;
    }
    ResponseBuffer response{DCM_RESPONSE_CAPACITY, answer.get()};
    const uint32_t ret =
        PostRequest(&g_uniqueDmaAgent, CastSizeToUint32(std::strlen(request.get()) + 1), request.get(), &response);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC request post failed. ret = %d", static_cast<int32_t>(ret));
    }
    return ret;
}

uint32_t StatusOf(const cJSON *added) noexcept
{
    return added != nullptr ? 0 : DATA_MGR_RPC_ERR_FAIL;
}

template <size_t N>
uint32_t AddField(cJSON *params, const char *key, const char (&field)[N]) noexcept
{
    return StatusOf(cJSON_AddStringToObject(params, key, BoundedText<N>(field).Get()));
}

} // namespace

uint32_t ConstructDiskInfoInnerParam(cJSON *params, void *data) noexcept
{
    if (params == nullptr || data == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC diskHealthInfoInner params is NULL");
        return DATA_MGR_RPC_ERR_FAIL;
    }
    const auto *record = static_cast<const DiskMgrObj *>(data);
    if (cJSON_AddNumberToObject(params, "disk_state", record->diskState) == nullptr ||
        cJSON_AddNumberToObject(params, "disk_capacity", static_cast<double>(record->diskCapacity)) == nullptr ||
        AddField(params, "vendor", record->vendor) != 0 || AddField(params, "model", record->model) != 0 ||
        AddField(params, "device_name", record->deviceName) != 0) {
        return DATA_MGR_RPC_ERR_FAIL;
    }
    return StatusOf(cJSON_AddNumberToObject(params, "disk_type", record->diskType));
}

uint32_t ConstructDiskStateParam(cJSON *params, void *data) noexcept
{
    if (params == nullptr || data == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC diskState params is NULL");
        return DATA_MGR_RPC_ERR_FAIL;
    }
    return StatusOf(cJSON_AddNumberToObject(params, "disk_state", *static_cast<const uint32_t *>(data)));
}

uint32_t ConstructDiskHandleStrategyParam(cJSON *params, void *data) noexcept
{
    if (params == nullptr || data == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC diskHandleStrategy params is NULL");
        return DATA_MGR_RPC_ERR_FAIL;
    }
    return StatusOf(cJSON_AddStringToObject(params, "disk_handle_strategy", static_cast<const char *>(data)));
}

uint32_t ConstructDiskPowerOffParam(cJSON *, void *) noexcept
{
    return 0;
}

uint32_t DataMgrMasterAddParam(uint32_t msgType, DiskSnRef sn, void *data, cJSON *request) noexcept
{
    if (msgType >= DATA_MGR_RPC_BUTT) {
        return DATA_MGR_RPC_ERR_FAIL;
    }
    CJsonPtr params(cJSON_CreateObject());
    if (params == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC params create failed.");
        return DATA_MGR_RPC_ERR_FAIL;
    }
    const SnText snText(sn.buf);
    if (sn.buf == nullptr || cJSON_AddStringToObject(params.get(), "sn", snText.Get()) == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC params add sn failed. sn = %s", snText.Get());
        return DATA_MGR_RPC_ERR_FAIL;
    }
    if (g_paramConstructMethodMap[msgType](params.get(), data) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC params add disk info failed.");
        return DATA_MGR_RPC_ERR_FAIL;
    }
    if (!cJSON_AddItemToObject(request, "params", params.get())) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC add params to request failed.");
        return DATA_MGR_RPC_ERR_FAIL;
    }
    (void)params.release(); // the request owns it now
    return 0;
}

uint32_t DataMgrMasterSendRpcMsg2Agent(uint32_t msgType, DiskSnRef sn, void *data) noexcept
{
    if (msgType >= DATA_MGR_RPC_BUTT) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "RPC msgType error, msgType=%d.", msgType);
        return DATA_MGR_RPC_ERR_FAIL;
    }
    void *lock = RpcLock();
    if (lock == nullptr) {
        return DATA_MGR_RPC_ERR_FAIL;
    }
    const SpinGuard guard(lock, g_rpcToken);
    return SendLocked(msgType, sn, data);
}
