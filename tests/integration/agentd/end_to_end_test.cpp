#include "agentd_fixture.h"

#include <csignal>
#include <filesystem>

namespace {

/** The last whole line of corvaned's JSON status. */
CJsonPtr LastStatus(const std::string &output)
{
    const size_t end = output.rfind('\n');
    if (end == std::string::npos) {
        return nullptr;
    }
    const size_t start = end == 0 ? std::string::npos : output.rfind('\n', end - 1);
    return CJsonPtr(cJSON_Parse(output.substr(start == std::string::npos ? 0 : start + 1).c_str()));
}

const cJSON *FindDisk(const cJSON *status, const std::string &serial)
{
    const cJSON *disk = nullptr;
    cJSON_ArrayForEach(disk, cJSON_GetObjectItem(status, "disks"))
    {
        const char *sn = cJSON_GetStringValue(cJSON_GetObjectItem(disk, "sn"));
        if (sn != nullptr && serial == sn) {
            return disk;
        }
    }
    return nullptr;
}

double IoNumber(const cJSON *disk, const char *name)
{
    const cJSON *number = cJSON_GetObjectItem(cJSON_GetObjectItem(disk, "io"), name);
    return cJSON_IsNumber(number) ? number->valuedouble : -1;
}

std::string Field(const cJSON *disk, const char *name)
{
    const cJSON *item = cJSON_GetObjectItem(disk, name);
    if (cJSON_IsNumber(item)) {
        return std::to_string(item->valueint);
    }
    return cJSON_IsString(item) ? item->valuestring : "";
}

} // namespace

class EndToEndTest : public ServingAgentdTest, public ::testing::WithParamInterface<const char *> {
protected:
    void SetUp() override
    {
        ServingAgentdTest::SetUp();
        InstallLsblk(GetParam());
        std::filesystem::remove_all("/tmp/prefix");
        std::filesystem::create_directories("/tmp/prefix/config");
        std::filesystem::create_directories("/tmp/prefix/lib");
    }
};

/** No command reaches these disks, so their health answers are empty; identity and counters must not suffer. */
TEST_P(EndToEndTest, BothDisksComeOnlineWithTheirCounters)
{
    ChildProcess corvaned(
        {CORVANED_PATH, "--prefix", "/tmp/prefix", "--status-interval", "1", "--status-format", "json"});

    ASSERT_TRUE(corvaned.WaitForOutput([](const std::string &output) {
        const CJsonPtr status = LastStatus(output);
        return IoNumber(FindDisk(status.get(), "SATA-X1"), "ioBusyNum") == 9 &&
               IoNumber(FindDisk(status.get(), "SAS-X2"), "ioBusyNum") == 3;
    })) << corvaned.Output()
        << corvaned.Errors();

    const CJsonPtr status = LastStatus(corvaned.Output());
    const cJSON *sata = FindDisk(status.get(), "SATA-X1");
    EXPECT_EQ(Field(sata, "state"), "normal");
    EXPECT_EQ(Field(sata, "type"), "SSD_SATA");
    EXPECT_EQ(Field(sata, "vendor"), "ATA");
    EXPECT_EQ(Field(sata, "model"), "VSSD-1600");
    EXPECT_EQ(Field(sata, "firmware"), "2.5+");
    EXPECT_EQ(Field(sata, "device"), "sdzy");
    EXPECT_EQ(Field(sata, "capacity"), "1600321314816");
    EXPECT_EQ(Field(sata, "sectorSize"), "512");
    EXPECT_EQ(IoNumber(sata, "queueDepth"), 64);
    EXPECT_EQ(cJSON_GetObjectItem(sata, "health"), nullptr);
    const cJSON *sas = FindDisk(status.get(), "SAS-X2");
    EXPECT_EQ(Field(sas, "type"), "HDD_SAS");
    EXPECT_EQ(Field(sas, "vendor"), "TOSHIBA");
    EXPECT_EQ(Field(sas, "model"), "MG04SCA40EA");
    EXPECT_EQ(Field(sas, "capacity"), "4000787030016");
    EXPECT_EQ(Field(sas, "sectorSize"), "4096");
    EXPECT_EQ(IoNumber(sas, "queueDepth"), 256);
    EXPECT_EQ(cJSON_GetObjectItem(sas, "health"), nullptr);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(status.get(), "disks")), 2);

    const std::string registry = ReadFile("/tmp/prefix/config/disk_mgr.config");
    EXPECT_THAT(registry, ::testing::AllOf(::testing::HasSubstr("SATA-X1"), ::testing::HasSubstr("SAS-X2")));

    unsigned long reads = 1000;
    EXPECT_TRUE(corvaned.WaitForOutput([&reads](const std::string &output) {
        SetCounters(reads += 100000, 2000); // moves on with each status, so that every interval has a rate
        const CJsonPtr now = LastStatus(output);
        const cJSON *disk = FindDisk(now.get(), "SATA-X1");
        return IoNumber(disk, "readIops") > 0 && IoNumber(disk, "readIoBand") > 0;
    })) << corvaned.Output();

    corvaned.Signal(SIGTERM);
    EXPECT_EQ(corvaned.WaitForExit(), 0);
    EXPECT_EQ(corvaned.Errors(), "");
}

INSTANTIATE_TEST_SUITE_P(LsblkModes, EndToEndTest, ::testing::Values("2.23.2", "2.38.1"),
                         [](const auto &test) { return test.index == 0 ? "Table" : "Json"; });
