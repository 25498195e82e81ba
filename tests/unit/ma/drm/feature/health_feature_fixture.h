/**
 * @file health_feature_fixture.h
 * @brief The analysis framework on a fake host, with live records of disks that a test sets up by hand.
 */
#ifndef HEALTH_FEATURE_FIXTURE_H
#define HEALTH_FEATURE_FIXTURE_H

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <map>
#include <semaphore.h>
#include <string>
#include <utility>
#include <vector>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_internal.h"
#include "ma/drm/framework/drm_action_handle.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_data_mgr/drm_data_mgr_local.h"
#include "ma/drm/framework/drm_disk_event.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_main.h"
#include "ma/drm/framework/utils/drm_list.h"
#include "support/fake_host.h"

namespace health_feature_test {

inline constexpr uint32_t kError = 3;
inline constexpr uint32_t kWarn = 4;
inline constexpr uint32_t kInfo = 6;
inline constexpr uint32_t kDebug = 7;

/** A state that a feature has set. */
using StateSet = std::pair<uint32_t, uint32_t>; // disk, state

/** What the doubles of the live records' tables look at; one test runs at a time. */
struct Records {
    std::array<DiskMgrObj, DISK_ID_MAX> base{};
    std::vector<StateSet> states;
    std::map<uint32_t, uint32_t> baseRet;   /**< by disk: what the read of its base record gives */
    std::map<uint32_t, uint32_t> healthRet; /**< the same of its health record */
    std::map<uint32_t, uint32_t> drmRet;    /**< by disk: what a store of a prediction gives */
    std::vector<uint32_t> healthReads;      /**< disks in the order of the reads */
    std::vector<std::pair<uint32_t, DiskDrmInfo>> predictions;
    DataMgrInfoGetFunc realBase = nullptr;
    DataMgrInfoGetFunc realHealth = nullptr;
    DataMgrInfoSetFunc realDrm = nullptr;
};
inline Records *g_records = nullptr;

inline uint32_t AnswerOf(const std::map<uint32_t, uint32_t> &answers, uint32_t diskId)
{
    const auto found = answers.find(diskId);
    return found == answers.end() ? 0 : found->second;
}

inline uint32_t GetBase(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen)
{
    const uint32_t ret = AnswerOf(g_records->baseRet, diskId);
    return ret != 0 ? ret : g_records->realBase(diskId, sn, buf, bufLen);
}

inline uint32_t GetHealth(uint32_t diskId, DiskSnRef sn, void *buf, uint32_t bufLen)
{
    g_records->healthReads.push_back(diskId);
    const uint32_t ret = AnswerOf(g_records->healthRet, diskId);
    return ret != 0 ? ret : g_records->realHealth(diskId, sn, buf, bufLen);
}

inline uint32_t SetState(uint32_t diskId, DiskSnRef, void *value)
{
    const uint32_t state = *static_cast<uint32_t *>(value);
    g_records->states.emplace_back(diskId, state);
    g_records->base[diskId].diskState = state;
    return 0;
}

inline uint32_t SetDrm(uint32_t diskId, DiskSnRef sn, void *value)
{
    const uint32_t ret = AnswerOf(g_records->drmRet, diskId);
    if (ret != 0) {
        return ret;
    }
    g_records->predictions.emplace_back(diskId, *static_cast<DiskDrmInfo *>(value));
    return g_records->realDrm(diskId, sn, value);
}

/** Threads started through the seam; each is told of when it has done its work. */
struct Workers {
    sem_t done;
    uint32_t started = 0;
    uint32_t awaited = 0;
};
inline Workers g_workers;

struct ThreadStart {
    void *(*entry)(void *);
    void *arg;
};

inline void *RunAndTell(void *start)
{
    const ThreadStart todo = *static_cast<ThreadStart *>(start);
    delete static_cast<ThreadStart *>(start);
    void *result = todo.entry(todo.arg);
    (void)sem_post(&g_workers.done);
    return result;
}

inline int CountingCreate(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *), void *arg)
{
    auto *start = new ThreadStart{entry, arg};
    const int result = pthread_create(thread, attributes, RunAndTell, start);
    if (result == 0) {
        g_workers.started++;
    } else {
        delete start;
    }
    return result;
}

inline int FailingCreate(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *)
{
    return EAGAIN;
}

/** Pools, private data, actions and scheduler are up; no feature is. */
class HealthFeatureTest : public FakeHostTest {
protected:
    HealthFeatureTest()
    {
        g_records = &records_;
        g_workers.started = 0;
        g_workers.awaited = 0;
        (void)sem_init(&g_workers.done, 0, 0);
        g_osCalls.threadCreate = CountingCreate;
        records_.realBase = std::exchange(g_diskInfoGetFunc[DISK_INFO_BASE], GetBase);
        records_.realHealth = std::exchange(g_diskInfoGetFunc[DISK_INFO_HEALTH], GetHealth);
        records_.realDrm = std::exchange(g_diskInfoSetFunc[DISK_INFO_DRM], SetDrm);
        realState_ = std::exchange(g_diskInfoSetFunc[DISK_INFO_STATE], SetState);
        EXPECT_NE(DataMgrLockMake(), nullptr);
        g_dataMgrInit = true;
        g_dataMgrEnable = true;
        EXPECT_EQ(DrmMemMgrInit(), DRM_OK);
        EXPECT_EQ(DrmLocalDataMgrInit(), DRM_OK);
        EXPECT_EQ(DrmActionHandleInit(), DRM_OK);
        EXPECT_EQ(DrmTaskSchedulerInit(), DRM_OK);
        ClearHostLog();
        frameworkBlocks_ = HeapBlocks();
    }

    ~HealthFeatureTest() override
    {
        EXPECT_TRUE(WaitForWorkers());
        (void)DrmTaskSchedulerFin();
        (void)DrmLocalDataMgrFin();
        (void)DrmMemMgrFin();
        for (uint32_t diskId = 0; diskId < DISK_ID_MAX; diskId++) {
            DataMgrObjFree(diskId);
        }
        g_dataMgrInit = false;
        g_dataMgrEnable = false;
        g_diskInfoGetFunc[DISK_INFO_BASE] = records_.realBase;
        g_diskInfoGetFunc[DISK_INFO_HEALTH] = records_.realHealth;
        g_diskInfoSetFunc[DISK_INFO_DRM] = records_.realDrm;
        g_diskInfoSetFunc[DISK_INFO_STATE] = realState_;
        (void)sem_destroy(&g_workers.done);
        g_records = nullptr;
    }

    /** A disk comes online; the features are not told. */
    void AddDisk(uint32_t diskId, uint32_t diskType, const std::string &vendor = "MAKER")
    {
        DiskMgrObj &base = records_.base[diskId];
        base.diskId = diskId;
        base.diskType = diskType;
        (void)std::snprintf(base.sn, sizeof(base.sn), "SN-%u", diskId);
        (void)std::snprintf(base.vendor, sizeof(base.vendor), "%s", vendor.c_str());
        DataMgrObj *obj = DataMgrCreateEmptyDataMgrObj(diskId);
        ASSERT_NE(obj, nullptr);
        obj->baseInfo = &base;
        g_diskDataMgr[diskId] = obj;
    }
    static DiskHealthInfo &Health(uint32_t diskId) { return g_diskDataMgr[diskId]->healthInfo; }
    uint32_t &State(uint32_t diskId) { return records_.base[diskId].diskState; }

    /** @return false if a started worker has not ended within a time that no healthy machine needs. */
    static bool WaitForWorkers()
    {
        struct timespec until {};
        (void)clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += 60;
        while (g_workers.awaited < g_workers.started) {
            const int status = sem_timedwait(&g_workers.done, &until);
            if (status != 0 && errno != EINTR) {
                return false;
            }
            g_workers.awaited += status == 0 ? 1 : 0;
        }
        return true;
    }
    static uint32_t WorkersStarted() { return g_workers.started; }
    static void Ticks(uint32_t count)
    {
        for (uint32_t i = 0; i < count; i++) {
            DrmTaskSchedulerTimerHandler(nullptr);
        }
    }

    /** Disks of a list, in its order. */
    template <typename Element>
    static std::vector<uint32_t> DisksIn(DrmListHead &list)
    {
        std::vector<uint32_t> disks;
        for (const Element *element : DrmListView<Element>(&list)) {
            disks.push_back(element->diskId);
        }
        return disks;
    }

    /** Blocks of the host's heap that features hold; queued work is not among them. */
    int64_t FeatureBlocks() const { return HeapBlocks() - frameworkBlocks_; }

    Records records_;

private:
    int64_t frameworkBlocks_ = 0;
    DataMgrInfoSetFunc realState_ = nullptr;
};

} // namespace health_feature_test

#endif
