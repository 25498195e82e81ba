#include "data_collect/data_collect_master/DCM_query/dcm_array_list.h"

#include <atomic>
#include <cstdlib>

#include "support/corvane_fixture.h"

namespace {

int g_allocationsLeft;

void *LimitedAlloc(uint64_t size)
{
    return g_allocationsLeft-- > 0 ? std::malloc(size) : nullptr;
}

struct Shape {
    uint32_t count;
    uint32_t size;
};

class ArrayListCreateTest : public CorvaneTest {};
class ArrayListCreateRefusalTest : public CorvaneTest, public ::testing::WithParamInterface<Shape> {};

} // namespace

TEST_F(ArrayListCreateTest, MakesSeparateZeroedRecords)
{
    ArrayList list{};

    ASSERT_EQ(ArrayListCreate(&list, 3, 60), 0u);

    EXPECT_EQ(list.count, 3u);
    EXPECT_EQ(list.elementSize, 60u);
    for (uint32_t i = 0; i < 3; i++) {
        const auto *bytes = static_cast<const uint8_t *>(list.list[i]);
        for (uint32_t k = 0; k < 60; k++) {
            ASSERT_EQ(bytes[k], 0);
        }
    }
    ArrayListDelete(&list);
    EXPECT_EQ(list.list, nullptr);
    EXPECT_EQ(list.count, 0u);
}

TEST_P(ArrayListCreateRefusalTest, RefusesZeroCountOrSize)
{
    ArrayList list{};

    EXPECT_EQ(ArrayListCreate(&list, GetParam().count, GetParam().size), 22u);

    EXPECT_EQ(list.list, nullptr);
    EXPECT_TRUE(Logged(7, "DCM", "Check whether the value of ArrayList is initialized."));
}
INSTANTIATE_TEST_SUITE_P(Shapes, ArrayListCreateRefusalTest, ::testing::Values(Shape{0, 60}, Shape{3, 0}, Shape{0, 0}));

TEST_F(ArrayListCreateTest, RefusesNullList)
{
    EXPECT_EQ(ArrayListCreate(nullptr, 1, 1), 22u);
}

TEST_F(ArrayListCreateTest, LeavesNothingBehindWhicheverAllocationFails)
{
    g_corvaneInfra.memAlloc = LimitedAlloc;

    for (int allowed = 0; allowed < 4; allowed++) {
        ClearLogs();
        g_allocationsLeft = allowed;
        ArrayList list{};

        EXPECT_EQ(ArrayListCreate(&list, 3, 60), 12u) << allowed;

        EXPECT_EQ(list.list, nullptr);
        EXPECT_EQ(LogCount(3, "DCM", "malloc failed"), 1u);
    }
    g_allocationsLeft = 4;
    ArrayList list{};
    EXPECT_EQ(ArrayListCreate(&list, 3, 60), 0u);
    ArrayListDelete(&list);
}

TEST_F(ArrayListCreateTest, FreeingSkipsRecordsThatHaveMovedOut)
{
    void **list = AllocSeparateMemoryList(2, 8);
    ASSERT_NE(list, nullptr);
    void *moved = list[0];
    list[0] = nullptr;

    FreeSeparateMemoryList(list, 2);
    FreeSeparateMemoryList(nullptr, 2);
    ArrayListDelete(nullptr);

    static_cast<char *>(moved)[7] = 1; // still ours
    g_corvaneInfra.memFree(moved);
}
