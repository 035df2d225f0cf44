#include "platform/media/AVAssetExportSession.h"

#include "platform/files/NSFileManager.h"
#include "platform/media/AVURLAsset.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestExport.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <random>

using namespace platform;
using namespace testsound;
using namespace testexport;
using Status = AVAssetExportSessionStatus;

namespace {

CMTimeRange seconds(double start, double duration)
{
    return {CMTimeMakeWithSeconds(start, 48000), CMTimeMakeWithSeconds(duration, 48000)};
}

TEST(AVAssetExportSession, EveryFormatKeepsItsLengthAndItsPlaceToTheSample)
{
    const TemporaryFolder folder;
    constexpr size_t kFrames = 60001;
    const Sound tone = makeTone(44100, 2, kFrames);
    writeWav(folder.path("t.wav"), tone);
    struct Row {
        const char* name;
        const char* options;
        /// Decibels that the source's own coding leaves.
        double quality;
    };
    const Row rows[] = {
        {"t.wav", nullptr, 35},
        {"t.aiff", "-c:a pcm_s16be", 35},
        {"t.aifc", "-f aiff -c:a pcm_s16le", 35},
        {"t.caf", "-c:a pcm_s24be", 35},
        {"alac.caf", "-c:a alac", 35},
        {"t.flac", "-c:a flac", 35},
        {"alac.m4a", "-c:a alac", 35},
        {"aac.m4a", "-c:a aac -b:a 192k", 30},
        {"t.ogg", "-c:a libvorbis -q:a 6", 20},
        {"t.mp3", "-c:a libmp3lame -b:a 192k", 25},
        {"vbr.mp3", "-c:a libmp3lame -q:a 2", 25},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.options)
            convertWithFFmpeg(folder.path("t.wav"), row.options, folder.path(row.name));
        const NSURL output = folder.url(std::string(row.name) + ".out.m4a");
        expectExported(exportM4A(assetOf(folder.url(row.name)), output));
        EXPECT_EQ(AVURLAsset(output).duration().value, int64_t{kFrames});
        EXPECT_EQ(AVURLAsset(output).duration().timescale, 44100);
        const Sound heard = decodeWithFFmpeg(output.path());
        EXPECT_EQ(heard.rateHz, 44100);
        EXPECT_EQ(heard.channels, 2);
        ASSERT_GE(heard.frames(), kFrames);
        EXPECT_GT(signalToNoise(heard, 4096, tone, 4096, kFrames - 8192), row.quality);
    }
}

TEST(AVAssetExportSession, OpusKeepsItsLengthAndItsPlaceToTheSample)
{
    const TemporaryFolder folder;
    const Sound tone = makeTone(48000, 1, 100001);
    writeWav(folder.path("t.wav"), tone);
    convertWithFFmpeg(folder.path("t.wav"), "-c:a libopus -b:a 128k", folder.path("t.opus"));
    expectExported(exportM4A(assetOf(folder.url("t.opus")), folder.url("out.m4a")));
    EXPECT_EQ(AVURLAsset(folder.url("out.m4a")).duration().value, 100001);
    const Sound heard = decodeWithFFmpeg(folder.path("out.m4a"));
    EXPECT_EQ(heard.channels, 1);
    EXPECT_GT(signalToNoise(heard, 8192, tone, 8192, 80000), 15);
}

TEST(AVAssetExportSession, RangesAreCutToTheSample)
{
    const TemporaryFolder folder;
    const Sound tone = makeMusic(44100, 1, 5 * 44100);
    writeWav(folder.path("t.wav"), tone);
    for (const char* name : {"t.wav", "t.flac", "t.mp3", "aac.m4a", "alac.m4a", "t.ogg", "t.aac"}) {
        SCOPED_TRACE(name);
        if (std::string(name) != "t.wav")
            convertWithFFmpeg(folder.path("t.wav"), std::string(name).starts_with("alac") ? "-c:a alac" : "-b:a 128k",
                              folder.path(name));
        const NSURL output = folder.url(std::string(name) + ".out.m4a");
        const CMTimeRange range{CMTimeMake(61727, 44100), CMTimeMake(100001, 44100)};
        expectExported(exportM4A(assetOf(folder.url(name)), output, range));
        EXPECT_EQ(AVURLAsset(output).duration().value, 100001);
        const Sound heard = decodeWithFFmpeg(output.path());
        // A raw AAC file starts with its encoder's delay, of which it tells nothing.
        const size_t delay = std::string(name) == "t.aac" ? 1024 : 0;
        EXPECT_GT(signalToNoise(heard, 0, tone, 61727 - delay, 100001), 15);
        EXPECT_GT(signalToNoise(heard, 0, tone, 61727 - delay, 1024), 12) << "at the start";
        EXPECT_GT(signalToNoise(heard, 100001 - 1024, tone, 61727 - delay + 100001 - 1024, 1024), 12) << "at the end";
    }
}

TEST(AVAssetExportSession, FilesOfRangesAreNeverASampleTooLong)
{
    const TemporaryFolder folder;
    std::minstd_rand random(1);
    for (const int rate : {44100, 48000, 32000, 22050, 96000}) {
        const std::string source = folder.path(std::to_string(rate) + ".wav");
        writeWav(source, makeTone(rate, 1, static_cast<size_t>(rate) * 2));
        for (const std::string kind : {"wav", "mp3", "m4a", "flac", "ogg"}) {
            // No MP3 has so high a rate.
            if (rate == 96000 && kind == "mp3")
                continue;
            const std::string file = folder.path(std::to_string(rate) + "." + kind);
            if (kind != "wav")
                convertWithFFmpeg(source, "-strict -2", file);
            // Microseconds.
            const CMTimeRange range{CMTimeMake(random() % 1'000'000, 1'000'000),
                                    CMTimeMake(100'000 + random() % 500'000, 1'000'000)};
            const NSURL output = folder.url(std::to_string(rate) + kind + ".out.m4a");
            expectExported(exportM4A(assetOf(NSURL::fileURLWithPath(file)), output, range));
            const CMTime length = AVURLAsset(output).duration();
            EXPECT_EQ(length.timescale, std::min(rate, 48000));
            EXPECT_EQ(length.value, range.duration.value * length.timescale / 1'000'000)
                << file << " " << range.start.value << " " << range.duration.value;
        }
    }
}

/// The first samples for which parts were joined, of a sound of four parts of so many packets.
std::vector<size_t> jointsOfParts(size_t packets)
{
    // The encoder's delay is one packet.
    return {1024 * (packets - 1), 1024 * (2 * packets - 1), 1024 * (3 * packets - 1)};
}

TEST(AVAssetExportSession, JointsOfPartsAreAsGoodAsTheRest)
{
    const TemporaryFolder folder;
    const Sound music = makeMusic(44100, 1, 50 * 44100);
    writeWav(folder.path("t.wav"), music);
    expectExported(exportM4A(assetOf(folder.url("t.wav")), folder.url("out.m4a")));
    // What another encoder makes of it in one part.
    convertWithFFmpeg(folder.path("t.wav"), "-c:a aac -b:a 66k", folder.path("whole.m4a"));
    const Sound heard = decodeWithFFmpeg(folder.path("out.m4a"));
    const Sound whole = decodeWithFFmpeg(folder.path("whole.m4a"));
    const auto around = [&](const Sound& sound, size_t start, size_t count) {
        return signalToNoise(sound, start, music, start, count);
    };
    for (const size_t joint : jointsOfParts(540)) {
        SCOPED_TRACE(joint);
        // The packets that overlap at the joint, and their neighbours; what is better than 40 decibels is good enough.
        for (size_t start = joint - 2048; start < joint + 2048; start += 1024)
            EXPECT_GT(around(heard, start, 1024), std::min(around(whole, start, 1024), 44.0) - 4) << start;
        EXPECT_GT(around(heard, joint - 65536, 131072), around(whole, joint - 65536, 131072) - 2);
    }
}

TEST(AVAssetExportSession, ToneRunsThroughJointsOfPartsAsThroughAnyPacket)
{
    const TemporaryFolder folder;
    const Sound tone = makeTone(44100, 1, 50 * 44100);
    writeWav(folder.path("t.wav"), tone);
    expectExported(exportM4A(assetOf(folder.url("t.wav")), folder.url("out.m4a")));
    const Sound heard = decodeWithFFmpeg(folder.path("out.m4a"));
    const auto worstPacket = [&](size_t from, size_t to) {
        double worst = 1000;
        for (size_t start = from; start < to; start += 1024)
            worst = std::min(worst, signalToNoise(heard, start, tone, start, 1024));
        return worst;
    };
    // Windows that did not fit would leave their aliases here.
    for (const size_t joint : jointsOfParts(540)) {
        const double around = worstPacket(joint - 4096, joint + 4096);
        EXPECT_GT(around, 30) << joint;
        EXPECT_GT(around, worstPacket(joint - 200 * 1024, joint - 4096) - 3) << joint;
    }
}

TEST(AVAssetExportSession, ManyRunsGiveTheSameBytes)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeMusic(44100, 1, 26 * 44100));
    expectExported(exportM4A(assetOf(folder.url("t.wav")), folder.url("1.m4a")));
    expectExported(exportM4A(assetOf(folder.url("t.wav")), folder.url("2.m4a")));
    EXPECT_EQ(readBytes(folder.path("1.m4a")), readBytes(folder.path("2.m4a")));
}

TEST(AVAssetExportSession, TonesCutInPhaseStayInPhaseThroughTheJoint)
{
    const TemporaryFolder folder;
    constexpr size_t kCut = 300007;
    constexpr size_t kEnd = 700001;
    const Sound tone = makeTone(44100, 2, kEnd);
    writeWav(folder.path("1.wav"), makeTone(44100, 2, kCut));
    writeWav(folder.path("2.wav"), makeTone(44100, 2, kEnd - kCut, 997, kCut));
    // As soundtracks are made: each piece is converted, then the pieces are put together.
    expectExported(exportM4A(assetOf(folder.url("1.wav")), folder.url("1.m4a")));
    expectExported(exportM4A(assetOf(folder.url("2.wav")), folder.url("2.m4a")));
    expectExported(exportM4A(endToEnd({folder.url("1.m4a"), folder.url("2.m4a")}), folder.url("out.m4a")));
    EXPECT_EQ(AVURLAsset(folder.url("out.m4a")).duration().value, int64_t{kEnd});
    const Sound heard = decodeWithFFmpeg(folder.path("out.m4a"));
    EXPECT_GT(signalToNoise(heard, 8192, tone, 8192, kCut - 16384), 35) << "before";
    EXPECT_GT(signalToNoise(heard, kCut + 8192, tone, kCut + 8192, kEnd - kCut - 16384), 30) << "after";
    EXPECT_GT(signalToNoise(heard, kCut - 4096, tone, kCut - 4096, 8192), 25) << "through the joint";
    EXPECT_GT(signalToNoise(heard, kCut - 64, tone, kCut - 64, 128), 15) << "at the joint";
}

TEST(AVAssetExportSession, PiecesOfOneFileCutAnywhereJoinWithoutAnEdge)
{
    const TemporaryFolder folder;
    const Sound music = makeMusic(44100, 2, 12 * 44100);
    writeWav(folder.path("t.wav"), music);
    const int64_t cut = 250123;
    const int64_t end = 500246;
    expectExported(exportM4A(assetOf(folder.url("t.wav")), folder.url("1.m4a"),
                             CMTimeRange{CMTimeMake(0, 44100), CMTimeMake(cut, 44100)}));
    expectExported(exportM4A(assetOf(folder.url("t.wav")), folder.url("2.m4a"),
                             CMTimeRange{CMTimeMake(cut, 44100), CMTimeMake(end - cut, 44100)}));
    expectExported(exportM4A(endToEnd({folder.url("1.m4a"), folder.url("2.m4a")}), folder.url("out.m4a")));
    const Sound heard = decodeWithFFmpeg(folder.path("out.m4a"));
    const double around = signalToNoise(heard, size_t(cut) - 1024, music, size_t(cut) - 1024, 2048);
    const double elsewhere = signalToNoise(heard, 300000, music, 300000, 100000);
    EXPECT_GT(around, elsewhere - 3);
}

TEST(AVAssetExportSession, FadeIsAccurateToTheSampleOnTheCompositionsTimeLine)
{
    const TemporaryFolder folder;
    const Sound tone = makeTone(44100, 1, 20 * 44100, 441);
    writeWav(folder.path("t.wav"), tone);
    expectExported(exportM4A(assetOf(folder.url("t.wav")), folder.url("t.m4a")));
    const auto composition = endToEnd({folder.url("t.m4a"), folder.url("t.m4a")});
    AVMutableAudioMixInputParameters parameters(composition->tracks().back().trackID);
    parameters.setVolumeRamp(1, 0, {CMTimeMake(30 * 44100, 44100), CMTimeMake(5 * 44100, 44100)});
    AVMutableAudioMix mix;
    mix.setInputParameters({parameters});
    expectExported(
        exportM4A(composition, folder.url("out.m4a"), CMTimeRange{kCMTimeZero, CMTimeMake(38 * 44100, 44100)}, mix));
    EXPECT_EQ(AVURLAsset(folder.url("out.m4a")).duration().value, 38 * 44100);
    const Sound heard = decodeWithFFmpeg(folder.path("out.m4a"));
    const Sound wanted = makeSound(44100, 1, 38 * 44100, [&](size_t frame, int) {
        const double seconds = static_cast<double>(frame) / 44100;
        const double volume = seconds < 30 ? 1 : seconds < 35 ? 1 - (seconds - 30) / 5 : 0;
        return tone.at(frame % (20 * 44100)) * volume;
    });
    for (const size_t second : {5, 25, 29, 30, 31, 32, 33, 34})
        EXPECT_GT(signalToNoise(heard, second * 44100, wanted, second * 44100, 44100), 20) << second;
    // What the ramp left stays.
    for (size_t frame = 35 * 44100 + 2048; frame < 38 * 44100; ++frame)
        ASSERT_LT(std::abs(heard.at(frame)), 0.001) << frame;
}

TEST(AVAssetExportSession, MoreChannelsAreMixedDownAndHighRatesBroughtTo48Kilohertz)
{
    const TemporaryFolder folder;
    // The front channels carry the tone, the others nothing.
    writeWav(folder.path("six.wav"), makeSound(96000, 6, 288000, [](size_t frame, int channel) {
                 return channel < 2 ? 0.3 * std::sin(double(frame) * 2 * std::numbers::pi * 500 / 96000) : 0.0;
             }));
    expectExported(exportM4A(assetOf(folder.url("six.wav")), folder.url("out.m4a")));
    const Sound heard = decodeWithFFmpeg(folder.path("out.m4a"));
    EXPECT_EQ(heard.rateHz, 48000);
    EXPECT_EQ(heard.channels, 2);
    EXPECT_EQ(AVURLAsset(folder.url("out.m4a")).duration().value, 144000);
    double loudest = 0;
    for (size_t frame = 20000; frame < 120000; ++frame)
        loudest = std::max(loudest, std::abs(double(heard.at(frame))));
    const Sound wanted = makeSound(48000, 2, 144000, [=](size_t frame, int) {
        return loudest * std::sin(double(frame) * 2 * std::numbers::pi * 500 / 48000);
    });
    EXPECT_GT(signalToNoise(heard, 4096, wanted, 4096, 130000), 35);
}

TEST(AVAssetExportSession, RatesThatAACCarriesAreKept)
{
    const TemporaryFolder folder;
    struct Row {
        int rate;
        int expected;
    };
    for (const Row row : {Row{8000, 8000}, Row{11025, 11025}, Row{22050, 22050}, Row{32000, 32000}, Row{48000, 48000},
                          Row{6000, 7350}, Row{37800, 44100}, Row{88200, 48000}, Row{192000, 48000}}) {
        SCOPED_TRACE(row.rate);
        writeWav(folder.path("t.wav"), makeTone(row.rate, 1, size_t(row.rate) * 2, 300));
        const NSURL output = folder.url("out" + std::to_string(row.rate) + ".m4a");
        expectExported(exportM4A(assetOf(folder.url("t.wav")), output));
        EXPECT_EQ(AVURLAsset(output).duration().timescale, row.expected);
        EXPECT_EQ(AVURLAsset(output).duration().value, 2 * row.expected);
        const Sound heard = decodeWithFFmpeg(output.path());
        EXPECT_EQ(heard.rateHz, row.expected);
        const Sound wanted = makeTone(row.expected, 1, size_t(row.expected) * 2, 300);
        EXPECT_GT(signalToNoise(heard, 4096, wanted, 4096, size_t(row.expected)), 30);
    }
}

TEST(AVAssetExportSession, AACIsCopiedNotEncodedAgain)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeMusic(44100, 2, 10 * 44100));
    convertWithFFmpeg(folder.path("t.wav"), "-c:a aac -b:a 96k", folder.path("t.m4a"));
    expectExported(exportM4A(assetOf(folder.url("t.m4a")), folder.url("out.m4a"), seconds(3.3, 4.4)));
    const Sound whole = decodeWithFFmpeg(folder.path("t.m4a"));
    const Sound heard = decodeWithFFmpeg(folder.path("out.m4a"));
    // Only noise that decoders make up themselves may differ.
    EXPECT_GT(signalToNoise(heard, 0, whole, size_t(3.3 * 44100), size_t(4.4 * 44100)), 25);
    const std::string copied = readBytes(folder.path("out.m4a"));
    const std::string source = readBytes(folder.path("t.m4a"));
    // A stretch of media from the middle stands in the source letter for letter.
    EXPECT_NE(source.find(copied.substr(copied.size() / 2, 4096)), std::string::npos);
}

TEST(AVAssetExportSession, SoundtrackOfOnePieceIsCopiedUpToTheFade)
{
    const TemporaryFolder folder;
    const Sound music = makeMusic(44100, 1, 40 * 44100);
    writeWav(folder.path("t.wav"), music);
    expectExported(exportM4A(assetOf(folder.url("t.wav")), folder.url("piece.m4a")));
    const auto composition = endToEnd({folder.url("piece.m4a")});
    AVMutableAudioMixInputParameters parameters(1);
    parameters.setVolumeRamp(1, 0, seconds(25, 5));
    AVMutableAudioMix mix;
    mix.setInputParameters({parameters});
    expectExported(exportM4A(composition, folder.url("out.m4a"), seconds(0, 30), mix));
    EXPECT_EQ(AVURLAsset(folder.url("out.m4a")).duration().value, 30 * 44100);
    const std::string source = readBytes(folder.path("piece.m4a"));
    const std::string copied = readBytes(folder.path("out.m4a"));
    EXPECT_EQ(copied.substr(44, 160000), source.substr(44, 160000));
    const Sound heard = decodeWithFFmpeg(folder.path("out.m4a"));
    const Sound wanted = makeSound(44100, 1, 30 * 44100, [&](size_t frame, int channel) {
        const double seconds = static_cast<double>(frame) / 44100;
        return music.at(frame, size_t(channel)) * (seconds < 25 ? 1 : 1 - (seconds - 25) / 5);
    });
    const double before = signalToNoise(heard, 15 * 44100, wanted, 15 * 44100, 8 * 44100);
    EXPECT_GT(signalToNoise(heard, 24 * 44100, wanted, 24 * 44100, 2 * 44100), before - 3) << "around the change";
    EXPECT_GT(signalToNoise(heard, 26 * 44100, wanted, 26 * 44100, 2 * 44100), before - 5) << "in the fade";
}

TEST(AVAssetExportSession, StatusReadsExportingAsSoonAsTheStartSucceeded)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 1, 15 * 44100));
    AVAssetExportSession session(assetOf(folder.url("t.wav")), std::string(kAVAssetExportPresetAppleM4A));
    EXPECT_EQ(session.status(), Status::Unknown);
    session.setOutputFileType(kAVFileTypeAppleM4A);
    session.setOutputURL(folder.url("out.m4a"));
    int calls = 0;
    std::mutex mutex;
    std::condition_variable called;
    session.exportAsynchronouslyWithCompletionHandler([&] {
        const std::lock_guard guard(mutex);
        ++calls;
        called.notify_all();
    });
    EXPECT_EQ(session.status(), Status::Exporting);
    float last = 0;
    while (!session.waitForEnd(0.01)) {
        const float progress = session.progress();
        EXPECT_GE(progress, last);
        EXPECT_LE(progress, 1);
        last = progress;
    }
    std::unique_lock lock(mutex);
    EXPECT_TRUE(called.wait_for(lock, std::chrono::seconds(10), [&] { return calls == 1; }));
    EXPECT_EQ(session.status(), Status::Completed);
}

TEST(AVAssetExportSession, NeverOverwritesAFile)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 1, 44100));
    folder.makeFile("out.m4a", "mine");
    const Export result = exportM4A(assetOf(folder.url("t.wav")), folder.url("out.m4a"));
    EXPECT_EQ(result.status, Status::Failed);
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->domain, kAVFoundationErrorDomain);
    EXPECT_EQ(result.error->code, kAVErrorFileAlreadyExists);
    EXPECT_EQ(readBytes(folder.path("out.m4a")), "mine");
}

TEST(AVAssetExportSession, OutputGrowsInTheFolderForTemporaryFiles)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 1, 44100));
    for (const char* name : {"scratch", "out"})
        std::filesystem::create_directory(folder.path(name));
    folder.makeFile("out/taken.m4a", "mine");
    AVAssetExportSession session(assetOf(folder.url("t.wav")), std::string(kAVAssetExportPresetAppleM4A));
    session.setOutputFileType(kAVFileTypeAppleM4A);
    session.setOutputURL(folder.url("out/taken.m4a"));
    session.setDirectoryForTemporaryFiles(folder.url("scratch"));
    // Asked when the output is whole and about to get its name.
    std::vector<std::string> inScratch;
    std::vector<std::string> inOut;
    session.setOutputURLWhenTaken([&](const NSURL&) {
        inScratch = filesBelow(folder.path("scratch"));
        inOut = filesBelow(folder.path("out"));
        return folder.url("out/free.m4a");
    });
    session.exportAsynchronouslyWithCompletionHandler({});
    ASSERT_TRUE(session.waitForEnd(60));
    EXPECT_EQ(session.status(), Status::Completed);
    EXPECT_EQ(inScratch.size(), 1u);
    EXPECT_EQ(inOut, std::vector<std::string>{"taken.m4a"});
    EXPECT_EQ(filesBelow(folder.path("scratch")), std::vector<std::string>{});
    EXPECT_TRUE(std::filesystem::exists(folder.path("out/free.m4a")));
}

TEST(AVAssetExportSession, CancelAfterTheEndChangesNothing)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 1, 44100));
    AVAssetExportSession session(assetOf(folder.url("t.wav")), std::string(kAVAssetExportPresetAppleM4A));
    session.setOutputFileType(kAVFileTypeAppleM4A);
    session.setOutputURL(folder.url("out.m4a"));
    session.exportAsynchronouslyWithCompletionHandler({});
    EXPECT_TRUE(session.waitForEnd(kDeadline));
    session.cancelExport();
    EXPECT_EQ(session.status(), Status::Completed);
    EXPECT_TRUE(NSFileManager::defaultManager().fileExistsAtPath(folder.path("out.m4a")));
}

TEST(AVAssetExportSession, BadInputFailsWithASentenceAndLeavesNothing)
{
    const TemporaryFolder folder;
    writeBytes(folder.path("text.mp3"), "no music");
    writeBytes(folder.path("empty.wav"), "");
    writeBytes(folder.path("nothing.wav"), wavHeader(44100, 2, 0));
    writeBytes(folder.path("norate.wav"), wavHeader(0, 2, 1000) + std::string(1000, '\1'));
    writeBytes(folder.path("nochannels.wav"), wavHeader(44100, 0, 1000) + std::string(1000, '\1'));
    outputOf("ffmpeg -nostdin -v error -f lavfi -i color=red:s=64x64:r=2 -frames:v 5 -c:v mjpeg " +
             shellWord(folder.path("silent.mov")));
    ASSERT_EQ(mkfifo(folder.path("pipe.wav").c_str(), 0600), 0);
    const auto before = filesBelow(folder.path());
    for (const char* name : {"missing.mp3", "text.mp3", "empty.wav", "nothing.wav", "norate.wav", "nochannels.wav",
                             "silent.mov", "pipe.wav"}) {
        SCOPED_TRACE(name);
        const Export result = exportM4A(assetOf(folder.url(name)), folder.url("out.m4a"));
        expectFailed(result, folder, before);
        ASSERT_TRUE(result.error);
        EXPECT_NE(result.error->localizedDescription.find(name), std::string::npos);
    }
}

TEST(AVAssetExportSession, EmptyRangesFail)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 1, 44100));
    const auto before = filesBelow(folder.path());
    // No length, after the end, and a length below zero, as of a start after its end.
    for (const CMTimeRange range : {seconds(0.5, 0), seconds(1, 1), seconds(7, 1), seconds(0.5, -0.2)}) {
        SCOPED_TRACE(CMTimeGetSeconds(range.start));
        expectFailed(exportM4A(assetOf(folder.url("t.wav")), folder.url("out.m4a"), range), folder, before);
    }
}

TEST(AVAssetExportSession, RangesPastTheEndAreClipped)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 1, 44100));
    expectExported(exportM4A(assetOf(folder.url("t.wav")), folder.url("out.m4a"), seconds(0.5, 1000)));
    EXPECT_EQ(AVURLAsset(folder.url("out.m4a")).duration().value, 22050);
}

TEST(AVAssetExportSession, EmptyCompositionFails)
{
    const TemporaryFolder folder;
    const Export result = exportM4A(AVMutableComposition::composition(), folder.url("out.m4a"));
    EXPECT_EQ(result.status, Status::Failed);
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->code, kAVErrorOperationNotSupportedForAsset);
    EXPECT_TRUE(filesBelow(folder.path()).empty());
}

TEST(AVAssetExportSession, FilesCutShortGiveWhatTheyHold)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 2, 10 * 44100));
    convertWithFFmpeg(folder.path("t.wav"), "-b:a 128k", folder.path("t.mp3"));
    convertWithFFmpeg(folder.path("t.wav"), "-c:a flac", folder.path("t.flac"));
    for (const char* name : {"t.wav", "t.mp3", "t.flac"}) {
        SCOPED_TRACE(name);
        const std::string bytes = readBytes(folder.path(name));
        const NSURL half = folder.url(std::string("half-") + name);
        writeBytes(half.path(), bytes.substr(0, bytes.size() / 2));
        const NSURL output = folder.url(std::string(name) + ".out.m4a");
        expectExported(exportM4A(assetOf(half), output));
        EXPECT_NEAR(CMTimeGetSeconds(AVURLAsset(output).duration()), 5, 0.6);
    }
    // A header that promises eight gigabytes.
    writeBytes(folder.path("huge.wav"), wavHeader(44100, 2, 0xFFFFFF00U) + std::string(1024, '\1'));
    expectExported(exportM4A(assetOf(folder.url("huge.wav")), folder.url("huge.m4a")));
    EXPECT_EQ(AVURLAsset(folder.url("huge.m4a")).duration().value, 256);
}

TEST(AVAssetExportSession, NoiseForAFileEndsInAnErrorOrInSilenceNotInAHang)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 2, 3 * 44100));
    for (const char* name : {"t.mp3", "t.m4a", "t.flac", "t.ogg", "t.opus", "t.caf", "t.aiff", "t.aac"}) {
        SCOPED_TRACE(name);
        convertWithFFmpeg(folder.path("t.wav"), "", folder.path(name));
        std::string bytes = readBytes(folder.path(name));
        uint32_t random = 7;
        for (size_t i = 0; i < bytes.size(); i += 97) {
            random = random * 1664525U + 1013904223U;
            bytes[i] = static_cast<char>(random >> 24);
        }
        const NSURL broken = folder.url(std::string("broken-") + name);
        writeBytes(broken.path(), bytes);
        const NSURL output = folder.url(std::string("broken-") + name + ".m4a");
        const Export result = exportM4A(assetOf(broken), output);
        EXPECT_TRUE(result.status == Status::Completed || (result.status == Status::Failed && result.error));
        EXPECT_EQ(NSFileManager::defaultManager().fileExistsAtPath(output.path()), result.status == Status::Completed);
    }
}

TEST(AVAssetExportSession, PassthroughCutsAACAndALACWithoutEncodingAnew)
{
    const TemporaryFolder folder;
    const Sound music = makeMusic(44100, 2, 10 * 44100);
    writeWav(folder.path("t.wav"), music);
    convertWithFFmpeg(folder.path("t.wav"), "-c:a aac -b:a 160k", folder.path("aac.m4a"));
    convertWithFFmpeg(folder.path("t.wav"), "-c:a alac", folder.path("alac.m4a"));
    const CMTimeRange range{CMTimeMake(100003, 44100), CMTimeMake(150001, 44100)};
    for (const char* name : {"aac.m4a", "alac.m4a"}) {
        SCOPED_TRACE(name);
        const NSURL output = folder.url(std::string("cut-") + name);
        expectExported(
            exportM4A(assetOf(folder.url(name)), output, range, std::nullopt, kAVAssetExportPresetPassthrough));
        EXPECT_EQ(AVURLAsset(output).duration().value, 150001);
        const Sound heard = decodeWithFFmpeg(output.path());
        const double quality = signalToNoise(heard, 0, music, 100003, 150001);
        EXPECT_GT(quality, std::string(name) == "alac.m4a" ? 80 : 15);
        EXPECT_EQ(probe(output.path(), "a", "codec_name"), std::string(name) == "alac.m4a" ? "alac" : "aac");
    }
}

TEST(AVAssetExportSession, PassthroughRefusesWhatTheFileCannotHold)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 1, 44100));
    const auto before = filesBelow(folder.path());
    const Export result = exportM4A(assetOf(folder.url("t.wav")), folder.url("out.m4a"), seconds(0, 0.5), std::nullopt,
                                    kAVAssetExportPresetPassthrough);
    expectFailed(result, folder, before);
    EXPECT_EQ(result.error->code, kAVErrorOperationNotSupportedForAsset);
}

} // namespace
