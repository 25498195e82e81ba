#include "ma/drm/framework/utils/drm_log.h"

#include "platform/norax.h"

namespace {

/** Whether @p now is at or past @p due on a clock that may wrap. */
bool Reached(uint64_t now, uint64_t due) noexcept
{
    return static_cast<int64_t>(now - due) >= 0;
}

} // namespace

DrmLogVerdict DrmLogLimitAsk(DrmLogLimit *limit, uint64_t window, uint64_t reportInterval) noexcept
{
    const DrmSpinGuard guard(limit->lock);
    DrmLogVerdict verdict = {false, 0};
    const uint64_t now = norax_get_jiffies();
    if (Reached(now, limit->last + window)) {
        limit->printed = 0;
        limit->last = now;
        if (limit->missed != 0 && Reached(now, limit->lastReport + reportInterval)) {
            verdict.suppressed = limit->missed;
            limit->missed = 0;
            limit->lastReport = norax_get_jiffies();
        }
    }
    if (limit->printed != 0) {
        limit->missed++;
    } else {
        limit->printed++;
        limit->last = now;
        verdict.print = true;
    }
    return verdict;
}
