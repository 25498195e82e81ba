#include "drm_fixture.h"

#include <cstring>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const char *const kLists[5] = {"g_drmDiskPrefailDiskListForSATA", "g_drmDiskPrefailDiskListForSAS",
                               "g_drmDiskPrefailDiskListForSasVSSD", "g_drmDiskPrefailDiskListForNvme",
                               "g_drmDiskPrefailDiskListForSASHDD"};

class PrefailTest : public DrmTest {
protected:
    void SetUp() override
    {
        DrmTest::SetUp();
        lib::DprSwitchConfig on{0, 1}; // the start has turned it off
        ASSERT_EQ(lib::DrmDprSetSwitchConfig(&on), 0u);
    }

    static lib::ListHead &List(int group) { return lib::Global<lib::ListHead>(kLists[group]); }

    static lib::DprCycle *Cycles() { return lib::Global<lib::DprCycle[5]>("g_dprCycleConfig"); }

    static void Smart(uint32_t id, const std::vector<std::vector<uint8_t>> &entries)
    {
        std::vector<uint8_t> detail(120);
        for (size_t i = 0; i < entries.size(); i++) {
            std::memcpy(&detail[4 * i], entries[i].data(), 4);
        }
        SetDetail(id, detail);
    }

    /** Back to normal, so that the next case starts alike. */
    static void Reset(uint32_t id)
    {
        Object(id).baseInfo->diskState = 0;
        ClearHostLines();
    }
};

TEST_F(PrefailTest, TableOfGroups)
{
    const auto *rows = lib::Global<lib::DprAction[5]>("g_diskListForDiskTypeAction");
    const char *routines[5] = {"DrmSATAPrefailRoutineForStartType", "DrmSASPrefailRoutineForStartType",
                               "DrmSASVSSDPrefailRoutineForStartType", "DrmNvmePrefailRoutineForStartType",
                               "DrmSasHddPrefailRoutineForStartType"};

    for (uint32_t i = 0; i < 5; i++) {
        EXPECT_EQ(rows[i].group, i);
        EXPECT_EQ(rows[i].list, lib::Address(kLists[i]));
        EXPECT_EQ(reinterpret_cast<void *>(rows[i].routine), lib::Address(routines[i]));
    }
    EXPECT_EQ(lib::Global<void *>("g_drmDprMasterHandler"), lib::Address("DrmMasterDikePreFailRoutineForSmartType"));
    EXPECT_EQ(lib::Global<uint32_t>("g_drmDprFeatureSwitch"), 1u);
}

class PrefailBuiltInTest : public HostTest {};

TEST_F(PrefailBuiltInTest, CyclesAndSwitchesBeforeTheStart)
{
    Open();
    const auto *cycles = lib::Global<lib::DprCycle[5]>("g_dprCycleConfig");

    for (uint32_t i = 0; i < 5; i++) {
        EXPECT_EQ(cycles[i].group, i);
        EXPECT_EQ(cycles[i].cycle, i == 0 ? 600u : 20u);
    }
    EXPECT_EQ(lib::Global<uint32_t>("g_drmDprFeatureSwitch"), 1u);
    EXPECT_EQ(lib::Global<uint8_t>("g_dprSwitchConfig"), 1u);
    EXPECT_EQ(lib::Global<uint32_t>("g_diskLifeMonitorSchedulerCycle"), 86400u);
    EXPECT_EQ(lib::Global<uint32_t>("g_drmSwitch"), 1u);
    EXPECT_EQ(lib::DrmGetSlowDiskDetectV2Config(3)->minThresholdValue, 100);
    EXPECT_EQ(lib::DrmGetSlowDiskDetectV2Config(0)->minThresholdValue, 1);
    EXPECT_EQ(lib::DrmGetSlowDiskDetectV2Config(2)->minSlowCycle, 50);
}

TEST_F(PrefailTest, CycleOfSasGoesToBothSasGroups)
{
    const uint32_t groups[4] = {0, 1, 3, 4};
    for (uint32_t type = 0; type < 4; type++) {
        lib::DprCycleConfig config{0, type, 100 + type};
        EXPECT_EQ(lib::DrmDprSetCycleConfig(&config), 0u);
        EXPECT_EQ(Cycles()[groups[type]].cycle, 100 + type);
    }
    EXPECT_EQ(Cycles()[2].cycle, 101u);
    lib::DprCycleConfig config{0, 4, 40};
    EXPECT_EQ(lib::DrmDprSetCycleConfig(&config), kFail);
    EXPECT_EQ(Logged(3, "Drm featue didn't support disktyepe(4)"), 1u);
    size_t told = 0;
    for (const HostLine &line : HostLines()) {
        told += line.text == "Transform disk type to drp group id failed(-1), diskType(4)" ? 1 : 0;
    }
    EXPECT_EQ(told, 1u);
}

TEST_F(PrefailTest, SwitchIsOneByte)
{
    struct {
        lib::DprSwitchConfig config;
        uint8_t behind[8];
    } memory{{0, 0}, {}};
    EXPECT_EQ(lib::DrmDprSetSwitchConfig(&memory), 0u);
    EXPECT_EQ(lib::Global<uint8_t>("g_dprSwitchConfig"), 0u);
    memory.config.on = 1;
    EXPECT_EQ(lib::DrmDprSetSwitchConfig(&memory), 0u);
    EXPECT_EQ(lib::Global<uint8_t>("g_dprSwitchConfig"), 1u);
}

TEST_F(PrefailTest, SmartEntries)
{
    const uint32_t id = AddSata("SN-0");
    const struct {
        std::vector<uint8_t> entry;
        bool prefail;
    } cases[] = {
        {{5, 50, 1, 100}, true},   {{5, 50, 50, 100}, true},     {{5, 50, 51, 100}, false}, {{5, 50, 100, 50}, true},
        {{5, 50, 100, 51}, false}, {{194, 50, 1, 1}, false},     {{190, 50, 1, 1}, false},  {{0, 50, 1, 1}, false},
        {{5, 0, 0, 0}, false},     {{255, 255, 255, 255}, true},
    };
    for (const auto &item : cases) {
        Reset(id);
        std::vector<std::vector<uint8_t>> entries(30, {1, 10, 100, 100});
        entries[29] = item.entry;
        Smart(id, entries);

        EXPECT_EQ(lib::DrmSATAPrefailRoutineForStartType(id), 0u);

        EXPECT_EQ(State(id), item.prefail ? 3u : 0u) << +item.entry[0] << " " << +item.entry[2];
        EXPECT_EQ(Logged(4, "DRM_SATA_SSD_DISK prefail, diskId: 0."), item.prefail ? 1u : 0u);
    }
}

TEST_F(PrefailTest, TheFirstFailingEntryEndsTheSearch)
{
    const uint32_t id = AddSata("SN-0");
    Smart(id, {{5, 50, 9, 8}, {6, 50, 1, 1}});
    spdk_->ClearRequests();

    EXPECT_EQ(lib::DrmSATAPrefailRoutineForStartType(id), 0u);

    EXPECT_EQ(Logged(4, "Smart Info Item(5) threshold(50) current(9) worst(8)."), 1u);
    EXPECT_EQ(Logged(4, "Smart Info Item(6) threshold(50) current(1) worst(1)."), 0u);
    EXPECT_EQ(HostLogged(3, "[DRM_FEATURE]Find prefail disk(0)."), 1u);
    EXPECT_EQ(spdk_->Requests().size(), 2u);
    EXPECT_THAT(spdk_->Requests()[0], HasSubstr(R"("params":{"sn":"SN-0","disk_state":3})"));
    EXPECT_THAT(spdk_->Requests()[1], HasSubstr("Migrate data and replace the hard disk"));

    // It goes on being found so, and nothing changes.
    EXPECT_EQ(lib::DrmSATAPrefailRoutineForStartType(id), 0u);
    EXPECT_EQ(Logged(4, "DRM_SATA_SSD_DISK prefail, diskId: 0."), 2u);
    EXPECT_EQ(HostLogged(3, "[DRM_FEATURE]Find prefail disk(0)."), 1u);
    EXPECT_EQ(spdk_->Requests().size(), 2u);
}

TEST_F(PrefailTest, SasSense)
{
    const uint32_t id = AddSas("SN-0");
    const struct {
        std::vector<uint8_t> detail;
        bool prefail;
    } cases[] = {{{0x5D, 0, 1}, true}, {{0x5D, 0x10, 0}, true}, {{0x5D, 0x6D, 1}, false}, {{0x5C, 0, 1}, false}};
    for (const auto &item : cases) {
        Reset(id);
        SetDetail(id, item.detail);

        EXPECT_EQ(lib::DrmSASPrefailRoutineForStartType(id), 0u);

        EXPECT_EQ(State(id), item.prefail ? 3u : 0u);
    }
    Reset(id);
    SetDetail(id, {0x5D, 0x10, 1});
    EXPECT_EQ(lib::DrmSASPrefailRoutineForStartType(id), 0u);
    EXPECT_EQ(HostLogged("DRM_SAS_SSD_DISK prefail, diskId:0, ascq:16."), 1u);
}

TEST_F(PrefailTest, Capacitance)
{
    const uint32_t id = AddDisk("SN-0", 1, "0x1f7c");
    const struct {
        std::vector<uint8_t> detail;
        bool prefail;
    } cases[] = {{{242, 0}, true}, {{242, 1}, false}, {{241, 0}, false}};
    for (const auto &item : cases) {
        Reset(id);
        SetDetail(id, item.detail);

        EXPECT_EQ(lib::DrmSASVSSDPrefailRoutineForStartType(id), 0u);

        EXPECT_EQ(State(id), item.prefail ? 3u : 0u);
        EXPECT_EQ(HostLogged("DRM_SAS_VSSD_DISK prefail, diskId: 0."), item.prefail ? 1u : 0u);
    }
}

TEST_F(PrefailTest, CriticalWarning)
{
    const uint32_t id = AddNvme("SN-0");
    for (int bit = 0; bit < 8; bit++) {
        Reset(id);
        SetDetail(id, {static_cast<uint8_t>(1 << bit)});

        EXPECT_EQ(lib::DrmNvmePrefailRoutineForStartType(id), 0u);

        EXPECT_EQ(State(id), bit == 0 || bit == 3 || bit == 4 ? 3u : 0u) << bit;
    }
    Reset(id);
    SetDetail(id, {0x18});
    EXPECT_EQ(lib::DrmNvmePrefailRoutineForStartType(id), 0u);
    EXPECT_EQ(HostLogged("DRM_NVME_DISK prefail, diskId:0, readOnly:1, availableSpare:0, volatileMemoryBackup:1."), 1u);
}

TEST_F(PrefailTest, HardDiskSense)
{
    const uint32_t id = AddHdd("SN-0");
    const struct {
        std::vector<uint8_t> detail;
        bool prefail;
    } cases[] = {{{0x5D, 0, 1}, true},    {{0x5D, 0x6D, 1}, false}, {{0x5D, 0x6D, 0}, true},
                 {{0x5D, 0x6D, 2}, true}, {{0x5C, 0, 0}, false},    {{0x5C, 0, 1}, false}};
    for (const auto &item : cases) {
        Reset(id);
        SetDetail(id, item.detail);

        EXPECT_EQ(lib::DrmSasHddPrefailRoutineForStartType(id), 0u);

        EXPECT_EQ(State(id), item.prefail ? 3u : 0u) << +item.detail[0] << " " << +item.detail[1];
    }
    Reset(id);
    SetDetail(id, {0x5D, 0x6D, 0});
    EXPECT_EQ(lib::DrmSasHddPrefailRoutineForStartType(id), 0u);
    EXPECT_EQ(HostLogged("DRM_SAS_HDD_DISK prefail, diskId:0, isSupportIELog:0, asc:93, ascq:109"), 1u);
}

TEST_F(PrefailTest, ADiskThatCannotBeReadIsTold)
{
    for (const auto &routine : {lib::DrmSATAPrefailRoutineForStartType, lib::DrmSASPrefailRoutineForStartType,
                                lib::DrmSASVSSDPrefailRoutineForStartType, lib::DrmNvmePrefailRoutineForStartType,
                                lib::DrmSasHddPrefailRoutineForStartType}) {
        ClearHostLines();
        EXPECT_EQ(routine(99), kFail) << routine.name;
        EXPECT_EQ(Logged(3, "Get Disk(99) smart info event fail(-1)."), 1u) << routine.name;
    }
}

TEST_F(PrefailTest, GroupsAreVisitedEveryFifthOfTheirCycle)
{
    const uint32_t id = AddSata("SN-0");
    Smart(id, {{5, 50, 1, 1}});
    lib::DprCycleConfig config{0, 0, 24}; // 4 runs
    ASSERT_EQ(lib::DrmDprSetCycleConfig(&config), 0u);
    std::vector<int> visits;

    for (int run = 1; run <= 9; run++) {
        ClearHostLines();
        EXPECT_EQ(lib::DrmDiskPrefailRoutineMasterSchedule(0, 0), 0u);
        if (Logged(4, "DRM_SATA_SSD_DISK prefail, diskId: 0.") != 0) {
            visits.push_back(run);
        }
    }

    EXPECT_THAT(visits, ElementsAre(4, 8));
}

TEST_F(PrefailTest, CycleOf600Is120RunsAndBelow5EveryRun)
{
    const uint32_t sata = AddSata("SN-0");
    const uint32_t sas = AddSas("SN-1");
    Smart(sata, {{5, 50, 1, 1}});
    SetDetail(sas, {0x5D, 1, 1});
    lib::DprCycleConfig config{0, 0, 600};
    ASSERT_EQ(lib::DrmDprSetCycleConfig(&config), 0u);
    config = {0, 1, 4};
    ASSERT_EQ(lib::DrmDprSetCycleConfig(&config), 0u);

    for (int run = 1; run < 120; run++) {
        EXPECT_EQ(lib::DrmDiskPrefailRoutineMasterSchedule(0, 0), 0u);
    }
    EXPECT_EQ(State(sata), 0u);
    EXPECT_EQ(HostLogged("DRM_SAS_SSD_DISK prefail, diskId:1, ascq:1."), 119u);
    EXPECT_EQ(lib::DrmDiskPrefailRoutineMasterSchedule(0, 0), 0u);
    EXPECT_EQ(State(sata), 3u);
}

TEST_F(PrefailTest, SwitchesStopTheRoutines)
{
    const uint32_t id = AddSas("SN-0");
    SetDetail(id, {0x5D, 1, 1});
    lib::DprCycleConfig config{0, 1, 0};
    ASSERT_EQ(lib::DrmDprSetCycleConfig(&config), 0u);
    lib::DprSwitchConfig off{0, 0};
    ASSERT_EQ(lib::DrmDprSetSwitchConfig(&off), 0u);

    EXPECT_EQ(lib::DrmDiskPrefailRoutineMasterSchedule(0, 0), 0u);
    EXPECT_EQ(State(id), 0u);
    off.on = 1;
    ASSERT_EQ(lib::DrmDprSetSwitchConfig(&off), 0u);
    lib::Global<uint32_t>("g_drmDprFeatureSwitch") = 0;
    EXPECT_EQ(lib::DrmDiskPrefailRoutineMasterSchedule(0, 0), 0u);
    EXPECT_EQ(State(id), 0u);
    lib::Global<uint32_t>("g_drmDprFeatureSwitch") = 1;
    EXPECT_EQ(lib::DrmDiskPrefailRoutineMasterSchedule(0, 64), 0u);
    EXPECT_EQ(lib::DrmDiskPrefailRoutineMasterSchedule(0, 1), 0u);
    EXPECT_EQ(lib::DrmDiskPrefailRoutineMasterSchedule(1, 0), 0u); // the code is 65536
    EXPECT_EQ(lib::DrmDiskPrefailRoutineMasterSchedule(1, 64), 0u);
    EXPECT_EQ(State(id), 0u);
    EXPECT_EQ(lib::DrmDiskPrefailRoutineMasterSchedule(0, 0), 0u);
    EXPECT_EQ(State(id), 3u);
}

TEST_F(PrefailTest, AFailureOnOneDiskIsToldAndTheNextFollows)
{
    const uint32_t gone = AddSas("SN-0");
    const uint32_t id = AddSas("SN-1");
    SetDetail(id, {0x5D, 1, 1});
    lib::DprCycleConfig config{0, 1, 5};
    ASSERT_EQ(lib::DrmDprSetCycleConfig(&config), 0u);
    ASSERT_EQ(lib::DiskStateSet(gone, Sn("SN-0"), 2), 0u);

    lib::DrmMasterDikePreFailRoutineForSmartType();

    EXPECT_EQ(HostLogged("Handle monitor disk(0) life in event fail(-1)."), 1u);
    EXPECT_EQ(State(id), 3u);
}

TEST_F(PrefailTest, GroupsByTypeAndVendor)
{
    const uint32_t sata = AddSata("SN-0");
    const uint32_t sas = AddDisk("SN-1", 1, "VELMAR");
    const uint32_t vssd = AddDisk("SN-2", 1, "0x1f7c");
    const uint32_t nvme = AddDisk("SN-3", 0, "0x1f7c");
    const uint32_t other = AddDisk("SN-4", 0, "VELMAR");
    const uint32_t hdd = AddHdd("SN-5");

    EXPECT_THAT(IdsOf(List(0)), ElementsAre(sata));
    EXPECT_THAT(IdsOf(List(1)), ElementsAre(sas));
    EXPECT_THAT(IdsOf(List(2)), ElementsAre(vssd));
    EXPECT_THAT(IdsOf(List(3)), ElementsAre(nvme, other));
    EXPECT_THAT(IdsOf(List(4)), ElementsAre(hdd));
    for (const auto &[id, group] : std::vector<std::pair<uint32_t, uint32_t>>{{sata, 0}, {vssd, 2}, {hdd, 4}}) {
        void *data = nullptr;
        ASSERT_EQ(lib::getFeatureLocPrivateData(id, 16, &data), 0u);
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(*static_cast<uint32_t *>(data), group);
    }
}

TEST_F(PrefailTest, AMemberThatComesAgainStaysOnce)
{
    const uint32_t id = AddSata("SN-0");

    EXPECT_EQ(lib::DrmDiskPrefailMasterHandleDiskInEvent(id), 0u);

    EXPECT_EQ(HostLogged("Disk(0) rein."), 1u);
    EXPECT_THAT(IdsOf(List(0)), ElementsAre(id));
}

TEST_F(PrefailTest, ADepartedDiskLeavesItsListAndASecondDepartureFails)
{
    const uint32_t id = AddSata("SN-0");

    EXPECT_EQ(lib::DrmDiskPrefailMasterHandleDiskOutEvent(id), 0u);
    EXPECT_THAT(IdsOf(List(0)), IsEmpty());
    void *data = &data;
    ASSERT_EQ(lib::getFeatureLocPrivateData(id, 16, &data), 0u);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(lib::DrmDiskPrefailMasterHandleDiskOutEvent(id), kFail);

    size_t told = 0;
    for (const HostLine &line : HostLines()) {
        told += line.text.rfind("Get private data fail for disk(0), info(", 0) == 0 && line.level == 3 ? 1 : 0;
    }
    EXPECT_EQ(told, 1u);
}

TEST_F(PrefailTest, ADiskWithoutGroupFails)
{
    EXPECT_EQ(lib::DrmDiskPrefailMasterHandleDiskInEvent(99), kFail);
    EXPECT_EQ(Logged(3, "Get disk type failed(-1) for disk(99)."), 1u);
}

TEST_F(PrefailTest, WithoutMemoryTheDiskIsInNoList)
{
    const uint32_t id = AddSata("SN-0");
    ASSERT_EQ(lib::DrmDiskPrefailMasterHandleDiskOutEvent(id), 0u);
    ClearHostLines();

    g_hostResults.heapUntilFailure = 0;
    EXPECT_EQ(lib::DrmDiskPrefailMasterHandleDiskInEvent(id), kFail);
    EXPECT_EQ(Logged(3, "Handle Disk(0) in event fail."), 1u);
    g_hostResults.heapUntilFailure = 1;
    EXPECT_EQ(lib::DrmDiskPrefailMasterHandleDiskInEvent(id), kFail);
    EXPECT_EQ(Logged(3, "Malloc for disk(0) failed."), 1u);
    EXPECT_EQ(Logged(3, "Set locale private data fail for disk(0)."), 1u);
    EXPECT_THAT(IdsOf(List(0)), IsEmpty());
}

TEST_F(PrefailTest, EventsAreQueuedAndHandledInOrder)
{
    EXPECT_EQ(lib::DrmDiskPrefailDiskEventHandle(0, 7), 0u);

    EXPECT_TRUE(WaitForHostLine("Invalid disk event(7) for disk(0)."));
    EXPECT_EQ(lib::DrmDiskPrefailDiskEventHandle(99, 0), 0u);
    EXPECT_TRUE(WaitForHostLine("Handle disk(99) event(0) failed, ret(-1)."));
    EXPECT_TRUE(WaitForHostLine("Handle disk(99) event(0) ret(-1)"));
    EXPECT_EQ(Logged(7, "Handle disk(99) event(0) ret(-1)"), 1u);
}

TEST_F(PrefailTest, AnEventThatCannotBeQueuedIsTold)
{
    g_hostResults.heapUntilFailure = 0;
    EXPECT_EQ(lib::DrmDiskPrefailDiskEventHandle(5, 0), kFail);
    EXPECT_EQ(Logged(3, "Handle disk event: disk(5) event(0) fail."), 1u);
    g_hostResults.allocStructure = 1;
    EXPECT_EQ(lib::DrmDiskPrefailDiskEventHandle(6, 1), kFail);
    EXPECT_EQ(Logged(3, "Queue disk(6) event(1) failed."), 1u);
}

TEST_F(PrefailTest, AFailedSaveLeavesTheNewStateAndTheRoutineSilent)
{
    const uint32_t id = AddSas("SN-0");
    SetDetail(id, {0x5D, 1, 1});
    BlockSaves();

    EXPECT_EQ(lib::DrmSASPrefailRoutineForStartType(id), 0u);

    EXPECT_EQ(State(id), 3u);
    UnblockSaves();
}

TEST_F(PrefailTest, AWorseStateStays)
{
    const uint32_t id = AddSas("SN-0");
    SetDetail(id, {0x5D, 1, 1});
    for (const uint32_t state : {1u, 3u, 4u}) {
        Object(id).baseInfo->diskState = state;
        EXPECT_EQ(lib::DrmSASPrefailRoutineForStartType(id), 0u);
        EXPECT_EQ(State(id), state);
    }
    EXPECT_EQ(HostLogged(3, "[DRM_FEATURE]Find prefail disk(0)."), 0u);
}

TEST_F(PrefailTest, FaultInjectionMakesTheDataReadAsFailing)
{
    using Tp = void (*)(const char *, uint32_t *, uint32_t, void *);
    const auto tp = [](const char *name) { return reinterpret_cast<Tp>(lib::Address(name)); };
    uint8_t data[120];
    uint32_t hit = 0;

    std::memset(data, 9, sizeof(data));
    tp("DrmDprSetSataSmartEntrysPrefail")("1,5", &hit, 5, data);
    EXPECT_EQ(hit, 1u);
    EXPECT_EQ((std::vector<uint8_t>(data, data + 5)), (std::vector<uint8_t>{1, 1, 0, 0, 9}));
    tp("DrmDprSetSasSsdEntrysPrefail")("", &(hit = 0), 5, data);
    EXPECT_EQ(hit, 1u);
    EXPECT_EQ((std::vector<uint8_t>(data, data + 4)), (std::vector<uint8_t>{0x5D, 0, 1, 0}));
    tp("DrmDprSetSasVssdEntrysPrefail")("5", &(hit = 0), 5, data);
    EXPECT_EQ(hit, 1u);
    EXPECT_EQ((std::vector<uint8_t>(data, data + 3)), (std::vector<uint8_t>{242, 0, 1}));
    data[0] = 0x02;
    tp("DrmDprSetNvmeEntrysPrefail")("5", &(hit = 0), 5, data);
    EXPECT_EQ(data[0], 0x0A);
    std::memset(data, 9, sizeof(data));
    tp("DrmDprSetNlSasHddEntrysPrefail")("5", &(hit = 0), 5, data);
    EXPECT_EQ((std::vector<uint8_t>(data, data + 4)), (std::vector<uint8_t>{0x5D, 0, 0, 9}));
    std::memset(data, 9, sizeof(data));
    tp("DrmDprDiskFailTp")("5", &(hit = 0), 5, data);
    EXPECT_EQ(hit, 1u);
    EXPECT_EQ(data[0], 9);
    for (const char *name :
         {"DrmDprSetSataSmartEntrysPrefail", "DrmDprSetSasSsdEntrysPrefail", "DrmDprSetSasVssdEntrysPrefail",
          "DrmDprSetNvmeEntrysPrefail", "DrmDprSetNlSasHddEntrysPrefail", "DrmDprDiskFailTp"}) {
        hit = 0;
        tp(name)("55,6", &hit, 5, data);
        EXPECT_EQ(hit, 0u) << name;
        EXPECT_EQ(data[0], 9) << name;
    }
}

TEST_F(PrefailTest, InitFailsIfItsSlotIsTaken)
{
    lib::DrmPrefailRoutineFin();
    ASSERT_EQ(lib::DrmTaskSchedulerInit(), 0u);
    (void)lib::DrmRegisterAnalyser(16, nullptr, kFail, nullptr, kFail, 1); // leaves the mode behind

    EXPECT_NE(lib::DrmPrefailRoutineInit(), 0u);

    EXPECT_EQ(HostLogged("register drm disk prefail routine analyzer fail(-1)."), 1u);
}

} // namespace
