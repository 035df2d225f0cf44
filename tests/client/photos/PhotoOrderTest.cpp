#include <stillora/Photos.h>

#include "tests/support/EnvironmentVariable.h"

#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using std::chrono::local_days;
using std::chrono::sys_days;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kDay = std::chrono::year(2024) / 5 / 31;

PhotoFacts photo(const std::string& path, std::optional<DateTaken> taken = std::nullopt,
                 std::chrono::seconds modified = 0s)
{
    PhotoFacts facts{path, {4000, 3000}, 1000};
    facts.taken = taken;
    facts.modified = sys_days(kDay) + modified;
    return facts;
}

/// At so much of the day by the clocks there.
DateTaken at(std::chrono::microseconds time, std::optional<std::chrono::minutes> offset = 0min)
{
    return {local_days(kDay) + time, offset};
}

std::vector<std::string> pathsOf(const SortedPhotos& sorted)
{
    std::vector<std::string> paths;
    for (const PhotoFacts& each : sorted.photos)
        paths.push_back(each.path.native());
    return paths;
}

std::vector<std::string> sorted(std::vector<PhotoFacts> photos, PhotoSort sort, bool isReversed = false)
{
    return pathsOf(sortPhotos(std::move(photos), {sort, isReversed}));
}

TEST(PhotoOrder, LeavesPhotosAsTheyWereGiven)
{
    EXPECT_THAT(sorted({photo("b"), photo("c"), photo("a"), photo("c")}, PhotoSort::AsGiven),
                ElementsAre("b", "c", "a", "c"));
    EXPECT_THAT(sorted({photo("b"), photo("c"), photo("a")}, PhotoSort::AsGiven, true), ElementsAre("a", "c", "b"));
    EXPECT_THAT(sorted({}, PhotoSort::ByDate), IsEmpty());
}

TEST(PhotoOrder, SortsByTheNamesWhereverTheFilesLie)
{
    const std::vector<PhotoFacts> photos = {photo("z/img2.jpg"), photo("a/img10.jpg"), photo("b10/img1.jpg"),
                                            photo("b9/img1.jpg")};
    EXPECT_THAT(sorted(photos, PhotoSort::ByName),
                ElementsAre("b9/img1.jpg", "b10/img1.jpg", "z/img2.jpg", "a/img10.jpg"));
    EXPECT_THAT(sorted(photos, PhotoSort::ByName, true),
                ElementsAre("a/img10.jpg", "z/img2.jpg", "b10/img1.jpg", "b9/img1.jpg"));
}

TEST(PhotoOrder, SortsNamesOfAnyBytes)
{
    EXPECT_THAT(sorted({photo("d/\xff\xfe.jpg"), photo("d/a\nb.jpg"), photo("d/a.jpg")}, PhotoSort::ByName),
                ElementsAre("d/a.jpg", "d/a\nb.jpg", "d/\xff\xfe.jpg"));
}

TEST(PhotoOrder, SortsByTheMomentNotByTheClock)
{
    // Three cameras of three zones, within one second.
    const std::vector<PhotoFacts> photos = {photo("a", at(10h + 30ms, 0min)),
                                            photo("b", at(23h + 45min + 10ms, 825min)),
                                            photo("c", at(30min + 20ms, -570min)), photo("d", at(10h, 0min))};
    EXPECT_THAT(sorted(photos, PhotoSort::ByDate), ElementsAre("d", "b", "c", "a"));
    EXPECT_THAT(sorted(photos, PhotoSort::ByDate, true), ElementsAre("a", "c", "b", "d"));
    EXPECT_THAT(sortPhotos(photos, {PhotoSort::ByDate}).undated, IsEmpty());
}

TEST(PhotoOrder, PutsPhotosOfOneMomentInOrderOfFoldersAndNames)
{
    const DateTaken date = at(10h);
    EXPECT_THAT(
        sorted({photo("b/img1.jpg", date), photo("a/img10.jpg", date), photo("a/img9.jpg", date)}, PhotoSort::ByDate),
        ElementsAre("a/img9.jpg", "a/img10.jpg", "b/img1.jpg"));
}

TEST(PhotoOrder, LeavesAnUndatedPhotoBehindTheOneBeforeItInItsFolder)
{
    const SortedPhotos sorted =
        sortPhotos({photo("d/img3.png"), photo("d/img1.jpg", at(12h)), photo("d/img4.jpg", at(9h)),
                    photo("d/img2.jpg", at(10h)), photo("e/img2b.jpg", at(10h + 1s))},
                   {PhotoSort::ByDate});
    EXPECT_THAT(pathsOf(sorted), ElementsAre("d/img4.jpg", "d/img2.jpg", "d/img3.png", "e/img2b.jpg", "d/img1.jpg"));
    EXPECT_THAT(sorted.undated, ElementsAre(2u));
}

TEST(PhotoOrder, PutsAnUndatedPhotoWithNoneBeforeItInFrontOfTheNextOne)
{
    const SortedPhotos sorted = sortPhotos(
        {photo("img3", at(12h)), photo("img1"), photo("img4", at(9h)), photo("img2")}, {PhotoSort::ByDate, true});
    EXPECT_THAT(pathsOf(sorted), ElementsAre("img3", "img2", "img1", "img4"));
    EXPECT_THAT(sorted.undated, ElementsAre(1u, 2u));
}

TEST(PhotoOrder, GoesByTheTimesOfFilesOnlyWhereNoPhotoTellsADate)
{
    const SortedPhotos sorted =
        sortPhotos({photo("a", std::nullopt, 30s), photo("c", std::nullopt, 10s), photo("b", std::nullopt, 10s)},
                   {PhotoSort::ByDate});
    EXPECT_THAT(pathsOf(sorted), ElementsAre("b", "c", "a"));
    EXPECT_EQ(sorted.undated.size(), 3u);
    EXPECT_THAT(pathsOf(sortPhotos({photo("b", std::nullopt, 30s), photo("a", std::nullopt, 90s), photo("c", at(0s))},
                                   {PhotoSort::ByDate})),
                ElementsAre("a", "b", "c"));
}

TEST(PhotoOrder, IsTheSameWhateverTheOrderWas)
{
    std::vector<PhotoFacts> photos;
    for (int i = 0; i < 500; ++i)
        photos.push_back(photo("d/img" + std::to_string(i) + ".jpg",
                               i % 7 == 0 ? std::nullopt : std::optional(at(std::chrono::minutes(i % 50)))));
    const auto once = sorted(photos, PhotoSort::ByDate);
    std::ranges::reverse(photos);
    EXPECT_EQ(sorted(photos, PhotoSort::ByDate), once);
    std::ranges::rotate(photos, photos.begin() + 123);
    EXPECT_EQ(sorted(photos, PhotoSort::ByDate), once);
}

TEST(PhotoOrder, TakesADateWithoutAnOffsetForOneOfThisComputersZone)
{
    const EnvironmentVariable zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    const auto summer = sys_days(kDay) + 10h;
    EXPECT_EQ(momentOf(at(12h, std::nullopt)), summer);
    EXPECT_EQ(momentOf({local_days(std::chrono::year(2024) / 1 / 31) + 12h, std::nullopt}),
              sys_days(std::chrono::year(2024) / 1 / 31) + 11h);
    EXPECT_EQ(momentOf(at(12h, 825min)), sys_days(kDay) - 1h - 45min) << "a date's own offset counts";
}

TEST(PhotoOrder, KnowsATimeThatTheClocksShowedTwiceOrNever)
{
    const EnvironmentVariable zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    const auto autumn = std::chrono::year(2024) / 10 / 27;
    const auto spring = std::chrono::year(2024) / 3 / 31;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(momentOf({local_days(autumn) + 2h + 30min, std::nullopt}), sys_days(autumn) + 30min);
        EXPECT_EQ(momentOf({local_days(autumn) + 3h, std::nullopt}), sys_days(autumn) + 2h);
        EXPECT_EQ(momentOf({local_days(spring) + 2h + 30min, std::nullopt}), sys_days(spring) + 1h + 30min);
    }
}

TEST(PhotoOrder, WritesDatesAsISO8601Does)
{
    EXPECT_EQ(textOfDate(at(9h + 8min + 7s, std::nullopt)), "2024-05-31T09:08:07");
    EXPECT_EQ(textOfDate(at(9h + 8min + 7s + 250ms, 825min)), "2024-05-31T09:08:07.25+13:45");
    EXPECT_EQ(textOfDate(at(1us, -570min)), "2024-05-31T00:00:00.000001-09:30");
    EXPECT_EQ(textOfDate(at(0s, 0min)), "2024-05-31T00:00:00+00:00");
    EXPECT_EQ(textOfDate({local_days(std::chrono::year(1) / 1 / 1), std::nullopt}), "0001-01-01T00:00:00");
}

} // namespace
