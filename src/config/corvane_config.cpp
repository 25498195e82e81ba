#include "config/corvane_config.h"

#include <cerrno>
#include <unistd.h>

#include "bounded/bounded.h"
#include "config/corvane_config_bak.h"
#include "config/corvane_config_files.h"
#include "config/corvane_prefix_path.h"
#include "disk_mgr/disk_mgr_cjson_util.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/os_calls.h"

LockToken g_configLockToken;

extern "C" {

CORVANE_API cJSON *g_configRoot CORVANE_GUARDED_BY(g_configLockToken) = nullptr;
CORVANE_API void *g_configLock = nullptr;
CORVANE_API const char *g_diskTypeConfigNames[CORVANE_CONFIG_DISK_TYPES] = {"sata_ssd_disk", "sas_ssd_disk",
                                                                            "nvme_disk", "sas_hdd"};
} // extern "C"

bool JoinConfigPath(ConfigPath &path, const char *file) noexcept
{
    const char *prefix = GetPrefixPath();
    return prefix != nullptr && snprintf_s(path.data(), path.size(), path.size() - 1, "%s/%s", prefix, file) >= 0;
}

bool BuildConfigPath(ConfigPath &path, const char *file) noexcept
{
    if (JoinConfigPath(path, file)) {
        return true;
    }
    CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "concatenate config prefix:%s with file:%s failed.",
                        GetPrefixPath(), file);
    return false;
}

namespace {

constexpr uint32_t kOk = 0;
constexpr uint32_t kFail = 1;
/** Levels that a merge descends, so that no file can exhaust the stack. */
constexpr uint32_t kMaxUpgradeDepth = 5;

/** One section of a disk type in the defaults. */
struct DiskTypeDefaults {
    int taskCycle;         ///< seconds
    int minThresholdValue; ///< milliseconds
    int minSlowCycle;      ///< samples
};

constexpr DiskTypeDefaults kDiskTypeDefaults[CORVANE_CONFIG_DISK_TYPES] = {
    {20, 1, 50}, {20, 1, 50}, {20, 1, 50}, {20, 100, 50}};

/** A null @p parent or @p key that cannot be added gives false. */
bool AddNumber(cJSON *parent, const char *key, int value) noexcept
{
    return cJSON_AddNumberToObject(parent, key, value) != nullptr;
}

bool AddTopLevelDefaults(cJSON *root) noexcept
{
    if (!AddNumber(root, "feature_switch", 1) || !AddNumber(root, "takeover_disk_switch", 0)) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "create config node failed");
        return false;
    }
    cJSON *life = cJSON_AddObjectToObject(root, "disklife_prediction");
    if (life == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "create parent failed");
        return false;
    }
    if (!AddNumber(life, "task_cycle", 86400)) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "create config node failed");
        return false;
    }
    return true;
}

bool AddDiskTypeDefaults(cJSON *root, const char *name, const DiskTypeDefaults &defaults) noexcept
{
    cJSON *section = cJSON_AddObjectToObject(root, name);
    if (section == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "create parent failed");
        return false;
    }
    if (!AddNumber(section, "task_cycle", defaults.taskCycle) ||
        !AddNumber(section, "min_threshold_value", defaults.minThresholdValue) ||
        !AddNumber(section, "min_slow_cycle", defaults.minSlowCycle)) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "create disk type config node failed");
        return false;
    }
    return true;
}

/** A save that was cut off between the removal of the file and the rename left a whole copy and nothing else. */
bool HasWholeWriteAheadCopy(const char *path) noexcept
{
    const InfraPtr<char> name(GetWalFileName(path));
    const CJsonPtr tree(name != nullptr ? LoadIfExisitAndVaild(name.get()) : nullptr);
    return tree != nullptr;
}

cJSON *LoadMissingFile(const char *path) noexcept
{
    CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "DISK_CONFIG", "file %s not exist, try recover form back up config", path);
    if (RecoverConfigFromBak() == 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "DISK_CONFIG", "recover from bak");
        return LoadConfigFileExist();
    }
    return HasWholeWriteAheadCopy(path) ? LoadConfigFileExist() : LoadConfigFileNotExist();
}

uint32_t InitLocked() noexcept CORVANE_REQUIRES(g_configLockToken)
{
    if (g_configRoot != nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Config already inited");
        return kFail;
    }
    ConfigPath path;
    if (!BuildConfigPath(path, kConfigFile)) {
        return kFail;
    }
    g_configRoot = access(path.data(), F_OK) == 0 ? LoadConfigFileExist() : LoadMissingFile(path.data());
    CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "DISK_CONFIG", "Config init %s",
                        g_configRoot != nullptr ? "successfully" : "failed");
    return g_configRoot != nullptr ? kOk : kFail;
}

/** Merges the upgrade file into @p config and saves it. Whatever fails, the result is what the file holds. */
cJSON *Upgrade(CJsonPtr config, const char *path, const char *upgradePath) noexcept
{
    CJsonPtr upgrade(LoadCJsonFromFile(upgradePath));
    if (upgrade == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "load upgrade file %s failed, but continue", upgradePath);
        return config.release();
    }
    const uint32_t merged = ConfigUpgradeNode(config.get(), upgrade.get(), 0);
    upgrade.reset();
    if (merged != kOk) {
        config.reset();
        return LoadCJsonFromFile(path);
    }
    if (SaveCJsonToFile(path, config.get(), kConfigFileMode, kConfigFileUser, kConfigFileGroup) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "save upgrade config to file failed, but continue");
        config.reset();
        return LoadCJsonFromFile(path);
    }
    if (g_osCalls.unlink(upgradePath) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "del upgrade config file failed %d, but continue", errno);
    }
    return config.release();
}

/** Finds a setting: at the top level, or below @p parent if there is one. A key that is missing is logged. */
cJSON *FindLocked(const char *parent, const char *name) noexcept
    CORVANE_TSA(requires_shared_capability(g_configLockToken))
{
    cJSON *section = g_configRoot;
    if (parent != nullptr) {
        section = GetConfigNode(g_configRoot, parent);
        if (section == nullptr) {
            CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "no such config %s", parent);
            return nullptr;
        }
    }
    cJSON *node = GetConfigNode(section, name);
    if (node == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "no such config %s", name);
    }
    return node;
}

/** @p parent is null for the top level. */
uint32_t Get(const char *parent, const char *name, uint32_t *value) noexcept
{
    if (g_configLock == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "no such config %s", parent != nullptr ? parent : name);
        return kFail;
    }
    const ReadGuard guard(g_configLock, g_configLockToken);
    const cJSON *node = FindLocked(parent, name);
    if (node == nullptr) {
        return kFail;
    }
    *value = static_cast<uint32_t>(node->valueint);
    return kOk;
}

/** Sets the number in the tree and saves the tree. @return what the save returned. */
uint32_t SetAndSaveLocked(cJSON *node, int32_t value, const char *path) noexcept CORVANE_REQUIRES(g_configLockToken)
{
    (void)cJSON_SetNumberHelper(node, static_cast<double>(value));
    return SaveCJsonToFile(path, g_configRoot, kConfigFileMode, kConfigFileUser, kConfigFileGroup);
}

uint32_t SetTopLevelUnderLock(const char *name, int32_t value, const char *path) noexcept
{
    const WriteGuard guard(g_configLock, g_configLockToken);
    cJSON *node = FindLocked(nullptr, name);
    if (node == nullptr) {
        return kFail;
    }
    const uint32_t saved = SetAndSaveLocked(node, value, path);
    if (saved != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "save config %s:%d to file failed: %d", name, value, saved);
        return kFail;
    }
    return kOk;
}

uint32_t SetChildUnderLock(const char *parent, const char *child, int32_t value, const char *path) noexcept
{
    const WriteGuard guard(g_configLock, g_configLockToken);
    cJSON *node = FindLocked(parent, child);
    if (node == nullptr) {
        return kFail;
    }
    const uint32_t saved = SetAndSaveLocked(node, value, path);
    if (saved != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "save config parent:%s child:%s val:%d to file failed: %d",
                            parent, child, value, saved);
        return kFail;
    }
    return kOk;
}

/** After every attempt to set, also a failed one: the file may have changed by other hands. */
void BackUpAfterSet() noexcept
{
    if (BackUpConfigFile() != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "bak config failed");
    }
}

} // namespace

extern "C" {

CORVANE_API uint32_t InitConfig(void) noexcept
{
    if (g_configLock == nullptr && g_corvaneInfra.rwlockCreate != nullptr) {
        g_configLock = g_corvaneInfra.rwlockCreate();
    }
    if (g_configLock == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "Config create lock failed");
        return kFail;
    }
    const WriteGuard guard(g_configLock, g_configLockToken);
    return InitLocked();
}

CORVANE_API cJSON *LoadConfigFileNotExist(void) noexcept
{
    CJsonPtr root(cJSON_CreateObject());
    if (root == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "create rootNode failed");
        return nullptr;
    }
    if (!AddTopLevelDefaults(root.get())) {
        return nullptr;
    }
    for (size_t i = 0; i < CORVANE_CONFIG_DISK_TYPES; i++) {
        if (!AddDiskTypeDefaults(root.get(), g_diskTypeConfigNames[i], kDiskTypeDefaults[i])) {
            return nullptr;
        }
    }
    return root.release();
}

CORVANE_API cJSON *LoadConfigFileExist(void) noexcept
{
    ConfigPath path;
    ConfigPath upgradePath;
    if (!BuildConfigPath(path, kConfigFile) || !BuildConfigPath(upgradePath, kConfigUpgradeFile)) {
        return nullptr;
    }
    CJsonPtr config(LoadCJsonFromFile(path.data()));
    if (config == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "load file %s failed", path.data());
        return nullptr;
    }
    if (access(upgradePath.data(), F_OK) != 0) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_INFO, "DISK_CONFIG", "upgrade file %s not exist, no need upgrade",
                            upgradePath.data());
        return config.release();
    }
    return Upgrade(std::move(config), path.data(), upgradePath.data());
}

CORVANE_API uint32_t ConfigUpgradeNode(cJSON *node, cJSON *upgradeNode, uint32_t depth) noexcept
{
    if (depth >= kMaxUpgradeDepth || node == nullptr || upgradeNode == nullptr) {
        return kFail;
    }
    const cJSON *child = nullptr;
    cJSON_ArrayForEach(child, upgradeNode)
    {
        cJSON *existing = GetConfigNode(node, child->string);
        if (existing == nullptr) {
            CJsonPtr copy(cJSON_Duplicate(child, 1));
            if (copy == nullptr || child->string == nullptr ||
                !cJSON_AddItemToObject(node, child->string, copy.get())) {
                CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "copy upgrade node %s to config node %s failed",
                                    child->string, node->string);
                return kFail;
            }
            (void)copy.release();
        } else if (child->child != nullptr && ConfigUpgradeNode(existing, const_cast<cJSON *>(child), depth + 1) != 0) {
            CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "upgrade node %s failed", child->string);
            return kFail;
        }
    }
    return kOk;
}

CORVANE_API cJSON *GetConfigNode(cJSON *parent, const char *name) noexcept
{
    return parent != nullptr ? cJSON_GetObjectItem(parent, name) : nullptr;
}

CORVANE_API uint32_t GetConfigInt(const char *name, uint32_t *value) noexcept
{
    if (name == nullptr || value == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "null input %p:%p", static_cast<const void *>(name),
                            static_cast<void *>(value));
        return kFail;
    }
    return Get(nullptr, name, value);
}

CORVANE_API uint32_t GetChildNodeConfigInt(const char *parent, const char *child, uint32_t *value) noexcept
{
    if (parent == nullptr || child == nullptr || value == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "null input %p:%p:%p", static_cast<const void *>(parent),
                            static_cast<const void *>(child), static_cast<void *>(value));
        return kFail;
    }
    return Get(parent, child, value);
}

CORVANE_API uint32_t SetConfigInt(const char *name, int32_t value) noexcept
{
    if (name == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "null input %p:%d", static_cast<const void *>(name), value);
        return kFail;
    }
    ConfigPath path;
    if (!BuildConfigPath(path, kConfigFile)) {
        return kFail;
    }
    if (g_configLock == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "no such config %s", name);
        return kFail;
    }
    const uint32_t result = SetTopLevelUnderLock(name, value, path.data());
    BackUpAfterSet();
    return result;
}

CORVANE_API uint32_t SetChildNodeConfigInt(const char *parent, const char *child, int32_t value) noexcept
{
    if (parent == nullptr || child == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "null input parent:%p child:%p val:%d",
                            static_cast<const void *>(parent), static_cast<const void *>(child), value);
        return kFail;
    }
    ConfigPath path;
    if (!BuildConfigPath(path, kConfigFile)) {
        return kFail;
    }
    if (g_configLock == nullptr) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_MGR", "no such config %s", parent);
        return kFail;
    }
    const uint32_t result = SetChildUnderLock(parent, child, value, path.data());
    BackUpAfterSet();
    return result;
}

CORVANE_API uint32_t CheckSwitchConfig(int32_t value) noexcept
{
    if (value != 0 && value != 1) {
        CORVANE_LOG_CHECKED(CORVANE_LOG_ERROR, "DISK_CONFIG", "invalid switch val: %d", value);
        return kFail;
    }
    return kOk;
}

CORVANE_API uint32_t GetConfigSwitchVal(const char *name, uint32_t *value) noexcept
{
    if (GetConfigInt(name, value) != kOk) {
        return kFail;
    }
    return CheckSwitchConfig(static_cast<int32_t>(*value));
}

CORVANE_API uint32_t SetConfigSwitchVal(const char *name, uint32_t value) noexcept
{
    if (CheckSwitchConfig(static_cast<int32_t>(value)) != kOk) {
        return kFail;
    }
    return SetConfigInt(name, static_cast<int32_t>(value));
}

} // extern "C"
