#include <stillora/Picture.h>

#include "client/text/DataBytes.h"
#include "platform/decoders/CGImageSource.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPicture.h"

#include <array>

#include <gtest/gtest.h>

using namespace stillora;

namespace {

std::string savedJPEG(const TemporaryFolder& folder, size_t width, size_t height, std::optional<int> orientation = {})
{
    const auto bytes = test::jpegBytes(test::plain(width, height, test::kRed), {.orientation = orientation});
    return folder.makeFile("a.jpg", std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

/// Zero for what is no PNG file.
Size sizeOfPNG(const Result<Bytes>& file)
{
    const auto source = file ? platform::CGImageSource::createWithData(dataOf(*file), "picture") : nullptr;
    const auto properties = source ? source->copyPropertiesAtIndex() : std::nullopt;
    if (!properties || properties->format != "png")
        return {};
    return {static_cast<double>(properties->pixelWidth), static_cast<double>(properties->pixelHeight)};
}

TEST(Picture, IsScaledDownIntoABoxAndNeverUp)
{
    const TemporaryFolder folder;
    const std::string file = savedJPEG(folder, 400, 200);
    EXPECT_EQ(sizeOfPNG(fittedPicture(file, {100, 100})), (Size{100, 50}));
    EXPECT_EQ(sizeOfPNG(fittedPicture(file, {1000, 20})), (Size{40, 20}));
    EXPECT_EQ(sizeOfPNG(fittedPicture(file, {1000, 1000})), (Size{400, 200}));
}

TEST(Picture, IsTurnedUprightBeforeItIsFitted)
{
    const TemporaryFolder folder;
    EXPECT_EQ(sizeOfPNG(fittedPicture(savedJPEG(folder, 400, 200, 6), {100, 100})), (Size{50, 100}));
}

TEST(Picture, HasAnAverageColour)
{
    const TemporaryFolder folder;
    const auto color = averageColorOf(savedJPEG(folder, 64, 64));
    ASSERT_TRUE(color);
    // As JPEG keeps it.
    EXPECT_NEAR(color->red, test::kRed[0] / 255.0, 0.02);
    EXPECT_NEAR(color->green, test::kRed[1] / 255.0, 0.02);
    EXPECT_FALSE(averageColorOf(folder.makeFile("text.jpg", "no picture")));
}

TEST(Picture, ThatCannotBeReadIsRefused)
{
    const TemporaryFolder folder;
    const auto fitted = fittedPicture(folder.path("gone.jpg"), {10, 10});
    ASSERT_FALSE(fitted);
    EXPECT_EQ(fitted.error().code, ErrorCode::FileNotFound);
    EXPECT_EQ(fitted.error().file, folder.path("gone.jpg"));
    const Bytes junk(100, std::byte{7});
    EXPECT_FALSE(pictureAsPNG(junk));
    EXPECT_EQ(sizeOfPNG(pictureAsPNG(bytesOf(test::jpegBytes(test::plain(30, 20, test::kBlue))))), (Size{30, 20}));
}

using Pixel = std::array<int, 4>;

/// Red, green, blue and alpha.
Pixel pixelAt(const Pixels& pixels, size_t x, size_t y)
{
    Pixel pixel{};
    for (size_t i = 0; i < pixel.size(); ++i)
        pixel[i] = std::to_integer<int>(pixels.bytes[y * pixels.rowBytes + x * 4 + i]);
    return pixel;
}

TEST(Picture, ForADisplayIsUprightAndInItsColours)
{
    const TemporaryFolder folder;
    const auto pixels = fittedPixels(savedJPEG(folder, 400, 200, 6), {100, 100});
    ASSERT_TRUE(pixels) << pixels.error().message;
    EXPECT_EQ(pixels->width, 50);
    EXPECT_EQ(pixels->height, 100);
    ASSERT_GE(pixels->bytes.size(), pixels->rowBytes * 99 + 50 * 4);
    const Pixel last = pixelAt(*pixels, 49, 99);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_NEAR(last[i], test::kRed[i], 4) << i;
    EXPECT_EQ(last[3], 255);
    EXPECT_EQ(fittedPixels(folder.path("gone.jpg"), {10, 10}).error().file, folder.path("gone.jpg"));
}

TEST(Picture, OfADisplayIsTheSameAgainAsAPNGFile)
{
    // Half clear: the colours are multiplied with it.
    const Pixels pixels{2,
                        1,
                        12,
                        {std::byte{255}, std::byte{0}, std::byte{0}, std::byte{255}, std::byte{0}, std::byte{0},
                         std::byte{128}, std::byte{128}, std::byte{9}, std::byte{9}, std::byte{9}, std::byte{9}}};
    const auto file = pngOfPixels(pixels);
    ASSERT_TRUE(file) << file.error().message;
    EXPECT_EQ(sizeOfPNG(file), (Size{2, 1}));
    const auto again = pixelsOfPicture(*file);
    ASSERT_TRUE(again) << again.error().message;
    EXPECT_EQ(pixelAt(*again, 0, 0), (Pixel{255, 0, 0, 255}));
    EXPECT_EQ(pixelAt(*again, 1, 0), (Pixel{0, 0, 128, 128}));
    EXPECT_FALSE(pixelsOfPicture(Bytes(100, std::byte{7})));
}

TEST(Picture, OfAFrameCarriesTheWatermarkWhereItsMovieDoes)
{
    const TemporaryFolder folder;
    const PhotoFacts photo{.path = savedJPEG(folder, 640, 480), .size = {640, 480}};
    const auto frameAt = [&](FramePlace place, Watermark watermark) {
        const auto frame = drawFrame(photo, {.quality = 240, .watermark = watermark}, place);
        EXPECT_TRUE(frame) << frame.error().message;
        return frame ? frame->pixels : Pixels();
    };
    const Pixels plain = frameAt({0, 5}, Watermark::Absent);
    EXPECT_EQ(plain.height, 240);
    EXPECT_NE(frameAt({0, 5}, Watermark::Drawn).bytes, plain.bytes);
    EXPECT_EQ(frameAt({2, 5}, Watermark::Drawn).bytes, plain.bytes) << "of five the middle ones have none";
}

TEST(Picture, OfAFrameIsMadeSmallerAsItIsInItsMovie)
{
    const TemporaryFolder folder;
    // Fills a quarter of its frame, and would all of one with as few lines.
    const PhotoFacts photo{.path = savedJPEG(folder, 640, 360), .size = {640, 360}};
    const auto frame = drawFrame(photo, {.quality = 720, .watermark = Watermark::Absent}, {}, 360);
    ASSERT_TRUE(frame) << frame.error().message;
    EXPECT_EQ(frame->pixels.width, 640);
    EXPECT_EQ(frame->pixels.height, 360);
    EXPECT_EQ(pixelAt(frame->pixels, 150, 180), (Pixel{0, 0, 0, 255}));
    EXPECT_NEAR(pixelAt(frame->pixels, 170, 180)[0], test::kRed[0], 8);
    EXPECT_EQ(drawFrame(photo, {.quality = 240}, {}, 360)->pixels.height, 240) << "never enlarged";
}

/// A request for a movie of plain photos of one size, without a watermark.
MovieRequest requestFor(const TemporaryFolder& folder, const std::vector<test::Color>& colors)
{
    MovieRequest request;
    request.quality = 240;
    request.watermark = Watermark::Absent;
    for (const test::Color& color : colors) {
        const auto bytes = test::jpegBytes(test::plain(640, 480, color));
        const std::string name = std::to_string(request.photos.size()) + ".jpg";
        folder.makeFile(name, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
        request.photos.push_back({.path = folder.path(name), .size = {640, 480}});
    }
    return request;
}

TEST(ContactSheet, ShowsEveryFrameInItsPlace)
{
    const TemporaryFolder folder;
    const std::vector<test::Color> colors = {test::kRed, test::kGreen, test::kBlue, test::kWhite, test::kRed};
    std::vector<size_t> told;
    const auto sheet = renderContactSheet(requestFor(folder, colors), [&](size_t done, size_t total) {
        EXPECT_EQ(total, 5u);
        told.push_back(done);
        return true;
    });
    ASSERT_TRUE(sheet) << sheet.error().message;
    EXPECT_EQ(told, (std::vector<size_t>{1, 2, 3, 4, 5}));
    // Three columns and two rows of frames of 320 x 240, which are not enlarged, with labels below and margins between.
    constexpr size_t kColumn = 320 + 8;
    constexpr size_t kRow = 240 + 18 + 8;
    EXPECT_EQ(sizeOfPNG(sheet), (Size{3 * kColumn + 8, 2 * kRow + 8}));
    const auto image = platform::CGImageSource::createWithData(dataOf(*sheet), "sheet")->createThumbnailAtIndex({});
    ASSERT_TRUE(image);
    for (size_t i = 0; i < colors.size(); ++i) {
        const size_t left = 8 + i % 3 * kColumn;
        const size_t top = 8 + i / 3 * kRow;
        for (const auto& [x, y] : {std::pair<size_t, size_t>{2, 2}, {160, 120}, {317, 237}})
            test::expectColor(*image, left + x, top + y, colors[i], 4, std::to_string(i));
        test::expectColor(*image, left + 200, top + 250, {0x60, 0x60, 0x60}, 0, "the ground");
    }
}

TEST(ContactSheet, SaysWhyThereIsNone)
{
    const TemporaryFolder folder;
    EXPECT_EQ(renderContactSheet({}).error().code, ErrorCode::NothingToShow);
    MovieRequest request = requestFor(folder, {test::kRed, test::kGreen});
    EXPECT_EQ(renderContactSheet(request, [](size_t, size_t) { return false; }).error().code, ErrorCode::Cancelled);
    std::filesystem::remove(request.photos[1].path);
    EXPECT_EQ(renderContactSheet(request).error().file, request.photos[1].path);
    request.photos.assign(kMostFramesOfContactSheet + 1, request.photos[0]);
    EXPECT_EQ(renderContactSheet(request).error().message, "a contact sheet has at most 10000 frames");
}

} // namespace
