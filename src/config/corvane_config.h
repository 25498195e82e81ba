/**
 * @file corvane_config.h
 * @brief The settings: one JSON file below the prefix, held in memory as a tree, read and written by name.
 *
 * Owns the tree g_configRoot from InitConfig() to the end of the process. Any thread may read and write; readers take
 * g_configLock for reading, writers for writing, and hold it while the file is saved. InitConfig() runs once, on the
 * starting thread. Every change is saved at once and then copied to the history.
 */
#ifndef CORVANE_CONFIG_H
#define CORVANE_CONFIG_H

#include <cjson/cJSON.h>
#include <stdint.h>

#include "infrastructure/common/corvane_export.h"

/** Disk types that have a section of their own. */
#define CORVANE_CONFIG_DISK_TYPES 4

CORVANE_BEGIN_DECLS

/** The settings; null until InitConfig() has succeeded. Guarded by g_configLock. */
extern CORVANE_API cJSON *g_configRoot;
/** Read/write lock of the adapter table over the tree and its file; made by InitConfig() and never destroyed. */
extern CORVANE_API void *g_configLock;
/** Sections of the disk types; the index is the disk type of the feature settings. */
extern CORVANE_API const char *g_diskTypeConfigNames[CORVANE_CONFIG_DISK_TYPES];

/**
 * @brief Load the settings; recover a missing file from the history, or take the defaults.
 *
 * A file that exists and is no JSON fails the call: nothing stands in for it.
 * @retval 0 The tree is there.
 * @retval 1 No lock, called before, a path too long, or nothing could be loaded.
 * @note Takes g_configLock for writing.
 */
CORVANE_NODISCARD CORVANE_API uint32_t InitConfig(void) CORVANE_NOEXCEPT;

/**
 * @brief Read a number of the top level.
 * @param[in]  name  Key; upper and lower case are one.
 * @param[out] value The number; untouched on failure.
 * @retval 0 Found.
 * @retval 1 No such key, a null argument, or not initialised.
 * @note Takes g_configLock for reading.
 */
CORVANE_NODISCARD CORVANE_API uint32_t GetConfigInt(const char *name, uint32_t *value) CORVANE_NOEXCEPT;

/**
 * @brief Set a number of the top level, save the file and add it to the history.
 * @retval 0 Saved, whether or not the history could take it.
 * @retval 1 No such key, null name, path too long, not initialised, or not saved; in the last case the tree has the
 *           new value and the file the old one.
 * @note Takes g_configLock for writing, twice in a row.
 */
CORVANE_NODISCARD CORVANE_API uint32_t SetConfigInt(const char *name, int32_t value) CORVANE_NOEXCEPT;

/** @brief GetConfigInt() one level down, for key @p child of section @p parent. */
CORVANE_NODISCARD CORVANE_API uint32_t GetChildNodeConfigInt(const char *parent, const char *child,
                                                             uint32_t *value) CORVANE_NOEXCEPT;

/** @brief SetConfigInt() one level down, for key @p child of section @p parent. */
CORVANE_NODISCARD CORVANE_API uint32_t SetChildNodeConfigInt(const char *parent, const char *child,
                                                             int32_t value) CORVANE_NOEXCEPT;

/**
 * @brief Read a switch of the top level.
 * @param[out] value What was found, even if it is no switch; untouched if nothing was.
 * @retval 0 0 or 1 was found.
 * @retval 1 Another value, or a failure of GetConfigInt().
 */
CORVANE_NODISCARD CORVANE_API uint32_t GetConfigSwitchVal(const char *name, uint32_t *value) CORVANE_NOEXCEPT;

/**
 * @brief Set a switch of the top level.
 * @retval 0 Saved.
 * @retval 1 @p value is neither 0 nor 1, and nothing was done; or a failure of SetConfigInt().
 */
CORVANE_NODISCARD CORVANE_API uint32_t SetConfigSwitchVal(const char *name, uint32_t value) CORVANE_NOEXCEPT;

/** @brief Tell whether @p value is a switch. @return 0 for 0 and 1, else 1. */
CORVANE_NODISCARD CORVANE_API uint32_t CheckSwitchConfig(int32_t value) CORVANE_NOEXCEPT;

/** @brief Look up a child. @return the child, owned by @p parent; null if there is none or @p parent is null. */
CORVANE_NODISCARD CORVANE_API cJSON *GetConfigNode(cJSON *parent, const char *name) CORVANE_NOEXCEPT;

/**
 * @brief Load the file, and merge what a package upgrade left beside it.
 * @return the tree, owned by the caller; null if the file cannot be loaded.
 * @note The caller holds g_configLock for writing.
 */
CORVANE_NODISCARD CORVANE_API cJSON *LoadConfigFileExist(void) CORVANE_NOEXCEPT;

/** @brief Build the defaults; no file is written. @return the tree, owned by the caller; null without memory. */
CORVANE_NODISCARD CORVANE_API cJSON *LoadConfigFileNotExist(void) CORVANE_NOEXCEPT;

/**
 * @brief Add to @p node what only @p upgradeNode has; values in both stay as @p node has them.
 * @param[in,out] node        Changed in place; half merged after a failure.
 * @param[in]     upgradeNode Only read.
 * @param[in]     depth       0 at the top; 5 and above are refused.
 * @retval 0 Merged.
 * @retval 1 Too deep, a null tree, a member without a name, or no memory.
 */
CORVANE_NODISCARD CORVANE_API uint32_t ConfigUpgradeNode(cJSON *node, cJSON *upgradeNode,
                                                         uint32_t depth) CORVANE_NOEXCEPT;

CORVANE_END_DECLS

#endif
