#include <stillora/Movie.h>

#include "client/forecast/MachinePace.h"
#include "platform/files/NSUserDefaults.h"
#include "platform/movie/MediaInspection.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <semaphore>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

enum class Kind { Made, Cancelled, Failed };

Kind kindOf(const Result<Movie>& outcome)
{
    if (outcome)
        return Kind::Made;
    return outcome.error().code == ErrorCode::Cancelled ? Kind::Cancelled : Kind::Failed;
}

/// Remembers what it was told; cancels the maker at the first update if asked to.
class Listener final : public MovieMaker::Observer {
public:
    void progressChanged(const MovieProgress& progress) override
    {
        updates.push_back(progress);
        if (cancels > 0)
            cancelled = std::chrono::steady_clock::now();
        for (int i = 0; i < cancels; ++i)
            maker->cancel();
        cancels = 0;
    }
    std::vector<MovieProgress> updates;
    MovieMaker* maker = nullptr;
    int cancels = 0;
    std::chrono::steady_clock::time_point cancelled;
};

class MovieMakerTest : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("STILLORA_VIDEO_CREATOR", STILLORA_PRETENDED_SERVICE, 1);
        setenv("STILLORA_PRETENDED_REQUEST", other_.path("request").c_str(), 1);
    }
    void TearDown() override
    {
        for (const char* name : {"STILLORA_VIDEO_CREATOR", "STILLORA_PRETENDED_REQUEST", "STILLORA_PRETENDED_SERVICE",
                                 "STILLORA_PRETENDED_MOVIE"})
            unsetenv(name);
        EXPECT_THAT(childrenBesideReader(), IsEmpty()) << "no child is left";
    }

    /// By their names, whether they run or wait to be asked for. The program that reads files stays for the next movie.
    static std::vector<std::string> childrenBesideReader()
    {
        std::vector<std::string> names;
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            std::ifstream children(task.path() / "children");
            for (std::string pid; children >> pid;) {
                std::string name;
                std::getline(std::ifstream("/proc/" + pid + "/comm"), name);
                // The system keeps so many letters of a name.
                if (name != std::string("stillora-file-reader").substr(0, 15))
                    names.push_back(name);
            }
        }
        return names;
    }

    MovieRequest requestOf(size_t photoCount)
    {
        MovieWish wish;
        for (size_t i = 0; i < photoCount; ++i) {
            const std::string name = "photo" + std::to_string(i) + ".jpg";
            wish.photos.push_back({other_.makeFile(name, "a photo"), {4000, 3000}, 7});
        }
        wish.timePerPhoto = 1s;
        wish.fillsSilence = false;
        const auto plan = planMovie(wish);
        return {wish.photos, {}, *plan, "avc1", 480, true, "Trip v1.2", save_.path()};
    }

    Result<Movie> make(const std::string& behaviour, size_t photoCount = 6)
    {
        setenv("STILLORA_PRETENDED_SERVICE", behaviour.c_str(), 1);
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
        setenv("STILLORA_PRETENDED_MOVIE", movie.c_str(), 1);
    }

    const TemporaryFolder save_;
    const TemporaryFolder other_;
    MovieMaker maker_{{.stall = 60'000ms, .cancel = 300ms}};
    MovieMaker impatient_{{.stall = 1000ms, .cancel = 300ms}};
    Listener listener_;
};

TEST_F(MovieMakerTest, SendsWhatWasPlanned)
{
    EXPECT_EQ(kindOf(make("fails", 2)), Kind::Failed);
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

TEST_F(MovieMakerTest, TellsTheServiceOfTheWatermark)
{
    const EnvironmentVariable config{"XDG_CONFIG_HOME", other_.path("config")};
    const auto argument = [&](Watermark watermark) {
        MovieRequest request = requestOf(2);
        request.watermark = watermark;
        setenv("STILLORA_PRETENDED_SERVICE", "fails", 1);
        EXPECT_FALSE(maker_.makeMovie(request, listener_));
        return recordedRequest().find("argument")->second;
    };
    EXPECT_EQ(argument(Watermark::Drawn), "--watermark");
    EXPECT_EQ(argument(Watermark::Absent), "--no-watermark");
    for (const bool draws : {true, false}) {
        ASSERT_TRUE(platform::NSUserDefaults::standardUserDefaults().setObjectForKey(draws, "drawsWatermark"));
        EXPECT_EQ(argument(Watermark::Usual), draws ? "--watermark" : "--no-watermark");
        EXPECT_EQ(argument(Watermark::Drawn), "--watermark") << "settings give way to what is asked for";
        EXPECT_EQ(argument(Watermark::Absent), "--no-watermark");
    }
}

TEST_F(MovieMakerTest, SendsTheHeightThatSuitsMostPhotosAndTheRuleOfTheSmallestAsNone)
{
    const auto sent = [this](int64_t quality) {
        setenv("STILLORA_PRETENDED_SERVICE", "fails", 1);
        MovieRequest request = requestOf(6);
        request.photos[2].size = {1200, 1600};
        request.quality = quality;
        EXPECT_EQ(kindOf(maker_.makeMovie(request, listener_)), Kind::Failed);
        const auto record = recordedRequest();
        return record.count("quality") ? record.find("quality")->second : "missing";
    };
    EXPECT_EQ(sent(kAutomaticQuality), "2160");
    EXPECT_EQ(sent(kSmallestQuality), "0");
    EXPECT_EQ(sent(1234), "0");
    EXPECT_EQ(sent(240), "240");
}

TEST_F(MovieMakerTest, SendsTheSoundAsItWasPlanned)
{
    setenv("STILLORA_PRETENDED_SERVICE", "fails", 1);
    MovieRequest request = requestOf(6);
    const std::string song = other_.makeFile("song.mp3", "music");
    request.sounds = {{song, std::nullopt, 3s, 48000}, {song, SoundFacts::Selection{1s, 2.5s}, 1.5s, 48000}};
    request.plan.sounds = {{0, std::nullopt, 3s},
                           {1, SoundFacts::Selection{1s, 2.5s}, 1.5s},
                           {0, std::nullopt, 3s},
                           {std::nullopt, std::nullopt, 2s}};
    request.plan.totalSoundtrackDuration = 6s;
    EXPECT_EQ(kindOf(maker_.makeMovie(request, listener_)), Kind::Failed);
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
    const Result<Movie> outcome = make("makes");
    ASSERT_TRUE(outcome) << outcome.error().message;
    EXPECT_EQ(outcome->path, save_.path("Trip v1.2.mov"));
    EXPECT_THAT(outcome->faults, IsEmpty());
    EXPECT_THAT(save_.entries(), ElementsAre("Trip v1.2.mov"));
}

TEST_F(MovieMakerTest, LearnsHowQuickTheMachineIsFromMoviesThatWereMade)
{
    constexpr size_t kPhotosOfMoreThanASecond = 200;
    const EnvironmentVariable cache("XDG_CACHE_HOME", other_.path("cache"));
    EXPECT_FALSE(make("fails", kPhotosOfMoreThanASecond));
    EXPECT_FALSE(MachinePace::ofUser().known());
    makeMovieFile(kPhotosOfMoreThanASecond);
    const Result<Movie> outcome = make("makes", kPhotosOfMoreThanASecond);
    ASSERT_TRUE(outcome) << outcome.error().message;
    ASSERT_TRUE(MachinePace::ofUser().known());
    EXPECT_LT(*MachinePace::ofUser().known(), 1) << "a copy is made in no time";
}

TEST_F(MovieMakerTest, ReckonsWithTheMachineAsItIsKnown)
{
    const EnvironmentVariable cache("XDG_CACHE_HOME", other_.path("cache"));
    setenv("STILLORA_PRETENDED_SERVICE", "waits", 1);
    /// What is told first of the time left.
    class Waiter final : public MovieMaker::Observer {
    public:
        explicit Waiter(MovieMaker& waitsFor) : maker(waitsFor) {}
        void progressChanged(const MovieProgress& progress) override
        {
            if (!progress.timeLeft || left)
                return;
            left = progress.timeLeft;
            maker.cancel();
        }
        MovieMaker& maker;
        std::optional<Seconds> left;
    };
    const auto firstTold = [&] {
        MovieMaker maker;
        Waiter waiter(maker);
        EXPECT_FALSE(maker.makeMovie(requestOf(200), waiter));
        return waiter.left.value_or(Seconds(0)).count();
    };
    const double unknown = firstTold();
    EXPECT_GT(unknown, 0);
    MachinePace::ofUser().learn(8, 1);
    EXPECT_GT(firstTold(), 4 * unknown);
}

TEST_F(MovieMakerTest, NeverReplacesAnExistingMovie)
{
    makeMovieFile(6);
    save_.makeFile("Trip v1.2.mov", "old");
    const Result<Movie> outcome = make("makes");
    ASSERT_TRUE(outcome) << outcome.error().message;
    EXPECT_EQ(outcome->path, save_.path("Trip v1.2-2.mov"));
    EXPECT_EQ(std::filesystem::file_size(save_.path("Trip v1.2.mov")), 3u);
}

TEST_F(MovieMakerTest, GoesRoundALinkThatLeadsNowhere)
{
    makeMovieFile(6);
    std::filesystem::create_symlink("/nowhere/at/all", save_.path("Trip v1.2.mov"));
    const Result<Movie> outcome = make("makes");
    ASSERT_TRUE(outcome) << outcome.error().message;
    EXPECT_EQ(outcome->path, save_.path("Trip v1.2-2.mov"));
    EXPECT_TRUE(std::filesystem::is_symlink(save_.path("Trip v1.2.mov")));
}

TEST_F(MovieMakerTest, GoesRoundALinkThatLeadsNowhereBehindAMovie)
{
    makeMovieFile(6);
    save_.makeFile("Trip v1.2.mov", "old");
    std::filesystem::create_symlink("/nowhere/at/all", save_.path("Trip v1.2-2.mov"));
    const Result<Movie> outcome = make("makes");
    ASSERT_TRUE(outcome) << outcome.error().message;
    EXPECT_EQ(outcome->path, save_.path("Trip v1.2-3.mov"));
    EXPECT_TRUE(std::filesystem::is_symlink(save_.path("Trip v1.2-2.mov")));
}

TEST_F(MovieMakerTest, SaysWhatIsOffAboutTheMovie)
{
    makeMovieFile(5);
    const Result<Movie> outcome = make("makes");
    ASSERT_TRUE(outcome) << outcome.error().message;
    EXPECT_THAT(outcome->faults, ElementsAre(HasSubstr("5 pictures instead of 6")));
}

TEST_F(MovieMakerTest, RepeatsThePicturesOfAMovieForTheWeb)
{
    makeMovieFile(6);
    setenv("STILLORA_PRETENDED_SERVICE", "makes", 1);
    MovieRequest request = requestOf(6);
    request.use = MovieUse::Web;
    const Result<Movie> outcome = maker_.makeMovie(request, listener_);
    ASSERT_TRUE(outcome) << outcome.error().message;
    EXPECT_THAT(outcome->faults, IsEmpty());
    EXPECT_EQ(outcome->path, save_.path("Trip v1.2.mov"));
    EXPECT_THAT(save_.entries(), ElementsAre("Trip v1.2.mov"));
    const auto report = platform::inspectMedia(platform::NSURL::fileURLWithPath(outcome->path.native()));
    ASSERT_TRUE(report);
    ASSERT_EQ(report->tracks[0].samples.size(), 12u);
    for (size_t i = 0; i < 12; ++i)
        EXPECT_EQ(report->tracks[0].samples[i].presentationTime.value, static_cast<int64_t>(i) * 5000);
}

TEST_F(MovieMakerTest, MakesNoMovieForTheWebWhosePicturesItCannotRepeat)
{
    // Pictures that need others, as the service makes none.
    makeMovieFile(6, "-g 6 -bf 0");
    setenv("STILLORA_PRETENDED_SERVICE", "makes", 1);
    MovieRequest request = requestOf(6);
    request.use = MovieUse::Web;
    const Result<Movie> outcome = maker_.makeMovie(request, listener_);
    ASSERT_EQ(kindOf(outcome), Kind::Failed);
    EXPECT_THAT(outcome.error().message, HasSubstr("no key frame"));
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, DoesNotBelieveInAMovieThatIsNotThere)
{
    const Result<Movie> outcome = make("claims");
    ASSERT_EQ(kindOf(outcome), Kind::Failed);
    EXPECT_FALSE(outcome.error().message.empty());
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, DoesNotDeliverWhatIsNoMovie)
{
    setenv("STILLORA_PRETENDED_MOVIE", other_.makeFile("made.mov", "no movie at all").c_str(), 1);
    const Result<Movie> outcome = make("makes");
    ASSERT_EQ(kindOf(outcome), Kind::Failed);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, PassesUpdatesOn)
{
    EXPECT_FALSE(make("fails"));
    ASSERT_THAT(listener_.updates, testing::SizeIs(1));
    EXPECT_EQ(listener_.updates[0].stage, "VideoCreationTitleRenderingVideo");
    EXPECT_TRUE(listener_.updates[0].isDeterminate);
    EXPECT_EQ(listener_.updates[0].progress, 1);
    EXPECT_EQ(listener_.updates[0].total, 4);
    EXPECT_NE(listener_.updates[0].timeLeft, 2.5s) << "the service's own estimate is not of the whole work";
}

TEST_F(MovieMakerTest, TellsOfRenderingWhereTheSizeIsChosen)
{
    EXPECT_FALSE(make("choosesASize"));
    ASSERT_FALSE(listener_.updates.empty());
    EXPECT_EQ(listener_.updates.back().stage, "VideoCreationTitleCalculatingVideoSize");

    EXPECT_FALSE(make("hasChosenASize"));
    ASSERT_FALSE(listener_.updates.empty());
    EXPECT_EQ(listener_.updates.back().stage, "VideoCreationTitleRenderingVideo");
    EXPECT_EQ(listener_.updates.back().progress, 0);
    EXPECT_EQ(listener_.updates.back().total, 4);
}

TEST_F(MovieMakerTest, PassesTheServicesErrorOn)
{
    const Result<Movie> outcome = make("fails");
    ASSERT_EQ(kindOf(outcome), Kind::Failed);
    EXPECT_EQ(outcome.error().message, "song.mp3 is damaged");
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, FindsAReasonInTheServicesLogWhereTheReplyHasNone)
{
    const Result<Movie> outcome = make("shrugs");
    ASSERT_EQ(kindOf(outcome), Kind::Failed) << "nobody cancelled, whatever the reply says";
    EXPECT_THAT(outcome.error().message, HasSubstr("could not create assetWriter"));
}

TEST_F(MovieMakerTest, IsCancelledBetweenUpdates)
{
    listener_.cancels = 1;
    EXPECT_EQ(kindOf(make("waits")), Kind::Cancelled);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

/// It looks by itself every 150 ms, the first time so long after the update.
TEST_F(MovieMakerTest, HearsACancelOfAnotherThreadAtOnce)
{
    auto quickest = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 5; ++i) {
        MovieMaker maker({.stall = 60'000ms, .cancel = 60'000ms});
        class Caller final : public MovieMaker::Observer {
        public:
            void progressChanged(const MovieProgress&) override { isHeard.release(); }
            std::counting_semaphore<> isHeard{0};
        } caller;
        std::chrono::steady_clock::time_point cancelled;
        std::jthread other([&] {
            caller.isHeard.acquire();
            std::this_thread::sleep_for(30ms);
            cancelled = std::chrono::steady_clock::now();
            maker.cancel();
        });
        setenv("STILLORA_PRETENDED_SERVICE", "waits", 1);
        ASSERT_EQ(kindOf(maker.makeMovie(requestOf(6), caller)), Kind::Cancelled);
        other.join();
        quickest = std::min(quickest, std::chrono::steady_clock::now() - cancelled);
    }
    // One of several is enough: a machine may be busy.
    EXPECT_LT(quickest, 75ms);
}

TEST_F(MovieMakerTest, EndsAServiceThatDoesNotAnswerACancel)
{
    listener_.cancels = 1;
    EXPECT_EQ(kindOf(make("ignores")), Kind::Cancelled);
    // It gets 0.3 seconds; the rest is a busy machine's.
    EXPECT_LT(std::chrono::steady_clock::now() - listener_.cancelled, 3s);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, DoesNotWaitForAnAnswerWhenCancelledTwice)
{
    MovieMaker patient({.stall = 60'000ms, .cancel = 60'000ms});
    listener_.maker = &patient;
    listener_.cancels = 2;
    setenv("STILLORA_PRETENDED_SERVICE", "ignores", 1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(kindOf(patient.makeMovie(requestOf(6), listener_)), Kind::Cancelled);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
}

TEST_F(MovieMakerTest, StartsNothingOnceCancelled)
{
    maker_.cancel();
    EXPECT_EQ(kindOf(make("makes")), Kind::Cancelled);
    EXPECT_TRUE(recordedRequest().empty());
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, EndsAServiceThatStalls)
{
    setenv("STILLORA_PRETENDED_SERVICE", "ignores", 1);
    const Result<Movie> outcome = impatient_.makeMovie(requestOf(6), listener_);
    ASSERT_EQ(kindOf(outcome), Kind::Failed);
    EXPECT_EQ(outcome.error().code, ErrorCode::ServiceStalled);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, TakesGrowingFilesForASignOfLife)
{
    setenv("STILLORA_PRETENDED_SERVICE", "grows", 1);
    const Result<Movie> outcome = impatient_.makeMovie(requestOf(6), listener_);
    EXPECT_EQ(outcome.error().message, "grown") << "two seconds without an update, with a limit of one";
}

TEST_F(MovieMakerTest, HearsACancelWhateverTheServiceDoes)
{
    for (const char* behaviour : {"babbles", "floods"}) {
        MovieMaker maker({.stall = 60'000ms, .cancel = 300ms});
        listener_.maker = &maker;
        listener_.cancels = 1;
        setenv("STILLORA_PRETENDED_SERVICE", behaviour, 1);
        EXPECT_EQ(kindOf(maker.makeMovie(requestOf(6), listener_)), Kind::Cancelled) << behaviour;
        EXPECT_THAT(save_.entries(), IsEmpty());
    }
}

TEST_F(MovieMakerTest, EndsAServiceThatLogsWithoutEndAndDoesNothingElse)
{
    setenv("STILLORA_PRETENDED_SERVICE", "babbles", 1);
    EXPECT_EQ(impatient_.makeMovie(requestOf(6), listener_).error().code, ErrorCode::ServiceStalled);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, EndsAServiceThatSaysNothingMore)
{
    setenv("STILLORA_PRETENDED_SERVICE", "hangsUp", 1);
    EXPECT_EQ(kindOf(impatient_.makeMovie(requestOf(6), listener_)), Kind::Failed);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, IsNotKeptByAServiceThatReadsNothing)
{
    setenv("STILLORA_PRETENDED_SERVICE", "freezes", 1);
    MovieRequest request = requestOf(6);
    // More than a socket holds.
    while (request.photos.size() < 20'000)
        request.photos.push_back(request.photos.front());
    EXPECT_EQ(impatient_.makeMovie(request, listener_).error().code, ErrorCode::ServiceStalled);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

/// Of programs that do not become a service.
class StrangeServiceTest : public MovieMakerTest {
protected:
    Result<Movie> makeWith(std::string_view lines)
    {
        const std::string path = other_.makeFile("strange", "#!/bin/sh\n" + std::string(lines) + "\n");
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        setenv("STILLORA_VIDEO_CREATOR", path.c_str(), 1);
        return maker_.makeMovie(requestOf(6), listener_);
    }
};

TEST_F(StrangeServiceTest, IsNotWaitedForLong)
{
    for (const char* lines : {"exec sleep 600", "exec yes >&2"}) {
        const Result<Movie> outcome = makeWith(lines);
        EXPECT_EQ(outcome.error().code, ErrorCode::ServiceNotStarted) << lines;
        EXPECT_THAT(outcome.error().message, HasSubstr("it did not answer within 8 s")) << lines;
        EXPECT_THAT(save_.entries(), IsEmpty());
    }
}

TEST_F(StrangeServiceTest, IsLeftAtOnceByACancel)
{
    const std::string sign = other_.path("sign");
    std::chrono::steady_clock::time_point cancelled;
    const std::jthread user([&] {
        while (!std::filesystem::exists(sign))
            std::this_thread::sleep_for(1ms);
        cancelled = std::chrono::steady_clock::now();
        maker_.cancel();
    });
    EXPECT_EQ(kindOf(makeWith("touch '" + sign + "'; exec sleep 600")), Kind::Cancelled);
    EXPECT_LT(std::chrono::steady_clock::now() - cancelled, 5s) << "the patience with a service that only starts";
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(StrangeServiceTest, IsRefusedWhereItsAnswerHasNoEnd)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(makeWith("exec cat /dev/zero >&3").error().code, ErrorCode::ServiceNotStarted);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 6s) << "by its length, not by the time";
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, SaysThatTheServiceDied)
{
    const Result<Movie> outcome = make("dies");
    ASSERT_EQ(kindOf(outcome), Kind::Failed);
    EXPECT_EQ(outcome.error().code, ErrorCode::ServiceEnded);
    EXPECT_THAT(outcome.error().message, HasSubstr("by signal 9"));
    EXPECT_THAT(outcome.error().message, HasSubstr("about to die"));
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, SaysThatTheServiceLeft)
{
    const Result<Movie> outcome = make("leaves");
    EXPECT_EQ(outcome.error().code, ErrorCode::ServiceEnded);
    EXPECT_THAT(outcome.error().message, HasSubstr("with exit status 7"));
}

TEST_F(MovieMakerTest, SaysWhyTheServiceCannotBeUsed)
{
    const Result<Movie> outcome = make("refuses");
    EXPECT_EQ(outcome.error().code, ErrorCode::ServiceNotStarted);
    EXPECT_THAT(outcome.error().message, HasSubstr("no socket for me"));
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, SaysThatTheServiceIsMissing)
{
    setenv("STILLORA_VIDEO_CREATOR", "/nowhere/at/all", 1);
    EXPECT_EQ(make("makes").error().code, ErrorCode::ServiceNotFound);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieMakerTest, StartsNothingWhereTheMovieCannotBeSaved)
{
    setenv("STILLORA_PRETENDED_SERVICE", "makes", 1);
    MovieRequest request = requestOf(6);
    request.saveFolder = "/proc/nothing/here";
    const Result<Movie> outcome = maker_.makeMovie(request, listener_);
    ASSERT_EQ(kindOf(outcome), Kind::Failed);
    EXPECT_THAT(outcome.error().message, HasSubstr("/proc/nothing/here"));
    EXPECT_TRUE(recordedRequest().empty());
}

TEST_F(MovieMakerTest, MakesSeveralMoviesOneAfterTheOther)
{
    makeMovieFile(6);
    EXPECT_EQ(kindOf(make("makes")), Kind::Made);
    EXPECT_EQ(kindOf(make("fails")), Kind::Failed);
    EXPECT_EQ(kindOf(make("makes")), Kind::Made);
    EXPECT_THAT(save_.entries(), ElementsAre("Trip v1.2-2.mov", "Trip v1.2.mov"));
}

class MovieJobTest : public MovieMakerTest {
protected:
    /// Starts a job that remembers what it was told.
    void start(const std::string& behaviour)
    {
        setenv("STILLORA_PRETENDED_SERVICE", behaviour.c_str(), 1);
        job_ = std::make_unique<MovieJob>(
            requestOf(6),
            MovieJob::Handlers{[this](const MovieProgress& progress) { told(progress.stage); },
                               [this](const Result<Movie>& result) {
                                   told("ended");
                                   result_ = result;
                               }},
            MovieMaker::Limits{.stall = 60'000ms, .cancel = 300ms});
    }
    void told(const std::string& news)
    {
        EXPECT_EQ(std::this_thread::get_id(), thread_);
        news_.push_back(news);
    }
    /// As a main loop does it.
    void loopUntil(const std::function<bool()>& isDone)
    {
        const auto deadline = std::chrono::steady_clock::now() + 60s;
        while (!isDone() && std::chrono::steady_clock::now() < deadline) {
            pollfd wait{job_->descriptor(), POLLIN, 0};
            if (poll(&wait, 1, 1000) == 1)
                job_->dispatch();
        }
        EXPECT_TRUE(isDone());
    }
    bool isReadable() const
    {
        pollfd wait{job_->descriptor(), POLLIN, 0};
        return poll(&wait, 1, 0) == 1;
    }

    const std::thread::id thread_ = std::this_thread::get_id();
    std::unique_ptr<MovieJob> job_;
    std::vector<std::string> news_;
    std::optional<Result<Movie>> result_;
};

TEST_F(MovieJobTest, TellsItsNewsOnTheThreadThatDispatches)
{
    makeMovieFile(6);
    start("makes");
    loopUntil([this] { return result_.has_value(); });
    ASSERT_TRUE(*result_) << result_->error().message;
    EXPECT_EQ((*result_)->path, save_.path("Trip v1.2.mov"));
    EXPECT_EQ(news_.back(), "ended");
    EXPECT_FALSE(isReadable());
    job_->dispatch();
    EXPECT_THAT(news_, testing::Not(testing::Contains("ended").Times(2)));
}

TEST_F(MovieJobTest, TellsOfProgressBeforeTheEnd)
{
    start("waits");
    loopUntil([this] { return !news_.empty(); });
    EXPECT_THAT(news_, ElementsAre("VideoCreationTitleRenderingVideo"));
    EXPECT_FALSE(isReadable());
    job_->cancel();
    loopUntil([this] { return result_.has_value(); });
    EXPECT_EQ(kindOf(*result_), Kind::Cancelled);
    EXPECT_THAT(save_.entries(), IsEmpty());
}

TEST_F(MovieJobTest, EndsWithItsObjectAndTellsNothingMore)
{
    start("ignores");
    loopUntil([this] { return !news_.empty(); });
    news_.clear();
    const auto before = std::chrono::steady_clock::now();
    job_.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 20s);
    // The fixture sees that no process is left.
    EXPECT_THAT(save_.entries(), IsEmpty());
    EXPECT_THAT(news_, IsEmpty());
}

TEST_F(MovieJobTest, MayBeDestroyedByItsHandlers)
{
    setenv("STILLORA_PRETENDED_SERVICE", "fails", 1);
    const auto held = std::make_shared<int>(1);
    bool isEndTold = false;
    job_ = std::make_unique<MovieJob>(requestOf(6),
                                      MovieJob::Handlers{[this, held](const MovieProgress&) { job_.reset(); },
                                                         [&, held](const Result<Movie>&) { isEndTold = true; }});
    pollfd wait{job_->descriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&wait, 1, 60'000), 1);
    // Then the end is news as well, but nobody is left to be told.
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (!save_.entries().empty() && std::chrono::steady_clock::now() < deadline)
        poll(nullptr, 0, 10);
    job_->dispatch();
    EXPECT_FALSE(job_);
    EXPECT_FALSE(isEndTold);
    EXPECT_EQ(held.use_count(), 1) << "nothing of the program's is held any longer";
    EXPECT_THAT(save_.entries(), IsEmpty());
}

} // namespace
