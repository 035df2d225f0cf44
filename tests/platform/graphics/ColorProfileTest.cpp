#include "platform/graphics/ColorProfile.h"

#include "tests/platform/graphics/TestProfiles.h"
#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

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
