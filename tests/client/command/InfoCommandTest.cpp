// The real program, as a user runs it.

#include "client/command/InfoCommand.h"

#include "client/command/terminal/ExitStatus.h"
#include "client/command/terminal/Swatch.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPicture.h"
#include "tests/support/TestSound.h"
#include "tests/support/TestTags.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <variant>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace stillora;

namespace {

using namespace testtags;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

struct Outcome {
    int status = 0;
    std::string out;
    std::string err;
};

class InfoCommand : public testing::Test {
protected:
    /// @param environment  such as "LANGUAGE=de"
    Outcome run(const Arguments& arguments, const std::string& environment = "LANGUAGE=C")
    {
        std::string command =
            fmt::format("cd {} && env LC_ALL=C.UTF-8 {} timeout 60 {} info", testsound::shellWord(folder_.path()),
                        environment, testsound::shellWord(STILLORA_PROGRAM));
        for (const std::string& argument : arguments)
            command += fmt::format(" {}", testsound::shellWord(argument));
        const int status = std::system((command + " >out 2>err").c_str());
        return {WEXITSTATUS(status), TemporaryFolder::contentsOf(folder_.path("out")),
                TemporaryFolder::contentsOf(folder_.path("err"))};
    }

    /// On a terminal of that kind; what stands there in the end.
    std::string shownOn(const std::string& kind, const std::string& colors, const std::string& file)
    {
        int terminal = -1;
        const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
        if (child == 0) {
            setenv("TERM", kind.c_str(), 1);
            setenv("COLORTERM", colors.c_str(), 1);
            setenv("LC_ALL", "C.UTF-8", 1);
            setenv("LANGUAGE", "C", 1);
            unsetenv("NO_COLOR");
            execl(STILLORA_PROGRAM, "stillora", "info", file.c_str(), nullptr);
            _exit(127);
        }
        std::string text;
        char buffer[4096];
        // The end of a terminal is an error.
        for (ssize_t count = 0; (count = read(terminal, buffer, sizeof buffer)) > 0 || (count < 0 && errno == EINTR);)
            text.append(buffer, count > 0 ? static_cast<size_t>(count) : 0);
        close(terminal);
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        return text;
    }

    std::string makePhoto(const std::string& name, size_t width, size_t height, test::Color color,
                          std::optional<int> orientation = {})
    {
        test::JPEGOptions options;
        options.orientation = orientation;
        test::writeFile(folder_.path(name), test::jpegBytes(test::plain(width, height, color), options));
        return name;
    }

    /// A WAV file with an ID3 tag.
    std::string makeSound(const std::string& name, double seconds, const std::string& frames)
    {
        const auto count = static_cast<size_t>(seconds * 8000);
        testsound::writeWav(folder_.path(name), testsound::makeTone(8000, 1, count, 440));
        const std::string chunks = testsound::readBytes(folder_.path(name)).substr(12);
        const std::string tag = frames.empty() ? "" : littleChunk("id3 ", id3Tag(4, frames));
        folder_.makeFile(name, littleChunk("RIFF", "WAVE" + chunks + tag));
        return name;
    }

    static std::string cover(size_t side)
    {
        const auto bytes = test::jpegBytes(test::plain(side, side, test::kBlue));
        return {bytes.begin(), bytes.end()};
    }

    static std::string tagFrames()
    {
        return id3Text(4, "TIT2", "Title") + id3Text(4, "TPE1", "Artist") + id3Text(4, "TALB", "Album");
    }

    TemporaryFolder folder_;
};

InfoOptions parsed(const Arguments& arguments)
{
    const auto result = parseInfo(arguments);
    const auto* options = std::get_if<InfoOptions>(&result);
    EXPECT_NE(options, nullptr);
    return options ? *options : InfoOptions{};
}

CommandLineAnswer answered(const Arguments& arguments)
{
    const auto result = parseInfo(arguments);
    const auto* answer = std::get_if<CommandLineAnswer>(&result);
    EXPECT_NE(answer, nullptr) << "the command line was taken";
    return answer ? *answer : CommandLineAnswer{};
}

} // namespace

TEST(InfoCommandLine, ReadsEveryOption)
{
    const InfoOptions options = parsed({"--json", "a.mp3", "--cover", "b.jpg"});
    EXPECT_EQ(options.files, Arguments{"a.mp3"});
    EXPECT_TRUE(options.isJSON);
    EXPECT_EQ(options.cover, "b.jpg");
    EXPECT_EQ(parsed({"a.mp3", "b.jpg"}).files.size(), 2U);
    EXPECT_EQ(parsed({"a.mp3"}).cover, std::nullopt);
}

TEST(InfoCommandLine, SaysWhatIsWrong)
{
    struct Case {
        Arguments arguments;
        std::string sentence;
    };
    for (const Case& each : {Case{{}, "no file was given"}, Case{{""}, "no file was given"},
                             Case{{"a.mp3", "--cover", ""}, "--cover takes the path"},
                             Case{{"a.mp3", "b.mp3", "--cover", "c.jpg"}, "--cover takes one file alone"},
                             Case{{"a.mp3", "--seconds", "3"}, "--seconds"}}) {
        SCOPED_TRACE(each.sentence);
        const CommandLineAnswer answer = answered(each.arguments);
        EXPECT_EQ(answer.exitStatus, kExitUsage);
        EXPECT_THAT(answer.text, HasSubstr(each.sentence));
        EXPECT_THAT(answer.text, HasSubstr("stillora info --help"));
    }
}

TEST(Swatch, HasTheColourOrTheNearestOfThePalette)
{
    const auto color = [](int red, int green, int blue) { return Color{red / 255.0, green / 255.0, blue / 255.0}; };
    EXPECT_EQ(swatch(color(1, 20, 255), TerminalColors::True), "\x1b[48;2;1;20;255m      \x1b[0m");
    EXPECT_EQ(swatch(color(255, 0, 0), TerminalColors::Palette256), "\x1b[48;5;196m      \x1b[0m");
    EXPECT_EQ(swatch(color(96, 134, 176), TerminalColors::Palette256), "\x1b[48;5;67m      \x1b[0m");
    EXPECT_EQ(swatch(color(128, 128, 128), TerminalColors::Palette256), "\x1b[48;5;244m      \x1b[0m");
    EXPECT_EQ(swatch(color(0, 0, 0), TerminalColors::Palette256), "\x1b[48;5;16m      \x1b[0m");
    EXPECT_EQ(swatch(color(0, 0, 0), TerminalColors::None), "");
    EXPECT_EQ(hexOf(color(1, 20, 255)), "#0114ff");
    EXPECT_EQ(hexOf({-1, 2, 0.5}), "#00ff80");
}

TEST_F(InfoCommand, TellsOfAPhotoItsUprightSizeAndItsColour)
{
    const Outcome result = run({makePhoto("photo.jpg", 400, 300, {200, 40, 40}, 6)});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, StartsWith("photo.jpg\n  Kind            JPEG photo, "));
    EXPECT_THAT(result.out, HasSubstr("  Size            300 x 400 pixels\n  Orientation     6\n"));
    EXPECT_THAT(result.out, testing::ContainsRegex("\n  Average colour  #c[78]2[789]2[789]\n$"));
}

TEST_F(InfoCommand, TellsOfASoundWhatItsTagsHave)
{
    const Outcome result = run({makeSound("song.wav", 65.4, tagFrames() + id3Frame(4, "APIC", id3Picture(cover(60))))});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, StartsWith("song.wav\n"
                                       "  Kind    PCM sound, 1.0 MB\n"
                                       "  Title   Title\n"
                                       "  Artist  Artist\n"
                                       "  Album   Album\n"
                                       "  Length  1 minute, 5 seconds\n"
                                       "  Sound   8000 Hz, mono\n"
                                       "  Cover   JPEG, 60 x 60 pixels, "));
}

TEST_F(InfoCommand, TellsOfASoundWithoutTagsItsNameAndWhatIsNotKnown)
{
    const Outcome result = run({makeSound("song.wav", 1, "")});
    EXPECT_THAT(result.out, HasSubstr("  Title   song.wav\n  Artist  Unknown Artist\n  Album   Unknown Album\n"));
    EXPECT_THAT(result.out, Not(HasSubstr("Cover")));
}

TEST_F(InfoCommand, TellsOfAMovieItsPicturesAndItsSound)
{
    testsound::outputOf("ffmpeg -nostdin -v error -f lavfi -i testsrc=s=320x240:d=2 -f lavfi -i sine=r=48000:d=2 -ac 2 "
                        "-c:v mjpeg " +
                        testsound::shellWord(folder_.path("lying.mov")));
    testsound::convertWithFFmpeg(folder_.path("lying.mov"), "-c copy -metadata:s:v rotate=90 -metadata title=Trip",
                                 folder_.path("movie.mov"));
    const Outcome result = run({"movie.mov"});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_THAT(result.out, StartsWith("movie.mov\n  Kind    JPEG movie, "));
    EXPECT_THAT(result.out, HasSubstr("  Size    240 x 320 pixels\n"
                                      "  Title   Trip\n"
                                      "  Length  2 seconds\n"
                                      "  Sound   AAC, 48000 Hz, stereo\n"));
}

TEST_F(InfoCommand, SpeaksTheUsersLanguage)
{
    const Outcome result = run({makeSound("song.wav", 65.4, "")}, "LANGUAGE=de LC_ALL=de_DE.UTF-8");
    EXPECT_THAT(result.out, HasSubstr("  Titel      song.wav\n"
                                      "  Interpret  Unbekannter Interpret\n"
                                      "  Album      Unbekanntes Album\n"
                                      "  Länge      1 Minute, 5 Sekunden\n"));
}

TEST_F(InfoCommand, TellsProgramsInJSON)
{
    makePhoto("photo.jpg", 400, 300, {128, 128, 128}, 6);
    makeSound("song.wav", 2, id3Text(4, "TIT2", "A \"title\"") + id3Frame(4, "APIC", id3Picture(cover(60))));
    const Outcome result = run({"--json", "photo.jpg", "absent.mp3", "song.wav"});
    EXPECT_EQ(result.status, kExitBadInput);
    EXPECT_EQ(result.err, "stillora: absent.mp3: No such file or directory\n");
    const auto size = [&](const char* name) {
        return std::to_string(TemporaryFolder::contentsOf(folder_.path(name)).size());
    };
    EXPECT_EQ(
        result.out,
        R"({"path": "photo.jpg", "ok": true, "kind": "photo", "bytes": )" + size("photo.jpg") +
            R"(, "format": "jpeg", "width": 300, "height": 400, "orientation": 6, "isCutOff": false, "averageColor": "#808080", )"
            R"("taken": null, "camera": null, "latitude": null, "longitude": null})"
            "\n"
            R"({"path": "absent.mp3", "ok": false, "error": "No such file or directory"})"
            "\n"
            R"({"path": "song.wav", "ok": true, "kind": "sound", "bytes": )" +
            size("song.wav") +
            R"(, "title": "A \"title\"", "artist": null, "album": null, "duration": 2, "soundFormat": "pcm_s16le", )"
            R"("sampleRate": 8000, "channels": 1, "cover": {"format": "jpeg", "width": 60, "height": 60, "bytes": )" +
            std::to_string(cover(60).size()) + "}}\n");
}

TEST_F(InfoCommand, NamesEachFileThatCannotBeUsedAndGoesOnWithTheOthers)
{
    folder_.makeFile("text.mp3", "no sound");
    folder_.makeFile("empty.jpg", "");
    folder_.makeFolder("folder");
    ASSERT_EQ(mkfifo(folder_.path("pipe.wav").c_str(), 0600), 0);
    const std::string jpeg = testsound::readBytes(folder_.path(makePhoto("whole.jpg", 400, 300, test::kRed)));
    folder_.makeFile("cut.jpg", jpeg.substr(0, 60));
    const Outcome result = run({"text.mp3", "empty.jpg", "folder", "pipe.wav", "absent", "cut.jpg", "whole.jpg"});
    EXPECT_EQ(result.status, kExitBadInput);
    EXPECT_THAT(result.out, StartsWith("whole.jpg\n"));
    EXPECT_THAT(result.err, StartsWith("stillora: text.mp3: is no photo, sound or movie that can be read\n"
                                       "stillora: empty.jpg: is empty\n"
                                       "stillora: folder: is a folder\n"
                                       "stillora: pipe.wav: is not a regular file\n"
                                       "stillora: absent: No such file or directory\n"
                                       "stillora: cut.jpg: "));
}

TEST_F(InfoCommand, LetsNoTagMoveTheCursor)
{
    const Outcome result = run({makeSound("song.wav", 1, id3Text(4, "TIT2", "a\x1b[2Jb\nc"))});
    EXPECT_THAT(result.out, HasSubstr("  Title   a?[2Jb?c\n"));
}

TEST_F(InfoCommand, ShowsASwatchOnATerminalThatCan)
{
    makePhoto("photo.jpg", 64, 64, {128, 128, 128});
    const std::string photo = folder_.path("photo.jpg");
    EXPECT_THAT(shownOn("xterm-256color", "truecolor", photo),
                HasSubstr("\x1b[48;2;128;128;128m      \x1b[0m #808080"));
    EXPECT_THAT(shownOn("xterm-256color", "", photo), HasSubstr("\x1b[48;5;244m      \x1b[0m #808080"));
    for (const std::string kind : {"xterm", "dumb", ""})
        EXPECT_THAT(shownOn(kind, "", photo), testing::AllOf(HasSubstr("#808080"), Not(HasSubstr("\x1b")))) << kind;
}

TEST_F(InfoCommand, SavesTheCoverByteForByte)
{
    makeSound("song.wav", 1, id3Frame(4, "APIC", id3Picture(cover(60))));
    folder_.makeFile("cover.jpg", "old");
    const Outcome result = run({"song.wav", "--cover", "cover.jpg"});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_EQ(result.err, "stillora: saved the cover as cover.jpg\n");
    EXPECT_EQ(TemporaryFolder::contentsOf(folder_.path("cover.jpg")), cover(60));
}

TEST_F(InfoCommand, SavesTheCoverAsPNGWhereTheNameSaysSo)
{
    makeSound("song.wav", 1, id3Frame(4, "APIC", id3Picture(cover(60))));
    EXPECT_EQ(run({"song.wav", "--cover", "cover.PNG"}).status, kExitDone);
    EXPECT_THAT(TemporaryFolder::contentsOf(folder_.path("cover.PNG")), StartsWith("\x89PNG\r\n"));
}

TEST_F(InfoCommand, SaysWhyTheCoverIsNotSaved)
{
    makeSound("song.wav", 1, tagFrames());
    Outcome result = run({"song.wav", "--cover", "cover.jpg"});
    EXPECT_EQ(result.status, kExitBadInput);
    EXPECT_EQ(result.err, "stillora: song.wav has no cover\n");

    makeSound("odd.wav", 1, id3Frame(4, "APIC", id3Picture("no picture")));
    result = run({"odd.wav", "--cover", "cover.png"});
    EXPECT_EQ(result.status, kExitBadInput);
    EXPECT_THAT(result.out, HasSubstr("Cover   no picture that can be read, 10 bytes\n"));
    EXPECT_EQ(result.err, "stillora: the cover of odd.wav is no picture that can be read\n");
    EXPECT_FALSE(std::filesystem::exists(folder_.path("cover.png")));

    result = run({makePhoto("photo.jpg", 64, 64, test::kRed), "--cover", "cover.jpg"});
    EXPECT_EQ(result.status, kExitBadInput);
    EXPECT_EQ(result.err, "stillora: photo.jpg has no cover\n");
    EXPECT_FALSE(std::filesystem::exists(folder_.path("cover.jpg")));

    makeSound("song.wav", 1, id3Frame(4, "APIC", id3Picture(cover(60))));
    result = run({"song.wav", "--cover", "absent/cover.jpg"});
    EXPECT_EQ(result.status, kExitFailed);
    EXPECT_THAT(result.err, HasSubstr("cover.jpg"));
}

TEST_F(InfoCommand, NeverReplacesTheSoundByItsCover)
{
    makeSound("song.wav", 1, id3Frame(4, "APIC", id3Picture(cover(60))));
    const std::string before = TemporaryFolder::contentsOf(folder_.path("song.wav"));
    ASSERT_EQ(symlink("song.wav", folder_.path("cover.jpg").c_str()), 0);
    for (const std::string output : {"song.wav", "./song.wav", "cover.jpg"}) {
        const Outcome result = run({"song.wav", "--cover", output});
        EXPECT_EQ(result.status, kExitUsage);
        EXPECT_EQ(result.err, "stillora: the cover would replace song.wav\n");
    }
    EXPECT_EQ(TemporaryFolder::contentsOf(folder_.path("song.wav")), before);
}

TEST_F(InfoCommand, HelpsWithItsOptions)
{
    const Outcome result = run({"--help"});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_THAT(result.out, StartsWith("Usage: stillora info FILE..."));
    size_t begin = 0;
    for (size_t end = 0; (end = result.out.find('\n', begin)) != std::string::npos; begin = end + 1)
        EXPECT_LE(end - begin, 80U) << result.out.substr(begin, end - begin);
}

TEST_F(InfoCommand, TellsWhenWithWhichCameraAndWhereAPhotoWasTaken)
{
    const std::string photo = folder_.path("a.jpg");
    test::writeFile(photo, test::jpegBytes(test::plain(40, 30, test::kBlue)));
    const auto tag = [&](const std::string& tags) {
        ASSERT_EQ(std::system(("exiftool -q -n -overwrite_original " + tags + " " + photo).c_str()), 0) << tags;
    };
    tag("-EXIF:DateTimeOriginal='2024:05:31 09:08:07' -EXIF:SubSecTimeOriginal=25 -EXIF:Make='Lumora Works' "
        "-EXIF:Model='LUMORA X2' -EXIF:GPSLatitude=33.5 -EXIF:GPSLatitudeRef=S -EXIF:GPSLongitude=151.25 "
        "-EXIF:GPSLongitudeRef=E");
    EXPECT_THAT(run({photo}).out, HasSubstr("\n  Taken           2024-05-31 09:08:07.25\n"
                                            "  Camera          LUMORA X2\n"
                                            "  Place           -33.500000, 151.250000\n"));
    EXPECT_THAT(run({photo, "--json"}).out, HasSubstr(R"("taken": "2024-05-31T09:08:07.25", "camera": "LUMORA X2", )"
                                                      R"("latitude": -33.5, "longitude": 151.25})"));
    tag("-EXIF:OffsetTimeOriginal=-09:30 -EXIF:Model='X2'");
    EXPECT_THAT(run({photo}).out, HasSubstr("2024-05-31 09:08:07.25 -09:30\n  Camera          Lumora Works X2\n"));
    EXPECT_THAT(run({photo, "--json"}).out, HasSubstr(R"("taken": "2024-05-31T09:08:07.25-09:30", )"));
    tag("-EXIF:Model='Lumorama 3'");
    EXPECT_THAT(run({photo}).out, HasSubstr("Camera          Lumora Works Lumorama 3\n"));
    tag("-EXIF:Model=");
    EXPECT_THAT(run({photo}).out, HasSubstr("Camera          Lumora Works\n"));
}

TEST_F(InfoCommand, TellsNothingOfWhatAPhotoDoesNotTell)
{
    const std::string photo = folder_.path("a.jpg");
    test::writeFile(photo, test::jpegBytes(test::plain(40, 30, test::kBlue)));
    const std::string text = run({photo}).out;
    for (const char* word : {"Taken", "Camera", "Place"})
        EXPECT_THAT(text, Not(HasSubstr(word)));
    EXPECT_THAT(run({photo, "--json"}).out,
                HasSubstr(R"("taken": null, "camera": null, "latitude": null, "longitude": null})"));
}
