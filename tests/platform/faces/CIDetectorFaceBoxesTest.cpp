#include "platform/faces/module/FaceBoxes.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace faces;

namespace {

void expectBox(const FaceBox& box, const FaceBox& expected)
{
    EXPECT_DOUBLE_EQ(box.x, expected.x);
    EXPECT_DOUBLE_EQ(box.y, expected.y);
    EXPECT_DOUBLE_EQ(box.width, expected.width);
    EXPECT_DOUBLE_EQ(box.height, expected.height);
    EXPECT_DOUBLE_EQ(box.score, expected.score);
}

} // namespace

TEST(FaceBoxes, OverlapIsTheShareOfTheCommonArea)
{
    const FaceBox box = {0, 0, 10, 10, 1};
    EXPECT_DOUBLE_EQ(overlap(box, box), 1);
    EXPECT_DOUBLE_EQ(overlap(box, {5, 0, 10, 10, 1}), 50.0 / 150);
    EXPECT_DOUBLE_EQ(overlap(box, {2, 2, 5, 5, 1}), 0.25);
    EXPECT_DOUBLE_EQ(overlap(box, {10, 0, 10, 10, 1}), 0);
    EXPECT_DOUBLE_EQ(overlap(box, {30, 30, 10, 10, 1}), 0);
    EXPECT_DOUBLE_EQ(overlap({}, {}), 0);
}

TEST(FaceBoxes, JoinsWhatMeansTheSameFaceToItsWeightedMean)
{
    const auto joined = joinBoxes({{2, 4, 10, 10, 0.25}, {100, 100, 10, 10, 0.5}, {0, 0, 10, 10, 0.75}}, 0.3);
    ASSERT_EQ(joined.size(), 2U);
    expectBox(joined[0], {0.5, 1, 10, 10, 0.75});
    expectBox(joined[1], {100, 100, 10, 10, 0.5});
}

TEST(FaceBoxes, JoinsOnlyWithTheSurestOfANeighbourhood)
{
    // The third overlaps the second, but not the first.
    const auto joined = joinBoxes({{0, 0, 10, 10, 0.9}, {4, 0, 10, 10, 0.8}, {8, 0, 10, 10, 0.7}}, 0.3);
    ASSERT_EQ(joined.size(), 2U);
    expectBox(joined[1], {8, 0, 10, 10, 0.7});
}

TEST(FaceBoxes, JoiningEndsWithBoxesOfNoSizeOrScore)
{
    EXPECT_TRUE(joinBoxes({}, 0.3).empty());
    EXPECT_EQ(joinBoxes({{1, 1, 0, 0, 0.5}, {1, 1, 0, 0, 0.4}}, 0.3).size(), 2U);
    EXPECT_TRUE(joinBoxes({{1, 1, 5, 5, 0}}, 0.3).empty());
}

TEST(FaceBoxes, KeepsTheSurestOfThoseThatOverlap)
{
    const auto kept = surestBoxes({{1, 0, 10, 10, 0.6}, {0, 0, 10, 10, 0.9}, {50, 0, 10, 10, 0.7}}, 0.3);
    ASSERT_EQ(kept.size(), 2U);
    expectBox(kept[0], {0, 0, 10, 10, 0.9});
    expectBox(kept[1], {50, 0, 10, 10, 0.7});
}

TEST(FaceBoxes, LooksFromNearOutvoteTheOneInPassing)
{
    EXPECT_GT(agreement(0.9, 0.8, 0.8), 0);
    EXPECT_GT(agreement(0.3, 0.8, 0.8), 0);
    EXPECT_LT(agreement(0.95, 0.5, 0.5), 0.2);
    EXPECT_LT(agreement(0.87, 0.09, 0.01), 0);
    EXPECT_LT(agreement(0.3, 0.55, 0.55), 0);
}

TEST(FaceBoxes, AgreementRisesWithEveryScoreAndStaysFinite)
{
    EXPECT_LT(agreement(0.3, 0.6, 0.6), agreement(0.4, 0.6, 0.6));
    EXPECT_LT(agreement(0.4, 0.6, 0.6), agreement(0.4, 0.7, 0.6));
    EXPECT_LT(agreement(0.4, 0.6, 0.6), agreement(0.4, 0.6, 0.7));
    EXPECT_TRUE(std::isfinite(agreement(0, 0, 0)));
    EXPECT_TRUE(std::isfinite(agreement(1, 1, 1)));
}

TEST(FaceBoxes, ALookThatCanChangeNothingIsSpared)
{
    EXPECT_LT(bestAgreement(0.4, 0.2), 0);
    EXPECT_GT(bestAgreement(0.6, 0.6), 0);
    EXPECT_GE(bestAgreement(0.6, 0.6), agreement(0.6, 0.6, 0.8));
}

TEST(FaceBoxes, BoundsReachUpToTheCrown)
{
    const FaceBox bounds = faceBounds({100, 100, 100, 100, 0.8}, 1000, 1000);
    EXPECT_NEAR(bounds.y, 42, 1e-9);
    EXPECT_NEAR(bounds.y + bounds.height, 203, 1e-9);
    EXPECT_NEAR(bounds.x, 103, 1e-9);
    EXPECT_NEAR(bounds.x + bounds.width, 197, 1e-9);
    EXPECT_EQ(bounds.score, 0.8);
}

TEST(FaceBoxes, BoundsGiveUpTheCrownWhereAScreenWouldNotShowTheWholeHead)
{
    // A tall picture 400 wide fills a screen with 225 of its height at a time.
    const FaceBox most = faceBounds({100, 500, 150, 150, 1}, 400, 1000);
    EXPECT_NEAR(most.height, 225, 1e-9);
    EXPECT_NEAR(most.y + most.height, 654.5, 1e-9);
    // Even then the face is there up to the hairline.
    const FaceBox large = faceBounds({50, 400, 300, 300, 1}, 400, 1000);
    EXPECT_NEAR(large.y, 343, 1e-9);
}

TEST(FaceBoxes, BoundsEndWithThePicture)
{
    expectBox(faceBounds({-50, -50, 1100, 1100, 1}, 1000, 800), {0, 0, 1000, 800, 1});
    EXPECT_EQ(faceBounds({2000, 10, 50, 50, 1}, 1000, 800).width, 0);
    EXPECT_EQ(faceBounds({10, -500, 50, 50, 1}, 1000, 800).height, 0);
}

TEST(FaceBoxes, ThePassOverAPanoramaIsLongerButNotWithoutEnd)
{
    EXPECT_EQ(finePassSide(3000, 2000), 512U);
    EXPECT_EQ(finePassSide(1000, 1000), 512U);
    EXPECT_EQ(finePassSide(6000, 1000), 1024U);
    EXPECT_EQ(finePassSide(1000, 6000), 1024U);
    EXPECT_EQ(finePassSide(20000, 16), 2048U);
}
