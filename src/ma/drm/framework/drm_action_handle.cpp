#include "ma/drm/framework/drm_action_handle.h"

#include <algorithm>
#include <iterator>

#include "ma/drm/framework/utils/drm_log.h"

namespace {

constexpr uint64_t kLowerHalf = 0xFFFFFFFFu;
constexpr uint32_t kUpperHalfShift = 32;

/** The first row with this opcode, or null; DRM_ACTION_FREE finds a free row. */
DrmActionHandler *RowOf(uint32_t opcode) noexcept
{
    auto *row = std::find_if(std::begin(g_drmActionHandler), std::end(g_drmActionHandler),
                             [opcode](const DrmActionHandler &other) { return other.opcode == opcode; });
    return row != std::end(g_drmActionHandler) ? row : nullptr;
}

/** Finds the handler of a request. @return 0, or what the request is to return. */
uint32_t FindHandler(uint32_t opcode, DrmActionHandlerFunc *handler) noexcept
{
    const DrmActionHandler *row = RowOf(opcode);
    if (row == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Drm actionHandler is NULL, opcode(0x%x).", opcode);
        return DRM_ERR_NO_ACTION;
    }
    if (row->handler == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Drm sub actionSubHandler is NULL, opcode(0x%x).", opcode);
        return DRM_ERR_FAIL;
    }
    *handler = row->handler;
    return DRM_OK;
}

uint32_t CallHandler(DrmActionHandlerFunc handler, uint32_t opcode, void *in, uint32_t inLen, uint64_t *outData,
                     uint64_t *outInfo) noexcept
{
    const uint32_t result = handler(in, inLen, outData, outInfo);
    if (result != DRM_OK) {
        DRM_LOG(CORVANE_LOG_ERROR, "Drm actionSubHandler handle failed, opcode(0x%x).", opcode);
    }
    return result;
}

} // namespace

extern "C" {

DrmActionHandler g_drmActionHandler[DRM_ACTION_NUM] = {};

uint32_t DrmActionHandleInit(void) noexcept
{
    std::fill(std::begin(g_drmActionHandler), std::end(g_drmActionHandler), DrmActionHandler{DRM_ACTION_FREE, nullptr});
    return DRM_OK;
}

uint32_t DrmActionHandleFin(void) noexcept
{
    return DRM_OK;
}

uint32_t DrmRegisterActionHandler(uint32_t opcode, DrmActionHandlerFunc handler) noexcept
{
    if (handler == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "handler is NULL");
        return DRM_ERR_FAIL;
    }
    if (RowOf(opcode) != nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "OpCode(0x%x) has already been registered.", opcode);
        return DRM_ERR_FAIL;
    }
    DrmActionHandler *row = RowOf(DRM_ACTION_FREE);
    if (row == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "Add Handler failed due to lack of index resource,opcode(%u),handler(0x%p).", opcode,
                reinterpret_cast<void *>(handler));
        return DRM_ERR_FAIL;
    }
    *row = {opcode, handler};
    DRM_LOG(CORVANE_LOG_INFO, "Add Handler index(%u),opcode(%u),handler(0x%p).",
            static_cast<uint32_t>(row - g_drmActionHandler), opcode, reinterpret_cast<void *>(handler));
    return DRM_OK;
}

uint32_t DrmAsyncActionRequest(uint32_t opcode, void *in, uint32_t inLen, DrmActionCallback callback,
                               void *callbackArg) noexcept
{
    DrmActionHandlerFunc handler = nullptr;
    const uint32_t found = FindHandler(opcode, &handler);
    if (found != DRM_OK) {
        return found;
    }
    uint64_t outData = 0;
    uint64_t outInfo = 0;
    const uint32_t result = CallHandler(handler, opcode, in, inLen, &outData, &outInfo);
    outInfo = (outInfo & kLowerHalf) | (static_cast<uint64_t>(result) << kUpperHalfShift);
    if (callback != nullptr) {
        callback(callbackArg, outData, outInfo);
    }
    return result;
}

uint32_t DrmSyncActionRequest(uint32_t opcode, void *in, uint32_t inLen, void *out, uint32_t outLen) noexcept
{
    DrmActionHandlerFunc handler = nullptr;
    const uint32_t found = FindHandler(opcode, &handler);
    if (found != DRM_OK) {
        return found;
    }
    // Copies: what the handler writes to these words stays here.
    uint64_t outData = reinterpret_cast<uintptr_t>(out);
    uint64_t outInfo = outLen;
    return CallHandler(handler, opcode, in, inLen, &outData, &outInfo);
}

} // extern "C"
