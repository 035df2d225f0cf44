#include "platform/media/AVURLAsset.h"

#include "platform/sound/SoundReader.h"
#include "tests/support/OpenFileLimit.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace platform;
using namespace testsound;

namespace {

AVURLAsset preciseAsset(const NSURL& url)
{
    return AVURLAsset(url, {.preferPreciseDurationAndTiming = true});
}

TEST(AVURLAsset, MissingFileHasNoTracksAndAnInvalidDuration)
{
    const AVURLAsset asset(NSURL::fileURLWithPath("/nonexistent/song.mp3"));
    EXPECT_FALSE(asset.duration().isValid());
    EXPECT_TRUE(asset.tracks().empty());
}

TEST(AVURLAsset, ForeignFilesHaveNoTracks)
{
    const TemporaryFolder folder;
    writeBytes(folder.path("text.m4a"), "no music at all\n");
    writeBytes(folder.path("empty.mp3"), "");
    // A playlist could name other files.
    writeBytes(folder.path("list.m4a"), "#EXTM3U\n#EXT-X-TARGETDURATION:3\n#EXTINF:3,\n/etc/passwd\n#EXT-X-ENDLIST\n");
    ASSERT_EQ(mkfifo(folder.path("pipe.wav").c_str(), 0600), 0);
    for (const char* name : {"text.m4a", "empty.mp3", "list.m4a", "pipe.wav"}) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(AVURLAsset(folder.url(name)).tracks().empty());
        EXPECT_FALSE(AVURLAsset(folder.url(name)).duration().isValid());
    }
}

TEST(AVURLAsset, DurationIsExactToTheSampleInEveryFormatWithAnIndex)
{
    const TemporaryFolder folder;
    constexpr int64_t kFrames = 146999;
    writeWav(folder.path("t.wav"), makeTone(44100, 2, kFrames));
    struct Row {
        const char* name;
        const char* options;
    };
    const Row rows[] = {
        {"t.wav", nullptr},           {"float.wav", "-c:a pcm_f32le"},
        {"t.aiff", "-c:a pcm_s16be"}, {"t.aifc", "-f aiff -c:a pcm_s16le"},
        {"t.caf", "-c:a pcm_s24be"},  {"t.flac", "-c:a flac"},
        {"alac.m4a", "-c:a alac"},    {"t.ogg", "-c:a libvorbis"},
        {"t.mp3", "-c:a libmp3lame"}, {"vbr.mp3", "-c:a libmp3lame -q:a 4"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.options)
            convertWithFFmpeg(folder.path("t.wav"), row.options, folder.path(row.name));
        for (const bool precise : {false, true}) {
            const AVURLAsset asset(folder.url(row.name), {.preferPreciseDurationAndTiming = precise});
            EXPECT_EQ(asset.duration().value, kFrames);
            EXPECT_EQ(asset.duration().timescale, 44100);
            ASSERT_EQ(asset.tracks().size(), 1U);
            EXPECT_EQ(asset.tracks()[0].mediaType, kAVMediaTypeAudio);
        }
    }
}

TEST(AVURLAsset, DurationOfOpusLeavesOutWhatIsToBeSkipped)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(48000, 1, 159999));
    convertWithFFmpeg(folder.path("t.wav"), "-c:a libopus", folder.path("t.opus"));
    EXPECT_EQ(AVURLAsset(folder.url("t.opus")).duration().value, 159999);
    EXPECT_EQ(AVURLAsset(folder.url("t.opus")).duration().timescale, 48000);
}

TEST(AVURLAsset, DurationOfAACLeavesOutTheEncodersDelay)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 2, 146999));
    convertWithFFmpeg(folder.path("t.wav"), "-c:a aac", folder.path("t.m4a"));
    const AVURLAsset asset(folder.url("t.m4a"));
    EXPECT_EQ(asset.duration().timescale, 44100);
    EXPECT_EQ(asset.duration().value, 146999);
}

TEST(AVURLAsset, PreciseOptionScansFilesWithoutAnIndex)
{
    const TemporaryFolder folder;
    // Soft, then loud: the bit rate of the start says nothing of the whole.
    writeWav(folder.path("t.wav"), makeSound(44100, 1, 441000, [](size_t frame, int) {
                 return frame < 220500 ? 0.0 : std::sin(double(frame) * double(frame) * 1e-6) * 0.9;
             }));
    convertWithFFmpeg(folder.path("t.wav"), "-c:a libmp3lame -q:a 2 -write_xing 0", folder.path("t.mp3"));
    convertWithFFmpeg(folder.path("t.wav"), "-c:a aac -b:a 96k", folder.path("t.aac"));
    // All packets: the encoder's delay is not told by these files.
    EXPECT_EQ(preciseAsset(folder.url("t.mp3")).duration().value, decodeWithFFmpeg(folder.path("t.mp3")).frames());
    EXPECT_EQ(preciseAsset(folder.url("t.aac")).duration().value, decodeWithFFmpeg(folder.path("t.aac")).frames());
    EXPECT_NE(AVURLAsset(folder.url("t.mp3")).duration().value, preciseAsset(folder.url("t.mp3")).duration().value);
}

TEST(AVURLAsset, WrongLengthsInAWavHeaderGiveWayToTheFilesSize)
{
    const TemporaryFolder folder;
    const std::string samples(44100 * 2, '\1');
    for (const uint32_t claimed : {0U, 0xFFFFFFFFU, 0xF0000000U, 400000U}) {
        SCOPED_TRACE(claimed);
        writeBytes(folder.path("t.wav"), wavHeader(44100, 1, claimed) + samples);
        EXPECT_EQ(AVURLAsset(folder.url("t.wav")).duration().value, 44100);
    }
    writeBytes(folder.path("t.wav"), wavHeader(44100, 1, 1000) + samples);
    EXPECT_EQ(AVURLAsset(folder.url("t.wav")).duration().value, 500);
}

TEST(AVURLAsset, ImpossibleSoundHasNoTrack)
{
    const TemporaryFolder folder;
    writeBytes(folder.path("norate.wav"), wavHeader(0, 1, 1000) + std::string(1000, '\1'));
    writeBytes(folder.path("nochannels.wav"), wavHeader(44100, 0, 1000) + std::string(1000, '\1'));
    EXPECT_TRUE(AVURLAsset(folder.url("norate.wav")).tracks().empty());
    EXPECT_TRUE(AVURLAsset(folder.url("nochannels.wav")).tracks().empty());
}

TEST(AVURLAsset, MovieHasTheDurationOfItsHeader)
{
    const TemporaryFolder folder;
    outputOf("ffmpeg -nostdin -v error -f lavfi -i color=red:s=64x64:r=2 -frames:v 5 -c:v mjpeg -movie_timescale 10000 "
             "-video_track_timescale 10000 " +
             shellWord(folder.path("v.mov")));
    const AVURLAsset asset(folder.url("v.mov"));
    EXPECT_EQ(asset.duration().value, 25000);
    EXPECT_EQ(asset.duration().timescale, 10000);
    ASSERT_EQ(asset.tracks().size(), 1U);
    EXPECT_EQ(asset.tracks()[0].mediaType, kAVMediaTypeVideo);
    EXPECT_EQ(asset.tracks()[0].timeRange.duration.value, 25000);
    EXPECT_TRUE(asset.tracksWithMediaType(kAVMediaTypeAudio).empty());
}

TEST(AVURLAsset, CoverPictureIsNoVideoTrack)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 1, 44100));
    outputOf("ffmpeg -nostdin -v error -i " + shellWord(folder.path("t.wav")) +
             " -f lavfi -i color=red:s=64x64:d=0.04 -map 0 -map 1 -c:a alac -c:v mjpeg -disposition:v "
             "attached_pic " +
             shellWord(folder.path("t.m4a")));
    const AVURLAsset asset(folder.url("t.m4a"));
    ASSERT_EQ(asset.tracks().size(), 1U);
    EXPECT_EQ(asset.duration().value, 44100);
}

TEST(AVURLAsset, FileIsOpenFromTheFirstLookUntilAnotherStandsUnderItsName)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 1, 44100));
    const AVURLAsset asset(folder.url("t.wav"));
    EXPECT_FALSE(asset.openedFile()) << "nobody has asked for anything";
    ASSERT_EQ(asset.tracks().size(), 1U);
    ASSERT_TRUE(asset.openedFile());
    EXPECT_EQ(asset.openedFile()->state(), FileState::ofFile(folder.path("t.wav")));
    writeWav(folder.path("new.wav"), makeTone(44100, 1, 22050));
    std::filesystem::rename(folder.path("new.wav"), folder.path("t.wav"));
    EXPECT_FALSE(asset.openedFile());
}

TEST(AVURLAsset, SoundIsReadFromTheFileThatWasLookedAtAsLongAsTheAssetLives)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 1, 44100));
    auto asset =
        std::make_shared<AVURLAsset>(folder.url("t.wav"), AVURLAsset::Options{.preferPreciseDurationAndTiming = true});
    ASSERT_EQ(asset->tracks().size(), 1U);
    const SoundFactsPtr facts = asset->tracks().front().sound;
    ASSERT_TRUE(facts);
    std::filesystem::remove(folder.path("t.wav"));
    EXPECT_TRUE(SoundReader::open(facts, 44100, 1));
    asset.reset();
    EXPECT_FALSE(SoundReader::open(facts, 44100, 1));
}

TEST(AVURLAsset, FilesAreNotKeptOpenWhereThatTakesMoreThanHalfOfWhatTheProcessMayOpen)
{
    const TemporaryFolder folder;
    writeWav(folder.path("t.wav"), makeTone(44100, 1, 441));
    constexpr rlim_t kMost = 64;
    const OpenFileLimit limit(kMost);
    std::vector<AVURLAssetPtr> assets;
    size_t kept = 0;
    for (rlim_t i = 0; i < 2 * kMost; ++i) {
        assets.push_back(AVURLAsset::URLAssetWithURL(folder.url("t.wav")));
        ASSERT_EQ(assets.back()->duration().value, 441) << i;
        kept += assets.back()->openedFile() ? 1 : 0;
    }
    EXPECT_GT(kept, 0U);
    EXPECT_LE(kept, kMost / 2);
}

} // namespace
