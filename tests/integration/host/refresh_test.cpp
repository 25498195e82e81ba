#include "host_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

const FakeDisk kSata{"SN-SATA", "sda", "SSD_SATA", "ATA", "VSSD-480"};
const FakeDisk kSas{"SN-SAS", "sdb", "SSD_SAS", "ORSTAN", "ANY"};
const FakeDisk kHdd{"SN-HDD", "sdc", "HDD_SAS", "SEAGATE", "ST1", "FW2", "4000787030016", "4096", "MAGNET"};
const FakeDisk kNvme{"SN-NVME", "nvme0", "SSD_NVMe", "VELMAR", "VN1", "FW1", "1000", "512", "TLC", "0000:81:00.0"};

std::vector<std::string> g_events;

uint32_t OnEvent(uint32_t diskId, lib::DiskSnRef sn, uint32_t event)
{
    g_events.push_back(std::to_string(diskId) + " " + std::string(sn.buf) + " " + std::to_string(event));
    return 0;
}

class DiskSetRefreshTest : public HostTest {
protected:
    void SetUp() override
    {
        StartQuiet();
        AddAgents();
        EXPECT_EQ(lib::DataMgrSetDrmNotifyFunc(OnEvent), 0u);
    }

    void Show(const std::vector<FakeDisk> &disks)
    {
        ServeDisks(*kernel_, disks);
        Scan();
    }

    /** The data agent shares the SPDK agent's socket. */
    std::vector<std::string> Told() const
    {
        std::vector<std::string> told;
        for (const std::string &request : spdk_->Requests()) {
            if (request.find("\"method\":\"dma_") != std::string::npos) {
                told.push_back(request);
            }
        }
        return told;
    }
};

TEST_F(DiskSetRefreshTest, EveryAdmittedTypeComesOnlineInTheOrderOfTheLists)
{
    ServeDisks(*spdk_, {kNvme});
    kernel_->Result("dca_get_disks_slotid", R"({"disks":[{"device_name":"nvme0","slot_id":3}]})");
    Show({kSata, kSas, kHdd});

    const char *serials[4] = {"SN-SATA", "SN-SAS", "SN-HDD", "SN-NVME"};
    const uint32_t types[4] = {2, 1, 3, 0};
    for (uint32_t id = 0; id < 4; id++) {
        const lib::DiskMgrObj record = Base(id);
        EXPECT_STREQ(record.sn, serials[id]);
        EXPECT_EQ(record.diskType, types[id]);
        EXPECT_EQ(record.diskId, id);
        EXPECT_EQ(record.diskState, 0u);
        EXPECT_EQ(HostLogged(std::string("[DATA_MGR_MASTER]online disk, sn = ") + serials[id] +
                             ",disk id = " + std::to_string(id)),
                  1u);
        EXPECT_EQ(
            HostLogged(std::string("[DATA_MGR_MASTER]Fetch new disk base info(sn = ") + serials[id] + ") success"), 1u);
    }
    EXPECT_EQ(Base(2).diskCapacity, 4000787030016u);
    EXPECT_EQ(Base(2).sectorSize, 4096u);
    EXPECT_EQ(Base(2).mediaType, 5u);
    EXPECT_EQ(Base(3).slotId, 3u);
    EXPECT_STREQ(Base(3).pciAddr, "0000:81:00.0");
    EXPECT_STREQ(Base(0).deviceName, "sda");
    EXPECT_THAT(g_events, ElementsAre("0 SN-SATA 0", "1 SN-SAS 0", "2 SN-HDD 0", "3 SN-NVME 0"));
    EXPECT_THAT(Registry(), testing::StartsWith("[{\n\t\t\"diskId\":\t0,\n\t\t\"diskState\":\t0,\n"));
    EXPECT_THAT(Registry(), HasSubstr("\t\t\"pciAddr\":\t\"0000:81:00.0\",\n\t\t\"firmware\":\t\"FW1\"\n\t}]"));
}

TEST_F(DiskSetRefreshTest, DataAgentIsToldOfAnArrivalToTheByte)
{
    Show({kSata});

    EXPECT_THAT(Told(), ElementsAre(R"({"jsonrpc":"2.0","method":"dma_set_disk_info_inner","id":2,"params":)"
                                    R"({"sn":"SN-SATA","disk_state":5,"disk_capacity":480103981056,"vendor":"ATA",)"
                                    R"("model":"VSSD-480","device_name":"sda","disk_type":2}})"));
}

TEST_F(DiskSetRefreshTest, DataAgentDownDoesNotKeepADiskAway)
{
    spdk_->Stop();

    Show({kSata});

    EXPECT_STREQ(Base(0).sn, "SN-SATA");
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]DiskHealthinfoInner send Rpc to agent failed! ret:[22]"), 1u);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]RPC request post failed. ret = 22"), 1u);
}

TEST_F(DiskSetRefreshTest, ALeftDiskIsGoneEverywhereAndTold)
{
    Show({kSata, kSas});
    g_events.clear();
    spdk_->ClearRequests();

    Show({kSas});

    EXPECT_FALSE(Online(0));
    EXPECT_STREQ(Base(1).sn, "SN-SAS");
    EXPECT_THAT(Registry(), Not(HasSubstr("SN-SATA")));
    EXPECT_THAT(g_events, ElementsAre("0 SN-SATA 1"));
    EXPECT_THAT(Told(),
                ElementsAre(R"({"jsonrpc":"2.0","method":"dma_poweroff_disk","id":4,"params":{"sn":"SN-SATA"}})"));
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]Try offline disk (sn = SN-SATA disk id = 0)"), 1u);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]offline disk (disk id = 0) success"), 1u);
    lib::DiskMgrObj record{};
    EXPECT_EQ(lib::DiskBaseInfoCliGet(0, &record, sizeof(record)), 1u);
}

TEST_F(DiskSetRefreshTest, AReturningDiskIsANewDisk)
{
    Show({kSata, kSas});
    Show({kSas});
    g_events.clear();

    Show({kSata, kSas});

    EXPECT_FALSE(Online(0));
    EXPECT_STREQ(Base(2).sn, "SN-SATA");
    EXPECT_THAT(g_events, ElementsAre("2 SN-SATA 0"));
}

TEST_F(DiskSetRefreshTest, AnEmptyListTakesEveryDisk)
{
    Show({kSata, kSas, kHdd});

    Show({});

    for (uint32_t id = 0; id < 3; id++) {
        EXPECT_FALSE(Online(id));
    }
    EXPECT_EQ(Registry(), "[]");
}

TEST_F(DiskSetRefreshTest, DisksOfAFailedAgentCountAsGone)
{
    ServeDisks(*spdk_, {kNvme});
    Show({kSata});
    ASSERT_TRUE(Online(1));

    spdk_->Bytes("dca_get_disks_brief_info", "garbage");
    Scan();

    EXPECT_TRUE(Online(0));
    EXPECT_FALSE(Online(1));
}

TEST_F(DiskSetRefreshTest, FailedSaveKeepsTheDiskInItsState)
{
    Show({kSata});
    BlockSaves();

    Show({});

    ASSERT_TRUE(Online(0));
    EXPECT_EQ(Base(0).diskState, 0u);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]DiskSerialNumberRefresh delete offline disk fail, sn = SN-SATA"), 1u);
    EXPECT_EQ(HostLogged(7, "[DCM]Flush SN list to MGR failed."), 1u);
    UnblockSaves();
    Show({});
    EXPECT_FALSE(Online(0));
}

TEST_F(DiskSetRefreshTest, ARefusedDiskIsFetchedOnce)
{
    FakeDisk other = kSata;
    other.vendor = "OTHER";
    Show({other});
    EXPECT_THAT(kernel_->Requests("dca_get_disks_base_info"), SizeIs(1));
    EXPECT_EQ(HostLogged(7, "[DATA_MGR_MASTER]Current sn (SN-SATA) not in whitelist. vendor(OTHER), model(VSSD-480)"),
              1u);

    Show({other});

    EXPECT_THAT(kernel_->Requests("dca_get_disks_base_info"), SizeIs(1));
    EXPECT_EQ(HostLogged(7, "[DATA_MGR_MASTER]Current sn (SN-SATA) in NonWhiteListSnNode"), 1u);
    EXPECT_FALSE(Online(0));
    EXPECT_TRUE(g_events.empty());
}

TEST_F(DiskSetRefreshTest, FullCacheMeansAFetchAtEachRefresh)
{
    std::vector<FakeDisk> disks;
    for (int i = 0; i < 64; i++) {
        FakeDisk disk = kSata;
        disk.sn = "R-" + std::to_string(i);
        disk.device = "r" + std::to_string(i);
        disk.vendor = "OTHER";
        disks.push_back(disk);
    }
    Show(disks);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]nonWhiteListSnNode cache is full"), 0u);
    kernel_->ClearRequests();
    disks[0].sn = "R-64";
    Show(disks);
    Show(disks);

    const std::vector<std::string> fetches = kernel_->Requests("dca_get_disks_base_info");
    EXPECT_THAT(fetches, SizeIs(2));
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]nonWhiteListSnNode cache is full"), 2u);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]AddSnToNonWhiteList fail"), 2u);
}

TEST_F(DiskSetRefreshTest, ALongRefusedSerialIsNeverRemembered)
{
    FakeDisk disk = kSata;
    disk.vendor = "OTHER";
    disk.sn = std::string(29, 'a');
    Show({disk});
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]copy nonWhiteListSnNode sn failed"), 0u);

    disk.sn = std::string(30, 'b');
    Show({disk});
    Show({disk});

    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]copy nonWhiteListSnNode sn failed"), 2u);
    EXPECT_THAT(kernel_->Requests("dca_get_disks_base_info"), SizeIs(3));
}

TEST_F(DiskSetRefreshTest, AFailedFetchEndsThePassUntilTheNext)
{
    ServeDisks(*kernel_, {kSata, kSas, kHdd});
    kernel_->On("dca_get_disks_base_info", [](const std::string &request) {
        return FakeReply{FakeReply::TEXT, DevicesOf(request) == std::vector<std::string>{"sdb"}
                                              ? "garbage"
                                              : Envelope(DisksJson({kSata, kSas, kHdd}, request, BaseJson))};
    });

    Scan();

    EXPECT_STREQ(Base(0).sn, "SN-SATA");
    EXPECT_FALSE(Online(1));
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]FetchDiskBaseInfo fail, sn = SN-SAS, ret = 5"), 1u);
    Show({kSata, kSas, kHdd});
    EXPECT_STREQ(Base(1).sn, "SN-SAS");
    EXPECT_STREQ(Base(2).sn, "SN-HDD");
}

TEST_F(DiskSetRefreshTest, WithoutACallbackTheDiskComesOnlineAllTheSame)
{
    EXPECT_EQ(lib::DataMgrSetDrmNotifyFunc(nullptr), 0u);

    Show({kSata});

    EXPECT_TRUE(Online(0));
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]DataMgrNotifyDrmDiskEvent error: no notify func"), 1u);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]DiskBaseInfoSet notify drm add disk fail"), 1u);
}

TEST_F(DiskSetRefreshTest, ACallbackThatFailsStillGetsItsLastLine)
{
    EXPECT_EQ(lib::DataMgrSetDrmNotifyFunc([](uint32_t, lib::DiskSnRef, uint32_t) { return 9u; }), 0u);

    Show({kSata});

    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]DataMgrNotifyDrmDiskEvent error: bad return value"), 1u);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]DataMgrNotifyDrmDiskEvent success: diskId = 0,sn =SN-SATA, type = 0"), 1u);
}

TEST_F(DiskSetRefreshTest, DisabledStoreRefusesSetsAndEnabledAgainTakesThem)
{
    Show({kSata});
    lib::DataMgrDisable();
    lib::DiskMgrObj record = Record("SN-SATA");
    EXPECT_EQ(lib::DiskBaseInfoSet(Sn("SN-SATA"), &record), kFail);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]Data Mgr init = 1,Mgr Enable =0"), 1u);
    EXPECT_EQ(lib::DiskBaseInfoCliGet(0, &record, sizeof(record)), 1u);
    g_events.clear();

    lib::DataMgrEnable();

    EXPECT_STREQ(Base(0).sn, "SN-SATA");
    EXPECT_TRUE(g_events.empty());
    EXPECT_EQ(lib::DataMgrInit(), kFail);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]Data Mgr Master Model already init"), 1u);
}

TEST_F(DiskSetRefreshTest, ARefreshWhileDisabledMakesObjectsAndThenKeepsItDisabled)
{
    Show({kSata});
    lib::DataMgrDisable();

    Show({kSata, kSas});

    EXPECT_FALSE(Online(0)); // known to the registry, so nothing to do
    EXPECT_TRUE(Online(1));
    lib::DataMgrEnable();
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]CreateAllDataMgrObjsByDiskMgr fail : Already Exist Data Mgr Obj"), 1u);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]DataMgrEnable fail, Create All DataMgr Objs By Disk Mgr fail"), 1u);
    lib::DiskMgrObj record = Record("SN-SAS");
    EXPECT_EQ(lib::DiskBaseInfoSet(Sn("SN-SAS"), &record), kFail);
}

TEST_F(DiskSetRefreshTest, DestroyedStoreRefusesTheRefresh)
{
    EXPECT_EQ(lib::DataMgrDestroy(), 0u);

    EXPECT_EQ(lib::DiskSerialNumberRefresh(nullptr, 0), kFail);

    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]Data Mgr Master not init"), 1u);
    EXPECT_EQ(lib::DataMgrDestroy(), 0u);
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]Data Mgr Master Model no init,can't destroy"), 1u);
}

class DataMgrInitTest : public HostTest {};

TEST_F(DataMgrInitTest, RegisteredDisksAreAnnouncedAtTheStart)
{
    WriteText(
        RegistryPath(),
        "[{\"diskId\":4,\"diskState\":3,\"frameId\":1,\"slotId\":2,\"sectorSize\":512,\"diskType\":2,\"mediaType\":2,"
        "\"diskCapacity\":\"5\",\"vendor\":\"ATA\",\"model\":\"VSSD-480\",\"sn\":\"SN-4\",\"pciAddr\":\"\","
        "\"firmware\":\"FW1\"}]");
    Open();
    // The analyses install their callback before the store starts.
    lib::Global<lib::InitFiniStep[16]>("g_corvaneInitFiniSteps")[9].init = []() -> uint32_t {
        return lib::DataMgrSetDrmNotifyFunc(OnEvent);
    };

    StartQuiet();

    EXPECT_THAT(g_events, ElementsAre("4 SN-4 0"));
    EXPECT_EQ(HostLogged("[DATA_MGR_MASTER]NotifyAllDiskFindInit success"), 1u);
    EXPECT_EQ(Base(4).diskState, 3u);
}

struct AdmissionCase {
    const char *vendor;
    const char *model;
    uint32_t type;
    uint32_t result;
};

void PrintTo(const AdmissionCase &one, std::ostream *out)
{
    *out << one.vendor << ", " << one.model << ", type " << one.type;
}

class CheckInWhiteListTest : public HostTest, public testing::WithParamInterface<AdmissionCase> {};

TEST_P(CheckInWhiteListTest, FollowsTheFourRows)
{
    StartQuiet();

    EXPECT_EQ(lib::CheckInWhiteList(GetParam().vendor, GetParam().model, GetParam().type), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(Rows, CheckInWhiteListTest,
                         testing::Values(AdmissionCase{"ATA", "VSSD-1", 2, 0}, AdmissionCase{"ATA", "VLR", 2, 0},
                                         AdmissionCase{"ATA", "VL-SAS9", 2, 0}, AdmissionCase{"ATA", "SSD", 2, 1},
                                         AdmissionCase{"ATA", "xVSSD-1", 2, 1}, AdmissionCase{"ata", "VSSD-1", 2, 1},
                                         AdmissionCase{"ATAX", "VSSD-1", 2, 1}, AdmissionCase{"ATA", "VSSD-1", 1, 1},
                                         AdmissionCase{"VELMAR", "", 0, 0}, AdmissionCase{"0x1f7c", "M", 0, 0},
                                         AdmissionCase{"0x1F7C", "M", 0, 1}, AdmissionCase{"ORSTAN", "M", 0, 1},
                                         AdmissionCase{"ORSTAN", "M", 1, 0}, AdmissionCase{"ORSYL", "M", 1, 0},
                                         AdmissionCase{"VELMAR", "M", 1, 0}, AdmissionCase{"WD", "M", 3, 0},
                                         AdmissionCase{"Western Digital", "M", 3, 0},
                                         AdmissionCase{"SEAGATE", "M", 3, 0}, AdmissionCase{"TOSHIBA", "M", 3, 0},
                                         AdmissionCase{"HGST", "M", 3, 1}, AdmissionCase{"WD", "M", 4, 1},
                                         AdmissionCase{"WD", "M", 5, 1}));

} // namespace
