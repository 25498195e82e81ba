#include "data_mgr/data_mgr_master/data_mgr_master_set.h"

#include <bounded/bounded.h>

#include "data_mgr/data_mgr_master/data_mgr_master_get.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "data_mgr/data_mgr_master/data_mgr_master_rpc.h"
#include "disk_mgr/disk_mgr.h"
#include "infrastructure/common/corvane_log.h"

uint32_t (*g_dataMgrSendRpc)(uint32_t msgType, DiskSnRef sn, void *data) = DataMgrMasterSendRpcMsg2Agent;

namespace {

/** An object whose disk was set to offline: somebody may still look at it, so it is kept and stays reachable. */
struct RetiredObj {
    RetiredObj *next;
    DataMgrObj *obj;
};

RetiredObj *g_retiredObjs = nullptr;

/** Take an object out of the table without freeing it. Caller holds g_dataMgrLock. */
void RetireObj(uint32_t diskId) noexcept
{
    DataMgrObj *obj = g_diskDataMgr[diskId];
    g_diskDataMgr[diskId] = nullptr;
    InfraPtr<RetiredObj> node = InfraNew<RetiredObj>();
    if (node != nullptr) {
        node->next = g_retiredObjs;
        node->obj = obj;
        g_retiredObjs = node.release();
    }
}

/** Tell the data agent and the features that a disk has gone. @return the result of the announcement */
uint32_t AnnounceOffline(uint32_t diskId, DiskSnRef sn) noexcept
{
    const uint32_t sendRet = g_dataMgrSendRpc(DATA_MGR_RPC_POWER_OFF, sn, nullptr);
    if (sendRet != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DiskPoweroff info send Rpc to agent failed! ret:[%d]", sendRet);
    }
    const uint32_t notifyRet = DataMgrNotifyDrmDiskEvent(diskId, sn, DISK_EVENT_OUT);
    if (notifyRet != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DiskBaseInfoSet notify drm delete disk fail");
    }
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "Offline disk (sn = %s, disk id = %u) success", SnText(sn.buf).Get(),
                diskId);
    return notifyRet;
}

/** The strategy that goes with a state; DISK_STRATEGY_BUTT leaves it as it was. */
uint32_t StrategyOfState(uint32_t state) noexcept
{
    switch (state) {
    case DISK_STATE_PREFAIL:
    case DISK_STATE_SLOW:
        return DISK_STRATEGY_MIGRATE_REPLACE;
    case DISK_STATE_FAULT:
        return DISK_STRATEGY_REPLACE;
    default:
        return DISK_STRATEGY_BUTT;
    }
}

/** A disk set to offline. @return the result of the announcement */
uint32_t SetOffline(uint32_t diskId, DataMgrObj *obj) noexcept
{
    // The registry frees the stored record on success, and with a copy a failed save leaves the stored state alone.
    DiskMgrObj leaving = *obj->baseInfo;
    SnText snCopy(leaving.sn);
    leaving.diskState = DISK_STATE_OFFLINE;
    (void)DiskInfoUpdate(diskId, &leaving); // told and announced whatever the file says
    obj->baseInfo = nullptr;
    RetireObj(diskId);
    return AnnounceOffline(diskId, {.len = DISK_SN_SIZE, .buf = snCopy.Data()});
}

} // namespace

extern "C" {

uint32_t DataMgrBaseInfoSetInner(uint32_t diskId, DiskSnRef sn, void *value) noexcept
{
    DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr || obj->baseInfo == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (value == nullptr) {
        return DATA_MGR_ERR_FAIL;
    }
    auto *record = static_cast<DiskMgrObj *>(value);
    record->diskId = diskId;
    if (record->diskState == DISK_STATE_KEEP) {
        record->diskState = obj->baseInfo->diskState;
    }
    if (std::memcmp(record, obj->baseInfo, sizeof(DiskMgrObj)) == 0) {
        return 0;
    }
    // The serial number and the record may lie in the stored record, which is gone once the disk is offline.
    SnText snCopy(sn.buf);
    const bool offline = record->diskState == DISK_STATE_OFFLINE;
    if (DiskInfoUpdate(diskId, record) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule,
                    "DiskBaseInfoSet update disk id = %d error: update to disk mgr fail", diskId);
        return DATA_MGR_ERR_FAIL;
    }
    if (!offline) {
        SendMsgToDataMgrAgent(DATA_MGR_RPC_DISK_INFO, sn, record);
        return 0;
    }
    DataMgrObjFree(diskId);
    (void)AnnounceOffline(diskId, {.len = DISK_SN_SIZE, .buf = snCopy.Data()});
    return 0;
}

uint32_t DataMgrSmartInfoSetInner(uint32_t diskId, DiskSnRef /*sn*/, void *value) noexcept
{
    DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    DiskHealthInfo &stored = obj->healthInfo;
    const int ret = value == nullptr ? BOUNDED_EINVAL : memcpy_s(&stored, sizeof(stored), value, sizeof(stored));
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DiskHealthInfoSet copy info error");
    }
    return static_cast<uint32_t>(ret);
}

uint32_t DataMgrDrmInfoSetInner(uint32_t diskId, DiskSnRef /*sn*/, void *value) noexcept
{
    DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    DiskDrmInfo &stored = obj->drmInfo;
    const int ret = value == nullptr ? BOUNDED_EINVAL : memcpy_s(&stored, sizeof(stored), value, sizeof(stored));
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DataMgrDrmInfoSetInner copy info error");
    }
    return static_cast<uint32_t>(ret);
}

uint32_t DataMgrNodeInfoSetInner(uint32_t diskId, DiskSnRef /*sn*/, void *value) noexcept
{
    DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    DiskNodeInfo &stored = obj->nodeInfo;
    const int ret = value == nullptr ? BOUNDED_EINVAL : memcpy_s(&stored, sizeof(stored), value, sizeof(stored));
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DataMgrDrmInfoSetInner copy info error");
    }
    return static_cast<uint32_t>(ret);
}

uint32_t DataMgrStrategySetInner(uint32_t diskId, DiskSnRef sn, void *value) noexcept
{
    DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (value == nullptr || *static_cast<const uint32_t *>(value) >= DISK_STRATEGY_BUTT) {
        return DATA_MGR_ERR_FAIL;
    }
    obj->strategy = *static_cast<const uint32_t *>(value);
    char *text = nullptr;
    (void)DataMgrStrategyStrGetInner(diskId, sn, &text, sizeof(text));
    const uint32_t sendRet = g_dataMgrSendRpc(DATA_MGR_RPC_HANDLE_STRATEGY, sn, text);
    if (sendRet != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "HandleStrategyStr info send Rpc to agent failed! ret:[%d]",
                    sendRet);
    }
    return 0;
}

uint32_t DataMgrDiskStateSetInner(uint32_t diskId, DiskSnRef sn, void *value) noexcept
{
    DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr || obj->baseInfo == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (value == nullptr || *static_cast<const uint32_t *>(value) >= DISK_STATE_KEEP) {
        return DATA_MGR_ERR_FAIL;
    }
    uint32_t state = *static_cast<const uint32_t *>(value);
    if (state == DISK_STATE_OFFLINE) {
        return SetOffline(diskId, obj);
    }
    obj->baseInfo->diskState = state;
    (void)DiskInfoUpdate(diskId, obj->baseInfo); // a failed save is logged there; memory has the new state all the same
    const uint32_t ret = g_dataMgrSendRpc(DATA_MGR_RPC_DISK_STATE, sn, &state);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DiskState info send Rpc to agent failed! ret:[%d]", ret);
    }
    uint32_t strategy = StrategyOfState(state);
    if (strategy != DISK_STRATEGY_BUTT) {
        (void)DataMgrStrategySetInner(diskId, sn, &strategy);
    }
    return ret;
}

} // extern "C"
