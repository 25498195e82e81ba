#include "data_mgr/data_mgr_master/data_mgr_master.h"

#include <atomic>
#include <thread>

#include "data_mgr/data_mgr_master/data_mgr_io_stat.h"
#include "data_mgr/data_mgr_master/data_mgr_master_get.h"
#include "data_mgr/data_mgr_master/data_mgr_master_set.h"
#include "unit/data_mgr/data_mgr_master/data_mgr_fixture.h"

using data_mgr_test::DataMgrBareTest;
using data_mgr_test::DataMgrTest;
using data_mgr_test::Event;
using data_mgr_test::FailRename;
using data_mgr_test::FakeNotify;
using data_mgr_test::kModule;
using data_mgr_test::MakeRecord;
using data_mgr_test::RecordingFree;
using data_mgr_test::Sn;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class BeforeInitTest : public DataMgrBareTest {};
class DataMgrDiskInfoSetTest : public DataMgrTest {};
class DataMgrDiskInfoGetTest : public DataMgrTest {};
class DataMgrBaseInfoSetInnerTest : public DataMgrTest {};
class DataMgrStrategySetInnerTest : public DataMgrTest {};
class DataMgrDiskStateSetInnerTest : public DataMgrTest {};
class ListAllOnlineDiskTest : public DataMgrTest {};
class DispatchTableTest : public DataMgrTest {};
class ConcurrencyTest : public DataMgrTest {};

TEST_F(BeforeInitTest, EveryDoorRefusesWithItsText)
{
    Sn sn("SN-1");
    DiskMgrObj record = MakeRecord("SN-1");
    uint32_t count = 77;
    ASSERT_EQ(g_dataMgrLock, nullptr);

    EXPECT_EQ(DiskBaseInfoSet(sn, &record), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("Data Mgr init = 0,Mgr Enable =0"));
    EXPECT_EQ(DiskBaseInfoGet(0, sn, &record, sizeof(record)), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(TextCount("Data Mgr Master not init"), 1u);
    EXPECT_EQ(DiskSerialNumberRefresh(nullptr, 0), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(TextCount("Data Mgr Master not init"), 2u);
    EXPECT_EQ(ListAllOnlineDisk(nullptr, nullptr, 0, &count), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("Data Mgr Master Not init"));
    EXPECT_EQ(count, 77u);
    EXPECT_EQ(DiskStrategyStrGet(0), nullptr);
    DataMgrDisable();
    DataMgrEnable();
    EXPECT_EQ(g_dataMgrLock, nullptr);

    (void)DataMgrSetDrmNotifyFunc(FakeNotify); // makes the lock, but starts nothing
    ASSERT_NE(g_dataMgrLock, nullptr);
    ClearLogs();
    DataMgrEnable();
    EXPECT_EQ(DiskBaseInfoSet(sn, &record), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("Data Mgr init = 0,Mgr Enable =0"));
    EXPECT_EQ(DiskBaseInfoGet(0, sn, &record, sizeof(record)), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(DiskSerialNumberRefresh(nullptr, 0), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(ListAllOnlineDisk(nullptr, nullptr, 0, &count), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(DataMgrInit(), 0u);
}

TEST_F(DispatchTableTest, RowsStandInOrder)
{
    EXPECT_EQ(g_diskInfoSetFunc[0], DataMgrBaseInfoSetInner);
    EXPECT_EQ(g_diskInfoSetFunc[1], DataMgrIoInfoSetInner);
    EXPECT_EQ(g_diskInfoSetFunc[2], DataMgrSmartInfoSetInner);
    EXPECT_EQ(g_diskInfoSetFunc[3], DataMgrDrmInfoSetInner);
    EXPECT_EQ(g_diskInfoSetFunc[4], DataMgrNodeInfoSetInner);
    EXPECT_EQ(g_diskInfoSetFunc[5], DataMgrStrategySetInner);
    EXPECT_EQ(g_diskInfoSetFunc[6], DataMgrDiskStateSetInner);
    EXPECT_EQ(g_diskInfoSetFunc[7], nullptr);
    EXPECT_EQ(g_diskInfoGetFunc[0], DataMgrBaseInfoGetInner);
    EXPECT_EQ(g_diskInfoGetFunc[1], DataMgrIoInfoGetInner);
    EXPECT_EQ(g_diskInfoGetFunc[2], DataMgrSmartInfoGetInner);
    EXPECT_EQ(g_diskInfoGetFunc[3], DataMgrDrmInfoGetInner);
    EXPECT_EQ(g_diskInfoGetFunc[4], DataMgrNodeInfoGetInner);
    EXPECT_EQ(g_diskInfoGetFunc[5], DataMgrStrategyGetInner);
    EXPECT_EQ(g_diskInfoGetFunc[6], DataMgrDiskStateGetInner);
    EXPECT_EQ(g_diskInfoGetFunc[7], DataMgrStrategyStrGetInner);
    EXPECT_EQ(GetDataMgrObjs(), g_diskDataMgr);
}

TEST_F(DispatchTableTest, EmptyObjectHasNoPredictionAndZeros)
{
    DataMgrObj *obj = DataMgrCreateEmptyDataMgrObj(5);
    ASSERT_NE(obj, nullptr);
    DataMgrObj expected{};
    std::memset(static_cast<void *>(&expected), 0, sizeof(expected));
    expected.diskId = 5;
    expected.drmInfo.diskLife = 0xFFFFFFFFu;

    EXPECT_EQ(std::memcmp(obj, &expected, sizeof(expected)), 0);
    g_corvaneInfra.memFree(obj);

    doubles_.noMemory = true;
    EXPECT_EQ(DataMgrCreateEmptyDataMgrObj(5), nullptr);
    EXPECT_TRUE(LoggedText("MALLOC MEM FOR NEW DISK MGR OBJ FAIL"));
}

TEST_F(DataMgrDiskInfoSetTest, RefusesBadSerialNumberReferences)
{
    DiskHealthInfo health{};
    char text[] = "SN-1";

    EXPECT_EQ(DataMgrDiskInfoSet(0, {.len = 41, .buf = text}, &health, 2), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("DataMgrDiskInfoSet Param error, snLen = 41, diskId =0"));
    EXPECT_EQ(DataMgrDiskInfoSet(DISK_ID_BY_SN, {.len = 4, .buf = nullptr}, &health, 2), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("DataMgrDiskInfoSet Param error, snLen = 4, diskId =4294967295"));
    EXPECT_EQ(DataMgrDiskInfoSet(0, {.len = 40, .buf = sn_.operator DiskSnRef().buf}, &health, 2), 0u);
}

TEST_F(DataMgrDiskInfoSetTest, LogsStartAndEnd)
{
    DiskHealthInfo health{};
    health.powerOnHours = 42;

    EXPECT_EQ(DiskHealthInfoSet(sn_, &health), 0u);

    EXPECT_TRUE(Logged(CORVANE_LOG_DEBUG, kModule, "SET INFO START, INFO TYPE = 2"));
    EXPECT_TRUE(LoggedText("SET INFO SUCCESS, INFO TYPE = 2"));
    EXPECT_EQ(g_diskDataMgr[0]->healthInfo.powerOnHours, 42u);
}

TEST_F(DataMgrDiskInfoSetTest, IdentifierFromSixtyFourIsReadableButTakesNoUpdates)
{
    Register("SN-63", 63);
    Register("SN-70", 70);
    DataMgrDisable();
    DataMgrEnable();
    DiskDrmInfo drm{.healthScore = 1, .diskLife = 2};
    DiskDrmInfo out{};

    EXPECT_EQ(DiskDrmInfoSet(63, Sn("SN-63"), &drm), 0u);
    EXPECT_EQ(DiskDrmInfoSet(70, Sn("SN-70"), &drm), DATA_MGR_ERR_NO_OBJECT);
    EXPECT_TRUE(LoggedText("DataMgrDiskInfoSet error,disk id = 70,info type= 3obj not init or vaild disk id"));
    EXPECT_EQ(DiskDrmInfoGet(70, Sn("SN-70"), &out, sizeof(out)), 0u);
    EXPECT_EQ(out.diskLife, DISK_LIFE_UNKNOWN);
    DiskHealthInfo health{};
    EXPECT_EQ(DiskHealthInfoSet(Sn("SN-70"), &health), DATA_MGR_ERR_NO_OBJECT);
}

TEST_F(DataMgrDiskInfoSetTest, ChecksObjectAndSerialNumber)
{
    DiskDrmInfo drm{};

    EXPECT_EQ(DiskDrmInfoSet(1, sn_, &drm), DATA_MGR_ERR_NO_OBJECT);
    EXPECT_TRUE(LoggedText("DataMgrDiskInfoSet error,disk id = 1,info type= 3obj not init or vaild disk id"));
    EXPECT_EQ(DiskDrmInfoSet(0, Sn("SN-2"), &drm), DATA_MGR_ERR_SN_MISMATCH);
    EXPECT_TRUE(LoggedText("DataMgrDiskInfoSet,disk id = 0,info type= 3,sn=SN-2sn not valid or match diskId"));
    EXPECT_EQ(DiskDrmInfoSet(0, Sn(std::string(40, 'x')), &drm), DATA_MGR_ERR_SN_MISMATCH);
    EXPECT_TRUE(LoggedText("DataMgrDiskInfoSet,disk id = 0,info type= 3,sn=" + std::string(40, 'x') +
                           "sn not valid or match diskId"));
    DiskMgrObj *borrowed = g_diskDataMgr[0]->baseInfo;
    g_diskDataMgr[0]->baseInfo = nullptr;
    EXPECT_EQ(DiskDrmInfoSet(0, sn_, &drm), DATA_MGR_ERR_SN_MISMATCH);
    g_diskDataMgr[0]->baseInfo = borrowed;
}

TEST_F(DataMgrDiskInfoSetTest, ComparesFortyCharactersWithoutTerminator)
{
    std::memset(g_diskDataMgr[0]->baseInfo->sn, 'z', DISK_SN_SIZE);
    std::string longer(60, 'z');
    DiskDrmInfo drm{.healthScore = 9, .diskLife = 9};

    EXPECT_EQ(DiskDrmInfoSet(0, {.len = 40, .buf = longer.data()}, &drm), 0u);

    EXPECT_EQ(g_diskDataMgr[0]->drmInfo.healthScore, 9u);
}

TEST_F(DataMgrDiskInfoSetTest, UnknownDiskIsRefusedByTheWhiteList)
{
    DiskMgrObj record = MakeRecord("SN-N", DISK_TYPE_HDD_SATA);
    DiskHealthInfo health{};

    EXPECT_EQ(DiskBaseInfoSet(Sn("SN-N"), &record), DATA_MGR_ERR_NOT_IN_WHITELIST);
    EXPECT_EQ(DiskHealthInfoSet(Sn("SN-M"), &health), DATA_MGR_ERR_NOT_IN_WHITELIST);

    EXPECT_EQ(IdOf("SN-N"), 0xFFFFFFFFu);
    EXPECT_FALSE(LoggedText("SET INFO FAIL, INFO TYPE = 0"));
}

TEST_F(DataMgrDiskInfoSetTest, BaseRecordOfAnAdmittedDiskCreatesIt)
{
    DiskMgrObj record = MakeRecord("SN-2");

    EXPECT_EQ(DiskBaseInfoSet(Sn("SN-2"), &record), 0u);

    EXPECT_EQ(record.diskId, 1u);
    ASSERT_NE(g_diskDataMgr[1], nullptr);
    EXPECT_EQ(g_diskDataMgr[1]->baseInfo, g_diskMgrObj[1]);
    EXPECT_EQ(g_diskMgrObj[1]->diskState, static_cast<uint32_t>(DISK_STATE_NORMAL));
    EXPECT_THAT(doubles_.events, ElementsAre(Event{1, "SN-2", DISK_EVENT_IN}));
    EXPECT_THAT(MessageTypes(), ElementsAre(0u));
}

TEST_F(DataMgrDiskInfoSetTest, OtherRecordOfAnAdmittedDiskFailsAsUnknown)
{
    Offer(MakeRecord("SN-2"));
    DiskHealthInfo health{};

    EXPECT_EQ(DiskHealthInfoSet(Sn("SN-2"), &health), DISK_MGR_ERR_UNKNOWN_SN);

    EXPECT_TRUE(LoggedText("DataMgrDiskInfoSet fail, sn = SN-2,info type= 2"));
    EXPECT_EQ(IdOf("SN-2"), 0xFFFFFFFFu);
}

TEST_F(DataMgrDiskInfoSetTest, FailedCreationIsReported)
{
    g_corvaneInfra.atomicSet(g_diskNumAtomic, 64);
    DiskMgrObj record = MakeRecord("SN-2");

    EXPECT_EQ(DiskBaseInfoSet(Sn("SN-2"), &record), DISK_MGR_ERR_DISK_LIMIT);

    EXPECT_TRUE(LoggedText("Disk SN-2 GET NEW DISK ID ERROR, RET = 2"));
    EXPECT_TRUE(LoggedText("DataMgrDiskInfoSet fail, sn = SN-2,info type= 0"));
    g_corvaneInfra.atomicSet(g_diskNumAtomic, 1);
}

TEST_F(DataMgrDiskInfoSetTest, RefusesWhileDisabled)
{
    DiskHealthInfo health{};
    DataMgrDisable();

    EXPECT_EQ(DiskHealthInfoSet(sn_, &health), DATA_MGR_ERR_FAIL);

    EXPECT_TRUE(LoggedText("Data Mgr init = 1,Mgr Enable =0"));
}

TEST_F(DataMgrDiskInfoSetTest, TypesWithoutASetterFail)
{
    for (const uint32_t type : {7u, 8u, 0xFFFFFFFFu}) {
        uint32_t value = 0;

        EXPECT_EQ(DataMgrDiskInfoSet(0, sn_, &value, type), DATA_MGR_ERR_FAIL);
        EXPECT_EQ(DataMgrDiskInfoSet(0, sn_, nullptr, type), DATA_MGR_ERR_FAIL);
    }
    EXPECT_TRUE(LoggedText("SET INFO FAIL, INFO TYPE = 7"));
}

TEST_F(DataMgrDiskInfoSetTest, MissingRecordsFailWithTheirTexts)
{
    EXPECT_EQ(DiskBaseInfoSet(sn_, nullptr), DATA_MGR_ERR_FAIL);
    EXPECT_NE(DiskHealthInfoSet(sn_, nullptr), 0u);
    EXPECT_TRUE(LoggedText("DiskHealthInfoSet copy info error"));
    EXPECT_NE(DiskDrmInfoSet(0, sn_, nullptr), 0u);
    EXPECT_EQ(TextCount("DataMgrDrmInfoSetInner copy info error"), 1u);
    EXPECT_NE(DiskNodeInfoSet(sn_, nullptr), 0u);
    EXPECT_EQ(TextCount("DataMgrDrmInfoSetInner copy info error"), 2u);
    EXPECT_EQ(DataMgrDiskInfoSet(0, sn_, nullptr, DISK_INFO_STRATEGY), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(DataMgrDiskInfoSet(0, sn_, nullptr, DISK_INFO_STATE), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(g_diskDataMgr[0]->drmInfo.diskLife, DISK_LIFE_UNKNOWN);
}

TEST_F(DataMgrDiskInfoGetTest, RecordsComeBackAsStored)
{
    DiskHealthInfo health{};
    health.wearInt = 3;
    DiskDrmInfo drm{.healthScore = 80, .diskLife = 1000};
    DiskNodeInfo node{};
    node.opaque[63] = 7;
    ASSERT_EQ(DiskHealthInfoSet(sn_, &health), 0u);
    ASSERT_EQ(DiskDrmInfoSet(0, sn_, &drm), 0u);
    ASSERT_EQ(DiskNodeInfoSet(sn_, &node), 0u);
    DiskMgrObj base{};
    DiskHealthInfo healthOut{};
    DiskDrmInfo drmOut{};
    DiskNodeInfo nodeOut{};

    EXPECT_EQ(DiskBaseInfoGet(0, sn_, &base, sizeof(base)), 0u);
    EXPECT_EQ(DiskHealthInfoGet(0, sn_, &healthOut, sizeof(healthOut)), 0u);
    EXPECT_EQ(DiskDrmInfoGet(0, sn_, &drmOut, sizeof(drmOut)), 0u);
    EXPECT_EQ(DiskNodeInfoGet(0, sn_, &nodeOut, sizeof(nodeOut)), 0u);

    EXPECT_EQ(std::memcmp(&base, g_diskMgrObj[0], sizeof(base)), 0);
    EXPECT_EQ(healthOut.wearInt, 3u);
    EXPECT_EQ(drmOut.diskLife, 1000u);
    EXPECT_EQ(nodeOut.opaque[63], 7u);
    EXPECT_TRUE(LoggedText("GET INFO START, INFO TYPE = 0"));
    EXPECT_TRUE(LoggedText("GET INFO SUCCESS, INFO TYPE = 4"));
    DiskMgrObj cliBase{};
    EXPECT_EQ(DiskBaseInfoCliGet(0, &cliBase, sizeof(cliBase)), 0u);
    EXPECT_EQ(std::memcmp(&base, &cliBase, sizeof(base)), 0);
    EXPECT_EQ(DiskSmartInfoCliGet(0, &healthOut, sizeof(healthOut)), 0u);
    EXPECT_EQ(DiskDrmInfoCliGet(0, &drmOut, sizeof(drmOut)), 0u);
    EXPECT_EQ(DiskIoStatInfoCliGet(0, &base, sizeof(base)), DATA_MGR_ERR_FAIL);
}

TEST_F(DataMgrDiskInfoGetTest, TooSmallBuffersFailWithTheirTexts)
{
    char buf[sizeof(DiskMgrObj)] = {};
    g_diskDataMgr[0]->ioStatCount = 1;

    EXPECT_EQ(DiskBaseInfoGet(0, sn_, buf, 415), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("BaseInfo copy info to buf fail,disk id = 0,buf size = 415"));
    EXPECT_EQ(DiskIoStatInfoGet(0, sn_, buf, 71), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("IoInfo copy info fail,disk id = 0,buf size = 71"));
    EXPECT_EQ(DiskHealthInfoGet(0, sn_, buf, 135), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("SmartInfo copy info to buf fail,disk id = 0,buf size = 135"));
    EXPECT_EQ(DiskDrmInfoGet(0, sn_, buf, 7), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("DrmInfo copy info to buf fail,disk id = 0,buf size = 7"));
    EXPECT_EQ(DiskNodeInfoGet(0, sn_, buf, 63), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("NodeInfo copy info to buf fail,disk id = 0,buf size = 63"));
    for (uint32_t type = 0; type < DISK_INFO_BUTT; type++) {
        EXPECT_EQ(DataMgrDiskInfoGet(0, sn_, nullptr, 4096, type), DATA_MGR_ERR_FAIL) << type;
    }
    EXPECT_EQ(DataMgrDiskInfoGet(0, sn_, buf, sizeof(buf), 8), DATA_MGR_ERR_FAIL);
}

TEST_F(DataMgrDiskInfoGetTest, RefusesBadArguments)
{
    DiskDrmInfo out{};
    char text[] = "SN-1";

    EXPECT_EQ(DiskDrmInfoGet(0, {.len = 41, .buf = text}, &out, 8), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("DataMgrDiskInfoGet Param error, snLen = 41, diskId =0"));
    EXPECT_EQ(DiskDrmInfoGet(0, {.len = 0, .buf = nullptr}, &out, 8), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(DiskDrmInfoGet(128, sn_, &out, 8), DATA_MGR_ERR_FAIL);
    EXPECT_TRUE(LoggedText("DataMgrDiskInfoGet Param error, snLen = 40, diskId =128"));
    EXPECT_EQ(DiskDrmInfoGet(DISK_ID_BY_SN, sn_, &out, 8), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(DiskDrmInfoGet(127, sn_, &out, 8), DATA_MGR_ERR_NO_OBJECT);
    EXPECT_TRUE(LoggedText("DataMgrDiskInfoGet error,disk id = 127,info type= 3obj not init or vaild disk id"));
}

TEST_F(DataMgrDiskInfoGetTest, LengthZeroTakesAnySerialNumber)
{
    DiskDrmInfo out{};
    char wrong[] = "WRONG";

    EXPECT_EQ(DiskDrmInfoGet(0, {.len = 0, .buf = wrong}, &out, sizeof(out)), 0u);
    EXPECT_EQ(DiskDrmInfoGet(0, {.len = 5, .buf = wrong}, &out, sizeof(out)), DATA_MGR_ERR_SN_MISMATCH);

    EXPECT_TRUE(LoggedText("DataMgrDiskInfoGet,disk id = 0,info type= 3,sn=WRONGsn not valid or match diskId"));
    DiskMgrObj *borrowed = g_diskDataMgr[0]->baseInfo;
    g_diskDataMgr[0]->baseInfo = nullptr;
    EXPECT_EQ(DiskDrmInfoGet(0, {.len = 0, .buf = wrong}, &out, sizeof(out)), DATA_MGR_ERR_SN_MISMATCH);
    g_diskDataMgr[0]->baseInfo = borrowed;
}

TEST_F(DataMgrDiskInfoGetTest, StateAndStrategyComeAsNumbers)
{
    uint32_t value = 99;
    ASSERT_EQ(DiskStateSet(0, sn_, DISK_STATE_SLOW), 0u);

    EXPECT_EQ(DiskDiskStateInfoCliGet(0, sn_, &value), 0u);
    EXPECT_EQ(value, 4u);
    EXPECT_EQ(DiskStrategyGet(0, sn_, &value), 0u);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(DiskStrategyGet(0, sn_, nullptr), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(DataMgrDiskInfoGet(0, sn_, &value, 0, DISK_INFO_STATE), 0u); // the size is not looked at
}

TEST_F(DataMgrDiskInfoGetTest, WorksWhileDisabledOnWhatThereIs)
{
    DiskDrmInfo out{};
    DataMgrDisable();

    EXPECT_EQ(DiskDrmInfoGet(0, sn_, &out, sizeof(out)), DATA_MGR_ERR_NO_OBJECT);
    EXPECT_EQ(Refresh({"SN-1"}), 0u);
}

TEST_F(DataMgrBaseInfoSetInnerTest, RepeatedReportDoesNothing)
{
    DiskMgrObj record = *g_diskMgrObj[0];
    record.diskId = 0xFFFFFFFFu; // overwritten before the comparison
    record.diskState = DISK_STATE_KEEP;
    const std::string path = Prefix() + "/config/disk_mgr.config";
    ASSERT_EQ(std::remove(path.c_str()), 0);

    EXPECT_EQ(DiskBaseInfoSet(sn_, &record), 0u);

    EXPECT_EQ(record.diskId, 0u);
    EXPECT_EQ(record.diskState, static_cast<uint32_t>(DISK_STATE_NORMAL));
    EXPECT_THAT(doubles_.messages, IsEmpty());
    EXPECT_EQ(ReadFile(path), ""); // no save
}

TEST_F(DataMgrBaseInfoSetInnerTest, KeepsTheStoredStateAndSendsTheRecord)
{
    ASSERT_EQ(DiskStateSet(0, sn_, DISK_STATE_FAULT), 0u);
    ForgetCalls();
    DiskMgrObj record = MakeRecord("SN-1");
    record.slotId = 17;

    EXPECT_EQ(DiskBaseInfoSet(sn_, &record), 0u);

    EXPECT_EQ(g_diskMgrObj[0]->slotId, 17u);
    EXPECT_EQ(g_diskMgrObj[0]->diskState, static_cast<uint32_t>(DISK_STATE_FAULT));
    ASSERT_THAT(MessageTypes(), ElementsAre(0u));
    EXPECT_EQ(doubles_.messages[0].record.slotId, 17u);
    EXPECT_EQ(doubles_.messages[0].record.diskState, static_cast<uint32_t>(DISK_STATE_FAULT));
    EXPECT_THAT(RegistryFile(), HasSubstr("17"));
}

TEST_F(DataMgrBaseInfoSetInnerTest, FailedMessageIsOnlyLogged)
{
    doubles_.sendRet[DATA_MGR_RPC_DISK_INFO] = 32;
    DiskMgrObj record = MakeRecord("SN-1");
    record.slotId = 17;

    EXPECT_EQ(DiskBaseInfoSet(sn_, &record), 0u);

    EXPECT_TRUE(LoggedText("DiskHealthinfoInner send Rpc to agent failed! ret:[32]"));
}

TEST_F(DataMgrBaseInfoSetInnerTest, RegistryRefusalFails)
{
    g_osCalls.rename = FailRename;
    DiskMgrObj record = MakeRecord("SN-1");
    record.slotId = 17;

    EXPECT_EQ(DiskBaseInfoSet(sn_, &record), DATA_MGR_ERR_FAIL);

    EXPECT_TRUE(LoggedText("DiskBaseInfoSet update disk id = 0 error: update to disk mgr fail"));
    EXPECT_THAT(doubles_.messages, IsEmpty());
}

TEST_F(DataMgrBaseInfoSetInnerTest, OfflineRecordRemovesTheDisk)
{
    DiskMgrObj record = MakeRecord("SN-1");
    record.diskState = DISK_STATE_OFFLINE;

    EXPECT_EQ(DiskBaseInfoSet(sn_, &record), 0u);

    EXPECT_EQ(g_diskDataMgr[0], nullptr);
    EXPECT_EQ(g_diskMgrObj[0], nullptr);
    EXPECT_THAT(MessageTypes(), ElementsAre(3u));
    EXPECT_EQ(doubles_.messages[0].sn, "SN-1");
    EXPECT_THAT(doubles_.events, ElementsAre(Event{0, "SN-1", DISK_EVENT_OUT}));
    EXPECT_TRUE(LoggedText("Offline disk (sn = SN-1, disk id = 0) success"));
    EXPECT_THAT(RegistryFile(), Not(HasSubstr("SN-1")));
}

TEST_F(DataMgrBaseInfoSetInnerTest, OfflineWorksOnTheStoredRecordItself)
{
    DiskMgrObj *stored = g_diskMgrObj[0];
    DiskMgrObj record = *stored;
    record.diskState = DISK_STATE_OFFLINE;
    doubles_.sendRet[DATA_MGR_RPC_POWER_OFF] = 32;
    doubles_.notifyRet = 5;

    // The serial number lies in memory that the registry frees on the way.
    EXPECT_EQ(DataMgrDiskInfoSet(0, {.len = 40, .buf = stored->sn}, &record, DISK_INFO_BASE), 0u);

    EXPECT_TRUE(LoggedText("DiskPoweroff info send Rpc to agent failed! ret:[32]"));
    EXPECT_TRUE(LoggedText("DiskBaseInfoSet notify drm delete disk fail"));
    EXPECT_TRUE(LoggedText("Offline disk (sn = SN-1, disk id = 0) success"));
    EXPECT_EQ(doubles_.messages[0].sn, "SN-1");
}

TEST_F(DataMgrBaseInfoSetInnerTest, FailedOfflineSaveKeepsTheDiskAsItWas)
{
    ASSERT_EQ(DiskStateSet(0, sn_, DISK_STATE_PREFAIL), 0u);
    ForgetCalls();
    g_osCalls.rename = FailRename;
    DiskMgrObj record = MakeRecord("SN-1");
    record.diskState = DISK_STATE_OFFLINE;

    EXPECT_EQ(DiskBaseInfoSet(sn_, &record), DATA_MGR_ERR_FAIL);

    ASSERT_NE(g_diskDataMgr[0], nullptr);
    EXPECT_EQ(g_diskDataMgr[0]->baseInfo->diskState, static_cast<uint32_t>(DISK_STATE_PREFAIL));
    EXPECT_THAT(doubles_.events, IsEmpty());
}

TEST_F(DataMgrStrategySetInnerTest, StoresAndSendsTheText)
{
    const char *texts[] = {"No action required", "Migrate data and replace the hard disk", "Replace the hard disk"};
    for (uint32_t strategy = 0; strategy < 3; strategy++) {
        ForgetCalls();

        EXPECT_EQ(DiskStrategySet(0, sn_, strategy), 0u);

        EXPECT_EQ(g_diskDataMgr[0]->strategy, strategy);
        EXPECT_STREQ(DiskStrategyStrGet(0), texts[strategy]);
        ASSERT_THAT(MessageTypes(), ElementsAre(2u));
        EXPECT_EQ(doubles_.messages[0].text, texts[strategy]);
    }
    EXPECT_EQ(DiskStrategyStrGet(1), nullptr);
}

TEST_F(DataMgrStrategySetInnerTest, StrategyThreeHasNoTextAndItsFailedMessageIsNoFailure)
{
    doubles_.sendRet[DATA_MGR_RPC_HANDLE_STRATEGY] = 0xFFFFFFFFu;

    EXPECT_EQ(DiskStrategySet(0, sn_, 3), 0u);

    EXPECT_EQ(g_diskDataMgr[0]->strategy, 3u);
    EXPECT_EQ(DiskStrategyStrGet(0), nullptr);
    ASSERT_EQ(doubles_.messages.size(), 1u);
    EXPECT_EQ(doubles_.messages[0].text, "(null)");
    EXPECT_TRUE(LoggedText("HandleStrategyStr info send Rpc to agent failed! ret:[-1]"));
}

TEST_F(DataMgrStrategySetInnerTest, FourAndAboveChangeNothing)
{
    ASSERT_EQ(DiskStrategySet(0, sn_, 2), 0u);
    ForgetCalls();

    EXPECT_EQ(DiskStrategySet(0, sn_, 4), DATA_MGR_ERR_FAIL);

    EXPECT_EQ(g_diskDataMgr[0]->strategy, 2u);
    EXPECT_THAT(doubles_.messages, IsEmpty());
}

TEST_F(DataMgrDiskStateSetInnerTest, EachStateBringsItsStrategy)
{
    struct Case {
        uint32_t state;
        uint32_t strategy;
        std::vector<uint32_t> messages;
    };
    for (const Case &c : {Case{DISK_STATE_PREFAIL, 1, {1, 2}}, Case{DISK_STATE_FAULT, 2, {1, 2}},
                          Case{DISK_STATE_SLOW, 1, {1, 2}}, Case{DISK_STATE_NORMAL, 1, {1}}}) {
        ForgetCalls();

        EXPECT_EQ(DiskStateSet(0, sn_, c.state), 0u);

        EXPECT_EQ(g_diskMgrObj[0]->diskState, c.state);
        EXPECT_EQ(g_diskDataMgr[0]->strategy, c.strategy);
        EXPECT_EQ(MessageTypes(), c.messages);
        EXPECT_EQ(doubles_.messages[0].state, c.state);
    }
    EXPECT_EQ(DiskStateSet(0, sn_, DISK_STATE_KEEP), DATA_MGR_ERR_FAIL);
    EXPECT_EQ(g_diskMgrObj[0]->diskState, static_cast<uint32_t>(DISK_STATE_NORMAL));
}

TEST_F(DataMgrDiskStateSetInnerTest, IsSavedAndSurvivesARestart)
{
    ASSERT_EQ(DiskStateSet(0, sn_, DISK_STATE_FAULT), 0u);

    (void)DataMgrDestroy();
    (void)DiskMgrDestroy();
    ASSERT_EQ(DiskMgrInit(nullptr), 0u);
    ASSERT_EQ(DataMgrInit(), 0u);

    uint32_t state = 0;
    EXPECT_EQ(DiskDiskStateInfoCliGet(0, sn_, &state), 0u);
    EXPECT_EQ(state, static_cast<uint32_t>(DISK_STATE_FAULT));
}

TEST_F(DataMgrDiskStateSetInnerTest, DataAgentDownReturnsItsFailureAfterTheChange)
{
    doubles_.sendRet[DATA_MGR_RPC_DISK_STATE] = 32;

    EXPECT_EQ(DiskStateSet(0, sn_, DISK_STATE_PREFAIL), 32u);

    EXPECT_TRUE(LoggedText("DiskState info send Rpc to agent failed! ret:[32]"));
    EXPECT_EQ(g_diskMgrObj[0]->diskState, static_cast<uint32_t>(DISK_STATE_PREFAIL));
    EXPECT_EQ(g_diskDataMgr[0]->strategy, 1u);
    EXPECT_THAT(MessageTypes(), ElementsAre(1u, 2u));
}

TEST_F(DataMgrDiskStateSetInnerTest, FailedStrategyMessageDoesNotShow)
{
    doubles_.sendRet[DATA_MGR_RPC_HANDLE_STRATEGY] = 32;

    EXPECT_EQ(DiskStateSet(0, sn_, DISK_STATE_FAULT), 0u);
}

TEST_F(DataMgrDiskStateSetInnerTest, OfflineLeavesTheObjectAllocated)
{
    DataMgrObj *former = g_diskDataMgr[0];
    DiskMgrObj *formerBase = g_diskMgrObj[0];
    char *storedSn = formerBase->sn;
    g_corvaneInfra.memFree = RecordingFree;

    EXPECT_EQ(DiskStateSet(0, {.len = 40, .buf = storedSn}, DISK_STATE_OFFLINE), 0u);

    EXPECT_EQ(g_diskDataMgr[0], nullptr);
    EXPECT_EQ(g_diskMgrObj[0], nullptr);
    EXPECT_THAT(doubles_.freed, Not(Contains(static_cast<void *>(former))));
    EXPECT_THAT(doubles_.freed, Contains(static_cast<void *>(formerBase)));
    EXPECT_EQ(former->drmInfo.diskLife, DISK_LIFE_UNKNOWN);
    EXPECT_THAT(MessageTypes(), ElementsAre(3u));
    EXPECT_EQ(doubles_.messages[0].sn, "SN-1");
    EXPECT_THAT(doubles_.events, ElementsAre(Event{0, "SN-1", DISK_EVENT_OUT}));
    EXPECT_TRUE(LoggedText("Offline disk (sn = SN-1, disk id = 0) success"));
}

TEST_F(DataMgrDiskStateSetInnerTest, OfflineReturnsTheAnnouncementsResult)
{
    doubles_.sendRet[DATA_MGR_RPC_POWER_OFF] = 32;
    doubles_.notifyRet = 7;

    EXPECT_EQ(DiskStateSet(0, sn_, DISK_STATE_OFFLINE), 7u);

    EXPECT_TRUE(LoggedText("DiskPoweroff info send Rpc to agent failed! ret:[32]"));
    EXPECT_TRUE(LoggedText("DiskBaseInfoSet notify drm delete disk fail"));
}

TEST_F(DataMgrDiskStateSetInnerTest, OfflineGoesOnAfterAFailedMessage)
{
    doubles_.sendRet[DATA_MGR_RPC_POWER_OFF] = 32;

    EXPECT_EQ(DiskStateSet(0, sn_, DISK_STATE_OFFLINE), 0u);
}

TEST_F(DataMgrDiskStateSetInnerTest, FailedOfflineSaveKeepsTheDiskRegisteredInItsState)
{
    ASSERT_EQ(DiskStateSet(0, sn_, DISK_STATE_FAULT), 0u);
    auto rename = g_osCalls.rename;
    g_osCalls.rename = FailRename;

    (void)DiskStateSet(0, sn_, DISK_STATE_OFFLINE);

    g_osCalls.rename = rename;
    ASSERT_NE(g_diskMgrObj[0], nullptr);
    EXPECT_EQ(g_diskMgrObj[0]->diskState, static_cast<uint32_t>(DISK_STATE_FAULT));
    EXPECT_EQ(g_diskDataMgr[0], nullptr);
}

TEST_F(ListAllOnlineDiskTest, ListsUnlessDisabled)
{
    uint32_t ids[2] = {9, 9};
    char text[41] = "?";
    DiskSnRef sns[2] = {{.len = 41, .buf = text}, {.len = 41, .buf = text}};
    uint32_t count = 9;

    DataMgrDisable();
    EXPECT_EQ(ListAllOnlineDisk(ids, sns, 2, &count), 0u);
    EXPECT_EQ(count, 9u);
    DataMgrEnable();
    EXPECT_EQ(ListAllOnlineDisk(ids, sns, 2, &count), 0u);

    EXPECT_EQ(count, 1u);
    EXPECT_EQ(ids[0], 0u);
    EXPECT_STREQ(text, "SN-1");
    EXPECT_EQ(ListAllOnlineDisk(ids, sns, 0, &count), DISK_MGR_ERR_TOO_SMALL);
}

TEST_F(ConcurrencyTest, SetsGetsAndRefreshesMix)
{
    for (const char *sn : {"SN-2", "SN-3"}) {
        Offer(MakeRecord(sn));
    }
    std::atomic<uint32_t> succeeded{0};
    constexpr uint32_t kRounds = 100;
    auto writer = [&] {
        Sn sn("SN-1");
        for (uint32_t i = 1; i <= kRounds; i++) {
            DiskIoInfoFrame frame{};
            frame.ticks = i;
            frame.tickRate = 1;
            (void)DiskIoStatInfoSet(sn, &frame);
            (void)DiskStateSet(0, sn, i % 2 == 0 ? DISK_STATE_SLOW : DISK_STATE_NORMAL);
        }
    };
    auto reader = [&] {
        Sn sn("SN-1");
        for (uint32_t i = 0; i < kRounds; i++) {
            DiskMgrObj base{};
            DiskIoStatInfo stat{};
            uint32_t count = 0;
            succeeded += DiskBaseInfoGet(0, sn, &base, sizeof(base)) == 0 ? 1 : 0;
            (void)DiskIoStatInfoCliGet(0, &stat, sizeof(stat));
            (void)DiskStrategyStrGet(1);
            (void)ListAllOnlineDisk(nullptr, nullptr, 0, &count);
            (void)__atomic_load_n(&g_ioStatFreshTime, __ATOMIC_RELAXED);
        }
    };
    auto refresher = [&] {
        for (uint32_t i = 0; i < kRounds; i++) {
            EXPECT_EQ(i % 2 == 0 ? Refresh({"SN-1", "SN-2", "SN-3"}) : Refresh({"SN-1"}), 0u);
            (void)DataMgrSetDrmNotifyFunc(FakeNotify);
        }
    };

    std::vector<std::thread> threads;
    threads.emplace_back(writer);
    threads.emplace_back(reader);
    threads.emplace_back(reader);
    threads.emplace_back(refresher);
    for (std::thread &thread : threads) {
        thread.join();
    }

    EXPECT_EQ(succeeded, 2 * kRounds);
    EXPECT_EQ(g_diskDataMgr[0]->ioStatCount, kRounds - 1);
    EXPECT_EQ(IdOf("SN-2"), 0xFFFFFFFFu); // the last list named one disk
    size_t in = 0;
    for (const Event &event : doubles_.events) {
        in += event.type == DISK_EVENT_IN ? 1 : 0;
    }
    EXPECT_EQ(in, kRounds); // two disks in each second round
    EXPECT_EQ(doubles_.events.size(), 2 * kRounds);
}
