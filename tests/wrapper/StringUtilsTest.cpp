#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "stringUtils.h"

using namespace stringUtils;

namespace {

// Pieces in brackets, so that an empty piece would show.
std::string pieces(const std::vector<std::string>& list) {
    std::string out;
    for (const std::string& piece : list) out += "[" + piece + "]";
    return out;
}

TEST(StringUtilsTest, SplitDropsEmptyPiecesAndTreatsDelimitersAsACharacterSet) {
    EXPECT_EQ(pieces(split("a,,b,", ",")), "[a][b]");
    EXPECT_EQ(pieces(split(",a", ",")), "[a]");
    // Pieces keep their inner blanks: trimming is the caller's business.
    EXPECT_EQ(pieces(split(" a ,b", ",")), "[ a ][b]");
    // ", " is not a two-character separator.
    EXPECT_EQ(pieces(split("a b,c", ", ")), "[a][b][c]");
    EXPECT_EQ(pieces(split("a,b c", ", ")), "[a][b][c]");
    EXPECT_EQ(pieces(split("abc", "")), "[abc]");
    for (const char* nothing : {",,,", ""}) EXPECT_EQ(pieces(split(nothing, ",")), "");
    EXPECT_EQ(pieces(split("", "")), "");
}

TEST(StringUtilsTest, TrimStripsOnlyTheGivenSet) {
    EXPECT_EQ(trimLeft("  \tx y \n", WHITESPACE), "x y \n");
    EXPECT_EQ(trimRight("  \tx y \n", WHITESPACE), "  \tx y");
    EXPECT_EQ(trim("  \tx y \n", WHITESPACE), "x y");
    EXPECT_EQ(trim(" \r\n\t ", WHITESPACE), "");
    // Vertical tab and form feed are not whitespace here.
    EXPECT_EQ(trim("\vx\f", WHITESPACE), "\vx\f");
    EXPECT_EQ(trim("--x-y--", "-"), "x-y");
    EXPECT_EQ(trim(" x ", ""), " x ");
    EXPECT_EQ(trim(" x ", nullptr), " x ");
}

TEST(StringUtilsTest, ContainsAndEqualsCompareBytes) {
    EXPECT_TRUE(contains("abc", "") && contains("", "") && contains("xabcx", "abc"));
    EXPECT_FALSE(contains("", "a") || contains("ab", "abc"));
    EXPECT_TRUE(equals("abc", "abc"));
    EXPECT_FALSE(equals("abc", "ABC"));
    // Embedded zero bytes count: no C-string comparison.
    EXPECT_FALSE(equals(std::string("a\0b", 3), "a"));
    EXPECT_FALSE(contains("a", std::string("a\0", 2)));
}

TEST(StringUtilsTest, ParseIntReadsALeadingDecimalOrGivesZeroAndValueOfRoundTrips) {
    EXPECT_EQ(parseInt("+15"), 15);
    EXPECT_EQ(parseInt(" -7"), -7);
    EXPECT_EQ(parseInt("12abc"), 12);
    EXPECT_EQ(parseInt("010"), 10);  // never octal
    EXPECT_EQ(parseInt("2147483647"), INT_MAX);
    EXPECT_EQ(parseInt("-2147483648"), INT_MIN);
    // Out of range is 0, not a clamped value.
    for (const char* zero : {"2147483648", "-2147483649", "99999999999", "x1", "", "-"}) {
        EXPECT_EQ(parseInt(zero), 0) << zero;
    }
    EXPECT_EQ(valueOf(INT_MIN), "-2147483648");
    for (int32_t v : {INT_MIN, -1, 0, 7, INT_MAX}) EXPECT_EQ(parseInt(valueOf(v)), v);
}

}  // namespace
