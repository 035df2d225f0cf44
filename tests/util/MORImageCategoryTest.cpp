#include "util/MORImageCategory.h"

#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

using platform::CGImage;
using platform::CGImagePtr;
using platform::CGSize;

namespace {

CGImagePtr imageOf(size_t width, size_t height)
{
    const test::Picture picture = test::quadrants(width, height);
    auto image = std::make_shared<CGImage>();
    image->width = width;
    image->height = height;
    image->bytesPerRow = 4 * width;
    image->pixels.resize(4 * width * height, 0xFF);
    for (size_t y = 0; y < height; ++y)
        for (size_t x = 0; x < width; ++x)
            std::copy_n(picture.at(x, y), 3, image->row(y) + 4 * x + 1);
    return image;
}

} // namespace

TEST(MORImageCategory, FitsALandscapeByItsWidthAndAPortraitByItsHeight)
{
    const auto landscape = MORImageCategory::initWithCGImage(imageOf(400, 200), {53, 53});
    ASSERT_NE(landscape, nullptr);
    EXPECT_EQ(landscape->size(), (CGSize{53, 26.5}));
    EXPECT_EQ(landscape->image()->width, 53u);
    EXPECT_EQ(landscape->image()->height, 27u);

    const auto portrait = MORImageCategory::initWithCGImage(imageOf(200, 400), {53, 53});
    ASSERT_NE(portrait, nullptr);
    EXPECT_EQ(portrait->size(), (CGSize{26.5, 53}));
    EXPECT_EQ(portrait->image()->width, 27u);
    EXPECT_EQ(portrait->image()->height, 53u);
}

TEST(MORImageCategory, FitsASquareByItsHeight)
{
    EXPECT_EQ(MORImageCategory::initWithCGImage(imageOf(60, 60), {100, 30})->size(), (CGSize{30, 30}));
}

TEST(MORImageCategory, MayComeOutTallerThanTheBox)
{
    const auto image = MORImageCategory::initWithCGImage(imageOf(120, 100), {1000, 500});
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->size().width, 1000);
    EXPECT_NEAR(image->size().height, 833.3, 0.05);
    EXPECT_EQ(image->image()->height, 834u);
}

TEST(MORImageCategory, KeepsThePicturesOwnSizeForTheZeroSize)
{
    const auto image = imageOf(40, 30);
    const auto same = MORImageCategory::initWithCGImage(image, {0, 0});
    ASSERT_NE(same, nullptr);
    EXPECT_EQ(same->size(), (CGSize{40, 30}));
    EXPECT_EQ(same->image(), image);
}

TEST(MORImageCategory, MakesNothingOfNoPicture)
{
    EXPECT_EQ(MORImageCategory::initWithCGImage(nullptr, {53, 53}), nullptr);
    EXPECT_EQ(MORImageCategory::initWithCGImage(nullptr, {0, 0}), nullptr);
}

TEST(MORImageCategory, DrawsTheWholePicture)
{
    const auto image = MORImageCategory::initWithCGImage(imageOf(1440, 1080), {53, 53});
    ASSERT_NE(image, nullptr);
    test::expectColor(*image->image(), 13, 10, test::kRed, 2);
    test::expectColor(*image->image(), 40, 10, test::kGreen, 2);
    test::expectColor(*image->image(), 13, 30, test::kBlue, 2);
    test::expectColor(*image->image(), 40, 30, test::kWhite, 2);
}

TEST(MORImageCategory, KeepsAPixelOfTheThinnestPicture)
{
    const auto image = MORImageCategory::initWithCGImage(imageOf(2, 4000), {53, 53});
    ASSERT_NE(image, nullptr);
    EXPECT_NEAR(image->size().width, 0.0265, 1e-12);
    EXPECT_EQ(image->image()->width, 1u);
    EXPECT_EQ(image->image()->height, 53u);
}
