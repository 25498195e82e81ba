/**
 * @file accounts.h
 * @brief Numbers of users and groups by name. C++ only; no state, any thread, also before the adapter table is filled.
 */
#ifndef CORVANE_ACCOUNTS_H
#define CORVANE_ACCOUNTS_H

#include <sys/types.h>

/** @brief Look a user up. @return false, with @p uid untouched: null, no such user, no memory or a failed look-up. */
[[nodiscard]] bool FindUserId(const char *name, uid_t &uid) noexcept;

/** @brief Look a group up. @return false, with @p gid untouched: null, no such group, no memory or a failed look-up. */
[[nodiscard]] bool FindGroupId(const char *name, gid_t &gid) noexcept;

#endif
