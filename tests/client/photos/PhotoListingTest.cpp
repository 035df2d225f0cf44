#include <stillora/Photos.h>

#include "tests/support/TemporaryFolder.h"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

using namespace stillora;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Origin = PhotoCandidate::Origin;

std::vector<std::string> names(const PhotoListing& listing)
{
    std::vector<std::string> result;
    for (const PhotoCandidate& candidate : listing.candidates)
        result.push_back(std::filesystem::path(candidate.path).filename());
    return result;
}

TEST(PhotoListing, ReadsAFolderInNaturalOrder)
{
    const TemporaryFolder folder;
    for (const char* name : {"img10.jpg", "img2.JPG", "img1.png", "IMG3.heic"})
        folder.makeFile(name, "x");
    const PhotoListing listing = listPhotos({folder.path()});
    EXPECT_THAT(names(listing), ElementsAre("img1.png", "img2.JPG", "IMG3.heic", "img10.jpg"));
    EXPECT_THAT(listing.notes, IsEmpty());
}

TEST(PhotoListing, KeepsFilesWhereTheUserPutThem)
{
    const TemporaryFolder folder;
    folder.makeFile("b.jpg", "x");
    folder.makeFile("a.jpg", "x");
    folder.makeFile("c/d.jpg", "x");
    const PhotoListing listing = listPhotos({folder.path("b.jpg"), folder.path("c"), folder.path("a.jpg")});
    EXPECT_THAT(names(listing), ElementsAre("b.jpg", "d.jpg", "a.jpg"));
    EXPECT_EQ(listing.candidates[0].origin, Origin::Named);
    EXPECT_EQ(listing.candidates[1].origin, Origin::FoundAsPicture);
}

TEST(PhotoListing, MayHaveAPhotoTwice)
{
    const TemporaryFolder folder;
    const std::string photo = folder.makeFile("a.jpg", "x");
    EXPECT_THAT(listPhotos({photo, photo}).candidates, SizeIs(2));
}

TEST(PhotoListing, PassesOverHiddenFilesWithoutAWord)
{
    const TemporaryFolder folder;
    folder.makeFile(".hidden.jpg", "x");
    folder.makeFile("._a.jpg", "x");
    folder.makeFile("a.jpg", "x");
    const PhotoListing listing = listPhotos({folder.path()});
    EXPECT_THAT(names(listing), ElementsAre("a.jpg"));
    EXPECT_THAT(listing.notes, IsEmpty());
}

TEST(PhotoListing, TakesFoldersInsideFoldersWhereTheyAreWanted)
{
    const TemporaryFolder folder;
    for (const char* name : {"day10/a.jpg", "day2/evening/c.jpg", "day2/b.jpg", "x.jpg", ".hidden/h.jpg",
                             "Kept.stillora/Resources/Photos/x.jpg", "empty/text.txt", "day2/song.mp3"})
        folder.makeFile(name, "x");
    std::filesystem::create_directory_symlink(folder.path(), folder.path("day2/circle"));
    const PhotoListing listing = listPhotos({folder.path()}, FolderSounds::PassedOver, InnerFolders::Listed);
    EXPECT_THAT(names(listing), ElementsAre("x.jpg", "b.jpg", "c.jpg", "a.jpg"));
    EXPECT_EQ(listing.candidates[2].path, folder.path("day2/evening/c.jpg"));
    EXPECT_THAT(listing.bad, IsEmpty());
    EXPECT_THAT(listing.notes, ElementsAre(HasSubstr("2 files that are no photos"), HasSubstr("2 folders inside")));
    EXPECT_THAT(listPhotos({folder.path()}, FolderSounds::Listed, InnerFolders::Listed).sounds,
                ElementsAre(std::filesystem::path(folder.path("day2/song.mp3"))));
    EXPECT_THAT(names(listPhotos({folder.path()})), ElementsAre("x.jpg"));
}

TEST(PhotoListing, RefusesAFolderWhoseFoldersHoldNoPhotosEither)
{
    const TemporaryFolder folder;
    folder.makeFile("a/b/text.txt", "x");
    const PhotoListing listing = listPhotos({folder.path()}, FolderSounds::PassedOver, InnerFolders::Listed);
    ASSERT_THAT(listing.bad, SizeIs(1));
    EXPECT_EQ(listing.bad[0].reason, "the folder holds no photos");
    EXPECT_EQ(listing.bad[0].path, folder.path());
}

TEST(PhotoListing, FollowsFoldersDeeperThanAProcessMayHaveFilesOpen)
{
    const TemporaryFolder folder;
    std::string path;
    for (int i = 0; i < 100; ++i)
        path += "d/";
    const std::string photo = folder.makeFile(path + "a.jpg", "x");
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few = {50, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    const PhotoListing listing = listPhotos({folder.path()}, FolderSounds::PassedOver, InnerFolders::Listed);
    setrlimit(RLIMIT_NOFILE, &before);
    ASSERT_THAT(listing.candidates, SizeIs(1));
    EXPECT_EQ(listing.candidates[0].path, photo);
}

TEST(PhotoListing, NotesOtherFilesAndFoldersOfAFolder)
{
    const TemporaryFolder folder;
    folder.makeFile("a.jpg", "x");
    folder.makeFile("clip.MOV", "x");
    folder.makeFile("raw.CR2", "x");
    folder.makeFile("more/b.jpg", "x");
    const PhotoListing listing = listPhotos({folder.path(), folder.path()});
    EXPECT_THAT(names(listing), ElementsAre("a.jpg", "a.jpg"));
    // Once, however often the folder is given.
    EXPECT_THAT(listing.notes, ElementsAre(HasSubstr("2 files that are no photos"), HasSubstr("1 folder inside")));
}

TEST(PhotoListing, LeavesFilesOfUnknownKindToTheLookInside)
{
    const TemporaryFolder folder;
    folder.makeFile("photo", "x");
    folder.makeFile("scan.dat", "x");
    const PhotoListing listing = listPhotos({folder.path()});
    ASSERT_THAT(names(listing), ElementsAre("photo", "scan.dat"));
    EXPECT_EQ(listing.candidates[0].origin, Origin::FoundAsFile);
}

TEST(PhotoListing, MissesNoPhotoBehindADanglingLink)
{
    const TemporaryFolder folder;
    std::filesystem::create_symlink("/nowhere/at/all.jpg", folder.path("a.jpg"));
    EXPECT_THAT(names(listPhotos({folder.path()})), ElementsAre("a.jpg"));
}

TEST(PhotoListing, NamesArgumentsThatAreNotThere)
{
    const TemporaryFolder folder;
    const PhotoListing listing = listPhotos({folder.path("none.jpg")});
    ASSERT_THAT(listing.bad, SizeIs(1));
    EXPECT_EQ(listing.bad[0].path, folder.path("none.jpg"));
    EXPECT_EQ(listing.bad[0].reason, "No such file or directory");
}

TEST(PhotoListing, NamesFoldersWithoutPhotos)
{
    const TemporaryFolder folder;
    folder.makeFolder("empty.jpg");
    folder.makeFile("music/song.mp3", "x");
    const PhotoListing listing = listPhotos({folder.path("empty.jpg"), folder.path("music")});
    EXPECT_THAT(listing.candidates, IsEmpty());
    ASSERT_THAT(listing.bad, SizeIs(2));
    EXPECT_EQ(listing.bad[0].path, folder.path("empty.jpg"));
    EXPECT_EQ(listing.bad[1].reason, "the folder holds no photos");
}

} // namespace
