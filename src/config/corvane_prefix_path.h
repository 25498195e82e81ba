/**
 * @file corvane_prefix_path.h
 * @brief The installation prefix, below which all files except the logs are found.
 *
 * Owns g_prefixPath. Written by the starting thread before any other thread runs, read without a lock afterwards.
 * Runs before there is a log: messages go to standard output.
 */
#ifndef CORVANE_PREFIX_PATH_H
#define CORVANE_PREFIX_PATH_H

#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

/** The prefix without a trailing slash; the built-in "/opt/corvane" until it is set. */
extern CORVANE_API char *g_prefixPath;

/** @return the prefix. Owned by this module; a value that a later SetPrefixPath() replaces stays valid. */
CORVANE_API char *GetPrefixPath(void) CORVANE_NOEXCEPT;

/**
 * @brief Make a copy of @p path the prefix. The path is not looked at.
 * @retval 0 Set.
 * @retval 1 @p path is null, or no memory; the prefix is as before.
 */
CORVANE_NODISCARD CORVANE_API uint32_t SetPrefixPath(const char *path) CORVANE_NOEXCEPT;

/**
 * @brief Take the prefix from the executable's own path, for a process of the library's own: the executable lies one
 *        folder below the prefix.
 * @retval 0 Set.
 * @retval 1 Not found; the reason is on standard output.
 */
CORVANE_NODISCARD CORVANE_API uint32_t InitCorvanePrefixPathInd(void) CORVANE_NOEXCEPT;

/**
 * @brief Take the prefix from the place of the host's diagnose library among the mapped files: it lies in a folder
 *        below the prefix.
 * @retval 0 Set.
 * @retval 1 Not found; the reason is on standard output.
 */
CORVANE_NODISCARD CORVANE_API uint32_t InitCorvanePrefixPathComb(void) CORVANE_NOEXCEPT;

/** @brief Cut @p path at its last "/"; a text without one, or null, stays. */
CORVANE_API void CutLastPathComponent(char *path) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
