#include "platform/pixels/SharpEdges.h"

#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

using platform::hasSharpEdges;

namespace {

bool isSharp(const test::Picture& picture)
{
    return hasSharpEdges(picture.samples.data() + 1, 3, picture.width, picture.height, 3 * picture.width);
}

} // namespace

TEST(SharpEdges, AreInDrawingsOfLinesOfEitherDirection)
{
    for (const bool isUpright : {true, false}) {
        test::Picture lines = test::plain(640, 480, {240, 240, 240});
        for (size_t y = 0; y < lines.height; ++y)
            for (size_t x = 0; x < lines.width; ++x)
                if ((isUpright ? x : y) % 16 == 1)
                    std::fill_n(lines.at(x, y), 3, uint8_t{0});
        EXPECT_TRUE(isSharp(lines)) << isUpright;
    }
}

TEST(SharpEdges, AreNotInPhotosWithAFewOutlines)
{
    EXPECT_FALSE(isSharp(test::textured(640, 480)));
    EXPECT_FALSE(isSharp(test::gradient(640, 480)));
    // A dark thing before the sky: one edge in each row.
    test::Picture outline = test::plain(640, 480, {240, 240, 240});
    for (size_t y = 0; y < outline.height; ++y)
        std::fill_n(outline.at(320, y), 3 * 320, uint8_t{20});
    EXPECT_FALSE(isSharp(outline));
}

TEST(SharpEdges, AreNotLookedForBeyondThePicture)
{
    const uint8_t sample = 7;
    EXPECT_FALSE(hasSharpEdges(&sample, 1, 1, 1, 1));
    EXPECT_FALSE(hasSharpEdges(nullptr, 1, 0, 0, 0));
}
