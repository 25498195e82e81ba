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
