#include "data_collect/data_collect_master/DCM_query/dcm_request.h"

#include <atomic>
#include <strings.h>

#include "bounded/bounded.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"

namespace {

/** Identifiers run from 1 to this number and then begin again. */
constexpr uint64_t kRequestIdCount = 65535;
/** Digits of the largest u32. */
constexpr uint64_t kMaxDecimalLength = 10;

// The counter is a cell of the adapter table, made when it is first needed. Two first users may both make one; one of
// the two is published, the other given back.
std::atomic<void *> g_requestCounter{nullptr};

void *RequestCounter() noexcept
{
    void *counter = g_requestCounter.load(std::memory_order_acquire);
    if (counter != nullptr) {
        return counter;
    }
    void *made = g_corvaneInfra.atomicCreate(0);
    if (made == nullptr) {
        return nullptr;
    }
    if (g_requestCounter.compare_exchange_strong(counter, made, std::memory_order_acq_rel)) {
        return made;
    }
    g_corvaneInfra.atomicDestroy(made);
    return counter;
}

/** Puts @p item into @p object under @p name; on failure the item is deleted. */
bool Adopt(cJSON *object, const char *name, CJsonPtr item) noexcept
{
    if (item == nullptr || cJSON_AddItemToObject(object, name, item.get()) == 0) {
        return false;
    }
    (void)item.release(); // the object owns it now
    return true;
}

bool Adopt(cJSON *array, CJsonPtr item) noexcept
{
    if (item == nullptr || cJSON_AddItemToArray(array, item.get()) == 0) {
        return false;
    }
    (void)item.release(); // the array owns it now
    return true;
}

/** The text of a member, null if it is no text. */
const char *MemberText(const cJSON *object, const char *name) noexcept
{
    return cJSON_GetStringValue(cJSON_GetObjectItem(object, name));
}

/** {device_name, pci_address} of a user-space NVMe disk; the element of the result's "devices". */
CJsonPtr SlotQueryDevice(const char *deviceName, const char *pciAddress) noexcept
{
    CJsonPtr device(cJSON_CreateObject());
    if (device == nullptr || cJSON_AddStringToObject(device.get(), "device_name", deviceName) == nullptr ||
        cJSON_AddStringToObject(device.get(), "pci_address", pciAddress) == nullptr) {
        return nullptr;
    }
    return device;
}

} // namespace

extern "C" CORVANE_API cJSON *CreateBaseRequest(const char *method) noexcept
{
    if (method == nullptr) {
        return nullptr;
    }
    CJsonPtr request(cJSON_CreateObject());
    if (request == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "cJSON_CreateObject malloc failed.");
        return nullptr;
    }
    if (cJSON_AddStringToObject(request.get(), "jsonrpc", "2.0") == nullptr ||
        cJSON_AddStringToObject(request.get(), "method", method) == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "cJSON_AddStringToObject malloc failed.");
        return nullptr;
    }
    void *counter = RequestCounter();
    if (counter == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "cJSON_AddNumberToObject malloc failed.");
        return nullptr;
    }
    const auto id = static_cast<uint16_t>(g_corvaneInfra.atomicIncrementAndGet(counter) % kRequestIdCount + 1);
    if (cJSON_AddNumberToObject(request.get(), "id", id) == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "cJSON_AddNumberToObject malloc failed.");
        return nullptr;
    }
    return request.release();
}

extern "C" CORVANE_API cJSON *CreateDeviceListParam(DiskBriefInfo **list, uint32_t count) noexcept
{
    CJsonPtr params(cJSON_CreateObject());
    cJSON *devices = params == nullptr ? nullptr : cJSON_AddArrayToObject(params.get(), "devices");
    if (devices == nullptr || (list == nullptr && count > 0)) {
        return nullptr;
    }
    for (uint32_t i = 0; i < count; i++) {
        if (list[i] == nullptr || !Adopt(devices, CJsonPtr(cJSON_CreateString(list[i]->deviceName)))) {
            return nullptr;
        }
    }
    return params.release();
}

extern "C" CORVANE_API cJSON *ConstructNoParamRequest(const char *method, DiskBriefInfo ** /*list*/, uint32_t /*count*/,
                                                      uint32_t /*period*/) noexcept
{
    return CreateBaseRequest(method);
}

extern "C" CORVANE_API cJSON *ConstructOnlyDeviceListParamRequest(const char *method, DiskBriefInfo **list,
                                                                  uint32_t count, uint32_t /*period*/) noexcept
{
    CJsonPtr request(CreateBaseRequest(method));
    if (request == nullptr || !Adopt(request.get(), "params", CJsonPtr(CreateDeviceListParam(list, count)))) {
        return nullptr;
    }
    return request.release();
}

extern "C" CORVANE_API cJSON *ConstructIoInfoFrameRequest(const char *method, DiskBriefInfo **list, uint32_t count,
                                                          uint32_t period) noexcept
{
    CJsonPtr request(ConstructOnlyDeviceListParamRequest(method, list, count, period));
    if (request == nullptr) {
        return nullptr;
    }
    CorvaneStr periodText = {};
    const uint32_t ret = ConvertUint2DecimalString(period, &periodText);
    if (ret != DCM_OK) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM", "Convert uint to string failed(ret%d).", ret);
        return nullptr;
    }
    const InfraPtr<char> owner(periodText.buf);
    cJSON *params = cJSON_GetObjectItem(request.get(), "params");
    if (cJSON_AddStringToObject(params, "period", periodText.buf) == nullptr) {
        return nullptr;
    }
    return request.release();
}

extern "C" CORVANE_API uint32_t ConvertUint2DecimalString(uint32_t value, CorvaneStr *out) noexcept
{
    if (out == nullptr || out->buf != nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, "DCM",
                    "input out CorvaneStr buf must be NULL, memory will alloc by ConvertUint2DecimalString.");
        return DCM_ERR_BAD_INPUT;
    }
    InfraPtr<char> buf(static_cast<char *>(g_corvaneInfra.memAlloc(kMaxDecimalLength + 1)));
    if (buf == nullptr) {
        return DCM_ERR_NO_MEMORY;
    }
    const int length = snprintf_s(buf.get(), kMaxDecimalLength + 1, kMaxDecimalLength, "%u", value);
    if (length < 0) {
        return DCM_ERR_BAD_INPUT;
    }
    out->length = static_cast<uint32_t>(length) + 1;
    out->buf = buf.release();
    return DCM_OK;
}

extern "C" CORVANE_API cJSON *MakePciAddrCJson(cJSON *baseResult) noexcept
{
    CJsonPtr request(CreateBaseRequest("dca_get_disks_slotid"));
    cJSON *params = request == nullptr ? nullptr : cJSON_AddObjectToObject(request.get(), "params");
    cJSON *devices = params == nullptr ? nullptr : cJSON_AddArrayToObject(params, "devices");
    if (devices == nullptr) {
        return nullptr;
    }
    const cJSON *disk = nullptr;
    cJSON_ArrayForEach(disk, cJSON_GetObjectItem(baseResult, "disks"))
    {
        const char *diskType = MemberText(disk, "disk_type");
        const char *deviceName = MemberText(disk, "device_name");
        const char *pciAddress = MemberText(disk, "pci_address");
        if (diskType == nullptr || deviceName == nullptr || pciAddress == nullptr ||
            strcasecmp(diskType, "SSD_NVMe") != 0) {
            continue;
        }
        if (!Adopt(devices, SlotQueryDevice(deviceName, pciAddress))) {
            return nullptr;
        }
    }
    return request.release();
}

extern "C" CORVANE_API cJSON *MakeRebindPciAddrCJson(const char *pciAddress) noexcept
{
    CJsonPtr request(CreateBaseRequest("dca_rebind_nvme2uio"));
    cJSON *params = request == nullptr ? nullptr : cJSON_AddObjectToObject(request.get(), "params");
    if (params == nullptr || pciAddress == nullptr ||
        cJSON_AddStringToObject(params, "pci_address", pciAddress) == nullptr) {
        return nullptr;
    }
    return request.release();
}
