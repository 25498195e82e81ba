/**
 * @file disk_mgr_cjson_util.h
 * @brief JSON trees in files that survive a crash at any moment of a save. Serves the registry and the configuration.
 *
 * A save writes the whole text to a write-ahead file (the path with ".wal" behind it), removes the target and renames
 * the write-ahead file to it. A load prefers a write-ahead file that parses: whatever the moment of a crash, the old
 * or the new tree is whole on disk.
 *
 * Owns no state and takes no lock. Any thread; one writer per path at a time, since the write-ahead name is fixed.
 */
#ifndef DISK_MGR_CJSON_UTIL_H
#define DISK_MGR_CJSON_UTIL_H

#include <cjson/cJSON.h>
#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

CORVANE_BEGIN_DECLS

#define CJSON_FILE_ERR_FAIL 0xFFFFFFFFu /**< the one failure of the saves */

/**
 * @brief Replace the file at @p path by the text of @p json.
 * @param[in] mode   Permission bits of the file.
 * @param[in] user   Account that is to own the file.
 * @param[in] group  Group that is to own the file.
 * @retval 0                    Saved; no write-ahead file is left.
 * @retval CJSON_FILE_ERR_FAIL  Not saved. The old file is whole, or the write-ahead file is and the next load takes it.
 */
CORVANE_NODISCARD CORVANE_API uint32_t SaveCJsonToFile(const char *path, cJSON *json, uint32_t mode, const char *user,
                                                       const char *group) CORVANE_NOEXCEPT;

/**
 * @brief Load a tree, from the write-ahead file if that is whole, which then becomes the target.
 * @return The tree, the caller deletes it; null when neither file parses.
 */
CORVANE_NODISCARD CORVANE_API cJSON *LoadCJsonFromFile(const char *path) CORVANE_NOEXCEPT;

/**
 * @brief Load one file, without a look at a write-ahead file.
 * @return The tree, the caller deletes it; null when the file cannot be read or does not parse.
 */
CORVANE_NODISCARD CORVANE_API cJSON *TryLoadCJsonFromFile(const char *path) CORVANE_NOEXCEPT;

/**
 * @brief Write one file in place, permissions first. Arguments as for SaveCJsonToFile().
 * @retval 0                    Written.
 * @retval CJSON_FILE_ERR_FAIL  Not written: the file holds part of the text, or is gone if its permissions failed.
 */
CORVANE_NODISCARD CORVANE_API uint32_t TrySaveCJsonToFile(const char *path, cJSON *json, uint32_t mode,
                                                          const char *user, const char *group) CORVANE_NOEXCEPT;

/** @brief TryLoadCJsonFromFile() for a file that may be missing: null then, without a message. */
CORVANE_NODISCARD CORVANE_API cJSON *LoadIfExisitAndVaild(const char *path) CORVANE_NOEXCEPT;

/** @return The write-ahead name of @p path, freed by the caller through slot 1 of the adapter table; or null. */
CORVANE_NODISCARD CORVANE_API char *GetWalFileName(const char *path) CORVANE_NOEXCEPT;

/**
 * @brief Set mode, then owner and group, of a file. Each failure is logged.
 * @retval 0   Set.
 * @retval -1  A call failed, or the user or the group does not exist.
 */
CORVANE_NODISCARD CORVANE_API int32_t SetFilePermission(const char *file, uint32_t mode, const char *user,
                                                        const char *group) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#include "disk_mgr/disk_mgr_file.h"

#endif
