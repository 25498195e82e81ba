#include "data_collect/data_collect_agent/data_collect_agent_kernel/dcak_ata_smart.h"

#include <array>

#include "unit/data_collect/dcak_fixture.h"

namespace {

void *NoMemory(size_t)
{
    return nullptr;
}

/** Ends an ATA command with this SCSI status. */
std::function<void(sg_io_hdr_t &)> Status(uint8_t status)
{
    return [status](sg_io_hdr_t &hdr) { hdr.status = status; };
}

} // namespace

class DcakGetAtaPowerTimeTest : public DcakTest {
protected:
    DcakGetAtaPowerTimeTest() { AddSataSsd("sda"); }
    uint32_t hours_ = 1;
};

TEST_F(DcakGetAtaPowerTimeTest, TakesTheFirstAttribute9LittleEndian)
{
    const size_t second = 2 + 12;
    const size_t last = 2 + 29 * 12;
    PlanCommand({kCdbSmartData, 512, 96,
                 PageWith({{second, 9},
                           {second + 5, 0x78},
                           {second + 6, 0x56},
                           {second + 7, 0x34},
                           {second + 8, 0x12},
                           {second + 9, 0xFF},
                           {last, 9},
                           {last + 5, 1}},
                          512),
                 Status(0x80), 0});

    EXPECT_EQ(DcakGetAtaPowerTime("/dev/sda", &hours_), 0u);

    EXPECT_EQ(hours_, 0x12345678u);
}

TEST_F(DcakGetAtaPowerTimeTest, LooksAtThe30thEntryAndNoFurther)
{
    PlanCommand({kCdbSmartData, 512, 96, PageWith({{2 + 29 * 12, 9}, {2 + 29 * 12 + 5, 7}}, 512), nullptr, 0});
    PlanCommand({kCdbSmartData, 512, 96, PageWith({{2 + 30 * 12, 9}, {2 + 30 * 12 + 5, 7}}, 512), nullptr, 0});

    EXPECT_EQ(DcakGetAtaPowerTime("/dev/sda", &hours_), 0u);
    EXPECT_EQ(hours_, 7u);
    EXPECT_EQ(DcakGetAtaPowerTime("/dev/sda", &hours_), 0u);
    EXPECT_EQ(hours_, 0u);
}

TEST_F(DcakGetAtaPowerTimeTest, FailuresGiveZero)
{
    PlanCommand({kCdbSmartData, 512, 96, {}, nullptr, EIO});
    PlanCommand({kCdbSmartData, 512, 96, {}, Status(2), 0});

    EXPECT_EQ(DcakGetAtaPowerTime("/dev/sda", &hours_), 0xFFFFFFFFu);
    EXPECT_EQ(DcakGetAtaPowerTime("/dev/sda", &hours_), 0xFFFFFFFFu);
    g_osCalls.malloc = NoMemory;
    EXPECT_EQ(DcakGetAtaPowerTime("/dev/sda", &hours_), 0xFFFFFFFFu);

    EXPECT_EQ(hours_, 0u);
    EXPECT_EQ(LogCount(3, "DCAK", "exec ioctl failed, /dev/sda"), 2u);
    EXPECT_TRUE(Logged(3, "DCAK", "Alloc page failed.\n"));
}

class SetSsdSataSmartInfoTest : public DcakTest {
protected:
    SetSsdSataSmartInfoTest() { AddDisk("sda", "X", 1); }
    CJsonPtr object_{cJSON_CreateObject()};
};

TEST_F(SetSsdSataSmartInfoTest, SataThresholdsDataAndMemory)
{
    PlanCommand({kCdbThresholds, 512, 96, {}, Status(2), 0});
    EXPECT_EQ(SetSsdSataSmartInfo("/dev/sda", object_.get()), 0xFFFFFFFFu);

    PlanCommand({kCdbThresholds, 512, 96, {}, nullptr, 0});
    PlanCommand({kCdbSmartData, 512, 96, {}, nullptr, EPERM});
    EXPECT_EQ(SetSsdSataSmartInfo("/dev/sda", object_.get()), 0xFFFFFFFFu);

    g_osCalls.malloc = NoMemory;
    EXPECT_EQ(SetSsdSataSmartInfo("/dev/sda", object_.get()), 0xFFFFFFFFu);

    EXPECT_EQ(LogCount(3, "DCAK", "exec ioctl failed, /dev/sda"), 2u);
    EXPECT_EQ(LogCount(3, "DCAK", "DcakGetSataSmartPageAndData ERR, /dev/sda"), 3u);
    EXPECT_TRUE(Logged(3, "DCAK", "Alloc page failed.\n"));
}
