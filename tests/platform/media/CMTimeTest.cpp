#include "platform/media/CMTime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

using namespace platform;

namespace {

constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
constexpr int32_t kMostScale = std::numeric_limits<int32_t>::max();

void expectTime(CMTime time, int64_t value, int32_t timescale)
{
    EXPECT_TRUE(time.isNumeric());
    EXPECT_EQ(time.value, value);
    EXPECT_EQ(time.timescale, timescale);
}

TEST(CMTime, SecondsAreTruncatedTowardZero)
{
    expectTime(CMTimeMakeWithSeconds(0.5, 1), 0, 1);
    expectTime(CMTimeMakeWithSeconds(-0.5, 1), 0, 1);
    expectTime(CMTimeMakeWithSeconds(0.7 * 3, 10000), 20999, 10000);
    expectTime(CMTimeMakeWithSeconds(3, 10000), 30000, 10000);
}

TEST(CMTime, SecondsThatDoNotFitTheScaleExactlyAreMarkedAsRounded)
{
    EXPECT_TRUE(CMTimeMakeWithSeconds(0.5, 1).flags & CMTime::HasBeenRounded);
    EXPECT_FALSE(CMTimeMakeWithSeconds(0.5, 2).flags & CMTime::HasBeenRounded);
}

TEST(CMTime, SecondsWithoutAScaleAreInvalid)
{
    EXPECT_FALSE(CMTimeMakeWithSeconds(1, 0).isValid());
    EXPECT_FALSE(CMTimeMakeWithSeconds(1, -600).isValid());
    EXPECT_FALSE(CMTimeMakeWithSeconds(std::nan(""), 600).isValid());
    EXPECT_FALSE(CMTimeMake(1, 0).isValid());
}

TEST(CMTime, SecondsTooLargeHalveTheScaleUntilTheyFit)
{
    const CMTime time = CMTimeMakeWithSeconds(1e15, 44100);
    EXPECT_EQ(time.timescale, 5512);
    EXPECT_EQ(time.value, 5512 * INT64_C(1000000000000000));
    EXPECT_TRUE(CMTimeMakeWithSeconds(1e300, 44100).flags & CMTime::PositiveInfinity);
    EXPECT_TRUE(CMTimeMakeWithSeconds(-1e300, 44100).flags & CMTime::NegativeInfinity);
    EXPECT_TRUE(CMTimeMakeWithSeconds(HUGE_VAL, 44100).flags & CMTime::PositiveInfinity);
}

TEST(CMTime, SecondsOfSpecialTimes)
{
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(CMTimeMake(66150, 44100)), 1.5);
    EXPECT_TRUE(std::isnan(CMTimeGetSeconds(kCMTimeInvalid)));
    EXPECT_TRUE(std::isnan(CMTimeGetSeconds(kCMTimeIndefinite)));
    EXPECT_EQ(CMTimeGetSeconds(kCMTimePositiveInfinity), HUGE_VAL);
    EXPECT_EQ(CMTimeGetSeconds(kCMTimeNegativeInfinity), -HUGE_VAL);
}

TEST(CMTime, ConvertingRoundsAsAsked)
{
    using Method = CMTimeRoundingMethod;
    struct Row {
        const char* name;
        int64_t value;
        Method method;
        int64_t expected;
    };
    // Halves and thirds: `value` at scale 6 becomes a value at scale 2.
    const Row rows[] = {
        {"a third is nearest to zero", 1, Method::RoundHalfAwayFromZero, 0},
        {"two thirds are nearest to one", 2, Method::RoundHalfAwayFromZero, 1},
        {"minus two thirds are nearest to minus one", -2, Method::RoundHalfAwayFromZero, -1},
        {"toward zero", 5, Method::RoundTowardZero, 1},
        {"toward zero from below", -5, Method::RoundTowardZero, -1},
        {"away from zero", 1, Method::RoundAwayFromZero, 1},
        {"away from zero from below", -1, Method::RoundAwayFromZero, -1},
        {"up", 1, Method::RoundTowardPositiveInfinity, 1},
        {"up from below", -1, Method::RoundTowardPositiveInfinity, 0},
        {"down", 1, Method::RoundTowardNegativeInfinity, 0},
        {"down from below", -1, Method::RoundTowardNegativeInfinity, -1},
        {"to a smaller scale as old files do", 5, Method::QuickTime, 1},
        {"never from below to zero", -1, Method::QuickTime, -1},
        {"exact", 6, Method::RoundAwayFromZero, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        expectTime(CMTimeConvertScale(CMTimeMake(row.value, 6), 2, row.method), row.expected, 2);
    }
    expectTime(CMTimeConvertScale(CMTimeMake(1, 2), 1, Method::RoundHalfAwayFromZero), 1, 1);
    expectTime(CMTimeConvertScale(CMTimeMake(-1, 2), 1, Method::RoundHalfAwayFromZero), -1, 1);
    expectTime(CMTimeConvertScale(CMTimeMake(1, 2), 3, Method::QuickTime), 2, 3);
}

TEST(CMTime, ConvertingTellsWhetherItRounded)
{
    const auto method = CMTimeRoundingMethod::RoundHalfAwayFromZero;
    EXPECT_TRUE(CMTimeConvertScale(CMTimeMake(1, 3), 2, method).flags & CMTime::HasBeenRounded);
    EXPECT_FALSE(CMTimeConvertScale(CMTimeMake(1, 3), 6, method).flags & CMTime::HasBeenRounded);
}

TEST(CMTime, ConvertingTakesMoreThan64Bits)
{
    const CMTime time = CMTimeConvertScale(CMTimeMake(kMost, kMostScale), 44100, CMTimeRoundingMethod::RoundTowardZero);
    expectTime(time, INT64_C(189408057841800), 44100);
}

TEST(CMTime, ConvertingLeavesSpecialTimesAsTheyAre)
{
    const auto method = CMTimeRoundingMethod::RoundHalfAwayFromZero;
    EXPECT_FALSE(CMTimeConvertScale(kCMTimeInvalid, 600, method).isValid());
    EXPECT_TRUE(CMTimeConvertScale(kCMTimeIndefinite, 600, method).isIndefinite());
    EXPECT_TRUE(CMTimeConvertScale(kCMTimePositiveInfinity, 600, method).isInfinite());
}

TEST(CMTime, OrderIsEpochThenValueAndSpecialTimesHaveTheirPlaces)
{
    CMTime later = CMTimeMake(0, 1);
    later.epoch = 1;
    const CMTime ordered[] = {kCMTimeNegativeInfinity,
                              CMTimeMake(-kMost, 1),
                              CMTimeMake(-1, 3),
                              kCMTimeZero,
                              CMTimeMake(1, kMostScale),
                              CMTimeMake(kMost - 1, kMostScale),
                              CMTimeMake(kMost, kMostScale),
                              later,
                              kCMTimeIndefinite,
                              kCMTimePositiveInfinity,
                              kCMTimeInvalid};
    for (size_t i = 0; i < std::size(ordered); ++i) {
        for (size_t j = 0; j < std::size(ordered); ++j) {
            SCOPED_TRACE(std::to_string(i) + " and " + std::to_string(j));
            EXPECT_EQ(CMTimeCompare(ordered[i], ordered[j]), i < j ? -1 : i > j ? 1 : 0);
        }
    }
    EXPECT_EQ(CMTimeCompare(CMTimeMake(1, 2), CMTimeMake(22050, 44100)), 0);
}

TEST(CMTime, SumsAreInTheLeastCommonMultipleOfTheScales)
{
    expectTime(CMTimeAdd(CMTimeMake(1, 4), CMTimeMake(1, 6)), 5, 12);
    expectTime(CMTimeAdd(CMTimeMake(3, 10000), CMTimeMake(5, 10000)), 8, 10000);
    expectTime(CMTimeSubtract(CMTimeMake(1, 4), CMTimeMake(1, 6)), 1, 12);
}

TEST(CMTime, SumsBeyondTheLargestScaleAreRounded)
{
    const CMTime sum = CMTimeAdd(CMTimeMake(1, kMostScale), CMTimeMake(1, 2));
    expectTime(sum, 1073741825, kMostScale);
    EXPECT_TRUE(sum.flags & CMTime::HasBeenRounded);
}

TEST(CMTime, SumsTooLargeHalveTheScaleAndEndInInfinity)
{
    const CMTime sum = CMTimeAdd(CMTimeMake(kMost, 4), CMTimeMake(kMost, 4));
    expectTime(sum, kMost, 2);
    EXPECT_TRUE(CMTimeAdd(CMTimeMake(kMost, 1), CMTimeMake(kMost, 1)).flags & CMTime::PositiveInfinity);
}

TEST(CMTime, SumsOfSpecialTimes)
{
    const CMTime one = CMTimeMake(1, 1);
    EXPECT_FALSE(CMTimeAdd(one, kCMTimeInvalid).isValid());
    EXPECT_FALSE(CMTimeAdd(kCMTimePositiveInfinity, kCMTimeNegativeInfinity).isValid());
    EXPECT_FALSE(CMTimeSubtract(kCMTimePositiveInfinity, kCMTimePositiveInfinity).isValid());
    EXPECT_TRUE(CMTimeAdd(one, kCMTimeIndefinite).isIndefinite());
    EXPECT_TRUE(CMTimeAdd(one, kCMTimePositiveInfinity).flags & CMTime::PositiveInfinity);
    EXPECT_TRUE(CMTimeSubtract(one, kCMTimePositiveInfinity).flags & CMTime::NegativeInfinity);
}

TEST(CMTime, SumsKeepTheEpochAndDifferencesOfOneEpochLoseIt)
{
    CMTime time = CMTimeMake(5, 1);
    time.epoch = 7;
    CMTime other = time;
    other.epoch = 8;
    EXPECT_EQ(CMTimeAdd(time, CMTimeMake(1, 1)).epoch, 7);
    EXPECT_EQ(CMTimeSubtract(time, time).epoch, 0);
    EXPECT_FALSE(CMTimeAdd(time, other).isValid());
    EXPECT_FALSE(CMTimeSubtract(time, other).isValid());
}

TEST(CMTimeRange, ValidityAsksForAShortEnoughDuration)
{
    EXPECT_TRUE(CMTimeRangeIsValid({CMTimeMake(-5, 1), kCMTimeZero}));
    EXPECT_FALSE(CMTimeRangeIsValid({kCMTimeZero, CMTimeMake(-1, 1)}));
    EXPECT_FALSE(CMTimeRangeIsValid({kCMTimeInvalid, kCMTimeZero}));
    EXPECT_FALSE(CMTimeRangeIsValid({kCMTimeZero, kCMTimeInvalid}));
    CMTime otherEpoch = CMTimeMake(1, 1);
    otherEpoch.epoch = 1;
    EXPECT_FALSE(CMTimeRangeIsValid({kCMTimeZero, otherEpoch}));
}

TEST(CMTimeRange, AnyZeroDurationIsEmpty)
{
    EXPECT_TRUE(CMTimeRangeIsEmpty({CMTimeMake(3, 1), CMTimeMake(0, 600)}));
    EXPECT_FALSE(CMTimeRangeIsEmpty({CMTimeMake(3, 1), CMTimeMake(1, 600)}));
    EXPECT_FALSE(CMTimeRangeIsEmpty(kCMTimeRangeInvalid));
}

TEST(CMTimeRange, IndefiniteNeedsOneIndefiniteTime)
{
    EXPECT_TRUE(CMTimeRangeIsIndefinite({kCMTimeIndefinite, CMTimeMake(1, 1)}));
    EXPECT_TRUE(CMTimeRangeIsIndefinite({kCMTimeZero, kCMTimeIndefinite}));
    EXPECT_FALSE(CMTimeRangeIsIndefinite({kCMTimeZero, CMTimeMake(1, 1)}));
}

TEST(CMTimeRange, EqualityComparesTimesNotScales)
{
    EXPECT_TRUE(CMTimeRangeEqual({CMTimeMake(0, 44100), CMTimeMake(0, 44100)}, kCMTimeRangeZero));
    EXPECT_TRUE(CMTimeRangeEqual({kCMTimeInvalid, kCMTimeInvalid}, kCMTimeRangeInvalid));
    EXPECT_FALSE(CMTimeRangeEqual(kCMTimeRangeZero, kCMTimeRangeInvalid));
    EXPECT_EQ(CMTimeCompare(CMTimeRangeGetEnd({CMTimeMake(1, 2), CMTimeMake(1, 3)}), CMTimeMake(5, 6)), 0);
}

} // namespace
