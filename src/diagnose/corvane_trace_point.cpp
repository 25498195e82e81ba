#include "diagnose/corvane_trace_point.h"

#include <cerrno>
#include <string_view>

namespace {

constexpr uint32_t kMinusOne = 0xFFFFFFFFu;

struct LinkError {
    std::string_view mode; ///< the step that fails
    int result;
};

constexpr LinkError kLinkErrors[] = {
    {"connect", EINVAL},
    {"send", EPIPE},
    {"recv", EPIPE},
    {"set_param", ENOSYS},
};
static_assert(EINVAL == 22 && EPIPE == 32 && ENOSYS == 38, "operators know these numbers");

struct WearMode {
    std::string_view mode; ///< what is left to live
    uint32_t wearInt;
    uint64_t powerOnHours;
};

constexpr WearMode kWearModes[] = {
    {"normal", 10, 3000},
    {"90d", 90, 17270},
    {"30d", 90, 5390},
    {"1d", 99, 1970},
};

std::string_view ModeOf(const char *mode) noexcept
{
    return mode == nullptr ? std::string_view() : std::string_view(mode);
}

} // namespace

extern "C" {

void CorvaneTpInit(void) noexcept {}

int DcmReturnLinkErr(const char *mode, ...) noexcept
{
    for (const LinkError &error : kLinkErrors) {
        if (error.mode == ModeOf(mode)) {
            return error.result;
        }
    }
    return -1;
}

void DrmReturnErr(const char *, uint32_t *out) noexcept
{
    *out = kMinusOne;
}

void DmgChangeWear(const char *mode, DiskHealthInfo *info) noexcept
{
    for (const WearMode &wear : kWearModes) {
        if (wear.mode == ModeOf(mode)) {
            info->wearInt = wear.wearInt;
            info->wearFrac = 0;
            info->powerOnHours = wear.powerOnHours;
            return;
        }
    }
}

// A result of a check, where 0 has passed.
void DmgChangeCheckWhitelist(const char *mode, uint32_t *out) noexcept
{
    if (ModeOf(mode) == "true") {
        *out = 0;
    } else if (ModeOf(mode) == "false") {
        *out = 1;
    }
}

// A flag: the opposite sense of the above.
void DmgChangeCheckWhitelistCache(const char *mode, uint8_t *out) noexcept
{
    if (ModeOf(mode) == "true") {
        *out = 1;
    } else if (ModeOf(mode) == "false") {
        *out = 0;
    }
}

} // extern "C"
