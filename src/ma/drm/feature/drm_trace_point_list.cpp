#include "ma/drm/feature/drm_trace_point_list.h"

#include <charconv>
#include <cstring>
#include <string_view>

namespace {

constexpr size_t kListMax = 31;

} // namespace

DrmTracePointMatch DrmTracePointLookUp(const char *list, uint32_t diskId) noexcept
{
    if (list == nullptr || strnlen(list, kListMax + 1) > kListMax) {
        return DrmTracePointMatch::NO;
    }
    std::string_view rest(list);
    if (rest.empty()) {
        return DrmTracePointMatch::EMPTY;
    }
    while (!rest.empty()) {
        const std::string_view word = rest.substr(0, rest.find(','));
        rest.remove_prefix(word.size() == rest.size() ? word.size() : word.size() + 1);
        uint32_t value = 0;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
        if (error == std::errc() && end == word.data() + word.size() && value == diskId) {
            return DrmTracePointMatch::LISTED;
        }
    }
    return DrmTracePointMatch::NO;
}
