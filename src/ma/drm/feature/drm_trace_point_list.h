/**
 * @file drm_trace_point_list.h
 * @brief The list of disks that fault injection takes: identifiers between commas. No state, any thread.
 */
#ifndef DRM_TRACE_POINT_LIST_H
#define DRM_TRACE_POINT_LIST_H

#include <cstdint>

enum class DrmTracePointMatch {
    NO, /**< not in it; or null, or a list of more than 31 characters */
    LISTED,
    EMPTY, /**< the list names no disk */
};

/** @brief Looks a disk up. Words that are no number are passed over. */
[[nodiscard]] DrmTracePointMatch DrmTracePointLookUp(const char *list, uint32_t diskId) noexcept;

#endif
