#include "platform/system/NSWorkspace.h"

#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <string_view>

using platform::CGSize;
using platform::NSError;
using platform::NSWorkspace;
using namespace std::string_view_literals;

namespace {

NSWorkspace& workspace()
{
    return NSWorkspace::sharedWorkspace();
}

} // namespace

TEST(NSWorkspace, HasAnIconForEveryType)
{
    for (const auto type : {"mov"sv, "m4a"sv, "jpg"sv, "txt"sv, ""sv, "no such type"sv}) {
        const auto icon = workspace().iconForFileType(type);
        ASSERT_NE(icon, nullptr) << type;
        EXPECT_EQ(icon->size(), (CGSize{32, 32}));
        EXPECT_TRUE(icon->pngData());
    }
}

TEST(NSWorkspace, ShowsKindsOfFilesApart)
{
    const auto movie = workspace().iconForFileType("mov");
    const auto sound = workspace().iconForFileType("m4a");
    const auto picture = workspace().iconForFileType("jpg");
    const auto plain = workspace().iconForFileType("no such type");
    EXPECT_NE(movie->image()->pixels, sound->image()->pixels);
    EXPECT_NE(movie->image()->pixels, picture->image()->pixels);
    EXPECT_NE(sound->image()->pixels, plain->image()->pixels);
    EXPECT_EQ(workspace().iconForFileType("MP4"), movie);
    EXPECT_EQ(workspace().iconForFileType("mp3"), sound);
}

TEST(NSWorkspace, GivesAFileTheIconOfItsType)
{
    EXPECT_EQ(workspace().iconForFile("/nowhere/holiday.mov"), workspace().iconForFileType("mov"));
    EXPECT_EQ(workspace().iconForFile("jpg"), workspace().iconForFileType("")) << "a name without an extension";
}

TEST(NSWorkspace, TellsAFilesTypeByItsContentFirst)
{
    const TemporaryFolder folder;
    test::writeFile(folder.path("a.txt"), test::jpegBytes(test::plain(8, 8, test::kRed)));
    EXPECT_EQ(workspace().typeOfFile(folder.url("a.txt")), "image/jpeg");
    folder.makeFile("b.jpg", "Just a text with a picture's name.\n");
    EXPECT_EQ(workspace().typeOfFile(folder.url("b.jpg")), "text/plain");
}

TEST(NSWorkspace, TellsAFilesTypeByItsNameWhereTheContentSaysNothing)
{
    const TemporaryFolder folder;
    folder.makeFile("a.JPG", "");
    EXPECT_EQ(workspace().typeOfFile(folder.url("a.JPG")), "image/jpeg");
    folder.makeFile("b.heic", "\x01\x02\x03\x04\x05\x06\xFE\xFF\x80\x81");
    EXPECT_EQ(workspace().typeOfFile(folder.url("b.heic")), "image/heic");
    folder.makeFile("c", "");
    const auto unknown = workspace().typeOfFile(folder.url("c"));
    ASSERT_TRUE(unknown);
    EXPECT_FALSE(NSWorkspace::conformsToImage(*unknown));
}

TEST(NSWorkspace, TellsNoTypeOfWhatIsNoFile)
{
    const TemporaryFolder folder;
    folder.makeFolder("folder.jpg");
    for (const auto name : {"missing.jpg"sv, "folder.jpg"sv}) {
        NSError error;
        EXPECT_EQ(workspace().typeOfFile(folder.url(name), &error), std::nullopt);
        EXPECT_TRUE(error.localizedDescription.starts_with(name)) << error.localizedDescription;
    }
}

TEST(NSWorkspace, KnowsWhichTypesArePictures)
{
    EXPECT_TRUE(NSWorkspace::conformsToImage("image/png"));
    EXPECT_FALSE(NSWorkspace::conformsToImage("video/quicktime"));
    EXPECT_FALSE(NSWorkspace::conformsToImage(""));
}
