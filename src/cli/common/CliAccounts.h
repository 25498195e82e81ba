/**
 * @file CliAccounts.h
 * @brief Accounts of peers and of the process itself. No state; any thread; logs nothing.
 */
#ifndef CLI_ACCOUNTS_H
#define CLI_ACCOUNTS_H

#include <pwd.h>
#include <string>
#include <sys/types.h>

#include "infrastructure/common/corvane_raii.h"

namespace CORVANE_CLI {

/** An account, with the memory of its texts. */
struct UserRecord {
    struct passwd entry = {};
    MallocPtr<char> texts; ///< null if there was no memory to look it up
};

/** @return whether there is a record. */
bool FindUser(uid_t uid, UserRecord &user);
bool FindUser(const std::string &name, UserRecord &user);
/** @return whether the group has a record; its name is in @p name then. */
bool FindGroupName(gid_t gid, std::string &name);

} // namespace CORVANE_CLI

#endif
