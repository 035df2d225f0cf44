#include "platform/files/NSFileManager.h"

#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace platform;

namespace {

NSFileManager& manager()
{
    return NSFileManager::defaultManager();
}

uint64_t deviceOf(const std::string& path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_dev : 0;
}

/// A folder on another volume than the temporary folder; none where there is only one volume to write on.
class OtherVolume final {
public:
    explicit OtherVolume(const std::string& here)
    {
        for (const char* candidate : {"/dev/shm", "/var/tmp", "/run/user"}) {
            std::string path = std::string(candidate) + "/stillora-test-XXXXXX";
            if (deviceOf(candidate) != deviceOf(here) && mkdtemp(path.data())) {
                path_ = path;
                return;
            }
        }
    }
    ~OtherVolume()
    {
        if (!path_.empty())
            std::filesystem::remove_all(path_);
    }
    explicit operator bool() const { return !path_.empty(); }
    std::string path(std::string_view name) const { return path_ + "/" + std::string(name); }
    size_t entryCount() const
    {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(path_), {}));
    }

private:
    std::string path_;
};

NSURL fileURL(const std::string& path)
{
    return NSURL::fileURLWithPath(path, false);
}

} // namespace

TEST(NSFileManager, FollowsLinksToSeeWhatExists)
{
    const TemporaryFolder folder;
    folder.makeFile("file");
    std::filesystem::create_symlink(folder.path("file"), folder.path("good"));
    std::filesystem::create_symlink(folder.path("gone"), folder.path("dangling"));
    EXPECT_TRUE(manager().fileExistsAtPath(folder.path("file")));
    EXPECT_TRUE(manager().fileExistsAtPath(folder.path("good")));
    EXPECT_FALSE(manager().fileExistsAtPath(folder.path("dangling")));
    bool isDirectory = true;
    EXPECT_TRUE(manager().fileExistsAtPath(folder.path("file"), &isDirectory));
    EXPECT_FALSE(isDirectory);
    EXPECT_TRUE(manager().fileExistsAtPath(folder.path(), &isDirectory));
    EXPECT_TRUE(isDirectory);
}

TEST(NSFileManager, MakesFoldersOnTheWay)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(manager().createDirectoryAtURL(folder.url("a/b/c"), true));
    EXPECT_TRUE(std::filesystem::is_directory(folder.path("a/b/c")));
    EXPECT_TRUE(manager().createDirectoryAtURL(folder.url("a/b/c"), true));
}

TEST(NSFileManager, MakesNoFoldersOnTheWayUntold)
{
    const TemporaryFolder folder;
    NSError error;
    EXPECT_FALSE(manager().createDirectoryAtURL(folder.url("a/b"), false, &error));
    EXPECT_EQ(error.code, kNSFileNoSuchFileError);
    EXPECT_TRUE(manager().createDirectoryAtURL(folder.url("a"), false));
}

TEST(NSFileManager, MakesNoFolderWhereAFileIs)
{
    const TemporaryFolder folder;
    folder.makeFile("file");
    for (const char* name : {"file", "file/below"}) {
        NSError error;
        EXPECT_FALSE(manager().createDirectoryAtURL(fileURL(folder.path(name)), true, &error));
        EXPECT_EQ(error.domain, kNSCocoaErrorDomain);
        EXPECT_EQ(error.code, kNSFileWriteFileExistsError) << name;
        EXPECT_NE(error.localizedDescription.find(folder.path("file")), std::string::npos);
    }
}

TEST(NSFileManager, MovesAFile)
{
    const TemporaryFolder folder;
    folder.makeFile("from", "movie");
    NSError error;
    EXPECT_TRUE(manager().moveItemAtURL(folder.url("from"), folder.url("to"), &error)) << error.localizedDescription;
    EXPECT_FALSE(std::filesystem::exists(folder.path("from")));
    EXPECT_EQ(TemporaryFolder::contentsOf(folder.path("to")), "movie");
}

TEST(NSFileManager, MovesAFolderWithAllItHolds)
{
    const TemporaryFolder folder;
    folder.makeFile("from/a/b", "movie");
    EXPECT_TRUE(manager().moveItemAtURL(folder.url("from"), folder.url("to")));
    EXPECT_EQ(TemporaryFolder::contentsOf(folder.path("to/a/b")), "movie");
}

TEST(NSFileManager, MovesAFileThatNobodyMayRead)
{
    const TemporaryFolder folder;
    chmod(folder.makeFile("from").c_str(), 0);
    EXPECT_TRUE(manager().moveItemAtURL(folder.url("from"), folder.url("to")));
    EXPECT_TRUE(std::filesystem::exists(folder.path("to")));
}

TEST(NSFileManager, NeverMovesOntoSomething)
{
    const TemporaryFolder folder;
    folder.makeFile("from", "new");
    folder.makeFile("file", "old");
    folder.makeFolder("folder");
    std::filesystem::create_symlink(folder.path("gone"), folder.path("dangling"));
    for (const char* name : {"file", "folder", "dangling", "from"}) {
        NSError error;
        EXPECT_FALSE(manager().moveItemAtURL(folder.url("from"), fileURL(folder.path(name)), &error)) << name;
        EXPECT_EQ(error.code, kNSFileWriteFileExistsError) << name;
    }
    EXPECT_EQ(TemporaryFolder::contentsOf(folder.path("from")), "new");
    EXPECT_EQ(TemporaryFolder::contentsOf(folder.path("file")), "old");
}

TEST(NSFileManager, MovesToTheFirstNameThatNobodyHas)
{
    const TemporaryFolder folder;
    for (const char* name : {"from", "to", "to-2", "to-3"})
        folder.makeFile(name, name);
    std::vector<std::string> taken;
    NSURL place = folder.url("to");
    EXPECT_TRUE(manager().moveItemToFreeURL(folder.url("from"), &place, [&](const NSURL& url) {
        taken.push_back(url.lastPathComponent());
        return folder.url("to-" + std::to_string(taken.size() + 1));
    }));
    EXPECT_EQ(taken, (std::vector<std::string>{"to", "to-2", "to-3"}));
    EXPECT_EQ(place, folder.url("to-4"));
    EXPECT_EQ(TemporaryFolder::contentsOf(folder.path("to-4")), "from");
    EXPECT_EQ(TemporaryFolder::contentsOf(folder.path("to-3")), "to-3");
}

TEST(NSFileManager, GivesUpOnATakenNameThatIsTheOnlyOne)
{
    const TemporaryFolder folder;
    folder.makeFile("from", "new");
    std::filesystem::create_symlink(folder.path("gone"), folder.path("dangling"));
    NSURL place = folder.url("dangling");
    NSError error;
    int asked = 0;
    EXPECT_FALSE(manager().moveItemToFreeURL(
        folder.url("from"), &place,
        [&](const NSURL& url) {
            ++asked;
            return url;
        },
        &error));
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(error.code, kNSFileWriteFileExistsError);
    EXPECT_EQ(place, folder.url("dangling"));
    EXPECT_EQ(TemporaryFolder::contentsOf(folder.path("from")), "new");
}

TEST(NSFileManager, TriesNoOtherNameWhereNothingCanBePutAtAll)
{
    const TemporaryFolder folder;
    folder.makeFile("from", "new");
    NSURL place = folder.url("missing/to");
    NSError error;
    EXPECT_FALSE(manager().moveItemToFreeURL(
        folder.url("from"), &place,
        [&](const NSURL&) {
            ADD_FAILURE() << "asked for another";
            return folder.url("elsewhere");
        },
        &error));
    EXPECT_EQ(error.code, kNSFileNoSuchFileError);
}

TEST(NSFileManager, SaysThatThereIsNothingToMove)
{
    const TemporaryFolder folder;
    NSError error;
    EXPECT_FALSE(manager().moveItemAtURL(folder.url("from"), folder.url("to"), &error));
    EXPECT_EQ(error.code, kNSFileNoSuchFileError);
    EXPECT_NE(error.localizedDescription.find(folder.path("from")), std::string::npos);
}

TEST(NSFileManager, GivesANameToOneOfManyMovers)
{
    const TemporaryFolder folder;
    for (int i = 0; i < 8; ++i)
        folder.makeFile("from" + std::to_string(i), std::to_string(i));
    std::atomic<int> moved = 0;
    std::atomic<int> refused = 0;
    {
        std::vector<std::jthread> movers;
        for (int i = 0; i < 8; ++i) {
            movers.emplace_back([&, i] {
                NSError error;
                if (manager().moveItemAtURL(folder.url("from" + std::to_string(i)), folder.url("to"), &error))
                    ++moved;
                else if (error.code == kNSFileWriteFileExistsError)
                    ++refused;
            });
        }
    }
    EXPECT_EQ(moved, 1);
    EXPECT_EQ(refused, 7);
}

TEST(NSFileManager, MovesToAnotherVolume)
{
    const TemporaryFolder folder;
    const OtherVolume other(folder.path());
    if (!other)
        GTEST_SKIP() << "there is only one volume to write on";
    const std::string contents(3'000'001, 'x');
    const std::string source = folder.makeFile("from/movie", contents);
    chmod(source.c_str(), 0640);
    std::filesystem::create_symlink("movie", folder.path("from/link"));
    NSError error;
    ASSERT_TRUE(manager().moveItemAtURL(folder.url("from"), fileURL(other.path("to")), &error))
        << error.localizedDescription;
    EXPECT_FALSE(std::filesystem::exists(folder.path("from")));
    EXPECT_EQ(TemporaryFolder::contentsOf(other.path("to/movie")), contents);
    EXPECT_EQ(std::filesystem::status(other.path("to/movie")).permissions(), std::filesystem::perms(0640));
    EXPECT_EQ(std::filesystem::read_symlink(other.path("to/link")), "movie");
    EXPECT_EQ(other.entryCount(), 1u);
}

TEST(NSFileManager, MovesALongNameToAnotherVolume)
{
    const TemporaryFolder folder;
    const OtherVolume other(folder.path());
    if (!other)
        GTEST_SKIP() << "there is only one volume to write on";
    folder.makeFile("from");
    const std::string name(255, 'n');
    EXPECT_TRUE(manager().moveItemAtURL(folder.url("from"), fileURL(other.path(name))));
    EXPECT_TRUE(std::filesystem::exists(other.path(name)));
}

TEST(NSFileManager, LeavesNothingBehindWhenAnotherVolumeRefuses)
{
    const TemporaryFolder folder;
    const OtherVolume other(folder.path());
    if (!other)
        GTEST_SKIP() << "there is only one volume to write on";
    folder.makeFile("from/file");
    ASSERT_EQ(mkfifo(folder.path("from/pipe").c_str(), 0600), 0);
    NSError error;
    EXPECT_FALSE(manager().moveItemAtURL(folder.url("from"), fileURL(other.path("to")), &error));
    EXPECT_TRUE(std::filesystem::exists(folder.path("from/file")));
    EXPECT_EQ(other.entryCount(), 0u);
}

TEST(NSFileManager, RemovesAFolderButNotWhatItsLinksLeadTo)
{
    const TemporaryFolder folder;
    folder.makeFile("kept/file");
    folder.makeFile("gone/a/file");
    std::filesystem::create_directory_symlink(folder.path("kept"), folder.path("gone/link"));
    std::filesystem::create_directory_symlink(folder.path("kept"), folder.path("other"));
    EXPECT_TRUE(manager().removeItemAtURL(folder.url("gone")));
    EXPECT_TRUE(manager().removeItemAtURL(fileURL(folder.path("other"))));
    EXPECT_FALSE(std::filesystem::exists(folder.path("gone")));
    EXPECT_TRUE(std::filesystem::exists(folder.path("kept/file")));
}

TEST(NSFileManager, SaysThatThereIsNothingToRemove)
{
    const TemporaryFolder folder;
    NSError error;
    EXPECT_FALSE(manager().removeItemAtURL(folder.url("gone"), &error));
    EXPECT_EQ(error.code, kNSFileNoSuchFileError);
}

TEST(NSFileManager, ReadsWholeFiles)
{
    const TemporaryFolder folder;
    folder.makeFile("file", "1234");
    EXPECT_EQ(manager().contentsAtURL(folder.url("file"), 4), (NSData{'1', '2', '3', '4'}));
    NSError error;
    EXPECT_FALSE(manager().contentsAtURL(folder.url("file"), 3, &error));
    EXPECT_EQ(error.code, kNSFileReadUnknownError);
    EXPECT_FALSE(manager().contentsAtURL(folder.url("gone"), 4, &error));
    EXPECT_EQ(error.code, kNSFileReadNoSuchFileError);
    EXPECT_FALSE(manager().contentsAtURL(folder.url(), 1 << 20));
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    EXPECT_FALSE(manager().contentsAtURL(folder.url("pipe"), 4));
}

TEST(NSFileManager, ReplacesContentsInOneStep)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(manager().writeContents({'a'}, folder.url("file"), nullptr, platform::NSFileManager::NewFile::Private));
    EXPECT_EQ(std::filesystem::status(folder.path("file")).permissions(), std::filesystem::perms(0600));
    chmod(folder.path("file").c_str(), 0644);
    std::filesystem::create_symlink("file", folder.path("link"));
    EXPECT_TRUE(manager().writeContents({'b', 'c'}, fileURL(folder.path("link"))));
    EXPECT_EQ(TemporaryFolder::contentsOf(folder.path("file")), "bc");
    EXPECT_TRUE(std::filesystem::is_symlink(folder.path("link")));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2);
    NSError error;
    EXPECT_FALSE(manager().writeContents({'a'}, folder.url("gone/file"), &error));
    EXPECT_EQ(error.code, kNSFileNoSuchFileError);
}

TEST(NSFileManager, LetsTheMaskSayWhoMayReadANewFile)
{
    const TemporaryFolder folder;
    const mode_t before = umask(0027);
    EXPECT_TRUE(manager().writeContents({'a'}, folder.url("file")));
    umask(before);
    EXPECT_EQ(std::filesystem::status(folder.path("file")).permissions(), std::filesystem::perms(0640));
}

TEST(NSFileManager, NamesTheTemporaryFolder)
{
    {
        const EnvironmentVariable folder("TMPDIR", "/scratch");
        EXPECT_EQ(NSTemporaryDirectory(), "/scratch/");
    }
    {
        const EnvironmentVariable folder("TMPDIR", "/scratch/");
        EXPECT_EQ(NSTemporaryDirectory(), "/scratch/");
    }
    const EnvironmentVariable folder("TMPDIR", std::nullopt);
    EXPECT_EQ(NSTemporaryDirectory(), "/tmp/");
}

TEST(NSFileManager, MakesFreshUUIDs)
{
    const char* form = "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}";
    std::set<std::string> made;
    for (int i = 0; i < 100; ++i) {
        const std::string uuid = NSUUIDString();
        EXPECT_THAT(uuid, testing::MatchesRegex(form));
        EXPECT_TRUE(made.insert(uuid).second);
    }
}
