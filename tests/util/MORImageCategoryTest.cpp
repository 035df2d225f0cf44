#include "util/MORImageCategory.h"

#include "platform/system/NSPasteboard.h"
#include "tests/support/ReadBack.h"
#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

using platform::CGImagePtr;
using platform::CGSize;
using platform::NSColor;
using platform::NSImage;
using Type = platform::NSBitmapImageFileType;

namespace {

CGImagePtr imageOf(size_t width, size_t height)
{
    return test::imageOf(test::quadrants(width, height));
}

/// Bytes of a colour with components from 0 to 1.
test::Color colorOf(double red, double green, double blue)
{
    return {static_cast<int>(std::lround(255 * red)), static_cast<int>(std::lround(255 * green)),
            static_cast<int>(std::lround(255 * blue))};
}

void expectColor(const NSColor& color, double red, double green, double blue, double tolerance)
{
    EXPECT_NEAR(color.red, red, tolerance);
    EXPECT_NEAR(color.green, green, tolerance);
    EXPECT_NEAR(color.blue, blue, tolerance);
    EXPECT_EQ(color.alpha, 1);
    EXPECT_EQ(color.space, NSColor::Space::Device);
}

void expectNoNumber(const NSColor& color)
{
    EXPECT_TRUE(std::isnan(color.red) && std::isnan(color.green) && std::isnan(color.blue));
}

// Half a step of 8 bits.
constexpr double kRounding = 0.5 / 255 + 1e-9;

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

TEST(MORImageCategory, LetsGoOfThePictureOnceItIsDrawn)
{
    auto picture = imageOf(400, 200);
    const std::weak_ptr<const platform::CGImage> isKept = picture;
    const auto image = MORImageCategory::initWithCGImage(std::exchange(picture, nullptr), {53, 53});
    ASSERT_NE(image, nullptr);
    EXPECT_TRUE(isKept.expired());
    EXPECT_FALSE(image->image()->hasAlpha);
}

TEST(MORImageCategory, AveragesANearlyNeutralColorToAnExactGrey)
{
    const TemporaryFolder folder;
    test::save(test::plain(64, 40, colorOf(0.5, 0.5, 0.52)), folder.path("a.png"));
    const NSColor color = MORImageCategory::averageColorOfImageAtURL(test::url(folder.path("a.png")));
    expectColor(color, 0.5067, 0.5067, 0.5067, 2 * kRounding);
    EXPECT_EQ(color.red, color.green);
    EXPECT_EQ(color.red, color.blue);
}

TEST(MORImageCategory, KeepsTheColorOfWhatIsNotNeutral)
{
    const TemporaryFolder folder;
    test::save(test::plain(64, 40, colorOf(0.5, 0.5, 0.6)), folder.path("a.png"));
    expectColor(MORImageCategory::averageColorOfImageAtURL(test::url(folder.path("a.png"))), 0.5, 0.5, 0.6, kRounding);
}

TEST(MORImageCategory, AveragesEveryPartOfAPhoto)
{
    const TemporaryFolder folder;
    for (const auto& [width, height] : {std::pair<size_t, size_t>{1440, 960}, {960, 1440}, {30, 20}}) {
        test::Picture picture = test::quadrants(width, height);
        for (size_t y = height / 2; y < height; ++y)
            for (size_t x = 0; x < width; ++x)
                std::ranges::copy(std::array<uint8_t, 3>{240, 200, 40}, picture.at(x, y));
        test::writeFile(folder.path("a.jpg"), test::jpegBytes(picture));
        // Compression, and the overshoot of scaling about the edges.
        expectColor(MORImageCategory::averageColorOfImageAtURL(test::url(folder.path("a.jpg"))),
                    (200 + 40 + 240 + 240) / 4.0 / 255, (40 + 180 + 200 + 200) / 4.0 / 255,
                    (40 + 60 + 40 + 40) / 4.0 / 255, 0.01);
    }
}

TEST(MORImageCategory, AveragesEveryKindOfPicture)
{
    const TemporaryFolder folder;
    const test::Color color = {200, 100, 40};
    const auto average = [&folder](const std::string& name) {
        return MORImageCategory::averageColorOfImageAtURL(test::url(folder.path(name)));
    };
    for (const std::string name : {"a.png", "a.webp", "a.tiff", "a.gif"}) {
        SCOPED_TRACE(name);
        test::save(test::plain(100, 60, color), folder.path(name));
        expectColor(average(name), 200 / 255.0, 100 / 255.0, 40 / 255.0, 0.02);
    }
    // 16 bits.
    test::save(test::plain(100, 60, color), folder.path("wide.png"), 16);
    expectColor(average("wide.png"), 200 / 255.0, 100 / 255.0, 40 / 255.0, kRounding);
    // Grey.
    test::save({50, 50, 1, std::vector<uint8_t>(2500, 80)}, folder.path("grey.png"));
    expectColor(average("grey.png"), 80 / 255.0, 80 / 255.0, 80 / 255.0, kRounding);
    // One pixel.
    test::save(test::plain(1, 1, color), folder.path("one.png"));
    expectColor(average("one.png"), 200 / 255.0, 100 / 255.0, 40 / 255.0, kRounding);
    // Ink: no cyan, half magenta, all yellow.
    test::Picture ink = {60, 40, 4, {}};
    for (size_t i = 0; i < size_t{60} * 40; ++i)
        ink.samples.insert(ink.samples.end(), {255, 128, 0, 255});
    test::writeFile(folder.path("ink.jpg"), test::inkJPEGBytes(ink));
    expectColor(average("ink.jpg"), 1, 0.5, 0, 0.02);
}

TEST(MORImageCategory, AveragesTheFirstPictureOfAnAnimation)
{
    const TemporaryFolder folder;
    test::run({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=red:s=40x30:d=0.2:r=10", "-f", "lavfi", "-i",
               "color=blue:s=40x30:d=0.5:r=10", "-filter_complex", "concat", folder.path("a.gif")});
    expectColor(MORImageCategory::averageColorOfImageAtURL(test::url(folder.path("a.gif"))), 1, 0, 0, 0.02);
}

TEST(MORImageCategory, AveragesColorsAsTheyAreWithoutTheirAlpha)
{
    const TemporaryFolder folder;
    test::Picture picture = {40, 40, 4, {}};
    for (size_t i = 0; i < size_t{40} * 40; ++i)
        picture.samples.insert(picture.samples.end(), {200, 100, 40, 128});
    test::save(picture, folder.path("a.png"));
    // Multiplied and divided again: a step of half as many.
    expectColor(MORImageCategory::averageColorOfImageAtURL(test::url(folder.path("a.png"))), 200 / 255.0, 100 / 255.0,
                40 / 255.0, 1.5 / 255);
}

TEST(MORImageCategory, AveragesNoMoreThan48PixelsASide)
{
    const TemporaryFolder folder;
    // Rows of red and black: exact where every pixel counts, and a little off where they are scaled.
    const auto redOf = [&folder](size_t side) {
        test::Picture picture = test::plain(side, side, {0, 0, 0});
        for (size_t y = 0; y < side; y += 2)
            for (size_t x = 0; x < side; ++x)
                picture.at(x, y)[0] = 255;
        test::save(picture, folder.path("a.png"));
        return MORImageCategory::averageColorOfImageAtURL(test::url(folder.path("a.png"))).red;
    };
    EXPECT_NEAR(redOf(48), 24 / 48.0, 1e-9);
    EXPECT_GT(std::abs(redOf(49) - 25 / 49.0), 1e-6);
}

TEST(MORImageCategory, AveragesWhatThereIsOfAPhotoThatIsCutOff)
{
    const TemporaryFolder folder;
    auto bytes = test::jpegBytes(test::plain(400, 300, {200, 40, 40}));
    bytes.resize(bytes.size() * 9 / 10);
    test::writeFile(folder.path("a.jpg"), bytes);
    const NSColor color = MORImageCategory::averageColorOfImageAtURL(test::url(folder.path("a.jpg")));
    EXPECT_GT(color.red, color.green);
}

TEST(MORImageCategory, AveragesWhatIsNoPictureToNoNumber)
{
    const TemporaryFolder folder;
    expectNoNumber(MORImageCategory::averageColorOfImageAtURL(test::url(folder.path("missing.jpg"))));
    for (const std::string text : {"", "A text, nothing more.", "\xFF\xD8\xFF\xD9", "\x89PNG\r\n\x1A\n"})
        expectNoNumber(MORImageCategory::averageColorOfImageAtURL(test::url(folder.makeFile("a.jpg", text))));
}

TEST(MORImageCategory, WritesNoPNGOfAnImageWithoutATIFF)
{
    const NSImage none(nullptr, {32, 32});
    ASSERT_EQ(none.TIFFRepresentation(), std::nullopt);
    EXPECT_EQ(MORImageCategory::PNGRepresentation(none), std::nullopt);
    EXPECT_EQ(MORImageCategory::GIFRepresentation(none), std::nullopt);
    EXPECT_EQ(MORImageCategory::BMPRepresentation(none), std::nullopt);
    EXPECT_EQ(MORImageCategory::JPEGRepresentationWithCompression(none, 1), std::nullopt);
    EXPECT_EQ(MORImageCategory::JPEG2000RepresentationWithCompression(none, 1), std::nullopt);
    EXPECT_EQ(MORImageCategory::PDFRepresentation(none), std::nullopt);
    EXPECT_EQ(MORImageCategory::dataForPboardType(none, platform::kNSPasteboardTypeTIFF), std::nullopt);
}

TEST(MORImageCategory, WritesEachRepresentationInItsFormat)
{
    const NSImage image(imageOf(60, 40), {});
    for (const auto& [data, codec, tolerance] :
         {std::tuple{MORImageCategory::PNGRepresentation(image), "png", 0},
          {MORImageCategory::GIFRepresentation(image), "gif", 2},
          {MORImageCategory::BMPRepresentation(image), "bmp", 0},
          {MORImageCategory::JPEGRepresentationWithCompression(image, 1), "mjpeg", 3},
          {MORImageCategory::JPEG2000RepresentationWithCompression(image, 1), "jpeg2000", 0},
          {MORImageCategory::representationForFileType(image, Type::TIFF, 1), "tiff", 0}}) {
        ASSERT_TRUE(data) << codec;
        const auto read = test::decodedByFFmpeg(*data);
        EXPECT_EQ(read.codec, codec);
        ASSERT_EQ(read.picture.width, 60u);
        ASSERT_EQ(read.picture.height, 40u);
        const test::Picture picture = test::quadrants(60, 40);
        for (const auto& [x, y] : {std::pair{5u, 5u}, {55u, 5u}, {5u, 35u}, {55u, 35u}})
            for (size_t band = 0; band < 3; ++band)
                EXPECT_NEAR(read.picture.at(x, y)[band], picture.at(x, y)[band], tolerance) << codec;
    }
}

TEST(MORImageCategory, PassesTheCompressionFactorOn)
{
    const NSImage image(test::imageOf(test::textured(320, 240)), {});
    const auto jpeg = [&image](double factor) {
        return MORImageCategory::JPEGRepresentationWithCompression(image, factor).value().size();
    };
    EXPECT_LT(jpeg(0.2), jpeg(0.6));
    EXPECT_LT(jpeg(0.6), jpeg(1));
    const auto jpeg2000 = [&image](double factor) {
        return MORImageCategory::JPEG2000RepresentationWithCompression(image, factor).value().size();
    };
    EXPECT_LT(jpeg2000(0.2), jpeg2000(0.6));
    EXPECT_LT(jpeg2000(0.6), jpeg2000(1));
    EXPECT_EQ(MORImageCategory::JPEGRepresentationWithCompression(image, 0.6),
              MORImageCategory::representationForFileType(image, Type::JPEG, 0.6));
    EXPECT_EQ(MORImageCategory::PNGRepresentation(image),
              MORImageCategory::representationForFileType(image, Type::PNG, 1));
}

TEST(MORImageCategory, ConvertsThroughAPasteboardThatItLetsGoOf)
{
    const NSImage image(imageOf(60, 40), {30, 20});
    EXPECT_EQ(MORImageCategory::dataForPboardType(image, platform::kNSPasteboardTypeTIFF), image.TIFFRepresentation());
    const auto png = MORImageCategory::dataForPboardType(image, platform::kNSPasteboardTypePNG);
    ASSERT_TRUE(png);
    EXPECT_EQ(test::decodedByFFmpeg(*png).codec, "png");
    EXPECT_EQ(MORImageCategory::dataForPboardType(image, "text/plain"), std::nullopt);
    EXPECT_EQ(
        platform::NSPasteboard::pasteboardWithName("morimagecategory")->dataForType(platform::kNSPasteboardTypeTIFF),
        std::nullopt);
}

TEST(MORImageCategory, WritesAPageOfTheImagesSize)
{
    const NSImage image(imageOf(60, 40), {120, 80});
    const auto pdf = MORImageCategory::PDFRepresentation(image);
    ASSERT_TRUE(pdf);
    const test::Picture page = test::drawnByPoppler(*pdf);
    EXPECT_EQ(page.width, 120u);
    EXPECT_EQ(page.height, 80u);
    EXPECT_EQ(page.at(20, 20)[0], test::kRed[0]);
    EXPECT_EQ(test::picturePopplerFinds(*pdf).width, 60u);
}

TEST(MORImageCategory, KeepsAlphaInItsRepresentations)
{
    test::Picture picture = {40, 20, 4, {}};
    for (size_t i = 0; i < size_t{40} * 20; ++i)
        picture.samples.insert(picture.samples.end(), {200, 100, 40, 128});
    const NSImage image(test::imageOf(picture), {});
    for (const auto& data : {MORImageCategory::PNGRepresentation(image), MORImageCategory::BMPRepresentation(image),
                             MORImageCategory::JPEG2000RepresentationWithCompression(image, 1)}) {
        ASSERT_TRUE(data);
        const auto read = test::decodedByFFmpeg(*data);
        ASSERT_EQ(read.picture.width, 40u);
        EXPECT_EQ(read.picture.at(20, 10)[3], 128) << read.codec;
        EXPECT_NEAR(read.picture.at(20, 10)[0], 200, 1) << read.codec;
    }
}
