#include "platform/movie/MediaInspection.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestMovie.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

namespace platform {
namespace {

class MediaInspectionTest : public testing::Test {
protected:
    /// Makes a movie with the ffmpeg command.
    NSURL make(const std::string& name, const std::string& arguments) const
    {
        testmovie::outputOf("ffmpeg -v error -y " + arguments + " " + testmovie::shellWord(folder.path(name)) +
                            " 2>&1");
        return folder.url(name);
    }

    TemporaryFolder folder;
};

TEST_F(MediaInspectionTest, ReadsPicturesInTheirOrderOfShowing)
{
    const NSURL url = make("b.mp4", "-f lavfi -i testsrc2=s=64x48:r=10:d=2 -c:v libx264 -g 10 -bf 2 "
                                    "-x264-params b-adapt=0:scenecut=0");
    const auto report = inspectMedia(url);
    ASSERT_TRUE(report);
    EXPECT_FALSE(report->indexFirst);
    ASSERT_EQ(report->tracks.size(), 1u);
    const auto& track = report->tracks[0];
    EXPECT_EQ(track.mediaType, "vide");
    EXPECT_EQ(track.codec, "avc1");
    EXPECT_EQ(track.width, 64);
    EXPECT_EQ(track.height, 48);
    ASSERT_EQ(track.samples.size(), 20u);
    EXPECT_TRUE(track.samples[0].isKeyFrame);
    EXPECT_FALSE(track.samples[1].isKeyFrame);
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(track.samples[0].presentationTime), 0) << "the edit list counts the delay out";
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(track.samples[1].presentationTime), 0.3) << "stored before those it serves";
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(track.samples[1].duration), 0.1);
    EXPECT_GT(track.samples[0].size, 100u);
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(track.end), 2);
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(report->duration), 2);
}

TEST_F(MediaInspectionTest, TellsWhetherTheIndexStandsFirst)
{
    const NSURL url = make("fast.mov", "-f lavfi -i testsrc2=s=64x48:r=10:d=1 -c:v mjpeg -movflags +faststart");
    const auto report = inspectMedia(url);
    ASSERT_TRUE(report);
    EXPECT_TRUE(report->indexFirst);
    EXPECT_EQ(report->tracks.at(0).codec, "jpeg");
}

TEST_F(MediaInspectionTest, ReadsSoundWithItsEditsApplied)
{
    const NSURL url = make("sound.mov", "-f lavfi -i testsrc2=s=64x48:r=10:d=3 -f lavfi -i sine=r=44100:d=2.5 "
                                        "-c:v mjpeg -c:a aac -ac 2");
    const auto report = inspectMedia(url);
    ASSERT_TRUE(report);
    ASSERT_EQ(report->tracks.size(), 2u);
    const auto& sound = report->tracks[1];
    EXPECT_EQ(sound.mediaType, "soun");
    EXPECT_EQ(sound.codec, "mp4a");
    EXPECT_EQ(sound.sampleRateHz, 44100);
    EXPECT_EQ(sound.channels, 2);
    EXPECT_NEAR(CMTimeGetSeconds(sound.end), 2.5, 0.001);
    ASSERT_FALSE(sound.samples.empty());
    EXPECT_EQ(sound.samples[0].presentationTime.value, 0) << "the encoder's lead-in is not played";
    EXPECT_DOUBLE_EQ(CMTimeGetSeconds(report->duration), 3);
}

TEST_F(MediaInspectionTest, RefusesWhatIsNoMovie)
{
    folder.makeFile("empty.mov", "");
    folder.makeFile("text.mov", "This is no movie, whatever its name says.");
    folder.makeFolder("folder.mov");
    mkfifo(folder.path("pipe.mov").c_str(), 0600);
    make("tone.wav", "-f lavfi -i sine=d=0.1");
    for (const char* name : {"missing.mov", "empty.mov", "text.mov", "folder.mov", "pipe.mov", "tone.wav"}) {
        NSError error;
        EXPECT_FALSE(inspectMedia(folder.url(name), &error)) << name;
        EXPECT_NE(error.localizedDescription.find(name), std::string::npos) << error.localizedDescription;
    }
}

TEST_F(MediaInspectionTest, RefusesAMovieThatIsCutOff)
{
    const NSURL url = make("cut.mov", "-f lavfi -i testsrc2=s=64x48:r=10:d=1 -c:v mjpeg -movflags +faststart");
    ASSERT_TRUE(inspectMedia(url));
    std::filesystem::resize_file(url.path(), std::filesystem::file_size(url.path()) - 1);
    NSError error;
    EXPECT_FALSE(inspectMedia(url, &error));
    EXPECT_NE(error.localizedDescription.find("cut.mov is cut off"), std::string::npos) << error.localizedDescription;
}

TEST_F(MediaInspectionTest, SurvivesDamage)
{
    const NSURL url = make("whole.mov", "-f lavfi -i testsrc2=s=32x32:r=10:d=0.5 -c:v mjpeg -movflags +faststart");
    const std::string whole = TemporaryFolder::contentsOf(url.path());
    int refused = 0;
    // Every word of the index in turn claims the most.
    for (size_t at = 0; at + 4 <= std::min<size_t>(whole.size(), 800); at += 4) {
        std::string damaged = whole;
        damaged.replace(at, 4, "\xff\xff\xff\xff");
        folder.makeFile("damaged.mov", damaged);
        refused += inspectMedia(folder.url("damaged.mov")) ? 0 : 1;
    }
    EXPECT_GT(refused, 0);
}

} // namespace
} // namespace platform
