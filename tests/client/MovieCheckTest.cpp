#include "client/MovieCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using platform::CMTime;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

CMTime ticks(int64_t value)
{
    return {value, 10000, CMTime::Valid, 0};
}

/// A movie of `count` pictures of `hold` ticks each.
platform::MediaReport movieOf(size_t count, int64_t hold)
{
    platform::MediaTrackReport pictures;
    pictures.mediaType = "vide";
    pictures.codec = "avc1";
    pictures.width = 1280;
    pictures.height = 720;
    for (size_t i = 0; i < count; ++i)
        pictures.samples.push_back({ticks(static_cast<int64_t>(i) * hold), ticks(hold), 1000, true});
    pictures.end = ticks(static_cast<int64_t>(count) * hold);
    platform::MediaReport movie;
    movie.indexFirst = true;
    movie.tracks.push_back(pictures);
    return movie;
}

platform::MediaTrackReport soundEndingAt(double seconds)
{
    platform::MediaTrackReport sound;
    sound.mediaType = "soun";
    sound.codec = "mp4a";
    sound.end = {static_cast<int64_t>(seconds * 44100), 44100, CMTime::Valid, 0};
    sound.samples.push_back({ticks(0), ticks(100), 10, true});
    return sound;
}

ExpectedMovie expectedMovie()
{
    ExpectedMovie expected;
    expected.frameCount = 10;
    expected.secondsPerFrame = 3;
    expected.size = {1280, 720};
    expected.codec = "avc1";
    return expected;
}

TEST(MovieCheck, FindsNothingOffInAGoodMovie)
{
    EXPECT_THAT(findFaults(movieOf(10, 30000), expectedMovie()), IsEmpty());
}

TEST(MovieCheck, AllowsTimesThatAreCutToWholeTicks)
{
    ExpectedMovie expected = expectedMovie();
    expected.secondsPerFrame = 4.0 / 3;
    platform::MediaReport movie = movieOf(10, 0);
    for (size_t i = 0; i < 10; ++i) {
        const auto tick = [](size_t index) {
            return static_cast<int64_t>(4.0 / 3 * static_cast<double>(index) * 10000);
        };
        movie.tracks[0].samples[i].presentationTime = ticks(tick(i));
        movie.tracks[0].samples[i].duration = ticks(tick(i + 1) - tick(i));
    }
    EXPECT_THAT(findFaults(movie, expected), IsEmpty());
}

TEST(MovieCheck, NoticesAMissingPicture)
{
    EXPECT_THAT(findFaults(movieOf(9, 30000), expectedMovie()), ElementsAre(HasSubstr("9 pictures instead of 10")));
}

TEST(MovieCheck, NoticesALastPictureThatIsNotHeld)
{
    platform::MediaReport movie = movieOf(10, 30000);
    movie.tracks[0].samples.back().duration = ticks(0);
    EXPECT_THAT(findFaults(movie, expectedMovie()), ElementsAre(HasSubstr("picture 10")));
}

TEST(MovieCheck, NoticesAPictureThatStandsElsewhere)
{
    platform::MediaReport movie = movieOf(10, 30000);
    movie.tracks[0].samples[4].presentationTime = ticks(120010);
    EXPECT_THAT(findFaults(movie, expectedMovie()), ElementsAre(HasSubstr("picture 5")));
}

TEST(MovieCheck, NoticesAnotherSizeAndAnotherCodec)
{
    platform::MediaReport movie = movieOf(10, 30000);
    movie.tracks[0].height = 718;
    movie.tracks[0].codec = "jpeg";
    EXPECT_THAT(findFaults(movie, expectedMovie()), ElementsAre(HasSubstr("1280 x 718"), HasSubstr("\"jpeg\"")));
}

TEST(MovieCheck, NoticesAMovieWithoutPictures)
{
    platform::MediaReport movie;
    movie.indexFirst = true;
    EXPECT_THAT(findFaults(movie, expectedMovie()), ElementsAre(HasSubstr("no pictures")));
}

TEST(MovieCheck, WantsSoundToTheEndWhereThereIsToBeSound)
{
    ExpectedMovie expected = expectedMovie();
    expected.soundEnd = 30;
    platform::MediaReport movie = movieOf(10, 30000);
    EXPECT_THAT(findFaults(movie, expected), ElementsAre(HasSubstr("no sound")));
    movie.tracks.push_back(soundEndingAt(30.01));
    EXPECT_THAT(findFaults(movie, expected), IsEmpty());
    movie.tracks[1] = soundEndingAt(29.5);
    EXPECT_THAT(findFaults(movie, expected), ElementsAre(HasSubstr("sound ends after 29.5 s instead of 30 s")));
}

TEST(MovieCheck, NoticesSoundThatNobodyAskedFor)
{
    platform::MediaReport movie = movieOf(10, 30000);
    movie.tracks.push_back(soundEndingAt(30));
    EXPECT_THAT(findFaults(movie, expectedMovie()), ElementsAre(HasSubstr("not asked for")));
}

TEST(MovieCheck, NoticesAnIndexAtTheEnd)
{
    platform::MediaReport movie = movieOf(10, 30000);
    movie.indexFirst = false;
    EXPECT_THAT(findFaults(movie, expectedMovie()), ElementsAre(HasSubstr("index")));
}

} // namespace
