#include "init/corvane_bringup.h"

#include <cstring>

#include "config/corvane_config.h"
#include "data_collect/data_collect_master/dcm_transport.h"
#include "data_collect/data_collect_master/dcm_types.h"
#include "infrastructure/common/corvane_log.h"
#include "infrastructure/common/corvane_raii.h"
#include "ma/drm/feature/disk_prefail_routine/drm_disk_prefail_routine.h"
#include "ma/drm/feature/slow_disk_detecter/slow_disk_detecter.h"
#include "support/corvane_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

/** What the framework and the features were asked, in order. */
std::vector<std::string> g_calls;
std::string g_failing; ///< call that fails
uint32_t g_passes = 0; ///< how often that call still works

uint32_t Called(const std::string &call, const std::string &values = "")
{
    g_calls.push_back(values.empty() ? call : call + " " + values);
    if (call != g_failing) {
        return 0;
    }
    if (g_passes > 0) {
        g_passes--;
        return 0;
    }
    return 5;
}

std::string Numbers(std::initializer_list<uint32_t> numbers)
{
    std::string text;
    for (const uint32_t number : numbers) {
        text += (text.empty() ? "" : " ") + std::to_string(number);
    }
    return text;
}

} // namespace

// The linker takes these for the functions of the same name without "__wrap_".
// NOLINTBEGIN(bugprone-reserved-identifier)
#define DOUBLE_OF(name)                                                                                                \
    uint32_t __wrap_##name()                                                                                           \
    {                                                                                                                  \
        return Called(#name);                                                                                          \
    }

extern "C" {

DOUBLE_OF(DrmFrameworkAdapterInitPhase1)
DOUBLE_OF(DrmFrameworkAdapterExitPhase1)
DOUBLE_OF(DrmFrameworkInit)
DOUBLE_OF(DrmFrameworkExit)
DOUBLE_OF(DrmLocalDataMgrInit)
DOUBLE_OF(DrmLocalDataMgrFin)
DOUBLE_OF(DrmFrameworkAdapterInitPhase2)
DOUBLE_OF(DrmFrameworkAdapterExitPhase2)
DOUBLE_OF(DrmDiskLifeMonitorInit)
DOUBLE_OF(DrmDiskLifeMonitorFin)
DOUBLE_OF(DrmPrefailRoutineInit)
DOUBLE_OF(DrmPrefailRoutineFin)
DOUBLE_OF(DrmClassicalSlowDiskDetectV2Init)
DOUBLE_OF(DrmClassicalSlowDiskDetectV2Exit)

uint32_t __wrap_DrmSetClassicalSlowDiskDetectV2Switch(uint8_t on)
{
    return Called("slow disk switch", Numbers({on}));
}

uint32_t __wrap_DrmConfigClassicalSlowDiskDetectV2(ClassicalSlowDiskDetectV2Config *config)
{
    return Called("slow disk", Numbers({config->diskType, config->minThresholdValue, config->minSlowCycle}));
}

uint32_t __wrap_DrmDprSetSwitchConfig(void *config)
{
    uint8_t bytes[8];
    std::memcpy(bytes, config, sizeof(bytes));
    EXPECT_EQ(bytes[5] | bytes[6] | bytes[7], 0) << "the record is not zeroed";
    const auto *record = static_cast<DrmDprSwitchConfig *>(config);
    return Called("prefail switch", Numbers({record->startType, record->on}));
}

uint32_t __wrap_DrmDprSetCycleConfig(void *config)
{
    const auto *record = static_cast<DrmDprCycleConfig *>(config);
    return Called("prefail cycle", Numbers({record->startType, record->diskType, record->cycle}));
}

void __wrap_SetDiskLifeMonitorSchedulerCycle(uint32_t seconds)
{
    (void)Called("life cycle", Numbers({seconds}));
}

uint32_t __wrap_StartHotPlugListener(AgentInfo agent)
{
    EXPECT_TRUE(IsAgentEqual(&agent, &g_uniqueSpdkAgent));
    return Called("listen");
}

uint32_t __wrap_StopHotPlugListener(AgentInfo agent)
{
    EXPECT_TRUE(IsAgentEqual(&agent, &g_uniqueSpdkAgent));
    return Called("do not listen");
}

uint32_t __wrap_StartDmmSync2DmaScheduleTask()
{
    CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "DOUBLE", "StartDmmSync2DmaScheduleTask");
    return 0xFFFFFFFF;
}

uint32_t __wrap_StartConfigBackUpTask()
{
    CORVANE_LOG_CHECKED(CORVANE_LOG_DEBUG, "DOUBLE", "StartConfigBackUpTask");
    return 12;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

/** Settings with all that the features read. */
const char *const kSettings = R"({"feature_switch": 1, "takeover_disk_switch": 1,
    "disklife_prediction": {"task_cycle": 86400},
    "sata_ssd_disk": {"task_cycle": 20, "min_threshold_value": 1, "min_slow_cycle": 50},
    "sas_ssd_disk": {"task_cycle": 21, "min_threshold_value": 2, "min_slow_cycle": 51},
    "nvme_disk": {"task_cycle": 22, "min_threshold_value": 256, "min_slow_cycle": 261},
    "sas_hdd": {"task_cycle": 2147483647, "min_threshold_value": 25, "min_slow_cycle": 300}})";

class FeatureBringupTest : public CorvaneTest {
protected:
    FeatureBringupTest() : root_(g_configRoot), lock_(g_configLock)
    {
        g_configLock = g_corvaneInfra.rwlockCreate();
        Configure(kSettings);
        g_calls.clear();
        g_failing.clear();
        g_passes = 0;
        g_drmSwitch = 1;
    }
    ~FeatureBringupTest() override
    {
        g_corvaneInfra.rwlockDestroy(g_configLock);
        g_configRoot = root_;
        g_configLock = lock_;
        g_drmSwitch = 1;
    }
    void Configure(const char *text)
    {
        tree_.reset(cJSON_Parse(text));
        ASSERT_NE(tree_, nullptr);
        g_configRoot = tree_.get();
    }
    /** Take a key of a section away. */
    void Forget(const char *section, const char *key)
    {
        cJSON_DeleteItemFromObject(cJSON_GetObjectItem(tree_.get(), section), key);
    }
    static void NoMemory()
    {
        g_osCalls.malloc = [](size_t) -> void * { return nullptr; };
    }
    static std::vector<std::string> Errors()
    {
        std::vector<std::string> errors;
        for (const LogLine &line : Logs()) {
            if (line.level == 3 && line.module == "INIT") {
                errors.push_back(line.text);
            }
        }
        return errors;
    }

private:
    CJsonPtr tree_;
    cJSON *root_;
    void *lock_;
};

using CorvaneInitDrmTest = FeatureBringupTest;
using StartFeatureTest = FeatureBringupTest;
using SetSlowDiskDetectConfigTest = FeatureBringupTest;
using SetDprSmartSwitchTest = FeatureBringupTest;
using SetDprSmartConfigTest = FeatureBringupTest;
using StartTakeOverDiskSwitchTest = FeatureBringupTest;

const std::vector<std::string> kUp = {
    "DrmFrameworkAdapterInitPhase1",   "DrmFrameworkInit",       "DrmLocalDataMgrInit",
    "DrmFrameworkAdapterInitPhase2",   "DrmDiskLifeMonitorInit", "DrmPrefailRoutineInit",
    "DrmClassicalSlowDiskDetectV2Init"};
const std::vector<std::string> kDown = {
    "DrmClassicalSlowDiskDetectV2Exit", "DrmPrefailRoutineFin", "DrmDiskLifeMonitorFin",
    "DrmFrameworkAdapterExitPhase2",    "DrmLocalDataMgrFin",   "DrmFrameworkExit",
    "DrmFrameworkAdapterExitPhase1"};

struct StageCase {
    size_t stage; ///< index in kUp of the one that fails
    std::vector<std::string> errors;
};

class FailingStageTest : public FeatureBringupTest, public ::testing::WithParamInterface<StageCase> {};

} // namespace

TEST_F(CorvaneInitDrmTest, BringsAllStagesUpAndDownAgain)
{
    EXPECT_EQ(CorvaneInitDrm(), 0u);
    EXPECT_EQ(g_calls, kUp);
    EXPECT_TRUE(Logs().empty());

    g_calls.clear();
    EXPECT_EQ(CorvaneExitDrm(), 0u);
    EXPECT_EQ(g_calls, kDown);
}

TEST_P(FailingStageTest, UndoesTheStagesBeforeItLastFirst)
{
    const size_t stage = GetParam().stage;
    g_failing = kUp[stage];
    std::vector<std::string> expected(kUp.begin(), kUp.begin() + static_cast<ptrdiff_t>(stage) + 1);
    expected.insert(expected.end(), kDown.end() - static_cast<ptrdiff_t>(stage), kDown.end());

    EXPECT_EQ(CorvaneInitDrm(), 0xFFFFFFFFu);

    EXPECT_EQ(g_calls, expected);
    EXPECT_EQ(Errors(), GetParam().errors);
}

INSTANTIATE_TEST_SUITE_P(
    Stages, FailingStageTest,
    ::testing::Values(StageCase{0, {"init drm framework adpater phase1 failed."}},
                      StageCase{1, {"init drm framework failed."}}, StageCase{2, {"init drm local data mgr failed."}},
                      StageCase{3, {"init drm framework adapter phase2 failed."}},
                      StageCase{4, {"init drm disk life monitor failed.", "init drm features failed."}},
                      StageCase{5, {"init drm prefail routinue failed.", "init drm features failed."}},
                      StageCase{6, {"init drm classical slow disk detect v2 failed.", "init drm features failed."}}));

TEST_F(StartFeatureTest, GivesTheFeaturesWhatIsConfigured)
{
    StartFeature();

    EXPECT_THAT(g_calls,
                ElementsAre("slow disk switch 1", "slow disk 0 1 50", "slow disk 1 2 51", "slow disk 2 0 5",
                            "slow disk 3 25 44", "prefail switch 0 1", "prefail cycle 0 0 20", "prefail cycle 0 1 21",
                            "prefail cycle 0 2 22", "prefail cycle 0 3 2147483647", "life cycle 86400"));
    EXPECT_EQ(g_drmSwitch, 0u) << "whatever the switch says";
    EXPECT_TRUE(Logs().empty());
}

TEST_F(StartFeatureTest, GivesThemTheirSettingsWithTheSwitchOffToo)
{
    cJSON_SetNumberHelper(cJSON_GetObjectItem(g_configRoot, "feature_switch"), 0);

    StartFeature();

    EXPECT_EQ(g_calls.size(), 11u);
    EXPECT_EQ(g_calls.front(), "slow disk switch 0");
    EXPECT_EQ(g_calls.at(5), "prefail switch 0 0");
}

TEST_F(StartFeatureTest, NeedsTheSwitch)
{
    Configure(R"({"feature_switch": 2})");

    StartFeature();

    EXPECT_THAT(g_calls, IsEmpty());
    EXPECT_THAT(Errors(), ElementsAre("get feature switch config failed"));
    EXPECT_EQ(g_drmSwitch, 1u);
}

TEST_F(StartFeatureTest, EndsWhenSlowDiskDetectionRefusesItsSwitch)
{
    g_failing = "slow disk switch";

    StartFeature();

    EXPECT_THAT(g_calls, ElementsAre("slow disk switch 1"));
    EXPECT_THAT(Errors(), ElementsAre("set slow disk detect switch config failed"));
}

TEST_F(StartFeatureTest, EndsWhenThePrefailRoutineRefusesItsSwitch)
{
    g_failing = "prefail switch";

    StartFeature();

    EXPECT_EQ(g_calls.back(), "prefail switch 0 1");
    EXPECT_THAT(Errors(), ElementsAre("set dpr smart config failed"));
}

TEST_F(StartFeatureTest, LeavesTheLifeMonitorAsItIsWithoutItsCycle)
{
    Forget("disklife_prediction", "task_cycle");

    StartFeature();

    EXPECT_EQ(g_calls.back(), "prefail cycle 0 3 2147483647");
    EXPECT_THAT(Errors(), ElementsAre("get config disklife_prediction task_cycle:0 failed"));
}

TEST_F(StartFeatureTest, GoesOnAfterASlowDiskSettingThatCannotBeRead)
{
    Forget("sata_ssd_disk", "min_slow_cycle");

    StartFeature();

    EXPECT_EQ(g_calls.at(1), "prefail switch 0 1");
    EXPECT_EQ(g_calls.back(), "life cycle 86400");
}

class MissingThresholdTest : public FeatureBringupTest, public ::testing::WithParamInterface<const char *> {};

TEST_P(MissingThresholdTest, LeavesThisDiskTypeAndThoseBehindItAsTheyAre)
{
    Forget("nvme_disk", GetParam());

    SetSlowDiskDetectConfig();

    EXPECT_THAT(g_calls, ElementsAre("slow disk 0 1 50", "slow disk 1 2 51"));
    EXPECT_THAT(Errors(), ElementsAre("get disktype nvme_disk min_threshold_value or min_slow_cycle config failed"));
}

INSTANTIATE_TEST_SUITE_P(Keys, MissingThresholdTest, ::testing::Values("min_threshold_value", "min_slow_cycle"));

TEST_F(SetSlowDiskDetectConfigTest, EndsAtARefusedSetting)
{
    g_failing = "slow disk";
    g_passes = 1;

    SetSlowDiskDetectConfig();

    EXPECT_THAT(g_calls, ElementsAre("slow disk 0 1 50", "slow disk 1 2 51"));
    EXPECT_THAT(Errors(), ElementsAre("set slow disk detect config failed"));
}

TEST_F(SetSlowDiskDetectConfigTest, SaysThatThereIsNoMemory)
{
    NoMemory();

    SetSlowDiskDetectConfig();

    EXPECT_THAT(g_calls, IsEmpty());
    EXPECT_THAT(Errors(), ElementsAre("StartSlowDiskDetect malloc memory failed"));
}

TEST_F(SetDprSmartSwitchTest, TakesEveryNumberButZeroForOn)
{
    EXPECT_EQ(SetDprSmartSwitch(0), 0u);
    EXPECT_EQ(SetDprSmartSwitch(1), 0u);
    EXPECT_EQ(SetDprSmartSwitch(256), 0u);
    EXPECT_EQ(SetDprSmartSwitch(-1), 0u);

    EXPECT_THAT(g_calls,
                ElementsAre("prefail switch 0 0", "prefail switch 0 1", "prefail switch 0 1", "prefail switch 0 1"));
}

TEST_F(SetDprSmartSwitchTest, SaysThatItWasRefused)
{
    g_failing = "prefail switch";

    EXPECT_EQ(SetDprSmartSwitch(1), 0xFFFFFFFFu);

    EXPECT_THAT(Errors(), ElementsAre("set dpr smart config failed"));
}

TEST_F(SetDprSmartSwitchTest, FailsSilentlyWithoutMemory)
{
    NoMemory();

    EXPECT_EQ(SetDprSmartSwitch(1), 0xFFFFFFFFu);

    EXPECT_THAT(g_calls, IsEmpty());
    EXPECT_TRUE(Logs().empty());
}

TEST_F(SetDprSmartConfigTest, EndsAtACycleThatCannotBeRead)
{
    Forget("sas_ssd_disk", "task_cycle");

    SetDprSmartConfig();

    EXPECT_THAT(g_calls, ElementsAre("prefail cycle 0 0 20"));
    EXPECT_THAT(Errors(), ElementsAre("get dpr smart disktype sas_ssd_disk taskCycle config failed"));
}

TEST_F(SetDprSmartConfigTest, EndsAtARefusedCycle)
{
    g_failing = "prefail cycle";
    g_passes = 2;

    SetDprSmartConfig();

    EXPECT_EQ(g_calls.size(), 3u);
    EXPECT_THAT(Errors(), ElementsAre("set dpr smart config failed"));
}

TEST_F(SetDprSmartConfigTest, FailsSilentlyWithoutMemory)
{
    NoMemory();

    SetDprSmartConfig();

    EXPECT_THAT(g_calls, IsEmpty());
    EXPECT_TRUE(Logs().empty());
}

TEST_F(StartTakeOverDiskSwitchTest, ListensWhenTheSwitchIsOn)
{
    g_failing = "listen"; // the result is not looked at

    StartTakeOverDiskSwitch();

    EXPECT_THAT(g_calls, ElementsAre("listen"));
    EXPECT_EQ(LogCount(6, "INIT", "set takeOverDiskSwitch:1 success."), 1u);
}

TEST_F(StartTakeOverDiskSwitchTest, DoesNotListenWhenItIsOff)
{
    cJSON_SetNumberHelper(cJSON_GetObjectItem(g_configRoot, "takeover_disk_switch"), 0);

    StartTakeOverDiskSwitch();

    EXPECT_THAT(g_calls, ElementsAre("do not listen"));
    EXPECT_EQ(LogCount(6, "INIT", "set takeOverDiskSwitch:0 success."), 1u);
}

TEST_F(StartTakeOverDiskSwitchTest, NeedsTheSwitch)
{
    Configure(R"({"takeover_disk_switch": 3})");

    StartTakeOverDiskSwitch();

    EXPECT_THAT(g_calls, IsEmpty());
    EXPECT_THAT(Errors(), ElementsAre("get takeOverDiskSwitch config failed"));
}
