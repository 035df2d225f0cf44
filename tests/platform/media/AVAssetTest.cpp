#include "platform/media/AVAsset.h"

#include "platform/media/AVMutableComposition.h"
#include "platform/media/AVURLAsset.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

using namespace platform;
using namespace testsound;

namespace {

/// Loads the keys; false if that took too long.
bool load(const AVAssetPtr& asset, std::vector<std::string> keys)
{
    auto done = std::make_shared<std::promise<void>>();
    auto answer = done->get_future();
    asset->loadValuesAsynchronouslyForKeys(std::move(keys), [done] { done->set_value(); });
    return answer.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
}

TEST(AVAsset, ValuesOfAFileAreUnknownUntilTheyAreLoaded)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(8000, 1, 100));
    const auto asset = AVURLAsset::URLAssetWithURL(folder.url("t.wav"));
    EXPECT_EQ(asset->statusOfValueForKey("duration"), AVKeyValueStatus::Unknown);
    ASSERT_TRUE(load(asset, {"duration"}));
    NSError error;
    EXPECT_EQ(asset->statusOfValueForKey("duration", &error), AVKeyValueStatus::Loaded);
    EXPECT_EQ(asset->statusOfValueForKey("tracks", &error), AVKeyValueStatus::Loaded);
    EXPECT_EQ(error, NSError{});
    EXPECT_EQ(asset->statusOfValueForKey("no such key"), AVKeyValueStatus::Unknown);
}

TEST(AVAsset, OtherKeysDoNotOpenTheFile)
{
    const auto asset = AVURLAsset::URLAssetWithURL(NSURL::fileURLWithPath("/nonexistent/song.mp3"));
    ASSERT_TRUE(load(asset, {"no such key"}));
    EXPECT_EQ(asset->statusOfValueForKey("duration"), AVKeyValueStatus::Unknown);
}

TEST(AVAsset, FileThatCannotBeOpenedFailsToLoadAndSaysWhy)
{
    const auto asset = AVURLAsset::URLAssetWithURL(NSURL::fileURLWithPath("/nonexistent/song.mp3"));
    ASSERT_TRUE(load(asset, {"tracks", "duration"}));
    NSError error;
    EXPECT_EQ(asset->statusOfValueForKey("duration", &error), AVKeyValueStatus::Failed);
    EXPECT_NE(error.localizedDescription.find("/nonexistent/song.mp3"), std::string::npos);
    EXPECT_EQ(asset->statusOfValueForKey("duration"), AVKeyValueStatus::Failed);
}

TEST(AVAsset, ValuesOfACompositionAreAlwaysLoaded)
{
    const auto composition = AVMutableComposition::composition();
    EXPECT_EQ(composition->statusOfValueForKey("duration"), AVKeyValueStatus::Loaded);
    EXPECT_TRUE(load(composition, {"duration"}));
}

TEST(AVAsset, AssetThatIsLoadedLivesUntilTheHandlerIsCalled)
{
    auto asset = AVURLAsset::URLAssetWithURL(NSURL::fileURLWithPath("/nonexistent/song.mp3"));
    const std::weak_ptr<AVURLAsset> watched = asset;
    auto lived = std::make_shared<std::promise<bool>>();
    auto answer = lived->get_future();
    AVAsset* const borrowed = asset.get();
    borrowed->loadValuesAsynchronouslyForKeys(
        {"duration"}, [lived, watched, asset = asset.get()] { lived->set_value(watched.lock().get() == asset); });
    asset.reset();
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_TRUE(answer.get());
}

TEST(AVAsset, TracksKnowTheirAssetAndTheirFormat)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(22050, 2, 100));
    const auto asset = AVURLAsset::URLAssetWithURL(folder.url("t.wav"));
    const auto tracks = asset->tracksWithMediaType(kAVMediaTypeAudio);
    ASSERT_EQ(tracks.size(), 1U);
    EXPECT_EQ(tracks[0].asset.lock(), asset);
    ASSERT_EQ(tracks[0].formatDescriptions.size(), 1U);
    const auto& description = tracks[0].formatDescriptions[0].audioStreamBasicDescription;
    ASSERT_TRUE(description);
    EXPECT_EQ(description->mSampleRate, 22050);
    EXPECT_EQ(description->mChannelsPerFrame, 2U);

    // All channels of the file, also those that are mixed together in reading.
    convertWithFFmpeg(folder.path("t.wav"), "-ac 6", folder.path("six.wav"));
    const auto six = AVURLAsset::URLAssetWithURL(folder.url("six.wav"))->tracks();
    ASSERT_EQ(six.size(), 1U);
    EXPECT_EQ(six[0].formatDescriptions.at(0).audioStreamBasicDescription->mChannelsPerFrame, 6U);
    // That asset is gone.
    EXPECT_EQ(six[0].asset.lock(), nullptr);
}

TEST(AVAsset, TracksOfPicturesHaveNoStreamDescription)
{
    const TemporaryFolder folder;
    outputOf("ffmpeg -nostdin -v error -f lavfi -i color=c=red:s=64x64:r=5:d=1 " + shellWord(folder.path("t.mov")));
    const auto tracks = AVURLAsset::URLAssetWithURL(folder.url("t.mov"))->tracks();
    ASSERT_EQ(tracks.size(), 1U);
    ASSERT_EQ(tracks[0].formatDescriptions.size(), 1U);
    EXPECT_FALSE(tracks[0].formatDescriptions[0].audioStreamBasicDescription);
}

} // namespace
