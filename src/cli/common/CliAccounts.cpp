#include "cli/common/CliAccounts.h"

#include <grp.h>

#include "infrastructure/common/accounts.h"
#include "infrastructure/common/os_calls.h"

namespace CORVANE_CLI {

bool FindUser(uid_t uid, UserRecord &user)
{
    return LookUpAccount(user.entry, user.texts, [uid](auto... rest) { return getpwuid_r(uid, rest...); });
}

bool FindUser(const std::string &name, UserRecord &user)
{
    return LookUpAccount(user.entry, user.texts,
                         [&name](auto... rest) { return g_osCalls.getpwnam_r(name.c_str(), rest...); });
}

bool FindGroupName(gid_t gid, std::string &name)
{
    struct group entry = {};
    MallocPtr<char> texts;
    if (!LookUpAccount(entry, texts, [gid](auto... rest) { return getgrgid_r(gid, rest...); })) {
        return false;
    }
    name = entry.gr_name;
    return true;
}

} // namespace CORVANE_CLI
