#include "util/MORPalvineCommons.h"

#include "platform/files/NSUserDefaults.h"
#include "platform/propertylists/NSPropertyListSerialization.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

using namespace platform;

namespace {

/// A home of the test's own, with no settings.
class SaveLocationsTest : public testing::Test {
protected:
    void choose(const NSData& bookmark) { ASSERT_TRUE(defaults().setDataForKey(bookmark, "destinationURL")); }
    NSData bookmarkOf(const std::string& path) const
    {
        return NSURL::fileURLWithPath(path).bookmarkData(BookmarkCreationOptions::WithSecurityScope).value();
    }
    std::optional<NSData> stored() const { return defaults().dataForKey("destinationURL"); }
    NSURL defaultFolder() const { return NSURL::fileURLWithPath(home_.path("Movies/Stillora"), true); }
    static NSUserDefaults& defaults() { return NSUserDefaults::standardUserDefaults(); }

    const TemporaryFolder home_;
    const EnvironmentVariable homeVariable_{"HOME", home_.path()};
    const EnvironmentVariable config_{"XDG_CONFIG_HOME", home_.path("config")};
    const EnvironmentVariable temporary_{"TMPDIR", home_.makeFolder("tmp")};
};

} // namespace

TEST_F(SaveLocationsTest, MakesTheDefaultFolderAtEveryCall)
{
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(MORPalvineCommons::defaultSaveDirectory(), defaultFolder());
        EXPECT_TRUE(std::filesystem::is_directory(home_.path("Movies/Stillora")));
        std::filesystem::remove_all(home_.path("Movies"));
    }
}

TEST_F(SaveLocationsTest, GivesTheDefaultFolderEvenWhereItCannotBeMade)
{
    home_.makeFile("Movies", "in the way");
    EXPECT_EQ(MORPalvineCommons::defaultSaveDirectory(), defaultFolder());
}

TEST_F(SaveLocationsTest, IsTheDefaultFolderWhereNoneWasChosen)
{
    EXPECT_EQ(MORPalvineCommons::customSaveDirectory(), defaultFolder());
    EXPECT_TRUE(std::filesystem::is_directory(home_.path("Movies/Stillora")));
}

TEST_F(SaveLocationsTest, IsTheChosenFolder)
{
    const NSData bookmark = bookmarkOf(home_.makeFolder("chosen"));
    choose(bookmark);
    EXPECT_EQ(MORPalvineCommons::customSaveDirectory(), home_.url("chosen"));
    EXPECT_EQ(stored(), bookmark);
    EXPECT_FALSE(std::filesystem::exists(home_.path("Movies")));
}

TEST_F(SaveLocationsTest, IsTheDefaultFolderWhereTheChosenOneWasDeleted)
{
    const NSData bookmark = bookmarkOf(home_.makeFolder("chosen"));
    choose(bookmark);
    std::filesystem::remove(home_.path("chosen"));
    EXPECT_EQ(MORPalvineCommons::customSaveDirectory(), defaultFolder());
    EXPECT_TRUE(std::filesystem::is_directory(home_.path("Movies/Stillora")));
    EXPECT_EQ(stored(), bookmark);
}

TEST_F(SaveLocationsTest, IsTheDefaultFolderWhereTheSettingIsNoBookmark)
{
    choose({1, 2, 3});
    EXPECT_EQ(MORPalvineCommons::customSaveDirectory(), defaultFolder());
    EXPECT_EQ(stored(), (NSData{1, 2, 3}));
}

TEST_F(SaveLocationsTest, FollowsTheChosenFolderAndStoresWhereItIsNow)
{
    const NSData bookmark = bookmarkOf(home_.makeFolder("chosen"));
    choose(bookmark);
    std::filesystem::rename(home_.path("chosen"), home_.path("renamed"));
    EXPECT_EQ(MORPalvineCommons::customSaveDirectory(), home_.url("renamed"));
    ASSERT_TRUE(stored());
    EXPECT_NE(stored(), bookmark);
    bool isStale = true;
    EXPECT_EQ(NSURL::URLByResolvingBookmarkData(*stored(), BookmarkResolutionOptions::WithSecurityScope, &isStale),
              home_.url("renamed"));
    EXPECT_FALSE(isStale);
}

TEST_F(SaveLocationsTest, ChoosesTheDefaultFolderWhereTheChosenOneGoesBeforeItsPlaceCouldBeStored)
{
    // Another name each time: what was found may be gone the moment after.
    const NSData bookmark = bookmarkOf(home_.makeFolder("chosen"));
    const std::string names[] = {home_.path("one"), home_.path("two")};
    std::filesystem::rename(home_.path("chosen"), names[0]);
    std::atomic<bool> isEnough{false};
    std::jthread renamer([&] {
        for (int turn = 0; !isEnough; turn = 1 - turn)
            std::filesystem::rename(names[turn], names[1 - turn]);
    });
    const NSData fallback = bookmarkOf(MORPalvineCommons::defaultSaveDirectory().path());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    std::optional<NSURL> url;
    do {
        choose(bookmark);
        url = MORPalvineCommons::customSaveDirectory();
    } while (stored() != fallback && std::chrono::steady_clock::now() < deadline);
    isEnough = true;
    EXPECT_EQ(stored(), fallback);
    EXPECT_EQ(url, defaultFolder());
}

TEST_F(SaveLocationsTest, TakesAFileAtTheChosenPlaceForTheFolder)
{
    // Whatever exists there counts.
    const std::string path = home_.makeFile("chosen");
    choose(bookmarkOf(path));
    EXPECT_EQ(MORPalvineCommons::customSaveDirectory().path(), path);
}

TEST_F(SaveLocationsTest, KeepsScratchFilesInTheSaveFolder)
{
    choose(bookmarkOf(home_.makeFolder("chosen")));
    const NSURL url = MORPalvineCommons::temporarySaveDirectory();
    EXPECT_EQ(url.absoluteString(), "file://" + home_.path("chosen/.MORStilloraTemporaryFiles/"));
    EXPECT_TRUE(std::filesystem::is_directory(url.path()));
    EXPECT_EQ(MORPalvineCommons::temporarySaveDirectory(), url);
}

TEST_F(SaveLocationsTest, KeepsTheScratchFolderWhereAFileStandsInItsPlace)
{
    choose(bookmarkOf(home_.makeFolder("chosen")));
    home_.makeFile("chosen/.MORStilloraTemporaryFiles");
    EXPECT_EQ(MORPalvineCommons::temporarySaveDirectory().path(), home_.path("chosen/.MORStilloraTemporaryFiles"));
    EXPECT_FALSE(std::filesystem::exists(home_.path("tmp/.MORStilloraTemporaryFiles")));
}

TEST_F(SaveLocationsTest, KeepsScratchFilesInTheSystemsFolderWhereTheSaveFolderRefuses)
{
    // A file as save folder can hold nothing.
    choose(bookmarkOf(home_.makeFile("chosen")));
    const NSURL url = MORPalvineCommons::temporarySaveDirectory();
    EXPECT_EQ(url.absoluteString(), "file://" + home_.path("tmp/.MORStilloraTemporaryFiles/"));
    EXPECT_TRUE(std::filesystem::is_directory(url.path()));
    std::filesystem::remove_all(home_.path("tmp"));
    EXPECT_TRUE(std::filesystem::is_directory(MORPalvineCommons::temporarySaveDirectory().path())) << "with its parent";
}
