#include "audio/MORAudioWaveImageWaveForm.h"
#include "audio/MORAudioWaveImage.h"

#include "platform/dispatch/DispatchQueue.h"
#include "platform/media/AVMutableComposition.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>

using namespace platform;
using namespace testsound;
using namespace MORAudioWaveImage;

namespace {

constexpr int kRate = 44100;
constexpr CGSize kSize{100, 40};
constexpr std::string_view kEmptyEnding = ", responding with generic empty wave image";
constexpr std::string_view kCreate = "-[AVAsset(MORAudioWaveImage) "
                                     "_createWaveFormImageFromAssetTrack:withSampleRange:imageSize:completionHandler:]"
                                     " - ";
constexpr std::string_view kLoad = "-[AVAsset(MORAudioWaveImage) "
                                   "loadWaveFormImageAsynchronouslyForTimeRange:imageSize:completionHandler:] - ";

struct Answer {
    int count = 0;
    NSImagePtr image;
    std::optional<NSError> error;
    bool wasOnMain = false;
};

/// An asset in memory, whose parts a test may choose.
class PretendedAsset final : public AVAsset {
public:
    CMTime duration() const override { return CMTimeMake(kRate, kRate); }
    std::vector<AVAssetTrack> tracks() const override
    {
        std::vector<AVAssetTrack> result = tracks_;
        for (AVAssetTrack& track : result)
            track.asset = weak_from_this();
        return result;
    }
    AVKeyValueStatus statusOfValueForKey(std::string_view, NSError* error) const override
    {
        if (loadError_ && error)
            *error = *loadError_;
        return status_;
    }

    std::vector<AVAssetTrack> tracks_;
    AVKeyValueStatus status_ = AVKeyValueStatus::Loaded;
    std::optional<NSError> loadError_;
};

class WaveForm : public testing::Test {
protected:
    /// A file of 16-bit samples, of at most 1.
    AVAssetPtr makeAsset(size_t frames, const std::function<double(size_t)>& value, int rateHz = kRate)
    {
        writeWav(folder_.path("t.wav"), makeSound(rateHz, 1, frames, [&](size_t frame, int) { return value(frame); }));
        return AVURLAsset::URLAssetWithURL(folder_.url("t.wav"));
    }

    AVAssetPtr makeSteps(size_t frames, size_t steps)
    {
        // Each louder than the one before.
        return makeAsset(frames, [=](size_t frame) {
            return 0.1 + 0.8 * static_cast<double>(frame * steps / frames) / static_cast<double>(steps);
        });
    }

    static AVAssetTrack firstTrack(const AVAssetPtr& asset) { return asset->tracksWithMediaType("soun").at(0); }

    WaveFormHandler handler()
    {
        return [this](NSImagePtr image, std::optional<NSError> error) {
            ++answer_.count;
            answer_.image = std::move(image);
            answer_.error = std::move(error);
            answer_.wasOnMain = DispatchQueue::main()->isCurrent();
        };
    }

    /// Waits for the one answer.
    Answer answer()
    {
        EXPECT_TRUE(DispatchQueue::runMainUntil([this] { return answer_.count > 0; }, 60));
        EXPECT_EQ(answer_.count, 1);
        EXPECT_TRUE(answer_.wasOnMain);
        return std::exchange(answer_, {});
    }

    /// The picture of the asset; null if there is none.
    CGImagePtr draw(const AVAssetPtr& asset, CGSize size = kSize, CMTimeRange range = kCMTimeRangeZero)
    {
        loadWaveFormImageAsynchronouslyForTimeRange(asset, range, size, handler());
        const Answer given = answer();
        EXPECT_FALSE(given.error);
        return given.image ? given.image->image() : nullptr;
    }

    /// The same, starting at a track.
    NSImagePtr create(const AVAssetTrack& track, CMTimeRange range = kCMTimeRangeZero)
    {
        _createWaveFormImageFromAssetTrack(track, range, kSize, handler());
        const Answer given = answer();
        EXPECT_FALSE(given.error);
        return given.image;
    }

    void expectEmptyWaveAndLog(const NSImagePtr& image, const std::string& reason)
    {
        expectEmptyWave(image);
        ASSERT_EQ(log_.lines().size(), 1U);
        EXPECT_EQ(log_.lines()[0], std::string(kCreate) + reason + std::string(kEmptyEnding));
    }

    static void expectEmptyWave(const NSImagePtr& image)
    {
        ASSERT_TRUE(image);
        EXPECT_EQ(image->size(), kSize);
        const auto pixels = image->image();
        ASSERT_TRUE(pixels);
        for (size_t y = 0; y < 40; ++y)
            for (size_t x = 0; x < 100; ++x)
                ASSERT_EQ(alphaAt(pixels, x, y), y == 20 ? 255 : 0) << x << ", " << y;
    }

    static int alphaAt(const CGImagePtr& image, size_t x, size_t y) { return image->row(y)[4 * x]; }

    /// Pixels of a column that are not clear.
    static size_t heightAt(const CGImagePtr& image, size_t x)
    {
        size_t height = 0;
        for (size_t y = 0; y < image->height; ++y)
            height += alphaAt(image, x, y) > 0 ? 1 : 0;
        return height;
    }

    TemporaryFolder folder_;
    LogRecorder log_;
    Answer answer_;
};

// -- What is called, and when -----------------------------------------------------------------------------------------

TEST_F(WaveForm, WithoutAHandlerNothingIsDoneButLogged)
{
    loadWaveFormImageAsynchronouslyForTimeRange(makeSteps(1000, 10), kCMTimeRangeZero, kSize, nullptr);
    loadWaveFormImageAsynchronouslyOfSize(nullptr, kSize, nullptr);
    const std::string line = std::string(kLoad) + "completionHandler == nil";
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{line, line}));
}

TEST_F(WaveForm, ZeroSizeIsLoggedAndNothingIsCalled)
{
    const auto asset = makeSteps(1000, 10);
    loadWaveFormImageAsynchronouslyOfSize(asset, {0, 0}, handler());
    EXPECT_EQ(log_.lines(), std::vector<std::string>{std::string(kLoad) + "imageSize invalid"});
    // What was asked for later is answered, and nothing else.
    EXPECT_TRUE(draw(asset));
}

TEST_F(WaveForm, AssetWithoutSoundGivesNeitherImageNorError)
{
    const auto pictures = std::make_shared<PretendedAsset>();
    pictures->tracks_.emplace_back();
    pictures->tracks_.back().mediaType = kAVMediaTypeVideo;
    const AVAssetPtr assets[] = {nullptr, AVMutableComposition::composition(), pictures,
                                 AVURLAsset::URLAssetWithURL(folder_.url("missing.mp3"))};
    for (const AVAssetPtr& asset : assets) {
        loadWaveFormImageAsynchronouslyOfSize(asset, kSize, handler());
        const Answer given = answer();
        EXPECT_FALSE(given.image);
        EXPECT_FALSE(given.error);
    }
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(WaveForm, TrackThatIsMissingOrHasLostItsAssetGivesNeitherImageNorError)
{
    auto asset = makeSteps(1000, 10);
    const AVAssetTrack orphan = firstTrack(asset);
    asset.reset();
    for (const std::optional<AVAssetTrack>& track : {std::optional<AVAssetTrack>(), std::optional(orphan)}) {
        _createWaveFormImageFromAssetTrack(track, kCMTimeRangeZero, kSize, handler());
        const Answer given = answer();
        EXPECT_FALSE(given.image);
        EXPECT_FALSE(given.error);
    }
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(WaveForm, DurationThatIsNotLoadedGivesItsError)
{
    const auto asset = std::make_shared<PretendedAsset>();
    asset->tracks_.push_back(firstTrack(makeSteps(1000, 10)));
    const NSError why{"domain", 7, "It was not there."};
    for (const auto status : {AVKeyValueStatus::Failed, AVKeyValueStatus::Cancelled, AVKeyValueStatus::Loading}) {
        for (const std::optional<NSError>& error : {std::optional(why), std::optional<NSError>()}) {
            asset->status_ = status;
            asset->loadError_ = error;
            loadWaveFormImageAsynchronouslyOfSize(asset, kSize, handler());
            const Answer given = answer();
            EXPECT_FALSE(given.image);
            EXPECT_EQ(given.error, error);
        }
    }
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(WaveForm, AssetMayBeLetGoOnceItWasAskedFor)
{
    auto asset = makeSteps(100000, 10);
    loadWaveFormImageAsynchronouslyOfSize(asset, kSize, handler());
    asset.reset();
    EXPECT_TRUE(answer().image);
}

TEST_F(WaveForm, HandlerIsCalledOnTheMainQueueAndTheImageIsDrawnByThen)
{
    loadWaveFormImageAsynchronouslyOfSize(makeSteps(1000, 10), kSize, handler());
    const Answer given = answer();
    ASSERT_TRUE(given.image);
    EXPECT_TRUE(given.image->image());
    EXPECT_EQ(given.image->size(), kSize);
}

// -- Reading errors ---------------------------------------------------------------------------------------------------

TEST_F(WaveForm, ReaderThatCannotBeMadeGivesTheEmptyWave)
{
    const auto asset = std::make_shared<PretendedAsset>();
    asset->tracks_.push_back(firstTrack(makeSteps(1000, 10)));
    loadWaveFormImageAsynchronouslyOfSize(asset, kSize, handler());
    expectEmptyWaveAndLog(answer().image, "couldnt initiate reader: The asset is of a kind that cannot be read");
}

TEST_F(WaveForm, FileThatWentAwayGivesTheEmptyWave)
{
    const auto asset = makeSteps(1000, 10);
    ASSERT_EQ(asset->tracks().size(), 1U);
    std::filesystem::remove(folder_.path("t.wav"));
    loadWaveFormImageAsynchronouslyOfSize(asset, kSize, handler());
    expectEmptyWave(answer().image);
    ASSERT_EQ(log_.lines().size(), 1U);
    EXPECT_TRUE(log_.lines()[0].starts_with(std::string(kCreate) + "couldnt initiate reader: " + folder_.path("t.wav")))
        << log_.lines()[0];
    EXPECT_TRUE(log_.lines()[0].ends_with(kEmptyEnding));
}

TEST_F(WaveForm, TrackWithADescriptionOfNoSoundGivesTheEmptyWave)
{
    const auto asset = makeSteps(1000, 10);
    AVAssetTrack track = firstTrack(asset);
    track.formatDescriptions.emplace_back();
    expectEmptyWaveAndLog(create(track), "audiostreamdescription = nil");
}

TEST_F(WaveForm, NothingToReadGivesTheEmptyWave)
{
    const auto asset = makeSteps(1000, 10);
    const AVAssetTrack good = firstTrack(asset);
    AVAssetTrack withoutFormat = good;
    withoutFormat.formatDescriptions.clear();
    AVAssetTrack withoutRate = good;
    withoutRate.formatDescriptions[0].audioStreamBasicDescription->mSampleRate = 0;
    AVAssetTrack withoutChannels = good;
    withoutChannels.formatDescriptions[0].audioStreamBasicDescription->mChannelsPerFrame = 0;
    AVAssetTrack withoutLength = good;
    withoutLength.timeRange.duration = CMTimeMake(0, kRate);
    for (const AVAssetTrack& track : {withoutFormat, withoutRate, withoutChannels, withoutLength})
        expectEmptyWave(create(track));
    // Ranges that hold less than a sample, or are of no length that could be told.
    for (const CMTime duration : {CMTimeMake(0, kRate), CMTimeMake(1, 100 * kRate), kCMTimeIndefinite, kCMTimeInvalid,
                                  CMTimeMake(-1, 1), kCMTimeNegativeInfinity})
        expectEmptyWave(create(good, {CMTimeMake(1, kRate), duration}));
    EXPECT_EQ(log_.lines(),
              std::vector<std::string>(10, std::string(kCreate) + "samples, sampleRate, channelCount == 0" +
                                               std::string(kEmptyEnding)));
}

TEST_F(WaveForm, OutputThatCannotBeAddedGivesTheEmptyWave)
{
    const auto asset = makeSteps(1000, 10);
    AVAssetTrack track = firstTrack(asset);
    track.trackID = 99;
    expectEmptyWaveAndLog(create(track), "error canAddOutput: (null)");
}

TEST_F(WaveForm, ReadingThatEndsBadlyGivesTheEmptyWave)
{
    makeSteps(10 * kRate, 10);
    convertWithFFmpeg(folder_.path("t.wav"), "-c:a aac -movflags +faststart", folder_.path("t.m4a"));
    const auto asset = AVURLAsset::URLAssetWithURL(folder_.url("t.m4a"));
    std::filesystem::resize_file(folder_.path("t.m4a"), std::filesystem::file_size(folder_.path("t.m4a")) / 2);
    loadWaveFormImageAsynchronouslyOfSize(asset, kSize, handler());
    expectEmptyWaveAndLog(answer().image,
                          "error reading asset: " + folder_.path("t.m4a") + " ends before its sound does");
}

// -- The picture ------------------------------------------------------------------------------------------------------

TEST_F(WaveForm, SilentTrackShowsItsCentreLine)
{
    const auto image = draw(makeAsset(kRate, [](size_t) { return 0.0; }));
    ASSERT_TRUE(image);
    for (size_t x = 0; x < 100; ++x) {
        EXPECT_EQ(alphaAt(image, x, 20), 255);
        EXPECT_EQ(heightAt(image, x), 1U) << x;
    }
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(WaveForm, LoudestColumnOfAFullScaleTrackSpansTheFullHeight)
{
    // All columns are alike, so that they share the first one's place.
    const auto image = draw(makeAsset(kRate, [](size_t) { return 1.0; }));
    ASSERT_TRUE(image);
    for (size_t y = 0; y < 40; ++y) {
        // The line stands on the left edge, and half of it is outside.
        EXPECT_NEAR(alphaAt(image, 0, y), y == 20 ? 255 : 128, 1) << y;
        EXPECT_EQ(alphaAt(image, 1, y), y == 20 ? 255 : 0) << y;
    }
}

TEST_F(WaveForm, LoudestColumnOfASoftTrackSpansTheFullHeightToo)
{
    const auto image = draw(makeAsset(kRate, [](size_t frame) { return 0.2 + 0.1 * double(frame) / kRate; }));
    ASSERT_TRUE(image);
    EXPECT_EQ(heightAt(image, 99), 40U);
    EXPECT_LT(heightAt(image, 50), 38U);
    EXPECT_LT(heightAt(image, 0), heightAt(image, 50));
}

TEST_F(WaveForm, ColumnsAreAsHighAsTheirMeanLevel)
{
    // Four levels in decibels, the last of which is the highest; 25 columns each, of one value.
    const double levels[] = {-20, -15, -10, -5};
    const auto image = draw(
        makeAsset(kRate,
                  [&](size_t frame) { return std::pow(10, levels[frame * 4 / kRate] / 20) * (frame % 2 ? 1 : -1); }),
        {100, 400});
    ASSERT_TRUE(image);
    for (size_t i = 0; i < 4; ++i) {
        // The first column of a level keeps the place of all 25.
        const double height = 400 * (levels[i] + 25) / 20;
        // The ends lie within pixels, and 16 bits are not quite the level.
        EXPECT_NEAR(static_cast<double>(heightAt(image, 25 * i)), height, 2) << i;
        EXPECT_EQ(heightAt(image, 25 * i + 10), 1U) << i;
    }
}

TEST_F(WaveForm, LinesAreMirroredAboutTheMiddle)
{
    // But for the centre line, which lies below the middle.
    const auto image = draw(makeSteps(kRate, 50));
    ASSERT_TRUE(image);
    for (size_t x = 0; x < 100; ++x)
        for (size_t y = 0; y < 19; ++y)
            ASSERT_NEAR(alphaAt(image, x, y), alphaAt(image, x, 39 - y), 1) << x << ", " << y;
}

TEST_F(WaveForm, NeighboursOfDifferentLoudnessFillTheirPixels)
{
    const auto image = draw(makeAsset(kRate, [](size_t frame) { return 0.5 + 0.4 * double(frame) / kRate; }));
    ASSERT_TRUE(image);
    // Each line covers half of two pixel columns; together they leave no gap.
    for (size_t x = 0; x < 99; ++x)
        for (size_t y = 12; y < 28; ++y)
            ASSERT_EQ(alphaAt(image, x, y), 255) << x << ", " << y;
}

TEST_F(WaveForm, EqualColumnsShareThePlaceOfTheFirst)
{
    // Loud, softer, loud again: the second loud part is drawn where the first one begins.
    const auto image = draw(makeAsset(300, [](size_t frame) { return frame / 100 == 1 ? 0.4 : 0.8; }), {300, 40});
    ASSERT_TRUE(image);
    EXPECT_EQ(heightAt(image, 0), 40U);
    EXPECT_GT(heightAt(image, 100), 20U);
    EXPECT_LT(heightAt(image, 100), 40U);
    for (size_t x = 2; x < 300; ++x) {
        const bool isBesideTheSoftPart = x == 99 || x == 100;
        if (!isBesideTheSoftPart) {
            ASSERT_EQ(heightAt(image, x), 1U) << x;
        }
    }
}

TEST_F(WaveForm, ImageIsBlackOnClearGround)
{
    const auto image = draw(makeSteps(kRate, 50));
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->hasAlpha);
    bool hasClear = false;
    for (size_t y = 0; y < 40; ++y) {
        for (size_t x = 0; x < 100; ++x) {
            const uint8_t* pixel = image->row(y) + 4 * x;
            hasClear = hasClear || pixel[0] == 0;
            ASSERT_EQ(pixel[1] + pixel[2] + pixel[3], 0);
        }
    }
    EXPECT_TRUE(hasClear);
}

TEST_F(WaveForm, CentreLineLiesBelowTheMiddleOverTheWholeWidth)
{
    const auto image = _emptyImageInCaseOfErrorWithSize({5, 5})->image();
    ASSERT_TRUE(image);
    // From 1.5 to 2.5 above the lower edge: an odd height leaves it on halves of two rows.
    for (size_t x = 0; x < 5; ++x) {
        EXPECT_NEAR(alphaAt(image, x, 2), 128, 1);
        EXPECT_NEAR(alphaAt(image, x, 3), 128, 1);
        EXPECT_EQ(heightAt(image, x), 2U);
    }
}

// -- Side by side -----------------------------------------------------------------------------------------------------

namespace {

/// Music of a kind, between silences: three minutes and more of two channels.
Sound makeLongSound(int rateHz)
{
    uint32_t state = 7;
    return makeSound(rateHz, 2, static_cast<size_t>(190 * rateHz), [=](size_t frame, int channel) mutable {
        state = state * 1664525U + 1013904223U;
        const auto noise = static_cast<double>(static_cast<int32_t>(state)) / 0x1p31;
        const size_t second = frame / static_cast<size_t>(rateHz);
        const double tone =
            std::sin(static_cast<double>(frame) * 0.01 * static_cast<double>(1 + second % 13 + channel));
        return second % 10 == 9 ? 0.0 : 0.4 * tone + 0.1 * noise;
    });
}

struct Drawing {
    NSImagePtr image;
    size_t threadsBegun = 0;
};

Drawing drawWith(unsigned threads, const AVAssetPtr& asset, CMTimeRange range = kCMTimeRangeZero)
{
    Drawing drawing;
    const auto begin = [&](unsigned parts, std::function<void()> work) {
        EXPECT_LT(drawing.threadsBegun, parts);
        ++drawing.threadsBegun;
        return std::jthread(std::move(work));
    };
    // Columns of some hundred samples, so that a frame that was decoded otherwise shows.
    drawing.image = drawTrack(asset, asset->tracksWithMediaType("soun").at(0), range, {16000, 60},
                              {.most = threads, .begin = begin});
    return drawing;
}

AVAssetPtr preciseAsset(const NSURL& url)
{
    return std::make_shared<AVURLAsset>(url, AVURLAsset::Options{.preferPreciseDurationAndTiming = true});
}

void expectEqual(const NSImagePtr& one, const NSImagePtr& other)
{
    ASSERT_TRUE(one && other);
    const CGImagePtr first = one->image();
    const CGImagePtr second = other->image();
    ASSERT_TRUE(first && second);
    ASSERT_EQ(first->width, 16000U);
    ASSERT_EQ(second->width, first->width);
    for (size_t y = 0; y < first->height; ++y)
        ASSERT_TRUE(std::equal(first->row(y), first->row(y) + 4 * first->width, second->row(y))) << y;
}

} // namespace

TEST_F(WaveForm, LongSoundsLookTheSameWhateverReadsThem)
{
    writeWav(folder_.path("long.wav"), makeLongSound(24000));
    const CMTimeRange most{CMTimeMake(1001, 1000), CMTimeMake(1'880'017, 10'000)};
    const std::vector<std::tuple<std::string, std::string, CMTimeRange>> kinds{
        // What a frame needs of those before it lies as far back as it can.
        {"least.mp3", "-b:a 8k", kCMTimeRangeZero},
        {"varying.mp3", "-ar 44100 -q:a 4", most},
        {"whole.flac", "-sample_fmt s16", kCMTimeRangeZero},
        {"whole.m4a", "-c:a alac", most},
        {"whole.wav", "-c:a pcm_s24le", kCMTimeRangeZero}};
    for (const auto& [name, options, range] : kinds) {
        SCOPED_TRACE(name);
        convertWithFFmpeg(folder_.path("long.wav"), options, folder_.path(name));
        const auto asset = preciseAsset(folder_.url(name));
        const Drawing drawing = drawWith(3, asset, range);
        EXPECT_GE(drawing.threadsBegun, 2U);
        expectEqual(drawing.image, drawWith(1, asset, range).image);
    }
}

TEST_F(WaveForm, ShortSoundsAndThoseOfOneNoiseAreReadByOneThread)
{
    writeWav(folder_.path("long.wav"), makeLongSound(24000));
    convertWithFFmpeg(folder_.path("long.wav"), "-c:a aac", folder_.path("long.m4a"));
    EXPECT_EQ(drawWith(3, preciseAsset(folder_.url("long.m4a"))).threadsBegun, 0U);
    EXPECT_EQ(drawWith(3, makeSteps(60 * kRate, 50)).threadsBegun, 0U);
    EXPECT_EQ(drawWith(1, preciseAsset(folder_.url("long.wav"))).threadsBegun, 0U);
}

TEST_F(WaveForm, SoundsWhoseStretchesCannotBeReadAreReadInOne)
{
    writeWav(folder_.path("long.wav"), makeLongSound(24000));
    const auto asset = preciseAsset(folder_.url("long.wav"));
    const AVAssetTrack track = asset->tracksWithMediaType("soun").at(0);
    const auto none = [](unsigned, const std::function<void()>&) -> std::jthread {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    };
    const auto image = drawTrack(asset, track, kCMTimeRangeZero, {16000, 60}, {.most = 3, .begin = none});
    expectEqual(image, drawWith(1, asset).image);
    // The track plays for longer than there are samples: those that there are form the columns.
    const auto beyond = CMTimeRange{CMTimeMake(100, 1), CMTimeMake(190, 1)};
    expectEqual(drawWith(3, asset, beyond).image, drawWith(1, asset, beyond).image);
}

// -- Columns and ranges -----------------------------------------------------------------------------------------------

TEST_F(WaveForm, HundredPixelsOf4410SamplesAreHundredColumnsOf44)
{
    // The last ten samples are the only loud ones, and form no column.
    const auto image = draw(makeAsset(
        4410, [](size_t frame) { return frame >= 4400 ? 1.0 : 0.1 + 0.5 * static_cast<double>(frame / 44) / 100; }));
    ASSERT_TRUE(image);
    for (size_t x = 1; x < 100; ++x)
        EXPECT_GE(heightAt(image, x), heightAt(image, x - 1));
    EXPECT_EQ(heightAt(image, 99), 40U);
    EXPECT_GT(heightAt(image, 97), 35U);
}

TEST_F(WaveForm, FiftySamplesOnHundredPixelsAreFiftyColumns)
{
    const auto image = draw(makeAsset(50, [](size_t frame) { return 0.3 + static_cast<double>(frame) * 0.01; }));
    ASSERT_TRUE(image);
    EXPECT_EQ(heightAt(image, 49), 40U);
    for (size_t x = 50; x < 100; ++x)
        EXPECT_EQ(heightAt(image, x), 1U) << x;
}

TEST_F(WaveForm, OneSampleIsOneColumn)
{
    const auto image = draw(makeAsset(1, [](size_t) { return 0.5; }));
    ASSERT_TRUE(image);
    EXPECT_EQ(heightAt(image, 0), 40U);
    EXPECT_EQ(heightAt(image, 1), 1U);
}

TEST_F(WaveForm, RangeThatBeginsBetweenSamplesBeginsAtTheNearest)
{
    // The first sample alone is loud.
    const auto asset = makeAsset(kRate, [](size_t frame) { return frame == 0 ? 0.9 : 0.0; });
    const auto from = [&](int64_t tenthsOfASample) {
        const auto image = draw(asset, {10, 40}, {CMTimeMake(tenthsOfASample, 10 * kRate), CMTimeMake(10, kRate)});
        return image ? heightAt(image, 0) : 0;
    };
    EXPECT_EQ(from(4), 40U);
    EXPECT_EQ(from(5), 1U);
}

TEST_F(WaveForm, OfOnePixelIsOneColumn)
{
    const auto image = draw(makeAsset(100, [](size_t) { return 0.5; }), {1, 40});
    ASSERT_TRUE(image);
    EXPECT_EQ(heightAt(image, 0), 40U);
}

TEST_F(WaveForm, MoreColumnsThanPixelsAreCutOff)
{
    // 199 samples are 199 columns of one.
    const auto image = draw(makeAsset(199, [](size_t frame) { return 0.3 + static_cast<double>(frame) * 0.003; }));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width, 100U);
    // The loudest is beyond the edge.
    EXPECT_LT(heightAt(image, 99), 39U);
    EXPECT_GT(heightAt(image, 99), heightAt(image, 50));
}

TEST_F(WaveForm, EmptyAndInvalidRangesCoverTheWholeTrack)
{
    const auto asset = makeSteps(kRate, 20);
    const auto whole = draw(asset, kSize, {kCMTimeZero, CMTimeMake(kRate, kRate)});
    ASSERT_TRUE(whole);
    for (const CMTimeRange range :
         {kCMTimeRangeZero, kCMTimeRangeInvalid, CMTimeRange{CMTimeMake(0, kRate), CMTimeMake(0, 600)}}) {
        const auto image = draw(asset, kSize, range);
        ASSERT_TRUE(image);
        EXPECT_EQ(image->pixels, whole->pixels);
    }
    loadWaveFormImageAsynchronouslyOfSize(asset, kSize, handler());
    EXPECT_EQ(answer().image->image()->pixels, whole->pixels);
}

TEST_F(WaveForm, RangeShowsThatPartOfTheTrackAlone)
{
    // Silence but for the third quarter.
    const auto asset = makeAsset(kRate, [](size_t frame) {
        const bool isHeard = frame >= kRate / 2 && frame < kRate * 3 / 4;
        return isHeard ? 0.3 + static_cast<double>(frame) / kRate / 2 : 0.0;
    });
    const auto third = draw(asset, kSize, {CMTimeMake(1, 2), CMTimeMake(1, 4)});
    ASSERT_TRUE(third);
    EXPECT_GT(heightAt(third, 1), 20U);
    EXPECT_EQ(heightAt(third, 99), 40U);
    const auto first = draw(asset, kSize, {CMTimeMake(0, 1), CMTimeMake(1, 4)});
    ASSERT_TRUE(first);
    for (size_t x = 0; x < 100; ++x)
        EXPECT_EQ(heightAt(first, x), 1U);
    // Beyond the end there is nothing, which leaves the right half without columns.
    const auto beyond = draw(asset, kSize, {CMTimeMake(1, 2), CMTimeMake(1, 2)});
    ASSERT_TRUE(beyond);
    EXPECT_GT(heightAt(beyond, 45), 20U);
    EXPECT_EQ(heightAt(beyond, 55), 1U);
}

TEST_F(WaveForm, FractionsOfTheSizeAreCutOff)
{
    loadWaveFormImageAsynchronouslyOfSize(makeSteps(kRate, 20), {100.9, 40.9}, handler());
    EXPECT_EQ(answer().image->size(), kSize);
}

TEST_F(WaveForm, SizeWithoutAWholeColumnGivesTheEmptyWave)
{
    const auto asset = makeSteps(1000, 10);
    for (const CGSize size : {CGSize{0.5, 40}, CGSize{0, 40}, CGSize{-7, 40}, CGSize{1e300, 40}, CGSize{NAN, 40}}) {
        loadWaveFormImageAsynchronouslyOfSize(asset, size, handler());
        const Answer given = answer();
        ASSERT_TRUE(given.image);
        EXPECT_FALSE(given.error);
    }
    // Pixels that are not there are no reason to end.
    EXPECT_FALSE(draw(asset, {100, 0.5}));
    EXPECT_FALSE(draw(asset, {100, -40}));
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(WaveForm, EveryFormatGivesThePictureOfItsSound)
{
    writeWav(folder_.path("t.wav"), makeMusic(kRate, 2, 3 * kRate));
    const auto wanted = draw(AVURLAsset::URLAssetWithURL(folder_.url("t.wav")));
    ASSERT_TRUE(wanted);
    for (const char* name : {"t.flac", "t.mp3", "t.m4a", "t.ogg", "t.aiff"}) {
        SCOPED_TRACE(name);
        convertWithFFmpeg(folder_.path("t.wav"), "", folder_.path(name));
        const auto image = draw(AVURLAsset::URLAssetWithURL(folder_.url(name)));
        ASSERT_TRUE(image);
        // Lossy sound differs a little from column to column.
        for (size_t x = 0; x < 100; ++x)
            EXPECT_NEAR(static_cast<double>(heightAt(image, x)), static_cast<double>(heightAt(wanted, x)), 4) << x;
    }
}

} // namespace
