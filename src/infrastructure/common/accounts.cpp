#include "infrastructure/common/accounts.h"

bool FindUserId(const char *name, uid_t &uid) noexcept
{
    struct passwd entry = {};
    MallocPtr<char> texts;
    if (name == nullptr ||
        !LookUpAccount(entry, texts, [name](auto... rest) { return g_osCalls.getpwnam_r(name, rest...); })) {
        return false;
    }
    uid = entry.pw_uid;
    return true;
}

bool FindGroupId(const char *name, gid_t &gid) noexcept
{
    struct group entry = {};
    MallocPtr<char> texts;
    if (name == nullptr ||
        !LookUpAccount(entry, texts, [name](auto... rest) { return g_osCalls.getgrnam_r(name, rest...); })) {
        return false;
    }
    gid = entry.gr_gid;
    return true;
}
