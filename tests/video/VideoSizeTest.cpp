#include "video/VideoSize.h"

#include "tests/video/TestVideoStageContext.h"

#include <gtest/gtest.h>

using platform::CGSize;

namespace {

PhotoList photosOfSizes(const std::vector<CGSize>& sizes)
{
    PhotoList photos;
    for (const CGSize size : sizes) {
        photos.push_back(std::make_shared<MORPhoto>());
        photos.back()->setSize(size);
        photos.back()->setFileSize(1000 + static_cast<int64_t>(photos.size()));
    }
    return photos;
}

CGSize sizeFor(int64_t quality, const std::vector<CGSize>& sizes)
{
    TestVideoStageContext context;
    return VideoSize::videoSizeForQuality(context, quality, photosOfSizes(sizes));
}

} // namespace

TEST(VideoSize, IsTheOneThatTheQualityNamesEvenIfEveryPhotoIsSmaller)
{
    const std::vector<CGSize> named = {{320, 240},   {640, 360},   {854, 480},  {1280, 720},
                                       {1920, 1080}, {2560, 1440}, {3840, 2160}};
    for (const CGSize size : named) {
        const auto quality = static_cast<int64_t>(size.height);
        EXPECT_EQ(sizeFor(quality, {{100, 100}, {5000, 5000}}), size);
        EXPECT_EQ(sizeFor(quality, {}), size);
    }
}

TEST(VideoSize, OfEveryOtherQualityIsTheSmallestRowOfTheTwoSides)
{
    for (const int64_t quality : {int64_t{0}, int64_t{100}, int64_t{-1}, int64_t{-720}, int64_t{721}, INT64_MAX})
        EXPECT_EQ(sizeFor(quality, {{4000, 3000}, {1000, 2000}}), (CGSize{854, 480})) << quality;
}

TEST(VideoSize, TakesAPhotoExactlyOnABoundAsFillingTheRow)
{
    struct Row {
        CGSize photo;
        CGSize expected;
    };
    const std::vector<Row> rows = {
        {{1920, 1080}, {1920, 1080}}, {{1919, 1080}, {1280, 720}},  {{1920, 1079}, {1280, 720}},
        {{1280, 720}, {1280, 720}},   {{5000, 720}, {1280, 720}},   {{1279, 5000}, {854, 480}},
        {{854, 480}, {854, 480}},     {{853, 480}, {640, 360}},     {{854, 479}, {640, 360}},
        {{640, 360}, {640, 360}},     {{639, 360}, {320, 240}},     {{640, 359}, {320, 240}},
        {{1, 1}, {320, 240}},         {{0, 0}, {320, 240}},         {{2560, 1440}, {2560, 1440}},
        {{2559, 1440}, {1920, 1080}}, {{2560, 1439}, {1920, 1080}}, {{3840, 2160}, {3840, 2160}},
        {{3839, 2160}, {2560, 1440}}, {{3840, 2159}, {2560, 1440}}, {{9000, 9000}, {3840, 2160}},
    };
    for (const Row& row : rows)
        EXPECT_EQ(sizeFor(0, {row.photo}), row.expected) << row.photo.width << " x " << row.photo.height;
}

TEST(VideoSize, TakesTheSmallestSidesFromDifferentPhotos)
{
    EXPECT_EQ(sizeFor(0, {{1300, 4000}, {4000, 800}}), (CGSize{1280, 720}));
}

TEST(VideoSize, OfAnEmptyListIsTheLargestAndSendsNothing)
{
    TestVideoStageContext context;
    uint64_t total = 7;
    PhotoList failed = photosOfSizes({{1, 1}});
    EXPECT_EQ(VideoSize::videoSizeForQuality(context, 0, {}, &total, &failed), (CGSize{3840, 2160}));
    context.finish();
    EXPECT_EQ(total, 0u);
    EXPECT_TRUE(failed.empty());
    EXPECT_TRUE(context.updates().empty());
}

TEST(VideoSize, AddsUpTheFileSizesWhereTheyAreAskedFor)
{
    TestVideoStageContext context;
    const PhotoList photos = photosOfSizes({{1, 1}, {2, 2}, {3, 3}});
    uint64_t total = 0;
    VideoSize::videoSizeForQuality(context, 720, photos, &total);
    EXPECT_EQ(total, 1001u + 1002u + 1003u);
}

TEST(VideoSize, AlwaysAnswersAnEmptyListOfFailedPhotos)
{
    TestVideoStageContext context;
    PhotoList failed = photosOfSizes({{1, 1}});
    VideoSize::videoSizeForQuality(context, 720, photosOfSizes({{0, 0}, {2, 2}}), nullptr, &failed);
    EXPECT_TRUE(failed.empty());
}

TEST(VideoSize, CancelledDuringThePassIsZeroAndLeavesTheOutValuesAlone)
{
    TestVideoStageContext context;
    int asked = 0;
    context.whenAskedForCancelled = [&] { context.setIsCancelled(++asked == 3); };
    uint64_t total = 7;
    PhotoList failed = photosOfSizes({{1, 1}});
    EXPECT_EQ(
        VideoSize::videoSizeForQuality(context, 0, photosOfSizes({{9, 9}, {9, 9}, {9, 9}, {9, 9}}), &total, &failed),
        platform::kNSZeroSize);
    EXPECT_EQ(asked, 3) << "the next photo is not looked at";
    EXPECT_EQ(total, 7u);
    EXPECT_EQ(failed.size(), 1u);
    // Once more for a quality with a size of its own.
    asked = 2;
    EXPECT_EQ(VideoSize::videoSizeForQuality(context, 720, photosOfSizes({{9, 9}})), platform::kNSZeroSize);
}

TEST(VideoSize, ReportsEachPhotoAndLeavesOnlyTheNewestWaiting)
{
    TestVideoStageContext context;
    std::mutex gate;
    gate.lock();
    context.fbQ().addOperationWithBlock([&] { const std::lock_guard waiting(gate); });
    VideoSize::videoSizeForQuality(context, 720, photosOfSizes(std::vector<CGSize>(10, {9, 9})));
    gate.unlock();
    context.finish();
    const auto updates = context.updates();
    ASSERT_EQ(updates.size(), 1u);
    EXPECT_EQ(updates[0].title, "VideoCreationTitleCalculatingVideoSize");
    EXPECT_TRUE(updates[0].determinate);
    EXPECT_EQ(updates[0].progress, 10);
    EXPECT_EQ(updates[0].total, 10);
    EXPECT_EQ(updates[0].timeInterval, -2.0);
    ASSERT_NE(updates[0].image, nullptr);
    EXPECT_EQ(updates[0].image->size(), (CGSize{32, 32}));
}

TEST(VideoSize, SendsOnePictureWithEveryUpdate)
{
    TestVideoStageContext context;
    // Each update is through before the next photo is looked at.
    context.whenAskedForCancelled = [&] { context.fbQ().waitUntilAllOperationsAreFinished(); };
    VideoSize::videoSizeForQuality(context, 0, photosOfSizes({{9, 9}, {9, 9}, {9, 9}}));
    context.finish();
    const auto updates = context.updates();
    ASSERT_EQ(updates.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(updates[i].progress, static_cast<double>(i + 1));
        EXPECT_EQ(updates[i].total, 3);
        EXPECT_EQ(updates[i].image, updates[0].image);
    }
}
