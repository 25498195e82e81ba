/**
 * @file drm_relaxed.h
 * @brief Settings that one thread writes and an analyser reads, without order: plain globals to the outside, atomics
 *        in use.
 */
#ifndef DRM_RELAXED_H
#define DRM_RELAXED_H

#include <atomic>

template <typename T>
[[nodiscard]] inline T DrmLoadRelaxed(T &value) noexcept
{
    return std::atomic_ref<T>(value).load(std::memory_order_relaxed);
}

template <typename T>
inline void DrmStoreRelaxed(T &value, T desired) noexcept
{
    std::atomic_ref<T>(value).store(desired, std::memory_order_relaxed);
}

#endif
