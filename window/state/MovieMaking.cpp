#include "window/state/MovieMaking.h"

#include <stillora/Localization.h>

#include "client/text/LocalizedText.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace stillora::window {

namespace {

std::string textOfTimeLeft(Seconds left)
{
    constexpr double kMinute = 60;
    // No more figures than an estimate has.
    if (left.count() < kMinute) {
        const auto seconds = static_cast<std::uint64_t>(std::max(1.0, std::ceil(left.count())));
        return localizedCount(seconds, "about {} second left", "about {} seconds left");
    }
    const auto minutes = static_cast<std::uint64_t>(std::lround(left.count() / kMinute));
    return localizedCount(minutes, "about {} minute left", "about {} minutes left");
}

} // namespace

MovieMaking::MovieMaking(MainLoop& loop, MovieOutlook& outlook) : loop_(loop), outlook_(outlook) {}

std::string MovieMaking::proposedTitle(const DocumentSession& session, const MovieOutlook& outlook)
{
    if (session.settings().title)
        return *session.settings().title;
    if (session.location())
        return session.location()->stem().string();
    return titleForPhotos(outlook.canBeMade() ? outlook.request().photos : std::vector<PhotoFacts>());
}

std::string MovieMaking::faultOfProposal(const std::string& title)
{
    const auto fault = faultOfTitle(title);
    return fault ? localized("This name {}.", *fault) : std::string();
}

void MovieMaking::start(const std::string& title, const std::filesystem::path& folder)
{
    MovieRequest request = outlook_.request();
    request.title = title;
    request.saveFolder = folder;
    // By the document's name the service would name the movie.
    request.document.reset();
    request.reusesFrames = true;
    state_ = State::Making;
    stage_ = localized("Starting");
    fraction_.reset();
    timeLeftText_.clear();
    picture_.clear();
    path_.clear();
    faults_.clear();
    error_ = {};
    started_ = std::chrono::steady_clock::now();
    work_ = std::make_unique<MovieWork>(loop_, std::move(request),
                                        MovieWork::Handlers{[this](const MovieProgress& news) { progressed(news); },
                                                            [this](Result<Movie> made) { ended(std::move(made)); }});
    changed.emit();
}

void MovieMaking::cancel()
{
    if (state_ != State::Making)
        return;
    state_ = State::Cancelling;
    work_->cancel();
    changed.emit();
}

void MovieMaking::dismiss()
{
    if (isGoingOn() || state_ == State::Idle)
        return;
    state_ = State::Idle;
    changed.emit();
}

void MovieMaking::progressed(const MovieProgress& progress)
{
    if (state_ != State::Making)
        return;
    stage_ = localized(std::string_view(progress.stage));
    if (!progress.image.empty())
        picture_ = progress.image;
    if (progress.timeLeft) {
        const Seconds elapsed = std::chrono::steady_clock::now() - started_;
        const double all = (elapsed + *progress.timeLeft).count();
        // A bar that goes back unsettles more than one that waits.
        fraction_ = std::clamp(all > 0 ? elapsed.count() / all : 0, fraction_.value_or(0), 1.0);
        timeLeftText_ = textOfTimeLeft(*progress.timeLeft);
    } else if (!fraction_) {
        timeLeftText_.clear();
    }
    changed.emit();
}

void MovieMaking::ended(Result<Movie> made)
{
    if (made) {
        state_ = State::Made;
        path_ = made->path;
        faults_ = made->faults;
    } else {
        error_ = made.error();
        state_ = error_.code == ErrorCode::Cancelled ? State::Cancelled : State::Failed;
    }
    work_.reset();
    changed.emit();
}

std::string MovieMaking::advice() const
{
    return adviceFor(error_);
}

void MovieMaking::finish()
{
    if (!work_)
        return;
    work_->cancel();
    // What ends it takes the work away.
    const std::unique_ptr<MovieWork> last = std::move(work_);
    last->finish();
}

std::string adviceFor(const Error& error)
{
    switch (error.code) {
    case ErrorCode::DiskFull:
        return localized("Free some space there, or choose another folder.");
    case ErrorCode::NoPermission:
        return localized("Choose a folder that you may write to.");
    case ErrorCode::ServiceNotFound:
    case ErrorCode::ServiceNotStarted:
        return localized("Stillora is not installed completely; “stillora doctor” says what is missing.");
    case ErrorCode::ServiceEnded:
    case ErrorCode::ServiceStalled:
        return localized("Try again. If that does not help, “stillora doctor” may say why.");
    case ErrorCode::FileNotFound:
        return localized("Put the file back where it was, or remove it here.");
    case ErrorCode::Unsupported:
        return localized("Remove the file here, and try again.");
    default:
        return {};
    }
}

} // namespace stillora::window
