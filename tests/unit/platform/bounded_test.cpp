#include "bounded/bounded.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace {

constexpr size_t kTooLarge = static_cast<size_t>(INT32_MAX) + 1;
// Through variables, since the compiler knows what a literal null would do.
const char *const kNullText = nullptr;

/** A text of six bytes, "old", as every destination starts. */
struct TextDest {
    std::array<char, 8> bytes{'o', 'l', 'd', '\0', '#', '#', '#', '#'};
    [[nodiscard]] std::string Text() const { return {bytes.data()}; }
};

std::vector<int> Ints(const std::array<uint8_t, 4> &bytes)
{
    return {bytes.begin(), bytes.end()};
}

int CallVsnprintf(char *dest, size_t size, size_t count, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = vsnprintf_s(dest, size, count, format, args);
    va_end(args);
    return result;
}

} // namespace

struct MemoryCase {
    const char *name;
    size_t size;
    size_t count;
    int result;
    std::vector<int> bytes; ///< of a destination that held 9 9 9 9
};

class MemcpySTest : public ::testing::TestWithParam<MemoryCase> {};

TEST_P(MemcpySTest, KeepsSizeAndCount)
{
    std::array<uint8_t, 4> dest{9, 9, 9, 9};
    const std::array<uint8_t, 8> source{1, 2, 3, 4, 5, 6, 7, 8};

    EXPECT_EQ(memcpy_s(dest.data(), GetParam().size, source.data(), GetParam().count), GetParam().result);

    EXPECT_EQ(Ints(dest), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(Limits, MemcpySTest,
                         ::testing::Values(MemoryCase{"nothing", 4, 0, 0, {9, 9, 9, 9}},
                                           MemoryCase{"part", 4, 3, 0, {1, 2, 3, 9}},
                                           MemoryCase{"exact", 4, 4, 0, {1, 2, 3, 4}},
                                           MemoryCase{"one_too_many", 4, 5, BOUNDED_ERANGE, {0, 0, 0, 0}},
                                           MemoryCase{"smaller_size_binds", 2, 3, BOUNDED_ERANGE, {0, 0, 9, 9}},
                                           MemoryCase{"negative_count", 4, SIZE_MAX, BOUNDED_ERANGE, {0, 0, 0, 0}},
                                           MemoryCase{"size_0", 0, 0, BOUNDED_ERANGE, {9, 9, 9, 9}},
                                           MemoryCase{"size_too_large", kTooLarge, 1, BOUNDED_ERANGE, {9, 9, 9, 9}}),
                         [](const auto &test) { return test.param.name; });

TEST(MemcpySTest, RefusesNullPointers)
{
    std::array<uint8_t, 4> dest{9, 9, 9, 9};

    EXPECT_EQ(memcpy_s(nullptr, 4, dest.data(), 4), BOUNDED_EINVAL);
    EXPECT_EQ(memcpy_s(dest.data(), 4, nullptr, 4), BOUNDED_EINVAL);

    EXPECT_EQ(Ints(dest), (std::vector<int>{0, 0, 0, 0}));
}

TEST(MemcpySTest, CopiesOntoItselfAndOverlapping)
{
    std::array<uint8_t, 4> dest{1, 2, 3, 4};

    EXPECT_EQ(memcpy_s(dest.data(), 4, dest.data(), 4), 0);
    EXPECT_EQ(memcpy_s(dest.data() + 1, 3, dest.data(), 3), 0);

    EXPECT_EQ(Ints(dest), (std::vector<int>{1, 1, 2, 3}));
}

class MemsetSTest : public ::testing::TestWithParam<MemoryCase> {};

TEST_P(MemsetSTest, KeepsSizeAndCount)
{
    std::array<uint8_t, 4> dest{9, 9, 9, 9};

    EXPECT_EQ(memset_s(dest.data(), GetParam().size, 7, GetParam().count), GetParam().result);

    EXPECT_EQ(Ints(dest), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(Limits, MemsetSTest,
                         ::testing::Values(MemoryCase{"nothing", 4, 0, 0, {9, 9, 9, 9}},
                                           MemoryCase{"exact", 4, 4, 0, {7, 7, 7, 7}},
                                           MemoryCase{"one_too_many", 4, 5, BOUNDED_ERANGE, {0, 0, 0, 0}},
                                           MemoryCase{"size_0", 0, 0, BOUNDED_ERANGE, {9, 9, 9, 9}},
                                           MemoryCase{"size_too_large", kTooLarge, 1, BOUNDED_ERANGE, {9, 9, 9, 9}}),
                         [](const auto &test) { return test.param.name; });

TEST(MemsetSTest, RefusesNull)
{
    EXPECT_EQ(memset_s(nullptr, 4, 0, 4), BOUNDED_EINVAL);
}

struct TextCase {
    const char *name;
    const char *source;
    size_t size;
    size_t count; ///< of the counted functions
    int result;
    const char *text; ///< of a destination that held "old"
};

std::string TextCaseName(const ::testing::TestParamInfo<TextCase> &info)
{
    return info.param.name;
}

class StrcpySTest : public ::testing::TestWithParam<TextCase> {};

TEST_P(StrcpySTest, StoresAllOrNothing)
{
    TextDest dest;

    EXPECT_EQ(strcpy_s(dest.bytes.data(), GetParam().size, GetParam().source), GetParam().result);

    EXPECT_EQ(dest.Text(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Limits, StrcpySTest,
                         ::testing::Values(TextCase{"empty", "", 8, 0, 0, ""},
                                           TextCase{"exact", "1234567", 8, 0, 0, "1234567"},
                                           TextCase{"one_too_many", "12345678", 8, 0, BOUNDED_ERANGE, ""},
                                           TextCase{"smaller_size_binds", "1234", 4, 0, BOUNDED_ERANGE, ""},
                                           TextCase{"size_1", "", 1, 0, 0, ""},
                                           TextCase{"size_0", "1", 0, 0, BOUNDED_ERANGE, "old"},
                                           TextCase{"size_too_large", "1", kTooLarge, 0, BOUNDED_ERANGE, "old"},
                                           TextCase{"null", nullptr, 8, 0, BOUNDED_EINVAL, ""}),
                         TextCaseName);

class StrncpySTest : public ::testing::TestWithParam<TextCase> {};

TEST_P(StrncpySTest, BothSizeAndCountBind)
{
    TextDest dest;

    EXPECT_EQ(strncpy_s(dest.bytes.data(), GetParam().size, GetParam().source, GetParam().count), GetParam().result);

    EXPECT_EQ(dest.Text(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Limits, StrncpySTest,
                         ::testing::Values(TextCase{"nothing", "123", 8, 0, 0, ""},
                                           TextCase{"count_cuts", "12345", 8, 3, 0, "123"},
                                           TextCase{"count_exact", "1234567", 8, 7, 0, "1234567"},
                                           TextCase{"count_cuts_to_fit", "123456789", 8, 7, 0, "1234567"},
                                           TextCase{"no_room_for_terminator", "12345678", 8, 8, BOUNDED_ERANGE, ""},
                                           TextCase{"count_above_text", "12", 8, 100, 0, "12"},
                                           TextCase{"smaller_size_binds", "12345", 4, 4, BOUNDED_ERANGE, ""},
                                           TextCase{"negative_count", "1", 8, SIZE_MAX, BOUNDED_ERANGE, ""},
                                           TextCase{"size_0", "1", 0, 1, BOUNDED_ERANGE, "old"},
                                           TextCase{"size_too_large", "1", kTooLarge, 1, BOUNDED_ERANGE, "old"},
                                           TextCase{"null", nullptr, 8, 1, BOUNDED_EINVAL, ""}),
                         TextCaseName);

TEST(StrncpySTest, ReadsNoFurtherThanCount)
{
    const std::vector<char> unterminated{'a', 'b'};
    std::array<char, 3> dest{};

    EXPECT_EQ(strncpy_s(dest.data(), dest.size(), unterminated.data(), 2), 0);

    EXPECT_STREQ(dest.data(), "ab");
}

class StrcatSTest : public ::testing::TestWithParam<TextCase> {};

TEST_P(StrcatSTest, AppendsAllOrEmpties)
{
    TextDest dest;

    EXPECT_EQ(strcat_s(dest.bytes.data(), GetParam().size, GetParam().source), GetParam().result);

    EXPECT_EQ(dest.Text(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Limits, StrcatSTest,
                         ::testing::Values(TextCase{"empty", "", 8, 0, 0, "old"},
                                           TextCase{"empty_at_full", "", 4, 0, 0, "old"},
                                           TextCase{"exact", "1234", 8, 0, 0, "old1234"},
                                           TextCase{"one_too_many", "12345", 8, 0, BOUNDED_ERANGE, ""},
                                           TextCase{"dest_unterminated", "1", 3, 0, BOUNDED_ERANGE, ""},
                                           TextCase{"size_0", "1", 0, 0, BOUNDED_ERANGE, "old"},
                                           TextCase{"size_too_large", "1", kTooLarge, 0, BOUNDED_ERANGE, "old"},
                                           TextCase{"null", nullptr, 8, 0, BOUNDED_EINVAL, ""}),
                         TextCaseName);

class StrncatSTest : public ::testing::TestWithParam<TextCase> {};

TEST_P(StrncatSTest, BothSizeAndCountBind)
{
    TextDest dest;

    EXPECT_EQ(strncat_s(dest.bytes.data(), GetParam().size, GetParam().source, GetParam().count), GetParam().result);

    EXPECT_EQ(dest.Text(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Limits, StrncatSTest,
                         ::testing::Values(TextCase{"nothing", "123", 8, 0, 0, "old"},
                                           TextCase{"count_cuts_to_fit", "123456", 8, 4, 0, "old1234"},
                                           TextCase{"one_too_many", "123456", 8, 5, BOUNDED_ERANGE, ""},
                                           TextCase{"count_above_text", "12", 8, 100, 0, "old12"},
                                           TextCase{"negative_count", "1", 8, SIZE_MAX, BOUNDED_ERANGE, ""},
                                           TextCase{"size_0", "1", 0, 1, BOUNDED_ERANGE, "old"},
                                           TextCase{"null", nullptr, 8, 1, BOUNDED_EINVAL, ""}),
                         TextCaseName);

TEST(TextDestinationTest, MayNotBeNull)
{
    EXPECT_EQ(strcpy_s(nullptr, 8, "1"), BOUNDED_EINVAL);
    EXPECT_EQ(strncpy_s(nullptr, 8, "1", 1), BOUNDED_EINVAL);
    EXPECT_EQ(strcat_s(nullptr, 8, "1"), BOUNDED_EINVAL);
    EXPECT_EQ(strncat_s(nullptr, 8, "1", 1), BOUNDED_EINVAL);
}

struct FormatCase {
    const char *name;
    const char *argument; ///< of "<%s>"
    size_t size;
    size_t count;
    int result;
    const char *text;
};

std::string FormatCaseName(const ::testing::TestParamInfo<FormatCase> &info)
{
    return info.param.name;
}

class SprintfSTest : public ::testing::TestWithParam<FormatCase> {};

TEST_P(SprintfSTest, StoresAllOrNothing)
{
    TextDest dest;

    EXPECT_EQ(sprintf_s(dest.bytes.data(), GetParam().size, "<%s>", GetParam().argument), GetParam().result);

    EXPECT_EQ(dest.Text(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Limits, SprintfSTest,
                         ::testing::Values(FormatCase{"short_text", "", 8, 0, 2, "<>"},
                                           FormatCase{"exact", "12345", 8, 0, 7, "<12345>"},
                                           FormatCase{"one_too_many", "123456", 8, 0, -1, ""},
                                           FormatCase{"size_1", "", 1, 0, -1, ""},
                                           FormatCase{"size_0", "", 0, 0, -1, "old"},
                                           FormatCase{"size_too_large", "", kTooLarge, 0, -1, "old"}),
                         FormatCaseName);

TEST(SprintfSTest, RefusesNullPointers)
{
    TextDest dest;
    char *const noDest = nullptr;

    EXPECT_EQ(sprintf_s(noDest, 8, "%s", "1"), -1);
    EXPECT_EQ(sprintf_s(dest.bytes.data(), 8, kNullText), -1);

    EXPECT_EQ(dest.Text(), "");
}

class SnprintfSTest : public ::testing::TestWithParam<FormatCase> {};

TEST_P(SnprintfSTest, TellsACutTextAndKeepsWhatFitted)
{
    TextDest dest;
    TextDest other;

    EXPECT_EQ(snprintf_s(dest.bytes.data(), GetParam().size, GetParam().count, "<%s>", GetParam().argument),
              GetParam().result);
    EXPECT_EQ(CallVsnprintf(other.bytes.data(), GetParam().size, GetParam().count, "<%s>", GetParam().argument),
              GetParam().result);

    EXPECT_EQ(dest.Text(), GetParam().text);
    EXPECT_EQ(other.Text(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Limits, SnprintfSTest,
                         ::testing::Values(FormatCase{"exact_for_both", "12345", 8, 7, 7, "<12345>"},
                                           FormatCase{"cut_at_count", "123", 8, 4, -1, "<123"},
                                           FormatCase{"cut_at_size", "1234567", 8, 100, -1, "<123456"},
                                           FormatCase{"count_is_size", "12345", 8, 8, 7, "<12345>"},
                                           FormatCase{"count_0", "1", 8, 0, -1, ""},
                                           FormatCase{"size_1", "1", 1, 0, -1, ""},
                                           FormatCase{"size_0", "1", 0, 0, -1, "old"},
                                           FormatCase{"negative_count", "1", 8, SIZE_MAX, -1, ""},
                                           FormatCase{"size_too_large", "1", kTooLarge, 3, -1, "old"}),
                         FormatCaseName);

TEST(SnprintfSTest, EmptyTextFitsCount0)
{
    TextDest dest;

    EXPECT_EQ(snprintf_s(dest.bytes.data(), dest.bytes.size(), 0, "%s", ""), 0);

    EXPECT_EQ(dest.Text(), "");
}

TEST(SnprintfSTest, RefusesNullPointers)
{
    TextDest dest;
    char *const noDest = nullptr;

    EXPECT_EQ(snprintf_s(noDest, 8, 7, "%s", "1"), -1);
    EXPECT_EQ(snprintf_s(dest.bytes.data(), 8, 7, kNullText), -1);

    EXPECT_EQ(dest.Text(), "");
}
