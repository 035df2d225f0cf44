#include "platform/graphics/NSBitmapImageRep.h"

#include "tests/support/ReadBack.h"
#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

using platform::CGSize;
using platform::NSBitmapImageRep;
using platform::NSColor;
using platform::NSData;
using test::Picture;
using Type = platform::NSBitmapImageFileType;

namespace {

/// Colours that all differ, with every alpha where there is one.
Picture manyColors(size_t width, size_t height, size_t bands)
{
    Picture picture{width, height, bands, std::vector<uint8_t>(width * height * bands)};
    for (size_t y = 0; y < height; ++y)
        for (size_t x = 0; x < width; ++x) {
            const std::array<size_t, 4> samples = {x * 7, y * 5, x * 3 + y, 64 + 16 * x + y};
            for (size_t band = 0; band < bands; ++band)
                picture.at(x, y)[band] = static_cast<uint8_t>(samples[band]);
        }
    return picture;
}

NSBitmapImageRep bitmapOf(const Picture& picture, CGSize size = {})
{
    return NSBitmapImageRep(test::imageOf(picture), size);
}

/// The largest difference of a sample; colours of pixels that are hardly seen are compared as they are seen.
int largestDifference(const Picture& a, const Picture& b)
{
    if (a.width != b.width || a.height != b.height)
        return std::numeric_limits<int>::max();
    int largest = 0;
    for (size_t y = 0; y < a.height; ++y)
        for (size_t x = 0; x < a.width; ++x) {
            const auto seen = [x, y](const Picture& picture, size_t band) {
                const int alpha = picture.bands == 4 ? picture.at(x, y)[3] : 255;
                return band == 3 ? alpha : (picture.at(x, y)[band] * alpha + 127) / 255;
            };
            for (size_t band = 0; band < 4; ++band)
                largest = std::max(largest, std::abs(seen(a, band) - seen(b, band)));
        }
    return largest;
}

double meanDifference(const Picture& a, const Picture& b)
{
    double sum = 0;
    for (size_t y = 0; y < a.height; ++y)
        for (size_t x = 0; x < a.width; ++x)
            for (size_t band = 0; band < 3; ++band)
                sum += std::abs(a.at(x, y)[band] - b.at(x, y)[band]);
    return sum / static_cast<double>(3 * a.width * a.height);
}

std::string tagByExiftool(const NSData& file, const std::string& tag)
{
    const TemporaryFolder folder;
    test::writeFile(folder.path("in"), file);
    test::run({"sh", "-c", "exiftool -s3 -n -" + tag + " '" + folder.path("in") + "' > '" + folder.path("out") + "'"});
    const auto bytes = test::readFile(folder.path("out"));
    return {bytes.begin(), std::find(bytes.begin(), bytes.end(), '\n')};
}

} // namespace

TEST(NSBitmapImageRep, TellsTheColorOfAPixelFromTheUpperLeft)
{
    const auto bitmap = bitmapOf(test::quadrants(4, 2));
    EXPECT_EQ(bitmap.pixelsWide(), 4u);
    EXPECT_EQ(bitmap.pixelsHigh(), 2u);
    const auto color = [](test::Color c) {
        return NSColor{.red = c[0] / 255.0, .green = c[1] / 255.0, .blue = c[2] / 255.0};
    };
    EXPECT_EQ(bitmap.colorAtX(0, 0), color(test::kRed));
    EXPECT_EQ(bitmap.colorAtX(3, 0), color(test::kGreen));
    EXPECT_EQ(bitmap.colorAtX(0, 1), color(test::kBlue));
    EXPECT_EQ(bitmap.colorAtX(3, 1), color(test::kWhite));
}

TEST(NSBitmapImageRep, HasNoColorOutsideThePicture)
{
    const auto bitmap = bitmapOf(test::plain(4, 2, test::kRed));
    for (const auto& [x, y] : {std::pair{-1, 0}, {0, -1}, {4, 0}, {0, 2}, {1 << 30, 1 << 30}})
        EXPECT_EQ(bitmap.colorAtX(x, y), std::nullopt) << x << ", " << y;
}

TEST(NSBitmapImageRep, DividesTheColorOfAPixelByItsAlpha)
{
    auto image = std::make_shared<platform::CGImage>();
    image->width = 2;
    image->height = 1;
    image->bytesPerRow = 8;
    image->hasAlpha = true;
    image->pixels = {51, 51, 0, 10, 0, 255, 128, 0};
    const NSBitmapImageRep bitmap(image);
    const auto color = bitmap.colorAtX(0, 0);
    ASSERT_TRUE(color);
    EXPECT_NEAR(color->red, 1, 1e-12);
    EXPECT_NEAR(color->green, 0, 1e-12);
    EXPECT_NEAR(color->blue, 10.0 / 51, 1e-12);
    EXPECT_NEAR(color->alpha, 0.2, 1e-12);
    // There is nothing to divide by.
    EXPECT_EQ(bitmap.colorAtX(1, 0), (NSColor{.red = 1, .green = 128 / 255.0, .blue = 0, .alpha = 0}));
}

TEST(NSBitmapImageRep, WritesEveryPixelAsItIsInFormatsThatLoseNothing)
{
    for (const size_t bands : {3, 4})
        for (const CGSize shape : {CGSize{1, 1}, {57, 40}}) {
            const Picture picture =
                manyColors(static_cast<size_t>(shape.width), static_cast<size_t>(shape.height), bands);
            for (const auto& [type, codec] : {std::pair{Type::PNG, "png"}, {Type::TIFF, "tiff"}, {Type::BMP, "bmp"}}) {
                const auto file = bitmapOf(picture).representationUsingType(type, {});
                ASSERT_TRUE(file);
                const auto read = test::decodedByFFmpeg(*file);
                EXPECT_EQ(read.codec, codec);
                // Colours that were multiplied with alpha keep what is seen of them.
                EXPECT_LE(largestDifference(read.picture, picture), bands == 3 ? 0 : 1)
                    << codec << " " << bands << " " << picture.width;
            }
        }
}

TEST(NSBitmapImageRep, WritesJPEG2000ThatLosesNothingAtTheFactorOne)
{
    for (const size_t bands : {3, 4})
        for (const CGSize shape : {CGSize{1, 1}, {1200, 700}}) {
            const Picture picture =
                manyColors(static_cast<size_t>(shape.width), static_cast<size_t>(shape.height), bands);
            const auto file = bitmapOf(picture).representationUsingType(Type::JPEG2000, {1.0});
            ASSERT_TRUE(file) << bands << " " << picture.width;
            const auto read = test::decodedByFFmpeg(*file);
            EXPECT_EQ(read.codec, "jpeg2000");
            EXPECT_LE(largestDifference(read.picture, picture), bands == 3 ? 0 : 1) << bands << " " << picture.width;
        }
}

TEST(NSBitmapImageRep, WritesSmallerFilesOfLessLikenessForSmallerFactors)
{
    const Picture picture = test::textured(640, 480);
    for (const auto& [type, codec] : {std::pair{Type::JPEG, "mjpeg"}, {Type::JPEG2000, "jpeg2000"}}) {
        size_t length = 0;
        double difference = std::numeric_limits<double>::max();
        for (const double factor : {0.0, 0.5, 0.8, 1.0}) {
            const auto file = bitmapOf(picture).representationUsingType(type, {factor});
            ASSERT_TRUE(file);
            const auto read = test::decodedByFFmpeg(*file);
            EXPECT_EQ(read.codec, codec);
            EXPECT_GT(file->size(), length) << codec << " " << factor;
            const double now = meanDifference(read.picture, picture);
            EXPECT_LT(now, difference) << codec << " " << factor;
            length = file->size();
            difference = now;
        }
        // What is left at the factor 1.
        EXPECT_LT(difference, 1) << codec;
    }
}

TEST(NSBitmapImageRep, TakesFactorsOutsideTheirRangeForTheNearestWithin)
{
    const auto bitmap = bitmapOf(test::textured(64, 48));
    for (const auto type : {Type::JPEG, Type::JPEG2000}) {
        EXPECT_EQ(bitmap.representationUsingType(type, {7.0}), bitmap.representationUsingType(type, {1.0}));
        EXPECT_EQ(bitmap.representationUsingType(type, {-7.0}), bitmap.representationUsingType(type, {0.0}));
        EXPECT_EQ(bitmap.representationUsingType(type, {std::nan("")}), bitmap.representationUsingType(type, {0.0}));
    }
}

TEST(NSBitmapImageRep, UsesTheFactorForNoOtherFormat)
{
    const auto bitmap = bitmapOf(test::textured(64, 48));
    for (const auto type : {Type::TIFF, Type::BMP, Type::GIF, Type::PNG}) {
        const auto file = bitmap.representationUsingType(type, {0.1});
        ASSERT_TRUE(file);
        EXPECT_EQ(file, bitmap.representationUsingType(type, {1.0}));
    }
}

TEST(NSBitmapImageRep, WritesGIFOfFewColorsAsTheyAre)
{
    const Picture picture = test::quadrants(60, 40);
    const auto file = bitmapOf(picture).representationUsingType(Type::GIF, {});
    ASSERT_TRUE(file);
    const auto read = test::decodedByFFmpeg(*file);
    EXPECT_EQ(read.codec, "gif");
    // Palettes are made of rounded colours.
    EXPECT_LE(largestDifference(read.picture, picture), 2);
}

TEST(NSBitmapImageRep, WritesGIFOfManyColorsWithAPalette)
{
    const Picture picture = test::gradient(320, 200);
    const auto file = bitmapOf(picture).representationUsingType(Type::GIF, {});
    ASSERT_TRUE(file);
    EXPECT_LT(meanDifference(test::decodedByFFmpeg(*file).picture, picture), 6);
}

TEST(NSBitmapImageRep, KeepsClearPixelsOfGIFClear)
{
    Picture picture = {40, 20, 4, std::vector<uint8_t>(40 * 20 * 4, 0)};
    for (size_t y = 0; y < 20; ++y)
        for (size_t x = 20; x < 40; ++x)
            std::ranges::copy(std::array<uint8_t, 4>{200, 40, 40, 255}, picture.at(x, y));
    const auto file = bitmapOf(picture).representationUsingType(Type::GIF, {});
    ASSERT_TRUE(file);
    const Picture read = test::decodedByFFmpeg(*file).picture;
    ASSERT_EQ(read.width, 40u);
    EXPECT_EQ(read.at(5, 5)[3], 0);
    EXPECT_EQ(read.at(35, 5)[3], 255);
    EXPECT_NEAR(read.at(35, 5)[0], 200, 2);
}

TEST(NSBitmapImageRep, WritesJPEGOverWhite)
{
    Picture picture = {16, 16, 4, std::vector<uint8_t>(16 * 16 * 4, 0)};
    for (size_t i = 3; i < picture.samples.size(); i += 4)
        picture.samples[i] = i < picture.samples.size() / 2 ? 0 : 128;
    const auto file = bitmapOf(picture).representationUsingType(Type::JPEG, {1.0});
    ASSERT_TRUE(file);
    const Picture read = test::decodedByFFmpeg(*file).picture;
    EXPECT_NEAR(read.at(8, 1)[0], 255, 1);
    // Black, half of it seen.
    EXPECT_NEAR(read.at(8, 14)[0], 127, 1);
}

TEST(NSBitmapImageRep, StatesTheResolutionThatItsSizeMakes)
{
    const auto bitmap = bitmapOf(test::plain(300, 150, test::kBlue), {144, 36});
    struct Row {
        Type type;
        std::string horizontal;
        std::string vertical;
        double unitsPerInch;
    };
    for (const auto& [type, horizontal, vertical, unitsPerInch] :
         {Row{Type::TIFF, "XResolution", "YResolution", 1}, Row{Type::JPEG, "XResolution", "YResolution", 1},
          Row{Type::PNG, "PixelsPerUnitX", "PixelsPerUnitY", 1 / 0.0254},
          Row{Type::BMP, "PixelsPerMeterX", "PixelsPerMeterY", 1 / 0.0254}}) {
        const auto file = bitmap.representationUsingType(type, {});
        ASSERT_TRUE(file);
        // A metre's dots are whole.
        EXPECT_NEAR(std::stod(tagByExiftool(*file, horizontal)) / unitsPerInch, 150, 0.02);
        EXPECT_NEAR(std::stod(tagByExiftool(*file, vertical)) / unitsPerInch, 300, 0.02);
        const auto read = NSBitmapImageRep::imageRepWithData(*file);
        ASSERT_TRUE(read);
        EXPECT_NEAR(read->size().width, 144, 0.02);
    }
}

TEST(NSBitmapImageRep, WritesNothingThatAFormatCannotHold)
{
    const auto bitmap = bitmapOf(test::plain(66'000, 1, test::kBlue));
    EXPECT_EQ(bitmap.representationUsingType(Type::GIF, {}), std::nullopt);
    EXPECT_EQ(bitmap.representationUsingType(Type::JPEG, {}), std::nullopt);
    EXPECT_TRUE(bitmap.representationUsingType(Type::BMP, {}));
    EXPECT_TRUE(bitmap.representationUsingType(Type::TIFF, {}));
    EXPECT_EQ(bitmap.representationUsingType(static_cast<Type>(9), {}), std::nullopt);
}

TEST(NSBitmapImageRep, ReadsTheBytesOfAPicture)
{
    const auto bitmap = NSBitmapImageRep::imageRepWithData(test::jpegBytes(test::quadrants(80, 60)));
    ASSERT_TRUE(bitmap);
    EXPECT_EQ(bitmap->size(), (CGSize{80, 60}));
    EXPECT_NEAR(bitmap->colorAtX(10, 10)->red, test::kRed[0] / 255.0, 0.02);
    platform::NSError error;
    EXPECT_FALSE(NSBitmapImageRep::imageRepWithData({1, 2, 3}, &error));
    EXPECT_EQ(error.localizedDescription, "the data is no picture of a known format");
}

TEST(NSBitmapImageRep, BecomesAPageOfItsSizeInPoints)
{
    const Picture picture = test::quadrants(80, 60);
    const auto file = bitmapOf(picture, {160, 120}).PDFRepresentation();
    ASSERT_TRUE(file);
    const Picture page = test::drawnByPoppler(*file);
    ASSERT_EQ(page.width, 160u);
    ASSERT_EQ(page.height, 120u);
    EXPECT_EQ(page.at(40, 30)[0], test::kRed[0]);
    EXPECT_EQ(page.at(120, 30)[1], test::kGreen[1]);
    EXPECT_EQ(page.at(40, 90)[2], test::kBlue[2]);
    EXPECT_EQ(page.at(120, 90)[0], test::kWhite[0]);
    EXPECT_EQ(largestDifference(test::picturePopplerFinds(*file), picture), 0);
}
