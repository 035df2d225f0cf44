#include "audio/MORAudioWaveImage.h"

#include "platform/dispatch/DispatchQueue.h"
#include "platform/files/NSFileManager.h"
#include "platform/foundation/NSDate.h"
#include "platform/media/AVMutableComposition.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <future>
#include <string>

using namespace platform;
using namespace testsound;
using namespace MORAudioWaveImage;

namespace {

constexpr int kRate = 8000;

struct Answer {
    std::optional<NSURL> converted;
    std::optional<NSError> error;
};

class AudioConversion : public testing::Test {
protected:
    AVAssetPtr makeAsset(const std::string& name, double seconds = 2)
    {
        writeWav(folder_.path("source.wav"), makeTone(kRate, 1, static_cast<size_t>(seconds * kRate), 440));
        if (name != "source.wav")
            convertWithFFmpeg(folder_.path("source.wav"), "", folder_.path(name));
        return AVURLAsset::URLAssetWithURL(folder_.url(name));
    }

    static int64_t samplesOf(const NSURL& url) { return AVURLAsset(url).duration().value; }

    TemporaryFolder folder_;
    NSError error_;
};

TEST_F(AudioConversion, SupportedTypesAreSixInOrder)
{
    EXPECT_EQ(supportedAudioTypes(),
              (std::vector<std::string>{"public.mp3", "public.mpeg-4-audio", "public.aiff-audio", "public.aifc-audio",
                                        "com.apple.coreaudio-format", "com.microsoft.waveform-audio"}));
    EXPECT_EQ(&supportedAudioTypes(), &supportedAudioTypes());
}

TEST_F(AudioConversion, SongFinalAiffBecomesSongFinalM4aInANewFolder)
{
    const auto asset = makeAsset("Song.final.aiff");
    const NSURL target = NSURL::fileURLWithPath(folder_.makeFolder("F"), true);
    const auto converted = synchronouslyConvertedAssetToM4AAtTempURL(asset, target, kCMTimeRangeInvalid, &error_);
    ASSERT_TRUE(converted) << error_.localizedDescription;
    // F, a UUID, the name.
    const std::string below = converted->path().substr(folder_.path("F/").size());
    ASSERT_EQ(below.size(), 36 + std::string("/Song.final.m4a").size()) << below;
    EXPECT_EQ(below.substr(36), "/Song.final.m4a");
    EXPECT_EQ(below.substr(0, 36).find_first_not_of("0123456789ABCDEF-"), std::string::npos) << below;
    EXPECT_EQ(samplesOf(*converted), 2 * kRate);
    EXPECT_EQ(filesBelow(folder_.path("F")).size(), 1U);
}

TEST_F(AudioConversion, ZeroAndInvalidRangesConvertTheWholeFile)
{
    const auto asset = makeAsset("source.wav");
    for (const CMTimeRange range :
         {kCMTimeRangeZero, kCMTimeRangeInvalid, CMTimeRange{CMTimeMake(0, 44100), CMTimeMake(0, 44100)}}) {
        const auto converted = synchronouslyConvertedAssetToM4AAtTempURL(asset, folder_.url(), range, &error_);
        ASSERT_TRUE(converted) << error_.localizedDescription;
        EXPECT_EQ(samplesOf(*converted), 2 * kRate);
    }
}

TEST_F(AudioConversion, RangeThatReachesPastTheEndIsHandedToTheExportAsItIs)
{
    const auto asset = makeAsset("source.wav");
    const CMTimeRange range{CMTimeMake(kRate, kRate), CMTimeMake(100 * kRate, kRate)};
    const auto converted = synchronouslyConvertedAssetToM4AAtTempURL(asset, folder_.url(), range, &error_);
    ASSERT_TRUE(converted) << error_.localizedDescription;
    EXPECT_EQ(samplesOf(*converted), kRate);
    // Not a marker, though empty: the export refuses it.
    const CMTimeRange empty{CMTimeMake(kRate, kRate), CMTimeMake(0, kRate)};
    EXPECT_FALSE(synchronouslyConvertedAssetToM4AAtTempURL(asset, folder_.url(), empty, &error_));
    EXPECT_EQ(error_.domain, kAVFoundationErrorDomain);
}

TEST_F(AudioConversion, TwoConversionsOfOneFileNeverCollide)
{
    const auto asset = makeAsset("source.wav");
    const auto first = synchronouslyConvertedAssetToM4AAtTempURL(asset, folder_.url(), kCMTimeRangeZero);
    const auto second = synchronouslyConvertedAssetToM4AAtTempURL(asset, folder_.url(), kCMTimeRangeZero);
    ASSERT_TRUE(first && second);
    EXPECT_NE(first->path(), second->path());
    EXPECT_EQ(readBytes(first->path()), readBytes(second->path()));
}

TEST_F(AudioConversion, WithoutAFolderTheTemporaryDirectoryIsUsed)
{
    const EnvironmentVariable temporary("TMPDIR", folder_.makeFolder("tmp"));
    const auto converted =
        synchronouslyConvertedAssetToM4AAtTempURL(makeAsset("source.wav"), std::nullopt, kCMTimeRangeZero);
    ASSERT_TRUE(converted);
    EXPECT_TRUE(converted->path().starts_with(folder_.path("tmp/")));
}

TEST_F(AudioConversion, OtherAssetsGiveNothingAndLeaveTheErrorAlone)
{
    NSError untouched{"mine", 7, "as it was"};
    EXPECT_FALSE(synchronouslyConvertedAssetToM4AAtTempURL(AVMutableComposition::composition(), folder_.url(),
                                                           kCMTimeRangeZero, &untouched));
    EXPECT_FALSE(synchronouslyConvertedAssetToM4AAtTempURL(nullptr, folder_.url(), kCMTimeRangeZero, &untouched));
    EXPECT_EQ(untouched, (NSError{"mine", 7, "as it was"}));
    EXPECT_TRUE(filesBelow(folder_.path()).empty());
}

TEST_F(AudioConversion, SuccessOverwritesTheErrorWithNone)
{
    NSError error{"mine", 7, "as it was"};
    EXPECT_TRUE(
        synchronouslyConvertedAssetToM4AAtTempURL(makeAsset("source.wav"), folder_.url(), kCMTimeRangeZero, &error));
    EXPECT_EQ(error, NSError{});
}

TEST_F(AudioConversion, FolderThatCannotBeMadeGivesItsError)
{
    folder_.makeFile("file");
    EXPECT_FALSE(synchronouslyConvertedAssetToM4AAtTempURL(makeAsset("source.wav"), folder_.url("file"),
                                                           kCMTimeRangeZero, &error_));
    EXPECT_EQ(error_.domain, kNSCocoaErrorDomain);
}

TEST_F(AudioConversion, BadFileGivesTheExportsErrorAndNoFile)
{
    folder_.makeFile("bad.mp3", "no music");
    const auto asset = AVURLAsset::URLAssetWithURL(folder_.url("bad.mp3"));
    EXPECT_FALSE(synchronouslyConvertedAssetToM4AAtTempURL(asset, folder_.url(), kCMTimeRangeZero, &error_));
    EXPECT_NE(error_.localizedDescription.find("bad.mp3"), std::string::npos);
    EXPECT_EQ(filesBelow(folder_.path()), std::vector<std::string>{"bad.mp3"});
}

TEST_F(AudioConversion, AsynchronousFormAnswersOnTheGlobalQueue)
{
    std::promise<Answer> promise;
    bool onMain = true;
    audioAssetConvertedToM4AAtTempURL(makeAsset("source.wav"), folder_.url(), kCMTimeRangeZero,
                                      [&](std::optional<NSURL> converted, std::optional<NSError> error) {
                                          onMain = DispatchQueue::main()->isCurrent();
                                          promise.set_value({std::move(converted), std::move(error)});
                                      });
    auto future = promise.get_future();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    const Answer answer = future.get();
    ASSERT_TRUE(answer.converted);
    EXPECT_FALSE(answer.error);
    EXPECT_FALSE(onMain);
    EXPECT_EQ(answer.converted->lastPathComponent(), "source.m4a");
}

TEST_F(AudioConversion, AsynchronousFormsAnswerAtOnceWhereThereIsNothingToConvert)
{
    int calls = 0;
    const auto expectNothing = [&](std::optional<NSURL> converted, std::optional<NSError> error) {
        ++calls;
        EXPECT_FALSE(converted);
        EXPECT_FALSE(error);
    };
    audioAssetConvertedToM4AAtTempURL(AVMutableComposition::composition(), folder_.url(), kCMTimeRangeZero,
                                      expectNothing);
    EXPECT_EQ(calls, 1);
    audioAssetAtURL(std::nullopt, folder_.url(), kCMTimeRangeZero, expectNothing);
    EXPECT_EQ(calls, 2);
    // Without a handler nothing happens.
    audioAssetConvertedToM4AAtTempURL(makeAsset("source.wav"), folder_.url(), kCMTimeRangeZero, {});
    audioAssetAtURL(folder_.url("source.wav"), folder_.url(), kCMTimeRangeZero, {});
    audioAssetAtURL(std::nullopt, folder_.url(), kCMTimeRangeZero, {});
    EXPECT_EQ(filesBelow(folder_.path()), std::vector<std::string>{"source.wav"});
}

TEST_F(AudioConversion, FormByFileReportsTheError)
{
    std::promise<Answer> promise;
    audioAssetAtURL(folder_.url("missing.mp3"), folder_.url(), kCMTimeRangeZero,
                    [&](std::optional<NSURL> converted, std::optional<NSError> error) {
                        promise.set_value({std::move(converted), std::move(error)});
                    });
    auto future = promise.get_future();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    const Answer answer = future.get();
    EXPECT_FALSE(answer.converted);
    ASSERT_TRUE(answer.error);
    EXPECT_NE(answer.error->localizedDescription.find("missing.mp3"), std::string::npos);
}

class AudioTrimming : public AudioConversion {
protected:
    struct Trimmed {
        AVURLAssetPtr asset;
        std::optional<NSError> error;
        bool onMain = false;
        int calls = 0;
    };

    Trimmed trim(const AVAssetPtr& asset, CMTimeRange range, const std::optional<NSURL>& output)
    {
        Trimmed result;
        trimAssetAsynchronouslyWithTimeRange(asset, range, output,
                                             [&](AVURLAssetPtr trimmed, std::optional<NSError> error) {
                                                 result.asset = std::move(trimmed);
                                                 result.error = std::move(error);
                                                 result.onMain = DispatchQueue::main()->isCurrent();
                                                 ++result.calls;
                                             });
        EXPECT_EQ(result.calls, 0) << "answered before returning";
        EXPECT_TRUE(DispatchQueue::runMainUntil([&] { return result.calls > 0; }, 30));
        EXPECT_EQ(result.calls, 1);
        EXPECT_TRUE(result.onMain);
        return result;
    }

    static CMTimeRange second() { return {CMTimeMake(kRate / 2, kRate), CMTimeMake(kRate, kRate)}; }
};

TEST_F(AudioTrimming, CutsToTheRangeWithoutEncodingAnew)
{
    const auto asset = makeAsset("song.m4a");
    const Trimmed result = trim(asset, second(), folder_.url("cut.m4a"));
    ASSERT_TRUE(result.asset);
    EXPECT_FALSE(result.error);
    EXPECT_EQ(result.asset->URL().path(), folder_.path("cut.m4a"));
    EXPECT_EQ(samplesOf(result.asset->URL()), kRate);
    const Sound whole = decodeWithFFmpeg(folder_.path("song.m4a"));
    EXPECT_GT(signalToNoise(decodeWithFFmpeg(folder_.path("cut.m4a")), 0, whole, kRate / 2, kRate), 40);
}

TEST_F(AudioTrimming, RangeIsRoundedToTheAssetsOwnScale)
{
    const auto asset = makeAsset("song.m4a");
    // 4000.4 and 8000.6 samples.
    const CMTimeRange range{CMTimeMake(40004, 80000), CMTimeMake(80006, 80000)};
    const Trimmed result = trim(asset, range, folder_.url("cut.m4a"));
    ASSERT_TRUE(result.asset);
    EXPECT_EQ(samplesOf(result.asset->URL()), 8001);
}

TEST_F(AudioTrimming, EmptyIndefiniteAndInvalidRangesAnswerNothingWithoutExporting)
{
    const auto asset = makeAsset("song.m4a");
    const auto before = filesBelow(folder_.path());
    const CMTime one = CMTimeMake(1, 1);
    for (const CMTimeRange range : {CMTimeRange{one, kCMTimeZero}, CMTimeRange{kCMTimeIndefinite, one},
                                    CMTimeRange{kCMTimeZero, kCMTimeIndefinite}, kCMTimeRangeInvalid, kCMTimeRangeZero,
                                    CMTimeRange{kCMTimeZero, CMTimeMake(-1, 1)}}) {
        const Trimmed result = trim(asset, range, folder_.url("cut.m4a"));
        EXPECT_FALSE(result.asset);
        EXPECT_FALSE(result.error);
    }
    EXPECT_EQ(filesBelow(folder_.path()), before);
}

TEST_F(AudioTrimming, WithoutAHandlerNothingHappens)
{
    const auto asset = makeAsset("song.m4a");
    const auto before = filesBelow(folder_.path());
    trimAssetAsynchronouslyWithTimeRange(asset, second(), folder_.url("cut.m4a"), {});
    EXPECT_EQ(filesBelow(folder_.path()), before);
}

TEST_F(AudioTrimming, WithoutAnOutputTheFileIsNamedForTheSecond)
{
    const auto asset = makeAsset("song.m4a");
    const EnvironmentVariable temporary("TMPDIR", folder_.makeFolder("tmp"));
    const double before = NSDate::date().timeIntervalSinceReferenceDate;
    const Trimmed result = trim(asset, second(), std::nullopt);
    const double after = NSDate::date().timeIntervalSinceReferenceDate;
    ASSERT_TRUE(result.asset);
    const std::string name = result.asset->URL().path().substr(folder_.path("tmp/").size());
    ASSERT_TRUE(name.starts_with("trimmed_") && name.ends_with(".m4a")) << name;
    const std::string seconds = name.substr(8, name.size() - 12);
    EXPECT_EQ(seconds.find_first_not_of("0123456789"), std::string::npos) << name;
    EXPECT_GE(std::stod(seconds), std::floor(before));
    EXPECT_LE(std::stod(seconds), after);
}

TEST_F(AudioTrimming, WithoutATemporaryDirectoryTheUsersOwnFolderIsUsed)
{
    const auto asset = makeAsset("song.m4a");
    const EnvironmentVariable temporary("TMPDIR", folder_.path("nowhere"));
    const EnvironmentVariable data("XDG_DATA_HOME", folder_.path("data"));
    const Trimmed result = trim(asset, second(), std::nullopt);
    ASSERT_TRUE(result.asset);
    EXPECT_TRUE(result.asset->URL().path().starts_with(folder_.path("data/AVAsset+MORAudioWaveImage/trimmed_")));
}

TEST_F(AudioTrimming, FolderOfItsOwnIsUsedWhereAFileStandsForTheTemporaryOne)
{
    const auto asset = makeAsset("song.m4a");
    const EnvironmentVariable temporary("TMPDIR", folder_.makeFile("file"));
    const EnvironmentVariable data("XDG_DATA_HOME", folder_.path("data"));
    const Trimmed result = trim(asset, second(), std::nullopt);
    ASSERT_TRUE(result.asset);
    EXPECT_TRUE(result.asset->URL().path().starts_with(folder_.path("data/")));
}

TEST_F(AudioTrimming, FolderOfItsOwnLiesBelowTheHomeWhereTheVariableNamesNoPlace)
{
    const auto asset = makeAsset("song.m4a");
    const EnvironmentVariable temporary("TMPDIR", folder_.path("nowhere"));
    const EnvironmentVariable home("HOME", folder_.path("home"));
    const EnvironmentVariable data("XDG_DATA_HOME", "not/from/the/root");
    const Trimmed result = trim(asset, second(), std::nullopt);
    ASSERT_TRUE(result.asset);
    EXPECT_TRUE(
        result.asset->URL().path().starts_with(folder_.path("home/.local/share/AVAsset+MORAudioWaveImage/trimmed_")));
}

TEST_F(AudioTrimming, FolderThatCannotBeMadeAnswersItsError)
{
    const auto asset = makeAsset("song.m4a");
    const EnvironmentVariable temporary("TMPDIR", folder_.path("nowhere"));
    const EnvironmentVariable data("XDG_DATA_HOME", folder_.makeFile("data"));
    const Trimmed result = trim(asset, second(), std::nullopt);
    EXPECT_FALSE(result.asset);
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->domain, kNSCocoaErrorDomain);
}

TEST_F(AudioTrimming, ExistingFileIsAnErrorAndStays)
{
    const auto asset = makeAsset("song.m4a");
    folder_.makeFile("cut.m4a", "mine");
    const Trimmed result = trim(asset, second(), folder_.url("cut.m4a"));
    EXPECT_FALSE(result.asset);
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->code, kAVErrorFileAlreadyExists);
    EXPECT_EQ(readBytes(folder_.path("cut.m4a")), "mine");
}

} // namespace
