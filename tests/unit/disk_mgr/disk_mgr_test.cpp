#include "unit/disk_mgr/registry_fixture.h"

#include <array>
#include <filesystem>

#include "config/corvane_prefix_path.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr uint32_t kFail = 0xFFFFFFFF;
constexpr const char *kModule = "DISK_MGR";

class StartedRegistryTest : public RegistryTest {
protected:
    StartedRegistryTest() { Start(); }

    DiskSnRef Ref(const std::string &sn)
    {
        text_ = sn;
        text_.resize(64);
        return {static_cast<uint32_t>(sn.size()), text_.data()};
    }
    /** Registers a disk as the refresh does; gives its identifier. */
    uint32_t AddByCursor(const std::string &sn)
    {
        uint32_t id = kFail;
        EXPECT_EQ(GetNewDiskId(Ref(sn), &id), 0u);
        EXPECT_EQ(Add(id, sn), 0u);
        return id;
    }
    void FailSaves() { FileCalls::Arm(FileCalls::Act::Fail, 0); }
    std::string SaveFailure() const
    {
        return "DiskInfoUpdate DiskInfoSavetoConfig fail , config file path = " + Path();
    }

private:
    std::string text_;
};

class DiskMgrInitTest : public RegistryTest {};
class DiskMgrDestroyTest : public RegistryTest {};
class GetNewDiskIdTest : public StartedRegistryTest {};
class GetDiskIdBySnTest : public StartedRegistryTest {};
class IsSNExistTest : public StartedRegistryTest {};
class DiskInfoUpdateTest : public StartedRegistryTest {};
class DiskInfoGetTest : public StartedRegistryTest {};
class GetAllSnAndDiskIdTest : public StartedRegistryTest {};
class SetGConfigFilePathTest : public RegistryTest {};
class UninitialisedRegistryTest : public RegistryTest {};

} // namespace

TEST_F(DiskMgrInitTest, StartsEmptyWithoutAFile)
{
    EXPECT_EQ(DiskMgrInit(Path().c_str()), 0u);

    EXPECT_TRUE(g_diskMgrInited);
    EXPECT_NE(g_diskMgrLock, nullptr);
    EXPECT_EQ(g_nextUnusedDiskId, 0u);
    EXPECT_EQ(Count(), 0u);
    EXPECT_EQ(g_configFilePath, Path());
    EXPECT_TRUE(Logged(6, kModule, "Disk Mgr Model Init start = " + Path()));
    EXPECT_TRUE(Logged(3, kModule, "cant load from config file, config file path = " + Path()));
    EXPECT_TRUE(Logged(4, kModule, "DiskInfoLoadConfig fail , config file path = " + Path()));
    EXPECT_TRUE(Logged(6, kModule, "Disk Mgr Model Init finish , config file path = " + Path()));
}

TEST_F(DiskMgrInitTest, TakesTheFileBelowThePrefixWithoutAPath)
{
    EXPECT_EQ(DiskMgrInit(nullptr), 0u);

    EXPECT_EQ(g_configFilePath, Path());
}

TEST_F(DiskMgrInitTest, RefusesASecondInit)
{
    Start();
    ASSERT_EQ(Add(0, "SN-0"), 0u);

    EXPECT_EQ(DiskMgrInit(Path().c_str()), kFail);

    EXPECT_TRUE(Logged(4, kModule, "Disk Mgr Model already init"));
    EXPECT_THAT(Table(), ElementsAre(Registered(0, "SN-0", 0)));
}

TEST_F(DiskMgrInitTest, RefusesAPrefixThatDoesNotFit)
{
    char *saved = g_prefixPath;
    std::string longPrefix(4096, 'p');
    g_prefixPath = longPrefix.data();

    EXPECT_EQ(DiskMgrInit(nullptr), kFail);

    g_prefixPath = saved;
    EXPECT_TRUE(
        Logged(3, kModule, "Concatenate config prefix:" + longPrefix + " with file:config/disk_mgr.config failed."));
    EXPECT_FALSE(g_diskMgrInited);
    EXPECT_EQ(g_diskNumAtomic, nullptr);
    EXPECT_EQ(g_diskMgrLock, nullptr);
}

TEST_F(DiskMgrInitTest, FailsWithoutMemoryForThePath)
{
    g_corvaneInfra.memAlloc = [](uint64_t) -> void * { return nullptr; };
    g_corvaneInfra.atomicCreate = [](uint64_t) -> void * { return new uint64_t(0); };
    g_corvaneInfra.atomicDestroy = [](void *atomic) { delete static_cast<uint64_t *>(atomic); };
    g_corvaneInfra.spinlockCreate = []() -> void * { return new int(0); };
    g_corvaneInfra.spinlockDestroy = [](void *lock) { delete static_cast<int *>(lock); };

    EXPECT_EQ(DiskMgrInit(Path().c_str()), kFail);

    EXPECT_TRUE(Logged(3, kModule, "Malloc failed."));
    EXPECT_TRUE(Logged(3, kModule, "Set config file path = " + Path() + " failed"));
    EXPECT_FALSE(g_diskMgrInited);
}

TEST_F(DiskMgrInitTest, FailsWithoutItsHandles)
{
    g_corvaneInfra.atomicCreate = [](uint64_t) -> void * { return nullptr; };

    EXPECT_EQ(DiskMgrInit(Path().c_str()), kFail);

    EXPECT_EQ(g_diskMgrLock, nullptr);
    EXPECT_FALSE(g_diskMgrInited);
}

TEST_F(DiskMgrInitTest, KeepsIdentifiersAndContentOverARestart)
{
    Start();
    DiskMgrObj obj = Record(5, "SN-5");
    ASSERT_EQ(DiskInfoUpdate(5, &obj), 0u);
    obj.diskState = DISK_STATE_SLOW;
    ASSERT_EQ(DiskInfoUpdate(5, &obj), 0u);
    ASSERT_EQ(Add(127, "SN-127"), 0u);

    Restart();

    EXPECT_THAT(Table(), ElementsAre(Registered(5, "SN-5", DISK_STATE_SLOW), Registered(127, "SN-127", 0)));
    EXPECT_EQ(Count(), 2u);
    DiskMgrObj expected = obj;
    std::memset(expected.deviceName, 0, sizeof(expected.deviceName));
    (void)std::snprintf(expected.deviceName, sizeof(expected.deviceName), "unknown");
    EXPECT_EQ(std::memcmp(g_diskMgrObj[5], &expected, sizeof(expected)), 0);
}

TEST_F(DiskMgrDestroyTest, SaysSoWhenThereIsNothingToDestroy)
{
    EXPECT_EQ(DiskMgrDestroy(), 0u);

    EXPECT_TRUE(Logged(6, kModule, "Disk Mgr Model start destory"));
    EXPECT_TRUE(Logged(3, kModule, "Disk Mgr Model no init,can't destroy"));
    EXPECT_FALSE(Logged(6, kModule, "Disk Mgr Model destory success"));
}

TEST_F(DiskMgrDestroyTest, FreesTheLowerHalfOfTheTableOnly)
{
    Start();
    ASSERT_EQ(Add(63, "SN-63"), 0u);
    ASSERT_EQ(Add(64, "SN-64"), 0u);

    EXPECT_EQ(DiskMgrDestroy(), 0u);

    EXPECT_THAT(Table(), ElementsAre(Registered(64, "SN-64", 0)));
    EXPECT_FALSE(g_diskMgrInited);
    EXPECT_EQ(g_diskNumAtomic, nullptr);
    EXPECT_EQ(g_diskMgrLock, nullptr);
    EXPECT_EQ(g_configFilePath, nullptr);
    EXPECT_TRUE(Logged(6, kModule, "Disk Mgr Model destory success"));
}

TEST_F(DiskMgrDestroyTest, FreeAllLeavesTheCount)
{
    Start();
    ASSERT_EQ(Add(0, "SN-0"), 0u);

    DiskMgrFreeAllObjs();

    EXPECT_THAT(Table(), IsEmpty());
    EXPECT_EQ(Count(), 1u);
}

TEST_F(GetNewDiskIdTest, GivesTheSameIdentifierUntilItIsTaken)
{
    uint32_t first = kFail;
    uint32_t second = kFail;

    EXPECT_EQ(GetNewDiskId(Ref("SN-A"), &first), 0u);
    EXPECT_EQ(GetNewDiskId(Ref("SN-B"), &second), 0u);

    EXPECT_EQ(first, 0u);
    EXPECT_EQ(second, 0u);
    EXPECT_TRUE(Logged(7, kModule, "GetNewDiskId:pre set new diskid: sn = SN-A diskId = 0"));
}

TEST_F(GetNewDiskIdTest, RefusesThe65thDisk)
{
    for (uint32_t i = 0; i < 64; i++) {
        ASSERT_EQ(AddByCursor("SN-" + std::to_string(i)), i);
    }
    uint32_t id = 99;

    EXPECT_EQ(GetNewDiskId(Ref("SN-64"), &id), 2u);

    EXPECT_EQ(id, 99u);
}

TEST_F(GetNewDiskIdTest, RefusesALongSerialNumberOrNone)
{
    uint32_t id = 99;
    DiskSnRef sn = Ref("SN");
    sn.len = 41;

    EXPECT_EQ(GetNewDiskId(sn, &id), kFail);
    EXPECT_EQ(GetNewDiskId({2, nullptr}, &id), kFail);
    EXPECT_EQ(GetNewDiskId(Ref("SN"), nullptr), kFail);

    EXPECT_EQ(id, 99u);
    EXPECT_EQ(LogCount(3, kModule, "DiskBaseInfoSet Param error, sn_len = 41"), 1u);
    EXPECT_EQ(LogCount(3, kModule, "DiskBaseInfoSet Param error, sn_len = 2"), 2u);
}

TEST_F(GetNewDiskIdTest, TakesALengthOf40)
{
    uint32_t id = 99;
    std::string unterminated(40, 'S');

    EXPECT_EQ(GetNewDiskId({40, unterminated.data()}, &id), 0u);

    EXPECT_TRUE(Logged(7, kModule, "GetNewDiskId:pre set new diskid: sn = " + unterminated + " diskId = 0"));
}

TEST_F(GetNewDiskIdTest, PassesByAFreedIdentifierBelowTheCursor)
{
    ASSERT_EQ(AddByCursor("SN-0"), 0u);
    ASSERT_EQ(AddByCursor("SN-1"), 1u);
    ASSERT_EQ(AddByCursor("SN-2"), 2u);
    ASSERT_EQ(TakeOffline(1, "SN-1"), 0u);

    EXPECT_EQ(AddByCursor("SN-NEW"), 3u);
}

TEST_F(GetNewDiskIdTest, GivesAFreedIdentifierAtTheCursorAtOnce)
{
    ASSERT_EQ(AddByCursor("SN-0"), 0u);
    ASSERT_EQ(AddByCursor("SN-1"), 1u);
    ASSERT_EQ(TakeOffline(1, "SN-1"), 0u);

    EXPECT_EQ(AddByCursor("SN-NEW"), 1u);
}

TEST_F(GetNewDiskIdTest, WrapsBehind127ToTheFirstFreeSlot)
{
    ASSERT_EQ(AddByCursor("SN-0"), 0u);
    g_nextUnusedDiskId = 127;
    ASSERT_EQ(AddByCursor("SN-127"), 127u);

    EXPECT_EQ(AddByCursor("SN-1"), 1u);
}

TEST_F(GetNewDiskIdTest, GoesThroughTheWholeTableBeforeAFreedIdentifierComesBack)
{
    ASSERT_EQ(AddByCursor("SN-0"), 0u);
    ASSERT_EQ(AddByCursor("SN-1"), 1u);

    for (uint32_t id = 2; id < 128; id++) {
        EXPECT_EQ(AddByCursor("SN-" + std::to_string(id)), id);
        ASSERT_EQ(TakeOffline(id - 1, "SN-" + std::to_string(id - 1)), 0u);
    }

    EXPECT_EQ(AddByCursor("SN-NEW"), 1u);
}

TEST_F(GetNewDiskIdTest, StartsAtTheLowestFreeIdentifierAfterARestart)
{
    ASSERT_EQ(AddByCursor("SN-0"), 0u);
    ASSERT_EQ(AddByCursor("SN-1"), 1u);
    ASSERT_EQ(AddByCursor("SN-2"), 2u);
    ASSERT_EQ(TakeOffline(1, "SN-1"), 0u);
    Restart();

    EXPECT_EQ(AddByCursor("SN-NEW"), 1u);
}

TEST_F(GetNewDiskIdTest, FailsWhenEverySlotIsTaken)
{
    DiskMgrObj filler = Record(0, "SN");
    for (DiskMgrObj *&slot : g_diskMgrObj) {
        slot = &filler;
    }
    uint32_t id = 99;

    EXPECT_EQ(GetNewDiskId(Ref("SN-NEW"), &id), kFail);

    EXPECT_EQ(id, 99u);
    EXPECT_EQ(g_nextUnusedDiskId, 0u);
    for (DiskMgrObj *&slot : g_diskMgrObj) {
        slot = nullptr;
    }
}

TEST_F(GetDiskIdBySnTest, FindsWhateverTheLengthSays)
{
    ASSERT_EQ(Add(9, "SN-9"), 0u);
    uint32_t id = kFail;
    DiskSnRef sn = Ref("SN-9");
    sn.len = 0;

    EXPECT_EQ(GetDiskIdBySn(sn, &id), 0u);

    EXPECT_EQ(id, 9u);
}

TEST_F(GetDiskIdBySnTest, ListsTheRegistryForAnUnknownDisk)
{
    ASSERT_EQ(Add(9, "SN-9"), 0u);
    ASSERT_EQ(Add(11, "SN-11"), 0u);
    uint32_t id = 99;

    EXPECT_EQ(GetDiskIdBySn(Ref("SN-1"), &id), 4u);

    EXPECT_EQ(id, 99u);
    EXPECT_TRUE(Logged(7, kModule, "GetDiskIdBySn can't find sn = SN-1"));
    EXPECT_EQ(LogCount(7, kModule, "\tsn = SN-9, diskid= 9"), 1u);
    EXPECT_EQ(LogCount(7, kModule, "\tsn = SN-11, diskid= 11"), 1u);
}

TEST_F(GetDiskIdBySnTest, RefusesBadArguments)
{
    ASSERT_EQ(Add(9, "SN-9"), 0u);
    uint32_t id = 99;
    DiskSnRef tooLong = Ref("SN-9");
    tooLong.len = 41;
    DiskSnRef negative = tooLong;
    negative.len = 0x80000000u;

    EXPECT_EQ(GetDiskIdBySn(tooLong, &id), kFail);
    EXPECT_EQ(GetDiskIdBySn(negative, &id), kFail);
    EXPECT_EQ(GetDiskIdBySn({4, nullptr}, &id), kFail);
    EXPECT_EQ(GetDiskIdBySn({4, tooLong.buf}, nullptr), kFail);

    EXPECT_EQ(id, 99u);
    EXPECT_EQ(LogCount(3, kModule, "DiskBaseInfoSet Param error, sn len = 41"), 1u);
    EXPECT_EQ(LogCount(3, kModule, "DiskBaseInfoSet Param error, sn len = -2147483648"), 1u);
    EXPECT_EQ(LogCount(3, kModule, "DiskBaseInfoSet Param error, sn len = 4"), 2u);
}

TEST_F(GetDiskIdBySnTest, LooksAt40CharactersOfATextWithoutTerminator)
{
    std::string sn(40, 'S');
    uint32_t id = 99;

    EXPECT_EQ(GetDiskIdBySn({40, sn.data()}, &id), 4u);

    EXPECT_TRUE(Logged(7, kModule, "GetDiskIdBySn can't find sn = " + sn));
}

TEST_F(GetDiskIdBySnTest, TellsDisksApartByTheirLastCharacter)
{
    const std::string sn = std::string(38, 'S') + "A";
    const std::string other = std::string(38, 'S') + "B";
    ASSERT_EQ(Add(0, sn), 0u);
    uint32_t id = 99;

    EXPECT_EQ(GetDiskIdBySn(Ref(other), &id), 4u);
    EXPECT_EQ(IsSNExist(Ref(other)), kFail);
    EXPECT_EQ(Add(0, other), kFail) << "another disk's record";
    EXPECT_EQ(Add(1, other), 0u);

    EXPECT_EQ(GetDiskIdBySn(Ref(other), &id), 0u);
    EXPECT_EQ(id, 1u);
}

TEST_F(IsSNExistTest, GivesZeroForAKnownSerialNumberWhateverItsLength)
{
    ASSERT_EQ(Add(0, "SN-0"), 0u);
    DiskSnRef known = Ref("SN-0");
    known.len = 4000;

    EXPECT_EQ(IsSNExist(known), 0u);
    EXPECT_EQ(IsSNExist(Ref("SN-")), kFail);
    EXPECT_EQ(IsSNExist({4, nullptr}), kFail);
}

TEST_F(DiskInfoUpdateTest, RefusesBadArguments)
{
    DiskMgrObj obj = Record(128, "SN");

    EXPECT_EQ(DiskInfoUpdate(128, &obj), 7u);
    EXPECT_EQ(DiskInfoUpdate(0, nullptr), 7u);

    EXPECT_THAT(Table(), IsEmpty());
}

TEST_F(DiskInfoUpdateTest, StoresANewDiskWithItsIdentifierAndStateNormal)
{
    DiskMgrObj obj = Record(77, "SN-A");
    obj.diskState = DISK_STATE_PREFAIL;

    EXPECT_EQ(DiskInfoUpdate(127, &obj), 0u);

    DiskMgrObj expected = obj;
    expected.diskId = 127;
    expected.diskState = DISK_STATE_NORMAL;
    ASSERT_NE(g_diskMgrObj[127], nullptr);
    EXPECT_NE(g_diskMgrObj[127], &obj);
    EXPECT_EQ(std::memcmp(g_diskMgrObj[127], &expected, sizeof(expected)), 0);
    EXPECT_EQ(Count(), 1u);
    EXPECT_EQ(obj.diskId, 77u);
}

TEST_F(DiskInfoUpdateTest, RefusesASerialNumberUnderASecondIdentifier)
{
    ASSERT_EQ(Add(0, "SN-A"), 0u);
    const std::string before = ReadFile(Path());
    ClearLogs();

    EXPECT_EQ(Add(1, "SN-A"), kFail);

    EXPECT_THAT(Logs(), IsEmpty());
    EXPECT_THAT(Table(), ElementsAre(Registered(0, "SN-A", 0)));
    EXPECT_EQ(Count(), 1u);
    EXPECT_EQ(ReadFile(Path()), before);
}

TEST_F(DiskInfoUpdateTest, RefusesToTakeOfflineWhatIsNotThere)
{
    EXPECT_EQ(TakeOffline(0, "SN-A"), kFail);

    EXPECT_THAT(Table(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST_F(DiskInfoUpdateTest, RefusesAnotherDiskUnderAnIdentifierInUse)
{
    ASSERT_EQ(Add(0, "SN-A"), 0u);
    const std::string before = ReadFile(Path());

    EXPECT_EQ(Add(0, "SN-B"), kFail);

    EXPECT_TRUE(Logged(3, kModule,
                       "disk info update failed, input SN (SN-B) does not match saved SN (SN-A) under same disk id."));
    EXPECT_THAT(Table(), ElementsAre(Registered(0, "SN-A", 0)));
    EXPECT_EQ(ReadFile(Path()), before);
}

TEST_F(DiskInfoUpdateTest, LogsASerialNumberWithoutTerminatorUpToItsEnd)
{
    ASSERT_EQ(Add(0, "SN-A"), 0u);
    DiskMgrObj obj = Record(0, "");
    std::memset(obj.sn, 'S', sizeof(obj.sn));

    EXPECT_EQ(DiskInfoUpdate(0, &obj), kFail);

    EXPECT_TRUE(Logged(3, kModule,
                       "disk info update failed, input SN (" + std::string(40, 'S') +
                           ") does not match saved SN (SN-A) under same disk id."));
}

TEST_F(DiskInfoUpdateTest, ReplacesTheWholeRecordAndSaves)
{
    ASSERT_EQ(Add(4, "SN-A"), 0u);
    DiskMgrObj obj = Record(4, "SN-A");
    obj.slotId = 0xFFFFFFFF;
    obj.diskState = DISK_STATE_FAULT;
    (void)std::snprintf(obj.deviceName, sizeof(obj.deviceName), "sdz");

    EXPECT_EQ(DiskInfoUpdate(4, &obj), 0u);

    EXPECT_EQ(std::memcmp(g_diskMgrObj[4], &obj, sizeof(obj)), 0);
    Restart();
    ASSERT_NE(g_diskMgrObj[4], nullptr);
    EXPECT_EQ(g_diskMgrObj[4]->slotId, 0xFFFFFFFF);
    EXPECT_EQ(g_diskMgrObj[4]->diskState, static_cast<uint32_t>(DISK_STATE_FAULT));
}

TEST_F(DiskInfoUpdateTest, KeepsTheNewContentWhenTheSaveFails)
{
    ASSERT_EQ(Add(4, "SN-A"), 0u);
    DiskMgrObj obj = Record(4, "SN-A");
    obj.slotId = 12;
    FailSaves();

    EXPECT_EQ(DiskInfoUpdate(4, &obj), kFail);

    EXPECT_EQ(g_diskMgrObj[4]->slotId, 12u);
    EXPECT_TRUE(Logged(3, kModule, SaveFailure()));
    EXPECT_TRUE(Logged(3, kModule, "Save Disk Info Json To File error"));
}

TEST_F(DiskInfoUpdateTest, TakesTheStoredRecordItselfAsSuccess)
{
    ASSERT_EQ(Add(4, "SN-A"), 0u);
    DiskMgrObj *live = nullptr;
    ASSERT_EQ(DiskInfoGet(4, &live), 0u);
    live->diskState = DISK_STATE_PREFAIL;

    EXPECT_EQ(DiskInfoUpdate(4, live), 0u);

    Restart();
    EXPECT_THAT(Table(), ElementsAre(Registered(4, "SN-A", DISK_STATE_PREFAIL)));
}

TEST_F(DiskInfoUpdateTest, LeavesNothingOfANewDiskWhenTheSaveFails)
{
    ASSERT_EQ(Add(0, "SN-A"), 0u);
    const std::string before = ReadFile(Path());
    FailSaves();

    EXPECT_EQ(Add(1, "SN-B"), kFail);

    EXPECT_TRUE(Logged(3, kModule, SaveFailure()));
    EXPECT_THAT(Table(), ElementsAre(Registered(0, "SN-A", 0)));
    EXPECT_EQ(Count(), 1u);
    EXPECT_EQ(ReadFile(Path()), before);
}

TEST_F(DiskInfoUpdateTest, RemovesAnOfflineDisk)
{
    ASSERT_EQ(Add(0, "SN-A"), 0u);
    ASSERT_EQ(Add(1, "SN-B"), 0u);

    EXPECT_EQ(TakeOffline(0, "SN-A"), 0u);

    EXPECT_EQ(Count(), 1u);
    Restart();
    EXPECT_THAT(Table(), ElementsAre(Registered(1, "SN-B", 0)));
    EXPECT_EQ(Count(), 1u);
}

TEST_F(DiskInfoUpdateTest, RemovesADiskThroughItsStoredRecord)
{
    ASSERT_EQ(Add(0, "SN-A"), 0u);
    DiskMgrObj *live = g_diskMgrObj[0];
    live->diskState = DISK_STATE_OFFLINE;

    EXPECT_EQ(DiskInfoUpdate(0, live), 0u);

    EXPECT_THAT(Table(), IsEmpty());
    EXPECT_EQ(ReadFile(Path()), "[]");
}

TEST_F(DiskInfoUpdateTest, KeepsADiskWhoseRemovalCannotBeSaved)
{
    ASSERT_EQ(Add(0, "SN-A"), 0u);
    FailSaves();

    EXPECT_EQ(TakeOffline(0, "SN-A"), kFail);

    EXPECT_TRUE(Logged(3, kModule, SaveFailure()));
    EXPECT_THAT(Table(), ElementsAre(Registered(0, "SN-A", 0)));
    EXPECT_EQ(Count(), 1u);
}

TEST_F(DiskInfoUpdateTest, PutsTheFormerStateBackWhenTheRemovalOfTheStoredRecordFails)
{
    ASSERT_EQ(Add(0, "SN-A"), 0u);
    DiskMgrObj *live = g_diskMgrObj[0];
    live->diskState = DISK_STATE_SLOW;
    ASSERT_EQ(DiskInfoUpdate(0, live), 0u);
    live->diskState = DISK_STATE_OFFLINE;
    FailSaves();
    ASSERT_EQ(DiskInfoUpdate(0, live), kFail);

    ASSERT_EQ(Add(1, "SN-B"), 0u);

    EXPECT_EQ(g_diskMgrObj[0], live);
    Restart();
    EXPECT_THAT(Table(), ElementsAre(Registered(0, "SN-A", DISK_STATE_SLOW), Registered(1, "SN-B", 0)));
}

TEST_F(DiskInfoUpdateTest, PutsALoadedStateBackWhenTheRemovalOfTheStoredRecordFails)
{
    ASSERT_EQ(Add(70, "SN-A"), 0u);
    g_diskMgrObj[70]->diskState = DISK_STATE_FAULT;
    ASSERT_EQ(DiskInfoUpdate(70, g_diskMgrObj[70]), 0u);
    ASSERT_EQ(Add(71, "SN-B"), 0u);
    Restart();
    g_diskMgrObj[70]->diskState = DISK_STATE_OFFLINE;
    FailSaves();

    EXPECT_EQ(DiskInfoUpdate(70, g_diskMgrObj[70]), kFail);

    EXPECT_THAT(Table(), ElementsAre(Registered(70, "SN-A", DISK_STATE_FAULT), Registered(71, "SN-B", 0)));
}

TEST_F(DiskInfoUpdateTest, SurvivesEveryFailedAllocationOfTheTable)
{
    ASSERT_EQ(Add(0, "SN-A"), 0u);
    int limit = 0;

    for (;; limit++) {
        LimitAllocations(limit);
        const uint32_t result = Add(1, "SN-B");
        LimitAllocations(-1);
        if (result == 0) {
            break;
        }
        ASSERT_EQ(result, kFail);
        ASSERT_THAT(Table(), ElementsAre(Registered(0, "SN-A", 0))) << limit;
        ASSERT_EQ(Count(), 1u);
    }

    EXPECT_GE(limit, 2); // record, write-ahead name
    Restart();
    EXPECT_THAT(Table(), ElementsAre(Registered(0, "SN-A", 0), Registered(1, "SN-B", 0)));
}

TEST_F(DiskInfoUpdateTest, SurvivesEveryFailedAllocationOfTheTree)
{
    ASSERT_EQ(Add(0, "SN-A"), 0u);
    const std::string before = ReadFile(Path());
    int limit = 0;

    for (;; limit++) {
        uint32_t result = 0;
        {
            const CJsonMemoryLimit memory(limit);
            result = Add(1, "SN-B");
        }
        if (result == 0) {
            break;
        }
        ASSERT_THAT(Table(), ElementsAre(Registered(0, "SN-A", 0))) << limit;
        ASSERT_EQ(ReadFile(Path()), before) << limit;
    }

    EXPECT_GT(limit, 50); // two entries of 13 members with names and texts
    EXPECT_TRUE(Logged(3, kModule, "Convert Disk Mgr Obj to cJSON error"));
    EXPECT_TRUE(Logged(3, kModule, "ConvertSingleDiskMgrObj2cJSON fail diskid = 0"));
    EXPECT_TRUE(Logged(3, kModule, "ConvertSingleDiskMgrObj2cJSON fail diskid = 1"));
    EXPECT_TRUE(Logged(3, kModule, "DiskMgrAddNumToCJson fail, cJSON_AddNumberToObject get NULL"));
    EXPECT_TRUE(Logged(3, kModule, "DiskMgrAddStringToCJson fail, valueName = sn value = SN-B"));
}

TEST_F(DiskInfoGetTest, HandsOutTheLiveRecord)
{
    ASSERT_EQ(Add(3, "SN-A"), 0u);
    DiskMgrObj *obj = nullptr;

    EXPECT_EQ(DiskInfoGet(3, &obj), 0u);

    EXPECT_EQ(obj, g_diskMgrObj[3]);
}

TEST_F(DiskInfoGetTest, RefusesAnEmptySlotAndWhatIsNoSlot)
{
    DiskMgrObj untouched{};
    DiskMgrObj *obj = &untouched;

    EXPECT_EQ(DiskInfoGet(3, &obj), 1u);
    EXPECT_EQ(DiskInfoGet(128, &obj), 1u);
    EXPECT_EQ(DiskInfoGet(0xFFFFFFFF, &obj), 1u);

    EXPECT_EQ(obj, &untouched);
}

TEST_F(GetAllSnAndDiskIdTest, ListsUpwardIntoArraysThatJustFit)
{
    ASSERT_EQ(Add(100, "SN-100"), 0u);
    ASSERT_EQ(Add(2, "SN-2"), 0u);
    std::array<uint32_t, 2> ids{};
    std::array<std::array<char, 40>, 2> texts{};
    std::array<DiskSnRef, 2> sns{{{40, texts[0].data()}, {40, texts[1].data()}}};
    uint32_t count = 0;

    EXPECT_EQ(GetAllSnAndDiskId(ids.data(), sns.data(), 2, &count), 0u);

    EXPECT_EQ(count, 2u);
    EXPECT_THAT(ids, ElementsAre(2u, 100u));
    EXPECT_STREQ(texts[0].data(), "SN-2");
    EXPECT_STREQ(texts[1].data(), "SN-100");
}

TEST_F(GetAllSnAndDiskIdTest, SaysHowManyDisksThereAreWhenTheArraysAreTooSmall)
{
    ASSERT_EQ(Add(0, "SN-0"), 0u);
    ASSERT_EQ(Add(1, "SN-1"), 0u);
    uint32_t id = 99;
    std::array<char, 40> text{};
    DiskSnRef sn{40, text.data()};
    uint32_t count = 0;

    EXPECT_EQ(GetAllSnAndDiskId(&id, &sn, 1, &count), 6u);

    EXPECT_EQ(count, 2u);
    EXPECT_EQ(id, 99u);
}

TEST_F(GetAllSnAndDiskIdTest, FailsForASerialNumberThatDoesNotFit)
{
    ASSERT_EQ(Add(0, "SN-0"), 0u);
    uint32_t id = 99;
    std::array<char, 4> text{};
    DiskSnRef sn{4, text.data()};
    uint32_t count = 0;

    EXPECT_EQ(GetAllSnAndDiskId(&id, &sn, 1, &count), kFail);
    sn = {40, nullptr};
    EXPECT_EQ(GetAllSnAndDiskId(&id, &sn, 1, &count), kFail);
    EXPECT_EQ(GetAllSnAndDiskId(nullptr, nullptr, 1, &count), kFail);
    EXPECT_EQ(GetAllSnAndDiskId(&id, &sn, 1, nullptr), kFail);
}

TEST_F(GetAllSnAndDiskIdTest, TakesNoArraysForNoDisks)
{
    uint32_t count = 99;

    EXPECT_EQ(GetAllSnAndDiskId(nullptr, nullptr, 0, &count), 0u);

    EXPECT_EQ(count, 0u);
}

TEST_F(GetAllSnAndDiskIdTest, NeverWritesBeyondTheArraysForRecordsOutsideTheCount)
{
    ASSERT_EQ(Add(64, "SN-64"), 0u);
    (void)DiskMgrDestroy();
    std::filesystem::remove(Path());
    Start();
    uint32_t count = 99;

    EXPECT_EQ(GetAllSnAndDiskId(nullptr, nullptr, 0, &count), 6u);

    EXPECT_EQ(count, 0u);
}

TEST_F(SetGConfigFilePathTest, CopiesThePathAndKeepsTheFormerOneOnFailure)
{
    std::string path = "/first";
    ASSERT_EQ(SetGConfigFilePath(path.c_str()), 0u);
    path = "/other";
    EXPECT_STREQ(g_configFilePath, "/first");

    LimitAllocations(0);
    EXPECT_EQ(SetGConfigFilePath(path.c_str()), kFail);
    LimitAllocations(-1);
    EXPECT_EQ(SetGConfigFilePath(nullptr), kFail);
    EXPECT_STREQ(g_configFilePath, "/first");

    EXPECT_EQ(SetGConfigFilePath(g_configFilePath), 0u);
    EXPECT_STREQ(g_configFilePath, "/first");
    EXPECT_EQ(LogCount(3, kModule, "Malloc failed."), 1u);
}

TEST_F(SetGConfigFilePathTest, ConfigFilePathCheckSaysWhetherThereIsAPath)
{
    EXPECT_EQ(ConfigFilePathCheck(""), 0u);
    EXPECT_EQ(ConfigFilePathCheck(nullptr), kFail);
}

TEST_F(UninitialisedRegistryTest, RefusesEveryOperation)
{
    std::string text = "SN-0";
    text.resize(40);
    const DiskSnRef sn{4, text.data()};
    uint32_t value = 99;
    DiskMgrObj *obj = nullptr;

    EXPECT_EQ(GetNewDiskId(sn, &value), kFail);
    EXPECT_EQ(GetDiskIdBySn(sn, &value), 4u);
    EXPECT_EQ(IsSNExist(sn), kFail);
    EXPECT_EQ(GetAllSnAndDiskId(&value, nullptr, 1, &value), kFail);
    EXPECT_EQ(Add(0, "SN-0"), kFail);
    EXPECT_EQ(DiskInfoGet(0, &obj), 1u);
    EXPECT_EQ(DiskInfoSavetoConfig(), kFail);
    EXPECT_EQ(DiskInfoLoadConfig(), kFail);
    EXPECT_EQ(DiskMgrHandleOfflineObj(0), kFail);

    EXPECT_EQ(value, 99u);
    EXPECT_THAT(Table(), IsEmpty());
}
