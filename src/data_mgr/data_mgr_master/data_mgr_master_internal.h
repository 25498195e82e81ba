/**
 * @file data_mgr_master_internal.h
 * @brief What the sources of the store and of its messages share and nobody else sees.
 *
 * Owns the store's two flags and the seams towards the agents. The flags are written with g_dataMgrLock held and read
 * with or without it. The seams are set by tests only, before other threads use the store. Takes no lock; which
 * functions need g_dataMgrLock held stands at each.
 */
#ifndef DATA_MGR_MASTER_INTERNAL_H
#define DATA_MGR_MASTER_INTERNAL_H

#include <atomic>
#include <cstring>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "infrastructure/common/bounded_text.h"
#include "infrastructure/common/corvane_raii.h"

/** Module tag of the store's log lines. */
inline constexpr const char *kDataMgrModule = "DATA_MGR_MASTER";

/** Names g_dataMgrLock to clang's checker. */
extern LockToken g_dataMgrLockToken;
/** Set by DataMgrInit(), cleared by DataMgrDestroy(). */
extern std::atomic<bool> g_dataMgrInit;
/** Whether sets are allowed. */
extern std::atomic<bool> g_dataMgrEnable;

/** How an unknown disk's base record is got: FetchDiskBaseInfo() outside tests. */
extern uint32_t (*g_dataMgrFetchBaseInfo)(DiskSnRef sn, DiskMgrObj *record);
/** How the data agent is told: DataMgrMasterSendRpcMsg2Agent() outside tests. */
extern uint32_t (*g_dataMgrSendRpc)(uint32_t msgType, DiskSnRef sn, void *data);

/** @return g_dataMgrLock, null as long as nobody has needed it. */
void *DataMgrLockGet() noexcept;
/** @return g_dataMgrLock, made if it is missing; null without memory. */
void *DataMgrLockMake() noexcept;
/** @return The object of @p diskId, null if there is none. Caller holds g_dataMgrLock. */
DataMgrObj *DataMgrObjAt(uint32_t diskId) noexcept;
/** @brief Free an object of g_diskDataMgr and clear its entry. Caller holds g_dataMgrLock. */
void DataMgrObjFree(uint32_t diskId) noexcept;

/** Makes a handle of the adapter table once, however many threads want it first. */
template <typename Create, typename Destroy>
[[nodiscard]] void *MakeOnce(void *&handle, Create create, Destroy destroy) noexcept
{
    std::atomic_ref<void *> shared(handle);
    void *existing = shared.load(std::memory_order_acquire);
    if (existing != nullptr) {
        return existing;
    }
    void *mine = create();
    if (mine == nullptr || shared.compare_exchange_strong(existing, mine)) {
        return mine;
    }
    destroy(mine);
    return existing;
}

/** A serial number with a terminator, whatever the record or the caller held. */
using SnText = BoundedText<DISK_SN_SIZE>;

/** Whether two serial numbers are the same disk's. */
inline bool SnEqual(const char *left, const char *right) noexcept
{
    return left != nullptr && right != nullptr && std::strncmp(left, right, DISK_SN_SIZE) == 0;
}

#endif
