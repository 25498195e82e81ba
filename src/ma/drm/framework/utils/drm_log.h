/**
 * @file drm_log.h
 * @brief Log statements of the framework and the features: straight to the host's log, some of them rate-limited.
 *
 * C++ sources only; any thread, whatever locks it holds.
 */
#ifndef DRM_LOG_H
#define DRM_LOG_H

#include <cstdint>
#include <cstring>

#include "infrastructure/corvane_infra.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/utils/drm_lock.h"
#include "platform/norlog.h"

/** Levels are those of enum CorvaneLogLevel. */
#define DRM_LOG(level, ...)                                                                                            \
    norlog(DRM_HOST_MODULE, (level), basename(__FILE__), static_cast<uint32_t>(__LINE__), __func__, 0, __VA_ARGS__)

/** What a rate-limited statement remembers: one for each place, static, zeroed but for the lock. */
struct DrmLogLimit {
    DrmSpinlock lock = DRM_SPINLOCK_FREE;
    uint64_t last = 0;       /**< jiffies of the last line, or of the last opening of the window */
    uint64_t printed = 0;    /**< lines since the window opened */
    uint64_t missed = 0;     /**< lines kept back since the last report */
    uint64_t lastReport = 0; /**< jiffies of the last report of missed lines */
};

/** What to do with one line. */
struct DrmLogVerdict {
    bool print;
    uint64_t suppressed; /**< not 0: first report this many missed lines */
};

/**
 * @brief Decide on one line of a place.
 * @param window         Jiffies for which one line is enough.
 * @param reportInterval Jiffies between two reports of missed lines.
 */
[[nodiscard]] DrmLogVerdict DrmLogLimitAsk(DrmLogLimit *limit, uint64_t window, uint64_t reportInterval) noexcept;

/** At most one line per window from this place; missed lines are counted and reported now and then. */
#define DRM_LOG_LIMITED(level, window, reportInterval, ...)                                                            \
    do {                                                                                                               \
        static DrmLogLimit limit_;                                                                                     \
        const DrmLogVerdict verdict_ = DrmLogLimitAsk(&limit_, (window), (reportInterval));                            \
        if (verdict_.suppressed != 0) {                                                                                \
            DRM_LOG(level, "print: %u messages suppressed.%s,line=%d.", static_cast<uint32_t>(verdict_.suppressed),    \
                    __func__, __LINE__);                                                                               \
        }                                                                                                              \
        if (verdict_.print) {                                                                                          \
            DRM_LOG(level, __VA_ARGS__);                                                                               \
        }                                                                                                              \
    } while (false)

/** Window and report interval of the framework's own places, in jiffies: an hour, and ten. */
constexpr uint64_t kDrmLogWindow = 900000;
constexpr uint64_t kDrmLogReportInterval = 9000000;

#endif
