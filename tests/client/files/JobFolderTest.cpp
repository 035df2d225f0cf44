#include "client/files/JobFolder.h"

#include "platform/files/NSURL.h"
#include "platform/foundation/FileDescriptor.h"
#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <filesystem>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace stillora;

namespace {

using platform::NSURL;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

NSURL urlOf(const std::string& path)
{
    return NSURL::fileURLWithPath(path, true);
}

/// Whether a process made a job's folder there and ended without removing anything.
bool hasAbandonedJob(const TemporaryFolder& save)
{
    const pid_t child = fork();
    if (child == 0) {
        const auto job = JobFolder::create(urlOf(save.path()));
        _exit(job ? 0 : 1);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0;
}

TEST(JobFolder, LeavesNothingBehind)
{
    const TemporaryFolder save;
    {
        const auto job = JobFolder::create(urlOf(save.path()));
        ASSERT_TRUE(job);
        EXPECT_TRUE(std::filesystem::is_directory(job->temporaryURL().path()));
        EXPECT_TRUE(std::filesystem::is_directory(job->outputURL().path()));
        EXPECT_THAT(save.entries(), Contains(".MORStilloraTemporaryFiles"));
        std::filesystem::create_directories(job->temporaryURL().path() + "/a/b");
    }
    EXPECT_THAT(save.entries(), IsEmpty());
}

TEST(JobFolder, MakesTheSaveFolderAndTakesItBackIfNothingCameIntoIt)
{
    const TemporaryFolder parent;
    {
        const auto job = JobFolder::create(urlOf(parent.path("new/movies")));
        ASSERT_TRUE(job);
    }
    EXPECT_THAT(parent.entries(), IsEmpty());
    {
        const auto job = JobFolder::create(urlOf(parent.path("new/movies")));
        ASSERT_TRUE(job);
        parent.makeFile("new/movies/Movie.mov", "x");
    }
    EXPECT_THAT(parent.entries(), testing::ElementsAre("new", "new/movies", "new/movies/Movie.mov"));
}

TEST(JobFolder, KeepsASaveFolderThatWasThereBefore)
{
    const TemporaryFolder parent;
    std::filesystem::create_directory(parent.path("movies"));
    ASSERT_TRUE(JobFolder::create(urlOf(parent.path("movies"))));
    EXPECT_TRUE(std::filesystem::is_directory(parent.path("movies")));
}

TEST(JobFolder, SaysThatASaveFolderCannotBeWritten)
{
    const TemporaryFolder save;
    chmod(save.path().c_str(), 0555);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        // Root may write everywhere.
        if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0)
            _exit(2);
        platform::NSError error;
        const auto job = JobFolder::create(urlOf(save.path()), &error);
        static_cast<void>(!write(ends[1], error.localizedDescription.data(), error.localizedDescription.size()));
        _exit(job ? 1 : 0);
    }
    close(ends[1]);
    char text[1024] = {};
    EXPECT_GT(read(ends[0], text, sizeof text - 1), 0);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(text, "the folder " + save.path() + " cannot be written: Permission denied");
}

TEST(JobFolder, SaysThatAFileIsInTheWay)
{
    const TemporaryFolder save;
    save.makeFile("file", "x");
    for (const char* path : {"file", "file/inside"}) {
        platform::NSError error;
        EXPECT_FALSE(JobFolder::create(urlOf(save.path(path)), &error)) << path;
        EXPECT_THAT(error.localizedDescription, HasSubstr(save.path(path)));
    }
    platform::NSError error;
    EXPECT_FALSE(JobFolder::create(urlOf("/proc/stillora"), &error));
    EXPECT_THAT(error.localizedDescription, HasSubstr("/proc/stillora"));
}

TEST(JobFolder, TwoJobsDoNotTouchEachOther)
{
    const TemporaryFolder save;
    auto first = JobFolder::create(urlOf(save.path()));
    ASSERT_TRUE(first);
    {
        const auto second = JobFolder::create(urlOf(save.path()));
        ASSERT_TRUE(second);
        EXPECT_NE(first->temporaryURL().path(), second->temporaryURL().path());
    }
    EXPECT_TRUE(std::filesystem::is_directory(first->temporaryURL().path()));
    first.reset();
    EXPECT_THAT(save.entries(), IsEmpty());
}

TEST(JobFolder, RemovesWhatADeadProcessLeft)
{
    const TemporaryFolder save;
    ASSERT_TRUE(hasAbandonedJob(save));
    ASSERT_THAT(save.entries(), testing::Not(IsEmpty()));
    ASSERT_TRUE(JobFolder::create(urlOf(save.path())));
    EXPECT_THAT(save.entries(), IsEmpty());
}

TEST(JobFolder, UsesNoHiddenFolderOfAnotherUser)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a folder away";
    const TemporaryFolder save;
    const std::string usual = save.path(".MORStilloraTemporaryFiles");
    ASSERT_EQ(mkdir(usual.c_str(), 0777), 0);
    ASSERT_EQ(chown(usual.c_str(), 65534, 65534), 0);
    {
        const auto job = JobFolder::create(urlOf(save.path()));
        ASSERT_TRUE(job);
        EXPECT_TRUE(std::filesystem::is_empty(usual)) << "nothing of the job is within the other's reach";
        std::filesystem::path folder = job->outputURL().path();
        struct stat status = {};
        for (folder = folder.parent_path(); folder != save.path(); folder = folder.parent_path()) {
            ASSERT_EQ(stat(folder.c_str(), &status), 0);
            EXPECT_EQ(status.st_uid, geteuid()) << folder;
            EXPECT_EQ(status.st_mode & 0777, 0700) << folder;
        }
    }
    EXPECT_THAT(save.entries(), testing::ElementsAre(".MORStilloraTemporaryFiles"));
}

TEST(JobFolder, UsesNoLinkInThePlaceOfTheHiddenFolder)
{
    const TemporaryFolder save;
    const TemporaryFolder other;
    std::filesystem::create_symlink(other.path(), save.path(".MORStilloraTemporaryFiles"));
    {
        const auto job = JobFolder::create(urlOf(save.path()));
        ASSERT_TRUE(job);
        EXPECT_THAT(other.entries(), IsEmpty());
    }
    EXPECT_THAT(save.entries(), testing::ElementsAre(".MORStilloraTemporaryFiles"));
}

TEST(JobFolder, TakesTheRightToWriteFromOthers)
{
    const TemporaryFolder save;
    const std::string usual = save.path(".MORStilloraTemporaryFiles");
    ASSERT_EQ(mkdir(usual.c_str(), 0700), 0);
    ASSERT_EQ(chmod(usual.c_str(), 0777), 0);
    const auto job = JobFolder::create(urlOf(save.path()));
    ASSERT_TRUE(job);
    EXPECT_THAT(job->outputURL().path(), HasSubstr("/.MORStilloraTemporaryFiles/"));
    struct stat status = {};
    ASSERT_EQ(stat(usual.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0755);
}

TEST(JobFolder, WaitsForNobodyForEver)
{
    const TemporaryFolder save;
    const std::string usual = save.path(".MORStilloraTemporaryFiles");
    ASSERT_EQ(mkdir(usual.c_str(), 0700), 0);
    const platform::FileDescriptor holder(open(usual.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(holder.get(), LOCK_SH), 0);
    const auto start = std::chrono::steady_clock::now();
    const auto job = JobFolder::create(urlOf(save.path()));
    EXPECT_TRUE(job);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(JobFolder, RemovesAFolderOfItsOwnThatADeadProcessLeft)
{
    const TemporaryFolder save;
    const TemporaryFolder other;
    std::filesystem::create_symlink(other.path(), save.path(".MORStilloraTemporaryFiles"));
    ASSERT_TRUE(hasAbandonedJob(save));
    ASSERT_GT(save.entries().size(), 1u);
    {
        // Those of living jobs stay.
        const auto living = JobFolder::create(urlOf(save.path()));
        ASSERT_TRUE(living);
        ASSERT_TRUE(JobFolder::create(urlOf(save.path())));
        EXPECT_TRUE(std::filesystem::is_directory(living->outputURL().path()));
    }
    EXPECT_THAT(save.entries(), testing::ElementsAre(".MORStilloraTemporaryFiles"));
}

TEST(JobFolder, LeavesOtherFilesInTheHiddenFolderAlone)
{
    const TemporaryFolder save;
    save.makeFile(".MORStilloraTemporaryFiles/0A1B/videoWithoutSound.mov", "x");
    ASSERT_TRUE(JobFolder::create(urlOf(save.path())));
    EXPECT_THAT(save.entries(), Contains(".MORStilloraTemporaryFiles/0A1B/videoWithoutSound.mov"));
}

TEST(JobFolder, NamesADocumentSoThatTheWholeTitleIsLeft)
{
    const TemporaryFolder save;
    const auto job = JobFolder::create(urlOf(save.path()));
    ASSERT_TRUE(job);
    for (const std::string title : {"Holiday", "Trip v1.2", "Name.", "St. Ives", "a.tar.gz", "été 日本"}) {
        const auto document = job->makeDocument(title);
        ASSERT_TRUE(document) << title;
        EXPECT_EQ(platform::stringByDeletingPathExtension(document->lastPathComponent()), title);
        EXPECT_TRUE(document->bookmarkData()) << "the document is there";
    }
}

TEST(JobFolder, MakesAliasesOfTheirOwnForOneFile)
{
    const TemporaryFolder save;
    const std::string song = save.makeFile("song.mp3", "music");
    const auto job = JobFolder::create(urlOf(save.path()));
    ASSERT_TRUE(job);
    const auto first = job->makeAlias(song);
    const auto second = job->makeAlias(song);
    ASSERT_TRUE(first && second);
    EXPECT_NE(first->path(), second->path());
    EXPECT_EQ(first->pathExtension(), "mp3");
    EXPECT_TRUE(std::filesystem::equivalent(first->path(), song));
}

TEST(JobFolder, MeasuresWhatIsBeingWritten)
{
    const TemporaryFolder save;
    const auto job = JobFolder::create(urlOf(save.path()));
    ASSERT_TRUE(job);
    const uint64_t empty = job->sizeOfContents();
    std::ofstream(job->temporaryURL().path() + "/a.m4a");
    const uint64_t withFile = job->sizeOfContents();
    EXPECT_GT(withFile, empty) << "an empty file is a sign of life too";
    std::ofstream(job->temporaryURL().path() + "/a.m4a") << "12345";
    EXPECT_EQ(job->sizeOfContents(), withFile + 5);
}

} // namespace
