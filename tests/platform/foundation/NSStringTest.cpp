#include "platform/foundation/NSString.h"

#include "platform/foundation/NSGeometry.h"
#include "tests/support/CommaLocale.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using namespace platform;

TEST(NSString, ReadsTheLongestNumberInFront)
{
    struct Row {
        std::string_view text;
        double value;
    };
    for (const Row& row : {
             Row{"12.5", 12.5},
             Row{"  \t\n7", 7},
             Row{"2e3.12", 2000},
             Row{"1.2.3.4", 1.2},
             Row{"12.e4", 120000},
             Row{".5", 0.5},
             Row{".e12", 0},
             Row{"+1.2 x", 1.2},
             Row{"-3", -3},
             Row{"+-3", 0},
             Row{"1-2", 1},
             Row{"3e", 3},
             Row{"0x10", 0},
             Row{"nan", 0},
             Row{"inf", 0},
             Row{"infinity", 0},
             Row{"1,5", 1},
             Row{"", 0},
             Row{"   ", 0},
             Row{"text", 0},
             Row{"30}", 30},
             Row{"1e999", HUGE_VAL},
             Row{"-1e999", -HUGE_VAL},
             Row{"1e-999", 0},
         })
        EXPECT_EQ(doubleValue(row.text), row.value) << row.text;
}

TEST(NSString, WritesSixDecimals)
{
    EXPECT_EQ(stringWithSixDecimals(12.5), "12.500000");
    EXPECT_EQ(stringWithSixDecimals(0), "0.000000");
    EXPECT_EQ(stringWithSixDecimals(-51919), "-51919.000000");
    EXPECT_EQ(stringWithSixDecimals(1.0000004), "1.000000");
    EXPECT_EQ(stringWithSixDecimals(1e300).size(), 301u + 7u);
    EXPECT_EQ(stringWithSixDecimals(HUGE_VAL), "inf");
    EXPECT_EQ(stringWithSixDecimals(-1.7976931348623157e308).size(), 1u + 309u + 7u);
}

TEST(NSString, ReadsAndWritesNumbersAlikeInEveryLocale)
{
    const CommaLocale comma;
    ASSERT_TRUE(comma) << "localedef could not make a locale";
    EXPECT_EQ(doubleValue("1.5"), 1.5);
    EXPECT_EQ(doubleValue("1,5"), 1);
    EXPECT_EQ(stringWithSixDecimals(1.5), "1.500000");
    EXPECT_EQ(NSStringFromSize({0.5, 1e6}), "{0.5, 1000000}");
    EXPECT_EQ(NSSizeFromString("{0.5, 2.5}"), (CGSize{0.5, 2.5}));
}

TEST(NSString, CountsUnitsOfUTF16)
{
    EXPECT_EQ(lengthInUTF16(""), 0u);
    EXPECT_EQ(lengthInUTF16("abc"), 3u);
    EXPECT_EQ(lengthInUTF16("é"), 1u);
    EXPECT_EQ(lengthInUTF16("€"), 1u);
    EXPECT_EQ(lengthInUTF16("😀"), 2u);
    EXPECT_EQ(lengthInUTF16("\xFF\xFE"), 2u);
    EXPECT_EQ(lengthInUTF16("a\xE2\x82"), 3u);
}

TEST(NSString, KnowsWellFormedUTF8)
{
    for (const std::string_view text : {"", "abc", "é", "€", "😀", "\xF4\x8F\xBF\xBF", "\xED\x9F\xBF", "\xEE\x80\x80"})
        EXPECT_TRUE(isValidUTF8(text)) << text;
    for (const std::string_view text :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x80\x80\x80",
          "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "\xC3", "\xE2\x82", "\xF0\x9F\x98", "a\xC3z"})
        EXPECT_FALSE(isValidUTF8(text)) << text;
}

TEST(NSString, ReplacesOnlyWhatIsNoText)
{
    EXPECT_EQ(stringByReplacingInvalidUTF8("Grüße 😀"), "Grüße 😀");
    EXPECT_EQ(stringByReplacingInvalidUTF8("a\xFF\xC3z"), "a\uFFFD\uFFFDz");
}

TEST(NSString, ReadsWholeNumbersUpToTheirLimits)
{
    EXPECT_EQ(platform::integerValue("42"), 42);
    EXPECT_EQ(platform::integerValue(" \n+7 apples"), 7);
    EXPECT_EQ(platform::integerValue("-0"), 0);
    EXPECT_EQ(platform::integerValue("-12.9"), -12);
    for (const char* text : {"", " ", "nan", "inf", "-", "+-3", "x1"})
        EXPECT_EQ(platform::integerValue(text), 0) << text;
    EXPECT_EQ(platform::integerValue("9223372036854775808"), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(platform::integerValue("-99999999999999999999"), std::numeric_limits<int64_t>::min());
}

TEST(NSString, LowersTheLettersOfASCIIAlone)
{
    EXPECT_EQ(platform::lowercaseASCII("@AZ[`az{ \xC3\x84I"), "@az[`az{ \xC3\x84i");
    EXPECT_EQ(platform::lowercaseASCII(""), "");
}
