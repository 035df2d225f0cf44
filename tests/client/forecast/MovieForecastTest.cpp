#include "client/forecast/MovieForecast.h"

#include "client/forecast/FrameSampling.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPicture.h"

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stillora;

namespace {

/// A photo whose every other one has little to code.
PhotoFacts savedPhoto(const TemporaryFolder& folder, unsigned number)
{
    const auto bytes =
        test::jpegBytes(number % 2 == 0 ? test::textured(640, 360, number) : test::gradient(640, 360), {});
    PhotoFacts facts;
    facts.path = folder.makeFile(fmt::format("{}.jpg", number),
                                 std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    facts.size = {640, 360};
    facts.fileSize = static_cast<int64_t>(bytes.size());
    return facts;
}

MovieRequest requestFor(std::vector<PhotoFacts> photos, std::string codec = "avc1")
{
    MovieWish wish;
    wish.photos = std::move(photos);
    wish.timePerPhoto = Seconds(1);
    MovieRequest request;
    request.plan = *planMovie(wish);
    request.photos = wish.photos;
    request.codec = std::move(codec);
    return request;
}

double bytesOf(const FrameSample& sample)
{
    double bytes = 0;
    for (const FrameCost& cost : sample.costs)
        bytes += cost.bytes;
    return bytes;
}

class Forecast : public testing::Test {
protected:
    std::vector<PhotoFacts> photos(unsigned count) const
    {
        std::vector<PhotoFacts> all;
        for (unsigned i = 0; i < count; ++i)
            all.push_back(savedPhoto(folder_, i));
        return all;
    }

    const TemporaryFolder folder_;
};

TEST_F(Forecast, LooksAtPhotosSpreadOverTheirDetail)
{
    std::vector<PhotoFacts> photos;
    for (int i = 0; i < 12; ++i)
        photos.push_back({fmt::format("{}.jpg", i), {1000, 1000}, (i * 5 % 12 + 1) * 1000});
    const std::vector<size_t> order = samplingOrder(requestFor(photos));
    std::vector<int64_t> sizes;
    for (const size_t photo : order)
        sizes.push_back(photos[photo].fileSize / 1000 - 1);
    // Halves, quarters and eighths of sixteen, of which there are twelve.
    EXPECT_THAT(sizes, testing::ElementsAre(0, 8, 4, 2, 10, 6, 1, 9, 5, 3, 11, 7));
}

TEST_F(Forecast, MakesEveryFrameWhereThereIsTime)
{
    const auto made = sampleFrames(requestFor(photos(6)), Seconds(60));
    EXPECT_EQ(made.madeCount, 6);
    ASSERT_EQ(made.costs.size(), 6);
    EXPECT_GT(made.costs[0].bytes, 3 * made.costs[1].bytes) << "noise takes more than a gradient";
    EXPECT_GT(made.costs[0].seconds, 0);
}

TEST_F(Forecast, ReckonsWithPhotosThatAreMostAlikeWhereTimeIsShort)
{
    for (const char* codec : {"avc1", "jpeg", "apcn"}) {
        const MovieRequest request = requestFor(photos(40), codec);
        const auto all = sampleFrames(request, Seconds(600));
        const auto few = sampleFrames(request, Seconds(0.001));
        ASSERT_EQ(all.madeCount, 40) << codec;
        EXPECT_LE(few.madeCount, 2 * std::max(1U, std::thread::hardware_concurrency())) << codec;
        EXPECT_NEAR(bytesOf(few) / bytesOf(all), 1, 0.2) << codec;
    }
}

TEST_F(Forecast, CountsTheFramesOfAPhotoThatStandsForSeveral)
{
    const auto one = sampleFrames(requestFor(photos(1)), Seconds(60));
    const auto six = sampleFrames(requestFor(photos(6)), Seconds(60));
    // Five frames are sent of one photo; an H.264 frame may be coded with a byte more or less.
    EXPECT_NEAR(one.costs.at(0).bytes, 5 * six.costs.at(0).bytes, 10);
}

TEST_F(Forecast, IsGivenUpWhereTheUserStopsIt)
{
    std::atomic<int> asked{0};
    EXPECT_FALSE(forecastMovie(requestFor(photos(10)), [&] { return ++asked < 3; }));
    EXPECT_LE(asked, 2 + 2 * static_cast<int>(std::max(1U, std::thread::hardware_concurrency())));
}

TEST_F(Forecast, IsNoneWhereNoFrameCanBeMade)
{
    EXPECT_FALSE(forecastMovie(requestFor({{folder_.path("gone.jpg"), {640, 360}, 1000}})));
}

TEST_F(Forecast, CountsWhatSilenceAndTheFileTake)
{
    const MovieRequest request = requestFor(photos(6));
    const auto forecast = forecastMovie(request);
    ASSERT_TRUE(forecast);
    EXPECT_EQ(forecast->sampledPhotos, 6);
    const double besides = forecast->bytes - bytesOf(sampleFrames(request, Seconds(60)));
    // Six seconds of it.
    EXPECT_GT(besides, 1500);
    EXPECT_LT(besides, 6000);
    EXPECT_GT(forecast->time, Seconds(0));
}

} // namespace
