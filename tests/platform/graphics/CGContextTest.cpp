#include "platform/graphics/CGContext.h"

#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

using platform::CGContext;
using platform::CGImage;
using platform::CGImagePtr;
using platform::NSColor;

namespace {

using enum CGContext::Origin;

constexpr NSColor kRed = {.red = 1};

CGImage imageOf(const test::Picture& picture)
{
    CGImage image{picture.width, picture.height, 4 * picture.width, false, {}};
    image.pixels.resize(image.bytesPerRow * image.height, 0xFF);
    for (size_t y = 0; y < image.height; ++y)
        for (size_t x = 0; x < image.width; ++x)
            std::copy_n(picture.at(x, y), 3, image.row(y) + 4 * x + 1);
    return image;
}

int alphaAt(const CGImage& image, size_t x, size_t y)
{
    return image.row(y)[4 * x];
}

} // namespace

TEST(CGContext, StartsClear)
{
    const auto image = CGContext({3, 2}, LowerLeft).createImage();
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->width, 3u);
    EXPECT_EQ(image->height, 2u);
    EXPECT_TRUE(image->hasAlpha);
    EXPECT_EQ(image->pixels, std::vector<uint8_t>(24, 0));
}

TEST(CGContext, HasItsOriginInTheLowerLeftCornerUnlessFlipped)
{
    for (const bool isFlipped : {false, true}) {
        CGContext context({10, 10}, isFlipped ? UpperLeft : LowerLeft);
        context.setFillColor(kRed);
        context.fillRect({{0, 0}, {10, 1}});
        const auto image = context.createImage();
        const size_t row = isFlipped ? 0 : 9;
        EXPECT_EQ(alphaAt(*image, 5, row), 255);
        test::expectColor(*image, 5, row, {255, 0, 0}, 0);
        EXPECT_EQ(alphaAt(*image, 5, 9 - row), 0);
    }
}

TEST(CGContext, FillsWithItsColorAndStrokesWithItsOther)
{
    CGContext context({20, 20}, LowerLeft);
    context.setFillColor({.green = 1});
    context.setStrokeColor({.blue = 1});
    context.setLineWidth(2);
    context.fillRect({{0, 0}, {20, 20}});
    context.moveToPoint({0, 10});
    context.addLineToPoint({20, 10});
    context.strokePath();
    const auto image = context.createImage();
    EXPECT_FALSE(image->hasAlpha);
    test::expectColor(*image, 10, 8, {0, 255, 0}, 0);
    test::expectColor(*image, 10, 9, {0, 0, 255}, 0);
    test::expectColor(*image, 10, 10, {0, 0, 255}, 0);
    test::expectColor(*image, 10, 11, {0, 255, 0}, 0);
}

TEST(CGContext, SmoothsALineBetweenTwoRows)
{
    CGContext context({10, 10}, LowerLeft);
    context.moveToPoint({0, 5});
    context.addLineToPoint({10, 5});
    context.strokePath();
    const auto image = context.createImage();
    // A line of one point about the border of two rows covers half of each.
    EXPECT_NEAR(alphaAt(*image, 5, 4), 128, 1);
    EXPECT_NEAR(alphaAt(*image, 5, 5), 128, 1);
    EXPECT_EQ(alphaAt(*image, 5, 3), 0);
}

TEST(CGContext, FillsAPath)
{
    CGContext context({10, 10}, UpperLeft);
    context.moveToPoint({0, 0});
    context.addLineToPoint({10, 0});
    context.addLineToPoint({0, 10});
    context.closePath();
    context.fillPath();
    const auto image = context.createImage();
    EXPECT_EQ(alphaAt(*image, 1, 1), 255);
    EXPECT_EQ(alphaAt(*image, 8, 8), 0);
}

TEST(CGContext, DrawsAPictureUprightWhateverItsOrigin)
{
    const CGImage picture = imageOf(test::quadrants(40, 20));
    for (const auto origin : {LowerLeft, UpperLeft}) {
        CGContext context({60, 40}, origin);
        context.drawImage({{10, origin == LowerLeft ? 5.0 : 15.0}, {40, 20}}, picture);
        const auto image = context.createImage();
        EXPECT_EQ(alphaAt(*image, 20, 14), 0);
        EXPECT_EQ(alphaAt(*image, 9, 20), 0);
        EXPECT_EQ(alphaAt(*image, 50, 20), 0);
        EXPECT_EQ(alphaAt(*image, 20, 35), 0);
        test::expectColor(*image, 10, 15, test::kRed, 0);
        test::expectColor(*image, 49, 15, test::kGreen, 0);
        test::expectColor(*image, 10, 34, test::kBlue, 0);
        test::expectColor(*image, 49, 34, test::kWhite, 0);
    }
}

TEST(CGContext, ScalesAPictureToItsRectangle)
{
    const CGImage picture = imageOf(test::quadrants(400, 300));
    CGContext context({53, 39.75}, LowerLeft);
    context.drawImage({{0, 0}, {53, 39.75}}, picture);
    const auto image = context.createImage();
    EXPECT_EQ(image->width, 53u);
    EXPECT_EQ(image->height, 40u);
    EXPECT_FALSE(image->hasAlpha) << "the edges of the size are those of the pixels";
    test::expectColor(*image, 0, 0, test::kRed, 2);
    test::expectColor(*image, 52, 0, test::kGreen, 2);
    test::expectColor(*image, 0, 39, test::kBlue, 2);
    test::expectColor(*image, 52, 39, test::kWhite, 2);
}

TEST(CGContext, PlacesAPictureBetweenPixels)
{
    const CGImage picture = imageOf(test::plain(4, 4, {200, 100, 50}));
    CGContext context({10, 10}, LowerLeft);
    context.drawImage({{2.5, 2.5}, {4, 4}}, picture);
    const auto image = context.createImage();
    EXPECT_NEAR(alphaAt(*image, 2, 5), 128, 2);
    EXPECT_EQ(alphaAt(*image, 4, 5), 255);
    EXPECT_NEAR(alphaAt(*image, 6, 5), 128, 2);
    test::expectColor(*image, 4, 5, {200, 100, 50}, 1);
}

TEST(CGContext, IsNotReadyForASizeThatPixelsCannotHave)
{
    for (const platform::CGSize size : {platform::CGSize{0, 5},
                                        {5, -1},
                                        {std::numeric_limits<double>::infinity(), 5},
                                        {std::numeric_limits<double>::quiet_NaN(), 5}}) {
        CGContext context(size, LowerLeft);
        EXPECT_FALSE(context.isReady());
        context.fillRect({{0, 0}, {1, 1}});
        context.drawImage({{0, 0}, {1, 1}}, imageOf(test::plain(1, 1, test::kRed)));
        EXPECT_EQ(context.createImage(), nullptr);
    }
}

TEST(CGContext, HasFewerPixelsThanPointsWhereThoseAreTooMany)
{
    CGContext context({100'000, 10}, LowerLeft);
    context.fillRect({{0, 0}, {50'000, 10}});
    const auto image = context.createImage();
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->width, 16384u);
    EXPECT_EQ(image->height, 10u);
    EXPECT_EQ(alphaAt(*image, 8191, 5), 255);
    EXPECT_EQ(alphaAt(*image, 8192, 5), 0);
}
