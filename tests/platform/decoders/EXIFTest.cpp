#include "platform/decoders/EXIF.h"

#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <random>

using platform::parseEXIF;

TEST(EXIF, TellsEachOrientation)
{
    for (int orientation = 1; orientation <= 8; ++orientation)
        EXPECT_EQ(parseEXIF(test::exifBytes(orientation)).orientation, orientation);
}

TEST(EXIF, TellsNoOrientationForOtherValues)
{
    for (const int value : {0, 9, 255, 65535})
        EXPECT_EQ(parseEXIF(test::exifBytes(value)).orientation, std::nullopt) << value;
}

TEST(EXIF, ReadsBothByteOrders)
{
    const std::vector<uint8_t> little = {'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0x12, 1, 3, 0, 1, 0, 0, 0, 6, 0, 0, 0};
    EXPECT_EQ(parseEXIF(little).orientation, 6);
}

TEST(EXIF, ReadsAnOrientationOfOneByteOrFour)
{
    std::vector<uint8_t> bytes = {'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0x12, 1, 1, 0, 1, 0, 0, 0, 8, 0, 0, 0};
    EXPECT_EQ(parseEXIF(bytes).orientation, 8);
    bytes[12] = 4;
    EXPECT_EQ(parseEXIF(bytes).orientation, 8);
}

TEST(EXIF, ReadsTheResolutionInInchesAndCentimetres)
{
    std::vector<uint8_t> bytes = {'M',  'M', 0, 42, 0, 0, 0, 8, 0, 2, 1, 0x1A, 0, 5, 0, 0, 0, 1,    0,    0, 0, 38, 1,
                                  0x28, 0,   3, 0,  0, 0, 1, 0, 2, 0, 0, 0,    0, 0, 0, 0, 0, 0x02, 0x58, 0, 0, 0,  2};
    EXPECT_EQ(parseEXIF(bytes).dpi, 300.0);
    bytes[31] = 3;
    EXPECT_EQ(parseEXIF(bytes).dpi, 762.0);
    bytes[45] = 0;
    EXPECT_EQ(parseEXIF(bytes).dpi, std::nullopt);
}

TEST(EXIF, TellsAdobeRGBByTheMarkOfInteroperabilityWhereTheSpaceIsNotSRGB)
{
    EXPECT_TRUE(parseEXIF(test::colorSpaceEXIFBytes(65535, "R03")).isAdobeRGB);
    EXPECT_FALSE(parseEXIF(test::colorSpaceEXIFBytes(65535, "R98")).isAdobeRGB);
    EXPECT_FALSE(parseEXIF(test::colorSpaceEXIFBytes(1, "R03")).isAdobeRGB);
    EXPECT_FALSE(parseEXIF(test::exifBytes(6)).isAdobeRGB);
    const auto whole = test::colorSpaceEXIFBytes(65535, "R03");
    for (size_t length = 0; length < whole.size(); ++length) {
        const std::vector<uint8_t> part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        // Only behind the mark stands what may be missing: the place of a next folder.
        EXPECT_EQ(parseEXIF(part).isAdobeRGB, length + 4 >= whole.size()) << length;
    }
}

TEST(EXIF, SurvivesBeingCutOffAnywhere)
{
    const auto whole = test::exifBytes(6);
    for (size_t length = 0; length < whole.size(); ++length) {
        const std::vector<uint8_t> part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        const auto found = parseEXIF(part).orientation;
        EXPECT_TRUE(!found || found == 6) << length;
    }
}

TEST(EXIF, SurvivesDamageAnywhere)
{
    std::minstd_rand random(7);
    const auto whole = test::exifBytes(6);
    for (int round = 0; round < 20000; ++round) {
        auto damaged = whole;
        for (int i = 0; i < 4; ++i)
            damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
        const auto found = parseEXIF(damaged).orientation;
        EXPECT_TRUE(!found || (*found >= 1 && *found <= 8));
    }
}
