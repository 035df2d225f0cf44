#include "client/reader/MovieCheck.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stillora;

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

/// Pictures of `hold` ticks each, and sound.
platform::MediaReport heardMovieOf(size_t count, int64_t hold)
{
    platform::MediaReport movie = movieOf(count, hold);
    movie.duration = ticks(static_cast<int64_t>(count) * hold);
    movie.tracks.push_back(soundEndingAt(30));
    return movie;
}

TEST(MovieCheck, FindsNothingOffWherePicturesAreRepeatedInTheirTime)
{
    EXPECT_THAT(findFaultsOfRepetition(heardMovieOf(60, 5000), heardMovieOf(10, 30000), ticks(5000)), IsEmpty());
    // Parts that differ by a tick.
    platform::MediaReport uneven = heardMovieOf(60, 5000);
    uneven.tracks[0].samples[0].duration = ticks(4999);
    uneven.tracks[0].samples[1].presentationTime = ticks(4999);
    uneven.tracks[0].samples[1].duration = ticks(5001);
    EXPECT_THAT(findFaultsOfRepetition(uneven, heardMovieOf(10, 30000), ticks(5001)), IsEmpty());
    EXPECT_THAT(findFaultsOfRepetition(movieOf(60, 5000), movieOf(10, 30000), ticks(5000)), IsEmpty()) << "no sound";
}

TEST(MovieCheck, NoticesWhatRepeatingHasChanged)
{
    const platform::MediaReport movie = heardMovieOf(10, 30000);
    const struct {
        const char* fault;
        std::function<void(platform::MediaReport&)> change;
    } cases[] = {
        {"picture 1 ", [](auto& repeated) { repeated.tracks[0].samples[2].duration = ticks(5001); }},
        {"picture 2 ", [](auto& repeated) { repeated.tracks[0].samples[7].size = 999; }},
        {"picture 3 ", [](auto& repeated) { repeated.tracks[0].samples[12].presentationTime = ticks(60001); }},
        {"picture 4 ", [](auto& repeated) { repeated.tracks[0].samples[20].isKeyFrame = false; }},
        {"picture 10 ", [](auto& repeated) { repeated.tracks[0].samples.pop_back(); }},
        {"picture 10 ", [](auto& repeated) { repeated.tracks[0].samples.back().duration = ticks(4999); }},
        {"more pictures",
         [](auto& repeated) {
             repeated.tracks[0].samples.push_back({ticks(300000), ticks(5000), 1000, true});
         }},
        {"another form", [](auto& repeated) { repeated.tracks[0].codec = "jpeg"; }},
        {"another form", [](auto& repeated) { repeated.tracks[0].height = 718; }},
        {"another form", [](auto& repeated) { repeated.duration = ticks(300001); }},
        {"another form", [](auto& repeated) { repeated.indexFirst = false; }},
        {"its sound", [](auto& repeated) { repeated.tracks.pop_back(); }},
        {"its sound", [](auto& repeated) { repeated.tracks[1].samples[0].size = 11; }},
        {"its sound", [](auto& repeated) { repeated.tracks[1].samples.clear(); }},
        {"pictures are gone", [](auto& repeated) { repeated.tracks.erase(repeated.tracks.begin()); }},
    };
    for (const auto& each : cases) {
        platform::MediaReport repeated = heardMovieOf(60, 5000);
        each.change(repeated);
        EXPECT_THAT(findFaultsOfRepetition(repeated, movie, ticks(5000)), ElementsAre(HasSubstr(each.fault)));
    }
    EXPECT_THAT(findFaultsOfRepetition(heardMovieOf(30, 10000), movie, ticks(5000)),
                ElementsAre(HasSubstr("picture 1 ")))
        << "too long";
}

} // namespace
