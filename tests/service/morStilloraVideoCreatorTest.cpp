#include "service/morStilloraVideoCreator.h"

#include "FakeStages.h"

#include "platform/system/NSProcessInfo.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <deque>
#include <semaphore>
#include <thread>

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
    std::shared_ptr<morStilloraVideoCreator> creator_ = std::make_shared<morStilloraVideoCreator>(fakes_.stages());
    // Addresses stay when more are added.
    std::deque<Outcome> outcomes_;
};

} // namespace

TEST_F(CreatorTest, AnswersAnEmptyPhotoListAtOnceWithoutAFolderOrAnAssertion)
{
    const auto outcome = run({}, soundtracks(2));
    EXPECT_FALSE(outcome.movie);
    EXPECT_FALSE(outcome.error);
    EXPECT_FALSE(outcome.isCancelled);
    EXPECT_EQ(fakes_.journal.entries(), Entries());
}

TEST_F(CreatorTest, AnswersAnEmptyPhotoListAfterACancelWithTheFlag)
{
    creator_->cancelCreation();
    const auto outcome = run(PhotoList());
    EXPECT_FALSE(outcome.movie);
    EXPECT_FALSE(outcome.error);
    EXPECT_TRUE(outcome.isCancelled);
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

TEST_F(CreatorTest, RunsNoStageWhenCancelledBeforeTheJobBegins)
{
    creator_->cancelCreation();
    const auto outcome = run();
    EXPECT_FALSE(outcome.movie);
    EXPECT_FALSE(outcome.error);
    EXPECT_TRUE(outcome.isCancelled);
    EXPECT_EQ(fakes_.journal.entries(), Entries({"assertion VideoCreationIOPMAssertionSleepNotice"}));
}

TEST_F(CreatorTest, AnswersARequestAfterACancelOnTheSameConnectionAsCancelled)
{
    fakes_.duringVideo = [&](StageContext&) { creator_->cancelCreation(); };
    EXPECT_TRUE(run().isCancelled);
    const auto before = fakes_.journal.entries().size();
    EXPECT_TRUE(run().isCancelled);
    EXPECT_EQ(fakes_.journal.entries().size(), before + 1);
}

TEST_F(CreatorTest, AnswersWithTheSoundtracksError)
{
    fakes_.soundtrackFailure = kFailure;
    const auto outcome = run();
    EXPECT_FALSE(outcome.movie);
    EXPECT_EQ(outcome.error, kFailure);
    EXPECT_FALSE(outcome.isCancelled);
    EXPECT_EQ(fakes_.journal.entries().back(), "soundtrack 1 50. 5.");
}

TEST_F(CreatorTest, AnswersWithoutAnErrorIfTheSoundtrackIsMissingWithoutOne)
{
    fakes_.soundtrackFailure = kFailureWithoutError;
    fakes_.duringSoundtrack = [&](StageContext&) { creator_->cancelCreation(); };
    const auto outcome = run();
    EXPECT_FALSE(outcome.movie);
    EXPECT_FALSE(outcome.error);
    EXPECT_TRUE(outcome.isCancelled);
}

TEST_F(CreatorTest, StopsAfterTheSoundtrackWhenCancelledDuringIt)
{
    fakes_.duringSoundtrack = [&](StageContext&) { creator_->cancelCreation(); };
    const auto outcome = run();
    EXPECT_FALSE(outcome.movie);
    EXPECT_FALSE(outcome.error);
    EXPECT_TRUE(outcome.isCancelled);
    EXPECT_EQ(fakes_.journal.entries().back(), "soundtrack 1 50. 5.");
}

TEST_F(CreatorTest, AnswersWithTheVideosError)
{
    fakes_.videoFailure = kFailure;
    const auto outcome = run();
    EXPECT_FALSE(outcome.movie);
    EXPECT_EQ(outcome.error, kFailure);
    EXPECT_FALSE(outcome.isCancelled);
}

TEST_F(CreatorTest, AnswersWithoutAnErrorIfTheVideoIsMissingWithoutOne)
{
    fakes_.videoFailure = kFailureWithoutError;
    const auto outcome = run();
    EXPECT_FALSE(outcome.movie);
    EXPECT_FALSE(outcome.error);
    EXPECT_FALSE(outcome.isCancelled);
}

TEST_F(CreatorTest, AnswersACancelDuringTheVideoWithTheVideosErrorOrNone)
{
    for (const auto& failure :
         {std::optional<NSError>(), std::optional(kFailureWithoutError), std::optional(kFailure)}) {
        creator_ = std::make_shared<morStilloraVideoCreator>(fakes_.stages());
        fakes_.videoFailure = failure;
        fakes_.duringVideo = [&](StageContext&) { creator_->cancelCreation(); };
        const auto outcome = run();
        EXPECT_FALSE(outcome.movie);
        EXPECT_EQ(outcome.error, failure == kFailure ? failure : std::nullopt);
        EXPECT_TRUE(outcome.isCancelled);
    }
}

TEST_F(CreatorTest, RemovesIntermediateFilesThatLieInTheTemporaryFolderOnACancel)
{
    // The test for that looks for the folder's URL in the file's path.
    fakes_.filesFolder = temporary_.path() + "/" + temporary_.url().absoluteString();
    std::filesystem::create_directories(*fakes_.filesFolder);
    fakes_.duringVideo = [&](StageContext&) { creator_->cancelCreation(); };
    EXPECT_TRUE(run().isCancelled);
    EXPECT_FALSE(std::filesystem::exists(fakes_.file("soundtrack.m4a")));
    EXPECT_FALSE(std::filesystem::exists(fakes_.file("video.mov")));
}

TEST_F(CreatorTest, LeavesFilesWhosePathsDoNotHoldTheTemporaryFoldersUrl)
{
    // Which is so for all files that stages write, as a path does not begin with a scheme.
    fakes_.duringVideo = [&](StageContext&) { creator_->cancelCreation(); };
    EXPECT_TRUE(run().isCancelled);
    EXPECT_TRUE(std::filesystem::exists(fakes_.file("soundtrack.m4a")));
    EXPECT_TRUE(std::filesystem::exists(fakes_.file("video.mov")));
}

TEST_F(CreatorTest, RemovesTheFinalMovieTooWhenCancelledDuringTheComposition)
{
    fakes_.filesFolder = temporary_.path() + "/" + temporary_.url().absoluteString();
    std::filesystem::create_directories(*fakes_.filesFolder);
    fakes_.duringComposition = [&](StageContext&) { creator_->cancelCreation(); };
    const auto outcome = run();
    EXPECT_FALSE(outcome.movie);
    EXPECT_FALSE(outcome.error);
    EXPECT_TRUE(outcome.isCancelled);
    for (const char* name : {"soundtrack.m4a", "video.mov", "movie.mov"})
        EXPECT_FALSE(std::filesystem::exists(fakes_.file(name))) << name;
}

TEST_F(CreatorTest, AnswersACancelDuringTheCompositionWithItsError)
{
    fakes_.compositionFailure = kFailure;
    fakes_.duringComposition = [&](StageContext&) { creator_->cancelCreation(); };
    const auto outcome = run();
    EXPECT_FALSE(outcome.movie);
    EXPECT_EQ(outcome.error, kFailure);
    EXPECT_TRUE(outcome.isCancelled);
}

TEST_F(CreatorTest, AnswersACancelDuringTheMoveAsCancelled)
{
    fakes_.duringNaming = [&](StageContext&) { creator_->cancelCreation(); };
    const auto outcome = run(photos(5), {});
    EXPECT_FALSE(outcome.movie);
    EXPECT_FALSE(outcome.error);
    EXPECT_TRUE(outcome.isCancelled);
}

TEST_F(CreatorTest, AnswersAFailedCompositionWithNothingAtAll)
{
    fakes_.compositionFailure = kFailure;
    const auto outcome = run();
    EXPECT_FALSE(outcome.movie);
    EXPECT_FALSE(outcome.error);
    EXPECT_FALSE(outcome.isCancelled);
}

TEST_F(CreatorTest, RemovesAtEachWayOutWhatThatOneNames)
{
    const auto cancel = [](StageContext& context) { context.setIsCancelled(true); };
    const struct {
        const char* name;
        std::function<void(FakeStages&)> prepare;
        /// Of those that were written.
        Entries files;
    } rows[] = {
        {"success", [](FakeStages&) {}, {"movie.mov", "soundtrack.m4a", "video.mov"}},
        {"soundtrack failed", [](FakeStages& fakes) { fakes.soundtrackFailure = kFailure; }, {}},
        {"cancelled after the soundtrack", [&](FakeStages& fakes) { fakes.duringSoundtrack = cancel; }, {}},
        {"video failed", [](FakeStages& fakes) { fakes.videoFailure = kFailure; }, {}},
        {"cancelled after the video", [&](FakeStages& fakes) { fakes.duringVideo = cancel; }, {}},
        {"cancelled after the final movie", [&](FakeStages& fakes) { fakes.duringComposition = cancel; }, {}},
        {"composition returned nothing", [](FakeStages& fakes) { fakes.compositionFailure = kFailure; }, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeStages fakes(temporary_.path());
        // Only paths that hold the temporary folder's URL are removed.
        fakes.filesFolder = temporary_.path() + "/" + temporary_.url().absoluteString();
        std::filesystem::create_directories(*fakes.filesFolder);
        creator_ = std::make_shared<morStilloraVideoCreator>(fakes.stages());
        row.prepare(fakes);
        run();
        Entries files;
        for (const auto& entry : std::filesystem::directory_iterator(*fakes.filesFolder))
            files.push_back(entry.path().filename().string());
        std::ranges::sort(files);
        EXPECT_EQ(files, row.files);
        std::filesystem::remove_all(*fakes.filesFolder);
        creator_ = nullptr;
    }
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

TEST_F(CreatorTest, EndsWithTheReleaseThenTheTerminationThenTheLogThenTheReply)
{
    const auto& process = platform::NSProcessInfo::processInfo();
    const auto before = process.termination().automaticTerminationDisabled;
    std::vector<std::string> order;
    // A number tells whether automatic termination was allowed before that.
    const auto note = [&](const std::string& what) {
        order.push_back(what + " " + std::to_string(before - process.termination().automaticTerminationDisabled));
    };
    auto stages = fakes_.stages();
    stages.createAssertion = [](const std::string&, platform::IOPMAssertionID*) {
        return platform::kIOReturnBadArgument;
    };
    stages.releaseAssertion = [&](platform::IOPMAssertionID) {
        EXPECT_TRUE(DispatchQueue::main()->isCurrent());
        note("release");
    };
    platform::setLogSink([&](const std::string& line) {
        if (line.starts_with("*!!*"))
            note("log");
    });
    bool isAnswered = false;
    std::make_shared<morStilloraVideoCreator>(std::move(stages))
        ->createStillMotionVideoWithPhotos(photos(5), soundtracks(1), 50, 5, false, 10, std::nullopt, 720, false, {},
                                           save_.bookmark(), temporary_.bookmark(),
                                           [&](std::optional<NSData>, std::optional<NSError>, bool) {
                                               note("reply");
                                               isAnswered = true;
                                           });
    EXPECT_TRUE(DispatchQueue::runMainUntil([&] { return isAnswered; }, 30));
    EXPECT_EQ(order, Entries({"release 0", "log 1", "reply 1"}));
}

TEST_F(CreatorTest, ReleasesTheAssertionBeforeTheReplyAtEveryOtherWayOut)
{
    const auto cancel = [](StageContext& context) { context.setIsCancelled(true); };
    const struct {
        const char* name;
        std::function<void(FakeStages&)> prepare;
    } rows[] = {
        {"cancelled before the soundtrack", [this](FakeStages&) { creator_->cancelCreation(); }},
        {"soundtrack failed", [](FakeStages& fakes) { fakes.soundtrackFailure = kFailure; }},
        {"cancelled after the soundtrack", [&](FakeStages& fakes) { fakes.duringSoundtrack = cancel; }},
        {"video failed", [](FakeStages& fakes) { fakes.videoFailure = kFailure; }},
        {"cancelled after the final movie", [&](FakeStages& fakes) { fakes.duringComposition = cancel; }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeStages fakes(temporary_.path());
        fakes.assertionStatus = platform::kIOReturnBadArgument;
        creator_ = std::make_shared<morStilloraVideoCreator>(fakes.stages());
        row.prepare(fakes);
        const auto index = send();
        // The main queue does not run yet, so nothing is answered.
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        while (!fakes.journal.contains("release 42") && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        EXPECT_TRUE(fakes.journal.contains("release 42"));
        EXPECT_EQ(outcomes_[index].replies, 0);
        finish();
        creator_ = nullptr;
    }
}

TEST_F(CreatorTest, AnswersSuccessWithoutTheFlagThoughCancelledJustBefore)
{
    auto stages = fakes_.stages();
    stages.createAssertion = [](const std::string&, platform::IOPMAssertionID*) {
        return platform::kIOReturnBadArgument;
    };
    // What comes before the reply, after the job's last look at the flag.
    stages.releaseAssertion = [&](platform::IOPMAssertionID) { creator_->cancelCreation(); };
    creator_ = std::make_shared<morStilloraVideoCreator>(std::move(stages));
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

TEST_F(CreatorTest, ReleasesTheAssertionOnlyWhereItsCreationFailed)
{
    const struct {
        const char* name;
        std::function<void(FakeStages&)> prepare;
        bool isReleasedAfterFailure;
    } rows[] = {
        {"success", [](FakeStages&) {}, true},
        {"cancelled before the soundtrack", [this](FakeStages&) { creator_->cancelCreation(); }, true},
        {"soundtrack failed", [](FakeStages& fakes) { fakes.soundtrackFailure = kFailure; }, true},
        {"cancelled after the soundtrack",
         [this](FakeStages& fakes) { fakes.duringSoundtrack = [this](StageContext&) { creator_->cancelCreation(); }; },
         true},
        {"video failed", [](FakeStages& fakes) { fakes.videoFailure = kFailure; }, true},
        {"cancelled after the final movie",
         [this](FakeStages& fakes) { fakes.duringComposition = [this](StageContext&) { creator_->cancelCreation(); }; },
         true},
        {"composition returned nothing", [](FakeStages& fakes) { fakes.compositionFailure = kFailure; }, false},
    };
    for (const auto& row : rows) {
        for (const auto status : {platform::kIOReturnSuccess, platform::kIOReturnBadArgument}) {
            FakeStages fakes(temporary_.path());
            fakes.assertionStatus = status;
            creator_ = std::make_shared<morStilloraVideoCreator>(fakes.stages());
            row.prepare(fakes);
            run();
            EXPECT_EQ(fakes.journal.contains("release 42"),
                      status != platform::kIOReturnSuccess && row.isReleasedAfterFailure)
                << row.name;
            creator_ = nullptr;
        }
    }
}

TEST_F(CreatorTest, AllowsAutomaticTerminationOnSuccessAndOnCancelOnly)
{
    auto& process = platform::NSProcessInfo::processInfo();
    const auto count = [&] { return process.termination().automaticTerminationDisabled; };
    auto before = count();
    run();
    EXPECT_EQ(count(), before - 1);
    auto operations = process.termination().operations;
    operations.erase(operations.begin(), operations.end() - 3);
    EXPECT_EQ(operations, Entries({"setAutomaticTerminationSupportEnabled: true", "enableSuddenTermination",
                                   "enableAutomaticTermination: creating assets for Stillora"}));
    before = count();
    fakes_.compositionFailure = kFailure;
    run();
    run(PhotoList());
    fakes_.soundtrackFailure = kFailure;
    run();
    EXPECT_EQ(count(), before);
    creator_->cancelCreation();
    EXPECT_EQ(count(), before - 1);
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

TEST_F(CreatorTest, LogsItsTimingOnlyOnSuccess)
{
    const auto isTiming = [](const std::string& text) {
        double seconds = -1;
        int length = 0;
        return std::sscanf(text.c_str(), "*!!* creation took %lf seconds%n", &seconds, &length) == 1 && seconds >= 0 &&
               static_cast<size_t>(length) == text.size() && text[text.find('.') + 7] == ' ';
    };
    const auto lines = [&] { return std::ranges::count_if(log_.lines(), isTiming); };
    fakes_.compositionFailure = kFailure;
    run();
    fakes_.compositionFailure = std::nullopt;
    fakes_.videoFailure = kFailure;
    run();
    EXPECT_EQ(lines(), 0);
    fakes_.videoFailure = std::nullopt;
    run();
    EXPECT_EQ(lines(), 1);
    creator_->cancelCreation();
    run();
    EXPECT_EQ(lines(), 1);
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

TEST_F(CreatorTest, AnswersOnceThoughCancelledTwice)
{
    fakes_.duringVideo = [&](StageContext&) {
        creator_->cancelCreation();
        creator_->cancelCreation();
    };
    EXPECT_TRUE(run().isCancelled);
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

TEST_F(CreatorTest, PassesItsOtherStagesOn)
{
    uint64_t totalFileSize = 0;
    EXPECT_EQ(creator_->videoSizeForQuality(480, photos(3), &totalFileSize), (platform::CGSize{640, 480}));
    EXPECT_EQ(totalFileSize, 77U);
    creator_->_fillBufferArrayUsingPhotos(photos(3), {640, 480}, true);
    EXPECT_EQ(fakes_.journal.entries(), Entries({"size 480 3", "frames 3 640. reduce"}));
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
