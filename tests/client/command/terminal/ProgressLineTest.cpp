#include "client/command/terminal/ProgressLine.h"

#include "client/text/Text.h"

#include <clocale>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stillora;

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ProgressLine : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }

    const ProgressLineContent content{"Rendering the photos", 0.3, "12/40", "0:42 left"};
};

TEST_F(ProgressLine, ShowsEverythingWhereThereIsRoom)
{
    EXPECT_EQ(progressLine(content, 120, LineCharacters::UTF8),
              "Rendering the photos  █████████▌░░░░░░░░░░░░░░░░░░░░░░   30%  12/40  0:42 left");
    EXPECT_EQ(progressLine(content, 120, LineCharacters::ASCII),
              "Rendering the photos  [#########---------------------]   30%  12/40  0:42 left");
}

TEST_F(ProgressLine, NeverReachesTheLastColumn)
{
    for (const LineCharacters characters : {LineCharacters::UTF8, LineCharacters::ASCII})
        for (const auto& fraction :
             {std::optional(0.0), std::optional(0.5), std::optional(1.0), std::optional<double>()})
            for (int columns = 1; columns < 200; ++columns) {
                ProgressLineContent each = content;
                each.fraction = fraction;
                EXPECT_LT(displayWidth(progressLine(each, columns, characters)), columns) << columns;
            }
}

TEST_F(ProgressLine, LeavesOutTheCountThenTheTimeThenTheBarThenTheTitle)
{
    EXPECT_EQ(progressLine(content, 60, LineCharacters::ASCII),
              "Rendering the photos  [##-------]   30%  12/40  0:42 left");
    EXPECT_EQ(progressLine(content, 52, LineCharacters::ASCII), "Rendering the photos  [##------]   30%  0:42 left");
    EXPECT_EQ(progressLine(content, 40, LineCharacters::ASCII), "Rendering the photos  [##-----]   30%");
    EXPECT_EQ(progressLine(content, 30, LineCharacters::ASCII), "Rendering the photos   30%");
    EXPECT_EQ(progressLine(content, 20, LineCharacters::ASCII), "Renderin...   30%");
    EXPECT_EQ(progressLine(content, 10, LineCharacters::ASCII), "30%");
    EXPECT_EQ(progressLine(content, 3, LineCharacters::ASCII), "");
}

TEST_F(ProgressLine, FillsTheBarAtTheEndAndEmptiesItAtTheStart)
{
    ProgressLineContent each{"Title", 0.0, "", ""};
    EXPECT_EQ(progressLine(each, 100, LineCharacters::ASCII), "Title  [------------------------------]    0%");
    each.fraction = 1.0;
    EXPECT_EQ(progressLine(each, 100, LineCharacters::ASCII), "Title  [##############################]  100%");
    EXPECT_THAT(progressLine(each, 100, LineCharacters::UTF8), Not(HasSubstr("░")));
}

TEST_F(ProgressLine, BearsFractionsOutOfRange)
{
    ProgressLineContent each{"Title", 7.0, "", ""};
    EXPECT_THAT(progressLine(each, 60, LineCharacters::ASCII), EndsWith("100%"));
    each.fraction = -1;
    EXPECT_THAT(progressLine(each, 60, LineCharacters::ASCII), EndsWith("  0%"));
}

TEST_F(ProgressLine, MovesABlockWhereNoFractionIsKnown)
{
    ProgressLineContent each{"Title", std::nullopt, "", ""};
    EXPECT_EQ(progressLine(each, 30, LineCharacters::ASCII), "Title  [###---------------]");
    each.turns = 0.5;
    EXPECT_EQ(progressLine(each, 30, LineCharacters::ASCII), "Title  [---------------###]");
    each.turns = 1;
    EXPECT_EQ(progressLine(each, 30, LineCharacters::ASCII), "Title  [###---------------]");
    EXPECT_EQ(progressLine(each, 8, LineCharacters::ASCII), "Title");
}

TEST_F(ProgressLine, KeepsItsTextsBesideABarOfASCII)
{
    ProgressLineContent each{"Größe wird gewählt", 0.5, "", "noch 0:42"};
    EXPECT_THAT(progressLine(each, 80, LineCharacters::ASCII), StartsWith("Größe wird gewählt  ["));
    EXPECT_THAT(progressLine(each, 80, LineCharacters::UTF8), StartsWith("Größe wird gewählt  █"));
}

TEST_F(ProgressLine, CountsWideTitlesByColumns)
{
    ProgressLineContent each{"写真を描画しています", 0.5, "", ""};
    EXPECT_EQ(displayWidth(progressLine(each, 40, LineCharacters::UTF8)), 37);
    EXPECT_EQ(progressLine(each, 19, LineCharacters::UTF8), "写真を描画…   50%");
}

} // namespace
