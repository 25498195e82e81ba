#include "host_fixture.h"

#include <cstring>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

constexpr const char *kTag = "[DATA_MGR_MASTER]";

class DiskStoreTest : public HostTest {
protected:
    void SetUp() override
    {
        StartQuiet();
        AddAgents();
        lib::DiskMgrObj record = Record("SN-0");
        record.diskState = 5;
        ASSERT_EQ(lib::DiskBaseInfoSet(Sn("SN-0"), &record), 0u);
        spdk_->ClearRequests();
        ClearHostLines();
    }

    static uint32_t Strategy()
    {
        uint32_t strategy = 99;
        EXPECT_EQ(lib::DiskStrategyGet(0, Sn("SN-0"), &strategy), 0u);
        return strategy;
    }

    static uint32_t State()
    {
        uint32_t state = 99;
        EXPECT_EQ(lib::DiskDiskStateInfoCliGet(0, Sn("SN-0"), &state), 0u);
        return state;
    }
};

TEST_F(DiskStoreTest, StateSetTellsTheDataAgentToTheByteAndSetsTheStrategy)
{
    EXPECT_EQ(lib::DiskStateSet(0, Sn("SN-0"), 4), 0u);

    EXPECT_THAT(
        spdk_->Requests(),
        ElementsAre(R"({"jsonrpc":"2.0","method":"dma_set_disk_state","id":3,"params":{"sn":"SN-0","disk_state":4}})",
                    R"({"jsonrpc":"2.0","method":"dma_set_disk_handle_strategy","id":4,"params":{"sn":"SN-0",)"
                    R"("disk_handle_strategy":"Migrate data and replace the hard disk"}})"));
    EXPECT_EQ(State(), 4u);
    EXPECT_EQ(Strategy(), 1u);
    EXPECT_THAT(Registry(), HasSubstr("\"diskState\":\t4,"));
    EXPECT_STREQ(lib::DiskStrategyStrGet(0), "Migrate data and replace the hard disk");
}

TEST_F(DiskStoreTest, StateSetWithTheDataAgentDownChangesAllTheSame)
{
    spdk_->Stop();

    EXPECT_EQ(lib::DiskStateSet(0, Sn("SN-0"), 1), 22u);

    EXPECT_EQ(State(), 1u);
    EXPECT_EQ(Strategy(), 2u);
    EXPECT_THAT(Registry(), HasSubstr("\"diskState\":\t1,"));
    EXPECT_STREQ(lib::DiskStrategyStrGet(0), "Replace the hard disk");
    EXPECT_EQ(HostLogged(std::string(kTag) + "DiskState info send Rpc to agent failed! ret:[22]"), 1u);
    EXPECT_EQ(HostLogged(std::string(kTag) + "HandleStrategyStr info send Rpc to agent failed! ret:[22]"), 1u);
}

TEST_F(DiskStoreTest, SyncTellsTheDataAgentToTheByteOfEachDisk)
{
    constexpr lib::Call<uint32_t()> sync{"DataMgrMasterSyncAll2Agent"};

    EXPECT_EQ(sync(), 0u);

    EXPECT_THAT(spdk_->Requests(),
                ElementsAre(R"({"jsonrpc":"2.0","method":"dma_set_disk_info_inner","id":3,"params":{"sn":"SN-0",)"
                            R"("disk_state":0,"disk_capacity":480103981056,"vendor":"ATA","model":"VSSD-480",)"
                            R"("device_name":"sda","disk_type":2}})",
                            R"({"jsonrpc":"2.0","method":"dma_set_disk_handle_strategy","id":4,"params":{"sn":"SN-0",)"
                            R"("disk_handle_strategy":"No action required"}})"));
}

TEST_F(DiskStoreTest, StateSetGivesTheSendsResultThoughTheSaveFailed)
{
    const std::string before = Registry();
    BlockSaves();

    EXPECT_EQ(lib::DiskStateSet(0, Sn("SN-0"), 4), 0u);

    EXPECT_EQ(State(), 4u);
    EXPECT_EQ(Strategy(), 1u);
    EXPECT_EQ(Registry(), before);
}

TEST_F(DiskStoreTest, EachStateBringsItsStrategy)
{
    const uint32_t expected[][2] = {{3, 1}, {1, 2}, {0, 2}, {4, 1}, {0, 1}};
    for (const auto &[state, strategy] : expected) {
        EXPECT_EQ(lib::DiskStateSet(0, Sn("SN-0"), state), 0u);
        EXPECT_EQ(State(), state);
        EXPECT_EQ(Strategy(), strategy);
    }
    for (const uint32_t bad : {5u, 6u, kFail}) {
        EXPECT_EQ(lib::DiskStateSet(0, Sn("SN-0"), bad), kFail);
    }
    EXPECT_EQ(State(), 0u);
}

TEST_F(DiskStoreTest, StateOfflineTakesTheDiskOutOfTableAndFile)
{
    // The announcement to the features comes last, and its result is the result.
    EXPECT_EQ(lib::DiskStateSet(0, Sn("SN-0"), 2), 0u);

    EXPECT_FALSE(Online(0));
    EXPECT_EQ(Registry(), "[]");
    EXPECT_THAT(spdk_->Requests(),
                ElementsAre(R"({"jsonrpc":"2.0","method":"dma_poweroff_disk","id":3,"params":{"sn":"SN-0"}})"));
    EXPECT_EQ(HostLogged(std::string(kTag) + "Offline disk (sn = SN-0, disk id = 0) success"), 1u);
}

TEST_F(DiskStoreTest, BaseRecordWithStateOfflineTakesTheDiskOut)
{
    lib::DiskMgrObj record = Base(0);
    record.diskState = 2;

    EXPECT_EQ(lib::DiskBaseInfoSet(Sn("SN-0"), &record), 0u);

    EXPECT_FALSE(Online(0));
    EXPECT_EQ(Registry(), "[]");
    EXPECT_THAT(spdk_->Requests("dma_poweroff_disk"), SizeIs(1));
    EXPECT_EQ(HostLogged(std::string(kTag) + "Offline disk (sn = SN-0, disk id = 0) success"), 1u);
}

TEST_F(DiskStoreTest, EqualRecordWithStateKeepChangesAndSendsNothing)
{
    EXPECT_EQ(lib::DiskStateSet(0, Sn("SN-0"), 3), 0u);
    spdk_->ClearRequests();
    BlockSaves(); // a save would fail
    lib::DiskMgrObj record = Record("SN-0");
    record.diskState = 5;

    EXPECT_EQ(lib::DiskBaseInfoSet(Sn("SN-0"), &record), 0u);

    EXPECT_EQ(record.diskState, 3u);
    EXPECT_EQ(record.diskId, 0u);
    EXPECT_EQ(State(), 3u);
    EXPECT_THAT(spdk_->Requests(), SizeIs(0));
}

TEST_F(DiskStoreTest, ChangedRecordWithStateKeepKeepsTheStateAndIsTold)
{
    EXPECT_EQ(lib::DiskStateSet(0, Sn("SN-0"), 3), 0u);
    spdk_->ClearRequests();
    lib::DiskMgrObj record = Record("SN-0");
    record.diskState = 5;
    record.slotId = 8;

    EXPECT_EQ(lib::DiskBaseInfoSet(Sn("SN-0"), &record), 0u);

    EXPECT_EQ(State(), 3u);
    EXPECT_EQ(Base(0).slotId, 8u);
    EXPECT_THAT(Registry(), HasSubstr("\"diskState\":\t3,\n\t\t\"frameId\":\t4294967295,\n\t\t\"slotId\":\t8,"));
    ASSERT_THAT(spdk_->Requests(), SizeIs(1));
    EXPECT_THAT(spdk_->Requests()[0], HasSubstr(R"("params":{"sn":"SN-0","disk_state":3,)"));
}

TEST_F(DiskStoreTest, FailedSaveOfABaseRecordIsAFailure)
{
    BlockSaves();
    lib::DiskMgrObj record = Record("SN-0");
    record.slotId = 8;

    EXPECT_EQ(lib::DiskBaseInfoSet(Sn("SN-0"), &record), kFail);

    EXPECT_EQ(HostLogged(std::string(kTag) + "DiskBaseInfoSet update disk id = 0 error: update to disk mgr fail"), 1u);
}

TEST_F(DiskStoreTest, StrategiesHaveTheirTextsAndTheThirdHasNone)
{
    const char *texts[3] = {"No action required", "Migrate data and replace the hard disk", "Replace the hard disk"};
    for (uint32_t strategy = 0; strategy < 3; strategy++) {
        EXPECT_EQ(lib::DiskStrategySet(0, Sn("SN-0"), strategy), 0u);
        EXPECT_EQ(Strategy(), strategy);
        EXPECT_STREQ(lib::DiskStrategyStrGet(0), texts[strategy]);
    }
    EXPECT_THAT(spdk_->Requests("dma_set_disk_handle_strategy"), SizeIs(3));

    EXPECT_EQ(lib::DiskStrategySet(0, Sn("SN-0"), 3), 0u);
    EXPECT_EQ(Strategy(), 3u);
    EXPECT_EQ(lib::DiskStrategyStrGet(0), nullptr);
    EXPECT_THAT(spdk_->Requests("dma_set_disk_handle_strategy"), SizeIs(3));
    EXPECT_EQ(HostLogged(std::string(kTag) + "RPC diskHandleStrategy params is NULL"), 1u);
    EXPECT_EQ(lib::DiskStrategySet(0, Sn("SN-0"), 4), kFail);
    EXPECT_EQ(Strategy(), 3u);
}

TEST_F(DiskStoreTest, Identifier70IsReadableAndTakesNoUpdates)
{
    lib::Global<uint32_t>("g_nextUnusedDiskId") = 70;
    lib::DiskMgrObj record = Record("SN-70");
    ASSERT_EQ(lib::DiskBaseInfoSet(Sn("SN-70"), &record), 0u);
    lib::DiskDrmInfo drm{90, 10};

    EXPECT_EQ(lib::DiskDrmInfoSet(70, Sn("SN-70"), &drm), 1u);

    EXPECT_EQ(HostLogged(std::string(kTag) +
                         "DataMgrDiskInfoSet error,disk id = 70,info type= 3obj not init or vaild disk id"),
              1u);
    EXPECT_EQ(lib::DiskDrmInfoCliGet(70, &drm, sizeof(drm)), 0u);
    EXPECT_EQ(drm.diskLife, kFail);
    EXPECT_STREQ(Base(70).sn, "SN-70");
}

TEST_F(DiskStoreTest, GetTakesAnySerialOfLength0AndRefusesAWrongOne)
{
    lib::DiskMgrObj record{};

    EXPECT_EQ(lib::DiskBaseInfoGet(0, {0, "WRONG"}, &record, sizeof(record)), 0u);
    EXPECT_EQ(lib::DiskBaseInfoGet(0, Sn("WRONG"), &record, sizeof(record)), 4u);
    EXPECT_EQ(HostLogged(std::string(kTag) +
                         "DataMgrDiskInfoGet,disk id = 0,info type= 0,sn=WRONGsn not valid or match diskId"),
              1u);
}

TEST_F(DiskStoreTest, ArgumentsAreChecked)
{
    lib::DiskMgrObj record = Record("SN-0");
    const std::string set = std::string(kTag) + "DataMgrDiskInfoSet Param error, snLen = ";
    const std::string get = std::string(kTag) + "DataMgrDiskInfoGet Param error, snLen = ";

    EXPECT_EQ(lib::DataMgrDiskInfoSet(0, {41, "SN-0"}, &record, 0), kFail);
    EXPECT_EQ(HostLogged(set + "41, diskId =0"), 1u);
    EXPECT_EQ(lib::DataMgrDiskInfoSet(kById, {4, nullptr}, &record, 0), kFail);
    EXPECT_EQ(HostLogged(set + "4, diskId =4294967295"), 1u);
    EXPECT_EQ(lib::DataMgrDiskInfoGet(128, Sn("SN-0"), &record, sizeof(record), 0), kFail);
    EXPECT_EQ(HostLogged(get + "40, diskId =128"), 1u);
    EXPECT_EQ(lib::DataMgrDiskInfoGet(0, {41, "SN-0"}, &record, sizeof(record), 0), kFail);
    EXPECT_EQ(HostLogged(get + "41, diskId =0"), 1u);
    EXPECT_EQ(lib::DataMgrDiskInfoGet(127, Sn("SN-0"), &record, sizeof(record), 0), 1u);
    EXPECT_EQ(HostLogged(std::string(kTag) +
                         "DataMgrDiskInfoGet error,disk id = 127,info type= 0obj not init or vaild disk id"),
              1u);
}

TEST_F(DiskStoreTest, SetOfAnotherSerialIs4)
{
    lib::DiskDrmInfo drm{90, 10};

    EXPECT_EQ(lib::DiskDrmInfoSet(0, Sn("SN-X"), &drm), 4u);

    EXPECT_EQ(HostLogged(std::string(kTag) +
                         "DataMgrDiskInfoSet,disk id = 0,info type= 3,sn=SN-Xsn not valid or match diskId"),
              1u);
}

TEST_F(DiskStoreTest, UnknownDiskThatIsNotAdmittedIs8)
{
    lib::DiskMgrObj record = Record("SN-X", 4);

    EXPECT_EQ(lib::DiskBaseInfoSet(Sn("SN-X"), &record), 8u);
    EXPECT_EQ(lib::DiskBaseInfoSet(Sn("SN-X"), &record), 8u);

    EXPECT_EQ(HostLogged(std::string(kTag) + "Current sn (SN-X) in NonWhiteListSnNode"), 1u);
}

TEST_F(DiskStoreTest, UnknownAdmittedDiskIsNotCreatedByItsHealth)
{
    ServeDisks(*kernel_, {{"SN-H", "sdh", "SSD_SATA", "ATA", "VSSD-480"}});
    lib::DiskHealthInfo health{};
    char sn[40] = "SN-H";

    EXPECT_EQ(lib::DiskHealthInfoSet({40, sn}, &health), 4u);

    EXPECT_FALSE(Online(1));
    EXPECT_EQ(HostLogged(std::string(kTag) + "Current sn (SN-H) in whitelist. vendor(ATA), model(VSSD-480)"), 1u);
    EXPECT_EQ(HostLogged(std::string(kTag) + "DataMgrDiskInfoSet fail, sn = SN-H,info type= 2"), 1u);
}

TEST_F(DiskStoreTest, RecordsComeBackAsTheyWentIn)
{
    lib::DiskDrmInfo drm{77, 1234};
    lib::DiskNodeInfo node{};
    std::memset(&node, 0xA5, sizeof(node));
    lib::DiskHealthInfo health{};
    std::memset(&health, 0x3C, sizeof(health));
    ASSERT_EQ(lib::DiskDrmInfoSet(0, Sn("SN-0"), &drm), 0u);
    ASSERT_EQ(lib::DiskNodeInfoSet(Sn("SN-0"), &node), 0u);
    ASSERT_EQ(lib::DiskHealthInfoSet(Sn("SN-0"), &health), 0u);

    lib::DiskDrmInfo drmOut{};
    lib::DiskNodeInfo nodeOut{};
    lib::DiskHealthInfo healthOut{};
    EXPECT_EQ(lib::DiskDrmInfoCliGet(0, &drmOut, sizeof(drmOut)), 0u);
    EXPECT_EQ(lib::DiskNodeInfoGet(0, Sn("SN-0"), &nodeOut, sizeof(nodeOut)), 0u);
    EXPECT_EQ(lib::DiskSmartInfoCliGet(0, &healthOut, sizeof(healthOut)), 0u);

    EXPECT_EQ(std::memcmp(&drm, &drmOut, sizeof(drm)), 0);
    EXPECT_EQ(std::memcmp(&node, &nodeOut, sizeof(node)), 0);
    EXPECT_EQ(std::memcmp(&health, &healthOut, sizeof(health)), 0);
    EXPECT_EQ(HostLogged(7, std::string(kTag) + "SET INFO START, INFO TYPE = 3"), 1u);
    EXPECT_EQ(HostLogged(std::string(kTag) + "SET INFO SUCCESS, INFO TYPE = 3"), 1u);
    EXPECT_EQ(HostLogged(std::string(kTag) + "GET INFO START, INFO TYPE = 3"), 1u);
    EXPECT_EQ(HostLogged(std::string(kTag) + "GET INFO SUCCESS, INFO TYPE = 3"), 1u);
}

TEST_F(DiskStoreTest, ABufferOneByteTooSmallFails)
{
    lib::DiskMgrObj record{};
    lib::DiskHealthInfo health{};
    lib::DiskDrmInfo drm{};
    lib::DiskNodeInfo node{};

    EXPECT_EQ(lib::DiskBaseInfoCliGet(0, &record, 415), kFail);
    EXPECT_EQ(lib::DiskSmartInfoCliGet(0, &health, 135), kFail);
    EXPECT_EQ(lib::DiskDrmInfoCliGet(0, &drm, 7), kFail);
    EXPECT_EQ(lib::DiskNodeInfoGet(0, Sn("SN-0"), &node, 63), kFail);

    EXPECT_EQ(HostLogged(std::string(kTag) + "BaseInfo copy info to buf fail,disk id = 0,buf size = 415"), 1u);
    EXPECT_EQ(HostLogged(std::string(kTag) + "SmartInfo copy info to buf fail,disk id = 0,buf size = 135"), 1u);
    EXPECT_EQ(HostLogged(std::string(kTag) + "DrmInfo copy info to buf fail,disk id = 0,buf size = 7"), 1u);
    EXPECT_EQ(HostLogged(std::string(kTag) + "NodeInfo copy info to buf fail,disk id = 0,buf size = 63"), 1u);
    EXPECT_EQ(HostLogged(std::string(kTag) + "GET INFO FAIL, INFO TYPE = 0"), 1u);
}

TEST_F(DiskStoreTest, ListsTheDisksUnlessItIsDisabledOrGone)
{
    char text[40] = "";
    lib::DiskSnRef sn{40, text};
    uint32_t id = 9;
    uint32_t count = 9;

    EXPECT_EQ(lib::ListAllOnlineDisk(&id, &sn, 1, &count), 0u);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(id, 0u);
    EXPECT_STREQ(text, "SN-0");
    EXPECT_EQ(lib::ListAllOnlineDisk(&id, &sn, 0, &count), 6u);

    lib::DataMgrDisable();
    count = 9;
    EXPECT_EQ(lib::ListAllOnlineDisk(&id, &sn, 1, &count), 0u);
    EXPECT_EQ(count, 9u);
    EXPECT_EQ(lib::DataMgrDestroy(), 0u);
    EXPECT_EQ(lib::ListAllOnlineDisk(&id, &sn, 1, &count), kFail);
    EXPECT_EQ(HostLogged(std::string(kTag) + "Data Mgr Master Not init"), 1u);
}

TEST_F(DiskStoreTest, NothingIsStoredBeforeTheStart)
{
    EXPECT_EQ(lib::DataMgrDestroy(), 0u);
    lib::DiskMgrObj record = Record("SN-0");

    EXPECT_EQ(lib::DiskBaseInfoSet(Sn("SN-0"), &record), kFail);
    EXPECT_EQ(lib::DiskBaseInfoCliGet(0, &record, sizeof(record)), kFail);

    EXPECT_EQ(HostLogged(std::string(kTag) + "Data Mgr init = 0,Mgr Enable =0"), 1u);
    // the library's own threads ask as well
    EXPECT_GE(HostLogged(std::string(kTag) + "Data Mgr Master not init"), 1u);
}

} // namespace
