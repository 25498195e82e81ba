#include "data_mgr/data_mgr_master/data_mgr_master_sync.h"

#include <array>
#include <atomic>
#include <cstring>

#include "bounded/bounded.h"
#include "data_mgr/data_mgr_master/data_mgr_master_get.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "data_mgr/data_mgr_master/data_mgr_master_rpc.h"
#include "infrastructure/common/corvane_log.h"

uint8_t *g_dmmSync2DmaSwitch = nullptr;
uint32_t g_masterToAgentSyncInterval = 300;

namespace {

/** What g_dmmSync2DmaSwitch points at. The pointer and the thread hold it; who lets go last frees it. */
struct SyncCell {
    uint8_t on;
    uint8_t holders;
};

/** Guards g_dmmSync2DmaSwitch; made by the first start. */
void *g_syncSwitchLock = nullptr;
LockToken g_syncToken;

/** The records of a sync. */
class RecordArray {
public:
    RecordArray() noexcept = default;
    RecordArray(const RecordArray &) = delete;
    RecordArray &operator=(const RecordArray &) = delete;
    ~RecordArray()
    {
        for (DiskMgrObj *record : records_) {
            g_corvaneInfra.memFree(record);
        }
    }
    [[nodiscard]] DiskMgrObj **Get() noexcept { return records_.data(); }
    [[nodiscard]] DiskMgrObj *operator[](uint32_t index) const noexcept { return records_[index]; }

private:
    std::array<DiskMgrObj *, DISK_ONLINE_MAX> records_{};
};

std::atomic_ref<uint8_t> Switch(uint8_t *byte) noexcept
{
    return std::atomic_ref<uint8_t>(*byte);
}

void *SyncLock() noexcept
{
    return MakeOnce(g_syncSwitchLock, g_corvaneInfra.spinlockCreate, g_corvaneInfra.spinlockDestroy);
}

/** Lets go of a cell. @param cell SyncCell or null. */
void *ReleaseCell(void *cell) noexcept
{
    if (cell == nullptr) {
        return nullptr;
    }
    if (std::atomic_ref<uint8_t>(static_cast<SyncCell *>(cell)->holders).fetch_sub(1) == 1) {
        g_corvaneInfra.memFree(cell);
    }
    return nullptr;
}

uint32_t NothingToCancel() noexcept
{
    CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "g_dmmSync2DmaSwitch is NULL!");
    return DATA_MGR_RPC_ERR_FAIL;
}

/** Makes the cell of a new loop the present one, held by the pointer and for the thread. @return null if there is a
 * loop. */
SyncCell *OpenCellLocked() noexcept CORVANE_REQUIRES(g_syncToken)
{
    if (g_dmmSync2DmaSwitch != nullptr && Switch(g_dmmSync2DmaSwitch).load() != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DmmSync2DmaScheduleTask thread already exist!");
        return nullptr;
    }
    InfraPtr<SyncCell> cell = InfraNew<SyncCell>();
    if (cell == nullptr) {
        return nullptr;
    }
    *cell = {.on = 1, .holders = 2};
    // The loop before may not have ended yet; it keeps its cell, which is off, and ends in its own time.
    ReleaseCell(g_dmmSync2DmaSwitch);
    g_dmmSync2DmaSwitch = &cell->on;
    return cell.release();
}

/** For a loop that never began. */
void CloseCellLocked(SyncCell *cell) noexcept CORVANE_REQUIRES(g_syncToken)
{
    if (g_dmmSync2DmaSwitch == &cell->on) {
        g_dmmSync2DmaSwitch = nullptr;
        ReleaseCell(cell);
    }
    ReleaseCell(cell);
}

uint32_t CancelLocked() noexcept CORVANE_REQUIRES(g_syncToken)
{
    if (g_dmmSync2DmaSwitch == nullptr) {
        return NothingToCancel();
    }
    Switch(g_dmmSync2DmaSwitch).store(0);
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "CancelDmmSync2DmaScheduleTask finish!");
    return 0;
}

/** Caller holds g_dataMgrLock. */
uint32_t CopyAllLocked(DiskMgrObj **records, const char **texts, uint32_t *count) noexcept
{
    for (uint32_t diskId = 0; diskId < DISK_ID_MAX && *count < DISK_ONLINE_MAX; diskId++) {
        const DataMgrObj *obj = DataMgrObjAt(diskId);
        if (obj == nullptr) {
            continue;
        }
        const int copied = memcpy_s(records[*count], sizeof(DiskMgrObj), obj->baseInfo, sizeof(DiskMgrObj));
        if (copied != 0) {
            CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "memcpy_s error, ret = %d", copied);
            return static_cast<uint32_t>(copied);
        }
        CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "diskBaseInfoArray[%d], sn = %s", *count,
                    SnText(records[*count]->sn).Get());
        const DiskSnRef sn{.len = DISK_SN_SIZE, .buf = records[*count]->sn};
        texts[*count] = nullptr;
        (void)DataMgrStrategyStrGetInner(diskId, sn, &texts[*count], sizeof(texts[*count])); // the disk is there
        CORVANE_LOG(CORVANE_LOG_DEBUG, kDataMgrModule, "diskStrategyStr[%d] = %s", *count, TextOrNull(texts[*count]));
        (*count)++;
    }
    return 0;
}

/** Sends one disk's messages; a failure of the first does not keep the second back. */
void SendDisk(uint32_t index, DiskSnRef sn, DiskMgrObj *record, const char *text) noexcept
{
    uint32_t ret = g_dataMgrSendRpc(DATA_MGR_RPC_DISK_INFO, sn, record);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "diskBaseInfoArray[%d] send Rpc to agent failed! ret:[%d]",
                    index, static_cast<int32_t>(ret));
    }
    ret = g_dataMgrSendRpc(DATA_MGR_RPC_HANDLE_STRATEGY, sn, const_cast<char *>(text));
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "diskStrategyStr[%d] send Rpc to agent failed! ret:[%d]", index,
                    static_cast<int32_t>(ret));
    }
}

} // namespace

uint32_t DiskBaseInfoArrayMalloc(DiskMgrObj **array, uint32_t count) noexcept
{
    for (uint32_t i = 0; i < count; i++) {
        array[i] = InfraNew<DiskMgrObj>().release();
        if (array[i] != nullptr) {
            continue;
        }
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "diskBaseInfoArray[%d] malloc failed!", i);
        while (i-- > 0) {
            g_corvaneInfra.memFree(array[i]);
            array[i] = nullptr;
        }
        return DATA_MGR_RPC_ERR_FAIL;
    }
    return 0;
}

uint32_t DataMgrAgentAllInfoGet(DiskMgrObj **records, const char **texts, uint32_t *count) noexcept
{
    if (records == nullptr || texts == nullptr || count == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Input param is NULL, please check!");
        return DATA_MGR_RPC_ERR_FAIL;
    }
    *count = 0;
    void *lock = DataMgrLockMake();
    if (lock == nullptr) {
        return DATA_MGR_RPC_ERR_FAIL;
    }
    const SpinGuard guard(lock, g_dataMgrLockToken);
    return CopyAllLocked(records, texts, count);
}

uint32_t DataMgrMasterSyncAll2Agent(void) noexcept
{
    RecordArray records;
    if (DiskBaseInfoArrayMalloc(records.Get(), DISK_ONLINE_MAX) != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DiskBaseInfoArrayMalloc failed!");
        return DATA_MGR_RPC_ERR_FAIL;
    }
    std::array<const char *, DISK_ONLINE_MAX> texts{};
    uint32_t count = 0;
    const uint32_t ret = DataMgrAgentAllInfoGet(records.Get(), texts.data(), &count);
    if (ret != 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "Get all data from DataMgrMaster failed. ret = %d",
                    static_cast<int32_t>(ret));
        return ret;
    }
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "DMM sync to DMA..., arrayLen = %d", count);

    const InfraPtr<char> snText(static_cast<char *>(g_corvaneInfra.memAlloc(DISK_SN_SIZE)));
    if (snText == nullptr) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "sn.buf malloc failed!");
        return DATA_MGR_RPC_ERR_FAIL;
    }
    std::memset(snText.get(), 0, DISK_SN_SIZE);
    const DiskSnRef sn{.len = DISK_SN_SIZE, .buf = snText.get()};
    for (uint32_t i = 0; i < count; i++) {
        // The terminator stands among the first 39 bytes.
        const int copied = strncpy_s(snText.get(), DISK_SN_SIZE - 1, records[i]->sn, DISK_SN_SIZE);
        if (copied != 0) {
            CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "strncpy_s failed! ret = %d", copied);
            return DATA_MGR_RPC_ERR_FAIL;
        }
        SendDisk(i, sn, records[i], texts[i]);
    }
    return 0;
}

void *DataMgrMasterSyncAll2AgentHandle(void *switchByte) noexcept
{
    auto *byte = static_cast<uint8_t *>(switchByte);
    for (uint8_t on = Switch(byte).load(); on != 0; on = Switch(byte).load()) {
        const uint32_t interval =
            std::atomic_ref<uint32_t>(g_masterToAgentSyncInterval).load(std::memory_order_relaxed);
        CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "DMM Sync All to DMA task need to wait %ds, dmmSync2DmaSwitch=%d",
                    interval, on);
        g_corvaneInfra.threadSleep({.value = interval, .timeUnit = CORVANE_TIME_SECOND});
        const uint32_t ret = DataMgrMasterSyncAll2Agent();
        CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "DMM Sync All to DMA task finish! ret = %d",
                    static_cast<int32_t>(ret));
    }
    return nullptr;
}

uint32_t StartDmmSync2DmaScheduleTask(void) noexcept
{
    void *lock = SyncLock();
    if (lock == nullptr) {
        return DATA_MGR_RPC_ERR_FAIL;
    }
    SyncCell *cell = nullptr;
    {
        const SpinGuard guard(lock, g_syncToken);
        cell = OpenCellLocked();
    }
    if (cell == nullptr) {
        return DATA_MGR_RPC_ERR_FAIL;
    }
    // Not under the lock: the loop may be cancelled before its creation has returned.
    const CorvaneThreadParam param = {.priority = 0, .joinable = 0, .entryArg = &cell->on, .callbackArg = &cell->on};
    if (g_corvaneInfra.threadCreate(DataMgrMasterSyncAll2AgentHandle, ReleaseCell, param) == 0) {
        CORVANE_LOG(CORVANE_LOG_ERROR, kDataMgrModule, "DmmSync2DmaScheduleTask thread create failed!");
        const SpinGuard guard(lock, g_syncToken);
        CloseCellLocked(cell);
        return DATA_MGR_RPC_ERR_FAIL;
    }
    CORVANE_LOG(CORVANE_LOG_INFO, kDataMgrModule, "DmmSync2DmaScheduleTask start!");
    return 0;
}

uint32_t CancelDmmSync2DmaScheduleTask(void) noexcept
{
    void *lock = SyncLock();
    if (lock == nullptr) {
        return NothingToCancel(); // nothing was started without it
    }
    const SpinGuard guard(lock, g_syncToken);
    return CancelLocked();
}
