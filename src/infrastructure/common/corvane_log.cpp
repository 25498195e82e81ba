#include "infrastructure/common/corvane_log.h"

#include <array>

namespace {

// Levels 0 and 1 belong to the host; the library never logs with them.
constexpr std::array<const char *, 8> kLevelNames{"N/A", "N/A", "CRITICAL", "ERROR", "WARN", "EVENT", "INFO", "DEBUG"};
static_assert(kLevelNames.size() == CORVANE_LOG_DEBUG + 1, "row i names level i");

} // namespace

const char *CorvaneLogLevelName(uint32_t level) noexcept
{
    return level < kLevelNames.size() ? kLevelNames[level] : kLevelNames[0];
}
