#include "client/movie/FrameMemory.h"

#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <filesystem>
#include <set>

#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace stillora;
using namespace std::chrono_literals;

namespace {

PhotoFacts factsOf(const std::string& path, const std::string& fingerprint)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    PhotoFacts facts;
    facts.path = path;
    facts.size = {4000, 3000};
    facts.fileSize = status.st_size;
    facts.modified = std::chrono::sys_time<std::chrono::nanoseconds>(std::chrono::seconds(status.st_mtim.tv_sec) +
                                                                     std::chrono::nanoseconds(status.st_mtim.tv_nsec));
    facts.fingerprint = fingerprint;
    return facts;
}

class FrameKeysTest : public testing::Test {
protected:
    FrameKeysTest()
    {
        for (const char* name : {"a", "b", "c", "d", "e", "f"})
            request.photos.push_back(factsOf(folder.makeFile(std::string(name) + ".jpg", "a photo"), name));
        request.plan.framesPerPhoto = 1;
        request.codec = "jpeg";
        request.quality = 480;
        request.watermark = Watermark::Absent;
    }

    std::vector<std::string> keys() const { return FrameKeys(request, program).keys(); }

    /// How many of the frames come out as those of `before` at the same place.
    size_t same(const std::vector<std::string>& before) const
    {
        const auto now = keys();
        size_t count = 0;
        for (size_t i = 0; i < now.size(); ++i)
            count += now[i] == before[i] && !now[i].empty() ? 1 : 0;
        return count;
    }

    TemporaryFolder folder;
    const std::string program = folder.makeFile("service", "a program");
    MovieRequest request;
};

TEST_F(FrameKeysTest, AreOfTheirOwnForEachPhotoAndTheSameAgain)
{
    const auto before = keys();
    EXPECT_EQ(std::set<std::string>(before.begin(), before.end()).size(), 6u);
    EXPECT_EQ(same(before), 6u);
}

TEST_F(FrameKeysTest, ChangeWithAllThatChangesAFrame)
{
    const auto before = keys();
    const MovieRequest original = request;
    request.codec = "apcn";
    EXPECT_EQ(same(before), 0u);
    request = original;
    request.quality = 360;
    EXPECT_EQ(same(before), 0u);
    request = original;
    request.reducesBorders = true;
    EXPECT_EQ(same(before), 0u);
    request = original;
    request.watermark = Watermark::Drawn;
    EXPECT_EQ(same(before), 4u) << "of six, the first and the last carry it";
    request = original;
    EXPECT_EQ(same(before), 6u);
    folder.makeFile("service", "another program");
    EXPECT_EQ(same(before), 0u);
}

TEST_F(FrameKeysTest, DoNotChangeWithWhatIsNotSeen)
{
    const auto before = keys();
    request.plan.timePerFrame = 3s;
    request.title = "Other";
    request.saveFolder = "/elsewhere";
    EXPECT_EQ(same(before), 6u);
    // A name tells nothing of a picture.
    std::filesystem::rename(request.photos[2].path, folder.path("z.jpg"));
    request.photos[2].path = folder.path("z.jpg");
    EXPECT_EQ(same(before), 6u);
}

TEST_F(FrameKeysTest, FindAPhotoThatChangedUnderItsNameLengthAndTime)
{
    const auto before = keys();
    request.photos[1].fingerprint = "other";
    EXPECT_EQ(same(before), 5u);
    std::filesystem::last_write_time(request.photos[0].path,
                                     std::filesystem::last_write_time(request.photos[0].path) + 1ns);
    request.photos[0] = factsOf(request.photos[0].path.native(), "a");
    EXPECT_FALSE(keys()[0].empty());
    EXPECT_EQ(same(before), 4u);
}

TEST_F(FrameKeysTest, DoNotMindThePlace)
{
    const auto before = keys();
    std::rotate(request.photos.begin(), request.photos.begin() + 1, request.photos.end());
    auto now = keys();
    std::rotate(now.begin(), now.end() - 1, now.end());
    EXPECT_EQ(now, before);
}

TEST_F(FrameKeysTest, AreEmptyForPhotosThatAreNotAsTheyWereLookedAt)
{
    std::filesystem::remove(request.photos[4].path);
    folder.makeFile("a.jpg", "a longer photo");
    std::filesystem::last_write_time(request.photos[1].path,
                                     std::filesystem::last_write_time(request.photos[1].path) + 1ns);
    request.photos[2].fingerprint.clear();
    const auto now = keys();
    for (size_t i = 0; i < 6; ++i)
        EXPECT_EQ(now[i].empty(), i != 3 && i != 5) << i;
}

TEST_F(FrameKeysTest, AreTakenBackForPhotosThatChangeMeanwhile)
{
    request.plan.framesPerPhoto = 2;
    FrameKeys frames(request, program);
    ASSERT_EQ(frames.keys().size(), 12u);
    EXPECT_EQ(frames.keys()[4], frames.keys()[5]);
    folder.makeFile("c.jpg", "another photo");
    std::filesystem::remove(request.photos[5].path);
    frames.forgetChangedPhotos();
    for (size_t i = 0; i < 12; ++i)
        EXPECT_EQ(frames.keys()[i].empty(), i == 4 || i == 5 || i == 10 || i == 11) << i;
}

class FrameMemoryTest : public testing::Test {
protected:
    TemporaryFolder folder;
    const std::string movie = folder.makeFile("movie.mov", "a movie");
    const std::string other = folder.makeFile("other.mov", "another movie");
    const FrameMemory memory{folder.path("cache/frames")};
};

TEST_F(FrameMemoryTest, FindsTheMovieThatHasTheMost)
{
    EXPECT_FALSE(memory.find({"a"})) << "nothing was made yet";
    memory.remember(movie, {"a", "b", "", "c"});
    memory.remember(other, {"c", "d"});
    const auto found = memory.find({"", "c", "b", "e", "b"});
    ASSERT_TRUE(found);
    EXPECT_EQ(found->movie.path(), movie);
    EXPECT_EQ(found->frames, (std::map<size_t, size_t>{{1, 3}, {2, 1}, {4, 1}}));
    EXPECT_EQ(memory.find({"d", "c"})->movie.path(), other);
    EXPECT_FALSE(memory.find({"e", ""}));
}

TEST_F(FrameMemoryTest, KnowsNothingOfAMovieThatIsNotAsItWas)
{
    memory.remember(movie, {"a", "b"});
    memory.remember(other, {"a"});
    EXPECT_EQ(memory.find({"a", "b"})->movie.path(), movie);
    folder.makeFile("movie.mov", "a movie that was cut");
    EXPECT_EQ(memory.find({"a", "b"})->movie.path(), other);
    std::filesystem::remove(other);
    EXPECT_FALSE(memory.find({"a", "b"}));
    // What was made anew under the name counts, and nothing of what was there.
    memory.remember(movie, {"b"});
    EXPECT_EQ(memory.find({"a", "b"})->frames, (std::map<size_t, size_t>{{1, 0}}));
}

TEST_F(FrameMemoryTest, ForgetsWhatWasRememberedLongAgo)
{
    for (int i = 0; i < 45; ++i) {
        const std::string name = folder.makeFile("movie" + std::to_string(i) + ".mov", "a movie");
        memory.remember(name, {std::to_string(i)});
        const auto entries = std::filesystem::directory_iterator(folder.path("cache/frames"));
        EXPECT_EQ(std::distance(begin(entries), end(entries)), std::min(i + 1, 40));
    }
    EXPECT_FALSE(memory.find({"0"}));
    EXPECT_TRUE(memory.find({"44"}));
}

TEST_F(FrameMemoryTest, IsForTheUserAloneAndPassesOverWhatIsNotItsOwn)
{
    memory.remember(movie, {"a"});
    const std::filesystem::path cache = folder.path("cache/frames");
    EXPECT_EQ(std::filesystem::status(cache).permissions(), std::filesystem::perms::owner_all);
    folder.makeFile("cache/frames/empty", "");
    folder.makeFile("cache/frames/text", "some text");
    folder.makeFile("cache/frames/half", std::string("stillora frames 1\0/a", 20));
    folder.makeFolder("cache/frames/folder");
    EXPECT_TRUE(memory.find({"a"}));
    EXPECT_FALSE(memory.find({""}));
}

TEST_F(FrameMemoryTest, TakesAnyNameAndSurvivesAFolderThatCannotBeMade)
{
    const std::string odd = folder.makeFile("a,b: 0+1@2\n.mov", "a movie");
    memory.remember(odd, {"a"});
    EXPECT_EQ(memory.find({"a"})->movie.path(), odd);
    const FrameMemory nowhere(std::filesystem::path(movie) / "frames");
    nowhere.remember(movie, {"a"});
    EXPECT_FALSE(nowhere.find({"a"}));
}

TEST_F(FrameMemoryTest, TellsTheServiceOfRuns)
{
    EXPECT_EQ(argumentOf({platform::NSURL::fileURLWithPath("/a b.mov", false),
                          {{0, 1}, {1, 2}, {2, 3}, {4, 4}, {5, 6}, {6, 0}}}),
              "0+3@1,4+1@4,5+1@6,6+1@0:/a b.mov");
}

TEST_F(FrameMemoryTest, FindsNothingThatTheServiceCannotBeToldOf)
{
    std::vector<std::string> keys;
    for (int i = 0; i < 20'000; ++i)
        keys.push_back(std::to_string(i));
    memory.remember(movie, keys);
    EXPECT_EQ(memory.find(keys)->frames.size(), keys.size());
    std::ranges::reverse(keys);
    EXPECT_FALSE(memory.find(keys));
}

} // namespace
