#include "library_pulse.h"

#include <utility>

#include "data_collect/data_collect_master/dcm_schedule.h"
#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_rpc.h"
#include "disk_mgr/disk_mgr.h"
#include "infrastructure/corvane_infra.h"

namespace {

enum class Lock { NONE, HELD, FREE };

/** @param handle  Made by the library when it first needs it. */
Lock Look(void *const &handle) noexcept
{
    void *lock = __atomic_load_n(&handle, __ATOMIC_ACQUIRE);
    if (lock == nullptr) {
        return Lock::NONE;
    }
    if (!g_corvaneInfra.spinlockTryLock(lock)) {
        return Lock::HELD;
    }
    g_corvaneInfra.spinlockUnlock(lock);
    return Lock::FREE;
}

} // namespace

bool LibraryPulse::Exchange::HasEnded(void *const &lock) noexcept
{
    const Lock now = Look(lock);
    return std::exchange(held_, now == Lock::HELD) && now == Lock::FREE;
}

LibraryPulse::LibraryPulse() noexcept
{
    (void)DisksMoved();
}

bool LibraryPulse::DisksMoved() noexcept
{
    const uint64_t disks = g_corvaneInfra.atomicGet(g_diskNumAtomic);
    return std::exchange(disks_, disks) != disks;
}

bool LibraryPulse::Beats() noexcept
{
    const bool moved = DisksMoved();
    if (Look(g_dataMgrLock) != Lock::HELD) {
        message_.Forget(); // what was seen then says nothing of a hang that begins now
        fetch_.Forget();
        return true;
    }
    const bool told = message_.HasEnded(g_dataMgrRpcLock);
    const bool fetched = fetch_.HasEnded(g_uniqueAgentListSpinLock);
    return moved || told || fetched;
}
