#include "video/FramePlacement.h"

#include "platform/decoders/ImageDecoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

using platform::CGPoint;
using platform::CGRect;
using platform::CGSize;

namespace {

constexpr CGSize kFrame = {1280, 720};

std::vector<size_t> markedFrames(size_t count)
{
    std::vector<size_t> marked;
    for (size_t i = 0; i < count; ++i)
        if (carriesWatermark(i, count))
            marked.push_back(i);
    return marked;
}

} // namespace

TEST(ThumbnailBound, FitsALargeLandscapeByTheHeightOfTheFrame)
{
    EXPECT_EQ(thumbnailBound({4000, 3000}, kFrame, false), 960);
}

TEST(ThumbnailBound, NeverEnlargesASmallPhoto)
{
    EXPECT_EQ(thumbnailBound({640, 480}, kFrame, false), 640);
    EXPECT_EQ(thumbnailBound({480, 640}, kFrame, false), 640);
}

TEST(ThumbnailBound, CoversTheFrameWhereBordersAreReduced)
{
    EXPECT_EQ(thumbnailBound({4000, 3000}, kFrame, true), 1280);
}

TEST(ThumbnailBound, FollowsTheRuleOfEachShape)
{
    struct Row {
        std::string what;
        CGSize photo;
        bool reduceBorders;
        double expected;
    };
    const std::vector<Row> rows = {
        {"portrait, by height", {3000, 4000}, false, 720},
        {"portrait, small", {300, 400}, false, 400},
        {"portrait, so narrow that it fits by height", {500, 2000}, false, 720},
        {"portrait, higher than the frame alone", {500, 800}, false, 720},
        {"square", {2000, 2000}, false, 720},
        {"panorama, by width", {6000, 1000}, false, 1280},
        {"the frame's own shape", {1920, 1080}, false, 1280},
        {"portrait, cover by width, rounded up", {3000, 4000}, true, 1707},
        {"landscape flatter than the frame, cover by height", {4000, 1000}, true, 720 / 0.25},
        {"landscape, cover by height, whole but for rounding", {3000, 1000}, true, 2160},
        {"square, cover", {2000, 2000}, true, 1280},
        {"small portrait, cover not reached", {300, 400}, true, 720},
        {"small landscape, cover not reached", {640, 480}, true, 640},
        {"flat landscape, too low", {2000, 500}, true, 1280},
        {"narrow portrait, high enough", {1000, 3000}, true, 3000},
        {"narrow portrait, higher than its own cover", {1279, 1500}, true, 1500},
        {"landscape too narrow by a pixel", {1279, 1000}, true, 1279},
        {"low landscape that the width does not cover", {1000, 720}, true, 1000},
        {"small square, cover not reached", {100, 100}, true, 100},
    };
    for (const Row& row : rows)
        EXPECT_DOUBLE_EQ(thumbnailBound(row.photo, kFrame, row.reduceBorders), row.expected) << row.what;
}

TEST(ThumbnailBound, LeavesNoBorderToAPhotoOfAnySizeThatCanCoverTheFrame)
{
    // Sizes of every remainder, wide and tall, in frames of every quality, one of a fractional width among them.
    size_t checked = 0;
    for (const CGSize frame : {CGSize{320, 240}, {640, 360}, {853.333, 480}, {1280, 720}, {1920, 1080}, {3840, 2160}})
        for (double longer = frame.width; longer < 3 * frame.width; longer += 13)
            for (double shorter = frame.height; shorter <= longer; shorter += 17)
                for (const CGSize photo : {CGSize{longer, shorter}, CGSize{shorter, longer}}) {
                    if (photo.width < frame.width || photo.height < frame.height)
                        continue;
                    const double bound = thumbnailBound(photo, frame, true);
                    const auto picture = platform::thumbnailSize(
                        {static_cast<size_t>(photo.width), static_cast<size_t>(photo.height)}, bound);
                    ASSERT_GE(picture.width, std::floor(frame.width)) << photo.width << " x " << photo.height;
                    ASSERT_GE(picture.height, std::floor(frame.height)) << photo.width << " x " << photo.height;
                    // Nor is more decoded than one pixel beyond.
                    ASSERT_TRUE(static_cast<double>(picture.width) < frame.width + 2 ||
                                static_cast<double>(picture.height) < frame.height + 2)
                        << photo.width << " x " << photo.height;
                    ++checked;
                }
    EXPECT_GT(checked, 100000U);
}

TEST(ThumbnailBound, FollowsTheSameRulesInAFrameThatStandsUpright)
{
    constexpr CGSize kUpright = {400, 1000};
    EXPECT_EQ(thumbnailBound({800, 1000}, kUpright, false), 500) << "portrait, by width";
    EXPECT_EQ(thumbnailBound({400, 500}, kUpright, true), 500) << "portrait, exactly as wide";
    EXPECT_EQ(thumbnailBound({500, 400}, kUpright, true), 400) << "landscape, by width";
}

TEST(ThumbnailBound, OfAPhotoThatWasNeverMeasuredIsNothing)
{
    EXPECT_EQ(thumbnailBound({0, 0}, kFrame, false), 0);
}

TEST(UnionOfFaces, IsTheRectangleAroundAll)
{
    EXPECT_EQ(unionOfFaces({{{10, 20}, {30, 40}}}), (CGRect{{10, 20}, {30, 40}}));
    EXPECT_EQ(unionOfFaces({{{10, 20}, {30, 40}}, {{5, 50}, {10, 60}}, {{100, 30}, {1, 1}}}),
              (CGRect{{5, 20}, {96, 90}}));
}

TEST(UnionOfFaces, IsEmptyWithoutAnyAndWhereNothingIsRightOfOrAboveTheCorner)
{
    EXPECT_EQ(unionOfFaces({}), CGRect{});
    EXPECT_EQ(unionOfFaces({{{-20, -20}, {20, 20}}}), CGRect{});
    EXPECT_EQ(unionOfFaces({{{-20, -20}, {25, 20}}}), (CGRect{{-20, -20}, {25, 20}}));
}

TEST(UnionOfFaces, IsEmptyWhereALowerBoundIsStillTheLargestNumber)
{
    constexpr double kMost = std::numeric_limits<double>::max();
    EXPECT_EQ(unionOfFaces({{{kMost, 20}, {30, 40}}}), CGRect{});
    EXPECT_EQ(unionOfFaces({{{10, kMost}, {30, 40}}}), CGRect{});
}

TEST(UnionOfFaces, CountsWhereOneUpperBoundIsNothing)
{
    EXPECT_EQ(unionOfFaces({{{-20, -20}, {20, 25}}}), (CGRect{{-20, -20}, {20, 25}}));
}

TEST(Placement, CentresAPictureWithoutAFace)
{
    EXPECT_EQ(placement({960, 720}, {}, kFrame), (CGPoint{160, 0}));
    EXPECT_EQ(placement({1280, 960}, {}, kFrame), (CGPoint{0, -120}));
    EXPECT_EQ(placement({641, 481}, {}, kFrame), (CGPoint{319.5, 119.5}));
}

TEST(Placement, CentresAPictureWhoseFaceIsInTheFrame)
{
    // Touching the edges is inside: the frame shows 120 to 840 of 960.
    EXPECT_EQ(placement({1280, 960}, {{0, 120}, {1280, 720}}, kFrame), (CGPoint{0, -120}));
    EXPECT_EQ(placement({1280, 960}, {{600, 400}, {100, 100}}, kFrame), (CGPoint{0, -120}));
    // Nearly at an edge, or at one of a picture that could be moved.
    EXPECT_EQ(placement({1280, 2000}, {{600, 640.5}, {100, 100}}, kFrame), (CGPoint{0, -640}));
    EXPECT_EQ(placement({1280, 2000}, {{600, 1260}, {100, 100}}, kFrame), (CGPoint{0, -640}));
    EXPECT_EQ(placement({1280, 2000}, {{600, 640}, {100, 100}}, kFrame), (CGPoint{0, -640}));
}

TEST(Placement, MovesAFaceNearAnEdgeToTheMiddleOrToThePicturesEdge)
{
    // One just above the frame: its middle comes to that of the frame, at 360, but for the picture's edge.
    EXPECT_EQ(placement({1280, 960}, {{600, 800}, {100, 100}}, kFrame), (CGPoint{0, -240}));
    // Of a higher picture there is room to centre it, near its top, not at its bottom.
    EXPECT_EQ(placement({1280, 2000}, {{600, 1500}, {100, 100}}, kFrame), (CGPoint{0, -1190}));
    EXPECT_EQ(placement({1280, 2000}, {{600, 300}, {100, 100}}, kFrame), (CGPoint{0, 0}));
    // To the left and right.
    EXPECT_EQ(placement({2000, 720}, {{100, 300}, {100, 100}}, kFrame), (CGPoint{0, 0}));
    EXPECT_EQ(placement({4000, 720}, {{1200, 300}, {100, 100}}, kFrame), (CGPoint{-610, 0}));
    EXPECT_EQ(placement({4000, 720}, {{3900, 300}, {100, 100}}, kFrame), (CGPoint{-2720, 0}));
}

TEST(Placement, CentresAFaceThatIsLargerThanTheFrame)
{
    EXPECT_EQ(placement({1280, 2000}, {{0, 500}, {1280, 900}}, kFrame), (CGPoint{0, -590}));
}

TEST(Placement, LeavesAnAxisAloneThatThePictureDoesNotFill)
{
    // Too narrow: the face cannot be moved sideways, but upwards.
    EXPECT_EQ(placement({1000, 2000}, {{-200, 1500}, {100, 100}}, kFrame), (CGPoint{140, -1190}));
    // Too low.
    EXPECT_EQ(placement({4000, 500}, {{3900, -300}, {100, 100}}, kFrame), (CGPoint{-2720, 110}));
}

TEST(Watermark, IsOnTheFirstTheLastAndNineInTheMiddle)
{
    EXPECT_EQ(markedFrames(20), (std::vector<size_t>{0, 6, 7, 8, 9, 10, 11, 12, 13, 14, 19}));
    EXPECT_EQ(markedFrames(21), (std::vector<size_t>{0, 6, 7, 8, 9, 10, 11, 12, 13, 14, 20}));
}

TEST(Watermark, IsOnTheFirstAndLastAloneOfFewerThanTen)
{
    for (size_t count = 2; count < 10; ++count)
        EXPECT_EQ(markedFrames(count), (std::vector<size_t>{0, count - 1})) << count;
    EXPECT_EQ(markedFrames(1), std::vector<size_t>{0});
}

TEST(Watermark, IsOnEveryFrameOfTen)
{
    EXPECT_EQ(markedFrames(10).size(), 10u);
    EXPECT_EQ(markedFrames(11).size(), 11u);
    EXPECT_EQ(markedFrames(12), (std::vector<size_t>{0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
}
