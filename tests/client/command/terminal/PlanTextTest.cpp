#include "client/command/terminal/PlanText.h"

#include <utility>

#include <gtest/gtest.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;

MovieRequest request(int64_t quality, std::vector<SoundFacts> sounds = {}, bool loops = false)
{
    MovieWish wish;
    wish.photos = {{"/photos/b.jpg", {1300, 800}, 1000},
                   {"/photos/a.jpg", {1300, 800}, 1000},
                   {"/photos/line\nbreak.jpg", {640, 480}, 1000}};
    wish.timePerPhoto = 20s;
    wish.sounds = std::move(sounds);
    wish.loopsSounds = loops;
    wish.fillsSilence = false;
    return {.photos = wish.photos,
            .sounds = wish.sounds,
            .plan = *planMovie(wish),
            .quality = quality,
            .title = "Rome",
            .saveFolder = {}};
}

TEST(PlanText, TellsLengthHeightSoundAndOrder)
{
    EXPECT_EQ(planText(request(kAutomaticQuality)), "Rome: 3 photos of 20 s, 1 min\n"
                                                    "1280 x 720: suits 2 of 3 photos\n"
                                                    "sound: none\n"
                                                    "   1  /photos/b.jpg\n"
                                                    "   2  /photos/a.jpg\n"
                                                    "   3  /photos/line?break.jpg\n");
}

TEST(PlanText, SaysWhyTheMovieIsAsHighAsItIs)
{
    EXPECT_NE(planText(request(kSmallestQuality)).find("\n640 x 360: the largest that the smallest photo covers\n"),
              std::string::npos);
    EXPECT_NE(planText(request(240)).find("\n320 x 240: as asked for\n"), std::string::npos);
    MovieRequest even = request(kAutomaticQuality);
    even.photos.pop_back();
    EXPECT_NE(planText(even).find("\n1280 x 720: suits every photo\n"), std::string::npos);
}

TEST(PlanText, TellsWhereTheMusicIsRepeatedAndFades)
{
    const SoundFacts song{"/music/song.mp3", std::nullopt, 25s, 44100};
    EXPECT_NE(planText(request(240, {song}, true))
                  .find("\nsound: song.mp3 for 0:25, repeated to the end; it fades from 0:55 to 1:00\n"),
              std::string::npos);
}

} // namespace
