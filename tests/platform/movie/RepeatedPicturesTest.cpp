#include "platform/movie/RepeatedPictures.h"

#include "platform/movie/MediaInspection.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestMovie.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace platform {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const CMTime kHalfASecond = CMTimeMake(1, 2);

class RepeatedPicturesTest : public testing::Test {
protected:
    /// Makes a movie with the ffmpeg command.
    NSURL make(const std::string& name, const std::string& arguments) const
    {
        testmovie::outputOf("ffmpeg -v error -y " + arguments + " " + testmovie::shellWord(folder.path(name)) +
                            " 2>&1");
        return folder.url(name);
    }

    std::optional<size_t> repeat(const NSURL& movie, CMTime longest = kHalfASecond)
    {
        return repeatLongPictures(
            movie, longest, repeated, [] { return false; }, &error);
    }

    /// Without the file, why.
    std::string refusalOf(const NSURL& movie)
    {
        EXPECT_FALSE(repeat(movie));
        EXPECT_FALSE(std::filesystem::exists(repeated.path()));
        EXPECT_THAT(error.localizedDescription, HasSubstr(movie.path()));
        return error.localizedDescription;
    }

    /// Of one kind of track ("v" or "a"), each packet's content, flags and what else is asked for.
    static std::vector<std::string> packets(const NSURL& movie, const std::string& kind, const std::string& entries)
    {
        std::istringstream output(testmovie::outputOf("ffprobe -v error -of csv=p=0 -select_streams " + kind +
                                                      " -show_data_hash MD5 -show_entries packet=" + entries + " " +
                                                      testmovie::shellWord(movie.path())));
        std::vector<std::string> lines;
        for (std::string line; std::getline(output, line);)
            lines.push_back(line);
        return lines;
    }

    TemporaryFolder folder;
    const NSURL repeated = folder.url("repeated.mov");
    NSError error;
};

/// Five pictures of 1.7 seconds, with sound between them.
constexpr const char* kPictures = "-f lavfi -i testsrc2=s=64x48:r=10/17:d=8.5";
constexpr const char* kSound = " -f lavfi -i sine=f=440:d=8.5";

struct Form {
    const char* name;
    const char* options;
    const char* file;
};

void PrintTo(const Form& form, std::ostream* stream)
{
    *stream << form.name;
}

class RepeatedPicturesOfForm : public RepeatedPicturesTest, public testing::WithParamInterface<Form> {};

INSTANTIATE_TEST_SUITE_P(
    Forms, RepeatedPicturesOfForm,
    testing::Values(Form{"H264", "-c:v libx264 -g 1 -video_track_timescale 10000 -movflags +faststart", "a.mp4"},
                    Form{"H264InQuickTime", "-c:v libx264 -g 1 -video_track_timescale 10000 -moov_size 20000", "a.mov"},
                    Form{"HEVC",
                         "-c:v libx265 -tag:v hvc1 -x265-params keyint=1:log-level=none -video_track_timescale 10000 "
                         "-movflags +faststart",
                         "a.mp4"},
                    Form{"JPEG", "-c:v mjpeg -pix_fmt yuvj420p -video_track_timescale 10000 -movflags +faststart",
                         "a.mov"},
                    Form{"IndexAtTheEnd", "-c:v mjpeg -pix_fmt yuvj420p -video_track_timescale 10000", "a.mov"}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

TEST_P(RepeatedPicturesOfForm, KeepTheirPlacesAndTheirBytes)
{
    for (const char* const sound : {"", kSound}) {
        std::filesystem::remove(repeated.path());
        const NSURL movie = make(GetParam().file, std::string(kPictures) + sound + " " + GetParam().options);
        ASSERT_EQ(repeat(movie), 15u) << error.localizedDescription;

        const auto before = inspectMedia(movie);
        const auto after = inspectMedia(repeated, &error);
        ASSERT_TRUE(before && after) << error.localizedDescription;
        EXPECT_EQ(CMTimeCompare(after->duration, before->duration), 0);
        EXPECT_EQ(after->indexFirst, before->indexFirst);
        ASSERT_EQ(after->tracks.size(), before->tracks.size());

        // Each picture four times, in equal parts of its time.
        const auto contents = packets(movie, "v", "data_hash,flags");
        const auto repeatedContents = packets(repeated, "v", "data_hash,flags");
        const auto& samples = after->tracks[0].samples;
        ASSERT_EQ(contents.size(), 5u);
        ASSERT_EQ(repeatedContents.size(), 20u);
        ASSERT_EQ(samples.size(), 20u);
        for (size_t i = 0; i < 20; ++i) {
            EXPECT_EQ(repeatedContents[i], contents[i / 4]) << i;
            EXPECT_EQ(samples[i].presentationTime.value, static_cast<int64_t>(i) * 4250) << i;
            EXPECT_EQ(samples[i].duration.value, 4250) << i;
        }
        EXPECT_EQ(packets(repeated, "a", "pts,duration,data_hash"), packets(movie, "a", "pts,duration,data_hash"));

        // The file grows by entries of its index alone, and every decoder's picture is the same.
        const auto grown = static_cast<int64_t>(std::filesystem::file_size(repeated.path())) -
                           static_cast<int64_t>(std::filesystem::file_size(movie.path()));
        EXPECT_LT(grown, 15 * 8 + 100);
        const auto frames = testmovie::decode(movie.path(), 64, 48);
        const auto repeatedFrames = testmovie::decode(repeated.path(), 64, 48);
        ASSERT_EQ(repeatedFrames.size(), 20u);
        for (size_t i = 0; i < 20; ++i)
            EXPECT_EQ(repeatedFrames[i], frames[i / 4]) << i;
    }
}

TEST_F(RepeatedPicturesTest, LastAsLongAsBeforeWhereTimesCannotBeDivided)
{
    // Thirds of a second in ticks of a millisecond, longer than asked for by one in three.
    const NSURL movie = make("a.mov", "-f lavfi -i testsrc2=s=64x48:r=3:d=2 -c:v mjpeg -pix_fmt yuvj420p "
                                      "-video_track_timescale 1000");
    ASSERT_TRUE(repeat(movie, CMTimeMake(1, 10)));
    const auto before = inspectMedia(movie), after = inspectMedia(repeated);
    ASSERT_TRUE(before && after);
    const auto& samples = before->tracks[0].samples;
    const auto& parts = after->tracks[0].samples;
    ASSERT_EQ(parts.size(), 4 * samples.size());
    for (size_t i = 0; i < samples.size(); ++i) {
        EXPECT_EQ(parts[4 * i].presentationTime.value, samples[i].presentationTime.value);
        int64_t sum = 0;
        for (size_t k = 0; k < 4; ++k) {
            sum += parts[4 * i + k].duration.value;
            EXPECT_LE(parts[4 * i + k].duration.value, 100);
        }
        EXPECT_EQ(sum, samples[i].duration.value);
    }
}

TEST_F(RepeatedPicturesTest, AreNotWrittenWhereNoneIsLong)
{
    const NSURL movie = make("a.mp4", "-f lavfi -i testsrc2=s=64x48:r=2:d=2 -c:v libx264 -g 1");
    EXPECT_EQ(repeat(movie), 0u);
    EXPECT_FALSE(std::filesystem::exists(repeated.path()));
}

TEST_F(RepeatedPicturesTest, RefuseMoviesThatAreNotUnderstood)
{
    EXPECT_THAT(refusalOf(make("b.mp4", "-f lavfi -i testsrc2=s=64x48:r=1:d=6 -c:v libx264 -bf 2")),
                HasSubstr("\"ctts\""));
    EXPECT_THAT(refusalOf(make("p.mp4", "-f lavfi -i testsrc2=s=64x48:r=1:d=6 -c:v libx264 -bf 0")),
                HasSubstr("no key frame"));
    EXPECT_THAT(refusalOf(make("f.mp4", "-f lavfi -i testsrc2=s=64x48:r=1:d=6 -c:v libx264 -g 1 "
                                        "-movflags frag_keyframe+empty_moov")),
                HasSubstr("neither index nor media"));
    EXPECT_THAT(refusalOf(make("a.m4a", "-f lavfi -i sine=d=1")), HasSubstr("0 picture tracks"));
    EXPECT_THAT(refusalOf(make("2.mp4", "-f lavfi -i testsrc2=s=64x48:r=1:d=2 -map 0:v -map 0:v -c:v libx264 -g 1")),
                HasSubstr("2 picture tracks"));
    EXPECT_THAT(refusalOf(make("a.avi", "-f lavfi -i testsrc2=s=64x48:r=1:d=2 -c:v mjpeg -pix_fmt yuvj420p")),
                HasSubstr("not one whole movie"));
    EXPECT_THAT(refusalOf(folder.url("missing.mov")), HasSubstr("not one whole movie"));
    folder.makeFile("empty.mov", "");
    EXPECT_THAT(refusalOf(folder.url("empty.mov")), HasSubstr("not one whole movie"));
}

TEST_F(RepeatedPicturesTest, NeverTakeAnothersPlace)
{
    const NSURL movie = make("a.mov", std::string(kPictures) + " -c:v mjpeg -pix_fmt yuvj420p");
    folder.makeFile("repeated.mov", "precious");
    EXPECT_FALSE(repeat(movie));
    EXPECT_THAT(error.localizedDescription, HasSubstr(repeated.path()));
    EXPECT_EQ(TemporaryFolder::contentsOf(repeated.path()), "precious");
}

TEST_F(RepeatedPicturesTest, LeaveNothingBehindWhenStopped)
{
    const NSURL movie = make("a.mov", std::string(kPictures) + " -c:v mjpeg -pix_fmt yuvj420p -movflags +faststart");
    for (const int pieces : {0, 1}) {
        int left = pieces;
        EXPECT_FALSE(repeatLongPictures(
            movie, kHalfASecond, repeated, [&] { return left-- == 0; }, &error));
        EXPECT_THAT(folder.entries(), ElementsAre("a.mov"));
    }
}

TEST_F(RepeatedPicturesTest, SurviveDamage)
{
    const NSURL movie = make("a.mp4", std::string(kPictures) + kSound + " -c:v libx264 -g 1 -movflags +faststart");
    const std::string whole = TemporaryFolder::contentsOf(movie.path());
    const size_t index = whole.find("mdat");
    std::mt19937 random(7);
    size_t refused = 0;
    for (int round = 0; round < 400; ++round) {
        std::string damaged = whole;
        for (int count = 0; count < 1 + round % 4; ++count)
            damaged[random() % index] = static_cast<char>(random());
        if (round % 5 == 0)
            damaged.resize(random() % damaged.size());
        folder.makeFile("damaged.mp4", damaged);
        std::filesystem::remove(repeated.path());
        refused += !repeat(folder.url("damaged.mp4"));
        EXPECT_LT(std::filesystem::exists(repeated.path()) ? std::filesystem::file_size(repeated.path()) : 0,
                  200 << 20);
    }
    EXPECT_GT(refused, 100u);
}

} // namespace
} // namespace platform
