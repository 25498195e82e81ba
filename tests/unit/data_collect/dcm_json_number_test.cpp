#include "data_collect/data_collect_master/dcm_json_number.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

struct NumberCase {
    double number;
    uint32_t u32;
    uint16_t u16;
    uint8_t u8;
};

class JsonNumberToUintTest : public ::testing::TestWithParam<NumberCase> {};

TEST_P(JsonNumberToUintTest, TruncatesAndKeepsTheLowBits)
{
    const NumberCase &c = GetParam();

    EXPECT_EQ(JsonNumberToUint<uint32_t>(c.number), c.u32);
    EXPECT_EQ(JsonNumberToUint<uint16_t>(c.number), c.u16);
    EXPECT_EQ(JsonNumberToUint<uint8_t>(c.number), c.u8);
}

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kTwo63 = 9223372036854775808.0;

// A conversion that is out of range has no defined result, whatever the processor makes of it; the compiler knows.
static_assert(JsonNumberToUint<uint32_t>(std::numeric_limits<double>::quiet_NaN()) == 0);
static_assert(JsonNumberToUint<uint32_t>(kTwo63) == 0 && JsonNumberToUint<uint32_t>(-kInfinity) == 0);

INSTANTIATE_TEST_SUITE_P(
    Numbers, JsonNumberToUintTest,
    ::testing::Values(NumberCase{0, 0, 0, 0}, NumberCase{-0.0, 0, 0, 0}, NumberCase{0.99, 0, 0, 0},
                      NumberCase{-0.99, 0, 0, 0}, NumberCase{12345.9, 12345, 12345, 57}, NumberCase{255, 255, 255, 255},
                      NumberCase{256, 256, 256, 0}, NumberCase{65535, 65535, 65535, 255},
                      NumberCase{65536, 65536, 0, 0}, NumberCase{2147483647, 2147483647, 65535, 255},
                      NumberCase{2147483648.0, 2147483648u, 0, 0}, NumberCase{4294967295.0, 4294967295u, 65535, 255},
                      NumberCase{4294967296.0, 0, 0, 0}, NumberCase{4294967297.0, 1, 1, 1},
                      NumberCase{-1, 0xFFFFFFFFu, 0xFFFF, 0xFF}, NumberCase{-1.5, 0xFFFFFFFFu, 0xFFFF, 0xFF},
                      NumberCase{-256, 0xFFFFFF00u, 0xFF00, 0},
                      // The largest double below 2^63 still counts; its low bits are zero.
                      NumberCase{9223372036854774784.0, 0xFFFFFC00u, 0xFC00, 0}, NumberCase{kTwo63, 0, 0, 0},
                      NumberCase{-kTwo63, 0, 0, 0}, NumberCase{1e300, 0, 0, 0}, NumberCase{-1e300, 0, 0, 0},
                      NumberCase{kInfinity, 0, 0, 0}, NumberCase{-kInfinity, 0, 0, 0},
                      NumberCase{std::numeric_limits<double>::quiet_NaN(), 0, 0, 0}));

TEST(JsonNumberToUintNodeTest, ReadsTheDoubleAndNotTheIntegerMember)
{
    cJSON node = {};
    node.type = cJSON_Number;
    node.valueint = 2147483647; // what the parser stores for anything larger
    node.valuedouble = 3000000000.0;

    EXPECT_EQ(JsonNumberToUint<uint32_t>(&node), 3000000000u);
}

} // namespace
