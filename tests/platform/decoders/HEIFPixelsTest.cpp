#include "platform/decoders/HEIFPixels.h"

#include "tests/support/TestHEIF.h"
#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

using platform::HEIFPicture;
using platform::ImageFile;
using platform::ImagePlanes;

namespace {

std::unique_ptr<ImageFile> fileOf(const std::vector<uint8_t>& bytes)
{
    return ImageFile::withData(bytes, "test.heic", nullptr);
}

std::optional<HEIFPicture> pictureOf(const std::vector<uint8_t>& bytes)
{
    return readHEIFPicture(*fileOf(bytes));
}

/// Four columns and three rows of tiles of 128 x 128.
std::vector<test::Picture> tilesOf(const test::Picture& whole)
{
    std::vector<test::Picture> tiles;
    for (size_t row = 0; row < 3; ++row)
        for (size_t column = 0; column < 4; ++column)
            tiles.push_back(test::cropped(whole, column * 128, row * 128, 128, 128));
    return tiles;
}

/// Of a picture whose colours are brought to RGB by the same scaler as every other's, from that which was drawn.
double distance(const ImagePlanes& planes, const test::Picture& drawn, size_t width, size_t height)
{
    platform::CGImage image;
    EXPECT_TRUE(scalePlanes(planes, width, height, image));
    double sum = 0;
    for (size_t y = 0; y < height; ++y)
        for (size_t x = 0; x < width; ++x)
            for (size_t i = 0; i < 3; ++i)
                sum += std::abs(test::pixel(image, x, y)[i] - drawn.at(x, y)[i]);
    return sum / static_cast<double>(width * height * 3);
}

TEST(HEIFPicture, TellsWhereTilesLie)
{
    const auto bytes = test::heifBytes(tilesOf(test::gradient(512, 384)),
                                       {.columns = 4, .rows = 3, .width = 450, .height = 300, .quarterTurns = 3});
    const auto picture = pictureOf(bytes);
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->codec, HEIFPicture::Codec::HEVC);
    EXPECT_EQ(picture->columns, 4u);
    EXPECT_EQ(picture->rows(), 3u);
    EXPECT_EQ(picture->tileWidth, 128u);
    EXPECT_EQ(picture->width, 450u);
    EXPECT_EQ(picture->height, 300u);
    EXPECT_EQ(picture->shownWidth(), 300u);
    EXPECT_EQ(picture->shownHeight(), 450u);
    EXPECT_EQ(picture->quarterTurns, 3u);
    std::vector<int64_t> places;
    for (const auto& tile : picture->tiles)
        for (const auto& extent : tile) {
            EXPECT_GT(extent.length, 0);
            EXPECT_LE(extent.offset + extent.length, static_cast<int64_t>(bytes.size()));
            places.push_back(extent.offset);
        }
    EXPECT_EQ(std::ranges::adjacent_find(places), places.end()) << "no tile twice";
}

TEST(HEIFPicture, LeavesRarerKindsToOthers)
{
    const std::vector<test::Picture> one = {test::quadrants(256, 128)};
    EXPECT_TRUE(pictureOf(test::heifBytes(one)));
    EXPECT_FALSE(pictureOf(test::heifBytes(one, {.mirror = 0})));
    EXPECT_FALSE(pictureOf(test::heifBytes(one, {.shownWidth = 200, .shownHeight = 100})));
    const auto tiles = tilesOf(test::gradient(512, 384));
    EXPECT_FALSE(pictureOf(test::heifBytes(tiles, {.columns = 4, .rows = 3, .width = 384, .height = 300})))
        << "a column that nobody sees";
    EXPECT_FALSE(pictureOf(test::heifBytes(tiles, {.columns = 4, .rows = 3, .width = 513, .height = 300})))
        << "a place that no tile covers";
}

TEST(HEIFPicture, TakesNothingFromBeyondTheFile)
{
    const auto bytes = test::heifBytes(tilesOf(test::gradient(512, 384)), {.columns = 4, .rows = 3});
    for (const size_t missing : {size_t{1}, bytes.size() / 3, bytes.size() - 40})
        EXPECT_FALSE(pictureOf({bytes.begin(), bytes.end() - static_cast<ptrdiff_t>(missing)})) << missing;
}

TEST(HEIFPixels, LaysTilesSideBySide)
{
    const auto drawn = test::gradient(512, 384);
    const auto file = fileOf(test::heifBytes(tilesOf(drawn), {.columns = 4, .rows = 3, .width = 449, .height = 299}));
    const auto picture = readHEIFPicture(*file);
    ASSERT_TRUE(picture);
    EXPECT_TRUE(hasHEIFPixels(*file, *picture));
    const auto planes = readHEIFPixels(*file, *picture);
    ASSERT_TRUE(planes);
    EXPECT_EQ(planes->family, ImagePlanes::Family::YUV);
    EXPECT_EQ(planes->width, 450u) << "whole pairs, as colours are stored for two at a time";
    EXPECT_EQ(planes->shownWidth, 449);
    EXPECT_LT(distance(*planes, drawn, 449, 299), 1.5);
}

TEST(HEIFPixels, DecodesOddSidesOfASinglePicture)
{
    const TemporaryFolder folder;
    const auto drawn = test::gradient(403, 301);
    test::save(drawn, folder.path("a.png"));
    for (const std::string codec : {"-A", "-q"}) {
        std::vector<std::string> command = {"heif-enc", codec, "95", folder.path("a.png"), "-o", folder.path("a.heif")};
        if (codec == "-A")
            command.insert(command.begin() + 2, "-q");
        test::run(command);
        const auto file = fileOf(test::readFile(folder.path("a.heif")));
        const auto picture = readHEIFPicture(*file);
        ASSERT_TRUE(picture) << codec;
        EXPECT_EQ(picture->codec, codec == "-A" ? HEIFPicture::Codec::AV1 : HEIFPicture::Codec::HEVC);
        const auto planes = readHEIFPixels(*file, *picture);
        ASSERT_TRUE(planes) << codec;
        EXPECT_LT(distance(*planes, drawn, 403, 301), 1.5) << codec;
    }
}

TEST(HEIFPixels, LeavesDamagedTilesToOthers)
{
    auto bytes = test::heifBytes(tilesOf(test::gradient(512, 384)), {.columns = 4, .rows = 3});
    const auto picture = pictureOf(bytes);
    ASSERT_TRUE(picture);
    const auto& last = picture->tiles.back().front();
    std::fill_n(bytes.begin() + last.offset, last.length, uint8_t{0});
    const auto file = fileOf(bytes);
    EXPECT_TRUE(hasHEIFPixels(*file, *picture)) << "the first is whole";
    EXPECT_FALSE(readHEIFPixels(*file, *picture));
    const auto& first = picture->tiles.front().front();
    std::fill_n(bytes.begin() + first.offset, first.length, uint8_t{0});
    EXPECT_FALSE(hasHEIFPixels(*fileOf(bytes), *picture));
}

TEST(HEIFPixels, BelievesNoOtherSizeThanWhatIsDecoded)
{
    const auto bytes = test::heifBytes({test::quadrants(256, 128)});
    auto picture = pictureOf(bytes);
    ASSERT_TRUE(picture);
    picture->tileWidth = 512;
    picture->width = 512;
    EXPECT_FALSE(readHEIFPixels(*fileOf(bytes), *picture));
}

} // namespace
