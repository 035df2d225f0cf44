#include "client/MovieMaker.h"

#include "client/ClientError.h"
#include "platform/movie/MediaInspection.h"
#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <cstdlib>
#include <map>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Kind = MovieOutcome::Kind;

/// Remembers what it was told; cancels the maker at the first update if asked to.
class Listener final : public MovieMaker::Observer {
public:
    void progressChanged(const MovieProgress& progress) override
    {
        updates.push_back(progress);
        for (int i = 0; i < cancels; ++i)
            maker->cancel();
        cancels = 0;
    }
    std::vector<MovieProgress> updates;
    MovieMaker* maker = nullptr;
    int cancels = 0;
};

class MovieMakerTest : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("STILLORA_VIDEO_CREATOR", STILLORA_PRETENDED_SERVICE, 1);
        setenv("PRETENDED_REQUEST", other_.path("request").c_str(), 1);
    }
    void TearDown() override
    {
        for (const char* name : {"STILLORA_VIDEO_CREATOR", "PRETENDED_REQUEST", "PRETENDED_SERVICE", "PRETENDED_MOVIE"})
            unsetenv(name);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
    }

    MovieRequest requestOf(size_t photoCount)
    {
        MovieWish wish;
        for (size_t i = 0; i < photoCount; ++i) {
            const std::string name = "photo" + std::to_string(i) + ".jpg";
            wish.photos.push_back({other_.makeFile(name, "a photo"), {4000, 3000}, 7});
        }
        wish.secondsPerPhoto = 1;
        wish.fillsSilence = false;
        const auto plan = planMovie(wish);
        MovieRequest request{wish.photos, {},   plan.value(), "avc1",
                             480,         true, "Trip v1.2",  platform::NSURL::fileURLWithPath(save_.path())};
        return request;
    }

    MovieOutcome make(const std::string& behaviour, size_t photoCount = 6)
    {
        setenv("PRETENDED_SERVICE", behaviour.c_str(), 1);
        listener_.maker = &maker_;
        return maker_.makeMovie(requestOf(photoCount), listener_);
    }

    /// The pretended service's notes: each key's values in order.
    std::multimap<std::string, std::string> recordedRequest() const
    {
        std::multimap<std::string, std::string> record;
        std::ifstream file(other_.path("request"));
        std::string key;
        for (std::string value; file >> key && std::getline(file >> std::ws, value);)
            record.emplace(key, value);
        return record;
    }

    /// An H.264 movie of so many pictures, one second each.
    void makeMovieFile(int pictures, const std::string& references = "-g 1")
    {
        const std::string movie = other_.path("made.mov");
        const std::string command = "ffmpeg -v error -f lavfi -i testsrc=size=854x480:rate=1 -frames:v " +
                                    std::to_string(pictures) + " -c:v libx264 " + references +
                                    " -pix_fmt yuv420p -video_track_timescale 10000 -movflags "
                                    "+faststart " +
                                    movie;
        ASSERT_EQ(std::system(command.c_str()), 0);
        setenv("PRETENDED_MOVIE", movie.c_str(), 1);
    }

    const TemporaryFolder save_;
    const TemporaryFolder other_;
    MovieMaker maker_{{.stall = 60'000ms, .cancel = 300ms}};
    MovieMaker impatient_{{.stall = 1000ms, .cancel = 300ms}};
    Listener listener_;
};

TEST_F(MovieMakerTest, SendsWhatWasPlanned)
{
    EXPECT_EQ(make("fails", 2).kind, Kind::Failed);
    const auto record = recordedRequest();
    const auto value = [&](const char* key) { return record.count(key) ? record.find(key)->second : "missing"; };
    EXPECT_EQ(value("photos"), "6") << "two photos, three times each";
    EXPECT_EQ(value("video"), "2");
    EXPECT_EQ(value("perPhoto"), "0.333333");
    EXPECT_EQ(value("loop"), "0");
    EXPECT_EQ(value("sounds"), "0");
    EXPECT_EQ(value("codec"), "avc1");
    EXPECT_EQ(value("quality"), "480");
    EXPECT_EQ(value("reduce"), "1");
    EXPECT_EQ(value("document"), "Trip v1.2.stillora");
    std::vector<std::string> photos;
    for (auto [each, end] = record.equal_range("photo"); each != end; ++each)
        photos.push_back(each->second);
    const std::string first = other_.path("photo0.jpg") + " 4000x3000 7";
    const std::string second = other_.path("photo1.jpg") + " 4000x3000 7";
    EXPECT_THAT(photos, ElementsAre(first, first, first, second, second, second));
}

TEST_F(MovieMakerTest, SendsTheSoundAsItWasPlanned)
{
    setenv("PRETENDED_SERVICE", "fails", 1);
    MovieRequest request = requestOf(6);
    const std::string song = other_.makeFile("song.mp3", "music");
    request.sounds = {{song, std::nullopt, 3, 48000}, {song, SoundFacts::Selection{1, 2.5}, 1.5, 48000}};
    request.plan.sounds = {{0, std::nullopt, 3},
                           {1, SoundFacts::Selection{1, 2.5}, 1.5},
                           {0, std::nullopt, 3},
                           {std::nullopt, std::nullopt, 2}};
    request.plan.totalSoundtrackDuration = 6;
    EXPECT_EQ(maker_.makeMovie(request, listener_).kind, Kind::Failed);
    const auto record = recordedRequest();
    EXPECT_EQ(record.find("sound")->second, "6");
    EXPECT_EQ(record.find("loop")->second, "0") << "the service would never come to an end";
    std::vector<std::string> sounds;
    for (auto [each, end] = record.equal_range("soundtrack"); each != end; ++each)
        sounds.push_back(each->second);
    // One location for each part: the service converts a location once.
    EXPECT_THAT(sounds, ElementsAre("song.mp3 0-0", "1.mp3 1-2.5", "song.mp3 0-0", "silence.wav 0-0"));
}

TEST_F(MovieMakerTest, PutsTheMovieIntoTheSaveFolderAndTidiesUp)
{
    makeMovieFile(6);
    const MovieOutcome outcome = make("makes");
    ASSERT_EQ(outcome.kind, Kind::Made) << outcome.error.localizedDescription;
    EXPECT_EQ(outcome.movie->path(), save_.path("Trip v1.2.mov"));
    EXPECT_THAT(outcome.faults, IsEmpty());
    EXPECT_THAT(save_.entries(), ElementsAre("Trip v1.2.mov"));
}

TEST_F(MovieMakerTest, NeverReplacesAnExistingMovie)
{
    makeMovieFile(6);
    save_.makeFile("Trip v1.2.mov", "old");
    const MovieOutcome outcome = make("makes");
    ASSERT_EQ(outcome.kind, Kind::Made) << outcome.error.localizedDescription;
    EXPECT_EQ(outcome.movie->path(), save_.path("Trip v1.2-2.mov"));
    EXPECT_EQ(std::filesystem::file_size(save_.path("Trip v1.2.mov")), 3u);
}

TEST_F(MovieMakerTest, GoesRoundALinkThatLeadsNowhere)
{
    makeMovieFile(6);
    std::filesystem::create_symlink("/nowhere/at/all", save_.path("Trip v1.2.mov"));
    const MovieOutcome outcome = make("makes");
    ASSERT_EQ(outcome.kind, Kind::Made) << outcome.error.localizedDescription;
    EXPECT_EQ(outcome.movie->path(), save_.path("Trip v1.2-2.mov"));
    EXPECT_TRUE(std::filesystem::is_symlink(save_.path("Trip v1.2.mov")));
}

TEST_F(MovieMakerTest, SaysWhatIsOffAboutTheMovie)
{
    makeMovieFile(5);
    const MovieOutcome outcome = make("makes");
    ASSERT_EQ(outcome.kind, Kind::Made);
    EXPECT_THAT(outcome.faults, ElementsAre(HasSubstr("5 pictures instead of 6")));
}

TEST_F(MovieMakerTest, RepeatsThePicturesOfAMovieForTheWeb)
{
    makeMovieFile(6);
    setenv("PRETENDED_SERVICE", "makes", 1);
    MovieRequest request = requestOf(6);
    request.use = MovieUse::Web;
    const MovieOutcome outcome = maker_.makeMovie(request, listener_);
    ASSERT_EQ(outcome.kind, Kind::Made) << outcome.error.localizedDescription;
    EXPECT_THAT(outcome.faults, IsEmpty());
    EXPECT_EQ(outcome.movie->path(), save_.path("Trip v1.2.mov"));
    EXPECT_THAT(save_.entries(), ElementsAre("Trip v1.2.mov"));
    const auto report = platform::inspectMedia(*outcome.movie);
    ASSERT_TRUE(report);
    ASSERT_EQ(report->tracks[0].samples.size(), 12u);
    for (size_t i = 0; i < 12; ++i)
        EXPECT_EQ(report->tracks[0].samples[i].presentationTime.value, static_cast<int64_t>(i) * 5000);
}

TEST_F(MovieMakerTest, MakesNoMovieForTheWebWhosePicturesItCannotRepeat)
{
    // Pictures that need others, as the service makes none.
    makeMovieFile(6, "-g 6 -bf 0");
    setenv("PRETENDED_SERVICE", "makes", 1);
    MovieRequest request = requestOf(6);
    request.use = MovieUse::Web;
    const MovieOutcome outcome = maker_.makeMovie(request, listener_);
    EXPECT_EQ(outcome.kind, Kind::Failed);
    EXPECT_THAT(outcome.error.localizedDescription, HasSubstr("no key frame"));
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, DoesNotBelieveInAMovieThatIsNotThere)
{
    const MovieOutcome outcome = make("claims");
    EXPECT_EQ(outcome.kind, Kind::Failed);
    EXPECT_FALSE(outcome.error.localizedDescription.empty());
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, DoesNotDeliverWhatIsNoMovie)
{
    setenv("PRETENDED_MOVIE", other_.makeFile("made.mov", "no movie at all").c_str(), 1);
    const MovieOutcome outcome = make("makes");
    EXPECT_EQ(outcome.kind, Kind::Failed);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, PassesUpdatesOn)
{
    make("fails");
    ASSERT_THAT(listener_.updates, testing::SizeIs(1));
    EXPECT_EQ(listener_.updates[0].stage, "VideoCreationTitleRenderingVideo");
    EXPECT_TRUE(listener_.updates[0].isDeterminate);
    EXPECT_EQ(listener_.updates[0].progress, 1);
    EXPECT_EQ(listener_.updates[0].total, 4);
    EXPECT_EQ(listener_.updates[0].secondsLeft, 2.5);
}

TEST_F(MovieMakerTest, PassesTheServicesErrorOn)
{
    const MovieOutcome outcome = make("fails");
    EXPECT_EQ(outcome.kind, Kind::Failed);
    EXPECT_EQ(outcome.error.localizedDescription, "song.mp3 is damaged");
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, FindsAReasonInTheServicesLogWhereTheReplyHasNone)
{
    const MovieOutcome outcome = make("shrugs");
    EXPECT_EQ(outcome.kind, Kind::Failed) << "nobody cancelled, whatever the reply says";
    EXPECT_THAT(outcome.error.localizedDescription, HasSubstr("could not create assetWriter"));
}

TEST_F(MovieMakerTest, IsCancelledBetweenUpdates)
{
    listener_.cancels = 1;
    EXPECT_EQ(make("waits").kind, Kind::Cancelled);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, EndsAServiceThatDoesNotAnswerACancel)
{
    listener_.cancels = 1;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(make("ignores").kind, Kind::Cancelled);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, DoesNotWaitForAnAnswerWhenCancelledTwice)
{
    MovieMaker patient({.stall = 60'000ms, .cancel = 60'000ms});
    listener_.maker = &patient;
    listener_.cancels = 2;
    setenv("PRETENDED_SERVICE", "ignores", 1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(patient.makeMovie(requestOf(6), listener_).kind, Kind::Cancelled);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
}

TEST_F(MovieMakerTest, StartsNothingOnceCancelled)
{
    maker_.cancel();
    EXPECT_EQ(make("makes").kind, Kind::Cancelled);
    EXPECT_TRUE(recordedRequest().empty());
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, EndsAServiceThatStalls)
{
    setenv("PRETENDED_SERVICE", "ignores", 1);
    const MovieOutcome outcome = impatient_.makeMovie(requestOf(6), listener_);
    EXPECT_EQ(outcome.kind, Kind::Failed);
    EXPECT_EQ(outcome.error.code, kClientErrorServiceStalled);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, TakesGrowingFilesForASignOfLife)
{
    setenv("PRETENDED_SERVICE", "grows", 1);
    const MovieOutcome outcome = impatient_.makeMovie(requestOf(6), listener_);
    EXPECT_EQ(outcome.error.localizedDescription, "grown") << "two seconds without an update, with a limit of one";
}

TEST_F(MovieMakerTest, SaysThatTheServiceDied)
{
    const MovieOutcome outcome = make("dies");
    EXPECT_EQ(outcome.kind, Kind::Failed);
    EXPECT_EQ(outcome.error.code, kClientErrorServiceEnded);
    EXPECT_THAT(outcome.error.localizedDescription, HasSubstr("by signal 9"));
    EXPECT_THAT(outcome.error.localizedDescription, HasSubstr("about to die"));
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, SaysThatTheServiceLeft)
{
    const MovieOutcome outcome = make("leaves");
    EXPECT_EQ(outcome.error.code, kClientErrorServiceEnded);
    EXPECT_THAT(outcome.error.localizedDescription, HasSubstr("with exit status 7"));
}

TEST_F(MovieMakerTest, SaysWhyTheServiceCannotBeUsed)
{
    const MovieOutcome outcome = make("refuses");
    EXPECT_EQ(outcome.error.code, kClientErrorServiceNotStarted);
    EXPECT_THAT(outcome.error.localizedDescription, HasSubstr("no socket for me"));
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, SaysThatTheServiceIsMissing)
{
    setenv("STILLORA_VIDEO_CREATOR", "/nowhere/at/all", 1);
    EXPECT_EQ(make("makes").error.code, kClientErrorServiceNotFound);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, StartsNothingWhereTheMovieCannotBeSaved)
{
    setenv("PRETENDED_SERVICE", "makes", 1);
    MovieRequest request = requestOf(6);
    request.saveFolder = platform::NSURL::fileURLWithPath("/proc/nothing/here", true);
    const MovieOutcome outcome = maker_.makeMovie(request, listener_);
    EXPECT_EQ(outcome.kind, Kind::Failed);
    EXPECT_THAT(outcome.error.localizedDescription, HasSubstr("/proc/nothing/here"));
    EXPECT_TRUE(recordedRequest().empty());
}

TEST_F(MovieMakerTest, MakesSeveralMoviesOneAfterTheOther)
{
    makeMovieFile(6);
    EXPECT_EQ(make("makes").kind, Kind::Made);
    EXPECT_EQ(make("fails").kind, Kind::Failed);
    EXPECT_EQ(make("makes").kind, Kind::Made);
    EXPECT_THAT(save_.entries(), ElementsAre("Trip v1.2-2.mov", "Trip v1.2.mov"));
}

} // namespace
