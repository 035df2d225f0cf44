#include "client/batch/LineWork.h"

#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TestPicture.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace stillora;

namespace {

namespace fs = std::filesystem;

using State = LineOutcome::State;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr std::chrono::seconds kLease{120};

/// Two kinds of an event in the log.
struct Makings {
    size_t begun = 0;
    size_t made = 0;
};

/// Movies of lists in a folder of their own. The service is pretended: it copies a movie of as many pictures as it was
/// sent photos.
class LineWorkTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        movies_ = std::make_unique<TemporaryFolder>();
        for (const int pictures : {6, 8, 16})
            test::run({"ffmpeg",
                       "-nostdin",
                       "-v",
                       "error",
                       "-f",
                       "lavfi",
                       "-i",
                       "testsrc=size=854x480:rate=1",
                       "-frames:v",
                       std::to_string(pictures),
                       "-c:v",
                       "libx264",
                       "-g",
                       "1",
                       "-pix_fmt",
                       "yuv420p",
                       "-video_track_timescale",
                       "10000",
                       "-movflags",
                       "+faststart",
                       movies_->path(std::to_string(pictures) + ".mov")});
    }
    static void TearDownTestSuite() { movies_.reset(); }

    void SetUp() override
    {
        ASSERT_TRUE(state_.make());
        log_ = std::make_unique<BatchLog>(state_.logs());
        auto worker = Worker::create(state_, kLease);
        ASSERT_TRUE(worker);
        worker_ = *std::move(worker);
        rules_.folder = folder_.path();
        behave("makes");
    }

    void behave(const std::string& behaviour)
    {
        behaviour_.reset();
        behaviour_ = std::make_unique<EnvironmentVariable>("STILLORA_PRETENDED_SERVICE", behaviour);
    }

    /// @param more  fields of the line, after a comma
    ManifestMovie movie(size_t photos = 6, const std::string& more = "")
    {
        for (size_t i = 0; i < photos; ++i)
            if (const std::string file = folder_.path(fmt::format("in/{:02}.jpg", i)); !fs::exists(file)) {
                folder_.makeFolder("in");
                test::writeFile(file, test::jpegBytes(test::plain(900, 500, test::kGreen)));
            }
        std::vector<ManifestFault> faults;
        auto read = readManifestLine(R"({"id": "one", "photos": ["in"], "seconds": 1, "quality": 480, "title": "Trip",)"
                                     R"("save": "out", "silence": false)" +
                                         more + "}",
                                     folder_.path(), 3, faults);
        EXPECT_THAT(faults, IsEmpty());
        return read.value_or(ManifestMovie{});
    }

    LineOutcome run(const ManifestMovie& movie)
    {
        LineWork work(state_, *worker_, *log_, rules_, pieces_);
        return work.run(movie);
    }

    /// What is in the folder of the movies.
    std::vector<std::string> made() const
    {
        std::vector<std::string> names;
        if (fs::exists(folder_.path("out")))
            for (const auto& entry : fs::directory_iterator(folder_.path("out")))
                names.push_back(entry.path().filename());
        return names;
    }

    Makings makings() const
    {
        Makings found;
        for (const auto& entry : fs::directory_iterator(state_.logs())) {
            std::ifstream lines(entry.path());
            for (std::string line; std::getline(lines, line);) {
                found.begun += line.find(R"("started")") != std::string::npos;
                found.made += line.find(R"("made")") != std::string::npos;
            }
        }
        return found;
    }

    /// As a process does that ends in the midst of its work.
    void leaveClaim(const ManifestMovie& movie, const std::function<void(Worker&)>& act = {})
    {
        const pid_t child = fork();
        if (child == 0) {
            const auto worker = Worker::create(state_, kLease);
            const bool isTaken = worker && (*worker)->take(movie.key) == Worker::Taking::Taken;
            if (isTaken && act)
                act(**worker);
            _exit(isTaken ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
    }

    static std::unique_ptr<TemporaryFolder> movies_;

    TemporaryFolder folder_;
    const StateFolder state_{folder_.path("list.jsonl")};
    const EnvironmentVariable service_{"STILLORA_VIDEO_CREATOR", STILLORA_PRETENDED_SERVICE};
    const EnvironmentVariable request_{"STILLORA_PRETENDED_REQUEST", folder_.path("request")};
    const EnvironmentVariable copied_{"STILLORA_PRETENDED_MOVIE", movies_->path()};
    std::unique_ptr<EnvironmentVariable> behaviour_;
    LineWork::Rules rules_;
    KnownPieces pieces_;
    std::unique_ptr<BatchLog> log_;
    std::unique_ptr<Worker> worker_;
};

std::unique_ptr<TemporaryFolder> LineWorkTest::movies_;

} // namespace

TEST_F(LineWorkTest, MakesAMovieAndLeavesItsReceiptAlone)
{
    const ManifestMovie wanted = movie();
    const LineOutcome outcome = run(wanted);
    EXPECT_EQ(outcome.state, State::Made) << outcome.reason;
    EXPECT_EQ(outcome.line, 3u);
    EXPECT_EQ(outcome.name, "one");
    EXPECT_EQ(outcome.movie, folder_.path("out/Trip.mov"));
    EXPECT_FALSE(outcome.hadReceipt);
    EXPECT_GT(outcome.seconds, 0);
    EXPECT_THAT(made(), ElementsAre("Trip.mov")) << "and no folder of the work";
    const auto receipt = Receipt::read(state_.receipt(wanted.key));
    ASSERT_TRUE(receipt);
    EXPECT_EQ(receipt->movie, "out/Trip.mov");
    EXPECT_EQ(receipt->checksum, digestOfFile(outcome.movie, [] { return true; }));
    EXPECT_EQ(receipt->inputs.size(), 6u);
    EXPECT_EQ(receipt->waitsAt, "");
    const StateFolder::Traces traces = state_.look(wanted.key);
    EXPECT_TRUE(traces.hasReceipt);
    EXPECT_FALSE(traces.hasDelivery);
    EXPECT_FALSE(traces.hasFailure);
    EXPECT_THAT(traces.claims, IsEmpty());
}

TEST_F(LineWorkTest, MakesNothingTwice)
{
    const ManifestMovie wanted = movie();
    run(wanted);
    // A copy of the folder has other times and the same contents.
    fs::last_write_time(folder_.path("out/Trip.mov"), fs::file_time_type::clock::now() - std::chrono::hours(1));
    const LineOutcome again = run(wanted);
    EXPECT_EQ(again.state, State::Unchanged) << again.reason;
    EXPECT_EQ(again.movie, folder_.path("out/Trip.mov"));
    EXPECT_TRUE(again.hadReceipt);
    EXPECT_EQ(makings().begun, 1u);
}

TEST_F(LineWorkTest, ComparesTimesUnlessContentsAreAskedFor)
{
    const ManifestMovie wanted = movie();
    const auto touch = [&](int hours) {
        fs::last_write_time(folder_.path("in/03.jpg"), fs::file_time_type::clock::now() - std::chrono::hours(hours));
    };
    rules_.comparesContents = true;
    run(wanted);
    touch(1);
    EXPECT_EQ(run(wanted).state, State::Unchanged);
    rules_.comparesContents = false;
    EXPECT_EQ(run(wanted).state, State::Unchanged) << "the contents are known, and decide";
    test::writeFile(folder_.path("in/03.jpg"), test::jpegBytes(test::plain(900, 500, test::kBlue)));
    EXPECT_EQ(run(wanted).state, State::Made);
    touch(2);
    EXPECT_EQ(run(wanted).state, State::Made) << "now they are not";
}

TEST_F(LineWorkTest, PutsAMovieOfOtherFilesInPlaceOfTheOlder)
{
    const ManifestMovie wanted = movie();
    run(wanted);
    test::writeFile(folder_.path("in/03.jpg"), test::jpegBytes(test::plain(900, 500, test::kBlue)));
    const LineOutcome outcome = run(wanted);
    EXPECT_EQ(outcome.state, State::Made) << outcome.reason;
    EXPECT_EQ(outcome.movie, folder_.path("out/Trip.mov"));
    EXPECT_TRUE(outcome.hadReceipt);
    EXPECT_THAT(made(), ElementsAre("Trip.mov"));
}

TEST_F(LineWorkTest, MakesAnewWhatIsWantedInAnotherWay)
{
    run(movie());
    EXPECT_EQ(run(movie(6, R"(, "web": true)")).state, State::Made);
    EXPECT_EQ(makings().begun, 2u);
}

TEST_F(LineWorkTest, LeavesAFileOfOthersAlone)
{
    folder_.makeFile("out/Trip.mov", "a stranger's");
    const LineOutcome outcome = run(movie());
    EXPECT_EQ(outcome.movie, folder_.path("out/Trip-2.mov")) << outcome.reason;
    EXPECT_EQ(TemporaryFolder::contentsOf(folder_.path("out/Trip.mov")), "a stranger's");
}

TEST_F(LineWorkTest, TellsOfAMovieThatWasMovedAwayAndMakesItIfAsked)
{
    const ManifestMovie wanted = movie();
    run(wanted);
    fs::remove(folder_.path("out/Trip.mov"));
    const LineOutcome outcome = run(wanted);
    EXPECT_EQ(outcome.state, State::Moved);
    EXPECT_THAT(outcome.reason, HasSubstr("out/Trip.mov"));
    rules_.makesAgain = true;
    EXPECT_EQ(run(wanted).state, State::Made);
    EXPECT_THAT(made(), ElementsAre("Trip.mov"));
}

TEST_F(LineWorkTest, TellsOfAMovieThatWasAlteredAndMakesAnotherIfAsked)
{
    const ManifestMovie wanted = movie();
    run(wanted);
    folder_.makeFile("out/Trip.mov", "cut by hand");
    EXPECT_EQ(run(wanted).state, State::Altered);
    rules_.makesAgain = true;
    const LineOutcome outcome = run(wanted);
    EXPECT_EQ(outcome.state, State::Made);
    EXPECT_EQ(outcome.movie, folder_.path("out/Trip-2.mov"));
    EXPECT_EQ(TemporaryFolder::contentsOf(folder_.path("out/Trip.mov")), "cut by hand");
}

TEST_F(LineWorkTest, LeavesAMovieToWhoIsAtIt)
{
    const ManifestMovie wanted = movie();
    auto other = Worker::create(state_, kLease);
    ASSERT_TRUE(other);
    ASSERT_EQ((*other)->take(wanted.key), Worker::Taking::Taken);
    EXPECT_EQ(run(wanted).state, State::Held);
    EXPECT_EQ(makings().begun, 0u);
    (*other)->release();
    EXPECT_EQ(run(wanted).state, State::Made);
}

TEST_F(LineWorkTest, GoesOnForAWorkerThatDiedAndPutsAwayWhatItLeft)
{
    const ManifestMovie wanted = movie();
    leaveClaim(wanted, [&](Worker& worker) {
        folder_.makeFile(fmt::format("out/.stillora-{}-{}/half.mov", wanted.key.substr(0, 8), worker.name()));
    });
    ASSERT_EQ(made().size(), 1u);
    const LineOutcome outcome = run(wanted);
    EXPECT_EQ(outcome.state, State::Made) << outcome.reason;
    EXPECT_THAT(made(), ElementsAre("Trip.mov"));
    EXPECT_THAT(state_.look(wanted.key).claims, IsEmpty());
}

TEST_F(LineWorkTest, DeliversTheWholeMovieOfAWorkerThatDied)
{
    const ManifestMovie wanted = movie();
    Receipt delivery;
    delivery.id = "one";
    delivery.line = 3;
    delivery.movie = folder_.path("out/Trip.mov");
    leaveClaim(wanted, [&](Worker& worker) {
        delivery.worker = worker.name();
        delivery.waitsAt = folder_.makeFile(
            fmt::format("out/.stillora-{}-{}/Trip.mov", wanted.key.substr(0, 8), worker.name()), "a whole movie");
        worker.putFirst(state_.delivery(wanted.key), delivery.text());
    });
    const LineOutcome outcome = run(wanted);
    EXPECT_EQ(outcome.state, State::Made) << outcome.reason;
    EXPECT_EQ(outcome.movie, folder_.path("out/Trip.mov"));
    EXPECT_EQ(TemporaryFolder::contentsOf(outcome.movie), "a whole movie");
    EXPECT_THAT(made(), ElementsAre("Trip.mov"));
    EXPECT_FALSE(state_.look(wanted.key).hasDelivery);
    EXPECT_TRUE(state_.look(wanted.key).hasReceipt);
    EXPECT_EQ(makings().begun, 0u);
}

TEST_F(LineWorkTest, MakesAMovieWhoseDeliveryIsLost)
{
    const ManifestMovie wanted = movie();
    Receipt delivery;
    delivery.movie = folder_.path("out/Trip.mov");
    delivery.waitsAt = folder_.path("nothing.mov");
    state_.makeShard(wanted.key);
    ASSERT_EQ(worker_->putFirst(state_.delivery(wanted.key), delivery.text()), 0);
    EXPECT_EQ(run(wanted).state, State::Made);
    EXPECT_EQ(makings().begun, 1u);
    EXPECT_FALSE(state_.look(wanted.key).hasDelivery);
}

TEST_F(LineWorkTest, TriesWhatFailedOnceInEachBatch)
{
    const ManifestMovie wanted = movie();
    behave("fails");
    LineOutcome outcome = run(wanted);
    EXPECT_EQ(outcome.state, State::Failed);
    EXPECT_THAT(outcome.reason, HasSubstr("song.mp3 is damaged"));
    EXPECT_THAT(made(), IsEmpty());
    behave("makes");
    outcome = run(wanted);
    EXPECT_EQ(outcome.state, State::Failed);
    EXPECT_THAT(outcome.reason, HasSubstr("song.mp3 is damaged"));
    EXPECT_EQ(makings().begun, 1u);
    const auto failedAt = fs::last_write_time(state_.failure(wanted.key)) + std::chrono::seconds(1);
    rules_.start = std::chrono::nanoseconds(std::chrono::file_clock::to_sys(failedAt).time_since_epoch()).count();
    EXPECT_EQ(run(wanted).state, State::Made);
    EXPECT_FALSE(state_.look(wanted.key).hasFailure);
}

TEST_F(LineWorkTest, FailsOverAMovieThatIsNotAsItShouldBe)
{
    fs::copy_file(movies_->path("6.mov"), movies_->path("7.mov"));
    const LineOutcome outcome = run(movie(7));
    fs::remove(movies_->path("7.mov"));
    EXPECT_EQ(outcome.state, State::Failed);
    EXPECT_THAT(outcome.reason, HasSubstr("6 pictures instead of 7"));
    EXPECT_THAT(made(), IsEmpty());
}

TEST_F(LineWorkTest, FailsOverAPhotoThatIsMissing)
{
    ManifestMovie wanted = movie();
    wanted.options.photos = {folder_.path("none.jpg")};
    const LineOutcome outcome = run(wanted);
    EXPECT_EQ(outcome.state, State::Failed);
    EXPECT_THAT(outcome.reason, HasSubstr("none.jpg"));
}

TEST_F(LineWorkTest, SaysThatThereIsNoServiceAndHoldsItAgainstNoMovie)
{
    const ManifestMovie wanted = movie();
    {
        const EnvironmentVariable absent("STILLORA_VIDEO_CREATOR", folder_.path("absent"));
        const LineOutcome outcome = run(wanted);
        EXPECT_EQ(outcome.state, State::NoService);
        EXPECT_THAT(outcome.reason, HasSubstr("absent"));
    }
    EXPECT_FALSE(state_.look(wanted.key).hasFailure);
    EXPECT_EQ(run(wanted).state, State::Made);
}

TEST_F(LineWorkTest, CancelsBeforeTheStart)
{
    LineWork work(state_, *worker_, *log_, rules_, pieces_);
    work.cancel();
    EXPECT_EQ(work.run(movie()).state, State::Cancelled);
    EXPECT_EQ(makings().begun, 0u);
}

TEST_F(LineWorkTest, CancelsMidwayAndTellsHowFarItIsUntilThen)
{
    const ManifestMovie wanted = movie();
    behave("waits");
    LineWork work(state_, *worker_, *log_, rules_, pieces_);
    std::jthread canceller([&] {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (work.fraction() == 0 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        // The service tells of the first of four frames.
        EXPECT_EQ(work.fraction(), 0.25);
        work.cancel();
    });
    EXPECT_EQ(work.run(wanted).state, State::Cancelled);
    EXPECT_EQ(work.fraction(), 0);
    EXPECT_THAT(made(), IsEmpty());
    const StateFolder::Traces traces = state_.look(wanted.key);
    EXPECT_FALSE(traces.hasFailure || traces.hasReceipt || traces.hasDelivery);
    EXPECT_THAT(traces.claims, IsEmpty());
}

TEST_F(LineWorkTest, MakesEachPieceAndJoinsThem)
{
    const ManifestMovie wanted = movie(16, R"(, "split": 2)");
    const LineOutcome outcome = run(wanted);
    EXPECT_EQ(outcome.state, State::Made) << outcome.reason;
    EXPECT_EQ(outcome.movie, folder_.path("out/Trip.mov"));
    EXPECT_EQ(makings().made, 3u) << "two pieces and the movie";
    EXPECT_THAT(made(), ElementsAre("Trip.mov"));
    EXPECT_FALSE(state_.look(wanted.key).hasPieces);
}

TEST_F(LineWorkTest, MakesAMovieOfFewPhotosAsAWhole)
{
    EXPECT_EQ(run(movie(6, R"(, "split": 2)")).state, State::Made);
    EXPECT_EQ(makings().made, 1u);
}

TEST_F(LineWorkTest, LeavesThePieceOfAnotherWorkerAndJoinsNothingBeforeItIsThere)
{
    const ManifestMovie wanted = movie(16, R"(, "split": 2)");
    auto other = Worker::create(state_, kLease);
    ASSERT_TRUE(other);
    ASSERT_EQ((*other)->take(StateFolder::keyOfPiece(wanted.key, 1)), Worker::Taking::Taken);
    EXPECT_EQ(run(wanted).state, State::Held);
    EXPECT_EQ(makings().made, 1u);
    EXPECT_TRUE(state_.look(StateFolder::keyOfPiece(wanted.key, 2)).hasReceipt);
    (*other)->release();
    EXPECT_EQ(run(wanted).state, State::Made);
    EXPECT_EQ(makings().made, 3u) << "the second piece is not made again";
}

TEST_F(LineWorkTest, FailsOverAPieceAndTellsItsReason)
{
    const ManifestMovie wanted = movie(16, R"(, "split": 2)");
    behave("fails");
    const LineOutcome outcome = run(wanted);
    EXPECT_EQ(outcome.state, State::Failed);
    EXPECT_THAT(outcome.reason, HasSubstr("song.mp3 is damaged"));
    EXPECT_TRUE(state_.look(wanted.key).hasFailure);
    EXPECT_FALSE(state_.look(StateFolder::keyOfPiece(wanted.key, 2)).hasFailure) << "it was not tried any more";
}

TEST(LineOutcome, HasAWordForEachState)
{
    const std::map<State, std::string_view> words{{State::Made, "made"},           {State::Unchanged, "unchanged"},
                                                  {State::Moved, "moved"},         {State::Altered, "altered"},
                                                  {State::Failed, "failed"},       {State::Held, "held"},
                                                  {State::Cancelled, "cancelled"}, {State::NoService, "noService"}};
    for (const auto& [state, word] : words)
        EXPECT_EQ(wordOf(state), word);
}
