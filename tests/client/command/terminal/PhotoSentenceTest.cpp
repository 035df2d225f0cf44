#include "client/command/terminal/PhotoSentence.h"

#include <gtest/gtest.h>

using namespace stillora;

namespace {

constexpr Size kFrame{1280, 720};

std::vector<PhotoFacts> photos(size_t large, size_t small)
{
    std::vector<PhotoFacts> list(large, PhotoFacts{"/photos/large.jpg", {4000, 3000}, 1000});
    for (size_t i = 1; i <= small; ++i)
        list.push_back({"/photos/small" + std::to_string(i) + ".jpg", {800, 600}, 1000});
    return list;
}

TEST(PhotoSentence, NamesFewSmallPhotos)
{
    EXPECT_EQ(smallPhotosSentence(kFrame, photos(14, 1)),
              "1 of 15 photos is narrower or lower than the frame of 1280 x 720 and stands in black: small1.jpg");
    EXPECT_EQ(smallPhotosSentence(kFrame, photos(0, 1)),
              "1 of 1 photo is narrower or lower than the frame of 1280 x 720 and stands in black: small1.jpg");
    EXPECT_EQ(smallPhotosSentence(kFrame, photos(20, 3)),
              "3 of 23 photos are narrower or lower than the frame of 1280 x 720 and stand in black: small1.jpg, "
              "small2.jpg, small3.jpg");
}

TEST(PhotoSentence, CountsManySmallPhotos)
{
    EXPECT_EQ(smallPhotosSentence(kFrame, photos(20, 4)),
              "4 of 24 photos are narrower or lower than the frame of 1280 x 720 and stand in black");
}

TEST(PhotoSentence, SaysNothingWhereNoneIsSmall)
{
    EXPECT_EQ(smallPhotosSentence(kFrame, photos(20, 0)), "");
    EXPECT_EQ(smallPhotosSentence({320, 240}, photos(1, 5)), "");
}

TEST(PhotoSentence, TellsByWhatPhotosWithoutADateGo)
{
    SortedPhotos sorted{photos(0, 9), {0}};
    EXPECT_EQ(undatedSentence(sorted),
              "1 of 9 photos does not tell when it was taken and goes by the photo before in its folder: small1.jpg");
    sorted.undated = {1, 2};
    EXPECT_EQ(undatedSentence(sorted),
              "2 of 9 photos do not tell when they were taken and go by the photo before in their "
              "folder: small2.jpg, small3.jpg");
    sorted.undated = {1, 2, 3, 4};
    EXPECT_EQ(undatedSentence(sorted),
              "4 of 9 photos do not tell when they were taken and go by the photo before in their folder");
    sorted.undated.clear();
    EXPECT_EQ(undatedSentence(sorted), "");
}

TEST(PhotoSentence, TellsThatAllGoByTheTimesOfTheirFiles)
{
    EXPECT_EQ(undatedSentence({photos(0, 2), {0, 1}}),
              "no photo tells when it was taken; the photos are sorted by the times of their files");
    EXPECT_EQ(undatedSentence({photos(0, 1), {0}}), "") << "one photo is always in order";
}

} // namespace
