#include "platform/graphics/NSImage.h"

#include "platform/graphics/CGImageSource.h"
#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

using platform::CGImage;
using platform::CGImagePtr;
using platform::CGSize;
using platform::NSImage;

namespace {

CGImagePtr fourPixels(bool hasAlpha)
{
    auto image = std::make_shared<CGImage>();
    image->width = 2;
    image->height = 2;
    image->bytesPerRow = 8;
    image->hasAlpha = hasAlpha;
    image->pixels = {255, 1, 2, 3, 255, 250, 0, 0, 0, 0, 0, 0, 128, 64, 0, 128};
    return image;
}

CGImagePtr readBack(const platform::NSData& png)
{
    const TemporaryFolder folder;
    test::writeFile(folder.path("image.png"), png);
    const auto source = platform::CGImageSource::createWithURL(test::url(folder.path("image.png")));
    return source ? source->createImageAtIndex() : nullptr;
}

} // namespace

TEST(NSImage, HasThePixelSizeWhereNoneIsGiven)
{
    EXPECT_EQ(NSImage(fourPixels(false), {0, 0}).size(), (CGSize{2, 2}));
    EXPECT_EQ(NSImage(fourPixels(false), {1.5, 7}).size(), (CGSize{1.5, 7}));
    EXPECT_EQ(NSImage(nullptr, {0, 0}).size(), (CGSize{0, 0}));
}

TEST(NSImage, GivesItsPixelsAsPNG)
{
    const auto png = NSImage(fourPixels(false), {0, 0}).pngData();
    ASSERT_TRUE(png);
    const auto image = readBack(*png);
    ASSERT_NE(image, nullptr);
    EXPECT_FALSE(image->hasAlpha);
    test::expectColor(*image, 0, 0, {1, 2, 3}, 0);
    test::expectColor(*image, 1, 0, {250, 0, 0}, 0);
}

TEST(NSImage, KeepsAlphaInPNG)
{
    const auto png = NSImage(fourPixels(true), {0, 0}).pngData();
    ASSERT_TRUE(png);
    const auto image = readBack(*png);
    ASSERT_NE(image, nullptr);
    EXPECT_TRUE(image->hasAlpha);
    EXPECT_EQ(image->row(1)[0], 0);
    EXPECT_EQ(image->row(1)[4], 128);
    // Dividing by alpha and multiplying again may lose half a step each.
    test::expectColor(*image, 1, 1, {64, 0, 128}, 1);
}

TEST(NSImage, WithoutPixelsGivesNoPNG)
{
    EXPECT_EQ(NSImage(nullptr, {32, 32}).pngData(), std::nullopt);
}
