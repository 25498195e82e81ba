#include "ma/drm/framework_adapter_corvane/drm_event_center_adapter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "ma/drm/framework/drm_action_handle.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_disk_event.h"
#include "support/fake_host.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

std::vector<std::string> g_seen;

uint32_t Local(uint32_t diskId, uint32_t event)
{
    g_seen.push_back("local " + std::to_string(diskId) + " " + std::to_string(event));
    return DRM_ERR_FAIL;
}

uint32_t Master(uint32_t diskId, uint32_t event)
{
    g_seen.push_back("master " + std::to_string(diskId) + " " + std::to_string(event));
    return DRM_ERR_FAIL;
}

uint32_t Handler(void *, uint32_t, uint64_t *, uint64_t *)
{
    return 0;
}

DiskSnRef SerialNumber()
{
    static char text[] = "SN-1";
    return {4, text};
}

class AdapterTest : public FakeHostTest {
protected:
    AdapterTest()
    {
        g_seen.clear();
        DrmRegisterDiskEventHandler(31, Local, Master);
    }
    ~AdapterTest() override
    {
        DrmUnRegisterDiskEventHandler(31);
        (void)DataMgrSetDrmNotifyFunc(saved_);
    }

private:
    DrmDiskEventNotifyFunc saved_ = g_drmDiskEventNotifyFunc;
};

using DrmDiskEventAdapterInitTest = AdapterTest;
using DrmEventNotifyFucTest = AdapterTest;
using DrmFrameworkAdapterPhase1Test = AdapterTest;
using DrmFrameworkAdapterPhase2Test = AdapterTest;
using NodeAndDiskFactsTest = AdapterTest;

} // namespace

TEST_F(DrmDiskEventAdapterInitTest, InstallsTheCallbackAndRemovesIt)
{
    EXPECT_EQ(DrmDiskEventAdapterInit(), 0u);
    EXPECT_EQ(g_drmDiskEventNotifyFunc, DrmEventNotifyFuc);

    EXPECT_EQ(DrmDiskEventAdapterFin(), 0u);
    EXPECT_EQ(g_drmDiskEventNotifyFunc, nullptr);
}

TEST_F(DrmEventNotifyFucTest, TellsTheFeaturesAndAlwaysSucceeds)
{
    EXPECT_EQ(DrmEventNotifyFuc(5, SerialNumber(), 0), 0u);
    EXPECT_EQ(DrmEventNotifyFuc(127, SerialNumber(), 1), 0u);

    EXPECT_THAT(g_seen, ElementsAre("local 5 0", "master 5 0", "local 127 1", "master 127 1"));
}

TEST_F(DrmEventNotifyFucTest, TheFrameworksNumberOfADiskIsTheDisks)
{
    for (const uint32_t diskId : {0u, 127u, 0xFFFFFFFFu}) {
        EXPECT_EQ(TransDiskIdToLogicId(diskId), diskId);
    }

    DrmDiskEventCenterAdapter(9, SerialNumber(), 1);

    EXPECT_THAT(g_seen, ElementsAre("local 9 1", "master 9 1"));
}

TEST_F(DrmFrameworkAdapterPhase1Test, EmptiesTheActions)
{
    ASSERT_EQ(DrmActionHandleInit(), DRM_OK);
    ASSERT_EQ(DrmRegisterActionHandler(5, Handler), DRM_OK);

    EXPECT_EQ(DrmFrameworkAdapterExitPhase1(), 0u);
    EXPECT_EQ(g_drmActionHandler[0].opcode, 5u);
    EXPECT_EQ(DrmFrameworkAdapterInitPhase1(), 0u);
    EXPECT_EQ(g_drmActionHandler[0].opcode, 0u);
}

TEST_F(DrmFrameworkAdapterPhase2Test, ConnectsTheStoreAndDisconnectsIt)
{
    EXPECT_EQ(DrmFrameworkAdapterInitPhase2(), 0u);
    EXPECT_EQ(g_drmDiskEventNotifyFunc, DrmEventNotifyFuc);

    EXPECT_EQ(DrmFrameworkAdapterExitPhase2(), 0u);
    EXPECT_EQ(g_drmDiskEventNotifyFunc, nullptr);
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmFrameworkAdapterPhase2Test, AnEventOfTheStoreReachesTheFeatures)
{
    ASSERT_EQ(DrmFrameworkAdapterInitPhase2(), 0u);

    EXPECT_EQ(DataMgrNotifyDrmDiskEvent(7, SerialNumber(), 1), 0u);

    EXPECT_THAT(g_seen, ElementsAre("local 7 1", "master 7 1"));
}

TEST_F(NodeAndDiskFactsTest, AreFixed)
{
    uint64_t map = 0x1234;

    EXPECT_TRUE(DrmIsMasterNodeId());
    EXPECT_TRUE(DrmCheckLocalNodeNormal());
    EXPECT_EQ(DrmGetOnlineNodeMap(&map), 0u);
    EXPECT_EQ(map, 0x1234u) << "nothing is filled";
    EXPECT_EQ(DrmGetOnlineNodeMap(nullptr), 0u);
    for (const uint32_t diskId : {0u, 127u, 128u, 0xFFFFFFFFu}) {
        EXPECT_TRUE(DrmIsDataDisk(diskId));
    }
    EXPECT_EQ(DrmGetMinDiskId(), 0u);
    EXPECT_EQ(DrmGetMaxLogicDiskNum(), 128u);
    EXPECT_FALSE(bdmIsProcessRestart());
    DrmClsCheck2SendMasterEvt();
    EXPECT_EQ(DrmClsMgrInit(), 0u);
    EXPECT_EQ(DrmClsMgrFin(), 0u);
    EXPECT_EQ(DrmTaskSchClsEvtInit(), 0u);
    EXPECT_EQ(DrmTaskSchClsEvtFin(), 0u);
    EXPECT_THAT(g_seen, IsEmpty());
    EXPECT_THAT(HostLog(), IsEmpty());
}
