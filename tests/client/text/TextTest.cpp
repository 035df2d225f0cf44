#include "client/text/Text.h"

#include <clocale>

#include <gtest/gtest.h>

using namespace stillora;

namespace {

TEST(Text, ShowsControlCharactersOfANameAsQuestionMarks)
{
    EXPECT_EQ(printable("a\x1b[31mb\nc\x7f"), "a?[31mb?c?");
    // The same as two bytes: a terminal may take U+009B for the start of a sequence.
    EXPECT_EQ(printable("a\xC2\x9B"
                        "b"),
              "a?b");
}

TEST(Text, ShowsBytesThatAreNoUTF8ByTheirNumbers)
{
    EXPECT_EQ(printable("caf\xE9.jpg"), "caf\\xE9.jpg");
    EXPECT_EQ(printable("café"), "café");
}

TEST(Text, CutsBytesBetweenCharacters)
{
    EXPECT_EQ(prefixOfBytes("aé", 2), "a");
    EXPECT_EQ(prefixOfBytes("aé", 3), "aé");
    EXPECT_EQ(prefixOfBytes("日本", 5), "日");
    EXPECT_EQ(prefixOfBytes("日本", 0), "");
}

TEST(Text, CountsWideCharactersAsTwoColumns)
{
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    EXPECT_EQ(displayWidth("abc"), 3);
    EXPECT_EQ(displayWidth("日本"), 4);
    EXPECT_EQ(displayWidth("e\xCC\x81"), 1) << "a combining accent takes no column";
    EXPECT_EQ(cutToWidth("日本語", 5, "…"), "日本…");
    EXPECT_EQ(cutToWidth("日本語", 4, "…"), "日…") << "half a character is none";
}

TEST(Text, CutsToAWidthOnlyWhatIsTooLong)
{
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    EXPECT_EQ(cutToWidth("Rendering", 9, "…"), "Rendering");
    EXPECT_EQ(cutToWidth("Rendering", 8, "…"), "Renderi…");
    EXPECT_EQ(cutToWidth("Rendering", 3, "..."), "Ren") << "no room for the mark";
    EXPECT_EQ(cutToWidth("Rendering", 0, "…"), "");
}

TEST(Text, WritesTimesAsOnAClock)
{
    EXPECT_EQ(clockText(Seconds(0)), "0:00");
    EXPECT_EQ(clockText(Seconds(0.2)), "0:01") << "something is left";
    EXPECT_EQ(clockText(Seconds(59.9)), "1:00");
    EXPECT_EQ(clockText(Seconds(754)), "12:34");
    EXPECT_EQ(clockText(Seconds(3599.5)), "1:00:00");
    EXPECT_EQ(clockText(Seconds(1e300)), "99:59:59");
}

TEST(Text, WritesDurationsForASentence)
{
    EXPECT_EQ(secondsText(Seconds(4)), "4 s");
    EXPECT_EQ(secondsText(Seconds(3.5)), "3.5 s");
    EXPECT_EQ(secondsText(Seconds(160)), "2 min 40 s");
    EXPECT_EQ(secondsText(Seconds(120)), "2 min");
    EXPECT_EQ(secondsText(Seconds(7260)), "2 h 1 min");
    EXPECT_EQ(secondsText(Seconds(7200)), "2 h");
}

TEST(Text, WritesSizesInDecimalUnits)
{
    EXPECT_EQ(bytesText(0), "0 bytes");
    EXPECT_EQ(bytesText(999), "999 bytes");
    EXPECT_EQ(bytesText(1400), "1.4 kB");
    EXPECT_EQ(bytesText(85'400'000), "85.4 MB");
    EXPECT_EQ(bytesText(2.5e15), "2500 TB");
}

} // namespace
