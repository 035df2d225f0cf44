#include "platform/graphics/NSBezierPath.h"

#include "platform/graphics/CGContext.h"

#include <gtest/gtest.h>

#include <limits>

using platform::CGContext;
using platform::CGImagePtr;
using platform::NSBezierPath;

namespace {

/// What the path leaves on 8 x 8 clear pixels.
CGImagePtr stroked(const NSBezierPath& path)
{
    CGContext context({8, 8}, CGContext::Origin::LowerLeft);
    path.stroke(context);
    return context.createImage();
}

int alphaAt(const CGImagePtr& image, size_t x, size_t y)
{
    return image->row(y)[4 * x];
}

bool isClear(const CGImagePtr& image)
{
    return image->pixels == std::vector<uint8_t>(image->pixels.size(), 0);
}

/// From (x, 2) to (x, 6).
void addUpright(NSBezierPath& path, double x)
{
    path.moveToPoint({x, 2});
    path.lineToPoint({x, 6});
}

TEST(NSBezierPath, LineOnThePixelsMiddleCoversOneColumn)
{
    NSBezierPath path;
    EXPECT_EQ(path.lineWidth(), 1);
    addUpright(path, 3.5);
    const auto image = stroked(path);
    for (size_t y = 0; y < 8; ++y)
        for (size_t x = 0; x < 8; ++x)
            EXPECT_EQ(alphaAt(image, x, y), x == 3 && y >= 2 && y < 6 ? 255 : 0) << x << ", " << y;
}

TEST(NSBezierPath, LineBetweenPixelsCoversHalfOfTwoColumns)
{
    NSBezierPath path;
    addUpright(path, 4);
    const auto image = stroked(path);
    for (const size_t x : {3U, 4U})
        EXPECT_NEAR(alphaAt(image, x, 3), 128, 1);
    for (const size_t x : {2U, 5U})
        EXPECT_EQ(alphaAt(image, x, 3), 0);
}

TEST(NSBezierPath, LinesSideBySideLeaveNoSeamAndDrawNothingTwice)
{
    NSBezierPath path;
    addUpright(path, 3);
    addUpright(path, 4);
    // Once more in the same place.
    addUpright(path, 4);
    const auto image = stroked(path);
    EXPECT_NEAR(alphaAt(image, 2, 4), 128, 1);
    EXPECT_EQ(alphaAt(image, 3, 4), 255);
    EXPECT_NEAR(alphaAt(image, 4, 4), 128, 1);
}

TEST(NSBezierPath, WidthIsThatOfTheLine)
{
    NSBezierPath path;
    path.setLineWidth(4);
    addUpright(path, 4);
    const auto image = stroked(path);
    for (size_t x = 0; x < 8; ++x)
        EXPECT_EQ(alphaAt(image, x, 4), x >= 2 && x < 6 ? 255 : 0) << x;
}

TEST(NSBezierPath, PointsThatAreNoPlaceDrawNoLineAndSpoilNoOther)
{
    for (const double nowhere : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
        NSBezierPath path;
        path.moveToPoint({4, nowhere});
        path.lineToPoint({4, 6});
        path.moveToPoint({4, 2});
        path.lineToPoint({4, -nowhere});
        path.lineToPoint({4, 6});
        path.lineToPoint({nowhere, nowhere});
        EXPECT_TRUE(isClear(stroked(path)));
        addUpright(path, 1.5);
        EXPECT_EQ(alphaAt(stroked(path), 1, 4), 255);
        EXPECT_EQ(alphaAt(stroked(path), 4, 4), 0);
    }
}

TEST(NSBezierPath, LineWithoutAStartOrWithoutLengthIsNotSeen)
{
    NSBezierPath path;
    EXPECT_TRUE(isClear(stroked(path)));
    path.lineToPoint({4, 4});
    path.lineToPoint({4, 8});
    EXPECT_TRUE(isClear(stroked(path)));
    path.moveToPoint({2, 2});
    EXPECT_TRUE(isClear(stroked(path)));
    path.lineToPoint({2, 2});
    EXPECT_TRUE(isClear(stroked(path)));
}

} // namespace
