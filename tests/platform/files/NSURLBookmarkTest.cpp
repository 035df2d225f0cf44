#include "platform/files/NSURL.h"
#include "platform/foundation/NSString.h"
#include "platform/propertylists/NSPropertyListSerialization.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <optional>
#include <random>

using namespace platform;

namespace {

struct Resolved {
    std::optional<NSURL> url;
    bool isStale = false;
    NSError error;
};

Resolved resolve(const NSData& data)
{
    Resolved result;
    result.url =
        NSURL::URLByResolvingBookmarkData(data, BookmarkResolutionOptions::None, &result.isStale, &result.error);
    return result;
}

NSData bookmarkOf(const std::string& path)
{
    NSError error;
    const auto data = NSURL::fileURLWithPath(path).bookmarkData(BookmarkCreationOptions::None, &error);
    EXPECT_TRUE(data) << error.localizedDescription;
    return data.value_or(NSData());
}

PropertyList::Dictionary fieldsOf(const NSData& data)
{
    const auto list = propertyListWithData(data);
    const auto* fields = list ? list->as<PropertyList::Dictionary>() : nullptr;
    return fields ? *fields : PropertyList::Dictionary();
}

NSData without(const NSData& data, std::initializer_list<const char*> keys)
{
    PropertyList::Dictionary fields = fieldsOf(data);
    for (const char* key : keys)
        fields.erase(key);
    return dataWithPropertyList(std::move(fields)).value();
}

NSData with(const NSData& data, const std::string& key, PropertyList value)
{
    PropertyList::Dictionary fields = fieldsOf(data);
    fields.insert_or_assign(key, std::move(value));
    return dataWithPropertyList(std::move(fields)).value();
}

void expectFoundAt(const NSData& bookmark, const std::string& path)
{
    const Resolved result = resolve(bookmark);
    ASSERT_TRUE(result.url) << result.error.localizedDescription;
    EXPECT_EQ(result.url->path(), path);
    EXPECT_TRUE(result.isStale);
}

void expectGone(const NSData& bookmark)
{
    const Resolved result = resolve(bookmark);
    EXPECT_FALSE(result.url) << result.url->path();
    EXPECT_EQ(result.error.code, kNSFileNoSuchFileError);
}

} // namespace

TEST(NSURLBookmark, LeadsBackToTheFile)
{
    const TemporaryFolder folder;
    const std::string path = folder.makeFile("photo.jpg");
    const Resolved result = resolve(bookmarkOf(path));
    ASSERT_TRUE(result.url);
    EXPECT_EQ(result.url->path(), path);
    EXPECT_FALSE(result.url->hasDirectoryPath());
    EXPECT_FALSE(result.isStale);
}

TEST(NSURLBookmark, LeadsBackToAFolderAsAFolder)
{
    const TemporaryFolder folder;
    const std::string path = folder.makeFolder("movies");
    const Resolved result = resolve(bookmarkOf(path));
    ASSERT_TRUE(result.url);
    EXPECT_EQ(result.url->absoluteString(), "file://" + path + "/");
    EXPECT_FALSE(result.isStale);
}

TEST(NSURLBookmark, HoldsPathIdentityVolumeAndParents)
{
    const TemporaryFolder folder;
    const std::string path = folder.makeFile("photo.jpg");
    const PropertyList list(fieldsOf(bookmarkOf(path)));
    ASSERT_TRUE(list.objectForKey<int64_t>("version"));
    EXPECT_EQ(*list.objectForKey<int64_t>("version"), 1);
    ASSERT_TRUE(list.objectForKey<std::string>("path"));
    EXPECT_EQ(*list.objectForKey<std::string>("path"), path);
    EXPECT_TRUE(list.objectForKey<int64_t>("device"));
    EXPECT_TRUE(list.objectForKey<int64_t>("inode"));
    ASSERT_TRUE(list.objectForKey<std::string>("volume"));
    EXPECT_TRUE(path.starts_with(*list.objectForKey<std::string>("volume")));
    ASSERT_TRUE(list.objectForKey<bool>("directory"));
    EXPECT_FALSE(*list.objectForKey<bool>("directory"));
    ASSERT_TRUE(list.objectForKey<PropertyList::Array>("folders"));
    // The root and every folder above the file.
    EXPECT_EQ(list.objectForKey<PropertyList::Array>("folders")->size(),
              static_cast<size_t>(std::count(path.begin(), path.end(), '/')));
}

TEST(NSURLBookmark, IsNotMadeOfWhatIsNotThere)
{
    const TemporaryFolder folder;
    NSError error;
    EXPECT_FALSE(folder.url("gone").bookmarkData(BookmarkCreationOptions::WithSecurityScope, &error));
    EXPECT_EQ(error.code, kNSFileReadNoSuchFileError);
    std::filesystem::create_symlink("gone", folder.path("dangling"));
    error = {};
    EXPECT_FALSE(folder.url("dangling").bookmarkData(BookmarkCreationOptions::None, &error));
    EXPECT_EQ(error.code, kNSFileReadNoSuchFileError);
}

TEST(NSURLBookmark, FindsARenamedFile)
{
    const TemporaryFolder folder;
    const NSData bookmark = bookmarkOf(folder.makeFile("a/old.jpg"));
    folder.makeFile("a/other.jpg");
    std::filesystem::rename(folder.path("a/old.jpg"), folder.path("a/new.jpg"));
    expectFoundAt(bookmark, folder.path("a/new.jpg"));
}

TEST(NSURLBookmark, FindsAMovedFile)
{
    const TemporaryFolder folder;
    const NSData bookmark = bookmarkOf(folder.makeFile("a/b/photo.jpg"));
    folder.makeFolder("c/d/e");
    std::filesystem::rename(folder.path("a/b/photo.jpg"), folder.path("c/d/e/renamed.jpg"));
    expectFoundAt(bookmark, folder.path("c/d/e/renamed.jpg"));
}

TEST(NSURLBookmark, FindsAMovedFolder)
{
    const TemporaryFolder folder;
    const NSData bookmark = bookmarkOf(folder.makeFolder("a/movies"));
    folder.makeFolder("c");
    std::filesystem::rename(folder.path("a/movies"), folder.path("c/films"));
    expectFoundAt(bookmark, folder.path("c/films"));
    EXPECT_TRUE(resolve(bookmark).url->hasDirectoryPath());
}

TEST(NSURLBookmark, FindsAFileBelowARenamedFolder)
{
    const TemporaryFolder folder;
    const NSData bookmark = bookmarkOf(folder.makeFile("a/b/c/photo.jpg"));
    std::filesystem::rename(folder.path("a"), folder.path("x"));
    std::filesystem::rename(folder.path("x/b/c"), folder.path("x/b/y"));
    expectFoundAt(bookmark, folder.path("x/b/y/photo.jpg"));
}

TEST(NSURLBookmark, FindsARenamedFileBelowARenamedFolder)
{
    const TemporaryFolder folder;
    const NSData bookmark = bookmarkOf(folder.makeFile("a/b/photo.jpg"));
    std::filesystem::rename(folder.path("a"), folder.path("x"));
    std::filesystem::rename(folder.path("x/b/photo.jpg"), folder.path("x/b/other.jpg"));
    expectFoundAt(bookmark, folder.path("x/b/other.jpg"));
}

TEST(NSURLBookmark, FindsAFileBelowAMovedFolder)
{
    const TemporaryFolder folder;
    const NSData bookmark = bookmarkOf(folder.makeFile("a/b/c/photo.jpg"));
    folder.makeFolder("other/place");
    std::filesystem::rename(folder.path("a/b"), folder.path("other/place/b"));
    expectFoundAt(bookmark, folder.path("other/place/b/c/photo.jpg"));
}

TEST(NSURLBookmark, FindsAFileDeepBelowWithoutItsParentsNumbers)
{
    const TemporaryFolder folder;
    const NSData bookmark = without(bookmarkOf(folder.makeFile("a/b/c/photo.jpg")), {"folders"});
    std::filesystem::rename(folder.path("a"), folder.path("x"));
    expectFoundAt(bookmark, folder.path("x/b/c/photo.jpg"));
}

TEST(NSURLBookmark, DoesNotFindADeletedFile)
{
    const TemporaryFolder folder;
    const NSData bookmark = bookmarkOf(folder.makeFile("photo.jpg"));
    std::filesystem::remove(folder.path("photo.jpg"));
    expectGone(bookmark);
}

TEST(NSURLBookmark, DoesNotTakeANewFileWithAReusedNumberForTheOld)
{
    const TemporaryFolder folder;
    const std::string path = folder.makeFile("photo.jpg");
    const NSData bookmark = bookmarkOf(path);
    const auto* birth = PropertyList(fieldsOf(bookmark)).objectForKey<double>("birth");
    if (!birth)
        GTEST_SKIP() << "this file system does not keep the time of birth";
    // As if the number belonged to another file now.
    std::filesystem::rename(path, folder.path("other.jpg"));
    expectFoundAt(bookmark, folder.path("other.jpg"));
    expectGone(with(bookmark, "birth", 1e9));
}

TEST(NSURLBookmark, DoesNotTakeAFolderForAFile)
{
    const TemporaryFolder folder;
    const NSData bookmark = without(bookmarkOf(folder.makeFolder("movies")), {"birth"});
    std::filesystem::rename(folder.path("movies"), folder.path("films"));
    expectFoundAt(bookmark, folder.path("films"));
    expectGone(with(bookmark, "directory", false));
}

TEST(NSURLBookmark, DoesNotSearchAnotherVolume)
{
    const TemporaryFolder folder;
    const std::string path = folder.makeFile("photo.jpg");
    const NSData bookmark = bookmarkOf(path);
    std::filesystem::rename(path, folder.path("other.jpg"));
    expectGone(with(with(bookmark, "volume", std::string("/media/no-such-volume")), "device", int64_t{1}));
    // Device numbers may change over a restart while the volume is mounted where it was.
    expectFoundAt(with(bookmark, "device", int64_t{1}), folder.path("other.jpg"));
}

TEST(NSURLBookmark, PrefersThePathAndCallsAnotherFileThereStale)
{
    const TemporaryFolder folder;
    const std::string path = folder.makeFile("photo.jpg", "old");
    const NSData bookmark = bookmarkOf(path);
    std::filesystem::rename(path, folder.path("kept.jpg"));
    folder.makeFile("photo.jpg", "new");
    expectFoundAt(bookmark, path);
}

TEST(NSURLBookmark, IsNotStaleWhenTheDeviceGotAnotherNumber)
{
    const TemporaryFolder folder;
    const NSData bookmark = with(bookmarkOf(folder.makeFile("photo.jpg")), "device", int64_t{1});
    EXPECT_TRUE(resolve(bookmark).url);
    EXPECT_FALSE(resolve(bookmark).isStale);
}

TEST(NSURLBookmark, ToleratesOneMicrosecondOfBirth)
{
    const TemporaryFolder folder;
    const NSData bookmark = bookmarkOf(folder.makeFile("photo.jpg"));
    const PropertyList list(fieldsOf(bookmark));
    const auto* birth = list.objectForKey<double>("birth");
    if (!birth)
        GTEST_SKIP() << "this file system does not keep the time of birth";
    EXPECT_FALSE(resolve(with(bookmark, "birth", *birth + 0.5e-6)).isStale);
    EXPECT_TRUE(resolve(with(bookmark, "birth", *birth + 1e-3)).isStale);
}

TEST(NSURLBookmark, NeedsNothingButThePath)
{
    const TemporaryFolder folder;
    const std::string path = folder.makeFile("photo.jpg");
    const NSData bookmark = dataWithPropertyList(PropertyList::Dictionary{{"path", path}}).value();
    const Resolved result = resolve(bookmark);
    ASSERT_TRUE(result.url);
    EXPECT_EQ(result.url->path(), path);
    EXPECT_FALSE(result.isStale);
    std::filesystem::remove(path);
    expectGone(bookmark);
}

TEST(NSURLBookmark, CanNameAPathWhereNothingIs)
{
    const TemporaryFolder folder;
    const NSURL url = folder.url("movie.mov");
    const NSData bookmark = url.bookmarkDataOfPathAlone();
    const PropertyList list(fieldsOf(bookmark));
    ASSERT_TRUE(list.objectForKey<std::string>("path"));
    EXPECT_EQ(*list.objectForKey<std::string>("path"), url.path());
    EXPECT_FALSE(list.objectForKey("inode"));
    expectGone(bookmark);
    folder.makeFile("movie.mov");
    EXPECT_EQ(resolve(bookmark).url, url);
    EXPECT_FALSE(resolve(bookmark).isStale);
}

TEST(NSURLBookmark, KeepsNamesThatAreNotUTF8)
{
    const TemporaryFolder folder;
    const std::string path = folder.makeFile("gr\xFC\xDF"
                                             "e.jpg");
    const NSData bookmark = bookmarkOf(path);
    const PropertyList list(fieldsOf(bookmark));
    ASSERT_TRUE(list.objectForKey<std::string>("path"));
    EXPECT_TRUE(isValidUTF8(*list.objectForKey<std::string>("path")));
    const Resolved result = resolve(bookmark);
    ASSERT_TRUE(result.url);
    EXPECT_EQ(result.url->path(), path);
    EXPECT_FALSE(result.isStale);
    EXPECT_EQ(resolve(NSURL::fileURLWithPath(path).bookmarkDataOfPathAlone()).url->path(), path);
    std::filesystem::rename(path, folder.path("\xFF"));
    expectFoundAt(bookmark, folder.path("\xFF"));
}

TEST(NSURLBookmark, KeepsALinkAsALink)
{
    const TemporaryFolder folder;
    folder.makeFile("file");
    std::filesystem::create_symlink("file", folder.path("link"));
    const NSData bookmark = bookmarkOf(folder.path("link"));
    EXPECT_EQ(resolve(bookmark).url->path(), folder.path("link"));
    std::filesystem::rename(folder.path("link"), folder.path("other"));
    expectFoundAt(bookmark, folder.path("other"));
}

TEST(NSURLBookmark, RefusesWhatIsNoBookmark)
{
    const auto data = [](PropertyList::Dictionary fields) { return dataWithPropertyList(std::move(fields)).value(); };
    const NSData text{'n', 'o'};
    for (const NSData& bookmark : {
             NSData(),
             text,
             dataWithPropertyList(PropertyList::Array{}).value(),
             data({}),
             data({{"path", int64_t{1}}}),
             data({{"path", std::string()}}),
             data({{"path", std::string("relative/path")}}),
             data({{"path", std::string(1, '/') + std::string(100'000, 'a')}}),
             data({{"path", std::string("/a")}, {"pathBytes", NSData{'/', 'a', 0, 'b'}}}),
         }) {
        const Resolved result = resolve(bookmark);
        EXPECT_FALSE(result.url);
        EXPECT_EQ(result.error.domain, kNSCocoaErrorDomain);
        EXPECT_EQ(result.error.code, kNSFileReadCorruptFileError);
    }
}

TEST(NSURLBookmark, StopsLookingAfterAWhile)
{
    const TemporaryFolder folder;
    const std::string path = folder.makeFile("photo.jpg");
    const NSData bookmark = bookmarkOf(path);
    std::filesystem::remove(path);
    const auto begin = std::chrono::steady_clock::now();
    expectGone(bookmark);
    // The limit is 200 ms; the rest is for a busy machine.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST(NSURLBookmark, SearchesOnceForAFolderOfDeletedFiles)
{
    const TemporaryFolder folder;
    std::vector<NSData> bookmarks;
    for (int i = 0; i < 200; ++i)
        bookmarks.push_back(bookmarkOf(folder.makeFile("photos/" + std::to_string(i))));
    const NSData moved = bookmarkOf(folder.makeFile("photos/moved"));
    std::filesystem::rename(folder.path("photos/moved"), folder.path("elsewhere"));
    std::filesystem::remove_all(folder.path("photos"));
    const auto begin = std::chrono::steady_clock::now();
    for (const NSData& bookmark : bookmarks)
        expectGone(bookmark);
    // One by one, each of 200 could take 200 ms.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    expectFoundAt(moved, folder.path("elsewhere"));
}

TEST(NSURLBookmark, SurvivesDamage)
{
    const TemporaryFolder folder;
    const NSData whole = bookmarkOf(folder.makeFile("photo.jpg"));
    std::mt19937 random(7);
    for (int i = 0; i < 500; ++i) {
        NSData damaged = whole;
        damaged[random() % damaged.size()] ^= static_cast<uint8_t>(1 + random() % 255);
        if (i % 3 == 0)
            damaged.resize(random() % damaged.size());
        // Whatever is found, it is something that exists.
        if (const auto url = resolve(damaged).url) {
            EXPECT_TRUE(std::filesystem::exists(url->path()));
        }
    }
}
