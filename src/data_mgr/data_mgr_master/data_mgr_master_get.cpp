#include "data_mgr/data_mgr_master/data_mgr_master_get.h"

#include <array>

#include "bounded/bounded.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "infrastructure/common/corvane_log.h"

namespace {

/** Text of each strategy, as operators and the data agent see it. */
constexpr std::array<const char *, DISK_STRATEGY_BUTT> kStrategyTexts{{
    "No action required",
    "Migrate data and replace the hard disk",
    "Replace the hard disk",
    nullptr,
}};

} // namespace

extern "C" {

uint32_t DataMgrBaseInfoGetInner(uint32_t diskId, DiskSnRef /*sn*/, void *buf, uint32_t bufLen) noexcept
{
    const DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr || obj->baseInfo == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (memcpy_s(buf, bufLen, obj->baseInfo, sizeof(*obj->baseInfo)) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "BaseInfo copy info to buf fail,disk id = %d,buf size = %u",
                    diskId, bufLen);
        return DATA_MGR_ERR_FAIL;
    }
    return 0;
}

uint32_t DataMgrIoInfoGetInner(uint32_t diskId, DiskSnRef /*sn*/, void *buf, uint32_t bufLen) noexcept
{
    const DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (obj->ioStatCount == 0) {
        CORVANE_LOG(CORVANE_LOG_WARN, kDataMgrModule, "Try get io info, but no io info to get");
        return DATA_MGR_ERR_FAIL;
    }
    const uint32_t newest = obj->ioStatCount < DATA_MGR_IO_STAT_NUM
                                ? obj->ioStatCount - 1
                                : (obj->ioStatHead + DATA_MGR_IO_STAT_NUM - 1) % DATA_MGR_IO_STAT_NUM;
    if (memcpy_s(buf, bufLen, &obj->ioStat[newest], sizeof(obj->ioStat[newest])) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "IoInfo copy info fail,disk id = %d,buf size = %u", diskId,
                    bufLen);
        return DATA_MGR_ERR_FAIL;
    }
    return 0;
}

uint32_t DataMgrSmartInfoGetInner(uint32_t diskId, DiskSnRef /*sn*/, void *buf, uint32_t bufLen) noexcept
{
    const DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (memcpy_s(buf, bufLen, &obj->healthInfo, sizeof(obj->healthInfo)) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "SmartInfo copy info to buf fail,disk id = %d,buf size = %u",
                    diskId, bufLen);
        return DATA_MGR_ERR_FAIL;
    }
    return 0;
}

uint32_t DataMgrDrmInfoGetInner(uint32_t diskId, DiskSnRef /*sn*/, void *buf, uint32_t bufLen) noexcept
{
    const DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (memcpy_s(buf, bufLen, &obj->drmInfo, sizeof(obj->drmInfo)) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DrmInfo copy info to buf fail,disk id = %d,buf size = %u",
                    diskId, bufLen);
        return DATA_MGR_ERR_FAIL;
    }
    return 0;
}

uint32_t DataMgrNodeInfoGetInner(uint32_t diskId, DiskSnRef /*sn*/, void *buf, uint32_t bufLen) noexcept
{
    const DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (memcpy_s(buf, bufLen, &obj->nodeInfo, sizeof(obj->nodeInfo)) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "NodeInfo copy info to buf fail,disk id = %d,buf size = %u",
                    diskId, bufLen);
        return DATA_MGR_ERR_FAIL;
    }
    return 0;
}

uint32_t DataMgrStrategyGetInner(uint32_t diskId, DiskSnRef /*sn*/, void *buf, uint32_t /*bufLen*/) noexcept
{
    const DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (buf == nullptr) {
        return DATA_MGR_ERR_FAIL;
    }
    *static_cast<uint32_t *>(buf) = obj->strategy;
    return 0;
}

uint32_t DataMgrDiskStateGetInner(uint32_t diskId, DiskSnRef /*sn*/, void *buf, uint32_t /*bufLen*/) noexcept
{
    const DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr || obj->baseInfo == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (buf == nullptr) {
        return DATA_MGR_ERR_FAIL;
    }
    *static_cast<uint32_t *>(buf) = obj->baseInfo->diskState;
    return 0;
}

uint32_t DataMgrStrategyStrGetInner(uint32_t diskId, DiskSnRef /*sn*/, void *buf, uint32_t /*bufLen*/) noexcept
{
    const DataMgrObj *obj = DataMgrObjAt(diskId);
    if (obj == nullptr) {
        return DATA_MGR_ERR_NO_OBJECT;
    }
    if (buf == nullptr) {
        return DATA_MGR_ERR_FAIL;
    }
    const char *text = obj->strategy < kStrategyTexts.size() ? kStrategyTexts[obj->strategy] : nullptr;
    std::memcpy(buf, &text, sizeof(text));
    return 0;
}

} // extern "C"
