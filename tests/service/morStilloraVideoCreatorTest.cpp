#include "service/morStilloraVideoCreator.h"

#include "FakeStages.h"

#include "platform/system/NSProcessInfo.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <deque>
#include <map>
#include <ostream>
#include <semaphore>
#include <thread>
#include <tuple>

using platform::DispatchQueue;
using platform::NSData;
using platform::NSError;
using platform::NSURL;

namespace {

using namespace std::chrono_literals;
using Entries = std::vector<std::string>;

const NSError kFailure{"NSCocoaErrorDomain", 260, "no such file"};
const NSError kFailureWithoutError{};

struct Outcome {
    int replies = 0;
    std::optional<NSData> movie;
    std::optional<NSError> error;
    bool isCancelled = false;
    bool wasOnMainQueue = false;
};

class CreatorTest : public testing::Test {
protected:
    /// Sends a request; `outcomes_` has a place for its answer.
    size_t send(const PhotoList& photoList = photos(5), const SoundtrackList& soundtrackList = soundtracks(1))
    {
        const auto index = outcomes_.size();
        outcomes_.emplace_back();
        creator_->createStillMotionVideoWithPhotos(
            photoList, soundtrackList, 50, 5, false, 10, std::nullopt, 720, false, {}, save_.bookmark(),
            temporary_.bookmark(),
            [this, index](std::optional<NSData> movie, std::optional<NSError> error, bool isCancelled) {
                auto& outcome = outcomes_[index];
                ++outcome.replies;
                outcome.movie = std::move(movie);
                outcome.error = std::move(error);
                outcome.isCancelled = isCancelled;
                outcome.wasOnMainQueue = DispatchQueue::main()->isCurrent();
                duringReply_();
            });
        return index;
    }
    Outcome run(const PhotoList& photoList = photos(5), const SoundtrackList& soundtrackList = soundtracks(1))
    {
        const auto index = send(photoList, soundtrackList);
        finish();
        return outcomes_[index];
    }
    /// Runs the main queue until every request has had its answer and nothing of it is left.
    void finish()
    {
        EXPECT_TRUE(DispatchQueue::runMainUntil([] { return morStilloraVideoCreator::unansweredRequests() == 0; }, 30));
        for (const auto& outcome : outcomes_) {
            EXPECT_EQ(outcome.replies, 1);
            EXPECT_TRUE(outcome.wasOnMainQueue);
        }
    }

    TemporaryFolder save_;
    TemporaryFolder temporary_;
    FakeStages fakes_{temporary_.path()};
    LogRecorder log_;
    std::function<void()> duringReply_ = [] {};
    std::shared_ptr<morStilloraVideoCreator> creator_ = fakes_.makeCreator();
    // Addresses stay when more are added.
    std::deque<Outcome> outcomes_;
};

/// One way out of a job, and all that shows.
struct WayOut {
    const char* name;
    std::function<void(FakeStages& fakes, morStilloraVideoCreator& creator)> prepare;
    size_t photoCount = 5;
    size_t soundtrackCount = 1;
    /// Each in short.
    std::string stages;
    std::optional<NSError> error = {};
    bool isCancelled = false;
    /// Of those that were made.
    Entries filesLeft = {};
    /// Around the reply, where the hold on idle sleep failed, with how often automatic termination was allowed before.
    Entries ends;
};

void PrintTo(const WayOut& way, std::ostream* out)
{
    *out << way.name;
}

void cancel(StageContext& context)
{
    context.setIsCancelled(true);
}

const Entries kLetGo{"release 0", "main reply 0"};

const WayOut kWaysOut[] = {
    {.name = "no photos",
     .prepare = [](FakeStages&, auto&) {},
     .photoCount = 0,
     .stages = "",
     .ends = {"main reply 0"}},
    {.name = "no photos, cancelled before",
     .prepare = [](FakeStages&, auto& creator) { cancel(creator); },
     .photoCount = 0,
     .stages = "",
     .isCancelled = true,
     .ends = {"main reply 0"}},
    {.name = "cancelled before the soundtrack",
     .prepare = [](FakeStages&, auto& creator) { cancel(creator); },
     .stages = "hold",
     .isCancelled = true,
     .ends = kLetGo},
    {.name = "soundtrack failed",
     .prepare = [](FakeStages& fakes, auto&) { fakes.soundtrackFailure = kFailure; },
     .stages = "hold, sound",
     .error = kFailure,
     .ends = kLetGo},
    {.name = "soundtrack failed without an error",
     .prepare = [](FakeStages& fakes, auto&) { fakes.soundtrackFailure = kFailureWithoutError; },
     .stages = "hold, sound",
     .ends = kLetGo},
    {.name = "soundtrack failed, cancelled during it",
     .prepare =
         [](FakeStages& fakes, auto&) {
             fakes.soundtrackFailure = kFailure;
             fakes.duringSoundtrack = cancel;
         },
     .stages = "hold, sound",
     .error = kFailure,
     .isCancelled = true,
     .ends = kLetGo},
    {.name = "cancelled after the soundtrack",
     .prepare = [](FakeStages& fakes, auto&) { fakes.duringSoundtrack = cancel; },
     .stages = "hold, sound",
     .isCancelled = true,
     .ends = kLetGo},
    {.name = "cancelled after a soundtrack with an error",
     .prepare =
         [](FakeStages& fakes, auto&) {
             fakes.duringSoundtrack = cancel;
             fakes.errorBesideSoundtrack = kFailure;
         },
     .stages = "hold, sound",
     .isCancelled = true,
     .ends = kLetGo},
    {.name = "video failed",
     .prepare = [](FakeStages& fakes, auto&) { fakes.videoFailure = kFailure; },
     .stages = "hold, sound, pictures",
     .error = kFailure,
     .ends = kLetGo},
    {.name = "video failed without an error after a soundtrack with one",
     .prepare =
         [](FakeStages& fakes, auto&) {
             fakes.videoFailure = kFailureWithoutError;
             fakes.errorBesideSoundtrack = kFailure;
         },
     .stages = "hold, sound, pictures",
     .ends = kLetGo},
    {.name = "video failed, cancelled during it",
     .prepare =
         [](FakeStages& fakes, auto&) {
             fakes.videoFailure = kFailure;
             fakes.duringVideo = cancel;
         },
     .stages = "hold, sound, pictures",
     .error = kFailure,
     .isCancelled = true,
     .ends = kLetGo},
    {.name = "cancelled during the video",
     .prepare = [](FakeStages& fakes, auto&) { fakes.duringVideo = cancel; },
     .stages = "hold, sound, pictures",
     .isCancelled = true,
     .ends = kLetGo},
    {.name = "cancelled during the composition",
     .prepare = [](FakeStages& fakes, auto&) { fakes.duringComposition = cancel; },
     .stages = "hold, sound, pictures, join",
     .isCancelled = true,
     .ends = kLetGo},
    {.name = "cancelled during the composition after a video with an error",
     .prepare =
         [](FakeStages& fakes, auto&) {
             fakes.duringComposition = cancel;
             fakes.errorBesideVideo = kFailure;
         },
     .stages = "hold, sound, pictures, join",
     .isCancelled = true,
     .ends = kLetGo},
    {.name = "composition failed, cancelled during it",
     .prepare =
         [](FakeStages& fakes, auto&) {
             fakes.compositionFailure = kFailure;
             fakes.duringComposition = cancel;
         },
     .stages = "hold, sound, pictures, join",
     .error = kFailure,
     .isCancelled = true,
     .ends = kLetGo},
    {.name = "cancelled during the move",
     .prepare = [](FakeStages& fakes, auto&) { fakes.duringNaming = cancel; },
     .soundtrackCount = 0,
     .stages = "hold, pictures, name",
     .isCancelled = true,
     .ends = kLetGo},
    {.name = "composition failed",
     .prepare = [](FakeStages& fakes, auto&) { fakes.compositionFailure = kFailure; },
     .stages = "hold, sound, pictures, join",
     .ends = {"main reply 0"}},
    {.name = "success",
     .prepare = [](FakeStages&, auto&) {},
     .stages = "hold, sound, pictures, join",
     .filesLeft = {"movie.mov", "soundtrack.m4a", "video.mov"},
     .ends = {"main release 0", "main log 1", "main reply 1"}},
};

/// The fakes' journal in short.
std::string stagesIn(const Entries& entries)
{
    static const std::map<std::string, std::string> names = {
        {"assertion", "hold"}, {"soundtrack", "sound"}, {"video", "pictures"}, {"combine", "join"}, {"name", "name"}};
    std::string text;
    for (const std::string& entry : entries)
        if (const auto name = names.find(entry.substr(0, entry.find(' '))); name != names.end())
            text += (text.empty() ? "" : ", ") + name->second;
    return text;
}

/// Whether it is the line that tells how long a job took, to the microsecond.
bool isTiming(const std::string& text)
{
    double seconds = -1;
    int length = 0;
    return std::sscanf(text.c_str(), "*!!* creation took %lf seconds%n", &seconds, &length) == 1 && seconds >= 0 &&
           seconds < 600 && static_cast<size_t>(length) == text.size() && text[text.find('.') + 7] == ' ';
}

/// Each way out, with a hold on idle sleep that succeeded (true) or failed.
class CreatorWaysOutTest : public CreatorTest, public testing::WithParamInterface<std::tuple<WayOut, bool>> {
protected:
    CreatorWaysOutTest()
    {
        // Only paths that hold the temporary folder's URL are removed.
        fakes_.filesFolder = temporary_.path() + "/" + temporary_.url().absoluteString();
        std::filesystem::create_directories(*fakes_.filesFolder);
        fakes_.finalNames = {"../" + temporary_.url().lastPathComponent() + "/" + temporary_.url().absoluteString() +
                             "final.mov"};
    }

    int64_t terminationsAllowed() const
    {
        return allowedAtFirst_ - platform::NSProcessInfo::processInfo().termination().automaticTerminationDisabled;
    }
    void note(const std::string& what)
    {
        ends_.add((DispatchQueue::main()->isCurrent() ? "main " : "") + what + " " +
                  std::to_string(terminationsAllowed()));
    }
    Entries filesLeft() const
    {
        Entries files;
        for (const auto& entry : std::filesystem::directory_iterator(*fakes_.filesFolder))
            files.push_back(entry.path().filename().string());
        std::ranges::sort(files);
        return files;
    }

    const int64_t allowedAtFirst_ = platform::NSProcessInfo::processInfo().termination().automaticTerminationDisabled;
    Journal ends_;
};

} // namespace

TEST_P(CreatorWaysOutTest, EndsAsItsRowSays)
{
    const auto& [way, isHeld] = GetParam();
    fakes_.assertionStatus = isHeld ? platform::kIOReturnSuccess : platform::kIOReturnBadArgument;
    way.prepare(fakes_, *creator_);
    fakes_.duringRelease = [this] { note("release"); };
    duringReply_ = [this] { note("reply"); };
    platform::setLogSink([this](const std::string& line) {
        if (isTiming(line))
            note("log");
    });

    const Outcome outcome = run(photos(way.photoCount), soundtracks(way.soundtrackCount));

    EXPECT_EQ(stagesIn(fakes_.journal.entries()), way.stages);
    EXPECT_EQ(outcome.movie.has_value(), way.ends.size() == 3);
    EXPECT_EQ(outcome.error, way.error);
    EXPECT_EQ(outcome.isCancelled, way.isCancelled);
    EXPECT_EQ(filesLeft(), way.filesLeft);
    Entries ends = way.ends;
    if (isHeld)
        std::erase_if(ends, [](const std::string& entry) { return entry.find("release") != std::string::npos; });
    EXPECT_EQ(ends_.entries(), ends);
}

INSTANTIATE_TEST_SUITE_P(All, CreatorWaysOutTest, testing::Combine(testing::ValuesIn(kWaysOut), testing::Bool()),
                         [](const auto& row) {
                             std::string name = std::get<0>(row.param).name;
                             std::ranges::replace_if(
                                 name, [](char c) { return c == ' ' || c == ','; }, '_');
                             return name + (std::get<1>(row.param) ? "__held" : "__not_held");
                         });

TEST_F(CreatorTest, AllowsAutomaticTerminationOnACancel)
{
    const auto disabled = [] {
        return platform::NSProcessInfo::processInfo().termination().automaticTerminationDisabled;
    };
    const auto before = disabled();
    creator_->cancelCreation();
    EXPECT_EQ(disabled(), before - 1);
    auto operations = platform::NSProcessInfo::processInfo().termination().operations;
    operations.erase(operations.begin(), operations.end() - 3);
    EXPECT_EQ(operations, Entries({"setAutomaticTerminationSupportEnabled: true", "enableSuddenTermination",
                                   "enableAutomaticTermination: creating assets for Stillora"}));
}

TEST_F(CreatorTest, AnswersAnEmptyPhotoListAtOnceWithoutAFolderOrAnAssertion)
{
    const auto outcome = run({}, soundtracks(2));
    EXPECT_FALSE(outcome.movie);
    EXPECT_FALSE(outcome.error);
    EXPECT_FALSE(outcome.isCancelled);
    EXPECT_EQ(fakes_.journal.entries(), Entries());
}

TEST_F(CreatorTest, ReturnsBeforeTheJobHasRun)
{
    std::binary_semaphore open(0);
    fakes_.duringSoundtrack = [&](StageContext&) { open.acquire(); };
    send();
    EXPECT_EQ(morStilloraVideoCreator::unansweredRequests(), 1U);
    open.release();
    finish();
}

TEST_F(CreatorTest, HandsTheRequestToItsStagesInOrder)
{
    const auto document = NSURL::fileURLWithPath(save_.path("Holiday.stillora"), false);
    std::ofstream(document.path()) << "document";
    size_t replies = 0;
    creator_->createStillMotionVideoWithPhotos(photos(7), soundtracks(3), 70, 30.5, true, 2.5, "avc1", 1080, true,
                                               document.bookmarkData().value(), save_.bookmark(), temporary_.bookmark(),
                                               [&](std::optional<NSData>, std::optional<NSError>, bool) { ++replies; });
    EXPECT_TRUE(DispatchQueue::runMainUntil([&] { return replies == 1; }, 30));
    EXPECT_EQ(fakes_.journal.entries(),
              Entries({"assertion VideoCreationIOPMAssertionSleepNotice", "soundtrack 3 70. 30.5 loop",
                       "video 7 1080 2.5 avc1 reduce", "combine video.mov soundtrack.m4a Holiday.stillora"}));
    EXPECT_EQ(creator_->destinationURL(), save_.url());
    EXPECT_EQ(creator_->temporaryURL(), temporary_.url());
    EXPECT_EQ(creator_->documentURL(), document);
}

TEST_F(CreatorTest, AnswersWithABookmarkOfTheMovieOnSuccess)
{
    const auto outcome = run();
    ASSERT_TRUE(outcome.movie);
    EXPECT_EQ(NSURL::URLByResolvingBookmarkData(*outcome.movie)->path(), fakes_.file("movie.mov").string());
    EXPECT_FALSE(outcome.error);
    EXPECT_FALSE(outcome.isCancelled);
    // Nothing is deleted on success.
    EXPECT_TRUE(std::filesystem::exists(fakes_.file("soundtrack.m4a")));
    EXPECT_TRUE(std::filesystem::exists(fakes_.file("video.mov")));
}

TEST_F(CreatorTest, MovesTheSilentVideoWithoutSoundtracksInsteadOfExportingIt)
{
    const auto outcome = run(photos(5), {});
    ASSERT_TRUE(outcome.movie);
    EXPECT_EQ(NSURL::URLByResolvingBookmarkData(*outcome.movie)->path(), save_.path("final.mov"));
    EXPECT_FALSE(std::filesystem::exists(fakes_.file("video.mov")));
    EXPECT_TRUE(std::filesystem::exists(save_.path("final.mov")));
    EXPECT_EQ(fakes_.journal.entries(),
              Entries({"assertion VideoCreationIOPMAssertionSleepNotice", "video 5 720 10. none", "name none"}));
}

TEST_F(CreatorTest, NamesTheLocationOfAMovieThatCouldNotBeMoved)
{
    fakes_.finalNames = {"missing/final.mov"};
    const auto outcome = run(photos(5), {});
    EXPECT_EQ(std::ranges::count_if(log_.lines(),
                                    [](const std::string& line) {
                                        return line.starts_with(
                                            "morStilloraVideoCreator moveItemAtURL:toURL:error: - ");
                                    }),
              1);
    ASSERT_TRUE(outcome.movie);
    EXPECT_FALSE(outcome.error);
    EXPECT_FALSE(outcome.isCancelled);
    EXPECT_FALSE(NSURL::URLByResolvingBookmarkData(*outcome.movie));
    EXPECT_EQ(*outcome.movie, NSURL::fileURLWithPath(save_.path("missing/final.mov"), false).bookmarkDataOfPathAlone());
    EXPECT_TRUE(std::filesystem::exists(fakes_.file("video.mov")));
}

TEST_F(CreatorTest, TakesTheNextFreeNameIfItsOwnIsTakenInTheSameMoment)
{
    fakes_.finalNames = {"final.mov", "final-2.mov", "final-3.mov"};
    std::ofstream(save_.path("final.mov")) << "first";
    std::ofstream(save_.path("final-2.mov")) << "second";
    const auto outcome = run(photos(5), {});
    ASSERT_TRUE(outcome.movie);
    EXPECT_EQ(NSURL::URLByResolvingBookmarkData(*outcome.movie)->path(), save_.path("final-3.mov"));
    std::string content;
    std::ifstream(save_.path("final.mov")) >> content;
    EXPECT_EQ(content, "first");
}

TEST_F(CreatorTest, GivesUpIfTheTakenNameStillCountsAsFree)
{
    // As a dangling link does: it counts as nothing, and still nothing can be put there.
    std::filesystem::create_symlink("/nonexistent/movie.mov", save_.path("final.mov"));
    const auto outcome = run(photos(5), {});
    ASSERT_TRUE(outcome.movie);
    EXPECT_FALSE(outcome.error);
    EXPECT_TRUE(std::filesystem::exists(fakes_.file("video.mov")));
}

TEST_F(CreatorTest, AnswersARequestAfterACancelOnTheSameConnectionAsCancelled)
{
    fakes_.duringVideo = [&](StageContext&) { creator_->cancelCreation(); };
    EXPECT_TRUE(run().isCancelled);
    const auto before = fakes_.journal.entries().size();
    EXPECT_TRUE(run().isCancelled);
    EXPECT_EQ(fakes_.journal.entries().size(), before + 1);
}

TEST_F(CreatorTest, LeavesFilesWhosePathsDoNotHoldTheTemporaryFoldersUrl)
{
    // Which is so for all files that stages write, as a path does not begin with a scheme.
    fakes_.duringVideo = [&](StageContext&) { creator_->cancelCreation(); };
    EXPECT_TRUE(run().isCancelled);
    EXPECT_TRUE(std::filesystem::exists(fakes_.file("soundtrack.m4a")));
    EXPECT_TRUE(std::filesystem::exists(fakes_.file("video.mov")));
}

TEST_F(CreatorTest, RemovesAMovedMovieThatLiesInTheTemporaryFolderWhenCancelledDuringTheMove)
{
    fakes_.filesFolder = temporary_.path() + "/" + temporary_.url().absoluteString();
    std::filesystem::create_directories(*fakes_.filesFolder);
    // Named within the temporary folder, which is not the rule.
    fakes_.finalNames = {"../" + temporary_.url().lastPathComponent() + "/" + temporary_.url().absoluteString() +
                         "final.mov"};
    fakes_.duringNaming = [&](StageContext&) { creator_->cancelCreation(); };
    EXPECT_TRUE(run(photos(5), {}).isCancelled);
    EXPECT_TRUE(std::filesystem::is_empty(*fakes_.filesFolder));
}

TEST_F(CreatorTest, AnswersSuccessWithoutTheFlagThoughCancelledJustBefore)
{
    fakes_.assertionStatus = platform::kIOReturnBadArgument;
    // What comes before the reply, after the job's last look at the flag.
    fakes_.duringRelease = [&] { creator_->cancelCreation(); };
    const auto outcome = run();
    EXPECT_TRUE(outcome.movie);
    EXPECT_FALSE(outcome.isCancelled);
    EXPECT_TRUE(creator_->isCancelled());
}

TEST_F(CreatorTest, AnswersAFailedCompositionWithoutTheFlagThoughCancelledJustBefore)
{
    fakes_.filesFolder = temporary_.path() + "/" + temporary_.url().absoluteString();
    std::filesystem::create_directories(*fakes_.filesFolder);
    fakes_.compositionFailure = kFailure;
    fakes_.duringComposition = [&](StageContext&) {
        // Runs before the reply. That the video is removed shows that the job has looked at the flag for the last time.
        DispatchQueue::main()->async([&] {
            const auto deadline = std::chrono::steady_clock::now() + 30s;
            while (std::filesystem::exists(fakes_.file("video.mov")) && std::chrono::steady_clock::now() < deadline)
                std::this_thread::yield();
            creator_->cancelCreation();
        });
    };
    const auto outcome = run();
    EXPECT_FALSE(outcome.movie);
    EXPECT_FALSE(outcome.isCancelled);
    EXPECT_TRUE(creator_->isCancelled());
}

TEST_F(CreatorTest, ForbidsAutomaticTerminationInTheSameOrder)
{
    creator_->_setAutomaticTerminationEnabled(false);
    auto operations = platform::NSProcessInfo::processInfo().termination().operations;
    operations.erase(operations.begin(), operations.end() - 3);
    EXPECT_EQ(operations, Entries({"setAutomaticTerminationSupportEnabled: false", "disableSuddenTermination",
                                   "disableAutomaticTermination: creating assets for Stillora"}));
    creator_->_setAutomaticTerminationEnabled(true);
}

TEST_F(CreatorTest, FallsBackToItsOwnFoldersWhereBookmarksDoNotResolve)
{
    bool isAnswered = false;
    creator_->createStillMotionVideoWithPhotos(
        photos(5), soundtracks(1), 50, 5, false, 10, std::nullopt, 720, false, {}, {1, 2, 3},
        NSURL::fileURLWithPath("/nonexistent/folder", true).bookmarkDataOfPathAlone(),
        [&](std::optional<NSData>, std::optional<NSError>, bool) { isAnswered = true; });
    EXPECT_TRUE(DispatchQueue::runMainUntil([&] { return isAnswered; }, 30));
    EXPECT_EQ(creator_->destinationURL().path(), temporary_.path("custom"));
    EXPECT_EQ(creator_->temporaryURL().path(), temporary_.path("scratch"));
    EXPECT_EQ(fakes_.journal.entries()[0], "custom folder");
    EXPECT_EQ(fakes_.journal.entries()[1], "scratch folder");
    EXPECT_EQ(fakes_.journal.entries().back(), "combine video.mov soundtrack.m4a none");
}

TEST_F(CreatorTest, AnswersTwoRequestsAtOnceEachOnItsOwn)
{
    // Both are inside at the same time, or none goes on.
    std::atomic<int> inside{0};
    fakes_.duringVideo = [&](StageContext&) {
        ++inside;
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        while (inside < 2 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
    };
    send();
    send(photos(5), {});
    finish();
    EXPECT_EQ(inside, 2);
    EXPECT_TRUE(outcomes_[0].movie);
    EXPECT_TRUE(outcomes_[1].movie);
}

TEST_F(CreatorTest, TellsTheFlagAsItIsWhenTheAnswerIsSent)
{
    fakes_.soundtrackFailure = kFailure;
    const auto index = send();
    // The job has ended, and its answer waits for the main queue.
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (fakes_.journal.entries().size() < 2 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    creator_->cancelCreation();
    finish();
    EXPECT_TRUE(outcomes_[index].isCancelled);
    EXPECT_EQ(outcomes_[index].error, kFailure);
}

TEST_F(CreatorTest, MakesItsQueuesWithTheirLabelsAndLimits)
{
    const auto feedback = creator_->fbQ().underlyingQueue();
    EXPECT_EQ(feedback->label(), "app.stillora.VideoCreator.ProgressFeedbackUnderlyingQueue");
    EXPECT_EQ(feedback->attributes().kind, DispatchQueue::Kind::Concurrent);
    EXPECT_EQ(feedback->attributes().autoreleaseFrequency, DispatchQueue::AutoreleaseFrequency::WorkItem);
    EXPECT_EQ(static_cast<unsigned>(feedback->attributes().qosClass), 21U);
    EXPECT_EQ(feedback->attributes().relativePriority, -1);
    EXPECT_EQ(feedback->attributes().niceness, 0);
    EXPECT_EQ(creator_->fbQ().maxConcurrentOperationCount(), 1);
    EXPECT_EQ(static_cast<int>(creator_->fbQ().qualityOfService()), 17);

    const auto frames = creator_->bufferCreationQ().underlyingQueue();
    EXPECT_EQ(frames->label(), "app.stillora.VideoCreator.ImageCreationUnderlyingQueue");
    EXPECT_EQ(frames->attributes().kind, DispatchQueue::Kind::Concurrent);
    EXPECT_EQ(frames->attributes().autoreleaseFrequency, DispatchQueue::AutoreleaseFrequency::WorkItem);
    EXPECT_EQ(static_cast<unsigned>(frames->attributes().qosClass), 33U);
    EXPECT_EQ(frames->attributes().relativePriority, -1);
    EXPECT_GT(frames->attributes().niceness, 0) << "what is waited for, the encoding, comes first";
    EXPECT_EQ(static_cast<int>(creator_->bufferCreationQ().qualityOfService()), 25);
    const auto processors = platform::NSProcessInfo::processInfo().processorCount();
    EXPECT_EQ(creator_->bufferCreationQ().maxConcurrentOperationCount(), static_cast<int>(processors - processors / 4));
    ASSERT_TRUE(creator_->imageBuffers());
    EXPECT_EQ(creator_->imageBuffers()->count(), 0U);
}

TEST(morStilloraVideoCreator, MakesAsManyFramesAtOnceAsTheProcessorsAllow)
{
    const std::pair<uint64_t, int> rows[] = {{1, 1}, {2, 2}, {3, 3}, {4, 3}, {8, 6}, {10, 8}, {16, 12}};
    for (const auto& [processors, count] : rows)
        EXPECT_EQ(morStilloraVideoCreator::frameOperationCountForProcessors(processors), count) << processors;
}

TEST_F(CreatorTest, WaitsForItsRunningUpdateWhenItEnds)
{
    std::binary_semaphore begun(0);
    std::atomic<bool> hasEnded{false};
    creator_->fbQ().addOperationWithBlock([&] {
        begun.release();
        std::this_thread::yield();
        hasEnded = true;
    });
    begun.acquire();
    creator_ = nullptr;
    EXPECT_TRUE(hasEnded);
}

TEST_F(CreatorTest, DropsAnUpdateWithoutAConnection)
{
    creator_->queueProgress([] { return ProgressUpdate{.title = "VideoCreationTitleRenderingVideo", .image = {}}; });
    creator_->fbQ().waitUntilAllOperationsAreFinished();
    EXPECT_EQ(creator_->xpcConnection(), nullptr);
}

TEST(morStilloraVideoCreator, MakesAMovieWithItsOwnStages)
{
    const TemporaryFolder folder;
    const TemporaryFolder temporary;
    PhotoList photoList;
    for (int i = 0; i < 5; ++i) {
        const std::string path = folder.path(std::to_string(i) + ".png");
        testsound::outputOf("ffmpeg -v error -f lavfi -i color=c=red:s=320x240 -frames:v 1 " +
                            testsound::shellWord(path));
        photoList.push_back(std::make_shared<MORPhoto>());
        photoList.back()->setPhotoURL(NSURL::fileURLWithPath(path));
        photoList.back()->setSize({320, 240});
    }
    const std::string sound = folder.path("sound.wav");
    testsound::outputOf("ffmpeg -v error -f lavfi -i sine=d=5 " + testsound::shellWord(sound));
    const SoundtrackList soundtrackList{MORSoundtrack::soundtrackWithURL(NSURL::fileURLWithPath(sound), {0, 5, 5})};
    std::ofstream(folder.path("Week.stillora")) << "document";

    std::optional<NSData> movie;
    const auto creator = std::make_shared<morStilloraVideoCreator>();
    creator->createStillMotionVideoWithPhotos(
        photoList, soundtrackList, 5, 5, false, 1, "avc1", 240, false,
        NSURL::fileURLWithPath(folder.path("Week.stillora")).bookmarkData().value(), folder.bookmark(),
        temporary.bookmark(),
        [&](std::optional<NSData> bookmark, std::optional<NSError>, bool) { movie = std::move(bookmark); });
    EXPECT_TRUE(DispatchQueue::runMainUntil([] { return morStilloraVideoCreator::unansweredRequests() == 0; }, 30));

    ASSERT_TRUE(movie);
    const auto location = NSURL::URLByResolvingBookmarkData(*movie);
    ASSERT_TRUE(location);
    const std::string path = location->path();
    EXPECT_EQ(path, folder.path("Week.mov"));
    EXPECT_EQ(testsound::outputOf("ffprobe -v error -count_frames -show_entries "
                                  "stream=codec_name,nb_read_frames -select_streams v -of csv=p=0 " +
                                  testsound::shellWord(path)),
              "h264,5\n");
    EXPECT_EQ(testsound::outputOf("ffprobe -v error -show_entries stream=codec_name -select_streams a -of csv=p=0 " +
                                  testsound::shellWord(path)),
              "aac\n");
}

TEST(morStilloraVideoCreator, HoldsOffIdleSleepThroughTheSystem)
{
    class OpenCreator final : public morStilloraVideoCreator {
    public:
        using morStilloraVideoCreator::createAssertion;
        using morStilloraVideoCreator::releaseAssertion;
    };
    const OpenCreator creator;
    platform::IOPMAssertionID hold = platform::kIOPMNullAssertionID;
    EXPECT_EQ(creator.createAssertion("a movie is made", &hold), platform::kIOReturnSuccess);
    EXPECT_NE(hold, platform::kIOPMNullAssertionID);
    creator.releaseAssertion(hold);
    EXPECT_EQ(platform::IOPMAssertionRelease(hold), platform::kIOReturnNotFound) << "was let go before";
}
