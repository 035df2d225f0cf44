#include "platform/pixels/ColorProfile.h"

#include "tests/support/TestPicture.h"
#include "tests/support/TestProfiles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using platform::CGImage;
using platform::ColorDescription;
using platform::convertToSRGB;

namespace {

CGImage onePixel(uint8_t first, test::Color color)
{
    CGImage image;
    image.width = 1;
    image.height = 1;
    image.bytesPerRow = 4;
    image.pixels = {first, static_cast<uint8_t>(color[0]), static_cast<uint8_t>(color[1]),
                    static_cast<uint8_t>(color[2])};
    return image;
}

test::Color converted(test::Color color, const ColorDescription& description)
{
    CGImage image = onePixel(0xFF, color);
    convertToSRGB(image, description);
    EXPECT_EQ(image.pixels[0], 0xFF);
    return test::pixel(image, 0, 0);
}

void expectNear(test::Color found, test::Color expected, int tolerance)
{
    for (size_t i = 0; i < 3; ++i)
        EXPECT_NEAR(found[i], expected[i], tolerance) << found[0] << " " << found[1] << " " << found[2];
}

} // namespace

TEST(ColorProfile, LeavesAPictureThatSaysNothingAlone)
{
    EXPECT_EQ(converted({1, 100, 250}, {}), (test::Color{1, 100, 250}));
}

TEST(ColorProfile, LeavesSRGBAloneToTheLastBit)
{
    const ColorDescription description{.profile = test::srgbProfile()};
    for (int v = 0; v < 256; ++v)
        EXPECT_EQ(converted({v, 255 - v, v / 2}, description), (test::Color{v, 255 - v, v / 2}));
}

TEST(ColorProfile, TurnsAWiderSpaceIntoSRGB)
{
    const ColorDescription description{.profile = test::displayP3Profile()};
    for (const test::Color color :
         {test::Color{200, 40, 40}, {40, 180, 60}, {128, 128, 128}, {255, 255, 255}, {0, 0, 0}, {90, 140, 200}})
        // The reference is the colour library's own way, through more precise numbers: they differ by rounding.
        expectNear(converted(color, description), test::convertedByLibrary(color, description.profile), 1);
    // More saturated than the same numbers would be.
    EXPECT_GT(converted({200, 40, 40}, description)[0], 210);
}

TEST(ColorProfile, TakesTheContainersPrimariesForAProfile)
{
    const ColorDescription stated{.primaries = 12, .transfer = 13};
    const ColorDescription profile{.profile = test::displayP3Profile()};
    for (const test::Color color : {test::Color{200, 40, 40}, {40, 180, 60}, {90, 140, 200}})
        expectNear(converted(color, stated), converted(color, profile), 1);
    const ColorDescription srgb{.primaries = 1, .transfer = 13};
    EXPECT_EQ(converted({200, 40, 40}, srgb), (test::Color{200, 40, 40}));
    const ColorDescription unknown{.primaries = 77, .transfer = 13};
    EXPECT_EQ(converted({200, 40, 40}, unknown), (test::Color{200, 40, 40}));
}

TEST(ColorProfile, TakesAPowerAndPrimariesWithoutAProfile)
{
    // Adobe RGB's grey is a power of 563 / 256; 100 of 255 is 0.1277 of white's light, 100 in sRGB too.
    const ColorDescription adobe{.space = ColorDescription::kAdobeRGB};
    expectNear(converted({100, 100, 100}, adobe), {100, 100, 100}, 1);
    // Its green lies far outside of sRGB: the other two are cut off at none.
    EXPECT_EQ(converted({0, 255, 0}, adobe), (test::Color{0, 255, 0}));
    // A red that is common to both, by the matrices of the two standards: 200, 40, 40 becomes 232.7, 35.2, 35.2.
    expectNear(converted({200, 40, 40}, adobe), {233, 35, 35}, 1);
    const ColorDescription light{.space = ColorDescription::PowerSpace{.power = 1}};
    expectNear(converted({128, 128, 128}, light), {188, 188, 188}, 1);
    const ColorDescription usual{.space = ColorDescription::PowerSpace{}};
    EXPECT_EQ(converted({1, 100, 250}, usual), (test::Color{1, 100, 250}));
}

TEST(ColorProfile, BringsLightBeyondWhiteBelowIt)
{
    // By the formulas of ITU-R BT.2100 and BT.2408, of greys: what is far below white (203 cd/m2) keeps its light,
    // white itself gives way to what is brighter, and 1000 cd/m2 are the most.
    struct Row {
        int transfer;
        double number;
        int expected;
        const char* what;
    };
    const std::vector<Row> rows = {{16, 0.0, 0, "PQ, black"},           {16, 0.3480, 84, "PQ, 18 cd/m2"},
                                   {16, 0.4403, 136, "PQ, 50 cd/m2"},   {16, 0.5807, 229, "PQ, 203 cd/m2"},
                                   {16, 0.7518, 255, "PQ, 1000 cd/m2"}, {16, 1.0, 255, "PQ, 10000 cd/m2"},
                                   {18, 0.0, 0, "HLG, black"},          {18, 0.5, 137, "HLG, 50.6 cd/m2"},
                                   {18, 0.75, 229, "HLG, 203 cd/m2"},   {18, 1.0, 255, "HLG, 1000 cd/m2"}};
    for (const Row& row : rows) {
        platform::WideImage wide{.width = 1, .height = 1, .hasAlpha = false, .samples = {}};
        wide.samples.assign(4, static_cast<uint16_t>(std::lround(row.number * 65535)));
        CGImage image;
        convertToSRGB(wide, {.primaries = 9, .transfer = row.transfer}, image);
        SCOPED_TRACE(row.what);
        EXPECT_EQ(image.pixels[0], 0xFF);
        expectNear(test::pixel(image, 0, 0), {row.expected, row.expected, row.expected}, 1);
        // With 8 bits, as near as their steps.
        const int number = static_cast<int>(std::lround(row.number * 255));
        expectNear(converted({number, number, number}, {.primaries = 9, .transfer = row.transfer}),
                   {row.expected, row.expected, row.expected}, 3);
    }
}

TEST(ColorProfile, NarrowsLastWhatHasSixteenBits)
{
    // A ramp of a tenth of the range, in which 8 bits have 27 numbers; stretched by the curve of light, they would be
    // steps of up to two.
    const ColorDescription light{.space = ColorDescription::PowerSpace{.power = 1}};
    platform::WideImage wide{.width = 6554, .height = 1, .hasAlpha = false, .samples = {}};
    for (size_t x = 0; x < wide.width; ++x)
        wide.samples.insert(wide.samples.end(),
                            {0xFFFF, static_cast<uint16_t>(x), static_cast<uint16_t>(x), static_cast<uint16_t>(x)});
    CGImage image;
    convertToSRGB(wide, light, image);
    for (size_t x = 0; x < image.width; ++x) {
        const double amount = static_cast<double>(x) / 65535;
        const double expected = amount <= 0.0031308 ? 12.92 * amount : 1.055 * std::pow(amount, 1 / 2.4) - 0.055;
        // Half a step for the nearest, and a twentieth for the table.
        ASSERT_NEAR(test::pixel(image, x, 0)[1], 255 * expected, 0.56) << x;
    }
}

TEST(ColorProfile, ConvertsSixteenBitsOfEveryKindOfProfile)
{
    // The same as with 8 bits: a matrix, a curve of grey, ink by the simple rule, nothing at all, and alpha.
    const auto both = [](uint8_t first, test::Color color, bool hasAlpha, const ColorDescription& description) {
        CGImage narrow = onePixel(first, color);
        narrow.hasAlpha = hasAlpha;
        platform::WideImage wide{.width = 1, .height = 1, .hasAlpha = hasAlpha, .samples = {}};
        for (const uint8_t sample : narrow.pixels)
            wide.samples.push_back(static_cast<uint16_t>(sample * 257));
        convertToSRGB(narrow, description);
        CGImage image;
        convertToSRGB(wide, description, image);
        EXPECT_EQ(image.hasAlpha, narrow.hasAlpha);
        EXPECT_EQ(image.pixels[0], narrow.pixels[0]);
        expectNear(test::pixel(image, 0, 0), test::pixel(narrow, 0, 0), 1);
    };
    both(0xFF, {200, 40, 40}, false, {.profile = test::displayP3Profile()});
    both(128, {100, 20, 20}, true, {.profile = test::displayP3Profile()});
    both(0xFF, {128, 128, 128}, false, {.model = ColorDescription::Model::Grey, .profile = test::greyProfile(1.0)});
    both(51, {0, 255, 51}, true, {.model = ColorDescription::Model::CMYK});
    both(0xFF, {1, 100, 250}, false, {});
    both(0xFF, {1, 100, 250}, false, {.profile = {1, 2, 3}});
}

TEST(ColorProfile, TurnsACurveOfGreyIntoSRGB)
{
    const ColorDescription description{.model = ColorDescription::Model::Grey, .profile = test::greyProfile(1.0)};
    // Light itself: half of it is 188 in sRGB.
    expectNear(converted({128, 128, 128}, description), {188, 188, 188}, 1);
    expectNear(converted({255, 255, 255}, description), {255, 255, 255}, 1);
}

TEST(ColorProfile, MixesInkWithoutAProfileByTheSimpleRule)
{
    // Black in the first byte, then cyan, magenta, yellow.
    const auto mixed = [](uint8_t black, test::Color ink) {
        CGImage image = onePixel(black, ink);
        convertToSRGB(image, {.model = ColorDescription::Model::CMYK});
        EXPECT_EQ(image.pixels[0], 0xFF);
        return test::pixel(image, 0, 0);
    };
    EXPECT_EQ(mixed(0, {0, 0, 0}), (test::Color{255, 255, 255}));
    EXPECT_EQ(mixed(255, {0, 0, 0}), (test::Color{0, 0, 0}));
    EXPECT_EQ(mixed(0, {255, 0, 0}), (test::Color{0, 255, 255}));
    EXPECT_EQ(mixed(51, {0, 255, 51}), (test::Color{204, 0, 163}));
}

TEST(ColorProfile, KeepsAlpha)
{
    CGImage image = onePixel(128, {100, 20, 20});
    image.hasAlpha = true;
    convertToSRGB(image, {.profile = test::displayP3Profile()});
    EXPECT_EQ(image.pixels[0], 128);
    // As the opaque colour (200, 40, 40), at half strength.
    const test::Color opaque = converted({199, 40, 40}, {.profile = test::displayP3Profile()});
    expectNear(test::pixel(image, 0, 0), {opaque[0] / 2, opaque[1] / 2, opaque[2] / 2}, 1);
}

TEST(ColorProfile, LeavesAPictureOfADamagedProfileAlone)
{
    std::minstd_rand random(3);
    const auto whole = test::displayP3Profile();
    EXPECT_EQ(converted({200, 40, 40}, {.profile = {1, 2, 3}}), (test::Color{200, 40, 40}));
    for (size_t length = 0; length < 200; length += 7) {
        const std::vector<uint8_t> part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(converted({200, 40, 40}, {.profile = part}), (test::Color{200, 40, 40})) << length;
    }
    // Whatever a damaged one does to the colours, it must do it within the picture.
    for (int round = 0; round < 300; ++round) {
        auto damaged = whole;
        for (int i = 0; i < 6; ++i)
            damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
        converted({200, 40, 40}, {.profile = damaged});
    }
}

TEST(ColorProfile, LeavesAPictureOfAnotherKindsProfileAlone)
{
    const ColorDescription description{.profile = test::greyProfile(1.0)};
    EXPECT_EQ(converted({128, 128, 128}, description), (test::Color{128, 128, 128}));
}
