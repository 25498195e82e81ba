#include "ma/drm/framework/drm_module_loader.h"

#include <cstddef>
#include <cstring>

#include "ma/drm/framework/debug/drm_compact_debug.h"
#include "ma/drm/framework/drm_base.h"
#include "ma/drm/framework/drm_timer.h"
#include "platform/norax.h"
#include "platform/normm.h"
#include "support/fake_host.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

/** What ran, in order: "+1" started, "-1" stopped. */
std::vector<std::string> g_steps;
int g_failing = -1; /**< the module that fails to start */
int g_stuck = -1;   /**< the module that fails to stop */

template <int Number>
uint32_t Start()
{
    g_steps.push_back("+" + std::to_string(Number));
    return Number == g_failing ? 1 : 0;
}

template <int Number>
uint32_t Stop()
{
    g_steps.push_back("-" + std::to_string(Number));
    return Number == g_stuck ? 1 : 0;
}

DrmSubModule g_table[] = {{"zero", Start<0>, Stop<0>}, {"one", Start<1>, nullptr}, {"two", Start<2>, Stop<2>}};

} // namespace

class ModuleLoaderTest : public FakeHostTest {
protected:
    ModuleLoaderTest()
    {
        g_steps.clear();
        g_failing = -1;
        g_stuck = -1;
    }
    /** The names of the framework's modules that said they are up, in order. */
    static std::vector<std::string> Started()
    {
        std::vector<std::string> names;
        const std::string start = "Init drm (";
        for (const HostLine &line : HostLog()) {
            if (line.level == CORVANE_LOG_DEBUG && line.text.rfind(start, 0) == 0) {
                names.push_back(line.text.substr(start.size(), line.text.find(')') - start.size()));
            }
        }
        return names;
    }
};
class DrmloadSubModuleTest : public ModuleLoaderTest {};
class DrmUnloadSubModuleTest : public ModuleLoaderTest {};
class DrmFrameworkInitTest : public ModuleLoaderTest {};
class DrmFrameworkExitTest : public ModuleLoaderTest {};

TEST_F(DrmloadSubModuleTest, StartsInOrder)
{
    EXPECT_EQ(DrmloadSubModule(g_table, 3), DRM_OK);

    EXPECT_THAT(g_steps, ElementsAre("+0", "+1", "+2"));
    EXPECT_EQ(HostLogCount(CORVANE_LOG_DEBUG, "Init drm (zero) success."), 1u);
    EXPECT_EQ(HostLogCount(CORVANE_LOG_DEBUG, "Init drm (two) success."), 1u);
    EXPECT_EQ(HostLog().size(), 3u);
}

TEST_F(DrmloadSubModuleTest, AFailureStopsThoseBeforeIt)
{
    g_failing = 2;

    EXPECT_EQ(DrmloadSubModule(g_table, 3), DRM_ERR_FAIL);

    EXPECT_THAT(g_steps, ElementsAre("+0", "+1", "+2", "-0"));
    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "LoadSubModule two failed."), 1u);
    EXPECT_FALSE(HostLogged(CORVANE_LOG_DEBUG, "Init drm (two) success."));
}

TEST_F(DrmloadSubModuleTest, AFailureOfTheFirstStopsNothing)
{
    g_failing = 0;

    EXPECT_EQ(DrmloadSubModule(g_table, 3), DRM_ERR_FAIL);

    EXPECT_THAT(g_steps, ElementsAre("+0"));
}

TEST_F(DrmloadSubModuleTest, ANameMayFillItsField)
{
    DrmSubModule module = {{}, Start<0>, Stop<0>};
    std::memset(module.name, 'm', sizeof(module.name));

    EXPECT_EQ(DrmloadSubModule(&module, 1), DRM_OK);

    EXPECT_TRUE(HostLogged(CORVANE_LOG_DEBUG, "Init drm (" + std::string(128, 'm') + ") success."));
}

TEST_F(DrmUnloadSubModuleTest, StopsBackwardsAndGoesOnAfterAFailure)
{
    g_stuck = 2;

    DrmUnloadSubModule(g_table, 2);

    EXPECT_THAT(g_steps, ElementsAre("-2", "-0"));
    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "UnloadSubModule two failed."), 1u);
    EXPECT_EQ(HostLog().size(), 1u);
}

TEST_F(DrmUnloadSubModuleTest, BeforeTheFirstThereIsNothingToStop)
{
    DrmUnloadSubModule(g_table, -1);

    EXPECT_THAT(g_steps, IsEmpty());
}

TEST_F(DrmFrameworkInitTest, StartsTheFourModules)
{
    EXPECT_EQ(DrmFrameworkInit(), DRM_OK);

    EXPECT_THAT(Started(), ElementsAre("DrmMemMgr", "DrmTaskScheduler", "DrmDebug", "DrmTracepoint"));
    EXPECT_EQ(PoolsMade().size(), 8u);
    EXPECT_EQ(Timers().size(), 1u);
    EXPECT_EQ(Commands().size(), 1u);
    EXPECT_EQ(DrmFrameworkExit(), DRM_OK);
}

TEST_F(DrmFrameworkInitTest, WithoutTheDebugCommandNothingStays)
{
    Knobs().regCmd = -1;

    EXPECT_EQ(DrmFrameworkInit(), DRM_ERR_FAIL);

    EXPECT_THAT(Started(), ElementsAre("DrmMemMgr", "DrmTaskScheduler"));
    EXPECT_TRUE(HostLogged(CORVANE_LOG_ERROR, "LoadSubModule DrmDebug failed."));
    EXPECT_FALSE(HostLogged(CORVANE_LOG_INFO, "Drm trace point init succeed."));
    EXPECT_THAT(Timers(), IsEmpty());
    EXPECT_EQ(HeapBlocks(), 0);
    EXPECT_EQ(PoolsDeleted().size(), 8u);
}

TEST_F(DrmFrameworkInitTest, TheSchedulerStopsBeforeThePools)
{
    Knobs().regCmd = -1;
    Knobs().timerDestroy = 5; // so that the scheduler's end is heard

    EXPECT_EQ(DrmFrameworkInit(), DRM_ERR_FAIL);

    std::vector<std::string> ends;
    for (const HostLine &line : HostLog()) {
        if (line.text == "Drm destroy timer failed, ret: 5." || line.text == "DrmMemMgrFin finish,ret=0") {
            ends.push_back(line.text);
        }
    }
    EXPECT_THAT(ends, ElementsAre("Drm destroy timer failed, ret: 5.", "DrmMemMgrFin finish,ret=0"));
    // The record stays out; end it as the host would have.
    Knobs().timerDestroy = 0;
    ASSERT_EQ(Timers().size(), 1u);
    void *timer = Timers()[0].handle;
    auto *record = reinterpret_cast<DrmTimer *>(static_cast<char *>(timer) - offsetof(DrmTimer, timer));
    EXPECT_EQ(norax_timer_destroy(static_cast<NoraxTimer *>(timer)), 0);
    normm_free(record, DRM_HOST_MODULE, "test");
}

TEST_F(DrmFrameworkInitTest, WithoutPoolsNothingStarts)
{
    Knobs().poolFailAfter = 3;

    EXPECT_EQ(DrmFrameworkInit(), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(CORVANE_LOG_ERROR, "LoadSubModule DrmMemMgr failed."));
    EXPECT_THAT(Timers(), IsEmpty());
}

TEST_F(DrmFrameworkInitTest, WithoutATimerThePoolsGo)
{
    Knobs().timerSetRaw = 1;

    EXPECT_EQ(DrmFrameworkInit(), DRM_ERR_FAIL);

    EXPECT_TRUE(HostLogged(CORVANE_LOG_ERROR, "LoadSubModule DrmTaskScheduler failed."));
    EXPECT_EQ(PoolsDeleted().size(), 8u);
    EXPECT_THAT(Commands(), IsEmpty());
}

TEST_F(DrmFrameworkExitTest, StopsEverything)
{
    EXPECT_EQ(DrmFrameworkInit(), DRM_OK);

    EXPECT_EQ(DrmFrameworkExit(), DRM_OK);

    EXPECT_THAT(RemovedCommands(), ElementsAre("drm"));
    EXPECT_EQ(DrmDebugGetDiagCmdClusterByName("drm"), nullptr);
    EXPECT_THAT(Timers(), IsEmpty());
    EXPECT_EQ(HeapBlocks(), 0);
    EXPECT_EQ(PoolsDeleted().size(), 8u);
    EXPECT_EQ(DrmFrameworkInit(), DRM_OK) << "it can start again";
    EXPECT_EQ(DrmFrameworkExit(), DRM_OK);
}

TEST_F(DrmFrameworkExitTest, TellsOfAModuleThatDoesNotStop)
{
    EXPECT_EQ(DrmFrameworkInit(), DRM_OK);
    Knobs().deleteResult = 1;

    EXPECT_EQ(DrmFrameworkExit(), DRM_OK);

    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "UnloadSubModule DrmMemMgr failed."), 1u);
}
