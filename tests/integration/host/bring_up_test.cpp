#include "drm_fixture.h"

namespace {

using testing::ElementsAre;

uint32_t NoLocal(uint32_t)
{
    return 0;
}

class CorvaneInitDrmTest : public DrmTest {
protected:
    void SetUp() override
    {
        StartQuiet();
        ClearHostLines();
    }

    /** The calls of the host that tell the stages apart, without repetitions in a row. */
    static std::vector<std::string> WalkSince(size_t before)
    {
        std::vector<std::string> walk;
        const std::vector<std::string> calls = HostCalls();
        for (size_t i = before; i < calls.size(); i++) {
            const std::string name = calls[i].rfind("deletePartitionByID", 0) == 0 ? "delete" : calls[i];
            if ((name == "delete" || name == "norax_timer_destroy" || name.rfind("DBG_", 0) == 0) &&
                (walk.empty() || walk.back() != name)) {
                walk.push_back(name);
            }
        }
        return walk;
    }

    static std::vector<std::string> Failures()
    {
        std::vector<std::string> texts;
        for (const HostLine &line : HostLines()) {
            if (line.level == 3) {
                texts.push_back(line.text);
            }
        }
        return texts;
    }

    static bool FeaturesListen(bool life, bool prefail, bool slow)
    {
        const auto *rows = lib::Global<lib::DrmDiskUpdateHandle[32]>("g_drmLocalDiskUpdateHandle");
        return (rows[15].masterHandler != nullptr) == life && (rows[16].masterHandler != nullptr) == prefail &&
               (rows[3].localHandler != nullptr) == slow;
    }

    /** A slot that is kept in a mode without functions, so that the feature cannot register. */
    static void SpoilSlot(uint32_t feature)
    {
        g_hostResults.onLog = [feature](const std::string &text) {
            if (text == "Init drm (DrmTracepoint) success.") {
                (void)lib::DrmRegisterAnalyser(feature, NoLocal, kFail, nullptr, kFail, 1);
            }
        };
    }
};

TEST_F(CorvaneInitDrmTest, ComesUpAgainAfterItWentDown)
{
    EXPECT_TRUE(FeaturesListen(true, true, true));
    const size_t before = HostCalls().size();

    EXPECT_EQ(lib::CorvaneExitDrm(), 0u);

    EXPECT_THAT(WalkSince(before), ElementsAre("DBG_UnRegCmd(u_drm_slow_disk)", "delete", "DBG_UnRegCmd(drm)",
                                               "norax_timer_destroy", "delete"));
    EXPECT_TRUE(FeaturesListen(false, false, false));
    EXPECT_EQ(lib::CorvaneInitDrm(), 0u);
    EXPECT_TRUE(FeaturesListen(true, true, true));
    EXPECT_EQ(HostCommandOf("drm").name, std::string("drm"));
}

TEST_F(CorvaneInitDrmTest, FailureOfTheFramework)
{
    ASSERT_EQ(lib::CorvaneExitDrm(), 0u);
    g_hostResults.timerAdd = 9;
    ClearHostLines();
    const size_t before = HostCalls().size();

    EXPECT_EQ(lib::CorvaneInitDrm(), kFail);

    EXPECT_THAT(Failures(), ElementsAre("ZOSA_AddTimer failed, ret: 9.", "Create TaskScheduler timer failed.",
                                        "LoadSubModule DrmTaskScheduler failed.", "[INIT]init drm framework failed."));
    EXPECT_THAT(WalkSince(before), ElementsAre("norax_timer_destroy", "delete"));
    EXPECT_TRUE(FeaturesListen(false, false, false));
}

TEST_F(CorvaneInitDrmTest, FailureOfTheLocalData)
{
    ASSERT_EQ(lib::CorvaneExitDrm(), 0u);
    g_hostResults.contiguous = 1;
    ClearHostLines();
    const size_t before = HostCalls().size();

    EXPECT_EQ(lib::CorvaneInitDrm(), kFail);

    EXPECT_THAT(Failures(), ElementsAre("Create BDM_DRM_LOCAL_DISK_POOL failed.", "Drm local alloc partition failed.",
                                        "[INIT]init drm local data mgr failed."));
    EXPECT_THAT(WalkSince(before),
                ElementsAre("DBG_RegCmd(drm)", "DBG_UnRegCmd(drm)", "norax_timer_destroy", "delete"));
}

TEST_F(CorvaneInitDrmTest, FailureOfTheLifeMonitor)
{
    ASSERT_EQ(lib::CorvaneExitDrm(), 0u);
    SpoilSlot(15);
    ClearHostLines();

    EXPECT_EQ(lib::CorvaneInitDrm(), kFail);

    g_hostResults.onLog = nullptr;
    const std::vector<std::string> texts = Failures();
    ASSERT_GE(texts.size(), 3u);
    EXPECT_THAT(std::vector<std::string>(texts.end() - 3, texts.end()),
                ElementsAre("register drm disk life monitor analyzer fail.", "[INIT]init drm disk life monitor failed.",
                            "[INIT]init drm features failed."));
    EXPECT_TRUE(FeaturesListen(true, false, false)) << "a failed stage is not undone itself";
}

TEST_F(CorvaneInitDrmTest, FailureOfThePrefailRoutine)
{
    ASSERT_EQ(lib::CorvaneExitDrm(), 0u);
    SpoilSlot(16);
    ClearHostLines();

    EXPECT_EQ(lib::CorvaneInitDrm(), kFail);

    g_hostResults.onLog = nullptr;
    const std::vector<std::string> texts = Failures();
    ASSERT_GE(texts.size(), 3u);
    EXPECT_THAT(std::vector<std::string>(texts.end() - 3, texts.end()),
                ElementsAre("register drm disk prefail routine analyzer fail(-1).",
                            "[INIT]init drm prefail routinue failed.", "[INIT]init drm features failed."));
    EXPECT_FALSE(FeaturesListen(true, true, false));
    EXPECT_EQ(lib::Global<lib::DrmDiskUpdateHandle[32]>("g_drmLocalDiskUpdateHandle")[15].masterHandler, nullptr);
}

TEST_F(CorvaneInitDrmTest, FailureOfSlowDiskDetectionUndoesAll)
{
    ASSERT_EQ(lib::CorvaneExitDrm(), 0u);
    SpoilSlot(3);
    ClearHostLines();
    const size_t before = HostCalls().size();

    EXPECT_EQ(lib::CorvaneInitDrm(), kFail);

    g_hostResults.onLog = nullptr;
    const std::vector<std::string> texts = Failures();
    ASSERT_GE(texts.size(), 3u);
    EXPECT_THAT(std::vector<std::string>(texts.end() - 3, texts.end()),
                ElementsAre("Reigster drm slow disk detect analyzer fail",
                            "[INIT]init drm classical slow disk detect v2 failed.", "[INIT]init drm features failed."));
    const auto *rows = lib::Global<lib::DrmDiskUpdateHandle[32]>("g_drmLocalDiskUpdateHandle");
    EXPECT_EQ(rows[15].masterHandler, nullptr);
    EXPECT_EQ(rows[16].masterHandler, nullptr);
    EXPECT_THAT(WalkSince(before),
                ElementsAre("DBG_RegCmd(drm)", "delete", "DBG_UnRegCmd(drm)", "norax_timer_destroy", "delete"));
    EXPECT_NE(lib::Global<void *>("g_drmDiskEventNotifyFunc"), lib::Address("DrmEventNotifyFuc"));
}

class StartFeatureTest : public HostTest {
protected:
    void Start(const std::string &settings)
    {
        WriteText(prefix_ + "/config/corvane_config.json", settings);
        Open();
        uint32_t result = kFail;
        startOutput_ = CaptureStdout([&] { result = lib::InitCorvane(1); });
        ASSERT_EQ(result, 0u) << startOutput_;
    }

    static std::string Section(const char *name, int cycle, int threshold, int slow)
    {
        return std::string("\"") + name + R"(":{"task_cycle":)" + std::to_string(cycle) + R"(,"min_threshold_value":)" +
               std::to_string(threshold) + R"(,"min_slow_cycle":)" + std::to_string(slow) + "}";
    }

    static std::string Settings(int slowOfSas = 60, int thresholdOfNvme = 7)
    {
        return R"({"feature_switch":0,"takeover_disk_switch":0,"disklife_prediction":{"task_cycle":1234},)" +
               Section("sata_ssd_disk", 31, 2, 51) + "," + Section("sas_ssd_disk", 32, 3, slowOfSas) + "," +
               Section("nvme_disk", 33, thresholdOfNvme, 53) + "," + Section("sas_hdd", 34, 5, 54) + "}";
    }

    static const lib::SlowDiskConfig &Slow(uint32_t type) { return *lib::DrmGetSlowDiskDetectV2Config(type); }
};

TEST_F(StartFeatureTest, SettingsReachTheFeatures)
{
    Start(Settings());

    for (uint32_t type = 0; type < 4; type++) {
        EXPECT_EQ(Slow(type).diskType, type);
    }
    EXPECT_EQ(Slow(0).minThresholdValue, 2);
    EXPECT_EQ(Slow(0).minSlowCycle, 51);
    EXPECT_EQ(Slow(1).minSlowCycle, 60);
    EXPECT_EQ(Slow(2).minThresholdValue, 7);
    EXPECT_EQ(Slow(3).minThresholdValue, 5);
    EXPECT_EQ(Slow(3).minSlowCycle, 54);
    const auto *cycles = lib::Global<lib::DprCycle[5]>("g_dprCycleConfig");
    const uint32_t expected[5] = {31, 32, 32, 33, 34};
    for (int group = 0; group < 5; group++) {
        EXPECT_EQ(cycles[group].cycle, expected[group]) << group;
    }
    EXPECT_EQ(lib::Global<uint32_t>("g_diskLifeMonitorSchedulerCycle"), 1234u);
    EXPECT_EQ(lib::Global<uint8_t>("g_dprSwitchConfig"), 0u);
    EXPECT_EQ(HostLogged(6, "[INIT]set takeOverDiskSwitch:0 success."), 1u);
}

TEST_F(StartFeatureTest, SlowCycleIsCutToItsLow8Bits)
{
    Start(Settings(300));

    EXPECT_EQ(Slow(1).minSlowCycle, 44);
    EXPECT_EQ(Slow(3).minSlowCycle, 54);
}

TEST_F(StartFeatureTest, RefusedSettingStopsTheSlowDiskSettingsOnly)
{
    Start(Settings(261));

    EXPECT_EQ(HostLogged(3, "[INIT]set slow disk detect config failed"), 1u);
    EXPECT_EQ(Slow(0).minSlowCycle, 51);
    EXPECT_EQ(Slow(1).minSlowCycle, 50) << "5 is too few";
    EXPECT_EQ(Slow(1).minThresholdValue, 1);
    EXPECT_EQ(Slow(2).minThresholdValue, 1) << "behind the stop";
    EXPECT_EQ(Slow(3).minThresholdValue, 100);
    EXPECT_EQ(lib::Global<uint32_t>("g_diskLifeMonitorSchedulerCycle"), 1234u);
}

TEST_F(StartFeatureTest, ThresholdOf256IsRefused)
{
    Start(Settings(60, 256));

    EXPECT_EQ(HostLogged(3, "[INIT]set slow disk detect config failed"), 1u);
    EXPECT_EQ(Slow(1).minSlowCycle, 60);
    EXPECT_EQ(Slow(2).minThresholdValue, 1);
}

TEST_F(StartFeatureTest, MissingSettingsAreToldOneByOne)
{
    Start(R"({"feature_switch":0})");

    EXPECT_EQ(HostLogged(3, "[INIT]get disktype sata_ssd_disk min_threshold_value or min_slow_cycle config failed"),
              1u);
    EXPECT_EQ(HostLogged(3, "[INIT]get dpr smart disktype sata_ssd_disk taskCycle config failed"), 1u);
    EXPECT_EQ(HostLogged(3, "[INIT]get config disklife_prediction task_cycle:0 failed"), 1u);
    EXPECT_EQ(HostLogged(3, "[INIT]get takeOverDiskSwitch config failed"), 1u);
    EXPECT_EQ(Slow(0).minSlowCycle, 50);
    EXPECT_EQ(lib::Global<lib::DprCycle[5]>("g_dprCycleConfig")[0].cycle, 600u);
    EXPECT_EQ(lib::Global<uint32_t>("g_diskLifeMonitorSchedulerCycle"), 86400u);
}

TEST_F(StartFeatureTest, MissingSwitchSkipsEverything)
{
    Start("{}");

    EXPECT_EQ(HostLogged(3, "[INIT]get feature switch config failed"), 2u) << "collection and features";
    EXPECT_EQ(HostLogged(3, "[INIT]get dpr smart disktype sata_ssd_disk taskCycle config failed"), 0u);
    EXPECT_EQ(lib::Global<uint32_t>("g_drmSwitch"), 1u);
    EXPECT_EQ(lib::Global<uint8_t>("g_dprSwitchConfig"), 1u);
}

TEST_F(StartFeatureTest, SwitchesFollowTheValue)
{
    Start(Settings());
    lib::Global<uint32_t>("g_drmSwitch") = 5;

    EXPECT_EQ(lib::SetDprSmartSwitch(1), 0u);
    EXPECT_EQ(lib::Global<uint8_t>("g_dprSwitchConfig"), 1u);
    EXPECT_EQ(lib::SetDprSmartSwitch(0), 0u);
    EXPECT_EQ(lib::Global<uint8_t>("g_dprSwitchConfig"), 0u);
    EXPECT_EQ(lib::SetDprSmartSwitch(-3), 0u);
    EXPECT_EQ(lib::Global<uint8_t>("g_dprSwitchConfig"), 1u);
    ASSERT_EQ(lib::DrmSetSwitch(1), 0u);
    EXPECT_EQ(lib::Global<uint32_t>("g_drmSwitch"), 0u) << "whatever the argument";
    lib::Global<uint32_t>("g_drmSwitch") = 5;
    lib::StartFeature();
    EXPECT_EQ(lib::Global<uint32_t>("g_drmSwitch"), 0u);
    EXPECT_EQ(lib::Global<uint8_t>("g_dprSwitchConfig"), 0u);
}

class StartQueryAgentScheduleTaskTest : public HostTest {
protected:
    void SetUp() override
    {
        StartQuiet();
        ASSERT_EQ(lib::SetConfigInt("feature_switch", 1), 0u);
        ClearHostLines();
    }

    void TearDown() override
    {
        (void)lib::CancelScanAllAgentDeviceListScheduleTask();
        (void)lib::CancelAllQueryAgentScheduleTask();
    }
};

TEST_F(StartQueryAgentScheduleTaskTest, StartsBothAgentsAndTheScan)
{
    lib::StartQueryAgentScheduleTask();

    EXPECT_EQ(lib::SubmitQueryAgentScheduleTask(SpdkAgent()), 114u);
    EXPECT_EQ(lib::SubmitQueryAgentScheduleTask(KernelAgent()), 114u);
    EXPECT_EQ(lib::SubmitScanAllAgentDeviceListScheduleTask(), 114u);
}

TEST_F(StartQueryAgentScheduleTaskTest, StartsNothingWithTheSwitchOff)
{
    ASSERT_EQ(lib::SetConfigInt("feature_switch", 0), 0u);
    ClearHostLines();

    lib::StartQueryAgentScheduleTask();

    EXPECT_EQ(HostLogged(6, "[INIT]feature switch is off, no need start query agent task"), 1u);
    EXPECT_EQ(lib::SubmitQueryAgentScheduleTask(SpdkAgent()), 0u) << "it was not running";
}

TEST_F(StartQueryAgentScheduleTaskTest, FailureOfTheFirstAgentEndsIt)
{
    ASSERT_EQ(lib::SubmitQueryAgentScheduleTask(SpdkAgent()), 0u);

    lib::StartQueryAgentScheduleTask();

    EXPECT_EQ(HostLogged(4, "[DCM]Submit Query UsrAgent ScheduleTask failed(ret:114)."), 1u);
    EXPECT_EQ(lib::SubmitQueryAgentScheduleTask(KernelAgent()), 0u) << "it was not running";
}

TEST_F(StartQueryAgentScheduleTaskTest, FailureOfTheSecondCancelsTheFirst)
{
    ASSERT_EQ(lib::SubmitQueryAgentScheduleTask(KernelAgent()), 0u);

    lib::StartQueryAgentScheduleTask();

    EXPECT_EQ(HostLogged(4, "[DCM]Submit Query KernelAgent ScheduleTask failed(ret:114)."), 1u);
    EXPECT_EQ(HostLogged(4, "[DCM]Cancel Query UsrAgent ScheduleTask(ret:0)."), 1u);
    EXPECT_EQ(HostLogged(4, "[DCM]Cancel Query KernelAgent ScheduleTask(ret:0)."), 0u);
}

TEST_F(StartQueryAgentScheduleTaskTest, FailureOfTheScanCancelsBoth)
{
    ASSERT_EQ(lib::SubmitScanAllAgentDeviceListScheduleTask(), 0u);

    lib::StartQueryAgentScheduleTask();

    std::vector<std::string> walk;
    for (const HostLine &line : HostLines()) {
        if (line.text.find("ScheduleTask failed(ret:") != std::string::npos ||
            line.text.find("ScheduleTask(ret:") != std::string::npos) {
            EXPECT_EQ(line.level, 4u);
            walk.push_back(line.text);
        }
    }
    EXPECT_THAT(walk, ElementsAre("[DCM]Submit Scan All Agent ScheduleTask failed(ret:114).",
                                  "[DCM]Cancel Query UsrAgent ScheduleTask(ret:0).",
                                  "[DCM]Cancel Query KernelAgent ScheduleTask(ret:0)."));
}

class StartTakeOverDiskSwitchTest : public HostTest {};

TEST_F(StartTakeOverDiskSwitchTest, FollowsTheSetting)
{
    WriteText(prefix_ + "/config/corvane_config.json", R"({"feature_switch":0,"takeover_disk_switch":1})");
    Open();
    EXPECT_EQ(lib::Global<uint8_t>("g_isShutDown"), 1u);
    EXPECT_EQ(lib::Global<uint8_t>("g_isThreadCreate"), 0u);

    (void)CaptureStdout([] { EXPECT_EQ(lib::InitCorvane(1), 0u); });

    EXPECT_EQ(HostLogged(6, "[INIT]set takeOverDiskSwitch:1 success."), 1u);
    EXPECT_EQ(lib::Global<uint8_t>("g_isShutDown"), 0u);
    EXPECT_EQ(lib::Global<uint8_t>("g_isThreadCreate"), 1u);
    lib::TakeOverDiskSwitch(false);
    EXPECT_EQ(lib::Global<uint8_t>("g_isShutDown"), 1u);
    EXPECT_EQ(lib::Global<uint8_t>("g_isThreadCreate"), 1u);
    lib::TakeOverDiskSwitch(true);
    EXPECT_EQ(lib::Global<uint8_t>("g_isShutDown"), 0u);
}

} // namespace
