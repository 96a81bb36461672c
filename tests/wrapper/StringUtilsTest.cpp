#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "stringUtils.h"

using stringUtils::split;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(StringUtilsTest, SplitDropsEmptyPiecesAroundAndBetweenDelimiters) {
    EXPECT_THAT(split("a,,b,", ","), ElementsAre("a", "b"));
    EXPECT_THAT(split(",a", ","), ElementsAre("a"));
    EXPECT_THAT(split(",,,", ","), IsEmpty());
    EXPECT_THAT(split("", ","), IsEmpty());
    // Pieces keep their inner blanks: trimming is the caller's business.
    EXPECT_THAT(split(" a ,b", ","), ElementsAre(" a ", "b"));
}

TEST(StringUtilsTest, SplitTreatsDelimitersAsACharacterSet) {
    EXPECT_THAT(split("a b,c", ", "), ElementsAre("a", "b", "c"));
    // ", " is not a two-character separator.
    EXPECT_THAT(split("a,b c", ", "), ElementsAre("a", "b", "c"));
    EXPECT_THAT(split("abc", ""), ElementsAre("abc"));
    EXPECT_THAT(split("", ""), IsEmpty());
}

TEST(StringUtilsTest, TrimStripsOnlyTheGivenSet) {
    const char* ws = stringUtils::WHITESPACE;
    EXPECT_EQ(stringUtils::trimLeft("  \tx y \n", ws), "x y \n");
    EXPECT_EQ(stringUtils::trimRight("  \tx y \n", ws), "  \tx y");
    EXPECT_EQ(stringUtils::trim("  \tx y \n", ws), "x y");
    EXPECT_EQ(stringUtils::trim(" \r\n\t ", ws), "");
    EXPECT_EQ(stringUtils::trim("\vx\f", ws), "\vx\f");
    EXPECT_EQ(stringUtils::trim("--x-y--", "-"), "x-y");
    EXPECT_EQ(stringUtils::trim(" x ", ""), " x ");
    EXPECT_EQ(stringUtils::trim(" x ", nullptr), " x ");
    EXPECT_EQ(stringUtils::trim("", ws), "");
}

TEST(StringUtilsTest, ContainsAndEqualsCompareBytes) {
    EXPECT_TRUE(stringUtils::contains("abc", ""));
    EXPECT_TRUE(stringUtils::contains("", ""));
    EXPECT_FALSE(stringUtils::contains("", "a"));
    EXPECT_FALSE(stringUtils::contains("ab", "abc"));
    EXPECT_TRUE(stringUtils::contains("xabcx", "abc"));

    EXPECT_TRUE(stringUtils::equals("abc", "abc"));
    EXPECT_FALSE(stringUtils::equals("abc", "ABC"));
    // Embedded zero bytes count: no C-string comparison.
    EXPECT_FALSE(stringUtils::equals(std::string("a\0b", 3), "a"));
    EXPECT_FALSE(stringUtils::contains("a", std::string("a\0", 2)));
}

TEST(StringUtilsTest, ParseIntReadsALeadingDecimalOrGivesZero) {
    EXPECT_EQ(stringUtils::parseInt("+15"), 15);
    EXPECT_EQ(stringUtils::parseInt(" -7"), -7);
    EXPECT_EQ(stringUtils::parseInt("12abc"), 12);
    EXPECT_EQ(stringUtils::parseInt("010"), 10);  // never octal
    EXPECT_EQ(stringUtils::parseInt("2147483647"), INT_MAX);
    EXPECT_EQ(stringUtils::parseInt("-2147483648"), INT_MIN);
    EXPECT_EQ(stringUtils::parseInt("2147483648"), 0);
    EXPECT_EQ(stringUtils::parseInt("-2147483649"), 0);
    EXPECT_EQ(stringUtils::parseInt("99999999999"), 0);
    EXPECT_EQ(stringUtils::parseInt("x1"), 0);
    EXPECT_EQ(stringUtils::parseInt(""), 0);
    EXPECT_EQ(stringUtils::parseInt("-"), 0);
}

TEST(StringUtilsTest, ValueOfRoundTripsThroughParseInt) {
    EXPECT_EQ(stringUtils::valueOf(0), "0");
    EXPECT_EQ(stringUtils::valueOf(-1), "-1");
    EXPECT_EQ(stringUtils::valueOf(INT_MIN), "-2147483648");
    for (int32_t v : {INT_MIN, -1, 0, 7, INT_MAX}) {
        EXPECT_EQ(stringUtils::parseInt(stringUtils::valueOf(v)), v);
    }
}
