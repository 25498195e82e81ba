#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_disk_info.h"

#include <array>
#include <sys/stat.h>

#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_lsblk.h"
#include "unit/data_collect/dcak_fixture.h"

namespace {

struct RowCase {
    const char *row;
    uint32_t valid;
};

struct TypeCase {
    const char *vendor;
    int rotational;
    uint32_t type;
};

} // namespace

class DcakDevIsValidTest : public ::testing::TestWithParam<RowCase> {};

TEST_P(DcakDevIsValidTest, KeepsWholeDisksWithARegisteredName)
{
    const CJsonPtr row(cJSON_Parse(GetParam().row));
    ASSERT_NE(row, nullptr);

    EXPECT_EQ(DcakDevIsValid(row.get()), GetParam().valid) << GetParam().row;
}

INSTANTIATE_TEST_SUITE_P(
    Rows, DcakDevIsValidTest,
    ::testing::Values(RowCase{R"({"type":"disk","model":"M","vendor":"V","wwn":"0x5000"})", 1},
                      RowCase{R"({"TYPE":"disk","MODEL":"M","VENDOR":"V","WWN":"0x5"})", 1},
                      RowCase{R"({"type":"disk","model":"","vendor":"","wwn":"0x5"})", 1},
                      RowCase{R"({"type":"disk","model":"M","vendor":"V","wwn":"0x6000"})", 0},
                      RowCase{R"({"type":"disk","model":"M","vendor":"V","wwn":"55"})", 0},
                      RowCase{R"({"type":"disk","model":"M","vendor":"V","wwn":""})", 0},
                      RowCase{R"({"type":"disk","model":"M","vendor":"V","wwn":null})", 0},
                      RowCase{R"({"type":"disk","model":"M","vendor":"V","wwn":5005})", 0},
                      RowCase{R"({"type":"disk","model":"M","vendor":"V"})", 0},
                      RowCase{R"({"type":"rom","model":"M","vendor":"V","wwn":"0x5"})", 0},
                      RowCase{R"({"type":"Disk","model":"M","vendor":"V","wwn":"0x5"})", 0},
                      RowCase{R"({"model":"M","vendor":"V","wwn":"0x5"})", 0},
                      RowCase{R"({"type":"disk","model":"A Logical Volume 1","vendor":"V","wwn":"0x5"})", 0},
                      RowCase{R"({"type":"disk","model":"Logical","vendor":"V","wwn":"0x5"})", 1},
                      RowCase{R"({"type":"disk","vendor":"V","wwn":"0x5"})", 0},
                      RowCase{R"({"type":"disk","model":"M","vendor":"xLSIx","wwn":"0x5"})", 0},
                      RowCase{R"({"type":"disk","model":"M","wwn":"0x5"})", 0}, RowCase{"7", 0}, RowCase{"[]", 0}));

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

class DcakGetDevListTest : public DcakTest {
protected:
    DcakGetDevListTest() { PlanVersion("2.38.1"); }
    static std::string List()
    {
        cJSON *result = nullptr;
        DcakGetDevList(&result);
        return Printed(result);
    }
};

TEST_F(DcakGetDevListTest, ListsValidRowsInOrder)
{
    AddSasHdd("sdb");
    AddSataSsd("sda");
    PlanTool(std::string(kListCommand) + " -J",
             R"({"blockdevices":[{"name":"sdb","type":"disk","vendor":"TOSHIBA ","model":"M","wwn":"0x5"},)"
             R"({"name":"sdc","type":"disk","vendor":"LSI     ","model":"M","wwn":"0x5"},)"
             R"({"name":null,"type":"disk","vendor":"V","model":"M","wwn":"0x5"},)"
             R"({"name":"sda","type":"disk","vendor":"ATA     ","model":"M","wwn":"0x5"}]})");
    PlanTool(SasCommand("sdb"), "SB\n");
    PlanTool(AtaCommand("sda"), "SA\n");
    SetSwitches(1, 0);

    EXPECT_EQ(List(), R"({"disks":[{"device_name":"sdb","serial_number":"SB"},)"
                      R"({"device_name":"sda","serial_number":"SA"}]})");

    EXPECT_EQ(LogCount(3, "DCAK", "device name is NULL."), 1u);
    EXPECT_TRUE(Logged(7, "DCAK", "dev list size:2"));
    EXPECT_TRUE(Logged(7, "DCAK", "DcakGetDevList over, devListLen is 2"));
}

TEST_F(DcakGetDevListTest, FailedSerialIsEmptyFirstAndThenTheOneBefore)
{
    for (const char *name : {"sda", "sdb", "sdc"}) {
        AddSasHdd(name);
    }
    PlanTool(std::string(kListCommand) + " -J",
             R"({"blockdevices":[{"name":"sda","type":"disk","vendor":"V","model":"M","wwn":"0x5"},)"
             R"({"name":"sdb","type":"disk","vendor":"V","model":"M","wwn":"0x5"},)"
             R"({"name":"sdc","type":"disk","vendor":"V","model":"M","wwn":"0x5"}]})");
    PlanTool(SasCommand("sda"), "");
    PlanTool(SasCommand("sdb"), "SB\n");
    PlanTool(SasCommand("sdc"), "");

    EXPECT_EQ(List(), R"({"disks":[{"device_name":"sda","serial_number":""},)"
                      R"({"device_name":"sdb","serial_number":"SB"},{"device_name":"sdc","serial_number":"SB"}]})");
}

TEST_F(DcakGetDevListTest, FailedToolGivesNoResult)
{
    PlanTool(std::string(kListCommand) + " -J", "");

    EXPECT_EQ(List(), "null");

    EXPECT_TRUE(Logged(3, "DCAK", "exec lsblk cmd fail."));
}

TEST_F(DcakGetDevListTest, OddTreesGiveNoDisks)
{
    for (const char *tree : {"{}", R"({"blockdevices":7})", R"({"blockdevices":[7,[],"x",null]})", "[]"}) {
        PlanTool(std::string(kListCommand) + " -J", tree);

        EXPECT_EQ(List(), R"({"disks":[]})") << tree;
    }
}

class DcakGetDiskBaseInfoTest : public DcakTest {
protected:
    DcakGetDiskBaseInfoTest() { PlanVersion("2.38.1"); }
    static void PlanFacts(const std::string &rows)
    {
        PlanTool(std::string(kFactsCommand) + " -J", R"({"blockdevices":[)" + rows + "]}");
    }
    static std::string Base(const std::string &devices) { return Answer(DcakGetDiskBaseInfo, devices); }
};

TEST_F(DcakGetDiskBaseInfoTest, GivesEveryFact)
{
    AddDisk("sda", "SEAGATE ", 0, "ST-ONE 1  ");
    PlanTool(SasCommand("sda"), "SN1\n");
    PlanFacts(
        R"({"name":"sdaa","rev":"0001"},)"
        R"({"name":"sda","serial":"x","wwn":"0x5","rev":"0004  ","size":3840755982336,"log-sec":4096,"vendor":"S "})");

    EXPECT_EQ(Base(R"(["sda"])"), R"({"disks":[{"device_name":"sda","serial_number":"SN1","firmware_revision":"0004",)"
                                  R"("disk_capacity":"3840755982336","vendor_id":"SEAGATE","disk_type":"SSD_SAS",)"
                                  R"("model_number":"ST-ONE 1","sector_size":4096,"disk_media_type":"TLC"}]})");

    EXPECT_TRUE(Logged(7, "DCAK", "DcakGetDiskBaseInfo exec over, devListLen is 1"));
}

TEST_F(DcakGetDiskBaseInfoTest, RunsTheToolsOnceForEachDisk)
{
    AddSasHdd("sda");
    PlanTool(SasCommand("sda"), "SN1\n");
    PlanFacts(R"({"name":"sda"})");

    (void)Base(R"(["sda","sda","sda"])");

    EXPECT_EQ(TimesRun(kVersionCommand), 3u);
    EXPECT_EQ(TimesRun(std::string(kFactsCommand) + " -J"), 3u);
}

TEST_F(DcakGetDiskBaseInfoTest, SizeMayBeTextOrNumberOrAbsent)
{
    AddSasHdd("sda");
    PlanTool(SasCommand("sda"), "SN1\n");

    PlanFacts(R"({"name":"sda","size":"3840755982336","log-sec":"512"})");
    EXPECT_THAT(Base(R"(["sda"])"), ::testing::AllOf(::testing::HasSubstr(R"("disk_capacity":"3840755982336")"),
                                                     ::testing::HasSubstr(R"("sector_size":512)")));
    PlanFacts(R"({"name":"sda","size":null,"log-sec":[]})");
    EXPECT_THAT(Base(R"(["sda"])"), ::testing::AllOf(::testing::HasSubstr(R"("disk_capacity":"0")"),
                                                     ::testing::HasSubstr(R"("sector_size":0)"),
                                                     ::testing::HasSubstr(R"("firmware_revision":"")")));
    PlanFacts(R"({"name":"sda","size":1e308})");
    EXPECT_THAT(Base(R"(["sda"])"), ::testing::HasSubstr(R"("disk_capacity":"0")"));
}

TEST_F(DcakGetDiskBaseInfoTest, UnreadableFactsRepeatThoseOfTheDiskBefore)
{
    AddDisk("sda", "TOSHIBA ", 1, "MODEL-A");
    PlanTool(SasCommand("sda"), "SN1\n");
    PlanFacts(R"({"name":"sda","rev":"A"},{"name":"sdb","rev":"B"})");

    EXPECT_THAT(Base(R"(["sda","sdb"])"),
                ::testing::HasSubstr(R"({"device_name":"sdb","serial_number":"SN1","firmware_revision":"B",)"
                                     R"("disk_capacity":"0","vendor_id":"TOSHIBA","disk_type":"ERR TYPE",)"
                                     R"("model_number":"MODEL-A","sector_size":0,"disk_media_type":"TLC"})"));
}

TEST_F(DcakGetDiskBaseInfoTest, UnsafeNameEndsTheRequest)
{
    AddSasHdd("sda");
    PlanTool(SasCommand("sda"), "SN1\n");
    PlanFacts(R"({"name":"sda"})");

    EXPECT_EQ(Base(R"(["sda","sdb;reboot"])"), "null");

    EXPECT_TRUE(Logged(3, "DCAK", "cmd [sdb;reboot] contains injection char"));
    EXPECT_TRUE(Logged(3, "DCAK", "GetDiskInfoByLsblk ERR"));
}

TEST_F(DcakGetDiskBaseInfoTest, NameThatIsNoTextEndsTheRequest)
{
    EXPECT_EQ(Base("[7]"), "null");
    EXPECT_EQ(Base("[null]"), "null");
}

TEST_F(DcakGetDiskBaseInfoTest, UnknownDiskEndsTheRequest)
{
    PlanFacts(R"({"name":"sdaa"},{"name":"SDA"},7)");

    EXPECT_EQ(Base(R"(["sda"])"), "null");

    EXPECT_TRUE(Logged(3, "DCAK", "json parse faild"));
}

TEST_F(DcakGetDiskBaseInfoTest, FailedToolEndsTheRequest)
{
    PlanTool(std::string(kFactsCommand) + " -J", "lsblk: cannot");

    EXPECT_EQ(Base(R"(["sda"])"), "null");

    EXPECT_TRUE(Logged(3, "DCAK", "exec lsblk cmd failed."));
}

TEST_F(DcakGetDiskBaseInfoTest, MissingListIsAnEmptyList)
{
    EXPECT_EQ(Base("{}"), R"({"disks":[]})");
    EXPECT_EQ(Base("\"sda\""), R"({"disks":[]})");
    EXPECT_EQ(Base("[]"), R"({"disks":[]})");
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

/** The real shell with tools of our own first on PATH. */
class DcakToolsOnPathTest : public DcakTest {
protected:
    DcakToolsOnPathTest() : realPath_(std::getenv("PATH"))
    {
        g_osCalls.popen = popen;
        g_osCalls.pclose = pclose;
        std::filesystem::create_directory(Root() + "/bin");
        (void)setenv("PATH", (Root() + "/bin:" + realPath_).c_str(), 1);
    }
    ~DcakToolsOnPathTest() override { (void)setenv("PATH", realPath_.c_str(), 1); }
    void AddTool(const std::string &name, const std::string &body)
    {
        const std::string path = Root() + "/bin/" + name;
        WriteFile(path, "#!/bin/sh\n" + body);
        (void)chmod(path.c_str(), 0755);
    }
    void AddLsblk(const std::string &version)
    {
        AddTool("lsblk", "case \"$*\" in\n--version) echo 'lsblk from util-linux " + version + "';;\n" +
                             R"SH(*TYPE*-J) echo '{"blockdevices": [
{"name":"sda", "serial":"X1", "type":"disk", "vendor":"ATA     ", "model":"VSSD-1600", "wwn":"0x5000c500a0000001"},
{"name":"sdb", "serial":"X2", "type":"disk", "vendor":"TOSHIBA ", "model":"MG04", "wwn":"0x5000c500b0000001"},
{"name":"sdc", "serial":"X3", "type":"disk", "vendor":"TOSHIBA ", "model":"MG04", "wwn":"0x6000c500b0000001"}]}';;
*TYPE*) echo 'NAME SERIAL TYPE VENDOR  MODEL     WWN
sda  X1     disk ATA     VSSD-1600 0x5000c500a0000001
sdb  X2     disk TOSHIBA MG04      0x5000c500b0000001
sdc  X3     disk TOSHIBA MG04      0x6000c500b0000001';;
*SIZE*-b\ -J) echo '{"blockdevices": [
{"name":"sda", "serial":"X1", "wwn":"0x5", "rev":"2.5+", "size":1600321314816, "log-sec":512, "vendor":"ATA     "},
{"name":"sdb", "serial":"X2", "wwn":"0x5", "rev":"0104", "size":4000787030016, "log-sec":4096, "vendor":"TOSHIBA "}]}';;
*SIZE*-b) echo 'NAME SERIAL WWN REV           SIZE LOG-SEC VENDOR
sda  X1     0x5 2.5+ 1600321314816     512 ATA
sdb  X2     0x5 0104 4000787030016    4096 TOSHIBA';;
esac
)SH");
        AddTool("udevadm", R"SH(case "$*" in
*sda) printf 'DEVNAME=/dev/sda\nID_SERIAL=VSSD_X1\nID_SERIAL_SHORT=SATA-X1\n';;
*sdb) printf 'ID_SERIAL_SHORT=5000c500b0000001\nID_SCSI_SERIAL=SAS-X2\n';;
esac
)SH");
    }

private:
    std::string realPath_;
};

TEST_F(DcakToolsOnPathTest, TableModeGivesTheSameRecordsAsJsonMode)
{
    AddSataSsd("sda");
    AddSasHdd("sdb");
    std::array<std::string, 2> lists;
    std::array<std::string, 2> bases;
    for (size_t i = 0; i < 2; i++) {
        AddLsblk(i == 0 ? "2.23.2" : "2.38.1");
        EXPECT_EQ(CheckLsblkVersionJsonValid(), i);
        cJSON *result = nullptr;
        DcakGetDevList(&result);
        lists[i] = Printed(result);
        bases[i] = Answer(DcakGetDiskBaseInfo, R"(["sda","sdb"])");
    }

    EXPECT_EQ(lists[0], R"({"disks":[{"device_name":"sda","serial_number":"SATA-X1"},)"
                        R"({"device_name":"sdb","serial_number":"SAS-X2"}]})");
    EXPECT_EQ(lists[1], lists[0]);
    EXPECT_THAT(bases[0], ::testing::AllOf(::testing::HasSubstr(R"("disk_capacity":"1600321314816")"),
                                           ::testing::HasSubstr(R"("firmware_revision":"2.5+")"),
                                           ::testing::HasSubstr(R"("sector_size":4096)")));
    EXPECT_EQ(bases[1], bases[0]);
}

TEST_F(DcakToolsOnPathTest, ExitStatusOfAToolIsNotLookedAt)
{
    std::array<char, 16> output{};

    EXPECT_EQ(DcakExecCmd("echo out; exit 3", output.size(), output.data()), 0u);

    EXPECT_STREQ(output.data(), "out\n");
}
