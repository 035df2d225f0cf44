#include "platform/graphics/NSImage.h"

#include "platform/decoders/CGImageSource.h"
#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

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

TEST(NSImage, IsDrawnOnceWhenItsPixelsAreNeeded)
{
    int drawn = 0;
    auto used = std::make_shared<int>(0);
    const std::weak_ptr<int> isKept = used;
    const auto image = NSImage::imageWithSize({4.5, 3}, platform::CGContext::Origin::LowerLeft,
                                              [&drawn, used = std::move(used)](auto& context, platform::CGRect rect) {
                                                  EXPECT_EQ(rect, (platform::CGRect{{0, 0}, {4.5, 3}}));
                                                  context.fillRect(rect);
                                                  ++drawn;
                                                  return true;
                                              });
    EXPECT_EQ(image->size(), (CGSize{4.5, 3}));
    EXPECT_EQ(drawn, 0);
    EXPECT_FALSE(isKept.expired());
    EXPECT_TRUE(image->render());
    EXPECT_TRUE(isKept.expired());
    ASSERT_NE(image->image(), nullptr);
    EXPECT_EQ(drawn, 1);
    EXPECT_EQ(image->image()->width, 5u);
    EXPECT_EQ(image->image()->height, 3u);
    test::expectColor(*image->image(), 4, 1, {0, 0, 0}, 0);
    EXPECT_FALSE(image->image()->hasAlpha);
}

TEST(NSImage, HasNoPixelsWhereItsHandlerCannotDraw)
{
    const auto refuses = [](auto&, auto) { return false; };
    const auto image = NSImage::imageWithSize({4, 3}, platform::CGContext::Origin::LowerLeft, refuses);
    EXPECT_FALSE(image->render());
    EXPECT_EQ(image->TIFFRepresentation(), std::nullopt);
    EXPECT_EQ(image->size(), (CGSize{4, 3}));
    EXPECT_FALSE(NSImage::imageWithSize({4, 3}, platform::CGContext::Origin::LowerLeft, nullptr)->render());
}

TEST(NSImage, ComesOfTheBytesOfAFile)
{
    const auto image = NSImage::imageWithData(test::jpegBytes(test::quadrants(80, 60)));
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->size(), (CGSize{80, 60}));
    ASSERT_NE(image->image(), nullptr);
    test::expectColor(*image->image(), 20, 15, test::kRed, 3);
    test::expectColor(*image->image(), 60, 45, test::kWhite, 3);
}

TEST(NSImage, ComesOfTheBytesOfNoPictureAsNone)
{
    platform::NSError error;
    EXPECT_EQ(NSImage::imageWithData({}, &error), nullptr);
    EXPECT_EQ(error.localizedDescription, "the data is empty");
    EXPECT_EQ(NSImage::imageWithData({'t', 'e', 'x', 't'}, &error), nullptr);
    EXPECT_EQ(error.localizedDescription, "the data is no picture of a known format");
    auto cut = test::jpegBytes(test::quadrants(80, 60));
    cut.resize(100);
    EXPECT_EQ(NSImage::imageWithData(cut, &error), nullptr);
    EXPECT_EQ(error.localizedDescription, "the data is damaged: it has no picture header");
}

TEST(NSImage, HasTheSizeInPointsThatItsResolutionMakesOfIt)
{
    const TemporaryFolder folder;
    auto image = std::make_shared<CGImage>();
    image->width = 30;
    image->height = 15;
    image->bytesPerRow = 4 * 30;
    image->pixels.assign(image->bytesPerRow * image->height, 200);
    // 300 dots an inch.
    const NSImage printed(image, {7.2, 3.6});
    for (const auto& file : {printed.pngData(), printed.TIFFRepresentation()}) {
        ASSERT_TRUE(file);
        test::writeFile(folder.path("image"), *file);
        const auto read = NSImage::imageWithContentsOfURL(test::url(folder.path("image")));
        ASSERT_NE(read, nullptr);
        EXPECT_NEAR(read->size().width, 7.2, 0.001);
        EXPECT_NEAR(read->size().height, 3.6, 0.001);
        EXPECT_EQ(read->image()->width, 30u);
    }
}

TEST(NSImage, GivesItsPixelsAsTIFF)
{
    for (const bool hasAlpha : {false, true}) {
        const auto pixels = fourPixels(hasAlpha);
        const auto tiff = NSImage(pixels, {0, 0}).TIFFRepresentation();
        ASSERT_TRUE(tiff);
        const auto image = readBack(*tiff);
        ASSERT_NE(image, nullptr);
        EXPECT_EQ(image->hasAlpha, hasAlpha);
        for (size_t y = 0; y < 2; ++y)
            for (size_t x = 0; x < 2; ++x) {
                test::expectColor(*image, x, y, test::pixel(*pixels, x, y), 0);
                EXPECT_EQ(hasAlpha ? image->row(y)[4 * x] : 255, hasAlpha ? pixels->row(y)[4 * x] : 255);
            }
    }
    EXPECT_EQ(NSImage(nullptr, {32, 32}).TIFFRepresentation(), std::nullopt);
}

TEST(NSImage, IsDrawnOnceForManyThreads)
{
    std::atomic<int> drawn = 0;
    const auto image =
        NSImage::imageWithSize({8, 8}, platform::CGContext::Origin::LowerLeft, [&drawn](auto& context, auto rect) {
            ++drawn;
            context.fillRect(rect);
            return true;
        });
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([image] { EXPECT_TRUE(image->render()); });
    threads.clear();
    EXPECT_EQ(drawn, 1);
}
