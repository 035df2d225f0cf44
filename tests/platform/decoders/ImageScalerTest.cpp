#include "platform/pixels/ImageScaler.h"

#include "platform/decoders/ImageDecoder.h"
#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

using namespace platform;

namespace {

CGImage imageOf(const test::Picture& picture)
{
    CGImage image;
    image.width = picture.width;
    image.height = picture.height;
    image.bytesPerRow = 4 * picture.width;
    image.hasAlpha = picture.bands == 4;
    image.pixels.resize(image.bytesPerRow * image.height);
    for (size_t y = 0; y < picture.height; ++y)
        for (size_t x = 0; x < picture.width; ++x) {
            const uint8_t* const from = picture.at(x, y);
            uint8_t* const to = image.row(y) + 4 * x;
            to[0] = picture.bands == 4 ? from[3] : 0xFF;
            std::copy_n(from, 3, to + 1);
        }
    return image;
}

/// The furthest that any component lies from the same gradient drawn at this size.
int distanceFromGradient(const CGImage& image)
{
    const test::Picture expected = test::gradient(image.width, image.height);
    int furthest = 0;
    for (size_t y = 0; y < image.height; ++y)
        for (size_t x = 0; x < image.width; ++x)
            for (size_t i = 0; i < 3; ++i)
                furthest = std::max(furthest, std::abs(test::pixel(image, x, y)[i] - expected.at(x, y)[i]));
    return furthest;
}

} // namespace

TEST(ThumbnailSize, CutsTheBoundAndRoundsTheOtherSideToTheNearest)
{
    struct Row {
        PixelSize picture;
        std::optional<double> bound;
        PixelSize expected;
    };
    const std::vector<Row> rows = {
        {{5250, 3450}, 400, {400, 263}},      {{4000, 3000}, 960, {960, 720}},
        {{3000, 4000}, 960, {720, 960}},      {{4000, 3000}, 959.99, {959, 719}},
        {{640, 480}, 1280, {640, 480}},       {{640, 480}, std::nullopt, {640, 480}},
        {{640, 480}, 640.7, {640, 480}},      {{4000, 1}, 100, {100, 1}},
        {{1, 4000}, 100, {1, 100}},           {{4000, 3000}, 0, {1, 1}},
        {{4000, 3000}, -5, {1, 1}},           {{4000, 3000}, 0.5, {1, 1}},
        {{4000, 3000}, std::nan(""), {1, 1}}, {{1, 1}, 50, {1, 1}},
        {{1000, 1000}, 333.9, {333, 333}},    {{3, 2}, std::numeric_limits<double>::infinity(), {3, 2}},
    };
    for (const Row& row : rows)
        EXPECT_EQ(thumbnailSize(row.picture, row.bound), row.expected)
            << row.picture.width << " x " << row.picture.height << " at " << row.bound.value_or(-1);
}

TEST(ImageScaler, KeepsAGradientWhereItWas)
{
    // A gradient has no detail to lose: what remains is the rounding of source and result, one step each, and the
    // edges, where the window is cut off.
    for (const auto& [width, height] : {std::pair<size_t, size_t>{400, 300}, {53, 40}, {799, 601}, {100, 7}}) {
        CGImage scaled;
        ASSERT_TRUE(scaleImage(imageOf(test::gradient(800, 602)), width, height, scaled));
        EXPECT_EQ(scaled.width, width);
        EXPECT_EQ(scaled.height, height);
        EXPECT_LE(distanceFromGradient(scaled), 2) << width << " x " << height;
    }
}

TEST(ImageScaler, MakesPicturesLargerToo)
{
    CGImage scaled;
    ASSERT_TRUE(scaleImage(imageOf(test::gradient(40, 30)), 133, 100, scaled));
    // Half a source pixel at the edges has no neighbour: 210 / 40 / 2 steps.
    EXPECT_LE(distanceFromGradient(scaled), 4);
}

TEST(ImageScaler, ScalesASinglePixel)
{
    CGImage scaled;
    ASSERT_TRUE(scaleImage(imageOf(test::plain(1, 1, test::kBlue)), 5, 3, scaled));
    test::expectColor(scaled, 4, 2, test::kBlue, 1);
    ASSERT_TRUE(scaleImage(imageOf(test::plain(900, 1, test::kRed)), 1, 1, scaled));
    test::expectColor(scaled, 0, 0, test::kRed, 1);
}

TEST(ImageScaler, RefusesPicturesWithoutPixels)
{
    CGImage scaled;
    EXPECT_FALSE(scaleImage(imageOf(test::plain(4, 4, test::kRed)), 0, 3, scaled));
    EXPECT_FALSE(scaleImage({}, 3, 3, scaled));
}

TEST(ImageScaler, CarriesAlphaAlong)
{
    test::Picture picture{64, 64, 4, std::vector<uint8_t>(64 * 64 * 4, 0)};
    for (size_t y = 0; y < 64; ++y)
        for (size_t x = 0; x < 32; ++x)
            std::copy_n(std::array<uint8_t, 4>{100, 50, 20, 128}.begin(), 4, picture.at(x, y));
    CGImage scaled;
    ASSERT_TRUE(scaleImage(imageOf(picture), 16, 16, scaled));
    EXPECT_TRUE(scaled.hasAlpha);
    EXPECT_EQ(scaled.row(8)[4 * 2], 128);
    EXPECT_EQ(scaled.row(8)[4 * 13], 0);
    test::expectColor(scaled, 2, 8, {100, 50, 20}, 1);
    test::expectColor(scaled, 13, 8, {0, 0, 0}, 1);
}

TEST(ImageScaler, MayRunOnManyThreads)
{
    const CGImage source = imageOf(test::gradient(500, 400));
    std::array<int, 4> furthest{};
    {
        std::vector<std::jthread> threads;
        for (size_t t = 0; t < furthest.size(); ++t)
            threads.emplace_back([&, t] {
                for (size_t i = 0; i < 10; ++i) {
                    CGImage scaled;
                    furthest[t] = std::max(
                        furthest[t], scaleImage(source, 100 + i, 80 + t, scaled) ? distanceFromGradient(scaled) : 255);
                }
            });
    }
    for (const int distance : furthest)
        EXPECT_LE(distance, 2);
}

TEST(RowCollector, AveragesSquaresOfLargePictures)
{
    for (const auto& [width, height] : {std::pair<size_t, size_t>{101, 77}, {16, 12}, {403, 305}}) {
        const test::Picture picture = test::gradient(1613, 1221);
        RowCollector rows({picture.width, picture.height}, 3, false, {width, height});
        ASSERT_TRUE(rows.isReady());
        for (size_t y = 0; y < picture.height; ++y)
            rows.addRow(picture.at(0, y));
        EXPECT_LT(rows.planes().width, 5 * width);
        CGImage scaled;
        ASSERT_TRUE(scalePlanes(rows.planes(), width, height, scaled));
        EXPECT_LE(distanceFromGradient(scaled), 2) << width << " x " << height;
    }
}

TEST(RowCollector, SpreadsGreyOverTheColours)
{
    for (const size_t wanted : {size_t{40}, size_t{10}, size_t{4}}) {
        RowCollector rows({40, 40}, 2, true, {wanted, wanted});
        std::vector<uint8_t> row;
        for (size_t x = 0; x < 40; ++x)
            row.insert(row.end(), {200, 51});
        for (size_t y = 0; y < 40; ++y)
            rows.addRow(row.data());
        const platform::ImagePlanes planes = rows.planes();
        ASSERT_EQ(planes.count, 4U);
        for (size_t plane = 0; plane < 4; ++plane)
            for (size_t y = 0; y < planes.height; ++y)
                for (size_t x = 0; x < planes.width; ++x)
                    ASSERT_EQ(planes.planes[plane].samples[y * planes.planes[plane].bytesPerRow + x],
                              plane == 3 ? 51 : 40)
                        << wanted << ", " << plane << ": " << x << ", " << y;
    }
}

TEST(RowCollector, KeepsSixteenBits)
{
    // A ramp of 300 numbers of 16 bits, which 8 bits know as two, at its own size and averaged in squares.
    constexpr size_t kSide = 300;
    for (const size_t wanted : {kSide, kSide / 5}) {
        RowCollector rows({kSide, kSide}, 3, false, {wanted, wanted}, 16);
        std::vector<uint16_t> row;
        for (size_t x = 0; x < kSide; ++x)
            row.insert(row.end(), 3, static_cast<uint16_t>(30000 + x));
        for (size_t y = 0; y < kSide; ++y)
            rows.addRow(row.data());
        WideImage image;
        ASSERT_TRUE(scalePlanes(rows.planes(), wanted, wanted, image));
        const double scale = static_cast<double>(kSide) / static_cast<double>(wanted);
        for (size_t x = 4; x + 4 < wanted; ++x)
            EXPECT_NEAR(image.row(wanted / 2)[4 * x + 2], 30000 + (static_cast<double>(x) + 0.5) * scale - 0.5, 2) << x;
    }
}

TEST(RowCollector, LeavesRowsThatNeverCameBlack)
{
    const test::Picture picture = test::plain(40, 40, test::kWhite);
    RowCollector rows({40, 40}, 3, false, {40, 40});
    for (size_t y = 0; y < 20; ++y)
        rows.addRow(picture.at(0, y));
    CGImage image;
    ASSERT_TRUE(scalePlanes(rows.planes(), 40, 40, image));
    test::expectColor(image, 20, 10, test::kWhite, 1);
    test::expectColor(image, 20, 30, {0, 0, 0}, 1);
}
