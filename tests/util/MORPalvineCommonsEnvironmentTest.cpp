#include "util/MORPalvineCommons.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace {

/// The formatter keeps the language of its first use for the life of the process, so it is chosen before any test runs.
const bool isEnglish = setenv("LC_ALL", "en_US.UTF-8", 1) == 0 && unsetenv("LANGUAGE") == 0;

std::string duration(double seconds)
{
    return MORPalvineCommons::soundtrackDurationStringForTimeInterval(seconds);
}

} // namespace

TEST(MORPalvineCommonsDuration, RoundsToWholeSecondsHalvesToEven)
{
    ASSERT_TRUE(isEnglish);
    EXPECT_EQ(duration(65.4), "1 minute, 5 seconds");
    EXPECT_EQ(duration(2.5), "2 seconds");
    EXPECT_EQ(duration(3.5), "4 seconds");
    EXPECT_EQ(duration(59.5), "1 minute");
    EXPECT_EQ(duration(0.5), "0 seconds");
    EXPECT_EQ(duration(1), "1 second");
}

TEST(MORPalvineCommonsDuration, TellsHoursInMinutes)
{
    EXPECT_EQ(duration(3725), "62 minutes, 5 seconds");
    EXPECT_EQ(duration(3600), "60 minutes");
}

TEST(MORPalvineCommonsDuration, TellsNegativeTimes)
{
    EXPECT_EQ(duration(-0.4), "0 seconds");
    EXPECT_EQ(duration(-65.4), "-1 minute, 5 seconds");
}

TEST(MORPalvineCommonsDuration, SurvivesWhatIsNoTime)
{
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(duration(std::nan("")), "0 seconds");
    EXPECT_EQ(duration(-std::nan("")), "0 seconds");
    EXPECT_EQ(duration(infinity), "0 seconds");
    EXPECT_EQ(duration(-infinity), "0 seconds");
    EXPECT_EQ(duration(std::numeric_limits<double>::max()), "153,722,867,280,912,930 minutes, 7 seconds");
    EXPECT_EQ(duration(-std::numeric_limits<double>::max()), "-153,722,867,280,912,930 minutes, 8 seconds");
    EXPECT_EQ(duration(std::numeric_limits<double>::denorm_min()), "0 seconds");
}

TEST(MORPalvineCommonsDuration, MayBeAskedForByManyThreads)
{
    std::vector<std::thread> threads;
    std::vector<std::string> texts(8);
    for (size_t i = 0; i < texts.size(); ++i)
        threads.emplace_back([&texts, i] { texts[i] = duration(static_cast<double>(60 * (i + 2) + 2)); });
    for (std::thread& thread : threads)
        thread.join();
    for (size_t i = 0; i < texts.size(); ++i)
        EXPECT_EQ(texts[i], std::to_string(i + 2) + " minutes, 2 seconds");
}
