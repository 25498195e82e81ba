/**
 * @file corvane_trace_point.h
 * @brief Hooks for fault injection from outside, found by name; nothing in the library calls them. They hold no state.
 */
#ifndef CORVANE_TRACE_POINT_H
#define CORVANE_TRACE_POINT_H

#include <stdint.h>

#include "data_mgr/disk_types.h"
#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** @brief Start-up step "TracePoint": nothing. */
CORVANE_API void CorvaneTpInit(void) CORVANE_NOEXCEPT;
/** @return EINVAL for "connect", EPIPE for "send" and "recv", ENOSYS for "set_param", else -1. */
CORVANE_API int DcmReturnLinkErr(const char *mode, ...) CORVANE_NOEXCEPT;
/** @brief Set @p out to -1. */
CORVANE_API void DrmReturnErr(const char *ignored, uint32_t *out) CORVANE_NOEXCEPT;
/** @brief Age a disk: "normal", "90d", "30d" or "1d" left to live. Another mode changes nothing. */
CORVANE_API void DmgChangeWear(const char *mode, DiskHealthInfo *info) CORVANE_NOEXCEPT;
/** @brief Bend the result of the admission check: "true" passes (0), "false" fails (1). */
CORVANE_API void DmgChangeCheckWhitelist(const char *mode, uint32_t *out) CORVANE_NOEXCEPT;
/** @brief Bend the flag of the admission cache: "true" is 1, "false" is 0. */
CORVANE_API void DmgChangeCheckWhitelistCache(const char *mode, uint8_t *out) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
