// `stillora document` but for making movies: its arguments, and the real program.

#include "client/command/document/DocumentOptions.h"
#include "client/command/terminal/ExitStatus.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPicture.h"
#include "tests/support/TestSound.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

namespace fs = std::filesystem;

using Arguments = std::vector<std::string>;

template <typename Options>
Options taken(const Parsed<Options>& parsed)
{
    if (const auto* answer = std::get_if<CommandLineAnswer>(&parsed)) {
        ADD_FAILURE() << answer->text;
        return {};
    }
    return std::get<Options>(parsed);
}

template <typename Options>
std::string refused(const Parsed<Options>& parsed)
{
    const auto* answer = std::get_if<CommandLineAnswer>(&parsed);
    EXPECT_TRUE(answer && answer->exitStatus == kExitUsage) << "the command line was taken";
    return answer ? answer->text : std::string();
}

TEST(DocumentOptions, OfNewAreThoseOfCreate)
{
    const auto options = taken(parseDocumentNew({"Rome",         "a.jpg",
                                                 "b.mp3@1:00-",  "--seconds",
                                                 "2.5",          "--quality",
                                                 "720",          "--codec",
                                                 "hvc1",         "--soundtrack",
                                                 "c@3-4",        "--loop",
                                                 "--no-silence", "--reduce-borders",
                                                 "--title",      "X",
                                                 "--skip-bad",   "--json",
                                                 "--quiet",      "d"}));
    EXPECT_EQ(options.document, "Rome.stillora");
    EXPECT_THAT(options.files, ElementsAre("a.jpg", "b.mp3@1:00-", "d"));
    const MovieSettings settings = settingsOf(options.movie);
    EXPECT_EQ(settings, (MovieSettings{2.5s, 720, "hvc1", true, false, false, true, "X"}));
    EXPECT_THAT(options.movie.sounds, ElementsAre(SoundArgument{"c", 3s, 4s}));
    EXPECT_TRUE(options.movie.skipsBad && options.movie.isJSON && options.movie.isQuiet);
    EXPECT_EQ(settingsOf(taken(parseDocumentNew({"x", "--no-watermark"})).movie).watermark, Watermark::Absent);
    // Sounds may be added later.
    EXPECT_TRUE(taken(parseDocumentNew({"x", "--fit-music"})).movie.fitsMusic);
}

TEST(DocumentOptions, GiveNewOnesTheirExtensionOnce)
{
    EXPECT_EQ(taken(parseDocumentNew({"Rome.stillora"})).document, "Rome.stillora");
    EXPECT_EQ(taken(parseDocumentNew({"albums/Rome.stillora/"})).document, "albums/Rome.stillora");
    EXPECT_EQ(taken(parseDocumentNew({"Trip v1.2"})).document, "Trip v1.2.stillora");
}

TEST(DocumentOptions, AreRefusedWithTheReason)
{
    EXPECT_THAT(refused(parseDocumentNew({})), HasSubstr("the document needs a name"));
    EXPECT_THAT(refused(parseDocumentNew({".stillora"})), HasSubstr("the name \"\" is empty"));
    EXPECT_THAT(refused(parseDocumentNew({"albums/.hidden"})), HasSubstr("begins with a dot"));
    EXPECT_THAT(refused(parseDocumentNew({std::string(300, 'x')})), HasSubstr("is 300 bytes long"));
    EXPECT_THAT(refused(parseDocumentNew({"x", "--seconds", "0"})), HasSubstr("--seconds takes a number"));
    EXPECT_THAT(refused(parseDocumentNew({"x", "--fit-music", "--loop"})), HasSubstr("leaves nothing to --loop"));
    EXPECT_THAT(refused(parseDocumentAdd({"x"})), HasSubstr("no photos or sounds were given"));
    EXPECT_THAT(refused(parseDocumentAdd({"x", "a.jpg", "--seconds", "2"})), HasSubstr("--seconds"));
    EXPECT_THAT(refused(parseDocumentList({})), HasSubstr("no document was given"));
    EXPECT_THAT(refused(parseDocumentCheck({"a", "b"})), HasSubstr("Try 'stillora document --help'"));
    EXPECT_THAT(refused(parseDocumentRender({})), HasSubstr("no document was given"));
    EXPECT_THAT(refused(parseDocumentRender({"a", "--save", ""})), HasSubstr("--save takes the path of a folder"));
    EXPECT_THAT(refused(parseDocumentRender({"a", "--loop"})), HasSubstr("--loop"));
    EXPECT_THAT(refused(parseDocumentNew({"a", "b.jpg", "--web"})), HasSubstr("--web"))
        << "a document does not keep it";
}

TEST(DocumentOptions, OfRenderTellWhatWasGiven)
{
    const auto plain = taken(parseDocumentRender({"Rome.stillora"}));
    EXPECT_EQ(plain.movie.use, MovieUse::Anywhere);
    EXPECT_EQ(taken(parseDocumentRender({"Rome", "--web"})).movie.use, MovieUse::Web);
    EXPECT_FALSE(plain.movie.seconds || plain.movie.isQualityGiven || plain.movie.isCodecGiven || plain.movie.title);
    const auto full = taken(parseDocumentRender({"Rome", "--quality", "auto", "--codec", "jpeg", "--save", "out"}));
    EXPECT_TRUE(full.movie.isQualityGiven && full.movie.isCodecGiven);
    EXPECT_EQ(full.movie.saveFolder, "out");
}

struct Result {
    int status = 0;
    std::string out;
    std::string err;
};

class DocumentCommand : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        shared_ = new TemporaryFolder;
        shared_->makeFolder("Rome");
        for (const int number : {2, 10, 1})
            test::writeFile(photo(number),
                            test::jpegBytes(test::plain(640, 480, {200, static_cast<int>(number) * 10, 40})));
        testsound::writeWav(shared_->path("Rome/song.wav"), testsound::makeTone(8000, 1, 8000 * 6));
        shared_->makeFile("Rome/notes.txt", "see the Forum");
    }
    static void TearDownTestSuite()
    {
        delete shared_;
        shared_ = nullptr;
    }
    static std::string photo(int number) { return shared_->path(fmt::format("Rome/img{}.jpg", number)); }
    static std::string song() { return shared_->path("Rome/song.wav"); }
    std::string document() const { return folder_.path("Trip.stillora"); }

    Result run(Arguments arguments) const
    {
        const std::string number = std::to_string(++runs_);
        const std::string out = folder_.path("out-" + number);
        const std::string err = folder_.path("err-" + number);
        std::string command = "LC_ALL=C.UTF-8 LANGUAGE= " + testsound::shellWord(STILLORA_PROGRAM) + " document";
        for (const std::string& argument : arguments)
            command.append(" ").append(testsound::shellWord(argument));
        const int status = std::system((command + " >" + out + " 2>" + err).c_str());
        Result result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, TemporaryFolder::contentsOf(out),
                      TemporaryFolder::contentsOf(err)};
        fs::remove(out);
        fs::remove(err);
        return result;
    }
    Result made(Arguments more = {}) const
    {
        Arguments arguments{"new", document(), shared_->path("Rome")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(arguments);
    }
    std::vector<std::string> saved(const std::string& kind) const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(document() + "/Resources/" + kind))
            names.push_back(entry.path().filename().native());
        return names;
    }
    std::vector<std::string> leftovers() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_.path()))
            names.push_back(entry.path().filename().native());
        return names;
    }

    static inline TemporaryFolder* shared_ = nullptr;
    const TemporaryFolder folder_;
    mutable int runs_ = 0;
};

TEST_F(DocumentCommand, MakesADocumentOfAFolderOfPhotosAndSongs)
{
    const Result result = made({song() + "@1.5-"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, document() + "\n");
    EXPECT_THAT(result.err, AllOf(HasSubstr("Rome: 1 file that is no photo was passed over\n"),
                                  HasSubstr("stillora: 3 photos, 2 sounds, ")));
    EXPECT_THAT(saved("Photos"), UnorderedElementsAre("img1.jpg", "img2.jpg", "img10.jpg"));
    EXPECT_THAT(saved("Soundtracks"), ElementsAre("song.wav"));
    const Result list = run({"list", document()});
    EXPECT_EQ(list.status, 0);
    EXPECT_THAT(list.out, StartsWith("Photos:\n"
                                     "     p1  img1.jpg     640 x 480"));
    const std::string line = list.out.substr(list.out.find("img1.jpg"), list.out.find("img2.jpg"));
    ASSERT_THAT(line, HasSubstr("  #"));
    const auto component = [&line](size_t at) {
        return std::stoi(line.substr(line.find('#') + 1 + at, 2), nullptr, 16);
    };
    // As it was drawn, but for what JPEG loses.
    EXPECT_NEAR(component(0), 200, 3);
    EXPECT_NEAR(component(2), 10, 3);
    EXPECT_NEAR(component(4), 40, 3);
    EXPECT_THAT(list.out, AllOf(HasSubstr("\n     p2  img2.jpg "), HasSubstr("\n     p3  img10.jpg "),
                                HasSubstr("Soundtracks:\n"
                                          "     s1  song.wav  6 s\n"
                                          "     s2  song.wav  4.5 s, from 1.5 s to 6 s\n"
                                          "Settings:\n"
                                          "  4 s a photo, automatic quality, codec avc1\n")));
    EXPECT_THAT(list.out, Not(HasSubstr(" \n")));
}

TEST_F(DocumentCommand, TellsWhoseHeightTheMovieHas)
{
    made({"--quality", "smallest"});
    const Result list = run({"list", document()});
    EXPECT_THAT(list.out, HasSubstr("  4 s a photo, quality of the smallest photo, codec avc1\n"));
    EXPECT_THAT(run({"list", document(), "--json"}).out, HasSubstr(R"("quality": -1, )"));
}

TEST_F(DocumentCommand, TellsItsResultAsJSON)
{
    const Result result = made({"--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr(R"({"event": "check", "done": 3, "total": 3})"
                                      "\n"
                                      R"({"event": "result", "ok": true, "cancelled": false, "document": ")" +
                                      document() + R"(", "error": null, "photos": 3, "soundtracks": 1, "bytes": )"));
    const Result list = run({"list", document(), "--json"});
    EXPECT_THAT(list.out, AllOf(StartsWith(R"({"document": ")" + document() + R"(", "photos": [{"state": "good", )"),
                                HasSubstr(R"("width": 640, "height": 480, )"), HasSubstr(R"("color": "#c)"),
                                HasSubstr(R"("whole": true, "start": 0, "end": 6, "seconds": 6, "fileSeconds": 6)"),
                                HasSubstr(R"("settings": {"secondsPerPhoto": 4, "quality": 0, "codec": "avc1")")));
    const Result check = run({"check", document(), "--json"});
    EXPECT_THAT(check.out, AllOf(HasSubstr(R"("ok": true, "photos": 3, "soundtracks": 1, "bad": [], )")));
}

TEST_F(DocumentCommand, NeverReplacesWhatIsThere)
{
    const std::string file = folder_.makeFile("Trip.stillora", "mine");
    const Result result = made();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "stillora: " + document() + " is there already\n");
    EXPECT_EQ(TemporaryFolder::contentsOf(file), "mine");
    EXPECT_THAT(leftovers(), ElementsAre("Trip.stillora"));
}

TEST_F(DocumentCommand, NamesEveryBadFileAndMakesNothing)
{
    const std::string text = shared_->makeFile("bad/text.jpg", "Dear diary");
    const std::string noise = shared_->makeFile("bad/noise.mp3", "la la la");
    const Result result = made({text, noise, shared_->path("gone.jpg"), song() + "@5-9"});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, AllOf(HasSubstr(text + ": "), HasSubstr(noise + ": is no sound file that can be read\n"),
                                  HasSubstr("gone.jpg: No such file or directory\n"),
                                  HasSubstr("song.wav: is only 6 s long, and cannot be played up to 9 s\n"),
                                  HasSubstr("2 photos cannot be used, 2 sounds cannot be used; --skip-bad")));
    EXPECT_THAT(leftovers(), IsEmpty());

    const Result skipping = made({text, noise, shared_->path("gone.jpg"), "--skip-bad"});
    EXPECT_EQ(skipping.status, 0);
    EXPECT_THAT(skipping.err, AllOf(HasSubstr("left out: " + text), HasSubstr("left out: " + noise)));
    EXPECT_THAT(saved("Photos"), SizeIs(3));
}

TEST_F(DocumentCommand, AddsUnderFreeNames)
{
    ASSERT_EQ(run({"new", document()}).status, 0) << "an empty one";
    EXPECT_EQ(run({"add", document(), photo(1)}).status, 0);
    const Result result = run({"add", folder_.path("Trip"), photo(1), song() + "@-2"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, document() + "\n");
    EXPECT_THAT(saved("Photos"), UnorderedElementsAre("img1.jpg", "img1-2.jpg"));
    EXPECT_THAT(run({"list", document()}).out, HasSubstr("song.wav  2 s, from 0 s to 2 s\n"));
}

TEST_F(DocumentCommand, LosesNothingWhenManyAddAtOnce)
{
    ASSERT_EQ(run({"new", document()}).status, 0);
    constexpr int kPrograms = 6;
    std::string command = "LC_ALL=C.UTF-8 LANGUAGE=; export LC_ALL LANGUAGE; ";
    for (int i = 0; i < kPrograms; ++i)
        command += testsound::shellWord(STILLORA_PROGRAM) + " document add --quiet " +
                   testsound::shellWord(document()) + " " + testsound::shellWord(photo(1)) + " & ";
    testsound::outputOf(command + " wait");
    EXPECT_THAT(saved("Photos"), SizeIs(kPrograms));
    const Result check = run({"check", document()});
    EXPECT_EQ(check.status, 0) << check.err;
    EXPECT_THAT(check.err, HasSubstr("6 photos and 0 soundtracks can be used"));
}

TEST_F(DocumentCommand, TellsThatItWaitsForAnother)
{
    ASSERT_EQ(made().status, 0);
    const int folder = open(document().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(folder, LOCK_EX), 0);
    const std::string err = folder_.path("err");
    std::jthread adding([&] {
        testsound::outputOf("LC_ALL=C.UTF-8 LANGUAGE= " + testsound::shellWord(STILLORA_PROGRAM) + " document add " +
                            testsound::shellWord(document()) + " " + testsound::shellWord(photo(1)) + " 2>" + err);
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (TemporaryFolder::contentsOf(err).find("waiting for another program") == std::string::npos)
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    EXPECT_THAT(saved("Photos"), SizeIs(3));
    close(folder);
    adding.join();
    EXPECT_THAT(saved("Photos"), SizeIs(4));
}

TEST_F(DocumentCommand, ChecksEveryItem)
{
    ASSERT_EQ(made().status, 0);
    const Result good = run({"check", document()});
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.err, "stillora: 3 photos and 1 soundtrack can be used\n");

    fs::remove(document() + "/Resources/Photos/img2.jpg");
    fs::resize_file(document() + "/Resources/Photos/img10.jpg", 40);
    folder_.makeFile("Trip.stillora/Resources/Soundtracks/song.wav", "la la");
    folder_.makeFile("Trip.stillora/Resources/Photos/other.jpg");
    const Result bad = run({"check", document()});
    EXPECT_EQ(bad.status, 3);
    EXPECT_THAT(bad.err,
                AllOf(HasSubstr("Photos/img2.jpg: is missing\n"), HasSubstr("Photos/img10.jpg: "),
                      HasSubstr("Soundtracks/song.wav: is no sound file that can be read\n"),
                      HasSubstr("Photos/other.jpg belongs to no photo and no sound\n"), Not(HasSubstr("can be used"))));
    const Result json = run({"check", document(), "--json"});
    EXPECT_EQ(json.status, 3);
    EXPECT_THAT(json.out,
                AllOf(HasSubstr(R"("ok": false, )"), HasSubstr(R"("bad": [{"kind": "photo", "number": 2, "path": ")"),
                      HasSubstr(R"("kind": "soundtrack", "number": 1)")));
    EXPECT_EQ(json.err, "");

    const Result list = run({"list", document()});
    EXPECT_EQ(list.status, 3);
    EXPECT_THAT(list.out, HasSubstr("  is missing\n"));
    const Result render = run({"render", document(), "--save", folder_.path("out")});
    EXPECT_EQ(render.status, 3);
    EXPECT_THAT(render.err, AllOf(HasSubstr("img2.jpg: is missing"), HasSubstr("1 sound cannot be used")));
    EXPECT_FALSE(fs::exists(folder_.path("out")));
}

TEST_F(DocumentCommand, TellsOfPhotosThatAreNotAsTheyWereAdded)
{
    ASSERT_EQ(made().status, 0);
    const std::string path = document() + "/Resources/Photos/img1.jpg";
    const auto size = fs::file_size(path);
    fs::resize_file(path, size - 100);
    const Result result = run({"check", document()});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "stillora: " + path + ": " + std::string(reasonOfCutOffPhoto()) + "\nstillora: " + path +
                              " has changed since it was added: it holds " + std::to_string(size - 100) +
                              " bytes, not " + std::to_string(size) + "\n");
}

TEST_F(DocumentCommand, RefusesWhatIsNoDocument)
{
    for (const char* verb : {"list", "check", "render"}) {
        const Result gone = run({verb, folder_.path("gone")});
        EXPECT_EQ(gone.status, 3) << verb;
        EXPECT_EQ(gone.err, "stillora: " + folder_.path("gone") + ": No such file or directory\n");
        EXPECT_EQ(gone.out, "");
    }
    const Result folder = run({"add", shared_->path("Rome"), photo(1)});
    EXPECT_EQ(folder.status, 3);
    EXPECT_THAT(folder.err, HasSubstr("is no document: there is no Document.plist in it\n"));
    const Result empty = run({"new", document()});
    ASSERT_EQ(empty.status, 0);
    const Result render = run({"render", document()});
    EXPECT_EQ(render.status, 3);
    EXPECT_THAT(render.err, HasSubstr("there are no photos in " + document()));
}

TEST_F(DocumentCommand, IsToldByItsSecondWord)
{
    EXPECT_EQ(run({}).status, 2);
    EXPECT_THAT(run({"burn"}).err, HasSubstr("there is no command document burn\n"));
    EXPECT_THAT(run({"--burn"}).err, HasSubstr("there is no option --burn\n"));
    for (const Arguments& arguments : {Arguments{"--help"}, Arguments{"new", "--help"}, Arguments{"render", "-h"}}) {
        const Result help = run(arguments);
        EXPECT_EQ(help.status, 0);
        EXPECT_THAT(help.out, StartsWith("Usage: stillora document new "));
    }
}

} // namespace
