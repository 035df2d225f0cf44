#include "platform/media/AVAssetReader.h"

#include "platform/media/AVMutableComposition.h"
#include "platform/media/AVURLAsset.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>

using namespace platform;
using namespace testsound;

namespace {

constexpr int kRate = 8000;
constexpr AVAudioSettings kSettings{kAudioFormatLinearPCM, 32, false, 1};

class AVAssetReaderTest : public testing::Test {
protected:
    AVAssetPtr wav(int channels, size_t frames, const std::function<double(size_t, int)>& value)
    {
        writeWav(folder_.path("t.wav"), makeSound(kRate, channels, frames, value));
        return AVURLAsset::URLAssetWithURL(folder_.url("t.wav"));
    }

    AVAssetPtr tone(size_t frames)
    {
        writeWav(folder_.path("t.wav"), makeTone(kRate, 1, frames));
        return AVURLAsset::URLAssetWithURL(folder_.url("t.wav"));
    }

    static AVAssetReaderTrackOutputPtr outputOf(const AVAssetPtr& asset, AVAudioSettings settings = kSettings)
    {
        return std::make_shared<AVAssetReaderTrackOutput>(asset->tracksWithMediaType(kAVMediaTypeAudio).at(0),
                                                          settings);
    }

    /// All samples of the asset's first track.
    std::vector<int32_t> read(const AVAssetPtr& asset, CMTimeRange range = kCMTimeRangeInvalid)
    {
        std::vector<int32_t> samples;
        reader_ = AVAssetReader::initWithAsset(asset, &error_);
        if (!reader_) {
            ADD_FAILURE() << error_.localizedDescription;
            return samples;
        }
        const auto output = outputOf(asset);
        EXPECT_TRUE(reader_->canAddOutput(output));
        reader_->addOutput(output);
        reader_->setTimeRange(range);
        EXPECT_TRUE(reader_->startReading());
        while (reader_->status() == AVAssetReaderStatus::Reading) {
            const auto buffer = output->copyNextSampleBuffer();
            if (!buffer)
                continue;
            const size_t before = samples.size();
            EXPECT_EQ(CMTimeCompare(buffer->presentationTimeStamp(),
                                    CMTimeAdd(range.start.isValid() ? range.start : kCMTimeZero,
                                              CMTimeMake(static_cast<int64_t>(before), kRate))),
                      0);
            samples.resize(before + buffer->numSamples());
            EXPECT_TRUE(buffer->copyDataBytes(0, std::as_writable_bytes(std::span(samples).subspan(before))));
        }
        return samples;
    }

    TemporaryFolder folder_;
    NSError error_;
    std::unique_ptr<AVAssetReader> reader_;
};

TEST_F(AVAssetReaderTest, SamplesOf16BitsComeOutExactlyAsTheUpperHalfOf32)
{
    // 20000 values that are all different, over several buffers.
    const auto value = [](size_t frame) { return static_cast<int32_t>(frame) - 10000; };
    const auto samples =
        read(wav(1, 20000, [&](size_t frame, int) { return static_cast<double>(value(frame)) / 32767.0; }));
    EXPECT_EQ(reader_->status(), AVAssetReaderStatus::Completed);
    EXPECT_FALSE(reader_->error());
    ASSERT_EQ(samples.size(), 20000U);
    for (size_t frame = 0; frame < samples.size(); ++frame)
        ASSERT_EQ(samples[frame], value(frame) * 65536) << frame;
}

TEST_F(AVAssetReaderTest, FullScaleIsTheLargestIntegers)
{
    std::string bytes = wavHeader(kRate, 1, 4);
    // 32-bit floats instead of 16-bit integers.
    bytes[20] = 3;
    bytes[32] = 4;
    bytes[34] = 32;
    bytes = bytes.substr(0, 40);
    putLittleEndian(bytes, 16, 4);
    for (const float sample : {1.0F, -1.0F, 2.0F, -7.0F}) {
        uint32_t bits = 0;
        std::memcpy(&bits, &sample, sizeof bits);
        putLittleEndian(bytes, bits, 4);
    }
    writeBytes(folder_.path("float.wav"), bytes);
    EXPECT_EQ(read(AVURLAsset::URLAssetWithURL(folder_.url("float.wav"))),
              (std::vector<int32_t>{INT32_MAX, INT32_MIN, INT32_MAX, INT32_MIN}));
}

TEST_F(AVAssetReaderTest, TwoChannelsBecomeTheirMean)
{
    const auto samples = read(wav(2, 3, [](size_t frame, int channel) {
        const int values[3][2] = {{1000, 3000}, {-32767, 32767}, {5, 0}};
        return values[frame][channel] / 32767.0;
    }));
    EXPECT_EQ(samples, (std::vector<int32_t>{2000 * 65536, 0, 5 * 32768}));
}

TEST_F(AVAssetReaderTest, TimeRangeIsExactToTheSampleAndClippedToTheTrack)
{
    const auto asset = wav(1, 1000, [](size_t frame, int) { return static_cast<double>(frame) / 32767.0; });
    const auto samples = read(asset, {CMTimeMake(300, kRate), CMTimeMake(4, kRate)});
    EXPECT_EQ(samples, (std::vector<int32_t>{300 * 65536, 301 * 65536, 302 * 65536, 303 * 65536}));
    EXPECT_EQ(read(asset, {CMTimeMake(998, kRate), CMTimeMake(99999, kRate)}),
              (std::vector<int32_t>{998 * 65536, 999 * 65536}));
    EXPECT_TRUE(read(asset, {CMTimeMake(5000, kRate), CMTimeMake(10, kRate)}).empty());
    EXPECT_EQ(reader_->status(), AVAssetReaderStatus::Completed);
    EXPECT_EQ(read(asset, {kCMTimeZero, kCMTimePositiveInfinity}).size(), 1000U);
}

TEST_F(AVAssetReaderTest, OutputIsAddedOnlyOnceAndOnlyIfItCanBeRead)
{
    const auto asset = tone(100);
    reader_ = AVAssetReader::initWithAsset(asset);
    ASSERT_TRUE(reader_);
    EXPECT_EQ(reader_->status(), AVAssetReaderStatus::Unknown);
    EXPECT_FALSE(reader_->canAddOutput(nullptr));
    for (const AVAudioSettings settings :
         {AVAudioSettings{}, AVAudioSettings{kAudioFormatLinearPCM, 16, false, 1},
          AVAudioSettings{kAudioFormatLinearPCM, 32, true, 1}, AVAudioSettings{kAudioFormatLinearPCM, 32, false, 2}})
        EXPECT_FALSE(reader_->canAddOutput(outputOf(asset, settings)));

    AVAssetTrack foreign = asset->tracks().at(0);
    foreign.trackID = 99;
    EXPECT_FALSE(reader_->canAddOutput(std::make_shared<AVAssetReaderTrackOutput>(foreign, kSettings)));

    const auto output = outputOf(asset);
    EXPECT_TRUE(reader_->canAddOutput(output));
    reader_->addOutput(output);
    EXPECT_FALSE(reader_->canAddOutput(output));
    EXPECT_TRUE(reader_->startReading());
    EXPECT_FALSE(reader_->startReading());
    EXPECT_FALSE(reader_->canAddOutput(outputOf(asset)));
}

TEST_F(AVAssetReaderTest, TwoOutputsOfOneReaderBothHandOutAllSamples)
{
    const auto asset = tone(10000);
    reader_ = AVAssetReader::initWithAsset(asset);
    const auto one = outputOf(asset);
    const auto other = outputOf(asset);
    reader_->addOutput(one);
    reader_->addOutput(other);
    ASSERT_TRUE(reader_->startReading());
    for (const auto& output : {one, other}) {
        EXPECT_EQ(reader_->status(), AVAssetReaderStatus::Reading);
        size_t samples = 0;
        while (const auto buffer = output->copyNextSampleBuffer())
            samples += buffer->numSamples();
        EXPECT_EQ(samples, 10000U);
    }
    EXPECT_EQ(reader_->status(), AVAssetReaderStatus::Completed);
}

TEST_F(AVAssetReaderTest, WhatIsNoFileHasNoReader)
{
    EXPECT_FALSE(AVAssetReader::initWithAsset(nullptr, &error_));
    EXPECT_FALSE(AVAssetReader::initWithAsset(AVMutableComposition::composition(), &error_));
    EXPECT_EQ(error_.code, kAVErrorOperationNotSupportedForAsset);
    const auto asset = tone(100);
    ASSERT_EQ(asset->tracks().size(), 1U);
    std::filesystem::remove(folder_.path("t.wav"));
    EXPECT_FALSE(AVAssetReader::initWithAsset(asset, &error_));
    EXPECT_NE(error_.localizedDescription.find(folder_.path("t.wav")), std::string::npos);
}

TEST_F(AVAssetReaderTest, CancelledReaderHandsOutNoMore)
{
    const auto asset = tone(100000);
    reader_ = AVAssetReader::initWithAsset(asset);
    const auto output = outputOf(asset);
    reader_->addOutput(output);
    EXPECT_FALSE(output->copyNextSampleBuffer());
    ASSERT_TRUE(reader_->startReading());
    EXPECT_TRUE(output->copyNextSampleBuffer());
    reader_->cancelReading();
    EXPECT_FALSE(output->copyNextSampleBuffer());
    EXPECT_EQ(reader_->status(), AVAssetReaderStatus::Cancelled);
    EXPECT_FALSE(reader_->error());
}

TEST_F(AVAssetReaderTest, OutputMayBeAskedAfterItsReaderIsGone)
{
    const auto asset = tone(100000);
    reader_ = AVAssetReader::initWithAsset(asset);
    const auto output = outputOf(asset);
    reader_->addOutput(output);
    ASSERT_TRUE(reader_->startReading());
    reader_.reset();
    EXPECT_FALSE(output->copyNextSampleBuffer());
}

TEST_F(AVAssetReaderTest, MemoryOfABufferThatWasLetGoServesAgainUnlessDataIsAlwaysCopied)
{
    const auto asset = wav(1, 30000, [](size_t frame, int) { return static_cast<double>(frame) / 32767.0; });
    for (const bool alwaysCopies : {true, false}) {
        SCOPED_TRACE(alwaysCopies);
        reader_ = AVAssetReader::initWithAsset(asset);
        const auto output = outputOf(asset);
        EXPECT_TRUE(output->alwaysCopiesSampleData());
        output->setAlwaysCopiesSampleData(alwaysCopies);
        reader_->addOutput(output);
        ASSERT_TRUE(reader_->startReading());
        // Whoever keeps a buffer keeps its samples.
        const auto kept = output->copyNextSampleBuffer();
        const auto next = output->copyNextSampleBuffer();
        ASSERT_TRUE(kept && next);
        int32_t first = -1;
        int32_t second = -1;
        EXPECT_TRUE(kept->copyDataBytes(4, std::as_writable_bytes(std::span(&first, 1))));
        EXPECT_TRUE(next->copyDataBytes(4, std::as_writable_bytes(std::span(&second, 1))));
        EXPECT_EQ(first, 65536);
        EXPECT_EQ(second, static_cast<int32_t>(kept->numSamples() + 1) * 65536);
    }
}

TEST_F(AVAssetReaderTest, InvalidBufferHoldsNothing)
{
    const auto asset = tone(100);
    reader_ = AVAssetReader::initWithAsset(asset);
    const auto output = outputOf(asset);
    reader_->addOutput(output);
    ASSERT_TRUE(reader_->startReading());
    const auto buffer = output->copyNextSampleBuffer();
    ASSERT_TRUE(buffer);
    EXPECT_EQ(buffer->dataLength(), 400U);
    std::vector<std::byte> bytes(401);
    EXPECT_FALSE(buffer->copyDataBytes(0, bytes));
    EXPECT_FALSE(buffer->copyDataBytes(401, std::span(bytes).first(0)));
    EXPECT_TRUE(buffer->copyDataBytes(400, std::span(bytes).first(0)));
    EXPECT_TRUE(buffer->isValid());
    buffer->invalidate();
    EXPECT_FALSE(buffer->isValid());
    EXPECT_EQ(buffer->dataLength(), 0U);
    EXPECT_FALSE(buffer->copyDataBytes(0, std::span(bytes).first(1)));
}

TEST_F(AVAssetReaderTest, FileWhoseIndexPromisesMoreThanThereIsFails)
{
    writeWav(folder_.path("t.wav"), makeTone(44100, 1, 441000));
    convertWithFFmpeg(folder_.path("t.wav"), "-c:a aac -movflags +faststart", folder_.path("t.m4a"));
    const auto size = std::filesystem::file_size(folder_.path("t.m4a"));
    std::filesystem::resize_file(folder_.path("t.m4a"), size / 2);
    const auto asset = AVURLAsset::URLAssetWithURL(folder_.url("t.m4a"));
    reader_ = AVAssetReader::initWithAsset(asset, &error_);
    ASSERT_TRUE(reader_) << error_.localizedDescription;
    const auto output = outputOf(asset);
    reader_->addOutput(output);
    ASSERT_TRUE(reader_->startReading());
    size_t samples = 0;
    while (const auto buffer = output->copyNextSampleBuffer())
        samples += buffer->numSamples();
    EXPECT_GT(samples, 100000U);
    EXPECT_LT(samples, 400000U);
    EXPECT_EQ(reader_->status(), AVAssetReaderStatus::Failed);
    ASSERT_TRUE(reader_->error());
    EXPECT_NE(reader_->error()->localizedDescription.find(folder_.path("t.m4a")), std::string::npos);
}

TEST_F(AVAssetReaderTest, FileOfWhichNothingCanBeDecodedFails)
{
    writeWav(folder_.path("t.wav"), makeTone(44100, 1, 44100));
    convertWithFFmpeg(folder_.path("t.wav"), "-c:a libvorbis", folder_.path("t.ogg"));
    writeWav(folder_.path("t.wav"), makeTone(44100, 1, 44100));
    convertWithFFmpeg(folder_.path("t.wav"), "-c:a alac -movflags +faststart", folder_.path("t.m4a"));
    std::string bytes = readBytes(folder_.path("t.m4a"));
    const size_t media = bytes.find("mdat");
    ASSERT_NE(media, std::string::npos);
    std::fill(bytes.begin() + static_cast<ptrdiff_t>(media) + 4, bytes.end(), '\xFF');
    writeBytes(folder_.path("t.m4a"), bytes);
    EXPECT_TRUE(read(AVURLAsset::URLAssetWithURL(folder_.url("t.m4a"))).empty());
    EXPECT_EQ(reader_->status(), AVAssetReaderStatus::Failed);
    ASSERT_TRUE(reader_->error());
    EXPECT_EQ(reader_->error()->domain, kAVFoundationErrorDomain);
}

TEST_F(AVAssetReaderTest, CutFileWithoutAnIndexIsReadToItsEnd)
{
    writeWav(folder_.path("t.wav"), makeTone(44100, 1, 441000));
    convertWithFFmpeg(folder_.path("t.wav"), "-c:a libmp3lame", folder_.path("t.mp3"));
    std::filesystem::resize_file(folder_.path("t.mp3"), std::filesystem::file_size(folder_.path("t.mp3")) / 2);
    const auto asset = AVURLAsset::URLAssetWithURL(folder_.url("t.mp3"));
    reader_ = AVAssetReader::initWithAsset(asset);
    const auto output = outputOf(asset);
    reader_->addOutput(output);
    ASSERT_TRUE(reader_->startReading());
    size_t samples = 0;
    while (const auto buffer = output->copyNextSampleBuffer())
        samples += buffer->numSamples();
    EXPECT_EQ(reader_->status(), AVAssetReaderStatus::Completed);
    EXPECT_NEAR(static_cast<double>(samples), 220500, 4000);
}

TEST_F(AVAssetReaderTest, FileThatGoesAwayBeforeReadingStartsFails)
{
    const auto asset = tone(100);
    reader_ = AVAssetReader::initWithAsset(asset);
    const auto output = outputOf(asset);
    reader_->addOutput(output);
    std::filesystem::remove(folder_.path("t.wav"));
    EXPECT_FALSE(reader_->startReading());
    EXPECT_EQ(reader_->status(), AVAssetReaderStatus::Failed);
    EXPECT_TRUE(reader_->error());
    EXPECT_FALSE(output->copyNextSampleBuffer());
}

} // namespace
