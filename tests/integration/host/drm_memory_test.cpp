#include "drm_fixture.h"

#include <cstring>

namespace {

using testing::ElementsAre;

class DrmMemMgrTest : public DrmTest {
protected:
    static std::vector<std::string> Pools()
    {
        lib::DrmDebugPrintMemInfo();
        std::vector<std::string> rows;
        std::string text = TakeHostPrint();
        for (size_t at = 0; at < text.size();) {
            const size_t end = text.find('\n', at);
            rows.push_back(text.substr(at, end - at));
            at = end + 1;
        }
        return rows;
    }

    static std::string Row(const char *name, long count, long inUse, long burst)
    {
        char text[128];
        (void)std::snprintf(text, sizeof(text), "%-40s %-10ld %-10ld %-10ld", name, count, inUse, burst);
        return text;
    }
};

TEST_F(DrmMemMgrTest, AsksTheHostForEightPoolsSmallestFirst)
{
    EXPECT_THAT(HostPools(), ElementsAre("(cm_size_32, 40, 64, 30000, 0, 1)", "(cm_size_64, 40, 64, 30000, 0, 1)",
                                         "(cm_size_128, 136, 64, 30000, 0, 1)", "(cm_size_256, 264, 64, 10000, 0, 1)",
                                         "(cm_size_512, 520, 32, 5000, 0, 1)", "(cm_size_1K, 1032, 16, 2500, 0, 1)",
                                         "(cm_size_2K, 2056, 16, 2500, 0, 1)", "(cm_size_4064, 4008, 16, 1000, 0, 1)"));
}

TEST_F(DrmMemMgrTest, InitTellsTheSums)
{
    EXPECT_EQ(lib::DrmMemMgrInit(), 0u);

    const uint64_t now = 40 * 64 * 2 + 136 * 64 + 264 * 64 + 520 * 32 + 1032 * 16 + 2056 * 16 + 4008 * 16;
    const uint64_t most =
        40ULL * 30000 * 2 + 136 * 30000 + 264 * 10000 + 520 * 5000 + 1032 * 2500 + 2056 * 2500 + 4008 * 1000;
    EXPECT_EQ(Logged(6, "Total malloc mem = " + std::to_string(now) + " byte."), 1u);
    EXPECT_EQ(Logged(6, "Need max mem = " + std::to_string(most) + " byte."), 1u);
    EXPECT_EQ(Logged(7, "BDM:cm_size_32 fixsize=40, minnum=64, maxnum=30000, malloc mem = 2560, max mem=1200000."), 1u);
    EXPECT_EQ(Logged(7, "BDM:cm_size_4064 fixsize=4008, minnum=16, maxnum=1000, malloc mem = 64128, max mem=4008000."),
              1u);
    EXPECT_EQ(Logged(6, "DrmMemMgrInit init ok."), 1u);
}

TEST_F(DrmMemMgrTest, APoolThatCannotBeMadeEndsTheStart)
{
    g_hostResults.failedPool = "cm_size_256";
    const size_t before = HostCalls().size();

    EXPECT_EQ(lib::DrmMemMgrInit(), kFail);

    EXPECT_EQ(Logged(3, "create mem pool name(cm_size_256) failed, size(264) min(64) max(10000)."), 1u);
    EXPECT_EQ(Logged(3, "Create mempool failed."), 1u);
    size_t deleted = 0;
    const std::vector<std::string> calls = HostCalls();
    for (size_t i = before; i < calls.size(); i++) {
        deleted += calls[i].rfind("deletePartitionByID", 0) == 0 ? 1 : 0;
    }
    EXPECT_GE(deleted, 3u) << "the three before it";
}

TEST_F(DrmMemMgrTest, FinDeletesEveryPoolOnce)
{
    const size_t before = HostCalls().size();

    EXPECT_EQ(lib::DrmMemMgrFin(), 0u);
    EXPECT_EQ(lib::DrmMemMgrFin(), 0u);

    size_t deleted = 0;
    const std::vector<std::string> calls = HostCalls();
    for (size_t i = before; i < calls.size(); i++) {
        deleted += calls[i].rfind("deletePartitionByID", 0) == 0 ? 1 : 0;
    }
    EXPECT_EQ(deleted, 8u);
    EXPECT_EQ(Logged(6, "DrmMemMgrFin finish,ret=0"), 2u);
}

TEST_F(DrmMemMgrTest, FinTellsAFailure)
{
    g_hostResults.deletePartition = 7;

    EXPECT_NE(lib::DrmMemMgrFin(), 0u);

    size_t told = 0;
    for (const HostLine &line : HostLines()) {
        told += line.level == 3 && line.text.rfind("DrmFiniMpool failed ret=", 0) == 0 ? 1 : 0;
    }
    EXPECT_EQ(told, 1u);
}

TEST_F(DrmMemMgrTest, TakesTheFirstRowThatHoldsTheRequest)
{
    ASSERT_EQ(lib::DrmMemMgrInit(), 0u); // statistics from 0
    const uint64_t sizes[] = {1, 32, 33, 128, 129, 256, 512, 513, 1024, 1025, 2048, 2049, 4000};
    std::vector<void *> blocks;

    for (const uint64_t size : sizes) {
        auto *block = static_cast<uint8_t *>(lib::DrmMemMallocLv("Caller", 12, size));
        ASSERT_NE(block, nullptr) << size;
        for (uint64_t i = 0; i < size; i++) {
            ASSERT_EQ(block[i], 0u) << size;
        }
        blocks.push_back(block);
    }

    EXPECT_THAT(Pools(),
                ElementsAre(Row("cm_size_32", 2, 2, 2), Row("cm_size_64", 0, 0, 0), Row("cm_size_128", 2, 2, 2),
                            Row("cm_size_256", 2, 2, 2), Row("cm_size_512", 1, 1, 1), Row("cm_size_1K", 2, 2, 2),
                            Row("cm_size_2K", 2, 2, 2), Row("cm_size_4064", 2, 2, 2)));
    uint64_t header = 99;
    std::memcpy(&header, static_cast<uint8_t *>(blocks.back()) - 8, 8);
    EXPECT_EQ(header, 7u);
    for (void *block : blocks) {
        lib::DrmMemFreeLv("Caller", 13, block, 0);
    }
    EXPECT_EQ(Pools()[0], Row("cm_size_32", 2, 0, 2));
    EXPECT_EQ(Pools()[7], Row("cm_size_4064", 2, 0, 2));
    EXPECT_EQ(Logged(7, "BDM: cm_size_32 burstMax=1."), 1u);
    EXPECT_EQ(Logged(7, "BDM: cm_size_32 burstMax=2."), 1u);
}

TEST_F(DrmMemMgrTest, RefusesMoreThan4000Bytes)
{
    EXPECT_EQ(lib::DrmMemMallocLv("Caller", 12, 4001), nullptr);

    EXPECT_EQ(Logged(3, "alloc fail,Caller:12:4001"), 1u);
}

TEST_F(DrmMemMgrTest, AnEmptyPoolIsNotHelpedOut)
{
    g_hostResults.allocStructure = 1;

    EXPECT_EQ(lib::DrmMemMallocLv("Caller", 12, 8), nullptr);

    EXPECT_EQ(Logged(3, "alloc mem fail, Caller:12"), 1u);
}

TEST_F(DrmMemMgrTest, NullIsNotFreedAndToldOnceInAWhile)
{
    const char *text = "Free invalid LV mem.";
    const auto suppressed = [] {
        std::vector<std::string> lines;
        for (const HostLine &line : HostLines()) {
            if (line.text.rfind("print: ", 0) == 0) {
                lines.push_back(line.text);
            }
        }
        return lines;
    };

    lib::DrmMemFreeLv("Caller", 12, nullptr, 0);
    lib::DrmMemFreeLv("Caller", 12, nullptr, 0);
    lib::DrmMemFreeLv("Caller", 12, nullptr, 0);
    EXPECT_EQ(HostLogged(text), 1u);
    EXPECT_TRUE(suppressed().empty());

    g_hostResults.jiffies += 9000000;
    lib::DrmMemFreeLv("Caller", 12, nullptr, 0);

    EXPECT_EQ(HostLogged(text), 2u);
    ASSERT_EQ(suppressed().size(), 1u);
    EXPECT_THAT(suppressed()[0], testing::StartsWith("print: 2 messages suppressed.DrmMemFreeLv,line="));
    EXPECT_EQ(suppressed()[0].back(), '.');
}

TEST_F(DrmMemMgrTest, ReportOfSuppressedLinesHasAnIntervalOfItsOwn)
{
    const auto reports = [] {
        size_t count = 0;
        for (const HostLine &line : HostLines()) {
            count += line.text.rfind("print: ", 0) == 0 ? 1 : 0;
        }
        return count;
    };
    // The first report is due at once: lastReport is 0 and the clock is far from it.
    lib::DrmMemFreeLv("Caller", 1, nullptr, 0);
    lib::DrmMemFreeLv("Caller", 2, nullptr, 0);
    g_hostResults.jiffies += 900000;
    lib::DrmMemFreeLv("Caller", 3, nullptr, 0);
    EXPECT_EQ(reports(), 1u);

    lib::DrmMemFreeLv("Caller", 4, nullptr, 0);
    g_hostResults.jiffies += 900000;
    lib::DrmMemFreeLv("Caller", 5, nullptr, 0);
    EXPECT_EQ(reports(), 1u) << "within 9000000 of the last";
    g_hostResults.jiffies += 8100000;
    lib::DrmMemFreeLv("Caller", 6, nullptr, 0);
    EXPECT_EQ(reports(), 2u);
}

TEST_F(DrmMemMgrTest, ABlockWithABrokenHeaderIsNotReturned)
{
    auto *block = static_cast<uint8_t *>(lib::DrmMemMallocLv("Caller", 12, 8));
    const uint64_t bad = 8;
    uint64_t good = 0;
    std::memcpy(&good, block - 8, 8);
    std::memcpy(block - 8, &bad, 8);
    const size_t before = HostCalls().size();

    lib::DrmMemFreeLv("Freer", 13, block, 0);

    EXPECT_EQ(Logged(3, "invalid pool_id, Freer:13."), 1u);
    EXPECT_EQ(HostCalls().size(), before);
    std::memcpy(block - 8, &good, 8);
    lib::DrmMemFreeLv("Freer", 14, block, 0);
    EXPECT_EQ(HostCalls().back(), "freeStructure(1)");
}

TEST_F(DrmMemMgrTest, HeapBlocksAreZeroedAndCountedToTheFramework)
{
    void *block = lib::DrmMallocUmmMem("Caller", 77, 24);
    ASSERT_NE(block, nullptr);
    for (int i = 0; i < 24; i++) {
        EXPECT_EQ(static_cast<uint8_t *>(block)[i], 0u);
    }
    lib::DrmFreeUmmMem("Caller", 77, block, 24);

    EXPECT_EQ(lib::DrmMallocUmmMem("Caller", 77, 0), nullptr);
    EXPECT_TRUE(HostLines().empty());
    g_hostResults.heapUntilFailure = 0;
    EXPECT_EQ(lib::DrmMallocUmmMem("Caller", 77, 24), nullptr);
    EXPECT_EQ(Logged(3, "alloc mem fail, input pid(77), used pid(481)"), 1u);
    lib::DrmFreeUmmMem("Caller", 78, nullptr, 24);
    EXPECT_EQ(Logged(3, "Free invalid umm mem, input pid(78), used pid(481)"), 1u);
}

class DrmLocalDataTest : public DrmTest {};

TEST_F(DrmLocalDataTest, TheTableHas128RowsOf264Bytes)
{
    EXPECT_THAT(HostCalls(), testing::Contains("createContinuousPartition(33792,BDM_DRM_LOCAL_DISK_POOL)"));
    EXPECT_EQ(lib::Global<uint32_t>("g_drmAllLocalDiskInfo"), 128u);
    const auto *words = static_cast<void *const *>(lib::Address("g_drmAllLocalDiskInfo"));
    const lib::DrmLocalDiskData *rows = nullptr;
    for (int i = 1; i < 200 && rows == nullptr; i++) {
        // The pointer follows the 32 locks, whose size is the host's.
        const auto *candidate = static_cast<const lib::DrmLocalDiskData *>(words[i]);
        const auto address = reinterpret_cast<uintptr_t>(candidate);
        rows = (address >> 40) != 0 && (address >> 47) == 0 && address % 8 == 0 ? candidate : nullptr;
    }
    ASSERT_NE(rows, nullptr);
    for (uint32_t i = 0; i < 128; i++) {
        EXPECT_EQ(rows[i].innerId, i);
        EXPECT_EQ(rows[i].invalid, kFail);
        for (const void *data : rows[i].featureData) {
            EXPECT_EQ(data, nullptr);
        }
    }
}

TEST_F(DrmLocalDataTest, WithoutMemoryTheTableFails)
{
    g_hostResults.contiguous = 3;

    EXPECT_EQ(lib::DrmLocalDataMgrInit(), kFail);

    EXPECT_EQ(Logged(3, "Create BDM_DRM_LOCAL_DISK_POOL failed."), 1u);
    EXPECT_EQ(Logged(3, "Drm local alloc partition failed."), 1u);
}

TEST_F(DrmLocalDataTest, PointersOfADiskAndFeatureAreKept)
{
    int value = 0;
    void *out = &value;

    EXPECT_EQ(lib::setFeatureLocPrivateData(127, 31, &value), 0u);
    EXPECT_EQ(lib::getFeatureLocPrivateData(127, 30, &out), 0u);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(lib::getFeatureLocPrivateData(127, 31, &out), 0u);
    EXPECT_EQ(out, &value);
    EXPECT_EQ(lib::setFeatureLocPrivateData(127, 31, nullptr), 0u);
    EXPECT_EQ(lib::getFeatureLocPrivateData(127, 31, &out), 0u);
    EXPECT_EQ(out, nullptr);
}

TEST_F(DrmLocalDataTest, RefusesDisksFrom128AndFeaturesFrom32On)
{
    int value = 0;
    void *out = &value;

    EXPECT_EQ(lib::setFeatureLocPrivateData(128, 3, &value), kFail);
    EXPECT_EQ(lib::setFeatureLocPrivateData(5, 32, &value), kFail);
    EXPECT_EQ(lib::getFeatureLocPrivateData(kFail, 3, &out), kFail);

    EXPECT_EQ(Logged(3, "Para is invalid: disk ID(128), inner ID(128), feature ID(3)."), 1u);
    EXPECT_EQ(Logged(3, "Para is invalid: disk ID(5), inner ID(5), feature ID(32)."), 1u);
    EXPECT_EQ(Logged(3, "Para is invalid: disk ID(4294967295), inner ID(4294967295), feature ID(3)."), 1u);
}

TEST_F(DrmLocalDataTest, ListsTheDisksThatHaveData)
{
    int value = 0;
    ASSERT_EQ(lib::setFeatureLocPrivateData(7, 9, &value), 0u);
    ASSERT_EQ(lib::setFeatureLocPrivateData(127, 9, &value), 0u);
    uint32_t ids[2] = {};
    uint32_t count = 55;

    EXPECT_EQ(lib::getFeatureLocValidDataIndex(9, ids, 1, &count), kFail);
    EXPECT_EQ(count, 55u);
    EXPECT_EQ(lib::getFeatureLocValidDataIndex(32, ids, 2, &count), kFail);
    EXPECT_EQ(lib::getFeatureLocValidDataIndex(9, nullptr, 2, &count), kFail);
    EXPECT_EQ(lib::getFeatureLocValidDataIndex(9, ids, 2, nullptr), kFail);
    EXPECT_EQ(lib::getFeatureLocValidDataIndex(9, ids, 2, &count), 0u);

    EXPECT_EQ(count, 2u);
    EXPECT_THAT(ids, ElementsAre(7u, 127u));
}

TEST_F(DrmLocalDataTest, LocksBelow32AreTheHostsAndOthersDoNothing)
{
    const size_t before = HostCalls().size();

    lib::LockFeatureData(32);
    lib::UnlockFeatureData(32);
    EXPECT_EQ(HostCalls().size(), before);
    lib::LockFeatureData(31);
    lib::UnlockFeatureData(31);

    EXPECT_EQ(HostCalls().size(), before + 2);
}

} // namespace
