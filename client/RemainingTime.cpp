#include "client/RemainingTime.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace stillora {

namespace {

/// Before, the start of the service and the first frames weigh too much.
constexpr double kLeastShare = 0.04;
constexpr Seconds kLeastTime{0.4};

/// News changes the estimate by and by, as single photos take longer or shorter than they should: in this share of the
/// whole time.
constexpr double kShareOfInertia = 0.04;

/// Sound that takes more bytes than it should is not done before the service says so.
constexpr double kMostOfSound = 0.95;

} // namespace

RemainingTime::RemainingTime(MovieTimetable timetable) : timetable_(std::move(timetable)) {}

std::optional<double> RemainingTime::placeOf(std::string_view stage, double progress, double total) const
{
    const double fraction = total > 0 ? std::clamp(progress / total, 0.0, 1.0) : 0;
    const auto between = [&](double from, double to) { return from + fraction * (to - from); };
    if (stage == "VideoCreationTitleConvertingAndTrimmingAssets" && total > 0)
        return between(timetable_.soundsConverted, timetable_.soundDone);
    if (stage == "VideoCreationTitleCalculatingVideoSize")
        return timetable_.soundDone;
    if (stage == "VideoCreationTitleRenderingVideo" && progress >= 1 && !timetable_.frames.empty())
        return timetable_.frames[std::min(static_cast<size_t>(progress), timetable_.frames.size()) - 1];
    if (stage == "VideoCreationCompositingVideoAndSoundtrack")
        return timetable_.picturesDone;
    if (stage == "VideoCreationWritingFinalVideo")
        return between(timetable_.picturesDone, timetable_.end);
    return std::nullopt;
}

void RemainingTime::progressed(std::string_view stage, double progress, double total, Seconds elapsed)
{
    if (const auto place = placeOf(stage, progress, total))
        reached(*place, elapsed);
}

void RemainingTime::soundGrew(double bytes, Seconds elapsed)
{
    if (place_ >= timetable_.soundsConverted || timetable_.soundBytes <= 0)
        return;
    const double fraction = std::min(bytes / timetable_.soundBytes, kMostOfSound);
    reached(timetable_.serviceReady + fraction * (timetable_.soundsConverted - timetable_.serviceReady), elapsed);
}

void RemainingTime::reached(double place, Seconds elapsed)
{
    // Frames are told of as they are handed over, several at a time; the first of them says when.
    if (place <= place_)
        return;
    place_ = place;
    const Seconds passed = elapsed - std::exchange(reachedAt_, elapsed);
    if (place_ < kLeastShare * timetable_.end || elapsed < kLeastTime)
        return;
    const Seconds end = elapsed + (timetable_.end - place_) / place_ * elapsed;
    const double share = end_ ? 1 - std::exp(-(passed / (kShareOfInertia * end))) : 1;
    end_ = end_.value_or(end) + share * (end - end_.value_or(end));
}

std::optional<Seconds> RemainingTime::left(Seconds elapsed) const
{
    if (!end_)
        return std::nullopt;
    return std::max(Seconds(0), *end_ - elapsed);
}

} // namespace stillora
