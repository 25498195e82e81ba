#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_identity.h"

#include <array>

#include "unit/data_collect/dcak_fixture.h"

namespace {

struct TypeCase {
    const char *vendor;
    int rotational;
    uint32_t type;
};

} // namespace

class DcakGetDiskTypeTest : public DcakTest, public ::testing::WithParamInterface<TypeCase> {};

TEST_P(DcakGetDiskTypeTest, VendorAndRotationDecide)
{
    AddDisk("sda", GetParam().vendor, GetParam().rotational);

    EXPECT_EQ(DcakGetDiskType("sda", "/dev/sda"), GetParam().type) << GetParam().vendor;
}

INSTANTIATE_TEST_SUITE_P(Classes, DcakGetDiskTypeTest,
                         ::testing::Values(TypeCase{"ATA     ", 0, 1}, TypeCase{"SEAGATE ", 0, 2},
                                           TypeCase{"VELMAR", 0, 3}, TypeCase{"orstan", 0, 3}, TypeCase{"OrSyl", 0, 3},
                                           TypeCase{"0x1f7c", 0, 2}, TypeCase{"VELMARX", 0, 2},
                                           TypeCase{"SEAGATE", 1, 4}, TypeCase{"VELMAR", 1, 4}, TypeCase{"ata", 1, 4},
                                           TypeCase{"ATA", 1, 5}, TypeCase{"ATA", 2, 1}, TypeCase{"ata", 0, 2}));

class DcakSysfsTest : public DcakTest {};

TEST_F(DcakSysfsTest, TypeNamesStandByNumber)
{
    EXPECT_THAT(std::vector<std::string>(g_DiskTypeStrMap, g_DiskTypeStrMap + 8),
                ::testing::ElementsAre("SSD_NVME", "SSD_SATA", "SSD_SAS", "SSD_SAS", "HDD_SAS", "HDD_SATA",
                                       "HDD_NL_SAS", "ERR TYPE"));
}

TEST_F(DcakSysfsTest, UnreadableFilesGiveTheErrorType)
{
    EXPECT_EQ(DcakGetDiskType("sda", "/dev/sda"), 7u);
    AddSasSsd("sdb");
    std::filesystem::remove(Root() + "/sys/block/sdb/device/vendor");
    EXPECT_EQ(DcakGetDiskType("sdb", "/dev/sdb"), 7u);

    EXPECT_TRUE(Logged(3, "DCAK", "DcakGetSysInfo failed, devName:sda"));
    EXPECT_TRUE(Logged(3, "DCAK", "DcakGetSysInfo failed, devName:sdb"));
    EXPECT_TRUE(Logged(3, "DCAK", "Failed to run command, " + Root() + "/sys/block/sda/queue/rotational\n"));
}

TEST_F(DcakSysfsTest, DebugSwitchShowsTheClassification)
{
    AddSasHdd("sda");
    SetSwitches(1, 0);

    (void)DcakGetDiskType("sda", "/dev/sda");

    EXPECT_TRUE(Logged(7, "DCAK", "vendorType is TOSHIBA, 54, rot is 1"));
}

TEST_F(DcakSysfsTest, SysInfoFailures)
{
    AddSasHdd("sda");
    WriteFile(Root() + "/sys/block/sda/queue/rotational", "");
    int value = 5;
    const std::string tooLong(512, 'n');

    EXPECT_EQ(DcakGetSysInfo("/sys/block/%s/queue/rotational", "sda", "%d", 0, &value), 0xFFFFFFFFu);
    EXPECT_EQ(DcakGetSysInfo("/%s", tooLong.c_str(), "%d", 0, &value), 0xFFFFFFFFu);
    EXPECT_EQ(DcakGetSysInfo("/%s", nullptr, "%d", 0, &value), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "fscanf_s failed, " + Root() + "/sys/block/sda/queue/rotational"));
    EXPECT_TRUE(Logged(3, "DCAK", tooLong + " sprintf_s failed:/%s"));
    EXPECT_EQ(value, 5);
}

TEST_F(DcakSysfsTest, VendorFallsBackToTheInquiry)
{
    AddSasSsd("sda");
    std::filesystem::remove(Root() + "/sys/block/sda/device/vendor");
    Bytes data(8, 0);
    data.insert(data.end(), {'S', 'E', 'A', 'G', 'A', 'T', 'E', ' '});
    PlanCommand({kCdbInquiry, 256, 96, data, nullptr, 0});
    std::array<char, 50> vendor{"before"};

    EXPECT_EQ(DcakGetVendorId("sda", "/dev/sda", vendor.size(), vendor.data()), 0u);

    EXPECT_STREQ(vendor.data(), "SEAGATE ");
    EXPECT_TRUE(Logged(3, "DCAK", "DcakGetSysInfo, GetVendor Failed sda"));
}

TEST_F(DcakSysfsTest, EmptyOrFailedInquiryLeavesTheVendorAlone)
{
    AddSasSsd("sda");
    std::filesystem::remove(Root() + "/sys/block/sda/device/vendor");
    PlanCommand({kCdbInquiry, 256, 96, {}, nullptr, 0});
    PlanCommand({kCdbInquiry, 256, 96, {}, nullptr, EIO});
    std::array<char, 50> vendor{"before"};

    EXPECT_EQ(DcakGetVendorId("sda", "/dev/sda", vendor.size(), vendor.data()), 0xFFFFFFFFu);
    EXPECT_EQ(DcakGetVendorId("sda", "/dev/sda", vendor.size(), vendor.data()), 0xFFFFFFFFu);

    EXPECT_STREQ(vendor.data(), "before");
    EXPECT_EQ(LogCount(3, "DCAK", "sda is not sas"), 2u);
}

TEST_F(DcakSysfsTest, ModelLosesBlanksAndLineFeeds)
{
    AddDisk("sda", "ATA", 0, "TWO WORDS   ");
    std::array<char, 128> model{};

    EXPECT_EQ(DcakGetModelNum("sda", model.size(), model.data()), 0u);

    EXPECT_STREQ(model.data(), "TWO WORDS");
}

TEST_F(DcakSysfsTest, ModelFailuresLeaveTheOutputAlone)
{
    AddDisk("sda", "ATA", 0);
    WriteFile(Root() + "/sys/block/sda/device/model", "");
    std::array<char, 128> model{"before"};
    const std::string tooLong(512, 'n');

    EXPECT_EQ(DcakGetModelNum("sda", model.size(), model.data()), 0xFFFFFFFFu);
    EXPECT_EQ(DcakGetModelNum("sdb", model.size(), model.data()), 0xFFFFFFFFu);
    EXPECT_EQ(DcakGetModelNum(tooLong.c_str(), model.size(), model.data()), 0xFFFFFFFFu);

    EXPECT_STREQ(model.data(), "before");
    EXPECT_TRUE(Logged(3, "DCAK", "Failed to read file\n"));
    EXPECT_TRUE(Logged(3, "DCAK", "Failed to open file\n"));
    EXPECT_TRUE(Logged(3, "DCAK", "snprintf_s ERR\n"));
}

TEST_F(DcakSysfsTest, DevicePathMustFit)
{
    std::array<char, 9> path{};

    EXPECT_EQ(DevNameToPath("sda", path.size(), path.data()), 0u);
    EXPECT_STREQ(path.data(), "/dev/sda");
    EXPECT_EQ(DevNameToPath("sdaa", path.size(), path.data()), 0xFFFFFFFFu);
    EXPECT_EQ(DevNameToPath(nullptr, path.size(), path.data()), 0xFFFFFFFFu);
}

class DcakGetSerialNumByUdevTest : public DcakTest {
protected:
    std::array<char, 128> serial_{"before"};
    uint32_t Get(const char *name) { return DcakGetSerialNumByUdev(name, sizeof(serial_), serial_.data()); }
};

TEST_F(DcakGetSerialNumByUdevTest, CommandFollowsTheClass)
{
    AddSataSsd("sda");
    AddSataHdd("sdb");
    AddSasSsd("sdc");
    AddVssd("sdd");
    AddSasHdd("sde");
    PlanTool(AtaCommand("sda"), "A1\n");
    PlanTool(AtaCommand("sdb"), "A2\n");
    PlanTool(SasCommand("sdc"), "S1\nsecond\n");
    PlanTool(SasCommand("sdd"), "S2\n");
    PlanTool(SasCommand("sde"), "S3");

    for (const auto &[name, serial] : std::map<std::string, std::string>{
             {"sda", "A1"}, {"sdb", "A2"}, {"sdc", "S1"}, {"sdd", "S2"}, {"sde", "S3"}}) {
        EXPECT_EQ(Get(name.c_str()), 0u);
        EXPECT_EQ(serial_.data(), serial);
    }
}

TEST_F(DcakGetSerialNumByUdevTest, FailuresAreToldAndLeaveTheOutputAlone)
{
    AddSasHdd("sda");
    AddSasHdd("sdb");
    AddSasHdd("sdc");
    PlanTool(SasCommand("sda"), "");
    PlanTool(SasCommand("sdb"), std::string(128, 'x') + "\n");
    PlanTool(SasCommand("sdc"), std::string(512, 'x'));

    EXPECT_EQ(Get(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(Get("sd;a"), 0xFFFFFFFFu);
    EXPECT_EQ(Get(std::string(45, 'n').c_str()), 0xFFFFFFFFu);
    EXPECT_EQ(Get("none"), 0xFFFFFFFFu);
    EXPECT_EQ(Get("sda"), 0xFFFFFFFFu);
    EXPECT_EQ(Get("sdb"), 0xFFFFFFFFu);
    EXPECT_EQ(Get("sdc"), 0xFFFFFFFFu);

    EXPECT_STREQ(serial_.data(), "before");
    EXPECT_EQ(LogCount(3, "DCAK", "dev is NULL."), 2u);
    EXPECT_TRUE(Logged(3, "DCAK", "generate dev path failed."));
    EXPECT_TRUE(Logged(3, "DCAK", "Disk type is not SATA or SAS."));
    EXPECT_TRUE(Logged(3, "DCAK", "sn retrieved is NULL, disktype: 4."));
    EXPECT_TRUE(Logged(3, "DCAK", "strcpy_s failed, dev: sdb, diskType: 4."));
    EXPECT_TRUE(Logged(3, "DCAK", "exec cmd failed, dev: sdc, disktype: 4."));
}

TEST_F(DcakGetSerialNumByUdevTest, SerialOf127Fits)
{
    AddSasHdd("sda");
    PlanTool(SasCommand("sda"), std::string(127, 'x') + "\n");

    EXPECT_EQ(Get("sda"), 0u);

    EXPECT_EQ(serial_.data(), std::string(127, 'x'));
}

using DcakGetSerialNumTest = DcakTest;

TEST_F(DcakGetSerialNumTest, TakesTheSecondWord)
{
    PlanTool("lsblk -S -o NAME,SERIAL | grep sda", "sda   SN1\nsdaa  SN2\n");
    PlanTool("lsblk -S -o NAME,SERIAL | grep sdb", "sdb\n");
    std::array<char, 4> serial{};

    EXPECT_EQ(DcakGetSerialNum("sda", serial.size(), serial.data()), 0u);
    EXPECT_STREQ(serial.data(), "SN1");
    EXPECT_EQ(DcakGetSerialNum("sda", 3, serial.data()), 0xFFFFFFFFu);
    EXPECT_EQ(DcakGetSerialNum("sdb", serial.size(), serial.data()), 0xFFFFFFFFu);
    EXPECT_EQ(DcakGetSerialNum("sda;x", serial.size(), serial.data()), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "strcpy_s failed, sda"));
    EXPECT_TRUE(Logged(3, "DCAK", "StrSplit failed, sdb"));
}

TEST_F(DcakGetSerialNumTest, OutputThatIsTooLongIsTold)
{
    PlanTool("lsblk -S -o NAME,SERIAL | grep sda", std::string(15360, 'x'));
    std::array<char, 4> serial{};

    EXPECT_EQ(DcakGetSerialNum("sda", serial.size(), serial.data()), 0xFFFFFFFFu);

    EXPECT_TRUE(Logged(3, "DCAK", "exec cmd failed, sda"));
}
