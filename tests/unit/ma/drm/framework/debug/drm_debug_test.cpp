#include "ma/drm/framework/debug/drm_debug.h"

#include "ma/drm/framework/debug/drm_compact_debug.h"
#include "ma/drm/framework/debug/drm_framework_trace_point.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"
#include "support/fake_host.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class DrmFrameworkDebugInitTest : public FakeHostTest {};
class DrmShowMemAllocTest : public FakeHostTest {};
class DrmFrameworkTracePointInitTest : public FakeHostTest {};

TEST_F(DrmFrameworkDebugInitTest, AnswersUnderDrm)
{
    EXPECT_EQ(DrmFrameworkDebugInit(), DRM_OK);

    ASSERT_EQ(Commands().size(), 1u);
    EXPECT_STREQ(Commands()[0].name, "drm");
    EXPECT_STREQ(Commands()[0].description, "diagnose function of DRM");
    Commands()[0].help("drm", 0);
    EXPECT_EQ(TakePrinted(), "SYNOPSIS\ndrm showmemalloc: show allocated mem size\n");

    EXPECT_EQ(DrmFrameworkDebugFinComm(), DRM_OK);
    EXPECT_THAT(RemovedCommands(), ElementsAre("drm"));
    EXPECT_EQ(DrmDebugGetDiagCmdClusterByName("drm"), nullptr);
}

TEST_F(DrmFrameworkDebugInitTest, FailsIfTheHostRefuses)
{
    Knobs().regCmd = -1;

    EXPECT_EQ(DrmFrameworkDebugInit(), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(CORVANE_LOG_ERROR, "Drm debug registe failed."));
    EXPECT_EQ(DrmDebugGetDiagCmdClusterByName("drm"), nullptr);
}

TEST_F(DrmFrameworkDebugInitTest, TakesTheCommandBackIfTheClusterIsFull)
{
    DrmDiagCmd cmds[3][1] = {};
    for (DrmDiagCmd *group : {cmds[0], cmds[1], cmds[2]}) {
        EXPECT_EQ(DrmDebugRegDiagCmdGroup("drm", group, 1), DRM_OK);
    }

    EXPECT_EQ(DrmFrameworkDebugInit(), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(CORVANE_LOG_ERROR, "Drm debug registe common cmd failed."));
    EXPECT_THAT(RemovedCommands(), ElementsAre("drm"));
    EXPECT_THAT(Commands(), IsEmpty());
    for (DrmDiagCmd *group : {cmds[0], cmds[1], cmds[2]}) {
        DrmDebugUnRegDiagCmdGroup("drm", group);
    }
}

TEST_F(DrmShowMemAllocTest, PrintsThePools)
{
    EXPECT_EQ(DrmMemMgrInit(), DRM_OK);
    EXPECT_EQ(DrmFrameworkDebugInit(), DRM_OK);
    char cluster[] = "drm";
    char command[] = "showmemalloc";
    char *argv[] = {cluster, command, nullptr};

    EXPECT_EQ(Commands()[0].exec(2, argv), 0);

    const std::string printed = TakePrinted();
    EXPECT_THAT(printed, HasSubstr("cm_size_32"));
    EXPECT_THAT(printed, HasSubstr("cm_size_4064"));
    EXPECT_EQ(DrmFrameworkDebugFinComm(), DRM_OK);
    EXPECT_EQ(DrmMemMgrFin(), DRM_OK);
}

TEST_F(DrmFrameworkTracePointInitTest, SaysThatItIsThere)
{
    EXPECT_EQ(DrmFrameworkTracePointInit(), DRM_OK);
    EXPECT_EQ(DrmFrameworkTracePointFin(), DRM_OK);

    EXPECT_EQ(HostLog().size(), 1u);
    EXPECT_TRUE(HostLogged(CORVANE_LOG_INFO, "Drm trace point init succeed."));
}
