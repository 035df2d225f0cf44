#include "platform/decoders/CGImageSource.h"

#include "platform/pixels/ImageScaler.h"
#include "tests/support/TestHEIF.h"
#include "tests/support/TestPicture.h"
#include "tests/support/TestProfiles.h"
#include "tests/support/TestTags.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

using platform::CGImage;
using platform::CGImagePtr;
using platform::CGImageSource;
using platform::NSError;
using test::Color;
using test::JPEGOptions;
using test::kBlue;
using test::kGreen;
using test::kRed;
using test::kWhite;

namespace {

// Quantisation of a good JPEG, HEIC or AVIF file and its colour conversion, in the middle of flat areas.
constexpr int kLossy = 4;
// Conversion and scaling round once each.
constexpr int kLossless = 2;

CGImagePtr thumbnail(const std::string& path, std::optional<double> bound = {}, bool isUpright = true,
                     NSError* error = nullptr)
{
    const auto source = CGImageSource::createWithURL(test::url(path), error);
    return source ? source->createThumbnailAtIndex({bound, isUpright}, error) : nullptr;
}

std::optional<CGImageSource::Properties> properties(const std::string& path, NSError* error = nullptr)
{
    const auto source = CGImageSource::createWithURL(test::url(path), error);
    return source ? source->copyPropertiesAtIndex(error) : std::nullopt;
}

/// The colours in the middle of the four quarters: upper left, upper right, lower left, lower right.
void expectQuadrants(const CGImagePtr& image, const std::array<Color, 4>& expected, int tolerance,
                     const std::string& what)
{
    ASSERT_NE(image, nullptr) << what;
    for (size_t i = 0; i < 4; ++i)
        test::expectColor(*image, image->width * (1 + 2 * (i % 2)) / 4, image->height * (1 + 2 * (i / 2)) / 4,
                          expected[i], tolerance, what);
}

constexpr std::array<Color, 4> kUpright = {kRed, kGreen, kBlue, kWhite};

void expectSize(const CGImagePtr& image, size_t width, size_t height, const std::string& what = {})
{
    ASSERT_NE(image, nullptr) << what;
    EXPECT_EQ(image->width, width) << what;
    EXPECT_EQ(image->height, height) << what;
}

/// The mean distance of all components from the gradient drawn at this size.
double distanceFromGradient(const CGImage& image)
{
    const test::Picture expected = test::gradient(image.width, image.height);
    double sum = 0;
    for (size_t y = 0; y < image.height; ++y)
        for (size_t x = 0; x < image.width; ++x)
            for (size_t i = 0; i < 3; ++i)
                sum += std::abs(test::pixel(image, x, y)[i] - expected.at(x, y)[i]);
    return sum / static_cast<double>(image.width * image.height * 3);
}

class CGImageSourceTest : public testing::Test {
protected:
    std::string file(const std::string& name, const std::vector<uint8_t>& bytes) const
    {
        test::writeFile(folder_.path(name), bytes);
        return folder_.path(name);
    }
    std::string saved(const std::string& name, const test::Picture& picture, int bits = 8,
                      const std::vector<uint8_t>& colorProfile = {}) const
    {
        test::save(picture, folder_.path(name), bits, colorProfile);
        return folder_.path(name);
    }
    /// A picture in another program's file format.
    std::string converted(const std::string& name, const test::Picture& picture,
                          const std::vector<std::string>& options = {}) const
    {
        std::vector<std::string> command = {"ffmpeg", "-loglevel", "error", "-y", "-i", saved("from.png", picture)};
        command.insert(command.end(), options.begin(), options.end());
        command.push_back(folder_.path(name));
        test::run(command);
        return folder_.path(name);
    }

    const TemporaryFolder folder_;
};

} // namespace

// Formats

TEST_F(CGImageSourceTest, DecodesJPEGOfEachSampling)
{
    using Sampling = JPEGOptions::Sampling;
    const std::vector<std::pair<std::string, Sampling>> rows = {{"full", Sampling::Full},
                                                                {"half width", Sampling::HalfWidth},
                                                                {"half both", Sampling::HalfBoth},
                                                                {"half height", Sampling::HalfHeight},
                                                                {"quarter width", Sampling::QuarterWidth}};
    for (const auto& [name, sampling] : rows)
        for (const bool isProgressive : {false, true}) {
            const JPEGOptions options{.sampling = sampling, .isProgressive = isProgressive};
            const auto path = file("a.jpg", test::jpegBytes(test::quadrants(403, 301), options));
            const auto found = properties(path);
            ASSERT_TRUE(found) << name;
            EXPECT_EQ(found->format, "jpeg");
            EXPECT_EQ(found->pixelWidth, 403u);
            EXPECT_EQ(found->pixelHeight, 301u);
            EXPECT_EQ(found->orientation, std::nullopt);
            for (const double bound : {403.0, 201.0, 100.0, 37.0})
                expectQuadrants(thumbnail(path, bound), kUpright, kLossy, name + " at " + std::to_string(bound));
        }
}

TEST_F(CGImageSourceTest, KeepsAGradientInItsPlaceAtEverySizeAndSampling)
{
    using Sampling = JPEGOptions::Sampling;
    for (const auto sampling : {Sampling::Full, Sampling::HalfWidth, Sampling::HalfBoth, Sampling::HalfHeight})
        for (const auto& [width, height] : {std::pair<size_t, size_t>{801, 603}, {602, 801}}) {
            const auto path = file("a.jpg", test::jpegBytes(test::gradient(width, height), {.sampling = sampling}));
            for (const double bound : {801.0, 800.0, 533.0, 401.0, 400.0, 200.0, 101.0, 64.0, 20.0}) {
                const auto image = thumbnail(path, bound);
                ASSERT_NE(image, nullptr);
                // Half a pixel's shift at the smallest size would be more than two steps.
                EXPECT_LT(distanceFromGradient(*image), 1.0) << width << " at " << bound;
            }
        }
}

TEST_F(CGImageSourceTest, DecodesGreyJPEG)
{
    test::Picture picture{200, 100, 1, std::vector<uint8_t>(200 * 100, 30)};
    for (size_t y = 0; y < 100; ++y)
        std::fill_n(picture.at(100, y), 100, uint8_t{200});
    const auto image = thumbnail(file("a.jpg", test::jpegBytes(picture)), 100);
    expectSize(image, 100, 50);
    test::expectColor(*image, 20, 25, {30, 30, 30}, kLossless);
    test::expectColor(*image, 80, 25, {200, 200, 200}, kLossless);
}

TEST_F(CGImageSourceTest, DecodesJPEGOfFourInks)
{
    // Stored upside down: 255 is no ink. Left cyan, right half black.
    test::Picture picture{200, 100, 4, std::vector<uint8_t>(200 * 100 * 4, 255)};
    for (size_t y = 0; y < 100; ++y)
        for (size_t x = 0; x < 200; ++x)
            picture.at(x, y)[x < 100 ? 0 : 3] = x < 100 ? 0 : 128;
    const auto image = thumbnail(file("a.jpg", test::inkJPEGBytes(picture)), 100);
    expectSize(image, 100, 50);
    EXPECT_FALSE(image->hasAlpha);
    test::expectColor(*image, 20, 25, {0, 255, 255}, kLossy);
    test::expectColor(*image, 80, 25, {128, 128, 128}, kLossy);
}

TEST_F(CGImageSourceTest, DecodesJPEGOfSamplingsWithoutAName)
{
    // Every component sampled two by two is a picture of full sampling said in a roundabout way.
    auto bytes = test::jpegBytes(test::quadrants(160, 96), {.sampling = JPEGOptions::Sampling::Full});
    const std::array<uint8_t, 2> frameHeader = {0xFF, 0xC0};
    const auto header = std::search(bytes.begin(), bytes.end(), frameHeader.begin(), frameHeader.end());
    ASSERT_NE(header, bytes.end());
    // Three luminance blocks in a row for one of each colour: decoded as what it claims, if not as it was meant.
    header[11] = 0x31;
    const auto path = file("a.jpg", bytes);
    expectSize(thumbnail(path, 80), 80, 48);
}

TEST_F(CGImageSourceTest, DecodesPNG)
{
    expectQuadrants(thumbnail(saved("a.png", test::quadrants(403, 301)), 200), kUpright, kLossless, "8 bit");
    expectQuadrants(thumbnail(saved("b.png", test::quadrants(403, 301), 16), 200), kUpright, kLossless, "16 bit");
    test::save(test::quadrants(403, 301), folder_.path("c.png[palette]"));
    // The palette's maker rounds by itself.
    expectQuadrants(thumbnail(folder_.path("c.png"), 200), kUpright, kLossy, "palette");
    EXPECT_EQ(properties(folder_.path("c.png"))->format, "png");
}

TEST_F(CGImageSourceTest, DecodesGreyPNGOfOneBit)
{
    test::Picture picture{64, 64, 1, std::vector<uint8_t>(64 * 64, 0)};
    for (size_t y = 0; y < 64; ++y)
        std::fill_n(picture.at(32, y), 32, uint8_t{255});
    test::save(picture, folder_.path("a.png[bitdepth=1]"));
    const auto image = thumbnail(folder_.path("a.png"));
    ASSERT_NE(image, nullptr);
    test::expectColor(*image, 10, 30, {0, 0, 0}, 0);
    test::expectColor(*image, 50, 30, {255, 255, 255}, 0);
}

TEST_F(CGImageSourceTest, KeepsTransparencyMultipliedIntoTheColours)
{
    for (const int bits : {8, 16}) {
        test::Picture picture{80, 60, 4, std::vector<uint8_t>(80 * 60 * 4)};
        for (size_t y = 0; y < 60; ++y)
            for (size_t x = 0; x < 80; ++x)
                std::ranges::copy(std::array<uint8_t, 4>{200, 100, 40, static_cast<uint8_t>(x < 40 ? 255 : 51)},
                                  picture.at(x, y));
        const auto image = thumbnail(saved("a.png", picture, bits), 40);
        ASSERT_NE(image, nullptr);
        EXPECT_TRUE(image->hasAlpha);
        test::expectColor(*image, 10, 15, {200, 100, 40}, kLossless);
        test::expectColor(*image, 30, 15, {40, 20, 8}, kLossless);
        EXPECT_NEAR(image->row(15)[4 * 30], 51, 1);
    }
    test::Picture grey{80, 60, 2, std::vector<uint8_t>(80 * 60 * 2, 128)};
    const auto image = thumbnail(saved("b.png", grey), 40);
    ASSERT_NE(image, nullptr);
    EXPECT_TRUE(image->hasAlpha);
    test::expectColor(*image, 10, 15, {64, 64, 64}, kLossless);
}

TEST_F(CGImageSourceTest, DecodesWebP)
{
    const auto path = saved("a.webp", test::quadrants(403, 301));
    EXPECT_EQ(properties(path)->format, "webp");
    expectQuadrants(thumbnail(path, 200), kUpright, 2 * kLossy, "WebP");
}

TEST_F(CGImageSourceTest, DecodesTIFF)
{
    expectQuadrants(thumbnail(saved("a.tiff", test::quadrants(403, 301)), 200), kUpright, kLossless, "8 bit");
    expectQuadrants(thumbnail(saved("b.tiff", test::quadrants(403, 301), 16), 200), kUpright, kLossless, "16 bit");
    test::save(test::quadrants(403, 301), folder_.path("c.tiff[tile,compression=deflate]"));
    expectQuadrants(thumbnail(folder_.path("c.tiff"), 200), kUpright, kLossless, "tiles");
    EXPECT_EQ(properties(folder_.path("c.tiff"))->format, "tiff");
}

/// A TIFF file of 32 x 32 grey samples of 16 bits, all 0x4000, and what kind of numbers it says they are.
std::vector<uint8_t> greyTIFF(uint16_t sampleFormat)
{
    constexpr uint16_t kEdge = 32;
    std::vector<uint8_t> bytes;
    const auto put = [&](uint32_t value, int count) {
        for (int i = 0; i < count; ++i)
            bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    };
    const std::array<std::array<uint32_t, 2>, 10> entries{{{256, kEdge},
                                                           {257, kEdge},
                                                           {258, 16},
                                                           {259, 1},
                                                           {262, 1},
                                                           {273, 8 + 2 + 10 * 12 + 4},
                                                           {277, 1},
                                                           {278, kEdge},
                                                           {279, kEdge * kEdge * 2},
                                                           {339, sampleFormat}}};
    put('I' | 'I' << 8, 2);
    put(42, 2);
    put(8, 4);
    put(entries.size(), 2);
    for (const auto& [tag, value] : entries) {
        put(tag, 2);
        put(3, 2);
        put(1, 4);
        put(value, 4);
    }
    put(0, 4);
    for (int i = 0; i < kEdge * kEdge; ++i)
        put(0x4000, 2);
    return bytes;
}

TEST_F(CGImageSourceTest, RefusesTIFFOfNumbersWithASign)
{
    const auto write = [&](const std::string& name, uint16_t sampleFormat) {
        const std::vector<uint8_t> bytes = greyTIFF(sampleFormat);
        std::ofstream(folder_.path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return folder_.path(name);
    };
    const auto plain = thumbnail(write("whole.tiff", 1));
    ASSERT_NE(plain, nullptr);
    test::expectColor(*plain, 16, 16, {64, 64, 64}, kLossless);
    NSError error;
    EXPECT_EQ(thumbnail(write("signed.tiff", 2), {}, true, &error), nullptr);
    EXPECT_NE(error.localizedDescription.find("signed.tiff"), std::string::npos) << error.localizedDescription;
}

TEST_F(CGImageSourceTest, DecodesTheFirstPictureOfAGIF)
{
    test::save(test::quadrants(200, 150), folder_.path("first.png"));
    test::save(test::plain(200, 150, kWhite), folder_.path("second.png"));
    test::run({"ffmpeg", "-loglevel", "error", "-y", "-i", folder_.path("first.png"), "-i", folder_.path("second.png"),
               "-filter_complex", "[0][1]concat=n=2", folder_.path("a.gif")});
    EXPECT_EQ(properties(folder_.path("a.gif"))->format, "gif");
    EXPECT_EQ(properties(folder_.path("a.gif"))->pixelHeight, 150u);
    // A general palette: its nearest colours.
    expectQuadrants(thumbnail(folder_.path("a.gif"), 100), kUpright, 24, "GIF");
}

TEST_F(CGImageSourceTest, DecodesBMP)
{
    const std::vector<std::pair<std::string, int>> rows = {// With fewer bits, the nearest colours that there are.
                                                           {"bgr24", kLossless},
                                                           {"bgra", kLossless},
                                                           {"rgb555le", 8},
                                                           {"pal8", 20}};
    for (const auto& [format, tolerance] : rows) {
        const auto path = converted(format + ".bmp", test::quadrants(403, 301), {"-pix_fmt", format});
        const auto found = properties(path);
        ASSERT_TRUE(found) << format;
        EXPECT_EQ(found->format, "bmp");
        EXPECT_EQ(found->pixelWidth, 403u);
        EXPECT_EQ(found->pixelHeight, 301u);
        expectQuadrants(thumbnail(path, 200), kUpright, tolerance, format);
    }
}

TEST_F(CGImageSourceTest, DecodesJPEG2000)
{
    // Brightness of the four colours by the usual weights.
    constexpr std::array<Color, 4> kGreys = {{{88, 88, 88}, {124, 124, 124}, {73, 73, 73}, {230, 230, 230}}};
    struct Row {
        std::string format;
        std::array<Color, 4> expected;
        int tolerance;
    };
    // The writer of these files is coarse at 16 bits, and stores brightness and colour in a narrow range without
    // saying so.
    const std::vector<Row> rows = {{"rgb24", kUpright, 6}, {"gray16le", kGreys, 14}, {"yuv444p", kUpright, 40}};
    for (const auto& [format, expected, tolerance] : rows) {
        const auto path = converted(format + ".jp2", test::quadrants(403, 301),
                                    {"-c:v", "jpeg2000", "-pred", "dwt53", "-pix_fmt", format});
        const auto found = properties(path);
        ASSERT_TRUE(found) << format;
        EXPECT_EQ(found->format, "jp2");
        EXPECT_EQ(found->pixelWidth, 403u);
        for (const double bound : {403.0, 200.0, 90.0, 30.0})
            expectQuadrants(thumbnail(path, bound), expected, tolerance, format + " at " + std::to_string(bound));
    }
}

TEST_F(CGImageSourceTest, DecodesJPEG2000OfFewLevels)
{
    // Halved as often as others, a decoder refuses it.
    for (const std::string levels : {"1", "2", "3"}) {
        const auto path = converted("a.jp2", test::quadrants(403, 301),
                                    {"-c:v", "libopenjpeg", "-numresolution", levels, "-pix_fmt", "rgb24"});
        NSError error;
        const auto source = CGImageSource::createWithURL(test::url(path));
        ASSERT_NE(source, nullptr);
        EXPECT_TRUE(source->canDecode(&error)) << levels;
        for (const double bound : {403.0, 200.0, 90.0, 30.0})
            expectQuadrants(thumbnail(path, bound, true, &error), kUpright, 8, levels + " at " + std::to_string(bound));
        EXPECT_EQ(error, NSError()) << "written only on failure";
    }
}

TEST_F(CGImageSourceTest, WritesNothingToStandardErrorOfOddFiles)
{
    const auto jp2 = test::readFile(converted("a.jp2", test::textured(403, 301)));
    const auto bmp = test::readFile(converted("a.bmp", test::textured(403, 301)));
    testing::internal::CaptureStderr();
    for (const auto& [name, whole] : {std::pair{"b.jp2", jp2}, {"b.bmp", bmp}})
        for (const size_t length : {whole.size(), whole.size() / 2, size_t{200}}) {
            auto bytes = whole;
            bytes.resize(length);
            for (const double bound : {403.0, 30.0})
                (void)thumbnail(file(name, bytes), bound);
        }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(CGImageSourceTest, DecodesTIFFOfColorDifferences)
{
    // JPEG inside, which two libraries write with differences of their own, and plain ones of every density.
    test::save(test::quadrants(400, 300), folder_.path("jpeg.tiff[compression=jpeg,Q=75]"));
    test::save(test::quadrants(400, 300), folder_.path("tiles.tiff[compression=jpeg,Q=75,tile]"));
    for (const std::string name : {"jpeg.tiff", "tiles.tiff"})
        expectQuadrants(thumbnail(folder_.path(name), 200), kUpright, kLossy, name);
    for (const std::string format : {"yuv444p", "yuv420p"})
        for (const std::string compression : {"raw", "lzw", "deflate"}) {
            const auto path = converted(format + compression + ".tif", test::quadrants(400, 300),
                                        {"-pix_fmt", format, "-compression_algo", compression});
            const auto found = properties(path);
            ASSERT_TRUE(found);
            EXPECT_EQ(found->format, "tiff");
            EXPECT_EQ(found->pixelWidth, 400u);
            EXPECT_EQ(found->pixelHeight, 300u);
            expectQuadrants(thumbnail(path, 200), kUpright, 8, format + " " + compression);
        }
}

TEST_F(CGImageSourceTest, ShowsTIFFOfDamagedColorDifferencesOrRefusesIt)
{
    const auto whole = test::readFile(converted("a.tif", test::quadrants(120, 90), {"-pix_fmt", "yuv420p"}));
    std::minstd_rand random(5);
    size_t shown = 0;
    for (int round = 0; round < 200; ++round) {
        auto bytes = whole;
        // The directory stands at the end of these files.
        for (unsigned i = 0; i < 1 + random() % 4; ++i)
            bytes[bytes.size() - 1 - random() % 400] = static_cast<uint8_t>(random());
        const auto path = file("b.tif", bytes);
        const auto source = CGImageSource::createWithURL(test::url(path));
        ASSERT_NE(source, nullptr);
        const bool canDecode = source->canDecode();
        for (const double bound : {20.0, 60.0, 400.0})
            EXPECT_EQ(thumbnail(path, bound) != nullptr, canDecode) << round;
        shown += canDecode;
    }
    EXPECT_GT(shown, 20u);
    EXPECT_LT(shown, 200u);
}

TEST_F(CGImageSourceTest, DecodesHEIC)
{
    const auto path = file("a.heic", test::heifBytes({test::quadrants(400, 300)}));
    EXPECT_EQ(properties(path)->format, "heic");
    expectQuadrants(thumbnail(path, 200), kUpright, kLossy, "HEIC");
}

TEST_F(CGImageSourceTest, DecodesHEICOfTenBits)
{
    test::save(test::quadrants(400, 300), folder_.path("a.png"), 16);
    test::run({"heif-enc", "-q", "95", "-b", "10", folder_.path("a.png"), "-o", folder_.path("a.heic")});
    expectQuadrants(thumbnail(folder_.path("a.heic"), 200), kUpright, kLossy, "ten bits");
}

TEST_F(CGImageSourceTest, DecodesHEICOfTilesThatReachOverTheEdge)
{
    const test::Picture whole = test::gradient(512, 384);
    std::vector<test::Picture> tiles;
    for (size_t row = 0; row < 3; ++row)
        for (size_t column = 0; column < 4; ++column)
            tiles.push_back(test::cropped(whole, column * 128, row * 128, 128, 128));
    const auto path = file("a.heic", test::heifBytes(tiles, {.columns = 4, .rows = 3}));
    const auto image = thumbnail(path, 256);
    expectSize(image, 256, 192);
    EXPECT_LT(distanceFromGradient(*image), 1.5);

    const auto cut = file("b.heic", test::heifBytes(tiles, {.columns = 4, .rows = 3, .width = 450, .height = 300}));
    EXPECT_EQ(properties(cut)->pixelWidth, 450u);
    expectSize(thumbnail(cut), 450, 300);
}

TEST_F(CGImageSourceTest, AppliesTheRotationOfAHEICOnceAndOnlyOnce)
{
    const auto path = file("a.heic", test::heifBytes({test::quadrants(400, 300)}, {.quarterTurns = 1}));
    const auto found = properties(path);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->pixelWidth, 300u);
    EXPECT_EQ(found->pixelHeight, 400u);
    EXPECT_EQ(found->orientation, std::nullopt);
    for (const bool isUpright : {false, true}) {
        const auto image = thumbnail(path, 200, isUpright);
        expectSize(image, 150, 200);
        expectQuadrants(image, {kGreen, kWhite, kRed, kBlue}, kLossy, "a quarter to the left");
    }
    const auto half = file("b.heic", test::heifBytes({test::quadrants(400, 300)}, {.quarterTurns = 2}));
    expectQuadrants(thumbnail(half), {kWhite, kBlue, kGreen, kRed}, kLossy, "half");
}

TEST_F(CGImageSourceTest, TurnsAHEICOfTiles)
{
    const test::Picture whole = test::quadrants(256, 128);
    const auto path =
        file("a.heic", test::heifBytes({test::cropped(whole, 0, 0, 128, 128), test::cropped(whole, 128, 0, 128, 128)},
                                       {.columns = 2, .quarterTurns = 3}));
    const auto image = thumbnail(path);
    expectSize(image, 128, 256);
    expectQuadrants(image, {kBlue, kRed, kWhite, kGreen}, kLossy, "a quarter to the right");
}

TEST_F(CGImageSourceTest, DecodesAVIF)
{
    test::save(test::quadrants(403, 301), folder_.path("a.png"));
    test::run({"heif-enc", "-A", "-q", "90", folder_.path("a.png"), "-o", folder_.path("a.avif")});
    EXPECT_EQ(properties(folder_.path("a.avif"))->format, "avif");
    expectQuadrants(thumbnail(folder_.path("a.avif"), 200), kUpright, 2 * kLossy, "AVIF");
}

TEST_F(CGImageSourceTest, GoesByContentNotByName)
{
    expectQuadrants(thumbnail(file("a.png", test::jpegBytes(test::quadrants(64, 64)))), kUpright, kLossy, "JPEG");
    test::save(test::quadrants(40, 30), folder_.path("b.png"));
    std::filesystem::rename(folder_.path("b.png"), folder_.path("noextension"));
    expectQuadrants(thumbnail(folder_.path("noextension")), kUpright, kLossless, "PNG");
}

// Orientation

TEST_F(CGImageSourceTest, TurnsAPictureUprightByEachOfTheEightOrientations)
{
    const std::array<std::array<Color, 4>, 8> expected = {{{kRed, kGreen, kBlue, kWhite},
                                                           {kGreen, kRed, kWhite, kBlue},
                                                           {kWhite, kBlue, kGreen, kRed},
                                                           {kBlue, kWhite, kRed, kGreen},
                                                           {kRed, kBlue, kGreen, kWhite},
                                                           {kBlue, kRed, kWhite, kGreen},
                                                           {kWhite, kGreen, kBlue, kRed},
                                                           {kGreen, kWhite, kRed, kBlue}}};
    for (int orientation = 1; orientation <= 8; ++orientation) {
        const auto path = file("a.jpg", test::jpegBytes(test::quadrants(400, 296), {.orientation = orientation}));
        const std::string what = "orientation " + std::to_string(orientation);
        const auto found = properties(path);
        ASSERT_TRUE(found);
        EXPECT_EQ(found->orientation, orientation);
        EXPECT_EQ(found->pixelWidth, 400u) << "as stored";
        const auto image = thumbnail(path, 200);
        expectSize(image, orientation < 5 ? 200 : 148, orientation < 5 ? 148 : 200, what);
        expectQuadrants(image, expected[static_cast<size_t>(orientation - 1)], kLossy, what);
        const auto asStored = thumbnail(path, 200, false);
        expectSize(asStored, 200, 148, what);
        expectQuadrants(asStored, kUpright, kLossy, what + " as stored");
    }
}

TEST_F(CGImageSourceTest, TurnsOddSizesWithoutLosingAPixel)
{
    for (int orientation = 5; orientation <= 8; ++orientation) {
        const auto path = file("a.jpg", test::jpegBytes(test::quadrants(37, 19), {.orientation = orientation}));
        expectSize(thumbnail(path), 19, 37);
    }
}

TEST_F(CGImageSourceTest, KeepsAPictureOfAnUnknownOrientationAsItIs)
{
    const auto path = file("a.jpg", test::jpegBytes(test::quadrants(64, 64), {.orientation = 9}));
    EXPECT_EQ(properties(path)->orientation, std::nullopt);
    expectQuadrants(thumbnail(path), kUpright, kLossy, "9");
}

TEST_F(CGImageSourceTest, ReadsTheOrientationThatAnotherProgramWrote)
{
    for (const std::string name : {"a.jpg", "a.png", "a.webp", "a.tiff"}) {
        if (name == "a.jpg")
            file(name, test::jpegBytes(test::quadrants(40, 30)));
        else
            saved(name, test::quadrants(40, 30));
        test::run({"exiftool", "-q", "-overwrite_original", "-n", "-Orientation=6", folder_.path(name)});
        EXPECT_EQ(properties(folder_.path(name))->orientation, 6) << name;
        const auto image = thumbnail(folder_.path(name));
        expectSize(image, 30, 40, name);
        expectQuadrants(image, {kBlue, kRed, kWhite, kGreen}, 2 * kLossy, name);
    }
}

// Sizes

TEST_F(CGImageSourceTest, NeverEnlarges)
{
    const auto path = file("a.jpg", test::jpegBytes(test::quadrants(64, 48)));
    expectSize(thumbnail(path, 1000), 64, 48);
    expectSize(thumbnail(path), 64, 48);
}

TEST_F(CGImageSourceTest, DecodesPicturesOfOnePixel)
{
    for (const std::string name : {"a.png", "a.tiff", "a.gif"}) {
        const auto image = thumbnail(saved(name, test::plain(1, 1, kGreen)), 100);
        expectSize(image, 1, 1, name);
        test::expectColor(*image, 0, 0, kGreen, kLossless, name);
    }
    const auto image = thumbnail(file("a.jpg", test::jpegBytes(test::plain(1, 1, kGreen))), 100);
    expectSize(image, 1, 1);
    test::expectColor(*image, 0, 0, kGreen, kLossy);
    const auto bmp = thumbnail(converted("a.bmp", test::plain(1, 1, kGreen), {"-pix_fmt", "bgr24"}));
    expectSize(bmp, 1, 1);
    test::expectColor(*bmp, 0, 0, kGreen, kLossless);
}

TEST_F(CGImageSourceTest, DecodesPicturesOfExtremeShape)
{
    for (const auto& [width, height] : {std::pair<size_t, size_t>{12000, 3}, {3, 12000}, {9001, 1}, {1, 9001}}) {
        const auto jpeg = thumbnail(file("a.jpg", test::jpegBytes(test::plain(width, height, kBlue))), 1280);
        expectSize(jpeg, width > height ? 1280 : 1, width > height ? 1 : 1280);
        test::expectColor(*jpeg, jpeg->width / 2, jpeg->height / 2, kBlue, kLossy);
        const auto png = thumbnail(saved("a.png", test::plain(width, height, kBlue)), 1280);
        expectSize(png, width > height ? 1280 : 1, width > height ? 1 : 1280);
        test::expectColor(*png, png->width / 2, png->height / 2, kBlue, kLossless);
    }
}

TEST_F(CGImageSourceTest, MayBeAskedAgain)
{
    for (const std::string name : {"a.png", "a.webp"}) {
        const auto source = CGImageSource::createWithURL(test::url(saved(name, test::quadrants(80, 60))));
        ASSERT_NE(source, nullptr);
        for (int round = 0; round < 2; ++round)
            expectQuadrants(source->createThumbnailAtIndex({40, true}), kUpright, 2 * kLossy, name);
        EXPECT_TRUE(source->copyPropertiesAtIndex());
        expectSize(source->createImageAtIndex(), 80, 60);
    }
}

TEST_F(CGImageSourceTest, TellsTheResolution)
{
    const auto path = file("a.jpg", test::jpegBytes(test::quadrants(40, 30)));
    EXPECT_EQ(properties(path)->dpi, std::nullopt);
    test::run({"exiftool", "-q", "-overwrite_original", "-JFIF:XResolution=300", "-JFIF:ResolutionUnit=inches", path});
    EXPECT_EQ(properties(path)->dpi, 300.0);
}

// Colours

TEST_F(CGImageSourceTest, ConvertsAnEmbeddedProfileToSRGB)
{
    const auto profile = test::displayP3Profile();
    const Color expected = test::convertedByLibrary({90, 140, 200}, profile);
    ASSERT_GT(std::abs(expected[0] - 90), 2 * kLossy) << "the two spaces must differ for this to show anything";
    const test::Picture picture = test::plain(64, 64, {90, 140, 200});
    const std::vector<std::pair<std::string, std::string>> files = {
        {"JPEG", file("a.jpg", test::jpegBytes(picture, {.colorProfile = profile}))},
        {"PNG", saved("a.png", picture, 8, profile)},
        {"PNG of 16 bits", saved("b.png", picture, 16, profile)},
        {"TIFF", saved("a.tiff", picture, 8, profile)},
        {"HEIC", file("a.heic", test::heifBytes({picture}, {.colorProfile = profile}))},
    };
    for (const auto& [what, path] : files) {
        const auto image = thumbnail(path, 32);
        ASSERT_NE(image, nullptr) << what;
        test::expectColor(*image, 16, 16, expected, kLossy, what);
    }
}

TEST_F(CGImageSourceTest, ConvertsThePrimariesThatAHEICNames)
{
    const Color expected = test::convertedByLibrary({90, 140, 200}, test::displayP3Profile());
    const test::Picture picture = test::plain(64, 64, {90, 140, 200});
    const auto wide = thumbnail(file("a.heic", test::heifBytes({picture}, {.primaries = 12})));
    ASSERT_NE(wide, nullptr);
    test::expectColor(*wide, 32, 32, expected, kLossy, "Display P3");
    const auto usual = thumbnail(file("b.heic", test::heifBytes({picture}, {.primaries = 1})));
    ASSERT_NE(usual, nullptr);
    test::expectColor(*usual, 32, 32, {90, 140, 200}, kLossy, "sRGB");
}

TEST_F(CGImageSourceTest, TakesAdobeRGBFromEXIFAlone)
{
    const auto exif = test::colorSpaceEXIFBytes(65535, "R03");
    // By the matrices of the two standards.
    const Color expected = {233, 35, 35};
    const test::Picture picture = test::plain(64, 64, {200, 40, 40});
    const auto image = thumbnail(file("a.jpg", test::jpegBytes(picture, {.exif = exif})), 32);
    ASSERT_NE(image, nullptr);
    test::expectColor(*image, 16, 16, expected, kLossy);
    // A profile is more than a mark.
    const auto profiled =
        thumbnail(file("b.jpg", test::jpegBytes(picture, {.colorProfile = test::srgbProfile(), .exif = exif})), 32);
    ASSERT_NE(profiled, nullptr);
    test::expectColor(*profiled, 16, 16, {200, 40, 40}, kLossy);
}

/// How near a picture is to that of the same file which was decoded in full and then scaled, in decibels.
double nearnessToWhole(const CGImagePtr& image, const CGImagePtr& whole)
{
    platform::CGImage reference;
    EXPECT_TRUE(platform::scaleImage(*whole, image->width, image->height, reference));
    double sum = 0;
    for (size_t y = 0; y < image->height; ++y)
        for (size_t x = 0; x < image->width; ++x)
            sum += std::pow(test::pixel(*image, x, y)[1] - test::pixel(reference, x, y)[1], 2);
    const double mean = sum / static_cast<double>(image->width * image->height);
    return 10 * std::log10(255.0 * 255.0 / std::max(mean, 1e-9));
}

TEST_F(CGImageSourceTest, DecodesDrawingsAsIfInFull)
{
    // Lines of two pixels, near each other or not: decoded at a half or a quarter, each block keeps a veil of its
    // waves.
    for (const size_t distance : {11, 200}) {
        test::Picture lines = test::plain(1200, 800, {250, 250, 250});
        for (size_t y = 0; y < lines.height; ++y)
            for (size_t x = 0; x < lines.width; ++x)
                if ((x + y / 3) % distance < 2 || (y + x / 5) % distance < 2)
                    std::fill_n(lines.at(x, y), 3, uint8_t{10});
        const auto path = file(std::to_string(distance) + ".jpg", test::jpegBytes(lines));
        const auto whole = thumbnail(path);
        for (const auto& [longest, height] : {std::pair<size_t, size_t>{520, 347}, {280, 187}}) {
            const auto image = thumbnail(path, longest);
            expectSize(image, longest, height);
            // At a half it would be 22 and 33 decibels; the two ways of scaling clip and round at different places.
            EXPECT_GT(nearnessToWhole(image, whole), distance < 50 ? 33 : 45) << distance << ", " << longest;
        }
    }
}

TEST_F(CGImageSourceTest, DecodesPhotosOfSharpThingsAtAHalf)
{
    // Twigs before a rough ground: more edges than some drawings have, but no ground on which waves would be seen.
    std::minstd_rand random(5);
    test::Picture twigs = test::plain(1200, 800, {0, 0, 0});
    for (size_t y = 0; y < twigs.height; ++y)
        for (size_t x = 0; x < twigs.width; ++x)
            std::fill_n(twigs.at(x, y), 3, static_cast<uint8_t>((x + y / 7) % 97 < 5 ? 30 : 140 + random() % 60));
    const auto path = file("a.jpg", test::jpegBytes(twigs));
    const double nearness = nearnessToWhole(thumbnail(path, 520), thumbnail(path));
    EXPECT_GT(nearness, 34) << "the loss is none that would be seen";
    EXPECT_LT(nearness, 44) << "as near as this it was decoded in full, which takes two and a half times as long";
}

// Containers

TEST_F(CGImageSourceTest, MirrorsAHEIC)
{
    const auto topDown = thumbnail(file("a.heic", test::heifBytes({test::quadrants(400, 300)}, {.mirror = 0})));
    expectSize(topDown, 400, 300);
    expectQuadrants(topDown, {kBlue, kWhite, kRed, kGreen}, kLossy, "top and bottom exchanged");
    const auto sideways = thumbnail(file("b.heic", test::heifBytes({test::quadrants(400, 300)}, {.mirror = 1})));
    expectQuadrants(sideways, {kGreen, kRed, kWhite, kBlue}, kLossy, "left and right exchanged");
    const auto turned =
        thumbnail(file("c.heic", test::heifBytes({test::quadrants(400, 300)}, {.quarterTurns = 1, .mirror = 1})));
    expectSize(turned, 300, 400);
    // A quarter to the left gives green, white, red, blue.
    expectQuadrants(turned, {kWhite, kGreen, kBlue, kRed}, kLossy, "turned, then mirrored");
}

TEST_F(CGImageSourceTest, ShowsTheCleanPartOfAHEIC)
{
    // A tenth is cut off on each side, so that the quarters stay; the frame of 40 pixels around is white.
    test::Picture framed = test::plain(400, 300, {255, 255, 255});
    const test::Picture inner = test::quadrants(320, 220);
    for (size_t y = 0; y < inner.height; ++y)
        std::copy_n(inner.at(0, y), inner.width * 3, framed.at(40, 40 + y));
    const auto path = file("a.heic", test::heifBytes({framed}, {.shownWidth = 320, .shownHeight = 220}));
    const auto found = properties(path);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->pixelWidth, 320u);
    EXPECT_EQ(found->pixelHeight, 220u);
    const auto image = thumbnail(path);
    expectSize(image, 320, 220);
    expectQuadrants(image, kUpright, kLossy, "clean part");
    test::expectColor(*image, 4, 4, kRed, 2 * kLossy);
    test::expectColor(*image, 315, 215, kWhite, 2 * kLossy);
    const auto turned = thumbnail(
        file("b.heic", test::heifBytes({framed}, {.quarterTurns = 1, .shownWidth = 320, .shownHeight = 220})));
    expectSize(turned, 220, 320);
    expectQuadrants(turned, {kGreen, kWhite, kRed, kBlue}, kLossy, "cut, then turned");
}

// Bad input

TEST_F(CGImageSourceTest, RefusesRawFilesOfCamerasByTheirContent)
{
    const auto tiff = [](const std::vector<std::array<uint32_t, 3>>& entries, const std::vector<uint8_t>& behind = {}) {
        std::vector<uint8_t> bytes = {'I', 'I', 42, 0, 16, 0, 0, 0};
        bytes.insert(bytes.end(), behind.begin(), behind.end());
        bytes.resize(16);
        const auto put = [&](uint32_t value, int length) {
            for (int i = 0; i < length; ++i)
                bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
        };
        put(static_cast<uint32_t>(entries.size()), 2);
        for (const auto& [tag, count, value] : entries) {
            put(tag, 2);
            put(4, 2);
            put(count, 4);
            put(value, 4);
        }
        put(0, 4);
        // A second directory at 68 behind one of four entries: a sensor's picture.
        put(1, 2);
        put(262, 2);
        put(4, 2);
        put(1, 4);
        put(32803, 4);
        return bytes;
    };
    const std::vector<std::array<uint32_t, 3>> preview = {{256, 1, 160}, {257, 1, 120}, {262, 1, 2}};
    auto withRaw = preview;
    withRaw.push_back({330, 1, 16 + 2 + 4 * 12 + 4});
    auto ofAllCameras = preview;
    ofAllCameras.push_back({50706, 4, 0x00000401});
    const std::vector<std::pair<std::string, std::vector<uint8_t>>> rows = {
        {"a.nef", tiff(withRaw)},
        {"b.pef", tiff({{256, 1, 160}, {257, 1, 120}, {262, 1, 32803}})},
        {"c.dng", tiff(ofAllCameras)},
        {"d.cr2", tiff(preview, {'C', 'R', 2, 0})},
        {"e.raf", {'F', 'U', 'J', 'I', 'F', 'I', 'L', 'M', 'C', 'C', 'D', '-', 'R', 'A', 'W', ' '}},
        {"f.orf", {'I', 'I', 'R', 'O', 8, 0, 0, 0}},
        {"g.rw2", {'I', 'I', 'U', 0, 8, 0, 0, 0}},
        {"h.cr3", {0, 0, 0, 24, 'f', 't', 'y', 'p', 'c', 'r', 'x', ' '}},
    };
    for (const auto& [name, bytes] : rows) {
        NSError error;
        EXPECT_EQ(CGImageSource::createWithURL(test::url(file(name, bytes)), &error), nullptr) << name;
        EXPECT_EQ(error.localizedDescription,
                  name + " is a camera's raw file, which has to be developed and saved as a picture");
    }
    EXPECT_NE(CGImageSource::createWithURL(test::url(file("i.tif", tiff(preview)))), nullptr) << "a usual file";
}

TEST_F(CGImageSourceTest, ShowsWhatCouldBeDecodedOfATruncatedJPEG)
{
    for (const bool isProgressive : {false, true}) {
        auto bytes = test::jpegBytes(test::textured(640, 480), {.isProgressive = isProgressive});
        bytes.resize(bytes.size() / 2);
        const auto image = thumbnail(file("a.jpg", bytes), 320);
        expectSize(image, 320, 240);
        // The upper part of the picture is there.
        const test::Picture expected = test::gradient(320, 240);
        for (size_t x = 20; x < 300; x += 40)
            test::expectColor(*image, x, 20, {expected.at(x, 20)[0], expected.at(x, 20)[1], expected.at(x, 20)[2]}, 40);
    }
}

TEST_F(CGImageSourceTest, ShowsWhatCouldBeDecodedOfATruncatedPNG)
{
    auto bytes = test::readFile(saved("a.png", test::textured(640, 480)));
    bytes.resize(bytes.size() / 2);
    const auto image = thumbnail(file("b.png", bytes), 320);
    expectSize(image, 320, 240);
    const test::Picture expected = test::gradient(320, 240);
    test::expectColor(*image, 160, 20, {expected.at(160, 20)[0], expected.at(160, 20)[1], expected.at(160, 20)[2]}, 30);
}

TEST_F(CGImageSourceTest, SeesThatTheEndOfAFileIsMissing)
{
    const auto isCutOff = [&](const std::string& name, const std::vector<uint8_t>& bytes) {
        const auto source = CGImageSource::createWithURL(test::url(file("cut " + name, bytes)));
        EXPECT_NE(source, nullptr) << name;
        return source && source->copyPropertiesAtIndex() && source->isCutOff();
    };
    // A preview in the header has an end of its own.
    const auto plain = test::jpegBytes(test::textured(640, 480));
    std::vector<uint8_t> preview = {0xFF, 0xD8, 0xFF, 0xED, 0, 6, 0xFF, 0xD9, 0xFF, 0xD9};
    std::copy(plain.begin() + 2, plain.end(), std::back_inserter(preview));
    const std::vector<std::pair<std::string, std::vector<uint8_t>>> files = {
        {"a.jpg", test::jpegBytes(test::textured(640, 480))},
        {"progressive.jpg", test::jpegBytes(test::textured(640, 480), {.isProgressive = true})},
        {"preview.jpg", preview},
        {"a.png", test::readFile(saved("a.png", test::textured(640, 480)))},
        {"a.gif", test::readFile(saved("a.gif", test::textured(640, 480)))},
    };
    for (const auto& [name, whole] : files) {
        EXPECT_FALSE(isCutOff(name, whole)) << name;
        for (const size_t missing : {size_t{2}, size_t{40}, whole.size() / 10, whole.size() / 2}) {
            auto bytes = whole;
            bytes.resize(whole.size() - missing);
            EXPECT_TRUE(isCutOff(name, bytes)) << name << " without " << missing;
            // As a download leaves it that was given its room at once.
            bytes.resize(whole.size());
            EXPECT_TRUE(isCutOff(name, bytes)) << name << " empty " << missing;
        }
        // What cameras and phones write behind, from a few bytes to a movie.
        for (const size_t added : {size_t{1}, size_t{5000}, size_t{65535}, size_t{65536}, size_t{3'000'000}}) {
            auto bytes = whole;
            bytes.resize(whole.size() + added, 7);
            EXPECT_FALSE(isCutOff(name, bytes)) << name << " and " << added;
        }
    }
    for (const std::string name : {"a.webp", "a.tiff"})
        EXPECT_FALSE(isCutOff(name, test::readFile(saved(name, test::textured(64, 48))))) << name;
}

TEST_F(CGImageSourceTest, ShowsAProgressivePictureThatIsCutOffBetweenItsPasses)
{
    const auto whole = test::jpegBytes(test::plain(640, 480, kRed), {.isProgressive = true});
    std::vector<size_t> segments;
    for (size_t at = 2; at + 4 <= whole.size(); ++at)
        if (whole[at] == 0xFF && (whole[at + 1] == 0xC4 || whole[at + 1] == 0xDA))
            segments.push_back(at);
    // The first tables and the first pass make the picture; the passes behind it only refine it.
    ASSERT_GT(segments.size(), 4u);
    const auto other = file("b.jpg", test::jpegBytes(test::plain(640, 480, kBlue)));
    for (size_t i = 3; i < segments.size(); ++i) {
        for (size_t length = segments[i]; length < segments[i] + 9; ++length) {
            // Memory that nothing was decoded to holds what was there before.
            ASSERT_TRUE(thumbnail(other));
            const auto image = thumbnail(file("a.jpg", {whole.begin(), whole.begin() + static_cast<ssize_t>(length)}));
            ASSERT_TRUE(image) << length;
            test::expectColor(*image, image->width / 2, image->height / 2, kRed, kLossy);
        }
    }
}

TEST_F(CGImageSourceTest, FindsOutWhetherADamagedFileCanBeDecoded)
{
    // The short look and decoding must agree, wherever the file is cut off or its header damaged.
    for (const bool isProgressive : {false, true}) {
        const auto whole = test::jpegBytes(test::textured(640, 480), {.isProgressive = isProgressive});
        size_t readable = 0;
        size_t unreadable = 0;
        const auto check = [&](const std::vector<uint8_t>& bytes, const std::string& what) {
            const auto path = file("a.jpg", bytes);
            const auto source = CGImageSource::createWithURL(platform::NSURL::fileURLWithPath(path, false));
            const bool canDecode = source && source->canDecode();
            EXPECT_EQ(canDecode, thumbnail(path, 320) != nullptr) << what;
            ++(canDecode ? readable : unreadable);
        };
        check(whole, "whole");
        for (size_t length = 3; length < whole.size(); length += length < 700 ? 23 : whole.size() / 20) {
            auto bytes = whole;
            bytes.resize(length);
            check(bytes, "cut to " + std::to_string(length));
        }
        for (size_t place = 20; place < 640; place += 7) {
            auto bytes = whole;
            bytes[place] ^= 0x5A;
            check(bytes, "damaged at " + std::to_string(place));
        }
        EXPECT_GT(readable, 20u);
        EXPECT_GT(unreadable, 20u);
    }
}

TEST_F(CGImageSourceTest, TakesNoTablesFromTheFileBefore)
{
    const std::vector<uint8_t> whole = test::jpegBytes(test::quadrants(64, 48));
    // Segments of tables, each by its mark: quantisation, and the codes of numbers.
    for (const uint8_t mark : {uint8_t{0xDB}, uint8_t{0xC4}}) {
        std::vector<uint8_t> without(whole.begin(), whole.begin() + 2);
        for (size_t at = 2; at + 4 < whole.size();) {
            const bool isScan = whole[at + 1] == 0xDA;
            const size_t end = isScan ? whole.size() : at + 2 + (size_t{whole[at + 2]} << 8 | whole[at + 3]);
            if (whole[at + 1] != mark)
                without.insert(without.end(), whole.begin() + static_cast<ptrdiff_t>(at),
                               whole.begin() + static_cast<ptrdiff_t>(end));
            at = end;
        }
        const std::string lacking = file("lacking.jpg", without);
        const CGImagePtr alone = thumbnail(lacking);
        ASSERT_NE(thumbnail(file("whole.jpg", whole)), nullptr);
        const CGImagePtr after = thumbnail(lacking);
        EXPECT_EQ(after == nullptr, alone == nullptr) << int{mark};
        EXPECT_EQ(alone == nullptr, mark == 0xDB) << "the codes that most files have stand in for missing ones";
    }
}

TEST_F(CGImageSourceTest, FindsOutWhetherADamagedFileOfOtherFormatsCanBeDecoded)
{
    for (const std::string name : {"a.png", "a.webp", "a.tiff", "a.gif", "a.heic", "a.avif"}) {
        const auto whole = test::readFile(saved(name, test::textured(160, 120)));
        size_t readable = 0;
        size_t unreadable = 0;
        const auto check = [&](const std::vector<uint8_t>& bytes, const std::string& what) {
            const auto path = file(name, bytes);
            const auto source = CGImageSource::createWithURL(platform::NSURL::fileURLWithPath(path, false));
            const bool canDecode = source && source->canDecode();
            EXPECT_EQ(canDecode, thumbnail(path, 80) != nullptr) << name << ": " << what;
            // Found out before, it is as well decoded by the same reader.
            EXPECT_EQ(canDecode, source && source->createThumbnailAtIndex({80, false})) << name << ": " << what;
            ++(canDecode ? readable : unreadable);
        };
        check(whole, "whole");
        EXPECT_EQ(readable, 1u) << name;
        for (size_t part = 1; part < 24; ++part)
            check({whole.begin(), whole.begin() + static_cast<ssize_t>(whole.size() * part / 24)},
                  "cut off behind " + std::to_string(part) + " parts");
        for (size_t place = 16; place < whole.size(); place += whole.size() / 24) {
            auto bytes = whole;
            bytes[place] ^= 0x5A;
            check(bytes, "damaged at " + std::to_string(place));
        }
        EXPECT_GT(unreadable, 0u) << name;
    }
}

TEST_F(CGImageSourceTest, FindsOutByTheFirstRowsWhereAFormatGivesThemAlone)
{
    const auto secondsOf = [](const auto& work) {
        const auto now = [] {
            timespec time{};
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
            return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
        };
        const double before = now();
        work();
        return now() - before;
    };
    for (const std::string name : {"a.png", "a.tiff"}) {
        const auto path = saved(name, test::textured(3000, 2000));
        ASSERT_NE(thumbnail(path, 64), nullptr) << "the library is loaded now";
        const auto source = CGImageSource::createWithURL(platform::NSURL::fileURLWithPath(path, false));
        const double look = secondsOf([&] { EXPECT_TRUE(source->canDecode()); });
        const double decoding = secondsOf([&] { EXPECT_NE(thumbnail(path, 64), nullptr); });
        EXPECT_LT(look, decoding / 4) << name;
    }
}

TEST_F(CGImageSourceTest, RefusesWhatIsNoPictureAndNamesTheFile)
{
    std::filesystem::create_directory(folder_.path("folder.jpg"));
    ASSERT_EQ(mkfifo(folder_.path("pipe.jpg").c_str(), 0600), 0);
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"missing.jpg", "missing.jpg cannot be opened"},
        {"folder.jpg", "folder.jpg is a folder, not a picture"},
        {"pipe.jpg", "pipe.jpg is no regular file"},
        {"empty.jpg", "empty.jpg is empty"},
        {"text.jpg", "text.jpg is no picture of a known format"},
    };
    file("empty.jpg", {});
    file("text.jpg", {'H', 'e', 'l', 'l', 'o', ',', ' ', 'w', 'o', 'r', 'l', 'd'});
    for (const auto& [name, message] : rows) {
        NSError error;
        EXPECT_EQ(CGImageSource::createWithURL(test::url(folder_.path(name)), &error), nullptr) << name;
        EXPECT_TRUE(error.localizedDescription.starts_with(message)) << error.localizedDescription;
        EXPECT_EQ(CGImageSource::createWithURL(test::url(folder_.path(name))), nullptr);
    }
}

TEST_F(CGImageSourceTest, LooksForRawPicturesInNoMoreFoldersOfATIFFFileThanThereAreInRealOnes)
{
    // As many entries as a folder can have, each of which names eight folders: this one.
    constexpr uint32_t kEntries = 65535;
    constexpr uint32_t kFolder = 8;
    std::vector<uint8_t> bytes = {'I', 'I', 42, 0};
    const auto put = [&](uint32_t value, int width) {
        for (int i = 0; i < width; ++i)
            bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    };
    put(kFolder, 4);
    put(kEntries, 2);
    for (uint32_t i = 0; i < kEntries; ++i) {
        put(330, 2);
        put(4, 2);
        put(8, 4);
        put(kFolder + 2 + kEntries * 12, 4);
    }
    for (int i = 0; i < 8; ++i)
        put(kFolder, 4);
    const std::clock_t start = std::clock();
    const auto source = CGImageSource::createWithURL(test::url(file("a.tif", bytes)));
    EXPECT_TRUE(!source || !source->copyPropertiesAtIndex());
    // Half a million reads of few bytes; where each entry counts, 34 thousand million.
    EXPECT_LT(std::clock() - start, 10 * CLOCKS_PER_SEC);
}

TEST_F(CGImageSourceTest, RefusesHeadersWithoutAPicture)
{
    const std::vector<std::pair<std::string, std::vector<uint8_t>>> rows = {
        {"a.jpg", {0xFF, 0xD8, 0xFF, 0xD9}},
        {"b.png", {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R'}},
        {"c.gif", {'G', 'I', 'F', '8', '9', 'a', 1, 0}},
        {"d.tif", {'I', 'I', 42, 0, 8, 0, 0, 0}},
        {"e.webp", {'R', 'I', 'F', 'F', 4, 0, 0, 0, 'W', 'E', 'B', 'P'}},
        {"f.bmp", {'B', 'M', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 40, 0, 0, 0}},
        {"g.jp2", {0xFF, 0x4F, 0xFF, 0x51, 0, 0}},
        {"h.heic", {0, 0, 0, 16, 'f', 't', 'y', 'p', 'h', 'e', 'i', 'c', 0, 0, 0, 0}},
    };
    for (const auto& [name, bytes] : rows) {
        NSError error;
        const auto source = CGImageSource::createWithURL(test::url(file(name, bytes)), &error);
        ASSERT_NE(source, nullptr) << name;
        EXPECT_EQ(source->copyPropertiesAtIndex(&error), std::nullopt) << name;
        EXPECT_NE(error.localizedDescription.find(name), std::string::npos) << error.localizedDescription;
        EXPECT_EQ(source->createThumbnailAtIndex({}), nullptr) << name;
    }
}

TEST_F(CGImageSourceTest, RefusesAMillionTimesMorePixelsThanBytesBeforeTakingMemory)
{
    // 100,000 x 100,000 (65,535 where a format has no room for more) claimed in about a kilobyte.
    std::vector<uint8_t> jpeg = test::jpegBytes(test::plain(16, 16, kRed));
    const std::array<uint8_t, 2> frameHeader = {0xFF, 0xC0};
    const auto header = std::search(jpeg.begin(), jpeg.end(), frameHeader.begin(), frameHeader.end());
    std::fill_n(header + 5, 4, uint8_t{0xFF});
    std::vector<uint8_t> png = test::readFile(saved("small.png", test::plain(16, 16, kRed)));
    const std::array<uint8_t, 8> side = {0, 1, 0x86, 0xA0, 0, 1, 0x86, 0xA0};
    std::ranges::copy(side, png.begin() + 16);
    std::vector<uint8_t> bmp = test::readFile(converted("small.bmp", test::plain(16, 16, kRed), {"-pix_fmt", "bgr24"}));
    std::ranges::copy(std::array<uint8_t, 8>{0xA0, 0x86, 1, 0, 0xA0, 0x86, 1, 0}, bmp.begin() + 18);
    std::vector<uint8_t> jp2 = test::readFile(converted("small.jp2", test::plain(16, 16, kRed)));
    const std::array<uint8_t, 4> stream = {0xFF, 0x4F, 0xFF, 0x51};
    std::ranges::copy(side, std::search(jp2.begin(), jp2.end(), stream.begin(), stream.end()) + 8);
    std::vector<uint8_t> heic = test::heifBytes({test::plain(64, 64, kRed)});
    const std::array<uint8_t, 4> ispe = {'i', 's', 'p', 'e'};
    std::ranges::copy(side, std::search(heic.begin(), heic.end(), ispe.begin(), ispe.end()) + 8);
    const std::vector<std::pair<std::string, std::vector<uint8_t>>> rows = {
        {"a.jpg", jpeg}, {"b.png", png}, {"c.bmp", bmp}, {"d.jp2", jp2}, {"e.heic", heic}};
    for (const auto& [name, bytes] : rows) {
        NSError error;
        // The processor's time, which a busy machine does not add to.
        const std::clock_t start = std::clock();
        const auto source = CGImageSource::createWithURL(test::url(file(name, bytes)), &error);
        ASSERT_NE(source, nullptr) << name;
        EXPECT_EQ(source->copyPropertiesAtIndex(&error), std::nullopt) << name;
        EXPECT_EQ(source->createThumbnailAtIndex({100, true}, &error), nullptr) << name;
        EXPECT_NE(error.localizedDescription.find(name), std::string::npos) << error.localizedDescription;
        // Memory for ten thousand million pixels could not even be cleared in this time.
        EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC) << name;
    }
}

namespace {

/// A folder of entries that each lead to a folder, this one itself; a single one leads to an empty folder.
std::string exifOfFolders(unsigned count)
{
    using testtags::bigEndian;
    std::string exif = "MM" + bigEndian(42, 2) + bigEndian(8, 4) + bigEndian(count, 2);
    for (unsigned i = 0; i < count; ++i)
        exif += bigEndian(0x8769, 2) + bigEndian(4, 2) + bigEndian(1, 4) + bigEndian(count == 1 ? 22 : 8, 4);
    return exif + testtags::zeros(8);
}

std::vector<uint8_t> withInserted(std::vector<uint8_t> bytes, size_t place, const std::string& part)
{
    bytes.insert(bytes.begin() + static_cast<ptrdiff_t>(place), part.begin(), part.end());
    return bytes;
}

} // namespace

TEST_F(CGImageSourceTest, RefusesAPictureWhoseEXIFLeadsInCircles)
{
    using testtags::bigEndian;
    const test::Picture picture = test::quadrants(64, 48);
    const std::vector<uint8_t> png = test::readFile(saved("plain.png", picture));
    const std::vector<uint8_t> jpeg = test::readFile(saved("plain.jpg", picture));
    const std::vector<uint8_t> webp = test::readFile(saved("plain.webp", picture));
    const auto madeWith = [&](const std::string& format, unsigned count) -> std::string {
        const std::string exif = exifOfFolders(count);
        const std::string name = std::to_string(count) + "." + format;
        // Readers pass over a wrong checksum of what is not needed, or over the chunk.
        if (format == "png")
            return file(name, withInserted(png, 33, bigEndian(exif.size(), 4) + "eXIf" + exif + testtags::zeros(4)));
        if (format == "webp")
            return file(name, withInserted(webp, webp.size(),
                                           "EXIF" + std::string(1, static_cast<char>(exif.size())) +
                                               testtags::zeros(3) + exif));
        const auto segment = "\xFF\xE1" + bigEndian(exif.size() + 8, 2) + "Exif" + testtags::zeros(2) + exif;
        const auto source = file("source.jpg", withInserted(jpeg, 2, segment));
        if (format == "jpg")
            return source;
        test::run({"heif-enc", format == "avif" ? "-A" : "-v", source, "-o", folder_.path(name)});
        return folder_.path(name);
    };
    for (const std::string format : {"png", "webp", "heic", "avif", "jpg"}) {
        EXPECT_NE(thumbnail(madeWith(format, 1)), nullptr) << format;
        const auto circles = madeWith(format, 12);
        // Of JPEG files this reads EXIF by itself, and follows no folder twice.
        if (format == "jpg") {
            EXPECT_NE(thumbnail(circles), nullptr);
            continue;
        }
        NSError error;
        EXPECT_EQ(thumbnail(circles, {}, true, &error), nullptr) << format;
        EXPECT_TRUE(error.localizedDescription.starts_with("12." + format)) << error.localizedDescription;
    }
}

TEST_F(CGImageSourceTest, SurvivesDamageInEveryFormat)
{
    const test::Picture picture = test::textured(120, 90);
    test::save(picture, folder_.path("from.png"));
    test::run({"heif-enc", "-A", "-q", "50", folder_.path("from.png"), "-o", folder_.path("f.avif")});
    const std::vector<std::pair<std::string, int>> files = {
        {file("a.jpg", test::jpegBytes(picture, {.orientation = 6, .colorProfile = test::displayP3Profile()})), 200},
        {file("b.jpg", test::jpegBytes(picture, {.isProgressive = true})), 200},
        {saved("c.png", picture), 100},
        {saved("d.tiff", picture), 100},
        {saved("e.gif", picture), 100},
        {saved("e.webp", picture), 100},
        {folder_.path("f.avif"), 30},
        {file("g.heic", test::heifBytes({picture}, {.quarterTurns = 1, .primaries = 12})), 60},
        {converted("h.bmp", picture, {"-pix_fmt", "bgr24"}), 200},
        {converted("i.jp2", picture), 60},
    };
    std::minstd_rand random(11);
    for (const auto& [path, rounds] : files) {
        const auto whole = test::readFile(path);
        for (int round = 0; round < rounds; ++round) {
            auto damaged = whole;
            // Mostly in the header, where it does most harm; every third time cut off too.
            for (unsigned i = 0; i < 1 + random() % 8; ++i)
                damaged[random() % (random() % 2 ? std::min<size_t>(damaged.size(), 400) : damaged.size())] =
                    static_cast<uint8_t>(random());
            if (round % 3 == 0)
                damaged.resize(random() % damaged.size());
            NSError error;
            const auto image = thumbnail(file("damaged" + path.substr(path.rfind('.')), damaged), 64, true, &error);
            if (image) {
                EXPECT_LE(std::max(image->width, image->height), 64u);
                EXPECT_EQ(image->pixels.size(), image->bytesPerRow * image->height);
            } else {
                EXPECT_FALSE(error.localizedDescription.empty()) << path;
            }
        }
    }
}

TEST_F(CGImageSourceTest, DecodesOnManyThreads)
{
    const std::vector<std::string> paths = {
        file("a.jpg", test::jpegBytes(test::quadrants(403, 301), {.colorProfile = test::displayP3Profile()})),
        saved("b.png", test::quadrants(403, 301)), saved("c.webp", test::quadrants(403, 301)),
        file("d.heic", test::heifBytes({test::quadrants(400, 300)}))};
    std::array<int, 4> failures{};
    {
        std::vector<std::jthread> threads;
        for (size_t t = 0; t < failures.size(); ++t)
            threads.emplace_back([&, t] {
                for (size_t i = 0; i < 12; ++i) {
                    const auto image = thumbnail(paths[(t + i) % paths.size()], 100 + static_cast<double>(i % 3));
                    failures[t] += !image || image->width != 100 + i % 3;
                }
            });
    }
    for (const int count : failures)
        EXPECT_EQ(count, 0);
}
