#include "util/AverageColor.h"

#include "tests/support/ReadBack.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

using platform::CGSize;
using platform::NSBitmapImageRep;
using platform::NSColor;
using platform::NSImage;

namespace {

NSBitmapImageRep bitmapOf(const test::Picture& picture)
{
    return NSBitmapImageRep(test::imageOf(picture));
}

NSColor averageOf(const test::Picture& picture, CGSize bounds)
{
    const auto bitmap = bitmapOf(picture);
    return averageColorOfBitmap(&bitmap, bounds);
}

void expectNear(const NSColor& color, double red, double green, double blue)
{
    EXPECT_NEAR(color.red, red, 1e-9);
    EXPECT_NEAR(color.green, green, 1e-9);
    EXPECT_NEAR(color.blue, blue, 1e-9);
    EXPECT_EQ(color.alpha, 1);
    EXPECT_EQ(color.space, NSColor::Space::Device);
}

} // namespace

TEST(AverageColor, IsTheMeanOfAllPixelsWithinItsBounds)
{
    test::Picture picture = test::plain(2, 2, {0, 0, 0});
    picture.at(1, 0)[0] = 100;
    picture.at(0, 1)[1] = 200;
    expectNear(averageOf(picture, {2, 2}), 25 / 255.0, 50 / 255.0, 0);
    expectNear(averageOf(picture, {2, 1}), 50 / 255.0, 0, 0);
    expectNear(averageOf(picture, {1, 2}), 0, 100 / 255.0, 0);
}

TEST(AverageColor, CountsAPixelThatABoundReachesInto)
{
    test::Picture picture = test::plain(3, 1, {0, 0, 0});
    picture.at(1, 0)[0] = 255;
    expectNear(averageOf(picture, {1, 1}), 0, 0, 0);
    expectNear(averageOf(picture, {1.1, 0.1}), 0.5, 0, 0);
    expectNear(averageOf(picture, {2, 1}), 0.5, 0, 0);
}

TEST(AverageColor, SkipsSamplesOutsideThePicture)
{
    expectNear(averageOf(test::plain(2, 2, {255, 0, 0}), {1e300, 1e300}), 1, 0, 0);
}

TEST(AverageColor, TurnsGreyWithinTheToleranceAtBothEnds)
{
    // The mean is three steps from red: 3 / 255 = 0.0118.
    expectNear(averageOf(test::plain(1, 1, {100, 103, 106}), {1, 1}), 103 / 255.0, 103 / 255.0, 103 / 255.0);
    // 6 / 255 = 0.0235 is within, 7 / 255 = 0.0275 is not.
    expectNear(averageOf(test::plain(1, 1, {100, 106, 112}), {1, 1}), 106 / 255.0, 106 / 255.0, 106 / 255.0);
    expectNear(averageOf(test::plain(1, 1, {100, 107, 114}), {1, 1}), 100 / 255.0, 107 / 255.0, 114 / 255.0);
    expectNear(averageOf(test::plain(1, 1, {114, 107, 100}), {1, 1}), 114 / 255.0, 107 / 255.0, 100 / 255.0);
}

TEST(AverageColor, KeepsAColourOfWhichOneComponentAloneIsFarFromTheMean)
{
    // The mean is 10 / 3 steps from the two and 20 / 3 from the one: 0.0131 and 0.0261.
    for (size_t one = 0; one < 3; ++one)
        for (const int value : {100, 120}) {
            test::Color color = {110, 110, 110};
            color[one] = value;
            expectNear(averageOf(test::plain(1, 1, color), {1, 1}), color[0] / 255.0, color[1] / 255.0,
                       color[2] / 255.0);
        }
}

TEST(AverageColor, OfNoSampleIsNoNumber)
{
    const auto red = bitmapOf(test::plain(2, 2, test::kRed));
    for (const NSColor& color :
         {averageColorOfBitmap(nullptr, {5, 5}), averageColorOfBitmap(&red, {0, 0}), averageColorOfBitmap(&red, {2, 0}),
          averageColorOfBitmap(&red, {-1, 2}), averageColorOfImage(nullptr)}) {
        EXPECT_TRUE(std::isnan(color.red));
        EXPECT_TRUE(std::isnan(color.green));
        EXPECT_TRUE(std::isnan(color.blue));
        EXPECT_EQ(color.alpha, 1);
    }
}

TEST(AverageColor, TakesAnImagesSizeInPointsForItsBounds)
{
    test::Picture picture = test::plain(4, 2, {0, 0, 0});
    for (size_t x = 0; x < 2; ++x)
        for (size_t i = 0; i < 3; ++i)
            picture.at(x, 0)[i] = 255;
    const auto pixels = test::imageOf(picture);
    // Twice the resolution: the upper left quarter is all that counts.
    const NSImage dense(pixels, {2, 1});
    expectNear(averageColorOfImage(&dense), 1, 1, 1);
    const NSImage plain(pixels, {4, 2});
    expectNear(averageColorOfImage(&plain), 0.25, 0.25, 0.25);
    // Half of it: samples beyond the pixels are skipped.
    const NSImage sparse(pixels, {8, 4});
    expectNear(averageColorOfImage(&sparse), 0.25, 0.25, 0.25);
    const NSImage empty(nullptr, {8, 4});
    EXPECT_TRUE(std::isnan(averageColorOfImage(&empty).red));
}

TEST(AverageColor, DoesNotCountAlpha)
{
    test::Picture picture = {2, 1, 4, {255, 0, 0, 255, 0, 0, 255, 51}};
    expectNear(averageOf(picture, {2, 1}), 0.5, 0, 0.5);
}
