#include <stillora/Movie.h>

#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;

std::vector<PhotoFacts> photos(size_t count)
{
    return std::vector<PhotoFacts>(count, PhotoFacts{"/photos/a.jpg", {4000, 3000}, 1000});
}

MovieWish wishOf(size_t photoCount, double seconds)
{
    MovieWish wish;
    wish.photos = photos(photoCount);
    wish.timePerPhoto = Seconds(seconds);
    return wish;
}

SoundFacts sound(double length)
{
    return {"/music/a.mp3", std::nullopt, Seconds(length), 44100};
}

TEST(MoviePlan, ShowsFivePhotosOnceEach)
{
    const auto plan = planMovie(wishOf(5, 3));
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->framesPerPhoto, 1u);
    EXPECT_EQ(plan->timePerFrame.count(), 3);
    EXPECT_EQ(plan->totalVideoDuration.count(), 15);
}

TEST(MoviePlan, RepeatsFewerPhotosSoThatEachStandsForItsTime)
{
    const struct {
        size_t photos;
        size_t framesPerPhoto;
        double secondsPerFrame;
    } rows[] = {{1, 5, 0.8}, {2, 3, 4.0 / 3}, {3, 2, 2}, {4, 2, 2}};
    for (const auto& row : rows) {
        const auto plan = planMovie(wishOf(row.photos, 4));
        ASSERT_TRUE(plan);
        EXPECT_EQ(plan->framesPerPhoto, row.framesPerPhoto) << row.photos;
        EXPECT_GE(plan->frameCount(row.photos), 5u) << row.photos;
        EXPECT_DOUBLE_EQ(plan->timePerFrame.count(), row.secondsPerFrame) << row.photos;
        EXPECT_DOUBLE_EQ(plan->totalVideoDuration.count(), 4.0 * static_cast<double>(row.photos));
    }
}

TEST(MoviePlan, RefusesAMovieWithoutPhotos)
{
    const auto plan = planMovie(wishOf(0, 4));
    ASSERT_FALSE(plan);
    EXPECT_EQ(plan.error().code, ErrorCode::NothingToShow);
}

TEST(MoviePlan, RefusesTimesThatCannotBeShown)
{
    for (const double seconds : {0.0, -1.0, 0.009, 3601.0, std::nan(""), HUGE_VAL}) {
        const auto plan = planMovie(wishOf(5, seconds));
        ASSERT_FALSE(plan) << seconds;
        EXPECT_EQ(plan.error().code, ErrorCode::OutOfRange) << seconds;
    }
    EXPECT_TRUE(planMovie(wishOf(5, kMinTimePerPhoto.count())));
    EXPECT_TRUE(planMovie(wishOf(5, kMaxTimePerPhoto.count())));
}

TEST(MoviePlan, FillsAMovieWithoutMusicWithSilence)
{
    const auto plan = planMovie(wishOf(10, 4));
    ASSERT_TRUE(plan);
    ASSERT_EQ(plan->sounds.size(), 1u);
    EXPECT_FALSE(plan->sounds[0].source);
    EXPECT_GT(plan->sounds[0].length.count(), 40);
    EXPECT_EQ(plan->totalSoundtrackDuration.count(), 40);
    EXPECT_EQ(plan->musicEnd.count(), 0);
    EXPECT_FALSE(plan->fadeStart);
}

TEST(MoviePlan, HasNoSoundWhereSilenceIsNotWanted)
{
    MovieWish wish = wishOf(10, 4);
    wish.fillsSilence = false;
    const auto plan = planMovie(wish);
    ASSERT_TRUE(plan);
    EXPECT_TRUE(plan->sounds.empty());
    EXPECT_EQ(plan->totalSoundtrackDuration.count(), 0);
}

TEST(MoviePlan, FadesMusicThatIsLongerThanThePictures)
{
    MovieWish wish = wishOf(10, 4);
    wish.sounds = {sound(30), sound(30), sound(30)};
    const auto plan = planMovie(wish);
    ASSERT_TRUE(plan);
    ASSERT_EQ(plan->sounds.size(), 2u) << "the third would begin after the end";
    EXPECT_EQ(plan->sounds[1].source, 1u);
    EXPECT_EQ(plan->musicEnd.count(), 40);
    ASSERT_TRUE(plan->fadeStart);
    EXPECT_EQ(plan->fadeStart->count(), 35);
}

TEST(MoviePlan, ConvertsNoMoreOfTheLastPieceThanIsHeard)
{
    MovieWish wish = wishOf(10, 4);
    wish.sounds = {sound(3600)};
    const auto plan = planMovie(wish);
    ASSERT_TRUE(plan);
    ASSERT_TRUE(plan->sounds[0].selection);
    EXPECT_EQ(plan->sounds[0].selection->start.count(), 0);
    EXPECT_GE(plan->sounds[0].selection->end.count(), 40) << "the fade needs sound up to the end";
    EXPECT_LT(plan->sounds[0].selection->end.count(), 42);
}

TEST(MoviePlan, ShortensASelectionFromItsOwnStart)
{
    MovieWish wish = wishOf(10, 4);
    wish.sounds = {{"/music/a.mp3", SoundFacts::Selection{100s, 300s}, 200s, 44100}};
    const auto plan = planMovie(wish);
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->sounds[0].selection->start.count(), 100);
    EXPECT_GE(plan->sounds[0].selection->end.count(), 140);
    EXPECT_LT(plan->sounds[0].selection->end.count(), 142);
}

TEST(MoviePlan, NeverTellsTheServiceOfMoreSoundThanPictures)
{
    // The service would otherwise choose the pieces again; of a movie under five seconds it would leave none.
    for (const double seconds : {0.1, 0.8, 4.0, 30.0})
        for (const double length : {0.5, 3.0, 10.0, 5000.0}) {
            MovieWish wish = wishOf(5, seconds);
            wish.sounds = {sound(length), sound(length)};
            for (const bool loops : {false, true}) {
                wish.loopsSounds = loops;
                const auto plan = planMovie(wish);
                ASSERT_TRUE(plan);
                EXPECT_FALSE(plan->sounds.empty());
                EXPECT_LE(plan->totalSoundtrackDuration, plan->totalVideoDuration);
                Seconds sum{0};
                for (const PlannedSound& piece : plan->sounds)
                    sum += piece.length;
                EXPECT_GE(sum, plan->totalVideoDuration) << "sound reaches the end of the pictures";
            }
        }
}

TEST(MoviePlan, AppendsSilenceWhereTheMusicEndsEarly)
{
    MovieWish wish = wishOf(10, 4);
    wish.sounds = {sound(30)};
    const auto plan = planMovie(wish);
    ASSERT_TRUE(plan);
    ASSERT_EQ(plan->sounds.size(), 2u);
    EXPECT_FALSE(plan->sounds[1].source);
    EXPECT_GE(plan->sounds[1].length.count(), 10);
    EXPECT_EQ(plan->musicEnd.count(), 30);
    EXPECT_FALSE(plan->fadeStart) << "it ends by itself";
}

TEST(MoviePlan, RepeatsTheMusicByItselfWhenLooping)
{
    MovieWish wish = wishOf(10, 4);
    wish.sounds = {sound(7), sound(6)};
    wish.loopsSounds = true;
    const auto plan = planMovie(wish);
    ASSERT_TRUE(plan);
    // They end at 7 13 20 26 33 39 46.
    std::vector<std::optional<size_t>> sources;
    for (const PlannedSound& piece : plan->sounds)
        sources.push_back(piece.source);
    EXPECT_EQ(sources, (std::vector<std::optional<size_t>>{0, 1, 0, 1, 0, 1, 0}));
    EXPECT_EQ(plan->musicEnd.count(), 40);
    EXPECT_EQ(plan->fadeStart, 35s);
    for (const PlannedSound& piece : plan->sounds)
        EXPECT_FALSE(piece.selection) << "whole files, so that each is converted once";
}

TEST(MoviePlan, PlaysEverySoundOfAListThatFits)
{
    for (const double last : {4.9, 5.0}) {
        MovieWish wish = wishOf(15, 1);
        wish.sounds = {sound(5), sound(5), sound(last)};
        const auto plan = planMovie(wish);
        ASSERT_TRUE(plan);
        ASSERT_GE(plan->sounds.size(), 3u);
        for (size_t i = 0; i < 3; ++i)
            EXPECT_EQ(plan->sounds[i].source, i);
        EXPECT_EQ(plan->musicEnd.count(), 10 + last);
        EXPECT_TRUE(plan->leftOut.empty());
    }
}

TEST(MoviePlan, PlaysEverySoundToWhichThePicturesAreFitted)
{
    MovieWish wish = wishOf(10, 4);
    wish.fitsMusic = true;
    wish.sounds = {sound(60), sound(3)};
    const auto plan = planMovie(wish);
    ASSERT_TRUE(plan);
    ASSERT_EQ(plan->sounds.size(), 2u);
    EXPECT_EQ(plan->sounds[1].source, 1u);
    EXPECT_TRUE(plan->leftOut.empty());
}

TEST(MoviePlan, BeginsNoFurtherSoundInTheLastFiveSecondsWhereSoundsOutlastThePictures)
{
    MovieWish wish = wishOf(10, 4);
    wish.sounds = {sound(36), sound(36)};
    const auto plan = planMovie(wish);
    ASSERT_TRUE(plan);
    ASSERT_EQ(plan->sounds.size(), 2u);
    EXPECT_EQ(plan->leftOut, std::vector<size_t>{1});
    EXPECT_FALSE(plan->sounds[1].source) << "silence instead";
    EXPECT_EQ(plan->musicEnd.count(), 36);
}

TEST(MoviePlan, FillsHoursWithOnePieceOfSilenceAgainAndAgain)
{
    MovieWish wish = wishOf(100, 60);
    const auto plan = planMovie(wish);
    ASSERT_TRUE(plan);
    Seconds sum{0};
    for (const PlannedSound& piece : plan->sounds) {
        EXPECT_EQ(piece.length, plan->sounds[0].length) << "one file serves all";
        sum += piece.length;
    }
    EXPECT_GT(plan->sounds.size(), 1u);
    EXPECT_GE(sum, 6000s);
    EXPECT_EQ(plan->soundEnd(), 6000s);
}

TEST(MoviePlan, TellsWhereTheSoundEnds)
{
    MovieWish wish = wishOf(10, 4);
    EXPECT_EQ(planMovie(wish)->soundEnd(), 40s);
    wish.fillsSilence = false;
    EXPECT_EQ(planMovie(wish)->soundEnd(), std::nullopt);
    wish.sounds = {sound(30)};
    EXPECT_EQ(planMovie(wish)->soundEnd(), 30s);
}

TEST(MoviePlan, RefusesToRepeatASoundThousandsOfTimes)
{
    MovieWish wish = wishOf(100, 60);
    wish.sounds = {sound(0.5)};
    wish.loopsSounds = true;
    const auto plan = planMovie(wish);
    ASSERT_FALSE(plan);
    EXPECT_EQ(plan.error().code, ErrorCode::OutOfRange);
}

TEST(MoviePlan, SharesTheMusicAmongThePhotosWhenFitting)
{
    MovieWish wish = wishOf(7, 0);
    wish.sounds = {sound(100), sound(80)};
    wish.fitsMusic = true;
    const auto plan = planMovie(wish);
    ASSERT_TRUE(plan);
    EXPECT_LE(plan->totalVideoDuration.count(), 180);
    EXPECT_GT(plan->totalVideoDuration.count(), 179.9);
    EXPECT_EQ(plan->sounds.size(), 2u) << "no silence";
    EXPECT_TRUE(plan->fadeStart);
    const double ticks = plan->timePerPhoto.count() * 10000;
    EXPECT_NEAR(ticks, std::round(ticks), 1e-6) << "whole ticks of the picture track";
}

Size size(int64_t quality, const std::vector<Size>& sizes)
{
    std::vector<PhotoFacts> list;
    for (const Size& each : sizes)
        list.push_back({"", each, 0});
    return frameSizeForQuality(quality, list);
}

TEST(MoviePlan, ChoosesTheFrameSizeOfTheSmallestPhotoAsTheServiceDoes)
{
    EXPECT_EQ(size(720, {{100, 100}}), (Size{1280, 720}));
    EXPECT_EQ(size(480, {}), (Size{854, 480}));
    EXPECT_EQ(size(kSmallestQuality, {{4000, 3000}, {1000, 2000}}), (Size{854, 480}));
    EXPECT_EQ(size(100, {{1920, 1080}}), (Size{1920, 1080}));
    EXPECT_EQ(size(-1, {{1919, 1080}}), (Size{1280, 720}));
    EXPECT_EQ(size(-1, {{1280, 720}}), (Size{1280, 720}));
    EXPECT_EQ(size(-1, {{10, 10}}), (Size{320, 240}));
    EXPECT_EQ(size(-1, {{9000, 9000}}), (Size{3840, 2160}));
    EXPECT_EQ(size(-1, {}), (Size{3840, 2160}));
    EXPECT_EQ(size(-1, {{3000, 500}, {500, 3000}}), (Size{320, 240})) << "the width of one and the height of the other";
}

TEST(MoviePlan, ChoosesTheFrameSizeThatSuitsMostPhotos)
{
    const auto mixed = [](size_t large, size_t small) {
        std::vector<Size> sizes(large, {3000, 2000});
        sizes.insert(sizes.begin() + static_cast<std::ptrdiff_t>(large / 2), small, {1200, 1600});
        return size(kAutomaticQuality, sizes);
    };
    constexpr Size kForLarge{2560, 1440};
    constexpr Size kForSmall{1920, 1080};
    const struct {
        size_t large;
        size_t small;
        Size size;
    } rows[] = {
        {14, 1, kForLarge}, {15, 0, kForLarge}, {0, 1, kForSmall},  {1, 1, kForSmall},     {2, 1, kForLarge},
        {3, 1, kForLarge},  {2, 2, kForSmall},  {1, 2, kForSmall},  {4, 1, kForLarge},     {7, 2, kForSmall},
        {8, 2, kForLarge},  {12, 3, kForLarge}, {11, 3, kForSmall}, {400, 100, kForLarge}, {399, 101, kForSmall},
    };
    for (const auto& row : rows)
        EXPECT_EQ(mixed(row.large, row.small), row.size) << row.large << " and " << row.small;
    EXPECT_EQ(size(kAutomaticQuality, {}), (Size{3840, 2160}));
    EXPECT_EQ(size(kAutomaticQuality, {{10, 10}}), (Size{320, 240}));
}

TEST(MoviePlan, ChoosesByTheHeightOfUprightPhotosUpToFullHD)
{
    EXPECT_EQ(size(kAutomaticQuality, {{607, 1080}}), (Size{1920, 1080})) << "which a width of 640 would cover at most";
    EXPECT_EQ(size(kAutomaticQuality, {{607, 1079}}), (Size{1280, 720}));
    EXPECT_EQ(size(kAutomaticQuality, {{1080, 1080}}), (Size{1920, 1080})) << "square ones are black at the sides, too";
    EXPECT_EQ(size(kAutomaticQuality, {{1081, 1080}}), (Size{854, 480}));
    EXPECT_EQ(size(kAutomaticQuality, {{1200, 1600}}), (Size{1920, 1080}));
    EXPECT_EQ(size(kAutomaticQuality, {{2559, 9000}}), (Size{1920, 1080})) << "more only where it is covered";
    EXPECT_EQ(size(kAutomaticQuality, {{2560, 9000}}), (Size{2560, 1440}));
    EXPECT_EQ(size(kAutomaticQuality, {{100, 239}}), (Size{320, 240}));
    EXPECT_EQ(size(kSmallestQuality, {{607, 1080}}), (Size{320, 240}));
}

TEST(MoviePlan, ChoosesByEachPhotosOwnSidesNotByTheSmallestOfEach)
{
    EXPECT_EQ(size(kAutomaticQuality, {{3000, 500}, {500, 3000}}), (Size{854, 480}));
    EXPECT_EQ(size(kAutomaticQuality, {{1300, 3000}, {3000, 800}}), (Size{1280, 720}));
}

TEST(MoviePlan, NeverChoosesLessForMostThanForTheSmallest)
{
    // Sides of all kinds, the same in each run.
    uint32_t state = 1;
    const auto side = [&] { return static_cast<double>(100 + ((state = state * 1664525 + 1013904223) >> 16) % 4400); };
    for (size_t count = 1; count <= 40; ++count) {
        std::vector<Size> sizes;
        for (size_t i = 0; i < count; ++i)
            sizes.push_back({side(), side()});
        EXPECT_GE(size(kAutomaticQuality, sizes).height, size(kSmallestQuality, sizes).height) << count;
    }
}

TEST(MoviePlan, NamesThePhotosThatAreSmallerThanTheFrame)
{
    const std::vector<PhotoFacts> list{
        {"", {1280, 720}, 0}, {"", {1279, 720}, 0}, {"", {9000, 719}, 0}, {"", {10, 10}, 0}, {"", {1300, 800}, 0}};
    EXPECT_EQ(photosSmallerThanFrame({1280, 720}, list), (std::vector<size_t>{1, 2, 3}));
    EXPECT_TRUE(photosSmallerThanFrame({320, 240}, {}).empty());
    EXPECT_EQ(photosSmallerThanFrame({320, 240}, {{"", {240, 320}, 0}, {"", {319, 240}, 0}, {"", {10, 10}, 0}}),
              (std::vector<size_t>{1, 2}));
    EXPECT_EQ(
        photosSmallerThanFrame({1920, 1080}, {{"", {1080, 1080}, 0}, {"", {1079, 1079}, 0}, {"", {1081, 1080}, 0}}),
        (std::vector<size_t>{1, 2}))
        << "an upright or square photo is black at its sides in any frame";
    EXPECT_EQ(photosSmallerThanFrame({2560, 1440}, {{"", {1440, 1440}, 0}, {"", {2560, 3000}, 0}}),
              (std::vector<size_t>{0}));
}

} // namespace
