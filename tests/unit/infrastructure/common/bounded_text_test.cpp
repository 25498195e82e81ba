#include "infrastructure/common/bounded_text.h"

#include <gtest/gtest.h>

TEST(BoundedTextTest, StopsAtTheEndOfAFieldThatIsFull)
{
    const char field[8] = {'1', '2', '3', '4', '5', '6', '7', '8'};

    const BoundedText<4> text(field);

    EXPECT_STREQ(text.Get(), "1234");
}

TEST(BoundedTextTest, StopsAtATerminator)
{
    const char field[8] = {'1', '2', '\0', '4', '5', '6', '7', '8'};

    const BoundedText<8> text(field);

    EXPECT_STREQ(text.Get(), "12");
}

TEST(BoundedTextTest, StopsAtTheLengthThatMayBeRead)
{
    const char field[4] = {'1', '2', '3', '4'};

    EXPECT_STREQ((BoundedText<4>(field, 3).Get()), "123");
    EXPECT_STREQ((BoundedText<4>(field, 0).Get()), "");
    EXPECT_STREQ((BoundedText<2>(field, 4).Get()), "12");
}

TEST(BoundedTextTest, IsZeroBehindItsText)
{
    const char field[4] = {'1', '2'};
    BoundedText<4> text(field);

    text.Data()[2] = '3';

    EXPECT_STREQ(text.Get(), "123");
}

TEST(BoundedTextTest, TakesNullAsEmpty)
{
    const BoundedText<4> text(nullptr);

    EXPECT_STREQ(text.Get(), "");
}

TEST(TextOrNullTest, StandsInForAMissingText)
{
    EXPECT_STREQ(TextOrNull("text"), "text");
    EXPECT_STREQ(TextOrNull(nullptr), "(null)");
}
