#include "cli/common/CliAccounts.h"

#include <cerrno>
#include <grp.h>

#include "infrastructure/common/os_calls.h"

namespace CORVANE_CLI {

namespace {

/** Calls a look-up with ever more memory until its texts fit. @return whether
 * there is such a record. */
template <typename Record, typename LookUp>
bool LookUpRecord(Record &entry, std::vector<char> &texts, LookUp lookUp)
{
    constexpr size_t firstSize = 1024;
    constexpr size_t sizeMax = size_t{1} << 24;
    Record *found = nullptr;
    for (size_t size = firstSize; size <= sizeMax; size *= 2) {
        texts.resize(size);
        const int result = lookUp(&entry, texts.data(), texts.size(), &found);
        if (result != ERANGE) {
            return result == 0 && found != nullptr;
        }
    }
    return false;
}

} // namespace

bool FindUser(uid_t uid, UserRecord &user)
{
    return LookUpRecord(user.entry, user.texts,
                        [uid](struct passwd *entry, char *texts, size_t size, struct passwd **found) {
                            return getpwuid_r(uid, entry, texts, size, found);
                        });
}

bool FindUser(const std::string &name, UserRecord &user)
{
    return LookUpRecord(user.entry, user.texts,
                        [&name](struct passwd *entry, char *texts, size_t size, struct passwd **found) {
                            return g_osCalls.getpwnam_r(name.c_str(), entry, texts, size, found);
                        });
}

bool FindGroupName(gid_t gid, std::string &name)
{
    struct group entry = {};
    std::vector<char> texts;
    if (!LookUpRecord(entry, texts, [gid](struct group *record, char *buffer, size_t size, struct group **found) {
            return getgrgid_r(gid, record, buffer, size, found);
        })) {
        return false;
    }
    name = entry.gr_name;
    return true;
}

} // namespace CORVANE_CLI
