#include "data_mgr/data_mgr_master/data_mgr_master.h"

#include "data_mgr/data_mgr_master/data_mgr_io_stat.h"
#include "data_mgr/data_mgr_master/data_mgr_master_get.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "data_mgr/data_mgr_master/data_mgr_master_set.h"
#include "data_mgr/data_mgr_master/data_mgr_white_list.h"
#include "disk_mgr/disk_mgr.h"
#include "infrastructure/common/corvane_log.h"

extern "C" {

DataMgrObj *g_diskDataMgr[DISK_ID_MAX] = {};
void *g_dataMgrLock = nullptr;
DrmDiskEventNotifyFunc g_drmDiskEventNotifyFunc = nullptr;
uint64_t g_ioStatFreshTime = 0;

DataMgrInfoSetFunc g_diskInfoSetFunc[DISK_INFO_BUTT] = {
    DataMgrBaseInfoSetInner, DataMgrIoInfoSetInner,   DataMgrSmartInfoSetInner, DataMgrDrmInfoSetInner,
    DataMgrNodeInfoSetInner, DataMgrStrategySetInner, DataMgrDiskStateSetInner, nullptr,
};

DataMgrInfoGetFunc g_diskInfoGetFunc[DISK_INFO_BUTT] = {
    DataMgrBaseInfoGetInner, DataMgrIoInfoGetInner,   DataMgrSmartInfoGetInner, DataMgrDrmInfoGetInner,
    DataMgrNodeInfoGetInner, DataMgrStrategyGetInner, DataMgrDiskStateGetInner, DataMgrStrategyStrGetInner,
};

} // extern "C"

LockToken g_dataMgrLockToken;
std::atomic<bool> g_dataMgrInit{false};
std::atomic<bool> g_dataMgrEnable{false};
static_assert(sizeof(std::atomic<bool>) == 1);

void *DataMgrLockGet() noexcept
{
    return __atomic_load_n(&g_dataMgrLock, __ATOMIC_ACQUIRE);
}

void *DataMgrLockMake() noexcept
{
    void *present = DataMgrLockGet();
    if (present != nullptr) {
        return present;
    }
    void *made = g_corvaneInfra.spinlockCreate();
    if (made == nullptr) {
        return nullptr;
    }
    // Two starters may get here at once; the loser gives its lock back and uses the winner's.
    if (__atomic_compare_exchange_n(&g_dataMgrLock, &present, made, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) {
        return made;
    }
    g_corvaneInfra.spinlockDestroy(made);
    return present;
}

DataMgrObj *DataMgrObjAt(uint32_t diskId) noexcept
{
    return diskId < DISK_ID_MAX ? g_diskDataMgr[diskId] : nullptr;
}

void DataMgrObjFree(uint32_t diskId) noexcept
{
    if (g_diskDataMgr[diskId] != nullptr) {
        g_corvaneInfra.memFree(g_diskDataMgr[diskId]);
        g_diskDataMgr[diskId] = nullptr;
    }
}

namespace {

uint32_t RefuseSet(bool init, bool enable) noexcept
{
    CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Data Mgr init = %d,Mgr Enable =%d", init, enable);
    return DATA_MGR_ERR_FAIL;
}

uint32_t RefuseGet() noexcept
{
    CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Data Mgr Master not init");
    return DATA_MGR_ERR_FAIL;
}

uint32_t RefuseList() noexcept
{
    CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Data Mgr Master Not init");
    return DATA_MGR_ERR_FAIL;
}

/** What becomes of a set whose serial number the registry does not know. */
uint32_t SetUnknownDiskLocked(DiskSnRef sn, void *buf, uint32_t infoType, uint32_t lookupRet) noexcept
{
    if (!IsInWhiteList(sn, buf, infoType)) {
        return DATA_MGR_ERR_NOT_IN_WHITELIST;
    }
    uint32_t ret = lookupRet;
    if (infoType == DISK_INFO_BASE) {
        ret = DataMgrCreateNewDiskInfo(static_cast<DiskMgrObj *>(buf));
        if (ret == 0) {
            return 0;
        }
    }
    CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DataMgrDiskInfoSet fail, sn = %s,info type= %d",
                SnText(sn.buf).Get(), infoType);
    return ret;
}

uint32_t SetLocked(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t infoType) noexcept
{
    if (diskId == DISK_ID_BY_SN) {
        const uint32_t lookupRet = GetDiskIdBySn(sn, &diskId);
        if (lookupRet != 0) {
            return SetUnknownDiskLocked(sn, buf, infoType, lookupRet);
        }
    }
    const uint32_t checkRet = CheckParamValid(diskId, sn, infoType);
    if (checkRet != 0) {
        return checkRet;
    }
    const DataMgrInfoSetFunc row = infoType < DISK_INFO_BUTT ? g_diskInfoSetFunc[infoType] : nullptr;
    const uint32_t ret = row != nullptr ? row(diskId, sn, buf) : DATA_MGR_ERR_FAIL;
    if (ret == 0) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "SET INFO SUCCESS, INFO TYPE = %d", infoType);
    } else {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "SET INFO FAIL, INFO TYPE = %d", infoType);
    }
    return ret;
}

uint32_t GetLocked(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen, uint32_t infoType) noexcept
{
    const DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule,
                    "DataMgrDiskInfoGet error,disk id = %d,info type= %dobj not init or vaild disk id", diskId,
                    infoType);
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (sn.len == 0 && obj->baseInfo != nullptr) {
        sn = {.len = DISK_SN_SIZE, .buf = obj->baseInfo->sn};
    }
    if (obj->baseInfo == nullptr || !SnEqual(obj->baseInfo->sn, sn.buf)) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule,
                    "DataMgrDiskInfoGet,disk id = %d,info type= %d,sn=%ssn not valid or match diskId", diskId, infoType,
                    SnText(sn.buf).Get());
        return DATA_MGR_ERR_SN_MISMATCH;
    }
    const DataMgrInfoGetFunc row = infoType < DISK_INFO_BUTT ? g_diskInfoGetFunc[infoType] : nullptr;
    const uint32_t ret = row != nullptr ? row(diskId, sn, buf, bufLen) : DATA_MGR_ERR_FAIL;
    if (ret == 0) {
        CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "GET INFO SUCCESS, INFO TYPE = %d", infoType);
    } else {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "GET INFO FAIL, INFO TYPE = %d", infoType);
    }
    return ret;
}

/** A get by identifier alone. */
uint32_t GetWithoutSn(uint32_t diskId, void *buf, uint32_t bufLen, uint32_t infoType) noexcept
{
    char anySn[] = "";
    return DataMgrDiskInfoGet(diskId, {.len = 0, .buf = anySn}, buf, bufLen, infoType);
}

} // namespace

extern "C" {

uint32_t DataMgrDiskInfoSet(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t infoType) noexcept
{
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "SET INFO START, INFO TYPE = %d", infoType);
    if (sn.len > DISK_SN_SIZE || sn.buf == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DataMgrDiskInfoSet Param error, snLen = %d, diskId =%u", sn.len,
                    diskId);
        return DATA_MGR_ERR_FAIL;
    }
    void *lock = DataMgrLockGet();
    if (lock == nullptr) {
        return RefuseSet(false, false);
    }
    const SpinGuard guard(lock, g_dataMgrLockToken);
    if (!g_dataMgrInit || !g_dataMgrEnable) {
        return RefuseSet(g_dataMgrInit, g_dataMgrEnable);
    }
    return SetLocked(diskId, sn, buf, infoType);
}

uint32_t DataMgrDiskInfoGet(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen, uint32_t infoType) noexcept
{
    if (sn.len > DISK_SN_SIZE || sn.buf == nullptr || diskId >= DISK_ID_MAX) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DataMgrDiskInfoGet Param error, snLen = %d, diskId =%u", sn.len,
                    diskId);
        return DATA_MGR_ERR_FAIL;
    }
    CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "GET INFO START, INFO TYPE = %d", infoType);
    void *lock = DataMgrLockGet();
    if (lock == nullptr) {
        return RefuseGet();
    }
    const SpinGuard guard(lock, g_dataMgrLockToken);
    if (!g_dataMgrInit) {
        return RefuseGet();
    }
    return GetLocked(diskId, sn, buf, bufLen, infoType);
}

uint32_t CheckParamValid(uint32_t diskId, DiskSnRef sn, uint32_t infoType) noexcept
{
    if (diskId >= DATA_MGR_SET_ID_LIMIT || g_diskDataMgr[diskId] == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule,
                    "DataMgrDiskInfoSet error,disk id = %d,info type= %dobj not init or vaild disk id", diskId,
                    infoType);
        return DATA_MGR_ERR_NO_OBJECT;
    }
    const DiskMgrObj *baseInfo = g_diskDataMgr[diskId]->baseInfo;
    if (baseInfo == nullptr || !SnEqual(baseInfo->sn, sn.buf)) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule,
                    "DataMgrDiskInfoSet,disk id = %d,info type= %d,sn=%ssn not valid or match diskId", diskId, infoType,
                    SnText(sn.buf).Get());
        return DATA_MGR_ERR_SN_MISMATCH;
    }
    return 0;
}

DataMgrObj *DataMgrCreateEmptyDataMgrObj(uint32_t diskId) noexcept
{
    InfraPtr<DataMgrObj> obj = InfraNew<DataMgrObj>();
    if (obj == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "MALLOC MEM FOR NEW DISK MGR OBJ FAIL");
        return nullptr;
    }
    obj->diskId = diskId;
    obj->drmInfo.diskLife = DISK_LIFE_UNKNOWN;
    return obj.release();
}

DataMgrObj **GetDataMgrObjs(void) noexcept
{
    return g_diskDataMgr;
}

uint32_t DiskBaseInfoSet(DiskSnRef sn, void *buf) noexcept
{
    return DataMgrDiskInfoSet(DISK_ID_BY_SN, sn, buf, DISK_INFO_BASE);
}

uint32_t DiskIoStatInfoSet(DiskSnRef sn, void *buf) noexcept
{
    return DataMgrDiskInfoSet(DISK_ID_BY_SN, sn, buf, DISK_INFO_IO);
}

uint32_t DiskHealthInfoSet(DiskSnRef sn, void *buf) noexcept
{
    return DataMgrDiskInfoSet(DISK_ID_BY_SN, sn, buf, DISK_INFO_HEALTH);
}

uint32_t DiskNodeInfoSet(DiskSnRef sn, void *buf) noexcept
{
    return DataMgrDiskInfoSet(DISK_ID_BY_SN, sn, buf, DISK_INFO_NODE);
}

uint32_t DiskDrmInfoSet(uint32_t diskId, DiskSnRef sn, void *buf) noexcept
{
    return DataMgrDiskInfoSet(diskId, sn, buf, DISK_INFO_DRM);
}

uint32_t DiskStrategySet(uint32_t diskId, DiskSnRef sn, uint32_t strategy) noexcept
{
    return DataMgrDiskInfoSet(diskId, sn, &strategy, DISK_INFO_STRATEGY);
}

uint32_t DiskStateSet(uint32_t diskId, DiskSnRef sn, uint32_t state) noexcept
{
    return DataMgrDiskInfoSet(diskId, sn, &state, DISK_INFO_STATE);
}

uint32_t DiskBaseInfoGet(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen) noexcept
{
    return DataMgrDiskInfoGet(diskId, sn, buf, bufLen, DISK_INFO_BASE);
}

uint32_t DiskIoStatInfoGet(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen) noexcept
{
    return DataMgrDiskInfoGet(diskId, sn, buf, bufLen, DISK_INFO_IO);
}

uint32_t DiskHealthInfoGet(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen) noexcept
{
    return DataMgrDiskInfoGet(diskId, sn, buf, bufLen, DISK_INFO_HEALTH);
}

uint32_t DiskNodeInfoGet(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen) noexcept
{
    return DataMgrDiskInfoGet(diskId, sn, buf, bufLen, DISK_INFO_NODE);
}

uint32_t DiskDrmInfoGet(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen) noexcept
{
    return DataMgrDiskInfoGet(diskId, sn, buf, bufLen, DISK_INFO_DRM);
}

uint32_t DiskStrategyGet(uint32_t diskId, DiskSnRef sn, uint32_t *buf) noexcept
{
    return DataMgrDiskInfoGet(diskId, sn, buf, sizeof(*buf), DISK_INFO_STRATEGY);
}

uint32_t DiskDiskStateInfoCliGet(uint32_t diskId, DiskSnRef sn, uint32_t *buf) noexcept
{
    return DataMgrDiskInfoGet(diskId, sn, buf, sizeof(*buf), DISK_INFO_STATE);
}

uint32_t DiskBaseInfoCliGet(uint32_t diskId, void *buf, uint32_t bufLen) noexcept
{
    return GetWithoutSn(diskId, buf, bufLen, DISK_INFO_BASE);
}

uint32_t DiskIoStatInfoCliGet(uint32_t diskId, void *buf, uint32_t bufLen) noexcept
{
    return GetWithoutSn(diskId, buf, bufLen, DISK_INFO_IO);
}

uint32_t DiskSmartInfoCliGet(uint32_t diskId, void *buf, uint32_t bufLen) noexcept
{
    return GetWithoutSn(diskId, buf, bufLen, DISK_INFO_HEALTH);
}

uint32_t DiskDrmInfoCliGet(uint32_t diskId, void *buf, uint32_t bufLen) noexcept
{
    return GetWithoutSn(diskId, buf, bufLen, DISK_INFO_DRM);
}

const char *DiskStrategyStrGet(uint32_t diskId) noexcept
{
    const char *text = nullptr;
    if (GetWithoutSn(diskId, &text, sizeof(text), DISK_INFO_STRATEGY_STR) != 0) {
        return nullptr;
    }
    return text;
}

uint32_t ListAllOnlineDisk(uint32_t *ids, DiskSnRef *sns, uint32_t capacity, uint32_t *count) noexcept
{
    void *lock = DataMgrLockGet();
    if (lock == nullptr) {
        return RefuseList();
    }
    const SpinGuard guard(lock, g_dataMgrLockToken);
    if (!g_dataMgrInit) {
        return RefuseList();
    }
    if (!g_dataMgrEnable) {
        return 0;
    }
    return GetAllSnAndDiskId(ids, sns, capacity, count);
}

} // extern "C"
