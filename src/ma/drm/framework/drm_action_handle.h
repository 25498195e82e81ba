/**
 * @file drm_action_handle.h
 * @brief Requests by number: a table from opcodes to handlers.
 *
 * Owns g_drmActionHandler. Filled at start, read without a lock afterwards; handlers run on the caller's thread.
 */
#ifndef DRM_ACTION_HANDLE_H
#define DRM_ACTION_HANDLE_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define DRM_ACTION_NUM 128u
#define DRM_ACTION_FREE 0u /**< opcode of a free row */
/** No handler is registered for the opcode. */
#define DRM_ERR_NO_ACTION 65206u

#define DRM_OPCODE_GET_DISK_HEALTH_INFO 0x20f0001u
#define DRM_OPCODE_SET_LIFE_MONITOR_RESULT 0x20f0101u

/** @return 0, or what the request is to return. */
typedef uint32_t (*DrmActionHandlerFunc)(void *in, uint32_t inLen, uint64_t *outData, uint64_t *outInfo);
/** Called once per request, on the requester's thread; the upper half of @p outInfo is the handler's result. */
typedef void (*DrmActionCallback)(void *callbackArg, uint64_t outData, uint64_t outInfo);

/** 16 bytes. */
typedef struct DrmActionHandler {
    uint32_t opcode;
    DrmActionHandlerFunc handler;
} DrmActionHandler;

extern CORVANE_API DrmActionHandler g_drmActionHandler[DRM_ACTION_NUM];

/** @brief Empty the table. @return always 0. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmActionHandleInit(void) CORVANE_NOEXCEPT;
/** @brief Nothing. @return always 0. */
CORVANE_API uint32_t DrmActionHandleFin(void) CORVANE_NOEXCEPT;
/** @brief Add a handler. @retval DRM_ERR_FAIL  Null, an opcode that has one, or no free row. */
CORVANE_NODISCARD CORVANE_API uint32_t DrmRegisterActionHandler(uint32_t opcode,
                                                                DrmActionHandlerFunc handler) CORVANE_NOEXCEPT;
/**
 * @brief Run the handler and then the callback, both before the return.
 * @param callback  May be null. Not called if there is no handler.
 * @retval DRM_ERR_NO_ACTION  Unknown opcode.
 * @retval DRM_ERR_FAIL       A row without handler.
 * @return otherwise the handler's result.
 */
CORVANE_NODISCARD CORVANE_API uint32_t DrmAsyncActionRequest(uint32_t opcode, void *in, uint32_t inLen,
                                                             DrmActionCallback callback,
                                                             void *callbackArg) CORVANE_NOEXCEPT;
/** @brief Run the handler. @p out and @p outLen are not written. @return as DrmAsyncActionRequest(). */
CORVANE_NODISCARD CORVANE_API uint32_t DrmSyncActionRequest(uint32_t opcode, void *in, uint32_t inLen, void *out,
                                                            uint32_t outLen) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#ifdef __cplusplus
static_assert(sizeof(DrmActionHandler) == 16);
#endif

#endif
