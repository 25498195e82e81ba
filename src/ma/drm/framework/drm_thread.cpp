#include "ma/drm/framework/drm_thread.h"

#include <cstring>
#include <memory>

#include "infrastructure/common/os_calls.h"
#include "ma/drm/framework/utils/drm_log.h"
#include "platform/normm.h"

namespace {

struct CtxFree {
    void operator()(DrmAsyncThreadCtx *ctx) const noexcept { normm_free(ctx, DRM_HOST_MODULE, "DrmAsyncThreadCtx"); }
};
using CtxPtr = std::unique_ptr<DrmAsyncThreadCtx, CtxFree>;

CtxPtr NewCtx(DrmAsyncThreadFunc func, const void *data, uint32_t dataLen) noexcept
{
    const uint64_t size = static_cast<uint64_t>(dataLen) + sizeof(DrmAsyncThreadCtx);
    CtxPtr ctx(static_cast<DrmAsyncThreadCtx *>(normm_malloc(size, DRM_HOST_MODULE, __func__)));
    if (ctx == nullptr) {
        return ctx;
    }
    *ctx = {func, dataLen};
    if (dataLen > 0) {
        std::memcpy(ctx.get() + 1, data, dataLen);
    }
    return ctx;
}

} // namespace

extern "C" {

uint32_t DrmAsyncThreadCtxRun(uint32_t /*ignored*/, DrmAsyncThreadFunc func, void *data, uint32_t dataLen) noexcept
{
    if (!IsDrmAsyncThreadParamValid(func, data, dataLen)) {
        return DRM_OK;
    }
    CtxPtr ctx = NewCtx(func, data, dataLen);
    if (ctx == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "DrmAsyncThreadCtxRun alloc param failed.");
        return DRM_ERR_FAIL;
    }
    pthread_t thread{};
    if (g_osCalls.threadCreate(&thread, nullptr, DrmPthreadFuncProc, ctx.get()) != 0) {
        ctx.reset();
        DRM_LOG(CORVANE_LOG_ERROR, "Create pthread failed.");
        return DRM_ERR_FAIL;
    }
    (void)ctx.release(); // the thread's now
    (void)pthread_detach(thread);
    return DRM_OK;
}

bool IsDrmAsyncThreadParamValid(DrmAsyncThreadFunc func, const void *data, uint32_t dataLen) noexcept
{
    if (func == nullptr) {
        DRM_LOG(CORVANE_LOG_ERROR, "func is NULL.");
        return false;
    }
    if (data == nullptr && dataLen > 0) {
        DRM_LOG(CORVANE_LOG_ERROR, "data is NULL but len is than 0.");
        return false;
    }
    return true;
}

void *DrmPthreadFuncProc(void *context) noexcept
{
    const CtxPtr ctx(static_cast<DrmAsyncThreadCtx *>(context));
    ctx->func(ctx.get() + 1, ctx->dataLen);
    return nullptr;
}

} // extern "C"
