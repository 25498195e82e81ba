#include "infrastructure/common/accounts.h"

#include <cerrno>
#include <cstddef>

#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

namespace {

constexpr size_t kBufferMin = 1024;
// A group with very many members; beyond this the system's own tools give up as well.
constexpr size_t kBufferMax = size_t{1024} * 1024;

/**
 * Looks an account up with a reentrant call, whose buffer grows as long as it is too small. The memory is the system's
 * own: the log looks its owner up before there is an adapter table.
 * @param take  Called with the entry while its buffer lives.
 */
template <typename Entry, typename Lookup, typename Take>
bool LookUp(const char *name, Lookup lookup, Take take) noexcept
{
    if (name == nullptr) {
        return false;
    }
    for (size_t size = kBufferMin; size <= kBufferMax; size *= 2) {
        const MallocPtr<char> buffer(static_cast<char *>(g_osCalls.malloc(size)));
        if (buffer == nullptr) {
            return false;
        }
        Entry entry{};
        Entry *found = nullptr;
        const int error = lookup(name, &entry, buffer.get(), size, &found);
        if (error == ERANGE) {
            continue;
        }
        if (error != 0 || found == nullptr) {
            return false;
        }
        take(*found);
        return true;
    }
    return false;
}

} // namespace

bool FindUserId(const char *name, uid_t &uid) noexcept
{
    return LookUp<struct passwd>(name, g_osCalls.getpwnam_r,
                                 [&uid](const struct passwd &entry) { uid = entry.pw_uid; });
}

bool FindGroupId(const char *name, gid_t &gid) noexcept
{
    return LookUp<struct group>(name, g_osCalls.getgrnam_r, [&gid](const struct group &entry) { gid = entry.gr_gid; });
}
