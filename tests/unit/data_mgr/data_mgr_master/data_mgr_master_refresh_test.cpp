#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"

#include "unit/data_mgr/data_mgr_master/data_mgr_fixture.h"

using data_mgr_test::DataMgrBareTest;
using data_mgr_test::DataMgrTest;
using data_mgr_test::Event;
using data_mgr_test::FailRename;
using data_mgr_test::FakeNotify;
using data_mgr_test::kModule;
using data_mgr_test::MakeRecord;
using data_mgr_test::Sn;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class DiskSerialNumberRefreshTest : public DataMgrTest {};
class DataMgrCreateNewDiskInfoTest : public DataMgrTest {};
class DataMgrNotifyDrmDiskEventTest : public DataMgrTest {};
class DataMgrInitTest : public DataMgrBareTest {};
class DataMgrDisableTest : public DataMgrTest {};

namespace {

uint32_t NotifyWithFive(uint32_t, DiskSnRef, uint32_t)
{
    return 5;
}

} // namespace

TEST_F(DiskSerialNumberRefreshTest, BringsAnAdmittedDiskOnline)
{
    Offer(MakeRecord("SN-2", DISK_TYPE_SSD_SATA, "ATA", "VSSD-9"));

    EXPECT_EQ(Refresh({"SN-1", "SN-2"}), 0u);

    ASSERT_EQ(IdOf("SN-2"), 1u);
    ASSERT_NE(g_diskDataMgr[1], nullptr);
    EXPECT_EQ(g_diskDataMgr[1]->baseInfo, g_diskMgrObj[1]);
    EXPECT_EQ(g_diskDataMgr[1]->drmInfo.diskLife, DISK_LIFE_UNKNOWN);
    EXPECT_THAT(doubles_.events, ElementsAre(Event{1, "SN-2", DISK_EVENT_IN}));
    EXPECT_THAT(MessageTypes(), ElementsAre(0u));
    EXPECT_THAT(doubles_.fetches, ElementsAre("SN-2"));
    EXPECT_TRUE(LoggedText("DiskSerialNumberRefresh start"));
    EXPECT_TRUE(Logged(CORVANE_LOG_DEBUG, kModule, "GetDiskIdBySn not ok."));
    EXPECT_TRUE(LoggedText("Current sn (SN-2) in whitelist. vendor(ATA), model(VSSD-9)"));
    EXPECT_TRUE(LoggedText("online disk, sn = SN-2,disk id = 1"));
    EXPECT_TRUE(LoggedText("Fetch new disk base info(sn = SN-2) success"));
    EXPECT_TRUE(LoggedText("DiskSerialNumberRefresh end"));
}

TEST_F(DiskSerialNumberRefreshTest, EmptyListTakesEveryDiskOffline)
{
    Offer(MakeRecord("SN-2"));
    ASSERT_EQ(Refresh({"SN-1", "SN-2"}), 0u);
    ForgetCalls();

    EXPECT_EQ(DiskSerialNumberRefresh(nullptr, 0), 0u);

    EXPECT_EQ(g_diskDataMgr[0], nullptr);
    EXPECT_EQ(g_diskDataMgr[1], nullptr);
    EXPECT_EQ(g_corvaneInfra.atomicGet(g_diskNumAtomic), 0u);
    EXPECT_THAT(doubles_.events, ElementsAre(Event{0, "SN-1", DISK_EVENT_OUT}, Event{1, "SN-2", DISK_EVENT_OUT}));
    EXPECT_THAT(MessageTypes(), ElementsAre(3u, 3u));
    EXPECT_EQ(doubles_.messages[1].sn, "SN-2");
    EXPECT_TRUE(LoggedText("Try offline disk (sn = SN-1 disk id = 0)"));
    EXPECT_TRUE(LoggedText("offline disk (disk id = 0) success"));
}

TEST_F(DiskSerialNumberRefreshTest, KnownDiskIsNotFetchedAgain)
{
    EXPECT_EQ(Refresh({"SN-1"}), 0u);

    EXPECT_THAT(doubles_.fetches, IsEmpty());
    EXPECT_THAT(doubles_.events, IsEmpty());
    EXPECT_THAT(doubles_.messages, IsEmpty());
}

TEST_F(DiskSerialNumberRefreshTest, CountWithoutAListIsRefused)
{
    EXPECT_EQ(DiskSerialNumberRefresh(nullptr, 1), DATA_MGR_ERR_FAIL);

    EXPECT_NE(g_diskDataMgr[0], nullptr);
}

TEST_F(DiskSerialNumberRefreshTest, EntryWithoutATextNamesNoDisk)
{
    DiskSnRef list[] = {sn_, {.len = 40, .buf = nullptr}};

    EXPECT_EQ(DiskSerialNumberRefresh(list, 2), DATA_MGR_ERR_FAIL);

    EXPECT_NE(g_diskDataMgr[0], nullptr);
}

TEST_F(DiskSerialNumberRefreshTest, RefusedDiskIsFetchedOnce)
{
    Offer(MakeRecord("SN-N", DISK_TYPE_SSD_NVME, "OTHER", "M"));

    EXPECT_EQ(Refresh({"SN-1", "SN-N"}), 0u);
    EXPECT_EQ(Refresh({"SN-1", "SN-N"}), 0u);

    EXPECT_THAT(doubles_.fetches, SizeIs(1));
    EXPECT_TRUE(LoggedText("Current sn (SN-N) not in whitelist. vendor(OTHER), model(M)"));
    EXPECT_TRUE(LoggedText("Current sn (SN-N) in NonWhiteListSnNode"));
}

TEST_F(DiskSerialNumberRefreshTest, WithAFullCacheItIsFetchedEachTime)
{
    for (int i = 0; i < 64; i++) {
        ASSERT_EQ(AddSnToNonWhiteList(("C" + std::to_string(i)).c_str()), 0u);
    }
    Offer(MakeRecord("SN-N", DISK_TYPE_SSD_NVME, "OTHER"));

    EXPECT_EQ(Refresh({"SN-1", "SN-N"}), 0u);
    EXPECT_EQ(Refresh({"SN-1", "SN-N"}), 0u);

    EXPECT_THAT(doubles_.fetches, SizeIs(2));
    EXPECT_EQ(TextCount("nonWhiteListSnNode cache is full"), 2u);
    EXPECT_EQ(TextCount("AddSnToNonWhiteList fail"), 2u);
}

TEST_F(DiskSerialNumberRefreshTest, LongSerialNumberIsRefusedAndNeverCached)
{
    const std::string sn(30, 'L');
    Offer(MakeRecord(sn, DISK_TYPE_SSD_NVME, "OTHER"));

    EXPECT_EQ(Refresh({"SN-1", sn}), 0u);
    EXPECT_EQ(Refresh({"SN-1", sn}), 0u);

    EXPECT_EQ(TextCount("copy nonWhiteListSnNode sn failed"), 2u);
    EXPECT_THAT(doubles_.fetches, SizeIs(2));
}

TEST_F(DiskSerialNumberRefreshTest, FailedFetchEndsThePassAfterTheDisksBefore)
{
    Offer(MakeRecord("SN-2"));
    Offer(MakeRecord("SN-4"));

    EXPECT_EQ(Refresh({"SN-1", "SN-2", "SN-3", "SN-4"}), DATA_MGR_ERR_FAIL);

    EXPECT_TRUE(LoggedText("FetchDiskBaseInfo fail, sn = SN-3, ret = 123"));
    EXPECT_TRUE(LoggedText("DiskSerialNumberRefresh end"));
    EXPECT_EQ(IdOf("SN-2"), 1u);
    EXPECT_EQ(IdOf("SN-4"), 0xFFFFFFFFu);
}

TEST_F(DiskSerialNumberRefreshTest, FailedCreationEndsThePass)
{
    Offer(MakeRecord("SN-2"));
    g_osCalls.rename = FailRename;

    EXPECT_EQ(Refresh({"SN-1", "SN-2"}), DATA_MGR_ERR_FAIL);

    EXPECT_TRUE(LoggedText("Upadate base info to disk mgr fail,sn = SN-2,write to disk id = 1"));
    EXPECT_TRUE(LoggedText("DiskSerialNumberRefresh init disk fail"));
    EXPECT_EQ(g_diskDataMgr[1], nullptr);
    EXPECT_THAT(doubles_.events, IsEmpty());
}

TEST_F(DiskSerialNumberRefreshTest, FailedOfflineSaveKeepsTheDiskAndSkipsTheOnlinePass)
{
    ASSERT_EQ(DiskStateSet(0, sn_, DISK_STATE_SLOW), 0u);
    Offer(MakeRecord("SN-2"));
    ForgetCalls();
    const auto rename = g_osCalls.rename;
    g_osCalls.rename = FailRename;

    EXPECT_EQ(Refresh({"SN-2"}), DISK_MGR_ERR_FAIL);

    g_osCalls.rename = rename;
    EXPECT_TRUE(LoggedText("DiskSerialNumberRefresh delete offline disk fail, sn = SN-1"));
    ASSERT_NE(g_diskDataMgr[0], nullptr);
    EXPECT_EQ(g_diskDataMgr[0]->baseInfo, g_diskMgrObj[0]);
    EXPECT_EQ(g_diskMgrObj[0]->diskState, static_cast<uint32_t>(DISK_STATE_SLOW));
    EXPECT_THAT(doubles_.fetches, IsEmpty());
    EXPECT_THAT(doubles_.messages, IsEmpty());
    EXPECT_EQ(Refresh({"SN-2"}), 0u); // the next one succeeds
    EXPECT_EQ(IdOf("SN-1"), 0xFFFFFFFFu);
}

TEST_F(DiskSerialNumberRefreshTest, StoredSerialNumberWithoutTerminatorFailsTheOfflinePass)
{
    std::memset(g_diskMgrObj[0]->sn, 'q', DISK_SN_SIZE);

    EXPECT_EQ(DiskSerialNumberRefresh(nullptr, 0), DATA_MGR_ERR_FAIL);

    EXPECT_TRUE(LoggedText("offline disk sn error(sn= " + std::string(40, 'q') + ")"));
    EXPECT_EQ(Refresh({std::string(40, 'q')}), 0u); // in the list it is compared over 40 characters
}

TEST_F(DiskSerialNumberRefreshTest, FailedMessageAndAnnouncementDoNotStopAnOffline)
{
    Offer(MakeRecord("SN-2"));
    ASSERT_EQ(Refresh({"SN-1", "SN-2"}), 0u);
    doubles_.sendRet[DATA_MGR_RPC_POWER_OFF] = 32;
    doubles_.notifyRet = 1;

    EXPECT_EQ(DiskSerialNumberRefresh(nullptr, 0), 0u);

    EXPECT_EQ(TextCount("DiskHealthinfoInner send Rpc to agent failed! ret:[32]"), 2u);
    EXPECT_EQ(TextCount("DiskBaseInfoSet notify drm delete disk fail"), 2u);
    EXPECT_EQ(g_diskDataMgr[0], nullptr);
    EXPECT_EQ(g_diskDataMgr[1], nullptr);
}

TEST_F(DiskSerialNumberRefreshTest, ReturningDiskIsNew)
{
    for (const char *sn : {"SN-2", "SN-3"}) {
        Offer(MakeRecord(sn));
    }
    ASSERT_EQ(Refresh({"SN-1", "SN-2", "SN-3"}), 0u);
    ASSERT_EQ(DiskStateSet(1, Sn("SN-2"), DISK_STATE_FAULT), 0u);
    ASSERT_EQ(Refresh({"SN-1", "SN-3"}), 0u);
    ForgetCalls();

    EXPECT_EQ(Refresh({"SN-1", "SN-2", "SN-3"}), 0u);

    EXPECT_EQ(IdOf("SN-2"), 3u); // the cursor does not go back
    EXPECT_EQ(g_diskMgrObj[3]->diskState, static_cast<uint32_t>(DISK_STATE_NORMAL));
    EXPECT_EQ(g_diskDataMgr[3]->strategy, 0u);
    EXPECT_THAT(doubles_.events, ElementsAre(Event{3, "SN-2", DISK_EVENT_IN}));
}

TEST_F(DataMgrCreateNewDiskInfoTest, NeedsARecord)
{
    EXPECT_EQ(DataMgrCreateNewDiskInfo(nullptr), DATA_MGR_ERR_FAIL);
}

TEST_F(DataMgrCreateNewDiskInfoTest, OccupiedEntryIsNotOverwritten)
{
    DataMgrObj *occupant = DataMgrCreateEmptyDataMgrObj(1);
    g_diskDataMgr[1] = occupant;
    DiskMgrObj record = MakeRecord("SN-2");

    EXPECT_EQ(DataMgrCreateNewDiskInfo(&record), DATA_MGR_ERR_OBJECT_EXISTS);

    EXPECT_TRUE(LoggedText("DATA MGR OBJ FOR DISK ID 1 ALREADY INIT"));
    EXPECT_EQ(g_diskDataMgr[1], occupant);
    EXPECT_EQ(IdOf("SN-2"), 0xFFFFFFFFu);
}

TEST_F(DataMgrCreateNewDiskInfoTest, ReportsLackOfMemory)
{
    DiskMgrObj record = MakeRecord("SN-2");
    doubles_.noMemory = true;

    EXPECT_EQ(DataMgrCreateNewDiskInfo(&record), DATA_MGR_ERR_FAIL);

    EXPECT_TRUE(LoggedText("MALLOC MEM FOR NEW DISK MGR OBJ FAIL"));
    EXPECT_TRUE(LoggedText("Create New Disk Info By BaseInfo Fail"));
    EXPECT_EQ(g_diskDataMgr[1], nullptr);
}

TEST_F(DataMgrCreateNewDiskInfoTest, FailedAnnouncementAndMessageUndoNothing)
{
    DiskMgrObj record = MakeRecord("SN-2");
    doubles_.notifyRet = 5;
    doubles_.sendRet[DATA_MGR_RPC_DISK_INFO] = 32;

    EXPECT_EQ(DataMgrCreateNewDiskInfo(&record), 0u);

    EXPECT_TRUE(LoggedText("DiskBaseInfoSet notify drm add disk fail"));
    EXPECT_TRUE(LoggedText("DiskHealthinfoInner send Rpc to agent failed! ret:[32]"));
    EXPECT_NE(g_diskDataMgr[1], nullptr);
}

TEST_F(DataMgrNotifyDrmDiskEventTest, NeedsACallback)
{
    EXPECT_EQ(DataMgrSetDrmNotifyFunc(nullptr), 0u);

    EXPECT_EQ(DataMgrNotifyDrmDiskEvent(0, sn_, DISK_EVENT_IN), DATA_MGR_ERR_FAIL);

    EXPECT_TRUE(LoggedText("DataMgrNotifyDrmDiskEvent error: no notify func"));
    EXPECT_FALSE(LoggedText("DataMgrNotifyDrmDiskEvent success: diskId = 0,sn =SN-1, type = 0"));
}

TEST_F(DataMgrNotifyDrmDiskEventTest, PassesTheResultOnAndLogsInEitherCase)
{
    EXPECT_EQ(DataMgrNotifyDrmDiskEvent(3, sn_, DISK_EVENT_OUT), 0u);
    EXPECT_EQ(TextCount("DataMgrNotifyDrmDiskEvent success: diskId = 3,sn =SN-1, type = 1"), 1u);
    EXPECT_FALSE(LoggedText("DataMgrNotifyDrmDiskEvent error: bad return value"));

    EXPECT_EQ(DataMgrSetDrmNotifyFunc(NotifyWithFive), 0u);
    EXPECT_EQ(DataMgrNotifyDrmDiskEvent(3, sn_, DISK_EVENT_OUT), 5u);

    EXPECT_TRUE(LoggedText("DataMgrNotifyDrmDiskEvent error: bad return value"));
    EXPECT_EQ(TextCount("DataMgrNotifyDrmDiskEvent success: diskId = 3,sn =SN-1, type = 1"), 2u);
}

TEST_F(DataMgrInitTest, TakesOverAndAnnouncesTheRegistrysDisks)
{
    Register("SN-A", 2);
    Register("SN-B", 100);
    (void)DataMgrSetDrmNotifyFunc(FakeNotify);

    EXPECT_EQ(DataMgrInit(), 0u);

    ASSERT_NE(g_diskDataMgr[2], nullptr);
    ASSERT_NE(g_diskDataMgr[100], nullptr);
    EXPECT_EQ(g_diskDataMgr[100]->baseInfo, g_diskMgrObj[100]);
    EXPECT_EQ(g_diskDataMgr[100]->diskId, 100u);
    EXPECT_THAT(doubles_.events, ElementsAre(Event{2, "SN-A", DISK_EVENT_IN}, Event{100, "SN-B", DISK_EVENT_IN}));
    EXPECT_TRUE(LoggedText("Data Mgr Model Init start"));
    EXPECT_TRUE(LoggedText("Data Mgr Model Init success"));
    EXPECT_TRUE(LoggedText("NotifyAllDiskFindInit success"));
    EXPECT_EQ(DataMgrInit(), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("Data Mgr Master Model already init"));
}

TEST_F(DataMgrInitTest, FailedAnnouncementDoesNotFailTheStart)
{
    Register("SN-A", 2);
    Register("SN-B", 3);

    EXPECT_EQ(DataMgrInit(), 0u);

    EXPECT_EQ(TextCount("DataMgrInit notify drm add disk fail"), 1u); // ended at the first
    EXPECT_FALSE(LoggedText("NotifyAllDiskFindInit success"));
}

TEST_F(DataMgrInitTest, OccupiedEntryFailsTheStart)
{
    Register("SN-A", 2);
    g_diskDataMgr[2] = DataMgrCreateEmptyDataMgrObj(2);

    EXPECT_EQ(DataMgrInit(), DATA_MGR_ERR_FAIL);

    EXPECT_TRUE(LoggedText("CreateAllDataMgrObjsByDiskMgr fail : Already Exist Data Mgr Obj"));
    EXPECT_TRUE(LoggedText("DataMgrInit fail, Create All DataMgr Objs By Disk Mgr fail"));
}

TEST_F(DataMgrInitTest, LackOfMemoryFailsTheStart)
{
    Register("SN-A", 2);
    (void)DataMgrSetDrmNotifyFunc(FakeNotify); // the lock exists
    doubles_.noMemory = true;

    EXPECT_EQ(DataMgrInit(), DATA_MGR_ERR_FAIL);

    EXPECT_TRUE(LoggedText("CreateAllDataMgrObjsByDiskMgr fail : Create Empty Data Mgr Obj fail"));
}

TEST_F(DataMgrInitTest, EntryOfAnUnregisteredDiskIsCleared)
{
    g_diskDataMgr[7] = DataMgrCreateEmptyDataMgrObj(7);

    EXPECT_EQ(CreateAllDataMgrObjsByDiskMgr(), 0u);

    EXPECT_EQ(g_diskDataMgr[7], nullptr);
}

TEST_F(DataMgrInitTest, DestroyEmptiesTheStoreAndKeepsTheLock)
{
    EXPECT_EQ(DataMgrDestroy(), 0u);
    EXPECT_TRUE(LoggedText("Data Mgr Model start destroy"));
    EXPECT_TRUE(LoggedText("Data Mgr Master Model no init,can't destroy"));
    Register("SN-A", 100);
    ASSERT_EQ(DataMgrInit(), 0u);
    void *lock = g_dataMgrLock;

    EXPECT_EQ(DataMgrDestroy(), 0u);

    EXPECT_TRUE(LoggedText("Data Mgr Model destroy success"));
    EXPECT_EQ(g_diskDataMgr[100], nullptr);
    EXPECT_EQ(g_dataMgrLock, lock);
    DiskDrmInfo out{};
    EXPECT_EQ(DiskDrmInfoCliGet(100, &out, sizeof(out)), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("Data Mgr Master not init"));
    EXPECT_EQ(DataMgrInit(), 0u);
}

TEST_F(DataMgrDisableTest, EnableMakesFreshObjectsAndTellsNobody)
{
    g_diskDataMgr[0]->strategy = 2;

    DataMgrDisable();
    EXPECT_EQ(g_diskDataMgr[0], nullptr);
    DataMgrEnable();

    ASSERT_NE(g_diskDataMgr[0], nullptr);
    EXPECT_EQ(g_diskDataMgr[0]->strategy, 0u);
    EXPECT_THAT(doubles_.events, IsEmpty());
    DataMgrEnable(); // enabled already: nothing to do
    EXPECT_FALSE(LoggedText("DataMgrEnable fail, Create All DataMgr Objs By Disk Mgr fail"));
}

TEST_F(DataMgrDisableTest, RefreshStillRunsAndItsNewDiskBlocksTheEnable)
{
    Offer(MakeRecord("SN-2"));
    DataMgrDisable();

    EXPECT_EQ(Refresh({"SN-2"}), 0u); // "SN-1" is not taken offline: the table is empty

    EXPECT_EQ(IdOf("SN-1"), 0u);
    EXPECT_EQ(IdOf("SN-2"), 1u);
    EXPECT_NE(g_diskDataMgr[1], nullptr);
    DataMgrEnable();
    EXPECT_TRUE(LoggedText("DataMgrEnable fail, Create All DataMgr Objs By Disk Mgr fail"));
    DiskDrmInfo drm{};
    EXPECT_EQ(DiskDrmInfoSet(1, Sn("SN-2"), &drm), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("Data Mgr init = 1,Mgr Enable =0"));
}
