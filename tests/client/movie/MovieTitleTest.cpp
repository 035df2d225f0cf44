#include <stillora/Movie.h>

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

using namespace stillora;

namespace {

std::string titleFor(const std::vector<std::string>& paths)
{
    std::vector<PhotoFacts> photos;
    for (const std::string& path : paths)
        photos.push_back({path, {}, 0});
    return titleForPhotos(photos);
}

TEST(MovieTitle, IsTheFolderThatAllPhotosLieIn)
{
    const TemporaryFolder folder;
    folder.makeFolder("Rome v1.2");
    EXPECT_EQ(titleFor({folder.path("Rome v1.2/a.jpg"), folder.path("Rome v1.2/b.jpg")}), "Rome v1.2");
    EXPECT_EQ(titleFor({folder.path("Rome v1.2/../Rome v1.2/./a.jpg")}), "Rome v1.2");
}

TEST(MovieTitle, IsSlideshowForPhotosOfSeveralFolders)
{
    const TemporaryFolder folder;
    folder.makeFolder("a");
    folder.makeFolder("b");
    EXPECT_EQ(titleFor({folder.path("a/1.jpg"), folder.path("b/2.jpg")}), "Slideshow");
    EXPECT_EQ(titleFor({"/photo.jpg"}), "Slideshow") << "the root has no name";
}

TEST(MovieTitle, OfAFolderIsMadeFitForAFile)
{
    const TemporaryFolder folder;
    folder.makeFolder("caf\xE9");
    EXPECT_EQ(titleFor({folder.path("caf\xE9/a.jpg")}), "caf\xEF\xBF\xBD");
    folder.makeFolder(".hidden");
    EXPECT_EQ(titleFor({folder.path(".hidden/a.jpg")}), "Slideshow");
    const std::string name(254, 'x');
    folder.makeFolder(name);
    EXPECT_EQ(titleFor({folder.path(name + "/a.jpg")}), name.substr(0, kMaxTitleBytes));
}

TEST(MovieTitle, HasAFaultIfItCannotBeAFile)
{
    for (const char* good : {"Holiday", "Trip v1.2", "Name.", "été", "a\"b'c\\d", "-x", "a..b"})
        EXPECT_FALSE(faultOfTitle(good)) << good;
    for (const char* bad : {"", " ", "a/b", ".", "..", ".a", "a\nb", "\x7f", "caf\xE9"})
        EXPECT_TRUE(faultOfTitle(bad)) << bad;
    EXPECT_FALSE(faultOfTitle(std::string(kMaxTitleBytes, 'x')));
    EXPECT_TRUE(faultOfTitle(std::string(kMaxTitleBytes + 1, 'x')));
}

} // namespace
