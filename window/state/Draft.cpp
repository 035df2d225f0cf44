#include "window/state/Draft.h"

#include "client/text/LocalizedText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <csignal>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace stillora::window {

namespace {

/// Until the document was left alone for so long, a draft is not made anew.
constexpr std::chrono::milliseconds kQuiet{400};
/// The same of a draft that nobody waits for.
constexpr std::chrono::milliseconds kLongQuiet{1000};
/// No more is made ahead than takes a few seconds.
constexpr std::size_t kMostPhotosAhead = 60;
constexpr Seconds kLongestMusicAhead{600};
/// Longer movies are drafted with fewer lines, so that they are there as soon.
constexpr std::size_t kMostPhotosOfLarge = 60;
constexpr std::int64_t kLarge = 360;
constexpr std::int64_t kSmall = 240;

/// Removes what drafts of processes that are gone have left.
void clearAway(const std::filesystem::path& cache)
{
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(cache, error)) {
        const std::string name = entry.path().filename().string();
        pid_t process = 0;
        const auto [end, fault] = std::from_chars(name.data(), name.data() + name.size(), process);
        std::error_code ignored;
        if (fault == std::errc() && end == name.data() + name.size() && process > 0 && kill(process, 0) != 0 &&
            errno == ESRCH)
            std::filesystem::remove_all(entry.path(), ignored);
    }
}

bool isSamePhoto(const PhotoFacts& a, const PhotoFacts& b)
{
    return a.path == b.path && a.fileSize == b.fileSize && a.modified == b.modified;
}

bool isSameSound(const SoundFacts& a, const SoundFacts& b)
{
    return a.path == b.path && a.selection == b.selection && a.length == b.length;
}

bool isSamePiece(const PlannedSound& a, const PlannedSound& b)
{
    return a.source == b.source && a.selection == b.selection && a.length == b.length;
}

/// Whether drafts of both look and sound alike.
bool isSameMovie(const MovieRequest& a, const MovieRequest& b)
{
    return a.plan.timePerPhoto == b.plan.timePerPhoto && a.plan.framesPerPhoto == b.plan.framesPerPhoto &&
           a.reducesBorders == b.reducesBorders && a.watermark == b.watermark &&
           std::ranges::equal(a.photos, b.photos, isSamePhoto) && std::ranges::equal(a.sounds, b.sounds, isSameSound) &&
           std::ranges::equal(a.plan.sounds, b.plan.sounds, isSamePiece);
}

} // namespace

Draft::Draft(MainLoop& loop, MovieOutlook& outlook, std::filesystem::path cache)
    : loop_(loop), outlook_(outlook), folder_(std::move(cache) / "drafts" / std::to_string(getpid())),
      outlookChanged_(outlook.changed.connect([this] { outlookChanged(); }))
{}

Draft::~Draft()
{
    *isAlive_ = false;
    if (work_) {
        work_->cancel();
        work_->finish();
    }
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

bool Draft::isAsWanted() const
{
    return made_ && outlook_.canBeMade() && isSameMovie(*made_, outlook_.request());
}

void Draft::want()
{
    isWanted_ = true;
    // What is made ahead is given up: on a busy machine it would never be ready.
    if (state_ == State::Ready && isAsWanted()) {
        changed.emit();
    } else if (!outlook_.isComplete()) {
        cancelWork();
        waitsForFiles_ = true;
        setState(State::Making);
    } else if (state_ != State::Making || !isAsWanted()) {
        make();
    }
}

void Draft::stop()
{
    isWanted_ = false;
    ++postponements_;
    if (state_ == State::Making) {
        cancelWork();
        setState(State::None);
    }
    makeAheadSoon();
}

void Draft::setMakesAhead(bool makesAhead)
{
    if (std::exchange(makesAhead_, makesAhead) == makesAhead)
        return;
    if (!makesAhead && isAhead_)
        cancelWork();
    makeAheadSoon();
}

void Draft::outlookChanged()
{
    if ((isAhead_ || state_ != State::None) && isAsWanted())
        return;
    if (isWanted_) {
        if (waitsForFiles_ && outlook_.isComplete())
            make();
        else if (!waitsForFiles_ && state_ != State::None)
            makeSoon();
        return;
    }
    if (isAhead_)
        cancelWork();
    if (state_ != State::None)
        setState(State::None);
    makeAheadSoon();
}

void Draft::cancelWork()
{
    work_.reset();
    made_.reset();
    isAhead_ = false;
    waitsForFiles_ = false;
}

void Draft::makeSoon()
{
    work_.reset();
    fraction_.reset();
    setState(State::Making);
    loop_.postAfter(kQuiet, [this, alive = isAlive_, mine = ++postponements_] {
        if (*alive && mine == postponements_ && isWanted_)
            make();
    });
}

void Draft::makeAheadSoon()
{
    if (!makesAhead_ || isWanted_ || isAhead_ || state_ == State::Ready)
        return;
    loop_.postAfter(kLongQuiet, [this, alive = isAlive_, mine = ++postponements_] {
        if (*alive && mine == postponements_ && makesAhead_ && isWorthMakingAhead())
            make();
    });
}

bool Draft::isWorthMakingAhead() const
{
    return outlook_.isComplete() && outlook_.canBeMade() && outlook_.request().photos.size() <= kMostPhotosAhead &&
           outlook_.request().plan.musicEnd <= kLongestMusicAhead;
}

void Draft::make()
{
    ++postponements_;
    cancelWork();
    if (!outlook_.canBeMade()) {
        error_ = {ErrorCode::NothingToShow, {}, localized("There is no photo to show.")};
        setState(State::Failed);
        return;
    }
    clearAway(folder_.parent_path());
    made_ = outlook_.request();
    photos_ = outlook_.requestPhotos();
    MovieRequest request = *made_;
    request.quality = photos_.size() <= kMostPhotosOfLarge ? kLarge : kSmall;
    request.codec = "avc1";
    request.title = "Draft";
    request.saveFolder = folder_;
    request.document.reset();
    request.use = MovieUse::Anywhere;
    // Those of the draft before, which stays until this one is there.
    request.reusesFrames = true;
    isAhead_ = !isWanted_;
    fraction_.reset();
    started_ = std::chrono::steady_clock::now();
    if (!isAhead_)
        setState(State::Making);
    work_ = std::make_unique<MovieWork>(loop_, std::move(request),
                                        MovieWork::Handlers{[this](const MovieProgress& news) { progressed(news); },
                                                            [this](Result<Movie> made) { take(std::move(made)); }},
                                        isAhead_ ? Urgency::Low : Urgency::Usual);
}

void Draft::progressed(const MovieProgress& progress)
{
    if (progress.timeLeft) {
        const Seconds elapsed = std::chrono::steady_clock::now() - started_;
        const double all = (elapsed + *progress.timeLeft).count();
        fraction_ = std::clamp(all > 0 ? elapsed.count() / all : 0, fraction_.value_or(0), 1.0);
    }
    if (!isAhead_)
        changed.emit();
}

void Draft::take(Result<Movie> made)
{
    work_.reset();
    const bool wasAhead = std::exchange(isAhead_, false);
    if (made) {
        std::error_code ignored;
        if (!path_.empty() && path_ != made->path)
            std::filesystem::remove(path_, ignored);
        path_ = made->path;
        setState(State::Ready);
        return;
    }
    made_.reset();
    // Whoever wants it later is told why there is none.
    if (wasAhead)
        return;
    error_ = made.error();
    setState(error_.code == ErrorCode::Cancelled ? State::None : State::Failed);
}

void Draft::setState(State state)
{
    state_ = state;
    changed.emit();
}

Seconds Draft::length() const
{
    return made_ ? made_->plan.totalVideoDuration : Seconds(0);
}

std::optional<PhotoID> Draft::photoAt(Seconds time) const
{
    if (!made_ || photos_.empty() || made_->plan.timePerPhoto <= Seconds(0) || time < Seconds(0))
        return std::nullopt;
    const auto index = static_cast<std::size_t>(std::floor(time / made_->plan.timePerPhoto));
    return photos_[std::min(index, photos_.size() - 1)];
}

std::optional<Seconds> Draft::startOf(PhotoID id) const
{
    const auto found = std::ranges::find(photos_, id);
    if (!made_ || found == photos_.end())
        return std::nullopt;
    return made_->plan.timePerPhoto * static_cast<double>(found - photos_.begin());
}

} // namespace stillora::window
