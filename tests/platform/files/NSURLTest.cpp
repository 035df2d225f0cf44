#include "platform/files/NSURL.h"

#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

using namespace platform;

namespace {

NSURL fileURL(std::string_view path)
{
    return NSURL::fileURLWithPath(path, false);
}

} // namespace

TEST(PathString, TakesPathsApart)
{
    struct Row {
        std::string_view path;
        std::string_view last;
        std::string_view extension;
        std::string_view withoutExtension;
    };
    for (const Row& row : {
             Row{"/tmp/scratch.tiff", "scratch.tiff", "tiff", "/tmp/scratch"},
             Row{"/tmp/scratch..tiff", "scratch..tiff", "tiff", "/tmp/scratch."},
             Row{"/tmp/scratch.", "scratch.", "", "/tmp/scratch."},
             Row{"scratch.bundle/", "scratch.bundle", "bundle", "scratch"},
             Row{"scratch///", "scratch", "", "scratch"},
             Row{"/tmp/", "tmp", "", "/tmp"},
             Row{"//tmp//a.b", "a.b", "b", "/tmp/a"},
             Row{".tiff", ".tiff", "", ".tiff"},
             Row{".scratch.tiff", ".scratch.tiff", "tiff", ".scratch"},
             Row{"archive.tar.gz", "archive.tar.gz", "gz", "archive.tar"},
             Row{"..", "..", "", ".."},
             Row{"..ext", "..ext", "", "..ext"},
             Row{"...ext", "...ext", "", "...ext"},
             Row{"/", "/", "", "/"},
             Row{"//", "/", "", "/"},
             Row{"", "", "", ""},
             Row{"St. Ives", "St. Ives", "", "St. Ives"},
             Row{"/a.b/c", "c", "", "/a.b/c"},
             Row{"Trip v1.2", "Trip v1.2", "2", "Trip v1"},
             Row{"a.\u202Efdp", "a.\u202Efdp", "", "a.\u202Efdp"},
             Row{"a.\xFF", "a.\xFF", "\xFF", "a"},
         }) {
        EXPECT_EQ(lastPathComponent(row.path), row.last) << row.path;
        EXPECT_EQ(pathExtension(row.path), row.extension) << row.path;
        EXPECT_EQ(stringByDeletingPathExtension(row.path), row.withoutExtension) << row.path;
    }
}

TEST(PathString, AppendsAnExtension)
{
    EXPECT_EQ(stringByAppendingPathExtension("/tmp/scratch.tiff", "mov"), "/tmp/scratch.tiff.mov");
    EXPECT_EQ(stringByAppendingPathExtension("/tmp/scratch.", "mov"), "/tmp/scratch..mov");
    EXPECT_EQ(stringByAppendingPathExtension("scratch.bundle/", "mov"), "scratch.bundle.mov");
    EXPECT_EQ(stringByAppendingPathExtension("scratch///", "mov"), "scratch.mov");
    EXPECT_EQ(stringByAppendingPathExtension(".tiff", "mov"), ".tiff.mov");
    EXPECT_EQ(stringByAppendingPathExtension("St. Ives", "mov"), "St. Ives.mov");
    EXPECT_EQ(stringByAppendingPathExtension("/", "mov"), std::nullopt);
    EXPECT_EQ(stringByAppendingPathExtension("", "mov"), std::nullopt);
}

TEST(PathString, ExpandsTheTilde)
{
    const EnvironmentVariable home("HOME", "/home/a/");
    EXPECT_EQ(stringByExpandingTildeInPath("~"), "/home/a");
    EXPECT_EQ(stringByExpandingTildeInPath("~/Movies/Stillora/"), "/home/a/Movies/Stillora");
    EXPECT_EQ(stringByExpandingTildeInPath("/x/~"), "/x/~");
    EXPECT_EQ(stringByExpandingTildeInPath("~other/x"), "~other/x");
}

TEST(PathString, FindsTheHomeFolderWithoutTheEnvironment)
{
    const EnvironmentVariable home("HOME", std::nullopt);
    const std::string path = stringByExpandingTildeInPath("~/a");
    EXPECT_TRUE(path.starts_with("/"));
    EXPECT_TRUE(path.ends_with("/a"));
}

TEST(NSURL, EscapesWhatIsNoPlainCharacter)
{
    EXPECT_EQ(fileURL("/azAZ09!$&'()*+,-./:=@_~").absoluteString(), "file:///azAZ09!$&'()*+,-./:=@_~");
    EXPECT_EQ(fileURL("/ \"#%;<>?[\\]^`{|}").absoluteString(),
              "file:///%20%22%23%25%3B%3C%3E%3F%5B%5C%5D%5E%60%7B%7C%7D");
    EXPECT_EQ(fileURL("/é").absoluteString(), "file:///%C3%A9");
    EXPECT_EQ(fileURL("/a%20b").absoluteString(), "file:///a%2520b");
    EXPECT_EQ(fileURL("/\xFF\n").absoluteString(), "file:///%FF%0A");
}

TEST(NSURL, EndsAFoldersTextInASlash)
{
    EXPECT_EQ(NSURL::fileURLWithPath("/a/b", true).absoluteString(), "file:///a/b/");
    EXPECT_EQ(NSURL::fileURLWithPath("/a/b/").absoluteString(), "file:///a/b/");
    EXPECT_EQ(NSURL::fileURLWithPath("/a/b/").path(), "/a/b");
    EXPECT_EQ(NSURL::fileURLWithPath("/").absoluteString(), "file:///");
    EXPECT_EQ(NSURL::fileURLWithPath("/").path(), "/");
    EXPECT_NE(NSURL::fileURLWithPath("/a", true), NSURL::fileURLWithPath("/a", false));
}

TEST(NSURL, AsksTheFileSystemWhetherAPathIsAFolder)
{
    const TemporaryFolder folder;
    const std::string path = folder.path("later");
    EXPECT_EQ(NSURL::fileURLWithPath(path).absoluteString(), "file://" + path);
    folder.makeFolder("later");
    EXPECT_EQ(NSURL::fileURLWithPath(path).absoluteString(), "file://" + path + "/");
}

TEST(NSURL, TakesARelativePathFromTheCurrentFolder)
{
    const std::string current = std::filesystem::current_path();
    EXPECT_EQ(NSURL::fileURLWithPath("no-such-file.jpg").path(), current + "/no-such-file.jpg");
}

TEST(NSURL, AppendsComponents)
{
    const NSURL base = NSURL::fileURLWithPath("/no/such", true);
    EXPECT_EQ(base.URLByAppendingPathComponent("p1.jpg").absoluteString(), "file:///no/such/p1.jpg");
    EXPECT_EQ(base.URLByAppendingPathComponent("/a").path(), "/no/such/a");
    EXPECT_EQ(fileURL("/no/such").URLByAppendingPathComponent("a").path(), "/no/such/a");
    EXPECT_EQ(base.URLByAppendingPathComponent("Resources/Photos/p1.jpg").path(), "/no/such/Resources/Photos/p1.jpg");
    EXPECT_EQ(base.URLByAppendingPathComponent("x/").absoluteString(), "file:///no/such/x/");
    EXPECT_EQ(base.URLByAppendingPathComponent("").absoluteString(), "file:///no/such/");
    EXPECT_EQ(base.URLByAppendingPathComponent(".").absoluteString(), "file:///no/such/.");
    EXPECT_EQ(base.URLByAppendingPathComponent("..").absoluteString(), "file:///no/such/..");
    EXPECT_EQ(base.URLByAppendingPathComponent("50%").absoluteString(), "file:///no/such/50%25");
    EXPECT_EQ(NSURL::fileURLWithPath("/").URLByAppendingPathComponent("no-such").path(), "/no-such");
    EXPECT_EQ(base.URLByAppendingPathComponent("x", true).absoluteString(), "file:///no/such/x/");
}

TEST(NSURL, AppendsAnExistingFolderAsAFolder)
{
    const TemporaryFolder folder;
    folder.makeFolder("there");
    EXPECT_TRUE(folder.url().URLByAppendingPathComponent("there").hasDirectoryPath());
    EXPECT_FALSE(folder.url().URLByAppendingPathComponent("missing").hasDirectoryPath());
}

TEST(NSURL, DropsItsLastComponent)
{
    EXPECT_EQ(fileURL("/a/b.mov").URLByDeletingLastPathComponent().absoluteString(), "file:///a/");
    EXPECT_EQ(fileURL("/a").URLByDeletingLastPathComponent().absoluteString(), "file:///");
    EXPECT_EQ(fileURL("/a/..").URLByDeletingLastPathComponent().absoluteString(), "file:///a/../../");
    EXPECT_EQ(fileURL("/").URLByDeletingLastPathComponent().absoluteString(), "file:///");
}

TEST(NSURL, ChangesItsExtension)
{
    EXPECT_EQ(fileURL("/a/archive.tar.gz").URLByDeletingPathExtension().path(), "/a/archive.tar");
    EXPECT_EQ(fileURL("/a.b/c").URLByDeletingPathExtension().path(), "/a.b/c");
    EXPECT_EQ(fileURL("/a/Trip").URLByAppendingPathExtension("mov").path(), "/a/Trip.mov");
    EXPECT_EQ(NSURL::fileURLWithPath("/").URLByAppendingPathExtension("mov").path(), "/");
    EXPECT_EQ(fileURL("/a/Trip").URLByAppendingPathExtension("a/b").path(), "/a/Trip");
    EXPECT_EQ(fileURL("/a/archive.tar.gz").lastPathComponent(), "archive.tar.gz");
    EXPECT_EQ(fileURL("/a/archive.tar.gz").pathExtension(), "gz");
}

TEST(NSURL, AnswersThatAccessWasStarted)
{
    EXPECT_TRUE(fileURL("/a").startAccessingSecurityScopedResource());
}

TEST(NSURL, ReadsItsOwnText)
{
    for (const std::string text :
         {"file:///a/b%20c.mov", "file:///a/", "file:///", "file://localhost/a/%C3%A4.mov", "file:///a%25b%3F%23"}) {
        const auto url = NSURL::URLWithString(text);
        ASSERT_TRUE(url) << text;
        EXPECT_EQ(url->absoluteString(), text);
    }
    EXPECT_EQ(NSURL::URLWithString("file:///b%20c%e4")->path(), "/b c\xe4");
    EXPECT_NE(NSURL::URLWithString("file://localhost/a"), NSURL::URLWithString("file:///a"));
}

TEST(NSURL, KeepsItsHostForWhatLiesBeside)
{
    const auto url = NSURL::URLWithString("file://localhost/Volumes/Disk/a.mov");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->URLByDeletingLastPathComponent().absoluteString(), "file://localhost/Volumes/Disk/");
    EXPECT_EQ(url->URLByDeletingPathExtension().absoluteString(), "file://localhost/Volumes/Disk/a");
    EXPECT_EQ(url->URLByAppendingPathExtension("bak").absoluteString(), "file://localhost/Volumes/Disk/a.mov.bak");
    EXPECT_EQ(url->URLByAppendingPathComponent("b", false).absoluteString(), "file://localhost/Volumes/Disk/a.mov/b");
}

TEST(NSURL, IsNoneOfATextThatNamesNoFileHere)
{
    for (const char* text : {"", "/a", "http://localhost/a", "file:/a", "file://", "file://server/a", "file:///a%2",
                             "file:///a%zz", "file:///a%00b", "file:///a?b", "file:///a#b"})
        EXPECT_FALSE(NSURL::URLWithString(text)) << text;
}
