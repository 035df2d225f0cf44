#include "video/FinalMovie.h"

#include "platform/foundation/NSBundle.h"
#include "platform/media/AVAssetExportSession.h"
#include "platform/movie/MediaInspection.h"
#include "platform/system/NSWorkspace.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"
#include "tests/support/TestStageContext.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

using namespace platform;
using namespace testsound;

namespace {

class FinalMovie : public testing::Test {
protected:
    FinalMovie()
    {
        folder_.makeFolder("movies");
        folder_.makeFolder("temporary");
        context_.emplace(folder_.url("movies"), folder_.url("temporary"));
    }

    StageContext& context() { return *context_; }
    NSURL document(const std::string& name) const { return folder_.url("documents/" + name); }

    /// A silent movie: so many photos, three seconds each.
    AVURLAssetPtr makeVideo(int photos, const std::string& codec = "-c:v mjpeg", const std::string& name = "v.mov")
    {
        outputOf("ffmpeg -nostdin -v error -f lavfi -i testsrc=s=128x96:r=1/3 -frames:v " + std::to_string(photos) +
                 " " + codec + " -video_track_timescale 10000 -movie_timescale 10000 " + shellWord(folder_.path(name)));
        return AVURLAsset::URLAssetWithURL(folder_.url(name));
    }

    /// A finished soundtrack, as the assembly makes it.
    AVURLAssetPtr makeSoundtrack(double seconds)
    {
        writeWav(folder_.path("s.wav"), makeTone(44100, 2, static_cast<size_t>(seconds * 44100)));
        AVAssetExportSession session(AVURLAsset::URLAssetWithURL(folder_.url("s.wav")),
                                     std::string(kAVAssetExportPresetAppleM4A));
        session.setOutputFileType(kAVFileTypeAppleM4A);
        session.setOutputURL(folder_.url("s.m4a"));
        session.exportAsynchronouslyWithCompletionHandler({});
        EXPECT_TRUE(session.waitForEnd(60));
        return AVURLAsset::URLAssetWithURL(folder_.url("s.m4a"));
    }

    AVURLAssetPtr combine(const AVURLAssetPtr& video, const AVURLAssetPtr& sound, const std::string& name)
    {
        NSError error;
        auto movie = movieByCombiningVideo(context(), video, sound, document(name), &error);
        EXPECT_TRUE(movie) << error.localizedDescription;
        return movie;
    }

    static std::string packetHashes(const std::string& path, const std::string& kind)
    {
        return outputOf("ffmpeg -nostdin -v error -i " + shellWord(path) + " -map 0:" + kind +
                        " -c copy -f framehash -hash md5 - | grep -v '^#' | awk -F, '{print $NF}'");
    }

    TemporaryFolder folder_;
    std::optional<TestStageContext> context_;
};

TEST_F(FinalMovie, DocumentNamedHolidaySlidesYieldsHolidayMov)
{
    EXPECT_EQ(URLForFinalVideoAtDocumentURL(context(), document("Holiday.slides")).path(),
              folder_.path("movies/Holiday.mov"));
    folder_.makeFile("movies/Holiday.mov");
    EXPECT_EQ(URLForFinalVideoAtDocumentURL(context(), document("Holiday.slides")).path(),
              folder_.path("movies/Holiday-2.mov"));
    folder_.makeFile("movies/Holiday-2.mov");
    EXPECT_EQ(URLForFinalVideoAtDocumentURL(context(), document("Holiday.slides")).path(),
              folder_.path("movies/Holiday-3.mov"));
}

TEST_F(FinalMovie, OnlyTheLastExtensionOfTheDocumentIsReplaced)
{
    EXPECT_EQ(URLForFinalVideoAtDocumentURL(context(), document("a.b.slides")).lastPathComponent(), "a.b.mov");
    EXPECT_EQ(URLForFinalVideoAtDocumentURL(context(), document("plain")).lastPathComponent(), "plain.mov");
}

TEST_F(FinalMovie, NoDocumentYieldsTheLocalisedUntitledNameWithoutAnExtension)
{
    const std::string untitled = NSBundle::mainBundle().localizedStringForKey("VideoCreationMovieFileTitleUntitled");
    EXPECT_EQ(URLForFinalVideoAtDocumentURL(context(), std::nullopt).path(), folder_.path("movies/" + untitled));
    folder_.makeFile("movies/" + untitled);
    EXPECT_EQ(URLForFinalVideoAtDocumentURL(context(), std::nullopt).path(), folder_.path("movies/" + untitled + "-2"));
}

TEST_F(FinalMovie, MissingVideoOrSoundtrackYieldsNothingAndSendsNothing)
{
    NSError error;
    EXPECT_FALSE(movieByCombiningVideo(context(), nullptr, makeSoundtrack(1), document("a.slides"), &error));
    EXPECT_FALSE(movieByCombiningVideo(context(), makeVideo(2), nullptr, document("a.slides"), &error));
    EXPECT_EQ(error, NSError{});
    EXPECT_TRUE(context_->updates().empty());
}

TEST_F(FinalMovie, PictureAndSoundAreCopiedBitForBit)
{
    const auto video = makeVideo(5);
    const auto sound = makeSoundtrack(15);
    const auto movie = combine(video, sound, "a.slides");
    ASSERT_TRUE(movie);
    EXPECT_EQ(movie->URL().path(), folder_.path("movies/a.mov"));
    EXPECT_EQ(packetHashes(movie->URL().path(), "v"), packetHashes(video->URL().path(), "v"));
    EXPECT_EQ(packetHashes(movie->URL().path(), "a"), packetHashes(sound->URL().path(), "a"));
    EXPECT_EQ(filesBelow(folder_.path("movies")), std::vector<std::string>{"a.mov"});
}

TEST_F(FinalMovie, EveryCodecLiesInAnMP42FileWithItsIndexFirst)
{
    struct Row {
        const char* name;
        const char* options;
        const char* entry;
    };
    const Row rows[] = {
        {"jpeg", "-c:v mjpeg -pix_fmt yuvj420p", "jpeg"},
        {"h264", "-c:v libx264 -pix_fmt yuv420p", "avc1"},
        {"intra", "-c:v libx264 -pix_fmt yuv420p -g 1 -bf 0", "avc1"},
        {"hevc", "-c:v libx265 -x265-params log-level=none -pix_fmt yuv420p -tag:v hvc1", "hvc1"},
        {"prores", "-c:v prores_ks -profile:v 2", "apcn"},
        {"prores4444", "-c:v prores_ks -profile:v 4 -pix_fmt yuva444p10le", "ap4h"},
    };
    const auto sound = makeSoundtrack(12);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto video = makeVideo(4, row.options, std::string(row.name) + ".mov");
        const auto movie = combine(video, sound, std::string(row.name) + ".slides");
        ASSERT_TRUE(movie);
        const std::string path = movie->URL().path();
        EXPECT_TRUE(path.ends_with(".mov"));
        EXPECT_EQ(readBytes(path).substr(4, 8), "ftypmp42");
        EXPECT_EQ(packetHashes(path, "v"), packetHashes(video->URL().path(), "v"));
        EXPECT_EQ(packetHashes(path, "a"), packetHashes(sound->URL().path(), "a"));
        const auto report = inspectMedia(movie->URL());
        ASSERT_TRUE(report);
        EXPECT_TRUE(report->indexFirst);
        ASSERT_EQ(report->tracks.size(), 2U);
        EXPECT_EQ(report->tracks[0].codec, row.entry);
        EXPECT_EQ(report->tracks[1].codec, "mp4a");
        // Every photo in its time, the last one held as long as the others.
        ASSERT_EQ(report->tracks[0].samples.size(), 4U);
        std::vector<double> times;
        for (const MediaSample& sample : report->tracks[0].samples)
            times.push_back(CMTimeGetSeconds(sample.presentationTime));
        std::sort(times.begin(), times.end());
        EXPECT_EQ(times, (std::vector<double>{0, 3, 6, 9}));
        EXPECT_EQ(CMTimeGetSeconds(report->tracks[0].end), 12);
        EXPECT_EQ(CMTimeGetSeconds(report->tracks[1].end), 12);
        EXPECT_EQ(CMTimeGetSeconds(report->duration), 12);
    }
}

TEST_F(FinalMovie, SoundStartsAtZeroWithTheEncodersDelayCountedOut)
{
    const auto movie = combine(makeVideo(2), makeSoundtrack(6), "a.slides");
    ASSERT_TRUE(movie);
    const Sound heard = decodeWithFFmpeg(movie->URL().path());
    const Sound tone = makeTone(44100, 2, 6 * 44100);
    EXPECT_GT(signalToNoise(heard, 4096, tone, 4096, 5 * 44100), 35);
    EXPECT_EQ(probe(movie->URL().path(), "a", "start_pts"), "0");
}

TEST_F(FinalMovie, SoundtrackLongerThanTheVideoYieldsAMovieAsLongAsTheSoundtrack)
{
    const auto movie = combine(makeVideo(2), makeSoundtrack(8.5), "a.slides");
    ASSERT_TRUE(movie);
    EXPECT_EQ(CMTimeGetSeconds(movie->duration()), 8.5);
}

TEST_F(FinalMovie, VideoLongerThanTheSoundtrackKeepsItsLength)
{
    const auto movie = combine(makeVideo(3), makeSoundtrack(2.25), "a.slides");
    ASSERT_TRUE(movie);
    EXPECT_EQ(CMTimeGetSeconds(movie->duration()), 9);
    EXPECT_EQ(CMTimeGetSeconds(movie->tracksWithMediaType(kAVMediaTypeAudio).at(0).timeRange.duration), 2.25);
}

TEST_F(FinalMovie, SamplesLieInOrderOfTimeAtMostASecondApart)
{
    const auto movie = combine(makeVideo(6), makeSoundtrack(18), "a.slides");
    ASSERT_TRUE(movie);
    // Position in the file and time of each packet.
    const std::string list =
        outputOf("ffprobe -v error -show_entries packet=pos,pts_time -of csv=p=0 " + shellWord(movie->URL().path()));
    std::vector<std::pair<long, double>> packets;
    std::istringstream lines(list);
    for (std::string line; std::getline(lines, line);) {
        double time = 0;
        long position = 0;
        if (std::sscanf(line.c_str(), "%lf,%ld", &time, &position) == 2)
            packets.emplace_back(position, time);
    }
    ASSERT_GT(packets.size(), 700U);
    std::sort(packets.begin(), packets.end());
    double latest = 0;
    for (const auto& [position, time] : packets) {
        EXPECT_GT(time, latest - 1) << position;
        latest = std::max(latest, time);
    }
}

TEST_F(FinalMovie, UnusableAssetsYieldTheInsertionsError)
{
    folder_.makeFile("text.mov", "no movie");
    const auto foreign = AVURLAsset::URLAssetWithURL(folder_.url("text.mov"));
    NSError error;
    EXPECT_FALSE(movieByCombiningVideo(context(), foreign, makeSoundtrack(1), document("a.slides"), &error));
    EXPECT_EQ(error.domain, kAVFoundationErrorDomain);
    error = {};
    EXPECT_FALSE(movieByCombiningVideo(context(), makeVideo(2), foreign, document("a.slides"), &error));
    EXPECT_EQ(error.domain, kAVFoundationErrorDomain);
    EXPECT_TRUE(filesBelow(folder_.path("movies")).empty());
}

TEST_F(FinalMovie, FolderThatIsNotThereYieldsTheSessionsError)
{
    const auto video = makeVideo(2);
    const auto sound = makeSoundtrack(1);
    TestStageContext nowhere(folder_.url("nowhere"), folder_.url("temporary"));
    NSError error;
    EXPECT_FALSE(movieByCombiningVideo(nowhere, video, sound, document("a.slides"), &error));
    EXPECT_FALSE(error.localizedDescription.empty());
    EXPECT_FALSE(movieByCombiningVideo(nowhere, video, sound, document("a.slides"))) << "nor is a place needed for it";
}

TEST_F(FinalMovie, CancelDuringTheExportEndsTheCallWithoutAnErrorAndWithoutAMovie)
{
    const auto video = makeVideo(2);
    const auto sound = makeSoundtrack(30);
    // Seen at the first look, when the export runs.
    context().setIsCancelled(true);
    NSError error;
    EXPECT_FALSE(movieByCombiningVideo(context(), video, sound, document("a.slides"), &error));
    const auto updates = context_->updates();
    EXPECT_LE(std::ranges::count(updates, "VideoCreationWritingFinalVideo", &ProgressUpdate::title), 1) << "one look";
    EXPECT_EQ(error, NSError{});
    // An export that went on would end by and by.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    while (std::chrono::steady_clock::now() < deadline && filesBelow(folder_.path("movies")).empty())
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(filesBelow(folder_.path("movies")).empty());
}

TEST_F(FinalMovie, NameThatIsTakenInTheMeantimeGivesWayToTheNextFreeOne)
{
    const auto video = makeVideo(2);
    const auto sound = makeSoundtrack(2);
    // A dangling link looks free when the name is chosen and is not when it is given; then its target appears.
    ASSERT_EQ(symlink(folder_.path("target").c_str(), folder_.path("movies/a.mov").c_str()), 0);
    int looks = 0;
    context_->onDestinationAsked = [&] {
        if (++looks == 2)
            folder_.makeFile("target", "another's");
    };
    const auto movie = combine(video, sound, "a.slides");
    ASSERT_TRUE(movie);
    EXPECT_EQ(movie->URL().lastPathComponent(), "a-2.mov");
    EXPECT_EQ(CMTimeGetSeconds(movie->duration()), 6);
    EXPECT_EQ(readBytes(folder_.path("target")), "another's");
}

TEST_F(FinalMovie, NameThatStaysTakenIsAnErrorNotAnEndlessSearch)
{
    const auto video = makeVideo(2);
    const auto sound = makeSoundtrack(2);
    ASSERT_EQ(symlink(folder_.path("nothing").c_str(), folder_.path("movies/a.mov").c_str()), 0);
    NSError error;
    EXPECT_FALSE(movieByCombiningVideo(context(), video, sound, document("a.slides"), &error));
    EXPECT_EQ(error.code, kAVErrorFileAlreadyExists);
    EXPECT_FALSE(std::filesystem::exists(folder_.path("nothing")));
}

TEST_F(FinalMovie, TellsOfTheCompositionAsNoneOfOneAndThenOfTheExportInPartsOfOne)
{
    // All that were queued are sent before the work goes on.
    context_->onDestinationAsked = context_->onCancelledAsked = [&] { (void)context_->updates(); };
    const auto movie = combine(makeVideo(2), makeSoundtrack(10), "a.slides");
    ASSERT_TRUE(movie);
    const auto updates = context_->updates();
    ASSERT_GE(updates.size(), 2U);
    EXPECT_EQ(updates[0].title, "VideoCreationCompositingVideoAndSoundtrack");
    EXPECT_EQ(updates[0].progress, 0);
    for (size_t i = 1; i < updates.size(); ++i) {
        EXPECT_EQ(updates[i].title, "VideoCreationWritingFinalVideo") << i;
        EXPECT_GE(updates[i].progress, updates[i - 1].progress) << i;
        EXPECT_LE(updates[i].progress, 1) << i;
    }
    for (const ProgressUpdate& update : updates) {
        EXPECT_TRUE(update.determinate);
        EXPECT_EQ(update.total, 1);
        EXPECT_EQ(update.timeInterval, -2);
        EXPECT_EQ(update.image, NSWorkspace::sharedWorkspace().iconForFileType("mov"));
    }
}

/// An export that has copied all and stays on its way until the test has seen enough.
class LongExport : public FinalMovie {
protected:
    LongExport()
    {
        // A dangling link looks free when the name is chosen and is not when it is given: then the export asks for
        // another one, and waits for the answer, which is the same.
        EXPECT_EQ(symlink(folder_.path("nothing").c_str(), folder_.path("movies/a.mov").c_str()), 0);
        context_->onDestinationAsked = [this] {
            if (++names_ == 1)
                return;
            if (whenAllIsCopied)
                whenAllIsCopied();
            seenEnough_.wait_for(kDeadline);
        };
    }

    /// Once.
    void letExportGo() { enough_.set_value(); }

    static constexpr std::chrono::seconds kDeadline{30};
    std::function<void()> whenAllIsCopied;

private:
    std::atomic<int> names_{0};
    std::promise<void> enough_;
    const std::future<void> seenEnough_ = enough_.get_future();
};

TEST_F(LongExport, IsLookedAtAboutOnceASecondAndToldOfWithWhatIsDone)
{
    std::vector<std::chrono::steady_clock::time_point> looks;
    context_->onCancelledAsked = [&] {
        (void)context_->updates();
        looks.push_back(std::chrono::steady_clock::now());
        if (looks.size() == 3)
            letExportGo();
    };
    const auto video = makeVideo(2);
    const auto sound = makeSoundtrack(2);
    NSError error;
    EXPECT_FALSE(movieByCombiningVideo(context(), video, sound, document("a.slides"), &error));
    ASSERT_GE(looks.size(), 3U);
    // A busy machine delays one look or another, but hardly both by as much.
    const auto shortest = std::min(looks[1] - looks[0], looks[2] - looks[1]);
    EXPECT_GE(shortest, std::chrono::milliseconds(900));
    EXPECT_LT(shortest, std::chrono::milliseconds(1900));
    EXPECT_GT(context_->updates().back().progress, 0);
}

TEST_F(LongExport, CancelDuringItEndsTheCallAtTheNextLook)
{
    std::atomic<bool> isCopied{false};
    whenAllIsCopied = [&] { isCopied = true; };
    int looksAfterwards = 0;
    context_->onCancelledAsked = [&] {
        if (isCopied && ++looksAfterwards == 1) {
            context().setIsCancelled(true);
            letExportGo();
        }
    };
    const auto video = makeVideo(2);
    const auto sound = makeSoundtrack(2);
    NSError error;
    EXPECT_FALSE(movieByCombiningVideo(context(), video, sound, document("a.slides"), &error));
    EXPECT_EQ(looksAfterwards, 1);
    EXPECT_EQ(error, NSError{});
    EXPECT_EQ(filesBelow(folder_.path("movies")), std::vector<std::string>{"a.mov"}) << "the link alone";
    EXPECT_FALSE(std::filesystem::exists(folder_.path("nothing")));
}

TEST_F(FinalMovie, TellsTheDocumentsNameAsItsTitle)
{
    const auto title = [&](const std::string& name) {
        const auto movie = combine(makeVideo(5), makeSoundtrack(10), name);
        return outputOf("ffprobe -v error -of csv=p=0 -show_entries format_tags=title " +
                        shellWord(movie->URL().path()));
    };
    EXPECT_EQ(title("Holiday.slides"), "Holiday\n");
    std::filesystem::remove(folder_.path("v.mov"));
    std::filesystem::remove(folder_.path("s.m4a"));
    EXPECT_EQ(title("\xC3\x89t\xC3\xA9 v1.2.slides"), "\xC3\x89t\xC3\xA9 v1.2\n");
}

} // namespace
