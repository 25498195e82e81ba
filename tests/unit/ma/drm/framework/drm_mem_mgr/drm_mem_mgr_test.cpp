#include "ma/drm/framework/drm_mem_mgr/drm_mem_mgr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ma/drm/framework/drm_base.h"
#include "platform/normm.h"
#include "support/fake_host.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr uint32_t kError = 3;
constexpr uint32_t kInfo = 6;
constexpr uint32_t kDebug = 7;

struct PoolRow {
    const char *name;
    uint32_t fixSize;
    uint32_t minNum;
    uint32_t maxNum;
    const char *demand; ///< sizes as the start tells them
};

constexpr std::array<PoolRow, 8> kRows{{
    {"cm_size_32", 40, 64, 30000, "fixsize=40, minnum=64, maxnum=30000, malloc mem = 2560, max mem=1200000."},
    {"cm_size_64", 40, 64, 30000, "fixsize=40, minnum=64, maxnum=30000, malloc mem = 2560, max mem=1200000."},
    {"cm_size_128", 136, 64, 30000, "fixsize=136, minnum=64, maxnum=30000, malloc mem = 8704, max mem=4080000."},
    {"cm_size_256", 264, 64, 10000, "fixsize=264, minnum=64, maxnum=10000, malloc mem = 16896, max mem=2640000."},
    {"cm_size_512", 520, 32, 5000, "fixsize=520, minnum=32, maxnum=5000, malloc mem = 16640, max mem=2600000."},
    {"cm_size_1K", 1032, 16, 2500, "fixsize=1032, minnum=16, maxnum=2500, malloc mem = 16512, max mem=2580000."},
    {"cm_size_2K", 2056, 16, 2500, "fixsize=2056, minnum=16, maxnum=2500, malloc mem = 32896, max mem=5140000."},
    {"cm_size_4064", 4008, 16, 1000, "fixsize=4008, minnum=16, maxnum=1000, malloc mem = 64128, max mem=4008000."},
}};

std::string StatLine(const char *name, long allocCount, long inUse, long burstMax)
{
    std::array<char, 128> text{};
    (void)std::snprintf(text.data(), text.size(), "%-40s %-10ld %-10ld %-10ld\n", name, allocCount, inUse, burstMax);
    return text.data();
}

/** The number of the pool that a block says it came from. */
uint64_t HeaderOf(const void *block)
{
    uint64_t header = 0;
    std::memcpy(&header, static_cast<const uint8_t *>(block) - 8, sizeof(header));
    return header;
}

class DrmMemMgrTest : public FakeHostTest {
protected:
    DrmMemMgrTest() { EXPECT_EQ(DrmMemMgrInit(), DRM_OK); }
    ~DrmMemMgrTest() override
    {
        Knobs() = HostKnobs();
        (void)DrmMemMgrFin();
    }

    static std::string StatsOf(const char *name)
    {
        (void)TakePrinted();
        DrmDebugPrintMemInfo();
        const std::string text = TakePrinted();
        const size_t start = text.find(std::string(name) + " ");
        return text.substr(start, text.find('\n', start) - start + 1);
    }
    /** Texts of the framework's lines with this level. */
    static std::vector<std::string> Texts(uint32_t level)
    {
        std::vector<std::string> texts;
        for (const HostLine &line : HostLog()) {
            if (line.module == 481 && line.level == level) {
                texts.push_back(line.text);
            }
        }
        return texts;
    }
};

using DrmMemMgrInitTest = FakeHostTest;
using DrmMemMgrFinTest = FakeHostTest;
using DrmInitMemPoolTest = FakeHostTest;
using DrmMemMallocLvTest = DrmMemMgrTest;
using DrmMemFreeLvTest = DrmMemMgrTest;
using DrmMallocUmmMemTest = FakeHostTest;
using DrmFreeUmmMemTest = FakeHostTest;
using DrmDebugPrintMemInfoTest = DrmMemMgrTest;
using DrmUmmNewTest = FakeHostTest;

} // namespace

TEST_F(DrmMemMgrInitTest, MakesTheEightPoolsSmallestFirst)
{
    EXPECT_EQ(DrmMemMgrInit(), DRM_OK);

    const std::vector<HostPool> pools = PoolsMade();
    ASSERT_THAT(pools, SizeIs(kRows.size()));
    for (size_t i = 0; i < kRows.size(); i++) {
        EXPECT_EQ(pools[i].name, kRows[i].name);
        EXPECT_EQ(pools[i].fixSize, kRows[i].fixSize) << i;
        EXPECT_EQ(pools[i].minNum, kRows[i].minNum) << i;
        EXPECT_EQ(pools[i].maxNum, kRows[i].maxNum) << i;
        EXPECT_EQ(pools[i].extendFlag, 1u) << i;
    }
    EXPECT_EQ(DrmMemMgrFin(), DRM_OK);
}

TEST_F(DrmMemMgrInitTest, TellsTheDemand)
{
    ASSERT_EQ(DrmMemMgrInit(), DRM_OK);

    for (const PoolRow &row : kRows) {
        EXPECT_EQ(HostLogCount(kDebug, std::string("BDM:") + row.name + " " + row.demand), 1u) << row.name;
    }
    std::vector<std::string> notices;
    for (const HostLine &line : HostLog()) {
        if (line.level == kInfo) {
            notices.push_back(line.text);
        }
    }
    EXPECT_THAT(notices, ElementsAre("Total malloc mem = 160896 byte.", "Need max mem = 23448000 byte.",
                                     "DrmMemMgrInit init ok."));
    EXPECT_EQ(DrmMemMgrFin(), DRM_OK);
}

TEST_F(DrmMemMgrInitTest, ChargesThePoolsToTheFramework)
{
    uint64_t before = 0;
    normm_usage(481, &before, nullptr);

    ASSERT_EQ(DrmMemMgrInit(), DRM_OK);

    uint64_t after = 0;
    normm_usage(481, &after, nullptr);
    EXPECT_GE(after, before + 160896);
    EXPECT_EQ(DrmMemMgrFin(), DRM_OK);
    normm_usage(481, &after, nullptr);
    EXPECT_EQ(after, before);
}

TEST_F(DrmMemMgrInitTest, DeletesEveryPoolWhenOneFails)
{
    Knobs().poolFailAfter = 3;

    EXPECT_EQ(DrmMemMgrInit(), DRM_ERR_FAIL);

    EXPECT_EQ(HostLogCount(kError, "create mem pool name(cm_size_256) failed, size(264) min(64) max(10000)."), 1u);
    EXPECT_EQ(HostLogCount(kError, "Create mempool failed."), 1u);
    EXPECT_FALSE(HostLogged(kInfo, "DrmMemMgrInit init ok."));
    EXPECT_THAT(PoolsMade(), SizeIs(4)) << "nothing is tried after the failure";
    EXPECT_THAT(PoolsDeleted(), SizeIs(3));

    EXPECT_EQ(DrmMemMgrFin(), DRM_OK);
    EXPECT_THAT(PoolsDeleted(), SizeIs(3)) << "nothing is left to delete";
}

TEST_F(DrmInitMemPoolTest, ZeroesTheStatistics)
{
    ASSERT_EQ(DrmInitMemPool(), DRM_OK);
    ASSERT_NE(DrmMemMallocLv("test", 1, 8), nullptr);
    ASSERT_EQ(DrmMemMgrFin(), DRM_OK);

    ASSERT_EQ(DrmInitMemPool(), DRM_OK);

    DrmDebugPrintMemInfo();
    std::string expected;
    for (const PoolRow &row : kRows) {
        expected += StatLine(row.name, 0, 0, 0);
    }
    EXPECT_EQ(TakePrinted(), expected);
    EXPECT_EQ(DrmMemMgrFin(), DRM_OK);
}

TEST_F(DrmMemMgrFinTest, DeletesEachPoolOnce)
{
    ASSERT_EQ(DrmMemMgrInit(), DRM_OK);

    EXPECT_EQ(DrmMemMgrFin(), DRM_OK);
    EXPECT_EQ(DrmMemMgrFin(), DRM_OK);

    std::vector<uint32_t> deleted = PoolsDeleted();
    EXPECT_THAT(deleted, SizeIs(8));
    std::sort(deleted.begin(), deleted.end());
    EXPECT_EQ(std::unique(deleted.begin(), deleted.end()), deleted.end());
    EXPECT_EQ(HostLogCount(kInfo, "DrmMemMgrFin finish,ret=0"), 2u);
}

TEST_F(DrmMemMgrFinTest, TellsARefusalAndDeletesTheRest)
{
    ASSERT_EQ(DrmMemMgrInit(), DRM_OK);
    Knobs().deleteResult = 5;

    EXPECT_EQ(DrmMemMgrFin(), DRM_ERR_FAIL);

    EXPECT_THAT(PoolsDeleted(), SizeIs(8));
    EXPECT_EQ(HostLogCount(kError, "DrmFiniMpool failed ret=5"), 1u);
    EXPECT_FALSE(HostLogged(kInfo, "DrmMemMgrFin finish,ret=0"));
}

TEST_F(DrmMemMallocLvTest, TakesTheSmallestPoolThatHoldsTheRequest)
{
    struct Case {
        uint64_t size;
        uint64_t row;
    };
    constexpr std::array<Case, 15> cases{{{0, 0},
                                          {1, 0},
                                          {32, 0},
                                          {33, 2},
                                          {128, 2},
                                          {129, 3},
                                          {256, 3},
                                          {257, 4},
                                          {512, 4},
                                          {513, 5},
                                          {1024, 5},
                                          {1025, 6},
                                          {2048, 6},
                                          {2049, 7},
                                          {4000, 7}}};
    for (const Case &each : cases) {
        void *block = DrmMemMallocLv("test", 1, each.size);

        ASSERT_NE(block, nullptr) << each.size;
        EXPECT_EQ(HeaderOf(block), each.row) << each.size;

        DrmMemFreeLv("test", 1, block, each.size);
    }
    EXPECT_EQ(PoolItems(), 0);
    EXPECT_THAT(Texts(kError), IsEmpty());
}

TEST_F(DrmMemMallocLvTest, RefusesMoreThanTheLargestPoolHolds)
{
    EXPECT_EQ(DrmMemMallocLv("Caller", 77, 4001), nullptr);
    EXPECT_EQ(DrmMemMallocLv("Caller", 78, 0xFFFFFFFFFFFFFFFFu), nullptr);

    EXPECT_EQ(HostLogCount(kError, "alloc fail,Caller:77:4001"), 1u);
    EXPECT_EQ(HostLogCount(kError, "alloc fail,Caller:78:-1"), 1u);
    EXPECT_EQ(PoolItems(), 0);
}

TEST_F(DrmMemMallocLvTest, AnEmptyPoolIsNotHelpedOutByALargerOne)
{
    std::vector<void *> blocks;
    for (int i = 0; i < 1000; i++) {
        blocks.push_back(DrmMemMallocLv("test", 1, 4000));
        ASSERT_NE(blocks.back(), nullptr) << i;
    }

    EXPECT_EQ(DrmMemMallocLv("Caller", 12, 4000), nullptr);

    EXPECT_EQ(HostLogCount(kError, "alloc mem fail, Caller:12"), 1u);
    EXPECT_EQ(StatsOf("cm_size_4064"), StatLine("cm_size_4064", 1000, 1000, 1000)) << "a failure is not counted";
    for (void *block : blocks) {
        DrmMemFreeLv("test", 1, block, 4000);
    }

    Knobs().itemFailAfter = 0;
    EXPECT_EQ(DrmMemMallocLv("Caller", 13, 32), nullptr);
    EXPECT_EQ(HostLogCount(kError, "alloc mem fail, Caller:13"), 1u);
    EXPECT_EQ(PoolItems(), 0);
}

TEST_F(DrmMemMallocLvTest, AReusedBlockIsZeroed)
{
    void *block = DrmMemMallocLv("test", 1, 4000);
    ASSERT_NE(block, nullptr);
    std::memset(block, 0xee, 4000);
    DrmMemFreeLv("test", 1, block, 4000);

    void *again = DrmMemMallocLv("test", 1, 2049);

    ASSERT_EQ(again, block);
    const std::vector<uint8_t> zeros(4000, 0);
    EXPECT_EQ(std::memcmp(again, zeros.data(), zeros.size()), 0) << "the whole item, whatever was asked for";
    DrmMemFreeLv("test", 1, again, 2049);
}

TEST_F(DrmMemMallocLvTest, CountsAllocationsAndTheirPeak)
{
    void *first = DrmMemMallocLv("test", 1, 32);
    void *second = DrmMemMallocLv("test", 1, 1);
    DrmMemFreeLv("test", 1, first, 32);
    void *third = DrmMemMallocLv("test", 1, 32);

    EXPECT_EQ(StatsOf("cm_size_32"), StatLine("cm_size_32", 3, 2, 2));
    EXPECT_EQ(StatsOf("cm_size_64"), StatLine("cm_size_64", 0, 0, 0));
    EXPECT_EQ(HostLogCount(kDebug, "BDM: cm_size_32 burstMax=1."), 1u);
    EXPECT_EQ(HostLogCount(kDebug, "BDM: cm_size_32 burstMax=2."), 1u) << "not again for the same peak";

    DrmMemFreeLv("test", 1, second, 1);
    DrmMemFreeLv("test", 1, third, 32);
    EXPECT_EQ(StatsOf("cm_size_32"), StatLine("cm_size_32", 3, 0, 2));
}

TEST_F(DrmMemFreeLvTest, ReturnsTheBlockToItsPool)
{
    void *block = DrmMemMallocLv("test", 1, 300);
    ASSERT_EQ(PoolItems(), 1);

    DrmMemFreeLv("test", 1, block, 0);

    EXPECT_EQ(PoolItems(), 0);
    EXPECT_EQ(StatsOf("cm_size_512"), StatLine("cm_size_512", 1, 0, 1));
    EXPECT_THAT(Texts(kError), IsEmpty());
}

TEST_F(DrmMemFreeLvTest, LeavesABlockWithABrokenHeaderOut)
{
    auto *block = static_cast<uint8_t *>(DrmMemMallocLv("test", 1, 32));
    const uint64_t broken = 8;
    std::memcpy(block - 8, &broken, sizeof(broken));

    DrmMemFreeLv("Caller", 99, block, 32);

    EXPECT_EQ(HostLogCount(kError, "invalid pool_id, Caller:99."), 1u);
    EXPECT_EQ(PoolItems(), 1);
    EXPECT_EQ(StatsOf("cm_size_32"), StatLine("cm_size_32", 1, 1, 1));

    // The last number that is one.
    const uint64_t other = 7;
    std::memcpy(block - 8, &other, sizeof(other));
    DrmMemFreeLv("Caller", 100, block, 32);
    EXPECT_FALSE(HostLogged(kError, "invalid pool_id, Caller:100."));
    EXPECT_EQ(PoolItems(), 1) << "the host knows that it is no item of that pool";
}

TEST_F(DrmMemFreeLvTest, ANullPointerIsToldOncePerHourAndReportedEveryTenHours)
{
    constexpr uint64_t window = 900000;
    constexpr uint64_t interval = 9000000;
    const std::string text = "Free invalid LV mem.";
    // The place remembers what earlier tests made it say: start beyond all that, with a report.
    static uint64_t start = 0;
    start += 100 * interval;
    SetJiffies(start);
    DrmMemFreeLv("test", 1, nullptr, 0);
    DrmMemFreeLv("test", 1, nullptr, 0);
    const uint64_t reported = start + window;
    SetJiffies(reported);
    DrmMemFreeLv("test", 1, nullptr, 0);
    ClearHostLog();

    SetJiffies(reported + window - 1);
    DrmMemFreeLv("test", 1, nullptr, 0);
    EXPECT_THAT(HostLog(), IsEmpty());
    SetJiffies(reported + window);
    DrmMemFreeLv("test", 1, nullptr, 0);
    EXPECT_THAT(Texts(kError), ElementsAre(text)) << "the missed line waits for its report";
    SetJiffies(reported + interval - 1);
    DrmMemFreeLv("test", 1, nullptr, 0);
    EXPECT_THAT(Texts(kError), ElementsAre(text, text));
    SetJiffies(reported + interval + window);
    DrmMemFreeLv("test", 1, nullptr, 0);

    const std::vector<HostLine> lines = HostLog();
    ASSERT_THAT(lines, SizeIs(4));
    EXPECT_EQ(lines[2].text, "print: 1 messages suppressed.DrmMemFreeLv,line=" + std::to_string(lines[2].line) + ".");
    EXPECT_EQ(lines[2].level, kError);
    EXPECT_EQ(lines[3].text, text);
    EXPECT_EQ(lines[3].func, "DrmMemFreeLv");
}

TEST_F(DrmDebugPrintMemInfoTest, PrintsOneLinePerPool)
{
    void *block = DrmMemMallocLv("test", 1, 2000);

    DrmDebugPrintMemInfo();

    std::string expected;
    for (const PoolRow &row : kRows) {
        const long count = std::string(row.name) == "cm_size_2K" ? 1 : 0;
        expected += StatLine(row.name, count, count, count);
    }
    EXPECT_EQ(TakePrinted(), expected);
    DrmMemFreeLv("test", 1, block, 2000);
}

TEST_F(DrmMallocUmmMemTest, GivesAZeroedBlockOfTheHeap)
{
    uint64_t before = 0;
    normm_usage(481, &before, nullptr);

    auto *block = static_cast<uint8_t *>(DrmMallocUmmMem("test", 999, 5000));

    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(std::all_of(block, block + 5000, [](uint8_t byte) { return byte == 0; }));
    EXPECT_EQ(HeapBlocks(), 1);
    uint64_t after = 0;
    normm_usage(481, &after, nullptr);
    EXPECT_EQ(after, before + 5000) << "whoever asks, the framework's account pays";

    DrmFreeUmmMem("test", 999, block, 5000);
    EXPECT_EQ(HeapBlocks(), 0);
}

TEST_F(DrmMallocUmmMemTest, ZeroesWhatTheHeapHadInUse)
{
    void *former = normm_malloc(64, 481, "test");
    std::memset(former, 0xee, 64);
    normm_free(former, 481, "test");

    auto *block = static_cast<uint8_t *>(DrmMallocUmmMem("test", 481, 64));

    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(std::all_of(block, block + 64, [](uint8_t byte) { return byte == 0; }));
    DrmFreeUmmMem("test", 481, block, 64);
}

TEST_F(DrmMallocUmmMemTest, SizeZeroGivesNull)
{
    EXPECT_EQ(DrmMallocUmmMem("test", 481, 0), nullptr);

    EXPECT_EQ(HeapBlocks(), 0);
    EXPECT_THAT(HostLog(), IsEmpty());
}

TEST_F(DrmMallocUmmMemTest, TellsAFailure)
{
    Knobs().heapFailAfter = 0;

    EXPECT_EQ(DrmMallocUmmMem("test", 12, 8), nullptr);

    EXPECT_EQ(HostLogCount(kError, "alloc mem fail, input pid(12), used pid(481)"), 1u);
}

TEST_F(DrmFreeUmmMemTest, TellsANullPointerEachTime)
{
    DrmFreeUmmMem("test", 12, nullptr, 8);
    DrmFreeUmmMem("test", 12, nullptr, 8);

    EXPECT_EQ(HostLogCount(kError, "Free invalid umm mem, input pid(12), used pid(481)"), 2u);
}

TEST_F(DrmUmmNewTest, OwnsItsRecord)
{
    {
        const DrmUmmPtr<uint64_t> record = DrmUmmNew<uint64_t>();

        ASSERT_NE(record, nullptr);
        EXPECT_EQ(*record, 0u);
        EXPECT_EQ(HeapBlocks(), 1);
    }
    EXPECT_EQ(HeapBlocks(), 0);
    EXPECT_THAT(HostLog(), IsEmpty());
}
