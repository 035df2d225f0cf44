#include "platform/pixels/SharpEdges.h"

#include "tests/support/TestPicture.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>

#include <gtest/gtest.h>

using platform::SharpEdges;
using platform::sharpEdgesOf;

namespace {

SharpEdges edgesOf(const test::Picture& picture)
{
    return sharpEdgesOf(picture.samples.data() + 1, 3, picture.width, picture.height, 3 * picture.width);
}

test::Picture linesOf(bool isUpright, size_t distance)
{
    test::Picture lines = test::plain(640, 480, {240, 240, 240});
    for (size_t y = 0; y < lines.height; ++y)
        for (size_t x = 0; x < lines.width; ++x)
            if ((isUpright ? x : y) % distance == 1)
                std::fill_n(lines.at(x, y), 3, uint8_t{0});
    return lines;
}

} // namespace

TEST(SharpEdges, AreInDrawingsOfLinesOfEitherDirection)
{
    // Both sides of an upright line in all rows that are looked at; of the others, one that lies between two of them.
    EXPECT_NEAR(edgesOf(linesOf(true, 16)).share, 1.0 / 16, 0.001);
    EXPECT_NEAR(edgesOf(linesOf(false, 16)).share, 1.0 / 2, 0.001);
}

TEST(SharpEdges, LieOnFlatGroundWhereNothingChangesBesideThem)
{
    EXPECT_EQ(edgesOf(linesOf(true, 16)).shareOnFlatGround, edgesOf(linesOf(true, 16)).share);
    EXPECT_EQ(edgesOf(linesOf(false, 16)).shareOnFlatGround, edgesOf(linesOf(false, 16)).share);
    EXPECT_EQ(edgesOf(linesOf(true, 7)).shareOnFlatGround, 0) << "lines that are too near each other";
    // A ground that is soft, and one that is rough.
    for (const int roughness : {3, 4}) {
        test::Picture lines = linesOf(true, 16);
        for (size_t y = 0; y < lines.height; ++y)
            for (size_t x = 0; x < lines.width; ++x)
                *lines.at(x, y) = lines.at(x, y)[1] = lines.at(x, y)[1] + static_cast<uint8_t>(x % 2 * roughness);
        EXPECT_GT(edgesOf(lines).share, 0.06);
        EXPECT_EQ(edgesOf(lines).shareOnFlatGround > 0, roughness == 3);
    }
}

TEST(SharpEdges, OfGrassAreManyButNotOnFlatGround)
{
    std::minstd_rand random(7);
    test::Picture grass = test::plain(640, 480, {0, 0, 0});
    for (uint8_t& sample : grass.samples)
        sample = static_cast<uint8_t>(80 + random() % 100);
    EXPECT_GT(edgesOf(grass).share, 0.1);
    EXPECT_LT(edgesOf(grass).shareOnFlatGround, 0.001);
}

TEST(SharpEdges, AreFewInPhotosWithAFewOutlines)
{
    EXPECT_LT(edgesOf(test::textured(640, 480)).share, 1.0 / 256);
    EXPECT_EQ(edgesOf(test::gradient(640, 480)).share, 0);
    // A dark thing before the sky: one edge in each row.
    test::Picture outline = test::plain(640, 480, {240, 240, 240});
    for (size_t y = 0; y < outline.height; ++y)
        std::fill_n(outline.at(320, y), 3 * 320, uint8_t{20});
    EXPECT_NEAR(edgesOf(outline).share, 1.0 / 1278, 1e-6);
    EXPECT_EQ(edgesOf(outline).shareOnFlatGround, edgesOf(outline).share);
}

TEST(SharpEdges, AreNotLookedForBeyondThePicture)
{
    const uint8_t sample = 7;
    EXPECT_EQ(sharpEdgesOf(&sample, 1, 1, 1, 1).share, 0);
    EXPECT_EQ(sharpEdgesOf(nullptr, 1, 0, 0, 0).share, 0);
    // The ground is as large as there is place on one side, and a sample less.
    for (const size_t side : {9, 8}) {
        const auto samples = std::make_unique<uint8_t[]>(side * side);
        std::fill_n(samples.get(), side, uint8_t{200});
        EXPECT_EQ(sharpEdgesOf(samples.get(), 1, side, side, side).share, 1.0 / 2);
        EXPECT_EQ(sharpEdgesOf(samples.get(), 1, side, side, side).shareOnFlatGround, side == 9 ? 1.0 / 2 : 0);
    }
}
