#include <stillora/Picture.h>

#include "client/DataBytes.h"
#include "platform/decoders/CGImageSource.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

using namespace stillora;

namespace {

std::string savedJPEG(const TemporaryFolder& folder, size_t width, size_t height, std::optional<int> orientation = {})
{
    const auto bytes = test::jpegBytes(test::plain(width, height, test::kRed), {.orientation = orientation});
    return folder.makeFile("a.jpg", std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

/// Zero for what is no PNG file.
Size sizeOfPNG(const Result<Bytes>& file)
{
    const auto source = file ? platform::CGImageSource::createWithData(dataOf(*file), "picture") : nullptr;
    const auto properties = source ? source->copyPropertiesAtIndex() : std::nullopt;
    if (!properties || properties->format != "png")
        return {};
    return {static_cast<double>(properties->pixelWidth), static_cast<double>(properties->pixelHeight)};
}

TEST(Picture, IsScaledDownIntoABoxAndNeverUp)
{
    const TemporaryFolder folder;
    const std::string file = savedJPEG(folder, 400, 200);
    EXPECT_EQ(sizeOfPNG(fittedPicture(file, {100, 100})), (Size{100, 50}));
    EXPECT_EQ(sizeOfPNG(fittedPicture(file, {1000, 20})), (Size{40, 20}));
    EXPECT_EQ(sizeOfPNG(fittedPicture(file, {1000, 1000})), (Size{400, 200}));
}

TEST(Picture, IsTurnedUprightBeforeItIsFitted)
{
    const TemporaryFolder folder;
    EXPECT_EQ(sizeOfPNG(fittedPicture(savedJPEG(folder, 400, 200, 6), {100, 100})), (Size{50, 100}));
}

TEST(Picture, HasAnAverageColour)
{
    const TemporaryFolder folder;
    const auto color = averageColorOf(savedJPEG(folder, 64, 64));
    ASSERT_TRUE(color);
    // As JPEG keeps it.
    EXPECT_NEAR(color->red, test::kRed[0] / 255.0, 0.02);
    EXPECT_NEAR(color->green, test::kRed[1] / 255.0, 0.02);
    EXPECT_FALSE(averageColorOf(folder.makeFile("text.jpg", "no picture")));
}

TEST(Picture, ThatCannotBeReadIsRefused)
{
    const TemporaryFolder folder;
    const auto fitted = fittedPicture(folder.path("gone.jpg"), {10, 10});
    ASSERT_FALSE(fitted);
    EXPECT_EQ(fitted.error().code, ErrorCode::FileNotFound);
    EXPECT_EQ(fitted.error().file, folder.path("gone.jpg"));
    const Bytes junk(100, std::byte{7});
    EXPECT_FALSE(pictureAsPNG(junk));
    EXPECT_EQ(sizeOfPNG(pictureAsPNG(bytesOf(test::jpegBytes(test::plain(30, 20, test::kBlue))))), (Size{30, 20}));
}

} // namespace
