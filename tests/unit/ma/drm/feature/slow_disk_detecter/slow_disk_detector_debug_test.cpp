#include "ma/drm/feature/slow_disk_detecter/slow_disk_detector_debug.h"

#include "ma/drm/framework/debug/drm_compact_debug.h"
#include "unit/ma/drm/feature/slow_disk_detecter/slow_disk_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DrmSlowDiskDetectDebugInitDiagTest : public SlowDiskTest {};
class SlowDiskTracePointTest : public SlowDiskTest {};

/** Runs commands as the debug shell does. */
class SlowDiskCommandTest : public SlowDiskTest {
protected:
    static std::string Run(std::vector<std::string> words)
    {
        words.insert(words.begin(), "u_drm_slow_disk");
        std::vector<char *> argv;
        for (std::string &word : words) {
            argv.push_back(word.data());
        }
        const std::vector<DBG_CmdInfo> commands = Commands();
        EXPECT_EQ(commands.size(), 1u);
        (void)commands.at(0).exec(static_cast<int>(argv.size()), argv.data());
        return TakePrinted();
    }
    /** As the command writes one row of a block. */
    template <typename Value>
    static std::string Row(const std::string &label, uint32_t firstSlot, Value value)
    {
        std::string row = std::string(10 - label.size(), ' ') + label;
        for (uint32_t slot = firstSlot; slot < firstSlot + 25; slot++) {
            const std::string text = std::to_string(value(slot));
            row += (text.size() < 10 ? std::string(10 - text.size(), ' ') : "") + text;
        }
        return row + "\n";
    }
};
class ShowDiskInZoneTest : public SlowDiskCommandTest {};
class ShowDiskIostatTest : public SlowDiskCommandTest {};

TEST_F(DrmSlowDiskDetectDebugInitDiagTest, RegistersTwoCommandsWithTheirHelp)
{
    ASSERT_EQ(Commands().size(), 1u);
    Commands()[0].help("u_drm_slow_disk", 0);

    EXPECT_EQ(TakePrinted(), "SYNOPSIS\n"
                             "u_drm_slow_disk showdisk disktype: show disk list in zone, disktype[0-3]\n"
                             "u_drm_slow_disk showdiskiostat diskid: show disk iostat\n");
}

TEST_F(DrmSlowDiskDetectDebugInitDiagTest, ARefusalOfTheHostIsTold)
{
    DrmSlowDiskDetectDebugExitDiag();
    ClearHostLog();
    Knobs().regCmd = -1;

    DrmSlowDiskDetectDebugInitDiag();

    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "DRM_SLOW_DISK: reg diag cmd fail."), 1u);
    EXPECT_EQ(DrmDebugGetDiagCmdClusterByName("u_drm_slow_disk"), nullptr);
    Knobs().regCmd = 0;
    DrmSlowDiskDetectDebugInitDiag();
}

TEST_F(DrmSlowDiskDetectDebugInitDiagTest, WithoutACommandTheFirstWordIsTakenBack)
{
    DrmSlowDiskDetectDebugExitDiag();
    DrmDiagCmd others[3] = {};
    for (DrmDiagCmd &other : others) {
        EXPECT_EQ(DrmDebugRegDiagCmdGroup("u_drm_slow_disk", &other, 1), 0u);
    }
    ClearHostLog();

    DrmSlowDiskDetectDebugInitDiag();

    EXPECT_EQ(HostLogCount(CORVANE_LOG_ERROR, "DRM_SLOW_DISK: reg diag cmd fail."), 1u);
    EXPECT_THAT(Commands(), IsEmpty());
    for (DrmDiagCmd &other : others) {
        DrmDebugUnRegDiagCmdGroup("u_drm_slow_disk", &other);
    }
    DrmSlowDiskDetectDebugInitDiag();
}

TEST_F(ShowDiskInZoneTest, SixteenToALine)
{
    for (uint32_t diskId = 0; diskId < 33; diskId++) {
        Join(diskId == 32 ? 127 : diskId);
    }

    EXPECT_EQ(Run({"showdiskinzone", "2"}), "0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15\n"
                                            "16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31\n"
                                            "127\n");
}

TEST_F(ShowDiskInZoneTest, FullLineAndOrderOfArrival)
{
    for (uint32_t diskId = 16; diskId > 0; diskId--) {
        Join(diskId + 99, DISK_TYPE_HDD_SAS);
    }

    EXPECT_EQ(Run({"showdiskinzone", "3", "more"}),
              "115,114,113,112,111,110,109,108,107,106,105,104,103,102,101,100\n");
}

TEST_F(ShowDiskInZoneTest, AnEmptyZonePrintsNothing)
{
    EXPECT_EQ(Run({"showdiskinzone", "0"}), "");
}

TEST_F(ShowDiskInZoneTest, BadArguments)
{
    EXPECT_EQ(Run({"showdiskinzone"}), "lack param.\n");
    EXPECT_EQ(Run({"showdiskinzone", "4"}), "invalid disk type: 4.\n");
    EXPECT_EQ(Run({"showdiskinzone", "4294967295"}), "invalid disk type: 4294967295.\n");
    EXPECT_EQ(Run({"showdiskinzone", "nvme"}), "invalid disk type: 4294967295.\n");
    EXPECT_EQ(Run({"showdiskinzone", "2x"}), "invalid disk type: 4294967295.\n");
    EXPECT_EQ(Run({"showdiskinzone", ""}), "invalid disk type: 4294967295.\n");
}

TEST_F(ShowDiskInZoneTest, WhatDoesNotFitALineIsAnError)
{
    DrmSlowDiskObj forged[16] = {};
    for (DrmSlowDiskObj &member : forged) {
        member.diskId = 0x80000000u; // a minus and ten digits
        DrmListAddTail(&Zone().disks, &member.links);
    }

    EXPECT_EQ(Run({"showdiskinzone", "2"}), "inner error occur.\n");

    DrmListInit(&Zone().disks);
}

TEST_F(ShowDiskInZoneTest, OverlongListsAreCut)
{
    std::vector<DrmSlowDiskObj> forged(130);
    for (DrmSlowDiskObj &member : forged) {
        member.diskId = 1;
        DrmListAddTail(&Zone().disks, &member.links);
    }

    const std::string out = Run({"showdiskinzone", "2"});

    EXPECT_EQ(std::count(out.begin(), out.end(), '1'), 128);
    DrmListInit(&Zone().disks);
}

TEST_F(ShowDiskIostatTest, FourBlocksOfTwentyFiveSlots)
{
    Join(5);
    DrmDiskIostatWindow &window = Window(5);
    for (uint32_t slot = 0; slot < 100; slot++) {
        window.samples[slot] = {.iops = slot == 99 ? 12345678901u : slot + 1,
                                .bandwidth = slot * 1000,
                                .svctm = 4000000000u + slot,
                                .util = static_cast<uint16_t>(slot),
                                .busyNum = static_cast<uint16_t>(65535 - slot)};
        window.validBits[slot / 8] |= static_cast<uint8_t>((slot % 2) << (slot % 8));
        window.slowBits[slot / 8] |= static_cast<uint8_t>((slot % 3 == 0 ? 1u : 0u) << (slot % 8));
    }

    std::string expected;
    for (uint32_t first = 0; first < 100; first += 25) {
        expected += Row("index:", first, [](uint32_t slot) { return slot; });
        expected += Row("isvalid:", first, [](uint32_t slot) { return slot % 2; });
        expected += Row("isslow:", first, [](uint32_t slot) { return slot % 3 == 0 ? 1 : 0; });
        expected += Row("svctm:", first, [&](uint32_t slot) { return window.samples[slot].svctm; });
        expected += Row("iops:", first, [&](uint32_t slot) { return window.samples[slot].iops; });
        expected += Row("bandwidth:", first, [&](uint32_t slot) { return window.samples[slot].bandwidth; });
        expected += Row("util:", first, [&](uint32_t slot) { return window.samples[slot].util; });
        expected += Row("busynum:", first, [&](uint32_t slot) { return window.samples[slot].busyNum; });
    }
    EXPECT_EQ(Run({"showdiskiostat", "5"}), expected);
}

TEST_F(ShowDiskIostatTest, LeadsWithLabelsOfTenCharacters)
{
    Join(5);

    const std::string out = Run({"showdiskiostat", "5"});

    EXPECT_TRUE(out.starts_with("    index:         0         1         2"));
    EXPECT_NE(out.find("        24\n  isvalid:         0"), std::string::npos);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 32);
}

TEST_F(ShowDiskIostatTest, GreatestValuesFit)
{
    Join(5);
    for (DrmDiskIostatSample &sample : Window(5).samples) {
        sample.iops = UINT64_MAX;
    }

    const std::string out = Run({"showdiskiostat", "5"});

    std::string row = "     iops:";
    for (int i = 0; i < 25; i++) {
        row += "18446744073709551615";
    }
    EXPECT_NE(out.find(row + "\n"), std::string::npos);
}

TEST_F(ShowDiskIostatTest, BadArguments)
{
    AddDisk(5, DISK_TYPE_SSD_NVME);

    EXPECT_EQ(Run({"showdiskiostat"}), "lack param.\n");
    EXPECT_EQ(Run({"showdiskiostat", "5"}), "disk(5) iostat not exist.\n");
    EXPECT_EQ(Run({"showdiskiostat", "128"}), "disk(128) iostat not exist.\n");
    EXPECT_EQ(Run({"showdiskiostat", "sda"}), "disk(4294967295) iostat not exist.\n");
}

TEST_F(SlowDiskTracePointTest, AListedDiskIsHit)
{
    uint32_t hit = 0;
    uint32_t result = 7;

    DrmSlowDiskDetectSkipUpdateDiskPerfTp("3,5", 5, &hit);
    EXPECT_EQ(hit, 1u);
    hit = 0;
    DrmSlowDiskDetectCreateDiskObjFailTp("5", &hit, 5);
    EXPECT_EQ(hit, 1u);
    hit = 0;
    DrmSlowDiskDetectGetIostatFailTp("5,3", &hit, 5, &result);
    EXPECT_EQ(hit, 1u);
    EXPECT_EQ(result, 0xFFFFFFFFu);
}

TEST_F(SlowDiskTracePointTest, OtherDisksAreLeftAlone)
{
    uint32_t hit = 9;
    uint32_t result = 7;

    DrmSlowDiskDetectSkipUpdateDiskPerfTp("3,55", 5, &hit);
    DrmSlowDiskDetectCreateDiskObjFailTp("3,55", &hit, 5);
    DrmSlowDiskDetectGetIostatFailTp("3,55", &hit, 5, &result);

    EXPECT_EQ(hit, 9u);
    EXPECT_EQ(result, 7u);
}

TEST_F(SlowDiskTracePointTest, AnEmptyListHitsEveryDiskOfTwo)
{
    uint32_t hit = 0;
    uint32_t result = 7;

    DrmSlowDiskDetectSkipUpdateDiskPerfTp("", 5, &hit);
    EXPECT_EQ(hit, 0u);
    DrmSlowDiskDetectCreateDiskObjFailTp("", &hit, 5);
    EXPECT_EQ(hit, 1u);
    hit = 0;
    DrmSlowDiskDetectGetIostatFailTp("", &hit, 5, &result);
    EXPECT_EQ(hit, 1u);
    EXPECT_EQ(result, 0xFFFFFFFFu);
}

TEST_F(SlowDiskTracePointTest, NothingIsRegistered)
{
    const size_t commands = Commands().size();

    DrmSlowDiskDetectDebugRegTp();

    EXPECT_EQ(Commands().size(), commands);
    EXPECT_TRUE(HostLog().empty());
}
