#include "window/toolkit/TimeText.h"

#include <gtest/gtest.h>

namespace stillora::window {

TEST(TimeText, HasAsManyDigitsAsATimeNeeds)
{
    EXPECT_EQ(textOfTime(Seconds(0)), "0:00");
    EXPECT_EQ(textOfTime(Seconds(7.25)), "0:07.25");
    EXPECT_EQ(textOfTime(Seconds(62.5)), "1:02.5");
    EXPECT_EQ(textOfTime(Seconds(3605)), "1:00:05");
    EXPECT_EQ(textOfTime(Seconds(59.999)), "1:00");
    EXPECT_EQ(textOfTime(Seconds(-1)), "0:00");
}

TEST(TimeText, IsReadAsPeopleTypeIt)
{
    EXPECT_EQ(timeOfText("1:02.5"), Seconds(62.5));
    EXPECT_EQ(timeOfText(" 62,5 "), Seconds(62.5));
    EXPECT_EQ(timeOfText("1:00:05"), Seconds(3605));
    EXPECT_EQ(timeOfText("90"), Seconds(90));
}

TEST(TimeText, RefusesWhatIsNoTime)
{
    for (const char* text : {"", "x", "1:", ":5", "1:60", "1:2:3:4", "-5", "1.5:00", "1e3", "99999999999"})
        EXPECT_FALSE(timeOfText(text)) << text;
}

TEST(TimeText, ReadsWhatItWrites)
{
    for (const double seconds : {0.0, 0.01, 9.99, 61.5, 3599.99, 3600.0, 7325.37})
        EXPECT_NEAR(timeOfText(textOfTime(Seconds(seconds)))->count(), seconds, 1e-9);
}

TEST(TimeText, IsOfNumbersAsPeopleTypeThem)
{
    EXPECT_EQ(numberOfText("2.5"), 2.5);
    EXPECT_EQ(numberOfText(" 2,5"), 2.5);
    for (const char* text : {"", "x", "nan", "inf", "infinity", "1e9", "-1", "0x10", "2.5 s"})
        EXPECT_FALSE(numberOfText(text)) << text;
}

} // namespace stillora::window
