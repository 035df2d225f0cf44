#include "platform/decoders/WebPPixels.h"

#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

using platform::ImageFile;
using platform::WebPPixels;

namespace {

class WebPPixelsTest : public testing::Test {
protected:
    std::vector<uint8_t> encoded(const test::Picture& picture, const std::vector<std::string>& options) const
    {
        test::save(picture, folder_.path("a.png"));
        std::vector<std::string> command = {"ffmpeg", "-loglevel", "error", "-y", "-i", folder_.path("a.png")};
        command.insert(command.end(), options.begin(), options.end());
        command.push_back(folder_.path("a.webp"));
        test::run(command);
        return test::readFile(folder_.path("a.webp"));
    }
    std::vector<uint8_t> photo() const
    {
        return encoded(test::textured(403, 301), {"-c:v", "libwebp", "-quality", "90", "-pix_fmt", "yuv420p"});
    }
    static std::unique_ptr<ImageFile> fileOf(const std::vector<uint8_t>& bytes)
    {
        return ImageFile::withData(bytes, "test.webp", nullptr);
    }

    const TemporaryFolder folder_;
};

TEST_F(WebPPixelsTest, TakesThePlanesOfAPhotoOfOddSides)
{
    const auto drawn = test::gradient(403, 301);
    const auto file = fileOf(encoded(drawn, {"-c:v", "libwebp", "-quality", "95", "-pix_fmt", "yuv420p"}));
    const auto pixels = WebPPixels::inFile(*file);
    ASSERT_TRUE(pixels);
    EXPECT_EQ(pixels->width, 403u);
    EXPECT_EQ(pixels->height, 301u);
    EXPECT_TRUE(pixels->hasFirstRows(*file));
    const auto planes = pixels->read(*file);
    ASSERT_TRUE(planes);
    EXPECT_EQ(planes->width, 404u);
    EXPECT_EQ(planes->height, 302u);
    platform::CGImage image;
    ASSERT_TRUE(scalePlanes(*planes, 403, 301, image));
    double sum = 0;
    for (size_t y = 0; y < 301; ++y)
        for (size_t x = 0; x < 403; ++x)
            for (size_t i = 0; i < 3; ++i)
                sum += std::abs(test::pixel(image, x, y)[i] - drawn.at(x, y)[i]);
    EXPECT_LT(sum / (403.0 * 301 * 3), 2);
}

TEST_F(WebPPixelsTest, LeavesOtherKindsToOthers)
{
    EXPECT_FALSE(WebPPixels::inFile(*fileOf(encoded(test::quadrants(40, 30), {"-c:v", "libwebp", "-lossless", "1"}))));
    const auto opaque = test::quadrants(40, 30);
    test::Picture four{40, 30, 4, {}};
    for (size_t i = 0; i < size_t{40} * 30; ++i) {
        four.samples.insert(four.samples.end(), &opaque.samples[i * 3], &opaque.samples[i * 3] + 3);
        four.samples.push_back(static_cast<uint8_t>(i));
    }
    EXPECT_FALSE(WebPPixels::inFile(*fileOf(encoded(four, {"-c:v", "libwebp", "-pix_fmt", "yuva420p"}))));
    EXPECT_FALSE(WebPPixels::inFile(*fileOf({'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'E', 'B', 'P'})));
    EXPECT_FALSE(WebPPixels::inFile(*fileOf({})));
}

TEST_F(WebPPixelsTest, SeesAFileThatIsCutOff)
{
    const auto whole = photo();
    for (const size_t missing : {size_t{1}, whole.size() / 2}) {
        const auto file = fileOf({whole.begin(), whole.end() - static_cast<ptrdiff_t>(missing)});
        const auto pixels = WebPPixels::inFile(*file);
        ASSERT_TRUE(pixels);
        EXPECT_FALSE(pixels->hasFirstRows(*file)) << missing;
    }
    const auto half = fileOf({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(whole.size() / 2)});
    EXPECT_FALSE(WebPPixels::inFile(*half)->read(*half));
}

TEST_F(WebPPixelsTest, GetsToTheFirstRowsOfLargePicturesOfMuchDetail)
{
    std::minstd_rand random(1);
    test::Picture grain = test::textured(2400, 1800);
    for (uint8_t& sample : grain.samples)
        sample = static_cast<uint8_t>(std::min<unsigned>(sample + random() % 40, 255));
    auto bytes = encoded(grain, {"-c:v", "libwebp", "-quality", "90", "-compression_level", "1"});
    constexpr size_t kFrameTag = 20;
    const size_t firstPartition = (bytes[kFrameTag] | bytes[kFrameTag + 1] << 8 | bytes[kFrameTag + 2] << 16) >> 5;
    ASSERT_GT(firstPartition, 80'000U);
    EXPECT_TRUE(WebPPixels::inFile(*fileOf(bytes))->hasFirstRows(*fileOf(bytes)));
    bytes.resize(firstPartition);
    EXPECT_FALSE(WebPPixels::inFile(*fileOf(bytes))->hasFirstRows(*fileOf(bytes)));
}

TEST_F(WebPPixelsTest, SeesPixelsThatCannotBeDecoded)
{
    // What the first partition claims to be long is longer than the file.
    auto bytes = photo();
    constexpr size_t kFrameTag = 20;
    bytes[kFrameTag + 1] = 0xFF;
    bytes[kFrameTag + 2] = 0xFF;
    const auto file = fileOf(bytes);
    const auto pixels = WebPPixels::inFile(*file);
    EXPECT_TRUE(!pixels || !pixels->hasFirstRows(*file));
}

} // namespace
