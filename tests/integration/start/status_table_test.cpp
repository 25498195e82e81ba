#include "status_table.h"

#include <cjson/cJSON.h>
#include <new>

#include "data_mgr/data_mgr_master/data_mgr_master.h"
#include "data_mgr/data_mgr_master/data_mgr_master_refresh.h"
#include "disk_mgr/disk_mgr.h"
#include "status.h"
#include "status_json.h"
#include "support/corvane_fixture.h"

namespace {

bool g_memoryIsShort = false;

void LogNothing(uint32_t, const char *, const char *, uint32_t, const char *, const char *, ...) {}

char g_serial[] = "SN-1";
constexpr uint32_t kDiskId = 3;

DiskMgrObj Disk()
{
    DiskMgrObj disk = {};
    disk.diskId = kDiskId;
    disk.diskType = DISK_TYPE_SSD_SATA;
    disk.mediaType = DISK_MEDIA_TYPE_TLC;
    disk.diskCapacity = 960197124096;
    disk.sectorSize = 512;
    (void)std::snprintf(disk.vendor, sizeof(disk.vendor), "ACME");
    (void)std::snprintf(disk.model, sizeof(disk.model), "Model\tX"); // a device may say anything
    (void)std::snprintf(disk.firmware, sizeof(disk.firmware), "1.0");
    (void)std::snprintf(disk.sn, sizeof(disk.sn), "%s", g_serial);
    (void)std::snprintf(disk.deviceName, sizeof(disk.deviceName), "sda");
    return disk;
}

} // namespace

extern "C" void *__real__Znwm(size_t size);
// Visible, since the linker takes the same name of other libraries for this.
extern "C" __attribute__((visibility("default"))) void *__wrap__Znwm(size_t size)
{
    if (g_memoryIsShort) {
        throw std::bad_alloc();
    }
    return __real__Znwm(size);
}

/** A store with one disk in it. */
class StatusTableTest : public CorvaneTest {
protected:
    void SetUp() override
    {
        // Any account that exists will do for the files.
        g_osCalls.getpwnam_r = [](const char *, struct passwd *entry, char *buffer, size_t size,
                                  struct passwd **found) { return getpwnam_r("root", entry, buffer, size, found); };
        g_osCalls.getgrnam_r = [](const char *, struct group *entry, char *buffer, size_t size, struct group **found) {
            return getgrnam_r("root", entry, buffer, size, found);
        };
        ASSERT_EQ(DiskMgrInit((Prefix() + "/config/disk_mgr.config").c_str()), 0u);
        DiskMgrObj disk = Disk();
        ASSERT_EQ(DiskInfoUpdate(kDiskId, &disk), 0u);
        ASSERT_EQ(DataMgrInit(), 0u);
        ASSERT_NE(g_diskDataMgr[kDiskId], nullptr);
        g_diskDataMgr[kDiskId]->baseInfo->diskState = DISK_STATE_SLOW; // a new disk is normal, whatever it was
    }
    void TearDown() override
    {
        (void)DataMgrDestroy();
        (void)DiskMgrDestroy();
    }
    static std::string Table() { return Printed(PrintStatusTable); }
    static std::string Printed(void (*print)(std::FILE *))
    {
        char *text = nullptr;
        size_t size = 0;
        std::FILE *out = open_memstream(&text, &size);
        print(out);
        (void)std::fclose(out);
        const std::string table = text;
        std::free(text);
        return table;
    }
    static DiskSnRef Serial() { return {4, g_serial}; }
};

TEST_F(StatusTableTest, MarksWhatHasNotBeenReported)
{
    const std::string table = Table();

    EXPECT_THAT(table, ::testing::HasSubstr("  1 disk online\n"));
    EXPECT_THAT(
        table, ::testing::EndsWith("\n  3 slow     SSD_SATA   ACME      Model?X              SN-1             "
                                   "    sda        960.2GB       -       -     -      -             -                 -"
                                   "       -  No action required\n"));
}

TEST_F(StatusTableTest, ShowsHealthAndStatistics)
{
    DiskHealthInfo health = {};
    health.powerOnHours = 12345;
    health.wearInt = 7;
    health.wearFrac = 5;
    ASSERT_EQ(DiskHealthInfoSet(Serial(), &health), 0u);
    DiskIoInfoFrame frame = {};
    frame.tickRate = 1000;
    frame.ticks = 1000;
    ASSERT_EQ(DiskIoStatInfoSet(Serial(), &frame), 0u);
    frame.ticks = 2000; // one second later
    frame.numReadOps = 100;
    frame.numWriteOps = 50;
    frame.bytesRead = 4096 * 1024;
    frame.bytesWritten = 1024 * 1024;
    frame.ioTime = 250000;
    ASSERT_EQ(DiskIoStatInfoSet(Serial(), &frame), 0u);

    const std::string table = Table();

    EXPECT_THAT(table, ::testing::HasSubstr("   12345   7.05%     -      -        100/50         4096/1024  25.00%  "));
}

TEST_F(StatusTableTest, SaysThatTheDisksCannotBeListed)
{
    ASSERT_EQ(DataMgrDestroy(), 0u);

    EXPECT_EQ(Table(), "The disks cannot be listed at this moment.\n");
}

TEST_F(StatusTableTest, TellsThePredictionAndTheStrategy)
{
    DiskDrmInfo life = {.healthScore = 37, .diskLife = 600};
    ASSERT_EQ(DiskDrmInfoSet(kDiskId, Serial(), &life), 0u);
    g_diskDataMgr[kDiskId]->strategy = DISK_STRATEGY_MIGRATE_REPLACE;

    EXPECT_THAT(Table(), ::testing::EndsWith("    37    600             -                 -       -  "
                                             "Migrate data and replace the hard disk\n"));
    EXPECT_THAT(Printed(PrintStatusJson),
                ::testing::HasSubstr("\"strategy\":\"Migrate data and replace the hard disk\","
                                     "\"life\":{\"healthScore\":37,\"diskLife\":600}}"));
}

TEST_F(StatusTableTest, PrintsOneJsonObjectALine)
{
    const std::string bare = Printed(PrintStatusJson);
    DiskHealthInfo health = {};
    health.powerOnHours = 12345;
    health.wearInt = 7;
    health.wearFrac = 5;
    health.detail.raw[0] = 0xA1;
    ASSERT_EQ(DiskHealthInfoSet(Serial(), &health), 0u);
    const std::string full = Printed(PrintStatusJson);

    EXPECT_THAT(
        bare, ::testing::HasSubstr("\"disks\":[{\"id\":3,\"state\":\"slow\",\"type\":\"SSD_SATA\",\"vendor\":\"ACME\","
                                   "\"model\":\"Model?X\",\"firmware\":\"1.0\",\"sn\":\"SN-1\",\"device\":\"sda\","
                                   "\"capacity\":\"960197124096\",\"sectorSize\":512,"
                                   "\"strategy\":\"No action required\"}]}\n"));
    EXPECT_THAT(
        full, ::testing::HasSubstr("\"strategy\":\"No action "
                                   "required\",\"health\":{\"powerOnHours\":12345,\"wear\":\"7.05\",\"detail\":\"a1"));
    cJSON *parsed = cJSON_Parse(full.c_str());
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ(
        std::string(
            cJSON_GetStringValue(cJSON_GetObjectItem(
                cJSON_GetObjectItem(cJSON_GetArrayItem(cJSON_GetObjectItem(parsed, "disks"), 0), "health"), "detail")))
            .size(),
        240u);
    cJSON_Delete(parsed);
}

class PrintStatusTest : public StatusTableTest, public ::testing::WithParamInterface<Options::Format> {
protected:
    static std::string Status()
    {
        return Printed([](std::FILE *out) { PrintStatus(out, GetParam()); });
    }
};

TEST_P(PrintStatusTest, OutlivesAShortageOfMemory)
{
    // The fixture's log takes memory.
    g_corvaneInfra.log = LogNothing;
    ::testing::internal::CaptureStderr();
    g_memoryIsShort = true;
    const std::string without = Status();
    g_memoryIsShort = false;

    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "corvaned: the status cannot be printed: std::bad_alloc\n");
    EXPECT_EQ(without, "");
    EXPECT_THAT(Status(), ::testing::HasSubstr("SN-1"));
}

TEST_P(PrintStatusTest, SaysThatJsonHasNoMemory)
{
    static cJSON_Hooks none = {[](size_t) -> void * { return nullptr; }, std::free};
    if (GetParam() == Options::Format::JSON) {
        cJSON_InitHooks(&none);
    }
    ::testing::internal::CaptureStderr();
    const std::string status = Status();
    cJSON_InitHooks(nullptr);

    const std::string errors = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(status.empty(), GetParam() == Options::Format::JSON);
    EXPECT_EQ(errors, status.empty() ? "corvaned: the status cannot be printed: std::bad_alloc\n" : "");
}

INSTANTIATE_TEST_SUITE_P(Formats, PrintStatusTest, ::testing::Values(Options::Format::TEXT, Options::Format::JSON),
                         [](const auto &test) { return test.param == Options::Format::TEXT ? "Text" : "Json"; });
