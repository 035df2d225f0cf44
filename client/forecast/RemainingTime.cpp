#include "client/forecast/RemainingTime.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace stillora {

namespace {

/// Too short for a person to read an estimate.
constexpr Seconds kLeastTime{0.2};

/// How much the expected pace counts, before that of a part is seen: as if so much of the work, and so many of the
/// timetable's seconds, had been done at it. A larger share is no better on an idle machine, whose pace is known, and
/// worse on a busy one.
constexpr double kExpectedShare = 0.02;
constexpr double kExpectedSeconds = 0.1;

/// Less sound than that, in the timetable's seconds, tells of beginnings and not of the pace that pictures will have.
constexpr double kTellingSound = 1;

/// News changes the estimate by and by, as single photos take longer or shorter than they should: in this share of the
/// whole time, and sooner at first, when little is known, in that of the time since the part began.
constexpr double kShareOfInertia = 0.04;
constexpr double kShareOfInertiaAtFirst = 0.25;

/// So late may news be without meaning anything.
constexpr Seconds kPatience{0.3};

/// So many frames may be made and wait for one before them, whose thread codes others first.
constexpr std::ptrdiff_t kMostHeldUpFrames = 8;

/// Sound that takes more bytes than it should is not done before the service says so.
constexpr double kMostOfSound = 0.95;

} // namespace

RemainingTime::RemainingTime(MovieTimetable timetable, std::optional<double> machinePace)
    : timetable_(std::move(timetable)), part_{timetable_.serviceReady, timetable_.soundDone, Seconds(0),
                                              machinePace.value_or(1)}
{}

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

/// Starting a program takes as long as it takes, and says nothing of the pace.
void RemainingTime::answered(Seconds elapsed)
{
    if (answeredAt_)
        return;
    answeredAt_ = reachedAt_ = part_.startedAt = elapsed;
    place_ = timetable_.serviceReady;
    end_ = endByPace(place_, elapsed);
}

void RemainingTime::progressed(std::string_view stage, double progress, double total, Seconds elapsed)
{
    answered(elapsed);
    if (const auto place = placeOf(stage, progress, total))
        reached(*place, elapsed);
}

void RemainingTime::soundGrew(double bytes, Seconds elapsed)
{
    answered(elapsed);
    const auto& sounds = timetable_.sounds;
    if (place_ >= timetable_.soundsConverted || sounds.empty())
        return;
    const double known = std::min(bytes, kMostOfSound * sounds.back().bytes);
    MovieTimetable::Sound before{0, timetable_.serviceReady};
    for (const auto& each : sounds) {
        if (known < each.bytes)
            return reached(before.moment +
                               (each.moment - before.moment) * (known - before.bytes) / (each.bytes - before.bytes),
                           elapsed);
        before = each;
    }
}

/// Pictures are expected to be made as quickly as the sound was.
void RemainingTime::beganPictures(double place, Seconds elapsed)
{
    if (!std::exchange(isOfPictures_, true))
        part_ = {place, timetable_.end, elapsed, paceAt(place, elapsed, kTellingSound)};
}

/// @param expected  seconds of the timetable for which the expected pace counts
double RemainingTime::paceAt(double place, Seconds elapsed, double expected) const
{
    return ((elapsed - part_.startedAt).count() + expected * part_.expectedPace) / (place - part_.start + expected);
}

/// As if the work went on as quickly as it did since this part of it began.
Seconds RemainingTime::endByPace(double place, Seconds elapsed) const
{
    const double expected = kExpectedShare * (part_.end - part_.start) + kExpectedSeconds;
    return elapsed + Seconds((timetable_.end - place) * paceAt(place, elapsed, expected));
}

void RemainingTime::reached(double place, Seconds elapsed)
{
    if (place >= timetable_.soundDone)
        beganPictures(place, elapsed);
    // Frames are told of as they are handed over, several at a time; the first of them says when.
    if (place <= place_)
        return;
    place_ = place;
    const Seconds passed = elapsed - std::exchange(reachedAt_, elapsed);
    const Seconds end = endByPace(place, elapsed);
    const Seconds inertia = std::min(kShareOfInertia * end, kShareOfInertiaAtFirst * (elapsed - part_.startedAt));
    const double share = inertia > Seconds(0) ? 1 - std::exp(-(passed / inertia)) : 1;
    end_ += share * (end - end_);
}

/// Where the service will tell something again.
double RemainingTime::nextPlace() const
{
    // That the last sound is written is not told by its bytes.
    for (size_t i = 0; i + 1 < timetable_.sounds.size(); ++i)
        if (timetable_.sounds[i].moment > place_)
            return timetable_.sounds[i].moment;
    for (const double told : {timetable_.soundsConverted, timetable_.soundDone})
        if (place_ < told)
            return told;
    const auto& frames = timetable_.frames;
    const auto next = std::ranges::upper_bound(frames, place_) - frames.begin();
    const auto last = next == 0 ? next : next + kMostHeldUpFrames;
    return static_cast<size_t>(last) < frames.size() ? frames[static_cast<size_t>(last)] : timetable_.end;
}

std::optional<Seconds> RemainingTime::left(Seconds elapsed) const
{
    if (!answeredAt_ || elapsed < kLeastTime)
        return std::nullopt;
    const Seconds left = std::max(Seconds(0), end_ - elapsed);
    // What is overdue is no nearer to its end than it would be if it were told of now.
    const double next = nextPlace();
    const Seconds heard = elapsed - kPatience;
    return next < timetable_.end ? std::max(left, endByPace(next, heard) - heard) : left;
}

} // namespace stillora
