#include "platform/writer/AVAssetWriter.h"

#include "platform/files/NSFileManager.h"
#include "platform/media/AVAsset.h"
#include "platform/movie/MediaInspection.h"
#include "platform/movie/PicturePackets.h"
#include "platform/writer/AVAssetWriterEncoder.h"
#include "platform/writer/AVAssetWriterInputPixelBufferAdaptor.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestMovie.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <set>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace platform {
namespace {

using testing::Contains;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testmovie::Color;
using testmovie::makeFrame;
using testmovie::makePlainFrame;

constexpr std::array<const char*, 9> kCodecs{"jpeg", "avc1", "hvc1", "apco", "apcs", "apcn", "apch", "ap4h", "ap4x"};
constexpr double kDeadlineSeconds = 60;

CMTime at(int64_t value)
{
    return CMTimeMake(value, 10000);
}

/// Frames that differ, and are neither flat nor noise.
std::shared_ptr<CVPixelBuffer> makeNthFrame(size_t width, size_t height, size_t n)
{
    return makeFrame(width, height, [&](size_t x, size_t y) {
        return Color{static_cast<uint8_t>(x * 255 / width), static_cast<uint8_t>(y * 255 / height),
                     static_cast<uint8_t>(n * 37)};
    });
}

/// A writer with its input and adaptor; its index comes first.
struct Writing {
    explicit Writing(const NSURL& url, std::string codec = "jpeg", double width = 64, double height = 48)
        : writer(AVAssetWriter::assetWriterWithURL(url, kAVFileTypeQuickTimeMovie)),
          input(std::make_shared<AVAssetWriterInput>(
              kAVMediaTypeVideo, AVVideoSettings{.codec = std::move(codec), .width = width, .height = height})),
          adaptor(input)
    {
        writer->addInput(input);
        writer->setShouldOptimizeForNetworkUse(true);
    }

    bool start() const
    {
        if (!writer->startWriting())
            return false;
        writer->startSessionAtSourceTime(kCMTimeZero);
        return true;
    }

    /// Waits for room, then appends.
    bool append(std::shared_ptr<CVPixelBuffer> frame, CMTime time)
    {
        while (!input->isReadyForMoreMediaData() && writer->status() == AVAssetWriterStatus::Writing)
            std::this_thread::yield();
        return adaptor.appendPixelBuffer(std::move(frame), time);
    }

    AVAssetWriterStatus finish() const
    {
        input->markAsFinished();
        writer->finishWritingWithCompletionHandler({});
        return writer->waitWhileWriting(kDeadlineSeconds);
    }

    std::shared_ptr<AVAssetWriter> writer;
    std::shared_ptr<AVAssetWriterInput> input;
    AVAssetWriterInputPixelBufferAdaptor adaptor;
};

bool isEmptyFolder(const TemporaryFolder& folder)
{
    return std::filesystem::is_empty(folder.path());
}

class AVAssetWriterTest : public testing::Test {
protected:
    // Movies tell when they were made, and some are compared.
    AVAssetWriterTest() { setenv("SOURCE_DATE_EPOCH", "1000000000", 1); }
    ~AVAssetWriterTest() override { unsetenv("SOURCE_DATE_EPOCH"); }

    /// A finished movie of `count` frames, `distance` apart, and what it holds.
    MediaReport write(const std::string& codec, size_t count, int64_t distance, double width = 64, double height = 48,
                      size_t encoders = 0, std::optional<size_t> maximum = std::nullopt)
    {
        Writing writing(url, codec, width, height);
        writing.writer->setEncoderCount(encoders);
        writing.input->setMaximumSampleCount(maximum);
        EXPECT_TRUE(writing.start());
        for (size_t i = 0; i < count; ++i)
            EXPECT_TRUE(writing.append(makeNthFrame(static_cast<size_t>(width), static_cast<size_t>(height), i),
                                       at(static_cast<int64_t>(i) * distance)));
        EXPECT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
        EXPECT_FALSE(writing.writer->error());
        const auto report = inspectMedia(url);
        EXPECT_TRUE(report);
        return report.value_or(MediaReport{});
    }

    TemporaryFolder folder;
    const NSURL url = folder.url("movie.mov");
};

class AVAssetWriterOfCodec : public AVAssetWriterTest, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Codecs, AVAssetWriterOfCodec, testing::ValuesIn(kCodecs),
                         [](const auto& parameter) { return std::string(parameter.param); });

TEST_P(AVAssetWriterOfCodec, WritesOnePacketAFrameAtExactlyItsTimeAndHoldsTheLastAsLongAsTheOneBefore)
{
    const auto report = write(GetParam(), 10, 30000);
    ASSERT_EQ(report.tracks.size(), 1u);
    const auto& track = report.tracks[0];
    EXPECT_EQ(track.codec, GetParam());
    EXPECT_EQ(track.width, 64);
    EXPECT_EQ(track.height, 48);
    ASSERT_EQ(track.samples.size(), 10u);
    for (size_t i = 0; i < 10; ++i) {
        EXPECT_EQ(track.samples[i].presentationTime.value, static_cast<int64_t>(i) * 30000);
        EXPECT_EQ(track.samples[i].presentationTime.timescale, 10000);
        EXPECT_EQ(track.samples[i].duration.value, 30000);
        EXPECT_TRUE(track.samples[i].isKeyFrame);
    }
    EXPECT_EQ(CMTimeCompare(report.duration, at(300000)), 0);
    EXPECT_EQ(CMTimeCompare(track.end, at(300000)), 0);
    EXPECT_EQ(testmovie::probe(url.path(), "stream=time_base,duration_ts,nb_frames"),
              (std::vector<std::string>{"1/10000,300000,10"}));
}

TEST_P(AVAssetWriterOfCodec, WritesFramesThatAllDecodeWithoutAFault)
{
    // 854: neither a multiple of a macroblock nor of a vector register.
    write(GetParam(), 5, 10000, 854, 480);
    EXPECT_EQ(testmovie::decode(url.path(), 854, 480).size(), 5u);
}

TEST_P(AVAssetWriterOfCodec, WritesTheSameMovieWithAnyNumberOfEncoders)
{
    write(GetParam(), 9, 10000, 64, 48, 1);
    const std::string alone = TemporaryFolder::contentsOf(url.path());
    const auto frames = testmovie::decode(url.path(), 64, 48);
    for (const size_t encoders : {2u, 3u, 8u}) {
        (void)NSFileManager::defaultManager().removeItemAtURL(url);
        write(GetParam(), 9, 10000, 64, 48, encoders);
        // The HEVC encoder sets a flag without meaning by how many frames it has coded.
        if (std::string(GetParam()) == "hvc1")
            EXPECT_TRUE(testmovie::decode(url.path(), 64, 48) == frames) << encoders;
        else
            EXPECT_TRUE(TemporaryFolder::contentsOf(url.path()) == alone) << encoders;
    }
}

TEST_P(AVAssetWriterOfCodec, WritesTheSameMovieOfFramesThatWereCodedAhead)
{
    constexpr size_t kCount = 23;
    write(GetParam(), kCount, 10000, 64, 48, 1);
    const std::string inTurn = TemporaryFolder::contentsOf(url.path());
    const auto frames = testmovie::decode(url.path(), 64, 48);
    (void)NSFileManager::defaultManager().removeItemAtURL(url);

    Writing writing(url, GetParam());
    writing.writer->setEncoderCount(1);
    ASSERT_TRUE(writing.start());
    std::vector<std::shared_ptr<CVPixelBuffer>> buffers;
    for (size_t i = 0; i < kCount; ++i)
        buffers.push_back(makeNthFrame(64, 48, i));
    {
        // All even ones before the odd ones, which no single encoder of H.264 would take; every fifth not at all.
        std::vector<std::jthread> threads;
        for (const size_t first : {0u, 2u, 1u, 3u})
            threads.emplace_back([&, first] {
                for (size_t i = first; i < kCount; i += 4)
                    if (i % 5 != 4)
                        writing.adaptor.codeAhead(*buffers[i], i);
            });
    }
    for (size_t i = 0; i < kCount; ++i) {
        EXPECT_EQ(buffers[i]->takePixels() == nullptr, i % 5 != 4) << i;
        if (i % 5 == 4)
            buffers[i] = makeNthFrame(64, 48, i);
        ASSERT_TRUE(writing.append(buffers[i], at(static_cast<int64_t>(i) * 10000)));
    }
    ASSERT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
    if (std::string(GetParam()) == "hvc1")
        EXPECT_TRUE(testmovie::decode(url.path(), 64, 48) == frames);
    else
        EXPECT_TRUE(TemporaryFolder::contentsOf(url.path()) == inTurn);
}

TEST_P(AVAssetWriterOfCodec, WritesTheSameMovieOfPacketsOfAnother)
{
    constexpr size_t kCount = 9;
    write(GetParam(), kCount, 10000, 64, 48, 1);
    const NSURL copy = folder.url().URLByAppendingPathComponent("copy.mov", false);
    const auto packets = PicturePackets::open(url);
    ASSERT_TRUE(packets);
    EXPECT_EQ(packets->count(), kCount);
    Writing writing(copy, GetParam());
    ASSERT_TRUE(writing.start());
    for (size_t index = 0; index < kCount; ++index) {
        auto packet = packets->packet(index);
        ASSERT_TRUE(packet);
        ASSERT_TRUE(writing.input->appendPacket(std::move(*packet), at(static_cast<int64_t>(index) * 10000)));
    }
    ASSERT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
    EXPECT_TRUE(TemporaryFolder::contentsOf(copy.path()) == TemporaryFolder::contentsOf(url.path()));
    EXPECT_TRUE(packets->isAlike(*PicturePackets::open(copy)));
}

TEST_P(AVAssetWriterOfCodec, WritesTheSameMovieOfPacketsAndFrames)
{
    constexpr size_t kCount = 9;
    write(GetParam(), kCount, 10000, 64, 48, 1);
    const auto packets = PicturePackets::open(url);
    ASSERT_TRUE(packets);
    // An encoder counts but those that it codes itself.
    for (const std::set<size_t>& coded :
         std::vector<std::set<size_t>>{{0}, {5}, {1, 3, 5, 7}, {0, 2, 4, 6, 8}, {3, 4}, {8}}) {
        const NSURL copy = folder.url().URLByAppendingPathComponent("mixed.mov", false);
        std::filesystem::remove(copy.path());
        Writing writing(copy, GetParam());
        ASSERT_TRUE(writing.start());
        for (size_t index = 0; index < kCount; ++index) {
            const CMTime time = at(static_cast<int64_t>(index) * 10000);
            if (coded.contains(index)) {
                ASSERT_TRUE(writing.append(makeNthFrame(64, 48, index), time));
            } else {
                auto packet = packets->packet(index);
                ASSERT_TRUE(packet && writing.input->appendPacket(std::move(*packet), time));
            }
        }
        ASSERT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
        if (std::string(GetParam()) == "hvc1")
            EXPECT_TRUE(testmovie::decode(copy.path(), 64, 48) == testmovie::decode(url.path(), 64, 48));
        else
            EXPECT_TRUE(TemporaryFolder::contentsOf(copy.path()) == TemporaryFolder::contentsOf(url.path()));
    }
}

TEST_F(AVAssetWriterTest, TellsPacketsOfOtherDecodersApart)
{
    const auto packetsOf = [&](const char* name, const char* codec, size_t width) {
        const NSURL movie = folder.url().URLByAppendingPathComponent(name, false);
        Writing writing(movie, codec, static_cast<double>(width), 48);
        EXPECT_TRUE(writing.start());
        EXPECT_TRUE(writing.append(makeNthFrame(width, 48, 1), at(0)));
        EXPECT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
        return PicturePackets::open(movie);
    };
    const auto first = packetsOf("a.mov", "avc1", 64);
    EXPECT_TRUE(first->isAlike(*packetsOf("b.mov", "avc1", 64)));
    EXPECT_FALSE(first->isAlike(*packetsOf("c.mov", "avc1", 80)));
    EXPECT_FALSE(first->isAlike(*packetsOf("d.mov", "jpeg", 64)));
}

TEST_F(AVAssetWriterTest, RefusesPacketsOfAFileThatIsCutOffOrNoMovie)
{
    Writing writing(url, "avc1");
    ASSERT_TRUE(writing.start());
    for (size_t i = 0; i < 5; ++i)
        ASSERT_TRUE(writing.append(makeNthFrame(64, 48, i), at(static_cast<int64_t>(i) * 10000)));
    ASSERT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
    std::filesystem::resize_file(url.path(), std::filesystem::file_size(url.path()) - 10);
    const auto packets = PicturePackets::open(url);
    ASSERT_TRUE(packets);
    for (size_t index = 0; index < 4; ++index)
        EXPECT_TRUE(packets->packet(index)) << index;
    for (const size_t index : {4u, 5u}) {
        NSError error;
        EXPECT_FALSE(packets->packet(index, &error));
        EXPECT_THAT(error.localizedDescription, HasSubstr(url.path()));
    }

    std::filesystem::resize_file(url.path(), 20);
    NSError reason;
    EXPECT_FALSE(PicturePackets::open(url, &reason));
    EXPECT_THAT(reason.localizedDescription, HasSubstr(url.path()));
}

/// How far a channel may be off: rounding to 8 bits in both directions, and the codec's own loss on flat colours and
/// on a slow ramp.
int toleranceOf(const std::string& codec)
{
    if (codec == "jpeg")
        return 4;
    if (codec == "apco" || codec == "apcs")
        return 5;
    return codec == "hvc1" || codec == "avc1" ? 4 : 3;
}

TEST_P(AVAssetWriterOfCodec, KeepsColoursAndRamps)
{
    constexpr size_t kWidth = 256;
    constexpr size_t kHeight = 128;
    const std::array<Color, 8> colors{Color{255, 0, 0}, {0, 255, 0},   {0, 0, 255},     {255, 255, 0},
                                      {0, 255, 255},    {255, 0, 255}, {255, 255, 255}, {0, 0, 0}};
    Writing writing(url, GetParam(), kWidth, kHeight);
    ASSERT_TRUE(writing.start());
    int64_t time = 0;
    for (const Color& color : colors)
        ASSERT_TRUE(writing.append(makePlainFrame(kWidth, kHeight, color), at(time += 1000)));
    const auto ramp = [](size_t x, size_t) { return Color{uint8_t(x), uint8_t(x), uint8_t(x)}; };
    ASSERT_TRUE(writing.append(makeFrame(kWidth, kHeight, ramp), at(time += 1000)));
    ASSERT_EQ(writing.finish(), AVAssetWriterStatus::Completed);

    const auto frames = testmovie::decode(url.path(), kWidth, kHeight);
    ASSERT_EQ(frames.size(), colors.size() + 1);
    const auto worst = [](const Color& a, const Color& b) {
        int distance = 0;
        for (size_t i = 0; i < 3; ++i)
            distance = std::max(distance, std::abs(int{a[i]} - int{b[i]}));
        return distance;
    };
    const int tolerance = toleranceOf(GetParam());
    for (size_t i = 0; i < colors.size(); ++i)
        for (size_t y = 8; y < kHeight; y += 24)
            for (size_t x = 8; x < kWidth; x += 24)
                ASSERT_LE(worst(testmovie::pixelAt(frames[i], kWidth, x, y), colors[i]), tolerance)
                    << "colour " << i << " at " << x << ", " << y;
    for (size_t x = 0; x < kWidth; ++x)
        ASSERT_LE(worst(testmovie::pixelAt(frames.back(), kWidth, x, 64), ramp(x, 64)), tolerance) << "ramp at " << x;
}

TEST_P(AVAssetWriterOfCodec, TellsPlayersTheColoursMeaning)
{
    write(GetParam(), 2, 10000);
    const bool isJPEG = std::string(GetParam()) == "jpeg";
    EXPECT_EQ(testmovie::probe(url.path(), "stream=color_range,color_space,color_transfer,color_primaries"),
              (std::vector<std::string>{isJPEG ? "pc,bt470bg,bt709,bt709" : "tv,bt709,bt709,bt709"}));
    // In the file too, for players that look there first.
    EXPECT_NE(TemporaryFolder::contentsOf(url.path()).find("colrnclc"), std::string::npos);
}

TEST_F(AVAssetWriterTest, TellsItsTitleAndWhenItWasMade)
{
    // As long as a file's name may be, in a movie with room for its index.
    const std::string title(255, 'T');
    const auto item = [](std::string_view key, std::string value) {
        return std::make_shared<AVMetadataItem>(AVMetadataItem{.keySpace = std::string(kAVMetadataKeySpaceCommon),
                                                               .key = std::string(key),
                                                               .commonKey = std::string(key),
                                                               .value = std::move(value)});
    };
    Writing writing(url);
    writing.writer->setMetadata({item(kAVMetadataCommonKeyArtist, "nobody"), item(kAVMetadataCommonKeyTitle, title)});
    writing.writer->setShouldOptimizeForNetworkUse(true);
    writing.input->setMaximumSampleCount(2);
    ASSERT_TRUE(writing.start());
    for (int64_t i = 0; i < 2; ++i)
        ASSERT_TRUE(writing.append(makeNthFrame(64, 48, 0), at(i * 10000)));
    ASSERT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
    EXPECT_EQ(testmovie::probe(url.path(), "format_tags=title,artist,creation_time"),
              (std::vector<std::string>{"2001-09-09T01:46:40.000000Z," + title}));
    // Seconds since 1904, twice in the header of the movie, of the track and of its media.
    const std::string contents = TemporaryFolder::contentsOf(url.path());
    for (const char* const header : {"mvhd", "tkhd", "mdhd"})
        EXPECT_EQ(contents.substr(contents.find(header) + 8, 8), "\xB7\xC0\x7A\x80\xB7\xC0\x7A\x80") << header;
}

TEST_F(AVAssetWriterTest, WritesAQuickTimeFile)
{
    write("avc1", 2, 10000);
    EXPECT_EQ(TemporaryFolder::contentsOf(url.path()).substr(4, 8), "ftypqt  ");
}

TEST_F(AVAssetWriterTest, CodesH264SoThatEveryPlayerTakesIt)
{
    write("avc1", 2, 30000, 1920, 1080);
    EXPECT_EQ(testmovie::probe(url.path(), "stream=profile,level,pix_fmt,has_b_frames,chroma_location"),
              (std::vector<std::string>{"Constrained Baseline,0,yuv420p,40,left"}));
    (void)NSFileManager::defaultManager().removeItemAtURL(url);
    write("avc1", 1, 30000, 3840, 2160);
    EXPECT_EQ(testmovie::probe(url.path(), "stream=profile,level"),
              (std::vector<std::string>{"Constrained Baseline,51"}));
}

TEST_F(AVAssetWriterTest, CodesHEVCSoThatHardwarePlayersTakeIt)
{
    write("hvc1", 2, 30000, 640, 360);
    EXPECT_EQ(testmovie::probe(url.path(), "stream=codec_tag_string,profile,pix_fmt,has_b_frames"),
              (std::vector<std::string>{"Main,hvc1,0,yuv420p"}));
}

TEST_F(AVAssetWriterTest, ClaimsNoFrameRateInItsHeaders)
{
    for (const char* const codec : {"avc1", "hvc1"}) {
        (void)NSFileManager::defaultManager().removeItemAtURL(url);
        write(codec, 2, 30000, 640, 360);
        const std::string trace = testmovie::outputOf("ffmpeg -v verbose -i " + testmovie::shellWord(url.path()) +
                                                      " -c copy -bsf:v trace_headers -f null - 2>&1");
        // The bitstream filter reads all of the header, so that what comes after the flag is in its place.
        EXPECT_THAT(trace, ContainsRegex("timing_info_present_flag +0 = 0")) << codec;
        EXPECT_THAT(trace, Not(ContainsRegex("timing_info_present_flag +1 = 1"))) << codec;
        EXPECT_THAT(trace, ContainsRegex("bitstream_restriction_flag +[01] = ")) << codec;
        EXPECT_THAT(trace, Not(HasSubstr("num_units_in_tick"))) << codec;
    }
}

TEST_F(AVAssetWriterTest, GivesNeighbouringH264FramesDifferentIdentifiers)
{
    write("avc1", 12, 10000, 64, 48, 3);
    const std::string trace = testmovie::outputOf("ffmpeg -v verbose -i " + testmovie::shellWord(url.path()) +
                                                  " -c copy -bsf:v trace_headers -f null - 2>&1 | grep idr_pic_id");
    std::vector<char> identifiers;
    std::istringstream lines(trace);
    for (std::string line; std::getline(lines, line);)
        identifiers.push_back(line.back());
    ASSERT_EQ(identifiers.size(), 12u);
    for (size_t i = 0; i < identifiers.size(); ++i)
        EXPECT_EQ(identifiers[i], i % 2 == 0 ? '0' : '1') << i;
}

TEST_F(AVAssetWriterTest, KeepsAlphaOpaque)
{
    write("ap4h", 2, 10000);
    const std::string alpha = testmovie::outputOf("ffmpeg -v error -i " + testmovie::shellWord(url.path()) +
                                                  " -vf alphaextract,format=gray -f rawvideo - ");
    ASSERT_EQ(alpha.size(), size_t{2 * 64 * 48});
    EXPECT_TRUE(std::ranges::all_of(alpha, [](char value) { return static_cast<uint8_t>(value) == 255; }));
}

TEST_F(AVAssetWriterTest, PutsTheIndexFirstWhereTheNumberOfFramesIsKnown)
{
    const auto report = write("jpeg", 20, 10000, 64, 48, 0, 20);
    EXPECT_TRUE(report.indexFirst);
    ASSERT_EQ(report.tracks.size(), 1u);
    EXPECT_EQ(report.tracks[0].samples.size(), 20u);
}

TEST_F(AVAssetWriterTest, PutsTheIndexFirstWhereTheNumberOfFramesIsNotKnown)
{
    const auto report = write("jpeg", 20, 10000);
    EXPECT_TRUE(report.indexFirst);
    ASSERT_EQ(report.tracks.size(), 1u);
    EXPECT_EQ(report.tracks[0].samples.size(), 20u);
    EXPECT_EQ(testmovie::decode(url.path(), 64, 48).size(), 20u);
}

TEST_F(AVAssetWriterTest, PutsTheIndexBehindTheMediaUnlessItIsToBeOptimizedForNetworks)
{
    for (const std::optional<size_t> maximum : {std::optional<size_t>(3), std::optional<size_t>()}) {
        Writing writing(url);
        writing.writer->setShouldOptimizeForNetworkUse(false);
        writing.input->setMaximumSampleCount(maximum);
        ASSERT_TRUE(writing.start());
        for (const int64_t time : {0, 10000, 20000})
            ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {1, 2, 3}), at(time)));
        ASSERT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
        const auto report = inspectMedia(url);
        ASSERT_TRUE(report);
        EXPECT_FALSE(report->indexFirst);
        EXPECT_EQ(testmovie::decode(url.path(), 64, 48).size(), 3u);
        (void)NSFileManager::defaultManager().removeItemAtURL(url);
    }
}

TEST_F(AVAssetWriterTest, KeepsRoomForTheIndexOfEveryCodecsLargestHeaderAndUnevenTimes)
{
    for (const char* codec : kCodecs) {
        Writing writing(url, codec);
        writing.input->setMaximumSampleCount(3);
        ASSERT_TRUE(writing.start());
        for (const int64_t time : {0, 7, 20000})
            ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {1, 2, 3}), at(time)));
        EXPECT_EQ(writing.finish(), AVAssetWriterStatus::Completed) << codec;
        (void)NSFileManager::defaultManager().removeItemAtURL(url);
    }
}

TEST_F(AVAssetWriterTest, WritesAThousandTinyFrames)
{
    for (const std::optional<size_t> maximum : {std::optional<size_t>(1500), std::optional<size_t>()}) {
        const auto report = write("avc1", 1500, 10, 16, 16, 2, maximum);
        ASSERT_EQ(report.tracks.size(), 1u);
        ASSERT_EQ(report.tracks[0].samples.size(), 1500u);
        for (size_t i = 0; i < 1500; ++i)
            ASSERT_EQ(report.tracks[0].samples[i].presentationTime.value, static_cast<int64_t>(i) * 10);
        EXPECT_TRUE(report.indexFirst);
        EXPECT_EQ(CMTimeCompare(report.duration, at(15000)), 0);
        (void)NSFileManager::defaultManager().removeItemAtURL(url);
    }
}

TEST_F(AVAssetWriterTest, KeepsUnevenDistances)
{
    Writing writing(url);
    ASSERT_TRUE(writing.start());
    const std::vector<int64_t> times{0, 6999, 20999, 21000, 40000};
    for (const int64_t time : times)
        ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {9, 9, 9}), at(time)));
    ASSERT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
    const auto report = inspectMedia(url);
    ASSERT_TRUE(report);
    std::vector<int64_t> found;
    for (const auto& sample : report->tracks.at(0).samples)
        found.push_back(sample.presentationTime.value);
    EXPECT_EQ(found, times);
    EXPECT_EQ(report->tracks[0].samples.back().duration.value, 19000);
    EXPECT_EQ(CMTimeCompare(report->duration, at(59000)), 0);
}

TEST_F(AVAssetWriterTest, LetsALoneFrameLastASecond)
{
    const auto report = write("jpeg", 1, 1);
    EXPECT_EQ(CMTimeCompare(report.duration, at(10000)), 0);
}

TEST_F(AVAssetWriterTest, LeavesTheTimeBeforeALateFirstFrameEmpty)
{
    Writing writing(url);
    ASSERT_TRUE(writing.start());
    ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {9, 9, 9}), at(20000)));
    ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {90, 9, 9}), at(30000)));
    ASSERT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
    const auto report = inspectMedia(url);
    ASSERT_TRUE(report);
    ASSERT_EQ(report->tracks.at(0).samples.size(), 2u);
    EXPECT_EQ(report->tracks[0].samples[0].presentationTime.value, 20000);
    EXPECT_EQ(CMTimeCompare(report->duration, at(40000)), 0);
}

TEST_F(AVAssetWriterTest, CountsTimesFromTheSessionsStart)
{
    Writing writing(url);
    ASSERT_TRUE(writing.writer->startWriting());
    writing.writer->startSessionAtSourceTime(CMTimeMake(5, 1));
    ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {9, 9, 9}), at(50000)));
    ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {9, 9, 9}), at(70000)));
    ASSERT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
    const auto report = inspectMedia(url);
    ASSERT_TRUE(report);
    EXPECT_EQ(report->tracks.at(0).samples[1].presentationTime.value, 20000);
}

TEST_F(AVAssetWriterTest, SaysAtOnceThatACodecIsUnknown)
{
    for (const char* codec : {"zzzz", "", "AVC1", "mp4v", "avc1 ", "\xff\xfe"}) {
        const LogRecorder log;
        Writing writing(url, codec);
        EXPECT_FALSE(writing.writer->startWriting());
        EXPECT_EQ(writing.writer->status(), AVAssetWriterStatus::Failed);
        ASSERT_TRUE(writing.writer->error());
        EXPECT_NE(writing.writer->error()->localizedDescription.find("there is no video codec"), std::string::npos);
        EXPECT_THAT(log.lines(), Contains(HasSubstr("there is no video codec")));
        EXPECT_FALSE(writing.input->isReadyForMoreMediaData());
        EXPECT_FALSE(writing.adaptor.appendPixelBuffer(makePlainFrame(64, 48, {0, 0, 0}), at(0)));
        EXPECT_TRUE(isEmptyFolder(folder));
    }
}

TEST_F(AVAssetWriterTest, RefusesSizesThatAVideoCannotHave)
{
    const std::vector<std::pair<double, double>> sizes{{0, 0},     {-64, 48},   {63, 48},  {64, 47},
                                                       {64.5, 48}, {1e300, 48}, {64, NAN}, {16386, 16}};
    for (const auto& [width, height] : sizes) {
        Writing writing(url, "jpeg", width, height);
        EXPECT_FALSE(writing.writer->startWriting()) << width << " x " << height;
        EXPECT_EQ(writing.writer->status(), AVAssetWriterStatus::Failed);
    }
    EXPECT_TRUE(isEmptyFolder(folder));
}

TEST_F(AVAssetWriterTest, NeverWritesOverAFile)
{
    folder.makeFile("movie.mov", "precious");
    NSError error;
    EXPECT_FALSE(AVAssetWriter::assetWriterWithURL(url, kAVFileTypeQuickTimeMovie, &error));
    EXPECT_EQ(error.code, kAVErrorFileAlreadyExists);
    EXPECT_NE(error.localizedDescription.find("movie.mov"), std::string::npos);

    (void)NSFileManager::defaultManager().removeItemAtURL(url);
    Writing writing(url);
    folder.makeFile("movie.mov", "precious");
    EXPECT_FALSE(writing.writer->startWriting());
    EXPECT_EQ(writing.writer->error().value_or(NSError{}).code, kAVErrorFileAlreadyExists);
    EXPECT_EQ(TemporaryFolder::contentsOf(url.path()), "precious");
}

TEST_F(AVAssetWriterTest, FailsAsWritingStartsWhereTheFolderCannotBeWritten)
{
    const LogRecorder log;
    Writing missing(folder.url("nowhere/movie.mov"));
    EXPECT_FALSE(missing.writer->startWriting());
    EXPECT_EQ(missing.writer->status(), AVAssetWriterStatus::Failed);
    EXPECT_THAT(log.lines(), Contains(HasSubstr("movie.mov cannot be made")));

    // Not even root may make files there.
    Writing forbidden(NSURL::fileURLWithPath("/proc/movie.mov"));
    EXPECT_FALSE(forbidden.writer->startWriting());
    EXPECT_EQ(forbidden.writer->status(), AVAssetWriterStatus::Failed);
}

TEST_F(AVAssetWriterTest, RefusesOtherFileTypes)
{
    NSError error;
    EXPECT_FALSE(AVAssetWriter::assetWriterWithURL(url, "public.mpeg-4", &error));
    EXPECT_NE(error.localizedDescription.find("public.mpeg-4"), std::string::npos);
}

TEST_F(AVAssetWriterTest, TakesOneInputOfPictures)
{
    const auto writer = AVAssetWriter::assetWriterWithURL(url, kAVFileTypeQuickTimeMovie);
    const auto sound = std::make_shared<AVAssetWriterInput>(kAVMediaTypeAudio, AVVideoSettings{});
    const auto first = std::make_shared<AVAssetWriterInput>(kAVMediaTypeVideo, AVVideoSettings{});
    const auto second = std::make_shared<AVAssetWriterInput>(kAVMediaTypeVideo, AVVideoSettings{});
    EXPECT_FALSE(writer->canAddInput(*sound));
    EXPECT_TRUE(writer->canAddInput(*first));
    writer->addInput(first);
    EXPECT_FALSE(writer->canAddInput(*first));
    EXPECT_FALSE(writer->canAddInput(*second));
}

TEST_F(AVAssetWriterTest, FailsWithoutAnInput)
{
    const auto writer = AVAssetWriter::assetWriterWithURL(url, kAVFileTypeQuickTimeMovie);
    EXPECT_FALSE(writer->startWriting());
    EXPECT_EQ(writer->status(), AVAssetWriterStatus::Failed);
}

TEST_F(AVAssetWriterTest, FailsWithoutAFrame)
{
    Writing writing(url);
    ASSERT_TRUE(writing.start());
    EXPECT_EQ(writing.finish(), AVAssetWriterStatus::Failed);
    EXPECT_TRUE(isEmptyFolder(folder));
}

TEST_F(AVAssetWriterTest, RefusesTimesThatDoNotIncrease)
{
    for (const CMTime second : {at(10000), at(9999), kCMTimeInvalid, kCMTimeIndefinite, kCMTimePositiveInfinity}) {
        Writing writing(url);
        ASSERT_TRUE(writing.start());
        ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {9, 9, 9}), at(10000)));
        EXPECT_FALSE(writing.append(makePlainFrame(64, 48, {9, 9, 9}), second));
        EXPECT_EQ(writing.writer->waitWhileWriting(kDeadlineSeconds), AVAssetWriterStatus::Failed);
        EXPECT_TRUE(isEmptyFolder(folder));
    }
    Writing early(url);
    ASSERT_TRUE(early.start());
    EXPECT_FALSE(early.append(makePlainFrame(64, 48, {9, 9, 9}), at(-1)));
}

TEST_F(AVAssetWriterTest, RefusesFramesOfAnotherSize)
{
    Writing writing(url);
    ASSERT_TRUE(writing.start());
    EXPECT_FALSE(writing.append(makePlainFrame(64, 46, {9, 9, 9}), at(0)));
    EXPECT_EQ(writing.writer->waitWhileWriting(kDeadlineSeconds), AVAssetWriterStatus::Failed);
}

TEST_F(AVAssetWriterTest, RefusesMoreFramesThanWereSaidToCome)
{
    Writing writing(url);
    writing.input->setMaximumSampleCount(2);
    ASSERT_TRUE(writing.start());
    ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {9, 9, 9}), at(0)));
    ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {9, 9, 9}), at(1)));
    EXPECT_FALSE(writing.append(makePlainFrame(64, 48, {9, 9, 9}), at(2)));
    EXPECT_EQ(writing.writer->waitWhileWriting(kDeadlineSeconds), AVAssetWriterStatus::Failed);
}

TEST_F(AVAssetWriterTest, LetsGoOfFramesAsItCodesThem)
{
    Writing writing(url, "avc1");
    ASSERT_TRUE(writing.start());
    std::vector<std::weak_ptr<CVPixelBuffer>> frames;
    for (size_t i = 0; i < 20; ++i) {
        auto frame = makeNthFrame(64, 48, i);
        frames.push_back(frame);
        ASSERT_TRUE(writing.append(std::move(frame), at(static_cast<int64_t>(i))));
    }
    const auto held = [&] { return std::ranges::count_if(frames, [](const auto& frame) { return !frame.expired(); }); };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (held() > 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_EQ(held(), 0) << "the movie is not even finished";
    EXPECT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
}

TEST_F(AVAssetWriterTest, LeavesFramesAloneThatItCannotCodeAhead)
{
    Writing writing(url);
    const auto frame = makeNthFrame(64, 48, 0);
    writing.adaptor.codeAhead(*frame, 0);
    ASSERT_TRUE(writing.start());
    const auto small = makeNthFrame(16, 16, 0);
    writing.adaptor.codeAhead(*small, 0);
    EXPECT_NE(small->takePixels(), nullptr) << "not the video's size";
    ASSERT_TRUE(writing.append(frame, at(0)));
    const auto late = makeNthFrame(64, 48, 1);
    writing.adaptor.codeAhead(*late, 0);
    EXPECT_NE(late->takePixels(), nullptr) << "its turn is over";
    const auto next = makeNthFrame(64, 48, 1);
    writing.adaptor.codeAhead(*next, 1);
    const auto twin = makeNthFrame(64, 48, 2);
    writing.adaptor.codeAhead(*twin, 1);
    EXPECT_NE(twin->takePixels(), nullptr) << "another has its index";
    ASSERT_TRUE(writing.append(next, at(1)));
    EXPECT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
    const auto after = makeNthFrame(64, 48, 3);
    writing.adaptor.codeAhead(*after, 2);
    EXPECT_NE(after->takePixels(), nullptr) << "the movie is finished";
}

TEST_F(AVAssetWriterTest, TakesNoRoomForFramesAheadOfTheirTurn)
{
    Writing writing(url, "avc1");
    writing.writer->setEncoderCount(3);
    ASSERT_TRUE(writing.start());
    // Even ones alone: encoders that want odd ones leave some waiting.
    std::vector<std::shared_ptr<CVPixelBuffer>> frames(40);
    for (size_t i = 2; i < frames.size(); i += 2) {
        frames[i] = makeNthFrame(64, 48, i);
        writing.adaptor.codeAhead(*frames[i], i);
    }
    EXPECT_TRUE(writing.input->isReadyForMoreMediaData());
    for (size_t i = 0; i < frames.size(); ++i)
        ASSERT_TRUE(writing.append(frames[i] ? frames[i] : makeNthFrame(64, 48, i), at(static_cast<int64_t>(i))));
    EXPECT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
    EXPECT_EQ(testmovie::decode(url.path(), 64, 48).size(), frames.size());
}

TEST_F(AVAssetWriterTest, CodesInTheCallersTimeWhereItsThreadsDoNotKeepUp)
{
    Writing writing(url, "hvc1", 1280, 720);
    writing.writer->setEncoderCount(1);
    ASSERT_TRUE(writing.start());
    const size_t before = pixelBufferBytesInMemory();
    for (size_t i = 0; i < 6; ++i) {
        writing.adaptor.codeAhead(*makePlainFrame(1280, 720, {1, 2, 3}), i);
        // The writer's thread may have taken up one.
        EXPECT_LE(pixelBufferBytesInMemory() - before, size_t{1280} * 720 * 4) << i;
    }
}

TEST_F(AVAssetWriterTest, CancelWaitsForCallersThatCodeAhead)
{
    for (int round = 0; round < 4; ++round) {
        Writing writing(url, "hvc1", 320, 240);
        writing.writer->setEncoderCount(1);
        ASSERT_TRUE(writing.start());
        std::atomic<size_t> coded{0};
        std::vector<std::jthread> threads;
        for (size_t first = 0; first < 3; ++first)
            threads.emplace_back([&, first] {
                for (size_t i = first; i < 60; i += 3, ++coded)
                    writing.adaptor.codeAhead(*makeNthFrame(320, 240, i), i);
            });
        while (coded < 3)
            std::this_thread::yield();
        writing.writer->cancelWriting();
        EXPECT_EQ(writing.writer->status(), AVAssetWriterStatus::Cancelled);
        EXPECT_TRUE(isEmptyFolder(folder));
    }
}

TEST_F(AVAssetWriterTest, IsReadyOnlyWhileTheQueueHasRoom)
{
    Writing writing(url, "hvc1", 1280, 720);
    writing.writer->setEncoderCount(1);
    EXPECT_FALSE(writing.input->isReadyForMoreMediaData());
    ASSERT_TRUE(writing.writer->startWriting());
    EXPECT_FALSE(writing.input->isReadyForMoreMediaData()) << "the session has not started";
    writing.writer->startSessionAtSourceTime(kCMTimeZero);
    EXPECT_TRUE(writing.input->isReadyForMoreMediaData());
    // Two more than an encoder and its queue hold, while the first is being coded: not ready, yet taken.
    const auto frame = makeNthFrame(1280, 720, 0);
    for (int i = 0; i < 5; ++i)
        ASSERT_TRUE(writing.adaptor.appendPixelBuffer(frame, at(i)));
    EXPECT_FALSE(writing.input->isReadyForMoreMediaData());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!writing.input->isReadyForMoreMediaData() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_TRUE(writing.input->isReadyForMoreMediaData());
    writing.input->markAsFinished();
    EXPECT_FALSE(writing.input->isReadyForMoreMediaData());
    EXPECT_EQ(writing.finish(), AVAssetWriterStatus::Completed);
}

TEST_F(AVAssetWriterTest, AsksForMediaOnTheQueueUntilTheInputIsFinished)
{
    Writing writing(url);
    const auto queue = DispatchQueue::create("test", {});
    std::atomic<int> calls{0};
    std::atomic<bool> onQueue{true};
    int frames = 0;
    ASSERT_TRUE(writing.writer->startWriting());
    writing.input->requestMediaDataWhenReadyOnQueue(queue, [&] {
        ++calls;
        onQueue = onQueue && queue->isCurrent();
        // One frame a call, so that it must be called again and again.
        if (!writing.adaptor.appendPixelBuffer(makeNthFrame(64, 48, 1), at(frames)))
            return;
        if (++frames == 12) {
            writing.input->markAsFinished();
            writing.writer->finishWritingWithCompletionHandler({});
        }
    });
    queue->sync([] {});
    EXPECT_EQ(calls, 0) << "the session has not started";
    writing.writer->startSessionAtSourceTime(kCMTimeZero);
    EXPECT_EQ(writing.writer->waitWhileWriting(kDeadlineSeconds), AVAssetWriterStatus::Completed);
    queue->sync([] {});
    EXPECT_EQ(calls, 12);
    EXPECT_TRUE(onQueue);
    EXPECT_EQ(inspectMedia(url).value_or(MediaReport{}).tracks.at(0).samples.size(), 12u);
}

TEST_F(AVAssetWriterTest, AsksAgainWhereTheRoomWasTakenBeforeItsTurnCame)
{
    Writing writing(url, "hvc1", 640, 360);
    writing.writer->setEncoderCount(1);
    const auto queue = DispatchQueue::create("test", {});
    std::promise<void> gate;
    queue->async([opened = gate.get_future()] { opened.wait(); });
    std::atomic<int> calls{0};
    ASSERT_TRUE(writing.start());
    writing.input->requestMediaDataWhenReadyOnQueue(queue, [&] {
        ++calls;
        writing.input->markAsFinished();
        writing.writer->finishWritingWithCompletionHandler({});
    });
    const auto frame = makeNthFrame(640, 360, 0);
    for (int i = 0; i < 8; ++i)
        ASSERT_TRUE(writing.adaptor.appendPixelBuffer(frame, at(i)));
    EXPECT_FALSE(writing.input->isReadyForMoreMediaData());
    gate.set_value();
    EXPECT_EQ(writing.writer->waitWhileWriting(kDeadlineSeconds), AVAssetWriterStatus::Completed);
    EXPECT_EQ(calls, 1);
}

TEST_F(AVAssetWriterTest, StopsAskingWhenItFails)
{
    Writing writing(url);
    const auto queue = DispatchQueue::create("test", {});
    std::atomic<int> calls{0};
    ASSERT_TRUE(writing.start());
    writing.input->requestMediaDataWhenReadyOnQueue(queue, [&] {
        ++calls;
        EXPECT_FALSE(writing.adaptor.appendPixelBuffer(makePlainFrame(16, 16, {0, 0, 0}), at(0)));
    });
    EXPECT_EQ(writing.writer->waitWhileWriting(kDeadlineSeconds), AVAssetWriterStatus::Failed);
    queue->sync([] {});
    EXPECT_EQ(calls, 1);
}

TEST_F(AVAssetWriterTest, RunsTheCompletionHandlerOnceWhateverTheEnd)
{
    for (const bool isToBeCancelled : {false, true}) {
        Writing writing(url, "avc1");
        ASSERT_TRUE(writing.start());
        for (int i = 0; i < 5; ++i)
            ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {1, 1, 1}), at(i)));
        std::promise<AVAssetWriterStatus> ended;
        std::atomic<int> calls{0};
        writing.writer->finishWritingWithCompletionHandler([&, writer = writing.writer] {
            if (++calls == 1)
                ended.set_value(writer->status());
        });
        if (isToBeCancelled)
            writing.writer->cancelWriting();
        auto status = ended.get_future();
        ASSERT_EQ(status.wait_for(std::chrono::seconds(60)), std::future_status::ready);
        EXPECT_NE(status.get(), AVAssetWriterStatus::Writing);
        // Later ones too.
        std::promise<void> again;
        writing.writer->finishWritingWithCompletionHandler([&] { again.set_value(); });
        EXPECT_EQ(again.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
        EXPECT_EQ(calls, 1);
        (void)NSFileManager::defaultManager().removeItemAtURL(url);
    }
}

TEST_F(AVAssetWriterTest, DeletesTheFileWhenCancelledMidway)
{
    Writing writing(url, "avc1", 640, 360);
    ASSERT_TRUE(writing.start());
    for (size_t i = 0; i < 6; ++i)
        ASSERT_TRUE(writing.append(makeNthFrame(640, 360, i), at(static_cast<int64_t>(i))));
    EXPECT_TRUE(NSFileManager::defaultManager().fileExistsAtPath(url.path()));
    writing.writer->cancelWriting();
    EXPECT_EQ(writing.writer->status(), AVAssetWriterStatus::Cancelled);
    EXPECT_FALSE(writing.writer->error());
    EXPECT_TRUE(isEmptyFolder(folder));
    EXPECT_FALSE(writing.input->isReadyForMoreMediaData());
    EXPECT_FALSE(writing.adaptor.appendPixelBuffer(makeNthFrame(640, 360, 7), at(7)));
    writing.writer->cancelWriting();
    EXPECT_EQ(writing.writer->status(), AVAssetWriterStatus::Cancelled);
}

TEST_F(AVAssetWriterTest, IsCancelledBeforeItStarts)
{
    Writing writing(url);
    writing.writer->cancelWriting();
    EXPECT_EQ(writing.writer->status(), AVAssetWriterStatus::Cancelled);
    EXPECT_FALSE(writing.writer->startWriting());
    EXPECT_EQ(writing.writer->status(), AVAssetWriterStatus::Cancelled);
    EXPECT_TRUE(isEmptyFolder(folder));
}

TEST_F(AVAssetWriterTest, IgnoresACancelAfterTheEnd)
{
    write("jpeg", 3, 100);
    Writing failed(folder.url("other.mov"), "none");
    EXPECT_FALSE(failed.writer->startWriting());
    failed.writer->cancelWriting();
    EXPECT_EQ(failed.writer->status(), AVAssetWriterStatus::Failed);

    Writing completed(folder.url("third.mov"));
    ASSERT_TRUE(completed.start());
    ASSERT_TRUE(completed.append(makePlainFrame(64, 48, {1, 1, 1}), at(0)));
    ASSERT_EQ(completed.finish(), AVAssetWriterStatus::Completed);
    completed.writer->cancelWriting();
    EXPECT_EQ(completed.writer->status(), AVAssetWriterStatus::Completed);
    EXPECT_TRUE(NSFileManager::defaultManager().fileExistsAtPath(folder.path("third.mov")));
}

TEST_F(AVAssetWriterTest, EndsOneWayWhenCancelledFromManyThreadsWhileItFinishes)
{
    for (int round = 0; round < 20; ++round) {
        Writing writing(url, "avc1");
        ASSERT_TRUE(writing.start());
        for (int i = 0; i < 4; ++i)
            ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {1, 1, 1}), at(i)));
        {
            std::jthread finishing([&] { writing.writer->finishWritingWithCompletionHandler({}); });
            std::jthread first([&] { writing.writer->cancelWriting(); });
            std::jthread second([&] { writing.writer->cancelWriting(); });
        }
        const auto status = writing.writer->waitWhileWriting(kDeadlineSeconds);
        EXPECT_EQ(NSFileManager::defaultManager().fileExistsAtPath(url.path()),
                  status == AVAssetWriterStatus::Completed);
        EXPECT_TRUE(status == AVAssetWriterStatus::Completed || status == AVAssetWriterStatus::Cancelled);
        (void)NSFileManager::defaultManager().removeItemAtURL(url);
    }
}

TEST_F(AVAssetWriterTest, LeavesNothingBehindWhenDroppedMidway)
{
    {
        Writing writing(url, "avc1");
        ASSERT_TRUE(writing.start());
        ASSERT_TRUE(writing.append(makePlainFrame(64, 48, {1, 1, 1}), at(0)));
        // The block holds the input, as blocks do; that must not keep the writer.
        writing.input->requestMediaDataWhenReadyOnQueue(DispatchQueue::global(), [input = writing.input] {});
    }
    EXPECT_TRUE(isEmptyFolder(folder));
}

/// Ends the process: 0 if the writer failed cleanly as its file could not grow any more.
void writeWithoutRoom(const NSURL& url, const std::string& folder)
{
    // As on a full disk, writing fails with the file partly written; the limit's signal would end the process.
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{20000, 20000};
    setrlimit(RLIMIT_FSIZE, &limit);
    std::string logged;
    setLogSink([&](const std::string& line) { logged += line; });
    Writing writing(url, "jpeg", 640, 360);
    if (!writing.start())
        std::_Exit(1);
    for (int i = 0; i < 50; ++i)
        if (!writing.append(makeNthFrame(640, 360, size_t(i)), at(i)))
            break;
    writing.finish();
    if (writing.writer->status() != AVAssetWriterStatus::Failed)
        std::_Exit(2);
    if (!std::filesystem::is_empty(folder))
        std::_Exit(3);
    const auto error = writing.writer->error();
    if (!error || error->localizedDescription.find("movie.mov cannot be written: File too large") == std::string::npos)
        std::_Exit(4);
    if (logged.find(error->localizedDescription) == std::string::npos)
        std::_Exit(5);
    std::_Exit(0);
}

TEST_F(AVAssetWriterTest, FailsAndRemovesTheFileWhereThereIsNoRoomLeft)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(writeWithoutRoom(url, folder.path()), testing::ExitedWithCode(0), "");
}

/// By how much a JPEG picture's brightness is divided where it is even: the first number of its first table.
int coarsenessOfJPEG(const std::vector<uint8_t>& picture)
{
    constexpr std::array<uint8_t, 2> kTables{0xFF, 0xDB};
    const auto found = std::search(picture.begin(), picture.end(), kTables.begin(), kTables.end());
    // The marker, two bytes of length and one of number and width stand before it.
    return picture.end() - found > 5 ? found[5] : -1;
}

TEST(AVAssetWriterEncoder, StoresDrawingsFinerThanPhotosAsJPEG)
{
    const auto coarseness = [](const std::shared_ptr<CVPixelBuffer>& frame) {
        const auto encoder = AVAssetWriterEncoder::create({.codec = "jpeg", .width = 320, .height = 240});
        std::vector<uint8_t> packet;
        EXPECT_TRUE(encoder && encoder->encode(frame, packet));
        return coarsenessOfJPEG(packet);
    };
    // The tables of quality 92 and 96.
    EXPECT_EQ(coarseness(makeNthFrame(320, 240, 1)), 3);
    EXPECT_EQ(coarseness(makeFrame(320, 240,
                                   [](size_t x, size_t y) {
                                       const uint8_t value = x / 5 % 2 == y / 7 % 2 ? 255 : 0;
                                       return Color{value, value, value};
                                   })),
              1);
}

} // namespace
} // namespace platform
