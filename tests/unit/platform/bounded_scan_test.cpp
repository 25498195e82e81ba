#include "bounded/bounded.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace {

struct FileClose {
    void operator()(FILE *file) const { (void)fclose(file); }
};

std::unique_ptr<FILE, FileClose> StreamOf(const std::string &text)
{
    std::unique_ptr<FILE, FileClose> file(tmpfile());
    EXPECT_EQ(fwrite(text.data(), 1, text.size(), file.get()), text.size());
    rewind(file.get());
    return file;
}

std::string RestOf(FILE *file)
{
    std::string rest;
    for (int c = fgetc(file); c != EOF; c = fgetc(file)) {
        rest += static_cast<char>(c);
    }
    return rest;
}

/** Scans for as many positions as there are indexes, all into one target. */
template <size_t... Index>
int ScanPositions(int *target, std::index_sequence<Index...>)
{
    std::string format;
    for (size_t i = 0; i < sizeof...(Index); i++) {
        format += "%n";
    }
    return sscanf_s("1", format.c_str(), ((void)Index, target)...);
}

} // namespace

struct WordCase {
    const char *name;
    const char *input;
    const char *format;
    size_t size;
    int result;
    const char *text; ///< of a target that held "old"
};

class SscanfSTest : public ::testing::TestWithParam<WordCase> {};

TEST_P(SscanfSTest, TextFitsWithTerminatorOrEndsTheScan)
{
    std::array<char, 8> target{"old"};
    int behind = -5;

    const int result = sscanf_s(GetParam().input, GetParam().format, target.data(), GetParam().size, &behind);

    EXPECT_EQ(result, GetParam().result);
    EXPECT_STREQ(target.data(), GetParam().text);
    EXPECT_EQ(behind, result == 2 ? 42 : -5) << "nothing behind the end of the scan is stored";
}

TEST_P(SscanfSTest, TheSameFromAStream)
{
    std::array<char, 8> target{"old"};
    int behind = -5;
    const auto stream = StreamOf(GetParam().input);

    const int result = fscanf_s(stream.get(), GetParam().format, target.data(), GetParam().size, &behind);

    EXPECT_EQ(result, GetParam().result);
    EXPECT_STREQ(target.data(), GetParam().text);
    EXPECT_EQ(behind, result == 2 ? 42 : -5);
}

INSTANTIATE_TEST_SUITE_P(
    Limits, SscanfSTest,
    ::testing::Values(
        WordCase{"exact", "abcdefg 42", "%s %d", 8, 2, "abcdefg"},
        WordCase{"one_too_many", "abcdefgh 42", "%s %d", 8, 0, ""},
        WordCase{"smaller_size_binds", "abcd 42", "%s %d", 4, 0, ""},
        WordCase{"leading_blanks_do_not_count", "   abcdefg 42", "%s %d", 8, 2, "abcdefg"},
        WordCase{"width_cuts", "abcdefgh 42", "%3s%*s %d", 4, 2, "abc"},
        WordCase{"width_above_size", "abcdefgh 42", "%7s %d", 4, 0, ""}, WordCase{"size_1", "a 42", "%s %d", 1, 0, ""},
        WordCase{"size_0", "a 42", "%s %d", 0, 0, "old"},
        WordCase{"negative_size", "a 42", "%s %d", SIZE_MAX, -1, "old"},
        WordCase{"set_exact", "abc;42", "%[a-c];%d", 4, 2, "abc"},
        WordCase{"set_one_too_many", "abca;42", "%[a-c];%d", 4, 0, ""},
        WordCase{"set_with_bracket", "]a]42", "%[]a]%d", 4, 2, "]a]"},
        WordCase{"negated_set", "ab:42", "%[^:]:%d", 8, 2, "ab"},
        WordCase{"set_mismatch", "x", "%[a-c];%d", 8, 0, "old"},
        WordCase{"chars_need_no_terminator", "xyz42", "%3c%d", 3, 2, "xyz"},
        WordCase{"chars_one_too_many", "xyz42", "%3c%d", 2, 0, ""}, WordCase{"one_char", "x42", "%c%d", 1, 2, "xld"},
        WordCase{"char_keeps_blanks", " 42", "%c%d", 1, 2, " ld"},
        WordCase{"literal_before", "id=ab 42", "id=%s %d", 8, 2, "ab"},
        WordCase{"literal_mismatch", "ix=ab 42", "id=%s %d", 8, 0, "old"},
        WordCase{"percent", "5% ab 42", "%*d%% %s %d", 8, 2, "ab"},
        WordCase{"second_missing", "ab", "%s %d", 8, 1, "ab"}, WordCase{"second_mismatch", "ab x", "%s %d", 8, 1, "ab"},
        WordCase{"empty_input", "", "%s %d", 8, -1, "old"}, WordCase{"blank_input", "  ", "%s %d", 8, -1, "old"}),
    [](const auto &test) { return test.param.name; });

TEST(SscanfSTest, StoresNumbersOfEveryWidth)
{
    int8_t small = 0;
    uint16_t half = 0;
    unsigned hex = 0;
    int64_t wide = 0;
    double real = 0;
    long double longReal = 0;
    void *pointer = nullptr;

    EXPECT_EQ(sscanf_s("-7 65535 ff -9000000000 2.5 1.25 0x10", "%hhd %hu %x %ld %lf %Lf %p", &small, &half, &hex,
                       &wide, &real, &longReal, &pointer),
              7);

    EXPECT_EQ(small, -7);
    EXPECT_EQ(half, 65535);
    EXPECT_EQ(hex, 255U);
    EXPECT_EQ(wide, -9000000000);
    EXPECT_EQ(real, 2.5);
    EXPECT_EQ(longReal, 1.25L);
    EXPECT_EQ(pointer, reinterpret_cast<void *>(0x10));
}

TEST(SscanfSTest, PositionCountsFromTheStartAndIsNoField)
{
    int first = 0;
    int second = 0;
    int position = -1;
    int unreached = -1;

    EXPECT_EQ(sscanf_s("12 345;", "%d %d%n!%n", &first, &second, &position, &unreached), 2);

    EXPECT_EQ(position, 6);
    EXPECT_EQ(unreached, -1);
}

TEST(SscanfSTest, OverflowInTheMiddleKeepsWhatStandsBefore)
{
    int number = 0;
    std::array<char, 3> text{"xy"};
    int behind = 5;

    EXPECT_EQ(sscanf_s("1 long 2", "%d %s %d", &number, text.data(), text.size(), &behind), 1);

    EXPECT_EQ(number, 1);
    EXPECT_STREQ(text.data(), "");
    EXPECT_EQ(behind, 5);
}

TEST(SscanfSTest, AgreesWithTheCLibraryOnSuppressedFields)
{
    EXPECT_EQ(sscanf_s("5 6", "%*d %*d"), 0);
    EXPECT_EQ(sscanf_s("", "%*d"), -1);
    EXPECT_EQ(sscanf_s("", ""), 0);
    EXPECT_EQ(sscanf_s("x", "y"), 0);
}

TEST(SscanfSTest, TakesThirtyTwoFields)
{
    int value = 9;

    EXPECT_EQ(ScanPositions(&value, std::make_index_sequence<32>{}), 0);

    EXPECT_EQ(value, 0);
}

TEST(SscanfSTest, FillsALargeTarget)
{
    const std::string input(3000, 'a');
    std::array<char, 3001> exact{};
    std::array<char, 3000> small{};

    EXPECT_EQ(sscanf_s(input.c_str(), "%s", exact.data(), exact.size()), 1);
    EXPECT_EQ(sscanf_s(input.c_str(), "%s", small.data(), small.size()), 0);

    EXPECT_EQ(input, exact.data());
    EXPECT_STREQ(small.data(), "");
}

TEST(SscanfSTest, HoldsAVeryLongWordToItsTarget)
{
    const std::string input(1 << 20, 'a');
    std::array<char, 4> text{"abc"};

    EXPECT_EQ(sscanf_s(input.c_str(), "%s", text.data(), text.size()), 0);

    EXPECT_STREQ(text.data(), "");
}

TEST(SscanfSTest, RefusesBadArguments)
{
    int value = 9;
    const char *const null = nullptr;
    int *const noTarget = nullptr;

    EXPECT_EQ(sscanf_s(null, "%d", &value), -1);
    EXPECT_EQ(sscanf_s("1", null, &value), -1);
    EXPECT_EQ(sscanf_s("1", "%d", noTarget), -1);
    EXPECT_EQ(sscanf_s("1", "%", &value), -1);
    EXPECT_EQ(sscanf_s("1", "%[0-9", &value, size_t{4}), -1);
    EXPECT_EQ(sscanf_s("1", "%y", &value), -1);
    EXPECT_EQ(sscanf_s("1", "%ls", &value, size_t{4}), -1);
    EXPECT_EQ(sscanf_s("1", std::string(2000, ' ').c_str()), -1);
    EXPECT_EQ(fscanf_s(nullptr, "%d", &value), -1);
    EXPECT_EQ(ScanPositions(&value, std::make_index_sequence<33>{}), -1);

    EXPECT_EQ(value, 9);
}

TEST(FscanfSTest, LeavesTheStreamBehindTheLastField)
{
    int number = 0;
    std::array<char, 8> word{};
    const auto stream = StreamOf("7 word;rest");

    EXPECT_EQ(fscanf_s(stream.get(), "%d %[a-z];", &number, word.data(), word.size()), 2);

    EXPECT_EQ(number, 7);
    EXPECT_STREQ(word.data(), "word");
    EXPECT_EQ(RestOf(stream.get()), "rest");
}

TEST(FscanfSTest, ReadsLineByLineToTheEnd)
{
    const auto stream = StreamOf("a 1\nb 2\n");
    std::array<char, 4> word{};
    std::string seen;
    int value = 0;

    while (fscanf_s(stream.get(), "%s %d\n", word.data(), word.size(), &value) == 2) {
        seen += word.data() + std::to_string(value);
    }

    EXPECT_EQ(seen, "a1b2");
    EXPECT_EQ(fscanf_s(stream.get(), "%s %d\n", word.data(), word.size(), &value), -1);
}
