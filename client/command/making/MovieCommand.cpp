#include "client/command/making/MovieCommand.h"

#include <stillora/Picture.h>

#include "client/command/making/FileIdentity.h"
#include "client/command/making/MoviePreparation.h"
#include "client/command/terminal/PhotoSentence.h"
#include "client/command/terminal/PlanText.h"
#include "client/command/terminal/Question.h"
#include "client/command/terminal/SoundSentence.h"
#include "client/forecast/MovieForecast.h"
#include "client/processes/WorkingClock.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/foundation/LocaleEncoding.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

using Clock = WorkingClock;

/// In which the bar of a stage that cannot tell how far it is goes there and back.
constexpr Seconds kTurn{3};

Seconds timeSince(Clock::time_point start)
{
    return Clock::now() - start;
}

std::string countOfBadInput(size_t photos, size_t sounds)
{
    std::vector<std::string> counts;
    if (photos > 0)
        counts.push_back(localizedCount(photos, "{} photo cannot be used", "{} photos cannot be used"));
    if (sounds > 0)
        counts.push_back(localizedCount(sounds, "{} sound cannot be used", "{} sounds cannot be used"));
    return fmt::format("{}", fmt::join(counts, ", "));
}

std::string withHint(const std::string& reason, MovieCommand::Hint hint)
{
    switch (hint) {
    case MovieCommand::Hint::SkipBad:
        return localized("{}; --skip-bad leaves out what cannot", reason);
    case MovieCommand::Hint::SkipBadPhotos:
        return localized("{}; --skip-bad leaves out photos that cannot", reason);
    case MovieCommand::Hint::None:
        break;
    }
    return reason;
}

/// What is known of a movie before it is made.
JSONWriter planAsJSON(const MovieRequest& request)
{
    const Size size = frameSizeForQuality(request.quality, request.photos);
    JSONWriter json;
    json.add("photos", static_cast<int64_t>(request.photos.size()))
        .add("secondsPerPhoto", request.plan.timePerPhoto.count());
    json.add("duration", request.plan.totalVideoDuration.count());
    if (const auto soundEnd = request.plan.soundEnd())
        json.add("soundEnd", soundEnd->count()).add("musicEnd", request.plan.musicEnd.count());
    else
        json.addNull("soundEnd").addNull("musicEnd");
    std::vector<std::string> leftOut;
    std::vector<JSONWriter> unheard;
    for (const size_t source : request.plan.leftOut) {
        leftOut.push_back(request.sounds[source].path.native());
        unheard.push_back(JSONWriter().add("path", leftOut.back()).add("reason", reasonOfUnheardSound()));
    }
    json.add("leftOut", leftOut).add("unheardSounds", unheard);
    if (request.plan.fadeStart)
        json.add("fadeStart", request.plan.fadeStart->count());
    else
        json.addNull("fadeStart");
    json.add("width", static_cast<int64_t>(size.width)).add("height", static_cast<int64_t>(size.height));
    std::vector<std::string> smaller;
    for (const size_t photo : photosSmallerThanFrame(size, request.photos))
        smaller.push_back(request.photos[photo].path.native());
    json.add("smallerThanFrame", smaller);
    json.add("codec", request.codec).add("web", request.use == MovieUse::Web);
    return json;
}

/// Each once, however often it is shown.
std::vector<BadFile> cutOffPhotos(const std::vector<PhotoFacts>& photos, const std::string& reason)
{
    std::vector<BadFile> damaged;
    std::set<std::filesystem::path> named;
    for (size_t i = 0; i < photos.size(); ++i)
        if (photos[i].isCutOff && named.insert(photos[i].path).second)
            damaged.push_back({photos[i].path, reason, i});
    return damaged;
}

/// The path is shown, and copied by those who read it.
std::filesystem::path withoutDots(const std::filesystem::path& path)
{
    std::error_code error;
    const auto absolute = std::filesystem::absolute(path, error);
    std::filesystem::path plain;
    // A ".." stays, as the folder before it may be a link.
    for (const auto& part : error ? path : absolute)
        if (part != ".")
            plain /= part;
    return plain;
}

} // namespace

void ProgressTeller::stepDone(const std::string& title, double fraction, size_t done, size_t total)
{
    content_.title = title;
    content_.fraction = fraction;
    content_.count = fmt::format("{}/{}", done, total);
    terminal_.drawProgress(content_);
}

void ProgressTeller::photosChecked(size_t done, size_t total)
{
    stepDone(localized("Checking the photos"), static_cast<double>(done) / static_cast<double>(total), done, total);
    if (!isJSON_ || std::exchange(checkedPhotos_, done) == done)
        return;
    fmt::print("{}\n", JSONWriter()
                           .add("event", "check")
                           .add("done", static_cast<int64_t>(done))
                           .add("total", static_cast<int64_t>(total))
                           .text());
    std::fflush(stdout);
}

void ProgressTeller::serviceStarts()
{
    content_ = {};
    content_.title = localized("Starting");
}

void ProgressTeller::progressChanged(const MovieProgress& progress)
{
    if (isJSON_)
        writeJSON(progress);
    content_.title = localized(progress.stage);
    const bool hasFraction = progress.isDeterminate && progress.total > 0;
    content_.fraction = hasFraction ? std::optional(progress.progress / progress.total) : std::nullopt;
    // A total of 1 is a fraction, not a count.
    content_.count = hasFraction && progress.total > 1 ? fmt::format("{:.0f}/{:.0f}", progress.progress, progress.total)
                                                       : std::string();
    timeLeft_ = progress.timeLeft;
    lastUpdate_ = Clock::now();
    timePassed();
}

void ProgressTeller::timePassed()
{
    if (content_.title.empty())
        content_.title = localized("Starting");
    content_.timeLeft.clear();
    // An estimate that has run out says nothing any more.
    if (const Seconds left = timeLeft_.value_or(Seconds(0)) - timeSince(lastUpdate_); left.count() > 0)
        content_.timeLeft = localized("{} left", clockText(left));
    content_.turns = timeSince(start_) / kTurn;
    terminal_.drawProgress(content_);
}

void ProgressTeller::writeJSON(const MovieProgress& progress) const
{
    JSONWriter json;
    json.add("event", "progress").add("stage", progress.stage).add("title", localized(progress.stage));
    json.add("determinate", progress.isDeterminate).add("progress", progress.progress).add("total", progress.total);
    if (progress.timeLeft)
        json.add("secondsLeft", progress.timeLeft->count());
    else
        json.addNull("secondsLeft");
    fmt::print("{}\n", json.text());
    std::fflush(stdout);
}

MovieCommand::MovieCommand(Wish wish)
    : CommandOutput((wish.form = ResultForm::Event, wish)), teller_(terminal_, wish.isJSON), signals_(maker_)
{}

bool MovieCommand::photosChecked(size_t done, size_t total)
{
    if (total > 0)
        teller_.photosChecked(done, total);
    return !isCancelled();
}

std::vector<BadFile> MovieCommand::damagedOf(const std::vector<PhotoFacts>& photos)
{
    return cutOffPhotos(photos, reasonOfCutOffPhoto());
}

std::vector<JSONWriter> MovieCommand::asJSON(const std::vector<BadFile>& files)
{
    std::vector<JSONWriter> list;
    for (const BadFile& file : files)
        list.push_back(JSONWriter().add("path", file.path.native()).add("reason", file.reason));
    return list;
}

void MovieCommand::noteDamaged(const std::vector<PhotoFacts>& photos)
{
    for (const BadFile& photo : damagedOf(photos))
        note(fmt::format("{}: {}", photo.path.native(), photo.reason));
}

std::vector<BadFile> MovieCommand::takeOutDamaged(std::vector<PhotoFacts>& photos)
{
    std::vector<BadFile> damaged = cutOffPhotos(photos, localized("is damaged: its end is missing"));
    std::erase_if(photos, [](const PhotoFacts& photo) { return photo.isCutOff; });
    return damaged;
}

void MovieCommand::tellBadInput(const std::vector<BadFile>& files)
{
    for (const BadFile& file : files)
        complain(fmt::format("{}: {}", file.path.native(), file.reason));
}

MovieCommand::BadInput MovieCommand::decideOnBadInput(const std::vector<BadFile>& photos,
                                                      const std::vector<BadFile>& sounds)
{
    if (!mayAsk() || !canAsk())
        return BadInput::Refused;
    tellBadInput(photos);
    tellBadInput(sounds);
    isBadInputTold_ = true;
    const std::string question = localizedCount(photos.size() + sounds.size(), "{1}; leave it out?",
                                                "{1}; leave them out?", countOfBadInput(photos.size(), sounds.size()));
    switch (ask("stillora: " + question, [this] { return isCancelled(); })) {
    case QuestionAnswer::Yes:
        return BadInput::LeftOut;
    case QuestionAnswer::Stopped:
        return BadInput::Stopped;
    case QuestionAnswer::No:
        break;
    }
    return BadInput::Refused;
}

void MovieCommand::leaveOut(const BadFile& file)
{
    note(localized("left out: {}: {}", file.path.native(), file.reason));
    leftOut_.push_back(file);
}

void MovieCommand::passOver(const std::string& sentence)
{
    note(sentence);
    passedOver_.push_back(sentence);
}

JSONWriter MovieCommand::omissionsAsJSON() const
{
    return JSONWriter().add("skipped", asJSON(leftOut_)).add("passedOver", passedOver_);
}

std::vector<PhotoFacts> MovieCommand::sorted(std::vector<PhotoFacts> photos, PhotoOrder order)
{
    SortedPhotos result = sortPhotos(std::move(photos), order);
    if (const std::string sentence = undatedSentence(result); !sentence.empty())
        note(sentence);
    return std::move(result.photos);
}

int MovieCommand::refuseBadInput(const std::vector<BadFile>& photos, const std::vector<BadFile>& sounds, Hint hint)
{
    if (!isBadInputTold_) {
        tellBadInput(photos);
        tellBadInput(sounds);
    }
    const std::string reason = countOfBadInput(photos.size(), sounds.size());
    return fail(kExitBadInput, withHint(reason, hint), reason,
                JSONWriter().add("badPhotos", asJSON(photos)).add("badSounds", asJSON(sounds)));
}

int MovieCommand::makeMovie(std::vector<PhotoFacts> photos, std::vector<SoundFacts> sounds,
                            const MovieSettings& settings, const std::string& title,
                            const std::optional<std::filesystem::path>& document,
                            const std::optional<std::filesystem::path>& saveFolder, MovieUse use, const Making& making)
{
    if (settings.codec != "avc1")
        note(localized("browsers do not show the codec {}; avc1 plays everywhere", settings.codec));

    auto planned = plannedMovie({.photos = std::move(photos),
                                 .sounds = std::move(sounds),
                                 .settings = settings,
                                 .title = title,
                                 .document = document,
                                 .use = use});
    if (!planned)
        return fail(kExitUsage, planned.error().message);
    MovieRequest& request = *planned;
    if (settings.quality == kAutomaticQuality) {
        const Size frame = frameSizeForQuality(settings.quality, request.photos);
        if (const std::string sentence = smallPhotosSentence(frame, request.photos); !sentence.empty())
            note(sentence);
    }
    const std::string sentence = soundSentence(request.plan, request.sounds);
    if (!making.isPlanAlone && !sentence.empty() && !request.sounds.empty())
        note(sentence);
    noteDamaged(request.photos);
    if (request.reducesBorders)
        noteMissingFaceDetector();
    if (making.isPlanAlone)
        return tellPlan(request, making.contactSheet);
    request.saveFolder = saveFolder ? withoutDots(*saveFolder) : usualSaveFolder();
    request.reusesFrames = !making.isFresh;
    teller_.serviceStarts();
    const Result<Movie> outcome = maker_.makeMovie(request, teller_);
    terminal_.clearProgress();
    return finish(request, outcome);
}

std::optional<int> MovieCommand::drawContactSheet(const MovieRequest& request, const std::filesystem::path& file)
{
    for (const PhotoFacts& photo : request.photos)
        if (areSameFile(photo.path.native(), file.native()))
            return fail(kExitUsage, localized("the contact sheet would replace the photo {}", photo.path.native()));
    const auto sheet = renderContactSheet(request, [this](size_t done, size_t total) {
        teller_.stepDone(localized("Drawing the frames"), static_cast<double>(done) / static_cast<double>(total), done,
                         total);
        return !isCancelled();
    });
    terminal_.clearProgress();
    if (isCancelled())
        return stopped();
    if (!sheet)
        return fail(kExitFailed, sheet.error().message);
    if (const std::string fault = save(*sheet, file); !fault.empty())
        return fail(kExitFailed, fault);
    return std::nullopt;
}

int MovieCommand::tellPlan(const MovieRequest& request, const std::optional<std::filesystem::path>& contactSheet)
{
    if (contactSheet)
        if (const auto failure = drawContactSheet(request, *contactSheet))
            return *failure;
    const auto forecast = forecastMovie(request, [this] { return !isCancelled(); });
    if (isCancelled())
        return stopped();
    if (!isJSON())
        return give(platform::encodedForLocale(planText(request, forecast)),
                    localized("the plan could not be written to standard output"));
    std::vector<std::string> order;
    for (const PhotoFacts& photo : request.photos)
        order.push_back(photo.path.native());
    std::vector<JSONWriter> sounds;
    for (const PlannedSound& piece : request.plan.sounds) {
        JSONWriter sound;
        piece.source ? sound.add("path", request.sounds[*piece.source].path.native()) : sound.addNull("path");
        piece.selection ? sound.add("start", piece.selection->start.count()) : sound.add("start", 0.0);
        sounds.push_back(sound.add("seconds", piece.length.count()));
    }
    JSONWriter result = JSONWriter().add("ok", true).add("cancelled", false).addNull("movie").addNull("error");
    result.add("dryRun", true).add("title", request.title).addAll(planAsJSON(request));
    result.add("heightBy", request.quality == kAutomaticQuality ? "auto" : request.quality > 0 ? "given" : "smallest");
    result.add("order", order).add("sounds", sounds).addAll(omissionsAsJSON());
    if (forecast)
        result.add("estimatedBytes", int64_t{std::llround(forecast->bytes)})
            .add("estimatedSeconds", forecast->time.count());
    else
        result.addNull("estimatedBytes").addNull("estimatedSeconds");
    contactSheet ? result.add("contactSheet", contactSheet->native()) : result.addNull("contactSheet");
    return succeed({}, result);
}

int MovieCommand::finish(const MovieRequest& request, const Result<Movie>& outcome)
{
    if (!outcome) {
        const Error& error = outcome.error();
        if (error.code == ErrorCode::Cancelled)
            return stopped();
        const auto isUnusable = [&](const PhotoFacts& photo) { return photo.path == error.file; };
        if (std::ranges::any_of(request.photos, isUnusable))
            return fail(kExitBadInput, error.message);
        const bool isStart = error.code == ErrorCode::ServiceNotFound || error.code == ErrorCode::ServiceNotStarted;
        return fail(isStart ? kExitNoService : kExitFailed, error.message);
    }
    const std::string& path = outcome->path.native();
    const Size size = frameSizeForQuality(request.quality, request.photos);
    struct stat status = {};
    const double bytes = stat(path.c_str(), &status) == 0 ? static_cast<double>(status.st_size) : 0;
    for (const std::string& fault : outcome->faults)
        complain(localized("the movie is not as it should be: {}", fault));
    note(localizedCount(request.photos.size(), "{} photo of {}, {:.0f} x {:.0f}, {}, {}",
                        "{} photos of {}, {:.0f} x {:.0f}, {}, {}", secondsText(request.plan.timePerPhoto), size.width,
                        size.height, secondsText(request.plan.totalVideoDuration), bytesText(bytes)));
    const size_t frames = request.plan.frameCount(request.photos.size());
    if (outcome->reusedFrames > 0)
        note(localizedCount(frames, "{1} of {0} frame copied from {2}; --fresh makes it anew",
                            "{1} of {0} frames copied from {2}; --fresh makes them anew", outcome->reusedFrames,
                            outcome->frameSource.native()));

    JSONWriter result = resultOf(path, outcome->faults.empty());
    result.addAll(planAsJSON(request));
    result.add("reusedFrames", static_cast<int64_t>(outcome->reusedFrames));
    outcome->reusedFrames > 0 ? result.add("frameSource", outcome->frameSource.native())
                              : result.addNull("frameSource");
    result.add("bytes", static_cast<int64_t>(bytes)).add("damagedPhotos", asJSON(damagedOf(request.photos)));
    result.add("faults", outcome->faults).addAll(omissionsAsJSON());
    return succeed(path, result, outcome->faults.empty() ? kExitDone : kExitFaultyMovie);
}

} // namespace stillora
