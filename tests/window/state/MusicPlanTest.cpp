#include "window/state/MusicPlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stillora;
using namespace stillora::window;
using namespace std::chrono_literals;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Kind = MusicPlan::Piece::Kind;

constexpr SoundID kFirst{1};
constexpr SoundID kSecond{2};

/// Ten photos of four seconds.
MovieWish wishOf(std::vector<Seconds> sounds)
{
    MovieWish wish;
    wish.photos.assign(10, {.path = "/a.jpg", .size = {4000, 3000}});
    wish.timePerPhoto = 4s;
    for (const Seconds length : sounds)
        wish.sounds.push_back({"/a.mp3", std::nullopt, length, 44100});
    return wish;
}

MusicPlan planned(const MovieWish& wish)
{
    return planMusicFor(wish, {kFirst, kSecond});
}

TEST(MusicPlan, TellsOfSilenceAfterMusicThatIsTooShort)
{
    const MusicPlan plan = planned(wishOf({25s}));
    EXPECT_EQ(plan.length, 40s);
    ASSERT_EQ(plan.pieces.size(), 2U);
    EXPECT_EQ(plan.pieces[0].sound, kFirst);
    EXPECT_EQ(plan.pieces[0].end, 25s);
    EXPECT_EQ(plan.pieces[1].kind, Kind::Silence);
    EXPECT_EQ(plan.pieces[1].start, 25s);
    EXPECT_EQ(plan.pieces[1].end, 40s);
    EXPECT_TRUE(plan.offersFit);
    EXPECT_TRUE(plan.offersLoop);
    EXPECT_FALSE(plan.fadeStart);
    EXPECT_THAT(plan.sentence, HasSubstr("ends after 25 seconds, and the last 15 seconds are silent"));
}

TEST(MusicPlan, TellsWhereMusicIsRepeated)
{
    MovieWish wish = wishOf({15s});
    wish.loopsSounds = true;
    const MusicPlan plan = planned(wish);
    std::vector<bool> repeats;
    for (const auto& piece : plan.pieces)
        repeats.push_back(piece.isRepeat);
    EXPECT_THAT(repeats, ElementsAre(false, true, true));
    EXPECT_EQ(plan.pieces.back().end, 40s);
    EXPECT_TRUE(plan.fadeStart);
    EXPECT_FALSE(plan.offersLoop);
    EXPECT_TRUE(plan.offersFit);
    EXPECT_EQ(plan.cutOff, 0s);
    EXPECT_THAT(plan.sentence, HasSubstr("is repeated"));
}

TEST(MusicPlan, TellsWhatIsCutOffAndLeftOut)
{
    const MusicPlan plan = planned(wishOf({60s, 20s}));
    ASSERT_EQ(plan.pieces.size(), 1U);
    EXPECT_EQ(plan.pieces[0].end, 40s);
    EXPECT_EQ(plan.cutOff, 40s);
    EXPECT_THAT(plan.leftOut, ElementsAre(kSecond));
    EXPECT_TRUE(plan.offersFit);
    EXPECT_FALSE(plan.offersLoop);
    EXPECT_THAT(plan.sentence, HasSubstr("would go on for 40 seconds"));
    EXPECT_THAT(plan.sentence, HasSubstr("1 sound is not heard"));
}

TEST(MusicPlan, HasNothingToMendWhereThePicturesFitTheMusic)
{
    MovieWish wish = wishOf({60s});
    wish.fitsMusic = true;
    const MusicPlan plan = planned(wish);
    EXPECT_NEAR(plan.timePerPhoto.count(), 6, 0.01);
    EXPECT_FALSE(plan.offersFit);
    EXPECT_FALSE(plan.offersLoop);
    EXPECT_THAT(plan.sentence, HasSubstr("as long as the music"));
    EXPECT_EQ(plan.fault, "");
}

TEST(MusicPlan, SaysWhyThereIsNone)
{
    MovieWish wish = wishOf({0.001s});
    wish.fitsMusic = true;
    std::optional<MoviePlan> library;
    EXPECT_THAT(planMusicFor(wish, {kFirst}, &library).fault, HasSubstr("out of range"));
    EXPECT_FALSE(library);
    wish.photos.clear();
    EXPECT_EQ(planned(wish).sentence, "");
    EXPECT_EQ(planned(wish).fault, "");
}

TEST(MusicPlan, OfNoMusicIsSilence)
{
    const MusicPlan plan = planned(wishOf({}));
    EXPECT_FALSE(plan.offersFit);
    EXPECT_FALSE(plan.offersLoop);
    EXPECT_THAT(plan.sentence, HasSubstr("without music"));
}

} // namespace
