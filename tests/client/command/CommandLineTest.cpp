#include "client/command/CommandLine.h"

#include "client/command/options/CreateOptions.h"
#include "client/command/options/HelpText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

/// The arguments as far as they are read without touching a file.
Parsed<CreateOptions> parsed(const Arguments& arguments)
{
    const Parsed<CommandCall> call = parseCommandLine(arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&call))
        return *answer;
    EXPECT_EQ(std::get<CommandCall>(call).command->name, "create");
    return parseCreate(std::get<CommandCall>(call).arguments);
}

CreateOptions created(const Arguments& arguments)
{
    const Parsed<CreateOptions> result = parsed(arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&result)) {
        ADD_FAILURE() << answer->text;
        return {};
    }
    return std::get<CreateOptions>(result);
}

CommandLineAnswer answered(const Arguments& arguments)
{
    const Parsed<CreateOptions> result = parsed(arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&result))
        return *answer;
    ADD_FAILURE() << "the command line was taken";
    return {};
}

TEST(CommandLine, ReadsTheOrderOfPhotos)
{
    EXPECT_EQ(created({"create", "a"}).order.sort, PhotoSort::AsGiven);
    EXPECT_EQ(created({"create", "a", "--sort", "name"}).order.sort, PhotoSort::ByName);
    EXPECT_EQ(created({"create", "a", "--sort=date"}).order.sort, PhotoSort::ByDate);
    EXPECT_EQ(created({"create", "a", "--sort", "given"}).order.sort, PhotoSort::AsGiven);
    EXPECT_FALSE(created({"create", "a"}).order.isReversed);
    EXPECT_TRUE(created({"create", "a", "--reverse"}).order.isReversed);
    EXPECT_FALSE(created({"create", "a"}).plansOnly);
    EXPECT_TRUE(created({"create", "a", "--dry-run"}).plansOnly);
    EXPECT_EQ(created({"create", "a", "--dry-run", "--contact-sheet", "b.png"}).contactSheet, "b.png");
    EXPECT_EQ(created({"create", "a"}).innerFolders, InnerFolders::PassedOver);
    EXPECT_EQ(created({"create", "a", "--recursive"}).innerFolders, InnerFolders::Listed);
}

TEST(CommandLine, HasTheDefaultsThatTheHelpTells)
{
    const CreateOptions options = created({"create", "a.jpg"});
    EXPECT_THAT(options.photos, ElementsAre("a.jpg"));
    EXPECT_FALSE(options.seconds);
    EXPECT_EQ(options.codec, "avc1");
    EXPECT_EQ(options.quality, kAutomaticQuality);
    EXPECT_FALSE(options.reducesBorders || options.isJSON || options.isQuiet || options.skipsBad);
    EXPECT_FALSE(options.title || options.saveFolder);
}

TEST(CommandLine, ReadsEveryOption)
{
    const CreateOptions options =
        created({"create", "a.jpg", "--seconds", "2.5", "--quality", "1080", "--codec", "hvc1", "--reduce-borders", "b",
                 "--title", "Trip v1.2", "--save", "/movies", "--json", "--quiet", "--skip-bad", "c.png"});
    EXPECT_THAT(options.photos, ElementsAre("a.jpg", "b", "c.png"));
    EXPECT_EQ(options.seconds, 2.5s);
    EXPECT_EQ(options.quality, 1080);
    EXPECT_EQ(options.codec, "hvc1");
    EXPECT_TRUE(options.reducesBorders && options.isJSON && options.isQuiet && options.skipsBad);
    EXPECT_EQ(options.title, "Trip v1.2");
    EXPECT_EQ(options.saveFolder, "/movies");
}

TEST(CommandLine, TakesWhatFollowsTwoHyphensAsPhotos)
{
    EXPECT_THAT(created({"create", "--quiet", "--", "--json", "-a.jpg"}).photos, ElementsAre("--json", "-a.jpg"));
    EXPECT_THAT(created({"create", "--seconds=3", "a.jpg"}).photos, ElementsAre("a.jpg"));
}

TEST(CommandLine, TakesPhotosThatAreNamedLikeACommand)
{
    EXPECT_THAT(created({"create", "create", "help"}).photos, ElementsAre("create", "help"));
}

TEST(CommandLine, KeepsBytesOfNamesThatAreNoUTF8)
{
    EXPECT_THAT(created({"create", "caf\xE9.jpg"}).photos, ElementsAre("caf\xE9.jpg"));
}

TEST(CommandLine, KnowsEveryQualityOfTheTable)
{
    for (const int64_t quality : {240, 360, 480, 720, 1080, 1440, 2160})
        EXPECT_EQ(created({"create", "a", "--quality", std::to_string(quality)}).quality, quality);
    EXPECT_EQ(created({"create", "a", "--quality", "auto"}).quality, kAutomaticQuality);
    EXPECT_EQ(created({"create", "a", "--quality", "smallest"}).quality, kSmallestQuality);
}

TEST(CommandLine, TakesTheExtensionOffATitle)
{
    EXPECT_EQ(created({"create", "a", "--title", "Holiday.mov"}).title, "Holiday");
    EXPECT_EQ(created({"create", "a", "--title", "Holiday.MOV"}).title, "Holiday");
    EXPECT_EQ(created({"create", "a", "--title", "St. Ives"}).title, "St. Ives");
}

TEST(CommandLine, ReadsSoundtracksAndTheirParts)
{
    const auto soundOf = [](const std::string& text) {
        const CreateOptions options = created({"create", "--soundtrack", text, "a.jpg"});
        EXPECT_THAT(options.photos, ElementsAre("a.jpg")) << "photos may follow";
        return options.sounds.size() == 1 ? options.sounds[0] : SoundArgument{"wrong count", {}, {}};
    };
    const std::optional<Seconds> none;
    EXPECT_EQ(soundOf("song.mp3"), (SoundArgument{"song.mp3", none, none}));
    EXPECT_EQ(soundOf("song.mp3@10-25.5"), (SoundArgument{"song.mp3", 10s, 25.5s}));
    EXPECT_EQ(soundOf("song.mp3@1:05-2:30.25"), (SoundArgument{"song.mp3", 65s, 150.25s}));
    EXPECT_EQ(soundOf("song.mp3@90-1:02:03"), (SoundArgument{"song.mp3", 90s, 3723s}));
    EXPECT_EQ(soundOf("song.mp3@30-"), (SoundArgument{"song.mp3", 30s, none}));
    EXPECT_EQ(soundOf("song.mp3@-30"), (SoundArgument{"song.mp3", none, 30s}));
    // Names that hold an at sign; an empty selection ends one that looks like a selection itself.
    EXPECT_EQ(soundOf("live@home.mp3"), (SoundArgument{"live@home.mp3", none, none}));
    EXPECT_EQ(soundOf("live@the-club.mp3"), (SoundArgument{"live@the-club.mp3", none, none}));
    EXPECT_EQ(soundOf("a@b.mp3@1-2"), (SoundArgument{"a@b.mp3", 1s, 2s}));
    EXPECT_EQ(soundOf("mix@1-2@-"), (SoundArgument{"mix@1-2", none, none}));
    for (const char* name :
         {"s@1:60-90", "s@1:2:3:4-9", "s@1.5:00-9", "s@nan-9", "s@1-inf", "s@+1-2", "s@1--2", "s@1:-2"})
        EXPECT_EQ(soundOf(name), (SoundArgument{name, none, none})) << name;
}

TEST(CommandLine, ReadsTheOptionsOfSound)
{
    const CreateOptions options =
        created({"create", "a", "--soundtrack", "1.mp3", "b", "--soundtrack=2.mp3@1-2", "--loop", "--no-silence"});
    EXPECT_THAT(options.photos, ElementsAre("a", "b"));
    EXPECT_EQ(options.sounds.size(), 2u);
    EXPECT_TRUE(options.loopsSounds);
    EXPECT_FALSE(options.fillsSilence);
    EXPECT_TRUE(created({"create", "a"}).fillsSilence);
    EXPECT_TRUE(created({"create", "a", "--soundtrack", "s", "--fit-music"}).fitsMusic);
}

TEST(CommandLine, ReadsWhereAMovieIsToBeShown)
{
    EXPECT_EQ(created({"create", "a"}).use, MovieUse::Anywhere);
    EXPECT_EQ(created({"create", "a", "--web"}).use, MovieUse::Web);
}

TEST(CommandLine, RefusesWhatItCannotUseAndSaysWhy)
{
    const struct {
        Arguments arguments;
        std::string reason;
    } rows[] = {
        {{}, "a command is missing"},
        {{"make"}, "there is no command make"},
        {{"--make"}, "there is no option --make"},
        {{"create"}, "no photos were given"},
        {{"create", "--quiet"}, "no photos were given"},
        {{"create", "a", "--seconds", "0"}, "--seconds takes a number from 0.01 to 3600, not \"0\""},
        {{"create", "a", "--seconds", "-1"}, "--seconds"},
        {{"create", "a", "--seconds", "2,5"}, "\"2,5\""},
        {{"create", "a", "--seconds", "2m"}, "\"2m\""},
        {{"create", "a", "--seconds", "nan"}, "\"nan\""},
        {{"create", "a", "--seconds", "inf"}, "\"inf\""},
        {{"create", "a", "--seconds", "1e99"}, "\"1e99\""},
        {{"create", "a", "--seconds", ""}, "\"\""},
        {{"create", "a", "--quality", "1081"},
         "--quality takes auto, smallest, 240, 360, 480, 720, 1080, 1440, 2160, not"},
        {{"create", "a", "--sort", "size"}, "--sort takes name, date, given, not \"size\""},
        {{"create", "a", "--quality", "1081p"}, "\"1081p\""},
        {{"create", "a", "--codec", "vp9"}, "--codec takes avc1, hvc1, jpeg, apcn, ap4h, apch, apcs, apco, ap4x, not"},
        {{"create", "a", "--codec", ""}, "--codec"},
        {{"create", "a", "--title", "a/b"}, "the title \"a/b\" holds a \"/\""},
        {{"create", "a", "--title", ""}, "is empty"},
        {{"create", "a", "--title", "  "}, "is empty"},
        {{"create", "a", "--title", ".mov"}, "begins with a dot"},
        {{"create", "a", "--title", "a\nb"}, "control characters"},
        {{"create", "a", "--title", "caf\xE9"}, "not valid UTF-8"},
        {{"create", "a", "--title", std::string(251, 'x')}, "is 251 bytes long; 200 are possible"},
        {{"create", "a", "--soundtrack", "s.mp3@10-5"}, "ends before it starts"},
        {{"create", "a", "--soundtrack", "s.mp3@5-5"}, "ends before it starts"},
        {{"create", "a", "--soundtrack", "s.mp3@-0"}, "ends before it starts"},
        {{"create", "a", "--soundtrack", ""}, "--soundtrack"},
        {{"create", "a", "--soundtrack"}, "--soundtrack"},
        {{"create", "a", "--soundtrack", "@1-2"}, "--soundtrack"},
        {{"create", "a", "-o", "b.mov", "--title", "c"}, "-o names the movie and its folder, without --title"},
        {{"create", "a", "-o", "b.mov", "--save", "c"}, "-o names the movie and its folder, without --save"},
        {{"create", "a", "-o", "b.MP4"}, "-o takes the path of a .mov file, not of a .mp4 file"},
        {{"create", "a", "-o", "b/"}, "-o takes the path of the movie; in \"b/\" its name is empty"},
        {{"create", "a", "-o", ""}, "is empty"},
        {{"create", "a", "--contact-sheet", "b.png"}, "--contact-sheet goes with --dry-run"},
        {{"create", "a", "--dry-run", "--contact-sheet", ""}, "--contact-sheet takes the path of the PNG file"},
        {{"create", "a", "--dry-run", "--contact-sheet", "a.pdf"},
         "--contact-sheet takes the path of a .png file, not of"},
        {{"create", "a", "--soundtrack", "s", "--fit-music", "--loop"}, "--fit-music leaves nothing to --loop"},
        {{"create", "a", "--soundtrack", "s", "--fit-music", "--seconds", "3"}, "without --seconds"},
        {{"create", "a", "--save", ""}, "--save"},
        {{"create", "a", "--save"}, "--save"},
        {{"create", "a", "--loudly"}, "--loudly"},
        {{"create", "a", "--seconds", "1", "--seconds", "2"}, "--seconds"},
    };
    for (const auto& row : rows) {
        const CommandLineAnswer answer = answered(row.arguments);
        EXPECT_EQ(answer.exitStatus, 2) << row.reason;
        EXPECT_THAT(answer.text, AllOf(StartsWith("stillora: "), HasSubstr(row.reason), HasSubstr("--help'.\n")));
    }
}

TEST(CommandLine, ShowsTheVersion)
{
    EXPECT_EQ(answered({"--version"}).exitStatus, 0);
    EXPECT_THAT(answered({"--version"}).text, testing::MatchesRegex("stillora [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(CommandLine, UnderstandsWhatPeopleCallThings)
{
    const std::pair<const char*, const char*> codecs[] = {
        {"h264", "avc1"},   {"H.264", "avc1"},  {"hevc", "hvc1"},  {"HEVC", "hvc1"}, {"h265", "hvc1"},
        {"prores", "apcn"}, {"ProRes", "apcn"}, {"mjpeg", "jpeg"}, {"avc1", "avc1"},
    };
    for (const auto& [typed, codec] : codecs)
        EXPECT_EQ(created({"create", "a", "--codec", typed}).codec, codec) << typed;
    const std::pair<const char*, int> heights[] = {{"1080p", 1080}, {"720P", 720}, {"4k", 2160}, {"4K", 2160}};
    for (const auto& [typed, height] : heights)
        EXPECT_EQ(created({"create", "a", "--quality", typed}).quality, height) << typed;
    EXPECT_EQ(created({"create", "a", "--seconds", "4s"}).seconds, 4s);
    EXPECT_EQ(created({"create", "a", "--seconds", "0.5s"}).seconds, 0.5s);
    for (const Arguments& arguments : {Arguments{"create", "a", "--seconds", "s"},
                                       {"create", "a", "--seconds", "4m"},
                                       {"create", "a", "--quality", "p"},
                                       {"create", "a", "--quality", "1081p"},
                                       {"create", "a", "--quality", "autop"}})
        EXPECT_THAT(answered(arguments).text, HasSubstr("not \"" + arguments.back() + "\""));
}

TEST(CommandLine, AsksWhetherAnotherWordWasMeant)
{
    EXPECT_THAT(answered({"craete", "a"}).text, HasSubstr("there is no command craete, did you mean create?"));
    EXPECT_THAT(answered({"create", "a", "--sceonds", "3"}).text,
                HasSubstr("there is no option --sceonds, did you mean --seconds?"));
    EXPECT_THAT(answered({"create", "a", "--codec", "avc2"}).text, HasSubstr("not \"avc2\", did you mean avc1?"));
    EXPECT_THAT(answered({"create", "a", "--quality", "1800"}).text, HasSubstr("did you mean 1080?"));
    EXPECT_THAT(answered({"movie"}).text, testing::Not(HasSubstr("did you mean")));
}

TEST(CommandLine, TakesThePathOfTheMovie)
{
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"Rome.mov", ".", "Rome"},
        {"a/b/Trip v1.2.MOV", "a/b", "Trip v1.2"},
        {"/Rome", "/", "Rome"},
        {"../x", "..", "x"},
    };
    for (const auto& [path, folder, title] : rows) {
        const CreateOptions options = created({"create", "a", "-o", path});
        EXPECT_EQ(options.saveFolder, folder) << path;
        EXPECT_EQ(options.title, title) << path;
    }
}

TEST(CommandLine, ReadsWhatIsSaidOfTheWatermark)
{
    EXPECT_EQ(created({"create", "a.jpg"}).watermark, Watermark::Usual);
    EXPECT_EQ(settingsOf(created({"create", "a.jpg", "--no-watermark"})).watermark, Watermark::Absent);
    EXPECT_EQ(settingsOf(created({"create", "a.jpg", "--watermark"})).watermark, Watermark::Drawn);
    EXPECT_THAT(answered({"create", "a.jpg", "--watermark", "--no-watermark"}).text, HasSubstr("contradict"));
}

TEST(CommandLine, ShowsEveryOptionAndExitStatusInTheHelp)
{
    for (const Arguments& arguments : {Arguments{"--help"}, Arguments{"-h"}, Arguments{"create", "--help"},
                                       Arguments{"create", "-h"}, Arguments{"create", "a", "--help"}}) {
        const CommandLineAnswer answer = answered(arguments);
        EXPECT_EQ(answer.exitStatus, 0);
        for (const char* option :
             {"--seconds", "--quality", "--codec", "--reduce-borders", "--title", "--save", "--skip-bad",
              "--soundtrack FILE[@START-END]", "--loop", "--fit-music", "--no-silence", "--no-watermark", "--watermark",
              "--web", "--json", "--quiet", "--help", "default 4"})
            EXPECT_THAT(answer.text, HasSubstr(option));
        for (const char* status : {"\n  0 ", "\n  1 ", "\n  2 ", "\n  3 ", "\n  4 ", "\n  5 ", "130"})
            EXPECT_THAT(answer.text, HasSubstr(status));
    }
    EXPECT_THAT(answered({"--help"}).text, HasSubstr("--version"));
}

TEST(CommandLine, ListsEveryCommandInTheHelp)
{
    ASSERT_EQ(commands().size(), commandTexts().size());
    for (size_t i = 0; i < commands().size(); ++i) {
        const CommandText& text = commandTexts()[i];
        EXPECT_EQ(commands()[i].name, text.name);
        EXPECT_THAT(generalHelp(), testing::ContainsRegex("\n  " + text.name + " +" + text.summary + "\n"));
    }
}

TEST(CommandLine, HelpFitsItsTerminal)
{
    for (const int columns : {60, 80, 120}) {
        std::string all = generalHelp(columns);
        for (const CommandText& command : commandTexts())
            all += helpOf(command.name, columns);
        size_t longest = 0;
        std::istringstream lines(all);
        for (std::string line; std::getline(lines, line);)
            longest = std::max(longest, line.size());
        const auto most = static_cast<size_t>(std::min(columns, 80));
        EXPECT_LE(longest, most);
        EXPECT_EQ(all.find("stillora settings  ["), std::string::npos) << "one blank is enough";
        EXPECT_GT(longest, most - 4) << "lines are as long as they may be";
    }
    EXPECT_EQ(helpOf("create", 1), helpOf("create", 40)) << "what is narrower breaks lines by itself";
}

TEST(CommandLine, TellsWhichFormsOfACommandTakeAnOption)
{
    const std::string help = helpOf("document");
    EXPECT_THAT(help, testing::ContainsRegex("\nOptions of new:\n  --loop "));
    EXPECT_THAT(help, testing::ContainsRegex("\nOptions of new and add:\n  --soundtrack "));
    EXPECT_THAT(help, testing::ContainsRegex("\nOptions of all:\n  --quiet "));
}

TEST(CommandLine, RefusesWhatIsNoOptionOfTheCommandInItsOwnWords)
{
    const auto faultOf = [](const char* form, const std::vector<std::string>& arguments) {
        const auto read = CommandArguments::read(form, arguments);
        const auto* answer = std::get_if<CommandLineAnswer>(&read);
        return answer ? answer->text : "";
    };
    EXPECT_THAT(faultOf("create", {"--s", "1", "a"}),
                StartsWith("stillora: --s is the beginning of several options: --seconds, --soundtrack, --sort, "));
    EXPECT_EQ(faultOf("create", {"--sec", "1", "a"}), "") << "one that is meant by itself";
    EXPECT_THAT(faultOf("create", {"a", "--loudly=1"}), StartsWith("stillora: there is no option --loudly\n"));
    EXPECT_THAT(faultOf("create", {"-x"}), StartsWith("stillora: there is no option -x\n"));
    EXPECT_THAT(faultOf("frame", {"a", "--skip-bad"}), StartsWith("stillora: there is no option --skip-bad\n"));
    EXPECT_THAT(faultOf("create", {"--save"}), StartsWith("stillora: --save needs a value\n"));
    EXPECT_THAT(faultOf("frame", {"-o"}), StartsWith("stillora: -o needs a value\n"));
    EXPECT_THAT(faultOf("create", {"--json=yes"}), StartsWith("stillora: --json takes no value\n"));
    EXPECT_THAT(faultOf("frame", {"-o", "a", "--output=b"}), StartsWith("stillora: --output is given twice\n"));
    EXPECT_THAT(faultOf("create", {"--s", "1"}), HasSubstr("--s")) << "--seconds, --soundtrack, --save or --skip-bad";
}

TEST(CommandLine, ReadsOptionsAsIsUsual)
{
    const auto read = [](const std::vector<std::string>& arguments) {
        return std::get<CommandArguments>(CommandArguments::read("create", arguments));
    };
    const CommandArguments mixed =
        read({"a", "--quiet", "--seconds=-1", "-", "--sound", "x", "--soundtrack", "", "b", "--", "--json"});
    EXPECT_THAT(mixed.operands(), ElementsAre("a", "-", "b", "--json"));
    EXPECT_EQ(mixed.value("seconds"), "-1");
    EXPECT_THAT(mixed.values("soundtrack"), ElementsAre("x", ""));
    EXPECT_TRUE(mixed.has("quiet"));
    EXPECT_FALSE(mixed.has("json") || mixed.value("title"));
    EXPECT_EQ(read({"--seconds", "--quiet"}).value("seconds"), "--quiet") << "a value may begin with hyphens";
    EXPECT_TRUE(read({"--quiet", "--quiet"}).has("quiet"));
    EXPECT_THAT(std::get<CommandArguments>(CommandArguments::read("frame", {"-oout.png", "p"})).value("output"),
                testing::Optional(std::string("out.png")));
}

} // namespace
