#include "platform/media/SoundPlanning.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestExport.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

using namespace platform;
using namespace testsound;
using namespace testexport;

namespace {

constexpr double kPitch = 300;

struct Piece {
    int rateHz;
    int channels;
    size_t frames;
};

/// A tone of half scale that is in phase with one that began `start` seconds before.
Sound tonePiece(const Piece& piece, double start)
{
    return makeSound(piece.rateHz, piece.channels, piece.frames, [&](size_t frame, int) {
        return 0.5 * std::sin(2 * std::numbers::pi * kPitch * (start + static_cast<double>(frame) / piece.rateHz));
    });
}

Sound wholeTone(int rateHz, int channels, double seconds)
{
    return tonePiece({rateHz, channels, static_cast<size_t>(std::lround(seconds * rateHz)) + 1}, 0);
}

class SoundJoining : public testing::Test {
protected:
    /// Cuts one tone into pieces of different kinds and puts them together again.
    ///
    /// @param convert  whether each piece is first converted by itself, as those of soundtracks are
    void join(const std::vector<Piece>& pieces, bool convert)
    {
        joints_.clear();
        seconds_ = 0;
        const std::string run = convert ? "converted-" : "";
        output_ = folder_.url(run + "out.m4a");
        std::vector<NSURL> urls;
        for (const Piece& piece : pieces) {
            const std::string name = run + std::to_string(urls.size());
            writeWav(folder_.path(name + ".wav"), tonePiece(piece, seconds_));
            urls.push_back(folder_.url(name + ".wav"));
            if (convert) {
                expectExported(exportM4A(assetOf(urls.back()), folder_.url(name + ".m4a")));
                urls.back() = folder_.url(name + ".m4a");
            }
            seconds_ += static_cast<double>(piece.frames) / piece.rateHz;
            joints_.push_back(seconds_);
        }
        joints_.pop_back();
        expectExported(exportM4A(endToEnd(urls), *output_));
        heard_ = decodeWithFFmpeg(output_->path());
    }

    void expectOneTone(int rateHz, int channels)
    {
        ASSERT_EQ(heard_.rateHz, rateHz);
        ASSERT_EQ(heard_.channels, channels);
        EXPECT_EQ(AVURLAsset(*output_).duration().value, std::lround(seconds_ * rateHz));
        const Sound wanted = wholeTone(rateHz, channels, seconds_ + 1);
        const auto end = static_cast<size_t>(seconds_ * rateHz);
        for (size_t from = 4096; from + 8192 < end; from += 4096)
            EXPECT_GT(signalToNoise(heard_, from, wanted, from, 4096), 18) << "around sample " << from;
        for (const double joint : joints_) {
            const auto at = static_cast<size_t>(std::lround(joint * rateHz));
            // A gap or overlap of one sample, or a click, would be heard here.
            EXPECT_GT(signalToNoise(heard_, at - 128, wanted, at - 128, 256), 18) << "at the joint " << joint;
            for (size_t frame = at - 32; frame < at + 32; ++frame)
                ASSERT_NEAR(heard_.at(frame), wanted.at(frame), 0.08) << "at the joint " << joint;
        }
    }

    TemporaryFolder folder_;
    std::optional<NSURL> output_;
    std::vector<double> joints_;
    double seconds_ = 0;
    Sound heard_;
};

TEST_F(SoundJoining, PiecesOfDifferentRatesJoinWithoutGapOverlapOrClick)
{
    const std::vector<Piece> pieces = {{44100, 1, 100001}, {8000, 1, 16001},  {48000, 1, 99991},
                                       {22050, 1, 44123},  {32000, 1, 65537}, {11025, 1, 22001}};
    for (const bool convert : {false, true}) {
        SCOPED_TRACE(convert);
        join(pieces, convert);
        expectOneTone(44100, 1);
    }
}

TEST_F(SoundJoining, PiecesOfOneAndOfTwoChannelsPlayEquallyLoudOnBoth)
{
    const std::vector<Piece> pieces = {{44100, 1, 70001}, {44100, 2, 70003}, {48000, 1, 70001}, {22050, 2, 70001}};
    for (const bool convert : {false, true}) {
        SCOPED_TRACE(convert);
        join(pieces, convert);
        expectOneTone(44100, 2);
    }
}

TEST_F(SoundJoining, FirstPieceOfALowRateDoesNotSpoilTheOthers)
{
    join({{8000, 1, 20001}, {48000, 2, 120001}, {44100, 1, 50001}}, true);
    expectOneTone(48000, 2);
}

TEST_F(SoundJoining, FirstPieceAt48KilohertzKeepsItsRate)
{
    join({{48000, 1, 120001}, {44100, 1, 110001}}, true);
    expectOneTone(48000, 1);
}

TEST_F(SoundJoining, RoundingDoesNotAddUpOverManyPieces)
{
    // Lengths that are no whole samples at 44100 Hz, and each a bit more than the half of one.
    std::vector<Piece> pieces = {{44100, 1, 44100}};
    for (int i = 0; i < 60; ++i)
        pieces.push_back({i % 2 == 0 ? 48000 : 32000, 1, static_cast<size_t>(9603 + i % 5)});
    join(pieces, false);
    expectOneTone(44100, 1);
}

TEST_F(SoundJoining, PlanHasNeitherGapNorOverlap)
{
    std::vector<NSURL> urls;
    for (const int rate : {44100, 8000, 48000, 7350, 32000, 11025, 44100, 8000}) {
        const std::string name = std::to_string(urls.size()) + ".wav";
        writeWav(folder_.path(name), makeTone(rate, 1, static_cast<size_t>(rate) / 3 + 7));
        urls.push_back(folder_.url(name));
    }
    const auto plan = planSound(*endToEnd(urls), std::nullopt, nullptr);
    ASSERT_TRUE(plan);
    ASSERT_EQ(plan->pieces.size(), urls.size());
    for (size_t i = 1; i < urls.size(); ++i)
        EXPECT_EQ(plan->pieces[i].targetStart, plan->pieces[i - 1].targetEnd()) << i;
}

TEST_F(SoundJoining, RangeOffTheGridOfSamplesIsNeverASampleTooLong)
{
    std::minstd_rand random(1);
    for (const int rate : {44100, 48000, 96000, 88200, 22050, 11025}) {
        const std::string name = std::to_string(rate) + ".wav";
        writeWav(folder_.path(name), makeTone(rate, 1, static_cast<size_t>(rate) * 2));
        const auto asset = assetOf(folder_.url(name));
        for (const int32_t timescale : {rate, 1000, 10000, 48000, 1'000'000}) {
            for (int i = 0; i < 6; ++i) {
                const auto part = [&](int64_t of) { return static_cast<int64_t>(random()) % of; };
                const CMTimeRange range{CMTimeMake(part(timescale), timescale),
                                        CMTimeMake(timescale / 10 + part(timescale / 2), timescale)};
                const auto plan = planSound(*asset, range, nullptr);
                ASSERT_TRUE(plan);
                EXPECT_EQ(plan->rangeEnd - plan->rangeStart, range.duration.value * plan->sampleRateHz / timescale)
                    << rate << " " << timescale << " " << range.start.value << " " << range.duration.value;
            }
        }
    }
}

TEST_F(SoundJoining, ToneThatIsCutInPhaseHasNoDipAtTheCut)
{
    // Eight seconds of 441 Hz are whole periods.
    writeWav(folder_.path("t.wav"), makeTone(44100, 1, 14 * 44100, 441));
    std::vector<NSURL> urls;
    for (const int start : {1, 3}) {
        urls.push_back(folder_.url(std::to_string(start) + ".m4a"));
        expectExported(exportM4A(assetOf(folder_.url("t.wav")), urls.back(),
                                 CMTimeRange{CMTimeMake(start, 1), CMTimeMake(10, 1)}));
    }
    expectExported(exportM4A(endToEnd(urls), folder_.url("out.m4a")));
    const Sound heard = decodeWithFFmpeg(folder_.path("out.m4a"));
    // Ten milliseconds, which are no whole periods; so each is compared with the same of the source.
    constexpr size_t kWindow = 441;
    const Sound wanted = makeTone(44100, 1, 20 * 44100, 441);
    ASSERT_GE(heard.frames(), 20U * 44100);
    const auto level = [](const Sound& sound, size_t start) {
        double sum = 0;
        for (size_t frame = start; frame < start + kWindow; ++frame)
            sum += double{sound.at(frame)} * sound.at(frame);
        return std::sqrt(sum / kWindow);
    };
    for (size_t start = 0; start + kWindow <= 20U * 44100; start += kWindow)
        EXPECT_NEAR(level(heard, start) / level(wanted, start), 1, 0.02) << start;
}

TEST_F(SoundJoining, RealGapsStaySilent)
{
    writeWav(folder_.path("t.wav"), makeTone(44100, 1, 44100));
    const auto asset = assetOf(folder_.url("t.wav"));
    const auto composition = AVMutableComposition::composition();
    for (const int64_t start : {int64_t{0}, int64_t{44100 + 4410}}) {
        auto& track = composition->addMutableTrackWithMediaType(kAVMediaTypeAudio, 0);
        ASSERT_TRUE(track.insertTimeRange({kCMTimeZero, asset->duration()},
                                          asset->compatibleTrackForCompositionTrack(track.asAssetTrack()),
                                          CMTimeMake(start, 44100)));
    }
    expectExported(exportM4A(composition, folder_.url("out.m4a")));
    const Sound heard = decodeWithFFmpeg(folder_.path("out.m4a"));
    EXPECT_EQ(AVURLAsset(folder_.url("out.m4a")).duration().value, 2 * 44100 + 4410);
    double loudest = 0;
    for (size_t frame = 44100 + 1024; frame < 44100 + 4410 - 1024; ++frame)
        loudest = std::max(loudest, std::abs(double{heard.at(frame)}));
    EXPECT_LT(loudest, 0.02);
    EXPECT_GT(signalToNoise(heard, 44100 + 4410 + 4096, makeTone(44100, 1, 44100), 4096, 30000), 20);
}

} // namespace
