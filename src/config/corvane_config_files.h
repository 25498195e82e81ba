/**
 * @file corvane_config_files.h
 * @brief Names, paths and the lock token that the store and its history share. No state; takes no locks.
 */
#ifndef CORVANE_CONFIG_FILES_H
#define CORVANE_CONFIG_FILES_H

#include <array>
#include <cstddef>

#include "infrastructure/common/corvane_raii.h"

inline constexpr const char *kConfigFile = "config/corvane_config.json";
inline constexpr const char *kConfigUpgradeFile = "config/corvane_config.json.rpmnew";
inline constexpr const char *kConfigBakFolder = "userconfig_bak";
inline constexpr mode_t kConfigFileMode = 0640;
inline constexpr const char *kConfigFileUser = "corvane_user";
inline constexpr const char *kConfigFileGroup = "corvane_group";

inline constexpr size_t kConfigPathSize = 4096;
using ConfigPath = std::array<char, kConfigPathSize>;

/** Stands for g_configLock in clang's checks. */
extern LockToken g_configLockToken;

/** @brief Put @p file below the prefix. A failure is logged. @return false if the path is too long. */
[[nodiscard]] bool BuildConfigPath(ConfigPath &path, const char *file) noexcept;

/** @brief As BuildConfigPath() without the log line. */
[[nodiscard]] bool JoinConfigPath(ConfigPath &path, const char *file) noexcept;

#endif
