#include "infrastructure/common/corvane_raii.h"

#include <cstdint>

#include "support/corvane_fixture.h"

namespace {

struct Record {
    uint64_t number;
    char text[100];
};

/** Memory that somebody has used. */
void *UsedMemory(size_t size)
{
    void *memory = std::malloc(size);
    std::memset(memory, 0xA5, size);
    return memory;
}

} // namespace

using MallocNewTest = CorvaneTest;

TEST_F(MallocNewTest, IsZeroed)
{
    g_osCalls.malloc = UsedMemory;

    const MallocPtr<Record> record = MallocNew<Record>();

    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->number, 0u);
    EXPECT_THAT(record->text, ::testing::Each('\0'));
}

TEST_F(MallocNewTest, IsNullWithoutMemory)
{
    g_osCalls.malloc = [](size_t) -> void * { return nullptr; };

    EXPECT_EQ(MallocNew<Record>(), nullptr);
}
