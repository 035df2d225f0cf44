// The commands that make something of one sound, through the real program.

#include "client/command/ConvertCommand.h"
#include "client/command/TrimCommand.h"
#include "client/command/WaveformCommand.h"

#include "client/command/terminal/ExitStatus.h"
#include "client/reader/SoundRange.h"
#include "platform/graphics/NSImage.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"

#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using namespace testsound;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

constexpr int kRate = 44100;
constexpr auto kDeadline = std::chrono::seconds(60);

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

class SoundCommands : public testing::Test {
protected:
    SoundCommands() { folder_.makeFolder("sounds"); }

    /// A file of so many seconds that gets louder.
    std::string makeWav(const std::string& name, double seconds = 2)
    {
        const auto frames = static_cast<size_t>(seconds * kRate);
        writeWav(path(name), makeSound(kRate, 1, frames, [&](size_t frame, int) {
                     return (0.1 + 0.8 * static_cast<double>(frame) / static_cast<double>(frames)) *
                            std::sin(static_cast<double>(frame) * 0.1);
                 }));
        return path(name);
    }
    std::string makeM4A(const std::string& name, double seconds = 2)
    {
        convertWithFFmpeg(makeWav("source.wav", seconds), "-c:a aac", path(name));
        std::filesystem::remove(path("source.wav"));
        return path(name);
    }

    std::string path(const std::string& name) const { return folder_.path("sounds/" + name); }
    std::vector<std::string> files() const { return filesBelow(folder_.path("sounds")); }

    pid_t start(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> words = arguments;
        words.insert(words.begin(), STILLORA_PROGRAM);
        std::vector<char*> pointers;
        for (std::string& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
        const pid_t pid = fork();
        if (pid == 0) {
            constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
            dup2(open(folder_.path("out").c_str(), kFlags, 0600), STDOUT_FILENO);
            dup2(open(folder_.path("err").c_str(), kFlags, 0600), STDERR_FILENO);
            execv(STILLORA_PROGRAM, pointers.data());
            _exit(127);
        }
        return pid;
    }
    Result finish(pid_t pid)
    {
        const auto deadline = std::chrono::steady_clock::now() + kDeadline;
        int status = 0;
        while (waitpid(pid, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > deadline) {
                ADD_FAILURE() << "the program does not end";
                kill(pid, SIGKILL);
            }
            poll(nullptr, 0, 1);
        }
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), readBytes(folder_.path("out")),
                readBytes(folder_.path("err"))};
    }
    Result run(const std::vector<std::string>& arguments) { return finish(start(arguments)); }

    platform::CGImagePtr picture(const std::string& name)
    {
        platform::NSError error;
        const auto image = platform::NSImage::imageWithContentsOfURL(folder_.url("sounds/" + name), &error);
        EXPECT_TRUE(image) << error.localizedDescription;
        return image ? image->image() : nullptr;
    }

    static int64_t framesOf(const std::string& file) { return static_cast<int64_t>(decodeWithFFmpeg(file).frames()); }

    TemporaryFolder folder_;
};

/// What the parser refuses, in its words.
template <typename Options>
std::string fault(Parsed<Options> (*parse)(const std::vector<std::string>&), const std::vector<std::string>& arguments)
{
    const Parsed<Options> parsed = parse(arguments);
    const auto* answer = std::get_if<CommandLineAnswer>(&parsed);
    if (!answer)
        return "taken";
    EXPECT_EQ(answer->exitStatus, kExitUsage);
    return answer->text;
}

int columnHeight(const platform::CGImagePtr& image, size_t x)
{
    int height = 0;
    for (size_t y = 0; y < image->height; ++y)
        height += image->row(y)[4 * x] > 0 ? 1 : 0;
    return height;
}

TEST(WaveformOptions, HaveDefaultsAndReadTheirArguments)
{
    auto options = std::get<WaveformOptions>(parseWaveform({"a.mp3", "-o", "a.png"}));
    EXPECT_EQ(options.sound, (SoundArgument{"a.mp3", std::nullopt, std::nullopt}));
    EXPECT_EQ(options.output, "a.png");
    EXPECT_EQ(options.width, 1000);
    EXPECT_EQ(options.height, 200);
    EXPECT_EQ(options.ground, WaveformOptions::Ground::Clear);
    options = std::get<WaveformOptions>(
        parseWaveform({"--size", "16384x1", "--range", "1:02-90.5", "--on-white", "-o", "a.png", "a.mp3"}));
    EXPECT_EQ(options.sound, (SoundArgument{"a.mp3", 62s, 90.5s}));
    EXPECT_EQ(options.width, 16384);
    EXPECT_EQ(options.height, 1);
    EXPECT_EQ(options.ground, WaveformOptions::Ground::White);
}

TEST(WaveformOptions, RefuseWhatCannotBeDone)
{
    const auto refused = [](std::vector<std::string> more) {
        std::vector<std::string> arguments{"a.mp3", "-o", "a.png"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return fault(parseWaveform, arguments);
    };
    for (const char* size :
         {"0x10", "10x0", "16385x10", "10", "x", "10x", "x10", "-5x10", "10x10x10", "1e2x10", " 10x10"})
        EXPECT_THAT(refused({"--size", size}), HasSubstr("--size takes")) << size;
    for (const char* range : {"-", "5", "a-b", "1:60-2:00", ""})
        EXPECT_THAT(refused({"--range", range}), HasSubstr("--range takes")) << range;
    EXPECT_THAT(refused({"--range", "5-5"}), HasSubstr("ends before it starts"));
    EXPECT_THAT(refused({"--colour"}), HasSubstr("Try 'stillora waveform --help'."));
    EXPECT_THAT(fault(parseWaveform, {"-o", "a.png"}), HasSubstr("no sound was given"));
    EXPECT_THAT(fault(parseWaveform, {"a.mp3"}), HasSubstr("-o takes"));
}

TEST(ConvertOptions, ReadTheirArgumentsAndRefuseWhatCannotBeDone)
{
    const auto options = std::get<ConvertOptions>(parseConvert({"a.mp3", "-o", "out", "--range", "-3", "--json"}));
    EXPECT_EQ(options.sound, (SoundArgument{"a.mp3", std::nullopt, 3s}));
    EXPECT_EQ(options.output, "out");
    EXPECT_TRUE(options.isJSON);
    EXPECT_THAT(fault(parseConvert, {"-o", "out"}), HasSubstr("no sound was given"));
    EXPECT_THAT(fault(parseConvert, {"a.mp3"}), HasSubstr("-o takes"));
    EXPECT_THAT(fault(parseConvert, {"a.mp3", "-o", "out", "--range", "9-3"}), HasSubstr("ends before it starts"));
}

TEST(TrimOptions, ReadTheirArgumentsAndRefuseWhatCannotBeDone)
{
    const auto options = std::get<TrimOptions>(parseTrim({"a.m4a", "-o", "b.M4A", "--range", "3-"}));
    EXPECT_EQ(options.sound, (SoundArgument{"a.m4a", 3s, std::nullopt}));
    EXPECT_EQ(options.output, "b.M4A");
    EXPECT_THAT(fault(parseTrim, {"-o", "b.m4a", "--range", "3-"}), HasSubstr("no sound was given"));
    EXPECT_THAT(fault(parseTrim, {"a.m4a", "-o", "b.m4a"}), HasSubstr("--range takes"));
    EXPECT_THAT(fault(parseTrim, {"a.m4a", "--range", "3-"}), HasSubstr("-o takes"));
    EXPECT_THAT(fault(parseTrim, {"a.m4a", "--range", "3-", "-o", "b.mp3"}), HasSubstr("ends in \".m4a\""));
}

TEST(SoundCommandRange, IsExactToTheSample)
{
    EXPECT_TRUE(platform::CMTimeRangeEqual(timeRangeOf(std::nullopt, kRate), platform::kCMTimeRangeZero));
    // 0.7 x 3 is not 2.1 in binary; the nearest sample is.
    const auto range = timeRangeOf(SoundFacts::Selection{Seconds(0.7 * 3), 4.2s}, kRate);
    EXPECT_EQ(range.start.value, 92610);
    EXPECT_EQ(range.start.timescale, kRate);
    EXPECT_EQ(range.duration.value, 92610);
}

TEST(SoundCommandRange, HoldsAllSamplesThatFitAndNotOneMore)
{
    std::minstd_rand random(1);
    for (const int rate : {44100, 48000, 32000, 22050, 96000}) {
        for (int i = 0; i < 2000; ++i) {
            // Microseconds.
            const int64_t start = random() % 100'000'000;
            const int64_t length = 100 + random() % 100'000'000;
            const auto secondsOf = [](int64_t time) { return Seconds(static_cast<double>(time) / 1e6); };
            const auto range = timeRangeOf(SoundFacts::Selection{secondsOf(start), secondsOf(start + length)}, rate);
            EXPECT_EQ(range.duration.value, length * rate / 1'000'000) << start << " " << length << " " << rate;
            EXPECT_LE(std::abs(range.start.value * 1'000'000 - start * rate), 500'000) << start << " " << rate;
        }
    }
}

TEST(SoundCommandRange, IsNeverTheWholeSoundBecauseItIsShort)
{
    const auto range = timeRangeOf(SoundFacts::Selection{0s, Seconds(1e-5)}, kRate);
    EXPECT_EQ(range.duration.value, 1);
}

TEST_F(SoundCommands, WaveformIsAPictureOfTheSound)
{
    const Result result = run({"waveform", makeWav("a.wav"), "-o", path("a.png")});
    EXPECT_EQ(result.status, kExitDone) << result.err;
    EXPECT_EQ(result.out, path("a.png") + "\n");
    EXPECT_EQ(result.err, "stillora: 1000 x 200, 2 s\n");
    const auto image = picture("a.png");
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width, 1000U);
    EXPECT_EQ(image->height, 200U);
    EXPECT_TRUE(image->hasAlpha);
    // It gets louder.
    EXPECT_LT(columnHeight(image, 0), 40);
    EXPECT_LT(columnHeight(image, 0), columnHeight(image, 500));
    EXPECT_LT(columnHeight(image, 500), columnHeight(image, 990));
    EXPECT_GT(columnHeight(image, 998), 190);
}

TEST_F(SoundCommands, WaveformOfARangeShowsThatPart)
{
    makeWav("a.wav");
    const Result result = run({"waveform", path("a.wav"), "-o", path("a.png"), "--size", "80x40", "--range", "0:01-"});
    EXPECT_EQ(result.status, kExitDone) << result.err;
    const auto image = picture("a.png");
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width, 80U);
    EXPECT_EQ(image->height, 40U);
    // The softest is half as loud as the loudest.
    EXPECT_GT(columnHeight(image, 0), 15);
}

TEST_F(SoundCommands, WaveformOnWhiteHasNoClearPixel)
{
    const Result result = run({"waveform", makeWav("a.wav"), "-o", path("a.png"), "--size", "80x40", "--on-white"});
    EXPECT_EQ(result.status, kExitDone) << result.err;
    const auto image = picture("a.png");
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->hasAlpha);
    const uint8_t* corner = image->row(0);
    EXPECT_EQ(corner[1] + corner[2] + corner[3], 3 * 255);
    const uint8_t* middle = image->row(20) + 4 * 40;
    EXPECT_EQ(middle[1] + middle[2] + middle[3], 0);
}

TEST_F(SoundCommands, WaveformReplacesAPictureButNotItsSound)
{
    makeWav("a.wav");
    writeBytes(path("a.png"), "old");
    EXPECT_EQ(run({"waveform", path("a.wav"), "-o", path("a.png")}).status, kExitDone);
    EXPECT_TRUE(picture("a.png"));
    const std::string sound = readBytes(path("a.wav"));
    const Result result = run({"waveform", path("a.wav"), "-o", folder_.path("sounds/../sounds/a.wav")});
    EXPECT_EQ(result.status, kExitUsage);
    EXPECT_THAT(result.err, HasSubstr("would replace the sound"));
    EXPECT_EQ(readBytes(path("a.wav")), sound);
}

TEST_F(SoundCommands, ResultsAreALineOfJSONWhereAProgramReadsThem)
{
    makeWav("a.wav");
    Result result = run({"waveform", path("a.wav"), "-o", path("a.png"), "--json", "--quiet"});
    EXPECT_EQ(result.out, "{\"ok\": true, \"cancelled\": false, \"waveform\": \"" + path("a.png") +
                              "\", \"error\": null, \"width\": 1000, \"height\": 200, \"seconds\": 2}\n");
    EXPECT_THAT(result.err, IsEmpty());
    result = run({"convert", path("a.wav"), "-o", path("out"), "--json", "--quiet"});
    EXPECT_THAT(result.out, StartsWith("{\"ok\": true, \"cancelled\": false, \"sound\": \"" + path("out/a.m4a") +
                                       "\", \"error\": null, \"seconds\": 2, \"bytes\": "));
    EXPECT_THAT(result.err, IsEmpty());
    result = run({"trim", path("out/a.m4a"), "-o", path("b.m4a"), "--range", "1-", "--json"});
    EXPECT_THAT(result.out, HasSubstr("\"seconds\": 1, \"bytes\": "));
    result = run({"trim", path("missing.m4a"), "-o", path("c.m4a"), "--range", "1-", "--json"});
    EXPECT_EQ(result.status, kExitBadInput);
    EXPECT_EQ(result.out, "{\"ok\": false, \"cancelled\": false, \"sound\": null, \"error\": \"" + path("missing.m4a") +
                              ": No such file or directory\"}\n");
}

TEST_F(SoundCommands, SoundsThatCannotBeUsedAreNamedWithTheReason)
{
    writeBytes(path("text.mp3"), "no music at all\n");
    writeBytes(path("empty.mp3"), "");
    makeWav("a.wav");
    const struct {
        std::string file;
        std::string range;
        std::string reason;
    } rows[] = {
        {"text.mp3", "0-1", "is no sound file that can be read"},
        {"empty.mp3", "0-1", "is empty"},
        {"missing.mp3", "0-1", "No such file or directory"},
        {"", "0-1", "is not a regular file"},
        {"a.wav", "3-4", "is only 2 s long, and cannot be played from 3 s"},
        {"a.wav", "1-4", "is only 2 s long, and cannot be played up to 4 s"},
    };
    const auto before = files();
    for (const auto& row : rows) {
        const std::vector<std::vector<std::string>> commands = {
            {"waveform", path(row.file), "--range", row.range, "-o", path("x.png")},
            {"convert", path(row.file), "--range", row.range, "-o", path("new/out")},
            {"trim", path(row.file), "--range", row.range, "-o", path("x.m4a")}};
        for (const auto& command : commands) {
            const Result result = run(command);
            EXPECT_EQ(result.status, kExitBadInput);
            EXPECT_EQ(result.err, "stillora: " + path(row.file) + ": " + row.reason + "\n");
            EXPECT_THAT(result.out, IsEmpty());
        }
    }
    EXPECT_EQ(files(), before);
    EXPECT_FALSE(std::filesystem::exists(path("new")));
}

TEST_F(SoundCommands, WaveformOfADamagedSoundIsRefusedAndNoPictureIsMade)
{
    convertWithFFmpeg(makeWav("source.wav", 10), "-c:a aac -movflags +faststart", path("a.m4a"));
    std::filesystem::resize_file(path("a.m4a"), std::filesystem::file_size(path("a.m4a")) / 2);
    const Result result = run({"waveform", path("a.m4a"), "-o", path("a.png")});
    EXPECT_EQ(result.status, kExitBadInput);
    EXPECT_EQ(result.err, "stillora: " + path("a.m4a") + ": error reading asset: " + path("a.m4a") +
                              " ends before its sound does\n");
    EXPECT_FALSE(std::filesystem::exists(path("a.png")));
}

TEST_F(SoundCommands, WaveformInAFolderThatIsNotThereFailsAndNamesIt)
{
    const Result result = run({"waveform", makeWav("a.wav"), "-o", path("missing/a.png")});
    EXPECT_EQ(result.status, kExitFailed);
    EXPECT_THAT(result.err, HasSubstr(path("missing")));
    EXPECT_THAT(result.out, IsEmpty());
}

TEST_F(SoundCommands, ConvertMakesAnM4AOfTheSoundsName)
{
    makeWav("Song.final.wav");
    const Result result = run({"convert", path("Song.final.wav"), "-o", path("new/out")});
    EXPECT_EQ(result.status, kExitDone) << result.err;
    EXPECT_EQ(result.out, path("new/out/Song.final.m4a") + "\n");
    EXPECT_THAT(result.err, StartsWith("stillora: 2 s, "));
    EXPECT_THAT(files(), UnorderedElementsAre("Song.final.wav", "new/out/Song.final.m4a"));
    EXPECT_EQ(probe(path("new/out/Song.final.m4a"), "a", "codec_name"), "aac");
    EXPECT_NEAR(static_cast<double>(framesOf(path("new/out/Song.final.m4a"))), 2 * kRate, 1024);
}

TEST_F(SoundCommands, ConvertNeverReplacesAFile)
{
    makeM4A("a.m4a");
    const std::string before = readBytes(path("a.m4a"));
    EXPECT_EQ(run({"convert", path("a.m4a"), "-o", path("")}).out, path("a-2.m4a") + "\n");
    EXPECT_EQ(run({"convert", path("a.m4a"), "-o", path(""), "--range", "0.5-1"}).out, path("a-3.m4a") + "\n");
    EXPECT_EQ(readBytes(path("a.m4a")), before);
    EXPECT_THAT(files(), UnorderedElementsAre("a.m4a", "a-2.m4a", "a-3.m4a"));
    EXPECT_NEAR(static_cast<double>(framesOf(path("a-3.m4a"))), kRate / 2, 1024);
}

TEST_F(SoundCommands, ConvertMakesTheFileThatIsNamed)
{
    makeWav("a.wav");
    const Result result = run({"convert", path("a.wav"), "-o", path("Refrain.M4A"), "--range", "0.5-1.5"});
    EXPECT_EQ(result.status, kExitDone) << result.err;
    EXPECT_EQ(result.out, path("Refrain.M4A") + "\n");
    EXPECT_THAT(files(), UnorderedElementsAre("a.wav", "Refrain.M4A"));
    EXPECT_NEAR(static_cast<double>(framesOf(path("Refrain.M4A"))), kRate, 1024);
    const Result folder = run({"convert", path("a.wav"), "-o", path("in.m4a/")});
    EXPECT_EQ(folder.out, path("in.m4a/a.m4a") + "\n") << "a name that ends in a slash is a folder's";
}

TEST_F(SoundCommands, ConvertNeverReplacesTheFileThatIsNamed)
{
    makeWav("a.wav");
    writeBytes(path("b.m4a"), "mine");
    std::filesystem::create_symlink("nowhere", path("link.m4a"));
    std::filesystem::create_directory(path("folder.m4a"));
    for (const char* taken : {"b.m4a", "link.m4a", "folder.m4a"}) {
        const Result result = run({"convert", path("a.wav"), "-o", path(taken)});
        EXPECT_EQ(result.status, kExitFailed);
        EXPECT_EQ(result.err, "stillora: " + path(taken) + " exists already, and is not replaced\n");
    }
    EXPECT_EQ(readBytes(path("b.m4a")), "mine");
    const Result json = run({"convert", path("a.wav"), "-o", path("b.m4a"), "--json"});
    EXPECT_THAT(json.out, HasSubstr("\"error\": \"" + path("b.m4a") + " exists already"));
}

TEST_F(SoundCommands, ConvertIntoAFileFails)
{
    makeWav("a.wav");
    const Result result = run({"convert", path("a.wav"), "-o", path("a.wav")});
    EXPECT_EQ(result.status, kExitFailed);
    EXPECT_THAT(result.err, HasSubstr(path("a.wav")));
    EXPECT_THAT(files(), ElementsAre("a.wav"));
}

TEST_F(SoundCommands, TrimCutsWithoutEncodingAnew)
{
    makeM4A("a.m4a", 3);
    const Result result = run({"trim", path("a.m4a"), "--range", "1-2.5", "-o", path("cut.m4a")});
    EXPECT_EQ(result.status, kExitDone) << result.err;
    EXPECT_EQ(result.out, path("cut.m4a") + "\n");
    EXPECT_THAT(result.err, StartsWith("stillora: 1.5 s, "));
    EXPECT_THAT(files(), UnorderedElementsAre("a.m4a", "cut.m4a"));
    // The packets are those of the original, so that the samples are too.
    const Sound whole = decodeWithFFmpeg(path("a.m4a"));
    const Sound cut = decodeWithFFmpeg(path("cut.m4a"));
    ASSERT_GE(cut.frames(), static_cast<size_t>(kRate * 3 / 2));
    EXPECT_GT(signalToNoise(cut, 2048, whole, kRate + 2048, kRate), 60);
}

TEST_F(SoundCommands, TrimNeverReplacesAFile)
{
    makeM4A("a.m4a");
    writeBytes(path("b.m4a"), "mine");
    std::filesystem::create_symlink("nowhere", path("link.m4a"));
    for (const char* taken : {"a.m4a", "b.m4a", "link.m4a"}) {
        const Result result = run({"trim", path("a.m4a"), "--range", "0-1", "-o", path(taken)});
        EXPECT_EQ(result.status, kExitFailed);
        EXPECT_EQ(result.err, "stillora: " + path(taken) + " exists already, and is not replaced\n");
    }
    EXPECT_EQ(readBytes(path("b.m4a")), "mine");
}

TEST_F(SoundCommands, TrimOfASoundThatCannotBeCopiedSaysWhatToDo)
{
    const Result result = run({"trim", makeWav("a.wav"), "--range", "0-1", "-o", path("b.m4a")});
    EXPECT_EQ(result.status, kExitBadInput);
    EXPECT_THAT(result.err, HasSubstr("\"stillora convert\""));
    EXPECT_THAT(files(), ElementsAre("a.wav"));
}

TEST_F(SoundCommands, OutputThatCannotBeWrittenIsAFailure)
{
    makeWav("a.wav");
    const std::string program = shellWord(STILLORA_PROGRAM);
    const std::string command = program + " waveform " + shellWord(path("a.wav")) + " -o " + shellWord(path("a.png")) +
                                " 2>&1 >/dev/full; echo $?";
    EXPECT_THAT(outputOf(command), EndsWith("could not be written to standard output\n1\n"));
}

TEST_F(SoundCommands, ConvertThatIsStoppedLeavesNothingBehind)
{
    // Longer than it takes to see that it has begun.
    makeWav("a.wav", 1200);
    const pid_t pid = start({"convert", path("a.wav"), "-o", path("new")});
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!std::filesystem::exists(path("new")) && std::chrono::steady_clock::now() < deadline)
        poll(nullptr, 0, 1);
    EXPECT_EQ(kill(pid, SIGINT), 0);
    const Result result = finish(pid);
    EXPECT_EQ(result.status, kExitSignalled + SIGINT);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_EQ(result.err, "stillora: stopped; nothing was left behind\n");
    EXPECT_THAT(files(), ElementsAre("a.wav"));
    EXPECT_FALSE(std::filesystem::exists(path("new")));
}

} // namespace
