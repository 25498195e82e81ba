/**
 * @file feature_disks.h
 * @brief Disks for the tests of features: registry and live records with doubles for the agents, and the framework's
 *        memory, rows and registrations, all fresh for each test.
 */
#ifndef FEATURE_DISKS_H
#define FEATURE_DISKS_H

#include <string>

#include "ma/drm/framework/drm_data_mgr/drm_data_mgr_local.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "ma/drm/framework/drm_task_scheduler/drm_task_scheduler_main.h"
#include "support/fake_host.h"
#include "unit/data_mgr/data_mgr_master/data_mgr_fixture.h"

class FeatureDisksTest : public FakeHostTest {
protected:
    static constexpr const char *kFeatureModule = "DRM_FEATURE";

    FeatureDisksTest()
    {
        data_mgr_test::g_doubles = &doubles_;
        g_osCalls.getpwnam_r = data_mgr_test::FakePasswd;
        g_osCalls.getgrnam_r = data_mgr_test::FakeGroup;
        g_osCalls.chown = data_mgr_test::FakeChown;
        g_dataMgrSendRpc = data_mgr_test::FakeSend;
        EXPECT_EQ(DiskMgrInit(nullptr), 0u);
        EXPECT_EQ(DataMgrInit(), 0u);
        EXPECT_EQ(DrmMemMgrInit(), 0u);
        EXPECT_EQ(DrmLocalDataMgrInit(), 0u);
        ForgetRegistrations();
        ClearHostLog();
        ClearLogs();
    }

    ~FeatureDisksTest() override
    {
        EXPECT_EQ(HeapBlocks(), 0);
        EXPECT_EQ(PoolItems(), 0);
        (void)DrmLocalDataMgrFin();
        (void)DrmMemMgrFin();
        (void)DataMgrDestroy();
        for (DataMgrObj *&obj : g_diskDataMgr) {
            g_corvaneInfra.memFree(obj);
            obj = nullptr;
        }
        (void)DiskMgrDestroy();
        for (DiskMgrObj *&record : g_diskMgrObj) { // the upper half stays by design
            g_corvaneInfra.memFree(record);
            record = nullptr;
        }
        if (g_dataMgrLock != nullptr) {
            g_corvaneInfra.spinlockDestroy(g_dataMgrLock);
            g_dataMgrLock = nullptr;
        }
        g_dataMgrSendRpc = DataMgrMasterSendRpcMsg2Agent;
        data_mgr_test::g_doubles = nullptr;
    }

    /** No feature has an analyser, so that no trigger starts a worker. */
    static void ForgetRegistrations()
    {
        EXPECT_EQ(DrmTaskSchedulerInit(), 0u);
        (void)DrmTaskSchedulerFin();
    }

    /** A disk that is online, with the serial number "SN-" and its identifier. */
    static void AddDisk(uint32_t diskId, uint32_t diskType, const std::string &vendor = "VELMAR")
    {
        DiskMgrObj record = data_mgr_test::MakeRecord("SN-" + std::to_string(diskId), diskType, vendor);
        record.diskState = DISK_STATE_NORMAL;
        ASSERT_EQ(DiskInfoUpdate(diskId, &record), 0u);
        g_diskDataMgr[diskId] = DataMgrCreateEmptyDataMgrObj(diskId);
        ASSERT_NE(g_diskDataMgr[diskId], nullptr);
        g_diskDataMgr[diskId]->baseInfo = g_diskMgrObj[diskId];
    }
    /** The only, and so the newest, statistics of a disk. */
    static void SetStat(uint32_t diskId, const DiskIoStatInfo &stat)
    {
        g_diskDataMgr[diskId]->ioStat[0] = stat;
        g_diskDataMgr[diskId]->ioStatCount = 1;
    }
    static void ForgetStat(uint32_t diskId) { g_diskDataMgr[diskId]->ioStatCount = 0; }
    static void SetState(uint32_t diskId, uint32_t state) { g_diskMgrObj[diskId]->diskState = state; }
    static uint32_t StateOf(uint32_t diskId) { return g_diskMgrObj[diskId]->diskState; }

    static bool Failed(const std::string &text) { return Logged(CORVANE_LOG_ERROR, kFeatureModule, text); }
    static bool Warned(const std::string &text) { return Logged(CORVANE_LOG_WARN, kFeatureModule, text); }
    /** Lines of the adapter, whatever their text. */
    static size_t FeatureLines()
    {
        size_t count = 0;
        for (const LogLine &line : Logs()) {
            count += line.module == kFeatureModule ? 1 : 0;
        }
        return count;
    }

    data_mgr_test::Doubles doubles_;
};

#endif
