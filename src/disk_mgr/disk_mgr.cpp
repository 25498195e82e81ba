#include "disk_mgr/disk_mgr.h"

#include <array>
#include <cstring>

#include "bounded/bounded.h"
#include "config/corvane_prefix_path.h"
#include "disk_mgr/disk_mgr_cjson_util.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"

DiskMgrObj *g_diskMgrObj[DISK_ID_MAX];
void *g_diskNumAtomic;
uint32_t g_nextUnusedDiskId;
void *g_diskMgrLock;
char *g_configFilePath;
bool g_diskMgrInited;

namespace {

constexpr const char *kModule = "DISK_MGR";
constexpr const char *kConfigFile = "config/disk_mgr.config";
constexpr size_t kPathSize = 4096;
constexpr uint32_t kConfigFileMode = 0640;
constexpr const char *kConfigUser = "corvane_user";
constexpr const char *kConfigGroup = "corvane_group";
// The clean-up has always covered the identifiers of a full registry that never wrapped, not the whole table.
constexpr uint32_t kFreeLimit = 64;

/**
 * The state each disk had when the registry last took a record of it. A caller that takes a disk offline through the
 * stored record has overwritten the state there, and a failed save must bring it back.
 */
std::array<uint32_t, DISK_ID_MAX> g_acceptedState{};

/** A serial number with a terminator, whatever the record or the caller held. */
using SnText = BoundedText<DISK_SN_SIZE>;

/** The slot of the disk with this serial number, or DISK_ID_MAX. */
uint32_t FindSlotBySn(const char *sn) noexcept
{
    for (uint32_t id = 0; id < DISK_ID_MAX; id++) {
        if (g_diskMgrObj[id] != nullptr && std::strncmp(sn, g_diskMgrObj[id]->sn, DISK_SN_SIZE) == 0) {
            return id;
        }
    }
    return DISK_ID_MAX;
}

void DestroyHandles() noexcept
{
    if (g_diskNumAtomic != nullptr) {
        g_corvaneInfra.atomicDestroy(g_diskNumAtomic);
        g_diskNumAtomic = nullptr;
    }
    if (g_diskMgrLock != nullptr) {
        g_corvaneInfra.spinlockDestroy(g_diskMgrLock);
        g_diskMgrLock = nullptr;
    }
}

uint32_t CreateHandles() noexcept
{
    g_diskNumAtomic = g_corvaneInfra.atomicCreate(0);
    g_diskMgrLock = g_corvaneInfra.spinlockCreate();
    g_nextUnusedDiskId = 0;
    if (g_diskNumAtomic == nullptr || g_diskMgrLock == nullptr) {
        DestroyHandles();
        return DISK_MGR_ERR_FAIL;
    }
    return 0;
}

/** Gives the path to use and stores it. */
uint32_t TakeConfigFilePath(const char *path) noexcept
{
    std::array<char, kPathSize> defaultPath{};
    if (ConfigFilePathCheck(path) != 0) {
        const char *prefix = GetPrefixPath();
        if (snprintf_s(defaultPath.data(), defaultPath.size(), defaultPath.size() - 1, "%s/%s", prefix, kConfigFile) <
            0) {
            CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Concatenate config prefix:%s with file:%s failed.", prefix,
                        kConfigFile);
            return DISK_MGR_ERR_FAIL;
        }
        path = defaultPath.data();
    }
    if (SetGConfigFilePath(path) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Set config file path = %s failed", path);
        return DISK_MGR_ERR_FAIL;
    }
    return 0;
}

/** Stores one entry of the file. A second one with the same identifier is dropped. */
uint32_t LoadEntry(cJSON *entry) noexcept
{
    InfraPtr<DiskMgrObj> obj = InfraNew<DiskMgrObj>();
    if (obj == nullptr || ParseCJson2DiskInfo(entry, obj.get()) != 0) {
        return DISK_MGR_ERR_FAIL;
    }
    const uint32_t diskId = obj->diskId;
    if (g_diskMgrObj[diskId] != nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Detected duplicate disk id: %u", diskId);
        return 0;
    }
    g_acceptedState[diskId] = obj->diskState;
    g_diskMgrObj[diskId] = obj.release();
    (void)g_corvaneInfra.atomicIncrementAndGet(g_diskNumAtomic);
    return 0;
}

} // namespace

uint32_t DiskMgrInit(const char *path) noexcept
{
    CORVANE_LOG(CORVANE_LOG_INFO, kModule, "Disk Mgr Model Init start = %s", TextOrNull(path));
    if (g_diskMgrInited) {
        CORVANE_LOG(CORVANE_LOG_WARN, kModule, "Disk Mgr Model already init");
        return DISK_MGR_ERR_FAIL;
    }
    if (CreateHandles() != 0) {
        return DISK_MGR_ERR_FAIL;
    }
    if (TakeConfigFilePath(path) != 0) {
        DestroyHandles();
        return DISK_MGR_ERR_FAIL;
    }
    if (DiskInfoLoadConfig() != 0) {
        CORVANE_LOG(CORVANE_LOG_WARN, kModule, "DiskInfoLoadConfig fail , config file path = %s", g_configFilePath);
    }
    g_diskMgrInited = true;
    CORVANE_LOG(CORVANE_LOG_INFO, kModule, "Disk Mgr Model Init finish , config file path = %s", g_configFilePath);
    return 0;
}

uint32_t DiskMgrDestroy(void) noexcept
{
    CORVANE_LOG(CORVANE_LOG_INFO, kModule, "Disk Mgr Model start destory");
    if (!g_diskMgrInited) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Disk Mgr Model no init,can't destroy");
        return 0;
    }
    DestroyHandles();
    g_corvaneInfra.memFree(g_configFilePath);
    g_configFilePath = nullptr;
    DiskMgrFreeAllObjs();
    g_diskMgrInited = false;
    CORVANE_LOG(CORVANE_LOG_INFO, kModule, "Disk Mgr Model destory success");
    return 0;
}

uint32_t GetDiskIdBySn(DiskSnRef sn, uint32_t *diskId) noexcept
{
    // A length that is negative as a signed number is above the limit as well.
    if (sn.len > DISK_SN_SIZE || sn.buf == nullptr || diskId == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "DiskBaseInfoSet Param error, sn len = %d",
                    static_cast<int32_t>(sn.len));
        return DISK_MGR_ERR_FAIL;
    }
    const uint32_t slot = FindSlotBySn(sn.buf);
    if (slot < DISK_ID_MAX) {
        *diskId = slot;
        return 0;
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, kModule, "GetDiskIdBySn can't find sn = %s", SnText(sn.buf).Get());
    for (uint32_t id = 0; id < DISK_ID_MAX; id++) {
        if (g_diskMgrObj[id] != nullptr) {
            CORVANE_LOG(CORVANE_LOG_DEBUG, kModule, "\tsn = %s, diskid= %d", SnText(g_diskMgrObj[id]->sn).Get(), id);
        }
    }
    return DISK_MGR_ERR_UNKNOWN_SN;
}

uint32_t IsSNExist(DiskSnRef sn) noexcept
{
    return sn.buf != nullptr && FindSlotBySn(sn.buf) < DISK_ID_MAX ? 0 : DISK_MGR_ERR_FAIL;
}

uint32_t GetNewDiskId(DiskSnRef sn, uint32_t *diskId) noexcept
{
    if (sn.len > DISK_SN_SIZE || sn.buf == nullptr || diskId == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "DiskBaseInfoSet Param error, sn_len = %d",
                    static_cast<int32_t>(sn.len));
        return DISK_MGR_ERR_FAIL;
    }
    if (g_diskNumAtomic == nullptr) {
        return DISK_MGR_ERR_FAIL;
    }
    if (g_corvaneInfra.atomicGet(g_diskNumAtomic) >= DISK_ONLINE_MAX) {
        return DISK_MGR_ERR_DISK_LIMIT;
    }
    for (uint32_t tries = 0; tries < DISK_ID_MAX; tries++) {
        // The cursor is a global that a debugger may have set beyond the table.
        g_nextUnusedDiskId &= DISK_ID_MAX - 1;
        if (g_diskMgrObj[g_nextUnusedDiskId] == nullptr) {
            *diskId = g_nextUnusedDiskId;
            CORVANE_LOG(CORVANE_LOG_DEBUG, kModule, "GetNewDiskId:pre set new diskid: sn = %s diskId = %d",
                        SnText(sn.buf).Get(), *diskId);
            return 0;
        }
        g_nextUnusedDiskId = (g_nextUnusedDiskId + 1) & (DISK_ID_MAX - 1);
    }
    return DISK_MGR_ERR_FAIL;
}

uint32_t GetAllSnAndDiskId(uint32_t *ids, DiskSnRef *sns, uint32_t capacity, uint32_t *count) noexcept
{
    if (count == nullptr || g_diskNumAtomic == nullptr) {
        return DISK_MGR_ERR_FAIL;
    }
    *count = static_cast<uint32_t>(g_corvaneInfra.atomicGet(g_diskNumAtomic));
    if (capacity < *count) {
        return DISK_MGR_ERR_TOO_SMALL;
    }
    uint32_t position = 0;
    for (uint32_t id = 0; id < DISK_ID_MAX; id++) {
        const DiskMgrObj *obj = g_diskMgrObj[id];
        if (obj == nullptr) {
            continue;
        }
        // Records that an earlier registry left in the upper half of the table are not in the count.
        if (position >= capacity) {
            return DISK_MGR_ERR_TOO_SMALL;
        }
        if (ids == nullptr || sns == nullptr) {
            return DISK_MGR_ERR_FAIL;
        }
        ids[position] = id;
        if (strcpy_s(sns[position].buf, sns[position].len, SnText(obj->sn).Get()) != 0) {
            return DISK_MGR_ERR_FAIL;
        }
        position++;
    }
    return 0;
}

uint32_t DiskMgrHandleNewDiskId(uint32_t diskId, DiskMgrObj *obj) noexcept
{
    if (diskId >= DISK_ID_MAX || obj == nullptr || g_diskMgrObj[diskId] != nullptr || g_diskNumAtomic == nullptr) {
        return DISK_MGR_ERR_FAIL;
    }
    if (FindSlotBySn(obj->sn) < DISK_ID_MAX || obj->diskState == DISK_STATE_OFFLINE) {
        return DISK_MGR_ERR_FAIL;
    }
    InfraPtr<DiskMgrObj> stored = InfraNew<DiskMgrObj>();
    if (memcpy_s(stored.get(), sizeof(DiskMgrObj), obj, sizeof(DiskMgrObj)) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "DiskInfoUpdate fail , memcpy DiskMgrObj fail");
        return DISK_MGR_ERR_FAIL;
    }
    stored->diskId = diskId;
    stored->diskState = DISK_STATE_NORMAL;
    g_diskMgrObj[diskId] = stored.get();
    if (DiskInfoSavetoConfig() != 0) {
        g_diskMgrObj[diskId] = nullptr;
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "DiskInfoUpdate DiskInfoSavetoConfig fail , config file path = %s",
                    TextOrNull(g_configFilePath));
        return DISK_MGR_ERR_FAIL;
    }
    g_acceptedState[diskId] = DISK_STATE_NORMAL;
    (void)stored.release(); // the table owns it now
    (void)g_corvaneInfra.atomicIncrementAndGet(g_diskNumAtomic);
    return 0;
}

uint32_t DiskMgrHandleOfflineObj(uint32_t diskId) noexcept
{
    if (diskId >= DISK_ID_MAX || g_diskMgrObj[diskId] == nullptr || g_diskNumAtomic == nullptr) {
        return DISK_MGR_ERR_FAIL;
    }
    InfraPtr<DiskMgrObj> leaving(g_diskMgrObj[diskId]);
    g_diskMgrObj[diskId] = nullptr;
    if (DiskInfoSavetoConfig() != 0) {
        if (leaving->diskState == DISK_STATE_OFFLINE) {
            // Written with another disk's change, state 2 would make the next load refuse the whole file.
            leaving->diskState = g_acceptedState[diskId];
        }
        g_diskMgrObj[diskId] = leaving.release();
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "DiskInfoUpdate DiskInfoSavetoConfig fail , config file path = %s",
                    TextOrNull(g_configFilePath));
        return DISK_MGR_ERR_FAIL;
    }
    (void)g_corvaneInfra.atomicDecrementAndGet(g_diskNumAtomic);
    return 0;
}

uint32_t DiskInfoUpdate(uint32_t diskId, DiskMgrObj *obj) noexcept
{
    if (diskId >= DISK_ID_MAX || obj == nullptr) {
        return DISK_MGR_ERR_PARAM;
    }
    DiskMgrObj *stored = g_diskMgrObj[diskId];
    if (stored == nullptr) {
        return DiskMgrHandleNewDiskId(diskId, obj);
    }
    if (std::strncmp(obj->sn, stored->sn, DISK_SN_SIZE) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule,
                    "disk info update failed, input SN (%s) does not match saved SN (%s) under same disk id.",
                    SnText(obj->sn).Get(), SnText(stored->sn).Get());
        return DISK_MGR_ERR_FAIL;
    }
    if (obj->diskState == DISK_STATE_OFFLINE) {
        return DiskMgrHandleOfflineObj(diskId);
    }
    if (obj != stored && memcpy_s(stored, sizeof(DiskMgrObj), obj, sizeof(DiskMgrObj)) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "DiskInfoUpdate fail , memcpy DiskMgrObj fail");
        return DISK_MGR_ERR_FAIL;
    }
    g_acceptedState[diskId] = stored->diskState;
    if (DiskInfoSavetoConfig() != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "DiskInfoUpdate DiskInfoSavetoConfig fail , config file path = %s",
                    TextOrNull(g_configFilePath));
        return DISK_MGR_ERR_FAIL;
    }
    return 0;
}

uint32_t DiskInfoGet(uint32_t diskId, DiskMgrObj **obj) noexcept
{
    if (diskId >= DISK_ID_MAX || obj == nullptr || g_diskMgrObj[diskId] == nullptr) {
        return DISK_MGR_ERR_NO_DISK;
    }
    *obj = g_diskMgrObj[diskId];
    return 0;
}

uint32_t ConfigFilePathCheck(const char *path) noexcept
{
    return path != nullptr ? 0 : DISK_MGR_ERR_FAIL;
}

uint32_t SetGConfigFilePath(const char *path) noexcept
{
    if (ConfigFilePathCheck(path) != 0) {
        return DISK_MGR_ERR_FAIL;
    }
    const size_t size = std::strlen(path) + 1;
    InfraPtr<char> copy(static_cast<char *>(g_corvaneInfra.memAlloc(size)));
    if (copy == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Malloc failed.");
        return DISK_MGR_ERR_FAIL;
    }
    if (strcpy_s(copy.get(), size, path) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "String copy failed.");
        return DISK_MGR_ERR_FAIL;
    }
    const InfraPtr<char> former(g_configFilePath);
    g_configFilePath = copy.release();
    return 0;
}

uint32_t DiskInfoSavetoConfig(void) noexcept
{
    cJSON *tree = nullptr;
    if (ConvertDiskMgrObjs2cJSON(g_diskMgrObj, DISK_ID_MAX, &tree) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Convert Disk Mgr Obj to cJSON error");
        return DISK_MGR_ERR_FAIL;
    }
    const CJsonPtr owner(tree);
    if (SaveCJsonToFile(g_configFilePath, tree, kConfigFileMode, kConfigUser, kConfigGroup) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "Save Disk Info Json To File error");
        return DISK_MGR_ERR_FAIL;
    }
    return 0;
}

uint32_t DiskInfoLoadConfig(void) noexcept
{
    if (g_diskNumAtomic == nullptr) {
        return DISK_MGR_ERR_FAIL;
    }
    const CJsonPtr tree(LoadCJsonFromFile(g_configFilePath));
    if (tree == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "cant load from config file, config file path = %s",
                    TextOrNull(g_configFilePath));
        return DISK_MGR_ERR_FAIL;
    }
    const int32_t count = cJSON_GetArraySize(tree.get());
    CORVANE_LOG(CORVANE_LOG_DEBUG, kModule, "load config file, disk info num = %d", count);
    if (count > static_cast<int32_t>(DISK_ONLINE_MAX)) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, kModule, "Too Many Disk Obj(%d) in Config File", count);
        return DISK_MGR_ERR_FAIL;
    }
    for (int32_t i = 0; i < count; i++) {
        if (LoadEntry(cJSON_GetArrayItem(tree.get(), i)) != 0) {
            CORVANE_LOG(CORVANE_LOG_ERROR, kModule, "log config file error at diskInfoCJson[%d]", i);
            DiskMgrFreeAllObjs();
            return DISK_MGR_ERR_FAIL;
        }
    }
    return 0;
}

void DiskMgrFreeAllObjs(void) noexcept
{
    for (uint32_t id = 0; id < kFreeLimit; id++) {
        const InfraPtr<DiskMgrObj> owner(g_diskMgrObj[id]);
        g_diskMgrObj[id] = nullptr;
    }
}
