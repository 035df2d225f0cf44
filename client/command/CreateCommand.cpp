#include "client/command/CreateCommand.h"

#include "client/ClientError.h"
#include "client/JSONWriter.h"
#include "client/Localization.h"
#include "client/MovieMaker.h"
#include "client/MoviePlan.h"
#include "client/MovieTitle.h"
#include "client/PhotoCheck.h"
#include "client/PhotoListing.h"
#include "client/SoundCheck.h"
#include "client/Text.h"
#include "client/command/ExitStatus.h"
#include "client/command/SignalWatch.h"
#include "client/command/SoundSentence.h"
#include "client/command/Terminal.h"
#include "util/MORPalvineCommons.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace {

using Clock = std::chrono::steady_clock;

/// Seconds in which the bar of a stage that cannot tell how far it is goes there and back.
constexpr double kTurnSeconds = 3;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Tells the user how far the movie is: a line on the terminal, or JSON on standard output.
class ProgressTeller final : public MovieMaker::Observer {
public:
    ProgressTeller(Terminal& terminal, bool isJSON) : terminal_(terminal), isJSON_(isJSON) {}

    void photosChecked(size_t done, size_t total)
    {
        content_.title = localized("Checking the photos");
        content_.fraction = static_cast<double>(done) / static_cast<double>(total);
        content_.count = fmt::format("{}/{}", done, total);
        terminal_.drawProgress(content_);
    }

    void progressChanged(const MovieProgress& progress) override
    {
        if (isJSON_)
            writeJSON(progress);
        content_.title = localized(progress.stage);
        const bool hasFraction = progress.isDeterminate && progress.total > 0;
        content_.fraction = hasFraction ? std::optional(progress.progress / progress.total) : std::nullopt;
        // A total of 1 is a fraction, not a count.
        content_.count = hasFraction && progress.total > 1
                             ? fmt::format("{:.0f}/{:.0f}", progress.progress, progress.total)
                             : std::string();
        secondsLeft_ = progress.secondsLeft;
        lastUpdate_ = Clock::now();
        timePassed();
    }

    void timePassed() override
    {
        if (content_.title.empty())
            content_.title = localized("Starting");
        content_.timeLeft.clear();
        // An estimate that has run out says nothing any more.
        if (const double left = secondsLeft_.value_or(0) - secondsSince(lastUpdate_); left > 0)
            content_.timeLeft = fmt::format(fmt::runtime(localized("{} left")), clockText(left));
        content_.turns = secondsSince(start_) / kTurnSeconds;
        terminal_.drawProgress(content_);
    }

    /// Between the check of the photos and the service's first word.
    void serviceStarts()
    {
        content_ = {};
        content_.title = localized("Starting");
    }

private:
    void writeJSON(const MovieProgress& progress) const
    {
        JSONWriter json;
        json.add("event", "progress").add("stage", progress.stage).add("title", localized(progress.stage));
        json.add("determinate", progress.isDeterminate).add("progress", progress.progress).add("total", progress.total);
        if (progress.secondsLeft)
            json.add("secondsLeft", *progress.secondsLeft);
        else
            json.addNull("secondsLeft");
        fmt::print("{}\n", json.text());
        std::fflush(stdout);
    }

    Terminal& terminal_;
    const bool isJSON_;
    const Clock::time_point start_ = Clock::now();
    ProgressLineContent content_;
    std::optional<double> secondsLeft_;
    Clock::time_point lastUpdate_ = start_;
};

/// One run of the command.
class Creation final {
public:
    explicit Creation(const CreateOptions& options)
        : options_(options), terminal_(options.isQuiet || options.isJSON ? Terminal::ProgressLines::Hidden
                                                                         : Terminal::ProgressLines::Shown),
          teller_(terminal_, options.isJSON), signals_(maker_)
    {}

    int run();

private:
    int makeMovie(std::vector<PhotoFacts> photos, std::vector<SoundFacts> sounds);
    int refuseBadInput(const std::vector<BadPhoto>& photos, const std::vector<BadSound>& sounds);
    int finish(const MovieRequest& request, const MovieOutcome& outcome);
    int fail(ExitStatus status, const std::string& reason);
    int stopped();
    void writeResult(JSONWriter result);

    void note(const std::string& text)
    {
        if (!options_.isQuiet)
            terminal_.writeLine("stillora: " + text);
    }
    void complain(const std::string& text) { terminal_.writeLine("stillora: " + text); }

    const CreateOptions& options_;
    MovieMaker maker_;
    Terminal terminal_;
    ProgressTeller teller_;
    const SignalWatch signals_;
};

int Creation::run()
{
    PhotoListing listing = listPhotos(options_.photos);
    for (const std::string& text : listing.notes)
        note(text);
    CheckedPhotos checked = checkPhotos(listing.candidates, [&](size_t done) {
        teller_.photosChecked(done, listing.candidates.size());
        return !maker_.isCancelled();
    });
    terminal_.clearProgress();
    if (checked.isCancelled)
        return stopped();
    if (checked.passedOver > 0)
        note(checked.passedOver == 1
                 ? "1 more file that is no photo was passed over"
                 : fmt::format("{} more files that are no photos were passed over", checked.passedOver));
    std::vector<BadPhoto> bad = std::move(listing.bad);
    bad.insert(bad.end(), checked.bad.begin(), checked.bad.end());
    CheckedSounds sounds = checkSounds(options_.sounds);
    if ((!bad.empty() && !options_.skipsBad) || !sounds.bad.empty())
        return refuseBadInput(bad, sounds.bad);
    for (const BadPhoto& photo : bad)
        note(fmt::format("left out: {}: {}", photo.path, photo.reason));
    if (checked.good.empty())
        return fail(kExitBadInput, bad.empty()
                                       ? fmt::format("there are no photos in {}", fmt::join(options_.photos, ", "))
                                       : "no photo can be used");
    return makeMovie(std::move(checked.good), std::move(sounds.good));
}

int Creation::refuseBadInput(const std::vector<BadPhoto>& photos, const std::vector<BadSound>& sounds)
{
    const auto tell = [&](const auto& files) {
        std::vector<JSONWriter> list;
        for (const auto& file : files) {
            complain(fmt::format("{}: {}", file.path, file.reason));
            list.push_back(JSONWriter().add("path", file.path).add("reason", file.reason));
        }
        return list;
    };
    const auto counted = [](size_t count, const char* name) {
        return fmt::format("{} {}{} cannot be used", count, name, count == 1 ? "" : "s");
    };
    const bool areBadPhotosRefused = !options_.skipsBad && !photos.empty();
    const auto badPhotos = tell(areBadPhotosRefused ? photos : std::vector<BadPhoto>());
    const auto badSounds = tell(sounds);
    std::string reason = areBadPhotosRefused ? counted(photos.size(), "photo") : "";
    if (!sounds.empty())
        reason += (reason.empty() ? "" : ", ") + counted(sounds.size(), "sound");
    complain(reason + (areBadPhotosRefused ? "; --skip-bad leaves out photos that cannot" : ""));
    JSONWriter result;
    result.add("ok", false).add("cancelled", false).addNull("movie").add("error", reason);
    writeResult(result.add("badPhotos", badPhotos).add("badSounds", badSounds));
    return kExitBadInput;
}

int Creation::makeMovie(std::vector<PhotoFacts> photos, std::vector<SoundFacts> sounds)
{
    if (options_.codec != "avc1")
        note(fmt::format("browsers do not show the codec {}; avc1 plays everywhere", options_.codec));

    MovieWish wish;
    wish.photos = std::move(photos);
    wish.secondsPerPhoto = options_.seconds.value_or(kDefaultSecondsPerPhoto);
    wish.sounds = std::move(sounds);
    wish.loopsSounds = options_.loopsSounds;
    wish.fitsMusic = options_.fitsMusic;
    wish.fillsSilence = options_.fillsSilence;
    platform::NSError error;
    const auto plan = planMovie(wish, &error);
    if (!plan)
        return fail(kExitUsage, error.localizedDescription);

    const auto saveFolder = options_.saveFolder ? platform::NSURL::fileURLWithPath(*options_.saveFolder, true)
                                                : MORPalvineCommons::customSaveDirectory();
    const std::string title = options_.title.value_or(titleForPhotos(wish.photos));
    if (const std::string sentence = soundSentence(*plan, wish.sounds); !sentence.empty() && !wish.sounds.empty())
        note(sentence);
    MovieRequest request{std::move(wish.photos), std::move(wish.sounds),  *plan, options_.codec,
                         options_.quality,       options_.reducesBorders, title, saveFolder};
    teller_.serviceStarts();
    const MovieOutcome outcome = maker_.makeMovie(request, teller_);
    terminal_.clearProgress();
    return finish(request, outcome);
}

int Creation::finish(const MovieRequest& request, const MovieOutcome& outcome)
{
    if (outcome.kind == MovieOutcome::Kind::Cancelled)
        return stopped();
    if (outcome.kind == MovieOutcome::Kind::Failed) {
        const bool isStart =
            outcome.error.domain == kClientErrorDomain &&
            (outcome.error.code == kClientErrorServiceNotFound || outcome.error.code == kClientErrorServiceNotStarted);
        return fail(isStart ? kExitNoService : kExitFailed, outcome.error.localizedDescription);
    }
    const std::string& path = outcome.movie->path();
    const platform::CGSize size = frameSizeForQuality(request.quality, request.photos);
    struct stat status = {};
    const double bytes = stat(path.c_str(), &status) == 0 ? static_cast<double>(status.st_size) : 0;
    for (const std::string& fault : outcome.faults)
        complain(fmt::format("the movie is not as it should be: {}", fault));
    note(fmt::format("{} {} of {}, {:.0f} x {:.0f}, {}, {}", request.photos.size(),
                     request.photos.size() == 1 ? "photo" : "photos", secondsText(request.plan.secondsPerPhoto),
                     size.width, size.height, secondsText(request.plan.totalVideoDuration), bytesText(bytes)));

    JSONWriter result;
    result.add("ok", outcome.faults.empty()).add("cancelled", false).add("movie", path).addNull("error");
    result.add("photos", static_cast<int64_t>(request.photos.size()))
        .add("secondsPerPhoto", request.plan.secondsPerPhoto);
    result.add("duration", request.plan.totalVideoDuration);
    if (const auto soundEnd = request.plan.soundEnd())
        result.add("soundEnd", *soundEnd).add("musicEnd", request.plan.musicEnd);
    else
        result.addNull("soundEnd").addNull("musicEnd");
    if (request.plan.fadeStart)
        result.add("fadeStart", *request.plan.fadeStart);
    else
        result.addNull("fadeStart");
    result.add("width", static_cast<int64_t>(size.width)).add("height", static_cast<int64_t>(size.height));
    result.add("codec", request.codec).add("bytes", static_cast<int64_t>(bytes)).add("faults", outcome.faults);
    if (options_.isJSON) {
        writeResult(result);
    } else {
        fmt::print("{}\n", path);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        return fail(kExitFailed, "the movie was made, but its path could not be written to standard output");
    return outcome.faults.empty() ? kExitDone : kExitFaultyMovie;
}

int Creation::fail(ExitStatus status, const std::string& reason)
{
    complain(reason);
    writeResult(JSONWriter().add("ok", false).add("cancelled", false).addNull("movie").add("error", reason));
    return status;
}

int Creation::stopped()
{
    terminal_.clearProgress();
    note(localized("stopped; nothing was left behind"));
    writeResult(JSONWriter().add("ok", false).add("cancelled", true).addNull("movie").addNull("error"));
    return kExitSignalled + signals_.signal();
}

void Creation::writeResult(JSONWriter result)
{
    if (!options_.isJSON)
        return;
    // The event comes first, as in every line.
    const std::string members = result.text().substr(1);
    fmt::print("{{\"event\": \"result\", {}\n", members);
    std::fflush(stdout);
}

} // namespace

int runCreateCommand(const CreateOptions& options)
{
    return Creation(options).run();
}
