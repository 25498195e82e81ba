/**
 * @file accounts.h
 * @brief Accounts of users and groups. C++ only; no state, any thread, also before the adapter table is filled.
 */
#ifndef CORVANE_ACCOUNTS_H
#define CORVANE_ACCOUNTS_H

#include <cerrno>
#include <cstddef>
#include <sys/types.h>

#include "infrastructure/common/corvane_raii.h"
#include "infrastructure/common/os_calls.h"

/**
 * @brief Call a reentrant look-up with ever more memory until the account's texts fit. The memory is the system's own:
 *        the log looks its owner up before there is an adapter table.
 * @param[out] entry   The account.
 * @param[out] texts   What it points to; null without memory.
 * @param      lookUp  As getpwnam_r() without its first argument.
 * @return whether there is such an account.
 */
template <typename Entry, typename LookUp>
[[nodiscard]] bool LookUpAccount(Entry &entry, MallocPtr<char> &texts, LookUp lookUp) noexcept
{
    constexpr size_t sizeMin = 1024;
    constexpr size_t sizeMax = size_t{1} << 24; // a group with very many members
    for (size_t size = sizeMin; size <= sizeMax; size *= 2) {
        texts.reset(static_cast<char *>(g_osCalls.malloc(size)));
        if (texts == nullptr) {
            return false;
        }
        Entry *found = nullptr;
        const int error = lookUp(&entry, texts.get(), size, &found);
        if (error != ERANGE) {
            return error == 0 && found != nullptr;
        }
    }
    return false;
}

/** @brief Look a user up. @return false, with @p uid untouched: null, no such user, no memory or a failed look-up. */
[[nodiscard]] bool FindUserId(const char *name, uid_t &uid) noexcept;

/** @brief Look a group up. @return false, with @p gid untouched: null, no such group, no memory or a failed look-up. */
[[nodiscard]] bool FindGroupId(const char *name, gid_t &gid) noexcept;

#endif
