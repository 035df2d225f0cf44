// The real program, with a service that behaves as the test likes, on pipes and on a terminal.

#include "client/text/Text.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

constexpr auto kDeadline = 60s;

struct Result {
    /// Exit status, or minus the signal's number.
    int status = 0;
    std::string out;
    std::string err;
};

/// The lines that do not tell of photos that were looked into.
std::string withoutChecks(const std::string& output)
{
    std::istringstream lines(output);
    std::string rest;
    for (std::string line; std::getline(lines, line);)
        if (!line.starts_with(R"({"event": "check")"))
            rest += line + "\n";
    return rest;
}

/// The program as it runs, its standard error a pipe or a terminal.
class Running final {
public:
    enum class StandardError { Pipe, Terminal };

    Running(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment,
            StandardError kind, winsize size = {24, 100, 0, 0})
    {
        int out[2];
        EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
        int terminal = -1;
        int error[2] = {-1, -1};
        if (kind == StandardError::Terminal) {
            EXPECT_EQ(openpty(&error_, &terminal, nullptr, nullptr, &size), 0);
        } else {
            EXPECT_EQ(pipe2(error, O_CLOEXEC), 0);
            error_ = error[0];
            terminal = error[1];
        }
        std::vector<std::string> variables;
        for (char** each = environ; *each; ++each)
            if (!environment.contains(std::string(*each, strcspn(*each, "="))))
                variables.emplace_back(*each);
        for (const auto& [name, value] : environment)
            variables.push_back(name + "=" + value);
        std::vector<char*> environmentPointers;
        for (std::string& variable : variables)
            environmentPointers.push_back(variable.data());
        environmentPointers.push_back(nullptr);
        std::vector<std::string> words = arguments;
        words.insert(words.begin(), STILLORA_PROGRAM);
        std::vector<char*> argumentPointers;
        for (std::string& word : words)
            argumentPointers.push_back(word.data());
        argumentPointers.push_back(nullptr);

        pid_ = fork();
        if (pid_ == 0) {
            setsid();
            if (kind == StandardError::Terminal)
                ioctl(terminal, TIOCSCTTY, 0);
            dup2(kind == StandardError::Terminal ? terminal : open("/dev/null", O_RDONLY), STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            dup2(terminal, STDERR_FILENO);
            execve(STILLORA_PROGRAM, argumentPointers.data(), environmentPointers.data());
            _exit(127);
        }
        close(out[1]);
        close(terminal);
        out_ = out[0];
    }
    ~Running()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        closeAll();
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    int pid() const { return pid_; }
    void type(std::string_view keys)
    {
        EXPECT_EQ(write(error_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    void resize(unsigned short columns)
    {
        const winsize size{24, columns, 0, 0};
        EXPECT_EQ(ioctl(error_, TIOCSWINSZ, &size), 0);
    }
    void closeOutput()
    {
        close(out_);
        out_ = -1;
    }

    /// Reads until standard error holds a text.
    bool waitFor(std::string_view text)
    {
        return readUntil([&] { return result_.err.find(text) != std::string::npos; });
    }
    bool waitForOutput(std::string_view text)
    {
        return readUntil([&] { return result_.out.find(text) != std::string::npos; });
    }
    const Result& soFar() const { return result_; }

    /// Whether it ends within so long; it still has to be finished.
    bool hasEnded(std::chrono::milliseconds limit) const
    {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        siginfo_t info = {};
        while (waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT | WNOHANG) == 0 && info.si_pid == 0) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            poll(nullptr, 0, 1);
        }
        return true;
    }

    Result finish()
    {
        readUntil([] { return false; });
        if (!hasEnded(kDeadline)) {
            ADD_FAILURE() << "the program does not end";
            kill(pid_, SIGKILL);
        }
        int status = 0;
        EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
        pid_ = -1;
        result_.status = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
        return result_;
    }

private:
    bool readUntil(const std::function<bool()>& isDone)
    {
        const auto deadline = std::chrono::steady_clock::now() + kDeadline;
        while (!isDone()) {
            pollfd waits[] = {{out_, POLLIN, 0}, {error_, POLLIN, 0}};
            if ((out_ < 0 && error_ < 0) || std::chrono::steady_clock::now() > deadline)
                return false;
            poll(waits, 2, 1000);
            readOnce(out_, waits[0], result_.out);
            readOnce(error_, waits[1], result_.err);
        }
        return true;
    }

    static void readOnce(int& descriptor, const pollfd& wait, std::string& text)
    {
        if (descriptor < 0 || !wait.revents)
            return;
        char buffer[4096];
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count > 0) {
            text.append(buffer, static_cast<size_t>(count));
        } else {
            // A terminal that nobody has open any more gives an error.
            close(descriptor);
            descriptor = -1;
        }
    }

    void closeAll()
    {
        for (int* each : {&out_, &error_})
            if (*each >= 0)
                close(*each);
    }

    pid_t pid_ = -1;
    int out_ = -1;
    int error_ = -1;
    Result result_;
};

class Program : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        shared_ = new TemporaryFolder;
        const std::string command = "ffmpeg -v error -f lavfi -i testsrc=size=320x240:rate=1 -frames:v 6 -q:v 3 " +
                                    shared_->makeFolder("Rome") + "/img%d.jpg";
        ASSERT_EQ(std::system(command.c_str()), 0);
        const std::string movie =
            "ffmpeg -v error -f lavfi -i testsrc=size=320x240:rate=1/4 -f lavfi -i anullsrc=r=44100:cl=mono "
            "-t 24 -c:v libx264 -g 1 -pix_fmt yuv420p -c:a aac -video_track_timescale 10000 -movflags +faststart " +
            shared_->path("made.mov");
        ASSERT_EQ(std::system(movie.c_str()), 0);
    }
    static void TearDownTestSuite()
    {
        delete shared_;
        shared_ = nullptr;
    }

    std::map<std::string, std::string> environment(const std::string& behaviour) const
    {
        return {{"STILLORA_VIDEO_CREATOR", STILLORA_PRETENDED_SERVICE},
                {"STILLORA_PRETENDED_SERVICE", behaviour},
                {"STILLORA_PRETENDED_REQUEST", other_.path("request")},
                {"STILLORA_PRETENDED_MOVIE", shared_->path("made.mov")},
                {"HOME", other_.path()},
                {"XDG_CONFIG_HOME", other_.path("config")},
                {"LC_ALL", "C.UTF-8"},
                {"LANGUAGE", ""},
                {"TERM", "xterm"}};
    }

    Result run(const std::string& behaviour, std::vector<std::string> arguments) const
    {
        return Running(arguments, environment(behaviour), Running::StandardError::Pipe).finish();
    }

    std::vector<std::string> create(std::vector<std::string> more = {}) const
    {
        std::vector<std::string> arguments{"create", shared_->path("Rome"), "--save", save_.path()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    std::vector<std::string> saved() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(save_.path()))
            names.push_back(entry.path().native().substr(save_.path().size() + 1));
        return names;
    }

    static inline TemporaryFolder* shared_ = nullptr;
    const TemporaryFolder save_;
    const TemporaryFolder other_;
};

TEST_F(Program, WritesThePathOfTheMovieAloneToStandardOutput)
{
    const Result result = run("makes", create());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, save_.path("Rome.mov") + "\n");
    EXPECT_EQ(result.err, "stillora: 6 photos of 4 s, 320 x 240, 24 s, " +
                              bytesText(static_cast<double>(std::filesystem::file_size(save_.path("Rome.mov")))) +
                              "\n");
    EXPECT_THAT(saved(), ElementsAre("Rome.mov"));
}

TEST_F(Program, IsSilentWhenQuiet)
{
    const Result result = run("makes", create({"--quiet"}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, save_.path("Rome.mov") + "\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(Program, WritesAnObjectForEachUpdateAndLastTheResult)
{
    const Result result = run("makes", create({"--json"}));
    EXPECT_EQ(result.status, 0);
    std::istringstream lines(withoutChecks(result.out));
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    // Too little is done to tell how long it takes, unless the machine is very slow; the service's word is not taken.
    EXPECT_THAT(line, StartsWith(R"({"event": "progress", "stage": "VideoCreationTitleRenderingVideo", )"
                                 R"("title": "Rendering the photos", )"
                                 R"("determinate": true, "progress": 1, "total": 4, "secondsLeft": )"));
    EXPECT_THAT(line, Not(HasSubstr("2.5")));
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_THAT(line, StartsWith(R"({"event": "result", "ok": true, "cancelled": false, "movie": ")" +
                                 save_.path("Rome.mov") + R"(", "error": null, "photos": 6, "secondsPerPhoto": 4, )"));
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(Program, TellsThePlanAndMakesNothingWhereThatIsAsked)
{
    const Result result = run("makes", {"create", shared_->path("Rome"), "--dry-run"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, MatchesRegex("Rome: 6 photos of 4 s, 24 s\n320 x 240: suits every photo\nsound: silence\n"
                                         "about [0-9.]+ [kM]B, made in about [0-9.]+ s\n"
                                         "   1  " +
                                         shared_->path("Rome/") + "(.|\n)*"));
    EXPECT_EQ(result.err, "");
    EXPECT_FALSE(std::filesystem::exists(other_.path("request"))) << "the service was not asked";
    EXPECT_FALSE(std::filesystem::exists(other_.path("Movies"))) << "no folder was made";
    const Result json = run("makes", create({"--dry-run", "--json"}));
    EXPECT_EQ(json.status, 0);
    EXPECT_THAT(json.out, HasSubstr(R"({"event": "check", "done": 6, "total": 6})"));
    EXPECT_THAT(withoutChecks(json.out),
                StartsWith(R"({"event": "result", "ok": true, "cancelled": false, "movie": null, "error": null, )"
                           R"("dryRun": true, "title": "Rome", "photos": 6, "secondsPerPhoto": 4, )"));
    EXPECT_THAT(
        json.out,
        AllOf(
            HasSubstr(R"("heightBy": "auto", "order": [")" + shared_->path("Rome/")),
            HasSubstr(
                R"("sounds": [{"path": null, "start": 0, "seconds": 24.25}], "skipped": [], "passedOver": [], "estimatedBytes": )"),
            HasSubstr(R"(, "estimatedSeconds": )")));
    EXPECT_EQ(run("makes", create({other_.makeFile("empty.png", ""), "--dry-run"})).status, 3);
    EXPECT_EQ(run("makes", create({"--dry-run", "--seconds", "0"})).status, 2);
    EXPECT_THAT(saved(), IsEmpty());
}

TEST_F(Program, SavesIntoTheUsersFolderByDefault)
{
    const Result result = run("makes", {"create", shared_->path("Rome")});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, other_.path("Movies/Stillora/Rome.mov\n"));
}

TEST_F(Program, NamesEveryBadPhotoBeforeItStartsAnything)
{
    const std::string text = other_.makeFile("text.jpg", "Dear diary");
    const std::string empty = other_.makeFile("empty.png", "");
    const Result result = run("makes", create({text, empty, other_.path("gone.jpg")}));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, AllOf(HasSubstr("stillora: " + text + ": "), HasSubstr(empty + ": is empty\n"),
                                  HasSubstr(other_.path("gone.jpg") + ": No such file or directory\n"),
                                  HasSubstr("3 photos cannot be used; --skip-bad leaves out photos that cannot\n")));
    EXPECT_FALSE(std::filesystem::exists(other_.path("request"))) << "the service was not asked";
    EXPECT_THAT(saved(), IsEmpty());
}

TEST_F(Program, HintsAtNoWayOutThatLeadsNowhere)
{
    const std::string text = other_.makeFile("text.jpg", "Dear diary");
    const Result missing = run("makes", create({other_.path("gone.jpg")}));
    EXPECT_THAT(missing.err, EndsWith("stillora: 1 photo cannot be used\n"));
    const Result nothing = run("makes", {"create", text, "--save", save_.path()});
    EXPECT_THAT(nothing.err, EndsWith("stillora: 1 photo cannot be used\n")) << "nothing would be left";
    const Result one = run("makes", create({text}));
    EXPECT_THAT(one.err, HasSubstr("; --skip-bad leaves out photos that cannot\n"));
}

TEST_F(Program, TellsBadPhotosInItsResultToo)
{
    const Result result = run("makes", create({other_.makeFile("empty.png", ""), "--json"}));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(withoutChecks(result.out),
              R"({"event": "result", "ok": false, "cancelled": false, "movie": null, "error": )"
              R"("1 photo cannot be used", "badPhotos": [{"path": ")" +
                  other_.path("empty.png") + "\", \"reason\": \"is empty\"}], \"badSounds\": []}\n");
}

TEST_F(Program, LeavesBadPhotosOutWhenToldTo)
{
    const Result result = run("makes", create({other_.makeFile("empty.png", ""), "--skip-bad"}));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("left out: " + other_.path("empty.png") + ": is empty"));
}

TEST_F(Program, NamesEveryBadSoundBeforeItStartsAnything)
{
    const std::string text = other_.makeFile("text.mp3", "la la la");
    const Result result =
        run("makes", create({"--soundtrack", text + "@1-2", "--soundtrack", other_.path("gone.mp3")}));
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, AllOf(HasSubstr(text + ": is no sound file that can be read\n"),
                                  HasSubstr(other_.path("gone.mp3") + ": No such file or directory\n"),
                                  HasSubstr("stillora: 2 sounds cannot be used\n")));
    EXPECT_FALSE(std::filesystem::exists(other_.path("request"))) << "the service was not asked";
}

TEST_F(Program, TellsWhatWillBeHeardBeforeItStarts)
{
    const std::string song = shared_->path("song.wav");
    ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i sine=duration=40 " + song).c_str()), 0);
    const Result result = run("fails", create({"--soundtrack", song + "@0:10-"}));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "stillora: sound: song.wav from 0:10 for 0:24; it fades from 0:19 to 0:24\n"
                          "stillora: song.mp3 is damaged\n");
}

TEST_F(Program, RefusesToMakeAMovieOfNothing)
{
    const std::string empty = other_.makeFile("empty.png", "");
    EXPECT_EQ(run("makes", {"create", empty, "--skip-bad", "--save", save_.path()}).status, 3);
    const Result result = run("makes", {"create", other_.makeFolder("folder"), "--save", save_.path()});
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, HasSubstr(other_.path("folder") + ": the folder holds no photos"));
    other_.makeFile("texts/README", "words");
    const Result texts = run("makes", {"create", other_.path("texts"), "--save", save_.path()});
    EXPECT_EQ(texts.status, 3);
    EXPECT_THAT(texts.err, HasSubstr("no photos in " + other_.path("texts")));
}

TEST_F(Program, CannotBeToldToMoveTheCursorByAFileName)
{
    const std::string name = other_.makeFile("a\x1b[2J\nb.jpg", "");
    const Result result = run("makes", create({name}));
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.err, AllOf(HasSubstr("a?[2J?b.jpg"), Not(HasSubstr("\x1b"))));
}

TEST_F(Program, SaysWhatIsWrongByItsExitStatus)
{
    EXPECT_EQ(run("makes", {}).status, 2);
    EXPECT_EQ(run("makes", {"create"}).status, 2);
    EXPECT_EQ(run("makes", create({"--codec", "divx"})).status, 2);
    EXPECT_EQ(run("fails", create()).status, 1);
    EXPECT_EQ(run("shrugs", create()).status, 1);
    EXPECT_EQ(run("dies", create()).status, 1);
    EXPECT_EQ(run("refuses", create()).status, 4);
    EXPECT_EQ(run("makes", create({"--seconds", "5"})).status, 5) << "the movie's pictures stand for four";
    EXPECT_EQ(run("makes", {"--help"}).status, 0);
}

TEST_F(Program, SaysWhatIsOffAboutAMovieAndNamesItAllTheSame)
{
    const Result result = run("makes", create({"--quality", "720"}));
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.out, save_.path("Rome.mov") + "\n");
    EXPECT_THAT(result.err, HasSubstr("the movie is not as it should be: its size is 320 x 240 instead of 1280 x 720"));
}

TEST_F(Program, WarnsOfCodecsThatBrowsersDoNotShow)
{
    EXPECT_THAT(run("fails", create({"--codec", "jpeg"})).err, HasSubstr("browsers do not show the codec jpeg"));
    EXPECT_THAT(run("fails", create()).err, Not(HasSubstr("browsers")));
}

TEST_F(Program, EndsByEachSignalWithItsOwnStatus)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Running program(create({"--json"}), environment("waits"), Running::StandardError::Pipe);
        ASSERT_TRUE(program.waitForOutput("Rendering"));
        kill(program.pid(), signal);
        const Result result = program.finish();
        EXPECT_EQ(result.status, 128 + signal);
        EXPECT_THAT(result.out, EndsWith("{\"event\": \"result\", \"ok\": false, \"cancelled\": true, \"movie\": null, "
                                         "\"error\": null}\n"));
        EXPECT_THAT(saved(), IsEmpty());
    }
}

TEST_F(Program, EndsAServiceThatDoesNotAnswerACancel)
{
    // A busy machine may take longer, but not each time.
    auto quickest = 1h + 0ms;
    for (int attempt = 0; attempt < 5 && quickest > 1s; ++attempt) {
        Running program(create({"--json"}), environment("ignores"), Running::StandardError::Pipe);
        ASSERT_TRUE(program.waitForOutput("Rendering"));
        const auto start = std::chrono::steady_clock::now();
        kill(program.pid(), SIGINT);
        EXPECT_EQ(program.finish().status, 130);
        quickest =
            std::min(quickest, std::chrono::ceil<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start));
        EXPECT_THAT(saved(), IsEmpty());
    }
    EXPECT_LT(quickest, 1s);
}

TEST_F(Program, GoesOnWhenItsReaderGoesAway)
{
    Running program(create({"--json"}), environment("makes"), Running::StandardError::Pipe);
    program.closeOutput();
    EXPECT_EQ(program.finish().status, 1) << "the result could not be told";
    EXPECT_THAT(saved(), ElementsAre("Rome.mov"));
}

/// The last line on the screen of an endless terminal line: what follows the last erasure.
std::vector<std::string> drawnLines(const std::string& text)
{
    std::vector<std::string> lines;
    const std::string_view erase = "\r\x1b[K";
    for (size_t position = text.find(erase); position != std::string::npos;) {
        const size_t begin = position + erase.size();
        position = text.find(erase, begin);
        const std::string line = text.substr(begin, position == std::string::npos ? position : position - begin);
        // The terminal itself writes "^C" at an interruption.
        lines.push_back(line.substr(0, line.find_first_of("\r\n^")));
    }
    return lines;
}

TEST_F(Program, DrawsAProgressLineOnATerminalAndTakesItAway)
{
    Running program(create(), environment("makes"), Running::StandardError::Terminal);
    const Result result = program.finish();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, save_.path("Rome.mov") + "\n");
    const std::vector<std::string> lines = drawnLines(result.err);
    EXPECT_THAT(lines, testing::Contains(AllOf(HasSubstr("Checking the photos"), HasSubstr("█"))));
    EXPECT_THAT(lines,
                testing::Contains(StartsWith("Rendering the photos  ████████░░░░░░░░░░░░░░░░░░░░░░░░   25%  1/4")));
    ASSERT_FALSE(lines.empty());
    EXPECT_THAT(lines.back(), StartsWith("stillora: 6 photos")) << "nothing of it stays";
}

TEST_F(Program, FitsItsProgressLineIntoNarrowTerminals)
{
    std::setlocale(LC_CTYPE, "C.UTF-8");
    for (const unsigned short columns : {200, 80, 60, 40, 30, 20, 10, 5}) {
        Running program(create(), environment("waits"), Running::StandardError::Terminal, {24, columns, 0, 0});
        ASSERT_TRUE(program.waitFor(columns >= 30 ? "Rendering" : columns >= 10 ? "25%" : "\r\x1b[K"));
        program.type("\x03");
        const Result result = program.finish();
        EXPECT_EQ(result.status, 130);
        for (const std::string& line : drawnLines(result.err)) {
            // What stays may be as long as it likes.
            EXPECT_TRUE(displayWidth(line) < columns || line.starts_with("stillora: ")) << line;
        }
    }
}

TEST_F(Program, FollowsATerminalThatChangesItsSize)
{
    Running program(create(), environment("waits"), Running::StandardError::Terminal, {24, 100, 0, 0});
    ASSERT_TRUE(program.waitFor("25%  1/4"));
    const size_t before = program.soFar().err.size();
    program.resize(30);
    ASSERT_TRUE(program.waitFor("\r\x1b[KRendering the photos   25%"));
    EXPECT_GT(program.soFar().err.size(), before);
    program.type("\x03");
    EXPECT_EQ(program.finish().status, 130);
}

TEST_F(Program, DrawsInASCIIWhereTheLocaleHasNothingElse)
{
    auto plain = environment("makes");
    plain["LC_ALL"] = "C";
    Running program(create(), plain, Running::StandardError::Terminal);
    const Result result = program.finish();
    EXPECT_THAT(result.err, HasSubstr("Rendering the photos  [#######-----------------------]   25%"));
    EXPECT_TRUE(
        std::all_of(result.err.begin(), result.err.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; }));
}

TEST_F(Program, SpeaksTheUsersLanguage)
{
    auto german = environment("makes");
    german["LANGUAGE"] = "de";
    Running program(create(), german, Running::StandardError::Terminal);
    EXPECT_THAT(program.finish().err,
                AllOf(HasSubstr("Fotos werden geprüft"), HasSubstr("Fotos werden gerendert"), HasSubstr("zu 4 s")));
}

TEST_F(Program, WritesLinesWhereItCannotDrawOverALine)
{
    auto dumb = environment("makes");
    dumb["TERM"] = "dumb";
    const Result result = Running(create(), dumb, Running::StandardError::Terminal).finish();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, AllOf(HasSubstr("\nRendering the photos: 25%, 1/4"), HasSubstr("\nstillora: 6 photos"),
                                  Not(HasSubstr("\x1b")), Not(ContainsRegex("\r[^\n]"))));
}

TEST_F(Program, TellsItsProgressAsItIsAskedTo)
{
    const Result lines = run("makes", create({"--progress", "lines"}));
    EXPECT_EQ(lines.status, 0) << lines.err;
    EXPECT_THAT(lines.err, AllOf(HasSubstr("Rendering the photos: 25%, 1/4"), Not(HasSubstr("\x1b"))))
        << "in a log, too";
    EXPECT_THAT(run("makes", create({"--progress", "bar"})).err, StartsWith("stillora: 6 photos"))
        << "where there is no terminal nothing is drawn";
    const Result none =
        Running(create({"--progress", "none"}), environment("makes"), Running::StandardError::Terminal).finish();
    EXPECT_THAT(none.err, StartsWith("stillora: 6 photos"));
    EXPECT_EQ(run("makes", create({"--progress", "lines", "--quiet"})).err, "");
    EXPECT_EQ(run("makes", create({"--progress", "dots"})).status, 2);
}

TEST_F(Program, LeavesNoTraceOfItsLineAfterAnInterruption)
{
    Running program(create(), environment("waits"), Running::StandardError::Terminal);
    ASSERT_TRUE(program.waitFor("25%"));
    program.type("\x03");
    const Result result = program.finish();
    EXPECT_EQ(result.status, 130);
    EXPECT_THAT(result.err, EndsWith("\r\x1b[Kstillora: stopped; nothing was left behind\r\n"));
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(saved(), IsEmpty());
}

} // namespace
