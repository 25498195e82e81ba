#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"

#include <bounded/bounded.h>

#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "data_mgr/data_mgr_master/data_mgr_master_rpc.h"
#include "data_mgr/data_mgr_master/data_mgr_white_list.h"
#include "disk_mgr/disk_mgr.h"
#include "infrastructure/common/corvane_log.h"

namespace {

bool IsInSnList(const char *sn, const DiskSnRef *list, uint32_t count) noexcept
{
    for (uint32_t i = 0; i < count; i++) {
        if (SnEqual(sn, list[i].buf)) {
            return true;
        }
    }
    return false;
}

/** Take one disk offline. Caller holds g_dataMgrLock. */
uint32_t OfflineDisk(uint32_t diskId, DataMgrObj *obj) noexcept
{
    char snText[DISK_SN_SIZE] = {};
    if (strncpy_s(snText, sizeof(snText), obj->baseInfo->sn, sizeof(obj->baseInfo->sn)) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "offline disk sn error(sn= %s)",
                    SnText(obj->baseInfo->sn).Get());
        return DATA_MGR_ERR_FAIL;
    }
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "Try offline disk (sn = %s disk id = %u)", snText, diskId);
    // A copy carries the state: the registry frees the stored record, or after a failed save keeps it as it was.
    DiskMgrObj leaving = *obj->baseInfo;
    leaving.diskState = DISK_STATE_OFFLINE;
    const uint32_t ret = DiskInfoUpdate(diskId, &leaving);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DiskSerialNumberRefresh delete offline disk fail, sn = %s",
                    snText);
        return ret;
    }
    obj->baseInfo = nullptr;
    const DiskSnRef sn{.len = DISK_SN_SIZE, .buf = snText};
    SendMsgToDataMgrAgent(DATA_MGR_RPC_POWER_OFF, sn, nullptr);
    if (DataMgrNotifyDrmDiskEvent(diskId, sn, DISK_EVENT_OUT) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DiskBaseInfoSet notify drm delete disk fail");
    }
    DataMgrObjFree(diskId);
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "offline disk (disk id = %u) success", diskId);
    return 0;
}

/** Bring one reported disk online, if it is unknown and admitted. Caller holds g_dataMgrLock. */
uint32_t OnlineDisk(DiskSnRef sn) noexcept
{
    uint32_t diskId = 0;
    if (GetDiskIdBySn(sn, &diskId) == 0) {
        return 0;
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "GetDiskIdBySn not ok.");
    const SnText snText(sn.buf);
    if (IsInNonWhiteListSn(snText.Get())) {
        return 0;
    }
    DiskMgrObj record{};
    const uint32_t fetchRet = g_dataMgrFetchBaseInfo(sn, &record);
    if (fetchRet != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "FetchDiskBaseInfo fail, sn = %s, ret = %d", snText.Get(),
                    fetchRet);
        return DATA_MGR_ERR_FAIL;
    }
    const BoundedText<sizeof(record.vendor)> vendor(record.vendor);
    const BoundedText<sizeof(record.model)> model(record.model);
    const uint32_t checkRet = CheckInWhiteList(vendor.Get(), model.Get(), record.diskType);
    if (checkRet != 0) {
        ProcessNonWhitelist(snText.Get(), vendor.Get(), model.Get(), checkRet);
        return 0;
    }
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "Current sn (%s) in whitelist. vendor(%s), model(%s)", snText.Get(),
                vendor.Get(), model.Get());
    if (DataMgrCreateNewDiskInfo(&record) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DiskSerialNumberRefresh init disk fail");
        return DATA_MGR_ERR_FAIL;
    }
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "Fetch new disk base info(sn = %s) success", snText.Get());
    return 0;
}

/** Both passes. Caller holds g_dataMgrLock. */
uint32_t RefreshLocked(DiskSnRef *list, uint32_t count) noexcept
{
    if (list == nullptr && count > 0) {
        return DATA_MGR_ERR_FAIL;
    }
    const uint32_t offlineRet = OfflineDiskNotInSNList(list, count);
    return offlineRet != 0 ? offlineRet : OnLineDiskInSNList(list, count);
}

uint32_t RefuseRefresh() noexcept
{
    CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Data Mgr Master not init");
    return DATA_MGR_ERR_FAIL;
}

/** Objects made before the start would be in its way. */
void RefuseEnable() noexcept
{
    CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Data Mgr Master not init");
}

/** Caller holds g_dataMgrLock. */
void FreeAllObjs() noexcept
{
    for (uint32_t diskId = 0; diskId < DISK_ID_MAX; diskId++) {
        DataMgrObjFree(diskId);
    }
}

/** Caller holds g_dataMgrLock. */
uint32_t InitLocked() noexcept
{
    if (g_dataMgrInit) {
        CORVANE_LOG(CORVANE_LOG_WARN, kDataMgrModule, "Data Mgr Master Model already init");
        return DATA_MGR_ERR_FAIL;
    }
    if (CreateAllDataMgrObjsByDiskMgr() != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DataMgrInit fail, Create All DataMgr Objs By Disk Mgr fail");
        return DATA_MGR_ERR_FAIL;
    }
    g_dataMgrInit = true;
    g_dataMgrEnable = true;
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "Data Mgr Model Init success");
    if (NotifyAllDiskFindInit() == 0) {
        CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "NotifyAllDiskFindInit success");
    }
    return 0;
}

} // namespace

extern "C" {

uint32_t DiskSerialNumberRefresh(DiskSnRef *list, uint32_t count) noexcept
{
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "DiskSerialNumberRefresh start");
    void *lock = DataMgrLockGet();
    if (lock == nullptr) {
        return RefuseRefresh();
    }
    uint32_t ret = 0;
    {
        const SpinGuard guard(lock, g_dataMgrLockToken);
        if (!g_dataMgrInit) {
            return RefuseRefresh();
        }
        ret = RefreshLocked(list, count);
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "DiskSerialNumberRefresh end");
    return ret;
}

uint32_t OfflineDiskNotInSNList(DiskSnRef *list, uint32_t count) noexcept
{
    for (uint32_t diskId = 0; diskId < DISK_ID_MAX; diskId++) {
        DataMgrObj *obj = g_diskDataMgr[diskId];
        if (obj == nullptr || obj->baseInfo == nullptr || IsInSnList(obj->baseInfo->sn, list, count)) {
            continue;
        }
        const uint32_t ret = OfflineDisk(diskId, obj);
        if (ret != 0) {
            return ret;
        }
    }
    return 0;
}

uint32_t OnLineDiskInSNList(DiskSnRef *list, uint32_t count) noexcept
{
    for (uint32_t i = 0; i < count; i++) {
        const uint32_t ret = OnlineDisk(list[i]);
        if (ret != 0) {
            return ret;
        }
    }
    return 0;
}

uint32_t DataMgrCreateNewDiskInfo(DiskMgrObj *record) noexcept
{
    if (record == nullptr) {
        return DATA_MGR_ERR_FAIL;
    }
    const DiskSnRef sn{.len = DISK_SN_SIZE, .buf = record->sn};
    const SnText snText(record->sn);
    uint32_t diskId = 0;
    uint32_t ret = GetNewDiskId(sn, &diskId);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Disk %s GET NEW DISK ID ERROR, RET = %d", snText.Get(), ret);
        return ret;
    }
    record->diskId = diskId;
    if (g_diskDataMgr[diskId] != nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DATA MGR OBJ FOR DISK ID %d ALREADY INIT", diskId);
        return DATA_MGR_ERR_OBJECT_EXISTS;
    }
    InfraPtr<DataMgrObj> obj(DataMgrCreateEmptyDataMgrObj(diskId));
    if (obj == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Create New Disk Info By BaseInfo Fail");
        return DATA_MGR_ERR_FAIL;
    }
    ret = DiskInfoUpdate(diskId, record);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule,
                    "Upadate base info to disk mgr fail,sn = %s,write to disk id = %d", snText.Get(), diskId);
        return ret;
    }
    ret = DiskInfoGet(diskId, &obj->baseInfo);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Get base info ptr from disk mgr fail, sn = %s, disk id = %d",
                    snText.Get(), diskId);
        return ret;
    }
    g_diskDataMgr[diskId] = obj.release();
    if (DataMgrNotifyDrmDiskEvent(diskId, sn, DISK_EVENT_IN) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DiskBaseInfoSet notify drm add disk fail");
    }
    SendMsgToDataMgrAgent(DATA_MGR_RPC_DISK_INFO, sn, record);
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "online disk, sn = %s,disk id = %d", snText.Get(), diskId);
    return 0;
}

uint32_t DataMgrNotifyDrmDiskEvent(uint32_t diskId, DiskSnRef sn, uint32_t eventType) noexcept
{
    const DrmDiskEventNotifyFunc notify = __atomic_load_n(&g_drmDiskEventNotifyFunc, __ATOMIC_ACQUIRE);
    if (notify == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DataMgrNotifyDrmDiskEvent error: no notify func");
        return DATA_MGR_ERR_FAIL;
    }
    const uint32_t ret = notify(diskId, sn, eventType);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DataMgrNotifyDrmDiskEvent error: bad return value");
    }
    // Written after a failure as well: it says that the callback has been called.
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "DataMgrNotifyDrmDiskEvent success: diskId = %u,sn =%s, type = %d",
                diskId, SnText(sn.buf).Get(), eventType);
    return ret;
}

uint32_t DataMgrSetDrmNotifyFunc(DrmDiskEventNotifyFunc callback) noexcept
{
    void *lock = DataMgrLockMake();
    if (lock == nullptr) {
        // Without a lock nothing else of the store runs yet.
        __atomic_store_n(&g_drmDiskEventNotifyFunc, callback, __ATOMIC_RELEASE);
        return 0;
    }
    const SpinGuard guard(lock, g_dataMgrLockToken);
    __atomic_store_n(&g_drmDiskEventNotifyFunc, callback, __ATOMIC_RELEASE);
    return 0;
}

void SendMsgToDataMgrAgent(uint32_t type, DiskSnRef sn, void *data) noexcept
{
    const uint32_t ret = g_dataMgrSendRpc(type, sn, data);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DiskHealthinfoInner send Rpc to agent failed! ret:[%d]", ret);
    }
}

uint32_t CreateAllDataMgrObjsByDiskMgr(void) noexcept
{
    for (uint32_t diskId = 0; diskId < DISK_ID_MAX; diskId++) {
        DiskMgrObj *baseInfo = nullptr;
        if (DiskInfoGet(diskId, &baseInfo) != 0) {
            DataMgrObjFree(diskId);
            continue;
        }
        if (g_diskDataMgr[diskId] != nullptr) {
            CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule,
                        "CreateAllDataMgrObjsByDiskMgr fail : Already Exist Data Mgr Obj");
            return DATA_MGR_ERR_FAIL;
        }
        DataMgrObj *obj = DataMgrCreateEmptyDataMgrObj(diskId);
        if (obj == nullptr) {
            CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule,
                        "CreateAllDataMgrObjsByDiskMgr fail : Create Empty Data Mgr Obj fail");
            return DATA_MGR_ERR_FAIL;
        }
        obj->baseInfo = baseInfo;
        g_diskDataMgr[diskId] = obj;
    }
    return 0;
}

uint32_t NotifyAllDiskFindInit(void) noexcept
{
    for (uint32_t diskId = 0; diskId < DISK_ID_MAX; diskId++) {
        DiskMgrObj *baseInfo = nullptr;
        if (DiskInfoGet(diskId, &baseInfo) != 0) {
            continue;
        }
        const uint32_t ret =
            DataMgrNotifyDrmDiskEvent(diskId, {.len = DISK_SN_SIZE, .buf = baseInfo->sn}, DISK_EVENT_IN);
        if (ret != 0) {
            CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DataMgrInit notify drm add disk fail");
            return ret;
        }
    }
    return 0;
}

uint32_t DataMgrInit(void) noexcept
{
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "Data Mgr Model Init start");
    void *lock = DataMgrLockMake();
    if (lock == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Data Mgr create lock fail");
        return DATA_MGR_ERR_FAIL;
    }
    const SpinGuard guard(lock, g_dataMgrLockToken);
    return InitLocked();
}

uint32_t DataMgrDestroy(void) noexcept
{
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "Data Mgr Model start destroy");
    if (!g_dataMgrInit) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Data Mgr Master Model no init,can't destroy");
        return 0;
    }
    {
        const SpinGuard guard(DataMgrLockGet(), g_dataMgrLockToken);
        FreeAllObjs();
        g_dataMgrInit = false;
        g_dataMgrEnable = false;
    }
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "Data Mgr Model destroy success");
    return 0;
}

void DataMgrEnable(void) noexcept
{
    void *lock = DataMgrLockGet();
    if (lock == nullptr) {
        RefuseEnable();
        return;
    }
    const SpinGuard guard(lock, g_dataMgrLockToken);
    if (!g_dataMgrInit) {
        RefuseEnable();
        return;
    }
    if (g_dataMgrEnable) {
        return;
    }
    if (CreateAllDataMgrObjsByDiskMgr() != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DataMgrEnable fail, Create All DataMgr Objs By Disk Mgr fail");
        return;
    }
    g_dataMgrEnable = true;
}

void DataMgrDisable(void) noexcept
{
    void *lock = DataMgrLockGet();
    if (lock == nullptr) {
        return;
    }
    const SpinGuard guard(lock, g_dataMgrLockToken);
    g_dataMgrEnable = false;
    FreeAllObjs();
}

} // extern "C"
