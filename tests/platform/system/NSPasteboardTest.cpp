#include "platform/system/NSPasteboard.h"

#include "platform/graphics/NSImage.h"
#include "tests/support/ReadBack.h"

#include <gtest/gtest.h>

#include <utility>

using platform::NSData;
using platform::NSPasteboard;

namespace {

NSData tiffOf(const test::Picture& picture, platform::CGSize size = {})
{
    return platform::NSImage(test::imageOf(picture), size).TIFFRepresentation().value();
}

/// A pasteboard that no other test has.
platform::NSPasteboardPtr newPasteboard(const std::string& name)
{
    NSPasteboard::pasteboardWithName(name)->releaseGlobally();
    return NSPasteboard::pasteboardWithName(name);
}

} // namespace

TEST(NSPasteboard, IsTheSameForOneName)
{
    const auto one = newPasteboard("one");
    EXPECT_EQ(NSPasteboard::pasteboardWithName("one"), one);
    EXPECT_NE(NSPasteboard::pasteboardWithName("two"), one);
}

TEST(NSPasteboard, IsAnotherAfterItsRelease)
{
    const auto first = newPasteboard("released");
    first->declareTypes({"text/plain"});
    ASSERT_TRUE(first->setDataForType(NSData{1}, "text/plain"));
    first->releaseGlobally();
    EXPECT_EQ(first->dataForType("text/plain"), std::nullopt);
    const auto second = NSPasteboard::pasteboardWithName("released");
    EXPECT_NE(second, first);
    // Released twice, it takes nothing away from the other.
    first->releaseGlobally();
    EXPECT_EQ(NSPasteboard::pasteboardWithName("released"), second);
}

TEST(NSPasteboard, GivesBackWhatWasSet)
{
    const auto pasteboard = newPasteboard("plain");
    pasteboard->declareTypes({"text/plain", platform::kNSPasteboardTypeTIFF});
    EXPECT_EQ(pasteboard->dataForType("text/plain"), std::nullopt);
    EXPECT_TRUE(pasteboard->setDataForType(NSData{1, 2, 3}, "text/plain"));
    EXPECT_EQ(pasteboard->dataForType("text/plain"), (NSData{1, 2, 3}));
    // Declaring anew forgets it.
    pasteboard->declareTypes({"text/plain"});
    EXPECT_EQ(pasteboard->dataForType("text/plain"), std::nullopt);
}

TEST(NSPasteboard, TakesNothingOfATypeThatWasNotDeclared)
{
    const auto pasteboard = newPasteboard("undeclared");
    pasteboard->declareTypes({platform::kNSPasteboardTypeTIFF});
    EXPECT_FALSE(pasteboard->setDataForType(NSData{1}, "text/plain"));
    EXPECT_EQ(pasteboard->dataForType("text/plain"), std::nullopt);
}

TEST(NSPasteboard, ConvertsATIFFToOtherPictures)
{
    const test::Picture picture = test::quadrants(60, 40);
    const auto pasteboard = newPasteboard("pictures");
    pasteboard->declareTypes({platform::kNSPasteboardTypeTIFF});
    ASSERT_TRUE(pasteboard->setDataForType(tiffOf(picture), platform::kNSPasteboardTypeTIFF));
    for (const auto& [type, codec] : {std::pair{platform::kNSPasteboardTypePNG, "png"},
                                      {platform::kNSPasteboardTypeJPEG, "mjpeg"},
                                      {platform::kNSPasteboardTypeGIF, "gif"},
                                      {platform::kNSPasteboardTypeBMP, "bmp"},
                                      {platform::kNSPasteboardTypeJPEG2000, "jpeg2000"}}) {
        const auto data = pasteboard->dataForType(type);
        ASSERT_TRUE(data) << type;
        const auto [readCodec, read] = test::decodedByFFmpeg(*data);
        EXPECT_EQ(readCodec, codec);
        ASSERT_EQ(read.width, 60u) << type;
        ASSERT_EQ(read.height, 40u) << type;
        // What the usual compression loses within a flat colour.
        for (const auto& [x, y] : {std::pair{10u, 10u}, {50u, 10u}, {10u, 30u}, {50u, 30u}})
            for (size_t band = 0; band < 3; ++band)
                EXPECT_NEAR(read.at(x, y)[band], picture.at(x, y)[band], 4) << type;
    }
}

TEST(NSPasteboard, ConvertsATIFFToAPageOfItsSize)
{
    const auto pasteboard = newPasteboard("page");
    pasteboard->declareTypes({platform::kNSPasteboardTypeTIFF});
    ASSERT_TRUE(
        pasteboard->setDataForType(tiffOf(test::quadrants(60, 40), {120, 80}), platform::kNSPasteboardTypeTIFF));
    const auto data = pasteboard->dataForType(platform::kNSPasteboardTypePDF);
    ASSERT_TRUE(data);
    const test::Picture page = test::drawnByPoppler(*data);
    EXPECT_EQ(page.width, 120u);
    EXPECT_EQ(page.height, 80u);
    EXPECT_EQ(page.at(30, 20)[0], test::kRed[0]);
    EXPECT_EQ(page.at(90, 60)[0], test::kWhite[0]);
}

TEST(NSPasteboard, ConvertsNothingThatItCannot)
{
    const auto pasteboard = newPasteboard("damage");
    EXPECT_EQ(pasteboard->dataForType(platform::kNSPasteboardTypePDF), std::nullopt);
    pasteboard->declareTypes({platform::kNSPasteboardTypeTIFF});
    EXPECT_EQ(pasteboard->dataForType(platform::kNSPasteboardTypePDF), std::nullopt);
    ASSERT_TRUE(pasteboard->setDataForType(NSData{'M', 'M', 0, 42, 0}, platform::kNSPasteboardTypeTIFF));
    for (const auto type : {platform::kNSPasteboardTypePDF, platform::kNSPasteboardTypePNG})
        EXPECT_EQ(pasteboard->dataForType(type), std::nullopt);
    ASSERT_TRUE(pasteboard->setDataForType(tiffOf(test::plain(2, 2, test::kRed)), platform::kNSPasteboardTypeTIFF));
    EXPECT_EQ(pasteboard->dataForType("text/plain"), std::nullopt);
}
