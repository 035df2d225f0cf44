#include "util/MORPalvineCommons.h"

#include "tests/support/LogRecorder.h"
#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

using platform::CGSize;

namespace {

std::string jpegFile(const TemporaryFolder& folder, const std::string& name, size_t width, size_t height,
                     std::optional<int> orientation = {})
{
    test::writeFile(folder.path(name),
                    test::jpegBytes(test::plain(width, height, test::kRed), {.orientation = orientation}));
    return folder.path(name);
}

} // namespace

TEST(MORPalvineCommonsImages, SwapsTheSidesOfAPhotoThatIsTurnedByAQuarter)
{
    const TemporaryFolder folder;
    const LogRecorder log;
    for (int orientation = 1; orientation <= 8; ++orientation) {
        const auto path = jpegFile(folder, "a.jpg", 40, 30, orientation);
        EXPECT_EQ(MORPalvineCommons::sizeOfImageAtURL(test::url(path)),
                  orientation < 5 ? (CGSize{40, 30}) : (CGSize{30, 40}))
            << orientation;
    }
    EXPECT_EQ(MORPalvineCommons::sizeOfImageAtURL(test::url(jpegFile(folder, "b.jpg", 400, 300))), (CGSize{400, 300}));
    EXPECT_EQ(MORPalvineCommons::sizeOfImageAtURL(test::url(jpegFile(folder, "c.jpg", 400, 300, 9))),
              (CGSize{400, 300}));
    EXPECT_TRUE(log.lines().empty());
}

TEST(MORPalvineCommonsImages, MeasuresPicturesOfOtherFormatsByContent)
{
    const TemporaryFolder folder;
    test::save(test::plain(123, 45, test::kBlue), folder.path("a.png"));
    std::filesystem::rename(folder.path("a.png"), folder.path("picture"));
    EXPECT_EQ(MORPalvineCommons::sizeOfImageAtURL(test::url(folder.path("picture"))), (CGSize{123, 45}));
}

TEST(MORPalvineCommonsImages, MeasuresATextFileAsZeroWithoutAMessage)
{
    const TemporaryFolder folder;
    const LogRecorder log;
    for (const std::string name : {"notes.txt", "notes.jpg"})
        EXPECT_EQ(MORPalvineCommons::sizeOfImageAtURL(test::url(folder.makeFile(name, "A text, nothing more.\n"))),
                  platform::kNSZeroSize)
            << name;
    EXPECT_EQ(MORPalvineCommons::sizeOfImageAtURL(test::url(folder.path("missing.jpg"))), platform::kNSZeroSize);
    EXPECT_EQ(MORPalvineCommons::sizeOfImageAtURL(test::url(folder.makeFolder("folder.jpg"))), platform::kNSZeroSize);
    EXPECT_EQ(MORPalvineCommons::sizeOfImageAtURL(std::nullopt), platform::kNSZeroSize);
    EXPECT_TRUE(log.lines().empty());
}

TEST(MORPalvineCommonsImages, SaysThatAPhotoCannotBeOpened)
{
    const TemporaryFolder folder;
    const LogRecorder log;
    const auto url = test::url(folder.makeFile("a b.jpg", ""));
    EXPECT_EQ(MORPalvineCommons::sizeOfImageAtURL(url), platform::kNSZeroSize);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"+[MORPalvineCommons sizeOfImageAtURL:] - failed to calculate "
                                                     "size for photo at url: " +
                                                     url.absoluteString()}));
}

TEST(MORPalvineCommonsImages, SaysThatAPhotoHasNoDimensions)
{
    const TemporaryFolder folder;
    const LogRecorder log;
    const auto url = test::url(folder.makeFile("a.jpg", "\xFF\xD8\xFF\xD9"));
    EXPECT_EQ(MORPalvineCommons::sizeOfImageAtURL(url), platform::kNSZeroSize);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"+[MORPalvineCommons sizeOfImageAtURL:] - file could not be read for "
                                        "determining dimensions, could not even load properties: " +
                                        url.absoluteString()}));
}
