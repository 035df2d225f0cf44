#include "util/MORURLCategory.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

using namespace platform;

namespace {

/// The name that is chosen for a wished-for one.
std::string freeName(const TemporaryFolder& folder, const std::string& name)
{
    const NSURL url = MORURLCategory::URLForNotOverridingURL(NSURL::fileURLWithPath(folder.path(name), false));
    EXPECT_EQ(url.URLByDeletingLastPathComponent(), folder.url());
    return url.lastPathComponent();
}

} // namespace

TEST(MORURLCategory, GivesAFreeLocationBackUnchanged)
{
    const TemporaryFolder folder;
    const NSURL url = NSURL::fileURLWithPath(folder.path("Movie.mov"), false);
    EXPECT_EQ(MORURLCategory::URLForNotOverridingURL(url), url);
    const NSURL folderURL = NSURL::fileURLWithPath(folder.path("New"), true);
    EXPECT_EQ(MORURLCategory::URLForNotOverridingURL(folderURL), folderURL);
}

TEST(MORURLCategory, KeepsOnlyTheLastExtensionApart)
{
    const TemporaryFolder folder;
    folder.makeFile("archive.tar.gz");
    EXPECT_EQ(freeName(folder, "archive.tar.gz"), "archive.tar-2.gz");
}

TEST(MORURLCategory, AppendsToANameWithoutExtension)
{
    const TemporaryFolder folder;
    folder.makeFolder("Folder");
    EXPECT_EQ(freeName(folder, "Folder"), "Folder-2");
    const NSURL url = MORURLCategory::URLForNotOverridingURL(NSURL::fileURLWithPath(folder.path("Folder"), true));
    EXPECT_EQ(url.absoluteString(), "file://" + folder.path("Folder-2") + "/");
}

TEST(MORURLCategory, GoesOnToThree)
{
    const TemporaryFolder folder;
    folder.makeFile("Movie.mov");
    EXPECT_EQ(freeName(folder, "Movie.mov"), "Movie-2.mov");
    folder.makeFile("Movie-2.mov");
    EXPECT_EQ(freeName(folder, "Movie.mov"), "Movie-3.mov");
}

TEST(MORURLCategory, DoesNotPileUpSuffixes)
{
    const TemporaryFolder folder;
    folder.makeFile("Movie.mov");
    for (int i = 2; i <= 12; ++i)
        folder.makeFile("Movie-" + std::to_string(i) + ".mov");
    EXPECT_EQ(freeName(folder, "Movie.mov"), "Movie-13.mov");
    EXPECT_EQ(freeName(folder, "Movie-2.mov"), "Movie-2-2.mov");
}

TEST(MORURLCategory, KnowsNamesWithoutARealExtension)
{
    const TemporaryFolder folder;
    for (const auto& [name, chosen] : std::initializer_list<std::pair<const char*, const char*>>{
             {".mov", ".mov-2"},
             {"St. Ives", "St. Ives-2"},
             {"Name.", "Name.-2"},
             {"Grüße.mov", "Grüße-2.mov"},
             {"\xFF.mov", "\xFF-2.mov"},
         }) {
        folder.makeFile(name);
        EXPECT_EQ(freeName(folder, name), chosen);
    }
}

TEST(MORURLCategory, TakesADanglingLinkForFree)
{
    const TemporaryFolder folder;
    std::filesystem::create_symlink("gone", folder.path("Movie.mov"));
    EXPECT_EQ(freeName(folder, "Movie.mov"), "Movie.mov");
}
