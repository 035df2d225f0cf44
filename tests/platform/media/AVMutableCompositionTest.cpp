#include "platform/media/AVMutableComposition.h"

#include "platform/media/AVURLAsset.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

using namespace platform;
using namespace testsound;

namespace {

class AVMutableCompositionTest : public testing::Test {
protected:
    AVMutableCompositionTest()
    {
        writeWav(folder_.path("t.wav"), makeTone(8000, 1, 16000));
        source_ = AVURLAsset(folder_.url("t.wav")).tracks().at(0);
    }

    static CMTimeRange range(int64_t start, int64_t duration)
    {
        return {CMTimeMake(start, 8000), CMTimeMake(duration, 8000)};
    }
    static CMTime at(int64_t samples) { return CMTimeMake(samples, 8000); }

    /// Start and length of each stretch; negative starts for empty ones.
    static std::vector<std::pair<double, double>> layout(const AVMutableCompositionTrack& track)
    {
        std::vector<std::pair<double, double>> result;
        for (const AVCompositionTrackSegment& segment : track.segments()) {
            const double start = segment.source ? CMTimeGetSeconds(segment.sourceRange.start) : -1;
            result.emplace_back(start, CMTimeGetSeconds(segment.targetRange.duration));
        }
        return result;
    }

    TemporaryFolder folder_;
    AVAssetTrack source_;
};

using Layout = std::vector<std::pair<double, double>>;

TEST_F(AVMutableCompositionTest, EmptyCompositionLastsNoTime)
{
    EXPECT_EQ(CMTimeCompare(AVMutableComposition::composition()->duration(), kCMTimeZero), 0);
    EXPECT_TRUE(AVMutableComposition::composition()->tracks().empty());
}

TEST_F(AVMutableCompositionTest, TracksGetIdentifiersOfTheirOwn)
{
    AVMutableComposition composition;
    EXPECT_EQ(composition.addMutableTrackWithMediaType(kAVMediaTypeVideo, 0).trackID(), 1);
    EXPECT_EQ(composition.addMutableTrackWithMediaType(kAVMediaTypeAudio, 0).trackID(), 2);
    EXPECT_EQ(composition.addMutableTrackWithMediaType(kAVMediaTypeAudio, 7).trackID(), 7);
    EXPECT_EQ(composition.addMutableTrackWithMediaType(kAVMediaTypeAudio, 7).trackID(), 3);
}

TEST_F(AVMutableCompositionTest, LastsAsLongAsItsLongestTrack)
{
    AVMutableComposition composition;
    auto& first = composition.addMutableTrackWithMediaType(kAVMediaTypeAudio, 0);
    auto& second = composition.addMutableTrackWithMediaType(kAVMediaTypeAudio, 0);
    ASSERT_TRUE(first.insertTimeRange(range(0, 16000), source_, kCMTimeZero));
    ASSERT_TRUE(second.insertTimeRange(range(0, 8000), source_, at(12000)));
    EXPECT_EQ(CMTimeGetSeconds(composition.duration()), 2.5);
    EXPECT_EQ(composition.duration().timescale, 8000);
}

TEST_F(AVMutableCompositionTest, InsertionBeyondTheEndLeavesAnEmptyStretch)
{
    AVMutableCompositionTrack track(1, std::string(kAVMediaTypeAudio));
    ASSERT_TRUE(track.insertTimeRange(range(0, 8000), source_, at(4000)));
    EXPECT_EQ(layout(track), (Layout{{-1, 0.5}, {0, 1}}));
}

TEST_F(AVMutableCompositionTest, InsertionWithinPushesBackWhatFollows)
{
    AVMutableCompositionTrack track(1, std::string(kAVMediaTypeAudio));
    ASSERT_TRUE(track.insertTimeRange(range(0, 8000), source_, kCMTimeZero));
    ASSERT_TRUE(track.insertTimeRange(range(8000, 4000), source_, at(2000)));
    EXPECT_EQ(layout(track), (Layout{{0, 0.25}, {1, 0.5}, {0.25, 0.75}}));
    EXPECT_EQ(CMTimeGetSeconds(track.end()), 1.5);
    ASSERT_TRUE(track.insertTimeRange(range(0, 800), source_, kCMTimeZero));
    EXPECT_EQ(layout(track), (Layout{{0, 0.1}, {0, 0.25}, {1, 0.5}, {0.25, 0.75}}));
    EXPECT_EQ(CMTimeGetSeconds(track.segments()[2].targetRange.start), 0.35);
}

TEST_F(AVMutableCompositionTest, RangesAreClippedToTheMedia)
{
    AVMutableCompositionTrack track(1, std::string(kAVMediaTypeAudio));
    ASSERT_TRUE(track.insertTimeRange(range(12000, 100000), source_, kCMTimeZero));
    EXPECT_EQ(layout(track), (Layout{{1.5, 0.5}}));
}

TEST_F(AVMutableCompositionTest, WhatCannotBeInsertedIsAnErrorAndChangesNothing)
{
    AVMutableCompositionTrack sound(1, std::string(kAVMediaTypeAudio));
    AVMutableCompositionTrack picture(2, std::string(kAVMediaTypeVideo));
    NSError error;
    EXPECT_FALSE(sound.insertTimeRange(range(0, 8000), std::nullopt, kCMTimeZero, &error));
    EXPECT_EQ(error.domain, kAVFoundationErrorDomain);
    error = {};
    EXPECT_FALSE(picture.insertTimeRange(range(0, 8000), source_, kCMTimeZero, &error));
    EXPECT_NE(error.localizedDescription.find("t.wav"), std::string::npos);
    EXPECT_FALSE(sound.insertTimeRange(range(0, 0), source_, kCMTimeZero));
    EXPECT_FALSE(sound.insertTimeRange(range(16000, 8000), source_, kCMTimeZero));
    EXPECT_FALSE(sound.insertTimeRange({kCMTimeZero, kCMTimeInvalid}, source_, kCMTimeZero));
    EXPECT_FALSE(sound.insertTimeRange(range(0, 8000), source_, kCMTimeInvalid));
    EXPECT_TRUE(sound.segments().empty());
    EXPECT_TRUE(picture.segments().empty());
}

TEST_F(AVMutableCompositionTest, CompatibleTrackIsTheFirstOfItsKind)
{
    const AVURLAsset asset(folder_.url("t.wav"));
    const AVMutableCompositionTrack sound(1, std::string(kAVMediaTypeAudio));
    const AVMutableCompositionTrack picture(2, std::string(kAVMediaTypeVideo));
    EXPECT_TRUE(asset.compatibleTrackForCompositionTrack(sound.asAssetTrack()));
    EXPECT_FALSE(asset.compatibleTrackForCompositionTrack(picture.asAssetTrack()));
}

} // namespace
