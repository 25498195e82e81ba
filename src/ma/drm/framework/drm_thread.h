/**
 * @file drm_thread.h
 * @brief Detached worker threads that carry a copy of their data.
 *
 * Owns each DrmAsyncThreadCtx from the call to the end of its thread. Takes no lock; any thread.
 */
#ifndef DRM_THREAD_H
#define DRM_THREAD_H

#include <stdbool.h>
#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

typedef void (*DrmAsyncThreadFunc)(void *data, uint32_t dataLen);

/** What a worker is given: this header, then @ref dataLen bytes. On the host's heap, freed by the worker. 16 bytes. */
typedef struct DrmAsyncThreadCtx {
    DrmAsyncThreadFunc func;
    uint32_t dataLen;
} DrmAsyncThreadCtx;

/**
 * @brief Run @p func on a thread of its own, with a copy of the data.
 * @param ignored  Not used.
 * @retval 0             The thread runs; or the arguments were invalid, which is logged, and nothing runs.
 * @retval DRM_ERR_FAIL  No memory or no thread.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmAsyncThreadCtxRun(uint32_t ignored, DrmAsyncThreadFunc func, void *data,
                                                            uint32_t dataLen) CORVANE_NOEXCEPT;
/** @return whether there is a function, and data if its length says so. */
CORVANE_NODISCARD CORVANE_API bool IsDrmAsyncThreadParamValid(DrmAsyncThreadFunc func, const void *data,
                                                              uint32_t dataLen) CORVANE_NOEXCEPT;
/** @brief The worker's thread. @param ctx  DrmAsyncThreadCtx; freed. @return null */
CORVANE_API void *DrmPthreadFuncProc(void *ctx) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
static_assert(sizeof(DrmAsyncThreadCtx) == 16);
#endif

#endif
